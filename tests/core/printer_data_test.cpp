#include <array>
#include <cstring>
#include <optional>
#include <vector>

#include <gtest/gtest.h>

#include "core/module_state.h"
#include "core/printer_data.h"
#include "description/printer_description.h"
#include "tests/core/fax_machine.h"

namespace ksfax {
namespace {

using Bytes = std::vector<std::byte>;

Bytes BytesOf(const void* data, size_t length) {
    const auto* bytes = static_cast<const std::byte*>(data);
    return Bytes(bytes, bytes + length);
}

Bytes BytesOf(std::u16string_view text) {
    return BytesOf(text.data(), text.size() * 2);
}

class PrinterDataTest : public testing::Test {
  protected:
    PrinterDataTest() : printer(fax.Open(FaxMachine::kPrinter, true)) {}

    void Store(std::u16string_view name, DWORD number) {
        fax.machine.spooler().SetPrinterData(FaxMachine::kPrinter, name,
                                             embedded::StoredNumber(number));
    }
    void Store(std::u16string_view name, Bytes bytes) {
        fax.machine.spooler().SetPrinterData(FaxMachine::kPrinter, name,
                                             {.type = REG_BINARY, .data = std::move(bytes)});
    }
    std::optional<Bytes> Stored(std::u16string_view name) {
        const auto value = fax.machine.spooler().PrinterData(FaxMachine::kPrinter, name);
        return value ? std::optional(value->data) : std::nullopt;
    }
    void StoreRecord(const PrinterDataRecord& record, size_t length) {
        Store(u"PrinterDataSize", static_cast<DWORD>(length));
        Store(u"PrinterData", BytesOf(&record, length));
    }
    PrinterDataRecord StoredRecord() {
        PrinterDataRecord record = {};
        const Bytes bytes = Stored(u"PrinterData").value_or(Bytes());
        EXPECT_EQ(bytes.size(), sizeof(record));
        std::memcpy(&record, bytes.data(), std::min(bytes.size(), sizeof(record)));
        return record;
    }
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
    uint16_t Checksum() {
        const DescriptionUse description(AcquireDescription(printer.get(), true));
        return description.get()->Checksum;
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
        fax.machine.spooler().RemovePrinterData(FaxMachine::kPrinter, u"TrayFormSize");
        fax.machine.spooler().RemovePrinterData(FaxMachine::kPrinter, u"TrayFormTable");
        if (row.size) {
            Store(u"TrayFormSize", *row.size);
        }
        if (row.data) {
            Store(u"TrayFormTable", *row.data);
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
    EXPECT_EQ(Stored(u"TTFontSubTableSize"), BytesOf("\5\0\0", 4));
    EXPECT_EQ(Stored(u"TTFontSubTable"), BytesOf("abcde", 5));
    const auto type =
        fax.machine.spooler().PrinterData(FaxMachine::kPrinter, u"TTFontSubTableSize")->type;
    EXPECT_EQ(type, REG_DWORD);

    fax.machine.faults.FailCall("SetPrinterDataW", 1);
    EXPECT_FALSE(WritePrinterBlock(printer.get(), "xy", 2, BlockKind::FontSubstitution));
    EXPECT_EQ(Stored(u"TTFontSubTableSize"), BytesOf("\5\0\0", 4));
    EXPECT_EQ(Stored(u"TTFontSubTable"), BytesOf("abcde", 5));
    fax.machine.faults.FailCall("SetPrinterDataW", 2);
    EXPECT_FALSE(WritePrinterBlock(printer.get(), "xy", 2, BlockKind::FontSubstitution));
    EXPECT_EQ(Stored(u"TTFontSubTable"), BytesOf("abcde", 5));
}

TEST_F(PrinterDataTest, MakesTheDefaultsOfTheDescription) {
    PrinterDataRecord expected = {};
    expected.version = 260;
    expected.size = 108;
    expected.deviceFlags = 0;
    expected.memoryBytes = 4194304;
    expected.jobTimeout = 30;
    expected.waitTimeout = 90;
    expected.descriptionChecksum = Checksum();
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
        Store(u"FreeMem", row.kilobytes);
        EXPECT_EQ(Read().memoryBytes, row.bytes) << row.kilobytes;
    }
    Store(u"FreeMem", BytesOf("\1", 2));
    EXPECT_EQ(Read().memoryBytes, 4194304u) << "not a number of four bytes";
    Store(u"PrinterHT", 0);
    EXPECT_EQ(Read().deviceFlags, 0u);
    Store(u"PrinterHT", 7);
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
    record.descriptionChecksum = Checksum();
    StoreRecord(record, sizeof(record));
    const PrinterDataRecord read = Read();
    EXPECT_EQ(BytesOf(&read, sizeof(read)), BytesOf(&record, sizeof(record)));
}

TEST_F(PrinterDataTest, MakesSelectionsOfAnotherDescriptionAnew) {
    PrinterDataRecord record = {};
    record.version = 260;
    record.size = 108;
    record.memoryBytes = 77;
    record.descriptionChecksum = static_cast<uint16_t>(Checksum() + 1);
    record.installableCount = 9;
    record.installableSelections[2] = 5;
    StoreRecord(record, sizeof(record));
    const PrinterDataRecord read = Read();
    EXPECT_EQ(read.descriptionChecksum, Checksum());
    EXPECT_EQ(read.installableCount, 3);
    EXPECT_EQ(read.installableSelections[2], 1);
    EXPECT_EQ(read.memoryBytes, 77u);
    EXPECT_EQ(StoredRecord().installableCount, 9) << "reading does not store";
}

TEST_F(PrinterDataTest, TakesStoredBytesOfAnyLength) {
    PrinterDataRecord record;
    std::memset(&record, 0x5A, sizeof(record));
    record.descriptionChecksum = Checksum();
    for (const size_t length : {size_t{1}, size_t{42}, size_t{50}, size_t{107}}) {
        StoreRecord(record, length);
        PrinterDataRecord expected = {};
        std::memcpy(&expected, &record, length);
        if (length < 42) {  // the checksum is not among them
            expected.descriptionChecksum = Checksum();
            expected.installableCount = 3;
            expected.installableSelections[2] = 1;
        }
        const PrinterDataRecord read = Read();
        EXPECT_EQ(BytesOf(&read, sizeof(read)), BytesOf(&expected, sizeof(expected))) << length;
    }
    Bytes longer = BytesOf(&record, sizeof(record));
    longer.resize(5000, std::byte{0x77});
    Store(u"PrinterDataSize", DWORD{5000});
    Store(u"PrinterData", longer);
    const PrinterDataRecord read = Read();
    EXPECT_EQ(BytesOf(&read, sizeof(read)), BytesOf(&record, sizeof(record)));
}

TEST_F(PrinterDataTest, SavesAnOlderRecordInTheCurrentVersion) {
    PrinterDataRecord record;
    std::memset(&record, 0x5A, sizeof(record));
    record.version = 259;
    record.size = 100;
    record.descriptionChecksum = Checksum();
    StoreRecord(record, 100);
    ASSERT_TRUE(Save());
    PrinterDataRecord expected = record;
    expected.version = 260;
    expected.size = 108;
    expected.languageIndex = 0;
    std::memset(expected.installableSelections + 56, 0, 8);
    PrinterDataRecord stored = StoredRecord();
    EXPECT_EQ(BytesOf(&stored, sizeof(stored)), BytesOf(&expected, sizeof(expected)));
    EXPECT_EQ(Stored(u"PrinterDataSize"), BytesOf("\x6c\0\0", 4));

    // Selections made anew come first, so that an older record's size cuts those too.
    record.size = 46;
    record.descriptionChecksum ^= 1;
    StoreRecord(record, 108);
    ASSERT_TRUE(Save());
    stored = StoredRecord();
    EXPECT_EQ(stored.descriptionChecksum, Checksum());
    EXPECT_EQ(stored.installableCount, 3);
    EXPECT_EQ(stored.installableSelections[1], 0);
    EXPECT_EQ(stored.installableSelections[2], 0);

    // A record of this version or a later one keeps its version and size, whatever they are.
    record.version = 300;
    record.size = 9000;
    StoreRecord(record, 108);
    ASSERT_TRUE(Save());
    EXPECT_EQ(StoredRecord().version, 300);
    EXPECT_EQ(StoredRecord().size, 9000);
}

TEST_F(PrinterDataTest, CountsARecordAsSavedWhetherOrNotTheSpoolerTakesIt) {
    fax.machine.faults.FailCall("SetPrinterDataW", 1, true);
    EXPECT_TRUE(Save());
    EXPECT_TRUE(fax.machine.faults.struck());
    fax.machine.faults.Clear();
    EXPECT_EQ(Stored(u"PrinterData"), std::nullopt);
    const DescriptionUse description(AcquireDescription(printer.get(), true));
    fax.machine.faults.FailCall("GlobalAlloc");
    EXPECT_FALSE(SavePrinterDataRecord(printer.get(), *description.get()));
    fax.machine.faults.Clear();
    EXPECT_EQ(Stored(u"PrinterData"), std::nullopt);
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
    Store(u"TrayFormSize", static_cast<DWORD>(table.size() * 2));
    Store(u"TrayFormTable", BytesOf(table));
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
    Store(u"TrayFormTable", BytesOf(table.substr(0, table.size() - 1)));
    EXPECT_EQ(ReadTrayFormTable(printer.get()), nullptr);

    Store(u"TrayFormTable", BytesOf(table.substr(1)));
    EXPECT_EQ(ReadTrayFormTable(printer.get()), nullptr);
    EXPECT_EQ(fax.machine.globalBlocks, before);
}

}  // namespace
}  // namespace ksfax
