#include "datamodelgui/print/printerdraw.h"

#include "datamodelgui/draw/documentdraw.h"
#include "datamodelgui/print/meshdraw.h"
#include "platform/datamodel/actions.h"
#include "platform/datamodel/document.h"
#include "platform/datamodel/print.h"
#include "platform/geometry/box.h"
#include "platform/geometry/construct.h"
#include "platform/geometry/mesh.h"
#include "platform/graphics/draw.h"
#include "platform/graphics/shader.h"
#include "platform/support/broadcaster.h"
#include "platform/support/callinfo.h"
#include "platform/support/debug.h"

#include <cmath>
#include <typeinfo>

namespace voDMG {

const ruUtil::Color KLTPrinterDraw::kOversteppedColor{0.95f, 0.34f, 0.35f, 1.0f};
const ruUtil::Color KLTPrinterDraw::kTotalVolumeColor{0.94f, 0.94f, 0.94f, 1.0f};

namespace {

// Tells a bottom face of the useable volume from a top one.
constexpr double kBottomTolerance = 0.01;
// Keeps the major line that would lie on the far edge of the bed from being drawn.
constexpr double kMajorSlack = 0.001;

double sign(double value) { return value > 0.0 ? 1.0 : (value < 0.0 ? -1.0 : 0.0); }

// Paints the bed of a volume centred on the origin in X and Y.
struct BedPainter {
  double halfWidth;
  double halfDepth;
  double top;
  double bottom;
  voGR::Draw* draw;
  double gridSpacing = 5.0;
  int minorLines = 6;
  double frameThickness = 0.5;
  ruUtil::Color majorColor{0.325f, 0.325f, 0.325f, 1.0f};
  ruUtil::Color minorColor{0.725f, 0.721f, 0.733f, 1.0f};
  ruUtil::Color frameColor{0.0f, 0.42f, 0.9f, 1.0f};
  bool drawFrame = false;

  BedPainter(double width, double depth, double topZ, double bottomZ, voGR::Draw* target)
      : halfWidth(width), halfDepth(depth), top(topZ), bottom(bottomZ), draw(target) {
    draw->setSpace(0);
    draw->setType(2);
    draw->setDepthInteraction(0);
    draw->setPickable(false);
  }

  void line(const ruLinear::Point& a, const ruLinear::Point& b) {
    ru::Reference<ruGeom::CompactMesh> mesh = new ruGeom::CompactMesh();
    ruGeom::constructLineSegment(a, b, *mesh);
    draw->setMesh(mesh);
    draw->emit();
  }

  void lineShader(const ruUtil::Color& color) {
    ru::Reference<voGR::LineShader> shader = new voGR::LineShader();
    shader->color = color;
    draw->setShader(shader);
  }

  void paintGrid() {
    lineShader(minorColor);
    const double step = gridSpacing / (minorLines + 1);
    for (int i = 1; i * step <= 2.0 * halfWidth; ++i) {
      if (i % (minorLines + 1) == 0) continue;
      const double x = i * step - halfWidth;
      line(ruLinear::Point(x, -halfDepth, bottom), ruLinear::Point(x, halfDepth, bottom));
    }
    for (int i = 1; i * step <= 2.0 * halfDepth; ++i) {
      if (i % (minorLines + 1) == 0) continue;
      const double y = i * step - halfDepth;
      line(ruLinear::Point(-halfWidth, y, bottom), ruLinear::Point(halfWidth, y, bottom));
    }
    lineShader(majorColor);
    for (int k = 1; k * gridSpacing <= 2.0 * halfWidth - kMajorSlack; ++k) {
      const double x = k * gridSpacing - halfWidth;
      line(ruLinear::Point(x, -halfDepth, bottom), ruLinear::Point(x, halfDepth, bottom));
    }
    for (int k = 1; k * gridSpacing <= 2.0 * halfDepth - kMajorSlack; ++k) {
      const double y = k * gridSpacing - halfDepth;
      line(ruLinear::Point(-halfWidth, y, bottom), ruLinear::Point(halfWidth, y, bottom));
    }
    draw->setShader(nullptr);
  }

  void bar(const ruLinear::Point& a, const ruLinear::Point& b, bool overstepped) {
    if (overstepped) {
      draw->setShader(nullptr);
      draw->setColor(KLTPrinterDraw::kOversteppedColor);
    } else {
      ru::Reference<voGR::KLTPrinterBedShader> shader = new voGR::KLTPrinterBedShader();
      shader->color = frameColor;
      draw->setShader(shader);
    }
    ru::Reference<ruGeom::CompactMesh> mesh = new ruGeom::CompactMesh();
    ruGeom::constructCuboid(ruLinear::Range3d(a, b), *mesh);
    draw->setMesh(mesh);
    draw->emit();
  }

  void vertical(double x, double y, bool overstepped) {
    const double t = frameThickness;
    bar(ruLinear::Point(x + sign(x) * t, y + sign(y) * t, bottom), ruLinear::Point(x, y, top + t), overstepped);
  }
  void alongX(double y, double z, bool overstepped) {
    const double t = frameThickness;
    bar(ruLinear::Point(-halfWidth, y + sign(y) * t, z), ruLinear::Point(halfWidth, y, z + t), overstepped);
  }
  void alongY(double x, double z, bool overstepped) {
    const double t = frameThickness;
    bar(ruLinear::Point(x + sign(x) * t, -halfDepth, z), ruLinear::Point(x, halfDepth, z + t), overstepped);
  }

  void paintFrame(const voDMD::KLTPrinter& printer) {
    const unsigned sides = printer.outOfBounds() ? kltOversteppedSides(voDMA::kltGetOutOfBedPlanes(), bottom) : 0u;
    const bool minusX = sides & 1u, plusX = sides & 2u, minusY = sides & 4u, plusY = sides & 8u;
    const bool lower = sides & 16u, upper = sides & 32u;
    if (!drawFrame) {
      lineShader(frameColor);
      ru::Reference<ruGeom::CompactMesh> mesh = new ruGeom::CompactMesh();
      ruGeom::constructBoxEdgeLineStrips(
          ruGeom::BoundingBox(ruLinear::Point(-halfWidth, -halfDepth, bottom), ruLinear::Point(halfWidth, halfDepth, top)), *mesh);
      draw->setColor(frameColor);
      draw->setMesh(mesh);
      draw->emit();
    } else {
      vertical(-halfWidth, -halfDepth, minusX || minusY);
      vertical(-halfWidth, halfDepth, minusX || plusY);
      vertical(halfWidth, -halfDepth, plusX || minusY);
      vertical(halfWidth, halfDepth, plusX || plusY);
      alongX(-halfDepth, bottom, lower || minusY);
      alongX(halfDepth, bottom, lower || plusY);
      alongX(-halfDepth, top, upper || minusY);
      alongX(halfDepth, top, upper || plusY);
      alongY(-halfWidth, bottom, lower || minusX);
      alongY(halfWidth, bottom, lower || plusX);
      alongY(-halfWidth, top, upper || minusX);
      alongY(halfWidth, top, upper || plusX);
    }
    draw->setShader(nullptr);
  }
};

}  // namespace

unsigned kltOversteppedSides(const std::vector<ruLinear::ParamPlane>& planes, double bottom) {
  unsigned sides = 0;
  for (const ruLinear::ParamPlane& plane : planes) {
    const ruLinear::Normal& normal = plane.getNormal();
    if (normal == ruLinear::Normal::z) sides |= std::fabs(bottom - plane.getOrigin().z) < kBottomTolerance ? 16u : 32u;
    else if (normal == ruLinear::Normal::x) sides |= 2u;
    else if (normal == -ruLinear::Normal::x) sides |= 1u;
    else if (normal == ruLinear::Normal::y) sides |= 8u;
    else if (normal == -ruLinear::Normal::y) sides |= 4u;
  }
  return sides;
}

KLTPrinterDraw::KLTPrinterDraw(DocumentDraw* documentDraw, voDMD::KLTPrinter* printer)
    : ObjectDraw(documentDraw, printer->owner()) {}

KLTPrinterDraw::~KLTPrinterDraw() = default;

void KLTPrinterDraw::onDraw(voGR::DrawContext& context, SelectionIterator, SelectionIterator, SelectionIterator,
                            SelectionIterator, ru::Reference<voGR::DrawPolicy> policy) {
  policy = nullptr;
  const voDMD::KLTPrinter* printer = getObject()->findAttribute<voDMD::KLTPrinter>();
  voGR::Draw draw(context, this, false);
  draw.setDebugString("KLTPrinterDraw::onDraw");
  if (!printer) return;
  const ruLinear::Range3d& useable = printer->useableVolume();
  if (!useable.isValid() || !(useable.getMax(0) > 0.0) || !(useable.getMax(1) > 0.0) ||
      !(useable.getMax(2) > useable.getMin(2))) {
    voSupport::DebugPrint("voDMG::KLTPrinterDraw::onDraw", voSupport::DebugHitTest)(
        "printer with an empty or inverted useable volume: nothing drawn");
    return;
  }

  BedPainter painter(useable.getMax(0), useable.getMax(1), useable.getMax(2), useable.getMin(2), &draw);
  painter.gridSpacing = painter.halfWidth * 2.0 / 6.0;
  painter.drawFrame = true;
  painter.frameThickness = 0.2;
  painter.paintGrid();
  painter.paintFrame(*printer);
  draw.setShader(nullptr);

  if (printer->connected()) return;
  const ruLinear::Range3d& total = printer->totalVolume();
  if (!total.isValid()) return;
  ru::Reference<ruGeom::CompactMesh> box = new ruGeom::CompactMesh();
  ruGeom::constructBoxEdgeLineStrips(ruGeom::BoundingBox(total), *box);
  draw.setColor(kTotalVolumeColor);
  draw.setMesh(box);
  draw.emit();
}

// ---------------------------------------------------------------------------------------------
// Start-up

namespace {

// Cleared by the first start-up, one for the exposure and one for the message handlers; the
// broadcaster sets them back on reset.
bool exposureFirstTime = true;
bool handlersFirstTime = true;

ObjectDraw* makePrinterDraw(DocumentDraw* documentDraw, voDMD::Object* object) {
  return new KLTPrinterDraw(documentDraw, object->findAttribute<voDMD::KLTPrinter>());
}

ObjectDraw* makeMeshDraw(DocumentDraw* documentDraw, voDMD::Object* object) {
  return new KLTMeshDraw(documentDraw, object->findAttribute<voDMD::KLTMesh>());
}

// The print classes' reflection exposure comes with the script bindings.
void exposePrintClasses(voSupport::InitializeReflectionMsg&) {}

void registerPrintDraws(RegisterObjectDrawMsg& message) {
  DocumentDraw& documentDraw = message.documentDraw();
  documentDraw.setDrawFactory(typeid(voDMD::KLTPrinterClass), &makePrinterDraw);
  documentDraw.setDrawFactory(typeid(voDMD::KLTMeshClass), &makeMeshDraw);
  documentDraw.setDrawPolicy(typeid(KLTMeshDraw), new KLTMeshDrawPolicy());
}

// Every new document starts with a policy of its own, out of report mode.
void freshPolicyForNewDocument(voDMD::NewDocumentMsg&) {
  if (auto* documentDraw = voSupport::ci().find<DocumentDraw>())
    documentDraw->setDrawPolicy(typeid(KLTMeshDraw), new KLTMeshDrawPolicy());
}

}  // namespace

void initializePrintClasses() {
  auto* broadcaster = voSupport::ci().find<voSupport::Broadcaster>();
  if (!broadcaster) return;
  if (exposureFirstTime) {
    exposureFirstTime = false;
    broadcaster->addFirstTimeFlag(exposureFirstTime);
    broadcaster->addHandler<voSupport::InitializeReflectionMsg>(voSupport::Priority(10, 1), &exposePrintClasses);
  }
  if (handlersFirstTime) {
    handlersFirstTime = false;
    broadcaster->addFirstTimeFlag(handlersFirstTime);
    broadcaster->addHandler<RegisterObjectDrawMsg>(voSupport::Priority(10, 1), &registerPrintDraws);
    broadcaster->addHandler<voDMD::NewDocumentMsg>(voSupport::Priority(10, 1), &freshPolicyForNewDocument);
  }
}

}  // namespace voDMG
