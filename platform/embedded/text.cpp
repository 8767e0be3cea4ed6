#include "platform/embedded/text.h"

#include <algorithm>
#include <array>
#include <cstdarg>
#include <cstring>
#include <cwctype>
#include <iconv.h>
#include <iostream>
#include <limits>

#include "platform/embedded/machine.h"
#include "platform/windows_api.h"

namespace embedded {
namespace {

// ---- Code pages ----

// One ANSI code page in both directions.
struct CodePage {
    UINT number = 0;
    std::array<char16_t, 256> single = {};
    std::array<bool, 256> isLead = {};
    // By both bytes, the lead byte high; 0 where the page has no character. Empty for a page of
    // single bytes.
    std::vector<char16_t> pairs;
    // By character: the byte, or both bytes with the lead byte high; 0 where the page has none.
    std::vector<uint16_t> codes = std::vector<uint16_t>(0x10000);
    // What a byte or a pair that the page does not define becomes.
    char16_t undefined = u'?';
};

CodePage MakeWestern() {
    // 0x80 to 0x9F. The five holes are control characters of the same number.
    static constexpr char16_t kHigh[32] = {
        0x20AC, 0x0081, 0x201A, 0x0192, 0x201E, 0x2026, 0x2020, 0x2021, 0x02C6, 0x2030, 0x0160,
        0x2039, 0x0152, 0x008D, 0x017D, 0x008F, 0x0090, 0x2018, 0x2019, 0x201C, 0x201D, 0x2022,
        0x2013, 0x2014, 0x02DC, 0x2122, 0x0161, 0x203A, 0x0153, 0x009D, 0x017E, 0x0178};
    CodePage page;
    page.number = 1252;
    for (unsigned byte = 0; byte < 256; ++byte) {
        page.single[byte] = byte >= 0x80 && byte < 0xA0 ? kHigh[byte - 0x80] : byte;
        page.codes[page.single[byte]] = static_cast<uint16_t>(byte);
    }
    return page;
}

// The C library's table of the Japanese page, asked character by character.
class JapaneseTable {
  public:
    JapaneseTable()
        : decode_(iconv_open("UTF-16LE", "CP932")), encode_(iconv_open("CP932", "UTF-16LE")) {
        if (decode_ == iconv_t(-1) || encode_ == iconv_t(-1)) {
            std::cerr << "the C library has no conversion for code page 932\n";
            std::abort();
        }
    }
    ~JapaneseTable() {
        iconv_close(decode_);
        iconv_close(encode_);
    }

    char16_t Decode(uint8_t lead, uint8_t trail) {
        char bytes[2] = {static_cast<char>(lead), static_cast<char>(trail)};
        uint8_t out[4];
        return Convert(decode_, bytes, out) == 2 ? static_cast<char16_t>(out[0] | out[1] << 8) : 0;
    }
    // Both bytes, lead high. Several codes can stand for one character; this is the one to write.
    uint16_t Encode(char16_t character) {
        char bytes[2] = {static_cast<char>(character), static_cast<char>(character >> 8)};
        uint8_t out[4];
        return Convert(encode_, bytes, out) == 2 ? static_cast<uint16_t>(out[0] << 8 | out[1]) : 0;
    }

  private:
    static size_t Convert(iconv_t converter, char (&in)[2], uint8_t (&out)[4]) {
        char* source = in;
        size_t sourceLeft = 2;
        char* target = reinterpret_cast<char*>(out);
        size_t targetLeft = sizeof(out);
        iconv(converter, nullptr, nullptr, nullptr, nullptr);
        if (iconv(converter, &source, &sourceLeft, &target, &targetLeft) == size_t(-1)) {
            return 0;
        }
        return sizeof(out) - targetLeft;
    }

    iconv_t decode_;
    iconv_t encode_;
};

// User-defined characters: leads F0 to F9, 188 each from U+E000.
char16_t UserDefined(uint8_t lead, uint8_t trail) {
    return static_cast<char16_t>(0xE000 + (lead - 0xF0) * 188 + trail -
                                 (trail < 0x7F ? 0x40 : 0x41));
}

void AddPair(CodePage& page, JapaneseTable& table, uint8_t lead, uint8_t trail) {
    const uint16_t code = static_cast<uint16_t>(lead << 8 | trail);
    if (lead >= 0xF0 && lead <= 0xF9) {
        page.pairs[code] = UserDefined(lead, trail);
        page.codes[page.pairs[code]] = code;
        return;
    }
    const char16_t character = table.Decode(lead, trail);
    if (character == 0) {
        return;
    }
    page.pairs[code] = character;
    const uint16_t written = table.Encode(character);
    page.codes[character] = written != 0 ? written : code;
}

CodePage MakeJapanese() {
    CodePage page;
    page.number = 932;
    page.undefined = 0x30FB;  // katakana middle dot
    for (unsigned byte = 0; byte <= 0x80; ++byte) {
        page.single[byte] = byte;
    }
    page.single[0xA0] = 0xF8F0;
    for (unsigned byte = 0xA1; byte <= 0xDF; ++byte) {
        page.single[byte] = 0xFF61 + byte - 0xA1;  // half-width katakana
    }
    page.single[0xFD] = 0xF8F1;
    page.single[0xFE] = 0xF8F2;
    page.single[0xFF] = 0xF8F3;
    for (unsigned byte = 0; byte < 256; ++byte) {
        if (page.single[byte] != 0) {
            page.codes[page.single[byte]] = static_cast<uint16_t>(byte);
        }
    }
    page.pairs.resize(0x10000);
    JapaneseTable table;
    for (unsigned lead = 0x81; lead <= 0xFC; ++lead) {
        if (lead >= 0xA0 && lead <= 0xDF) {
            continue;
        }
        page.isLead[lead] = true;
        for (unsigned trail = 0x40; trail <= 0xFC; ++trail) {
            if (trail != 0x7F) {
                AddPair(page, table, lead, trail);
            }
        }
    }
    return page;
}

// Null for a code page that the machine does not know.
const CodePage* FindCodePage(UINT number) {
    if (number == CP_ACP) {
        number = Machine::Current().setup().codePage;
    }
    if (number == 1252) {
        static const CodePage western = MakeWestern();
        return &western;
    }
    if (number == 932) {
        static const CodePage japanese = MakeJapanese();
        return &japanese;
    }
    return nullptr;
}

const CodePage& AnsiCodePage() {
    const CodePage* page = FindCodePage(CP_ACP);
    if (page == nullptr) {
        std::cerr << "the machine is set up with an ANSI code page other than 1252 and 932\n";
        std::abort();
    }
    return *page;
}

// Stores at most `room` characters and counts them; counts all when `target` is null.
size_t Decode(const CodePage& page, const char* source, size_t bytes, char16_t* target,
              size_t room) {
    size_t written = 0;
    for (size_t i = 0; i < bytes && (target == nullptr || written < room); ++i, ++written) {
        const auto byte = static_cast<uint8_t>(source[i]);
        char16_t character = page.single[byte];
        if (page.isLead[byte]) {
            // A lead byte at the very end, or before a byte that cannot follow one, stands alone.
            const auto trail = static_cast<uint8_t>(i + 1 < bytes ? source[i + 1] : 0);
            character = page.pairs[byte << 8 | trail];
            if (trail != 0) {
                ++i;
            }
            if (character == 0) {
                character = page.undefined;
            }
        }
        if (target != nullptr) {
            target[written] = character;
        }
    }
    return written;
}

struct Encoded {
    size_t bytes = 0;       // stored, or counted
    size_t characters = 0;  // taken from the source
    bool unmappable = false;
};

// Stores at most `room` bytes, never half a character; counts all when `target` is null.
Encoded Encode(const CodePage& page, const char16_t* source, size_t characters, char* target,
               size_t room, char unmappable) {
    Encoded done;
    for (; done.characters < characters; ++done.characters) {
        const char16_t character = source[done.characters];
        uint16_t code = page.codes[character];
        if (code == 0 && character != 0) {
            code = static_cast<uint8_t>(unmappable);
            done.unmappable = true;
        }
        const size_t width = code > 0xFF ? 2 : 1;
        if (target != nullptr) {
            if (width > room - done.bytes) {
                break;
            }
            if (width == 2) {
                target[done.bytes] = static_cast<char>(code >> 8);
            }
            target[done.bytes + width - 1] = static_cast<char>(code);
        }
        done.bytes += width;
    }
    return done;
}

// ---- UTF-8 ----

void AppendUtf8(std::string& text, char32_t c) {
    if (c < 0x80) {
        text += static_cast<char>(c);
        return;
    }
    const int trailing = c < 0x800 ? 1 : c < 0x10000 ? 2 : 3;
    static constexpr uint8_t kLead[] = {0, 0xC0, 0xE0, 0xF0};
    text += static_cast<char>(kLead[trailing] | c >> (6 * trailing));
    for (int i = trailing - 1; i >= 0; --i) {
        text += static_cast<char>(0x80 | (c >> (6 * i) & 0x3F));
    }
}

// Takes one character off the front of `text`, which is not empty.
char32_t TakeUtf8(std::string_view& text) {
    constexpr char32_t kReplacement = 0xFFFD;
    static constexpr char32_t kSmallest[] = {0, 0x80, 0x800, 0x10000};
    const auto lead = static_cast<uint8_t>(text[0]);
    text.remove_prefix(1);
    if (lead < 0x80) {
        return lead;
    }
    const int trailing = lead >= 0xF0 && lead < 0xF8   ? 3
                         : lead >= 0xE0 && lead < 0xF0 ? 2
                         : lead >= 0xC0 && lead < 0xE0 ? 1
                                                       : 0;
    if (trailing == 0) {
        return kReplacement;
    }
    char32_t c = lead & (0x3F >> trailing);
    for (int i = 0; i < trailing; ++i) {
        if (text.empty() || (static_cast<uint8_t>(text[0]) & 0xC0) != 0x80) {
            return kReplacement;
        }
        c = c << 6 | (static_cast<uint8_t>(text[0]) & 0x3F);
        text.remove_prefix(1);
    }
    const bool surrogate = c >= 0xD800 && c < 0xE000;
    return c < kSmallest[trailing] || c > 0x10FFFF || surrogate ? kReplacement : c;
}

// ---- Letter case ----

// As Windows folds: only letters that are the lower case of their own upper case, which leaves
// out a dotless i, a micro sign and a final sigma.
std::vector<char16_t> MakeUpperCase() {
    std::vector<char16_t> upper(0x10000);
    const locale_t unicode = newlocale(LC_CTYPE_MASK, "C.UTF-8", nullptr);
    if (unicode == nullptr) {
        std::cerr << "the C library has no locale C.UTF-8\n";
        std::abort();
    }
    for (wint_t c = 0; c < 0x10000; ++c) {
        const wint_t folded = towupper_l(c, unicode);
        const bool paired = folded < 0x10000 && towlower_l(folded, unicode) == c;
        upper[c] = static_cast<char16_t>(paired ? folded : c);
    }
    freelocale(unicode);
    return upper;
}

int CompareIgnoringCase(std::u16string_view left, std::u16string_view right) {
    const size_t common = std::min(left.size(), right.size());
    for (size_t i = 0; i < common; ++i) {
        if (left[i] == right[i]) {
            continue;
        }
        const char16_t l = FoldCase(left[i]);
        const char16_t r = FoldCase(right[i]);
        if (l != r) {
            return l < r ? -1 : 1;
        }
    }
    return left.size() == right.size() ? 0 : left.size() < right.size() ? -1 : 1;
}

// ---- wsprintf ----

constexpr int kFormattedMost = 1023;

// The text under construction; what does not fit is dropped.
template <typename Char>
struct Formatted {
    Char* target;
    int length = 0;

    void Put(Char c) {
        if (length < kFormattedMost) {
            target[length++] = c;
        }
    }
    void Fill(Char c, int64_t count) {
        for (; count > 0 && length < kFormattedMost; --count) {
            Put(c);
        }
    }
};

// One directive between its percent sign and its conversion character.
struct Directive {
    bool left = false;
    bool prefixed = false;
    bool zeros = false;
    int width = 0;
    int precision = -1;   // -1: none given
    bool narrow = false;  // h
    bool wide = false;    // l or w
};

constexpr int kWidthMost = 4096;

template <typename Char>
int TakeNumber(const Char*& format) {
    int number = 0;
    for (; *format >= '0' && *format <= '9'; ++format) {
        number = std::min(number * 10 + (*format - '0'), kWidthMost);
    }
    return number;
}

template <typename Char>
Directive TakeDirective(const Char*& format) {
    Directive directive;
    for (;; ++format) {
        if (*format == '-') {
            directive.left = true;
        } else if (*format == '#') {
            directive.prefixed = true;
        } else if (*format == '0') {
            directive.zeros = true;
        } else {
            break;
        }
    }
    directive.width = TakeNumber(format);
    if (*format == '.') {
        ++format;
        directive.precision = TakeNumber(format);
    }
    for (; *format == 'l' || *format == 'w' || *format == 'h'; ++format) {
        (*format == 'h' ? directive.narrow : directive.wide) = true;
    }
    return directive;
}

template <typename Char>
void PutNumber(Formatted<Char>& out, const Directive& directive, uint32_t value, bool negative,
               Char conversion) {
    const bool hexadecimal = conversion == 'x' || conversion == 'X';
    const char* digits = conversion == 'X' ? "0123456789ABCDEF" : "0123456789abcdef";
    const uint32_t base = hexadecimal ? 16 : 10;
    char reversed[16];
    int count = 0;
    do {
        reversed[count++] = digits[value % base];
        value /= base;
    } while (value != 0);
    const int zeros = std::max(directive.precision - count, 0);
    const bool prefixed = hexadecimal && directive.prefixed;
    const int padding = directive.width - count - zeros - negative - (prefixed ? 2 : 0);
    const bool padWithZeros = directive.zeros && !directive.left;
    if (!directive.left && !padWithZeros) {
        out.Fill(' ', padding);
    }
    if (negative) {
        out.Put('-');
    }
    if (prefixed) {
        out.Put('0');
        out.Put(conversion);
    }
    out.Fill('0', zeros + (padWithZeros ? std::max(padding, 0) : 0));
    while (count > 0) {
        out.Put(static_cast<Char>(reversed[--count]));
    }
    if (directive.left) {
        out.Fill(' ', padding);
    }
}

template <typename Char>
void PutText(Formatted<Char>& out, const Directive& directive, const Char* text, size_t length) {
    const auto padding = directive.width - static_cast<int64_t>(length);
    if (!directive.left) {
        out.Fill(directive.zeros ? '0' : ' ', padding);
    }
    for (size_t i = 0; i < length && out.length < kFormattedMost; ++i) {
        out.Put(text[i]);
    }
    if (directive.left) {
        out.Fill(' ', padding);
    }
}

// The characters of `text`, which may lack a terminator within `precision` characters.
template <typename Char>
std::basic_string_view<Char> Bounded(const Char* text, int precision) {
    size_t most =
        precision >= 0 ? static_cast<size_t>(precision) : std::numeric_limits<size_t>::max();
    size_t length = 0;
    while (length < most && text[length] != 0) {
        ++length;
    }
    return {text, length};
}

void PutString(Formatted<char16_t>& out, const Directive& directive, const char16_t* text) {
    const auto bounded = Bounded(text, directive.precision);
    PutText(out, directive, bounded.data(), bounded.size());
}
void PutString(Formatted<char16_t>& out, const Directive& directive, const char* text) {
    const std::u16string converted = FromAnsi(Bounded(text, directive.precision));
    PutText(out, directive, converted.data(), converted.size());
}
void PutString(Formatted<char>& out, const Directive& directive, const char* text) {
    const auto bounded = Bounded(text, directive.precision);
    PutText(out, directive, bounded.data(), bounded.size());
}
void PutString(Formatted<char>& out, const Directive& directive, const char16_t* text) {
    const std::string converted = ToAnsi(Bounded(text, directive.precision));
    PutText(out, directive, converted.data(), converted.size());
}

// The arguments in a record, because a va_list itself may be an array type.
struct Arguments {
    va_list list;
};

template <typename Char, typename ArgumentChar>
void PutTextArgument(Formatted<Char>& out, const Directive& directive, bool single,
                     Arguments& arguments) {
    if (single) {
        const ArgumentChar text[2] = {static_cast<ArgumentChar>(va_arg(arguments.list, int)), 0};
        Directive whole = directive;
        whole.precision = 1;
        PutString(out, whole, text);
        return;
    }
    static constexpr ArgumentChar kNull[] = {'(', 'n', 'u', 'l', 'l', ')', 0};
    const ArgumentChar* text = va_arg(arguments.list, const ArgumentChar*);
    PutString(out, directive, text != nullptr ? text : kNull);
}

template <typename Char>
int Format(Char* target, const Char* format, Arguments& arguments) {
    constexpr bool kOwnIsWide = sizeof(Char) == 2;
    Formatted<Char> out{.target = target};
    while (*format != 0) {
        if (*format != '%') {
            out.Put(*format++);
            continue;
        }
        ++format;
        const Directive directive = TakeDirective(format);
        const Char conversion = *format;
        if (conversion == 0) {
            break;
        }
        ++format;
        switch (conversion) {
        case 'd':
        case 'i': {
            const auto value = va_arg(arguments.list, int32_t);
            const auto bits = static_cast<uint32_t>(value);
            PutNumber(out, directive, value < 0 ? 0 - bits : bits, value < 0, conversion);
            break;
        }
        case 'u':
        case 'x':
        case 'X':
            PutNumber(out, directive, va_arg(arguments.list, uint32_t), false, conversion);
            break;
        case 's':
        case 'c':
        case 'S':
        case 'C': {
            const bool single = conversion == 'c' || conversion == 'C';
            // The capital letter means the other width; h and l say it outright.
            const bool other = conversion == 'S' || conversion == 'C';
            const bool wide = directive.wide || (!directive.narrow && kOwnIsWide != other);
            if (wide) {
                PutTextArgument<Char, char16_t>(out, directive, single, arguments);
            } else {
                PutTextArgument<Char, char>(out, directive, single, arguments);
            }
            break;
        }
        default:
            out.Put(conversion);
        }
    }
    target[out.length] = 0;
    return out.length;
}

// The length of a text given by count, -1 for one with a terminator, which then counts too.
// 0 for a count that is none.
template <typename Char>
size_t SourceLength(const Char* source, int count) {
    if (count > 0) {
        return static_cast<size_t>(count);
    }
    return count == -1 ? std::char_traits<Char>::length(source) + 1 : 0;
}

}  // namespace

std::u16string Utf16(std::string_view utf8) {
    std::u16string text;
    while (!utf8.empty()) {
        const char32_t c = TakeUtf8(utf8);
        if (c >= 0x10000) {
            text += static_cast<char16_t>(0xD7C0 + (c >> 10));
            text += static_cast<char16_t>(0xDC00 + (c & 0x3FF));
        } else {
            text += static_cast<char16_t>(c);
        }
    }
    return text;
}

std::string Utf8(std::u16string_view utf16) {
    std::string text;
    for (size_t i = 0; i < utf16.size(); ++i) {
        char32_t c = utf16[i];
        const bool high = c >= 0xD800 && c < 0xDC00;
        const bool low = c >= 0xDC00 && c < 0xE000;
        if (high && i + 1 < utf16.size() && (utf16[i + 1] & 0xFC00) == 0xDC00) {
            c = 0x10000 + ((c & 0x3FF) << 10) + (utf16[++i] & 0x3FF);
        } else if (high || low) {
            c = 0xFFFD;
        }
        AppendUtf8(text, c);
    }
    return text;
}

char16_t FoldCase(char16_t character) {
    static const std::vector<char16_t> upper = MakeUpperCase();
    return upper[character];
}

std::u16string FoldCase(std::u16string_view text) {
    std::u16string folded(text);
    for (char16_t& character : folded) {
        character = FoldCase(character);
    }
    return folded;
}

bool EqualIgnoringCase(std::u16string_view left, std::u16string_view right) {
    return left.size() == right.size() && CompareIgnoringCase(left, right) == 0;
}

bool LessIgnoringCase::operator()(std::u16string_view left, std::u16string_view right) const {
    return CompareIgnoringCase(left, right) < 0;
}

std::u16string FromAnsi(std::string_view ansi) {
    std::u16string text(ansi.size(), 0);
    text.resize(Decode(AnsiCodePage(), ansi.data(), ansi.size(), text.data(), text.size()));
    return text;
}

std::string ToAnsi(std::u16string_view text) {
    std::string ansi(text.size() * 2, 0);
    ansi.resize(
        Encode(AnsiCodePage(), text.data(), text.size(), ansi.data(), ansi.size(), '?').bytes);
    return ansi;
}

}  // namespace embedded

using namespace embedded;

UINT GetACP() {
    return Machine::Current().setup().codePage;
}

int MultiByteToWideChar(UINT codePage, DWORD flags, LPCSTR source, int sourceBytes, LPWSTR target,
                        int targetCharacters) {
    static CallSite call("MultiByteToWideChar");
    const CodePage* page = FindCodePage(codePage);
    const size_t bytes = source != nullptr ? SourceLength(source, sourceBytes) : 0;
    if (call.Fails() || page == nullptr || flags != 0 || bytes == 0 || targetCharacters < 0) {
        SetLastError(ERROR_INVALID_PARAMETER);
        return 0;
    }
    const size_t needed = Decode(*page, source, bytes, nullptr, 0);
    if (targetCharacters == 0) {
        return static_cast<int>(needed);
    }
    const auto room = static_cast<size_t>(targetCharacters);
    Decode(*page, source, bytes, target, room);
    if (needed > room) {
        SetLastError(ERROR_INSUFFICIENT_BUFFER);
        return 0;
    }
    return static_cast<int>(needed);
}

int WideCharToMultiByte(UINT codePage, DWORD flags, LPCWSTR source, int sourceCharacters,
                        LPSTR target, int targetBytes, LPCSTR unmappable, BOOL* usedUnmappable) {
    static CallSite call("WideCharToMultiByte");
    const CodePage* page = FindCodePage(codePage);
    const size_t characters = source != nullptr ? SourceLength(source, sourceCharacters) : 0;
    if (call.Fails() || page == nullptr || flags != 0 || characters == 0 || targetBytes < 0) {
        SetLastError(ERROR_INVALID_PARAMETER);
        return 0;
    }
    const Encoded done =
        Encode(*page, source, characters, targetBytes != 0 ? target : nullptr,
               static_cast<size_t>(targetBytes), unmappable != nullptr ? *unmappable : '?');
    if (usedUnmappable != nullptr) {
        *usedUnmappable = done.unmappable;
    }
    if (done.characters < characters) {
        SetLastError(ERROR_INSUFFICIENT_BUFFER);
        return 0;
    }
    return static_cast<int>(done.bytes);
}

LONG RtlMultiByteToUnicodeN(PWSTR target, ULONG targetBytes, PULONG resultBytes, LPCSTR source,
                                ULONG sourceBytes) {
    const size_t written =
        Decode(AnsiCodePage(), source, sourceBytes, target, targetBytes / sizeof(WCHAR));
    if (resultBytes != nullptr) {
        *resultBytes = static_cast<ULONG>(written * sizeof(WCHAR));
    }
    return 0;
}

LONG RtlUnicodeToMultiByteN(LPSTR target, ULONG targetBytes, PULONG resultBytes, LPCWSTR source,
                                ULONG sourceBytes) {
    const Encoded done =
        Encode(AnsiCodePage(), source, sourceBytes / sizeof(WCHAR), target, targetBytes, '?');
    if (resultBytes != nullptr) {
        *resultBytes = static_cast<ULONG>(done.bytes);
    }
    return 0;
}

int lstrlenW(LPCWSTR text) {
    return text != nullptr ? static_cast<int>(std::char_traits<WCHAR>::length(text)) : 0;
}

int lstrlenA(LPCSTR text) {
    return text != nullptr ? static_cast<int>(strlen(text)) : 0;
}

int lstrcmpiW(LPCWSTR left, LPCWSTR right) {
    if (left == nullptr || right == nullptr) {
        return (left != nullptr) - (right != nullptr);
    }
    return CompareIgnoringCase(left, right);
}

int lstrcmpiA(LPCSTR left, LPCSTR right) {
    if (left == nullptr || right == nullptr) {
        return (left != nullptr) - (right != nullptr);
    }
    return CompareIgnoringCase(FromAnsi(left), FromAnsi(right));
}

int wsprintfW(LPWSTR target, LPCWSTR format, ...) {
    Arguments arguments;
    va_start(arguments.list, format);
    const int length = Format(target, format, arguments);
    va_end(arguments.list);
    return length;
}

int wsprintfA(LPSTR target, LPCSTR format, ...) {
    Arguments arguments;
    va_start(arguments.list, format);
    const int length = Format(target, format, arguments);
    va_end(arguments.list);
    return length;
}
