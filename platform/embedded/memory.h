#pragma once

// Private heaps, and critical sections looked at from outside. The memory calls have no control
// surface but Machine::OpenNow() and the fault plan.

#include <mutex>
#include <vector>

#include "platform/embedded/api_kernel.h"
#include "platform/embedded/machine.h"

namespace embedded {

// What HeapCreate's handle names. Its blocks go with it.
struct Heap : Object {
    ~Heap() override;

    std::mutex mutex;
    std::vector<void*> blocks;
};

// Whether a thread, or the calling one, is inside the section. False for a section that was
// never initialised or was deleted.
bool IsHeldByAnyone(const CRITICAL_SECTION& section);
bool IsHeldByThisThread(const CRITICAL_SECTION& section);

}  // namespace embedded
