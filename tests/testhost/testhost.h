#pragma once

#include "datamodelgui/events/dispatcher.h"
#include "datamodelgui/events/event.h"
#include "datamodelgui/events/parser.h"
#include "datamodelgui/events/scheduler.h"
#include "platform/base/clock.h"
#include "platform/support/broadcaster.h"
#include "platform/support/callinfo.h"

#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <vector>

// A host for tests and benchmarks that behaves as a real host must: it owns the clock, makes the
// layer's timers and schedulers, and enters its objects in the call info of a document. Time moves
// only when the test says so (advance), and due timers fire then, in order.
namespace testhost {

class ManualTimers;

// A host timer on the manual clock. Armed when made; start() arms it again from now, stop()
// disarms it. It fires once, when the clock passes its due time, and may be deleted from within
// its own sigTimer. Deleted before its time, it never fires.
class ManualTimer : public voEV::Timer {
public:
  ManualTimer(ManualTimers& owner, double timeout);
  ~ManualTimer() override;

  void start() override;
  void stop() override;

  bool isArmed() const noexcept { return armed_; }
  // Clock time in seconds at which it fires.
  double dueTime() const noexcept { return due_; }

private:
  friend class ManualTimers;
  ManualTimers& owner_;
  double due_ = 0.0;
  std::uint64_t order_ = 0;  // arming order, for timers due at the same time
  bool armed_ = false;
};

// A function scheduler that records what the layer asks of the host and runs passes on demand.
class RecordingScheduler : public voEV::FunctionScheduler {
public:
  RecordingScheduler() = default;

  // "start" and "stop", in the order the layer called them.
  const std::vector<std::string>& calls() const noexcept { return calls_; }
  int starts() const noexcept { return starts_; }
  int stops() const noexcept { return stops_; }
  // Between startExecution and stopExecution, as the host's loop would be.
  bool isRunning() const noexcept { return running_; }

  // One pass over the domain, inside a context of it, as the host's loop would run it.
  void runPass(voSupport::Domain& domain);
  // One pass over every domain, with no context open.
  void runPassWithoutContext() { onExecutionWithoutContext(); }

private:
  void startExecution() override;
  void stopExecution() override;

  std::vector<std::string> calls_;
  int starts_ = 0;
  int stops_ = 0;
  bool running_ = false;
};

// The host's voEV::Timers: timers on a manual clock, and two recording schedulers.
class ManualTimers : public voEV::Timers {
public:
  explicit ManualTimers(ruOS::ManualClock& clock);
  ~ManualTimers() override;

  // Moves the clock forward by `seconds`, firing every timer that falls due on the way, each with
  // the clock set to its due time, in order of due time and then of arming.
  void advance(double seconds);

  // Timers alive now, and those of them that are armed.
  int liveCount() const noexcept { return static_cast<int>(timers_.size()); }
  int armedCount() const noexcept;
  // Timers fired so far.
  int firedCount() const noexcept { return fired_; }

  RecordingScheduler& anim() const noexcept { return *anim_; }
  RecordingScheduler& idle() const noexcept { return *idle_; }
  ruOS::ManualClock& clock() const noexcept { return clock_; }

private:
  friend class ManualTimer;
  voEV::Timer* onCreate(double timeout) override;
  void arm(ManualTimer& timer);

  ruOS::ManualClock& clock_;
  RecordingScheduler* anim_;
  RecordingScheduler* idle_;
  std::vector<ManualTimer*> timers_;
  std::uint64_t nextOrder_ = 0;
  int fired_ = 0;
};

// A host with one document: the clock (made current for the host's life), a domain whose call
// table holds the voEV::Timers, the voSupport::Domain and the voSupport::Broadcaster, and the
// document's dispatcher. The call table is current for the host's life, and every call the host
// makes into the layer is also made inside it.
class TestHost {
public:
  // The clock starts at `startTime` seconds.
  explicit TestHost(double startTime = 0.0);
  TestHost(const TestHost&) = delete;
  TestHost& operator=(const TestHost&) = delete;
  ~TestHost();

  voSupport::CallInfo& callInfo() noexcept { return domain_->callInfo(); }
  voSupport::Domain& domain() noexcept { return *domain_; }
  voSupport::Broadcaster& broadcaster() noexcept { return broadcaster_; }
  ManualTimers& timers() noexcept { return *timers_; }
  ruOS::ManualClock& clock() noexcept { return clock_; }
  voEV::Dispatcher& dispatcher() noexcept { return *dispatcher_; }
  voEV::Parser& parser() noexcept { return dispatcher_->parser(); }

  // Clock time, seconds.
  double now() const noexcept { return clock_.now(); }
  // Moves time on by `seconds`, firing due timers.
  void advance(double seconds);
  // Hands one event to the dispatcher.
  void dispatch(const voEV::Event& event);
  // Broadcasts voEV::InstallGesturesMsg for the dispatcher's parser, as a host does when a parser
  // needs its gestures.
  void installGestures();

private:
  ruOS::ManualClock clock_;
  std::unique_ptr<voSupport::Domain> domain_;
  voSupport::Broadcaster broadcaster_;
  std::unique_ptr<ManualTimers> timers_;
  std::optional<voSupport::CallScope> scope_;
  std::unique_ptr<voEV::Dispatcher> dispatcher_;
};

}  // namespace testhost
