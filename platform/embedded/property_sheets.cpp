#include "platform/embedded/property_sheets.h"

#include <algorithm>
#include <memory>
#include <utility>

#include "platform/embedded/api_kernel.h"
#include "platform/embedded/modules.h"
#include "platform/embedded/window.h"

namespace embedded {

namespace {

// Pixels. Around the page there is room for a frame, the tabs above it and the buttons below.
constexpr POINT kPagePlace = {11, 30};
constexpr SIZE kBesidePage = {22, 71};
constexpr SIZE kSmallestPage = {340, 200};

// The one whose function runs now; the driver's calls name it.
PropertySheet* running = nullptr;

LONG_PTR CallSheet(HANDLE handle, UINT function, LPARAM first, LPARAM second) {
    return Fails("PFNCOMPROPSHEET") || running == nullptr
               ? 0
               : running->Answer(handle, function, first, second);
}

INT_PTR SheetProcedure(HWND window, UINT message, WPARAM, LPARAM) {
    if (message != PSM_CHANGED) {
        return FALSE;
    }
    reinterpret_cast<PropertySheet*>(GetWindowLongPtrW(window, DWLP_USER))->NoteChange();
    return TRUE;
}

}  // namespace

PropertySheet::PropertySheet(PropertySheetHost& host, PFNPROPSHEETUI function, LPARAM parameter)
    : host_(host), function_(function) {
    constexpr WORD kUnicode = 1;
    information_.cbSize = sizeof information_;
    information_.Version = 0x0100;
    information_.Flags = kUnicode;
    information_.hComPropSheet = this;
    information_.pfnComPropSheet = CallSheet;
    information_.lParamInit = parameter;
    information_.Result = CPSUI_CANCEL;
}

LONG PropertySheet::Tell(WORD reason, LPARAM parameter) {
    information_.Reason = reason;
    const LONG result = function_(&information_, parameter);
    host_.events.push_back({reason, result});
    return result;
}

LONG_PTR PropertySheet::Answer(HANDLE handle, UINT function, LPARAM first, LPARAM second) {
    if (handle != this && handle != &record_) {
        return 0;
    }
    if (function == CPSFUNC_INSERT_PSUIPAGEW) {
        return Insert(first, *reinterpret_cast<const INSERTPSUIPAGE_INFO*>(second));
    }
    if (function != CPSFUNC_SET_RESULT) {
        return 0;
    }
    SETRESULT_INFO set{.cbSize = sizeof(SETRESULT_INFO),
                       .wReserved = 0,
                       .hSetResult = reinterpret_cast<HANDLE>(first),
                       .Result = second};
    return Tell(PROPSHEETUI_REASON_SET_RESULT, reinterpret_cast<LPARAM>(&set));
}

LONG_PTR PropertySheet::Insert(LPARAM position, const INSERTPSUIPAGE_INFO& insertion) {
    const auto* record = reinterpret_cast<const PROPSHEETPAGEW*>(insertion.dwData1);
    TemplateFacts facts;
    if (host_.refusesPages || record_.pfnDlgProc != nullptr ||
        insertion.cbSize != sizeof insertion || insertion.Type != PSUIPAGEINSERT_PROPSHEETPAGE ||
        insertion.Mode != INSPSUIPAGE_MODE_INDEX || position != 0 ||
        record->dwSize != sizeof *record ||
        !ReadTemplateFacts(record->hInstance, ResourceNumber(record->pszTemplate), facts)) {
        return 0;
    }
    record_ = *record;
    size_ = {std::max(facts.size.cx, kSmallestPage.cx), std::max(facts.size.cy, kSmallestPage.cy)};
    tab_ = (record->dwFlags & PSP_USETITLE) != 0 ? record->pszTitle : facts.caption;
    return reinterpret_cast<LONG_PTR>(&record_);
}

LONG PropertySheet::Run(HWND owner, LPARAM parameter, DWORD* result) {
    if (Tell(PROPSHEETUI_REASON_INIT, parameter) <= 0) {
        return ERR_CPSUI_GETLASTERROR;
    }
    PROPSHEETUI_INFO_HEADER header{};
    header.cbSize = sizeof header;
    header.hWndParent = owner;
    const bool isShown =
        Tell(PROPSHEETUI_REASON_GET_INFO_HEADER, reinterpret_cast<LPARAM>(&header)) > 0;
    if (isShown) {
        title_ = header.pTitle != nullptr ? header.pTitle : u"";
        title_ += (header.Flags & PSUIHDRF_PROPTITLE) != 0 ? u" Properties" : u"";
        const bool ownerWasEnabled = owner != nullptr && EnableWindow(owner, FALSE) == FALSE;
        if (Open(owner)) {
            if (const auto user = std::exchange(host_.user, nullptr)) {
                user(*this);
            }
            PressCancel();
        }
        if (ownerWasEnabled) {
            EnableWindow(owner, TRUE);
        }
        DestroyWindow(window_);
    }
    // After the page is gone, which uses the driver's session to its end.
    Tell(PROPSHEETUI_REASON_DESTROY, parameter);
    if (!isShown) {
        return ERR_CPSUI_GETLASTERROR;
    }
    if (result != nullptr) {
        *result = static_cast<DWORD>(information_.Result);
    }
    return 1;
}

bool PropertySheet::Open(HWND owner) {
    window_ = CreateWindowExW(0, kDialogClass, title_.c_str(), WS_POPUP, 100, 100,
                              size_.cx + kBesidePage.cx, size_.cy + kBesidePage.cy, owner, nullptr,
                              nullptr, nullptr);
    if (window_ == nullptr) {
        return false;
    }
    SetWindowLongPtrW(window_, DWLP_USER, reinterpret_cast<LONG_PTR>(this));
    SetWindowLongPtrW(window_, DWLP_DLGPROC, reinterpret_cast<LONG_PTR>(SheetProcedure));
    page_ = MakeDialog(record_.hInstance, ResourceNumber(record_.pszTemplate), window_,
                       record_.pfnDlgProc, reinterpret_cast<LPARAM>(&record_), true);
    if (page_ == nullptr) {
        return false;
    }
    // The page fills the sheet; controls that a template puts past its own edge show then.
    MoveWindow(page_, kPagePlace.x, kPagePlace.y, size_.cx, size_.cy, FALSE);
    isOpen_ = true;
    NotifyPage(PSN_SETACTIVE);
    ShowWindow(page_, SW_SHOW);
    ShowWindow(window_, SW_SHOW);
    Machine::Current().windows().Settle();
    return true;
}

LRESULT PropertySheet::NotifyPage(UINT code) {
    PSHNOTIFY notification{.hdr = {.hwndFrom = window_, .idFrom = 0, .code = code}, .lParam = 0};
    return SendMessageW(page_, WM_NOTIFY, 0, reinterpret_cast<LPARAM>(&notification));
}

void PropertySheet::Close() {
    isOpen_ = false;
    ShowWindow(window_, SW_HIDE);
}

bool PropertySheet::PressOk() {
    if (!isOpen_ || NotifyPage(PSN_KILLACTIVE) != 0 || NotifyPage(PSN_APPLY) != 0) {
        return false;
    }
    Close();
    return true;
}

void PropertySheet::PressCancel() {
    if (isOpen_) {
        NotifyPage(PSN_RESET);
        Close();
    }
}

void PropertySheet::PressHelp() {
    NotifyPage(PSN_HELP);
}

namespace {

LONG WINAPI ShowSheet(HWND owner, PFNPROPSHEETUI function, LPARAM parameter, DWORD* result) {
    if (Fails("CommonPropertySheetUIW")) {
        return ERR_CPSUI_ALLOCMEM_FAILED;
    }
    PropertySheet sheet(*Machine::Current().windows().sheetHost, function, parameter);
    running = &sheet;
    const LONG answer = sheet.Run(owner, parameter, result);
    running = nullptr;
    return answer;
}

}  // namespace

PropertySheetHost& InstallPropertySheetHost(Machine& machine) {
    machine.windows().sheetHost = std::make_shared<PropertySheetHost>();
    machine.modules().Install(
        {.path = u"C:\\Windows\\System32\\compstui.dll",
         .exports = {{"CommonPropertySheetUIW",
                      reinterpret_cast<FARPROC>(reinterpret_cast<void*>(&ShowSheet))}},
         .resources = {}});
    return *machine.windows().sheetHost;
}

}  // namespace embedded
