#pragma once

// Recorded results: whole answers kept as text files in tests/golden, which a reviewer reads as
// the difference that a change makes. `./dev renew` writes them anew.

#include <algorithm>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <functional>
#include <iterator>
#include <sstream>
#include <string>
#include <vector>

#include <gtest/gtest.h>

// Whether `actual` is what tests/golden/`name` holds. On failure the first line that differs is
// told. With KSFAX_RENEW in the environment the file is written instead.
inline testing::AssertionResult IsRecorded(const std::string& name, const std::string& actual) {
    const std::filesystem::path file = std::filesystem::path(SOURCE_FOLDER) / "tests/golden" / name;
    if (std::getenv("KSFAX_RENEW") != nullptr) {
        std::filesystem::create_directories(file.parent_path());
        std::ofstream(file, std::ios::binary) << actual;
        return testing::AssertionSuccess();
    }
    std::ifstream stream(file, std::ios::binary);
    const std::string recorded{std::istreambuf_iterator<char>(stream), {}};
    if (recorded == actual) {
        return testing::AssertionSuccess();
    }
    std::istringstream recordedLines(recorded);
    std::istringstream actualLines(actual);
    std::string expected;
    std::string found;
    int line = 0;
    do {
        ++line;
        expected = found = "(end)";
        std::getline(recordedLines, expected);
        std::getline(actualLines, found);
    } while (expected == found && (recordedLines || actualLines));
    return testing::AssertionFailure()
           << "tests/golden/" << name << ":" << line << ": recorded: " << expected
           << "\n  now: " << found << "\n(./dev renew records what is now; look at git diff then)";
}

// The same of a file of questions with their answers, "question -> answer" a line: each is asked
// again. Other lines are comments.
inline testing::AssertionResult
AnswersAreRecorded(const std::string& name,
                   const std::function<std::string(const std::string&)>& answerTo) {
    std::ifstream file(std::filesystem::path(SOURCE_FOLDER) / "tests/golden" / name);
    std::string all;
    for (std::string line; std::getline(file, line);) {
        const size_t arrow = line.find(" ->");
        const std::string question = line.substr(0, arrow);
        all += question + (arrow != std::string::npos ? " -> " + answerTo(question) : "") + "\n";
    }
    return !all.empty()
               ? IsRecorded(name, all)
               : testing::AssertionFailure() << "nothing is asked in tests/golden/" << name;
}

inline std::vector<std::string> LinesOf(const std::string& text) {
    std::vector<std::string> lines;
    std::istringstream stream(text);
    for (std::string line; std::getline(stream, line);) {
        lines.push_back(line);
    }
    return lines;
}

// A script tests/golden/`name` that is replayed: commands, "$ word rest", and what comes of each
// indented below it. Every other line, such as "# why", stays as it is.
class Script {
  public:
    explicit Script(const std::string& name)
        : name_(name), recorded_(SOURCE_FOLDER "/tests/golden/" + name, std::ios::binary) {}

    // The next command, "word rest"; empty at the end.
    std::string Next() {
        for (std::string line; std::getline(recorded_, line);) {
            if (!line.starts_with("    ")) {
                now_ += line + "\n";
                if (line.starts_with("$ ")) {
                    return line.substr(2);
                }
            }
        }
        return "";
    }
    void Tell(const std::string& line) {
        now_ += "    " + line + "\n";
        isRun_ = true;
    }
    // Whether what was told is what the script holds.
    testing::AssertionResult IsReplayed() const {
        return isRun_ ? IsRecorded(name_, now_)
                      : testing::AssertionFailure() << "nothing runs in tests/golden/" << name_;
    }

  private:
    std::string name_;
    std::ifstream recorded_;
    std::string now_;
    bool isRun_ = false;
};

// Whether each command of the script gives what it holds.
inline testing::AssertionResult IsReplayed(
    const std::string& name,
    const std::function<std::string(const std::string& word, const std::string& rest)>& run) {
    Script script(name);
    for (std::string command; !(command = script.Next()).empty();) {
        const size_t end = std::min(command.find(' '), command.size());
        const std::string rest = end < command.size() ? command.substr(end + 1) : "";
        for (const std::string& line : LinesOf(run(command.substr(0, end), rest))) {
            script.Tell(line);
        }
    }
    return script.IsReplayed();
}
