#include "datamodelgui/print/meshdraw.h"

#include "datamodelgui/draw/documentdraw.h"
#include "datamodelgui/draw/surfacedraw.h"
#include "datamodelgui/print/clipping.h"
#include "datamodelgui/selection/selectionset.h"
#include "platform/base/reference.h"
#include "platform/datamodel/actions.h"
#include "platform/datamodel/attributes.h"
#include "platform/datamodel/print.h"
#include "platform/geometry/algorithms.h"
#include "platform/geometry/mesh.h"
#include "platform/graphics/shader.h"
#include "platform/support/callinfo.h"
#include "platform/support/debug.h"
#include "platform/support/settings.h"
#include "platform/support/tags.h"

#include <algorithm>
#include <cmath>
#include <cstring>
#include <utility>

namespace voDMG {

// ---------------------------------------------------------------------------------------------
// Clipping planes

ClippingPlaneSource::~ClippingPlaneSource() = default;

ClippingPlaneList currentClippingPlanes() {
  auto* surface = voSupport::ci().find<DocumentSurfaceDraw>();
  const auto* source = dynamic_cast<const ClippingPlaneSource*>(surface);
  return source ? source->planes() : ClippingPlaneList();
}

// ---------------------------------------------------------------------------------------------
// Policy

ruUtil::Color KLTMeshDrawPolicy::baseColors[4] = {
    {0.52f, 0.53f, 0.54f, 1.0f}, {0.05f, 0.48f, 0.73f, 1.0f}, {0.05f, 0.48f, 0.73f, 1.0f}, {0.05f, 0.48f, 0.73f, 1.0f}};
ruUtil::Color KLTMeshDrawPolicy::needsRepairColors[4] = {
    {0.84f, 0.25f, 0.043f, 1.0f}, {0.84f, 0.25f, 0.043f, 1.0f}, {0.84f, 0.25f, 0.043f, 1.0f}, {0.84f, 0.25f, 0.043f, 1.0f}};
ruUtil::Color KLTMeshDrawPolicy::repairedColors[4] = {
    {0.84f, 0.25f, 0.043f, 1.0f}, {0.84f, 0.25f, 0.043f, 1.0f}, {0.84f, 0.25f, 0.043f, 1.0f}, {0.84f, 0.25f, 0.043f, 1.0f}};
ruUtil::Color KLTMeshDrawPolicy::thinColors[4] = {
    {0.84f, 0.25f, 0.043f, 1.0f}, {0.84f, 0.25f, 0.043f, 1.0f}, {0.84f, 0.25f, 0.043f, 1.0f}, {0.84f, 0.25f, 0.043f, 1.0f}};
ruUtil::Color KLTMeshDrawPolicy::outOfBoundsColors[4] = {
    {0.88f, 0.72f, 0.2f, 1.0f}, {0.88f, 0.72f, 0.2f, 1.0f}, {0.88f, 0.72f, 0.2f, 1.0f}, {0.88f, 0.72f, 0.2f, 1.0f}};

namespace {

const ruString::CString kHoverTag = "KLTHoverTag";
const ruString::CString kHoverSelectedTag = "KLTHoverSelectedTag";

// The tag's name as registered in the call info's registry (the registry makes it on first use).
ruString::CString registeredTag(const ruString::CString& name) {
  if (auto* registry = voSupport::ci().find<voSupport::TagRegistry>()) return registry->getTag(name)->name();
  return name;
}

ruLinear::AffineMatrix objToWorldOf(const voDMD::Object* object) {
  const auto* transform = object->findAttribute<voDMD::Transform>();
  return transform ? transform->getObjToWorld() : ruLinear::AffineMatrix::Identity;
}

// voDMA::isPartThick through the drawing object of the mesh, which keeps the answer; the plain
// call when the mesh has no print drawing in the current document drawing.
bool partIsThick(const voDMD::KLTMesh* mesh) {
  if (auto* documentDraw = voSupport::ci().find<DocumentDraw>()) {
    if (auto* drawing = dynamic_cast<KLTMeshDraw*>(documentDraw->getDraw(mesh->owner())))
      return drawing->isPartThick(mesh);
  }
  return voDMA::isPartThick(mesh);
}

}  // namespace

KLTMeshDrawPolicy::~KLTMeshDrawPolicy() = default;

bool KLTMeshDrawPolicy::shouldDraw(const voDMD::KLTMesh* mesh) const {
  if (changeDrawStatesForReport_) return true;
  voDMD::Object* owner = mesh->owner();
  if (const auto* selection = voSupport::ci().find<SelectionSet>()) {
    for (const SelectionItem& item : selection->items()) {
      if (item.getObject() == owner) return mesh->visible();
    }
  }
  const auto* box = owner->findAttribute<voDMD::KLTMeshBBox>();
  const ruLinear::Range3d range = box ? box->getWorldSpace() : ruLinear::Range3d();
  const ClippingPlaneList planes = currentClippingPlanes();
  if (planes.empty()) return mesh->visible();

  // Only the first plane decides, and only along one axis; a slanted plane counts as Z.
  const ruLinear::Plane& plane = planes.front().plane;
  const ruLinear::Normal& normal = plane.getNormal();
  int axis = 2;
  if (std::fabs(normal.getX()) == 1.0) axis = 0;
  else if (std::fabs(normal.getY()) == 1.0) axis = 1;
  const double sign = normal[axis] == 1.0 ? -1.0 : 1.0;

  if (!mesh->visible()) return false;
  const double p = plane.getPoint()[axis];
  const double lo = range.getMin(axis);
  const double hi = range.getMax(axis);
  return !(sign * hi > sign * p && sign * lo > sign * p);
}

float KLTMeshDrawPolicy::minimumThicknessInObject(const voDMD::KLTMesh* mesh, float limit) {
  const ruLinear::AffineMatrix inverse = objToWorldOf(mesh->owner()).inverse();
  const double t = static_cast<double>(limit);
  const double c = t / std::sqrt(3.0);
  ruLinear::Vector v(c, c, c);
  if (!(inverse == ruLinear::AffineMatrix::Identity)) v = v * inverse;
  return static_cast<float>(v.length());
}

void KLTMeshDrawPolicy::drawMeshPart(voGR::Draw& draw, const voDMD::KLTMesh* mesh, ru::Reference<ruGeom::CompactMesh> part,
                                     bool hovered, bool selected, bool showOutOfBounds,
                                     double /*thicknessSurfaceCoverage*/) const {
  const voDMD::KLTDecoration* decoration = voDMD::KLTDecoration::get();
  const voDMD::KLTPrinter* printer = decoration ? decoration->getPrinter() : nullptr;
  const float minimumThickness = printer ? static_cast<float>(printer->minimumThickness) : 0.0f;

  const bool thin = !mesh->needsAnalyseThickness() && !partIsThick(mesh);
  if (changeDrawStatesForReport_) {
    hovered = false;
    selected = false;
    showOutOfBounds = false;
  }
  const int row = (hovered ? 1 : 0) | (selected ? 2 : 0);

  ru::Reference<voGR::Shader> shader;
  if (thin) {
    ru::Reference<voGR::KLTThicknessShader> thickness = new voGR::KLTThicknessShader();
    thickness->color = baseColors[row];
    thickness->thinColor = thinColors[row];
    thickness->minimumThickness = minimumThicknessInObject(mesh, minimumThickness);
    shader = thickness;
  } else {
    ruUtil::Color color = baseColors[row];
    if (mesh->needsRepair()) color = mesh->isRepaired() ? repairedColors[row] : needsRepairColors[row];
    else if (mesh->isOutOfBounds() && showOutOfBounds) color = outOfBoundsColors[row];
    ru::Reference<voGR::KLTFacetedShader> faceted = new voGR::KLTFacetedShader();
    faceted->color = color;
    shader = faceted;
  }

  if (!changeDrawStatesForReport_) {
    for (const ClippingPlane& plane : currentClippingPlanes()) {
      if (!plane.selectionOnly || selected) shader->clippingPlanes().add(plane.plane);
    }
  }

  if (selected) draw.setActive(true);
  if (hovered) {
    if (selected) {
      draw.addTag(registeredTag(kHoverSelectedTag));
      draw.setActive(true);
    } else {
      draw.addTag(registeredTag(kHoverTag));
      draw.setActive(false);
    }
  }
  draw.setShader(shader);
  draw.setMesh(part);
  draw.setType(0);
  draw.setDepthInteraction(0);
  draw.setDrawable(true);
  draw.setPickable(true);
  draw.emit();
  draw.removeTag(registeredTag(kHoverTag));
  draw.removeTag(registeredTag(kHoverSelectedTag));
}

// ---------------------------------------------------------------------------------------------
// Mesh draw

namespace {

// Everything voDMA::isPartThick reads, as it stood when it last answered. The thickness values
// are public and may be replaced in place, so besides their buffer, count and the attribute's
// stamp, a spread of them is kept to compare bitwise; one scan of them all would cost what the
// cache saves.
struct ThicknessInputs {
  static constexpr std::size_t kMostSamples = 1024;

  bool analysed = false;
  const ruGeom::CompactMesh* model = nullptr;
  ruGeom::BufferId vertices = 0;
  ruGeom::BufferId triangles = 0;
  const float* values = nullptr;
  std::size_t count = 0;
  voTXN::Stamp stamp = 0;
  const voDMD::KLTPrinter* printer = nullptr;
  double minimumThickness = 0.0;
  bool placed = false;
  ruLinear::AffineMatrix objToWorld;
  ru::vector<float> samples;

  // Fills in what `mesh` holds now; false when a part of it is missing (no document), so that
  // nothing is kept.
  bool read(const voDMD::KLTMesh* mesh) {
    analysed = !mesh->needsAnalyseThickness();
    ru::Reference<const ruGeom::CompactMesh> current = mesh->getMesh();
    model = current.get();
    vertices = model ? model->getVertexBufferId() : 0;
    triangles = model ? model->getTriangleBufferId() : 0;
    values = mesh->thickness.data();
    count = mesh->thickness.size();
    stamp = mesh->txnStamp();
    const voDMD::Document* document = mesh->owner()->document();
    if (!document) return false;
    printer = document->decoration().getPrinter();
    minimumThickness = printer ? printer->minimumThickness : 0.0;
    const auto* transform = mesh->owner()->findAttribute<voDMD::Transform>();
    placed = transform != nullptr;
    objToWorld = transform ? transform->getObjToWorld() : ruLinear::AffineMatrix::Identity;
    const std::size_t taken = std::min(count, kMostSamples);
    samples.resize(taken);
    for (std::size_t i = 0; i < taken; ++i) samples[i] = values[sampleIndex(i, taken)];
    return true;
  }

  // Sample `i` of `taken`, evenly from the first value to the last.
  std::size_t sampleIndex(std::size_t i, std::size_t taken) const noexcept {
    return taken < 2 ? 0 : i * (count - 1) / (taken - 1);
  }

  bool sameAs(const ThicknessInputs& other) const noexcept {
    return analysed == other.analysed && model == other.model && vertices == other.vertices &&
           triangles == other.triangles && values == other.values && count == other.count && stamp == other.stamp &&
           printer == other.printer &&
           std::memcmp(&minimumThickness, &other.minimumThickness, sizeof minimumThickness) == 0 &&
           placed == other.placed && objToWorld == other.objToWorld && samples.size() == other.samples.size() &&
           (samples.empty() || std::memcmp(samples.data(), other.samples.data(), samples.size() * sizeof(float)) == 0);
  }
};

}  // namespace

class KLTMeshDraw::DrawImpl : public ru::ImplBase {
public:
  ru::vector<ru::Reference<ruGeom::CompactMesh>> meshes;
  // The last answer of voDMA::isPartThick and its inputs; `thickKnown` false when there is none.
  bool thickKnown = false;
  bool thick = true;
  ThicknessInputs thickInputs;
  ThicknessInputs scratch;
  int scans = 0;
};

void fillVertexThickness(const ruGeom::CompactMesh& mesh, const float* corners, std::size_t numCorners,
                         float* vertexValues) {
  const int numVertices = mesh.getNumVertices();
  if (numVertices <= 0) return;
  const std::size_t numTriangleCorners = static_cast<std::size_t>(mesh.getNumTriangles()) * 3;
  const std::size_t count = std::min(numCorners, numTriangleCorners);
  float largest = count ? corners[0] : 0.0f;
  for (std::size_t i = 1; i < count; ++i) largest = std::max(largest, corners[i]);
  std::fill(vertexValues, vertexValues + numVertices, largest);
  const std::uint32_t* triangles = mesh.getTriangles();
  for (std::size_t i = 0; i < count; ++i) {
    const std::uint32_t vertex = triangles[i];
    if (vertex >= static_cast<std::uint32_t>(numVertices)) continue;
    float& value = vertexValues[vertex];
    // A negative value gives way to the next corner of its vertex, whatever that corner says.
    if (value < 0.0f || value > corners[i]) value = corners[i];
  }
}

KLTMeshDraw::KLTMeshDraw(DocumentDraw* documentDraw, voDMD::KLTMesh* mesh)
    : ObjectDraw(documentDraw, mesh->owner()), impl_(new DrawImpl()), ownsImpl_(true) {}

KLTMeshDraw::~KLTMeshDraw() {
  if (ownsImpl_) delete impl_;
  impl_ = nullptr;
}

const ru::vector<ru::Reference<ruGeom::CompactMesh>>& KLTMeshDraw::getParts() const { return impl_->meshes; }

const voDMD::KLTMesh* KLTMeshDraw::getMesh() const { return getObject()->findAttribute<voDMD::KLTMesh>(); }

bool KLTMeshDraw::isPartThick(const voDMD::KLTMesh* mesh) {
  if (!mesh || mesh != getMesh()) return voDMA::isPartThick(mesh);
  // The inputs are read into room kept from the last call: a redraw allocates nothing here.
  ThicknessInputs& now = impl_->scratch;
  if (!now.read(mesh)) {
    impl_->thickKnown = false;
    ++impl_->scans;
    return voDMA::isPartThick(mesh);
  }
  if (impl_->thickKnown && now.sameAs(impl_->thickInputs)) return impl_->thick;
  ++impl_->scans;
  impl_->thick = voDMA::isPartThick(mesh);
  std::swap(impl_->thickInputs, now);
  impl_->thickKnown = true;
  return impl_->thick;
}

int KLTMeshDraw::thicknessScans() const noexcept { return impl_->scans; }

void KLTMeshDraw::computeMeshes() {
  const voDMD::KLTMesh* mesh = getMesh();
  ru::Reference<const ruGeom::CompactMesh> model = mesh ? mesh->getMesh() : nullptr;
  if (!model || model->getNumTriangles() == 0) {
    voSupport::DebugPrint("voDMG::KLTMeshDraw::computeMeshes", voSupport::DebugHitTest)("print mesh without triangles: nothing to draw");
    return;
  }
  ru::Reference<ruGeom::CompactMesh> working;
  if (mesh->needsAnalyseThickness()) {
    // The model never changes its mesh in place, and drawing only reads it: share it.
    working = const_cast<ruGeom::CompactMesh*>(model.get());
  } else {
    working = new ruGeom::CompactMesh();
    *working = *model;
    ruGeom::WritableMeshAttributes values = working->allocAttributes("thickness", 1);
    if (values.editFloat()) fillVertexThickness(*working, mesh->thickness.data(), mesh->thickness.size(), values.editFloat());
  }
  if (working->getNumVertices() < kMaxPartVertices) {
    impl_->meshes.push_back(working);
    return;
  }
  ru::vector<ruGeom::CompactMesh*> parts;
  ruGeom::meshSplit(*working, kMaxPartVertices, parts);
  for (ruGeom::CompactMesh* part : parts) impl_->meshes.push_back(ru::Reference<ruGeom::CompactMesh>(part));
}

void KLTMeshDraw::drawTriangles(voGR::Draw& draw, const KLTMeshDrawPolicy* policy, bool selected, bool hovered) {
  const ruLinear::AffineMatrix matrix = objToWorldOf(getObject());
  draw.pushTransform();
  draw.preMult(matrix);
  if (impl_->meshes.empty()) computeMeshes();

  // Read at every draw, so a changed setting shows at the object's next redraw.
  bool showOutOfBounds = false;
  double thicknessSurfaceCoverage = 0.0;
  if (auto* settings = voSupport::ci().find<voSupport::PropertySet>()) {
    if (voSupport::Property* property = settings->find("vo.app.settings.showOutOfBounds"))
      showOutOfBounds = static_cast<bool>(property->cloneUnTxd()->value()->value());
    if (voSupport::Property* property = settings->find("vo.app.settings.thicknessSurfaceCoverage"))
      thicknessSurfaceCoverage = static_cast<double>(property->value()->value());
  }
  const voDMD::KLTMesh* mesh = getMesh();
  for (const ru::Reference<ruGeom::CompactMesh>& part : impl_->meshes)
    policy->drawMeshPart(draw, mesh, part, hovered, selected, showOutOfBounds, thicknessSurfaceCoverage);
  draw.popTransform();
}

void KLTMeshDraw::onDraw(voGR::DrawContext& context, SelectionIterator selectedBegin, SelectionIterator selectedEnd,
                         SelectionIterator hoverBegin, SelectionIterator hoverEnd, ru::Reference<voGR::DrawPolicy> policy) {
  // The registration installs a KLTMeshDrawPolicy for this class.
  const auto* meshPolicy = static_cast<const KLTMeshDrawPolicy*>(policy.get());
  voGR::Draw draw(context, this, false);
  draw.setDebugString("KLTMesh");
  if (meshPolicy && meshPolicy->shouldDraw(getMesh()))
    drawTriangles(draw, meshPolicy, selectedBegin != selectedEnd, hoverBegin != hoverEnd);
  policy = nullptr;
}

void KLTMeshDraw::drawExtra(voGR::Draw&, SelectionIterator, SelectionIterator, SelectionIterator, SelectionIterator,
                            ru::Reference<voGR::DrawPolicy> policy) {
  policy = nullptr;
}

void KLTMeshDraw::onObjectModified(const voDMD::Modification& modification) {
  ObjectDraw::onObjectModified(modification);
  if (modification.getAttribute() == getMesh()) {
    impl_->meshes.clear();
    impl_->thickKnown = false;
  }
}

void KLTMeshDraw::onObjectTxnModified() {
  ObjectDraw::onObjectTxnModified();
  impl_->meshes.clear();
  impl_->thickKnown = false;
}

}  // namespace voDMG
