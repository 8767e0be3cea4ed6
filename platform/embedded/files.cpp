#include "platform/embedded/files.h"

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <ctime>
#include <dirent.h>
#include <fcntl.h>
#include <sys/file.h>
#include <sys/sendfile.h>
#include <sys/stat.h>
#include <unistd.h>
#include <vector>

#include "platform/embedded/api_kernel.h"
#include "platform/embedded/api_user.h"
#include "platform/embedded/text.h"

namespace embedded {
namespace {

constexpr DWORD kReadWrite = GENERIC_READ | GENERIC_WRITE;
constexpr DWORD kShareAll = FILE_SHARE_READ | FILE_SHARE_WRITE;
constexpr DWORD kKeptAttributes = FILE_ATTRIBUTE_READONLY | FILE_ATTRIBUTE_HIDDEN;
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
    case EEXIST:
        return ERROR_ALREADY_EXISTS;
    case EXDEV:
        return ERROR_NOT_SAME_DEVICE;
    case ENOSPC:
    case EDQUOT:
    case EFBIG:
        return ERROR_DISK_FULL;
    default:
        return ERROR_GEN_FAILURE;
    }
}

bool IsSeparator(char16_t character) {
    return character == u'\\' || character == u'/';
}

bool IsAllowedInNames(char16_t character) {
    return character >= 0x20 &&
           std::u16string_view(u"<>:\"|?*").find(character) == std::u16string_view::npos;
}

// A machine path taken apart.
struct ParsedPath {
    char16_t drive = 0;              // upper case; 0 for a path on a network
    std::vector<std::string> parts;  // in UTF-8, without "." and ".."
    bool hasBadName = false;
};

ParsedPath Parse(std::u16string_view path) {
    ParsedPath parsed;
    if (path.size() >= 2 && IsSeparator(path[0]) && IsSeparator(path[1])) {
        return parsed;
    }
    parsed.drive = u'C';
    if (path.size() >= 2 && path[1] == u':') {
        parsed.drive = FoldCase(path[0]);
        path.remove_prefix(2);
    }
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

// The name in a host folder that equals `name` but for letter case, the first in byte order;
// empty when there is none.
std::string FindIgnoringCase(const std::string& folder, const std::string& name) {
    std::string found;
    DIR* listing = opendir(folder.empty() ? "/" : folder.c_str());
    if (listing == nullptr) {
        return found;
    }
    const std::u16string wide = Utf16(name);
    while (const dirent* entry = readdir(listing)) {
        if (EqualIgnoringCase(Utf16(entry->d_name), wide) &&
            (found.empty() || found > entry->d_name)) {
            found = entry->d_name;
        }
    }
    closedir(listing);
    return found;
}

// What others may do to a file that is open with this sharing.
DWORD AllowedBy(DWORD sharing) {
    return ((sharing & FILE_SHARE_READ) != 0 ? GENERIC_READ : 0) |
           ((sharing & FILE_SHARE_WRITE) != 0 ? GENERIC_WRITE : 0);
}

}  // namespace

// ---- Sharing ----

FileUse::FileUse(FileSystem& files, const struct stat& status, DWORD access, DWORD sharing)
    : files(files), device(status.st_dev), number(status.st_ino), access(access), sharing(sharing) {
    std::lock_guard lock(files.mutex_);
    const auto clashes = [&](const FileUse* other) {
        return other->device == device && other->number == number && other->access != 0 &&
               ((access & ~AllowedBy(other->sharing)) | (other->access & ~AllowedBy(sharing))) != 0;
    };
    isAdmitted = access == 0 || std::ranges::none_of(files.uses_, clashes);
    if (isAdmitted) {
        files.uses_.insert(this);
    }
}

FileUse::~FileUse() {
    std::lock_guard lock(files.mutex_);
    files.uses_.erase(this);
}

OpenFile::~OpenFile() {
    close(fd);
}

bool FileSystem::IsUsed(const struct stat& file, bool asMapping) const {
    std::lock_guard lock(mutex_);
    return std::ranges::any_of(uses_, [&](const FileUse* use) {
        return use->device == file.st_dev && use->number == file.st_ino &&
               (use->access == 0) == asMapping;
    });
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
    place.isFolder = true;
    bool isThere = true;
    for (const std::string& part : parsed.parts) {
        struct stat status;
        const std::string folder = place.path;
        place.writtenAs = folder + '/' + part;
        place.path = place.writtenAs;
        isThere = place.isFolder && stat(place.path.c_str(), &status) == 0;
        if (place.isFolder && !isThere) {
            const std::string other = FindIgnoringCase(folder, part);
            if (!other.empty()) {
                place.path = folder + '/' + other;
                isThere = stat(place.path.c_str(), &status) == 0;
            }
        }
        // Of a path that goes on below what is missing, nothing can be made.
        place.canBeMade = place.isFolder && !isThere;
        place.isFolder = isThere && S_ISDIR(status.st_mode);
    }
    if (path.size() >= MAX_PATH) {
        place.canBeMade = false;
        place.isFolder = false;
    } else if (IsSeparator(path.back()) && !place.isFolder && (isThere || place.canBeMade)) {
        place.error = ERROR_INVALID_NAME;
        place.canBeMade = false;
    } else {
        place.error = isThere           ? ERROR_SUCCESS
                      : place.canBeMade ? ERROR_FILE_NOT_FOUND
                                        : ERROR_PATH_NOT_FOUND;
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

// ---- Attributes ----

DWORD FileSystem::AttributesOf(const std::string& hostPath) const {
    struct stat status;
    const bool isProtected = stat(hostPath.c_str(), &status) == 0 && !S_ISDIR(status.st_mode) &&
                             (status.st_mode & kAnyoneMayWrite) == 0;
    std::lock_guard lock(mutex_);
    const auto kept = attributes_.find(hostPath);
    return (kept != attributes_.end() ? kept->second : 0) |
           (isProtected ? FILE_ATTRIBUTE_READONLY : 0);
}

DWORD FileSystem::StoreAttributes(const std::string& hostPath, DWORD attributes) {
    struct stat status;
    if (stat(hostPath.c_str(), &status) != 0) {
        return ErrorOf(errno);
    }
    DWORD kept = attributes & kKeptAttributes;
    if (!S_ISDIR(status.st_mode)) {
        const bool isProtected = (status.st_mode & kAnyoneMayWrite) == 0;
        const bool protect = (kept & FILE_ATTRIBUTE_READONLY) != 0;
        const mode_t mode = status.st_mode & 07777;
        if (isProtected != protect &&
            chmod(hostPath.c_str(), protect ? mode & ~kAnyoneMayWrite : mode | S_IWUSR) != 0) {
            return ErrorOf(errno);
        }
        kept &= ~FILE_ATTRIBUTE_READONLY;
    }
    std::lock_guard lock(mutex_);
    attributes_[hostPath] = kept;
    return ERROR_SUCCESS;
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
    if ((attributes & ~(kKeptAttributes | FILE_ATTRIBUTE_NORMAL)) != 0) {
        return ERROR_INVALID_PARAMETER;
    }
    const Place place = Find(path);
    return place.error == ERROR_SUCCESS ? StoreAttributes(place.path, attributes) : place.error;
}

// ---- Whole files ----

DWORD FileSystem::Open(std::u16string_view path, DWORD access, DWORD sharing, DWORD disposition,
                       std::shared_ptr<OpenFile>& file) {
    if (access == 0 || (access & ~kReadWrite) != 0 || (sharing & ~kShareAll) != 0) {
        return ERROR_INVALID_PARAMETER;
    }
    const bool makes = disposition != OPEN_EXISTING;
    const bool writes = makes || (access & GENERIC_WRITE) != 0;
    const Place place = Find(path);
    const bool isThere = place.error == ERROR_SUCCESS;
    if (!isThere && !(makes && place.canBeMade)) {
        return place.error;
    }
    if (place.isFolder || (writes && (AttributesOf(place.path) & FILE_ATTRIBUTE_READONLY) != 0)) {
        return ERROR_ACCESS_DENIED;
    }
    const int mode = !writes ? O_RDONLY : (access & GENERIC_READ) != 0 ? O_RDWR : O_WRONLY;
    // O_NONBLOCK: a pipe of the host is refused below instead of waited for.
    const int fd = open(place.path.c_str(),
                        mode | (makes ? O_CREAT : 0) | O_CLOEXEC | O_NOCTTY | O_NONBLOCK, 0666);
    if (fd < 0) {
        return ErrorOf(errno);
    }
    auto opened = std::make_shared<OpenFile>();
    opened->fd = fd;
    opened->path = place.path;
    opened->existed = isThere;
    struct stat status;
    if (fstat(fd, &status) != 0 || !S_ISREG(status.st_mode)) {
        return ERROR_ACCESS_DENIED;
    }
    opened->use = std::make_unique<FileUse>(*this, status, access, sharing);
    // A host file system without locks is no reason to fail.
    if (!opened->use->isAdmitted ||
        (flock(fd, (sharing == 0 ? LOCK_EX : LOCK_SH) | LOCK_NB) != 0 && errno == EWOULDBLOCK)) {
        return ERROR_SHARING_VIOLATION;
    }
    // A reserved temporary file is empty already, and host file systems make a file that was cut
    // to nothing wait for the disk when it is closed.
    if (disposition == CREATE_ALWAYS && status.st_size != 0) {
        if (IsUsed(status, true)) {
            return ERROR_USER_MAPPED_FILE;
        }
        if (ftruncate(fd, 0) != 0) {
            return ErrorOf(errno);
        }
    }
    file = std::move(opened);
    return ERROR_SUCCESS;
}

DWORD FileSystem::Copy(std::u16string_view source, std::u16string_view target) {
    std::shared_ptr<OpenFile> from;
    std::shared_ptr<OpenFile> to;
    DWORD error = Open(source, GENERIC_READ, kShareAll, OPEN_EXISTING, from);
    if (error == ERROR_SUCCESS) {
        error = Open(target, GENERIC_WRITE, 0, CREATE_ALWAYS, to);
    }
    if (error != ERROR_SUCCESS) {
        return error;
    }
    constexpr size_t kPiece = size_t{1} << 30;
    ssize_t sent;
    do {
        sent = sendfile(to->fd, from->fd, nullptr, kPiece);
    } while (sent > 0);
    if (sent < 0) {
        error = ErrorOf(errno);
        unlink(to->path.c_str());
        return error;
    }
    return StoreAttributes(to->path, AttributesOf(from->path));
}

DWORD FileSystem::Move(std::u16string_view source, std::u16string_view target) {
    const Place from = Find(source);
    const Place to = Find(target);
    struct stat status;
    if (from.error != ERROR_SUCCESS) {
        return from.error;
    }
    // A file may be renamed to its own name in other letters.
    if (to.error == ERROR_SUCCESS && to.path != from.path) {
        return ERROR_ALREADY_EXISTS;
    }
    if (to.error != ERROR_SUCCESS && !to.canBeMade) {
        return to.error;
    }
    if (stat(from.path.c_str(), &status) == 0 && IsUsed(status, false)) {
        return ERROR_SHARING_VIOLATION;
    }
    return rename(from.path.c_str(), to.writtenAs.c_str()) == 0 ? ERROR_SUCCESS : ErrorOf(errno);
}

DWORD FileSystem::MakeFolder(std::u16string_view path, std::u16string_view likeThis) {
    const Place model = Find(likeThis);
    if (!model.isFolder) {
        return model.error != ERROR_SUCCESS ? model.error : ERROR_DIRECTORY;
    }
    const Place place = Find(path);
    if (place.error != ERROR_SUCCESS && !place.canBeMade) {
        return place.error;
    }
    return mkdir(place.path.c_str(), 0777) == 0
               ? StoreAttributes(place.path, AttributesOf(model.path))
               : ErrorOf(errno);
}

DWORD FileSystem::ReserveTemporary(std::u16string_view folder, std::u16string_view prefix,
                                   uint16_t& number) {
    const Place place = Find(folder);
    if (!place.isFolder) {
        return ERROR_DIRECTORY;
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

namespace {

FileSystem& Files() {
    return Machine::Current().files();
}

// The file of a handle, when it was opened with that access; else null, with the last error.
std::shared_ptr<OpenFile> FileOf(HANDLE handle, DWORD access) {
    auto file = Machine::Current().handles.Get<OpenFile>(handle);
    if (file == nullptr) {
        SetLastError(ERROR_INVALID_HANDLE);
    } else if ((file->use->access & access) != access) {
        SetLastError(ERROR_ACCESS_DENIED);
        file = nullptr;
    }
    return file;
}

}  // namespace
}  // namespace embedded

using namespace embedded;

HANDLE CreateFileW(LPCWSTR path, DWORD access, DWORD sharing, SECURITY_ATTRIBUTES* security,
                   DWORD disposition, DWORD attributes, HANDLE templateFile) {
    std::shared_ptr<OpenFile> file;
    DWORD error = ERROR_INVALID_PARAMETER;
    if (Fails("CreateFileW")) {
        error = ERROR_ACCESS_DENIED;
    } else if (security == nullptr && templateFile == nullptr &&
               (attributes & ~FILE_ATTRIBUTE_NORMAL) == 0 &&
               (disposition == CREATE_ALWAYS || disposition == OPEN_EXISTING)) {
        error = Files().Open(path, access, sharing, disposition, file);
    }
    if (!file) {
        SetLastError(error);
        return INVALID_HANDLE_VALUE;
    }
    SetLastError(disposition == CREATE_ALWAYS && file->existed ? ERROR_ALREADY_EXISTS
                                                               : ERROR_SUCCESS);
    return Machine::Current().handles.Insert(std::move(file));
}

BOOL ReadFile(HANDLE handle, LPVOID buffer, DWORD bytes, DWORD* bytesRead, OVERLAPPED* overlapped) {
    if (overlapped != nullptr) {
        return Answer(ERROR_INVALID_PARAMETER);
    }
    *bytesRead = 0;
    const auto file = FileOf(handle, GENERIC_READ);
    if (Fails("ReadFile", ERROR_READ_FAULT) || file == nullptr) {
        return FALSE;
    }
    const ssize_t got = read(file->fd, buffer, bytes);
    *bytesRead = got > 0 ? static_cast<DWORD>(got) : 0;
    return Answer(got < 0 ? ERROR_READ_FAULT : ERROR_SUCCESS);
}

BOOL WriteFile(HANDLE handle, LPCVOID buffer, DWORD bytes, DWORD* bytesWritten,
               OVERLAPPED* overlapped) {
    if (overlapped != nullptr) {
        return Answer(ERROR_INVALID_PARAMETER);
    }
    *bytesWritten = 0;
    const auto file = FileOf(handle, GENERIC_WRITE);
    if (Fails("WriteFile", ERROR_DISK_FULL) || file == nullptr) {
        return FALSE;
    }
    const ssize_t put = write(file->fd, buffer, bytes);
    *bytesWritten = put > 0 ? static_cast<DWORD>(put) : 0;
    return Answer(put < 0                 ? ErrorOf(errno)
                  : *bytesWritten < bytes ? ERROR_DISK_FULL
                                          : ERROR_SUCCESS);
}

DWORD GetFileSize(HANDLE handle, DWORD* sizeHigh) {
    const auto file = FileOf(handle, 0);
    struct stat status;
    if (Fails("GetFileSize", ERROR_ACCESS_DENIED) || file == nullptr ||
        fstat(file->fd, &status) != 0) {
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
    // A closing that is told to fail closes all the same: nobody can try it again.
    const bool fails = Fails("CloseHandle");
    const bool closed = Machine::Current().handles.Close<KernelObject>(handle);
    return Answer(closed && !fails ? ERROR_SUCCESS : ERROR_INVALID_HANDLE);
}

BOOL CopyFileW(LPCWSTR source, LPCWSTR target, BOOL failIfExists) {
    if (Fails("CopyFileW", ERROR_ACCESS_DENIED)) {
        return FALSE;
    }
    return Answer(failIfExists ? ERROR_INVALID_PARAMETER : Files().Copy(source, target));
}

BOOL MoveFileW(LPCWSTR source, LPCWSTR target) {
    return !Fails("MoveFileW", ERROR_ACCESS_DENIED) && Answer(Files().Move(source, target));
}

BOOL SetFileAttributesW(LPCWSTR path, DWORD attributes) {
    return !Fails("SetFileAttributesW", ERROR_ACCESS_DENIED) &&
           Answer(Files().SetAttributes(path, attributes));
}

UINT GetTempFileNameW(LPCWSTR folder, LPCWSTR prefix, UINT unique, LPWSTR name) {
    constexpr size_t kRoomForName = 14;  // of separator, name, extension and terminator
    std::u16string path = folder;
    const std::u16string start = std::u16string(prefix).substr(0, 3);
    uint16_t number = 0;
    if (Fails("GetTempFileNameW", ERROR_ACCESS_DENIED) ||
        !Answer(unique != 0 ? ERROR_INVALID_PARAMETER
                : path.size() > MAX_PATH - kRoomForName
                    ? ERROR_BUFFER_OVERFLOW
                    : Files().ReserveTemporary(path, start, number))) {
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
    return number;
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
    if (folder != CSIDL_PERSONAL && folder != CSIDL_APPDATA) {
        return {};
    }
    const std::u16string path = u"C:\\Users\\" + Machine::Current().setup().userName +
                                (folder == CSIDL_PERSONAL ? u"\\Documents" : u"\\AppData\\Roaming");
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
    return Fails("GetWindowsDirectoryW", ERROR_ACCESS_DENIED)
               ? 0
               : StorePath(kWindowsFolder, path, characters);
}

UINT GetWindowsDirectoryA(LPSTR path, UINT characters) {
    return Fails("GetWindowsDirectoryA", ERROR_ACCESS_DENIED)
               ? 0
               : StorePath(ToAnsi(kWindowsFolder), path, characters);
}

BOOL CreateDirectoryExW(LPCWSTR likeThis, LPCWSTR path, SECURITY_ATTRIBUTES* security) {
    if (Fails("CreateDirectoryExW", ERROR_ACCESS_DENIED)) {
        return FALSE;
    }
    return Answer(security != nullptr ? ERROR_INVALID_PARAMETER
                                      : Files().MakeFolder(path, likeThis));
}

HRESULT SHGetFolderPathW(HWND, int folder, HANDLE, DWORD, LPWSTR path) {
    return Fails("SHGetFolderPathW") ? E_FAIL : StoreUserFolder(UserFolder(folder), path);
}

HRESULT SHGetFolderPathA(HWND, int folder, HANDLE, DWORD, LPSTR path) {
    return Fails("SHGetFolderPathA") ? E_FAIL : StoreUserFolder(ToAnsi(UserFolder(folder)), path);
}
