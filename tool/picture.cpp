#include "tool/picture.h"

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <memory>
#include <png.h>

#include "tool/failure.h"

namespace tool {

namespace {

constexpr uint32_t kMostDots = 64'000'000;

// Little-endian numbers at any place of a file; past its end is a cut-short file.
class FileBytes {
  public:
    explicit FileBytes(std::span<const std::byte> bytes) : bytes_(bytes) {}

    uint32_t Number(size_t offset, size_t width) const {
        uint32_t value = 0;
        for (const std::byte byte : From(offset, width)) {
            value = value >> 8 | uint32_t(byte) << 24;
        }
        return value >> (32 - 8 * width);
    }
    std::span<const std::byte> From(size_t offset, size_t count) const {
        if (offset > bytes_.size() || count > bytes_.size() - offset) {
            throw UserError("is cut short: it has " + std::to_string(bytes_.size()) +
                            " bytes where its header promises more; save the bitmap again");
        }
        return bytes_.subspan(offset, count);
    }

  private:
    std::span<const std::byte> bytes_;
};

uint8_t Grey(unsigned red, unsigned green, unsigned blue) {
    return static_cast<uint8_t>((red * 299 + green * 587 + blue * 114 + 500) / 1000);
}

// A colour field of a 16- or 32-bit dot, stretched to 0..255.
unsigned Field(uint32_t dot, uint32_t mask) {
    if (mask == 0) {
        return 0;
    }
    const int shift = __builtin_ctz(mask);
    const uint64_t most = mask >> shift;
    return static_cast<unsigned>(uint64_t{(dot & mask) >> shift} * 255 / most);
}

struct BitmapHeader {
    uint32_t width;
    uint32_t height;
    bool topDown;
    unsigned bits;
    uint32_t masks[3];  // red, green, blue; of 16- and 32-bit dots
    uint8_t palette[256];
    size_t rows;  // offset of the first stored row
};

void ReadPalette(const FileBytes& file, size_t offset, uint32_t colours, unsigned entryBytes,
                 BitmapHeader& header) {
    const uint32_t most = 1u << header.bits;
    const uint32_t count = colours == 0 ? most : std::min(colours, most);
    const std::span<const std::byte> entries = file.From(offset, size_t{count} * entryBytes);
    for (uint32_t i = 0; i < count; ++i) {
        const std::byte* entry = &entries[size_t{i} * entryBytes];
        header.palette[i] = Grey(unsigned(entry[2]), unsigned(entry[1]), unsigned(entry[0]));
    }
}

unsigned CheckedDepth(unsigned bits) {
    constexpr unsigned kDepths[] = {1, 4, 8, 16, 24, 32};
    if (std::ranges::find(kDepths, bits) == std::end(kDepths)) {
        throw UserError("is no bitmap that can be read: it has " + std::to_string(bits) +
                        " bits a dot; save it with 1, 4, 8, 24 or 32");
    }
    return bits;
}

BitmapHeader ReadHeader(const FileBytes& file) {
    if (file.Number(0, 2) != 0x4D42) {  // "BM"
        throw UserError("is no bitmap: it does not begin with the letters BM; save the picture "
                        "as a Windows bitmap (.bmp)");
    }
    BitmapHeader header = {};
    header.rows = file.Number(10, 4);
    const uint32_t headerBytes = file.Number(14, 4);
    if (headerBytes == 12) {  // the first form of the header, with 16-bit sizes
        header.width = file.Number(18, 2);
        header.height = file.Number(20, 2);
        header.bits = CheckedDepth(file.Number(24, 2));
        if (header.bits <= 8) {
            ReadPalette(file, 26, 0, 3, header);
        }
        return header;
    }
    if (headerBytes < 40 || headerBytes > 4096) {
        throw UserError("is no bitmap that can be read: its header has a length of " +
                        std::to_string(headerBytes) + " bytes; save it again as a .bmp file");
    }
    header.width = file.Number(18, 4);
    const uint32_t height = file.Number(22, 4);
    header.topDown = height >> 31;
    header.height = header.topDown ? 0 - height : height;
    header.bits = CheckedDepth(file.Number(28, 2));
    const uint32_t compression = file.Number(30, 4);
    const bool givesMasks = compression == 3 && (header.bits == 16 || header.bits == 32);
    if (compression != 0 && !givesMasks) {
        throw UserError("is a compressed bitmap, which is not read; save it uncompressed");
    }
    for (size_t i = 0; i < 3; ++i) {
        constexpr uint32_t kMasks16[] = {0x7C00, 0x03E0, 0x001F};
        constexpr uint32_t kMasks32[] = {0xFF0000, 0x00FF00, 0x0000FF};
        header.masks[i] = givesMasks          ? file.Number(54 + 4 * i, 4)
                          : header.bits == 16 ? kMasks16[i]
                                              : kMasks32[i];
    }
    if (header.bits <= 8) {
        ReadPalette(file, size_t{14} + headerBytes, file.Number(46, 4), 4, header);
    }
    return header;
}

uint8_t DotOfRow(const BitmapHeader& header, const std::byte* row, size_t x) {
    switch (header.bits) {
    case 1:
        return header.palette[unsigned(row[x / 8]) >> (7 - x % 8) & 1];
    case 4:
        return header.palette[unsigned(row[x / 2]) >> (x % 2 == 0 ? 4 : 0) & 15];
    case 8:
        return header.palette[unsigned(row[x])];
    case 24:
        return Grey(unsigned(row[3 * x + 2]), unsigned(row[3 * x + 1]), unsigned(row[3 * x]));
    default: {
        const FileBytes dot({row + x * header.bits / 8, header.bits / 8});
        const uint32_t value = dot.Number(0, header.bits / 8);
        return Grey(Field(value, header.masks[0]), Field(value, header.masks[1]),
                    Field(value, header.masks[2]));
    }
    }
}

// libpng leaves by longjmp: nothing here may need a destructor.
bool WriteRows(png_structp png, png_infop info, std::FILE* stream, const Picture& picture,
               uint8_t* row) {
    if (setjmp(png_jmpbuf(png)) != 0) {
        return false;
    }
    constexpr png_uint_32 kDotsPerMetre = 7874;  // 200 an inch
    png_init_io(png, stream);
    png_set_IHDR(png, info, png_uint_32(picture.width), png_uint_32(picture.height), 1,
                 PNG_COLOR_TYPE_GRAY, PNG_INTERLACE_NONE, PNG_COMPRESSION_TYPE_DEFAULT,
                 PNG_FILTER_TYPE_DEFAULT);
    png_set_pHYs(png, info, kDotsPerMetre, kDotsPerMetre, PNG_RESOLUTION_METER);
    png_write_info(png, info);
    for (int y = 0; y < picture.height; ++y) {
        std::memset(row, 0, size_t(picture.width + 7) / 8);
        for (int x = 0; x < picture.width; ++x) {
            row[x / 8] |= uint8_t((picture.At(x, y) >= 128 ? 0x80 : 0) >> x % 8);
        }
        png_write_row(png, row);
    }
    png_write_end(png, nullptr);
    return true;
}

}  // namespace

Picture ReadBitmap(std::span<const std::byte> bytes) {
    if (bytes.size() < 26) {
        throw UserError("is no bitmap: it has " + std::to_string(bytes.size()) +
                        " bytes; save the picture as a Windows bitmap (.bmp)");
    }
    const FileBytes file(bytes);
    const BitmapHeader header = ReadHeader(file);
    if (header.width == 0 || header.height == 0 ||
        uint64_t{header.width} * header.height > kMostDots) {
        throw UserError("is no bitmap that can be read: " + std::to_string(header.width) + " x " +
                        std::to_string(header.height) + " dots; 1 to 64 million are possible");
    }
    const size_t rowBytes = (size_t{header.width} * header.bits + 31) / 32 * 4;
    const std::span<const std::byte> rows = file.From(header.rows, rowBytes * header.height);
    Picture picture(int(header.width), int(header.height));
    for (int y = 0; y < picture.height; ++y) {
        const int stored = header.topDown ? y : picture.height - 1 - y;
        const std::byte* row = &rows[size_t(stored) * rowBytes];
        for (int x = 0; x < picture.width; ++x) {
            picture.At(x, y) = DotOfRow(header, row, size_t(x));
        }
    }
    return picture;
}

Picture Scale(const Picture& picture, int width, int height) {
    Picture scaled(width, height);
    for (int y = 0; y < height; ++y) {
        const int top = int(int64_t{y} * picture.height / height);
        const int bottom = std::max(top + 1, int(int64_t{y + 1} * picture.height / height));
        for (int x = 0; x < width; ++x) {
            const int left = int(int64_t{x} * picture.width / width);
            const int right = std::max(left + 1, int(int64_t{x + 1} * picture.width / width));
            uint64_t sum = 0;
            for (int v = top; v < bottom; ++v) {
                for (int u = left; u < right; ++u) {
                    sum += picture.At(u, v);
                }
            }
            scaled.At(x, y) = uint8_t(sum / (uint64_t(bottom - top) * uint64_t(right - left)));
        }
    }
    return scaled;
}

void Dither(Picture& picture) {
    // Floyd and Steinberg: what a dot is off goes to its right neighbour and the row below.
    std::vector<int> errors(size_t(picture.width) + 2);
    std::vector<int> below(errors.size());
    for (int y = 0; y < picture.height; ++y) {
        std::ranges::fill(below, 0);
        for (int x = 0; x < picture.width; ++x) {
            const size_t slot = size_t(x) + 1;
            const int wanted = picture.At(x, y) + errors[slot] / 16;
            const int shown = wanted >= 128 ? 255 : 0;
            const int off = wanted - shown;
            errors[slot + 1] += 7 * off;
            below[slot - 1] += 3 * off;
            below[slot] += 5 * off;
            below[slot + 1] += off;
            picture.At(x, y) = uint8_t(shown);
        }
        errors.swap(below);
    }
}

void WriteBilevelPng(const Picture& picture, const std::filesystem::path& file) {
    std::FILE* stream = std::fopen(file.c_str(), "wb");
    if (stream == nullptr) {
        throw UserError(file.string() + ": cannot be written: " + std::strerror(errno));
    }
    std::vector<uint8_t> row(size_t(picture.width + 7) / 8);
    png_structp png = png_create_write_struct(
        PNG_LIBPNG_VER_STRING, nullptr,
        [](png_structp made, png_const_charp) {
            png_longjmp(made, 1);  // told below in our own words
        },
        nullptr);
    png_infop info = png == nullptr ? nullptr : png_create_info_struct(png);
    const bool written = info != nullptr && WriteRows(png, info, stream, picture, row.data());
    png_destroy_write_struct(&png, &info);
    if (std::fclose(stream) != 0 || !written) {
        throw UserError(file.string() + ": cannot be written completely; is the disk full?");
    }
}

void WriteColorPng(std::span<const uint32_t> colors, int width, const std::filesystem::path& file) {
    std::vector<uint8_t> bytes;
    bytes.reserve(colors.size() * 3);
    for (const uint32_t color : colors) {
        for (const int shift : {0, 8, 16}) {
            bytes.push_back(uint8_t(color >> shift));
        }
    }
    png_image image{};
    image.version = PNG_IMAGE_VERSION;
    image.width = png_uint_32(width);
    image.height = png_uint_32(colors.size() / size_t(width));
    image.format = PNG_FORMAT_RGB;
    if (png_image_write_to_file(&image, file.c_str(), 0, bytes.data(), 0, nullptr) == 0) {
        throw UserError(file.string() + ": cannot be written: " + image.message +
                        "; choose another name for --out");
    }
}

}  // namespace tool
