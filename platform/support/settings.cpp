#include "platform/support/settings.h"

namespace voSupport {

namespace {
double movingGestureThreshold = 5.0;
int hitTestRadius = 4;
double displayDPI = 96.0;
}  // namespace

double getMovingGestureThreshold() noexcept { return movingGestureThreshold; }
void setMovingGestureThreshold(double pixels) noexcept { movingGestureThreshold = pixels; }
int getHitTestRadius() noexcept { return hitTestRadius; }
void setHitTestRadius(int pixels) noexcept { hitTestRadius = pixels; }
double getDisplayDPI() noexcept { return displayDPI; }
void setDisplayDPI(double dotsPerInch) noexcept { displayDPI = dotsPerInch; }

PropertySet::~PropertySet() = default;

Property* PropertySet::find(const ruString::CString& key) const noexcept {
  auto it = properties_.find(key);
  return it == properties_.end() ? nullptr : it->second.get();
}

void PropertySet::add(const ruString::CString& key, ru::Reference<Property> property) {
  if (!property) {
    remove(key);
    return;
  }
  properties_[key] = std::move(property);
  sigChanged.emit(key);
}

bool PropertySet::remove(const ruString::CString& key) {
  if (properties_.erase(key) == 0) return false;
  sigChanged.emit(key);
  return true;
}

ru::vector<ruString::CString> PropertySet::keys() const {
  ru::vector<ruString::CString> out;
  out.reserve(properties_.size());
  for (const auto& entry : properties_) out.push_back(entry.first);
  return out;
}

}  // namespace voSupport
