// Reads the PPD file statement by statement and hands each to its keyword's handler.

#include <algorithm>
#include <bit>

#include "platform/crc16.h"

#include "description/keyword_table.h"
#include "description/load_description.h"
#include "description/parse_state.h"

namespace ksfax {

namespace {

constexpr size_t kLongestPart = 40;  // main keyword, option keyword, translation
constexpr uint32_t kLongestFile = 0x7FFFFFFF;

// ---- Characters ----

enum CharacterClass : uint8_t {
    kKeywordCharacter = 1,      // 0x21 to 0x7E without the colon
    kOptionCharacter = 2,       // those without the slash
    kTranslationCharacter = 4,  // tab and 0x20 to 0x7E without the colon
    kBlank = 8,
    kLineEnd = 16,
};

constexpr auto kClasses = [] {
    struct Table {
        uint8_t flags[256];
    } table = {};
    for (unsigned c = 0x21; c <= 0x7E; ++c) {
        if (c != ':') {
            table.flags[c] = kKeywordCharacter | kTranslationCharacter;
            table.flags[c] |= c != '/' ? kOptionCharacter : 0;
        }
    }
    for (const uint8_t blank : {' ', '\t'}) {
        table.flags[blank] = kTranslationCharacter | kBlank;
    }
    for (const uint8_t end : {'\r', '\n'}) {
        table.flags[end] = kLineEnd;
    }
    return table;
}();

bool Is(CharacterClass wanted, char c) {
    return (kClasses.flags[static_cast<uint8_t>(c)] & wanted) != 0;
}

// Eight bytes that are `c`, marked by the top bit of the byte; exact up to the first mark.
uint64_t MarkBytes(uint64_t word, char c) {
    constexpr uint64_t kOnes = 0x0101010101010101;
    const uint64_t differences = word ^ (kOnes * static_cast<uint8_t>(c));
    return (differences - kOnes) & ~differences & (kOnes << 7);
}

// The first line end or, when `alsoSlash`, slash from `place` on; `end` when there is none.
template <bool alsoSlash>
const char* FindValueEnd(const char* place, const char* end) {
    for (; end - place >= 8; place += 8) {
        uint64_t word = 0;
        std::memcpy(&word, place, sizeof(word));
        uint64_t marks = MarkBytes(word, '\n') | MarkBytes(word, '\r');
        if constexpr (alsoSlash) {
            marks |= MarkBytes(word, '/');
        }
        if (marks != 0) {
            return place + (std::countr_zero(marks) >> 3);
        }
    }
    while (place != end && !Is(kLineEnd, *place) && !(alsoSlash && *place == '/')) {
        ++place;
    }
    return place;
}

// ---- Statements ----

struct FileReader {
    const char* next;
    const char* end;
    const char* bad;  // the character that made the latest statement bad
};

Result Reject(FileReader& file, const char* place, StatementReason why, StatementReason* reason) {
    file.bad = place;
    file.next = place + 1;
    *reason = why;
    return Result::Bad;
}

// Reads one part of a statement; Handled leaves file.next at the character after it.
Result ReadPart(FileReader& file, CharacterClass wanted, Text& part, StatementReason tooLong,
                StatementReason* reason) {
    const char* const start = file.next;
    const char* const limit =
        start + std::min(static_cast<size_t>(file.end - start), kLongestPart + 1);
    const char* place = start;
    while (place != limit && Is(wanted, *place)) {
        ++place;
    }
    part = {start, static_cast<size_t>(place - start)};
    if (part.size() > kLongestPart) {
        file.bad = start;
        *reason = tooLong;
        return Result::Fatal;
    }
    file.next = place;
    return place == file.end ? Result::EndOfFile : Result::Handled;
}

bool SkipBlanks(FileReader& file) {
    while (file.next != file.end && Is(kBlank, *file.next)) {
        ++file.next;
    }
    return file.next != file.end;
}

// Past the line end at or after `place`; false when the file ends before one.
bool SkipLine(FileReader& file, const char* place) {
    place = FindValueEnd<false>(place, file.end);
    file.next = place == file.end ? place : place + 1;
    return place != file.end;
}

// Leaves file.next after the next asterisk that begins a statement; false at the file's end.
bool FindStatement(FileReader& file) {
    while (file.next != file.end) {
        const char* const place = file.next;
        if (*place == '*' && (place + 1 == file.end || place[1] != '%')) {
            file.next = place + 1;
            return true;
        }
        SkipLine(file, place);
    }
    return false;
}

// Reads the next statement. EndOfFile with a start set means that the file ends inside it.
Result ReadStatement(StatementRecord& statement, FileReader& file, StatementReason* reason) {
    statement = {};
    if (!FindStatement(file)) {
        return Result::EndOfFile;
    }
    statement.start = file.next - 1;
    // No part of an unread statement may lie outside the file.
    const Text nothing(file.next, 0);
    statement.keyword = statement.option = statement.translation = statement.value = nothing;
    if (file.next == file.end) {
        return Result::EndOfFile;
    }

    if (!Is(kKeywordCharacter, *file.next)) {
        return Reject(file, file.next, StatementReason::BadKeyword, reason);
    }
    Result result = ReadPart(file, kKeywordCharacter, statement.keyword,
                             StatementReason::KeywordTooLong, reason);
    if (result != Result::Handled) {
        return result;
    }
    if (!SkipBlanks(file)) {
        return Result::EndOfFile;
    }
    if (Is(kLineEnd, *file.next)) {
        ++file.next;
        return Result::Handled;
    }

    if (*file.next != ':') {
        if (!Is(kOptionCharacter, *file.next)) {
            return Reject(file, file.next, StatementReason::BadOption, reason);
        }
        result = ReadPart(file, kOptionCharacter, statement.option, StatementReason::OptionTooLong,
                          reason);
        if (result != Result::Handled) {
            return result;
        }
        if (!SkipBlanks(file)) {
            return Result::EndOfFile;
        }
        if (*file.next == '/') {
            ++file.next;
            result = ReadPart(file, kTranslationCharacter, statement.translation,
                              StatementReason::TranslationTooLong, reason);
            if (result != Result::Handled) {
                return result;
            }
        }
        if (*file.next != ':') {
            return Reject(file, file.next, StatementReason::MissingColon, reason);
        }
    }
    ++file.next;
    if (!SkipBlanks(file)) {
        return Result::EndOfFile;
    }

    const char* const start = file.next;
    if (*start == '"') {
        const auto* close = static_cast<const char*>(
            std::memchr(start + 1, '"', static_cast<size_t>(file.end - start - 1)));
        if (close == nullptr) {
            file.next = file.end;
            return Result::EndOfFile;
        }
        statement.value = {start + 1, static_cast<size_t>(close - start - 1)};
        statement.type = ValueType::Quoted;
        return SkipLine(file, close + 1) ? Result::Handled : Result::EndOfFile;
    }
    const char* const stop = FindValueEnd<true>(start, file.end);
    statement.value = {start, static_cast<size_t>(stop - start)};
    statement.type = statement.value.starts_with('^') ? ValueType::Symbol : ValueType::String;
    return SkipLine(file, stop) ? Result::Handled : Result::EndOfFile;
}

// ---- Dispatch ----

bool HasForm(uint8_t form, const StatementRecord& statement, bool isEmpty) {
    switch (form) {
    case kAnyValue:
        return true;
    case kQuoted:
        return statement.type == ValueType::Quoted;
    case kQuotedOrString:
        return statement.type == ValueType::Quoted || statement.type == ValueType::String;
    case kNonEmptyString:
        return statement.type == ValueType::String && !isEmpty;
    default:
        return false;
    }
}

constexpr Text kDefaultPrefix = "Default";

Result DispatchStatement(ParseState& state, StatementRecord& statement) {
    const Text keyword = statement.keyword;
    if (keyword.front() == '?') {
        return Ignored(state, StatementReason::QueryKeyword);
    }
    // A value that holds a zero byte is what stands before it; its form goes by the whole.
    const bool isEmpty = statement.value.empty();
    if (state.hasZeroBytes) {
        statement.value = statement.value.substr(0, statement.value.find('\0'));
    }
    if (state.openFeature != nullptr) {
        const Text open = NameOf(state, *state.openFeature);
        if (keyword == open) {
            return StoreOptionOf(state, *state.openFeature, statement);
        }
        if (keyword.size() == open.size() + kDefaultPrefix.size() &&
            keyword.starts_with(kDefaultPrefix) && keyword.ends_with(open)) {
            return StoreDefaultOf(state, *state.openFeature, statement);
        }
    }

    const KeywordRow* row = FindKeyword(keyword);
    if (row == nullptr) {
        return Ignored(state, StatementReason::UnknownKeyword);
    }
    if (row->handler == nullptr) {
        return Ignored(state, StatementReason::NoEffect);
    }
    const bool takesOption = (row->syntax & kOptionRequired) != 0;
    if (takesOption == statement.option.empty()) {
        return Bad(state, takesOption ? StatementReason::OptionMissing
                                      : StatementReason::OptionNotAllowed);
    }
    if (!HasForm(row->syntax & kValueForm, statement, isEmpty)) {
        return Bad(state, StatementReason::ValueForm);
    }
    const unsigned number = RowNumber(row);
    uint64_t& seen = state.seenRows[number / 64];
    const uint64_t mark = uint64_t{1} << number % 64;
    if ((seen & mark) != 0 && (row->syntax & (kRepeatable | kOptionRequired)) == 0) {
        return Ignored(state, StatementReason::RepeatedKeyword);
    }
    const Result result = row->handler(state, statement);
    if (result == Result::Handled) {
        seen |= mark;
    }
    return result;
}

// ---- The whole file ----

// Whether a reason goes with a statement that was read and did nothing.
bool IsIgnored(StatementReason reason) {
    switch (reason) {
    case StatementReason::QueryKeyword:
    case StatementReason::UnknownKeyword:
    case StatementReason::NoEffect:
    case StatementReason::RepeatedKeyword:
    case StatementReason::FeatureNotOpened:
    case StatementReason::GroupNotRecorded:
    case StatementReason::FontNotBuiltIn:
    case StatementReason::FontRepeated:
    case StatementReason::UnknownParameter:
    case StatementReason::ValueAlreadyStored:
    case StatementReason::CustomSizeNotTrue:
        return true;
    default:
        return false;
    }
}

void Report(const ParseState& state, const FileReader& file, const StatementRecord& statement,
            const ParseObserver& observer, Result result) {
    if (observer.statement == nullptr) {
        return;
    }
    StatementOutcome outcome = StatementOutcome::Stored;
    if (result == Result::Fatal) {
        outcome = StatementOutcome::Fatal;
    } else if (result != Result::Handled) {
        outcome = StatementOutcome::Dropped;
    } else if (IsIgnored(state.reason)) {
        outcome = StatementOutcome::Ignored;
    }
    const char* const place = file.bad != nullptr ? file.bad : statement.start;
    const StatementReport report = {
        .line = state.LineOf(state.OffsetOf(statement.start)),
        .position = state.OffsetOf(place),
        .badLine = state.LineOf(state.OffsetOf(place)),
        .keyword = statement.keyword,
        .option = statement.option,
        .translation = statement.translation,
        .value = statement.value,
        .type = statement.type,
        .outcome = outcome,
        .reason = state.reason,
    };
    observer.statement(observer.context, report);
}

// True when the whole file was read.
bool ParseStatements(ParseState& state, const ParseObserver* observer) {
    FileReader file = {.next = state.text, .end = state.text + state.textLength, .bad = nullptr};
    StatementRecord statement;
    for (;;) {
        state.reason = StatementReason::None;
        Result result = ReadStatement(statement, file, &state.reason);
        if (result == Result::EndOfFile) {
            if (observer != nullptr && statement.start != nullptr) {
                state.reason = StatementReason::CutShort;
                Report(state, file, statement, *observer, result);
            }
            return true;
        }
        if (result == Result::Handled) {
            result = DispatchStatement(state, statement);
        }
        if (observer != nullptr) {
            Report(state, file, statement, *observer, result);
            file.bad = nullptr;
        }
        if (result == Result::Fatal) {
            return false;
        }
    }
}

// Where each line begins, for the observer. A carriage return-line feed pair ends one line.
void RecordLineStarts(ParseState& state) {
    const char* const end = state.text + state.textLength;
    const auto nextLine = [&](const char* place) {
        place = FindValueEnd<false>(place, end);
        if (place != end) {
            place += *place == '\r' && place + 1 != end && place[1] == '\n' ? 2 : 1;
        }
        return place;
    };
    uint32_t count = 0;
    for (const char* place = state.text; place != end; place = nextLine(place)) {
        ++count;
    }
    auto* starts = state.pool.Make<uint32_t>(count);
    if (starts == nullptr) {
        return;
    }
    uint32_t line = 0;
    for (const char* place = state.text; place != end; place = nextLine(place)) {
        starts[line++] = state.OffsetOf(place);
    }
    state.lineStarts = starts;
    state.lineCount = count;
}

void SetInitialValues(PrinterDescription& header) {
    constexpr uint32_t kWaitTimeout = 240;
    constexpr uint32_t kScreenAngle = 45 * 256;
    constexpr uint32_t kScreenFreq = 60 * 256;
    header.LanguageLevel = 1;
    header.SuggestedWaitTimeout = kWaitTimeout;
    header.ScreenAngle = kScreenAngle;
    header.ScreenFreq = kScreenFreq;
    header.DefaultFontSetting = 1;
}

// The arena's first block fits the records of an ordinary PPD of that size, so that one
// allocation does for nearly all.
size_t FirstBlockRoom(size_t textLength) {
    constexpr size_t kLeast = sizeof(ParseState) + 1024;
    return kLeast + textLength / 2;
}

uint32_t NameSlots(size_t textLength) {
    constexpr size_t kBytesPerName = 64;
    constexpr size_t kLeast = 64;
    return static_cast<uint32_t>(std::bit_ceil(std::max(textLength / kBytesPerName, kLeast)));
}

ParseState* MakeState(std::string_view text, const WCHAR* path) {
    ParsePool pool;
    if (text.empty() || text.size() > kLongestFile || !pool.Open(FirstBlockRoom(text.size()))) {
        return nullptr;
    }
    size_t pathLength = 0;
    while (path[pathLength] != 0) {
        ++pathLength;
    }
    auto* state = pool.Make<ParseState>();
    auto* pathCopy = pool.Make<WCHAR>(pathLength + 1);
    if (state == nullptr || pathCopy == nullptr) {
        pool.Release();
        return nullptr;
    }
    std::copy_n(path, pathLength, pathCopy);
    state->pool = pool;
    state->text = text.data();
    state->textLength = static_cast<uint32_t>(text.size());
    state->path = pathCopy;
    state->pathLength = static_cast<uint32_t>(pathLength);
    state->hasZeroBytes = std::memchr(text.data(), 0, text.size()) != nullptr;
    SetInitialValues(state->header);
    if (!state->names.Open(state->pool, NameSlots(text.size()))) {
        ReleaseParse(state);
        return nullptr;
    }
    return state;
}

}  // namespace

void ReleaseParse(ParseState* state) {
    if (state->view != nullptr) {
        UnmapViewOfFile(state->view);
    }
    // The state lies in the pool's own memory.
    ParsePool pool = state->pool;
    pool.Release();
}

ParseState* ParsePpdText(std::string_view text, const WCHAR* path, const ParseObserver* observer) {
    ParseState* state = MakeState(text, path);
    if (state == nullptr) {
        return nullptr;
    }
    if (observer != nullptr) {
        RecordLineStarts(*state);
    }
    if (!ParseStatements(*state, observer)) {
        ReleaseParse(state);
        return nullptr;
    }
    // Every byte has been read by now.
    state->header.Checksum = platform::Crc16(text.data(), text.size());
    return state;
}

ParseState* ParsePpdFile(const WCHAR* path, const ParseObserver* observer) {
    platform::MappedView view;
    uint32_t size = 0;
    if (!MapFileReadOnly(path, &view, &size)) {
        return nullptr;
    }
    ParseState* state = ParsePpdText({static_cast<const char*>(view.get()), size}, path, observer);
    if (state != nullptr) {
        state->view = view.release();
    }
    return state;
}

}  // namespace ksfax
