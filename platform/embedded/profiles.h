#pragma once

// The profile (INI file) service of the embedded machine.
//
// Nothing is kept between calls: every call reads the file as it stands on disk, and a change is
// made under a lock that every machine of the host honours. A file that begins with the UTF-16
// mark is read and written in UTF-16; any other is text of the machine's ANSI code page, of which
// a change replaces single lines and leaves all other bytes as they are.

#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "platform/embedded/machine.h"

namespace embedded {

class Profiles {
  public:
    explicit Profiles(Machine& machine) : machine_(machine) {}

    // A bare file name lies in the Windows folder.
    static std::u16string PathOf(std::u16string_view file);

    // The value as GetPrivateProfileStringW gives it: trimmed and unquoted. Nothing when there is
    // no such key. For tests and ksfax as well as for the machine's own calls.
    std::optional<std::u16string> Read(std::u16string_view section, std::u16string_view key,
                                       std::u16string_view file) const;
    // The names in order as they are written; empty when there is no such file or section.
    std::vector<std::u16string> Sections(std::u16string_view file) const;
    std::vector<std::u16string> Keys(std::u16string_view section, std::u16string_view file) const;

    // Without value deletes the key, without key the section. A last-error code.
    DWORD Write(std::u16string_view section, std::optional<std::u16string_view> key,
                std::optional<std::u16string_view> value, std::u16string_view file);

  private:
    Machine& machine_;
};

}  // namespace embedded
