// The property sheets of the shipped DLL on Windows' own windows, used by a person who is a
// second thread and does what tests/golden/answers/sheets.txt says.

#include <algorithm>
#include <atomic>
#include <cstring>
#include <functional>
#include <sstream>
#include <string>
#include <thread>
#include <vector>

#include <gtest/gtest.h>

#include "tests/golden.h"
#include "tests/windows/driver_answers.h"
#include "tests/windows/installed_printer.h"
#include "tests/windows/replace_import.h"

namespace {

namespace fs = std::filesystem;

enum : int { kHelpButton = 9, kAboutButton = 12, kDefaultButton = 16, kPaperList = 170 };

std::string Line(const std::wstring& text) {
    const std::u8string utf8 = fs::path(text).u8string();
    std::string line(utf8.begin(), utf8.end());
    std::ranges::replace(line, '\n', '|');
    return line;
}

std::wstring TextOf(HWND window) {
    WCHAR text[256] = {};
    GetWindowTextW(window, text, 256);
    return text;
}

HWND PageOf(HWND sheet) {
    return reinterpret_cast<HWND>(SendMessageW(sheet, PSM_GETCURRENTPAGEHWND, 0, 0));
}

// The visible dialog of this process that `fits`, waited for until `over` or for ten seconds;
// null when none came.
HWND WaitForDialog(const std::function<bool(HWND)>& fits, const std::atomic<bool>& over) {
    for (int round = 0; round < 1000 && !over; ++round) {
        HWND window = nullptr;
        while ((window = FindWindowExW(nullptr, window, TEXT("#32770"), nullptr)) != nullptr) {
            DWORD process = 0;
            GetWindowThreadProcessId(window, &process);
            if (process == GetCurrentProcessId() && IsWindowVisible(window) && fits(window)) {
                return window;
            }
        }
        Sleep(10);
    }
    return nullptr;
}

// Wine's common property sheet library has no function with which the driver inserts its pages:
// the tests' program has one of its own.
HMODULE WINAPI LoadOwnHost(LPCSTR name) {
    return std::string(name) == "compstui.dll" ? GetModuleHandleW(nullptr) : LoadLibraryA(name);
}

class Sheets {
  public:
    std::string Run(const std::string& command, const std::string& rest) {
        told_.clear();
        std::istringstream actions(rest);
        if (command == "driver") {
            Use(rest);
        } else if (command == "printer") {
            const LONG result = WithPerson(
                actions, [&] { return printerProperties_(nullptr, SharedPrinter().handle()); });
            Tell("= " + std::to_string(result));
        } else {
            const DWORD mode = command == "locked" ? DM_NOPERMISSION : 0;
            // A mirrored sheet, where x counts from the right.
            SetProcessDefaultLayout(command == "locked" ? LAYOUT_RTL : 0);
            std::vector<BYTE> input = settings_;
            const LONG result = WithPerson(actions, [&] {
                return Ask(mode | DM_IN_PROMPT | DM_IN_BUFFER | DM_OUT_BUFFER,
                           reinterpret_cast<DEVMODEW*>(input.data()));
            });
            SetProcessDefaultLayout(0);
            Tell("= " + std::to_string(result) + (input == settings_ ? ", nothing changed" : ""));
            TellSettings();
        }
        return told_;
    }

  private:
    void Tell(const std::string& line) { told_ += line + "\n"; }
    void TellSettings() {
        constexpr size_t kFaxResolution = 2384;  // u32 in the private part
        const auto& record = *reinterpret_cast<const DEVMODEW*>(settings_.data());
        uint32_t resolution;
        std::memcpy(&resolution, &settings_[record.dmSize + kFaxResolution], sizeof resolution);
        Tell("paper " + std::to_string(record.dmPaperSize) + ", orientation " +
             std::to_string(record.dmOrientation) + ", resolution " + std::to_string(resolution));
    }

    // "spooler", or the name of a folder where the DLL goes beside another resource module.
    void Use(const std::string& folder) {
        HMODULE module = SharedPrinter().module();
        if (folder != "spooler") {
            const fs::path dll = ProgramFolder() / folder / TEXT("KSFAXUI.DLL");
            CopyFileW((ProgramFolder() / TEXT("KSFAXUI.DLL")).c_str(), dll.c_str(), FALSE);
            other_ = platform::LoadedModule(LoadLibraryW(dll.c_str()));
            module = other_.get();
        }
        documentProperties_ =
            platform::ExportOf<decltype(&DrvDocumentProperties)>(module, "DrvDocumentProperties");
        printerProperties_ =
            platform::ExportOf<decltype(&PrinterProperties)>(module, "PrinterProperties");
        ReplaceImport(module, "LoadLibraryA", reinterpret_cast<void*>(LoadOwnHost));
        settings_.assign(2608, 0);
        Tell("= " + std::to_string(Ask(DM_OUT_BUFFER, nullptr)));
        TellSettings();
    }
    LONG Ask(DWORD mode, DEVMODEW* input) {
        std::wstring name = answers::kPrinterName;
        return documentProperties_(nullptr, SharedPrinter().handle(), name.data(),
                                   reinterpret_cast<DEVMODEW*>(settings_.data()), input, mode);
    }

    template <typename Call>
    LONG WithPerson(std::istream& actions, Call call) {
        std::atomic<bool> over = false;
        std::thread person([&] {
            const HWND sheet =
                WaitForDialog([](HWND window) { return PageOf(window) != nullptr; }, over);
            if (sheet == nullptr) {
                return Tell("no sheet came");
            }
            dialog_ = PageOf(sheet);
            for (std::string action; actions >> action;) {
                Do(sheet, action.substr(0, action.find(':')),
                   std::atoi(action.substr(action.find(':') + 1).c_str()));
            }
            for (; !over; Sleep(50)) {  // a sheet that the person left open would never return
                PostMessageW(sheet, PSM_PRESSBUTTON, PSBTN_CANCEL, 0);
            }
        });
        const LONG result = call();
        over = true;
        person.join();
        return result;
    }

    // "ACTION" or "ACTION:CONTROL" on the page, or on the About box once it is open.
    void Do(HWND sheet, const std::string& action, int id) {
        const HWND control = GetDlgItem(dialog_, id);
        const HWND papers = GetDlgItem(dialog_, kPaperList);
        if (action == "see") {
            Tell(Line(TextOf(control)) + (IsWindowEnabled(control) ? "" : " disabled") +
                 (IsWindowVisible(control) ? "" : " hidden") +
                 (SendMessageW(control, BM_GETCHECK, 0, 0) == BST_CHECKED ? " checked" : ""));
        } else if (action == "title") {
            // Windows puts words of its own about the printer's name.
            const std::wstring title = TextOf(dialog_ == PageOf(sheet) ? sheet : dialog_);
            Tell(Line(title.find(answers::kPrinterName) != title.npos ? answers::kPrinterName
                                                                      : title));
        } else if (action == "tab") {
            const auto tabs = reinterpret_cast<HWND>(SendMessageW(sheet, PSM_GETTABCONTROL, 0, 0));
            WCHAR text[64] = {};
            TCITEMW tab = {};
            tab.mask = TCIF_TEXT;
            tab.pszText = text;
            tab.cchTextMax = 64;
            SendMessageW(tabs, TCM_GETITEMW, 0, reinterpret_cast<LPARAM>(&tab));
            Tell(Line(text));
        } else if (action == "papers") {
            for (LRESULT i = 0; i < SendMessageW(papers, CB_GETCOUNT, 0, 0); ++i) {
                WCHAR text[256] = {};
                SendMessageW(papers, CB_GETLBTEXT, i, reinterpret_cast<LPARAM>(text));
                Tell(std::to_string(SendMessageW(papers, CB_GETITEMDATA, i, 0)) + " " + Line(text));
            }
        } else if (action == "choose") {
            // As the list box of the combo box does when somebody chooses a line.
            SendMessageW(papers, CB_SETCURSEL, id, 0);
            SendMessageW(dialog_, WM_COMMAND, MAKEWPARAM(kPaperList, CBN_SELCHANGE),
                         reinterpret_cast<LPARAM>(papers));
        } else if (action == "places") {
            RECT help = {}, restore = {};
            GetWindowRect(GetDlgItem(dialog_, kHelpButton), &help);
            GetWindowRect(GetDlgItem(dialog_, kDefaultButton), &restore);
            const bool isMirrored = GetWindowLongW(dialog_, GWL_EXSTYLE) & WS_EX_LAYOUTRTL;
            Tell(std::string(EqualRect(&help, &restore) ? "restoring in the place of help"
                                                        : "both") +
                 (isMirrored ? ", mirrored" : ""));
        } else if (action == "about") {
            // The box is modal to the page: a click returns when it is closed.
            PostMessageW(dialog_, WM_COMMAND, kAboutButton, 0);
            const std::atomic<bool> never = false;
            dialog_ = WaitForDialog([&](HWND window) { return window != sheet; }, never);
        } else if (action == "click") {
            SendMessageW(control, BM_CLICK, 0, 0);
        } else {
            SendMessageW(sheet, PSM_PRESSBUTTON, action == "ok" ? PSBTN_OK : PSBTN_CANCEL, 0);
        }
    }

    platform::LoadedModule other_;
    decltype(&DrvDocumentProperties) documentProperties_ = nullptr;
    decltype(&PrinterProperties) printerProperties_ = nullptr;
    std::vector<BYTE> settings_;
    HWND dialog_ = nullptr;
    std::string told_;
};

TEST(UserInterface, DoesAsAPersonAsks) {
    ASSERT_EQ(SharedPrinter().error(), "");
    Sheets sheets;
    EXPECT_TRUE(
        IsReplayed("answers/sheets.txt", [&](const std::string& command, const std::string& rest) {
            return sheets.Run(command, rest);
        }));
}

}  // namespace
