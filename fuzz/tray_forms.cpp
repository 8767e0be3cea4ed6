// The tray-form table as a printer's data holds it, of any bytes: read, and converted from the
// older layout. The first byte says how far the size value is from the truth.

#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <vector>

#include "platform/embedded/spooler.h"
#include "platform/windows_api.h"

#include "core/printer_data.h"
#include "faxjob/upgrade.h"

namespace {

constexpr char16_t kPrinter[] = u"Fax";

HANDLE OpenTestPrinter() {
    static embedded::Machine machine;
    machine.spooler().AddPrinter({.name = kPrinter, .driverName = u"Fax"});
    WCHAR name[] = u"Fax";
    PRINTER_DEFAULTSW defaults = {
        .pDatatype = nullptr, .pDevMode = nullptr, .DesiredAccess = PRINTER_ALL_ACCESS};
    HANDLE printer = nullptr;
    return OpenPrinterW(name, &printer, &defaults) ? printer : nullptr;
}

// How many entries the stored table has; -1 without one.
int CountEntries(HANDLE printer) {
    const ksfax::TrayFormTable table(ksfax::ReadTrayFormTable(printer));
    if (!table) {
        return -1;
    }
    int count = 0;
    ksfax::TrayFormEntry entry = {};
    const WCHAR* at = table.get();
    for (const WCHAR* next; (next = ksfax::NextTrayFormEntry(at, &entry)) != at; at = next) {
        ++count;
    }
    return count;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    static const HANDLE printer = OpenTestPrinter();
    if (size == 0) {
        return 0;
    }
    embedded::Spooler& spooler = embedded::Machine::Current().spooler();
    const auto* bytes = reinterpret_cast<const std::byte*>(data);
    const std::vector<std::byte> table(bytes + 1, bytes + size);
    const auto stated = static_cast<DWORD>(table.size() + static_cast<int8_t>(data[0]));
    spooler.SetPrinterData(kPrinter, u"TrayFormSize", embedded::StoredNumber(stated));
    spooler.SetPrinterData(kPrinter, u"TrayFormTable", {.type = REG_BINARY, .data = table});

    const int before = CountEntries(printer);
    const bool isUpgraded = ksfax::UpgradeTrayFormTable(printer);
    const int after = CountEntries(printer);
    const bool isChanged = spooler.PrinterData(kPrinter, u"TrayFormTable")->data != table;
    // What could be read stays; what could not be upgraded stays; what was converted can be read.
    if ((before >= 0 && (isChanged || !isUpgraded)) || (isChanged && (!isUpgraded || after < 0)) ||
        (!isChanged && after != before)) {
        abort();
    }
    return 0;
}
