#include <thread>

#include <gtest/gtest.h>

#include "platform/embedded/machine.h"
#include "platform/embedded/memory.h"
#include "platform/windows_api.h"

namespace embedded {
namespace {

TEST(GlobalAlloc, CountsBlocksAndKnowsTheirSize) {
    Machine machine;
    auto* block = static_cast<BYTE*>(GlobalAlloc(GMEM_ZEROINIT, 33));
    ASSERT_NE(block, nullptr);
    EXPECT_EQ(reinterpret_cast<uintptr_t>(block) % 16, 0u);
    EXPECT_EQ(std::count(block, block + 33, 0), 33);
    EXPECT_EQ(GlobalSize(block), 33u);
    EXPECT_EQ(machine.OpenNow().globalBlocks, 1u);
    EXPECT_EQ(GlobalFree(block), nullptr);
    EXPECT_EQ(GlobalFree(nullptr), nullptr);
    EXPECT_EQ(machine.OpenNow().globalBlocks, 0u);
}

TEST(GlobalAlloc, FailsWhenToldToOrAskedForTooMuch) {
    Machine machine;
    EXPECT_EQ(GlobalAlloc(GMEM_FIXED, SIZE_T(-1)), nullptr);
    EXPECT_EQ(GetLastError(), ERROR_NOT_ENOUGH_MEMORY);
    SetLastError(0);
    machine.faults.FailCall("GlobalAlloc");
    EXPECT_EQ(GlobalAlloc(GMEM_FIXED, 1), nullptr);
    EXPECT_EQ(GetLastError(), ERROR_NOT_ENOUGH_MEMORY);
    EXPECT_EQ(machine.OpenNow().globalBlocks, 0u);
}

#ifdef __SANITIZE_ADDRESS__
TEST(GlobalAllocDeathTest, OverrunAndUnderrunAreCaught) {
    Machine machine;
    volatile BYTE* block = static_cast<BYTE*>(GlobalAlloc(GMEM_FIXED, 5));
    EXPECT_DEATH(block[5] = 1, "AddressSanitizer");
    EXPECT_DEATH(block[-1] = 1, "AddressSanitizer");
    GlobalFree(const_cast<BYTE*>(block));
}
#endif

TEST(PrivateHeap, FreesItsBlocksWithIt) {
    Machine machine;
    const HANDLE heap = HeapCreate(0, 8192, 0);
    ASSERT_NE(heap, nullptr);
    auto* block = static_cast<BYTE*>(HeapAlloc(heap, HEAP_ZERO_MEMORY, 9));
    EXPECT_EQ(std::count(block, block + 9, 0), 9);
    EXPECT_EQ(HeapAlloc(heap, 0, SIZE_T(-1)), nullptr);
    EXPECT_EQ(machine.OpenNow(), Leaks{.heaps = 1});
    EXPECT_TRUE(HeapDestroy(heap));
    EXPECT_FALSE(HeapDestroy(heap));
    EXPECT_EQ(HeapAlloc(heap, 0, 1), nullptr);
    EXPECT_EQ(machine.OpenNow(), Leaks{});
}

TEST(CriticalSection, TellsWhoHoldsItAndKeepsOthersOut) {
    CRITICAL_SECTION section;
    InitializeCriticalSection(&section);
    EXPECT_FALSE(IsHeldByAnyone(section));
    EnterCriticalSection(&section);
    EnterCriticalSection(&section);
    LeaveCriticalSection(&section);
    EXPECT_TRUE(IsHeldByThisThread(section));
    int shared = 0;
    std::thread other([&] {
        EXPECT_FALSE(IsHeldByThisThread(section));
        EnterCriticalSection(&section);
        EXPECT_EQ(shared, 1);
        LeaveCriticalSection(&section);
    });
    shared = 1;
    LeaveCriticalSection(&section);
    other.join();
    EXPECT_FALSE(IsHeldByAnyone(section));
    DeleteCriticalSection(&section);
    EXPECT_FALSE(IsHeldByAnyone(section));
}

}  // namespace
}  // namespace embedded
