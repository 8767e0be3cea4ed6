#pragma once

// What the driver makes of every statement of a PPD, told to the PPD's author. It watches the
// driver's own reader through its observer and reads nothing a second time but single bytes that
// a message shows.

#include <cstdint>
#include <filesystem>
#include <string>
#include <vector>

namespace tool {

enum class Severity {
    Error,    // the driver loses something
    Warning,  // probably meant otherwise
    Note,     // of no use to this driver, and meant so
};

struct Finding {
    Severity severity;
    std::vector<uint32_t> lines;  // where, each once; empty for the file as a whole
    std::string keyword;          // without asterisk; may be empty
    std::string reason;
    std::string remedy;  // may be empty
    size_t count = 1;    // of statements; not less than the lines
};

struct CheckedPpd {
    std::filesystem::path file;
    bool readable = false;  // the file could be read at all
    std::string failure;    // why not
    bool loads = false;     // the driver makes a description of it
    size_t statements = 0;
    size_t dropped = 0;
    std::vector<Finding> findings;  // errors first, each kind in order of its first line

    size_t Count(Severity severity) const;
};

// Needs a running machine with the driver loaded. Writes nothing, no cache file either.
CheckedPpd CheckPpd(const std::filesystem::path& file);

}  // namespace tool
