// The shipped DLL on Windows, with a real printer installed, gives the answers that the driver
// gives on the embedded machine.

#include <gtest/gtest.h>

#include <cstring>
#include <fstream>
#include <iterator>
#include <sstream>

#include "tests/windows/driver_answers.h"
#include "tests/windows/installed_printer.h"

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

const InstalledPrinter& Printer() {
    static const InstalledPrinter printer(
        answers::kDriverName, answers::kPrinterName, answers::PrinterDefaults(),
        BuildFolder().parent_path() / "examples" / answers::kDataFileName);
    return printer;
}

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
    ASSERT_EQ(Printer().error(), "");
    const answers::EntryPoints driver = {
        .deviceCapabilities =
            Printer().EntryPoint<decltype(&DrvDeviceCapabilities)>("DrvDeviceCapabilities"),
        .convertDevMode = Printer().EntryPoint<decltype(&DrvConvertDevMode)>("DrvConvertDevMode"),
        .queryPrint = Printer().EntryPoint<decltype(&DevQueryPrintEx)>("DevQueryPrintEx"),
        .printerEvent = Printer().EntryPoint<decltype(&DrvPrinterEvent)>("DrvPrinterEvent"),
        .upgradePrinter = Printer().EntryPoint<decltype(&DrvUpgradePrinter)>("DrvUpgradePrinter"),
    };
    ASSERT_TRUE(driver.deviceCapabilities != nullptr && driver.convertDevMode != nullptr &&
                driver.queryPrint != nullptr && driver.printerEvent != nullptr &&
                driver.upgradePrinter != nullptr);
    for (const answers::Part& part : answers::All(driver, Printer().handle())) {
        SCOPED_TRACE(part.file);
        ExpectSameLines(part.text, ReadBytes(kHostAnswers / part.file));
    }
}

TEST(DescriptionCacheFile, IsTheSameOnTheEmbeddedMachineButForThePathsLetterCase) {
    ASSERT_EQ(Printer().error(), "");
    WCHAR name[64];
    lstrcpyW(name, answers::kPrinterName);
    const auto convert =
        Printer().EntryPoint<decltype(&DrvConvertDevMode)>("DrvConvertDevMode");
    std::vector<BYTE> record(2608);
    LONG size = static_cast<LONG>(record.size());
    ASSERT_TRUE(convert(name, nullptr, reinterpret_cast<DEVMODEW*>(record.data()), &size,
                        CDM_DRIVER_DEFAULT));

    std::string here = ReadBytes(Printer().folder() / answers::kCacheFileName);
    std::string there = ReadBytes(kHostAnswers / answers::kCacheFileName);
    ASSERT_EQ(here.size(), there.size());
    // The path of the data file, UTF-16, stands at the offset that stands at byte 8.
    uint32_t path = 0;
    ASSERT_GT(here.size(), 504u);
    std::memcpy(&path, here.data() + 8, sizeof path);
    const size_t pathBytes = (Printer().folder() / answers::kDataFileName).wstring().size() * 2;
    ASSERT_LE(path + pathBytes, here.size());
    for (size_t at = path; at < path + pathBytes; ++at) {
        here[at] = static_cast<char>(std::tolower(here[at]));
        there[at] = static_cast<char>(std::tolower(there[at]));
    }
    const auto [left, right] = std::mismatch(here.begin(), here.end(), there.begin());
    EXPECT_EQ(left, here.end()) << "the first difference is at byte " << left - here.begin();
}

}  // namespace
