#include "platform/embedded/resources.h"

#include <algorithm>
#include <cstring>
#include <optional>

#include "platform/embedded/api_kernel.h"
#include "platform/embedded/modules.h"
#include "platform/embedded/text.h"
#include "platform/windows_api.h"

namespace embedded {
namespace {

using Bytes = std::span<const std::byte>;

// Each table holds the texts of 16 numbers; table 1 those of 0 to 15.
constexpr UINT kStringsPerTable = 16;

template <typename Number>
Number ReadAt(Bytes bytes, size_t offset) {
    Number number;
    memcpy(&number, bytes.data() + offset, sizeof(number));
    return number;
}

// A type or a name in an entry's header: 0xFFFF and a number, or a text with its terminator.
// Moves *offset behind it. Empty for a text; *offset passes the header's end for a damaged one.
std::optional<WORD> TakeIdentity(Bytes header, size_t* offset) {
    constexpr WORD kNumberFollows = 0xFFFF;
    bool first = true;
    while (*offset + sizeof(WORD) <= header.size()) {
        const WORD unit = ReadAt<WORD>(header, *offset);
        *offset += sizeof(WORD);
        if (first && unit == kNumberFollows && *offset + sizeof(WORD) <= header.size()) {
            *offset += sizeof(WORD);
            return ReadAt<WORD>(header, *offset - sizeof(WORD));
        }
        if (unit == 0) {
            return std::nullopt;
        }
        first = false;
    }
    return std::nullopt;
}

size_t RoundUp(size_t size) {
    return (size + 3) & ~size_t{3};
}

}  // namespace

// A .res file is a run of entries, each at a multiple of 4 bytes:
//     u32 data size, u32 header size, type, name, padding to 4, 16 bytes of flags and versions,
//     data
const Resources::Index& Resources::IndexOf(HINSTANCE module, Bytes file) {
    const auto known = indexes_.find(module);
    if (known != indexes_.end()) {
        return known->second;
    }
    Index& index = indexes_[module];
    constexpr size_t kSizes = 2 * sizeof(DWORD);
    while (file.size() >= kSizes) {
        const size_t dataSize = ReadAt<DWORD>(file, 0);
        const size_t headerSize = ReadAt<DWORD>(file, sizeof(DWORD));
        if (headerSize < kSizes || headerSize + dataSize > file.size()) {
            break;
        }
        const Bytes header = file.first(headerSize);
        size_t offset = kSizes;
        const std::optional<WORD> type = TakeIdentity(header, &offset);
        const std::optional<WORD> number = TakeIdentity(header, &offset);
        if (type && number) {
            index.emplace(DWORD{*type} << 16 | *number, file.subspan(headerSize, dataSize));
        }
        file = file.subspan(std::min(RoundUp(headerSize + dataSize), file.size()));
    }
    return index;
}

Bytes Resources::Find(HINSTANCE module, WORD type, WORD number) {
    const Bytes file = machine_.modules().Resources(module);
    if (file.empty()) {
        return {};
    }
    std::lock_guard lock(mutex_);
    const Index& index = IndexOf(module, file);
    const auto found = index.find(DWORD{type} << 16 | number);
    return found != index.end() ? found->second : Bytes();
}

Bytes Resources::FindString(HINSTANCE module, UINT number) {
    Bytes table =
        Find(module, kStringResource, static_cast<WORD>(LOWORD(number) / kStringsPerTable + 1));
    // Each text is its length in characters and that many characters.
    for (UINT skip = number % kStringsPerTable; table.size() >= sizeof(WORD); --skip) {
        const size_t bytes = ReadAt<WORD>(table, 0) * sizeof(WCHAR);
        table = table.subspan(sizeof(WORD));
        if (bytes > table.size()) {
            break;
        }
        if (skip == 0) {
            return table.first(bytes);
        }
        table = table.subspan(bytes);
    }
    return {};
}

}  // namespace embedded

using namespace embedded;

namespace {

// A text of the string tables; nothing when it cannot be given, with the last error.
std::optional<std::u16string> TextOf(HINSTANCE instance, UINT id) {
    const Bytes found = Machine::Current().resources().FindString(instance, id);
    if (found.data() == nullptr) {
        SetLastError(ERROR_RESOURCE_NAME_NOT_FOUND);
        return std::nullopt;
    }
    std::u16string text(found.size() / sizeof(WCHAR), 0);
    memcpy(text.data(), found.data(), found.size());
    return text;
}

}  // namespace

int LoadStringW(HINSTANCE instance, UINT id, LPWSTR target, int characters) {
    const auto text =
        Fails("LoadStringW", ERROR_INVALID_PARAMETER) ? std::nullopt : TextOf(instance, id);
    if (!text) {
        return 0;
    }
    const size_t length = text->copy(target, static_cast<size_t>(characters) - 1);
    target[length] = 0;
    return static_cast<int>(length);
}

int LoadStringA(HINSTANCE instance, UINT id, LPSTR target, int characters) {
    const auto text =
        Fails("LoadStringA", ERROR_INVALID_PARAMETER) ? std::nullopt : TextOf(instance, id);
    if (!text) {
        return 0;
    }
    ULONG length = 0;
    RtlUnicodeToMultiByteN(target, static_cast<ULONG>(characters) - 1, &length, text->data(),
                           static_cast<ULONG>(text->size() * sizeof(WCHAR)));
    target[length] = 0;
    return static_cast<int>(length);
}
