#pragma once

// Files of the embedded machine: drive C: is a folder of the host, drive Z: the host's root.
// Paths are found without regard to letter case.

#include <filesystem>
#include <string>

#include "platform/embedded/machine.h"

namespace embedded {

class FileSystem {
  public:
    explicit FileSystem(Machine& machine) : machine_(machine) {}

    // The host path that a machine path such as C:\Windows\X.INI names; of several host names
    // that differ in letter case alone, the exact one first. Parts that do not exist are taken
    // as written. Empty for a path that is on neither drive.
    std::filesystem::path HostPath(std::u16string_view path) const;
    // The machine path of a host path: on drive C: when it lies there, else on drive Z:.
    std::u16string MachinePath(const std::filesystem::path& path) const;

  private:
    Machine& machine_;
};

}  // namespace embedded
