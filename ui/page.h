#pragma once

// What the driver's dialogs have in common: the session that each is bound to, and where their
// controls stand.

#include "platform/windows_api.h"

#include "core/session.h"

namespace ksfax {

// The session of a driver's dialog: null before its WM_INITDIALOG.
inline PrinterSession* SessionOf(HWND dialog) {
    return reinterpret_cast<PrinterSession*>(GetWindowLongPtrW(dialog, DWLP_USER));
}
inline void BindSession(HWND dialog, PrinterSession* session) {
    SetWindowLongPtrW(dialog, DWLP_USER, reinterpret_cast<LONG_PTR>(session));
}

// From the screen into a window's client area. Both corners go in one call: where the window is
// mirrored, x counts from its right edge, and the call makes the right corner the left one.
inline void ToClientArea(HWND window, RECT* rect) {
    MapWindowPoints(nullptr, window, reinterpret_cast<POINT*>(rect), 2);
}

}  // namespace ksfax
