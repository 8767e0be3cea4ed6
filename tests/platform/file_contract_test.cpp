#include <gtest/gtest.h>

#include <cstring>

#include "platform/owned.h"
#include "tests/platform/home.h"

namespace contract {
namespace {

Text LastPart(const Text& path) {
    return path.substr(path.rfind(L'\\') + 1);
}

TEST(FileContract, TemporaryNameIsPrefixAndNumberAndTheFileExists) {
    Home home;
    WCHAR first[MAX_PATH] = {};
    WCHAR second[MAX_PATH] = {};
    const UINT number = GetTempFileNameW(home.folder().c_str(), TEXT("Kestova"), 0, first);
    ASSERT_NE(number, 0u);
    ASSERT_NE(GetTempFileNameW(home.folder().c_str(), TEXT("Kes"), 0, second), 0u);
    EXPECT_NE(Text(first), second);
    WCHAR expected[32];
    wsprintfW(expected, TEXT("Kes%x.tmp"), number);
    EXPECT_EQ(lstrcmpiW(LastPart(first).c_str(), expected), 0);
    EXPECT_EQ(LastPart(first).substr(0, 3), TEXT("Kes"));
    EXPECT_TRUE(home.Exists(LastPart(first)));
    EXPECT_EQ(home.ReadFile(LastPart(first)), "");

    WCHAR none[MAX_PATH] = {};
    EXPECT_EQ(GetTempFileNameW(home.Path(TEXT("missing")).c_str(), TEXT("Kes"), 0, none), 0u);
    EXPECT_EQ(GetLastError(), ERROR_DIRECTORY);
    EXPECT_EQ(GetTempFileNameW(home.Path(Text(250, L'x')).c_str(), TEXT("Kes"), 0, none), 0u);
}

TEST(FileContract, CopyOverwritesAndMoveDoesNot) {
    Home home;
    home.WriteFile(TEXT("a.txt"), "longer than the other");
    home.WriteFile(TEXT("b.txt"), "other");
    const Text a = home.Path(TEXT("a.txt"));
    const Text b = home.Path(TEXT("b.txt"));
    const Text c = home.Path(TEXT("c.txt"));
    EXPECT_TRUE(CopyFileW(b.c_str(), a.c_str(), FALSE));
    EXPECT_EQ(home.ReadFile(TEXT("a.txt")), "other");
    EXPECT_FALSE(CopyFileW(b.c_str(), a.c_str(), TRUE));
    EXPECT_EQ(GetLastError(), ERROR_FILE_EXISTS);
    EXPECT_FALSE(CopyFileW(c.c_str(), a.c_str(), FALSE));
    EXPECT_EQ(GetLastError(), ERROR_FILE_NOT_FOUND);
    EXPECT_EQ(home.ReadFile(TEXT("a.txt")), "other");

    EXPECT_FALSE(MoveFileW(a.c_str(), b.c_str()));
    EXPECT_EQ(GetLastError(), ERROR_ALREADY_EXISTS);
    EXPECT_FALSE(MoveFileW(c.c_str(), b.c_str()));
    EXPECT_EQ(GetLastError(), ERROR_FILE_NOT_FOUND);
    EXPECT_TRUE(MoveFileW(home.Path(TEXT("A.TXT")).c_str(), c.c_str()));
    EXPECT_FALSE(home.Exists(TEXT("a.txt")));
    EXPECT_EQ(home.ReadFile(TEXT("c.txt")), "other");
}

TEST(FileContract, FilesAreWrittenReadAndFoundMissing) {
    Home home;
    const Text path = home.Path(TEXT("data.bin"));
    platform::FileHandle file(CreateFileW(path.c_str(), GENERIC_WRITE, 0, nullptr, CREATE_ALWAYS,
                                          FILE_ATTRIBUTE_NORMAL, nullptr));
    ASSERT_TRUE(file);
    DWORD done = 0;
    EXPECT_TRUE(WriteFile(file.get(), "12345", 5, &done, nullptr));
    EXPECT_EQ(done, 5u);
    file.reset();
    file.reset(CreateFileW(path.c_str(), GENERIC_READ, FILE_SHARE_READ, nullptr, OPEN_EXISTING, 0,
                           nullptr));
    ASSERT_TRUE(file);
    EXPECT_EQ(GetFileSize(file.get(), nullptr), 5u);
    char bytes[8] = {};
    EXPECT_TRUE(ReadFile(file.get(), bytes, 3, &done, nullptr));
    EXPECT_EQ(done, 3u);
    EXPECT_TRUE(ReadFile(file.get(), bytes, 8, &done, nullptr));
    EXPECT_EQ(done, 2u);
    EXPECT_TRUE(ReadFile(file.get(), bytes, 8, &done, nullptr));
    EXPECT_EQ(done, 0u);
    file.reset();

    const auto openFails = [&](const Text& name, DWORD error) {
        EXPECT_EQ(CreateFileW(home.Path(name).c_str(), GENERIC_READ, 0, nullptr, OPEN_EXISTING, 0,
                              nullptr),
                  INVALID_HANDLE_VALUE);
        EXPECT_EQ(GetLastError(), error);
    };
    openFails(TEXT("none"), ERROR_FILE_NOT_FOUND);
    openFails(TEXT("none\\data.bin"), ERROR_PATH_NOT_FOUND);
    EXPECT_FALSE(CloseHandle(reinterpret_cast<HANDLE>(ULONG_PTR{0x7654320})));
    EXPECT_EQ(GetLastError(), ERROR_INVALID_HANDLE);
}

TEST(SharedMemoryContract, LivesByItsHandlesUnderItsName) {
    Home home;
    constexpr WCHAR kName[] = TEXT("7654320CVP");
    const auto open = [&] { return OpenFileMappingW(FILE_MAP_ALL_ACCESS, FALSE, kName); };
    EXPECT_EQ(open(), nullptr);
    EXPECT_EQ(GetLastError(), ERROR_FILE_NOT_FOUND);

    SetLastError(NO_ERROR);
    platform::NullableHandle block(
        CreateFileMappingW(INVALID_HANDLE_VALUE, nullptr, PAGE_READWRITE, 0, 90, kName));
    ASSERT_TRUE(block);
    platform::MappedView view(MapViewOfFile(block.get(), FILE_MAP_ALL_ACCESS, 0, 0, 90));
    ASSERT_TRUE(view);
    std::memcpy(view.get(), "published", 10);
    view.reset();

    // The same name again is the same block, whatever the size asked for.
    platform::NullableHandle again(
        CreateFileMappingW(INVALID_HANDLE_VALUE, nullptr, PAGE_READWRITE, 0, 70000, kName));
    ASSERT_TRUE(again);
    EXPECT_EQ(GetLastError(), ERROR_ALREADY_EXISTS);
    EXPECT_EQ(MapViewOfFile(again.get(), FILE_MAP_ALL_ACCESS, 0, 0, 70000), nullptr);
    again.reset();

    platform::NullableHandle opened(open());
    ASSERT_TRUE(opened);
    view.reset(MapViewOfFile(opened.get(), FILE_MAP_ALL_ACCESS, 0, 0, 0));
    ASSERT_TRUE(view);
    EXPECT_STREQ(static_cast<const char*>(view.get()), "published");
    MEMORY_BASIC_INFORMATION region = {};
    EXPECT_NE(VirtualQuery(view.get(), &region, sizeof region), 0u);
    EXPECT_EQ(region.RegionSize, 4096u);
    block.reset();
    opened.reset();
    // A view alone keeps the memory.
    EXPECT_STREQ(static_cast<const char*>(view.get()), "published");
    view.reset();
    EXPECT_EQ(open(), nullptr);
}

TEST(FileMappingContract, ReadsAFileAndRefusesAnEmptyOne) {
    Home home;
    home.WriteFile(TEXT("full"), "content");
    home.WriteFile(TEXT("empty"), "");
    const auto map = [&](const Text& name) {
        platform::FileHandle file(CreateFileW(home.Path(name).c_str(), GENERIC_READ,
                                              FILE_SHARE_READ, nullptr, OPEN_EXISTING, 0, nullptr));
        return CreateFileMappingW(file.get(), nullptr, PAGE_READONLY, 0, 0, nullptr);
    };
    platform::NullableHandle mapping(map(TEXT("full")));
    ASSERT_TRUE(mapping);
    platform::MappedView view(MapViewOfFile(mapping.get(), FILE_MAP_READ, 0, 0, 0));
    ASSERT_TRUE(view);
    EXPECT_EQ(std::memcmp(view.get(), "content\0", 8), 0);
    EXPECT_EQ(map(TEXT("empty")), nullptr);
    EXPECT_EQ(GetLastError(), ERROR_FILE_INVALID);
}

TEST(ModuleContract, MissingModuleTellsWhy) {
    Home home;
    EXPECT_EQ(LoadLibraryW(TEXT("KSFAXNONE.DLL")), nullptr);
    EXPECT_EQ(GetLastError(), ERROR_MOD_NOT_FOUND);
}

}  // namespace
}  // namespace contract
