#pragma once

// Files of the embedded machine: drive C: is a folder of the host, drive Z: the host's root; the
// current folder is C:\. Paths are found without regard to letter case.
//
// Attributes. Read-only is the host's own: a file that nobody may write. What the host has no
// place for (hidden, archive, read-only of a folder) is kept in the extended attribute
// "user.embedded.attributes" and so outlives the machine; on a host file system that has no
// extended attributes it is kept in memory until the machine goes. The machine never sets the
// archive attribute by itself.
//
// Sharing. Every open file is held against the sharing of all others of this machine, as on
// Windows. Other processes see it through advisory locks: a file opened without any sharing
// excludes every other opening, all others go together.

#include <atomic>
#include <cstdint>
#include <filesystem>
#include <memory>
#include <mutex>
#include <set>
#include <string>
#include <string_view>
#include <unordered_map>

#include "platform/embedded/machine.h"

namespace embedded {

// How often the driver turned to the file system since the machine began. Each call counts once,
// whether it succeeds or fails.
struct FileOperations {
    unsigned opens = 0;    // CreateFileW of an existing file
    unsigned creates = 0;  // CreateFileW of a new file, temporary names reserved, new folders
    unsigned copies = 0;
    unsigned moves = 0;
    unsigned reads = 0;
    unsigned writes = 0;
    unsigned attributes = 0;     // SetFileAttributesW
    unsigned profileReads = 0;   // each opens, reads and closes the profile
    unsigned profileWrites = 0;  // likewise

    unsigned All() const {
        return opens + creates + copies + moves + reads + writes + attributes + profileReads +
               profileWrites;
    }
    FileOperations operator-(const FileOperations& earlier) const;
    bool operator==(const FileOperations&) const = default;
};

// One file of the host, whatever its names.
struct FileIdentity {
    uint64_t device = 0;
    uint64_t number = 0;

    bool operator==(const FileIdentity&) const = default;
};

struct FileIdentityHash {
    size_t operator()(const FileIdentity& file) const {
        return std::hash<uint64_t>()(file.number ^ file.device << 48);
    }
};

// Who has which file open, and how. Held by every open file, so that it outlives them all.
class SharingTable {
  public:
    // ERROR_SUCCESS, or ERROR_SHARING_VIOLATION when this opening and those that are there do not
    // go together. Reading and writing are GENERIC_READ and GENERIC_WRITE in `access`.
    DWORD Open(const FileIdentity& file, DWORD access, DWORD sharing);
    void Close(const FileIdentity& file, DWORD access, DWORD sharing);
    // A file under a mapping cannot be cut short.
    void AddMapping(const FileIdentity& file);
    void RemoveMapping(const FileIdentity& file);
    bool IsOpen(const FileIdentity& file) const;
    bool IsMapped(const FileIdentity& file) const;

  private:
    struct Uses {
        unsigned opens = 0;
        unsigned readers = 0;
        unsigned writers = 0;
        unsigned readSharers = 0;
        unsigned writeSharers = 0;
        unsigned mappings = 0;
    };
    void Forget(const FileIdentity& file);

    mutable std::mutex mutex_;
    std::unordered_map<FileIdentity, Uses, FileIdentityHash> uses_;
};

// A descriptor of the host, closed with its last holder.
struct HostFile {
    HostFile(int fd, FileIdentity identity, std::string path)
        : fd(fd), identity(identity), path(std::move(path)) {}
    ~HostFile();
    HostFile(const HostFile&) = delete;
    HostFile& operator=(const HostFile&) = delete;

    const int fd;
    const FileIdentity identity;
    const std::string path;  // by which it was opened
};

// What CreateFileW's handle names. Its position is the descriptor's.
struct OpenFile : KernelObject {
    ~OpenFile() override;

    std::shared_ptr<HostFile> host;
    std::shared_ptr<SharingTable> table;
    DWORD access = 0;
    DWORD sharing = 0;
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

    // From now on nothing at or below this folder can be made, changed, renamed or removed, as if
    // the user had no right to; also when the host would let us. `readOnly` false undoes it.
    void MakeReadOnly(std::u16string_view folder, bool readOnly = true);

    // The attributes of a file or folder as GetFileAttributesW would give them (a file without
    // any has FILE_ATTRIBUTE_NORMAL); INVALID_FILE_ATTRIBUTES when there is none.
    DWORD Attributes(std::u16string_view path) const;

    FileOperations operations() const;

    // ---- For the machine's own calls. Failures are last-error codes; success is ERROR_SUCCESS.

    struct Opened {
        std::shared_ptr<OpenFile> file;  // null after a failure
        DWORD error = 0;
        bool existed = false;
    };
    // Disposition and attributes as CreateFileW takes them.
    Opened Open(std::u16string_view path, DWORD access, DWORD sharing, DWORD disposition,
                DWORD attributes);
    // Opens a profile as one that shares everything, and waits until no other process is in the
    // middle of changing it (or, for writing, reading it); the wait is over when the file goes.
    // For writing it is made when missing.
    Opened OpenProfile(std::u16string_view path, bool forWriting);
    DWORD Copy(std::u16string_view source, std::u16string_view target, bool failIfExists);
    DWORD Move(std::u16string_view source, std::u16string_view target);
    DWORD SetAttributes(std::u16string_view path, DWORD attributes);
    // A new folder with the attributes of the folder `likeThis`.
    DWORD MakeFolder(std::u16string_view path, std::u16string_view likeThis);
    // Makes a new empty file <prefix><number><".tmp"> in the folder, the number in upper-case
    // hexadecimal from 1 up to four digits.
    DWORD ReserveTemporary(std::u16string_view folder, std::u16string_view prefix,
                           uint16_t& number);
    // Whether the path names a folder that is there.
    bool IsFolder(std::u16string_view path) const;

    SharingTable& sharing() { return *sharing_; }

    struct Counters {
        std::atomic<unsigned> opens = 0, creates = 0, copies = 0, moves = 0, reads = 0, writes = 0,
                              attributes = 0, profileReads = 0, profileWrites = 0;
    };
    Counters counters;

  private:
    // A machine path on the host.
    struct Place {
        std::string path;         // empty when `error` says that there can be none
        DWORD error = 0;          // ERROR_SUCCESS for what is there, else why it is not
        bool isFolder = false;    // it is there, as a folder
        bool canBeMade = false;   // it is missing, but its folder is there
        size_t nameAt = 0;        // where its last part begins in `path`
        std::string writtenName;  // its last part as the caller wrote it
    };
    Place Find(std::u16string_view path) const;
    bool IsWritable(const std::string& hostPath) const;
    Opened OpenHost(const std::string& hostPath, int flags, DWORD access, DWORD sharing) const;
    Opened OpenForOverwriting(const Place& place, DWORD access, DWORD sharing, DWORD attributes);
    // Read-only, hidden and archive alone.
    DWORD AttributesOf(const std::string& hostPath) const;
    DWORD StoreAttributes(const std::string& hostPath, DWORD attributes);
    DWORD StoreKeptAttributes(const std::string& hostPath, const FileIdentity& identity,
                              DWORD kept);

    std::string driveC_;  // no slash at its end
    std::shared_ptr<SharingTable> sharing_ = std::make_shared<SharingTable>();
    std::atomic<uint16_t> nextTemporary_;

    mutable std::mutex mutex_;
    std::atomic<bool> anyReadOnly_ = false;
    std::set<std::string> readOnlyFolders_;
    // For host file systems without extended attributes.
    std::unordered_map<FileIdentity, DWORD, FileIdentityHash> keptAttributes_;
};

}  // namespace embedded
