#include <algorithm>
#include <filesystem>
#include <fstream>
#include <iterator>

#include <gtest/gtest.h>

#include "platform/embedded/files.h"

#include "tests/description/ppd_text.h"

namespace ksfax {
namespace {

std::vector<std::filesystem::path> RealPpds() {
    std::vector<std::filesystem::path> files;
    for (const char* folder : {"/usr/share/ppd", SOURCE_FOLDER "/examples"}) {
        std::error_code missing;
        for (const auto& entry : std::filesystem::recursive_directory_iterator(folder, missing)) {
            std::string extension = entry.path().extension();
            std::ranges::transform(extension, extension.begin(), [](char c) {
                return static_cast<char>(std::tolower(static_cast<unsigned char>(c)));
            });
            if (extension == ".ppd") {
                files.push_back(entry.path());
            }
        }
    }
    return files;
}

std::string ReadAll(const std::filesystem::path& path) {
    std::ifstream file(path, std::ios::binary);
    return {std::istreambuf_iterator<char>(file), {}};
}

// The checksum as it is defined, bit by bit.
uint16_t SlowCrc16(std::string_view bytes) {
    unsigned crc = 0;
    for (const char byte : bytes) {
        crc ^= static_cast<unsigned>(static_cast<uint8_t>(byte)) << 8;
        for (int bit = 0; bit < 8; ++bit) {
            crc = (crc & 0x8000) != 0 ? (crc << 1) ^ 0x1021 : crc << 1;
        }
    }
    return static_cast<uint16_t>(crc);
}

// Every real file loads, or is refused for a part of more than 40 characters and nothing else.
TEST(RealFiles, AllLoadIntoSoundBlocks) {
    embedded::Machine machine;
    const auto files = RealPpds();
    ASSERT_GE(files.size(), 2u) << "the hp-ppd package is missing";
    for (const auto& path : files) {
        SCOPED_TRACE(path.filename());
        const std::string text = ReadAll(path);
        StatementLog log;
        const DescriptionPtr packed = PackText(text, &log.observer);
        if (!packed) {
            ASSERT_FALSE(log.lines.empty());
            EXPECT_EQ(log.lines.back().back(), 'F') << log.lines.back();
            continue;
        }
        EXPECT_TRUE(IsSoundBlock(packed.get(), packed->TotalSize));
        EXPECT_EQ(packed->Checksum, SlowCrc16(text));
        EXPECT_GT(packed->DocumentFeatureCount, 0);

        RelocateDescription(packed.get());
        const FeatureRecord* papers = FeatureOf(*packed, FeatureKind::PageSize);
        ASSERT_NE(papers, nullptr);
        EXPECT_GT(CountListEntries(papers->Options.Target()), 1u);
    }
    EXPECT_EQ(machine.OpenNow(), embedded::Leaks());
}

}  // namespace
}  // namespace ksfax
