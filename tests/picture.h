#pragma once

// Pictures as text, one character a pixel and one line a row, so that a person can read what a
// test expects and what came instead.

#include <map>
#include <string>

#include "platform/embedded/gdi.h"

namespace tests {

// Colours that the legend does not know show as '?'.
inline std::string AsText(const embedded::Bitmap& picture, const std::map<uint32_t, char>& legend) {
    std::string text = "\n";
    for (int y = 0; y < picture.height; ++y) {
        for (int x = 0; x < picture.width; ++x) {
            const auto found = legend.find(picture.At(x, y));
            text += found == legend.end() ? '?' : found->second;
        }
        text += '\n';
    }
    return text;
}

}  // namespace tests
