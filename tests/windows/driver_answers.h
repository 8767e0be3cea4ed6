#pragma once

// One list of questions that is put to the driver in both homes: on the embedded machine by a host
// test, and to the shipped DLL on Windows. An answer is everything that comes back: result, last
// error where callers are promised one, texts, and every byte written. Both homes are held to the
// answers recorded in tests/golden/answers.

#include <filesystem>
#include <string>
#include <vector>

#include "platform/windows_api.h"

namespace answers {

using Text = std::basic_string<WCHAR>;

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
    decltype(&DrvDocumentEvent) documentEvent;
};

// What the homes do each in its way.
class Home {
  public:
    virtual ~Home() = default;

    EntryPoints driver;
    HANDLE printer;                   // open, of the printer of that name
    std::filesystem::path cacheFile;  // of the description
    std::filesystem::path jobFile;    // the fax job file
    std::filesystem::path folder;     // to be the fax data folder
    Text folderName;                  // the same for the driver

    // Has the driver find the companion module without the operation of that name; null: not at
    // all.
    virtual void UseCompanion(const char* without) = 0;
    virtual bool HoldsCompanion() = 0;
    // The message boxes since the last call: "caption: text" and their number of buttons.
    virtual std::string TakeBoxes() = 0;
    // The bytes that the shared memory of that name was made with.
    virtual uint64_t SizeOfBlock(const Text& name) = 0;
    virtual bool IsOpen(HANDLE handle) = 0;
};

// The printer's own default record, a public part alone. Set in both homes: Windows makes one up
// for a printer that has none.
DEVMODEW PrinterDefaults();

// The answers on one subject: text of many lines, each of which begins with what was asked.
struct Part {
    const char* file;
    std::string text;
};

// The driver then holds nothing that it did not hold before, but what it stores with the printer.
std::vector<Part> All(Home& home);
std::string FaxJobs(Home& home);

}  // namespace answers
