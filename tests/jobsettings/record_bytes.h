#pragma once

// Job settings records as tests write them down: bytes at offsets, or the fields of
// job_settings_fields.def by name, as in "dmPaperSize=5 dmFormName=A5 featureSelections+1=0x9".

#include <algorithm>
#include <cstring>
#include <sstream>
#include <stdexcept>
#include <string>
#include <vector>

#include "jobsettings/job_settings.h"
#include "tool/record_fields.h"

namespace ksfax {

using RecordBytes = std::vector<uint8_t>;

// A little-endian field of 1, 2 or 4 bytes at `offset` from the start of the record.
struct Field {
    size_t offset;
    unsigned width;
    uint32_t value;
};

constexpr auto Fields(size_t start, unsigned width) {
    return [=](size_t offset, uint32_t value) { return Field{start + offset, width, value}; };
}
constexpr auto U8 = Fields(0, 1), U16 = Fields(0, 2), U32 = Fields(0, 4);
// The same in the private part, whose offsets count from 220.
constexpr auto P8 = Fields(220, 1), P16 = Fields(220, 2), P32 = Fields(220, 4);

inline void Put(RecordBytes* record, const Field& field) {
    for (unsigned i = 0; i < field.width; ++i) {
        record->at(field.offset + i) = static_cast<uint8_t>(field.value >> (8 * i));
    }
}
inline void Put(RecordBytes* record, const std::vector<Field>& fields) {
    for (const Field& field : fields) {
        Put(record, field);
    }
}

inline RecordBytes BytesOf(const void* record, size_t size) {
    const auto* bytes = static_cast<const uint8_t*>(record);
    return RecordBytes(bytes, bytes + size);
}
inline RecordBytes BytesOf(const JobSettings& settings) {
    return BytesOf(&settings, sizeof(settings));
}
inline JobSettings SettingsOf(const RecordBytes& bytes) {
    JobSettings settings;
    std::memcpy(static_cast<void*>(&settings), bytes.data(), sizeof(settings));
    return settings;
}

// A caller's record of that shape, zero but for its sizes and versions.
inline RecordBytes CallersRecord(WORD size, WORD extra, WORD spec = 0x0401,
                                 WORD driverVersion = 260) {
    RecordBytes record(std::max<size_t>(size_t{size} + extra, 72));
    Put(&record, {U16(64, spec), U16(66, driverVersion), U16(68, size), U16(70, extra)});
    return record;
}
inline DEVMODEW* AsDevMode(RecordBytes& record) {
    return reinterpret_cast<DEVMODEW*>(record.data());
}

// Where the field begins in a record of any shape.
inline size_t PlaceOf(const tool::RecordField& field, const RecordBytes& record) {
    return field.offset +
           (field.part == tool::RecordPart::Private ? record[68] + record[69] * 256u : 0);
}
// The fields of job settings, or of a device record by its 108 bytes.
inline std::vector<tool::RecordField> FieldsOf(const RecordBytes& record) {
    std::vector<tool::RecordField> fields;
    std::ranges::copy_if(tool::kRecordFields, std::back_inserter(fields), [&](const auto& field) {
        return (field.part == tool::RecordPart::Device) == (record.size() == 108);
    });
    return fields;
}

// Writes fields by name: a number, the characters of a text, or with "+n" the byte n of any field.
inline void Set(RecordBytes* record, const std::string& text) {
    const std::vector<tool::RecordField> fields = FieldsOf(*record);
    std::istringstream words(text);
    for (std::string name, value; std::getline(words >> std::ws, name, '=') && words >> value;) {
        const size_t plus = name.find('+');
        const auto field =
            std::ranges::find(fields, name.substr(0, plus), &tool::RecordField::name);
        if (field == fields.end()) {
            throw std::runtime_error("no field " + name);
        }
        const size_t place = PlaceOf(*field, *record);
        const auto number = static_cast<uint32_t>(std::strtoll(value.c_str(), nullptr, 0));
        if (plus != name.npos) {
            Put(record, U8(place + std::stoul(name.substr(plus + 1)), number));
        } else if (field->unit == "text") {
            for (size_t i = 0; i < value.size(); ++i) {
                Put(record, U16(place + 2 * i, static_cast<uint8_t>(value[i])));
            }
        } else {
            Put(record, Field{place, static_cast<unsigned>(field->width), number});
        }
    }
}

// The value of a field as Set takes it; bytes of a text behind its end follow a "~".
inline std::string ValueOf(const tool::RecordField& field, const RecordBytes& record) {
    const uint8_t* bytes = &record[PlaceOf(field, record)];
    std::string text;
    if (field.unit == "text") {
        for (size_t i = 0; i < field.width; i += field.isWide ? 2 : 1) {
            text += static_cast<char>(bytes[i]);
        }
        text.erase(text.find_last_not_of('\0') + 1);
        std::ranges::replace(text, '\0', '~');
        return text;
    }
    uint32_t number = 0;
    std::memcpy(&number, bytes, field.width);
    const unsigned unused = 32 - 8 * static_cast<unsigned>(field.width);
    const int32_t extended = static_cast<int32_t>(number << unused) >> unused;
    const bool isHex = field.unit == "bits" || field.unit == "code" || field.unit == "RGB";
    std::ostringstream digits;
    (isHex && number > 9 ? digits << "0x" << std::hex << std::uppercase : digits)
        << (field.isSigned ? int64_t{extended} : int64_t{number});
    return digits.str();
}

// The fields in which `to` differs from `from`, both whole records, as Set takes them;
// "nothing" for none.
inline std::string Changes(const RecordBytes& from, const RecordBytes& to) {
    std::string changes;
    for (const tool::RecordField& field : FieldsOf(from)) {
        const std::string name(field.name);
        const size_t place = PlaceOf(field, from);
        const bool isWhole = field.isNumber || field.unit == "text";
        for (size_t i = 0; i < field.width; ++i) {
            if (from.at(place + i) != to.at(place + i)) {
                changes += changes.empty() ? "" : " ";
                changes +=
                    isWhole ? name + "=" + ValueOf(field, to)
                            : name + "+" + std::to_string(i) + "=" + std::to_string(to[place + i]);
                i += isWhole ? field.width : 0;
            }
        }
    }
    return changes.empty() ? "nothing" : changes;
}

}  // namespace ksfax
