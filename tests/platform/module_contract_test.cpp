#include <gtest/gtest.h>

#include "tests/platform/home.h"

namespace contract {
namespace {

TEST(ModuleContract, WhatIsNotThereSaysWhy) {
    Home home;
    const auto stale = reinterpret_cast<HMODULE>(ULONG_PTR{0x123450000});
    const auto error = [](bool failed) {
        const DWORD code = GetLastError();
        EXPECT_TRUE(failed);
        SetLastError(777);
        return code;
    };
    for (const Text& name : {Text(TEXT("KSFAXNONE.DLL")), Text(TEXT("KSFAXNONE")), Text(),
                             home.Path(TEXT("KSFAXNONE.DLL"))}) {
        EXPECT_EQ(error(LoadLibraryW(name.c_str()) == nullptr), DWORD{ERROR_MOD_NOT_FOUND});
    }
    EXPECT_EQ(error(GetProcAddress(stale, "DialDlg") == nullptr), DWORD{ERROR_MOD_NOT_FOUND});
    WCHAR path[MAX_PATH];
    EXPECT_EQ(error(GetModuleFileNameW(stale, path, MAX_PATH) == 0), DWORD{ERROR_MOD_NOT_FOUND});
    EXPECT_EQ(error(!FreeLibrary(stale)), DWORD{ERROR_MOD_NOT_FOUND});
    EXPECT_EQ(error(!FreeLibrary(nullptr)), DWORD{ERROR_INVALID_HANDLE});
}

}  // namespace
}  // namespace contract
