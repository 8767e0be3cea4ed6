#include <png.h>

#include <gtest/gtest.h>

#include "tests/tool/run_ksfax.h"

namespace tool {
namespace {

struct Png {
    unsigned width = 0;
    unsigned height = 0;
    std::vector<uint8_t> rgb;
    bool operator==(const Png&) const = default;
};

Png ReadPng(const std::filesystem::path& file) {
    png_image image{};
    image.version = PNG_IMAGE_VERSION;
    EXPECT_NE(png_image_begin_read_from_file(&image, file.c_str()), 0) << image.message;
    image.format = PNG_FORMAT_RGB;
    Png png{.width = image.width, .height = image.height, .rgb = {}};
    png.rgb.resize(PNG_IMAGE_SIZE(image));
    EXPECT_NE(png_image_finish_read(&image, nullptr, png.rgb.data(), 0, nullptr), 0);
    return png;
}

class PageCommand : public testing::Test {
  protected:
    PageCommand() { WriteText(folder / "a.ppd", FileText(SOURCE_FOLDER "/examples/KSFAX.PPD")); }

    Outcome Run(std::vector<std::string> arguments) {
        arguments.insert(arguments.begin(), {"page", "a.ppd"});
        return RunKsfax(folder, arguments);
    }
    // The control of that id on the page that was drawn; null when it does not show.
    static nlohmann::json Control(const nlohmann::json& page, int id) {
        for (const auto& control : page["controls"]) {
            if (control["id"] == id) {
                return control;
            }
        }
        return nullptr;
    }

    TestFolder folder;
};

TEST_F(PageCommand, DrawsThePageAsItsUsersSeeIt) {
    const Outcome plain = Run({"--out", "plain.png"});
    ASSERT_EQ(plain.code, 0) << plain.err;
    EXPECT_EQ(plain.out, "plain.png: the page \"Basic\", 435 x 200 dots\n");
    const Png picture = ReadPng(folder / "plain.png");
    EXPECT_EQ(picture.width, 435u);
    EXPECT_EQ(picture.height, 200u);

    // A record of a landscape A4 in coarse resolution, from a metric country.
    ASSERT_EQ(RunKsfax(folder, {"settings", "a.ppd", "--country", "47", "--out", "a4"}).code, 0);
    std::string record = FileText(folder / "a4");
    record[76] = 2;          // dmOrientation
    record[220 + 2384] = 1;  // faxResolution
    WriteText(folder / "a4", record);
    const Outcome changed = Run({"--out", "a4.png", "--settings", "a4", "--json"});
    ASSERT_EQ(changed.code, 0) << changed.err;
    const nlohmann::json page = changed.Json();
    EXPECT_EQ(page["picture"], "a4.png");
    EXPECT_EQ(page["width"], 435);
    EXPECT_EQ(Control(page, 163)["text"], "A4\n210 x 297 mm");
    EXPECT_EQ(Control(page, 170)["text"], "A4");
    EXPECT_EQ(Control(page, 170)["items"].size(), 10u);
    EXPECT_TRUE(Control(page, 177).contains("checked"));
    EXPECT_FALSE(Control(page, 176).contains("checked"));
    EXPECT_TRUE(Control(page, 194).contains("checked"));
    EXPECT_EQ(Control(page, 9), nullptr);
    EXPECT_NE(ReadPng(folder / "a4.png"), picture);
    EXPECT_EQ(folder.Names(), "a.PDC a.ppd a4 a4.png plain.png tmp ");
}

TEST_F(PageCommand, DrawsTheLockedAndTheAboutPage) {
    const nlohmann::json locked = Run({"--out", "locked.png", "--locked", "--json"}).Json();
    EXPECT_EQ(Control(locked, 170)["enabled"], false);
    EXPECT_EQ(Control(locked, 193)["enabled"], true);
    const nlohmann::json about = Run({"--out", "about.png", "--about", "--json"}).Json();
    EXPECT_EQ(about["tab"], "About");
    EXPECT_EQ(Control(about, 362)["text"], "Version 1.04");
    EXPECT_NE(ReadPng(folder / "about.png"), ReadPng(folder / "locked.png"));
}

TEST_F(PageCommand, SaysWhatItCannotDo) {
    WriteText(folder / "text", std::string(100, 'x'));
    const struct {
        std::vector<std::string> arguments;
        int code;
        const char* message;
    } rows[] = {
        {{"--out", "none/a.png"}, 1, "none/a.png: cannot be written: No such file or directory"},
        {{"--out", "a.png", "--settings", "text"}, 1, "text"},
        {{"--out", "a.png", "--settings", "none"}, 1, "none"},
        {{"--out", "a.png", "--about", "--locked"}, 2, "--locked excludes --about"},
        {{}, 2, "--out is required"},
    };
    for (const auto& row : rows) {
        const Outcome run = Run(row.arguments);
        EXPECT_EQ(run.code, row.code) << run.err;
        EXPECT_NE(run.err.find(row.message), std::string::npos) << run.err;
        EXPECT_FALSE(std::filesystem::exists(folder / "a.png"));
    }
    std::filesystem::remove(folder / "a.ppd");
    EXPECT_EQ(Run({"--out", "a.png"}).code, 1);
}

}  // namespace
}  // namespace tool
