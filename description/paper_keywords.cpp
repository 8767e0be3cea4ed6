#include "description/paper_keywords.h"

#include <cstring>

namespace ksfax {

namespace {

struct KeywordCode {
    const char* word;
    uint16_t code;
};

constexpr KeywordCode kPaperNameCodes[] = {
    {"A4", 9},           {"Letter", 1},       {"Legal", 5},        {"Executive", 7},
    {"A5", 11},          {"B5", 34},          {"JISB5", 13},       {"B6", 35},
    {"Com10", 20},       {"Monarch", 37},     {"DL", 27},          {"C5", 28},
    {"C4", 30},          {"User", 256},       {"OrganizerJ", 257}, {"OrganizerK", 258},
    {"OrganizerL", 259}, {"OrganizerM", 260}, {"A6", 70},          {"A4Long", 262},
    {"3x5", 261},        {"Postcard", 43},    {"JE4", 91},         {"JL3", 73},
};

constexpr KeywordCode kSlotNameBins[] = {
    {"AutoSelect", 7}, {"Upper", 1},      {"Lower", 2},     {"Cassette", 1}, {"Tray", 1},
    {"Tray1", 1},      {"Tray2", 2},      {"Tray3", 256},   {"Tray4", 257},  {"Dual", 7},
    {"MPTray", 258},   {"ManualFeed", 4}, {"Tower1", 263},  {"Tower2", 264}, {"Tower3", 265},
    {"Tower4", 266},   {"Tower5", 267},   {"Tower6", 268},  {"Tower7", 269}, {"TrayID1", 259},
    {"TrayID2", 260},  {"TrayID3", 261},  {"TrayID4", 262},
};

template <size_t Rows>
uint16_t CodeOf(const KeywordCode (&table)[Rows], const char* keyword, uint16_t fallback) {
    for (const KeywordCode& row : table) {
        if (keyword != nullptr && std::strcmp(row.word, keyword) == 0) {
            return row.code;
        }
    }
    return fallback;
}

}  // namespace

uint16_t PaperKeywordToCode(const char* keyword) {
    return CodeOf(kPaperNameCodes, keyword, 1);
}

uint16_t SourceKeywordToCode(const char* keyword) {
    return CodeOf(kSlotNameBins, keyword, 1);
}

}  // namespace ksfax
