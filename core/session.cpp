#include "core/session.h"

#include <algorithm>
#include <cstring>

#include "core/module_state.h"
#include "core/spooler_queries.h"
#include "description/printer_description.h"
#include "description/text.h"
#include "faxjob/upgrade.h"

namespace ksfax {

namespace {

constexpr SIZE_T kHeapStartBytes = 8192;

// A name of at most 15 characters and its terminator.
constexpr DWORD kComputerNameRoom = 16;
// One of at most 256 characters, two bytes each at the most, and its terminator.
constexpr DWORD kUserNameRoom = 513;

bool IsCurrentRecord(const DEVMODEW& record) {
    return record.dmSpecVersion == kSpecVersion && record.dmDriverVersion == kDriverVersion &&
           record.dmDriverExtra == kPrivateSize;
}

// Opens a printer anew, with every right. Empty when the spooler refuses, and without a name, with
// which Windows would open the print server and take its data for the printer's.
platform::PrinterHandle OpenAsAdministrator(LPWSTR printerName, LPWSTR dataType) {
    PRINTER_DEFAULTSW fullAccess = {
        .pDatatype = dataType, .pDevMode = nullptr, .DesiredAccess = PRINTER_ALL_ACCESS};
    HANDLE handle = nullptr;
    if (printerName == nullptr || !OpenPrinterW(printerName, &handle, &fullAccess)) {
        return {};
    }
    return platform::PrinterHandle(handle);
}

// The job settings of a new session: the defaults, over them the printer's own default record if
// it is this driver's, and over that the caller's. A record that EnsurePrinterDefaultJobSettings
// has just replaced says nothing about what the caller's was built on, so the caller's waits for
// the next session.
void FillJobSettings(PrinterSession* session, const platform::GlobalBlock& block, bool isReplaced,
                     const DEVMODEW* callerRecord) {
    const auto& printer = *static_cast<const PRINTER_INFO_2W*>(block.get());
    const DEVMODEW* own = WholeRecordIn(block, printer.pDevMode);
    JobSettings* settings = &session->jobSettings;
    BuildDefaultJobSettings(settings, printer.pDriverName, *session->description, IsMetricLocale());
    if (own != nullptr && own->dmDriverVersion == kDriverVersion) {
        // A record that cannot be merged leaves what stands.
        (void)MergeJobSettings(settings, own, *session->description);
        if (!isReplaced) {
            (void)MergeJobSettings(settings, callerRecord, *session->description);
        }
    }
    DeriveJobBlock(settings);
    PrivateJobSettings& privatePart = PrivatePart(*settings);
    privatePart.jobText[0] = 0;
    privatePart.layoutOverride = 0;
    privatePart.pagesPerSheetOut = 0;
    privatePart.duplexOut &= static_cast<uint16_t>(~kDuplexRequested);
}

// False when no record can be had.
bool FillPrinterData(PrinterSession* session) {
    const platform::GlobalBlock block =
        GetPrinterDataRecord(session->printerHandle, *session->description);
    if (!block) {
        return false;
    }
    auto* stored = static_cast<PrinterDataRecord*>(block.get());
    // The sheet shows its own language, whatever the printer was set up in.
    stored->languageIndex = 0;
    PrinterDataRecord* copy = &session->printerData;
    std::memcpy(copy, stored, std::min<size_t>(stored->size, sizeof(*copy)));
    copy->version = kPrinterDataVersion;
    copy->size = sizeof(*copy);
    return true;
}

// Whether the stored text value is `current`, letter case aside and with or without a terminator.
// One of more than `mostBytes` bytes, at most kUserNameRoom, is another name.
bool IsStoredName(HANDLE printer, const char* valueName, const char* current, DWORD mostBytes) {
    char stored[kUserNameRoom + 1] = {};
    DWORD needed = 0;
    DWORD type = 0;
    return GetPrinterDataA(printer, const_cast<LPSTR>(valueName), &type,
                           reinterpret_cast<LPBYTE>(stored), mostBytes, &needed) == ERROR_SUCCESS &&
           lstrcmpiA(stored, current) == 0;
}

void RecordUser(HANDLE printer) {
    DWORD length = 0;
    if (GetUserNameA(nullptr, &length) || length == 0) {
        return;
    }
    const platform::GlobalBlock block(GlobalAlloc(GMEM_ZEROINIT, SIZE_T{length} + 1));
    auto* user = static_cast<char*>(block.get());
    if (user == nullptr || !GetUserNameA(user, &length)) {
        return;
    }
    if (!IsStoredName(printer, "UserName", user, kUserNameRoom)) {
        (void)SetPrinterDataAsAdministrator(printer, TEXT("UserName"), REG_BINARY, user, length);
    }
}

void RecordComputer(HANDLE printer) {
    char computer[kComputerNameRoom + 1] = {};
    DWORD length = kComputerNameRoom;
    if (!GetComputerNameA(computer, &length)) {
        return;
    }
    if (!IsStoredName(printer, "ComputerName", computer, kComputerNameRoom)) {
        (void)SetPrinterDataAsAdministrator(printer, TEXT("ComputerName"), REG_BINARY, computer,
                                            length + 1);
    }
}

}  // namespace

PrinterSession* OpenPrinterSession(HANDLE printer, const DEVMODEW* callerRecord) {
    platform::PrivateHeap heap(HeapCreate(0, kHeapStartBytes, 0));
    if (!heap) {
        return nullptr;
    }
    auto* session = static_cast<PrinterSession*>(
        HeapAlloc(heap.get(), HEAP_ZERO_MEMORY, sizeof(PrinterSession)));
    if (session == nullptr) {
        return nullptr;
    }
    session->selfCheckHead = session;
    session->selfCheckTail = session;
    session->printerHandle = printer;
    session->heap = heap.get();

    DescriptionUse description(AcquireDescription(printer, true));
    if (!description) {
        return nullptr;
    }
    session->description = description.get();
    const bool isReplaced = EnsurePrinterDefaultJobSettings(printer, *session->description);
    {
        const platform::GlobalBlock block = GetPrinterInfo(printer, 2);
        const auto* information = static_cast<const PRINTER_INFO_2W*>(block.get());
        if (information == nullptr) {
            return nullptr;
        }
        session->driverName = CopyIntoHeap(heap.get(), information->pDriverName);
        if (session->driverName == nullptr) {
            return nullptr;
        }
        CopyWideFixed(session->portName, information->pPortName);
        session->helpFilePath = FindHelpFile(printer, heap.get());
        FillJobSettings(session, block, isReplaced, callerRecord);
    }
    PaperForm form;
    (void)MatchJobFormToPaper(&session->jobSettings.devMode, &form, *session->description);
    InstallForms(printer, *session->description);
    RecordUserAndComputer(printer);
    if (!FillPrinterData(session)) {
        return nullptr;
    }
    (void)description.release();
    (void)heap.release();
    return session;
}

void ClosePrinterSession(PrinterSession* session) {
    ReleaseDescription(session->description);
    // A host that calls with the old pointer once more shall not find a session there.
    session->selfCheckHead = nullptr;
    session->selfCheckTail = nullptr;
    HeapDestroy(session->heap);
}

WCHAR* CopyIntoHeap(HANDLE heap, const WCHAR* text) {
    const SIZE_T characters = text != nullptr ? lstrlenW(text) : 0;
    auto* copy =
        static_cast<WCHAR*>(HeapAlloc(heap, HEAP_ZERO_MEMORY, (characters + 1) * sizeof(WCHAR)));
    if (copy != nullptr) {
        std::copy_n(text, characters, copy);
    }
    return copy;
}

bool IsPrinterSession(const PrinterSession* session) {
    return session != nullptr && session->selfCheckHead == session &&
           session->selfCheckTail == session;
}

bool EnsurePrinterDefaultJobSettings(HANDLE printer, const PrinterDescription& description) {
    const platform::GlobalBlock names = GetPrinterInfo(printer, 2);
    const auto* information = static_cast<const PRINTER_INFO_2W*>(names.get());
    if (information == nullptr) {
        return false;
    }
    const platform::GlobalBlock defaults = GetPrinterInfo(printer, 8);
    auto* stored = static_cast<PRINTER_INFO_8W*>(defaults.get());
    if (stored == nullptr || stored->pDevMode == nullptr) {
        return false;
    }
    // A record that is cut short is nobody's, so it is replaced as a foreign one is.
    const DEVMODEW* whole = WholeRecordIn(defaults, stored->pDevMode);
    if (whole != nullptr && IsCurrentRecord(*whole)) {
        return false;
    }
    JobSettings settings;
    BuildDefaultJobSettings(&settings, information->pDriverName, description, IsMetricLocale());
    stored->pDevMode = &settings.devMode;
    const platform::PrinterHandle administrator =
        OpenAsAdministrator(information->pPrinterName, nullptr);
    return administrator &&
           SetPrinterW(administrator.get(), 8, reinterpret_cast<LPBYTE>(stored), 0);
}

WCHAR* FindHelpFile(HANDLE printer, HANDLE heap) {
    const platform::GlobalBlock block = GetDriverInfo(printer, 3);
    const auto* driver = static_cast<const DRIVER_INFO_3W*>(block.get());
    if (driver != nullptr && driver->pHelpFile != nullptr) {
        WCHAR* named = CopyIntoHeap(heap, driver->pHelpFile);
        if (named != nullptr) {
            return named;
        }
    }
    constexpr WCHAR kHelpFileName[] = TEXT("\\pscript.hlp");
    DWORD needed = 0;
    if (GetPrinterDriverDirectoryW(nullptr, nullptr, 1, nullptr, 0, &needed) ||
        GetLastError() != ERROR_INSUFFICIENT_BUFFER) {
        return nullptr;
    }
    // One character more than both need, for a spooler that names an odd number of bytes.
    auto* path = static_cast<WCHAR*>(
        HeapAlloc(heap, HEAP_ZERO_MEMORY, SIZE_T{needed} + sizeof(kHelpFileName) + sizeof(WCHAR)));
    if (path == nullptr ||
        !GetPrinterDriverDirectoryW(nullptr, nullptr, 1, reinterpret_cast<LPBYTE>(path), needed,
                                    &needed)) {
        return nullptr;
    }
    // The zeroed room behind the folder ends the search even if the spooler stored no terminator.
    std::copy(std::begin(kHelpFileName), std::end(kHelpFileName), path + lstrlenW(path));
    return path;
}

void RecordUserAndComputer(HANDLE printer) {
    RecordUser(printer);
    RecordComputer(printer);
}

bool SetPrinterDataAsAdministrator(HANDLE printer, const WCHAR* name, DWORD type, const void* data,
                                   DWORD length) {
    const platform::GlobalBlock block = GetPrinterInfo(printer, 2);
    const auto* information = static_cast<const PRINTER_INFO_2W*>(block.get());
    if (information == nullptr) {
        return false;
    }
    const platform::PrinterHandle administrator =
        OpenAsAdministrator(information->pPrinterName, SpoolerText(TEXT("RAW")));
    return administrator &&
           SetPrinterDataW(administrator.get(), SpoolerText(name), type,
                           static_cast<LPBYTE>(const_cast<void*>(data)), length) == ERROR_SUCCESS;
}

}  // namespace ksfax
