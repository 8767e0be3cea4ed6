#pragma once

// Job settings records as files.

#include <cstddef>
#include <filesystem>
#include <string>
#include <vector>

namespace tool {

// A record of any version, with all the bytes that it declares. Throws UserError for a file that
// is shorter than its header, 72 bytes, or than dmSize + dmDriverExtra.
std::vector<std::byte> ReadSettingsRecord(const std::filesystem::path& file);

// Why the driver takes nothing from such a record, and what to do.
std::string NotRecognised(const std::filesystem::path& file, const std::vector<std::byte>& record);

}  // namespace tool
