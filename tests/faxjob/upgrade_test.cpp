#include <atomic>
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

class UpgradeTest : public testing::Test {
  protected:
    UpgradeTest() : printer(fax.Open(FaxMachine::kPrinter, true)) {}

    void Store(std::u16string_view name, DWORD number) {
        fax.machine.spooler().SetPrinterData(FaxMachine::kPrinter, name,
                                             embedded::StoredNumber(number));
    }
    void StoreTable(std::u16string_view table, size_t bytes) {
        const auto* first = reinterpret_cast<const std::byte*>(table.data());
        Store(u"TrayFormSize", static_cast<DWORD>(bytes));
        fax.machine.spooler().SetPrinterData(FaxMachine::kPrinter, u"TrayFormTable",
                                             {.type = REG_BINARY, .data = {first, first + bytes}});
    }
    std::u16string StoredTable() {
        const auto value =
            fax.machine.spooler().PrinterData(FaxMachine::kPrinter, u"TrayFormTable");
        return std::u16string(reinterpret_cast<const char16_t*>(value->data.data()),
                              value->data.size() / 2);
    }
    std::optional<DWORD> Number(std::u16string_view name) {
        const auto value = fax.machine.spooler().PrinterData(FaxMachine::kPrinter, name);
        if (!value) {
            return std::nullopt;
        }
        DWORD number = 0;
        EXPECT_EQ(value->data.size(), sizeof(number));
        std::memcpy(&number, value->data.data(), std::min(value->data.size(), sizeof(number)));
        return number;
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
    EXPECT_EQ(Number(u"Forms?"), 2u);
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
    Store(u"Forms?", 0);
    Install();
    EXPECT_EQ(fax.machine.spooler().forms().size(), 3u);
}

TEST_F(UpgradeTest, NamesFormsWithinTheirField) {
    fax.machine.spooler().RemoveAllForms();
    fax.AddPrinter(u"Long", u"C:\\Ppd\\LONG.PPD",
                   "*PPD-Adobe: \"4.3\"\n*OpenUI *PageSize: PickOne\n"
                   "*PageSize A/: \"x\"\n"
                   "*PageSize B/A name of thirty-five characters so: \"x\"\n"
                   "*CloseUI: *PageSize\n"
                   "*PaperDimension A: \"1 1\"\n*PaperDimension B: \"8388607 1\"\n");
    const platform::PrinterHandle other = fax.Open(u"Long", true);
    const DescriptionUse description(AcquireDescription(other.get(), true));
    ASSERT_TRUE(description);
    InstallForms(other.get(), *description.get());
    EXPECT_TRUE(FindForm(u"A")) << "an empty translation is none";
    const auto cut = FindForm(u"A name of thirty-five character");
    ASSERT_TRUE(cut);
    EXPECT_EQ(cut->size.cx, 2147483647) << "clamped";
}

TEST_F(UpgradeTest, LeavesADescriptionWithoutPapersAlone) {
    fax.AddPrinter(u"Bare", u"C:\\Ppd\\BARE.PPD", "*PPD-Adobe: \"4.3\"\n");
    const platform::PrinterHandle bare = fax.Open(u"Bare", true);
    const DescriptionUse description(AcquireDescription(bare.get(), true));
    ASSERT_TRUE(description);
    InstallForms(bare.get(), *description.get());
    UpgradeForms(bare.get(), *description.get());
    EXPECT_EQ(fax.machine.spooler().PrinterData(u"Bare", u"Forms?"), std::nullopt);
}

TEST_F(UpgradeTest, PutsPrinterFormsInThePlaceOfUserForms) {
    fax.machine.spooler().RemoveAllForms();
    for (const auto* name : {u"Zebra", u"A4", u"a4", u"Custom", u"B5"}) {
        AddUserForm(name);
    }
    Store(u"Forms?", 2);
    Upgrade();
    EXPECT_EQ(Number(u"Forms?"), 2u);
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
        fax.machine.spooler().RemovePrinterData(FaxMachine::kPrinter, u"Forms?");
        if (row.installed) {
            Store(u"Forms?", *row.installed);
        }
        Upgrade();
        ASSERT_EQ(fax.machine.spooler().forms().size(), 1u) << row.what;
        EXPECT_EQ(fax.machine.spooler().forms()[0].flags, row.flags) << row.what;
        EXPECT_EQ(Number(u"Forms?"), row.installed) << row.what;
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
        {"too long", std::u16string(32761, u's') + u"\0f\0p\0\0"s, u""s},
    };
    for (const auto& row : rows) {
        StoreTable(row.older, row.older.size() * 2);
        const bool isMalformed = row.expected.empty();
        EXPECT_EQ(UpgradeTrayFormTable(printer.get()), !isMalformed) << row.what;
        EXPECT_EQ(StoredTable(), isMalformed ? row.older : row.expected) << row.what;
        EXPECT_EQ(Number(u"TrayFormSize"), (isMalformed ? row.older : row.expected).size() * 2)
            << row.what;
        if (!isMalformed) {
            EXPECT_TRUE(TrayFormTable(ReadTrayFormTable(printer.get()))) << row.what;
            EXPECT_TRUE(UpgradeTrayFormTable(printer.get())) << row.what;
            EXPECT_EQ(StoredTable(), row.expected) << "again: " << row.what;
        }
    }
    const std::u16string odd = u"s\0f\0p\0\0"s;
    StoreTable(odd, 15);
    EXPECT_FALSE(UpgradeTrayFormTable(printer.get()));
    StoreTable(odd, 1);
    EXPECT_FALSE(UpgradeTrayFormTable(printer.get()));
    EXPECT_EQ(Number(u"TrayFormSize"), 1u);
}

TEST_F(UpgradeTest, MakesSixtySixBytesOfSixtyWithTwoEntries) {
    const std::u16string older = u"Upper\0A4\0A4 f\0Low\0Letter\0Let\0\0"s;
    ASSERT_EQ(older.size() * 2, 60u);
    StoreTable(older, 60);
    EXPECT_TRUE(UpgradeTrayFormTable(printer.get()));
    EXPECT_EQ(StoredTable(), u"\x42Upper\0A4\0A4 f\0\0Low\0Letter\0Let\0\0\0"s);
    EXPECT_EQ(Number(u"TrayFormSize"), 66u);
}

TEST_F(UpgradeTest, UpgradesAPrinter) {
    Store(u"Forms?", 2);
    AddUserForm(u"B5 sheet");
    StoreTable(u"s\0f\0p\0\0"s, 14);
    EXPECT_EQ(UpgradePrinter(), TRUE);
    EXPECT_EQ(FindForm(u"B5 sheet")->flags, FORM_PRINTER);
    EXPECT_EQ(Number(u"PrinterDataSize"), 108u);
    EXPECT_EQ(StoredTable(), u"\x12s\0f\0p\0\0\0"s);
    // A printer without a table is as good; one with a malformed table keeps it.
    fax.machine.spooler().RemovePrinterData(FaxMachine::kPrinter, u"TrayFormSize");
    EXPECT_EQ(UpgradePrinter(), TRUE);
    StoreTable(u"s\0f"s, 6);
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
    EXPECT_EQ(Number(u"PrinterDataSize"), std::nullopt);
}

TEST_F(UpgradeTest, FailsWithoutADescription) {
    fax.RemoveFile(u"C:\\Ppd\\FAX.PPD");
    EXPECT_EQ(UpgradePrinter(), FALSE);
    EXPECT_NE(GetLastError(), ERROR_INVALID_PARAMETER);
}

TEST_F(UpgradeTest, GivesEverythingBackWhateverFails) {
    BOOL result = FALSE;
    const auto prepare = [&] {
        fax.machine.spooler().RemoveAllForms();
        AddUserForm(u"A4");
        fax.RemoveDeviceRecord();
        Store(u"Forms?", 2);
        StoreTable(u"s\0f\0p\0\0"s, 14);
    };
    unsigned failures = 0;
    fax.FailEachCall(
        prepare, [&] { result = UpgradePrinter(); },
        [&](const std::string& failed) {
            // Forms and the spooler's refusal to store count for nothing.
            for (const auto* harmless : {"", "AddFormW", "DeleteFormW", "EnumFormsW",
                                         "SetPrinterDataW", "GetLocaleInfoW"}) {
                EXPECT_TRUE(failed != harmless || result == TRUE);
            }
            for (const auto* fatal : {"OpenPrinterW", "GetPrinterDriverW"}) {
                EXPECT_TRUE(failed != fatal || result == FALSE);
            }
            if (failed == "OpenPrinterW") {
                EXPECT_EQ(GetLastError(), ERROR_INVALID_PARAMETER);
            }
            failures += result == FALSE;
        });
    EXPECT_GE(failures, 6u);
}

TEST(DrvUpgradePrinterThreads, RunsWhileOthersAskCapabilities) {
    FaxMachine fax;
    fax.AddPrinter(u"Other", u"C:\\Ppd\\OTHER.PPD", kFaxPpd);
    std::atomic<unsigned> wrong = 0;
    const auto upgrade = [&](std::u16string name) {
        DRIVER_UPGRADE_INFO_1W information = {.pPrinterName = name.data(),
                                              .pOldDriverDirectory = nullptr};
        for (int i = 0; i < 20; ++i) {
            wrong += !DrvUpgradePrinter(1, reinterpret_cast<LPBYTE>(&information));
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
        std::jthread first(upgrade, u"Fax");
        std::jthread second(use, u"Fax");
        std::jthread third(use, u"Other");
    }
    EXPECT_EQ(wrong, 0u);
    EXPECT_EQ(descriptionCache.useCount, 0u);
}

}  // namespace
}  // namespace ksfax
