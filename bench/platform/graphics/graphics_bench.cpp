// Speed of libGraphics on llvmpipe (or whatever EGL gives), with raw OpenGL measured in the same
// run as the yardstick: the same interleaved vertices and indices, the same Lambert shading, the
// same 1920 x 1080 frame buffer, glFinish after each frame.

#include "platform/geometry/algorithms.h"
#include "platform/geometry/construct.h"
#include "platform/graphics/draw.h"
#include "platform/graphics/graph.h"
#include "platform/graphics/shader.h"
#include "platform/graphics/world.h"

#include "bench/benchmeshes.h"

#include <benchmark/benchmark.h>
#include <epoxy/gl.h>

#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <vector>

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

// 1000 * 500 quads: 1,000,000 triangles, 500,000 vertices.
const ru::Reference<CompactMesh>& millionTriangles() {
  static const ru::Reference<CompactMesh> mesh = makeTorus(1000, 500);
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

// One draw system for the whole run, with a frame target: clear, then a Lambert render pass.
struct Setup {
  std::unique_ptr<DrawSystem> system;
  ru::Reference<Database> database;
  ru::Reference<DataNodeStateInfo> info;
  RenderTargetNode* target = nullptr;
  std::unique_ptr<DrawContext> context;
  ru::Reference<LambertShader> shader;

  Setup() {
    ruString::CString error;
    system = DrawSystem::createOffscreen(&error);
    if (!system) {
      std::fprintf(stderr, "no off-screen context: %s\n", error.c_str());
      std::exit(1);
    }
    ruRen::FBOKey key = system->createFBOKey(ruRen::FBOInfo(kWidth, kHeight, true, false, false));
    info = system->createRenderTarget("Frame", key);
    target = static_cast<RenderTargetNode*>(info->firstState());
    GraphEditor editor(system->getGraph());
    database = new Database(system->getGraph());
    system->setActiveDatabase(database);
    WorldNode* world = database->getWorldNode(database->addWorld(new ListWorld(true), {}));
    auto* camera = new CameraNode();
    camera->setCamera(frameCamera());
    editor.addNode(camera);
    auto* afterClear = new RenderTargetNode();
    editor.addNode(afterClear);
    target->appendState(afterClear);
    auto* clear = new ClearNode();
    clear->setColor(0.25f, 0.25f, 0.25f, 1.0f);
    editor.addNode(clear);
    editor.createEdge(target, clear);
    editor.createEdge(clear, afterClear, "target");
    auto* afterRender = new RenderTargetNode();
    editor.addNode(afterRender);
    afterClear->appendState(afterRender);
    auto* render = new RenderNode();
    editor.addNode(render);
    editor.createEdge(camera, render, "camera");
    editor.createEdge(afterClear, render);
    editor.createEdge(world, render, "world");
    editor.createEdge(render, afterRender, "target");
    context = std::make_unique<DrawContext>(system.get(), system->allocateID());
    shader = new LambertShader();
  }
};

Setup& setup() {
  static Setup* s = new Setup();  // lives for the process: the context must outlive every benchmark
  return *s;
}

// ---------------------------------------------------------------------------------------------
// The raw OpenGL yardstick.

const char* const kRawVertex = R"(#version 330 core
layout(location = 0) in vec3 aPosition;
layout(location = 1) in vec3 aNormal;
uniform mat4 uViewProjection;
out vec3 vNormal;
void main() { vNormal = aNormal; gl_Position = uViewProjection * vec4(aPosition, 1.0); }
)";
const char* const kRawFragment = R"(#version 330 core
in vec3 vNormal;
uniform vec4 uColor;
uniform vec3 uLightDirection;
out vec4 fragColor;
void main() {
  vec3 n = normalize(vNormal);
  fragColor = vec4(uColor.rgb * (0.25 + 0.75 * abs(dot(n, uLightDirection))), uColor.a);
}
)";

struct Raw {
  GLuint program = 0, vao = 0, vbo = 0, ibo = 0, fbo = 0, color = 0, depth = 0;
  std::vector<float> interleaved;
  GLsizei indexCount = 0;

  Raw() {
    setup().system->makeCurrent();
    const CompactMesh& mesh = *millionTriangles();
    interleaved.resize(std::size_t(mesh.getNumVertices()) * 6);
    for (int i = 0; i < mesh.getNumVertices(); ++i) {
      const MeshVertex& v = mesh.getVertices()[i];
      const ruGeom::MeshNormal& n = mesh.getNormals()[i];
      float* out = &interleaved[std::size_t(i) * 6];
      out[0] = v.x, out[1] = v.y, out[2] = v.z, out[3] = n.x, out[4] = n.y, out[5] = n.z;
    }
    indexCount = mesh.getNumTriangles() * 3;
    auto compile = [](GLenum stage, const char* source) {
      GLuint s = glCreateShader(stage);
      glShaderSource(s, 1, &source, nullptr);
      glCompileShader(s);
      return s;
    };
    program = glCreateProgram();
    GLuint vs = compile(GL_VERTEX_SHADER, kRawVertex), fs = compile(GL_FRAGMENT_SHADER, kRawFragment);
    glAttachShader(program, vs);
    glAttachShader(program, fs);
    glLinkProgram(program);
    glDeleteShader(vs);
    glDeleteShader(fs);
    glGenVertexArrays(1, &vao);
    glBindVertexArray(vao);
    glGenBuffers(1, &vbo);
    glGenBuffers(1, &ibo);
    upload();
    glBindBuffer(GL_ARRAY_BUFFER, vbo);
    glVertexAttribPointer(0, 3, GL_FLOAT, GL_FALSE, 24, nullptr);
    glVertexAttribPointer(1, 3, GL_FLOAT, GL_FALSE, 24, reinterpret_cast<void*>(12));
    glEnableVertexAttribArray(0);
    glEnableVertexAttribArray(1);
    glGenFramebuffers(1, &fbo);
    glBindFramebuffer(GL_FRAMEBUFFER, fbo);
    glGenTextures(1, &color);
    glBindTexture(GL_TEXTURE_2D, color);
    glTexImage2D(GL_TEXTURE_2D, 0, GL_RGBA8, kWidth, kHeight, 0, GL_RGBA, GL_UNSIGNED_BYTE, nullptr);
    glFramebufferTexture2D(GL_FRAMEBUFFER, GL_COLOR_ATTACHMENT0, GL_TEXTURE_2D, color, 0);
    glGenRenderbuffers(1, &depth);
    glBindRenderbuffer(GL_RENDERBUFFER, depth);
    glRenderbufferStorage(GL_RENDERBUFFER, GL_DEPTH_COMPONENT24, kWidth, kHeight);
    glFramebufferRenderbuffer(GL_FRAMEBUFFER, GL_DEPTH_ATTACHMENT, GL_RENDERBUFFER, depth);
    glBindFramebuffer(GL_FRAMEBUFFER, 0);
    glBindVertexArray(0);
  }

  void upload() {
    glBindVertexArray(vao);
    glBindBuffer(GL_ARRAY_BUFFER, vbo);
    glBufferData(GL_ARRAY_BUFFER, GLsizeiptr(interleaved.size() * 4), interleaved.data(), GL_STATIC_DRAW);
    glBindBuffer(GL_ELEMENT_ARRAY_BUFFER, ibo);
    glBufferData(GL_ELEMENT_ARRAY_BUFFER, GLsizeiptr(indexCount) * 4, millionTriangles()->getTriangles(), GL_STATIC_DRAW);
  }

  void frame() {
    glBindFramebuffer(GL_FRAMEBUFFER, fbo);
    glViewport(0, 0, kWidth, kHeight);
    glClearColor(0.25f, 0.25f, 0.25f, 1.0f);
    glClear(GL_COLOR_BUFFER_BIT | GL_DEPTH_BUFFER_BIT);
    glEnable(GL_DEPTH_TEST);
    glDepthFunc(GL_LEQUAL);
    glUseProgram(program);
    const ruGeom::Camera camera = frameCamera();
    const ruLinear::ProjMatrix m = ruLinear::ProjMatrix(camera.getWorldToEye()) * camera.getProjection();
    float data[16];
    for (int r = 0; r < 4; ++r) {
      for (int c = 0; c < 4; ++c) data[4 * r + c] = float(m(r, c));
    }
    glUniformMatrix4fv(glGetUniformLocation(program, "uViewProjection"), 1, GL_FALSE, data);
    glUniform4f(glGetUniformLocation(program, "uColor"), 0.67f, 0.67f, 0.67f, 1.0f);
    const Vector l = camera.getViewVector() * -1.0;
    glUniform3f(glGetUniformLocation(program, "uLightDirection"), float(l.getX()), float(l.getY()), float(l.getZ()));
    glBindVertexArray(vao);
    glDrawElements(GL_TRIANGLES, indexCount, GL_UNSIGNED_INT, nullptr);
    glFinish();
    glBindVertexArray(0);
    glBindFramebuffer(GL_FRAMEBUFFER, 0);
  }
};

Raw& raw() {
  static Raw* r = new Raw();
  return *r;
}

// Emits the million-triangle torus (or whichever mesh) as the one item of the benchmark source.
int gSource = 0;
ru::Reference<DrawItem> emitMesh(const ru::Reference<CompactMesh>& mesh) {
  Setup& s = setup();
  Draw draw(*s.context, &gSource, false);
  draw.setShader(s.shader);
  draw.setMeshWithFlags(mesh, 5);
  return draw.emit();
}

// A copy of the torus with buffers of its own (new identities), as a freshly loaded mesh has.
ru::Reference<CompactMesh> freshTorus() {
  ru::Reference<CompactMesh> copy(new CompactMesh(*millionTriangles()));
  copy->editVertices();
  copy->editNormals();
  copy->editTriangles();
  return copy;
}

void BM_RawFrame(benchmark::State& state) {
  Raw& r = raw();
  for (auto _ : state) r.frame();
}
BENCHMARK(BM_RawFrame)->Unit(benchmark::kMillisecond);

void BM_DrawSystemFrame(benchmark::State& state) {
  Setup& s = setup();
  emitMesh(millionTriangles());
  s.system->draw(s.target);  // uploads once
  const std::int64_t uploads = s.system->getStatistics().bufferUploads;
  for (auto _ : state) {
    s.system->draw(s.target);
    glFinish();
  }
  state.counters["uploads"] = double(s.system->getStatistics().bufferUploads - uploads);
  Draw clear(*s.context, &gSource, false);
}
BENCHMARK(BM_DrawSystemFrame)->Unit(benchmark::kMillisecond);

// A first upload: new buffer objects, from the arrays of a fresh copy of the mesh (its vertices
// interleaved with its normals), as the library's benchmark below uploads fresh copies.
void BM_RawUpload(benchmark::State& state) {
  setup().system->makeCurrent();
  std::int64_t bytes = 0;
  for (auto _ : state) {
    state.PauseTiming();
    ru::Reference<CompactMesh> mesh = freshTorus();
    std::vector<float> interleaved(std::size_t(mesh->getNumVertices()) * 6);
    for (int i = 0; i < mesh->getNumVertices(); ++i) {
      const MeshVertex& v = mesh->getVertices()[i];
      const ruGeom::MeshNormal& n = mesh->getNormals()[i];
      float* out = &interleaved[std::size_t(i) * 6];
      out[0] = v.x, out[1] = v.y, out[2] = v.z, out[3] = n.x, out[4] = n.y, out[5] = n.z;
    }
    const GLsizeiptr indexBytes = GLsizeiptr(mesh->getNumTriangles()) * 12;
    state.ResumeTiming();
    GLuint buffers[2];
    glGenBuffers(2, buffers);
    glBindBuffer(GL_ARRAY_BUFFER, buffers[0]);
    glBufferData(GL_ARRAY_BUFFER, GLsizeiptr(interleaved.size() * 4), interleaved.data(), GL_STATIC_DRAW);
    glBindBuffer(GL_ELEMENT_ARRAY_BUFFER, buffers[1]);
    glBufferData(GL_ELEMENT_ARRAY_BUFFER, indexBytes, mesh->getTriangles(), GL_STATIC_DRAW);
    glFinish();
    state.PauseTiming();
    bytes += GLsizeiptr(interleaved.size() * 4) + indexBytes;
    glDeleteBuffers(2, buffers);
    glFinish();
    state.ResumeTiming();
  }
  state.SetBytesProcessed(bytes);
}
BENCHMARK(BM_RawUpload)->Unit(benchmark::kMillisecond);

void BM_DrawSystemUpload(benchmark::State& state) {
  Setup& s = setup();
  std::int64_t bytes = 0;
  for (auto _ : state) {
    state.PauseTiming();
    ru::Reference<DrawItem> item = emitMesh(freshTorus());
    const std::int64_t before = s.system->getStatistics().uploadedBytes;
    state.ResumeTiming();
    s.system->upload(*item);
    glFinish();
    state.PauseTiming();
    bytes += s.system->getStatistics().uploadedBytes - before;
    { Draw clear(*s.context, &gSource, false); }
    item = nullptr;
    s.system->releaseUnusedBuffers();  // as the raw loop deletes its buffers outside the timing
    glFinish();
    state.ResumeTiming();
  }
  state.SetBytesProcessed(bytes);
}
BENCHMARK(BM_DrawSystemUpload)->Unit(benchmark::kMillisecond);

void BM_ReEmitUnchanged(benchmark::State& state) {
  Setup& s = setup();
  emitMesh(millionTriangles());
  s.system->draw(s.target);
  const std::int64_t uploads = s.system->getStatistics().bufferUploads;
  for (auto _ : state) {
    // What a redraw of an unchanged object does: a copy of its mesh (shared buffers), emitted.
    benchmark::DoNotOptimize(emitMesh(ru::Reference<CompactMesh>(new CompactMesh(*millionTriangles()))));
  }
  s.system->draw(s.target);
  state.counters["uploads"] = double(s.system->getStatistics().bufferUploads - uploads);
  Draw clear(*s.context, &gSource, false);
}
BENCHMARK(BM_ReEmitUnchanged)->Unit(benchmark::kMicrosecond);

void BM_TenThousandSmallItemsEmittedAndDrawn(benchmark::State& state) {
  Setup& s = setup();
  ru::Reference<CompactMesh> box(new CompactMesh());
  ruGeom::constructCuboid(ruLinear::Range3d(Point(0, 0, 0), Point(0.03, 0.03, 0.03)), *box);
  for (auto _ : state) {
    {
      Draw draw(*s.context, &gSource, false);
      draw.setShader(s.shader);
      draw.setMeshWithFlags(box, 5);
      for (int i = 0; i < 10000; ++i) {
        draw.setTransform(ruLinear::AffineMatrix::translation(Vector(-2.5 + 0.05 * (i % 100), -2.5 + 0.05 * (i / 100), 0)));
        draw.emit();
      }
    }
    s.system->draw(s.target);
    glFinish();
  }
  Draw clear(*s.context, &gSource, false);
}
BENCHMARK(BM_TenThousandSmallItemsEmittedAndDrawn)->Unit(benchmark::kMillisecond);

}  // namespace
