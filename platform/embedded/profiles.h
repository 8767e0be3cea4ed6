#pragma once

// The profile (INI file) service of the embedded machine.
//
// Nothing is kept between calls: every call reads the file as it stands on disk. Files are text of
// the machine's ANSI code page, of which a change replaces single lines and leaves all other bytes
// as they are. Two threads lose no change of each other's; two processes at the same file can.

#include <mutex>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "platform/embedded/machine.h"

namespace embedded {

struct ProfileEntry {
    std::u16string section;
    std::u16string key;
    std::u16string value;
};

class Profiles {
  public:
    explicit Profiles(Machine& machine) : machine_(machine) {}

    // Every key in order, names and values as they are read; empty when there is no such file. A
    // bare file name lies in the Windows folder.
    std::vector<ProfileEntry> Entries(std::u16string_view file) const;

    // ---- For the machine's own calls. Failures are last-error codes.

    // The value as GetPrivateProfileStringW gives it: trimmed and unquoted.
    DWORD Read(std::u16string_view section, std::u16string_view key, std::u16string_view file,
               std::u16string& value) const;
    // Without value deletes the key, without key the section.
    DWORD Write(std::u16string_view section, std::optional<std::u16string_view> key,
                std::optional<std::u16string_view> value, std::u16string_view file);

  private:
    DWORD ReadWhole(std::u16string_view file, std::string& text) const;

    Machine& machine_;
    mutable std::mutex mutex_;
};

}  // namespace embedded
