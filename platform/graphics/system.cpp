#include "platform/graphics/draw.h"

#include "platform/graphics/pass.h"
#include "platform/graphics/shader.h"
#include "platform/graphics/system_impl.h"
#include "platform/support/debug.h"

#include <epoxy/egl.h>
#include <epoxy/gl.h>

#include <algorithm>
#include <cmath>
#include <cstdarg>
#include <cstring>
#include <dlfcn.h>

namespace voGR {

namespace {

void report(const char* function, const char* format, ...) __attribute__((format(printf, 2, 3)));
void report(const char* function, const char* format, ...) {
  va_list args;
  va_start(args, format);
  voSupport::Debug::getInstance().printV(DebugGraphics, function, format, args);
  va_end(args);
}

// One EGL display for the process, initialised while some draw system uses it: terminating it
// would destroy the contexts of the others.
struct SharedDisplay {
  std::mutex mutex;
  EGLDisplay display = EGL_NO_DISPLAY;
  int users = 0;
};
SharedDisplay& sharedDisplay() {
  static SharedDisplay* shared = new SharedDisplay();  // never destroyed: used from destructors
  return *shared;
}

EGLDisplay acquireDisplay(ruString::CString& error) {
  SharedDisplay& shared = sharedDisplay();
  std::lock_guard<std::mutex> lock(shared.mutex);
  if (shared.display != EGL_NO_DISPLAY) {
    ++shared.users;
    return shared.display;
  }
  if (!epoxy_has_egl()) {
    error = "no EGL library could be loaded";
    return EGL_NO_DISPLAY;
  }
  const char* extensions = eglQueryString(EGL_NO_DISPLAY, EGL_EXTENSIONS);
  if (!extensions || !std::strstr(extensions, "EGL_MESA_platform_surfaceless") ||
      !std::strstr(extensions, "EGL_EXT_platform_base")) {
    error = "EGL has no surfaceless platform (EGL_MESA_platform_surfaceless)";
    return EGL_NO_DISPLAY;
  }
  EGLDisplay display = eglGetPlatformDisplayEXT(EGL_PLATFORM_SURFACELESS_MESA, EGL_DEFAULT_DISPLAY, nullptr);
  if (display == EGL_NO_DISPLAY) {
    error = "eglGetPlatformDisplayEXT gave no surfaceless display";
    return EGL_NO_DISPLAY;
  }
  EGLint major = 0, minor = 0;
  if (!eglInitialize(display, &major, &minor)) {
    error = ruString::CString::format("eglInitialize failed (0x%x)", eglGetError());
    return EGL_NO_DISPLAY;
  }
  shared.display = display;
  shared.users = 1;
  return display;
}

// The display stays initialised once made: terminating it unloads the driver (and its LLVM),
// which leaks what those libraries allocated when loaded, at every cycle. Mesa frees it at exit.
void releaseDisplay() {
  SharedDisplay& shared = sharedDisplay();
  std::lock_guard<std::mutex> lock(shared.mutex);
  if (shared.users > 0) --shared.users;
}

bool finite(const ruLinear::AffineMatrix& m) {
  for (int r = 0; r < 4; ++r) {
    for (int c = 0; c < 3; ++c) {
      if (!std::isfinite(m(r, c))) return false;
    }
  }
  return true;
}

// Row-vector affine matrix as the 16 floats GLSL reads as the same transform (column vectors).
void toGL(const ruLinear::AffineMatrix& m, float out[16]) {
  for (int r = 0; r < 4; ++r) {
    for (int c = 0; c < 3; ++c) out[4 * r + c] = static_cast<float>(m(r, c));
    out[4 * r + 3] = r == 3 ? 1.0f : 0.0f;
  }
}

void toGL(const ruLinear::ProjMatrix& m, float out[16]) {
  for (int r = 0; r < 4; ++r) {
    for (int c = 0; c < 4; ++c) out[4 * r + c] = static_cast<float>(m(r, c));
  }
}

// The matrix GLSL needs for normals, column-major: the inverse of the linear part (row vectors
// transform normals by the inverse transpose, which for GLSL's column vectors is this).
void normalMatrix(const ruLinear::AffineMatrix& m, float out[9]) {
  const ruLinear::AffineMatrix inverse = m.linearPart().inverse();
  for (int r = 0; r < 3; ++r) {
    for (int c = 0; c < 3; ++c) out[3 * c + r] = static_cast<float>(inverse(r, c));
  }
}

extern const char* const kVertexSource;
extern const char* const kLineGeometrySource;
extern const char* const kFragmentPrelude;
extern const char* const kDefaultFragment;

const char* const kVertexSource = R"(
layout(location = 0) in vec3 aPosition;
layout(location = 1) in vec3 aNormal;
layout(location = 2) in vec2 aUV;
layout(location = 3) in vec4 aColor;
layout(location = 4) in float aExtra;
uniform mat4 uModel;
uniform mat3 uNormalMatrix;
uniform mat4 uModelViewProjection;  // model then view and projection, composed on the CPU
uniform vec4 uClipPlanes[8];
uniform int uNumClipPlanes;
#ifdef LINES
// The geometry stage reads these and writes the v names the fragment stage reads.
#define vWorldPos lWorldPos
#define vNormal lNormal
#define vUV lUV
#define vColor lColor
#define vExtra lExtra
#endif
out vec3 vWorldPos;
out vec3 vNormal;
out vec2 vUV;
out vec4 vColor;
out float vExtra;
#ifdef CLIPPING
out float gl_ClipDistance[8];
#endif
void main() {
  vec4 world = uModel * vec4(aPosition, 1.0);
  vWorldPos = world.xyz;
  vNormal = uNormalMatrix * aNormal;
  vUV = aUV;
  vColor = aColor;
  vExtra = aExtra;
#ifdef CLIPPING
  for (int i = 0; i < 8; ++i) gl_ClipDistance[i] = i < uNumClipPlanes ? dot(uClipPlanes[i], vec4(world.xyz, 1.0)) : 1.0;
#endif
  gl_Position = uModelViewProjection * vec4(aPosition, 1.0);
}
)";

// Lines become quads of the asked width in pixels, which core profiles do not offer otherwise.
const char* const kLineGeometrySource = R"(
layout(lines) in;
layout(triangle_strip, max_vertices = 4) out;
in vec3 lWorldPos[];
in vec3 lNormal[];
in vec2 lUV[];
in vec4 lColor[];
in float lExtra[];
out vec3 vWorldPos;
out vec3 vNormal;
out vec2 vUV;
out vec4 vColor;
out float vExtra;
out float vLinePos;
#ifdef CLIPPING
out float gl_ClipDistance[8];
#endif
uniform vec4 uViewport;
uniform float uLineWidth;
uniform vec4 uClipPlanes[8];
uniform int uNumClipPlanes;
void corner(int i, vec4 position, float along) {
  vWorldPos = lWorldPos[i];
  vNormal = lNormal[i];
  vUV = lUV[i];
  vColor = lColor[i];
  vExtra = lExtra[i];
  vLinePos = along;
#ifdef CLIPPING
  for (int k = 0; k < 8; ++k) gl_ClipDistance[k] = k < uNumClipPlanes ? dot(uClipPlanes[k], vec4(lWorldPos[i], 1.0)) : 1.0;
#endif
  gl_Position = position;
  EmitVertex();
}
void main() {
  vec4 p0 = gl_in[0].gl_Position;
  vec4 p1 = gl_in[1].gl_Position;
  const float nearW = 1e-5;
  if (p0.w < nearW && p1.w < nearW) return;
  if (p0.w < nearW) p0 = mix(p0, p1, (nearW - p0.w) / (p1.w - p0.w));
  if (p1.w < nearW) p1 = mix(p1, p0, (nearW - p1.w) / (p0.w - p1.w));
  vec2 halfSize = 0.5 * uViewport.zw;
  vec2 s0 = p0.xy / p0.w * halfSize;
  vec2 s1 = p1.xy / p1.w * halfSize;
  vec2 d = s1 - s0;
  float len = length(d);
  vec2 dir = len > 1e-6 ? d / len : vec2(1.0, 0.0);
  vec2 offset = vec2(-dir.y, dir.x) * (0.5 * uLineWidth) / halfSize;
  corner(0, vec4(p0.xy + offset * p0.w, p0.zw), 0.0);
  corner(0, vec4(p0.xy - offset * p0.w, p0.zw), 0.0);
  corner(1, vec4(p1.xy + offset * p1.w, p1.zw), len);
  corner(1, vec4(p1.xy - offset * p1.w, p1.zw), len);
  EndPrimitive();
}
)";

const char* const kFragmentPrelude = R"(
in vec3 vWorldPos;
in vec3 vNormal;
in vec2 vUV;
in vec4 vColor;
in float vExtra;
#ifdef LINES
in float vLinePos;
#else
const float vLinePos = 0.0;
#endif
uniform vec4 uItemColor;
uniform vec3 uLightDirection;
uniform vec4 uViewport;
out vec4 fragColor;
vec3 flatNormal() {
  vec3 n = cross(dFdx(vWorldPos), dFdy(vWorldPos));
  float l = length(n);
  return l > 0.0 ? n / l : uLightDirection;
}
vec3 surfaceNormal() {
#ifdef HAS_NORMALS
  float l = length(vNormal);
  vec3 n = l > 0.0 ? vNormal / l : uLightDirection;
#else
  vec3 n = flatNormal();
#endif
  return dot(n, uLightDirection) < 0.0 ? -n : n;
}
float lambert() { return 0.25 + 0.75 * abs(dot(surfaceNormal(), uLightDirection)); }
vec4 shade();
void main() { fragColor = shade(); }
)";

const char* const kDefaultFragment = R"(
uniform bool uHasTexture;
uniform sampler2D uTexture;
vec4 shade() {
  vec4 c = uItemColor;
  if (uHasTexture) c *= texture(uTexture, vUV);
  return c;
}
)";

// The largest of `count` indices. Cloned for AVX2, since the baseline x86-64 instruction set has
// no unsigned 32-bit maximum to vectorise with.
__attribute__((target_clones("avx2", "default"))) std::uint32_t largestIndex(const std::uint32_t* values,
                                                                           std::size_t count) {
  std::uint32_t largest = 0;
  for (std::size_t i = 0; i < count; ++i) largest = values[i] > largest ? values[i] : largest;
  return largest;
}

GLuint compile(GLenum stage, const char* const* sources, int count, ruString::CString& error) {
  GLuint shader = glCreateShader(stage);
  glShaderSource(shader, count, sources, nullptr);
  glCompileShader(shader);
  GLint ok = 0;
  glGetShaderiv(shader, GL_COMPILE_STATUS, &ok);
  if (!ok) {
    char log[2048] = {0};
    glGetShaderInfoLog(shader, sizeof log, nullptr, log);
    error = log;
    glDeleteShader(shader);
    return 0;
  }
  return shader;
}

}  // namespace

// ---------------------------------------------------------------------------------------------
// Frame buffers

}  // namespace voGR

namespace ruRen {

FBOResource::FBOResource(const FBOInfo& i, std::shared_ptr<voGR::FboRegistry> r) : info(i), registry(std::move(r)) {
  std::lock_guard<std::mutex> lock(registry->mutex);
  registry->live.insert(this);
}

FBOResource::~FBOResource() {
  std::lock_guard<std::mutex> lock(registry->mutex);
  registry->live.erase(this);
  if (!registry->alive) return;
  for (GLuint f : {framebuffer, resolveFramebuffer}) {
    if (f) registry->deadFramebuffers.push_back(f);
  }
  if (resolveTexture) registry->deadTextures.push_back(resolveTexture);
  if (color) (multisampled ? registry->deadRenderbuffers : registry->deadTextures).push_back(color);
  if (depth) registry->deadRenderbuffers.push_back(depth);
}

void FBOResource::releaseNow() {
  if (framebuffer) glDeleteFramebuffers(1, &framebuffer);
  if (resolveFramebuffer) glDeleteFramebuffers(1, &resolveFramebuffer);
  if (resolveTexture) glDeleteTextures(1, &resolveTexture);
  if (color) {
    if (multisampled) glDeleteRenderbuffers(1, &color);
    else glDeleteTextures(1, &color);
  }
  if (depth) glDeleteRenderbuffers(1, &depth);
  framebuffer = resolveFramebuffer = resolveTexture = color = depth = 0;
}

FBOKey::FBOKey() = default;
FBOKey::FBOKey(ru::Reference<FBOResource> resource) : resource_(std::move(resource)) {}
FBOKey::FBOKey(const FBOKey&) = default;
FBOKey& FBOKey::operator=(const FBOKey&) = default;
FBOKey::~FBOKey() = default;

FBOInfo FBOKey::getInfo() const noexcept { return resource_ ? resource_->info : FBOInfo(); }

bool FBOKey::lock() const {
  if (!resource_) return false;
  ++resource_->locks;
  return true;
}

void FBOKey::unlock() const {
  if (resource_ && resource_->locks > 0) --resource_->locks;
}

bool FBOKey::isLocked() const noexcept { return resource_ && resource_->locks > 0; }

DeviceContext::~DeviceContext() = default;

}  // namespace ruRen

namespace voGR {

namespace {

// Makes the GPU objects of a frame buffer on first use.
bool ensureFramebuffer(ruRen::FBOResource& fbo) {
  if (fbo.framebuffer) return true;
  const ruRen::FBOInfo& info = fbo.info;
  glGenFramebuffers(1, &fbo.framebuffer);
  glBindFramebuffer(GL_FRAMEBUFFER, fbo.framebuffer);
  GLint samples = 0;
  if (info.multisample) {
    glGetIntegerv(GL_MAX_SAMPLES, &samples);
    samples = std::min(samples, 4);
  }
  fbo.multisampled = samples > 1;
  if (samples > 1) {
    glGenRenderbuffers(1, &fbo.color);
    glBindRenderbuffer(GL_RENDERBUFFER, fbo.color);
    glRenderbufferStorageMultisample(GL_RENDERBUFFER, samples, GL_RGBA8, info.width, info.height);
    glFramebufferRenderbuffer(GL_FRAMEBUFFER, GL_COLOR_ATTACHMENT0, GL_RENDERBUFFER, fbo.color);
  } else {
    glGenTextures(1, &fbo.color);
    glBindTexture(GL_TEXTURE_2D, fbo.color);
    glTexImage2D(GL_TEXTURE_2D, 0, GL_RGBA8, info.width, info.height, 0, GL_RGBA, GL_UNSIGNED_BYTE, nullptr);
    glTexParameteri(GL_TEXTURE_2D, GL_TEXTURE_MIN_FILTER, GL_NEAREST);
    glTexParameteri(GL_TEXTURE_2D, GL_TEXTURE_MAG_FILTER, GL_NEAREST);
    glFramebufferTexture2D(GL_FRAMEBUFFER, GL_COLOR_ATTACHMENT0, GL_TEXTURE_2D, fbo.color, 0);
  }
  if (info.depth || info.stencil) {
    const GLenum format = info.stencil ? GL_DEPTH24_STENCIL8 : GL_DEPTH_COMPONENT24;
    const GLenum attachment = info.stencil ? GL_DEPTH_STENCIL_ATTACHMENT : GL_DEPTH_ATTACHMENT;
    glGenRenderbuffers(1, &fbo.depth);
    glBindRenderbuffer(GL_RENDERBUFFER, fbo.depth);
    if (samples > 1) glRenderbufferStorageMultisample(GL_RENDERBUFFER, samples, format, info.width, info.height);
    else glRenderbufferStorage(GL_RENDERBUFFER, format, info.width, info.height);
    glFramebufferRenderbuffer(GL_FRAMEBUFFER, attachment, GL_RENDERBUFFER, fbo.depth);
  }
  if (glCheckFramebufferStatus(GL_FRAMEBUFFER) != GL_FRAMEBUFFER_COMPLETE) {
    report("voGR::ensureFramebuffer", "frame buffer incomplete");
    fbo.releaseNow();
    return false;
  }
  return true;
}

// The triangles of a mesh that only has strips, as a list, cached by the strip buffer.
GpuBuffer* stripTriangles(DrawSystem::Impl& impl, const ruGeom::CompactMesh& mesh, std::uint64_t vertexId,
                          const ruGeom::detail::BufferStorageBase* vertexStorage) {
  const std::uint64_t id = mesh.getStripBufferId();
  auto found = impl.buffers.find(id);
  if (found != impl.buffers.end()) return &found->second;
  std::vector<std::uint32_t> list;
  const std::uint32_t* indices = mesh.getStripIndices();
  std::size_t start = 0;
  for (int s = 0; s < mesh.getNumStrips(); ++s) {
    const std::uint32_t length = mesh.getStripLength(s);
    for (std::uint32_t k = 0; k + 2 < length; ++k) {
      std::uint32_t a = indices[start + k], b = indices[start + k + 1];
      if (k % 2) std::swap(a, b);
      list.insert(list.end(), {a, b, indices[start + k + 2]});
    }
    start += length;
  }
  return impl.buffer(id, GL_ELEMENT_ARRAY_BUFFER, list.data(), list.size() * 4, vertexId, vertexStorage, true, list.size());
}

struct ItemBuffers {
  GpuBuffer *indices = nullptr, *positions = nullptr, *normals = nullptr, *uvs = nullptr, *colors = nullptr,
            *extra = nullptr;
  GLenum mode = GL_TRIANGLES;
};

// The GPU buffers of an item, uploaded when missing. False, with a message, for an item that
// must draw nothing: no mesh, an empty one, no primitives of its kind, indices out of range.
bool itemBuffers(DrawSystem::Impl& impl, const DrawItem& item, const Shader* shader, ItemBuffers& b) {
  const char* function = "voGR::RenderNode::drawItem";
  auto* geometry = dynamic_cast<MeshGeometry*>(item.getGeometry());
  if (!geometry) return false;
  const ruGeom::CompactMesh* mesh = geometry->getMesh().get();
  const int numVertices = mesh ? mesh->getNumVertices() : 0;
  if (numVertices == 0) {
    report(function, "item \"%s\" has an empty mesh; nothing drawn", item.getDebugString().c_str());
    return false;
  }
  // The index list: triangles (from the strips when the mesh only has those) or lines.
  const std::uint64_t vertexId = mesh->getVertexBufferId();
  const auto* vertexStorage = mesh->vertexBuffer().storage();
  if (geometry->isTriangles()) {
    if (mesh->hasTriangles()) {
      b.indices = impl.buffer(mesh->getTriangleBufferId(), GL_ELEMENT_ARRAY_BUFFER, mesh->getTriangles(),
                              std::size_t(mesh->getNumTriangles()) * 3 * 4, 0, mesh->triangleBuffer().storage(), true,
                              std::size_t(mesh->getNumTriangles()) * 3);
    } else if (mesh->hasStrips()) {
      b.indices = stripTriangles(impl, *mesh, vertexId, vertexStorage);
    }
  } else if (mesh->hasLines()) {
    b.mode = GL_LINES;
    b.indices = impl.buffer(mesh->getLineBufferId(), GL_ELEMENT_ARRAY_BUFFER, mesh->getLines(),
                            std::size_t(mesh->getNumLines()) * 2 * 4, vertexId, vertexStorage, true,
                            std::size_t(mesh->getNumLines()) * 2);
  }
  if (!b.indices || b.indices->count == 0) {
    report(function, "item \"%s\" has no primitives of its kind; nothing drawn", item.getDebugString().c_str());
    return false;
  }
  if (b.indices->maxIndex >= static_cast<std::uint32_t>(numVertices)) {
    report(function, "item \"%s\" has vertex indices out of range; nothing drawn", item.getDebugString().c_str());
    return false;
  }
  b.positions = impl.buffer(vertexId, GL_ARRAY_BUFFER, mesh->getVertices(), std::size_t(numVertices) * 12, 0,
                            vertexStorage, false, 0);
  if (mesh->hasNormals() && b.mode == GL_TRIANGLES) {
    b.normals = impl.buffer(mesh->getNormalBufferId(), GL_ARRAY_BUFFER, mesh->getNormals(), std::size_t(numVertices) * 12,
                            vertexId, vertexStorage, false, 0);
  }
  if (mesh->hasTextureCoordinates()) {
    b.uvs = impl.buffer(mesh->getTextureCoordinateBufferId(), GL_ARRAY_BUFFER, mesh->getTextureCoordinates(),
                        std::size_t(numVertices) * 8, vertexId, vertexStorage, false, 0);
  }
  if (mesh->hasColors()) {
    b.colors = impl.buffer(mesh->getColorBufferId(), GL_ARRAY_BUFFER, mesh->getColors(), std::size_t(numVertices) * 16,
                           vertexId, vertexStorage, false, 0);
  }
  if (const char* name = shader ? shader->getExtraAttribute() : nullptr) {
    for (int i = 0; i < mesh->getNumAttributes(); ++i) {
      const ruGeom::MeshAttributeEntry& entry = mesh->getAttributeEntry(i);
      if (entry.name == name && entry.width == 1 && entry.values.size() >= std::size_t(numVertices)) {
        b.extra = impl.buffer(entry.values.id(), GL_ARRAY_BUFFER, entry.values.data(), std::size_t(numVertices) * 4, 0,
                              entry.values.storage(), false, 0);
      }
    }
  }
  return b.positions != nullptr;
}

class DeviceContextImpl final : public ruRen::DeviceContext {
public:
  explicit DeviceContextImpl(DrawSystem::Impl& system) : system_(system) {}

private:
  bool onReadColorBuffer(const ruRen::FBOKey& key, int x, int y, int width, int height,
                         ruImage::TypedImage<ruImage::Byte4>& image) override {
    const char* function = "ruRen::DeviceContext::readColorBuffer";
    image.setSize(0, 0);
    ruRen::FBOResource* fbo = key.get();
    if (!fbo || fbo->registry != system_.fbos) {
      report(function, "invalid frame-buffer key, or one of another draw system");
      return false;
    }
    if (width < 1 || height < 1 || x < 0 || y < 0 || x + width > fbo->info.width || y + height > fbo->info.height) {
      report(function, "rectangle empty or outside the frame buffer");
      return false;
    }
    if (!fbo->framebuffer || !fbo->drawn) {
      report(function, "the frame buffer was never drawn");
      return false;
    }
    if (!system_.makeCurrent()) return false;
    GLuint source = fbo->framebuffer;
    if (fbo->multisampled) {
      if (!fbo->resolveFramebuffer) {
        glGenFramebuffers(1, &fbo->resolveFramebuffer);
        glGenTextures(1, &fbo->resolveTexture);
        glBindTexture(GL_TEXTURE_2D, fbo->resolveTexture);
        glTexImage2D(GL_TEXTURE_2D, 0, GL_RGBA8, fbo->info.width, fbo->info.height, 0, GL_RGBA, GL_UNSIGNED_BYTE, nullptr);
        glBindFramebuffer(GL_FRAMEBUFFER, fbo->resolveFramebuffer);
        glFramebufferTexture2D(GL_FRAMEBUFFER, GL_COLOR_ATTACHMENT0, GL_TEXTURE_2D, fbo->resolveTexture, 0);
      }
      glBindFramebuffer(GL_READ_FRAMEBUFFER, fbo->framebuffer);
      glBindFramebuffer(GL_DRAW_FRAMEBUFFER, fbo->resolveFramebuffer);
      glBlitFramebuffer(0, 0, fbo->info.width, fbo->info.height, 0, 0, fbo->info.width, fbo->info.height,
                        GL_COLOR_BUFFER_BIT, GL_NEAREST);
      source = fbo->resolveFramebuffer;
    }
    image.setSize(width, height);
    glBindFramebuffer(GL_READ_FRAMEBUFFER, source);
    glReadBuffer(GL_COLOR_ATTACHMENT0);
    glPixelStorei(GL_PACK_ALIGNMENT, 1);
    glReadPixels(x, y, width, height, GL_RGBA, GL_UNSIGNED_BYTE, image.pixels());
    glBindFramebuffer(GL_FRAMEBUFFER, 0);
    return true;
  }

  DrawSystem::Impl& system_;
};

// The uniforms a shader sets, on the program being drawn with.
class UniformsImpl final : public ShaderUniforms {
public:
  UniformsImpl(DrawSystem::Impl& system, Program& program) : system_(system), program_(program) {}
  void setFloat(const char* name, float value) override { glUniform1f(program_.location(name), value); }
  void setBool(const char* name, bool value) override { glUniform1i(program_.location(name), value ? 1 : 0); }
  void setVector3(const char* name, float x, float y, float z) override { glUniform3f(program_.location(name), x, y, z); }
  void setColor(const char* name, const ruUtil::Color& c) override {
    glUniform4f(program_.location(name), c.r, c.g, c.b, c.a);
  }
  bool setTexture(const char* name, const voRES::ImageKey& key, bool repeat) override {
    GLuint texture = system_.texture(key);
    if (!texture) return false;
    glActiveTexture(GL_TEXTURE0 + unit_);
    glBindTexture(GL_TEXTURE_2D, texture);
    const GLint wrap = repeat ? GL_REPEAT : GL_CLAMP_TO_EDGE;
    glTexParameteri(GL_TEXTURE_2D, GL_TEXTURE_WRAP_S, wrap);
    glTexParameteri(GL_TEXTURE_2D, GL_TEXTURE_WRAP_T, wrap);
    glUniform1i(program_.location(name), unit_);
    ++unit_;
    return true;
  }

private:
  DrawSystem::Impl& system_;
  Program& program_;
  int unit_ = 0;
};

// The renderer behind the passes of one draw.
class PassContextImpl final : public PassContext {
public:
  PassContextImpl(DrawSystem& system) : system_(system), impl_(system.impl()) {}
  DrawSystem& getDrawSystem() override { return system_; }

  bool bindTarget(RenderTargetNode* state, const ruGeom::Camera* camera) override {
    const char* function = "voGR::PassContext::bindTarget";
    if (!state) {
      report(function, "the pass feeds no render target; nothing drawn");
      return false;
    }
    ruRen::FBOKey key = state->getFBO();
    int width = 0, height = 0;
    if (!key.valid()) {
      if (impl_.ownsContext) {
        report(function, "target \"%s\" has no frame buffer and an off-screen draw system has no window; nothing drawn",
               state->getName().c_str());
        return false;
      }
      glBindFramebuffer(GL_FRAMEBUFFER, 0);
      GLint viewport[4] = {0, 0, 0, 0};
      glGetIntegerv(GL_VIEWPORT, viewport);
      width = viewport[2];
      height = viewport[3];
    } else {
      ruRen::FBOResource* fbo = key.get();
      if (fbo->registry != impl_.fbos) {
        report(function, "target \"%s\" has a frame-buffer key of another draw system; nothing drawn",
               state->getName().c_str());
        return false;
      }
      if (!ensureFramebuffer(*fbo)) return false;
      glBindFramebuffer(GL_FRAMEBUFFER, fbo->framebuffer);
      fbo->drawn = true;
      width = fbo->info.width;
      height = fbo->info.height;
    }
    if (camera) {
      const ruGeom::Viewport& v = camera->getViewport();
      glViewport(static_cast<GLint>(v.x), static_cast<GLint>(v.y), static_cast<GLsizei>(v.width),
                 static_cast<GLsizei>(v.height));
    } else if (key.valid()) {
      glViewport(0, 0, width, height);
    }
    targetWidth_ = width;
    targetHeight_ = height;
    return true;
  }

  bool bindScratch(int index, const ruGeom::Camera* camera, const float* clearColor) override {
    if (index < 0 || index >= maxScratch || targetWidth_ < 1 || targetHeight_ < 1) {
      report("voGR::PassContext::bindScratch", "scratch %d: no such surface, or no target bound yet", index);
      return false;
    }
    DrawSystem::Impl::Scratch& s = impl_.scratch[index];
    if (s.width != targetWidth_ || s.height != targetHeight_ || !s.framebuffer) {
      if (!s.framebuffer) {
        glGenFramebuffers(1, &s.framebuffer);
        glGenTextures(1, &s.color);
        glGenRenderbuffers(1, &s.depth);
      }
      glBindTexture(GL_TEXTURE_2D, s.color);
      glTexImage2D(GL_TEXTURE_2D, 0, GL_RGBA8, targetWidth_, targetHeight_, 0, GL_RGBA, GL_UNSIGNED_BYTE, nullptr);
      glTexParameteri(GL_TEXTURE_2D, GL_TEXTURE_MIN_FILTER, GL_NEAREST);
      glTexParameteri(GL_TEXTURE_2D, GL_TEXTURE_MAG_FILTER, GL_NEAREST);
      glTexParameteri(GL_TEXTURE_2D, GL_TEXTURE_WRAP_S, GL_CLAMP_TO_EDGE);
      glTexParameteri(GL_TEXTURE_2D, GL_TEXTURE_WRAP_T, GL_CLAMP_TO_EDGE);
      glBindRenderbuffer(GL_RENDERBUFFER, s.depth);
      glRenderbufferStorage(GL_RENDERBUFFER, GL_DEPTH_COMPONENT24, targetWidth_, targetHeight_);
      glBindFramebuffer(GL_FRAMEBUFFER, s.framebuffer);
      glFramebufferTexture2D(GL_FRAMEBUFFER, GL_COLOR_ATTACHMENT0, GL_TEXTURE_2D, s.color, 0);
      glFramebufferRenderbuffer(GL_FRAMEBUFFER, GL_DEPTH_ATTACHMENT, GL_RENDERBUFFER, s.depth);
      s.width = targetWidth_;
      s.height = targetHeight_;
    }
    glBindFramebuffer(GL_FRAMEBUFFER, s.framebuffer);
    if (camera) {
      const ruGeom::Viewport& v = camera->getViewport();
      glViewport(static_cast<GLint>(v.x), static_cast<GLint>(v.y), static_cast<GLsizei>(v.width),
                 static_cast<GLsizei>(v.height));
    } else {
      glViewport(0, 0, s.width, s.height);
    }
    if (clearColor) clear(clearColor, true, true);
    return true;
  }

  bool copyScratch(int index, const ruRen::FBOKey& key, bool toKey) override {
    const char* function = "voGR::PassContext::copyScratch";
    ruRen::FBOResource* fbo = key.get();
    if (index < 0 || index >= maxScratch || !impl_.scratch[index].framebuffer || !fbo || fbo->registry != impl_.fbos ||
        fbo->info.multisample || fbo->info.width != impl_.scratch[index].width ||
        fbo->info.height != impl_.scratch[index].height) {
      report(function, "scratch %d and the frame buffer do not match; nothing copied", index);
      return false;
    }
    if (!ensureFramebuffer(*fbo)) return false;
    const GLuint scratch = impl_.scratch[index].framebuffer;
    glBindFramebuffer(GL_READ_FRAMEBUFFER, toKey ? scratch : fbo->framebuffer);
    glBindFramebuffer(GL_DRAW_FRAMEBUFFER, toKey ? fbo->framebuffer : scratch);
    glBlitFramebuffer(0, 0, fbo->info.width, fbo->info.height, 0, 0, fbo->info.width, fbo->info.height,
                      GL_COLOR_BUFFER_BIT, GL_NEAREST);
    glBindFramebuffer(GL_FRAMEBUFFER, 0);
    if (toKey) fbo->drawn = true;
    return true;
  }

  void clear(const float rgba[4], bool color, bool depth) override {
    glClearColor(rgba[0], rgba[1], rgba[2], rgba[3]);
    glClearDepth(1.0);
    glDepthMask(GL_TRUE);
    glColorMask(GL_TRUE, GL_TRUE, GL_TRUE, GL_TRUE);
    glClear((color ? GL_COLOR_BUFFER_BIT : 0) | (depth ? GL_DEPTH_BUFFER_BIT : 0));
  }

  void drawItems(const std::vector<World*>& worlds, const ruGeom::Camera& camera, const ItemPassOptions& options) override {
    // Each item once, opaque first; transparent ones after, farthest first, blended.
    seen_.clear();
    opaque_.clear();
    transparent_.clear();
    for (World* world : worlds) {
      if (!world) continue;
      world->forEach([&](DrawItem& item) {
        if (!item.isDrawable() || !item.getGeometry()) return;
        if ((item.getSpace() == SpaceScreen) != options.screenSpace) return;
        if (!seen_.insert(&item).second) return;
        if (options.reject && options.reject(item)) return;
        const Shader* shader = options.overrideShader ? options.overrideShader : item.getShader().get();
        const bool transparent = shader ? shader->isTransparent() : item.getColor().a < 1.0f;
        // Toggled colour is never blended: every item goes the opaque way.
        (!options.toggleColor && (transparent || options.tint.a < 1.0f) ? transparent_ : opaque_).push_back(&item);
      });
    }
    if (opaque_.empty() && transparent_.empty()) return;

    glBindVertexArray(impl_.vertexArray);
    bindScratchTextures();
    setDepth(options);
    if (options.rasterizer.hasPolygonOffset()) {
      glEnable(GL_POLYGON_OFFSET_FILL);
      glPolygonOffset(options.rasterizer.getPolygonOffsetFactor(), options.rasterizer.getPolygonOffsetUnits());
    } else {
      glDisable(GL_POLYGON_OFFSET_FILL);
    }
    if (options.cullBackFaces) {
      glEnable(GL_CULL_FACE);
      glCullFace(GL_BACK);
    } else {
      glDisable(GL_CULL_FACE);
    }
    glDisable(GL_BLEND);
    if (options.toggleColor) {
      glEnable(GL_COLOR_LOGIC_OP);
      glLogicOp(GL_XOR);
    }

    ruLinear::ProjMatrix viewProjection;
    const ruGeom::Viewport& v = camera.getViewport();
    if (options.screenSpace) {
      // Viewport pixels, origin at the viewport's lower left.
      ruLinear::ProjMatrix pixels;
      pixels(0, 0) = 2.0 / std::max(1.0, v.width);
      pixels(1, 1) = 2.0 / std::max(1.0, v.height);
      pixels(2, 2) = 0.0;
      pixels(3, 0) = -1.0;
      pixels(3, 1) = -1.0;
      viewProjection = pixels;
    } else {
      viewProjection = ruLinear::ProjMatrix(camera.getWorldToEye()) * camera.getProjection();
    }
    frame_ = Frame{camera, viewProjection, options};

    for (DrawItem* item : opaque_) drawItem(*item);
    if (!transparent_.empty()) {
      std::vector<std::pair<double, DrawItem*>> sorted;
      sorted.reserve(transparent_.size());
      for (DrawItem* item : transparent_) {
        const ruGeom::BoundingBox box = item->getWorldBoundingBox();
        sorted.emplace_back(box.valid() ? camera.screenDepthAtPoint(box.getCenter()) : 0.0, item);
      }
      std::stable_sort(sorted.begin(), sorted.end(), [](const auto& a, const auto& b) { return a.first > b.first; });
      glEnable(GL_BLEND);
      glBlendFuncSeparate(GL_SRC_ALPHA, GL_ONE_MINUS_SRC_ALPHA, GL_ONE, GL_ONE_MINUS_SRC_ALPHA);
      glDepthMask(GL_FALSE);
      for (auto& entry : sorted) drawItem(*entry.second);
      glDisable(GL_BLEND);
      glDepthMask(GL_TRUE);
    }
    glDisable(GL_POLYGON_OFFSET_FILL);
    glDisable(GL_COLOR_LOGIC_OP);
    glDisable(GL_CULL_FACE);
    for (int i = 0; i < enabledClipPlanes_; ++i) glDisable(GL_CLIP_DISTANCE0 + i);
    enabledClipPlanes_ = 0;
  }

  void drawFullSurface(const Shader& shader, const ruGeom::Camera& camera) override {
    Program* program = impl_.program(shader.getFragmentSource(), 0);
    if (!program) return;
    glBindVertexArray(impl_.vertexArray);
    bindScratchTextures();
    glDisable(GL_DEPTH_TEST);
    glDepthMask(GL_FALSE);
    if (shader.isTransparent()) {
      glEnable(GL_BLEND);
      glBlendFuncSeparate(GL_SRC_ALPHA, GL_ONE_MINUS_SRC_ALPHA, GL_ONE, GL_ONE_MINUS_SRC_ALPHA);
    }
    glUseProgram(program->name);
    const float identity[16] = {1, 0, 0, 0, 0, 1, 0, 0, 0, 0, 1, 0, 0, 0, 0, 1};
    const float identity3[9] = {1, 0, 0, 0, 1, 0, 0, 0, 1};
    glUniformMatrix4fv(program->model, 1, GL_FALSE, identity);
    glUniformMatrix4fv(program->viewProjection, 1, GL_FALSE, identity);
    glUniformMatrix3fv(program->normalMatrix, 1, GL_FALSE, identity3);
    glUniform1i(program->numClipPlanes, 0);
    const ruGeom::Viewport& v = camera.getViewport();
    glUniform4f(program->viewport, float(v.x), float(v.y), float(v.width), float(v.height));
    glUniform3f(program->lightDirection, 0, 0, 1);
    UniformsImpl uniforms(impl_, *program);
    shader.bind(uniforms);
    glBindBuffer(GL_ARRAY_BUFFER, impl_.quadBuffer);
    glVertexAttribPointer(0, 3, GL_FLOAT, GL_FALSE, 0, nullptr);
    glEnableVertexAttribArray(0);
    for (GLuint a = 1; a < 5; ++a) glDisableVertexAttribArray(a);
    glDrawArrays(GL_TRIANGLE_STRIP, 0, 4);
    glDisable(GL_BLEND);
    glDepthMask(GL_TRUE);
    glEnable(GL_DEPTH_TEST);
  }

private:
  struct Frame {
    ruGeom::Camera camera;
    ruLinear::ProjMatrix viewProjection;
    ItemPassOptions options;
  };

  // Scratch colour textures on their units, for shaders that read them.
  void bindScratchTextures() {
    for (int i = 0; i < maxScratch; ++i) {
      if (!impl_.scratch[i].color) continue;
      glActiveTexture(GL_TEXTURE0 + DrawSystem::Impl::scratchUnit + i);
      glBindTexture(GL_TEXTURE_2D, impl_.scratch[i].color);
    }
    glActiveTexture(GL_TEXTURE0);
  }

  void setDepth(const ItemPassOptions& options) {
    if (options.screenSpace || options.depthTest == ItemPassOptions::DepthTest::Always) {
      glDisable(GL_DEPTH_TEST);
    } else {
      glEnable(GL_DEPTH_TEST);
      glDepthFunc(options.depthTest == ItemPassOptions::DepthTest::Greater ? GL_GREATER : GL_LEQUAL);
    }
    glDepthMask(options.depthWrite ? GL_TRUE : GL_FALSE);
  }

  // Binds one per-vertex array (location) from a mesh buffer, or a constant when absent.
  void attribute(GLuint location, GpuBuffer* buffer, GLint width, const float* constant) {
    if (buffer) {
      glBindBuffer(GL_ARRAY_BUFFER, buffer->name);
      glVertexAttribPointer(location, width, GL_FLOAT, GL_FALSE, 0, nullptr);
      glEnableVertexAttribArray(location);
    } else {
      glDisableVertexAttribArray(location);
      glVertexAttrib4fv(location, constant);
    }
  }

  void drawItem(DrawItem& item) {
    const char* function = "voGR::RenderNode::drawItem";
    const ItemPassOptions& options = frame_.options;
    const Shader* shader = options.overrideShader ? options.overrideShader : item.getShader().get();
    ItemBuffers b;
    if (!itemBuffers(impl_, item, shader, b)) return;
    const ruLinear::AffineMatrix model =
        options.worldTransform ? item.getLocalToWorld() * *options.worldTransform : item.getLocalToWorld();
    if (!finite(model)) {
      report(function, "item \"%s\" has a transform that is not finite; nothing drawn", item.getDebugString().c_str());
      return;
    }
    GpuBuffer* indices = b.indices;
    const GLenum mode = b.mode;
    // Clipping is the item's shape, not its look: an override shader without planes of its own
    // keeps the item's, unless a world transform moves the item (the planes would cut the moved
    // shape, not the item).
    const Shader* clipping = shader;
    if (options.overrideShader && options.overrideShader->clippingPlanes().size() == 0 && !options.worldTransform) {
      clipping = item.getShader().get();
    }
    const int planes = clipping ? std::min(clipping->clippingPlanes().size(), ClippingPlanes::maxPlanes) : 0;
    using Impl = DrawSystem::Impl;
    const int variant = (mode == GL_LINES ? Impl::VariantLines : 0) | (planes > 0 ? Impl::VariantClipping : 0) |
                        (b.normals ? Impl::VariantNormals : 0);
    Program* program = impl_.program(shader ? shader->getFragmentSource() : kDefaultFragment, variant);
    if (!program) return;
    glUseProgram(program->name);

    // Default rendering: the item colour, times its image when it has one. A set image that
    // cannot be read draws nothing rather than a wrong plain quad.
    UniformsImpl uniforms(impl_, *program);
    if (!shader) {
      bool textured = false;
      if (item.hasImageKey()) {
        textured = uniforms.setTexture("uTexture", item.getImageKey(), false);
        if (!textured) {
          report(function, "item \"%s\" has an image key whose image cannot be read; nothing drawn",
                 item.getDebugString().c_str());
          return;
        }
      }
      glUniform1i(program->hasTexture, textured ? 1 : 0);
    } else {
      shader->bind(uniforms);
    }
    GpuBuffer *positions = b.positions, *normals = b.normals, *uvs = b.uvs, *colors = b.colors, *extra = b.extra;
    const float zero[4] = {0, 0, 0, 0}, white[4] = {1, 1, 1, 1}, unmeasured[4] = {-1, 0, 0, 0};
    attribute(0, positions, 3, zero);
    attribute(1, normals, 3, zero);
    attribute(2, uvs, 2, zero);
    attribute(3, colors, 4, white);
    attribute(4, extra, 1, unmeasured);

    float m[16], n[9];
    toGL(model, m);
    normalMatrix(model, n);
    glUniformMatrix4fv(program->model, 1, GL_FALSE, m);
    glUniformMatrix3fv(program->normalMatrix, 1, GL_FALSE, n);
    float mvp[16];
    toGL(ruLinear::ProjMatrix(model) * frame_.viewProjection, mvp);
    glUniformMatrix4fv(program->viewProjection, 1, GL_FALSE, mvp);
    const ruUtil::Color& c = item.getColor();
    const ruUtil::Color& t = options.tint;
    glUniform4f(program->itemColor, c.r * t.r, c.g * t.g, c.b * t.b, c.a * t.a);
    const ruLinear::Vector toViewer = frame_.camera.getViewVector() * -1.0;
    glUniform3f(program->lightDirection, float(toViewer.getX()), float(toViewer.getY()), float(toViewer.getZ()));
    const ruGeom::Viewport& v = frame_.camera.getViewport();
    glUniform4f(program->viewport, float(v.x), float(v.y), float(v.width), float(v.height));
    glUniform1f(program->lineWidth, shader ? std::max(1.0f, shader->getLineWidth()) : 1.0f);

    // Clip planes: n . x + d >= 0 keeps x, with d = -n . p.
    float planeData[4 * ClippingPlanes::maxPlanes];
    for (int i = 0; i < planes; ++i) {
      const ruLinear::Plane& plane = clipping->clippingPlanes().get(i);
      const ruLinear::Vector normal = plane.getNormal().asVector();
      planeData[4 * i + 0] = float(normal.getX());
      planeData[4 * i + 1] = float(normal.getY());
      planeData[4 * i + 2] = float(normal.getZ());
      planeData[4 * i + 3] = float(-ruLinear::dot(normal, plane.getPoint().asVector()));
    }
    if (planes > 0) glUniform4fv(program->clipPlanes, planes, planeData);
    glUniform1i(program->numClipPlanes, planes);
    for (int i = enabledClipPlanes_; i < planes; ++i) glEnable(GL_CLIP_DISTANCE0 + i);
    for (int i = planes; i < enabledClipPlanes_; ++i) glDisable(GL_CLIP_DISTANCE0 + i);
    enabledClipPlanes_ = planes;

    glBindBuffer(GL_ELEMENT_ARRAY_BUFFER, indices->name);
    glDrawElements(mode, indices->count, GL_UNSIGNED_INT, nullptr);
    ++impl_.statistics.itemsDrawn;
  }

  DrawSystem& system_;
  DrawSystem::Impl& impl_;
  Frame frame_;
  std::unordered_set<const DrawItem*> seen_;
  std::vector<DrawItem*> opaque_, transparent_;
  int enabledClipPlanes_ = 0;
  int targetWidth_ = 0, targetHeight_ = 0;
};

}  // namespace

// ---------------------------------------------------------------------------------------------
// Programs, buffers, textures

GLint Program::location(const char* uniform) {
  auto found = uniforms.find(uniform);
  if (found != uniforms.end()) return found->second;
  const GLint l = glGetUniformLocation(name, uniform);
  uniforms.emplace(uniform, l);
  return l;
}

Program* DrawSystem::Impl::program(const char* fragmentSource, int variant) {
  const bool lines = (variant & VariantLines) != 0;
  auto& bySource = programsBySource[variant & 7];
  auto cached = bySource.find(fragmentSource);
  if (cached != bySource.end()) return cached->second;
  const std::string key = std::to_string(variant & 7) + fragmentSource;
  // Each variant compiles only what it uses: llvmpipe pays for every clip distance and varying.
  std::string defines = "#version 330 core\n";
  if (variant & VariantLines) defines += "#define LINES 1\n";
  if (variant & VariantClipping) defines += "#define CLIPPING 1\n";
  if (variant & VariantNormals) defines += "#define HAS_NORMALS 1\n";
  auto found = programs.find(key);
  if (found != programs.end()) {
    bySource[fragmentSource] = found->second.name ? &found->second : nullptr;
    return bySource[fragmentSource];
  }
  Program& program = programs[key];
  ruString::CString error;
  const char* vertexParts[2] = {defines.c_str(), kVertexSource};
  const char* geometryParts[2] = {defines.c_str(), kLineGeometrySource};
  const char* fragmentParts[3] = {defines.c_str(), kFragmentPrelude, fragmentSource};
  GLuint vertex = compile(GL_VERTEX_SHADER, vertexParts, 2, error);
  GLuint geometry = vertex && lines ? compile(GL_GEOMETRY_SHADER, geometryParts, 2, error) : 0;
  GLuint fragment = vertex && (!lines || geometry) ? compile(GL_FRAGMENT_SHADER, fragmentParts, 3, error) : 0;
  if (fragment) {
    program.name = glCreateProgram();
    glAttachShader(program.name, vertex);
    if (geometry) glAttachShader(program.name, geometry);
    glAttachShader(program.name, fragment);
    glLinkProgram(program.name);
    GLint ok = 0;
    glGetProgramiv(program.name, GL_LINK_STATUS, &ok);
    if (!ok) {
      char log[2048] = {0};
      glGetProgramInfoLog(program.name, sizeof log, nullptr, log);
      error = log;
      glDeleteProgram(program.name);
      program.name = 0;
    }
  }
  for (GLuint s : {vertex, geometry, fragment}) {
    if (s) glDeleteShader(s);
  }
  if (!program.name) {
    report("voGR::DrawSystem::program", "shader program failed: %s", error.c_str());
    bySource[fragmentSource] = nullptr;
    return nullptr;
  }
  program.model = glGetUniformLocation(program.name, "uModel");
  program.normalMatrix = glGetUniformLocation(program.name, "uNormalMatrix");
  program.viewProjection = glGetUniformLocation(program.name, "uModelViewProjection");
  program.clipPlanes = glGetUniformLocation(program.name, "uClipPlanes");
  program.numClipPlanes = glGetUniformLocation(program.name, "uNumClipPlanes");
  program.itemColor = glGetUniformLocation(program.name, "uItemColor");
  program.lightDirection = glGetUniformLocation(program.name, "uLightDirection");
  program.viewport = glGetUniformLocation(program.name, "uViewport");
  program.lineWidth = glGetUniformLocation(program.name, "uLineWidth");
  program.hasTexture = glGetUniformLocation(program.name, "uHasTexture");
  program.texture = glGetUniformLocation(program.name, "uTexture");
  // Scratch samplers read fixed units (PassContext::bindScratch).
  glUseProgram(program.name);
  for (int i = 0; i < PassContext::maxScratch; ++i) {
    const std::string sampler = "uScratch" + std::to_string(i);
    const GLint location = glGetUniformLocation(program.name, sampler.c_str());
    if (location >= 0) glUniform1i(location, scratchUnit + i);
  }
  bySource[fragmentSource] = &program;
  return &program;
}

GpuBuffer* DrawSystem::Impl::buffer(std::uint64_t id, GLenum target, const void* data, std::size_t bytes,
                                    std::uint64_t owner, const ruGeom::detail::BufferStorageBase* storage, bool indices,
                                    std::size_t count) {
  if (id == 0 || !data || bytes == 0) return nullptr;
  auto found = buffers.find(id);
  if (found != buffers.end()) return &found->second;
  GpuBuffer& entry = buffers[id];
  glGenBuffers(1, &entry.name);
  glBindBuffer(target, entry.name);
  entry.bytes = bytes;
  if (indices) {
    // Indices are checked against the vertex count at every draw, so the upload also finds the
    // largest, scanning before the copy so that the copy reads from cache. (Mapping a buffer
    // made without data would cost a clear of it first.)
    entry.count = static_cast<GLsizei>(count);
    const std::uint32_t largest = largestIndex(static_cast<const std::uint32_t*>(data), count);
    glBufferData(target, static_cast<GLsizeiptr>(bytes), data, GL_STATIC_DRAW);
    entry.maxIndex = largest;
  } else {
    glBufferData(target, static_cast<GLsizeiptr>(bytes), data, GL_STATIC_DRAW);
  }
  // Hear of the buffer's end: its own storage when it could be marked, else through the
  // mesh's vertex storage that it is freed with.
  if (storage) storage->markCached();
  if (owner) dependents[owner].push_back(id);
  ++statistics.bufferUploads;
  statistics.uploadedBytes += static_cast<std::int64_t>(bytes);
  return &entry;
}

GLuint DrawSystem::Impl::texture(const voRES::ImageKey& key) {
  if (!key.valid()) return 0;
  auto found = textures.find(key.get());
  if (found != textures.end()) return found->second.name;
  Texture& entry = textures[key.get()];
  entry.key = key;
  voRES::ImageKeyAccessor accessor(key);
  const ruImage::Image* image = accessor.image();
  if (!image || image->getPixelFormat() != ruImage::PixelFormat::Byte4 || image->xSize() < 1 || image->ySize() < 1) {
    return 0;
  }
  // Images hold their top row first; texture coordinate v runs up from the bottom row.
  const int w = image->xSize(), h = image->ySize();
  std::vector<std::uint8_t> flipped(image->byteSize());
  for (int y = 0; y < h; ++y) {
    std::memcpy(flipped.data() + std::size_t(h - 1 - y) * image->rowBytes(), image->bytes() + std::size_t(y) * image->rowBytes(),
                image->rowBytes());
  }
  glGenTextures(1, &entry.name);
  glBindTexture(GL_TEXTURE_2D, entry.name);
  glPixelStorei(GL_UNPACK_ALIGNMENT, 1);
  glTexImage2D(GL_TEXTURE_2D, 0, GL_RGBA8, w, h, 0, GL_RGBA, GL_UNSIGNED_BYTE, flipped.data());
  glTexParameteri(GL_TEXTURE_2D, GL_TEXTURE_MIN_FILTER, GL_LINEAR);
  glTexParameteri(GL_TEXTURE_2D, GL_TEXTURE_MAG_FILTER, GL_LINEAR);
  ++statistics.textureUploads;
  return entry.name;
}

void DrawSystem::Impl::processReleases() {
  std::vector<std::uint64_t> ids;
  {
    std::lock_guard<std::mutex> lock(released->mutex);
    ids.swap(released->ids);
  }
  std::vector<GLuint> names;
  auto drop = [&](std::uint64_t id) {
    auto found = buffers.find(id);
    if (found == buffers.end()) return;
    names.push_back(found->second.name);
    buffers.erase(found);
    ++statistics.buffersFreed;
  };
  for (std::uint64_t id : ids) {
    drop(id);
    auto children = dependents.find(id);
    if (children == dependents.end()) continue;
    for (std::uint64_t child : children->second) drop(child);
    dependents.erase(children);
  }
  if (!names.empty()) glDeleteBuffers(static_cast<GLsizei>(names.size()), names.data());
  // Frame buffers whose keys died.
  std::lock_guard<std::mutex> lock(fbos->mutex);
  if (!fbos->deadFramebuffers.empty())
    glDeleteFramebuffers(GLsizei(fbos->deadFramebuffers.size()), fbos->deadFramebuffers.data());
  if (!fbos->deadTextures.empty()) glDeleteTextures(GLsizei(fbos->deadTextures.size()), fbos->deadTextures.data());
  if (!fbos->deadRenderbuffers.empty())
    glDeleteRenderbuffers(GLsizei(fbos->deadRenderbuffers.size()), fbos->deadRenderbuffers.data());
  fbos->deadFramebuffers.clear();
  fbos->deadTextures.clear();
  fbos->deadRenderbuffers.clear();
}

bool DrawSystem::Impl::makeCurrent() {
  if (!ownsContext) return true;
  if (eglGetCurrentContext() == static_cast<EGLContext>(context)) return true;
  if (!eglMakeCurrent(static_cast<EGLDisplay>(display), EGL_NO_SURFACE, EGL_NO_SURFACE, static_cast<EGLContext>(context))) {
    report("voGR::DrawSystem::makeCurrent", "eglMakeCurrent failed");
    return false;
  }
  return true;
}

bool DrawSystem::Impl::initializeGL(ruString::CString* error) {
  if (epoxy_gl_version() < 33) {
    if (error) *error = "the OpenGL context is older than 3.3";
    return false;
  }
  glGetIntegerv(GL_MAX_RENDERBUFFER_SIZE, &maxFramebufferSize);
  glGenVertexArrays(1, &vertexArray);
  glBindVertexArray(vertexArray);
  const float quad[12] = {-1, -1, 0, 1, -1, 0, -1, 1, 0, 1, 1, 0};
  glGenBuffers(1, &quadBuffer);
  glBindBuffer(GL_ARRAY_BUFFER, quadBuffer);
  glBufferData(GL_ARRAY_BUFFER, sizeof quad, quad, GL_STATIC_DRAW);
  auto* queue = released.get();
  releaseToken = ruGeom::subscribeBufferRelease([queue](ruGeom::BufferId id) {
    std::lock_guard<std::mutex> lock(queue->mutex);
    queue->ids.push_back(id);
  });
  return true;
}

void DrawSystem::Impl::releaseGL() {
  ruGeom::unsubscribeBufferRelease(releaseToken);
  releaseToken = 0;
  const bool current = makeCurrent();
  {
    std::lock_guard<std::mutex> lock(fbos->mutex);
    fbos->alive = false;
    for (ruRen::FBOResource* fbo : fbos->live) {
      if (current) fbo->releaseNow();
    }
  }
  if (!current) return;
  for (auto& entry : buffers) glDeleteBuffers(1, &entry.second.name);
  buffers.clear();
  for (auto& entry : programs) {
    if (entry.second.name) glDeleteProgram(entry.second.name);
  }
  programs.clear();
  for (auto& entry : textures) {
    if (entry.second.name) glDeleteTextures(1, &entry.second.name);
  }
  textures.clear();
  for (Scratch& s : scratch) {
    if (s.framebuffer) glDeleteFramebuffers(1, &s.framebuffer);
    if (s.color) glDeleteTextures(1, &s.color);
    if (s.depth) glDeleteRenderbuffers(1, &s.depth);
    s = Scratch();
  }
  if (quadBuffer) glDeleteBuffers(1, &quadBuffer);
  if (vertexArray) glDeleteVertexArrays(1, &vertexArray);
}

DrawSystem::Impl::~Impl() = default;

void DrawSystem::Impl::forgetDrawData(DrawData* data) {
  auto found = drawData.find(data->getSource());
  if (found != drawData.end() && found->second == data) drawData.erase(found);
}

// ---------------------------------------------------------------------------------------------
// DrawSystem

DrawSystem::DrawSystem(std::unique_ptr<Impl> impl) : impl_(std::move(impl)) {
  impl_->device = std::make_unique<DeviceContextImpl>(*impl_);
}

std::unique_ptr<DrawSystem> DrawSystem::createOffscreen(ruString::CString* error) {
  const char* function = "voGR::DrawSystem::createOffscreen";
  ruString::CString why;
  EGLDisplay display = acquireDisplay(why);
  auto fail = [&](const ruString::CString& reason) -> std::unique_ptr<DrawSystem> {
    report(function, "no off-screen OpenGL context: %s", reason.c_str());
    if (error) *error = reason;
    return nullptr;
  };
  if (display == EGL_NO_DISPLAY) return fail(why);
  eglBindAPI(EGL_OPENGL_API);
  const EGLint configAttributes[] = {EGL_RENDERABLE_TYPE, EGL_OPENGL_BIT, EGL_NONE};
  EGLConfig config = nullptr;
  EGLint numConfigs = 0;
  eglChooseConfig(display, configAttributes, &config, 1, &numConfigs);
  const EGLint contextAttributes[] = {EGL_CONTEXT_MAJOR_VERSION, 3, EGL_CONTEXT_MINOR_VERSION, 3,
                                      EGL_CONTEXT_OPENGL_PROFILE_MASK, EGL_CONTEXT_OPENGL_CORE_PROFILE_BIT, EGL_NONE};
  EGLContext context = eglCreateContext(display, numConfigs > 0 ? config : EGL_NO_CONFIG_KHR, EGL_NO_CONTEXT, contextAttributes);
  if (context == EGL_NO_CONTEXT) {
    const EGLint code = eglGetError();
    releaseDisplay();
    return fail(ruString::CString::format("eglCreateContext failed for OpenGL 3.3 core (0x%x)", code));
  }
  if (!eglMakeCurrent(display, EGL_NO_SURFACE, EGL_NO_SURFACE, context)) {
    const EGLint code = eglGetError();
    eglDestroyContext(display, context);
    releaseDisplay();
    return fail(ruString::CString::format("eglMakeCurrent without a surface failed (0x%x)", code));
  }
  auto impl = std::make_unique<Impl>();
  impl->ownsContext = true;
  impl->display = display;
  impl->context = context;
  ruString::CString glError;
  if (!impl->initializeGL(&glError)) {
    eglMakeCurrent(display, EGL_NO_SURFACE, EGL_NO_SURFACE, EGL_NO_CONTEXT);
    eglDestroyContext(display, context);
    releaseDisplay();
    return fail(glError);
  }
  return std::unique_ptr<DrawSystem>(new DrawSystem(std::move(impl)));
}

std::unique_ptr<DrawSystem> DrawSystem::adoptCurrentContext(ruString::CString* error) {
  const char* function = "voGR::DrawSystem::adoptCurrentContext";
  // Whichever window system made the context: EGL, or GLX when libGL is loaded.
  bool current = epoxy_has_egl() && eglGetCurrentContext() != EGL_NO_CONTEXT;
  if (!current) {
    using GetContext = void* (*)();
    if (auto glx = reinterpret_cast<GetContext>(dlsym(RTLD_DEFAULT, "glXGetCurrentContext"))) current = glx() != nullptr;
  }
  if (!current) {
    report(function, "no OpenGL context is current on this thread");
    if (error) *error = "no OpenGL context is current on this thread";
    return nullptr;
  }
  auto impl = std::make_unique<Impl>();
  ruString::CString glError;
  if (!impl->initializeGL(&glError)) {
    report(function, "cannot use the current context: %s", glError.c_str());
    if (error) *error = glError;
    return nullptr;
  }
  return std::unique_ptr<DrawSystem>(new DrawSystem(std::move(impl)));
}

DrawSystem::~DrawSystem() {
  // Draw data the callers still own forget the system; the system's own go.
  std::vector<DrawData*> blocks;
  for (auto& entry : impl_->drawData) blocks.push_back(entry.second);
  impl_->drawData.clear();
  for (DrawData* data : blocks) {
    data->system_ = nullptr;
    if (data->ownedBySystem_) delete data;
  }
  impl_->active = nullptr;
  impl_->releaseGL();
  if (impl_->ownsContext) {
    auto display = static_cast<EGLDisplay>(impl_->display);
    eglMakeCurrent(display, EGL_NO_SURFACE, EGL_NO_SURFACE, EGL_NO_CONTEXT);
    eglDestroyContext(display, static_cast<EGLContext>(impl_->context));
    releaseDisplay();
  }
}

Graph* DrawSystem::getGraph() const noexcept { return &impl_->graph; }
ru::Reference<Database> DrawSystem::getActiveDatabase() const { return impl_->active; }

ru::Reference<Database> DrawSystem::setActiveDatabase(ru::Reference<Database> database) {
  ru::Reference<Database> former = std::move(impl_->active);
  impl_->active = std::move(database);
  return former;
}

int DrawSystem::allocateID() {
  if (!impl_->freeIds.empty()) {
    const int id = impl_->freeIds.back();
    impl_->freeIds.pop_back();
    return id;
  }
  return impl_->nextId++;
}

void DrawSystem::freeID(int id) {
  if (id < 0 || id >= impl_->nextId) return;
  if (std::find(impl_->freeIds.begin(), impl_->freeIds.end(), id) != impl_->freeIds.end()) return;
  impl_->freeIds.push_back(id);
  std::vector<DrawData*> owned;
  for (auto& entry : impl_->drawData) {
    if (entry.second->ownedBySystem_ && entry.second->lastId_ == id) owned.push_back(entry.second);
  }
  for (DrawData* data : owned) delete data;
}

DrawData* DrawSystem::getDrawData(const void* source, bool create) {
  auto found = impl_->drawData.find(source);
  if (found != impl_->drawData.end()) {
    // A block the system made for an undeclared source passes to whoever declares it now.
    if (create) found->second->ownedBySystem_ = false;
    return found->second;
  }
  if (!create) return nullptr;
  auto* data = new DrawData(this, source);
  impl_->drawData[source] = data;
  return data;
}

bool DrawSystem::draw(RenderTargetNode* target) {
  const char* function = "voGR::DrawSystem::draw";
  impl_->trace.clear();
  if (!target) {
    report(function, "no target");
    return false;
  }
  DataNode* last = target->getLastState();
  std::vector<Node*> order;
  if (!impl_->graph.dependencyOrder(last, order)) return false;
  if (!impl_->makeCurrent()) return false;
  impl_->processReleases();
  PassContextImpl context(*this);
  for (Node* node : order) {
    node->execute(context);
    impl_->trace.push_back(node);
  }
  glBindFramebuffer(GL_FRAMEBUFFER, 0);
  glUseProgram(0);
  ++impl_->statistics.frames;
  return true;
}

const std::vector<Node*>& DrawSystem::getExecutionTrace() const noexcept { return impl_->trace; }

ruRen::FBOKey DrawSystem::createFBOKey(const ruRen::FBOInfo& info) {
  if (info.width < 1 || info.height < 1 || info.width > impl_->maxFramebufferSize || info.height > impl_->maxFramebufferSize) {
    voSupport::Debug::getInstance().print(DebugGraphics, "voGR::DrawSystem::createFBOKey",
                                          "no frame buffer of %d by %d pixels (1 to %d each way); invalid key",
                                          info.width, info.height, impl_->maxFramebufferSize);
    return ruRen::FBOKey();
  }
  return ruRen::FBOKey(ru::Reference<ruRen::FBOResource>(new ruRen::FBOResource(info, impl_->fbos)));
}

ruRen::DeviceContext* DrawSystem::getRenDeviceContext() const noexcept { return impl_->device.get(); }

ru::Reference<DataNodeStateInfo> DrawSystem::createRenderTarget(const ruString::CString& name, const ruRen::FBOKey& key) {
  auto* node = new RenderTargetNode();
  node->setName(name);
  node->setFBO(key);
  GraphEditor(&impl_->graph).addNode(node);
  return ru::Reference<DataNodeStateInfo>(new DataNodeStateInfo(node));
}

const DrawStatistics& DrawSystem::getStatistics() const noexcept { return impl_->statistics; }
bool DrawSystem::makeCurrent() { return impl_->makeCurrent(); }

void DrawSystem::releaseUnusedBuffers() {
  if (impl_->makeCurrent()) impl_->processReleases();
}

bool DrawSystem::upload(const DrawItem& item) {
  if (!impl_->makeCurrent()) return false;
  impl_->processReleases();
  ItemBuffers buffers;
  return itemBuffers(*impl_, item, item.getShader().get(), buffers);
}

}  // namespace voGR
