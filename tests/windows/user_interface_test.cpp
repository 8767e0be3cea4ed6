// The property sheets of the shipped DLL on Windows' own windows, used by a person who is a
// second thread.

#include <atomic>
#include <cstring>
#include <filesystem>
#include <functional>
#include <string>
#include <thread>
#include <vector>

#include <gtest/gtest.h>

#include "tests/windows/driver_answers.h"
#include "tests/windows/installed_printer.h"
#include "tests/windows/replace_import.h"

namespace {

namespace fs = std::filesystem;

// Controls of the paper page and the About box.
enum : int {
    kHelpButton = 9,
    kAboutButton = 12,
    kDefaultButton = 16,
    kDriverName = 20,
    kLabel = 163,
    kPaperList = 170,
    kPortrait = 176,
    kLandscape = 177,
    k200x200 = 193,
    k200x100 = 194,
    kVersion = 362,
    kDate = 532,
};

constexpr size_t kFaxResolution = 2384;  // u32 in the private part

std::wstring TextOf(HWND window) {
    WCHAR text[256] = {};
    GetWindowTextW(window, text, 256);
    return text;
}

std::wstring TextOf(HWND dialog, int id) {
    return TextOf(GetDlgItem(dialog, id));
}

bool IsChecked(HWND dialog, int id) {
    return SendDlgItemMessageW(dialog, id, BM_GETCHECK, 0, 0) == BST_CHECKED;
}

void Click(HWND dialog, int id) {
    SendDlgItemMessageW(dialog, id, BM_CLICK, 0, 0);
}

// As the list box of the combo box does when somebody chooses a line.
void Choose(HWND page, int position) {
    SendDlgItemMessageW(page, kPaperList, CB_SETCURSEL, position, 0);
    SendMessageW(page, WM_COMMAND, MAKEWPARAM(kPaperList, CBN_SELCHANGE),
                 reinterpret_cast<LPARAM>(GetDlgItem(page, kPaperList)));
}

HWND PageOf(HWND sheet) {
    return reinterpret_cast<HWND>(SendMessageW(sheet, PSM_GETCURRENTPAGEHWND, 0, 0));
}

// The visible dialog of this process that `fits`, waited for until `over` or for ten seconds;
// null when none came.
HWND WaitForDialog(const std::function<bool(HWND)>& fits, const std::atomic<bool>& over) {
    struct Search {
        const std::function<bool(HWND)>& fits;
        HWND found = nullptr;
    } search = {fits};
    const auto visit = [](HWND window, LPARAM parameter) -> BOOL {
        auto& here = *reinterpret_cast<Search*>(parameter);
        DWORD process = 0;
        GetWindowThreadProcessId(window, &process);
        WCHAR kind[16] = {};
        GetClassNameW(window, kind, 16);
        if (process == GetCurrentProcessId() && IsWindowVisible(window) &&
            std::wstring(kind) == TEXT("#32770") && here.fits(window)) {
            here.found = window;
        }
        return here.found == nullptr;
    };
    for (int round = 0; round < 1000 && search.found == nullptr && !over; ++round) {
        EnumWindows(visit, reinterpret_cast<LPARAM>(&search));
        Sleep(10);
    }
    return search.found;
}

// What a sheet is asked to do, and whether one was shown.
template <typename Call>
auto WithUser(const std::function<void(HWND sheet)>& user, Call call, bool* shown) {
    std::atomic<bool> over = false;
    std::thread person([&] {
        const auto isSheet = [](HWND window) { return PageOf(window) != nullptr; };
        const HWND sheet = WaitForDialog(isSheet, over);
        *shown = sheet != nullptr;
        if (sheet != nullptr) {
            user(sheet);
        }
        while (!over) {  // a sheet that the person left open would never return
            if (sheet != nullptr) {
                PostMessageW(sheet, PSM_PRESSBUTTON, PSBTN_CANCEL, 0);
            }
            Sleep(50);
        }
    });
    const auto result = call();
    over = true;
    person.join();
    return result;
}

void PressOk(HWND sheet) {
    SendMessageW(sheet, PSM_PRESSBUTTON, PSBTN_OK, 0);
}

class UserInterface : public testing::Test {
  protected:
    void SetUp() override {
        ASSERT_EQ(SharedPrinter().error(), "");
        Use(SharedPrinter().module());
    }
    // The DLL whose sheets are shown.
    void Use(HMODULE module) {
        module_ = module;
        documentProperties_ = platform::FunctionCast<decltype(&DrvDocumentProperties)>(
            GetProcAddress(module, "DrvDocumentProperties"));
        printerProperties_ = platform::FunctionCast<decltype(&PrinterProperties)>(
            GetProcAddress(module, "PrinterProperties"));
        ASSERT_TRUE(documentProperties_ != nullptr && printerProperties_ != nullptr);
        if (host_) {
            UseOwnHost();
        }
        std::vector<BYTE> record(kRecordBytes, 0);
        settings_ = record;
        ASSERT_EQ(Ask(DM_OUT_BUFFER, nullptr), IDOK);
    }

    LONG Ask(DWORD mode, DEVMODEW* input) {
        WCHAR name[64];
        lstrcpyW(name, answers::kPrinterName);
        return documentProperties_(nullptr, SharedPrinter().handle(), name,
                                   reinterpret_cast<DEVMODEW*>(settings_.data()), input, mode);
    }
    // Opens the document's sheet on the settings. The system's own property sheet library serves
    // where it knows the function with which the driver inserts pages, ours where it does not.
    LONG OpenSheet(const std::function<void(HWND)>& user, DWORD mode = 0) {
        std::vector<BYTE> input = settings_;
        const auto call = [&] {
            return Ask(mode | DM_IN_PROMPT | DM_IN_BUFFER | DM_OUT_BUFFER,
                       reinterpret_cast<DEVMODEW*>(input.data()));
        };
        bool shown = false;
        const LONG result = WithUser(user, call, &shown);
        if (shown || host_) {
            EXPECT_TRUE(shown) << "no sheet came";
            return result;
        }
        UseOwnHost();
        return OpenSheet(user, mode);
    }
    void UseOwnHost() {
        host_ = platform::LoadedModule(
            LoadLibraryW((ProgramFolder() / TEXT("sheet_host/compstui.dll")).c_str()));
        ASSERT_TRUE(host_);
        ASSERT_TRUE(ReplaceImport(module_, "LoadLibraryA", reinterpret_cast<void*>(LoadOwnHost)));
    }
    // The driver asks for the library by its bare name, under which the system's is loaded.
    static HMODULE WINAPI LoadOwnHost(LPCSTR name) {
        return std::string(name) == "compstui.dll"
                   ? LoadLibraryW((ProgramFolder() / TEXT("sheet_host/compstui.dll")).c_str())
                   : LoadLibraryA(name);
    }

    const DEVMODEW& record() const { return *reinterpret_cast<const DEVMODEW*>(settings_.data()); }
    uint32_t faxResolution() const {
        uint32_t value;
        std::memcpy(&value, settings_.data() + record().dmSize + kFaxResolution, sizeof value);
        return value;
    }

    static constexpr size_t kRecordBytes = 2608;
    static inline platform::LoadedModule host_;
    HMODULE module_ = nullptr;
    decltype(&DrvDocumentProperties) documentProperties_ = nullptr;
    decltype(&PrinterProperties) printerProperties_ = nullptr;
    std::vector<BYTE> settings_;
};

TEST_F(UserInterface, TakesPaperOrientationAndResolutionFromTheSheet) {
    const std::vector<BYTE> before = settings_;
    std::vector<std::wstring> papers;
    std::vector<LRESULT> codes;
    std::wstring title, labelBefore, labelAfter;
    bool portraitBefore = false, fineBefore = false;
    const auto user = [&](HWND sheet) {
        const HWND page = PageOf(sheet);
        title = TextOf(sheet);
        const LRESULT count = SendDlgItemMessageW(page, kPaperList, CB_GETCOUNT, 0, 0);
        for (LRESULT i = 0; i < count; ++i) {
            WCHAR text[256] = {};
            SendDlgItemMessageW(page, kPaperList, CB_GETLBTEXT, i, reinterpret_cast<LPARAM>(text));
            papers.emplace_back(text);
            codes.push_back(SendDlgItemMessageW(page, kPaperList, CB_GETITEMDATA, i, 0));
        }
        portraitBefore = IsChecked(page, kPortrait);
        fineBefore = IsChecked(page, k200x200);
        labelBefore = TextOf(page, kLabel);
        Click(page, kLandscape);
        Click(page, k200x100);
        const LRESULT now = SendDlgItemMessageW(page, kPaperList, CB_GETCURSEL, 0, 0);
        Choose(page, static_cast<int>((now + 1) % count));
        labelAfter = TextOf(page, kLabel);
        PressOk(sheet);
    };
    EXPECT_EQ(OpenSheet(user), IDOK);

    EXPECT_NE(title.find(answers::kPrinterName), std::wstring::npos) << title;
    ASSERT_GT(papers.size(), 1u);
    EXPECT_TRUE(portraitBefore);
    EXPECT_TRUE(fineBefore);
    const auto& old = *reinterpret_cast<const DEVMODEW*>(before.data());
    size_t position = 0;
    while (position < codes.size() && codes[position] != old.dmPaperSize) {
        ++position;
    }
    ASSERT_LT(position, codes.size());
    EXPECT_EQ(labelBefore.substr(0, papers[position].size()), papers[position]);
    const size_t next = (position + 1) % papers.size();
    EXPECT_EQ(labelAfter.substr(0, papers[next].size()), papers[next]);
    EXPECT_EQ(record().dmPaperSize, codes[next]);
    EXPECT_EQ(record().dmOrientation, DMORIENT_LANDSCAPE);
    EXPECT_EQ(faxResolution(), 1u);

    // Cancelled, nothing is written.
    const std::vector<BYTE> chosen = settings_;
    const auto cancel = [](HWND sheet) {
        Click(PageOf(sheet), kDefaultButton);
        SendMessageW(sheet, PSM_PRESSBUTTON, PSBTN_CANCEL, 0);
    };
    EXPECT_EQ(OpenSheet(cancel), IDCANCEL);
    EXPECT_EQ(settings_, chosen);

    const auto restore = [](HWND sheet) {
        Click(PageOf(sheet), kDefaultButton);
        PressOk(sheet);
    };
    EXPECT_EQ(OpenSheet(restore), IDOK);
    EXPECT_EQ(record().dmOrientation, DMORIENT_PORTRAIT);
    EXPECT_EQ(faxResolution(), 0u);
}

// The DLL once more, in a folder where the German resource module of the examples lies beside it.
TEST_F(UserInterface, SpeaksTheLanguageOfTheResourceModuleBesideIt) {
    const fs::path folder = ProgramFolder() / TEXT("german");
    ASSERT_TRUE(CopyFileW((ProgramFolder() / TEXT("KSFAXUI.DLL")).c_str(),
                          (folder / TEXT("KSFAXUI.DLL")).c_str(), FALSE));
    const platform::LoadedModule german(LoadLibraryW((folder / TEXT("KSFAXUI.DLL")).c_str()));
    ASSERT_TRUE(german);
    Use(german.get());

    std::vector<std::wstring> texts;
    const auto user = [&](HWND sheet) {
        const HWND page = PageOf(sheet);
        const HWND tabs = reinterpret_cast<HWND>(SendMessageW(sheet, PSM_GETTABCONTROL, 0, 0));
        WCHAR title[64] = {};
        TCITEMW tab = {};
        tab.mask = TCIF_TEXT;
        tab.pszText = title;
        tab.cchTextMax = 64;
        SendMessageW(tabs, TCM_GETITEMW, 0, reinterpret_cast<LPARAM>(&tab));
        WCHAR paper[64] = {};
        SendDlgItemMessageW(page, kPaperList, CB_GETLBTEXT, 9, reinterpret_cast<LPARAM>(paper));
        Choose(page, 9);
        texts = {title, TextOf(page, kPortrait), TextOf(page, kDefaultButton), paper,
                 TextOf(page, kLabel)};
    };
    EXPECT_EQ(OpenSheet(user), IDCANCEL);
    EXPECT_EQ(texts,
              (std::vector<std::wstring>{TEXT("Grundlagen"), TEXT("&Hochformat"), TEXT("&Standard"),
                                         TEXT("A4 lang"), TEXT("A4 lang\n210 x 405 mm")}));
}

// In a mirrored sheet, where x counts from the right.
TEST_F(UserInterface, LocksThePaperWithoutPermission) {
    bool paper = true, orientation = true, resolution = false, isMirrored = false;
    RECT help = {}, restore = {};
    SetProcessDefaultLayout(LAYOUT_RTL);
    EXPECT_EQ(OpenSheet(
                  [&](HWND sheet) {
                      const HWND page = PageOf(sheet);
                      paper = IsWindowEnabled(GetDlgItem(page, kPaperList));
                      orientation = IsWindowEnabled(GetDlgItem(page, kLandscape));
                      resolution = IsWindowEnabled(GetDlgItem(page, k200x100));
                      isMirrored = GetWindowLongW(page, GWL_EXSTYLE) & WS_EX_LAYOUTRTL;
                      GetWindowRect(GetDlgItem(page, kHelpButton), &help);
                      GetWindowRect(GetDlgItem(page, kDefaultButton), &restore);
                  },
                  DM_NOPERMISSION),
              IDCANCEL);
    SetProcessDefaultLayout(0);
    EXPECT_FALSE(paper);
    EXPECT_FALSE(orientation);
    EXPECT_TRUE(resolution);
    EXPECT_TRUE(isMirrored);
    EXPECT_TRUE(EqualRect(&help, &restore)) << help.left << ", " << restore.left;
}

TEST_F(UserInterface, TellsAboutItself) {
    std::wstring name, version, date, caption;
    const auto user = [&](HWND sheet) {
        // The box is modal to the page: the click returns when it is closed.
        PostMessageW(PageOf(sheet), WM_COMMAND, kAboutButton, 0);
        const std::atomic<bool> never = false;
        const HWND box = WaitForDialog(
            [&](HWND window) { return window != sheet && GetDlgItem(window, kVersion); }, never);
        caption = TextOf(box);
        name = TextOf(box, kDriverName);
        version = TextOf(box, kVersion);
        date = TextOf(box, kDate);
        SendMessageW(box, WM_COMMAND, IDOK, 0);
    };
    EXPECT_EQ(OpenSheet(user), IDCANCEL);
    EXPECT_EQ(caption, record().dmDeviceName);
    EXPECT_EQ(name, record().dmDeviceName);
    EXPECT_EQ(version, TEXT("Version 1.04"));
    EXPECT_EQ(date, TEXT("12 / 18 / 2006"));

    bool shown = false, okShown = true;
    const auto look = [&](HWND sheet) {
        const HWND page = PageOf(sheet);
        version = TextOf(page, kVersion);
        okShown = IsWindowVisible(GetDlgItem(page, IDOK));
    };
    version.clear();
    EXPECT_FALSE(WithUser(
        look, [&] { return printerProperties_(nullptr, SharedPrinter().handle()); }, &shown));
    EXPECT_TRUE(shown);
    EXPECT_EQ(version, TEXT("Version 1.04"));
    EXPECT_FALSE(okShown);
}

}  // namespace
