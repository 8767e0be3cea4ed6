// What the reader makes of PPDs: cases recorded in tests/golden/description. A case is a comment,
// the statements of a PPD, what was told of those that were not plainly stored and by packing, and
// what the description says; an empty line ends it. Each was worked out by hand before it was
// recorded. \xNN is a byte, and a line that ends in a backslash has no line end.

#include <fstream>
#include <sstream>

#include <gtest/gtest.h>

#include "tests/description/ppd_text.h"
#include "tests/golden.h"

namespace ksfax {
namespace {

// Words by their number, as the observer's header has them.
constexpr char kOutcomes[] = "stored ignored dropped fatal";
constexpr char kReasons[] =
    "None QueryKeyword UnknownKeyword NoEffect RepeatedKeyword FeatureNotOpened GroupNotRecorded "
    "UnknownWord FontNotBuiltIn FontRepeated UnknownParameter ValueAlreadyStored CustomSizeNotTrue "
    "BadKeyword BadOption MissingColon OptionMissing OptionNotAllowed ValueForm NotANumber "
    "TooFewNumbers OutOfRange NotABoolean BadHexInValue BadHexInTranslation NameMissing "
    "NothingToClose GroupAlreadyOpen GroupNotOpen KeywordTooLong OptionTooLong TranslationTooLong "
    "OutOfMemory CutShort";
constexpr char kNotes[] =
    "PaperSizeMissing PaperSizeIncomplete ImageableAreaClamped ImageableAreaReset "
    "ImageableAreaLClamped ImageableAreaLReset DefaultNotAnOption DefaultWithoutOptions "
    "ResolutionDefaultUnread FreeVMRaised CustomPageSizeDropped ConstraintUnresolved "
    "ConstraintOnAnyOption OrderUnresolved ConstraintsTruncated OrdersTruncated "
    "OptionBeyondSelection FeatureBeyondSelection";
template <typename Enum>
std::string WordOf(const char* words, Enum value) {
    std::istringstream stream(words);
    std::string word;
    for (int i = 0; i <= static_cast<int>(value); ++i) {
        stream >> word;
    }
    return word;
}

// A statement as its keyword, option, translation and value between bars, and the value's type.
void TellStatement(void* context, const StatementReport& report) {
    if (report.outcome == StatementOutcome::Stored && report.reason == StatementReason::None) {
        return;
    }
    std::ostringstream line;
    line << "  line " << report.line << " " << WordOf(kOutcomes, report.outcome) << ", "
         << WordOf(kReasons, report.reason) << ": " << Visible(report.keyword) << "|"
         << Visible(report.option) << "|" << Visible(report.translation) << "|"
         << Visible(report.value) << "|" << static_cast<int>(report.type) << " at "
         << report.badLine << ":" << report.position << "\n";
    *static_cast<std::string*>(context) += line.str();
}

void TellNote(void* context, const PackReport& report) {
    std::ostringstream line;
    line << "  note of line " << report.line << ": " << WordOf(kNotes, report.note);
    for (const auto name : {report.feature, report.option, report.feature2, report.option2}) {
        line << (name.empty() ? "" : " ") << name;
    }
    *static_cast<std::string*>(context) += line.str() + "\n";
}

std::string Told(const std::string& text) {
    std::string all;
    const ParseObserver observer = {
        .context = &all, .statement = TellStatement, .packed = TellNote};
    if (!PackText(text, &observer)) {
        return all + "= nothing\n";
    }
    return all + Shown(*LoadText(text));
}

// The bytes that a line of a case stands for.
std::string Unescaped(std::string line) {
    line += '\n';
    for (size_t at = 0; (at = line.find('\\', at)) != std::string::npos;) {
        const bool isByte = line[at + 1] == 'x';
        const int byte = isByte ? std::stoi(line.substr(at + 2, 2), nullptr, 16) : 0;
        line.replace(at, isByte ? 4 : 2, isByte ? 1 : 0, static_cast<char>(byte));
        at += isByte;
    }
    return line;
}

TEST(PpdReader, SaysWhatIsRecorded) {
    embedded::Machine machine;
    for (const std::string name :
         {"statements", "values", "keywords", "forms", "words", "rules", "many"}) {
        const std::string path = "description/" + name + ".txt";
        std::ifstream file(SOURCE_FOLDER "/tests/golden/" + path);
        std::string all;
        std::string text;
        for (std::string line; std::getline(file, line) || !text.empty();) {
            if (line.empty()) {
                all += Told(std::exchange(text, "")) + "\n";
            } else if (line.starts_with("% ")) {
                all += line + "\n";
            } else if (!line.starts_with("  ") && !line.starts_with("= ")) {
                all += line + "\n";
                text += Unescaped(line);
            }
        }
        EXPECT_TRUE(IsRecorded(path, all));
    }
    EXPECT_FALSE(PackText(""));
    EXPECT_EQ(machine.OpenNow(), embedded::Leaks());
}

}  // namespace
}  // namespace ksfax
