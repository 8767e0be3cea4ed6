// The printer description: reading and packing PPD files beside a peer that reads the same
// format, the cache file, lookups, and how the cost grows with the file.

#include <algorithm>
#include <cstdio>
#include <cstring>
#include <ctime>
#include <cups/ppd.h>
#include <fcntl.h>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <malloc.h>
#include <string>
#include <unistd.h>
#include <vector>

#include <benchmark/benchmark.h>

#include "platform/embedded/files.h"
#include "platform/embedded/machine.h"
#include "platform/owned.h"

#include "description/load_description.h"
#include "description/printer_description.h"

// Every allocation of the program comes by here, the peer's and the machine's too.
namespace counted {
thread_local size_t calls = 0;
thread_local size_t live = 0;
thread_local size_t peak = 0;

void* Took(void* block) {
    ++calls;
    live += malloc_usable_size(block);
    peak = std::max(peak, live);
    return block;
}
void Gave(void* block) {
    live -= std::min(live, malloc_usable_size(block));
}
void Restart() {
    calls = live = peak = 0;
}
}  // namespace counted

extern "C" {
void* __libc_malloc(size_t bytes);
void* __libc_calloc(size_t count, size_t bytes);
void* __libc_realloc(void* block, size_t bytes);
void __libc_free(void* block);

void* malloc(size_t bytes) {
    return counted::Took(__libc_malloc(bytes));
}
void* calloc(size_t count, size_t bytes) {
    return counted::Took(__libc_calloc(count, bytes));
}
void* realloc(void* block, size_t bytes) {
    counted::Gave(block);
    return counted::Took(__libc_realloc(block, bytes));
}
void free(void* block) {
    counted::Gave(block);
    __libc_free(block);
}
}

namespace {

namespace fs = std::filesystem;

std::vector<fs::path> RealPpds() {
    std::vector<fs::path> files = {SOURCE_FOLDER "/examples/KSFAX.PPD"};
    std::error_code missing;
    for (const auto& entry : fs::recursive_directory_iterator("/usr/share/ppd", missing)) {
        if (entry.path().extension() == ".ppd") {
            files.push_back(entry.path());
        }
    }
    std::ranges::sort(files);
    return files;
}

// Processor time of this thread, which other work on the machine disturbs least.
double MicrosecondsNow() {
    timespec now = {};
    clock_gettime(CLOCK_THREAD_CPUTIME_ID, &now);
    return static_cast<double>(now.tv_sec) * 1e6 + static_cast<double>(now.tv_nsec) / 1e3;
}

// The median time of one call, in microseconds: of 9 rounds of as many calls as take a while.
template <typename Call>
double MicrosecondsPerCall(Call call) {
    call();
    unsigned calls = 1;
    std::vector<double> rounds;
    while (rounds.size() < 9) {
        const double start = MicrosecondsNow();
        for (unsigned i = 0; i < calls; ++i) {
            call();
        }
        const double took = MicrosecondsNow() - start;
        if (took < 2000) {
            calls *= 2;
        } else {
            rounds.push_back(took / calls);
        }
    }
    std::ranges::sort(rounds);
    return rounds[rounds.size() / 2];
}

bool ParseAndPack(const std::u16string& path) {
    ksfax::ParseState* state = ksfax::ParsePpdFile(path.c_str());
    void* block = state != nullptr ? ksfax::PackDescription(state) : nullptr;
    return block != nullptr && GlobalFree(block) == nullptr;
}

#pragma GCC diagnostic push
// The peer's own authors would rather that nobody used PPD files any more.
#pragma GCC diagnostic ignored "-Wdeprecated-declarations"
bool PeerOpenAndMark(const char* path) {
    ppd_file_t* ppd = ppdOpenFile(path);
    if (ppd == nullptr) {
        return false;
    }
    ppdMarkDefaults(ppd);
    ppdClose(ppd);
    return true;
}
#pragma GCC diagnostic pop

std::string ReadAll(const fs::path& path) {
    std::ifstream file(path, std::ios::binary);
    return {std::istreambuf_iterator<char>(file), {}};
}

bool ParseAndPackText(const std::string& text) {
    ksfax::ParseState* state = ksfax::ParsePpdText(text, TEXT("C:\\P.PPD"));
    void* block = state != nullptr ? ksfax::PackDescription(state) : nullptr;
    return block != nullptr && GlobalFree(block) == nullptr;
}

// Reads the file as any program does, into memory that is there already, then parses and packs:
// what a load costs on a system that is not the embedded machine.
bool ReadParseAndPack(const char* path, std::vector<char>& memory) {
    const int file = open(path, O_RDONLY | O_CLOEXEC);
    const ssize_t length = read(file, memory.data(), memory.size());
    close(file);
    if (length <= 0) {
        return false;
    }
    ksfax::ParseState* state =
        ksfax::ParsePpdText({memory.data(), static_cast<size_t>(length)}, TEXT("C:\\P.PPD"));
    void* block = state != nullptr ? ksfax::PackDescription(state) : nullptr;
    return block != nullptr && GlobalFree(block) == nullptr;
}

double Median(std::vector<double> values) {
    std::ranges::sort(values);
    return values.empty() ? 0 : values[values.size() / 2];
}

// Files that one of the two refuses are listed but not compared.
void CompareWithPeer(benchmark::State& state) {
    embedded::Machine machine;
    std::vector<char> memory(size_t{4} << 20);
    for (auto _ : state) {
        std::vector<double> plainRatios;
        std::vector<double> machineRatios;
        std::printf("%-36s %7s %9s %8s %8s %7s %8s %6s\n", "file", "bytes", "libcups", "read+our",
                    "memory", "MB/s", "machine", "ratio");
        for (const fs::path& file : RealPpds()) {
            const std::u16string path = machine.files().MachinePath(file);
            const auto bytes = static_cast<double>(fs::file_size(file));
            const std::string name = file.filename();
            if (!ParseAndPack(path) || !PeerOpenAndMark(file.c_str())) {
                std::printf("%-36s %7.0f refused by one of the two\n", name.c_str(), bytes);
                continue;
            }
            const std::string text = ReadAll(file);
            const double peer = MicrosecondsPerCall([&] { PeerOpenAndMark(file.c_str()); });
            const double plain =
                MicrosecondsPerCall([&] { ReadParseAndPack(file.c_str(), memory); });
            const double inMemory = MicrosecondsPerCall([&] { ParseAndPackText(text); });
            const double onMachine = MicrosecondsPerCall([&] { ParseAndPack(path); });
            plainRatios.push_back(peer / plain);
            machineRatios.push_back(peer / onMachine);
            std::printf("%-36s %7.0f %9.1f %8.1f %8.1f %7.0f %8.1f %6.1f\n", name.c_str(), bytes,
                        peer, plain, inMemory, bytes / inMemory, onMachine, peer / plain);
        }
        std::printf("microseconds; ratio: libcups by read+our. Median ratio %.1f, with the "
                    "machine's file calls %.1f\n",
                    Median(plainRatios), Median(machineRatios));
        state.counters["median_ratio"] = Median(plainRatios);
        state.counters["median_ratio_machine"] = Median(machineRatios);
    }
}
BENCHMARK(CompareWithPeer)->Iterations(1)->Unit(benchmark::kMillisecond);

// Allocations of the driver for one file and their peak, by the file's size.
void CountMemory(benchmark::State& state) {
    embedded::Machine machine;
    for (auto _ : state) {
        size_t mostCalls = 0;
        std::vector<double> peaks;
        double largeFilePeak = 0;
        std::vector<double> peersPeaks;
        std::vector<double> peersCalls;
        for (const fs::path& file : RealPpds()) {
            const std::string text = ReadAll(file);
            counted::Restart();
            if (!ParseAndPackText(text)) {
                continue;
            }
            mostCalls = std::max(mostCalls, counted::calls);
            peaks.push_back(static_cast<double>(counted::peak) / static_cast<double>(text.size()));
            if (text.size() >= 16384) {
                largeFilePeak = std::max(largeFilePeak, peaks.back());
            }
            counted::Restart();
            PeerOpenAndMark(file.c_str());
            peersPeaks.push_back(static_cast<double>(counted::peak) /
                                 static_cast<double>(text.size()));
            peersCalls.push_back(static_cast<double>(counted::calls));
        }
        state.counters["most_allocations"] = static_cast<double>(mostCalls);
        state.counters["median_peak_by_file"] = Median(peaks);
        state.counters["highest_peak_by_file"] = *std::ranges::max_element(peaks);
        state.counters["highest_peak_16k_and_more"] = largeFilePeak;
        state.counters["libcups_median_peak"] = Median(peersPeaks);
        state.counters["libcups_median_allocations"] = Median(peersCalls);
    }
}
BENCHMARK(CountMemory)->Iterations(1)->Unit(benchmark::kMillisecond);

// ---- The cache file ----

// Beside a parse of the same PPD, and beside the least it could cost: reading the file and
// relocating it.
void LoadFromCache(benchmark::State& state) {
    embedded::Machine machine;
    fs::path largest;
    for (const fs::path& file : RealPpds()) {
        if (largest.empty() || fs::file_size(file) > fs::file_size(largest)) {
            largest = file;
        }
    }
    const fs::path ppd = machine.driveC() / "P.PPD";
    // A PPD without a version never uses its cache file.
    std::ofstream(ppd, std::ios::binary) << "*FileVersion: \"1.0\"\n" << ReadAll(largest);
    const std::u16string path = u"C:\\P.PPD";
    GlobalFree(ksfax::LoadPrinterDescription(path.c_str()));
    const size_t size = fs::file_size(machine.driveC() / "P.PDC");
    const std::string cacheName = (machine.driveC() / "P.PDC").string();
    for (auto _ : state) {
        const double load =
            MicrosecondsPerCall([&] { GlobalFree(ksfax::LoadPrinterDescription(path.c_str())); });
        const double parse = MicrosecondsPerCall([&] { ParseAndPack(path); });
        const double readAndRelocate = MicrosecondsPerCall([&] {
            auto* block = static_cast<ksfax::PrinterDescription*>(GlobalAlloc(GMEM_FIXED, size));
            const int file = open(cacheName.c_str(), O_RDONLY | O_CLOEXEC);
            if (read(file, block, size) == static_cast<ssize_t>(size)) {
                ksfax::RelocateDescription(block);
            }
            close(file);
            GlobalFree(block);
        });
        state.counters["block_bytes"] = static_cast<double>(size);
        state.counters["load_us"] = load;
        state.counters["parse_us"] = parse;
        state.counters["read_and_relocate_us"] = readAndRelocate;
    }
}
BENCHMARK(LoadFromCache)->Iterations(1)->Unit(benchmark::kMillisecond);

// The driver's own part of a cache load: the check and the relocation of a block in memory.
void CheckAndRelocate(benchmark::State& state) {
    embedded::Machine machine;
    ksfax::ParseState* parsed = ksfax::ParsePpdFile(
        machine.files().MachinePath(SOURCE_FOLDER "/examples/KSFAX.PPD").c_str());
    const platform::GlobalBlock packed(ksfax::PackDescription(parsed));
    const size_t size = static_cast<ksfax::PrinterDescription*>(packed.get())->TotalSize;
    const platform::GlobalBlock copy(GlobalAlloc(GMEM_FIXED, size));
    auto* block = static_cast<ksfax::PrinterDescription*>(copy.get());
    for (auto _ : state) {
        std::memcpy(block, packed.get(), size);
        if (!ksfax::IsSoundBlock(block, size)) {
            state.SkipWithError("the packer's own block was refused");
        }
        ksfax::RelocateDescription(block);
    }
    state.SetBytesProcessed(static_cast<int64_t>(size * state.iterations()));
}
BENCHMARK(CheckAndRelocate);

// ---- Lookups on the fax device ----

struct FaxDevice {
    embedded::Machine machine;
    platform::GlobalBlock block{ksfax::LoadPrinterDescription(
        machine.files().MachinePath(SOURCE_FOLDER "/examples/KSFAX.PPD").c_str())};
    const ksfax::PrinterDescription& description =
        *static_cast<const ksfax::PrinterDescription*>(block.get());

    ~FaxDevice() { fs::remove(SOURCE_FOLDER "/examples/KSFAX.PDC"); }
};

template <typename Ask>
void Lookup(benchmark::State& state, Ask ask) {
    FaxDevice device;
    uint8_t document[64] = {};
    uint8_t installable[64] = {};
    ksfax::GetDefaultSelections(device.description, document);
    for (auto _ : state) {
        benchmark::DoNotOptimize(ask(device.description, document, installable));
    }
}
#define LOOKUP(name, expression)                                                                   \
    BENCHMARK_CAPTURE(Lookup, name,                                                                \
                      [](const ksfax::PrinterDescription& d, [[maybe_unused]] uint8_t* document,   \
                         [[maybe_unused]] uint8_t* installable) { return expression; })
LOOKUP(GetDefaultResolution, ksfax::GetDefaultResolution(d));
LOOKUP(FindResolutionOption, ksfax::FindResolutionOption(d, 200));
LOOKUP(FindByName, ksfax::FindByName(d.Features.Target(), "JCLContrast"));
LOOKUP(GetDefaultSelections, ksfax::GetDefaultSelections(d, {document, 64}));
LOOKUP(IsConstrained, ksfax::IsConstrained(d, 2, 2, 0, 9));
LOOKUP(FindConflict, ksfax::FindConflict(d, {installable, 64}, {document, 64}, 2, 2));
LOOKUP(ResolveInstallableConflicts, ksfax::ResolveInstallableConflicts(d, {installable, 64}));
LOOKUP(GetSleepModeField, ksfax::GetSleepModeField(d, 2));
LOOKUP(GetDefaultBin, ksfax::GetDefaultBin(d));

// ---- Growth ----

using MakeText = std::string (*)(unsigned count);

std::string Options(unsigned count) {
    std::string text;
    for (unsigned i = 0; i < count; ++i) {
        text += "*MediaType Option" + std::to_string(i) + "/Name: \"code\"\n";
    }
    return text;
}
std::string Features(unsigned count) {
    std::string text;
    for (unsigned i = 0; i < count; ++i) {
        const std::string name = "Feature" + std::to_string(i);
        text += "*OpenUI *" + name + ": PickOne\n*" + name + " A: \"\"\n*CloseUI: *" + name + "\n";
    }
    return text;
}
std::string Constraints(unsigned count) {
    std::string text = Options(1000);
    for (unsigned i = 0; i < count; ++i) {
        text += "*UIConstraints: *MediaType Option" + std::to_string(i % 1000) + " *Duplex\n";
    }
    return text + "*Duplex None: \"\"\n";
}
std::string Orders(unsigned count) {
    std::string text = Options(1000);
    for (unsigned i = 0; i < count; ++i) {
        text += "*OrderDependency: 10 AnySetup *MediaType Option" + std::to_string(i % 1000) + "\n";
    }
    return text;
}
std::string InstallableConstraints(unsigned count) {
    std::string text = "*OpenGroup: InstallableOptions\n" + Features(count);
    for (unsigned i = 0; i < count; ++i) {
        text += "*UIConstraints: *Feature" + std::to_string(i) + " *Feature0\n";
    }
    return text;
}

// The time of 100,000 beside that of 1,000: 100 when the cost grows evenly. Memory stays with the
// program between the rounds: the pages of larger blocks would otherwise be the system's to make
// anew each time, which costs more than all the parsing.
void Growth(benchmark::State& state, MakeText make) {
    mallopt(M_MMAP_THRESHOLD, 1 << 30);
    mallopt(M_TRIM_THRESHOLD, 1 << 30);
    embedded::Machine machine;
    for (auto _ : state) {
        double microseconds[3] = {};
        unsigned count = 1000;
        for (double& measured : microseconds) {
            const std::string text = make(count);
            measured = MicrosecondsPerCall([&] {
                ksfax::ParseState* parsed = ksfax::ParsePpdText(text, TEXT("C:\\P.PPD"));
                ksfax::PrinterDescription* block = ksfax::PackDescription(parsed);
                ksfax::RelocateDescription(block);
                uint8_t selections[64];
                ksfax::ResolveInstallableConflicts(*block, selections);
                GlobalFree(block);
            });
            count *= 10;
        }
        state.counters["us_1000"] = microseconds[0];
        state.counters["us_10000"] = microseconds[1];
        state.counters["us_100000"] = microseconds[2];
        state.counters["growth"] = microseconds[2] / microseconds[0];
    }
}
BENCHMARK_CAPTURE(Growth, options, Options)->Iterations(1)->Unit(benchmark::kMillisecond);
BENCHMARK_CAPTURE(Growth, features, Features)->Iterations(1)->Unit(benchmark::kMillisecond);
BENCHMARK_CAPTURE(Growth, constraints, Constraints)->Iterations(1)->Unit(benchmark::kMillisecond);
BENCHMARK_CAPTURE(Growth, orders, Orders)->Iterations(1)->Unit(benchmark::kMillisecond);
BENCHMARK_CAPTURE(Growth, installable, InstallableConstraints)
    ->Iterations(1)
    ->Unit(benchmark::kMillisecond);

// About a megabyte of what an ill-meant file may repeat.
void Hostile(benchmark::State& state, const char* prefix, const char* repeated) {
    embedded::Machine machine;
    std::string text = prefix;
    while (text.size() < 1000000) {
        text += repeated;
    }
    for (auto _ : state) {
        benchmark::DoNotOptimize(ParseAndPackText(text));
    }
    state.SetBytesProcessed(static_cast<int64_t>(text.size() * state.iterations()));
}
BENCHMARK_CAPTURE(Hostile, asterisks, "", "*");
BENCHMARK_CAPTURE(Hostile, asterisk_lines, "", "*\n");
BENCHMARK_CAPTURE(Hostile, bad_characters, "", "* ");
BENCHMARK_CAPTURE(Hostile, one_statement, "", "*Duplex None: \"\"\n");
BENCHMARK_CAPTURE(Hostile, groups, "", "*OpenGroup: InstallableOptions\n");
BENCHMARK_CAPTURE(Hostile, endless_quote, "*NickName: \"", "<41>");
BENCHMARK_CAPTURE(Hostile, repeated_keyword, "", "*FreeVM: 1\n");
BENCHMARK_CAPTURE(Hostile, endless_list, "*Protocols: ", "PJL X ");

}  // namespace
