#pragma once

#include "platform/base/export.h"

namespace ruOS {

// Source of time, in seconds. Every StopWatch reads the current clock, so a test or a replaying
// host can drive time by hand.
class RU_BASE_API Clock {
public:
  virtual ~Clock();
  virtual double now() const = 0;
};

// The monotonic clock of the machine; the default.
class RU_BASE_API SteadyClock : public Clock {
public:
  double now() const override;
};

// A clock that moves only when told to.
class RU_BASE_API ManualClock : public Clock {
public:
  explicit ManualClock(double start = 0.0) : now_(start) {}
  double now() const override { return now_; }
  void set(double seconds) { now_ = seconds; }
  void advance(double seconds) { now_ += seconds; }

private:
  double now_;
};

// Makes `clock` the current clock (not owned; it must outlive its use). Null restores the steady
// clock.
RU_BASE_API void setClock(Clock* clock);
RU_BASE_API Clock& currentClock();

// Measures elapsed time on the current clock, in seconds. A new watch is stopped and reads 0.
class RU_BASE_API StopWatch {
public:
  // Starts measuring; does nothing when already running.
  void start();
  // Freezes the reading.
  void stop();
  // Zeroes the reading; a running watch keeps running from now.
  void clear();
  // The total measured so far, running span included.
  double check() const;
  bool isRunning() const noexcept { return running_; }

private:
  double total_ = 0.0;
  double startedAt_ = 0.0;
  bool running_ = false;
};

}  // namespace ruOS
