// Job settings, capability answers and the print query: what an application waits for when its
// print dialog opens.

#include <fstream>
#include <memory>
#include <sstream>
#include <string>
#include <vector>

#include <benchmark/benchmark.h>

#include "platform/embedded/files.h"
#include "platform/embedded/machine.h"
#include "platform/embedded/spooler.h"
#include "platform/owned.h"
#include "platform/windows_api.h"

#include "core/module_state.h"
#include "core/spooler_queries.h"
#include "description/printer_description.h"
#include "jobsettings/job_settings.h"
#include "tool/loaded_driver.h"

namespace {

using namespace ksfax;

constexpr WORD kIndexes = 34;

// 20 papers, the features of a fax device.
std::string OrdinaryPpd() {
    std::ifstream file(SOURCE_FOLDER "/examples/KSFAX.PPD", std::ios::binary);
    std::string ppd(std::istreambuf_iterator<char>(file), {});
    ppd += "*OpenUI *PageSize: PickOne\n";
    for (int i = 0; i < 10; ++i) {
        ppd += "*PageSize Extra" + std::to_string(i) + ": \"\"\n";
    }
    ppd += "*CloseUI: *PageSize\n*OpenUI *Paper: PickOne\n";
    for (int i = 0; i < 10; ++i) {
        ppd += "*Paper Extra" + std::to_string(i) + ": \"" + std::to_string(300 + i) + "\"\n";
    }
    return ppd + "*CloseUI: *Paper\n";
}

// 1,000 options in 40 features, and 1,000 constraints that never hold together.
std::string LargePpd() {
    std::string ppd = "*PPD-Adobe: \"4.3\"\n*FileVersion: \"1.0\"\n*OpenUI *PageSize: PickOne\n"
                      "*PageSize A4: \"\"\n*CloseUI: *PageSize\n";
    for (int feature = 0; feature < 40; ++feature) {
        const std::string keyword = "Choice" + std::to_string(feature);
        ppd += "*OpenUI *" + keyword + ": PickOne\n";
        for (int option = 0; option < 25; ++option) {
            ppd += "*" + keyword + " O" + std::to_string(option) + ": \"\"\n";
        }
        ppd += "*CloseUI: *" + keyword + "\n";
    }
    for (int i = 0; i < 1000; ++i) {
        ppd += "*UIConstraints: *Choice" + std::to_string(i % 40) + " O" +
               std::to_string(1 + i % 24) + " *Choice" + std::to_string((i + 7) % 40) + " O" +
               std::to_string(1 + i % 23) + "\n";
    }
    return ppd;
}

// One machine for the whole run, with a printer of each kind.
class Home {
  public:
    static Home& Get() {
        static Home home;
        return home;
    }
    // Its description is the one that the cache holds from now on.
    HANDLE Printer(int large) {
        const HANDLE printer = printers_[large];
        ReleaseDescription(AcquireDescription(printer, true));
        return printer;
    }

  private:
    Home() {
        Add(u"Ordinary", OrdinaryPpd());
        Add(u"Large", LargePpd());
    }
    void Add(std::u16string name, const std::string& ppd) {
        const std::u16string path = u"C:\\" + name + u".PPD";
        std::ofstream(machine_.files().HostPath(path), std::ios::binary) << ppd;
        machine_.spooler().AddDriver({.name = name, .dataFile = path});
        machine_.spooler().AddPrinter({.name = name, .driverName = name});
        HANDLE printer = nullptr;
        OpenPrinterW(name.data(), &printer, nullptr);
        printers_.push_back(printer);
    }

    embedded::Machine machine_;
    tool::LoadedDriver driver_{machine_};
    std::vector<HANDLE> printers_;
};

JobSettings CallersRecord(const PrinterDescription& description) {
    JobSettings record;
    BuildDefaultJobSettings(&record, TEXT("Fax"), description, true);
    return record;
}

void DefaultRecord(benchmark::State& state) {
    const DescriptionUse description(AcquireDescription(Home::Get().Printer(state.range(0)), true));
    JobSettings settings;
    for (auto _ : state) {
        BuildDefaultJobSettings(&settings, TEXT("Fax"), *description.get(), true);
        benchmark::DoNotOptimize(settings);
    }
}
BENCHMARK(DefaultRecord)->ArgName("large")->Arg(0)->Arg(1);

void DefaultRecordAndMerge(benchmark::State& state) {
    const DescriptionUse description(AcquireDescription(Home::Get().Printer(state.range(0)), true));
    const JobSettings caller = CallersRecord(*description.get());
    JobSettings settings;
    for (auto _ : state) {
        BuildDefaultJobSettings(&settings, TEXT("Fax"), *description.get(), true);
        benchmark::DoNotOptimize(MergeJobSettings(&settings, &caller.devMode, *description.get()));
    }
}
BENCHMARK(DefaultRecordAndMerge)->ArgName("large")->Arg(0)->Arg(1);

void Derive(benchmark::State& state) {
    const DescriptionUse description(AcquireDescription(Home::Get().Printer(0), true));
    JobSettings settings = CallersRecord(*description.get());
    for (auto _ : state) {
        DeriveJobBlock(&settings);
        benchmark::DoNotOptimize(settings);
    }
}
BENCHMARK(Derive);

void Convert(benchmark::State& state) {
    const DescriptionUse description(AcquireDescription(Home::Get().Printer(0), true));
    const JobSettings source = CallersRecord(*description.get());
    JobSettings destination = source;
    for (auto _ : state) {
        benchmark::DoNotOptimize(ConvertJobSettings(&source.devMode, &destination.devMode));
    }
}
BENCHMARK(Convert);

// What each capability query pays the platform before it answers: driver information and locale.
void PlatformShareOfAQuery(benchmark::State& state) {
    const HANDLE printer = Home::Get().Printer(0);
    for (auto _ : state) {
        benchmark::DoNotOptimize(GetDriverInfo(printer, 2));
        benchmark::DoNotOptimize(IsMetricLocale());
    }
}
BENCHMARK(PlatformShareOfAQuery);

void Capability(benchmark::State& state) {
    const HANDLE printer = Home::Get().Printer(state.range(0));
    const auto index = static_cast<WORD>(state.range(1));
    std::vector<BYTE> output(2000 * 128);
    for (auto _ : state) {
        benchmark::DoNotOptimize(
            DrvDeviceCapabilities(printer, nullptr, index, output.data(), nullptr));
    }
}
BENCHMARK(Capability)
    ->ArgNames({"large", "index"})
    ->ArgsProduct({{0, 1},
                   {DC_FIELDS, DC_PAPERS, DC_PAPERSIZE, DC_ENUMRESOLUTIONS, DC_PAPERNAMES,
                    DC_ORIENTATION, DC_COPIES}});

// Every index once, with the room for its list: an application's print dialog opens.
void AllCapabilities(benchmark::State& state) {
    const HANDLE printer = Home::Get().Printer(0);
    std::vector<BYTE> output(2000 * 128);
    for (auto _ : state) {
        for (WORD index = 0; index < kIndexes; ++index) {
            benchmark::DoNotOptimize(
                DrvDeviceCapabilities(printer, nullptr, index, output.data(), nullptr));
        }
    }
}
BENCHMARK(AllCapabilities)->UseRealTime()->Threads(1)->Threads(16);

void PrintQuery(benchmark::State& state) {
    const HANDLE printer = Home::Get().Printer(state.range(0));
    JobSettings job;
    {
        const DescriptionUse description(AcquireDescription(printer, true));
        job = CallersRecord(*description.get());
    }
    WCHAR text[256];
    DEVQUERYPRINT_INFO query = {sizeof(query), 1, printer, &job.devMode, text, 256, 0};
    for (auto _ : state) {
        if (!DevQueryPrintEx(&query)) {
            state.SkipWithError("refused");
        }
    }
}
BENCHMARK(PrintQuery)->ArgName("large")->Arg(0)->Arg(1);

}  // namespace
