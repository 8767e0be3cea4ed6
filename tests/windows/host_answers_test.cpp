// What the driver answers on the embedded machine.

#include <gtest/gtest.h>

#include "platform/embedded/files.h"
#include "platform/embedded/gdi.h"
#include "platform/embedded/modules.h"
#include "platform/embedded/spooler.h"
#include "platform/owned.h"

#include "faxjob/companion.h"
#include "tests/windows/driver_answers.h"
#include "tool/loaded_driver.h"

extern "C" INT_PTR DialDlg(DialModuleRecord* record);
extern "C" INT_PTR MakeBMP(DialModuleRecord* record);

namespace {

namespace fs = std::filesystem;

class Host : public answers::Home {
  public:
    Host() {
        const std::u16string drivers = std::u16string(tool::kDriverFolder) + u"\\";
        const std::u16string dataFile = drivers + answers::kDataFileName;
        const fs::path onDisk = machine_.files().HostPath(dataFile);
        fs::create_directories(onDisk.parent_path());
        fs::copy_file(SOURCE_FOLDER "/examples/KSFAX.PPD", onDisk);
        machine_.spooler().AddDriver({.name = answers::kDriverName, .dataFile = dataFile});
        for (const answers::SystemColor& one : answers::kSystemColors) {
            machine_.graphics().systemColors.at(one.element) = one.color;
        }
        const DEVMODEW defaults = answers::PrinterDefaults();
        const auto* bytes = reinterpret_cast<const std::byte*>(&defaults);
        machine_.spooler().AddPrinter({.name = answers::kPrinterName,
                                       .driverName = answers::kDriverName,
                                       .defaultSettings = {bytes, bytes + sizeof defaults}});
        driver_.emplace(machine_);
        WCHAR name[] = u"Answering Fax";
        PRINTER_DEFAULTSW access = {
            .pDatatype = nullptr, .pDevMode = nullptr, .DesiredAccess = PRINTER_ALL_ACCESS};
        EXPECT_TRUE(OpenPrinterW(name, &printer, &access));
        opened_ = platform::PrinterHandle(printer);
        driver = {DrvDeviceCapabilities, DrvConvertDevMode, DevQueryPrintEx,
                  DrvPrinterEvent,       DrvUpgradePrinter, DrvDocumentEvent};
        cacheFile = machine_.files().HostPath(drivers + answers::kCacheFileName);
        jobFile = machine_.driveC() / "Windows" / KSFAX_JOB_FILE;
        folder = machine_.driveC() / "fax 100%s";
        folderName = u"C:\\fax 100%s";
    }

    void UseCompanion(const std::string& without) override {
        machine_.modules().Remove(kCompanion);
        std::map<std::string, FARPROC> exports = {
            {KSFAX_DIAL_OPERATION, platform::FunctionCast<FARPROC>(DialDlg)},
            {KSFAX_COVER_OPERATION, platform::FunctionCast<FARPROC>(MakeBMP)}};
        if (without != "all") {
            exports.erase(without);
            machine_.modules().Install({.path = kCompanion, .exports = exports, .resources = {}});
        }
    }
    bool HoldsCompanion() override { return machine_.modules().CountLoaded(kCompanion) != 0; }
    std::string TakeBoxes() override {
        std::string boxes;
        for (const auto& box : std::exchange(machine_.messageBoxes, {})) {
            boxes += answers::BoxLine(box.text, box.caption, box.type);
        }
        return boxes;
    }
    bool IsOpen(HANDLE handle) override {
        return machine_.handles.Get<embedded::KernelObject>(handle) != nullptr;
    }

  private:
    static constexpr char16_t kCompanion[] = u"C:\\Windows\\System32\\KSFAXDLG.DLL";
    embedded::Machine machine_;
    std::optional<tool::LoadedDriver> driver_;
    platform::PrinterHandle opened_;
};

TEST(DriverAnswers, AreThoseRecorded) {
    Host host;
    answers::AreRecorded(host);
}

}  // namespace
