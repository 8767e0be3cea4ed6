#pragma once

// Descriptions made from PPD text in memory, for tests.

#include <memory>
#include <string>
#include <string_view>
#include <vector>

#include "platform/embedded/machine.h"

#include "description/load_description.h"
#include "description/printer_description.h"

namespace ksfax {

struct FreeDescription {
    void operator()(PrinterDescription* block) const { GlobalFree(block); }
};
using DescriptionPtr = std::unique_ptr<PrinterDescription, FreeDescription>;

// The packed block, offsets in it; null when the text does not load. Needs a running machine.
inline DescriptionPtr PackText(std::string_view text, const ParseObserver* observer = nullptr) {
    ParseState* state = ParsePpdText(text, TEXT("C:\\P.PPD"), observer);
    return DescriptionPtr(state != nullptr ? PackDescription(state, observer) : nullptr);
}

// The same, relocated for the lookups.
inline DescriptionPtr LoadText(std::string_view text) {
    DescriptionPtr block = PackText(text);
    if (block) {
        RelocateDescription(block.get());
    }
    return block;
}

inline std::string_view BytesOf(const PrinterDescription& block) {
    return {reinterpret_cast<const char*>(&block), block.TotalSize};
}

// A string of a loaded description; "-" for an absent one.
inline std::string TextOf(Ref<char> text) {
    return text ? text.Target() : "-";
}

// A feature by name, and its options as "Name/Translation=Invocation" joined by "; ".
inline const FeatureRecord* Feature(const DescriptionPtr& description, const char* name) {
    return FindByName(description->Features.Target(), name);
}
inline std::string OptionsOf(const FeatureRecord* feature) {
    std::string all;
    for (const OptionRecord& option : ListOf(feature->Options)) {
        all += (all.empty() ? "" : "; ") + TextOf(option.Name) + "/" + TextOf(option.Translation) +
               "=" + TextOf(option.Invocation);
    }
    return all;
}

// What an observer was told of each statement, one line each: "keyword|option|translation|value",
// the value's type (0 none, 2 quoted, 3 symbol, 4 string) and S(tored), I(gnored), D(ropped) or
// F(atal). Its reasons and lines beside it.
struct StatementLog {
    std::vector<std::string> lines;
    std::vector<StatementReason> reasons;
    std::vector<uint32_t> lineNumbers;
    std::vector<PackNote> notes;
    ParseObserver observer = {
        .context = this, .statement = Note, .packed = NotePack, .cacheUsed = nullptr};

    static void Note(void* context, const StatementReport& report) {
        std::string line;
        line.append(report.keyword).append("|").append(report.option).append("|");
        line.append(report.translation).append("|").append(report.value).append(" ");
        line += std::to_string(static_cast<int>(report.type));
        line += "SIDF"[static_cast<int>(report.outcome)];
        auto& log = *static_cast<StatementLog*>(context);
        log.lines.push_back(line);
        log.reasons.push_back(report.reason);
        log.lineNumbers.push_back(report.line);
    }
    static void NotePack(void* context, const PackReport& report) {
        static_cast<StatementLog*>(context)->notes.push_back(report.note);
    }
};

}  // namespace ksfax
