// printprep replay run as a user runs it, on sessions this test writes: two cubes on the bed, then
// clicks, drags, keys and wheel turns aimed at pixels the test works out from the program's own
// report (each part's middle) and from its camera. The frames are read back and compared pixel
// by pixel; the report gives the selection and every part's placement.

#include "../platform/geometry/meshfiles.h"
#include "programrun.h"
#include "platform/geometry/camera.h"
#include "platform/image/png.h"

#include <gtest/gtest.h>
#include <nlohmann/json.hpp>

#include <sys/wait.h>

#include <cmath>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <map>
#include <algorithm>
#include <cstdio>
#include <sstream>
#include <string>
#include <vector>

namespace {

namespace fs = std::filesystem;
using Image = ru::Reference<ruImage::TypedImage<ruImage::Byte4>>;
using nlohmann::json;

using programrun::Outcome;
using programrun::slurp;
using programrun::write;

fs::path folder() { return programrun::caseFolder("replay_files"); }
constexpr int kSize = 256;

Outcome run(const std::string& arguments, const std::string& name) { return programrun::run(arguments, folder(), name); }

// Two cubes, 20 mm as STL and 10 mm as OBJ, in the case's folder; their names relative to it.
std::vector<std::string> models() {
  if (!fs::exists(folder() / "models" / "small.obj")) {
    meshfiles::Indexed big = meshfiles::cubeIndexed(), small = meshfiles::cubeIndexed();
    for (auto& p : big.vertices) p = ruLinear::Point(p.x * 20, p.y * 20, p.z * 20);
    for (auto& p : small.vertices) p = ruLinear::Point(p.x * 10, p.y * 10, p.z * 10);
    meshfiles::Soup soup;
    for (std::uint32_t index : big.triangles) soup.corners.push_back(big.vertices[index]);
    write(folder() / "models" / "big.stl", meshfiles::binaryStl(soup));
    write(folder() / "models" / "small.obj", meshfiles::obj(small));
  }
  return std::vector<std::string>{"models/big.stl", "models/small.obj"};
}

// Builds a session's events.
class Events {
public:
  double time = 0.0;
  json list = json::array();

  void mouse(int type, int button, int mask, int x, int y, int modifiers = 0) {
    list.push_back({{"time", time},
                    {"event",
                     {{"type", type}, {"button", button}, {"buttonMask", mask}, {"modifierMask", modifiers},
                      {"clickCount", 1}, {"position", {x, y}}, {"timestamp", time}}}});
  }
  void hover(int x, int y) {
    list.push_back({{"time", time}, {"event", {{"type", 9}, {"buttonMask", 0}, {"modifierMask", 0}, {"position", {x, y}}}}});
  }
  void key(const char* name, int modifiers = 0) {
    for (int type : {6, 7}) {
      list.push_back({{"time", time},
                      {"event", {{"type", type}, {"key", name}, {"modifierMask", modifiers}, {"repeat", false}}}});
      time += 0.05;
    }
  }
  void wheel(int x, int y, int delta) {
    list.push_back({{"time", time},
                    {"event",
                     {{"type", 5}, {"buttonMask", 0}, {"modifierMask", 0}, {"position", {x, y}}, {"delta", delta}}}});
  }
  void click(int x, int y, int modifiers = 0) {
    hover(x, y);
    time += 0.1;
    mouse(1, 1, 1, x, y, modifiers);
    time += 0.1;
    mouse(2, 1, 0, x, y, modifiers);
    time += 0.5;
  }
  // A left drag in `steps` moves of 0.05 s from one pixel to another; Escape after `escapeAfter`
  // moves when given.
  void drag(int x0, int y0, int x1, int y1, int steps = 10, int escapeAfter = -1, int mask = 1) {
    time += 0.1;
    mouse(1, mask, mask, x0, y0);
    for (int i = 1; i <= steps; ++i) {
      time += 0.05;
      mouse(3, 0, mask, x0 + (x1 - x0) * i / steps, y0 + (y1 - y0) * i / steps);
      if (i == escapeAfter) {
        list.push_back({{"time", time},
                        {"event", {{"type", 6}, {"key", "KeyEscape"}, {"modifierMask", 0}, {"repeat", false}}}});
        list.push_back({{"time", time},
                        {"event", {{"type", 7}, {"key", "KeyEscape"}, {"modifierMask", 0}, {"repeat", false}}}});
      }
    }
    time += 0.05;
    mouse(2, mask, 0, x1, y1);
    time += 0.5;
  }
};

struct Part {
  std::string file;
  double x = 0, y = 0, z = 0;  // translation
  int px = 0, py = 0;          // middle pixel, y up
};

// What replay reported.
struct Report {
  Outcome outcome;
  std::vector<Part> parts;
  std::string selection;
  std::vector<std::string> frames;  // the lines of the Frames section
  ruLinear::Point eye, target;
  std::string cut;
};

Report parse(const Outcome& outcome) {
  Report report;
  report.outcome = outcome;
  std::istringstream lines(outcome.out);
  std::string line;
  while (std::getline(lines, line)) {
    int index = 0, px = 0, py = 0, used = 0;
    char file[256] = {};
    double x = 0, y = 0, z = 0, tx = 0, ty = 0, tz = 0;
    if (std::sscanf(line.c_str(), "  %d %255s at (%lf, %lf, %lf), middle at pixel (%d, %d)%n", &index, file, &x, &y, &z,
                    &px, &py, &used) == 7 &&
        used == static_cast<int>(line.size())) {
      report.parts.push_back({file, x, y, z, px, py});
    } else if (std::sscanf(line.c_str(), "Camera: eye (%lf, %lf, %lf) looking at (%lf, %lf, %lf)", &x, &y, &z, &tx, &ty,
                           &tz) == 6) {
      report.eye = ruLinear::Point(x, y, z);
      report.target = ruLinear::Point(tx, ty, tz);
    } else if (line.rfind("Selection: ", 0) == 0) {
      report.selection = line.substr(11);
      // Parts are named by their files as loaded, here under the test's folder.
      const std::string prefix = folder().string() + "/";
      for (std::size_t at = report.selection.find(prefix); at != std::string::npos; at = report.selection.find(prefix))
        report.selection.erase(at, prefix.size());
    } else if (line.rfind("Cut-away: ", 0) == 0) {
      report.cut = line.substr(10);
    } else if (line.size() > 10 && line.rfind("  ", 0) == 0 && line.find(".png ") != std::string::npos) {
      report.frames.push_back(line);
    }
  }
  return report;
}

// Writes the session and replays it into folder()/<name>.
Report replay(const std::string& name, const Events& events) {
  models();
  const json session = {{"size", {kSize, kSize}}, {"printer", {100, 100, 100}}, {"models", models()}, {"events", events.list}};
  write(folder() / (name + ".json"), session.dump(2));
  fs::remove_all(folder() / name);
  return parse(run("replay " + (folder() / (name + ".json")).string() + " -o " + (folder() / name).string(), name));
}

Image frame(const std::string& name, int index) {
  for (const auto& entry : fs::directory_iterator(folder() / name)) {
    const std::string file = entry.path().filename().string();
    if (file.size() > 3 && std::stoi(file.substr(0, 2)) == index && entry.path().extension() == ".png")
      return ruImage::readPng(entry.path().string().c_str());
  }
  return nullptr;
}

int difference(const ruImage::Byte4& a, const ruImage::Byte4& b) {
  return std::abs(a.r - b.r) + std::abs(a.g - b.g) + std::abs(a.b - b.b);
}

// How far a pixel is from grey.
int saturation(const ruImage::Byte4& p) { return std::max({p.r, p.g, p.b}) - std::min({p.r, p.g, p.b}); }

// Pixels that differ between two frames, within `radius` of a pixel (y up) and beyond it.
struct Changes {
  int near = 0;
  int far = 0;
  int haloNear = 0;  // neutral grey before, strongly coloured after: a glow where there was none
};
Changes changes(const ruImage::TypedImage<ruImage::Byte4>& a, const ruImage::TypedImage<ruImage::Byte4>& b, int px,
                int py, int radius) {
  Changes out;
  for (int y = 0; y < kSize; ++y)
    for (int x = 0; x < kSize; ++x) {
      if (difference(a.pixel(x, y), b.pixel(x, y)) <= 12) continue;
      // Rows are stored top first.
      const int dy = (kSize - 1 - y) - py, dx = x - px;
      if (dx * dx + dy * dy <= radius * radius) {
        ++out.near;
        if (saturation(a.pixel(x, y)) <= 20 && saturation(b.pixel(x, y)) > 60) ++out.haloNear;
      } else {
        ++out.far;
      }
    }
  return out;
}

// Pixels that differ between two frames farther than `radius` from every one of `places` (y up).
int changedElsewhere(const ruImage::TypedImage<ruImage::Byte4>& a, const ruImage::TypedImage<ruImage::Byte4>& b,
                     const std::vector<std::pair<int, int>>& places, int radius) {
  int count = 0;
  for (int y = 0; y < kSize; ++y)
    for (int x = 0; x < kSize; ++x) {
      if (difference(a.pixel(x, y), b.pixel(x, y)) <= 12) continue;
      bool near = false;
      for (const auto& [px, py] : places) {
        const int dx = x - px, dy = (kSize - 1 - y) - py;
        near = near || dx * dx + dy * dy <= radius * radius;
      }
      if (!near) ++count;
    }
  return count;
}

// The report's camera, as View frames a square frame (45 degrees, z up), to aim at world points.
ruGeom::Camera cameraOf(const Report& report) {
  ruGeom::Camera camera;
  camera.setViewport(ruGeom::Viewport(0, 0, kSize, kSize));
  ruGeom::AngleAspect frustum;
  frustum.setAngle(0.7853981633974483);
  frustum.setAspectRatio(1.0);
  frustum.setDepthRange(1.0, 1000.0);
  camera.setFrustum(frustum);
  camera.setWorldToEye(report.target, report.eye, ruLinear::Vector(0, 0, 1));
  return camera;
}

// The layout every session starts from: where the parts are and show (replayed once a case).
Report start() {
  static std::map<std::string, Report> layouts;
  auto found = layouts.find(folder().string());
  if (found == layouts.end()) found = layouts.emplace(folder().string(), replay("start", Events())).first;
  return found->second;
}

}  // namespace

TEST(PrintprepReplayGLTest, TheStartReportsBothPartsOnTheBedAndWhereTheyShow) {
  const Report report = start();
  ASSERT_EQ(report.outcome.status, 0) << report.outcome.err;
  ASSERT_EQ(report.parts.size(), 2u) << report.outcome.out;
  EXPECT_EQ(report.selection, "none");
  for (const Part& part : report.parts) {
    EXPECT_DOUBLE_EQ(part.z, 0.0);
    EXPECT_GT(part.px, 0);
    EXPECT_LT(part.px, kSize);
    EXPECT_GT(part.py, 0);
    EXPECT_LT(part.py, kSize);
  }
  // The big cube left of the small one, both resting on the bed.
  EXPECT_LT(report.parts[0].x, report.parts[1].x);
  Image first = frame("start", 0);
  ASSERT_TRUE(first);
  EXPECT_EQ(first->xSize(), kSize);
  EXPECT_EQ(first->ySize(), kSize);
}

TEST(PrintprepReplayGLTest, AClickSelectsThePartUnderTheCursorAndItGlowsInTheFrame) {
  const Part big = start().parts.at(0);
  Events events;
  events.click(big.px, big.py);
  // Away again, so that only the selection, not the hover, glows.
  events.hover(2, 2);
  events.key("KeyF1");
  const Report report = replay("click", events);
  ASSERT_EQ(report.outcome.status, 0) << report.outcome.err;
  EXPECT_EQ(report.selection, "models/big.stl (part 0)");
  ASSERT_EQ(report.frames.size(), 3u) << report.outcome.out;
  EXPECT_NE(report.frames[1].find("01_release.png"), std::string::npos);
  EXPECT_NE(report.frames[1].find("models/big.stl (part 0)"), std::string::npos) << report.frames[1];
  Image before = frame("click", 0), after = frame("click", 2);
  ASSERT_TRUE(before && after);
  const Changes glow = changes(*before, *after, big.px, big.py, 45);
  EXPECT_GT(glow.near, 150);
  EXPECT_GT(glow.haloNear, 40);
  EXPECT_EQ(glow.far, 0);
  // Nothing moved.
  EXPECT_DOUBLE_EQ(report.parts[0].x, start().parts[0].x);
}

TEST(PrintprepReplayGLTest, ShiftClickAddsAndAClickOnNothingClears) {
  const Part big = start().parts.at(0), small = start().parts.at(1);
  Events events;
  events.click(big.px, big.py);
  events.click(small.px, small.py, 1);
  const Report both = replay("shift_click", events);
  ASSERT_EQ(both.outcome.status, 0) << both.outcome.err;
  EXPECT_EQ(both.selection, "models/big.stl (part 0), models/small.obj (part 1)");
  events.click(small.px, small.py);
  const Report replaced = replay("click_replaces", events);
  EXPECT_EQ(replaced.selection, "models/small.obj (part 1)");
  events.click(3, 3);
  const Report cleared = replay("click_clears", events);
  EXPECT_EQ(cleared.selection, "none");
}

TEST(PrintprepReplayGLTest, ADragMovesThePartOverTheBedAndTheFrameShowsItMoved) {
  const Part small = start().parts.at(1);
  Events events;
  events.drag(small.px, small.py, small.px, small.py - 30);
  events.hover(2, 2);
  events.key("KeyF1");
  const Report report = replay("drag", events);
  ASSERT_EQ(report.outcome.status, 0) << report.outcome.err;
  ASSERT_EQ(report.parts.size(), 2u);
  const Part moved = report.parts[1];
  // Down the screen is toward the viewer: the part comes forward on the bed and stays on it.
  EXPECT_GT(std::hypot(moved.x - small.x, moved.y - small.y), 10.0);
  EXPECT_DOUBLE_EQ(moved.z, 0.0);
  // The point grabbed stays under the cursor: the middle shows about as far down as the cursor went.
  EXPECT_NEAR(moved.px, small.px, 6);
  EXPECT_NEAR(moved.py, small.py - 30, 8);
  EXPECT_DOUBLE_EQ(report.parts[0].x, start().parts[0].x);
  EXPECT_NE(report.frames.at(1).find("move " + (folder() / "models" / "small.obj").string()), std::string::npos)
      << report.frames.at(1);
  // In the frames: the old place and the new one changed, nothing else.
  Image before = frame("drag", 0), after = frame("drag", 2);
  ASSERT_TRUE(before && after);
  const Changes left = changes(*before, *after, small.px, small.py, 30);
  const Changes arrived = changes(*before, *after, moved.px, moved.py, 30);
  EXPECT_GT(left.near, 100);
  EXPECT_GT(arrived.near, 100);
  EXPECT_EQ(changedElsewhere(*before, *after, {{small.px, small.py}, {moved.px, moved.py}}, 35), 0);
}

// Red pixels: the overstepped bars of the printer's volume.
int redPixels(const ruImage::TypedImage<ruImage::Byte4>& image) {
  int count = 0;
  for (int y = 0; y < kSize; ++y)
    for (int x = 0; x < kSize; ++x) {
      const ruImage::Byte4& p = image.pixel(x, y);
      if (p.r > 150 && p.r > 2 * p.g && p.r > 2 * p.b) ++count;
    }
  return count;
}

TEST(PrintprepReplayGLTest, APartDraggedPastThePrintersVolumeShowsTheOversteppedBarsInRed) {
  const Part small = start().parts.at(1);
  Events events;
  events.drag(small.px, small.py, small.px, small.py - 60);
  const Report report = replay("drag_out", events);
  ASSERT_EQ(report.outcome.status, 0) << report.outcome.err;
  // Past the near side of the volume (y below 0 or x beyond 100, 10 mm cube).
  EXPECT_TRUE(report.parts.at(1).y < 0.0 || report.parts.at(1).x > 90.0) << report.outcome.out;
  Image before = frame("drag_out", 0), after = frame("drag_out", 1);
  ASSERT_TRUE(before && after);
  EXPECT_GT(redPixels(*after), redPixels(*before) + 50);
}

TEST(PrintprepReplayGLTest, ADragCaughtByACornerOfTheOtherPartTakesItsPlace) {
  const Report layout = start();
  const Part big = layout.parts.at(0), small = layout.parts.at(1);
  // The big cube's top corner nearest the viewer, from its box on the bed (20 mm, at its placement).
  const ruLinear::Point corner(big.x + 20.0, big.y, 20.0);
  ruLinear::Point2 pixel;
  ASSERT_TRUE(cameraOf(layout).project(corner, pixel));
  Events events;
  // Ends two pixels off the corner, within the hit radius.
  events.drag(small.px, small.py, static_cast<int>(pixel.x) + 2, static_cast<int>(pixel.y) - 2, 8);
  const Report report = replay("snap", events);
  ASSERT_EQ(report.outcome.status, 0) << report.outcome.err;
  const std::string& line = report.frames.at(1);
  char expected[96];
  std::snprintf(expected, sizeof expected, "caught at %.3f, %.3f, %.3f", corner.x, corner.y, corner.z);
  EXPECT_NE(line.find(expected), std::string::npos) << line;
  // The part keeps resting on the bed.
  EXPECT_DOUBLE_EQ(report.parts[1].z, 0.0);
}

TEST(PrintprepReplayGLTest, EscapeDuringADragPutsThePartBackAndLeavesNothingToUndo) {
  const Part small = start().parts.at(1);
  Events events;
  events.drag(small.px, small.py, small.px - 50, small.py, 10, 5);
  events.key("KeyZ", 2);
  const Report report = replay("escape", events);
  ASSERT_EQ(report.outcome.status, 0) << report.outcome.err;
  EXPECT_DOUBLE_EQ(report.parts[1].x, small.x);
  EXPECT_DOUBLE_EQ(report.parts[1].y, small.y);
  // Frames: the start, Escape, the release that ends the drag, Ctrl+Z.
  ASSERT_EQ(report.frames.size(), 4u) << report.outcome.out;
  EXPECT_NE(report.frames[1].find("move cancelled"), std::string::npos) << report.frames[1];
  EXPECT_NE(report.frames[3].find("nothing to undo"), std::string::npos) << report.frames[3];
  // The frame after the drag is the frame before it.
  Image before = frame("escape", 0), after = frame("escape", 2);
  ASSERT_TRUE(before && after);
  EXPECT_EQ(changes(*before, *after, 0, 0, 0).far, 0);
}

TEST(PrintprepReplayGLTest, UndoTakesTheDragBackAndRedoRepeatsIt) {
  const Part small = start().parts.at(1);
  Events events;
  events.drag(small.px, small.py, small.px - 50, small.py);
  const Report moved = replay("undo_0", events);
  events.key("KeyZ", 2);
  const Report undone = replay("undo_1", events);
  events.key("KeyZ", 3);
  const Report redone = replay("undo_2", events);
  events.key("KeyZ", 2);
  events.key("KeyY", 2);
  const Report redoneByY = replay("undo_3", events);
  ASSERT_EQ(redoneByY.outcome.status, 0) << redoneByY.outcome.err;
  EXPECT_GT(std::abs(moved.parts.at(1).x - small.x), 5.0);
  EXPECT_DOUBLE_EQ(undone.parts.at(1).x, small.x);
  EXPECT_DOUBLE_EQ(undone.parts.at(1).y, small.y);
  EXPECT_NE(undone.frames.back().find("undo move"), std::string::npos) << undone.frames.back();
  EXPECT_DOUBLE_EQ(redone.parts.at(1).x, moved.parts.at(1).x);
  EXPECT_DOUBLE_EQ(redoneByY.parts.at(1).x, moved.parts.at(1).x);
  // The frames agree: after undo as at the start, after redo as after the drag.
  Image start0 = frame("undo_1", 0), dragged = frame("undo_1", 1), back = frame("undo_1", 2), again = frame("undo_2", 3);
  ASSERT_TRUE(start0 && dragged && back && again);
  EXPECT_EQ(changes(*start0, *back, 0, 0, 0).far, 0);
  EXPECT_EQ(changes(*dragged, *again, 0, 0, 0).far, 0);
}

TEST(PrintprepReplayGLTest, ADragOnTheBackgroundOrbitsAndTheWheelZoomsTowardTheTarget) {
  const Report layout = start();
  Events events;
  events.drag(20, 20, 80, 20);
  const Report orbited = replay("orbit", events);
  ASSERT_EQ(orbited.outcome.status, 0) << orbited.outcome.err;
  const double distance = ruLinear::length(layout.eye - layout.target);
  // The eye turned about the target, at the same distance and height; no part moved.
  EXPECT_NEAR(ruLinear::length(orbited.eye - orbited.target), distance, 1e-2);
  EXPECT_NEAR(orbited.eye.z, layout.eye.z, 1e-2);
  EXPECT_GT(ruLinear::length(orbited.eye - layout.eye), 10.0);
  EXPECT_DOUBLE_EQ(orbited.parts.at(1).x, layout.parts.at(1).x);
  Events zoom;
  zoom.wheel(128, 128, 2);
  const Report zoomed = replay("zoom", zoom);
  ASSERT_EQ(zoomed.outcome.status, 0) << zoomed.outcome.err;
  EXPECT_NEAR(ruLinear::length(zoomed.eye - zoomed.target), distance * 0.81, 1e-2);
  // Closer: the parts show farther from the middle of the frame.
  const Part before = layout.parts[0], after = zoomed.parts[0];
  EXPECT_GT(std::hypot(after.px - 128, after.py - 128), std::hypot(before.px - 128, before.py - 128));
}

TEST(PrintprepReplayGLTest, AShiftDragPansEvenOverAPartAndMovesNothing) {
  const Report layout = start();
  const Part small = layout.parts.at(1);
  Events events;
  events.time += 0.1;
  events.mouse(1, 1, 1, small.px, small.py, 1);
  for (int i = 1; i <= 5; ++i) {
    events.time += 0.05;
    events.mouse(3, 0, 1, small.px + 8 * i, small.py, 1);
  }
  events.time += 0.05;
  events.mouse(2, 1, 0, small.px + 40, small.py, 1);
  const Report panned = replay("pan", events);
  ASSERT_EQ(panned.outcome.status, 0) << panned.outcome.err;
  // Eye and target shift together; the scene follows the cursor at the target's depth, so the part,
  // nearer the eye than the target, shows close to 40 px right.
  const ruLinear::Vector eyeShift = panned.eye - layout.eye, targetShift = panned.target - layout.target;
  EXPECT_GT(ruLinear::length(targetShift), 5.0);
  EXPECT_NEAR(ruLinear::length(eyeShift - targetShift), 0.0, 1e-2);
  EXPECT_DOUBLE_EQ(panned.parts.at(1).x, small.x);
  EXPECT_NEAR(panned.parts.at(1).px, small.px + 40, 5);
  EXPECT_NEAR(panned.parts.at(1).py, small.py, 2);
}

TEST(PrintprepReplayGLTest, TheCutAwayKeyCutsThePartsAndTheArrowsMoveItsPlane) {
  const Part big = start().parts.at(0);
  Events events;
  events.key("KeyC");
  const Report on = replay("cut_on", events);
  ASSERT_EQ(on.outcome.status, 0) << on.outcome.err;
  // Through the middle of the parts' height (the big cube's 20 mm).
  EXPECT_EQ(on.cut, "on at 10.000 mm");
  // The top of the big cube is gone: its pixels change, the printer's do not.
  Image whole = frame("cut_on", 0), cut = frame("cut_on", 1);
  ASSERT_TRUE(whole && cut);
  const Changes cutAway = changes(*whole, *cut, big.px, big.py, 45);
  EXPECT_GT(cutAway.near, 100);
  EXPECT_EQ(cutAway.far, 0);
  events.key("KeyUp");
  events.key("KeyUp");
  events.key("KeyDown");
  const Report moved = replay("cut_moved", events);
  // A twentieth of the parts' height each step.
  EXPECT_EQ(moved.cut, "on at 11.000 mm");
  Image lower = frame("cut_moved", 1), higher = frame("cut_moved", 3);
  ASSERT_TRUE(lower && higher);
  EXPECT_GT(changes(*lower, *higher, big.px, big.py, 45).near, 20);
  events.key("KeyC");
  const Report off = replay("cut_off", events);
  EXPECT_EQ(off.cut, "off");
  // Everything shows again as at the start.
  Image again = frame("cut_off", 5);
  ASSERT_TRUE(again);
  EXPECT_EQ(changes(*whole, *again, 0, 0, 0).far, 0);
}

TEST(PrintprepReplayGLTest, TheSameSessionGivesTheSameFramesAndReport) {
  const Part small = start().parts.at(1);
  Events events;
  events.click(small.px, small.py);
  events.drag(small.px, small.py, small.px + 30, small.py - 20);
  const Report first = replay("same_0", events);
  const Report second = replay("same_1", events);
  ASSERT_EQ(first.outcome.status, 0) << first.outcome.err;
  std::string a = first.outcome.out, b = second.outcome.out;
  // The output folder is named in the report.
  for (std::string* text : {&a, &b})
    for (const char* folder : {"same_0", "same_1"})
      for (std::size_t at = text->find(folder); at != std::string::npos; at = text->find(folder)) text->replace(at, 6, "same");
  EXPECT_EQ(a, b);
  for (int i = 0; i < 3; ++i) {
    Image x = frame("same_0", i), y = frame("same_1", i);
    ASSERT_TRUE(x && y);
    EXPECT_EQ(std::vector<std::uint8_t>(x->bytes(), x->bytes() + x->byteSize()),
              std::vector<std::uint8_t>(y->bytes(), y->bytes() + y->byteSize()))
        << "frame " << i;
  }
}

// Bad sessions: one line naming the file and what is wrong, status 1, no frame folder.
class PrintprepReplayBadInputTest : public ::testing::Test {
protected:
  void expectRefused(const std::string& name, const std::string& text, const std::string& what) {
    models();
    const fs::path session = folder() / (name + ".json");
    write(session, text);
    fs::remove_all(folder() / name);
    const Outcome outcome = run("replay " + session.string() + " -o " + (folder() / name).string(), name);
    EXPECT_EQ(outcome.status, 1);
    EXPECT_EQ(outcome.err, "printprep replay: " + session.string() + ": " + what + "\n");
    EXPECT_FALSE(fs::exists(folder() / name));
  }
};

TEST_F(PrintprepReplayBadInputTest, ASessionThatIsNotJsonIsRefused) {
  models();
  const fs::path session = folder() / "not_json.json";
  write(session, "{\"events\": [ {\"time\": 0, ");
  fs::remove_all(folder() / "not_json");
  const Outcome outcome = run("replay " + session.string() + " -o " + (folder() / "not_json").string(), "not_json");
  EXPECT_EQ(outcome.status, 1);
  EXPECT_EQ(outcome.err.rfind("printprep replay: " + session.string() + ": not JSON: ", 0), 0u) << outcome.err;
  EXPECT_EQ(std::count(outcome.err.begin(), outcome.err.end(), '\n'), 1);
  EXPECT_FALSE(fs::exists(folder() / "not_json"));
}

TEST_F(PrintprepReplayBadInputTest, AnUnknownEventTypeIsRefused) {
  expectRefused("unknown_type",
                R"({"models": ["models/big.stl"], "events": [{"time": 0, "event": {"type": 42, "position": [1, 2]}}]})",
                "event 0: unknown event type 42");
  expectRefused("touch_type", R"({"models": ["models/big.stl"], "events": [{"time": 0, "event": {"type": 8}}]})",
                "event 0: unknown event type 8 (ScrenTouch)");
}

TEST_F(PrintprepReplayBadInputTest, AMissingFieldIsRefused) {
  expectRefused("missing_position",
                R"({"models": ["models/big.stl"], "events": [{"time": 0, "event": {"type": 9, "buttonMask": 0, "modifierMask": 0}},
                   {"time": 1, "event": {"type": 1, "button": 1, "buttonMask": 1, "modifierMask": 0, "clickCount": 1, "timestamp": 1}}]})",
                "event 0: no \"position\"");
  expectRefused("missing_time", R"({"models": ["models/big.stl"], "events": [{"event": {"type": 6, "key": "KeyC", "modifierMask": 0}}]})",
                "event 0: no \"time\"");
  expectRefused("missing_events", R"({"models": ["models/big.stl"]})", "no \"events\"");
  expectRefused("bad_key", R"({"models": ["models/big.stl"], "events": [{"time": 0, "event": {"type": 6, "key": "Hyper", "modifierMask": 0}}]})",
                "event 0: \"key\" names no key");
  expectRefused("time_back",
                R"({"models": ["models/big.stl"], "events": [{"time": 2, "event": {"type": 6, "key": "KeyC", "modifierMask": 0}},
                   {"time": 1, "event": {"type": 7, "key": "KeyC", "modifierMask": 0}}]})",
                "event 1: \"time\" goes back");
}

TEST_F(PrintprepReplayBadInputTest, AMissingSessionOrModelIsRefused) {
  const fs::path missing = folder() / "no_such_session.json";
  const Outcome outcome = run("replay " + missing.string() + " -o " + (folder() / "no_session").string(), "no_session");
  EXPECT_EQ(outcome.status, 1);
  EXPECT_EQ(outcome.err, "printprep replay: " + missing.string() + ": cannot read the file\n");
  EXPECT_FALSE(fs::exists(folder() / "no_session"));

  write(folder() / "missing_model.json", R"({"models": ["models/absent.stl"], "events": []})");
  fs::remove_all(folder() / "missing_model");
  const Outcome model = run("replay " + (folder() / "missing_model.json").string() + " -o " + (folder() / "missing_model").string(),
                            "missing_model");
  EXPECT_EQ(model.status, 1);
  EXPECT_NE(model.err.find((folder() / "models" / "absent.stl").string()), std::string::npos) << model.err;
  EXPECT_EQ(std::count(model.err.begin(), model.err.end(), '\n'), 1);
  EXPECT_FALSE(fs::exists(folder() / "missing_model"));
}
