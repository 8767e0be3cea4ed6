#pragma once

// The window class "ZL2UD_3": a panel that decorates a dialog with a raised or sunken bevel, or
// with an etched frame around a caption. It takes no input and notifies nobody. Any dialog
// template of the process may place one; a control lives on the thread of its window.

#include <cstdint>

#include "platform/windows_api.h"

namespace ksfax {

inline constexpr WCHAR kPanelClassName[] = TEXT("ZL2UD_3");

// Low bits of the window style.
inline constexpr DWORD PANELS_RAISED = 0x1;     // light at top and left, else it looks sunken
inline constexpr DWORD PANELS_FRAMED = 0x4;     // a filled rectangle inside the bevel
inline constexpr DWORD PANELS_CAPTIONED = 0x8;  // etched frame with the caption inside
inline constexpr DWORD PANELS_FILLED = 0x10;    // filled before the bevel; not with a caption

inline constexpr unsigned kCaptionCharacters = 256;  // with the terminator

// One per window, in local memory from WM_NCCREATE to WM_NCDESTROY.
struct PanelState {
    uint32_t panelStyle;  // the window style at creation
    // Pixels: the first of the three numbers of the creation text, or 0. Unsigned, as the digits
    // are read: 40000 is a width that covers the panel, not a negative one.
    uint16_t bevelWidth;
    WCHAR caption[kCaptionCharacters];
};

// For process attach and detach. A second registration does nothing.
void RegisterPanelClass(HINSTANCE instance);
void UnregisterPanelClass(HINSTANCE instance);

LRESULT CALLBACK PanelWindowProc(HWND window, UINT message, WPARAM wParam, LPARAM lParam);

}  // namespace ksfax
