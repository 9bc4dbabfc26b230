#include "datamodelgui/draw/modelingplanes.h"
#include "datamodelgui/snap/projector.h"
#include "platform/datamodel/actions.h"
#include "platform/datamodel/attributes.h"
#include "platform/datamodel/document.h"
#include "platform/geometry/camera.h"
#include "platform/support/callinfo.h"

#include <benchmark/benchmark.h>

// One projection per cursor move: the cost a drag pays on every motion event, with the call info
// lookups of the camera (and of the modeling plane for the supporting plane) included.

namespace {

struct Host {
  voDMA::TxnManager txn;
  voDMD::Document document{*txn.get()};
  voDMG::ModelingPlanes planes;
  voSupport::CallInfo info;
  voSupport::CallScope scope{enter(info)};

  Host() {
    ruGeom::Camera camera;
    camera.setViewport(ruGeom::Viewport(0, 0, 1920, 1080));
    ruGeom::AngleAspect frustum;
    frustum.setAspectRatio(1920.0 / 1080.0);
    camera.setFrustum(frustum);
    camera.setWorldToEye(ruLinear::Point(0, 0, 0), ruLinear::Point(60, -80, 50), ruLinear::Vector(0, 0, 1));
    document.camera()->set(camera);
    planes.setPlane(ruLinear::Plane(ruLinear::Point::origin, ruLinear::Normal::z));
  }
  voSupport::CallInfo& enter(voSupport::CallInfo& table) {
    table.set(&txn);
    table.set(document.camera());
    table.set(&planes);
    return table;
  }
};

// Cursor positions sweeping the viewport, so no two consecutive calls see the same input.
ruLinear::Point2 cursor(std::size_t i) {
  return ruLinear::Point2(static_cast<double>((i * 37) % 1920), static_cast<double>((i * 53) % 1080));
}

void projectOntoPlane(benchmark::State& state) {
  Host host;
  ru::Reference<voDMG::Projector> projector =
      voDMG::PlaneProjector::create(ruLinear::Plane(ruLinear::Point(0, 0, 1), ruLinear::Normal::z));
  std::size_t i = 0;
  for (auto _ : state) benchmark::DoNotOptimize(projector->project(cursor(i++)));
}
BENCHMARK(projectOntoPlane);

void projectOntoLine(benchmark::State& state) {
  Host host;
  ru::Reference<voDMG::Projector> projector =
      voDMG::LineProjector::create(ruLinear::Line(ruLinear::Point(0, 0, 1), ruLinear::Vector(1, 0, 0)));
  std::size_t i = 0;
  for (auto _ : state) benchmark::DoNotOptimize(projector->project(cursor(i++)));
}
BENCHMARK(projectOntoLine);

// Inside an open transaction, as during a drag: the first call records the plane, later ones only
// compare stamps before writing.
void projectOntoSupportingPlane(benchmark::State& state) {
  Host host;
  ru::Reference<voDMG::Projector> projector = voDMG::SupportingPlaneProjector::create();
  host.txn.get()->begin("drag");
  std::size_t i = 0;
  for (auto _ : state) benchmark::DoNotOptimize(projector->project(cursor(i++)));
  host.txn.get()->commit();
}
BENCHMARK(projectOntoSupportingPlane);

void projectWorldPointOntoPlane(benchmark::State& state) {
  Host host;
  ru::Reference<voDMG::Projector> projector =
      voDMG::PlaneProjector::create(ruLinear::Plane(ruLinear::Point(0, 0, 0), ruLinear::Normal::z));
  std::size_t i = 0;
  for (auto _ : state) {
    const double t = static_cast<double>(i++ % 1000) * 0.01;
    benchmark::DoNotOptimize(projector->project(ruLinear::Point(t, -t, 3.0)));
  }
}
BENCHMARK(projectWorldPointOntoPlane);

}  // namespace
