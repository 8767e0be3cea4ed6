#pragma once

// One window of the embedded machine, and what the machine's dialogs, controls and property sheets
// share to make and draw windows. Not for tests and ksfax, which use windows.h.

#include <memory>
#include <string>
#include <vector>

#include "platform/embedded/windows.h"

namespace embedded {

// What a control of a built-in class keeps beside its window.
struct ControlState {
    virtual ~ControlState() = default;
};

struct DialogState {
    HFONT font = nullptr;  // the dialog's own, deleted with it; null: the default font
    bool hasEnded = false;
    INT_PTR result = 0;
};

struct Window : Object {
    HWND self = nullptr;
    HWND parent = nullptr;  // of a child its parent, else its owner
    std::u16string className;
    WNDPROC procedure = nullptr;
    HINSTANCE instance = nullptr;
    HBRUSH background = nullptr;
    DWORD style = 0;
    DWORD exStyle = 0;
    LONG_PTR id = 0;
    LONG_PTR userData = 0;
    std::u16string text;
    RECT rect = {};  // of a child in its parent's client area, else on the screen
    std::vector<std::byte> extra;
    std::vector<HWND> children;  // those above others first, which is their creation order

    std::vector<RECT> invalid;  // client coordinates
    bool needsErase = false;
    bool needsFrame = false;
    bool redraws = true;
    bool isTransparentToMouse = false;
    std::shared_ptr<Bitmap> surface;  // of a window that is no child

    HFONT font = nullptr;  // WM_SETFONT's
    std::unique_ptr<ControlState> control;
    std::unique_ptr<DialogState> dialog;

    bool IsChild() const { return (style & WS_CHILD) != 0; }
};

// Width of the frame around a client area.
struct Margins {
    int left = 0;
    int top = 0;
    int right = 0;
    int bottom = 0;
};
Margins FrameOf(DWORD style, DWORD exStyle);

// Styles that the machine's own parts know by number.
constexpr DWORD DS_SETFONT = 0x40;
constexpr DWORD DS_MODALFRAME = 0x80;
constexpr DWORD DS_CONTROL = 0x0400;
constexpr WCHAR kDialogClass[] = TEXT("#32770");

std::shared_ptr<Window> FindWindowOf(HWND window);
// A resource named by its number; 0 for one that goes by a text, which the machine does not know.
WORD ResourceNumber(LPCWSTR name);

// A class that every process has without registering it.
struct SystemClass {
    LPCWSTR name;
    WNDPROC procedure;
    int extraBytes = 0;
};
std::vector<SystemClass> ControlClasses();
SystemClass DialogClass();

// Two pixels of raised or sunken edge inside `rect`, as buttons and fields have.
void DrawEdge(HDC context, RECT rect, bool isRaised);
void DrawLine(HDC context, COLORREF color, POINT from, POINT to);
// The font that a control was given; without one the dialogs' own, not the larger one that a
// fresh context has.
HFONT FontOf(const Window& window);
// Text in that font.
void DrawControlText(const Window& window, HDC context, const std::u16string& text, RECT rect,
                     UINT format, COLORREF color);

// A dialog window from a template, invisible, after its WM_INITDIALOG. As a page it is a child
// without frame, whatever its template says. Null when there is no such template.
HWND MakeDialog(HINSTANCE instance, WORD number, HWND parent, DLGPROC procedure, LPARAM parameter,
                bool asPage);
// The caption that a dialog template names, and its size in pixels as a page.
struct TemplateFacts {
    std::u16string caption;
    SIZE size = {};
};
bool ReadTemplateFacts(HINSTANCE instance, WORD number, TemplateFacts& facts);

}  // namespace embedded
