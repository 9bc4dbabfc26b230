#include "datamodelgui/draw/affordance.h"
#include "surfacefixture.h"

#include "platform/graphics/shader.h"

#include <gtest/gtest.h>

#include <cmath>
#include <vector>

using namespace surfacetest;

namespace {

const ruImage::TypedImage<ruImage::Byte4>& bytesOf(const ru::Reference<ruImage::Image>& image) {
  return *dynamic_cast<const ruImage::TypedImage<ruImage::Byte4>*>(image.get());
}

ru::Reference<ruImage::Image> render(SurfaceFixture& f, const std::string& name) {
  ru::Reference<ruImage::Image> image = f.surface->renderFrame(SurfaceFixture::frameParameters(kSize, kSize, false));
  EXPECT_TRUE(image);
  if (image) voGR::test::writeFrame(bytesOf(image), name);
  return image;
}

bool finite(const ruLinear::AffineMatrix& m) {
  for (int r = 0; r < 4; ++r)
    for (int c = 0; c < 3; ++c)
      if (!std::isfinite(m(r, c))) return false;
  return true;
}

const ruImage::Byte4 kGreen{0, 200, 0, 255};

}  // namespace

TEST(AffordanceTest, GetScreenSpaceScaleDoublesWhenThePointsDepthDoublesInAPerspectiveView) {
  const ruGeom::Camera camera = lookAt(ruLinear::Point(0, 0, 10), ruLinear::Point(0, 0, 0));
  const double near = voDMG::getScreenSpaceScale(camera, ruLinear::Point(1, 0, 5));
  const double far = voDMG::getScreenSpaceScale(camera, ruLinear::Point(2, 0, 0));
  EXPECT_GT(near, 0.0);
  EXPECT_NEAR(far / near, 2.0, 1e-9);
  // A pixel at depth 10 of a 256-pixel frame with a 45-degree view.
  EXPECT_NEAR(far, 2.0 * 10.0 * std::tan(0.7853981633974483 / 2.0) / kSize, 1e-9);
  // The same through the call context's camera.
  doctest::DocFixture doc;
  doc.document.camera()->set(camera);
  voSupport::CallInfo info;
  info.set<voDMD::Camera>(doc.document.camera());
  voSupport::CallScope scope(info);
  EXPECT_DOUBLE_EQ(voDMG::getScreenSpaceScale(ruLinear::Point(2, 0, 0)), far);
  const ruLinear::Line ray = voDMG::getWorldSpaceRay(ruLinear::Point2(128, 128));
  EXPECT_NEAR(ray.getDirection().getZ(), -1.0, 1e-2);
}

TEST(AffordanceTest, SetRotate90StoresHalfOfPi) {
  voSupport::CallInfo info;
  voSupport::CallScope scope(info);
  ru::Reference<voDMG::ImageOnPlane> image = new voDMG::ImageOnPlane("DMG//Missing", 3, 1.0, 2.0, 0.0);
  EXPECT_EQ(image->getRotation(), 0.0);
  image->setRotate(90);
  EXPECT_DOUBLE_EQ(image->getRotation(), ruLinear::pi / 2.0);
  ru::Reference<voDMG::ImageOnPlane> copy = new voDMG::ImageOnPlane(*image);
  EXPECT_DOUBLE_EQ(copy->getRotation(), ruLinear::pi / 2.0);
  EXPECT_EQ(copy->refCount(), 1);
}

TEST(AffordanceTest, AfterSetState1OnAnAffordanceWithoutAHighlightImageCurrentImageIsTheDefaultImage) {
  voRES::Loader loader;
  loader.addImage("DMG//Plain", solidImage(4, 4, kGreen));
  loader.addImage("DMG//States", "default", solidImage(4, 4, kGreen));
  loader.addImage("DMG//States", "highlight", solidImage(6, 6, kGreen));
  voSupport::CallInfo info;
  info.set<voRES::Loader>(&loader);
  voSupport::CallScope scope(info);

  ru::Reference<voDMG::ImageAtPoint> plain = new voDMG::ImageAtPoint("DMG//Plain", voDMG::AffordanceCentred);
  ASSERT_TRUE(plain->getDefaultImage().valid());
  plain->setState(voDMG::AffordanceHighlight);
  EXPECT_TRUE(plain->getCurrentImage() == plain->getDefaultImage());
  plain->setState(voDMG::AffordanceSelected);
  EXPECT_TRUE(plain->getCurrentImage() == plain->getDefaultImage());

  ru::Reference<voDMG::ImageAtPoint> states = new voDMG::ImageAtPoint("DMG//States", voDMG::AffordanceCentred);
  states->setState(voDMG::AffordanceHighlight);
  EXPECT_EQ(voRES::ImageKeyAccessor(states->getCurrentImage()).xSize(), 6);
  states->setState(7);  // unknown: keeps the image
  EXPECT_EQ(voRES::ImageKeyAccessor(states->getCurrentImage()).xSize(), 6);
  states->setState(voDMG::AffordanceSelected);  // no selected image
  EXPECT_TRUE(states->getCurrentImage() == states->getDefaultImage());
  EXPECT_EQ(voRES::ImageKeyAccessor(states->getCurrentImage()).xSize(), 4);

  // A missing resource leaves an invalid key, in every state.
  ru::Reference<voDMG::ImageAtPoint> missing = new voDMG::ImageAtPoint("DMG//Missing", voDMG::AffordanceCentred);
  missing->setState(voDMG::AffordanceHighlight);
  EXPECT_FALSE(missing->getCurrentImage().valid());
}

TEST(AffordanceTest, WithAlignment1AndA32By16ImageTheOffsetIs16And8PlusTheScreenOffset) {
  voRES::Loader loader;
  loader.addImage("DMG//Wide", solidImage(32, 16, kGreen));
  voSupport::CallInfo info;
  info.set<voRES::Loader>(&loader);
  voSupport::CallScope scope(info);
  ru::Reference<voDMG::ImageAtPoint> corner = new voDMG::ImageAtPoint("DMG//Wide", voDMG::AffordanceCorner);
  corner->setScreenOffset(3.0, -2.0);
  EXPECT_EQ(corner->getOffset(), ruLinear::Vector(19.0, 6.0, 0.0));
  ru::Reference<voDMG::ImageAtPoint> centred = new voDMG::ImageAtPoint("DMG//Wide", voDMG::AffordanceCentred);
  centred->setScreenOffset(3.0, -2.0);
  EXPECT_EQ(centred->getOffset(), ruLinear::Vector(3.0, -2.0, 0.0));
  // Copies carry every field.
  ru::Reference<voDMG::ImageAtPoint> copy = new voDMG::ImageAtPoint(*corner);
  EXPECT_EQ(copy->getOffset(), ruLinear::Vector(19.0, 6.0, 0.0));
  // The alignment by value: 1 is the corner, any other value centres.
  ru::Reference<voDMG::ImageAtPoint> byValue = new voDMG::ImageAtPoint("DMG//Wide", 1);
  EXPECT_EQ(byValue->getOffset(), ruLinear::Vector(16.0, 8.0, 0.0));
  ru::Reference<voDMG::ImageAtPoint> other = new voDMG::ImageAtPoint("DMG//Wide", 5);
  EXPECT_EQ(other->getOffset(), ruLinear::Vector(0.0, 0.0, 0.0));
}

TEST(AffordanceGLTest, ADashedLineWithALockedOriginOneFullSpanFromItsPointHasAPatternOffsetOf1) {
  doctest::DocFixture doc;
  doc.document.camera()->set(lookAt(ruLinear::Point(0, 0, 10), ruLinear::Point(0, 0, 0)));
  voSupport::CallInfo info;
  info.set<voDMD::Camera>(doc.document.camera());
  voSupport::CallScope scope(info);
  const ruLinear::Point origin(0.5, 0.25, -3.0);
  const double scale = voDMG::getScreenSpaceScale(origin);
  const ruLinear::Vector direction(1, 0, 0);
  ru::Reference<voDMG::DashedLine> line = new voDMG::DashedLine();
  EXPECT_EQ(line->getShader()->color, ruUtil::Color(0.35f, 0.35f, 0.35f, 1.0f));
  line->lockPatternOrigin(origin);
  std::unique_ptr<voGR::DrawSystem> system = voGR::DrawSystem::createOffscreen();
  ASSERT_TRUE(system);
  voGR::DrawContext context(system.get(), system->allocateID());
  int source = 0;
  line->setLine(ruLinear::Line(origin + direction * (600.0 * scale), direction));
  {
    voGR::Draw draw(context, &source, false);
    line->draw(draw);
    ASSERT_EQ(draw.getDrawData()->getItems().size(), 1u);
    const voGR::DrawItem& item = *draw.getDrawData()->getItems()[0];
    EXPECT_FALSE(item.isTriangles());
    EXPECT_TRUE(item.getShader() == ru::Reference<voGR::Shader>(line->getShader().get()));
    // The segment spans 600 pixels at the depth of the pattern origin.
    EXPECT_NEAR(item.getWorldBoundingBox().getMax().x - item.getWorldBoundingBox().getMin().x, 600.0 * scale, 1e-4);
  }
  EXPECT_FLOAT_EQ(line->getShader()->patternOffset, 1.0f);
  // Behind the origin along the direction, the offset is negative.
  line->setLine(ruLinear::Line(origin - direction * (300.0 * scale), direction));
  {
    voGR::Draw draw(context, &source, false);
    line->draw(draw);
  }
  EXPECT_FLOAT_EQ(line->getShader()->patternOffset, -0.5f);
}

TEST(AffordanceTest, ABillboardAnchoredBehindTheCameraStillGetsAMatrix) {
  doctest::DocFixture doc;
  doc.document.camera()->set(lookAt(ruLinear::Point(0, 0, 10), ruLinear::Point(0, 0, 0)));
  voSupport::CallInfo info;
  info.set<voDMD::Camera>(doc.document.camera());
  voSupport::CallScope scope(info);
  ru::Reference<voDMG::BillboardTransformer> behind =
      new voDMG::BillboardTransformer(ruLinear::Point(0, 0, 20), ruLinear::Vector(5, 0, 0));
  const ruLinear::AffineMatrix m = behind->evaluate();
  EXPECT_FALSE(m.isIdentity());
  EXPECT_TRUE(finite(m));
  // In front: local x is the camera's right, scaled to world units per pixel, at the anchor.
  const ruLinear::Point anchor(1, 2, 0);
  ru::Reference<voDMG::BillboardTransformer> front = new voDMG::BillboardTransformer(anchor, ruLinear::Vector::zero);
  const double scale = voDMG::getScreenSpaceScale(anchor);
  const ruLinear::Point origin = ruLinear::Point::origin * front->evaluate();
  EXPECT_NEAR((origin - anchor).length(), 0.0, 1e-9);
  const ruLinear::Vector x = ruLinear::Vector(1, 0, 0) * front->evaluate();
  EXPECT_NEAR(x.getX(), scale, 1e-9);
  // It follows the camera's change signal by itself.
  doc.document.camera()->set(lookAt(ruLinear::Point(0, 0, 30), ruLinear::Point(0, 0, 0)));
  const ruLinear::Vector x2 = ruLinear::Vector(1, 0, 0) * front->evaluate();
  EXPECT_NEAR(x2.getX(), voDMG::getScreenSpaceScale(anchor), 1e-9);
  EXPECT_GT(x2.getX(), 2.5 * scale);
}

TEST(AffordanceGLTest, BillboardKeepsItsPixelSizeAtTwoCameraDistances) {
  SurfaceFixture f;
  ASSERT_TRUE(f.system);
  f.loader.addImage("DMG//Marker", solidImage(24, 12, kGreen));
  ru::Reference<voDMG::ImageAtPoint> marker = new voDMG::ImageAtPoint("DMG//Marker", voDMG::AffordanceCentred);
  marker->setWorldPosition(ruLinear::Point(0, 0, 0));
  marker->setScreenOffset(40.0, 0.0);
  int source = 0;
  voGR::DrawItem* item = nullptr;
  {
    voGR::Draw draw(*f.context, &source, false);
    draw.setSpace(voGR::SpaceScreen);
    marker->draw(draw);
    ASSERT_EQ(draw.getDrawData()->getItems().size(), 1u);
    item = draw.getDrawData()->getItems()[0].get();
    EXPECT_EQ(f.worldsOf(item), "SSPW");
    EXPECT_TRUE(item->getTransformer());
    EXPECT_TRUE(item->hasImageKey());
  }
  int boxes[2][4];
  const double distances[2] = {8.0, 16.0};
  for (int i = 0; i < 2; ++i) {
    f.doc.document.camera()->set(lookAt(ruLinear::Point(0, 0, distances[i]), ruLinear::Point(0, 0, 0)));
    ru::Reference<ruImage::Image> image = render(f, i == 0 ? "billboard_near" : "billboard_far");
    ASSERT_TRUE(image);
    int* b = boxes[i];
    ASSERT_TRUE(pixelBox(bytesOf(image), kGreen, 40, b[0], b[1], b[2], b[3])) << i;
    EXPECT_NEAR(b[2] - b[0] + 1, 24, 1) << i;
    EXPECT_NEAR(b[3] - b[1] + 1, 12, 1) << i;
    // Centred 40 pixels right of the anchor's pixel (the frame's centre).
    EXPECT_NEAR((b[0] + b[2] + 1) / 2.0, kSize / 2.0 + 40.0, 1.0) << i;
    EXPECT_NEAR((b[1] + b[3] + 1) / 2.0, kSize / 2.0, 1.0) << i;
  }
  // The same item served both frames: the camera move needed no re-emission.
  ASSERT_EQ(f.system->getDrawData(&source, false)->getItems().size(), 1u);
  EXPECT_EQ(f.system->getDrawData(&source, false)->getItems()[0].get(), item);
}

TEST(AffordanceGLTest, ImageOnPlaneLiesOnItsPlaneInXRayAtPixelSize) {
  SurfaceFixture f;
  ASSERT_TRUE(f.system);
  f.loader.addImage("DMG//Tile", solidImage(40, 20, kGreen));
  ru::Reference<voDMG::ImageOnPlane> tile = new voDMG::ImageOnPlane("DMG//Tile", 5, ruLinear::Point2(1.0, 0.0), 0.0);
  // The xy plane, facing the camera at (0, 0, 10).
  tile->setPlane(ruLinear::ParamPlane());
  EXPECT_EQ(tile->origin(), ruLinear::Point::origin);
  int source = 0;
  {
    voGR::Draw draw(*f.context, &source, false);
    tile->draw(draw);
    const voGR::DrawItem& item = *draw.getDrawData()->getItems()[0];
    EXPECT_EQ(item.getLabel(), 5);
    EXPECT_EQ(item.getDepthInteraction(), voGR::DepthXRay);
    EXPECT_EQ(f.worldsOf(&item), "XRayW");
    // The draw state is left as found.
    const voGR::DrawItem& after = *draw.emit();
    EXPECT_EQ(after.getLabel(), 0);
    EXPECT_EQ(after.getDepthInteraction(), voGR::DepthNormal);
    EXPECT_FALSE(after.hasImageKey());
    EXPECT_TRUE(after.getTransform().isIdentity());
  }
  {
    voGR::Draw draw(*f.context, &source, false);
    tile->draw(draw);
  }
  ru::Reference<ruImage::Image> image = render(f, "image_on_plane");
  ASSERT_TRUE(image);
  int b[4];
  ASSERT_TRUE(pixelBox(bytesOf(image), kGreen, 40, b[0], b[1], b[2], b[3]));
  EXPECT_NEAR(b[2] - b[0] + 1, 40, 1);
  EXPECT_NEAR(b[3] - b[1] + 1, 20, 1);
  // Its centre is the plane's point (1, 0), right of the frame's centre.
  const double pixelsPerUnit = 1.0 / voDMG::getScreenSpaceScale(ruLinear::Point(1, 0, 0));
  EXPECT_NEAR((b[0] + b[2] + 1) / 2.0, kSize / 2.0 + pixelsPerUnit, 1.5);
  // Turned a quarter about its centre, it stands 20 by 40.
  tile->setRotate(90);
  {
    voGR::Draw draw(*f.context, &source, false);
    tile->draw(draw);
  }
  image = render(f, "image_on_plane_rotated");
  ASSERT_TRUE(pixelBox(bytesOf(image), kGreen, 40, b[0], b[1], b[2], b[3]));
  EXPECT_NEAR(b[2] - b[0] + 1, 20, 1);
  EXPECT_NEAR(b[3] - b[1] + 1, 40, 1);
}

TEST(AffordanceGLTest, DashedLineShowsThePatternOffset) {
  SurfaceFixture f;
  ASSERT_TRUE(f.system);
  ru::Reference<voDMG::DashedLine> line = new voDMG::DashedLine();
  const ruLinear::Point point(0, 0, 0);
  const ruLinear::Vector direction(1, 0, 0);
  line->setLine(ruLinear::Line(point, direction));
  int source = 0;
  // Which columns along the line's row are lit by a dash.
  auto litColumns = [&](const std::string& name) {
    {
      voGR::Draw draw(*f.context, &source, false);
      line->draw(draw);
    }
    std::vector<bool> lit(kSize, false);
    ru::Reference<ruImage::Image> image = render(f, name);
    if (!image) return lit;
    const auto& bytes = bytesOf(image);
    for (int x = 0; x < kSize; ++x)
      for (int y = kSize / 2 - 4; y <= kSize / 2 + 4; ++y)
        if (bytes.pixel(x, y).r > 78) lit[x] = true;
    return lit;
  };
  const std::vector<bool> plain = litColumns("dashed_plain");
  // Locked one dash (8 pixels) behind the point: the pattern moves by one dash, dashes take the
  // place of gaps.
  const double scale = voDMG::getScreenSpaceScale(point);
  line->lockPatternOrigin(point - direction * (8.0 * scale));
  const std::vector<bool> shifted = litColumns("dashed_shifted");
  EXPECT_NEAR(line->getShader()->patternOffset, 8.0f / 600.0f, 1e-6f);
  int litPlain = 0, litShifted = 0, both = 0;
  for (int x = 0; x < kSize; ++x) {
    litPlain += plain[x], litShifted += shifted[x];
    both += plain[x] && shifted[x];
  }
  // Dashes and gaps alternate every 8 pixels, so about half the row is lit.
  EXPECT_GT(litPlain, kSize / 3);
  EXPECT_LT(litPlain, 2 * kSize / 3);
  EXPECT_GT(litShifted, kSize / 3);
  EXPECT_LT(both, litPlain / 4);
}

TEST(AffordanceGLTest, TextIsABillboardOfConstantPixelSize) {
  SurfaceFixture f;
  ASSERT_TRUE(f.system);
  ruString::CString error;
  const voGR::Font font = voGR::Font::defaultFont(32, &error);
  ASSERT_TRUE(font.valid()) << error.c_str();
  int source = 0;
  {
    voGR::Draw draw(*f.context, &source, false);
    draw.setColor(0.0f, 1.0f, 0.0f, 1.0f);
    draw.setSpace(voGR::SpaceScreen);
    // The anchor goes through the Draw's transform: (0, 0, 0) lands at x = 1.
    draw.setTransform(ruLinear::AffineMatrix::translation(ruLinear::Vector(1, 0, 0)));
    voDMG::drawText(draw, "HH", ruLinear::Point(0, 0, 0), font,
                    voGR::TextLayout(voRES::TextAlign::Centre, voRES::TextAnchor::Centre));
    ASSERT_EQ(draw.getDrawData()->getItems().size(), 1u);
    const voGR::DrawItem& item = *draw.getDrawData()->getItems()[0];
    EXPECT_EQ(f.worldsOf(&item), "SSPW");
    EXPECT_TRUE(item.getTransformer());
    // The transformer is not left on the Draw; the space stays at 0.
    const voGR::DrawItem& after = *draw.emit();
    EXPECT_FALSE(after.getTransformer());
    EXPECT_EQ(after.getSpace(), voGR::SpaceWorld);
  }
  int boxes[2][4];
  const double distances[2] = {8.0, 16.0};
  for (int i = 0; i < 2; ++i) {
    f.doc.document.camera()->set(lookAt(ruLinear::Point(0, 0, distances[i]), ruLinear::Point(0, 0, 0)));
    ru::Reference<ruImage::Image> image = render(f, i == 0 ? "text_near" : "text_far");
    ASSERT_TRUE(image);
    int* b = boxes[i];
    ASSERT_TRUE(pixelBox(bytesOf(image), ruImage::Byte4{0, 255, 0, 255}, 60, b[0], b[1], b[2], b[3])) << i;
    // Centred on the anchor's pixel.
    const double pixelsPerUnit = 1.0 / voDMG::getScreenSpaceScale(ruLinear::Point(1, 0, 0));
    EXPECT_NEAR((b[0] + b[2] + 1) / 2.0, kSize / 2.0 + pixelsPerUnit, 3.0) << i;
    EXPECT_NEAR((b[1] + b[3] + 1) / 2.0, kSize / 2.0, 3.0) << i;
    // Capital H of a 32-pixel font: about 23 pixels tall.
    EXPECT_GT(b[3] - b[1] + 1, 16) << i;
    EXPECT_LT(b[3] - b[1] + 1, 32) << i;
  }
  EXPECT_NEAR(boxes[0][2] - boxes[0][0], boxes[1][2] - boxes[1][0], 1);
  EXPECT_NEAR(boxes[0][3] - boxes[0][1], boxes[1][3] - boxes[1][1], 1);
}

TEST(AffordanceGLTest, DrawBillboardEmitsAWhitePixelSizedImageAndTakesItsImageAndTransformerOff) {
  SurfaceFixture f;
  ASSERT_TRUE(f.system);
  f.loader.addImage("DMG//Wide", solidImage(32, 16, kGreen));
  const voRES::ImageKey key = f.loader.createImageKey("DMG//Wide", 0);
  ASSERT_TRUE(key.valid());
  int source = 0;
  voGR::Draw draw(*f.context, &source, false);
  draw.setSpace(voGR::SpaceScreen);
  draw.setColor(1.0f, 0.0f, 0.0f, 1.0f);
  voDMG::drawBillboard(draw, key, ruLinear::Point(1, 2, 0), ruLinear::Vector(0, 0, 0));
  ASSERT_EQ(draw.getDrawData()->getItems().size(), 1u);
  const voGR::DrawItem& item = *draw.getDrawData()->getItems()[0];
  EXPECT_EQ(item.getSpace(), voGR::SpaceWorld);
  EXPECT_EQ(item.getColor(), ruUtil::Color(1.0f, 1.0f, 1.0f, 1.0f));
  EXPECT_TRUE(item.getImageKey() == key);
  EXPECT_TRUE(dynamic_cast<voDMG::BillboardTransformer*>(item.getTransformer().get()));
  EXPECT_TRUE(item.isTriangles());
  // In local units, which are pixels: the image's size, centred, flat in z.
  ASSERT_NE(item.getMesh(), nullptr);
  const ruGeom::BoundingBox local = item.getGeometry()->getBoundingBox();
  EXPECT_EQ(local.getMin(), ruLinear::Point(-16, -8, 0));
  EXPECT_EQ(local.getMax(), ruLinear::Point(16, 8, 0));
  // The image and the transformer are taken off the Draw; the space stays at 0.
  const voGR::DrawItem& after = *draw.emit();
  EXPECT_FALSE(after.hasImageKey());
  EXPECT_FALSE(after.getTransformer());
  EXPECT_EQ(after.getSpace(), voGR::SpaceWorld);
}

TEST(AffordanceGLTest, ImageOnPlaneIsLiftedByItsNormalOffsetAndPutsTheTransformBack) {
  SurfaceFixture f;
  ASSERT_TRUE(f.system);
  f.loader.addImage("DMG//Tile", solidImage(40, 20, kGreen));
  // Lifted by a tenth of its distance to the eye.
  ru::Reference<voDMG::ImageOnPlane> tile = new voDMG::ImageOnPlane("DMG//Tile", 2, 0.0, 0.0, 0.1);
  tile->setPlane(ruLinear::ParamPlane());
  int source = 0;
  voGR::Draw draw(*f.context, &source, false);
  const ruLinear::AffineMatrix before = ruLinear::AffineMatrix::translation(ruLinear::Vector(3, 0, 0));
  draw.setTransform(before);
  draw.setLabel(9);
  tile->draw(draw);
  const voGR::DrawItem& item = *draw.getDrawData()->getItems()[0];
  EXPECT_EQ(item.getColor(), ruUtil::Color(1.0f, 1.0f, 1.0f, 0.99f));
  EXPECT_EQ(item.getLabel(), 2);
  // The transform is the rotation alone (none at 0 degrees), not the one the Draw had.
  EXPECT_TRUE(item.getTransform().isIdentity());
  const double scale = voDMG::getScreenSpaceScale(ruLinear::Point::origin);
  const ruGeom::BoundingBox box = item.getWorldBoundingBox();
  ASSERT_TRUE(box.valid());
  EXPECT_NEAR(box.getMax().x - box.getMin().x, 40 * scale, 1e-6);
  EXPECT_NEAR(box.getMax().y - box.getMin().y, 20 * scale, 1e-6);
  // The rectangle's origin is 10 from the eye at (0, 0, 10) when unlifted: lifted along +z.
  const ruLinear::Point corner(-20 * scale, -10 * scale, 0);
  const double d = (corner - ruLinear::Point(0, 0, 10)).length();
  EXPECT_NEAR(box.getMin().z, 0.1 * d, 1e-5);
  EXPECT_NEAR(box.getMax().z, 0.1 * d, 1e-5);
  // pushTransform and popTransform put the Draw's transform back; the label goes to 0.
  const voGR::DrawItem& after = *draw.emit();
  EXPECT_EQ(after.getTransform(), before);
  EXPECT_EQ(after.getLabel(), 0);
}

TEST(AffordanceGLTest, ABillboardsTransformerDiesWithItsItemAndTakesItsCameraConnectionAlong) {
  SurfaceFixture f;
  ASSERT_TRUE(f.system);
  f.loader.addImage("DMG//Wide", solidImage(32, 16, kGreen));
  const voRES::ImageKey key = f.loader.createImageKey("DMG//Wide", 0);
  voDMD::Camera* camera = f.doc.document.camera();
  const int before = camera->sigCameraChanged.numConnections();
  int source = 0;
  {
    voGR::Draw draw(*f.context, &source, false);
    voDMG::drawBillboard(draw, key, ruLinear::Point(0, 0, 0), ruLinear::Vector(0, 0, 0));
  }
  EXPECT_EQ(camera->sigCameraChanged.numConnections(), before + 1);
  {
    // Emitting nothing for the source drops the item, and with it the transformer.
    voGR::Draw draw(*f.context, &source, false);
  }
  EXPECT_EQ(camera->sigCameraChanged.numConnections(), before);
}
