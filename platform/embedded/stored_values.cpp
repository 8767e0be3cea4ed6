#include "platform/embedded/stored_values.h"

#include <algorithm>
#include <cstring>
#include <nlohmann/json.hpp>
#include <stdexcept>

#include "platform/embedded/api_kernel.h"
#include "platform/embedded/api_spooler.h"

namespace embedded {
namespace {

constexpr std::string_view kDigits = "0123456789abcdef";

unsigned HexDigit(char digit) {
    const size_t value = kDigits.find(digit);
    if (value == kDigits.npos) {
        throw std::runtime_error(std::string("'") + digit + "' is no lower-case hexadecimal digit");
    }
    return static_cast<unsigned>(value);
}

}  // namespace

StoredValue StoredText(std::u16string_view text) {
    StoredValue value{REG_SZ, std::vector<std::byte>((text.size() + 1) * sizeof(char16_t))};
    memcpy(value.data.data(), text.data(), text.size() * sizeof(char16_t));
    return value;
}

StoredValue StoredNumber(DWORD number) {
    StoredValue value{REG_DWORD, std::vector<std::byte>(sizeof(number))};
    memcpy(value.data.data(), &number, sizeof(number));
    return value;
}

StoredValue ToAnsi(const StoredValue& value) {
    if (value.type != REG_SZ && value.type != REG_EXPAND_SZ) {
        return value;
    }
    std::u16string text(value.data.size() / sizeof(char16_t), 0);
    std::copy_n(value.data.data(), text.size() * sizeof(char16_t),
                reinterpret_cast<std::byte*>(text.data()));
    const std::string ansi = ToAnsi(text);
    const auto* first = reinterpret_cast<const std::byte*>(ansi.data());
    return {value.type, {first, first + ansi.size()}};
}

DWORD CopyOut(const StoredValue& value, BYTE* data, DWORD room, DWORD* needed) {
    *needed = static_cast<DWORD>(value.data.size());
    if (room < value.data.size()) {
        return ERROR_MORE_DATA;
    }
    std::ranges::copy(value.data, reinterpret_cast<std::byte*>(data));
    return ERROR_SUCCESS;
}

nlohmann::json SavedBytes(const std::vector<std::byte>& bytes) {
    std::string text;
    for (std::byte byte : bytes) {
        text += kDigits[std::to_integer<unsigned>(byte) >> 4];
        text += kDigits[std::to_integer<unsigned>(byte) & 0xF];
    }
    return text;
}

std::vector<std::byte> LoadBytes(const nlohmann::json& saved) {
    const auto& text = saved.get_ref<const std::string&>();
    if (text.size() % 2 != 0) {
        throw std::runtime_error("an odd number of hexadecimal digits");
    }
    std::vector<std::byte> bytes(text.size() / 2);
    for (size_t i = 0; i < bytes.size(); ++i) {
        bytes[i] = static_cast<std::byte>(HexDigit(text[2 * i]) << 4 | HexDigit(text[2 * i + 1]));
    }
    return bytes;
}

nlohmann::json SavedValues(const StoredValues& values) {
    auto saved = nlohmann::json::object();
    for (const auto& [name, value] : values) {
        saved[Utf8(name)] = {{"type", value.type}, {"data", SavedBytes(value.data)}};
    }
    return saved;
}

StoredValues LoadValues(const nlohmann::json& saved) {
    StoredValues values;
    for (const auto& [name, value] : saved.get_ref<const nlohmann::json::object_t&>()) {
        values[Utf16(name)] = {value.at("type").get<DWORD>(), LoadBytes(value.at("data"))};
    }
    return values;
}

std::u16string LoadText(const nlohmann::json& object, const char* key) {
    return Utf16(object.at(key).get_ref<const std::string&>());
}

}  // namespace embedded
