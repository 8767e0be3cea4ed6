// The printer description: reading and packing PPD files beside a peer that reads the same
// format, the cache file, lookups, and how the cost grows with the file.

#include <algorithm>
#include <cstdio>
#include <ctime>
#include <cups/ppd.h>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <string>
#include <vector>

#include <benchmark/benchmark.h>

#include "platform/crc16.h"
#include "platform/embedded/files.h"
#include "platform/embedded/machine.h"

#include "description/load_description.h"
#include "description/printer_description.h"

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

// Files that one of the two refuses are listed but not compared.
void CompareWithPeer(benchmark::State& state) {
    embedded::Machine machine;
    for (auto _ : state) {
        std::vector<double> ratios;
        std::printf("%-40s %8s %9s %11s %7s %12s %7s\n", "file", "bytes", "ours us", "libcups us",
                    "ratio", "in memory us", "MB/s");
        for (const fs::path& file : RealPpds()) {
            const std::u16string path = machine.files().MachinePath(file);
            const auto bytes = static_cast<double>(fs::file_size(file));
            if (!ParseAndPack(path) || !PeerOpenAndMark(file.c_str())) {
                std::printf("%-40s %8.0f refused by one of the two\n", file.filename().c_str(),
                            bytes);
                continue;
            }
            const double ours = MicrosecondsPerCall([&] { ParseAndPack(path); });
            const double peers = MicrosecondsPerCall([&] { PeerOpenAndMark(file.c_str()); });
            ratios.push_back(peers / ours);
            // Without the machine's file calls: what the driver's own code takes.
            const std::string text = ReadAll(file);
            const double inMemory = MicrosecondsPerCall([&] { ParseAndPackText(text); });
            std::printf("%-40s %8.0f %9.1f %11.1f %7.1f %12.1f %7.0f\n", file.filename().c_str(),
                        bytes, ours, peers, peers / ours, inMemory, bytes / inMemory);
        }
        std::ranges::sort(ratios);
        std::printf("median ratio %.1f over %zu files\n", ratios[ratios.size() / 2], ratios.size());
        state.counters["median_ratio"] = ratios[ratios.size() / 2];
        state.counters["lowest_ratio"] = ratios.front();
    }
}
BENCHMARK(CompareWithPeer)->Iterations(1)->Unit(benchmark::kMillisecond);

}  // namespace
