#include <algorithm>
#include <atomic>
#include <set>
#include <string>
#include <thread>
#include <vector>

#include <gtest/gtest.h>

#include "core/module_state.h"
#include "core/printer_data.h"
#include "description/printer_description.h"
#include "faxjob/upgrade.h"
#include "tests/core/fax_machine.h"

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
    std::optional<embedded::Form> FindForm(std::u16string_view name) {
        for (const embedded::Form& form : fax.machine.spooler().forms()) {
            if (form.name == name) {
                return form;
            }
        }
        return std::nullopt;
    }
    void AddUserForm(std::u16string name) {
        fax.machine.spooler().AddForm(embedded::WholePageForm(std::move(name), FORM_USER, 1, 2));
    }
    // Everything that an upgrade rewrites.
    void MakeOld() {
        AddUserForm(u"A4");
        fax.Store(u"Forms?", 2);
        fax.StoreTable(BytesOf(kOlderTable));
    }
    void Install() {
        const DescriptionUse description(AcquireDescription(printer.get(), true));
        InstallForms(printer.get(), *description.get());
    }
    void Upgrade() {
        const DescriptionUse description(AcquireDescription(printer.get(), true));
        UpgradeForms(printer.get(), *description.get());
    }
    BOOL UpgradePrinter(DWORD level = 1) {
        WCHAR name[] = u"Fax";
        DRIVER_UPGRADE_INFO_1W information = {.pPrinterName = name, .pOldDriverDirectory = nullptr};
        SetLastError(ERROR_SUCCESS);
        return DrvUpgradePrinter(level, reinterpret_cast<LPBYTE>(&information));
    }

    FaxMachine fax;
    platform::PrinterHandle printer;
};

TEST_F(UpgradeTest, InstallsPapersThatHaveASizeAsFormsOnce) {
    fax.machine.spooler().RemoveAllForms();
    AddUserForm(u"Letter");
    Install();
    EXPECT_EQ(fax.StoredNumber(u"Forms?"), 2u);
    ASSERT_EQ(fax.machine.spooler().forms().size(), 3u);
    const embedded::Form a4 = FindForm(u"A4").value();
    EXPECT_EQ(a4.flags, FORM_PRINTER);
    EXPECT_EQ(a4.size.cx, 209902);
    EXPECT_EQ(a4.size.cy, 297038);
    EXPECT_EQ(a4.imageableArea.left, 0);
    EXPECT_EQ(a4.imageableArea.top, 0);
    EXPECT_EQ(a4.imageableArea.right, 209902);
    EXPECT_EQ(a4.imageableArea.bottom, 297038);
    EXPECT_TRUE(FindForm(u"B5 sheet"));
    EXPECT_EQ(FindForm(u"Letter")->flags, FORM_USER) << "a form that is there stays";

    fax.machine.spooler().RemoveAllForms();
    Install();
    EXPECT_TRUE(fax.machine.spooler().forms().empty());
    fax.Store(u"Forms?", 0);
    Install();
    EXPECT_EQ(fax.machine.spooler().forms().size(), 3u);
}

TEST_F(UpgradeTest, NamesFormsWithinTheirField) {
    fax.machine.spooler().RemoveAllForms();
    fax.AddPrinter(u"Long", u"C:\\Ppd\\LONG.PPD",
                   "*PPD-Adobe: \"4.3\"\n*OpenUI *PageSize: PickOne\n"
                   "*PageSize A/: \"x\"\n*PageSize C: \"x\"\n*PageSize D: \"x\"\n"
                   "*PageSize B/A name of thirty-five characters so: \"x\"\n"
                   "*CloseUI: *PageSize\n"
                   "*PaperDimension A: \"1 1\"\n*PaperDimension B: \"8388607 1\"\n"
                   "*PaperDimension C: \"1 1\"\n*PaperDimension D: \"1 1\"\n");
    const platform::PrinterHandle other = fax.Open(u"Long", true);
    const DescriptionUse description(AcquireDescription(other.get(), true));
    ASSERT_TRUE(description);
    // As a cache file may say it; the reader itself makes both 0 where one is.
    for (const OptionRecord& option :
         ListOf(FeatureOf(*description.get(), FeatureKind::PageSize)->Options)) {
        auto& paper = const_cast<PaperOptionRecord&>(AsPaper(option));
        const std::string name = option.Name.Target();
        paper.PaperWidth = name == "C" ? 0 : paper.PaperWidth;
        paper.PaperHeight = name == "D" ? 0 : paper.PaperHeight;
    }
    fax.machine.faults.Count();
    InstallForms(other.get(), *description.get());
    const auto names = fax.machine.faults.names();
    fax.machine.faults.Clear();
    EXPECT_EQ(std::ranges::count(names, "AddFormW"), 2) << "none without width or height";
    EXPECT_TRUE(FindForm(u"A")) << "an empty translation is none";
    const auto cut = FindForm(u"A name of thirty-five character");
    ASSERT_TRUE(cut);
    EXPECT_EQ(cut->size.cx, 2147483647) << "clamped";
}

TEST_F(UpgradeTest, LeavesADescriptionWithoutPapersAlone) {
    const std::pair<const char*, std::optional<DWORD>> rows[] = {
        {"*PPD-Adobe: \"4.3\"\n", std::nullopt},
        {"*PPD-Adobe: \"4.3\"\n*OpenUI *PageSize: PickOne\n*CloseUI: *PageSize\n", 2},
    };
    for (const auto& [ppd, installed] : rows) {
        fax.AddPrinter(FaxMachine::kPrinter, u"C:\\Ppd\\BARE.PPD", ppd);
        const platform::PrinterHandle bare = fax.Open(FaxMachine::kPrinter, true);
        const DescriptionUse description(AcquireDescription(bare.get(), false));
        ASSERT_TRUE(description) << ppd;
        const size_t before = fax.machine.spooler().forms().size();
        UpgradeForms(bare.get(), *description.get());
        InstallForms(bare.get(), *description.get());
        EXPECT_EQ(fax.StoredNumber(u"Forms?"), installed) << ppd;
        EXPECT_EQ(fax.machine.spooler().forms().size(), before) << ppd;
    }
}

TEST_F(UpgradeTest, PutsPrinterFormsInThePlaceOfUserForms) {
    fax.machine.spooler().RemoveAllForms();
    for (const auto* name : {u"Zebra", u"A4", u"a4", u"Custom", u"B5"}) {
        AddUserForm(name);
    }
    fax.Store(u"Forms?", 2);
    Upgrade();
    EXPECT_EQ(fax.StoredNumber(u"Forms?"), 2u);
    EXPECT_EQ(FindForm(u"A4")->flags, FORM_PRINTER);
    EXPECT_FALSE(FindForm(u"Custom")) << "deleted, although its paper has no size";
    EXPECT_EQ(FindForm(u"Zebra")->flags, FORM_USER);
    EXPECT_EQ(FindForm(u"a4")->flags, FORM_USER) << "names are told apart by letter case";
    EXPECT_EQ(FindForm(u"B5")->flags, FORM_USER) << "the paper's name is its translation";
    EXPECT_TRUE(FindForm(u"B5 sheet"));
}

TEST_F(UpgradeTest, LeavesFormsThatDoNotClashAlone) {
    const struct {
        const char* what;
        std::optional<DWORD> installed;
        DWORD flags;
        std::u16string name;
    } rows[] = {
        {"never installed", std::nullopt, FORM_USER, u"A4"},
        {"to be installed", 0, FORM_USER, u"A4"},
        {"no user form", 2, FORM_PRINTER, u"A4"},
        {"no paper of that name", 2, FORM_USER, u"A5"},
    };
    for (const auto& row : rows) {
        fax.machine.spooler().RemoveAllForms();
        fax.machine.spooler().AddForm(embedded::WholePageForm(row.name, row.flags, 1, 2));
        fax.Forget(u"Forms?");
        if (row.installed) {
            fax.Store(u"Forms?", *row.installed);
        }
        Upgrade();
        ASSERT_EQ(fax.machine.spooler().forms().size(), 1u) << row.what;
        EXPECT_EQ(fax.machine.spooler().forms()[0].flags, row.flags) << row.what;
        EXPECT_EQ(fax.StoredNumber(u"Forms?"), row.installed) << row.what;
    }
}

TEST_F(UpgradeTest, DeletesAsOftenAsAPaperClashes) {
    fax.machine.spooler().RemoveAllForms();
    fax.AddPrinter(u"Twice", u"C:\\Ppd\\TWICE.PPD",
                   "*PPD-Adobe: \"4.3\"\n*OpenUI *PageSize: PickOne\n"
                   "*PageSize A/Same: \"x\"\n*PageSize B/Same: \"x\"\n*CloseUI: *PageSize\n");
    const platform::PrinterHandle twice = fax.Open(u"Twice", true);
    const DescriptionUse description(AcquireDescription(twice.get(), true));
    AddUserForm(u"Same");
    fax.machine.spooler().SetPrinterData(u"Twice", u"Forms?", embedded::StoredNumber(1));
    fax.machine.faults.Count();
    UpgradeForms(twice.get(), *description.get());
    const std::vector<std::string> names = fax.machine.faults.names();
    fax.machine.faults.Clear();
    EXPECT_EQ(std::count(names.begin(), names.end(), "DeleteFormW"), 2);
    EXPECT_TRUE(fax.machine.spooler().forms().empty());
}

TEST_F(UpgradeTest, ConvertsOlderTables) {
    const struct {
        const char* what;
        std::u16string older;
        std::u16string expected;  // empty: malformed
        size_t missing = 0;       // bytes by which the data is shorter than its size value
    } rows[] = {
        {"no entry", u"\0"s, u"\4\0"s},
        {"one entry", u"s\0f\0p\0\0"s, u"\x12s\0f\0p\0\0\0"s},
        {"two entries", u"ab\0cd\0ef\0gh\0\0\0\0"s,
         u"\x24"
         u"ab\0cd\0ef\0\0gh\0\0\0\0\0"s},
        {"no terminator", u"s\0f\0p\0"s, u""s},
        {"two strings", u"s\0f\0"s, u""s},
        {"a string to the end", u"s\0f\0p"s, u""s},
        {"an end before the end", u"s\0f\0p\0\0\0"s, u""s},
        {"the end first", u"\0s\0f\0p\0\0"s, u""s},
        {"60 bytes with two entries", u"Upper\0A4\0A4 f\0Low\0Letter\0Let\0\0"s,
         u"\x42Upper\0A4\0A4 f\0\0Low\0Letter\0Let\0\0\0"s},
        {"as long as can be", std::u16string(32759, u's') + u"\0f\0p\0\0"s,
         u"\xFFFE" + std::u16string(32759, u's') + u"\0f\0p\0\0\0"s},
        {"too long", std::u16string(32760, u's') + u"\0f\0p\0\0"s, u""s},
        {"torn", u"s\0f\0p\0"s, u""s, 2},
    };
    for (const auto& row : rows) {
        fax.StoreTable(BytesOf(row.older), row.missing);
        const bool isMalformed = row.expected.empty();
        EXPECT_EQ(UpgradeTrayFormTable(printer.get()), !isMalformed) << row.what;
        EXPECT_EQ(StoredTable(), isMalformed ? row.older : row.expected) << row.what;
        EXPECT_EQ(fax.StoredNumber(u"TrayFormSize"),
                  (isMalformed ? row.older : row.expected).size() * 2 + row.missing)
            << row.what;
        if (!isMalformed) {
            EXPECT_TRUE(TrayFormTable(ReadTrayFormTable(printer.get()))) << row.what;
            EXPECT_TRUE(UpgradeTrayFormTable(printer.get())) << row.what;
            EXPECT_EQ(StoredTable(), row.expected) << "again: " << row.what;
        }
    }
    for (const size_t odd : {15, 1}) {
        fax.StoreTable(BytesOf(u"s\0f\0p\0\0"s.data(), odd));
        EXPECT_FALSE(UpgradeTrayFormTable(printer.get()));
        EXPECT_EQ(fax.StoredNumber(u"TrayFormSize"), odd);
    }
    // Its own length in front makes a table current, though its end is missing.
    fax.StoreTable(BytesOf(u"\x12s\0f\0"s), 8);
    EXPECT_TRUE(UpgradeTrayFormTable(printer.get()));
    EXPECT_EQ(StoredTable(), u"\x12s\0f\0"s);
}

TEST_F(UpgradeTest, ConvertsATableAgainThatCouldNotBeStored) {
    for (const unsigned nth : {1, 2}) {
        fax.StoreTable(BytesOf(kOlderTable));
        fax.machine.faults.FailCall("SetPrinterDataW", nth);
        EXPECT_TRUE(UpgradeTrayFormTable(printer.get())) << nth;
        fax.machine.faults.Clear();
        EXPECT_EQ(StoredTable(), kOlderTable) << nth;
        EXPECT_TRUE(UpgradeTrayFormTable(printer.get())) << nth;
        EXPECT_EQ(StoredTable(), kConvertedTable) << nth;
    }
    for (const unsigned nth : {1, 2}) {
        fax.StoreTable(BytesOf(kOlderTable));
        fax.machine.faults.FailCall("GlobalAlloc", nth);
        EXPECT_FALSE(UpgradeTrayFormTable(printer.get())) << nth;
        fax.machine.faults.Clear();
        EXPECT_EQ(StoredTable(), kOlderTable) << nth;
    }
}

TEST_F(UpgradeTest, UpgradesAPrinter) {
    fax.Store(u"Forms?", 2);
    AddUserForm(u"B5 sheet");
    fax.StoreTable(BytesOf(kOlderTable));
    EXPECT_EQ(UpgradePrinter(), TRUE);
    EXPECT_EQ(FindForm(u"B5 sheet")->flags, FORM_PRINTER);
    EXPECT_EQ(fax.StoredNumber(u"PrinterDataSize"), 108u);
    EXPECT_EQ(StoredTable(), kConvertedTable);
    // A printer without a table is as good; one with a malformed table keeps it.
    fax.Forget(u"TrayFormSize");
    EXPECT_EQ(UpgradePrinter(), TRUE);
    fax.StoreTable(BytesOf(u"s\0f"s));
    EXPECT_EQ(UpgradePrinter(), FALSE);
    EXPECT_NE(GetLastError(), DWORD{ERROR_INVALID_PARAMETER});
    EXPECT_EQ(StoredTable(), u"s\0f"s);
}

TEST_F(UpgradeTest, RefusesWrongArguments) {
    EXPECT_EQ(UpgradePrinter(2), FALSE);
    EXPECT_EQ(GetLastError(), ERROR_INVALID_PARAMETER);
    SetLastError(ERROR_SUCCESS);
    EXPECT_EQ(DrvUpgradePrinter(1, nullptr), FALSE);
    EXPECT_EQ(GetLastError(), ERROR_INVALID_PARAMETER);
    DRIVER_UPGRADE_INFO_1W nameless = {};
    SetLastError(ERROR_SUCCESS);
    EXPECT_EQ(DrvUpgradePrinter(1, reinterpret_cast<LPBYTE>(&nameless)), FALSE);
    EXPECT_EQ(GetLastError(), ERROR_INVALID_PARAMETER);
    fax.machine.spooler().RefuseOpen(FaxMachine::kPrinter, ERROR_ACCESS_DENIED);
    EXPECT_EQ(UpgradePrinter(), FALSE);
    EXPECT_EQ(GetLastError(), ERROR_INVALID_PARAMETER);
    EXPECT_EQ(fax.StoredNumber(u"PrinterDataSize"), std::nullopt);
}

TEST_F(UpgradeTest, FailsWithoutADescription) {
    fax.RemoveFile(u"C:\\Ppd\\FAX.PPD");
    EXPECT_EQ(UpgradePrinter(), FALSE);
    EXPECT_NE(GetLastError(), ERROR_INVALID_PARAMETER);
}

TEST_F(UpgradeTest, GoesByTheDataFileAsItIsNow) {
    const uint16_t before = fax.Checksum();  // and the cache holds the old description
    fax.ChangePpd("*Manufacturer: \"Another\"\n");
    EXPECT_EQ(UpgradePrinter(), TRUE);
    EXPECT_NE(fax.StoredDeviceRecord().descriptionChecksum, before);
    EXPECT_EQ(fax.StoredDeviceRecord().descriptionChecksum,
              descriptionCache.cachedDescription->Checksum);
}

TEST_F(UpgradeTest, HoldsTheLockWhileItRewritesButNotWhileItAsks) {
    MakeOld();
    std::set<std::pair<std::string, bool>> seen;
    const auto watch = [&](const std::string& call) {
        seen.emplace(call, embedded::IsHeldByThisThread(moduleLock));
    };
    fax.machine.faults.Count(watch);
    EXPECT_EQ(UpgradePrinter(), TRUE);
    fax.machine.faults.Clear();
    for (const auto* held : {"EnumFormsW", "AddFormW", "DeleteFormW", "SetPrinterDataW"}) {
        EXPECT_TRUE(seen.contains({held, true}) && !seen.contains({held, false})) << held;
    }
    for (const auto* free : {"OpenPrinterW", "GetPrinterDriverW"}) {
        EXPECT_TRUE(seen.contains({free, false}) && !seen.contains({free, true})) << free;
    }
}

TEST_F(UpgradeTest, GivesEverythingBackWhateverFails) {
    BOOL result = FALSE;
    const auto prepare = [&] {
        fax.machine.spooler().RemoveAllForms();
        MakeOld();
        fax.StoreDeviceRecord(fax.DeviceRecord());
    };
    unsigned failures = 0;
    fax.FailEachCall(
        prepare, [&] { result = UpgradePrinter(); },
        [&](const std::string& failed) {
            // Forms and the spooler's refusal to store count for nothing.
            for (const auto* harmless :
                 {"", "AddFormW", "DeleteFormW", "EnumFormsW", "SetPrinterDataW"}) {
                EXPECT_TRUE(failed != harmless || result == TRUE);
            }
            for (const auto* fatal : {"OpenPrinterW", "GetPrinterDriverW"}) {
                EXPECT_TRUE(failed != fatal || result == FALSE);
            }
            if (failed == "OpenPrinterW") {
                EXPECT_EQ(GetLastError(), ERROR_INVALID_PARAMETER);
            }
            failures += result == FALSE;
            // Whatever is stored is the old or the new, whole. Only a record that the spooler
            // does not give is made anew.
            EXPECT_TRUE(StoredTable() == kOlderTable ||
                        (result == TRUE && StoredTable() == kConvertedTable));
            EXPECT_EQ(fax.StoredNumber(u"TrayFormSize"), StoredTable().size() * 2);
            EXPECT_EQ(fax.StoredNumber(u"PrinterDataSize"), 108u);
            EXPECT_TRUE(failed == "GetPrinterDataW" || fax.StoredDeviceRecord().memoryBytes == 77);
        });
    EXPECT_GE(failures, 6u);
}

TEST_F(UpgradeTest, RunsWhileOtherThreadsAskCapabilities) {
    fax.AddPrinter(u"Other", u"C:\\Ppd\\OTHER.PPD", kFaxPpd);
    std::atomic<unsigned> wrong = 0;
    const auto upgrade = [&] {
        for (int i = 0; i < 20; ++i) {
            MakeOld();
            wrong += UpgradePrinter() != TRUE;
            wrong += FindForm(u"A4")->flags != FORM_PRINTER;
            wrong += fax.StoredNumber(u"Forms?") != 2u;
            wrong += StoredTable() != kConvertedTable;
        }
    };
    const auto use = [&](std::u16string name) {
        const platform::PrinterHandle printer = fax.Open(name);
        for (int i = 0; i < 50; ++i) {
            WORD papers[8] = {};
            wrong +=
                DrvDeviceCapabilities(printer.get(), name.data(), DC_PAPERS, papers, nullptr) != 4;
            const DescriptionUse description(AcquireDescription(printer.get(), true));
            wrong += !description || !GetPrinterDataRecord(printer.get(), *description.get());
        }
    };
    {
        std::jthread first(upgrade);
        std::jthread second(use, u"Fax");
        std::jthread third(use, u"Other");
    }
    EXPECT_EQ(wrong, 0u);
    EXPECT_EQ(descriptionCache.useCount, 0u);
}

}  // namespace
}  // namespace ksfax
