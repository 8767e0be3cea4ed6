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

class PrinterEventTest : public testing::Test {
  protected:
    PrinterEventTest() { AddKey(kOldKey); }

    BOOL Send(INT event) {
        WCHAR name[] = u"Fax";
        return DrvPrinterEvent(name, event, 0, 0);
    }
    void InstallSpoolss(std::map<std::string, FARPROC> exports) {
        fax.machine.modules().Install({.path = u"C:\\Windows\\System32\\spoolss.dll",
                                       .exports = std::move(exports),
                                       .resources = {}});
    }
    void AddKey(const WCHAR* name) { fax.machine.registry().CreateKey(HKEY_LOCAL_MACHINE, name); }
    bool HasKey(const WCHAR* name) {
        return fax.machine.registry().HasKey(HKEY_LOCAL_MACHINE, name);
    }
    bool HasRecord() { return fax.Stored(u"PrinterData").has_value(); }

    FaxMachine fax;
};

TEST_F(PrinterEventTest, InitialisesAPrinter) {
    EXPECT_EQ(Send(PRINTER_EVENT_INITIALIZE), TRUE);
    EXPECT_TRUE(HasRecord());
    EXPECT_FALSE(HasKey(kOldKey));
    EXPECT_TRUE(HasKey(u"SOFTWARE\\kestova"));
    EXPECT_TRUE(HasKey(kHelpKey));
    EXPECT_EQ(fax.machine.registry().ClassOf(HKEY_LOCAL_MACHINE, kHelpKey), u"Folder");
    EXPECT_TRUE(fax.machine.registry().Values(HKEY_LOCAL_MACHINE, kHelpKey).empty());
    // Again, with nothing left to delete.
    EXPECT_EQ(Send(PRINTER_EVENT_INITIALIZE), TRUE);
}

TEST_F(PrinterEventTest, RefreshesWithoutSavingTheRecord) {
    fax.machine.spooler().SetAdministrator(false);
    EXPECT_EQ(Send(PRINTER_EVENT_CACHE_REFRESH), TRUE);
    EXPECT_FALSE(HasRecord());
    EXPECT_FALSE(HasKey(kOldKey));
    EXPECT_TRUE(HasKey(kHelpKey));
    EXPECT_TRUE(fax.machine.spooler().ThreadActsForClient());
}

TEST_F(PrinterEventTest, LeavesAnOldKeyThatHasKeysOfItsOwn) {
    AddKey(u"SOFTWARE\\kestova\\ksplproc\\more");
    EXPECT_EQ(Send(PRINTER_EVENT_INITIALIZE), TRUE);
    EXPECT_TRUE(HasKey(kOldKey));
    EXPECT_TRUE(HasKey(kHelpKey));
}

TEST_F(PrinterEventTest, DoesNothingOnOtherEvents) {
    for (const INT event : {0, 1, 2, 4, 6, 7, -1}) {
        fax.machine.faults.Count();
        EXPECT_EQ(Send(event), TRUE) << event;
        EXPECT_EQ(fax.machine.faults.calls(), 0u) << event;
    }
    fax.machine.faults.Clear();
    EXPECT_TRUE(HasKey(kOldKey));
}

TEST_F(PrinterEventTest, TidiesWithoutADescriptionButNotWithoutThePrinter) {
    fax.machine.spooler().RefuseOpen(FaxMachine::kPrinter, ERROR_ACCESS_DENIED);
    EXPECT_EQ(Send(PRINTER_EVENT_INITIALIZE), TRUE);
    EXPECT_EQ(Send(PRINTER_EVENT_CACHE_REFRESH), TRUE);
    // Without a name Windows would open the print server.
    fax.machine.faults.Count();
    EXPECT_EQ(DrvPrinterEvent(nullptr, PRINTER_EVENT_INITIALIZE, 0, 0), TRUE);
    EXPECT_EQ(fax.machine.faults.calls(), 0u);
    fax.machine.faults.Clear();
    EXPECT_TRUE(HasKey(kOldKey));
    EXPECT_FALSE(HasKey(kHelpKey));
    fax.machine.spooler().RefuseOpen(FaxMachine::kPrinter, ERROR_SUCCESS);
    fax.RemoveFile(u"C:\\Ppd\\FAX.PPD");
    EXPECT_EQ(Send(PRINTER_EVENT_INITIALIZE), TRUE);
    EXPECT_FALSE(HasRecord());
    EXPECT_FALSE(HasKey(kOldKey));
    EXPECT_TRUE(HasKey(kHelpKey));
}

TEST_F(PrinterEventTest, GoesByTheDataFileAsItIsNow) {
    for (const INT event : {PRINTER_EVENT_INITIALIZE, PRINTER_EVENT_CACHE_REFRESH}) {
        fax.ChangePpd("");
        const uint16_t before = fax.Checksum();  // and the cache holds the old description
        fax.ChangePpd("*Manufacturer: \"Another\"\n");
        EXPECT_EQ(Send(event), TRUE);
        EXPECT_NE(descriptionCache.cachedDescription->Checksum, before) << event;
        DiscardDescriptionCache();
    }
}

TEST_F(PrinterEventTest, ActsAsTheSpoolerItselfOnARefreshAlone) {
    const std::set<std::string> calls = {"OpenPrinterW", "GetPrinterDriverW", "RegOpenKeyExW",
                                         "RegDeleteKeyW", "RegCreateKeyExW"};
    for (const INT event : {PRINTER_EVENT_INITIALIZE, PRINTER_EVENT_CACHE_REFRESH}) {
        std::set<std::string> asClient;
        std::set<std::string> asSpooler;
        fax.machine.faults.Count([&](const std::string& call) {
            if (calls.contains(call)) {
                (fax.machine.spooler().ThreadActsForClient() ? asClient : asSpooler).insert(call);
            }
        });
        EXPECT_EQ(Send(event), TRUE);
        fax.machine.faults.Clear();
        const bool isRefresh = event == PRINTER_EVENT_CACHE_REFRESH;
        EXPECT_EQ(isRefresh ? asSpooler : asClient, calls) << event;
        EXPECT_TRUE((isRefresh ? asClient : asSpooler).empty()) << event;
    }
}

// A thread that ran under the spooler's identity already gets no token.
TEST_F(PrinterEventTest, GivesNoTokenBackThatItDidNotGet) {
    HANDLE (*revert)() = [] { return HANDLE(); };
    BOOL(*impersonate)
    (HANDLE) = [](HANDLE) {
        ADD_FAILURE() << "called";
        return TRUE;
    };
    InstallSpoolss({{"RevertToPrinterSelf", platform::FunctionCast<FARPROC>(revert)},
                    {"ImpersonatePrinterClient", platform::FunctionCast<FARPROC>(impersonate)}});
    const unsigned loaded = fax.machine.modules().CountLoaded();
    EXPECT_EQ(Send(PRINTER_EVENT_CACHE_REFRESH), TRUE);
    EXPECT_FALSE(HasKey(kOldKey));
    EXPECT_EQ(fax.machine.modules().CountLoaded(), loaded);
}

TEST_F(PrinterEventTest, RefusesARefreshWithoutTheSpoolersFunctions) {
    fax.machine.modules().Remove(u"C:\\Windows\\System32\\spoolss.dll");
    EXPECT_EQ(Send(PRINTER_EVENT_CACHE_REFRESH), FALSE);
    EXPECT_TRUE(HasKey(kOldKey));
    // One of the two is not enough, and does not change the thread's identity.
    for (const auto* present : {"RevertToPrinterSelf", "ImpersonatePrinterClient"}) {
        InstallSpoolss({{present, []() -> INT_PTR {
                             ADD_FAILURE() << "called";
                             return 0;
                         }}});
        const unsigned loaded = fax.machine.modules().CountLoaded();
        EXPECT_EQ(Send(PRINTER_EVENT_CACHE_REFRESH), FALSE) << present;
        EXPECT_EQ(fax.machine.modules().CountLoaded(), loaded) << present;
        EXPECT_TRUE(HasKey(kOldKey));
    }
    EXPECT_EQ(Send(PRINTER_EVENT_INITIALIZE), TRUE);
}

TEST_F(PrinterEventTest, GivesEverythingBackWhateverFails) {
    for (const INT event : {PRINTER_EVENT_INITIALIZE, PRINTER_EVENT_CACHE_REFRESH}) {
        BOOL result = FALSE;
        fax.FailEachCall(
            [&] {
                AddKey(kOldKey);
                fax.RemoveDeviceRecord();
            },
            [&] { result = Send(event); },
            [&](const std::string& failed) {
                const bool isRefused = event == PRINTER_EVENT_CACHE_REFRESH &&
                                       (failed == "LoadLibraryW" || failed == "GetProcAddress");
                EXPECT_EQ(result, isRefused ? FALSE : TRUE);
            });
    }
}

}  // namespace
}  // namespace ksfax
