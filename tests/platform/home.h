#pragma once

// The platform that a contract test runs on: the embedded machine in the host's build, Windows
// itself in the Windows build. A contract test calls published functions through windows_api.h,
// prepares and inspects files with the standard library, and demands the same of both.

#include <filesystem>
#include <fstream>
#include <iterator>
#include <string>

#include "platform/windows_api.h"

#ifndef _WIN32
#include "platform/embedded/machine.h"
#endif

namespace contract {

using Text = std::basic_string<WCHAR>;

// What a call that succeeds or fails says: ERROR_SUCCESS, or its last error.
template <typename Call>
DWORD ErrorOf(Call call) {
    SetLastError(777);
    return call() ? ERROR_SUCCESS : GetLastError();
}

// Make one first in each test. Its folder is empty, and goes with it.
class Home {
  public:
    Home() { Clear(); }
    ~Home() {
        std::error_code ignored;
        std::filesystem::remove_all(disk_, ignored);
    }

    void Clear() const {
        std::filesystem::remove_all(disk_);
        std::filesystem::create_directories(disk_);
    }
    // The folder's path for the platform's calls, without a backslash at its end.
    const Text& folder() const { return folder_; }
    Text Path(const Text& name) const { return folder_ + TEXT("\\") + name; }

    void WriteFile(const Text& name, const std::string& bytes) const {
        std::ofstream(disk_ / name, std::ios::binary) << bytes;
    }
    std::string ReadFile(const Text& name) const {
        std::ifstream file(disk_ / name, std::ios::binary);
        return {std::istreambuf_iterator<char>(file), {}};
    }
    bool Exists(const Text& name) const { return std::filesystem::exists(disk_ / name); }

  private:
#ifdef _WIN32
    std::filesystem::path disk_ = std::filesystem::temp_directory_path() /
                                  ("contract" + std::to_string(GetCurrentProcessId()));
    Text folder_ = disk_.wstring();
#else
    embedded::Machine machine_;
    std::filesystem::path disk_ = machine_.driveC() / "contract";
    Text folder_ = TEXT("C:\\contract");
#endif
};

}  // namespace contract
