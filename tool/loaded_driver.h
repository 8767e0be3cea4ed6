#pragma once

// The driver as a process holds it: KSFAXUI.DLL installed on an embedded machine with its own
// resources, loaded and attached. Made on the thread that drives the machine; tests and ksfax
// make one right after the Machine, and it goes before the Machine does.

#include <string>

#include "platform/embedded/machine.h"

namespace tool {

// Where the spooler keeps version 3 drivers of 64-bit Windows.
inline constexpr char16_t kDriverFolder[] = u"C:\\Windows\\System32\\spool\\drivers\\x64\\3";
inline constexpr char16_t kDriverPath[] =
    u"C:\\Windows\\System32\\spool\\drivers\\x64\\3\\KSFAXUI.DLL";

class LoadedDriver {
  public:
    // Installs the module under `path`, loads it and runs its process attach. Throws
    // std::runtime_error when the machine refuses to load it (a planned fault).
    explicit LoadedDriver(embedded::Machine& machine, std::u16string path = kDriverPath);
    // Runs process detach, then takes the module off the machine, which ends the reference by
    // which the driver pins itself in its process.
    ~LoadedDriver();
    LoadedDriver(const LoadedDriver&) = delete;
    LoadedDriver& operator=(const LoadedDriver&) = delete;

    HINSTANCE instance() const { return instance_; }

  private:
    embedded::Machine& machine_;
    std::u16string path_;
    HINSTANCE instance_;
};

}  // namespace tool
