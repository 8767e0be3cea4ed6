#pragma once

// Pictures of the tool: one byte a dot, read from bitmap files, scaled, brought to black and
// white as a fax sends them, and written as PNG.

#include <cstddef>
#include <cstdint>
#include <filesystem>
#include <span>
#include <vector>

namespace tool {

// Rows from the top, `width` bytes each; 0 black, 255 white.
struct Picture {
    int width = 0;
    int height = 0;
    std::vector<uint8_t> dots;

    Picture() = default;
    Picture(int width, int height, uint8_t fill = 255)
        : width(width), height(height), dots(size_t(width) * size_t(height), fill) {}

    uint8_t& At(int x, int y) { return dots[size_t(y) * size_t(width) + size_t(x)]; }
    uint8_t At(int x, int y) const { return dots[size_t(y) * size_t(width) + size_t(x)]; }
};

// The picture of a .bmp file's bytes: 1, 4, 8, 16, 24 or 32 bits a dot, uncompressed, at most
// 64 million dots. Throws UserError, whose text begins after the file's name, when the bytes are
// no bitmap, are cut short, or are of a kind that is not read.
Picture ReadBitmap(std::span<const std::byte> bytes);

// The picture in `width` x `height` dots, each the mean of the dots it covers.
Picture Scale(const Picture& picture, int width, int height);

// Black and white by error diffusion, in place: a bilevel picture stays as it is.
void Dither(Picture& picture);

// Writes a picture of black and white dots as a 1-bit PNG of 200 dots an inch. Throws UserError.
void WriteBilevelPng(const Picture& picture, const std::filesystem::path& file);

// Writes a picture of the screen, `width` colours a row from the top, each 0x00BBGGRR, as a PNG.
// Throws UserError, and leaves no file then.
void WriteColorPng(std::span<const uint32_t> colors, int width, const std::filesystem::path& file);

}  // namespace tool
