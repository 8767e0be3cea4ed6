// ksfax settings, capabilities and query, on the fax device's own PPD.

#include <gtest/gtest.h>

#include "tests/tool/run_ksfax.h"

namespace tool {
namespace {

constexpr size_t kPaperSizeOffset = 78;
constexpr size_t kPrivate = 220;  // where the private part begins

struct RecordField {
    std::string_view name;
    size_t offset;
};
constexpr RecordField kRecordFields[] = {
#define KSFAX_PUBLIC_FIELD(type, field, offset, unit, meaning) {#field, offset},
#define KSFAX_PRIVATE_FIELD(type, field, offset, unit, meaning) {#field, kPrivate + (offset)},
#include "jobsettings/job_settings_fields.def"
};

// A tray-form table of one tray, with or without the end that it needs.
std::string TrayForms(std::string_view form, bool whole) {
    std::string table;
    const auto add = [&](std::string_view text) {
        for (const char letter : text) {
            table += {letter, '\0'};
        }
    };
    using namespace std::literals;
    add("Tray\0"sv);
    add(form);
    add("\0P\0\1"sv);
    if (whole) {
        add("\0"sv);
    }
    return std::string{char(table.size() + 2), '\0'} + table;
}

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

    const Outcome shown =
        Run({"settings", "a.ppd", "--country", "49", "--device", "Fax", "--show"});
    EXPECT_NE(shown.out.find("\"Fax\"\n"), std::string::npos) << shown.out;
    EXPECT_NE(shown.out.find("9  DMPAPER_A4\n"), std::string::npos) << shown.out;
    const Outcome merged =
        Run({"settings", "a.ppd", "--merge", "us", "--merge", "de", "--diff", "us", "--json"});
    ASSERT_EQ(merged.code, 0) << merged.err;
    EXPECT_EQ(merged.Json()["differences"]["dmPaperSize"],
              nlohmann::json::parse(R"({"here": {"value": 9, "name": "DMPAPER_A4", "unit": null},
                                 "there": {"value": 1, "name": "DMPAPER_LETTER", "unit": null}})"));
    EXPECT_EQ(merged.Json()["fields"]["scalePercent"],
              nlohmann::json::parse(R"({"value": 100, "name": null, "unit": "percent"})"));

    WriteText(folder / "short", FileText(folder / "us").substr(0, 2607));
    for (const char* bad : {"short", "a.ppd", "none"}) {
        const Outcome run = Run({"settings", "a.ppd", "--merge", bad, "--out", "x"});
        EXPECT_EQ(run.code, 1);
        EXPECT_NE(run.err.find(bad), std::string::npos) << run.err;
        EXPECT_FALSE(std::filesystem::exists(folder / "x"));
    }
}

TEST_F(Answers, SettingsTellEveryFieldThatDiffers) {
    MakeRecord("other", "1");
    const std::string record = FileText(folder / "other");
    for (const size_t round : {0, 1}) {  // every other field, so that neighbours are told apart
        std::string other = record;
        std::vector<std::string_view> changed;
        for (size_t i = round; i < std::size(kRecordFields); i += 2) {
            const RecordField& field = kRecordFields[i];
            if (field.name != "dmSize" && field.name != "dmDriverExtra") {
                other[field.offset] ^= 1;
                changed.push_back(field.name);
            }
        }
        WriteText(folder / "other", other);
        std::vector<std::string> told;
        const auto json = Run({"settings", "a.ppd", "--diff", "other", "--json"}).Json();
        for (const auto& difference : json["differences"].items()) {
            told.push_back(difference.key());
        }
        std::ranges::sort(changed);
        EXPECT_TRUE(std::ranges::equal(told, changed)) << json["differences"];
    }
}

TEST_F(Answers, SettingsNameCodesAndUnits) {
    const struct {
        size_t offset;
        uint16_t value;
        const char* shown;
    } rows[] = {
        {78, 73, "dmPaperSize  1  DMPAPER_LETTER  (there: 73  DMPAPER_JENV_CHOU3)"},
        {90, 0xFFFC, "dmPrintQuality  200  dots per inch  (there: -4  DMRES_HIGH)"},
        {kPrivate + 2, 5, "reserved2  all zero  (there: 05 and zeros)"},
        {kPrivate + 234, 999, "(there: 999  tenths of a millimetre)"},
        {kPrivate + 368, 255, "textColor  0  RGB  (there: 255  0xFF  RGB)"},
        {kPrivate + 428, 18, "rotationFlags  0  (there: 18  0x12)"},
        {kPrivate + 432, 4, "source1  7  DMBIN_AUTO  (there: 4  DMBIN_MANUAL)"},
        {kPrivate + 456, 'x', "userText1  \"\"  (there: \"x\")"},
        {kPrivate + 1140, 30, "(there: 30  DMPAPER_ENV_C4)"},
        {kPrivate + 2384, 1, "0  200 x 200 dots per inch  (there: 1  200 x 100 dots per inch)\n"},
    };
    MakeRecord("other", "1");
    std::string other = FileText(folder / "other");
    for (const auto& row : rows) {
        other[row.offset] = char(row.value);
        other[row.offset + 1] = char(row.value >> 8);
    }
    WriteText(folder / "other", other);
    const Outcome run = Run({"settings", "a.ppd", "--diff", "other"});
    for (const auto& row : rows) {
        EXPECT_NE(run.out.find(row.shown), std::string::npos) << row.shown << '\n' << run.out;
    }
}

TEST_F(Answers, SayWhatTheDriverMakesNothingOf) {
    MakeRecord("odd", "1");
    std::string odd = FileText(folder / "odd");
    odd.replace(64, 6, std::string("\0\0\4\1\xC8\0", 6));  // dmSize 200, dmSpecVersion 0
    WriteText(folder / "odd", odd);
    WriteText(folder / "torn", TrayForms("A4", false));
    const std::string ppd = FileText(folder / "a.ppd");
    const struct {
        std::vector<std::string> arguments;
        int code;
        const char* told;
    } rows[] = {
        {{"settings", "a.ppd", "--merge", "odd", "--out", "x"}, 1, "dmSize is 200"},
        {{"capabilities", "a.ppd", "--settings", "odd"}, 0, "dmSpecVersion 0"},
        {{"query", "a.ppd", "--settings", "x", "--tray-forms", "torn"}, 0, "absent"},
        {{"settings", "a.ppd", "--out", "./a.ppd"}, 2, "overwrite a.ppd"},
        {{"settings", "a.ppd", "--out", "x", "--merge", "x"}, 2, "overwrite x"},
    };
    for (const auto& row : rows) {
        const Outcome run = Run(row.arguments);
        EXPECT_EQ(run.code, row.code) << row.told;
        EXPECT_NE(run.err.find(row.told), std::string::npos) << run.err;
        EXPECT_EQ(std::ranges::count(run.err, '\n'), 1) << run.err;
    }
    EXPECT_EQ(FileText(folder / "x").size(), 2608u);  // written though the merge failed
    EXPECT_EQ(FileText(folder / "a.ppd"), ppd);
}

TEST_F(Answers, StayInAKeptMachine) {
    MakeRecord("a4", "49");
    WriteText(folder / "trays", TrayForms("Letter", true));
    EXPECT_EQ(Run({"query", "a.ppd", "--machine", "m", "--settings", "a4"}).code, 0);
    EXPECT_TRUE(Run({"query", "a.ppd", "--machine", "m", "--settings", "a4", "--country", "49",
                     "--tray-forms", "trays"})
                    .out.starts_with("40057 "));
    EXPECT_EQ(Run({"query", "a.ppd", "--machine", "m", "--settings", "a4"}).code, 3);
    // The country stays; the forms were gone for one question alone.
    EXPECT_NE(Run({"settings", "a.ppd", "--machine", "m", "--show"}).out.find("DMPAPER_A4"),
              std::string::npos);
    EXPECT_EQ(Run({"capabilities", "a.ppd", "--machine", "n", "--no-forms"}).code, 0);
    EXPECT_EQ(Run({"capabilities", "a.ppd", "--machine", "n", "--json"}).Json()[2]["result"], 10);
    EXPECT_EQ(Run({"settings", "a.ppd", "--machine", "o", "--show"}).code, 0);
    EXPECT_EQ(Run({"state", "--machine", "o"}).code, 0);
    // A run that fails leaves no machine where none was.
    const std::vector<std::string> failing[] = {{"settings", "none", "--show"},
                                                {"capabilities", "none"},
                                                {"query", "none", "--settings", "a4"}};
    for (std::vector<std::string> arguments : failing) {
        arguments.insert(arguments.end(), {"--machine", "p"});
        EXPECT_EQ(Run(arguments).code, 1) << arguments[0];
        EXPECT_FALSE(std::filesystem::exists(folder / "p")) << arguments[0];
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
    EXPECT_EQ(none[2],
              nlohmann::json::parse(R"({"index": 2, "name": "DC_PAPERS", "result": 4294967295})"));
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
