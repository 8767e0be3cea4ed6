#include <png.h>

#include <gtest/gtest.h>

#include "tests/golden.h"
#include "tests/tool/run_ksfax.h"
#include "tool/failure.h"
#include "tool/picture.h"

namespace tool {
namespace {

// The grey of each dot of a bitmap file given in hexadecimal, or why it is refused.
std::string AnswerTo(const std::string& question) {
    const std::string digits = question.substr(question.find('|') + 2);
    std::vector<std::byte> bytes;
    for (size_t at = 0; at < digits.size(); at += 2) {
        bytes.push_back(std::byte(std::stoul(digits.substr(at, 2), nullptr, 16)));
    }
    std::string answer;
    try {
        for (const unsigned dot : ReadBitmap(bytes).dots) {
            answer += std::to_string(dot) + " ";
        }
    } catch (const UserError& error) {
        answer = error.what();
    }
    return answer;
}

TEST(ReadBitmap, ReadsEveryDepthAndRefusesWhatItCannotShow) {
    EXPECT_TRUE(AnswersAreRecorded("tool/bitmaps.txt", AnswerTo));
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
