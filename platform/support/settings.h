#pragma once

#include "platform/base/containers.h"
#include "platform/base/reference.h"
#include "platform/base/signal.h"
#include "platform/base/strings.h"
#include "platform/support/export.h"
#include "platform/support/plist.h"

#include <type_traits>

namespace voSupport {

// Input and display parameters of the process. Readers call the getters at every use, so a change
// takes effect at once.
// Distance in pixels within which a pointer counts as not having moved (5 by default).
VO_SUPPORT_API double getMovingGestureThreshold() noexcept;
VO_SUPPORT_API void setMovingGestureThreshold(double pixels) noexcept;
// Radius in pixels of the disc tested around the cursor by hit testing (4 by default).
VO_SUPPORT_API int getHitTestRadius() noexcept;
VO_SUPPORT_API void setHitTestRadius(int pixels) noexcept;
// Dots per inch of the display (96 by default).
VO_SUPPORT_API double getDisplayDPI() noexcept;
VO_SUPPORT_API void setDisplayDPI(double dotsPerInch) noexcept;

// One application setting. Its value is a property-list item.
class VO_SUPPORT_API Property : public ru::ReferenceCount {
public:
  // A copy that stands outside any transaction: reading it is unaffected by later edits.
  virtual ru::Reference<Property> cloneUnTxd() const = 0;
  // The value as a property-list item (never null).
  virtual ru::Reference<voPLST::Item> value() const = 0;
  // Sets the value from an item of a convertible kind; false (and no change) otherwise.
  virtual bool setValue(const voPLST::Item& item) = 0;
};

// A setting holding a T: bool, int, double or ruString::CString.
template <class T>
class PropertyTBase : public Property {
  static_assert(std::is_same_v<T, bool> || std::is_same_v<T, int> || std::is_same_v<T, double> ||
                    std::is_same_v<T, ruString::CString>,
                "a setting holds a bool, an int, a double or a ruString::CString");

public:
  explicit PropertyTBase(T value = T()) : value_(std::move(value)) {}

  const T& getValue() const noexcept { return value_; }
  void setValue(T value) { value_ = std::move(value); }
  // Shorter spellings of the two above.
  const T& get() const noexcept { return value_; }
  void set(T value) { setValue(std::move(value)); }

  ru::Reference<Property> cloneUnTxd() const override { return ru::Reference<Property>(new PropertyTBase(value_)); }
  ru::Reference<voPLST::Item> value() const override {
    if constexpr (std::is_same_v<T, bool>) {
      return ru::Reference<voPLST::Item>(new voPLST::Boolean(value_));
    } else if constexpr (std::is_same_v<T, ruString::CString>) {
      return ru::Reference<voPLST::Item>(new voPLST::String(value_));
    } else {
      return ru::Reference<voPLST::Item>(new voPLST::Double(static_cast<double>(value_)));
    }
  }
  bool setValue(const voPLST::Item& item) override {
    if (!item.isValue()) return false;
    const voPLST::ValueBase& scalar = item.value();
    if constexpr (std::is_same_v<T, bool>) {
      value_ = scalar.toBool();
    } else if constexpr (std::is_same_v<T, int>) {
      value_ = static_cast<int>(scalar);
    } else if constexpr (std::is_same_v<T, double>) {
      value_ = scalar.toDouble();
    } else {
      value_ = scalar.toString();
    }
    return true;
  }

private:
  T value_;
};

// The application settings, by full key ("vo.app.settings.showOutOfBounds").
class VO_SUPPORT_API PropertySet {
public:
  PropertySet() = default;
  PropertySet(const PropertySet&) = delete;
  PropertySet& operator=(const PropertySet&) = delete;
  ~PropertySet();

  // The setting under `key`, or null. The set keeps it alive while it holds it.
  Property* find(const ruString::CString& key) const noexcept;
  // Adds or replaces a setting; a null property removes the key. Emits sigChanged.
  void add(const ruString::CString& key, ru::Reference<Property> property);
  bool remove(const ruString::CString& key);

  // Sets a typed setting, making it when absent or of another type. Emits sigChanged.
  template <class T>
  void set(const ruString::CString& key, T value) {
    using Stored = std::conditional_t<std::is_convertible_v<T, ruString::CString> && !std::is_same_v<T, bool>,
                                      ruString::CString, T>;
    if (auto* typed = dynamic_cast<PropertyTBase<Stored>*>(find(key))) {
      typed->setValue(Stored(std::move(value)));
      sigChanged.emit(key);
      return;
    }
    add(key, ru::Reference<Property>(new PropertyTBase<Stored>(Stored(std::move(value)))));
  }
  // The typed value under `key`, or `fallback` when absent or of another type.
  template <class T>
  T get(const ruString::CString& key, T fallback) const {
    if (auto* typed = dynamic_cast<const PropertyTBase<T>*>(find(key))) return typed->getValue();
    return fallback;
  }

  std::size_t size() const noexcept { return properties_.size(); }
  ru::vector<ruString::CString> keys() const;

  ruRTB::SignalArg<const ruString::CString&> sigChanged;

private:
  ru::map<ruString::CString, ru::Reference<Property>> properties_;
};

}  // namespace voSupport
