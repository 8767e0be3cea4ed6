#include "faxjob/companion_call.h"

#include "platform/owned.h"

namespace ksfax {

namespace {

// Module handles below this are the error codes of a failed load.
constexpr UINT_PTR kFirstModuleHandle = 32;

void ShowLastError(DWORD code) {
    WCHAR text[16];
    wsprintfW(text, TEXT("%d"), code);
    MessageBoxW(nullptr, text, TEXT("ERROR1"), MB_OK);
}

}  // namespace

INT_PTR CallCompanion(LPCSTR operation, DialModuleRecord& record) {
    HMODULE handle = LoadLibraryW(TEXT(KSFAX_COMPANION_MODULE));
    if (reinterpret_cast<UINT_PTR>(handle) < kFirstModuleHandle) {
        return 0;
    }
    const platform::LoadedModule module(handle);
    const auto function = platform::ExportOf<DialModuleOperation>(module.get(), operation);
    if (function == nullptr) {
        ShowLastError(GetLastError());
        return 0;
    }
    record.recordSize = sizeof record;
    record.version = KSFAX_RECORD_VERSION;
    return function(&record);
}

}  // namespace ksfax
