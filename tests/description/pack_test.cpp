#include <iomanip>
#include <map>
#include <sstream>

#include <gtest/gtest.h>

#include "platform/crc16.h"

#include "tests/description/ppd_text.h"
#include "tests/faults.h"
#include "tests/golden.h"

namespace ksfax {
namespace {

// The bytes of two blocks, sixteen a line, checked field by field when they were recorded.
TEST(PackDescription, LaysTheBlockByteForByte) {
    embedded::Machine machine;
    std::ostringstream all;
    all << std::hex << std::setfill('0');
    for (const char* text :
         {"*FileVersion: \"1.0\"\n*Duplex None/Off: \"x\"\n*UIConstraints: *Duplex *Foo\n"
          "*OrderDependency: 10 Prolog *Duplex\n",
          "*JCLToPSInterpreter: I\n*JCLEnd: E\n*NickName: N\n*Font Courier: x\n*VMOption 1: 9\n"
          "*PageRegion A: \"r\"\n*PageSizeL A: \"l\"\n*PageSize A/T: \"i\"\n"}) {
        const DescriptionPtr block = PackText(text);
        const std::string_view bytes = BytesOf(*block);
        for (size_t line = 0; line < bytes.size(); line += 16) {
            all << std::setw(4) << line << ":";
            for (const char byte : bytes.substr(line, 16)) {
                all << " " << std::setw(2) << static_cast<unsigned>(static_cast<uint8_t>(byte));
            }
            all << "\n";
        }
        all << bytes.size() << " bytes\n\n";
    }
    EXPECT_TRUE(IsRecorded("description/blocks.txt", all.str()));
}

// Another process may write the file while it is mapped: here between the two runs of packing,
// when the first unresolved name is told.
TEST(PackDescription, FailsWhenTheFileIsRewrittenMeanwhile) {
    embedded::Machine machine;
    const struct {
        std::string_view before;
        std::string_view after;
    } rows[] = {{"<4142434445>", "ABCDEFGHIJKL"}, {"<41>CDEFGHIJ", "<4142434445>"}};
    for (const auto& row : rows) {
        std::string text = "*UIConstraints: *X *Y\n*Duplex A/" + std::string(row.before) +
                           ": \"\"\n*Duplex B: \"\"\n";
        struct Rewrite {
            std::string& text;
            size_t place;
            std::string_view after;
        } rewrite = {text, text.find(row.before), row.after};
        const ParseObserver observer = {.context = &rewrite,
                                        .packed = [](void* context, const PackReport&) {
                                            const auto& r = *static_cast<Rewrite*>(context);
                                            r.after.copy(r.text.data() + r.place, r.after.size());
                                        }};
        EXPECT_FALSE(PackText(text, &observer)) << row.before;
        EXPECT_TRUE(PackText(text)) << "as it stands now";
        EXPECT_EQ(machine.OpenNow(), embedded::Leaks());
    }
}

// Counts of 16 bits stop where they are full, and so do the tables.
TEST(PackDescription, HoldsMoreThan16BitsCount) {
    embedded::Machine machine;
    std::string text = "*Duplex None: \"\"\n";
    constexpr unsigned kMany = 66000;
    for (unsigned i = 0; i < kMany; ++i) {
        const std::string number = std::to_string(i);
        text += "*OpenUI *F" + number + ": PickOne\n*UIConstraints: *Duplex *F" + number + "\n";
        text += "*Collate O" + number + ": \"\"\n*OrderDependency: 1 Prolog *F" + number + "\n";
    }
    text += "*DefaultCollate: O65999\n";
    std::map<PackNote, uint32_t> lines;  // of the last note of each kind
    const ParseObserver observer = {
        .context = &lines, .packed = [](void* context, const PackReport& report) {
            (*static_cast<std::map<PackNote, uint32_t>*>(context))[report.note] = report.line;
        }};
    const DescriptionPtr block = LoadText(text, &observer);
    ASSERT_TRUE(block);
    EXPECT_EQ(lines[PackNote::ConstraintsTruncated], 4u * 65535 + 3);
    EXPECT_EQ(lines[PackNote::OrdersTruncated], 4u * 65535 + 5);
    EXPECT_EQ(block->DocumentFeatureCount, 65535);
    EXPECT_EQ(CountListEntries(block->Features.Target()), kMany + 2);
    const ConstraintTable* constraints = block->UIConstraints.Target();
    EXPECT_EQ(constraints->Count, 65535);
    EXPECT_EQ(constraints->Entries()[65531].Feature2, 65533);
    EXPECT_EQ(constraints->Entries()[65534].Feature1, 65535) << "beyond what a position can say";
    EXPECT_EQ(uint64_t{FeatureOf(*block, FeatureKind::Collate)->Default}, 65999u);
    uint8_t selections[64];
    EXPECT_EQ(GetDefaultSelections(*block, selections), 65535);
}

// The longer the comment, the later in the text the memory that was taken first is used up, so
// that every kind of record is the one that asks for more; names beyond sixteen ask for theirs.
TEST(PackDescription, FailsWithoutMemoryAndLeavesNothing) {
    embedded::Machine machine;
    std::string kinds = "*PageSize A: \"\"\n*InputSlot A: \"\"\n*Collate A: \"\"\n"
                        "*Resolution A: \"\"\n*VMOption A: 1\n*OpenUI *X: PickOne\n*X A: \"\"\n"
                        "*DefaultDuplex: A\n*DefaultJCLResolution: 1\n*InstalledMemory B: \"1\"\n"
                        "*RequiresPageRegion All: True\n*RequiresPageRegion B: True\n"
                        "*ImageableArea B: \"1 2 3 4\"\n*PaperDimension C: \"1 2\"\n"
                        "*UIConstraints: *X *X\n*OrderDependency: 1 Prolog *X\n";
    for (char name = 'a'; name < 'u'; ++name) {
        kinds += std::string("*Duplex ") + name + ": \"\"\n";
    }
    for (size_t room = 0; room < 2400; room += 16) {
        const std::string text =
            "*%" + std::string(3 * room, ' ') + "\n" + kinds + "*Font Courier: x\n";
        DescriptionPtr packed;
        const auto holds = [&](const FailedCall& failed) {
            EXPECT_EQ(packed == nullptr, failed.number != 0) << room;
            packed.reset();
        };
        UnderFaults(
            machine,
            {.act = [&] { packed = PackText(text); }, .holds = holds, .only = {"GlobalAlloc"}});
    }
}

TEST(Crc16, IsTheSameByAnyRoad) {
    EXPECT_EQ(platform::Crc16("123456789", 9), 0x31C3);
    std::string bytes;
    for (uint32_t noise = 12345; bytes.size() < 1000; noise = noise * 1664525 + 1013904223) {
        bytes += static_cast<char>(noise >> 24);
        const auto* data = reinterpret_cast<const uint8_t*>(bytes.data());
        EXPECT_EQ(platform::Crc16(data, bytes.size()),
                  platform::crc16::BySlicing(0, data, bytes.size()))
            << bytes.size();
    }
}

}  // namespace
}  // namespace ksfax
