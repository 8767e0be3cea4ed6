#pragma once

// The windows of the embedded machine, looked at from outside: the user at the mouse, the clock
// of the timers, and pictures of what is on the screen. The second half is for the machine's own
// dialogs and controls.
//
// Every top-level window draws on a surface of its own, as if nothing lay in front of it.
// A window is all client area: none has a caption or a frame. Messages are sent and never queued:
// painting and timers happen in Settle() and Advance(), and in a modal dialog before its user
// acts. One thread drives the windows; GetActiveWindow, GetParent and GetClassNameW may be called
// on any.
//
// Windows are placed by the driver in pixels of a screen with 96 dots per inch.

#include <atomic>
#include <deque>
#include <functional>
#include <memory>
#include <string>
#include <vector>

#include "platform/embedded/api_user.h"
#include "platform/embedded/gdi.h"
#include "platform/embedded/machine.h"

namespace embedded {

struct HelpRequest {
    HWND window;
    std::u16string file;
    UINT command;
    ULONG_PTR data;

    bool operator==(const HelpRequest&) const = default;
};

struct Window;
struct PropertySheetHost;

class Windows {
  public:
    Windows();
    ~Windows();

    // ---- The user ----

    // Who stands in front of the next modal dialog, and the one after it. Called once the
    // dialog is shown and painted; when it returns and the dialog is still there (or nobody is
    // left), the user closes the box: IDCANCEL, and if that does not help, the result is -1.
    std::deque<std::function<void(HWND dialog)>> modalUsers;

    // The mouse, in screen coordinates. A disabled window gets nothing; a window that captured
    // the mouse gets all of it.
    void PressMouse(POINT at);
    void MoveMouse(POINT at);
    void ReleaseMouse(POINT at);
    // Clicks on a button. False when it is hidden or disabled.
    bool Click(HWND window);
    // Chooses an item of a drop-down list, with the notifications of a person doing so. False
    // when there is no such item, or the list is hidden or disabled.
    bool Choose(HWND comboBox, int item);

    // ---- Time and painting ----

    // Sends the timers' messages that fall due, in their order, painting after each.
    void Advance(unsigned milliseconds);
    // Paints all that is invalid.
    void Settle();

    // What is on the screen where the window is, children included, after Settle().
    Bitmap Picture(HWND window);

    // ---- What there is ----

    std::u16string TextOf(HWND window) const;
    bool HasClass(std::u16string_view name) const;
    // All children of a window and theirs, in creation order.
    std::vector<HWND> Descendants(HWND window) const;
    unsigned CountWindows() const;
    unsigned CountTimers() const;
    // The window that has the focus, and the one that has the mouse; null for none.
    HWND focus() const;
    HWND capture() const;
    // WinHelpW, in order.
    std::vector<HelpRequest> helpRequests;
    // CoInitialize without its CoUninitialize.
    std::atomic<unsigned> componentUses = 0;

    // ---- Windows of applications, as far as the driver asks about them

    // A window that does nothing but be there, invisible, of a class that needs no registration;
    // with a parent it is that window's child.
    HWND Add(std::u16string className, HWND parent = nullptr);
    // What GetActiveWindow answers, as if the user had turned to that window; null for none, as at
    // first. A window that is shown becomes active by itself.
    void Activate(HWND window);
    // Null when none is active, or it is gone.
    HWND active() const;

    // ---- For the machine's dialogs, controls and property sheets ----

    std::shared_ptr<PropertySheetHost> sheetHost;
    std::shared_ptr<Window> Find(HWND window) const;
    struct State;
    State& state() { return *state_; }

  private:
    std::unique_ptr<State> state_;
};

}  // namespace embedded
