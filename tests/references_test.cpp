// The reference documents in docs/ say what the code's own tables say. Parts between
// "<!-- NAME -->" and "<!-- end -->" are made from them and written anew by ./dev renew; forms
// and codes that stand among prose are held to them row by row.

#include <cstdlib>
#include <fstream>
#include <iterator>
#include <map>
#include <regex>
#include <sstream>
#include <string>

#include <gtest/gtest.h>

#include "platform/embedded/machine.h"
#include "platform/windows_api.h"

#include "capabilities/paper_names.h"
#include "core/module_state.h"
#include "description/keyword_table.h"
#include "description/paper_keywords.h"
#include "tests/golden.h"
#include "tool/loaded_driver.h"
#include "tool/record_fields.h"

namespace {

std::string Document(const std::string& name) {
    std::ifstream stream(std::string(SOURCE_FOLDER "/docs/") + name, std::ios::binary);
    return {std::istreambuf_iterator<char>(stream), {}};
}

// Whether the document's part of that name is `made`; writes it instead when records are renewed.
testing::AssertionResult HasPart(const std::string& name, const std::string& part,
                                 const std::string& made) {
    const std::string begin = "<!-- " + part + " -->\n";
    std::string document = Document(name);
    const size_t from = document.find(begin);
    const size_t to = document.find("<!-- end -->", from);
    if (from == std::string::npos || to == std::string::npos) {
        return testing::AssertionFailure() << name << " has no part " << part;
    }
    const size_t text = from + begin.size();
    if (std::getenv("KSFAX_RENEW") != nullptr) {
        document.replace(text, to - text, made);
        std::ofstream(std::string(SOURCE_FOLDER "/docs/") + name, std::ios::binary) << document;
        return testing::AssertionSuccess();
    }
    return document.compare(text, to - text, made) == 0
               ? testing::AssertionSuccess()
               : testing::AssertionFailure()
                     << name << ": part " << part << " is not what the code says; ./dev renew";
}

std::string FieldTable(tool::RecordPart part) {
    std::ostringstream table;
    table << "| offset | bytes | field | unit | meaning |\n|---|---|---|---|---|\n";
    for (const tool::RecordField& field : tool::kRecordFields) {
        if (field.part == part) {
            table << "| " << field.offset << " | " << field.width << " | `" << field.name << "` | "
                  << field.unit << " | " << field.meaning << " |\n";
        }
    }
    return table.str();
}

TEST(References, ListTheFieldsOfBothRecords) {
    using tool::RecordPart;
    EXPECT_TRUE(HasPart("job-settings.md", "public", FieldTable(RecordPart::Public)));
    EXPECT_TRUE(HasPart("job-settings.md", "private", FieldTable(RecordPart::Private)));
    EXPECT_TRUE(HasPart("job-settings.md", "device", FieldTable(RecordPart::Device)));
}

// The module's own strings with numbers in a range, one row each.
std::string StringTable(UINT from, UINT to) {
    std::ostringstream table;
    table << "| number | text |\n|---|---|\n";
    for (UINT number = from; number <= to; ++number) {
        WCHAR text[256];
        if (LoadStringW(ksfax::ownModule, number, text, static_cast<int>(std::size(text))) == 0) {
            continue;
        }
        char utf8[1024] = {};
        size_t length = 0;
        for (const WCHAR* c = text; *c != 0; ++c) {
            if (*c == '\n') {
                length += static_cast<size_t>(std::snprintf(utf8 + length, 8, " \u23CE "));
            } else if (*c < 0x80) {
                utf8[length++] = static_cast<char>(*c);
            } else {
                utf8[length++] = static_cast<char>(0xC0 | *c >> 6);
                utf8[length++] = static_cast<char>(0x80 | (*c & 0x3F));
            }
        }
        table << "| " << number << " | " << utf8 << " |\n";
    }
    return table.str();
}

TEST(References, ListTheModulesOwnTexts) {
    embedded::Machine machine;
    tool::LoadedDriver driver{machine};
    EXPECT_TRUE(HasPart("administration.md", "strings", StringTable(1, 39999)));
    EXPECT_TRUE(HasPart("administration.md", "refusals", StringTable(40000, 49999)));
}

// The cells of each row that begins with a word in code marks; the last row of a word counts.
std::map<std::string, std::string> CodeRows(const std::string& document) {
    std::map<std::string, std::string> rows;
    const std::regex row(R"(\n\| `([^`]+)` \| (.*) \|(?=\n))");
    for (std::sregex_iterator found(document.begin(), document.end(), row), end; found != end;
         ++found) {
        rows[found->str(1)] = found->str(2);
    }
    return rows;
}

TEST(References, ShowEachKeywordOfAPpdWithItsForm) {
    std::string document = Document("ppd.md");
    std::map<std::string, std::string> rows = CodeRows(document);
    for (const ksfax::KeywordRow& row : ksfax::kKeywordTable) {
        const bool option = (row.syntax & ksfax::kOptionRequired) != 0;
        const bool all = option || (row.syntax & ksfax::kRepeatable) != 0;
        const std::map<int, std::string> values = {{ksfax::kAnyValue, "any"},
                                                   {ksfax::kQuoted, "quoted"},
                                                   {ksfax::kQuotedOrString, "quoted or plain"},
                                                   {ksfax::kNonEmptyString, "plain"}};
        const std::string form = std::string(option ? "yes" : "no") + " | " +
                                 values.at(row.syntax & ksfax::kValueForm) + " | " +
                                 (all ? "all" : "first") + " | ";
        const std::string keyword(row.keyword);
        EXPECT_TRUE(rows["*" + keyword].starts_with(form)) << "*" << keyword << " | " << form;
    }
}

TEST(References, ShowTheNamesAndCodesOfPapersAndSources) {
    embedded::Machine machine;
    tool::LoadedDriver driver{machine};
    const std::string document = Document("ppd.md");
    const auto section = [&](const char* heading, size_t size) {
        const size_t from = document.find(heading);
        const size_t to = document.find("\n\n", from);
        const auto rows = CodeRows(document.substr(from, to - from + 1));
        EXPECT_EQ(rows.size(), size) << heading;
        return rows;
    };
    for (const auto& [word, code] : section("| option keyword | code |", 24)) {
        EXPECT_EQ(std::to_string(ksfax::PaperKeywordToCode(word.c_str())), code) << word;
    }
    for (const auto& [word, bin] : section("| option keyword | source number |", 23)) {
        EXPECT_EQ(std::to_string(ksfax::SourceKeywordToCode(word.c_str())), bin) << word;
    }
    for (const auto& [word, name] : section("| option keyword | shown as |", 35)) {
        const UINT string = ksfax::PaperNameString(word.c_str());
        EXPECT_TRUE(StringTable(string, string).ends_with("| " + name + " |\n")) << word;
    }
}

// `row` for each place in `text` that fits the pattern.
std::string Rows(const std::string& text, const std::string& pattern, const char* row) {
    std::string rows;
    const std::regex expression(pattern);
    for (std::sregex_iterator found(text.begin(), text.end(), expression), end; found != end;
         ++found) {
        rows += found->format(row);
    }
    return rows;
}

TEST(References, ShowTheCompanionsRecordsKeysAndNames) {
    const std::string header = Document("../faxjob/companion.h");
    for (const std::string record : {"DialModuleRecord", "PublishedJob"}) {
        const size_t from = header.find("typedef struct " + record);
        const std::string fields =
            Rows(header.substr(from, header.find("} ", from) - from),
                 R"(    (\w+) (\w+)(\[\w+\])?; +// +(\d+)  (.*))", "| $4 | `$1$3` | `$2` | $5 |\n");
        EXPECT_TRUE(HasPart("companion.md", record,
                            "| offset | type | field | content |\n|---|---|---|---|\n" + fields));
    }
    EXPECT_TRUE(HasPart("companion.md", "names",
                        "| name | stands for | |\n|---|---|---|\n" +
                            Rows(header, R"re(#define (KSFAX_\w+) (\S+)(?: +// (.*))?)re",
                                 "| `$1` | `$2` | $3 |\n")));
    // Who writes and reads a key stands in its row.
    auto rows = CodeRows(Document("companion.md"));
    std::string section;
    const std::regex name(R"re(#define KSFAX_\w+_(SECTION|KEY) "(\w+)"(?: +// (\w+))?)re");
    for (std::sregex_iterator found(header.begin(), header.end(), name), end; found != end;
         ++found) {
        if (found->str(1) == "SECTION") {
            section = found->str(2) + " | ";
        } else {
            const std::regex cells(found->str(3) == "read" ? R"(\w+ \| [^|]+ \| driver \|.*)"
                                                           : R"(\w+ \| driver \| .*)");
            const std::string& row = rows[found->str(2)];
            EXPECT_TRUE(row.starts_with(section) && std::regex_match(row, cells))
                << found->str(2) << " in " << section << row;
        }
    }
}

}  // namespace
