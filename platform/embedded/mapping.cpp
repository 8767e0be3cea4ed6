#include "platform/embedded/mapping.h"

#include <sys/mman.h>
#include <sys/stat.h>
#include <unistd.h>

#include "platform/embedded/modules.h"
#include "platform/owned.h"

namespace embedded {
namespace {

constexpr size_t kPage = 4096;
// As on a machine whose memory is used up, as with other blocks of memory.
constexpr uint64_t kLargestMapping = uint64_t{1} << 30;

size_t WholePages(uint64_t bytes) {
    return static_cast<size_t>((bytes + kPage - 1) & ~(uint64_t{kPage} - 1));
}

// A second place for shared pages, with an untouchable page on either side. Null when there is
// no room for it.
std::byte* PlaceBetweenGuards(void* pages, size_t bytes, int protection) {
    void* space = mmap(nullptr, bytes + 2 * kPage, PROT_NONE,
                       MAP_PRIVATE | MAP_ANONYMOUS | MAP_NORESERVE, -1, 0);
    if (space == MAP_FAILED) {
        return nullptr;
    }
    std::byte* base = static_cast<std::byte*>(space) + kPage;
    // From 0 bytes, shared pages are not moved but appear in both places.
    if (mremap(pages, 0, bytes, MREMAP_MAYMOVE | MREMAP_FIXED, base) == MAP_FAILED ||
        mprotect(base, bytes, protection) != 0) {
        munmap(space, bytes + 2 * kPage);
        return nullptr;
    }
    return base;
}

// New pages, with the bytes of an open file in them when there is one.
DWORD MakeMemory(const OpenFile* file, uint64_t bytes, std::shared_ptr<MappedMemory>& memory) {
    memory = std::make_shared<MappedMemory>();
    if (file != nullptr) {
        struct stat status;
        if (fstat(file->fd, &status) != 0) {
            return ERROR_READ_FAULT;
        }
        bytes = static_cast<uint64_t>(status.st_size);
        if (bytes == 0) {
            return ERROR_FILE_INVALID;
        }
        memory->fileUse = std::make_unique<FileUse>(file->use->files, status, 0, 0);
    }
    memory->bytes = bytes;
    if (bytes > kLargestMapping) {
        return ERROR_NOT_ENOUGH_MEMORY;
    }
    void* pages =
        mmap(nullptr, WholePages(bytes), PROT_READ | PROT_WRITE, MAP_SHARED | MAP_ANONYMOUS, -1, 0);
    if (pages == MAP_FAILED) {
        return ERROR_NOT_ENOUGH_MEMORY;
    }
    memory->pages = pages;
    // Where another process has cut the file meanwhile, the rest is zero.
    return file == nullptr || pread(file->fd, pages, bytes, 0) >= 0 ? ERROR_SUCCESS
                                                                    : ERROR_READ_FAULT;
}

// An export of kernelbase.dll alone, so called by address. Of mappings' handles; cannot fail.
BOOL CompareObjectHandles(HANDLE first, HANDLE second) {
    const auto one = Machine::Current().handles.Get<SectionHandle>(first);
    const auto other = Machine::Current().handles.Get<SectionHandle>(second);
    return one != nullptr && other != nullptr && one->section == other->section;
}

}  // namespace

Mappings::Mappings(Machine& machine) {
    machine.modules().Install({.path = u"C:\\Windows\\System32\\kernelbase.dll",
                               .exports = {{"CompareObjectHandles",
                                            platform::FunctionCast<FARPROC>(CompareObjectHandles)}},
                               .resources = {}});
}

MappedMemory::~MappedMemory() {
    if (pages != nullptr) {
        munmap(pages, WholePages(bytes));
    }
}

Mappings::View::~View() {
    if (base != nullptr) {
        munmap(base - kPage, bytes + 2 * kPage);
    }
}

uint64_t Mappings::SizeOf(std::u16string_view name) const {
    const auto section = Find(name);
    return section != nullptr ? section->memory->bytes : 0;
}

DWORD Mappings::Name(std::u16string_view name, std::shared_ptr<Section>& section) {
    if (name.find(u'\\') != std::u16string_view::npos) {
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

std::shared_ptr<Section> Mappings::Find(std::u16string_view name) const {
    std::lock_guard lock(mutex_);
    const auto found = names_.find(name);
    return found != names_.end() ? found->second.lock() : nullptr;
}

DWORD Mappings::Map(const std::shared_ptr<MappedMemory>& memory, DWORD access, SIZE_T bytes,
                    void*& view) {
    if (access != FILE_MAP_READ && access != FILE_MAP_ALL_ACCESS) {
        return ERROR_INVALID_PARAMETER;
    }
    const bool writes = access == FILE_MAP_ALL_ACCESS;
    if ((writes && memory->fileUse != nullptr) || bytes > WholePages(memory->bytes)) {
        return ERROR_ACCESS_DENIED;
    }
    auto made = std::make_unique<View>();
    made->memory = memory;
    made->bytes = WholePages(bytes != 0 ? bytes : memory->bytes);
    const int touchable = writes ? PROT_READ | PROT_WRITE : PROT_READ;
    made->base =
        PlaceBetweenGuards(memory->pages, made->bytes, memory->isReserved ? PROT_NONE : touchable);
    if (made->base == nullptr) {
        return ERROR_NOT_ENOUGH_MEMORY;
    }
    view = made->base;
    std::lock_guard lock(mutex_);
    views_.emplace(view, std::move(made));
    return ERROR_SUCCESS;
}

bool Mappings::Unmap(const void* view) {
    std::lock_guard lock(mutex_);
    return views_.erase(view) != 0;
}

bool Mappings::Describe(const void* view, MEMORY_BASIC_INFORMATION& information) const {
    std::lock_guard lock(mutex_);
    const auto found = views_.find(view);
    if (found == views_.end()) {
        return false;
    }
    const View& known = *found->second;
    information = {};
    information.BaseAddress = known.base;
    information.AllocationBase = known.base;
    information.RegionSize = known.bytes;
    information.State = known.memory->isReserved ? MEM_RESERVE : MEM_COMMIT;
    return true;
}

unsigned Mappings::CountViews() const {
    std::lock_guard lock(mutex_);
    return static_cast<unsigned>(views_.size());
}

}  // namespace embedded

using namespace embedded;

HANDLE CreateFileMappingW(HANDLE file, SECURITY_ATTRIBUTES* security, DWORD protection,
                          DWORD sizeHigh, DWORD sizeLow, LPCWSTR name) {
    if (Fails("CreateFileMappingW", ERROR_NOT_ENOUGH_MEMORY)) {
        return nullptr;
    }
    Machine& machine = Machine::Current();
    const auto open = machine.handles.Get<OpenFile>(file);
    const bool isFile = file != INVALID_HANDLE_VALUE;
    const bool isReserved = protection == (PAGE_READWRITE | SEC_RESERVE);
    const bool isKnown = isFile ? protection == PAGE_READONLY && sizeLow == 0
                                : (protection == PAGE_READWRITE || isReserved) && sizeLow != 0;
    auto section = std::make_shared<Section>();
    DWORD error = ERROR_INVALID_PARAMETER;
    if (isFile && open == nullptr) {
        error = ERROR_INVALID_HANDLE;
    } else if (security == nullptr && sizeHigh == 0 && isKnown) {
        error = isFile && (open->use->access & GENERIC_READ) == 0
                    ? ERROR_ACCESS_DENIED
                    : MakeMemory(open.get(), sizeLow, section->memory);
    }
    if (error == ERROR_SUCCESS) {
        section->memory->isReserved = isReserved;
        error = name != nullptr ? machine.mappings().Name(name, section) : ERROR_SUCCESS;
    }
    SetLastError(error);
    return error == ERROR_SUCCESS || error == ERROR_ALREADY_EXISTS
               ? machine.handles.Insert(std::make_shared<SectionHandle>(std::move(section)))
               : nullptr;
}

HANDLE OpenFileMappingW(DWORD access, BOOL inherit, LPCWSTR name) {
    if (Fails("OpenFileMappingW", ERROR_ACCESS_DENIED)) {
        return nullptr;
    }
    Machine& machine = Machine::Current();
    const bool isKnown = access == FILE_MAP_ALL_ACCESS && !inherit;
    auto section = isKnown ? machine.mappings().Find(name) : nullptr;
    if (section == nullptr) {
        SetLastError(isKnown ? ERROR_FILE_NOT_FOUND : ERROR_INVALID_PARAMETER);
        return nullptr;
    }
    return machine.handles.Insert(std::make_shared<SectionHandle>(std::move(section)));
}

LPVOID MapViewOfFile(HANDLE mapping, DWORD access, DWORD offsetHigh, DWORD offsetLow,
                     SIZE_T bytes) {
    if (Fails("MapViewOfFile", ERROR_NOT_ENOUGH_MEMORY)) {
        return nullptr;
    }
    Machine& machine = Machine::Current();
    const auto handle = machine.handles.Get<SectionHandle>(mapping);
    void* view = nullptr;
    (void)Answer(handle == nullptr ? ERROR_INVALID_HANDLE
                 : offsetHigh != 0 || offsetLow != 0
                     ? ERROR_INVALID_PARAMETER
                     : machine.mappings().Map(handle->section->memory, access, bytes, view));
    return view;
}

BOOL UnmapViewOfFile(LPCVOID view) {
    // Like a closing, an unmapping that is told to fail is done all the same.
    const bool fails = Fails("UnmapViewOfFile");
    const bool unmapped = Machine::Current().mappings().Unmap(view);
    return Answer(unmapped && !fails ? ERROR_SUCCESS : ERROR_INVALID_ADDRESS);
}

SIZE_T VirtualQuery(LPCVOID address, MEMORY_BASIC_INFORMATION* information, SIZE_T bytes) {
    static_assert(sizeof(MEMORY_BASIC_INFORMATION) == 48);
    if (Fails("VirtualQuery") || bytes < sizeof(*information) ||
        !Machine::Current().mappings().Describe(address, *information)) {
        SetLastError(ERROR_INVALID_PARAMETER);
        return 0;
    }
    return sizeof(*information);
}
