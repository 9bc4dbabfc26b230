#include "tests/testhost/testhost.h"

#include <algorithm>

namespace testhost {

// ---------------------------------------------------------------------------------------------
// ManualTimer

ManualTimer::ManualTimer(ManualTimers& owner, double timeout) : voEV::Timer(timeout), owner_(owner) {
  owner_.timers_.push_back(this);
  // A host timer runs from its creation; the parser never calls start().
  owner_.arm(*this);
}

ManualTimer::~ManualTimer() {
  auto& timers = owner_.timers_;
  timers.erase(std::remove(timers.begin(), timers.end(), this), timers.end());
}

void ManualTimer::start() { owner_.arm(*this); }

void ManualTimer::stop() { armed_ = false; }

// ---------------------------------------------------------------------------------------------
// RecordingScheduler

void RecordingScheduler::runPass(voSupport::Domain& domain) {
  voSupport::Context context(&domain, voSupport::Context::Motion);
  onExecution();
}

void RecordingScheduler::startExecution() {
  calls_.push_back("start");
  ++starts_;
  running_ = true;
}

void RecordingScheduler::stopExecution() {
  calls_.push_back("stop");
  ++stops_;
  running_ = false;
}

// ---------------------------------------------------------------------------------------------
// ManualTimers

ManualTimers::ManualTimers(ruOS::ManualClock& clock)
    : voEV::Timers(new RecordingScheduler, new RecordingScheduler), clock_(clock) {
  anim_ = static_cast<RecordingScheduler*>(animScheduler());
  idle_ = static_cast<RecordingScheduler*>(idleScheduler());
}

ManualTimers::~ManualTimers() = default;

voEV::Timer* ManualTimers::onCreate(double timeout) { return new ManualTimer(*this, timeout); }

void ManualTimers::arm(ManualTimer& timer) {
  timer.due_ = clock_.now() + timer.getTimeout();
  timer.order_ = nextOrder_++;
  timer.armed_ = true;
}

int ManualTimers::armedCount() const noexcept {
  return static_cast<int>(std::count_if(timers_.begin(), timers_.end(), [](ManualTimer* t) { return t->armed_; }));
}

void ManualTimers::advance(double seconds) {
  const double target = clock_.now() + seconds;
  for (;;) {
    // The next due timer; timers made or deleted by a listener are seen on the next round.
    ManualTimer* next = nullptr;
    for (ManualTimer* timer : timers_) {
      if (!timer->armed_ || timer->due_ > target) continue;
      if (!next || timer->due_ < next->due_ || (timer->due_ == next->due_ && timer->order_ < next->order_)) {
        next = timer;
      }
    }
    if (!next) break;
    clock_.set(std::max(clock_.now(), next->due_));
    next->armed_ = false;
    ++fired_;
    // The listener may delete the timer: it is not touched after this.
    next->sigTimer.emit(next);
  }
  clock_.set(std::max(clock_.now(), target));
}

// ---------------------------------------------------------------------------------------------
// TestHost

TestHost::TestHost(double startTime) : clock_(startTime), domain_(std::make_unique<voSupport::Domain>()) {
  ruOS::setClock(&clock_);
  timers_ = std::make_unique<ManualTimers>(clock_);
  callInfo().set<voEV::Timers>(timers_.get());
  callInfo().set<voSupport::Broadcaster>(&broadcaster_);
  scope_.emplace(callInfo());
  dispatcher_ = std::make_unique<voEV::Dispatcher>();
}

TestHost::~TestHost() {
  dispatcher_.reset();
  scope_.reset();
  timers_.reset();
  domain_.reset();
  ruOS::setClock(nullptr);
}

void TestHost::advance(double seconds) {
  voSupport::CallScope scope(callInfo());
  timers_->advance(seconds);
}

void TestHost::dispatch(const voEV::Event& event) {
  voSupport::CallScope scope(callInfo());
  dispatcher_->dispatch(event);
}

void TestHost::installGestures() {
  voSupport::CallScope scope(callInfo());
  voEV::InstallGesturesMsg message(dispatcher_->parser());
  broadcaster_.broadcast(message);
}

}  // namespace testhost
