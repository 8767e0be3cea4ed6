#pragma once

// Text helpers of the embedded machine for its own parts, tests and ksfax: UTF-8 of the host
// against UTF-16 of the machine, and comparison without regard to letter case.

#include <string>
#include <string_view>

namespace embedded {

// What is no valid UTF-8 or UTF-16 becomes U+FFFD.
std::u16string Utf16(std::string_view utf8);
std::string Utf8(std::u16string_view utf16);

// Upper case, one character to one character; never turns one above 127 into one below.
char16_t FoldCase(char16_t character);
bool EqualIgnoringCase(std::u16string_view left, std::u16string_view right);

// For maps whose keys are names without regard to letter case.
struct LessIgnoringCase {
    using is_transparent = void;
    bool operator()(std::u16string_view left, std::u16string_view right) const;
};

// Between a machine's ANSI code page and UTF-16, without the calls' buffers.
std::u16string FromAnsi(std::string_view ansi);
std::string ToAnsi(std::u16string_view text);

}  // namespace embedded
