#include "platform/embedded/text.h"

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstdarg>
#include <cstdio>
#include <cwctype>
#include <iconv.h>
#include <iostream>
#include <map>
#include <memory>
#include <mutex>
#include <vector>

#include "platform/embedded/machine.h"
#include "platform/windows_api.h"

namespace embedded {
namespace {

// A conversion of the C library's from one encoding to another.
class Converter {
  public:
    Converter(const char* to, const char* from) : converter_(iconv_open(to, from)) {
        if (converter_ == iconv_t(-1)) {
            std::cerr << "the C library has no conversion from " << from << " to " << to << '\n';
            std::abort();
        }
    }
    ~Converter() { iconv_close(converter_); }
    Converter(const Converter&) = delete;
    Converter& operator=(const Converter&) = delete;

    // Appends what `source` stands for, as far as it is valid; 0, or the host error that says why
    // the rest of it, which is left in `source`, is not.
    template <typename Target>
    int Convert(std::string_view& source, std::basic_string<Target>& target) {
        const size_t before = target.size();
        // No encoding here makes more than four bytes of one.
        target.resize(before + 4 * source.size() + 4);
        char* in = const_cast<char*>(source.data());
        size_t inLeft = source.size();
        char* out = reinterpret_cast<char*>(target.data() + before);
        size_t outLeft = (target.size() - before) * sizeof(Target);
        iconv(converter_, nullptr, nullptr, nullptr, nullptr);
        const bool isDone = iconv(converter_, &in, &inLeft, &out, &outLeft) != size_t(-1);
        const int error = isDone ? 0 : errno;
        // Some pages wait for an accent that may follow.
        iconv(converter_, nullptr, nullptr, &out, &outLeft);
        source.remove_prefix(source.size() - inLeft);
        target.resize(target.size() - outLeft / sizeof(Target));
        return error;
    }

  private:
    iconv_t converter_;
};

// The bytes of a text.
template <typename Char>
std::string_view BytesOf(std::basic_string_view<Char> text) {
    return {reinterpret_cast<const char*>(text.data()), text.size() * sizeof(Char)};
}

// Whole text from one Unicode encoding to another, with a replacement character for each place
// that is not valid, which is skipped by `unit` bytes.
template <typename Target>
std::basic_string<Target> ConvertAll(Converter& converter, std::string_view source, size_t unit,
                                     std::basic_string_view<Target> replacement) {
    std::basic_string<Target> target;
    while (converter.Convert(source, target) != 0) {
        target += replacement;
        source.remove_prefix(std::min(unit, source.size()));
    }
    return target;
}

// ---- Code pages ----

// One ANSI code page in both directions.
struct CodePage {
    explicit CodePage(UINT number);

    std::array<char16_t, 256> single = {};
    std::array<bool, 256> isLead = {};
    // By both bytes, the lead byte high; 0 where the page has no character.
    std::vector<char16_t> pairs = std::vector<char16_t>(0x10000);
    // By character: the byte, or both bytes with the lead byte high; 0 where the page has none.
    std::vector<uint16_t> codes = std::vector<uint16_t>(0x10000);
    // What a pair that the page does not define becomes.
    char16_t undefined;

  private:
    void Add(Converter& encode, uint16_t code, char16_t character);
};

// Several codes can stand for one character; the C library says which is the one to write.
void CodePage::Add(Converter& encode, uint16_t code, char16_t character) {
    std::string bytes;
    std::string_view source = BytesOf(std::u16string_view(&character, 1));
    const bool isKnown = encode.Convert(source, bytes) == 0 && bytes.size() == (code > 0xFF) + 1u;
    codes[character] = !isKnown       ? code
                       : code <= 0xFF ? static_cast<uint8_t>(bytes[0])
                                      : static_cast<uint16_t>(static_cast<uint8_t>(bytes[0]) << 8 |
                                                              static_cast<uint8_t>(bytes[1]));
}

CodePage::CodePage(UINT number) : undefined(number == 932 ? u'\u30FB' : u'?') {
    const std::string name = "CP" + std::to_string(number);
    Converter decode("UTF-16LE", name.c_str());
    Converter encode(name.c_str(), "UTF-16LE");
    // Bytes without a character are control characters, and higher ones stand in the private area.
    char16_t unused = 0xF8F0;
    const auto convert = [&](std::string_view bytes, char16_t& character) {
        std::u16string text;
        const int error = decode.Convert(bytes, text);
        character = error == 0 && text.size() == 1 ? text[0] : 0;
        return error;
    };
    for (unsigned byte = 0; byte < 256; ++byte) {
        const char lead = static_cast<char>(byte);
        isLead[byte] = convert({&lead, 1}, single[byte]) == EINVAL;
        if (!isLead[byte]) {
            if (single[byte] == 0 && byte != 0) {
                single[byte] = byte < 0xA0 ? static_cast<char16_t>(byte) : unused++;
            }
            Add(encode, static_cast<uint16_t>(byte), single[byte]);
            continue;
        }
        for (unsigned trail = 0x40; trail < 0xFF; ++trail) {
            const char bytes[] = {lead, static_cast<char>(trail)};
            const uint16_t code = static_cast<uint16_t>(byte << 8 | trail);
            if (convert({bytes, 2}, pairs[code]) == 0 && pairs[code] != 0) {
                Add(encode, code, pairs[code]);
            }
        }
    }
}

const CodePage& PageOf(UINT number) {
    static std::mutex mutex;
    static std::map<UINT, std::unique_ptr<CodePage>> pages;
    std::lock_guard lock(mutex);
    auto& page = pages[number];
    if (page == nullptr) {
        page = std::make_unique<CodePage>(number);
    }
    return *page;
}

// Stores at most `room` characters and counts them.
size_t Decode(const CodePage& page, std::string_view source, char16_t* target, size_t room) {
    size_t written = 0;
    for (size_t i = 0; i < source.size() && written < room; ++i, ++written) {
        const auto byte = static_cast<uint8_t>(source[i]);
        target[written] = page.single[byte];
        if (page.isLead[byte]) {
            // A lead byte at the very end, or before a zero, stands alone.
            const auto trail = static_cast<uint8_t>(i + 1 < source.size() ? source[i + 1] : 0);
            const char16_t character = page.pairs[byte << 8 | trail];
            target[written] = character != 0 ? character : page.undefined;
            i += trail != 0;
        }
    }
    return written;
}

// Stores at most `room` bytes, never half a character, and counts them; `source` keeps the rest.
size_t Encode(const CodePage& page, std::u16string_view& source, char* target, size_t room) {
    size_t written = 0;
    for (; !source.empty(); source.remove_prefix(1)) {
        uint16_t code = page.codes[source.front()];
        if (code == 0 && source.front() != 0) {
            code = '?';
        }
        if (written + (code > 0xFF) >= room) {
            break;
        }
        if (code > 0xFF) {
            target[written++] = static_cast<char>(code >> 8);
        }
        target[written++] = static_cast<char>(code);
    }
    return written;
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

}  // namespace

std::u16string Utf16(std::string_view utf8) {
    thread_local Converter converter("UTF-16LE", "UTF-8");
    return ConvertAll<char16_t>(converter, utf8, 1, u"\uFFFD");
}

std::string Utf8(std::u16string_view utf16) {
    thread_local Converter converter("UTF-8", "UTF-16LE");
    return ConvertAll<char>(converter, BytesOf(utf16), sizeof(char16_t), "\xEF\xBF\xBD");
}

char16_t FoldCase(char16_t character) {
    static const std::vector<char16_t> upper = MakeUpperCase();
    return upper[character];
}

bool EqualIgnoringCase(std::u16string_view left, std::u16string_view right) {
    return left.size() == right.size() && CompareIgnoringCase(left, right) == 0;
}

bool LessIgnoringCase::operator()(std::u16string_view left, std::u16string_view right) const {
    return CompareIgnoringCase(left, right) < 0;
}

std::u16string FromAnsi(std::string_view ansi) {
    std::u16string text(ansi.size(), 0);
    text.resize(Decode(PageOf(GetACP()), ansi, text.data(), text.size()));
    return text;
}

std::string ToAnsi(std::u16string_view text) {
    std::string ansi(text.size() * 2, 0);
    ansi.resize(Encode(PageOf(GetACP()), text, ansi.data(), ansi.size()));
    return ansi;
}

}  // namespace embedded

using namespace embedded;

UINT GetACP() {
    return Machine::Current().setup().codePage;
}

int WideCharToMultiByte(UINT codePage, DWORD flags, LPCWSTR source, int sourceCharacters,
                        LPSTR target, int targetBytes, LPCSTR unmappable, BOOL* usedUnmappable) {
    if (Fails("WideCharToMultiByte") || codePage != CP_ACP || flags != 0 || sourceCharacters <= 0 ||
        targetBytes <= 0 || unmappable != nullptr || usedUnmappable != nullptr) {
        SetLastError(ERROR_INVALID_PARAMETER);
        return 0;
    }
    std::u16string_view rest(source, static_cast<size_t>(sourceCharacters));
    const size_t written = Encode(PageOf(GetACP()), rest, target, static_cast<size_t>(targetBytes));
    return Answer(rest.empty() ? ERROR_SUCCESS : ERROR_INSUFFICIENT_BUFFER)
               ? static_cast<int>(written)
               : 0;
}

LONG RtlMultiByteToUnicodeN(PWSTR target, ULONG targetBytes, PULONG resultBytes, LPCSTR source,
                            ULONG sourceBytes) {
    const size_t written =
        Decode(PageOf(GetACP()), {source, sourceBytes}, target, targetBytes / sizeof(WCHAR));
    *resultBytes = static_cast<ULONG>(written * sizeof(WCHAR));
    return 0;
}

LONG RtlUnicodeToMultiByteN(LPSTR target, ULONG targetBytes, PULONG resultBytes, LPCWSTR source,
                            ULONG sourceBytes) {
    std::u16string_view rest(source, sourceBytes / sizeof(WCHAR));
    *resultBytes = static_cast<ULONG>(Encode(PageOf(GetACP()), rest, target, targetBytes));
    return 0;
}

int lstrlenW(LPCWSTR text) {
    return text != nullptr ? static_cast<int>(std::char_traits<WCHAR>::length(text)) : 0;
}

int lstrcmpiW(LPCWSTR left, LPCWSTR right) {
    return CompareIgnoringCase(left, right);
}

int lstrcmpiA(LPCSTR left, LPCSTR right) {
    return CompareIgnoringCase(FromAnsi(left), FromAnsi(right));
}

int wsprintfW(LPWSTR target, LPCWSTR format, ...) {
    constexpr size_t kLengthMost = 1023;
    std::u16string text;
    va_list arguments;
    va_start(arguments, format);
    for (; *format != 0; ++format) {
        if (*format != u'%') {
            text += *format;
            continue;
        }
        // The host formats a number: a width of at most two digits, 0 before it for zeros.
        char number[80];
        std::string directive = "%";
        while (*++format >= u'0' && *format <= u'9' && directive.size() <= 3) {
            directive += static_cast<char>(*format);
        }
        directive += static_cast<char>(*format);
        switch (*format) {
        case u's':
            text += va_arg(arguments, LPCWSTR);
            break;
        case u'd':
        case u'u':
        case u'x':
            snprintf(number, sizeof(number), directive.c_str(), va_arg(arguments, UINT));
            text += Utf16(number);
            break;
        default:
            std::cerr << "wsprintfW: the machine does not know " << directive << '\n';
            std::abort();
        }
    }
    va_end(arguments);
    const size_t length = text.copy(target, kLengthMost);
    target[length] = 0;
    return static_cast<int>(length);
}
