// Speed of the render editors on llvmpipe (or whatever EGL gives): a 1920 x 1080 frame of the
// 1,000,000-triangle generated mesh, plain (clear and one Lambert pass, as the graphics core's
// frame benchmark draws it) and with the effects of the plain view around it: ground shadow and
// glow of the mesh (it is selected), an x-ray pass and a screen-space pass with their usual small
// items (axes seen through the mesh, a label in pixels). Both measured in the same run, glFinish
// after each frame.

#include "platform/geometry/algorithms.h"
#include "platform/geometry/construct.h"
#include "platform/graphics/draw.h"
#include "platform/graphics/editors.h"
#include "platform/graphics/graph.h"
#include "platform/graphics/shader.h"
#include "platform/graphics/world.h"

#include "bench/benchmeshes.h"

#include <benchmark/benchmark.h>
#include <epoxy/gl.h>

#include <cmath>
#include <cstdio>
#include <cstdlib>

using namespace voGR;
using ruGeom::CompactMesh;
using ruGeom::MeshVertex;
using ruLinear::Point;
using ruLinear::Vector;

namespace {

constexpr int kWidth = 1920, kHeight = 1080;

// The generated torus with vertex normals, as the Lambert pass draws it.
ru::Reference<CompactMesh> makeTorus(int around, int tube) {
  ru::Reference<CompactMesh> mesh = bench::torus(around, tube);
  ruGeom::meshComputeNormals(*mesh);
  return mesh;
}

ruGeom::Camera frameCamera() {
  ruGeom::Camera camera;
  camera.setViewport(ruGeom::Viewport(0, 0, kWidth, kHeight));
  ruGeom::AngleAspect frustum;
  frustum.setAspectRatio(double(kWidth) / kHeight);
  frustum.setDepthRange(1.0, 30.0);
  camera.setFrustum(frustum);
  camera.setWorldToEye(Point(0, 0, 0), Point(3, -5, 6), Vector(0, 0, 1));
  return camera;
}

// Two frame targets on one draw system, the same worlds and camera: "Plain" (clear, triangles)
// and "Effects" (clear, ground shadow, triangles, glow, x-ray, screen space).
struct Setup {
  std::unique_ptr<DrawSystem> system;
  ru::Reference<Database> database;
  ru::Reference<DataNodeStateInfo> plain, effects, shadowOnly, glowOnly;
  std::unique_ptr<DrawContext> context;
  CameraNode* cameraNode = nullptr;
  int sources[3] = {0, 0, 0};

  Setup() {
    ruString::CString error;
    system = DrawSystem::createOffscreen(&error);
    if (!system) {
      std::fprintf(stderr, "no off-screen context: %s\n", error.c_str());
      std::exit(1);
    }
    Graph* graph = system->getGraph();
    GraphEditor editor(graph);
    database = new Database(graph);
    system->setActiveDatabase(database);
    auto world = [&](const char* tag) {
      const ruString::CString name(tag);
      return database->getWorldNode(database->addWorld(new ListWorld(true), [name](DrawItem& item) { return item.contains(name); }));
    };
    WorldNode* scene = world("scene");
    WorldNode* selected = world("selected");
    WorldNode* xray = world("xray");
    WorldNode* screen = world("screen");
    auto* camera = new CameraNode();
    camera->setCamera(frameCamera());
    cameraNode = camera;
    editor.addNode(camera);

    auto chain = [&](const char* name) {
      ru::Reference<DataNodeStateInfo> info =
          system->createRenderTarget(name, system->createFBOKey(ruRen::FBOInfo(kWidth, kHeight, true, false, false)));
      return info;
    };
    auto pass = [&](RenderTargetNode* target, Node* node, WorldNode* worldNode) {
      DataNode* last = target->getLastState();
      auto* next = new RenderTargetNode();
      editor.addNode(next);
      last->appendState(next);
      editor.addNode(node);
      editor.createEdge(last, node);
      editor.createEdge(node, next, "target");
      if (worldNode) {
        editor.createEdge(camera, node, "camera");
        editor.createEdge(worldNode, node, "world");
      }
    };
    auto clear = [] {
      auto* node = new ClearNode();
      node->setColor(0.25f, 0.25f, 0.25f, 1.0f);
      return node;
    };
    plain = chain("Plain");
    auto* plainTarget = static_cast<RenderTargetNode*>(plain->firstState());
    pass(plainTarget, clear(), nullptr);
    pass(plainTarget, new RenderNode(), scene);

    effects = chain("Effects");
    auto* target = static_cast<RenderTargetNode*>(effects->firstState());
    pass(target, clear(), nullptr);
    GroundShadowEditor(*system).add(target, scene, camera);
    pass(target, new RenderNode(), scene);
    GlowEditor(*system).add(target, selected, camera, ruUtil::Color(1, 1, 1, 1), true, 0.25);
    XRayEditor(*system).add(target, xray, camera);
    ScreenSpaceEditor(*system).add(target, screen, camera);

    // Each effect alone on the plain frame, to see what each costs.
    shadowOnly = chain("Shadow");
    auto* shadowTarget = static_cast<RenderTargetNode*>(shadowOnly->firstState());
    pass(shadowTarget, clear(), nullptr);
    GroundShadowEditor(*system).add(shadowTarget, scene, camera);
    pass(shadowTarget, new RenderNode(), scene);
    glowOnly = chain("Glow");
    auto* glowTarget = static_cast<RenderTargetNode*>(glowOnly->firstState());
    pass(glowTarget, clear(), nullptr);
    pass(glowTarget, new RenderNode(), scene);
    GlowEditor(*system).add(glowTarget, selected, camera, ruUtil::Color(1, 1, 1, 1), true, 0.25);

    context = std::make_unique<DrawContext>(system.get(), system->allocateID());
    ru::Reference<LambertShader> lambert(new LambertShader());
    {
      Draw draw(*context, &sources[0], false);
      draw.setShader(lambert);
      draw.setMeshWithFlags(makeTorus(1000, 500), 5);
      draw.addTag("scene");
      draw.addTag("selected");
      draw.setActive(true);
      draw.emit();
    }
    {
      // Axes through the middle of the torus, partly hidden by it.
      Draw draw(*context, &sources[1], false);
      draw.setDepthInteraction(1);
      draw.addTag("xray");
      for (int axis = 0; axis < 3; ++axis) {
        ru::Reference<CompactMesh> cylinder(new CompactMesh());
        const Vector direction(axis == 0, axis == 1, axis == 2);
        ruGeom::constructCappedCylinder(ruLinear::ParamLine(Point(0, 0, 0), direction * 4.0), 0.05, 16, *cylinder);
        draw.setColor(float(axis == 0), float(axis == 1), float(axis == 2), 1.0f);
        draw.setMesh(cylinder);
        draw.emit();
      }
    }
    {
      Draw draw(*context, &sources[2], false);
      draw.setSpace(1);
      draw.addTag("screen");
      ru::Reference<CompactMesh> label(new CompactMesh());
      ruGeom::constructRectangle(20, 220, 20, 60, 2, 0, *label, true);
      draw.setMesh(label);
      draw.emit();
    }
  }
};

Setup& setup() {
  static Setup* s = new Setup();  // lives for the process: the context must outlive every benchmark
  return *s;
}

// Frames of a still camera (what a redraw for hover or a changed object costs), or of a camera
// turning a little every frame (orbiting: nothing kept from the frame before is of use).
void frame(benchmark::State& state, DataNodeStateInfo& info, bool moving) {
  Setup& s = setup();
  auto* target = static_cast<RenderTargetNode*>(info.firstState());
  s.cameraNode->setCamera(frameCamera());
  for (int warm = 0; warm < 3; ++warm) s.system->draw(target);  // uploads, compiles, fills caches
  glFinish();
  int turn = 0;
  for (auto _ : state) {
    if (moving) {
      ruGeom::Camera camera = frameCamera();
      const double angle = 0.002 * ++turn;
      const Point eye(3 * std::cos(angle) + 5 * std::sin(angle), 3 * std::sin(angle) - 5 * std::cos(angle), 6);
      camera.setWorldToEye(Point(0, 0, 0), eye, Vector(0, 0, 1));
      s.cameraNode->setCamera(camera);
    }
    s.system->draw(target);
    glFinish();
  }
}

void BM_PlainFrame(benchmark::State& state) { frame(state, *setup().plain, false); }
BENCHMARK(BM_PlainFrame)->Unit(benchmark::kMillisecond);

void BM_PlainFrameWithGroundShadow(benchmark::State& state) { frame(state, *setup().shadowOnly, false); }
BENCHMARK(BM_PlainFrameWithGroundShadow)->Unit(benchmark::kMillisecond);

void BM_PlainFrameWithGlow(benchmark::State& state) { frame(state, *setup().glowOnly, false); }
BENCHMARK(BM_PlainFrameWithGlow)->Unit(benchmark::kMillisecond);

void BM_FrameWithShadowGlowXRayScreenSpace(benchmark::State& state) { frame(state, *setup().effects, false); }
BENCHMARK(BM_FrameWithShadowGlowXRayScreenSpace)->Unit(benchmark::kMillisecond);

void BM_PlainFrameMovingCamera(benchmark::State& state) { frame(state, *setup().plain, true); }
BENCHMARK(BM_PlainFrameMovingCamera)->Unit(benchmark::kMillisecond);

void BM_FrameWithShadowGlowXRayScreenSpaceMovingCamera(benchmark::State& state) {
  frame(state, *setup().effects, true);
}
BENCHMARK(BM_FrameWithShadowGlowXRayScreenSpaceMovingCamera)->Unit(benchmark::kMillisecond);

}  // namespace
