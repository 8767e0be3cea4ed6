#include <algorithm>
#include <cstring>
#include <optional>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "core/module_state.h"
#include "core/session.h"
#include "core/spooler_queries.h"
#include "description/printer_description.h"
#include "tests/core/fax_machine.h"

namespace ksfax {
namespace {

class SessionTest : public testing::Test {
  protected:
    // The driver's name is not its printer's.
    explicit SessionTest(embedded::MachineSetup setup = {}) : fax(std::move(setup)) {
        SetPrinter({.name = u"Fax", .driverName = u"Fax Driver"});
    }

    // Gives the printer another shape, and its driver another name with it.
    void SetPrinter(embedded::Printer changed, std::u16string helpFile = {}) {
        fax.machine.spooler().AddDriver({.name = changed.driverName,
                                         .dataFile = u"C:\\Ppd\\FAX.PPD",
                                         .helpFile = std::move(helpFile)});
        fax.machine.spooler().AddPrinter(std::move(changed));
        printer = fax.Open();
    }
    void SetPrinterDefault(const JobSettings& record, size_t bytes = sizeof(JobSettings)) {
        SetPrinter({.name = u"Fax",
                    .driverName = u"Fax Driver",
                    .defaultSettings = BytesOf(&record, bytes)});
    }
    // The default record of the printer's driver, with one choice of its own.
    JobSettings DefaultRecord(short orientation = 1) {
        const DescriptionUse description(AcquireDescription(printer.get(), true));
        JobSettings settings;
        BuildDefaultJobSettings(&settings, u"Fax Driver", *description.get(), IsMetricLocale());
        settings.devMode.dmOrientation = orientation;
        return settings;
    }
    // An application's record that chooses A4 and says nothing else.
    JobSettings CallersRecord() {
        JobSettings record = DefaultRecord();
        record.devMode.dmFields = DM_PAPERSIZE;
        record.devMode.dmPaperSize = DMPAPER_A4;
        return record;
    }
    OpenSession Open(const JobSettings* callerRecord = nullptr) {
        return OpenSession(OpenPrinterSession(
            printer.get(), callerRecord != nullptr ? &callerRecord->devMode : nullptr));
    }
    Bytes PrinterDefault() {
        return fax.machine.spooler().FindPrinter(FaxMachine::kPrinter)->defaultSettings;
    }

    FaxMachine fax;
    platform::PrinterHandle printer;
};

TEST_F(SessionTest, HoldsWhatThePrinterIs) {
    const embedded::Leaks before = fax.OpenWithoutCache();
    {
        const OpenSession owner = Open();
        ASSERT_TRUE(owner);
        const PrinterSession& session = *owner.get();
        EXPECT_TRUE(IsPrinterSession(&session));
        EXPECT_EQ(session.canModify, 0u);
        EXPECT_EQ(session.printerHandle, printer.get());
        EXPECT_EQ(session.description, descriptionCache.cachedDescription);
        EXPECT_EQ(descriptionCache.useCount, 1u);
        const OpenSession second = Open();
        EXPECT_EQ(second.get()->description, session.description);
        EXPECT_EQ(descriptionCache.useCount, 2u);
        EXPECT_EQ(std::u16string(session.driverName), u"Fax Driver");
        EXPECT_EQ(std::u16string(session.portName), u"FAX:");
        EXPECT_EQ(session.printerData.version, 260);
        EXPECT_EQ(session.printerData.size, 108);
        EXPECT_EQ(session.printerData.installableCount, 3);
        EXPECT_EQ(std::u16string(session.jobSettings.devMode.dmDeviceName), u"Fax Driver");
        EXPECT_EQ(PrivatePart(session.jobSettings).pagesPerSheetOut, 0);
        EXPECT_EQ(PrivatePart(session.jobSettings).sourceOut,
                  session.jobSettings.devMode.dmDefaultSource);
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

TEST_F(SessionTest, CopiesThePrintersTextsWithinTheirFields) {
    const std::pair<std::u16string, std::u16string> rows[] = {
        {u"", u""},
        {u"LPT1:", u"LPT1:"},
        {std::u16string(259, u'p'), std::u16string(259, u'p')},
        {std::u16string(300, u'p'), std::u16string(259, u'p')},
    };
    for (const auto& [port, expected] : rows) {
        SetPrinter({.name = u"Fax", .driverName = u"", .portName = port});
        const OpenSession session = Open();
        ASSERT_TRUE(session) << port.size();
        EXPECT_EQ(std::u16string(session.get()->portName), expected);
        EXPECT_EQ(session.get()->pageResourceModule, nullptr);
        EXPECT_EQ(session.get()->pageBrush, nullptr);
        EXPECT_EQ(std::u16string(session.get()->driverName), u"") << "none at all is empty";
    }
}

TEST_F(SessionTest, MergesTheCallersRecordOverThePrintersOwn) {
    const JobSettings caller = CallersRecord();
    // No record at all: nobody's choices are merged, and none is stored.
    {
        const OpenSession session = Open(&caller);
        EXPECT_EQ(session.get()->jobSettings.devMode.dmPaperSize, DMPAPER_LETTER);
        EXPECT_EQ(session.get()->jobSettings.devMode.dmOrientation, 1);
        EXPECT_TRUE(PrinterDefault().empty());
    }
    SetPrinterDefault(DefaultRecord(2));
    {
        const OpenSession session = Open(&caller);
        EXPECT_EQ(session.get()->jobSettings.devMode.dmPaperSize, DMPAPER_A4);
        EXPECT_EQ(session.get()->jobSettings.devMode.dmOrientation, 2);
        EXPECT_EQ(std::u16string(session.get()->jobSettings.devMode.dmFormName), u"A4");
    }
    const OpenSession session = Open();
    EXPECT_EQ(session.get()->jobSettings.devMode.dmPaperSize, DMPAPER_LETTER);
    EXPECT_EQ(session.get()->jobSettings.devMode.dmOrientation, 2);
}

TEST_F(SessionTest, BeginsWithoutWhatOnlyOneJobHad) {
    JobSettings stored = DefaultRecord();
    PrivatePart(stored).layoutOverride = 1;
    PrivatePart(stored).duplexFlags |= 0x100;
    SetPrinterDefault(stored);
    const OpenSession session = Open();
    EXPECT_EQ(PrivatePart(session.get()->jobSettings).layoutOverride, 0);
    EXPECT_EQ(PrivatePart(session.get()->jobSettings).duplexOut & 0x100, 0);
    EXPECT_EQ(PrivatePart(session.get()->jobSettings).duplexFlags & 0x100, 0x100) << "kept";
}

// What a foreign record becomes, and what becomes of the choices in it (landscape) and in the
// caller's (A4), for one who may change the printer and for one who may not.
TEST_F(SessionTest, ReplacesAForeignDefaultOnceAndThenHeedsCallers) {
    const JobSettings ours = DefaultRecord();
    const JobSettings caller = CallersRecord();
    const struct {
        const char* what;
        void (*spoil)(DEVMODEW&);
        size_t bytes;
        bool isReplaced;
        bool isOfOurVersion;
    } rows[] = {
        {"current", [](DEVMODEW&) {}, 2608, false, true},
        {"another dmSpecVersion", [](DEVMODEW& r) { r.dmSpecVersion = 0x0400; }, 2608, true, true},
        {"another driver version", [](DEVMODEW& r) { r.dmDriverVersion = 0x0350; }, 2608, true,
         false},
        {"another private part", [](DEVMODEW& r) { r.dmDriverExtra = 2387; }, 2608, true, true},
        {"cut private bytes", [](DEVMODEW&) {}, 2500, true, false},
        {"the header alone", [](DEVMODEW&) {}, 72, true, false},
        {"less than the header", [](DEVMODEW&) {}, 70, true, false},
        {"next to nothing", [](DEVMODEW&) {}, 4, true, false},
    };
    for (const auto& row : rows) {
        SCOPED_TRACE(row.what);
        JobSettings stored = DefaultRecord(2);
        row.spoil(stored.devMode);
        SetPrinterDefault(stored, row.bytes);
        const Bytes before = PrinterDefault();
        fax.machine.spooler().SetAdministrator(false);
        {
            const OpenSession session = Open(&caller);
            ASSERT_TRUE(session);
            const DEVMODEW& settings = session.get()->jobSettings.devMode;
            EXPECT_EQ(settings.dmOrientation, row.isOfOurVersion ? 2 : 1);
            EXPECT_EQ(settings.dmPaperSize, row.isOfOurVersion ? DMPAPER_A4 : DMPAPER_LETTER);
            EXPECT_EQ(PrinterDefault(), before);
            EXPECT_EQ(fax.Stored(u"UserName"), std::nullopt);
        }
        fax.machine.spooler().SetAdministrator(true);
        const OpenSession first = Open(&caller);
        ASSERT_TRUE(first);
        const DEVMODEW& settings = first.get()->jobSettings.devMode;
        EXPECT_EQ(settings.dmOrientation, row.isReplaced ? 1 : 2);
        EXPECT_EQ(settings.dmPaperSize, row.isReplaced ? DMPAPER_LETTER : DMPAPER_A4);
        EXPECT_EQ(PrinterDefault(), row.isReplaced ? BytesOf(&ours, sizeof(ours)) : before);
        const OpenSession second = Open(&caller);
        EXPECT_EQ(second.get()->jobSettings.devMode.dmPaperSize, DMPAPER_A4);
        fax.Forget(u"UserName");
    }
}

class MetricSessionTest : public SessionTest {
  protected:
    MetricSessionTest() : SessionTest({.country = 49}) {}
};

TEST_F(MetricSessionTest, TakesItsDefaultsFromTheUsersCountry) {
    EXPECT_EQ(Open().get()->jobSettings.devMode.dmPaperSize, DMPAPER_A4);
    JobSettings foreign = DefaultRecord();
    foreign.devMode.dmPaperSize = DMPAPER_LETTER;
    foreign.devMode.dmDriverVersion = 0x0350;
    SetPrinterDefault(foreign);
    EXPECT_EQ(Open().get()->jobSettings.devMode.dmPaperSize, DMPAPER_A4);
    const JobSettings metric = DefaultRecord();
    EXPECT_EQ(PrinterDefault(), BytesOf(&metric, sizeof(metric)));
}

TEST_F(SessionTest, FindsItsHelpFile) {
    constexpr const char16_t* kFolders = u"C:\\Windows\\system32\\spool\\DRIVERS\\x64\\pscript.hlp";
    EXPECT_EQ(std::u16string(Open().get()->helpFilePath), kFolders);
    SetPrinter({.name = u"Fax", .driverName = u"Fax Driver"}, u"C:\\Help\\FAX.HLP");
    EXPECT_EQ(std::u16string(Open().get()->helpFilePath), u"C:\\Help\\FAX.HLP");
    const platform::PrivateHeap heap(HeapCreate(0, 8192, 0));
    fax.machine.faults.FailCall("HeapAlloc");
    EXPECT_EQ(std::u16string(FindHelpFile(printer.get(), heap.get())), kFolders)
        << "the driver's own, then the folder's";
    fax.machine.faults.FailCall("HeapAlloc", 1, true);
    EXPECT_EQ(FindHelpFile(printer.get(), heap.get()), nullptr);
}

TEST_F(SessionTest, RecordsWhoOpenedItLast) {
    const std::string kLongUser = "User" + std::string(600, '\0');
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
        {"longer than any name", kLongUser, {"FAXPCFAXPCFAXPCFAXPC", 21}, true},
        {"the same in other letter case", {"uSER", 5}, {"faxPc", 6}, false},
        {"the same without terminator", {"USER", 4}, {"faxpc", 5}, false},
    };
    for (const auto& row : rows) {
        fax.Store(u"UserName", BytesOf(row.user));
        fax.Store(u"ComputerName", BytesOf(row.computer));
        RecordUserAndComputer(printer.get());
        EXPECT_EQ(fax.Stored(u"UserName"), row.isWritten ? user : BytesOf(row.user)) << row.what;
        EXPECT_EQ(fax.Stored(u"ComputerName"), row.isWritten ? computer : BytesOf(row.computer))
            << row.what;
        for (const auto* name : {u"UserName", u"ComputerName"}) {
            EXPECT_EQ(fax.machine.spooler().PrinterData(FaxMachine::kPrinter, name)->type,
                      REG_BINARY);
        }
    }
}

TEST_F(SessionTest, TakesTheDeviceRecordInTheCurrentVersion) {
    PrinterDataRecord record;
    std::memset(&record, 0x5A, sizeof(record));
    record.version = 259;
    record.size = 50;
    record.descriptionChecksum = fax.Checksum();
    fax.StoreDeviceRecord(record);
    const OpenSession session = Open();
    ASSERT_TRUE(session);
    const PrinterDataRecord& copy = session.get()->printerData;
    EXPECT_EQ(copy.version, 260);
    EXPECT_EQ(copy.size, 108);
    EXPECT_EQ(copy.languageIndex, 0);
    EXPECT_EQ(copy.memoryBytes, 0x5A5A5A5Au);
    EXPECT_EQ(copy.installableSelections[5], 0x5A);
    EXPECT_EQ(copy.installableSelections[6], 0);
}

TEST_F(SessionTest, InstallsTheDescriptionsFormsWithoutTheLock) {
    fax.machine.faults.Count([](const std::string& call) {
        if (call == "AddFormW" || call == "SetPrinterDataW") {
            EXPECT_FALSE(embedded::IsHeldByAnyone(moduleLock)) << call;
        }
    });
    const OpenSession session = Open();
    const std::vector<std::string> names = fax.machine.faults.names();
    fax.machine.faults.Clear();
    EXPECT_EQ(std::ranges::count(names, "AddFormW"), 3);
    const auto forms = fax.machine.spooler().forms();
    EXPECT_EQ(forms.back().name, u"B5 sheet");
    EXPECT_EQ(forms.back().flags, FORM_PRINTER);
    // Opened by someone who may not change the printer: the next one shall try again.
    EXPECT_EQ(fax.Stored(u"Forms?"), std::nullopt);
}

TEST_F(SessionTest, OpensPrintersAnewWithTheRightsThatTheyNeed) {
    const embedded::PrinterOpening raw = {u"RAW", false, 0x000F000C};
    const embedded::PrinterOpening full = {u"", false, 0x000F000C};
    const embedded::PrinterOpening plain = {};
    JobSettings foreign = DefaultRecord();
    foreign.devMode.dmSpecVersion = 0x0400;
    SetPrinterDefault(foreign);
    const DescriptionUse description(AcquireDescription(printer.get(), true));
    const auto opening = [&] { return fax.machine.spooler().lastOpening(); };

    EXPECT_TRUE(EnsurePrinterDefaultJobSettings(printer.get(), *description.get()));
    EXPECT_EQ(opening(), full);
    EXPECT_TRUE(SetPrinterDataAsAdministrator(printer.get(), u"Some", REG_BINARY, "x", 1));
    EXPECT_EQ(opening(), raw);
    WCHAR name[] = u"Fax";
    DRIVER_UPGRADE_INFO_1W upgrade = {.pPrinterName = name, .pOldDriverDirectory = nullptr};
    EXPECT_TRUE(DrvUpgradePrinter(1, reinterpret_cast<LPBYTE>(&upgrade)));
    EXPECT_EQ(opening(), full);
    EXPECT_TRUE(DrvPrinterEvent(name, PRINTER_EVENT_CACHE_REFRESH, 0, 0));
    EXPECT_EQ(opening(), plain);
    EXPECT_TRUE(DrvPrinterEvent(name, PRINTER_EVENT_INITIALIZE, 0, 0));
    EXPECT_EQ(opening(), full);

    // A spooler that does not tell the printer's name: none is opened, nor the print server.
    fax.machine.spooler().ReportSize("GetPrinterW", sizeof(PRINTER_INFO_2W));
    fax.machine.faults.Count();
    EXPECT_FALSE(SetPrinterDataAsAdministrator(printer.get(), u"Some", REG_BINARY, "x", 1));
    const std::vector<std::string> names = fax.machine.faults.names();
    fax.machine.faults.Clear();
    EXPECT_EQ(std::ranges::count(names, "OpenPrinterW"), 0);
}

TEST_F(SessionTest, FailsForWantOfWhatItCannotDoWithout) {
    const struct {
        const char* call;
        unsigned nth;
        bool isOpened;
    } rows[] = {
        {"HeapAlloc", 1, false},   // the session
        {"HeapAlloc", 2, false},   // its driver's name
        {"HeapAlloc", 3, true},    // its help file
        {"GetPrinterW", 1, true},  // the default record's order: the name, twice, and the record
        {"GetPrinterW", 2, true},  {"GetPrinterW", 3, true},
        {"GetPrinterW", 4, true},  {"GetPrinterW", 5, false},  // the printer itself
        {"GetPrinterW", 6, false}, {"GetPrinterW", 7, true},   // who opened it
        {"GetPrinterW", 8, true},
    };
    for (const auto& row : rows) {
        fax.Forget(u"UserName");
        fax.machine.faults.FailCall(row.call, row.nth);
        const OpenSession session = Open();
        EXPECT_TRUE(fax.machine.faults.struck());
        fax.machine.faults.Clear();
        EXPECT_EQ(bool(session), row.isOpened) << row.call << ' ' << row.nth;
        if (row.call == std::string("HeapAlloc") && session) {
            EXPECT_EQ(session.get()->helpFilePath, nullptr);
        }
    }
}

TEST_F(SessionTest, GivesEverythingBackWhateverFails) {
    JobSettings stored = DefaultRecord();
    stored.devMode.dmSpecVersion = 0x0400;
    const JobSettings caller = DefaultRecord(2);
    bool isOpened = false;
    const auto prepare = [&] {
        SetPrinterDefault(stored);
        for (const auto* name : {u"UserName", u"ComputerName", u"Forms?"}) {
            fax.Forget(name);
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
