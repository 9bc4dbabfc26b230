#pragma once

// A real document on a real transaction manager, with helpers that build plain mesh objects
// (mesh, transform and bounding box attributes), for the selection and drawing tests.

#include "platform/datamodel/attributes.h"
#include "platform/datamodel/document.h"
#include "platform/geometry/construct.h"
#include "platform/transaction/transaction.h"

namespace doctest {

struct DocFixture {
  voTXN::Manager manager;
  voDMD::Document document{manager};

  // A cuboid over `range` in object coordinates, placed by `objToWorld`, inserted under `parent`
  // (top level when null). Returns the object, held by the document.
  voDMD::Object* addCuboid(const ruLinear::Range3d& range,
                           const ruLinear::AffineMatrix& objToWorld = ruLinear::AffineMatrix::Identity,
                           voDMD::Object* parent = nullptr) {
    ru::Reference<ruGeom::CompactMesh> mesh = new ruGeom::CompactMesh();
    ruGeom::constructCuboid(range, *mesh);
    return addMesh(mesh, objToWorld, parent);
  }
  voDMD::Object* addMesh(const ru::Reference<ruGeom::CompactMesh>& mesh,
                         const ruLinear::AffineMatrix& objToWorld = ruLinear::AffineMatrix::Identity,
                         voDMD::Object* parent = nullptr) {
    ru::Reference<voDMD::Object> object = voDMD::Object::create(document, voDMD::MeshClass::get());
    object->addAttribute<voDMD::Mesh>(mesh);
    object->addAttribute<voDMD::Transform>(objToWorld);
    object->addAttribute<voDMD::BoundingBox>();
    document.insert(object, parent);
    return object.get();
  }
  // An object of a class that has no drawing factory.
  voDMD::Object* addGroup(voDMD::Object* parent = nullptr) {
    ru::Reference<voDMD::Object> object = voDMD::Object::create(document, voDMD::GroupClass::get());
    document.insert(object, parent);
    return object.get();
  }

  static voDMD::Mesh* meshOf(voDMD::Object* object) { return object->findAttribute<voDMD::Mesh>(); }
  static voDMD::Transform* transformOf(voDMD::Object* object) { return object->findAttribute<voDMD::Transform>(); }
};

// A part of `owner` with a payload of its own (parts compare by payload identity).
inline voDMD::SubObject part(voDMD::Object* owner, ru::Reference<ru::ReferenceCount>& keep) {
  keep = new ru::ReferenceCount();
  return voDMD::SubObject(owner, voDMD::SubObject::Selection, keep);
}

}  // namespace doctest
