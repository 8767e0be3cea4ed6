#include <string>

#include "tests/windows/companion.h"

namespace companion {
namespace {

void Write(const WCHAR* section, const WCHAR* key, const WCHAR* value) {
    WritePrivateProfileStringW(section, key, value, kFaxJobFile);
}

// One line per receiver of the list from `first` on, at most `count`.
std::string ReceiverLines(unsigned first, unsigned count) {
    std::string lines = "[DIALLIST]\r\n";
    for (unsigned number = first; number < first + count; ++number) {
        lines += "Receiver" + std::to_string(number) + "=0" + std::to_string(5550000 + number);
        lines += "\r\n";
    }
    return lines;
}

void LeaveDialFiles(unsigned receivers) {
    for (unsigned first = 0, file = 1; first < receivers; first += kReceiversPerFile, ++file) {
        const unsigned rest = receivers - first;
        const std::string lines =
            ReceiverLines(first + 1, rest < kReceiversPerFile ? rest : kReceiversPerFile);
        WCHAR name[16];
        wsprintfW(name, TEXT("Dial%02u.ini"), file);
        Leave(name, lines.data(), static_cast<DWORD>(lines.size()));
    }
}

void LeaveProfileAsItIs() {
    WCHAR path[MAX_PATH];
    const UINT length = GetWindowsDirectoryW(path, MAX_PATH);
    wsprintfW(path + length, TEXT("\\%s"), kFaxJobFile);
    HANDLE file = CreateFileW(path, GENERIC_READ, FILE_SHARE_READ | FILE_SHARE_WRITE, nullptr,
                              OPEN_EXISTING, 0, nullptr);
    std::string text(4096, '\0');
    DWORD size = 0;
    if (file != INVALID_HANDLE_VALUE) {
        ReadFile(file, text.data(), static_cast<DWORD>(text.size()), &size, nullptr);
        CloseHandle(file);
    }
    Leave(kDialProfile, text.data(), size);
}

}  // namespace
}  // namespace companion

extern "C" __declspec(dllexport) INT_PTR WINAPI DialDlg(const void* record) {
    using namespace companion;
    Leave(kDialRecord, record, kRecordBytes);
    LeaveProfileAsItIs();

    const UINT receivers = GetPrivateProfileIntW(kSection, kReceivers, 0, kFaxJobFile);
    WCHAR count[16];
    wsprintfW(count, TEXT("%u"), receivers);
    Write(TEXT("DIALLIST"), TEXT("Num"), count);
    if (receivers > kReceiversPerFile) {
        LeaveDialFiles(receivers);
    }

    WCHAR cover[MAX_PATH];
    GetPrivateProfileStringW(kSection, kCover, TEXT(""), cover, MAX_PATH, kFaxJobFile);
    const bool hasCover = cover[0] != 0;
    Write(TEXT("CVP_STYLE"), TEXT("IncBmpSW"), hasCover ? TEXT("1") : TEXT("0"));
    Write(TEXT("CVP_STYLE"), TEXT("IncBmpFile"), cover);
    Write(TEXT("CVP_STYLE"), TEXT("COVERCOMMENT"), hasCover ? TEXT("1") : TEXT("0"));
    if (hasCover) {
        Leave(TEXT("KSMEMO.TXT"), kMemo, sizeof kMemo - 1);
    }
    // Only bits above the low 32 are set: still not zero.
    return receivers == 0 ? 0 : INT_PTR{1} << 32;
}
