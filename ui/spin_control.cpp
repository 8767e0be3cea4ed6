#include "ui/spin_control.h"

#include "ui/control_class.h"
#include "ui/drawing.h"

namespace ksfax {

namespace {

constexpr UINT_PTR kFirstRepeat = 500;  // timer ids
constexpr UINT_PTR kNextRepeats = 501;
constexpr UINT kFirstRepeatMilliseconds = 400;
constexpr UINT kNextRepeatsMilliseconds = 50;
constexpr WORD kRangeChanged = 3;  // in the WM_COMMAND of an accepted range

bool isSpinRegistered = false;  // attach and detach alone touch it

enum class Half { None, First, Second };

// Asked here alone, so that a control whose halves are both flagged (a second press without a
// release between) acts for the second one everywhere.
Half PressedHalf(const SpinState& state) {
    if ((state.spinFlags & kSpinSecondPressed) != 0) {
        return Half::Second;
    }
    return (state.spinFlags & kSpinFirstPressed) != 0 ? Half::First : Half::None;
}

bool IsVertical(const SpinState& state) {
    return (state.spinStyle & SPINS_VERTICAL) != 0;
}

int16_t Middle(int minimum, int maximum) {
    return static_cast<int16_t>((minimum + maximum) >> 1);
}

LONG PackedRange(const SpinState& state) {
    return MAKELONG(static_cast<uint16_t>(state.minimum), static_cast<uint16_t>(state.maximum));
}

RECT HalfRect(HWND window, const SpinState& state, Half half) {
    RECT rect{};
    GetClientRect(window, &rect);
    if (IsVertical(state)) {
        const LONG middle = rect.bottom >> 1;
        (half == Half::Second ? rect.top : rect.bottom) =
            half == Half::Second ? middle : middle + 1;
    } else {
        const LONG middle = rect.right >> 1;
        (half == Half::Second ? rect.left : rect.right) =
            half == Half::Second ? middle : middle + 1;
    }
    return rect;
}

// ---- Notifications. Each is sent, not posted: the target may destroy the control before the
// call returns, so its state must be looked up again afterwards.

void SendScroll(const SpinState& state, WPARAM wParam, LPARAM lParam) {
    SendMessageW(state.target, IsVertical(state) ? WM_VSCROLL : WM_HSCROLL, wParam, lParam);
}

void SendPosition(const SpinState& state) {
    SendScroll(state, SB_THUMBTRACK, static_cast<uint16_t>(state.position));
}

// ---- Stepping ----

void Step(HWND window, SpinState& state) {
    const Half half = PressedHalf(state);
    const bool isReversed = (state.spinStyle & SPINS_REVERSED) != 0;
    const bool increases = (half == Half::Second) != isReversed;
    const bool canMove = state.position != (increases ? state.maximum : state.minimum);
    if (canMove) {
        state.position = static_cast<int16_t>(state.position + (increases ? 1 : -1));
    } else if ((state.spinStyle & SPINS_SILENTATLIMIT) != 0) {
        return;
    }
    SendScroll(state,
               MAKEWPARAM(half == Half::First ? SB_LINEUP : SB_LINEDOWN,
                          static_cast<uint16_t>(state.position)),
               reinterpret_cast<LPARAM>(window));
}

POINT PointerIn(LPARAM lParam) {
    return {static_cast<SHORT>(LOWORD(lParam)), static_cast<SHORT>(HIWORD(lParam))};
}

void Press(HWND window, SpinState& state, POINT at) {
    RECT client{};
    GetClientRect(window, &client);
    const bool isSecond = IsVertical(state) ? at.y > client.bottom >> 1 : at.x > client.right >> 1;
    state.spinFlags |= isSecond ? kSpinSecondPressed : kSpinFirstPressed;
    const RECT half = HalfRect(window, state, PressedHalf(state));
    RepaintNow(window, &half);
    Step(window, state);
    // The target may have ended the press: it disabled the control, which cancels, or ran a
    // message loop that saw the button go up. Nothing would stop a repeat that began now.
    const auto* now = ControlState<SpinState>(window);
    if (now == nullptr || PressedHalf(*now) == Half::None) {
        return;
    }
    SetCapture(window);
    SetTimer(window, kFirstRepeat, kFirstRepeatMilliseconds, nullptr);
}

void Repeat(HWND window, SpinState& state, UINT_PTR timer) {
    if ((timer != kFirstRepeat && timer != kNextRepeats) || PressedHalf(state) == Half::None) {
        return;
    }
    if (timer == kFirstRepeat) {
        KillTimer(window, kFirstRepeat);
        SetTimer(window, kNextRepeats, kNextRepeatsMilliseconds, nullptr);
    }
    if ((state.spinFlags & kSpinPointerOutside) == 0) {
        Step(window, state);
    }
}

void Track(HWND window, SpinState& state, POINT at) {
    const Half pressed = PressedHalf(state);
    if (pressed == Half::None) {
        return;
    }
    const RECT half = HalfRect(window, state, pressed);
    const uint16_t before = state.spinFlags;
    if (PtInRect(&half, at)) {
        state.spinFlags &= ~kSpinPointerOutside;
    } else {
        state.spinFlags |= kSpinPointerOutside;
    }
    if (state.spinFlags != before) {
        RepaintNow(window, &half);
    }
}

void StopRepeating(HWND window) {
    KillTimer(window, kFirstRepeat);
    KillTimer(window, kNextRepeats);
    ReleaseCapture();
}

void Release(HWND window, SpinState& state) {
    StopRepeating(window);
    const Half pressed = PressedHalf(state);
    if (pressed == Half::None) {
        return;
    }
    const RECT half = HalfRect(window, state, pressed);
    state.spinFlags &= ~(kSpinPointerOutside | kSpinFirstPressed | kSpinSecondPressed);
    RepaintNow(window, &half);
}

// ---- Control messages ----

LRESULT SetRange(HWND window, SpinState& state, LPARAM lParam) {
    if (LOWORD(lParam) >= HIWORD(lParam)) {
        return -1;
    }
    const LONG before = PackedRange(state);
    // The target hears of the range before it holds, and may ask for the old one.
    SendMessageW(state.target, WM_COMMAND, MAKEWPARAM(GetWindowLongW(window, GWL_ID), 0),
                 MAKELPARAM(LOWORD(reinterpret_cast<ULONG_PTR>(window)), kRangeChanged));
    if (ControlState<SpinState>(window) == nullptr) {
        return before;
    }
    state.minimum = static_cast<int16_t>(LOWORD(lParam));
    state.maximum = static_cast<int16_t>(HIWORD(lParam));
    if (state.position <= state.minimum || state.position >= state.maximum) {
        state.position = Middle(state.minimum, state.maximum);
        SendPosition(state);
    }
    return before;
}

LRESULT SetPosition(SpinState& state, WPARAM wParam) {
    const auto value = static_cast<LONG>(wParam);
    if (value < state.minimum || value > state.maximum) {
        return -1;
    }
    const auto before = static_cast<uint16_t>(state.position);
    state.position = static_cast<int16_t>(value);
    SendPosition(state);
    return before;
}

LRESULT SetStyleBit(SpinState& state, uint32_t bit, bool isOn) {
    const bool wasOn = (state.spinStyle & bit) != 0;
    state.spinStyle = isOn ? state.spinStyle | bit : state.spinStyle & ~bit;
    return wasOn;
}

LRESULT SetColor(HWND window, SpinState& state, WPARAM slot, LPARAM color) {
    if (slot >= kSpinColors) {
        return 0;
    }
    const uint32_t before = state.colors[slot];
    state.colors[slot] = static_cast<uint32_t>(color);
    RepaintNow(window, nullptr);
    return before;
}

LRESULT HandleControlMessage(HWND window, SpinState& state, UINT message, WPARAM wParam,
                             LPARAM lParam) {
    switch (message) {
    case SPIN_SETTARGET:
        // Dialogs were written against a control that checks the window and goes on notifying
        // its parent; one that took them at their word would fall silent for them.
        return IsWindow(reinterpret_cast<HWND>(wParam)) ? reinterpret_cast<LRESULT>(state.target)
                                                        : -1;
    case SPIN_GETTARGET:
        return reinterpret_cast<LRESULT>(state.target);
    case SPIN_SETRANGE:
        return SetRange(window, state, lParam);
    case SPIN_GETRANGE:
        return static_cast<DWORD>(PackedRange(state));
    case SPIN_SETPOS:
        return SetPosition(state, wParam);
    case SPIN_GETPOS:
        return static_cast<uint16_t>(state.position);
    case SPIN_SETSILENT:
        return SetStyleBit(state, SPINS_SILENTATLIMIT, wParam != 0);
    case SPIN_GETSILENT:
        return state.spinStyle & SPINS_SILENTATLIMIT;
    case SPIN_SETREVERSED:
        return SetStyleBit(state, SPINS_REVERSED, wParam != 0);
    case SPIN_GETREVERSED:
        return state.spinStyle & SPINS_REVERSED;
    case SPIN_SETCOLOR:
        return SetColor(window, state, wParam, lParam);
    case SPIN_GETCOLOR:
        return wParam < kSpinColors ? static_cast<int32_t>(state.colors[wParam]) : 0;
    default:
        return 0;
    }
}

// ---- Painting ----

// What one paint draws with. What would be drawn with a pen or brush that cannot be made is left
// out. Nothing is drawn with a pen of the face colour, so there is none.
struct SpinTools {
    explicit SpinTools(const SpinState& state)
        : face(Color(state, 0, GetSysColor(COLOR_BTNFACE))),
          arrow(Color(state, 1, GetSysColor(COLOR_BTNTEXT))),
          highlight(Color(state, 3, RGB(255, 255, 255))), arrowPen(MakePen(arrow)),
          shadowPen(MakePen(Color(state, 2, GetSysColor(COLOR_BTNSHADOW)))),
          highlightPen(MakePen(highlight)),
          framePen(MakePen(Color(state, 4, GetSysColor(COLOR_WINDOWFRAME)))),
          faceBrush(MakeBrush(face)), arrowBrush(MakeBrush(arrow)) {}

    static COLORREF Color(const SpinState& state, unsigned slot, COLORREF fallback) {
        return state.colors[slot] == kDefaultColor ? fallback : state.colors[slot];
    }

    COLORREF face;
    COLORREF arrow;
    COLORREF highlight;
    GraphicsObject arrowPen;
    GraphicsObject shadowPen;
    GraphicsObject highlightPen;
    GraphicsObject framePen;
    GraphicsObject faceBrush;
    GraphicsObject arrowBrush;
};

void DrawBevel(HDC context, const SpinTools& tools, const RECT& edge, bool isPressed) {
    const auto [x1, y1, x2, y2] = edge;
    if (isPressed) {
        DrawLines(context, tools.shadowPen, {{x1 + 1, y2 - 1}, {x1 + 1, y1 + 1}, {x2, y1 + 1}});
        return;
    }
    DrawLines(context, tools.shadowPen, {{x1 + 1, y2 - 1}, {x2 - 1, y2 - 1}, {x2 - 1, y1}});
    DrawLines(context, tools.shadowPen, {{x1 + 2, y2 - 2}, {x2 - 2, y2 - 2}, {x2 - 2, y1 + 1}});
    DrawLines(context, tools.highlightPen, {{x1 + 1, y2 - 2}, {x1 + 1, y1 + 1}, {x2 - 1, y1 + 1}});
}

void FillTriangle(HDC context, const SpinTools& tools, POINT first, POINT second, POINT third) {
    const Selection pen(context, tools.arrowPen.get());
    const Selection brush(context, tools.arrowBrush.get());
    const POINT corners[] = {first, second, third};
    if (pen && brush) {
        Polygon(context, corners, 3);
    }
}

// Sizes of the client area and their halves and quarters, and how far a pressed half's arrow
// has moved right and down.
struct SpinPlaces {
    LONG w, h, hw, hh, qw, qh;
    LONG d1, d2;
};

void DrawVertical(HDC context, const SpinTools& tools, const SpinPlaces& at, bool isDisabled) {
    const auto [w, h, hw, hh, qw, qh, d1, d2] = at;
    DrawLines(context, tools.framePen, {{0, hh}, {w, hh}});
    DrawBevel(context, tools, {0, 0, w - 1, hh}, d1 != 0);
    DrawBevel(context, tools, {0, hh, w - 1, h - 1}, d2 != 0);
    if (!isDisabled) {
        FillTriangle(context, tools, {hw + d1, qh + d1 - 2}, {hw + d1 - 3, qh + d1 + 1},
                     {hw + d1 + 3, qh + d1 + 1});
        FillTriangle(context, tools, {hw + d2, qh + hh + d2 + 1}, {hw + d2 - 3, qh + hh + d2 - 2},
                     {hw + d2 + 3, qh + hh + d2 - 2});
        return;
    }
    DrawLines(context, tools.arrowPen, {{hw, qh - 2}, {hw - 3, qh + 1}});
    DrawLines(context, tools.arrowPen, {{hw - 3, qh + hh - 2}, {hw + 3, qh + hh - 2}});
    DrawLines(context, tools.highlightPen, {{hw - 3, qh + 1}, {hw + 3, qh + 1}});
    DrawLines(context, tools.highlightPen, {{hw + 3, qh + hh - 2}, {hw, qh + hh + 1}});
    SetPixel(context, hw, qh + hh + 1, tools.highlight);
}

void DrawHorizontal(HDC context, const SpinTools& tools, const SpinPlaces& at, bool isDisabled) {
    const auto [w, h, hw, hh, qw, qh, d1, d2] = at;
    DrawLines(context, tools.framePen, {{hw, 0}, {hw, h}});
    DrawBevel(context, tools, {0, 0, hw, h - 1}, d1 != 0);
    DrawBevel(context, tools, {hw, 0, w - 1, h - 1}, d2 != 0);
    if (!isDisabled) {
        FillTriangle(context, tools, {qw + d1 - 2, hh + d1}, {qw + d1 + 1, hh + d1 + 3},
                     {qw + d1 + 1, hh + d1 - 3});
        FillTriangle(context, tools, {qw + hw + d2 + 1, hh + d2}, {qw + hw + d2 - 2, hh + d2 + 3},
                     {qw + hw + d2 - 2, hh + d2 - 3});
        return;
    }
    DrawLines(context, tools.arrowPen, {{qw - 2, hh}, {qw + 1, hh - 3}});
    DrawLines(context, tools.arrowPen, {{qw + hw - 2, hh - 3}, {qw + hw - 2, hh + 3}});
    DrawLines(context, tools.highlightPen, {{qw + 1, hh - 3}, {qw + 1, hh + 3}});
    DrawLines(context, tools.highlightPen, {{qw + hw + 1, hh}, {qw + hw - 2, hh + 3}});
}

void Draw(HWND window, const SpinState& state, HDC context) {
    RECT client{};
    GetClientRect(window, &client);
    const SpinTools tools(state);
    {
        const Selection brush(context, tools.faceBrush.get());
        const Selection pen(context, tools.framePen.get());
        if (brush && pen) {
            Rectangle(context, client.left, client.top, client.right, client.bottom);
        }
    }
    SpinPlaces at{};
    at.w = client.right;
    at.h = client.bottom;
    at.hw = at.w >> 1;
    at.hh = at.h >> 1;
    at.qw = at.hw >> 1;
    at.qh = at.hh >> 1;
    const bool isOutside = (state.spinFlags & kSpinPointerOutside) != 0;
    at.d1 = (state.spinFlags & kSpinFirstPressed) != 0 && !isOutside;
    at.d2 = (state.spinFlags & kSpinSecondPressed) != 0 && !isOutside;
    const bool isDisabled = (state.spinFlags & kSpinDisabled) != 0;
    if (IsVertical(state)) {
        DrawVertical(context, tools, at, isDisabled);
    } else {
        DrawHorizontal(context, tools, at, isDisabled);
    }
}

void Paint(HWND window, const SpinState& state) {
    PAINTSTRUCT paint;
    const HDC context = BeginPaint(window, &paint);
    if (context != nullptr) {
        Draw(window, state, context);
        EndPaint(window, &paint);
    }
}

void Initialize(HWND window, SpinState& state, const CREATESTRUCTW& creation) {
    state.target = reinterpret_cast<HWND>(GetWindowLongPtrW(window, GWLP_HWNDPARENT));
    state.spinStyle = static_cast<uint32_t>(creation.style);
    RangeText range{0, 9, 5};
    if ((state.spinStyle & SPINS_RANGEINTEXT) != 0) {
        (void)ParseRangeText(creation.lpszName, &range);  // the default range stays otherwise
    }
    state.minimum = static_cast<int16_t>(range.minimum);
    state.maximum = static_cast<int16_t>(range.maximum);
    state.position = static_cast<int16_t>(range.position);
    if (state.position < state.minimum || state.position > state.maximum) {
        state.position = Middle(state.minimum, state.maximum);
    }
    state.spinFlags = 0;
    for (uint32_t& color : state.colors) {
        color = kDefaultColor;
    }
}

}  // namespace

void RegisterSpinClass(HINSTANCE instance) {
    RegisterControlClass(kSpinClassName, SpinWindowProc, instance, isSpinRegistered);
}

void UnregisterSpinClass(HINSTANCE instance) {
    UnregisterControlClass(kSpinClassName, instance, isSpinRegistered);
}

LRESULT CALLBACK SpinWindowProc(HWND window, UINT message, WPARAM wParam, LPARAM lParam) {
    if (message == WM_NCCREATE) {
        return AttachControlState(window, sizeof(SpinState));
    }
    auto* state = ControlState<SpinState>(window);
    if (state == nullptr) {
        return DefWindowProcW(window, message, wParam, lParam);
    }
    if (message >= WM_USER) {
        return HandleControlMessage(window, *state, message, wParam, lParam);
    }
    switch (message) {
    case WM_CREATE:
        Initialize(window, *state, *reinterpret_cast<const CREATESTRUCTW*>(lParam));
        return 1;
    case WM_NCDESTROY:
        FreeControlState(window);
        return 0;
    case WM_PAINT:
        Paint(window, *state);
        return 0;
    case WM_ERASEBKGND:
    case WM_SHOWWINDOW:
        return 0;
    case WM_ENABLE:
        if (wParam == 0) {
            state->spinFlags |= kSpinDisabled;
        } else {
            state->spinFlags &= ~kSpinDisabled;
        }
        RepaintNow(window, nullptr);
        return 0;
    case WM_LBUTTONDOWN:
    case WM_LBUTTONDBLCLK:
        Press(window, *state, PointerIn(lParam));
        return 0;
    case WM_MOUSEMOVE:
        Track(window, *state, PointerIn(lParam));
        return 0;
    case WM_TIMER:
        Repeat(window, *state, wParam);
        return 0;
    case WM_LBUTTONUP:
        Release(window, *state);
        return 0;
    case WM_CANCELMODE:
        state->spinFlags &= ~(kSpinFirstPressed | kSpinSecondPressed);
        StopRepeating(window);
        return 0;
    default:
        return DefWindowProcW(window, message, wParam, lParam);
    }
}

}  // namespace ksfax
