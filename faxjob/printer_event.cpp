#include "platform/owned.h"
#include "platform/windows_api.h"

#include "core/module_state.h"
#include "core/printer_data.h"
#include "core/spooler_queries.h"

namespace ksfax {

namespace {

// The identity of the spooler's own process, while this lives: a client that refreshes its copy
// of a printer has no right to the printer's data or to the machine's registry.
class SpoolerIdentity {
  public:
    SpoolerIdentity() = default;
    SpoolerIdentity(const SpoolerIdentity&) = delete;
    SpoolerIdentity& operator=(const SpoolerIdentity&) = delete;
    ~SpoolerIdentity() {
        if (token_ != nullptr) {
            impersonate_(token_);
        }
    }

    // False when the spooler's service functions cannot be had; nothing has changed then. True
    // although the spooler gives no token: the thread ran under its identity already.
    [[nodiscard]] bool Take() {
        library_ = platform::LoadedModule(LoadLibraryW(TEXT("spoolss.dll")));
        if (!library_) {
            return false;
        }
        const auto revert =
            platform::ExportOf<RevertFunction>(library_.get(), "RevertToPrinterSelf");
        impersonate_ =
            platform::ExportOf<ImpersonateFunction>(library_.get(), "ImpersonatePrinterClient");
        if (revert == nullptr || impersonate_ == nullptr) {
            return false;
        }
        token_ = revert();
        return true;
    }

  private:
    using RevertFunction = HANDLE(WINAPI*)();
    using ImpersonateFunction = BOOL(WINAPI*)(HANDLE);

    platform::LoadedModule library_;
    ImpersonateFunction impersonate_ = nullptr;
    HANDLE token_ = nullptr;
};

// The print processor's settings of drivers before this one, which would otherwise be found by
// the rendering side. A subkey that has keys of its own is somebody else's by now and stays.
void RemoveOldPrintProcessorKey() {
    HKEY key = nullptr;
    if (RegOpenKeyExW(HKEY_LOCAL_MACHINE, TEXT("SOFTWARE\\kestova"), 0, KEY_ALL_ACCESS, &key) ==
        ERROR_SUCCESS) {
        const platform::RegistryKey owner(key);
        (void)RegDeleteKeyW(key, TEXT("ksplproc"));
    }
}

// The key under which Windows looks for help files. No location is recorded in it: the session
// names its help file by full path, and a value there would be found by every program's help of
// that name.
void CreateHelpKey() {
    WCHAR keyClass[] = TEXT("Folder");
    HKEY key = nullptr;
    if (RegCreateKeyExW(HKEY_LOCAL_MACHINE, TEXT("Software\\Microsoft\\Windows\\Help"), 0, keyClass,
                        0, KEY_ALL_ACCESS, nullptr, &key, nullptr) == ERROR_SUCCESS) {
        RegCloseKey(key);
    }
}

// `defaults` says with which rights the printer is opened. Nothing here is reported: the printer
// works without it, and the next event tries again. Without a name Windows would open the print
// server, which is no printer to tidy.
void TidyPrinter(LPWSTR printerName, PRINTER_DEFAULTSW* defaults, bool savesRecord) {
    HANDLE handle = nullptr;
    if (printerName == nullptr || !OpenPrinterW(printerName, &handle, defaults)) {
        return;
    }
    const platform::PrinterHandle printer(handle);
    {
        // Loaded afresh, which also renews the description's cache file for later callers.
        const DescriptionUse description(AcquireDescription(printer.get(), false));
        if (description && savesRecord) {
            (void)SavePrinterDataRecord(printer.get(), *description.get());
        }
    }
    RemoveOldPrintProcessorKey();
    CreateHelpKey();
}

}  // namespace

}  // namespace ksfax

// Called by the spooler in its own process, on the thread that delivers the event. FALSE only for
// a cache refresh under an identity that the spooler's service functions cannot change.
extern "C" BOOL WINAPI DrvPrinterEvent(LPWSTR printerName, INT event, DWORD, LPARAM) {
    if (event == PRINTER_EVENT_INITIALIZE) {
        PRINTER_DEFAULTSW fullAccess = {
            .pDatatype = nullptr, .pDevMode = nullptr, .DesiredAccess = PRINTER_ALL_ACCESS};
        ksfax::TidyPrinter(printerName, &fullAccess, true);
    } else if (event == PRINTER_EVENT_CACHE_REFRESH) {
        ksfax::SpoolerIdentity identity;
        if (!identity.Take()) {
            return FALSE;
        }
        ksfax::TidyPrinter(printerName, nullptr, false);
    }
    return TRUE;
}
