#include "platform/embedded/machine.h"

#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <iostream>
#include <stdexcept>

#include "platform/embedded/api_kernel.h"
#include "platform/embedded/files.h"
#include "platform/embedded/gdi.h"
#include "platform/embedded/mapping.h"
#include "platform/embedded/memory.h"
#include "platform/embedded/modules.h"
#include "platform/embedded/profiles.h"
#include "platform/embedded/registry.h"
#include "platform/embedded/resources.h"
#include "platform/embedded/spooler.h"
#include "platform/embedded/windows.h"

namespace embedded {

namespace {

std::atomic<Machine*> current = nullptr;

thread_local DWORD lastError = ERROR_SUCCESS;

std::filesystem::path MakeTemporaryFolder() {
    std::error_code error;
    std::string name = (std::filesystem::temp_directory_path(error) / "ksfax-XXXXXX").string();
    if (error || mkdtemp(name.data()) == nullptr) {
        throw std::runtime_error("the folder for temporary files cannot be used: " +
                                 (error ? error.message() : std::strerror(errno)) +
                                 "; let TMPDIR name one that can");
    }
    return name;
}

}  // namespace

std::atomic<bool> Faults::armed = false;

void Faults::Follow(Plan plan, bool arm) {
    std::lock_guard lock(mutex_);
    names_.clear();
    plan_ = std::move(plan);
    seen_ = 0;
    struck_ = false;
    armed = arm;
}

void Faults::FailNthCall(unsigned n, bool andAllLater) {
    Follow({.nth = n, .andAllLater = andAllLater});
}

void Faults::FailCall(std::string name, unsigned n, bool andAllLater) {
    Follow({.name = std::move(name), .nth = n, .andAllLater = andAllLater});
}

void Faults::Count(std::function<void(const std::string&)> watch) {
    Follow({.watch = std::move(watch)});
}

void Faults::Clear() {
    Follow({}, false);
}

unsigned Faults::calls() const {
    std::lock_guard lock(mutex_);
    return static_cast<unsigned>(names_.size());
}

std::vector<std::string> Faults::names() const {
    std::lock_guard lock(mutex_);
    return names_;
}

bool Faults::struck() const {
    std::lock_guard lock(mutex_);
    return struck_;
}

bool Faults::Strike(const char* name) {
    std::lock_guard lock(mutex_);
    names_.emplace_back(name);
    if (plan_.watch) {
        plan_.watch(names_.back());
    }
    if (plan_.nth == 0 || (!plan_.name.empty() && plan_.name != name)) {
        return false;
    }
    ++seen_;
    const bool strikes = seen_ == plan_.nth || (plan_.andAllLater && seen_ > plan_.nth);
    struck_ = struck_ || strikes;
    return strikes;
}

bool Fails(const char* call) {
    return Faults::armed.load(std::memory_order_relaxed) && Machine::Current().faults.Strike(call);
}

bool Fails(const char* call, DWORD error) {
    return Fails(call) && !Answer(error);
}

BOOL Answer(DWORD error) {
    if (error != ERROR_SUCCESS) {
        SetLastError(error);
    }
    return error == ERROR_SUCCESS;
}

HANDLE HandleTable::Insert(std::shared_ptr<Object> object) {
    std::lock_guard lock(mutex_);
    last_ += 4;  // Windows hands out multiples of four, none of them 0.
    open_.emplace(last_, std::move(object));
    return reinterpret_cast<HANDLE>(last_);
}

std::shared_ptr<Object> HandleTable::Find(HANDLE handle) const {
    std::lock_guard lock(mutex_);
    const auto found = open_.find(Number(handle));
    return found == open_.end() ? nullptr : found->second;
}

Machine::Machine(MachineSetup setup) : setup_(std::move(setup)) {
    if (current != nullptr) {
        std::cerr << "only one embedded machine can run at a time\n";
        std::abort();
    }
    ownsDriveC_ = setup_.driveC.empty();
    driveC_ = ownsDriveC_ ? MakeTemporaryFolder() : std::filesystem::absolute(setup_.driveC);
    std::filesystem::create_directories(driveC_ / "Windows");
    files_ = std::make_unique<FileSystem>(*this);
    profiles_ = std::make_unique<Profiles>(*this);
    modules_ = std::make_unique<Modules>();
    mappings_ = std::make_unique<Mappings>(*this);
    resources_ = std::make_unique<Resources>(*this);
    spooler_ = std::make_unique<Spooler>(*this);
    registry_ = std::make_unique<Registry>();
    graphics_ = std::make_unique<Graphics>();
    windows_ = std::make_unique<Windows>();
    current = this;
}

Machine::~Machine() {
    faults.Clear();
    current = nullptr;
    if (ownsDriveC_) {
        std::error_code ignored;
        std::filesystem::remove_all(driveC_, ignored);
    }
}

Machine& Machine::Current() {
    Machine* machine = current;
    if (machine == nullptr) {
        std::cerr << "a Windows call was made while no embedded machine was running\n";
        std::abort();
    }
    return *machine;
}

void Machine::ShowMessageBox(MessageBoxShown box) {
    std::lock_guard lock(messageBoxesMutex_);
    messageBoxes.push_back(std::move(box));
}

Leaks Machine::OpenNow() const {
    const unsigned heaps = handles.CountOpen<Heap>();
    return {.handles = handles.CountOpen() - heaps,
            .views = mappings_->CountViews(),
            .globalBlocks = globalBlocks,
            .heaps = heaps,
            .modules = modules_->CountLoaded(),
            .windows = windows_->CountWindows(),
            .timers = windows_->CountTimers(),
            .graphicsObjects = graphics_->CountObjects(),
            .contexts = graphics_->CountContexts(),
            .componentUses = windows_->componentUses};
}

}  // namespace embedded

DWORD GetLastError() {
    return embedded::lastError;
}

void SetLastError(DWORD code) {
    embedded::lastError = code;
}
