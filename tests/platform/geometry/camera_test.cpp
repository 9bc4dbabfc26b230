#include "platform/geometry/camera.h"

#include <gtest/gtest.h>

#include <cmath>
#include <random>

using namespace ruGeom;
using ruLinear::Line;
using ruLinear::Point;
using ruLinear::Point2;
using ruLinear::Vector;

namespace {

Camera makeCamera() {
  Camera camera;
  camera.setViewport(Viewport(0, 0, 800, 600));
  AngleAspect frustum = camera.getFrustum();
  frustum.setAngle(0.4363323129985824);
  frustum.setAspectRatio(800.0 / 600.0);
  frustum.setDepthRange(1, 200);
  camera.setFrustum(frustum);
  camera.setWorldToEye(Point(0, 0, 0), Point(50, -50, 50), Vector(0, 0, 1));
  return camera;
}

double distanceToLine(const Point& p, const Line& line) {
  return ruLinear::distance(p, ruLinear::project(p, line));
}

}  // namespace

TEST(Camera, IsAPlainValueThatCopies) {
  Camera a = makeCamera();
  Camera b = a;
  EXPECT_TRUE(a == b);
  b.setWorldToEye(Point(1, 0, 0), Point(0, 0, 5), Vector(0, 1, 0));
  EXPECT_FALSE(a == b);
}

TEST(Camera, SetWorldToEyeGivesAnOrthonormalFrameLookingAtTheTarget) {
  const Camera camera = makeCamera();
  EXPECT_EQ(camera.getEyeLocation(), Point(50, -50, 50));
  const Vector toTarget = (Point(0, 0, 0) - Point(50, -50, 50)).normalized();
  EXPECT_NEAR(ruLinear::distance(Point() + camera.getViewVector(), Point() + toTarget), 0, 1e-12);
  EXPECT_NEAR(camera.getRightVector().length(), 1, 1e-12);
  EXPECT_NEAR(camera.getUpVector().length(), 1, 1e-12);
  EXPECT_NEAR(ruLinear::dot(camera.getRightVector(), camera.getViewVector()), 0, 1e-12);
  EXPECT_NEAR(ruLinear::dot(camera.getUpVector(), camera.getViewVector()), 0, 1e-12);
  EXPECT_GT(camera.getUpVector().getZ(), 0);  // up stays on the side of the given up vector
  // right = view x up: a right-handed frame.
  const Vector right = ruLinear::cross(camera.getViewVector(), camera.getUpVector());
  EXPECT_NEAR(ruLinear::distance(Point() + right, Point() + camera.getRightVector()), 0, 1e-12);
}

TEST(Camera, UpAlongTheViewStillGivesAValidFrame) {
  Camera camera;
  camera.setWorldToEye(Point(0, 0, 0), Point(0, 0, 10), Vector(0, 0, 1));
  EXPECT_NEAR(camera.getRightVector().length(), 1, 1e-12);
  EXPECT_NEAR(camera.getUpVector().length(), 1, 1e-12);
  EXPECT_TRUE(std::isfinite(camera.getWorldToViewport()(0, 0)));
}

TEST(Camera, ProjectThenRayThroughThePixelReturnsToThePoint) {
  const Camera camera = makeCamera();
  std::mt19937 random(7);
  std::uniform_real_distribution<double> coordinate(-10, 10);
  for (int i = 0; i < 200; ++i) {
    const Point p(coordinate(random), coordinate(random), coordinate(random));
    Point2 pixel;
    ASSERT_TRUE(camera.project(p, pixel));
    Line ray;
    camera.getWorldSpaceRay(pixel, ray);
    EXPECT_EQ(ray.getPoint(), camera.getEyeLocation());
    EXPECT_NEAR(ray.getDirection().length(), 1, 1e-12);
    EXPECT_LT(distanceToLine(p, ray), 1e-9);
    // The value form gives the same ray.
    const Line same = camera.getWorldSpaceRay(pixel);
    EXPECT_NEAR(ruLinear::distance(Point() + same.getDirection(), Point() + ray.getDirection()), 0, 1e-15);
  }
}

TEST(Camera, WorldToViewportAgreesWithProjectAndMapsDepthZeroToOne) {
  const Camera camera = makeCamera();
  const ruLinear::ProjMatrix m = camera.getWorldToViewport();
  const Point p(3, -2, 4);
  Point2 pixel;
  ASSERT_TRUE(camera.project(p, pixel));
  const Point q = p * m;
  EXPECT_NEAR(q.x, pixel.x, 1e-9);
  EXPECT_NEAR(q.y, pixel.y, 1e-9);
  EXPECT_GT(q.z, 0);
  EXPECT_LT(q.z, 1);
  const Vector view = camera.getViewVector();
  const Point nearPoint = camera.getEyeLocation() + view * 1.0;
  const Point farPoint = camera.getEyeLocation() + view * 200.0;
  EXPECT_NEAR((nearPoint * m).z, 0.0, 1e-9);
  EXPECT_NEAR((farPoint * m).z, 1.0, 1e-9);
  // The centre of the view lands at the centre of the viewport.
  EXPECT_NEAR((nearPoint * m).x, 400, 1e-9);
  EXPECT_NEAR((nearPoint * m).y, 300, 1e-9);
}

TEST(Camera, ViewportToWorldInvertsWorldToViewport) {
  const Camera camera = makeCamera();
  const Point p(1, 2, 3);
  const Point back = (p * camera.getWorldToViewport()) * camera.getViewportToWorld();
  EXPECT_NEAR(ruLinear::distance(p, back), 0, 1e-7);
}

TEST(Camera, ViewportCornersMapToTheFrustumEdges) {
  const Camera camera = makeCamera();
  const double halfHeight = std::tan(0.5 * 0.4363323129985824);
  const double halfWidth = halfHeight * 800.0 / 600.0;
  struct Corner {
    double x, y, sx, sy;
  } corners[] = {{0, 0, -1, -1}, {800, 0, 1, -1}, {0, 600, -1, 1}, {800, 600, 1, 1}};
  for (const Corner& c : corners) {
    const Line ray = camera.getWorldSpaceRay(Point2(c.x, c.y));
    const Vector d = ray.getDirection();
    const double depth = ruLinear::dot(d, camera.getViewVector());
    EXPECT_NEAR(ruLinear::dot(d, camera.getRightVector()) / depth, c.sx * halfWidth, 1e-12);
    EXPECT_NEAR(ruLinear::dot(d, camera.getUpVector()) / depth, c.sy * halfHeight, 1e-12);
  }
}

TEST(Camera, ViewportYRunsUpward) {
  const Camera camera = makeCamera();
  Point2 low, high;
  const Point centre(0, 0, 0);
  ASSERT_TRUE(camera.project(centre, low));
  ASSERT_TRUE(camera.project(centre + camera.getUpVector(), high));
  EXPECT_GT(high.y, low.y);
  Point2 right;
  ASSERT_TRUE(camera.project(centre + camera.getRightVector(), right));
  EXPECT_GT(right.x, low.x);
}

TEST(Camera, ADefaultCameraLooksDownMinusZFromTenWithYUp) {
  const Camera camera;
  EXPECT_EQ(camera.getEyeLocation(), Point(0, 0, 10));
  EXPECT_EQ(camera.getViewVector(), Vector(0, 0, -1));
  EXPECT_EQ(camera.getUpVector(), Vector(0, 1, 0));
  EXPECT_EQ(camera.getRightVector(), Vector(1, 0, 0));
  EXPECT_EQ(camera.getViewport(), Viewport(0, 0, 1, 1));
}

TEST(Camera, ViewportTakesOriginAndSizeAsDoubles) {
  Camera camera;
  Viewport viewport;
  viewport.setOrigin(0, 0);
  viewport.setSize(640.0, 480.0);
  camera.setViewport(viewport);
  EXPECT_EQ(camera.getViewport().width, 640.0);
  EXPECT_EQ(camera.getViewport().height, 480.0);
}

TEST(Camera, ViewportOriginOffsetsThePixels) {
  Camera camera = makeCamera();
  Point2 before, after;
  ASSERT_TRUE(camera.project(Point(1, 1, 1), before));
  camera.setViewport(Viewport(10, 20, 800, 600));
  ASSERT_TRUE(camera.project(Point(1, 1, 1), after));
  EXPECT_NEAR(after.x - before.x, 10, 1e-9);
  EXPECT_NEAR(after.y - before.y, 20, 1e-9);
}

TEST(Camera, WithAnOffsetViewportProjectThenRayThroughThePixelReturnsToThePoint) {
  Camera camera = makeCamera();
  camera.setViewport(Viewport(10, 20, 800, 600));
  std::mt19937 random(11);
  std::uniform_real_distribution<double> coordinate(-10, 10);
  for (int i = 0; i < 200; ++i) {
    const Point p(coordinate(random), coordinate(random), coordinate(random));
    Point2 pixel;
    ASSERT_TRUE(camera.project(p, pixel));
    const Line ray = camera.getWorldSpaceRay(pixel);
    EXPECT_EQ(ray.getPoint(), camera.getEyeLocation());
    EXPECT_LT(distanceToLine(p, ray), 1e-9);
    // The point lies ahead along the ray, not behind the eye.
    EXPECT_GT(ruLinear::dot(p - ray.getPoint(), ray.getDirection()), 0);
  }
  // The viewport's centre pixel looks along the view.
  const Line centre = camera.getWorldSpaceRay(Point2(10 + 400, 20 + 300));
  EXPECT_NEAR(ruLinear::distance(Point() + centre.getDirection(), Point() + camera.getViewVector()), 0, 1e-12);
}

TEST(Camera, WithAnOffsetViewportWorldToViewportAgreesWithProject) {
  Camera camera = makeCamera();
  camera.setViewport(Viewport(10, 20, 800, 600));
  const ruLinear::ProjMatrix m = camera.getWorldToViewport();
  std::mt19937 random(13);
  std::uniform_real_distribution<double> coordinate(-10, 10);
  for (int i = 0; i < 200; ++i) {
    const Point p(coordinate(random), coordinate(random), coordinate(random));
    Point2 pixel;
    ASSERT_TRUE(camera.project(p, pixel));
    const Point q = p * m;
    EXPECT_NEAR(q.x, pixel.x, 1e-9);
    EXPECT_NEAR(q.y, pixel.y, 1e-9);
  }
  const Point nearPoint = camera.getEyeLocation() + camera.getViewVector() * 1.0;
  EXPECT_NEAR((nearPoint * m).x, 410, 1e-9);
  EXPECT_NEAR((nearPoint * m).y, 320, 1e-9);
}

TEST(Camera, ProjectIsFalseBehindTheEye) {
  const Camera camera = makeCamera();
  Point2 pixel(-7, -7);
  const Point behind = camera.getEyeLocation() - camera.getViewVector() * 5.0;
  EXPECT_FALSE(camera.project(behind, pixel));
  EXPECT_EQ(pixel, Point2(-7, -7));
  EXPECT_FALSE(camera.project(camera.getEyeLocation(), pixel));
  // In front but outside the viewport and before the near plane still has a screen position.
  EXPECT_TRUE(camera.project(camera.getEyeLocation() + camera.getViewVector() * 0.01 + camera.getRightVector() * 10.0, pixel));
  EXPECT_GT(pixel.x, 800);
}

TEST(Camera, PixelScaleForDepthDoublesWhenDepthDoubles) {
  const Camera camera = makeCamera();
  const double one = camera.pixelScaleForDepth(10, 1.0);
  EXPECT_GT(one, 0);
  EXPECT_NEAR(camera.pixelScaleForDepth(20, 1.0), 2 * one, 1e-15);
  EXPECT_NEAR(camera.pixelScaleForDepth(10, 3.0), 3 * one, 1e-15);
  // One pixel's world length, measured back through project.
  const Point p = camera.getEyeLocation() + camera.getViewVector() * 10.0;
  double pixels = 0;
  ASSERT_TRUE(camera.pixelDistance(p, p + camera.getUpVector() * one, pixels));
  EXPECT_NEAR(pixels, 1.0, 1e-9);
}

TEST(Camera, ScreenDepthAtPointIsTheDistanceAlongTheView) {
  const Camera camera = makeCamera();
  const Point p = camera.getEyeLocation() + camera.getViewVector() * 12.5 + camera.getRightVector() * 3.0;
  EXPECT_NEAR(camera.screenDepthAtPoint(p), 12.5, 1e-12);
  EXPECT_NEAR(camera.screenDepthAtPoint(camera.getEyeLocation() - camera.getViewVector()), -1.0, 1e-12);
}

TEST(Camera, PixelDistanceIsFalseWhenAPointIsBehindTheEye) {
  const Camera camera = makeCamera();
  double out = 42;
  EXPECT_FALSE(camera.pixelDistance(Point(0, 0, 0), camera.getEyeLocation() - camera.getViewVector(), out));
  EXPECT_EQ(out, 42);
  EXPECT_TRUE(camera.pixelDistance(Point(0, 0, 0), Point(0, 0, 0), out));
  EXPECT_EQ(out, 0);
}

TEST(Camera, FrustumReadAsAngleAspectIsSetBack) {
  Camera camera;
  AngleAspect frustum;
  camera.getFrustum(frustum);
  frustum.setAspectRatio(2.0);
  camera.setFrustum(frustum);
  EXPECT_EQ(camera.getFrustum().getAspectRatio(), 2.0);
  EXPECT_EQ(camera.getFrustum().getAngle(), frustum.getAngle());
}
