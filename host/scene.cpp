#include "host/scene.h"

#include "platform/datamodel/attributes.h"
#include "platform/datamodel/print.h"
#include "platform/geometry/meshio.h"

#include <cerrno>
#include <cmath>
#include <cstdlib>

namespace printprep {

using ruLinear::AffineMatrix;
using ruLinear::Point;
using ruLinear::Range3d;
using ruLinear::Vector;

Scene::Scene(const Vector& volume, double minimumThickness)
    : document_(*txn_.get()),
      useable_(Point(-volume.getX() / 2.0, -volume.getY() / 2.0, 0), Point(volume.getX() / 2.0, volume.getY() / 2.0, volume.getZ())) {
  info_.set(&document_);
  info_.set(&txn_);
  scope_ = std::make_unique<voSupport::CallScope>(info_);
  const Range3d total(useable_.getMin() - Vector(10, 10, 5), useable_.getMax() + Vector(10, 10, 5));
  printerObject_ = voDMD::createPrinterObject(document_, useable_, total);
  document_.insert(printerObject_);
  printer_ = printerObject_->findAttribute<voDMD::KLTPrinter>();
  printer_->setMinimumThickness(minimumThickness);
}

Scene::~Scene() {
  parts_.clear();
  printerObject_ = nullptr;
  scope_.reset();
}

bool Scene::load(const std::vector<std::string>& files, std::string& error) {
  // Everything is read before anything enters the document, so a bad file leaves it untouched.
  std::vector<ru::Reference<ruGeom::CompactMesh>> meshes;
  for (const std::string& file : files) {
    ru::Reference<ruGeom::CompactMesh> mesh(new ruGeom::CompactMesh);
    ruString::CString message;
    if (!ruGeom::importMesh(ruString::CString(file.c_str()), *mesh, &message)) {
      error = message.str();
      if (error.find(file) == std::string::npos) error = file + ": " + error;
      return false;
    }
    meshes.push_back(mesh);
  }
  const double gap = 5.0;
  double width = 0.0;
  for (const auto& mesh : meshes) width += mesh->getBoundingBox().asRange3d().getDiagonal().getX() + gap;
  width -= gap;
  const Point centre = useable_.getMiddle();
  double x = centre.x - width / 2.0;
  for (std::size_t i = 0; i < meshes.size(); ++i) {
    const Range3d box = meshes[i]->getBoundingBox().asRange3d();
    const Vector extent = box.getDiagonal();
    // The lowest corner goes where it must for the part to rest on the bed, centred in Y.
    const Point corner(x, centre.y - extent.getY() / 2.0, useable_.getMin().z);
    addPart(files[i], meshes[i], AffineMatrix::translation(corner - box.getMin()));
    x += extent.getX() + gap;
  }
  return true;
}

voDMD::Object* Scene::addPart(const std::string& file, const ru::Reference<ruGeom::CompactMesh>& mesh,
                              const AffineMatrix& objToWorld) {
  ru::Reference<voDMD::Object> object = voDMD::createKLTMeshObject(document_, mesh, objToWorld);
  object->setName(file.c_str());
  document_.insert(object);
  parts_.push_back({file, object, mesh->getNumTriangles()});
  return object.get();
}

Range3d Scene::partsBox(int index) const {
  Range3d box;
  bool first = true;
  for (int i = 0; i < static_cast<int>(parts_.size()); ++i) {
    if (index >= 0 && i != index) continue;
    const voDMD::KLTMesh* mesh = parts_[i].object->findAttribute<voDMD::KLTMesh>();
    const voDMD::Transform* transform = parts_[i].object->findAttribute<voDMD::Transform>();
    const Range3d world = mesh->getMesh()->getBoundingBox().asRange3d() *
                          (transform ? transform->getObjToWorld() : AffineMatrix::Identity);
    if (first) {
      box = world;
      first = false;
    } else {
      box.include(world);
    }
  }
  return box;
}

bool parseSize(const std::string& text, int count, std::vector<double>& values) {
  values.clear();
  std::size_t start = 0;
  for (int i = 0; i < count; ++i) {
    const std::size_t end = i + 1 < count ? text.find('x', start) : text.size();
    if (end == std::string::npos || end == start) return false;
    const std::string piece = text.substr(start, end - start);
    char* stop = nullptr;
    errno = 0;
    const double value = std::strtod(piece.c_str(), &stop);
    if (errno != 0 || stop != piece.c_str() + piece.size() || !std::isfinite(value) || value <= 0.0) return false;
    values.push_back(value);
    start = end + 1;
  }
  return true;
}

}  // namespace printprep
