// Random cursor paths over a scene of axes, object centres, a mesh and the modeling plane. After
// every step the item the manager chose must be the one the catch, tear and priority rules give,
// decided here from pixel distances measured in the viewport.
#include "tests/datamodelgui/snap/snapfixture.h"

#include "platform/datamodel/attributes.h"
#include "platform/datamodel/document.h"
#include "platform/geometry/construct.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <random>
#include <vector>

using ruLinear::Point;
using ruLinear::Point2;
using ruLinear::Vector;
using snaptest::SnapHost;
using voDMG::SnapItem;

namespace {

enum class Kind { None, Plane, Axis, Mesh, Centre };

// What the test knows of one item: how to tell whether the cursor is in catch or hold reach, with
// a flag when the cursor is too near a boundary for the pixel measure here to decide.
struct Decision {
  bool value = false;
  bool ambiguous = false;
};

struct Known {
  Kind kind;
  int priority;
  const SnapItem* item = nullptr;  // fixed items; null for the plane and the mesh (new each step)
  // Axis: two points in front of the eye; centre: the point; mesh: the triangle's corners.
  Point a, b, c;
};

double cross2(const Point2& o, const Point2& p, const Point2& q) { return (p.x - o.x) * (q.y - o.y) - (p.y - o.y) * (q.x - o.x); }

double distanceToLine(const Point2& p, const Point2& a, const Point2& b) {
  const double length = std::hypot(b.x - a.x, b.y - a.y);
  return std::fabs(cross2(a, b, p)) / length;
}

double distanceToSegment(const Point2& p, const Point2& a, const Point2& b) {
  const double dx = b.x - a.x, dy = b.y - a.y;
  double t = ((p.x - a.x) * dx + (p.y - a.y) * dy) / (dx * dx + dy * dy);
  t = std::clamp(t, 0.0, 1.0);
  return std::hypot(p.x - (a.x + t * dx), p.y - (a.y + t * dy));
}

struct Reference {
  SnapHost& host;

  Decision within(const Known& known, const Point2& cursor, double radius, bool catching) const {
    Decision d;
    switch (known.kind) {
      case Kind::Plane:
        d.value = true;
        break;
      case Kind::Centre: {
        const double pixels = ruLinear::distance(cursor, host.pixel(known.a));
        d.value = radius > pixels;
        d.ambiguous = std::fabs(pixels - radius) < 1e-6;
        break;
      }
      case Kind::Axis: {
        const double pixels = distanceToLine(cursor, host.pixel(known.a), host.pixel(known.b));
        const double fromOrigin = ruLinear::distance(cursor, host.pixel(Point(0, 0, 0)));
        const bool dead = catching && 65.0 > fromOrigin;
        d.value = !dead && radius > pixels;
        d.ambiguous = std::fabs(pixels - radius) < 1.5 || (catching && std::fabs(fromOrigin - 65.0) < 1.5);
        break;
      }
      case Kind::Mesh: {
        const Point2 p0 = host.pixel(known.a), p1 = host.pixel(known.b), p2 = host.pixel(known.c);
        const double s0 = cross2(p0, p1, cursor), s1 = cross2(p1, p2, cursor), s2 = cross2(p2, p0, cursor);
        d.value = (s0 >= 0 && s1 >= 0 && s2 >= 0) || (s0 <= 0 && s1 <= 0 && s2 <= 0);
        const double edge = std::min({distanceToSegment(cursor, p0, p1), distanceToSegment(cursor, p1, p2),
                                      distanceToSegment(cursor, p2, p0)});
        d.ambiguous = edge < 2.5;  // the screen search reaches a pixel beyond the edges
        break;
      }
      case Kind::None:
        break;
    }
    return d;
  }
};

Kind kindOf(const SnapItem* item, const std::vector<Known>& known) {
  if (!item) return Kind::None;
  for (const auto& k : known)
    if (k.item == item) return k.kind;
  if (item->priority() == voDMG::SnapPriorityPlane) return Kind::Plane;
  if (item->priority() == voDMG::SnapPriorityMesh) return Kind::Mesh;
  return Kind::None;
}

const Known* knownOf(const SnapItem* item, const std::vector<Known>& known) {
  for (const auto& k : known) {
    if (k.item && k.item == item) return &k;
  }
  if (!item) return nullptr;
  for (const auto& k : known) {
    if (!k.item && k.priority == item->priority()) return &k;
  }
  return nullptr;
}

}  // namespace

TEST(SnapRandom, RandomCursorPathsFollowTheCatchTearAndPriorityRules) {
  std::mt19937 random(20261123);
  int asserted = 0;
  int total = 0;
  int changes = 0;
  for (int round = 0; round < 6; ++round) {
    SnapHost host;
    std::uniform_real_distribution<double> tilt(-3.0, 3.0);
    host.look(Point(0, 0, 0), Point(tilt(random), tilt(random), 10.0), Vector(0, 1, 0));
    host.planes.setPlane(ruLinear::Plane(Point(0, 0, 0), ruLinear::Normal::z));
    Reference reference{host};
    std::vector<Known> known;
    voDMG::SnapClient client{voGR::HitTestConfig()};
    client.addFactory(new voDMG::ModelingPlaneSnapItemFactory());
    known.push_back({Kind::Plane, 0, nullptr, {}, {}, {}});
    // The x and y axes through the origin.
    for (const Vector& direction : {Vector(1, 0, 0), Vector(0, 1, 0)}) {
      ru::Reference<SnapItem> axis(new voDMG::CoordinateAxisSnapItem(Point(0, 0, 0), direction));
      client.addFactory(snaptest::fixed(axis));
      known.push_back({Kind::Axis, 1, axis.get(), Point(0, 0, 0) - direction * 5.0, Point(0, 0, 0) + direction * 5.0, {}});
    }
    // A triangle mesh, offered directly by its factory.
    std::uniform_real_distribution<double> coordinate(-3.5, 3.5);
    const Point t0(coordinate(random), coordinate(random), 0.0);
    const Point t1(t0.x + 2.0, t0.y + 0.3, 0.0), t2(t0.x + 0.4, t0.y + 1.8, 0.0);
    ru::Reference<ruGeom::CompactMesh> triangle = new ruGeom::CompactMesh();
    triangle->addVertex(t0);
    triangle->addVertex(t1);
    triangle->addVertex(t2);
    triangle->addTriangle(0, 1, 2);
    ru::Reference<voDMD::Object> meshObject = voDMD::Object::create(host.document, voDMD::MeshClass::get());
    meshObject->addAttribute<voDMD::Mesh>(triangle);
    client.addFactory(new voDMG::MeshSnapFactory(meshObject->findAttribute<voDMD::Mesh>()));
    known.push_back({Kind::Mesh, 2, nullptr, t0, t1, t2});
    // Object centres of small cuboids.
    for (int i = 0; i < 6; ++i) {
      const Point centre(coordinate(random), coordinate(random), 0.0);
      ru::Reference<ruGeom::CompactMesh> cube = new ruGeom::CompactMesh();
      ruGeom::constructCuboid(ruLinear::Range3d(centre - Vector(0.1, 0.1, 0.1), centre + Vector(0.1, 0.1, 0.1)), *cube);
      ru::Reference<voDMD::Object> object = voDMD::Object::create(host.document, voDMD::MeshClass::get());
      object->addAttribute<voDMD::Mesh>(cube);
      object->addAttribute<voDMD::Transform>(ruLinear::AffineMatrix::Identity);
      object->addAttribute<voDMD::BoundingBox>();
      host.document.insert(object, nullptr);
      ru::Reference<SnapItem> item(new voDMG::ObjectCenterSnapItem(object.get()));
      client.addFactory(snaptest::fixed(item));
      known.push_back({Kind::Centre, 6, item.get(), centre, {}, {}});
    }

    client.beginSnap();
    Point2 cursor{128, 128};
    ru::Reference<SnapItem> previous;
    std::uniform_real_distribution<double> step(-12.0, 12.0);
    std::uniform_real_distribution<double> anywhere(0.0, 255.0);
    std::uniform_int_distribution<int> jump(0, 40);
    for (int move = 0; move < 600; ++move) {
      if (jump(random) == 0) {
        cursor = Point2{anywhere(random), anywhere(random)};
      } else {
        cursor = Point2{std::clamp(cursor.x + step(random), 0.0, 255.0), std::clamp(cursor.y + step(random), 0.0, 255.0)};
      }
      ru::Reference<voDMG::SnapResult> result = client.snap(cursor);
      if (result) result->setDraw(nullptr);
      const ru::Reference<SnapItem> actual = client.getSnapItem();
      ++total;

      // The rules, from the item active before this step.
      bool ambiguous = false;
      const Known* active = knownOf(previous.get(), known);
      if (active) {
        const Decision holds = reference.within(*active, cursor, previous->tearDistance(), false);
        ambiguous |= holds.ambiguous;
        if (!holds.value) active = nullptr;
      }
      int best = -1;
      std::vector<const Known*> winners;
      for (const auto& k : known) {
        if (active && k.priority < active->priority) continue;
        const int radius = k.kind == Kind::Axis ? 15 : 8;
        const Decision catches = reference.within(k, cursor, radius, true);
        ambiguous |= catches.ambiguous;
        if (!catches.value) continue;
        if (k.priority > best) {
          best = k.priority;
          winners.clear();
        }
        if (k.priority == best) winners.push_back(&k);
      }
      if (!ambiguous) {
        ++asserted;
        if (winners.empty()) {
          // Nothing catches: the active item holds, or there is none.
          if (active) {
            EXPECT_EQ(kindOf(actual.get(), known), active->kind) << "move " << move;
            if (active->item) {
              EXPECT_EQ(actual.get(), active->item) << "move " << move;
            }
          } else {
            EXPECT_FALSE(actual) << "move " << move;
          }
        } else {
          ASSERT_TRUE(actual) << "move " << move;
          EXPECT_EQ(actual->priority(), best) << "move " << move;
          const Known* chosen = knownOf(actual.get(), known);
          EXPECT_TRUE(std::find(winners.begin(), winners.end(), chosen) != winners.end()) << "move " << move;
        }
        // A result is there exactly when an item is.
        EXPECT_EQ(static_cast<bool>(result), static_cast<bool>(actual)) << "move " << move;
      }
      if (kindOf(actual.get(), known) != kindOf(previous.get(), known)) ++changes;
      previous = actual;
    }
    client.endSnap();
    host.manager.clearItems();
  }
  // Most steps are decided here, and the path did change items.
  EXPECT_GT(asserted, total * 3 / 4);
  EXPECT_GT(changes, 20);
}
