#include <map>
#include <set>
#include <string>

#include <gtest/gtest.h>

#include "platform/embedded/modules.h"
#include "platform/embedded/registry.h"

#include "core/printer_data.h"
#include "tests/core/fax_machine.h"

namespace ksfax {
namespace {

constexpr char16_t kHelpKey[] = u"Software\\Microsoft\\Windows\\Help";
constexpr char16_t kOldKey[] = u"SOFTWARE\\kestova\\ksplproc";
constexpr char16_t kSpoolss[] = u"C:\\Windows\\System32\\spoolss.dll";

using Exports = std::map<std::string, FARPROC>;

class PrinterEventTest : public testing::Test {
  protected:
    // What an event did: the letters of Result, device Record stored, Old key deleted, Help key
    // made; a dot for what it did not.
    std::string Send(INT event) {
        fax.machine.registry().CreateKey(HKEY_LOCAL_MACHINE, kOldKey);
        fax.Forget(u"PrinterDataSize");
        WCHAR name[] = u"Fax";
        std::string done(DrvPrinterEvent(name, event, 0, 0) ? "1" : "0");
        done += fax.Stored(u"PrinterDataSize").has_value() ? 'R' : '.';
        done += fax.machine.registry().HasKey(HKEY_LOCAL_MACHINE, kOldKey) ? '.' : 'O';
        done += fax.machine.registry().HasKey(HKEY_LOCAL_MACHINE, kHelpKey) ? 'H' : '.';
        EXPECT_TRUE(fax.machine.registry().HasKey(HKEY_LOCAL_MACHINE, u"SOFTWARE\\kestova"));
        return done;
    }

    FaxMachine fax;
};

TEST_F(PrinterEventTest, TidiesAPrinterThatOpens) {
    for (const INT event : {0, 1, 2, 4, 6, 7, -1}) {
        fax.machine.faults.Count();
        EXPECT_EQ(Send(event), "1...") << event;
        EXPECT_EQ(fax.machine.faults.calls(), 0u) << event;
    }
    fax.machine.faults.Clear();
    fax.machine.spooler().RefuseOpen(FaxMachine::kPrinter, ERROR_ACCESS_DENIED);
    EXPECT_EQ(Send(PRINTER_EVENT_INITIALIZE), "1...");
    EXPECT_EQ(Send(PRINTER_EVENT_CACHE_REFRESH), "1...");
    fax.machine.spooler().RefuseOpen(FaxMachine::kPrinter, ERROR_SUCCESS);
    EXPECT_EQ(Send(PRINTER_EVENT_INITIALIZE), "1ROH");
    fax.machine.spooler().SetAdministrator(false);
    EXPECT_EQ(Send(PRINTER_EVENT_CACHE_REFRESH), "1.OH");
    fax.machine.spooler().SetAdministrator(true);
    EXPECT_EQ(fax.machine.registry().ClassOf(HKEY_LOCAL_MACHINE, kHelpKey), u"Folder");
    EXPECT_TRUE(fax.machine.registry().Values(HKEY_LOCAL_MACHINE, kHelpKey).empty());

    fax.machine.registry().CreateKey(HKEY_LOCAL_MACHINE, u"SOFTWARE\\kestova\\ksplproc\\more");
    fax.RemoveFile(u"C:\\Ppd\\FAX.PPD");
    EXPECT_EQ(Send(PRINTER_EVENT_INITIALIZE), "1..H") << "no description, an old key with keys";
    // Without a name Windows would open the print server.
    fax.machine.faults.Count();
    EXPECT_EQ(DrvPrinterEvent(nullptr, PRINTER_EVENT_INITIALIZE, 0, 0), TRUE);
    EXPECT_EQ(fax.machine.faults.calls(), 0u);
}

TEST_F(PrinterEventTest, GoesByTheDataFileAsItIsNow) {
    for (const INT event : {PRINTER_EVENT_INITIALIZE, PRINTER_EVENT_CACHE_REFRESH}) {
        fax.ChangePpd("");
        const uint16_t before = fax.Checksum();  // and the cache holds the old description
        fax.ChangePpd("*Manufacturer: \"Another\"\n");
        Send(event);
        EXPECT_NE(descriptionCache.cachedDescription->Checksum, before) << event;
        DiscardDescriptionCache();
    }
}

TEST_F(PrinterEventTest, ActsAsTheSpoolerItselfOnARefreshAlone) {
    const std::set<std::string> calls = {"OpenPrinterW", "GetPrinterDriverW", "RegOpenKeyExW",
                                         "RegDeleteKeyW", "RegCreateKeyExW"};
    for (const INT event : {PRINTER_EVENT_INITIALIZE, PRINTER_EVENT_CACHE_REFRESH}) {
        std::set<std::string> seen[2];
        fax.machine.faults.Count([&](const std::string& call) {
            if (calls.contains(call)) {
                seen[fax.machine.spooler().ThreadActsForClient()].insert(call);
            }
        });
        Send(event);
        fax.machine.faults.Clear();
        EXPECT_EQ(seen[event == PRINTER_EVENT_INITIALIZE], calls) << event;
        EXPECT_TRUE(seen[event != PRINTER_EVENT_INITIALIZE].empty()) << event;
    }
}

TEST_F(PrinterEventTest, RefreshesOnlyWithBothOfTheSpoolersFunctions) {
    HANDLE (*noToken)() = [] { return HANDLE(); };
    const auto revert = platform::FunctionCast<FARPROC>(noToken);
    const FARPROC never = []() -> INT_PTR {
        ADD_FAILURE() << "called";
        return 0;
    };
    const std::pair<Exports, const char*> rows[] = {
        {{}, "0..."},
        {{{"RevertToPrinterSelf", never}}, "0..."},
        {{{"ImpersonatePrinterClient", never}}, "0..."},
        // A thread that ran under the spooler's identity already gets no token to give back.
        {{{"RevertToPrinterSelf", revert}, {"ImpersonatePrinterClient", never}}, "1.OH"},
    };
    fax.machine.modules().Remove(kSpoolss);
    EXPECT_EQ(Send(PRINTER_EVENT_CACHE_REFRESH), "0...");
    for (const auto& [exports, expected] : rows) {
        fax.machine.modules().Install({.path = kSpoolss, .exports = exports, .resources = {}});
        EXPECT_EQ(Send(PRINTER_EVENT_CACHE_REFRESH), expected);
        EXPECT_EQ(fax.machine.modules().CountLoaded(kSpoolss), 0u);
    }
}

TEST_F(PrinterEventTest, GivesEverythingBackWhateverFails) {
    for (const INT event : {PRINTER_EVENT_INITIALIZE, PRINTER_EVENT_CACHE_REFRESH}) {
        std::string done;
        fax.FailEachCall([] {}, [&] { done = Send(event); },
                         [&](const std::string& failed) {
                             const bool isRefused =
                                 event == PRINTER_EVENT_CACHE_REFRESH &&
                                 (failed == "LoadLibraryW" || failed == "GetProcAddress");
                             EXPECT_EQ(done[0], isRefused ? '0' : '1');
                         });
    }
}

}  // namespace
}  // namespace ksfax
