#include "platform/embedded/property_sheets.h"

#include <algorithm>
#include <memory>
#include <utility>

#include "platform/embedded/api_kernel.h"
#include "platform/embedded/modules.h"
#include "platform/embedded/window.h"

namespace embedded {

namespace {

// Pixels of the sheet's client area.
constexpr int kMargin = 7;
constexpr int kTabHeight = 19;
constexpr int kTabPadding = 8;
constexpr int kButtonWidth = 75;
constexpr int kButtonHeight = 23;
constexpr int kButtonGap = 6;
constexpr int kHelpButton = 9;
constexpr SIZE kSmallestPage = {340, 200};

struct Page {
    PROPSHEETPAGEW record = {};
    std::u16string title;
    SIZE size = {};
    HWND window = nullptr;  // null until the user first turns to it
};

class Sheet : public PropertySheet {
  public:
    Sheet(PropertySheetHost& host, PFNPROPSHEETUI function, LPARAM parameter);
    ~Sheet() override;

    // The whole life of the sheet. Positive when it was shown.
    LONG Run(HWND owner, LPARAM parameter, DWORD* result);
    // Whether a handle that the driver holds names this sheet or one of its pages.
    bool IsNamedBy(HANDLE handle) const;
    LONG_PTR Insert(LPARAM position, const INSERTPSUIPAGE_INFO* insertion);
    LONG_PTR SetResult(LPARAM page, LPARAM result);

    HWND window() const override { return window_; }
    HWND page() const override { return pages_.empty() ? nullptr : pages_[shown_]->window; }
    std::u16string title() const override { return title_; }
    std::vector<std::u16string> tabs() const override;
    bool changed() const override { return changed_; }
    void TurnTo(unsigned tab) override;
    bool PressOk() override;
    void PressCancel() override;
    void PressHelp() override;

    void Draw(HDC context) const;
    void NoteChange() { changed_ = true; }

  private:
    LONG Tell(WORD reason, LPARAM parameter);
    bool Open(HWND owner);
    void AddButton(int id, LPCWSTR text, DWORD kind, int x, int y);
    // What the page's procedure left in DWLP_MSGRESULT.
    LRESULT NotifyPage(const Page& page, UINT code);
    bool Show(unsigned tab);
    void Close();

    PropertySheetHost& host_;
    PFNPROPSHEETUI function_;
    PROPSHEETUI_INFO information_ = {};
    std::vector<std::unique_ptr<Page>> pages_;
    unsigned shown_ = 0;
    SIZE pageArea_ = kSmallestPage;
    std::u16string title_;
    HWND window_ = nullptr;
    bool changed_ = false;
    bool isOpen_ = false;
};

// Those whose function runs now, the innermost last; the driver's calls name one of them.
std::vector<Sheet*> running;

LONG_PTR CallSheet(HANDLE handle, UINT function, LPARAM first, LPARAM second) {
    static CallSite call("PFNCOMPROPSHEET");
    const auto sheet = std::ranges::find_if(
        running, [&](const Sheet* candidate) { return candidate->IsNamedBy(handle); });
    if (call.Fails() || sheet == running.end()) {
        return 0;
    }
    switch (function) {
        case CPSFUNC_INSERT_PSUIPAGEW:
            return (*sheet)->Insert(first, reinterpret_cast<const INSERTPSUIPAGE_INFO*>(second));
        case CPSFUNC_SET_RESULT:
            return (*sheet)->SetResult(first, second);
        default:
            return 0;
    }
}

INT_PTR SheetProcedure(HWND window, UINT message, WPARAM wParam, LPARAM) {
    auto* sheet = reinterpret_cast<Sheet*>(GetWindowLongPtrW(window, DWLP_USER));
    if (sheet == nullptr) {
        return FALSE;
    }
    switch (message) {
        case WM_ERASEBKGND:
            sheet->Draw(reinterpret_cast<HDC>(wParam));
            SetWindowLongPtrW(window, DWLP_MSGRESULT, TRUE);
            return TRUE;
        case WM_COMMAND:
            switch (LOWORD(wParam)) {
                case IDOK:
                    sheet->PressOk();
                    return TRUE;
                case IDCANCEL:
                    sheet->PressCancel();
                    return TRUE;
                case kHelpButton:
                    sheet->PressHelp();
                    return TRUE;
                default:
                    return FALSE;
            }
        case PSM_CHANGED:
            sheet->NoteChange();
            return TRUE;
        default:
            return FALSE;
    }
}

Sheet::Sheet(PropertySheetHost& host, PFNPROPSHEETUI function, LPARAM parameter)
    : host_(host), function_(function) {
    constexpr WORD kUnicode = 1;
    information_.cbSize = sizeof information_;
    information_.Version = 0x0100;
    information_.Flags = kUnicode;
    information_.hComPropSheet = this;
    information_.pfnComPropSheet = CallSheet;
    information_.lParamInit = parameter;
    information_.Result = CPSUI_CANCEL;
    running.push_back(this);
}

Sheet::~Sheet() {
    std::erase(running, this);
}

bool Sheet::IsNamedBy(HANDLE handle) const {
    return handle == this ||
           std::ranges::any_of(pages_, [&](const auto& page) { return page.get() == handle; });
}

LONG Sheet::Tell(WORD reason, LPARAM parameter) {
    information_.Reason = reason;
    const LONG result = function_(&information_, parameter);
    host_.events.push_back({reason, result});
    return result;
}

LONG_PTR Sheet::Insert(LPARAM position, const INSERTPSUIPAGE_INFO* insertion) {
    if (host_.refusesPages || insertion == nullptr || insertion->cbSize != sizeof *insertion ||
        insertion->Type != PSUIPAGEINSERT_PROPSHEETPAGE ||
        insertion->Mode != INSPSUIPAGE_MODE_INDEX || position < 0 ||
        position > static_cast<LPARAM>(pages_.size())) {
        return 0;
    }
    const auto* record = reinterpret_cast<const PROPSHEETPAGEW*>(insertion->dwData1);
    TemplateFacts facts;
    if (record == nullptr || record->dwSize != sizeof *record ||
        !ReadTemplateFacts(record->hInstance, ResourceNumber(record->pszTemplate), facts)) {
        return 0;
    }
    auto page = std::make_unique<Page>();
    page->record = *record;
    page->size = facts.size;
    page->title = (record->dwFlags & PSP_USETITLE) != 0 && record->pszTitle != nullptr
                      ? record->pszTitle
                      : facts.caption;
    const auto at = pages_.insert(pages_.begin() + position, std::move(page));
    return reinterpret_cast<LONG_PTR>(at->get());
}

LONG_PTR Sheet::SetResult(LPARAM page, LPARAM result) {
    SETRESULT_INFO set{.cbSize = sizeof(SETRESULT_INFO),
                       .wReserved = 0,
                       .hSetResult = reinterpret_cast<HANDLE>(page),
                       .Result = result};
    return Tell(PROPSHEETUI_REASON_SET_RESULT, reinterpret_cast<LPARAM>(&set));
}

LONG Sheet::Run(HWND owner, LPARAM parameter, DWORD* result) {
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
        if ((header.Flags & PSUIHDRF_PROPTITLE) != 0) {
            title_ += u" Properties";
        }
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
    // After the pages are gone, which use the driver's session to their end.
    Tell(PROPSHEETUI_REASON_DESTROY, parameter);
    if (!isShown) {
        return ERR_CPSUI_GETLASTERROR;
    }
    if (result != nullptr) {
        *result = static_cast<DWORD>(information_.Result);
    }
    return 1;
}

bool Sheet::Open(HWND owner) {
    SIZE& size = pageArea_;
    bool hasHelp = false;
    for (const auto& page : pages_) {
        size = {std::max(size.cx, page->size.cx), std::max(size.cy, page->size.cy)};
        hasHelp = hasHelp || (page->record.dwFlags & PSP_HASHELP) != 0;
    }
    const DWORD style = WS_POPUP | WS_CAPTION | WS_SYSMENU | WS_CLIPCHILDREN;
    const Margins frame = FrameOf(style, 0);
    // The page lies in a frame of two pixels below the tabs.
    const int width = size.cx + 2 * kMargin + 8;
    const int height = size.cy + 3 * kMargin + kTabHeight + 8 + kButtonHeight;
    window_ = CreateWindowExW(0, kDialogClass, title_.c_str(), style, 100, 100,
                              width + frame.left + frame.right,
                              height + frame.top + frame.bottom, owner, nullptr, nullptr, nullptr);
    if (window_ == nullptr) {
        return false;
    }
    isOpen_ = true;
    SetWindowLongPtrW(window_, DWLP_USER, reinterpret_cast<LONG_PTR>(this));
    SetWindowLongPtrW(window_, DWLP_DLGPROC, reinterpret_cast<LONG_PTR>(SheetProcedure));
    const int y = height - kMargin - kButtonHeight;
    int x = width - kMargin + kButtonGap;
    constexpr DWORD kPush = 0;
    constexpr DWORD kDefaultPush = 1;
    const int step = kButtonWidth + kButtonGap;
    if (hasHelp) {
        AddButton(kHelpButton, TEXT("&Help"), kPush, x -= step, y);
    }
    AddButton(IDCANCEL, TEXT("Cancel"), kPush, x -= step, y);
    AddButton(IDOK, TEXT("OK"), kDefaultPush, x -= step, y);
    const bool isShown = pages_.empty() || Show(0);
    if (isShown) {
        ShowWindow(window_, SW_SHOW);
        Machine::Current().windows().Settle();
    }
    return isShown;
}

void Sheet::AddButton(int id, LPCWSTR text, DWORD kind, int x, int y) {
    CreateWindowExW(0, TEXT("Button"), text, WS_CHILD | WS_VISIBLE | WS_TABSTOP | kind, x, y,
                    kButtonWidth, kButtonHeight, window_,
                    reinterpret_cast<HMENU>(static_cast<LONG_PTR>(id)), nullptr, nullptr);
}

LRESULT Sheet::NotifyPage(const Page& page, UINT code) {
    PSHNOTIFY notification{.hdr = {.hwndFrom = window_, .idFrom = 0, .code = code}, .lParam = 0};
    return SendMessageW(page.window, WM_NOTIFY, 0, reinterpret_cast<LPARAM>(&notification));
}

bool Sheet::Show(unsigned tab) {
    Page& page = *pages_[tab];
    if (page.window == nullptr) {
        page.window = MakeDialog(page.record.hInstance, ResourceNumber(page.record.pszTemplate),
                                 window_, page.record.pfnDlgProc,
                                 reinterpret_cast<LPARAM>(&page.record), true);
        if (page.window == nullptr) {
            return false;
        }
        // Every page fills the sheet, as large as the largest; controls that a template puts past
        // its own edge show then.
        MoveWindow(page.window, kMargin + 4, kMargin + kTabHeight + 4, pageArea_.cx, pageArea_.cy,
                   FALSE);
    }
    shown_ = tab;
    NotifyPage(page, PSN_SETACTIVE);
    ShowWindow(page.window, SW_SHOW);
    InvalidateRect(window_, nullptr, TRUE);
    return true;
}

void Sheet::Close() {
    isOpen_ = false;
    ShowWindow(window_, SW_HIDE);
}

std::vector<std::u16string> Sheet::tabs() const {
    std::vector<std::u16string> titles;
    for (const auto& page : pages_) {
        titles.push_back(page->title);
    }
    return titles;
}

void Sheet::TurnTo(unsigned tab) {
    if (!isOpen_ || tab >= pages_.size() || tab == shown_ ||
        NotifyPage(*pages_[shown_], PSN_KILLACTIVE) != 0) {
        return;
    }
    ShowWindow(pages_[shown_]->window, SW_HIDE);
    (void)Show(tab);  // a page that cannot be made leaves the old tab chosen, its page hidden
}

bool Sheet::PressOk() {
    if (!isOpen_ || (!pages_.empty() && NotifyPage(*pages_[shown_], PSN_KILLACTIVE) != 0)) {
        return false;
    }
    for (const auto& page : pages_) {
        if (page->window != nullptr && NotifyPage(*page, PSN_APPLY) != 0) {
            return false;
        }
    }
    changed_ = false;
    Close();
    return true;
}

void Sheet::PressCancel() {
    if (!isOpen_) {
        return;
    }
    for (const auto& page : pages_) {
        if (page->window != nullptr) {
            NotifyPage(*page, PSN_RESET);
        }
    }
    Close();
}

void Sheet::PressHelp() {
    if (isOpen_ && !pages_.empty()) {
        NotifyPage(*pages_[shown_], PSN_HELP);
    }
}

void Sheet::Draw(HDC context) const {
    RECT client;
    GetClientRect(window_, &client);
    const auto face = reinterpret_cast<HBRUSH>(COLOR_BTNFACE + uintptr_t{1});
    FillRect(context, &client, face);
    RECT body{kMargin, kMargin + kTabHeight, client.right - kMargin,
              client.bottom - 2 * kMargin - kButtonHeight};
    DrawEdge(context, body, true);
    const auto window = FindWindowOf(window_);
    SelectObject(context, FontOf(*window));
    int x = body.left + 2;
    for (unsigned tab = 0; tab < pages_.size(); ++tab) {
        const std::u16string& title = pages_[tab]->title;
        SIZE size{};
        GetTextExtentPoint32W(context, title.c_str(), static_cast<int>(title.size()), &size);
        const bool isShown = tab == shown_;
        RECT at{x, body.top - kTabHeight + 2, x + size.cx + 2 * kTabPadding, body.top + 1};
        x = at.right;
        if (isShown) {
            at = {at.left - 2, at.top - 2, at.right + 2, body.top + 2};
        }
        DrawEdge(context, {at.left, at.top, at.right, at.bottom + 3}, true);
        RECT open{at.left + 2, at.top + 2, at.right - 2, at.bottom + (isShown ? 1 : -1)};
        FillRect(context, &open, face);
        const RECT below{at.left + 2, body.top + 2, at.right, at.bottom + 4};
        FillRect(context, &below, face);
        DrawControlText(*window, context, title, {at.left, at.top, at.right, body.top},
                        DT_CENTER | DT_VCENTER | DT_SINGLELINE, GetSysColor(COLOR_BTNTEXT));
    }
}

LONG WINAPI ShowSheet(HWND owner, PFNPROPSHEETUI function, LPARAM parameter, DWORD* result) {
    static CallSite call("CommonPropertySheetUIW");
    if (call.Fails()) {
        return ERR_CPSUI_ALLOCMEM_FAILED;
    }
    const auto host = Machine::Current().windows().sheetHost;
    if (function == nullptr || !host) {
        return ERR_CPSUI_INVALID_PDATA;
    }
    return Sheet(*host, function, parameter).Run(owner, parameter, result);
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
