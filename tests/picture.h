#pragma once

// Pictures as text, one character a pixel and one line a row, so that a person can read what a
// test expects and what came instead.

#include <algorithm>
#include <map>
#include <sstream>
#include <string>
#include <vector>

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

// The pictures that stand beside each other in one text, with a space between them.
inline std::vector<std::string> Pictures(const std::string& text) {
    std::vector<std::string> pictures;
    std::istringstream lines(text);
    for (std::string line; std::getline(lines, line);) {
        std::istringstream parts(line);
        std::string row;
        for (size_t at = 0; parts >> row; ++at) {
            pictures.resize(std::max(pictures.size(), at + 1), "\n");
            pictures[at] += row + '\n';
        }
    }
    return pictures;
}

}  // namespace tests
