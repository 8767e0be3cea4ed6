#pragma once

// An embedded machine with the driver loaded and printers installed, for tests of everything that
// takes a printer handle.

#include <fstream>
#include <functional>
#include <stdexcept>
#include <string>
#include <string_view>

#include <gtest/gtest.h>

#include "platform/embedded/files.h"
#include "platform/embedded/machine.h"
#include "platform/embedded/memory.h"
#include "platform/embedded/spooler.h"
#include "platform/owned.h"
#include "platform/windows_api.h"

#include "core/module_state.h"
#include "tool/loaded_driver.h"

// A fax device with four papers (one of no size), two resolutions, two sources, installed memory
// and two trays that cannot be installed together.
inline constexpr std::string_view kFaxPpd = R"(*PPD-Adobe: "4.3"
*FileVersion: "1.0"
*NickName: "Test Fax"
*LanguageLevel: "2"
*SuggestedJobTimeout: "30"
*SuggestedWaitTimeout: "90"
*OpenUI *PageSize: PickOne
*DefaultPageSize: A4
*PageSize Letter: "letter"
*PageSize A4: "a4"
*PageSize B5/B5 sheet: "b5"
*PageSize Custom: "custom"
*CloseUI: *PageSize
*PaperDimension Letter: "612 792"
*PaperDimension A4: "595 842"
*PaperDimension B5: "516 729"
*PaperDimension Custom: "0 0"
*OpenUI *Resolution: PickOne
*DefaultResolution: 200dpi
*Resolution 200dpi: "fine"
*Resolution 200x100dpi: "normal"
*CloseUI: *Resolution
*OpenGroup: InstallableOptions
*OpenUI *VMOption: PickOne
*DefaultVMOption: 4Meg
*VMOption 4Meg: "4194304"
*VMOption 8Meg: "8388608"
*CloseUI: *VMOption
*OpenUI *UpperTray: PickOne
*DefaultUpperTray: True
*UpperTray None: ""
*UpperTray True: ""
*CloseUI: *UpperTray
*OpenUI *LowerTray: PickOne
*DefaultLowerTray: True
*LowerTray None: ""
*LowerTray True: ""
*CloseUI: *LowerTray
*CloseGroup: InstallableOptions
*UIConstraints: *UpperTray True *LowerTray True
*UIConstraints: *LowerTray True *UpperTray True
)";

class FaxMachine {
  public:
    static constexpr char16_t kPrinter[] = u"Fax";

    explicit FaxMachine(embedded::MachineSetup setup = {}) : machine(std::move(setup)) {
        AddPrinter(kPrinter, u"C:\\Ppd\\FAX.PPD", kFaxPpd);
    }

    // A printer, a driver of its own of the same name, and the driver's data file.
    void AddPrinter(std::u16string name, std::u16string dataFile, std::string_view ppd) {
        WriteFile(dataFile, ppd);
        machine.spooler().AddDriver({.name = name, .dataFile = std::move(dataFile)});
        machine.spooler().AddPrinter({.name = name, .driverName = name});
    }

    void WriteFile(std::u16string_view path, std::string_view bytes) {
        const auto hostPath = machine.files().HostPath(path);
        std::filesystem::create_directories(hostPath.parent_path());
        std::ofstream(hostPath, std::ios::binary) << bytes;
    }
    void RemoveDeviceRecord() {
        machine.spooler().RemovePrinterData(kPrinter, u"PrinterDataSize");
        machine.spooler().RemovePrinterData(kPrinter, u"PrinterData");
    }
    void RemoveFile(std::u16string_view path) {
        std::filesystem::remove(machine.files().HostPath(path));
    }

    // With the right to print alone, or with every right.
    platform::PrinterHandle Open(std::u16string name = kPrinter, bool asAdministrator = false) {
        PRINTER_DEFAULTSW defaults = {
            .pDatatype = nullptr, .pDevMode = nullptr, .DesiredAccess = PRINTER_ALL_ACCESS};
        HANDLE handle = nullptr;
        if (!OpenPrinterW(name.data(), &handle, asAdministrator ? &defaults : nullptr)) {
            throw std::runtime_error("the embedded machine refuses to open a printer");
        }
        return platform::PrinterHandle(handle);
    }

    // What is open and taken, without the description that the cache may keep.
    embedded::Leaks OpenWithoutCache() {
        ksfax::DiscardDescriptionCache();
        return machine.OpenNow();
    }

    // Runs `action` as it is, and then again for each platform call that it made, with that call
    // failing, alone and with all after it; `prepare` goes before each. Nothing may stay taken,
    // locked or impersonated, whatever fails. `check` sees the name of a call that failed alone,
    // "" for the first run.
    void FailEachCall(const std::function<void()>& prepare, const std::function<void()>& action,
                      const std::function<void(const std::string& failed)>& check) {
        prepare();
        action();  // the description's cache file is there from here on
        check("");
        prepare();
        const embedded::Leaks before = OpenWithoutCache();
        machine.faults.Count();
        action();
        const std::vector<std::string> names = machine.faults.names();
        machine.faults.Clear();
        check("");
        EXPECT_EQ(OpenWithoutCache(), before);
        ASSERT_GT(names.size(), 10u);
        for (const bool andAllLater : {false, true}) {
            for (unsigned n = 1; n <= names.size(); ++n) {
                prepare();
                (void)OpenWithoutCache();
                machine.faults.FailNthCall(n, andAllLater);
                action();
                const bool struck = machine.faults.struck();
                machine.faults.Clear();
                SCOPED_TRACE("call " + std::to_string(n) + ", " + names[n - 1] +
                             (andAllLater ? " and all later" : ""));
                EXPECT_TRUE(struck);
                if (!andAllLater) {
                    check(names[n - 1]);
                }
                EXPECT_EQ(OpenWithoutCache(), before);
                EXPECT_FALSE(embedded::IsHeldByAnyone(ksfax::moduleLock));
                EXPECT_TRUE(machine.spooler().ThreadActsForClient());
            }
        }
    }

    embedded::Machine machine;
    tool::LoadedDriver driver{machine};
};

inline std::ostream& operator<<(std::ostream& out, const embedded::Leaks& leaks) {
    return out << leaks.handles << " handles, " << leaks.views << " views, " << leaks.globalBlocks
               << " blocks, " << leaks.heaps << " heaps, " << leaks.modules << " modules";
}
