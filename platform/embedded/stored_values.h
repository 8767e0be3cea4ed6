#pragma once

// Typed values as printer data and the registry keep them, and their form in JSON.

#include <cstddef>
#include <map>
#include <nlohmann/json_fwd.hpp>
#include <string>
#include <vector>

#include "platform/embedded/api_types.h"
#include "platform/embedded/text.h"

namespace embedded {

struct StoredValue {
    DWORD type = 0;  // REG_SZ, REG_BINARY, REG_DWORD ...
    std::vector<std::byte> data;

    bool operator==(const StoredValue&) const = default;
};
// By value name, without regard to letter case.
using StoredValues = std::map<std::u16string, StoredValue, LessIgnoringCase>;

// Text as it is stored with REG_SZ, its terminator included, and a number as REG_DWORD.
StoredValue StoredText(std::u16string_view text);
StoredValue StoredNumber(DWORD number);

// What an A function gives for the value: texts in the ANSI code page, other types byte for byte.
StoredValue ToAnsi(const StoredValue& value);
// The end of a call that asks for a value: its size in *needed, ERROR_MORE_DATA when `room` is
// less.
DWORD CopyOut(const StoredValue& value, BYTE* data, DWORD room, DWORD* needed);

// Bytes are hexadecimal text, values an object by name. Loading throws std::runtime_error or a
// nlohmann::json exception for what is not of that form.
nlohmann::json SavedBytes(const std::vector<std::byte>& bytes);
std::vector<std::byte> LoadBytes(const nlohmann::json& saved);
nlohmann::json SavedValues(const StoredValues& values);
StoredValues LoadValues(const nlohmann::json& saved);
std::u16string LoadText(const nlohmann::json& object, const char* key);

}  // namespace embedded
