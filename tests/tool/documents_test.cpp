// What README.md and docs/ promise: their command lines run as printed and print what they show,
// the manual page and the completion know every option.

#include <regex>
#include <sstream>

#include <gtest/gtest.h>

#include "tests/tool/run_ksfax.h"

namespace tool {
namespace {

std::vector<std::string> Lines(const std::string& text) {
    std::vector<std::string> lines;
    std::istringstream stream(text);
    for (std::string line; std::getline(stream, line);) {
        lines.push_back(line);
    }
    return lines;
}

struct Shown {
    std::string command;
    std::vector<std::string> output;  // "..." stands for any lines
};

// The indented lines that begin with "$ ", with what is shown below each.
std::vector<Shown> CommandsIn(const std::string& document) {
    std::vector<Shown> all;
    bool inBlock = false;
    bool continues = false;
    for (std::string line : Lines(document)) {
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
    const std::vector<std::string> lines = Lines(output);
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

// The examples, and a shell that finds ksfax by its name.
class Documents : public testing::Test {
  protected:
    Documents() {
        std::filesystem::create_directories(folder / "bin");
        std::filesystem::create_directories(folder / "tmp");
        std::filesystem::create_directories(folder / "examples");
        std::filesystem::create_symlink(KSFAX_PROGRAM, folder / "bin/ksfax");
        for (const auto& entry : std::filesystem::directory_iterator(SOURCE_FOLDER "/examples")) {
            if (entry.path().extension() != ".PDC") {
                std::filesystem::copy(entry.path(), folder / "examples");
            }
        }
    }
    // Both output streams of it, as a terminal shows them.
    std::string Shell(const std::string& commands, int* status) {
        WriteText(folder / "tmp/script", commands);
        const std::string root = folder.path().string();
        const int result = std::system(("cd " + root + " && TMPDIR=" + root + "/tmp PATH=" + root +
                                        "/bin:$PATH bash tmp/script >tmp/output 2>&1")
                                           .c_str());
        *status = WIFEXITED(result) ? WEXITSTATUS(result) : -1;
        return FileText(folder / "tmp/output");
    }

    TestFolder folder;
};

TEST_F(Documents, CommandLinesRunAsPrinted) {
    // Names of temporary files begin anywhere, and some files hold the time or the path of others.
    const auto withoutChance = [](const std::string& text) {
        return std::regex_replace(std::regex_replace(text, std::regex("Kes[0-9A-F]+"), "Kes"),
                                  std::regex(" +[0-9,]+ bytes"), " N bytes");
    };
    for (const char* name :
         {"README.md", "docs/architecture.md", "docs/speed.md", "docs/ksfax.1"}) {
        const std::string document = FileText(std::filesystem::path(SOURCE_FOLDER) / name);
        ASSERT_NE(document, "") << name;
        for (Shown& shown : CommandsIn(document)) {
            int status = 0;
            const std::string output = Shell(shown.command, &status);
            EXPECT_TRUE(status == 0 || status == 3) << name << ": " << shown.command << "\n"
                                                    << status << "\n"
                                                    << output;
            for (std::string& line : shown.output) {
                line = withoutChance(line);
            }
            EXPECT_TRUE(Fits(withoutChance(output), shown.output)) << name << ": " << shown.command;
        }
    }
}

TEST_F(Documents, NameOnlyWhatTheBuildScriptKnows) {
    int status = 0;
    const std::string help = Shell("bash " SOURCE_FOLDER "/dev help", &status);
    ASSERT_EQ(status, 0) << help;
    const std::regex use(R"(\./dev ([a-z]+))");
    for (const char* name : {"README.md", "docs/architecture.md", "docs/speed.md"}) {
        const std::string document = FileText(std::filesystem::path(SOURCE_FOLDER) / name);
        for (std::sregex_iterator found(document.begin(), document.end(), use), end; found != end;
             ++found) {
            EXPECT_TRUE(help.find(found->str() + ' ') != std::string::npos ||
                        found->str(1) == "help")
                << name << " names " << found->str();
        }
    }
}

TEST_F(Documents, ManualPageAndCompletionKnowEveryOption) {
    const std::string manual = FileText(SOURCE_FOLDER "/docs/ksfax.1");
    const std::string completion = "source " SOURCE_FOLDER "/docs/ksfax.bash\n";
    // What completion offers for the last word.
    const auto offered = [&](const std::vector<std::string>& words) {
        std::string line;
        for (const std::string& word : words) {
            line += " '" + word + "'";
        }
        int status = 0;
        const std::string output =
            Shell(completion + "COMP_WORDS=(ksfax" + line + ")\nCOMP_CWORD=" +
                      std::to_string(words.size()) + "\n_ksfax ksfax '" + words.back() + "' '" +
                      (words.size() > 1 ? words[words.size() - 2] : "ksfax") +
                      "'\nprintf '%s\\n' \"${COMPREPLY[@]}\"\n",
                  &status);
        return Lines(output);
    };
    std::vector<std::string> commands = offered({""});
    std::erase_if(commands, [](const std::string& word) { return word.starts_with('-'); });
    ASSERT_EQ(commands.size(), 10u);
    size_t options = 0;
    for (const std::string& command : commands) {
        EXPECT_NE(manual.find(command), std::string::npos) << command;
        const std::vector<std::string> known = offered({command, "--"});
        const std::string help = RunKsfax(folder, {command, "--help"}).out;
        const std::regex option(R"(\n  (?:-h,)?(--[a-z-]+))");
        for (std::sregex_iterator found(help.begin(), help.end(), option), end; found != end;
             ++found, ++options) {
            EXPECT_EQ(std::ranges::count(known, found->str(1)), 1) << command << found->str(1);
            const std::string escaped = std::regex_replace(found->str(1), std::regex("-"), "\\-");
            EXPECT_NE(manual.find(escaped), std::string::npos) << command << escaped;
        }
    }
    EXPECT_GT(options, 60u);

    using Words = std::vector<std::string>;
    EXPECT_EQ(offered({"se"}), (Words{"settings", "send"}));
    EXPECT_EQ(offered({"send", "--resolution", ""}), (Words{"200x200", "200x100"}));
    EXPECT_EQ(offered({"--code-page", "9"}), (Words{""})) << "not an option of the program itself";
    EXPECT_EQ(offered({"query", "--code-page", "9"}), (Words{"932"}));
    EXPECT_EQ(offered({"describe", "examples/K"}), (Words{"examples/KSFAX.PPD"}));
    EXPECT_EQ(offered({"state", "--machine", "examples/"}), (Words{""})) << "only folders";
    EXPECT_EQ(offered({"settings", "--device", "e"}), (Words{""})) << "any text";
}

}  // namespace
}  // namespace tool
