#pragma once

// The working record of one parse, from the first statement to the packed block, and the
// conversions that the keyword handlers share. Private to the reader, its handlers and packing.
//
// Nothing of the PPD is copied while parsing: the records below point into its text, which stays
// mapped until packing has copied what it needs. Every length in the file is fixed when a text is
// recorded, and packing writes no further than it measured, so a file that another process
// rewrites meanwhile gives a wrong description or none, never a wrong access; one that it shortens
// faults as any mapped file does, which is the system's to report.

#include <cstring>
#include <new>
#include <string_view>
#include <utility>

#include "description/parse_observer.h"
#include "description/printer_description.h"
#include "description/text.h"

namespace ksfax {

using Text = std::string_view;

// An arena of global memory, released as a whole.
class ParsePool {
  public:
    // A first block with `room` bytes; false when memory runs out.
    [[nodiscard]] bool Open(size_t room);
    void Release();
    // Zeroed memory for one record or for several, or null. Records need no destructor.
    template <typename Record>
    [[nodiscard]] Record* Make() {
        static_assert(alignof(Record) <= 8);
        void* memory = Take(sizeof(Record));
        return memory != nullptr ? new (memory) Record() : nullptr;
    }
    template <typename Record>
    [[nodiscard]] Record* MakeMany(size_t count) {
        void* memory = count <= kMost / sizeof(Record) ? Take(count * sizeof(Record)) : nullptr;
        return memory != nullptr ? new (memory) Record[count]() : nullptr;
    }

  private:
    struct Block;
    static constexpr size_t kMost = SIZE_MAX / 2;

    // `bytes`, at most kMost, from a multiple of 8; or null.
    void* Take(size_t bytes) {
        const size_t rounded = (bytes + 7) & ~size_t{7};
        if (rounded > left_ && !AddBlock(rounded)) {
            return nullptr;
        }
        left_ -= rounded;
        return std::exchange(next_, next_ + rounded);
    }
    bool AddBlock(size_t room);

    Block* newest_ = nullptr;
    uint8_t* next_ = nullptr;
    size_t left_ = 0;
    size_t total_ = 0;
};

// A piece of the PPD's text, kept as 8 bytes because there are up to four for each option.
struct StoredText {
    uint32_t offset;  // in the file; 0 = absent, for no text begins with the file
    uint32_t lengthAndHex;

    static constexpr uint32_t kHex = 0x80000000;  // has hexadecimal substrings to decode
    explicit operator bool() const { return offset != 0; }
    uint32_t length() const { return lengthAndHex & ~kHex; }
    bool hex() const { return (lengthAndHex & kHex) != 0; }
};

// What the name index finds: an option by its feature's number and its name, a generic feature
// by kNoOwner and its name.
struct NamedRecord {
    uint32_t owner;
    uint32_t nameOffset;  // in the file; unused for well-known features
    uint32_t nameLength;
    uint32_t position;  // in its list; a feature's is settled by packing
};
constexpr uint32_t kNoOwner = UINT32_MAX;

struct ParsedOption : NamedRecord {
    ParsedOption* next;
    StoredText translation;
    StoredText invocation;
};
struct ParsedPaper : ParsedOption {
    StoredText pageSizeL;
    StoredText pageRegion;
    uint32_t width;
    uint32_t height;
    uint32_t area[4];
    uint32_t areaExtra[2];
    uint32_t areaL[4];
    uint32_t areaLExtra[2];
};
struct ParsedSlot : ParsedOption {
    uint32_t requiresPageRegion;
};
struct ParsedResolution : ParsedOption {
    StoredText jclResolution;
    StoredText setResolution;
    uint32_t screenAngle;
    uint32_t screenFreq;
};
struct ParsedMemory : ParsedOption {
    uint32_t amount;
};

struct ParsedFeature : NamedRecord {
    ParsedFeature* next;
    uint32_t number;  // in order of creation
    FeatureKind kind;
    FeatureUIType uiType;
    uint16_t flags;
    bool installable;
    uint16_t index;  // within its group, set by packing
    StoredText translation;
    StoredText defaultName;
    ParsedOption* firstOption;
    ParsedOption* lastOption;
    uint32_t optionCount;
};

struct ParsedFont {
    ParsedFont* next;
    uint32_t nameOffset;
    uint16_t nameLength;
    uint16_t id;
    StoredText description;
};

// A token of a constraint or order dependency, at most 39 characters; offset 0 = absent.
struct ParsedConstraint {
    ParsedConstraint* next;
    uint32_t offsets[4];  // feature 1, option 1, feature 2, option 2
    uint8_t lengths[4];
};
struct ParsedOrder {
    ParsedOrder* next;
    uint32_t order;
    uint16_t section;
    uint8_t keywordLength;
    uint8_t optionLength;
    uint32_t keywordOffset;
    uint32_t optionOffset;
};

// A list that is only ever appended to.
template <typename Record>
struct ParsedList {
    Record* first;
    Record* last;
    uint32_t count;

    void Append(Record* record) {
        (last != nullptr ? last->next : first) = record;
        last = record;
        ++count;
    }
};

// Generic features by name, and the options of features that have many: open addressing, at most
// seven eighths full, so that the keys of a long PPD stay in the processor's cache. They lie apart
// from the records that they stand for: asking for a name that is new, which is what a long PPD
// does most, reads nothing but neighbouring keys. Owner and name are hashed whole, with numbers
// made of addresses of this very parse: whoever writes a file to make names meet has to know those.
class NameIndex {
  public:
    // False when memory runs out. `slots` is a power of 2.
    [[nodiscard]] bool Open(uint32_t slots);
    void Release();
    uint32_t KeyOf(uint32_t owner, Text name) const;
    // The record of that owner and name, or null. `text` is the file's.
    NamedRecord* Find(const char* text, uint32_t key, uint32_t owner, Text name) const;
    // False when memory runs out.
    [[nodiscard]] bool Insert(uint32_t key, NamedRecord* record);

  private:
    bool Allocate(uint32_t slots);
    void Put(uint32_t key, NamedRecord* record);

    NamedRecord** records_ = nullptr;  // one allocation with keys_
    uint32_t* keys_ = nullptr;         // 0 = the slot is empty
    uint32_t mask_ = 0;
    uint32_t used_ = 0;
    uint64_t seed_ = 0;
    uint64_t multiplier_ = 0;
};

struct ParseState {
    ParsePool pool;
    const char* text;  // the whole file
    uint32_t textLength;
    void* view;  // the mapped view that text lies in, or null

    // The numbers of the header; its references stay 0 and are the fields below until packing.
    PrinterDescription header;
    const WCHAR* path;
    uint32_t pathLength;
    StoredText NickName;
    StoredText Password;
    StoredText ExitServer;
    StoredText CustomPageSizeCode;
    StoredText JCLBegin;
    StoredText JCLToPSInterpreter;
    StoredText JCLEnd;
    StoredText SleepMode;
    StoredText DefaultLanguage;

    ParsedList<ParsedFeature> features;
    ParsedFeature* featureByKind[kFeatureKinds];
    ParsedList<ParsedFont> fonts;
    uint64_t fontsSeen[2];  // a bit for each device font
    ParsedList<ParsedConstraint> constraints;
    ParsedList<ParsedOrder> orders;
    NameIndex names;

    ParsedFeature* openFeature;  // the generic feature whose *OpenUI is open, or null
    bool inInstallableGroup;
    uint64_t seenRows[2];  // a bit for each row of the keyword table

    const uint32_t* lineStarts;  // with an observer alone; null when memory ran out
    uint32_t lineCount;

    Text TextOf(StoredText stored) const { return {text + stored.offset, stored.length()}; }
    uint32_t OffsetOf(const char* place) const { return static_cast<uint32_t>(place - text); }
    // The line of a place in the file, from 1; 0 when unknown.
    uint32_t LineOf(uint32_t offset) const;
};

// Releases a parse that is not packed.
void ReleaseParse(ParseState* state);

// One statement, its texts in the file.
struct StatementRecord {
    const char* start;  // its asterisk
    Text keyword;       // main keyword without asterisk
    Text option;
    Text translation;
    Text value;
    ValueType type;
    bool hasZeroBytes;  // in the value, which ends at the first
};

// Counts and positions of the packed block stop at what 16 bits hold.
inline uint16_t Saturated(uint32_t count) {
    return count < UINT16_MAX ? static_cast<uint16_t>(count) : uint16_t{UINT16_MAX};
}

enum class Result : uint8_t { Handled = 0, EndOfFile = 1, Bad = 3, Fatal = 4 };

// What reading, dispatching or handling a statement came to: the parse goes by `result`, the
// other two are for the observer.
struct Outcome {
    Result result;
    StatementReason reason = StatementReason::None;
    bool stored = false;  // of a handled statement: it took effect, whatever its reason says

    bool handled() const { return result == Result::Handled; }
};
constexpr Outcome kStored = {.result = Result::Handled, .stored = true};
constexpr Outcome kOutOfMemory = {.result = Result::Fatal, .reason = StatementReason::OutOfMemory};
constexpr Outcome Bad(StatementReason reason) {
    return {.result = Result::Bad, .reason = reason};
}
constexpr Outcome Ignored(StatementReason reason) {
    return {.result = Result::Handled, .reason = reason};
}
// Something is stored, but not as it was probably meant.
constexpr Outcome Doubtful(StatementReason reason) {
    return {.result = Result::Handled, .reason = reason, .stored = true};
}

// ---- Value conversions ----

enum class TextMode : uint8_t { Plain, Hex };

// Records `text` in `target` unless that holds one already: the first value wins, an empty one
// too. In hex mode bad hexadecimal substrings give Bad and leave the target alone.
Outcome StoreValue(ParseState& state, StoredText& target, Text text, TextMode mode,
                   StatementReason badHex = StatementReason::BadHexInValue);

// The bytes that `text` stands for, hexadecimal substrings replaced, up to the first zero byte,
// where a packed string ends: their number, and as many of them as fit in `out`. False for an odd
// or other digit between the angle brackets; a bracket never closed is open to the end.
bool DecodeHexSubstrings(Text text, std::span<char> out, uint32_t* length);

// The next run of non-blanks, at most 39 characters of it; false when nothing is left.
bool NextToken(Text& rest, Text& token);

// Text begins with word, and ends or has a blank there.
bool MatchWord(Text word, Text text);

struct WordRow {
    Text word;
    uint16_t value;
};
// The value of the first row that matches, false and *value untouched when none does.
template <size_t Rows>
bool LookupWord(const WordRow (&table)[Rows], Text text, uint16_t* value) {
    for (const WordRow& row : table) {
        if (MatchWord(row.word, text)) {
            *value = row.value;
            return true;
        }
    }
    return false;
}

// These read what the text begins with and leave *value alone when that is no number.
// Digits with an optional minus sign; a negative number is 0; digits wrap in 32 bits.
bool ParseInteger(uint32_t* value, Text text);
// The same with a fraction, of which five digits count, as 24.8.
bool ParseReal(uint32_t* value, Text text);
// True or False as a word; anything else stores 0 and gives false.
bool ParseBoolean(uint32_t* value, Text text);

// Without one leading asterisk; empty when nothing is left.
Text StripAsterisk(Text text);

// ---- Option model ----

// The feature of a well-known kind, made when the PPD names it first; null out of memory.
ParsedFeature* FindOrMakeFeature(ParseState& state, FeatureKind kind);
// The same by name, which may be a well-known one. The name is the file's text.
ParsedFeature* FindOrMakeFeature(ParseState& state, Text name);
// The feature of that name, or null.
ParsedFeature* FindFeature(const ParseState& state, Text name);
ParsedOption* FindOption(const ParseState& state, const ParsedFeature& feature, Text name);
// The option that the statement's option keyword names, with its translation; `stored` says
// whether that one is new. On a bad translation the option is there all the same.
Outcome FindOrMakeOption(ParseState& state, ParsedFeature& feature,
                         const StatementRecord& statement, ParsedOption** option);

Text NameOf(const ParseState& state, const ParsedFeature& feature);

struct OptionKeyword {
    Text keyword;
    uint16_t recordSize;  // of the option records in the packed block
    FeatureUIType uiType;
};
extern const OptionKeyword kOptionKeywordList[kFeatureKinds];
uint16_t OptionRecordSize(FeatureKind kind);

}  // namespace ksfax
