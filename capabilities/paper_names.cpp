#include "capabilities/paper_names.h"

#include <cstring>
#include <iterator>

#include "resources/resource.h"

namespace ksfax {
namespace {

struct PaperName {
    const char* keyword;
    UINT string;
};

// The first row of a keyword counts. "Oficio" is shown under the name by which the paper goes
// where it is used, Folio.
constexpr PaperName kPaperNames[] = {
    {"A4", IDS_PAPER_A4},
    {"A5", IDS_PAPER_A5},
    {"B5", IDS_PAPER_B5},
    {"Com10", IDS_PAPER_COM10},
    {"DL", IDS_PAPER_DL},
    {"C5", IDS_PAPER_C5},
    {"Monarch", IDS_PAPER_MONARCH},
    {"OrganizerJ", IDS_PAPER_ORGANIZER_J},
    {"OrganizerK", IDS_PAPER_ORGANIZER_K},
    {"OrganizerL", IDS_PAPER_ORGANIZER_L},
    {"OrganizerM", IDS_PAPER_ORGANIZER_M},
    {"3x5", IDS_PAPER_3X5},
    {"A4Long", IDS_PAPER_A4_LONG},
    {"Oficio", IDS_PAPER_FOLIO},
    {"LetterShortEdge", IDS_PAPER_LETTER_SHORT_EDGE},
    {"LetterLongEdge", IDS_PAPER_LETTER_LONG_EDGE},
    {"A4ShortEdge", IDS_PAPER_A4_SHORT_EDGE},
    {"A4LongEdge", IDS_PAPER_A4_LONG_EDGE},
    {"ExecutiveShortEdge", IDS_PAPER_EXECUTIVE_SHORT_EDGE},
    {"ExecutiveLongEdge", IDS_PAPER_EXECUTIVE_LONG_EDGE},
    {"A6", IDS_PAPER_A6},
    {"B6", IDS_PAPER_B6},
    {"A3", IDS_PAPER_A3},
    {"Ledger", IDS_PAPER_LEDGER},
    {"B5ShortEdge", IDS_PAPER_B5_SHORT_EDGE},
    {"B5LongEdge", IDS_PAPER_B5_LONG_EDGE},
    {"JISB4", IDS_PAPER_JIS_B4},
    {"Letter", IDS_PAPER_LETTER},
    {"Legal", IDS_PAPER_LEGAL},
    {"Executive", IDS_PAPER_EXECUTIVE},
    {"JISB5", IDS_PAPER_JIS_B5},
    {"Postcard", IDS_PAPER_POSTCARD},
    {"JE4", IDS_PAPER_JE4},
    {"JL3", IDS_PAPER_JL3},
    {"DLYOKO", IDS_PAPER_DL_LANDSCAPE},
};
static_assert(std::size(kPaperNames) == 35);

}  // namespace

UINT PaperNameString(const char* keyword) {
    if (keyword == nullptr) {
        return 0;
    }
    for (const PaperName& row : kPaperNames) {
        if (std::strcmp(row.keyword, keyword) == 0) {
            return row.string;
        }
    }
    return 0;
}

}  // namespace ksfax
