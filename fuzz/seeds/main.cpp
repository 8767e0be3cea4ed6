// Writes PPDs that together reach every keyword of the driver, each stored, and the cache blocks
// that they give: make_seeds FOLDER writes below FOLDER/ppd and FOLDER/cache. Small, because what
// mutates a seed should mostly meet bytes that matter.

#include <algorithm>
#include <cstdio>
#include <filesystem>
#include <fstream>
#include <set>
#include <string>
#include <string_view>

#include "platform/embedded/machine.h"
#include "platform/owned.h"

#include "description/keyword_table.h"
#include "description/load_description.h"

namespace {

namespace fs = std::filesystem;
using ksfax::KeywordRow;

struct Sample {
    std::string_view keyword;
    std::string_view option;
    std::string_view value;
};
// Of keywords whose statements say something particular; an empty option is the usual one.
constexpr Sample kSamples[] = {
    {"Protocols", "", "PJL BCP TBCP SIC"},
    {"LanguageEncoding", "", "None"},
    {"LanguageVersion", "", "Japanese"},
    {"TTRasterizer", "", "Type42"},
    {"LandscapeOrientation", "", "Minus90"},
    {"Extensions", "", "CMYK FileSystem"},
    {"HWMargins", "", "1 2.5 3 4"},
    {"Font", "Courier", "Standard ROM"},
    {"CustomPageSize", "True", "code"},
    {"ParamCustomPageSize", "Width", "1 points 10 900"},
    {"PaperDimension", "", "595 842"},
    {"ImageableArea", "", "18 18 700 900 5 6"},
    {"ImageableAreaL", "", "2 1 3 4"},
    {"InstalledMemory", "", "1,2,4"},
    {"SleepMode", "", "0,5,15,30"},
    {"RequiresPageRegion", "All", "True"},
    {"OpenUI", "*Extra", "PickMany"},
    {"CloseUI", "", "*Extra"},
    {"JCLOpenUI", "*JCLExtra", "Boolean"},
    {"JCLCloseUI", "", "*JCLExtra"},
    {"OpenGroup", "", "InstallableOptions"},
    {"CloseGroup", "", "InstallableOptions"},
    {"OrderDependency", "", "10.5 JCLSetup *Duplex 200"},
    {"UIConstraints", "", "*Duplex *PageSize 200"},
    {"DefaultLanguage", "", "English"},
};

std::string Statement(const KeywordRow& row) {
    const auto* sample = std::ranges::find(kSamples, row.keyword, &Sample::keyword);
    const bool isNamed = sample != std::end(kSamples);
    const uint8_t form = row.syntax & ksfax::kValueForm;
    const bool isQuoted = form == ksfax::kQuoted || form == ksfax::kQuotedOrString;
    // A number, an option that other statements make, and where they count two substrings.
    std::string value = isQuoted ? "200<41>" : "True";
    if (isNamed) {
        value = sample->value;
    } else if (row.keyword.starts_with("Default") && row.keyword != "DefaultFontSetting") {
        value = "200";
    }
    std::string statement = "*" + std::string(row.keyword);
    if ((row.syntax & ksfax::kOptionRequired) != 0) {
        statement += " ";
        statement += isNamed && !sample->option.empty() ? sample->option : "200";
        statement += "/T<41>";
    }
    return statement + (isQuoted ? ": \"" + value + "\"\n" : ": " + value + "\n");
}

// What a statement is about, so that its seed is named after it.
const char* SeedOf(const KeywordRow& row) {
    const std::string_view keyword = row.keyword;
    const auto isOneOf = [&](auto... words) { return ((keyword == words) || ...); };
    if (keyword == "Font") {
        return "font";
    }
    if (isOneOf("OrderDependency", "UIConstraints", "OpenGroup", "CloseGroup", "OpenUI", "CloseUI",
                "JCLOpenUI", "JCLCloseUI", "Duplex", "VMOption", "DefaultResolution")) {
        return "tables";
    }
    if ((row.syntax & ksfax::kOptionRequired) != 0 && row.kind != ksfax::FeatureKind::Generic) {
        return "options";
    }
    return keyword.starts_with("Default") ? "defaults" : "header";
}

bool Write(const fs::path& path, std::string_view bytes) {
    fs::create_directories(path.parent_path());
    std::ofstream file(path, std::ios::binary);
    file << bytes;
    return static_cast<bool>(file.flush());
}

// False when the driver does not store a statement, or a file cannot be written.
bool WriteSeed(const fs::path& folder, const std::string& name, const std::string& text) {
    bool good = true;
    const ksfax::ParseObserver observer = {
        .context = &good, .statement = [](void* context, const ksfax::StatementReport& report) {
            if (report.outcome != ksfax::StatementOutcome::Stored &&
                report.reason != ksfax::StatementReason::NoEffect) {
                std::fprintf(stderr, "*%.*s is not stored\n",
                             static_cast<int>(report.keyword.size()), report.keyword.data());
                *static_cast<bool*>(context) = false;
            }
        }};
    ksfax::ParseState* state = ksfax::ParsePpdText(text, TEXT("P"), &observer);
    const platform::GlobalBlock block(state != nullptr ? ksfax::PackDescription(state) : nullptr);
    if (!block) {
        return false;
    }
    const auto* bytes = static_cast<const char*>(block.get());
    const uint32_t size = static_cast<const ksfax::PrinterDescription*>(block.get())->TotalSize;
    return Write(folder / "ppd" / name, text) && Write(folder / "cache" / name, {bytes, size}) &&
           good;
}

}  // namespace

int main(int argc, char** argv) {
    if (argc != 2) {
        std::fprintf(stderr, "usage: %s FOLDER\n", argv[0]);
        return 2;
    }
    const embedded::Machine machine;
    bool good = true;
    for (const char* name : {"header", "options", "defaults", "tables", "font"}) {
        std::string text;
        for (const KeywordRow& row : ksfax::kKeywordTable) {
            if (std::string_view(SeedOf(row)) == name) {
                text += Statement(row);
            }
        }
        good = WriteSeed(argv[1], name, text) && good;
    }
    return good ? 0 : 1;
}
