#include "tool/ppd_check.h"

#include <algorithm>
#include <array>
#include <map>
#include <optional>
#include <tuple>

#include "platform/embedded/text.h"

#include "description/keyword_table.h"
#include "description/load_description.h"
#include "tool/fax_input.h"
#include "tool/ppd_file.h"

namespace tool {

namespace {

using ksfax::PackNote;
using ksfax::PackReport;
using ksfax::StatementOutcome;
using ksfax::StatementReason;
using ksfax::StatementReport;

struct Advice {
    Severity severity;
    const char* reason;
    const char* remedy;
};

std::optional<Advice> AdviceFor(StatementReason reason) {
    using enum StatementReason;
    using enum Severity;
    switch (reason) {
    case None:
    case QueryKeyword:
    case UnknownKeyword:  // told together at the end
    case NoEffect:        // told for *Include alone
        return std::nullopt;
    case RepeatedKeyword:
        return Advice{Warning, "counts once, and an earlier statement holds",
                      "remove the one that is not meant"};
    case FeatureNotOpened:
        return Advice{Note, "*OpenUI says nothing to this driver for this feature",
                      "its type is fixed; a translation given here is not shown"};
    case GroupNotRecorded:
        return Advice{Note, "groups other than InstallableOptions are not kept", ""};
    case UnknownWord:
        return Advice{Warning, "the value is no word that the driver knows",
                      "correct the spelling; upper and lower case count"};
    case FontNotBuiltIn:
        return Advice{Note, "the font is none of the device's", ""};
    case FontRepeated:
        return Advice{Warning, "the font is named before", "remove one of the statements"};
    case UnknownParameter:
        return Advice{Warning, "the parameter or its type is unknown",
                      "use Width, Height, WidthOffset, HeightOffset or Orientation, and int, "
                      "real or points"};
    case ValueAlreadyStored:
        return Advice{Warning, "the option has this value from an earlier statement",
                      "remove the one that is not meant, or correct the option keyword"};
    case CustomSizeNotTrue:
        return Advice{Note, "only the option True counts", ""};
    case BadKeyword:
        return Advice{Error, "no keyword follows the asterisk",
                      "write the keyword right after it, or *% for a comment"};
    case BadOption:
        return Advice{Error, "neither a colon nor an option keyword follows the keyword",
                      "write *Keyword: value or *Keyword Option: value"};
    case MissingColon:
        return Advice{Error, "no colon follows the option or its translation",
                      "put a colon before the value; in a translation, write characters above "
                      "127 in hexadecimal, as <E9>"};
    case OptionMissing:
        return Advice{Error, "the keyword needs an option keyword", "write *Keyword Option: value"};
    case OptionNotAllowed:
        return Advice{Error, "the keyword takes no option keyword", "write *Keyword: value"};
    case ValueForm:
        return Advice{Error, "the value is missing, or its quotes are not as the keyword needs",
                      "quote code and leave words unquoted, as in *PageSize A4: \"...\" and "
                      "*DefaultPageSize: A4"};
    case NotANumber:
        return Advice{Error, "a number is expected", "give it in digits"};
    case TooFewNumbers:
        return Advice{Error, "there are fewer numbers than the keyword needs", "give them all"};
    case OutOfRange:
        return Advice{Error, "the number is out of its range", "correct it"};
    case NotABoolean:
        return Advice{Error, "the value is neither True nor False",
                      "write True or False; upper and lower case count"};
    case BadHexInValue:
        return Advice{Error, "what stands between < and > in the value is not hexadecimal",
                      "write pairs of the digits 0-9 and A-F without blanks, as <1B45>"};
    case BadHexInTranslation:
        return Advice{Error, "what stands between < and > in the translation is not hexadecimal",
                      "write pairs of the digits 0-9 and A-F without blanks, as <E9>"};
    case NameMissing:
        return Advice{Error, "a name is missing", "name the feature or group"};
    case NothingToClose:
        return Advice{Error, "closes what is neither open nor a keyword of this driver",
                      "name the feature that *OpenUI opened"};
    case GroupAlreadyOpen:
        return Advice{Error, "the group InstallableOptions is open already",
                      "close it before, or remove this statement"};
    case GroupNotOpen:
        return Advice{Error, "the group InstallableOptions is not open",
                      "open it before, or remove this statement"};
    case KeywordTooLong:
        return Advice{Error,
                      "the keyword has more than 40 characters, which ends the reading: "
                      "the driver makes no description at all",
                      "shorten it"};
    case OptionTooLong:
        return Advice{Error,
                      "the option keyword has more than 40 characters, which ends the "
                      "reading: the driver makes no description at all",
                      "shorten it"};
    case TranslationTooLong:
        return Advice{Error,
                      "the translation has more than 40 characters, which ends the "
                      "reading: the driver makes no description at all",
                      "shorten it"};
    case OutOfMemory:
        return Advice{Error, "memory ran out", ""};
    case CutShort:
        return Advice{Error, "the file ends inside this statement, which is lost",
                      "end the last line with a line end; if a quoted value is open, add what "
                      "is missing of it and the file"};
    }
    return std::nullopt;
}

Advice AdviceFor(PackNote note) {
    using enum PackNote;
    using enum Severity;
    switch (note) {
    case PaperSizeMissing:
        return {Warning, "the paper has no size", "add its *PaperDimension"};
    case PaperSizeIncomplete:
        return {Warning, "the paper's width or height is missing, so it has no size",
                "give both in *PaperDimension"};
    case ImageableAreaClamped:
    case ImageableAreaLClamped:
        return {Warning, "the printable area reaches beyond the sheet and was cut",
                "give lower-left x, y and upper-right x, y inside *PaperDimension"};
    case ImageableAreaReset:
    case ImageableAreaLReset:
        return {Warning,
                "the printable area is empty or lies outside the sheet; the whole "
                "height is taken",
                "give lower-left x, y and upper-right x, y inside *PaperDimension"};
    case DefaultNotAnOption:
        return {Warning, "the default names no option; the first one is the default",
                "name one of the feature's options"};
    case DefaultWithoutOptions:
        return {Warning,
                "the feature has a default but no options, so nothing of it can be "
                "chosen",
                "add its options, or remove the default"};
    case ResolutionDefaultUnread:
        return {Warning,
                "no number of dots per inch begins the default or the first option; "
                "300 is taken",
                "name resolutions as 200dpi"};
    case FreeVMRaised:
        return {Note, "*FreeVM below 102400 counts as 102400", ""};
    case CustomPageSizeDropped:
        return {Warning, "*CustomPageSize has no effect without a largest sheet",
                "give *MaxMediaWidth and *MaxMediaHeight"};
    case ConstraintUnresolved:
        return {Warning,
                "the constraint names a feature or option that the description lacks, "
                "so it never holds",
                "correct the names, or remove it"};
    case ConstraintOnAnyOption:
        return {Warning,
                "the constraint names a feature's 256th option and counts for all of "
                "them, since the number stands for any option",
                "move the option to another place"};
    case OrderUnresolved:
        return {Warning,
                "the order dependency names a feature or option that the description "
                "lacks, so it has no effect",
                "name the feature whose options it orders, or remove it"};
    case ConstraintsTruncated:
        return {Error, "there are more than 65535 constraints; the later ones are left out",
                "remove some"};
    case OrdersTruncated:
        return {Error,
                "there are more than 65535 order dependencies; the later ones are left "
                "out",
                "remove some"};
    case OptionBeyondSelection:
        return {Warning, "the feature has more than 255 options; the later ones cannot be chosen",
                "remove some"};
    case FeatureBeyondSelection:
        return {Warning, "a record has room for 64 features; this one keeps no choice",
                "remove features that are not needed"};
    }
    return {Error, "", ""};
}

// One edit away: a letter more, less, other or two swapped; or other letter case.
bool LooksLike(std::string_view left, std::string_view right) {
    if (left.size() > right.size()) {
        std::swap(left, right);
    }
    if (right.size() - left.size() > 1 || left.size() < 4) {
        return false;
    }
    if (embedded::EqualIgnoringCase(embedded::Utf16(left), embedded::Utf16(right))) {
        return true;
    }
    const size_t same = size_t(std::ranges::mismatch(left, right).in1 - left.begin());
    const std::string_view l = left.substr(same);
    const std::string_view r = right.substr(same);
    if (left.size() < right.size()) {
        return l == r.substr(1);
    }
    const bool swapped = l.size() > 1 && l[0] == r[1] && l[1] == r[0] && l.substr(2) == r.substr(2);
    return swapped || l.substr(1) == r.substr(1);
}

// The keyword of the driver that this unknown one was probably meant to be; empty for none.
std::string_view MeantKeyword(std::string_view keyword) {
    // A keyword of the published format that the driver has no use for; its own lacks the s.
    if (keyword == "PrintPSErrors") {
        return {};
    }
    for (const ksfax::KeywordRow& row : ksfax::kKeywordTable) {
        const std::string_view known(row.keyword);
        if (LooksLike(keyword, known)) {
            return known;
        }
    }
    return {};
}

// The feature that holds the options of a keyword, as the driver merges them: PageSize for
// PageRegion. The keyword itself for all others.
std::string_view OwnerOf(std::string_view keyword) {
    const ksfax::KeywordRow* row = ksfax::FindKeyword(keyword);
    return row == nullptr || row->kind == ksfax::FeatureKind::Generic
               ? keyword
               : ksfax::kOptionKeywordList[size_t(row->kind)].keyword;
}

std::string_view WithoutAsterisk(std::string_view name) {
    name = name.substr(0, name.find_last_not_of(" \t") + 1);
    return name.starts_with('*') ? name.substr(1) : name;
}

// Bytes above 127 in what a statement shows to people, against what the file declares.
struct ForeignBytes {
    bool any = false;
    bool utf8 = true;       // all of them are well-formed UTF-8
    bool controls = false;  // 0x80 to 0x9F, which ISO Latin 1 has no characters for
    bool shiftJis = true;
};

ForeignBytes LookAtBytes(std::string_view text) {
    ForeignBytes found;
    found.utf8 = embedded::Utf8(embedded::Utf16(text)) == text;
    for (size_t i = 0; i < text.size(); ++i) {
        const auto byte = static_cast<unsigned char>(text[i]);
        if (byte < 0x80) {
            continue;
        }
        found.any = true;
        found.controls = found.controls || byte < 0xA0;
        if (byte >= 0xA1 && byte <= 0xDF) {
            continue;  // half-width kana, one byte
        }
        const auto next = static_cast<unsigned char>(i + 1 < text.size() ? text[i + 1] : 0);
        const bool lead = (byte >= 0x81 && byte <= 0x9F) || (byte >= 0xE0 && byte <= 0xFC);
        found.shiftJis = found.shiftJis && lead && next >= 0x40 && next != 0x7F && next <= 0xFC;
        ++i;
    }
    return found;
}

class Checker {
  public:
    explicit Checker(CheckedPpd& ppd) : ppd_(ppd) {}

    void Run() {
        const std::vector<std::byte> bytes = ReadFileBytes(ppd_.file);
        file_ = {reinterpret_cast<const char*>(bytes.data()), bytes.size()};
        CheckBeginning();
        const std::u16string path = PpdPath(ppd_.file);
        const ksfax::ParseObserver observer = {
            .context = this,
            .statement =
                [](void* context, const StatementReport& report) {
                    static_cast<Checker*>(context)->OnStatement(report);
                },
            .packed =
                [](void* context, const PackReport& report) {
                    static_cast<Checker*>(context)->OnPacked(report);
                },
            .cacheUsed = nullptr};
        ksfax::ParseState* state = ksfax::ParsePpdFile(path.c_str(), &observer);
        if (state != nullptr) {
            const platform::GlobalBlock block(ksfax::PackDescription(state, &observer));
            ppd_.loads = static_cast<bool>(block);
            CheckEnd();
            if (block) {
                CheckVersion(*static_cast<const ksfax::PrinterDescription*>(block.get()));
            }
        } else if (bytes.empty()) {
            Add({Severity::Error, "the file is empty: the driver makes no description of it",
                 "put a good copy in its place"},
                {}, 0);
        }
        Finish();
    }

  private:
    void Add(const Advice& advice, std::string_view keyword, uint32_t line,
             const std::string& detail = "") {
        const std::string reason = FromPpd(detail) + advice.reason;
        Finding& finding = findings_[{advice.severity, std::string(keyword), reason}];
        if (finding.reason.empty()) {
            finding = {advice.severity, {}, FromPpd(keyword), reason, advice.remedy, 0};
        }
        ++finding.count;
        if (line != 0 && (finding.lines.empty() || finding.lines.back() != line)) {
            finding.lines.push_back(line);
        }
    }

    void CheckBeginning() {
        if (file_.starts_with("\xEF\xBB\xBF")) {
            Add({Severity::Warning,
                 "the file begins with a UTF-8 mark, so its first line is no "
                 "statement",
                 "save it without the mark"},
                {}, 1);
        } else if (file_.starts_with("\xFF\xFE") || file_.starts_with("\xFE\xFF")) {
            Add({Severity::Error, "the file is UTF-16, of which the driver reads no statement",
                 "save it as 8-bit text"},
                {}, 1);
        }
    }

    void OnStatement(const StatementReport& report) {
        ++ppd_.statements;
        if (report.outcome == StatementOutcome::Stored) {
            Remember(report);
        }
        const ksfax::KeywordRow* row = ksfax::FindKeyword(report.keyword);
        const bool harmless =
            report.reason == StatementReason::CutShort && row != nullptr && row->handler == nullptr;
        ppd_.dropped += !harmless && (report.outcome == StatementOutcome::Dropped ||
                                      report.outcome == StatementOutcome::Fatal);
        if (harmless) {
            Add({Severity::Warning, "the last line has no line end; nothing is lost with this one",
                 "end the last line with a line end"},
                report.keyword, report.line);
        } else if (report.reason == StatementReason::UnknownKeyword) {
            OnUnknown(report);
        } else if (report.keyword == "Include") {
            Add({Severity::Warning, "included files are never read",
                 "copy what the driver shall know of it into this file"},
                report.keyword, report.line);
        } else if (report.reason == StatementReason::ValueAlreadyStored &&
                   (report.keyword.ends_with("OpenUI") || report.keyword == "LanguageVersion")) {
            // Usual: *PageRegion is opened after *PageSize, which it shares its options with, and
            // *LanguageVersion only stands in for a missing *LanguageEncoding. A feature opened
            // twice is told below.
        } else if (std::optional<Advice> advice = AdviceFor(report.reason)) {
            if (report.outcome == StatementOutcome::Stored) {
                advice->severity = std::max(advice->severity, Severity::Warning);
            }
            Add(*advice, report.keyword, report.line, BadByte(report));
        }
        FollowUI(report);
        FollowGroup(report);
        CheckQuotes(report);
        CheckEncoding(report);
    }

    // Where the statements are that packing may have something to say of.
    void Remember(const StatementReport& report) {
        const std::string_view keyword = report.keyword;
        lines_[{std::string(keyword), std::string(report.option)}] = report.line;
        const std::string_view feature = keyword.ends_with("OpenUI")
                                             ? WithoutAsterisk(report.option)
                                         : keyword.starts_with("Default") ? keyword.substr(7)
                                                                          : keyword;
        // The first one stays.
        lines_.emplace(std::pair(std::string(OwnerOf(feature)), kFirst), report.line);
    }
    uint32_t LineOf(std::string_view keyword, std::string_view option) const {
        const auto found = lines_.find({std::string(keyword), std::string(option)});
        return found != lines_.end() ? found->second : 0;
    }

    // The character that made a statement bad, when it is one that cannot be seen.
    std::string BadByte(const StatementReport& report) const {
        const bool bytesMatter = report.reason == StatementReason::MissingColon ||
                                 report.reason == StatementReason::BadOption ||
                                 report.reason == StatementReason::BadKeyword;
        if (!bytesMatter || report.position >= file_.size()) {
            return {};
        }
        const auto byte = static_cast<unsigned char>(file_[report.position]);
        if (byte < 0x80) {
            return {};
        }
        char text[40];
        std::snprintf(text, sizeof text, "the byte 0x%02X stands where ", byte);
        return text;
    }

    void OnUnknown(const StatementReport& report) {
        const std::string_view meant = MeantKeyword(report.keyword);
        if (meant.empty()) {
            unknown_[std::string(report.keyword)].push_back(report.line);
            return;
        }
        const std::string remedy = "if *" + std::string(meant) + " is meant, correct the spelling";
        Add({Severity::Warning, "the keyword is unknown and very like one of the driver's",
             remedy.c_str()},
            report.keyword, report.line);
    }

    // Openings and closings of features, which the driver takes more loosely than they are meant.
    void FollowUI(const StatementReport& report) {
        const bool opens = report.keyword == "OpenUI" || report.keyword == "JCLOpenUI";
        const bool closes = report.keyword == "CloseUI" || report.keyword == "JCLCloseUI";
        if ((!opens && !closes) || report.outcome == StatementOutcome::Fatal) {
            return;
        }
        const std::string name(WithoutAsterisk(opens ? report.option : report.value));
        if (opens) {
            if (!openName_.empty()) {
                Add({Severity::Warning, "another feature is still open", "close that one before"},
                    report.keyword, report.line,
                    "*" + name + " opens while *" + openName_ + " of line " +
                        std::to_string(openLine_) + " is open: ");
            }
            const auto [earlier, first] = opened_.emplace(name, report.line);
            if (!first) {
                Add({Severity::Warning, "the feature is opened twice",
                     "put all its statements into one block"},
                    report.keyword, report.line,
                    "*" + name + " is open from line " + std::to_string(earlier->second) +
                        " before: ");
            }
            openName_ = name;
            openLine_ = report.line;
            openedByJcl_ = report.keyword == "JCLOpenUI";
            return;
        }
        if (openName_.empty()) {
            if (report.outcome != StatementOutcome::Dropped) {
                Add({Severity::Warning, "nothing is open that it could close",
                     "remove it, or add the opening keyword"},
                    report.keyword, report.line);
            }
        } else if (name != openName_) {
            Add({Severity::Warning, "the closing keyword names another feature",
                 "name the feature that is open"},
                report.keyword, report.line,
                "*" + name + " is closed while *" + openName_ + " of line " +
                    std::to_string(openLine_) + " is open: ");
        } else if ((report.keyword == "JCLCloseUI") != openedByJcl_) {
            Add({Severity::Warning, "a JCL feature is opened and closed by keywords of two kinds",
                 "use *JCLOpenUI with *JCLCloseUI and *OpenUI with *CloseUI"},
                report.keyword, report.line);
        }
        openName_.clear();
    }

    void FollowGroup(const StatementReport& report) {
        if (report.keyword == "OpenGroup") {
            openGroup_ = WithoutAsterisk(report.value);
            openGroupLine_ = report.line;
        } else if (report.keyword == "CloseGroup" && WithoutAsterisk(report.value) == openGroup_) {
            openGroup_.clear();
        }
    }

    // A value that holds whole statements has probably lost its closing quote.
    void CheckQuotes(const StatementReport& report) {
        if (report.type != ksfax::ValueType::Quoted) {
            return;
        }
        size_t swallowed = 0;
        for (size_t at = 0;
             (at = report.value.find_first_of("\r\n", at)) != std::string_view::npos;) {
            ++at;
            const std::string_view line = report.value.substr(at);
            const std::string_view word = line.substr(0, line.find_first_of(" :\r\n"));
            swallowed += word.size() > 1 && word[0] == '*' && word[1] != '%' &&
                         ksfax::FindKeyword(ksfax::Text(word.substr(1))) != nullptr;
        }
        if (swallowed != 0) {
            Add({Severity::Warning,
                 "other statements stand inside its quoted value and are not "
                 "read",
                 "add the closing quote that is missing"},
                report.keyword, report.line, std::to_string(swallowed) + ": ");
        }
    }

    void CheckEncoding(const StatementReport& report) {
        if (report.keyword == "LanguageEncoding" && declared_.empty()) {
            declared_ = WithoutAsterisk(report.value);
        }
        for (const std::string_view text : {report.translation, report.value}) {
            const ForeignBytes found = LookAtBytes(text);
            if (found.any) {
                foreign_.push_back({report.line, std::string(report.keyword), found});
            }
        }
    }

    void OnPacked(const PackReport& report) {
        using enum PackNote;
        const std::string option(report.option);
        std::string keyword(report.feature);
        std::string detail = option.empty() ? "" : option + ": ";
        uint32_t line = report.line;
        const auto isAbout = [&](const char* statement, const std::string& of) {
            keyword = statement;
            const uint32_t known = LineOf(statement, of);
            line = known != 0 ? known : line;
        };
        switch (report.note) {
        case ConstraintUnresolved:
        case OrderUnresolved:
            OnUnresolved(report);
            return;
        case ConstraintOnAnyOption:
            keyword = "UIConstraints";
            detail.clear();
            break;
        case ConstraintsTruncated:
            keyword = "UIConstraints";
            break;
        case OrdersTruncated:
            keyword = "OrderDependency";
            break;
        case DefaultNotAnOption:
        case DefaultWithoutOptions:
            // In quotes, for a blank at its end belongs to it.
            detail = '"' + option + "\": ";
            break;
        case PaperSizeIncomplete:
            isAbout("PaperDimension", option);
            break;
        case ImageableAreaClamped:
        case ImageableAreaReset:
            isAbout("ImageableArea", option);
            break;
        case ImageableAreaLClamped:
        case ImageableAreaLReset:
            isAbout("ImageableAreaL", option);
            break;
        case FreeVMRaised:
            isAbout("FreeVM", "");
            break;
        case CustomPageSizeDropped:
            isAbout("CustomPageSize", "True");
            break;
        default:
            break;
        }
        if (line == 0) {
            line = LineOf(keyword, kFirst);
        }
        Add(AdviceFor(report.note), keyword, line, detail);
    }

    // Without the options, so that a whole family of constraints is one finding.
    void OnUnresolved(const PackReport& report) {
        const bool isConstraint = report.note == PackNote::ConstraintUnresolved;
        const char* const keyword = isConstraint ? "UIConstraints" : "OrderDependency";
        for (const std::string_view name : {report.feature, report.feature2}) {
            const std::string owner(OwnerOf(name));
            if (owner != name) {
                const std::string remedy = "name *" + owner + " in its place";
                Add({Severity::Warning,
                     "the options of this keyword belong to another feature, so "
                     "nothing comes of it",
                     remedy.c_str()},
                    keyword, report.line, "*" + std::string(name) + ": ");
                return;
            }
        }
        Add(AdviceFor(report.note), keyword, report.line,
            "*" + std::string(report.feature) +
                (isConstraint ? " *" + std::string(report.feature2) : "") + ": ");
    }

    void CheckEnd() {
        if (!openName_.empty()) {
            Add({Severity::Warning, "the file ends while the feature is open",
                 "close it, and look whether the file is complete"},
                openName_, openLine_);
        }
        if (!openGroup_.empty()) {
            Add({Severity::Warning, "the file ends while the group is open",
                 "add its *CloseGroup, and look whether the file is complete"},
                "OpenGroup", openGroupLine_, openGroup_ + ": ");
        }
    }

    // Whether a load can ever take the description from the cache file.
    void CheckVersion(const ksfax::PrinterDescription& description) {
        constexpr uint32_t kNeverCached = 504;
        const uint32_t line = LineOf("FileVersion", "");
        const char* reason = nullptr;
        const char* remedy = "add *FileVersion: \"1.0\" and raise it with each change";
        if (description.FileVersion == 0) {
            reason = "without a FileVersion above 0 the cache file is never used: every load reads "
                     "the whole PPD";
        } else if (ksfax::ReadFileVersion(std::string(file_).c_str()) != description.FileVersion) {
            reason = "the cache file is never used, for its version is looked up as the first "
                     "quoted text after the first FileVersion of the file, wherever that stands, "
                     "and this is another";
            remedy = "quote the version, and let the word not stand in any line before it";
        } else if (description.TotalSize <= kNeverCached) {
            reason = "the description is too small for its cache file to be used";
            remedy = "look whether the file is complete";
        }
        if (reason != nullptr) {
            Add({Severity::Warning, reason, remedy}, "FileVersion", line);
        }
    }

    void Finish() {
        for (const auto& [line, keyword, found] : foreign_) {
            const char* reason = nullptr;
            if (declared_ == "ISOLatin1" && found.utf8) {
                reason = "the file declares ISOLatin1, but the bytes are UTF-8";
            } else if (declared_ == "ISOLatin1" && found.controls) {
                reason = "the file declares ISOLatin1, which has no characters 0x80 to 0x9F";
            } else if (declared_ == "WindowsANSI" && found.utf8) {
                reason = "the file declares WindowsANSI, but the bytes are UTF-8";
            } else if (declared_ == "JIS83-RKSJ" && !found.shiftJis) {
                reason = "the file declares JIS83-RKSJ, but the bytes are none of it";
            } else if (declared_.empty() || declared_ == "None") {
                reason = "bytes above 127 stand in a file that declares no encoding";
            }
            if (reason != nullptr) {
                Add({Severity::Warning, reason,
                     "save the file in the encoding that *LanguageEncoding declares, or correct "
                     "that"},
                    keyword, line);
            }
        }
        for (const auto& [keyword, lines] : unknown_) {
            Finding finding = {Severity::Note,
                               lines,
                               FromPpd(keyword),
                               "this driver does not know the keyword",
                               "",
                               lines.size()};
            ppd_.findings.push_back(std::move(finding));
        }
        for (auto& [key, finding] : findings_) {
            ppd_.findings.push_back(std::move(finding));
        }
        std::ranges::stable_sort(ppd_.findings, {}, [](const Finding& finding) {
            return std::pair(finding.severity, finding.lines.empty() ? 0 : finding.lines.front());
        });
    }

    CheckedPpd& ppd_;
    std::string_view file_;
    std::map<std::tuple<Severity, std::string, std::string>, Finding> findings_;
    std::map<std::string, std::vector<uint32_t>> unknown_;
    // By keyword and option, the latest; and by feature and kFirst its first.
    std::map<std::pair<std::string, std::string>, uint32_t> lines_;
    static inline const std::string kFirst = "*";
    std::map<std::string, uint32_t> opened_;
    std::string openName_;
    uint32_t openLine_ = 0;
    bool openedByJcl_ = false;
    std::string openGroup_;
    uint32_t openGroupLine_ = 0;
    std::string declared_;
    struct Foreign {
        uint32_t line;
        std::string keyword;
        ForeignBytes found;
    };
    std::vector<Foreign> foreign_;
};

}  // namespace

size_t CheckedPpd::Count(Severity severity) const {
    return size_t(std::ranges::count(findings, severity, &Finding::severity));
}

CheckedPpd CheckPpd(const std::filesystem::path& file) {
    CheckedPpd ppd = {.file = file, .failure = {}, .findings = {}};
    try {
        Checker(ppd).Run();
        ppd.readable = true;
    } catch (const UserError& error) {
        ppd.failure = error.what();
    }
    return ppd;
}

}  // namespace tool
