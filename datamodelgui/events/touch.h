#pragma once

#include "datamodelgui/events/event.h"
#include "datamodelgui/export.h"
#include "platform/base/containers.h"
#include "platform/base/reference.h"

namespace voEV {

// The state of one finger in one touch event.
enum TouchPhase : int {
  TouchBegan = 0,
  TouchMoved = 1,
  TouchStationary = 2,
  TouchEnded = 3,
  TouchCancelled = 4,
};

// "TouchBegan" ... "TouchCancelled"; empty for a value outside the table (guarded on purpose, so a
// host's unknown phase prints as nothing rather than reading past the table).
DMGUI_API ruString::CString asString(TouchPhase phase);

// One finger in one touch event. Positions in pixels, time in seconds.
class DMGUI_API Touch : public ru::ReferenceCount {
public:
  // Id -1, positions (0,0).
  Touch() noexcept = default;
  Touch(int id, const Point& position, const Point& prevPosition, int tapCount, TouchPhase phase,
        double timestamp) noexcept;
  Touch(const Touch& other) noexcept : ru::ReferenceCount(), position_(other.position_),
        prevPosition_(other.prevPosition_), timestamp_(other.timestamp_), id_(other.id_),
        tapCount_(other.tapCount_), phase_(other.phase_) {}
  Touch& operator=(const Touch& other) noexcept = default;
  ~Touch() override;

  int getID() const noexcept { return id_; }
  const Point& getPosition() const noexcept { return position_; }
  const Point& getPreviousPosition() const noexcept { return prevPosition_; }
  int getTapCount() const noexcept { return tapCount_; }
  TouchPhase getPhase() const noexcept { return phase_; }
  double getTimestamp() const noexcept { return timestamp_; }
  // Ended or cancelled.
  bool isDone() const noexcept { return phase_ == TouchEnded || phase_ == TouchCancelled; }

  // A new record with a count of its own.
  ru::Reference<Touch> clone() const;
  // The mouse event a client without touch support sees: began is a press, moved and stationary a
  // move, ended and cancelled a release; button 1, the tap count as click count.
  ru::Reference<MouseEvent> asMouseEvent() const;

  // True when any field differs.
  bool operator!=(const Touch& other) const noexcept;

private:
  Point position_;
  Point prevPosition_;
  double timestamp_ = 0.0;
  int id_ = -1;
  int tapCount_ = 0;
  TouchPhase phase_ = TouchBegan;
};

using TouchMap = ru::map<int, ru::Reference<Touch>>;

// One finger of one historical sample.
struct DMGUI_API HistoricalTouch {
  int id = 0;
  Point position;
  double timestamp = 0.0;
};

// The samples the platform collected between two touch events, event-major: getNumTouches()
// records for each sample. Shared by an event and its clones; read-only after construction.
class DMGUI_API HistoricalTouchData : public ru::ReferenceCount {
public:
  // Takes `touches` over by swapping (the argument is left empty). `numEvents` must be positive:
  // a record of 0 (or fewer) samples is refused, keeping nothing and leaving `touches` untouched.
  HistoricalTouchData(int numEvents, ru::vector<HistoricalTouch>& touches);
  HistoricalTouchData(const HistoricalTouchData& other) = default;
  HistoricalTouchData& operator=(const HistoricalTouchData& other) = default;
  ~HistoricalTouchData() override;

  int getNumEvents() const noexcept { return numEvents_; }
  int getNumTouches() const noexcept { return numTouches_; }
  // The first of the getNumTouches() records of sample `i`; `i` must be below getNumEvents().
  const HistoricalTouch* getTouchesForEvent(int i) const noexcept { return touches_.data() + i * numTouches_; }

private:
  int numEvents_;
  int numTouches_;
  ru::vector<HistoricalTouch> touches_;
};

// A snapshot of every finger on the screen, by id; always of type ScrenTouch.
class DMGUI_API TouchEvent : public Event {
public:
  explicit TouchEvent(const TouchMap& touches);
  TouchEvent(const TouchMap& touches, ru::Reference<HistoricalTouchData> historicalData);
  TouchEvent& operator=(const TouchEvent& other) = delete;
  ~TouchEvent() override;

  const TouchMap& getTouches() const noexcept { return touches_; }
  bool contains(int id) const noexcept { return touches_.count(id) != 0; }
  // The touch with that id, or null.
  ru::Reference<Touch> find(int id) const;
  // The touch with the lowest id; the event must hold one.
  ru::Reference<Touch> getAnyTouch() const;
  const ru::Reference<HistoricalTouchData>& getHistoricalData() const noexcept { return historicalData_; }
  // The mean of all positions, truncated; the event must hold a touch.
  Point getMidpoint() const;

  // The logical start mark is set, or every finger began (true with no touches).
  bool isInteractionStart() const noexcept;
  // Every finger ended or was cancelled (true with no touches).
  bool isInteractionEnd() const noexcept;
  // A finger began, ended or was cancelled while others went on.
  bool isInteractionChange() const noexcept;

  // The host marks an event so that it counts as the start of an interaction.
  void setLogicalInteractionStart() noexcept { logicalInteractionStart_ = true; }
  bool isLogicalInteractionStart() const noexcept { return logicalInteractionStart_; }

private:
  // Deep: new touch records, the same history.
  TouchEvent(const TouchEvent& other);
  Event* onClone() const override;
  // Ends every finger still down, at its place; null when all are done already.
  Event* onCreateInteractionEnd() const override;

  TouchMap touches_;
  ru::Reference<HistoricalTouchData> historicalData_;
  bool logicalInteractionStart_ = false;
};

// Same logical flag, same ids in the same order, and no two touches differing.
DMGUI_API bool identical(const TouchEvent& a, const TouchEvent& b);

// A touch as a dictionary ("id", "position", "prevPosition", "tapCount", "phase", "timestamp").
DMGUI_API void convert(ru::Reference<voPLST::Item>& item, const Touch& touch);
// The touch a dictionary describes; false (and `touch` untouched) when a key is missing or has the
// wrong kind.
DMGUI_API bool convert(ru::Reference<Touch>& touch, const voPLST::Item& item);

// The replay machine of the touch gestures: fed a queue of events in order, it remembers where each
// finger began and the snapshot before, and tells whether a finger moved and how many are down. A
// plain value; a gesture builds one afresh at each evaluation.
class DMGUI_API TouchState {
public:
  TouchState() = default;

  // Feeds one event; false (and nothing changed) for an event that is not a touch event. A finger
  // added or lifted in mid-interaction restarts the origins of all fingers; fingers absent from the
  // event lose theirs.
  bool event(const Event& event);

  // Fingers in the last event.
  int fingers() const noexcept { return static_cast<int>(current_.size()); }
  const TouchMap& getTouches() const noexcept { return current_; }
  bool isInteractionStart() const noexcept { return interactionStart_; }
  bool isInteractionEnd() const noexcept { return interactionEnd_; }

  // Where the finger with the touch's id began. The callers ask only for fingers fed; an unknown id
  // answers the touch's own position.
  Point getOrigin(const Touch& touch) const;
  // Seconds since the finger's origin (0 for an unknown id).
  double getAge(const Touch& touch) const;
  // Seconds since the finger's entry in the event before (0 for an unknown id).
  double getInterval(const Touch& touch) const;
  // The finger is strictly farther than the moving-gesture threshold from its origin.
  bool hasMoved(const Touch& touch) const;
  // hasMoved for some finger of the last event.
  bool anyMoved() const;

private:
  TouchMap origins_;
  TouchMap previous_;
  TouchMap current_;
  bool interactionStart_ = false;
  bool interactionEnd_ = false;
};

}  // namespace voEV
