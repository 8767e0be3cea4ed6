// The shipped DLL on Windows, with a real printer installed, gives the answers that the driver
// gives on the embedded machine.

#include <cctype>
#include <cstring>
#include <fstream>
#include <iterator>
#include <sstream>
#include <vector>

#include <gtest/gtest.h>

#include "core/module_state.h"
#include "tests/windows/driver_answers.h"
#include "tests/windows/installed_printer.h"
#include "ui/panel_control.h"
#include "ui/spin_control.h"

namespace ksfax {
// For the page drawing, which is linked into this program: the DLL does not export it.
HINSTANCE ownModule = nullptr;
}  // namespace ksfax

namespace {

namespace fs = std::filesystem;

// Programs of the two homes lie beside each other in the build folder.
fs::path BuildFolder() {
    WCHAR path[MAX_PATH] = {};
    GetModuleFileNameW(nullptr, path, MAX_PATH);
    return fs::path(path).parent_path().parent_path();
}

std::string ReadBytes(const fs::path& path) {
    std::ifstream file(path, std::ios::binary);
    EXPECT_TRUE(file.is_open()) << path;
    return {std::istreambuf_iterator<char>(file), {}};
}

const fs::path kHostAnswers = BuildFolder() / "debug" / "answers";

// Line by line, so that a difference shows what was asked and not ten thousand bytes.
void ExpectSameLines(const std::string& here, const std::string& there) {
    std::istringstream hereLines(here);
    std::istringstream thereLines(there);
    std::string asked;
    std::string hereLine;
    std::string thereLine;
    unsigned differences = 0;
    while (std::getline(thereLines, thereLine)) {
        std::getline(hereLines, hereLine);
        asked = thereLine.starts_with(' ') ? asked : thereLine;
        EXPECT_EQ(hereLine, thereLine) << "asked: " << asked;
        differences += hereLine != thereLine;
        ASSERT_LT(differences, 20u);
    }
    EXPECT_FALSE(std::getline(hereLines, hereLine)) << "more here: " << hereLine;
}

TEST(DriverAnswers, AreTheSameOnTheEmbeddedMachine) {
    ASSERT_EQ(SharedPrinter().error(), "");
    const answers::EntryPoints driver = {
        .deviceCapabilities =
            SharedPrinter().EntryPoint<decltype(&DrvDeviceCapabilities)>("DrvDeviceCapabilities"),
        .convertDevMode =
            SharedPrinter().EntryPoint<decltype(&DrvConvertDevMode)>("DrvConvertDevMode"),
        .queryPrint = SharedPrinter().EntryPoint<decltype(&DevQueryPrintEx)>("DevQueryPrintEx"),
        .printerEvent = SharedPrinter().EntryPoint<decltype(&DrvPrinterEvent)>("DrvPrinterEvent"),
        .upgradePrinter =
            SharedPrinter().EntryPoint<decltype(&DrvUpgradePrinter)>("DrvUpgradePrinter"),
    };
    ASSERT_TRUE(driver.deviceCapabilities != nullptr && driver.convertDevMode != nullptr &&
                driver.queryPrint != nullptr && driver.printerEvent != nullptr &&
                driver.upgradePrinter != nullptr);
    SharedPrinter().ForgetStoredData();
    for (const answers::SystemColor& one : answers::kSystemColors) {
        SetSysColors(1, &one.element, &one.color);
    }
    for (const answers::Part& part : answers::All(driver, SharedPrinter().handle())) {
        SCOPED_TRACE(part.file);
        EXPECT_EQ(part.text.find("cannot be made"), std::string::npos);
        ExpectSameLines(part.text, ReadBytes(kHostAnswers / part.file));
    }
}

TEST(WindowClasses, AreRegisteredForEveryModuleOfTheProcess) {
    ASSERT_EQ(SharedPrinter().error(), "");
    for (const LPCWSTR name : {ksfax::kSpinClassName, ksfax::kPanelClassName}) {
        WNDCLASSEXW facts = {};
        facts.cbSize = sizeof facts;
        ASSERT_TRUE(GetClassInfoExW(SharedPrinter().module(), name, &facts));
        EXPECT_EQ(facts.style, 0x400Bu);
        EXPECT_EQ(facts.cbClsExtra, 0);
        EXPECT_EQ(facts.cbWndExtra, 8);
        EXPECT_EQ(facts.hCursor, LoadCursorW(nullptr, IDC_ARROW));
        EXPECT_EQ(facts.hbrBackground, reinterpret_cast<HBRUSH>(16));
        EXPECT_EQ(facts.hIcon, nullptr);
        EXPECT_EQ(facts.lpszMenuName, nullptr);
    }
}

TEST(DescriptionCacheFile, IsTheSameOnTheEmbeddedMachineButForThePathsLetterCase) {
    ASSERT_EQ(SharedPrinter().error(), "");
    WCHAR name[64];
    lstrcpyW(name, answers::kPrinterName);
    const auto convert =
        SharedPrinter().EntryPoint<decltype(&DrvConvertDevMode)>("DrvConvertDevMode");
    std::vector<BYTE> record(2608);
    LONG size = static_cast<LONG>(record.size());
    ASSERT_TRUE(convert(name, nullptr, reinterpret_cast<DEVMODEW*>(record.data()), &size,
                        CDM_DRIVER_DEFAULT));

    std::string here = ReadBytes(SharedPrinter().folder() / answers::kCacheFileName);
    std::string there = ReadBytes(kHostAnswers / answers::kCacheFileName);
    ASSERT_EQ(here.size(), there.size());
    // The path of the data file, UTF-16, stands at the offset that stands at byte 8.
    uint32_t path = 0;
    ASSERT_GT(here.size(), 504u);
    std::memcpy(&path, here.data() + 8, sizeof path);
    const size_t pathBytes =
        (SharedPrinter().folder() / answers::kDataFileName).wstring().size() * 2;
    ASSERT_LE(path + pathBytes, here.size());
    for (size_t at = path; at < path + pathBytes; ++at) {
        here[at] = static_cast<char>(std::tolower(here[at]));
        there[at] = static_cast<char>(std::tolower(there[at]));
    }
    const auto [left, right] = std::mismatch(here.begin(), here.end(), there.begin());
    EXPECT_EQ(left, here.end()) << "the first difference is at byte " << left - here.begin();
}

// ---- Sessions ----

std::string StoredBytes(HANDLE printer, std::wstring name) {
    BYTE bytes[256] = {};
    DWORD type = 0;
    DWORD size = 0;
    const DWORD error = GetPrinterDataW(printer, name.data(), &type, bytes, sizeof bytes, &size);
    return error == ERROR_SUCCESS ? std::string(bytes, bytes + size) : "(none)";
}

void StoreBytes(HANDLE printer, std::wstring name, DWORD type, std::string bytes) {
    EXPECT_EQ(SetPrinterDataW(printer, name.data(), type, reinterpret_cast<BYTE*>(bytes.data()),
                              static_cast<DWORD>(bytes.size())),
              DWORD{ERROR_SUCCESS});
}

// By the system's own call, which loads the driver and shows nothing. Which forms it adds cannot
// be seen here: Wine 8 says that it adds forms and does not. It also keeps a printer's default
// record without its form name, so of that record the paper and the shape are looked at.
TEST(Session, OpensThroughDocumentPropertiesWithoutAPrompt) {
    ASSERT_EQ(SharedPrinter().error(), "");
    WCHAR name[] = TEXT("Session Fax");
    const InstalledPrinter printer(answers::kDriverName, name, answers::PrinterDefaults(), {});
    ASSERT_EQ(printer.error(), "");
    const HANDLE handle = printer.handle();
    StoreBytes(handle, TEXT("UserName"), REG_BINARY, std::string("Somebody else", 14));

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
    // The same user in other letter case is nobody new.
    std::string otherCase(user, std::strlen(user) + 1);
    for (char& letter : otherCase) {
        letter = static_cast<char>(std::toupper(letter) == letter ? std::tolower(letter)
                                                                  : std::toupper(letter));
    }
    StoreBytes(handle, TEXT("UserName"), REG_BINARY, otherCase);
    ASSERT_EQ(DocumentPropertiesW(nullptr, handle, name, record, nullptr, DM_OUT_BUFFER), IDOK);
    EXPECT_EQ(StoredBytes(handle, TEXT("UserName")), otherCase);
    DWORD needed = 0;
    GetPrinterW(handle, 8, nullptr, 0, &needed);
    std::vector<BYTE> information(needed);
    ASSERT_TRUE(GetPrinterW(handle, 8, information.data(), needed, &needed));
    const DEVMODEW* kept = reinterpret_cast<PRINTER_INFO_8W*>(information.data())->pDevMode;
    ASSERT_NE(kept, nullptr);
    EXPECT_EQ(kept->dmDriverVersion, 0x0104);
    EXPECT_EQ(kept->dmDriverExtra, 2388);
    EXPECT_EQ(kept->dmPaperSize, DMPAPER_LETTER);

    // The record that was in the printer is this driver's now, so the caller's choices count.
    record->dmPaperSize = DMPAPER_A4;
    record->dmOrientation = DMORIENT_LANDSCAPE;
    std::vector<BYTE> second(2608);
    auto* merged = reinterpret_cast<DEVMODEW*>(second.data());
    ASSERT_EQ(
        DocumentPropertiesW(nullptr, handle, name, merged, record, DM_OUT_BUFFER | DM_IN_BUFFER),
        IDOK);
    EXPECT_EQ(merged->dmPaperSize, DMPAPER_A4);
    EXPECT_EQ(merged->dmOrientation, DMORIENT_LANDSCAPE);
    EXPECT_STREQ(merged->dmFormName, TEXT("A4"));
}

}  // namespace
