#include "core/printer_data.h"

#include <algorithm>
#include <cstring>

#include "core/module_state.h"
#include "core/spooler_queries.h"
#include "description/conflicts.h"
#include "description/printer_description.h"

namespace ksfax {

namespace {

struct BlockNames {
    const WCHAR* size;
    const WCHAR* data;
};

// By BlockKind.
constexpr BlockNames kBlockNames[] = {
    {TEXT("TTFontSubTableSize"), TEXT("TTFontSubTable")},
    {TEXT("TrayFormSize"), TEXT("TrayFormTable")},
    {TEXT("PrinterDataSize"), TEXT("PrinterData")},
};

const BlockNames& NamesOf(BlockKind kind) {
    return kBlockNames[static_cast<size_t>(kind)];
}

// No block of ours comes near this; a size value above it is damage, and asking for so much
// memory inside the spooler would hurt everyone else.
constexpr DWORD kMostBlockBytes = 16u << 20;

constexpr uint32_t kLeastMemoryBytes = 102400;
constexpr UINT kUsualCodePage = 1252;

// The language names are string resources of the library's own, from here on in steps.
constexpr UINT kFirstLanguageString = 40060;
constexpr UINT kLanguageStringStep = 1000;
constexpr uint16_t kLanguageCount = 17;

uint32_t DefaultMemoryBytes(const PrinterDescription& description) {
    const FeatureRecord* feature = FeatureOf(description, FeatureKind::VMOption);
    const OptionRecord* option = feature != nullptr ? feature->Options.Target() : nullptr;
    return option != nullptr ? AsMemory(*option).MemoryAmount : 0;
}

uint32_t MemoryBytesFromKilobytes(DWORD kilobytes) {
    const uint64_t bytes = uint64_t{kilobytes} * 1024;
    return static_cast<uint32_t>(std::clamp<uint64_t>(bytes, kLeastMemoryBytes, UINT32_MAX));
}

void RefreshSelections(const PrinterDescription& description, PrinterDataRecord* record) {
    record->descriptionChecksum = description.Checksum;
    const size_t count = ResolveInstallableConflicts(description, record->installableSelections);
    record->installableCount = static_cast<uint16_t>(std::min(count, kInstallableRoom));
}

uint16_t FindLanguage(const char* language) {
    if (language == nullptr) {
        return 0;
    }
    for (uint16_t i = 0; i < kLanguageCount; ++i) {
        char name[256];
        const UINT id = kFirstLanguageString + kLanguageStringStep * i;
        if (LoadStringA(ownModule, id, name, sizeof(name)) > 0 && lstrcmpiA(name, language) == 0) {
            return i;
        }
    }
    return 0;
}

// A record of an older version keeps the bytes that its own size claims; the rest is zero.
void MakeCurrent(PrinterDataRecord* record) {
    const size_t kept = std::min<size_t>(record->size, sizeof(*record));
    std::memset(reinterpret_cast<char*>(record) + kept, 0, sizeof(*record) - kept);
    record->version = kPrinterDataVersion;
    record->size = sizeof(*record);
}

}  // namespace

bool ReadPrinterNumber(HANDLE printer, const WCHAR* name, DWORD* value) {
    DWORD type = 0;
    DWORD stored = 0;
    DWORD length = 0;
    if (GetPrinterDataW(printer, SpoolerText(name), &type, reinterpret_cast<LPBYTE>(&stored),
                        sizeof(stored), &length) != ERROR_SUCCESS ||
        length != sizeof(stored)) {
        return false;
    }
    *value = stored;
    return true;
}

bool WritePrinterNumber(HANDLE printer, const WCHAR* name, DWORD value) {
    return SetPrinterDataW(printer, SpoolerText(name), REG_DWORD, reinterpret_cast<LPBYTE>(&value),
                           sizeof(value)) == ERROR_SUCCESS;
}

platform::GlobalBlock ReadPrinterBlock(HANDLE printer, DWORD* length, BlockKind kind,
                                       DWORD* delivered) {
    if (length != nullptr) {
        *length = 0;
    }
    DWORD size = 0;
    if (!ReadPrinterNumber(printer, NamesOf(kind).size, &size) || size == 0 ||
        size > kMostBlockBytes) {
        return {};
    }
    platform::GlobalBlock block(GlobalAlloc(GMEM_ZEROINIT, size));
    DWORD type = 0;
    DWORD needed = 0;
    if (block &&
        GetPrinterDataW(printer, SpoolerText(NamesOf(kind).data), &type,
                        static_cast<LPBYTE>(block.get()), size, &needed) != ERROR_SUCCESS) {
        return {};
    }
    if (length != nullptr) {
        *length = size;
    }
    if (delivered != nullptr) {
        *delivered = std::min(needed, size);
    }
    return block;
}

bool WritePrinterBlock(HANDLE printer, const void* block, DWORD length, BlockKind kind) {
    auto* bytes = static_cast<LPBYTE>(const_cast<void*>(block));
    DWORD oldLength = 0;
    const bool hadLength = ReadPrinterNumber(printer, NamesOf(kind).size, &oldLength);
    if (!WritePrinterNumber(printer, NamesOf(kind).size, length)) {
        return false;
    }
    if (SetPrinterDataW(printer, SpoolerText(NamesOf(kind).data), REG_BINARY, bytes, length) ==
        ERROR_SUCCESS) {
        return true;
    }
    if (hadLength) {
        (void)WritePrinterNumber(printer, NamesOf(kind).size, oldLength);  // as good as can be
    }
    return false;
}

platform::GlobalBlock BuildDefaultPrinterData(HANDLE printer,
                                              const PrinterDescription& description) {
    platform::GlobalBlock block(GlobalAlloc(GMEM_ZEROINIT, sizeof(PrinterDataRecord)));
    auto* record = static_cast<PrinterDataRecord*>(block.get());
    if (record == nullptr) {
        return {};
    }
    record->version = kPrinterDataVersion;
    record->size = sizeof(*record);
    record->memoryBytes = DefaultMemoryBytes(description);
    record->jobTimeout = description.SuggestedJobTimeout;
    record->waitTimeout = description.SuggestedWaitTimeout;
    RefreshSelections(description, record);
    DWORD kilobytes = 0;
    if (ReadPrinterNumber(printer, TEXT("FreeMem"), &kilobytes)) {
        record->memoryBytes = MemoryBytesFromKilobytes(kilobytes);
    }
    DWORD halftone = 0;
    if (ReadPrinterNumber(printer, TEXT("PrinterHT"), &halftone) && halftone != 0) {
        record->deviceFlags |= kPrinterHalftone;
    }
    if (IsMetricLocale()) {
        record->deviceFlags |= kMetricLocale;
    }
    if (GetACP() != kUsualCodePage) {
        record->deviceFlags |= kOtherCodePage;
    }
    return block;
}

platform::GlobalBlock GetPrinterDataRecord(HANDLE printer, const PrinterDescription& description) {
    DWORD length = 0;
    const platform::GlobalBlock stored =
        ReadPrinterBlock(printer, &length, BlockKind::DeviceRecord);
    if (!stored && length != 0) {
        return {};  // defaults in its place would be saved over it
    }
    if (!stored) {
        return BuildDefaultPrinterData(printer, description);
    }
    platform::GlobalBlock block(GlobalAlloc(GMEM_ZEROINIT, sizeof(PrinterDataRecord)));
    auto* record = static_cast<PrinterDataRecord*>(block.get());
    if (record == nullptr) {
        return {};
    }
    std::memcpy(record, stored.get(), std::min<size_t>(length, sizeof(*record)));
    if (record->descriptionChecksum != description.Checksum) {
        RefreshSelections(description, record);
    }
    return block;
}

bool SavePrinterDataRecord(HANDLE printer, const PrinterDescription& description) {
    const platform::GlobalBlock block = GetPrinterDataRecord(printer, description);
    auto* record = static_cast<PrinterDataRecord*>(block.get());
    if (record == nullptr) {
        return false;
    }
    if (record->version < kPrinterDataVersion) {
        MakeCurrent(record);
    }
    record->languageIndex = FindLanguage(description.DefaultLanguage.Target());
    // A printer whose data cannot be written keeps what it has; readers cope with that.
    (void)WritePrinterBlock(printer, record, sizeof(*record), BlockKind::DeviceRecord);
    return true;
}

const WCHAR* SkipTrayFormStrings(const WCHAR* entry, const WCHAR* end) {
    for (int i = 0; i < 3; ++i) {
        entry = std::find(entry, end, WCHAR{0});
        if (entry == end) {
            return nullptr;
        }
        ++entry;
    }
    return entry;
}

bool IsTrayFormTable(const WCHAR* table, size_t bytes) {
    if (bytes < 2 * sizeof(WCHAR) || static_cast<WORD>(table[0]) != bytes) {
        return false;
    }
    const WCHAR* end = table + bytes / sizeof(WCHAR);
    for (const WCHAR* entry = table + 1; entry != end; ++entry) {
        if (*entry == 0) {
            return true;
        }
        entry = SkipTrayFormStrings(entry, end);
        if (entry == nullptr || entry == end) {
            return false;
        }
        // The loop steps over the entry's value.
    }
    return false;
}

const WCHAR* ReadTrayFormTable(HANDLE printer) {
    DWORD length = 0;
    DWORD delivered = 0;
    platform::GlobalBlock block =
        ReadPrinterBlock(printer, &length, BlockKind::TrayForms, &delivered);
    if (!block || delivered != length ||
        !IsTrayFormTable(static_cast<const WCHAR*>(block.get()), length)) {
        return nullptr;
    }
    return static_cast<const WCHAR*>(block.release()) + 1;
}

void FreeTrayFormTable(const WCHAR* entries) {
    GlobalFree(const_cast<WCHAR*>(entries - 1));
}

const WCHAR* NextTrayFormEntry(const WCHAR* entry, TrayFormEntry* read) {
    if (entry[0] == 0) {
        return entry;
    }
    read->slotName = entry;
    read->formName = read->slotName + lstrlenW(read->slotName) + 1;
    read->printerFormName = read->formName + lstrlenW(read->formName) + 1;
    const WCHAR* value = read->printerFormName + lstrlenW(read->printerFormName) + 1;
    read->value = static_cast<WORD>(*value);
    return value + 1;
}

}  // namespace ksfax
