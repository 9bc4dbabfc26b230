#include "datamodelgui/events/initialize.h"

#include "platform/support/broadcaster.h"
#include "platform/support/callinfo.h"

namespace voEV {

namespace {

// Cleared by the first initialize; the broadcaster sets it back on reset.
bool firstTime = true;

// Exposes the event classes to the reflection database. The registrations come with the script
// bindings; until then there is nothing to register.
void exposeEventClasses(voSupport::InitializeReflectionMsg&) {}

using StartupHook = void (*)();
// Run on every initialize, in order, up to the null entry. The event layer has none yet.
constexpr StartupHook startupHooks[] = {nullptr};

}  // namespace

void initialize() {
  if (firstTime) {
    if (auto* broadcaster = voSupport::ci().find<voSupport::Broadcaster>()) {
      firstTime = false;
      broadcaster->addFirstTimeFlag(firstTime);
      broadcaster->addHandler<voSupport::InitializeReflectionMsg>(voSupport::Priority(1, 0), &exposeEventClasses);
    }
  }
  for (const StartupHook* hook = startupHooks; *hook; ++hook) (*hook)();
}

bool isFirstInitialization() noexcept { return firstTime; }

}  // namespace voEV
