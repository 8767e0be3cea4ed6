#pragma once

// The embedded machine: the Windows that the driver finds on the host. A test or ksfax makes
// one, fills it, runs driver code, and looks into it. One machine lives at a time; every call
// of windows_api.h, on any thread, goes to it.
//
// This header is the machine's control surface and its common ground (faults, handles,
// counters). Each subsystem has a class in a header of its own (files.h, profiles.h,
// modules.h, spooler.h ...) that the machine owns.

#include <atomic>
#include <cstdint>
#include <filesystem>
#include <functional>
#include <memory>
#include <mutex>
#include <string>
#include <unordered_map>
#include <vector>

#include "platform/embedded/api_types.h"

namespace embedded {

class FileSystem;
class Graphics;
class Mappings;
class Profiles;
class Modules;
class Registry;
class Resources;
class Spooler;
class Windows;

// What the machine is told to fail, and what it counts. Calls are counted only while armed: from
// the first Count() or Fail...() to Clear().
class Faults {
  public:
    // The n-th call from now on, whichever it is, counted from 1.
    void FailNthCall(unsigned n, bool andAllLater = false);
    // The n-th call of that published name from now on, such as "GlobalAlloc".
    void FailCall(std::string name, unsigned n = 1, bool andAllLater = false);
    // `watch` is told the name of each call as it comes, on the calling thread.
    void Count(std::function<void(const std::string& name)> watch = {});
    void Clear();

    // Since the last of the above: how many calls came, and their names in order.
    unsigned calls() const;
    std::vector<std::string> names() const;
    // Whether a planned fault has happened.
    bool struck() const;

    // True from the first of the above to Clear().
    static std::atomic<bool> armed;
    // For Fails() alone: whether this call is the one.
    bool Strike(const char* name);

  private:
    struct Plan {
        std::string name = {};  // empty: any call
        unsigned nth = 0;       // 0: none fails
        bool andAllLater = false;
        std::function<void(const std::string&)> watch = {};
    };
    void Follow(Plan plan, bool arm = true);

    mutable std::mutex mutex_;
    std::vector<std::string> names_;
    Plan plan_;
    unsigned seen_ = 0;
    bool struck_ = false;
};

// The first thing that a published call does: counts it under its name and tells whether it is
// one that is told to fail, the second with that last error.
bool Fails(const char* call);
bool Fails(const char* call, DWORD error);

// The last thing of a call that answers TRUE or FALSE. One that went well leaves the last error as
// it was.
BOOL Answer(DWORD error);

// Anything that a HANDLE names. Its subclass is the handle's kind.
struct Object {
    virtual ~Object() = default;
};

// What CloseHandle closes: files and file mappings. Printers and registry keys have their own
// closing calls.
struct KernelObject : Object {};

// The machine's handles. A value is never used again while the machine lives, so a stale one
// fails with ERROR_INVALID_HANDLE. Values fit in 32 bits, as on Windows.
class HandleTable {
  public:
    // Handles begin behind `base`.
    explicit HandleTable(uintptr_t base = 0) : last_(base) {}
    HANDLE Insert(std::shared_ptr<Object> object);
    // Null unless the handle is open and names a `Kind`.
    template <typename Kind>
    std::shared_ptr<Kind> Get(HANDLE handle) const {
        return std::dynamic_pointer_cast<Kind>(Find(handle));
    }
    // False for a handle that is not open or names no `Kind`.
    template <typename Kind = Object>
    bool Close(HANDLE handle) {
        std::shared_ptr<Object> closed;  // goes outside the table's lock
        std::lock_guard lock(mutex_);
        const auto found = open_.find(Number(handle));
        if (found == open_.end() || dynamic_cast<Kind*>(found->second.get()) == nullptr) {
            return false;
        }
        closed = std::move(found->second);
        open_.erase(found);
        return true;
    }
    template <typename Kind = Object>
    unsigned CountOpen() const {
        unsigned count = 0;
        std::lock_guard lock(mutex_);
        for (const auto& [number, object] : open_) {
            count += dynamic_cast<Kind*>(object.get()) != nullptr;
        }
        return count;
    }

  private:
    static uintptr_t Number(HANDLE handle) { return reinterpret_cast<uintptr_t>(handle); }
    std::shared_ptr<Object> Find(HANDLE handle) const;

    mutable std::mutex mutex_;
    std::unordered_map<uintptr_t, std::shared_ptr<Object>> open_;
    uintptr_t last_;
};

struct MessageBoxShown {
    std::u16string caption;
    std::u16string text;
    UINT type;
};

// What has been taken from the machine and not given back.
struct Leaks {
    unsigned handles = 0;
    unsigned views = 0;
    unsigned globalBlocks = 0;
    unsigned heaps = 0;
    unsigned modules = 0;
    unsigned windows = 0;
    unsigned timers = 0;
    unsigned graphicsObjects = 0;
    unsigned contexts = 0;
    unsigned componentUses = 0;  // CoInitialize

    bool operator==(const Leaks&) const = default;
};

struct MachineSetup {
    // Drive C:, made when missing, with a folder Windows. Empty: a new folder that goes when
    // the machine goes. Drive Z: is the host's root.
    std::filesystem::path driveC = {};
    UINT codePage = 1252;  // any ANSI code page that the C library converts
    UINT country = 1;      // international dialling code
    // What the locale answers for the country when it is no number; empty for the number above.
    std::u16string countryText = {};
    std::u16string userName = u"User";
};

class Machine {
  public:
    explicit Machine(MachineSetup setup = {});
    ~Machine();
    Machine(const Machine&) = delete;
    Machine& operator=(const Machine&) = delete;

    // The machine that is running; there must be one.
    static Machine& Current();

    const std::filesystem::path& driveC() const { return driveC_; }
    const MachineSetup& setup() const { return setup_; }

    // Handles, views, blocks, heaps and loaded modules outstanding now.
    Leaks OpenNow() const;

    Faults faults;
    // Read it while no driver code runs; MessageBoxW adds to it through ShowMessageBox.
    std::vector<MessageBoxShown> messageBoxes;
    void ShowMessageBox(MessageBoxShown box);
    std::atomic<unsigned> globalBlocks = 0;

    FileSystem& files() { return *files_; }
    Mappings& mappings() { return *mappings_; }
    Profiles& profiles() { return *profiles_; }
    Modules& modules() { return *modules_; }
    Resources& resources() { return *resources_; }
    Spooler& spooler() { return *spooler_; }
    Registry& registry() { return *registry_; }
    Graphics& graphics() { return *graphics_; }
    Windows& windows() { return *windows_; }

  private:
    MachineSetup setup_;
    std::filesystem::path driveC_;
    bool ownsDriveC_ = false;
    std::mutex messageBoxesMutex_;
    std::unique_ptr<FileSystem> files_;
    std::unique_ptr<Mappings> mappings_;
    std::unique_ptr<Profiles> profiles_;
    std::unique_ptr<Modules> modules_;
    std::unique_ptr<Resources> resources_;
    std::unique_ptr<Spooler> spooler_;
    std::unique_ptr<Registry> registry_;
    std::unique_ptr<Graphics> graphics_;
    std::unique_ptr<Windows> windows_;

  public:
    // Last, because what is still open goes before that which it is a part of.
    HandleTable handles;
};

}  // namespace embedded
