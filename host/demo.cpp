#include "host/commands.h"
#include "host/scene.h"
#include "host/view.h"

#include "platform/base/linear.h"
#include "platform/datamodel/actions.h"
#include "platform/datamodel/document.h"
#include "platform/datamodel/print.h"
#include "platform/geometry/box.h"
#include "platform/geometry/construct.h"
#include "platform/geometry/meshio.h"
#include "platform/support/callinfo.h"

#include <CLI/CLI.hpp>

#include <array>
#include <chrono>
#include <cstdio>
#include <filesystem>
#include <fstream>
#include <memory>
#include <string>
#include <vector>

namespace printprep {

namespace {

namespace fs = std::filesystem;
using ruLinear::AffineMatrix;
using ruLinear::Point;
using ruLinear::Range3d;
using ruLinear::Vector;

struct DemoOptions {
  std::string output;
  std::string frames = "demo-out";
  int frameSize = 512;
  double printerSize = 100.0;
  double minimumThickness = 0.8;
};

// A part of the demonstration: the file it is written to, where its lowest corner goes on the bed
// and what it shows.
struct Part {
  std::string file;
  std::string format;
  Point corner;
  std::string shows;
  ru::Reference<voDMD::Object> object;
};

// The eight corners of an axis-aligned box, in the order the faces below use (OBJ indices from 1).
std::vector<Point> boxCorners(const Point& low, const Point& high) {
  return {{low.x, low.y, low.z},  {high.x, low.y, low.z},  {high.x, high.y, low.z},  {low.x, high.y, low.z},
          {low.x, low.y, high.z}, {high.x, low.y, high.z}, {high.x, high.y, high.z}, {low.x, high.y, high.z}};
}

// The box's faces as triangles counter-clockwise seen from outside, bottom to right; the top is
// the second pair.
const std::vector<std::array<int, 3>>& boxFaces() {
  static const std::vector<std::array<int, 3>> faces = {
      {1, 4, 3}, {1, 3, 2},  // bottom
      {5, 6, 7}, {5, 7, 8},  // top
      {1, 2, 6}, {1, 6, 5},  // front
      {4, 8, 7}, {4, 7, 3},  // back
      {1, 5, 8}, {1, 8, 4},  // left
      {2, 3, 7}, {2, 7, 6},  // right
  };
  return faces;
}

bool writeObj(const fs::path& path, const std::string& comment, const std::vector<Point>& vertices,
              const std::vector<std::array<int, 3>>& faces, std::string& error) {
  std::ofstream out(path);
  out << "# " << comment << "\n";
  for (const Point& p : vertices) out << "v " << p.x << ' ' << p.y << ' ' << p.z << "\n";
  for (const auto& face : faces) out << "f " << face[0] << ' ' << face[1] << ' ' << face[2] << "\n";
  out.close();
  if (!out) {
    error = "cannot write " + path.string();
    return false;
  }
  return true;
}

// Writes the demonstration's models into `folder`: one binary STL through our own writer, two OBJ
// files as text.
bool writeModels(const fs::path& folder, std::vector<Part>& parts, std::string& error) {
  std::error_code code;
  fs::create_directories(folder, code);
  if (code) {
    error = "cannot create the folder " + folder.string() + ": " + code.message();
    return false;
  }
  for (const Part& part : parts) {
    const fs::path path = folder / part.file;
    if (part.file == "bracket.stl") {
      // A 20 mm block, closed and thick.
      ruGeom::CompactMesh block;
      ruGeom::constructCuboid(Range3d(Point(0, 0, 0), Point(20, 20, 20)), block);
      ruString::CString message;
      if (!ruGeom::writeStlBinary(block, path.string(), &message)) {
        error = message.str();
        return false;
      }
    } else if (part.file == "thin_plate.obj") {
      // A 40 x 30 mm plate only half a millimetre thick.
      if (!writeObj(path, "a 40 x 30 mm plate, 0.5 mm thick", boxCorners({0, 0, 0}, {40, 30, 0.5}), boxFaces(),
                    error)) {
        return false;
      }
    } else if (part.file == "open_box.obj") {
      // A 20 mm box whose top was never closed: four open edges.
      std::vector<std::array<int, 3>> faces = boxFaces();
      faces.erase(faces.begin() + 2, faces.begin() + 4);
      if (!writeObj(path, "a 20 x 20 x 15 mm box without its top", boxCorners({0, 0, 0}, {20, 20, 15}), faces,
                    error)) {
        return false;
      }
    }
  }
  return true;
}

std::string sides(unsigned faces) {
  static const char* const names[] = {"-X", "+X", "-Y", "+Y", "bottom", "top"};
  std::string text;
  for (unsigned side = 0; side < 6; ++side) {
    if ((faces & (1u << side)) == 0) continue;
    if (!text.empty()) text += ' ';
    text += names[side];
  }
  return text;
}

std::string healthText(const voDMA::MeshHealth& health) {
  if (health.healthy()) return "healthy";
  std::string text;
  auto add = [&text](std::size_t count, const char* what) {
    if (count == 0) return;
    if (!text.empty()) text += ", ";
    text += std::to_string(count) + " " + what;
  };
  add(health.openEdges, "open edges");
  add(health.nonManifoldEdges, "non-manifold edges");
  add(health.inconsistentEdges, "inconsistently oriented edges");
  add(health.degenerateTriangles, "degenerate triangles");
  add(health.duplicateTriangles, "duplicate triangles");
  return text;
}

// The thinnest wall measured, in the mesh's coordinates (the parts are only moved, so millimetres);
// negative when no corner found an opposite wall.
double thinnestWall(const voDMD::KLTMesh& mesh) {
  double thinnest = -1.0;
  for (float t : mesh.thickness) {
    if (t >= 0.0f && (thinnest < 0.0 || t < thinnest)) thinnest = t;
  }
  return thinnest;
}

double millisecondsSince(std::chrono::steady_clock::time_point start) {
  return std::chrono::duration<double, std::milli>(std::chrono::steady_clock::now() - start).count();
}

// Draws the bed as the steps change it and writes one PNG a step into the frames folder.
int writeFrames(const DemoOptions& options, Scene& scene, std::vector<Part>& parts) {
  const fs::path folder(options.frames);
  std::error_code code;
  fs::create_directories(folder, code);
  if (code) {
    std::fprintf(stderr, "printprep demo: cannot create the folder %s: %s\n", folder.string().c_str(),
                 code.message().c_str());
    return 1;
  }
  auto start = std::chrono::steady_clock::now();
  std::string error;
  std::unique_ptr<View> view = View::create(scene, error);
  if (!view) {
    std::fprintf(stderr, "printprep demo: %s\n", error.c_str());
    return 1;
  }
  std::printf("\nFrames (%dx%d, off-screen; context made in %.1f ms)\n", options.frameSize, options.frameSize,
              millisecondsSince(start));
  const int n = options.frameSize;
  // The bed's footprint and the parts: the empty height above them would only push them aside.
  const Range3d& volume = scene.useableVolume();
  Range3d box(volume.getMin(), Point(volume.getMax().x, volume.getMax().y, volume.getMin().z));
  box.include(scene.partsBox());
  auto frame = [&](const char* name, const std::string& shows) {
    start = std::chrono::steady_clock::now();
    view->look(box, ViewDirection::Iso, n, n);
    if (!view->renderPng(n, n, (folder / name).string(), error)) {
      std::fprintf(stderr, "printprep demo: %s\n", error.c_str());
      return false;
    }
    std::printf("  %-20s %-62s %7.1f ms\n", name, shows.c_str(), millisecondsSince(start));
    return true;
  };
  if (!frame("1_bed.png", "the bed with its parts; the bracket past the volume in red")) return 1;
  view->select({1});
  if (!frame("2_selected.png", "the thin plate selected, with its glow")) return 1;
  view->select({});
  // The open box slides half off the bed's -X side.
  voDMD::Object* box2 = parts[2].object.get();
  voDMD::Transform* transform = box2->findAttribute<voDMD::Transform>();
  transform->setObjToWorld(transform->getObjToWorld() * AffineMatrix::translation(Vector(-20, 0, 0)));
  const voDMD::KLTMesh* moved = box2->findAttribute<voDMD::KLTMesh>();
  const std::string shows = std::string("the open box moved 20 mm to -X: ") +
                            (moved->isOutOfBounds() ? "out of bounds (" + sides(moved->outOfBoundsFaces()) + "), red"
                                                    : "still inside");
  if (!frame("3_moved_out.png", shows)) return 1;
  std::printf("Frames written to %s\n", folder.string().c_str());
  return 0;
}

int runDemo(const DemoOptions& options) {
  const double size = options.printerSize;
  // The bracket sits in the printer's far corner and passes two sides of its volume.
  std::vector<Part> parts = {
      {"bracket.stl", "binary STL", Point(size - 10, size - 15, 0), "placed partly outside the printer", nullptr},
      {"thin_plate.obj", "OBJ", Point(10, 10, 0), "a wall thinner than the printer prints", nullptr},
      {"open_box.obj", "OBJ", Point(10, 55, 0), "open edges (no top)", nullptr},
  };

  const fs::path folder = options.output.empty() ? fs::temp_directory_path() / "printprep-demo" : fs::path(options.output);
  std::string error;
  if (!writeModels(folder, parts, error)) {
    std::fprintf(stderr, "printprep demo: %s\n", error.c_str());
    return 1;
  }

  Scene scene(Vector(size, size, size), options.minimumThickness);
  voDMD::KLTPrinter* printer = scene.printer();

  std::printf("printprep demo: %zu parts on a %g x %g x %g mm printer (walls from %g mm)\n", parts.size(), size,
              size, size, options.minimumThickness);
  std::printf("Models written to %s\n\n", folder.string().c_str());

  std::printf("Import onto the bed\n");
  for (Part& part : parts) {
    const fs::path path = folder / part.file;
    ru::Reference<ruGeom::CompactMesh> mesh(new ruGeom::CompactMesh);
    ruString::CString message;
    if (!ruGeom::importMesh(path.string(), *mesh, &message)) {
      std::fprintf(stderr, "printprep demo: %s\n", message.c_str());
      return 1;
    }
    // Lowest corner of the mesh onto the chosen spot of the bed.
    const Range3d box = mesh->getBoundingBox().asRange3d();
    // The corners are measured from the bed's corner; the scene's volume is centred on the origin.
    const Vector move = part.corner + (scene.useableVolume().getMin() - Point(0, 0, 0)) - box.getMin();
    part.object = scene.addPart(part.file, mesh, AffineMatrix::translation(move));
    const Vector extent = box.getDiagonal();
    std::printf("  %-15s %-10s %3d vertices %3d triangles  %g x %g x %g mm at (%g, %g, %g): %s\n", part.file.c_str(),
                part.format.c_str(), mesh->getNumVertices(), mesh->getNumTriangles(), extent.getX(), extent.getY(), extent.getZ(),
                part.corner.x, part.corner.y, part.corner.z, part.shows.c_str());
  }

  int outside = 0;
  std::printf("\nOut of bounds\n");
  for (const Part& part : parts) {
    const voDMD::KLTMesh* mesh = part.object->findAttribute<voDMD::KLTMesh>();
    if (mesh->isOutOfBounds()) {
      ++outside;
      std::printf("  %-15s OUT OF BOUNDS: passes %s\n", part.file.c_str(), sides(mesh->outOfBoundsFaces()).c_str());
    } else {
      std::printf("  %-15s inside\n", part.file.c_str());
    }
  }
  const voDMD::KLTDecoration* decoration = voDMD::KLTDecoration::get();
  const unsigned passed = decoration ? decoration->outOfBoundsFaces() : 0u;
  if (printer->outOfBounds()) {
    std::printf("  printer: parts pass %s\n", sides(passed).c_str());
  } else {
    std::printf("  printer: every part fits\n");
  }

  const int analysed = voDMA::analysePendingThickness();
  int thin = 0;
  std::printf("\nWall thickness (%d parts analysed, minimum %g mm)\n", analysed, options.minimumThickness);
  for (const Part& part : parts) {
    const voDMD::KLTMesh* mesh = part.object->findAttribute<voDMD::KLTMesh>();
    const double thinnest = thinnestWall(*mesh);
    const bool thick = voDMA::isPartThick(mesh);
    if (!thick) ++thin;
    if (thinnest < 0.0) {
      std::printf("  %-15s no opposite wall found\n", part.file.c_str());
    } else {
      std::printf("  %-15s thinnest wall %.2f mm: %s\n", part.file.c_str(), thinnest, thick ? "ok" : "TOO THIN");
    }
  }

  int repaired = 0;
  std::printf("\nHealth and repair\n");
  for (const Part& part : parts) {
    voDMD::KLTMesh* mesh = part.object->findAttribute<voDMD::KLTMesh>();
    const voDMA::MeshHealth before = voDMA::analyseMeshHealth(*mesh->getMesh());
    if (!mesh->needsRepair()) {
      std::printf("  %-15s %s\n", part.file.c_str(), healthText(before).c_str());
      continue;
    }
    const int trianglesBefore = mesh->getMesh()->getNumTriangles();
    std::printf("  %-15s NEEDS REPAIR: %s\n", part.file.c_str(), healthText(before).c_str());
    if (!mesh->repair()) {
      std::printf("  %-15s repair changed nothing\n", part.file.c_str());
      continue;
    }
    ++repaired;
    const voDMA::MeshHealth after = voDMA::analyseMeshHealth(*mesh->getMesh());
    std::printf("  %-15s repaired: %d -> %d triangles, now %s\n", part.file.c_str(), trianglesBefore,
                mesh->getMesh()->getNumTriangles(), healthText(after).c_str());
  }
  // A repair replaces the mesh, so its thickness is measured again, as a host does when idle.
  const int reanalysed = voDMA::analysePendingThickness();

  std::printf("\nSummary: %d of %zu parts out of bounds, %d too thin, %d repaired (%d re-analysed)\n", outside,
              parts.size(), thin, repaired, reanalysed);
  return writeFrames(options, scene, parts);
}

}  // namespace

void addDemoCommand(CLI::App& app, int& status) {
  auto options = std::make_shared<DemoOptions>();
  CLI::App* demo = app.add_subcommand(
      "demo", "Write three small models (STL and OBJ), import them onto a printer's bed and report what the print "
              "analyses find: out of bounds, wall thickness, health and repair");
  demo->add_option("-o,--output", options->output, "Folder for the models (default: <temp>/printprep-demo)");
  demo->add_option("--frames", options->frames, "Folder for the PNG frames")->capture_default_str();
  demo->add_option("--frame-size", options->frameSize, "Edge of the frames in pixels")
      ->capture_default_str()
      ->check(CLI::Range(64, 4096));
  demo->add_option("--printer-size", options->printerSize, "Edge of the printer's cubic volume in mm")
      ->capture_default_str()
      ->check(CLI::Range(50.0, 1000.0));
  demo->add_option("--minimum-thickness", options->minimumThickness, "Thinnest wall the printer prints in mm")
      ->capture_default_str()
      ->check(CLI::Range(0.05, 10.0));
  demo->callback([options, &status] { status = runDemo(*options); });
}

}  // namespace printprep
