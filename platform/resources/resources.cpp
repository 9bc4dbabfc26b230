#include "platform/resources/resources.h"

#include "platform/base/typename.h"
#include "platform/resources/builtins.h"
#include "platform/support/debug.h"
#include "platform/image/png.h"

#include <cstring>
#include <filesystem>
#include <map>
#include <typeinfo>
#include <unordered_map>
#include <utility>

namespace voRES {

// --- ExternalResource ------------------------------------------------------------------------

ExternalResource::ExternalResource(std::size_t size) : size_(size), data_(new std::uint8_t[size > 0 ? size : 1]()) {}
ExternalResource::~ExternalResource() = default;

// --- ImageGenerator --------------------------------------------------------------------------

ImageGenerator::~ImageGenerator() = default;

bool ImageGenerator::hasPredeterminedSize(const ImageKeys&) const { return false; }
std::int64_t ImageGenerator::getPredeterminedSize(const ImageKeys&) const { return 0; }
int ImageGenerator::onCompare(const ImageGenerator*) const { return 0; }
std::uint64_t ImageGenerator::onHash() const { return getTypeHash(); }

std::uint64_t ImageGenerator::getTypeHash() const {
  const char* name = typeid(*this).name();
  return ru::Hasher().add(name, std::strlen(name)).value();
}

int ImageGenerator::compare(const ImageGenerator* other) const {
  if (!other) return 1;
  if (other == this) return 0;
  const std::type_info& mine = typeid(*this);
  const std::type_info& theirs = typeid(*other);
  if (mine != theirs) return mine.before(theirs) ? -1 : 1;
  return onCompare(other);
}

// --- ImageKeyData ----------------------------------------------------------------------------

ImageKeyData::~ImageKeyData() = default;

const ru::Reference<ruImage::Image>& ImageKeyData::image() const {
  if (loaded_) return image_;
  loaded_ = true;
  if (generator_) {
    image_ = generator_->generate(inputs_);
    if (!image_) error_ = ruString::CString::format("the generator %s made no image", ru::classNameOf(*generator_).c_str());
  } else if (!path_.empty()) {
    ruString::CString error;
    ru::Reference<ruImage::TypedImage<ruImage::Byte4>> read = ruImage::readPng(path_, &error);
    if (read) {
      image_ = read;
    } else {
      error_ = error;
    }
  }
  return image_;
}

// --- ImageKeyAccessor ------------------------------------------------------------------------

ImageKeyAccessor::ImageKeyAccessor(const ImageKey& key) {
  if (key.valid()) image_ = key->image().get();
}

int ImageKeyAccessor::xSize() const noexcept { return image_ ? image_->xSize() : 0; }
int ImageKeyAccessor::ySize() const noexcept { return image_ ? image_->ySize() : 0; }

// --- Loader ----------------------------------------------------------------------------------

struct Loader::Impl {
  // Registered images by (name, state); state "" is the plain image.
  std::map<std::pair<std::string, std::string>, ru::Reference<ruImage::Image>> registered;
  ru::vector<ruString::CString> folders;
  // Named entries by (name, state), and generated ones by hash.
  std::map<std::pair<std::string, std::string>, ImageKey> named;
  std::unordered_multimap<std::uint64_t, ImageKey> generated;
  bool builtins = true;
};

Loader::Loader() : impl_(new Impl) {}
Loader::~Loader() = default;

void Loader::addImage(const ruString::CString& name, ru::Reference<ruImage::Image> image) {
  addImage(name, "", std::move(image));
}

void Loader::addImage(const ruString::CString& name, const ruString::CString& state, ru::Reference<ruImage::Image> image) {
  const auto key = std::make_pair(std::string(name.c_str()), std::string(state.c_str()));
  // A key handed out before keeps what it had; later requests see the new image.
  impl_->named.erase(key);
  if (image) {
    impl_->registered[key] = std::move(image);
  } else {
    impl_->registered.erase(key);
  }
}

void Loader::addResourceFolder(const ruString::CString& folder) { impl_->folders.push_back(folder); }

void Loader::setBuiltinImagesEnabled(bool enabled) { impl_->builtins = enabled; }
bool Loader::builtinImagesEnabled() const noexcept { return impl_->builtins; }

ruString::CString Loader::fileName(const ruString::CString& name, const ruString::CString& state) {
  std::string out;
  for (const char c : std::string(name.c_str())) {
    if (c == '/') {
      out += "%2F";
    } else if (c == '%') {
      out += "%25";
    } else if (c == '@') {
      out += "%40";
    } else {
      out += c;
    }
  }
  // Appended piece by piece: GCC 12 warns (wrongly, -Wrestrict) on `"@" + std::string` here.
  if (!state.empty()) {
    out += '@';
    out += state.c_str();
  }
  out += ".png";
  return ruString::CString(out.c_str());
}

ImageKey Loader::createImageKey(const ruString::CString& name, int flags) { return createImageKey(name, "", flags); }

ImageKey Loader::createImageKey(const ruString::CString& name, const ruString::CString& state, int) {
  const auto key = std::make_pair(std::string(name.c_str()), std::string(state.c_str()));
  if (auto cached = impl_->named.find(key); cached != impl_->named.end()) return cached->second;
  ru::Reference<ImageKeyData> data(new ImageKeyData());
  data->name_ = name;
  data->state_ = state;
  if (auto registered = impl_->registered.find(key); registered != impl_->registered.end()) {
    data->image_ = registered->second;
    data->loaded_ = true;
  } else {
    const ruString::CString file = fileName(name, state);
    for (const ruString::CString& folder : impl_->folders) {
      const std::filesystem::path path = std::filesystem::path(folder.c_str()) / file.c_str();
      std::error_code error;
      if (std::filesystem::is_regular_file(path, error)) {
        data->path_ = path.string().c_str();
        break;
      }
    }
    if (data->path_.empty()) {
      if (!impl_->builtins || !isBuiltinImage(name, state)) return ImageKey();
      ruString::CString error;
      ru::Reference<ruImage::TypedImage<ruImage::Byte4>> drawn = drawBuiltinImage(name, state, &error);
      if (!drawn) {
        voSupport::Debug::getInstance().print(DebugResources, "voRES::Loader::createImageKey", "%s", error.c_str());
        return ImageKey();
      }
      data->image_ = drawn;
      data->loaded_ = true;
    }
  }
  ImageKey result(data);
  impl_->named[key] = result;
  return result;
}

ImageKey Loader::createImageKey(const ru::Reference<ImageGenerator>& generator, const ImageKeys& inputs, int) {
  if (!generator) return ImageKey();
  const std::uint64_t hash = generator->hash();
  auto [first, last] = impl_->generated.equal_range(hash);
  for (auto it = first; it != last; ++it) {
    const ImageKeyData& entry = *it->second.get();
    if (entry.generator_->compare(generator.get()) == 0 && entry.inputs_ == inputs) return it->second;
  }
  ru::Reference<ImageKeyData> data(new ImageKeyData());
  data->generator_ = generator;
  data->inputs_ = inputs;
  ImageKey result(data);
  impl_->generated.emplace(hash, result);
  return result;
}

ImageKey Loader::keyForImage(ru::Reference<ruImage::Image> image, const ruString::CString& name) {
  if (!image) return ImageKey();
  ru::Reference<ImageKeyData> data(new ImageKeyData());
  data->name_ = name;
  data->image_ = std::move(image);
  data->loaded_ = true;
  return ImageKey(data);
}

std::size_t Loader::numCachedKeys() const noexcept { return impl_->named.size() + impl_->generated.size(); }

void Loader::clearCache() {
  impl_->named.clear();
  impl_->generated.clear();
}

} // namespace voRES
