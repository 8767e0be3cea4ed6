#pragma once

// Job settings records as tests write them down: bytes at offsets.

#include <cstdio>
#include <cstring>
#include <string>
#include <vector>

#include "jobsettings/job_settings.h"

namespace ksfax {

// A little-endian field of 1, 2 or 4 bytes at `offset` from the start of the record.
struct Field {
    size_t offset;
    unsigned width;
    uint32_t value;
};

constexpr Field U8(size_t offset, uint32_t value) {
    return {offset, 1, value};
}
constexpr Field U16(size_t offset, uint32_t value) {
    return {offset, 2, value};
}
constexpr Field U32(size_t offset, uint32_t value) {
    return {offset, 4, value};
}
// The same in the private part, whose offsets count from 220.
constexpr Field P8(size_t offset, uint32_t value) {
    return {220 + offset, 1, value};
}
constexpr Field P16(size_t offset, uint32_t value) {
    return {220 + offset, 2, value};
}
constexpr Field P32(size_t offset, uint32_t value) {
    return {220 + offset, 4, value};
}

using RecordBytes = std::vector<uint8_t>;

inline void Put(RecordBytes* record, const Field& field) {
    for (unsigned i = 0; i < field.width; ++i) {
        (*record)[field.offset + i] = static_cast<uint8_t>(field.value >> (8 * i));
    }
}
inline void Put(RecordBytes* record, const std::vector<Field>& fields) {
    for (const Field& field : fields) {
        Put(record, field);
    }
}
inline void PutText(RecordBytes* record, size_t offset, std::u16string_view text) {
    for (const char16_t character : text) {
        Put(record, U16(offset, character));
        offset += 2;
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

// Empty when equal; else every differing byte as "offset: actual, expected", private ones as
// "private offset".
inline std::string Differences(const RecordBytes& actual, const RecordBytes& expected) {
    std::string text;
    if (actual.size() != expected.size()) {
        text = "sizes differ\n";
    }
    for (size_t i = 0; i < std::min(actual.size(), expected.size()); ++i) {
        if (actual[i] != expected[i]) {
            char line[80];
            std::snprintf(line, sizeof(line), "%s%zu: %02X, expected %02X\n",
                          i < 220 ? "" : "private ", i < 220 ? i : i - 220, actual[i], expected[i]);
            text += line;
        }
    }
    return text;
}

}  // namespace ksfax
