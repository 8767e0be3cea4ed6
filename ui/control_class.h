#pragma once

// What the module's two window classes have in common: how they are registered, where a window
// keeps its state, the creation text that holds numbers, and how they draw. The classes are
// global, so that dialog templates of any module in the process can name them.

#include <cstdint>
#include <initializer_list>

#include "platform/windows_api.h"

#include "ui/drawing.h"

namespace ksfax {

// Registers a class under `name` and remembers it in `isRegistered`; does nothing when it is
// remembered already. A failure (the name is taken) leaves the class out: dialogs that name it
// do not open, the driver's own pages do not need it.
void RegisterControlClass(LPCWSTR name, WNDPROC procedure, HINSTANCE instance, bool& isRegistered);
// Unregisters it and forgets it, so that a later attach in the same process registers it again.
void UnregisterControlClass(LPCWSTR name, HINSTANCE instance, bool& isRegistered);

// The pointer in the window's extra bytes: null before WM_NCCREATE and after WM_NCDESTROY.
template <typename State>
State* ControlState(HWND window) {
    return reinterpret_cast<State*>(GetWindowLongPtrW(window, 0));
}
// Takes zeroed local memory of that size and hangs it on the window, unless it has some already.
// False when there is none, or it cannot be hung there.
[[nodiscard]] bool AttachControlState(HWND window, SIZE_T bytes);
// Frees it; null from then on.
void FreeControlState(HWND window);

// Three numbers of a creation text.
struct RangeText {
    uint16_t minimum;
    uint16_t maximum;
    uint16_t position;
};
// Reads "minimum,maximum,position": decimal digits, each number modulo 65536. An empty field
// before a comma reads 0; what follows the comma behind the third field is ignored. False, with
// *range untouched, for any other text; null counts as empty.
[[nodiscard]] bool ParseRangeText(LPCWSTR text, RangeText* range);

// Lines from point to point with that pen; the last point itself is not drawn. A null pen draws
// nothing.
void DrawLines(HDC context, const GraphicsObject& pen, std::initializer_list<POINT> points);

// Marks the area, or with null the whole window, and paints it before returning.
void RepaintNow(HWND window, const RECT* area);

}  // namespace ksfax
