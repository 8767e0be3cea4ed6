#include "platform/embedded/memory.h"

#include <cstdlib>
#include <iostream>
#include <thread>

#include "platform/embedded/poison.h"

namespace embedded {
namespace {

// Stands in front of each block. 16 bytes keep the block aligned as malloc aligns; the block
// ends where the malloc'd one ends, so that AddressSanitizer sees an overrun by one byte, and
// the header is poisoned while the block is out, so that it sees an underrun too.
struct alignas(16) BlockHeader {
    SIZE_T bytes;
};
static_assert(sizeof(BlockHeader) == 16);

// As on a machine whose memory is used up. Far above anything the driver has reason to ask for,
// far below what would trouble the host.
constexpr SIZE_T kLargestBlock = SIZE_T{1} << 30;

void* AllocateBlock(SIZE_T bytes, bool zeroed) {
    if (bytes > kLargestBlock) {
        return nullptr;
    }
    const SIZE_T whole = sizeof(BlockHeader) + bytes;
    void* memory = zeroed ? calloc(1, whole) : malloc(whole);
    if (memory == nullptr) {
        return nullptr;
    }
    auto* header = static_cast<BlockHeader*>(memory);
    header->bytes = bytes;
    ASAN_POISON_MEMORY_REGION(header, sizeof(BlockHeader));
    return header + 1;
}

BlockHeader* HeaderOf(void* block) {
    BlockHeader* header = static_cast<BlockHeader*>(block) - 1;
    ASAN_UNPOISON_MEMORY_REGION(header, sizeof(BlockHeader));
    return header;
}

void FreeBlock(void* block) {
    free(HeaderOf(block));
}

// What CRITICAL_SECTION::DebugInfo points at.
struct Lock {
    std::recursive_mutex mutex;
    std::atomic<std::thread::id> holder;
    unsigned depth = 0;  // guarded by the mutex
};

Lock& LockOf(const CRITICAL_SECTION* section, const char* call) {
    if (section->DebugInfo == nullptr) {
        // Windows would crash or hang here; a clear end is kinder to whoever looks for the cause.
        std::cerr << call << ": the critical section is not initialised\n";
        std::abort();
    }
    return *static_cast<Lock*>(section->DebugInfo);
}

}  // namespace

Heap::~Heap() {
    for (void* block : blocks) {
        FreeBlock(block);
    }
}

bool IsHeldByAnyone(const CRITICAL_SECTION& section) {
    const Lock* lock = static_cast<const Lock*>(section.DebugInfo);
    return lock != nullptr && lock->holder.load() != std::thread::id();
}

bool IsHeldByThisThread(const CRITICAL_SECTION& section) {
    const Lock* lock = static_cast<const Lock*>(section.DebugInfo);
    return lock != nullptr && lock->holder.load() == std::this_thread::get_id();
}

}  // namespace embedded

using namespace embedded;

// ---- Global memory ----

namespace {

// The handle of a movable block is two bytes off its address, so that code which takes one for
// the other reads rubbish in its first test. Fixed blocks are aligned by 16.
constexpr uintptr_t kMovable = 2;

void* WithoutTag(HGLOBAL memory) {
    return reinterpret_cast<void*>(reinterpret_cast<uintptr_t>(memory) & ~kMovable);
}

}  // namespace

HGLOBAL GlobalAlloc(UINT flags, SIZE_T bytes) {
    if (!Answer((flags & ~(GMEM_ZEROINIT | GMEM_MOVEABLE)) != 0 ? ERROR_INVALID_PARAMETER
                                                                : ERROR_SUCCESS)) {
        return nullptr;
    }
    void* block =
        Fails("GlobalAlloc") ? nullptr : AllocateBlock(bytes, (flags & GMEM_ZEROINIT) != 0);
    if (block == nullptr) {
        SetLastError(ERROR_NOT_ENOUGH_MEMORY);
        return nullptr;
    }
    Machine::Current().globalBlocks.fetch_add(1, std::memory_order_relaxed);
    return (flags & GMEM_MOVEABLE) != 0 ? static_cast<char*>(block) + kMovable : block;
}

LPVOID GlobalLock(HGLOBAL memory) {
    return Fails("GlobalLock", ERROR_INVALID_HANDLE) ? nullptr : WithoutTag(memory);
}

BOOL GlobalUnlock(HGLOBAL) {
    SetLastError(NO_ERROR);
    return FALSE;
}

HLOCAL LocalAlloc(UINT flags, SIZE_T bytes) {
    return Fails("LocalAlloc", ERROR_NOT_ENOUGH_MEMORY) ||
                   !Answer(flags != LPTR ? ERROR_INVALID_PARAMETER : ERROR_SUCCESS)
               ? nullptr
               : GlobalAlloc(GMEM_ZEROINIT, bytes);
}

HLOCAL LocalFree(HLOCAL memory) {
    return GlobalFree(memory);
}

HGLOBAL GlobalFree(HGLOBAL memory) {
    if (memory != nullptr) {
        FreeBlock(WithoutTag(memory));
        Machine::Current().globalBlocks.fetch_sub(1, std::memory_order_relaxed);
    }
    return nullptr;
}

SIZE_T GlobalSize(HGLOBAL memory) {
    BlockHeader* header = HeaderOf(WithoutTag(memory));
    const SIZE_T bytes = header->bytes;
    ASAN_POISON_MEMORY_REGION(header, sizeof(BlockHeader));
    return bytes;
}

// ---- Private heaps ----

HANDLE HeapCreate(DWORD options, SIZE_T, SIZE_T maximumBytes) {
    return Fails("HeapCreate", ERROR_NOT_ENOUGH_MEMORY) ||
                   !Answer(options != 0 || maximumBytes != 0 ? ERROR_INVALID_PARAMETER
                                                             : ERROR_SUCCESS)
               ? nullptr
               : Machine::Current().handles.Insert(std::make_shared<Heap>());
}

LPVOID HeapAlloc(HANDLE heap, DWORD flags, SIZE_T bytes) {
    const auto object = Machine::Current().handles.Get<Heap>(heap);
    if (Fails("HeapAlloc") || object == nullptr || (flags & ~HEAP_ZERO_MEMORY) != 0) {
        return nullptr;
    }
    void* block = AllocateBlock(bytes, (flags & HEAP_ZERO_MEMORY) != 0);
    if (block != nullptr) {
        std::lock_guard lock(object->mutex);
        object->blocks.push_back(block);
    }
    return block;
}

BOOL HeapDestroy(HANDLE heap) {
    return Answer(Machine::Current().handles.Close<Heap>(heap) ? ERROR_SUCCESS
                                                               : ERROR_INVALID_HANDLE);
}

// ---- Critical sections ----

void InitializeCriticalSection(CRITICAL_SECTION* section) {
    *section = {};
    section->DebugInfo = new Lock;
}

void EnterCriticalSection(CRITICAL_SECTION* section) {
    Lock& lock = LockOf(section, "EnterCriticalSection");
    lock.mutex.lock();
    ++lock.depth;
    lock.holder = std::this_thread::get_id();
}

void LeaveCriticalSection(CRITICAL_SECTION* section) {
    Lock& lock = LockOf(section, "LeaveCriticalSection");
    if (lock.holder.load() != std::this_thread::get_id()) {
        std::cerr << "LeaveCriticalSection: this thread does not hold the critical section\n";
        std::abort();
    }
    if (--lock.depth == 0) {
        lock.holder = std::thread::id();
    }
    lock.mutex.unlock();
}

void DeleteCriticalSection(CRITICAL_SECTION* section) {
    delete &LockOf(section, "DeleteCriticalSection");
    *section = {};
}
