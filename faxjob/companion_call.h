#pragma once

// The one way into the companion module KSFAXDLG.DLL.

#include "platform/windows_api.h"

#include "faxjob/companion.h"

namespace ksfax {

// Loads the companion module, calls its `operation` with `record`, whose size and version are
// filled in here, and releases the module. Gives the operation's result, or 0 when the module
// cannot be loaded (silently) or lacks the operation (after a message box with the last-error
// number).
INT_PTR CallCompanion(LPCSTR operation, DialModuleRecord& record);

}  // namespace ksfax
