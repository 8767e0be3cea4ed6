#pragma once

// Small owners for drawing, shared by the controls and the pages.

#include "platform/owned.h"
#include "platform/windows_api.h"

namespace ksfax {

// A pen, brush or bitmap, deleted when it goes. It must not be selected into a context then.
struct GraphicsObjectTraits {
    using Value = HGDIOBJ;
    static Value Invalid() { return nullptr; }
    static void Free(Value value) { DeleteObject(value); }
};
using GraphicsObject = platform::Owned<GraphicsObjectTraits>;

inline GraphicsObject MakePen(COLORREF color) {
    return GraphicsObject(CreatePen(PS_SOLID, 1, color));
}
inline GraphicsObject MakeBrush(COLORREF color) {
    return GraphicsObject(CreateSolidBrush(color));
}

// Selects an object into a context and puts the former one back when it goes. Declare it after
// the owner of the object, so that the object is free again when it is deleted. A null object
// (one that could not be made) leaves the context as it is.
class Selection {
  public:
    Selection(HDC context, HGDIOBJ object)
        : context_(context), before_(object != nullptr ? SelectObject(context, object) : nullptr) {}
    ~Selection() {
        if (before_ != nullptr) {
            SelectObject(context_, before_);
        }
    }
    Selection(const Selection&) = delete;
    Selection& operator=(const Selection&) = delete;

    explicit operator bool() const { return before_ != nullptr; }

  private:
    HDC context_;
    HGDIOBJ before_;
};

}  // namespace ksfax
