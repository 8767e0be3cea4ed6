#include <cstring>

#include <gtest/gtest.h>

#include "platform/crc16.h"

#include "tests/description/ppd_text.h"

namespace ksfax {
namespace {

// A block written out by hand, little-endian.
class Bytes {
  public:
    explicit Bytes(size_t size) : bytes_(size, '\0') {}
    Bytes& U16(size_t at, uint16_t value) { return Put(at, &value, sizeof(value)); }
    Bytes& U32(size_t at, uint32_t value) { return Put(at, &value, sizeof(value)); }
    Bytes& Text(size_t at, std::string_view text) { return Put(at, text.data(), text.size()); }
    const std::string& all() const { return bytes_; }

  private:
    Bytes& Put(size_t at, const void* value, size_t size) {
        bytes_.replace(at, size, static_cast<const char*>(value), size);
        return *this;
    }
    std::string bytes_;
};

TEST(PackDescription, LaysTheBlockByteForByte) {
    embedded::Machine machine;
    const DescriptionPtr block = PackText("*FileVersion: \"1.0\"\n*Duplex None/Off: \"x\"\n"
                                          "*UIConstraints: *Duplex *Foo\n"
                                          "*OrderDependency: 10 Prolog *Duplex\n");
    Bytes expected(652);
    expected.U32(0, 652).U32(8, 472).U16(24, 3).U16(26, 0x254D);
    expected.U32(36, 102400).U32(40, 1).U32(68, 240).U32(204, 11520).U32(208, 15360);
    expected.U32(240, 256).U32(268, 1).U16(300, 1).U32(304, 524).U32(456, 492).U32(464, 508);
    expected.Text(472, std::string_view("C\0:\0\\\0P\0.\0P\0P\0D\0", 16));
    expected.U16(492, 1).U16(494, 12).U16(496, 0).U16(498, 255).U32(500, 2560).U16(504, 2);
    expected.U16(508, 1).U16(510, 8).U16(512, 65535).U16(514, 255).U16(516, 65535).U16(518, 0);
    expected.U32(524 + 8, 588).U32(524 + 16, 3410).U32(524 + 40, 40).U16(524 + 44, 3);
    expected.U16(524 + 48, 1).U32(524 + 56, 596).Text(588, "Duplex");
    expected.U32(596 + 8, 636).U32(596 + 16, 885).U32(596 + 24, 644).U32(596 + 32, 648);
    expected.Text(636, "None").Text(644, "Off").Text(648, "x");
    EXPECT_EQ(BytesOf(*block), expected.all());
}

TEST(PackDescription, OrdersTheStringsOfEachPiece) {
    embedded::Machine machine;
    constexpr char kText[] = "*JCLToPSInterpreter: I\n*JCLEnd: E\n*NickName: N\n"
                             "*Font Courier: x\n*VMOption 1: 9\n*PageRegion A: \"r\"\n"
                             "*PageSizeL A: \"l\"\n*PageSize A/T: \"i\"\n";
    const DescriptionPtr block = PackText(kText);
    Bytes expected(900);
    expected.U32(0, 900).U32(8, 472).U32(16, 492).U16(24, 3);
    expected.U16(26, platform::Crc16(kText, sizeof(kText) - 1));
    expected.U32(36, 102400).U32(40, 1).U32(68, 240).U32(204, 11520).U32(208, 15360);
    expected.U32(224, 500).U32(232, 496).U32(268, 1).U16(300, 1).U16(302, 1);
    expected.U32(304, 512).U32(448, 848).U32(456, 504).U32(464, 508);
    expected.Text(472, std::string_view("C\0:\0\\\0P\0.\0P\0P\0D\0", 16));
    expected.Text(492, "N").Text(496, "I").Text(500, "E").U16(506, 12).U16(510, 8);
    expected.U32(512, 720).U32(512 + 8, 576).U32(512 + 16, 14685).U32(512 + 40, 112);
    expected.U16(512 + 48, 1).U32(512 + 56, 588).Text(576, "PageSize");
    expected.U32(588 + 8, 700).U32(588 + 16, 'A').U32(588 + 24, 704).U32(588 + 32, 708);
    expected.U32(588 + 40, 712).U32(588 + 48, 716);
    expected.Text(700, "A").Text(704, "T").Text(708, "i").Text(712, "l").Text(716, "r");
    expected.U32(720 + 8, 784).U32(720 + 16, 13332).U32(720 + 40, 48).U16(720 + 44, 6);
    expected.U16(720 + 48, 1).U32(720 + 52, 1).U32(720 + 56, 796).Text(784, "VMOption");
    expected.U32(796 + 8, 844).U32(796 + 16, '1').U32(796 + 40, 9).Text(844, "1");
    expected.U32(848 + 8, 888).U32(848 + 16, 6396).U32(848 + 24, 896).U16(848 + 36, 9);
    expected.Text(888, "Courier").Text(896, "x");
    EXPECT_EQ(BytesOf(*block), expected.all());
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

TEST(PackDescription, CorrectsPapers) {
    embedded::Machine machine;
    const DescriptionPtr description =
        LoadText("*PaperDimension A: \"612 792\"\n*ImageableArea A: \"18 18 700 900\"\n"
                 "*PaperDimension B: \"0 792\"\n"
                 "*PaperDimension C: \"100 200\"\n*ImageableArea C: \"50 10 40 150\"\n"
                 "*ImageableAreaL C: \"10 10 150 90\"\n");
    const OptionRecord* first = FeatureOf(*description, FeatureKind::PageSize)->Options.Target();
    const auto points = [&](unsigned option) {
        const PaperOptionRecord& paper = AsPaper(*NthListEntry(first, option));
        std::vector<uint32_t> all = {paper.PaperWidth, paper.PaperHeight};
        all.insert(all.end(), paper.ImageableArea, paper.ImageableArea + 4);
        all.insert(all.end(), paper.ImageableAreaL, paper.ImageableAreaL + 4);
        for (uint32_t& value : all) {
            value /= 256;
        }
        return all;
    };
    EXPECT_EQ(points(0), (std::vector<uint32_t>{612, 792, 18, 18, 612, 792, 0, 0, 0, 792}));
    EXPECT_EQ(points(1), (std::vector<uint32_t>{0, 0, 0, 0, 0, 0, 0, 0, 0, 0}));
    EXPECT_EQ(points(2), (std::vector<uint32_t>{100, 200, 0, 0, 40, 200, 10, 10, 100, 90}));
}

TEST(PackDescription, ResolvesDefaults) {
    embedded::Machine machine;
    const struct {
        const char* text;
        uint32_t dpi;
    } rows[] = {{"*DefaultResolution: 300dpi\n*Resolution 600dpi: \"\"\n", 300},
                {"*Resolution 600dpi: \"\"\n", 600},
                {"*Resolution fine: \"\"\n", 300},
                {"*DefaultResolution: -5\n", 300},
                {"*Duplex None: \"\"\n", 300}};
    for (const auto& row : rows) {
        EXPECT_EQ(GetDefaultResolution(*LoadText(row.text)), row.dpi) << row.text;
    }
    const DescriptionPtr description =
        LoadText("*DefaultDuplex: B\n*Duplex A: \"\"\n*Duplex B: \"\"\n*DefaultCollate: A \n"
                 "*Collate X: \"\"\n*Collate A: \"\"\n*DefaultResolution: 600dpi\n");
    uint8_t selections[3] = {9, 9, 9};
    EXPECT_EQ(GetDefaultSelections(*description, selections), 3);
    EXPECT_EQ(selections[0], 1);
    EXPECT_EQ(selections[1], 0) << "the blank belongs to the name";
    EXPECT_EQ(selections[2], 255);
}

// Counts of 16 bits stop where they are full, and so do the tables.
TEST(PackDescription, HoldsMoreThan16BitsCount) {
    embedded::Machine machine;
    std::string text = "*Duplex None: \"\"\n";
    constexpr unsigned kMany = 66000;
    for (unsigned i = 0; i < kMany; ++i) {
        const std::string number = std::to_string(i);
        text += "*OpenUI *F" + number + ": PickOne\n*UIConstraints: *Duplex *F" + number + "\n";
        text += "*Collate O" + number + ": \"\"\n";
    }
    text += "*DefaultCollate: O65999\n";
    StatementLog log;
    log.observer.statement = nullptr;
    const DescriptionPtr block = PackText(text, &log.observer);
    ASSERT_TRUE(block);
    EXPECT_TRUE(IsSoundBlock(block.get(), block->TotalSize));
    RelocateDescription(block.get());
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

TEST(PackDescription, FailsWithoutMemoryAndLeavesNothing) {
    embedded::Machine machine;
    // Of the second text the arena and the index of names grow.
    std::string many;
    for (unsigned i = 0; i < 5000; ++i) {
        many += "*Duplex O" + std::to_string(i) + ": \"\"\n";
    }
    const std::pair<std::string, unsigned> rows[] = {{"*Duplex None: \"\"\n", 2}, {many, 5}};
    for (const auto& [text, leastCalls] : rows) {
        bool struck = true;
        for (unsigned n = 1; struck; ++n) {
            machine.faults.FailCall("GlobalAlloc", n);
            const bool packed = PackText(text) != nullptr;
            struck = machine.faults.struck();
            machine.faults.Clear();
            EXPECT_EQ(packed, !struck) << n;
            EXPECT_EQ(machine.OpenNow(), embedded::Leaks());
            EXPECT_TRUE(struck || n > leastCalls) << n;
        }
    }
}

TEST(Crc16, IsTheSameByAnyRoad) {
    std::string bytes(1000, '\0');
    uint32_t noise = 12345;
    for (char& byte : bytes) {
        noise = noise * 1664525 + 1013904223;
        byte = static_cast<char>(noise >> 24);
    }
    EXPECT_EQ(platform::Crc16("123456789", 9), 0x31C3);
    for (size_t length = 0; length <= bytes.size(); length += length < 300 ? 1 : 17) {
        const auto* data = reinterpret_cast<const uint8_t*>(bytes.data());
        EXPECT_EQ(platform::Crc16(data, length), platform::crc16::BySlicing(0, data, length))
            << length;
    }
}

}  // namespace
}  // namespace ksfax
