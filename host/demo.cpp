#include "host/commands.h"
#include "host/options.h"
#include "host/scene.h"
#include "host/view.h"

#include "datamodelgui/snap/projector.h"
#include "datamodelgui/snap/snapitems.h"
#include "datamodelgui/snap/snapmanager.h"
#include "platform/base/linear.h"
#include "platform/datamodel/actions.h"
#include "platform/datamodel/attributes.h"
#include "platform/datamodel/document.h"
#include "platform/datamodel/print.h"
#include "platform/geometry/box.h"
#include "platform/geometry/camera.h"
#include "platform/geometry/construct.h"
#include "platform/geometry/meshio.h"
#include "platform/support/callinfo.h"
#include "platform/transaction/transaction.h"

#include <CLI/CLI.hpp>

#include <algorithm>
#include <array>
#include <chrono>
#include <cmath>
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

// The world box of `object`'s mesh.
Range3d worldBox(const voDMD::Object* object) {
  const voDMD::KLTMesh* mesh = object->findAttribute<voDMD::KLTMesh>();
  const voDMD::Transform* transform = object->findAttribute<voDMD::Transform>();
  return mesh->getMesh()->getBoundingBox().asRange3d() * (transform ? transform->getObjToWorld() : AffineMatrix::Identity);
}

// A copy of `object`'s mesh in world coordinates, held by an object of its own outside the
// document: the mesh snapping reads sub-mesh corners as they stand, so the copy is placed already.
ru::Reference<voDMD::Object> snapTarget(voDMD::Document& document, const voDMD::Object* object) {
  const voDMD::KLTMesh* mesh = object->findAttribute<voDMD::KLTMesh>();
  const AffineMatrix placement = object->findAttribute<voDMD::Transform>()->getObjToWorld();
  ru::Reference<ruGeom::CompactMesh> world = new ruGeom::CompactMesh();
  *world = *mesh->getMesh();
  ruGeom::MeshVertex* vertices = world->editVertices();
  for (int i = 0; i < world->getNumVertices(); ++i) vertices[i] = ruGeom::MeshVertex(vertices[i].asPoint() * placement);
  ru::Reference<voDMD::Object> target = voDMD::Object::create(document, voDMD::MeshClass::get());
  target->addAttribute<voDMD::Mesh>(world);
  return target;
}

std::string pointText(const Point& p) {
  char text[96];
  std::snprintf(text, sizeof text, "(%g, %g, %g)", p.x, p.y, p.z);
  return text;
}

std::vector<Point> cornersOf(const Range3d& box) {
  std::vector<Point> corners;
  for (int i = 0; i < 8; ++i)
    corners.emplace_back(i & 1 ? box.getMax().x : box.getMin().x, i & 2 ? box.getMax().y : box.getMin().y,
                         i & 4 ? box.getMax().z : box.getMin().z);
  return corners;
}

// Draws the bed as the steps change it and writes one PNG a step into the frames folder, each with
// a line saying what it shows and how long the step took.
int writeFrames(const DemoOptions& options, Scene& scene, std::vector<Part>& parts) {
  const auto framesStart = std::chrono::steady_clock::now();
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
  std::printf("\nFrames (%dx%d, off-screen; the print view made in %.1f ms)\n", options.frameSize, options.frameSize,
              millisecondsSince(start));
  const int n = options.frameSize;
  const int thumb = std::max(64, n / 2);
  // The parts with a little of the bed around them; the whole bed's footprint only where a part
  // leaves the group. The empty height above would only push them aside.
  const Range3d& volume = scene.useableVolume();
  Range3d bedBox(volume.getMin(), Point(volume.getMax().x, volume.getMax().y, volume.getMin().z));
  bedBox.include(scene.partsBox());
  // Each part's corners, a few millimetres of bed around it: the frame holds the parts and their
  // glows without the empty bed that one box around them all would add.
  std::vector<Point> partsBox;
  for (int i = 0; i < static_cast<int>(scene.parts().size()); ++i) {
    const Range3d part = scene.partsBox(i);
    const Range3d around(Point(part.getMin().x - 5, part.getMin().y - 5, volume.getMin().z),
                         Point(part.getMax().x + 5, part.getMax().y + 5, part.getMax().z));
    for (const Point& corner : cornersOf(around)) partsBox.push_back(corner);
  }
  int frames = 0;
  auto line = [&](const char* name, const std::string& shows) {
    ++frames;
    std::printf("  %-20s %-90s %7.1f ms\n", name, shows.c_str(), millisecondsSince(start));
  };
  auto frame = [&](const char* name, const std::vector<Point>& box, const std::string& shows) {
    view->lookClosely(box, ViewDirection::Iso, n, n);
    if (!view->renderPng(n, n, (folder / name).string(), error)) {
      std::fprintf(stderr, "printprep demo: %s\n", error.c_str());
      return false;
    }
    line(name, shows);
    return true;
  };
  Part& bracket = parts[0];
  Part& plate = parts[1];
  Part& box = parts[2];

  start = std::chrono::steady_clock::now();
  if (!frame("1_bed.png", partsBox,
             "the bed with its parts: the bracket out of bounds in the out-of-bounds colour, its +X +Y bars red"))
    return 1;

  // The bracket moves from the far corner to the middle of the bed's -X edge, half outside: it keeps
  // the out-of-bounds look, and of the volume's bars only those of the -X side stay red.
  start = std::chrono::steady_clock::now();
  voDMD::Transform* bracketTransform = bracket.object->findAttribute<voDMD::Transform>();
  const AffineMatrix bracketPlace = bracketTransform->getObjToWorld();
  const Range3d bracketBox = worldBox(bracket.object.get());
  const Vector half = bracketBox.getDiagonal() * 0.5;
  const Point edge(volume.getMin().x - half.getX(), volume.getMiddle().y - half.getY(), volume.getMin().z);
  bracketTransform->setObjToWorld(bracketPlace * AffineMatrix::translation(edge - bracketBox.getMin()));
  const voDMD::KLTMesh* moved = bracket.object->findAttribute<voDMD::KLTMesh>();
  const std::string outside = moved->isOutOfBounds() ? "out of bounds, passing " + sides(moved->outOfBoundsFaces())
                                                      : "inside";
  Range3d wholeBed = bedBox;
  wholeBed.include(scene.partsBox());
  if (!frame("2_moved_out.png", cornersOf(wholeBed),
             "the bracket moved half off the bed's -X edge: " + outside + ", only the -X bars red")) {
    return 1;
  }
  bracketTransform->setObjToWorld(bracketPlace);

  start = std::chrono::steady_clock::now();
  const voDMD::KLTMesh* plateMesh = plate.object->findAttribute<voDMD::KLTMesh>();
  const double thinnest = thinnestWall(*plateMesh);
  Range3d plateBox = worldBox(plate.object.get());
  plateBox.include(plateBox.getMin() - Vector(5, 5, 0));
  plateBox.include(plateBox.getMax() + Vector(5, 5, 0));
  char thin[128];
  std::snprintf(thin, sizeof thin, "the thin plate close up: its %.2f mm walls, under the %g mm limit, in the thin colour",
                thinnest, options.minimumThickness);
  if (!frame("3_thin_walls.png", cornersOf(plateBox), thin)) return 1;

  start = std::chrono::steady_clock::now();
  view->hover(0);
  view->select({1});
  if (!frame("4_hover_select.png", partsBox, "the bracket hovered and the thin plate selected, each with its glow")) return 1;
  view->hover(-1);
  view->select({});

  // A drag: the plate's lowest corner follows the cursor over the bed until the cursor comes within
  // reach of the open box's top corner nearest the bed's origin, which catches it: the plate comes
  // to lie on the box.
  start = std::chrono::steady_clock::now();
  view->lookClosely(partsBox, ViewDirection::Iso, n, n);
  voTXN::Manager& txn = *scene.callInfo().find<voDMA::TxnManager>()->get();
  txn.begin("snap target");
  ru::Reference<voDMD::Object> target = snapTarget(scene.document(), box.object.get());
  txn.commit();
  const Range3d targetBox = worldBox(box.object.get());
  const Point corner(targetBox.getMin().x, targetBox.getMin().y, targetBox.getMax().z);
  const ruGeom::Camera camera = scene.document().camera()->get();
  ruLinear::Point2 cornerPixel, middlePixel, startPixel;
  const Range3d plateStart = worldBox(plate.object.get());
  camera.project(corner, cornerPixel);
  camera.project(Point(targetBox.getMiddle().x, targetBox.getMiddle().y, targetBox.getMax().z), middlePixel);
  camera.project(plateStart.getMin(), startPixel);
  // Five pixels in from the corner, on the box's top face, where the drag ends.
  const double towardX = middlePixel.x - cornerPixel.x, towardY = middlePixel.y - cornerPixel.y;
  const double length = std::max(1e-9, std::sqrt(towardX * towardX + towardY * towardY));
  const ruLinear::Point2 endPixel{cornerPixel.x + 5.0 * towardX / length, cornerPixel.y + 5.0 * towardY / length};

  txn.begin("move");
  voDMG::SnapClient snap{voGR::HitTestConfig()};
  snap.addFactory(new voDMG::MeshSnapFactory(target->findAttribute<voDMD::Mesh>()));
  ru::Reference<voDMG::PlaneProjector> projector =
      voDMG::PlaneProjector::create(ruLinear::Plane(Point(0, 0, volume.getMin().z), ruLinear::Normal(0, 0, 1)));
  snap.beginSnap();
  voDMD::Transform* plateTransform = plate.object->findAttribute<voDMD::Transform>();
  const Point plateLow = plateMesh->getMesh()->getBoundingBox().asRange3d().getMin();
  ru::Reference<voDMG::SnapResult> result;
  int caughtAt = -1;
  const int steps = 12;
  for (int step = 1; step <= steps; ++step) {
    const double t = static_cast<double>(step) / steps;
    const ruLinear::Point2 cursor{startPixel.x + t * (endPixel.x - startPixel.x),
                                  startPixel.y + t * (endPixel.y - startPixel.y)};
    if (result) result->setDraw(nullptr);
    result = snap.snap(cursor);
    Point at = projector->project(cursor);
    if (result && result->hasPosition()) {
      at = result->getPosition();
      if (caughtAt < 0) caughtAt = step;
    } else if (caughtAt >= 0) {
      caughtAt = -1;  // torn away again
    }
    projector->update(at);
    plateTransform->setObjToWorld(AffineMatrix::translation(at - plateLow));
  }
  const bool caught = result && dynamic_cast<voDMG::MeshVertexSnapResult*>(result.get()) != nullptr;
  view->showSnapResult(result);
  const std::string snapped = caught ? "the thin plate dragged onto the open box: caught by its corner " +
                                           pointText(Point(0, 0, 0) + (result->getPosition() - volume.getMin())) +
                                           " (from the bed's corner) at move " + std::to_string(caughtAt) +
                                           " of " + std::to_string(steps) + ", the point mark drawn there"
                                     : "the thin plate dragged toward the open box: NOT caught by a corner";
  const bool written = frame("5_snap.png", partsBox, snapped);
  view->showSnapResult(nullptr);
  if (result) result->setDraw(nullptr);
  result = nullptr;
  snap.endSnap();
  txn.commit();
  // One undo puts the plate back where it was.
  txn.undo();
  if (!written) return 1;

  start = std::chrono::steady_clock::now();
  const double cutHeight = 10.0;
  view->setCut(volume.getMin().z + cutHeight);
  char cut[128];
  std::snprintf(cut, sizeof cut, "the cut-away at z = %g mm: the bracket and the box cut open, closed by caps",
                volume.getMin().z + cutHeight);
  if (!frame("6_cut_away.png", partsBox, cut)) return 1;
  view->clearCut();

  start = std::chrono::steady_clock::now();
  if (!view->thumbnailPng(0, thumb, (folder / "7_thumb_part.png").string(), error)) {
    std::fprintf(stderr, "printprep demo: %s\n", error.c_str());
    return 1;
  }
  line("7_thumb_part.png", "a thumbnail of the bracket alone (" + std::to_string(thumb) + " px, transparent around)");
  start = std::chrono::steady_clock::now();
  if (!view->thumbnailPng(-1, thumb, (folder / "8_thumb_bed.png").string(), error)) {
    std::fprintf(stderr, "printprep demo: %s\n", error.c_str());
    return 1;
  }
  line("8_thumb_bed.png", "a thumbnail of the whole bed with the printer (" + std::to_string(thumb) + " px)");

  int triangles = 0;
  for (const ScenePart& part : scene.parts()) triangles += part.triangles;
  std::printf("Frames written to %s\n", folder.string().c_str());
  std::printf("\nReport: %zu objects (%zu parts and the printer), %d triangles, %d frames in %.1f ms\n",
              scene.parts().size() + 1, scene.parts().size(), triangles, frames, millisecondsSince(framesStart));
  return 0;
}

int runDemo(const DemoOptions& options) {
  const double size = options.printerSize;
  // The bracket sits in the printer's far corner and passes two sides of its volume; the other two
  // stand close by, the plate in front and the box behind as the frames look at them, so that the
  // square frames show all three large.
  std::vector<Part> parts = {
      {"bracket.stl", "binary STL", Point(size - 10, size - 15, 0), "placed partly outside the printer", nullptr},
      {"thin_plate.obj", "OBJ", Point(std::max(5.0, size - 41), std::max(5.0, size - 60), 0),
       "a wall thinner than the printer prints", nullptr},
      {"open_box.obj", "OBJ", Point(std::max(5.0, size - 62), std::max(5.0, size - 32), 0), "open edges (no top)",
       nullptr},
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
              "analyses find (out of bounds, wall thickness, health and repair), then draw PNG frames of the print view: "
              "the bed, a part moved out, thin walls, hover and selection, a snapped drag, the cut-away, thumbnails");
  demo->add_option("-o,--output", options->output, "Folder for the models (default: <temp>/printprep-demo)");
  demo->add_option("--frames", options->frames, "Folder for the PNG frames (thumbnails are half the frame size)")->capture_default_str();
  demo->add_option("--frame-size", options->frameSize, "Edge of the frames in pixels")
      ->capture_default_str()
      ->check(wholeNumberValidator(64, 4096, "a whole number of pixels"));
  demo->add_option("--printer-size", options->printerSize, "Edge of the printer's cubic volume in mm")
      ->capture_default_str()
      ->check(numberValidator(50.0, 1000.0, "an edge in mm"));
  demo->add_option("--minimum-thickness", options->minimumThickness, "Thinnest wall the printer prints in mm")
      ->capture_default_str()
      ->check(numberValidator(0.05, 10.0, "a thickness in mm"));
  demo->callback([options, &status] { status = runDemo(*options); });
}

}  // namespace printprep
