// The shipped DLL on Windows, with a real printer installed, gives the answers that the driver
// gives on the embedded machine.

#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "faxjob/companion.h"
#include "tests/windows/driver_answers.h"
#include "tests/windows/installed_printer.h"
#include "tests/windows/replace_import.h"

namespace {

std::string hiddenExport;  // that GetProcAddress shall not find
std::string boxes;         // shown since they were taken last

FARPROC WINAPI FindUnlessHidden(HMODULE module, LPCSTR name) {
    if (hiddenExport == name) {
        SetLastError(ERROR_PROC_NOT_FOUND);
        return nullptr;
    }
    return GetProcAddress(module, name);
}

int WINAPI ConfirmBox(HWND, LPCWSTR text, LPCWSTR caption, UINT type) {
    boxes += answers::BoxLine(text, caption, type);
    return IDOK;
}

template <typename Function>
void FindEntry(HMODULE dll, LPCSTR name, Function& entry) {
    entry = platform::ExportOf<Function>(dll, name);
    ASSERT_NE(entry, nullptr) << name;
}

// The DLL where the spooler keeps it, with a real printer.
class Windows : public answers::Home {
  public:
    Windows() {
        const InstalledPrinter& installed = SharedPrinter();
        const HMODULE dll = installed.module();
        FindEntry(dll, "DrvDeviceCapabilities", driver.deviceCapabilities);
        FindEntry(dll, "DrvConvertDevMode", driver.convertDevMode);
        FindEntry(dll, "DevQueryPrintEx", driver.queryPrint);
        FindEntry(dll, "DrvPrinterEvent", driver.printerEvent);
        FindEntry(dll, "DrvUpgradePrinter", driver.upgradePrinter);
        FindEntry(dll, "DrvDocumentEvent", driver.documentEvent);
        printer = installed.handle();
        cacheFile = installed.folder() / answers::kCacheFileName;
        WCHAR windows[MAX_PATH] = {};
        GetWindowsDirectoryW(windows, MAX_PATH);
        jobFile = std::filesystem::path(windows) / KSFAX_JOB_FILE;
        // The percent sign must survive in every name made from the folder's.
        folder = std::filesystem::temp_directory_path() /
                 (TEXT("fax 100%s ") + std::to_wstring(GetCurrentProcessId()));
        folderName = folder.wstring();
        installed.ForgetStoredData();
        for (const answers::SystemColor& one : answers::kSystemColors) {
            SetSysColors(1, &one.element, &one.color);
        }
        EXPECT_TRUE(ReplaceImport(installed.module(), "GetProcAddress",
                                  reinterpret_cast<void*>(FindUnlessHidden)));
        EXPECT_TRUE(
            ReplaceImport(installed.module(), "MessageBoxW", reinterpret_cast<void*>(ConfirmBox)));
    }
    ~Windows() override { SetDllDirectoryW(nullptr); }

    void UseCompanion(const std::string& without) override {
        hiddenExport = without;
        SetDllDirectoryW(without == "all" ? nullptr : (ProgramFolder() / "companion").c_str());
    }
    bool HoldsCompanion() override { return GetModuleHandleW(TEXT("KSFAXDLG.DLL")) != nullptr; }
    std::string TakeBoxes() override { return std::exchange(boxes, ""); }
    bool IsOpen(HANDLE handle) override {
        DWORD flags = 0;
        return GetHandleInformation(handle, &flags) != FALSE;
    }
};

TEST(DriverAnswers, AreThoseRecorded) {
    ASSERT_EQ(SharedPrinter().error(), "");
    Windows windows;
    answers::AreRecorded(windows);
}

// ---- Sessions ----

std::string StoredBytes(HANDLE printer, std::wstring name) {
    BYTE bytes[256] = {};
    DWORD size = 0;
    const DWORD error = GetPrinterDataW(printer, name.data(), nullptr, bytes, sizeof bytes, &size);
    return error == ERROR_SUCCESS ? std::string(bytes, bytes + size) : "(none)";
}

void StoreUser(HANDLE printer, std::string user) {
    WCHAR name[] = TEXT("UserName");
    EXPECT_EQ(SetPrinterDataW(printer, name, REG_BINARY, reinterpret_cast<BYTE*>(user.data()),
                              static_cast<DWORD>(user.size())),
              DWORD{ERROR_SUCCESS});
}

// By the system's own call, which loads the driver and shows nothing. Which forms it adds cannot
// be seen here: Wine 8 says that it adds forms and does not. It also keeps a printer's default
// record without its form name, so of that record the paper and the shape are looked at.
TEST(Session, OpensThroughDocumentPropertiesWithoutAPrompt) {
    ASSERT_EQ(SharedPrinter().error(), "");
    WCHAR name[] = TEXT("Session Fax");
    const InstalledPrinter printer(name);
    ASSERT_EQ(printer.error(), "");
    const HANDLE handle = printer.handle();
    StoreUser(handle, std::string("Somebody else", 14));

    ASSERT_EQ(DocumentPropertiesW(nullptr, handle, name, nullptr, nullptr, 0), 2608);
    std::vector<BYTE> first(2608);
    auto* record = reinterpret_cast<DEVMODEW*>(first.data());
    ASSERT_EQ(DocumentPropertiesW(nullptr, handle, name, record, nullptr, DM_OUT_BUFFER), IDOK);
    EXPECT_EQ(record->dmSize, 220);
    EXPECT_EQ(record->dmDriverExtra, 2388);
    EXPECT_EQ(record->dmPaperSize, DMPAPER_LETTER);
    EXPECT_STREQ(record->dmFormName, TEXT("Letter"));

    // What it put in order: the names of who opened it, the forms, the printer's default record.
    char user[256];
    DWORD length = sizeof user;
    ASSERT_TRUE(GetUserNameA(user, &length));
    EXPECT_EQ(StoredBytes(handle, TEXT("UserName")), std::string(user, length));
    char computer[16];
    length = sizeof computer;
    ASSERT_TRUE(GetComputerNameA(computer, &length));
    EXPECT_EQ(StoredBytes(handle, TEXT("ComputerName")), std::string(computer, length + 1));
    EXPECT_EQ(StoredBytes(handle, TEXT("Forms?")), std::string("\2\0\0", 4));
    DWORD needed = 0;
    GetPrinterW(handle, 8, nullptr, 0, &needed);
    std::vector<BYTE> information(needed);
    ASSERT_TRUE(GetPrinterW(handle, 8, information.data(), needed, &needed));
    const DEVMODEW* kept = reinterpret_cast<PRINTER_INFO_8W*>(information.data())->pDevMode;
    ASSERT_NE(kept, nullptr);
    EXPECT_EQ(kept->dmDriverVersion, 0x0104);
    EXPECT_EQ(kept->dmDriverExtra, 2388);
    EXPECT_EQ(kept->dmPaperSize, DMPAPER_LETTER);
}

}  // namespace
