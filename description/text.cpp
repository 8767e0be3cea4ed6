// The text helpers of printer_description.h.

#include <algorithm>
#include <cstring>

#include "description/printer_description.h"

namespace ksfax {

namespace {

// The longest prefix of `length` units that converts to at most `room` units, where `measure`
// says what a prefix converts to. The conversions refuse a target that is too small instead of
// filling it, and only they know how long a character is in the code page of the day.
template <typename Measure>
int LongestFittingPrefix(int length, int room, Measure measure) {
    int fits = 0;
    int tooLong = length + 1;
    while (tooLong - fits > 1) {
        const int middle = fits + (tooLong - fits) / 2;
        (measure(middle) <= room ? fits : tooLong) = middle;
    }
    return fits;
}

size_t LengthOf(const WCHAR* text, size_t limit) {
    size_t length = 0;
    while (length < limit && text[length] != 0) {
        ++length;
    }
    return length;
}

constexpr size_t kLongestText = 0x7FFFFFF;

}  // namespace

void AnsiToWide(WCHAR* target, const char* source, size_t count) {
    if (count == 0) {
        return;
    }
    target[0] = 0;
    const int room = static_cast<int>(std::min(count, kLongestText) - 1);
    // A character is at most four bytes in any code page.
    const int length =
        source != nullptr ? static_cast<int>(strnlen(source, static_cast<size_t>(room) * 4)) : 0;
    if (room == 0 || length == 0) {
        return;
    }
    int stored = MultiByteToWideChar(CP_ACP, 0, source, length, target, room);
    if (stored == 0) {
        const int prefix = LongestFittingPrefix(length, room, [&](int bytes) {
            return bytes == 0 ? 0 : MultiByteToWideChar(CP_ACP, 0, source, bytes, nullptr, 0);
        });
        stored = prefix == 0 ? 0 : MultiByteToWideChar(CP_ACP, 0, source, prefix, target, room);
    }
    target[stored] = 0;
}

void AnsiToWide(WCHAR* target, const char* source) {
    AnsiToWide(target, source, source != nullptr ? std::strlen(source) + 1 : 1);
}

void WideToAnsi(char* target, const WCHAR* source, size_t size) {
    if (size == 0) {
        return;
    }
    target[0] = 0;
    const int room = static_cast<int>(std::min(size, kLongestText) - 1);
    const int length =
        source != nullptr ? static_cast<int>(LengthOf(source, static_cast<size_t>(room))) : 0;
    if (length == 0) {
        return;
    }
    const auto convert = [&](int characters, char* to, int bytes) {
        return WideCharToMultiByte(CP_ACP, 0, source, characters, to, bytes, nullptr, nullptr);
    };
    int stored = convert(length, target, room);
    if (stored == 0) {
        const int prefix = LongestFittingPrefix(length, room, [&](int characters) {
            return characters == 0 ? 0 : convert(characters, nullptr, 0);
        });
        stored = prefix == 0 ? 0 : convert(prefix, target, room);
    }
    target[stored] = 0;
}

void WideToAnsi(char* target, const WCHAR* source) {
    WideToAnsi(target, source, source != nullptr ? LengthOf(source, kLongestText / 3) * 3 + 1 : 1);
}

void CopyWideFixed(WCHAR* target, size_t count, const WCHAR* source) {
    if (count == 0) {
        return;
    }
    const size_t length = source != nullptr ? LengthOf(source, count - 1) : 0;
    std::copy_n(source, length, target);
    std::memset(target + length, 0, (count - length) * sizeof(WCHAR));
}

}  // namespace ksfax
