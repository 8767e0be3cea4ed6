#include <gtest/gtest.h>

#include "tests/description/ppd_text.h"

namespace ksfax {
namespace {

using Lines = std::vector<std::string>;

TEST(ReadStatement, CutsTheFileIntoStatements) {
    embedded::Machine machine;
    const struct {
        const char* what;
        std::string text;
        Lines lines;
    } rows[] = {
        {"keyword alone", "*End\n", {"End||| 0I"}},
        {"a carriage return is a line end, and so is the line feed after it",
         "*ColorDevice: True\r\n*End\r\n",
         {"ColorDevice|||True 4S", "End||| 0I"}},
        {"option, translation with blanks, quoted value over lines, rest of the line ignored",
         "*PageSize Letter/US Letter: \"a\nb\" junk: x\n",
         {"PageSize|Letter|US Letter|a\nb 2S"}},
        {"blanks around the parts; trailing ones stay in translation and unquoted value",
         "*Foo \t bar/ T\t :  x y \n",
         {"Foo|bar| T\t |x y  4I"}},
        {"an unquoted value ends at a slash", "*NickName: Letter/US\n", {"NickName|||Letter 4S"}},
        {"a slash in the main keyword", "*Foo/Bar: x\n", {"Foo/Bar|||x 4I"}},
        {"a caret makes a symbol, which only a form of any value takes",
         "*NickName: ^sym\n*End: ^sym\n",
         {"NickName|||^sym 3D", "End|||^sym 3I"}},
        {"comments, indented lines, empty lines and other text are no statements",
         "*% *Foo: x\n *Foo: x\n\n%*Foo: x\nFoo: x\n*End\n",
         {"End||| 0I"}},
        {"after a bad character reading goes on as at a line's start",
         "* *Foo: x\n*Bar baz qux: *x\n*: *Foo: y\n*\n*End\n",
         {"||| 0D", "Foo|||x 4I", "Bar|baz|| 0D", "||| 0D", "||| 0D", "End||| 0I"}},
        {"a byte above 0x7E ends a translation but not a value",
         "*PageSize A4/\xC4: \"x\"\n*NickName: \"\xC4\"\n",
         {"PageSize|A4|| 0D", "NickName|||\xC4 2S"}},
        {"the asterisk is a keyword character", "***: x\n", {"**|||x 4I"}},
        {"a statement without colon after its option",
         "*Foo bar\n*End\n",
         {"Foo|bar|| 0D", "End||| 0I"}},
        {"the last statement without a line end is lost",
         "*ColorDevice: True\n*End",
         {"ColorDevice|||True 4S", "End||| 0D"}},
        {"wherever in it the file ends", "*End\n*", {"End||| 0I", "||| 0D"}},
        {"in the keyword", "*Foo ", {"Foo||| 0D"}},
        {"in the option", "*Foo b", {"Foo|b|| 0D"}},
        {"in the translation", "*Foo b/t", {"Foo|b|t| 0D"}},
        {"after the colon", "*Foo:", {"Foo||| 0D"}},
        {"a keyword alone that needs a value",
         "*FreeVM\n*NickName\n",
         {"FreeVM||| 0D", "NickName||| 0D"}},
        {"even after its closing quote", "*NickName: \"x\"", {"NickName|||x 2D"}},
        {"a quoted value that is never closed",
         "*End\n*NickName: \"x\n*End\n",
         {"End||| 0I", "NickName||| 0D"}},
        {"query keywords", "*?Duplex: \"x\"\n", {"?Duplex|||x 2I"}},
        {"forms: option missing, option forbidden, not quoted, quoted, empty",
         "*PageSize: \"x\"\n*FreeVM a: \"1\"\n*PageSize A4: x\n*ColorDevice: \"True\"\n"
         "*DefaultPageSize:\n*NickName:\n",
         {"PageSize|||x 2D", "FreeVM|a||1 2D", "PageSize|A4||x 4D", "ColorDevice|||True 2D",
          "DefaultPageSize||| 4D", "NickName||| 4S"}},
        {"a keyword that counts once counts from its first good statement",
         "*FreeVM: \"x\"\n*FreeVM: \"5\"\n*FreeVM: \"6\"\n",
         {"FreeVM|||x 2D", "FreeVM|||5 2S", "FreeVM|||6 2I"}},
        {"nothing but one line end", "\n", {}},
    };
    for (const auto& row : rows) {
        StatementLog log;
        EXPECT_TRUE(PackText(row.text, &log.observer)) << row.what;
        EXPECT_EQ(log.lines, row.lines) << row.what;
    }
}

TEST(ReadStatement, EndsTheParseAtAPartOfMoreThan40Characters) {
    embedded::Machine machine;
    const std::string forty(40, 'k');
    EXPECT_TRUE(PackText("*" + forty + " " + forty + "/" + forty + ": x\n"));
    const std::string rows[] = {"*" + forty + "k: x\n", "*Foo " + forty + "k: x\n",
                                "*Foo bar/" + forty + "k: x\n", "**" + forty + "\n"};
    for (const std::string& row : rows) {
        StatementLog log;
        EXPECT_FALSE(PackText("*End\n" + row, &log.observer)) << row;
        EXPECT_EQ(log.lines.back().back(), 'F') << row;
        EXPECT_EQ(log.lineNumbers.back(), 2u) << row;
    }
    EXPECT_FALSE(PackText(""));
    EXPECT_EQ(machine.OpenNow(), embedded::Leaks());
}

TEST(ReadStatement, EndsValuesAtTheirFirstZeroByte) {
    embedded::Machine machine;
    const std::string text("*NickName: \"ab\0cd\"\n*Password: \"<00>x\"\n*JCLEnd: \"a<00>b\"\n",
                           57);
    const DescriptionPtr description = LoadText(text);
    EXPECT_EQ(TextOf(description->NickName), "ab");
    EXPECT_EQ(TextOf(description->Password), "<00>x");
    EXPECT_EQ(TextOf(description->JCLEnd), "a");
}

TEST(DecodeHexSubstrings, AcceptsPairsAndDropsTheStatementOtherwise) {
    embedded::Machine machine;
    const struct {
        const char* value;
        const char* stored;  // null: dropped, so that the value after it counts
    } rows[] = {{"A<42>C", "ABC"}, {"<4142>", "AB"}, {"<4a>", "J"},     {"<>x", "x"},
                {"<41", "A"},      {"x>", "x>"},     {"<4", nullptr},   {"<41 42>", nullptr},
                {"<4G>", nullptr}, {"<<", nullptr},  {"<414>", nullptr}};
    for (const auto& row : rows) {
        const DescriptionPtr description =
            LoadText(std::string("*NickName: \"") + row.value + "\"\n*NickName: \"next\"\n");
        EXPECT_EQ(TextOf(description->NickName), row.stored != nullptr ? row.stored : "next")
            << row.value;
    }
}

TEST(ParseReal, RoundsFiveFractionDigitsTo24Dot8) {
    embedded::Machine machine;
    const struct {
        const char* value;
        uint32_t stored;  // 0xFFFFFFFF: no number
    } rows[] = {{"1.10", 282},      {"612", 156672},     {".5", 128},
                {"7.", 1792},       {"-3.5", 0},         {"1.999999", 512},
                {"0.001", 0},       {"0.002", 1},        {"841.889764", 215524},
                {"18\n594", 4608},  {"4294967297", 256}, {"+1", UINT32_MAX},
                {" 1", UINT32_MAX}, {"-", UINT32_MAX},   {".", UINT32_MAX}};
    for (const auto& row : rows) {
        const DescriptionPtr description = LoadText(std::string("*ScreenAngle: \"") + row.value +
                                                    "\"\n*ScreenAngle: \"16777215.99609\"\n");
        EXPECT_EQ(description->ScreenAngle, row.stored) << row.value;
    }
}

TEST(Observer, TellsReasonsAndLines) {
    embedded::Machine machine;
    StatementLog log;
    ASSERT_TRUE(PackText("*OpenUI *Foo: PickOne\r\n*CloseUI: *Bar\n*Duplex None: \"x\"\r"
                         "*Duplex None: \"y\"\n*OpenGroup: Extra\n*Font Nowhere: x\n"
                         "*ImageableArea A4: \"1 2 3\"\n*DefaultDuplex: Nix\n*FreeVM: \"7\"\n"
                         "*UIConstraints: *Duplex *Nothing\n*CloseGroup: InstallableOptions\n",
                         &log.observer));
    using enum StatementReason;
    EXPECT_EQ(log.reasons,
              (std::vector{None, NothingToClose, None, ValueAlreadyStored, GroupNotRecorded,
                           FontNotBuiltIn, TooFewNumbers, None, None, None, GroupNotOpen}));
    EXPECT_EQ(log.lineNumbers, (std::vector<uint32_t>{1, 2, 3, 4, 5, 6, 7, 8, 9, 10, 11}));
    EXPECT_EQ(log.notes,
              (std::vector{PackNote::FreeVMRaised, PackNote::PaperSizeMissing,
                           PackNote::ConstraintUnresolved, PackNote::DefaultNotAnOption}));
}

// Of the last statement of each row.
TEST(Observer, TellsWhetherAnythingWasStored) {
    embedded::Machine machine;
    using enum StatementReason;
    const struct {
        const char* text;
        StatementReason reason;
        char outcome;
    } rows[] = {
        {"*LanguageVersion: Klingon\n", UnknownWord, 'I'},
        {"*Protocols: X\n", UnknownWord, 'I'},
        {"*Protocols: X PJL\n", UnknownWord, 'S'},
        {"*OrderDependency: 1 Banana *Duplex\n", UnknownWord, 'S'},
        {"*OpenUI *Foo: Odd\n", UnknownWord, 'S'},
        {"*OpenUI *Foo/A: Boolean\n*OpenUI *Foo/B: Boolean\n", ValueAlreadyStored, 'S'},
        {"*ColorDevice: Yes\n", NotABoolean, 'S'},
        {"*PrintRateA4: fast\n", NotANumber, 'S'},
        {"*PageSize A4: \"x\"\n*PageSize A4: \"y\"\n", ValueAlreadyStored, 'I'},
        {"*PageSize A4: \"x\"\n*PageSize A4/New: \"y\"\n", ValueAlreadyStored, 'S'},
        {"*InstalledMemory 4: \"7\"\n*InstalledMemory 4: \"7\"\n", ValueAlreadyStored, 'I'},
        {"*InstalledMemory 4: \"7\"\n*InstalledMemory 4: \"8\"\n", ValueAlreadyStored, 'S'},
        {"*InputSlot U: \"x\"\n*InputSlot U: \"y\"\n", ValueAlreadyStored, 'I'},
        {"*InputSlot U: \"x\"\n*RequiresPageRegion U: False\n*InputSlot U: \"y\"\n",
         ValueAlreadyStored, 'S'},
        {"*Resolution 1: \"x\"\n*SetResolution 1: \"y\"\n*Resolution 1: \"z\"\n",
         ValueAlreadyStored, 'S'},
    };
    for (const auto& row : rows) {
        StatementLog log;
        ASSERT_TRUE(PackText(row.text, &log.observer));
        EXPECT_EQ(log.reasons.back(), row.reason) << row.text;
        EXPECT_EQ(log.lines.back().back(), row.outcome) << row.text;
    }
}

}  // namespace
}  // namespace ksfax
