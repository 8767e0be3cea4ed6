#pragma once

// Text of PPD files and of Windows records: numbers, code pages, fields of fixed length.

#include <cstddef>
#include <cstdint>
#include <string_view>

#include "platform/windows_api.h"

namespace ksfax {

// What separates the words of a PPD statement.
inline bool IsBlank(char c) {
    return c == ' ' || c == '\t';
}

// The decimal number that text begins with, as the C library's atol reads it: white space of any
// kind skipped, line ends too, an optional sign, then digits up to the first other character. No
// digit gives 0; digits wrap in 32 bits. Null gives 0.
uint32_t LeadingNumber(std::string_view text);
uint32_t LeadingNumber(const char* text);

// Number `field`, counted from 0, of a list of numbers split at every comma and blank, in 16 bits;
// the last one when there are fewer. 1 when the text is null, empty, longer than 29 characters or
// a single number.
uint16_t GetNumberField(const char* text, unsigned field);

// Converts from the system's ANSI code page. With `count`, stores at most that many characters,
// the last of them a terminator; nothing when count is 0. Without it, the whole string: `target`
// has room for strlen(source) + 1. A null source is an empty string.
void AnsiToWide(WCHAR* target, const char* source, size_t count);
void AnsiToWide(WCHAR* target, const char* source);

// Converts to the system's ANSI code page. With `size`, stores at most that many bytes, the last
// of them a terminator, and never half a character; nothing when size is 0. Without it, the
// whole string: `target` has room for three bytes a character and the terminator.
void WideToAnsi(char* target, const WCHAR* source, size_t size);
void WideToAnsi(char* target, const WCHAR* source);

// Fills a field of `count` characters: at most count - 1 of `source`, the rest zero.
void CopyWideFixed(WCHAR* target, size_t count, const WCHAR* source);
template <size_t Count>
void CopyWideFixed(WCHAR (&target)[Count], const WCHAR* source) {
    CopyWideFixed(target, Count, source);
}

}  // namespace ksfax
