#pragma once

// The ksfax program: its commands and what they share.

#include <CLI/CLI.hpp>
#include <filesystem>
#include <iosfwd>
#include <memory>
#include <nlohmann/json.hpp>
#include <optional>
#include <span>
#include <string>

#include "platform/embedded/machine.h"

#include "tool/failure.h"
#include "tool/loaded_driver.h"

namespace tool {

// Runs one command line. Gives the exit status; failures are told on standard error.
int RunProgram(int count, const char* const* arguments);

// ---- Commands. Each adds itself to the program; `exitCode` receives what its run comes to.
void AddSendCommand(CLI::App& program, int& exitCode);
void AddDescribeCommand(CLI::App& program, int& exitCode);
void AddCheckCommand(CLI::App& program, int& exitCode);
void AddSettingsCommand(CLI::App& program, int& exitCode);
void AddCapabilitiesCommand(CLI::App& program, int& exitCode);
void AddQueryCommand(CLI::App& program, int& exitCode);
void AddInstallCommand(CLI::App& program, int& exitCode);
void AddUpgradeCommand(CLI::App& program, int& exitCode);
void AddPageCommand(CLI::App& program, int& exitCode);
void AddStateCommand(CLI::App& program, int& exitCode);

// ---- Options of every command that runs a machine
struct MachineOptions {
    std::string folder;  // --machine; empty: a fresh machine
    std::optional<unsigned> country;
    std::optional<unsigned> codePage;

    void AddTo(CLI::App& command);
};

// A machine with the driver loaded, for one run of the program. With a folder, all that the
// machine holds stays there: drive C: in its folder "drive_c", the rest in "machine.json".
class MachineRun {
  public:
    // Waits up to 30 seconds while another run has the folder; then throws UserError.
    explicit MachineRun(const MachineOptions& options);
    ~MachineRun();

    // What the machine of these options is or will be, without making anything.
    static embedded::MachineSetup Setup(const MachineOptions& options);

    embedded::Machine& machine() { return *machine_; }
    // The driver's own module.
    HINSTANCE instance() const { return driver_->instance(); }
    bool isKept() const { return !folder_.empty(); }
    // Writes the state of a kept machine, whole and renamed into place, so that a crash leaves
    // the old or the new one. Call it when the work is done; a run that failed half way keeps
    // the old state. Throws UserError.
    void Save();

  private:
    std::filesystem::path folder_;
    int lock_ = -1;
    std::optional<embedded::Machine> machine_;
    std::optional<LoadedDriver> driver_;
};

// ---- Output
// For people: what lies below the current folder as seen from there, all else as it is.
std::string ShownPath(const std::filesystem::path& path);
// For scripts: the path as it is, with replacement characters for what is no UTF-8; null for an
// empty path.
nlohmann::ordered_json JsonPath(const std::filesystem::path& path);
void PrintJson(const nlohmann::ordered_json& value);
// Two lower-case digits a byte.
std::string Hexadecimal(std::span<const std::byte> bytes);
// "38,462"
std::string Grouped(uint64_t number);

}  // namespace tool
