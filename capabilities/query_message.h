#pragma once

// The text by which the driver tells the spooler why a queued job cannot be printed.

#include <span>

#include "platform/windows_api.h"

namespace ksfax {

// What one directive of a format inserts. `text` for s, `number` for all others.
struct QueryArgument {
    const WCHAR* text = nullptr;
    DWORD number = 0;
};

// Writes `format` into `buffer` of `capacity` characters, its terminator included. A "%" in the
// format introduces a directive:
//
//     !        the string of that number in `module`, at most 255 characters
//     s        the text; c the character
//     d u x X  the number: signed, unsigned, hexadecimal in small or capital letters
//     other    that character itself
//
// Each of the first eight takes the next of `arguments`; one that is not there, or holds no text
// for an s, inserts nothing. A "%" at the end of the format ends it. What does not fit is cut; the
// text is terminated. A buffer that is null or has no room is not written to.
//
// *needed, when asked for, becomes the length of the whole text and its terminator, in characters.
void FormatQueryMessage(HINSTANCE module, WCHAR* buffer, DWORD capacity, DWORD* needed,
                        const WCHAR* format, std::span<const QueryArgument> arguments);

}  // namespace ksfax
