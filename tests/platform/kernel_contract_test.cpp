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
    expect(TEXT("-7 07 100 fffffff9CVP"),
           wsprintfW(text, TEXT("%d %02u %02u %xCVP"), -7, 7, 100, -7));
    expect(TEXT("wide 4294967295   7"), wsprintfW(text, TEXT("%s %u %3u"), TEXT("wide"), -1, 7));
}

TEST(AnsiContract, ConversionsFillWhatThereIsRoomFor) {
    Home home;
    WCHAR wide[] = TEXT("########");
    ULONG bytes = 0;
    EXPECT_EQ(RtlMultiByteToUnicodeN(wide, 10, &bytes, "\x80\x81\x9F\xFC\0f", 6), 0);
    EXPECT_EQ(bytes, 10u);
    EXPECT_EQ(Text(wide, 6), Text(TEXT("\u20AC\u0081\u0178\u00FC\0#"), 6));
    char narrow[] = "xxxxx";
    EXPECT_EQ(RtlUnicodeToMultiByteN(narrow, 4, &bytes, TEXT("\u20AC\u0081\u0416def"), 12), 0);
    EXPECT_EQ(bytes, 4u);
    EXPECT_STREQ(narrow, "\x80\x81?dx");
    EXPECT_EQ(WideCharToMultiByte(CP_ACP, 0, TEXT("\u20AC\u0416z"), 2, narrow, 2, nullptr, nullptr),
              2);
    EXPECT_STREQ(narrow, "\x80??dx");
    EXPECT_EQ(ErrorOf([&] {
                  return WideCharToMultiByte(CP_ACP, 0, TEXT("abc"), 3, narrow, 2, nullptr,
                                             nullptr);
              }),
              DWORD{ERROR_INSUFFICIENT_BUFFER});
}

TEST(CompareContract, LetterCaseIsFoldedBeyondAscii) {
    Home home;
    EXPECT_EQ(lstrcmpiW(TEXT("\u00C4rger"), TEXT("\u00E4RGER")), 0);
    EXPECT_LT(lstrcmpiW(TEXT("abc"), TEXT("ABCD")), 0);
    EXPECT_NE(lstrcmpiW(TEXT("i"), TEXT("\u0131")), 0);
    EXPECT_EQ(lstrcmpiA("M\xFCller", "m\xDCLLER"), 0);
}

TEST(MemoryContract, GlobalBlocksKnowTheirSizeAndRefuseTheImpossible) {
    Home home;
    void* block = GlobalAlloc(GMEM_FIXED | GMEM_ZEROINIT, 33);
    ASSERT_NE(block, nullptr);
    EXPECT_EQ(reinterpret_cast<uintptr_t>(block) % 16, 0u);
    EXPECT_EQ(GlobalSize(block), 33u);
    EXPECT_EQ(static_cast<char*>(block)[32], 0);
    EXPECT_EQ(GlobalFree(block), nullptr);
    EXPECT_EQ(ErrorOf([] { return GlobalAlloc(GMEM_FIXED, SIZE_T{1} << 60); }),
              DWORD{ERROR_NOT_ENOUGH_MEMORY});
}

TEST(ModuleContract, WhatIsNotThereSaysWhy) {
    Home home;
    const auto stale = reinterpret_cast<HMODULE>(ULONG_PTR{0x123450000});
    for (const Text& name : {Text(TEXT("KSFAXNONE.DLL")), Text(TEXT("KSFAXNONE")), Text(),
                             home.Path(TEXT("KSFAXNONE.DLL"))}) {
        EXPECT_EQ(ErrorOf([&] { return LoadLibraryW(name.c_str()); }), DWORD{ERROR_MOD_NOT_FOUND});
    }
    WCHAR path[MAX_PATH];
    EXPECT_EQ(ErrorOf([&] { return GetProcAddress(stale, "DialDlg"); }),
              DWORD{ERROR_MOD_NOT_FOUND});
    EXPECT_EQ(ErrorOf([&] { return GetModuleFileNameW(stale, path, MAX_PATH); }),
              DWORD{ERROR_MOD_NOT_FOUND});
    EXPECT_EQ(ErrorOf([&] { return FreeLibrary(stale); }), DWORD{ERROR_MOD_NOT_FOUND});
    EXPECT_EQ(ErrorOf([&] { return FreeLibrary(nullptr); }), DWORD{ERROR_INVALID_HANDLE});
}

}  // namespace
}  // namespace contract
