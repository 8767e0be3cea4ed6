// The entry points behind the printer's property sheets. The sheets belong to the system's
// common property sheet library, compstui, which calls the two ...PropertySheets functions once
// for each event of a sheet; this module adds one page to each. The older entry points open such
// a sheet themselves. All of it runs on the thread that shows the sheet.

#include <iterator>

#include "platform/owned.h"
#include "platform/windows_api.h"

#include "core/module_state.h"
#include "core/printer_data.h"
#include "core/session.h"
#include "resources/resource.h"
#include "ui/about_box.h"
#include "ui/paper_page.h"
#include "ui/paper_settings.h"
#include "ui/user_folder.h"

namespace ksfax {

namespace {

constexpr LONG kHandled = 1;
constexpr LONG kRefused = -1;
constexpr LONG kRecordSize = sizeof(JobSettings);
// Before a sheet has a result; it stays when there is no library to show the sheet.
constexpr DWORD kNoResult = static_cast<DWORD>(-1);

constexpr ULONG_PTR kPrinterIcon = 64062;  // one of compstui's own
constexpr int kTitleRoom = 64;

// The pages of the document sheet, in their order.
struct DocumentPage {
    UINT title;
    WORD dialog;
    DLGPROC procedure;
};
constexpr DocumentPage kDocumentPageTable[] = {
    {.title = IDS_PAGE_BASIC, .dialog = IDD_PAPER_PAGE, .procedure = PaperPageProc},
};
static_assert(std::size(kDocumentPageTable) == kDocumentPages);

// ---- What both kinds of sheets have in common

PROPSHEETPAGEW PageRecord(WORD dialog, DLGPROC procedure, PrinterSession* session) {
    PROPSHEETPAGEW page{};
    page.dwSize = sizeof page;
    page.hInstance = resourceModule;
    page.pszTemplate = MAKEINTRESOURCEW(dialog);
    page.pfnDlgProc = procedure;
    page.lParam = reinterpret_cast<LPARAM>(session);
    return page;
}

// The host's handle of the page; null when it refuses.
HANDLE InsertPage(const PrinterSession& session, LPARAM position, const PROPSHEETPAGEW& page) {
    INSERTPSUIPAGE_INFO insertion{};
    insertion.cbSize = sizeof insertion;
    insertion.Type = PSUIPAGEINSERT_PROPSHEETPAGE;
    insertion.Mode = INSPSUIPAGE_MODE_INDEX;
    insertion.dwData1 = reinterpret_cast<ULONG_PTR>(&page);
    return reinterpret_cast<HANDLE>(
        session.propSheetCallback(session.propSheetHandle, CPSFUNC_INSERT_PSUIPAGEW, position,
                                  reinterpret_cast<LPARAM>(&insertion)));
}

bool AddDocumentPages(PrinterSession* session) {
    for (size_t position = 0; position < kDocumentPages; ++position) {
        const DocumentPage& row = kDocumentPageTable[position];
        WCHAR title[kTitleRoom] = {};
        (void)LoadStringW(resourceModule, row.title, title, kTitleRoom);  // else a tab without text
        PROPSHEETPAGEW page = PageRecord(row.dialog, row.procedure, session);
        page.dwFlags = PSP_USETITLE | PSP_HASHELP;
        page.pszTitle = CopyIntoHeap(session->heap, title);
        if (page.pszTitle == nullptr) {
            return false;
        }
        session->propSheetPages[position] =
            InsertPage(*session, static_cast<LPARAM>(position), page);
        if (session->propSheetPages[position] == nullptr) {
            return false;
        }
    }
    return true;
}

bool AddDevicePage(PrinterSession* session) {
    return InsertPage(*session, 0, PageRecord(IDD_ABOUT, AboutPageProc, session)) != nullptr;
}

// A new sheet: opens its session, which the host then keeps for it as the sheet's user data.
LONG BeginSheet(PROPSHEETUI_INFO* information, HANDLE printer, const DEVMODEW* settings,
                bool canModify, bool (*addPages)(PrinterSession*)) {
    PrepareUserFolder();
    OpenSession session(OpenPrinterSession(printer, settings));
    if (!session) {
        return kRefused;
    }
    PrinterSession& opened = *session.get();
    opened.canModify = canModify;
    opened.propSheetHandle = information->hComPropSheet;
    opened.propSheetCallback = information->pfnComPropSheet;
    if (!addPages(&opened)) {
        return kRefused;
    }
    opened.pageResourceModule = resourceModule;
    information->UserData = reinterpret_cast<ULONG_PTR>(session.release());
    information->Result = CPSUI_CANCEL;
    return kHandled;
}

// The session of a sheet that was begun; null when the user data is none.
PrinterSession* SessionOf(const PROPSHEETUI_INFO& information) {
    auto* session = reinterpret_cast<PrinterSession*>(information.UserData);
    return IsPrinterSession(session) ? session : nullptr;
}

// The events of a sheet after its first. `takeResult` is given the session and what the user
// decided, before the host gets it back.
template <typename TakeResult>
LONG ContinueSheet(PROPSHEETUI_INFO* information, LPARAM parameter, LPWSTR printerName,
                   TakeResult takeResult) {
    PrinterSession* session = SessionOf(*information);
    const bool needsRecord = information->Reason != PROPSHEETUI_REASON_DESTROY;
    if (session == nullptr || (needsRecord && parameter == 0)) {
        return kRefused;
    }
    switch (information->Reason) {
    case PROPSHEETUI_REASON_GET_INFO_HEADER: {
        auto* header = reinterpret_cast<PROPSHEETUI_INFO_HEADER*>(parameter);
        header->Flags = PSUIHDRF_NOAPPLYNOW | PSUIHDRF_PROPTITLE;
        header->pTitle = printerName;
        header->hInst = ownModule;
        header->IconID = kPrinterIcon;
        return kHandled;
    }
    case PROPSHEETUI_REASON_SET_RESULT: {
        const LRESULT result = reinterpret_cast<const SETRESULT_INFO*>(parameter)->Result;
        takeResult(session, result);
        information->Result = static_cast<ULONG_PTR>(result);
        return kHandled;
    }
    case PROPSHEETUI_REASON_DESTROY:
        FreePaperList(session);
        ClosePrinterSession(session);
        // A host that calls once more finds no session, instead of one that is gone.
        information->UserData = 0;
        return kHandled;
    default:
        return kRefused;
    }
}

// Shows the sheet whose events go to `function`. What compstui answers, with the sheet's result
// in *result; -1, and *result as it was, when there is no compstui.
LONG ShowPropertySheet(HWND owner, PFNPROPSHEETUI function, LPARAM parameter, DWORD* result) {
    using CommonPropertySheet = LONG(WINAPI*)(HWND, PFNPROPSHEETUI, LPARAM, DWORD*);
    const platform::LoadedModule library(LoadLibraryA("compstui.dll"));
    const auto show =
        library ? platform::ExportOf<CommonPropertySheet>(library.get(), "CommonPropertySheetUIW")
                : nullptr;
    return show != nullptr ? show(owner, function, parameter, result) : kRefused;
}

// ---- The document sheet

bool WantsRecord(const DOCUMENTPROPERTYHEADER& header) {
    return header.pdmOut != nullptr && (header.fMode & (DM_OUT_BUFFER | DM_UPDATE)) != 0;
}

LONG DocumentPropertiesWithoutSheet(DOCUMENTPROPERTYHEADER* header) {
    header->cbOut = kRecordSize;
    if (header->fMode == 0 || header->pdmOut == nullptr) {
        return kRecordSize;
    }
    const OpenSession session(OpenPrinterSession(header->hPrinter, header->pdmIn));
    if (!session) {
        return kRefused;
    }
    if (WantsRecord(*header)) {
        // A record of a shape that nobody knows is left alone; the call succeeds all the same.
        (void)CopyJobSettingsOut(session.get()->jobSettings, header->pdmIn, header->pdmOut);
    }
    return kHandled;
}

// Positive for OK, 0 for Cancel, negative for a failure.
LONG DocumentPropertiesCommon(HWND owner, HANDLE printer, LPWSTR deviceName, DEVMODEW* output,
                              DEVMODEW* input, DWORD mode) {
    DOCUMENTPROPERTYHEADER header{};
    header.cbSize = sizeof header;
    header.hPrinter = printer;
    header.pszPrinterName = deviceName;
    header.pdmIn = input;
    header.pdmOut = output;
    header.fMode = mode;
    if ((mode & DM_IN_PROMPT) == 0) {
        return DocumentPropertiesWithoutSheet(&header);
    }
    DWORD result = kNoResult;
    (void)ShowPropertySheet(owner, DrvDocumentPropertySheets, reinterpret_cast<LPARAM>(&header),
                            &result);
    return static_cast<LONG>(result);
}

}  // namespace

}  // namespace ksfax

using namespace ksfax;

extern "C" LONG WINAPI DrvDocumentPropertySheets(PPROPSHEETUI_INFO information, LPARAM parameter) {
    if (information == nullptr) {
        auto* header = reinterpret_cast<DOCUMENTPROPERTYHEADER*>(parameter);
        return header != nullptr ? DocumentPropertiesWithoutSheet(header) : kRefused;
    }
    const auto* header = reinterpret_cast<const DOCUMENTPROPERTYHEADER*>(information->lParamInit);
    if (header == nullptr) {
        return kRefused;
    }
    if (information->Reason == PROPSHEETUI_REASON_INIT) {
        return BeginSheet(information, header->hPrinter, header->pdmIn,
                          (header->fMode & DM_NOPERMISSION) == 0, AddDocumentPages);
    }
    return ContinueSheet(information, parameter, header->pszPrinterName,
                         [&](PrinterSession* session, LRESULT result) {
                             if (result == CPSUI_OK && WantsRecord(*header)) {
                                 DeriveJobBlock(&session->jobSettings);
                                 (void)CopyJobSettingsOut(session->jobSettings, header->pdmIn,
                                                          header->pdmOut);
                             }
                         });
}

extern "C" LONG WINAPI DrvDevicePropertySheets(PPROPSHEETUI_INFO information, LPARAM parameter) {
    const auto* header =
        information != nullptr
            ? reinterpret_cast<const DEVICEPROPERTYHEADER*>(information->lParamInit)
            : nullptr;
    if (header == nullptr) {
        return kRefused;
    }
    if (information->Reason == PROPSHEETUI_REASON_INIT) {
        return BeginSheet(information, header->hPrinter, nullptr,
                          (header->Flags & DPS_NOPERMISSION) == 0, AddDevicePage);
    }
    return ContinueSheet(information, parameter, header->pszPrinterName,
                         [](PrinterSession*, LRESULT) {});
}

extern "C" LONG WINAPI DrvDocumentProperties(HWND owner, HANDLE printer, LPWSTR deviceName,
                                             PDEVMODEW output, PDEVMODEW input, DWORD mode) {
    if (mode == 0 || output == nullptr) {
        return kRecordSize;
    }
    const LONG result = DocumentPropertiesCommon(owner, printer, deviceName, output, input, mode);
    if (result < 0) {
        return result;
    }
    return result > 0 ? IDOK : IDCANCEL;
}

extern "C" LONG WINAPI DrvAdvancedDocumentProperties(HWND owner, HANDLE printer, LPWSTR deviceName,
                                                     PDEVMODEW output, PDEVMODEW input) {
    if (output == nullptr) {
        return kRecordSize;
    }
    constexpr DWORD kMode = DM_ADVANCED | DM_IN_PROMPT | DM_OUT_BUFFER;
    return DocumentPropertiesCommon(owner, printer, deviceName, output, input, kMode) > 0 ? 1 : 0;
}

extern "C" BOOL WINAPI PrinterProperties(HWND owner, HANDLE printer) {
    DEVICEPROPERTYHEADER header{};
    header.cbSize = sizeof header;
    header.hPrinter = printer;
    // Whether the user may change the printer is found out by writing a value that nobody reads.
    DWORD result = 1;
    if (!WritePrinterNumber(printer, TEXT("Permission"), result)) {
        header.Flags = DPS_NOPERMISSION;
    }
    (void)ShowPropertySheet(owner, DrvDevicePropertySheets, reinterpret_cast<LPARAM>(&header),
                            &result);
    return result != CPSUI_CANCEL;
}
