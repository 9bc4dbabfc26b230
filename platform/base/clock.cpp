#include "platform/base/clock.h"

#include <chrono>

namespace ruOS {

namespace {
SteadyClock steadyClock;
Clock* current = &steadyClock;
}  // namespace

Clock::~Clock() = default;

double SteadyClock::now() const {
  using namespace std::chrono;
  return duration<double>(steady_clock::now().time_since_epoch()).count();
}

void setClock(Clock* clock) { current = clock ? clock : &steadyClock; }

Clock& currentClock() { return *current; }

void StopWatch::start() {
  if (running_) return;
  running_ = true;
  startedAt_ = current->now();
}

void StopWatch::stop() {
  if (!running_) return;
  total_ += current->now() - startedAt_;
  running_ = false;
}

void StopWatch::clear() {
  total_ = 0.0;
  if (running_) startedAt_ = current->now();
}

double StopWatch::check() const { return running_ ? total_ + (current->now() - startedAt_) : total_; }

}  // namespace ruOS
