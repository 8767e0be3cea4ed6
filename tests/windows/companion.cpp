// A companion module KSFAXDLG.DLL for the tests, in both homes: no dialog, but the same traffic.
// What it "asks the user" stands in the fax job file's section "COMPANION": the number of
// receivers, 0 to cancel, and a cover bitmap's path. Each call adds lines to calls.txt in the fax
// data folder: the operation, its record, and for the dialog the fax job file as it then is.

#include "faxjob/companion.h"

#include <string>

#include "platform/windows_api.h"

namespace {

using Text = std::basic_string<WCHAR>;

constexpr WCHAR kJobFile[] = TEXT(KSFAX_JOB_FILE);
constexpr unsigned kShortList = KSFAX_SHORT_LIST;

Text Read(const WCHAR* section, const WCHAR* key) {
    WCHAR text[MAX_PATH];
    return {text, GetPrivateProfileStringW(section, key, TEXT(""), text, MAX_PATH, kJobFile)};
}

void Write(const WCHAR* section, const WCHAR* key, const Text& value) {
    WritePrivateProfileStringW(section, key, value.c_str(), kJobFile);
}

std::string Content(const Text& path) {
    const HANDLE file = CreateFileW(path.c_str(), GENERIC_READ, FILE_SHARE_READ | FILE_SHARE_WRITE,
                                    nullptr, OPEN_EXISTING, 0, nullptr);
    std::string bytes(4096, '\0');
    DWORD size = 0;
    if (file != INVALID_HANDLE_VALUE) {
        ReadFile(file, bytes.data(), static_cast<DWORD>(bytes.size()), &size, nullptr);
        CloseHandle(file);
    }
    return bytes.substr(0, size);
}

// Writes a file in the fax data folder, over what is there.
void Leave(const Text& name, const std::string& bytes) {
    const Text path = Read(TEXT("FAXDATA"), TEXT("DIR")) + TEXT("\\") + name;
    const HANDLE file =
        CreateFileW(path.c_str(), GENERIC_WRITE, 0, nullptr, CREATE_ALWAYS, 0, nullptr);
    if (file != INVALID_HANDLE_VALUE) {
        DWORD written = 0;
        WriteFile(file, bytes.data(), static_cast<DWORD>(bytes.size()), &written, nullptr);
        CloseHandle(file);
    }
}

void Tell(const std::string& line) {
    const Text calls = Read(TEXT("FAXDATA"), TEXT("DIR")) + TEXT("\\calls.txt");
    Leave(TEXT("calls.txt"), Content(calls) + line + "\n");
}

// The record but for the unused rest of its path.
std::string Shown(const DialModuleRecord& record) {
    const auto* bytes = reinterpret_cast<const unsigned char*>(&record);
    std::string shown;
    for (const size_t at : {0, 1, 2, 262, 263, 264, 265}) {
        shown += at == 262 ? "\"" + std::string(record.snapshotPath) + "\" ... " : "";
        shown += "0123456789ABCDEF"[bytes[at] >> 4];
        shown += "0123456789ABCDEF"[bytes[at] & 15];
        shown += ' ';
    }
    return shown;
}

void LeaveDialFiles(unsigned receivers) {
    for (unsigned first = 1; first <= receivers; first += kShortList) {
        std::string lines = "[DIALLIST]\r\n";
        for (unsigned i = first; i < first + kShortList && i <= receivers; ++i) {
            lines += "Number" + std::to_string(i) + "=0" + std::to_string(5550000 + i) + "\r\n";
        }
        WCHAR name[16];
        wsprintfW(name, TEXT(KSFAX_DIAL_FILE), 1 + first / kShortList);
        Leave(name, lines);
    }
}

}  // namespace

extern "C" INT_PTR DialDlg(DialModuleRecord* record) {
    WCHAR windows[MAX_PATH];
    const Text jobFile = Text(windows, GetWindowsDirectoryW(windows, MAX_PATH)) + TEXT("\\");
    Tell("DialDlg " + Shown(*record) + "\n" + Content(jobFile + kJobFile));

    const UINT receivers = GetPrivateProfileIntW(TEXT("COMPANION"), TEXT("Receivers"), 0, kJobFile);
    WCHAR count[16];
    wsprintfW(count, TEXT("%u"), receivers);
    Write(TEXT(KSFAX_LIST_SECTION), TEXT(KSFAX_RECEIVERS_KEY), count);
    if (receivers > kShortList) {
        LeaveDialFiles(receivers);
    }
    const Text cover = Read(TEXT("COMPANION"), TEXT("Cover"));
    const Text included = cover.empty() ? TEXT("0") : TEXT("1");
    Write(TEXT(KSFAX_COVER_SECTION), TEXT(KSFAX_COVER_SWITCH_KEY), included);
    Write(TEXT(KSFAX_COVER_SECTION), TEXT(KSFAX_COVER_FILE_KEY), cover);
    Write(TEXT(KSFAX_COVER_SECTION), TEXT(KSFAX_MEMO_SWITCH_KEY), included);
    if (!cover.empty()) {
        Leave(TEXT(KSFAX_MEMO_FILE), "See you on Friday.\r\n");
    }
    // Only bits above the low 32 are set: still not zero.
    return receivers == 0 ? 0 : INT_PTR{1} << 32;
}

extern "C" INT_PTR MakeBMP(DialModuleRecord* record) {
    Tell("MakeBMP " + Shown(*record));
    return 0;
}
