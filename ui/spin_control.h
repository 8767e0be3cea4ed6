#pragma once

// The window class "ZL2UD_1": a box of two raised buttons with arrows. Pressing one steps a
// 16-bit position towards one end of a range; holding it repeats the step. Every step is sent to
// the parent window as a scroll message. Any dialog template of the process may place one; a
// control lives on the thread of its window.

#include <cstdint>

#include "platform/windows_api.h"

namespace ksfax {

inline constexpr WCHAR kSpinClassName[] = TEXT("ZL2UD_1");

// Low bits of the window style.
inline constexpr DWORD SPINS_VERTICAL = 0x1;       // halves are top and bottom, else left and right
inline constexpr DWORD SPINS_SILENTATLIMIT = 0x4;  // no notification of a step that cannot move
inline constexpr DWORD SPINS_RANGEINTEXT = 0x8;    // the text is "minimum,maximum,position"
inline constexpr DWORD SPINS_REVERSED = 0x10;      // the first half (top, left) increases

// Messages: what WPARAM (w) and LPARAM (l) hold; what comes back. -1 means refused, nothing
// changed. Words are returned zero-extended unless said. A range has the minimum in its low word
// and the maximum in its high word; one whose minimum is not below its maximum, both taken as
// unsigned, is refused, whereas positions are compared with it as signed numbers.
inline constexpr UINT SPIN_SETTARGET = WM_USER + 1;  // w window; the target, which stays, or -1
inline constexpr UINT SPIN_GETTARGET = WM_USER + 2;  // the window that is notified
inline constexpr UINT SPIN_SETRANGE = WM_USER + 3;   // l range; the old one, signed
inline constexpr UINT SPIN_GETRANGE = WM_USER + 4;   // the range
inline constexpr UINT SPIN_SETPOS = WM_USER + 5;     // w position, signed; the old one
inline constexpr UINT SPIN_GETPOS = WM_USER + 6;
inline constexpr UINT SPIN_SETSILENT = WM_USER + 7;     // w on or off; 1 when it was on
inline constexpr UINT SPIN_GETSILENT = WM_USER + 8;     // 4 when on
inline constexpr UINT SPIN_SETREVERSED = WM_USER + 9;   // w on or off; 1 when it was on
inline constexpr UINT SPIN_GETREVERSED = WM_USER + 10;  // 16 when on
inline constexpr UINT SPIN_SETCOLOR = WM_USER + 11;     // w slot, l COLORREF; the old one
inline constexpr UINT SPIN_GETCOLOR = WM_USER + 12;     // w slot; sign-extended

// Notifications, sent to the target and answered before the control goes on. The scroll message
// is WM_VSCROLL when vertical, else WM_HSCROLL.
//   a step                          scroll message: w low SB_LINEUP for the first half or
//                                   SB_LINEDOWN for the second, high the position; l the control
//   SPIN_SETPOS, or a position      scroll message: w SB_THUMBTRACK; l the position,
//   that SPIN_SETRANGE had to move  zero-extended, and not the control
//   SPIN_SETRANGE accepted          WM_COMMAND: w the control's id; l low the low word of the
//                                   control's handle, high 3. The old range still holds.

// Colour slots; each holds a COLORREF or kDefaultColor, which follows the system's colours.
inline constexpr unsigned kSpinColors = 5;  // face, arrow, shadow, highlight, frame
inline constexpr uint32_t kDefaultColor = 0xFFFFFFFF;

// `spinFlags` bits.
inline constexpr uint16_t kSpinDisabled = 0x1;
inline constexpr uint16_t kSpinPointerOutside = 0x4;  // of the pressed half
inline constexpr uint16_t kSpinFirstPressed = 0x8;
inline constexpr uint16_t kSpinSecondPressed = 0x10;

// One per window, in local memory from WM_NCCREATE to WM_NCDESTROY.
struct SpinState {
    HWND target;         // the parent at creation
    uint32_t spinStyle;  // the window style at creation, changed by messages
    int16_t minimum;
    int16_t maximum;
    int16_t position;
    uint16_t spinFlags;
    uint32_t colors[kSpinColors];
};

// For process attach and detach. A second registration does nothing.
void RegisterSpinClass(HINSTANCE instance);
void UnregisterSpinClass(HINSTANCE instance);

LRESULT CALLBACK SpinWindowProc(HWND window, UINT message, WPARAM wParam, LPARAM lParam);

}  // namespace ksfax
