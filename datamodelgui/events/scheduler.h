#pragma once

#include "datamodelgui/export.h"
#include "platform/base/reference.h"
#include "platform/base/signal.h"

namespace voSupport {
class Domain;
}

namespace voEV {

// A function that runs on every pass of the host's loop until it is deleted. Connect to sigExecute
// to do the work; delete the object to stop it, even from within sigExecute.
class DMGUI_API ScheduledFunction {
public:
  ScheduledFunction() = default;
  // A copy has no connections and is registered nowhere.
  ScheduledFunction(const ScheduledFunction& other) = default;
  ScheduledFunction& operator=(const ScheduledFunction& other) = default;
  // Emits sigDestroying with itself before its signals die.
  ~ScheduledFunction();

  ruRTB::SignalArg<ScheduledFunction*> sigDestroying;
  ruRTB::SignalArg<ScheduledFunction*> sigExecute;
};

// The bookkeeping of the functions that run on each pass of a host-driven loop, per domain. The
// host subclasses it: startExecution() is called when the first function is registered and
// stopExecution() when the last goes; in between the host keeps calling onExecution() (inside a
// voSupport::Context of the domain) or onExecutionWithoutContext() from its loop.
class DMGUI_API FunctionScheduler : public ruRTB::SignalClient {
public:
  FunctionScheduler(const FunctionScheduler& other) = delete;
  FunctionScheduler& operator=(const FunctionScheduler& other) = delete;
  // Functions still alive are not told.
  virtual ~FunctionScheduler();

  // A new function for the domain of the current call info (which must hold a voSupport::Domain).
  // The caller owns it and deletes it to unregister it. It first runs on the pass after the one
  // under way, if any.
  ScheduledFunction* createFunction();

  // One pass over the functions of the current call's domain, in order of their addresses.
  void onExecution();
  // One pass over every domain, each after opening and closing a Context of mode 4 for it.
  void onExecutionWithoutContext();

  // Functions registered now.
  int functionCount() const noexcept;
  // A pass is running.
  bool isExecuting() const noexcept;
  // Functions registered for `domain` (0 when it has no entry), and whether it has an entry.
  int functionCount(voSupport::Domain* domain) const noexcept;
  bool hasDomain(voSupport::Domain* domain) const noexcept;

protected:
  FunctionScheduler();

private:
  friend class FunctionSchedulerAccess;
  // The first function was registered: the host starts calling the passes.
  virtual void startExecution() = 0;
  // The last function went: the host stops.
  virtual void stopExecution() = 0;

  ru::ImplBase* impl_;
  bool ownsImpl_ = true;
};

}  // namespace voEV
