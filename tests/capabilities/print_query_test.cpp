#include <gtest/gtest.h>

#include "description/printer_description.h"
#include "tests/core/fax_machine.h"
#include "tests/jobsettings/record_bytes.h"

namespace ksfax {
namespace {

// Document features in order: PageSize, Paper, Resolution, Colour.
constexpr std::string_view kQueryPpd = R"(*PPD-Adobe: "4.3"
*OpenUI *PageSize: PickOne
*DefaultPageSize: A4
*PageSize A4: ""
*PageSize Letter: ""
*CloseUI: *PageSize
*OpenUI *Paper: PickOne
*DefaultPaper: A4
*Paper A4: "9"
*Paper Letter: "1"
*Paper Roll: "300"
*Paper Custom: "256"
*CloseUI: *Paper
*OpenUI *Resolution: PickOne
*DefaultResolution: 200dpi
*Resolution fine: ""
*Resolution 200dpi: ""
*Resolution 400dpi: ""
*CloseUI: *Resolution
*OpenUI *Colour: PickOne
*DefaultColour: Grey
*Colour Grey: ""
*Colour Black: ""
*CloseUI: *Colour
*OpenGroup: InstallableOptions
*OpenUI *Memory: PickOne
*DefaultMemory: Small
*Memory Small: ""
*Memory Large: ""
*CloseUI: *Memory
*CloseGroup: InstallableOptions
*UIConstraints: *Colour Black *Resolution 200dpi
*UIConstraints: *Memory Large *Colour Grey
)";

// The first words of each message, by which the tests know it.
struct Message {
    unsigned number;
    const char16_t* beginning;
};
constexpr Message kMessages[] = {
    {40043, u"The fax printer does not have the resolution "},
    {40047, u"The print settings of this document cannot be read. "},
    {40048, u"This paper size cannot be fed by hand. "},
    {40049, u"This document names no paper size that the fax "},
    {40054, u"Some of the chosen options do not work together, "},
    {40055, u"The description file of the fax printer cannot be read. "},
    {40056, u"There is not enough memory to check this document. "},
    {40057, u"A4 paper is not available. "},
    {40058, u"The fax printer does not take user-defined paper sizes. "},
};

class Query : public testing::Test {
  protected:
    Query() { fax.AddPrinter(u"Query", u"C:\\Ppd\\QUERY.PPD", kQueryPpd); }

    // 0, or the number of the message whose text came; 1 for an unknown text.
    unsigned Ask(RecordBytes job) {
        const platform::PrinterHandle printer = fax.Open(u"Query");
        WCHAR text[300] = TEXT("untouched");
        DEVQUERYPRINT_INFO query = {.cbSize = sizeof(query),
                                    .Level = 1,
                                    .hPrinter = printer.get(),
                                    .pDevMode = AsDevMode(job),
                                    .pszErrorStr = text,
                                    .cchErrorStr = 300,
                                    .cchNeeded = 77};
        const BOOL canPrint = DevQueryPrintEx(&query);
        asked = job;
        const std::u16string message(text);
        EXPECT_EQ(descriptionCache.useCount, 0);
        if (canPrint) {
            EXPECT_EQ(message, u"untouched");
            EXPECT_EQ(query.cchNeeded, 77u);
            return 0;
        }
        EXPECT_EQ(query.cchNeeded, message.size() + 1);
        for (const Message& known : kMessages) {
            if (message.starts_with(known.beginning)) {
                return known.number;
            }
        }
        return 1;
    }

    static RecordBytes Job(WORD paper, const std::vector<Field>& fields = {}) {
        RecordBytes job = CallersRecord(220, 0);
        Put(&job, {U32(72, 0x2), U16(78, paper)});
        Put(&job, fields);
        return job;
    }
    static RecordBytes JobFrom(WORD source, WORD paper = 9) {
        return Job(paper, {U32(72, 0x202), U16(88, source)});
    }
    // A job with that choice for Colour.
    RecordBytes JobOfColour(uint8_t option, const std::vector<Field>& fields = {}) {
        const platform::PrinterHandle printer = fax.Open(u"Query");
        const DescriptionUse description(AcquireDescription(printer.get(), true));
        RecordBytes job = CallersRecord(220, 2388);
        Put(&job,
            {U32(72, 0x2), U16(78, 9), P32(4, 0x56495250), P16(116, description.get()->Checksum),
             P8(120, 0), P8(121, 0), P8(122, 255), P8(123, option)});
        Put(&job, fields);
        return job;
    }

    void SetDefaultPaper(WORD paper) {
        RecordBytes record = CallersRecord(220, 0);
        Put(&record, U16(78, paper));
        embedded::Printer printer = {.name = u"Query", .driverName = u"Query"};
        const auto* first = reinterpret_cast<const std::byte*>(record.data());
        printer.defaultSettings.assign(first, first + record.size());
        fax.machine.spooler().AddPrinter(printer);
    }
    void StoreBlock(const char16_t* sizeName, const char16_t* name, const RecordBytes& bytes) {
        const auto store = [&](const char16_t* value, DWORD type, const void* data, size_t size) {
            const auto* first = static_cast<const std::byte*>(data);
            fax.machine.spooler().SetPrinterData(
                u"Query", value,
                embedded::StoredValue{type, std::vector<std::byte>(first, first + size)});
        };
        const auto size = static_cast<uint32_t>(bytes.size());
        store(sizeName, REG_DWORD, &size, sizeof(size));
        store(name, REG_BINARY, bytes.data(), bytes.size());
    }
    void StoreTrayForms(const std::vector<std::u16string>& formNames) {
        const std::u16string end(1, 0);
        std::u16string table(1, 0);
        for (const std::u16string& name : formNames) {
            table += u"Tray" + end + name + end + u"P" + end + u'\x1';
        }
        table += end;
        table[0] = static_cast<char16_t>(table.size() * 2);
        StoreBlock(u"TrayFormSize", u"TrayFormTable", BytesOf(table.data(), table.size() * 2));
    }

    FaxMachine fax;
    RecordBytes asked;
};

TEST_F(Query, WithoutARecordCanPrint) {
    DEVQUERYPRINT_INFO query = {};
    query.cchNeeded = 77;
    EXPECT_TRUE(DevQueryPrintEx(&query));
    EXPECT_EQ(query.cchNeeded, 77u);
}

TEST_F(Query, ChecksThePaper) {
    EXPECT_EQ(Ask(Job(9)), 0u);
    EXPECT_EQ(AsDevMode(asked)->dmFormName[1], '4');  // the job learns its form's name
    EXPECT_EQ(Ask(Job(5)), 40049u);
    EXPECT_EQ(Ask(Job(9, {U32(72, 0)})), 40049u);
    EXPECT_EQ(Ask(Job(256)), 40058u);
    EXPECT_EQ(Ask(Job(256, {U32(72, 0x202), U16(88, 4)})), 40058u);
}

TEST_F(Query, ChecksThePaperInItsSource) {
    EXPECT_EQ(Ask(JobFrom(4)), 0u);
    EXPECT_EQ(Ask(JobFrom(6)), 0u);
    EXPECT_EQ(Ask(JobFrom(4, 300)), 40048u);  // a Paper option that is no PageSize option
    EXPECT_EQ(Ask(JobFrom(6, 300)), 40048u);
    EXPECT_EQ(Ask(JobFrom(7)), 0u);  // no default record to compare with
    SetDefaultPaper(9);
    EXPECT_EQ(Ask(JobFrom(7)), 0u);
    SetDefaultPaper(1);
    EXPECT_EQ(Ask(JobFrom(7)), 40057u);
    EXPECT_EQ(Ask(JobFrom(4)), 0u);
    EXPECT_EQ(Ask(JobFrom(15)), 0u);
    EXPECT_EQ(Ask(Job(9)), 0u);
}

TEST_F(Query, ChecksThePaperInTheTrays) {
    StoreTrayForms({u"Letter", u"a4", u"A", u"A4 "});
    EXPECT_EQ(Ask(Job(9)), 40057u);
    EXPECT_EQ(Ask(JobFrom(15)), 40057u);
    EXPECT_EQ(Ask(JobFrom(7)), 0u);
    StoreTrayForms({u"Letter", u"A4"});
    EXPECT_EQ(Ask(Job(9)), 0u);
    StoreTrayForms({});
    EXPECT_EQ(Ask(Job(9)), 40057u);
    // A damaged table says nothing.
    StoreBlock(u"TrayFormSize", u"TrayFormTable", {6, 0, 'A', 0, 'A', 0});
    EXPECT_EQ(Ask(Job(9)), 0u);
}

TEST_F(Query, ChecksTheOptions) {
    EXPECT_EQ(Ask(JobOfColour(0)), 0u);
    // Black forbids 200dpi, position 1 of the feature. Among the resolutions that have a number
    // 200dpi is position 0 and 400dpi position 1, and that is how a job's resolution is counted.
    EXPECT_EQ(Ask(JobOfColour(1, {U16(90, 200)})), 0u);
    EXPECT_EQ(Ask(JobOfColour(1, {U16(90, 400)})), 40054u);
    EXPECT_EQ(Ask(JobOfColour(255, {U16(90, 400)})), 0u);
    EXPECT_EQ(Ask(JobOfColour(1, {U16(90, 400), U16(78, 5)})), 40049u);  // the paper comes first
    // Large memory, stored for this printer, forbids grey.
    const RecordBytes grey = JobOfColour(0);
    RecordBytes record(108);
    Put(&record, {U16(0, 260), U16(2, 108), U16(42, 1), U8(44, 1)});
    std::copy_n(grey.begin() + 220 + 116, 2, record.begin() + 40);
    StoreBlock(u"PrinterDataSize", u"PrinterData", record);
    EXPECT_EQ(Ask(grey), 40054u);
    EXPECT_EQ(Ask(JobOfColour(1, {U16(90, 200)})), 0u);
    record[40] ^= 1;  // made for another description: the default, small memory
    StoreBlock(u"PrinterDataSize", u"PrinterData", record);
    EXPECT_EQ(Ask(grey), 0u);
}

// With 1200 dots per inch on offer the resolution has its bit only when the job brings it; without
// it the selection stays the job's own, here 200dpi, which Black forbids.
TEST_F(Query, SelectsAResolutionOnlyByItsBit) {
    std::string ppd(kQueryPpd);
    for (size_t at; (at = ppd.find("400dpi")) != std::string::npos;) {
        ppd.replace(at, 3, "1200");
    }
    fax.AddPrinter(u"Query", u"C:\\Ppd\\FINE.PPD", ppd);
    EXPECT_EQ(Ask(JobOfColour(1, {P8(122, 1), U16(90, 200)})), 40054u);
    EXPECT_EQ(Ask(JobOfColour(1, {P8(122, 1), U16(90, 200), U32(72, 0x402)})), 0u);
}

TEST_F(Query, ChecksTheResolutionLast) {
    EXPECT_EQ(Ask(Job(9, {U16(90, 600)})), 0u);  // the merge made it the default
    // A default that a record cannot hold.
    const std::string ppd = R"(*PPD-Adobe: "4.3"
*OpenUI *PageSize: PickOne
*PageSize A4: ""
*CloseUI: *PageSize
*OpenUI *Colour: PickOne
*Colour Grey: ""
*CloseUI: *Colour
*OpenUI *Resolution: PickOne
*DefaultResolution: 40000dpi
*Resolution 40000dpi: ""
*CloseUI: *Resolution
)";
    fax.AddPrinter(u"Query", u"C:\\Ppd\\HUGE.PPD", ppd);
    EXPECT_EQ(Ask(Job(9)), 40043u);
    EXPECT_EQ(Ask(Job(5)), 40049u);
    fax.AddPrinter(u"Query", u"C:\\Ppd\\CLASH.PPD", ppd + "*UIConstraints: *PageSize *Colour\n");
    EXPECT_EQ(Ask(Job(9)), 40054u);
}

TEST_F(Query, SaysWhatFailed) {
    EXPECT_EQ(Ask(CallersRecord(200, 0, 0)), 40047u);
    fax.RemoveFile(u"C:\\Ppd\\QUERY.PPD");
    fax.RemoveFile(u"C:\\Ppd\\QUERY.PDC");
    DiscardDescriptionCache();
    EXPECT_EQ(Ask(Job(9)), 40055u);
}

TEST_F(Query, SurvivesEachFailure) {
    StoreTrayForms({u"A4"});
    const platform::PrinterHandle printer = fax.Open(u"Query");
    RecordBytes job = JobOfColour(0);
    WCHAR text[300] = {};
    BOOL canPrint = FALSE;
    std::vector<unsigned> refusals;
    fax.FailEachCall(
        [] {},
        [&] {
            DEVQUERYPRINT_INFO query = {sizeof(query), 1, printer.get(), AsDevMode(job), text,
                                        300,           0};
            canPrint = DevQueryPrintEx(&query);
        },
        [&](const std::string& failed) {
            if (failed.empty()) {
                EXPECT_TRUE(canPrint);
            }
            for (const Message& known : kMessages) {
                if (!canPrint && std::u16string_view(text).starts_with(known.beginning)) {
                    refusals.push_back(known.number);
                }
            }
        });
    for (const unsigned number : {40047u, 40055u, 40056u}) {
        EXPECT_NE(std::find(refusals.begin(), refusals.end(), number), refusals.end()) << number;
    }
}

// A feature beyond the 64 selections that a record holds, the job's or the device's, cannot be
// chosen and refuses no job.
TEST_F(Query, KnowsMoreFeaturesThanRecordsHold) {
    std::string ppd = "*PPD-Adobe: \"4.3\"\n*OpenUI *PageSize: PickOne\n*PageSize A4: \"\"\n"
                      "*CloseUI: *PageSize\n";
    const auto add = [&](const std::string& name) {
        ppd += "*OpenUI *" + name + ": PickOne\n*Default" + name + ": On\n*" + name +
               " Off: \"\"\n*" + name + " On: \"\"\n*CloseUI: *" + name + "\n";
    };
    for (unsigned i = 1; i < 70; ++i) {
        add("Choice" + std::to_string(i));
    }
    ppd += "*OpenGroup: InstallableOptions\n";
    for (unsigned i = 0; i < 70; ++i) {
        add("Built" + std::to_string(i));
    }
    ppd += "*CloseGroup: InstallableOptions\n";
    const auto ask = [&](const std::string& constraint) {
        fax.AddPrinter(u"Query", u"C:\\Ppd\\MANY.PPD",
                       ppd + "*UIConstraints: " + constraint + "\n");
        DiscardDescriptionCache();
        return Ask(Job(9));
    };
    EXPECT_EQ(ask("*Choice63 On *Choice5 On"), 40054u);
    EXPECT_EQ(ask("*Choice64 On *Choice5 On"), 0u);
    EXPECT_EQ(ask("*Choice5 On *Choice64 On"), 0u);
    EXPECT_EQ(ask("*Built63 On *Choice5 On"), 40054u);
    EXPECT_EQ(ask("*Built64 On *Choice5 On"), 0u);
    EXPECT_EQ(ask("*Built64 *Choice5 On"), 0u);
}

}  // namespace
}  // namespace ksfax
