#include "description/text.h"

#include <algorithm>
#include <cstring>

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
constexpr size_t kLongestNumberList = 29;

bool IsWhiteSpace(char c) {
    return c == ' ' || (c >= '\t' && c <= '\r');
}

// Whether a number list has a separator at all, and its field number `field` or last.
struct NumberField {
    bool isList;
    const char* text;
};
NumberField FindNumberField(const char* text, unsigned field) {
    NumberField found = {.isList = false, .text = text};
    for (const char* c = text; *c != 0; ++c) {
        if (*c != ',' && !IsBlank(*c)) {
            continue;
        }
        found.isList = true;
        if (field != 0) {
            --field;
            found.text = c + 1;
        }
    }
    return found;
}

}  // namespace

uint32_t LeadingNumber(std::string_view text) {
    size_t place = 0;
    while (place < text.size() && IsWhiteSpace(text[place])) {
        ++place;
    }
    const bool negative = place < text.size() && text[place] == '-';
    if (negative || (place < text.size() && text[place] == '+')) {
        ++place;
    }
    uint32_t number = 0;
    for (; place < text.size() && text[place] >= '0' && text[place] <= '9'; ++place) {
        number = number * 10 + static_cast<uint32_t>(text[place] - '0');
    }
    return negative ? 0 - number : number;
}

uint32_t LeadingNumber(const char* text) {
    return text != nullptr ? LeadingNumber(std::string_view(text)) : 0;
}

uint16_t GetNumberField(const char* text, unsigned field) {
    if (text == nullptr || strnlen(text, kLongestNumberList + 1) > kLongestNumberList) {
        return 1;
    }
    const NumberField found = FindNumberField(text, field);
    if (!found.isList) {
        return 1;
    }
    // Two separators in a row leave an empty field, which must not borrow the next one's number.
    return IsBlank(*found.text) ? 0 : static_cast<uint16_t>(LeadingNumber(found.text));
}

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
