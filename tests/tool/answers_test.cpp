// ksfax settings, capabilities and query, on the fax device's own PPD.

#include <gtest/gtest.h>

#include "tests/tool/run_ksfax.h"

namespace tool {
namespace {

constexpr size_t kPaperSizeOffset = 78;

class Answers : public testing::Test {
  protected:
    Answers() { std::filesystem::copy_file(SOURCE_FOLDER "/examples/KSFAX.PPD", folder / "a.ppd"); }

    Outcome Run(const std::vector<std::string>& arguments) { return RunKsfax(folder, arguments); }
    // The default record of the country, its paper code replaced when `paper` is not 0.
    void MakeRecord(const char* name, const char* country, uint8_t paper = 0) {
        ASSERT_EQ(Run({"settings", "a.ppd", "--out", name, "--country", country}).code, 0);
        std::string record = FileText(folder / name);
        ASSERT_EQ(record.size(), 2608u);
        if (paper != 0) {
            record[kPaperSizeOffset] = char(paper);
            WriteText(folder / name, record);
        }
    }

    TestFolder folder;
};

TEST_F(Answers, SettingsFollowTheCountryAndTakeRecordsInOrder) {
    MakeRecord("us", "1");
    MakeRecord("de", "49");
    EXPECT_EQ(FileText(folder / "us")[kPaperSizeOffset], 1);
    EXPECT_EQ(FileText(folder / "de")[kPaperSizeOffset], 9);

    const Outcome shown = Run({"settings", "a.ppd", "--country", "49", "--device", "Fax", "--show"});
    EXPECT_NE(shown.out.find("\"Fax\"\n"), std::string::npos) << shown.out;
    EXPECT_NE(shown.out.find("9  DMPAPER_A4\n"), std::string::npos) << shown.out;
    const Outcome merged =
        Run({"settings", "a.ppd", "--merge", "us", "--merge", "de", "--diff", "us", "--json"});
    ASSERT_EQ(merged.code, 0) << merged.err;
    EXPECT_EQ(merged.Json()["differences"]["dmPaperSize"]["here"], "9  DMPAPER_A4");
    EXPECT_EQ(merged.Json()["differences"]["dmPaperSize"]["there"], "1  DMPAPER_LETTER");

    WriteText(folder / "short", FileText(folder / "us").substr(0, 2607));
    for (const char* bad : {"short", "a.ppd", "none"}) {
        const Outcome run = Run({"settings", "a.ppd", "--merge", bad, "--out", "x"});
        EXPECT_EQ(run.code, 1);
        EXPECT_NE(run.err.find(bad), std::string::npos) << run.err;
        EXPECT_FALSE(std::filesystem::exists(folder / "x"));
    }
}

TEST_F(Answers, CapabilitiesComeAsAnArrayByIndex) {
    const Outcome run = Run({"capabilities", "a.ppd", "--json"});
    ASSERT_EQ(run.code, 0) << run.err;
    const nlohmann::json all = run.Json();
    ASSERT_EQ(all.size(), 34u);
    EXPECT_EQ(all[0], nlohmann::json::parse(R"({"index": 0, "name": "", "result": 4294967295})"));
    EXPECT_EQ(all[2]["name"], "DC_PAPERS");
    EXPECT_EQ(all[2]["values"], nlohmann::json({1, 5, 7, 9, 11, 70, 34, 13, 43, 262}));
    EXPECT_EQ(all[3]["values"][3], nlohmann::json({2100, 2970}));
    EXPECT_EQ(all[13]["values"], nlohmann::json::parse("[[200, 200], [200, 200]]"));
    EXPECT_EQ(all[16]["values"][3], "A4");
    EXPECT_FALSE(all[6].contains("values"));
    const nlohmann::json none = Run({"capabilities", "a.ppd", "--json", "--no-forms"}).Json();
    EXPECT_EQ(none[2], nlohmann::json::parse(
                           R"({"index": 2, "name": "DC_PAPERS", "result": 4294967295})"));
}

TEST_F(Answers, QuerySaysWhetherAJobCanPrint) {
    MakeRecord("good", "1");
    const Outcome good = Run({"query", "a.ppd", "--settings", "good"});
    EXPECT_EQ(good.code, 0) << good.err << good.out;
    EXPECT_EQ(good.out, "can print\n");
    MakeRecord("bad", "1", 99);
    const Outcome bad = Run({"query", "a.ppd", "--settings", "bad"});
    EXPECT_EQ(bad.code, 3);
    EXPECT_TRUE(bad.out.starts_with("40049 ")) << bad.out;
    EXPECT_GT(bad.out.size(), 20u);
}

}  // namespace
}  // namespace tool
