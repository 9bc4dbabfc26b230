#include "printfixture.h"

#include "platform/datamodel/actions.h"
#include "platform/geometry/mesh.h"
#include "platform/support/debug.h"

#include <gtest/gtest.h>

#include <cmath>
#include <cstdint>
#include <string>
#include <utility>
#include <vector>

namespace {

using printtest::cuboid;
using printtest::translation;
using voDMG::KLTMeshDraw;
using voDMG::KLTMeshDrawPolicy;

const ruLinear::Range3d kUnitCube(ruLinear::Point(-0.5, -0.5, -0.5), ruLinear::Point(0.5, 0.5, 0.5));

// A flat sheet of `count` vertices on a grid 256 wide, every vertex used by some triangle.
ru::Reference<ruGeom::CompactMesh> sheet(int count) {
  ru::Reference<ruGeom::CompactMesh> mesh = new ruGeom::CompactMesh();
  const int width = 256;
  for (int i = 0; i < count; ++i) mesh->addVertex(ruLinear::Point(i % width, i / width, 0));
  for (int i = 0; i + width + 1 < count; ++i) {
    if (i % width == width - 1) continue;
    mesh->addTriangle(i, i + 1, i + width);
    mesh->addTriangle(i + 1, i + width + 1, i + width);
  }
  // The last row: fan its leftover vertices onto the row above so each is used.
  for (int i = count - width - 1; i < count - 1; ++i) {
    if (i < 1) continue;
    mesh->addTriangle(i - 1, i, i + 1);
  }
  return mesh;
}

ruUtil::Color colorOf(const voGR::DrawItem* item) {
  if (auto* faceted = dynamic_cast<const voGR::KLTFacetedShader*>(item->getShader().get())) return faceted->color;
  if (auto* thick = dynamic_cast<const voGR::KLTThicknessShader*>(item->getShader().get())) return thick->color;
  return item->getColor();
}

bool same(const ruUtil::Color& a, const ruUtil::Color& b) { return a.r == b.r && a.g == b.g && a.b == b.b && a.a == b.a; }

class KLTMeshDrawGLTest : public ::testing::Test, public printtest::PrintFixture {};

TEST_F(KLTMeshDrawGLTest, RegistrationMakesPrintDrawsAndInstallsThePolicy) {
  voDMD::Object* object = addPrintMesh(cuboid(kUnitCube));
  EXPECT_NE(drawOf(object), nullptr);
  ASSERT_NE(policy(), nullptr);
  EXPECT_FALSE(policy()->getChangeDrawStatesForReport());
  EXPECT_EQ(broadcaster.numHandlers(typeid(voDMG::RegisterObjectDrawMsg)), 1u);
  EXPECT_EQ(broadcaster.numHandlers(typeid(voDMD::NewDocumentMsg)), 1u);
  // A second initialize adds nothing.
  voDMG::initialize();
  EXPECT_EQ(broadcaster.numHandlers(typeid(voDMG::RegisterObjectDrawMsg)), 1u);
}

TEST_F(KLTMeshDrawGLTest, NewDocumentGetsAFreshPolicyWithReportFlagOff) {
  KLTMeshDrawPolicy* before = policy();
  before->setChangeDrawStatesForReport(true);
  voDMD::NewDocumentMsg message(&doc.document);
  broadcaster.broadcast(message);
  ASSERT_NE(policy(), nullptr);
  EXPECT_NE(policy(), before);
  EXPECT_FALSE(policy()->getChangeDrawStatesForReport());
}

TEST_F(KLTMeshDrawGLTest, MeshOneVertexShortOf65535YieldsOnePart) {
  ru::Reference<ruGeom::CompactMesh> mesh = sheet(65534);
  ASSERT_EQ(mesh->getNumVertices(), 65534);
  voDMD::Object* object = addPrintMesh(mesh);
  redraw();
  const auto& parts = drawOf(object)->getParts();
  ASSERT_EQ(parts.size(), 1u);
  // Not analysed: the part is the model's own mesh.
  EXPECT_EQ(parts[0].get(), meshOf(object)->getMesh().get());
  EXPECT_EQ(itemsOf(object).size(), 1u);
}

TEST_F(KLTMeshDrawGLTest, MeshOfExactly65535VerticesGoesThroughMeshSplit) {
  ru::Reference<ruGeom::CompactMesh> mesh = sheet(65535);
  voDMD::Object* object = addPrintMesh(mesh);
  redraw();
  const auto& parts = drawOf(object)->getParts();
  // The split keeps all 65535 vertices in one part (its limit is inclusive): the part is the
  // split's own copy, not the model's mesh.
  ASSERT_EQ(parts.size(), 1u);
  EXPECT_NE(parts[0].get(), meshOf(object)->getMesh().get());
  EXPECT_EQ(parts[0]->getNumVertices(), 65535);
  EXPECT_EQ(parts[0]->getNumTriangles(), mesh->getNumTriangles());
  EXPECT_EQ(itemsOf(object).size(), parts.size());
}

TEST_F(KLTMeshDrawGLTest, ThicknessAvailableOnlyReadOnceAModificationEmptiedTheParts) {
  voDMD::Object* object = addPrintMesh(cuboid(kUnitCube));
  redraw();
  ASSERT_EQ(drawOf(object)->getParts().size(), 1u);
  EXPECT_FALSE(drawOf(object)->getParts()[0]->getAttributes("thickness").valid());
  doc.manager.begin("analyse");
  ASSERT_TRUE(meshOf(object)->analyseThickness());
  // The analysis announced itself: the parts are dropped, and not rebuilt before the next draw.
  EXPECT_TRUE(drawOf(object)->getParts().empty());
  doc.manager.commit();
  EXPECT_TRUE(drawOf(object)->getParts().empty());
  documentDraw->draw();
  ASSERT_EQ(drawOf(object)->getParts().size(), 1u);
  const auto& part = drawOf(object)->getParts()[0];
  EXPECT_NE(part.get(), meshOf(object)->getMesh().get());
  ruGeom::MeshAttributes values = part->getAttributes("thickness");
  ASSERT_TRUE(values.valid());
  EXPECT_EQ(values.getWidth(), 1);
  // The model's mesh stays without the attribute.
  EXPECT_FALSE(meshOf(object)->getMesh()->getAttributes("thickness").valid());
}

TEST_F(KLTMeshDrawGLTest, OtherAttributeModificationKeepsPartsButTransactionEndEmptiesThem) {
  voDMD::Object* object = addPrintMesh(cuboid(kUnitCube));
  redraw();
  const ruGeom::CompactMesh* first = drawOf(object)->getParts()[0].get();
  doc.manager.begin("move");
  object->findAttribute<voDMD::Transform>()->setObjToWorld(translation(1, 0, 0));
  ASSERT_EQ(drawOf(object)->getParts().size(), 1u);
  EXPECT_EQ(drawOf(object)->getParts()[0].get(), first);
  doc.manager.commit();
  EXPECT_TRUE(drawOf(object)->getParts().empty());
  documentDraw->draw();
  EXPECT_EQ(drawOf(object)->getParts().size(), 1u);
  // The transform is applied at the draw.
  ASSERT_EQ(itemsOf(object).size(), 1u);
  EXPECT_EQ(itemsOf(object)[0]->getTransform().getTranslation(), ruLinear::Vector(1, 0, 0));
}

// Two triangles sharing vertex 0; `first` and `second` are vertex 0's corner values in them.
std::vector<float> sharedVertex(float first, float second, bool swapTriangles) {
  ruGeom::CompactMesh mesh;
  for (int i = 0; i < 5; ++i) mesh.addVertex(ruLinear::Point(i, i * i, 0));
  mesh.addTriangle(0, 1, 2);
  mesh.addTriangle(0, 3, 4);
  std::vector<float> corners = {first, 9, 9, second, 9, 9};
  if (swapTriangles) corners = {second, 9, 9, first, 9, 9};
  std::vector<float> values(5, 0.0f);
  voDMG::fillVertexThickness(mesh, corners.data(), corners.size(), values.data());
  return values;
}

TEST(KLTMeshDrawThickness, VertexSharedByCornersThreeAndTwoGetsTwoInEitherOrder) {
  EXPECT_EQ(sharedVertex(3.0f, 2.0f, false)[0], 2.0f);
  EXPECT_EQ(sharedVertex(3.0f, 2.0f, true)[0], 2.0f);
  EXPECT_EQ(sharedVertex(3.0f, 2.0f, false)[1], 9.0f);
}

TEST(KLTMeshDrawThickness, CornersMinusOneThenTwoGiveTwoWhileTwoThenMinusOneGiveMinusOne) {
  EXPECT_EQ(sharedVertex(-1.0f, 2.0f, false)[0], 2.0f);
  EXPECT_EQ(sharedVertex(2.0f, -1.0f, false)[0], -1.0f);
}

TEST_F(KLTMeshDrawGLTest, ShouldDrawFalseEmitsNothingAndDoesNotComputeMeshes) {
  voDMD::Object* object = addPrintMesh(cuboid(kUnitCube));
  doc.manager.begin("hide");
  meshOf(object)->setVisible(false);
  doc.manager.commit();
  redraw();
  EXPECT_TRUE(itemsOf(object).empty());
  EXPECT_TRUE(drawOf(object)->getParts().empty());
}

// Counts the calls of the extension point.
class CountingMeshDraw : public KLTMeshDraw {
public:
  using KLTMeshDraw::KLTMeshDraw;
  int extraCalls = 0;

protected:
  void drawExtra(voGR::Draw& draw, voDMG::SelectionIterator a, voDMG::SelectionIterator b, voDMG::SelectionIterator c,
                 voDMG::SelectionIterator d, ru::Reference<voGR::DrawPolicy> drawPolicy) override {
    ++extraCalls;
    KLTMeshDraw::drawExtra(draw, a, b, c, d, drawPolicy);
  }
};

TEST_F(KLTMeshDrawGLTest, DrawExtraIsNeverReachedFromOnDraw) {
  voDMD::Object* object = addPrintMesh(cuboid(kUnitCube));
  documentDraw->update();
  auto* counting = new CountingMeshDraw(documentDraw, meshOf(object));
  documentDraw->setDraw(object, counting);
  documentDraw->setDrawPolicy(typeid(CountingMeshDraw), new KLTMeshDrawPolicy());
  select(object);
  hover(object);
  redraw();
  EXPECT_EQ(itemsOf(object).size(), 1u);
  EXPECT_EQ(counting->extraCalls, 0);
}

TEST_F(KLTMeshDrawGLTest, SettingsAreReadAtEachDraw) {
  addPrinter(ruLinear::Range3d(ruLinear::Point(-10, -10, 0), ruLinear::Point(10, 10, 20)),
             ruLinear::Range3d(ruLinear::Point(-12, -12, 0), ruLinear::Point(12, 12, 22)));
  voDMD::Object* object = addPrintMesh(cuboid(kUnitCube), translation(10, 0, 5));
  redraw();
  ASSERT_TRUE(meshOf(object)->isOutOfBounds());
  EXPECT_TRUE(same(colorOf(itemsOf(object)[0]), KLTMeshDrawPolicy::outOfBoundsColors[0]));
  setShowOutOfBounds(false);
  redraw();
  EXPECT_TRUE(same(colorOf(itemsOf(object)[0]), KLTMeshDrawPolicy::baseColors[0]));
}

TEST_F(KLTMeshDrawGLTest, MeshWithoutTrianglesDrawsNothingAndSaysSo) {
  std::vector<std::string> lines;
  voSupport::Debug::getInstance().setEnabled(voSupport::DebugHitTest, true);
  voSupport::Debug::getInstance().setSink([&](int, const char*, const char* text) { lines.emplace_back(text); });
  ru::Reference<ruGeom::CompactMesh> empty = new ruGeom::CompactMesh();
  voDMD::Object* object = addPrintMesh(empty);
  redraw();
  voSupport::Debug::getInstance().setSink(nullptr);
  voSupport::Debug::getInstance().setEnabled(voSupport::DebugHitTest, false);
  EXPECT_TRUE(itemsOf(object).empty());
  bool said = false;
  for (const auto& line : lines) said = said || line.find("print mesh without triangles: nothing to draw") != std::string::npos;
  EXPECT_TRUE(said);
}

// The thin-wall verdict of a print mesh, kept by its drawing between redraws: a hover redraw does
// not scan the thickness again, and every change of what the verdict reads is noticed.
class KLTMeshThinStateGLTest : public KLTMeshDrawGLTest {
protected:
  KLTMeshThinStateGLTest() {
    printer = addPrinter(ruLinear::Range3d(ruLinear::Point(-10, -10, 0), ruLinear::Point(10, 10, 20)),
                         ruLinear::Range3d(ruLinear::Point(-12, -12, 0), ruLinear::Point(12, 12, 22)));
    // The camera looks down on the bed's middle from above and aside.
    doc.document.camera()->set(voGR::test::GLScene::camera(ruLinear::Point(4, -6, 8), ruLinear::Point(0, 0, 1)));
    scene.setCamera(doc.document.camera()->get());
  }
  void analyse(voDMD::Object* object) {
    doc.manager.begin("analyse");
    ASSERT_TRUE(meshOf(object)->analyseThickness());
    doc.manager.commit();
  }
  // Whether the object's drawing shows thin walls: its items carry the thickness shader.
  bool drawnThin(voDMD::Object* object) const {
    const auto items = itemsOf(object);
    if (items.empty()) return false;
    for (const voGR::DrawItem* item : items) {
      if (!dynamic_cast<const voGR::KLTThicknessShader*>(item->getShader().get())) return false;
    }
    return true;
  }
  void hoverOn(voDMD::Object* object) { hover(object); }
  void hoverOff() {
    hovered.lock();
    hovered.clear();
    hovered.unlock();
  }
  // Pixels of the frame in the thin colour (not hovered, not selected) and in the plain one.
  struct Look {
    int thin = 0;
    int plain = 0;
  };
  Look look(const std::string& name) {
    const auto image = scene.frame(name);
    const auto byte = [](float value) { return static_cast<std::uint8_t>(std::lround(value * 255.0f)); };
    const auto bytes = [&](const ruUtil::Color& color) {
      return ruImage::Byte4{byte(color.r), byte(color.g), byte(color.b), 255};
    };
    Look out;
    // Lit faces shade the colours; a wide tolerance still tells orange from grey.
    out.thin = voGR::test::countPixels(image, bytes(KLTMeshDrawPolicy::thinColors[0]), 60);
    out.plain = voGR::test::countPixels(image, bytes(KLTMeshDrawPolicy::baseColors[0]), 40);
    return out;
  }
  voDMD::Object* printer = nullptr;
};

TEST_F(KLTMeshThinStateGLTest, HoverRedrawsKeepTheVerdictWithoutScanningAgain) {
  voDMD::Object* object = addPrintMesh(cuboid(ruLinear::Range3d(ruLinear::Point(-1, -1, 0), ruLinear::Point(1, 1, 2))));
  analyse(object);
  redraw();
  KLTMeshDraw* draw = drawOf(object);
  ASSERT_NE(draw, nullptr);
  EXPECT_FALSE(drawnThin(object));
  const int scans = draw->thicknessScans();
  EXPECT_GE(scans, 1);
  for (int i = 0; i < 4; ++i) {
    hoverOn(object);
    documentDraw->draw();
    EXPECT_TRUE(same(colorOf(itemsOf(object)[0]), KLTMeshDrawPolicy::baseColors[1]));
    hoverOff();
    documentDraw->draw();
    EXPECT_TRUE(same(colorOf(itemsOf(object)[0]), KLTMeshDrawPolicy::baseColors[0]));
  }
  EXPECT_EQ(draw->thicknessScans(), scans);
  // The verdict is the one voDMA::isPartThick gives.
  EXPECT_EQ(draw->isPartThick(meshOf(object)), voDMA::isPartThick(meshOf(object)));
}

TEST_F(KLTMeshThinStateGLTest, ThicknessValuesWrittenInPlaceOrReplacedChangeTheLookAtTheNextRedraw) {
  voDMD::Object* object = addPrintMesh(cuboid(ruLinear::Range3d(ruLinear::Point(-1, -1, 0), ruLinear::Point(1, 1, 2))));
  analyse(object);
  redraw();
  ASSERT_FALSE(drawnThin(object));
  const Look thick = look("thinstate_0_thick");
  EXPECT_GT(thick.plain, 200);
  EXPECT_EQ(thick.thin, 0);

  // One corner written in place, the vector keeping its buffer and size: thin at the next redraw.
  std::vector<float>& values = meshOf(object)->thickness;
  const float* buffer = values.data();
  values[7] = 0.1f;
  ASSERT_EQ(values.data(), buffer);
  redraw();
  EXPECT_TRUE(drawnThin(object));
  EXPECT_FALSE(voDMA::isPartThick(meshOf(object)));

  // The whole vector replaced by values of the same count, again in the same buffer: thick.
  values.assign(values.size(), 2.0f);
  ASSERT_EQ(values.data(), buffer);
  redraw();
  EXPECT_FALSE(drawnThin(object));

  // All corners thin, in a new buffer: the parts are rebuilt with the values laid on them, and
  // the whole box shows the thin colour.
  values = std::vector<float>(values.size(), 0.1f);
  documentDraw->resetDraw(object);
  redraw();
  EXPECT_TRUE(drawnThin(object));
  const Look thin = look("thinstate_1_thin");
  EXPECT_GT(thin.thin, 200);
  EXPECT_LT(thin.plain, thick.plain / 10);
}

TEST_F(KLTMeshThinStateGLTest, ANewMeshItsPlacementAndThePrintersLimitEachChangeTheVerdict) {
  voDMD::Object* object = addPrintMesh(cuboid(ruLinear::Range3d(ruLinear::Point(-1, -1, 0), ruLinear::Point(1, 1, 2))));
  analyse(object);
  redraw();
  ASSERT_FALSE(drawnThin(object));
  KLTMeshDraw* draw = drawOf(object);
  int scans = draw->thicknessScans();

  // Shrunk to a tenth, its walls of 2 are 0.2 in the world: thin.
  doc.manager.begin("shrink");
  object->findAttribute<voDMD::Transform>()->setObjToWorld(ruLinear::AffineMatrix::scaling(0.1));
  doc.manager.commit();
  redraw();
  EXPECT_TRUE(drawnThin(object));
  EXPECT_GT(draw->thicknessScans(), scans);
  doc.manager.begin("grow");
  object->findAttribute<voDMD::Transform>()->setObjToWorld(ruLinear::AffineMatrix::Identity);
  doc.manager.commit();
  redraw();
  ASSERT_FALSE(drawnThin(object));

  // A printer that prints nothing thinner than 3.
  scans = draw->thicknessScans();
  printer->findAttribute<voDMD::KLTPrinter>()->minimumThickness = 3.0;
  redraw();
  EXPECT_TRUE(drawnThin(object));
  EXPECT_GT(draw->thicknessScans(), scans);
  printer->findAttribute<voDMD::KLTPrinter>()->minimumThickness = 0.8;
  redraw();
  ASSERT_FALSE(drawnThin(object));

  // A thin plate for a mesh: unanalysed first (plain), then analysed (thin); undo brings the
  // analysed box back (thick).
  doc.manager.begin("plate");
  meshOf(object)->setMesh(cuboid(ruLinear::Range3d(ruLinear::Point(-1, -1, 0), ruLinear::Point(1, 1, 0.2))));
  doc.manager.commit();
  redraw();
  EXPECT_FALSE(drawnThin(object));
  analyse(object);
  redraw();
  EXPECT_TRUE(drawnThin(object));
  ASSERT_TRUE(doc.manager.undo());
  ASSERT_TRUE(doc.manager.undo());
  redraw();
  EXPECT_FALSE(drawnThin(object));
  EXPECT_FALSE(meshOf(object)->needsAnalyseThickness());
}

TEST_F(KLTMeshThinStateGLTest, OnALargeMeshNewValuesAndAnnouncedChangesAreNoticed) {
  // An open sheet of 20,000 vertices, 0.05 to a grid step: about 118,000 corner values, all
  // without an opposite wall (-1) after the analysis, so thick.
  ru::Reference<ruGeom::CompactMesh> mesh = sheet(20000);
  voDMD::Object* object = addPrintMesh(mesh, ruLinear::AffineMatrix::scaling(0.05));
  analyse(object);
  std::vector<float>& values = meshOf(object)->thickness;
  ASSERT_GT(values.size(), 100000u);
  redraw();
  ASSERT_FALSE(drawnThin(object));
  // A new analysis's worth of values in the same buffer: noticed through the values spread over it.
  const std::vector<float> thick = values;
  std::vector<float> thin(values.size());
  for (std::size_t i = 0; i < thin.size(); ++i) thin[i] = 0.05f + 0.001f * static_cast<float>(i % 7);
  values = thin;
  redraw();
  EXPECT_TRUE(drawnThin(object));
  values = thick;
  redraw();
  EXPECT_FALSE(drawnThin(object));
  // One value written in place and then announced by the attribute (any change of it): noticed
  // wherever it lies.
  values[values.size() / 2 + 1] = 0.1f;
  doc.manager.begin("hide and show");
  meshOf(object)->setVisible(false);
  meshOf(object)->setVisible(true);
  doc.manager.commit();
  redraw();
  EXPECT_TRUE(drawnThin(object));
  EXPECT_FALSE(voDMA::isPartThick(meshOf(object)));
}

TEST_F(KLTMeshDrawGLTest, ItemsAreNamedKLTMeshAndPlacedByTheObjectsTransform) {
  voDMD::Object* object = addPrintMesh(cuboid(kUnitCube), translation(2, 3, 4));
  redraw();
  ASSERT_EQ(itemsOf(object).size(), 1u);
  voGR::DrawItem* item = itemsOf(object)[0];
  EXPECT_EQ(item->getDebugString(), "KLTMesh");
  EXPECT_EQ(item->getTransform().getTranslation(), ruLinear::Vector(2, 3, 4));
  EXPECT_EQ(item->getObjectDrawOwner(), drawOf(object));
}

TEST_F(KLTMeshDrawGLTest, PrintHandlersRunAtPriorityTenOneBetweenTheirNeighbours) {
  EXPECT_EQ(broadcaster.numHandlers(typeid(voSupport::InitializeReflectionMsg)), 2u);
  KLTMeshDrawPolicy* old = policy();
  std::vector<std::pair<int, voGR::DrawPolicy*>> seen;
  auto look = [&](int who) { seen.emplace_back(who, documentDraw->getDrawPolicy(typeid(KLTMeshDraw)).get()); };
  broadcaster.addHandler<voDMG::RegisterObjectDrawMsg>(voSupport::Priority(10, 2), [&](voDMG::RegisterObjectDrawMsg&) { look(2); });
  broadcaster.addHandler<voDMG::RegisterObjectDrawMsg>(voSupport::Priority(10, 1), [&](voDMG::RegisterObjectDrawMsg&) { look(1); });
  broadcaster.addHandler<voDMG::RegisterObjectDrawMsg>(voSupport::Priority(10, 0), [&](voDMG::RegisterObjectDrawMsg&) { look(0); });
  voDMG::RegisterObjectDrawMsg message(*documentDraw);
  broadcaster.broadcast(message);
  ASSERT_EQ(seen.size(), 3u);
  EXPECT_EQ(seen[0].first, 0);
  EXPECT_EQ(seen[0].second, old);
  // Equal priorities run in registration order: the print handler came first.
  EXPECT_EQ(seen[1].first, 1);
  EXPECT_NE(seen[1].second, old);
  EXPECT_EQ(seen[2].first, 2);
  EXPECT_EQ(seen[2].second, seen[1].second);

  seen.clear();
  broadcaster.addHandler<voDMD::NewDocumentMsg>(voSupport::Priority(10, 0), [&](voDMD::NewDocumentMsg&) { look(0); });
  broadcaster.addHandler<voDMD::NewDocumentMsg>(voSupport::Priority(10, 1), [&](voDMD::NewDocumentMsg&) { look(1); });
  KLTMeshDrawPolicy* current = policy();
  voDMD::NewDocumentMsg fresh(&doc.document);
  broadcaster.broadcast(fresh);
  ASSERT_EQ(seen.size(), 2u);
  EXPECT_EQ(seen[0].second, current);
  EXPECT_NE(seen[1].second, current);
  EXPECT_EQ(seen[1].second, policy());
}

TEST_F(KLTMeshDrawGLTest, AfterABroadcasterResetInitializeSubscribesEverythingAgainOnce) {
  broadcaster.reset();
  EXPECT_EQ(broadcaster.numHandlers(), 0u);
  voDMG::initialize();
  voDMG::initialize();
  EXPECT_EQ(broadcaster.numHandlers(typeid(voSupport::InitializeReflectionMsg)), 2u);
  EXPECT_EQ(broadcaster.numHandlers(typeid(voDMG::RegisterObjectDrawMsg)), 1u);
  EXPECT_EQ(broadcaster.numHandlers(typeid(voDMD::NewDocumentMsg)), 1u);
}

}  // namespace
