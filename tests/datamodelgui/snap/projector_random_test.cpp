#include "tests/datamodelgui/snap/projector_fixture.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <random>

// Projection against its closed form over random cameras, lines and planes, including rays that
// are nearly parallel to the constraint on either side of the library's parallel tolerance.

using ruLinear::distance;
using projectortest::Host;
using projectortest::kViewportSize;
using projectortest::pinholeRay;
using ruLinear::Line;
using ruLinear::Normal;
using ruLinear::Plane;
using ruLinear::Point;
using ruLinear::Point2;
using ruLinear::Vector;

namespace {

struct Random {
  std::mt19937_64 engine;
  explicit Random(unsigned seed) : engine(seed) {}
  double uniform(double low, double high) { return std::uniform_real_distribution<double>(low, high)(engine); }
  Vector direction() {
    for (;;) {
      const Vector v(uniform(-1, 1), uniform(-1, 1), uniform(-1, 1));
      if (v.length2() > 0.01 && v.length2() <= 1.0) return v.normalized();
    }
  }
  Point point(double extent) { return Point(uniform(-extent, extent), uniform(-extent, extent), uniform(-extent, extent)); }
  // A position inside the viewport, or around it a quarter of the time.
  Point2 position() {
    if (uniform(0, 1) < 0.25) return Point2(uniform(-200, kViewportSize + 200), uniform(-200, kViewportSize + 200));
    return Point2(uniform(0, kViewportSize), uniform(0, kViewportSize));
  }
  void camera(Host& host) {
    const Point target = point(20);
    const Point eye = target + direction() * uniform(2, 60);
    host.look(target, eye, direction(), uniform(0.2, 2.0));
  }
};

// `perpendicular` (a unit vector perpendicular to the unit ray) turned towards the ray by `angle`:
// as a plane normal, the ray then meets the plane at `angle`.
Vector tiltedFrom(const Vector& unitRay, const Vector& perpendicular, double angle) {
  return perpendicular * std::cos(angle) + unitRay * std::sin(angle);
}

// Where the ray meets the plane, or the foot of the eye when the squared sine of the angle between
// ray and plane is below the tolerance.
Point planeReference(const Line& ray, const Plane& plane, double& sine2) {
  const Vector d = ray.getDirection().normalized();
  const Vector n = plane.getNormal();
  const double dn = ruLinear::dot(d, n);
  sine2 = dn * dn;
  const double height = ruLinear::dot(ray.getPoint() - plane.getPoint(), n);
  if (sine2 < ruLinear::perpendicular2Tol) return ray.getPoint() - n * height;
  return ray.getPoint() + d * (-height / dn);
}

// The point of the line nearest the ray, or the foot of the eye on the line when the squared sine
// between their directions is below the tolerance.
Point lineReference(const Line& ray, const Line& line, double& sine2) {
  const Vector d = ray.getDirection().normalized();
  const Vector u = line.getDirection().normalized();
  const Vector w = ray.getPoint() - line.getPoint();
  const double b = ruLinear::dot(d, u);
  sine2 = ruLinear::cross(d, u).length2();
  if (sine2 < ruLinear::perpendicular2Tol) return line.getPoint() + u * ruLinear::dot(w, u);
  // Minimise |e + t d - (q + s u)|: s = (dot(u, w) - b dot(d, w)) / (1 - b^2).
  const double s = (ruLinear::dot(u, w) - b * ruLinear::dot(d, w)) / sine2;
  return line.getPoint() + u * s;
}

// The error allowed: the conditioning of the intersection grows as 1 / sine^2, with the size of
// the scene and of the result.
double allowance(double sine2, const Point& result, const Point& eye) {
  const double scale = std::max(1.0, distance(result, eye) + 60.0);
  return 1e-11 * scale / std::max(sine2, ruLinear::perpendicular2Tol);
}

}  // namespace

TEST(ProjectorRandom, PlaneProjectionMatchesTheClosedFormOverRandomCamerasAndPlanes) {
  Random random(20261123);
  int count = 0;
  for (int scene = 0; scene < 200; ++scene) {
    Host host;
    random.camera(host);
    const Plane plane(random.point(20), Normal(random.direction()));
    ru::Reference<voDMG::PlaneProjector> projector = voDMG::PlaneProjector::create(plane);
    for (int step = 0; step < 25; ++step, ++count) {
      const Point2 position = random.position();
      double sine2 = 0;
      const Point expected = planeReference(pinholeRay(host.camera(), position), plane, sine2);
      const Point result = projector->project(position);
      ASSERT_LE(distance(result, expected), allowance(sine2, expected, host.camera().getEyeLocation()))
          << "scene " << scene << " step " << step << " sine2 " << sine2;
      // On the plane, wherever the eye is.
      EXPECT_NEAR(ruLinear::dot(result - plane.getPoint(), Vector(plane.getNormal())), 0.0,
                  1e-9 * std::max(1.0, distance(result, plane.getPoint())));
    }
  }
  EXPECT_EQ(count, 5000);
}

TEST(ProjectorRandom, LineProjectionMatchesTheClosedFormOverRandomCamerasAndLines) {
  Random random(7);
  for (int scene = 0; scene < 200; ++scene) {
    Host host;
    random.camera(host);
    const Line line(random.point(20), random.direction() * random.uniform(0.1, 10));
    ru::Reference<voDMG::LineProjector> projector = voDMG::LineProjector::create(line);
    for (int step = 0; step < 25; ++step) {
      const Point2 position = random.position();
      double sine2 = 0;
      const Point expected = lineReference(pinholeRay(host.camera(), position), line, sine2);
      const Point result = projector->project(position);
      ASSERT_LE(distance(result, expected), allowance(sine2, expected, host.camera().getEyeLocation()))
          << "scene " << scene << " step " << step << " sine2 " << sine2;
    }
  }
}

TEST(ProjectorRandom, NearlyParallelPlanesFollowTheToleranceOfIntersect) {
  Random random(99);
  // Squared sines of 1e-4 and 1e-10 intersect; 1e-14 and 1e-18 fall back to the foot of the eye.
  const double angles[] = {1e-2, 1e-5, 1e-7, 1e-9};
  for (int scene = 0; scene < 100; ++scene) {
    Host host;
    random.camera(host);
    const Point2 position = random.position();
    const Line ray = host.camera().getWorldSpaceRay(position);
    const Vector d = ray.getDirection().normalized();
    const Vector inPlane = ruLinear::cross(d, random.direction()).normalized();
    for (double angle : angles) {
      // A normal perpendicular to the ray, turned towards it by `angle`: the ray meets the plane
      // at that angle.
      const Vector normal = tiltedFrom(d, inPlane, angle);
      const Plane plane(ray.getPoint() + d * random.uniform(1, 30) + inPlane * random.uniform(-3, 3), Normal(normal));
      ru::Reference<voDMG::PlaneProjector> projector = voDMG::PlaneProjector::create(plane);
      const Point result = projector->project(position);
      double sine2 = 0;
      const Point expected = planeReference(ray, plane, sine2);
      ASSERT_TRUE(std::isfinite(result.getX()) && std::isfinite(result.getY()) && std::isfinite(result.getZ()));
      if (angle < 1e-6) {
        // The fallback: the foot of the eye on the plane.
        const Point foot = ruLinear::project(ray.getPoint(), plane);
        EXPECT_LE(distance(result, foot), 1e-9) << "scene " << scene << " angle " << angle;
      } else {
        EXPECT_LE(distance(result, expected), allowance(sine2, expected, ray.getPoint()))
            << "scene " << scene << " angle " << angle;
        // Far along the ray: about the height of the eye over the plane divided by the sine.
        const double height = std::fabs(ruLinear::dot(ray.getPoint() - plane.getPoint(), Vector(plane.getNormal())));
        EXPECT_NEAR(distance(result, ray.getPoint()), height / std::sqrt(sine2),
                    1e-6 * height / std::sqrt(sine2) + 1e-9);
      }
    }
  }
}

TEST(ProjectorRandom, NearlyParallelLinesFollowTheToleranceOfIntersect) {
  Random random(1234);
  const double angles[] = {1e-2, 1e-5, 1e-7, 1e-9};
  for (int scene = 0; scene < 100; ++scene) {
    Host host;
    random.camera(host);
    const Point2 position = random.position();
    const Line ray = host.camera().getWorldSpaceRay(position);
    const Vector d = ray.getDirection().normalized();
    const Vector side = ruLinear::cross(d, random.direction()).normalized();
    for (double angle : angles) {
      // A line at `angle` to the ray, passing beside it.
      const Vector direction = d * std::cos(angle) + side * std::sin(angle);
      const Line line(ray.getPoint() + side * random.uniform(0.5, 3) + d * random.uniform(-5, 5), direction);
      ru::Reference<voDMG::LineProjector> projector = voDMG::LineProjector::create(line);
      const Point result = projector->project(position);
      ASSERT_TRUE(std::isfinite(result.getX()) && std::isfinite(result.getY()) && std::isfinite(result.getZ()));
      if (angle < 1e-6) {
        const Point foot = ruLinear::project(ray.getPoint(), line);
        EXPECT_LE(distance(result, foot), 1e-9) << "scene " << scene << " angle " << angle;
      } else {
        double sine2 = 0;
        const Point expected = lineReference(ray, line, sine2);
        EXPECT_LE(distance(result, expected), allowance(sine2, expected, ray.getPoint()))
            << "scene " << scene << " angle " << angle;
      }
    }
  }
}

TEST(ProjectorRandom, WorldPointsOnThePlaneProjectToThemselves) {
  Random random(42);
  for (int scene = 0; scene < 200; ++scene) {
    Host host;
    random.camera(host);
    const Plane plane(random.point(20), Normal(random.direction()));
    ru::Reference<voDMG::PlaneProjector> projector = voDMG::PlaneProjector::create(plane);
    const Point onPlane = ruLinear::project(random.point(30), plane);
    Point2 position;
    const Point result = projector->project(onPlane);
    if (!host.camera().project(onPlane, position)) {
      EXPECT_EQ(distance(result, onPlane), 0.0);  // no screen position: unchanged
      continue;
    }
    // A ray grazing the plane makes the round trip ill-conditioned; the allowance says by how much.
    const Vector d = (onPlane - host.camera().getEyeLocation()).normalized();
    const double dn = ruLinear::dot(d, Vector(plane.getNormal()));
    EXPECT_LE(distance(result, onPlane), allowance(dn * dn, onPlane, host.camera().getEyeLocation()) * 100)
        << "scene " << scene;
  }
}
