// What README.md and docs/ promise: their command lines run as printed and print what they show,
// the manual page and the completion know every option.

#include <regex>

#include <gtest/gtest.h>

#include "tests/golden.h"
#include "tests/tool/run_ksfax.h"

namespace tool {
namespace {

struct Shown {
    std::string command;
    std::vector<std::string> output;  // "..." stands for any lines
};

// The indented lines that begin with "$ ", with what is shown below each.
std::vector<Shown> CommandsIn(const std::string& document) {
    std::vector<Shown> all;
    bool inBlock = false;
    bool continues = false;
    for (std::string line : LinesOf(document)) {
        if (!line.starts_with("    ")) {
            inBlock = false;
            continue;
        }
        line.erase(0, 4);
        if (line.ends_with("\\e")) {  // as the manual page writes a backslash
            line.pop_back();
        }
        if (continues) {
            all.back().command += '\n' + line;
        } else if (line.starts_with("$ ")) {
            all.push_back({.command = line.substr(2), .output = {}});
            inBlock = true;
        } else if (inBlock) {
            all.back().output.push_back(line);
        }
        continues = inBlock && line.ends_with('\\');
    }
    return all;
}

// Whether the output is what is shown.
testing::AssertionResult Fits(const std::string& output, const std::vector<std::string>& shown) {
    const std::vector<std::string> lines = LinesOf(output);
    size_t at = 0;
    bool skips = false;
    for (const std::string& expected : shown) {
        if (expected == "...") {
            skips = true;
            continue;
        }
        while (skips && at < lines.size() && lines[at] != expected) {
            ++at;
        }
        if (at == lines.size() || lines[at] != expected) {
            return testing::AssertionFailure() << "not as shown: " << expected << "\n" << output;
        }
        ++at;
        skips = false;
    }
    if (!shown.empty() && !skips && at != lines.size()) {
        return testing::AssertionFailure() << "not shown: " << lines[at];
    }
    return testing::AssertionSuccess();
}

std::string Document(const std::string& name) {
    return FileText(std::filesystem::path(SOURCE_FOLDER) / name);
}

class Documents : public testing::Test {
  protected:
    Documents() { folder.AddExamples(); }

    TestFolder folder;
};

TEST_F(Documents, CommandLinesRunAsPrinted) {
    // Names of temporary files begin anywhere, and some files hold the time or the path of others.
    const auto withoutChance = [](const std::string& text) {
        return std::regex_replace(std::regex_replace(text, std::regex("Kes[0-9A-F]+"), "Kes"),
                                  std::regex(" +[0-9,]+ bytes"), " N bytes");
    };
    for (const char* name : {"README.md", "docs/ksfax.1"}) {
        const std::vector<Shown> commands = CommandsIn(Document(name));
        EXPECT_GE(commands.size(), 4u) << name;
        for (const Shown& shown : commands) {
            // Both output streams, as a terminal shows them.
            const Outcome run = RunShell(folder, "exec 2>&1\n" + shown.command + '\n');
            EXPECT_TRUE(run.code == 0 || run.code == 3) << name << ": " << shown.command << "\n"
                                                        << run.code << "\n"
                                                        << run.out;
            std::vector<std::string> lines;
            for (const std::string& line : shown.output) {
                lines.push_back(withoutChance(line));
            }
            EXPECT_TRUE(Fits(withoutChance(run.out), lines)) << name << ": " << shown.command;
        }
    }
}

TEST_F(Documents, NameOnlyWhatTheBuildScriptKnows) {
    const Outcome help = RunShell(folder, "bash " SOURCE_FOLDER "/dev help\n");
    ASSERT_EQ(help.code, 0) << help.err;
    const std::regex use(R"(\./dev ([a-z]+))");
    for (const char* name : {"README.md", "docs/architecture.md", "docs/speed.md"}) {
        const std::string document = Document(name);
        std::sregex_iterator found(document.begin(), document.end(), use);
        EXPECT_NE(found, std::sregex_iterator()) << name;
        for (; found != std::sregex_iterator(); ++found) {
            EXPECT_TRUE(help.out.find(found->str() + ' ') != std::string::npos ||
                        found->str(1) == "help")
                << name << " names " << found->str();
        }
    }
}

TEST_F(Documents, ManualPageAndCompletionKnowEveryOption) {
    const std::string manual = Document("docs/ksfax.1");
    // What completion offers for the last word.
    const auto offered = [&](const std::string& words) {
        const std::string script = "source " SOURCE_FOLDER "/docs/ksfax.bash\n"
                                   "COMP_WORDS=(ksfax " +
                                   words +
                                   ")\n"
                                   "COMP_CWORD=$((${#COMP_WORDS[@]} - 1))\n"
                                   "_ksfax ksfax \"${COMP_WORDS[-1]}\" \"${COMP_WORDS[-2]}\"\n"
                                   "echo -n \"${COMPREPLY[@]}\"\n";
        return RunShell(folder, script).out;
    };
    const auto matches = [](const std::string& text, const std::string& expression) {
        const std::regex compiled(expression);
        std::vector<std::string> all;
        for (std::sregex_iterator found(text.begin(), text.end(), compiled), end; found != end;
             ++found) {
            all.push_back(found->str(1));
        }
        return all;
    };
    const std::vector<std::string> commands = matches(offered("''"), "(?:^| )([a-z]+)");
    ASSERT_EQ(commands.size(), 10u);
    size_t options = 0;
    for (const std::string& command : commands) {
        EXPECT_NE(manual.find(command), std::string::npos) << command;
        const std::string known = ' ' + offered(command + " --") + ' ';
        const std::string help = RunKsfax(folder, {command, "--help"}).out;
        for (const std::string& option : matches(help, R"(\n  (?:-h,)?(--[a-z-]+))")) {
            EXPECT_NE(known.find(' ' + option + ' '), std::string::npos) << command << option;
            const std::string escaped = std::regex_replace(option, std::regex("-"), "\\-");
            EXPECT_NE(manual.find(escaped), std::string::npos) << command << escaped;
            ++options;
        }
    }
    EXPECT_GT(options, 60u);

    const std::pair<std::string, std::string> rows[] = {
        {"se", "settings send"},
        {"send --resolution ''", "200x200 200x100"},
        {"--code-page 9", ""},  // not an option of the program itself
        {"query --code-page 9", "932"},
        {"describe examples/K", "examples/KSFAX.PPD"},
        {"state --machine examples/", ""},  // only folders
        {"settings --device e", ""},        // any text
    };
    for (const auto& [words, replies] : rows) {
        EXPECT_EQ(offered(words), replies) << words;
    }
}

}  // namespace
}  // namespace tool
