#pragma once

// Modules of the embedded machine: tables of functions and a compiled resource file, loaded by
// bare name or by path.

#include <cstddef>
#include <map>
#include <span>
#include <string>

#include "platform/embedded/machine.h"

namespace embedded {

struct ModuleDefinition {
    std::u16string path;                     // such as C:\Windows\System32\KSFAXDLG.DLL
    std::map<std::string, FARPROC> exports;  // by name
    std::span<const std::byte> resources;    // the bytes of a .res file; may be empty
};

class Modules {
  public:
    explicit Modules(Machine& machine) : machine_(machine) {}

    // Installs a module, so that LoadLibraryW finds it by its file name alone or by its path,
    // without regard to letter case. Replaces one of the same path.
    void Install(ModuleDefinition definition);
    void Remove(std::u16string_view path);
    // LoadLibraryW of this file name answers `value`, a number below 32, as 16-bit loaders did.
    void AnswerLoadWith(std::u16string_view fileName, unsigned value);
    // References held now, all modules together.
    unsigned CountLoaded() const;

  private:
    Machine& machine_;
};

}  // namespace embedded
