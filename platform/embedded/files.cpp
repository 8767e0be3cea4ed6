#include "platform/embedded/files.h"

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <dirent.h>
#include <fcntl.h>
#include <strings.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <sys/xattr.h>
#include <unistd.h>
#include <vector>

#include "platform/embedded/api_kernel.h"
#include "platform/embedded/api_user.h"
#include "platform/embedded/text.h"

namespace embedded {
namespace {

constexpr char kAttributeName[] = "user.embedded.attributes";
// What the host has no place for, and what of a folder.
constexpr DWORD kKeptOfFiles = FILE_ATTRIBUTE_HIDDEN | FILE_ATTRIBUTE_ARCHIVE;
constexpr DWORD kKeptOfFolders = kKeptOfFiles | FILE_ATTRIBUTE_READONLY;
constexpr DWORD kKnownAttributes = FILE_ATTRIBUTE_READONLY | FILE_ATTRIBUTE_HIDDEN |
                                   FILE_ATTRIBUTE_ARCHIVE | FILE_ATTRIBUTE_NORMAL;
constexpr mode_t kAnyoneMayWrite = S_IWUSR | S_IWGRP | S_IWOTH;

DWORD ErrorOf(int hostError) {
    switch (hostError) {
    case ENOENT:
        return ERROR_FILE_NOT_FOUND;
    case ENOTDIR:
    case ELOOP:
        return ERROR_PATH_NOT_FOUND;
    case EACCES:
    case EPERM:
    case EROFS:
    case EISDIR:
        return ERROR_ACCESS_DENIED;
    case ETXTBSY:
    case EBUSY:
        return ERROR_SHARING_VIOLATION;
    case EEXIST:
        return ERROR_FILE_EXISTS;
    case ENAMETOOLONG:
        return ERROR_FILENAME_EXCED_RANGE;
    case EXDEV:
        return ERROR_NOT_SAME_DEVICE;
    case ENOSPC:
    case EDQUOT:
    case EFBIG:
        return ERROR_DISK_FULL;
    case ENOMEM:
    case EMFILE:
    case ENFILE:
        return ERROR_NOT_ENOUGH_MEMORY;
    default:
        return ERROR_GEN_FAILURE;
    }
}

FileIdentity IdentityOf(const struct stat& status) {
    return {.device = status.st_dev, .number = status.st_ino};
}

bool IsSeparator(char16_t character) {
    return character == u'\\' || character == u'/';
}

bool IsDriveLetter(char16_t character) {
    return (character >= u'A' && character <= u'Z') || (character >= u'a' && character <= u'z');
}

bool IsAllowedInNames(char16_t character) {
    return character >= 0x20 &&
           std::u16string_view(u"<>:\"|?*").find(character) == std::u16string_view::npos;
}

// A machine path taken apart.
struct ParsedPath {
    char16_t drive = 0;              // upper case; 0 for a path on a network
    std::vector<std::string> parts;  // in UTF-8, without "." and ".."
    bool endsInSeparator = false;
    bool isTooLong = false;
    bool hasBadName = false;
};

ParsedPath Parse(std::u16string_view path) {
    ParsedPath parsed;
    constexpr std::u16string_view kLongPrefix = u"\\\\?\\";
    if (path.starts_with(kLongPrefix)) {
        path.remove_prefix(kLongPrefix.size());
    } else {
        parsed.isTooLong = path.size() >= MAX_PATH;
        if (path.size() >= 2 && IsSeparator(path[0]) && IsSeparator(path[1])) {
            return parsed;
        }
    }
    parsed.drive = u'C';
    if (path.size() >= 2 && path[1] == u':' && IsDriveLetter(path[0])) {
        parsed.drive = FoldCase(path[0]);
        path.remove_prefix(2);
    }
    parsed.endsInSeparator = !path.empty() && IsSeparator(path.back());
    // The host's own names may hold what Windows forbids, and a user of drive Z: means them.
    const bool checkNames = parsed.drive == u'C';
    for (size_t begin = 0; begin < path.size();) {
        size_t end = begin;
        while (end < path.size() && !IsSeparator(path[end])) {
            parsed.hasBadName |= path[end] == 0 || (checkNames && !IsAllowedInNames(path[end]));
            ++end;
        }
        const std::u16string_view part = path.substr(begin, end - begin);
        if (part == u"..") {
            if (!parsed.parts.empty()) {
                parsed.parts.pop_back();
            }
        } else if (!part.empty() && part != u".") {
            parsed.parts.push_back(Utf8(part));
        }
        begin = end + 1;
    }
    return parsed;
}

bool IsAscii(std::string_view text) {
    return std::all_of(text.begin(), text.end(), [](char c) { return (c & 0x80) == 0; });
}

// The name in a host folder that equals `name` but for letter case, the first in byte order;
// empty when there is none.
std::string FindIgnoringCase(const std::string& folder, const std::string& name) {
    std::string found;
    DIR* listing = opendir(folder.empty() ? "/" : folder.c_str());
    if (listing == nullptr) {
        return found;
    }
    const bool ascii = IsAscii(name);
    const std::u16string wide = ascii ? std::u16string() : Utf16(name);
    while (const dirent* entry = readdir(listing)) {
        const bool equal = ascii ? strcasecmp(entry->d_name, name.c_str()) == 0
                                 : EqualIgnoringCase(Utf16(entry->d_name), wide);
        if (equal && (found.empty() || found > entry->d_name)) {
            found = entry->d_name;
        }
    }
    closedir(listing);
    return found;
}

bool LockWhole(int fd, short type) {
    struct flock lock = {};
    lock.l_type = type;
    lock.l_whence = SEEK_SET;
    int result;
    do {
        result = fcntl(fd, F_OFD_SETLKW, &lock);
    } while (result != 0 && errno == EINTR);
    return result == 0;
}

// Copies from the position of each to the end of `from`. Returns a host error.
int CopyBytes(int from, int to) {
    constexpr size_t kPiece = size_t{1} << 16;
    const auto buffer = std::make_unique_for_overwrite<char[]>(kPiece);
    for (;;) {
        const ssize_t got = read(from, buffer.get(), kPiece);
        if (got == 0) {
            return 0;
        }
        if (got < 0) {
            if (errno == EINTR) {
                continue;
            }
            return errno;
        }
        for (ssize_t done = 0; done < got;) {
            const ssize_t put = write(to, buffer.get() + done, static_cast<size_t>(got - done));
            if (put < 0 && errno != EINTR) {
                return errno;
            }
            done += put > 0 ? put : 0;
        }
    }
}

}  // namespace

// ---- Sharing ----

DWORD SharingTable::Open(const FileIdentity& file, DWORD access, DWORD sharing) {
    const bool reads = (access & GENERIC_READ) != 0;
    const bool writes = (access & GENERIC_WRITE) != 0;
    const bool sharesReading = (sharing & FILE_SHARE_READ) != 0;
    const bool sharesWriting = (sharing & FILE_SHARE_WRITE) != 0;
    std::lock_guard lock(mutex_);
    Uses& uses = uses_[file];
    if ((reads && uses.readSharers < uses.opens) || (writes && uses.writeSharers < uses.opens) ||
        (!sharesReading && uses.readers != 0) || (!sharesWriting && uses.writers != 0)) {
        Forget(file);
        return ERROR_SHARING_VIOLATION;
    }
    ++uses.opens;
    uses.readers += reads;
    uses.writers += writes;
    uses.readSharers += sharesReading;
    uses.writeSharers += sharesWriting;
    return ERROR_SUCCESS;
}

void SharingTable::Close(const FileIdentity& file, DWORD access, DWORD sharing) {
    std::lock_guard lock(mutex_);
    Uses& uses = uses_[file];
    --uses.opens;
    uses.readers -= (access & GENERIC_READ) != 0;
    uses.writers -= (access & GENERIC_WRITE) != 0;
    uses.readSharers -= (sharing & FILE_SHARE_READ) != 0;
    uses.writeSharers -= (sharing & FILE_SHARE_WRITE) != 0;
    Forget(file);
}

void SharingTable::AddMapping(const FileIdentity& file) {
    std::lock_guard lock(mutex_);
    ++uses_[file].mappings;
}

void SharingTable::RemoveMapping(const FileIdentity& file) {
    std::lock_guard lock(mutex_);
    --uses_[file].mappings;
    Forget(file);
}

// Drops the entry of a file that nobody uses any more; the host may give its number to another.
void SharingTable::Forget(const FileIdentity& file) {
    const auto entry = uses_.find(file);
    if (entry->second.opens == 0 && entry->second.mappings == 0) {
        uses_.erase(entry);
    }
}

bool SharingTable::IsOpen(const FileIdentity& file) const {
    std::lock_guard lock(mutex_);
    const auto entry = uses_.find(file);
    return entry != uses_.end() && entry->second.opens != 0;
}

bool SharingTable::IsMapped(const FileIdentity& file) const {
    std::lock_guard lock(mutex_);
    const auto entry = uses_.find(file);
    return entry != uses_.end() && entry->second.mappings != 0;
}

HostFile::~HostFile() {
    close(fd);
}

OpenFile::~OpenFile() {
    table->Close(host->identity, access, sharing);
    if (host.use_count() > 1) {
        // A mapping keeps the descriptor, but it does not keep others from opening the file.
        flock(host->fd, LOCK_UN);
    }
}

FileOperations FileOperations::operator-(const FileOperations& earlier) const {
    return {.opens = opens - earlier.opens,
            .creates = creates - earlier.creates,
            .copies = copies - earlier.copies,
            .moves = moves - earlier.moves,
            .reads = reads - earlier.reads,
            .writes = writes - earlier.writes,
            .attributes = attributes - earlier.attributes,
            .profileReads = profileReads - earlier.profileReads,
            .profileWrites = profileWrites - earlier.profileWrites};
}

// ---- Paths ----

FileSystem::FileSystem(Machine& machine)
    : driveC_(std::filesystem::absolute(machine.driveC()).lexically_normal().string()),
      // Another machine's names begin elsewhere, so that two seldom try the same ones.
      nextTemporary_(static_cast<uint16_t>(time(nullptr) * 61 + getpid())) {
    while (driveC_.ends_with('/')) {
        driveC_.pop_back();
    }
}

FileSystem::Place FileSystem::Find(std::u16string_view path) const {
    Place place;
    place.error = ERROR_PATH_NOT_FOUND;
    const ParsedPath parsed = Parse(path);
    if (path.empty() || (parsed.drive != u'C' && parsed.drive != u'Z')) {
        return place;
    }
    if (parsed.hasBadName) {
        place.error = ERROR_INVALID_NAME;
        return place;
    }
    place.path = parsed.drive == u'C' ? driveC_ : std::string();
    const std::string root = place.path;
    for (const std::string& part : parsed.parts) {
        place.nameAt = place.path.size() + 1;
        place.path += '/';
        place.path += part;
    }
    if (!parsed.parts.empty()) {
        place.writtenName = parsed.parts.back();
    }

    struct stat status;
    const auto isThere = [&](const std::string& host) {
        return stat(host.empty() ? "/" : host.c_str(), &status) == 0;
    };
    bool found = isThere(place.path);
    if (!found) {
        // Part by part, each as written where that is there.
        place.path = root;
        bool folderIsThere = isThere(place.path) && S_ISDIR(status.st_mode);
        for (const std::string& part : parsed.parts) {
            std::string next = place.path + '/' + part;
            found = folderIsThere && isThere(next);
            if (folderIsThere && !found) {
                const std::string other = FindIgnoringCase(place.path, part);
                if (!other.empty()) {
                    next = place.path + '/' + other;
                    found = isThere(next);
                }
            }
            place.canBeMade = folderIsThere && !found;
            place.nameAt = place.path.size() + 1;
            place.path = std::move(next);
            folderIsThere = found && S_ISDIR(status.st_mode);
        }
        // Of a path that goes on below what is missing, nothing can be made.
    }
    if (parsed.isTooLong) {
        place.canBeMade = false;
        return place;
    }
    if (!found) {
        place.error = place.canBeMade ? ERROR_FILE_NOT_FOUND : ERROR_PATH_NOT_FOUND;
    } else {
        place.error = ERROR_SUCCESS;
        place.isFolder = S_ISDIR(status.st_mode);
    }
    if (parsed.endsInSeparator && !place.isFolder && (found || place.canBeMade)) {
        place.error = ERROR_INVALID_NAME;
        place.canBeMade = false;
    }
    return place;
}

std::filesystem::path FileSystem::HostPath(std::u16string_view path) const {
    const Place place = Find(path);
    // The host's root is the one place whose path is empty.
    return place.path.empty() && place.error == ERROR_SUCCESS ? "/" : place.path;
}

std::u16string FileSystem::MachinePath(const std::filesystem::path& path) const {
    std::string host = std::filesystem::absolute(path).lexically_normal().string();
    std::u16string machine = u"Z:";
    if (host.starts_with(driveC_) &&
        (host.size() == driveC_.size() || host[driveC_.size()] == '/')) {
        host.erase(0, driveC_.size());
        machine = u"C:";
    }
    machine += Utf16(host.empty() ? "/" : host);
    std::replace(machine.begin(), machine.end(), u'/', u'\\');
    return machine;
}

bool FileSystem::IsFolder(std::u16string_view path) const {
    return Find(path).isFolder;
}

// ---- Attributes and rights ----

void FileSystem::MakeReadOnly(std::u16string_view folder, bool readOnly) {
    const std::string host = std::filesystem::weakly_canonical(HostPath(folder)).string();
    std::lock_guard lock(mutex_);
    if (readOnly) {
        readOnlyFolders_.insert(host);
    } else {
        readOnlyFolders_.erase(host);
    }
    anyReadOnly_ = !readOnlyFolders_.empty();
}

bool FileSystem::IsWritable(const std::string& hostPath) const {
    if (!anyReadOnly_) {
        return true;
    }
    std::error_code ignored;
    const std::string host = std::filesystem::weakly_canonical(hostPath, ignored).string();
    std::lock_guard lock(mutex_);
    return std::none_of(readOnlyFolders_.begin(), readOnlyFolders_.end(),
                        [&](const std::string& folder) {
                            return host.starts_with(folder) &&
                                   (host.size() == folder.size() || folder.ends_with('/') ||
                                    host[folder.size()] == '/');
                        });
}

DWORD FileSystem::AttributesOf(const std::string& hostPath) const {
    struct stat status;
    if (stat(hostPath.c_str(), &status) != 0) {
        return 0;
    }
    char text[16] = {};
    DWORD attributes = 0;
    if (getxattr(hostPath.c_str(), kAttributeName, text, sizeof(text) - 1) > 0) {
        attributes = static_cast<DWORD>(strtoul(text, nullptr, 16));
    } else if (errno == ENOTSUP) {
        std::lock_guard lock(mutex_);
        const auto kept = keptAttributes_.find(IdentityOf(status));
        attributes = kept != keptAttributes_.end() ? kept->second : 0;
    }
    if (S_ISDIR(status.st_mode)) {
        return attributes & kKeptOfFolders;
    }
    attributes &= kKeptOfFiles;
    return (status.st_mode & kAnyoneMayWrite) == 0 ? attributes | FILE_ATTRIBUTE_READONLY
                                                   : attributes;
}

DWORD FileSystem::StoreKeptAttributes(const std::string& hostPath, const FileIdentity& identity,
                                      DWORD kept) {
    char text[16];
    const int length = snprintf(text, sizeof(text), "%x", kept);
    const int result =
        kept != 0 ? setxattr(hostPath.c_str(), kAttributeName, text, static_cast<size_t>(length), 0)
                  : removexattr(hostPath.c_str(), kAttributeName);
    if (result == 0 || errno == ENODATA) {
        return ERROR_SUCCESS;
    }
    if (errno != ENOTSUP) {
        return ErrorOf(errno);
    }
    std::lock_guard lock(mutex_);
    if (kept != 0) {
        keptAttributes_[identity] = kept;
    } else {
        keptAttributes_.erase(identity);
    }
    return ERROR_SUCCESS;
}

DWORD FileSystem::StoreAttributes(const std::string& hostPath, DWORD attributes) {
    struct stat status;
    if (stat(hostPath.c_str(), &status) != 0) {
        return ErrorOf(errno);
    }
    const bool isFolder = S_ISDIR(status.st_mode);
    const mode_t mode = status.st_mode & 07777;
    const bool isProtected = !isFolder && (mode & kAnyoneMayWrite) == 0;
    const bool protect = !isFolder && (attributes & FILE_ATTRIBUTE_READONLY) != 0;
    // Extended attributes of a protected file cannot be changed, so protection goes first and
    // comes last.
    if (isProtected && chmod(hostPath.c_str(), mode | S_IWUSR) != 0) {
        return ErrorOf(errno);
    }
    const DWORD kept = attributes & (isFolder ? kKeptOfFolders : kKeptOfFiles);
    const DWORD error = StoreKeptAttributes(hostPath, IdentityOf(status), kept);
    if (error != ERROR_SUCCESS || protect) {
        const mode_t last = error != ERROR_SUCCESS ? mode : mode & ~kAnyoneMayWrite;
        if (chmod(hostPath.c_str(), last) != 0 && error == ERROR_SUCCESS) {
            return ErrorOf(errno);
        }
    }
    return error;
}

DWORD FileSystem::Attributes(std::u16string_view path) const {
    const Place place = Find(path);
    if (place.error != ERROR_SUCCESS) {
        return INVALID_FILE_ATTRIBUTES;
    }
    const DWORD attributes =
        AttributesOf(place.path) | (place.isFolder ? FILE_ATTRIBUTE_DIRECTORY : 0);
    return attributes != 0 ? attributes : FILE_ATTRIBUTE_NORMAL;
}

DWORD FileSystem::SetAttributes(std::u16string_view path, DWORD attributes) {
    if ((attributes & ~kKnownAttributes) != 0) {
        return ERROR_INVALID_PARAMETER;
    }
    const Place place = Find(path);
    if (place.error != ERROR_SUCCESS) {
        return place.error;
    }
    return IsWritable(place.path) ? StoreAttributes(place.path, attributes) : ERROR_ACCESS_DENIED;
}

// ---- Opening ----

FileSystem::Opened FileSystem::OpenHost(const std::string& hostPath, int flags, DWORD access,
                                        DWORD sharing) const {
    // O_NONBLOCK: a pipe of the host is refused below instead of waited for.
    const int fd = open(hostPath.c_str(), flags | O_CLOEXEC | O_NOCTTY | O_NONBLOCK, 0666);
    if (fd < 0) {
        return {.file = nullptr, .error = ErrorOf(errno)};
    }
    struct stat status;
    if (fstat(fd, &status) != 0 || !S_ISREG(status.st_mode)) {
        close(fd);
        return {.file = nullptr, .error = ERROR_ACCESS_DENIED};
    }
    auto host = std::make_shared<HostFile>(fd, IdentityOf(status), hostPath);
    const DWORD error = sharing_->Open(host->identity, access, sharing);
    if (error != ERROR_SUCCESS) {
        return {.file = nullptr, .error = error};
    }
    auto file = std::make_shared<OpenFile>();
    file->host = std::move(host);
    file->table = sharing_;
    file->access = access;
    file->sharing = sharing;
    // A host file system without locks is no reason to fail.
    if (flock(fd, (sharing == 0 ? LOCK_EX : LOCK_SH) | LOCK_NB) != 0 && errno == EWOULDBLOCK) {
        return {.file = nullptr, .error = ERROR_SHARING_VIOLATION};
    }
    return {.file = std::move(file), .error = ERROR_SUCCESS};
}

FileSystem::Opened FileSystem::OpenForOverwriting(const Place& place, DWORD access, DWORD sharing,
                                                  DWORD attributes) {
    const bool existed = place.error == ERROR_SUCCESS;
    const DWORD had = existed ? AttributesOf(place.path) : 0;
    // Windows lets a hidden file be overwritten only by one who knows that it is hidden.
    if ((had & FILE_ATTRIBUTE_READONLY) != 0 || (had & FILE_ATTRIBUTE_HIDDEN & ~attributes) != 0) {
        return {.file = nullptr, .error = ERROR_ACCESS_DENIED};
    }
    const int flags = ((access & GENERIC_READ) != 0 ? O_RDWR : O_WRONLY) | O_CREAT;
    Opened opened = OpenHost(place.path, flags, access, sharing);
    if (opened.file == nullptr) {
        return opened;
    }
    const HostFile& host = *opened.file->host;
    if (sharing_->IsMapped(host.identity)) {
        return {.file = nullptr, .error = ERROR_USER_MAPPED_FILE};
    }
    // A reserved temporary file is empty already, and host file systems make a file that was cut
    // to nothing wait for the disk when it is closed.
    struct stat status;
    const bool isEmpty = fstat(host.fd, &status) == 0 && status.st_size == 0;
    DWORD error = isEmpty || ftruncate(host.fd, 0) == 0 ? ERROR_SUCCESS : ErrorOf(errno);
    const DWORD wanted = attributes & ~FILE_ATTRIBUTE_NORMAL;
    if (error == ERROR_SUCCESS && wanted != had) {
        error = StoreAttributes(place.path, attributes);
    }
    if (error != ERROR_SUCCESS) {
        return {.file = nullptr, .error = error};
    }
    opened.existed = existed;
    return opened;
}

FileSystem::Opened FileSystem::Open(std::u16string_view path, DWORD access, DWORD sharing,
                                    DWORD disposition, DWORD attributes) {
    if ((access & ~(GENERIC_READ | GENERIC_WRITE)) != 0 ||
        (sharing & ~(FILE_SHARE_READ | FILE_SHARE_WRITE)) != 0 ||
        (disposition != CREATE_ALWAYS && disposition != OPEN_EXISTING) ||
        (attributes & ~kKnownAttributes) != 0) {
        return {.file = nullptr, .error = ERROR_INVALID_PARAMETER};
    }
    const bool writes = (access & GENERIC_WRITE) != 0 || disposition == CREATE_ALWAYS;
    const Place place = Find(path);
    if (place.isFolder || (writes && !place.path.empty() && !IsWritable(place.path))) {
        return {.file = nullptr, .error = ERROR_ACCESS_DENIED};
    }
    if (disposition == CREATE_ALWAYS && (place.error == ERROR_SUCCESS || place.canBeMade)) {
        return OpenForOverwriting(place, access, sharing, attributes);
    }
    if (place.error != ERROR_SUCCESS) {
        return {.file = nullptr, .error = place.error};
    }
    if (writes && (AttributesOf(place.path) & FILE_ATTRIBUTE_READONLY) != 0) {
        return {.file = nullptr, .error = ERROR_ACCESS_DENIED};
    }
    const int flags = !writes ? O_RDONLY : (access & GENERIC_READ) != 0 ? O_RDWR : O_WRONLY;
    Opened opened = OpenHost(place.path, flags, access, sharing);
    opened.existed = true;
    return opened;
}

FileSystem::Opened FileSystem::OpenProfile(std::u16string_view path, bool forWriting) {
    const Place place = Find(path);
    if (place.isFolder || (forWriting && !place.path.empty() && !IsWritable(place.path))) {
        return {.file = nullptr, .error = ERROR_ACCESS_DENIED};
    }
    if (place.error != ERROR_SUCCESS && !(forWriting && place.canBeMade)) {
        return {.file = nullptr, .error = place.error};
    }
    if (forWriting && (AttributesOf(place.path) & FILE_ATTRIBUTE_READONLY) != 0) {
        return {.file = nullptr, .error = ERROR_ACCESS_DENIED};
    }
    Opened opened = OpenHost(place.path, forWriting ? O_RDWR | O_CREAT : O_RDONLY,
                             forWriting ? GENERIC_READ | GENERIC_WRITE : GENERIC_READ,
                             FILE_SHARE_READ | FILE_SHARE_WRITE);
    opened.existed = place.error == ERROR_SUCCESS;
    if (opened.file != nullptr) {
        // Best effort, like every lock here.
        LockWhole(opened.file->host->fd, forWriting ? F_WRLCK : F_RDLCK);
    }
    return opened;
}

// ---- Whole files ----

DWORD FileSystem::Copy(std::u16string_view source, std::u16string_view target, bool failIfExists) {
    const Opened from =
        Open(source, GENERIC_READ, FILE_SHARE_READ | FILE_SHARE_WRITE, OPEN_EXISTING, 0);
    if (from.file == nullptr) {
        return from.error;
    }
    if (failIfExists && Find(target).error == ERROR_SUCCESS) {
        return ERROR_FILE_EXISTS;
    }
    const HostFile& fromHost = *from.file->host;
    const Opened to = Open(target, GENERIC_WRITE, 0, CREATE_ALWAYS, FILE_ATTRIBUTE_NORMAL);
    if (to.file == nullptr) {
        return to.error;
    }
    const HostFile& toHost = *to.file->host;
    // So that a profile is not copied while another process is in the middle of changing it.
    LockWhole(fromHost.fd, F_RDLCK);
    const int hostError = CopyBytes(fromHost.fd, toHost.fd);
    struct stat status;
    if (hostError != 0 || fstat(fromHost.fd, &status) != 0) {
        unlink(toHost.path.c_str());
        return hostError != 0 ? ErrorOf(hostError) : ERROR_READ_FAULT;
    }
    // A copy is as old as what it was made from.
    const timespec times[2] = {{.tv_sec = 0, .tv_nsec = UTIME_OMIT}, status.st_mtim};
    (void)futimens(toHost.fd, times);
    const DWORD attributes = AttributesOf(fromHost.path);
    return attributes != 0 ? StoreAttributes(toHost.path, attributes) : ERROR_SUCCESS;
}

DWORD FileSystem::Move(std::u16string_view source, std::u16string_view target) {
    const Place from = Find(source);
    if (from.error != ERROR_SUCCESS) {
        return from.error;
    }
    const Place to = Find(target);
    if (to.error == ERROR_SUCCESS && to.path != from.path) {
        return ERROR_ALREADY_EXISTS;
    }
    if (to.error != ERROR_SUCCESS && !to.canBeMade) {
        return to.error;
    }
    if (!IsWritable(from.path) || !IsWritable(to.path)) {
        return ERROR_ACCESS_DENIED;
    }
    struct stat status;
    if (stat(from.path.c_str(), &status) != 0) {
        return ErrorOf(errno);
    }
    if (sharing_->IsOpen(IdentityOf(status))) {
        return ERROR_SHARING_VIOLATION;
    }
    // A file may be renamed to its own name in other letters.
    const std::string written = to.path.substr(0, to.nameAt) + to.writtenName;
    if (written == from.path) {
        return ERROR_SUCCESS;
    }
    if (renameat2(AT_FDCWD, from.path.c_str(), AT_FDCWD, written.c_str(), RENAME_NOREPLACE) == 0) {
        return ERROR_SUCCESS;
    }
    if (errno == EINVAL || errno == ENOSYS) {
        // The host file system cannot refuse by itself; the target was missing a moment ago.
        return rename(from.path.c_str(), written.c_str()) == 0 ? ERROR_SUCCESS : ErrorOf(errno);
    }
    if (errno == EEXIST) {
        return ERROR_ALREADY_EXISTS;
    }
    if (errno != EXDEV || from.isFolder) {
        return ErrorOf(errno);
    }
    const DWORD error = Copy(source, target, true);
    if (error == ERROR_SUCCESS) {
        unlink(from.path.c_str());
    }
    return error;
}

DWORD FileSystem::MakeFolder(std::u16string_view path, std::u16string_view likeThis) {
    const Place model = Find(likeThis);
    if (model.error != ERROR_SUCCESS || !model.isFolder) {
        return model.error != ERROR_SUCCESS ? model.error : ERROR_DIRECTORY;
    }
    const Place place = Find(path);
    if (place.error == ERROR_SUCCESS) {
        return ERROR_ALREADY_EXISTS;
    }
    if (!place.canBeMade) {
        return place.error;
    }
    if (!IsWritable(place.path)) {
        return ERROR_ACCESS_DENIED;
    }
    if (mkdir(place.path.c_str(), 0777) != 0) {
        return errno == EEXIST ? ERROR_ALREADY_EXISTS : ErrorOf(errno);
    }
    return StoreAttributes(place.path, AttributesOf(model.path));
}

DWORD FileSystem::ReserveTemporary(std::u16string_view folder, std::u16string_view prefix,
                                   uint16_t& number) {
    const Place place = Find(folder);
    if (!place.isFolder) {
        return ERROR_DIRECTORY;
    }
    if (!std::all_of(prefix.begin(), prefix.end(),
                     [](char16_t c) { return IsAllowedInNames(c) && !IsSeparator(c); })) {
        return ERROR_INVALID_NAME;
    }
    if (!IsWritable(place.path)) {
        return ERROR_ACCESS_DENIED;
    }
    const std::string stem = place.path + '/' + Utf8(prefix);
    for (unsigned tries = 0; tries < 0x10000; ++tries) {
        number = nextTemporary_++;
        if (number == 0) {
            continue;
        }
        char rest[16];
        snprintf(rest, sizeof(rest), "%X.tmp", number);
        const int fd = open((stem + rest).c_str(), O_WRONLY | O_CREAT | O_EXCL | O_CLOEXEC, 0666);
        if (fd >= 0) {
            close(fd);
            return ERROR_SUCCESS;
        }
        if (errno != EEXIST) {
            return ErrorOf(errno);
        }
    }
    return ERROR_FILE_EXISTS;
}

FileOperations FileSystem::operations() const {
    return {.opens = counters.opens,
            .creates = counters.creates,
            .copies = counters.copies,
            .moves = counters.moves,
            .reads = counters.reads,
            .writes = counters.writes,
            .attributes = counters.attributes,
            .profileReads = counters.profileReads,
            .profileWrites = counters.profileWrites};
}

namespace {

FileSystem& Files() {
    return Machine::Current().files();
}

// The result of a call that answers TRUE or FALSE. A call that went well leaves the last error
// as it was.
BOOL Answer(DWORD error) {
    if (error != ERROR_SUCCESS) {
        SetLastError(error);
    }
    return error == ERROR_SUCCESS;
}

// The file of a handle, when it was opened with that access.
std::shared_ptr<OpenFile> FileOf(HANDLE handle, DWORD access, DWORD& error) {
    auto file = Machine::Current().handles.Get<OpenFile>(handle);
    error = file == nullptr                     ? ERROR_INVALID_HANDLE
            : (file->access & access) != access ? ERROR_ACCESS_DENIED
                                                : ERROR_SUCCESS;
    return error == ERROR_SUCCESS ? file : nullptr;
}

}  // namespace
}  // namespace embedded

using namespace embedded;

HANDLE CreateFileW(LPCWSTR path, DWORD access, DWORD sharing, SECURITY_ATTRIBUTES* security,
                   DWORD disposition, DWORD attributes, HANDLE templateFile) {
    static CallSite call("CreateFileW");
    auto& counters = Files().counters;
    ++(disposition == CREATE_ALWAYS ? counters.creates : counters.opens);
    FileSystem::Opened opened;
    if (call.Fails()) {
        opened.error = ERROR_ACCESS_DENIED;
    } else if (path == nullptr || security != nullptr || templateFile != nullptr) {
        opened.error = ERROR_INVALID_PARAMETER;
    } else {
        opened = Files().Open(path, access, sharing, disposition, attributes);
    }
    if (opened.file == nullptr) {
        SetLastError(opened.error);
        return INVALID_HANDLE_VALUE;
    }
    SetLastError(disposition == CREATE_ALWAYS && opened.existed ? ERROR_ALREADY_EXISTS
                                                                : ERROR_SUCCESS);
    return Machine::Current().handles.Insert(std::move(opened.file));
}

BOOL ReadFile(HANDLE handle, LPVOID buffer, DWORD bytes, DWORD* bytesRead, OVERLAPPED* overlapped) {
    static CallSite call("ReadFile");
    ++Files().counters.reads;
    if (bytesRead == nullptr || overlapped != nullptr) {
        return Answer(ERROR_INVALID_PARAMETER);
    }
    *bytesRead = 0;
    DWORD error;
    const auto file = FileOf(handle, GENERIC_READ, error);
    if (call.Fails()) {
        return Answer(ERROR_READ_FAULT);
    }
    while (error == ERROR_SUCCESS && *bytesRead < bytes) {
        const ssize_t got =
            read(file->host->fd, static_cast<char*>(buffer) + *bytesRead, bytes - *bytesRead);
        if (got == 0) {
            break;
        }
        if (got > 0) {
            *bytesRead += static_cast<DWORD>(got);
        } else if (errno != EINTR) {
            error = ERROR_READ_FAULT;
        }
    }
    return Answer(error);
}

BOOL WriteFile(HANDLE handle, LPCVOID buffer, DWORD bytes, DWORD* bytesWritten,
               OVERLAPPED* overlapped) {
    static CallSite call("WriteFile");
    ++Files().counters.writes;
    if (bytesWritten == nullptr || overlapped != nullptr) {
        return Answer(ERROR_INVALID_PARAMETER);
    }
    *bytesWritten = 0;
    DWORD error;
    const auto file = FileOf(handle, GENERIC_WRITE, error);
    if (call.Fails()) {
        return Answer(ERROR_DISK_FULL);
    }
    while (error == ERROR_SUCCESS && *bytesWritten < bytes) {
        const ssize_t put = write(file->host->fd, static_cast<const char*>(buffer) + *bytesWritten,
                                  bytes - *bytesWritten);
        if (put >= 0) {
            *bytesWritten += static_cast<DWORD>(put);
        } else if (errno != EINTR) {
            error = ErrorOf(errno);
        }
    }
    return Answer(error);
}

DWORD GetFileSize(HANDLE handle, DWORD* sizeHigh) {
    static CallSite call("GetFileSize");
    const auto file = Machine::Current().handles.Get<OpenFile>(handle);
    struct stat status;
    if (call.Fails() || file == nullptr || fstat(file->host->fd, &status) != 0) {
        SetLastError(file == nullptr ? ERROR_INVALID_HANDLE : ERROR_ACCESS_DENIED);
        return INVALID_FILE_SIZE;
    }
    const auto size = static_cast<uint64_t>(status.st_size);
    if (sizeHigh != nullptr) {
        *sizeHigh = static_cast<DWORD>(size >> 32);
    }
    if (static_cast<DWORD>(size) == INVALID_FILE_SIZE) {
        SetLastError(NO_ERROR);  // how a caller tells this size from a failure
    }
    return static_cast<DWORD>(size);
}

BOOL CloseHandle(HANDLE handle) {
    static CallSite call("CloseHandle");
    // A closing that is told to fail closes all the same: nobody can try it again.
    const bool fails = call.Fails();
    const bool closed = Machine::Current().handles.Close<KernelObject>(handle);
    return Answer(closed && !fails ? ERROR_SUCCESS : ERROR_INVALID_HANDLE);
}

BOOL CopyFileW(LPCWSTR source, LPCWSTR target, BOOL failIfExists) {
    static CallSite call("CopyFileW");
    ++Files().counters.copies;
    if (call.Fails()) {
        return Answer(ERROR_ACCESS_DENIED);
    }
    if (source == nullptr || target == nullptr) {
        return Answer(ERROR_INVALID_PARAMETER);
    }
    return Answer(Files().Copy(source, target, failIfExists != FALSE));
}

BOOL MoveFileW(LPCWSTR source, LPCWSTR target) {
    static CallSite call("MoveFileW");
    ++Files().counters.moves;
    if (call.Fails()) {
        return Answer(ERROR_ACCESS_DENIED);
    }
    if (source == nullptr || target == nullptr) {
        return Answer(ERROR_INVALID_PARAMETER);
    }
    return Answer(Files().Move(source, target));
}

BOOL SetFileAttributesW(LPCWSTR path, DWORD attributes) {
    static CallSite call("SetFileAttributesW");
    ++Files().counters.attributes;
    if (call.Fails()) {
        return Answer(ERROR_ACCESS_DENIED);
    }
    if (path == nullptr) {
        return Answer(ERROR_INVALID_PARAMETER);
    }
    return Answer(Files().SetAttributes(path, attributes));
}

UINT GetTempFileNameW(LPCWSTR folder, LPCWSTR prefix, UINT unique, LPWSTR name) {
    static CallSite call("GetTempFileNameW");
    ++Files().counters.creates;
    if (call.Fails()) {
        SetLastError(ERROR_ACCESS_DENIED);
        return 0;
    }
    if (folder == nullptr || name == nullptr) {
        SetLastError(ERROR_INVALID_PARAMETER);
        return 0;
    }
    constexpr size_t kRoomForName = 14;  // of separator, name, extension and terminator
    std::u16string path = folder;
    if (path.size() > MAX_PATH - kRoomForName) {
        SetLastError(ERROR_BUFFER_OVERFLOW);
        return 0;
    }
    const std::u16string start = std::u16string(prefix != nullptr ? prefix : u"").substr(0, 3);
    auto number = static_cast<uint16_t>(unique);
    DWORD error = ERROR_SUCCESS;
    if (unique == 0) {
        error = Files().ReserveTemporary(path, start, number);
    } else if (!Files().IsFolder(path)) {
        error = ERROR_DIRECTORY;
    }
    if (error != ERROR_SUCCESS) {
        SetLastError(error);
        return 0;
    }
    if (!IsSeparator(path.back())) {
        path += u'\\';
    }
    char digits[8];
    const int count = snprintf(digits, sizeof(digits), "%X", number);
    path += start;
    path.append(digits, digits + count);
    path += u".tmp";
    std::copy_n(path.c_str(), path.size() + 1, name);
    return unique != 0 ? unique : number;
}

namespace {

constexpr std::u16string_view kWindowsFolder = u"C:\\Windows";

// Stores a text with its terminator where there is room for both; what the call answers.
template <typename Text>
UINT StorePath(const Text& text, typename Text::value_type* path, UINT characters) {
    if (characters <= text.size()) {
        return static_cast<UINT>(text.size() + 1);
    }
    *std::copy(text.begin(), text.end(), path) = 0;
    return static_cast<UINT>(text.size());
}

// Empty for a folder that the machine does not know. Users have their folders before they run
// anything.
std::u16string UserFolder(int folder) {
    std::u16string path = u"C:\\Users\\" + Machine::Current().setup().userName;
    switch (folder) {
    case CSIDL_PERSONAL:
        path += u"\\Documents";
        break;
    case CSIDL_APPDATA:
        path += u"\\AppData\\Roaming";
        break;
    default:
        return {};
    }
    std::error_code ignored;
    std::filesystem::create_directories(Files().HostPath(path), ignored);
    return path;
}

template <typename Text>
HRESULT StoreUserFolder(const Text& folder, typename Text::value_type* path) {
    if (folder.empty() || folder.size() >= MAX_PATH) {
        path[0] = 0;
        return E_FAIL;
    }
    StorePath(folder, path, MAX_PATH);
    return S_OK;
}

}  // namespace

UINT GetWindowsDirectoryW(LPWSTR path, UINT characters) {
    static CallSite call("GetWindowsDirectoryW");
    if (call.Fails()) {
        SetLastError(ERROR_ACCESS_DENIED);
        return 0;
    }
    return StorePath(kWindowsFolder, path, characters);
}

UINT GetWindowsDirectoryA(LPSTR path, UINT characters) {
    static CallSite call("GetWindowsDirectoryA");
    if (call.Fails()) {
        SetLastError(ERROR_ACCESS_DENIED);
        return 0;
    }
    return StorePath(ToAnsi(kWindowsFolder), path, characters);
}

BOOL CreateDirectoryExW(LPCWSTR likeThis, LPCWSTR path, SECURITY_ATTRIBUTES* security) {
    static CallSite call("CreateDirectoryExW");
    ++Files().counters.creates;
    if (call.Fails()) {
        return Answer(ERROR_ACCESS_DENIED);
    }
    if (likeThis == nullptr || path == nullptr || security != nullptr) {
        return Answer(ERROR_INVALID_PARAMETER);
    }
    return Answer(Files().MakeFolder(path, likeThis));
}

HRESULT SHGetFolderPathW(HWND, int folder, HANDLE, DWORD, LPWSTR path) {
    static CallSite call("SHGetFolderPathW");
    return call.Fails() ? E_FAIL : StoreUserFolder(UserFolder(folder), path);
}

HRESULT SHGetFolderPathA(HWND, int folder, HANDLE, DWORD, LPSTR path) {
    static CallSite call("SHGetFolderPathA");
    return call.Fails() ? E_FAIL : StoreUserFolder(ToAnsi(UserFolder(folder)), path);
}
