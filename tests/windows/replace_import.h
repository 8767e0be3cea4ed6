#pragma once

// Puts a function of the test's in the place of one that a module imports.

#include <string>

#include "platform/windows_api.h"

// Puts `replacement` into the import table of `module` for the function imported by that name.
// False when the module does not import it.
inline bool ReplaceImport(HMODULE module, const std::string& name, void* replacement) {
    auto* base = reinterpret_cast<BYTE*>(module);
    const auto* dos = reinterpret_cast<const IMAGE_DOS_HEADER*>(base);
    const auto* headers = reinterpret_cast<const IMAGE_NT_HEADERS64*>(base + dos->e_lfanew);
    const auto& directory = headers->OptionalHeader.DataDirectory[IMAGE_DIRECTORY_ENTRY_IMPORT];
    const auto* library =
        reinterpret_cast<const IMAGE_IMPORT_DESCRIPTOR*>(base + directory.VirtualAddress);
    for (; library->Name != 0; ++library) {
        const auto* names =
            reinterpret_cast<const IMAGE_THUNK_DATA64*>(base + library->OriginalFirstThunk);
        auto* calls = reinterpret_cast<IMAGE_THUNK_DATA64*>(base + library->FirstThunk);
        for (; names->u1.AddressOfData != 0; ++names, ++calls) {
            const auto* entry =
                reinterpret_cast<const IMAGE_IMPORT_BY_NAME*>(base + names->u1.AddressOfData);
            if (IMAGE_SNAP_BY_ORDINAL64(names->u1.Ordinal) ||
                name != reinterpret_cast<const char*>(entry->Name)) {
                continue;
            }
            DWORD before;
            VirtualProtect(&calls->u1.Function, sizeof calls->u1.Function, PAGE_READWRITE, &before);
            calls->u1.Function = reinterpret_cast<ULONGLONG>(replacement);
            return true;
        }
    }
    return false;
}
