#include <fstream>

#include <gtest/gtest.h>

#include "platform/embedded/api_kernel.h"
#include "platform/embedded/mapping.h"
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

TEST(Views, EndWhereTheirPagesEndAndCannotBeTouchedLater) {
    Machine machine;
    Fill(machine.driveC() / "small", std::string(5000, 's'));
    MappedView view = MapFile(u"C:\\small");
    const auto* bytes = static_cast<const volatile char*>(view.get());
    EXPECT_EQ(bytes[4999], 's');
    EXPECT_EQ(bytes[8191], 0);
    EXPECT_EQ(machine.OpenNow(), (Leaks{.views = 1}));
#ifdef __SANITIZE_ADDRESS__
    EXPECT_DEATH((void)bytes[8192], "");
    EXPECT_DEATH((void)bytes[-1], "");
    EXPECT_DEATH(const_cast<volatile char*>(bytes)[0] = 'x', "");
    view.reset();
    EXPECT_DEATH((void)bytes[0], "");
#endif
    const NullableHandle block(
        CreateFileMappingW(INVALID_HANDLE_VALUE, nullptr, PAGE_READWRITE, 0, 10, nullptr));
    const MappedView shared(MapViewOfFile(block.get(), FILE_MAP_ALL_ACCESS, 0, 0, 0));
    auto* sharedBytes = static_cast<volatile char*>(shared.get());
    sharedBytes[4095] = 'x';
    EXPECT_DEATH(sharedBytes[4096] = 'x', "");
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
