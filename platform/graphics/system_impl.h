#pragma once

// Private to libGraphics: the state behind a DrawSystem.

#include "platform/graphics/draw.h"
#include "platform/graphics/graph.h"
#include "platform/graphics/world.h"

#include <epoxy/gl.h>

#include <cstdint>
#include <memory>
#include <mutex>
#include <string>
#include <unordered_map>
#include <unordered_set>
#include <vector>

namespace voGR {

// Frame buffers made by one draw system: their GPU objects are freed on its thread, so a key
// dying elsewhere only queues its names here.
struct FboRegistry {
  std::mutex mutex;
  bool alive = true;
  std::vector<GLuint> deadFramebuffers, deadTextures, deadRenderbuffers;
  std::unordered_set<ruRen::FBOResource*> live;
};

}  // namespace voGR

namespace ruRen {

class FBOResource : public ru::ReferenceCount {
public:
  FBOResource(const FBOInfo& info, std::shared_ptr<voGR::FboRegistry> registry);
  ~FBOResource() override;

  FBOInfo info;
  std::shared_ptr<voGR::FboRegistry> registry;
  GLuint framebuffer = 0, color = 0, depth = 0;  // colour: texture, or renderbuffer when multisampled
  GLuint resolveFramebuffer = 0, resolveTexture = 0;
  int locks = 0;
  bool drawn = false;
  bool multisampled = false;  // as made: a device without multisampling gives one sample
  // Frees the GPU objects now (the owner's context is current).
  void releaseNow();
};

}  // namespace ruRen

namespace voGR {

struct GpuBuffer {
  GLuint name = 0;
  std::size_t bytes = 0;
  std::uint32_t maxIndex = 0;  // index buffers: the largest index
  GLsizei count = 0;           // index buffers: the number of indices
};

struct Program {
  GLuint name = 0;
  GLint model = -1, normalMatrix = -1, viewProjection = -1, clipPlanes = -1, numClipPlanes = -1;
  GLint itemColor = -1, lightDirection = -1, viewport = -1, lineWidth = -1;
  GLint hasTexture = -1, texture = -1;
  std::unordered_map<std::string, GLint> uniforms;
  GLint location(const char* uniform);
};

struct DrawSystem::Impl {
  ~Impl();

  // Context.
  bool ownsContext = false;
  void* display = nullptr;  // EGLDisplay
  void* context = nullptr;  // EGLContext
  bool makeCurrent();

  Graph graph;
  ru::Reference<Database> active;
  int nextId = 0;
  std::vector<int> freeIds;
  std::unordered_map<const void*, DrawData*> drawData;
  DrawStatistics statistics;
  std::vector<Node*> trace;
  std::unique_ptr<ruRen::DeviceContext> device;
  std::shared_ptr<FboRegistry> fbos = std::make_shared<FboRegistry>();
  GLint maxFramebufferSize = 0;

  // GPU buffers by mesh buffer identity. Buffers whose mesh storage cannot be marked (normals,
  // colours, lines) are freed with the vertex buffer of their mesh: `dependents` lists them.
  std::unordered_map<std::uint64_t, GpuBuffer> buffers;
  std::unordered_map<std::uint64_t, std::vector<std::uint64_t>> dependents;
  struct ReleaseQueue {
    std::mutex mutex;
    std::vector<std::uint64_t> ids;
  };
  std::unique_ptr<ReleaseQueue> released = std::make_unique<ReleaseQueue>();
  std::uint64_t releaseToken = 0;

  GLuint vertexArray = 0;
  GLuint quadBuffer = 0;
  // Scratch surfaces of the passes (PassContext::bindScratch); colour textures sit on texture
  // units scratchUnit + index while drawing.
  static constexpr int scratchUnit = 12;
  struct Scratch {
    GLuint framebuffer = 0, color = 0, depth = 0;
    int width = 0, height = 0;
  };
  Scratch scratch[4];
  std::unordered_map<std::string, Program> programs;
  // Program variants: bits of the defines a program was compiled with.
  enum Variant { VariantLines = 1, VariantClipping = 2, VariantNormals = 4 };
  std::unordered_map<const char*, Program*> programsBySource[8];
  struct Texture {
    voRES::ImageKey key;
    GLuint name = 0;
  };
  std::unordered_map<const voRES::ImageKeyData*, Texture> textures;

  bool initializeGL(ruString::CString* error);
  void releaseGL();
  void processReleases();
  void forgetDrawData(DrawData* data);

  // Index or vertex data of a mesh buffer, uploaded on first use.
  GpuBuffer* buffer(std::uint64_t id, GLenum target, const void* data, std::size_t bytes, std::uint64_t owner,
                    const ruGeom::detail::BufferStorageBase* storage, bool indices, std::size_t count);
  Program* program(const char* fragmentSource, int variant);
  GLuint texture(const voRES::ImageKey& key);
};

}  // namespace voGR
