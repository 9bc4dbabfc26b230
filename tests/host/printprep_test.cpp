// printprep run as a user runs it, on model files this test writes in every format the importer
// reads: the PNG it renders is read back and its pixels inspected, check's JSON is parsed, and bad
// input ends with one line naming the culprit, the right status and no file written.

#include "../platform/geometry/meshfiles.h"
#include "platform/image/png.h"

#include <gtest/gtest.h>
#include <nlohmann/json.hpp>

#include <sys/wait.h>

#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <sstream>
#include <string>

namespace {

namespace fs = std::filesystem;

const fs::path kFolder = fs::path(PRINTPREP_TEST_DIR) / "printprep_files";

struct Outcome {
  int status = -1;
  std::string out;
  std::string err;
};

std::string slurp(const fs::path& path) {
  std::ifstream in(path, std::ios::binary);
  std::ostringstream text;
  text << in.rdbuf();
  return text.str();
}

Outcome run(const std::string& arguments, const std::string& name) {
  fs::create_directories(kFolder);
  const fs::path out = kFolder / (name + ".out"), err = kFolder / (name + ".err");
  const std::string command =
      std::string(PRINTPREP) + " " + arguments + " > " + out.string() + " 2> " + err.string();
  const int raw = std::system(command.c_str());
  Outcome result;
  result.status = WIFEXITED(raw) ? WEXITSTATUS(raw) : -1;
  result.out = slurp(out);
  result.err = slurp(err);
  return result;
}

void write(const fs::path& path, const std::string& bytes) {
  fs::create_directories(path.parent_path());
  std::ofstream(path, std::ios::binary) << bytes;
}

// A cube of `edge` mm.
meshfiles::Indexed cube(double edge) {
  meshfiles::Indexed mesh = meshfiles::cubeIndexed();
  for (auto& p : mesh.vertices) p = ruLinear::Point(p.x * edge, p.y * edge, p.z * edge);
  return mesh;
}

// The cube as STL (binary), OBJ, PLY and 3MF files.
std::vector<fs::path> cubeFiles(double edge) {
  const meshfiles::Indexed mesh = cube(edge);
  meshfiles::Soup soup;
  for (std::uint32_t index : mesh.triangles) soup.corners.push_back(mesh.vertices[index]);
  const std::string stem = "cube" + std::to_string(static_cast<int>(edge));
  std::vector<fs::path> files = {kFolder / (stem + ".stl"), kFolder / (stem + ".obj"), kFolder / (stem + ".ply"),
                                 kFolder / (stem + ".3mf")};
  write(files[0], meshfiles::binaryStl(soup));
  write(files[1], meshfiles::obj(mesh));
  write(files[2], meshfiles::ply(mesh));
  write(files[3], meshfiles::threeMf(mesh, true));
  return files;
}

int difference(const ruImage::Byte4& a, const ruImage::Byte4& b) {
  return std::abs(a.r - b.r) + std::abs(a.g - b.g) + std::abs(a.b - b.b);
}

int countNear(const ruImage::TypedImage<ruImage::Byte4>& image, const ruImage::Byte4& color, int tolerance) {
  int count = 0;
  for (int y = 0; y < image.ySize(); ++y)
    for (int x = 0; x < image.xSize(); ++x) count += difference(image.pixel(x, y), color) <= tolerance ? 1 : 0;
  return count;
}

int countWhite(const ruImage::TypedImage<ruImage::Byte4>& image) {
  int count = 0;
  for (int y = 0; y < image.ySize(); ++y)
    for (int x = 0; x < image.xSize(); ++x) {
      const ruImage::Byte4& p = image.pixel(x, y);
      count += (p.r > 220 && p.g > 220 && p.b > 220) ? 1 : 0;
    }
  return count;
}

TEST(PrintprepRenderGLTest, EveryFormatRendersItsModelOverTheBed) {
  for (const fs::path& file : cubeFiles(20)) {
    SCOPED_TRACE(file.string());
    const fs::path png = kFolder / (file.filename().string() + ".png");
    fs::remove(png);
    // Seen from above, a 20 mm cube in the middle of a 40 mm bed.
    const Outcome result = run("render " + file.string() + " -o " + png.string() +
                               " --size 320x240 --view top --printer 40x40x40",
                           "render_" + file.filename().string());
    ASSERT_EQ(result.status, 0) << result.err;
    EXPECT_NE(result.out.find("Loaded 1 parts, 12 triangles"), std::string::npos) << result.out;
    ruString::CString error;
    ru::Reference<ruImage::TypedImage<ruImage::Byte4>> image = ruImage::readPng(png.string().c_str(), &error);
    ASSERT_TRUE(image) << error.c_str();
    EXPECT_EQ(image->xSize(), 320);
    EXPECT_EQ(image->ySize(), 240);
    const ruImage::Byte4 background = image->pixel(0, 0);
    const ruImage::Byte4 centre = image->pixel(160, 120);
    // Between the cube's edge (a quarter of the bed from the middle) and the bed's.
    const ruImage::Byte4 bed = image->pixel(160 + 27, 120);
    EXPECT_GT(difference(centre, background), 40);
    EXPECT_GT(difference(centre, bed), 40);
    EXPECT_GT(difference(bed, background), 10);
    // The cube's top covers about a quarter of the bed's square.
    const int cubePixels = countNear(*image, centre, 12);
    const int bedPixels = countNear(*image, bed, 12);
    EXPECT_GT(cubePixels, bedPixels / 5);
    EXPECT_LT(cubePixels, bedPixels);
  }
}

TEST(PrintprepRenderGLTest, SelectedPartGlows) {
  const std::vector<fs::path> files = cubeFiles(20);
  const fs::path plain = kFolder / "select_none.png", selected = kFolder / "select_one.png";
  const std::string models = files[0].string() + " " + files[1].string();
  ASSERT_EQ(run("render " + models + " -o " + plain.string() + " --size 256x256", "select_none").status, 0);
  const Outcome result = run("render " + models + " -o " + selected.string() + " --size 256x256 --select 1", "select_one");
  ASSERT_EQ(result.status, 0) << result.err;
  EXPECT_NE(result.out.find("1 selected"), std::string::npos);
  ru::Reference<ruImage::TypedImage<ruImage::Byte4>> before = ruImage::readPng(plain.string().c_str());
  ru::Reference<ruImage::TypedImage<ruImage::Byte4>> after = ruImage::readPng(selected.string().c_str());
  ASSERT_TRUE(before && after);
  EXPECT_LT(countWhite(*before), 10);
  EXPECT_GT(countWhite(*after), 100);
}

TEST(PrintprepRenderGLTest, ThumbnailFramesOnePart) {
  const std::vector<fs::path> files = cubeFiles(20);
  const fs::path png = kFolder / "thumbnail.png";
  const Outcome result =
      run("thumbnail " + files[0].string() + " " + files[2].string() + " -o " + png.string() + " --size 128 --part 1",
          "thumbnail");
  ASSERT_EQ(result.status, 0) << result.err;
  ru::Reference<ruImage::TypedImage<ruImage::Byte4>> image = ruImage::readPng(png.string().c_str());
  ASSERT_TRUE(image);
  EXPECT_EQ(image->xSize(), 128);
  EXPECT_EQ(image->ySize(), 128);
  // The framed part fills the middle of the picture.
  EXPECT_GT(difference(image->pixel(64, 64), image->pixel(0, 0)), 40);
  EXPECT_GT(image->xSize() * image->ySize() - countNear(*image, image->pixel(0, 0), 6), 128 * 128 / 8);
}

TEST(PrintprepCheckTest, JsonReportsBoundsRepairAndThinWalls) {
  // A cube too tall for the printer, an open box, and a plate 0.5 mm thick.
  const fs::path tall = cubeFiles(50)[1];
  meshfiles::Indexed open = cube(10);
  open.triangles.resize(open.triangles.size() - 6);  // one face missing
  write(kFolder / "open.obj", meshfiles::obj(open));
  meshfiles::Indexed plate = meshfiles::cubeIndexed();
  for (auto& p : plate.vertices) p = ruLinear::Point(p.x * 30, p.y * 20, p.z * 0.5);
  write(kFolder / "plate.ply", meshfiles::ply(plate));

  const std::string models = tall.string() + " " + (kFolder / "open.obj").string() + " " + (kFolder / "plate.ply").string();
  const Outcome result = run("check " + models + " --printer 150x150x40 --json", "check_json");
  ASSERT_EQ(result.status, 0) << result.err;
  const nlohmann::json report = nlohmann::json::parse(result.out, nullptr, false);
  ASSERT_FALSE(report.is_discarded()) << result.out;
  EXPECT_EQ(report["printer"]["volume"], nlohmann::json({150.0, 150.0, 40.0}));
  ASSERT_EQ(report["parts"].size(), 3u);
  const nlohmann::json& a = report["parts"][0];
  EXPECT_EQ(a["file"], tall.string());
  EXPECT_EQ(a["triangles"], 12);
  EXPECT_TRUE(a["outOfBounds"]);
  EXPECT_EQ(a["sidesPassed"], nlohmann::json({"top"}));
  EXPECT_FALSE(a["needsRepair"]);
  EXPECT_FALSE(a["thinWalls"]);
  EXPECT_NEAR(a["minimumThickness"].get<double>(), 50.0, 1e-3);
  const nlohmann::json& b = report["parts"][1];
  EXPECT_FALSE(b["outOfBounds"]);
  EXPECT_TRUE(b["needsRepair"]);
  EXPECT_EQ(b["problems"], "4 open edges");
  const nlohmann::json& c = report["parts"][2];
  EXPECT_FALSE(c["outOfBounds"]);
  EXPECT_FALSE(c["needsRepair"]);
  EXPECT_TRUE(c["thinWalls"]);
  EXPECT_NEAR(c["minimumThickness"].get<double>(), 0.5, 1e-3);

  // The same as a table, a line a part.
  const Outcome table = run("check " + models + " --printer 150x150x40", "check_table");
  ASSERT_EQ(table.status, 0) << table.err;
  EXPECT_NE(table.out.find("Printer 150 x 150 x 40 mm, walls from 0.8 mm"), std::string::npos) << table.out;
  EXPECT_NE(table.out.find("cube50.obj"), std::string::npos);
  EXPECT_NE(table.out.find("OUT: top"), std::string::npos) << table.out;
  EXPECT_NE(table.out.find("NEEDS REPAIR: 4 open edges"), std::string::npos);
  EXPECT_NE(table.out.find("0.50 mm THIN"), std::string::npos);
  EXPECT_NE(table.out.find("50.00 mm ok"), std::string::npos);
}

// One line on the error stream.
bool oneLine(const std::string& text) {
  return !text.empty() && text.find('\n') == text.size() - 1;
}

TEST(PrintprepBadInputTest, MissingFileNamesItAndWritesNothing) {
  const fs::path png = kFolder / "missing.png";
  fs::remove(png);
  const Outcome result = run("render " + (kFolder / "no_such_model.stl").string() + " -o " + png.string(), "missing");
  EXPECT_EQ(result.status, 1);
  EXPECT_TRUE(oneLine(result.err)) << result.err;
  EXPECT_NE(result.err.find("no_such_model.stl"), std::string::npos) << result.err;
  EXPECT_FALSE(fs::exists(png));
}

TEST(PrintprepBadInputTest, MalformedModelNamesItAndWritesNothing) {
  const fs::path model = kFolder / "broken.ply", png = kFolder / "broken.png";
  write(model, "ply\nformat ascii 1.0\nelement vertex 3\nproperty float x\nend_header\n1 2\n");
  fs::remove(png);
  const Outcome result = run("render " + model.string() + " -o " + png.string(), "broken");
  EXPECT_EQ(result.status, 1);
  EXPECT_TRUE(oneLine(result.err)) << result.err;
  EXPECT_NE(result.err.find("broken.ply"), std::string::npos) << result.err;
  EXPECT_FALSE(fs::exists(png));
}

TEST(PrintprepBadInputTest, UnknownOptionIsAUsageError) {
  const fs::path model = cubeFiles(20)[0];
  const Outcome result = run("render " + model.string() + " -o " + (kFolder / "x.png").string() + " --colour red", "unknown");
  EXPECT_EQ(result.status, 2);
  EXPECT_TRUE(oneLine(result.err)) << result.err;
  EXPECT_NE(result.err.find("--colour"), std::string::npos) << result.err;
}

TEST(PrintprepBadInputTest, WrongSizeIsAUsageError) {
  const fs::path model = cubeFiles(20)[0], png = kFolder / "wrongsize.png";
  fs::remove(png);
  for (const char* size : {"800", "0x600", "axb", "800x-1"}) {
    SCOPED_TRACE(size);
    const Outcome result = run("render " + model.string() + " -o " + png.string() + " --size " + size, "wrongsize");
    EXPECT_EQ(result.status, 2);
    EXPECT_TRUE(oneLine(result.err)) << result.err;
    EXPECT_NE(result.err.find("--size"), std::string::npos) << result.err;
    EXPECT_FALSE(fs::exists(png));
  }
}

TEST(PrintprepBadInputTest, SelectionOutOfRangeIsAUsageError) {
  const fs::path model = cubeFiles(20)[0], png = kFolder / "badselect.png";
  fs::remove(png);
  const Outcome result = run("render " + model.string() + " -o " + png.string() + " --select 3", "badselect");
  EXPECT_EQ(result.status, 2);
  EXPECT_TRUE(oneLine(result.err)) << result.err;
  EXPECT_NE(result.err.find("--select 3"), std::string::npos) << result.err;
  EXPECT_FALSE(fs::exists(png));
}

TEST(PrintprepBadInputTest, UnwritableOutputNamesItAndLeavesNothing) {
  const fs::path model = cubeFiles(20)[0];
  const Outcome result = run("render " + model.string() + " -o /proc/printprep.png", "unwritable");
  EXPECT_EQ(result.status, 1);
  EXPECT_TRUE(oneLine(result.err)) << result.err;
  EXPECT_NE(result.err.find("/proc/printprep.png"), std::string::npos) << result.err;
}

}  // namespace
