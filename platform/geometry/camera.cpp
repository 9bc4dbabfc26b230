#include "platform/geometry/camera.h"

#include <algorithm>
#include <cmath>

namespace ruGeom {

using ruLinear::AffineMatrix;
using ruLinear::Point;
using ruLinear::Point2;
using ruLinear::ProjMatrix;
using ruLinear::Vector;

Camera::Camera() noexcept { setWorldToEye(Point(0, 0, 0), Point(0, 0, 10), Vector(0, 1, 0)); }

void Camera::setWorldToEye(const Point& target, const Point& eye, const Vector& up) noexcept {
  eye_ = eye;
  target_ = target;
  view_ = target - eye;
  if (view_.length2() == 0.0) view_ = Vector(0, 0, -1);
  view_.normalize();
  right_ = ruLinear::cross(view_, up);
  if (right_.length2() < 1e-24) right_ = view_.orthogonalVector();
  right_.normalize();
  up_ = ruLinear::cross(right_, view_);
  up_.normalize();
}

AffineMatrix Camera::getWorldToEye() const noexcept {
  // Rows for row vectors: the columns are the eye axes right, up and back (-view).
  const Vector back = -view_;
  AffineMatrix m(Vector(right_.getX(), up_.getX(), back.getX()), Vector(right_.getY(), up_.getY(), back.getY()),
                 Vector(right_.getZ(), up_.getZ(), back.getZ()),
                 Vector(-ruLinear::dot(eye_.asVector(), right_), -ruLinear::dot(eye_.asVector(), up_),
                        -ruLinear::dot(eye_.asVector(), back)));
  return m;
}

ProjMatrix Camera::getProjection() const noexcept {
  const double f = 1.0 / std::tan(0.5 * frustum_.angle);
  const double n = frustum_.nearDistance, fa = frustum_.farDistance;
  ProjMatrix p;
  p(0, 0) = f / frustum_.aspect;
  p(1, 1) = f;
  p(2, 2) = (fa + n) / (n - fa);
  p(2, 3) = -1.0;
  p(3, 2) = 2.0 * fa * n / (n - fa);
  p(3, 3) = 0.0;
  return p;
}

ProjMatrix Camera::getWorldToViewport() const noexcept {
  ProjMatrix v;
  v(0, 0) = 0.5 * viewport_.width;
  v(1, 1) = 0.5 * viewport_.height;
  v(2, 2) = 0.5;
  v(3, 0) = viewport_.x + 0.5 * viewport_.width;
  v(3, 1) = viewport_.y + 0.5 * viewport_.height;
  v(3, 2) = 0.5;
  return ProjMatrix(getWorldToEye()) * getProjection() * v;
}

ProjMatrix Camera::getViewportToWorld() const noexcept { return getWorldToViewport().inverse(); }

void Camera::getWorldSpaceRay(const Point2& position, ruLinear::Line& ray) const noexcept {
  // Through the eye-space point of the position on the plane at unit depth.
  const double t = std::tan(0.5 * frustum_.angle);
  const double ndcX = viewport_.width != 0 ? 2.0 * (position.x - viewport_.x) / viewport_.width - 1.0 : 0.0;
  const double ndcY = viewport_.height != 0 ? 2.0 * (position.y - viewport_.y) / viewport_.height - 1.0 : 0.0;
  Vector direction = view_ + right_ * (ndcX * t * frustum_.aspect) + up_ * (ndcY * t);
  direction.normalize();
  ray = ruLinear::Line(eye_, direction);
}

ruLinear::Line Camera::getWorldSpaceRay(const Point2& position) const noexcept {
  ruLinear::Line ray;
  getWorldSpaceRay(position, ray);
  return ray;
}

bool Camera::project(const Point& world, Point2& out) const noexcept {
  const double depth = screenDepthAtPoint(world);
  if (!(depth > 1e-12 * std::max(1.0, frustum_.nearDistance))) return false;
  const Vector d = world - eye_;
  const double t = std::tan(0.5 * frustum_.angle);
  const double ndcX = ruLinear::dot(d, right_) / (depth * t * frustum_.aspect);
  const double ndcY = ruLinear::dot(d, up_) / (depth * t);
  out.x = viewport_.x + 0.5 * (ndcX + 1.0) * viewport_.width;
  out.y = viewport_.y + 0.5 * (ndcY + 1.0) * viewport_.height;
  return true;
}

bool Camera::pixelDistance(const Point& a, const Point& b, double& out) const noexcept {
  Point2 pa, pb;
  if (!project(a, pa) || !project(b, pb)) return false;
  out = ruLinear::distance(pa, pb);
  return true;
}

double Camera::pixelScaleForDepth(double depth, double pixels) const noexcept {
  if (viewport_.height == 0) return 0.0;
  return pixels * 2.0 * depth * std::tan(0.5 * frustum_.angle) / viewport_.height;
}

double Camera::screenDepthAtPoint(const Point& world) const noexcept { return ruLinear::dot(world - eye_, view_); }

bool operator==(const Camera& a, const Camera& b) noexcept {
  return a.viewport_ == b.viewport_ && a.frustum_ == b.frustum_ && a.eye_ == b.eye_ && a.target_ == b.target_ &&
         a.view_ == b.view_ && a.up_ == b.up_ && a.right_ == b.right_;
}

}  // namespace ruGeom
