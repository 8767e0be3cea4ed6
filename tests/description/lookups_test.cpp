#include <algorithm>

#include <gtest/gtest.h>

#include "platform/embedded/resources.h"

#include "description/conflicts.h"
#include "description/device_fonts.h"
#include "description/paper_keywords.h"
#include "description/text.h"
#include "resources/resource.h"
#include "tests/description/ppd_text.h"
#include "tool/loaded_driver.h"

namespace ksfax {
namespace {

TEST(PaperKeywords, MatchWholeWordsOnly) {
    EXPECT_EQ(PaperKeywordToCode("A4"), 9);
    EXPECT_EQ(PaperKeywordToCode("a4"), 1);
    EXPECT_EQ(PaperKeywordToCode("A4Long"), 262);
    EXPECT_EQ(PaperKeywordToCode("JL3"), 73);
    EXPECT_EQ(PaperKeywordToCode("Tabloid"), 1);
    EXPECT_EQ(PaperKeywordToCode(nullptr), 1);
    EXPECT_EQ(SourceKeywordToCode("Tray"), 1);
    EXPECT_EQ(SourceKeywordToCode("Tray3"), 256);
    EXPECT_EQ(SourceKeywordToCode("ManualFeed"), 4);
    EXPECT_EQ(SourceKeywordToCode("TrayID4"), 262);
    EXPECT_EQ(SourceKeywordToCode(""), 1);
}

TEST(DeviceFontId, NumbersTheBuiltInFonts) {
    EXPECT_EQ(DeviceFontId("AvantGarde-Book"), 1);
    EXPECT_EQ(DeviceFontId("LetterGothic-BoldSlanted"), 80);
    EXPECT_EQ(DeviceFontId("courier"), 0);

    // The font resources have the same numbers: u16 number, four more, then the name.
    embedded::Machine machine;
    const tool::LoadedDriver driver(machine);
    const auto record = [&](WORD number) {
        return machine.resources().Find(driver.instance(), DEVICE_FONT_RESOURCE, number);
    };
    for (WORD number = 1; number <= kDeviceFonts; ++number) {
        constexpr size_t kName = 5 * sizeof(WORD);
        const std::span<const std::byte> bytes = record(number);
        ASSERT_GT(bytes.size(), kName) << number;
        ASSERT_EQ(bytes.back(), std::byte{0}) << number;
        EXPECT_EQ(std::to_integer<WORD>(bytes[0]), number);
        EXPECT_EQ(DeviceFontId(reinterpret_cast<const char*>(bytes.data() + kName)), number);
    }
    EXPECT_TRUE(record(kDeviceFonts + 1).empty());
}

// Document features Duplex 0 and Collate 1, installable ones Tray 2, Unit 3 and Disk 4.
constexpr char kFeatures[] =
    "*Duplex None: \"\"\n*Duplex Long: \"\"\n*Duplex Short: \"\"\n"
    "*Collate False: \"\"\n*Collate True: \"\"\n*OpenGroup: InstallableOptions\n"
    "*OpenUI *Tray: PickOne\n*Tray None: \"\"\n*Tray One: \"\"\n*Tray Two: \"\"\n"
    "*OpenUI *Unit: PickOne\n*Unit A: \"\"\n*Unit B: \"\"\n"
    "*OpenUI *Disk: Boolean\n*Disk False: \"\"\n*Disk True: \"\"\n*CloseUI: *Disk\n";

DescriptionPtr WithFeatures(const std::string& more) {
    return LoadText(kFeatures + more);
}

TEST(IsConstrained, IsDirectionalAndSparesNoneAndFalse) {
    embedded::Machine machine;
    const DescriptionPtr d = WithFeatures("*UIConstraints: *Duplex *Collate\n"
                                          "*UIConstraints: *Tray One *Duplex Long\n");
    EXPECT_TRUE(IsConstrained(*d, 0, 1, 1, 1));
    EXPECT_FALSE(IsConstrained(*d, 0, 0, 1, 1)) << "Duplex None";
    EXPECT_FALSE(IsConstrained(*d, 0, 1, 1, 0)) << "Collate False";
    EXPECT_TRUE(IsConstrained(*d, 0, 7, 1, 9)) << "options that do not exist are not None";
    EXPECT_FALSE(IsConstrained(*d, 1, 1, 0, 1)) << "the reverse has its own entry";
    EXPECT_TRUE(IsConstrained(*d, 2, 1, 0, 1));
    EXPECT_FALSE(IsConstrained(*d, 2, 2, 0, 1));
}

TEST(FindConflict, ReportsTheFirstFeatureInConflict) {
    embedded::Machine machine;
    const DescriptionPtr d = WithFeatures(
        "*UIConstraints: *Tray Two *Collate True\n*UIConstraints: *Duplex Long *Collate True\n"
        "*UIConstraints: *Tray *Disk True\n*UIConstraints: *Collate True *Collate True\n");
    const uint8_t installable[] = {2, 0, 0};
    const uint8_t longEdge[] = {1, 1};
    const uint8_t unset[] = {255, 255};
    EXPECT_EQ(FindConflict({*d, installable, longEdge}, 1, 1), 0x20001u);
    EXPECT_EQ(FindConflict({*d, installable, unset}, 1, 1), 0x10202u);
    EXPECT_EQ(FindConflict({*d, installable, longEdge}, 1, 0), 0u);
    EXPECT_EQ(FindConflict({*d, installable, longEdge}, 1, 255), 0u);
    EXPECT_EQ(FindConflict({*d, installable, {}}, 2, 1), 0x10202u);
    EXPECT_EQ(FindConflict({*d, installable, {}}, 0, 2), 0u) << "not with itself";
    const uint8_t noTray[] = {0, 0, 0};
    const uint8_t unknownTray[] = {255, 0, 0};
    EXPECT_EQ(FindConflict({*d, noTray, {}}, 2, 1), 0u);
    EXPECT_EQ(FindConflict({*d, unknownTray, {}}, 2, 1), 0x102FFu) << "255 matches any option";
    EXPECT_EQ(FindConflict({*d, {}, unset}, 1, 1), 0u) << "features without a selection";
}

TEST(ResolveInstallableConflicts, MovesTheFeatureOrMakesTheOtherGiveWay) {
    embedded::Machine machine;
    const struct {
        const char* what;
        const char* more;
        uint8_t selections[3];
    } rows[] = {
        {"no conflict", "*DefaultTray: Two\n", {0, 0, 0}},
        {"the first free option",
         "*OpenUI *Tray: PickOne\n*DefaultTray: Two\n*UIConstraints: *Tray Two *Unit A\n",
         {2, 1, 0}},
        {"all options of both are taken: nothing moves",
         "*OpenUI *Tray: PickOne\n*DefaultTray: Two\n*UIConstraints: *Tray Two *Unit A\n"
         "*UIConstraints: *Tray Two *Unit B\n*UIConstraints: *Tray One *Unit A\n"
         "*UIConstraints: *Tray None *Unit A\n*UIConstraints: *Disk False *Unit B\n",
         {2, 0, 0}},
        {"a feature settled before yields to a later one",
         "*OpenUI *Tray: PickOne\n*DefaultTray: Two\n*UIConstraints: *Tray *Unit\n",
         {0, 0, 0}},
        {"None is spared", "*UIConstraints: *Tray *Unit\n", {0, 0, 0}},
    };
    for (const auto& row : rows) {
        const DescriptionPtr d = WithFeatures(row.more);
        uint8_t selections[3] = {9, 9, 9};
        EXPECT_EQ(ResolveInstallableConflicts(*d, selections), 3) << row.what;
        EXPECT_EQ(std::vector(selections, selections + 3),
                  std::vector(row.selections, row.selections + 3))
            << row.what;
    }
    // A record with room for fewer gets the first of them, settled with the others.
    const DescriptionPtr d = WithFeatures("*OpenUI *Disk: PickOne\n*DefaultDisk: True\n"
                                          "*UIConstraints: *Disk True *Unit A\n");
    uint8_t two[2];
    EXPECT_EQ(ResolveInstallableConflicts(*d, two), 3);
    EXPECT_EQ(two[1], 1);
}

// A conflict is told with 8 bits of the feature's position, so feature 590 is taken for 78.
TEST(Selections, HoldNumbersOfEightBits) {
    embedded::Machine machine;
    std::string text = "*OpenGroup: InstallableOptions\n";
    for (unsigned i = 0; i < 600; ++i) {
        const std::string name = "F" + std::to_string(i);
        text += "*OpenUI *" + name + ": PickOne\n*" + name + " A: \"\"\n";
        if (i == 78 || i == 79) {
            text += "*" + name + " B: \"\"\n*Default" + name + ": B\n";
        }
    }
    text += "*CloseGroup: InstallableOptions\n*UIConstraints: *F590 A *F599 A\n"
            "*DefaultCollate: O260\n";
    for (unsigned i = 0; i < 300; ++i) {
        text += "*Collate O" + std::to_string(i) + ": \"\"\n";
    }
    const DescriptionPtr d = LoadText(text);
    uint8_t selections[64] = {};
    EXPECT_EQ(GetDefaultSelections(*d, selections), 1);
    EXPECT_EQ(selections[0], 260 - 256);
    EXPECT_EQ(ResolveInstallableConflicts(*d, selections), 600) << "more than a record holds";
    uint8_t all[600];
    std::ranges::fill(all, uint8_t{9});
    ResolveInstallableConflicts(*d, all);
    // With the document feature before them F590 has position 591, which is 79 in 8 bits.
    EXPECT_EQ(all[78], 0) << "made to yield in place of F590";
    EXPECT_EQ(all[79], 1);
    EXPECT_EQ(FindConflict({*d, all, {}}, 599, 0), 0x10000u | 79u << 8);
}

TEST(GetFeatureOption, TellsWhatIsThere) {
    embedded::Machine machine;
    const DescriptionPtr d = WithFeatures("");
    const FeatureRecord* feature = nullptr;
    const OptionRecord* option = nullptr;
    EXPECT_TRUE(GetFeatureOption(*d, 3, 1, &feature, &option));
    EXPECT_EQ(TextOf(option->Name), "B");
    EXPECT_FALSE(GetFeatureOption(*d, 3, 255, &feature, &option));
    EXPECT_EQ(TextOf(feature->Name), "Unit");
    EXPECT_EQ(option, nullptr);
    EXPECT_FALSE(GetFeatureOption(*d, 65535, 0, &feature, &option));
    EXPECT_EQ(feature, nullptr);
    EXPECT_FALSE(GetFeatureOption(*d, 5, 0, &feature, &option));
    EXPECT_EQ(feature, nullptr);
}

TEST(ListLookups, FindByNameTranslationAndNumber) {
    embedded::Machine machine;
    const DescriptionPtr d =
        LoadText("*Resolution 200dpi/Fine: \"\"\n*Resolution 200x100dpi/200dpi: \"\"\n"
                 "*Resolution Draft: \"\"\n*InputSlot Upper: \"\"\n*InputSlot Tray3: \"\"\n"
                 "*DefaultInputSlot: Tray3\n*MediaType Thick: \" 42x\"\n");
    const OptionRecord* first = FeatureOf(*d, FeatureKind::Resolution)->Options.Target();
    uint16_t index = 0;
    EXPECT_EQ(FindResolutionOption(*d, 200), first);
    EXPECT_EQ(FindResolutionOption(*d, 100), nullptr);
    EXPECT_EQ(FindOptionByNameOrTranslation(first, "200dpi", &index), first);
    EXPECT_NE(FindOptionByNameOrTranslation(first, "Draft", &index), nullptr);
    EXPECT_EQ(index, 2);
    EXPECT_EQ(FindOptionByNameOrTranslation(first, "draft", &index), nullptr);
    EXPECT_EQ(index, 65535);
    EXPECT_NE(FindByNameWithIndex(first, "200x100dpi", &index), nullptr);
    EXPECT_EQ(index, 1);
    EXPECT_EQ(FindByName(first, nullptr), nullptr);
    EXPECT_EQ(GetDefaultBin(*d), 256);
    EXPECT_EQ(GetDefaultOptionValue(*d, FeatureKind::MediaType), 42);
    EXPECT_EQ(GetDefaultOptionValue(*d, FeatureKind::TTMODE), 65535);
    EXPECT_EQ(GetDefaultOptionValue(*d, FeatureKind::HRC), 0);
    EXPECT_EQ(GetDefaultBin(*LoadText("*End\n")), 7);
    EXPECT_EQ(FindResolutionOption(*LoadText("*End\n"), 300), nullptr);
    // Features that have a default but no options.
    const DescriptionPtr empty =
        LoadText("*DefaultInputSlot: X\n*DefaultHRC: 1\n*DefaultTTMODE: 1\n");
    EXPECT_EQ(GetDefaultBin(*empty), 7);
    EXPECT_EQ(GetDefaultOptionValue(*empty, FeatureKind::HRC), 0);
    EXPECT_EQ(GetDefaultOptionValue(*empty, FeatureKind::TTMODE), 0);
    const DescriptionPtr font = LoadText("*Font Courier: x\n");
    EXPECT_NE(FindByName(font->DeviceFonts.Target(), "Courier"), nullptr);
}

TEST(GetNumberField, SplitsAtEveryCommaAndBlank) {
    const struct {
        const char* text;
        unsigned field;
        uint16_t value;
    } rows[] = {{"0,5,15,30", 0, 0},
                {"0,5,15,30", 2, 15},
                {"0,5,15,30", 7, 30},
                {"5", 0, 1},
                {"", 0, 1},
                {nullptr, 0, 1},
                {"0, 5, 15", 2, 5},
                {"0, 5, 15", 1, 0},
                {"1\t-2", 1, 65534},
                {"1,70000", 1, 4464},
                {"1,x", 1, 0},
                {"7,", 5, 0},
                {"1,2,3,4,5,6,7,8,9,10,11,12,13", 1, 2},
                {"1,2,3,4,5,6,7,8,9,10,11,12,130", 1, 1}};
    for (const auto& row : rows) {
        EXPECT_EQ(GetNumberField(row.text, row.field), row.value)
            << (row.text != nullptr ? row.text : "null") << " " << row.field;
    }
}

TEST(Units, ConvertInSinglePrecisionTowardsZero) {
    EXPECT_EQ(MicronsFromPoints(156672), 215900);
    EXPECT_EQ(MicronsFromPoints(202752), 279400);
    EXPECT_EQ(MicronsFromPoints(UINT32_MAX), INT32_MAX);
    EXPECT_EQ(PointsFromMicrons(215900), 156672);
    EXPECT_EQ(PointsFromMicrons(210000), 152390);
    EXPECT_EQ(PointsFromMicrons(-1000), -725);
}

TEST(TextHelpers, KeepToTheirRoom) {
    embedded::Machine machine({.driveC = {}, .codePage = 932, .country = 81});
    WCHAR wide[4] = {'x', 'x', 'x', 'x'};
    AnsiToWide(wide, "\x83\x41\x83\x42\x83\x43", 3);
    EXPECT_EQ(std::u16string(wide), u"\u30A2\u30A3");
    EXPECT_EQ(wide[3], u'x');
    AnsiToWide(wide, "ab");
    EXPECT_EQ(std::u16string(wide), u"ab");
    AnsiToWide(wide, nullptr, 4);
    EXPECT_EQ(wide[0], 0);
    wide[0] = wide[1] = 'x';
    AnsiToWide(wide, "q", 0);
    EXPECT_EQ(wide[0], 'x');
    AnsiToWide(wide, "q", 1);
    EXPECT_EQ(std::u16string(wide, 2), std::u16string(u"\0x", 2));

    char narrow[6] = "xxxxx";
    WideToAnsi(narrow, u"a\u30A2\u30A3", 5);
    EXPECT_STREQ(narrow, "a\x83\x41") << "no half character";
    WideToAnsi(narrow, u"abcdef", 4);
    EXPECT_STREQ(narrow, "abc");
    WideToAnsi(narrow, u"q", 0);
    EXPECT_STREQ(narrow, "abc");
    WideToAnsi(narrow, u"q", 1);
    EXPECT_EQ(std::string(narrow, 2), std::string("\0b", 2));

    WCHAR field[4] = {1, 1, 1, 1};
    CopyWideFixed(field, u"abcdef");
    EXPECT_EQ(std::u16string(field, 4), std::u16string(u"abc\0", 4));
    CopyWideFixed(field, u"z");
    EXPECT_EQ(std::u16string(field, 4), std::u16string(u"z\0\0\0", 4));
    CopyWideFixed(field, nullptr);
    EXPECT_EQ(std::u16string(field, 4), std::u16string(4, u'\0'));
}

}  // namespace
}  // namespace ksfax
