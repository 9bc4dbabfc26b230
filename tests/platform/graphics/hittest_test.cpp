// Hit testing of draw items, checked against a brute-force reference that projects every triangle,
// line and point to the screen (no rays, no acceleration structure).

#include "glscene.h"

#include "platform/geometry/construct.h"
#include "platform/geometry/raycast.h"
#include "platform/graphics/hittest.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <map>
#include <optional>
#include <random>
#include <string>
#include <tuple>
#include <vector>

using namespace voGR;
using voGR::test::GLScene;
using ruLinear::Point;
using ruLinear::Vector;

namespace {

using Mesh = ru::Reference<ruGeom::CompactMesh>;

Mesh cuboid(const Point& a, const Point& b) {
  Mesh mesh(new ruGeom::CompactMesh());
  ruGeom::constructCuboid(ruLinear::Range3d(a, b), *mesh);
  return mesh;
}

Mesh sphere(const Point& centre, double radius, int slices, int stacks) {
  Mesh mesh(new ruGeom::CompactMesh());
  for (int j = 0; j <= stacks; ++j) {
    const double phi = M_PI * j / stacks;
    for (int i = 0; i < slices; ++i) {
      const double theta = 2 * M_PI * i / slices;
      mesh->addVertex(centre + Vector(std::sin(phi) * std::cos(theta), std::sin(phi) * std::sin(theta), std::cos(phi)) * radius);
    }
  }
  for (int j = 0; j < stacks; ++j) {
    for (int i = 0; i < slices; ++i) {
      const std::uint32_t a = j * slices + i, b = j * slices + (i + 1) % slices;
      const std::uint32_t c = a + slices, d = b + slices;
      mesh->addTriangle(a, c, b);
      mesh->addTriangle(b, c, d);
    }
  }
  return mesh;
}

// A wavy ribbon given only as one triangle strip.
Mesh ribbon(const Point& start, int segments) {
  Mesh mesh(new ruGeom::CompactMesh());
  std::vector<std::uint32_t> indices;
  for (int i = 0; i <= segments; ++i) {
    const double x = start.x + i * 0.8, z = start.z + std::sin(i * 0.7) * 1.5;
    indices.push_back(mesh->addVertex(Point(x, start.y, z)));
    indices.push_back(mesh->addVertex(Point(x + 0.3, start.y + 0.5, z + 2.0)));
  }
  const std::uint32_t length = static_cast<std::uint32_t>(indices.size());
  std::vector<std::uint32_t> triangles(length - 2);
  for (std::uint32_t k = 0; k < length - 2; ++k) triangles[k] = k;
  EXPECT_TRUE(mesh->setStrips(indices.data(), int(length), &length, 1, triangles.data()));
  return mesh;
}

Mesh randomLines(std::mt19937& random, int count, const Point& lo, const Point& hi) {
  Mesh mesh(new ruGeom::CompactMesh());
  std::uniform_real_distribution<double> ux(lo.x, hi.x), uy(lo.y, hi.y), uz(lo.z, hi.z);
  for (int i = 0; i < count; ++i) {
    const std::uint32_t a = mesh->addVertex(Point(ux(random), uy(random), uz(random)));
    const std::uint32_t b = mesh->addVertex(Point(ux(random), uy(random), uz(random)));
    mesh->addLine(a, b);
  }
  return mesh;
}

Mesh randomPoints(std::mt19937& random, int count, const Point& lo, const Point& hi) {
  Mesh mesh(new ruGeom::CompactMesh());
  std::uniform_real_distribution<double> ux(lo.x, hi.x), uy(lo.y, hi.y), uz(lo.z, hi.z);
  for (int i = 0; i < count; ++i) mesh->addVertex(Point(ux(random), uy(random), uz(random)));
  return mesh;
}

struct Spin final : Transformer {
  ruLinear::AffineMatrix evaluate() const override {
    ruLinear::AffineMatrix m = ruLinear::AffineMatrix::translation(Vector(9 * std::cos(angle), -4, 9 * std::sin(angle)));
    m.rotate(angle, Vector(1, 1, 0));
    return m;
  }
  double angle = 0.6;
};

struct LabelFilter final : HitFilter {
  bool filter(const DrawItem& item) const override { return item.getLabel() % 2 == 0; }
};

struct NoneFilter final : HitFilter {
  bool filter(const DrawItem&) const override { return false; }
};

// ---------------------------------------------------------------------------------------------
// The reference: every primitive projected to the viewport and tested in two dimensions.

struct Projected {
  double x, y, w;  // viewport pixels and eye depth (pixels and z for items in viewport pixels)
  Point world;
};

struct RefItem {
  DrawItem* item;
  int order;
  bool screen, triangles, lines, occluder, reported, hidable;
  std::vector<Projected> vertices;
  std::vector<std::uint32_t> tris, segments;
};

struct Reference {
  ruGeom::Camera camera;
  std::vector<RefItem> items;

  Reference(const DrawSystem& system, const ruGeom::Camera& cam, const HitTestConfig& config) : camera(cam) {
    int order = 0;
    system.getActiveDatabase()->getAllItems().forEach([&](DrawItem& item) {
      const int index = order++;
      ruGeom::CompactMesh* mesh = item.getMesh();
      if (!item.isPickable() || !item.isDrawable() || item.isOverlay() || !mesh || mesh->getNumVertices() == 0) return;
      RefItem r{&item, index, item.getSpace() == SpaceScreen, item.isTriangles(), false, false, false, false, {}, {}, {}};
      r.lines = !r.triangles;
      r.hidable = !r.screen && item.getDepthInteraction() == DepthNormal;
      r.occluder = r.hidable && r.triangles && (!config.firstFilter || config.firstFilter->accepts(item));
      r.reported = !config.secondFilter || config.secondFilter->accepts(item);
      const ruLinear::AffineMatrix toWorld = item.getLocalToWorld();
      const ruLinear::ProjMatrix w2v = camera.getWorldToViewport();
      for (int v = 0; v < mesh->getNumVertices(); ++v) {
        const Point p = mesh->getVertices()[v].asPoint() * toWorld;
        if (r.screen) {
          r.vertices.push_back({p.x, p.y, p.z, p});
        } else {
          const Point q = p * w2v;
          r.vertices.push_back({q.x, q.y, camera.screenDepthAtPoint(p), p});
        }
      }
      if (r.triangles && mesh->hasTriangles()) {
        r.tris.assign(mesh->getTriangles(), mesh->getTriangles() + 3 * mesh->getNumTriangles());
      } else if (r.triangles) {
        // Strips, unrolled as drawn.
        std::size_t start = 0;
        for (int s = 0; s < mesh->getNumStrips(); ++s) {
          const std::uint32_t* idx = mesh->getStripIndices() + start;
          for (std::uint32_t k = 0; k + 2 < mesh->getStripLength(s); ++k) {
            std::uint32_t a = idx[k], b = idx[k + 1];
            if (k % 2) std::swap(a, b);
            r.tris.insert(r.tris.end(), {a, b, idx[k + 2]});
          }
          start += mesh->getStripLength(s);
        }
      } else if (mesh->hasLines()) {
        r.segments.assign(mesh->getLines(), mesh->getLines() + 2 * mesh->getNumLines());
      }
      items.push_back(std::move(r));
    });
  }

  // Nearest triangle of an item under the viewport position: (distance from the eye, or z for
  // items in pixels; triangle; point), triangle -1 when none.
  std::tuple<double, int, Point> triangleAt(const RefItem& r, double sx, double sy) const {
    double best = INFINITY;
    int bestTriangle = -1;
    Point bestPoint;
    for (std::size_t i = 0; i < r.tris.size(); i += 3) {
      const Projected& a = r.vertices[r.tris[i]];
      const Projected& b = r.vertices[r.tris[i + 1]];
      const Projected& c = r.vertices[r.tris[i + 2]];
      const double area = (b.x - a.x) * (c.y - a.y) - (b.y - a.y) * (c.x - a.x);
      if (area == 0) continue;
      const double l0 = ((b.x - sx) * (c.y - sy) - (b.y - sy) * (c.x - sx)) / area;
      const double l1 = ((c.x - sx) * (a.y - sy) - (c.y - sy) * (a.x - sx)) / area;
      const double l2 = 1.0 - l0 - l1;
      if (l0 < 0 || l1 < 0 || l2 < 0) continue;
      Point p;
      double d;
      if (r.screen) {
        p = Point(sx, sy, l0 * a.w + l1 * b.w + l2 * c.w);
        d = -p.z;  // any hit will do; keep the topmost
      } else {
        // Perspective-correct weights.
        const double q0 = l0 / a.w, q1 = l1 / b.w, q2 = l2 / c.w, sum = q0 + q1 + q2;
        p = Point((q0 * a.world.x + q1 * b.world.x + q2 * c.world.x) / sum,
                  (q0 * a.world.y + q1 * b.world.y + q2 * c.world.y) / sum,
                  (q0 * a.world.z + q1 * b.world.z + q2 * c.world.z) / sum);
        d = ruLinear::distance(p, camera.getEyeLocation());
      }
      if (d < best) {
        best = d;
        bestTriangle = int(i / 3);
        bestPoint = p;
      }
    }
    return {best, bestTriangle, bestPoint};
  }

  double occluderAt(double sx, double sy) const {
    double nearest = INFINITY;
    for (const RefItem& r : items) {
      if (r.occluder) nearest = std::min(nearest, std::get<0>(triangleAt(r, sx, sy)));
    }
    return nearest;
  }

  struct Rec {
    int group;
    double depth;
    int order;
    DrawItem* item;
    int triangle, line;
    Point point;
  };

  std::vector<Rec> query(const ruLinear::Point2& at, int radius) const {
    std::vector<Rec> out;
    const ruGeom::Viewport& vp = camera.getViewport();
    const int cx = int(std::floor(at.x)), cy = int(std::floor(at.y));
    std::vector<std::pair<int, int>> disc;
    for (int dy = -radius; dy <= radius; ++dy) {
      for (int dx = -radius; dx <= radius; ++dx) {
        const int x = cx + dx, y = cy + dy;
        if (dx * dx + dy * dy <= radius * radius && x >= 0 && y >= 0 && x < vp.width && y < vp.height) disc.emplace_back(dx, dy);
      }
    }
    std::stable_sort(disc.begin(), disc.end(), [](auto& a, auto& b) {
      return std::make_tuple(a.first * a.first + a.second * a.second, a.second, a.first) <
             std::make_tuple(b.first * b.first + b.second * b.second, b.second, b.first);
    });
    const ruLinear::ProjMatrix w2v = camera.getWorldToViewport();
    for (const RefItem& r : items) {
      if (!r.reported) continue;
      Rec rec{r.screen ? 0 : 1, 0.0, r.order, r.item, -1, -1, Point()};
      bool seen = false;
      if (r.triangles) {
        for (auto [dx, dy] : disc) {
          const double sx = cx + dx + 0.5, sy = cy + dy + 0.5;
          auto [d, triangle, p] = triangleAt(r, sx, sy);
          if (triangle < 0) continue;
          if (r.hidable && d > occluderAt(sx, sy)) continue;
          seen = true;
          rec.triangle = triangle;
          rec.point = p;
          if (!r.screen) rec.depth = (p * w2v).z;
          break;
        }
      } else {
        const double px = cx + 0.5, py = cy + 0.5;
        double best = INFINITY;
        auto consider = [&](int index, const Projected& a, const Projected& b) {
          const double ex = b.x - a.x, ey = b.y - a.y, len2 = ex * ex + ey * ey;
          const double s = len2 > 0 ? std::clamp(((px - a.x) * ex + (py - a.y) * ey) / len2, 0.0, 1.0) : 0.0;
          const double d = std::hypot(a.x + s * ex - px, a.y + s * ey - py);
          if (d >= best) return;
          best = d;
          rec.line = index;
          const double tau = r.screen ? s : s * a.w / ((1 - s) * b.w + s * a.w);
          rec.point = a.world + (b.world - a.world) * tau;
        };
        if (!r.segments.empty()) {
          for (std::size_t i = 0; i < r.segments.size(); i += 2)
            consider(int(i / 2), r.vertices[r.segments[i]], r.vertices[r.segments[i + 1]]);
        } else {
          for (std::size_t i = 0; i < r.vertices.size(); ++i) consider(int(i), r.vertices[i], r.vertices[i]);
        }
        if (rec.line >= 0 && best <= radius + 0.5) {
          seen = true;
          if (!r.screen) {
            const Point q = rec.point * w2v;
            const double d = ruLinear::distance(rec.point, camera.getEyeLocation());
            if (r.hidable && d > occluderAt(q.x, q.y) * (1 + 1e-3)) seen = false;
            rec.depth = q.z;
          }
        }
      }
      if (seen) out.push_back(rec);
    }
    std::sort(out.begin(), out.end(), [](const Rec& a, const Rec& b) {
      return std::tie(a.group, a.depth, a.order) < std::tie(b.group, b.depth, b.order);
    });
    return out;
  }
};

// ---------------------------------------------------------------------------------------------

struct PickScene {
  GLScene gl;
  int id2 = 0;
  std::unique_ptr<DrawContext> context2;
  ru::Reference<Spin> spin{new Spin()};
  int sources[16] = {};
  ruGeom::Camera camera = GLScene::camera(Point(0, -40, 15), Point(0, 0, 0));
  std::map<std::string, DrawItem*> named;

  PickScene() {
    id2 = gl.system->allocateID();
    context2 = std::make_unique<DrawContext>(gl.system.get(), id2);
    std::mt19937 random(12345);
    {
      Draw draw(*gl.context, &sources[0], false);
      draw.setColor(0.8f, 0.3f, 0.3f, 1.0f);
      draw.setMesh(sphere(Point(0, 0, 0), 5, 24, 16));
      named["sphere"] = draw.emit().get();
      draw.setLabel(1);
      draw.setColor(0.3f, 0.8f, 0.3f, 1.0f);
      draw.setMesh(cuboid(Point(-9, -9, -2), Point(-2, -7, 3)));  // in front of the sphere's left half
      named["frontBox"] = draw.emit().get();
      draw.setLabel(2);
      draw.setTransform(ruLinear::AffineMatrix::rotation(0.5, Point(6, 6, 0), Vector(0, 0, 1)));
      draw.setMesh(cuboid(Point(2, 3, -6), Point(10, 9, 6)));  // behind, to the right
      named["turnedBox"] = draw.emit().get();
      draw.setTransform(ruLinear::AffineMatrix());
      draw.setLabel(3);
      draw.setMesh(randomLines(random, 60, Point(-14, -12, -10), Point(14, 12, 10)), false);
      named["lines"] = draw.emit().get();
      draw.setLabel(4);
      draw.setMesh(randomPoints(random, 400, Point(-14, -12, -10), Point(14, 12, 10)), false);
      named["points"] = draw.emit().get();
      draw.setLabel(5);
      draw.setMesh(ribbon(Point(-12, -3, -9), 14));
      named["ribbon"] = draw.emit().get();
    }
    {
      // Another subsystem: an x-ray box behind the sphere, an item placed by a transformer, a
      // non-pickable and an overlay box in front of everything, items in viewport pixels.
      Draw draw(*context2, &sources[1], false);
      draw.setLabel(6);
      draw.setDepthInteraction(DepthXRay);
      draw.setMesh(cuboid(Point(-3, 6, -3), Point(3, 10, 3)));
      named["xray"] = draw.emit().get();
      draw.setDepthInteraction(DepthNormal);
      draw.setLabel(8);
      draw.setTransformer(spin);
      draw.setMesh(cuboid(Point(-2, -2, -2), Point(2, 2, 2)));
      named["spun"] = draw.emit().get();
      draw.setTransformer(nullptr);
      draw.setLabel(10);
      draw.setPickable(false);
      draw.setMesh(cuboid(Point(-4, -20, -4), Point(4, -18, 0)));
      named["unpickable"] = draw.emit().get();
      draw.setPickable(true);
      draw.setLabel(12);
      draw.setSpace(SpaceScreen);
      draw.setMesh(cuboid(Point(20, 20, 0), Point(70, 45, 1)));
      named["screenQuad"] = draw.emit().get();
      draw.setLabel(14);
      ru::Reference<ruGeom::CompactMesh> line(new ruGeom::CompactMesh());
      ruGeom::constructLineSegment(Point(30, 200, 0), Point(220, 230, 0), *line);
      draw.setMesh(line, false);
      named["screenLine"] = draw.emit().get();
    }
    {
      Draw overlay(*context2, &sources[2], true);
      overlay.setMesh(cuboid(Point(4, -22, 1), Point(9, -20, 6)));
      named["overlay"] = overlay.emit().get();
    }
    gl.setCamera(camera);
  }
};

::testing::AssertionResult sameRecords(const ru::vector<HitRecord>& got, const std::vector<Reference::Rec>& want) {
  if (got.size() != want.size()) {
    auto failure = ::testing::AssertionFailure() << got.size() << " records, the reference has " << want.size();
    for (const auto& w : want) failure << "; reference label " << w.item->getLabel() << " triangle " << w.triangle << " line " << w.line << " depth " << w.depth;
    return failure;
  }
  for (std::size_t i = 0; i < got.size(); ++i) {
    const HitRecord& g = got[i];
    const Reference::Rec& w = want[i];
    if (g.item.get() != w.item || g.triangle != w.triangle || g.line != w.line)
      return ::testing::AssertionFailure() << "record " << i << ": label " << g.item->getLabel() << " triangle "
                                           << g.triangle << " line " << g.line << ", reference label "
                                           << w.item->getLabel() << " triangle " << w.triangle << " line " << w.line;
    if (std::abs(g.depth - w.depth) > 1e-5 || ruLinear::distance(g.point, w.point) > 2e-3)
      return ::testing::AssertionFailure() << "record " << i << " (label " << w.item->getLabel() << "): depth " << g.depth
                                           << " vs " << w.depth << ", point off by " << ruLinear::distance(g.point, w.point);
    if (g.id != w.item->getSubsystemId() || g.label != w.item->getLabel() || g.source != w.item->getSource() ||
        g.subObject != w.item->isSubItem() || g.owner != w.item->getObjectDrawOwner())
      return ::testing::AssertionFailure() << "record " << i << " does not describe its item";
  }
  return ::testing::AssertionSuccess();
}

// Runs `count` random pixels at `radius` against the reference; answers how many records each
// label got, so a test can check the scene was really exercised.
std::map<int, int> compareRandom(PickScene& scene, const HitTestConfig& config, int count, unsigned seed) {
  std::map<int, int> perLabel;
  const Reference reference(*scene.gl.system, scene.camera, config);
  std::mt19937 random(seed);
  std::uniform_real_distribution<double> coordinate(0.0, 255.999);
  ru::vector<HitRecord> records;
  for (int i = 0; i < count; ++i) {
    const ruLinear::Point2 at(coordinate(random), coordinate(random));
    const float depth = visibilityTest(*scene.gl.system, scene.camera, at, config, records);
    const auto want = reference.query(at, config.radius);
    const auto same = sameRecords(records, want);
    EXPECT_TRUE(same) << "at " << at.x << ", " << at.y << " radius " << config.radius;
    if (records.empty()) {
      EXPECT_EQ(depth, FLT_MAX);
    } else {
      EXPECT_FLOAT_EQ(depth, float(records.front().depth));
    }
    for (const HitRecord& r : records) ++perLabel[r.label];
    if (!same) break;  // one report is enough
  }
  return perLabel;
}

}  // namespace

TEST(HitTestGLTest, RandomPixelsMatchTheProjectedReference) {
  PickScene scene;
  scene.gl.frame("hittest_scene");
  HitTestConfig config;
  auto labels = compareRandom(scene, config, 3000, 1);
  // Every reportable kind was found somewhere; the hidden ones never.
  for (int label : {0, 1, 2, 3, 4, 5, 6, 8, 12, 14}) EXPECT_GT(labels[label], 0) << "label " << label;
  EXPECT_EQ(labels[10], 0);
  config.radius = 4;
  labels = compareRandom(scene, config, 700, 2);
  for (int label : {0, 1, 2, 3, 4, 5, 6, 8, 12, 14}) EXPECT_GT(labels[label], 0) << "label " << label;
}

TEST(HitTestGLTest, FiltersChooseWhoHidesAndWhoIsReported) {
  PickScene scene;
  // Only the second subsystem may hide things, only the first subsystem is reported.
  ru::Reference<ComposingHitFilter> reported(new ComposingHitFilter());
  reported->add(new DrawItemPropertyHitFilter(scene.gl.id));
  reported->add(nullptr);
  HitTestConfig config;
  config.firstFilter = new DrawItemPropertyHitFilter(scene.id2);
  config.secondFilter = reported;
  auto labels = compareRandom(scene, config, 1500, 3);
  EXPECT_GT(labels[0], 0);
  EXPECT_EQ(labels[6] + labels[8] + labels[12] + labels[14], 0);
  // Even labels only, at radius 4.
  config.firstFilter = nullptr;
  config.secondFilter = new LabelFilter();
  config.radius = 4;
  labels = compareRandom(scene, config, 400, 4);
  EXPECT_GT(labels[0] + labels[2], 0);
  EXPECT_EQ(labels[1] + labels[3] + labels[5], 0);
}

TEST(HitTestGLTest, OcclusionAndTheNearestFirst) {
  PickScene scene;
  ru::vector<HitRecord> records;
  HitTestConfig config;
  // Through the front box's face onto the sphere: the box hides the sphere.
  {
    ruLinear::Point2 at;
    ASSERT_TRUE(scene.camera.project(Point(-2.5, -8, 0.5), at));
    visibilityTest(*scene.gl.system, scene.camera, at, config, records);
    ASSERT_FALSE(records.empty());
    EXPECT_EQ(records[0].item.get(), scene.named["frontBox"]);
    for (const HitRecord& r : records) EXPECT_NE(r.item.get(), scene.named["sphere"]);
    // Without the box as an occluder, the sphere behind it shows, farther.
    struct NotFrontBox final : HitFilter {
      DrawItem* box;
      explicit NotFrontBox(DrawItem* b) : box(b) {}
      bool filter(const DrawItem& item) const override { return &item != box; }
    };
    config.firstFilter = new NotFrontBox(scene.named["frontBox"]);
    visibilityTest(*scene.gl.system, scene.camera, at, config, records);
    ASSERT_GE(records.size(), 2u);
    EXPECT_EQ(records[0].item.get(), scene.named["frontBox"]);
    EXPECT_EQ(records[1].item.get(), scene.named["sphere"]);
    EXPECT_LT(records[0].depth, records[1].depth);
  }
  // The x-ray box behind the sphere is reported through it; the unpickable box in front neither
  // shows nor hides.
  config.firstFilter = nullptr;
  ruLinear::Point2 centre;
  ASSERT_TRUE(scene.camera.project(Point(0, 0, 0), centre));
  visibilityTest(*scene.gl.system, scene.camera, centre, config, records);
  ASSERT_EQ(records.size(), 2u);
  EXPECT_EQ(records[0].item.get(), scene.named["sphere"]);
  EXPECT_EQ(records[1].item.get(), scene.named["xray"]);
  // The hit point lies on the sphere, on the ray through the pixel centre.
  EXPECT_NEAR(ruLinear::distance(records[0].point, Point(0, 0, 0)), 5.0, 0.1);
  // An item in viewport pixels comes first even in front of nothing else.
  visibilityTest(*scene.gl.system, scene.camera, ruLinear::Point2(30.2, 30.7), config, records);
  ASSERT_FALSE(records.empty());
  EXPECT_EQ(records[0].item.get(), scene.named["screenQuad"]);
  EXPECT_EQ(records[0].depth, 0.0);
}

TEST(HitTestGLTest, TransformerItemsAreTestedWhereTheyAreNow) {
  PickScene scene;
  ru::vector<HitRecord> records;
  HitTestConfig config;
  const Point placed = Point(0, 0, 0) * scene.spin->evaluate();
  ruLinear::Point2 at;
  ASSERT_TRUE(scene.camera.project(placed, at));
  visibilityTest(*scene.gl.system, scene.camera, at, config, records);
  auto hasSpun = [&] {
    return std::any_of(records.begin(), records.end(), [&](const HitRecord& r) { return r.item.get() == scene.named["spun"]; });
  };
  EXPECT_TRUE(hasSpun());
  // Turned without re-emission: found where it is now, and the reference agrees everywhere.
  scene.spin->angle = 2.0;
  visibilityTest(*scene.gl.system, scene.camera, at, config, records);
  EXPECT_FALSE(hasSpun());
  const Point moved = Point(0, 0, 0) * scene.spin->evaluate();
  ASSERT_TRUE(scene.camera.project(moved, at));
  visibilityTest(*scene.gl.system, scene.camera, at, config, records);
  EXPECT_TRUE(hasSpun());
  compareRandom(scene, config, 500, 5);
}

TEST(HitTestGLTest, BadInputGivesNoRecords) {
  PickScene scene;
  ru::vector<HitRecord> records;
  HitTestConfig config;
  ruLinear::Point2 centre;
  ASSERT_TRUE(scene.camera.project(Point(0, 0, 0), centre));
  ASSERT_GT(visibilityTest(*scene.gl.system, scene.camera, centre, config, records), -1.0f);
  ASSERT_FALSE(records.empty());

  config.radius = -1;
  EXPECT_EQ(visibilityTest(*scene.gl.system, scene.camera, centre, config, records), FLT_MAX);
  EXPECT_TRUE(records.empty());
  config.radius = 4;
  for (const ruLinear::Point2& outside : {ruLinear::Point2(-1, 10), ruLinear::Point2(256, 10), ruLinear::Point2(10, 256),
                                          ruLinear::Point2(10, -0.5), ruLinear::Point2(NAN, 10),
                                          ruLinear::Point2(INFINITY, 10)}) {
    visibilityTest(*scene.gl.system, scene.camera, centre, config, records);
    ASSERT_FALSE(records.empty());
    EXPECT_EQ(visibilityTest(*scene.gl.system, scene.camera, outside, config, records), FLT_MAX);
    EXPECT_TRUE(records.empty()) << outside.x << ", " << outside.y;
  }
  config.secondFilter = new NoneFilter();
  EXPECT_EQ(visibilityTest(*scene.gl.system, scene.camera, centre, config, records), FLT_MAX);
  EXPECT_TRUE(records.empty());
  config.secondFilter = nullptr;
  config.firstFilter = new NoneFilter();  // nothing hides: still records
  visibilityTest(*scene.gl.system, scene.camera, centre, config, records);
  EXPECT_FALSE(records.empty());

  // An empty active database, then none at all.
  ru::Reference<Database> empty(new Database(scene.gl.system->getGraph()));
  ru::Reference<Database> former = scene.gl.system->setActiveDatabase(empty);
  EXPECT_EQ(visibilityTest(*scene.gl.system, scene.camera, centre, HitTestConfig(), records), FLT_MAX);
  EXPECT_TRUE(records.empty());
  scene.gl.system->setActiveDatabase(nullptr);
  EXPECT_EQ(visibilityTest(*scene.gl.system, scene.camera, centre, HitTestConfig(), records), FLT_MAX);
  EXPECT_TRUE(records.empty());
  scene.gl.system->setActiveDatabase(former);

  // A huge radius stays bounded by the viewport.
  config = HitTestConfig();
  config.radius = 1 << 20;
  visibilityTest(*scene.gl.system, scene.camera, centre, config, records);
  EXPECT_FALSE(records.empty());
}

TEST(HitTestGLTest, EquivalentComparesOwnerIdLabelAndSubObject) {
  PickScene scene;
  ru::vector<HitRecord> before, after;
  HitTestConfig config;
  ruLinear::Point2 centre;
  ASSERT_TRUE(scene.camera.project(Point(0, 0, 0), centre));
  visibilityTest(*scene.gl.system, scene.camera, centre, config, before);
  ASSERT_FALSE(before.empty());
  // Re-emitting the same things gives new items but an equivalent answer.
  {
    Draw draw(*scene.gl.context, &scene.sources[0], false);
    draw.setMesh(sphere(Point(0, 0, 0), 5, 24, 16));
    draw.emit();
  }
  visibilityTest(*scene.gl.system, scene.camera, centre, config, after);
  ASSERT_EQ(after.size(), before.size());
  EXPECT_NE(after[0].item.get(), before[0].item.get());
  EXPECT_TRUE(equivalent(before, after));
  after[0].depth += 1;
  after[0].point = Point(1, 2, 3);
  EXPECT_TRUE(equivalent(before, after));
  for (int field = 0; field < 4; ++field) {
    auto changed = after;
    if (field == 0) changed[0].owner = reinterpret_cast<voDMG::ObjectDraw*>(&scene);
    if (field == 1) changed[0].id += 1;
    if (field == 2) changed[0].label += 1;
    if (field == 3) changed[0].subObject = !changed[0].subObject;
    EXPECT_FALSE(equivalent(before, changed)) << field;
  }
  auto shorter = after;
  shorter.pop_back();
  EXPECT_FALSE(equivalent(before, shorter));
  if (after.size() >= 2) {
    auto swapped = after;
    std::swap(swapped[0], swapped[1]);
    EXPECT_FALSE(equivalent(before, swapped));
  }
}

TEST(HitFilterTest, ComposingIsAndWithNullMembersPassing) {
  ru::Reference<ComposingHitFilter> composer(new ComposingHitFilter());
  GLScene gl;
  int source = 0;
  Draw draw(*gl.context, &source, false);
  draw.setLabel(2);
  ru::Reference<DrawItem> even = draw.emit();
  draw.setLabel(3);
  ru::Reference<DrawItem> odd = draw.emit();
  EXPECT_TRUE(composer->accepts(*even));
  composer->add(nullptr);
  EXPECT_TRUE(composer->accepts(*odd));
  ru::Reference<HitFilter> labels(new LabelFilter());
  composer->add(labels);
  EXPECT_TRUE(composer->accepts(*even));
  EXPECT_FALSE(composer->accepts(*odd));
  ru::Reference<DrawItemPropertyHitFilter> byId(new DrawItemPropertyHitFilter());
  EXPECT_FALSE(byId->accepts(*even));
  byId->setID(gl.id);
  EXPECT_EQ(byId->getID(), gl.id);
  EXPECT_TRUE(byId->accepts(*even));
  composer->add(byId);
  EXPECT_TRUE(composer->accepts(*even));
  byId->setID(gl.id + 1);
  EXPECT_FALSE(composer->accepts(*even));
  EXPECT_TRUE(composer->remove(byId));
  EXPECT_TRUE(composer->accepts(*even));
  EXPECT_TRUE(composer->remove(nullptr));
  EXPECT_FALSE(composer->remove(nullptr));
  EXPECT_EQ(composer->size(), 1);
}

TEST(HitFilterTest, ConfigIsAnOrderedValue) {
  ru::Reference<HitFilter> a(new LabelFilter()), b(new NoneFilter());
  HitTestConfig x;
  x.firstFilter = a;
  x.radius = 3;
  x.hitTestMode = 0x40000000;
  HitTestConfig y = x;
  EXPECT_TRUE(x == y);
  EXPECT_FALSE(x < y);
  EXPECT_FALSE(y < x);
  y.radius = 4;
  EXPECT_NE(x < y, y < x);
  HitTestConfig z;
  z = x;
  z.secondFilter = b;
  std::map<HitTestConfig, int> map;
  map[x] = 1;
  map[y] = 2;
  map[z] = 3;
  map[HitTestConfig(x)] = 4;
  EXPECT_EQ(map.size(), 3u);
  EXPECT_EQ(map[x], 4);
  z.hitTestMode = 1;
  EXPECT_EQ(map.count(z), 0u);
}

TEST(HitTestGLTest, NothingIsKeptAfterTheCall) {
  PickScene scene;
  ruLinear::Point2 centre;
  ASSERT_TRUE(scene.camera.project(Point(0, 0, 0), centre));
  ru::vector<HitRecord> records;
  HitTestConfig config;
  config.radius = 4;
  visibilityTest(*scene.gl.system, scene.camera, centre, config, records);
  const std::size_t structures = ruGeom::accelerationCacheSize();
  // A new mesh in front of everything gets its acceleration structure on the first test...
  int source = 0;
  ru::Reference<DrawItem> item;
  {
    Draw draw(*scene.gl.context, &source, false);
    draw.setMesh(sphere(Point(0, -20, 7.5), 1, 12, 8));  // halfway from the eye to the origin
    item = draw.emit();
  }
  visibilityTest(*scene.gl.system, scene.camera, centre, config, records);
  ASSERT_FALSE(records.empty());
  EXPECT_EQ(records[0].item.get(), item.get());
  EXPECT_EQ(ruGeom::accelerationCacheSize(), structures + 1);
  const int itemRefs = item->refCount();
  records.clear();
  EXPECT_EQ(item->refCount(), itemRefs - 1);
  // ...and once the item and the records are gone, nothing the test kept holds the mesh.
  item = nullptr;
  { Draw clear(*scene.gl.context, &source, false); }
  EXPECT_EQ(ruGeom::accelerationCacheSize(), structures);
}

TEST(HitTestGLTest, AFilterMayRunAHitTestOfItsOwn) {
  PickScene scene;
  ruLinear::Point2 centre;
  ASSERT_TRUE(scene.camera.project(Point(0, 0, 0), centre));
  ru::vector<HitRecord> plain;
  HitTestConfig config;
  config.radius = 2;
  visibilityTest(*scene.gl.system, scene.camera, centre, config, plain);
  struct Nested final : HitFilter {
    PickScene* scene;
    explicit Nested(PickScene* s) : scene(s) {}
    bool filter(const DrawItem&) const override {
      ru::vector<HitRecord> inner;
      visibilityTest(*scene->gl.system, scene->camera, ruLinear::Point2(5, 5), HitTestConfig(), inner);
      return true;
    }
  };
  config.secondFilter = new Nested(&scene);
  ru::vector<HitRecord> nested;
  visibilityTest(*scene.gl.system, scene.camera, centre, config, nested);
  ASSERT_EQ(nested.size(), plain.size());
  for (std::size_t i = 0; i < plain.size(); ++i) {
    EXPECT_EQ(nested[i].item.get(), plain[i].item.get());
    EXPECT_EQ(nested[i].triangle, plain[i].triangle);
  }
}

TEST(HitTestGLTest, PixelsShowingTheSphereHitTheSphere) {
  PickScene scene;
  const auto frame = scene.gl.frame("hittest_sphere_pixels");
  const HitTestConfig config;
  ru::vector<HitRecord> records;
  int checked = 0;
  for (int y = 0; y < voGR::test::kSize; ++y) {
    for (int x = 0; x < voGR::test::kSize; ++x) {
      const ruImage::Byte4& p = frame.pixel(x, y);
      // Only the sphere is drawn red; the frame's rows run bottom-up like viewport y.
      if (!(p.r > p.g + 60 && p.r > p.b + 60)) continue;
      visibilityTest(*scene.gl.system, scene.camera, ruLinear::Point2(x + 0.5, y + 0.5), config, records);
      auto sphereAt = std::find_if(records.begin(), records.end(),
                                   [&](const HitRecord& r) { return r.item.get() == scene.named["sphere"]; });
      ASSERT_NE(sphereAt, records.end()) << x << ", " << y;
      // Anything before it is a thin line or point the rasteriser left to a neighbour pixel.
      for (auto r = records.begin(); r != sphereAt; ++r) EXPECT_GE(r->line, 0) << x << ", " << y;
      ++checked;
    }
  }
  EXPECT_GT(checked, 1000);
}

// ---------------------------------------------------------------------------------------------
// The items a test visits come from the database's index of pickable items, kept up to date as
// items come and go; whatever happens to them, the records must be those of a walk over every item.

namespace {

// Counts the items it is asked about; accepts all.
struct CountingFilter final : HitFilter {
  bool filter(const DrawItem&) const override {
    ++asked;
    return true;
  }
  mutable int asked = 0;
};

// A turning placement for items that a transformer places.
struct Turn final : Transformer {
  ruLinear::AffineMatrix evaluate() const override {
    ruLinear::AffineMatrix m = ruLinear::AffineMatrix::translation(Vector(12 * std::cos(angle), 12 * std::sin(angle), 1));
    m.rotate(angle, Vector(0, 0, 1));
    return m;
  }
  double angle = 0;
};

// Small objects on a field, each its own source, changed at random: emitted, moved, hidden in
// the three ways an object can be (not drawable, not pickable, nothing emitted), removed, sent far
// away and brought back, placed by a transformer, or drawn in viewport pixels.
struct ChurnScene {
  enum class Kind { Box, Lines, Points, Turned, Screen };
  struct Object {
    Kind kind = Kind::Box;
    Point where;
    bool shown = false;
  };

  GLScene gl;
  ruGeom::Camera camera = GLScene::camera(Point(0, -45, 35), Point(0, 0, 0));
  ru::Reference<Turn> turn{new Turn()};
  std::vector<Object> objects;
  std::mt19937 random{777};
  Mesh box = cuboid(Point(-0.6, -0.6, -0.6), Point(0.6, 0.6, 0.6));
  Mesh quad = cuboid(Point(0, 0, 0), Point(14, 10, 1));

  explicit ChurnScene(int count) : objects(count) {
    gl.setCamera(camera);
    std::uniform_int_distribution<int> kind(0, 9);
    for (Object& object : objects) {
      const int k = kind(random);
      object.kind = k < 6 ? Kind::Box : k == 6 ? Kind::Lines : k == 7 ? Kind::Points : k == 8 ? Kind::Turned : Kind::Screen;
    }
  }

  Point randomPlace(const Object& object) {
    if (object.kind == Kind::Screen) {
      std::uniform_real_distribution<double> pixel(0.0, 240.0);
      return Point(pixel(random), pixel(random), 0);
    }
    std::uniform_real_distribution<double> x(-22, 22), y(-18, 18), z(-3, 3);
    return Point(x(random), y(random), z(random));
  }

  // Emits the object where it is; `drawable` and `pickable` as given.
  void emit(int index, bool drawable = true, bool pickable = true) {
    Object& object = objects[index];
    Draw draw(*gl.context, &object, false);
    draw.setLabel(index);
    draw.setDrawable(drawable);
    draw.setPickable(pickable);
    draw.setTransform(ruLinear::AffineMatrix::translation(object.where.asVector()));
    switch (object.kind) {
      case Kind::Box:
        draw.setMesh(box);
        break;
      case Kind::Lines:
        draw.setMesh(randomLines(random, 3, Point(-1, -1, -1), Point(1, 1, 1)), false);
        break;
      case Kind::Points:
        draw.setMesh(randomPoints(random, 5, Point(-1, -1, -1), Point(1, 1, 1)), false);
        break;
      case Kind::Turned:
        draw.setTransformer(turn);
        draw.setMesh(cuboid(object.where - Vector(1, 1, 1), object.where + Vector(1, 1, 1)));
        break;
      case Kind::Screen:
        draw.setSpace(SpaceScreen);
        draw.setMesh(quad);
        break;
    }
    draw.emit();
    object.shown = drawable && pickable;
  }

  // The pixel over the object's middle, when it is on the screen.
  std::optional<ruLinear::Point2> pixelOf(const Object& object) const {
    if (object.kind == Kind::Screen) return ruLinear::Point2(object.where.x + 7, object.where.y + 5);
    Point middle = object.where;
    if (object.kind == Kind::Turned) middle = object.where * turn->evaluate();
    ruLinear::Point2 at;
    if (!camera.project(middle, at) || at.x < 0 || at.y < 0 || at.x >= voGR::test::kSize || at.y >= voGR::test::kSize)
      return std::nullopt;
    return at;
  }
};

// Compares visibilityTest with the reference walk at the given pixels; answers the records seen.
int compareAt(const DrawSystem& system, const ruGeom::Camera& camera, const HitTestConfig& config,
              const std::vector<ruLinear::Point2>& pixels, const std::string& step) {
  const Reference reference(system, camera, config);
  ru::vector<HitRecord> records;
  int seen = 0;
  for (const ruLinear::Point2& at : pixels) {
    visibilityTest(system, camera, at, config, records);
    const auto same = sameRecords(records, reference.query(at, config.radius));
    EXPECT_TRUE(same) << step << ": at " << at.x << ", " << at.y << " radius " << config.radius;
    if (!same) return -1;
    seen += static_cast<int>(records.size());
  }
  return seen;
}

}  // namespace

TEST(HitTestGLTest, RandomEmitsMovesHidesAndRemovalsMatchAWalkOverEveryItem) {
  ChurnScene scene(120);
  for (std::size_t i = 0; i < scene.objects.size(); ++i) {
    scene.objects[i].where = scene.randomPlace(scene.objects[i]);
    scene.emit(int(i));
  }
  scene.gl.frame("hittest_churn_start");
  std::uniform_int_distribution<int> pickObject(0, int(scene.objects.size()) - 1), pickStep(0, 9);
  std::uniform_real_distribution<double> coordinate(0.0, 255.999), angle(0.0, 6.28);
  HitTestConfig narrow, wide;
  wide.radius = 3;
  int records = 0;
  for (int step = 0; step < 260; ++step) {
    const int index = pickObject(scene.random);
    ChurnScene::Object& object = scene.objects[index];
    std::string what;
    switch (pickStep(scene.random)) {
      case 0:
      case 1:
      case 2:
        what = "moved";
        object.where = scene.randomPlace(object);
        scene.emit(index);
        break;
      case 3:
        what = "re-emitted in place";
        scene.emit(index);
        break;
      case 4:
        what = "hidden, not drawable";
        scene.emit(index, false, true);
        break;
      case 5:
        what = "hidden, not pickable";
        scene.emit(index, true, false);
        break;
      case 6:
        what = "emitted nothing";
        { Draw nothing(*scene.gl.context, &object, false); }
        object.shown = false;
        break;
      case 7:
        what = "removed";
        if (DrawData* data = scene.gl.system->getDrawData(&object, false)) data->clear();
        object.shown = false;
        break;
      case 8:
        what = "sent far away";
        // Out of view but in front of the eye (the reference projects without clipping).
        object.where = object.where + Vector(4e4, 3e4, -2e4);
        scene.emit(index);
        break;
      case 9:
        what = "turned";
        scene.turn->angle = angle(scene.random);
        break;
    }
    // Pixels over a few shown objects (so that there are hits), and anywhere.
    std::vector<ruLinear::Point2> pixels;
    for (int tries = 0; tries < 12 && pixels.size() < 3; ++tries) {
      const ChurnScene::Object& target = scene.objects[pickObject(scene.random)];
      if (!target.shown) continue;
      if (auto at = scene.pixelOf(target)) pixels.push_back(*at);
    }
    pixels.emplace_back(coordinate(scene.random), coordinate(scene.random));
    const std::string label = "step " + std::to_string(step) + " (object " + std::to_string(index) + " " + what + ")";
    const int narrowSeen = compareAt(*scene.gl.system, scene.camera, narrow, pixels, label);
    ASSERT_GE(narrowSeen, 0);
    const int wideSeen = compareAt(*scene.gl.system, scene.camera, wide, {pixels.front()}, label);
    ASSERT_GE(wideSeen, 0);
    records += narrowSeen + wideSeen;
    // What went far away comes back some steps later.
    for (ChurnScene::Object& o : scene.objects) {
      if (o.where.x > 1e4 && pickStep(scene.random) < 3) {
        o.where = o.where - Vector(4e4, 3e4, -2e4);
        scene.emit(int(&o - scene.objects.data()));
      }
    }
  }
  scene.gl.frame("hittest_churn_end");
  // The picks really found things.
  EXPECT_GT(records, 300);
}

TEST(HitTestGLTest, OtherViewsOfTheChangedFieldMatchTheWalk) {
  ChurnScene scene(120);
  for (std::size_t i = 0; i < scene.objects.size(); ++i) {
    scene.objects[i].where = scene.randomPlace(scene.objects[i]);
    scene.emit(int(i));
  }
  // Changes after a first pick, so that some items sit in the tree and some joined since.
  ru::vector<HitRecord> records;
  visibilityTest(*scene.gl.system, scene.camera, ruLinear::Point2(128, 128), HitTestConfig(), records);
  std::uniform_int_distribution<int> pickObject(0, int(scene.objects.size()) - 1);
  for (int i = 0; i < 40; ++i) {
    ChurnScene::Object& object = scene.objects[pickObject(scene.random)];
    object.where = scene.randomPlace(object);
    scene.emit(int(&object - scene.objects.data()));
  }
  // From below, from the side, closer; and a 16 x 16 view at 150 degrees, whose pick cone at
  // radius 2 is too wide to cut anything away. Every object stays in front of the eye, as the
  // reference projects without clipping.
  std::vector<ruGeom::Camera> cameras = {GLScene::camera(Point(5, 10, -50), Point(0, 0, 0)),
                                         GLScene::camera(Point(-60, 3, 2), Point(0, 0, 0)),
                                         GLScene::camera(Point(2, -12, 30), Point(0, 0, 0))};
  ruGeom::Camera wide = GLScene::camera(Point(0, -30, 25), Point(0, 0, 0));
  wide.setViewport(ruGeom::Viewport(0, 0, 16, 16));
  ruGeom::AngleAspect frustum = wide.getFrustum();
  frustum.setAngle(150.0 * M_PI / 180.0);
  wide.setFrustum(frustum);
  std::mt19937 random(99);
  int seen = 0;
  for (const ruGeom::Camera& camera : cameras) {
    std::uniform_real_distribution<double> coordinate(0.0, 255.999);
    std::vector<ruLinear::Point2> pixels;
    for (int i = 0; i < 60; ++i) pixels.emplace_back(coordinate(random), coordinate(random));
    HitTestConfig config;
    const int narrow = compareAt(*scene.gl.system, camera, config, pixels, "a view");
    ASSERT_GE(narrow, 0);
    config.radius = 3;
    pixels.resize(15);
    const int disc = compareAt(*scene.gl.system, camera, config, pixels, "a view, radius 3");
    ASSERT_GE(disc, 0);
    seen += narrow + disc;
  }
  for (int radius : {0, 2}) {
    HitTestConfig config;
    config.radius = radius;
    std::vector<ruLinear::Point2> pixels;
    for (int y = 0; y < 16; y += 3) {
      for (int x = 0; x < 16; x += 3) pixels.emplace_back(x + 0.5, y + 0.5);
    }
    const int found = compareAt(*scene.gl.system, wide, config, pixels, "the wide view, radius " + std::to_string(radius));
    ASSERT_GE(found, 0);
    seen += found;
  }
  EXPECT_GT(seen, 60);
}

TEST(HitTestGLTest, AnItemMovedFarAwayAndBackIsFoundWhereItIs) {
  ChurnScene scene(300);
  for (std::size_t i = 0; i < scene.objects.size(); ++i) {
    scene.objects[i].kind = ChurnScene::Kind::Box;
    // A grid, so that no other object covers the one that moves.
    scene.objects[i].where = Point(-21 + 2.5 * double(i % 18), -17 + 2.5 * double(i / 18), 0);
    scene.emit(int(i));
  }
  const int mover = 100;
  ChurnScene::Object& object = scene.objects[mover];
  const ruLinear::Point2 home = *scene.pixelOf(object);
  const Point homePlace = object.where;
  ru::vector<HitRecord> records;
  const HitTestConfig config;
  auto hitsMover = [&](const ruLinear::Point2& at) {
    visibilityTest(*scene.gl.system, scene.camera, at, config, records);
    return !records.empty() && records.front().label == mover;
  };
  ASSERT_TRUE(hitsMover(home));
  // Far more moves than the index keeps aside between builds, and far more departures than it
  // leaves empty before compacting, with a pick at every step.
  for (int round = 0; round < 400; ++round) {
    object.where = homePlace + Vector(5e5, 1e5 * (round % 7), -2e5);
    scene.emit(mover);
    ASSERT_FALSE(hitsMover(home)) << "round " << round;
    object.where = homePlace;
    scene.emit(mover);
    ASSERT_TRUE(hitsMover(home)) << "round " << round;
  }
  // A step to a neighbouring free spot: found there, not at home.
  object.where = homePlace + Vector(1.25, 1.25, 0);
  scene.emit(mover);
  EXPECT_FALSE(hitsMover(home));
  EXPECT_TRUE(hitsMover(*scene.pixelOf(object)));
  // And the whole field still agrees with the walk.
  std::vector<ruLinear::Point2> pixels;
  for (std::size_t i = 0; i < scene.objects.size(); i += 7) {
    if (auto at = scene.pixelOf(scene.objects[i])) pixels.push_back(*at);
  }
  EXPECT_GT(compareAt(*scene.gl.system, scene.camera, config, pixels, "after the moves"), 20);
}

TEST(HitTestGLTest, TransformerItemsAreFoundWhereverTheTransformerTurnsThem) {
  ChurnScene scene(60);
  for (std::size_t i = 0; i < scene.objects.size(); ++i) {
    scene.objects[i].kind = i % 3 == 0 ? ChurnScene::Kind::Turned : ChurnScene::Kind::Box;
    scene.objects[i].where = scene.randomPlace(scene.objects[i]);
    scene.emit(int(i));
  }
  const HitTestConfig config;
  int records = 0;
  for (int turn = 0; turn < 24; ++turn) {
    // Turned without any re-emission: the index cannot know where they are and must ask.
    scene.turn->angle = turn * 0.27;
    std::vector<ruLinear::Point2> pixels;
    for (std::size_t i = 0; i < scene.objects.size(); i += 3) {
      if (auto at = scene.pixelOf(scene.objects[i])) pixels.push_back(*at);
    }
    const int seen = compareAt(*scene.gl.system, scene.camera, config, pixels, "turn " + std::to_string(turn));
    ASSERT_GE(seen, 0);
    records += seen;
  }
  EXPECT_GT(records, 100);
}

TEST(HitTestGLTest, ScreenItemsAreFoundWhereTheyAreEmitted) {
  ChurnScene scene(40);
  for (std::size_t i = 0; i < scene.objects.size(); ++i) {
    scene.objects[i].kind = i % 2 ? ChurnScene::Kind::Screen : ChurnScene::Kind::Box;
    scene.objects[i].where = scene.randomPlace(scene.objects[i]);
    scene.emit(int(i));
  }
  HitTestConfig config;
  config.radius = 2;
  int records = 0;
  for (int step = 0; step < 30; ++step) {
    const int index = 2 * (step % 20) + 1;
    const ruLinear::Point2 before = *scene.pixelOf(scene.objects[index]);
    scene.objects[index].where = scene.randomPlace(scene.objects[index]);
    scene.emit(index);
    const int seen = compareAt(*scene.gl.system, scene.camera, config, {before, *scene.pixelOf(scene.objects[index])},
                               "screen step " + std::to_string(step));
    ASSERT_GE(seen, 0);
    records += seen;
  }
  EXPECT_GT(records, 30);
}

TEST(HitTestGLTest, AVertexBufferWrittenInPlaceMovesItsItem) {
  ChurnScene scene(100);
  for (std::size_t i = 0; i < scene.objects.size(); ++i) {
    scene.objects[i].kind = ChurnScene::Kind::Box;
    scene.objects[i].where = Point(-21 + 4.5 * double(i % 10), -17 + 3.5 * double(i / 10), 0);
    scene.emit(int(i));
  }
  // An item of a mesh no one else shares, placed in a free spot.
  int source = 0;
  Mesh own = cuboid(Point(-22.6, 17.4, -0.6), Point(-21.4, 18.6, 0.6));
  {
    Draw draw(*scene.gl.context, &source, false);
    draw.setLabel(1000);
    draw.setMesh(own);
    draw.emit();
  }
  ru::vector<HitRecord> records;
  const HitTestConfig config;
  ruLinear::Point2 first, second;
  ASSERT_TRUE(scene.camera.project(Point(-22, 18, 0), first));
  // Across the field: far from the tree's nodes around its old place.
  ASSERT_TRUE(scene.camera.project(Point(18, 18, 0), second));
  ASSERT_LT(second.x, voGR::test::kSize);
  visibilityTest(*scene.gl.system, scene.camera, first, config, records);
  ASSERT_FALSE(records.empty());
  EXPECT_EQ(records.front().label, 1000);
  // The same item, its vertices rewritten to another spot without re-emission.
  ruGeom::MeshVertex* vertices = own->editVertices();
  for (int v = 0; v < own->getNumVertices(); ++v) {
    vertices[v] = ruGeom::MeshVertex(vertices[v].asPoint() + Vector(40, 0, 0));
  }
  visibilityTest(*scene.gl.system, scene.camera, second, config, records);
  ASSERT_FALSE(records.empty());
  EXPECT_EQ(records.front().label, 1000);
  visibilityTest(*scene.gl.system, scene.camera, first, config, records);
  for (const HitRecord& r : records) EXPECT_NE(r.label, 1000);
  EXPECT_GT(compareAt(*scene.gl.system, scene.camera, config, {first, second}, "after the write"), 0);
}

TEST(HitTestGLTest, APickAsksOnlyAboutTheItemsNearIt) {
  ChurnScene scene(1000);
  for (std::size_t i = 0; i < scene.objects.size(); ++i) {
    scene.objects[i].kind = ChurnScene::Kind::Box;
    // Apart, so that no two boxes share a face.
    scene.objects[i].where = Point(-30 + 1.5 * double(i % 40), -18 + 1.5 * double(i / 40), 0);
    scene.emit(int(i));
  }
  ru::Reference<CountingFilter> counting(new CountingFilter());
  HitTestConfig config;
  config.secondFilter = counting;
  config.radius = 2;
  const ruLinear::Point2 at = *scene.pixelOf(scene.objects[12 * 40 + 20]);
  ru::vector<HitRecord> records;
  visibilityTest(*scene.gl.system, scene.camera, at, config, records);
  ASSERT_FALSE(records.empty());
  // A walk over every item would ask about all thousand; the boxes near the ray are a few dozen.
  EXPECT_GE(counting->asked, static_cast<int>(records.size()));
  EXPECT_LT(counting->asked, 50);
  // What it found is what the walk finds.
  EXPECT_GT(compareAt(*scene.gl.system, scene.camera, config, {at}, "the field"), 0);
}
