#include <gtest/gtest.h>

#include "platform/embedded/machine.h"
#include "platform/embedded/text.h"
#include "platform/windows_api.h"

namespace embedded {
namespace {

std::u16string ToWide(std::string_view bytes, ULONG room = 200) {
    std::u16string text(room / 2, u'#');
    ULONG written = 0;
    EXPECT_EQ(RtlMultiByteToUnicodeN(text.data(), room, &written, bytes.data(), bytes.size()),
              STATUS_SUCCESS);
    text.resize(written / 2);
    return text;
}

std::string ToBytes(std::u16string_view text, ULONG room = 200) {
    std::string bytes(room, '#');
    ULONG written = 0;
    EXPECT_EQ(RtlUnicodeToMultiByteN(bytes.data(), room, &written, text.data(), text.size() * 2),
              STATUS_SUCCESS);
    bytes.resize(written);
    return bytes;
}

TEST(AnsiCodePage, Converts1252BothWays) {
    Machine machine;
    EXPECT_EQ(GetACP(), 1252u);
    EXPECT_EQ(ToWide("\x41\x80\x81\x9F\xA0\xFC"), u"A\u20AC\u0081\u0178\u00A0\u00FC");
    EXPECT_EQ(ToBytes(u"A\u20AC\u0081\u0178\u00A0\u00FC"), "\x41\x80\x81\x9F\xA0\xFC");
    EXPECT_EQ(ToBytes(u"\u3042\u0411"), "??");
    EXPECT_EQ(ToWide("abcdef", 6), u"abc");
    EXPECT_EQ(ToBytes(u"abcdef", 4), "abcd");
    EXPECT_EQ(ToWide(std::string_view("a\0b", 3)), std::u16string_view(u"a\0b", 3));
}

TEST(AnsiCodePage, Converts932AndCutsNoCharacterInHalf) {
    Machine machine({.codePage = 932});
    EXPECT_EQ(GetACP(), 932u);
    // Hiragana A, half-width katakana A, yen or backslash, full-width tilde, user-defined.
    EXPECT_EQ(ToWide("\x82\xA0\xB1\\\x81\x60\xF0\x40"), u"\u3042\uFF71\\\uFF5E\uE000");
    EXPECT_EQ(ToBytes(u"\u3042\uFF71\\\uFF5E\uE000"), "\x82\xA0\xB1\\\x81\x60\xF0\x40");
    // Of the codes that stand for one character, the one Windows writes.
    EXPECT_EQ(ToWide("\x87\x90\x81\xE0\xED\x40\xFA\x5C"), u"\u2252\u2252\u7E8A\u7E8A");
    EXPECT_EQ(ToBytes(u"\u2252\u7E8A"), "\x81\xE0\xFA\x5C");
    EXPECT_EQ(ToWide("\xA0\xFF"), u"\uF8F0\uF8F3");
    EXPECT_EQ(ToBytes(u"\u3042\u3044", 3), "\x82\xA0");
    EXPECT_EQ(ToBytes(u"\u3042", 1), "");
    EXPECT_EQ(ToWide("\x82\x41", 2).size(), 1u);
    EXPECT_EQ(ToWide("a\x82"), u"a\u30FB");
}

TEST(MultiByteToWideChar, CountsConvertsAndRefuses) {
    Machine machine;
    char16_t text[8] = {};
    EXPECT_EQ(MultiByteToWideChar(932, 0, "\x82\xA0z", -1, nullptr, 0), 3);
    EXPECT_EQ(MultiByteToWideChar(CP_ACP, 0, "ab", 2, text, 8), 2);
    EXPECT_EQ(text[1], u'b');
    EXPECT_EQ(MultiByteToWideChar(CP_ACP, 0, "abc", -1, text, 3), 0);
    EXPECT_EQ(GetLastError(), ERROR_INSUFFICIENT_BUFFER);
    EXPECT_EQ(MultiByteToWideChar(CP_ACP, 0, "abc", 0, text, 3), 0);
    EXPECT_EQ(GetLastError(), ERROR_INVALID_PARAMETER);
    EXPECT_EQ(MultiByteToWideChar(1250, 0, "abc", 3, text, 3), 0);
}

TEST(WideCharToMultiByte, CountsConvertsAndRefuses) {
    Machine machine;
    char bytes[8] = {};
    BOOL unmappable = TRUE;
    EXPECT_EQ(WideCharToMultiByte(932, 0, u"\u3042z", -1, nullptr, 0, nullptr, nullptr), 4);
    EXPECT_EQ(WideCharToMultiByte(CP_ACP, 0, u"ab", -1, bytes, 8, nullptr, &unmappable), 3);
    EXPECT_STREQ(bytes, "ab");
    EXPECT_FALSE(unmappable);
    EXPECT_EQ(WideCharToMultiByte(CP_ACP, 0, u"\u3042", 1, bytes, 8, "_", &unmappable), 1);
    EXPECT_EQ(bytes[0], '_');
    EXPECT_TRUE(unmappable);
    EXPECT_EQ(WideCharToMultiByte(932, 0, u"a\u3042", 2, bytes, 2, nullptr, nullptr), 0);
    EXPECT_EQ(GetLastError(), ERROR_INSUFFICIENT_BUFFER);
}

TEST(Text, ComparesWithoutLetterCase) {
    Machine machine;
    EXPECT_EQ(lstrcmpiW(u"C:\\\u00C4b\u0416", u"c:\\\u00E4B\u0436"), 0);
    EXPECT_LT(lstrcmpiW(u"ab", u"abc"), 0);
    EXPECT_GT(lstrcmpiW(u"b", u"ABC"), 0);
    EXPECT_NE(lstrcmpiW(u"i", u"\u0131"), 0);
    EXPECT_NE(lstrcmpiW(u"\u00B5", u"\u03BC"), 0);
    EXPECT_EQ(lstrcmpiW(u"\u03A3", u"\u03C3"), 0);
    EXPECT_EQ(lstrcmpiA("M\xFCller", "m\xDCLLER"), 0);
    EXPECT_LT(lstrcmpiA(nullptr, "a"), 0);
    EXPECT_EQ(lstrlenW(nullptr), 0);
    EXPECT_EQ(lstrlenA("abc"), 3);
}

TEST(Text, ConvertsUtf8AndReplacesWhatIsInvalid) {
    EXPECT_EQ(Utf16("a\xC3\xA4\xE3\x81\x82\xF0\x9F\x93\xA0"), u"a\u00E4\u3042\U0001F4E0");
    EXPECT_EQ(Utf8(u"a\u00E4\u3042\U0001F4E0"), "a\xC3\xA4\xE3\x81\x82\xF0\x9F\x93\xA0");
    EXPECT_EQ(Utf16("\xC0\xAF\xE3\x81z\xFF"), u"\uFFFD\uFFFDz\uFFFD");
    EXPECT_EQ(Utf8(std::u16string(1, char16_t(0xDC00))), "\xEF\xBF\xBD");
}

TEST(Wsprintf, FormatsAsPublished) {
    Machine machine;
    char16_t wide[1024];
    char narrow[1024];
    EXPECT_EQ(
        wsprintfW(wide, u"%d|%5u|%-5d|%05d|%.3d|%x|%#X|%%", -7, 42u, 42, -42, 7, 0xBEEFu, 0xBEEFu),
        38);
    EXPECT_EQ(std::u16string(wide), u"-7|   42|42   |-0042|007|beef|0XBEEF|%");
    wsprintfW(wide, u"%s %.2s %4s %-4s| %c %hs %S %ld", u"ab", u"cde", u"f", u"g", u'h', "i", "j",
              -2147483647 - 1);
    EXPECT_EQ(std::u16string(wide), u"ab cd    f g   | h i j -2147483648");
    wsprintfA(narrow, "%s %ls %c %lX", "ab", u"\u20AC", 'c', 0xFFFFFFFFu);
    EXPECT_STREQ(narrow, "ab \x80 c FFFFFFFF");
}

TEST(Wsprintf, StopsAt1023Characters) {
    Machine machine;
    char16_t text[1025];
    text[1024] = u'!';
    const std::u16string longText(2000, u'a');
    EXPECT_EQ(wsprintfW(text, u"b%s%99999d", longText.c_str(), 1), 1023);
    EXPECT_EQ(text[1022], u'a');
    EXPECT_EQ(text[1023], 0);
    EXPECT_EQ(text[1024], u'!');
    EXPECT_EQ(wsprintfW(text, u"end%"), 3);
}

}  // namespace
}  // namespace embedded
