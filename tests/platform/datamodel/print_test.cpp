#include "platform/datamodel/print.h"

#include "platform/datamodel/actions.h"
#include "platform/geometry/algorithms.h"
#include "platform/geometry/construct.h"
#include "platform/support/callinfo.h"

#include "meshes.h"

#include <gtest/gtest.h>

#include <array>
#include <cmath>
#include <string>
#include <type_traits>
#include <utility>
#include <vector>

using namespace voDMD;
using ruLinear::AffineMatrix;
using ruLinear::Normal;
using ruLinear::Point;
using ruLinear::Range3d;
using ruLinear::Vector;

namespace {

// A document with a printer of useable volume [-100, 100] x [-100, 100] x [0, 200], entered in a
// call info as the current document.
struct PrintFixture {
  voDMA::TxnManager txn;
  Document document{*txn.get()};
  voSupport::CallInfo info;
  voSupport::CallScope scope{info};
  ru::Reference<Object> printerObject;
  KLTPrinter* printer = nullptr;

  PrintFixture() {
    info.set(&document);
    printerObject = createPrinterObject(document, Range3d(Point(-100, -100, 0), Point(100, 100, 200)),
                                        Range3d(Point(-120, -120, -10), Point(120, 120, 220)));
    document.insert(printerObject);
    printer = printerObject->findAttribute<KLTPrinter>();
  }
  voTXN::Manager& manager() { return *txn.get(); }

  // A 10 mm cube with its corner at `at`.
  ru::Reference<Object> addCube(const Point& at) {
    ru::Reference<Object> o = createKLTMeshObject(document, testmesh::toMesh(testmesh::box({0, 0, 0}, {10, 10, 10})),
                                                  AffineMatrix::translation(at.asVector()));
    document.insert(o);
    return o;
  }
};

// Counts an object's modifications with a given attribute.
struct ModificationCounter {
  ruRTB::SignalClient client;
  int count = 0;
  ModificationCounter(Object* object, Attribute* attribute) {
    object->sigModified.addCallback([this, attribute](const Modification& m) { count += m.getAttribute() == attribute; },
                                    client);
  }
};

} // namespace

TEST(Print, DecorationFindsThePrinterOfTheCurrentDocument) {
  PrintFixture f;
  ASSERT_NE(KLTDecoration::get(), nullptr);
  EXPECT_EQ(KLTDecoration::get()->getPrinter(), f.printer);
  EXPECT_EQ(f.printerObject->getClass(), KLTPrinterClass::get());
  EXPECT_FALSE(f.printer->outOfBounds());
  EXPECT_TRUE(voDMA::kltGetOutOfBedPlanes().empty());
}

TEST(Print, MovingAMeshOutOfTheBedMarksTheMeshAndThePrinterAndGivesThePlane) {
  PrintFixture f;
  ru::Reference<Object> cube = f.addCube(Point(0, 0, 0));
  KLTMesh* mesh = cube->findAttribute<KLTMesh>();
  Transform* transform = cube->findAttribute<Transform>();
  EXPECT_FALSE(mesh->isOutOfBounds());
  ModificationCounter printerHeard(f.printerObject.get(), f.printer);
  bool currentWhenMoved = false;
  ruRTB::SignalClient client;
  cube->sigModified.addCallback(
      [&](const Modification& m) {
        if (m.getAttribute() == transform) currentWhenMoved = mesh->isOutOfBounds();
      },
      client);
  ModificationCounter meshHeard(cube.get(), mesh);

  transform->setObjToWorld(AffineMatrix::translation(Vector(95, 0, 0)));
  EXPECT_TRUE(currentWhenMoved);
  EXPECT_TRUE(mesh->isOutOfBounds());
  EXPECT_EQ(meshHeard.count, 1);
  EXPECT_EQ(printerHeard.count, 1);
  EXPECT_TRUE(f.printer->outOfBounds());
  const std::vector<ruLinear::ParamPlane> planes = voDMA::kltGetOutOfBedPlanes();
  ASSERT_EQ(planes.size(), 1u);
  EXPECT_TRUE(planes[0].getNormal() == Normal::x);
  EXPECT_EQ(planes[0].getOrigin().x, 100.0);

  // Moving further out on the same side changes nothing for the printer.
  transform->setObjToWorld(AffineMatrix::translation(Vector(96, 0, 0)));
  EXPECT_EQ(printerHeard.count, 1);

  f.manager().undo();
  f.manager().undo();
  EXPECT_FALSE(mesh->isOutOfBounds());
  EXPECT_FALSE(f.printer->outOfBounds());
  EXPECT_EQ(printerHeard.count, 2);
  f.manager().redo();
  EXPECT_TRUE(f.printer->outOfBounds());
  EXPECT_EQ(printerHeard.count, 3);
}

struct FaceCase {
  const char* name;
  Point corner;
  Normal normal;
  double originCoordinate;  // on the face's axis
  int axis;
};

class PrintFaces : public ::testing::TestWithParam<FaceCase> {};

TEST_P(PrintFaces, EachOversteppedFaceGivesItsPlane) {
  const FaceCase& c = GetParam();
  PrintFixture f;
  f.addCube(c.corner);
  const std::vector<ruLinear::ParamPlane> planes = voDMA::kltGetOutOfBedPlanes();
  ASSERT_EQ(planes.size(), 1u);
  EXPECT_TRUE(planes[0].getNormal() == c.normal);
  EXPECT_EQ(planes[0].getOrigin()[c.axis], c.originCoordinate);
}

INSTANTIATE_TEST_SUITE_P(
    Print, PrintFaces,
    ::testing::Values(FaceCase{"MinusX", Point(-105, 0, 10), -Normal::x, -100, 0},
                      FaceCase{"PlusX", Point(95, 0, 10), Normal::x, 100, 0},
                      FaceCase{"MinusY", Point(0, -105, 10), -Normal::y, -100, 1},
                      FaceCase{"PlusY", Point(0, 95, 10), Normal::y, 100, 1},
                      FaceCase{"BottomFacesUpAtTheBed", Point(0, 0, -5), Normal::z, 0, 2},
                      FaceCase{"TopFacesUpAtTheCeiling", Point(0, 0, 195), Normal::z, 200, 2}),
    [](const ::testing::TestParamInfo<FaceCase>& param) { return std::string(param.param.name); });

TEST(Print, PlanesComeInFaceOrderEachOnce) {
  PrintFixture f;
  f.addCube(Point(95, 95, 195));
  f.addCube(Point(-105, 96, -5));
  const std::vector<ruLinear::ParamPlane> planes = voDMA::kltGetOutOfBedPlanes();
  ASSERT_EQ(planes.size(), 5u);
  EXPECT_TRUE(planes[0].getNormal() == -Normal::x);
  EXPECT_TRUE(planes[1].getNormal() == Normal::x);
  EXPECT_TRUE(planes[2].getNormal() == Normal::y);
  // Bottom, then top: told apart by height, within 0.01 of the bed for the bottom.
  EXPECT_TRUE(planes[3].getNormal() == Normal::z);
  EXPECT_LT(std::fabs(planes[3].getOrigin().z - 0.0), 0.01);
  EXPECT_TRUE(planes[4].getNormal() == Normal::z);
  EXPECT_EQ(planes[4].getOrigin().z, 200.0);
}

TEST(Print, AMeshTouchingTheVolumeIsInside) {
  PrintFixture f;
  ru::Reference<Object> cube = f.addCube(Point(90, 90, 0));  // reaches exactly 100 and the bed
  EXPECT_FALSE(cube->findAttribute<KLTMesh>()->isOutOfBounds());
  EXPECT_FALSE(f.printer->outOfBounds());
}

TEST(Print, HiddenAndRemovedMeshesDoNotPutThePrinterOutOfBounds) {
  PrintFixture f;
  ru::Reference<Object> cube = f.addCube(Point(95, 0, 0));
  KLTMesh* mesh = cube->findAttribute<KLTMesh>();
  EXPECT_TRUE(f.printer->outOfBounds());
  mesh->setVisible(false);
  EXPECT_TRUE(mesh->isOutOfBounds());
  EXPECT_FALSE(f.printer->outOfBounds());
  mesh->setVisible(true);
  EXPECT_TRUE(f.printer->outOfBounds());
  f.document.remove(cube.get());
  EXPECT_FALSE(f.printer->outOfBounds());
  f.manager().undo();
  EXPECT_TRUE(f.printer->outOfBounds());
}

TEST(Print, ChangingThePrinterVolumeReassessesEveryMesh) {
  PrintFixture f;
  ru::Reference<Object> cube = f.addCube(Point(95, 0, 0));
  ModificationCounter printerHeard(f.printerObject.get(), f.printer);
  f.printer->setVolumes(Range3d(Point(-200, -200, 0), Point(200, 200, 200)), f.printer->totalVolume());
  EXPECT_FALSE(cube->findAttribute<KLTMesh>()->isOutOfBounds());
  EXPECT_FALSE(f.printer->outOfBounds());
  EXPECT_GE(printerHeard.count, 1);
  f.manager().undo();
  EXPECT_TRUE(f.printer->outOfBounds());
  EXPECT_EQ(f.printer->useableVolume().getMax().x, 100.0);
}

TEST(Print, PrinterConnectionAndMinimumThicknessAreUndoable) {
  PrintFixture f;
  f.printer->setConnected(true);
  f.printer->setMinimumThickness(2.0);
  EXPECT_TRUE(f.printer->connected());
  f.manager().undo();
  EXPECT_EQ(f.printer->minimumThickness, 0.8);
  f.manager().undo();
  EXPECT_FALSE(f.printer->connected());
}

TEST(Print, FindKLTMeshesListsPrintMeshesInDocumentOrder) {
  PrintFixture f;
  ru::Reference<Object> a = f.addCube(Point(0, 0, 0));
  ru::Reference<Object> b = f.addCube(Point(20, 0, 0));
  f.document.insert(createMeshObject(f.document, testmesh::toMesh(testmesh::box())));
  const ru::vector<KLTMesh*> meshes = voDMA::findKLTMeshes();
  ASSERT_EQ(meshes.size(), 2u);
  EXPECT_EQ(meshes[0], a->findAttribute<KLTMesh>());
  EXPECT_EQ(meshes[1], b->findAttribute<KLTMesh>());
}

TEST(Print, HollowBoxWallsMeasureTheirThickness) {
  PrintFixture f;
  const testmesh::Soup soup = testmesh::hollowBox(10.0f, 1.0f, 10);
  ru::Reference<Object> o = createKLTMeshObject(f.document, testmesh::toMesh(soup));
  f.document.insert(o);
  KLTMesh* mesh = o->findAttribute<KLTMesh>();
  EXPECT_TRUE(mesh->needsAnalyseThickness());
  ModificationCounter heard(o.get(), mesh);
  ASSERT_TRUE(mesh->analyseThickness());
  EXPECT_EQ(heard.count, 1);
  EXPECT_FALSE(mesh->needsAnalyseThickness());
  ASSERT_EQ(mesh->thickness.size(), 3 * soup.numTriangles());
  // Corners away from the box's edges see the wall across: 1 mm. None is thinner.
  std::size_t interior = 0;
  for (std::size_t t = 0; t < soup.numTriangles(); ++t) {
    for (int k = 0; k < 3; ++k) {
      EXPECT_GT(mesh->thickness[3 * t + k], 0.98f);
    }
  }
  for (std::size_t t = 0; t < soup.numTriangles(); ++t) {
    for (int k = 0; k < 3; ++k) {
      const float* p = &soup.positions[3 * soup.triangles[3 * t + k]];
      int central = 0;
      for (int a = 0; a < 3; ++a) central += p[a] >= 2.0f && p[a] <= 8.0f;
      if (central == 2) {
        EXPECT_NEAR(mesh->thickness[3 * t + k], 1.0f, 1e-3f);
        ++interior;
      }
    }
  }
  EXPECT_GT(interior, 100u);
  f.printer->minimumThickness = 0.8;
  EXPECT_TRUE(voDMA::isPartThick(mesh));
  f.printer->minimumThickness = 1.5;
  EXPECT_FALSE(voDMA::isPartThick(mesh));
}

TEST(Print, SolidBlockIsThickEverywhere) {
  PrintFixture f;
  ru::Reference<Object> o = f.addCube(Point(0, 0, 0));
  KLTMesh* mesh = o->findAttribute<KLTMesh>();
  EXPECT_TRUE(voDMA::isPartThick(mesh));  // nothing measured yet
  mesh->analyseThickness();
  for (float value : mesh->thickness) EXPECT_NEAR(value, 10.0f, 1e-3f);
  f.printer->minimumThickness = 9.0;
  EXPECT_TRUE(voDMA::isPartThick(mesh));
}

TEST(Print, ThicknessLimitIsConvertedIntoTheObjectsCoordinates) {
  PrintFixture f;
  ru::Reference<Object> o = f.addCube(Point(0, 0, 0));
  KLTMesh* mesh = o->findAttribute<KLTMesh>();
  mesh->analyseThickness();
  // Scaled twice: the 10 mm block is 20 mm in the world; a 15 mm limit is 7.5 in the mesh.
  o->findAttribute<Transform>()->setObjToWorld(AffineMatrix::scaling(2.0));
  f.printer->minimumThickness = 15.0;
  EXPECT_TRUE(voDMA::isPartThick(mesh));
  f.printer->minimumThickness = 25.0;
  EXPECT_FALSE(voDMA::isPartThick(mesh));
}

TEST(Print, ThicknessAnalysisIsUndoneAndRedoneAndDroppedWithANewMesh) {
  PrintFixture f;
  ru::Reference<Object> o = f.addCube(Point(0, 0, 0));
  KLTMesh* mesh = o->findAttribute<KLTMesh>();
  mesh->analyseThickness();
  f.manager().undo();
  EXPECT_TRUE(mesh->needsAnalyseThickness());
  EXPECT_TRUE(mesh->thickness.empty());
  f.manager().redo();
  EXPECT_FALSE(mesh->needsAnalyseThickness());
  EXPECT_EQ(mesh->thickness.size(), 36u);
  mesh->setMesh(testmesh::toMesh(testmesh::box({0, 0, 0}, {5, 5, 5})));
  EXPECT_TRUE(mesh->needsAnalyseThickness());
}

TEST(Print, UnanalysedMeshWithoutGeometryCannotBeAnalysed) {
  PrintFixture f;
  ru::Reference<Object> o = createKLTMeshObject(f.document, nullptr);
  f.document.insert(o);
  EXPECT_FALSE(o->findAttribute<KLTMesh>()->analyseThickness());
  EXPECT_FALSE(o->findAttribute<KLTMesh>()->needsRepair());
  EXPECT_FALSE(o->findAttribute<KLTMesh>()->repair());
}

namespace {

struct HealthCase {
  const char* name;
  testmesh::Soup (*make)();
  bool healthy;
};

testmesh::Soup closedCube() { return testmesh::box({0, 0, 0}, {10, 10, 10}); }
testmesh::Soup cubeMissingAFace() {
  testmesh::Soup soup;
  testmesh::addBox(soup, {0, 0, 0}, {10, 10, 10}, false, 1, 1u << 2);
  return soup;
}
testmesh::Soup cubesSharingAnEdge() {
  testmesh::Soup soup;
  testmesh::addBox(soup, {0, 0, 0}, {10, 10, 10});
  testmesh::addBox(soup, {10, 10, 0}, {20, 20, 10});
  return soup;
}
testmesh::Soup cubeWithFlippedTriangles() {
  testmesh::Soup soup = testmesh::box({0, 0, 0}, {10, 10, 10}, 2);
  std::swap(soup.triangles[1], soup.triangles[2]);
  std::swap(soup.triangles[31], soup.triangles[32]);
  return soup;
}

} // namespace

class PrintHealth : public ::testing::TestWithParam<HealthCase> {};

TEST_P(PrintHealth, RepairMakesTheMeshHealthyAndSaysItWasRepaired) {
  const HealthCase& c = GetParam();
  PrintFixture f;
  ru::Reference<Object> o = createKLTMeshObject(f.document, testmesh::toMesh(c.make()));
  f.document.insert(o);
  KLTMesh* mesh = o->findAttribute<KLTMesh>();
  EXPECT_EQ(mesh->needsRepair(), !c.healthy);
  EXPECT_FALSE(mesh->isRepaired());
  const ru::Reference<const ruGeom::CompactMesh> before = mesh->getMesh();
  EXPECT_EQ(mesh->repair(), !c.healthy);
  if (c.healthy) {
    EXPECT_EQ(mesh->getMesh().get(), before.get());
    return;
  }
  EXPECT_TRUE(mesh->isRepaired());
  EXPECT_TRUE(mesh->needsRepair());  // with isRepaired: the "repaired" state
  EXPECT_TRUE(voDMA::analyseMeshHealth(*mesh->getMesh()).healthy());
  EXPECT_TRUE(mesh->getMesh()->hasNormals());
  f.manager().undo();
  EXPECT_EQ(mesh->getMesh().get(), before.get());
  EXPECT_FALSE(mesh->isRepaired());
  EXPECT_TRUE(mesh->needsRepair());
  f.manager().redo();
  EXPECT_TRUE(mesh->isRepaired());
}

INSTANTIATE_TEST_SUITE_P(Print, PrintHealth,
                         ::testing::Values(HealthCase{"ClosedCube", closedCube, true},
                                           HealthCase{"CubeMissingAFace", cubeMissingAFace, false},
                                           HealthCase{"CubesSharingAnEdge", cubesSharingAnEdge, false},
                                           HealthCase{"CubeWithFlippedTriangles", cubeWithFlippedTriangles, false}),
                         [](const ::testing::TestParamInfo<HealthCase>& param) { return std::string(param.param.name); });

TEST(Print, PendingAnalysesAreRedoneAfterTheMeshChanges) {
  PrintFixture f;
  ru::Reference<Object> a = f.addCube(Point(0, 0, 0));
  ru::Reference<Object> b = f.addCube(Point(20, 0, 0));
  EXPECT_EQ(voDMA::analysePendingThickness(), 2);
  EXPECT_EQ(f.manager().undoName(), "Analyse thickness");
  EXPECT_EQ(voDMA::analysePendingThickness(), 0);
  KLTMesh* mesh = a->findAttribute<KLTMesh>();
  mesh->setMesh(testmesh::toMesh(testmesh::box({0, 0, 0}, {4, 4, 4})));
  EXPECT_TRUE(mesh->needsAnalyseThickness());
  EXPECT_EQ(voDMA::analysePendingThickness(), 1);
  EXPECT_FALSE(mesh->needsAnalyseThickness());
  for (float value : mesh->thickness) EXPECT_NEAR(value, 4.0f, 1e-3f);
  EXPECT_FALSE(b->findAttribute<KLTMesh>()->needsAnalyseThickness());
}

TEST(Print, ABoxWhoseFacesCarryTheirOwnCornersIsAHealthyClosedSolid) {
  PrintFixture f;
  ru::Reference<ruGeom::CompactMesh> box(new ruGeom::CompactMesh());
  ruGeom::constructCuboid(Range3d(Point(0, 0, 0), Point(10, 10, 10)), *box);
  ASSERT_GT(box->getNumVertices(), 8);  // corners repeated per face
  ru::Reference<Object> o = createKLTMeshObject(f.document, box);
  f.document.insert(o);
  KLTMesh* mesh = o->findAttribute<KLTMesh>();
  EXPECT_FALSE(mesh->needsRepair());
  EXPECT_FALSE(mesh->repair());
  mesh->analyseThickness();
  for (float value : mesh->thickness) EXPECT_NEAR(value, 10.0f, 1e-3f);
}

TEST(Print, AMeshChangeAnnouncesAnOutOfBoundsStateThatIsAlreadyCurrent) {
  PrintFixture f;
  ru::Reference<Object> cube = f.addCube(Point(85, 0, 0));
  KLTMesh* mesh = cube->findAttribute<KLTMesh>();
  EXPECT_FALSE(mesh->isOutOfBounds());
  std::vector<bool> seen;
  ruRTB::SignalClient client;
  cube->sigModified.addCallback([&](const Modification& m) {
    if (m.getAttribute() == mesh) seen.push_back(mesh->isOutOfBounds());
  }, client);
  mesh->setMesh(testmesh::toMesh(testmesh::box({0, 0, 0}, {20, 20, 20})));  // now reaches x = 105
  ASSERT_FALSE(seen.empty());
  EXPECT_TRUE(seen.front());
  EXPECT_TRUE(f.printer->outOfBounds());
}

TEST(Print, RemovingAGroupHoldingThePrinterReassessesEveryMesh) {
  PrintFixture f;
  ru::Reference<Object> cube = f.addCube(Point(95, 0, 0));
  EXPECT_TRUE(cube->findAttribute<KLTMesh>()->isOutOfBounds());
  // Move the printer into a group, then take the group away.
  ru::Reference<Object> group = Object::create(f.document, GroupClass::get());
  f.document.insert(group);
  f.document.remove(f.printerObject.get());
  f.manager().clearHistory();
  EXPECT_FALSE(cube->findAttribute<KLTMesh>()->isOutOfBounds());  // no printer, no bounds
  ru::Reference<Object> printer = createPrinterObject(f.document, Range3d(Point(-100, -100, 0), Point(100, 100, 200)),
                                                      Range3d(Point(-100, -100, 0), Point(100, 100, 200)));
  f.document.insert(printer, group.get());
  EXPECT_TRUE(cube->findAttribute<KLTMesh>()->isOutOfBounds());
  f.document.remove(group.get());
  EXPECT_FALSE(cube->findAttribute<KLTMesh>()->isOutOfBounds());
}

TEST(Print, ChangingTheToleranceTableReassessesTheBounds) {
  PrintFixture f;
  ru::Reference<Object> cube = f.addCube(Point(90.5, 0, 0));  // 0.5 mm past the volume
  EXPECT_TRUE(cube->findAttribute<KLTMesh>()->isOutOfBounds());
  Tolerances tolerances = f.document.getToleranceTable();
  tolerances.outOfBounds = 1.0;
  f.document.setToleranceTable(tolerances);
  EXPECT_FALSE(cube->findAttribute<KLTMesh>()->isOutOfBounds());
  EXPECT_FALSE(f.printer->outOfBounds());
}

TEST(Print, ThicknessLimitGoesThroughTheInverseOfANonUniformScale) {
  PrintFixture f;
  ru::Reference<Object> o = f.addCube(Point(0, 0, 0));
  KLTMesh* mesh = o->findAttribute<KLTMesh>();
  mesh->analyseThickness();  // 10 everywhere, in the mesh's coordinates
  o->findAttribute<Transform>()->setObjToWorld(AffineMatrix::scaling(Vector(1, 2, 4)));
  // The limit t becomes the length of (t/sqrt(3)) (1, 1/2, 1/4) in the mesh: t * 0.6547.
  const double factor = std::sqrt((1.0 + 0.25 + 0.0625) / 3.0);
  f.printer->minimumThickness = 10.0 / factor - 0.01;
  EXPECT_TRUE(voDMA::isPartThick(mesh));
  f.printer->minimumThickness = 10.0 / factor + 0.01;
  EXPECT_FALSE(voDMA::isPartThick(mesh));
}

TEST(Print, ThePrinterCountsAsTouchedByTheTransactionThatMovedAMeshOutOfTheBed) {
  PrintFixture f;
  ru::Reference<Object> cube = f.addCube(Point(0, 0, 0));
  int heard = 0;
  ruRTB::SignalClient client;
  f.printerObject->sigTxnModified.addCallback([&](const Object*) { ++heard; }, client);
  cube->findAttribute<Transform>()->setObjToWorld(AffineMatrix::translation(Vector(95, 0, 0)));
  EXPECT_EQ(heard, 1);
  f.manager().undo();
  EXPECT_EQ(heard, 2);
  EXPECT_FALSE(f.printer->outOfBounds());
  // Moving within the bed leaves the printer alone.
  cube->findAttribute<Transform>()->setObjToWorld(AffineMatrix::translation(Vector(5, 0, 0)));
  EXPECT_EQ(heard, 2);
}

// --- World boxes -----------------------------------------------------------------------------

namespace {

Range3d transformedVertices(const ruGeom::CompactMesh& mesh, const AffineMatrix& m) {
  Range3d range;
  for (int i = 0; i < mesh.getNumVertices(); ++i) range.include(mesh.getVertices()[i].asPoint() * m);
  return range;
}

void expectNearRange(const Range3d& expected, const Range3d& actual) {
  ASSERT_TRUE(actual.isValid());
  for (int axis = 0; axis < 3; ++axis) {
    EXPECT_NEAR(expected.getMin(axis), actual.getMin(axis), 1e-9) << "axis " << axis;
    EXPECT_NEAR(expected.getMax(axis), actual.getMax(axis), 1e-9) << "axis " << axis;
  }
}

} // namespace

TEST(PrintWorldBox, IsTheBoxOfTheMovedVerticesAfterRotationsScalesAndDrags) {
  PrintFixture f;
  ru::Reference<Object> part = createKLTMeshObject(f.document, testmesh::toMesh(testmesh::hollowBox(10, 1, 4)));
  f.document.insert(part);
  const ruGeom::CompactMesh& mesh = *part->findAttribute<KLTMesh>()->getMesh();
  Transform* transform = part->findAttribute<Transform>();
  const KLTMeshBBox* box = part->findAttribute<KLTMeshBBox>();
  AffineMatrix m = AffineMatrix::rotation(0.6, Vector(1, 2, 3));
  for (int step = 0; step < 20; ++step) {
    // A drag: translations only, then now and then a turn or a stretch.
    m.postMultiply(AffineMatrix::translation(Vector(0.5 * step, -0.25, 0.125)));
    if (step % 5 == 4) m.preMultiply(AffineMatrix::rotation(0.3, Vector(0, 1, 1)));
    if (step == 12) m.preMultiply(AffineMatrix::scaling(Vector(1, 2, 0.5)));
    transform->setObjToWorld(m);
    expectNearRange(transformedVertices(mesh, m), box->getWorldSpace());
  }
  // Undo restores the box of the earlier placement.
  const AffineMatrix last = m;
  f.manager().undo();
  const AffineMatrix previous = transform->getObjToWorld();
  EXPECT_FALSE(previous == last);
  expectNearRange(transformedVertices(mesh, previous), box->getWorldSpace());
}

TEST(PrintWorldBox, IsTakenOverTheCachedHullOfTheMeshNotEveryVertex) {
  PrintFixture f;
  const std::size_t cachedBefore = ruGeom::hullCandidateCacheSize();
  ru::Reference<Object> part = createKLTMeshObject(f.document, testmesh::toMesh(testmesh::box({0, 0, 0}, {10, 10, 10}, 12)));
  f.document.insert(part);
  // Placing the part measured it once: its hull candidates are cached with its vertex buffer.
  EXPECT_EQ(ruGeom::hullCandidateCacheSize(), cachedBefore + 1);
  // The eight corners, and at most one face point for each of the six axis directions.
  EXPECT_LE(ruGeom::meshHullCandidates(*part->findAttribute<KLTMesh>()->getMesh())->size(), 14u);
  part->findAttribute<Transform>()->setObjToWorld(AffineMatrix::rotation(0.4, Vector(1, 1, 0)));
  EXPECT_EQ(ruGeom::hullCandidateCacheSize(), cachedBefore + 1);
  // A new mesh is measured anew, and the old one's candidates go when nothing holds its buffer.
  part->findAttribute<KLTMesh>()->setMesh(testmesh::toMesh(testmesh::box({0, 0, 0}, {20, 20, 20}, 3)));
  f.manager().clearHistory();
  expectNearRange(transformedVertices(*part->findAttribute<KLTMesh>()->getMesh(), AffineMatrix::rotation(0.4, Vector(1, 1, 0))),
                  part->findAttribute<KLTMeshBBox>()->getWorldSpace());
  EXPECT_EQ(ruGeom::hullCandidateCacheSize(), cachedBefore + 1);
}

TEST(Print, CameraChangesAndMeshEditsKeepThePrinterFoundOnce) {
  PrintFixture f;
  ru::Reference<Object> cube = f.addCube(Point(0, 0, 0));
  KLTDecoration* decoration = KLTDecoration::get();
  ASSERT_EQ(decoration->getPrinter(), f.printer);
  const std::uint64_t searches = decoration->printerSearches();
  for (int i = 0; i < 5; ++i) {
    ruGeom::Camera camera = f.document.camera()->get();
    camera.setWorldToEye(Point(0, 0, 0), Point(100.0 + i, 50, 80), Vector(0, 0, 1));
    f.document.camera()->set(camera);
    EXPECT_EQ(decoration->getPrinter(), f.printer);
  }
  cube->findAttribute<Transform>()->setObjToWorld(AffineMatrix::translation(Vector(300, 0, 0)));
  EXPECT_TRUE(f.printer->outOfBounds());
  cube->findAttribute<KLTMesh>()->setVisible(false);
  f.document.remove(cube.get());
  EXPECT_EQ(decoration->getPrinter(), f.printer);
  EXPECT_EQ(decoration->printerSearches(), searches);
  // The printer going is a reason to look again; undo brings it back.
  f.document.remove(f.printerObject.get());
  EXPECT_EQ(decoration->getPrinter(), nullptr);
  EXPECT_GT(decoration->printerSearches(), searches);
  f.manager().undo();
  EXPECT_EQ(decoration->getPrinter(), f.printer);
}

// --- The mesh is the attribute's own ----------------------------------------------------------

static_assert(std::is_const_v<std::remove_reference_t<decltype(*std::declval<KLTMesh&>().getMesh())>>,
              "a print mesh is handed out for reading only");
static_assert(std::is_const_v<std::remove_reference_t<decltype(std::declval<Mesh&>().getSubMesh(0))>>,
              "a sub-mesh is handed out for reading only");

TEST(PrintMesh, WritingTheMeshHandedInLeavesTheAttributeItsBoxAndItsHealthAlone) {
  PrintFixture f;
  ru::Reference<ruGeom::CompactMesh> mine = testmesh::toMesh(testmesh::box({0, 0, 0}, {10, 10, 10}));
  ru::Reference<Object> part = createKLTMeshObject(f.document, mine);
  f.document.insert(part);
  KLTMesh* mesh = part->findAttribute<KLTMesh>();
  const KLTMeshBBox* box = part->findAttribute<KLTMeshBBox>();
  ASSERT_TRUE(mesh->analyseThickness());
  EXPECT_FALSE(mesh->needsRepair());
  EXPECT_EQ(mesh->getMesh()->getVertexBufferId(), mine->getVertexBufferId());  // shared, not copied
  const std::size_t undoDepth = f.manager().undoDepth();

  // The caller goes on writing its mesh: far out of the bed, and a triangle torn off.
  mine->editVertices()[0] = ruGeom::MeshVertex(500, 500, 500);
  mine->setNumTriangles(mine->getNumTriangles() - 1);

  EXPECT_EQ(mesh->getMesh()->getVertices()[0], ruGeom::MeshVertex(0, 0, 0));
  EXPECT_EQ(mesh->getMesh()->getNumTriangles(), 12);
  EXPECT_EQ(box->getWorldSpace(), Range3d(Point(0, 0, 0), Point(10, 10, 10)));
  EXPECT_FALSE(mesh->needsRepair());
  EXPECT_FALSE(mesh->needsAnalyseThickness());
  EXPECT_FALSE(mesh->isOutOfBounds());
  EXPECT_EQ(f.manager().undoDepth(), undoDepth);

  // Handing the edited mesh to the setter is the change: placed, judged, undoable.
  mesh->setMesh(mine);
  EXPECT_TRUE(mesh->isOutOfBounds());
  EXPECT_TRUE(mesh->needsRepair());
  EXPECT_TRUE(mesh->needsAnalyseThickness());
  EXPECT_EQ(box->getWorldSpace().getMax(), Point(500, 500, 500));
  f.manager().undo();
  EXPECT_EQ(mesh->getMesh()->getVertices()[0], ruGeom::MeshVertex(0, 0, 0));
  EXPECT_FALSE(mesh->isOutOfBounds());
  EXPECT_FALSE(mesh->needsRepair());
  EXPECT_EQ(box->getWorldSpace(), Range3d(Point(0, 0, 0), Point(10, 10, 10)));
}

TEST(PrintMesh, AReaderKeepsTheMeshItReadAcrossAReplacement) {
  PrintFixture f;
  ru::Reference<Object> part = f.addCube(Point(0, 0, 0));
  KLTMesh* mesh = part->findAttribute<KLTMesh>();
  const ru::Reference<const ruGeom::CompactMesh> read = mesh->getMesh();
  mesh->setMesh(testmesh::toMesh(testmesh::box({0, 0, 0}, {2, 2, 2})));
  f.manager().clearHistory();
  EXPECT_EQ(read->getNumTriangles(), 12);
  EXPECT_EQ(read->getBoundingBox().asRange3d().getMax(), Point(10, 10, 10));
}

TEST(PlainMesh, WritingTheMeshesHandedInLeavesTheAttributeAndItsBoxAlone) {
  PrintFixture f;
  ru::Reference<ruGeom::CompactMesh> mine = testmesh::toMesh(testmesh::box({0, 0, 0}, {1, 1, 1}));
  ru::Reference<Object> object = createMeshObject(f.document, mine);
  f.document.insert(object);
  Mesh* attribute = object->findAttribute<Mesh>();
  const BoundingBox* box = object->findAttribute<BoundingBox>();
  mine->editVertices()[0] = ruGeom::MeshVertex(-7, 0, 0);
  EXPECT_EQ(attribute->getSubMesh(0).getVertices()[0], ruGeom::MeshVertex(0, 0, 0));
  EXPECT_EQ(box->getWorldSpace().getMin(), Point(0, 0, 0));
  ru::Reference<ruGeom::CompactMesh> second = testmesh::toMesh(testmesh::box({0, 0, 0}, {3, 3, 3}));
  attribute->setSubMeshes({mine, second});
  second->editVertices()[0] = ruGeom::MeshVertex(0, 0, 99);
  EXPECT_EQ(attribute->getSubMesh(1).getBoundingBox().asRange3d().getMax(), Point(3, 3, 3));
  EXPECT_EQ(box->getWorldSpace(), Range3d(Point(-7, 0, 0), Point(3, 3, 3)));
}

// --- Repair keeps what survives it ------------------------------------------------------------

namespace {

// A 10 mm cube whose faces carry their own corners (texture seams along every edge) with texture
// coordinates, a colour and a two-float attribute per vertex, all distinct, and two lines.
ru::Reference<ruGeom::CompactMesh> decoratedCube() {
  ru::Reference<ruGeom::CompactMesh> mesh(new ruGeom::CompactMesh());
  ruGeom::constructCuboid(Range3d(Point(0, 0, 0), Point(10, 10, 10)), *mesh);
  const int n = mesh->getNumVertices();
  ruGeom::MeshTexCoord* uv = mesh->editTextureCoordinates();
  ruGeom::MeshColor* colour = mesh->editColors();
  float* weight = mesh->allocAttributes("weight", 2).editFloat();
  for (int i = 0; i < n; ++i) {
    uv[i] = ruGeom::MeshTexCoord{0.01f * i, 1.0f - 0.01f * i};
    colour[i] = ruGeom::MeshColor{0.02f * i, 0.5f, 1.0f - 0.02f * i, 1.0f};
    weight[2 * i] = float(i);
    weight[2 * i + 1] = float(100 + i);
  }
  mesh->addLine(0, 5);
  mesh->addLine(7, 12);
  return mesh;
}

// The corner vertex indices of a triangle, starting at its smallest, winding kept.
std::array<std::uint32_t, 3> rotated(const std::uint32_t* c) {
  int k = 0;
  if (c[1] < c[k]) k = 1;
  if (c[2] < c[k]) k = 2;
  return {c[k], c[(k + 1) % 3], c[(k + 2) % 3]};
}

bool hasTriangle(const ruGeom::CompactMesh& mesh, const std::uint32_t* c) {
  const auto want = rotated(c);
  const std::uint32_t flippedCorners[3] = {c[0], c[2], c[1]};
  const auto wantFlipped = rotated(flippedCorners);
  for (int t = 0; t < mesh.getNumTriangles(); ++t) {
    const auto have = rotated(mesh.getTriangles() + 3 * t);
    if (have == want || have == wantFlipped) return true;
  }
  return false;
}

} // namespace

TEST(PrintRepair, KeepsTextureCoordinatesColoursLinesAndNamedAttributesOfTheVerticesItKeeps) {
  PrintFixture f;
  ru::Reference<ruGeom::CompactMesh> damaged = decoratedCube();
  const ru::Reference<const ruGeom::CompactMesh> original = decoratedCube();
  // A hole (one triangle gone), a flipped triangle, a duplicate.
  std::uint32_t* t = damaged->editTriangles();
  std::swap(t[3 * 4 + 1], t[3 * 4 + 2]);
  const std::uint32_t removed[3] = {t[0], t[1], t[2]};
  std::copy(t + 3, t + 3 * damaged->getNumTriangles(), t);
  damaged->setNumTriangles(damaged->getNumTriangles() - 1);
  damaged->addTriangle(damaged->getTriangles()[6], damaged->getTriangles()[7], damaged->getTriangles()[8]);
  ru::Reference<Object> part = createKLTMeshObject(f.document, damaged);
  f.document.insert(part);
  KLTMesh* mesh = part->findAttribute<KLTMesh>();
  ASSERT_TRUE(mesh->needsRepair());
  voDMA::MeshRepairReport report;
  ASSERT_TRUE(mesh->repair(&report));
  EXPECT_TRUE(report.remaining.healthy());
  const ru::Reference<const ruGeom::CompactMesh> repaired = mesh->getMesh();
  EXPECT_TRUE(voDMA::analyseMeshHealth(*repaired).healthy());
  EXPECT_EQ(report.removedDuplicate, 1u);
  EXPECT_EQ(report.closedHoles, 1u);

  // Every vertex of the input is still there with all it carried.
  ASSERT_GE(repaired->getNumVertices(), original->getNumVertices());
  ASSERT_TRUE(repaired->hasTextureCoordinates());
  ASSERT_TRUE(repaired->hasColors());
  const ruGeom::MeshAttributes weight = repaired->getAttributes("weight");
  ASSERT_TRUE(weight.valid());
  ASSERT_EQ(weight.getWidth(), 2);
  for (int i = 0; i < original->getNumVertices(); ++i) {
    EXPECT_EQ(repaired->getVertices()[i], original->getVertices()[i]);
    EXPECT_EQ(repaired->getTextureCoordinates()[i].u, original->getTextureCoordinates()[i].u);
    EXPECT_EQ(repaired->getTextureCoordinates()[i].v, original->getTextureCoordinates()[i].v);
    EXPECT_EQ(repaired->getColors()[i].r, original->getColors()[i].r);
    EXPECT_EQ(repaired->getColors()[i].b, original->getColors()[i].b);
    EXPECT_EQ(weight.asFloat()[2 * i], float(i));
    EXPECT_EQ(weight.asFloat()[2 * i + 1], float(100 + i));
  }
  ASSERT_EQ(repaired->getNumLines(), 2);
  EXPECT_EQ(repaired->getLines()[0], 0u);
  EXPECT_EQ(repaired->getLines()[3], 12u);
  // Every triangle kept has the corners it had (so each corner keeps its texture coordinates),
  // turned perhaps; the only triangles added close the hole where the removed one was.
  for (int i = 0; i < original->getNumTriangles(); ++i) {
    const std::uint32_t* c = original->getTriangles() + 3 * i;
    if (rotated(c) == rotated(removed)) continue;
    EXPECT_TRUE(hasTriangle(*repaired, c)) << "triangle " << i;
  }
  EXPECT_EQ(repaired->getNumTriangles(), original->getNumTriangles());
}

TEST(PrintRepair, VerticesCopiedToPullPartsApartCarryTheAttributesOfTheirSource) {
  PrintFixture f;
  // Two cubes sharing an edge: the shared vertices are copied for one of them.
  testmesh::Soup soup;
  testmesh::addBox(soup, {0, 0, 0}, {1, 1, 1});
  testmesh::addBox(soup, {1, 1, 0}, {2, 2, 1});
  ru::Reference<ruGeom::CompactMesh> twoCubes = testmesh::toMesh(soup);
  const int n = twoCubes->getNumVertices();
  ruGeom::MeshTexCoord* uv = twoCubes->editTextureCoordinates();
  float* id = twoCubes->allocAttributes("id", 1).editFloat();
  for (int i = 0; i < n; ++i) {
    uv[i] = ruGeom::MeshTexCoord{float(i), float(-i)};
    id[i] = float(i);
  }
  ru::Reference<Object> part = createKLTMeshObject(f.document, twoCubes);
  f.document.insert(part);
  KLTMesh* mesh = part->findAttribute<KLTMesh>();
  voDMA::MeshRepairReport report;
  ASSERT_TRUE(mesh->repair(&report));
  EXPECT_EQ(report.splitVertices, 2u);
  EXPECT_TRUE(report.remaining.healthy());
  const ru::Reference<const ruGeom::CompactMesh> repaired = mesh->getMesh();
  ASSERT_EQ(repaired->getNumVertices(), n + 2);
  const ruGeom::MeshAttributes ids = repaired->getAttributes("id");
  for (int i = n; i < n + 2; ++i) {
    // A copy sits where its source is and carries its source's values.
    const auto source = static_cast<int>(ids.asFloat()[i]);
    ASSERT_GE(source, 0);
    ASSERT_LT(source, n);
    EXPECT_EQ(repaired->getVertices()[i], repaired->getVertices()[source]);
    EXPECT_EQ(repaired->getTextureCoordinates()[i].u, float(source));
    EXPECT_EQ(repaired->getTextureCoordinates()[i].v, float(-source));
  }
}

TEST(PrintMeshHandout, AWritableReferenceSharesTheBuffersAndItsWritesNeverReachTheAttribute) {
  PrintFixture f;
  ru::Reference<Object> part = createKLTMeshObject(f.document, testmesh::toMesh(testmesh::hollowBox(10, 1, 4)));
  f.document.insert(part);
  const KLTMesh* attribute = part->findAttribute<KLTMesh>();
  const ruGeom::CompactMesh& own = *attribute->getMesh();
  const ruLinear::Point first = own.getVertices()[0].asPoint();

  ru::Reference<ruGeom::CompactMesh> writable = attribute->getMesh();
  ASSERT_TRUE(writable);
  EXPECT_NE(writable.get(), &own);
  EXPECT_EQ(writable->getVertexBufferId(), own.getVertexBufferId());
  EXPECT_EQ(writable->getTriangleBufferId(), own.getTriangleBufferId());
  EXPECT_EQ(writable->getNumTriangles(), own.getNumTriangles());

  writable->editVertices()[0].x += 100.0f;
  EXPECT_NE(writable->getVertexBufferId(), own.getVertexBufferId());
  EXPECT_EQ(own.getVertices()[0].asPoint(), first);
  EXPECT_EQ(attribute->getMesh()->getVertices()[0].asPoint(), first);
}

TEST(PrintMeshHandout, AnAttributeWithoutAMeshHandsOutNullEitherWay) {
  PrintFixture f;
  ru::Reference<Object> part = createKLTMeshObject(f.document, nullptr);
  const KLTMesh* attribute = part->findAttribute<KLTMesh>();
  ASSERT_NE(attribute, nullptr);
  ru::Reference<ruGeom::CompactMesh> writable = attribute->getMesh();
  EXPECT_FALSE(writable);
  EXPECT_FALSE(attribute->getMesh());
}
