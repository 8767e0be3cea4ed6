#include <algorithm>
#include <nlohmann/json.hpp>

#include "platform/embedded/modules.h"
#include "platform/embedded/registry.h"

#include "core/session.h"
#include "tests/ui/sheet_fixture.h"
#include "ui/about_box.h"
#include "ui/help.h"
#include "ui/user_folder.h"

namespace ksfax {
namespace {

using embedded::PropertySheetHost;
using tests::SheetTest;

constexpr char16_t kPrinter[] = u"Fax";

// ---- The old entry points

class PropertySheets : public SheetTest {
  protected:
    static void PressOk(Sheet& sheet) { EXPECT_TRUE(sheet.PressOk()); }
    static void PressCancel(Sheet& sheet) { sheet.PressCancel(); }

    LONG ShowAdvanced(std::function<void(Sheet&)> user, DEVMODEW* input = nullptr) {
        host.user = std::move(user);
        output = kUntouched;
        std::u16string name = kPrinter;
        return DrvAdvancedDocumentProperties(nullptr, printer.get(), name.data(), &output.devMode,
                                             input);
    }
};

TEST_F(PropertySheets, TellTheRecordsSizeAndTouchNothing) {
    EXPECT_EQ(ShowDocument(PressOk, nullptr, 0), 2608);
    EXPECT_EQ(DrvDocumentProperties(nullptr, nullptr, nullptr, nullptr, nullptr, DM_OUT_BUFFER),
              2608);
    EXPECT_EQ(DrvAdvancedDocumentProperties(nullptr, nullptr, nullptr, nullptr, nullptr), 2608);
    EXPECT_TRUE(OutputIsUntouched());
    EXPECT_TRUE(host.events.empty());
    DOCUMENTPROPERTYHEADER header{};
    header.fMode = DM_OUT_BUFFER;
    EXPECT_EQ(DrvDocumentPropertySheets(nullptr, reinterpret_cast<LPARAM>(&header)), 2608);
    EXPECT_EQ(header.cbOut, 2608u);
    header.fMode = 0;
    header.pdmOut = &output.devMode;
    EXPECT_EQ(DrvDocumentPropertySheets(nullptr, reinterpret_cast<LPARAM>(&header)), 2608);
    EXPECT_TRUE(OutputIsUntouched());
    EXPECT_EQ(DrvDocumentPropertySheets(nullptr, 0), -1);
}

TEST_F(PropertySheets, MergeWithoutASheet) {
    JobSettings input = DefaultRecord();
    input.devMode.dmPaperSize = DMPAPER_A4;
    const struct {
        DWORD mode;
        bool isWritten;
    } rows[] = {{DM_OUT_BUFFER, true}, {DM_UPDATE, true}, {DM_IN_BUFFER, false}};
    for (const auto& row : rows) {
        EXPECT_EQ(ShowDocument(PressOk, &input, row.mode), IDOK);
        EXPECT_NE(OutputIsUntouched(), row.isWritten) << row.mode;
    }
    // The input counts without DM_IN_BUFFER too, and bounds the output.
    input.devMode.dmDriverExtra = 0;
    EXPECT_EQ(ShowDocument(PressOk, &input, DM_OUT_BUFFER), IDOK);
    EXPECT_EQ(output.devMode.dmPaperSize, DMPAPER_A4);
    EXPECT_EQ(output.devMode.dmDriverExtra, 0);
    EXPECT_EQ(output.privateBytes[0], 0xAA);
    EXPECT_TRUE(host.events.empty());
    std::u16string name = kPrinter;
    EXPECT_EQ(DrvDocumentProperties(nullptr, nullptr, name.data(), &output.devMode, nullptr,
                                    DM_OUT_BUFFER),
              -1)
        << "no session on such a printer";
}

TEST_F(PropertySheets, HandOutWhatTheUserConfirms) {
    const auto turnAndConfirm = [&](Sheet& sheet) {
        EXPECT_EQ(sheet.title(), u"Fax Properties");
        EXPECT_EQ(sheet.tabs(), std::vector<std::u16string>{u"Basic"});
        Click(sheet.page(), IDC_LANDSCAPE);
        SessionOf(sheet.page())->jobSettings.devMode.dmDefaultSource = 5;
        EXPECT_TRUE(OutputIsUntouched());
        sheet.PressOk();
    };
    EXPECT_EQ(ShowDocument(turnAndConfirm), IDOK);
    EXPECT_EQ(output.devMode.dmOrientation, DMORIENT_LANDSCAPE);
    EXPECT_EQ(PrivatePart(output).sourceOut, 5) << "the job block is derived anew";
    EXPECT_EQ(host.events,
              (std::vector<PropertySheetHost::Event>{{PROPSHEETUI_REASON_INIT, 1},
                                                     {PROPSHEETUI_REASON_GET_INFO_HEADER, 1},
                                                     {PROPSHEETUI_REASON_SET_RESULT, 1},
                                                     {PROPSHEETUI_REASON_DESTROY, 1}}));
    EXPECT_EQ(ShowAdvanced(turnAndConfirm), 1);
    EXPECT_EQ(output.devMode.dmOrientation, DMORIENT_LANDSCAPE);
    JobSettings input = DefaultRecord();
    input.devMode.dmOrientation = DMORIENT_LANDSCAPE;
    EXPECT_EQ(ShowAdvanced(PressOk, &input.devMode), 1);
    EXPECT_EQ(output.devMode.dmOrientation, DMORIENT_LANDSCAPE) << "the input counts";
    EXPECT_EQ(ShowDocument(PressOk, nullptr, DM_IN_PROMPT), IDOK);
    EXPECT_TRUE(OutputIsUntouched()) << "nobody asked for it";

    EXPECT_EQ(ShowDocument(PressCancel), IDCANCEL);
    EXPECT_TRUE(OutputIsUntouched());
    EXPECT_EQ(ShowAdvanced(PressCancel), 0);
    EXPECT_TRUE(OutputIsUntouched());
}

TEST_F(PropertySheets, StandBeforeTheirOwner) {
    const HWND owner = fax.machine.windows().Add(u"Dialog");
    unsigned shown = 0;
    const auto look = [&](Sheet&) {
        EXPECT_FALSE(IsWindowEnabled(owner));
        ++shown;
    };
    std::u16string name = kPrinter;
    host.user = look;
    DrvDocumentProperties(owner, printer.get(), name.data(), &output.devMode, nullptr,
                          DM_IN_PROMPT);
    host.user = look;
    DrvAdvancedDocumentProperties(owner, printer.get(), name.data(), &output.devMode, nullptr);
    host.user = look;
    PrinterProperties(owner, printer.get());
    EXPECT_EQ(shown, 3u);
    EXPECT_TRUE(IsWindowEnabled(owner));
    DestroyWindow(owner);
}

TEST_F(PropertySheets, FailWhenTheHostRefusesOrIsMissing) {
    host.refusesPages = true;
    EXPECT_EQ(ShowDocument(PressOk), -1);
    EXPECT_EQ(ShowAdvanced(PressOk), 0);
    EXPECT_EQ(PrinterProperties(nullptr, printer.get()), TRUE);
    EXPECT_EQ(host.events, std::vector<PropertySheetHost::Event>(3, {PROPSHEETUI_REASON_INIT, -1}));
    fax.machine.faults.FailCall("GetProcAddress");
    EXPECT_EQ(ShowDocument(PressOk), -1);
    fax.machine.faults.Clear();
    fax.machine.modules().Remove(u"C:\\Windows\\System32\\compstui.dll");
    EXPECT_EQ(ShowDocument(PressOk), -1);
    EXPECT_EQ(ShowAdvanced(PressOk), 0);
    EXPECT_EQ(PrinterProperties(nullptr, printer.get()), TRUE);
    EXPECT_TRUE(OutputIsUntouched());
}

// The answer is the whole record, or the output is untouched.
TEST_F(PropertySheets, MergeOrLeaveTheOutputAloneWhateverFails) {
    LONG result = 0;
    fax.FailEachCall([] {}, [&] { result = ShowDocument(nullptr, nullptr, DM_OUT_BUFFER); },
                     [&](const std::string& failed) {
                         EXPECT_EQ(result == IDOK, !OutputIsUntouched()) << failed;
                     });
}

TEST_F(PropertySheets, ProbeWhetherThePrinterMayBeChanged) {
    uint32_t canModify = 77;
    const auto look = [&](Sheet& sheet) {
        EXPECT_EQ(sheet.tabs(), std::vector<std::u16string>{u"About"});
        canModify = SessionOf(sheet.page())->canModify;
    };
    host.user = look;
    EXPECT_EQ(PrinterProperties(nullptr, printer.get()), FALSE) << "cancelled";
    EXPECT_EQ(canModify, 1u);
    EXPECT_EQ(fax.machine.spooler().PrinterData(kPrinter, u"Permission"),
              embedded::StoredNumber(1));
    fax.machine.spooler().RemovePrinterData(kPrinter, u"Permission");
    const platform::PrinterHandle user = fax.Open(kPrinter, false);
    host.user = look;
    PrinterProperties(nullptr, user.get());
    EXPECT_EQ(canModify, 0u);
    EXPECT_FALSE(fax.machine.spooler().PrinterData(kPrinter, u"Permission"));
}

// ---- The events of a sheet, from a host of the test's own

struct Insertion {
    HANDLE sheet;
    LPARAM position;
    INSERTPSUIPAGE_INFO insertion;
    PROPSHEETPAGEW page;
    std::u16string title;
};
std::vector<Insertion> insertions;

LONG_PTR CALLBACK TakePage(HANDLE sheet, UINT function, LPARAM first, LPARAM second) {
    EXPECT_EQ(function, CPSFUNC_INSERT_PSUIPAGEW);
    const auto& insertion = *reinterpret_cast<const INSERTPSUIPAGE_INFO*>(second);
    const auto& page = *reinterpret_cast<const PROPSHEETPAGEW*>(insertion.dwData1);
    EXPECT_EQ(reinterpret_cast<const PrinterSession*>(page.lParam)->pageResourceModule, nullptr)
        << "not before the page is in";
    insertions.push_back({sheet, first, insertion, page, page.pszTitle ? page.pszTitle : u""});
    return 42;
}

class SheetEvents : public SheetTest {
  protected:
    using Function = LONG (*)(PPROPSHEETUI_INFO, LPARAM);

    SheetEvents() {
        insertions.clear();
        document.hPrinter = device.hPrinter = printer.get();
        document.pszPrinterName = device.pszPrinterName = title.data();
        document.pdmOut = &output.devMode;
        document.fMode = DM_OUT_BUFFER;
    }
    PROPSHEETUI_INFO NewSheet(Function function) {
        PROPSHEETUI_INFO information{};
        information.hComPropSheet = &insertions;
        information.pfnComPropSheet = TakePage;
        information.lParamInit = function == DrvDocumentPropertySheets
                                     ? reinterpret_cast<LPARAM>(&document)
                                     : reinterpret_cast<LPARAM>(&device);
        information.Result = 99;
        return information;
    }
    void GoThroughBothSheets();
    template <typename Record>
    static LONG Tell(Function function, PROPSHEETUI_INFO* information, WORD reason,
                     Record* parameter) {
        information->Reason = reason;
        return function(information, reinterpret_cast<LPARAM>(parameter));
    }

    std::u16string title = kPrinter;
    DOCUMENTPROPERTYHEADER document{};
    DEVICEPROPERTYHEADER device{};
    PROPSHEETUI_INFO_HEADER header{};
    SETRESULT_INFO result{.cbSize = sizeof(SETRESULT_INFO),
                          .wReserved = 0,
                          .hSetResult = nullptr,
                          .Result = CPSUI_OK};
};

TEST_F(SheetEvents, GoFromTheFirstToTheLast) {
    WithResources({{591, u"Basis"}}, [this] { GoThroughBothSheets(); });
}

void SheetEvents::GoThroughBothSheets() {
    for (const Function function : {DrvDocumentPropertySheets, DrvDevicePropertySheets}) {
        const bool isDocument = function == DrvDocumentPropertySheets;
        insertions.clear();
        PROPSHEETUI_INFO information = NewSheet(function);
        ASSERT_EQ(Tell(function, &information, PROPSHEETUI_REASON_INIT, &header), 1);
        EXPECT_EQ(information.Result, 0u);
        auto* session = reinterpret_cast<PrinterSession*>(information.UserData);
        ASSERT_TRUE(IsPrinterSession(session));
        EXPECT_EQ(session->canModify, 1u);
        EXPECT_EQ(session->pageResourceModule, resourceModule);
        EXPECT_EQ(session->propSheetPages[0], reinterpret_cast<HANDLE>(isDocument ? 42 : 0));

        ASSERT_EQ(insertions.size(), 1u);
        const Insertion& insertion = insertions[0];
        EXPECT_EQ(insertion.sheet, &insertions);
        EXPECT_EQ(insertion.position, 0);
        EXPECT_EQ(insertion.insertion.cbSize, 32);
        EXPECT_EQ(insertion.insertion.Type, 3);
        EXPECT_EQ(insertion.insertion.Mode, 4);
        EXPECT_EQ(insertion.insertion.dwData2, 0u);
        EXPECT_EQ(insertion.insertion.dwData3, 0u);
        EXPECT_EQ(insertion.page.dwSize, sizeof(PROPSHEETPAGEW));
        EXPECT_EQ(insertion.page.dwFlags, isDocument ? 0x28u : 0u);
        EXPECT_EQ(insertion.page.hInstance, resourceModule);
        EXPECT_EQ(insertion.page.pszTemplate, MAKEINTRESOURCEW(isDocument ? 145 : 143));
        EXPECT_EQ(insertion.title, isDocument ? u"Basis" : u"");
        EXPECT_EQ(insertion.page.lParam, reinterpret_cast<LPARAM>(session));

        EXPECT_EQ(Tell(function, &information, PROPSHEETUI_REASON_GET_INFO_HEADER, &header), 1);
        EXPECT_EQ(header.Flags, 6);
        EXPECT_EQ(header.pTitle, title.data());
        EXPECT_EQ(header.hInst, fax.driver.instance());
        EXPECT_EQ(header.IconID, 64062u);
        EXPECT_EQ(Tell(function, &information, PROPSHEETUI_REASON_GET_ICON, &header), -1);
        for (const WORD reason :
             {PROPSHEETUI_REASON_GET_INFO_HEADER, PROPSHEETUI_REASON_SET_RESULT}) {
            information.Reason = reason;
            EXPECT_EQ(function(&information, 0), -1) << "without a record";
        }

        result.Result = CPSUI_CANCEL;
        EXPECT_EQ(Tell(function, &information, PROPSHEETUI_REASON_SET_RESULT, &result), 1);
        EXPECT_EQ(information.Result, 0u);
        EXPECT_TRUE(OutputIsUntouched());
        result.Result = 2;  // compstui's for a restart
        EXPECT_EQ(Tell(function, &information, PROPSHEETUI_REASON_SET_RESULT, &result), 1);
        EXPECT_EQ(information.Result, 2u);
        EXPECT_TRUE(OutputIsUntouched());
        result.Result = CPSUI_OK;
        EXPECT_EQ(Tell(function, &information, PROPSHEETUI_REASON_SET_RESULT, &result), 1);
        EXPECT_EQ(information.Result, 1u);
        EXPECT_NE(OutputIsUntouched(), isDocument);
        document.pdmOut = nullptr;
        EXPECT_EQ(Tell(function, &information, PROPSHEETUI_REASON_SET_RESULT, &result), 1);
        document.pdmOut = &output.devMode;
        output = kUntouched;

        EXPECT_EQ(Tell(function, &information, PROPSHEETUI_REASON_DESTROY, &header), 1);
        EXPECT_EQ(information.UserData, 0u);
        for (const WORD reason : {PROPSHEETUI_REASON_GET_INFO_HEADER, PROPSHEETUI_REASON_DESTROY,
                                  PROPSHEETUI_REASON_SET_RESULT}) {
            EXPECT_EQ(Tell(function, &information, reason, &header), -1) << "after the last";
        }
    }
}

TEST_F(SheetEvents, RefuseWhatIsNoSheetOfTheirs) {
    PrinterSession stranger{};
    stranger.selfCheckHead = &stranger;
    for (const Function function : {DrvDocumentPropertySheets, DrvDevicePropertySheets}) {
        PROPSHEETUI_INFO information = NewSheet(function);
        for (const WORD reason : {PROPSHEETUI_REASON_GET_INFO_HEADER, PROPSHEETUI_REASON_DESTROY,
                                  PROPSHEETUI_REASON_SET_RESULT}) {
            information.UserData = 0;
            EXPECT_EQ(Tell(function, &information, reason, &header), -1);
            information.UserData = reinterpret_cast<ULONG_PTR>(&stranger);
            EXPECT_EQ(Tell(function, &information, reason, &header), -1);
        }
        information.lParamInit = 0;
        EXPECT_EQ(Tell(function, &information, PROPSHEETUI_REASON_INIT, &header), -1);
        EXPECT_EQ(information.Result, 99u);
    }
    EXPECT_EQ(DrvDevicePropertySheets(nullptr, reinterpret_cast<LPARAM>(&device)), -1);
}

TEST_F(SheetEvents, KnowWhoMayNotChangeAnything) {
    document.fMode |= DM_NOPERMISSION;
    device.Flags = DPS_NOPERMISSION;
    for (const Function function : {DrvDocumentPropertySheets, DrvDevicePropertySheets}) {
        PROPSHEETUI_INFO information = NewSheet(function);
        ASSERT_EQ(Tell(function, &information, PROPSHEETUI_REASON_INIT, &header), 1);
        EXPECT_EQ(reinterpret_cast<PrinterSession*>(information.UserData)->canModify, 0u);
        Tell(function, &information, PROPSHEETUI_REASON_DESTROY, &header);
    }
}

// ---- The user's folder

class UserFolder : public SheetTest {
  protected:
    explicit UserFolder(embedded::MachineSetup setup = {})
        : SheetTest(tests::kPagePapers, std::move(setup)) {}

    static constexpr char16_t kKey[] = u"Software\\Kestova\\PrtDrv";
    static constexpr char16_t kFolder[] = u"C:\\Users\\User\\AppData\\Roaming\\Kestova\\PrtDrv";
    static constexpr std::string_view kRecord{"C:\\Users\\User\\AppData\\Roaming\\Kestova\\PrtDrv",
                                              45};

    static embedded::StoredValue Binary(std::string_view bytes) {
        const auto* first = reinterpret_cast<const std::byte*>(bytes.data());
        return {.type = REG_BINARY, .data = {first, first + bytes.size()}};
    }
    embedded::StoredValues Stored() {
        return fax.machine.registry().Values(HKEY_CURRENT_USER, kKey);
    }
    bool FolderIsThere() {
        return fax.machine.files().Attributes(kFolder) != INVALID_FILE_ATTRIBUTES;
    }
    // Opens and cancels a sheet; whether any platform call wrote to the registry.
    bool OpenSheet() {
        fax.machine.faults.Count();
        ShowDocument(nullptr);
        const auto names = fax.machine.faults.names();
        fax.machine.faults.Clear();
        return std::ranges::count(names, "RegSetValueExA") != 0;
    }
};

TEST_F(UserFolder, IsMadeWithItsRecord) {
    EXPECT_TRUE(OpenSheet());
    EXPECT_TRUE(FolderIsThere());
    EXPECT_EQ(Stored(), (embedded::StoredValues{{u"Path", Binary(kRecord)}}));
    EXPECT_FALSE(OpenSheet()) << "the record is current";
}

TEST_F(UserFolder, IsMadeBeforeTheSessionOfAnySheet) {
    DEVICEPROPERTYHEADER noPrinter{};
    PROPSHEETUI_INFO information{};
    information.lParamInit = reinterpret_cast<LPARAM>(&noPrinter);
    information.Reason = PROPSHEETUI_REASON_INIT;
    EXPECT_EQ(DrvDevicePropertySheets(&information, 0), -1);
    EXPECT_TRUE(FolderIsThere());
}

TEST_F(UserFolder, IsNotMadeWithoutBothFoldersOfTheUser) {
    for (unsigned nth : {1u, 2u}) {
        fax.machine.faults.FailCall("SHGetFolderPathW", nth);
        PrepareUserFolder();
        fax.machine.faults.Clear();
        EXPECT_FALSE(FolderIsThere());
        EXPECT_EQ(Stored()[u"Path"], Binary(kRecord));
        fax.machine.registry().SetValue(HKEY_CURRENT_USER, kKey, u"Path", Binary("C:\\Old"));
    }
}

TEST_F(UserFolder, TakesTheAttributesOfTheDocuments) {
    WCHAR documents[MAX_PATH];
    SHGetFolderPathW(nullptr, CSIDL_PERSONAL, nullptr, 0, documents);
    fax.machine.files().SetAttributes(documents, FILE_ATTRIBUTE_HIDDEN);
    OpenSheet();
    for (const char16_t* folder : {u"C:\\Users\\User\\AppData\\Roaming\\Kestova", kFolder}) {
        EXPECT_EQ(fax.machine.files().Attributes(folder),
                  FILE_ATTRIBUTE_HIDDEN | FILE_ATTRIBUTE_DIRECTORY);
    }
}

TEST_F(UserFolder, IsRecordedAnewWhenTheRecordSaysOtherwise) {
    const struct {
        const char* what;
        std::string stored;
        bool isWritten;
        bool makesFolder;
    } rows[] = {
        {"another folder", {"C:\\Old", 7}, true, true},
        {"a shorter one without terminator", std::string(kRecord.substr(0, 43)), true, true},
        {"the same without terminator", std::string(kRecord.substr(0, 44)), false, false},
        {"the same and more behind it", std::string(kRecord) + "more", false, false},
        {"longer than is read", std::string(260, 'x'), true, false},
        {"as long as is read", std::string(259, 'x'), true, true},
    };
    for (const auto& row : rows) {
        fax.machine.registry().SetValue(HKEY_CURRENT_USER, kKey, u"Path", Binary(row.stored));
        EXPECT_EQ(OpenSheet(), row.isWritten) << row.what;
        EXPECT_EQ(Stored()[u"Path"], Binary(row.isWritten ? kRecord : row.stored)) << row.what;
        EXPECT_EQ(FolderIsThere(), row.makesFolder) << row.what;
        std::filesystem::remove_all(fax.machine.files().HostPath(kFolder));
    }
}

TEST_F(UserFolder, IsRecordedWithoutBeingMadeWhenTheValueIsMissing) {
    fax.machine.registry().CreateKey(HKEY_CURRENT_USER, kKey);
    EXPECT_TRUE(OpenSheet());
    EXPECT_EQ(Stored()[u"Path"], Binary(kRecord));
    EXPECT_FALSE(FolderIsThere());
}

TEST_F(UserFolder, IsTheWindowsFolderWithoutApplicationData) {
    fax.machine.faults.FailCall("SHGetFolderPathA");
    ShowDocument(nullptr);
    fax.machine.faults.Clear();
    EXPECT_EQ(Stored()[u"Path"], Binary({"C:\\Windows", 11}));
    EXPECT_FALSE(FolderIsThere());
}

class LongUserFolder : public UserFolder {
  protected:
    // The application data's path has 259 characters, the most that a path can have.
    LongUserFolder() : UserFolder({.userName = std::u16string(234, u'u')}) {}
};
TEST_F(LongUserFolder, IsRecordedWhole) {
    for (int opening = 0; opening < 2; ++opening) {
        EXPECT_TRUE(OpenSheet()) << "too long to be read back";
        const auto stored = Stored()[u"Path"].data;
        ASSERT_EQ(stored.size(), 275u);
        EXPECT_EQ(stored[273], std::byte{'v'});
        EXPECT_EQ(stored[274], std::byte{0});
    }
}

// ---- About

class About : public SheetTest {
  protected:
    // Presses About on the paper page and shows the box to `user`.
    void ShowBox(std::function<void(HWND)> user) {
        ShowDocument([&](Sheet& sheet) {
            fax.machine.windows().modalUsers.push_back(user);
            Click(sheet.page(), IDC_ABOUT);
            EXPECT_TRUE(fax.machine.windows().modalUsers.empty()) << "it was shown";
        });
    }
};

TEST_F(About, TellsNameVersionAndDate) {
    ShowBox([&](HWND box) {
        EXPECT_EQ(fax.machine.windows().TextOf(box), u"Fax");
        EXPECT_EQ(TextOf(box, IDC_DRIVER_NAME), u"Fax");
        EXPECT_EQ(TextOf(box, IDC_DRIVER_VERSION), u"Version 1.04");
        EXPECT_EQ(TextOf(box, IDC_DRIVER_DATE), u"12 / 18 / 2006");
        Click(box, IDOK);
        EXPECT_FALSE(IsWindowVisible(box));
    });
    // As a page it shows the same around the middle of the sheet, and no OK of its own.
    host.user = [&](Sheet& sheet) {
        const HWND page = sheet.page();
        EXPECT_EQ(TextOf(page, IDC_DRIVER_VERSION), u"Version 1.04");
        EXPECT_FALSE(IsWindowVisible(GetDlgItem(page, IDOK)));
        EXPECT_FALSE(IsWindowEnabled(GetDlgItem(page, IDOK)));
        RECT around{};
        GetWindowRect(sheet.window(), &around);
        POINT origin{};
        ClientToScreen(sheet.window(), &origin);
        for (const HWND child : fax.machine.windows().Descendants(page)) {
            RECT own{};
            GetWindowRect(child, &own);
            POINT corner{own.left, own.top};
            ScreenToClient(page, &corner);
            EXPECT_EQ(corner.x, around.left - origin.x - 10 +
                                    (around.right - around.left - (own.right - own.left)) / 2);
        }
    };
    PrinterProperties(nullptr, printer.get());
}

TEST_F(About, TakesItsWordsFromTheResourceModule) {
    WithResources({{4224, u"Fassung"}, {14018, u"Dezember"}}, [this] {
        ShowBox([&](HWND box) {
            EXPECT_EQ(TextOf(box, IDC_DRIVER_VERSION), u"Fassung 1.04");
            EXPECT_EQ(TextOf(box, IDC_DRIVER_DATE), u"18 Dezember 2006");
        });
    });
}

TEST_F(About, AnswersHowItWasClosed) {
    ShowDocument([&](Sheet& sheet) {
        for (const int button : {IDOK, IDCANCEL}) {
            fax.machine.windows().modalUsers.push_back([&](HWND box) {
                SendMessageW(box, WM_COMMAND, IDC_DRIVER_NAME, 0);
                EXPECT_TRUE(IsWindowVisible(box));
                SendMessageW(box, WM_COMMAND, static_cast<WPARAM>(button), 0);
            });
            EXPECT_EQ(DialogBoxParamW(resourceModule, MAKEINTRESOURCEW(IDD_ABOUT), sheet.window(),
                                      AboutDialogProc, GetWindowLongPtrW(sheet.page(), DWLP_USER)),
                      button == IDOK ? 1 : 0);
        }
    });
}

TEST_F(About, CentresALogoThatATemplateMayCarry) {
    ShowBox([&](HWND box) {
        const HWND logo =
            CreateWindowExW(0, u"Button", u"", WS_CHILD | WS_VISIBLE | 0xB, 3, 4, 5, 6, box,
                            reinterpret_cast<HMENU>(uintptr_t{IDC_LOGO}), nullptr, nullptr);
        const auto place = [&] {
            RECT rect{};
            GetWindowRect(logo, &rect);
            POINT corner{rect.left, rect.top};
            ScreenToClient(box, &corner);
            return std::vector<LONG>{corner.x, corner.y, rect.right - rect.left,
                                     rect.bottom - rect.top};
        };
        POINT at{10, 20};
        ClientToScreen(box, &at);
        const RECT area{at.x, at.y, at.x + 101, at.y + 50};
        CenterControlInRect(box, area, IDC_LOGO, 20, 61);
        EXPECT_EQ(place(), (std::vector<LONG>{50, 15, 20, 61})) << "towards zero: 40.5, -5.5";
        CenterControlInRect(box, area, IDC_LOGO, 0, 0);
        EXPECT_EQ(place(), (std::vector<LONG>{50, 15, 20, 61})) << "its own size";
        CenterControlInRect(box, area, 4711, 0, 0);
        AboutDialogProc(box, WM_INITDIALOG, 0, GetWindowLongPtrW(box, DWLP_USER));
        RECT whole{};
        GetWindowRect(box, &whole);
        EXPECT_EQ(place()[2], 280);
        EXPECT_EQ(place()[3], 60);
        // Its top was 15 and the name's is 24, 15 units of 13/8 pixels: the middle is 19.5.
        EXPECT_EQ(place()[1], 15 + (24 - 15 - 60) / 2);
    });
}

// ---- Help

struct HelpCall {
    HWND window;
    std::u16string file;
    UINT command;
    DWORD_PTR data;
    bool operator==(const HelpCall&) const = default;
};
std::vector<HelpCall> helpCalls;

HWND RecordHelp(HWND window, LPCWSTR file, UINT command, DWORD_PTR data) {
    helpCalls.push_back({window, file != nullptr ? file : u"", command, data});
    return reinterpret_cast<HWND>(uintptr_t{0x77});
}

class Help : public SheetTest {
  protected:
    Help() { helpCalls.clear(); }
    ~Help() override {
        // Once loaded the library stays until the process ends.
        for (const char16_t* path : {kByName, kRegistered}) {
            fax.machine.modules().Remove(path);
        }
    }
    void InstallLibrary(const char16_t* path, WORD ordinal = 15) {
        fax.machine.modules().Install(
            {.path = path,
             .exports = {},
             .resources = {},
             .ordinals = {
                 {ordinal, reinterpret_cast<FARPROC>(reinterpret_cast<void*>(&RecordHelp))}}});
    }
    void Register(embedded::StoredValue value) {
        fax.machine.registry().SetValue(
            HKEY_LOCAL_MACHINE,
            u"Software\\Classes\\CLSID\\{ADB880A6-D8FF-11CF-9377-00AA003B7A11}\\InprocServer32",
            u"", std::move(value));
    }
    // The calls of one request that counts names.
    std::vector<std::string> Ask(HWND* shown) {
        fax.machine.faults.Count();
        *shown = ShowHtmlHelp(nullptr, u"A.HLP", HH_DISPLAY_TOPIC, 3);
        const auto names = fax.machine.faults.names();
        fax.machine.faults.Clear();
        return names;
    }

    static constexpr char16_t kByName[] = u"C:\\Windows\\System32\\hhctrl.ocx";
    static constexpr char16_t kRegistered[] = u"C:\\Help\\VIEWER.OCX";
};

TEST_F(Help, ComesFromTheSheetAndGoesWithThePage) {
    InstallLibrary(kByName);
    ShowDocument(nullptr);
    EXPECT_EQ(fax.machine.modules().CountLoaded(kByName), 0u) << "nobody asked for help";
    HWND page = nullptr;
    ShowDocument([&](Sheet& sheet) {
        page = sheet.page();
        sheet.PressHelp();
        EXPECT_NE(helpWindow, nullptr);
        sheet.PressCancel();
    });
    ASSERT_EQ(helpCalls.size(), 2u);
    EXPECT_EQ(helpCalls[0].window, page);
    EXPECT_TRUE(helpCalls[0].file.ends_with(u"\\pscript.hlp"));
    EXPECT_EQ(helpCalls[0].command, HH_DISPLAY_TOPIC);
    EXPECT_EQ(helpCalls[1], (HelpCall{nullptr, u"", HH_CLOSE_ALL, 0}));
    // The window is remembered for good: OK closes what help there is too.
    ShowDocument([](Sheet& sheet) { sheet.PressOk(); });
    EXPECT_EQ(helpCalls.size(), 3u);
}

TEST_F(Help, IsLookedForOnce) {
    InstallLibrary(kByName);
    InstallLibrary(kRegistered);
    embedded::StoredValue path = embedded::StoredText(kRegistered);
    path.data.resize(path.data.size() - 2);  // stored without its terminator
    Register(std::move(path));
    HWND shown = nullptr;
    EXPECT_EQ(Ask(&shown),
              (std::vector<std::string>{"CoInitialize", "RegOpenKeyExA", "RegQueryValueExA",
                                        "LoadLibraryA", "GetProcAddress"}));
    EXPECT_NE(shown, nullptr);
    EXPECT_EQ(fax.machine.modules().CountLoaded(kRegistered), 1u);
    EXPECT_EQ(Ask(&shown), (std::vector<std::string>{"CoInitialize"}));
    EXPECT_EQ(helpCalls, std::vector<HelpCall>(2, {nullptr, u"A.HLP", HH_DISPLAY_TOPIC, 3}));
}

TEST_F(Help, IsLookedForByNameWhenTheRegisteredLibraryFails) {
    InstallLibrary(kByName);
    Register(embedded::StoredText(u"C:\\NOWHERE.OCX"));
    HWND shown = nullptr;
    Ask(&shown);
    EXPECT_NE(shown, nullptr);
    EXPECT_EQ(fax.machine.modules().CountLoaded(kByName), 1u);
    // Too long to be read.
    ResetHelp();
    Register({.type = REG_BINARY, .data = std::vector<std::byte>(261, std::byte{'x'})});
    Ask(&shown);
    EXPECT_NE(shown, nullptr);
}

TEST_F(Help, IsNeverAskedForAgainWhenThereIsNone) {
    HWND shown = nullptr;
    EXPECT_EQ(Ask(&shown).size(), 3u) << "no registered library, none of that name, no entry";
    EXPECT_EQ(shown, nullptr);
    InstallLibrary(kByName);
    EXPECT_TRUE(Ask(&shown).empty());
    ResetHelp();
    InstallLibrary(kByName, 14);
    Ask(&shown);
    EXPECT_EQ(shown, nullptr);
    EXPECT_TRUE(Ask(&shown).empty()) << "the library lacks the entry";
}

TEST_F(Help, SurvivesAFailingComponentLibrary) {
    InstallLibrary(kByName);
    fax.machine.faults.FailCall("CoInitialize");
    EXPECT_EQ(ShowHtmlHelp(nullptr, nullptr, HH_CLOSE_ALL, 0), nullptr);
    fax.machine.faults.Clear();
    EXPECT_NE(ShowHtmlHelp(nullptr, nullptr, HH_CLOSE_ALL, 0), nullptr) << "only that once";
}

// ---- Every call failing in turn

// What a session calls, and what drawing does, fails in tests of their own.
TEST_F(PropertySheets, GiveEverythingBackWhicheverCallFails) {
    const struct {
        const char* name;
        unsigned first, last;  // the calls that fail in turn
        bool isConfirmed;      // all the same
    } rows[] = {
        {"LoadLibraryA", 1, 1, false},    {"GetProcAddress", 1, 1, false},
        {"PFNCOMPROPSHEET", 1, 1, false}, {"CommonPropertySheetUIW", 1, 1, false},
        {"HeapCreate", 1, 1, false},      {"CreateWindowExW", 5, 7, false},
        {"SHGetFolderPathA", 1, 1, true}, {"SHGetFolderPathW", 1, 2, true},
        {"RegOpenKeyExW", 1, 1, true},    {"RegCreateKeyExW", 1, 1, true},
        {"RegSetValueExA", 1, 1, true},   {"CreateDirectoryExW", 1, 2, true},
        {"LoadStringW", 1, 4, true},      {"GlobalLock", 1, 1, true},
        {"CreateSolidBrush", 1, 3, true}, {"GetDlgItem", 1, 8, true},
        {"GetWindowRect", 1, 2, true},    {"CheckRadioButton", 1, 2, true},
        {"DialogBoxParamW", 1, 1, true},  {"HeapAlloc", 4, 4, false},
    };
    const nlohmann::json fresh = fax.machine.registry().Save();
    for (const auto& row : rows) {
        for (unsigned nth = row.first; nth <= row.last; ++nth) {
            SCOPED_TRACE(row.name + std::string(" ") + std::to_string(nth));
            fax.machine.registry().Load(fresh);
            const embedded::Leaks before = fax.OpenWithoutCache();
            fax.machine.faults.FailCall(row.name, nth);
            const LONG result = ShowDocument([&](Sheet& sheet) {
                Click(sheet.page(), IDC_ABOUT);
                Click(sheet.page(), IDC_LANDSCAPE);
                sheet.PressOk();
            });
            EXPECT_TRUE(fax.machine.faults.struck());
            fax.machine.faults.Clear();
            EXPECT_EQ(fax.OpenWithoutCache(), before);
            EXPECT_EQ(result == IDOK, row.isConfirmed) << result;
            EXPECT_EQ(result == IDOK, !OutputIsUntouched());
        }
    }
}

}  // namespace
}  // namespace ksfax
