#include "faxjob/document_event.h"

#include <cstring>

#include "platform/owned.h"

#include "faxjob/fax_job_data.h"
#include "jobsettings/job_settings.h"

namespace ksfax {

namespace {

constexpr int kFewestMaximumReceivers = 50;
constexpr int kMostMaximumReceivers = 999;

// Module handles below this are the error codes of a failed load.
constexpr UINT_PTR kFirstModuleHandle = 32;

// Confirms the application's own record as the one to create the device context with, when it
// carries this driver's private part.
void ConfirmJobSettings(const DOCEVENT_CREATEDCPRE* created, DEVMODEW** confirmed) {
    if (created == nullptr || created->pdm == nullptr || confirmed == nullptr) {
        return;
    }
    const auto* record = reinterpret_cast<const BYTE*>(created->pdm);
    uint32_t signature;
    std::memcpy(&signature, record + created->pdm->dmSize + offsetof(PrivateJobSettings, signature),
                sizeof signature);
    if (signature == kPrivateSignature) {
        *confirmed = created->pdm;
    }
}

uint16_t ReadMaximumReceivers() {
    const UINT stored = GetPrivateProfileIntW(kDriverSection, kMaximumReceiversKey,
                                              kFewestMaximumReceivers, kFaxJobFile);
    // The dialog's field has 16 bits and older settings rely on the number being cut to them,
    // but a negative number is a mistake whatever its low bits are.
    const auto maximum = static_cast<uint16_t>(stored);
    const bool usable = static_cast<INT>(stored) >= 0 && maximum >= kFewestMaximumReceivers &&
                        maximum <= kMostMaximumReceivers;
    return usable ? maximum : static_cast<uint16_t>(kFewestMaximumReceivers);
}

void MarkCancelled(bool cancelled) {
    (void)WritePrivateProfileStringW(kDriverSection, kCancelledKey,
                                     cancelled ? TEXT("1") : TEXT("0"), kFaxJobFile);
}

void StartDocument(HANDLE printer) {
    DialModuleRecord record;
    record.maximumReceivers = ReadMaximumReceivers();
    // Cancelled until the dialog says otherwise, also when it never returns.
    MarkCancelled(true);
    (void)WritePrivateProfileStringW(kDataSection, kSnapshotKey, TEXT(""), kFaxJobFile);
    MarkCancelled(CallDialModule(kDialOperation, record) == 0);
    PrepareFaxJobFiles(printer);
}

void ShowLastError(DWORD code) {
    WCHAR text[16];
    wsprintfW(text, TEXT("%d"), code);
    MessageBoxW(nullptr, text, TEXT("ERROR1"), MB_OK);
}

}  // namespace

INT_PTR CallDialModule(LPCSTR operation, DialModuleRecord& record) {
    HMODULE handle = LoadLibraryW(kDialModuleName);
    if (reinterpret_cast<UINT_PTR>(handle) < kFirstModuleHandle) {
        return 0;
    }
    platform::LoadedModule module(handle);
    FARPROC address = GetProcAddress(module.get(), operation);
    if (address == nullptr) {
        ShowLastError(GetLastError());
        return 0;
    }
    return platform::FunctionCast<DialModuleOperation>(address)(&record);
}

}  // namespace ksfax

extern "C" int WINAPI DrvDocumentEvent(HANDLE printer, HDC, int event, ULONG, PVOID input, ULONG,
                                       PVOID output) {
    switch (event) {
    case DOCUMENTEVENT_CREATEDCPRE:
        ksfax::ConfirmJobSettings(static_cast<const DOCEVENT_CREATEDCPRE*>(input),
                                  static_cast<DEVMODEW**>(output));
        break;
    case DOCUMENTEVENT_STARTDOC:
        ksfax::StartDocument(printer);
        break;
    case DOCUMENTEVENT_ENDDOC:
        ksfax::FinishFaxJob(printer);
        break;
    default:
        break;
    }
    return DOCUMENTEVENT_SUCCESS;
}
