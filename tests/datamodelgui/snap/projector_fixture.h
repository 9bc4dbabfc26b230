#pragma once

#include "datamodelgui/draw/modelingplanes.h"
#include "datamodelgui/snap/projector.h"
#include "platform/datamodel/actions.h"
#include "platform/datamodel/attributes.h"
#include "platform/datamodel/document.h"
#include "platform/geometry/camera.h"
#include "platform/support/callinfo.h"

#include <cmath>

namespace projectortest {

inline constexpr double kViewportSize = 256.0;

// What a host enters in the call info for a tool that projects: the transaction manager, the
// document's camera and the modeling planes, made current for the fixture's lifetime.
struct Host {
  voDMA::TxnManager txn;
  voDMD::Document document{*txn.get()};
  voDMG::ModelingPlanes planes;
  voSupport::CallInfo info;
  voSupport::CallScope scope{enter(info)};

  Host() { look(ruLinear::Point(0, 0, 0), ruLinear::Point(0, 0, 10), ruLinear::Vector(0, 1, 0)); }

  voSupport::CallInfo& enter(voSupport::CallInfo& table) {
    table.set(&txn);
    table.set(document.camera());
    table.set(&planes);
    return table;
  }

  voTXN::Manager& manager() { return *txn.get(); }
  const ruGeom::Camera& camera() const { return document.camera()->get(); }

  // A 256 by 256 viewport at the origin with a square frustum of the given vertical angle.
  void look(const ruLinear::Point& target, const ruLinear::Point& eye, const ruLinear::Vector& up,
            double angle = 0.7853981633974483) {
    ruGeom::Camera camera;
    camera.setViewport(ruGeom::Viewport(0, 0, kViewportSize, kViewportSize));
    ruGeom::AngleAspect frustum;
    frustum.setAngle(angle);
    frustum.setAspectRatio(1.0);
    camera.setFrustum(frustum);
    camera.setWorldToEye(target, eye, up);
    document.camera()->set(camera);
  }
};

// The ray of a pinhole camera through a viewport position (pixels, y up), from the camera's frame
// and frustum: the eye, and the direction to the position's point on the plane at unit depth.
inline ruLinear::Line pinholeRay(const ruGeom::Camera& camera, const ruLinear::Point2& position) {
  const ruGeom::Viewport& viewport = camera.getViewport();
  const double halfHeight = std::tan(0.5 * camera.getFrustum().getAngle());
  const double halfWidth = halfHeight * camera.getFrustum().getAspectRatio();
  const double u = (position.x - viewport.x) / viewport.width * 2.0 - 1.0;
  const double v = (position.y - viewport.y) / viewport.height * 2.0 - 1.0;
  const ruLinear::Vector direction = camera.getViewVector() + camera.getRightVector() * (u * halfWidth) +
                                     camera.getUpVector() * (v * halfHeight);
  return ruLinear::Line(camera.getEyeLocation(), direction);
}

}  // namespace projectortest
