#pragma once

#include "platform/base/containers.h"
#include "platform/base/linear.h"
#include "platform/base/reference.h"
#include "platform/geometry/camera.h"
#include "platform/graphics/draw.h"
#include "platform/graphics/export.h"

#include <cstdint>

namespace voGR {

// Decides whether a draw item takes part in a hit test (true: it does). Reference counted.
// Filters run during the test: they must not change what they look at.
class VO_GR_API HitFilter : public ru::ReferenceCount {
public:
  ~HitFilter() override;
  // True when `item` may take part (see HitTestConfig for which part).
  bool accepts(const DrawItem& item) const { return filter(item); }

private:
  // An override answers for one item from the item alone, cheaply (it runs for every item of
  // every hit test) and without changing anything the test reads.
  virtual bool filter(const DrawItem& item) const = 0;
};

// Accepts an item when every member does; a null member accepts everything, and so does an
// empty composer. Members are asked in the order they were added.
class VO_GR_API ComposingHitFilter : public HitFilter {
public:
  ComposingHitFilter();
  ~ComposingHitFilter() override;
  // A null reference is kept as it is (it constrains nothing).
  void add(ru::Reference<HitFilter> filter);
  // Removes the first member equal to `filter` (null included); false when there is none.
  bool remove(const ru::Reference<HitFilter>& filter);
  int size() const noexcept { return static_cast<int>(members_.size()); }

private:
  bool filter(const DrawItem& item) const override;
  ru::vector<ru::Reference<HitFilter>> members_;
};

// Accepts the items emitted through one drawing (subsystem) id.
class VO_GR_API DrawItemPropertyHitFilter : public HitFilter {
public:
  // -1 (the default) is never a drawing id, so such a filter accepts nothing until setID.
  explicit DrawItemPropertyHitFilter(int id = -1) noexcept : id_(id) {}
  ~DrawItemPropertyHitFilter() override;
  void setID(int id) noexcept { id_ = id; }
  int getID() const noexcept { return id_; }

private:
  bool filter(const DrawItem& item) const override;
  int id_;
};

// How to hit-test. `firstFilter` chooses the items that may hide others, `secondFilter` the
// items that may be reported; null means no constraint. `radius` is the pick disc in pixels
// (0: the one pixel under the point). `hitTestMode` is kept and compared, nothing more.
// A value type, ordered so it can key a map.
struct VO_GR_API HitTestConfig {
  ru::Reference<HitFilter> firstFilter;
  ru::Reference<HitFilter> secondFilter;
  int radius = 0;
  std::uint32_t hitTestMode = 0;

  // Filters compare by identity, then radius, then mode.
  friend bool operator<(const HitTestConfig& a, const HitTestConfig& b) noexcept;
  friend bool operator==(const HitTestConfig& a, const HitTestConfig& b) noexcept;
};

VO_GR_API bool operator<(const HitTestConfig& a, const HitTestConfig& b) noexcept;
VO_GR_API bool operator==(const HitTestConfig& a, const HitTestConfig& b) noexcept;

// One item seen at the pick point.
struct VO_GR_API HitRecord {
  // The ObjectDraw that owns the item's source (null for other sources).
  voDMG::ObjectDraw* owner = nullptr;
  // The drawing (subsystem) id the item was emitted through.
  int id = 0;
  // The item's sub-item flag and label (which part of an object was hit).
  bool subObject = false;
  int label = 0;
  // The source the item was drawn for.
  const void* source = nullptr;
  ru::Reference<DrawItem> item;
  // Viewport depth of the hit point, 0 at the near plane to 1 at the far plane; 0 for an item in
  // viewport pixels.
  double depth = 0.0;
  // The hit point in world coordinates (viewport pixels for an item in viewport pixels).
  ruLinear::Point point;
  // The triangle hit (in the order the item draws them: the mesh's list, else its strips),
  // -1 for a line or point item.
  int triangle = -1;
  // The line (or, for an item of bare vertices, the vertex) nearest the pick point; -1 for a
  // triangle item.
  int line = -1;
};

// The items under a viewport point (pixels, y up, as Camera::getViewport places the viewport).
//
// Tested: the pickable, drawable, non-overlay items with a mesh in the database active on
// `system`. The pick disc is every pixel whose offset (dx, dy) from the pixel under the point has
// dx*dx + dy*dy <= radius*radius, clipped to the viewport, visited nearest the centre first.
// - Triangles: a ray from the eye through each disc pixel's centre (Embree, through libGeometry's
//   ray queries, so the acceleration structures are the shared ones). An item is seen at a pixel
//   when its hit is no farther along the ray than the nearest hit of any occluder there.
// - Lines (and meshes of bare vertices, as points): the segment or vertex whose projection comes
//   nearest the centre of the pixel under the point counts when it is within radius + 0.5
//   pixels; it is seen when its point there is no farther than the nearest occluder along the
//   ray through that place (with a small relative allowance, as drawn edges lie on faces).
// - Occluders: the tested world-space triangle items of depth interaction 0 that firstFilter
//   accepts. Items of the other depth interactions (x-ray) and items in viewport pixels are never
//   hidden.
// - Items in viewport pixels are tested in pixels (their z ignored) and come first.
// Items with a transformer are tested where its evaluate() places them now.
//
// `records` is replaced by one record per seen item that secondFilter accepts, for its disc
// pixel nearest the centre: items in viewport pixels first, then by depth, ties in the order
// the items joined the database. Returns the depth of the first record, FLT_MAX when there is
// none. A negative radius, a point outside the viewport (or not finite), no active database:
// no records. Runs on the draw system's thread; needs no OpenGL.
VO_GR_API float visibilityTest(const DrawSystem& system, const ruGeom::Camera& camera, const ruLinear::Point2& point,
                               const HitTestConfig& config, ru::vector<HitRecord>& records);

// True when the lists name the same things in the same order: owner, drawing id, label and
// sub-object flag of each record (not its item, depth or point), so re-emitting the object under
// the cursor is no change.
VO_GR_API bool equivalent(const ru::vector<HitRecord>& a, const ru::vector<HitRecord>& b);

}  // namespace voGR
