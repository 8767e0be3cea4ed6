#include <gtest/gtest.h>

#include "tests/platform/home.h"

namespace contract {
namespace {

const Text kName = TEXT("contract.ini");

class ProfileContract : public testing::Test {
  protected:
    // Bytes written behind the profile service's back, which remembers files.
    void Fill(const std::string& bytes) {
        home_.WriteFile(kName, bytes);
        Flush();
    }
    void Flush() { WritePrivateProfileStringW(nullptr, nullptr, nullptr, file_.c_str()); }

    Text Read(LPCWSTR section, LPCWSTR key, DWORD room = 100) {
        WCHAR value[100];
        std::fill(value, value + 100, L'#');
        const DWORD length =
            GetPrivateProfileStringW(section, key, TEXT("(absent)"), value, room, file_.c_str());
        EXPECT_EQ(length, Text(value).size());
        return value;
    }

    Home home_;
    Text file_ = home_.Path(kName);
};

TEST_F(ProfileContract, ValuesAreTrimmedUnquotedAndFoundWithoutLetterCase) {
    Fill("; a comment\r\n"
         "stray=0\r\n"
         "[Data]\r\n"
         "plain=C:\\Fax\\data\r\n"
         "  padded \t=\t a b \t\r\n"
         "quoted=\" kept \"\r\n"
         "single=' kept '\r\n"
         "half=\"open\r\n"
         "equals=a=b\r\n"
         "empty=\r\n"
         ";hidden=1\r\n"
         "twice=first\r\n"
         "TWICE=second\r\n"
         "ansi=Stra\xDF" "e\r\n"
         "[Other]\n"
         "plain=lines end in a line feed alone\n"
         "last=no line end");
    struct Row {
        LPCWSTR section, key, value;
    };
    const Row rows[] = {
        {TEXT("Data"), TEXT("plain"), TEXT("C:\\Fax\\data")},
        {TEXT("dATA"), TEXT("PLAIN"), TEXT("C:\\Fax\\data")},
        {TEXT("Data"), TEXT("padded"), TEXT("a b")},
        {TEXT("Data"), TEXT("quoted"), TEXT(" kept ")},
        {TEXT("Data"), TEXT("single"), TEXT(" kept ")},
        {TEXT("Data"), TEXT("half"), TEXT("\"open")},
        {TEXT("Data"), TEXT("equals"), TEXT("a=b")},
        {TEXT("Data"), TEXT("empty"), TEXT("")},
        {TEXT("Data"), TEXT("hidden"), TEXT("(absent)")},
        {TEXT("Data"), TEXT("twice"), TEXT("first")},
        {TEXT("Data"), TEXT("ansi"), TEXT("Stra\u00DFe")},
        {TEXT("Data"), TEXT("last"), TEXT("(absent)")},
        {TEXT("Other"), TEXT("plain"), TEXT("lines end in a line feed alone")},
        {TEXT("Other"), TEXT("last"), TEXT("no line end")},
        {TEXT("None"), TEXT("plain"), TEXT("(absent)")},
    };
    for (const Row& row : rows) {
        EXPECT_EQ(Read(row.section, row.key), row.value) << testing::PrintToString(row.key);
    }
}

TEST_F(ProfileContract, LongValueIsCutAndTerminated) {
    Fill("[Data]\r\nlong=abcdefghij\r\n");
    EXPECT_EQ(Read(TEXT("Data"), TEXT("long"), 11), TEXT("abcdefghij"));
    EXPECT_EQ(Read(TEXT("Data"), TEXT("long"), 10), TEXT("abcdefghi"));
    EXPECT_EQ(Read(TEXT("Data"), TEXT("long"), 1), TEXT(""));
}

TEST_F(ProfileContract, NumbersAreReadUpToTheFirstOtherCharacter) {
    struct Row {
        const char* value;
        UINT number;
    };
    const Row rows[] = {
        {"12", 12},         {"+12", 12},
        {"-1", 4294967295}, {"-65000", UINT(-65000)},
        {"12abc", 12},      {"12 34", 12},
        {"abc", 0},         {"65586", 65586},
        {"\"12\"", 12},     {"4294967295", 4294967295},
    };
    for (const Row& row : rows) {
        Fill(std::string("[Data]\r\nnumber=") + row.value + "\r\n");
        EXPECT_EQ(GetPrivateProfileIntW(TEXT("Data"), TEXT("number"), 77, file_.c_str()),
                  row.number)
            << row.value;
    }
    EXPECT_EQ(GetPrivateProfileIntW(TEXT("Data"), TEXT("none"), 77, file_.c_str()), 77u);
}

TEST_F(ProfileContract, WritingKeepsOrderCommentsAndTheKeysSpelling) {
    Fill("; top\r\n[Data]\r\nfirst=1\r\n; between\r\nSecond=2\r\nthird=3\r\n[Other]\r\nx=y\r\n");
    const auto write = [&](LPCWSTR section, LPCWSTR key, LPCWSTR value) {
        EXPECT_TRUE(WritePrivateProfileStringW(section, key, value, file_.c_str()));
    };
    write(TEXT("data"), TEXT("SECOND"), TEXT("two"));
    write(TEXT("Data"), TEXT("first"), nullptr);
    write(TEXT("Data"), TEXT("never was"), nullptr);
    write(TEXT("Data"), TEXT("emptied"), TEXT(""));
    write(TEXT("New"), TEXT("key"), TEXT("\u00DF"));
    Flush();
    EXPECT_EQ(home_.ReadFile(kName),
              "; top\r\n[Data]\r\n; between\r\nSecond=two\r\nthird=3\r\nemptied=\r\n"
              "[Other]\r\nx=y\r\n[New]\r\nkey=\xDF\r\n");
    EXPECT_EQ(Read(TEXT("Data"), TEXT("emptied")), TEXT(""));
    EXPECT_EQ(Read(TEXT("Data"), TEXT("first")), TEXT("(absent)"));
}

TEST_F(ProfileContract, FirstWriteMakesTheFileAndBareNamesLieInTheWindowsFolder) {
    EXPECT_TRUE(WritePrivateProfileStringW(TEXT("A"), TEXT("b"), TEXT("c"), file_.c_str()));
    Flush();
    EXPECT_EQ(home_.ReadFile(kName), "[A]\r\nb=c\r\n");

    EXPECT_TRUE(WritePrivateProfileStringW(TEXT("A"), TEXT("b"), TEXT("c"), kName.c_str()));
    WritePrivateProfileStringW(nullptr, nullptr, nullptr, kName.c_str());
    WCHAR windows[MAX_PATH];
    GetWindowsDirectoryW(windows, MAX_PATH);
    const Text found = Text(windows) + TEXT("\\") + kName;
    EXPECT_TRUE(MoveFileW(found.c_str(), home_.Path(TEXT("moved.ini")).c_str()));
    EXPECT_EQ(home_.ReadFile(TEXT("moved.ini")), "[A]\r\nb=c\r\n");
}

}  // namespace
}  // namespace contract
