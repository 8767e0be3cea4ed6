#include <gtest/gtest.h>

#include "platform/owned.h"

#include "tests/platform/home.h"

namespace contract {
namespace {

// A profile in the test's folder.
struct Profile {
    explicit Profile(const std::string& content) {
        home.WriteFile(TEXT("p.ini"), content);
        Flush();
    }
    // Windows remembers the profile used last, until it is told to forget.
    void Flush() const { WritePrivateProfileStringW(nullptr, nullptr, nullptr, path.c_str()); }

    Text String(LPCWSTR section, LPCWSTR key, LPCWSTR fallback = TEXT("-")) const {
        WCHAR value[300];
        GetPrivateProfileStringW(section, key, fallback, value, 300, path.c_str());
        return value;
    }
    BOOL Write(LPCWSTR section, LPCWSTR key, LPCWSTR value) const {
        return WritePrivateProfileStringW(section, key, value, path.c_str());
    }
    std::string Content() const {
        Flush();
        return home.ReadFile(TEXT("p.ini"));
    }

    Home home;
    Text path = home.Path(TEXT("p.ini"));
};

TEST(ProfileContract, ValuesAreTrimmedAndUnquoted) {
    const Profile profile("; comment\r\n[A]\r\nsingle=' a b '\r\ndouble = \" x \"  \r\n"
                          "mixed=\"abc'\r\none=\"\r\n spaced key  = v \r\n"
                          "no equals sign\r\ncomment=1 ; kept\r\ntwice=1\r\nTWICE=2\r\nempty=\r\n"
                          "signs=a=b\r\n;hidden=1\r\nansi=Stra\xDF"
                          "e\r\n[ B ]\r\nk=1\n[C] more\nk=2\r\n[a]\r\nlate=1\r\n[D\r\n"
                          "open=9\r\n  [E]\r\n  k=4");
    const struct {
        LPCWSTR section, key, value;
    } rows[] = {
        // clang-format off
        {TEXT("A"), TEXT("single"), TEXT(" a b ")},      {TEXT("A"), TEXT("double"), TEXT(" x ")},
        {TEXT("A"), TEXT("mixed"), TEXT("\"abc'")},      {TEXT("A"), TEXT("one"), TEXT("\"")},
        {TEXT("a"), TEXT("SPACED KEY"), TEXT("v")},      {TEXT(" A "), TEXT(" spaced key "), TEXT("v")},
        {TEXT("A"), TEXT("comment"), TEXT("1 ; kept")},  {TEXT("A"), TEXT("no equals sign"), TEXT("-")},
        {TEXT("A"), TEXT("empty"), TEXT("")},            {TEXT("A"), TEXT("hidden"), TEXT("-")},
        {TEXT("A"), TEXT("twice"), TEXT("1")},           {TEXT("A"), TEXT("signs"), TEXT("a=b")},
        {TEXT("A"), TEXT("ansi"), TEXT("Stra\u00DFe")},  {TEXT("A"), TEXT("late"), TEXT("-")},
        {TEXT("A"), TEXT("k"), TEXT("-")},               {TEXT("B"), TEXT("k"), TEXT("1")},
        {TEXT("C"), TEXT("k"), TEXT("2")},               {TEXT("E"), TEXT("k"), TEXT("4")},
        // clang-format on
    };
    for (const auto& row : rows) {
        EXPECT_EQ(profile.String(row.section, row.key), row.value);
    }
    EXPECT_EQ(profile.String(TEXT("A"), TEXT("none"), TEXT("blanks go  ")), TEXT("blanks go"));
    EXPECT_EQ(profile.String(TEXT("A"), TEXT("none"), nullptr), TEXT(""));
}

TEST(ProfileContract, NumbersAreReadAsFarAsTheyGo) {
    const Profile profile("[A]\r\nplain=  42  \r\nminus=-1\r\nplus=+7\r\njunk=12ab\r\n"
                          "text=abc\r\nempty=\r\nbig=4294967295\r\nover=4294967296\r\n"
                          "apart=- 5\r\nquoted=\"12\"\r\nzero=010\r\n");
    const struct {
        LPCWSTR key;
        UINT value;
    } rows[] = {
        {TEXT("plain"), 42}, {TEXT("minus"), 4294967295}, {TEXT("plus"), 7},
        {TEXT("junk"), 12},  {TEXT("text"), 0},           {TEXT("empty"), 33},
        {TEXT("none"), 33},  {TEXT("big"), 4294967295},   {TEXT("over"), 0},
        {TEXT("apart"), 0},  {TEXT("quoted"), 12},        {TEXT("zero"), 10},
    };
    for (const auto& row : rows) {
        EXPECT_EQ(GetPrivateProfileIntW(TEXT("A"), row.key, 33, profile.path.c_str()), row.value)
            << static_cast<char>(row.key[0]);
    }
}

TEST(ProfileContract, TextIsCutToTheBuffer) {
    const Profile profile("[A]\r\nten=0123456789\r\n");
    const struct {
        LPCWSTR key, fallback;
        DWORD room;
        Text stored;  // with its terminator, and one character of what was there before
    } rows[] = {
        {TEXT("ten"), TEXT(""), 11, Text(TEXT("0123456789\0#"), 12)},
        {TEXT("ten"), TEXT(""), 10, Text(TEXT("012345678\0#"), 11)},
        {TEXT("ten"), TEXT(""), 1, Text(TEXT("\0#"), 2)},
        {TEXT("none"), TEXT("fallback"), 5, Text(TEXT("fall\0#"), 6)},
    };
    for (const auto& row : rows) {
        Text value(12, TEXT('#'));
        const DWORD length = GetPrivateProfileStringW(TEXT("A"), row.key, row.fallback,
                                                      value.data(), row.room, profile.path.c_str());
        EXPECT_EQ(value.substr(0, length + 2), row.stored) << row.room;
    }
}

TEST(ProfileContract, WritingChangesAddsAndDeletes) {
    const Profile profile("; top\r\n[A]\r\nx=1\r\n; middle\r\ny=2\r\n[B]\r\nz=3");
    EXPECT_TRUE(profile.Write(TEXT("a"), TEXT("X"), TEXT("new")));
    EXPECT_TRUE(profile.Write(TEXT("A"), TEXT("added"), TEXT("C:\\a b\\%02d.ini")));
    EXPECT_TRUE(profile.Write(TEXT("A"), TEXT("y"), nullptr));
    EXPECT_TRUE(profile.Write(TEXT("A"), TEXT("none"), nullptr));
    EXPECT_TRUE(profile.Write(TEXT("N"), TEXT("k"), TEXT("")));
    EXPECT_TRUE(profile.Write(TEXT("N"), TEXT("ansi"), TEXT("\u00DF")));
    EXPECT_EQ(profile.Content(), "; top\r\n[A]\r\nx=new\r\n; middle\r\nadded=C:\\a b\\%02d.ini\r\n"
                                 "[B]\r\nz=3\r\n[N]\r\nk=\r\nansi=\xDF\r\n");
    EXPECT_TRUE(profile.Write(TEXT("A"), nullptr, nullptr));
    EXPECT_TRUE(profile.Write(TEXT("Z"), nullptr, nullptr));
    EXPECT_EQ(profile.Content(), "; top\r\n[B]\r\nz=3\r\n[N]\r\nk=\r\nansi=\xDF\r\n");
    EXPECT_EQ(profile.String(TEXT("N"), TEXT("k")), TEXT(""));
    EXPECT_FALSE(profile.Write(nullptr, TEXT("k"), TEXT("v")));
    EXPECT_FALSE(profile.Write(nullptr, nullptr, nullptr));
}

TEST(ProfileContract, FilesAreMadeWhenThereIsAValueToKeep) {
    const Profile profile("");
    const auto write = [&](LPCWSTR name, LPCWSTR value) {
        const Text path = profile.home.Path(name);
        return ErrorOf(
            [&] { return WritePrivateProfileStringW(TEXT("A"), TEXT("k"), value, path.c_str()); });
    };
    EXPECT_EQ(write(TEXT("none.ini"), nullptr), DWORD{ERROR_SUCCESS});
    EXPECT_FALSE(profile.home.Exists(TEXT("none.ini")));
    EXPECT_EQ(write(TEXT("folder\\new.ini"), TEXT("v")), DWORD{ERROR_PATH_NOT_FOUND});
    EXPECT_EQ(write(TEXT("new.ini"), TEXT("v")), DWORD{ERROR_SUCCESS});
    {
        const platform::FileHandle reader(CreateFileW(profile.home.Path(TEXT("new.ini")).c_str(),
                                                      GENERIC_READ, FILE_SHARE_READ, nullptr,
                                                      OPEN_EXISTING, 0, nullptr));
        EXPECT_EQ(write(TEXT("new.ini"), TEXT("w")), DWORD{ERROR_SHARING_VIOLATION});
    }
    EXPECT_EQ(profile.home.ReadFile(TEXT("new.ini")), "[A]\r\nk=v\r\n");

    // A bare name lies in the Windows folder.
    EXPECT_TRUE(WritePrivateProfileStringW(TEXT("A"), TEXT("k"), TEXT("b"), TEXT("contract.ini")));
    WritePrivateProfileStringW(nullptr, nullptr, nullptr, TEXT("contract.ini"));
    EXPECT_TRUE(
        MoveFileW(TEXT("C:\\Windows\\contract.ini"), profile.home.Path(TEXT("moved.ini")).c_str()));
    EXPECT_EQ(profile.home.ReadFile(TEXT("moved.ini")), "[A]\r\nk=b\r\n");
}

}  // namespace
}  // namespace contract
