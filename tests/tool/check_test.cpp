// ksfax check and describe, run as a PPD author runs them.

#include <gtest/gtest.h>

#include "tests/tool/run_ksfax.h"

namespace tool {
namespace {

// Comes before each row's own statements, which begin at line 9.
const std::string kBeginning =
    "*PPD-Adobe: \"4.3\"\n"
    "*FileVersion: \"1.5\"\n"
    "*LanguageEncoding: ISOLatin1\n"
    "*OpenUI *PageSize: PickOne\n"
    "*DefaultPageSize: A4\n"
    "*PageSize A4: \"\"\n"
    "*PaperDimension A4: \"595 842\"\n"
    "*CloseUI: *PageSize\n";

// "severity line keyword: reason" of each finding but notes.
std::string Findings(const nlohmann::json& file) {
    std::string all;
    for (const nlohmann::json& finding : file["findings"]) {
        if (finding["severity"] != "note") {
            all += finding["severity"].get<std::string>() + ' ' + finding["lines"].dump() + " *" +
                   finding["keyword"].get<std::string>() + ": " +
                   finding["reason"].get<std::string>() + '\n';
            EXPECT_NE(finding["remedy"], "");
        }
    }
    return all;
}

TEST(Check, FindsWhatIsWrongAndWhere) {
    const struct {
        const char* what;
        std::string text;
        int code;
        const char* finding;  // empty: none
    } rows[] = {
        {"nothing", "", 0, ""},
        {"a closing keyword of another feature", "*OpenUI *A: Boolean\n*CloseUI: *PageSize\n", 0,
         "warning [10] *CloseUI: *PageSize is closed while *A of line 9 is open"},
        {"a file cut inside a value", "*PageSize A5: \"\n1 2", 3,
         "error [9] *PageSize: the file ends inside this statement"},
        {"a last line without end", "*DefaultHRC: A", 3, "error [9] *DefaultHRC: the file ends"},
        {"a feature opened twice", "*OpenUI *PageSize: PickOne\n*CloseUI: *PageSize\n", 0,
         "warning [9] *OpenUI: *PageSize is open from line 4 before"},
        {"a printable area outside the sheet", "*ImageableArea A4: \"0 0 600 842\"\n", 0,
         "*PageSize: A4: the printable area reaches beyond the sheet"},
        {"another encoding than declared", "*Foo: \"caf\xC3\xA9\"\n", 0,
         "warning [9] *Foo: the file declares ISOLatin1, but the bytes are UTF-8"},
        {"the declared encoding", "*Foo: \"caf\xE9\"\n", 0, ""},
        {"a byte above 127 in a translation", "*PageSize A5/caf\xE9: \"\"\n", 3,
         "error [9] *PageSize: the byte 0xE9 stands where no colon follows"},
        {"a number that is none", "*FreeVM: \"many\"\n", 3, "error [9] *FreeVM: a number"},
        {"two bad numbers in one line", "*PaperDimension A4: \"a\"\n*PaperDimension A4: \"b\"\n", 3,
         "error [9,10] *PaperDimension: "},
        {"a lost closing quote", "*PageSize A5: \"1\n*DefaultHRC: A\n*%\"\n", 0,
         "warning [9] *PageSize: 1: other statements stand inside"},
        {"a misspelt keyword", "*DefualtPageSize: A4\n", 0,
         "warning [9] *DefualtPageSize: the keyword is unknown and very like"},
        {"a default that is none", "*DefaultInputSlot: Up\n*InputSlot Low: \"\"\n", 0,
         "*InputSlot: Up: the default names no option"},
        {"a constraint on nothing", "*UIConstraints: *PageSize A4 *Nothing On\n", 0,
         "warning [9] *UIConstraints: *PageSize *Nothing: the constraint names"},
        {"an included file", "*Include: \"more.ppd\"\n", 0, "warning [9] *Include: included"},
        {"a keyword of 41 characters", "*" + std::string(41, 'k') + ": 1\n", 3,
         "which ends the reading"},
        {"an open feature at the end", "*OpenUI *A: Boolean\n", 0,
         "warning [9] *A: the file ends while the feature is open"},
    };
    TestFolder folder;
    for (const auto& row : rows) {
        SCOPED_TRACE(row.what);
        WriteText(folder / "a.ppd", kBeginning + row.text);
        const Outcome run = RunKsfax(folder, {"check", "a.ppd", "--json"});
        EXPECT_EQ(run.code, row.code) << run.err;
        const std::string findings = Findings(run.Json()["files"][0]);
        if (*row.finding == '\0') {
            EXPECT_EQ(findings, "");
        } else {
            EXPECT_NE(findings.find(row.finding), std::string::npos) << findings;
        }
        EXPECT_EQ(folder.Names(), "a.ppd tmp ") << "a check writes nothing";
    }
}

TEST(Check, GivesEachOfManyFilesALine) {
    TestFolder folder;
    WriteText(folder / "good.ppd", kBeginning);
    WriteText(folder / "bad.ppd", kBeginning + "*FreeVM: \"x\"\n");
    const Outcome run = RunKsfax(folder, {"check", "good.ppd", "bad.ppd"});
    EXPECT_EQ(run.code, 3);
    EXPECT_EQ(run.out,
              "good.ppd: 0 errors, 0 warnings; 0 statements of 8 dropped\n"
              "bad.ppd: 1 error, 0 warnings; 1 statement of 9 dropped\n"
              "2 files: 1 without a finding, 1 with errors, 0 with warnings alone, 0 unreadable\n");
    const Outcome missing = RunKsfax(folder, {"check", "good.ppd", "none.ppd"});
    EXPECT_EQ(missing.code, 1);
    EXPECT_NE(missing.err.find("none.ppd cannot be read"), std::string::npos) << missing.err;
    EXPECT_EQ(RunKsfax(folder, {"check"}).code, 2);
}

TEST(Describe, TellsTheDescriptionAndWhetherTheCacheWasUsed) {
    TestFolder folder;
    WriteText(folder / "a.ppd", kBeginning + "*ImageableArea A4: \"12 12 583 830\"\n");
    const Outcome first = RunKsfax(folder, {"describe", "a.ppd", "--json"});
    ASSERT_EQ(first.code, 0) << first.err;
    const nlohmann::json json = first.Json();
    EXPECT_EQ(json["cacheUsed"], false);
    EXPECT_EQ(json["cacheFile"], (folder / "a.PDC").string());
    EXPECT_EQ(json["header"]["FileVersion"], 1.5);
    EXPECT_EQ(json["features"][0]["default"], "A4");
    const nlohmann::json a4 = json["features"][0]["options"][0];
    EXPECT_EQ(a4["width"], 595.0);
    EXPECT_EQ(a4["imageableArea"], nlohmann::json({12.0, 12.0, 583.0, 830.0}));

    const Outcome second = RunKsfax(folder, {"describe", "a.ppd"});
    EXPECT_EQ(second.code, 0);
    EXPECT_NE(second.out.find("taken from the cache file"), std::string::npos);
    EXPECT_NE(second.out.find("595 x 842     pt   209.9 x 297.0  mm"), std::string::npos)
        << second.out;
}

TEST(Describe, WritesNothingWhenThereIsNoDescription) {
    TestFolder folder;
    WriteText(folder / "a.ppd", kBeginning + "*" + std::string(41, 'k') + ": 1\n");
    for (const char* file : {"a.ppd", "none.ppd", "tmp"}) {
        const Outcome run = RunKsfax(folder, {"describe", file});
        EXPECT_EQ(run.code, 1);
        EXPECT_NE(run.err.find(file), std::string::npos) << run.err;
        EXPECT_EQ(folder.Names(), "a.ppd tmp ");
    }
}

}  // namespace
}  // namespace tool
