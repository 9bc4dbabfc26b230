#include "platform/graphics/editors.h"

#include "platform/geometry/mesh.h"
#include "platform/graphics/draw.h"
#include "platform/graphics/graph.h"
#include "platform/graphics/pass.h"
#include "platform/graphics/shader.h"
#include "platform/graphics/world.h"
#include "platform/support/debug.h"

#include <algorithm>
#include <cmath>
#include <cstdint>
#include <cstring>
#include <vector>

namespace voGR {

namespace {

const float kZero[4] = {0, 0, 0, 0};
const float kOne[4] = {1, 1, 1, 1};

// The camera, target and worlds a pass works with in one draw.
struct PassInputs {
  ruGeom::Camera camera;
  RenderTargetNode* target = nullptr;
  std::vector<World*> worlds;
};

// False (and a message) when the pass is not wired to a camera.
bool gatherInputs(const Node& pass, PassInputs& inputs) {
  auto* cameraNode = dynamic_cast<CameraNode*>(pass.getInput("camera"));
  if (!cameraNode) {
    voSupport::Debug::getInstance().print(DebugGraphics, "voGR::EffectPass::onExecute",
                                          "pass \"%s\" has no \"camera\" input; nothing drawn", pass.getName().c_str());
    return false;
  }
  inputs.camera = cameraNode->getCamera();
  inputs.target = PassContext::targetOf(pass);
  for (Node* node : pass.getInputs("world")) {
    if (auto* worldNode = dynamic_cast<WorldNode*>(node)) inputs.worlds.push_back(worldNode->getWorld());
  }
  return true;
}

// Appends `pass` after the last state of `target`'s chain, feeding a new state of it, with its
// camera and world inputs. The graph takes `pass`; on refusal it is deleted and nothing changes.
bool appendPass(DrawSystem* system, const char* function, RenderTargetNode* target, Node* pass, CameraNode* camera,
                WorldNode* world, bool needsWorld) {
  Graph* graph = system ? system->getGraph() : nullptr;
  const char* why = nullptr;
  if (!graph || !target || !graph->contains(target)) why = "the target is null or not in the draw system's graph";
  else if (!camera || !graph->contains(camera)) why = "the camera node is null or not in the graph";
  else if (needsWorld && (!world || !graph->contains(world))) why = "the world node is null or not in the graph";
  if (why) {
    voSupport::Debug::getInstance().print(DebugGraphics, function, "%s; nothing added", why);
    delete pass;
    return false;
  }
  GraphEditor editor(graph);
  DataNode* last = target->getLastState();
  auto* next = new RenderTargetNode();
  next->setName(target->getName());
  editor.addNode(next);
  last->appendState(next);
  editor.addNode(pass);
  editor.createEdge(camera, pass, "camera");
  editor.createEdge(last, pass);
  if (world) editor.createEdge(world, pass, "world");
  editor.createEdge(pass, next, "target");
  return true;
}

// ---------------------------------------------------------------------------------------------
// Shaders of the effects. Each reads the scratch surfaces pixel for pixel (texelFetch at the
// fragment's own pixel), so they only make sense on a full-surface pass over the same target.

// Plain white: masks and parity counts.
class MaskShader final : public Shader {
  const char* onFragmentSource() const override { return "vec4 shade() { return vec4(1.0); }\n"; }
  void onBind(ShaderUniforms&) const override {}
  float onLineWidth() const override { return 1.0f; }
};

// Full-surface effect passes would read dozens of mask pixels for every pixel of the frame, which
// a software renderer feels. A coarse copy of the mask (scratch 2: one texel per 16 x 16 block,
// the block's largest value in red and its smallest in green) lets a pixel far from any edge of
// the mask decide from a few texels; only pixels near an edge do the exact search.
constexpr int kBlock = 16;  // the GLSL below spells it out

#define VO_GR_COARSE_GLSL                                                                         \
  "uniform sampler2D uScratch2;\n"                                                               \
  "uniform vec3 uCoarseSize;\n"                                                                  \
  "// Largest and smallest mask value over the pixels [lo, hi] (inclusive); the smallest is 0\n"  \
  "// when the range leaves the blocks.\n"                                                        \
  "vec2 coarse(ivec2 lo, ivec2 hi) {\n"                                                           \
  "  ivec2 size = ivec2(uCoarseSize.xy);\n"                                                       \
  "  ivec2 a = max(lo, ivec2(0)) / 16;\n"                                                         \
  "  ivec2 b = min(max(hi, ivec2(0)) / 16, size - 1);\n"                                          \
  "  float most = 0.0;\n"                                                                         \
  "  float least = (lo.x < 0 || lo.y < 0 || hi.x >= size.x * 16 || hi.y >= size.y * 16) ? 0.0 : 1.0;\n" \
  "  for (int y = a.y; y <= b.y; ++y) {\n"                                                        \
  "    for (int x = a.x; x <= b.x; ++x) {\n"                                                      \
  "      vec2 m = texelFetch(uScratch2, ivec2(x, y), 0).rg;\n"                                    \
  "      most = max(most, m.r);\n"                                                                \
  "      least = min(least, m.g);\n"                                                              \
  "    }\n"                                                                                       \
  "  }\n"                                                                                         \
  "  return vec2(most, least);\n"                                                                 \
  "}\n"

// Base of the shaders that read the coarse mask: they are told its size in blocks.
class CoarseReader : public Shader {
public:
  int coarseWidth = 1, coarseHeight = 1;

protected:
  void bindCoarse(ShaderUniforms& uniforms) const {
    uniforms.setVector3("uCoarseSize", float(coarseWidth), float(coarseHeight), 0.0f);
  }
};

// The coarse mask: for each 16 x 16 block of the mask (scratch 0), its largest and smallest
// value.
class CoarseMaskShader final : public Shader {
  const char* onFragmentSource() const override {
    return R"(
uniform sampler2D uScratch0;
vec4 shade() {
  ivec2 c = ivec2(gl_FragCoord.xy);
  ivec2 size = textureSize(uScratch0, 0);
  float most = 0.0, least = 1.0;
  for (int j = 0; j < 16; ++j) {
    for (int i = 0; i < 16; ++i) {
      ivec2 q = c * 16 + ivec2(i, j);
      if (q.x >= size.x || q.y >= size.y) continue;
      float m = texelFetch(uScratch0, q, 0).r;
      most = max(most, m);
      least = min(least, m);
    }
  }
  return vec4(most, least, 0.0, 1.0);
}
)";
  }
  void onBind(ShaderUniforms&) const override {}
};

// Horizontal half of a separable distance search: for each pixel, the distance in pixels to the
// nearest mask pixel (scratch 0, red above one half) in its row within the radius, as
// distance / 255; 1.0 when there is none.
class RowDistanceShader final : public CoarseReader {
public:
  float radius = 1.0f;

private:
  const char* onFragmentSource() const override {
    return VO_GR_COARSE_GLSL R"(
uniform sampler2D uScratch0;
uniform float uRadius;
vec4 shade() {
  ivec2 p = ivec2(gl_FragCoord.xy);
  int width = textureSize(uScratch0, 0).x;
  int radius = int(uRadius);
  if (coarse(ivec2(p.x - radius, p.y), ivec2(p.x + radius, p.y)).x < 0.5) return vec4(1.0);
  for (int d = 0; d <= radius; ++d) {
    int left = p.x - d, right = p.x + d;
    if ((left >= 0 && texelFetch(uScratch0, ivec2(left, p.y), 0).r > 0.5) ||
        (right < width && texelFetch(uScratch0, ivec2(right, p.y), 0).r > 0.5))
      return vec4(float(d) / 255.0, 0.0, 0.0, 1.0);
  }
  return vec4(1.0);
}
)";
  }
  void onBind(ShaderUniforms& uniforms) const override {
    uniforms.setFloat("uRadius", radius);
    bindCoarse(uniforms);
  }
};

// Vertical half: the Euclidean distance to the nearest mask pixel is the least of
// sqrt(row distance(y + dy)^2 + dy^2) over dy; pixels within the radius take the colour, the
// outermost half pixel fading out. Mask pixels themselves are left alone, or tinted at half
// strength when `inside` is true.
class GlowShader final : public CoarseReader {
public:
  float radius = 1.0f;
  ruUtil::Color color{1, 1, 1, 1};
  bool inside = false;

private:
  const char* onFragmentSource() const override {
    return VO_GR_COARSE_GLSL R"(
uniform sampler2D uScratch0;
uniform sampler2D uScratch1;
uniform float uRadius;
uniform vec4 uGlowColor;
uniform bool uInside;
vec4 shade() {
  ivec2 p = ivec2(gl_FragCoord.xy);
  if (texelFetch(uScratch0, p, 0).r > 0.5) {
    if (!uInside) discard;
    return vec4(uGlowColor.rgb, 0.5 * uGlowColor.a);
  }
  int radius = int(uRadius);
  if (coarse(p - ivec2(radius), p + ivec2(radius)).x < 0.5) discard;
  int height = textureSize(uScratch1, 0).y;
  float best = 1e9;
  for (int dy = -radius; dy <= radius; ++dy) {
    int y = p.y + dy;
    if (y < 0 || y >= height) continue;
    float row = texelFetch(uScratch1, ivec2(p.x, y), 0).r * 255.0;
    if (row > 254.5) continue;
    best = min(best, row * row + float(dy * dy));
  }
  float coverage = clamp(uRadius + 0.5 - sqrt(best), 0.0, 1.0);
  if (coverage <= 0.0) discard;
  return vec4(uGlowColor.rgb, uGlowColor.a * coverage);
}
)";
  }
  void onBind(ShaderUniforms& uniforms) const override {
    uniforms.setFloat("uRadius", radius);
    uniforms.setColor("uGlowColor", color);
    uniforms.setBool("uInside", inside);
    bindCoarse(uniforms);
  }
  bool onIsTransparent() const override { return true; }
};

// Horizontal half of the shadow's blur: a tent-weighted average of the mask (scratch 0) along
// the row (edge pixels repeat beyond the surface).
class RowBlurShader final : public CoarseReader {
public:
  float radius = 1.0f;

private:
  const char* onFragmentSource() const override {
    return VO_GR_COARSE_GLSL R"(
uniform sampler2D uScratch0;
uniform float uRadius;
vec4 shade() {
  ivec2 p = ivec2(gl_FragCoord.xy);
  int radius = int(uRadius);
  vec2 near = coarse(ivec2(p.x - radius, p.y), ivec2(p.x + radius, p.y));
  if (near.x < 0.5) return vec4(0.0, 0.0, 0.0, 1.0);
  if (near.y > 0.5) return vec4(1.0);
  int width = textureSize(uScratch0, 0).x;
  float sum = 0.0, weights = 0.0;
  for (int d = -radius; d <= radius; ++d) {
    float w = float(radius + 1 - abs(d));
    int x = clamp(p.x + d, 0, width - 1);
    sum += w * texelFetch(uScratch0, ivec2(x, p.y), 0).r;
    weights += w;
  }
  return vec4(sum / weights, 0.0, 0.0, 1.0);
}
)";
  }
  void onBind(ShaderUniforms& uniforms) const override {
    uniforms.setFloat("uRadius", radius);
    bindCoarse(uniforms);
  }
};

// Vertical half of the blur, darkening the target by the blurred coverage.
class ShadowShader final : public CoarseReader {
public:
  float radius = 1.0f;
  float darkness = 0.5f;

private:
  const char* onFragmentSource() const override {
    return VO_GR_COARSE_GLSL R"(
uniform sampler2D uScratch1;
uniform float uRadius;
uniform float uDarkness;
vec4 shade() {
  ivec2 p = ivec2(gl_FragCoord.xy);
  int radius = int(uRadius);
  vec2 near = coarse(p - ivec2(radius), p + ivec2(radius));
  if (near.x < 0.5) discard;
  float coverage = 1.0;
  if (near.y < 0.5) {
    int height = textureSize(uScratch1, 0).y;
    float sum = 0.0, weights = 0.0;
    for (int d = -radius; d <= radius; ++d) {
      float w = float(radius + 1 - abs(d));
      int y = clamp(p.y + d, 0, height - 1);
      sum += w * texelFetch(uScratch1, ivec2(p.x, y), 0).r;
      weights += w;
    }
    coverage = sum / weights;
  }
  if (coverage <= 0.0) discard;
  return vec4(0.0, 0.0, 0.0, uDarkness * coverage);
}
)";
  }
  void onBind(ShaderUniforms& uniforms) const override {
    uniforms.setFloat("uRadius", radius);
    uniforms.setFloat("uDarkness", darkness);
    bindCoarse(uniforms);
  }
  bool onIsTransparent() const override { return true; }
};

// The cap: its colour where the parity count (scratch 0) is odd, nothing elsewhere.
class CapShader final : public Shader {
public:
  ruUtil::Color color{0.8f, 0.3f, 0.2f, 1.0f};

private:
  const char* onFragmentSource() const override {
    return R"(
uniform sampler2D uScratch0;
uniform vec4 uCapColor;
vec4 shade() {
  if (texelFetch(uScratch0, ivec2(gl_FragCoord.xy), 0).r < 0.5) discard;
  return uCapColor;
}
)";
  }
  void onBind(ShaderUniforms& uniforms) const override { uniforms.setColor("uCapColor", color); }
};

// Builds the coarse mask of scratch 0 into scratch 2, over the blocks that cover the camera's
// viewport; tells `readers` its size. False when the scratch surface cannot be bound.
bool buildCoarseMask(PassContext& context, const ruGeom::Camera& camera, const CoarseMaskShader& shader,
                     std::initializer_list<CoarseReader*> readers) {
  const ruGeom::Viewport& v = camera.getViewport();
  const int width = std::max(1, int(std::ceil((v.x + v.width) / kBlock)));
  const int height = std::max(1, int(std::ceil((v.y + v.height) / kBlock)));
  ruGeom::Camera blocks = camera;
  blocks.setViewport(ruGeom::Viewport(0, 0, width, height));
  if (!context.bindScratch(2, &blocks, nullptr)) return false;
  context.drawFullSurface(shader, blocks);
  for (CoarseReader* reader : readers) {
    reader->coarseWidth = width;
    reader->coarseHeight = height;
  }
  return true;
}

// The camera with its viewport cut down to the pixels within `margin` of where `box` (world)
// projects, so a full-surface pass covers only what it can change; the whole viewport when a
// corner of the box is not in front of the eye. False when that part of the viewport is empty.
bool around(const ruGeom::Camera& camera, const ruGeom::BoundingBox& box, int margin, ruGeom::Camera& out) {
  out = camera;
  const ruGeom::Viewport& v = camera.getViewport();
  const ruLinear::Range3d range = box.asRange3d();
  double x0 = 1e300, y0 = 1e300, x1 = -1e300, y1 = -1e300;
  for (int i = 0; i < 8; ++i) {
    const ruLinear::Point corner((i & 1) ? range.getMax(0) : range.getMin(0), (i & 2) ? range.getMax(1) : range.getMin(1),
                                 (i & 4) ? range.getMax(2) : range.getMin(2));
    ruLinear::Point2 p;
    if (!camera.project(corner, p)) return true;
    x0 = std::min(x0, p.x), x1 = std::max(x1, p.x), y0 = std::min(y0, p.y), y1 = std::max(y1, p.y);
  }
  const double left = std::max(v.x, std::floor(x0) - margin), right = std::min(v.x + v.width, std::ceil(x1) + margin);
  const double bottom = std::max(v.y, std::floor(y0) - margin), top = std::min(v.y + v.height, std::ceil(y1) + margin);
  if (right <= left || top <= bottom) return false;
  out.setViewport(ruGeom::Viewport(left, bottom, right - left, top - bottom));
  return true;
}

// A mask kept across draws: drawn again only when what it shows changes (the camera, the
// target's size, the flattening, or any item's geometry, placement, space or visibility) and
// copied back into scratch 0 otherwise, so a still view pays for the effect's passes and not for
// the items. Frames of a window (no frame-buffer key) are not kept.
class MaskCache {
public:
  // Leaves the mask in scratch `index`: `draw` must bind that scratch surface (cleared) and draw
  // the mask into it.
  bool fill(PassContext& context, const PassInputs& in, const ruLinear::AffineMatrix* flatten,
            const std::function<bool()>& draw, int index = 0) {
    sign(in, flatten);
    const ruRen::FBOInfo info = in.target ? in.target->getFBO().getInfo() : ruRen::FBOInfo();
    const bool keep = info.width > 0 && info.height > 0 && !info.multisample;
    if (keep && key_.valid() && key_.getInfo().width == info.width && key_.getInfo().height == info.height &&
        signature_ == current_) {
      if (context.bindScratch(index, &in.camera, nullptr) && context.copyScratch(index, key_, false)) return true;
    }
    signature_.clear();
    if (!draw()) return false;
    if (!keep) return true;
    if (!key_.valid() || key_.getInfo().width != info.width || key_.getInfo().height != info.height) {
      key_ = context.getDrawSystem().createFBOKey(ruRen::FBOInfo(info.width, info.height, false, false, false));
    }
    if (key_.valid() && context.copyScratch(index, key_, true)) signature_.swap(current_);
    return true;
  }

private:
  void put(double value) {
    std::uint64_t bits;
    std::memcpy(&bits, &value, sizeof bits);
    current_.push_back(bits);
  }
  void put(const ruLinear::AffineMatrix& m) {
    for (int r = 0; r < 4; ++r) {
      for (int c = 0; c < 3; ++c) put(m(r, c));
    }
  }
  void sign(const PassInputs& in, const ruLinear::AffineMatrix* flatten) {
    current_.clear();
    const ruLinear::ProjMatrix toViewport = in.camera.getWorldToViewport();
    for (int r = 0; r < 4; ++r) {
      for (int c = 0; c < 4; ++c) put(toViewport(r, c));
    }
    const ruGeom::Viewport& v = in.camera.getViewport();
    put(v.x), put(v.y), put(v.width), put(v.height);
    if (flatten) put(*flatten);
    for (World* world : in.worlds) {
      world->forEach([&](DrawItem& item) {
        if (!item.isDrawable() || !item.getGeometry()) return;
        const ruGeom::CompactMesh* mesh = item.getMesh();
        current_.insert(current_.end(),
                        {std::uint64_t(reinterpret_cast<std::uintptr_t>(item.getGeometry())),
                         std::uint64_t(item.getSpace()), item.isTriangles() ? 1u : 0u,
                         mesh ? mesh->getVertexBufferId() : 0, mesh ? mesh->getTriangleBufferId() : 0,
                         mesh ? mesh->getStripBufferId() : 0, mesh ? mesh->getLineBufferId() : 0});
        put(item.getLocalToWorld());
      });
    }
  }

  ruRen::FBOKey key_;
  std::vector<std::uint64_t> signature_, current_;
};

// The plane-to-plane map between two views of the ground: the 3 x 3 matrix H (column vectors,
// h22 = 1) with H (x, y, 1) proportional to (x', y', 1) for the four pairs from -> to. False when
// the points are degenerate.
bool homography(const ruLinear::Point2 (&from)[4], const ruLinear::Point2 (&to)[4], double h[9]) {
  double a[8][9] = {};
  for (int i = 0; i < 4; ++i) {
    const double x = from[i].x, y = from[i].y, u = to[i].x, v = to[i].y;
    const double rowU[9] = {x, y, 1, 0, 0, 0, -x * u, -y * u, u};
    const double rowV[9] = {0, 0, 0, x, y, 1, -x * v, -y * v, v};
    std::copy(rowU, rowU + 9, a[2 * i]);
    std::copy(rowV, rowV + 9, a[2 * i + 1]);
  }
  for (int c = 0; c < 8; ++c) {
    int pivot = c;
    for (int r = c + 1; r < 8; ++r) {
      if (std::abs(a[r][c]) > std::abs(a[pivot][c])) pivot = r;
    }
    if (std::abs(a[pivot][c]) < 1e-12) return false;
    std::swap(a[c], a[pivot]);
    for (int r = 0; r < 8; ++r) {
      if (r == c) continue;
      const double f = a[r][c] / a[c][c];
      for (int k = c; k < 9; ++k) a[r][k] -= f * a[c][k];
    }
  }
  for (int i = 0; i < 8; ++i) h[i] = a[i][8] / a[i][i];
  h[8] = 1.0;
  return true;
}

// A ground mask seen by another camera: each pixel reads the kept mask (scratch 3) where the
// homography takes it; nothing where that falls behind the kept view or outside it.
class ReprojectShader final : public Shader {
public:
  double h[9] = {1, 0, 0, 0, 1, 0, 0, 0, 1};

private:
  const char* onFragmentSource() const override {
    return R"(
uniform sampler2D uScratch3;
uniform vec3 uRow0;
uniform vec3 uRow1;
uniform vec3 uRow2;
vec4 shade() {
  vec3 p = vec3(gl_FragCoord.xy, 1.0);
  vec3 q = vec3(dot(uRow0, p), dot(uRow1, p), dot(uRow2, p));
  if (q.z <= 0.0) return vec4(0.0, 0.0, 0.0, 1.0);
  ivec2 t = ivec2(floor(q.xy / q.z));
  ivec2 size = textureSize(uScratch3, 0);
  if (t.x < 0 || t.y < 0 || t.x >= size.x || t.y >= size.y) return vec4(0.0, 0.0, 0.0, 1.0);
  return vec4(texelFetch(uScratch3, t, 0).r, 0.0, 0.0, 1.0);
}
)";
  }
  void onBind(ShaderUniforms& uniforms) const override {
    uniforms.setVector3("uRow0", float(h[0]), float(h[1]), float(h[2]));
    uniforms.setVector3("uRow1", float(h[3]), float(h[4]), float(h[5]));
    uniforms.setVector3("uRow2", float(h[6]), float(h[7]), float(h[8]));
  }
};

double area(const ruLinear::Point2 (&p)[4]) {
  double twice = 0;
  for (int i = 0; i < 4; ++i) twice += p[i].x * p[(i + 1) % 4].y - p[(i + 1) % 4].x * p[i].y;
  return std::abs(twice) / 2;
}

// Whether a triangle mesh is closed and consistently oriented: every edge is met once in each
// direction. The outline of such a solid is the outline of its triangles facing the eye, so its
// mask can skip the others. Answers are kept by triangle buffer (they never change).
class ClosedMeshes {
public:
  bool closed(const DrawItem& item) {
    const ruGeom::CompactMesh* mesh = item.getMesh();
    const Shader* shader = item.getShader().get();
    // A cut solid is open where it is cut; strip meshes are left alone.
    if (!mesh || !item.isTriangles() || !mesh->hasTriangles() || (shader && shader->clippingPlanes().size() > 0)) {
      return false;
    }
    const std::uint64_t id = mesh->getTriangleBufferId();
    for (const auto& [known, answer] : known_) {
      if (known == id) return answer;
    }
    const bool answer = check(*mesh);
    if (known_.size() >= 64) known_.erase(known_.begin());
    known_.emplace_back(id, answer);
    return answer;
  }

private:
  static bool check(const ruGeom::CompactMesh& mesh) {
    const std::uint32_t* t = mesh.getTriangles();
    const std::size_t count = std::size_t(mesh.getNumTriangles());
    std::vector<std::uint64_t> edges;
    edges.reserve(count * 3);
    auto key = [](std::uint32_t from, std::uint32_t to) { return (std::uint64_t(from) << 32) | to; };
    for (std::size_t i = 0; i < count; ++i) {
      for (int k = 0; k < 3; ++k) edges.push_back(key(t[3 * i + k], t[3 * i + (k + 1) % 3]));
    }
    std::sort(edges.begin(), edges.end());
    if (std::adjacent_find(edges.begin(), edges.end()) != edges.end()) return false;
    for (std::uint64_t edge : edges) {
      if (!std::binary_search(edges.begin(), edges.end(), key(std::uint32_t(edge), std::uint32_t(edge >> 32)))) {
        return false;
      }
    }
    return count > 0;
  }

  std::vector<std::pair<std::uint64_t, bool>> known_;
};

int glowPixels(double size) {
  if (!std::isfinite(size)) return 1;
  const double pixels = std::round(size * GlowEditor::pixelsPerUnitSize);
  return static_cast<int>(std::clamp(pixels, 1.0, double(GlowEditor::maxPixels)));
}

// ---------------------------------------------------------------------------------------------
// Pass nodes, owned by the graph once an editor adds them; each owns its shaders. Each binds its
// target first: that also sizes the scratch surfaces to it.

class GroundShadowNode final : public Node {
  void onExecute(PassContext& context) override {
    PassInputs in;
    if (!gatherInputs(*this, in)) return;
    ruGeom::BoundingBox box;
    for (World* world : in.worlds) {
      ruGeom::BoundingBox one;
      world->getBoundingBox(one, [](DrawItem& item) { return !item.isTriangles() || item.getSpace() != SpaceWorld; });
      box.extend(one);
    }
    if (!box.valid()) return;
    const double ground = std::min(0.0, box.getMin().z);
    // Straight down onto the ground: z' = ground. The singular matrix only feeds the mask, whose
    // shader reads no normals.
    ruLinear::AffineMatrix flatten;
    flatten(2, 2) = 0.0;
    flatten(3, 2) = ground;

    ruLinear::Range3d footprint = box.asRange3d();
    footprint.set(ruLinear::Point(footprint.getMin(0), footprint.getMin(1), ground),
                  ruLinear::Point(footprint.getMax(0), footprint.getMax(1), ground));

    auto drawMask = [&](int index, const ruGeom::Camera& camera) {
      if (!context.bindScratch(index, &camera, kZero)) return false;
      ItemPassOptions mask;
      mask.depthTest = ItemPassOptions::DepthTest::Always;
      mask.depthWrite = false;
      mask.overrideShader = &maskShader_;
      mask.worldTransform = &flatten;
      mask.reject = [](DrawItem& item) { return !item.isTriangles(); };
      context.drawItems(in.worlds, camera, mask);
      return true;
    };
    if (!context.bindTarget(in.target, &in.camera)) return;
    // The mask lies on the ground, so it is kept as seen from straight above (as long as the
    // items stay) and each view takes it through the plane's homography: turning the camera
    // draws no item again. A view magnifying it more than twice, or not seeing the whole
    // footprint in front of the eye, draws the mask itself.
    ruGeom::Camera top;
    bool masked = false;
    const ruRen::FBOInfo info = in.target->getFBO().getInfo();
    if (info.width > 0 && info.height > 0 && !info.multisample && lookDown(footprint, info, top)) {
      PassInputs above = in;
      above.camera = top;
      masked = cache_.fill(context, above, &flatten, [&] { return drawMask(3, top); }, 3) &&
               reproject(context, in.camera, top, footprint);
    }
    if (!masked && !drawMask(0, in.camera)) return;
    if (!buildCoarseMask(context, in.camera, coarse_, {&rowBlur_, &shadow_})) return;
    // The blurred passes only where the flattened items can reach.
    ruGeom::Camera near;
    if (!around(in.camera, ruGeom::BoundingBox(footprint), GroundShadowEditor::blurPixels + 2, near)) return;
    if (!context.bindScratch(1, &in.camera, kZero) || !context.bindScratch(1, &near, nullptr)) return;
    rowBlur_.radius = float(GroundShadowEditor::blurPixels);
    context.drawFullSurface(rowBlur_, near);
    if (!context.bindTarget(in.target, &near)) return;
    shadow_.radius = float(GroundShadowEditor::blurPixels);
    shadow_.darkness = GroundShadowEditor::darkness;
    context.drawFullSurface(shadow_, near);
  }
  // A camera straight above the footprint (a rectangle on the ground) showing all of it in a
  // frame of `info`'s size; false when it cannot.
  static bool lookDown(const ruLinear::Range3d& footprint, const ruRen::FBOInfo& info, ruGeom::Camera& out) {
    const double halfX = 0.5 * (footprint.getMax(0) - footprint.getMin(0));
    const double halfY = 0.5 * (footprint.getMax(1) - footprint.getMin(1));
    const double half = 1.1 * std::max({halfX, halfY, 1e-6});
    const double aspect = double(info.width) / info.height;
    const double angle = 0.5;
    const double distance = half / (std::tan(angle / 2) * std::min(1.0, aspect));
    const ruLinear::Point centre(footprint.getMin(0) + halfX, footprint.getMin(1) + halfY, footprint.getMin(2));
    ruGeom::AngleAspect frustum;
    frustum.setAngle(angle);
    frustum.setAspectRatio(aspect);
    frustum.setDepthRange(0.5 * distance, 1.5 * distance);
    out.setViewport(ruGeom::Viewport(0, 0, info.width, info.height));
    out.setFrustum(frustum);
    out.setWorldToEye(centre, centre + ruLinear::Vector(0, 0, distance), ruLinear::Vector(0, 1, 0));
    for (int i = 0; i < 4; ++i) {
      ruLinear::Point2 p;
      if (!out.project(corner(footprint, i), p) || p.x < 0 || p.y < 0 || p.x > info.width || p.y > info.height) return false;
    }
    return true;
  }

  static ruLinear::Point corner(const ruLinear::Range3d& footprint, int i) {
    return ruLinear::Point(i == 1 || i == 2 ? footprint.getMax(0) : footprint.getMin(0),
                           i >= 2 ? footprint.getMax(1) : footprint.getMin(1), footprint.getMin(2));
  }

  // Scratch 0 gets the mask kept in scratch 3 (seen by `kept`) as `camera` sees it.
  bool reproject(PassContext& context, const ruGeom::Camera& camera, const ruGeom::Camera& kept,
                 const ruLinear::Range3d& footprint) {
    ruLinear::Point2 from[4], to[4];
    for (int i = 0; i < 4; ++i) {
      if (!camera.project(corner(footprint, i), from[i]) || !kept.project(corner(footprint, i), to[i])) return false;
    }
    if (area(to) < 1.0 || area(from) > 2.0 * area(to)) return false;
    if (!homography(from, to, reproject_.h)) return false;
    if (!context.bindScratch(0, &camera, kZero)) return false;
    ruGeom::Camera near;
    if (!around(camera, ruGeom::BoundingBox(footprint), 1, near)) return true;  // out of view: no shadow
    if (!context.bindScratch(0, &near, nullptr)) return false;
    context.drawFullSurface(reproject_, near);
    return true;
  }

  const char* onKindName() const override { return "GroundShadowNode"; }

  MaskShader maskShader_;
  MaskCache cache_;
  ReprojectShader reproject_;
  CoarseMaskShader coarse_;
  RowBlurShader rowBlur_;
  ShadowShader shadow_;
};

class GlowNode final : public Node {
public:
  GlowNode(const ruUtil::Color& color, bool outsideOnly, int pixels) {
    glow_.color = color;
    glow_.inside = !outsideOnly;
    glow_.radius = float(pixels);
    rowDistance_.radius = float(pixels);
  }

private:
  void onExecute(PassContext& context) override {
    PassInputs in;
    if (!gatherInputs(*this, in)) return;
    ruGeom::BoundingBox box;
    for (World* world : in.worlds) {
      ruGeom::BoundingBox one;
      world->getBoundingBox(one, [](DrawItem& item) { return item.getSpace() != SpaceWorld; });
      box.extend(one);
    }
    if (!box.valid()) return;  // nothing selected: no work at all
    ruGeom::Camera near;
    if (!around(in.camera, box, int(glow_.radius) + 2, near)) return;
    if (!context.bindTarget(in.target, &in.camera)) return;
    const bool masked = cache_.fill(context, in, nullptr, [&] {
      if (!context.bindScratch(0, &in.camera, kZero)) return false;
      ItemPassOptions mask;
      mask.depthTest = ItemPassOptions::DepthTest::Always;
      mask.depthWrite = false;
      mask.overrideShader = &maskShader_;
      // Closed solids by their triangles facing the eye, the rest whole.
      mask.cullBackFaces = true;
      mask.reject = [this](DrawItem& item) { return !closed_.closed(item); };
      context.drawItems(in.worlds, in.camera, mask);
      mask.cullBackFaces = false;
      mask.reject = [this](DrawItem& item) { return closed_.closed(item); };
      context.drawItems(in.worlds, in.camera, mask);
      return true;
    });
    if (!masked) return;
    if (!buildCoarseMask(context, in.camera, coarse_, {&rowDistance_, &glow_})) return;
    // The distance passes only where the halo can reach.
    if (!context.bindScratch(1, &in.camera, kOne) || !context.bindScratch(1, &near, nullptr)) return;
    context.drawFullSurface(rowDistance_, near);
    if (!context.bindTarget(in.target, &near)) return;
    context.drawFullSurface(glow_, near);
  }
  const char* onKindName() const override { return "GlowNode"; }

  MaskShader maskShader_;
  MaskCache cache_;
  ClosedMeshes closed_;
  CoarseMaskShader coarse_;
  RowDistanceShader rowDistance_;
  GlowShader glow_;
};

class XRayNode final : public Node {
public:
  explicit XRayNode(std::function<bool(DrawItem&)> behind) : behind_(std::move(behind)) {}

private:
  void onExecute(PassContext& context) override {
    PassInputs in;
    if (!gatherInputs(*this, in)) return;
    if (!context.bindTarget(in.target, &in.camera)) return;
    // Hidden parts first, dimmed where the scene is nearer, writing no depth; then the visible
    // parts as usual, which cover the dimmed layer where the item is in front.
    ItemPassOptions hidden;
    hidden.depthTest = ItemPassOptions::DepthTest::Greater;
    hidden.depthWrite = false;
    hidden.tint = ruUtil::Color(1, 1, 1, XRayEditor::hiddenOpacity);
    hidden.reject = [this](DrawItem& item) {
      return item.getDepthInteraction() == DepthFurther || (behind_ && behind_(item));
    };
    context.drawItems(in.worlds, in.camera, hidden);
    ItemPassOptions visible;
    visible.reject = [](DrawItem& item) { return item.getDepthInteraction() == DepthFurther; };
    context.drawItems(in.worlds, in.camera, visible);
    ItemPassOptions onTop;
    onTop.depthTest = ItemPassOptions::DepthTest::Always;
    onTop.reject = [](DrawItem& item) { return item.getDepthInteraction() != DepthFurther; };
    context.drawItems(in.worlds, in.camera, onTop);
  }
  const char* onKindName() const override { return "XRayNode"; }

  std::function<bool(DrawItem&)> behind_;
};

class ScreenSpaceNode final : public Node {
  void onExecute(PassContext& context) override {
    PassInputs in;
    if (!gatherInputs(*this, in)) return;
    if (!context.bindTarget(in.target, &in.camera)) return;
    ItemPassOptions options;
    options.screenSpace = true;
    options.depthTest = ItemPassOptions::DepthTest::Always;
    context.drawItems(in.worlds, in.camera, options);
  }
  const char* onKindName() const override { return "ScreenSpaceNode"; }
};

class BackgroundNode final : public Node {
public:
  explicit BackgroundNode(ru::Reference<Shader> shader) : shader_(std::move(shader)) {}

private:
  void onExecute(PassContext& context) override {
    PassInputs in;
    if (!gatherInputs(*this, in)) return;
    if (!context.bindTarget(in.target, &in.camera)) return;
    // The frame starts here: nothing drawn before may stay in the depth buffer.
    context.clear(kZero, true, true);
    context.drawFullSurface(*shader_, in.camera);
  }
  const char* onKindName() const override { return "BackgroundNode"; }

  ru::Reference<Shader> shader_;
};

}  // namespace

// ---------------------------------------------------------------------------------------------
// Caps

struct KLTCapEditor::Impl {
  ruLinear::Plane plane;
  ruLinear::Range3d range;
  bool visible = true;
  bool positioned = false;
  ru::Reference<CapShader> capShader{new CapShader()};
  MaskShader countShader;  // carries the cap plane as its clipping plane
  ru::Reference<ListWorld> world{new ListWorld(true)};
  ru::Reference<DrawItem> item;

  ~Impl() { clearGeometry(); }

  void clearGeometry() {
    if (item) world->remove(*item);
    item = nullptr;
  }

  // The cap polygon: the plane cut by the range's box, a convex polygon of 3 to 6 corners,
  // ordered around its centre and drawn as a fan.
  void rebuild() {
    clearGeometry();
    countShader.clippingPlanes().clear();
    countShader.clippingPlanes().add(plane);
    if (!positioned || !range.isValid()) return;
    const ruLinear::Point& lo = range.getMin();
    const ruLinear::Point& hi = range.getMax();
    auto corner = [&](int i) {
      return ruLinear::Point((i & 1) ? hi.x : lo.x, (i & 2) ? hi.y : lo.y, (i & 4) ? hi.z : lo.z);
    };
    std::vector<ruLinear::Point> points;
    for (int a = 0; a < 8; ++a) {
      for (int bit = 1; bit < 8; bit <<= 1) {
        if (a & bit) continue;
        const int b = a | bit;
        const double da = plane.signedDistance(corner(a)), db = plane.signedDistance(corner(b));
        if ((da > 0 && db > 0) || (da < 0 && db < 0) || da == db) continue;
        points.push_back(corner(a) + (corner(b) - corner(a)) * (da / (da - db)));
      }
    }
    // Corners lying on the plane come once per edge through them.
    std::vector<ruLinear::Point> unique;
    for (const auto& p : points) {
      bool seen = false;
      for (const auto& q : unique) seen = seen || ruLinear::dot(p - q, p - q) < 1e-20;
      if (!seen) unique.push_back(p);
    }
    if (unique.size() < 3) return;
    ruLinear::Vector centre(0, 0, 0);
    for (const auto& p : unique) centre = centre + p.asVector();
    centre = centre * (1.0 / double(unique.size()));
    const ruLinear::Vector normal = plane.getNormal().asVector();
    const ruLinear::Vector u = normal.orthogonalVector();
    const ruLinear::Vector v = ruLinear::cross(normal, u);
    auto angle = [&](const ruLinear::Point& p) {
      const ruLinear::Vector d = p.asVector() - centre;
      return std::atan2(ruLinear::dot(d, v), ruLinear::dot(d, u));
    };
    std::sort(unique.begin(), unique.end(), [&](const auto& p, const auto& q) { return angle(p) < angle(q); });
    ru::Reference<ruGeom::CompactMesh> mesh(new ruGeom::CompactMesh());
    const int n = static_cast<int>(unique.size());
    mesh->setNumVertices(n);
    ruGeom::MeshVertex* vertices = mesh->editVertices();
    for (int i = 0; i < n; ++i) vertices[i] = ruGeom::MeshVertex(unique[i]);
    mesh->setNumTriangles(n - 2);
    std::uint32_t* triangles = mesh->editTriangles();
    for (int i = 0; i < n - 2; ++i) {
      triangles[3 * i] = 0;
      triangles[3 * i + 1] = std::uint32_t(i + 1);
      triangles[3 * i + 2] = std::uint32_t(i + 2);
    }
    // An item of no database: only the cap pass draws it, and it is never hit-tested.
    DrawContext none(nullptr, -1);
    Draw draw(none, this, true);
    draw.setDebugString("cap");
    draw.setPickable(false);
    draw.setMesh(mesh);
    draw.setShader(capShader);
    item = draw.emit();
    world->add(*item);
  }
};

namespace {

class CapNode final : public Node {
public:
  explicit CapNode(std::shared_ptr<KLTCapEditor::Impl> state) : state_(std::move(state)) {}

private:
  void onExecute(PassContext& context) override {
    KLTCapEditor::Impl& state = *state_;
    if (!state.visible || !state.item) return;
    PassInputs in;
    if (!gatherInputs(*this, in)) return;
    if (!context.bindTarget(in.target, &in.camera)) return;
    // Parity of the surfaces the plane keeps along each pixel's ray, depth ignored: odd where
    // the ray meets the plane inside a closed solid, whichever side of it the eye is on.
    if (!context.bindScratch(0, &in.camera, kZero)) return;
    ItemPassOptions count;
    count.depthTest = ItemPassOptions::DepthTest::Always;
    count.depthWrite = false;
    count.toggleColor = true;
    count.overrideShader = &state.countShader;
    count.reject = [](DrawItem& item) { return !item.isTriangles(); };
    context.drawItems(in.worlds, in.camera, count);
    // The cap where the count is odd, depth-tested: whatever is nearer hides it.
    if (!context.bindTarget(in.target, &in.camera)) return;
    context.drawItems({state.world.get()}, in.camera, ItemPassOptions());
  }
  const char* onKindName() const override { return "CapNode"; }

  std::shared_ptr<KLTCapEditor::Impl> state_;
};

}  // namespace

KLTCapEditor::KLTCapEditor() : impl_(std::make_shared<Impl>()) {}
KLTCapEditor::KLTCapEditor(DrawSystem& system) : system_(&system), impl_(std::make_shared<Impl>()) {}
KLTCapEditor::KLTCapEditor(const KLTCapEditor&) = default;
KLTCapEditor& KLTCapEditor::operator=(const KLTCapEditor&) = default;
KLTCapEditor::~KLTCapEditor() = default;

bool KLTCapEditor::add(RenderTargetNode* target, WorldNode* world, CameraNode* camera, bool caps) {
  const char* function = "voGR::KLTCapEditor::add";
  auto* render = new RenderNode();
  render->setName("RenderTri");
  render->getRasterizerState().enablePolygonOffset(1.0f, 1.0f);
  if (!appendPass(system_, function, target, render, camera, world, true)) return false;
  if (!caps) return true;
  auto* node = new CapNode(impl_);
  node->setName("Caps");
  return appendPass(system_, function, target, node, camera, world, true);
}

// The target is not needed: the passes of this editor share its state. It is taken so the
// surface's calls read the same as the other editors'.
void KLTCapEditor::updateCapPosition(RenderTargetNode*, const ruLinear::Plane& plane, ruLinear::Range3d range) {
  impl_->plane = plane;
  impl_->range = range;
  impl_->positioned = true;
  impl_->rebuild();
}

void KLTCapEditor::updateCapGeom(RenderTargetNode*, bool rebuild) {
  if (rebuild) impl_->rebuild();
  else impl_->clearGeometry();
}

void KLTCapEditor::updateCapVisibility(RenderTargetNode*, bool visible) { impl_->visible = visible; }
void KLTCapEditor::setCapColor(const ruUtil::Color& color) { impl_->capShader->color = color; }
ruUtil::Color KLTCapEditor::getCapColor() const { return impl_->capShader->color; }
bool KLTCapEditor::hasCapGeometry() const { return impl_->item.valid(); }
bool KLTCapEditor::isCapVisible() const { return impl_->visible; }

// ---------------------------------------------------------------------------------------------
// Editors

bool GroundShadowEditor::add(RenderTargetNode* target, WorldNode* world, CameraNode* camera) {
  auto* node = new GroundShadowNode();
  node->setName("GroundShadow");
  return appendPass(system_, "voGR::GroundShadowEditor::add", target, node, camera, world, true);
}

bool GlowEditor::add(RenderTargetNode* target, WorldNode* world, CameraNode* camera, const ruUtil::Color& color,
                     bool outsideOnly, double size) {
  auto* node = new GlowNode(color, outsideOnly, glowPixels(size));
  node->setName("Glow");
  return appendPass(system_, "voGR::GlowEditor::add", target, node, camera, world, true);
}

bool XRayEditor::add(RenderTargetNode* target, WorldNode* world, CameraNode* camera) {
  auto* node = new XRayNode(behind_);
  node->setName("XRay");
  return appendPass(system_, "voGR::XRayEditor::add", target, node, camera, world, true);
}

bool ScreenSpaceEditor::add(RenderTargetNode* target, WorldNode* world, CameraNode* camera) {
  auto* node = new ScreenSpaceNode();
  node->setName("ScreenSpace");
  return appendPass(system_, "voGR::ScreenSpaceEditor::add", target, node, camera, world, true);
}

bool BackgroundEditor::add(RenderTargetNode* target, CameraNode* camera, ru::Reference<Shader> shader) {
  const char* function = "voGR::BackgroundEditor::add";
  if (!shader) {
    voSupport::Debug::getInstance().print(DebugGraphics, function, "no shader; nothing added");
    return false;
  }
  auto* node = new BackgroundNode(std::move(shader));
  node->setName("Background");
  return appendPass(system_, function, target, node, camera, nullptr, false);
}

}  // namespace voGR
