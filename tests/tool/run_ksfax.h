#pragma once

// Runs the ksfax program in a folder of its own, as a script would.

#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <nlohmann/json.hpp>
#include <stdexcept>
#include <string>
#include <sys/wait.h>
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
    // The project's examples, without what an earlier run left beside them.
    void AddExamples() const {
        std::filesystem::create_directory(*this / "examples");
        for (const auto& entry : std::filesystem::directory_iterator(SOURCE_FOLDER "/examples")) {
            if (entry.path().extension() != ".PDC") {
                std::filesystem::copy(entry.path(), *this / "examples");
            }
        }
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

// Runs the lines in bash, in `folder`. ksfax is on its search path, and `folder`/tmp is the place
// for temporary files, so that a test sees all that is left.
inline Outcome RunShell(const TestFolder& folder, const std::string& lines) {
    TestFolder own;
    std::filesystem::create_directory(folder / "tmp");
    std::filesystem::create_symlink(KSFAX_PROGRAM, own / "ksfax");
    WriteText(own / "script", "cd '" + folder.path().string() + "'\n" + lines);
    const std::string at = own.path().string();
    const int status = std::system(("PATH='" + at + "':$PATH TMPDIR='" + (folder / "tmp").string() +
                                    "' LC_ALL=C.UTF-8 bash '" + at + "/script' >'" + at +
                                    "/out' 2>'" + at + "/err' </dev/null")
                                       .c_str());
    return {WIFEXITED(status) ? WEXITSTATUS(status) : -1, FileText(own / "out"),
            FileText(own / "err")};
}

inline Outcome RunKsfax(const TestFolder& folder, const std::vector<std::string>& arguments) {
    std::string line = "ksfax";
    for (std::string argument : arguments) {
        for (size_t at = 0; (at = argument.find('\'', at)) != std::string::npos; at += 4) {
            argument.replace(at, 1, "'\\''");
        }
        line += " '" + argument + "'";
    }
    return RunShell(folder, line + '\n');
}

}  // namespace tool
