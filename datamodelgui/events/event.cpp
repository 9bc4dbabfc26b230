#include "datamodelgui/events/event.h"

#include "datamodelgui/events/touch.h"
#include "platform/support/debug.h"
#include "platform/support/plist.h"

#include <cmath>
#include <cstdarg>
#include <iterator>
#include <limits>

namespace voEV {

namespace {

constexpr const char* eventTypeNames[] = {
    "None",       "MouseButtonPress", "MouseButtonRelease", "MouseMove", "MouseMotion",
    "Wheel",      "KeyPress",         "KeyRelease",         "ScrenTouch", "MouseHover",
    "PenDown",    "PenMove",          "PenUp",              "PenHover",
};

constexpr const char* interactionNames[] = {
    "Undecided",   "ClickMouse",  "DragMouse",   "PressMouse", "TapTouch",
    "DragTouch",   "DblTapTouch", "DblDragTouch", "PressTouchInteraction", "DblPressTouchInteraction",
    "TrplTapTouchInteraction", "MouseMotion", "MouseHover", "Keyboard", "DragPen",
    "PressPen",    "TapPen",
};

// The look-up names differ from the display names above and stop at Keyboard (13): the pen kinds
// cannot be found by name.
constexpr const char* interactionLookupNames[] = {
    "Undecided", "ClickMouse", "DragMouse",     "PressMouse",   "TapTouch",   "DragTouch",  "DblTapTouch",
    "DblDragTouch", "PressTouch", "DblPressTouch", "TrplTapTouch", "MouseMotion", "MouseHover", "Keyboard",
};

struct KeyName {
  KeyCode key;
  const char* name;
};

constexpr KeyName keyNames[] = {
    {KeyNone, "KeyNone"},     {KeyEscape, "KeyEscape"}, {KeyTab, "KeyTab"},   {KeyBackspace, "KeyBackspace"},
    {KeyDelete, "KeyDelete"}, {KeyReturn, "KeyReturn"}, {KeyLeft, "KeyLeft"}, {KeyUp, "KeyUp"},
    {KeyRight, "KeyRight"},   {KeyDown, "KeyDown"},     {KeyHome, "KeyHome"}, {KeySpace, "KeySpace"},
    {KeyA, "KeyA"},           {KeyB, "KeyB"},           {KeyC, "KeyC"},       {KeyD, "KeyD"},
    {KeyE, "KeyE"},           {KeyF, "KeyF"},           {KeyG, "keyG"},  // lower case on purpose
    {KeyH, "KeyH"},           {KeyI, "KeyI"},           {KeyJ, "KeyJ"},       {KeyK, "KeyK"},
    {KeyL, "KeyL"},           {KeyM, "KeyM"},           {KeyN, "KeyN"},       {KeyO, "KeyO"},
    {KeyP, "KeyP"},           {KeyQ, "KeyQ"},           {KeyR, "KeyR"},       {KeyS, "KeyS"},
    {KeyT, "KeyT"},           {KeyU, "KeyU"},           {KeyV, "KeyV"},       {KeyW, "KeyW"},
    {KeyX, "KeyX"},           {KeyY, "KeyY"},           {KeyZ, "KeyZ"},       {Key0, "Key0"},
    {Key1, "Key1"},           {Key2, "Key2"},           {Key3, "Key3"},       {Key4, "Key4"},
    {Key5, "Key5"},           {Key6, "Key6"},           {Key7, "Key7"},       {Key8, "Key8"},
    {Key9, "Key9"},           {KeyF1, "KeyF1"},         {KeyF2, "KeyF2"},     {KeyF3, "KeyF3"},
    {KeyF4, "KeyF4"},         {KeyF5, "KeyF5"},         {KeyF6, "KeyF6"},     {KeyF7, "KeyF7"},
    {KeyF8, "KeyF8"},         {KeyF9, "KeyF9"},         {KeyF10, "KeyF10"},   {KeyF11, "KeyF11"},
    {KeyF12, "KeyF12"},
};
static_assert(std::size(keyNames) == 60);
static_assert(std::size(eventTypeNames) == 14);
static_assert(std::size(interactionNames) == 17);
static_assert(std::size(interactionLookupNames) == 14);

// Joins the names of the set bits with a comma and no blank.
template <std::size_t N>
ruString::CString joinBits(int mask, const char* const (&names)[N]) {
  ruString::CString text;
  for (std::size_t bit = 0; bit < N; ++bit) {
    if (!(mask & (1 << bit))) continue;
    if (!text.empty()) text += ',';
    text += names[bit];
  }
  return text;
}

constexpr const char* buttonNames[] = {"ButtonLeft", "ButtonRight", "ButtonMiddle"};
constexpr const char* modifierNames[] = {"Shift", "Ctrl", "Alt", "Meta"};

// Prints a repeating key event too; off, with no setter, so that auto-repeat does not flood the log.
bool printKeyRepeats = false;

void line(const char* format, ...) __attribute__((format(printf, 1, 2)));
void line(const char* format, ...) {
  voSupport::Debug& debug = voSupport::Debug::getInstance();
  if (!debug.isEnabled(voSupport::DebugEvents)) return;
  va_list args;
  va_start(args, format);
  debug.printV(voSupport::DebugEvents, "", format, args);
  va_end(args);
}

}  // namespace

ruString::CString Point::asString() const { return ruString::CString::format("(%d,%d)", x, y); }

ruString::CString asString(EventType type) {
  // Out-of-table values have no name: an empty text, like the other tables of the layer.
  if (type < 0 || static_cast<std::size_t>(type) >= std::size(eventTypeNames)) return {};
  return eventTypeNames[type];
}

ruString::CString asString(InteractionType interaction) {
  if (interaction < 0 || static_cast<std::size_t>(interaction) >= std::size(interactionNames)) return {};
  return interactionNames[interaction];
}

ruString::CString asString(KeyCode key) {
  for (const KeyName& entry : keyNames) {
    if (entry.key == key) return entry.name;
  }
  return {};
}

bool eventType(const ruString::CString& name, EventType& type) {
  for (std::size_t i = 0; i < std::size(eventTypeNames); ++i) {
    if (name == eventTypeNames[i]) {
      type = static_cast<EventType>(i);
      return true;
    }
  }
  type = None;
  return false;
}

bool interactionType(const ruString::CString& name, InteractionType& interaction) {
  for (std::size_t i = 0; i < std::size(interactionLookupNames); ++i) {
    if (name == interactionLookupNames[i]) {
      interaction = static_cast<InteractionType>(i);
      return true;
    }
  }
  interaction = UndecidedInteraction;
  return false;
}

bool getKeyCode(const ruString::CString& name, KeyCode& key) {
  for (const KeyName& entry : keyNames) {
    if (name == entry.name) {
      key = entry.key;
      return true;
    }
  }
  return false;
}

ruString::CString buttonsAsString(int buttonMask) { return joinBits(buttonMask, buttonNames); }

ruString::CString modifiersAsString(int modifierMask) { return joinBits(modifierMask, modifierNames); }

InteractionType mapToMouse(InteractionType interaction) {
  switch (interaction) {
    case TapTouchInteraction:
    case TapPenInteraction:
      return ClickMouseInteraction;
    case DragTouchInteraction:
    case DragPenInteraction:
      return DragMouseInteraction;
    case PressTouchInteraction:
    case PressPenInteraction:
      return PressMouseInteraction;
    default:
      return interaction;
  }
}

// ---------------------------------------------------------------------------------------------
// Event

Event::~Event() = default;

ru::Reference<Event> Event::clone() const { return ru::Reference<Event>(onClone()); }

ru::Reference<Event> Event::createInteractionEnd() const { return ru::Reference<Event>(onCreateInteractionEnd()); }

// ---------------------------------------------------------------------------------------------
// MouseEvent

MouseEvent::MouseEvent(EventType type, int button, int buttonMask, int modifierMask, int clickCount,
                       const Point& position, double timestamp) noexcept
    : Event(type),
      button_(button),
      buttonMask_(buttonMask),
      modifierMask_(modifierMask),
      clickCount_(clickCount),
      position_(position),
      timestamp_(timestamp) {}

MouseEvent::~MouseEvent() = default;

ru::Reference<MouseEvent> MouseEvent::create(EventType type, int button, int buttonMask, int modifierMask,
                                             int clickCount, const Point& position, double timestamp) {
  return ru::Reference<MouseEvent>(
      new MouseEvent(type, button, buttonMask, modifierMask, clickCount, position, timestamp));
}

bool MouseEvent::isFirstButtonPress() const noexcept {
  return getType() == MouseButtonPress && buttonMask_ == button_;
}

bool MouseEvent::isFirstButtonPress(MouseButtonMask button) const noexcept {
  return isFirstButtonPress() && button_ == button;
}

bool MouseEvent::isLastButtonRelease() const noexcept { return getType() == MouseButtonRelease && buttonMask_ == 0; }

bool MouseEvent::isLastButtonRelease(MouseButtonMask button) const noexcept {
  return isLastButtonRelease() && button_ == button;
}

Event* MouseEvent::onClone() const { return new MouseEvent(*this); }

Event* MouseEvent::onCreateInteractionEnd() const { return nullptr; }

// ---------------------------------------------------------------------------------------------
// WheelEvent

WheelEvent::WheelEvent(EventType type, int buttonMask, int modifierMask, const Point& position, int delta) noexcept
    : Event(type), buttonMask_(buttonMask), modifierMask_(modifierMask), position_(position), delta_(delta) {}

WheelEvent::~WheelEvent() = default;

ru::Reference<WheelEvent> WheelEvent::create(EventType type, int buttonMask, int modifierMask, const Point& position,
                                             int delta) {
  return ru::Reference<WheelEvent>(new WheelEvent(type, buttonMask, modifierMask, position, delta));
}

Event* WheelEvent::onClone() const { return new WheelEvent(*this); }

Event* WheelEvent::onCreateInteractionEnd() const { return nullptr; }

// ---------------------------------------------------------------------------------------------
// KeyEvent

KeyEvent::KeyEvent(EventType type, KeyCode key, bool repeat, int modifierMask, const ruString::IString& string,
                   const ruString::IString& internString, int cursorPos, int anchorPos)
    : Event(type),
      keyCode_(key),
      repeat_(repeat),
      modifierMask_(modifierMask),
      string_(string),
      internString_(internString),
      cursorPos_(cursorPos),
      anchorPos_(anchorPos) {}

KeyEvent::~KeyEvent() = default;

ru::Reference<KeyEvent> KeyEvent::create(EventType type, KeyCode key, bool repeat, int modifierMask) {
  return ru::Reference<KeyEvent>(new KeyEvent(type, key, repeat, modifierMask, {}, {}, 0, 0));
}

ru::Reference<KeyEvent> KeyEvent::create(EventType type, KeyCode key, bool repeat, int modifierMask,
                                         const ruString::IString& string, const ruString::IString& internString) {
  return ru::Reference<KeyEvent>(new KeyEvent(type, key, repeat, modifierMask, string, internString, 0, 0));
}

ru::Reference<KeyEvent> KeyEvent::create(EventType type, KeyCode key, bool repeat, int modifierMask,
                                         const ruString::IString& string, const ruString::IString& internString,
                                         int cursorPos, int anchorPos) {
  return ru::Reference<KeyEvent>(
      new KeyEvent(type, key, repeat, modifierMask, string, internString, cursorPos, anchorPos));
}

Event* KeyEvent::onClone() const { return new KeyEvent(*this); }

Event* KeyEvent::onCreateInteractionEnd() const { return nullptr; }

// ---------------------------------------------------------------------------------------------
// Pen

HistoricalPenData::HistoricalPenData(ru::vector<HistoricalPenEvent>& events) { events_.swap(events); }

HistoricalPenData::~HistoricalPenData() = default;

PenEvent::PenEvent(EventType type, const Point& position, double timestamp, float pressure, bool erase)
    : Event(type), position_(position), timestamp_(timestamp), pressure_(pressure), erase_(erase) {}

PenEvent::PenEvent(EventType type, const Point& position, double timestamp, float pressure, bool erase,
                   ru::Reference<HistoricalPenData> historicalData)
    : Event(type),
      position_(position),
      timestamp_(timestamp),
      pressure_(pressure),
      erase_(erase),
      historicalData_(std::move(historicalData)) {}

PenEvent::~PenEvent() = default;

ru::Reference<MouseEvent> PenEvent::asMouseEvent() const {
  EventType type = MouseMove;
  int buttonMask = 0;
  switch (getType()) {
    case PenDown:
      type = MouseButtonPress;
      buttonMask = 1;
      break;
    case PenMove:
      type = MouseMove;
      buttonMask = 1;
      break;
    case PenUp:
      type = MouseButtonRelease;
      break;
    case PenHover:
      type = MouseMotion;
      break;
    default:
      break;
  }
  return MouseEvent::create(type, 1, buttonMask, 0, 0, position_, timestamp_);
}

// The clone shares the history by reference.
Event* PenEvent::onClone() const { return new PenEvent(*this); }

Event* PenEvent::onCreateInteractionEnd() const {
  if (getType() != PenDown && getType() != PenMove) return nullptr;
  return new PenEvent(PenUp, position_, timestamp_, pressure_, erase_);
}

// ---------------------------------------------------------------------------------------------
// MapEvent

MapEvent::MapEvent(const Event& event, InteractionType interaction)
    : source_(&event), interaction_(interaction) {
  // Hold the source while it is shared; an event nobody counts (one on the caller's stack) must not
  // be deleted by this wrapper letting go of it.
  if (event.refCount() > 0) keeper_ = &event;
}

MapEvent::~MapEvent() = default;

InteractionType MapEvent::type(bool toMouse) const noexcept {
  return toMouse ? mapToMouse(interaction_) : interaction_;
}

const Event& MapEvent::event(bool toMouse) {
  if (!toMouse) return *source_;
  if (mouse_) return *mouse_;
  switch (source_->getType()) {
    case ScrenTouch: {
      auto* touchEvent = dynamic_cast<const TouchEvent*>(source_);
      if (!touchEvent || touchEvent->getTouches().empty()) return *source_;
      mouse_ = touchEvent->getAnyTouch()->asMouseEvent();
      return *mouse_;
    }
    case PenDown:
    case PenMove:
    case PenUp: {
      auto* pen = dynamic_cast<const PenEvent*>(source_);
      if (!pen) return *source_;
      mouse_ = pen->asMouseEvent();
      return *mouse_;
    }
    default:
      return *source_;
  }
}

// ---------------------------------------------------------------------------------------------
// Free functions

Point position(const Event& event) {
  switch (event.getType()) {
    case MouseButtonPress:
    case MouseButtonRelease:
    case MouseMove:
    case MouseMotion:
      if (auto* mouse = dynamic_cast<const MouseEvent*>(&event)) return mouse->getPosition();
      return {};
    case ScrenTouch:
      if (auto* touch = dynamic_cast<const TouchEvent*>(&event); touch && !touch->getTouches().empty()) {
        return touch->getAnyTouch()->getPosition();
      }
      return {};
    default:
      return {};
  }
}

void print(const Event& event) {
  if (!voSupport::Debug::getInstance().isEnabled(voSupport::DebugEvents)) return;
  // The concrete class is looked up in the order mouse, key, touch, wheel, pen.
  if (auto* mouse = dynamic_cast<const MouseEvent*>(&event)) {
    line("MouseEvent:");
    line("  type: %s", asString(mouse->getType()).c_str());
    line("  button: %s", buttonsAsString(mouse->getButton()).c_str());
    line("  buttons: %s", buttonsAsString(mouse->getButtonMask()).c_str());
    line("  modifiers: %s", modifiersAsString(mouse->getModifierMask()).c_str());
    line("  clickCount: %d", mouse->getClickCount());
    line("  pos: %s\n", mouse->getPosition().asString().c_str());
  } else if (auto* key = dynamic_cast<const KeyEvent*>(&event)) {
    if (key->isRepeat() && !printKeyRepeats) return;
    line("KeyEvent:");
    line("  type: %s", asString(key->getType()).c_str());
    line("  key: %s", asString(key->getKeyCode()).c_str());
    line("  repeat: %s", key->isRepeat() ? "true" : "false");
    line("  modifiers: %s\n", modifiersAsString(key->getModifierMask()).c_str());
  } else if (auto* touch = dynamic_cast<const TouchEvent*>(&event)) {
    line("TouchEvent:\n");
    if (const auto& history = touch->getHistoricalData()) line("  historical events: %d\n", history->getNumEvents());
    for (const auto& [id, record] : touch->getTouches()) {
      line("  Touch(%p):", static_cast<const void*>(record.get()));
      line("  id: %d", record->getID());
      line("  phase: %s", asString(record->getPhase()).c_str());
      line("  pos: %s", record->getPosition().asString().c_str());
      line("  prevPos: %s", record->getPreviousPosition().asString().c_str());
      line("  tapCount: %d", record->getTapCount());
      line("  timestamp: %f\n", record->getTimestamp());
    }
  } else if (auto* wheel = dynamic_cast<const WheelEvent*>(&event)) {
    line("WheelEvent:");
    line("  type: %s", asString(wheel->getType()).c_str());
    line("  modifiers: %s", modifiersAsString(wheel->getModifierMask()).c_str());
    line("  buttons: %s", buttonsAsString(wheel->getButtonMask()).c_str());
    line("  pos: %s", wheel->getPosition().asString().c_str());
    line("  delta: %d\n", wheel->getDelta());
  } else if (auto* pen = dynamic_cast<const PenEvent*>(&event)) {
    line("PenEvent:");
    if (const auto& history = pen->getHistoricalData()) {
      line("  historical events: %d\n", history->getNumEvents());
      for (int i = 0; i < history->getNumEvents(); ++i) {
        const HistoricalPenEvent& sample = history->getEvents()[i];
        line("     %d", i);
        line("       pos: %s", sample.position.asString().c_str());
        line("       timestamp: %f", sample.timestamp);
        line("       pressure: %f", static_cast<double>(sample.pressure));
      }
    }
    line("  type: %s", asString(pen->getType()).c_str());
    line("  pos: %s", pen->getPosition().asString().c_str());
    line("  timestamp: %f", pen->getTimestamp());
    line("  pressure: %f", static_cast<double>(pen->getPressure()));
    line("  erase: %s", pen->isErase() ? "true" : "false");
  }
}

// ---------------------------------------------------------------------------------------------
// Property lists

namespace {

ru::Reference<voPLST::Item> pointItem(const Point& point) {
  ru::Reference<voPLST::Array> array(new voPLST::Array);
  array->appendDouble(point.x);
  array->appendDouble(point.y);
  return array;
}

// Readers of one key: false when the key is missing or holds another kind of item.
bool readDouble(const voPLST::Dictionary& dictionary, const char* key, double& value) {
  const voPLST::Item* item = dictionary.find(key);
  if (!item || item->kind() != voPLST::Kind::Double) return false;
  value = item->value().toDouble();
  return std::isfinite(value);
}

bool readInt(const voPLST::Dictionary& dictionary, const char* key, int& value) {
  double number = 0.0;
  if (!readDouble(dictionary, key, number)) return false;
  // Integers are stored as doubles and truncated on reading; values an int cannot hold are refused.
  if (number <= -2147483649.0 || number >= 2147483648.0) return false;
  value = static_cast<int>(number);
  return true;
}

bool readBool(const voPLST::Dictionary& dictionary, const char* key, bool& value) {
  const voPLST::Item* item = dictionary.find(key);
  if (!item || item->kind() != voPLST::Kind::Boolean) return false;
  value = item->value().toBool();
  return true;
}

bool readPoint(const voPLST::Item* item, Point& point) {
  const voPLST::Array* array = item ? item->asArray() : nullptr;
  if (!array || array->size() != 2) return false;
  double coordinates[2];
  for (std::size_t i = 0; i < 2; ++i) {
    const voPLST::Item* coordinate = array->at(i);
    if (coordinate->kind() != voPLST::Kind::Double) return false;
    coordinates[i] = coordinate->value().toDouble();
    if (!(coordinates[i] > -2147483649.0 && coordinates[i] < 2147483648.0)) return false;
  }
  point = Point(ruLinear::Point2(coordinates[0], coordinates[1]));
  return true;
}

bool readPoint(const voPLST::Dictionary& dictionary, const char* key, Point& point) {
  return readPoint(dictionary.find(key), point);
}

}  // namespace

void convert(ru::Reference<voPLST::Item>& item, const Touch& touch) {
  ru::Reference<voPLST::Dictionary> dictionary(new voPLST::Dictionary);
  dictionary->setDouble("id", touch.getID());
  dictionary->set("position", pointItem(touch.getPosition()));
  dictionary->set("prevPosition", pointItem(touch.getPreviousPosition()));
  dictionary->setDouble("tapCount", touch.getTapCount());
  dictionary->setDouble("phase", touch.getPhase());
  dictionary->setDouble("timestamp", touch.getTimestamp());
  item = dictionary;
}

bool convert(ru::Reference<Touch>& touch, const voPLST::Item& item) {
  const voPLST::Dictionary* dictionary = item.asDictionary();
  if (!dictionary) return false;
  int id = 0, tapCount = 0, phase = 0;
  double timestamp = 0.0;
  Point position, prevPosition;
  if (!readInt(*dictionary, "id", id) || !readPoint(*dictionary, "position", position) ||
      !readPoint(*dictionary, "prevPosition", prevPosition) || !readInt(*dictionary, "tapCount", tapCount) ||
      !readInt(*dictionary, "phase", phase) || !readDouble(*dictionary, "timestamp", timestamp)) {
    return false;
  }
  if (phase < TouchBegan || phase > TouchCancelled) return false;
  touch = new Touch(id, position, prevPosition, tapCount, static_cast<TouchPhase>(phase), timestamp);
  return true;
}

ru::Reference<voPLST::Item> asPList(const Event& event) {
  const EventType type = event.getType();
  ru::Reference<voPLST::Dictionary> dictionary(new voPLST::Dictionary);
  if (type >= MouseButtonPress && type <= Wheel) {
    // The mouse form, which the wheel shares. A wheel event has no button, click count or time:
    // it writes 0 for those three, and its delta has no key in this form.
    int button = 0, buttonMask = 0, modifierMask = 0, clickCount = 0;
    Point where;
    double timestamp = 0.0;
    if (auto* mouse = dynamic_cast<const MouseEvent*>(&event)) {
      button = mouse->getButton();
      buttonMask = mouse->getButtonMask();
      modifierMask = mouse->getModifierMask();
      clickCount = mouse->getClickCount();
      where = mouse->getPosition();
      timestamp = mouse->getTimestamp();
    } else if (auto* wheel = dynamic_cast<const WheelEvent*>(&event)) {
      buttonMask = wheel->getButtonMask();
      modifierMask = wheel->getModifierMask();
      where = wheel->getPosition();
    } else {
      return nullptr;
    }
    dictionary->setDouble("type", type);
    dictionary->setDouble("button", button);
    dictionary->setDouble("buttonMask", buttonMask);
    dictionary->setDouble("modifierMask", modifierMask);
    dictionary->setDouble("clickCount", clickCount);
    dictionary->set("position", pointItem(where));
    dictionary->setDouble("timestamp", timestamp);
    return dictionary;
  }
  if (type == ScrenTouch) {
    auto* touchEvent = dynamic_cast<const TouchEvent*>(&event);
    if (!touchEvent) return nullptr;
    ru::Reference<voPLST::Array> touches(new voPLST::Array);
    for (const auto& [id, touch] : touchEvent->getTouches()) {
      ru::Reference<voPLST::Item> item;
      convert(item, *touch);
      touches->append(item);
    }
    dictionary->setDouble("type", type);
    dictionary->set("touches", touches);
    return dictionary;
  }
  if (type >= PenDown && type <= PenHover) {
    auto* pen = dynamic_cast<const PenEvent*>(&event);
    if (!pen) return nullptr;
    dictionary->setDouble("type", type);
    dictionary->set("position", pointItem(pen->getPosition()));
    dictionary->setDouble("timestamp", pen->getTimestamp());
    dictionary->setDouble("pressure", static_cast<double>(pen->getPressure()));
    dictionary->setBool("erase", pen->isErase());
    return dictionary;
  }
  return nullptr;
}

ru::Reference<Event> asEvent(ru::Reference<const voPLST::Item> item) {
  const voPLST::Dictionary* dictionary = item ? item->asDictionary() : nullptr;
  if (!dictionary) return nullptr;
  int type = 0;
  if (!readInt(*dictionary, "type", type)) return nullptr;
  if (type >= MouseButtonPress && type <= Wheel) {
    // A wheel record comes back through the mouse form too, as a MouseEvent of type Wheel.
    int button = 0, buttonMask = 0, modifierMask = 0, clickCount = 0;
    Point where;
    double timestamp = 0.0;
    if (!readInt(*dictionary, "button", button) || !readInt(*dictionary, "buttonMask", buttonMask) ||
        !readInt(*dictionary, "modifierMask", modifierMask) || !readInt(*dictionary, "clickCount", clickCount) ||
        !readPoint(*dictionary, "position", where) || !readDouble(*dictionary, "timestamp", timestamp)) {
      return nullptr;
    }
    // Kept as it always was: the mouse form loses the fraction of its time on reading.
    timestamp = std::trunc(timestamp);
    return MouseEvent::create(static_cast<EventType>(type), button, buttonMask, modifierMask, clickCount, where,
                              timestamp);
  }
  if (type == ScrenTouch) {
    const voPLST::Item* touchesItem = dictionary->find("touches");
    const voPLST::Array* touches = touchesItem ? touchesItem->asArray() : nullptr;
    if (!touches) return nullptr;
    TouchMap map;
    for (const auto& entry : *touches) {
      ru::Reference<Touch> touch;
      if (!entry || !convert(touch, *entry)) return nullptr;
      map[touch->getID()] = touch;
    }
    return ru::Reference<Event>(new TouchEvent(map));
  }
  if (type >= PenDown && type <= PenHover) {
    Point where;
    double timestamp = 0.0, pressure = 0.0;
    bool erase = false;
    if (!readPoint(*dictionary, "position", where) || !readDouble(*dictionary, "timestamp", timestamp) ||
        !readDouble(*dictionary, "pressure", pressure) || !readBool(*dictionary, "erase", erase)) {
      return nullptr;
    }
    // The pressure is kept as a float: a value a float cannot hold is refused, as for the ints.
    if (std::fabs(pressure) > static_cast<double>(std::numeric_limits<float>::max())) return nullptr;
    return ru::Reference<Event>(
        new PenEvent(static_cast<EventType>(type), where, timestamp, static_cast<float>(pressure), erase));
  }
  return nullptr;
}

}  // namespace voEV
