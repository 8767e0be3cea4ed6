#include <sstream>

#include "platform/embedded/modules.h"
#include "platform/embedded/text.h"
#include "platform/embedded/windows.h"

#include "tests/core/fax_machine.h"
#include "tests/golden.h"

namespace ksfax {
namespace {

TEST(ResourceModulePath, StandsInTheLibrarysFolder) {
    // The longest folder fills the path but for the terminator.
    const std::u16string longest = std::u16string(MAX_PATH - 2, u'f') + u"\\";
    const std::pair<std::u16string, std::u16string> rows[] = {
        {u"C:\\Drivers\\3\\KSFAXUI.DLL", u"C:\\Drivers\\3\\KSFAXRES.DLL"},
        {u"C:\\Drivers\\", u"C:\\Drivers\\KSFAXRES.DLL"},
        {u"C:/Drivers/KSFAXUI.DLL", u"KSFAXRES.DLL"},
        {u"", u"KSFAXRES.DLL"},
        {longest, longest + u"KSFAXRES.DLL"},
    };
    for (const auto& [ownPath, expected] : rows) {
        WCHAR path[kResourcePathRoom];
        ResourceModulePath(ownPath.c_str(), path);
        EXPECT_EQ(std::u16string(path), expected);
    }
}

TEST(DllMain, AttachesAndLeavesNothing) {
    const std::u16string folder = std::u16string(tool::kDriverFolder) + u"\\";
    const struct {
        std::u16string resources;
        std::u16string ownPath;
        const char* failing;
        bool isOwn;
        unsigned loaded;  // the test's reference and, where the path is known, the pin
    } rows[] = {
        {u"C:\\OTHER.DLL", folder + u"KSFAXUI.DLL", "", true, 2},
        {folder + u"KSFAXRES.DLL", folder + u"KSFAXUI.DLL", "", false, 3},
        {folder + u"KSFAXRES.DLL", folder + u"KSFAXUI.DLL", "GetModuleFileNameW", true, 1},
        // A path that is cut off names another folder, whose module is not taken.
        {u"C:\\KSFAXRES.DLL", u"C:\\" + std::u16string(MAX_PATH, u'd') + u"\\KSFAXUI.DLL", "", true,
         1},
    };
    embedded::Machine machine;
    for (const auto& row : rows) {
        SCOPED_TRACE(row.failing + std::to_string(row.loaded));
        machine.modules().Install({.path = row.resources, .exports = {}, .resources = {}});
        *row.failing != 0 ? machine.faults.FailCall(row.failing) : machine.faults.Count();
        descriptionCache.useCount = 7;  // whatever stood there before
        {
            const tool::LoadedDriver driver(machine, row.ownPath);
            EXPECT_EQ(machine.faults.struck(), *row.failing != 0);
            machine.faults.Clear();
            EXPECT_EQ(descriptionCache.useCount, 0);
            for (const DWORD reason : {DLL_THREAD_ATTACH, DLL_THREAD_DETACH}) {
                EXPECT_EQ(DllMain(driver.instance(), reason, nullptr), TRUE);
            }
            EXPECT_EQ(ownModule, driver.instance());
            EXPECT_NE(resourceModule, nullptr);
            EXPECT_EQ(resourceModule == ownModule, row.isOwn);
            EXPECT_EQ(machine.modules().CountLoaded(), row.loaded);
            // For every module of the process, so without naming the driver.
            for (const LPCWSTR name : {TEXT("ZL2UD_1"), TEXT("ZL2UD_3")}) {
                EXPECT_TRUE(DestroyWindow(CreateWindowExW(0, name, nullptr, WS_POPUP, 0, 0, 9, 9,
                                                          nullptr, nullptr, nullptr, nullptr)));
            }
            descriptionCache.cachedDescription =
                static_cast<PrinterDescription*>(GlobalAlloc(GMEM_FIXED, 8));
        }
        EXPECT_EQ(ownModule, nullptr);
        EXPECT_EQ(resourceModule, nullptr);
        EXPECT_EQ(descriptionCache.cachedDescription, nullptr);
        EXPECT_EQ(machine.OpenNow(), embedded::Leaks());
        EXPECT_FALSE(machine.windows().HasClass(u"ZL2UD_1"));
        EXPECT_FALSE(machine.windows().HasClass(u"ZL2UD_3"));
    }
}

// Steps of tests/golden/core/cache.txt, with what each gave and what the cache holds behind it.
TEST(DescriptionCache, GoesThroughItsStatesAsRecorded) {
    FaxMachine fax;
    fax.AddPrinter(u"Other", u"C:\\Ppd\\OTHER.PPD", kFaxPpd);
    std::map<std::string, platform::PrinterHandle> printers;
    printers["Fax"] = fax.Open();
    printers["Other"] = fax.Open(u"Other");
    std::vector<const PrinterDescription*> given = {nullptr};
    const auto nameOf = [](const PrinterDescription* description) {
        return embedded::Utf8(description->PpdFileName.Target()) + " " +
               std::to_string(description->FileVersion);
    };
    const auto take = [&](const std::string& step) -> std::string {
        std::istringstream words(step);
        std::string verb;
        std::string what;
        std::string file;
        words >> verb >> what >> file;
        const std::u16string path = u"C:\\Ppd\\" + embedded::Utf16(file);
        if (verb == "acquire" || verb == "renew") {
            const PrinterDescription* before = descriptionCache.cachedDescription;
            given.push_back(AcquireDescription(printers[what].get(), verb == "acquire"));
            const PrinterDescription* got = given.back();
            return std::to_string(given.size() - 1) + (got == nullptr  ? ": nothing"
                                                       : got == before ? ": the same"
                                                       : got == descriptionCache.cachedDescription
                                                           ? ": a new one"
                                                           : ": one alone, " + nameOf(got));
        }
        if (verb == "release") {
            ReleaseDescription(given[std::stoul(what)]);
        } else if (verb == "file") {
            what == "none"
                ? fax.RemoveFile(path)
                : fax.WriteFile(path, "*PPD-Adobe: \"4.3\"\n*FileVersion: \"" + what + "\"\n");
        } else if (verb == "driver") {
            fax.machine.spooler().AddDriver(
                {.name = embedded::Utf16(what), .dataFile = file.empty() ? u"" : path});
        } else if (verb == "tells") {
            what == "truth"
                ? fax.machine.spooler().TellTheTruth()
                : fax.machine.spooler().ReportSize("GetPrinterDriverW", std::stoul(what));
        } else if (verb == "count") {
            descriptionCache.useCount = static_cast<uint16_t>(std::stoul(what));
        } else {
            EXPECT_EQ(verb, "discard");
            DiscardDescriptionCache();
        }
        return "done";
    };
    EXPECT_TRUE(AnswersAreRecorded("core/cache.txt", [&](const std::string& step) {
        // The lock is held for the whole of a load, and not while the spooler is asked.
        bool isLoading = false;
        fax.machine.faults.Count([&](const std::string& call) {
            const bool isFile = call == "CreateFileW" || call == "WriteFile";
            isLoading = isLoading || isFile;
            if (isFile || call == "GetPrinterDriverW") {
                EXPECT_EQ(embedded::IsHeldByThisThread(moduleLock), isFile) << step << call;
            }
        });
        std::string answer = take(step);
        answer += isLoading ? ", loading; " : "; ";
        fax.machine.faults.Clear();
        EXPECT_FALSE(embedded::IsHeldByAnyone(moduleLock)) << step;
        const auto& [cached, useCount] = descriptionCache;
        answer += cached != nullptr ? nameOf(cached) + ", used " : "empty, used ";
        return answer + std::to_string(useCount) + ", blocks " +
               std::to_string(fax.machine.globalBlocks);
    }));
}

}  // namespace
}  // namespace ksfax
