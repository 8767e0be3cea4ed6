// The document events: the graphics engine calls DrvDocumentEvent in the printing application's
// process, on the thread that drives the device context. At the start of a document the fax
// dialog of the companion module runs and its choices become a self-contained set of job files;
// at the end the companion module makes the cover page from them. The driver never fails a
// document itself: a cancelled dialog is recorded in the fax job file, for those who process
// the spooled job.

#include "platform/windows_api.h"

#include "faxjob/companion_call.h"
#include "faxjob/fax_job_data.h"
#include "jobsettings/job_settings.h"

namespace ksfax {

namespace {

// Confirms the application's own record as the one to create the device context with, when it
// carries this driver's private part.
void ConfirmJobSettings(const DOCEVENT_CREATEDCPRE* created, DEVMODEW** confirmed) {
    if (created != nullptr && created->pdm != nullptr && confirmed != nullptr &&
        HasPrivatePart(created->pdm)) {
        *confirmed = created->pdm;
    }
}

uint16_t ReadMaximumReceivers() {
    const UINT stored = GetPrivateProfileIntW(TEXT(KSFAX_DRIVER_SECTION), TEXT(KSFAX_MAXIMUM_KEY),
                                              KSFAX_LEAST_MAXIMUM, TEXT(KSFAX_JOB_FILE));
    // The dialog's field has 16 bits and older settings rely on the number being cut to them,
    // but a negative number is a mistake whatever its low bits are.
    const auto maximum = static_cast<uint16_t>(stored);
    const bool usable = static_cast<INT>(stored) >= 0 && maximum >= KSFAX_LEAST_MAXIMUM &&
                        maximum <= KSFAX_LARGEST_MAXIMUM;
    return usable ? maximum : uint16_t{KSFAX_LEAST_MAXIMUM};
}

void MarkCancelled(bool cancelled) {
    (void)WritePrivateProfileStringW(TEXT(KSFAX_DRIVER_SECTION), TEXT(KSFAX_CANCELLED_KEY),
                                     cancelled ? TEXT("1") : TEXT("0"), TEXT(KSFAX_JOB_FILE));
}

void StartDocument(HANDLE printer) {
    DialModuleRecord record = {};
    record.maximumReceivers = ReadMaximumReceivers();
    // Cancelled until the dialog says otherwise, also when it never returns.
    MarkCancelled(true);
    (void)WritePrivateProfileStringW(TEXT(KSFAX_DATA_SECTION), TEXT(KSFAX_SNAPSHOT_KEY), TEXT(""),
                                     TEXT(KSFAX_JOB_FILE));
    MarkCancelled(CallCompanion(KSFAX_DIAL_OPERATION, record) == 0);
    PrepareFaxJobFiles(printer);
}

}  // namespace

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
