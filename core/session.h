#pragma once

// The context of one call that shows or answers the printer's property sheets: the description,
// the effective job settings, the device record and what the sheet needs to know of the printer.
// Opening one also keeps the printer's stored state in order. It belongs to one call on one
// thread; of what it holds only the description is shared.

#include "platform/windows_api.h"

#include "core/printer_data.h"
#include "jobsettings/job_settings.h"

namespace ksfax {

struct PrinterDescription;

constexpr size_t kPortNameRoom = 260;

// One paper of the paper page's list.
struct PaperListEntry {
    uint16_t displayString;  // its name, in the resource module; 0 for a paper without one
    uint32_t paperCode;      // DMPAPER_ code; 256 is the user-defined size
};
// The `displayString` behind the last paper, in an entry whose code is 0.
constexpr uint16_t kPaperListEnd = 0xFFFF;

// Pages that the document property sheet has from this driver.
constexpr size_t kDocumentPages = 1;

// Lives in its own heap, with every string that it points to.
struct PrinterSession {
    PrinterSession* selfCheckHead;          // the session's own address
    uint32_t canModify;                     // 1 = the caller may change settings; set by the sheet
    HANDLE printerHandle;                   // the caller's
    const PrinterDescription* description;  // acquired shared, released when the session closes
    HANDLE heap;
    PFNCOMPROPSHEET propSheetCallback;  // of the property sheet's host; set by the sheet
    HANDLE propSheetHandle;             // likewise
    WCHAR* helpFilePath;                // null when there is none
    WCHAR* driverName;
    PrinterDataRecord printerData;  // a copy, in the current version
    JobSettings jobSettings;        // the sheet's page edits it in place

    // The user interface's own; zero in a new session.
    HWND pageWindow;                        // the paper page, while it is there
    HGLOBAL paperListBlock;                 // holds `paperList`; null with the fallback list
    const PaperListEntry* paperList;        // up to kPaperListEnd
    HANDLE propSheetPages[kDocumentPages];  // what the host knows the document pages by
    HMODULE pageResourceModule;             // the pages' strings; set once the page is in its sheet

    WCHAR portName[kPortNameRoom];  // cut, zero-filled
    HBRUSH pageBrush;               // button-face colour, while the paper page is there
    PrinterSession* selfCheckTail;  // the session's own address
};

// Opens a session on `printer`, which stays the caller's and must outlive it. `callerRecord` may
// be null; it is merged only over a default record of this driver that the printer had before the
// call. Null when the description, the printer's information, its device record or memory cannot
// be had; everything obtained is given back then. Close it with ClosePrinterSession.
[[nodiscard]] PrinterSession* OpenPrinterSession(HANDLE printer, const DEVMODEW* callerRecord);
void ClosePrinterSession(PrinterSession* session);

struct SessionTraits {
    using Value = PrinterSession*;
    static Value Invalid() { return nullptr; }
    static void Free(Value value) { ClosePrinterSession(value); }
};
using OpenSession = platform::Owned<SessionTraits>;

// A copy in the session's heap or another; null when memory runs out. A null text is empty.
[[nodiscard]] WCHAR* CopyIntoHeap(HANDLE heap, const WCHAR* text);

// Whether a pointer that came back from the property sheet's host is a session.
[[nodiscard]] bool IsPrinterSession(const PrinterSession* session);

// ---- The steps of opening that have a result of their own ----

// Replaces a global default record of the printer that is foreign or of another version. True
// when it did. A printer without any record is left without.
bool EnsurePrinterDefaultJobSettings(HANDLE printer, const PrinterDescription& description);

// The driver's help file, or pscript.hlp in the driver folder, as a string in `heap`; null when
// the spooler tells neither or memory runs out.
[[nodiscard]] WCHAR* FindHelpFile(HANDLE printer, HANDLE heap);

// Keeps the printer data values "UserName" and "ComputerName" at whoever opened a session last.
void RecordUserAndComputer(HANDLE printer);

// Writes a printer data value through a handle of its own that has full access, since a session's
// handle may have the right to print alone. False when the spooler refuses.
bool SetPrinterDataAsAdministrator(HANDLE printer, const WCHAR* name, DWORD type, const void* data,
                                   DWORD length);

}  // namespace ksfax
