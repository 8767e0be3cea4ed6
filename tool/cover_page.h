#pragma once

// The picture of a fax cover page.

#include <optional>
#include <string>
#include <vector>

#include "tool/picture.h"

namespace tool {

struct Receiver {
    std::u16string name;  // may be empty
    std::u16string number;

    bool operator==(const Receiver&) const = default;
};

struct CoverPage {
    Receiver sender;
    std::u16string date;  // as it shall be shown
    std::vector<Receiver> receivers;
    std::optional<std::u16string> memo;  // lines end with LF or CR LF
    std::optional<Picture> bitmap;
};

// One page of a fax machine: 1728 dots across, 2200 down, 200 an inch both ways.
inline constexpr int kPageWidth = 1728;
inline constexpr int kPageHeight = 2200;

// Draws the page in black and white. Receivers and memo lines that do not fit are counted on the
// page; the bitmap is scaled to the room that is left. Throws UserError when the fonts are
// missing.
Picture DrawCoverPage(const CoverPage& page);

}  // namespace tool
