#pragma once

// The fields of the two records that the driver stores and hands out, for showing and describing
// them: the rows of job_settings_fields.def and printer_data_fields.def in one table.

#include <cstddef>
#include <string_view>
#include <type_traits>

#include "core/printer_data.h"
#include "jobsettings/job_settings.h"

namespace tool {

enum class RecordPart { Public, Private, Device };  // of job settings; the device record

struct RecordField {
    RecordPart part;
    std::string_view name;
    size_t offset;  // in its part
    size_t width;
    std::string_view unit;  // as job_settings_fields.def says
    std::string_view meaning;
    bool isNumber;  // else text, or bytes
    bool isSigned;
    bool isWide;  // text of WCHAR
};

template <typename Value>
constexpr RecordField FieldOf(RecordPart part, std::string_view name, size_t offset,
                              std::string_view unit, std::string_view meaning) {
    return {.part = part,
            .name = name,
            .offset = offset,
            .width = sizeof(Value),
            .unit = unit,
            .meaning = meaning,
            .isNumber = std::is_arithmetic_v<Value> && unit != "reserved",
            .isSigned = std::is_signed_v<Value>,
            .isWide = std::is_same_v<std::remove_extent_t<Value>, WCHAR>};
}

namespace record_fields {
using namespace ksfax;  // the rows' types are spelled as the driver spells them
inline constexpr RecordField kAll[] = {
#define KSFAX_PUBLIC_FIELD(type, field, offset, unit, meaning)                                     \
    FieldOf<type>(RecordPart::Public, #field, offset, unit, meaning),
#define KSFAX_PRIVATE_FIELD(type, field, offset, unit, meaning)                                    \
    FieldOf<type>(RecordPart::Private, #field, offset, unit, meaning),
#include "jobsettings/job_settings_fields.def"
#define KSFAX_DEVICE_FIELD(type, field, offset, unit, meaning)                                     \
    FieldOf<type>(RecordPart::Device, #field, offset, unit, meaning),
#include "core/printer_data_fields.def"
};

// A byte that belongs to no field could differ unseen.
constexpr bool Cover(RecordPart part, size_t bytes) {
    size_t end = 0;
    for (const RecordField& field : kAll) {
        if (field.part == part) {
            if (field.offset != end) {
                return false;
            }
            end += field.width;
        }
    }
    return end == bytes;
}
static_assert(Cover(RecordPart::Public, kPublicSize));
static_assert(Cover(RecordPart::Private, kPrivateSize));
static_assert(Cover(RecordPart::Device, sizeof(PrinterDataRecord)));
}  // namespace record_fields

// The parts in the order of their enumerators, the fields of each in the order of their offsets.
inline constexpr const auto& kRecordFields = record_fields::kAll;

}  // namespace tool
