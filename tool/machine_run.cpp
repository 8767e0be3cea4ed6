#include <cerrno>
#include <chrono>
#include <cstring>
#include <fcntl.h>
#include <fstream>
#include <iostream>
#include <sys/file.h>
#include <thread>
#include <unistd.h>

#include "platform/embedded/registry.h"
#include "platform/embedded/spooler.h"

#include "tool/program.h"

namespace tool {

namespace {

constexpr unsigned kDefaultCountry = 1;
constexpr unsigned kDefaultCodePage = 1252;
constexpr auto kLongestWait = std::chrono::seconds(30);

std::filesystem::path StateFile(const std::filesystem::path& folder) {
    return folder / "machine.json";
}

// The kept state, or null when the folder has none.
nlohmann::ordered_json ReadState(const std::filesystem::path& folder) {
    const std::filesystem::path file = StateFile(folder);
    std::error_code error;
    if (folder.empty() || !std::filesystem::exists(file, error)) {
        return nullptr;
    }
    std::ifstream stream(file, std::ios::binary);
    nlohmann::ordered_json state = nlohmann::ordered_json::parse(stream, nullptr, false);
    if (!state.is_object()) {
        throw UserError(file.string() + " is damaged: it is no JSON object; put a good copy in "
                                        "its place or remove it to begin anew");
    }
    return state;
}

unsigned Remembered(const nlohmann::ordered_json& state, const char* key, unsigned fallback) {
    return state.is_object() && state.contains(key) && state[key].is_number_unsigned()
               ? state[key].get<unsigned>()
               : fallback;
}

void LoadState(embedded::Machine& machine, const nlohmann::ordered_json& state,
               const std::filesystem::path& file) {
    if (!state.is_object()) {
        return;
    }
    try {
        machine.spooler().Load(nlohmann::json(state.at("spooler")));
        machine.registry().Load(nlohmann::json(state.at("registry")));
    } catch (const std::exception& error) {
        throw UserError(file.string() + " is damaged: " + error.what() +
                        "; put a good copy in its place or remove it to begin anew");
    }
}

// Holds the folder's lock, which goes with the descriptor when the process ends, however it ends.
int Lock(const std::filesystem::path& folder) {
    const std::filesystem::path file = folder / "lock";
    const int lock = open(file.c_str(), O_RDWR | O_CREAT | O_CLOEXEC, 0666);
    if (lock < 0) {
        throw UserError(file.string() + " cannot be written: " + std::strerror(errno) +
                        "; choose another folder for --machine");
    }
    const auto end = std::chrono::steady_clock::now() + kLongestWait;
    bool told = false;
    while (flock(lock, LOCK_EX | LOCK_NB) != 0) {
        if (errno != EWOULDBLOCK || std::chrono::steady_clock::now() >= end) {
            close(lock);
            throw UserError(folder.string() + ": another run of ksfax has this machine; wait "
                                              "until it ends or choose another folder");
        }
        if (!told && isatty(STDERR_FILENO) != 0) {
            std::cerr << "ksfax: waiting for another run on " << folder.string() << '\n';
            told = true;
        }
        std::this_thread::sleep_for(std::chrono::milliseconds(50));
    }
    return lock;
}

// Brings a file's or a folder's content to the disk.
bool Flush(const std::filesystem::path& path) {
    const int descriptor = open(path.c_str(), O_RDONLY | O_CLOEXEC);
    if (descriptor < 0) {
        return false;
    }
    const bool flushed = fsync(descriptor) == 0;
    close(descriptor);
    return flushed;
}

}  // namespace

void MachineOptions::AddTo(CLI::App& command) {
    command
        .add_option("--machine", folder,
                    "Keep the machine in this folder from run to run (default: a fresh one)")
        ->type_name("DIR");
    command.add_option("--country", country, "Country code of the machine's user (default 1)")
        ->type_name("N")
        ->check(CLI::Range(1, 9999));
    command.add_option("--code-page", codePage, "ANSI code page of the machine (default 1252)")
        ->type_name("N")
        ->check(CLI::IsMember({1252, 932}));
}

embedded::MachineSetup MachineRun::Setup(const MachineOptions& options) {
    const nlohmann::ordered_json state = ReadState(options.folder);
    embedded::MachineSetup setup;
    setup.country = options.country.value_or(Remembered(state, "country", kDefaultCountry));
    setup.codePage = options.codePage.value_or(Remembered(state, "codePage", kDefaultCodePage));
    return setup;
}

MachineRun::MachineRun(const MachineOptions& options) {
    if (!options.folder.empty()) {
        folder_ = std::filesystem::absolute(options.folder);
        std::error_code error;
        std::filesystem::create_directories(folder_, error);
        if (error) {
            throw UserError(options.folder + ": the machine's folder cannot be made: " +
                            error.message() + "; choose another one");
        }
        lock_ = Lock(folder_);
    }
    embedded::MachineSetup setup = Setup(options);
    if (isKept()) {
        setup.driveC = folder_ / "drive_c";
    }
    machine_.emplace(setup);
    LoadState(*machine_, ReadState(folder_), StateFile(folder_));
    driver_.emplace(*machine_);
}

MachineRun::~MachineRun() {
    driver_.reset();
    machine_.reset();
    if (lock_ >= 0) {
        close(lock_);
    }
}

void MachineRun::Save() {
    if (!isKept()) {
        return;
    }
    const nlohmann::ordered_json state = {{"country", machine_->setup().country},
                                          {"codePage", machine_->setup().codePage},
                                          {"spooler", machine_->spooler().Save()},
                                          {"registry", machine_->registry().Save()}};
    const std::filesystem::path file = StateFile(folder_);
    const std::filesystem::path fresh = file.string() + ".new";
    std::ofstream stream(fresh, std::ios::binary);
    const bool isOurs = stream.is_open();
    stream << state.dump(2) << '\n';
    stream.close();
    // On the disk before it takes its name, or a crash could leave the name without the content.
    std::error_code error;
    const bool written = stream && Flush(fresh);
    if (written) {
        std::filesystem::rename(fresh, file, error);
    }
    if (!written || error) {
        if (isOurs) {
            std::filesystem::remove(fresh, error);
        }
        throw UserError(file.string() + " cannot be written; the machine keeps its old state");
    }
    (void)Flush(folder_);  // some file systems have nothing to flush there
}

}  // namespace tool
