// The text helpers of printer_description.h.

#include <algorithm>
#include <cstring>

#include "description/printer_description.h"

namespace ksfax {

namespace {

size_t LengthOf(const WCHAR* text, size_t limit) {
    size_t length = 0;
    while (length < limit && text[length] != 0) {
        ++length;
    }
    return length;
}

constexpr size_t kLongestText = 0x7FFFFFF;

}  // namespace

// Both native conversions fill what there is room for with whole characters and tell its bytes.

void AnsiToWide(WCHAR* target, const char* source, size_t count) {
    if (count == 0) {
        return;
    }
    const size_t room = std::min(count, kLongestText) - 1;
    // A character is at most four bytes in any code page.
    const size_t length = source != nullptr ? strnlen(source, room * 4) : 0;
    ULONG stored = 0;
    if (length != 0) {
        (void)RtlMultiByteToUnicodeN(target, static_cast<ULONG>(room * sizeof(WCHAR)), &stored,
                                     source, static_cast<ULONG>(length));
    }
    target[stored / sizeof(WCHAR)] = 0;
}

void AnsiToWide(WCHAR* target, const char* source) {
    AnsiToWide(target, source, source != nullptr ? std::strlen(source) + 1 : 1);
}

void WideToAnsi(char* target, const WCHAR* source, size_t size) {
    if (size == 0) {
        return;
    }
    const size_t room = std::min(size, kLongestText) - 1;
    const size_t length = source != nullptr ? LengthOf(source, room) : 0;
    ULONG stored = 0;
    if (length != 0) {
        (void)RtlUnicodeToMultiByteN(target, static_cast<ULONG>(room), &stored, source,
                                     static_cast<ULONG>(length * sizeof(WCHAR)));
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
