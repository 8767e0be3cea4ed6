#include "tests/windows/companion.h"

#include <string>

namespace companion {

void Leave(const WCHAR* file, const void* bytes, DWORD size) {
    WCHAR folder[MAX_PATH];
    GetPrivateProfileStringW(TEXT("FAXDATA"), TEXT("DIR"), TEXT(""), folder, MAX_PATH, kFaxJobFile);
    const std::wstring path = std::wstring(folder) + TEXT("\\") + file;
    HANDLE target = CreateFileW(path.c_str(), GENERIC_WRITE, 0, nullptr, CREATE_ALWAYS, 0, nullptr);
    if (target == INVALID_HANDLE_VALUE) {
        return;
    }
    DWORD written = 0;
    WriteFile(target, bytes, size, &written, nullptr);
    CloseHandle(target);
}

}  // namespace companion
