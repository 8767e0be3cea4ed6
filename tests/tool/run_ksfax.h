#pragma once

// Runs the ksfax program in a folder of its own, as a script would.

#include <sys/wait.h>

#include <algorithm>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <nlohmann/json.hpp>
#include <stdexcept>
#include <string>
#include <vector>

namespace tool {

inline std::string FileText(const std::filesystem::path& file) {
    std::ifstream stream(file, std::ios::binary);
    return {std::istreambuf_iterator<char>(stream), {}};
}

inline void WriteText(const std::filesystem::path& file, std::string_view text) {
    std::ofstream(file, std::ios::binary) << text;
}

// A new folder that goes with its test.
class TestFolder {
  public:
    TestFolder() {
        std::string name = (std::filesystem::temp_directory_path() / "ksfax-test-XXXXXX").string();
        if (mkdtemp(name.data()) == nullptr) {
            throw std::runtime_error("cannot make " + name);
        }
        path_ = name;
    }
    ~TestFolder() { std::filesystem::remove_all(path_); }
    TestFolder(const TestFolder&) = delete;
    TestFolder& operator=(const TestFolder&) = delete;

    std::filesystem::path operator/(std::string_view name) const { return path_ / name; }
    const std::filesystem::path& path() const { return path_; }
    // Names of what lies in it, sorted, with one space after each.
    std::string Names() const {
        std::vector<std::string> names;
        for (const auto& entry : std::filesystem::directory_iterator(path_)) {
            names.push_back(entry.path().filename().string());
        }
        std::ranges::sort(names);
        std::string all;
        for (const std::string& name : names) {
            all += name + ' ';
        }
        return all;
    }

  private:
    std::filesystem::path path_;
};

struct Outcome {
    int code;
    std::string out;
    std::string err;

    nlohmann::json Json() const { return nlohmann::json::parse(out); }
};

// Runs it with `folder`/tmp as the place for temporary files, so that a test sees all it leaves.
inline Outcome RunKsfax(const TestFolder& folder, const std::vector<std::string>& arguments) {
    std::filesystem::create_directory(folder / "tmp");
    const auto quoted = [](std::string text) {
        for (size_t at = 0; (at = text.find('\'', at)) != std::string::npos; at += 4) {
            text.replace(at, 1, "'\\''");
        }
        return " '" + text + "'";
    };
    TestFolder output;
    std::string command = "cd" + quoted(folder.path().string()) + " && TMPDIR=" +
                          quoted((folder / "tmp").string()).substr(1) + " " KSFAX_PROGRAM;
    for (const std::string& argument : arguments) {
        command += quoted(argument);
    }
    command += " >" + quoted((output / "out").string()) + " 2>" + quoted((output / "err").string());
    const int status = std::system(command.c_str());
    return {WIFEXITED(status) ? WEXITSTATUS(status) : -1, FileText(output / "out"),
            FileText(output / "err")};
}

}  // namespace tool
