#pragma once

#include "platform/base/containers.h"
#include "platform/base/reference.h"
#include "platform/base/strings.h"
#include "platform/image/image.h"
#include "platform/resources/export.h"
#include "platform/support/keycache.h"

#include <cstddef>
#include <cstdint>
#include <memory>

// Resources: images by name (with state variants) and generated images, handed out as keys into a
// cache. A key is a shared handle: copies compare equal, and the image behind it is loaded or
// generated on first use.
namespace voRES {

// Debug channel of the loader and the built-in images (voSupport::Debug): why an image could not
// be made.
enum ResourcesDebugCode : int { DebugResources = 45 };

class ImageKeyData;
using ImageKey = ruKRCache::Key<ImageKeyData>;
using ImageKeys = ru::vector<ImageKey>;

// A reference-counted block of `size` bytes, held for the length of an operation that needs the
// memory (a frame read back, a generated image).
class VO_RES_API ExternalResource : public ru::ReferenceCount {
public:
  explicit ExternalResource(std::size_t size);
  ~ExternalResource() override;
  std::size_t size() const noexcept { return size_; }
  std::uint8_t* data() noexcept { return data_.get(); }

private:
  std::size_t size_;
  std::unique_ptr<std::uint8_t[]> data_;
};

// Makes an image from parameters and input images. The cache asks it for its size, compares and
// hashes it to share one entry among equal generators, and lets it generate the image once.
class VO_RES_API ImageGenerator : public ru::ReferenceCount {
public:
  ~ImageGenerator() override;

  // Whether the byte size of the image is known before generating it, and that size.
  virtual bool hasPredeterminedSize(const ImageKeys& keys) const;
  virtual std::int64_t getPredeterminedSize(const ImageKeys& keys) const;

  // Negative, zero or positive: generators of different classes order by class, equal classes by
  // onCompare. Zero means the same image.
  int compare(const ImageGenerator* other) const;
  std::uint64_t hash() const { return onHash(); }
  // The image; null when the generator cannot make one.
  ru::Reference<ruImage::Image> generate(const ImageKeys& keys) const { return onGenerate(keys); }
  // A hash of the generator's class, the same for every generator of that class in a process.
  std::uint64_t getTypeHash() const;

  // The hooks behind compare, hash and generate. Public so that a caller holding a generator can
  // ask it directly, as the cache does; their order among the virtual functions is fixed.
  // Only called with a generator of the same class. 0 by default: all are equal.
  virtual int onCompare(const ImageGenerator* other) const;
  // The type hash by default.
  virtual std::uint64_t onHash() const;
  virtual ru::Reference<ruImage::Image> onGenerate(const ImageKeys& keys) const = 0;
};

// A generator with one parameter, `value`.
template <class T>
class ImageGenerator1 : public ImageGenerator {
public:
  explicit ImageGenerator1(T v) : value(v) {}
  ImageGenerator1(const ImageGenerator1& other) : ImageGenerator(), value(other.value) {}
  ImageGenerator1& operator=(const ImageGenerator1& other) {
    value = other.value;
    return *this;
  }

  T value;

  // -1 when the other's value is the greater, 1 when it is the smaller.
  int onCompare(const ImageGenerator* other) const override {
    const T& theirs = static_cast<const ImageGenerator1*>(other)->value;
    if (theirs > value) return -1;
    if (theirs < value) return 1;
    return 0;
  }
  // The type hash, then the value as a 64-bit word (sign-extended).
  std::uint64_t onHash() const override {
    return ru::Hasher().add(getTypeHash()).add(static_cast<std::uint64_t>(static_cast<std::int64_t>(value))).value();
  }
};

// One cache entry: a named image (with its state), or a generator with its inputs.
class VO_RES_API ImageKeyData : public ru::ReferenceCount {
public:
  ~ImageKeyData() override;

  const ruString::CString& name() const noexcept { return name_; }
  const ruString::CString& state() const noexcept { return state_; }
  const ru::Reference<ImageGenerator>& generator() const noexcept { return generator_; }
  const ImageKeys& inputs() const noexcept { return inputs_; }

  // The image, read or generated on first use; null when that failed (see error()).
  const ru::Reference<ruImage::Image>& image() const;
  // What went wrong reading or generating the image; empty when nothing did.
  const ruString::CString& error() const noexcept { return error_; }

private:
  friend class Loader;
  ImageKeyData() = default;

  ruString::CString name_;
  ruString::CString state_;
  ruString::CString path_;  // file to read on first use, when the image came from a folder
  ru::Reference<ImageGenerator> generator_;
  ImageKeys inputs_;
  mutable ru::Reference<ruImage::Image> image_;
  mutable ruString::CString error_;
  mutable bool loaded_ = false;
};

// Reads what a key stands for. An invalid key, or one whose image could not be made, reads as an
// image of 0 by 0 pixels.
class VO_RES_API ImageKeyAccessor {
public:
  explicit ImageKeyAccessor(const ImageKey& key);
  int xSize() const noexcept;
  int ySize() const noexcept;
  // Null for an invalid key or a failed image.
  const ruImage::Image* image() const noexcept { return image_; }

private:
  const ruImage::Image* image_ = nullptr;
};

// The resource loader of a host: images registered in memory first, then PNG files under the
// resource folders, then the built-in images of builtins.h (drawn on first request). Names are matched exactly as written ("DMG//ModelingPlane" and
// "DMG/ModelingPlane" are different names). In a folder, the image `name` is the file
// `<name>.png` and its state `state` the file `<name>@<state>.png`, where every '/' of the name is
// written "%2F", '%' "%25" and '@' "%40", so that every name has a file of its own.
class VO_RES_API Loader {
public:
  Loader();
  Loader(const Loader&) = delete;
  Loader& operator=(const Loader&) = delete;
  ~Loader();

  // Registers an image under a name (and a state); replaces an earlier one. A null image removes it.
  void addImage(const ruString::CString& name, ru::Reference<ruImage::Image> image);
  void addImage(const ruString::CString& name, const ruString::CString& state, ru::Reference<ruImage::Image> image);
  // Adds a folder to search, after those added before.
  void addResourceFolder(const ruString::CString& folder);
  // Whether names the loader has nowhere else fall back to the built-in images (true at
  // construction). Switching affects keys made afterwards.
  void setBuiltinImagesEnabled(bool enabled);
  bool builtinImagesEnabled() const noexcept;

  // The key of a named image, or of one state of it; an invalid key when there is no such image.
  // Equal names give equal keys while the cache holds the entry. `flags` is reserved (0).
  ImageKey createImageKey(const ruString::CString& name, int flags);
  ImageKey createImageKey(const ruString::CString& name, const ruString::CString& state, int flags);
  // The key of a generated image: equal generators (same class, hash and comparison) with the same
  // inputs share one key. Invalid for a null generator.
  ImageKey createImageKey(const ru::Reference<ImageGenerator>& generator, const ImageKeys& inputs, int flags);
  // The same for a generator that takes no input images.
  ImageKey createImageKey(const ru::Reference<ImageGenerator>& generator, int flags) {
    return createImageKey(generator, ImageKeys(), flags);
  }

  // A key of an image held in memory, outside the cache: each call gives a new key, which keeps the
  // image for as long as it lives. `name` is only a label. Invalid for a null image.
  static ImageKey keyForImage(ru::Reference<ruImage::Image> image, const ruString::CString& name = "");

  // The file a name (and state) is looked for under, relative to a resource folder.
  static ruString::CString fileName(const ruString::CString& name, const ruString::CString& state = "");
  // Entries in the cache.
  std::size_t numCachedKeys() const noexcept;
  // Drops every cached entry (keys still held stay valid).
  void clearCache();

private:
  struct Impl;
  std::unique_ptr<Impl> impl_;
};

} // namespace voRES
