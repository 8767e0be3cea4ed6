#include <gtest/gtest.h>

#include <algorithm>
#include <functional>
#include <span>

#include "platform/embedded/modules.h"
#include "platform/embedded/property_sheets.h"
#include "platform/embedded/windows.h"
#include "platform/windows_api.h"

extern "C" const std::byte ksfaxui_resources[];
extern "C" const std::byte ksfaxui_resources_end[];

namespace {

using embedded::PropertySheet;
using embedded::PropertySheetHost;

constexpr WORD kAboutDialog = 143;
constexpr WORD kPaperPage = 145;
constexpr int kPaperSize = 170;
constexpr int kPortrait = 176;
constexpr int kLandscape = 177;
constexpr int kFine = 193;
constexpr int kCoarse = 194;
constexpr int kPicture = 166;

struct Command {
    int id;
    UINT code;
    bool operator==(const Command&) const = default;
};
std::vector<Command> commands;
std::vector<UINT> notifications;
LPARAM initParameter;
unsigned drawnItems;
UINT drawnState;
bool refusesToLeave;

INT_PTR Procedure(HWND dialog, UINT message, WPARAM wParam, LPARAM lParam) {
    switch (message) {
        case WM_INITDIALOG:
            initParameter = lParam;
            return FALSE;
        case WM_COMMAND:
            commands.push_back({LOWORD(wParam), HIWORD(wParam)});
            if (LOWORD(wParam) == IDOK) {
                EndDialog(dialog, 42);
            }
            return FALSE;
        case WM_DRAWITEM:
            ++drawnItems;
            drawnState = reinterpret_cast<const DRAWITEMSTRUCT*>(lParam)->itemState;
            return TRUE;
        case WM_NOTIFY: {
            const auto code = reinterpret_cast<const NMHDR*>(lParam)->code;
            notifications.push_back(code);
            if (code == PSN_KILLACTIVE && refusesToLeave) {
                SetWindowLongPtrW(dialog, DWLP_MSGRESULT, TRUE);
                return TRUE;
            }
            return FALSE;
        }
        default:
            return FALSE;
    }
}

class Dialogs : public testing::Test {
  protected:
    Dialogs() {
        commands.clear();
        notifications.clear();
        initParameter = 0;
        drawnItems = 0;
        refusesToLeave = false;
        machine.modules().Install(
            {.path = u"C:\\RES.DLL",
             .exports = {},
             .resources = std::span(ksfaxui_resources, ksfaxui_resources_end)});
        module = LoadLibraryW(TEXT("C:\\RES.DLL"));
    }
    ~Dialogs() override {
        FreeLibrary(module);
        EXPECT_EQ(machine.OpenNow(), embedded::Leaks{});
    }
    INT_PTR Show(WORD number, HWND owner = nullptr) {
        return DialogBoxParamW(module, MAKEINTRESOURCEW(number), owner, Procedure, 99);
    }
    embedded::Machine machine;
    HMODULE module;
};

TEST_F(Dialogs, RunWithTheirOwnerDisabledUntilTheirUserEndsThem) {
    const HWND owner = machine.windows().Add(u"Owner");
    machine.windows().modalUsers.push_back([&](HWND dialog) {
        EXPECT_FALSE(IsWindowEnabled(owner));
        EXPECT_EQ(initParameter, 99);
        EXPECT_EQ(machine.windows().TextOf(dialog), u"About");
        EXPECT_EQ(machine.windows().TextOf(GetDlgItem(dialog, 362)), u"%s %u.%02u");
        EXPECT_EQ(GetDlgItem(dialog, 4711), nullptr);
        EXPECT_EQ(GetActiveWindow(), dialog);
        RECT ok{};
        GetWindowRect(GetDlgItem(dialog, IDOK), &ok);
        // 40 x 14 units at 6 x 13 pixels for 4 x 8 of them.
        EXPECT_EQ(ok.right - ok.left, 60);
        EXPECT_EQ(ok.bottom - ok.top, 23);
        EXPECT_TRUE(machine.windows().Click(GetDlgItem(dialog, IDOK)));
    });
    EXPECT_EQ(Show(kAboutDialog, owner), 42);
    EXPECT_TRUE(IsWindowEnabled(owner));
    EXPECT_EQ(Show(kAboutDialog, owner), -1) << "closed without an answer";
    EXPECT_EQ(commands.back(), (Command{IDCANCEL, BN_CLICKED}));
    EXPECT_EQ(Show(144), -1);
    EXPECT_EQ(GetLastError(), ERROR_RESOURCE_NAME_NOT_FOUND);
    machine.faults.FailCall("CreateWindowExW", 3);
    EXPECT_EQ(Show(kAboutDialog), -1);
    machine.faults.Clear();
    DestroyWindow(owner);
}

// The function that the library calls, with one page or two.
struct Driver {
    std::vector<WORD> pages{kPaperPage};
    HMODULE module = nullptr;
    LONG initResult = 1;
    std::vector<WORD> reasons;
    HANDLE sheet = nullptr;
    PFNCOMPROPSHEET call = nullptr;
    std::vector<LONG_PTR> handles;
};

LONG DriverFunction(PROPSHEETUI_INFO* information, LPARAM parameter) {
    auto& driver = *reinterpret_cast<Driver*>(information->lParamInit);
    driver.reasons.push_back(information->Reason);
    switch (information->Reason) {
        case PROPSHEETUI_REASON_INIT:
            driver.sheet = information->hComPropSheet;
            driver.call = information->pfnComPropSheet;
            for (size_t at = 0; at < driver.pages.size(); ++at) {
                PROPSHEETPAGEW page{};
                page.dwSize = sizeof page;
                page.dwFlags = at == 0 ? PSP_USETITLE | PSP_HASHELP : 0;
                page.hInstance = driver.module;
                page.pszTemplate = MAKEINTRESOURCEW(driver.pages[at]);
                page.pszTitle = TEXT("First");
                page.pfnDlgProc = Procedure;
                INSERTPSUIPAGE_INFO insertion{};
                insertion.cbSize = sizeof insertion;
                insertion.Type = PSUIPAGEINSERT_PROPSHEETPAGE;
                insertion.Mode = INSPSUIPAGE_MODE_INDEX;
                insertion.dwData1 = reinterpret_cast<ULONG_PTR>(&page);
                driver.handles.push_back(driver.call(driver.sheet, CPSFUNC_INSERT_PSUIPAGEW,
                                                     static_cast<LPARAM>(at),
                                                     reinterpret_cast<LPARAM>(&insertion)));
            }
            information->UserData = 7;
            return driver.handles.back() != 0 ? driver.initResult : -1;
        case PROPSHEETUI_REASON_GET_INFO_HEADER: {
            auto* header = reinterpret_cast<PROPSHEETUI_INFO_HEADER*>(parameter);
            static WCHAR title[] = TEXT("Fax");
            header->pTitle = title;
            header->Flags = PSUIHDRF_NOAPPLYNOW | PSUIHDRF_PROPTITLE;
            return 1;
        }
        case PROPSHEETUI_REASON_SET_RESULT:
            EXPECT_EQ(information->UserData, 7u);
            information->Result =
                static_cast<ULONG_PTR>(reinterpret_cast<SETRESULT_INFO*>(parameter)->Result);
            return 1;
        default:
            return 1;
    }
}

class Sheets : public Dialogs {
  protected:
    Sheets() : host(embedded::InstallPropertySheetHost(machine)) { driver.module = module; }
    LONG Open(std::function<void(PropertySheet&)> user) {
        host.user = std::move(user);
        const HMODULE library = LoadLibraryW(TEXT("compstui.dll"));
        const auto show = reinterpret_cast<LONG (*)(HWND, PFNPROPSHEETUI, LPARAM, DWORD*)>(
            reinterpret_cast<void*>(GetProcAddress(library, "CommonPropertySheetUIW")));
        const LONG shown = show(nullptr, DriverFunction, reinterpret_cast<LPARAM>(&driver), &result);
        FreeLibrary(library);
        return shown;
    }
    Driver driver;
    PropertySheetHost& host;
    DWORD result = 77;
};

TEST_F(Sheets, CarryTheDriverFromItsFirstEventToItsLast) {
    driver.pages = {kPaperPage, kAboutDialog};
    EXPECT_EQ(Open([&](PropertySheet& sheet) {
                  EXPECT_EQ(sheet.title(), u"Fax Properties");
                  EXPECT_EQ(sheet.tabs(), (std::vector<std::u16string>{u"First", u"About"}));
                  EXPECT_EQ(GetParent(sheet.page()), sheet.window());
                  EXPECT_EQ(notifications, (std::vector{PSN_SETACTIVE}));
                  SendMessageW(sheet.window(), PSM_CHANGED, 0, 0);
                  EXPECT_TRUE(sheet.changed());
                  sheet.PressHelp();
                  refusesToLeave = true;
                  const HWND first = sheet.page();
                  sheet.TurnTo(1);
                  EXPECT_EQ(sheet.page(), first);
                  EXPECT_FALSE(sheet.PressOk());
                  refusesToLeave = false;
                  sheet.TurnTo(1);
                  EXPECT_NE(sheet.page(), first);
                  EXPECT_FALSE(IsWindowVisible(first));
                  EXPECT_EQ(driver.call(reinterpret_cast<HANDLE>(driver.handles[0]),
                                        CPSFUNC_SET_RESULT, driver.handles[0], CPSUI_OK),
                            1)
                      << "named by a page";
                  EXPECT_EQ(driver.call(driver.sheet, 3, 0, 0), 0) << "a function it lacks";
                  EXPECT_TRUE(machine.windows().Click(GetDlgItem(sheet.window(), IDOK)));
                  EXPECT_FALSE(sheet.PressOk()) << "it is closed";
              }),
              1);
    EXPECT_EQ(result, CPSUI_OK);
    EXPECT_EQ(notifications,
              (std::vector{PSN_SETACTIVE, PSN_HELP, PSN_KILLACTIVE, PSN_KILLACTIVE, PSN_KILLACTIVE,
                           PSN_SETACTIVE, PSN_KILLACTIVE, PSN_APPLY, PSN_APPLY}));
    EXPECT_EQ(host.events, (std::vector<PropertySheetHost::Event>{
                               {PROPSHEETUI_REASON_INIT, 1},
                               {PROPSHEETUI_REASON_GET_INFO_HEADER, 1},
                               {PROPSHEETUI_REASON_SET_RESULT, 1},
                               {PROPSHEETUI_REASON_DESTROY, 1}}));
}

TEST_F(Sheets, CancelWhenTheirUserGoes) {
    EXPECT_EQ(Open(nullptr), 1);
    EXPECT_EQ(result, CPSUI_CANCEL);
    EXPECT_EQ(notifications, (std::vector{PSN_SETACTIVE, PSN_RESET}));
}

TEST_F(Sheets, StayShutWhenThePageOrTheDriverFails) {
    host.refusesPages = true;
    EXPECT_EQ(Open(nullptr), ERR_CPSUI_GETLASTERROR);
    EXPECT_EQ(driver.handles, (std::vector<LONG_PTR>{0}));
    EXPECT_EQ(driver.reasons, (std::vector<WORD>{PROPSHEETUI_REASON_INIT}));
    EXPECT_EQ(result, 77u);
}

TEST_F(Sheets, HoldControlsThatAnswerAsPublished) {
    Open([&](PropertySheet& sheet) {
        const HWND page = sheet.page();
        auto& windows = machine.windows();
        EXPECT_EQ(drawnItems, 1u);
        EXPECT_EQ(drawnState, ODS_DISABLED);
        EXPECT_FALSE(windows.Click(GetDlgItem(page, kPicture)));

        // The two pairs of radio buttons are groups of their own.
        CheckRadioButton(page, kFine, kCoarse, kCoarse);
        EXPECT_TRUE(windows.Click(GetDlgItem(page, kLandscape)));
        EXPECT_TRUE(windows.Click(GetDlgItem(page, kPortrait)));
        EXPECT_EQ(IsDlgButtonChecked(page, kPortrait), BST_CHECKED);
        EXPECT_EQ(IsDlgButtonChecked(page, kLandscape), BST_UNCHECKED);
        EXPECT_EQ(IsDlgButtonChecked(page, kCoarse), BST_CHECKED);
        EXPECT_EQ(commands, (std::vector<Command>{{kLandscape, BN_CLICKED}, {kPortrait, BN_CLICKED}}));

        // A press that ends elsewhere is none.
        RECT at{};
        GetWindowRect(GetDlgItem(page, kLandscape), &at);
        windows.PressMouse({at.left + 2, at.top + 2});
        windows.MoveMouse({0, 0});
        windows.ReleaseMouse({0, 0});
        EXPECT_EQ(commands.size(), 2u);
        commands.clear();

        const HWND list = GetDlgItem(page, kPaperSize);
        const auto ask = [&](UINT message, WPARAM wParam, LPCWSTR text = nullptr) {
            return SendMessageW(list, message, wParam, reinterpret_cast<LPARAM>(text));
        };
        EXPECT_EQ(ask(CB_GETCURSEL, 0), CB_ERR);
        EXPECT_EQ(ask(CB_SELECTSTRING, 0, TEXT("A")), CB_ERR);
        for (const LPCWSTR name : {TEXT("A4"), TEXT("A5"), TEXT("A4 Long")}) {
            ask(CB_ADDSTRING, 0, name);
        }
        EXPECT_EQ(SendMessageW(list, CB_SETITEMDATA, 2, 262), 0);
        EXPECT_EQ(ask(CB_GETITEMDATA, 2), 262);
        EXPECT_EQ(ask(CB_SELECTSTRING, 0, TEXT("a4")), 2) << "the search begins after item 0";
        EXPECT_EQ(ask(CB_SELECTSTRING, static_cast<WPARAM>(-1), TEXT("a4")), 0);
        EXPECT_EQ(ask(CB_SETCURSEL, 3), CB_ERR);
        WCHAR text[8] = {};
        EXPECT_EQ(SendMessageW(list, CB_GETLBTEXT, 1, reinterpret_cast<LPARAM>(text)), 2);
        EXPECT_EQ(std::u16string(text), u"A5");
        EXPECT_TRUE(commands.empty()) << "only a person is announced";
        EXPECT_TRUE(windows.Choose(list, 1));
        EXPECT_EQ(std::ranges::count(commands, Command{kPaperSize, CBN_SELCHANGE}), 1);
        EXPECT_EQ(ask(CB_GETCURSEL, 0), 1);
        EXPECT_FALSE(windows.Choose(list, 3));
        EnableWindow(list, FALSE);
        EXPECT_FALSE(windows.Choose(list, 0));
        ask(CB_RESETCONTENT, 0);
        EXPECT_EQ(ask(CB_GETCURSEL, 0), CB_ERR);
    });
}

}  // namespace
