#pragma once

// What lives for as long as the module is loaded: its own handle, the module that user-visible
// strings and dialogs come from, the one lock, and the cache of one printer description. One set
// for the process; DllMain makes it at process attach and takes it down at detach.

#include <cstdint>

#include "platform/owned.h"
#include "platform/windows_api.h"

namespace ksfax {

struct PrinterDescription;

// The library's own handle, null before attach and after detach.
extern HMODULE ownModule;

// KSFAXRES.DLL from the library's own folder, or `ownModule` when there is none. Every string
// and dialog of the user interface is loaded from here.
extern HMODULE resourceModule;

// Guards `descriptionCache`, and is held for the whole of every description load, since two loads
// at once would fight over the cache file that they write, and while a driver upgrade rewrites
// what a printer has stored. A thread may enter it again while it holds it. Nothing in the module
// takes another lock while holding it.
extern CRITICAL_SECTION moduleLock;

// Holds `moduleLock` from construction to destruction.
class LockHold {
  public:
    LockHold() { EnterCriticalSection(&moduleLock); }
    ~LockHold() { LeaveCriticalSection(&moduleLock); }
    LockHold(const LockHold&) = delete;
    LockHold& operator=(const LockHold&) = delete;
};

// One description and how many hold it. Empty: null and 0. Idle: a description that nobody
// holds, kept for the next caller. Its key is the description's own `PpdFileName`. Guarded by
// `moduleLock`; only the functions below touch it.
struct DescriptionCache {
    const PrinterDescription* cachedDescription;
    uint16_t useCount;
};
extern DescriptionCache descriptionCache;

// The description of the printer's driver data file; null when the driver information or the
// description cannot be had. Pair each success with one ReleaseDescription. With `allowShared`
// the cached one is handed out when its path is the driver's (letter case aside); otherwise one
// is loaded, and replaces the cached one unless that is in use. Without it the data file is
// always looked at again. The result is read-only and may be shared with other threads.
[[nodiscard]] const PrinterDescription* AcquireDescription(HANDLE printer, bool allowShared);

// Gives back what AcquireDescription returned; null is allowed. A shared description stays
// cached, any other is freed.
void ReleaseDescription(const PrinterDescription* description);

// Releases on destruction: `DescriptionUse description(AcquireDescription(printer, true));`
struct DescriptionUseTraits {
    using Value = const PrinterDescription*;
    static Value Invalid() { return nullptr; }
    static void Free(Value value) { ReleaseDescription(value); }
};
using DescriptionUse = platform::Owned<DescriptionUseTraits>;

// Forgets the cached description without freeing it. For process attach alone, where nothing
// can be cached yet and the lock is not needed.
void ResetDescriptionCache();

// Frees the cached description, used or not. For process detach: nobody can give one back then.
void DiscardDescriptionCache();

// The parts of process attach and detach that belong to this file, in the order that DllMain
// needs: everything above but the window classes. Attach pins the library in the process by a
// reference of its own that is never given back, since hosts unload drivers while their windows
// are still open.
void AttachModuleState(HINSTANCE instance);
void DetachModuleState();

// Where the resource module lies: `ownPath` with the part after its last backslash replaced by
// "KSFAXRES.DLL"; the bare name when there is no backslash. `ownPath` has at most MAX_PATH
// characters, its terminator included; `path` holds kResourcePathRoom characters.
constexpr size_t kResourcePathRoom = MAX_PATH + sizeof("KSFAXRES.DLL");
void ResourceModulePath(const WCHAR* ownPath, WCHAR* path);

}  // namespace ksfax
