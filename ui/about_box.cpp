#include "ui/about_box.h"

#include <algorithm>
#include <iterator>

#include "core/module_state.h"
#include "resources/resource.h"
#include "ui/page.h"
#include "ui/page_drawing.h"

namespace ksfax {

namespace {

constexpr int kResourceWordRoom = 40 + 1;  // the longest version word or month, and terminator
constexpr int kLineRoom = 80;              // such a word, three numbers and what is between

constexpr WCHAR kVersionFormat[] = TEXT("%s %u.%02u");
// Month, day, year. Where the month has a name, the line begins behind its number.
constexpr WCHAR kDateFormat[] = TEXT("12 / 18 %s 2006");
constexpr UINT kMonth = (kDateFormat[0] - TEXT('0')) * 10 + (kDateFormat[1] - TEXT('0'));
constexpr size_t kDayInDateFormat = 5;

constexpr int kLogoWidth = 280;  // pixels
constexpr int kLogoHeight = 60;

// How far left of the middle the controls of the page stand; pixels.
constexpr int kPageShift = 10;

void SetVersionLine(HWND dialog, WORD driverVersion) {
    WCHAR word[kResourceWordRoom];
    const bool isLoaded = LoadStringW(resourceModule, IDS_VERSION, word, kResourceWordRoom) > 0;
    WCHAR line[kLineRoom];
    wsprintfW(line, kVersionFormat, isLoaded ? word : TEXT("Version"), UINT{HIBYTE(driverVersion)},
              UINT{LOBYTE(driverVersion)});
    SetDlgItemTextW(dialog, IDC_DRIVER_VERSION, line);
}

void SetDateLine(HWND dialog) {
    WCHAR month[kResourceWordRoom];
    const bool isNamed =
        LoadStringW(resourceModule, IDS_BEFORE_MONTHS + kMonth, month, kResourceWordRoom) > 0;
    WCHAR line[kLineRoom];
    wsprintfW(line, isNamed ? kDateFormat + kDayInDateFormat : kDateFormat,
              isNamed ? month : TEXT("/"));
    SetDlgItemTextW(dialog, IDC_DRIVER_DATE, line);
}

// A control's rectangle on the screen; false when there is no such control.
bool GetControlRect(HWND dialog, int control, RECT* rect) {
    const HWND window = GetDlgItem(dialog, control);
    return window != nullptr && GetWindowRect(window, rect);
}

// The logo stands in the middle between its own upper edge and the driver's name.
void PlaceLogo(HWND dialog) {
    RECT area;
    RECT logo;
    RECT name;
    if (GetWindowRect(dialog, &area) && GetControlRect(dialog, IDC_LOGO, &logo) &&
        GetControlRect(dialog, IDC_DRIVER_NAME, &name)) {
        area.top = logo.top;
        area.bottom = name.top;
        CenterControlInRect(dialog, area, IDC_LOGO, kLogoWidth, kLogoHeight);
    }
}

void FillAboutTexts(HWND dialog, const PrinterSession& session) {
    const DEVMODEW& settings = session.jobSettings.devMode;
    // A record that came from outside may lack the name's terminator.
    WCHAR driverName[CCHDEVICENAME + 1] = {};
    std::copy(std::begin(settings.dmDeviceName), std::end(settings.dmDeviceName), driverName);
    SetWindowTextW(dialog, driverName);
    SetDlgItemTextW(dialog, IDC_DRIVER_NAME, driverName);
    SetVersionLine(dialog, settings.dmDriverVersion);
    SetDateLine(dialog);
    PlaceLogo(dialog);
}

// For each child of the page: into the middle of the sheet, which is wider than the page. The
// place is measured in the sheet and used in the page; the shift makes up for how far the page
// lies inside the sheet.
BOOL CALLBACK CenterChildOnSheet(HWND child, LPARAM) {
    const HWND sheet = GetParent(GetParent(child));
    RECT own;
    RECT around;
    if (sheet == nullptr || !GetWindowRect(child, &own) || !GetWindowRect(sheet, &around)) {
        return TRUE;
    }
    const int width = own.right - own.left;
    own.left = around.left + (around.right - around.left - width) / 2;
    own.right = own.left + width;
    ToClientArea(sheet, &own);
    MoveWindow(child, own.left - kPageShift, own.top, width, own.bottom - own.top, TRUE);
    return TRUE;
}

bool DrawItem(HWND dialog, LPARAM item) {
    const PrinterSession* session = SessionOf(dialog);
    if (session == nullptr) {
        return false;
    }
    DrawPageItem(dialog, reinterpret_cast<const DRAWITEMSTRUCT*>(item), session->jobSettings);
    return true;
}

void InitializeDialog(HWND dialog, PrinterSession* session) {
    BindSession(dialog, session);
    FillAboutTexts(dialog, *session);
}

void InitializePage(HWND dialog, PrinterSession* session) {
    InitializeDialog(dialog, session);
    EnumChildWindows(dialog, CenterChildOnSheet, 0);
    // The sheet has an OK of its own.
    const HWND ok = GetDlgItem(dialog, IDOK);
    EnableWindow(ok, FALSE);
    ShowWindow(ok, SW_HIDE);
}

}  // namespace

void CenterControlInRect(HWND dialog, const RECT& area, int control, int width, int height) {
    RECT own;
    if (!GetControlRect(dialog, control, &own)) {
        return;
    }
    if (width == 0 && height == 0) {
        width = own.right - own.left;
        height = own.bottom - own.top;
    }
    own.left = area.left + (area.right - area.left - width) / 2;
    own.top = area.top + (area.bottom - area.top - height) / 2;
    own.right = own.left + width;
    own.bottom = own.top + height;
    ToClientArea(dialog, &own);
    MoveWindow(GetDlgItem(dialog, control), own.left, own.top, width, height, FALSE);
}

INT_PTR CALLBACK AboutDialogProc(HWND dialog, UINT message, WPARAM wParam, LPARAM lParam) {
    switch (message) {
    case WM_INITDIALOG:
        InitializeDialog(dialog, reinterpret_cast<PrinterSession*>(lParam));
        return FALSE;
    case WM_COMMAND:
        if (LOWORD(wParam) != IDOK && LOWORD(wParam) != IDCANCEL) {
            return FALSE;
        }
        EndDialog(dialog, LOWORD(wParam) == IDOK ? 1 : 0);
        return TRUE;
    case WM_DRAWITEM:
        return DrawItem(dialog, lParam);
    default:
        return FALSE;
    }
}

INT_PTR CALLBACK AboutPageProc(HWND dialog, UINT message, WPARAM, LPARAM lParam) {
    switch (message) {
    case WM_INITDIALOG:
        InitializePage(dialog, reinterpret_cast<PrinterSession*>(
                                   reinterpret_cast<const PROPSHEETPAGEW*>(lParam)->lParam));
        return FALSE;
    case WM_DRAWITEM:
        return DrawItem(dialog, lParam);
    default:
        return FALSE;
    }
}

}  // namespace ksfax
