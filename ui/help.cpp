#include "ui/help.h"

#include "platform/owned.h"

namespace ksfax {

HWND helpWindow = nullptr;

namespace {

using HtmlHelpEntry = HWND(WINAPI*)(HWND window, LPCWSTR file, UINT command, DWORD_PTR data);

// The export that is HtmlHelpW in every version of the library, named or not.
constexpr WORD kHtmlHelpOrdinal = 15;
constexpr char kHelpControlKey[] = "CLSID\\{ADB880A6-D8FF-11CF-9377-00AA003B7A11}\\InprocServer32";
constexpr DWORD kLibraryPathRoom = 260;

HMODULE helpLibrary = nullptr;
HtmlHelpEntry htmlHelpEntry = nullptr;
// No library or no entry in it: nobody looks again in this process.
bool helpUnavailable = false;

// The library that is registered for the help control; null when none is, or it does not load.
HMODULE LoadRegisteredLibrary() {
    HKEY opened = nullptr;
    if (RegOpenKeyExA(HKEY_CLASSES_ROOT, kHelpControlKey, 0, KEY_READ, &opened) != ERROR_SUCCESS) {
        return nullptr;
    }
    const platform::RegistryKey key(opened);
    // Zeroed, with one byte more than is read: a stored text may lack its terminator.
    char path[kLibraryPathRoom + 1] = {};
    DWORD bytes = kLibraryPathRoom;
    if (RegQueryValueExA(key.get(), nullptr, nullptr, nullptr, reinterpret_cast<LPBYTE>(path),
                         &bytes) != ERROR_SUCCESS) {
        return nullptr;
    }
    return LoadLibraryA(path);
}

bool MakeHelpAvailable() {
    if (helpLibrary == nullptr) {
        helpLibrary = LoadRegisteredLibrary();
    }
    if (helpLibrary == nullptr) {
        helpLibrary = LoadLibraryA("hhctrl.ocx");
    }
    if (helpLibrary != nullptr && htmlHelpEntry == nullptr) {
        htmlHelpEntry = platform::ExportOf<HtmlHelpEntry>(
            helpLibrary, reinterpret_cast<LPCSTR>(static_cast<ULONG_PTR>(kHtmlHelpOrdinal)));
    }
    helpUnavailable = htmlHelpEntry == nullptr;
    return !helpUnavailable;
}

}  // namespace

HWND ShowHtmlHelp(HWND window, LPCWSTR file, UINT command, DWORD_PTR data) {
    if (helpUnavailable || CoInitialize(nullptr) < 0) {
        return nullptr;
    }
    const HWND shown = MakeHelpAvailable() ? htmlHelpEntry(window, file, command, data) : nullptr;
    CoUninitialize();
    return shown;
}

void ResetHelp() {
    helpWindow = nullptr;
    helpLibrary = nullptr;
    htmlHelpEntry = nullptr;
    helpUnavailable = false;
}

}  // namespace ksfax
