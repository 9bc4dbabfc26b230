#pragma once

#include "platform/base/reference.h"
#include "platform/graphics/export.h"
#include "platform/image/image.h"

// The render device layer: frame-buffer descriptions and keys, rasterizer state, read-back.
namespace ruRen {

// What a frame buffer holds: its size in pixels, whether it has a depth and a stencil buffer and
// whether it is multisampled. Off-screen frames want a depth buffer, so that is the default.
struct FBOInfo {
  int width = 0;
  int height = 0;
  bool depth = true;
  bool stencil = false;
  bool multisample = false;

  FBOInfo() = default;
  FBOInfo(int w, int h, bool hasDepth, bool hasStencil, bool isMultisampled)
      : width(w), height(h), depth(hasDepth), stencil(hasStencil), multisample(isMultisampled) {}
  friend bool operator==(const FBOInfo&, const FBOInfo&) = default;
};

class FBOResource;

// A cache key for a frame buffer, made by voGR::DrawSystem::createFBOKey. Copies share one frame
// buffer; the GPU objects are made on first use by the draw system that created the key and freed
// on that system's thread once the last copy is gone. A default key is invalid (no frame buffer).
class VO_GR_API FBOKey {
public:
  FBOKey();
  explicit FBOKey(ru::Reference<FBOResource> resource);
  FBOKey(const FBOKey&);
  FBOKey& operator=(const FBOKey&);
  ~FBOKey();

  bool valid() const noexcept { return resource_.valid(); }
  // The description; a default FBOInfo (0 by 0) for an invalid key.
  FBOInfo getInfo() const noexcept;
  // Brackets a use of the frame buffer (draw then read back): while locked its GPU objects stay
  // allocated even when the key is replaced on the render target. Locks nest; false on an invalid
  // key.
  bool lock() const;
  void unlock() const;
  bool isLocked() const noexcept;
  FBOResource* get() const noexcept { return resource_.get(); }

  friend bool operator==(const FBOKey& a, const FBOKey& b) noexcept { return a.resource_ == b.resource_; }

private:
  ru::Reference<FBOResource> resource_;
};

// Rasterizer state of a pass. Polygon offset pushes filled triangles back in depth (factor times
// the depth slope plus units times the smallest depth step), so lines drawn on them win.
class VO_GR_API RasterizerState {
public:
  void enablePolygonOffset(float factor, float units) noexcept {
    polygonOffset_ = true;
    factor_ = factor;
    units_ = units;
  }
  void disablePolygonOffset() noexcept { polygonOffset_ = false; }
  bool hasPolygonOffset() const noexcept { return polygonOffset_; }
  float getPolygonOffsetFactor() const noexcept { return factor_; }
  float getPolygonOffsetUnits() const noexcept { return units_; }

private:
  bool polygonOffset_ = false;
  float factor_ = 0.0f;
  float units_ = 0.0f;
};

// Reads back what a draw system rendered. Obtained from voGR::DrawSystem::getRenDeviceContext();
// lives as long as the draw system.
class VO_GR_API DeviceContext {
public:
  virtual ~DeviceContext();
  // Reads the rectangle (x, y, width, height) in pixels of the key's colour buffer into `image`,
  // which is resized to width by height; rows come bottom row first (as OpenGL delivers them;
  // ruImage::imageFlipVertical makes them top-down). A multisampled buffer is resolved first.
  // False, with the image emptied and a message on the debug channel, for an invalid key, a key
  // of another draw system, an empty or out-of-range rectangle, or a frame buffer never drawn.
  bool readColorBuffer(const FBOKey& key, int x, int y, int width, int height,
                       ruImage::TypedImage<ruImage::Byte4>& image) {
    return onReadColorBuffer(key, x, y, width, height, image);
  }

private:
  virtual bool onReadColorBuffer(const FBOKey& key, int x, int y, int width, int height,
                                 ruImage::TypedImage<ruImage::Byte4>& image) = 0;
};

}  // namespace ruRen

namespace voGR {

// Reads the description behind a frame-buffer key (a default FBOInfo for an invalid key).
class VO_GR_API FBOKeyAccessor {
public:
  explicit FBOKeyAccessor(const ruRen::FBOKey& key) : info_(key.getInfo()), valid_(key.valid()) {}
  const ruRen::FBOInfo& getInfo() const noexcept { return info_; }
  bool valid() const noexcept { return valid_; }

private:
  ruRen::FBOInfo info_;
  bool valid_;
};

}  // namespace voGR
