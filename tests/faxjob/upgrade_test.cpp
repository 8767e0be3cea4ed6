#include <algorithm>
#include <numeric>
#include <regex>
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
    const auto run = [&](const std::string& word, const std::string& rest) -> std::string {
        if (word == "papers") {  // names apart by ";", a "-" before those without a size
            std::string options;
            std::string sizes;
            for (std::string name : LinesOf(std::regex_replace(rest, std::regex(";"), "\n"))) {
                if (!name.starts_with('-')) {
                    sizes += "*PaperDimension " + name.substr(0, name.find('/')) + ": \"1 1\"\n";
                }
                options += "*PageSize " + name.substr(name.starts_with('-')) + ": \"x\"\n";
            }
            fax.AddPrinter(FaxMachine::kPrinter, u"C:\\Ppd\\FORMS.PPD",
                           "*PPD-Adobe: \"4.3\"\n" +
                               (rest == "none" ? ""
                                               : "*OpenUI *PageSize: PickOne\n" + options +
                                                     "*CloseUI: *PageSize\n" + sizes));
            printer = fax.Open(FaxMachine::kPrinter, true);
            return "";
        }
        if (word == "forms") {
            SetForms(rest);
            return "";
        }
        if (rest != "") {
            fax.Store(u"Forms?", static_cast<DWORD>(std::stoul(rest)));
        }
        const DescriptionUse description(AcquireDescription(printer.get(), false));
        fax.machine.faults.Count();
        (word == "install" ? InstallForms : UpgradeForms)(printer.get(), *description.get());
        const std::vector<std::string> calls = fax.machine.faults.names();
        fax.machine.faults.Clear();
        const auto installed = fax.StoredNumber(u"Forms?");
        fax.Forget(u"Forms?");
        return "Forms? " + (installed ? std::to_string(*installed) : "missing") + ", deleted " +
               std::to_string(std::ranges::count(calls, "DeleteFormW")) + ", now [" + Forms() + "]";
    };
    EXPECT_TRUE(IsReplayed("faxjob/forms.txt", run));
}

TEST_F(UpgradeTest, MakesFormsOfWholePages) {
    SetForms("");
    const DescriptionUse description(AcquireDescription(printer.get(), true));
    // As a cache file may say it; the reader makes both sides 0 where one is, and drops a
    // translation of no character.
    unsigned index = 0;
    for (const OptionRecord& option :
         ListOf(FeatureOf(*description.get(), FeatureKind::PageSize)->Options)) {
        auto& paper = const_cast<PaperOptionRecord&>(AsPaper(option));
        paper.PaperWidth = index == 0 ? 0 : paper.PaperWidth;
        paper.PaperHeight = index == 3 ? 1 : paper.PaperHeight;
        if (index++ == 2) {
            *const_cast<char*>(option.Translation.Target()) = 0;
        }
    }
    fax.machine.faults.Count();
    InstallForms(printer.get(), *description.get());
    EXPECT_EQ(std::ranges::count(fax.machine.faults.names(), "AddFormW"), 2);
    fax.machine.faults.Clear();
    EXPECT_EQ(Forms(), "A4;B5;");
    const embedded::Form a4 = fax.machine.spooler().forms()[0];
    EXPECT_TRUE(a4.size.cx == 209902 && a4.size.cy == 297038);
    EXPECT_TRUE(a4.imageableArea.left == 0 && a4.imageableArea.top == 0);
    EXPECT_TRUE(a4.imageableArea.right == 209902 && a4.imageableArea.bottom == 297038);
}

// Tables in which "." stands for a zero character and "<18>" for a length.
TEST_F(UpgradeTest, ConvertsOlderTables) {
    const auto run = [&](const std::string& missing, const std::string& rest) {
        std::u16string older = embedded::Utf16(rest);
        std::ranges::replace(older, u'.', u'\0');
        std::ranges::replace(older, u'!', char16_t{18});
        fax.StoreTable(BytesOf(older), std::stoul(missing));
        std::string told;
        for (const char* again : {"", ", again "}) {
            told += again + std::string(UpgradeTrayFormTable(printer.get()) ? "yes " : "no ");
            for (const char16_t c : StoredTable()) {
                told += c == 0                  ? "."
                        : c < u' ' || c == u'B' ? "<" + std::to_string(c) + ">"
                                                : std::string(1, static_cast<char>(c));
            }
            told += " " + std::to_string(fax.StoredNumber(u"TrayFormSize").value());
        }
        return told;
    };
    EXPECT_TRUE(IsReplayed("faxjob/tray_tables.txt", run));
    const std::u16string longest(32759, u's');
    fax.StoreTable(BytesOf(longest + u"\0f\0p\0\0"s));
    EXPECT_TRUE(UpgradeTrayFormTable(printer.get()));
    EXPECT_TRUE(TrayFormTable(ReadTrayFormTable(printer.get())));
    EXPECT_EQ(StoredTable(), u"\xFFFE" + longest + u"\0f\0p\0\0\0"s);
    fax.StoreTable(BytesOf(longest + u"s\0f\0p\0\0"s));
    EXPECT_FALSE(UpgradeTrayFormTable(printer.get()));
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
    EXPECT_TRUE(IsRecorded("faxjob/upgrade_under_faults.txt",
                           std::accumulate(lines.begin(), lines.end(), std::string())));
}

}  // namespace
}  // namespace ksfax
