#pragma once

// One list of questions that is put to the driver in both homes: on the embedded machine by a
// host program that writes the answers down, and to the shipped DLL on Windows by a test that
// compares its answers with those. An answer is everything that comes back: result, last error
// where callers are promised one, texts, and every byte written.

#include <string>
#include <vector>

#include "platform/windows_api.h"

namespace answers {

// Where the printer's data file comes from, and what the printer is called, in both homes.
inline constexpr WCHAR kPrinterName[] = TEXT("Answering Fax");
inline constexpr WCHAR kDriverName[] = TEXT("Kestova Fax");
inline constexpr WCHAR kDataFileName[] = TEXT("KSFAX.PPD");
inline constexpr WCHAR kCacheFileName[] = TEXT("KSFAX.PDC");

struct EntryPoints {
    decltype(&DrvDeviceCapabilities) deviceCapabilities;
    decltype(&DrvConvertDevMode) convertDevMode;
    decltype(&DevQueryPrintEx) queryPrint;
    decltype(&DrvPrinterEvent) printerEvent;
    decltype(&DrvUpgradePrinter) upgradePrinter;
};

// The printer's own default record, a public part alone. Set in both homes: Windows makes one up
// for a printer that has none.
DEVMODEW PrinterDefaults();

// The answers on one subject: text of many lines, each of which begins with what was asked.
struct Part {
    const char* file;
    std::string text;
};

// `printer` is an open handle of the printer of that name. The last part has the driver store
// what it keeps with the printer.
std::vector<Part> All(const EntryPoints& driver, HANDLE printer);

}  // namespace answers
