// The printer description: reading and packing PPD files beside a peer that reads the same
// format, the cache file, lookups, and how the cost grows with the file.

#include <algorithm>
#include <array>
#include <cstdio>
#include <cstring>
#include <ctime>
#include <cups/ppd.h>
#include <fcntl.h>
#include <filesystem>
#include <fstream>
#include <functional>
#include <iterator>
#include <malloc.h>
#include <span>
#include <string>
#include <string_view>
#include <unistd.h>
#include <vector>

#include <benchmark/benchmark.h>

#include "platform/embedded/files.h"
#include "platform/embedded/machine.h"
#include "platform/owned.h"

#include "description/conflicts.h"
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

using Call = std::function<void()>;

// The least time of one call of each, in microseconds. The calls take turns in short rounds, so
// that whatever else the machine does meets them alike; the least, because disturbances only ever
// add. How far the middle round was above the least tells how much there was of that.
struct Measured {
    std::vector<double> best;
    double disturbance = 0;  // the largest of the calls', 0.1 = a tenth
};
Measured Measure(const std::vector<Call>& calls) {
    constexpr unsigned kRounds = 25;
    constexpr double kLeastRound = 400;
    Measured measured;
    std::vector<std::vector<double>> rounds(calls.size());
    std::vector<unsigned> repeats(calls.size(), 1);
    for (unsigned round = 0; round < kRounds; ++round) {
        for (size_t which = 0; which < calls.size(); ++which) {
            for (;;) {
                const double start = MicrosecondsNow();
                for (unsigned i = 0; i < repeats[which]; ++i) {
                    calls[which]();
                }
                const double took = MicrosecondsNow() - start;
                if (round == 0 && took < kLeastRound) {
                    repeats[which] *= 2;
                    continue;
                }
                rounds[which].push_back(took / repeats[which]);
                break;
            }
        }
    }
    for (std::vector<double>& times : rounds) {
        std::ranges::sort(times);
        measured.best.push_back(times.front());
        measured.disturbance =
            std::max(measured.disturbance, times[kRounds / 2] / times.front() - 1);
    }
    return measured;
}

bool ParseAndPack(const std::u16string& path) {
    ksfax::ParseState* state = ksfax::ParsePpdFile(path.c_str());
    void* block = state != nullptr ? ksfax::PackDescription(state) : nullptr;
    return block != nullptr && GlobalFree(block) == nullptr;
}

#pragma GCC diagnostic push
// The peer's own authors would rather that nobody used PPD files any more.
#pragma GCC diagnostic ignored "-Wdeprecated-declarations"
ppd_file_t* OpenForPeer(const char* path) {
    ppd_file_t* ppd = ppdOpenFile(path);
    if (ppd != nullptr) {
        ppdMarkDefaults(ppd);
    }
    return ppd;
}
int PeerConflicts(ppd_file_t* ppd) {
    return ppdConflicts(ppd);
}
void ClosePeer(ppd_file_t* ppd) {
    ppdClose(ppd);  // null is none
}
bool PeerOpenAndMark(const char* path) {
    ppd_file_t* ppd = OpenForPeer(path);
    ClosePeer(ppd);
    return ppd != nullptr;
}
#pragma GCC diagnostic pop

std::string ReadAll(const fs::path& path) {
    std::ifstream file(path, std::ios::binary);
    return {std::istreambuf_iterator<char>(file), {}};
}

bool ParseAndPackText(std::string_view text) {
    ksfax::ParseState* state = ksfax::ParsePpdText(text, TEXT("C:\\P.PPD"));
    void* block = state != nullptr ? ksfax::PackDescription(state) : nullptr;
    return block != nullptr && GlobalFree(block) == nullptr;
}

// Reads the file's first bytes, as any program does, into memory that is there already.
size_t ReadPlainly(const char* path, std::span<char> memory) {
    const int file = open(path, O_RDONLY | O_CLOEXEC);
    const ssize_t length = read(file, memory.data(), memory.size());
    close(file);
    return length > 0 ? static_cast<size_t>(length) : 0;
}

double Median(std::vector<double> values) {
    std::ranges::sort(values);
    return values.empty() ? 0 : values[values.size() / 2];
}
double Least(const std::vector<double>& values) {
    return values.empty() ? 0 : *std::ranges::min_element(values);
}

// Three comparisons, because fetching a small file costs more than all that either of the two
// makes of it, and no reader can save that:
// - work: both without fetching the file. libcups takes a path, so the time of opening, reading
//   and closing that file is taken off what it needs; ours is the parsing and packing of the
//   bytes in memory. This is the driver's own part, and what the goal of ten times is held to.
// - files: both with fetching it by plain system calls.
// - machine: ours through the embedded machine, whose CreateFileW, GetFileSize, mapping and
//   closing keep Windows' rules of names, sharing and attributes by several calls to the host
//   each. Its part, measured alone, is in the column before. Windows has costs of its own there.
// Files that one of the two refuses are listed but not compared.
void CompareWithPeer(benchmark::State& state) {
    embedded::Machine machine;
    std::vector<char> memory(size_t{4} << 20);
    for (auto _ : state) {
        std::vector<double> work;
        std::vector<double> files;
        std::vector<double> onMachine;
        std::vector<double> disturbances;
        std::printf("%-36s %6s %8s %6s %8s %5s %8s %8s %6s %6s %8s\n", "file", "bytes", "libcups",
                    "read", "ours", "MB/s", "map", "machine", "work", "files", "machine");
        for (const fs::path& file : RealPpds()) {
            const std::u16string path = machine.files().MachinePath(file);
            const std::string text = ReadAll(file);
            const auto bytes = static_cast<double>(text.size());
            const std::string name = file.filename();
            if (!ParseAndPack(path) || !PeerOpenAndMark(file.c_str())) {
                std::printf("%-36s %6.0f refused by one of the two\n", name.c_str(), bytes);
                continue;
            }
            const Measured measured = Measure({
                [&] { PeerOpenAndMark(file.c_str()); },
                [&] { ReadPlainly(file.c_str(), memory); },
                [&] { ParseAndPackText(text); },
                [&] {
                    const size_t length = ReadPlainly(file.c_str(), memory);
                    ParseAndPackText({memory.data(), length});
                },
                [&] {
                    platform::MappedView view;
                    uint32_t size = 0;
                    benchmark::DoNotOptimize(ksfax::MapFileReadOnly(path.c_str(), &view, &size));
                },
                [&] { ParseAndPack(path); },
            });
            const auto [peer, read, ours, readAndOurs, map, whole] =
                std::to_array({measured.best[0], measured.best[1], measured.best[2],
                               measured.best[3], measured.best[4], measured.best[5]});
            work.push_back((peer - read) / ours);
            files.push_back(peer / readAndOurs);
            onMachine.push_back(peer / whole);
            disturbances.push_back(measured.disturbance);
            std::printf("%-36s %6.0f %8.1f %6.1f %8.1f %5.0f %8.1f %8.1f %6.1f %6.1f %8.1f\n",
                        name.c_str(), bytes, peer, read, ours, bytes / ours, map, whole,
                        work.back(), files.back(), onMachine.back());
        }
        std::printf("microseconds and ratios; the middle round was %.0f %% above the best one\n",
                    100 * Median(disturbances));
        state.counters["work_median"] = Median(work);
        state.counters["work_least"] = Least(work);
        state.counters["files_median"] = Median(files);
        state.counters["files_least"] = Least(files);
        state.counters["machine_median"] = Median(onMachine);
        state.counters["machine_least"] = Least(onMachine);
    }
}
BENCHMARK(CompareWithPeer)->Iterations(1)->Unit(benchmark::kMillisecond);

// All conflicts among the defaults of a file that is loaded: ours asks for each document feature
// whether its selection clashes with the others, libcups goes over its list of constraints.
void ConflictsWithPeer(benchmark::State& state) {
    embedded::Machine machine;
    for (auto _ : state) {
        std::vector<double> ratios;
        std::vector<double> times;
        for (const fs::path& file : RealPpds()) {
            const std::u16string path = machine.files().MachinePath(file);
            ksfax::ParseState* parsed = ksfax::ParsePpdFile(path.c_str());
            const platform::GlobalBlock block(parsed != nullptr ? ksfax::PackDescription(parsed)
                                                                : nullptr);
            ppd_file_t* ppd = OpenForPeer(file.c_str());
            if (block && ppd != nullptr) {
                auto& description = *static_cast<ksfax::PrinterDescription*>(block.get());
                ksfax::RelocateDescription(&description);
                std::vector<uint8_t> document(description.DocumentFeatureCount);
                std::vector<uint8_t> installable(description.InstallableFeatureCount);
                ksfax::GetDefaultSelections(description, document);
                ksfax::ResolveInstallableConflicts(description, installable);
                const Measured measured = Measure({
                    [&] { benchmark::DoNotOptimize(PeerConflicts(ppd)); },
                    [&] {
                        const ksfax::SelectedOptions selected(description, installable, document);
                        for (uint16_t feature = 0; feature < document.size(); ++feature) {
                            benchmark::DoNotOptimize(
                                ksfax::FindConflict(selected, feature, document[feature]));
                        }
                    },
                });
                ratios.push_back(measured.best[0] / measured.best[1]);
                times.push_back(measured.best[1] * 1000);
            }
            ClosePeer(ppd);
        }
        state.counters["by_libcups_median"] = Median(ratios);
        state.counters["by_libcups_least"] = Least(ratios);
        state.counters["ns_median"] = Median(times);
    }
}
BENCHMARK(ConflictsWithPeer)->Iterations(1)->Unit(benchmark::kMillisecond);

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

// Beside a parse of the same PPD, and beside the least it could cost: reading the cache file and
// relocating it. As above, once through the machine and once with plain reads of the same files.
// A load reads the beginning of the PPD too, for its version; that second file is most of what it
// costs above the least.
void LoadFromCache(benchmark::State& state) {
    embedded::Machine machine;
    fs::path largest;
    for (const fs::path& file : RealPpds()) {
        if (largest.empty() || fs::file_size(file) > fs::file_size(largest)) {
            largest = file;
        }
    }
    const std::string ppd = (machine.driveC() / "P.PPD").string();
    const std::string cache = (machine.driveC() / "P.PDC").string();
    // A PPD without a version never uses its cache file.
    const std::string text = "*FileVersion: \"1.0\"\n" + ReadAll(largest);
    std::ofstream(ppd, std::ios::binary) << text;
    const WCHAR* const path = TEXT("C:\\P.PPD");
    GlobalFree(ksfax::LoadPrinterDescription(path));
    const size_t size = fs::file_size(cache);
    char beginning[4097] = {};
    const auto readCache = [&] {
        auto* block = static_cast<ksfax::PrinterDescription*>(GlobalAlloc(GMEM_FIXED, size));
        ReadPlainly(cache.c_str(), {reinterpret_cast<char*>(block), size});
        return block;
    };
    for (auto _ : state) {
        const Measured measured = Measure({
            [&] { GlobalFree(ksfax::LoadPrinterDescription(path)); },
            [&] { ParseAndPack(path); },
            [&] {
                ReadPlainly(ppd.c_str(), {beginning, sizeof(beginning) - 1});
                ksfax::PrinterDescription* block = readCache();
                if (ksfax::ReadFileVersion(beginning) == block->FileVersion &&
                    ksfax::IsSoundBlock(block, size)) {
                    ksfax::RelocateDescription(block);
                }
                GlobalFree(block);
            },
            [&] {
                ReadPlainly(ppd.c_str(), {beginning, sizeof(beginning) - 1});
                GlobalFree(readCache());
            },
            [&] { ParseAndPackText(text); },
            [&] {
                ksfax::PrinterDescription* block = readCache();
                ksfax::RelocateDescription(block);
                GlobalFree(block);
            },
        });
        const std::vector<double>& best = measured.best;
        state.counters["block_bytes"] = static_cast<double>(size);
        state.counters["load_us"] = best[0];
        state.counters["parse_us"] = best[1];
        state.counters["plain_load_us"] = best[2];
        state.counters["plain_reads_us"] = best[3];
        state.counters["parse_in_memory_us"] = best[4];
        state.counters["read_and_relocate_us"] = best[5];
        state.counters["own_work_by_parse"] = (best[2] - best[3]) / best[4];
        state.counters["load_by_parse"] = best[0] / best[1];
        state.counters["plain_by_least"] = best[2] / best[5];
        state.counters["disturbance"] = measured.disturbance;
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
LOOKUP(FindOptionByNameOrTranslation,
       ksfax::FindOptionByNameOrTranslation(
           ksfax::FeatureOf(d, ksfax::FeatureKind::PageSize)->Options.Target(), "Legal"));
LOOKUP(GetDefaultOptionValue, ksfax::GetDefaultOptionValue(d, ksfax::FeatureKind::MediaType));
LOOKUP(MicronsFromPoints, ksfax::MicronsFromPoints(d.MaxMediaWidth));
LOOKUP(GetDefaultSelections, ksfax::GetDefaultSelections(d, {document, 64}));
LOOKUP(FindConflict, ksfax::FindConflict({d, {installable, 64}, {document, 64}}, 2, 2));
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

// Names that undo the number of their feature and differ in high bits of the last character: all of
// them met in one slot of an index that hashed the number beside the name's first bytes.
std::string MeetingOptions(unsigned count) {
    std::string text;
    for (unsigned feature = 0; feature < count / 14; ++feature) {
        const std::string statement = "*F" + std::to_string(feature);
        text += "*OpenUI " + statement + ": PickOne\n";
        std::string name = "AAAAAAAAA";
        name[1] = static_cast<char>(0x40 | ((feature & 0x3F) % 0x3F));
        name[2] = static_cast<char>(0x40 | ((feature >> 8 & 0x3F) % 0x3F));
        for (const char last : std::string_view("bcdefghi!1AQaq")) {
            name.back() = last;
            text += statement + " " + name + ": \"\"\n";
        }
    }
    return text;
}
// As many installable features, each of which may forbid one of eight document features.
std::string Query(unsigned count) {
    std::string text;
    for (unsigned i = 0; i < 8; ++i) {
        text += "*OpenUI *Choice" + std::to_string(i) + ": PickOne\n*Choice" + std::to_string(i) +
                " On: \"\"\n";
    }
    text += InstallableConstraints(count);
    for (unsigned i = 0; i < count; ++i) {
        text += "*UIConstraints: *Feature" + std::to_string(i) + " *Choice" +
                std::to_string(i % 8) + " Off\n";
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
    const std::string texts[] = {make(1000), make(10000), make(100000)};
    const auto load = [](const std::string& text) {
        ksfax::ParseState* parsed = ksfax::ParsePpdText(text, TEXT("C:\\P.PPD"));
        ksfax::PrinterDescription* block = ksfax::PackDescription(parsed);
        ksfax::RelocateDescription(block);
        uint8_t installable[64];
        uint8_t document[64];
        ksfax::ResolveInstallableConflicts(*block, installable);
        const uint16_t documents = ksfax::GetDefaultSelections(*block, document);
        // As the spooler's question whether a job can be printed asks.
        const ksfax::SelectedOptions selected(*block, installable, document);
        for (uint16_t feature = 0; feature < std::min<uint16_t>(documents, 64); ++feature) {
            benchmark::DoNotOptimize(ksfax::FindConflict(selected, feature, document[feature]));
        }
        GlobalFree(block);
    };
    for (auto _ : state) {
        const Measured measured =
            Measure({[&] { load(texts[0]); }, [&] { load(texts[1]); }, [&] { load(texts[2]); }});
        state.counters["us_1000"] = measured.best[0];
        state.counters["us_10000"] = measured.best[1];
        state.counters["us_100000"] = measured.best[2];
        state.counters["growth"] = measured.best[2] / measured.best[0];
        state.counters["disturbance"] = measured.disturbance;
    }
}
BENCHMARK_CAPTURE(Growth, options, Options)->Iterations(1)->Unit(benchmark::kMillisecond);
BENCHMARK_CAPTURE(Growth, features, Features)->Iterations(1)->Unit(benchmark::kMillisecond);
BENCHMARK_CAPTURE(Growth, constraints, Constraints)->Iterations(1)->Unit(benchmark::kMillisecond);
BENCHMARK_CAPTURE(Growth, orders, Orders)->Iterations(1)->Unit(benchmark::kMillisecond);
BENCHMARK_CAPTURE(Growth, installable, InstallableConstraints)
    ->Iterations(1)
    ->Unit(benchmark::kMillisecond);
BENCHMARK_CAPTURE(Growth, meeting, MeetingOptions)->Iterations(1)->Unit(benchmark::kMillisecond);
BENCHMARK_CAPTURE(Growth, query, Query)->Iterations(1)->Unit(benchmark::kMillisecond);

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
