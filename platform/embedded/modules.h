#pragma once

// Modules of the embedded machine: tables of functions and a compiled resource file, loaded by
// bare name or by path. The machine runs no entry point of a module: who installs one calls its
// DllMain when that matters.

#include <cstddef>
#include <map>
#include <mutex>
#include <span>
#include <string>

#include "platform/embedded/machine.h"
#include "platform/embedded/text.h"

namespace embedded {

struct ModuleDefinition {
    std::u16string path;                     // such as C:\Windows\System32\KSFAXDLG.DLL
    std::map<std::string, FARPROC> exports;  // by name, or by "#" and an ordinal
    std::span<const std::byte> resources;    // the bytes of a .res file; may be empty
};

class Modules {
  public:
    // Installs a module, so that LoadLibraryW and A find it by its file name alone or by its path,
    // without regard to letter case. Replaces one of the same path. The resource bytes stay the
    // caller's and must outlive the module.
    void Install(ModuleDefinition definition);
    // Takes a module off the machine with every reference to it: its handles are stale from then
    // on.
    void Remove(std::u16string_view path);
    // LoadLibraryW and A of this file name answers `value`, a number below 32, as 16-bit loaders
    // did, until a module of that file name is installed or removed.
    void AnswerLoadWith(std::u16string_view fileName, unsigned value);
    // References held now, of one module or of all together.
    unsigned CountLoaded(std::u16string_view path = {}) const;
    // The bytes of a loaded module's .res file; empty for none, or when it is not loaded.
    std::span<const std::byte> Resources(HINSTANCE module) const;

    // ---- For the machine's own calls.

    // Null, or a value below 32 that AnswerLoadWith gave, when there is no such module; then
    // nothing is counted.
    HMODULE Load(std::u16string_view name);
    bool Free(HMODULE module);
    FARPROC FindExport(HMODULE module, const std::string& name) const;
    // Empty when it is not loaded.
    std::u16string PathOf(HMODULE module) const;

  private:
    struct Module {
        ModuleDefinition definition;
        uintptr_t address = 0;
        unsigned references = 0;
    };
    const Module* Find(HMODULE module) const;

    mutable std::mutex mutex_;
    std::map<std::u16string, Module, LessIgnoringCase> modules_;     // by path
    std::map<std::u16string, unsigned, LessIgnoringCase> refusals_;  // by file name
    // Where Windows likes to place modules: 64 KB apart, above 4 GB.
    uintptr_t nextAddress_ = 0x180000000;
};

}  // namespace embedded
