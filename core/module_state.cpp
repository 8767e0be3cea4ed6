#include "core/module_state.h"

#include <algorithm>
#include <cstring>
#include <limits>

#include "core/spooler_queries.h"
#include "description/load_description.h"
#include "description/printer_description.h"

namespace ksfax {

HMODULE ownModule = nullptr;
HMODULE resourceModule = nullptr;
CRITICAL_SECTION moduleLock;
DescriptionCache descriptionCache = {};

namespace {

constexpr WCHAR kResourceModuleName[] = TEXT("KSFAXRES.DLL");

void FreeDescription(const PrinterDescription* description) {
    if (description != nullptr) {
        GlobalFree(const_cast<PrinterDescription*>(description));
    }
}

// With `moduleLock` held.
bool IsCached(const WCHAR* dataFile) {
    const PrinterDescription* cached = descriptionCache.cachedDescription;
    if (cached == nullptr) {
        return false;
    }
    const WCHAR* path = cached->PpdFileName.Target();
    return path != nullptr && lstrcmpiW(path, dataFile) == 0;
}

}  // namespace

const PrinterDescription* AcquireDescription(HANDLE printer, bool allowShared) {
    // Asked before the lock is taken: the spooler may be slow, and another printer's callers
    // need not wait for it.
    const platform::GlobalBlock information = GetDriverInfo(printer, 2);
    const auto* driver = static_cast<const DRIVER_INFO_2W*>(information.get());
    if (driver == nullptr || driver->pDataFile == nullptr) {
        return nullptr;
    }
    LockHold hold;
    // At the count's limit the caller gets a description of its own, so that the count never
    // wraps to a description that is freed under its users.
    if (allowShared && IsCached(driver->pDataFile) &&
        descriptionCache.useCount < std::numeric_limits<uint16_t>::max()) {
        ++descriptionCache.useCount;
        return descriptionCache.cachedDescription;
    }
    const PrinterDescription* loaded = LoadPrinterDescription(driver->pDataFile);
    if (loaded != nullptr && descriptionCache.useCount == 0) {
        FreeDescription(descriptionCache.cachedDescription);
        descriptionCache = {.cachedDescription = loaded, .useCount = 1};
    }
    return loaded;
}

void ReleaseDescription(const PrinterDescription* description) {
    if (description == nullptr) {
        return;
    }
    LockHold hold;
    if (description != descriptionCache.cachedDescription) {
        FreeDescription(description);
    } else if (descriptionCache.useCount > 0) {
        --descriptionCache.useCount;
    }
}

void ResetDescriptionCache() {
    descriptionCache = {};
}

void DiscardDescriptionCache() {
    LockHold hold;
    FreeDescription(descriptionCache.cachedDescription);
    descriptionCache = {};
}

void ResourceModulePath(const WCHAR* ownPath, WCHAR* path) {
    size_t folderLength = 0;
    for (size_t i = 0; i < MAX_PATH && ownPath[i] != 0; ++i) {
        if (ownPath[i] == TEXT('\\')) {
            folderLength = i + 1;
        }
    }
    std::copy_n(ownPath, folderLength, path);
    std::copy(std::begin(kResourceModuleName), std::end(kResourceModuleName), path + folderLength);
}

void AttachModuleState(HINSTANCE instance) {
    ownModule = instance;
    resourceModule = nullptr;
    WCHAR ownPath[MAX_PATH] = {};
    const DWORD length = GetModuleFileNameW(instance, ownPath, MAX_PATH);
    // A path that fills the buffer is cut off and names neither this library nor its folder.
    if (length > 0 && length < MAX_PATH) {
        (void)LoadLibraryW(ownPath);  // the pin: kept on purpose until the process ends
        WCHAR resourcePath[kResourcePathRoom];
        ResourceModulePath(ownPath, resourcePath);
        resourceModule = LoadLibraryW(resourcePath);
    }
    if (resourceModule == nullptr) {
        resourceModule = ownModule;
    }
    InitializeCriticalSection(&moduleLock);
    ResetDescriptionCache();
}

void DetachModuleState() {
    if (resourceModule != nullptr && resourceModule != ownModule) {
        FreeLibrary(resourceModule);
    }
    resourceModule = nullptr;
    ownModule = nullptr;
    DiscardDescriptionCache();
    DeleteCriticalSection(&moduleLock);
}

}  // namespace ksfax
