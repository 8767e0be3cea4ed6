#include "description/parse_state.h"

#include <algorithm>
#include <array>
#include <utility>

#include "platform/byte_scan.h"

#include "description/keyword_table.h"

namespace ksfax {

// ---- Arena ----

struct ParsePool::Block {
    Block* older;
};

bool ParsePool::AddBlock(size_t room) {
    // Blocks that grow with what has been taken keep their number small for any file.
    room = std::max(room, total_ / 2);
    auto* block = static_cast<Block*>(GlobalAlloc(GMEM_FIXED, sizeof(Block) + room));
    if (block == nullptr) {
        return false;
    }
    block->older = newest_;
    newest_ = block;
    next_ = reinterpret_cast<uint8_t*>(block + 1);
    left_ = room;
    total_ += room;
    return true;
}

bool ParsePool::Open(size_t room) {
    return AddBlock(room);
}

void ParsePool::Release() {
    // The pool itself may lie in one of the blocks.
    Block* block = std::exchange(newest_, nullptr);
    while (block != nullptr) {
        GlobalFree(std::exchange(block, block->older));
    }
}

// ---- Name index ----

namespace {

uint64_t LoadUpTo8(const char* bytes, size_t count) {
    if (count >= 8) {
        uint64_t word = 0;
        std::memcpy(&word, bytes, 8);
        return word;
    }
    if (count >= 4) {
        uint32_t low = 0;
        uint32_t high = 0;
        std::memcpy(&low, bytes, 4);
        std::memcpy(&high, bytes + count - 4, 4);
        return low | static_cast<uint64_t>(high) << 32;
    }
    uint64_t word = 0;
    for (size_t i = 0; i < count; ++i) {
        word = word << 8 | static_cast<uint8_t>(bytes[i]);
    }
    return word;
}

uint64_t Mix(uint64_t a, uint64_t b) {
    const auto product = static_cast<unsigned __int128>(a) * b;
    return static_cast<uint64_t>(product) ^ static_cast<uint64_t>(product >> 64);
}

bool HasName(const char* text, const NamedRecord& record, Text name) {
    return record.nameLength == name.size() &&
           (name.empty() || std::memcmp(text + record.nameOffset, name.data(), name.size()) == 0);
}

}  // namespace

bool NameIndex::Allocate(uint32_t slots) {
    constexpr size_t kSlotBytes = sizeof(NamedRecord*) + sizeof(uint32_t);
    void* memory = GlobalAlloc(GMEM_FIXED, slots * kSlotBytes);
    if (memory == nullptr) {
        return false;
    }
    records_ = static_cast<NamedRecord**>(memory);
    keys_ = reinterpret_cast<uint32_t*>(records_ + slots);
    std::memset(keys_, 0, slots * sizeof(uint32_t));
    mask_ = slots - 1;
    return true;
}

bool NameIndex::Open(uint32_t slots) {
    const bool done = Allocate(slots);
    // Where the system has put the table and this thread's stack, spread over all bits.
    seed_ = Mix(reinterpret_cast<uintptr_t>(records_), 0x9E3779B97F4A7C15);
    multiplier_ = Mix(reinterpret_cast<uintptr_t>(&done), 0xA0761D6478BD642F) | 1;
    return done;
}

void NameIndex::Release() {
    GlobalFree(std::exchange(records_, nullptr));
}

uint32_t NameIndex::KeyOf(uint32_t owner, Text name) const {
    // Owner and length side by side, so that no part of a name can undo either.
    uint64_t hash = Mix(seed_ ^ (static_cast<uint64_t>(owner) << 32 | name.size()), multiplier_);
    for (; name.size() > 8; name.remove_prefix(8)) {
        hash = Mix(hash ^ LoadUpTo8(name.data(), 8), multiplier_);
    }
    hash = Mix(hash ^ LoadUpTo8(name.data(), name.size()), multiplier_);
    const auto key = static_cast<uint32_t>(hash ^ hash >> 32);
    return key != 0 ? key : 1;
}

NamedRecord* NameIndex::Find(const char* text, uint32_t key, uint32_t owner, Text name) const {
    for (uint32_t slot = key & mask_; keys_[slot] != 0; slot = (slot + 1) & mask_) {
        if (keys_[slot] == key && records_[slot]->owner == owner &&
            HasName(text, *records_[slot], name)) {
            return records_[slot];
        }
    }
    return nullptr;
}

void NameIndex::Put(uint32_t key, NamedRecord* record) {
    uint32_t slot = key & mask_;
    while (keys_[slot] != 0) {
        slot = (slot + 1) & mask_;
    }
    keys_[slot] = key;
    records_[slot] = record;
}

bool NameIndex::Insert(uint32_t key, NamedRecord* record) {
    if (used_ >= mask_ - mask_ / 8) {
        const uint32_t oldSlots = mask_ + 1;
        NamedRecord** const oldRecords = records_;
        const uint32_t* const oldKeys = keys_;
        if (oldSlots > UINT32_MAX / 4 || !Allocate(oldSlots * 2)) {
            return false;
        }
        for (uint32_t slot = 0; slot < oldSlots; ++slot) {
            if (oldKeys[slot] != 0) {
                Put(oldKeys[slot], oldRecords[slot]);
            }
        }
        GlobalFree(oldRecords);
    }
    Put(key, record);
    ++used_;
    return true;
}

uint32_t ParseState::LineOf(uint32_t offset) const {
    return lineStarts == nullptr
               ? 0
               : static_cast<uint32_t>(
                     std::upper_bound(lineStarts, lineStarts + lineCount, offset) - lineStarts);
}

// ---- Value conversions ----

namespace {

bool IsDigit(char c) {
    return c >= '0' && c <= '9';
}

// -1 for what is none.
constexpr auto kHexDigits = [] {
    std::array<int8_t, 256> digits{};
    digits.fill(-1);
    for (int8_t digit = 0; digit < 16; ++digit) {
        digits[static_cast<uint8_t>("0123456789ABCDEF"[digit])] = digit;
        digits[static_cast<uint8_t>("0123456789abcdef"[digit])] = digit;
    }
    return digits;
}();

int HexDigit(char c) {
    return kHexDigits[static_cast<uint8_t>(c)];
}

// Reads digits from the front of `text`; at most `counted` of them make the number.
struct Digits {
    uint32_t number = 0;
    unsigned counted = 0;
    bool any = false;
};
Digits TakeDigits(Text& text, unsigned limit) {
    Digits digits;
    size_t length = 0;
    for (; length < text.size() && IsDigit(text[length]); ++length) {
        digits.any = true;
        if (digits.counted < limit) {
            digits.number = digits.number * 10 + static_cast<uint32_t>(text[length] - '0');
            ++digits.counted;
        }
    }
    text.remove_prefix(length);
    return digits;
}

bool TakeMinus(Text& text) {
    const bool negative = text.starts_with('-');
    text.remove_prefix(negative ? 1 : 0);
    return negative;
}

}  // namespace

bool DecodeHexSubstrings(Text text, std::span<char> out, uint32_t* length) {
    // A run of other characters is over where a substring begins; a zero byte ends the string.
    constexpr auto kRunEnd = [](platform::SixteenBytes c) { return (c == '<') | (c == 0); };
    const char* place = text.data();
    const char* const end = place + text.size();
    size_t written = 0;
    bool ended = false;
    while (place != end) {
        const char* const run = place;
        place = platform::FindByte(place, end, kRunEnd);
        if (!ended) {
            const auto count = static_cast<size_t>(place - run);
            if (written < out.size()) {
                std::copy_n(run, std::min(count, out.size() - written), &out[written]);
            }
            written += count;
        }
        if (place == end) {
            break;
        }
        if (*place++ == 0) {
            ended = true;
            continue;
        }
        for (; place != end && *place != '>'; place += 2) {
            if (end - place < 2) {
                return false;
            }
            const int high = HexDigit(place[0]);
            const int low = HexDigit(place[1]);
            if ((high | low) < 0) {
                return false;
            }
            const int byte = high << 4 | low;
            ended = ended || byte == 0;
            if (!ended) {
                if (written < out.size()) {
                    out[written] = static_cast<char>(byte);
                }
                ++written;
            }
        }
        place += place != end ? 1 : 0;
    }
    *length = static_cast<uint32_t>(written);
    return true;
}

Outcome StoreValue(ParseState& state, StoredText& target, Text text, TextMode mode,
                   StatementReason badHex) {
    if (target) {
        return Ignored(StatementReason::ValueAlreadyStored);
    }
    auto length = static_cast<uint32_t>(text.size());
    if (mode == TextMode::Hex && text.find('<') != Text::npos) {
        uint32_t decoded = 0;
        if (!DecodeHexSubstrings(text, {}, &decoded)) {
            return Bad(badHex);
        }
        length |= StoredText::kHex;
    }
    target = {.offset = state.OffsetOf(text.data()), .lengthAndHex = length};
    return kStored;
}

bool NextToken(Text& rest, Text& token) {
    constexpr size_t kLongestToken = 39;
    const char* next = rest.data();
    const char* const end = next + rest.size();
    while (next != end && IsBlank(*next)) {
        ++next;
    }
    const char* const start = next;
    while (next != end && !IsBlank(*next)) {
        ++next;
    }
    rest = {next, static_cast<size_t>(end - next)};
    token = {start, std::min(static_cast<size_t>(next - start), kLongestToken)};
    return !token.empty();
}

bool MatchWord(Text word, Text text) {
    return text.starts_with(word) && (text.size() == word.size() || IsBlank(text[word.size()]));
}

bool ParseInteger(uint32_t* value, Text text) {
    const bool negative = TakeMinus(text);
    const Digits digits = TakeDigits(text, UINT32_MAX);
    if (!digits.any) {
        return false;
    }
    *value = negative ? 0 : digits.number;
    return true;
}

bool ParseReal(uint32_t* value, Text text) {
    constexpr unsigned kFractionDigits = 5;
    const bool negative = TakeMinus(text);
    const Digits whole = TakeDigits(text, UINT32_MAX);
    Digits fraction;
    if (text.starts_with('.')) {
        text.remove_prefix(1);
        fraction = TakeDigits(text, kFractionDigits);
    }
    if (!whole.any && !fraction.any) {
        return false;
    }
    uint32_t denominator = 1;
    for (unsigned i = 0; i < fraction.counted; ++i) {
        denominator *= 10;
    }
    *value =
        negative ? 0 : whole.number * 256 + (fraction.number * 256 + denominator / 2) / denominator;
    return true;
}

bool ParseBoolean(uint32_t* value, Text text) {
    *value = MatchWord("True", text) ? 1 : 0;
    return *value != 0 || MatchWord("False", text);
}

Text StripAsterisk(Text text) {
    text.remove_prefix(text.starts_with('*') ? 1 : 0);
    return text;
}

// ---- Option model ----

constinit const OptionKeyword kOptionKeywordList[kFeatureKinds] = {
    {"PageSize", sizeof(PaperOptionRecord), FeatureUIType::PickOne},
    {"InputSlot", sizeof(SlotOptionRecord), FeatureUIType::PickOne},
    {"ManualFeed", sizeof(OptionRecord), FeatureUIType::Boolean},
    {"Duplex", sizeof(OptionRecord), FeatureUIType::PickOne},
    {"Collate", sizeof(OptionRecord), FeatureUIType::Boolean},
    {"Resolution", sizeof(ResolutionOptionRecord), FeatureUIType::PickOne},
    {"VMOption", sizeof(MemoryOptionRecord), FeatureUIType::PickOne},
    {"MediaType", sizeof(OptionRecord), FeatureUIType::PickOne},
    {"MultiplePage", sizeof(OptionRecord), FeatureUIType::PickOne},
    {"TonerSaveMode", sizeof(OptionRecord), FeatureUIType::PickOne},
    {"PageProtect", sizeof(OptionRecord), FeatureUIType::PickOne},
    {"HRC", sizeof(OptionRecord), FeatureUIType::PickOne},
    {"GraphicsMode", sizeof(OptionRecord), FeatureUIType::PickOne},
    {"Paper", sizeof(PaperOptionRecord), FeatureUIType::PickOne},
    {"TTMODE", sizeof(OptionRecord), FeatureUIType::PickOne},
    {"SaveMacro", sizeof(OptionRecord), FeatureUIType::PickOne},
    {"BiasVolt", sizeof(OptionRecord), FeatureUIType::PickOne},
};

uint16_t OptionRecordSize(FeatureKind kind) {
    return kind < FeatureKind::Generic ? kOptionKeywordList[static_cast<unsigned>(kind)].recordSize
                                       : uint16_t{sizeof(OptionRecord)};
}

Text NameOf(const ParseState& state, const ParsedFeature& feature) {
    return feature.kind < FeatureKind::Generic
               ? kOptionKeywordList[static_cast<unsigned>(feature.kind)].keyword
               : Text(state.text + feature.nameOffset, feature.nameLength);
}

namespace {

void AppendFeature(ParseState& state, ParsedFeature* feature, FeatureKind kind) {
    feature->kind = kind;
    feature->owner = kNoOwner;
    feature->number = state.features.count;
    state.features.Append(feature);
}

// Option records by kind: the Paper feature's are packed at full size but only ever fill the
// common part.
ParsedOption* MakeOption(ParsePool& pool, FeatureKind kind) {
    switch (kind) {
    case FeatureKind::PageSize:
        return pool.Make<ParsedPaper>();
    case FeatureKind::InputSlot:
        return pool.Make<ParsedSlot>();
    case FeatureKind::Resolution:
        return pool.Make<ParsedResolution>();
    case FeatureKind::VMOption:
        return pool.Make<ParsedMemory>();
    default:
        return pool.Make<ParsedOption>();
    }
}

}  // namespace

ParsedFeature* FindOrMakeFeature(ParseState& state, FeatureKind kind) {
    ParsedFeature*& known = state.featureByKind[static_cast<unsigned>(kind)];
    if (known == nullptr) {
        known = state.pool.Make<ParsedFeature>();
        if (known != nullptr) {
            const OptionKeyword& row = kOptionKeywordList[static_cast<unsigned>(kind)];
            known->uiType = row.uiType;
            known->installable = kind == FeatureKind::VMOption;
            AppendFeature(state, known, kind);
        }
    }
    return known;
}

ParsedFeature* FindOrMakeFeature(ParseState& state, Text name) {
    const FeatureKind kind = FeatureKindByName(name);
    if (kind != FeatureKind::Generic) {
        return FindOrMakeFeature(state, kind);
    }
    const uint32_t key = state.names.KeyOf(kNoOwner, name);
    NamedRecord* found = state.names.Find(state.text, key, kNoOwner, name);
    if (found != nullptr) {
        return static_cast<ParsedFeature*>(found);
    }
    auto* feature = state.pool.Make<ParsedFeature>();
    if (feature == nullptr) {
        return nullptr;
    }
    feature->nameOffset = state.OffsetOf(name.data());
    feature->nameLength = static_cast<uint32_t>(name.size());
    feature->uiType = FeatureUIType::PickOne;
    feature->installable = state.inInstallableGroup;
    AppendFeature(state, feature, FeatureKind::Generic);
    return state.names.Insert(key, feature) ? feature : nullptr;
}

ParsedFeature* FindFeature(const ParseState& state, Text name) {
    const FeatureKind kind = FeatureKindByName(name);
    if (kind != FeatureKind::Generic) {
        return state.featureByKind[static_cast<unsigned>(kind)];
    }
    const uint32_t key = state.names.KeyOf(kNoOwner, name);
    return static_cast<ParsedFeature*>(state.names.Find(state.text, key, kNoOwner, name));
}

namespace {

// Up to here a feature's options are looked through one by one and none is in the index: most
// features never have more.
constexpr uint32_t kListedOptions = 8;

// A new option at the end of its feature's list; null when memory runs out.
ParsedOption* AppendOption(ParseState& state, ParsedFeature& feature, Text name) {
    ParsedOption* option = MakeOption(state.pool, feature.kind);
    if (option == nullptr) {
        return nullptr;
    }
    option->owner = feature.number;
    option->nameOffset = state.OffsetOf(name.data());
    option->nameLength = static_cast<uint32_t>(name.size());
    option->position = feature.optionCount++;
    (feature.lastOption != nullptr ? feature.lastOption->next : feature.firstOption) = option;
    feature.lastOption = option;
    if (feature.optionCount <= kListedOptions) {
        return option;
    }
    // The first one too many brings the others along.
    ParsedOption* added = feature.optionCount == kListedOptions + 1 ? feature.firstOption : option;
    for (; added != nullptr; added = added->next) {
        const Text addedName(state.text + added->nameOffset, added->nameLength);
        if (!state.names.Insert(state.names.KeyOf(feature.number, addedName), added)) {
            return nullptr;
        }
    }
    return option;
}

}  // namespace

ParsedOption* FindOption(const ParseState& state, const ParsedFeature& feature, Text name) {
    if (feature.optionCount > kListedOptions) {
        const uint32_t key = state.names.KeyOf(feature.number, name);
        return static_cast<ParsedOption*>(state.names.Find(state.text, key, feature.number, name));
    }
    ParsedOption* option = feature.firstOption;
    while (option != nullptr && !HasName(state.text, *option, name)) {
        option = option->next;
    }
    return option;
}

Outcome FindOrMakeOption(ParseState& state, ParsedFeature& feature,
                         const StatementRecord& statement, ParsedOption** option) {
    const Text name = statement.option;
    ParsedOption* found = FindOption(state, feature, name);
    if (found == nullptr) {
        found = AppendOption(state, feature, name);
        if (found == nullptr) {
            return kOutOfMemory;
        }
    }
    *option = found;
    if (statement.translation.empty() || found->translation) {
        return {.result = Result::Handled};
    }
    return StoreValue(state, found->translation, statement.translation, TextMode::Hex,
                      StatementReason::BadHexInTranslation);
}

}  // namespace ksfax
