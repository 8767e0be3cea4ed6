#pragma once

// What the driver keeps for each printer in the spooler's printer data: blocks of bytes, each
// stored as a size value and a data value, and in one of them the device record.
//
// Stored data is old, foreign or damaged as often as not. Every reader here measures before it
// reads and falls back to what the description says.

#include <cstddef>
#include <cstdint>
#include <type_traits>

#include "platform/owned.h"
#include "platform/windows_api.h"

namespace ksfax {

struct PrinterDescription;

// ---- Stored blocks ----

enum class BlockKind {
    FontSubstitution = 0,  // "TTFontSubTableSize", "TTFontSubTable"; this module does not use it
    TrayForms = 1,         // "TrayFormSize", "TrayFormTable"
    DeviceRecord = 2,      // "PrinterDataSize", "PrinterData"
};

// Reads the stored block of `kind`: global memory that the caller owns, with exactly the stored
// size in bytes, in *length too unless length is null; a shorter data value is filled up with
// zero. Empty, with *length 0, when the size value is missing, not 4 bytes, 0 or above 16 MiB, or
// when the data value is missing or longer than the size value says. Empty, with the stored size
// in *length, when memory runs out: what is stored is good then and nobody's to replace.
// `delivered`, where asked for, is how many of the bytes the data value really has.
[[nodiscard]] platform::GlobalBlock ReadPrinterBlock(HANDLE printer, DWORD* length, BlockKind kind,
                                                     DWORD* delivered = nullptr);

// Stores `length` bytes as the block of `kind`: the size value first, and the data value only
// after that succeeded. When the data is refused, the size goes back to what it was, so that the
// block stored before stays readable. True when both were written.
bool WritePrinterBlock(HANDLE printer, const void* block, DWORD length, BlockKind kind);

// One 4-byte printer data value, such as "Forms?". False, and *value untouched, when it is missing
// or of another length.
[[nodiscard]] bool ReadPrinterNumber(HANDLE printer, const WCHAR* name, DWORD* value);

// Stores `value` as a REG_DWORD. False when the spooler refuses.
bool WritePrinterNumber(HANDLE printer, const WCHAR* name, DWORD value);

// ---- The device record ----

constexpr uint16_t kPrinterDataVersion = 260;
constexpr size_t kInstallableRoom = 64;

enum DeviceFlag : uint32_t {
    kMetricLocale = 0x1,     // the user's country uses A4 and millimetres
    kPrinterHalftone = 0x2,  // the value "PrinterHT" is set and not 0
    kOtherCodePage = 0x4,    // the ANSI code page is not 1252
};

// The per-printer device record, kept as the printer data value "PrinterData".
// 108 bytes, little-endian, no padding; printer_data_fields.def lists its fields. Older drivers
// stored fewer bytes: a reader takes the bytes there are, at most 108, and the rest are zero.
struct PrinterDataRecord {
#define KSFAX_DEVICE_FIELD(type, field, offset, unit, meaning) std::type_identity_t<type> field;
#include "core/printer_data_fields.def"
};
static_assert(std::is_trivially_copyable_v<PrinterDataRecord>);
static_assert(std::is_standard_layout_v<PrinterDataRecord>);
static_assert(sizeof(PrinterDataRecord) == 108);
#define KSFAX_DEVICE_FIELD(type, field, offset, unit, meaning)                                     \
    static_assert(offsetof(PrinterDataRecord, field) == (offset));
#include "core/printer_data_fields.def"

// What the description, the administrator's values "FreeMem" (kilobytes, at least 100) and
// "PrinterHT", the locale and the code page say, in new global memory; empty when that runs out.
[[nodiscard]] platform::GlobalBlock BuildDefaultPrinterData(HANDLE printer,
                                                            const PrinterDescription& description);

// The stored record, or the default one when none is stored, in 108 bytes of global memory. When
// the stored selections were made for another description file they are made anew here, but not
// stored. A damaged record may hold any `installableCount`: readers go by the description's own
// count, at most 64. A record that the spooler does not give counts as not stored. Empty when
// memory runs out.
[[nodiscard]] platform::GlobalBlock GetPrinterDataRecord(HANDLE printer,
                                                         const PrinterDescription& description);

// Stores the record in the current version. True when a record could be made; whether the spooler
// took it does not count.
bool SavePrinterDataRecord(HANDLE printer, const PrinterDescription& description);

// ---- The tray-form table ----
//
//     u16 length of the whole block in bytes, this field included
//     entry...  three zero-terminated UTF-16 strings, u16 value
//     u16 0
//
// An empty first string ends the table.

struct TrayFormEntry {
    const WCHAR* slotName;
    const WCHAR* formName;
    const WCHAR* printerFormName;
    WORD value;
};

// The stored table in the layout above, checked from end to end: a pointer to its first entry,
// just behind the length, that FreeTrayFormTable takes back. Null when there is none, when it is
// in the older layout (its first field is not its length) or when it is malformed anywhere; data
// shorter than its size value is malformed too, since an entry may be torn.
[[nodiscard]] const WCHAR* ReadTrayFormTable(HANDLE printer);
void FreeTrayFormTable(const WCHAR* entries);

struct TrayFormTableTraits {
    using Value = const WCHAR*;
    static Value Invalid() { return nullptr; }
    static void Free(Value value) { FreeTrayFormTable(value); }
};
// `TrayFormTable table(ReadTrayFormTable(printer));`
using TrayFormTable = platform::Owned<TrayFormTableTraits>;

// The check that ReadTrayFormTable makes of the `bytes` bytes at `table`: the first field is that
// length, and the entries end in a terminator inside it. Bytes behind the terminator do no harm.
[[nodiscard]] bool IsTrayFormTable(const WCHAR* table, size_t bytes);

// Steps over the three strings of the entry at `entry`. Null when one does not end before `end`.
[[nodiscard]] const WCHAR* SkipTrayFormStrings(const WCHAR* entry, const WCHAR* end);

// Reads the entry at `entry` and returns the one behind it. At the terminator it returns `entry`
// itself and leaves *read untouched. Only for entries of a table that ReadTrayFormTable gave.
const WCHAR* NextTrayFormEntry(const WCHAR* entry, TrayFormEntry* read);

}  // namespace ksfax
