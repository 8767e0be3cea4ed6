#include <gtest/gtest.h>

#include "platform/embedded/machine.h"
#include "platform/embedded/text.h"
#include "platform/owned.h"

namespace embedded {
namespace {

struct Thing : Object {};
struct OtherThing : Object {};

TEST(HandleTable, TellsKindsApartAndRefusesStaleHandles) {
    HandleTable handles;
    HANDLE thing = handles.Insert(std::make_shared<Thing>());
    EXPECT_NE(handles.Get<Thing>(thing), nullptr);
    EXPECT_EQ(handles.Get<OtherThing>(thing), nullptr);
    EXPECT_FALSE(handles.Close<OtherThing>(thing));
    EXPECT_TRUE(handles.Close(thing));
    EXPECT_NE(handles.Insert(std::make_shared<Thing>()), thing);
    EXPECT_FALSE(handles.Close(thing));
    EXPECT_EQ(handles.CountOpen(), 1u);
}

TEST(Faults, FailTheCallThatIsMeant) {
    Machine machine;
    const auto calls = [] {
        std::string failed;
        for (const char* call : {"First", "Second", "First", "Second"}) {
            failed += Fails(call) ? '1' : '0';
        }
        return failed;
    };
    machine.faults.FailCall("Second", 2);
    EXPECT_EQ(calls(), "0001");
    machine.faults.FailCall("First", 1, true);
    EXPECT_EQ(calls(), "1010");
    machine.faults.FailNthCall(3);
    EXPECT_EQ(calls(), "0010");
    EXPECT_TRUE(machine.faults.struck());
    machine.faults.FailNthCall(2, true);
    EXPECT_EQ(calls(), "0111");
    machine.faults.Count();
    EXPECT_EQ(calls(), "0000");
    EXPECT_FALSE(machine.faults.struck());
    EXPECT_EQ(machine.faults.names(),
              (std::vector<std::string>{"First", "Second", "First", "Second"}));
}

TEST(Machine, CountsWhatIsTakenAndNotGivenBack) {
    Machine machine;
    {
        const platform::NullableHandle block(
            CreateFileMappingW(INVALID_HANDLE_VALUE, nullptr, PAGE_READWRITE, 0, 9, nullptr));
        const platform::MappedView view(MapViewOfFile(block.get(), FILE_MAP_READ, 0, 0, 0));
        const platform::GlobalBlock fixed(GlobalAlloc(GMEM_FIXED, 5));
        const platform::GlobalBlock movable(GlobalAlloc(GMEM_MOVEABLE, 5));
        const platform::LoadedModule module(LoadLibraryW(TEXT("SPOOLSS")));
        const platform::PrivateHeap heap(HeapCreate(0, 1, 0));
        EXPECT_NE(GlobalLock(movable.get()), movable.get());
        EXPECT_NE(HeapAlloc(heap.get(), HEAP_ZERO_MEMORY, 9), nullptr);
        EXPECT_EQ(machine.OpenNow(),
                  (Leaks{.handles = 1, .views = 1, .globalBlocks = 2, .heaps = 1, .modules = 1}));
    }
    EXPECT_EQ(machine.OpenNow(), Leaks{});
}

#ifdef __SANITIZE_ADDRESS__
TEST(MachineDeathTest, OverrunsAreCaught) {
    Machine machine;
    const platform::GlobalBlock memory(GlobalAlloc(GMEM_FIXED, 5));
    auto* block = static_cast<volatile BYTE*>(memory.get());
    EXPECT_DEATH(block[5] = 1, "AddressSanitizer");
    EXPECT_DEATH(block[-1] = 1, "AddressSanitizer");
    const platform::NullableHandle shared(
        CreateFileMappingW(INVALID_HANDLE_VALUE, nullptr, PAGE_READWRITE, 0, 9, nullptr));
    const platform::MappedView mapped(MapViewOfFile(shared.get(), FILE_MAP_READ, 0, 0, 0));
    auto* view = static_cast<volatile BYTE*>(mapped.get());
    EXPECT_DEATH(view[4096] = 1, "AddressSanitizer");
}
#endif

TEST(AnsiCodePage, Japanese) {
    Machine machine({.codePage = 932});
    const struct {
        std::string_view bytes;
        std::u16string_view text;
        std::string_view written;
    } rows[] = {
        // Hiragana, half-width katakana, backslash, full-width tilde, user-defined.
        {"\x82\xA0\xB1\\\x81\x60\xF0\x40", u"\u3042\uFF71\\\uFF5E\uE000",
         "\x82\xA0\xB1\\\x81\x60\xF0\x40"},
        // Of the codes that stand for one character, the one that Windows writes.
        {"\x87\x90\xED\x40", u"\u2252\u7E8A", "\x81\xE0\xFA\x5C"},
        {"\x80\xA0\xFF", u"\u0080\uF8F0\uF8F3", "\x80\xA0\xFF"},
        {"a\x82", u"a\u30FB", "a\x81\x45"},
    };
    for (const auto& row : rows) {
        EXPECT_EQ(FromAnsi(row.bytes), row.text);
        EXPECT_EQ(ToAnsi(row.text), row.written);
    }
    char bytes[] = "xxx";
    ULONG stored = 0;
    RtlUnicodeToMultiByteN(bytes, 3, &stored, u"\u3042\u3044", 4);
    EXPECT_EQ(stored, 2u) << "no half of a character";
    EXPECT_STREQ(bytes, "\x82\xA0x");
    // In a profile, second bytes are no letters and no brackets: 5D is one, and 41 and 61 differ
    // as A and a do.
    WritePrivateProfileStringW(u"\u30BE", u"\u30A2", u"1", u"p.ini");
    WritePrivateProfileStringW(u"\u30BE", u"\u30C2", u"2", u"p.ini");
    EXPECT_EQ(GetPrivateProfileIntW(u"\u30BE", u"\u30A2", 0, u"p.ini"), 1u);
}

TEST(AnsiCodePage, AnyOther) {
    Machine machine({.codePage = 1251});
    EXPECT_EQ(FromAnsi("\xC6\xE0"), u"\u0416\u0430");
    EXPECT_EQ(ToAnsi(u"\u0416\u0430\u00FC"), "\xC6\xE0?");
}

}  // namespace
}  // namespace embedded
