#include "faxjob/fax_job_data.h"

#include <algorithm>
#include <cstring>

#include "platform/owned.h"

#include "description/printer_description.h"
#include "faxjob/document_event.h"

namespace ksfax {

namespace {

// The published block: the 8-byte value of the handle that keeps it alive, valid in the process
// that made it, then the snapshot's path in UTF-16 with its terminator.
constexpr size_t kPublishedPathOffset = 8;
static_assert(sizeof(HANDLE) == kPublishedPathOffset);

// A path put together from pieces. Nothing is cut: the longest piece, a folder or file of the
// platform, has 259 characters, and what is added to it is short.
class JobPath {
  public:
    JobPath() = default;
    explicit JobPath(LPCWSTR text) { Append(text); }

    JobPath& Append(LPCWSTR text) {
        while (*text != 0 && length_ + 1 < kCapacity) {
            text_[length_++] = *text++;
        }
        text_[length_] = 0;
        return *this;
    }

    // At least two digits.
    JobPath& AppendNumber(UINT number) {
        WCHAR digits[16];
        wsprintfW(digits, TEXT("%02u"), number);
        return Append(digits);
    }

    void Cut(size_t length) {
        length_ = std::min(length, length_);
        text_[length_] = 0;
    }

    LPCWSTR text() const { return text_; }
    size_t length() const { return length_; }
    bool empty() const { return length_ == 0; }

  private:
    static constexpr size_t kCapacity = MAX_PATH + 32;
    WCHAR text_[kCapacity] = {};
    size_t length_ = 0;
};

JobPath InFolder(const JobPath& folder, LPCWSTR file) {
    return JobPath(folder.text()).Append(TEXT("\\")).Append(file);
}

JobPath ReadPath(LPCWSTR section, LPCWSTR key) {
    WCHAR path[MAX_PATH] = {};
    GetPrivateProfileStringW(section, key, TEXT(""), path, MAX_PATH, kFaxJobFile);
    return JobPath(path);
}

UINT ReadNumber(LPCWSTR section, LPCWSTR key) {
    return GetPrivateProfileIntW(section, key, 0, kFaxJobFile);
}

void WriteDataKey(LPCWSTR key, LPCWSTR value) {
    (void)WritePrivateProfileStringW(kDataSection, key, value, kFaxJobFile);
}

void DeleteDataKey(LPCWSTR key) {
    (void)WritePrivateProfileStringW(kDataSection, key, nullptr, kFaxJobFile);
}

// A new empty file in the fax data folder; empty when no name could be reserved.
JobPath ReserveJobFile(const JobPath& folder) {
    WCHAR name[MAX_PATH] = {};
    if (GetTempFileNameW(folder.text(), TEXT("Kes"), 0, name) == 0) {
        return JobPath();
    }
    return JobPath(name);
}

// Copies over an existing target and gives it those attributes alone, so that a copy never keeps
// a read-only or hidden mark of its source. The result is the copy's.
bool CopyJobFile(LPCWSTR source, LPCWSTR target, DWORD attributes) {
    const bool copied = CopyFileW(source, target, FALSE) != 0;
    (void)SetFileAttributesW(target, attributes);
    return copied;
}

// When the switch under `switchKey` is on, copies the file that `source()` names to a file of the
// job's own and names that under `key`. A key that would name no file is deleted rather than left
// as it was: the previous job's cover must not go out with this fax.
template <typename Source>
void AddCopy(const JobPath& folder, LPCWSTR switchKey, Source source, LPCWSTR key) {
    JobPath copy;
    if (ReadNumber(kCoverSection, switchKey) != 0) {
        copy = ReserveJobFile(folder);
    }
    if (copy.empty()) {
        DeleteDataKey(key);
        return;
    }
    (void)CopyJobFile(source().text(), copy.text(), FILE_ATTRIBUTE_NORMAL);
    WriteDataKey(key, copy.text());
}

// Renames Dial01.ini, Dial02.ini ... to <stem>_01.ini, <stem>_02.ini ... up to the first that is
// not there. The names are built here and not by formatting with the stored pattern: a percent
// sign in the folder's name must stay a percent sign.
void RenameDialFiles(const JobPath& folder, const JobPath& stem) {
    for (UINT number = 1;; ++number) {
        const JobPath from =
            InFolder(folder, TEXT("Dial")).AppendNumber(number).Append(TEXT(".ini"));
        const JobPath to =
            JobPath(stem.text()).Append(TEXT("_")).AppendNumber(number).Append(TEXT(".ini"));
        if (!MoveFileW(from.text(), to.text())) {
            return;
        }
    }
}

void AddDialList(const JobPath& folder) {
    constexpr size_t kExtensionLength = 4;  // ".tmp"

    JobPath reservation;
    if (ReadNumber(kListSection, kReceiverCountKey) > kShortListLimit) {
        reservation = ReserveJobFile(folder);
    }
    if (reservation.length() < kExtensionLength) {
        DeleteDataKey(kDialPatternKey);
        DeleteDataKey(kDialReservationKey);
        return;
    }
    WriteDataKey(kDialReservationKey, reservation.text());
    JobPath stem = reservation;
    stem.Cut(reservation.length() - kExtensionLength);
    WriteDataKey(kDialPatternKey, JobPath(stem.text()).Append(TEXT("_%02d.ini")).text());
    RenameDialFiles(folder, stem);
}

// The snapshot names itself, so its own key is written before the copy is taken.
JobPath TakeSnapshot(const JobPath& folder) {
    const JobPath snapshot = ReserveJobFile(folder);
    if (snapshot.empty()) {
        return snapshot;
    }
    WriteDataKey(kSnapshotKey, snapshot.text());
    WCHAR windows[MAX_PATH] = {};
    const UINT length = GetWindowsDirectoryW(windows, MAX_PATH);
    if (length != 0 && length < MAX_PATH) {
        (void)CopyJobFile(InFolder(JobPath(windows), kFaxJobFile).text(), snapshot.text(),
                          FILE_ATTRIBUTE_NORMAL);
    }
    return snapshot;
}

// The name of the block of the job on this printer handle: the handle's low 32 bits in lower-case
// hexadecimal, then "CVP".
struct BlockName {
    WCHAR text[16];
};

BlockName NameBlock(HANDLE printer) {
    BlockName name;
    wsprintfW(name.text, TEXT("%xCVP"), static_cast<DWORD>(reinterpret_cast<ULONG_PTR>(printer)));
    return name;
}

void PublishSnapshot(HANDLE printer, const JobPath& snapshot) {
    const size_t pathBytes = (snapshot.length() + 1) * sizeof(WCHAR);
    const size_t size = kPublishedPathOffset + pathBytes;
    platform::NullableHandle block(CreateFileMappingW(INVALID_HANDLE_VALUE, nullptr, PAGE_READWRITE,
                                                      0, static_cast<DWORD>(size),
                                                      NameBlock(printer).text));
    if (!block) {
        return;
    }
    // The block may be an older one of this name, left by a document that never ended or made by
    // somebody else. One too small for this path has no view of this size.
    platform::MappedView view(MapViewOfFile(block.get(), FILE_MAP_ALL_ACCESS, 0, 0, size));
    if (!view) {
        return;
    }
    const HANDLE creator = block.get();
    auto* bytes = static_cast<BYTE*>(view.get());
    std::memcpy(bytes, &creator, sizeof creator);
    std::memcpy(bytes + kPublishedPathOffset, snapshot.text(), pathBytes);
    // Stays open: it keeps the block alive until the document's end closes it by its value.
    (void)block.release();
}

// What the published block says.
struct PublishedJob {
    HANDLE creator = nullptr;
    WCHAR snapshot[MAX_PATH + 1] = {};
};

// Any process of the logon session can make a block of this name, of any size and content: no
// more of the path is read than the view holds and the record has room for. The head always
// fits, since views are whole pages.
PublishedJob ReadPublishedJob(const void* view) {
    PublishedJob job;
    const auto* bytes = static_cast<const BYTE*>(view);
    std::memcpy(&job.creator, bytes, sizeof job.creator);
    MEMORY_BASIC_INFORMATION region = {};
    if (VirtualQuery(view, &region, sizeof region) == 0 ||
        region.RegionSize < kPublishedPathOffset) {
        return job;
    }
    const size_t room = (region.RegionSize - kPublishedPathOffset) / sizeof(WCHAR);
    std::memcpy(job.snapshot, bytes + kPublishedPathOffset,
                std::min<size_t>(room, MAX_PATH) * sizeof(WCHAR));
    return job;
}

}  // namespace

void PrepareFaxJobFiles(HANDLE printer) {
    const JobPath folder = ReadPath(kDataSection, kFolderKey);
    AddCopy(
        folder, kCoverSwitchKey, [] { return ReadPath(kCoverSection, kCoverFileKey); },
        kCoverCopyKey);
    AddCopy(
        folder, kMemoSwitchKey, [&] { return InFolder(folder, kMemoFile); }, kMemoCopyKey);
    AddDialList(folder);
    const JobPath snapshot = TakeSnapshot(folder);
    if (!snapshot.empty()) {
        PublishSnapshot(printer, snapshot);
    }
}

void FinishFaxJob(HANDLE printer) {
    DialModuleRecord record;
    platform::NullableHandle block(
        OpenFileMappingW(FILE_MAP_ALL_ACCESS, FALSE, NameBlock(printer).text));
    if (!block) {
        return;
    }
    platform::NullableHandle creator;
    platform::MappedView view(MapViewOfFile(block.get(), FILE_MAP_ALL_ACCESS, 0, 0, 0));
    if (view) {
        const PublishedJob job = ReadPublishedJob(view.get());
        creator.reset(job.creator);
        // The companion module takes the first 259 bytes of a longer path, as a double-byte one
        // can be, and would find no file by fewer.
        char path[3 * MAX_PATH + 1];
        WideToAnsi(path, job.snapshot);
        std::memcpy(record.snapshotPath, path, strnlen(path, sizeof record.snapshotPath - 1));
    }
    (void)CallDialModule(kCoverOperation, record);
    // With both handles closed the block is gone.
    view.reset();
    block.reset();
    creator.reset();
}

}  // namespace ksfax
