// Texts that come from outside, of any content; the first byte says which: a message's format, a
// control's creation text, the fax job file of a job from start to end, or the shared block that
// a document's end finds.

#include <algorithm>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <string>
#include <vector>

#include "platform/embedded/files.h"
#include "platform/embedded/machine.h"
#include "platform/embedded/modules.h"
#include "platform/owned.h"

#include "capabilities/query_message.h"
#include "faxjob/companion.h"
#include "ui/control_class.h"

namespace {

namespace fs = std::filesystem;

const HANDLE kPrinter = reinterpret_cast<HANDLE>(0x2C1F40);
constexpr WCHAR kBlock[] = TEXT("2c1f40CVP");

void Demand(bool holds) {
    if (!holds) {
        std::abort();
    }
}

INT_PTR Confirm(DialModuleRecord* record) {
    Demand(record->maximumReceivers >= 50 && record->maximumReceivers <= 999);
    Demand(record->snapshotPath[sizeof record->snapshotPath - 1] == 0);
    return 1;
}

INT_PTR MakeCover(DialModuleRecord* record) {
    Demand(record->snapshotPath[sizeof record->snapshotPath - 1] == 0);
    return 0;
}

embedded::Machine& MachineWithCompanion() {
    static embedded::Machine machine;
    static const bool once = [] {
        machine.modules().Install(
            {.path = TEXT("C:\\Windows\\System32\\KSFAXDLG.DLL"),
             .exports = {{KSFAX_DIAL_OPERATION, platform::FunctionCast<FARPROC>(Confirm)},
                         {KSFAX_COVER_OPERATION, platform::FunctionCast<FARPROC>(MakeCover)}},
             .resources = {}});
        fs::create_directories(machine.driveC() / "Fax");
        return true;
    }();
    (void)once;
    return machine;
}

// In memory of its own with nothing behind it, so that reading past its end is seen.
std::vector<WCHAR> WideText(const uint8_t* data, size_t size) {
    std::vector<WCHAR> text(size / sizeof(WCHAR) + 1);
    std::memcpy(text.data(), data, size / sizeof(WCHAR) * sizeof(WCHAR));
    text.shrink_to_fit();
    return text;
}

void FormatMessage(const uint8_t* data, size_t size) {
    if (size == 0) {
        return;
    }
    const std::vector<WCHAR> format = WideText(data + 1, size - 1);
    const ksfax::QueryArgument arguments[] = {{.text = TEXT("tray"), .number = 40051},
                                              {.text = nullptr, .number = 7}};
    std::vector<WCHAR> buffer(data[0]);
    DWORD needed = 0;
    ksfax::FormatQueryMessage(nullptr, buffer.data(), data[0], &needed, format.data(),
                              {arguments, static_cast<size_t>(data[0] % 3)});
    const auto end = std::find(buffer.begin(), buffer.end(), 0);
    Demand(buffer.empty() || end != buffer.end());
    Demand(needed != 0 &&
           (needed > buffer.size() || end - buffer.begin() == static_cast<ptrdiff_t>(needed - 1)));
}

void ReadRange(const uint8_t* data, size_t size) {
    ksfax::RangeText range = {1, 2, 3};
    if (!ksfax::ParseRangeText(WideText(data, size).data(), &range)) {
        Demand(range.minimum == 1 && range.maximum == 2 && range.position == 3);
    }
}

void Event(int code) {
    Demand(DrvDocumentEvent(kPrinter, nullptr, code, 0, nullptr, 0, nullptr) == 1);
}

void RunJob(embedded::Machine& machine, const std::string& text) {
    // The first value of a key counts, so the job's files stay in one folder; and none is read
    // from the disk of the host.
    if (text.find(":\\") != std::string::npos || text.find(":/") != std::string::npos) {
        return;
    }
    std::ofstream(machine.driveC() / "Windows" / "KSFAXJOB.INI", std::ios::binary)
        << "[FAXDATA]\r\nDIR=C:\\Fax\r\n" + text;
    const embedded::Leaks before = machine.OpenNow();
    Event(DOCUMENTEVENT_STARTDOC);
    Event(DOCUMENTEVENT_ENDDOC);
    Demand(machine.OpenNow() == before);
    for (const auto& file : fs::directory_iterator(machine.driveC() / "Fax")) {
        fs::remove_all(file.path());
    }
}

void EndForeignJob(const uint8_t* data, size_t size) {
    const platform::NullableHandle block(CreateFileMappingW(
        INVALID_HANDLE_VALUE, nullptr, PAGE_READWRITE, 0, static_cast<DWORD>(size), kBlock));
    if (!block) {
        return;  // of no bytes
    }
    {
        const platform::MappedView view(MapViewOfFile(block.get(), FILE_MAP_ALL_ACCESS, 0, 0, 0));
        std::memcpy(view.get(), data, size);
        // The handle to be closed is nobody's.
        std::memset(view.get(), 0xEE, std::min<size_t>(size, sizeof(uint64_t)));
    }
    Event(DOCUMENTEVENT_ENDDOC);
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    embedded::Machine& machine = MachineWithCompanion();
    if (size == 0) {
        return 0;
    }
    switch (data[0] % 4) {
    case 0:
        FormatMessage(data + 1, size - 1);
        break;
    case 1:
        ReadRange(data + 1, size - 1);
        break;
    case 2:
        RunJob(machine, std::string(reinterpret_cast<const char*>(data + 1), size - 1));
        break;
    default:
        EndForeignJob(data + 1, size - 1);
        break;
    }
    return 0;
}
