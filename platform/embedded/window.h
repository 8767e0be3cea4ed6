#pragma once

// One window of the embedded machine, and what the machine's dialogs, controls and property sheets
// share to make and draw windows. Not for tests and ksfax, which use windows.h.

#include <memory>
#include <string>
#include <vector>

#include "platform/embedded/windows.h"

namespace embedded {

struct Window : Object {
    HWND self = nullptr;
    HWND parent = nullptr;  // of a child its parent, else its owner
    std::u16string className;
    WNDPROC procedure = nullptr;
    HBRUSH background = nullptr;
    DWORD style = 0;
    LONG_PTR id = 0;
    std::u16string text;
    RECT rect = {};  // of a child in its parent, else on the screen
    std::vector<LONG_PTR> extra;
    std::vector<HWND> children;  // those above others first, which is their creation order

    RECT invalid = {};  // client coordinates
    bool needsErase = false;
    std::shared_ptr<Bitmap> surface;  // of a window that is no child
    HFONT font = nullptr;             // WM_SETFONT's

    // Of a button.
    bool isChecked = false;
    // Of a drop-down list.
    struct Item {
        std::u16string text;
        LONG_PTR data = 0;
    };
    std::vector<Item> items;
    int selected = CB_ERR;
    // Of a dialog: its font, deleted with it, and what EndDialog said.
    HFONT ownFont = nullptr;
    bool hasEnded = false;
    INT_PTR result = 0;

    bool IsChild() const { return (style & WS_CHILD) != 0; }
    bool IsDisabled() const { return (style & WS_DISABLED) != 0; }
    RECT ClientRect() const { return {0, 0, rect.right - rect.left, rect.bottom - rect.top}; }
};

// Styles that the machine's own parts know by number.
constexpr DWORD DS_SETFONT = 0x40;
constexpr WCHAR kDialogClass[] = TEXT("#32770");

std::shared_ptr<Window> FindWindowOf(HWND window);
// With ERROR_INVALID_WINDOW_HANDLE when there is none.
std::shared_ptr<Window> RequireWindow(HWND window);
// A resource named by its number; 0 for one that goes by a text, which the machine does not know.
WORD ResourceNumber(LPCWSTR name);

// Does what a call does to a window. 0 when it is told to fail, or there is no such window.
template <typename Act>
auto WithWindow(const char* call, HWND handle, Act act) {
    const auto window = RequireWindow(handle);
    return !Fails(call) && window ? act(*window) : decltype(act(*window)){};
}

// What the machine's own classes do with messages.
LRESULT ButtonProcedure(HWND handle, UINT message, WPARAM wParam, LPARAM lParam);
LRESULT StaticProcedure(HWND handle, UINT message, WPARAM wParam, LPARAM lParam);
LRESULT ComboProcedure(HWND handle, UINT message, WPARAM wParam, LPARAM lParam);
LRESULT DialogProcedure(HWND handle, UINT message, WPARAM wParam, LPARAM lParam);

// The font that a control was given; without one the dialogs' own, not the larger one that a
// fresh context has.
HFONT FontOf(const Window& window);
// The brush of a system colour.
HBRUSH SystemBrush(int color);

// A dialog window from a template, invisible, after its WM_INITDIALOG. As a page it is a child
// whatever its template says. Null when there is no such template.
HWND MakeDialog(HINSTANCE instance, WORD number, HWND parent, DLGPROC procedure, LPARAM parameter,
                bool asPage);
// The caption that a dialog template names, and its size in pixels.
struct TemplateFacts {
    std::u16string caption;
    SIZE size = {};
};
bool ReadTemplateFacts(HINSTANCE instance, WORD number, TemplateFacts& facts);

}  // namespace embedded
