#include <algorithm>
#include <iterator>
#include <sstream>

#include <gtest/gtest.h>

#include "platform/embedded/resources.h"

#include "description/conflicts.h"
#include "description/device_fonts.h"
#include "description/paper_keywords.h"
#include "description/text.h"
#include "resources/resource.h"
#include "tests/description/ppd_text.h"
#include "tests/golden.h"
#include "tool/loaded_driver.h"

namespace ksfax {
namespace {

TEST(DeviceFontId, NumbersTheBuiltInFonts) {
    EXPECT_EQ(DeviceFontId("AvantGarde-Book"), 1);
    EXPECT_EQ(DeviceFontId("LetterGothic-BoldSlanted"), 80);
    EXPECT_EQ(DeviceFontId("courier"), 0);

    // The font resources have the same numbers: u16 number, four more, then the name.
    embedded::Machine machine;
    const tool::LoadedDriver driver(machine);
    for (WORD number = 1; number <= kDeviceFonts; ++number) {
        const auto record =
            machine.resources().Find(driver.instance(), DEVICE_FONT_RESOURCE, number);
        ASSERT_GT(record.size(), 10u) << number;
        EXPECT_EQ(std::to_integer<WORD>(record[0]), number);
        EXPECT_EQ(DeviceFontId(reinterpret_cast<const char*>(record.data() + 10)), number);
    }
}

// Document features Duplex 0 and Collate 1, installable ones Tray 2, Unit 3 and Disk 4.
constexpr char kFeatures[] =
    "*Duplex None: \"\"\n*Duplex Long: \"\"\n*Duplex Short: \"\"\n"
    "*Collate False: \"\"\n*Collate True: \"\"\n*OpenGroup: InstallableOptions\n"
    "*OpenUI *Tray: PickOne\n*Tray None: \"\"\n*Tray One: \"\"\n*Tray Two: \"\"\n"
    "*OpenUI *Unit: PickOne\n*Unit A: \"\"\n*Unit B: \"\"\n"
    "*OpenUI *Disk: Boolean\n*Disk False: \"\"\n*Disk True: \"\"\n*CloseUI: *Disk\n";

using Selections = std::vector<uint8_t>;

template <typename Number>
std::vector<Number> NumbersIn(const std::string& text) {
    std::istringstream stream(text);
    std::vector<Number> numbers;
    for (unsigned number = 0; stream >> number;) {
        numbers.push_back(static_cast<Number>(number));
    }
    return numbers;
}

// The answer to a question: its first word, then between bars constraints and other statements
// that the features get, or a text, and what is asked of them.
std::string AnswerTo(const std::string& question) {
    std::vector<std::string> cells;
    std::istringstream line(question);
    for (std::string cell; std::getline(line, cell, '|');) {
        cells.push_back(cell);
    }
    const std::string& given = cells.at(1);
    const auto asked = NumbersIn<uint16_t>(cells.back());
    const auto is = [&](const char* word) { return question.starts_with(word); };
    if (is("paper") || is("slot")) {
        return std::to_string(
            (is("paper") ? PaperKeywordToCode : SourceKeywordToCode)(given.c_str()));
    }
    if (is("number")) {
        return std::to_string(GetNumberField(given.c_str(), asked.at(0)));
    }
    std::string text = kFeatures;
    std::istringstream statements(given);
    for (std::string one; std::getline(statements, one, ';');) {
        one.erase(0, one.find('*'));
        text += (one.find(':') == std::string::npos ? "*UIConstraints: " : "") + one + "\n";
    }
    const DescriptionPtr d = LoadText(text);
    std::ostringstream answer;
    if (is("conflict")) {
        const Selections installable = NumbersIn<uint8_t>(cells.at(2));
        const Selections document = NumbersIn<uint8_t>(cells.at(3));
        const auto option = static_cast<uint8_t>(asked.at(1));
        answer << std::hex << FindConflict({*d, installable, document}, asked.at(0), option);
    } else if (is("defaults")) {
        answer << "resolution " << GetDefaultResolution(*d) << ", bin " << GetDefaultBin(*d);
        using enum FeatureKind;
        for (const FeatureKind kind : {MediaType, MultiplePage, TonerSaveMode, TTMODE}) {
            answer << ", " << GetDefaultOptionValue(*d, kind);
        }
    } else if (is("find")) {
        const FeatureRecord* feature = FeatureOf(*d, FeatureKind::Resolution);
        const OptionRecord* first = feature != nullptr ? feature->Options.Target() : nullptr;
        const char* const name = cells.at(2).c_str();
        const OptionRecord* found[] = {FindOptionByNameOrTranslation(first, name),
                                       FindResolutionOption(*d, LeadingNumber(name))};
        for (const OptionRecord* option : found) {
            answer << (option != nullptr ? ShownName(*option) : "none") << " ";
        }
    } else {
        Selections settled(asked.at(0), 9);
        EXPECT_EQ(ResolveInstallableConflicts(*d, settled), 3);
        std::ranges::copy(settled, std::ostream_iterator<unsigned>(answer, " "));
    }
    return answer.str();
}

TEST(DescriptionLookups, AnswerAsRecorded) {
    embedded::Machine machine;
    EXPECT_TRUE(AnswersAreRecorded("description/lookups.txt", AnswerTo));
    EXPECT_EQ(PaperKeywordToCode(nullptr) + SourceKeywordToCode(nullptr), 2);
    EXPECT_EQ(GetNumberField(nullptr, 0), 1);
    const DescriptionPtr d = LoadText(kFeatures);
    EXPECT_EQ(FindOptionByNameOrTranslation(d->Features.Target(), nullptr), nullptr);
}

// Of options beyond number 254 none can be selected, and a constraint on number 255 is on any.
TEST(ResolveInstallableConflicts, ChoosesAmong255Options) {
    embedded::Machine machine;
    const struct {
        unsigned first, end;  // of the options that Tray None forbids
        Selections selections;
    } rows[] = {{0, 254, {0, 254}}, {0, 255, {1, 0}}, {255, 256, {1, 0}}};
    for (const auto& row : rows) {
        std::string text =
            "*OpenGroup: InstallableOptions\n*OpenUI *Tray: PickOne\n*Tray None: \"\"\n"
            "*Tray One: \"\"\n*OpenUI *Big: PickOne\n";
        for (unsigned i = 0; i < 256; ++i) {
            text += "*Big O" + std::to_string(i) + ": \"\"\n";
            if (i >= row.first && i < row.end) {
                text += "*UIConstraints: *Tray None *Big O" + std::to_string(i) + "\n";
            }
        }
        Selections selections(2);
        EXPECT_EQ(ResolveInstallableConflicts(*LoadText(text), selections), 2);
        EXPECT_EQ(selections, row.selections) << row.end;
    }
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
            "*DefaultCollate: O260\n*Resolution 200: \"\"\n*DefaultDuplex: B\n*Duplex A: \"\"\n"
            "*Duplex B: \"\"\n";
    for (unsigned i = 0; i < 300; ++i) {
        text += "*Collate O" + std::to_string(i) + ": \"\"\n";
    }
    const DescriptionPtr d = LoadText(text);
    Selections document(4, 9);
    EXPECT_EQ(GetDefaultSelections(*d, document), 3);
    EXPECT_EQ(document, (Selections{260 - 256, 255, 1, 9}));
    Selections one(1);
    EXPECT_EQ(GetDefaultSelections(*d, one), 3) << "more than fit";
    Selections record(64);
    EXPECT_EQ(ResolveInstallableConflicts(*d, record), 600) << "more than a record holds";
    Selections all(600, 9);
    ResolveInstallableConflicts(*d, all);
    // With the document features before them F590 has position 593, which is 81 in 8 bits.
    EXPECT_EQ(all[78], 0) << "made to yield in place of F590";
    EXPECT_EQ(all[79], 1);
    EXPECT_EQ(FindConflict({*d, all, {}}, 599, 0), 0x10000u | 81u << 8);
}

TEST(Units, ConvertInSinglePrecisionTowardsZero) {
    EXPECT_EQ(MicronsFromPoints(156672), 215900);
    EXPECT_EQ(MicronsFromPoints(202752), 279400);
    EXPECT_EQ(MicronsFromPoints(UINT32_MAX), INT32_MAX);
}

// Targets are full of x before; what is written may end in a zero.
TEST(TextHelpers, KeepToTheirRoom) {
    embedded::Machine machine({.driveC = {}, .codePage = 932, .country = 81});
    const struct {
        const char* ansi;
        size_t count;
        std::u16string wide;
    } toWide[] = {{"\x83\x41\x83\x42\x83\x43", 3, {u"\u30A2\u30A3\0x", 4}},
                  {"ab", 4, {u"ab\0x", 4}},
                  {nullptr, 4, {u"\0xxx", 4}},
                  {"q", 0, u"xxxx"},
                  {"q", 1, {u"\0xxx", 4}}};
    for (const auto& row : toWide) {
        std::u16string wide(4, 'x');
        AnsiToWide(wide.data(), row.ansi, row.count);
        EXPECT_EQ(wide, row.wide) << row.count;
    }
    const struct {
        const WCHAR* wide;
        size_t size;
        std::string ansi;
        std::u16string field;  // of that many characters
    } rows[] = {{u"a\u30A2\u30A3", 5, {"a\x83\x41\0x", 5}, {u"a\u30A2\u30A3\0\0x", 6}},
                {u"abcdef", 4, {"abc\0x", 5}, {u"abc\0xx", 6}},
                {nullptr, 4, {"\0xxxx", 5}, {u"\0\0\0\0xx", 6}},
                {u"q", 0, "xxxxx", u"xxxxxx"},
                {u"q", 1, {"\0xxxx", 5}, {u"\0xxxxx", 6}}};
    for (const auto& row : rows) {
        std::string ansi(5, 'x');
        WideToAnsi(ansi.data(), row.wide, row.size);
        EXPECT_EQ(ansi, row.ansi) << row.size;
        std::u16string field(6, 'x');
        CopyWideFixed(field.data(), row.size, row.wide);
        EXPECT_EQ(field, row.field) << row.size;
    }
    // Without a size the whole string, of which a character may be two bytes.
    for (const char* text : {"a\x83\x41", static_cast<const char*>(nullptr)}) {
        WCHAR wide[8] = {'x'};
        char narrow[8] = "xxx";
        AnsiToWide(wide, text);
        WideToAnsi(narrow, text != nullptr ? wide : nullptr);
        EXPECT_EQ(std::u16string(wide), text != nullptr ? u"a\u30A2" : u"");
        EXPECT_STREQ(narrow, text != nullptr ? text : "");
    }
}

}  // namespace
}  // namespace ksfax
