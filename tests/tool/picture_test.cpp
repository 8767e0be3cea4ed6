#include <png.h>

#include <gtest/gtest.h>

#include "tests/tool/run_ksfax.h"
#include "tool/failure.h"
#include "tool/picture.h"

namespace tool {
namespace {

using Bytes = std::vector<uint8_t>;

void Put(Bytes& bytes, uint64_t value, int width) {
    for (int i = 0; i < width; ++i) {
        bytes.push_back(uint8_t(value >> 8 * i));
    }
}

Picture Read(const Bytes& bytes) {
    return ReadBitmap(std::as_bytes(std::span(bytes)));
}

struct BitmapFile {
    uint32_t width, height;
    uint32_t bits;
    uint32_t compression = 0;
    Bytes beforeRows = {};  // masks or palette
    Bytes rows = {};
    uint32_t colours = 0;

    Bytes File() const {
        Bytes bytes = {'B', 'M'};
        Put(bytes, 0, 8);
        Put(bytes, uint32_t(54 + beforeRows.size()), 4);
        Put(bytes, 40, 4);
        Put(bytes, width, 4);
        Put(bytes, height, 4);
        Put(bytes, 1, 2);
        Put(bytes, bits, 2);
        Put(bytes, compression, 4);
        for (const uint32_t value : {0u, 0u, 0u, colours, 0u}) {
            Put(bytes, value, 4);
        }
        bytes.insert(bytes.end(), beforeRows.begin(), beforeRows.end());
        bytes.insert(bytes.end(), rows.begin(), rows.end());
        return bytes;
    }
};

const Bytes kBlackWhite = {0, 0, 0, 0, 255, 255, 255, 0};

TEST(ReadBitmap, ReadsEveryDepth) {
    const struct {
        const char* what;
        BitmapFile file;
        std::vector<uint8_t> dots;  // from the top
    } rows[] = {
        {"1 bit, bottom row first",
         {3, 2, 1, 0, kBlackWhite, {0x40, 0, 0, 0, 0xA0, 0, 0, 0}},
         {255, 0, 255, 0, 255, 0}},
        {"1 bit, top row first",
         {3, uint32_t(-2), 1, 0, kBlackWhite, {0x40, 0, 0, 0, 0xA0, 0, 0, 0}},
         {0, 255, 0, 255, 0, 255}},
        {"4 bits with a palette of two, the rest black",
         {2, 1, 4, 0, kBlackWhite, {0x17, 0, 0, 0}, 2},
         {255, 0}},
        {"24 bits: red, green, blue",
         {3, 1, 24, 0, {}, {0, 0, 255, 0, 255, 0, 255, 0, 0, 0, 0, 0}},
         {76, 150, 29}},
        {"16 bits, 5 a colour", {2, 1, 16, 0, {}, {0xFF, 0x7F, 0, 0x7C}}, {255, 76}},
        {"32 bits with masks: red lowest",
         {1, 1, 32, 3, {0xFF, 0, 0, 0, 0, 0xFF, 0, 0, 0, 0, 0xFF, 0}, {255, 0, 0, 9}},
         {76}},
    };
    for (const auto& row : rows) {
        SCOPED_TRACE(row.what);
        const Picture picture = Read(row.file.File());
        EXPECT_EQ(picture.dots, row.dots);
    }
}

TEST(ReadBitmap, ReadsTheFirstFormOfTheHeader) {
    Bytes bytes = {'B', 'M', 0, 0, 0, 0, 0, 0, 0,   0,   32,  0, 0, 0, 12,   0, 0, 0,
                   2,   0,   1, 0, 1, 0, 1, 0, 255, 255, 255, 0, 0, 0, 0x40, 0, 0, 0};
    EXPECT_EQ(Read(bytes).dots, (std::vector<uint8_t>{255, 0}));
}

TEST(ReadBitmap, RefusesWhatItCannotShow) {
    BitmapFile good = {3, 2, 1, 0, kBlackWhite, Bytes(8)};
    const auto changed = [&](auto change) {
        BitmapFile file = good;
        change(file);
        return file.File();
    };
    const Bytes whole = good.File();
    Bytes noMark = whole;
    noMark[1] = 'N';
    Bytes farRows = whole;
    farRows[13] = 0xFF;
    const struct {
        const char* what;
        Bytes bytes;
        const char* says;
    } rows[] = {
        {"nothing", {}, "0 bytes"},
        {"no BM", noMark, "BM"},
        {"last row cut", changed([](auto& f) { f.rows.pop_back(); }), "cut short"},
        {"palette cut", Bytes(whole.begin(), whole.begin() + 58), "cut short"},
        {"rows beyond 4 GB", farRows, "cut short"},
        {"run-length compressed", changed([](auto& f) { f.compression = 1; }), "compressed"},
        {"7 bits", changed([](auto& f) { f.bits = 7; }), "7 bits"},
        {"no bits", changed([](auto& f) { f.bits = 0; }), "0 bits"},
        {"no width", changed([](auto& f) { f.width = 0; }), "0 x 2"},
        {"the largest width", changed([](auto& f) { f.width = 0xFFFFFFFF; }), "4294967295"},
        {"the lowest height", changed([](auto& f) { f.height = 0x80000000; }), "2147483648"},
    };
    for (const auto& row : rows) {
        SCOPED_TRACE(row.what);
        try {
            Read(row.bytes);
            ADD_FAILURE() << "was taken";
        } catch (const UserError& error) {
            EXPECT_NE(std::string(error.what()).find(row.says), std::string::npos) << error.what();
        }
    }
}

TEST(Scale, GivesTheMeanOfWhatADotCovers) {
    Picture picture(4, 2);
    picture.dots = {0, 100, 255, 255, 100, 200, 255, 51};
    EXPECT_EQ(Scale(picture, 2, 1).dots, (std::vector<uint8_t>{100, 204}));
    EXPECT_EQ(Scale(Scale(picture, 12, 6), 4, 2).dots, picture.dots);
}

TEST(Dither, KeepsBlackAndWhiteAndTheMeanOfGrey) {
    Picture bilevel(3, 2);
    bilevel.dots = {0, 255, 0, 255, 255, 0};
    const std::vector<uint8_t> before = bilevel.dots;
    Dither(bilevel);
    EXPECT_EQ(bilevel.dots, before);

    Picture grey(64, 64, 64);
    Dither(grey);
    const auto white = std::ranges::count(grey.dots, 255);
    EXPECT_EQ(white + std::ranges::count(grey.dots, 0), 64 * 64);
    EXPECT_NEAR(double(white) / (64 * 64), 64.0 / 255, 0.01);
}

TEST(WriteBilevelPng, WritesWhatAReaderReads) {
    TestFolder folder;
    Picture picture(9, 2);
    picture.dots = {0, 255, 0, 0, 255, 255, 0, 255, 0, 255, 0, 255, 255, 0, 0, 255, 0, 255};
    WriteBilevelPng(picture, folder / "a.png");

    png_image image = {};
    image.version = PNG_IMAGE_VERSION;
    ASSERT_TRUE(png_image_begin_read_from_file(&image, (folder / "a.png").c_str()));
    image.format = PNG_FORMAT_GRAY;
    std::vector<uint8_t> dots(PNG_IMAGE_SIZE(image));
    ASSERT_TRUE(png_image_finish_read(&image, nullptr, dots.data(), 0, nullptr));
    EXPECT_EQ(image.width, 9u);
    EXPECT_EQ(dots, picture.dots);
    EXPECT_THROW(WriteBilevelPng(picture, folder / "missing" / "a.png"), UserError);
}

}  // namespace
}  // namespace tool
