#pragma once

#include "datamodelgui/export.h"

namespace voEV {

// Called by the host once at start, with its voSupport::Broadcaster in the call info. The first
// call (and the first after the broadcaster's reset) subscribes the reflection exposure of the
// event classes to voSupport::InitializeReflectionMsg at priority (1, 0); every call then runs the
// layer's start-up hooks. Without a broadcaster in the call info nothing is subscribed.
DMGUI_API void initialize();

// True until initialize() has subscribed the handler (again true after the broadcaster's reset).
DMGUI_API bool isFirstInitialization() noexcept;

}  // namespace voEV
