// ksfax send, run as a script runs it.

#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/file.h>
#include <unistd.h>

#include "tests/tool/run_ksfax.h"

namespace tool {
namespace {

const std::string kCover = SOURCE_FOLDER "/examples/cover.bmp";
const std::string kMemo = SOURCE_FOLDER "/examples/memo.txt";

std::string List(int count) {
    std::string text = "name,number\n";
    for (int i = 1; i <= count; ++i) {
        text += "Receiver " + std::to_string(i) + ",+47 " + std::to_string(1000 + i) + "\n";
    }
    return text;
}

// A value of an INI file, by its line's beginning; "(none)" without such a line.
std::string Value(const std::string& ini, const std::string& key) {
    const size_t at = ("\r\n" + ini).find("\r\n" + key + "=");
    if (at == std::string::npos) {
        return "(none)";
    }
    const size_t begin = at + key.size() + 1;
    return ini.substr(begin, ini.find("\r\n", begin) - begin);
}

TEST(Send, LeavesTheJobFilesOfAShortList) {
    TestFolder folder;
    const Outcome run = RunKsfax(folder, {"send", "--to", "Anna=Berg=+47 22", "--to", "Ö=1",
                                          "--cover", kCover, "--memo", kMemo, "--out", "job",
                                          "--json"});
    ASSERT_EQ(run.code, 0) << run.err;
    EXPECT_EQ(run.err, "");
    const nlohmann::json job = run.Json();
    EXPECT_EQ(job["cancelled"], false);
    EXPECT_EQ(job["maxReceivers"], 50);
    EXPECT_EQ(job["temp"], nullptr);
    EXPECT_EQ(job["dialFiles"], nlohmann::json::array());
    EXPECT_EQ(job["mappingGone"], true);
    EXPECT_TRUE(job["mappingName"].get<std::string>().ends_with("CVP"));
    const std::string snapshot = job["snapshot"];
    // Its path on drive Z:, a terminator, and 8 bytes before it.
    EXPECT_EQ(job["mappingSize"], 8 + 2 * (2 + snapshot.size() + 1));
    EXPECT_EQ(FileText(job["coverBitmap"].get<std::string>()), FileText(kCover));
    EXPECT_EQ(FileText(job["memo"].get<std::string>()), FileText(kMemo));
    EXPECT_TRUE(FileText(job["coverPage"].get<std::string>()).starts_with("\x89PNG"));

    const std::string ini = FileText(snapshot);
    EXPECT_EQ(Value(ini, "CANCEL_PEV"), "0");
    EXPECT_EQ(Value(ini, "Num"), "2");
    EXPECT_EQ(Value(ini, "Name1"), "Anna=Berg");
    EXPECT_EQ(Value(ini, "Number1"), "+47 22");
    EXPECT_EQ(Value(ini, "Name2"), "\xD6");
    EXPECT_EQ(Value(ini, "TEMP"), "(none)");
    // The snapshot is the fax job file as it stood; the machine's own is kept with the job.
    EXPECT_EQ(FileText(job["iniFile"].get<std::string>()), ini);
    EXPECT_EQ(folder.Names(), "job tmp ");
    EXPECT_TRUE(std::filesystem::is_empty(folder / "tmp")) << "a machine or a file is left";
}

TEST(Send, PartsALongListIntoHundreds) {
    const struct {
        int receivers;
        std::vector<std::string> sizes;
        int maxReceivers;
    } rows[] = {
        {100, {}, 100}, {101, {"100", "1"}, 101}, {250, {"100", "100", "50"}, 250}};
    for (const auto& row : rows) {
        SCOPED_TRACE(row.receivers);
        TestFolder folder;
        WriteText(folder / "list.csv", List(row.receivers));
        const Outcome run =
            RunKsfax(folder, {"send", "--receivers", "list.csv", "--out", "job", "--json"});
        ASSERT_EQ(run.code, 0) << run.err;
        const nlohmann::json job = run.Json();
        EXPECT_EQ(job["maxReceivers"], row.maxReceivers);
        EXPECT_EQ(job["temp"] == nullptr, row.sizes.empty());
        EXPECT_EQ(job["coverBitmap"], nullptr);
        EXPECT_EQ(job["memo"], nullptr);
        ASSERT_EQ(job["dialFiles"].size(), row.sizes.size());
        int first = 1;
        for (size_t i = 0; i < row.sizes.size(); ++i) {
            const std::string ini = FileText(job["dialFiles"][i].get<std::string>());
            EXPECT_EQ(Value(ini, "Num"), row.sizes[i]);
            EXPECT_EQ(Value(ini, "Name1"), "Receiver " + std::to_string(first));
            EXPECT_EQ(Value(ini, "Number" + row.sizes[i]),
                      "+47 " + std::to_string(1000 + first - 1 + std::stoi(row.sizes[i])));
            first += 100;
        }
        const std::string last =
            Value(FileText(job["snapshot"].get<std::string>()), "Name" + std::to_string(100));
        EXPECT_EQ(last, row.sizes.empty() ? "Receiver 100" : "(none)");
    }
}

TEST(Send, TakesTheMaximumAsTheDriverDoes) {
    const struct {
        const char* maximum;
        int driver;
        int code;
    } rows[] = {{"49", 50, 3},   {"60", 60, 0},    {"999", 999, 0}, {"1000", 50, 3},
                {"-1", 50, 3}, {"65596", 60, 0}};
    for (const auto& row : rows) {
        SCOPED_TRACE(row.maximum);
        TestFolder folder;
        WriteText(folder / "list.csv", List(60));
        const Outcome run = RunKsfax(folder, {"send", "--receivers", "list.csv", "--max-receivers",
                                              row.maximum, "--json"});
        EXPECT_EQ(run.code, row.code) << run.err;
        EXPECT_EQ(run.Json()["maxReceivers"], row.driver);
        EXPECT_EQ(run.Json()["cancelled"], row.code != 0);
        EXPECT_EQ(run.err.find("at most 50") != std::string::npos, row.code != 0);
    }
}

TEST(Send, TellsOfACancelledDialog) {
    TestFolder folder;
    const Outcome run = RunKsfax(folder, {"send", "--cancel", "--to", "A=1", "--memo", kMemo,
                                          "--json", "--out", "job"});
    EXPECT_EQ(run.code, 3);
    const nlohmann::json job = run.Json();
    EXPECT_EQ(job["cancelled"], true);
    EXPECT_EQ(job["coverPage"], nullptr);
    EXPECT_EQ(job["memo"], nullptr);
    EXPECT_EQ(Value(FileText(job["snapshot"].get<std::string>()), "CANCEL_PEV"), "1");
    EXPECT_EQ(Value(FileText(job["snapshot"].get<std::string>()), "Num"), "(none)");
    EXPECT_EQ(job["mappingGone"], true);
}

TEST(Send, RefusesBadInputBeforeAnythingIsWritten) {
    const struct {
        const char* what;
        std::vector<std::string> arguments;
        int code;
        const char* says;
    } rows[] = {
        {"no receiver", {}, 2, "--to"},
        {"no number", {"--to", "Anna"}, 2, "NAME=NUMBER"},
        {"an empty number", {"--to", "Anna="}, 2, "no number"},
        {"no digit", {"--to", "Anna=fax"}, 2, "is no fax number"},
        {"a line break in a name", {"--to", "A\nNum=9=1"}, 2, "line break"},
        {"a control character in a number", {"--to", "A=1\x7F"}, 2, "control character"},
        {"a name of 101 characters", {"--to", std::string(101, 'a') + "=1"}, 2, "at most 100"},
        {"not in the code page", {"--to", "\xE6\x97\xA5=1"}, 2, "code page 1252"},
        {"not UTF-8", {"--to", "\xFF=1"}, 2, "UTF-8"},
        {"a list without number", {"--receivers", "bad.csv"}, 1, "bad.csv:3:"},
        {"a list of nobody", {"--receivers", "empty.csv"}, 1, "no receiver"},
        {"a missing list", {"--receivers", "none.csv"}, 1, "none.csv"},
        {"a cover that is text", {"--to", "A=1", "--cover", "bad.csv"}, 1, "no bitmap"},
        {"a missing cover", {"--to", "A=1", "--cover", "none.bmp"}, 1, "none.bmp"},
        {"a memo that is a folder", {"--to", "A=1", "--memo", "tmp"}, 1, "is a folder"},
        {"a memo that is no ordinary file", {"--to", "A=1", "--memo", "/dev/null"}, 1, "/dev/null"},
        {"an empty value", {"--to", "A=1", "--memo", ""}, 2, "is empty"},
        {"a memo with zero bytes", {"--to", "A=1", "--memo", kCover}, 1, "no text"},
        {"a memo not in the code page", {"--to", "A=1", "--memo", "jp.txt"}, 1, "jp.txt:2:"},
        {"an output folder below a file", {"--to", "A=1", "--out", "bad.csv/x"}, 1, "bad.csv/x"},
        {"an output folder of 300 characters",
         {"--to", "A=1", "--out", std::string(150, 'a') + "/" + std::string(150, 'b')},
         1,
         "at most 244"},
        {"an unknown option", {"--to", "A=1", "--nonsense"}, 2, "nonsense"},
        {"an unknown code page", {"--to", "A=1", "--code-page", "850"}, 2, "850"},
    };
    for (const auto& row : rows) {
        SCOPED_TRACE(row.what);
        TestFolder folder;
        WriteText(folder / "bad.csv", "name;number\nA;1\n\"B;2\"\n");
        WriteText(folder / "empty.csv", "\n\n");
        WriteText(folder / "jp.txt", "a\n\xE6\x97\xA5\n");
        std::vector<std::string> arguments = {"send", "--machine", "machine"};
        arguments.insert(arguments.end(), row.arguments.begin(), row.arguments.end());
        if (std::ranges::find(arguments, "--out") == arguments.end()) {
            arguments.insert(arguments.end(), {"--out", "job"});
        }
        const Outcome run = RunKsfax(folder, arguments);
        EXPECT_EQ(run.code, row.code);
        EXPECT_NE(run.err.find(row.says), std::string::npos) << run.err;
        EXPECT_EQ(std::ranges::count(run.err, '\n'), 1) << run.err;
        EXPECT_EQ(run.out, "");
        EXPECT_EQ(folder.Names(), "bad.csv empty.csv jp.txt tmp ");
        EXPECT_TRUE(std::filesystem::is_empty(folder / "tmp"));
    }
}

TEST(Send, ReadsListsAsOtherProgramsWriteThem) {
    const struct {
        const char* what;
        const char* text;
        const char* name;
        const char* number;
    } rows[] = {
        {"no heading", "Anna,1\r\n", "Anna", "1"},
        {"a byte order mark", "\xEF\xBB\xBF" "Anna,1", "Anna", "1"},
        {"columns by name", "Number;Company;NAME\n1;X;Anna\n", "Anna", "1"},
        {"quotes and a comma", "\"Berg, \"\"Anna\"\"\",\" 1 \"\n", "Berg, \"Anna\"", "1"},
        {"tabs", "Anna\t1\n", "Anna", "1"},
        {"a comma in a name", "Berg, Anna;+47 22", "Berg, Anna", "+47 22"},
        {"one in quotes", "\"Berg, Anna\"\t+47 22", "Berg, Anna", "+47 22"},
        {"cells that hold nothing", ";;\nAnna;1;;\n;\n", "Anna", "1"},
        {"quotes around the whole name", "\"\"\"Anna\"\"\",1\n", "\"\"Anna\"\"", "1"},
    };
    for (const auto& row : rows) {
        SCOPED_TRACE(row.what);
        TestFolder folder;
        WriteText(folder / "list.csv", row.text);
        const Outcome run =
            RunKsfax(folder, {"send", "--receivers", "list.csv", "--out", "job", "--json"});
        ASSERT_EQ(run.code, 0) << run.err;
        const std::string ini = FileText(run.Json()["snapshot"].get<std::string>());
        EXPECT_EQ(Value(ini, "Name1"), row.name);
        EXPECT_EQ(Value(ini, "Number1"), row.number);
    }
}

TEST(Send, KeepsTheMachineFromRunToRun) {
    TestFolder folder;
    const std::vector<std::string> base = {"send", "--machine", "m", "--json", "--to"};
    const auto with = [&](std::vector<std::string> more) {
        more.insert(more.begin(), base.begin(), base.end());
        return more;
    };
    const Outcome first = RunKsfax(folder, with({"\xE6\x97\xA5\xE6\x9C\xAC=1", "--code-page",
                                                 "932", "--max-receivers", "77"}));
    ASSERT_EQ(first.code, 0) << first.err;
    EXPECT_EQ(first.Json()["iniFile"].get<std::string>(),
              (folder / "m/drive_c/Windows/KSFAXJOB.INI").string());
    EXPECT_EQ(Value(FileText(first.Json()["snapshot"].get<std::string>()), "Name1"),
              "\x93\xFA\x96\x7B");
    // The second run finds the first one's maximum and code page.
    const Outcome second = RunKsfax(folder, with({"\xE6\x9C\xAC=2"}));
    ASSERT_EQ(second.code, 0) << second.err;
    EXPECT_EQ(second.Json()["maxReceivers"], 77);
    EXPECT_EQ(Value(FileText(second.Json()["snapshot"].get<std::string>()), "Name1"), "\x96\x7B");

    const Outcome state = RunKsfax(folder, {"state", "--machine", "m", "--json"});
    ASSERT_EQ(state.code, 0) << state.err;
    EXPECT_EQ(state.Json()["codePage"], 932);
    EXPECT_EQ(state.Json()["printers"][0]["name"], "Fax");
    EXPECT_EQ(state.Json()["faxJobFile"]["FAXDRIVER"]["MAXRCVER"], "77");
    EXPECT_EQ(state.Json()["faxJobFile"]["DIALLIST"]["Name1"], "\xE6\x9C\xAC");
    const Outcome shown = RunKsfax(folder, {"state", "--machine", "m"});
    EXPECT_NE(shown.out.find("MAXRCVER  77\n"), std::string::npos) << shown.out;
    EXPECT_EQ(RunKsfax(folder, {"state", "--machine", "none"}).code, 1);
    EXPECT_FALSE(std::filesystem::exists(folder / "none"));

    WriteText(folder / "m/machine.json", "{\"spooler\": 3}");
    const auto jobs = [&] {
        return std::distance(std::filesystem::directory_iterator(folder / "tmp"), {});
    };
    const auto before = jobs();
    const Outcome damaged = RunKsfax(folder, with({"A=1"}));
    EXPECT_EQ(damaged.code, 1);
    EXPECT_NE(damaged.err.find("machine.json is damaged"), std::string::npos) << damaged.err;
    EXPECT_EQ(jobs(), before) << "a folder for no job is left";
}

TEST(Send, NeverSendsWhatAnEarlierJobLeft) {
    // A folder stands where the memo or a part of the list has to be written.
    for (const char* name : {"KSMEMO.TXT", "Dial02.ini"}) {
        TestFolder folder;
        std::filesystem::create_directories(folder / "job" / name);
        WriteText(folder / "list.csv", List(101));
        const Outcome run = RunKsfax(folder, {"send", "--receivers", "list.csv", "--memo", kMemo,
                                              "--out", "job"});
        EXPECT_EQ(run.code, 1) << run.out;
        EXPECT_NE(run.err.find(name), std::string::npos) << run.err;
        EXPECT_EQ(std::ranges::count(run.err, '\n'), 1) << run.err;
    }
}

TEST(Send, TellsWhenTheJobFileCannotBeWritten) {
    TestFolder folder;
    ASSERT_EQ(RunKsfax(folder, {"send", "--to", "A=1", "--machine", "m", "--out", "one"}).code, 0);
    // A folder in its place: even the superuser cannot write that.
    const auto ini = folder / "m/drive_c/Windows/KSFAXJOB.INI";
    std::filesystem::remove(ini);
    std::filesystem::create_directory(ini);
    for (const char* cancel : {"", "--cancel"}) {
        std::vector<std::string> words = {"send", "--to", "B=2", "--machine", "m", "--out", "two"};
        if (*cancel != 0) {
            words.push_back(cancel);
        }
        const Outcome run = RunKsfax(folder, words);
        EXPECT_EQ(run.code, 1) << run.out;
        EXPECT_NE(run.err.find("KSFAXJOB.INI cannot be written"), std::string::npos) << run.err;
    }
    EXPECT_TRUE(std::filesystem::is_empty(folder / "two"));
}

TEST(Send, TakesTheFolderAsShellsWriteIt) {
    TestFolder folder;
    EXPECT_EQ(RunKsfax(folder, {"send", "--to", "A=1", "--out", "job/"}).code, 0);
    EXPECT_EQ(RunKsfax(folder, {"send", "--to", "A=1", "--out", "./job/."}).code, 0);
    const Outcome other = RunKsfax(folder, {"send", "--to", "A=1", "--out", "JOB"});
    EXPECT_EQ(other.code, 1);
    EXPECT_NE(other.err.find("letter case"), std::string::npos) << other.err;
    EXPECT_EQ(folder.Names(), "job tmp ");

    // 125 double-byte characters are too many for the companion module's 259 bytes.
    std::string deep;
    for (int i = 0; i < 125; ++i) {
        deep += "\xE6\x97\xA5" + std::string(i % 60 == 59 ? "/" : "");
    }
    const Outcome bytes =
        RunKsfax(folder, {"send", "--to", "A=1", "--code-page", "932", "--out", deep});
    EXPECT_EQ(bytes.code, 1);
    EXPECT_NE(bytes.err.find("at most 244"), std::string::npos) << bytes.err;
    EXPECT_EQ(folder.Names(), "job tmp ");
}

TEST(Send, WaitsForAnotherRunOnItsMachine) {
    TestFolder folder;
    std::filesystem::create_directory(folder / "m");
    const int lock = open((folder / "m/lock").c_str(), O_RDWR | O_CREAT | O_CLOEXEC, 0666);
    ASSERT_EQ(flock(lock, LOCK_EX), 0);
    const std::string start = "cd '" + folder.path().string() + "' && (" KSFAX_PROGRAM
                              " send --to A=1 --machine m --out job >out 2>&1; echo $? >done) &";
    ASSERT_EQ(std::system(start.c_str()), 0);
    usleep(300'000);
    EXPECT_FALSE(std::filesystem::exists(folder / "done"));
    EXPECT_FALSE(std::filesystem::exists(folder / "m/drive_c"));
    close(lock);
    for (int i = 0; i < 500 && FileText(folder / "done").empty(); ++i) {
        usleep(20'000);
    }
    EXPECT_EQ(FileText(folder / "done"), "0\n") << FileText(folder / "out");
}

TEST(Program, TellsItsVersionAndItsCommands) {
    TestFolder folder;
    EXPECT_EQ(RunKsfax(folder, {"--version"}).out, "ksfax " KSFAX_VERSION "\n");
    for (const std::vector<std::string>& arguments :
         {std::vector<std::string>{"--help"}, {"send", "--help"}}) {
        const Outcome help = RunKsfax(folder, arguments);
        EXPECT_EQ(help.code, 0);
        EXPECT_NE(help.out.find("send"), std::string::npos);
    }
    EXPECT_EQ(RunKsfax(folder, {}).code, 2);
    EXPECT_EQ(RunKsfax(folder, {"paint"}).code, 2);
}

class SendWithPpd : public testing::Test {
  protected:
    SendWithPpd() { WriteText(folder / "a.ppd", ppd); }

    Outcome Run(std::vector<std::string> more) {
        more.insert(more.begin(), {"send", "--ppd", "a.ppd", "--to", "A=1", "--out", "job"});
        return RunKsfax(folder, more);
    }
    // The PPD with each text in it replaced.
    void Change(const std::vector<std::pair<std::string, std::string>>& changes) {
        std::string changed = ppd;
        for (const auto& [from, to] : changes) {
            changed.replace(changed.find(from), from.size(), to);
        }
        WriteText(folder / "a.ppd", changed);
    }

    const std::string ppd = FileText(SOURCE_FOLDER "/examples/KSFAX.PPD");
    TestFolder folder;
};

TEST_F(SendWithPpd, GoesTheWholeRoad) {
    const Outcome first = Run({"--machine", "m", "--country", "49", "--json"});
    ASSERT_EQ(first.code, 0) << first.err;
    EXPECT_EQ(
        first.Json()["settings"],
        nlohmann::json::parse(
            R"({"paper": "A4", "paperCode": 9, "orientation": "portrait", "resolution": [200, 200],
            "dots": [1654, 2339]})"));
    EXPECT_EQ(first.Json()["query"],
              nlohmann::json::parse(R"({"canPrint": true, "message": null, "text": null})"));
    EXPECT_EQ(first.Json()["mappingGone"], true);

    const Outcome second = Run({"--machine", "m", "--paper", "b5 JIS 182 x 257 mm", "--landscape",
                                "--resolution", "200x100", "--json"});
    ASSERT_EQ(second.code, 0) << second.err;
    EXPECT_EQ(second.Json()["settings"],
              nlohmann::json::parse(
                  R"({"paper": "JISB5", "paperCode": 13, "orientation": "landscape",
            "resolution": [200, 100], "dots": [2024, 717]})"));

    // What the road leaves with the printer.
    const nlohmann::json state = RunKsfax(folder, {"state", "--machine", "m", "--json"}).Json();
    const nlohmann::json& data = state["printers"][0]["data"];
    EXPECT_EQ(data["Forms?"], 2);
    EXPECT_EQ(data["UserName"], "User");
    EXPECT_EQ(data["ComputerName"], "FAXPC");
    EXPECT_EQ(data["PrinterData"]["installableSelections"], nlohmann::json({0, 1, 0}));
    EXPECT_EQ(std::ranges::count_if(state["forms"],
                                    [](const auto& form) { return form["kind"] == "printer"; }),
              10);

    WriteText(folder / "b.ppd", ppd);
    const Outcome other =
        RunKsfax(folder, {"send", "--ppd", "b.ppd", "--to", "A=1", "--machine", "m"});
    EXPECT_EQ(other.code, 1);
    EXPECT_NE(other.err.find("installed with a.ppd"), std::string::npos) << other.err;
    EXPECT_NE(other.err.find("ksfax install b.ppd"), std::string::npos) << other.err;
}

TEST_F(SendWithPpd, TellsWhatThePpdOffers) {
    Change({{"*Resolution 200x100dpi", "*Resolution 300dpi"}});
    const struct {
        const char* what;
        std::vector<std::string> arguments;
        int code;
        const char* says;
    } rows[] = {
        {"an unknown paper", {"--paper", "A3"}, 1, "Letter, Legal, Executive, A4,"},
        {"a resolution that it lacks", {"--resolution", "200x100"}, 1, "200x200, 300x300"},
        {"a resolution that faxes lack", {"--resolution", "300x300"}, 2, "200x100"},
    };
    for (const auto& row : rows) {
        std::vector<std::string> arguments = row.arguments;
        arguments.insert(arguments.end(), {"--machine", "m"});
        const Outcome run = Run(arguments);
        EXPECT_EQ(run.code, row.code) << row.what;
        EXPECT_NE(run.err.find(row.says), std::string::npos) << row.what << ": " << run.err;
        EXPECT_FALSE(std::filesystem::exists(folder / "m")) << row.what;
        EXPECT_FALSE(std::filesystem::exists(folder / "job")) << row.what;
    }
    EXPECT_EQ(RunKsfax(folder, {"send", "--paper", "A4", "--to", "A=1"}).code, 2);
    EXPECT_EQ(Run({"--resolution", "200x200"}).code, 0);
}

TEST_F(SendWithPpd, EndsWithTheRefusalOfTheJob) {
    // Thick paper does not go into the lower cassette.
    Change({{"*DefaultInputSlot: AutoSelect", "*DefaultInputSlot: Lower"},
            {"*DefaultMediaType: Plain", "*DefaultMediaType: Thick"}});
    const Outcome run = Run({"--json"});
    EXPECT_EQ(run.code, 3);
    EXPECT_EQ(run.Json()["cancelled"], false);
    EXPECT_EQ(run.Json()["query"]["canPrint"], false);
    EXPECT_EQ(run.Json()["query"]["message"], 40054);
    EXPECT_NE(run.err.find("40054 " + run.Json()["query"]["text"].get<std::string>()),
              std::string::npos)
        << run.err;
}

}  // namespace
}  // namespace tool
