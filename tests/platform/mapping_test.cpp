#include <fcntl.h>
#include <fstream>
#include <sys/mman.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <gtest/gtest.h>

#include "platform/embedded/api_kernel.h"
#include "platform/embedded/mapping.h"
#include "platform/embedded/poison.h"
#include "platform/owned.h"

namespace embedded {
namespace {

using platform::FileHandle;
using platform::MappedView;
using platform::NullableHandle;

MappedView MapFile(LPCWSTR path) {
    const FileHandle file(
        CreateFileW(path, GENERIC_READ, FILE_SHARE_READ, nullptr, OPEN_EXISTING, 0, nullptr));
    const NullableHandle mapping(
        CreateFileMappingW(file.get(), nullptr, PAGE_READONLY, 0, 0, nullptr));
    return MappedView(MapViewOfFile(mapping.get(), FILE_MAP_READ, 0, 0, 0));
}

void Fill(const std::filesystem::path& path, const std::string& bytes) {
    std::ofstream(path, std::ios::binary) << bytes;
}

// Whether driver code may read, or write, the byte there; asked of the host and, where there is
// one, of the sanitizer, without touching it.
bool IsReadable(const volatile char* address) {
    void* const byte = const_cast<char*>(address);
#ifdef EMBEDDED_ASAN
    if (__asan_address_is_poisoned(byte)) {
        return false;
    }
#endif
    const int null = memfd_create("sink", MFD_CLOEXEC);
    const bool readable = syscall(SYS_write, null, byte, 1) == 1;
    close(null);
    return readable;
}
bool IsWritable(volatile char* address) {
    const int zero = open("/dev/zero", O_RDONLY | O_CLOEXEC);
    const bool writable = syscall(SYS_read, zero, address, 1) == 1;
    close(zero);
    return writable;
}

TEST(Views, EndWhereTheirPagesEndAndCannotBeTouchedLater) {
    Machine machine;
    Fill(machine.driveC() / "small", std::string(5000, 's'));
    MappedView view = MapFile(u"C:\\small");
    auto* bytes = static_cast<volatile char*>(view.get());
    EXPECT_EQ(bytes[4999], 's');
    EXPECT_EQ(bytes[8191], 0);
    EXPECT_EQ(machine.OpenNow(), (Leaks{.views = 1}));
    EXPECT_FALSE(IsReadable(bytes + 8192));
    EXPECT_FALSE(IsReadable(bytes - 1));
    EXPECT_FALSE(IsWritable(bytes));
    view.reset();
#ifdef EMBEDDED_ASAN
    EXPECT_FALSE(IsReadable(bytes));
#endif
    const NullableHandle block(
        CreateFileMappingW(INVALID_HANDLE_VALUE, nullptr, PAGE_READWRITE, 0, 10, nullptr));
    const MappedView shared(MapViewOfFile(block.get(), FILE_MAP_ALL_ACCESS, 0, 0, 0));
    auto* sharedBytes = static_cast<volatile char*>(shared.get());
    sharedBytes[4095] = 'x';
    EXPECT_FALSE(IsReadable(sharedBytes + 4096));
}

TEST(Views, OfFilesHoldNothingOfEarlierOnes) {
    Machine machine;
    Fill(machine.driveC() / "long", std::string(20000, 'l'));
    Fill(machine.driveC() / "short", std::string(9000, 's'));
    MapFile(u"C:\\long");
    const MappedView view = MapFile(u"C:\\short");
    const std::string_view bytes(static_cast<const char*>(view.get()), 12288);
    EXPECT_EQ(bytes.substr(0, 9000), std::string(9000, 's'));
    EXPECT_EQ(bytes.find_first_not_of('\0', 9000), std::string_view::npos);
    MEMORY_BASIC_INFORMATION region;
    ASSERT_NE(VirtualQuery(bytes.data() + 5000, &region, sizeof(region)), 0u);
    EXPECT_EQ(region.BaseAddress, bytes.data() + 4096);
    EXPECT_EQ(region.AllocationBase, bytes.data());
    EXPECT_EQ(region.RegionSize, 8192u);
#ifdef EMBEDDED_ASAN
    // It lies in the pages of the longer file.
    EXPECT_TRUE(IsReadable(bytes.data() + 12287));
    EXPECT_FALSE(IsReadable(bytes.data() + 12288));
#endif
    // Neither what another process writes nor what it cuts off reaches a view.
    Fill(machine.driveC() / "short", "x");
    EXPECT_EQ(bytes[8999], 's');
}

TEST(SharedMemory, ExistsAsLongAsAHandle) {
    Machine machine;
    HANDLE block =
        CreateFileMappingW(INVALID_HANDLE_VALUE, nullptr, PAGE_READWRITE, 0, 90, u"2c1f40CVP");
    EXPECT_TRUE(machine.mappings().Exists(u"2c1f40CVP"));
    EXPECT_EQ(machine.handles.CountOpen<SectionHandle>(), 1u);
    EXPECT_TRUE(CloseHandle(block));
    EXPECT_FALSE(machine.mappings().Exists(u"2c1f40CVP"));
    EXPECT_EQ(CreateFileMappingW(INVALID_HANDLE_VALUE, nullptr, PAGE_READWRITE, 0xFFFF, 0, u"x"),
              nullptr);
    EXPECT_EQ(GetLastError(), ERROR_NOT_ENOUGH_MEMORY);
    EXPECT_EQ(machine.OpenNow(), Leaks{});
}

}  // namespace
}  // namespace embedded
