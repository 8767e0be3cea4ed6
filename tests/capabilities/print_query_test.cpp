// What DevQueryPrintEx answers, recorded in tests/golden/capabilities/queries.txt: a PPD and, as
// words with a number or names behind them, a job and how its printer is set up.

#include <set>
#include <sstream>

#include <gtest/gtest.h>

#include "tests/capabilities/ppd_printer.h"
#include "tests/golden.h"
#include "tests/jobsettings/record_bytes.h"

namespace ksfax {
namespace {

struct Refusal {
    BOOL canPrint;
    std::u16string text;
};
Refusal Ask(HANDLE printer, RecordBytes& job) {
    WCHAR text[300] = TEXT("untouched");
    DEVQUERYPRINT_INFO query = {.cbSize = sizeof(query),
                                .Level = 1,
                                .hPrinter = printer,
                                .pDevMode = AsDevMode(job),
                                .pszErrorStr = text,
                                .cchErrorStr = 300,
                                .cchNeeded = 77};
    const BOOL canPrint = DevQueryPrintEx(&query);
    EXPECT_EQ(query.cchNeeded, canPrint ? 77 : std::u16string(text).size() + 1);
    EXPECT_EQ(descriptionCache.useCount, 0);
    EXPECT_TRUE(!canPrint || std::u16string(text) == u"untouched");
    return {canPrint, text};
}

uint16_t ChecksumFor(HANDLE printer) {
    const DescriptionUse description(AcquireDescription(printer, true));
    return description.get()->Checksum;
}

// The trays that hold the forms, each once, as the printer's table.
Bytes TrayTable(std::string forms) {
    const std::u16string end(1, 0);
    std::u16string table(1, 0);
    std::istringstream all(forms);
    for (std::string form; std::getline(all, form, ',');) {
        table +=
            u"Tray" + end + std::u16string(form.begin(), form.end()) + end + u"P" + end + u'\x1';
    }
    table += end;
    table[0] = static_cast<char16_t>(table.size() * 2);
    return ::BytesOf(std::u16string_view(table));
}

std::string AnswerTo(const std::string& question) {
    FaxMachine fax;
    std::istringstream words(question);
    std::string ppd;
    words >> ppd;
    const platform::PrinterHandle printer = AddPpdPrinter(fax, ppd);
    const std::u16string name(ppd.begin(), ppd.end());
    const auto store = [&](const char16_t* sizeName, const char16_t* dataName, const Bytes& bytes) {
        fax.machine.spooler().SetPrinterData(
            name, sizeName, embedded::StoredNumber(static_cast<DWORD>(bytes.size())));
        fax.machine.spooler().SetPrinterData(name, dataName, {.type = REG_BINARY, .data = bytes});
    };
    RecordBytes job = CallersRecord(220, 2388);
    Put(&job, {U32(72, 0x2), U16(78, 9)});
    std::string value;
    for (std::string word; words >> word && words >> value;) {
        const auto number = static_cast<uint32_t>(std::strtoul(value.c_str(), nullptr, 0));
        if (word == "paper") {
            Put(&job, U16(78, number));
        } else if (word == "source") {
            Put(&job, {U32(72, 0x202), U16(88, number)});
        } else if (word == "fields") {
            Put(&job, U32(72, number));
        } else if (word == "quality") {
            Put(&job, U16(90, number));
        } else if (word == "colour" || word == "resolution") {
            Put(&job, {P32(4, 0x56495250), P16(116, ChecksumFor(printer.get()))});
            Put(&job, P8(word == "colour" ? 123 : 122, number));
        } else if (word == "default") {
            RecordBytes record = CallersRecord(220, 0);
            Put(&record, U16(78, number));
            fax.machine.spooler().AddPrinter(
                {.name = name,
                 .driverName = name,
                 .defaultSettings = ::BytesOf(record.data(), record.size())});
        } else if (word == "trays") {
            store(u"TrayFormSize", u"TrayFormTable", TrayTable(value == "none" ? "" : value));
        } else if (word == "damaged") {
            store(u"TrayFormSize", u"TrayFormTable", ::BytesOf(std::u16string_view(u"\6AA")));
        } else if (word == "memory" || word == "foreign") {
            PrinterDataRecord record = FaxMachine::DeviceRecord();
            record.descriptionChecksum = ChecksumFor(printer.get());
            record.descriptionChecksum ^= word == "foreign";
            record.installableCount = 1;
            record.installableSelections[0] = static_cast<uint8_t>(number);
            store(u"PrinterDataSize", u"PrinterData", ::BytesOf(&record, sizeof(record)));
        } else if (word == "version") {
            Put(&job, {U16(64, 0), U16(68, 200), U16(66, number)});
        } else if (word == "without") {
            fax.RemoveFile(u"C:\\Ppd\\" + name + u".PPD");
            fax.RemoveFile(u"C:\\Ppd\\" + name + u".PDC");
            DiscardDescriptionCache();
        } else {
            ADD_FAILURE() << word;
        }
    }
    Ask(printer.get(), job);
    fax.machine.faults.Count();
    const Refusal refusal = Ask(printer.get(), job);
    EXPECT_EQ(std::ranges::count(fax.machine.faults.names(), "MapViewOfFile"), 0) << "it is cached";
    // The job learns its form's name.
    const std::u16string form(AsDevMode(job)->dmFormName);
    return refusal.canPrint ? "can print on " + std::string(form.begin(), form.end())
                            : std::string(refusal.text.begin(), refusal.text.end());
}

TEST(Query, IsAnsweredAsRecorded) {
    EXPECT_TRUE(AnswersAreRecorded("capabilities/queries.txt", AnswerTo));
    DEVQUERYPRINT_INFO query = {};
    query.cchNeeded = 77;
    EXPECT_TRUE(DevQueryPrintEx(&query)) << "without a record";
    EXPECT_EQ(query.cchNeeded, 77u);
}

TEST(Query, SurvivesEachFailure) {
    FaxMachine fax;
    fax.StoreTable(TrayTable("A4"));
    const platform::PrinterHandle printer = fax.Open();
    RecordBytes job = CallersRecord(220, 0);
    Put(&job, {U32(72, 0x2), U16(78, 9)});
    Refusal refusal;
    std::set<std::u16string> refusals;
    fax.FailEachCall([] {}, [&] { refusal = Ask(printer.get(), job); },
                     [&](const std::string& failed) {
                         EXPECT_TRUE(refusal.canPrint || !failed.empty());
                         refusals.insert(refusal.text.substr(0, refusal.text.find(u'.')));
                     });
    for (const char16_t* text : {u"The print settings of this document cannot be read",
                                 u"The description file of the fax printer cannot be read",
                                 u"There is not enough memory to check this document"}) {
        EXPECT_TRUE(refusals.contains(text));
    }
}

// A feature beyond the 64 selections that a record holds, the job's or the device's, cannot be
// chosen and refuses no job.
TEST(Query, KnowsMoreFeaturesThanRecordsHold) {
    FaxMachine fax;
    std::string ppd = "*OpenUI *PageSize: PickOne\n*PageSize A4: \"\"\n";
    const auto add = [&](const std::string& name) {
        ppd += "*OpenUI *" + name + ": PickOne\n*Default" + name + ": On\n*" + name +
               " Off: \"\"\n*" + name + " On: \"\"\n";
    };
    for (unsigned i = 1; i < 70; ++i) {
        add("Choice" + std::to_string(i));
    }
    ppd += "*OpenGroup: InstallableOptions\n";
    for (unsigned i = 0; i < 70; ++i) {
        add("Built" + std::to_string(i));
    }
    const std::pair<const char*, BOOL> rows[] = {
        {"*Choice63 On *Choice5 On", FALSE}, {"*Choice64 On *Choice5 On", TRUE},
        {"*Choice5 On *Choice64 On", TRUE},  {"*Built63 On *Choice5 On", FALSE},
        {"*Built64 On *Choice5 On", TRUE},   {"*Built64 *Choice5 On", TRUE}};
    for (const auto& [constraint, canPrint] : rows) {
        fax.AddPrinter(u"Many", u"C:\\Ppd\\MANY.PPD", ppd + "*UIConstraints: " + constraint + "\n");
        DiscardDescriptionCache();
        RecordBytes job = CallersRecord(220, 0);
        Put(&job, {U32(72, 0x2), U16(78, 9)});
        EXPECT_EQ(Ask(fax.Open(u"Many").get(), job).canPrint, canPrint) << constraint;
    }
}

}  // namespace
}  // namespace ksfax
