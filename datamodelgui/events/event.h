#pragma once

#include "datamodelgui/export.h"
#include "platform/base/containers.h"
#include "platform/base/linear.h"
#include "platform/base/reference.h"
#include "platform/base/strings.h"

#include <cstdint>

namespace voPLST {
class Item;
}

// Event records of the input layer: what the host makes of every raw platform event before it
// hands it to voEV::Dispatcher. All positions are screen pixels, all times seconds.
namespace voEV {

// A screen position in whole pixels.
struct DMGUI_API Point {
  std::int32_t x = 0;
  std::int32_t y = 0;

  Point() noexcept = default;
  Point(std::int32_t x_, std::int32_t y_) noexcept : x(x_), y(y_) {}
  // Truncates each coordinate toward zero; no rounding, so (-1.9, 2.9) gives (-1, 2).
  explicit Point(const ruLinear::Point2& point) noexcept
      : x(static_cast<std::int32_t>(point.x)), y(static_cast<std::int32_t>(point.y)) {}

  ruLinear::Point2 asPoint2() const noexcept { return {static_cast<double>(x), static_cast<double>(y)}; }
  // "(x,y)".
  ruString::CString asString() const;

  bool operator==(const Point& other) const noexcept { return x == other.x && y == other.y; }
  bool operator!=(const Point& other) const noexcept { return !(*this == other); }
};

// Kinds of event. The names (asString) are fixed texts; "ScrenTouch" is spelt so on purpose.
enum EventType : int {
  None = 0,
  MouseButtonPress = 1,
  MouseButtonRelease = 2,
  MouseMove = 3,    // movement with a button held; goes through the parser
  MouseMotion = 4,  // movement with no interaction running; goes straight to clients
  Wheel = 5,
  KeyPress = 6,
  KeyRelease = 7,
  ScrenTouch = 8,
  MouseHover = 9,  // a client-facing hover query
  PenDown = 10,
  PenMove = 11,
  PenUp = 12,
  PenHover = 13,
};

// Kinds of interaction a gesture can recognise.
enum InteractionType : int {
  UndecidedInteraction = 0,
  ClickMouseInteraction = 1,
  DragMouseInteraction = 2,
  PressMouseInteraction = 3,
  TapTouchInteraction = 4,
  DragTouchInteraction = 5,
  DblTapTouchInteraction = 6,
  DblDragTouchInteraction = 7,
  PressTouchInteraction = 8,
  DblPressTouchInteraction = 9,
  TrplTapTouchInteraction = 10,
  MouseMotionInteraction = 11,
  MouseHoverInteraction = 12,
  KeyboardInteraction = 13,
  DragPenInteraction = 14,
  PressPenInteraction = 15,
  TapPenInteraction = 16,
};

enum KeyCode : int {
  KeyNone = 0,
  KeyEscape,
  KeyTab,
  KeyBackspace,
  KeyDelete,
  KeyReturn,
  KeyLeft,
  KeyUp,
  KeyRight,
  KeyDown,
  KeyHome,
  KeySpace,  // 11
  KeyA,      // 12
  KeyB,
  KeyC,
  KeyD,
  KeyE,
  KeyF,
  KeyG,  // 18; its name is "keyG", lower case, and stays so
  KeyH,
  KeyI,
  KeyJ,
  KeyK,
  KeyL,
  KeyM,
  KeyN,
  KeyO,
  KeyP,
  KeyQ,
  KeyR,
  KeyS,
  KeyT,
  KeyU,
  KeyV,
  KeyW,
  KeyX,
  KeyY,
  KeyZ,  // 37
  Key0,  // 38
  Key1,
  Key2,
  Key3,
  Key4,
  Key5,
  Key6,
  Key7,
  Key8,
  Key9,   // 47
  KeyF1,  // 48
  KeyF2,
  KeyF3,
  KeyF4,
  KeyF5,
  KeyF6,
  KeyF7,
  KeyF8,
  KeyF9,
  KeyF10,
  KeyF11,
  KeyF12,  // 59
};

// Mouse buttons as bit flags.
enum MouseButtonMask : int {
  ButtonLeft = 1,
  ButtonRight = 2,
  ButtonMiddle = 4,
};

// Bits of the plain int modifier masks.
enum ModifierBits : int {
  ModifierShift = 1,
  ModifierCtrl = 2,
  ModifierAlt = 4,
  ModifierMeta = 8,
};

// The name of the type; empty for a value outside the table.
DMGUI_API ruString::CString asString(EventType type);
// The display name of the interaction ("PressTouchInteraction" for 8); empty above 16.
DMGUI_API ruString::CString asString(InteractionType interaction);
// The name of the key ("keyG" for 18); empty for a value outside the table.
DMGUI_API ruString::CString asString(KeyCode key);

// Finds the type named `name` (exact, case-sensitive). On failure writes None and returns false.
DMGUI_API bool eventType(const ruString::CString& name, EventType& type);
// Finds the interaction by its look-up name, which differs from asString: "PressTouch" gives 8,
// and only the first 14 kinds (0..13) can be found. On failure writes 0 and returns false.
DMGUI_API bool interactionType(const ruString::CString& name, InteractionType& interaction);
// Finds the key named `name`. On failure leaves `key` untouched and returns false.
DMGUI_API bool getKeyCode(const ruString::CString& name, KeyCode& key);

// "ButtonLeft,ButtonRight,ButtonMiddle" for the set bits, in that order; empty for none.
DMGUI_API ruString::CString buttonsAsString(int buttonMask);
// "Shift,Ctrl,Alt,Meta" for the set bits, in that order; empty for none.
DMGUI_API ruString::CString modifiersAsString(int modifierMask);

// Touch and pen interactions as their mouse counterparts (tap to click, drag to drag, press to
// press). Double and triple touch interactions are left as they are on purpose.
DMGUI_API InteractionType mapToMouse(InteractionType interaction);

class HistoricalPenData;
class MouseEvent;

// Base of every event record. Events live on the heap, are owned through ru::Reference and are
// immutable once made; a clone starts with a count of its own.
class DMGUI_API Event : public ru::ReferenceCount {
public:
  ~Event() override;

  // A field-by-field copy.
  ru::Reference<Event> clone() const;
  // The event that closes an interaction this event belongs to when it is cancelled, or null when
  // the kind of input needs none (mouse, wheel and key events).
  ru::Reference<Event> createInteractionEnd() const;

  EventType getType() const noexcept { return type_; }

protected:
  explicit Event(EventType type) noexcept : type_(type) {}
  Event(const Event& other) noexcept = default;
  Event& operator=(const Event& other) noexcept = default;

private:
  // A new copy of the concrete event; the caller owns it.
  virtual Event* onClone() const = 0;
  // A new closing event, or null.
  virtual Event* onCreateInteractionEnd() const = 0;

  EventType type_;
};

using EventList = ru::vector<ru::Reference<Event>>;

// A mouse button, move, motion or hover event.
class DMGUI_API MouseEvent : public Event {
public:
  // `button` is the button the event is about (one MouseButtonMask value, or 0); `buttonMask` all
  // buttons held after it; `position` in pixels; `timestamp` in seconds.
  static ru::Reference<MouseEvent> create(EventType type, int button, int buttonMask, int modifierMask,
                                          int clickCount, const Point& position, double timestamp);

  MouseEvent(const MouseEvent& other) = default;
  MouseEvent& operator=(const MouseEvent& other) = default;
  ~MouseEvent() override;

  int getButton() const noexcept { return button_; }
  int getButtonMask() const noexcept { return buttonMask_; }
  int getModifierMask() const noexcept { return modifierMask_; }
  int getClickCount() const noexcept { return clickCount_; }
  const Point& getPosition() const noexcept { return position_; }
  double getTimestamp() const noexcept { return timestamp_; }

  // A press with no other button already down.
  bool isFirstButtonPress() const noexcept;
  bool isFirstButtonPress(MouseButtonMask button) const noexcept;
  // A release that leaves no button down.
  bool isLastButtonRelease() const noexcept;
  bool isLastButtonRelease(MouseButtonMask button) const noexcept;

private:
  MouseEvent(EventType type, int button, int buttonMask, int modifierMask, int clickCount, const Point& position,
             double timestamp) noexcept;
  Event* onClone() const override;
  Event* onCreateInteractionEnd() const override;

  int button_;
  int buttonMask_;
  int modifierMask_;
  int clickCount_;
  Point position_;
  double timestamp_;
};

// A turn of the wheel by `delta` steps. It carries no time.
class DMGUI_API WheelEvent : public Event {
public:
  static ru::Reference<WheelEvent> create(EventType type, int buttonMask, int modifierMask, const Point& position,
                                          int delta);

  WheelEvent(const WheelEvent& other) = default;
  WheelEvent& operator=(const WheelEvent& other) = default;
  ~WheelEvent() override;

  int getButtonMask() const noexcept { return buttonMask_; }
  int getModifierMask() const noexcept { return modifierMask_; }
  const Point& getPosition() const noexcept { return position_; }
  int getDelta() const noexcept { return delta_; }

private:
  WheelEvent(EventType type, int buttonMask, int modifierMask, const Point& position, int delta) noexcept;
  Event* onClone() const override;
  Event* onCreateInteractionEnd() const override;

  int buttonMask_;
  int modifierMask_;
  Point position_;
  int delta_;
};

// A key press or release, with the text it produced and the state of an input method's
// composition (`internString`, caret and anchor within the text, in characters).
class DMGUI_API KeyEvent : public Event {
public:
  static ru::Reference<KeyEvent> create(EventType type, KeyCode key, bool repeat, int modifierMask);
  static ru::Reference<KeyEvent> create(EventType type, KeyCode key, bool repeat, int modifierMask,
                                        const ruString::IString& string, const ruString::IString& internString);
  static ru::Reference<KeyEvent> create(EventType type, KeyCode key, bool repeat, int modifierMask,
                                        const ruString::IString& string, const ruString::IString& internString,
                                        int cursorPos, int anchorPos);

  KeyEvent(const KeyEvent& other) = default;
  KeyEvent& operator=(const KeyEvent& other) = default;
  ~KeyEvent() override;

  KeyCode getKeyCode() const noexcept { return keyCode_; }
  bool isRepeat() const noexcept { return repeat_; }
  int getModifierMask() const noexcept { return modifierMask_; }
  const ruString::IString& getString() const noexcept { return string_; }
  const ruString::IString& getInternString() const noexcept { return internString_; }
  int getCursorPos() const noexcept { return cursorPos_; }
  int getAnchorPos() const noexcept { return anchorPos_; }

private:
  KeyEvent(EventType type, KeyCode key, bool repeat, int modifierMask, const ruString::IString& string,
           const ruString::IString& internString, int cursorPos, int anchorPos);
  Event* onClone() const override;
  Event* onCreateInteractionEnd() const override;

  KeyCode keyCode_;
  bool repeat_;
  int modifierMask_;
  ruString::IString string_;
  ruString::IString internString_;
  int cursorPos_;
  int anchorPos_;
};

// One sample of pen history between two pen events.
struct DMGUI_API HistoricalPenEvent {
  Point position;
  double timestamp = 0.0;
  float pressure = 0.0f;
};

// The samples the platform collected between two pen events; shared by an event and its clones
// and read-only after construction.
class DMGUI_API HistoricalPenData : public ru::ReferenceCount {
public:
  // Takes the samples over by swapping; `events` is left empty.
  explicit HistoricalPenData(ru::vector<HistoricalPenEvent>& events);
  HistoricalPenData(const HistoricalPenData& other) = default;
  HistoricalPenData& operator=(const HistoricalPenData& other) = default;
  ~HistoricalPenData() override;

  // The first sample (null when there are none).
  const HistoricalPenEvent* getEvents() const noexcept { return events_.empty() ? nullptr : events_.data(); }
  int getNumEvents() const noexcept { return static_cast<int>(events_.size()); }

private:
  ru::vector<HistoricalPenEvent> events_;
};

// A pen event: down, move, up or hover. `pressure` is the platform's (0..1 usually); `erase` tells
// that the eraser end is in use.
class DMGUI_API PenEvent : public Event {
public:
  PenEvent(EventType type, const Point& position, double timestamp, float pressure, bool erase);
  PenEvent(EventType type, const Point& position, double timestamp, float pressure, bool erase,
           ru::Reference<HistoricalPenData> historicalData);
  PenEvent(const PenEvent& other) = default;
  PenEvent& operator=(const PenEvent& other) = default;
  ~PenEvent() override;

  const Point& getPosition() const noexcept { return position_; }
  double getTimestamp() const noexcept { return timestamp_; }
  float getPressure() const noexcept { return pressure_; }
  bool isErase() const noexcept { return erase_; }
  // May be null.
  const ru::Reference<HistoricalPenData>& getHistoricalData() const noexcept { return historicalData_; }

  // The mouse event a client without pen support sees: button 1, no modifiers, click count 0,
  // the pen's position and time. Down is a press, move a move, up a release, hover a motion.
  ru::Reference<MouseEvent> asMouseEvent() const;

private:
  Event* onClone() const override;
  // PenDown and PenMove close with a PenUp at the same place and time; others need nothing.
  Event* onCreateInteractionEnd() const override;

  Point position_;
  double timestamp_;
  float pressure_;
  bool erase_;
  ru::Reference<HistoricalPenData> historicalData_;
};

// One event offered in two forms: as it is, or converted to a mouse event for a client that does
// not handle touch and pen itself. The mouse form is made on first use and kept. A stack object.
class DMGUI_API MapEvent {
public:
  MapEvent(const Event& event, InteractionType interaction);
  MapEvent(const MapEvent& other) = default;
  MapEvent& operator=(const MapEvent& other) = default;
  ~MapEvent();

  // The interaction, passed through mapToMouse when `toMouse` is true.
  InteractionType type(bool toMouse) const noexcept;
  // The event, or its mouse form when `toMouse` is true. Touch and pen down, move and up events
  // convert; anything else, PenHover included, is returned as it is.
  const Event& event(bool toMouse);

private:
  const Event* source_;
  ru::Reference<const Event> keeper_;
  InteractionType interaction_;
  ru::Reference<const Event> mouse_;
};

// Where a pointer event happened: the position of a mouse button, move or motion event, or of the
// lowest-numbered touch of a touch event; (0,0) for anything else, hover, wheel and pen included.
DMGUI_API Point position(const Event& event);

// Writes the event's fields to the debug log under code 40, one line per print.
DMGUI_API void print(const Event& event);

// The property-list form of an event: a dictionary for mouse (and wheel), touch and pen events; null
// for anything else (key and hover events included).
DMGUI_API ru::Reference<voPLST::Item> asPList(const Event& event);
// The event a dictionary describes, or null when the item is no dictionary, a key is missing, a
// value has the wrong kind or the type has no property-list form. A wheel record comes back in the
// mouse form (a MouseEvent of type Wheel, which has no delta): the dispatcher, which routes wheel
// input as WheelEvent, drops it.
DMGUI_API ru::Reference<Event> asEvent(ru::Reference<const voPLST::Item> item);

}  // namespace voEV
