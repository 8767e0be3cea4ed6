#pragma once

// File mappings, named shared memory and their views.
//
// Before and behind every view lies memory that cannot be touched, so that reading past its last
// page stops the program. The mapping of a file is a private copy read when it is made (a file is
// read faster than its pages are touched): it neither follows later changes of the file nor is hurt
// when another process shortens it. A view of shared memory is the block itself.

#include <cstdint>
#include <map>
#include <memory>
#include <mutex>
#include <string>
#include <string_view>

#include "platform/embedded/api_kernel.h"
#include "platform/embedded/files.h"
#include "platform/embedded/machine.h"

namespace embedded {

// What a mapping is made of: shared pages of the host. Views hold it when its handles are gone.
struct MappedMemory {
    ~MappedMemory();

    uint64_t bytes = 0;                // as asked for, or as many as the file had
    void* pages = nullptr;             // a place of theirs beside those of the views
    bool isReserved = false;           // without pages that can be touched
    std::unique_ptr<FileUse> fileUse;  // of a file, which cannot be written here nor cut short
};

// One mapping, whatever the number of its handles. Its name lasts as long as they do.
struct Section {
    std::shared_ptr<MappedMemory> memory;
};

// What a mapping's handle names.
struct SectionHandle : KernelObject {
    explicit SectionHandle(std::shared_ptr<Section> section) : section(std::move(section)) {}

    std::shared_ptr<Section> section;
};

class Mappings {
  public:
    // Installs kernelbase.dll with CompareObjectHandles.
    explicit Mappings(Machine& machine);

    // The bytes that the shared memory of that name was made with, for tests and ksfax: no call is
    // counted and no error set. 0 when there is none.
    uint64_t SizeOf(std::u16string_view name) const;

    // ---- For the machine's own calls. Failures are last-error codes.

    // Gives a section its name, or gives the one that has the name already
    // (ERROR_ALREADY_EXISTS).
    DWORD Name(std::u16string_view name, std::shared_ptr<Section>& section);
    // Null for a name that nothing has.
    std::shared_ptr<Section> Find(std::u16string_view name) const;
    DWORD Map(const std::shared_ptr<MappedMemory>& memory, DWORD access, SIZE_T bytes, void*& view);
    // False for an address that is no view's first.
    bool Unmap(const void* view);
    // What VirtualQuery says of a view; false for an address that is no view's first.
    bool Describe(const void* view, MEMORY_BASIC_INFORMATION& information) const;
    unsigned CountViews() const;

  private:
    struct View {
        View() = default;
        View(const View&) = delete;
        View& operator=(const View&) = delete;
        ~View();

        std::byte* base = nullptr;
        size_t bytes = 0;
        std::shared_ptr<MappedMemory> memory;
    };

    mutable std::mutex mutex_;
    std::map<std::u16string, std::weak_ptr<Section>, std::less<>> names_;
    std::map<const void*, std::unique_ptr<View>> views_;  // by their first byte
};

}  // namespace embedded
