#pragma once

#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

#include "platform/windows_api.h"

namespace embedded {

// Writes .res files entry by entry.
class ResourceFile {
  public:
    ResourceFile() { Add({0xFFFF, 0, 0xFFFF, 0}, ""); }  // every file begins with an empty entry

    // `identity`: type and name, each 0xFFFF and a number or a text with its terminator.
    void Add(std::vector<uint16_t> identity, std::string_view data) {
        identity.resize((identity.size() + 1) / 2 * 2);
        Put(static_cast<uint32_t>(data.size()));
        Put(static_cast<uint32_t>(8 + identity.size() * 2 + 16));
        for (uint16_t unit : identity) {
            Put(unit);
        }
        bytes.insert(bytes.end(), 16, std::byte{0});
        const auto* first = reinterpret_cast<const std::byte*>(data.data());
        bytes.insert(bytes.end(), first, first + data.size());
        bytes.resize((bytes.size() + 3) / 4 * 4);
    }

    // One text of the string tables, alone in its table.
    void AddString(UINT number, std::u16string_view text) {
        std::u16string table(number % 16, 0);
        table += static_cast<char16_t>(text.size());
        table += text;
        table.resize(table.size() + 15 - number % 16);
        Add({0xFFFF, 6, 0xFFFF, static_cast<uint16_t>(number / 16 + 1)},
            {reinterpret_cast<const char*>(table.data()), table.size() * sizeof(char16_t)});
    }

    std::vector<std::byte> bytes;

  private:
    template <typename Number>
    void Put(Number number) {
        const auto* first = reinterpret_cast<const std::byte*>(&number);
        bytes.insert(bytes.end(), first, first + sizeof(number));
    }
};

}  // namespace embedded
