#include "ui/panel_control.h"

#include <algorithm>

#include "ui/control_class.h"
#include "ui/drawing.h"

namespace ksfax {

namespace {

bool isPanelRegistered = false;  // attach and detach alone touch it

// What one paint draws with. What would be drawn with a pen or brush that cannot be made is left
// out. Nothing is drawn with a pen of the face colour, so there is none.
struct PanelTools {
    GraphicsObject textPen = MakePen(GetSysColor(COLOR_BTNTEXT));
    GraphicsObject shadowPen = MakePen(GetSysColor(COLOR_BTNSHADOW));
    GraphicsObject highlightPen = MakePen(RGB(255, 255, 255));
    GraphicsObject framePen = MakePen(GetSysColor(COLOR_WINDOWFRAME));
    GraphicsObject faceBrush = MakeBrush(GetSysColor(COLOR_BTNFACE));
};

void MoveSidesInwards(RECT& rect, LONG by) {
    rect = {rect.left + by, rect.top + by, rect.right - by, rect.bottom - by};
}

// Fills with the face colour inside a frame of that pen. The null pen draws none, and leaves the
// last row and column as they were.
void DrawRectangle(HDC context, const PanelTools& tools, HGDIOBJ framePen, const RECT& rect) {
    const Selection brush(context, tools.faceBrush.get());
    const Selection pen(context, framePen);
    if (brush && pen) {
        Rectangle(context, rect.left, rect.top, rect.right, rect.bottom);
    }
}

// A groove of two pixels, with the shadow on its upper left side and the light on the lower
// right one.
void DrawEtchedFrame(HDC context, const PanelTools& tools, const RECT& rect) {
    const auto [left, top, right, bottom] = rect;
    DrawLines(context, tools.shadowPen, {{left, bottom}, {left, top}, {right, top}});
    DrawLines(context, tools.shadowPen,
              {{left + 1, bottom - 1}, {left + 1, top + 1}, {right - 1, top + 1}});
    DrawLines(context, tools.highlightPen, {{right, top + 1}, {right, bottom}, {left + 1, bottom}});
    DrawLines(context, tools.highlightPen,
              {{right - 1, top + 2}, {right - 1, bottom - 1}, {left + 2, bottom - 1}});
}

void DrawCaption(HDC context, const PanelState& state, const RECT& frame) {
    if (state.caption[0] == 0) {
        return;
    }
    SetTextColor(context, GetSysColor(COLOR_WINDOWFRAME));
    SetBkColor(context, GetSysColor(COLOR_BTNFACE));
    RECT room{frame.left + 5, frame.top + 3, frame.right - 5, frame.bottom - 2};
    DrawTextW(context, state.caption, -1, &room, DT_WORDBREAK);
}

// Ring after ring from the outside; `rect` is what is left inside.
void DrawBevel(HDC context, const PanelState& state, const PanelTools& tools, RECT& rect) {
    const bool isRaised = (state.panelStyle & PANELS_RAISED) != 0;
    const GraphicsObject& bottomRight = isRaised ? tools.textPen : tools.highlightPen;
    const GraphicsObject& topLeft = isRaised ? tools.highlightPen : tools.textPen;
    // Rings beyond the far side lie outside the window, and the width may be 65535.
    const LONG rings = std::min<LONG>(state.bevelWidth, std::max(rect.right, rect.bottom) + 1);
    for (LONG ring = 0; ring < rings; ++ring) {
        const auto [left, top, right, bottom] = rect;
        DrawLines(context, bottomRight, {{right, top}, {right, bottom}, {left, bottom}});
        DrawLines(context, topLeft, {{left, bottom}, {left, top}, {right, top}});
        MoveSidesInwards(rect, 1);
    }
    MoveSidesInwards(rect, state.bevelWidth - rings);
}

void Draw(HWND window, const PanelState& state, HDC context) {
    RECT rect{};
    GetClientRect(window, &rect);
    const PanelTools tools;
    const Selection font(context, GetStockObject(DEFAULT_GUI_FONT));
    const auto closeRight = [&rect] {
        rect = {rect.left, rect.top, rect.right - 1, rect.bottom - 1};
    };
    if ((state.panelStyle & PANELS_CAPTIONED) != 0) {
        DrawRectangle(context, tools, GetStockObject(NULL_PEN), rect);
        MoveSidesInwards(rect, state.bevelWidth);
        closeRight();
        DrawEtchedFrame(context, tools, rect);
        DrawCaption(context, state, rect);
    } else {
        if ((state.panelStyle & PANELS_FILLED) != 0) {
            DrawRectangle(context, tools, GetStockObject(NULL_PEN), rect);
            MoveSidesInwards(rect, 1);
        }
        closeRight();
        DrawBevel(context, state, tools, rect);
    }
    if ((state.panelStyle & PANELS_FRAMED) != 0) {
        DrawRectangle(context, tools, tools.framePen.get(), rect);
    }
}

void Paint(HWND window, const PanelState& state) {
    PAINTSTRUCT paint;
    const HDC context = BeginPaint(window, &paint);
    if (context != nullptr) {
        Draw(window, state, context);
        EndPaint(window, &paint);
    }
}

void Initialize(PanelState& state, const CREATESTRUCTW& creation) {
    state.panelStyle = static_cast<uint32_t>(creation.style);
    RangeText numbers{};
    state.bevelWidth = ParseRangeText(creation.lpszName, &numbers) ? numbers.minimum : 0;
}

void SetCaption(HWND window, PanelState& state, LPCWSTR text) {
    unsigned length = 0;
    while (text != nullptr && length < kCaptionCharacters - 1 && text[length] != 0) {
        state.caption[length] = text[length];
        ++length;
    }
    // A character of two units that no longer fits whole goes whole.
    const auto isFirstOfTwo = [](WCHAR unit) { return unit >= 0xD800 && unit < 0xDC00; };
    if (length == kCaptionCharacters - 1 && isFirstOfTwo(state.caption[length - 1])) {
        --length;
    }
    state.caption[length] = 0;
    InvalidateRect(window, nullptr, TRUE);
}

}  // namespace

void RegisterPanelClass(HINSTANCE instance) {
    RegisterControlClass(kPanelClassName, PanelWindowProc, instance, isPanelRegistered);
}

void UnregisterPanelClass(HINSTANCE instance) {
    UnregisterControlClass(kPanelClassName, instance, isPanelRegistered);
}

LRESULT CALLBACK PanelWindowProc(HWND window, UINT message, WPARAM wParam, LPARAM lParam) {
    if (message == WM_NCCREATE) {
        return AttachControlState(window, sizeof(PanelState));
    }
    auto* state = ControlState<PanelState>(window);
    if (state == nullptr) {
        return DefWindowProcW(window, message, wParam, lParam);
    }
    switch (message) {
    case WM_CREATE:
        Initialize(*state, *reinterpret_cast<const CREATESTRUCTW*>(lParam));
        return 1;
    case WM_SETTEXT:
        SetCaption(window, *state, reinterpret_cast<LPCWSTR>(lParam));
        return 0;
    case WM_PAINT:
        Paint(window, *state);
        return 0;
    case WM_ERASEBKGND:
        return 0;
    case WM_NCDESTROY:
        FreeControlState(window);
        return 0;
    default:
        return DefWindowProcW(window, message, wParam, lParam);
    }
}

}  // namespace ksfax
