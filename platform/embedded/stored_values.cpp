#include "platform/embedded/stored_values.h"

#include <cstring>
#include <nlohmann/json.hpp>
#include <stdexcept>

#include "platform/embedded/api_spooler.h"

namespace embedded {
namespace {

bool IsText(DWORD type) {
    return type == REG_SZ || type == REG_EXPAND_SZ || type == REG_MULTI_SZ;
}

template <typename Char>
std::vector<std::byte> BytesOf(std::basic_string_view<Char> text) {
    std::vector<std::byte> bytes(text.size() * sizeof(Char));
    if (!bytes.empty()) {
        memcpy(bytes.data(), text.data(), bytes.size());
    }
    return bytes;
}

template <typename Char>
std::basic_string<Char> TextOf(const std::vector<std::byte>& bytes) {
    std::basic_string<Char> text(bytes.size() / sizeof(Char), 0);
    if (!text.empty()) {
        memcpy(text.data(), bytes.data(), text.size() * sizeof(Char));
    }
    return text;
}

unsigned HexDigit(char digit) {
    if (digit >= '0' && digit <= '9') {
        return digit - '0';
    }
    if (digit >= 'a' && digit <= 'f') {
        return digit - 'a' + 10;
    }
    throw std::runtime_error(std::string("'") + digit + "' is no lower-case hexadecimal digit");
}

}  // namespace

StoredValue StoredText(std::u16string_view text) {
    return {REG_SZ, BytesOf<char16_t>(std::u16string(text) + u'\0')};
}

StoredValue StoredNumber(DWORD number) {
    StoredValue value{REG_DWORD, std::vector<std::byte>(sizeof(number))};
    memcpy(value.data.data(), &number, sizeof(number));
    return value;
}

StoredValue ToAnsi(const StoredValue& value) {
    if (!IsText(value.type)) {
        return value;
    }
    return {value.type, BytesOf<char>(ToAnsi(TextOf<char16_t>(value.data)))};
}

StoredValue FromAnsi(const StoredValue& value) {
    if (!IsText(value.type)) {
        return value;
    }
    return {value.type, BytesOf<char16_t>(FromAnsi(TextOf<char>(value.data)))};
}

nlohmann::json SavedBytes(const std::vector<std::byte>& bytes) {
    static constexpr char kDigits[] = "0123456789abcdef";
    std::string text;
    text.reserve(bytes.size() * 2);
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
