#include <cstring>
#include <optional>
#include <vector>

#include <gtest/gtest.h>

#include "core/module_state.h"
#include "core/session.h"
#include "description/printer_description.h"
#include "tests/core/fax_machine.h"

namespace ksfax {
namespace {

using Bytes = std::vector<std::byte>;

Bytes BytesOf(std::string_view text) {
    const auto* bytes = reinterpret_cast<const std::byte*>(text.data());
    return Bytes(bytes, bytes + text.size());
}

class SessionTest : public testing::Test {
  protected:
    SessionTest() : printer(fax.Open()) {}

    // The default record of the printer's driver, with one choice of its own.
    JobSettings DefaultRecord(short orientation = 1) {
        const DescriptionUse description(AcquireDescription(printer.get(), true));
        JobSettings settings;
        BuildDefaultJobSettings(&settings, u"Fax", *description.get(), false);
        settings.devMode.dmOrientation = orientation;
        return settings;
    }
    void SetPrinterDefault(const void* record, size_t bytes) {
        embedded::Printer changed = *fax.machine.spooler().FindPrinter(FaxMachine::kPrinter);
        const auto* first = static_cast<const std::byte*>(record);
        changed.defaultSettings.assign(first, first + bytes);
        fax.machine.spooler().AddPrinter(std::move(changed));
        printer = fax.Open();
    }
    void SetPrinterDefault(const JobSettings& record) {
        SetPrinterDefault(&record, sizeof(record));
    }
    Bytes PrinterDefault() {
        return fax.machine.spooler().FindPrinter(FaxMachine::kPrinter)->defaultSettings;
    }
    std::optional<Bytes> Stored(std::u16string_view name) {
        const auto value = fax.machine.spooler().PrinterData(FaxMachine::kPrinter, name);
        return value ? std::optional(value->data) : std::nullopt;
    }
    void Store(std::u16string_view name, std::string_view bytes) {
        fax.machine.spooler().SetPrinterData(FaxMachine::kPrinter, name,
                                             {.type = REG_BINARY, .data = BytesOf(bytes)});
    }

    FaxMachine fax;
    platform::PrinterHandle printer;
};

TEST_F(SessionTest, HoldsWhatThePrinterIs) {
    const embedded::Leaks before = fax.OpenWithoutCache();
    {
        const OpenSession owner(OpenPrinterSession(printer.get(), nullptr));
        ASSERT_TRUE(owner);
        const PrinterSession& session = *owner.get();
        EXPECT_TRUE(IsPrinterSession(&session));
        EXPECT_EQ(session.canModify, 0u);
        EXPECT_EQ(session.printerHandle, printer.get());
        EXPECT_EQ(session.description, descriptionCache.cachedDescription);
        EXPECT_EQ(descriptionCache.useCount, 1u);
        EXPECT_EQ(std::u16string(session.driverName), u"Fax");
        EXPECT_EQ(std::u16string(session.portName), u"FAX:");
        EXPECT_EQ(session.printerData.version, 260);
        EXPECT_EQ(session.printerData.size, 108);
        EXPECT_EQ(session.printerData.installableCount, 3);
        EXPECT_EQ(std::u16string(session.jobSettings.devMode.dmDeviceName), u"Fax");
        EXPECT_EQ(PrivatePart(session.jobSettings).pagesPerSheetOut, 0);
        // 200 dpi are the description's own; the session found the form of its paper.
        EXPECT_EQ(session.jobSettings.devMode.dmPrintQuality, 200);
        EXPECT_EQ(std::u16string(session.jobSettings.devMode.dmFormName), u"Letter");
    }
    EXPECT_EQ(fax.OpenWithoutCache(), before);
}

TEST(IsPrinterSession, LooksAtBothEnds) {
    PrinterSession session = {};
    EXPECT_FALSE(IsPrinterSession(nullptr));
    EXPECT_FALSE(IsPrinterSession(&session));
    session.selfCheckHead = &session;
    EXPECT_FALSE(IsPrinterSession(&session));
    session.selfCheckTail = &session;
    EXPECT_TRUE(IsPrinterSession(&session));
    session.selfCheckHead = nullptr;
    EXPECT_FALSE(IsPrinterSession(&session));
}

TEST_F(SessionTest, MergesTheCallersRecordOverThePrintersOwn) {
    const JobSettings landscape = DefaultRecord(2);
    JobSettings caller = DefaultRecord();
    caller.devMode.dmFields = DM_PAPERSIZE;
    caller.devMode.dmPaperSize = 9;
    // No record at all: nobody's choices are merged, and none is stored.
    {
        const OpenSession session(OpenPrinterSession(printer.get(), &caller.devMode));
        EXPECT_EQ(session.get()->jobSettings.devMode.dmPaperSize, 1);
        EXPECT_EQ(session.get()->jobSettings.devMode.dmOrientation, 1);
        EXPECT_TRUE(PrinterDefault().empty());
    }
    SetPrinterDefault(landscape);
    {
        const OpenSession session(OpenPrinterSession(printer.get(), &caller.devMode));
        EXPECT_EQ(session.get()->jobSettings.devMode.dmPaperSize, 9);
        EXPECT_EQ(session.get()->jobSettings.devMode.dmOrientation, 2);
        EXPECT_EQ(std::u16string(session.get()->jobSettings.devMode.dmFormName), u"A4");
    }
    const OpenSession session(OpenPrinterSession(printer.get(), nullptr));
    EXPECT_EQ(session.get()->jobSettings.devMode.dmPaperSize, 1);
    EXPECT_EQ(session.get()->jobSettings.devMode.dmOrientation, 2);
}

TEST_F(SessionTest, ReplacesAForeignDefaultOnceAndThenHeedsCallers) {
    const JobSettings ours = DefaultRecord();
    JobSettings caller = DefaultRecord();
    caller.devMode.dmPaperSize = 9;
    const struct {
        const char* what;
        void (*spoil)(DEVMODEW&);
        bool isReplaced;
    } rows[] = {
        {"current", [](DEVMODEW&) {}, false},
        {"another dmSpecVersion", [](DEVMODEW& r) { r.dmSpecVersion = 0x0400; }, true},
        {"another driver version", [](DEVMODEW& r) { r.dmDriverVersion = 0x0350; }, true},
        {"another private part", [](DEVMODEW& r) { r.dmDriverExtra = 2387; }, true},
    };
    for (const auto& row : rows) {
        JobSettings stored = DefaultRecord(2);
        row.spoil(stored.devMode);
        SetPrinterDefault(stored);
        const OpenSession first(OpenPrinterSession(printer.get(), &caller.devMode));
        ASSERT_TRUE(first) << row.what;
        EXPECT_EQ(first.get()->jobSettings.devMode.dmPaperSize, row.isReplaced ? 1 : 9) << row.what;
        const Bytes now = PrinterDefault();
        ASSERT_EQ(now.size(), sizeof(ours)) << row.what;
        const void* expected = row.isReplaced ? &ours : &stored;
        EXPECT_EQ(std::memcmp(now.data(), expected, now.size()), 0) << row.what;
        const OpenSession second(OpenPrinterSession(printer.get(), &caller.devMode));
        EXPECT_EQ(second.get()->jobSettings.devMode.dmPaperSize, 9) << row.what;
    }
}

TEST_F(SessionTest, LeavesAForeignDefaultThatItMayNotReplace) {
    JobSettings stored = DefaultRecord(2);
    stored.devMode.dmSpecVersion = 0x0400;
    JobSettings caller = DefaultRecord();
    caller.devMode.dmFields = DM_PAPERSIZE;
    caller.devMode.dmPaperSize = 9;
    SetPrinterDefault(stored);
    fax.machine.spooler().SetAdministrator(false);
    // Of this driver's version all the same, so it counts, and so does the caller's.
    const OpenSession session(OpenPrinterSession(printer.get(), &caller.devMode));
    ASSERT_TRUE(session);
    EXPECT_EQ(session.get()->jobSettings.devMode.dmOrientation, 2);
    EXPECT_EQ(session.get()->jobSettings.devMode.dmPaperSize, 9);
    EXPECT_EQ(std::memcmp(PrinterDefault().data(), &stored, sizeof(stored)), 0);
    EXPECT_EQ(Stored(u"UserName"), std::nullopt);
}

TEST_F(SessionTest, FindsItsHelpFile) {
    {
        const OpenSession session(OpenPrinterSession(printer.get(), nullptr));
        EXPECT_EQ(std::u16string(session.get()->helpFilePath),
                  u"C:\\Windows\\system32\\spool\\DRIVERS\\x64\\pscript.hlp");
    }
    fax.machine.spooler().AddDriver(
        {.name = u"Fax", .dataFile = u"C:\\Ppd\\FAX.PPD", .helpFile = u"C:\\Help\\FAX.HLP"});
    {
        const OpenSession session(OpenPrinterSession(printer.get(), nullptr));
        EXPECT_EQ(std::u16string(session.get()->helpFilePath), u"C:\\Help\\FAX.HLP");
    }
    const platform::PrivateHeap heap(HeapCreate(0, 8192, 0));
    fax.machine.faults.FailCall("HeapAlloc");
    EXPECT_EQ(std::u16string(FindHelpFile(printer.get(), heap.get())),
              u"C:\\Windows\\system32\\spool\\DRIVERS\\x64\\pscript.hlp")
        << "the driver's own, then the folder's";
    fax.machine.faults.FailCall("HeapAlloc", 1, true);
    EXPECT_EQ(FindHelpFile(printer.get(), heap.get()), nullptr);
}

TEST_F(SessionTest, RecordsWhoOpenedItLast) {
    const Bytes user = BytesOf(std::string_view("User", 5));
    const Bytes computer = BytesOf(std::string_view("FAXPC", 6));
    const struct {
        const char* what;
        std::string_view user;
        std::string_view computer;
        bool isWritten;
    } rows[] = {
        {"nothing stored", {}, {}, true},
        {"others", {"Bob", 4}, {"OTHER", 6}, true},
        {"longer than any name", {"UserUserUserUserUser", 21}, {"FAXPCFAXPCFAXPCFAXPC", 21}, true},
        {"the same in other letter case", {"uSER", 5}, {"faxPc", 6}, false},
        {"the same without terminator", {"USER", 4}, {"faxpc", 5}, false},
    };
    for (const auto& row : rows) {
        Store(u"UserName", row.user);
        Store(u"ComputerName", row.computer);
        RecordUserAndComputer(printer.get());
        EXPECT_EQ(Stored(u"UserName"), row.isWritten ? user : BytesOf(row.user)) << row.what;
        EXPECT_EQ(Stored(u"ComputerName"), row.isWritten ? computer : BytesOf(row.computer))
            << row.what;
    }
    EXPECT_EQ(fax.machine.spooler().PrinterData(FaxMachine::kPrinter, u"UserName")->type,
              REG_BINARY);
}

TEST_F(SessionTest, TakesTheDeviceRecordInTheCurrentVersion) {
    PrinterDataRecord record;
    std::memset(&record, 0x5A, sizeof(record));
    record.version = 259;
    record.size = 50;
    {
        const DescriptionUse description(AcquireDescription(printer.get(), true));
        record.descriptionChecksum = description.get()->Checksum;
    }
    Store(u"PrinterDataSize", std::string_view("\x6c\0\0\0", 4));
    Store(u"PrinterData", {reinterpret_cast<const char*>(&record), sizeof(record)});
    const OpenSession session(OpenPrinterSession(printer.get(), nullptr));
    ASSERT_TRUE(session);
    const PrinterDataRecord& copy = session.get()->printerData;
    EXPECT_EQ(copy.version, 260);
    EXPECT_EQ(copy.size, 108);
    EXPECT_EQ(copy.languageIndex, 0);
    EXPECT_EQ(copy.memoryBytes, 0x5A5A5A5Au);
    EXPECT_EQ(copy.installableSelections[5], 0x5A);
    EXPECT_EQ(copy.installableSelections[6], 0);
}

TEST_F(SessionTest, InstallsTheDescriptionsForms) {
    const OpenSession session(OpenPrinterSession(printer.get(), nullptr));
    // An open by someone who may not change the printer leaves it for the next one.
    const auto forms = fax.machine.spooler().forms();
    EXPECT_EQ(forms.back().name, u"B5 sheet");
    EXPECT_EQ(forms.back().flags, FORM_PRINTER);
}

TEST_F(SessionTest, GivesEverythingBackWhateverFails) {
    JobSettings stored = DefaultRecord();
    stored.devMode.dmSpecVersion = 0x0400;
    const JobSettings caller = DefaultRecord(2);
    bool isOpened = false;
    const auto prepare = [&] {
        SetPrinterDefault(stored);
        for (const auto* name : {u"UserName", u"ComputerName", u"Forms?"}) {
            fax.machine.spooler().RemovePrinterData(FaxMachine::kPrinter, name);
        }
    };
    unsigned failures = 0;
    fax.FailEachCall(
        prepare,
        [&] {
            PrinterSession* session = OpenPrinterSession(printer.get(), &caller.devMode);
            isOpened = session != nullptr;
            if (isOpened) {
                EXPECT_TRUE(IsPrinterSession(session));
                ClosePrinterSession(session);
            }
        },
        [&](const std::string& failed) {
            // What only keeps stored state in order never refuses a session.
            for (const auto* harmless :
                 {"", "SetPrinterW", "OpenPrinterW", "AddFormW", "SetPrinterDataW", "GetUserNameA",
                  "GetComputerNameA", "GetLocaleInfoW", "GetPrinterDataA", "GetPrinterDataW",
                  "GetPrinterDriverDirectoryW", "LoadStringW", "GetActiveWindow"}) {
                EXPECT_TRUE(failed != harmless || isOpened) << failed;
            }
            EXPECT_TRUE(failed != "HeapCreate" || !isOpened);
            failures += !isOpened;
        });
    // The heap, the session in it, the description, the printer's information, its driver name,
    // its device record: each refuses at one call at least.
    EXPECT_GE(failures, 8u);
}

}  // namespace
}  // namespace ksfax
