#include <algorithm>
#include <map>
#include <nlohmann/json.hpp>
#include <sstream>

#include "platform/embedded/registry.h"

#include "core/session.h"
#include "tests/ui/ui_machine.h"
#include "ui/about_box.h"
#include "ui/help.h"
#include "ui/user_folder.h"

namespace ksfax {
namespace {

using tests::UiMachine;
using Event = embedded::PropertySheetHost::Event;
using Strings = std::vector<std::string>;

// ---- The old entry points

class PropertySheets : public UiMachine {
  protected:
    static void PressOk(Sheet& sheet) { EXPECT_TRUE(sheet.PressOk()); }
    static void PressCancel(Sheet& sheet) { sheet.PressCancel(); }

    LONG ShowAdvanced(std::function<void(Sheet&)> user, DEVMODEW* input = nullptr,
                      HWND owner = nullptr) {
        host.user = std::move(user);
        output = kUntouched;
        return DrvAdvancedDocumentProperties(owner, printer.get(), name.data(), &output.devMode,
                                             input);
    }
    // The answers of all three, one after the other.
    std::vector<LONG> ShowAll(const std::function<void(Sheet&)>& user, HWND owner = nullptr) {
        host.user = user;
        output = kUntouched;
        const LONG document = DrvDocumentProperties(owner, printer.get(), name.data(),
                                                    &output.devMode, nullptr, DM_IN_PROMPT);
        const LONG advanced = ShowAdvanced(user, nullptr, owner);
        host.user = user;
        return {document, advanced, PrinterProperties(owner, printer.get())};
    }
};

TEST_F(PropertySheets, TellTheRecordsSizeAndTouchNothing) {
    EXPECT_EQ(ShowDocument(PressOk, nullptr, 0), 2608);
    EXPECT_EQ(DrvDocumentProperties(nullptr, nullptr, nullptr, nullptr, nullptr, DM_OUT_BUFFER),
              2608);
    EXPECT_EQ(DrvAdvancedDocumentProperties(nullptr, nullptr, nullptr, nullptr, nullptr), 2608);
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
    for (const DWORD mode : {DM_OUT_BUFFER, DM_UPDATE, DM_IN_BUFFER}) {
        EXPECT_EQ(ShowDocument(PressOk, &input, mode), IDOK);
        EXPECT_EQ(OutputIsUntouched(), mode == DM_IN_BUFFER) << mode;
    }
    // The input counts without DM_IN_BUFFER too, and bounds the output.
    input.devMode.dmDriverExtra = 0;
    EXPECT_EQ(ShowDocument(PressOk, &input, DM_OUT_BUFFER), IDOK);
    EXPECT_EQ(output.devMode.dmPaperSize, DMPAPER_A4);
    EXPECT_EQ(output.devMode.dmDriverExtra, 0);
    EXPECT_EQ(output.privateBytes[0], 0xAA);
    EXPECT_TRUE(host.events.empty());
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
    EXPECT_EQ(host.events, (std::vector<Event>{{PROPSHEETUI_REASON_INIT, 1},
                                               {PROPSHEETUI_REASON_GET_INFO_HEADER, 1},
                                               {PROPSHEETUI_REASON_SET_RESULT, 1},
                                               {PROPSHEETUI_REASON_DESTROY, 1}}));
    JobSettings input = DefaultRecord();
    input.devMode.dmOrientation = DMORIENT_LANDSCAPE;
    EXPECT_EQ(ShowAdvanced(PressOk, &input.devMode), 1);
    EXPECT_EQ(output.devMode.dmOrientation, DMORIENT_LANDSCAPE) << "the input counts";
    EXPECT_EQ(ShowDocument(PressOk, nullptr, DM_IN_PROMPT), IDOK);
    EXPECT_TRUE(OutputIsUntouched()) << "nobody asked for it";
    EXPECT_EQ(ShowDocument(PressCancel), IDCANCEL);
    EXPECT_TRUE(OutputIsUntouched());
}

TEST_F(PropertySheets, AnswerHowTheirSheetEndedOrThatNoneCame) {
    const HWND owner = windows.Add(u"Dialog");
    const auto confirm = [&](Sheet& sheet) {
        EXPECT_FALSE(IsWindowEnabled(owner));
        PressOk(sheet);
    };
    EXPECT_EQ(ShowAll(confirm, owner), (std::vector<LONG>{IDOK, 1, FALSE}))
        << "the About page sets no result";
    EXPECT_TRUE(IsWindowEnabled(owner));
    DestroyWindow(owner);
    EXPECT_EQ(ShowAll(PressCancel), (std::vector<LONG>{IDCANCEL, 0, FALSE}));
    EXPECT_TRUE(OutputIsUntouched());
    const std::vector<LONG> none{-1, 0, TRUE};
    host.events.clear();
    host.refusesPages = true;
    EXPECT_EQ(ShowAll(PressOk), none);
    EXPECT_EQ(host.events, std::vector<Event>(3, {PROPSHEETUI_REASON_INIT, -1}));
    fax.machine.modules().Remove(u"C:\\Windows\\System32\\compstui.dll");
    EXPECT_EQ(ShowAll(PressOk), none);
    EXPECT_TRUE(OutputIsUntouched());
}

TEST_F(PropertySheets, ProbeWhetherThePrinterMayBeChanged) {
    for (const bool isAllowed : {true, false}) {
        fax.machine.spooler().RemovePrinterData(FaxMachine::kPrinter, u"Permission");
        const platform::PrinterHandle opened = fax.Open(FaxMachine::kPrinter, isAllowed);
        host.user = [&](Sheet& sheet) {
            EXPECT_EQ(sheet.tabs(), std::vector<std::u16string>{u"About"});
            EXPECT_EQ(SessionOf(sheet.page())->canModify, isAllowed);
        };
        EXPECT_EQ(PrinterProperties(nullptr, opened.get()), FALSE) << "cancelled";
        EXPECT_EQ(fax.StoredNumber(u"Permission"),
                  isAllowed ? std::optional<DWORD>(1) : std::nullopt);
    }
}

// Whatever fails, nothing stays behind, and the answer is the whole record or the output is
// untouched. What a session calls, and what drawing does, fails in tests of their own.
TEST_F(PropertySheets, HandOutAllOrNothingWhateverFails) {
    const nlohmann::json fresh = fax.machine.registry().Save();
    LONG result = 0;
    std::map<std::string, int> confirmed;  // all the same
    const auto user = [&](Sheet& sheet) {
        Click(sheet.page(), IDC_ABOUT);
        Click(sheet.page(), IDC_LANDSCAPE);
        sheet.PressOk();
    };
    const auto holds = [&](const FailedCall& failed) {
        EXPECT_EQ(result == IDOK, !OutputIsUntouched());
        confirmed[failed.name] += result == IDOK;
    };
    UnderFaults(fax.machine, {.prepare = [&] { fax.machine.registry().Load(fresh); },
                              .act = [&] { result = ShowDocument(user); },
                              .holds = holds,
                              .open = [&] { return fax.OpenWithoutCache(); },
                              .only = {"SHGetFolderPathA", "SHGetFolderPathW", "RegOpenKeyExW",
                                       "RegCreateKeyExW", "RegSetValueExA", "CreateDirectoryExW",
                                       "CreateSolidBrush", "GetWindowRect", "DialogBoxParamW",
                                       "LoadLibraryA", "GetProcAddress", "HeapCreate", "HeapAlloc",
                                       "PFNCOMPROPSHEET", "CommonPropertySheetUIW"},
                              .withAllLater = false});
    // Of the strings in the session's heap only the help file's path may be missing.
    EXPECT_EQ(confirmed, (std::map<std::string, int>{{"", 2},
                                                     {"SHGetFolderPathA", 1},
                                                     {"SHGetFolderPathW", 2},
                                                     {"RegOpenKeyExW", 1},
                                                     {"RegCreateKeyExW", 1},
                                                     {"RegSetValueExA", 1},
                                                     {"CreateSolidBrush", 3},
                                                     {"CreateDirectoryExW", 2},
                                                     {"GetWindowRect", 2},
                                                     {"DialogBoxParamW", 1},
                                                     {"HeapAlloc", 1},
                                                     {"LoadLibraryA", 0},
                                                     {"GetProcAddress", 0},
                                                     {"HeapCreate", 0},
                                                     {"PFNCOMPROPSHEET", 0},
                                                     {"CommonPropertySheetUIW", 0}}));
}

// ---- The events of a sheet, from a host of the test's own

class SheetEvents : public UiMachine {
  protected:
    using Function = LONG (*)(PPROPSHEETUI_INFO, LPARAM);

    SheetEvents() {
        running = this;
        document.hPrinter = device.hPrinter = printer.get();
        document.pszPrinterName = device.pszPrinterName = name.data();
        document.pdmOut = &output.devMode;
    }
    void NewSheet(Function asked) {
        function = asked;
        document.fMode = DM_OUT_BUFFER;
        device.Flags = 0;
        information = {};
        information.hComPropSheet = this;
        information.pfnComPropSheet = TakePage;
        information.lParamInit = function == DrvDocumentPropertySheets
                                     ? reinterpret_cast<LPARAM>(&document)
                                     : reinterpret_cast<LPARAM>(&device);
        information.Result = 99;
    }
    // Notes what it answers, and what it left in the host's record.
    LONG Tell(WORD reason, const void* parameter) {
        information.Reason = reason;
        const LONG answer = function(&information, reinterpret_cast<LPARAM>(parameter));
        text << "  reason " << reason << (parameter != nullptr ? "" : " without a record") << " = "
             << answer << ", result " << information.Result
             << (OutputIsUntouched() ? "" : ", record written") << "\n";
        output = kUntouched;
        return answer;
    }
    PrinterSession* session() { return reinterpret_cast<PrinterSession*>(information.UserData); }
    void GoThroughASheet() {
        Tell(PROPSHEETUI_REASON_INIT, &header);
        text << "    may modify " << session()->canModify << ", page known as "
             << reinterpret_cast<uintptr_t>(session()->propSheetPages[0]) << "\n";
        EXPECT_EQ(session()->pageResourceModule, resourceModule);
        Tell(PROPSHEETUI_REASON_GET_INFO_HEADER, &header);
        text << "    flags " << header.Flags << ", icon " << header.IconID << "\n";
        EXPECT_EQ(header.pTitle, name.data());
        EXPECT_EQ(header.hInst, fax.driver.instance());
        Tell(PROPSHEETUI_REASON_GET_ICON, &header);
        Tell(PROPSHEETUI_REASON_GET_INFO_HEADER, nullptr);
        Tell(PROPSHEETUI_REASON_SET_RESULT, nullptr);
        SETRESULT_INFO result{};
        for (const LRESULT end : {0, 2, 1}) {  // 2 is a restart
            result.Result = end;
            Tell(PROPSHEETUI_REASON_SET_RESULT, &result);
        }
        document.pdmOut = nullptr;
        Tell(PROPSHEETUI_REASON_SET_RESULT, &result);
        document.pdmOut = &output.devMode;
        Tell(PROPSHEETUI_REASON_DESTROY, nullptr);
        EXPECT_EQ(information.UserData, 0u);
    }

    DOCUMENTPROPERTYHEADER document{};
    DEVICEPROPERTYHEADER device{};
    PROPSHEETUI_INFO information{};
    PROPSHEETUI_INFO_HEADER header{};
    Function function = nullptr;
    std::ostringstream text;

  private:
    static LONG_PTR CALLBACK TakePage(HANDLE sheet, UINT function, LPARAM first, LPARAM second) {
        const auto& insertion = *reinterpret_cast<const INSERTPSUIPAGE_INFO*>(second);
        const auto& page = *reinterpret_cast<const PROPSHEETPAGEW*>(insertion.dwData1);
        EXPECT_EQ(sheet, running);
        EXPECT_EQ(insertion.cbSize, sizeof insertion);
        EXPECT_EQ(page.dwSize, sizeof page);
        EXPECT_EQ(page.hInstance, resourceModule);
        EXPECT_EQ(reinterpret_cast<const PrinterSession*>(page.lParam)->pageResourceModule, nullptr)
            << "not before the page is in";
        running->text << "    function " << function << " at " << first << ", type "
                      << int{insertion.Type} << ", mode " << int{insertion.Mode} << ", data "
                      << insertion.dwData2 << " " << insertion.dwData3 << ": page flags "
                      << page.dwFlags << ", template "
                      << reinterpret_cast<uintptr_t>(page.pszTemplate) << ", title \""
                      << embedded::Utf8(page.pszTitle != nullptr ? page.pszTitle : u"") << "\"\n";
        return 42;
    }
    static inline SheetEvents* running;
};

TEST_F(SheetEvents, GoFromTheFirstToTheLast) {
    PrinterSession stranger{};
    stranger.selfCheckHead = &stranger;
    WithResources({{591, u"Basis"}}, [&] {
        for (const Function each : {DrvDocumentPropertySheets, DrvDevicePropertySheets}) {
            NewSheet(each);
            text << (each == DrvDocumentPropertySheets ? "document sheet\n" : "device sheet\n");
            GoThroughASheet();
            for (PrinterSession* other : {static_cast<PrinterSession*>(nullptr), &stranger}) {
                information.UserData = reinterpret_cast<ULONG_PTR>(other);
                for (const WORD reason :
                     {PROPSHEETUI_REASON_GET_INFO_HEADER, PROPSHEETUI_REASON_DESTROY,
                      PROPSHEETUI_REASON_SET_RESULT}) {
                    EXPECT_EQ(Tell(reason, &header), -1) << "no sheet of the driver's";
                }
            }
            NewSheet(each);
            document.fMode |= DM_NOPERMISSION;
            device.Flags = DPS_NOPERMISSION;
            Tell(PROPSHEETUI_REASON_INIT, &header);
            EXPECT_EQ(session()->canModify, 0u);
            Tell(PROPSHEETUI_REASON_DESTROY, &header);
            information.lParamInit = 0;
            EXPECT_EQ(Tell(PROPSHEETUI_REASON_INIT, &header), -1);
        }
    });
    EXPECT_EQ(DrvDevicePropertySheets(nullptr, reinterpret_cast<LPARAM>(&device)), -1);
    EXPECT_TRUE(IsRecorded("ui/sheet_events.txt", text.str()));
}

// ---- The user's folder

class UserFolder : public UiMachine {
  protected:
    explicit UserFolder(embedded::MachineSetup setup = {})
        : UiMachine(tests::kPagePapers, std::move(setup)) {}

    static constexpr char16_t kKey[] = u"Software\\Kestova\\PrtDrv";
    static constexpr char16_t kFolder[] = u"C:\\Users\\User\\AppData\\Roaming\\Kestova\\PrtDrv";
    static constexpr std::string_view kRecord{"C:\\Users\\User\\AppData\\Roaming\\Kestova\\PrtDrv",
                                              45};

    void Store(std::string_view bytes) {
        fax.machine.registry().SetValue(HKEY_CURRENT_USER, kKey, u"Path",
                                        {.type = REG_BINARY, .data = BytesOf(bytes)});
    }
    std::string Stored() {
        const auto values = fax.machine.registry().Values(HKEY_CURRENT_USER, kKey);
        EXPECT_EQ(values.size(), 1u);
        const embedded::StoredValue value = values.at(u"Path");
        EXPECT_EQ(value.type, REG_BINARY);
        return {reinterpret_cast<const char*>(value.data.data()), value.data.size()};
    }
    DWORD Attributes(std::u16string_view folder = kFolder) {
        return fax.machine.files().Attributes(folder);
    }
    bool FolderIsThere() { return Attributes() != INVALID_FILE_ATTRIBUTES; }
    // Opens and cancels a sheet; whether any platform call wrote to the registry.
    bool OpenSheet() {
        fax.machine.faults.Count();
        ShowDocument(nullptr);
        const Strings names = fax.machine.faults.names();
        fax.machine.faults.Clear();
        return std::ranges::count(names, "RegSetValueExA") != 0;
    }
};

TEST_F(UserFolder, IsMadeWithItsRecordBeforeTheSessionOfAnySheet) {
    WCHAR documents[MAX_PATH];
    SHGetFolderPathW(nullptr, CSIDL_PERSONAL, nullptr, 0, documents);
    fax.machine.files().SetAttributes(documents, FILE_ATTRIBUTE_HIDDEN);
    DEVICEPROPERTYHEADER noPrinter{};
    PROPSHEETUI_INFO information{};
    information.lParamInit = reinterpret_cast<LPARAM>(&noPrinter);
    information.Reason = PROPSHEETUI_REASON_INIT;
    EXPECT_EQ(DrvDevicePropertySheets(&information, 0), -1);
    for (const char16_t* folder : {u"C:\\Users\\User\\AppData\\Roaming\\Kestova", kFolder}) {
        EXPECT_EQ(Attributes(folder), FILE_ATTRIBUTE_HIDDEN | FILE_ATTRIBUTE_DIRECTORY)
            << "those of the documents";
    }
    EXPECT_EQ(Stored(), kRecord);
    EXPECT_FALSE(OpenSheet()) << "the record is current";
}

TEST_F(UserFolder, IsRecordedAnewWhenTheRecordSaysOtherwise) {
    const struct {
        const char* what;
        std::string stored;
        bool isWritten;
        bool makesFolder;
        const char* failing = nullptr;
        unsigned nth = 1;
    } rows[] = {
        {"another folder", {"C:\\Old", 7}, true, true},
        {"a shorter one without terminator", std::string(kRecord.substr(0, 43)), true, true},
        {"the same without terminator", std::string(kRecord.substr(0, 44)), false, false},
        {"the same and more behind it", std::string(kRecord) + "more", false, false},
        {"longer than is read", std::string(260, 'x'), true, false},
        {"as long as is read", std::string(259, 'x'), true, true},
        {"the value cannot be read", {"C:\\Old", 7}, true, false, "RegQueryValueExA"},
        {"no documents folder", {"C:\\Old", 7}, true, false, "SHGetFolderPathW", 1},
        {"no application data for it", {"C:\\Old", 7}, true, false, "SHGetFolderPathW", 2},
    };
    for (const auto& row : rows) {
        Store(row.stored);
        if (row.failing != nullptr) {
            fax.machine.faults.FailCall(row.failing, row.nth);
            PrepareUserFolder();
            fax.machine.faults.Clear();
        } else {
            EXPECT_EQ(OpenSheet(), row.isWritten) << row.what;
        }
        EXPECT_EQ(Stored(), row.isWritten ? kRecord : row.stored) << row.what;
        EXPECT_EQ(FolderIsThere(), row.makesFolder) << row.what;
        std::filesystem::remove_all(fax.machine.files().HostPath(kFolder));
    }
}

TEST_F(UserFolder, IsTheWindowsFolderWithoutApplicationData) {
    fax.machine.faults.FailCall("SHGetFolderPathA");
    PrepareUserFolder();
    fax.machine.faults.Clear();
    EXPECT_EQ(Stored(), std::string_view("C:\\Windows", 11));
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
        EXPECT_EQ(Stored().size(), 275u);
        EXPECT_TRUE(Stored().ends_with(std::string_view("PrtDrv", 7)));
    }
}

// ---- About

class About : public UiMachine {
  protected:
    // Presses About on the paper page and shows the box to `user`.
    void ShowBox(std::function<void(HWND)> user) {
        ShowDocument([&](Sheet& sheet) {
            windows.modalUsers.push_back(user);
            Click(sheet.page(), IDC_ABOUT);
            EXPECT_TRUE(windows.modalUsers.empty()) << "it was shown";
        });
    }
    std::vector<LONG> Place(HWND control, HWND around) {
        RECT rect{};
        GetWindowRect(control, &rect);
        ToClientArea(around, &rect);
        return {rect.left, rect.top, rect.right - rect.left, rect.bottom - rect.top};
    }
    Strings Texts(HWND dialog) {
        return {embedded::Utf8(windows.TextOf(dialog)), TextOf(dialog, IDC_DRIVER_NAME),
                TextOf(dialog, IDC_DRIVER_VERSION), TextOf(dialog, IDC_DRIVER_DATE)};
    }
};

TEST_F(About, TellsNameVersionAndDate) {
    ShowBox([&](HWND box) {
        EXPECT_EQ(Texts(box), (Strings{"Fax", "Fax", "Version 1.04", "12 / 18 / 2006"}));
        Click(box, IDOK);
        EXPECT_FALSE(IsWindowVisible(box));
    });
    WithResources({{4224, u"Fassung"}, {14018, u"Dezember"}}, [this] {
        ShowBox([&](HWND box) {
            EXPECT_EQ(Texts(box), (Strings{"Fax", "Fax", "Fassung 1.04", "18 Dezember 2006"}));
        });
    });
    // As a page it shows the same around the middle of the sheet, and no OK of its own.
    host.user = [&](Sheet& sheet) {
        const HWND page = sheet.page();
        EXPECT_EQ(Texts(page), (Strings{"Fax", "Fax", "Version 1.04", "12 / 18 / 2006"}));
        EXPECT_FALSE(IsWindowVisible(GetDlgItem(page, IDOK)));
        EXPECT_FALSE(IsWindowEnabled(GetDlgItem(page, IDOK)));
        const std::vector<LONG> around = Place(sheet.window(), sheet.window());
        for (const HWND child : windows.Descendants(page)) {
            const std::vector<LONG> place = Place(child, page);
            EXPECT_EQ(place[0], around[0] + (around[2] - place[2]) / 2 - 10);
        }
    };
    PrinterProperties(nullptr, printer.get());
}

TEST_F(About, AnswersHowItWasClosed) {
    ShowDocument([&](Sheet& sheet) {
        for (const int button : {IDOK, IDCANCEL}) {
            windows.modalUsers.push_back([&](HWND box) {
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

TEST_F(About, CentresAndDrawsALogoThatATemplateMayCarry) {
    ShowBox([&](HWND box) {
        const HWND logo =
            CreateWindowExW(0, u"Button", u"", WS_CHILD | WS_VISIBLE | 0xB, 3, 4, 5, 6, box,
                            reinterpret_cast<HMENU>(uintptr_t{IDC_LOGO}), nullptr, nullptr);
        RECT area{10, 20, 111, 70};
        MapWindowPoints(box, nullptr, reinterpret_cast<POINT*>(&area), 2);
        CenterControlInRect(box, area, IDC_LOGO, 20, 61);
        EXPECT_EQ(Place(logo, box), (std::vector<LONG>{50, 15, 20, 61})) << "40.5, -5.5 cut";
        CenterControlInRect(box, area, IDC_LOGO, 0, 0);
        EXPECT_EQ(Place(logo, box), (std::vector<LONG>{50, 15, 20, 61})) << "its own size";
        CenterControlInRect(box, area, 4711, 0, 0);
        PrinterSession* session = SessionOf(box);
        AboutDialogProc(box, WM_INITDIALOG, 0, reinterpret_cast<LPARAM>(session));
        // Its top was 15 and the name's is 24, 15 units of 13/8 pixels: the middle is 19.5.
        const std::vector<LONG> whole = Place(box, box);
        EXPECT_EQ(Place(logo, box), (std::vector<LONG>{whole[0] + (whole[2] - 280) / 2,
                                                       15 + (24 - 15 - 60) / 2, 280, 60}));
        // Either dialog draws it, once it has a session.
        const HDC context = GetDC(box);
        DRAWITEMSTRUCT item{};
        item.CtlType = ODT_BUTTON;
        item.CtlID = 10000;
        item.hDC = context;
        for (const DLGPROC procedure : {AboutDialogProc, AboutPageProc}) {
            const auto draw = [&](PrinterSession* bound, UINT id) {
                BindSession(box, bound);
                item.CtlID = id;
                item.rcItem = {0, 0, id == IDC_LOGO ? 1 : 9, 1};
                return procedure(box, WM_DRAWITEM, id, reinterpret_cast<LPARAM>(&item));
            };
            EXPECT_FALSE(draw(nullptr, IDC_LOGO));
            EXPECT_TRUE(draw(session, 1));
            const embedded::Bitmap filled = PixelsOf(context, 280, 60);
            EXPECT_TRUE(draw(session, IDC_LOGO));
            EXPECT_NE(PixelsOf(context, 280, 60), filled);
            RECT all{0, 0, 280, 60};
            FillRect(context, &all, reinterpret_cast<HBRUSH>(uintptr_t{COLOR_WINDOW + 1}));
        }
        ReleaseDC(box, context);
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

class Help : public UiMachine {
  protected:
    Help() { helpCalls.clear(); }
    ~Help() override {
        // Once loaded the library stays until the process ends.
        for (const char16_t* path : {kByName, kRegistered}) {
            fax.machine.modules().Remove(path);
        }
    }
    void InstallLibrary(const char16_t* path, WORD ordinal = 15) {
        const auto entry = reinterpret_cast<FARPROC>(reinterpret_cast<void*>(&RecordHelp));
        fax.machine.modules().Install(
            {.path = path, .exports = {}, .resources = {}, .ordinals = {{ordinal, entry}}});
    }
    void Register(embedded::StoredValue value) {
        fax.machine.registry().SetValue(
            HKEY_LOCAL_MACHINE,
            u"Software\\Classes\\CLSID\\{ADB880A6-D8FF-11CF-9377-00AA003B7A11}\\InprocServer32",
            u"", std::move(value));
    }
    // The calls of one request, with "shown" behind them when a window came of it.
    Strings Ask() {
        fax.machine.faults.Count();
        const HWND shown = ShowHtmlHelp(nullptr, u"A.HLP", HH_DISPLAY_TOPIC, 3);
        Strings names = fax.machine.faults.names();
        fax.machine.faults.Clear();
        if (shown != nullptr) {
            names.push_back("shown");
        }
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
    EXPECT_EQ(Ask(), (Strings{"CoInitialize", "RegOpenKeyExA", "RegQueryValueExA", "LoadLibraryA",
                              "GetProcAddress", "shown"}));
    EXPECT_EQ(fax.machine.modules().CountLoaded(kRegistered), 1u);
    fax.machine.faults.FailCall("CoInitialize");
    EXPECT_EQ(ShowHtmlHelp(nullptr, nullptr, HH_CLOSE_ALL, 0), nullptr) << "only that once";
    EXPECT_EQ(Ask(), (Strings{"CoInitialize", "shown"}));
    EXPECT_EQ(helpCalls, std::vector<HelpCall>(2, {nullptr, u"A.HLP", HH_DISPLAY_TOPIC, 3}));
}

TEST_F(Help, IsLookedForByNameWhenTheRegisteredLibraryFails) {
    InstallLibrary(kByName);
    Register(embedded::StoredText(u"C:\\NOWHERE.OCX"));
    EXPECT_EQ(Ask().back(), "shown");
    EXPECT_EQ(fax.machine.modules().CountLoaded(kByName), 1u);
    ResetHelp();
    Register({.type = REG_BINARY, .data = std::vector<std::byte>(261, std::byte{'x'})});
    EXPECT_EQ(Ask(), (Strings{"CoInitialize", "RegOpenKeyExA", "RegQueryValueExA", "LoadLibraryA",
                              "GetProcAddress", "shown"}))
        << "too long to be read";
}

TEST_F(Help, IsNeverAskedForAgainWhenThereIsNone) {
    EXPECT_EQ(Ask(), (Strings{"CoInitialize", "RegOpenKeyExA", "LoadLibraryA"}));
    InstallLibrary(kByName);
    EXPECT_EQ(Ask(), Strings{});
    ResetHelp();
    InstallLibrary(kByName, 14);
    EXPECT_EQ(Ask().back(), "GetProcAddress");
    EXPECT_EQ(Ask(), Strings{}) << "the library lacks the entry";
}

}  // namespace
}  // namespace ksfax
