#include "faxjob/fax_job_data.h"

#include <algorithm>
#include <cstring>
#include <iterator>
#include <string_view>

#include "platform/owned.h"

#include "description/text.h"
#include "faxjob/companion_call.h"

namespace ksfax {

namespace {

// A path of the platform, at most 259 characters, or one with a short name put behind it, at most
// 19 characters ("\Dial4294967295.ini"): nothing here is ever cut. Empty where there is none.
struct JobPath {
    WCHAR text[MAX_PATH + 32] = {};
};
static_assert(MAX_PATH == KSFAX_PATH_ROOM && sizeof(HANDLE) == sizeof PublishedJob::creator);

size_t LengthOf(const JobPath& path) {
    return std::basic_string_view<WCHAR>(path.text).size();
}

JobPath InFolder(const JobPath& folder, LPCWSTR file) {
    JobPath path;
    wsprintfW(path.text, TEXT("%s\\%s"), folder.text, file);
    return path;
}

JobPath ReadPath(LPCWSTR section, LPCWSTR key) {
    JobPath path;
    GetPrivateProfileStringW(section, key, TEXT(""), path.text, MAX_PATH, TEXT(KSFAX_JOB_FILE));
    return path;
}

UINT ReadNumber(LPCWSTR section, LPCWSTR key) {
    return GetPrivateProfileIntW(section, key, 0, TEXT(KSFAX_JOB_FILE));
}

// A null value deletes the key.
void WriteDataKey(LPCWSTR key, LPCWSTR value) {
    (void)WritePrivateProfileStringW(TEXT(KSFAX_DATA_SECTION), key, value, TEXT(KSFAX_JOB_FILE));
}

// Makes a new empty file in the fax data folder. False when no name could be reserved.
[[nodiscard]] bool ReserveJobFile(const JobPath& folder, JobPath* file) {
    return GetTempFileNameW(folder.text, TEXT(KSFAX_FILE_PREFIX), 0, file->text) != 0;
}

// Copies over an existing target, which keeps no read-only or hidden mark of its source. The
// target's name stands in the fax job file whether or not there was something to copy.
void CopyJobFile(const JobPath& source, const JobPath& target) {
    (void)CopyFileW(source.text, target.text, FALSE);
    (void)SetFileAttributesW(target.text, FILE_ATTRIBUTE_NORMAL);
}

// When the switch under `switchKey` is on, copies `source` to a file of the job's own and names
// that under `key`. A key that would name no file is deleted rather than left as it was: the
// previous job's cover must not go out with this fax.
void AddCopy(const JobPath& folder, LPCWSTR switchKey, const JobPath& source, LPCWSTR key) {
    JobPath copy;
    if (ReadNumber(TEXT(KSFAX_COVER_SECTION), switchKey) == 0 || !ReserveJobFile(folder, &copy)) {
        WriteDataKey(key, nullptr);
        return;
    }
    CopyJobFile(source, copy);
    WriteDataKey(key, copy.text);
}

// Renames Dial01.ini, Dial02.ini ... to <stem>_01.ini, <stem>_02.ini ... up to the first that is
// not there. The stored pattern is not what the names are formatted with: a percent sign in the
// folder's name must stay a percent sign.
void RenameDialFiles(const JobPath& folder, const JobPath& stem) {
    for (UINT number = 1;; ++number) {
        JobPath from;
        JobPath to;
        wsprintfW(from.text, TEXT("%s\\") TEXT(KSFAX_DIAL_FILE), folder.text, number);
        wsprintfW(to.text, TEXT("%s") TEXT(KSFAX_RENAMED_DIAL_END), stem.text, number);
        if (!MoveFileW(from.text, to.text)) {
            return;
        }
    }
}

void AddDialList(const JobPath& folder) {
    constexpr size_t kEnding = std::size(KSFAX_RESERVED_END) - 1;

    JobPath reservation;
    if (ReadNumber(TEXT(KSFAX_LIST_SECTION), TEXT(KSFAX_RECEIVERS_KEY)) <= KSFAX_SHORT_LIST ||
        !ReserveJobFile(folder, &reservation)) {
        WriteDataKey(TEXT(KSFAX_DIAL_PATTERN_KEY), nullptr);
        WriteDataKey(TEXT(KSFAX_RESERVATION_KEY), nullptr);
        return;
    }
    WriteDataKey(TEXT(KSFAX_RESERVATION_KEY), reservation.text);
    // Every name that the platform made ends so.
    JobPath stem = reservation;
    stem.text[LengthOf(stem) - kEnding] = 0;
    JobPath pattern;
    wsprintfW(pattern.text, TEXT("%s%s"), stem.text, TEXT(KSFAX_RENAMED_DIAL_END));
    WriteDataKey(TEXT(KSFAX_DIAL_PATTERN_KEY), pattern.text);
    RenameDialFiles(folder, stem);
}

// The snapshot names itself, so its own key is written before the copy is taken.
void TakeSnapshot(const JobPath& snapshot) {
    WriteDataKey(TEXT(KSFAX_SNAPSHOT_KEY), snapshot.text);
    JobPath windows;
    const UINT length = GetWindowsDirectoryW(windows.text, MAX_PATH);
    if (length != 0 && length < MAX_PATH) {
        CopyJobFile(InFolder(windows, TEXT(KSFAX_JOB_FILE)), snapshot);
    }
}

// The name of the block of the job on this printer handle.
struct BlockName {
    WCHAR text[16];
};

BlockName NameBlock(HANDLE printer) {
    BlockName name;
    wsprintfW(name.text, TEXT(KSFAX_BLOCK_NAME),
              static_cast<DWORD>(reinterpret_cast<ULONG_PTR>(printer)));
    return name;
}

// Any process of the logon session can make a block of the job's name, of any size and content,
// also one of pages that are reserved and not there. How many bytes of its view are.
size_t BytesThere(const platform::MappedView& view) {
    MEMORY_BASIC_INFORMATION region = {};
    const bool isThere =
        view && VirtualQuery(view.get(), &region, sizeof region) != 0 && region.State == MEM_COMMIT;
    return isThere ? region.RegionSize : 0;
}

void PublishSnapshot(HANDLE printer, const JobPath& snapshot) {
    const size_t pathBytes = (LengthOf(snapshot) + 1) * sizeof(WCHAR);
    const size_t size = offsetof(PublishedJob, snapshotPath) + pathBytes;
    platform::NullableHandle block(CreateFileMappingW(INVALID_HANDLE_VALUE, nullptr, PAGE_READWRITE,
                                                      0, static_cast<DWORD>(size),
                                                      NameBlock(printer).text));
    if (!block) {
        return;
    }
    // The block may be an older one of this name, left by a document that never ended or made by
    // somebody else: one too small for this path has no view of this size.
    const platform::MappedView view(MapViewOfFile(block.get(), FILE_MAP_ALL_ACCESS, 0, 0, size));
    if (BytesThere(view) < size) {
        return;
    }
    // Stays open: it keeps the block alive until the document's end closes it by its value.
    PublishedJob job = {.creator = reinterpret_cast<uint64_t>(block.release()), .snapshotPath = {}};
    std::memcpy(job.snapshotPath, snapshot.text, pathBytes);
    std::memcpy(view.get(), &job, size);
}

// Whether both handles are of one object; true where Windows cannot tell.
bool IsSameObject(HANDLE first, HANDLE second) {
    using Compare = BOOL(WINAPI*)(HANDLE, HANDLE);
    const platform::LoadedModule library(LoadLibraryW(TEXT("kernelbase.dll")));
    const auto compare =
        library ? platform::ExportOf<Compare>(library.get(), "CompareObjectHandles") : nullptr;
    return compare == nullptr || compare(first, second);
}

}  // namespace

void PrepareFaxJobFiles(HANDLE printer) {
    const JobPath folder = ReadPath(TEXT(KSFAX_DATA_SECTION), TEXT(KSFAX_FOLDER_KEY));
    AddCopy(folder, TEXT(KSFAX_COVER_SWITCH_KEY),
            ReadPath(TEXT(KSFAX_COVER_SECTION), TEXT(KSFAX_COVER_FILE_KEY)),
            TEXT(KSFAX_COVER_COPY_KEY));
    AddCopy(folder, TEXT(KSFAX_MEMO_SWITCH_KEY), InFolder(folder, TEXT(KSFAX_MEMO_FILE)),
            TEXT(KSFAX_MEMO_COPY_KEY));
    AddDialList(folder);
    JobPath snapshot;
    if (ReserveJobFile(folder, &snapshot)) {
        TakeSnapshot(snapshot);
        PublishSnapshot(printer, snapshot);
    }
}

void FinishFaxJob(HANDLE printer) {
    const platform::NullableHandle block(
        OpenFileMappingW(FILE_MAP_ALL_ACCESS, FALSE, NameBlock(printer).text));
    if (!block) {
        return;
    }
    const platform::MappedView view(MapViewOfFile(block.get(), FILE_MAP_ALL_ACCESS, 0, 0, 0));
    PublishedJob job = {};
    if (const size_t there = BytesThere(view); there != 0) {
        std::memcpy(&job, view.get(), std::min(there, sizeof job));
    }
    DialModuleRecord record = {};
    // The companion module takes the first 259 bytes of a longer path, as a double-byte one can
    // be, and would find no file by fewer.
    WCHAR wide[KSFAX_PATH_ROOM + 1] = {};
    std::memcpy(wide, job.snapshotPath, sizeof job.snapshotPath);
    char path[3 * KSFAX_PATH_ROOM];
    WideToAnsi(path, wide, sizeof path);
    std::memcpy(record.snapshotPath, path, strnlen(path, KSFAX_PATH_ROOM - 1));
    (void)CallCompanion(KSFAX_COVER_OPERATION, record);

    // The value comes from memory that others can write, and may be that of something else which
    // the application has open.
    const auto creator = reinterpret_cast<HANDLE>(job.creator);
    const bool isOurs =
        creator != nullptr && creator != block.get() && IsSameObject(creator, block.get());
    // With both handles closed, this and the owner's, the block is gone.
    if (isOurs) {
        CloseHandle(creator);
    }
}

}  // namespace ksfax
