#pragma once

// The platform's HTML help viewer, which is loaded when somebody first asks for help and stays
// in the process from then on. For threads that show windows.

#include "platform/windows_api.h"

namespace ksfax {

// The window of the last help request of a page; null when there was none, or no help for it.
extern HWND helpWindow;

// One request to the viewer: the help's window, or null when there is none or no viewer. Once
// the viewer proved missing, later requests return at once. `file` may be null for commands that
// need none.
HWND ShowHtmlHelp(HWND window, LPCWSTR file, UINT command, DWORD_PTR data);

// For process attach: nothing is known of a viewer, and there is no help window.
void ResetHelp();

}  // namespace ksfax
