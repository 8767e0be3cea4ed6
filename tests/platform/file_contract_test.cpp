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
        {TEXT(""), kReads, OPEN_EXISTING, ERROR_PATH_NOT_FOUND},
    };
    for (const auto& row : rows) {
        EXPECT_EQ(ErrorOf([&] { return !!Open(row.path, row.access, kShareAll, row.disposition); }),
                  row.error)
            << std::string(row.path.begin(), row.path.end());
    }
}

TEST(FileContract, CreatingEmptiesWhatIsThereAndReadingEndsAtTheEnd) {
    Home home;
    home.WriteFile(TEXT("old"), "long content");
    auto file = Open(home.Path(TEXT("OLD")), kReads | kWrites, 0, CREATE_ALWAYS);
    EXPECT_EQ(GetLastError(), DWORD{ERROR_ALREADY_EXISTS});
    DWORD moved = 99;
    EXPECT_TRUE(WriteFile(file.get(), "abc", 3, &moved, nullptr));
    EXPECT_EQ(GetFileSize(file.get(), nullptr), 3u);
    char buffer[8] = {};
    EXPECT_TRUE(ReadFile(file.get(), buffer, 8, &moved, nullptr));
    EXPECT_EQ(moved, 0u);

    const auto made = Open(home.Path(TEXT("new")), kWrites, 0, CREATE_ALWAYS);
    EXPECT_EQ(GetLastError(), DWORD{ERROR_SUCCESS});
    file.reset();
    file = Open(home.Path(TEXT("old")), kReads, kShareAll);
    EXPECT_TRUE(ReadFile(file.get(), buffer, 2, &moved, nullptr));
    EXPECT_TRUE(ReadFile(file.get(), buffer + 2, 6, &moved, nullptr));
    EXPECT_EQ(moved, 1u);
    EXPECT_STREQ(buffer, "abc");

    const HANDLE reader = file.get();
    const auto refused = [&](HANDLE handle, bool writes) {
        return ErrorOf([&] {
            return writes ? WriteFile(handle, "x", 1, &moved, nullptr)
                          : ReadFile(handle, buffer, 1, &moved, nullptr);
        });
    };
    EXPECT_EQ(refused(made.get(), false), DWORD{ERROR_ACCESS_DENIED});
    EXPECT_EQ(refused(reader, true), DWORD{ERROR_ACCESS_DENIED});
    file.reset();
    EXPECT_EQ(refused(reader, false), DWORD{ERROR_INVALID_HANDLE});
    EXPECT_EQ(moved, 0u);
    EXPECT_EQ(ErrorOf([&] { return CloseHandle(reader); }), DWORD{ERROR_INVALID_HANDLE});
}

TEST(FileContract, SharingLetsBothInOrOneOut) {
    Home home;
    home.WriteFile(TEXT("file"), "x");
    const Text path = home.Path(TEXT("file"));
    const struct {
        const char* what;
        DWORD firstAccess, firstSharing, secondAccess, secondSharing;
        DWORD error;
        DWORD disposition = OPEN_EXISTING;
    } rows[] = {
        // clang-format off
        {"two readers",           kReads,  FILE_SHARE_READ, kReads,  FILE_SHARE_READ, ERROR_SUCCESS},
        {"a writer of its own",   kReads,  FILE_SHARE_READ, kWrites, 0,               ERROR_SHARING_VIOLATION},
        {"after such a writer",   kWrites, 0,               kReads,  kShareAll,       ERROR_SHARING_VIOLATION},
        {"the first shares less", kReads,  FILE_SHARE_READ, kWrites, kShareAll,       ERROR_SHARING_VIOLATION},
        {"the second does",       kWrites, kShareAll,       kReads,  FILE_SHARE_READ, ERROR_SHARING_VIOLATION},
        {"both share all",        kWrites, kShareAll,       kReads,  kShareAll,       ERROR_SUCCESS},
        {"two writers",           kWrites, kShareAll,       kWrites, kShareAll,       ERROR_SUCCESS},
        {"a refused creation",    kReads,  FILE_SHARE_READ, kWrites, 0,               ERROR_SHARING_VIOLATION, CREATE_ALWAYS},
        // clang-format on
    };
    for (const auto& row : rows) {
        auto first = Open(path, row.firstAccess, row.firstSharing);
        ASSERT_TRUE(first);
        EXPECT_EQ(ErrorOf([&] {
                      return !!Open(path, row.secondAccess, row.secondSharing, row.disposition);
                  }),
                  row.error)
            << row.what;
        first.reset();
        EXPECT_EQ(home.ReadFile(TEXT("file")), "x") << row.what;
    }
}

TEST(FileContract, CopyingOverwritesAndMovingNeverDoes) {
    Home home;
    const struct {
        const char* what;
        bool moves;
        Text source, target;
        DWORD error;
        const char* left;  // files b and c afterwards
        bool isOpen = false;
    } rows[] = {
        // clang-format off
        {"copied over one there",   false, TEXT("a"),    TEXT("B"),       ERROR_SUCCESS,           "a-"},
        {"copied anew",             false, TEXT("b"),    TEXT("c"),       ERROR_SUCCESS,           "bb"},
        {"copied from nothing",     false, TEXT("none"), TEXT("b"),       ERROR_FILE_NOT_FOUND,    "b-"},
        {"copied to nowhere",       false, TEXT("a"),    TEXT("none\\b"), ERROR_PATH_NOT_FOUND,    "b-"},
        {"copied over itself",      false, TEXT("b"),    TEXT("b"),       ERROR_SHARING_VIOLATION, "b-"},
        {"copied over an open one", false, TEXT("a"),    TEXT("b"),       ERROR_SHARING_VIOLATION, "b-", true},
        {"copied from an open one", false, TEXT("b"),    TEXT("c"),       ERROR_SUCCESS,           "bb", true},
        {"moved over one there",    true,  TEXT("a"),    TEXT("B"),       ERROR_ALREADY_EXISTS,    "b-"},
        {"moved from nothing",      true,  TEXT("none"), TEXT("c"),       ERROR_FILE_NOT_FOUND,    "b-"},
        {"moved to nowhere",        true,  TEXT("b"),    TEXT("none\\c"), ERROR_PATH_NOT_FOUND,    "b-"},
        {"moved while open",        true,  TEXT("b"),    TEXT("c"),       ERROR_SHARING_VIOLATION, "b-", true},
        {"moved",                   true,  TEXT("b"),    TEXT("c"),       ERROR_SUCCESS,           "-b"},
        {"moved to other letters",  true,  TEXT("b"),    TEXT("B"),       ERROR_SUCCESS,           "b-"},
        // clang-format on
    };
    const Text b = home.Path(TEXT("b"));
    const Text c = home.Path(TEXT("c"));
    for (const auto& row : rows) {
        home.Clear();
        home.WriteFile(TEXT("a"), std::string(100000, 'a'));
        home.WriteFile(TEXT("b"), std::string(100, 'b'));
        const auto reader = row.isOpen ? Open(b, kReads, FILE_SHARE_READ) : platform::FileHandle();
        const Text source = home.Path(row.source);
        const Text target = home.Path(row.target);
        EXPECT_EQ(ErrorOf([&] {
                      return row.moves ? MoveFileW(source.c_str(), target.c_str())
                                       : CopyFileW(source.c_str(), target.c_str(), FALSE);
                  }),
                  row.error)
            << row.what;
        std::string left;
        for (const Text& path : {b, c}) {
            const auto file = Open(path, kReads, kShareAll);
            const DWORD size = file ? GetFileSize(file.get(), nullptr) : 0;
            left += size == 100000 ? 'a' : size == 100 ? 'b' : '-';
        }
        EXPECT_EQ(left, row.left) << row.what;
    }
    EXPECT_EQ(ErrorOf([&] { return SetFileAttributesW(c.c_str(), FILE_ATTRIBUTE_NORMAL); }),
              DWORD{ERROR_FILE_NOT_FOUND});
}

TEST(FileContract, TemporaryNamesAreReserved) {
    Home home;
    home.WriteFile(TEXT("file"), "x");
    WCHAR first[MAX_PATH];
    WCHAR second[MAX_PATH];
    const UINT number = GetTempFileNameW(home.folder().c_str(), TEXT("Kestrel"), 0, first);
    ASSERT_NE(number, 0u);
    const Text name = Text(first).substr(home.folder().size());
    EXPECT_EQ(name.substr(0, 4), TEXT("\\Kes"));
    EXPECT_EQ(name.substr(name.size() - 4), TEXT(".tmp"));
    const Text digits = name.substr(4, name.size() - 8);
    EXPECT_EQ(std::stoul(std::string(digits.begin(), digits.end()), nullptr, 16), number);
    EXPECT_TRUE(home.Exists(name.substr(1)));
    // A separator at the folder's end is not doubled.
    ASSERT_NE(GetTempFileNameW((home.folder() + TEXT("\\")).c_str(), TEXT("Kes"), 0, second), 0u);
    EXPECT_NE(Text(first), Text(second));
    EXPECT_EQ(Text(second).substr(0, home.folder().size() + 4), home.folder() + TEXT("\\Kes"));

    const Text before = second;
    for (const Text& folder : {home.Path(TEXT("none")), home.Path(TEXT("file")), Text()}) {
        EXPECT_EQ(ErrorOf([&] { return GetTempFileNameW(folder.c_str(), TEXT("Kes"), 0, second); }),
                  DWORD{ERROR_DIRECTORY});
        EXPECT_EQ(Text(second), before);
    }
}

}  // namespace
}  // namespace contract
