#include <array>
#include <cstring>
#include <optional>
#include <vector>

#include <gtest/gtest.h>

#include "platform/embedded/modules.h"

#include "core/module_state.h"
#include "core/printer_data.h"
#include "description/printer_description.h"
#include "tests/core/fax_machine.h"
#include "tests/resource_file.h"

namespace ksfax {
namespace {

class PrinterDataTest : public testing::Test {
  protected:
    PrinterDataTest() : printer(fax.Open(FaxMachine::kPrinter, true)) {}

    // The record as readers get it.
    PrinterDataRecord Read() {
        const DescriptionUse description(AcquireDescription(printer.get(), true));
        const platform::GlobalBlock block = GetPrinterDataRecord(printer.get(), *description.get());
        PrinterDataRecord record = {};
        EXPECT_TRUE(block);
        if (block) {
            EXPECT_EQ(GlobalSize(block.get()), sizeof(record));
            std::memcpy(&record, block.get(), sizeof(record));
        }
        return record;
    }
    bool Save() {
        const DescriptionUse description(AcquireDescription(printer.get(), true));
        return SavePrinterDataRecord(printer.get(), *description.get());
    }

    FaxMachine fax;
    platform::PrinterHandle printer;
};

TEST_F(PrinterDataTest, ReadsBlocksOfHonestAndLyingSizes) {
    const Bytes five = BytesOf("abcde", 5);
    const Bytes seven = BytesOf("abcde\0", 7);
    const struct {
        const char* what;
        std::optional<Bytes> size;
        std::optional<Bytes> data;
        std::optional<Bytes> expected;
    } rows[] = {
        {"as stored", BytesOf("\5\0\0", 4), five, five},
        {"size above the data", BytesOf("\7\0\0", 4), five, seven},
        {"size below the data", BytesOf("\4\0\0", 4), five, std::nullopt},
        {"no size", std::nullopt, five, std::nullopt},
        {"size 0", BytesOf("\0\0\0", 4), five, std::nullopt},
        {"size of two bytes", BytesOf("\5", 2), five, std::nullopt},
        {"size of eight bytes", BytesOf("\5\0\0\0\0\0\0", 8), five, std::nullopt},
        {"size above 16 MiB", BytesOf("\1\0\0\1", 4), five, std::nullopt},
        {"size beyond memory", BytesOf("\xff\xff\xff\xff", 4), five, std::nullopt},
        {"no data", BytesOf("\5\0\0", 4), std::nullopt, std::nullopt},
    };
    for (const auto& row : rows) {
        fax.Forget(u"TrayFormSize");
        fax.Forget(u"TrayFormTable");
        if (row.size) {
            fax.Store(u"TrayFormSize", *row.size);
        }
        if (row.data) {
            fax.Store(u"TrayFormTable", *row.data);
        }
        DWORD length = 99;
        const platform::GlobalBlock block =
            ReadPrinterBlock(printer.get(), &length, BlockKind::TrayForms);
        ASSERT_EQ(static_cast<bool>(block), row.expected.has_value()) << row.what;
        EXPECT_EQ(length, row.expected ? row.expected->size() : 0u) << row.what;
        if (block) {
            EXPECT_EQ(BytesOf(block.get(), length), *row.expected) << row.what;
            EXPECT_TRUE(ReadPrinterBlock(printer.get(), nullptr, BlockKind::TrayForms));
        }
    }
}

TEST_F(PrinterDataTest, WritesTheSizeFirstAndTheDataOnlyAfterIt) {
    EXPECT_TRUE(WritePrinterBlock(printer.get(), "abcde", 5, BlockKind::FontSubstitution));
    EXPECT_EQ(fax.Stored(u"TTFontSubTableSize"), BytesOf("\5\0\0", 4));
    EXPECT_EQ(fax.Stored(u"TTFontSubTable"), BytesOf("abcde", 5));
    const auto type =
        fax.machine.spooler().PrinterData(FaxMachine::kPrinter, u"TTFontSubTableSize")->type;
    EXPECT_EQ(type, REG_DWORD);

    fax.machine.faults.FailCall("SetPrinterDataW", 1);
    EXPECT_FALSE(WritePrinterBlock(printer.get(), "xy", 2, BlockKind::FontSubstitution));
    EXPECT_EQ(fax.Stored(u"TTFontSubTableSize"), BytesOf("\5\0\0", 4));
    EXPECT_EQ(fax.Stored(u"TTFontSubTable"), BytesOf("abcde", 5));
    fax.machine.faults.FailCall("SetPrinterDataW", 2);
    EXPECT_FALSE(WritePrinterBlock(printer.get(), "xy", 2, BlockKind::FontSubstitution));
    EXPECT_EQ(fax.Stored(u"TTFontSubTable"), BytesOf("abcde", 5));
    EXPECT_EQ(fax.StoredNumber(u"TTFontSubTableSize"), 5u) << "put back";
}

TEST_F(PrinterDataTest, MakesTheDefaultsOfTheDescription) {
    PrinterDataRecord expected = {};
    expected.version = 260;
    expected.size = 108;
    expected.deviceFlags = 0;
    expected.memoryBytes = 4194304;
    expected.jobTimeout = 30;
    expected.waitTimeout = 90;
    expected.descriptionChecksum = fax.Checksum();
    expected.installableCount = 3;
    // Both trays are installed by default, which the constraints forbid: the upper one yields.
    expected.installableSelections[0] = 0;
    expected.installableSelections[1] = 0;
    expected.installableSelections[2] = 1;
    const PrinterDataRecord record = Read();
    EXPECT_EQ(BytesOf(&record, sizeof(record)), BytesOf(&expected, sizeof(expected)));
    EXPECT_NE(record.descriptionChecksum, 0);
}

TEST_F(PrinterDataTest, HeedsWhatTheAdministratorSet) {
    const struct {
        DWORD kilobytes;
        uint32_t bytes;
    } rows[] = {{0, 102400},     {50, 102400},          {100, 102400},  {101, 103424},
                {4096, 4194304}, {4194303, 4294966272}, {4194304, ~0u}, {0xFFFFFFFF, 0xFFFFFFFF}};
    for (const auto& row : rows) {
        fax.Store(u"FreeMem", row.kilobytes);
        EXPECT_EQ(Read().memoryBytes, row.bytes) << row.kilobytes;
    }
    fax.Store(u"FreeMem", BytesOf("\1", 2));
    EXPECT_EQ(Read().memoryBytes, 4194304u) << "not a number of four bytes";
    fax.Store(u"PrinterHT", 0);
    EXPECT_EQ(Read().deviceFlags, 0u);
    fax.Store(u"PrinterHT", 7);
    EXPECT_EQ(Read().deviceFlags, kPrinterHalftone);
}

TEST(BuildDefaultPrinterData, SaysWhereTheUserIs) {
    const struct {
        UINT country;
        UINT codePage;
        uint32_t flags;
    } rows[] = {{1, 1252, 0}, {49, 1252, kMetricLocale}, {81, 932, kMetricLocale | kOtherCodePage}};
    for (const auto& row : rows) {
        FaxMachine fax({.driveC = {}, .codePage = row.codePage, .country = row.country});
        const platform::PrinterHandle printer = fax.Open();
        const DescriptionUse description(AcquireDescription(printer.get(), true));
        const platform::GlobalBlock block =
            BuildDefaultPrinterData(printer.get(), *description.get());
        ASSERT_TRUE(block);
        EXPECT_EQ(static_cast<PrinterDataRecord*>(block.get())->deviceFlags, row.flags)
            << row.country;
    }
}

TEST_F(PrinterDataTest, KeepsAStoredRecordOfTheSameDescription) {
    PrinterDataRecord record;
    std::memset(&record, 0x5A, sizeof(record));
    record.descriptionChecksum = fax.Checksum();
    fax.StoreDeviceRecord(record);
    const PrinterDataRecord read = Read();
    EXPECT_EQ(BytesOf(&read, sizeof(read)), BytesOf(&record, sizeof(record)));
}

TEST_F(PrinterDataTest, MakesSelectionsOfAnotherDescriptionAnew) {
    PrinterDataRecord record = fax.DeviceRecord();
    record.descriptionChecksum = static_cast<uint16_t>(fax.Checksum() + 1);
    record.installableCount = 9;
    record.installableSelections[2] = 5;
    fax.StoreDeviceRecord(record);
    const PrinterDataRecord read = Read();
    EXPECT_EQ(read.descriptionChecksum, fax.Checksum());
    EXPECT_EQ(read.installableCount, 3);
    EXPECT_EQ(read.installableSelections[2], 1);
    EXPECT_EQ(read.memoryBytes, 77u);
    EXPECT_EQ(fax.StoredDeviceRecord().installableCount, 9) << "reading does not store";
}

TEST_F(PrinterDataTest, TakesStoredBytesOfAnyLength) {
    PrinterDataRecord record;
    std::memset(&record, 0x5A, sizeof(record));
    record.descriptionChecksum = fax.Checksum();
    for (const size_t length : {size_t{1}, size_t{42}, size_t{50}, size_t{107}}) {
        fax.StoreDeviceRecord(record, length);
        PrinterDataRecord expected = {};
        std::memcpy(&expected, &record, length);
        if (length < 42) {  // the checksum is not among them
            expected.descriptionChecksum = fax.Checksum();
            expected.installableCount = 3;
            expected.installableSelections[2] = 1;
        }
        const PrinterDataRecord read = Read();
        EXPECT_EQ(BytesOf(&read, sizeof(read)), BytesOf(&expected, sizeof(expected))) << length;
    }
    Bytes longer = BytesOf(&record, sizeof(record));
    longer.resize(5000, std::byte{0x77});
    fax.Store(u"PrinterDataSize", DWORD{5000});
    fax.Store(u"PrinterData", longer);
    const PrinterDataRecord read = Read();
    EXPECT_EQ(BytesOf(&read, sizeof(read)), BytesOf(&record, sizeof(record)));
}

TEST_F(PrinterDataTest, SavesAnOlderRecordInTheCurrentVersion) {
    PrinterDataRecord record;
    std::memset(&record, 0x5A, sizeof(record));
    record.version = 259;
    record.size = 100;
    record.descriptionChecksum = fax.Checksum();
    fax.StoreDeviceRecord(record, 100);
    ASSERT_TRUE(Save());
    PrinterDataRecord expected = record;
    expected.version = 260;
    expected.size = 108;
    expected.languageIndex = 0;
    std::memset(expected.installableSelections + 56, 0, 8);
    PrinterDataRecord stored = fax.StoredDeviceRecord();
    EXPECT_EQ(BytesOf(&stored, sizeof(stored)), BytesOf(&expected, sizeof(expected)));
    EXPECT_EQ(fax.Stored(u"PrinterDataSize"), BytesOf("\x6c\0\0", 4));

    // Selections made anew come first, so that an older record's size cuts those too.
    record.size = 46;
    record.descriptionChecksum ^= 1;
    fax.StoreDeviceRecord(record);
    ASSERT_TRUE(Save());
    stored = fax.StoredDeviceRecord();
    EXPECT_EQ(stored.descriptionChecksum, fax.Checksum());
    EXPECT_EQ(stored.installableCount, 3);
    EXPECT_EQ(stored.installableSelections[1], 0);
    EXPECT_EQ(stored.installableSelections[2], 0);

    // A record of this version or a later one keeps its version and size, whatever they are.
    for (const uint16_t version : {260, 300}) {
        record.version = version;
        record.size = 9000;
        fax.StoreDeviceRecord(record);
        ASSERT_TRUE(Save());
        EXPECT_EQ(fax.StoredDeviceRecord().version, version);
        EXPECT_EQ(fax.StoredDeviceRecord().size, 9000);
    }
}

TEST_F(PrinterDataTest, CountsARecordAsSavedWhetherOrNotTheSpoolerTakesIt) {
    fax.machine.faults.FailCall("SetPrinterDataW", 1, true);
    EXPECT_TRUE(Save());
    EXPECT_TRUE(fax.machine.faults.struck());
    fax.machine.faults.Clear();
    EXPECT_EQ(fax.Stored(u"PrinterData"), std::nullopt);
}

TEST_F(PrinterDataTest, SavesNothingWhenMemoryRunsOut) {
    const DescriptionUse description(AcquireDescription(printer.get(), true));
    // The default record; the stored block; the copy of it.
    for (const auto& [isStored, nth] : {std::pair(false, 1u), {true, 1u}, {true, 2u}}) {
        if (isStored) {
            fax.StoreDeviceRecord(fax.DeviceRecord());
        }
        const auto before = fax.Stored(u"PrinterData");
        fax.machine.faults.FailCall("GlobalAlloc", nth);
        EXPECT_FALSE(SavePrinterDataRecord(printer.get(), *description.get())) << nth;
        fax.machine.faults.Clear();
        EXPECT_EQ(fax.Stored(u"PrinterData"), before) << nth;
    }
}

TEST_F(PrinterDataTest, FindsTheDescriptionsLanguageAmongTheModulesOwn) {
    embedded::ResourceFile strings;
    strings.AddString(40060, u"English");
    strings.AddString(42060, u"german");
    strings.AddString(56060, u"Welsh");
    fax.machine.modules().Install(
        {.path = u"C:\\LANGUAGE.DLL", .exports = {}, .resources = strings.bytes});
    const HMODULE languages = LoadLibraryW(u"C:\\LANGUAGE.DLL");
    const std::pair<const char*, int> rows[] = {{"German", 2}, {"WELSH", 16}, {"Frisian", 0}};
    for (const auto& [language, index] : rows) {
        fax.ChangePpd("*DefaultLanguage: " + std::string(language) + "\n");
        const DescriptionUse description(AcquireDescription(printer.get(), false));
        const HMODULE own = std::exchange(ownModule, languages);
        EXPECT_TRUE(SavePrinterDataRecord(printer.get(), *description.get()));
        ownModule = own;
        EXPECT_EQ(fax.StoredDeviceRecord().languageIndex, index) << language;
    }
}

// A table in the current layout: the length is put in front.
std::u16string Table(std::u16string entries) {
    entries.insert(entries.begin(), static_cast<char16_t>(entries.size() * 2 + 2));
    return entries;
}

TEST(IsTrayFormTable, ChecksTheWholeTable) {
    using namespace std::string_literals;
    const struct {
        const char* what;
        std::u16string table;
        bool expected;
    } rows[] = {
        {"no entry", Table(u"\0"s), true},
        {"one entry", Table(u"slot\0form\0printer\0\7\0"s), true},
        {"an entry of value 0", Table(u"slot\0form\0printer\0\0\0"s), true},
        {"two entries, empty names in them", Table(u"s\0\0\0\1s\0f\0\0\2\0"s), true},
        {"bytes behind the terminator", Table(u"s\0f\0p\0\1\0rest"s), true},
        {"no terminator", Table(u"s\0f\0p\0\1"s), false},
        {"no value", Table(u"s\0f\0p\0"s), false},
        {"a string to the end", Table(u"s\0f\0p"s), false},
        {"nothing but the length", Table(u""s), false},
        {"the older layout", u"s\0f\0p\0\0"s, false},
    };
    for (const auto& row : rows) {
        EXPECT_EQ(IsTrayFormTable(row.table.data(), row.table.size() * 2), row.expected)
            << row.what;
    }
    const std::u16string good = Table(u"s\0f\0p\0\1\0"s);
    EXPECT_FALSE(IsTrayFormTable(good.data(), good.size() * 2 - 1)) << "shorter than it says";
    EXPECT_FALSE(IsTrayFormTable(good.data(), 0));
    EXPECT_FALSE(IsTrayFormTable(good.data(), 1));
    // An odd length that it states itself: the last byte is nobody's.
    const std::u16string odd = u"\5\0x"s;
    EXPECT_TRUE(IsTrayFormTable(odd.data(), 5));
}

TEST_F(PrinterDataTest, WalksTheTrayFormTable) {
    using namespace std::string_literals;
    const unsigned before = fax.machine.globalBlocks;
    EXPECT_EQ(ReadTrayFormTable(printer.get()), nullptr);
    const std::u16string table = Table(u"Upper\0A4\0A4 fax\0\5Lower\0\0\0\x1234\0"s);
    fax.StoreTable(BytesOf(table));
    {
        const TrayFormTable read(ReadTrayFormTable(printer.get()));
        ASSERT_TRUE(read);
        TrayFormEntry entry = {};
        const WCHAR* second = NextTrayFormEntry(read.get(), &entry);
        EXPECT_EQ(entry.slotName, u"Upper"s);
        EXPECT_EQ(entry.formName, u"A4"s);
        EXPECT_EQ(entry.printerFormName, u"A4 fax"s);
        EXPECT_EQ(entry.value, 5);
        const WCHAR* end = NextTrayFormEntry(second, &entry);
        EXPECT_EQ(entry.slotName, u"Lower"s);
        EXPECT_EQ(entry.formName, u""s);
        EXPECT_EQ(entry.value, 0x1234);
        entry.value = 1;
        EXPECT_EQ(NextTrayFormEntry(end, &entry), end);
        EXPECT_EQ(entry.value, 1);
    }
    // The zeros that fill a shorter data value up must not pass for its missing end.
    fax.Store(u"TrayFormTable", BytesOf(table.substr(0, table.size() - 1)));
    EXPECT_EQ(ReadTrayFormTable(printer.get()), nullptr);

    fax.Store(u"TrayFormTable", BytesOf(table.substr(1)));
    EXPECT_EQ(ReadTrayFormTable(printer.get()), nullptr);
    EXPECT_EQ(fax.machine.globalBlocks, before);
}

}  // namespace
}  // namespace ksfax
