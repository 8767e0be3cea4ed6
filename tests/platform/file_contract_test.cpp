#include <gtest/gtest.h>

#include "platform/owned.h"

#include "tests/platform/home.h"

namespace contract {
namespace {

constexpr DWORD kReads = GENERIC_READ;
constexpr DWORD kWrites = GENERIC_WRITE;
constexpr DWORD kShareAll = FILE_SHARE_READ | FILE_SHARE_WRITE;

platform::FileHandle Open(const Text& path, DWORD access, DWORD sharing,
                          DWORD disposition = OPEN_EXISTING) {
    SetLastError(777);
    return platform::FileHandle(CreateFileW(path.c_str(), access, sharing, nullptr, disposition,
                                            FILE_ATTRIBUTE_NORMAL, nullptr));
}

TEST(FileContract, OpeningSaysWhyItFailed) {
    Home home;
    home.WriteFile(TEXT("file"), "x");
    const struct {
        Text path;
        DWORD access;
        DWORD disposition;
        DWORD error;
    } rows[] = {
        {home.Path(TEXT("none")), kReads, OPEN_EXISTING, ERROR_FILE_NOT_FOUND},
        {home.Path(TEXT("none\\file")), kReads, OPEN_EXISTING, ERROR_PATH_NOT_FOUND},
        {home.Path(TEXT("none\\file")), kWrites, CREATE_ALWAYS, ERROR_PATH_NOT_FOUND},
        {home.Path(TEXT("file\\below")), kReads, OPEN_EXISTING, ERROR_PATH_NOT_FOUND},
        {home.Path(TEXT("file\\")), kReads, OPEN_EXISTING, ERROR_INVALID_NAME},
        {home.Path(TEXT("a?b")), kReads, OPEN_EXISTING, ERROR_INVALID_NAME},
        {home.Path(TEXT("a<b")), kWrites, CREATE_ALWAYS, ERROR_INVALID_NAME},
        {home.folder(), kReads, OPEN_EXISTING, ERROR_ACCESS_DENIED},
        {home.folder(), kWrites, CREATE_ALWAYS, ERROR_ACCESS_DENIED},
        {TEXT(""), kReads, OPEN_EXISTING, ERROR_PATH_NOT_FOUND},
        {TEXT("Q:\\folder\\file"), kReads, OPEN_EXISTING, ERROR_PATH_NOT_FOUND},
    };
    for (const auto& row : rows) {
        const auto file = Open(row.path, row.access, kShareAll, row.disposition);
        const DWORD error = GetLastError();
        EXPECT_FALSE(file);
        EXPECT_EQ(error, row.error) << std::string(row.path.begin(), row.path.end());
    }
}

TEST(FileContract, CreatingEmptiesWhatIsThereAndReadingEndsAtTheEnd) {
    Home home;
    home.WriteFile(TEXT("old"), "long content");
    auto file = Open(home.Path(TEXT("OLD")), kReads | kWrites, 0, CREATE_ALWAYS);
    EXPECT_EQ(GetLastError(), static_cast<DWORD>(ERROR_ALREADY_EXISTS));
    DWORD moved = 99;
    EXPECT_TRUE(WriteFile(file.get(), "abc", 3, &moved, nullptr));
    EXPECT_EQ(moved, 3u);
    EXPECT_EQ(GetFileSize(file.get(), nullptr), 3u);
    char buffer[8] = {};
    EXPECT_TRUE(ReadFile(file.get(), buffer, 8, &moved, nullptr));
    EXPECT_EQ(moved, 0u);
    file.reset();
    EXPECT_EQ(home.ReadFile(TEXT("old")), "abc");

    file = Open(home.Path(TEXT("new")), kWrites, 0, CREATE_ALWAYS);
    EXPECT_EQ(GetLastError(), static_cast<DWORD>(ERROR_SUCCESS));
    EXPECT_FALSE(ReadFile(file.get(), buffer, 8, &moved, nullptr));
    EXPECT_EQ(GetLastError(), static_cast<DWORD>(ERROR_ACCESS_DENIED));
    EXPECT_EQ(moved, 0u);

    file = Open(home.Path(TEXT("old")), kReads, kShareAll);
    EXPECT_TRUE(ReadFile(file.get(), buffer, 2, &moved, nullptr));
    EXPECT_TRUE(ReadFile(file.get(), buffer + 2, 6, &moved, nullptr));
    EXPECT_EQ(moved, 1u);
    EXPECT_STREQ(buffer, "abc");
    EXPECT_FALSE(WriteFile(file.get(), "x", 1, &moved, nullptr));
    EXPECT_EQ(GetLastError(), static_cast<DWORD>(ERROR_ACCESS_DENIED));

    const HANDLE stale = file.release();
    EXPECT_TRUE(CloseHandle(stale));
    EXPECT_FALSE(ReadFile(stale, buffer, 1, &moved, nullptr));
    EXPECT_EQ(GetLastError(), static_cast<DWORD>(ERROR_INVALID_HANDLE));
    EXPECT_EQ(GetFileSize(stale, nullptr), INVALID_FILE_SIZE);
    EXPECT_FALSE(CloseHandle(stale));
    EXPECT_FALSE(CloseHandle(nullptr));
    EXPECT_EQ(GetLastError(), static_cast<DWORD>(ERROR_INVALID_HANDLE));
}

TEST(FileContract, SharingLetsBothInOrOneOut) {
    Home home;
    home.WriteFile(TEXT("file"), "x");
    const struct {
        const char* what;
        DWORD firstAccess, firstSharing, secondAccess, secondSharing;
        bool goTogether;
    } rows[] = {
        {"two readers", kReads, FILE_SHARE_READ, kReads, FILE_SHARE_READ, true},
        {"writer without sharing after reader", kReads, FILE_SHARE_READ, kWrites, 0, false},
        {"reader after writer without sharing", kWrites, 0, kReads, FILE_SHARE_READ, false},
        {"reader that shares writing after such a writer", kWrites, 0, kReads, kShareAll, false},
        {"writer against a reader that shares reading", kReads, FILE_SHARE_READ, kWrites, kShareAll,
         false},
        {"reader that shares reading against a writer", kWrites, kShareAll, kReads, FILE_SHARE_READ,
         false},
        {"writer and reader that share all", kWrites, kShareAll, kReads, kShareAll, true},
        {"two writers that share all", kWrites, kShareAll, kWrites, kShareAll, true},
        {"two writers that share reading", kWrites, FILE_SHARE_READ, kWrites, kShareAll, false},
    };
    for (const auto& row : rows) {
        const Text path = home.Path(TEXT("file"));
        const auto first = Open(path, row.firstAccess, row.firstSharing);
        ASSERT_TRUE(first);
        const auto second = Open(path, row.secondAccess, row.secondSharing);
        const DWORD error = GetLastError();
        EXPECT_EQ(static_cast<bool>(second), row.goTogether) << row.what;
        if (!row.goTogether) {
            EXPECT_EQ(error, static_cast<DWORD>(ERROR_SHARING_VIOLATION)) << row.what;
        }
    }
    EXPECT_EQ(home.ReadFile(TEXT("file")), "x");
    const auto reader = Open(home.Path(TEXT("file")), kReads, FILE_SHARE_READ);
    EXPECT_FALSE(Open(home.Path(TEXT("file")), kWrites, 0, CREATE_ALWAYS));
    EXPECT_EQ(home.ReadFile(TEXT("file")), "x") << "a refused creation must not empty the file";
}

TEST(FileContract, CopyingOverwritesOrRefuses) {
    Home home;
    home.WriteFile(TEXT("source"), std::string(100000, 's'));
    home.WriteFile(TEXT("target"), "t");
    const auto copy = [&](LPCWSTR source, LPCWSTR target) {
        SetLastError(777);
        return CopyFileW(home.Path(source).c_str(), home.Path(target).c_str(), FALSE)
                   ? DWORD{ERROR_SUCCESS}
                   : GetLastError();
    };
    EXPECT_EQ(copy(TEXT("none"), TEXT("target")), DWORD{ERROR_FILE_NOT_FOUND});
    EXPECT_EQ(copy(TEXT("source"), TEXT("none\\target")), DWORD{ERROR_PATH_NOT_FOUND});
    EXPECT_EQ(copy(TEXT("source"), TEXT("source")), DWORD{ERROR_SHARING_VIOLATION});
    {
        const auto reader = Open(home.Path(TEXT("target")), kReads, FILE_SHARE_READ);
        EXPECT_EQ(copy(TEXT("source"), TEXT("target")), DWORD{ERROR_SHARING_VIOLATION});
        EXPECT_EQ(copy(TEXT("target"), TEXT("copy")), DWORD{ERROR_SUCCESS});
    }
    EXPECT_EQ(home.ReadFile(TEXT("target")), "t");
    EXPECT_EQ(home.ReadFile(TEXT("copy")), "t");
    EXPECT_EQ(copy(TEXT("source"), TEXT("TARGET")), DWORD{ERROR_SUCCESS});
    EXPECT_EQ(home.ReadFile(TEXT("target")), std::string(100000, 's'));
    EXPECT_EQ(home.ReadFile(TEXT("source")).size(), 100000u);
}

TEST(FileContract, MovingNeverOverwrites) {
    Home home;
    home.WriteFile(TEXT("a"), "a");
    home.WriteFile(TEXT("b"), "b");
    const auto move = [&](LPCWSTR source, LPCWSTR target) {
        SetLastError(777);
        return MoveFileW(home.Path(source).c_str(), home.Path(target).c_str())
                   ? DWORD{ERROR_SUCCESS}
                   : GetLastError();
    };
    EXPECT_EQ(move(TEXT("a"), TEXT("b")), DWORD{ERROR_ALREADY_EXISTS});
    EXPECT_EQ(move(TEXT("a"), TEXT("B")), DWORD{ERROR_ALREADY_EXISTS});
    EXPECT_EQ(move(TEXT("none"), TEXT("b")), DWORD{ERROR_FILE_NOT_FOUND});
    EXPECT_EQ(move(TEXT("a"), TEXT("none\\c")), DWORD{ERROR_PATH_NOT_FOUND});
    {
        const auto reader = Open(home.Path(TEXT("a")), kReads, kShareAll);
        EXPECT_EQ(move(TEXT("a"), TEXT("c")), DWORD{ERROR_SHARING_VIOLATION});
    }
    EXPECT_EQ(home.ReadFile(TEXT("a")), "a");
    EXPECT_EQ(home.ReadFile(TEXT("b")), "b");
    EXPECT_EQ(move(TEXT("a"), TEXT("A")), DWORD{ERROR_SUCCESS});
    EXPECT_EQ(move(TEXT("a"), TEXT("c")), DWORD{ERROR_SUCCESS});
    EXPECT_FALSE(home.Exists(TEXT("A")));
    EXPECT_EQ(home.ReadFile(TEXT("c")), "a");
    SetLastError(777);
    EXPECT_FALSE(SetFileAttributesW(home.Path(TEXT("a")).c_str(), FILE_ATTRIBUTE_NORMAL));
    EXPECT_EQ(GetLastError(), DWORD{ERROR_FILE_NOT_FOUND});
}

TEST(FileContract, TemporaryNamesAreReserved) {
    Home home;
    home.WriteFile(TEXT("file"), "x");
    WCHAR first[MAX_PATH];
    WCHAR second[MAX_PATH];
    const UINT number = GetTempFileNameW(home.folder().c_str(), TEXT("Kestrel"), 0, first);
    ASSERT_NE(number, 0u);
    ASSERT_LE(number, 0xFFFFu);
    const Text name = Text(first).substr(home.folder().size());
    EXPECT_EQ(name.substr(0, 4), TEXT("\\Kes"));
    EXPECT_EQ(name.substr(name.size() - 4), TEXT(".tmp"));
    const Text digits = name.substr(4, name.size() - 8);
    EXPECT_EQ(std::stoul(std::string(digits.begin(), digits.end()), nullptr, 16), number);
    EXPECT_TRUE(home.Exists(name.substr(1)));
    EXPECT_EQ(home.ReadFile(name.substr(1)), "");
    // A separator at the folder's end is not doubled.
    ASSERT_NE(GetTempFileNameW((home.folder() + TEXT("\\")).c_str(), TEXT("Kes"), 0, second), 0u);
    EXPECT_NE(Text(first), Text(second));
    EXPECT_EQ(Text(second).substr(0, home.folder().size() + 4), home.folder() + TEXT("\\Kes"));

    const Text before = second;
    for (const Text& folder : {home.Path(TEXT("none")), home.Path(TEXT("file")), Text()}) {
        SetLastError(777);
        EXPECT_EQ(GetTempFileNameW(folder.c_str(), TEXT("Kes"), 0, second), 0u);
        EXPECT_EQ(GetLastError(), DWORD{ERROR_DIRECTORY});
        EXPECT_EQ(Text(second), before);
    }
    EXPECT_EQ(GetTempFileNameW(home.Path(Text(250, TEXT("x")[0])).c_str(), TEXT("Kes"), 0, second),
              0u);
}

TEST(FileContract, WindowsFolderIsMeasuredThenGiven) {
    Home home;
    WCHAR path[MAX_PATH] = {};
    const UINT length = GetWindowsDirectoryW(path, MAX_PATH);
    EXPECT_EQ(Text(path).size(), length);
    EXPECT_EQ(lstrcmpiW(path, TEXT("C:\\Windows")), 0);
    EXPECT_EQ(GetWindowsDirectoryW(path, length), length + 1);
}

}  // namespace
}  // namespace contract
