// printprep run as a user runs it, on model files this test writes in every format the importer
// reads: the PNG it renders is read back and its pixels inspected, check's JSON is parsed, and bad
// input ends with one line naming the culprit, the right status and no file written.

#include "../platform/geometry/meshfiles.h"
#include "programrun.h"
#include "platform/image/png.h"

#include <gtest/gtest.h>
#include <nlohmann/json.hpp>

#include <sys/wait.h>

#include <algorithm>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <sstream>
#include <string>
#include <utility>
#include <vector>

namespace {

namespace fs = std::filesystem;

using programrun::Outcome;
using programrun::slurp;
using programrun::write;

fs::path folder() { return programrun::caseFolder("printprep_files"); }

Outcome run(const std::string& arguments, const std::string& name) { return programrun::run(arguments, folder(), name); }

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
  std::vector<fs::path> files = {folder() / (stem + ".stl"), folder() / (stem + ".obj"), folder() / (stem + ".ply"),
                                 folder() / (stem + ".3mf")};
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

// The print view's background: a radial gradient of light neutral greys (0.93 to 0.99).
bool backgroundLike(const ruImage::Byte4& p) {
  const int low = std::min({p.r, p.g, p.b}), high = std::max({p.r, p.g, p.b});
  return high - low <= 6 && low >= 225;
}

// The caps closing a cut: a red well apart from the grey parts, the blue bars and the glows.
bool capLike(const ruImage::Byte4& p) { return p.r > 150 && p.r > p.g + 70 && p.r > p.b + 70; }

// The glow around selected parts: a light blue, (0.09, 0.61, 0.84) at its strongest.
int countGlow(const ruImage::TypedImage<ruImage::Byte4>& image) {
  return countNear(image, ruImage::Byte4{23, 156, 214, 255}, 40);
}

ru::Reference<ruImage::TypedImage<ruImage::Byte4>> readBack(const fs::path& png) {
  ruString::CString error;
  ru::Reference<ruImage::TypedImage<ruImage::Byte4>> image = ruImage::readPng(png.string().c_str(), &error);
  EXPECT_TRUE(image) << png.string() << ": " << error.c_str();
  return image;
}

TEST(PrintprepRenderGLTest, EveryFormatRendersItsModelOverTheBed) {
  for (const fs::path& file : cubeFiles(20)) {
    SCOPED_TRACE(file.string());
    const fs::path png = folder() / (file.filename().string() + ".png");
    fs::remove(png);
    // Seen from above, a 20 mm cube in the middle of a 40 mm bed.
    const Outcome result = run("render " + file.string() + " -o " + png.string() +
                                   " --size 320x240 --view top --printer 40x40x40",
                               "render_" + file.filename().string());
    ASSERT_EQ(result.status, 0) << result.err;
    EXPECT_NE(result.out.find("Loaded 1 parts, 12 triangles"), std::string::npos) << result.out;
    ru::Reference<ruImage::TypedImage<ruImage::Byte4>> image = readBack(png);
    ASSERT_TRUE(image);
    EXPECT_EQ(image->xSize(), 320);
    EXPECT_EQ(image->ySize(), 240);
    const ruImage::Byte4 centre = image->pixel(160, 120);
    EXPECT_TRUE(backgroundLike(image->pixel(0, 0)));
    EXPECT_FALSE(backgroundLike(centre));
    EXPECT_GT(difference(centre, image->pixel(0, 0)), 40);
    // The cube's top is one flat shade over a good part of the middle, not the whole picture.
    const int cubePixels = countNear(*image, centre, 12);
    EXPECT_GT(cubePixels, 320 * 240 / 16);
    EXPECT_LT(cubePixels, 320 * 240 / 3);
    // Around it the bed's grid and the volume's bars.
    int drawn = 0;
    for (int y = 0; y < image->ySize(); ++y)
      for (int x = 0; x < image->xSize(); ++x) {
        const ruImage::Byte4& p = image->pixel(x, y);
        drawn += !backgroundLike(p) && difference(p, centre) > 12 ? 1 : 0;
      }
    EXPECT_GT(drawn, 1000);
  }
}

TEST(PrintprepRenderGLTest, SelectedPartGlows) {
  const std::vector<fs::path> files = cubeFiles(20);
  const fs::path plain = folder() / "select_none.png", selected = folder() / "select_one.png";
  const std::string models = files[0].string() + " " + files[1].string() + " --printer 60x60x40";
  ASSERT_EQ(run("render " + models + " -o " + plain.string() + " --size 256x256", "select_none").status, 0);
  const Outcome result = run("render " + models + " -o " + selected.string() + " --size 256x256 --select 1", "select_one");
  ASSERT_EQ(result.status, 0) << result.err;
  EXPECT_NE(result.out.find("1 selected"), std::string::npos);
  ru::Reference<ruImage::TypedImage<ruImage::Byte4>> before = readBack(plain);
  ru::Reference<ruImage::TypedImage<ruImage::Byte4>> after = readBack(selected);
  ASSERT_TRUE(before && after);
  EXPECT_LT(countGlow(*before), 10);
  EXPECT_GT(countGlow(*after), 100);
  // The glow rings the second part, the one placed further along X: right of the middle.
  long sumX = 0;
  int glowing = 0;
  for (int y = 0; y < after->ySize(); ++y)
    for (int x = 0; x < after->xSize(); ++x)
      if (difference(after->pixel(x, y), ruImage::Byte4{23, 156, 214, 255}) <= 40) sumX += x, ++glowing;
  ASSERT_GT(glowing, 0);
  EXPECT_GT(sumX / glowing, 128 + 10);
}

// A 20 mm cube seen from the front, its middle (z 10) on the picture's middle row: cut at z 10,
// whatever the cube covered above that row is now background, and what it covered below stays.
TEST(PrintprepRenderGLTest, CutBelowThePartsTopClearsThePartAboveTheCut) {
  const fs::path model = cubeFiles(20)[0];
  const fs::path whole = folder() / "cut_whole.png", cut = folder() / "cut_10.png";
  const std::string common = " --size 320x240 --view front --printer 40x40x40";
  ASSERT_EQ(run("render " + model.string() + " -o " + whole.string() + common, "cut_whole").status, 0);
  const Outcome result = run("render " + model.string() + " -o " + cut.string() + common + " --cut 10", "cut_10");
  ASSERT_EQ(result.status, 0) << result.err;
  EXPECT_NE(result.out.find("Cut away above z = 10 mm"), std::string::npos) << result.out;
  ru::Reference<ruImage::TypedImage<ruImage::Byte4>> before = readBack(whole);
  ru::Reference<ruImage::TypedImage<ruImage::Byte4>> after = readBack(cut);
  ASSERT_TRUE(before && after);
  // The cube's front face is one flat shade; it covers the middle of the picture.
  const ruImage::Byte4 face = before->pixel(160, 130);
  ASSERT_FALSE(backgroundLike(face));
  int above = 0, aboveCleared = 0, below = 0, belowKept = 0;
  for (int y = 0; y < before->ySize(); ++y)
    for (int x = 0; x < before->xSize(); ++x) {
      if (difference(before->pixel(x, y), face) > 12) continue;
      const ruImage::Byte4& now = after->pixel(x, y);
      if (y < 120 - 4) {
        ++above;
        aboveCleared += backgroundLike(now) || capLike(now) ? 1 : 0;
      } else if (y > 120 + 4) {
        ++below;
        belowKept += difference(now, face) <= 12 ? 1 : 0;
      }
    }
  EXPECT_GT(above, 1000);
  EXPECT_GT(below, 1000);
  EXPECT_GE(aboveCleared, above * 97 / 100) << aboveCleared << " of " << above;
  EXPECT_GE(belowKept, below * 95 / 100) << belowKept << " of " << below;
}

// Seen from above at an angle, the cut cube shows its cap where its top was.
TEST(PrintprepRenderGLTest, CutPartIsClosedByItsCap) {
  const fs::path model = cubeFiles(20)[0];
  const fs::path whole = folder() / "cap_whole.png", cut = folder() / "cap_10.png";
  ASSERT_EQ(run("render " + model.string() + " -o " + whole.string() + " --size 320x240 --printer 40x40x40", "cap_whole").status, 0);
  ASSERT_EQ(run("render " + model.string() + " -o " + cut.string() + " --size 320x240 --printer 40x40x40 --cut 10", "cap_10").status,
            0);
  ru::Reference<ruImage::TypedImage<ruImage::Byte4>> before = readBack(whole);
  ru::Reference<ruImage::TypedImage<ruImage::Byte4>> after = readBack(cut);
  ASSERT_TRUE(before && after);
  auto caps = [](const ruImage::TypedImage<ruImage::Byte4>& image) {
    int count = 0;
    for (int y = 0; y < image.ySize(); ++y)
      for (int x = 0; x < image.xSize(); ++x) count += capLike(image.pixel(x, y)) ? 1 : 0;
    return count;
  };
  EXPECT_EQ(caps(*before), 0);
  EXPECT_GT(caps(*after), 1000);
}

TEST(PrintprepRenderGLTest, CutAboveEveryPartChangesNothing) {
  const fs::path model = cubeFiles(20)[0];
  const fs::path whole = folder() / "high_whole.png", cut = folder() / "high_cut.png";
  ASSERT_EQ(run("render " + model.string() + " -o " + whole.string() + " --size 200x200 --printer 40x40x40", "high_whole").status, 0);
  ASSERT_EQ(run("render " + model.string() + " -o " + cut.string() + " --size 200x200 --printer 40x40x40 --cut 30", "high_cut").status,
            0);
  ru::Reference<ruImage::TypedImage<ruImage::Byte4>> before = readBack(whole);
  ru::Reference<ruImage::TypedImage<ruImage::Byte4>> after = readBack(cut);
  ASSERT_TRUE(before && after);
  int changed = 0;
  for (int y = 0; y < before->ySize(); ++y)
    for (int x = 0; x < before->xSize(); ++x) changed += difference(before->pixel(x, y), after->pixel(x, y)) > 6 ? 1 : 0;
  EXPECT_LT(changed, 20);
}

TEST(PrintprepRenderGLTest, TimingsReportLoadFirstFrameAndTotal) {
  const fs::path model = cubeFiles(20)[0];
  const Outcome result = run("render " + model.string() + " -o " + (folder() / "timings.png").string() + " --size 64x64 --timings",
                             "timings");
  ASSERT_EQ(result.status, 0) << result.err;
  EXPECT_NE(result.out.find("Timings: load "), std::string::npos) << result.out;
  EXPECT_NE(result.out.find(" ms, first frame "), std::string::npos) << result.out;
  EXPECT_NE(result.out.find(" ms, total "), std::string::npos) << result.out;
}

TEST(PrintprepRenderGLTest, ThumbnailFramesOnePart) {
  const std::vector<fs::path> files = cubeFiles(20);
  const fs::path png = folder() / "thumbnail.png";
  const Outcome result =
      run("thumbnail " + files[0].string() + " " + files[2].string() + " -o " + png.string() + " --size 128 --part 1",
          "thumbnail");
  ASSERT_EQ(result.status, 0) << result.err;
  ru::Reference<ruImage::TypedImage<ruImage::Byte4>> image = readBack(png);
  ASSERT_TRUE(image);
  EXPECT_EQ(image->xSize(), 128);
  EXPECT_EQ(image->ySize(), 128);
  // The part alone, opaque in the middle and filling a good part of the picture; transparent
  // around it.
  EXPECT_EQ(image->pixel(0, 0).a, 0);
  EXPECT_EQ(image->pixel(64, 64).a, 255);
  EXPECT_GT(difference(image->pixel(64, 64), image->pixel(0, 0)), 40);
  int opaque = 0;
  for (int y = 0; y < 128; ++y)
    for (int x = 0; x < 128; ++x) opaque += image->pixel(x, y).a > 0 ? 1 : 0;
  EXPECT_GT(opaque, 128 * 128 / 8);
}

TEST(PrintprepRenderGLTest, ThumbnailOfTheBedShowsThePrinterAroundSmallParts) {
  const std::vector<fs::path> files = cubeFiles(20);
  const fs::path bed = folder() / "thumbnail_bed.png", part = folder() / "thumbnail_part0.png";
  const std::string models = files[0].string() + " " + files[1].string() + " --printer 200x200x200 --size 128";
  const Outcome result = run("thumbnail " + models + " -o " + bed.string(), "thumbnail_bed");
  ASSERT_EQ(result.status, 0) << result.err;
  EXPECT_NE(result.out.find("Thumbnail of the bed"), std::string::npos) << result.out;
  ASSERT_EQ(run("thumbnail " + models + " -o " + part.string() + " --part 0", "thumbnail_part0").status, 0);
  ru::Reference<ruImage::TypedImage<ruImage::Byte4>> bedImage = readBack(bed);
  ru::Reference<ruImage::TypedImage<ruImage::Byte4>> partImage = readBack(part);
  ASSERT_TRUE(bedImage && partImage);
  // Opaque pixels: their count and the columns and rows they span.
  struct Extent {
    int count = 0, x0 = 1 << 30, x1 = -1, y0 = 1 << 30, y1 = -1;
  };
  auto extent = [](const ruImage::TypedImage<ruImage::Byte4>& image) {
    Extent e;
    for (int y = 0; y < image.ySize(); ++y)
      for (int x = 0; x < image.xSize(); ++x)
        if (image.pixel(x, y).a > 0) {
          ++e.count;
          e.x0 = std::min(e.x0, x), e.x1 = std::max(e.x1, x), e.y0 = std::min(e.y0, y), e.y1 = std::max(e.y1, y);
        }
    return e;
  };
  const Extent whole = extent(*bedImage), one = extent(*partImage);
  // The printer's lines span most of the picture, while the two 20 mm cubes on a 200 mm bed fill
  // little of it; a part alone fills much more.
  EXPECT_GT(whole.x1 - whole.x0, 128 * 6 / 10);
  EXPECT_GT(whole.y1 - whole.y0, 128 * 6 / 10);
  EXPECT_LT(whole.count, 128 * 128 / 2);
  EXPECT_GT(one.count, whole.count / 2);
}

// The demo as a user runs it: every frame its report names is a PNG in the frames folder, of the
// size asked for (thumbnails half of it), no two alike, and the folder holds nothing else.
TEST(PrintprepDemoGLTest, WritesEveryFrameNamedInItsReport) {
  const fs::path frames = folder() / "demo_frames";
  fs::remove_all(frames);
  const Outcome result = run("demo --output " + (folder() / "demo_models").string() + " --frames " + frames.string() +
                                 " --frame-size 256",
                             "demo_frames");
  ASSERT_EQ(result.status, 0) << result.err;
  // A frame's line: two spaces, the file name, what it shows, the time the step took.
  std::vector<std::pair<std::string, std::string>> named;
  std::istringstream lines(result.out);
  for (std::string line; std::getline(lines, line);) {
    if (line.rfind("  ", 0) != 0 || line.size() < 6 || line.compare(line.size() - 3, 3, " ms") != 0) continue;
    const std::size_t end = line.find(".png ");
    if (end == std::string::npos) continue;
    named.emplace_back(line.substr(2, end + 4 - 2), line.substr(end + 5));
  }
  ASSERT_EQ(named.size(), 8u) << result.out;
  std::string shows;
  for (const auto& entry : named) shows += entry.second + "\n";
  for (const char* subject : {"the bed with its parts", "out of bounds", "bars red", "thin colour", "hovered",
                              "selected", "caught by its corner", "mark", "cut-away", "caps", "thumbnail of the bracket",
                              "thumbnail of the whole bed"})
    EXPECT_NE(shows.find(subject), std::string::npos) << subject;

  std::vector<ru::Reference<ruImage::TypedImage<ruImage::Byte4>>> images;
  for (const auto& entry : named) {
    SCOPED_TRACE(entry.first);
    ru::Reference<ruImage::TypedImage<ruImage::Byte4>> image = readBack(frames / entry.first);
    ASSERT_TRUE(image);
    const int edge = entry.second.find("thumbnail") != std::string::npos ? 128 : 256;
    EXPECT_EQ(image->xSize(), edge);
    EXPECT_EQ(image->ySize(), edge);
    for (const auto& other : images) {
      if (other->xSize() != image->xSize()) continue;
      int differing = 0;
      for (int y = 0; y < edge; ++y)
        for (int x = 0; x < edge; ++x) differing += difference(other->pixel(x, y), image->pixel(x, y)) > 6 ? 1 : 0;
      EXPECT_GT(differing, 50);
    }
    images.push_back(image);
  }
  int files = 0;
  for (const auto& entry : fs::directory_iterator(frames)) files += entry.path().extension() == ".png" ? 1 : 0;
  EXPECT_EQ(files, 8);
  EXPECT_NE(result.out.find("Report: 4 objects (3 parts and the printer), 34 triangles, 8 frames in "), std::string::npos);
}

// The hovered and the selected part glow in their two colours: the hover glow is the darker blue.
TEST(PrintprepDemoGLTest, HoverAndSelectionFrameShowsBothGlows) {
  const fs::path frames = folder() / "demo_glows";
  fs::remove_all(frames);
  ASSERT_EQ(run("demo --output " + (folder() / "demo_models").string() + " --frames " + frames.string() + " --frame-size 256",
                "demo_glows")
                .status,
            0);
  ru::Reference<ruImage::TypedImage<ruImage::Byte4>> bed = readBack(frames / "1_bed.png");
  ru::Reference<ruImage::TypedImage<ruImage::Byte4>> glows = readBack(frames / "4_hover_select.png");
  ASSERT_TRUE(bed && glows);
  const ruImage::Byte4 selectedGlow{23, 156, 214, 255}, hoverGlow{23, 115, 158, 255};
  EXPECT_LT(countNear(*bed, selectedGlow, 30), 10);
  EXPECT_LT(countNear(*bed, hoverGlow, 30), 10);
  EXPECT_GT(countNear(*glows, selectedGlow, 30), 100);
  EXPECT_GT(countNear(*glows, hoverGlow, 30), 100);
}

// The frames look at the parts, not at the whole bed: the open box and the thin plate (the two
// parts in the red of their states) cover a good share of the bed frame, and of the cut-away's.
TEST(PrintprepDemoGLTest, FramesShowThePartsLarge) {
  const fs::path frames = folder() / "demo_large";
  fs::remove_all(frames);
  ASSERT_EQ(run("demo --output " + (folder() / "demo_models").string() + " --frames " + frames.string() + " --frame-size 256",
                "demo_large")
                .status,
            0);
  auto redShare = [](const ruImage::TypedImage<ruImage::Byte4>& image) {
    int red = 0;
    for (int y = 0; y < image.ySize(); ++y)
      for (int x = 0; x < image.xSize(); ++x) {
        const ruImage::Byte4 p = image.pixel(x, y);
        red += p.r > p.g + 40 && p.r > p.b + 80 ? 1 : 0;
      }
    return static_cast<double>(red) / (image.xSize() * image.ySize());
  };
  for (const char* name : {"1_bed.png", "4_hover_select.png", "6_cut_away.png"}) {
    SCOPED_TRACE(name);
    ru::Reference<ruImage::TypedImage<ruImage::Byte4>> image = readBack(frames / name);
    ASSERT_TRUE(image);
    // Seen with the whole 100 mm bed in the frame the two cover about 3 %.
    EXPECT_GT(redShare(*image), 0.08);
  }
}

TEST(PrintprepCheckTest, JsonReportsBoundsRepairAndThinWalls) {
  // A cube too tall for the printer, an open box, and a plate 0.5 mm thick.
  const fs::path tall = cubeFiles(50)[1];
  meshfiles::Indexed open = cube(10);
  open.triangles.resize(open.triangles.size() - 6);  // one face missing
  write(folder() / "open.obj", meshfiles::obj(open));
  meshfiles::Indexed plate = meshfiles::cubeIndexed();
  for (auto& p : plate.vertices) p = ruLinear::Point(p.x * 30, p.y * 20, p.z * 0.5);
  write(folder() / "plate.ply", meshfiles::ply(plate));

  const std::string models = tall.string() + " " + (folder() / "open.obj").string() + " " + (folder() / "plate.ply").string();
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

// A 3MF and a PLY side by side: each row of the table tells its own part's state, and the JSON
// the same, in the order of the command line.
TEST(PrintprepCheckTest, ThreeMfAndPlyRowsEachTellTheirPart) {
  const std::vector<fs::path> cubes = cubeFiles(50);
  meshfiles::Indexed plate = meshfiles::cubeIndexed();
  for (auto& p : plate.vertices) p = ruLinear::Point(p.x * 30, p.y * 20, p.z * 0.4);
  write(folder() / "thin.ply", meshfiles::ply(plate));
  const std::string models = cubes[3].string() + " " + (folder() / "thin.ply").string();
  const Outcome table = run("check " + models + " --printer 120x120x45", "check_3mf");
  ASSERT_EQ(table.status, 0) << table.err;
  auto row = [&](const std::string& file) {
    std::istringstream lines(table.out);
    for (std::string line; std::getline(lines, line);)
      if (line.find(" " + file + " ") != std::string::npos) return line;
    return std::string();
  };
  const std::string cubeRow = row("cube50.3mf"), plateRow = row("thin.ply");
  ASSERT_FALSE(cubeRow.empty()) << table.out;
  ASSERT_FALSE(plateRow.empty()) << table.out;
  EXPECT_EQ(cubeRow.rfind("0 ", 0), 0u) << cubeRow;
  EXPECT_NE(cubeRow.find("50 x 50 x 50"), std::string::npos) << cubeRow;
  EXPECT_NE(cubeRow.find("OUT: top"), std::string::npos) << cubeRow;
  EXPECT_NE(cubeRow.find("healthy"), std::string::npos) << cubeRow;
  EXPECT_NE(cubeRow.find("50.00 mm ok"), std::string::npos) << cubeRow;
  EXPECT_EQ(plateRow.rfind("1 ", 0), 0u) << plateRow;
  EXPECT_NE(plateRow.find("inside"), std::string::npos) << plateRow;
  EXPECT_NE(plateRow.find("0.40 mm THIN"), std::string::npos) << plateRow;
  EXPECT_EQ(plateRow.find("OUT"), std::string::npos) << plateRow;

  const Outcome json = run("check " + models + " --printer 120x120x45 --json", "check_3mf_json");
  ASSERT_EQ(json.status, 0) << json.err;
  const nlohmann::json report = nlohmann::json::parse(json.out, nullptr, false);
  ASSERT_FALSE(report.is_discarded()) << json.out;
  ASSERT_EQ(report["parts"].size(), 2u);
  EXPECT_EQ(report["parts"][0]["file"], cubes[3].string());
  EXPECT_TRUE(report["parts"][0]["outOfBounds"]);
  EXPECT_EQ(report["parts"][0]["sidesPassed"], nlohmann::json({"top"}));
  EXPECT_FALSE(report["parts"][1]["outOfBounds"]);
  EXPECT_TRUE(report["parts"][1]["thinWalls"]);
  EXPECT_NEAR(report["parts"][1]["minimumThickness"].get<double>(), 0.4, 1e-3);
}

// Every command answers --help with its usage and the options a user types, spelled as they are.
TEST(PrintprepHelpTest, EveryCommandsHelpNamesItsOptions) {
  const std::vector<std::pair<std::string, std::vector<std::string>>> commands = {
      {"demo", {"printprep demo [OPTIONS]", "-o,--output", "--frames", "--frame-size", "--printer-size",
                "--minimum-thickness"}},
      {"render", {"printprep render [OPTIONS] MODEL...", "STL, OBJ, 3MF or PLY", "-o,--output", "--size TEXT:WxH",
                  "--view TEXT:{iso,top,front,side}", "--select INT ...", "--cut FLOAT", "--printer TEXT:WxDxH",
                  "--timings"}},
      {"thumbnail", {"printprep thumbnail [OPTIONS] MODEL...", "-o,--output", "--size INT", "--part INT",
                     "--printer TEXT:WxDxH"}},
      {"check", {"printprep check [OPTIONS] MODEL...", "--printer TEXT:WxDxH", "--json"}},
      {"replay", {"printprep replay [OPTIONS] SESSION [MODEL...]", "-o,--output", "unknown event type"}},
      {"view", {"printprep view [OPTIONS] MODEL...", "--record", "--size TEXT:WxH", "--printer TEXT:WxDxH",
                "--screenshot", "Escape cancels"}}};
  for (const auto& [command, expected] : commands) {
    SCOPED_TRACE(command);
    const Outcome help = run(command + " --help", "help_" + command);
    EXPECT_EQ(help.status, 0);
    EXPECT_TRUE(help.err.empty()) << help.err;
    for (const std::string& text : expected) EXPECT_NE(help.out.find(text), std::string::npos) << text << "\n" << help.out;
  }
  // The program's own help lists every command.
  const Outcome top = run("--help", "help");
  EXPECT_EQ(top.status, 0);
  for (const char* command : {"demo", "render", "thumbnail", "check", "replay", "view"})
    EXPECT_NE(top.out.find(std::string("\n  ") + command + " "), std::string::npos) << command << "\n" << top.out;
}

// One line on the error stream.
bool oneLine(const std::string& text) {
  return !text.empty() && text.find('\n') == text.size() - 1;
}

TEST(PrintprepBadInputTest, MissingFileNamesItAndWritesNothing) {
  const fs::path png = folder() / "missing.png";
  fs::remove(png);
  const Outcome result = run("render " + (folder() / "no_such_model.stl").string() + " -o " + png.string(), "missing");
  EXPECT_EQ(result.status, 1);
  EXPECT_TRUE(oneLine(result.err)) << result.err;
  EXPECT_NE(result.err.find("no_such_model.stl"), std::string::npos) << result.err;
  EXPECT_FALSE(fs::exists(png));
}

TEST(PrintprepBadInputTest, MalformedModelNamesItAndWritesNothing) {
  const fs::path model = folder() / "broken.ply", png = folder() / "broken.png";
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
  const Outcome result = run("render " + model.string() + " -o " + (folder() / "x.png").string() + " --colour red", "unknown");
  EXPECT_EQ(result.status, 2);
  EXPECT_TRUE(oneLine(result.err)) << result.err;
  EXPECT_NE(result.err.find("--colour"), std::string::npos) << result.err;
}

TEST(PrintprepBadInputTest, WrongSizeIsAUsageError) {
  const fs::path model = cubeFiles(20)[0], png = folder() / "wrongsize.png";
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
  const fs::path model = cubeFiles(20)[0], png = folder() / "badselect.png";
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

TEST(PrintprepBadInputTest, OutputInAMissingFolderOrOnAFolderFailsBeforeAnyWork) {
  const fs::path model = cubeFiles(20)[1];
  const fs::path missing = folder() / "no_such_folder";
  fs::remove_all(missing);
  for (const char* command : {"render", "thumbnail"}) {
    SCOPED_TRACE(command);
    const fs::path png = missing / "x.png";
    const Outcome result = run(std::string(command) + " " + model.string() + " -o " + png.string(), command);
    EXPECT_EQ(result.status, 1);
    EXPECT_TRUE(oneLine(result.err)) << result.err;
    EXPECT_NE(result.err.find(png.string()), std::string::npos) << result.err;
    EXPECT_NE(result.err.find("does not exist"), std::string::npos) << result.err;
    // Nothing loaded or reported before the error.
    EXPECT_EQ(result.out.find("Loaded"), std::string::npos) << result.out;
    EXPECT_FALSE(fs::exists(missing));
  }
  // An -o naming a folder is refused the same way, the folder left as it was.
  const fs::path taken = folder() / "a_folder";
  fs::create_directories(taken);
  const Outcome result = run("render " + model.string() + " -o " + taken.string(), "taken");
  EXPECT_EQ(result.status, 1);
  EXPECT_TRUE(oneLine(result.err)) << result.err;
  EXPECT_NE(result.err.find(taken.string() + ": is a folder, not a file"), std::string::npos) << result.err;
  EXPECT_EQ(result.out.find("Loaded"), std::string::npos) << result.out;
  EXPECT_TRUE(fs::is_directory(taken));
  EXPECT_TRUE(fs::is_empty(taken));
}

// A picture is always a PNG: a name promising another format is refused before any work, while a
// name without an extension or with .PNG in capitals is taken.
TEST(PrintprepBadInputTest, AnOutputNamedForAnotherImageFormatIsRefused) {
  const fs::path model = cubeFiles(20)[1];
  for (const char* command : {"render", "thumbnail"}) {
    SCOPED_TRACE(command);
    const fs::path jpeg = folder() / (std::string(command) + ".jpg");
    const Outcome refused = run(std::string(command) + " " + model.string() + " -o " + jpeg.string(), command);
    EXPECT_EQ(refused.status, 1);
    EXPECT_TRUE(oneLine(refused.err)) << refused.err;
    EXPECT_NE(refused.err.find(jpeg.string() + ": images are written as PNG"), std::string::npos) << refused.err;
    EXPECT_EQ(refused.out.find("Loaded"), std::string::npos) << refused.out;
    EXPECT_FALSE(fs::exists(jpeg));
    for (const std::string& name : {std::string(command) + "_plain", std::string(command) + "_caps.PNG"}) {
      const fs::path taken = folder() / name;
      const Outcome written = run(std::string(command) + " " + model.string() + " -o " + taken.string() + " --size 64" +
                                      (std::string(command) == "render" ? "x64" : ""),
                                  name);
      EXPECT_EQ(written.status, 0) << written.err;
      EXPECT_TRUE(fs::exists(taken)) << taken;
    }
  }
}

TEST(PrintprepBadInputTest, ThumbnailSizeAndPartNameWhatIsWrong) {
  const fs::path model = cubeFiles(20)[0], png = folder() / "thumb.png";
  fs::remove(png);
  const std::vector<std::pair<std::string, std::string>> cases = {
      {"--size abc", "expected a whole number of pixels from 16 to 4096, got \"abc\""},
      {"--size 0", "expected a whole number of pixels from 16 to 4096, got \"0\""},
      {"--size 10x", "got \"10x\""},
      {"--part -1", "expected a part index of 0 or more, got \"-1\""},
      {"--part one", "got \"one\""}};
  for (const auto& [arguments, message] : cases) {
    SCOPED_TRACE(arguments);
    const Outcome result = run("thumbnail " + model.string() + " -o " + png.string() + " " + arguments, "thumbargs");
    EXPECT_EQ(result.status, 2);
    EXPECT_TRUE(oneLine(result.err)) << result.err;
    EXPECT_NE(result.err.find(arguments.substr(0, arguments.find(' '))), std::string::npos) << result.err;
    EXPECT_NE(result.err.find(message), std::string::npos) << result.err;
    EXPECT_FALSE(fs::exists(png));
  }
  // An index past the parts is caught once the models are loaded, with the parts' range.
  const Outcome past = run("thumbnail " + model.string() + " -o " + png.string() + " --part 1", "thumbpast");
  EXPECT_EQ(past.status, 2);
  EXPECT_TRUE(oneLine(past.err)) << past.err;
  EXPECT_NE(past.err.find("--part 1: no such part (parts are numbered 0 to 0)"), std::string::npos) << past.err;
  EXPECT_FALSE(fs::exists(png));
}

TEST(PrintprepBadInputTest, DemoNumbersSayWhatTheyExpectAndWriteNothing) {
  const fs::path out = folder() / "demo_bad";
  fs::remove_all(out);
  const std::vector<std::pair<std::string, std::string>> cases = {
      {"--frame-size abc", "--frame-size: expected a whole number of pixels from 64 to 4096, got \"abc\""},
      {"--frame-size 10", "--frame-size: expected a whole number of pixels from 64 to 4096, got \"10\""},
      {"--printer-size big", "--printer-size: expected an edge in mm from 50 to 1000, got \"big\""},
      {"--minimum-thickness 20", "--minimum-thickness: expected a thickness in mm from 0.05 to 10, got \"20\""}};
  for (const auto& [arguments, message] : cases) {
    SCOPED_TRACE(arguments);
    const Outcome result = run("demo --output " + (out / "models").string() + " --frames " + (out / "png").string() +
                                   " " + arguments,
                               "demo_bad");
    EXPECT_EQ(result.status, 2);
    EXPECT_TRUE(oneLine(result.err)) << result.err;
    EXPECT_NE(result.err.find(message), std::string::npos) << result.err;
    EXPECT_TRUE(result.out.empty()) << result.out;
    EXPECT_FALSE(fs::exists(out));
  }
}

// The viewer refuses a --record or --screenshot it could not write before it opens its window (no
// display is needed to see it), rather than losing the session at its end.
TEST(PrintprepBadInputTest, ViewRefusesAnUnwritableRecordOrScreenshotBeforeItsWindow) {
  const fs::path model = cubeFiles(20)[1];
  const fs::path missing = folder() / "no_such_folder";
  fs::remove_all(missing);
  for (const std::string option : {"--record", "--screenshot"}) {
    SCOPED_TRACE(option);
    const fs::path file = missing / (option == "--record" ? "session.json" : "shot.png");
    const Outcome result = run("view " + model.string() + " " + option + " " + file.string(), "view_output");
    EXPECT_EQ(result.status, 1);
    EXPECT_TRUE(oneLine(result.err)) << result.err;
    EXPECT_NE(result.err.find("printprep view: " + file.string() + ": the folder " + missing.string() + " does not exist"),
              std::string::npos)
        << result.err;
    EXPECT_FALSE(fs::exists(missing));
  }
}

}  // namespace
