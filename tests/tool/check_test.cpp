// ksfax check and describe, run as a PPD author runs them.

#include <gtest/gtest.h>

#include "tests/tool/run_ksfax.h"

namespace tool {
namespace {

// Comes before each row's own statements, which begin at line 9.
const std::string kBeginning = "*PPD-Adobe: \"4.3\"\n"
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

struct CheckRow {
    const char* what;
    std::string text;
    int code;
    const char* finding;  // empty: none
};

// Checks each row's text as a file of its own, in one run of the program for all that lose
// nothing and one each for the others, which share their exit status.
void ExpectFindings(const std::vector<CheckRow>& rows) {
    std::vector<std::vector<CheckRow>> runs(1);
    for (const CheckRow& row : rows) {
        if (row.code == 0) {
            runs[0].push_back(row);
        } else {
            runs.push_back({row});
        }
    }
    for (const std::vector<CheckRow>& run : runs) {
        TestFolder folder;
        std::vector<std::string> arguments = {"check", "--json"};
        for (const CheckRow& row : run) {
            arguments.push_back("row" + std::to_string(arguments.size()) + ".ppd");
            WriteText(folder / arguments.back(), row.text);
        }
        const Outcome outcome = RunKsfax(folder, arguments);
        EXPECT_EQ(outcome.code, run.front().code) << run.front().what << outcome.err;
        const nlohmann::json files = outcome.Json()["files"];
        for (size_t i = 0; i < run.size(); ++i) {
            const std::string findings = Findings(files[i]);
            if (*run[i].finding == '\0') {
                EXPECT_EQ(findings, "") << run[i].what;
            } else {
                EXPECT_NE(findings.find(run[i].finding), std::string::npos)
                    << run[i].what << '\n'
                    << findings.substr(0, 2000);
            }
        }
        EXPECT_EQ(folder.Names().find("PDC"), std::string::npos) << "a check writes nothing";
    }
}

TEST(Check, FindsWhatIsWrongAndWhere) {
    std::vector<CheckRow> rows = {
        {"nothing", "", 0, ""},
        {"a closing keyword of another feature", "*OpenUI *A: Boolean\n*CloseUI: *PageSize\n", 0,
         "warning [10] *CloseUI: *PageSize is closed while *A of line 9 is open"},
        {"a file cut inside a value", "*PageSize A5: \"\n1 2", 3,
         "error [9] *PageSize: the file ends inside this statement"},
        {"a last line without end", "*DefaultHRC: A", 3, "error [9] *DefaultHRC: the file ends"},
        {"a feature opened twice", "*OpenUI *PageSize: PickOne\n*CloseUI: *PageSize\n", 0,
         "warning [9] *OpenUI: *PageSize is open from line 4 before"},
        {"a printable area outside the sheet", "*ImageableArea A4: \"0 0 600 842\"\n", 0,
         "warning [9] *ImageableArea: A4: the printable area reaches beyond the sheet"},
        {"an empty area that also reaches beyond it", "*ImageableArea A4: \"600 0 700 842\"\n", 0,
         "warning [9] *ImageableArea: A4: the printable area is empty"},
        {"a paper without size", "*PageSize A5: \"\"\n*ImageableArea A5: \"1 1 9 9\"\n", 0,
         "warning [9] *PageSize: A5: the paper has no size\n"},
        {"a paper without height", "*PageSize A5: \"\"\n*PaperDimension A5: \"9 0\"\n", 0,
         "warning [10] *PaperDimension: A5: the paper's width or height is missing"},
        {"a custom size without largest sheet", "*CustomPageSize True: \"c\"\n", 0,
         "warning [9] *CustomPageSize: *CustomPageSize has no effect"},
        {"resolutions without number", "*Resolution fine: \"\"\n", 0,
         "warning [9] *Resolution: fine: no number of dots"},
        {"a word that counts as False", "*ColorDevice: Yes\n", 0,
         "warning [9] *ColorDevice: the value is neither"},
        {"*End without line end", "*End", 0, "warning [9] *End: the last line has no line end"},
        {"a group that stays open", "*OpenGroup: Extra/More\n", 0,
         "warning [9] *OpenGroup: Extra: the file ends while the group is open"},
        {"a standard keyword very like one of the driver's", "*PrintPSErrors: True\n", 0, ""},
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
         "warning [9] *InputSlot: \"Up\": the default names no option"},
        {"a default with a blank after it", "*InputSlot Up: \"\"\n*DefaultInputSlot: Up \n", 0,
         "warning [10] *InputSlot: \"Up \": the default names no option"},
        {"a default of nothing", "*DefaultHRC: A\n", 0,
         "warning [9] *HRC: \"A\": the feature has a default but no options"},
        {"a constraint on nothing", "*UIConstraints: *PageSize A4 *Nothing On\n", 0,
         "warning [9] *UIConstraints: *PageSize *Nothing: the constraint names"},
        {"constraints on a keyword whose options are another's",
         "*UIConstraints: *PageSize A4 *PageRegion A4\n*UIConstraints: *PageRegion *PageSize\n", 0,
         "warning [9,10] *UIConstraints: *PageRegion: the options of this keyword belong"},
        {"an order of nothing", "*OrderDependency: 1 AnySetup *Nothing\n", 0,
         "warning [9] *OrderDependency: *Nothing: the order dependency names"},
        {"an included file", "*Include: \"more.ppd\"\n", 0, "warning [9] *Include: included"},
        {"a keyword of 41 characters", "*" + std::string(41, 'k') + ": 1\n", 3,
         "which ends the reading"},
        {"an open feature at the end", "*OpenUI *A: Boolean\n", 0,
         "warning [9] *A: the file ends while the feature is open"},
    };
    for (CheckRow& row : rows) {
        row.text = kBeginning + row.text;
    }
    ExpectFindings(rows);
}

TEST(Check, FindsWhatIsWrongWithTheWholeFile) {
    const auto many = [](unsigned count, const std::string& before, const std::string& after) {
        std::string text;
        for (unsigned i = 0; i < count; ++i) {
            text += before + std::to_string(i) + after;
        }
        return text;
    };
    const std::string version = "*FileVersion: \"1.5\"\n";
    ExpectFindings({
        {"no byte", "", 3, "error [] *: the file is empty"},
        {"UTF-8 with its mark", "\xEF\xBB\xBF" + kBeginning, 0, "warning [1] *: the file begins"},
        {"UTF-16", std::string("\xFF\xFE*\0E\0", 6), 3, "error [1] *: the file is UTF-16"},
        {"65 features of which a well-known one is the last",
         version + many(64, "*OpenUI *F", ": PickOne\n") + "*HRC 1: \"\"\n", 0,
         "warning [66] *HRC: a record has room for 64 features"},
        {"256 options, the last of them in a constraint",
         version + many(256, "*Duplex O", ": \"\"\n") + "*UIConstraints: *Duplex O255 *Duplex\n", 0,
         "warning [2] *Duplex: the feature has more than 255 options"},
        {"the same",
         version + many(256, "*Duplex O", ": \"\"\n") + "*UIConstraints: *Duplex O255 *Duplex\n", 0,
         "warning [258] *UIConstraints: the constraint names a feature's 256th option"},
        {"65536 constraints",
         version + "*Duplex A: \"\"\n" + many(65536, "*UIConstraints: *Duplex *Duplex A%", "\n"), 3,
         "error [65538] *UIConstraints: there are more than 65535 constraints"},
        {"no version", "*NickName: N\n", 0, "warning [] *FileVersion: without a FileVersion"},
        {"a version of nothing", "\n*FileVersion: \"0\"\n", 0,
         "warning [2] *FileVersion: without a FileVersion"},
        {"a version without quotes", "*NickName: \"N\"\n*FileVersion: 1.5\n", 0,
         "warning [2] *FileVersion: the cache file is never used"},
        {"the word in a comment", "*% FileVersion\n*NickName: \"N\"\n" + version, 0,
         "warning [3] *FileVersion: the cache file is never used"},
    });
}

TEST(Check, FoldsRepeatsAndObeysNoControlCharacter) {
    TestFolder folder;
    WriteText(folder / "a.ppd",
              kBeginning + "*Include: \"x\"\n*DefaultDuplex: A\x1B[2J\n*Include: \"y\"\n");
    const Outcome run = RunKsfax(folder, {"check", "a.ppd"});
    EXPECT_NE(run.out.find("(2 times, lines 9, 11)"), std::string::npos) << run.out;
    EXPECT_NE(run.out.find("\"A [2J\""), std::string::npos) << run.out;
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

TEST(Describe, TellsWhenNoCacheFileCouldBeWritten) {
    TestFolder folder;
    WriteText(folder / "a.ppd", kBeginning + "*PageSize A5/\x1B[2J: \"\"\n");
    std::filesystem::create_directory(folder / "a.PDC");
    const Outcome run = RunKsfax(folder, {"describe", "a.ppd"});
    EXPECT_EQ(run.code, 0);
    EXPECT_NE(run.out.find("no cache file could be written"), std::string::npos) << run.out;
    const nlohmann::json json = RunKsfax(folder, {"describe", "a.ppd", "--json"}).Json();
    EXPECT_EQ(json["cacheFile"], nullptr);
    EXPECT_TRUE(json["header"]["PpdFileName"].get<std::string>().ends_with("\\a.ppd"));
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
