#pragma once

// One list of questions that is put to the driver in both homes: on the embedded machine by a host
// test, and to the shipped DLL on Windows. tests/golden/answers holds the questions and under each
// the answer to which both homes are held: result, last error where callers are promised one,
// texts, and every byte written.

#include <filesystem>
#include <string>

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

    // Has the driver find the companion module without the operation of that name; "all": not at
    // all.
    virtual void UseCompanion(const std::string& without) = 0;
    virtual bool HoldsCompanion() = 0;
    virtual bool IsOpen(HANDLE handle) = 0;
    // The lines of the message boxes since the last call.
    virtual std::string TakeBoxes() = 0;
};
inline std::string BoxLine(const Text& text, const Text& caption, UINT type) {
    return ", box " + std::to_string(type) + " " + std::string(caption.begin(), caption.end()) +
           ": " + std::string(text.begin(), text.end());
}

// The printer's own default record, a public part alone. Set in both homes: Windows makes one up
// for a printer that has none.
DEVMODEW PrinterDefaults();

// Demands the recorded answers. The driver then holds nothing that it did not hold before, but what
// it stores with the printer.
void AreRecorded(Home& home);

// A fax job, or two at once: "RECEIVERS [cover] [twice] [maximum=N] [without=OPERATION]".
std::string FaxJob(Home& home, const std::string& job);
std::string ContentOf(const std::filesystem::path& file);
// Long content is told by its size and a checksum (FNV-1a).
std::string Summary(const std::string& content);

}  // namespace answers
