#pragma once

// Critical sections of the embedded machine, looked at from outside. The memory calls have no
// control surface but Machine::globalBlocks, Machine::heaps and the fault plan.

#include "platform/embedded/api_kernel.h"

namespace embedded {

// Whether a thread, or the calling one, is inside the section. False for a section that was
// never initialised or was deleted.
bool IsHeldByAnyone(const CRITICAL_SECTION& section);
bool IsHeldByThisThread(const CRITICAL_SECTION& section);

}  // namespace embedded
