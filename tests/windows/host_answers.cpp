// Writes down what the driver answers on the embedded machine: driver_answers DATAFILE FOLDER.
// The Windows tests compare the shipped DLL's answers with these files.

#include <cstdio>
#include <filesystem>
#include <fstream>

#include "platform/embedded/files.h"
#include "platform/embedded/gdi.h"
#include "platform/embedded/spooler.h"
#include "platform/windows_api.h"

#include "tests/windows/driver_answers.h"
#include "tool/loaded_driver.h"

namespace fs = std::filesystem;

int main(int argc, char** argv) {
    if (argc != 3) {
        std::fprintf(stderr, "usage: %s DATAFILE FOLDER\n", argv[0]);
        return 2;
    }
    const fs::path target = argv[2];
    fs::create_directories(target);

    embedded::Machine machine;
    const std::u16string folder = std::u16string(tool::kDriverFolder) + u"\\";
    const std::u16string dataFile = folder + answers::kDataFileName;
    const fs::path dataFileOnDisk = machine.files().HostPath(dataFile);
    fs::create_directories(dataFileOnDisk.parent_path());
    fs::copy_file(argv[1], dataFileOnDisk);
    machine.spooler().AddDriver({.name = answers::kDriverName,
                                 .dataFile = dataFile,
                                 .driverPath = folder + u"KSFAXR.DLL",
                                 .configFile = folder + u"KSFAXUI.DLL"});
    for (const answers::SystemColor& one : answers::kSystemColors) {
        machine.graphics().systemColors.at(one.element) = one.color;
    }
    const DEVMODEW defaults = answers::PrinterDefaults();
    const auto* bytes = reinterpret_cast<const std::byte*>(&defaults);
    machine.spooler().AddPrinter({.name = answers::kPrinterName,
                                  .driverName = answers::kDriverName,
                                  .defaultSettings = {bytes, bytes + sizeof defaults}});

    tool::LoadedDriver loaded(machine);
    WCHAR name[] = u"Answering Fax";
    PRINTER_DEFAULTSW access = {
        .pDatatype = nullptr, .pDevMode = nullptr, .DesiredAccess = PRINTER_ALL_ACCESS};
    HANDLE printer = nullptr;
    if (!OpenPrinterW(name, &printer, &access)) {
        std::fprintf(stderr, "the embedded machine does not open the printer\n");
        return 1;
    }
    const answers::EntryPoints driver = {
        .deviceCapabilities = DrvDeviceCapabilities,
        .convertDevMode = DrvConvertDevMode,
        .queryPrint = DevQueryPrintEx,
        .printerEvent = DrvPrinterEvent,
        .upgradePrinter = DrvUpgradePrinter,
    };
    for (const answers::Part& part : answers::All(driver, printer)) {
        std::ofstream(target / part.file) << part.text;
    }
    ClosePrinter(printer);
    fs::copy_file(machine.files().HostPath(folder + answers::kCacheFileName),
                  target / answers::kCacheFileName, fs::copy_options::overwrite_existing);
    return 0;
}
