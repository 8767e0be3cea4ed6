#include "ui/paper_page.h"

#include <algorithm>
#include <iterator>

#include "core/module_state.h"
#include "description/printer_description.h"
#include "description/text.h"
#include "resources/resource.h"
#include "ui/about_box.h"
#include "ui/drawing.h"
#include "ui/help.h"
#include "ui/page.h"
#include "ui/page_drawing.h"
#include "ui/paper_settings.h"

namespace ksfax {

namespace {

constexpr int kDisplayNameRoom = 256 + 1;  // with the terminator
constexpr int kLabelRoom = 79 + 1;

// For the help system, which reads pairs of 32-bit numbers up to a pair of zeros.
struct HelpRow {
    DWORD control;
    DWORD context;
};
constexpr DWORD kPaperHelp = 37120;
constexpr DWORD kSettingsHelp = 4864;
constexpr HelpRow kPageHelpTable[] = {
    {IDC_PAPER_SIZE_TEXT, kPaperHelp},       {IDC_PAPER_SIZE, kPaperHelp},
    {IDC_ORIENTATION_TEXT, kSettingsHelp},   {IDC_PORTRAIT, kSettingsHelp},
    {IDC_LANDSCAPE, kSettingsHelp},          {IDC_RESOLUTION_200X200, kSettingsHelp},
    {IDC_RESOLUTION_200X100, kSettingsHelp}, {0, 0},
};

int LoadPageString(const PrinterSession& session, UINT string, LPWSTR text, int room) {
    text[0] = 0;
    // Before the page is in its sheet there is no module yet, and LoadStringW takes none for the
    // program that prints: its strings of these numbers say anything.
    return session.pageResourceModule != nullptr
               ? LoadStringW(session.pageResourceModule, string, text, room)
               : 0;
}

// Each item carries its paper's code, and the page goes by that in both directions instead of by
// positions: a paper whose name cannot be loaded has an entry in the list but no item, and what
// the user chooses must be what the user sees.
void FillPaperBox(const PrinterSession& session) {
    const HWND box = GetDlgItem(session.pageWindow, IDC_PAPER_SIZE);
    SendMessageW(box, WM_SETREDRAW, FALSE, 0);
    SendMessageW(box, CB_RESETCONTENT, 0, 0);
    for (const PaperListEntry* entry = session.paperList; entry->displayString != kPaperListEnd;
         ++entry) {
        WCHAR name[kDisplayNameRoom];
        if (LoadPageString(session, entry->displayString, name, kDisplayNameRoom) > 0) {
            const LRESULT item = SendMessageW(box, CB_ADDSTRING, 0, reinterpret_cast<LPARAM>(name));
            if (item >= 0) {
                SendMessageW(box, CB_SETITEMDATA, static_cast<WPARAM>(item), entry->paperCode);
            }
        }
    }
    SendMessageW(box, WM_SETREDRAW, TRUE, 0);
}

// The code of the paper that is selected in the box; false when none is.
bool SelectedPaper(HWND dialog, uint32_t* paperCode) {
    const HWND box = GetDlgItem(dialog, IDC_PAPER_SIZE);
    const LRESULT item = SendMessageW(box, CB_GETCURSEL, 0, 0);
    if (box == nullptr || item < 0) {
        return false;
    }
    *paperCode =
        static_cast<uint32_t>(SendMessageW(box, CB_GETITEMDATA, static_cast<WPARAM>(item), 0));
    return true;
}

// Selects the first item of that paper, or nothing when the paper is not shown by name.
void SelectInPaperBox(HWND dialog, uint32_t paperCode) {
    const HWND box = GetDlgItem(dialog, IDC_PAPER_SIZE);
    const LRESULT count = SendMessageW(box, CB_GETCOUNT, 0, 0);
    LRESULT item = 0;
    while (item < count && SendMessageW(box, CB_GETITEMDATA, static_cast<WPARAM>(item), 0) !=
                               static_cast<LRESULT>(paperCode)) {
        ++item;
    }
    SendMessageW(box, CB_SETCURSEL, static_cast<WPARAM>(item < count ? item : CB_ERR), 0);
}

bool IsSecondHalf(WCHAR character) {
    return character >= 0xDC00 && character <= 0xDFFF;
}

// Cuts `text` to what is narrower than the label, with three dots at its end when there is room
// for more than them and a few letters. No character is cut in half.
void FitToLabel(HWND label, WCHAR* text) {
    constexpr int kLongestWithoutDots = 8;
    RECT rect;
    const HDC context = GetWindowRect(label, &rect) ? GetDC(label) : nullptr;
    if (context == nullptr) {
        return;
    }
    const int whole = lstrlenW(text);
    int length = whole;
    SIZE size{};
    while (length > 0 && GetTextExtentPoint32W(context, text, length, &size) &&
           size.cx >= rect.right - rect.left) {
        --length;
    }
    ReleaseDC(label, context);
    length -= length > 0 && IsSecondHalf(text[length]) ? 1 : 0;
    if (length < whole && length > kLongestWithoutDots) {
        length -= IsSecondHalf(text[length - 3]) ? 1 : 0;
        std::fill_n(text + length - 3, 3, TEXT('.'));
    }
    text[length] = 0;
}

void ShowPaperLabel(HWND dialog, const PrinterSession& session, uint32_t paperCode) {
    const PrivateJobSettings& part = PrivatePart(session.jobSettings);
    WCHAR text[kLabelRoom] = {};
    if (paperCode == kUserPaperSize && part.customPaperName[0] != 0) {
        // The zeroes behind end a name that came without terminator.
        std::copy(std::begin(part.customPaperName), std::end(part.customPaperName), text);
        FitToLabel(GetDlgItem(dialog, IDC_PAPER_LABEL), text);
    } else {
        (void)LoadPageString(session, PaperLabelString(paperCode), text, kLabelRoom);
    }
    SendDlgItemMessageW(dialog, IDC_PAPER_LABEL, WM_SETTEXT, 0, reinterpret_cast<LPARAM>(text));
}

void ShowPaper(HWND dialog, const PrinterSession& session, uint32_t paperCode) {
    SelectInPaperBox(dialog, paperCode);
    ShowPaperLabel(dialog, session, paperCode);
}

void ShowOrientation(HWND dialog, const JobSettings& settings) {
    CheckRadioButton(dialog, IDC_PORTRAIT, IDC_LANDSCAPE,
                     settings.devMode.dmOrientation == DMORIENT_PORTRAIT ? IDC_PORTRAIT
                                                                         : IDC_LANDSCAPE);
}

void ShowFaxResolution(HWND dialog, const JobSettings& settings) {
    CheckRadioButton(dialog, IDC_RESOLUTION_200X200, IDC_RESOLUTION_200X100,
                     PrivatePart(settings).faxResolution != 0 ? IDC_RESOLUTION_200X100
                                                              : IDC_RESOLUTION_200X200);
}

void RepaintPicture(HWND dialog) {
    // A template of the resource module may lack the picture; no window means every window.
    if (const HWND picture = GetDlgItem(dialog, IDC_PAPER_PICTURE); picture != nullptr) {
        InvalidateRect(picture, nullptr, FALSE);
    }
}

void NotifySheet(HWND dialog) {
    SendMessageW(GetParent(dialog), PSM_CHANGED, reinterpret_cast<WPARAM>(dialog), 0);
}

// The template serves outside a property sheet too. In one, Default takes the place of Help.
void ArrangePageButtons(HWND dialog) {
    const HWND restore = GetDlgItem(dialog, IDC_DEFAULT);
    RECT place;
    if (GetWindowRect(GetDlgItem(dialog, IDC_PAGE_HELP), &place)) {
        ToClientArea(dialog, &place);
        MoveWindow(restore, place.left, place.top, place.right - place.left,
                   place.bottom - place.top, FALSE);
    }
    for (const int control : {IDOK, IDCANCEL, IDC_PAGE_HELP}) {
        const HWND button = GetDlgItem(dialog, control);
        ShowWindow(button, SW_HIDE);
        EnableWindow(button, FALSE);
    }
    SetWindowLongW(
        restore, GWL_STYLE,
        static_cast<LONG>(static_cast<DWORD>(GetWindowLongW(restore, GWL_STYLE)) | WS_GROUP));
}

// The resolution may be changed by everybody: it is of the document, not of the printer.
void LockPageControls(HWND dialog) {
    for (const int control : {IDC_PAPER_SIZE_TEXT, IDC_PAPER_SIZE, IDC_ORIENTATION_TEXT,
                              IDC_PORTRAIT, IDC_LANDSCAPE, IDC_DEFAULT}) {
        EnableWindow(GetDlgItem(dialog, control), FALSE);
    }
}

void InitializePage(HWND dialog, PrinterSession* session) {
    BindSession(dialog, session);
    if (SessionOf(dialog) != session) {
        return;  // what the page took could never be given back
    }
    session->pageBrush = CreateSolidBrush(GetSysColor(COLOR_BTNFACE));
    session->pageWindow = dialog;
    BuildPaperList(session);
    FillPaperBox(*session);
    ShowPaper(dialog, *session, BeginPaperPage(session).paperCode);
    ShowOrientation(dialog, session->jobSettings);
    ShowFaxResolution(dialog, session->jobSettings);
    ArrangePageButtons(dialog);
    if (session->canModify == 0) {
        LockPageControls(dialog);
    }
}

void ChoosePaper(HWND dialog, PrinterSession* session) {
    uint32_t paperCode = 0;
    if (!SelectedPaper(dialog, &paperCode)) {
        return;
    }
    ShowPaperLabel(dialog, *session, paperCode);
    SelectPaper(&session->jobSettings, paperCode);
    RepaintPicture(dialog);
    NotifySheet(dialog);
}

void ChooseOrientation(HWND dialog, JobSettings* settings) {
    const bool isChanged =
        SetOrientation(settings, IsDlgButtonChecked(dialog, IDC_PORTRAIT) != BST_UNCHECKED);
    ShowOrientation(dialog, *settings);
    if (isChanged) {
        RepaintPicture(dialog);
        NotifySheet(dialog);
    }
}

void ChooseFaxResolution(HWND dialog, JobSettings* settings) {
    const bool isChanged = SetFaxResolution(
        settings, IsDlgButtonChecked(dialog, IDC_RESOLUTION_200X200) == BST_UNCHECKED);
    ShowFaxResolution(dialog, *settings);
    if (isChanged) {
        NotifySheet(dialog);
    }
}

void ChooseDefaults(HWND dialog, PrinterSession* session) {
    ShowPaper(dialog, *session, RestoreDefaults(session).paperCode);
    ShowOrientation(dialog, session->jobSettings);
    ShowFaxResolution(dialog, session->jobSettings);
    RepaintPicture(dialog);
    SetFocus(GetDlgItem(dialog, IDC_DEFAULT));
    NotifySheet(dialog);
}

void HandleCommand(HWND dialog, PrinterSession* session, WORD control, WORD notification) {
    switch (control) {
    case IDC_ABOUT:
        DialogBoxParamW(resourceModule, MAKEINTRESOURCEW(IDD_ABOUT), dialog, AboutDialogProc,
                        reinterpret_cast<LPARAM>(session));
        break;
    case IDC_PAPER_SIZE:
        if (notification == CBN_SELCHANGE) {
            ChoosePaper(dialog, session);
        }
        break;
    case IDC_PORTRAIT:
    case IDC_LANDSCAPE:
        ChooseOrientation(dialog, &session->jobSettings);
        break;
    case IDC_RESOLUTION_200X200:
    case IDC_RESOLUTION_200X100:
        ChooseFaxResolution(dialog, &session->jobSettings);
        break;
    case IDC_DEFAULT:
        ChooseDefaults(dialog, session);
        break;
    default:
        break;
    }
}

void HandleActivation(HWND dialog, PrinterSession* session) {
    constexpr uint8_t kRefreshLabel = 0x10;
    PrivateJobSettings& part = PrivatePart(session->jobSettings);
    if ((part.pageFlags & kRefreshLabel) != 0) {
        uint32_t paperCode = 0;
        if (SelectedPaper(dialog, &paperCode)) {
            ShowPaperLabel(dialog, *session, paperCode);
        }
        part.pageFlags &= static_cast<uint8_t>(~kRefreshLabel);
    }
}

bool HandleNotification(HWND dialog, PrinterSession* session, UINT code) {
    switch (code) {
    case PSN_SETACTIVE:
        HandleActivation(dialog, session);
        return false;
    case PSN_KILLACTIVE:
    case PSN_RESET:
        if (helpWindow != nullptr) {
            ShowHtmlHelp(nullptr, nullptr, HH_CLOSE_ALL, 0);
        }
        return false;
    case PSN_APPLY: {
        // The host takes a page's handle where it is asked for a sheet's.
        const HANDLE page = session->propSheetPages[0];
        session->propSheetCallback(page, CPSFUNC_SET_RESULT, reinterpret_cast<LPARAM>(page),
                                   CPSUI_OK);
        return true;
    }
    case PSN_HELP:
        helpWindow = ShowHtmlHelp(dialog, session->helpFilePath, HH_DISPLAY_TOPIC, 0);
        return false;
    default:
        return false;
    }
}

void ShowContextHelp(HWND window, const PrinterSession& session, UINT command) {
    WinHelpW(window, session.helpFilePath, command, reinterpret_cast<ULONG_PTR>(kPageHelpTable));
}

// The brush for a static text: the paper's label alone has colours of its own, blue on the
// page's background unless that is the same blue.
HBRUSH ColorLabel(HWND dialog, const PrinterSession& session, HDC context, HWND control) {
    constexpr COLORREF kBlue = RGB(0, 0, 255);
    constexpr COLORREF kWhite = RGB(255, 255, 255);
    if (control != GetDlgItem(dialog, IDC_PAPER_LABEL)) {
        return nullptr;
    }
    const COLORREF face = GetSysColor(COLOR_BTNFACE);
    SetBkColor(context, face);
    SetTextColor(context, face == kBlue ? kWhite : kBlue);
    return session.pageBrush;
}

void EraseBackground(HDC context) {
    const GraphicsObject face = MakeBrush(GetSysColor(COLOR_BTNFACE));
    RECT area;
    if (face && GetClipBox(context, &area) != 0) {
        FillRect(context, &area, static_cast<HBRUSH>(face.get()));
    }
}

void EndPage(HWND dialog, PrinterSession* session) {
    if (session->pageBrush != nullptr) {
        DeleteObject(session->pageBrush);
        session->pageBrush = nullptr;
    }
    session->pageWindow = nullptr;
    BindSession(dialog, nullptr);
}

}  // namespace

INT_PTR CALLBACK PaperPageProc(HWND dialog, UINT message, WPARAM wParam, LPARAM lParam) {
    if (message == WM_INITDIALOG) {
        InitializePage(dialog, reinterpret_cast<PrinterSession*>(
                                   reinterpret_cast<const PROPSHEETPAGEW*>(lParam)->lParam));
        return FALSE;
    }
    PrinterSession* session = SessionOf(dialog);
    if (session == nullptr) {
        return FALSE;
    }
    switch (message) {
    case WM_COMMAND:
        HandleCommand(dialog, session, LOWORD(wParam), HIWORD(wParam));
        return FALSE;
    case WM_NOTIFY:
        return HandleNotification(dialog, session, reinterpret_cast<const NMHDR*>(lParam)->code);
    case WM_HELP:
        ShowContextHelp(static_cast<HWND>(reinterpret_cast<const HELPINFO*>(lParam)->hItemHandle),
                        *session, HELP_WM_HELP);
        return FALSE;
    case WM_CONTEXTMENU:
        ShowContextHelp(reinterpret_cast<HWND>(wParam), *session, HELP_CONTEXTMENU);
        return FALSE;
    case WM_CTLCOLORSTATIC:
        return reinterpret_cast<INT_PTR>(ColorLabel(dialog, *session, reinterpret_cast<HDC>(wParam),
                                                    reinterpret_cast<HWND>(lParam)));
    case WM_ERASEBKGND:
        EraseBackground(reinterpret_cast<HDC>(wParam));
        return TRUE;
    case WM_DRAWITEM:
        DrawPageItem(dialog, reinterpret_cast<const DRAWITEMSTRUCT*>(lParam), session->jobSettings);
        return TRUE;
    case WM_DESTROY:
        EndPage(dialog, session);
        return FALSE;
    default:
        return FALSE;
    }
}

}  // namespace ksfax
