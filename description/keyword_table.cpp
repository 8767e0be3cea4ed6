#include "description/keyword_table.h"

#include <algorithm>
#include <array>
#include <utility>

#include "description/device_fonts.h"
#include "description/word_index.h"

namespace ksfax {

namespace {

using Header = PrinterDescription;
using Reason = StatementReason;
using enum FeatureKind;

// ---- Header fields ----

template <uint32_t Header::*Field>
Outcome StoreInteger(ParseState& state, const StatementRecord& statement) {
    return ParseInteger(&(state.header.*Field), statement.value) ? kStored
                                                                 : Bad(Reason::NotANumber);
}

template <uint32_t Header::*Field>
Outcome StoreReal(ParseState& state, const StatementRecord& statement) {
    return ParseReal(&(state.header.*Field), statement.value) ? kStored : Bad(Reason::NotANumber);
}

template <uint32_t Header::*Field>
Outcome StoreBoolean(ParseState& state, const StatementRecord& statement) {
    return ParseBoolean(&(state.header.*Field), statement.value) ? kStored
                                                                 : Doubtful(Reason::NotABoolean);
}

template <uint32_t Bit>
Outcome StoreMakerFlag(ParseState& state, const StatementRecord& statement) {
    uint32_t set = 0;
    const bool isBoolean = ParseBoolean(&set, statement.value);
    state.header.MakerFlags = (state.header.MakerFlags & ~Bit) | (set != 0 ? Bit : 0);
    return isBoolean ? kStored : Doubtful(Reason::NotABoolean);
}

template <uint16_t Header::*Field>
Outcome StorePrintRate(ParseState& state, const StatementRecord& statement) {
    uint32_t rate = 0;
    const bool isNumber = ParseInteger(&rate, statement.value);
    state.header.*Field = static_cast<uint16_t>(rate);
    return isNumber ? kStored : Doubtful(Reason::NotANumber);
}

template <StoredText ParseState::*Field, TextMode Mode>
Outcome StoreText(ParseState& state, const StatementRecord& statement) {
    return StoreValue(state, state.*Field, statement.value, Mode);
}

constexpr WordRow kProtocolWords[] = {{"PJL", 1}, {"BCP", 2}, {"TBCP", 4}, {"SIC", 8}};
constexpr WordRow kExtensionWords[] = {
    {"DPS", 1}, {"CMYK", 2}, {"Composite", 4}, {"FileSystem", 8}};
constexpr uint16_t kExtensionCmyk = 2;
constexpr WordRow kEncodingWords[] = {
    {"ISOLatin1", 1}, {"JIS83-RKSJ", 2}, {"MaxStandard", 3}, {"WindowsANSI", 4}, {"None", 0}};
// The encoding that a language is written in, for PPDs that name only the language.
constexpr WordRow kLanguageWords[] = {
    {"English", 1}, {"Danish", 1},  {"Dutch", 1},     {"Finnish", 1},    {"French", 1},
    {"German", 1},  {"Italian", 1}, {"Norwegian", 1}, {"Portuguese", 1}, {"Spanish", 1},
    {"Swedish", 1}, {"Chinese", 0}, {"Japanese", 2},  {"Russian", 0}};
constexpr WordRow kRasterizerWords[] = {
    {"None", 0}, {"Accept68k", 1}, {"Type42", 2}, {"TrueImage", 3}};
constexpr WordRow kOrientationWords[] = {{"Any", 0}, {"Plus90", 1}, {"Minus90", 2}};

template <size_t Rows>
Outcome StoreWord(uint16_t& field, const WordRow (&words)[Rows], Text value) {
    return LookupWord(words, value, &field) ? kStored : Ignored(Reason::UnknownWord);
}

template <size_t Rows>
Outcome CollectWords(uint16_t& bits, const WordRow (&words)[Rows], Text value) {
    Outcome outcome = kStored;
    bool known = false;
    Text token;
    while (NextToken(value, token)) {
        uint16_t bit = 0;
        if (LookupWord(words, token, &bit)) {
            known = true;
        } else {
            outcome = Ignored(Reason::UnknownWord);
        }
        bits |= bit;
    }
    outcome.stored |= known;
    return outcome;
}

Outcome StoreProtocols(ParseState& state, const StatementRecord& statement) {
    return CollectWords(state.header.Protocols, kProtocolWords, statement.value);
}

Outcome StoreExtensions(ParseState& state, const StatementRecord& statement) {
    uint16_t extensions = 0;
    const Outcome result = CollectWords(extensions, kExtensionWords, statement.value);
    state.header.Extensions |= extensions;
    if ((extensions & kExtensionCmyk) != 0) {
        state.header.ColorDevice = 1;
    }
    return result;
}

Outcome StoreLanguageEncoding(ParseState& state, const StatementRecord& statement) {
    return StoreWord(state.header.LanguageEncoding, kEncodingWords, statement.value);
}

Outcome StoreLanguageVersion(ParseState& state, const StatementRecord& statement) {
    if (state.header.LanguageEncoding != 0) {
        return Ignored(Reason::ValueAlreadyStored);
    }
    return StoreWord(state.header.LanguageEncoding, kLanguageWords, statement.value);
}

Outcome StoreRasterizer(ParseState& state, const StatementRecord& statement) {
    return StoreWord(state.header.TTRasterizer, kRasterizerWords, statement.value);
}

Outcome StoreLandscapeOrientation(ParseState& state, const StatementRecord& statement) {
    return StoreWord(state.header.LandscapeOrientation, kOrientationWords, statement.value);
}

Outcome StoreMargins(ParseState& state, const StatementRecord& statement) {
    uint32_t margins[4];
    Text rest = statement.value;
    for (uint32_t& margin : margins) {
        Text token;
        if (!NextToken(rest, token)) {
            return Bad(Reason::TooFewNumbers);
        }
        if (!ParseReal(&margin, token)) {
            return Bad(Reason::NotANumber);
        }
    }
    std::ranges::copy(margins, state.header.HWMargins);
    state.header.HasHWMargins = 1;
    return kStored;
}

Outcome StoreCustomPageSize(ParseState& state, const StatementRecord& statement) {
    uint32_t isTrue = 0;
    ParseBoolean(&isTrue, statement.option);
    if (isTrue == 0) {
        return Ignored(Reason::CustomSizeNotTrue);
    }
    state.header.CustomPageSize = 1;
    return StoreValue(state, state.CustomPageSizeCode, statement.value, TextMode::Plain);
}

Outcome StoreCustomParameter(ParseState& state, const StatementRecord& statement) {
    static constexpr WordRow kParameters[] = {
        {"Width", 0}, {"Height", 1}, {"WidthOffset", 2}, {"HeightOffset", 3}, {"Orientation", 4}};
    static constexpr WordRow kTypes[] = {{"int", 0}, {"real", 1}, {"points", 2}};
    constexpr uint32_t kLastOrder = 5;

    uint16_t parameter = 0;
    if (!LookupWord(kParameters, statement.option, &parameter)) {
        return Ignored(Reason::UnknownParameter);
    }
    Text rest = statement.value;
    Text token;
    CustomPageSizeParameter entry = {};
    if (!NextToken(rest, token) || !ParseInteger(&entry.Order, token)) {
        return Bad(Reason::NotANumber);
    }
    if (entry.Order < 1 || entry.Order > kLastOrder) {
        return Bad(Reason::OutOfRange);
    }
    if (!NextToken(rest, token)) {
        return Bad(Reason::TooFewNumbers);
    }
    // An unknown type ends the statement quietly, whatever the numbers after it are.
    if (!LookupWord(kTypes, token, &entry.Type)) {
        return Ignored(Reason::UnknownParameter);
    }
    for (uint32_t* bound : {&entry.Min, &entry.Max}) {
        if (!NextToken(rest, token)) {
            return Bad(Reason::TooFewNumbers);
        }
        if (!ParseReal(bound, token)) {
            return Bad(Reason::NotANumber);
        }
    }
    state.header.ParamCustomPageSize[parameter] = entry;
    return kStored;
}

Outcome AddFont(ParseState& state, const StatementRecord& statement) {
    const uint16_t id = DeviceFontId(statement.option);
    if (id == 0) {
        return Ignored(Reason::FontNotBuiltIn);
    }
    uint64_t& seen = state.fontsSeen[id / 64];
    const uint64_t mark = uint64_t{1} << id % 64;
    if ((seen & mark) != 0) {
        return Ignored(Reason::FontRepeated);
    }
    auto* font = state.pool.Make<ParsedFont>();
    if (font == nullptr) {
        return kOutOfMemory;
    }
    font->nameOffset = state.OffsetOf(statement.option.data());
    font->nameLength = static_cast<uint16_t>(statement.option.size());
    font->id = id;
    state.fonts.Append(font);
    seen |= mark;
    return StoreValue(state, font->description, statement.value, TextMode::Plain);
}

// ---- Options of the well-known features ----

// Finds or makes the statement's option in the feature of a kind, as the record of that kind.
template <FeatureKind Kind, typename Option>
Outcome OptionOf(ParseState& state, const StatementRecord& statement, Option** option) {
    ParsedFeature* feature = FindOrMakeFeature(state, Kind);
    if (feature == nullptr) {
        return kOutOfMemory;
    }
    ParsedOption* found = nullptr;
    const Outcome result = FindOrMakeOption(state, *feature, statement, &found);
    *option = static_cast<Option*>(found);
    return result;
}

// A later step's outcome, of a statement that may have stored something in an earlier one.
Outcome After(Outcome earlier, Outcome later) {
    later.stored |= earlier.stored;
    return later;
}

template <FeatureKind Kind, typename Option, StoredText Option::*Field,
          TextMode Mode = TextMode::Plain>
Outcome StoreInOption(ParseState& state, const StatementRecord& statement) {
    Option* option = nullptr;
    const Outcome result = OptionOf<Kind>(state, statement, &option);
    return result.handled()
               ? After(result, StoreValue(state, option->*Field, statement.value, Mode))
               : result;
}

template <FeatureKind Kind>
constexpr Handler kStoreInvocation = StoreInOption<Kind, ParsedOption, &ParsedOption::invocation>;

// *ImageableArea and its landscape twin: four to six numbers.
template <uint32_t (ParsedPaper::*Area)[4], uint32_t (ParsedPaper::*Extra)[2]>
Outcome StoreArea(ParseState& state, const StatementRecord& statement) {
    ParsedPaper* paper = nullptr;
    const Outcome result = OptionOf<PageSize>(state, statement, &paper);
    if (!result.handled()) {
        return result;
    }
    uint32_t numbers[6];
    unsigned count = 0;
    Text rest = statement.value;
    Text token;
    while (count < 6 && NextToken(rest, token) && ParseReal(&numbers[count], token)) {
        ++count;
    }
    if (count < 4) {
        return Bad(Reason::TooFewNumbers);
    }
    std::copy_n(numbers, 4, paper->*Area);
    (paper->*Extra)[0] = count == 6 ? numbers[4] : 0;
    (paper->*Extra)[1] = count == 6 ? numbers[5] : 0;
    return kStored;
}

Outcome StorePaperDimension(ParseState& state, const StatementRecord& statement) {
    ParsedPaper* paper = nullptr;
    const Outcome result = OptionOf<PageSize>(state, statement, &paper);
    if (!result.handled()) {
        return result;
    }
    Text rest = statement.value;
    for (uint32_t* side : {&paper->width, &paper->height}) {
        Text token;
        if (!NextToken(rest, token)) {
            return Bad(Reason::TooFewNumbers);
        }
        if (!ParseReal(side, token)) {
            return Bad(Reason::NotANumber);
        }
    }
    return kStored;
}

Outcome StoreInputSlot(ParseState& state, const StatementRecord& statement) {
    ParsedSlot* slot = nullptr;
    const Outcome result = OptionOf<InputSlot>(state, statement, &slot);
    if (!result.handled()) {
        return result;
    }
    Outcome outcome =
        After(result, StoreValue(state, slot->invocation, statement.value, TextMode::Plain));
    outcome.stored |= std::exchange(slot->requiresPageRegion, 1) == 0;
    return outcome;
}

Outcome StoreRequiresPageRegion(ParseState& state, const StatementRecord& statement) {
    uint32_t required = 0;
    const bool isBoolean = ParseBoolean(&required, statement.value);
    if (statement.option == "All") {
        ParsedFeature* feature = FindOrMakeFeature(state, InputSlot);
        if (feature == nullptr) {
            return kOutOfMemory;
        }
        if (!isBoolean) {
            return Bad(Reason::NotABoolean);
        }
        feature->flags |= required != 0 ? kPageRegionForAllSlots : kPageRegionForNoSlot;
        return kStored;
    }
    ParsedSlot* slot = nullptr;
    const Outcome result = OptionOf<InputSlot>(state, statement, &slot);
    if (!result.handled()) {
        return result;
    }
    slot->requiresPageRegion = required;
    return isBoolean ? kStored : Doubtful(Reason::NotABoolean);
}

// The statement counts as the resolution keyword read last even when it turns out to be bad.
template <uint16_t Keyword, typename Option, StoredText Option::*Field, TextMode Mode>
Outcome StoreResolution(ParseState& state, const StatementRecord& statement) {
    const bool isOther = std::exchange(state.header.ResolutionKeyword, Keyword) != Keyword;
    Outcome outcome = StoreInOption<Resolution, Option, Field, Mode>(state, statement);
    outcome.stored |= isOther;
    return outcome;
}

template <FeatureKind Kind, typename Option, uint32_t Option::*Field,
          bool (*Parse)(uint32_t*, Text)>
Outcome StoreNumberInOption(ParseState& state, const StatementRecord& statement) {
    Option* option = nullptr;
    const Outcome result = OptionOf<Kind>(state, statement, &option);
    if (!result.handled()) {
        return result;
    }
    return Parse(&(option->*Field), statement.value) ? kStored : Bad(Reason::NotANumber);
}

Outcome StoreInstalledMemory(ParseState& state, const StatementRecord& statement) {
    constexpr unsigned kAmountField = 2;
    constexpr uint32_t kKilobyte = 1024;
    constexpr size_t kLongestList = 29;

    ParsedMemory* memory = nullptr;
    const Outcome result = OptionOf<VMOption>(state, statement, &memory);
    if (!result.handled()) {
        return result;
    }
    Outcome outcome =
        After(result, StoreValue(state, memory->invocation, statement.value, TextMode::Plain));
    const Text invocation = state.TextOf(memory->invocation);
    uint32_t amount = 0;
    if (invocation.find_first_of(", \t") == Text::npos) {
        if (!ParseInteger(&amount, statement.value)) {
            return Bad(Reason::NotANumber);
        }
    } else {
        // One character more than a list may have is enough to tell that it is too long.
        char list[kLongestList + 2] = {};
        invocation.copy(list, kLongestList + 1);
        amount = GetNumberField(list, kAmountField) * kKilobyte;
    }
    outcome.stored |= std::exchange(memory->amount, amount) != amount;
    return outcome;
}

// ---- Defaults and features known by name alone ----

// A feature of which only the name is known, when the main keyword is it.
Outcome StoreGenericOption(ParseState& state, const StatementRecord& statement) {
    ParsedFeature* feature = FindOrMakeFeature(state, statement.keyword);
    return feature != nullptr ? StoreOptionOf(state, *feature, statement) : kOutOfMemory;
}

// The same when the main keyword is Default and the name.
Outcome StoreGenericDefault(ParseState& state, const StatementRecord& statement) {
    constexpr size_t kDefaultLength = 7;
    Text name = statement.keyword;
    name.remove_prefix(kDefaultLength);
    ParsedFeature* feature = FindOrMakeFeature(state, name);
    return feature != nullptr ? StoreDefaultOf(state, *feature, statement) : kOutOfMemory;
}

Outcome StoreJclResolutionDefault(ParseState& state, const StatementRecord& statement) {
    ParsedFeature* feature = FindOrMakeFeature(state, Resolution);
    return feature != nullptr ? StoreDefaultOf(state, *feature, statement) : kOutOfMemory;
}

// ---- Blocks and groups ----

Outcome OpenUI(ParseState& state, const StatementRecord& statement) {
    static constexpr WordRow kTypes[] = {
        {"PickOne", static_cast<uint16_t>(FeatureUIType::PickOne)},
        {"PickMany", static_cast<uint16_t>(FeatureUIType::PickMany)},
        {"Boolean", static_cast<uint16_t>(FeatureUIType::Boolean)}};
    state.openFeature = nullptr;
    const Text name = StripAsterisk(statement.option);
    if (name.empty()) {
        return Bad(Reason::NameMissing);
    }
    const KeywordRow* row = FindKeyword(name);
    if (row != nullptr && row->kind == Generic) {
        return Ignored(Reason::FeatureNotOpened);
    }
    auto type = static_cast<uint16_t>(FeatureUIType::PickOne);
    Outcome outcome =
        LookupWord(kTypes, statement.value, &type) ? kStored : Doubtful(Reason::UnknownWord);
    ParsedFeature* feature =
        row != nullptr ? FindOrMakeFeature(state, row->kind) : FindOrMakeFeature(state, name);
    if (feature == nullptr) {
        return kOutOfMemory;
    }
    feature->uiType = static_cast<FeatureUIType>(type);
    if (!statement.translation.empty()) {
        const Outcome translated = StoreValue(state, feature->translation, statement.translation,
                                              TextMode::Hex, Reason::BadHexInTranslation);
        if (!translated.handled()) {
            return translated;
        }
        if (!translated.stored) {
            outcome = Doubtful(translated.reason);
        }
    }
    if (feature->kind == Generic) {
        if (statement.keyword.starts_with("JCL")) {
            feature->flags |= kOpenedByJcl;
        }
        state.openFeature = feature;
    }
    return outcome;
}

Outcome CloseUI(ParseState& state, const StatementRecord& statement) {
    Text value = statement.value;
    while (!value.empty() && IsBlank(value.back())) {
        value.remove_suffix(1);
    }
    value = StripAsterisk(value);
    if (value.empty()) {
        return Bad(Reason::NameMissing);
    }
    if (state.openFeature != nullptr && MatchWord(NameOf(state, *state.openFeature), value)) {
        state.openFeature = nullptr;
        return kStored;
    }
    return FindKeyword(value) != nullptr ? kStored : Bad(Reason::NothingToClose);
}

template <bool Opens>
Outcome Group(ParseState& state, const StatementRecord& statement) {
    if (!MatchWord("InstallableOptions", statement.value)) {
        return Ignored(Reason::GroupNotRecorded);
    }
    if (state.inInstallableGroup == Opens) {
        return Bad(Opens ? Reason::GroupAlreadyOpen : Reason::GroupNotOpen);
    }
    state.inInstallableGroup = Opens;
    return kStored;
}

// ---- Constraints and order dependencies: their names are looked up when packing ----

Outcome AddConstraint(ParseState& state, const StatementRecord& statement) {
    Text names[4];  // feature 1, option 1, feature 2, option 2
    Text rest = statement.value;
    Text token;
    if (!NextToken(rest, token) || (names[0] = StripAsterisk(token)).empty()) {
        return Bad(Reason::NameMissing);
    }
    if (!NextToken(rest, token)) {
        return Bad(Reason::NameMissing);
    }
    if (!token.starts_with('*')) {
        names[1] = token;
        if (!NextToken(rest, token)) {
            return Bad(Reason::NameMissing);
        }
    }
    names[2] = StripAsterisk(token);
    if (names[2].empty()) {
        return Bad(Reason::NameMissing);
    }
    NextToken(rest, names[3]);

    auto* constraint = state.pool.Make<ParsedConstraint>();
    if (constraint == nullptr) {
        return kOutOfMemory;
    }
    for (unsigned i = 0; i < 4; ++i) {
        if (!names[i].empty()) {
            constraint->offsets[i] = state.OffsetOf(names[i].data());
            constraint->lengths[i] = static_cast<uint8_t>(names[i].size());
        }
    }
    state.constraints.Append(constraint);
    return kStored;
}

Outcome AddOrderDependency(ParseState& state, const StatementRecord& statement) {
    static constexpr WordRow kSections[] = {
        {"ExitServer", kSectionExitServer},       {"Prolog", kSectionProlog},
        {"DocumentSetup", kSectionDocumentSetup}, {"PageSetup", kSectionPageSetup},
        {"JCLSetup", kSectionJCLSetup},           {"AnySetup", kSectionAnySetup}};
    Text rest = statement.value;
    Text token;
    uint32_t order = 0;
    if (!NextToken(rest, token) || !ParseReal(&order, token)) {
        return Bad(Reason::NotANumber);
    }
    if (!NextToken(rest, token)) {
        return Bad(Reason::NameMissing);
    }
    uint16_t section = kSectionAnySetup;
    const Outcome outcome =
        LookupWord(kSections, token, &section) ? kStored : Doubtful(Reason::UnknownWord);
    if (!NextToken(rest, token) || StripAsterisk(token).empty()) {
        return Bad(Reason::NameMissing);
    }
    const Text keyword = StripAsterisk(token);
    Text option;
    NextToken(rest, option);

    auto* record = state.pool.Make<ParsedOrder>();
    if (record == nullptr) {
        return kOutOfMemory;
    }
    record->order = order;
    record->section = section;
    record->keywordOffset = state.OffsetOf(keyword.data());
    record->keywordLength = static_cast<uint8_t>(keyword.size());
    if (!option.empty()) {
        record->optionOffset = state.OffsetOf(option.data());
        record->optionLength = static_cast<uint8_t>(option.size());
    }
    state.orders.Append(record);
    return outcome;
}

constexpr uint8_t Q = kQuoted;
constexpr uint8_t QS = kQuotedOrString;
constexpr uint8_t S = kNonEmptyString;
constexpr uint8_t opt = kOptionRequired;
constexpr uint8_t rep = kRepeatable;
constexpr TextMode plain = TextMode::Plain;
constexpr TextMode hex = TextMode::Hex;

}  // namespace

Outcome StoreOptionOf(ParseState& state, ParsedFeature& feature, const StatementRecord& statement) {
    ParsedOption* option = nullptr;
    const Outcome result = FindOrMakeOption(state, feature, statement, &option);
    if (!result.handled()) {
        return result;
    }
    // Of the open feature, whether this statement is one of its own or not.
    const bool openedByJcl =
        state.openFeature != nullptr && (state.openFeature->flags & kOpenedByJcl) != 0;
    return After(result,
                 StoreValue(state, option->invocation, statement.value, openedByJcl ? hex : plain));
}

Outcome StoreDefaultOf(ParseState& state, ParsedFeature& feature,
                       const StatementRecord& statement) {
    return StoreValue(state, feature.defaultName, statement.value, TextMode::Plain);
}

// clang-format off
constinit const KeywordRow kKeywordTable[kKeywordCount] = {
    {"Include",                nullptr,                                                  rep | QS, Generic},
    {"ColorDevice",            StoreBoolean<&Header::ColorDevice>,                       S,        Generic},
    {"Protocols",              StoreProtocols,                                           rep | S,  Generic},
    {"NickName",               StoreText<&ParseState::NickName, hex>,                    QS,       Generic},
    {"LanguageLevel",          StoreInteger<&Header::LanguageLevel>,                     QS,       Generic},
    {"LanguageEncoding",       StoreLanguageEncoding,                                    S,        Generic},
    {"LanguageVersion",        StoreLanguageVersion,                                     S,        Generic},
    {"TTRasterizer",           StoreRasterizer,                                          S,        Generic},
    {"ExitServer",             StoreText<&ParseState::ExitServer, plain>,                Q,        Generic},
    {"Password",               StoreText<&ParseState::Password, plain>,                  Q,        Generic},
    {"SuggestedJobTimeout",    StoreInteger<&Header::SuggestedJobTimeout>,               QS,       Generic},
    {"SuggestedWaitTimeout",   StoreInteger<&Header::SuggestedWaitTimeout>,              QS,       Generic},
    {"PrintPSError",           StoreBoolean<&Header::PrintPSError>,                      S,        Generic},
    {"JCLBegin",               StoreText<&ParseState::JCLBegin, hex>,                    QS,       Generic},
    {"JCLToPSInterpreter",     StoreText<&ParseState::JCLToPSInterpreter, hex>,          QS,       Generic},
    {"JCLEnd",                 StoreText<&ParseState::JCLEnd, hex>,                      QS,       Generic},
    {"LandscapeOrientation",   StoreLandscapeOrientation,                                S,        Generic},
    {"Font",                   AddFont,                                                  opt | QS, Generic},
    {"CustomPageSize",         StoreCustomPageSize,                                      opt | Q,  Generic},
    {"ParamCustomPageSize",    StoreCustomParameter,                                     opt | S,  Generic},
    {"MaxMediaWidth",          StoreReal<&Header::MaxMediaWidth>,                        QS,       Generic},
    {"MaxMediaHeight",         StoreReal<&Header::MaxMediaHeight>,                       QS,       Generic},
    {"HWMargins",              StoreMargins,                                             S,        Generic},
    {"PageSize",               kStoreInvocation<PageSize>,                               opt | Q,  PageSize},
    {"DefaultPageSize",        StoreGenericDefault,                                      S,        Generic},
    {"PageRegion",             StoreInOption<PageSize, ParsedPaper, &ParsedPaper::pageRegion>, opt | Q, PageSize},
    {"ImageableArea",          StoreArea<&ParsedPaper::area, &ParsedPaper::areaExtra>,   opt | Q,  PageSize},
    {"PaperDimension",         StorePaperDimension,                                      opt | Q,  PageSize},
    {"InputSlot",              StoreInputSlot,                                           opt | Q,  InputSlot},
    {"DefaultInputSlot",       StoreGenericDefault,                                      S,        Generic},
    {"RequiresPageRegion",     StoreRequiresPageRegion,                                  opt | S,  InputSlot},
    {"Collate",                StoreGenericOption,                                       opt | Q,  Generic},
    {"DefaultCollate",         StoreGenericDefault,                                      S,        Generic},
    {"Duplex",                 StoreGenericOption,                                       opt | Q,  Generic},
    {"DefaultDuplex",          StoreGenericDefault,                                      S,        Generic},
    {"ManualFeed",             StoreGenericOption,                                       opt | Q,  Generic},
    {"DefaultManualFeed",      StoreGenericDefault,                                      S,        Generic},
    {"Resolution",             StoreResolution<0, ParsedOption, &ParsedOption::invocation, plain>, opt | Q, Resolution},
    {"JCLResolution",          StoreResolution<1, ParsedResolution, &ParsedResolution::jclResolution, hex>, opt | QS, Resolution},
    {"DefaultResolution",      StoreGenericDefault,                                      S,        Generic},
    {"DefaultJCLResolution",   StoreJclResolutionDefault,                                S,        Generic},
    {"SetResolution",          StoreResolution<2, ParsedResolution, &ParsedResolution::setResolution, plain>, opt | Q, Resolution},
    {"ScreenAngle",            StoreReal<&Header::ScreenAngle>,                          QS,       Generic},
    {"ScreenFreq",             StoreReal<&Header::ScreenFreq>,                           QS,       Generic},
    {"ResScreenAngle",         StoreNumberInOption<Resolution, ParsedResolution, &ParsedResolution::screenAngle, ParseReal>, opt | QS, Generic},
    {"ResScreenFreq",          StoreNumberInOption<Resolution, ParsedResolution, &ParsedResolution::screenFreq, ParseReal>, opt | QS, Generic},
    {"FreeVM",                 StoreInteger<&Header::FreeVM>,                            QS,       Generic},
    {"InstalledMemory",        StoreInstalledMemory,                                     opt | Q,  VMOption},
    {"DefaultInstalledMemory", StoreGenericDefault,                                      S,        Generic},
    {"VMOption",               StoreNumberInOption<VMOption, ParsedMemory, &ParsedMemory::amount, ParseInteger>, opt | QS, VMOption},
    {"OpenGroup",              Group<true>,                                              rep | S,  Generic},
    {"CloseGroup",             Group<false>,                                             rep | S,  Generic},
    {"OpenUI",                 OpenUI,                                                   opt | S,  Generic},
    {"CloseUI",                CloseUI,                                                  rep | S,  Generic},
    {"JCLOpenUI",              OpenUI,                                                   opt | S,  Generic},
    {"JCLCloseUI",             CloseUI,                                                  rep | S,  Generic},
    {"OrderDependency",        AddOrderDependency,                                       rep | S,  Generic},
    {"UIConstraints",          AddConstraint,                                            rep | S,  Generic},
    {"Extensions",             StoreExtensions,                                          rep | S,  Generic},
    {"End",                    nullptr,                                                  rep,      Generic},
    {"JCLRes",                 nullptr,                                                  opt | QS, Generic},
    {"PrinterCaps",            StoreInteger<&Header::PrinterCaps>,                       QS,       Generic},
    {"SleepMode",              StoreText<&ParseState::SleepMode, plain>,                 opt | QS, Generic},
    {"MediaType",              kStoreInvocation<MediaType>,                              opt | Q,  MediaType},
    {"MultiplePage",           kStoreInvocation<MultiplePage>,                           opt | Q,  MultiplePage},
    {"TonerSaveMode",          kStoreInvocation<TonerSaveMode>,                          opt | Q,  TonerSaveMode},
    {"PageProtect",            kStoreInvocation<PageProtect>,                            opt | Q,  PageProtect},
    {"HRC",                    kStoreInvocation<HRC>,                                    opt | Q,  HRC},
    {"DefaultMediaType",       StoreGenericDefault,                                      S,        Generic},
    {"DefaultMultiplePage",    StoreGenericDefault,                                      S,        Generic},
    {"DefaultTonerSaveMode",   StoreGenericDefault,                                      S,        Generic},
    {"DefaultPageProtect",     StoreGenericDefault,                                      S,        Generic},
    {"DefaultHRC",             StoreGenericDefault,                                      S,        Generic},
    {"PageSizeL",              StoreInOption<PageSize, ParsedPaper, &ParsedPaper::pageSizeL>, opt | Q, PageSize},
    {"DefaultPageSizeL",       StoreGenericDefault,                                      S,        Generic},
    {"ImageableAreaL",         StoreArea<&ParsedPaper::areaL, &ParsedPaper::areaLExtra>, opt | Q,  PageSize},
    {"FileVersion",            StoreReal<&Header::FileVersion>,                          QS,       Generic},
    {"GraphicsMode",           kStoreInvocation<GraphicsMode>,                           opt | Q,  GraphicsMode},
    {"DefaultGraphicsMode",    StoreGenericDefault,                                      S,        Generic},
    {"MacroSetting",           StoreBoolean<&Header::MacroSetting>,                      S,        Generic},
    {"DefaultFontSetting",     StoreBoolean<&Header::DefaultFontSetting>,                S,        Generic},
    {"Paper",                  kStoreInvocation<Paper>,                                  opt | Q,  Paper},
    {"TTMODE",                 kStoreInvocation<TTMODE>,                                 opt | Q,  TTMODE},
    {"DefaultTTMODE",          StoreGenericDefault,                                      S,        Generic},
    {"CompMode1028",           StoreBoolean<&Header::CompMode1028>,                      S,        Generic},
    {"SaveMacro",              kStoreInvocation<SaveMacro>,                              opt | Q,  SaveMacro},
    {"ShowBiasVolt",           StoreBoolean<&Header::ShowBiasVolt>,                      S,        Generic},
    {"DefaultBiasVolt",        StoreGenericDefault,                                      S,        Generic},
    {"BiasVolt",               kStoreInvocation<BiasVolt>,                               opt | Q,  BiasVolt},
    {"AddUMPD",                StoreBoolean<&Header::AddUMPD>,                           S,        Generic},
    {"DefaultQuickPrintSetup", StoreMakerFlag<kMakerQuickPrintSetup>,                    S,        Generic},
    {"DefaultLanguage",        StoreText<&ParseState::DefaultLanguage, plain>,           S,        Generic},
    {"GrayText",               StoreMakerFlag<kMakerGrayText>,                           S,        Generic},
    {"DefaultMXMonitor",       StoreMakerFlag<kMakerMXMonitor>,                          S,        Generic},
    {"DefaultStatusMonitor",   StoreMakerFlag<kMakerStatusMonitor>,                      S,        Generic},
    {"DefaultUseReprint",      StoreMakerFlag<kMakerUseReprint>,                         S,        Generic},
    {"DefaultUsePrinterFonts", StoreMakerFlag<kMakerUsePrinterFonts>,                    S,        Generic},
    {"NoBanding",              StoreMakerFlag<kMakerNoBanding>,                          S,        Generic},
    {"PrintRateA4",            StorePrintRate<&Header::PrintRateA4>,                     QS,       Generic},
    {"PrintRateLetter",        StorePrintRate<&Header::PrintRateLetter>,                 QS,       Generic},
};
// clang-format on

namespace {

Text KeywordOf(unsigned row) {
    return kKeywordTable[row].keyword;
}

// The kind that a row's keyword is the name of.
using KindByRow = std::array<FeatureKind, kKeywordCount>;
KindByRow ListKinds() {
    KindByRow kinds;
    for (unsigned row = 0; row < kKeywordCount; ++row) {
        const auto* named =
            std::ranges::find(kOptionKeywordList, KeywordOf(row), &OptionKeyword::keyword);
        kinds[row] = static_cast<FeatureKind>(named - kOptionKeywordList);
    }
    return kinds;
}

// Built when the module is loaded, read only afterwards.
const WordIndex<512> keywordIndex(kKeywordCount, KeywordOf);
const KindByRow kindByRow = ListKinds();

}  // namespace

const KeywordRow* FindKeyword(Text keyword) {
    const unsigned found = keywordIndex.Find(keyword, KeywordOf);
    return found != 0 ? &kKeywordTable[found - 1] : nullptr;
}

FeatureKind FeatureKindByName(Text name) {
    const KeywordRow* row = FindKeyword(name);
    return row != nullptr ? kindByRow[RowNumber(row)] : Generic;
}

}  // namespace ksfax
