#pragma once

// What the commands that take a PPD share: its path on the machine, its loaded description, and
// the description's texts as people read them.

#include <memory>
#include <string>

#include "platform/owned.h"

#include "description/load_description.h"
#include "description/printer_description.h"
#include "tool/program.h"

namespace tool {

// The PPD's path on the machine. Throws UserError when there is no such file or the machine
// cannot name it.
std::u16string PpdPath(const std::filesystem::path& ppd);

// The description as the driver loads it: from the cache file beside the PPD when that is
// current, else read anew, which writes the cache file.
class LoadedDescription {
  public:
    // Throws UserError when the driver can make no description of the file.
    explicit LoadedDescription(const std::filesystem::path& ppd);

    const ksfax::PrinterDescription& operator*() const { return *description_; }
    const ksfax::PrinterDescription* operator->() const { return description_; }
    bool cacheUsed() const { return cacheUsed_; }
    // The cache file on the host that was used or written; empty when there is none.
    const std::filesystem::path& cacheFile() const { return cacheFile_; }

  private:
    platform::GlobalBlock block_;
    const ksfax::PrinterDescription* description_ = nullptr;
    bool cacheUsed_ = false;
    std::filesystem::path cacheFile_;
};

// Throws what a LoadedDescription would, before a kept machine is made or changed for a PPD that
// the driver cannot take: it is loaded on a machine that is thrown away. Nothing without a kept
// one.
void RequireDescription(const MachineOptions& options, const std::filesystem::path& ppd);

// Text of the PPD, which is in the machine's ANSI code page, as UTF-8; null is empty.
std::string FromPpd(const char* text);
std::string FromPpd(std::string_view text);

// UTF-8 that came from a PPD, for people: a control character, which a terminal might obey, is a
// blank.
std::string Shown(std::string text);

}  // namespace tool
