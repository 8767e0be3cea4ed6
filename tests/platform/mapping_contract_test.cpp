#include <cstring>

#include <gtest/gtest.h>

#include "platform/owned.h"

#include "tests/platform/home.h"

namespace contract {
namespace {

using platform::FileHandle;
using platform::MappedView;
using platform::NullableHandle;

constexpr WCHAR kName[] = TEXT("2c1f40CVP");

NullableHandle MakeShared(DWORD bytes, LPCWSTR name) {
    SetLastError(777);
    return NullableHandle(
        CreateFileMappingW(INVALID_HANDLE_VALUE, nullptr, PAGE_READWRITE, 0, bytes, name));
}

NullableHandle OpenShared(LPCWSTR name) {
    return NullableHandle(OpenFileMappingW(FILE_MAP_ALL_ACCESS, FALSE, name));
}

MappedView Map(const NullableHandle& mapping, DWORD access, SIZE_T bytes = 0) {
    return MappedView(MapViewOfFile(mapping.get(), access, 0, 0, bytes));
}

TEST(SharedMemoryContract, OneBlockPerNameUntilItsLastHandleGoes) {
    Home home;
    NullableHandle first = MakeShared(90, kName);
    ASSERT_TRUE(first);
    EXPECT_EQ(GetLastError(), DWORD{ERROR_SUCCESS});
    NullableHandle again = MakeShared(100000, kName);
    EXPECT_EQ(GetLastError(), DWORD{ERROR_ALREADY_EXISTS});
    EXPECT_FALSE(Map(again, FILE_MAP_READ, 100000)) << "it is the small block";
    NullableHandle opened = OpenShared(kName);
    ASSERT_TRUE(opened);
    NullableHandle otherLetters = MakeShared(10, TEXT("2C1F40CVP"));
    EXPECT_EQ(GetLastError(), DWORD{ERROR_SUCCESS});
    const platform::LoadedModule library(LoadLibraryW(TEXT("kernelbase.dll")));
    const auto isSame =
        platform::ExportOf<BOOL(WINAPI*)(HANDLE, HANDLE)>(library.get(), "CompareObjectHandles");
    ASSERT_NE(isSame, nullptr);
    EXPECT_TRUE(isSame(first.get(), opened.get()));
    EXPECT_FALSE(isSame(first.get(), otherLetters.get()));
    EXPECT_FALSE(isSame(reinterpret_cast<HANDLE>(0x7770), first.get()));

    MappedView written = Map(first, FILE_MAP_ALL_ACCESS);
    MappedView read = Map(again, FILE_MAP_READ);
    ASSERT_TRUE(written && read);
    EXPECT_NE(written.get(), read.get());
    static_cast<char*>(written.get())[89] = 'x';
    EXPECT_EQ(static_cast<char*>(read.get())[89], 'x');

    first.reset();
    again.reset();
    read.reset();
    EXPECT_TRUE(OpenShared(kName));
    opened.reset();
    // The name is gone, the memory is not: a view is still open.
    EXPECT_EQ(ErrorOf([] { return OpenShared(kName).get(); }), DWORD{ERROR_FILE_NOT_FOUND});
    EXPECT_EQ(static_cast<char*>(written.get())[89], 'x');
}

TEST(SharedMemoryContract, ViewsAreWholePages) {
    Home home;
    const NullableHandle mapping = MakeShared(90, nullptr);
    const MappedView view = Map(mapping, FILE_MAP_READ, 4096);
    ASSERT_TRUE(view);
    const char* bytes = static_cast<char*>(view.get());
    EXPECT_EQ(bytes[90] | bytes[4095], 0);
    MEMORY_BASIC_INFORMATION information = {};
    ASSERT_EQ(VirtualQuery(bytes, &information, sizeof(information)), 48u);
    EXPECT_EQ(information.BaseAddress, bytes);
    EXPECT_EQ(information.RegionSize, 4096u);
    EXPECT_EQ(information.State, DWORD{MEM_COMMIT});
    EXPECT_EQ(ErrorOf([&] { return Map(mapping, FILE_MAP_READ, 4097).get(); }),
              DWORD{ERROR_ACCESS_DENIED});
    const NullableHandle reserved(CreateFileMappingW(INVALID_HANDLE_VALUE, nullptr,
                                                     PAGE_READWRITE | SEC_RESERVE, 0, 90, nullptr));
    const MappedView notThere = Map(reserved, FILE_MAP_ALL_ACCESS, 90);
    ASSERT_NE(VirtualQuery(notThere.get(), &information, sizeof(information)), 0u);
    EXPECT_EQ(information.State, DWORD{MEM_RESERVE});
}

TEST(SharedMemoryContract, RefusesWhatCannotBe) {
    Home home;
    EXPECT_EQ(ErrorOf([] { return MakeShared(0, TEXT("zero")).get(); }),
              DWORD{ERROR_INVALID_PARAMETER});
    EXPECT_EQ(ErrorOf([] { return MakeShared(10, TEXT("a\\b")).get(); }),
              DWORD{ERROR_PATH_NOT_FOUND});
    EXPECT_EQ(ErrorOf([&] { return UnmapViewOfFile(&home); }), DWORD{ERROR_INVALID_ADDRESS});
}

TEST(FileMappingContract, ViewOutlivesItsHandlesAndKeepsTheFileFromBeingCut) {
    Home home;
    home.WriteFile(TEXT("file"), "12345");
    home.WriteFile(TEXT("other"), "67");
    home.WriteFile(TEXT("empty"), "");
    const auto map = [&](LPCWSTR name) {
        const FileHandle file(CreateFileW(home.Path(name).c_str(), GENERIC_READ, FILE_SHARE_READ,
                                          nullptr, OPEN_EXISTING, 0, nullptr));
        return NullableHandle(
            CreateFileMappingW(file.get(), nullptr, PAGE_READONLY, 0, 0, nullptr));
    };
    EXPECT_EQ(ErrorOf([&] { return map(TEXT("empty")).get(); }), DWORD{ERROR_FILE_INVALID});
    NullableHandle mapping = map(TEXT("file"));
    EXPECT_EQ(ErrorOf([&] { return Map(mapping, FILE_MAP_ALL_ACCESS).get(); }),
              DWORD{ERROR_ACCESS_DENIED});
    MappedView view = Map(mapping, FILE_MAP_READ);
    mapping.reset();
    ASSERT_TRUE(view);
    EXPECT_EQ(memcmp(view.get(), "12345\0\0", 8), 0);

    const auto overwrite = [&] {
        return CopyFileW(home.Path(TEXT("other")).c_str(), home.Path(TEXT("file")).c_str(), FALSE);
    };
    EXPECT_EQ(ErrorOf(overwrite), DWORD{ERROR_USER_MAPPED_FILE});
    EXPECT_EQ(home.ReadFile(TEXT("file")), "12345");
    view.reset();
    EXPECT_EQ(ErrorOf(overwrite), DWORD{ERROR_SUCCESS});
}

}  // namespace
}  // namespace contract
