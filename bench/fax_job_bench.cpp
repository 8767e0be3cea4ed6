// The start of a fax document and its end, without the dialog's own work: the driver's events on
// the embedded machine, with the file operations that each document costs.

#include <filesystem>
#include <fstream>
#include <string>

#include <benchmark/benchmark.h>

#include "platform/embedded/files.h"
#include "platform/embedded/machine.h"
#include "platform/embedded/modules.h"
#include "platform/owned.h"

#include "faxjob/companion.h"

namespace {

namespace fs = std::filesystem;

INT_PTR Accept(DialModuleRecord*) {
    return 1;
}

// Writes what the companion module leaves behind: the shared file, and Dial files of 100
// receivers each for a list above 100.
void WriteReceivers(const embedded::Machine& machine, unsigned receivers) {
    std::ofstream ini(machine.driveC() / "Windows" / "KSFAXJOB.INI", std::ios::binary);
    ini << "[FAXDATA]\r\nDIR=C:\\Fax\r\n[DIALLIST]\r\nNum=" << receivers << "\r\n";
    const unsigned inFile = receivers > KSFAX_SHORT_LIST ? 0 : receivers;
    for (unsigned i = 1; i <= inFile; ++i) {
        ini << "Name" << i << "=Receiver " << i << "\r\nNumber" << i << "=555" << i << "\r\n";
    }
    for (unsigned first = 1, file = 1; inFile == 0 && first <= receivers; first += 100, ++file) {
        const std::string digits = std::to_string(file);
        std::ofstream dial(machine.driveC() / "Fax" /
                               ("Dial" + std::string(digits.size() < 2, '0') + digits + ".ini"),
                           std::ios::binary);
        dial << "[DIALLIST]\r\n";
        for (unsigned i = first; i < first + 100 && i <= receivers; ++i) {
            dial << "Name" << i << "=Receiver " << i << "\r\nNumber" << i << "=555" << i << "\r\n";
        }
    }
}

// Measures one event of a document while the other one runs outside the clock.
void DocumentEvent(benchmark::State& state, INT measured) {
    embedded::Machine machine;
    machine.modules().Install(
        {.path = TEXT("C:\\Windows\\System32\\KSFAXDLG.DLL"),
         .exports = {{KSFAX_DIAL_OPERATION, platform::FunctionCast<FARPROC>(Accept)},
                     {KSFAX_COVER_OPERATION, platform::FunctionCast<FARPROC>(Accept)}},
         .resources = {}});
    HANDLE printer = reinterpret_cast<HANDLE>(0x2C1F40);
    for (auto _ : state) {
        state.PauseTiming();
        fs::remove_all(machine.driveC() / "Fax");
        fs::create_directories(machine.driveC() / "Fax");
        WriteReceivers(machine, static_cast<unsigned>(state.range(0)));
        for (const INT event : {DOCUMENTEVENT_STARTDOC, DOCUMENTEVENT_ENDDOC}) {
            if (event == measured) {
                state.ResumeTiming();
            }
            DrvDocumentEvent(printer, nullptr, event, 0, nullptr, 0, nullptr);
            if (event == measured) {
                state.PauseTiming();
            }
        }
        state.ResumeTiming();
    }
}
BENCHMARK_CAPTURE(DocumentEvent, start, DOCUMENTEVENT_STARTDOC)
    ->Arg(1)
    ->Arg(1000)
    ->Unit(benchmark::kMicrosecond);
BENCHMARK_CAPTURE(DocumentEvent, end, DOCUMENTEVENT_ENDDOC)
    ->Arg(1)
    ->Arg(1000)
    ->Unit(benchmark::kMicrosecond);

}  // namespace
