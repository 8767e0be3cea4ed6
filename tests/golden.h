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

// Whether each command of tests/golden/`name`, a line "$ word rest", gives what is indented below
// it. Every other line, such as "# why", stays as it is.
inline testing::AssertionResult IsReplayed(
    const std::string& name,
    const std::function<std::string(const std::string& word, const std::string& rest)>& run) {
    std::ifstream stream(SOURCE_FOLDER "/tests/golden/" + name, std::ios::binary);
    const std::string recorded{std::istreambuf_iterator<char>(stream), {}};
    std::string now;
    bool isRun = false;
    for (const std::string& line : LinesOf(recorded)) {
        now += line.starts_with("    ") ? "" : line + "\n";
        if (line.starts_with("$ ")) {
            const size_t space = line.find(' ', 2);
            const std::string rest = space != line.npos ? line.substr(space + 1) : "";
            for (const std::string& result : LinesOf(run(line.substr(2, space - 2), rest))) {
                now += "    " + result + "\n";
                isRun = true;
            }
        }
    }
    return isRun ? IsRecorded(name, now)
                 : testing::AssertionFailure() << "nothing runs in tests/golden/" << name;
}
