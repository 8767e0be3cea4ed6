#include <fcntl.h>
#include <fstream>
#include <thread>
#include <unistd.h>

#include <gtest/gtest.h>

#include "platform/embedded/api_kernel.h"
#include "platform/embedded/files.h"
#include "platform/embedded/profiles.h"

namespace embedded {
namespace {

// KSFAXJOB.INI of a machine, seen from the host.
class ProfilesTest : public testing::Test {
  protected:
    explicit ProfilesTest(UINT codePage = 1252) : machine({.codePage = codePage}) {}

    void Fill(std::string_view bytes) { std::ofstream(path, std::ios::binary) << bytes; }
    std::string Content() const {
        std::ifstream file(path, std::ios::binary);
        return {std::istreambuf_iterator<char>(file), {}};
    }
    std::u16string Read(std::u16string_view section, std::u16string_view key) const {
        return machine.profiles().Read(section, key, u"KSFAXJOB.INI").value_or(u"-");
    }
    bool Write(LPCWSTR section, LPCWSTR key, LPCWSTR value) {
        return WritePrivateProfileStringW(section, key, value, u"ksfaxjob.ini") != FALSE;
    }

    mutable Machine machine;
    const std::filesystem::path path = machine.driveC() / "Windows" / "KSFAXJOB.INI";
};

TEST_F(ProfilesTest, ChangesOneLineAndLeavesEveryOtherByte) {
    Fill("junk \x81\xFF before\n\n; first\r\n[ Data ] ; rest\nKey = old ; not a comment\n"
         "\tOther=1\n\n\n;last\n  [Next]\nk=1");
    EXPECT_TRUE(Write(u"DATA", u"KEY", u"new"));
    EXPECT_TRUE(Write(u"data", u" added ", u" x "));
    EXPECT_TRUE(Write(u"Next", u"k2", u"2"));
    EXPECT_EQ(Content(), "junk \x81\xFF before\n\n; first\r\n[ Data ] ; rest\nKey =new\r\n"
                         "\tOther=1\n\n\n;last\nadded= x \r\n  [Next]\nk=1\r\nk2=2\r\n");
    // A new key stands behind the last line that is not blank.
    Fill("[A]\r\nx=1\r\n\r\n\r\n[B]\r\n");
    EXPECT_TRUE(Write(u"A", u"y", u"2"));
    EXPECT_TRUE(Write(u"B", u"z", u"3"));
    EXPECT_EQ(Content(), "[A]\r\nx=1\r\ny=2\r\n\r\n\r\n[B]\r\nz=3\r\n");
    EXPECT_TRUE(Write(u"B", nullptr, nullptr));
    EXPECT_TRUE(Write(u"A", u"X", nullptr));
    EXPECT_EQ(Content(), "[A]\r\ny=2\r\n\r\n\r\n");
}

TEST_F(ProfilesTest, SeesTheFileAsOthersLeaveIt) {
    EXPECT_EQ(Read(u"A", u"k"), u"-");
    Fill("[A]\r\nk=1\r\n");
    EXPECT_EQ(Read(u"A", u"k"), u"1");
    // The same size within the same tick of the host's clock.
    Fill("[A]\r\nk=2\r\n");
    EXPECT_EQ(Read(u"A", u"k"), u"2");
    EXPECT_EQ(machine.profiles().Sections(u"KSFAXJOB.INI"), std::vector<std::u16string>{u"A"});
    std::filesystem::remove(path);
    EXPECT_EQ(Read(u"A", u"k"), u"-");
    EXPECT_EQ(GetLastError(), ERROR_FILE_NOT_FOUND);
}

TEST_F(ProfilesTest, LosesNoChangeAmongThreads) {
    constexpr int kThreads = 4;
    constexpr int kKeys = 25;
    std::vector<std::thread> threads;
    for (int t = 0; t < kThreads; ++t) {
        threads.emplace_back([t, this] {
            for (int k = 0; k < kKeys; ++k) {
                const std::u16string key = {u'k', static_cast<char16_t>(u'a' + t),
                                            static_cast<char16_t>(u'a' + k)};
                EXPECT_TRUE(Write(u"DIALLIST", key.c_str(), u"1"));
            }
        });
    }
    for (std::thread& thread : threads) {
        thread.join();
    }
    EXPECT_EQ(machine.profiles().Keys(u"DIALLIST", u"KSFAXJOB.INI").size(),
              size_t{kThreads * kKeys});
}

TEST_F(ProfilesTest, WaitsForAnotherProcessToFinishItsChange) {
    Fill("[A]\r\nk=half");
    const int other = open(path.c_str(), O_RDWR | O_CLOEXEC);
    struct flock lock = {};
    lock.l_type = F_WRLCK;
    ASSERT_EQ(fcntl(other, F_OFD_SETLK, &lock), 0);
    std::thread finisher([&] {
        ASSERT_EQ(pwrite(other, "[A]\r\nk=whole\r\n", 14, 0), 14);
        close(other);
    });
    const std::u16string seen = Read(u"A", u"k");
    finisher.join();
    EXPECT_EQ(seen, u"whole");
}

TEST_F(ProfilesTest, KeepsUtf16FilesInUtf16) {
    const auto utf16 = [](std::u16string_view text) {
        return "\xFF\xFE" +
               std::string(reinterpret_cast<const char*>(text.data()), text.size() * 2);
    };
    Fill(utf16(u"[Daten]\r\n\u00DCber=\"\u3042 \"\r\nb=2\r\n"));
    EXPECT_EQ(Read(u"daten", u"\u00FCBER"), u"\u3042 ");
    EXPECT_TRUE(Write(u"Daten", u"\u00FCber", u"\u0416"));
    EXPECT_TRUE(Write(u"Daten", u"b", nullptr));
    EXPECT_EQ(Content(), utf16(u"[Daten]\r\n\u00DCber=\u0416\r\n"));
}

class JapaneseProfilesTest : public ProfilesTest {
  protected:
    JapaneseProfilesTest() : ProfilesTest(932) {}
};

TEST_F(JapaneseProfilesTest, SecondBytesAreNoLettersAndNoBrackets) {
    // 83 5D is U+30BE, whose second byte is a closing bracket; 83 41 is U+30A2 and 83 61 is
    // U+30C2, whose second bytes differ as A and a do.
    Fill("[\x83\x5D]\r\n\x83\x41=1\r\n\x83\x61=2\r\n");
    EXPECT_EQ(Read(u"\u30BE", u"\u30C2"), u"2");
    EXPECT_EQ(Read(u"\u30BE", u"\u30A2"), u"1");
    EXPECT_TRUE(Write(u"\u30BE", u"\u30C2", u"\u30BD"));  // 83 5C, a backslash
    EXPECT_EQ(Content(), "[\x83\x5D]\r\n\x83\x41=1\r\n\x83\x61=\x83\x5C\r\n");
}

}  // namespace
}  // namespace embedded
