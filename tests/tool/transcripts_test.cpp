// Sessions at the command line, kept in tests/golden/transcripts as a terminal would show them:
//
//     # why
//     $ command, whose line may go on after a backslash
//         what it prints
//     ! what it prints on standard error
//     = its exit status, when it is not 0
//
// Each file is one bash in one folder, with the project's examples in `examples`. The folder's
// path reads /here, what chance makes differ has one spelling, and blank lines are left out.

#include <regex>

#include <gtest/gtest.h>

#include "tests/golden.h"
#include "tests/tool/run_ksfax.h"

namespace tool {
namespace {

bool IsOutput(const std::string& line) {
    return line.starts_with("    ") || line.starts_with("! ") || line.starts_with("= ");
}

std::string Replaced(std::string text, const std::string& from, const std::string& to) {
    for (size_t at = 0; (at = text.find(from, at)) != std::string::npos; at += to.size()) {
        text.replace(at, from.size(), to);
    }
    return text;
}

// `output` as the transcript shows it.
std::string Shown(std::string output, const std::string& mark, const TestFolder& folder) {
    std::string path = folder.path().string();
    for (const char* separator : {"/", "\\", "\\\\"}) {
        output = Replaced(output, Replaced(path, "/", separator), separator + std::string("here"));
    }
    const std::pair<const char*, const char*> rows[] = {
        // Names of temporary files begin anywhere.
        {"Kes[0-9A-F]+", "Kes"},
        {"(Kes\\S* ) +", "$1"},
        {"[0-9]+ [A-Z][a-z]+ 20[0-9]{2}, [0-9:]+", "TODAY"},
        // Some sizes are those of the paths inside, and a picture's is the packer's choice.
        {"((?:snapshot|cover page) +Kes\\S+ +)[0-9,]+", "$1N"},
        {"(CVP\", |mappingSize\": |TotalSize[\": ]+|the path has )[0-9]+", "$1N"},
    };
    for (const auto& [pattern, spelling] : rows) {
        output = std::regex_replace(output, std::regex(pattern), spelling);
    }
    std::string shown;
    for (const std::string& line : LinesOf(output)) {
        shown += line.empty() ? "" : mark + line + "\n";
    }
    return shown;
}

// The transcript with what its commands print now.
std::string Replay(const std::string& transcript) {
    TestFolder folder;
    TestFolder results;
    folder.AddExamples();
    std::string script;
    std::vector<std::string> texts(1);  // What stands before the first command, after it, ...
    bool continues = false;
    for (const std::string& line : LinesOf(transcript)) {
        const bool isCommand = continues || line.starts_with("$ ");
        if (!isCommand && IsOutput(line)) {
            continue;
        }
        texts.back() += line + '\n';
        if (!isCommand) {
            continue;
        }
        script += continues ? line : "{ " + line.substr(2);
        script += '\n';
        continues = line.ends_with('\\');
        if (!continues) {
            const std::string result = (results / std::to_string(texts.size())).string();
            script += "} >" + result + ".out 2>" + result + ".err; echo $? >" + result + ".code\n";
            texts.emplace_back();
        }
    }
    RunShell(folder, script);

    std::string now = texts[0];
    for (size_t i = 1; i < texts.size(); ++i) {
        const auto result = [&](const char* kind) {
            return FileText(results / (std::to_string(i) + kind));
        };
        const std::string code = result(".code");
        now += Shown(result(".out"), "    ", folder) + Shown(result(".err"), "! ", folder) +
               (code == "0\n" ? "" : "= " + code) + texts[i];
    }
    return now;
}

TEST(Transcripts, ShowWhatTheCommandsPrint) {
    int count = 0;
    for (const auto& entry :
         std::filesystem::directory_iterator(SOURCE_FOLDER "/tests/golden/transcripts")) {
        const std::string name = entry.path().filename().string();
        EXPECT_TRUE(IsRecorded("transcripts/" + name, Replay(FileText(entry.path()))));
        ++count;
    }
    EXPECT_GT(count, 0);
}

}  // namespace
}  // namespace tool
