#include "datamodelgui/draw/objectdraw.h"

#include "datamodelgui/snap/snapitems.h"
#include "drawfixture.h"
#include "platform/graphics/hittest.h"
#include "platform/graphics/shader.h"
#include "platform/resources/resources.h"
#include "platform/support/debug.h"

#include <gtest/gtest.h>

#include <cmath>
#include <string>
#include <vector>

namespace {

using drawtest::setOf;
using voDMG::MeshDraw;
using voGR::test::kClear;

const ruLinear::Range3d kUnitCube(ruLinear::Point(-0.5, -0.5, -0.5), ruLinear::Point(0.5, 0.5, 0.5));

ruLinear::AffineMatrix translation(double x, double y, double z) {
  ruLinear::AffineMatrix matrix;
  matrix.translate(ruLinear::Vector(x, y, z));
  return matrix;
}

// Switches the wireframe channel on for its lifetime.
struct WireframeOn {
  WireframeOn() { voSupport::Debug::getInstance().setEnabled(voSupport::DebugWireframe, true); }
  ~WireframeOn() { voSupport::Debug::getInstance().setEnabled(voSupport::DebugWireframe, false); }
};

// Pixels that are not the clear colour, and their centre.
struct Coverage {
  int count = 0;
  double x = 0, y = 0;
};
Coverage coverage(const ruImage::TypedImage<ruImage::Byte4>& image) {
  Coverage result;
  const auto* pixels = reinterpret_cast<const ruImage::Byte4*>(image.bytes());
  for (int y = 0; y < image.ySize(); ++y) {
    for (int x = 0; x < image.xSize(); ++x) {
      if (voGR::test::near(pixels[y * image.xSize() + x], kClear, 2)) continue;
      ++result.count;
      result.x += x;
      result.y += y;
    }
  }
  if (result.count) {
    result.x /= result.count;
    result.y /= result.count;
  }
  return result;
}

class MeshDrawGLTest : public ::testing::Test, public drawtest::DrawFixture {
protected:
  voGR::DrawItem* onlyItem(voDMD::Object* object) {
    auto items = itemsOf(object);
    EXPECT_EQ(items.size(), 1u);
    return items.empty() ? nullptr : items[0];
  }
};

TEST_F(MeshDrawGLTest, ModifiedIsTrueAfterConstructionSoANewObjectIsDrawnInTheNextFrame) {
  voDMD::Object* object = doc.addCuboid(kUnitCube);
  voDMG::ObjectDraw* draw = documentDraw->getDraw(object);
  ASSERT_NE(draw, nullptr);
  EXPECT_TRUE(draw->isModified());
  EXPECT_TRUE(itemsOf(object).empty());
  documentDraw->draw();
  EXPECT_FALSE(draw->isModified());
  EXPECT_EQ(itemsOf(object).size(), 1u);
}

TEST_F(MeshDrawGLTest, TheDefaultLookHasTheGivenColourShaderAndFlags) {
  voDMD::Object* object = doc.addCuboid(kUnitCube, translation(1, 2, 3));
  documentDraw->draw();
  voGR::DrawItem* item = onlyItem(object);
  ASSERT_NE(item, nullptr);
  EXPECT_EQ(item->getColor(), ruUtil::Color(0.5f, 0.5f, 0.7f, 1.0f));
  auto* lambert = dynamic_cast<voGR::LambertShader*>(item->getShader().get());
  ASSERT_NE(lambert, nullptr);
  EXPECT_EQ(lambert->color, ruUtil::Color(0.67f, 0.67f, 0.67f, 1.0f));
  EXPECT_FALSE(item->isActive());
  EXPECT_TRUE(item->isPickable());
  EXPECT_TRUE(item->isDrawable());
  EXPECT_TRUE(item->isSubItem());
  EXPECT_FALSE(item->isOverlay());
  EXPECT_EQ(item->getType(), voGR::TypeOrdinary);
  EXPECT_EQ(item->getDepthInteraction(), voGR::DepthNormal);
  EXPECT_EQ(item->getLabel(), 0);
  EXPECT_EQ(item->getDebugString(), ruString::CString("Mesh"));
  EXPECT_EQ(item->getTransform(), translation(1, 2, 3));
  EXPECT_EQ(item->getObjectDrawOwner(), documentDraw->getDraw(object));
  // Triangles from strips, with normals computed on the item's private copy, not the attribute's.
  auto* geometry = dynamic_cast<voGR::MeshGeometry*>(item->getGeometry());
  ASSERT_NE(geometry, nullptr);
  EXPECT_EQ(geometry->getFlags(), 5);
  const ruGeom::CompactMesh& source = doc.meshOf(object)->getSubMesh(0);
  EXPECT_NE(item->getMesh(), &source);
  EXPECT_TRUE(item->getMesh()->hasNormals());
  EXPECT_TRUE(item->getMesh()->hasStrips());
  EXPECT_FALSE(source.hasStrips());
  EXPECT_EQ(item->getMesh()->getVertexBufferId(), source.getVertexBufferId());
  // Not active: not in the selected world.
  EXPECT_FALSE(holds(*selectedWorld, item));
}

TEST_F(MeshDrawGLTest, SubMeshesAreLabelledByIndex) {
  ru::Reference<ruGeom::CompactMesh> a = new ruGeom::CompactMesh(), b = new ruGeom::CompactMesh();
  ruGeom::constructCuboid(kUnitCube, *a);
  ruGeom::constructCuboid(ruLinear::Range3d(ruLinear::Point(1, 1, 1), ruLinear::Point(2, 2, 2)), *b);
  voDMD::Object* object = doc.addMesh(a);
  doc.meshOf(object)->setSubMeshes({a, b});
  documentDraw->draw();
  auto items = itemsOf(object);
  ASSERT_EQ(items.size(), 2u);
  EXPECT_EQ(items[0]->getLabel(), 0);
  EXPECT_EQ(items[1]->getLabel(), 1);
  EXPECT_EQ(items[1]->getMesh()->getVertexBufferId(), doc.meshOf(object)->getSubMesh(1).getVertexBufferId());
}

TEST_F(MeshDrawGLTest, SelectedHoveredAndBothLooks) {
  voDMD::Object* object = doc.addCuboid(kUnitCube);
  documentDraw->draw();
  candidates.add(setOf({object}));
  documentDraw->draw();
  voGR::DrawItem* hovered = onlyItem(object);
  EXPECT_EQ(hovered->getColor(), ruUtil::Color8(0xFFFFFFFFu).toColor());
  EXPECT_TRUE(hovered->isActive());
  EXPECT_TRUE(holds(*selectedWorld, hovered));
  candidates.clear();
  selection.add(setOf({object}));
  documentDraw->draw();
  voGR::DrawItem* selected = onlyItem(object);
  EXPECT_EQ(selected->getColor(), ruUtil::Color8(0xFFA564F0u).toColor());
  EXPECT_EQ(selected->getColor(), ruUtil::Color(0xF0 / 255.0f, 0x64 / 255.0f, 0xA5 / 255.0f, 1.0f));
  EXPECT_TRUE(selected->isActive());
  EXPECT_TRUE(holds(*selectedWorld, selected));
  // The Lambert colour does not change with state.
  EXPECT_EQ(dynamic_cast<voGR::LambertShader*>(selected->getShader().get())->color, ruUtil::Color(0.67f, 0.67f, 0.67f, 1.0f));
  selection.clear();
  documentDraw->draw();
  EXPECT_FALSE(onlyItem(object)->isActive());
  EXPECT_EQ(selectedWorld->size(), 0u);
}

TEST_F(MeshDrawGLTest, HoverOverASelectedObjectLeavesTheSelectedColour) {
  voDMD::Object* object = doc.addCuboid(kUnitCube);
  selection.add(setOf({object}));
  candidates.add(setOf({object}));
  documentDraw->draw();
  voGR::DrawItem* item = onlyItem(object);
  EXPECT_EQ(item->getColor(), ruUtil::Color8(0xFFA564F0u).toColor());
  EXPECT_TRUE(item->isActive());
}

TEST_F(MeshDrawGLTest, AHiddenMeshLeavesNoItemsInAnyWorldAfterItsNextDraw) {
  voDMD::Object* object = doc.addCuboid(kUnitCube);
  selection.add(setOf({object}));
  documentDraw->draw();
  ASSERT_EQ(itemsInWorlds(), 2);  // SceneW and SelectedW
  doc.meshOf(object)->setVisible(false);
  documentDraw->draw();
  EXPECT_TRUE(itemsOf(object).empty());
  EXPECT_EQ(itemsInWorlds(), 0);
  EXPECT_EQ(scene.database->getAllItems().size(), 0u);
}

TEST_F(MeshDrawGLTest, AMeshWithNoSubMeshesEmitsNothing) {
  voDMD::Object* object = doc.addMesh(nullptr);
  ASSERT_EQ(doc.meshOf(object)->numSubMeshes(), 0);
  documentDraw->draw();
  EXPECT_NE(documentDraw->getDraw(object), nullptr);
  EXPECT_TRUE(itemsOf(object).empty());
  EXPECT_EQ(itemsInWorlds(), 0);
}

TEST_F(MeshDrawGLTest, AnEmptyOrDegenerateMeshDrawsNothingOnTheScreen) {
  ru::Reference<ruGeom::CompactMesh> empty = new ruGeom::CompactMesh();
  ru::Reference<ruGeom::CompactMesh> flat = new ruGeom::CompactMesh();
  flat->addVertex(ruLinear::Point(0, 0, 0));
  flat->addVertex(ruLinear::Point(1, 0, 0));
  flat->addVertex(ruLinear::Point(2, 0, 0));
  flat->addTriangle(0, 1, 2);
  doc.addMesh(empty);
  doc.addMesh(flat);
  documentDraw->draw();
  const Coverage seen = coverage(scene.frame("meshdraw_degenerate"));
  EXPECT_EQ(seen.count, 0);
}

// A sub-mesh with texture coordinates, vertex colours or both, and an image key or not.
ru::Reference<ruGeom::CompactMesh> decorated(bool textureCoordinates, bool colors) {
  ru::Reference<ruGeom::CompactMesh> mesh = new ruGeom::CompactMesh();
  ruGeom::constructCuboid(kUnitCube, *mesh);
  if (textureCoordinates) {
    mesh->editTextureCoordinates();
  } else {
    mesh->clearTextureCoordinates();
  }
  if (colors) {
    mesh->editColors();
  } else {
    mesh->clearColors();
  }
  return mesh;
}

voRES::ImageKey checkerKey() {
  ru::Reference<ruImage::TypedImage<ruImage::Byte4>> image = new ruImage::TypedImage<ruImage::Byte4>(4, 4);
  return voRES::Loader::keyForImage(image, "checker");
}

TEST_F(MeshDrawGLTest, ASubMeshWithBothAValidImageKeyAndVertexColoursUsesTheTextureShader) {
  voDMD::Object* object = doc.addMesh(decorated(true, true));
  const voRES::ImageKey key = checkerKey();
  ASSERT_TRUE(doc.meshOf(object)->setSubMeshImageKey(0, key));
  documentDraw->draw();
  auto* shader = dynamic_cast<voGR::UVTextureShader*>(onlyItem(object)->getShader().get());
  ASSERT_NE(shader, nullptr);
  EXPECT_TRUE(shader->texture.getImageKey() == key);
  EXPECT_FALSE(shader->texture.getRepeat());
  EXPECT_EQ(shader->color, ruUtil::Color(1, 1, 1, 1));
  EXPECT_EQ(shader->backColor, ruUtil::Color(1, 1, 1, 1));
}

TEST_F(MeshDrawGLTest, ASubMeshWithAnImageKeyButNoTextureCoordinatesFallsToVertexColourOrLambert) {
  voDMD::Object* coloured = doc.addMesh(decorated(false, true));
  voDMD::Object* plain = doc.addMesh(decorated(false, false));
  voDMD::Object* noKey = doc.addMesh(decorated(true, false));
  ASSERT_TRUE(doc.meshOf(coloured)->setSubMeshImageKey(0, checkerKey()));
  ASSERT_TRUE(doc.meshOf(plain)->setSubMeshImageKey(0, checkerKey()));
  documentDraw->draw();
  EXPECT_NE(dynamic_cast<voGR::VertexColorShader*>(onlyItem(coloured)->getShader().get()), nullptr);
  EXPECT_NE(dynamic_cast<voGR::LambertShader*>(onlyItem(plain)->getShader().get()), nullptr);
  // Texture coordinates without a valid key: no texture either.
  EXPECT_NE(dynamic_cast<voGR::LambertShader*>(onlyItem(noKey)->getShader().get()), nullptr);
}

TEST_F(MeshDrawGLTest, TheWireframeChannelAddsTheWireframeAndTheOpenEdges) {
  // A closed (welded) tetrahedron has no open edges; a single square has four.
  ru::Reference<ruGeom::CompactMesh> tetrahedron = new ruGeom::CompactMesh();
  tetrahedron->addVertex(ruLinear::Point(0, 0, 0));
  tetrahedron->addVertex(ruLinear::Point(1, 0, 0));
  tetrahedron->addVertex(ruLinear::Point(0, 1, 0));
  tetrahedron->addVertex(ruLinear::Point(0, 0, 1));
  tetrahedron->addTriangle(0, 2, 1);
  tetrahedron->addTriangle(0, 1, 3);
  tetrahedron->addTriangle(1, 2, 3);
  tetrahedron->addTriangle(0, 3, 2);
  voDMD::Object* cube = doc.addMesh(tetrahedron);
  ru::Reference<ruGeom::CompactMesh> square = new ruGeom::CompactMesh();
  ruGeom::constructRectangle(0, 1, 0, 1, 2, 0, *square, true);
  voDMD::Object* sheet = doc.addMesh(square);
  documentDraw->draw();
  ASSERT_EQ(itemsOf(cube).size(), 1u);
  {
    // Switching the channel marks every mesh for the next frame.
    WireframeOn on;
    EXPECT_TRUE(documentDraw->getDraw(cube)->isModified());
    documentDraw->draw();
    for (voDMD::Object* object : {cube, sheet}) {
      auto items = itemsOf(object);
      ASSERT_EQ(items.size(), 3u);
      EXPECT_TRUE(items[0]->isPickable());
      EXPECT_TRUE(items[0]->isTriangles());
      // The wireframe: every triangle's three edges, not pickable, no shader.
      voGR::DrawItem* wire = items[1];
      EXPECT_FALSE(wire->isPickable());
      EXPECT_FALSE(wire->isTriangles());
      EXPECT_EQ(wire->getShader().get(), nullptr);
      EXPECT_EQ(wire->getColor(), ruUtil::Color(0.2f, 0.1f, 0.0f, 0.1f));
      EXPECT_EQ(wire->getMesh()->getNumLines(), 3 * wire->getMesh()->getNumTriangles());
      // The open edges: yellow lines two pixels wide, white item colour.
      voGR::DrawItem* open = items[2];
      auto* solid = dynamic_cast<voGR::SolidColorShader*>(open->getShader().get());
      ASSERT_NE(solid, nullptr);
      EXPECT_EQ(solid->color, ruUtil::Color(1, 1, 0, 1));
      EXPECT_EQ(solid->lineWidth, 2.0f);
      EXPECT_EQ(open->getColor(), ruUtil::Color::white);
      EXPECT_FALSE(open->isPickable());
    }
    EXPECT_EQ(itemsOf(cube)[2]->getMesh() ? itemsOf(cube)[2]->getMesh()->getNumLines() : 0, 0);
    ASSERT_NE(itemsOf(sheet)[2]->getMesh(), nullptr);
    EXPECT_EQ(itemsOf(sheet)[2]->getMesh()->getNumLines(), 4);
  }
  documentDraw->draw();
  EXPECT_EQ(itemsOf(cube).size(), 1u);
}

TEST_F(MeshDrawGLTest, SetViewDependentTwiceConnectsOnce) {
  voDMD::Object* object = doc.addCuboid(kUnitCube);
  voDMG::ObjectDraw* draw = documentDraw->getDraw(object);
  voDMD::Camera* camera = doc.document.camera();
  const int before = camera->sigCameraChanged.numConnections();
  draw->setViewDependent(true);
  draw->setViewDependent(true);
  EXPECT_EQ(camera->sigCameraChanged.numConnections(), before + 1);
  documentDraw->draw();
  EXPECT_FALSE(draw->isModified());
  camera->set(voGR::test::GLScene::camera(ruLinear::Point(0, 0, 6), ruLinear::Point(0, 0, 0), ruLinear::Vector(0, 1, 0)));
  EXPECT_TRUE(draw->isModified());
  draw->setViewDependent(false);
  EXPECT_EQ(camera->sigCameraChanged.numConnections(), before);
  documentDraw->draw();
  camera->set(voGR::test::GLScene::camera(ruLinear::Point(0, 0, 7), ruLinear::Point(0, 0, 0), ruLinear::Vector(0, 1, 0)));
  EXPECT_FALSE(draw->isModified());
}

// The end-to-end path: three meshes on a real surface, a transform edit, selection, hiding, undo
// and deletion, each checked on the frame and in the worlds.
TEST_F(MeshDrawGLTest, EndToEndThreeMeshesThroughEditsSelectionHidingUndoAndDeletion) {
  voDMD::Object* left = doc.addCuboid(kUnitCube, translation(-1.5, 0, 0));
  voDMD::Object* middle = doc.addCuboid(kUnitCube);
  voDMD::Object* right = doc.addCuboid(kUnitCube, translation(1.5, 0, 0));
  documentDraw->draw();
  const Coverage all = coverage(scene.frame("meshdraw_e2e_0_three"));
  EXPECT_GT(all.count, 3000);
  EXPECT_NEAR(all.x, 127.5, 3.0);

  // Moving one object re-emits that object alone, and its pixels move.
  const auto leftItems = itemsOf(left);
  const auto middleItems = itemsOf(middle);
  const auto rightItems = itemsOf(right);
  doc.transformOf(middle)->setObjToWorld(translation(0, 1.2, 0));
  documentDraw->draw();
  EXPECT_EQ(itemsOf(left), leftItems);
  EXPECT_EQ(itemsOf(right), rightItems);
  EXPECT_NE(itemsOf(middle), middleItems);
  const Coverage moved = coverage(scene.frame("meshdraw_e2e_1_moved"));
  EXPECT_GT(moved.y, all.y + 5.0);  // rows are bottom-up: up the screen

  // Selecting it makes its item active: in "SelectedW", in the selected colour.
  selection.add(setOf({middle}));
  documentDraw->draw();
  EXPECT_EQ(itemsOf(left), leftItems);
  ASSERT_EQ(selectedWorld->size(), 1u);
  EXPECT_TRUE(holds(*selectedWorld, itemsOf(middle)[0]));
  coverage(scene.frame("meshdraw_e2e_2_selected"));

  // Hiding it removes its pixels.
  doc.meshOf(middle)->setVisible(false);
  documentDraw->draw();
  const Coverage hidden = coverage(scene.frame("meshdraw_e2e_3_hidden"));
  EXPECT_LT(hidden.count, moved.count * 0.8);
  EXPECT_EQ(selectedWorld->size(), 0u);

  // Undo brings everything back.
  ASSERT_TRUE(doc.manager.undo());
  ASSERT_TRUE(doc.manager.undo());
  documentDraw->draw();
  const Coverage restored = coverage(scene.frame("meshdraw_e2e_4_undone"));
  EXPECT_NEAR(restored.count, all.count, all.count * 0.01);
  EXPECT_NEAR(restored.y, all.y, 0.5);

  // Deleting the object (out of the selection first) removes its items from every world.
  selection.clear();
  documentDraw->draw();
  const int before = itemsInWorlds();
  ru::Reference<voDMD::Object> keep(middle);
  ASSERT_TRUE(doc.document.remove(middle));
  EXPECT_EQ(itemsInWorlds(), before - 1);
  EXPECT_EQ(scene.database->getAllItems().size(), 2u);
  documentDraw->draw();
  const Coverage deleted = coverage(scene.frame("meshdraw_e2e_5_deleted"));
  EXPECT_LT(deleted.count, all.count * 0.8);
}

}  // namespace

namespace {

// A drawing object that ignores attribute changes and notes when it hears of a transaction, and
// whether it was marked by then.
class TxnListeningDraw : public voDMG::ObjectDraw {
public:
  using ObjectDraw::ObjectDraw;
  int txns = 0;
  bool markedWhenTold = false;

protected:
  void onDraw(voGR::DrawContext&, voDMG::SelectionIterator, voDMG::SelectionIterator, voDMG::SelectionIterator,
              voDMG::SelectionIterator, ru::Reference<voGR::DrawPolicy>) override {}
  void onObjectModified(const voDMD::Modification&) override {}
  void onObjectTxnModified() override {
    ++txns;
    markedWhenTold = isModified();
  }
};

}  // namespace

TEST_F(MeshDrawGLTest, ATransactionOnTheObjectMarksItBeforeTheSubclassHearsOfIt) {
  voDMD::Object* object = doc.addCuboid(kUnitCube);
  auto* listening = new TxnListeningDraw(documentDraw, object);
  documentDraw->setDraw(object, listening);
  documentDraw->draw();
  ASSERT_FALSE(listening->isModified());
  doc.transformOf(object)->setObjToWorld(translation(0, 0, 1));
  EXPECT_EQ(listening->txns, 1);
  EXPECT_TRUE(listening->markedWhenTold);
  EXPECT_TRUE(listening->isModified());
}

TEST_F(MeshDrawGLTest, HitHooksAnswerTheWholeObjectAndAMeshSnapFactory) {
  voDMD::Object* object = doc.addCuboid(kUnitCube);
  voDMG::ObjectDraw* mesh = documentDraw->getDraw(object);
  ASSERT_NE(mesh, nullptr);
  const voGR::HitRecord hit;
  EXPECT_EQ(mesh->getObject(), object);
  EXPECT_EQ(mesh->getItem(hit), voDMG::SelectionItem(object));
  EXPECT_EQ(mesh->getSubObjectItem(hit), voDMG::SelectionItem(object));
  ru::Reference<voDMG::SnapItemFactory> factory = mesh->createSnapItemFactory(hit);
  EXPECT_NE(dynamic_cast<voDMG::MeshSnapFactory*>(factory.get()), nullptr);
  // The base class offers no part and no snap items, but still the whole object.
  TxnListeningDraw plain(documentDraw, object);
  EXPECT_EQ(plain.getItem(hit), voDMG::SelectionItem(object));
  EXPECT_FALSE(plain.getSubObjectItem(hit).valid());
  EXPECT_FALSE(plain.createSnapItemFactory(hit));
}

TEST_F(MeshDrawGLTest, OnlyTheWireframeChannelMarksAMesh) {
  voDMD::Object* object = doc.addCuboid(kUnitCube);
  documentDraw->draw();
  voDMG::ObjectDraw* mesh = documentDraw->getDraw(object);
  ASSERT_FALSE(mesh->isModified());
  voSupport::Debug::getInstance().setEnabled(voSupport::DebugHitTest, true);
  voSupport::Debug::getInstance().setEnabled(voSupport::DebugHitTest, false);
  EXPECT_FALSE(mesh->isModified());
  {
    WireframeOn on;
    EXPECT_TRUE(mesh->isModified());
    documentDraw->draw();
  }
  // Switching it off marks again, to draw without the overlay.
  EXPECT_TRUE(mesh->isModified());
}
