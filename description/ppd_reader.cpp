// Reads the PPD file statement by statement and hands each to its keyword's handler.

#include <algorithm>
#include <bit>

#include "platform/byte_scan.h"
#include "platform/crc16.h"

#include "description/keyword_table.h"
#include "description/load_description.h"
#include "description/parse_state.h"
#include "description/text.h"

namespace ksfax {

namespace {

constexpr size_t kLongestPart = 40;  // main keyword, option keyword, translation
constexpr uint32_t kLongestFile = 0x7FFFFFFF;

// ---- Characters ----
// What ends a part of a statement, tested on sixteen characters at once. Control characters and
// those from 128 on, which compare as negative, belong to no part.

using platform::FindByte;
using platform::SixteenBytes;

constexpr auto kLineEnd = [](SixteenBytes c) { return (c == '\n') | (c == '\r'); };
constexpr auto kKeywordEnd = [](SixteenBytes c) { return (c <= ' ') | (c == ':') | (c == 0x7F); };
constexpr auto kOptionEnd = [](SixteenBytes c) { return kKeywordEnd(c) | (c == '/'); };
constexpr auto kTranslationEnd = [](SixteenBytes c) {
    return ((c < ' ') & (c != '\t')) | (c == ':') | (c == 0x7F);
};
// A zero byte ends what is stored of a value; an unquoted one ends at its own translation.
constexpr auto kQuotedEnd = [](SixteenBytes c) { return (c == '"') | (c == 0); };
constexpr auto kUnquotedEnd = [](SixteenBytes c) { return kLineEnd(c) | (c == '/') | (c == 0); };

bool IsLineEnd(char c) {
    return c == '\n' || c == '\r';
}

// ---- Statements ----

struct FileReader {
    const char* next;
    const char* end;
    const char* bad;  // the character that made the latest statement bad
};

Outcome Reject(FileReader& file, const char* place, StatementReason reason) {
    file.bad = place;
    file.next = place + 1;
    return Bad(reason);
}

Outcome TooLong(FileReader& file, Text& part, StatementReason reason) {
    part = part.substr(0, kLongestPart + 1);
    file.bad = part.data();
    return {.result = Result::Fatal, .reason = reason};
}

template <typename Test>
Text PartUntil(Test isEnd, const char* start, const char* end) {
    return {start, static_cast<size_t>(FindByte(start, end, isEnd) - start)};
}

const char* EndOf(Text part) {
    return part.data() + part.size();
}

const char* SkipBlanks(const char* place, const char* end) {
    while (place != end && IsBlank(*place)) {
        ++place;
    }
    return place;
}

// Past the first line end from `place` on, or `end`.
const char* SkipLine(const char* place, const char* end) {
    place = FindByte(place, end, kLineEnd);
    return place == end ? place : place + 1;
}

// The next asterisk that begins a statement, or `end`.
const char* FindStatement(const char* place, const char* end) {
    while (place != end && !(*place == '*' && (place + 1 == end || place[1] != '%'))) {
        place = SkipLine(place, end);
    }
    return place;
}

// Reads the value that begins at `start`, and the rest of its line. False at the file's end.
bool ReadValue(StatementRecord& statement, FileReader& file, const char* start) {
    const char* const end = file.end;
    const bool isQuoted = *start == '"';
    start += isQuoted ? 1 : 0;
    const auto findEnd = [&](const char* place) {
        return isQuoted ? FindByte(place, end, kQuotedEnd) : FindByte(place, end, kUnquotedEnd);
    };
    const char* stop = findEnd(start);
    statement.hasZeroBytes = stop != end && *stop == 0;
    while (stop != end && *stop == 0) {
        stop = findEnd(stop + 1);
    }
    if (isQuoted && stop == end) {
        return false;
    }
    statement.value = {start, static_cast<size_t>(stop - start)};
    if (isQuoted) {
        statement.type = ValueType::Quoted;
    } else {
        statement.type = *start == '^' ? ValueType::Symbol : ValueType::String;
    }
    const char* const line = FindByte(stop, end, kLineEnd);
    file.next = line == end ? end : line + 1;
    return line != end;
}

// Reads the next statement; the file may end inside it or before it.
Outcome ReadStatement(StatementRecord& statement, FileReader& file) {
    constexpr Outcome kCutShort = {.result = Result::EndOfFile,
                                   .reason = StatementReason::CutShort};
    const char* const end = file.end;
    const char* place = FindStatement(file.next, end);
    file.next = end;
    if (place == end) {
        return {.result = Result::EndOfFile};
    }
    statement.start = place++;
    // No part of an unread statement may lie outside the file. One by one: copies of a text just
    // stored would wait for the two halves of it.
    statement.option = Text(place, 0);
    statement.translation = Text(place, 0);
    statement.value = Text(place, 0);
    statement.type = ValueType::None;
    statement.hasZeroBytes = false;

    statement.keyword = PartUntil(kKeywordEnd, place, end);
    if (place == end) {
        return kCutShort;
    }
    if (statement.keyword.empty()) {
        return Reject(file, place, StatementReason::BadKeyword);
    }
    if (statement.keyword.size() > kLongestPart) {
        return TooLong(file, statement.keyword, StatementReason::KeywordTooLong);
    }
    place = SkipBlanks(EndOf(statement.keyword), end);
    if (place == end) {
        return kCutShort;
    }
    if (IsLineEnd(*place)) {
        file.next = place + 1;
        return kStored;
    }

    if (*place != ':') {
        statement.option = PartUntil(kOptionEnd, place, end);
        if (statement.option.empty()) {
            return Reject(file, place, StatementReason::BadOption);
        }
        if (statement.option.size() > kLongestPart) {
            return TooLong(file, statement.option, StatementReason::OptionTooLong);
        }
        place = SkipBlanks(EndOf(statement.option), end);
        if (place != end && *place == '/') {
            statement.translation = PartUntil(kTranslationEnd, place + 1, end);
            if (statement.translation.size() > kLongestPart) {
                return TooLong(file, statement.translation, StatementReason::TranslationTooLong);
            }
            place = EndOf(statement.translation);
        }
        if (place == end) {
            return kCutShort;
        }
        if (*place != ':') {
            return Reject(file, place, StatementReason::MissingColon);
        }
    }
    place = SkipBlanks(place + 1, end);
    return place != end && ReadValue(statement, file, place) ? kStored : kCutShort;
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

Outcome DispatchStatement(ParseState& state, StatementRecord& statement) {
    const Text keyword = statement.keyword;
    if (keyword.front() == '?') {
        return Ignored(StatementReason::QueryKeyword);
    }
    // A value that holds a zero byte is what stands before it; its form goes by the whole.
    const bool isEmpty = statement.value.empty();
    if (statement.hasZeroBytes) {
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
        return Ignored(StatementReason::UnknownKeyword);
    }
    if (row->handler == nullptr) {
        return Ignored(StatementReason::NoEffect);
    }
    const bool takesOption = (row->syntax & kOptionRequired) != 0;
    if (takesOption == statement.option.empty()) {
        return Bad(takesOption ? StatementReason::OptionMissing
                               : StatementReason::OptionNotAllowed);
    }
    if (!HasForm(row->syntax & kValueForm, statement, isEmpty)) {
        return Bad(StatementReason::ValueForm);
    }
    const unsigned number = RowNumber(row);
    uint64_t& seen = state.seenRows[number / 64];
    const uint64_t mark = uint64_t{1} << number % 64;
    if ((seen & mark) != 0 && (row->syntax & (kRepeatable | kOptionRequired)) == 0) {
        return Ignored(StatementReason::RepeatedKeyword);
    }
    const Outcome outcome = row->handler(state, statement);
    if (outcome.handled()) {
        seen |= mark;
    }
    return outcome;
}

// ---- The whole file ----

void Report(const ParseState& state, const FileReader& file, const StatementRecord& statement,
            const ParseObserver& observer, Outcome outcome) {
    if (observer.statement == nullptr) {
        return;
    }
    auto reported = StatementOutcome::Dropped;
    if (outcome.result == Result::Fatal) {
        reported = StatementOutcome::Fatal;
    } else if (outcome.handled()) {
        reported = outcome.stored ? StatementOutcome::Stored : StatementOutcome::Ignored;
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
        .outcome = reported,
        .reason = outcome.reason,
    };
    observer.statement(observer.context, report);
}

// True when the whole file was read.
bool ParseStatements(ParseState& state, const ParseObserver* observer) {
    FileReader file = {.next = state.text, .end = state.text + state.textLength, .bad = nullptr};
    StatementRecord statement;
    for (;;) {
        Outcome outcome = ReadStatement(statement, file);
        if (outcome.handled()) {
            outcome = DispatchStatement(state, statement);
        }
        // The end of a file whose last statement is whole is nothing to speak of.
        if (observer != nullptr &&
            (outcome.result != Result::EndOfFile || outcome.reason == StatementReason::CutShort)) {
            Report(state, file, statement, *observer, outcome);
            file.bad = nullptr;
        }
        if (outcome.result == Result::EndOfFile || outcome.result == Result::Fatal) {
            return outcome.result == Result::EndOfFile;
        }
    }
}

// Where each line begins, for the observer. A carriage return-line feed pair ends one line.
void RecordLineStarts(ParseState& state) {
    const char* const end = state.text + state.textLength;
    const auto nextLine = [&](const char* place) {
        place = FindByte(place, end, kLineEnd);
        if (place != end) {
            place += *place == '\r' && place + 1 != end && place[1] == '\n' ? 2 : 1;
        }
        return place;
    };
    uint32_t count = 0;
    for (const char* place = state.text; place != end; place = nextLine(place)) {
        ++count;
    }
    auto* starts = state.pool.MakeMany<uint32_t>(count);
    if (starts == nullptr) {
        return;
    }
    // Another process may have added line ends since they were counted.
    uint32_t line = 0;
    for (const char* place = state.text; place != end && line < count; place = nextLine(place)) {
        starts[line++] = state.OffsetOf(place);
    }
    state.lineStarts = starts;
    state.lineCount = line;
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
    constexpr size_t kLeast = sizeof(ParseState) + 256;
    return kLeast + textLength / 3;
}

// Slots for the names of an ordinary PPD; one of many options grows them as it goes.
uint32_t NameSlots(size_t textLength) {
    constexpr size_t kBytesPerSlot = 128;
    constexpr size_t kLeast = 32;
    return static_cast<uint32_t>(std::bit_ceil(std::max(textLength / kBytesPerSlot, kLeast)));
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
    auto* pathCopy = pool.MakeMany<WCHAR>(pathLength + 1);
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
    SetInitialValues(state->header);
    if (!state->names.Open(NameSlots(text.size()))) {
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
    state->names.Release();
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
