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

// The system colours to be set in both homes before the controls are drawn, and the characters
// that stand for them.
struct SystemColor {
    int element;
    COLORREF color;
    char letter;
};
inline constexpr SystemColor kSystemColors[] = {
    {COLOR_BTNFACE, RGB(212, 208, 200), '.'},   {COLOR_BTNTEXT, RGB(0, 0, 8), 'a'},
    {COLOR_BTNSHADOW, RGB(128, 128, 128), 's'}, {COLOR_WINDOWFRAME, RGB(0, 8, 0), 'F'},
    {COLOR_WINDOW, RGB(0, 128, 128), '~'},
};

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
