// What the driver itself adds to a call that needs the printer description: taking it from the
// cache, and a whole session on it. The platform's share is measured beside it, by the same
// platform calls made alone.

#include <cstdlib>
#include <filesystem>
#include <iostream>
#include <string>
#include <vector>

#include <benchmark/benchmark.h>

#include "platform/embedded/files.h"
#include "platform/embedded/machine.h"
#include "platform/embedded/spooler.h"
#include "platform/windows_api.h"

#include "core/module_state.h"
#include "core/session.h"
#include "jobsettings/job_settings.h"
#include "tool/loaded_driver.h"

namespace {

// A printer on the example description, with the driver's own default record, whose forms and
// names were recorded by an earlier session.
class Printer {
  public:
    Printer() {
        // A copy on the machine's own drive: loading writes a cache file beside it.
        const auto copy = machine_.driveC() / "KSFAX.PPD";
        std::filesystem::copy_file(std::string(SOURCE_FOLDER) + "/examples/KSFAX.PPD", copy);
        machine_.spooler().AddDriver(
            {.name = u"Fax", .dataFile = machine_.files().MachinePath(copy)});
        machine_.spooler().AddPrinter({.name = u"Fax", .driverName = u"Fax"});
        Open();
        const ksfax::OpenSession session(ksfax::OpenPrinterSession(handle_, nullptr));
        if (!session) {
            std::cerr << "no session on the example description\n";
            std::exit(1);
        }
        embedded::Printer printer = *machine_.spooler().FindPrinter(u"Fax");
        const auto* record = reinterpret_cast<const std::byte*>(&session.get()->jobSettings);
        printer.defaultSettings.assign(record, record + sizeof(ksfax::JobSettings));
        machine_.spooler().AddPrinter(std::move(printer));
        ClosePrinter(handle_);
        Open();
        const ksfax::OpenSession settled(ksfax::OpenPrinterSession(handle_, nullptr));
    }
    ~Printer() { ClosePrinter(handle_); }

    HANDLE handle() const { return handle_; }

  private:
    void Open() {
        WCHAR name[] = u"Fax";
        PRINTER_DEFAULTSW defaults = {
            .pDatatype = nullptr, .pDevMode = nullptr, .DesiredAccess = PRINTER_ALL_ACCESS};
        if (!OpenPrinterW(name, &handle_, &defaults)) {
            std::cerr << "the machine refuses to open the printer\n";
            std::exit(1);
        }
    }

    embedded::Machine machine_;
    tool::LoadedDriver driver_{machine_};
    HANDLE handle_ = nullptr;
};

// One answer of the two-call pattern, by the published calls alone.
template <typename Query>
void AskAlone(Query query) {
    DWORD needed = 0;
    (void)query(nullptr, 0, &needed);
    const platform::GlobalBlock block(GlobalAlloc(GMEM_FIXED, needed));
    benchmark::DoNotOptimize(query(static_cast<LPBYTE>(block.get()), needed, &needed));
}

void AcquireOnAHit(benchmark::State& state) {
    const Printer printer;
    for (auto _ : state) {
        const auto* description = ksfax::AcquireDescription(printer.handle(), true);
        benchmark::DoNotOptimize(description);
        ksfax::ReleaseDescription(description);
    }
}
BENCHMARK(AcquireOnAHit);

void AcquireOnAHitPlatformAlone(benchmark::State& state) {
    const Printer printer;
    for (auto _ : state) {
        AskAlone([&](LPBYTE buffer, DWORD bytes, DWORD* needed) {
            return GetPrinterDriverW(printer.handle(), nullptr, 2, buffer, bytes, needed);
        });
    }
}
BENCHMARK(AcquireOnAHitPlatformAlone);

void AcquireAfresh(benchmark::State& state) {
    const Printer printer;
    for (auto _ : state) {
        ksfax::ReleaseDescription(ksfax::AcquireDescription(printer.handle(), false));
    }
}
BENCHMARK(AcquireAfresh);

void OpenAndCloseSession(benchmark::State& state) {
    const Printer printer;
    const ksfax::DescriptionUse held(ksfax::AcquireDescription(printer.handle(), true));
    for (auto _ : state) {
        const ksfax::OpenSession session(ksfax::OpenPrinterSession(printer.handle(), nullptr));
        benchmark::DoNotOptimize(session.get());
    }
}
BENCHMARK(OpenAndCloseSession);

// What a session asks of the locale, and who uses the machine.
void AskLocaleAndNamesAlone(HANDLE printer) {
    char stored[600];
    char name[600];
    WCHAR country[16];
    DWORD type = 0;
    DWORD needed = 0;
    for (int i = 0; i < 2; ++i) {
        const int characters = GetLocaleInfoW(LOCALE_USER_DEFAULT, LOCALE_ICOUNTRY, nullptr, 0);
        const platform::GlobalBlock text(GlobalAlloc(GMEM_ZEROINIT, sizeof(country)));
        benchmark::DoNotOptimize(
            GetLocaleInfoW(LOCALE_USER_DEFAULT, LOCALE_ICOUNTRY, country, characters));
    }
    DWORD length = 0;
    GetUserNameA(nullptr, &length);
    const platform::GlobalBlock user(GlobalAlloc(GMEM_ZEROINIT, length));
    GetUserNameA(static_cast<char*>(user.get()), &length);
    length = sizeof(name);
    GetComputerNameA(name, &length);
    for (const auto* value : {"UserName", "ComputerName"}) {
        GetPrinterDataA(printer, const_cast<LPSTR>(value), &type, reinterpret_cast<LPBYTE>(stored),
                        sizeof(stored), &needed);
        benchmark::DoNotOptimize(lstrcmpiA(stored, name));
    }
}

// The spooler, heap and locale calls of a session on a printer, none of the driver's code.
void OpenAndCloseSessionPlatformAlone(benchmark::State& state) {
    const Printer printer;
    const HANDLE handle = printer.handle();
    for (auto _ : state) {
        const platform::PrivateHeap heap(HeapCreate(0, 8192, 0));
        for (const SIZE_T bytes : {sizeof(ksfax::PrinterSession), SIZE_T{8}, SIZE_T{100}}) {
            benchmark::DoNotOptimize(HeapAlloc(heap.get(), HEAP_ZERO_MEMORY, bytes));
        }
        for (const DWORD level : {2u, 8u, 2u}) {
            AskAlone([=](LPBYTE buffer, DWORD bytes, DWORD* size) {
                return GetPrinterW(handle, level, buffer, bytes, size);
            });
        }
        for (const DWORD level : {2u, 3u}) {
            AskAlone([=](LPBYTE buffer, DWORD bytes, DWORD* size) {
                return GetPrinterDriverW(handle, nullptr, level, buffer, bytes, size);
            });
        }
        DWORD needed = 0;
        WCHAR folder[MAX_PATH];
        GetPrinterDriverDirectoryW(nullptr, nullptr, 1, nullptr, 0, &needed);
        GetPrinterDriverDirectoryW(nullptr, nullptr, 1, reinterpret_cast<LPBYTE>(folder),
                                   sizeof(folder), &needed);
        AskLocaleAndNamesAlone(handle);
        for (const auto* name : {u"Forms?", u"PrinterDataSize", u"FreeMem", u"PrinterHT"}) {
            DWORD number = 0;
            DWORD type = 0;
            benchmark::DoNotOptimize(GetPrinterDataW(handle, const_cast<LPWSTR>(name), &type,
                                                     reinterpret_cast<LPBYTE>(&number),
                                                     sizeof(number), &needed));
        }
    }
}
BENCHMARK(OpenAndCloseSessionPlatformAlone);

}  // namespace
