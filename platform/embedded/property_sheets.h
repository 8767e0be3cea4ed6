#pragma once

// The common property sheet library of the embedded machine: the module compstui.dll with
// CommonPropertySheetUIW, and the person who uses the sheet. The sheet is a window with a tab for
// each page and the buttons OK, Cancel and Help; a page is created when it is first turned to.
//
// The library knows the functions that the driver uses: 17 (insert a page, given as a
// PROPSHEETPAGEW, at a position) and 9 (set the result). Any other fails with 0.

#include <functional>
#include <string>
#include <vector>

#include "platform/embedded/api_property_sheets.h"
#include "platform/embedded/machine.h"

namespace embedded {

// A sheet as its user sees it, while it is open.
class PropertySheet {
  public:
    virtual ~PropertySheet() = default;

    virtual HWND window() const = 0;
    virtual HWND page() const = 0;  // the page that is shown; null for a sheet without pages
    virtual std::u16string title() const = 0;
    virtual std::vector<std::u16string> tabs() const = 0;
    // Whether a page said that something changed since the sheet opened or was applied.
    virtual bool changed() const = 0;

    // The user's acts. OK and Cancel close the sheet; a page may refuse OK (false).
    virtual void TurnTo(unsigned tab) = 0;
    virtual bool PressOk() = 0;
    virtual void PressCancel() = 0;
    virtual void PressHelp() = 0;
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
