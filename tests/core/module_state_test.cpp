#include <algorithm>
#include <atomic>
#include <thread>

#include <gtest/gtest.h>

#include "platform/embedded/modules.h"
#include "platform/embedded/windows.h"

#include "core/module_state.h"
#include "description/printer_description.h"
#include "tests/core/fax_machine.h"

namespace ksfax {
namespace {

TEST(ResourceModulePath, StandsInTheLibrarysFolder) {
    const struct {
        const char16_t* ownPath;
        const char16_t* expected;
    } rows[] = {
        {u"C:\\Drivers\\3\\KSFAXUI.DLL", u"C:\\Drivers\\3\\KSFAXRES.DLL"},
        {u"C:\\Drivers\\", u"C:\\Drivers\\KSFAXRES.DLL"},
        {u"C:/Drivers/KSFAXUI.DLL", u"KSFAXRES.DLL"},
        {u"", u"KSFAXRES.DLL"},
    };
    for (const auto& row : rows) {
        WCHAR path[kResourcePathRoom];
        ResourceModulePath(row.ownPath, path);
        EXPECT_EQ(std::u16string(path), row.expected);
    }
    // The longest path: a folder that fills the buffer but for the terminator.
    const std::u16string folder(MAX_PATH - 2, u'f');
    WCHAR path[kResourcePathRoom];
    ResourceModulePath((folder + u"\\").c_str(), path);
    EXPECT_EQ(std::u16string(path), folder + u"\\KSFAXRES.DLL");
}

TEST(DllMain, TakesTheResourceModuleFromItsOwnFolderOrServesForIt) {
    embedded::Machine machine;
    {
        const tool::LoadedDriver driver(machine);
        EXPECT_EQ(ownModule, driver.instance());
        EXPECT_EQ(resourceModule, ownModule);
        // One reference is the test's, the other the pin.
        EXPECT_EQ(machine.modules().CountLoaded(), 2u);
    }
    EXPECT_EQ(ownModule, nullptr);
    machine.modules().Install({.path = std::u16string(tool::kDriverFolder) + u"\\KSFAXRES.DLL",
                               .exports = {},
                               .resources = {}});
    {
        const tool::LoadedDriver driver(machine);
        EXPECT_NE(resourceModule, nullptr);
        EXPECT_NE(resourceModule, ownModule);
        EXPECT_EQ(machine.modules().CountLoaded(), 3u);
        EXPECT_EQ(DllMain(driver.instance(), DLL_THREAD_ATTACH, nullptr), TRUE);
        EXPECT_EQ(DllMain(driver.instance(), DLL_THREAD_DETACH, nullptr), TRUE);
        EXPECT_EQ(ownModule, driver.instance());
    }
    // A path that is cut off names another folder, whose module is not taken.
    machine.modules().Install({.path = u"C:\\KSFAXRES.DLL", .exports = {}, .resources = {}});
    {
        const tool::LoadedDriver driver(
            machine, u"C:\\" + std::u16string(MAX_PATH, u'd') + u"\\KSFAXUI.DLL");
        EXPECT_EQ(resourceModule, ownModule);
        EXPECT_EQ(machine.modules().CountLoaded(), 1u);
    }
    EXPECT_EQ(machine.modules().CountLoaded(), 0u);
}

TEST(DllMain, HasTheWindowClassesWhileItIsAttached) {
    embedded::Machine machine;
    for (int load = 0; load < 2; ++load) {
        const tool::LoadedDriver driver(machine);
        // For every module of the process, so without naming the driver.
        for (const LPCWSTR name : {TEXT("ZL2UD_1"), TEXT("ZL2UD_3")}) {
            EXPECT_TRUE(DestroyWindow(CreateWindowExW(0, name, nullptr, WS_POPUP, 0, 0, 9, 9,
                                                      nullptr, nullptr, nullptr, nullptr)))
                << load;
        }
    }
    EXPECT_FALSE(machine.windows().HasClass(u"ZL2UD_1"));
    EXPECT_FALSE(machine.windows().HasClass(u"ZL2UD_3"));
}

TEST(DllMain, AttachesWithoutItsOwnPath) {
    embedded::Machine machine;
    machine.modules().Install({.path = std::u16string(tool::kDriverFolder) + u"\\KSFAXRES.DLL",
                               .exports = {},
                               .resources = {}});
    machine.faults.FailCall("GetModuleFileNameW");
    const tool::LoadedDriver driver(machine);
    EXPECT_TRUE(machine.faults.struck());
    EXPECT_EQ(resourceModule, ownModule);
    EXPECT_EQ(machine.modules().CountLoaded(), 1u);
}

// The cache under test, with a second printer whose description is another one.
class DescriptionCacheTest : public testing::Test {
  protected:
    DescriptionCacheTest() {
        fax.AddPrinter(u"Other", u"C:\\Ppd\\OTHER.PPD", kFaxPpd);
        printer = fax.Open();
        other = fax.Open(u"Other");
    }

    const PrinterDescription* cached() const { return descriptionCache.cachedDescription; }
    unsigned useCount() const { return descriptionCache.useCount; }
    unsigned blocks() const { return fax.machine.globalBlocks; }

    FaxMachine fax;
    platform::PrinterHandle printer;
    platform::PrinterHandle other;
};

TEST_F(DescriptionCacheTest, SharesOneDescriptionAndKeepsItWhenIdle) {
    EXPECT_EQ(cached(), nullptr);
    const PrinterDescription* first = AcquireDescription(printer.get(), true);
    ASSERT_NE(first, nullptr);
    EXPECT_EQ(cached(), first);
    EXPECT_EQ(useCount(), 1u);
    // A load would fail from here on.
    fax.RemoveFile(u"C:\\Ppd\\FAX.PPD");
    EXPECT_EQ(AcquireDescription(printer.get(), true), first);
    EXPECT_EQ(useCount(), 2u);
    ReleaseDescription(first);
    ReleaseDescription(first);
    EXPECT_EQ(useCount(), 0u);
    EXPECT_EQ(cached(), first);
    EXPECT_EQ(AcquireDescription(printer.get(), true), first);
    EXPECT_EQ(useCount(), 1u);
    ReleaseDescription(first);
    ReleaseDescription(nullptr);
    EXPECT_EQ(useCount(), 0u);
    // A release too many must not leave a count that never comes down again.
    ReleaseDescription(first);
    EXPECT_EQ(useCount(), 0u);
}

TEST_F(DescriptionCacheTest, HandsOutUnsharedWhileAnotherIsHeld) {
    const DescriptionUse held(AcquireDescription(printer.get(), true));
    const unsigned before = blocks();
    {
        const DescriptionUse unshared(AcquireDescription(other.get(), true));
        ASSERT_TRUE(unshared);
        EXPECT_NE(unshared.get(), held.get());
        const DescriptionUse second(AcquireDescription(other.get(), true));
        EXPECT_NE(second.get(), unshared.get());
        EXPECT_EQ(cached(), held.get());
        EXPECT_EQ(useCount(), 1u);
        EXPECT_EQ(blocks(), before + 2);
    }
    EXPECT_EQ(blocks(), before);
    EXPECT_EQ(cached(), held.get());
    EXPECT_EQ(useCount(), 1u);
}

TEST_F(DescriptionCacheTest, ReplacesAnIdleOne) {
    ReleaseDescription(AcquireDescription(printer.get(), true));
    const unsigned before = blocks();
    const DescriptionUse loaded(AcquireDescription(other.get(), true));
    ASSERT_TRUE(loaded);
    EXPECT_EQ(cached(), loaded.get());
    EXPECT_EQ(std::u16string(loaded.get()->PpdFileName.Target()), u"C:\\Ppd\\OTHER.PPD");
    EXPECT_EQ(useCount(), 1u);
    EXPECT_EQ(blocks(), before);
}

TEST_F(DescriptionCacheTest, LoadsAfreshWhenSharingIsNotAllowed) {
    ReleaseDescription(AcquireDescription(printer.get(), true));
    fax.WriteFile(u"C:\\Ppd\\FAX.PPD", "*PPD-Adobe: \"4.3\"\n*FileVersion: \"2.0\"\n");
    const unsigned before = blocks();
    {
        // Idle: replaced by the new one, which the next caller shares.
        const DescriptionUse fresh(AcquireDescription(printer.get(), false));
        ASSERT_TRUE(fresh);
        EXPECT_EQ(fresh.get()->FileVersion, 512u);
        EXPECT_EQ(cached(), fresh.get());
        EXPECT_EQ(useCount(), 1u);
        EXPECT_EQ(blocks(), before);
        // Held: the new one is the caller's alone.
        const DescriptionUse unshared(AcquireDescription(printer.get(), false));
        ASSERT_TRUE(unshared);
        EXPECT_NE(unshared.get(), fresh.get());
        EXPECT_EQ(cached(), fresh.get());
        EXPECT_EQ(useCount(), 1u);
    }
    EXPECT_EQ(useCount(), 0u);
    EXPECT_EQ(blocks(), before);
}

TEST_F(DescriptionCacheTest, ComparesPathsWithoutLetterCase) {
    fax.machine.spooler().AddDriver({.name = u"Other", .dataFile = u"c:\\pPD\\fax.ppd"});
    const DescriptionUse held(AcquireDescription(printer.get(), true));
    const DescriptionUse hit(AcquireDescription(other.get(), true));
    EXPECT_EQ(hit.get(), held.get());
    EXPECT_EQ(useCount(), 2u);
}

TEST_F(DescriptionCacheTest, StaysAsItIsWhenNothingCanBeLoaded) {
    ReleaseDescription(AcquireDescription(printer.get(), true));
    const PrinterDescription* kept = cached();
    fax.RemoveFile(u"C:\\Ppd\\OTHER.PPD");
    EXPECT_EQ(AcquireDescription(other.get(), true), nullptr);
    fax.machine.spooler().AddDriver({.name = u"Other", .dataFile = u""});
    EXPECT_EQ(AcquireDescription(other.get(), true), nullptr);
    fax.machine.spooler().RemoveDriver(u"Other");
    EXPECT_EQ(AcquireDescription(other.get(), true), nullptr);
    EXPECT_EQ(AcquireDescription(nullptr, true), nullptr);
    for (const DWORD bytes : {0u, 1u, 47u}) {
        fax.machine.spooler().ReportSize("GetPrinterDriverW", bytes);
        EXPECT_EQ(AcquireDescription(printer.get(), true), nullptr) << bytes;
    }
    fax.machine.spooler().ReportSize("GetPrinterDriverW", 48);
    EXPECT_EQ(AcquireDescription(printer.get(), true), nullptr) << "no room for the file's name";
    fax.machine.spooler().TellTheTruth();
    EXPECT_EQ(cached(), kept);
    EXPECT_EQ(useCount(), 0u);
    EXPECT_FALSE(embedded::IsHeldByAnyone(moduleLock));
}

TEST_F(DescriptionCacheTest, DoesNotWrapItsCount) {
    const PrinterDescription* shared = AcquireDescription(printer.get(), true);
    descriptionCache.useCount = 65535;
    const PrinterDescription* unshared = AcquireDescription(printer.get(), true);
    ASSERT_NE(unshared, nullptr);
    EXPECT_NE(unshared, shared);
    EXPECT_EQ(useCount(), 65535u);
    ReleaseDescription(unshared);
    EXPECT_EQ(useCount(), 65535u);
    descriptionCache.useCount = 1;
    ReleaseDescription(shared);
}

TEST_F(DescriptionCacheTest, IsFreedWithItsUsersAtDetach) {
    const unsigned before = blocks();
    ASSERT_NE(AcquireDescription(printer.get(), true), nullptr);
    EXPECT_EQ(blocks(), before + 1);
    DiscardDescriptionCache();
    EXPECT_EQ(blocks(), before);
    EXPECT_EQ(cached(), nullptr);
    EXPECT_EQ(useCount(), 0u);
}

TEST(DllMain, FreesTheDescriptionCacheAtDetach) {
    embedded::Machine machine;
    {
        const tool::LoadedDriver driver(machine);
        descriptionCache = {.cachedDescription =
                                static_cast<PrinterDescription*>(GlobalAlloc(GMEM_FIXED, 8)),
                            .useCount = 1};
    }
    EXPECT_EQ(machine.globalBlocks, 0u);
    EXPECT_EQ(descriptionCache.cachedDescription, nullptr);
}

TEST_F(DescriptionCacheTest, HoldsTheLockForTheWholeLoadAndNotBefore) {
    fax.machine.faults.Count([](const std::string& name) {
        const bool isFile = name == "CreateFileW" || name == "WriteFile";
        if (isFile || name == "GetPrinterDriverW") {
            EXPECT_EQ(embedded::IsHeldByThisThread(moduleLock), isFile) << name;
        }
    });
    const DescriptionUse description(AcquireDescription(printer.get(), true));
    const std::vector<std::string> calls = fax.machine.faults.names();
    fax.machine.faults.Clear();
    EXPECT_EQ(std::ranges::count(calls, "WriteFile"), 1);
    EXPECT_NE(std::ranges::count(calls, "GetPrinterDriverW"), 0);
}

TEST(DescriptionCacheThreads, TwoPrintersTakeTurns) {
    FaxMachine fax;
    fax.AddPrinter(u"Other", u"C:\\Ppd\\OTHER.PPD", kFaxPpd);
    const embedded::Leaks before = fax.machine.OpenNow();
    std::atomic<unsigned> wrong = 0;
    const auto use = [&](std::u16string name, std::u16string path, bool allowShared) {
        const platform::PrinterHandle printer = fax.Open(name);
        for (int i = 0; i < 60; ++i) {
            const DescriptionUse description(AcquireDescription(printer.get(), allowShared));
            wrong += !description || path != description.get()->PpdFileName.Target();
        }
    };
    {
        std::jthread first(use, u"Fax", u"C:\\Ppd\\FAX.PPD", true);
        std::jthread second(use, u"Other", u"C:\\Ppd\\OTHER.PPD", true);
        std::jthread third(use, u"Fax", u"C:\\Ppd\\FAX.PPD", false);
    }
    EXPECT_EQ(wrong, 0u);
    EXPECT_EQ(descriptionCache.useCount, 0u);
    EXPECT_EQ(fax.OpenWithoutCache(), before);
}

}  // namespace
}  // namespace ksfax
