#pragma once

#include "platform/base/linear.h"
#include "platform/geometry/export.h"

namespace ruGeom {

// A rectangle of the window in pixels: origin at the lower left, x right, y up (as OpenGL has
// it). Window systems deliver cursor positions y-down: convert with y' = height - 1 - y first.
struct Viewport {
  double x = 0, y = 0;           // lower-left corner, pixels
  double width = 1, height = 1;  // size, pixels
  constexpr Viewport() noexcept = default;
  constexpr Viewport(double ox, double oy, double w, double h) noexcept : x(ox), y(oy), width(w), height(h) {}
  void setOrigin(double ox, double oy) noexcept { x = ox, y = oy; }
  void setSize(double w, double h) noexcept { width = w, height = h; }
  friend constexpr bool operator==(const Viewport& a, const Viewport& b) noexcept {
    return a.x == b.x && a.y == b.y && a.width == b.width && a.height == b.height;
  }
};

// A symmetric perspective frustum: the vertical angle of view in radians, the aspect ratio
// (width / height), and the near and far clip distances from the eye in world units.
struct AngleAspect {
  double angle = 0.7853981633974483;  // 45 degrees
  double aspect = 1.0;
  double nearDistance = 0.1;
  double farDistance = 1000.0;

  void setAngle(double radians) noexcept { angle = radians; }
  void setAspectRatio(double ratio) noexcept { aspect = ratio; }
  void setDepthRange(double nearValue, double farValue) noexcept {
    nearDistance = nearValue;
    farDistance = farValue;
  }
  double getAngle() const noexcept { return angle; }
  double getAspectRatio() const noexcept { return aspect; }
  double getNear() const noexcept { return nearDistance; }
  double getFar() const noexcept { return farDistance; }
  friend constexpr bool operator==(const AngleAspect& a, const AngleAspect& b) noexcept {
    return a.angle == b.angle && a.aspect == b.aspect && a.nearDistance == b.nearDistance &&
           a.farDistance == b.farDistance;
  }
};

// A perspective camera, a plain value. Eye space is right-handed: x right, y up, looking down -z.
// getWorldToViewport maps world points to viewport pixels (x, y, y up, origin at the viewport's
// lower left corner as in Viewport) and depth 0 at the near plane to 1 at the far plane. Matrices
// are for row vectors (p * M). The default camera stands at (0, 0, 10) looking at the origin with
// y up, a 1 by 1 viewport and the default AngleAspect.
class RU_GEOM_API Camera {
public:
  Camera() noexcept;

  void setViewport(const Viewport& viewport) noexcept { viewport_ = viewport; }
  const Viewport& getViewport() const noexcept { return viewport_; }

  void setFrustum(const AngleAspect& frustum) noexcept { frustum_ = frustum; }
  const AngleAspect& getFrustum() const noexcept { return frustum_; }
  // Same, for code that reads the frustum into a variable and sets it back.
  void getFrustum(AngleAspect& out) const noexcept { out = frustum_; }

  // Looks from `eye` at `target` with `up` giving the upward direction (it need not be orthogonal
  // to the view). Degenerate input (eye at target, up along the view) keeps a valid frame: the
  // view then defaults to -z and the up vector to an orthogonal one.
  void setWorldToEye(const ruLinear::Point& target, const ruLinear::Point& eye, const ruLinear::Vector& up) noexcept;

  // Unit camera frame in world space.
  const ruLinear::Vector& getViewVector() const noexcept { return view_; }
  const ruLinear::Vector& getRightVector() const noexcept { return right_; }
  const ruLinear::Vector& getUpVector() const noexcept { return up_; }
  const ruLinear::Point& getEyeLocation() const noexcept { return eye_; }
  const ruLinear::Point& getTarget() const noexcept { return target_; }

  // World to eye space (affine, rigid).
  ruLinear::AffineMatrix getWorldToEye() const noexcept;
  // Eye space to clip space (OpenGL convention, depth -1..1 before the division).
  ruLinear::ProjMatrix getProjection() const noexcept;
  // World to viewport (pixels, depth 0..1) and back.
  ruLinear::ProjMatrix getWorldToViewport() const noexcept;
  ruLinear::ProjMatrix getViewportToWorld() const noexcept;

  // The world-space ray from the eye through a viewport position (pixels, y up): the line's
  // point is the eye and its direction is a unit vector. The line is unbounded both ways.
  void getWorldSpaceRay(const ruLinear::Point2& viewportPosition, ruLinear::Line& ray) const noexcept;
  ruLinear::Line getWorldSpaceRay(const ruLinear::Point2& viewportPosition) const noexcept;

  // The viewport position (pixels, y up) of a world point. True when the point is in front of the
  // eye (strictly positive depth); no bounds or clip test. On false `out` is left unchanged.
  bool project(const ruLinear::Point& world, ruLinear::Point2& out) const noexcept;
  // The distance in pixels between the viewport positions of two world points; true (and `out`
  // set) only when both are in front of the eye.
  bool pixelDistance(const ruLinear::Point& a, const ruLinear::Point& b, double& out) const noexcept;
  // The world length that `pixels` pixels cover at eye depth `depth` (world units along the view).
  double pixelScaleForDepth(double depth, double pixels) const noexcept;
  // The eye depth of a world point: its distance from the eye along the view vector (negative
  // behind the eye).
  double screenDepthAtPoint(const ruLinear::Point& world) const noexcept;

  friend bool operator==(const Camera& a, const Camera& b) noexcept;

private:
  Viewport viewport_;
  AngleAspect frustum_;
  ruLinear::Point eye_;
  ruLinear::Point target_;
  ruLinear::Vector view_;
  ruLinear::Vector right_;
  ruLinear::Vector up_;
};

// Exact comparison of every field.
RU_GEOM_API bool operator==(const Camera& a, const Camera& b) noexcept;

}  // namespace ruGeom
