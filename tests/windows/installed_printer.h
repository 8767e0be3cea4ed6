#pragma once

// A printer of this driver, installed on the Windows that the tests run on, with the shipped DLL
// loaded from where the spooler put it. A driver is installed once per process: Windows does not
// replace the files of one in use.

#include <filesystem>
#include <string>

#include "platform/owned.h"
#include "platform/windows_api.h"

class InstalledPrinter {
  public:
    // Installs the DLL beside the running program and `dataFile`, with whatever cache file of an
    // earlier run removed, and gives the printer the default record's fields and paper. An empty
    // `dataFile`: another printer of a driver that is installed. handle() and module() are null
    // when something failed; error() tells.
    InstalledPrinter(const std::wstring& driverName, const std::wstring& printerName,
                     const DEVMODEW& defaults, const std::filesystem::path& dataFile);
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

    // An entry point of the DLL; null when it is not exported.
    template <typename Function>
    Function EntryPoint(const char* name) const {
        return reinterpret_cast<Function>(
            reinterpret_cast<void*>(GetProcAddress(module_.get(), name)));
    }

  private:
    bool InstallDriver(const std::wstring& name, const std::filesystem::path& dataFile);
    bool InstallPrinter(const std::wstring& driverName, const DEVMODEW& defaults);
    bool Fail(const char* step);

    std::wstring printerName_;
    std::filesystem::path folder_;
    HANDLE handle_ = nullptr;
    platform::LoadedModule module_;
    std::string error_;
};

// Where the running program lies.
std::filesystem::path ProgramFolder();

// The printer of the examples' data file that all tests share.
const InstalledPrinter& SharedPrinter();
