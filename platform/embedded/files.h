#pragma once

// Files of the embedded machine: drive C: is a folder of the host, drive Z: the host's root; the
// current folder is C:\. Paths are found without regard to letter case.
//
// Attributes. Read-only is the host's own: a file that nobody may write. Hidden, and read-only of a
// folder, are forgotten when the machine goes.
//
// Sharing. Every open file is held against the sharing of all others of this machine, as on
// Windows. Other processes see it through advisory locks: a file opened without any sharing
// excludes every other opening, all others go together.

#include <atomic>
#include <cstdint>
#include <filesystem>
#include <map>
#include <memory>
#include <mutex>
#include <set>
#include <string>
#include <string_view>

#include "platform/embedded/machine.h"

struct stat;

namespace embedded {

class FileSystem;

// One way in which a host file is used, seen by all others of the machine until it goes: an open
// file, or a mapping, which keeps the file from being cut short.
struct FileUse {
    FileUse(FileSystem& files, const struct stat& status, DWORD access, DWORD sharing);
    ~FileUse();
    FileUse(const FileUse&) = delete;
    FileUse& operator=(const FileUse&) = delete;

    FileSystem& files;
    const uint64_t device;
    const uint64_t number;
    const DWORD access;  // GENERIC_READ and GENERIC_WRITE; neither for a mapping
    const DWORD sharing;
    bool isAdmitted;  // it goes with the uses that were there; a mapping always does
};

// What CreateFileW's handle names. Its position is the descriptor's.
struct OpenFile : KernelObject {
    ~OpenFile() override;

    int fd = -1;
    bool existed = false;
    std::string path;  // on the host
    std::unique_ptr<FileUse> use;
};

class FileSystem {
  public:
    explicit FileSystem(Machine& machine);

    // The host path that a machine path such as C:\Windows\X.INI names; of several host names
    // that differ in letter case alone, the exact one first. Parts that do not exist are taken
    // as written. Empty for a path that is on neither drive.
    std::filesystem::path HostPath(std::u16string_view path) const;
    // The machine path of a host path: on drive C: when it lies there, else on drive Z:. A host
    // name that is no UTF-8, or holds a backslash, cannot be named from the machine.
    std::u16string MachinePath(const std::filesystem::path& path) const;

    // The attributes of a file or folder as GetFileAttributesW would give them (a file without
    // any has FILE_ATTRIBUTE_NORMAL); INVALID_FILE_ATTRIBUTES when there is none.
    DWORD Attributes(std::u16string_view path) const;

    // ---- For the machine's own calls. Failures are last-error codes; success is ERROR_SUCCESS.

    // As CreateFileW takes them; beside its two dispositions one that opens a file and makes it
    // when it is missing. `file` is set on success alone.
    static constexpr DWORD kOpenOrMake = 4;
    DWORD Open(std::u16string_view path, DWORD access, DWORD sharing, DWORD disposition,
               std::shared_ptr<OpenFile>& file);
    // Overwrites a target that is there.
    DWORD Copy(std::u16string_view source, std::u16string_view target);
    DWORD Move(std::u16string_view source, std::u16string_view target);
    DWORD SetAttributes(std::u16string_view path, DWORD attributes);
    // A new folder with the attributes of the folder `likeThis`.
    DWORD MakeFolder(std::u16string_view path, std::u16string_view likeThis);
    // Makes a new empty file <prefix><number><".tmp"> in the folder, the number in upper-case
    // hexadecimal from 1 up to four digits.
    DWORD ReserveTemporary(std::u16string_view folder, std::u16string_view prefix,
                           uint16_t& number);
    // Whether the host file is mapped, or open.
    bool IsUsed(const struct stat& file, bool asMapping) const;

  private:
    friend struct FileUse;

    // A machine path on the host.
    struct Place {
        std::string path;        // empty when `error` says that there can be none
        DWORD error = 0;         // ERROR_SUCCESS for what is there, else why it is not
        bool isFolder = false;   // it is there, as a folder
        bool canBeMade = false;  // it is missing, but its folder is there
        std::string writtenAs;   // its path with the last part as the caller wrote it
    };
    Place Find(std::u16string_view path) const;
    // Read-only and hidden alone.
    DWORD AttributesOf(const std::string& hostPath) const;
    DWORD StoreAttributes(const std::string& hostPath, DWORD attributes);

    std::string driveC_;  // no slash at its end
    std::atomic<uint16_t> nextTemporary_;

    mutable std::mutex mutex_;  // guards what follows
    std::set<const FileUse*> uses_;
    std::map<std::string, DWORD> attributes_;  // what the host has no place for, by host path
};

}  // namespace embedded
