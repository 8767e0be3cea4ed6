#include <gtest/gtest.h>

#include "tests/platform/home.h"

namespace contract {
namespace {

TEST(FormatContract, ConversionsThatTheDriverUses) {
    Home home;
    WCHAR text[1024];
    const auto expect = [&](LPCWSTR wanted, int length) {
        EXPECT_EQ(Text(text), wanted);
        EXPECT_EQ(length, static_cast<int>(Text(wanted).size()));
    };
    expect(TEXT("-7|4294967289|fffffff9|FFFFFFF9"),
           wsprintfW(text, TEXT("%d|%u|%x|%X"), -7, -7, -7, -7));
    expect(TEXT("07|  7|7  |0x2a|100"),
           wsprintfW(text, TEXT("%02d|%3d|%-3d|%#x|%02u"), 7, 7, 7, 42, 100));
    expect(TEXT("wide narrow c 100%"),
           wsprintfW(text, TEXT("%s %S %c 100%%"), TEXT("wide"), "narrow", L'c'));
    expect(TEXT("abc|  abc|abc  "), wsprintfW(text, TEXT("%.3s|%5.3s|%-5.3s"), TEXT("abcdef"),
                                              TEXT("abcdef"), TEXT("abcdef")));
    char narrow[64];
    EXPECT_EQ(wsprintfA(narrow, "%s %d %S", "a", 5, TEXT("w")), 5);
    EXPECT_STREQ(narrow, "a 5 w");
}

TEST(AnsiContract, CountedConversionsMeasureConvertAndRefuse) {
    Home home;
    WCHAR wide[4] = {};
    EXPECT_EQ(MultiByteToWideChar(1252, 0, "a\x80", -1, nullptr, 0), 3);
    EXPECT_EQ(MultiByteToWideChar(1252, 0, "\x81\x9F\xFCz", 3, wide, 4), 3);
    EXPECT_EQ(Text(wide), TEXT("\u0081\u0178\u00FC"));
    EXPECT_EQ(MultiByteToWideChar(932, 0, "\x82\xA0z", -1, wide, 4), 3);
    EXPECT_EQ(Text(wide), TEXT("\u3042z"));
    EXPECT_EQ(MultiByteToWideChar(1252, 0, "abc", -1, wide, 3), 0);
    EXPECT_EQ(GetLastError(), ERROR_INSUFFICIENT_BUFFER);
    char narrow[4] = {};
    EXPECT_EQ(WideCharToMultiByte(1252, 0, TEXT("\u20AC\u0416z"), -1, narrow, 4, nullptr, nullptr),
              4);
    EXPECT_STREQ(narrow, "\x80?z");
    EXPECT_EQ(WideCharToMultiByte(1252, 0, TEXT("abcd"), -1, narrow, 4, nullptr, nullptr), 0);
    EXPECT_EQ(GetLastError(), ERROR_INSUFFICIENT_BUFFER);
}

TEST(AnsiContract, NativeConversionsFillWhatThereIsRoomFor) {
    Home home;
    WCHAR wide[4] = {9, 9, 9, 9};
    ULONG bytes = 0;
    EXPECT_EQ(RtlMultiByteToUnicodeN(wide, 6, &bytes, "abcdef", 6), 0);
    EXPECT_EQ(bytes, 6u);
    EXPECT_EQ(Text(wide, 4), TEXT("abc\t"));
    char narrow[] = "xxxx";
    EXPECT_EQ(RtlUnicodeToMultiByteN(narrow, 3, &bytes, TEXT("abcdef"), 12), 0);
    EXPECT_EQ(bytes, 3u);
    EXPECT_STREQ(narrow, "abcx");
}

TEST(CompareContract, LetterCaseIsFoldedBeyondAscii) {
    Home home;
    EXPECT_EQ(lstrcmpiW(TEXT("\u00C4rger"), TEXT("\u00E4RGER")), 0);
    EXPECT_NE(lstrcmpiW(TEXT("abc"), TEXT("abcd")), 0);
    EXPECT_EQ(lstrcmpiA("KSFAX", "ksfax"), 0);
}

TEST(MemoryContract, GlobalBlocksKnowTheirSizeAndRefuseTheImpossible) {
    Home home;
    void* block = GlobalAlloc(GMEM_FIXED | GMEM_ZEROINIT, 33);
    ASSERT_NE(block, nullptr);
    EXPECT_EQ(reinterpret_cast<uintptr_t>(block) % 16, 0u);
    EXPECT_EQ(GlobalSize(block), 33u);
    EXPECT_EQ(static_cast<char*>(block)[32], 0);
    EXPECT_EQ(GlobalFree(block), nullptr);
    EXPECT_EQ(GlobalAlloc(GMEM_FIXED, SIZE_T{1} << 60), nullptr);
    EXPECT_EQ(GetLastError(), ERROR_NOT_ENOUGH_MEMORY);
}

}  // namespace
}  // namespace contract
