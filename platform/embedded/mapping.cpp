#include "platform/embedded/mapping.h"

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <sys/mman.h>
#include <sys/stat.h>
#include <unistd.h>

#include "platform/embedded/api_kernel.h"
#include "platform/embedded/files.h"
#include "platform/embedded/modules.h"
#include "platform/embedded/poison.h"
#include "platform/owned.h"

namespace embedded {
namespace {

constexpr size_t kPage = 4096;
constexpr uint64_t kGranularity = 65536;  // of offsets into a mapping
// As on a machine whose memory is used up, as with other blocks of memory.
constexpr uint64_t kLargestMapping = uint64_t{1} << 32;

// Of regions kept for the next file: as many as a folder of printer descriptions asks for.
constexpr size_t kSpareBytesMost = size_t{32} << 20;

size_t WholePages(uint64_t bytes) {
    return static_cast<size_t>((bytes + kPage - 1) & ~(uint64_t{kPage} - 1));
}

// Address space for `bytes` with an untouchable page on either side, in which the pages of `fd`
// from `offset` are placed. Null when there is none.
std::byte* MapBetweenGuards(int fd, uint64_t offset, size_t bytes, int protection, int flags) {
    void* space = mmap(nullptr, bytes + 2 * kPage, PROT_NONE,
                       MAP_PRIVATE | MAP_ANONYMOUS | MAP_NORESERVE, -1, 0);
    if (space == MAP_FAILED) {
        return nullptr;
    }
    std::byte* base = static_cast<std::byte*>(space) + kPage;
    if (mmap(base, bytes, protection, MAP_SHARED | MAP_FIXED | flags, fd,
             static_cast<off_t>(offset)) == MAP_FAILED) {
        munmap(space, bytes + 2 * kPage);
        return nullptr;
    }
    return base;
}

void UnmapBetweenGuards(std::byte* base, size_t bytes) {
    munmap(base - kPage, bytes + 2 * kPage);
}

int MakeSharedPages(size_t bytes) {
    const int fd = memfd_create("embedded", MFD_CLOEXEC);
    if (fd >= 0 && ftruncate(fd, static_cast<off_t>(bytes)) != 0) {
        close(fd);
        return -1;
    }
    return fd;
}

// The namespace of the session is what a name without prefix means.
std::u16string_view WithoutSessionPrefix(std::u16string_view name) {
    constexpr std::u16string_view kSession = u"Local\\";
    return name.starts_with(kSession) ? name.substr(kSession.size()) : name;
}

bool IsAllowedName(std::u16string_view name) {
    constexpr std::u16string_view kGlobal = u"Global\\";
    if (name.starts_with(kGlobal)) {
        name.remove_prefix(kGlobal.size());
    }
    return name.find(u'\\') == std::u16string_view::npos;
}

}  // namespace

// Either a view of shared memory, written and read in one place; or the two sides of a file's
// copy, which the machine writes and the driver reads.
struct Region {
    ~Region() {
        if (writable != nullptr && writable != readable) {
            UnmapBetweenGuards(writable, bytes);
        }
        if (readable != nullptr) {
            // Something else may be given the addresses.
            ASAN_UNPOISON_MEMORY_REGION(readable, bytes);
            UnmapBetweenGuards(readable, bytes);
        }
    }

    std::byte* writable = nullptr;
    std::byte* readable = nullptr;
    size_t bytes = 0;
};

struct MappedMemory {
    ~MappedMemory() {
        if (pages >= 0) {
            close(pages);
        }
        if (file != nullptr) {
            table->RemoveMapping(file->identity);
        }
    }

    uint64_t bytes = 0;                   // as asked for, or as many as the file had
    bool isReserved = false;              // without pages that can be touched
    int pages = -1;                       // a descriptor of shared memory, or
    std::shared_ptr<HostFile> file;       // the file, which cannot be cut short meanwhile
    std::shared_ptr<SharingTable> table;  // of that file
};

namespace {

// Both sides of a file's copy.
std::unique_ptr<Region> MakeRegion(size_t bytes) {
    const int fd = MakeSharedPages(bytes);
    if (fd < 0) {
        return nullptr;
    }
    auto region = std::make_unique<Region>();
    region->bytes = bytes;
    region->writable = MapBetweenGuards(fd, 0, bytes, PROT_READ | PROT_WRITE, MAP_POPULATE);
    if (region->writable != nullptr) {
        region->readable = MapBetweenGuards(fd, 0, bytes, PROT_READ, MAP_POPULATE);
    }
    close(fd);
    return region->readable != nullptr ? std::move(region) : nullptr;
}

// Fills a copy of a file. Where the file has become shorter than it was when the mapping was
// made, the rest is zero, as is what follows the last byte in its page.
bool ReadInto(const HostFile& file, uint64_t offset, size_t bytes, Region& region) {
    size_t done = 0;
    while (done < bytes) {
        const ssize_t got =
            pread(file.fd, region.writable + done, bytes - done, static_cast<off_t>(offset + done));
        if (got == 0) {
            break;
        }
        if (got < 0 && errno != EINTR) {
            return false;
        }
        done += got > 0 ? static_cast<size_t>(got) : 0;
    }
    memset(region.writable + done, 0, WholePages(bytes) - done);
    return true;
}

}  // namespace

// An export of kernelbase.dll alone, so called by address. Of mappings' handles; cannot fail.
static BOOL CompareObjectHandles(HANDLE first, HANDLE second) {
    const auto one = Machine::Current().handles.Get<SectionHandle>(first);
    const auto other = Machine::Current().handles.Get<SectionHandle>(second);
    return one != nullptr && other != nullptr && one->section == other->section;
}

Mappings::Mappings(Machine& machine) : machine_(machine) {
    machine.modules().Install({.path = u"C:\\Windows\\System32\\kernelbase.dll",
                               .exports = {{"CompareObjectHandles",
                                            platform::FunctionCast<FARPROC>(CompareObjectHandles)}},
                               .resources = {}});
}

Mappings::~Mappings() = default;

bool Mappings::Exists(std::u16string_view name) const {
    std::shared_ptr<Section> section;
    return Open(name, section) == ERROR_SUCCESS;
}

uint64_t Mappings::SizeOf(std::u16string_view name) const {
    std::shared_ptr<Section> section;
    return Open(name, section) == ERROR_SUCCESS ? section->memory->bytes : 0;
}

DWORD Mappings::Create(std::u16string_view name, std::shared_ptr<Section>& section) {
    name = WithoutSessionPrefix(name);
    if (name.empty()) {
        return ERROR_SUCCESS;
    }
    if (!IsAllowedName(name)) {
        return ERROR_PATH_NOT_FOUND;
    }
    std::lock_guard lock(mutex_);
    std::erase_if(names_, [](const auto& entry) { return entry.second.expired(); });
    std::weak_ptr<Section>& owner = names_[std::u16string(name)];
    if (std::shared_ptr<Section> existing = owner.lock()) {
        section = std::move(existing);
        return ERROR_ALREADY_EXISTS;
    }
    owner = section;
    return ERROR_SUCCESS;
}

DWORD Mappings::Open(std::u16string_view name, std::shared_ptr<Section>& section) const {
    std::lock_guard lock(mutex_);
    const auto found = names_.find(WithoutSessionPrefix(name));
    section = found != names_.end() ? found->second.lock() : nullptr;
    return section != nullptr ? ERROR_SUCCESS : ERROR_FILE_NOT_FOUND;
}

std::unique_ptr<Region> Mappings::TakeRegion(size_t bytes) {
    {
        std::lock_guard lock(mutex_);
        // The smallest that is large enough, but none so large that little of it would be used.
        const auto fits = [&](const std::unique_ptr<Region>& region) {
            return region->bytes >= bytes && region->bytes <= bytes * 4;
        };
        auto best = spare_.end();
        for (auto region = spare_.begin(); region != spare_.end(); ++region) {
            if (fits(*region) && (best == spare_.end() || (*region)->bytes < (*best)->bytes)) {
                best = region;
            }
        }
        if (best != spare_.end()) {
            std::unique_ptr<Region> region = std::move(*best);
            spareBytes_ -= region->bytes;
            spare_.erase(best);
            return region;
        }
    }
    return MakeRegion(bytes);
}

// Called under the lock.
void Mappings::GiveBack(std::unique_ptr<Region> region) {
    if (region->writable == region->readable || region->bytes > kSpareBytesMost) {
        return;
    }
    ASAN_POISON_MEMORY_REGION(region->readable, region->bytes);
    while (spareBytes_ + region->bytes > kSpareBytesMost) {
        spareBytes_ -= spare_.front()->bytes;
        spare_.erase(spare_.begin());
    }
    spareBytes_ += region->bytes;
    spare_.push_back(std::move(region));
}

DWORD Mappings::Map(const SectionHandle& mapping, DWORD access, uint64_t offset, SIZE_T bytes,
                    void*& view) {
    const bool writes = (access & FILE_MAP_WRITE) != 0;
    const bool reads = (access & FILE_MAP_READ) != 0;
    const MappedMemory& memory = *mapping.section->memory;
    if ((access & ~FILE_MAP_ALL_ACCESS) != 0 || !(reads || writes)) {
        return ERROR_INVALID_PARAMETER;
    }
    if (offset % kGranularity != 0) {
        return ERROR_MAPPED_ALIGNMENT;
    }
    if (offset >= memory.bytes) {
        return ERROR_INVALID_PARAMETER;
    }
    if ((writes && (!mapping.section->canWrite || (mapping.access & FILE_MAP_WRITE) == 0)) ||
        (mapping.access & (FILE_MAP_READ | FILE_MAP_WRITE)) == 0) {
        return ERROR_ACCESS_DENIED;
    }
    const uint64_t rest = memory.bytes - offset;
    if (bytes > WholePages(rest)) {
        return ERROR_ACCESS_DENIED;
    }
    const uint64_t used = bytes != 0 ? std::min<uint64_t>(bytes, rest) : rest;
    View made;
    made.bytes = WholePages(bytes != 0 ? bytes : rest);
    made.memory = mapping.section->memory;
    if (memory.file != nullptr) {
        made.region = TakeRegion(made.bytes);
        if (made.region == nullptr) {
            return ERROR_NOT_ENOUGH_MEMORY;
        }
        if (!ReadInto(*memory.file, offset, static_cast<size_t>(used), *made.region)) {
            return ERROR_READ_FAULT;
        }
        ASAN_UNPOISON_MEMORY_REGION(made.region->readable, made.bytes);
        ASAN_POISON_MEMORY_REGION(made.region->readable + made.bytes,
                                  made.region->bytes - made.bytes);
    } else {
        made.region = std::make_unique<Region>();
        made.region->bytes = made.bytes;
        const int touchable = writes ? PROT_READ | PROT_WRITE : PROT_READ;
        made.region->readable = MapBetweenGuards(memory.pages, offset, made.bytes,
                                                 memory.isReserved ? PROT_NONE : touchable, 0);
        made.region->writable = made.region->readable;
        if (made.region->readable == nullptr) {
            return ERROR_NOT_ENOUGH_MEMORY;
        }
    }
    view = made.region->readable;
    std::lock_guard lock(mutex_);
    views_.emplace(reinterpret_cast<uintptr_t>(view), std::move(made));
    ++machine_.views;
    return ERROR_SUCCESS;
}

// Called under the lock.
std::map<uintptr_t, Mappings::View>::const_iterator Mappings::FindView(const void* address) const {
    const auto value = reinterpret_cast<uintptr_t>(address);
    auto after = views_.upper_bound(value);
    if (after == views_.begin()) {
        return views_.end();
    }
    --after;
    return value - after->first < after->second.bytes ? after : views_.end();
}

DWORD Mappings::Unmap(const void* address) {
    View removed;  // goes outside the lock
    std::lock_guard lock(mutex_);
    const auto found = FindView(address);
    if (found == views_.end()) {
        return ERROR_INVALID_ADDRESS;
    }
    removed = std::move(views_.extract(found).mapped());
    GiveBack(std::move(removed.region));
    --machine_.views;
    return ERROR_SUCCESS;
}

Mappings::Extent Mappings::Find(const void* address) const {
    std::lock_guard lock(mutex_);
    const auto found = FindView(address);
    if (found == views_.end()) {
        return {};
    }
    return {.base = reinterpret_cast<std::byte*>(found->first),
            .bytes = found->second.bytes,
            .isReserved = found->second.memory->isReserved};
}

namespace {

// The memory of a new mapping: of the paging file when there is no file.
DWORD MakeMemory(HANDLE file, bool forWriting, uint64_t bytes,
                 std::shared_ptr<MappedMemory>& memory) {
    memory = std::make_shared<MappedMemory>();
    if (file == INVALID_HANDLE_VALUE) {
        if (bytes == 0) {
            return ERROR_INVALID_PARAMETER;
        }
        if (bytes > kLargestMapping) {
            return ERROR_NOT_ENOUGH_MEMORY;
        }
        memory->bytes = bytes;
        memory->pages = MakeSharedPages(WholePages(bytes));
        return memory->pages >= 0 ? ERROR_SUCCESS : ERROR_NOT_ENOUGH_MEMORY;
    }
    const auto open = Machine::Current().handles.Get<OpenFile>(file);
    if (open == nullptr) {
        return ERROR_INVALID_HANDLE;
    }
    const DWORD needed = forWriting ? GENERIC_READ | GENERIC_WRITE : GENERIC_READ;
    if ((open->access & needed) != needed) {
        return ERROR_ACCESS_DENIED;
    }
    if (forWriting) {
        return ERROR_NOT_SUPPORTED;
    }
    struct stat status;
    if (fstat(open->host->fd, &status) != 0) {
        return ERROR_READ_FAULT;
    }
    const auto size = static_cast<uint64_t>(status.st_size);
    if (size == 0 && bytes == 0) {
        return ERROR_FILE_INVALID;
    }
    if (bytes > size || size > kLargestMapping) {
        return ERROR_NOT_ENOUGH_MEMORY;
    }
    memory->bytes = bytes != 0 ? bytes : size;
    memory->file = open->host;
    memory->table = open->table;
    memory->table->AddMapping(memory->file->identity);
    return ERROR_SUCCESS;
}

}  // namespace
}  // namespace embedded

using namespace embedded;

HANDLE CreateFileMappingW(HANDLE file, SECURITY_ATTRIBUTES* security, DWORD protection,
                          DWORD sizeHigh, DWORD sizeLow, LPCWSTR name) {
    static CallSite call("CreateFileMappingW");
    if (call.Fails()) {
        SetLastError(ERROR_NOT_ENOUGH_MEMORY);
        return nullptr;
    }
    const bool isReserved = (protection & SEC_RESERVE) != 0 && file == INVALID_HANDLE_VALUE;
    protection &= isReserved ? ~SEC_RESERVE : ~DWORD{0};
    if (security != nullptr || (protection != PAGE_READONLY && protection != PAGE_READWRITE)) {
        SetLastError(ERROR_INVALID_PARAMETER);
        return nullptr;
    }
    auto section = std::make_shared<Section>();
    section->canWrite = protection == PAGE_READWRITE;
    const uint64_t bytes = uint64_t{sizeHigh} << 32 | sizeLow;
    DWORD error = MakeMemory(file, section->canWrite, bytes, section->memory);
    if (error == ERROR_SUCCESS) {
        section->memory->isReserved = isReserved;
        error = Machine::Current().mappings().Create(name != nullptr ? name : u"", section);
    }
    SetLastError(error);
    if (error != ERROR_SUCCESS && error != ERROR_ALREADY_EXISTS) {
        return nullptr;
    }
    return Machine::Current().handles.Insert(
        std::make_shared<SectionHandle>(std::move(section), FILE_MAP_ALL_ACCESS));
}

HANDLE OpenFileMappingW(DWORD access, BOOL, LPCWSTR name) {
    static CallSite call("OpenFileMappingW");
    std::shared_ptr<Section> section;
    DWORD error = ERROR_INVALID_PARAMETER;
    if (call.Fails()) {
        error = ERROR_ACCESS_DENIED;
    } else if (name != nullptr) {
        error = Machine::Current().mappings().Open(name, section);
    }
    if (error != ERROR_SUCCESS) {
        SetLastError(error);
        return nullptr;
    }
    return Machine::Current().handles.Insert(
        std::make_shared<SectionHandle>(std::move(section), access));
}

LPVOID MapViewOfFile(HANDLE mapping, DWORD access, DWORD offsetHigh, DWORD offsetLow,
                     SIZE_T bytes) {
    static CallSite call("MapViewOfFile");
    const auto handle = Machine::Current().handles.Get<SectionHandle>(mapping);
    void* view = nullptr;
    DWORD error = ERROR_INVALID_HANDLE;
    if (call.Fails()) {
        error = ERROR_NOT_ENOUGH_MEMORY;
    } else if (handle != nullptr) {
        error = Machine::Current().mappings().Map(
            *handle, access, uint64_t{offsetHigh} << 32 | offsetLow, bytes, view);
    }
    if (error != ERROR_SUCCESS) {
        SetLastError(error);
        return nullptr;
    }
    return view;
}

BOOL UnmapViewOfFile(LPCVOID view) {
    static CallSite call("UnmapViewOfFile");
    // Like a closing, an unmapping that is told to fail is done all the same.
    const bool fails = call.Fails();
    const DWORD error = Machine::Current().mappings().Unmap(view);
    if (fails || error != ERROR_SUCCESS) {
        SetLastError(ERROR_INVALID_ADDRESS);
        return FALSE;
    }
    return TRUE;
}

SIZE_T VirtualQuery(LPCVOID address, MEMORY_BASIC_INFORMATION* information, SIZE_T bytes) {
    static CallSite call("VirtualQuery");
    static_assert(sizeof(MEMORY_BASIC_INFORMATION) == 48);
    const Mappings::Extent view = Machine::Current().mappings().Find(address);
    if (call.Fails() || view.base == nullptr) {
        SetLastError(ERROR_INVALID_PARAMETER);
        return 0;
    }
    if (bytes < sizeof(MEMORY_BASIC_INFORMATION)) {
        SetLastError(ERROR_BAD_LENGTH);
        return 0;
    }
    const size_t into =
        static_cast<size_t>(static_cast<const std::byte*>(address) - view.base) / kPage * kPage;
    *information = {};
    information->BaseAddress = view.base + into;
    information->AllocationBase = view.base;
    information->RegionSize = view.bytes - into;
    information->State = view.isReserved ? MEM_RESERVE : MEM_COMMIT;
    return sizeof(MEMORY_BASIC_INFORMATION);
}
