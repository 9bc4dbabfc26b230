#pragma once

#include "datamodelgui/animation/animation.h"
#include "datamodelgui/export.h"
#include "platform/base/reference.h"
#include "platform/base/signal.h"

namespace voANM {

// Treats a group of intervals as one animation. Between start() and stop() it collects every
// interval its manager creates; from then on it emits onAnimate once a frame, and when all the
// collected intervals have expired it emits onAnimationEnded once, stops listening to the frames
// and asks the manager for one more frame, so that the final values get drawn. Reference counted.
// The manager must outlive it.
class DMGUI_API AttributeWatcher : public ru::ReferenceCount {
public:
  explicit AttributeWatcher(Manager& manager);
  AttributeWatcher(const AttributeWatcher&) = delete;
  AttributeWatcher& operator=(const AttributeWatcher&) = delete;
  ~AttributeWatcher() override;

  // Listens to the frames (if not already) and starts collecting new intervals, emptying the set
  // first when `clear` is true. A second start without stop() makes a second collecting connection;
  // stop() then cuts only the newest, on purpose (the set is unique, so this does no harm).
  void start(bool clear);
  // Stops collecting; the frames go on until the animation ends.
  void stop();
  // start(true) then stop(): empties the set, so nothing more is animated or ended.
  void clear();

  // Intervals watched now.
  int numIntervals() const noexcept;

  ruRTB::SignalArg<AttributeWatcher*>& onAnimateSignal() noexcept { return onAnimate; }
  ruRTB::SignalArg<AttributeWatcher*>& onAnimationEndedSignal() noexcept { return onAnimationEnded; }

  // Once a frame (in preExecute) while some watched interval lives; argument the watcher.
  ruRTB::SignalArg<AttributeWatcher*> onAnimate;
  // Once, in the preUpdate of the frame where the last watched interval expired.
  ruRTB::SignalArg<AttributeWatcher*> onAnimationEnded;

private:
  ru::ImplBase* impl_;
  bool ownsImpl_ = true;
};

} // namespace voANM
