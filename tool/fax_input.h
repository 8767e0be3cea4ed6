#pragma once

// What the user hands to `ksfax send`, read and checked before anything is written.
//
// Names and numbers become values of an INI file in the machine's ANSI code page. A character
// that the code page lacks is refused rather than replaced, because a receiver called "???"
// helps nobody, and a control character because it would end the line and begin another key.
//
// All functions throw UserError, those for options UsageError, and need a running machine: its
// code page is the one that counts.

#include <filesystem>
#include <string>
#include <string_view>
#include <vector>

#include "tool/cover_page.h"

namespace tool {

// NAME=NUMBER, parted at the last "=". The name may be empty.
Receiver ReceiverFromOption(std::string_view option, std::string_view text);

// NAME=NUMBER or NAME alone.
Receiver SenderFromOption(std::string_view option, std::string_view text);

// A UTF-8 file of comma-, semicolon- or tab-separated values, quoted where needed: name, number.
// A first line with the words "name" and "number" may name the columns in any order, among others.
std::vector<Receiver> ReadReceiverList(const std::filesystem::path& file);

// The memo in the machine's ANSI code page. The file is UTF-8, or else in that code page already.
std::string ReadMemo(const std::filesystem::path& file);

// Refuses what is no bitmap that the cover page can show.
void CheckCoverBitmap(const std::filesystem::path& file);

// The absolute path of a file or folder, plain and without a separator at its end.
std::filesystem::path WholePath(const std::filesystem::path& file);

// The machine's path of a host file that an INI value shall name: at most `most` characters, and
// bytes of the code page, all in it, and nothing that the profile service would strip or misread.
std::u16string PathForIni(const std::filesystem::path& file, size_t most);

// The whole of a file.
std::vector<std::byte> ReadFileBytes(const std::filesystem::path& file);

}  // namespace tool
