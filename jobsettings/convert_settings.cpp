#include <algorithm>
#include <cstring>

#include "platform/owned.h"
#include "platform/windows_api.h"

#include "core/module_state.h"
#include "core/spooler_queries.h"
#include "description/load_description.h"
#include "description/printer_description.h"
#include "jobsettings/job_settings.h"

namespace ksfax {
namespace {

struct LoadedDescriptionTraits {
    using Value = PrinterDescription*;
    static Value Invalid() { return nullptr; }
    static void Free(Value value) { GlobalFree(value); }
};
using LoadedDescription = platform::Owned<LoadedDescriptionTraits>;

BYTE* Bytes(DEVMODEW* record) {
    return reinterpret_cast<BYTE*>(record);
}
const BYTE* Bytes(const DEVMODEW* record) {
    return reinterpret_cast<const BYTE*>(record);
}

LONG DeclaredSize(const DEVMODEW* record) {
    return LONG{record->dmSize} + record->dmDriverExtra;
}

// A public member of a caller's record at `offset`, 0 when its public part does not hold it.
template <typename Member>
Member PublicMember(const DEVMODEW* record, size_t offset) {
    Member value = 0;
    if (record->dmSize >= offset + sizeof(value)) {
        std::memcpy(&value, Bytes(record) + offset, sizeof(value));
    }
    return value;
}

// The caller sizes `output` through its own header, so that header is read only when the buffer
// is as long as one.
bool ConvertIntoCallersShape(const DEVMODEW* input, DEVMODEW* output, LONG* bytes) {
    if (output == nullptr || *bytes < static_cast<LONG>(kDevModeHeaderSize) ||
        *bytes < DeclaredSize(output) || ConvertJobSettings(input, output) <= 0) {
        SetLastError(ERROR_INVALID_PARAMETER);
        return false;
    }
    *bytes = DeclaredSize(output);
    return true;
}

// False, with the size in *bytes and the last error set, when the caller has to come again.
bool HasRoom(const DEVMODEW* output, LONG* bytes, LONG needed) {
    if (output != nullptr && *bytes >= needed) {
        return true;
    }
    *bytes = needed;
    SetLastError(ERROR_INSUFFICIENT_BUFFER);
    return false;
}

bool ConvertToEarlierShape(const DEVMODEW* input, DEVMODEW* output, LONG* bytes) {
    constexpr LONG needed = kEarlierPublicSize + kEarlierPrivateSize;
    if (!HasRoom(output, bytes, needed)) {
        return false;
    }
    // Made aside, because the two may be the same record and the sizes of the output would then
    // stand in the input before it is read.
    alignas(DEVMODEW) BYTE bytesAside[needed];
    auto* aside = reinterpret_cast<DEVMODEW*>(bytesAside);
    std::memcpy(bytesAside, output, needed);
    aside->dmSpecVersion = kEarlierSpecVersion;
    aside->dmSize = kEarlierPublicSize;
    aside->dmDriverVersion = kEarlierDriverVersion;
    aside->dmDriverExtra = kEarlierPrivateSize;
    const bool converted = ConvertJobSettings(input, aside) > 0;
    std::memcpy(output, bytesAside, needed);
    if (!converted) {
        SetLastError(ERROR_INVALID_PARAMETER);
        return false;
    }
    *bytes = needed;
    return true;
}

// The spooler asks this while it sets a printer up, before the printer's data file is in use: the
// description is loaded for this call alone and leaves the cache as it is.
bool BuildDriverDefault(LPWSTR printerName, DEVMODEW* output, LONG* bytes) {
    constexpr LONG needed = sizeof(JobSettings);
    if (!HasRoom(output, bytes, needed)) {
        return false;
    }
    *bytes = needed;
    HANDLE opened = nullptr;
    if (!OpenPrinterW(printerName, &opened, nullptr)) {
        return false;
    }
    const platform::PrinterHandle printer(opened);
    const platform::GlobalBlock driverBlock = GetDriverInfo(printer.get(), 2);
    const auto* driver = static_cast<const DRIVER_INFO_2W*>(driverBlock.get());
    if (driver == nullptr || driver->pDataFile == nullptr) {
        return false;
    }
    LoadedDescription description;
    {
        const LockHold hold;
        description.reset(LoadPrinterDescription(driver->pDataFile));
    }
    if (!description) {
        return false;
    }
    BuildDefaultJobSettings(reinterpret_cast<JobSettings*>(output), driver->pName,
                            *description.get(), IsMetricLocale());
    return true;
}

}  // namespace

const DEVMODEW* WholeRecordIn(const platform::GlobalBlock& block, const DEVMODEW* record) {
    if (record == nullptr) {
        return nullptr;
    }
    const SIZE_T size = GlobalSize(block.get());
    const auto offset = static_cast<SIZE_T>(Bytes(record) - static_cast<BYTE*>(block.get()));
    return offset <= size && size - offset >= kDevModeHeaderSize &&
                   size - offset >= static_cast<SIZE_T>(DeclaredSize(record))
               ? record
               : nullptr;
}

bool HasPrivatePart(const DEVMODEW* record) {
    constexpr size_t offset = offsetof(PrivateJobSettings, signature);
    DWORD signature = 0;
    if (record->dmDriverExtra < offset + sizeof(signature)) {
        return false;
    }
    std::memcpy(&signature, Bytes(record) + record->dmSize + offset, sizeof(signature));
    return signature == kPrivateSignature;
}

DWORD FieldsOf(const DEVMODEW* record) {
    return PublicMember<DWORD>(record, offsetof(DEVMODEW, dmFields));
}

short PaperSizeOf(const DEVMODEW* record) {
    return PublicMember<short>(record, offsetof(DEVMODEW, dmPaperSize));
}

WORD SpecVersionForSize(const DEVMODEW* record) {
    if (record == nullptr) {
        return 0;
    }
    switch (record->dmSize) {
    case kEarlierPublicSize:
        return kEarlierSpecVersion;
    case 212:
        return 0x0400;
    case kPublicSize:
        return kSpecVersion;
    default:
        return record->dmSpecVersion;
    }
}

int ConvertJobSettings(const DEVMODEW* source, DEVMODEW* destination) {
    const WORD specVersion = SpecVersionForSize(destination);
    if (specVersion == 0 || SpecVersionForSize(source) == 0) {
        return -1;
    }
    // The header is read once: with a public part shorter than the header, or with both records
    // in one place, the copies below may write over it.
    const WORD sourceSize = source->dmSize;
    const WORD size = destination->dmSize;
    const WORD driverVersion = destination->dmDriverVersion;
    const WORD extra = destination->dmDriverExtra;
    const WORD publicBytes = std::min(size, sourceSize);
    const WORD privateBytes = std::min(extra, source->dmDriverExtra);

    // Moved, not copied: the spooler may convert a record in its own place. The header comes last,
    // so that a public part shorter than it does not get sizes from private bytes.
    std::memmove(destination, source, publicBytes);
    std::memmove(Bytes(destination) + size, Bytes(source) + sourceSize, privateBytes);
    destination->dmSize = size;
    destination->dmDriverExtra = extra;
    destination->dmDriverVersion = driverVersion;
    destination->dmSpecVersion = specVersion;
    return publicBytes + privateBytes;
}

bool CopyJobSettingsOut(const JobSettings& settings, const DEVMODEW* input, DEVMODEW* output) {
    const DEVMODEW& ours = settings.devMode;
    if (input == nullptr) {
        std::memcpy(output, &settings, sizeof(settings));
        return true;
    }
    const DEVMODEW& publicShape = input->dmSize >= ours.dmSize ? ours : *input;
    const DEVMODEW& privateShape = input->dmDriverExtra >= ours.dmDriverExtra ? ours : *input;
    // The input may be the output: nothing is written before all four are read.
    const WORD specVersion = publicShape.dmSpecVersion;
    const WORD size = publicShape.dmSize;
    const WORD driverVersion = privateShape.dmDriverVersion;
    const WORD extra = privateShape.dmDriverExtra;
    output->dmSpecVersion = specVersion;
    output->dmSize = size;
    output->dmDriverVersion = driverVersion;
    output->dmDriverExtra = extra;
    return ConvertJobSettings(&ours, output) > 0;
}

}  // namespace ksfax

extern "C" BOOL WINAPI DrvConvertDevMode(LPWSTR printerName, PDEVMODEW input, PDEVMODEW output,
                                         LONG* bytes, DWORD mode) {
    if (bytes == nullptr) {
        SetLastError(ERROR_INVALID_PARAMETER);
        return FALSE;
    }
    switch (mode) {
    case CDM_CONVERT:
        return ksfax::ConvertIntoCallersShape(input, output, bytes);
    case CDM_CONVERT351:
        return ksfax::ConvertToEarlierShape(input, output, bytes);
    case CDM_DRIVER_DEFAULT:
        return ksfax::BuildDriverDefault(printerName, output, bytes);
    default:
        return FALSE;
    }
}
