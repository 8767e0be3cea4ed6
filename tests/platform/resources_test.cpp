#include <cstring>

#include <gtest/gtest.h>

#include "platform/embedded/modules.h"
#include "platform/embedded/resources.h"
#include "platform/windows_api.h"
#include "tests/platform/resource_file.h"

namespace embedded {
namespace {

constexpr char16_t kPath[] = u"C:\\Windows\\System32\\TEXTS.DLL";

std::string Text(std::span<const std::byte> bytes) {
    return {reinterpret_cast<const char*>(bytes.data()), bytes.size()};
}

using namespace std::string_view_literals;

TEST(Resources, FindsByTypeAndNumber) {
    Machine machine;
    ResourceFile file;
    file.Add({'T', 'Y', 'P', 'E', 0, 0xFFFF, 1}, "named type");
    file.Add({0xFFFF, 258, 0xFFFF, 80}, "font");
    file.Add({0xFFFF, 258, 'X', 0}, "named");
    file.Add({0xFFFF, 2, 0xFFFF, 80}, "");
    machine.modules().Install({kPath, {}, file.bytes});
    const HMODULE module = LoadLibraryW(kPath);
    EXPECT_EQ(Text(machine.resources().Find(module, 258, 80)), "font");
    EXPECT_EQ(machine.resources().Find(module, 258, 81).data(), nullptr);
    EXPECT_EQ(machine.resources().Find(module, 1, 80).data(), nullptr);
    EXPECT_NE(machine.resources().Find(module, 2, 80).data(), nullptr);
    FreeLibrary(module);
    EXPECT_EQ(machine.resources().Find(module, 258, 80).data(), nullptr);

    // Another file under the same path is another module.
    ResourceFile other;
    other.Add({0xFFFF, 258, 0xFFFF, 80}, "other");
    machine.modules().Install({kPath, {}, other.bytes});
    EXPECT_EQ(Text(machine.resources().Find(LoadLibraryW(kPath), 258, 80)), "other");
}

TEST(LoadString, CutsTerminatesAndTellsWhatIsMissing) {
    Machine machine;
    ResourceFile file;
    // Numbers 32 to 34: "one", an empty one, and U+00FC; the rest of the table is cut off.
    file.Add({0xFFFF, 6, 0xFFFF, 3}, "\3\0o\0n\0e\0\0\0\1\0\xFC\0"sv);
    machine.modules().Install({kPath, {}, file.bytes});
    const HMODULE module = LoadLibraryW(kPath);
    char16_t text[8] = u"#######";
    EXPECT_EQ(LoadStringW(module, 32, text, 8), 3);
    EXPECT_EQ(std::u16string(text), u"one");
    EXPECT_EQ(LoadStringW(module, 32, text, 3), 2);
    EXPECT_EQ(std::u16string(text), u"on");
    EXPECT_EQ(LoadStringW(module, 34, text, 8), 1);
    EXPECT_EQ(std::u16string(text), u"\u00FC");
    EXPECT_EQ(LoadStringW(module, 33, text, 8), 0);
    EXPECT_EQ(text[0], 0);
    EXPECT_EQ(LoadStringW(module, 35, text, 8), 0);
    SetLastError(0);
    EXPECT_EQ(LoadStringW(module, 48, text, 8), 0);
    EXPECT_EQ(GetLastError(), ERROR_RESOURCE_NAME_NOT_FOUND);
    char narrow[4];
    EXPECT_EQ(LoadStringA(module, 34, narrow, 4), 1);
    EXPECT_STREQ(narrow, "\xFC");
    EXPECT_EQ(LoadStringA(module, 32, narrow, 3), 2);
    EXPECT_STREQ(narrow, "on");
}

TEST(Resources, ReadDamagedFilesAsFarAsTheyGo) {
    ResourceFile whole;
    whole.Add({0xFFFF, 258, 0xFFFF, 1}, "first");
    const size_t firstEnd = whole.bytes.size();
    whole.Add({0xFFFF, 258, 'N', 'A', 'M', 'E', 0, 0}, "second");
    // Cut at every length, each time in a block of its own so that reading past it is caught.
    for (size_t length = 0; length <= whole.bytes.size(); ++length) {
        Machine machine;
        const std::vector<std::byte> cut(whole.bytes.begin(), whole.bytes.begin() + length);
        machine.modules().Install({kPath, {}, cut});
        const HMODULE module = LoadLibraryW(kPath);
        const bool readable = length + 3 >= firstEnd;  // the padding may be missing
        EXPECT_EQ(Text(machine.resources().Find(module, 258, 1)), readable ? "first" : "")
            << length;
    }
    // Sizes and identities of any value.
    for (size_t offset = 32; offset < whole.bytes.size(); ++offset) {
        Machine machine;
        std::vector<std::byte> damaged = whole.bytes;
        damaged[offset] = std::byte{0xFF};
        machine.modules().Install({kPath, {}, damaged});
        const auto found = machine.resources().Find(LoadLibraryW(kPath), 258, 1);
        EXPECT_LE(found.size(), damaged.size());
        EXPECT_GE(Text(found).size(), 0u);
    }
}

}  // namespace
}  // namespace embedded
