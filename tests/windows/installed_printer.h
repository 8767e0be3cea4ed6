#pragma once

// A printer of this driver, installed on the Windows that the tests run on, with the shipped DLL
// loaded from where the spooler put it. The driver is installed once per process: Windows does not
// replace the files of one in use.

#include <filesystem>
#include <string>

#include "platform/owned.h"
#include "platform/windows_api.h"

class InstalledPrinter {
  public:
    // The DLL beside the running program and the examples' data file, with whatever cache file of
    // an earlier run removed. handle() and module() are null when something failed; error() tells.
    explicit InstalledPrinter(const std::wstring& name);
    ~InstalledPrinter();
    InstalledPrinter(const InstalledPrinter&) = delete;
    InstalledPrinter& operator=(const InstalledPrinter&) = delete;

    HANDLE handle() const { return handle_; }
    HMODULE module() const { return module_.get(); }
    const std::string& error() const { return error_; }
    // The folder in which the spooler keeps the driver's files.
    const std::filesystem::path& folder() const { return folder_; }

    // Takes back everything that the driver has stored with the printer.
    void ForgetStoredData() const;

  private:
    std::wstring key_;
    std::filesystem::path folder_;
    HANDLE handle_ = nullptr;
    platform::LoadedModule module_;
    std::string error_;
};

// Where the running program lies.
std::filesystem::path ProgramFolder();

// The printer that all tests share.
const InstalledPrinter& SharedPrinter();
