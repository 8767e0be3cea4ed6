#include <algorithm>
#include <set>
#include <sstream>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "platform/embedded/text.h"

#include "core/module_state.h"
#include "core/printer_data.h"
#include "description/printer_description.h"
#include "faxjob/upgrade.h"
#include "tests/core/fax_machine.h"
#include "tests/golden.h"

namespace ksfax {
namespace {

using namespace std::string_literals;

const std::u16string kOlderTable = u"s\0f\0p\0\0"s;
const std::u16string kConvertedTable = u"\x12s\0f\0p\0\0\0"s;

class UpgradeTest : public testing::Test {
  protected:
    UpgradeTest() : printer(fax.Open(FaxMachine::kPrinter, true)) {}

    std::u16string StoredTable() {
        const Bytes bytes = fax.Stored(u"TrayFormTable").value_or(Bytes());
        return std::u16string(reinterpret_cast<const char16_t*>(bytes.data()), bytes.size() / 2);
    }
    // The forms database as names, "*" before those of users, with ";" behind each.
    void SetForms(const std::string& names) {
        fax.machine.spooler().RemoveAllForms();
        std::istringstream stream(names);
        for (std::string name; std::getline(stream, name, ';');) {
            const bool isUsers = name.starts_with('*');
            fax.machine.spooler().AddForm(embedded::WholePageForm(
                embedded::Utf16(name.substr(isUsers)), isUsers ? FORM_USER : FORM_PRINTER, 1, 2));
        }
    }
    std::string Forms() {
        std::string names;
        for (const embedded::Form& form : fax.machine.spooler().forms()) {
            EXPECT_TRUE(form.flags == FORM_USER || form.flags == FORM_PRINTER);
            names += (form.flags == FORM_USER ? "*" : "") + embedded::Utf8(form.name) + ";";
        }
        return names;
    }
    // Everything that an upgrade rewrites.
    void MakeOld() {
        SetForms("*A4;");
        fax.Store(u"Forms?", 2);
        fax.StoreTable(BytesOf(kOlderTable));
        fax.StoreDeviceRecord(fax.DeviceRecord());
    }
    BOOL UpgradePrinter(DWORD level = 1, const WCHAR* printerName = u"Fax") {
        std::u16string name(printerName);
        DRIVER_UPGRADE_INFO_1W information = {.pPrinterName = name.empty() ? nullptr : name.data(),
                                              .pOldDriverDirectory = nullptr};
        SetLastError(ERROR_SUCCESS);
        return DrvUpgradePrinter(level, reinterpret_cast<LPBYTE>(&information));
    }

    FaxMachine fax;
    platform::PrinterHandle printer;
};

TEST_F(UpgradeTest, KeepsFormsInStepWithPapers) {
    const std::string fourPapers(kFaxPpd);  // Letter, A4, B5 as "B5 sheet", Custom of no size
    const std::string none = "*PPD-Adobe: \"4.3\"\n";
    const std::string noOption = none + "*OpenUI *PageSize: PickOne\n*CloseUI: *PageSize\n";
    const std::string twice = none + "*OpenUI *PageSize: PickOne\n*PageSize A/Same: \"x\"\n"
                                     "*PageSize B/Same: \"x\"\n*CloseUI: *PageSize\n";
    const std::string named =
        none + "*OpenUI *PageSize: PickOne\n*PageSize A/: \"x\"\n"
               "*PageSize B/A name of thirty-five characters so: \"x\"\n*CloseUI: *PageSize\n"
               "*PaperDimension A: \"1 1\"\n*PaperDimension B: \"1 1\"\n";
    using Number = std::optional<DWORD>;
    struct Row {
        const char* what;
        void (*act)(HANDLE, const PrinterDescription&);
        const std::string& ppd;
        std::string before;
        Number isInstalled;
        std::string after;
        Number isInstalledThen;
        long deletions = 0;
    };
    // clang-format off
    const Row rows[] = {
        {"new", InstallForms, fourPapers, "*Letter;", {}, "*Letter;A4;B5 sheet;", 2},
        {"to be installed", InstallForms, fourPapers, "", 0, "Letter;A4;B5 sheet;", 2},
        {"installed", InstallForms, fourPapers, "", 1, "", 1},
        {"no papers", InstallForms, none, "", {}, "", {}},
        {"an empty feature", InstallForms, noOption, "", {}, "", 2},
        {"names", InstallForms, named, "", {}, "A;A name of thirty-five character;", 2},
        {"clashes", UpgradeForms, fourPapers, "*Zebra;*A4;*a4;*Custom;*B5;", 2,
         "*Zebra;*a4;*B5;Letter;A4;B5 sheet;", 2, 2},
        {"never installed", UpgradeForms, fourPapers, "*A4;", {}, "*A4;", {}},
        {"to be installed anew", UpgradeForms, fourPapers, "*A4;", 0, "*A4;", 0},
        {"no user form", UpgradeForms, fourPapers, "A4;", 2, "A4;", 2},
        {"no clash", UpgradeForms, fourPapers, "*A5;A4;", 2, "*A5;A4;", 2},
        {"no form at all", UpgradeForms, fourPapers, "", 2, "", 2},
        {"no papers to upgrade", UpgradeForms, none, "*A4;", 2, "*A4;", 2},
        {"two papers of a name", UpgradeForms, twice, "*Same;", 2, "", 2, 2},
    };
    // clang-format on
    for (const auto& row : rows) {
        SCOPED_TRACE(row.what);
        fax.AddPrinter(FaxMachine::kPrinter, u"C:\\Ppd\\FORMS.PPD", row.ppd);
        const platform::PrinterHandle handle = fax.Open(FaxMachine::kPrinter, true);
        const DescriptionUse description(AcquireDescription(handle.get(), false));
        SetForms(row.before);
        if (row.isInstalled) {
            fax.Store(u"Forms?", *row.isInstalled);
        }
        fax.machine.faults.Count();
        row.act(handle.get(), *description.get());
        const std::vector<std::string> calls = fax.machine.faults.names();
        fax.machine.faults.Clear();
        EXPECT_EQ(Forms(), row.after);
        EXPECT_EQ(fax.StoredNumber(u"Forms?"), row.isInstalledThen);
        EXPECT_EQ(std::ranges::count(calls, "DeleteFormW"), row.deletions);
    }
}

TEST_F(UpgradeTest, MakesFormsOfWholePages) {
    SetForms("");
    const DescriptionUse description(AcquireDescription(printer.get(), true));
    // As a cache file may say it; the reader makes both sides 0 where one is.
    const FeatureRecord* papers = FeatureOf(*description.get(), FeatureKind::PageSize);
    auto& letter = const_cast<PaperOptionRecord&>(AsPaper(*ListOf(papers->Options).begin()));
    for (auto side : {&PaperOptionRecord::PaperWidth, &PaperOptionRecord::PaperHeight}) {
        const auto points = std::exchange(letter.*side, 0);
        fax.Forget(u"Forms?");
        InstallForms(printer.get(), *description.get());
        EXPECT_EQ(Forms(), "A4;B5 sheet;");
        letter.*side = points;
    }
    const embedded::Form a4 = fax.machine.spooler().forms()[0];
    EXPECT_TRUE(a4.size.cx == 209902 && a4.size.cy == 297038);
    EXPECT_TRUE(a4.imageableArea.left == 0 && a4.imageableArea.top == 0);
    EXPECT_TRUE(a4.imageableArea.right == 209902 && a4.imageableArea.bottom == 297038);
}

TEST_F(UpgradeTest, ConvertsOlderTables) {
    struct Row {
        const char* what;
        std::u16string older;
        std::u16string expected;  // empty: malformed
        size_t missing = 0;       // bytes by which the data is shorter than its size value
    };
    const std::u16string longest(32759, u's');
    // clang-format off
    const Row rows[] = {
        {"no entry", u"\0"s, u"\4\0"s},
        {"one entry", kOlderTable, kConvertedTable},
        {"no terminator", u"s\0f\0p\0"s, u""s},
        {"two strings", u"s\0f\0"s, u""s},
        {"a string to the end", u"s\0f\0p"s, u""s},
        {"an end before the end", u"s\0f\0p\0\0\0"s, u""s},
        {"the end first", u"\0s\0f\0p\0\0"s, u""s},
        {"60 bytes with two entries", u"Upper\0A4\0A4 f\0Low\0Letter\0Let\0\0"s,
         u"\x42Upper\0A4\0A4 f\0\0Low\0Letter\0Let\0\0\0"s},
        {"the longest", longest + u"\0f\0p\0\0"s, u"\xFFFE" + longest + u"\0f\0p\0\0\0"s},
        {"too long", longest + u"s\0f\0p\0\0"s, u""s},
        {"torn", u"s\0f\0p\0"s, u""s, 2},
        {"torn and current", u"\x12s\0f\0"s, u"\x12s\0f\0"s, 8},
    };
    // clang-format on
    for (const auto& row : rows) {
        fax.StoreTable(BytesOf(row.older), row.missing);
        const bool isMalformed = row.expected.empty();
        const std::u16string& expected = isMalformed ? row.older : row.expected;
        for (int again = 0; again < 2; ++again) {
            EXPECT_EQ(UpgradeTrayFormTable(printer.get()), !isMalformed) << row.what;
            EXPECT_EQ(StoredTable(), expected) << row.what;
            EXPECT_EQ(fax.StoredNumber(u"TrayFormSize"), expected.size() * 2 + row.missing);
        }
        EXPECT_TRUE(isMalformed || row.missing != 0 ||
                    TrayFormTable(ReadTrayFormTable(printer.get())));
    }
    for (const size_t odd : {15, 1}) {
        fax.StoreTable(BytesOf(kOlderTable.data(), odd));
        EXPECT_FALSE(UpgradeTrayFormTable(printer.get()));
        EXPECT_EQ(fax.StoredNumber(u"TrayFormSize"), odd);
    }
}

TEST_F(UpgradeTest, UpgradesAPrinter) {
    const uint16_t before = fax.Checksum();  // and the cache holds the old description
    fax.ChangePpd("*Manufacturer: \"Another\"\n");
    MakeOld();
    std::set<std::pair<std::string, bool>> seen;
    fax.machine.faults.Count([&](const std::string& call) {
        seen.emplace(call, embedded::IsHeldByThisThread(moduleLock));
    });
    EXPECT_EQ(UpgradePrinter(), TRUE);
    fax.machine.faults.Clear();
    EXPECT_EQ(Forms(), "Letter;A4;B5 sheet;");
    EXPECT_EQ(StoredTable(), kConvertedTable);
    EXPECT_NE(fax.StoredDeviceRecord().descriptionChecksum, before);
    EXPECT_EQ(fax.StoredDeviceRecord().descriptionChecksum, fax.Checksum());
    for (const auto* call : {"EnumFormsW", "AddFormW", "DeleteFormW", "SetPrinterDataW"}) {
        EXPECT_TRUE(seen.contains({call, true}) && !seen.contains({call, false})) << call;
    }
    for (const auto* call : {"OpenPrinterW", "GetPrinterDriverW"}) {
        EXPECT_TRUE(seen.contains({call, false}) && !seen.contains({call, true})) << call;
    }
    // A printer without a table is as good; one with a malformed table keeps it.
    fax.Forget(u"TrayFormSize");
    EXPECT_EQ(UpgradePrinter(), TRUE);
    fax.StoreTable(BytesOf(u"s\0f"s));
    EXPECT_EQ(UpgradePrinter(), FALSE);
    EXPECT_EQ(StoredTable(), u"s\0f"s);
    fax.RemoveFile(u"C:\\Ppd\\FAX.PPD");
    EXPECT_EQ(UpgradePrinter(), FALSE);
    EXPECT_NE(GetLastError(), DWORD{ERROR_INVALID_PARAMETER});
}

TEST_F(UpgradeTest, RefusesWrongArguments) {
    const auto isRefused = [](BOOL result) {
        return result == FALSE && GetLastError() == ERROR_INVALID_PARAMETER;
    };
    EXPECT_TRUE(isRefused(UpgradePrinter(2)));
    EXPECT_TRUE(isRefused(UpgradePrinter(0)));
    EXPECT_TRUE(isRefused(UpgradePrinter(1, u"")));
    EXPECT_TRUE(isRefused(UpgradePrinter(1, u"Nobody's")));
    SetLastError(ERROR_SUCCESS);
    EXPECT_TRUE(isRefused(DrvUpgradePrinter(1, nullptr)));
    EXPECT_EQ(fax.StoredNumber(u"PrinterDataSize"), std::nullopt);
}

// Recorded is what may come of an upgrade when the call fails alone.
TEST_F(UpgradeTest, GivesEverythingBackWhateverFails) {
    BOOL result = FALSE;
    std::set<std::string> lines;
    fax.FailEachCall([&] { MakeOld(); }, [&] { result = UpgradePrinter(); },
                     [&](const std::string& failed) {
                         const bool isOld = StoredTable() == kOlderTable;
                         EXPECT_EQ(StoredTable(), isOld ? kOlderTable : kConvertedTable);
                         EXPECT_EQ(fax.StoredNumber(u"TrayFormSize"), StoredTable().size() * 2);
                         const bool isKept = fax.StoredDeviceRecord().memoryBytes == 77;
                         lines.insert(
                             failed + ": " + (result ? "done, " : "failed, ") +
                             std::to_string(GetLastError() == ERROR_INVALID_PARAMETER ? 87 : 0) +
                             (isOld ? ", older table, " : ", converted table, ") +
                             (isKept ? "record kept, " : "record made anew, ") + Forms() + "\n");
                     });
    std::string all;
    for (const std::string& line : lines) {
        all += line;
    }
    EXPECT_TRUE(IsRecorded("faxjob/upgrade_under_faults.txt", all));
}

}  // namespace
}  // namespace ksfax
