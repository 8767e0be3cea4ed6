#pragma once

// The common property sheet library of the embedded machine: the module compstui.dll with
// CommonPropertySheetUIW, and the person who uses the sheet. The sheet is a window with its one
// page; tabs and buttons are not to be seen, a test or ksfax presses them here.
//
// The library knows the functions that the driver uses: 17 (insert a page, given as a
// PROPSHEETPAGEW, at position 0 and once) and 9 (set the result). Any other fails with 0. One
// sheet at a time is open.

#include <functional>
#include <string>
#include <vector>

#include "platform/embedded/api_property_sheets.h"
#include "platform/embedded/machine.h"

namespace embedded {

struct PropertySheetHost;

// A sheet as its user sees it, while it is open.
class PropertySheet {
  public:
    PropertySheet(PropertySheetHost& host, PFNPROPSHEETUI function, LPARAM parameter);

    HWND window() const { return window_; }
    HWND page() const { return page_; }
    const std::u16string& title() const { return title_; }
    // The page's title on its tab.
    const std::u16string& tab() const { return tab_; }
    // Whether the page said that something changed.
    bool changed() const { return changed_; }

    // The user's acts. OK and Cancel close the sheet; the page may refuse OK (false).
    bool PressOk();
    void PressCancel();
    void PressHelp();

    // ---- For the library ----

    // The whole life of the sheet. Positive when it was shown.
    LONG Run(HWND owner, LPARAM parameter, DWORD* result);
    // What the driver asks of the sheet.
    LONG_PTR Answer(HANDLE handle, UINT function, LPARAM first, LPARAM second);
    void NoteChange() { changed_ = true; }

  private:
    LONG Tell(WORD reason, LPARAM parameter);
    LONG_PTR Insert(LPARAM position, const INSERTPSUIPAGE_INFO& insertion);
    bool Open(HWND owner);
    // What the page's procedure left in DWLP_MSGRESULT.
    LRESULT NotifyPage(UINT code);
    void Close();

    PropertySheetHost& host_;
    PFNPROPSHEETUI function_;
    PROPSHEETUI_INFO information_ = {};
    PROPSHEETPAGEW record_ = {};  // the page's; no procedure while there is none
    SIZE size_ = {};              // the page's
    std::u16string title_;
    std::u16string tab_;
    HWND window_ = nullptr;
    HWND page_ = nullptr;
    bool changed_ = false;
    bool isOpen_ = false;
};

struct PropertySheetHost {
    // Who uses the next sheet that opens. When it returns (or is empty) with the sheet still
    // open, the user presses Cancel.
    std::function<void(PropertySheet&)> user;
    // The library refuses to insert pages: function 17 gives 0.
    bool refusesPages = false;
    // What the driver's function answered, event after event: {reason, result}.
    struct Event {
        WORD reason;
        LONG result;
        bool operator==(const Event&) const = default;
    };
    std::vector<Event> events;
};

// Installs compstui.dll, so that the driver finds it. The host lives with the machine.
PropertySheetHost& InstallPropertySheetHost(Machine& machine);

}  // namespace embedded
