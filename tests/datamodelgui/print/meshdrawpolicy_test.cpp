#include "printfixture.h"

#include "platform/datamodel/actions.h"

#include <gtest/gtest.h>

namespace {

using printtest::cuboid;
using printtest::translation;
using voDMG::ClippingPlane;
using voDMG::KLTMeshDrawPolicy;

bool same(const ruUtil::Color& a, const ruUtil::Color& b) { return a.r == b.r && a.g == b.g && a.b == b.b && a.a == b.a; }

class KLTMeshDrawPolicyGLTest : public ::testing::Test, public printtest::PrintFixture {
protected:
  KLTMeshDrawPolicyGLTest() {
    addPrinter(ruLinear::Range3d(ruLinear::Point(-10, -10, 0), ruLinear::Point(10, 10, 20)),
               ruLinear::Range3d(ruLinear::Point(-12, -12, 0), ruLinear::Point(12, 12, 22)));
  }
  voGR::DrawItem* only(voDMD::Object* object) {
    auto items = itemsOf(object);
    EXPECT_EQ(items.size(), 1u);
    return items.empty() ? nullptr : items[0];
  }
  static ruUtil::Color colorOf(const voGR::DrawItem* item) {
    if (auto* faceted = dynamic_cast<const voGR::KLTFacetedShader*>(item->getShader().get())) return faceted->color;
    if (auto* thick = dynamic_cast<const voGR::KLTThicknessShader*>(item->getShader().get())) return thick->color;
    return item->getColor();
  }
  void setPlanes(std::initializer_list<ClippingPlane> planes) {
    planeSurface().list.clear();
    for (const ClippingPlane& plane : planes) planeSurface().list.push_back(plane);
  }
  static ClippingPlane plane(const ruLinear::Point& point, const ruLinear::Vector& normal, bool selectionOnly = false) {
    return ClippingPlane{ruLinear::Plane(point, normal), selectionOnly};
  }
  // A box from z0 to z1 around the bed's middle.
  voDMD::Object* slabZ(double z0, double z1) {
    return addPrintMesh(cuboid(ruLinear::Range3d(ruLinear::Point(-1, -1, z0), ruLinear::Point(1, 1, z1))));
  }
  // A closed mesh of two boxes, a thick cube and a thin plate beside it.
  static ru::Reference<ruGeom::CompactMesh> cubeAndPlate(bool openPlate) {
    ru::Reference<ruGeom::CompactMesh> mesh = new ruGeom::CompactMesh();
    ruGeom::constructCuboid(ruLinear::Range3d(ruLinear::Point(-4, -2, 0), ruLinear::Point(0, 2, 4)), *mesh);
    ruGeom::CompactMesh plate;
    ruGeom::constructCuboid(ruLinear::Range3d(ruLinear::Point(1, -2, 0), ruLinear::Point(5, 2, 0.2)), plate);
    const int base = mesh->getNumVertices();
    for (int i = 0; i < plate.getNumVertices(); ++i) mesh->addVertex(plate.getVertices()[i]);
    const int skip = openPlate ? 2 : 0;  // leaving out the first face opens the plate's edges
    for (int t = skip; t < plate.getNumTriangles(); ++t) {
      const std::uint32_t* tri = plate.getTriangles() + 3 * t;
      mesh->addTriangle(tri[0] + base, tri[1] + base, tri[2] + base);
    }
    return mesh;
  }
  void analyse(voDMD::Object* object) {
    doc.manager.begin("analyse");
    meshOf(object)->analyseThickness();
    doc.manager.commit();
  }
};

TEST_F(KLTMeshDrawPolicyGLTest, ReportFlagDrawsAnInvisibleMeshAndSelectedHoveredEmitsRowZeroWithNoTag) {
  voDMD::Object* hidden = slabZ(0, 1);
  doc.manager.begin("hide");
  meshOf(hidden)->setVisible(false);
  doc.manager.commit();
  EXPECT_FALSE(policy()->shouldDraw(meshOf(hidden)));
  policy()->setChangeDrawStatesForReport(true);
  EXPECT_TRUE(policy()->shouldDraw(meshOf(hidden)));

  voDMD::Object* object = addPrintMesh(cuboid(ruLinear::Range3d(ruLinear::Point(2, 2, 0), ruLinear::Point(3, 3, 1))));
  setPlanes({plane(ruLinear::Point(0, 0, 0.5), ruLinear::Vector(0, 0, 1))});
  select(object);
  hover(object);
  redraw();
  voGR::DrawItem* item = only(object);
  ASSERT_NE(item, nullptr);
  EXPECT_TRUE(same(colorOf(item), KLTMeshDrawPolicy::baseColors[0]));
  EXPECT_TRUE(item->getTags().empty());
  EXPECT_FALSE(item->isActive());
  EXPECT_EQ(item->getShader()->clippingPlanes().size(), 0);
}

TEST_F(KLTMeshDrawPolicyGLTest, PlaneNormalPlusZHidesMeshWhollyBelowAndMinusZHidesMeshWhollyAbove) {
  voDMD::Object* below = slabZ(0, 1);
  voDMD::Object* above = slabZ(3, 4);
  setPlanes({plane(ruLinear::Point(0, 0, 2), ruLinear::Vector(0, 0, 1))});
  EXPECT_FALSE(policy()->shouldDraw(meshOf(below)));
  EXPECT_TRUE(policy()->shouldDraw(meshOf(above)));
  setPlanes({plane(ruLinear::Point(0, 0, 2), ruLinear::Vector(0, 0, -1))});
  EXPECT_TRUE(policy()->shouldDraw(meshOf(below)));
  EXPECT_FALSE(policy()->shouldDraw(meshOf(above)));
  redraw();
  EXPECT_EQ(itemsOf(below).size(), 1u);
  EXPECT_TRUE(itemsOf(above).empty());
}

TEST_F(KLTMeshDrawPolicyGLTest, BoxWithHiExactlyAtThePlaneIsDrawn) {
  voDMD::Object* touching = slabZ(0, 2);
  setPlanes({plane(ruLinear::Point(0, 0, 2), ruLinear::Vector(0, 0, 1))});
  EXPECT_TRUE(policy()->shouldDraw(meshOf(touching)));
}

TEST_F(KLTMeshDrawPolicyGLTest, PlaneWithNormalPointSixPointEightZeroIsTreatedAsAxisZPlus) {
  voDMD::Object* below = slabZ(0, 1);
  voDMD::Object* above = slabZ(3, 4);
  setPlanes({plane(ruLinear::Point(0, 0, 2), ruLinear::Vector(0.6, 0.8, 0))});
  // As a Z plane with s = +1: what lies wholly above the point's height is cut away.
  EXPECT_TRUE(policy()->shouldDraw(meshOf(below)));
  EXPECT_FALSE(policy()->shouldDraw(meshOf(above)));
}

TEST_F(KLTMeshDrawPolicyGLTest, TwoPlanesOnlyTheFirstDecidesButBothClip) {
  voDMD::Object* below = slabZ(0, 1);
  voDMD::Object* above = slabZ(3, 4);
  setPlanes({plane(ruLinear::Point(0, 0, 2), ruLinear::Vector(0, 0, 1)),
             plane(ruLinear::Point(0, 0, 10), ruLinear::Vector(0, 0, -1))});
  EXPECT_FALSE(policy()->shouldDraw(meshOf(below)));
  redraw();
  EXPECT_TRUE(itemsOf(below).empty());
  voGR::DrawItem* item = only(above);
  ASSERT_NE(item, nullptr);
  ASSERT_EQ(item->getShader()->clippingPlanes().size(), 2);
  EXPECT_EQ(item->getShader()->clippingPlanes().get(1).getPoint().z, 10.0);
}

TEST_F(KLTMeshDrawPolicyGLTest, SelectedMeshWhollyBehindTheCutawayStaysDrawnAndIsClipped) {
  voDMD::Object* below = slabZ(0, 1);
  voDMD::Object* other = slabZ(3, 4);
  setPlanes({plane(ruLinear::Point(0, 0, 2), ruLinear::Vector(0, 0, 1)),
             plane(ruLinear::Point(0, 0, 3.5), ruLinear::Vector(0, 0, 1), true)});
  select(below);
  EXPECT_TRUE(policy()->shouldDraw(meshOf(below)));
  redraw();
  voGR::DrawItem* item = only(below);
  ASSERT_NE(item, nullptr);
  // Both the plain plane and the selection plane clip the selected mesh...
  EXPECT_EQ(item->getShader()->clippingPlanes().size(), 2);
  // ...while an unselected mesh gets the plain plane alone.
  voGR::DrawItem* plain = only(other);
  ASSERT_NE(plain, nullptr);
  EXPECT_EQ(plain->getShader()->clippingPlanes().size(), 1);
}

TEST_F(KLTMeshDrawPolicyGLTest, OutOfBoundsMeshWithSettingOffLooksPlainKeepingTheHoverColour) {
  voDMD::Object* object = addPrintMesh(cuboid(ruLinear::Range3d(ruLinear::Point(-1, -1, 0), ruLinear::Point(1, 1, 1))),
                                       translation(10, 0, 0));
  ASSERT_TRUE(meshOf(object)->isOutOfBounds());
  hover(object);
  redraw();
  EXPECT_TRUE(same(colorOf(only(object)), KLTMeshDrawPolicy::outOfBoundsColors[1]));
  setShowOutOfBounds(false);
  redraw();
  EXPECT_TRUE(same(colorOf(only(object)), KLTMeshDrawPolicy::baseColors[1]));
}

TEST_F(KLTMeshDrawPolicyGLTest, MeshThatNeedsRepairAndIsThinShowsBaseWithThinColourNotRepairColour) {
  voDMD::Object* object = addPrintMesh(cubeAndPlate(true));
  ASSERT_TRUE(meshOf(object)->needsRepair());
  analyse(object);
  ASSERT_FALSE(voDMA::isPartThick(meshOf(object)));
  redraw();
  voGR::DrawItem* item = only(object);
  ASSERT_NE(item, nullptr);
  auto* shader = dynamic_cast<const voGR::KLTThicknessShader*>(item->getShader().get());
  ASSERT_NE(shader, nullptr);
  EXPECT_TRUE(same(shader->color, KLTMeshDrawPolicy::baseColors[0]));
  EXPECT_TRUE(same(shader->thinColor, KLTMeshDrawPolicy::thinColors[0]));
  EXPECT_FLOAT_EQ(shader->minimumThickness, 0.8f);
}

TEST_F(KLTMeshDrawPolicyGLTest, MinimumThicknessIsGivenInObjectCoordinates) {
  ruLinear::AffineMatrix doubled = ruLinear::AffineMatrix::scaling(2.0);
  voDMD::Object* object = addPrintMesh(cubeAndPlate(false), doubled);
  EXPECT_NEAR(KLTMeshDrawPolicy::minimumThicknessInObject(meshOf(object), 0.8f), 0.4f, 1e-6);
}

TEST_F(KLTMeshDrawPolicyGLTest, HoveredNotSelectedIsInactiveHoveredSelectedAndSelectedAloneAreActive) {
  voDMD::Object* hoveredOnly = slabZ(0, 1);
  voDMD::Object* both = addPrintMesh(cuboid(ruLinear::Range3d(ruLinear::Point(3, 3, 0), ruLinear::Point(4, 4, 1))));
  voDMD::Object* selectedOnly = addPrintMesh(cuboid(ruLinear::Range3d(ruLinear::Point(-4, -4, 0), ruLinear::Point(-3, -3, 1))));
  hover(hoveredOnly);
  hover(both);
  select(both);
  select(selectedOnly);
  redraw();
  voGR::DrawItem* a = only(hoveredOnly);
  voGR::DrawItem* b = only(both);
  voGR::DrawItem* c = only(selectedOnly);
  ASSERT_TRUE(a && b && c);
  EXPECT_FALSE(a->isActive());
  EXPECT_TRUE(a->contains("KLTHoverTag"));
  EXPECT_FALSE(a->contains("KLTHoverSelectedTag"));
  EXPECT_TRUE(b->isActive());
  EXPECT_TRUE(b->contains("KLTHoverSelectedTag"));
  EXPECT_FALSE(b->contains("KLTHoverTag"));
  EXPECT_TRUE(c->isActive());
  EXPECT_TRUE(c->getTags().empty());
  EXPECT_TRUE(same(colorOf(a), KLTMeshDrawPolicy::baseColors[1]));
  EXPECT_TRUE(same(colorOf(b), KLTMeshDrawPolicy::baseColors[3]));
  EXPECT_TRUE(same(colorOf(c), KLTMeshDrawPolicy::baseColors[2]));
  EXPECT_NE(tags.findTag("KLTHoverTag"), nullptr);
}

TEST_F(KLTMeshDrawPolicyGLTest, ColourTablesHoldTheirFourRowsByInteraction) {
  const ruUtil::Color plain{0.52f, 0.53f, 0.54f, 1.0f};
  const ruUtil::Color blue{0.05f, 0.48f, 0.73f, 1.0f};
  const ruUtil::Color warning{0.84f, 0.25f, 0.043f, 1.0f};
  const ruUtil::Color outside{0.88f, 0.72f, 0.2f, 1.0f};
  EXPECT_TRUE(same(KLTMeshDrawPolicy::baseColors[0], plain));
  for (int row = 1; row < 4; ++row) EXPECT_TRUE(same(KLTMeshDrawPolicy::baseColors[row], blue)) << row;
  for (int row = 0; row < 4; ++row) {
    EXPECT_TRUE(same(KLTMeshDrawPolicy::needsRepairColors[row], warning)) << row;
    EXPECT_TRUE(same(KLTMeshDrawPolicy::repairedColors[row], warning)) << row;
    EXPECT_TRUE(same(KLTMeshDrawPolicy::thinColors[row], warning)) << row;
    EXPECT_TRUE(same(KLTMeshDrawPolicy::outOfBoundsColors[row], outside)) << row;
  }
}

// The tables are writable: a test gives each a colour of its own to tell them apart, and puts the
// old ones back.
class DistinctTables {
public:
  DistinctTables() {
    save(KLTMeshDrawPolicy::needsRepairColors, 0);
    save(KLTMeshDrawPolicy::repairedColors, 1);
    save(KLTMeshDrawPolicy::outOfBoundsColors, 2);
  }
  ~DistinctTables() {
    for (int row = 0; row < 4; ++row) {
      KLTMeshDrawPolicy::needsRepairColors[row] = saved[0][row];
      KLTMeshDrawPolicy::repairedColors[row] = saved[1][row];
      KLTMeshDrawPolicy::outOfBoundsColors[row] = saved[2][row];
    }
  }
  DistinctTables(const DistinctTables&) = delete;
  DistinctTables& operator=(const DistinctTables&) = delete;

private:
  void save(ruUtil::Color* table, int index) {
    for (int row = 0; row < 4; ++row) {
      saved[index][row] = table[row];
      table[row] = ruUtil::Color(0.1f * static_cast<float>(index + 1), 0.05f * static_cast<float>(row + 1), 0.3f, 1.0f);
    }
  }
  ruUtil::Color saved[3][4];
};

TEST_F(KLTMeshDrawPolicyGLTest, RepairStateWinsOverOutOfBoundsAndARepairedMeshTakesTheRepairedTable) {
  DistinctTables tables;
  ru::Reference<ruGeom::CompactMesh> open = cuboid(ruLinear::Range3d(ruLinear::Point(-1, -1, 0), ruLinear::Point(1, 1, 1)));
  open->setNumTriangles(open->getNumTriangles() - 2);  // one side left open
  voDMD::Object* object = addPrintMesh(open, translation(10, 0, 0));
  ASSERT_TRUE(meshOf(object)->needsRepair());
  ASSERT_FALSE(meshOf(object)->isRepaired());
  ASSERT_TRUE(meshOf(object)->isOutOfBounds());
  hover(object);
  redraw();
  EXPECT_TRUE(same(colorOf(only(object)), KLTMeshDrawPolicy::needsRepairColors[1]));

  doc.manager.begin("repair");
  ASSERT_TRUE(meshOf(object)->repair());
  doc.manager.commit();
  ASSERT_TRUE(meshOf(object)->needsRepair());
  ASSERT_TRUE(meshOf(object)->isRepaired());
  ASSERT_TRUE(meshOf(object)->isOutOfBounds());
  redraw();
  EXPECT_TRUE(same(colorOf(only(object)), KLTMeshDrawPolicy::repairedColors[1]));
  EXPECT_NE(dynamic_cast<const voGR::KLTFacetedShader*>(only(object)->getShader().get()), nullptr);
}

TEST_F(KLTMeshDrawPolicyGLTest, ASelectedMeshThatIsHiddenIsNotDrawn) {
  voDMD::Object* object = slabZ(0, 1);
  doc.manager.begin("hide");
  meshOf(object)->setVisible(false);
  doc.manager.commit();
  select(object);
  EXPECT_FALSE(policy()->shouldDraw(meshOf(object)));
  setPlanes({plane(ruLinear::Point(0, 0, 2), ruLinear::Vector(0, 0, -1))});
  EXPECT_FALSE(policy()->shouldDraw(meshOf(object)));
  redraw();
  EXPECT_TRUE(itemsOf(object).empty());
}

TEST_F(KLTMeshDrawPolicyGLTest, PlanesAlongXAndYDecideOnTheirOwnAxis) {
  voDMD::Object* left = addPrintMesh(cuboid(ruLinear::Range3d(ruLinear::Point(-5, -1, 0), ruLinear::Point(-4, 1, 1))));
  voDMD::Object* front = addPrintMesh(cuboid(ruLinear::Range3d(ruLinear::Point(-1, -5, 0), ruLinear::Point(1, -4, 1))));
  // Normal +X: s = -1, what lies wholly at smaller X than the point is cut away.
  setPlanes({plane(ruLinear::Point(-2, 0, 0), ruLinear::Vector(1, 0, 0))});
  EXPECT_FALSE(policy()->shouldDraw(meshOf(left)));
  EXPECT_TRUE(policy()->shouldDraw(meshOf(front)));
  // Normal -X: s = +1, what lies wholly at greater X is cut away.
  setPlanes({plane(ruLinear::Point(-2, 0, 0), ruLinear::Vector(-1, 0, 0))});
  EXPECT_TRUE(policy()->shouldDraw(meshOf(left)));
  EXPECT_FALSE(policy()->shouldDraw(meshOf(front)));
  // Normal +Y.
  setPlanes({plane(ruLinear::Point(0, -2, 0), ruLinear::Vector(0, 1, 0))});
  EXPECT_TRUE(policy()->shouldDraw(meshOf(left)));
  EXPECT_FALSE(policy()->shouldDraw(meshOf(front)));
}

TEST_F(KLTMeshDrawPolicyGLTest, HoverTagsComeOffAfterEachPartWhileActiveStaysAsTheLastPartSetIt) {
  voDMD::Object* object = slabZ(0, 1);
  const voDMD::KLTMesh* mesh = meshOf(object);
  ru::Reference<ruGeom::CompactMesh> part = const_cast<ruGeom::CompactMesh*>(mesh->getMesh().get());
  int source = 0;
  voGR::DrawContext context(scene.system.get(), 7);
  {
    voGR::Draw draw(context, &source, false);
    policy()->drawMeshPart(draw, mesh, part, true, false, true, 0.5);
    policy()->drawMeshPart(draw, mesh, part, false, false, true, 0.5);
    policy()->drawMeshPart(draw, mesh, part, true, true, true, 0.5);
    policy()->drawMeshPart(draw, mesh, part, false, false, true, 0.5);
    const auto& items = draw.getDrawData()->getItems();
    ASSERT_EQ(items.size(), 4u);
    EXPECT_TRUE(items[0]->contains("KLTHoverTag"));
    EXPECT_FALSE(items[0]->isActive());
    EXPECT_TRUE(items[1]->getTags().empty());
    EXPECT_TRUE(items[2]->contains("KLTHoverSelectedTag"));
    EXPECT_FALSE(items[2]->contains("KLTHoverTag"));
    EXPECT_TRUE(items[2]->isActive());
    EXPECT_TRUE(items[3]->getTags().empty());
    // Not reset between parts: every part of one object sets the same value in practice.
    EXPECT_TRUE(items[3]->isActive());
    for (const auto& item : items) {
      EXPECT_EQ(item->getType(), 0);
      EXPECT_EQ(item->getDepthInteraction(), 0);
      EXPECT_TRUE(item->isDrawable());
      EXPECT_TRUE(item->isPickable());
      EXPECT_EQ(item->getMesh(), part.get());
    }
  }
}

TEST_F(KLTMeshDrawPolicyGLTest, EveryEmissionGetsANewShader) {
  voDMD::Object* object = slabZ(0, 1);
  redraw();
  const voGR::Shader* first = only(object)->getShader().get();
  ASSERT_NE(first, nullptr);
  ru::Reference<voGR::Shader> keep = only(object)->getShader();
  redraw();
  EXPECT_NE(only(object)->getShader().get(), first);
}

TEST_F(KLTMeshDrawPolicyGLTest, AFirstPlaneThatClipsOnlySelectedMeshesStillDecidesForEveryMesh) {
  voDMD::Object* below = slabZ(0, 1);
  setPlanes({plane(ruLinear::Point(0, 0, 2), ruLinear::Vector(0, 0, 1), true)});
  EXPECT_FALSE(policy()->shouldDraw(meshOf(below)));
  voDMD::Object* above = slabZ(3, 4);
  redraw();
  // Drawn, but the selection plane does not clip an unselected mesh.
  voGR::DrawItem* item = only(above);
  ASSERT_NE(item, nullptr);
  EXPECT_EQ(item->getShader()->clippingPlanes().size(), 0);
}

TEST_F(KLTMeshDrawPolicyGLTest, ReportModeKeepsTheRepairColourButDropsOutOfBoundsAndClipping) {
  DistinctTables tables;
  ru::Reference<ruGeom::CompactMesh> open = cuboid(ruLinear::Range3d(ruLinear::Point(-1, -1, 0), ruLinear::Point(1, 1, 1)));
  open->setNumTriangles(open->getNumTriangles() - 2);
  voDMD::Object* broken = addPrintMesh(open);
  voDMD::Object* outside = addPrintMesh(cuboid(ruLinear::Range3d(ruLinear::Point(-1, -1, 0), ruLinear::Point(1, 1, 1))),
                                        translation(10, 0, 0));
  ASSERT_TRUE(meshOf(broken)->needsRepair());
  ASSERT_TRUE(meshOf(outside)->isOutOfBounds());
  setPlanes({plane(ruLinear::Point(0, 0, 0.5), ruLinear::Vector(0, 0, -1))});
  policy()->setChangeDrawStatesForReport(true);
  redraw();
  voGR::DrawItem* repairItem = only(broken);
  voGR::DrawItem* outsideItem = only(outside);
  ASSERT_TRUE(repairItem && outsideItem);
  EXPECT_TRUE(same(colorOf(repairItem), KLTMeshDrawPolicy::needsRepairColors[0]));
  EXPECT_TRUE(same(colorOf(outsideItem), KLTMeshDrawPolicy::baseColors[0]));
  EXPECT_EQ(repairItem->getShader()->clippingPlanes().size(), 0);
  EXPECT_EQ(outsideItem->getShader()->clippingPlanes().size(), 0);
  // The flag's accessors change nothing else: the meshes were redrawn above by hand.
  policy()->setChangeDrawStatesForReport(false);
  EXPECT_FALSE(policy()->getChangeDrawStatesForReport());
  EXPECT_FALSE(drawOf(broken)->isModified());
}

}  // namespace
