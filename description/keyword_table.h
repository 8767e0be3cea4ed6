#pragma once

// The main keywords that the module reads of a PPD, with the form of their statements and their
// handlers.

#include "description/parse_state.h"

namespace ksfax {

using Handler = Outcome (*)(ParseState& state, const StatementRecord& statement);

// KeywordRow::syntax: a value form and flags.
constexpr uint8_t kValueForm = 0x07;  // mask
constexpr uint8_t kAnyValue = 0;
constexpr uint8_t kQuoted = 1;
constexpr uint8_t kQuotedOrString = 2;
constexpr uint8_t kNonEmptyString = 4;
constexpr uint8_t kOptionRequired = 0x08;  // and forbidden without this flag
constexpr uint8_t kRepeatable = 0x10;      // every statement counts, not just the first good one

struct KeywordRow {
    Text keyword;
    Handler handler;  // null: accepted without effect
    uint8_t syntax;
    FeatureKind kind;  // what *OpenUI of this keyword opens; Generic: such an *OpenUI is ignored
};

constexpr unsigned kKeywordCount = 100;

// The order binds: marks of what a parse has seen go by row.
extern const KeywordRow kKeywordTable[kKeywordCount];

// The row of a main keyword, or null.
const KeywordRow* FindKeyword(Text keyword);
inline unsigned RowNumber(const KeywordRow* row) {
    return static_cast<unsigned>(row - kKeywordTable);
}

// The kind of the well-known feature of that name, or Generic.
FeatureKind FeatureKindByName(Text name);

// For statements of the generic feature whose *OpenUI is open: one of its options, its default.
Outcome StoreOptionOf(ParseState& state, ParsedFeature& feature, const StatementRecord& statement);
Outcome StoreDefaultOf(ParseState& state, ParsedFeature& feature, const StatementRecord& statement);

}  // namespace ksfax
