#include "description/printer_description.h"

#include <algorithm>
#include <type_traits>

#include "description/paper_keywords.h"
#include "description/text.h"

namespace ksfax {

namespace {

// ---- The layout, in memory and in the cache file ----

template <typename Record>
constexpr bool
    kIsPlainRecord = std::is_trivially_copyable_v<Record>&& std::is_standard_layout_v<Record> &&
                     alignof(Record) <= 4;

static_assert(sizeof(Ref<char>) == 8 && kIsPlainRecord<Ref<char>>);
// Every field, so that no two neighbours of one width can change places.
// clang-format off
#define KSFAX_PIN(record, field, offset) static_assert(offsetof(record, field) == (offset))
static_assert(sizeof(OptionRecord) == 40 && kIsPlainRecord<OptionRecord>);
KSFAX_PIN(OptionRecord, Next, 0); KSFAX_PIN(OptionRecord, Name, 8);
KSFAX_PIN(OptionRecord, NameHash, 16); KSFAX_PIN(OptionRecord, Translation, 24);
KSFAX_PIN(OptionRecord, Invocation, 32);
static_assert(sizeof(PaperOptionRecord) == 112 && kIsPlainRecord<PaperOptionRecord>);
KSFAX_PIN(PaperOptionRecord, Common, 0); KSFAX_PIN(PaperOptionRecord, PageSizeLInvocation, 40);
KSFAX_PIN(PaperOptionRecord, PageRegionInvocation, 48);
KSFAX_PIN(PaperOptionRecord, PaperWidth, 56); KSFAX_PIN(PaperOptionRecord, PaperHeight, 60);
KSFAX_PIN(PaperOptionRecord, ImageableArea, 64);
KSFAX_PIN(PaperOptionRecord, ImageableAreaExtra, 80);
KSFAX_PIN(PaperOptionRecord, ImageableAreaL, 88);
KSFAX_PIN(PaperOptionRecord, ImageableAreaLExtra, 104);
static_assert(sizeof(SlotOptionRecord) == 48 && kIsPlainRecord<SlotOptionRecord>);
KSFAX_PIN(SlotOptionRecord, Common, 0); KSFAX_PIN(SlotOptionRecord, RequiresPageRegion, 40);
static_assert(sizeof(ResolutionOptionRecord) == 64 && kIsPlainRecord<ResolutionOptionRecord>);
KSFAX_PIN(ResolutionOptionRecord, Common, 0);
KSFAX_PIN(ResolutionOptionRecord, JCLResolutionInvocation, 40);
KSFAX_PIN(ResolutionOptionRecord, SetResolutionInvocation, 48);
KSFAX_PIN(ResolutionOptionRecord, ResScreenAngle, 56);
KSFAX_PIN(ResolutionOptionRecord, ResScreenFreq, 60);
static_assert(sizeof(MemoryOptionRecord) == 48 && kIsPlainRecord<MemoryOptionRecord>);
KSFAX_PIN(MemoryOptionRecord, Common, 0); KSFAX_PIN(MemoryOptionRecord, MemoryAmount, 40);
static_assert(sizeof(FeatureRecord) == 64 && kIsPlainRecord<FeatureRecord>);
KSFAX_PIN(FeatureRecord, Next, 0); KSFAX_PIN(FeatureRecord, Name, 8);
KSFAX_PIN(FeatureRecord, NameHash, 16); KSFAX_PIN(FeatureRecord, Translation, 24);
KSFAX_PIN(FeatureRecord, Default, 32); KSFAX_PIN(FeatureRecord, OptionSize, 40);
KSFAX_PIN(FeatureRecord, Kind, 44); KSFAX_PIN(FeatureRecord, Flags, 46);
KSFAX_PIN(FeatureRecord, UIType, 48); KSFAX_PIN(FeatureRecord, Index, 50);
KSFAX_PIN(FeatureRecord, Installable, 52); KSFAX_PIN(FeatureRecord, Options, 56);
static_assert(sizeof(DeviceFontRecord) == 40 && kIsPlainRecord<DeviceFontRecord>);
KSFAX_PIN(DeviceFontRecord, Next, 0); KSFAX_PIN(DeviceFontRecord, Name, 8);
KSFAX_PIN(DeviceFontRecord, NameHash, 16); KSFAX_PIN(DeviceFontRecord, Description, 24);
KSFAX_PIN(DeviceFontRecord, FontId, 36);
static_assert(sizeof(OrderDependencyEntry) == 12 && kIsPlainRecord<OrderDependencyEntry>);
KSFAX_PIN(OrderDependencyEntry, FeatureIndex, 0); KSFAX_PIN(OrderDependencyEntry, OptionIndex, 2);
KSFAX_PIN(OrderDependencyEntry, Order, 4); KSFAX_PIN(OrderDependencyEntry, Section, 8);
static_assert(sizeof(OrderDependencyTable) == 4 && kIsPlainRecord<OrderDependencyTable>);
KSFAX_PIN(OrderDependencyTable, Count, 0); KSFAX_PIN(OrderDependencyTable, EntrySize, 2);
static_assert(sizeof(ConstraintEntry) == 8 && kIsPlainRecord<ConstraintEntry>);
KSFAX_PIN(ConstraintEntry, Feature1, 0); KSFAX_PIN(ConstraintEntry, Option1, 2);
KSFAX_PIN(ConstraintEntry, Feature2, 4); KSFAX_PIN(ConstraintEntry, Option2, 6);
static_assert(sizeof(ConstraintTable) == 4 && kIsPlainRecord<ConstraintTable>);
KSFAX_PIN(ConstraintTable, Count, 0); KSFAX_PIN(ConstraintTable, EntrySize, 2);
static_assert(sizeof(CustomPageSizeParameter) == 16 && kIsPlainRecord<CustomPageSizeParameter>);
KSFAX_PIN(CustomPageSizeParameter, Order, 0); KSFAX_PIN(CustomPageSizeParameter, Type, 4);
KSFAX_PIN(CustomPageSizeParameter, Min, 8); KSFAX_PIN(CustomPageSizeParameter, Max, 12);
static_assert(sizeof(PrinterDescription) == 472 && kIsPlainRecord<PrinterDescription>);
KSFAX_PIN(PrinterDescription, TotalSize, 0); KSFAX_PIN(PrinterDescription, PpdFileName, 8);
KSFAX_PIN(PrinterDescription, NickName, 16); KSFAX_PIN(PrinterDescription, Version, 24);
KSFAX_PIN(PrinterDescription, Checksum, 26); KSFAX_PIN(PrinterDescription, Protocols, 28);
KSFAX_PIN(PrinterDescription, LandscapeOrientation, 30);
KSFAX_PIN(PrinterDescription, TTRasterizer, 32);
KSFAX_PIN(PrinterDescription, LanguageEncoding, 34); KSFAX_PIN(PrinterDescription, FreeVM, 36);
KSFAX_PIN(PrinterDescription, LanguageLevel, 40); KSFAX_PIN(PrinterDescription, Password, 48);
KSFAX_PIN(PrinterDescription, ExitServer, 56);
KSFAX_PIN(PrinterDescription, SuggestedJobTimeout, 64);
KSFAX_PIN(PrinterDescription, SuggestedWaitTimeout, 68);
KSFAX_PIN(PrinterDescription, ColorDevice, 72); KSFAX_PIN(PrinterDescription, PrintPSError, 76);
KSFAX_PIN(PrinterDescription, CustomPageSize, 80); KSFAX_PIN(PrinterDescription, HasHWMargins, 84);
KSFAX_PIN(PrinterDescription, HWMargins, 88);
KSFAX_PIN(PrinterDescription, CustomPageSizeCode, 104);
KSFAX_PIN(PrinterDescription, ParamCustomPageSize, 112);
KSFAX_PIN(PrinterDescription, MaxMediaWidth, 192);
KSFAX_PIN(PrinterDescription, MaxMediaHeight, 196); KSFAX_PIN(PrinterDescription, Extensions, 200);
KSFAX_PIN(PrinterDescription, ResolutionKeyword, 202);
KSFAX_PIN(PrinterDescription, ScreenAngle, 204); KSFAX_PIN(PrinterDescription, ScreenFreq, 208);
KSFAX_PIN(PrinterDescription, JCLBegin, 216); KSFAX_PIN(PrinterDescription, JCLEnd, 224);
KSFAX_PIN(PrinterDescription, JCLToPSInterpreter, 232);
KSFAX_PIN(PrinterDescription, FileVersion, 240); KSFAX_PIN(PrinterDescription, PrinterCaps, 244);
KSFAX_PIN(PrinterDescription, SleepMode, 256); KSFAX_PIN(PrinterDescription, MacroSetting, 264);
KSFAX_PIN(PrinterDescription, DefaultFontSetting, 268);
KSFAX_PIN(PrinterDescription, CompMode1028, 272); KSFAX_PIN(PrinterDescription, ShowBiasVolt, 276);
KSFAX_PIN(PrinterDescription, AddUMPD, 280); KSFAX_PIN(PrinterDescription, MakerFlags, 284);
KSFAX_PIN(PrinterDescription, DefaultLanguage, 288);
KSFAX_PIN(PrinterDescription, PrintRateA4, 296);
KSFAX_PIN(PrinterDescription, PrintRateLetter, 298);
KSFAX_PIN(PrinterDescription, DocumentFeatureCount, 300);
KSFAX_PIN(PrinterDescription, InstallableFeatureCount, 302);
KSFAX_PIN(PrinterDescription, Features, 304);
KSFAX_PIN(PrinterDescription, FeatureByKind, 312); KSFAX_PIN(PrinterDescription, DeviceFonts, 448);
KSFAX_PIN(PrinterDescription, OrderDependencies, 456);
KSFAX_PIN(PrinterDescription, UIConstraints, 464);
#undef KSFAX_PIN
// clang-format on

// ---- Lookups ----

constexpr uint32_t kFallbackResolution = 300;
constexpr uint16_t kAutomaticBin = 7;

// 25400 micrometres an inch over 72 x 256 units an inch, rounded to single precision: these very
// bits decide the sizes of the forms already in users' databases.
constexpr float kMicronsPerUnit = 0x1.60c71cp+0F;

int32_t ClampToInt32(float value) {
    if (value >= 2147483648.0F) {
        return INT32_MAX;
    }
    return value < -2147483648.0F ? INT32_MIN : static_cast<int32_t>(value);
}

const OptionRecord* OptionOf(const FeatureRecord* feature, uint32_t position) {
    return feature != nullptr ? NthListEntry(feature->Options.Target(), position) : nullptr;
}

}  // namespace

uint32_t NameHash(std::string_view name) {
    uint32_t hash = 0;
    // Eight bytes a step, folded as neighbours, then neighbouring pairs, then fours.
    for (; name.size() >= 8; name.remove_prefix(8)) {
        constexpr uint64_t kEven = 0x00FF00FF00FF00FF;
        constexpr uint64_t kEvenPairs = 0x0000FFFF0000FFFF;
        uint64_t bytes = 0;
        std::memcpy(&bytes, name.data(), sizeof(bytes));
        const uint64_t pairs = ((bytes & kEven) << 1) ^ (bytes >> 8 & kEven);
        const uint64_t fours = ((pairs & kEvenPairs) << 2) ^ (pairs >> 16 & kEvenPairs);
        hash = (hash << 8) ^ static_cast<uint32_t>(fours << 4) ^ static_cast<uint32_t>(fours >> 32);
    }
    for (const char c : name) {
        hash = (hash << 1) ^ static_cast<uint8_t>(c);
    }
    return hash;
}

uint32_t NameHash(const char* name) {
    return NameHash(std::string_view(name));
}

uint32_t GetDefaultResolution(const PrinterDescription& description) {
    const FeatureRecord* feature = FeatureOf(description, FeatureKind::Resolution);
    return feature != nullptr ? static_cast<uint32_t>(feature->Default) : kFallbackResolution;
}

const OptionRecord* FindResolutionOption(const PrinterDescription& description, uint32_t dpi) {
    const FeatureRecord* feature = FeatureOf(description, FeatureKind::Resolution);
    if (feature == nullptr) {
        return nullptr;
    }
    return FindRecord(feature->Options.Target(), [&](const OptionRecord& option) {
        return option.Name && LeadingNumber(option.Name.Target()) == dpi;
    });
}

uint16_t GetDefaultSelections(const PrinterDescription& description,
                              std::span<uint8_t> selections) {
    const size_t count = std::min<size_t>(description.DocumentFeatureCount, selections.size());
    size_t position = 0;
    for (const FeatureRecord& feature : ListOf(description.Features)) {
        if (position == count) {
            break;
        }
        selections[position++] = feature.Kind == FeatureKind::Resolution
                                     ? kNoOption
                                     : static_cast<uint8_t>(feature.Default);
    }
    return description.DocumentFeatureCount;
}

bool IsNamedNoneOrFalse(const OptionRecord& option) {
    if (!option.Name) {
        return false;
    }
    const char* name = option.Name.Target();
    return std::strcmp(name, "None") == 0 || std::strcmp(name, "False") == 0;
}

uint16_t GetSleepModeField(const PrinterDescription& description, unsigned field) {
    return GetNumberField(description.SleepMode.Target(), field);
}

uint16_t GetDefaultBin(const PrinterDescription& description) {
    const FeatureRecord* feature = FeatureOf(description, FeatureKind::InputSlot);
    if (feature == nullptr || feature->Default > UINT32_MAX) {
        return kAutomaticBin;
    }
    const OptionRecord* option = OptionOf(feature, static_cast<uint32_t>(feature->Default));
    return option != nullptr ? SourceKeywordToCode(option->Name.Target()) : kAutomaticBin;
}

uint32_t GetDefaultOptionValue(const FeatureRecord& feature) {
    if (feature.Default > UINT32_MAX) {
        return 0;
    }
    const OptionRecord* option = OptionOf(&feature, static_cast<uint32_t>(feature.Default));
    return option != nullptr ? LeadingNumber(option->Invocation.Target()) : 0;
}

uint16_t GetDefaultOptionValue(const PrinterDescription& description, FeatureKind kind) {
    const FeatureRecord* feature = FeatureOf(description, kind);
    if (feature == nullptr) {
        return kind == FeatureKind::TTMODE ? UINT16_MAX : 0;
    }
    return static_cast<uint16_t>(GetDefaultOptionValue(*feature));
}

int32_t MicronsFromPoints(uint32_t points24_8) {
    return ClampToInt32(static_cast<float>(points24_8) * kMicronsPerUnit);
}

}  // namespace ksfax
