#include <cstring>

#include <gtest/gtest.h>

#include "platform/embedded/machine.h"
#include "platform/embedded/spooler.h"
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
    HANDLE next = handles.Insert(std::make_shared<Thing>());
    EXPECT_NE(next, thing);
    EXPECT_EQ(handles.Get<Thing>(thing), nullptr);
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
    const struct {
        const char* what;
        void (*plan)(Faults&);
        const char* failed;
    } rows[] = {
        {"a name's second call", [](Faults& f) { f.FailCall("Second", 2); }, "0001"},
        {"a name from its first call on", [](Faults& f) { f.FailCall("First", 1, true); }, "1010"},
        {"the third call of all", [](Faults& f) { f.FailNthCall(3); }, "0010"},
        {"all from the second on", [](Faults& f) { f.FailNthCall(2, true); }, "0111"},
        {"none", [](Faults& f) { f.Count(); }, "0000"},
    };
    for (const auto& row : rows) {
        row.plan(machine.faults);
        EXPECT_EQ(calls(), row.failed) << row.what;
        EXPECT_EQ(machine.faults.struck(), std::string_view(row.failed) != "0000") << row.what;
        EXPECT_EQ(machine.faults.names(),
                  (std::vector<std::string>{"First", "Second", "First", "Second"}));
    }
    machine.faults.Clear();
    EXPECT_EQ(calls(), "0000");
    EXPECT_TRUE(machine.faults.names().empty());
}

TEST(Machine, CountsWhatIsTakenAndNotGivenBack) {
    Machine machine;
    machine.spooler().AddPrinter({.name = u"Fax", .driverName = u"Fax"});
    const struct {
        const char* what;
        std::function<std::function<void()>()> take;  // answers what gives it back
        Leaks taken;
    } rows[] = {
        {"shared memory and its view",
         [] {
             auto block = std::make_shared<platform::NullableHandle>(CreateFileMappingW(
                 INVALID_HANDLE_VALUE, nullptr, PAGE_READWRITE, 0, 9, TEXT("x")));
             auto view = std::make_shared<platform::MappedView>(
                 MapViewOfFile(block->get(), FILE_MAP_ALL_ACCESS, 0, 0, 0));
             return [=] { view->reset(), block->reset(); };
         },
         {.handles = 1, .views = 1}},
        {"a file",
         [] {
             const HANDLE file = CreateFileW(TEXT("C:\\x"), GENERIC_WRITE, 0, nullptr,
                                             CREATE_ALWAYS, FILE_ATTRIBUTE_NORMAL, nullptr);
             return [=] { CloseHandle(file); };
         },
         {.handles = 1}},
        {"a printer",
         [] {
             HANDLE printer = nullptr;
             WCHAR name[] = TEXT("Fax");
             OpenPrinterW(name, &printer, nullptr);
             return [=] { ClosePrinter(printer); };
         },
         {.handles = 1}},
        {"blocks of both kinds",
         [] {
             const HGLOBAL fixed = GlobalAlloc(GMEM_FIXED, 5);
             const HGLOBAL movable = GlobalAlloc(GMEM_MOVEABLE, 5);
             EXPECT_NE(GlobalLock(movable), movable);
             return [=] { GlobalFree(fixed), GlobalFree(movable); };
         },
         {.globalBlocks = 2}},
        {"a heap",
         [] {
             const HANDLE heap = HeapCreate(0, 1, 0);
             EXPECT_NE(HeapAlloc(heap, HEAP_ZERO_MEMORY, 9), nullptr);
             return [=] { HeapDestroy(heap); };
         },
         {.heaps = 1}},
        {"a module",
         [] {
             const HMODULE module = LoadLibraryW(TEXT("SPOOLSS"));
             return [=] { FreeLibrary(module); };
         },
         {.modules = 1}},
        {"a registry key",
         [] {
             HKEY key = nullptr;
             RegCreateKeyExW(HKEY_CURRENT_USER, TEXT("a\\b"), 0, nullptr, 0, KEY_ALL_ACCESS,
                             nullptr, &key, nullptr);
             return [=] { RegCloseKey(key); };
         },
         {.handles = 1}},
    };
    for (const auto& row : rows) {
        const std::function<void()> giveBack = row.take();
        EXPECT_EQ(machine.OpenNow(), row.taken) << row.what;
        giveBack();
        EXPECT_EQ(machine.OpenNow(), Leaks{}) << row.what;
    }
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
    EXPECT_DEATH(view[-1] = 1, "AddressSanitizer");
    EXPECT_DEATH(view[0] = 1, "AddressSanitizer");
}
#endif

TEST(AnsiCodePage, Japanese) {
    Machine machine({.codePage = 932});
    const struct {
        const char* what;
        std::string_view bytes;
        std::u16string_view text;
        std::string_view written;
    } rows[] = {
        {"hiragana, half-width katakana, backslash, full-width tilde, user-defined",
         "\x82\xA0\xB1\\\x81\x60\xF0\x40", u"\u3042\uFF71\\\uFF5E\uE000",
         "\x82\xA0\xB1\\\x81\x60\xF0\x40"},
        {"of the codes of one character the one that Windows writes",
         "\x87\x90\x81\xE0\xED\x40\xFA\x5C", u"\u2252\u2252\u7E8A\u7E8A",
         "\x81\xE0\x81\xE0\xFA\x5C\xFA\x5C"},
        {"bytes without a character", "\x80\xA0\xFF", u"\u0080\uF8F0\uF8F3", "\x80\xA0\xFF"},
        {"a lead byte that nothing follows", "a\x82", u"a\u30FB", "a\x81\x45"},
    };
    for (const auto& row : rows) {
        EXPECT_EQ(FromAnsi(row.bytes), row.text) << row.what;
        EXPECT_EQ(ToAnsi(row.text), row.written) << row.what;
    }
    EXPECT_EQ(ToAnsi(u"\u00DF\u0E01"), "??");
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
    EXPECT_EQ(GetPrivateProfileIntW(u"\u30BE", u"\u30C2", 0, u"p.ini"), 2u);
}

TEST(AnsiCodePage, AnyOther) {
    Machine machine({.codePage = 1251});
    EXPECT_EQ(FromAnsi("\xC6\xE0"), u"\u0416\u0430");
    EXPECT_EQ(ToAnsi(u"\u0416\u0430\u00FC"), "\xC6\xE0?");
}

}  // namespace
}  // namespace embedded
