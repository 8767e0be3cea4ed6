#pragma once

// File mappings, named shared memory and their views.
//
// Before and behind every view lies memory that cannot be touched, so that reading past its last
// page stops the program. (A view of a file can lie in a larger region that an earlier one left;
// then it is AddressSanitizer that knows where it ends, and that it is gone.) A view of a file is a
// private copy read when it is mapped (a file is read faster than its pages are mapped and
// touched): it neither follows later changes of the file nor is hurt when another process shortens
// it. A view of shared memory is the block itself.

#include <cstdint>
#include <map>
#include <memory>
#include <mutex>
#include <string>
#include <string_view>
#include <unordered_map>
#include <vector>

#include "platform/embedded/machine.h"

namespace embedded {

// Pages of the host with a way to write and a way to read them, and untouchable ones around both.
struct Region;
// What a mapping is made of: shared pages, or a file's bytes.
struct MappedMemory;

// One mapping, whatever the number of its handles. Its name lasts as long as it, and it as long
// as its handles; views hold its memory alone.
struct Section {
    std::shared_ptr<MappedMemory> memory;
    bool canWrite = false;
};

// What a mapping's handle names.
struct SectionHandle : KernelObject {
    SectionHandle(std::shared_ptr<Section> section, DWORD access)
        : section(std::move(section)), access(access) {}

    std::shared_ptr<Section> section;
    DWORD access;  // FILE_MAP_ bits
};

class Mappings {
  public:
    // Installs kernelbase.dll with CompareObjectHandles.
    explicit Mappings(Machine& machine);
    ~Mappings();

    // Whether a mapping of that name exists, for tests: no call is counted and no error set.
    bool Exists(std::u16string_view name) const;
    // The bytes that the mapping of that name was made with, likewise; 0 when there is none.
    uint64_t SizeOf(std::u16string_view name) const;

    // ---- For the machine's own calls. Failures are last-error codes.

    // Makes a mapping, or gives the one that has the name already (ERROR_ALREADY_EXISTS, with a
    // section). The memory is not used then.
    DWORD Create(std::u16string_view name, std::shared_ptr<Section>& section);
    // ERROR_FILE_NOT_FOUND for a name that nothing has.
    DWORD Open(std::u16string_view name, std::shared_ptr<Section>& section) const;
    DWORD Map(const SectionHandle& mapping, DWORD access, uint64_t offset, SIZE_T bytes,
              void*& view);
    DWORD Unmap(const void* address);
    // The view that holds an address.
    struct Extent {
        std::byte* base = nullptr;  // null when there is none
        size_t bytes = 0;
        bool isReserved = false;
    };
    Extent Find(const void* address) const;

  private:
    struct View {
        size_t bytes = 0;  // whole pages
        std::shared_ptr<MappedMemory> memory;
        std::unique_ptr<Region> region;
    };
    std::unique_ptr<Region> TakeRegion(size_t bytes);
    void GiveBack(std::unique_ptr<Region> region);
    std::map<uintptr_t, View>::const_iterator FindView(const void* address) const;

    Machine& machine_;
    mutable std::mutex mutex_;
    mutable std::map<std::u16string, std::weak_ptr<Section>, std::less<>> names_;
    std::map<uintptr_t, View> views_;  // by the address of their first byte
    // Regions whose pages are there already, for the next file that is mapped.
    std::vector<std::unique_ptr<Region>> spare_;
    size_t spareBytes_ = 0;
};

}  // namespace embedded
