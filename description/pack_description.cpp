// Packs a finished parse into one block.

#include <algorithm>
#include <cstring>

#include "platform/owned.h"

#include "description/load_description.h"
#include "description/parse_state.h"

namespace ksfax {

namespace {

constexpr uint32_t kLeastFreeVM = 102400;
constexpr uint32_t kFallbackResolution = 300;
constexpr size_t kSelections = 64;  // a record of selections has room for, of each group
constexpr uint32_t kSelectableOptions = 255;

// ---- What the packed block says of the parse, told to the observer ----

class Notes {
  public:
    Notes(const ParseState& state, const ParseObserver* observer)
        : state_(state),
          observer_(observer != nullptr && observer->packed != nullptr ? observer : nullptr) {}

    void Tell(PackNote note, uint32_t offset = 0, Text feature = {}, Text option = {},
              Text feature2 = {}, Text option2 = {}) const {
        if (observer_ != nullptr) {
            observer_->packed(observer_->context, {.note = note,
                                                   .line = offset != 0 ? state_.LineOf(offset) : 0,
                                                   .feature = feature,
                                                   .option = option,
                                                   .feature2 = feature2,
                                                   .option2 = option2});
        }
    }

  private:
    const ParseState& state_;
    const ParseObserver* observer_;
};

// ---- Corrections before packing ----

void SpreadRequiresPageRegion(ParseState& state) {
    ParsedFeature* slots = state.featureByKind[static_cast<unsigned>(FeatureKind::InputSlot)];
    if (slots == nullptr || (slots->flags & (kPageRegionForAllSlots | kPageRegionForNoSlot)) == 0) {
        return;
    }
    const uint32_t required = (slots->flags & kPageRegionForAllSlots) != 0 ? 1 : 0;
    for (ParsedOption* option = slots->firstOption; option != nullptr; option = option->next) {
        static_cast<ParsedSlot*>(option)->requiresPageRegion = required;
    }
}

// Document features first, installable ones after them, each group in the order of the PPD.
void OrderFeatures(ParseState& state, const Notes& notes) {
    ParsedList<ParsedFeature> groups[2] = {};
    for (ParsedFeature* feature = state.features.first; feature != nullptr;
         feature = feature->next) {
        ParsedList<ParsedFeature>& group = groups[feature->installable ? 1 : 0];
        feature->position = group.count;
        feature->index = Saturated(group.count);
        if (group.count == kSelections) {
            notes.Tell(PackNote::FeatureBeyondSelection, feature->nameOffset,
                       NameOf(state, *feature));
        }
        group.Append(feature);
    }
    auto& [document, installable] = groups;
    state.header.DocumentFeatureCount = Saturated(document.count);
    state.header.InstallableFeatureCount = Saturated(installable.count);
    if (installable.last != nullptr) {
        installable.last->next = nullptr;
    }
    for (ParsedFeature* feature = installable.first; feature != nullptr; feature = feature->next) {
        feature->position += document.count;
    }
    if (document.last != nullptr) {
        document.last->next = installable.first;
    }
    state.features.first = document.first != nullptr ? document.first : installable.first;
}

struct AreaNotes {
    PackNote clamped;
    PackNote reset;
};

void CorrectArea(const ParsedPaper& paper, uint32_t (&area)[4], const AreaNotes& kinds,
                 const Notes& notes, Text name) {
    const bool given = (area[0] | area[1] | area[2] | area[3]) != 0;
    const bool clamped = area[2] > paper.width || area[3] > paper.height;
    area[2] = std::min(area[2], paper.width);
    area[3] = std::min(area[3], paper.height);
    // Nothing reads the areas, so one that is reset keeps its right edge as it is.
    const bool reset = area[0] >= area[2] || area[1] >= area[3];
    if (reset) {
        area[0] = 0;
        area[1] = 0;
        area[3] = paper.height;
    }
    // Without a sheet there is nothing to say of an area on it.
    if (given && paper.width != 0 && (clamped || reset)) {
        notes.Tell(reset ? kinds.reset : kinds.clamped, paper.nameOffset, "PageSize", name);
    }
}

void CorrectPapers(ParseState& state, const Notes& notes) {
    ParsedFeature* papers = state.featureByKind[static_cast<unsigned>(FeatureKind::PageSize)];
    if (papers == nullptr) {
        return;
    }
    for (ParsedOption* option = papers->firstOption; option != nullptr; option = option->next) {
        auto& paper = *static_cast<ParsedPaper*>(option);
        const Text name(state.text + paper.nameOffset, paper.nameLength);
        if (paper.width == 0 || paper.height == 0) {
            notes.Tell(paper.width == paper.height ? PackNote::PaperSizeMissing
                                                   : PackNote::PaperSizeIncomplete,
                       paper.nameOffset, "PageSize", name);
            paper.width = 0;
            paper.height = 0;
        }
        CorrectArea(paper, paper.area,
                    {PackNote::ImageableAreaClamped, PackNote::ImageableAreaReset}, notes, name);
        CorrectArea(paper, paper.areaL,
                    {PackNote::ImageableAreaLClamped, PackNote::ImageableAreaLReset}, notes, name);
    }
}

void CorrectHeader(PrinterDescription& header, const Notes& notes) {
    if (header.FreeVM < kLeastFreeVM) {
        if (header.FreeVM != 0) {
            notes.Tell(PackNote::FreeVMRaised);
        }
        header.FreeVM = kLeastFreeVM;
    }
    if (header.MaxMediaWidth == 0 && header.MaxMediaHeight == 0 && header.CustomPageSize != 0) {
        header.CustomPageSize = 0;
        notes.Tell(PackNote::CustomPageSizeDropped);
    }
}

// ---- The block ----

constexpr uint64_t Padded(uint64_t bytes) {
    return (bytes + 3) & ~uint64_t{3};
}

// Lays pieces one after the other, each from a multiple of 4. Without memory it only measures,
// so that the block can be one allocation of the exact size; both runs take the same steps. Should
// another process rewrite the file between them, a hexadecimal text may need more or less room
// than was measured: what lies past the memory is then counted and not written.
template <bool fills>
class BlockWriter {
  public:
    BlockWriter() = default;
    BlockWriter(void* block, uint64_t size) : block_(static_cast<uint8_t*>(block)), size_(size) {}

    uint64_t used() const { return used_; }

    // Room for a piece, zeroed while it is about to be written anyway; its offset.
    uint64_t Reserve(uint64_t bytes) {
        const uint64_t offset = used_;
        used_ += Padded(bytes);
        if (fills && used_ <= size_) {
            std::memset(block_ + offset, 0, static_cast<size_t>(used_ - offset));
        }
        return offset;
    }

    template <typename Record>
    void Write(uint64_t offset, const Record& record) {
        if (fills && offset + sizeof(Record) <= size_) {
            std::memcpy(block_ + offset, &record, sizeof(Record));
        }
    }

    // A zero-terminated string; returns its reference.
    Ref<char> PutText(Text text) {
        const uint64_t offset = used_;
        used_ += Padded(text.size() + 1);
        if (fills && used_ <= size_) {
            // Terminator and padding are all in the last four bytes.
            std::memset(block_ + used_ - 4, 0, 4);
            std::memcpy(block_ + offset, text.data(), text.size());
        }
        return {offset};
    }
    Ref<char> PutText(const ParseState& state, StoredText stored) {
        if (!stored) {
            return {0};
        }
        const Text text = state.TextOf(stored);
        if (!stored.hex()) {
            return PutText(text);
        }
        const uint64_t offset = used_;
        std::span<char> room;
        if (fills && used_ <= size_) {
            room = {reinterpret_cast<char*>(block_ + used_), static_cast<size_t>(size_ - used_)};
        }
        uint32_t length = 0;
        (void)DecodeHexSubstrings(text, room, &length);  // was checked when stored
        used_ += Padded(uint64_t{length} + 1);
        if (fills && used_ <= size_) {
            std::memset(block_ + offset + length, 0, static_cast<size_t>(used_ - offset - length));
        }
        return {offset};
    }

  private:
    uint8_t* block_ = nullptr;
    uint64_t size_ = 0;
    uint64_t used_ = 0;
};

// Links records of one list as they are laid out.
template <bool fills>
class Linker {
  public:
    // `first` is the offset of the reference to the list's first record.
    Linker(BlockWriter<fills>& writer, uint64_t first) : writer_(writer), reference_(first) {}
    void Link(uint64_t record) {
        writer_.Write(reference_, record);
        reference_ = record;  // Next comes first in every record
    }

  private:
    BlockWriter<fills>& writer_;
    uint64_t reference_;
};

class Packer {
  public:
    Packer(ParseState& state, const Notes& notes) : state_(state), notes_(notes) {}

    // The whole block, in order. The header is written last, when its references are known.
    template <bool fills>
    void Lay(BlockWriter<fills>& writer) const {
        PrinterDescription header = state_.header;
        writer.Reserve(sizeof(header));
        header.PpdFileName = PutPath(writer);
        header.NickName = writer.PutText(state_, state_.NickName);
        header.Password = writer.PutText(state_, state_.Password);
        header.ExitServer = writer.PutText(state_, state_.ExitServer);
        header.CustomPageSizeCode = writer.PutText(state_, state_.CustomPageSizeCode);
        header.JCLBegin = writer.PutText(state_, state_.JCLBegin);
        header.JCLToPSInterpreter = writer.PutText(state_, state_.JCLToPSInterpreter);
        header.JCLEnd = writer.PutText(state_, state_.JCLEnd);
        header.SleepMode = writer.PutText(state_, state_.SleepMode);
        header.DefaultLanguage = writer.PutText(state_, state_.DefaultLanguage);
        header.OrderDependencies = {PutOrderDependencies(writer)};
        header.UIConstraints = {PutConstraints(writer)};
        header.Version = kDescriptionVersion;
        header.TotalSize = 0;
        writer.Write(0, header);

        Linker<fills> features(writer, offsetof(PrinterDescription, Features));
        for (const ParsedFeature* feature = state_.features.first; feature != nullptr;
             feature = feature->next) {
            features.Link(PutFeature(writer, *feature));
        }
        Linker<fills> fonts(writer, offsetof(PrinterDescription, DeviceFonts));
        for (const ParsedFont* font = state_.fonts.first; font != nullptr; font = font->next) {
            fonts.Link(PutFont(writer, *font));
        }
    }

  private:
    Text FileText(uint32_t offset, uint32_t length) const { return {state_.text + offset, length}; }

    template <bool fills>
    Ref<WCHAR> PutPath(BlockWriter<fills>& writer) const {
        const uint64_t bytes = (uint64_t{state_.pathLength} + 1) * sizeof(WCHAR);
        const uint64_t offset = writer.Reserve(bytes);
        if constexpr (fills) {
            for (uint32_t i = 0; i < state_.pathLength; ++i) {
                writer.Write(offset + i * sizeof(WCHAR), state_.path[i]);
            }
        }
        return {offset};
    }

    // Positions of a feature and its option as the tables hold them; false when either is
    // unknown. An option that was not named is 255, that of an unknown feature 0.
    struct Place {
        uint16_t feature;
        uint16_t option;
        bool known() const { return feature != kNoPosition && option != kNoPosition; }
    };
    static uint16_t TablePosition(const NamedRecord* record) {
        return record != nullptr && record->position < kNoPosition
                   ? static_cast<uint16_t>(record->position)
                   : kNoPosition;
    }
    Place Locate(Text featureName, bool namesOption, Text optionName) const {
        const ParsedFeature* feature = FindFeature(state_, featureName);
        const uint16_t position = TablePosition(feature);
        if (position == kNoPosition) {
            return {.feature = kNoPosition, .option = 0};
        }
        return {.feature = position,
                .option = namesOption ? TablePosition(FindOption(state_, *feature, optionName))
                                      : uint16_t{kNoOption}};
    }

    template <bool fills>
    uint64_t PutOrderDependencies(BlockWriter<fills>& writer) const {
        const OrderDependencyTable table = {.Count = Saturated(state_.orders.count),
                                            .EntrySize = sizeof(OrderDependencyEntry)};
        uint64_t place = writer.Reserve(sizeof(table) + table.Count * sizeof(OrderDependencyEntry));
        const uint64_t offset = place;
        if constexpr (fills) {
            writer.Write(place, table);
            place += sizeof(table);
            const ParsedOrder* order = state_.orders.first;
            for (uint16_t i = 0; i < table.Count; ++i, order = order->next) {
                const Text keyword = FileText(order->keywordOffset, order->keywordLength);
                const Text option = FileText(order->optionOffset, order->optionLength);
                Place found = Locate(keyword, order->optionOffset != 0, option);
                if (!found.known()) {
                    found.feature = kNoPosition;
                    notes_.Tell(PackNote::OrderUnresolved, order->keywordOffset, keyword, option);
                }
                writer.Write(place, OrderDependencyEntry{.FeatureIndex = found.feature,
                                                         .OptionIndex = found.option,
                                                         .Order = order->order,
                                                         .Section = order->section,
                                                         .reserved10 = 0});
                place += sizeof(OrderDependencyEntry);
            }
            if (order != nullptr) {
                notes_.Tell(PackNote::OrdersTruncated, order->keywordOffset);
            }
        }
        return offset;
    }

    template <bool fills>
    uint64_t PutConstraints(BlockWriter<fills>& writer) const {
        const ConstraintTable table = {.Count = Saturated(state_.constraints.count),
                                       .EntrySize = sizeof(ConstraintEntry)};
        // Room as for the entries of the other table: readers of the format count on it.
        uint64_t place = writer.Reserve(sizeof(table) + table.Count * sizeof(OrderDependencyEntry));
        const uint64_t offset = place;
        if constexpr (fills) {
            writer.Write(place, table);
            place += sizeof(table);
            const ParsedConstraint* constraint = state_.constraints.first;
            for (uint16_t i = 0; i < table.Count; ++i, constraint = constraint->next) {
                Text names[4];
                for (unsigned n = 0; n < 4; ++n) {
                    names[n] = FileText(constraint->offsets[n], constraint->lengths[n]);
                }
                const Place first = Locate(names[0], constraint->offsets[1] != 0, names[1]);
                const Place second = Locate(names[2], constraint->offsets[3] != 0, names[3]);
                const bool known = first.known() && second.known();
                const bool readAsAny = (constraint->offsets[1] != 0 && first.option == kNoOption) ||
                                       (constraint->offsets[3] != 0 && second.option == kNoOption);
                if (!known || readAsAny) {
                    notes_.Tell(known ? PackNote::ConstraintOnAnyOption
                                      : PackNote::ConstraintUnresolved,
                                constraint->offsets[0], names[0], names[1], names[2], names[3]);
                }
                writer.Write(place, ConstraintEntry{.Feature1 = known ? first.feature : kNoPosition,
                                                    .Option1 = first.option,
                                                    .Feature2 = second.feature,
                                                    .Option2 = second.option});
                place += sizeof(ConstraintEntry);
            }
            if (constraint != nullptr) {
                notes_.Tell(PackNote::ConstraintsTruncated, constraint->offsets[0]);
            }
        }
        return offset;
    }

    uint32_t DefaultResolution(const ParsedFeature& feature) const {
        Text name;
        if (feature.defaultName) {
            name = state_.TextOf(feature.defaultName);
        } else if (feature.firstOption != nullptr) {
            name = FileText(feature.firstOption->nameOffset, feature.firstOption->nameLength);
        }
        const auto number = static_cast<int32_t>(LeadingNumber(name));
        if (number < 1) {
            notes_.Tell(PackNote::ResolutionDefaultUnread, feature.defaultName.offset,
                        NameOf(state_, feature), name);
            return kFallbackResolution;
        }
        return static_cast<uint32_t>(number);
    }

    uint64_t DefaultOf(const ParsedFeature& feature) const {
        if (feature.kind == FeatureKind::Resolution) {
            return DefaultResolution(feature);
        }
        if (!feature.defaultName) {
            return 0;
        }
        const Text name = state_.TextOf(feature.defaultName);
        const ParsedOption* option = FindOption(state_, feature, name);
        if (option == nullptr) {
            notes_.Tell(feature.firstOption != nullptr ? PackNote::DefaultNotAnOption
                                                       : PackNote::DefaultWithoutOptions,
                        feature.defaultName.offset, NameOf(state_, feature), name);
            return 0;
        }
        return option->position;
    }

    template <bool fills>
    uint64_t PutFeature(BlockWriter<fills>& writer, const ParsedFeature& feature) const {
        FeatureRecord record = {};
        const uint64_t offset = writer.Reserve(sizeof(record));
        record.Name = writer.PutText(NameOf(state_, feature));
        record.Translation = writer.PutText(state_, feature.translation);
        if constexpr (fills) {
            record.NameHash = NameHash(NameOf(state_, feature));
            record.Default = DefaultOf(feature);
            record.OptionSize = OptionRecordSize(feature.kind);
            record.Kind = feature.kind;
            record.Flags = feature.flags;
            record.UIType = feature.uiType;
            record.Index = feature.index;
            record.Installable = feature.installable ? 1 : 0;
            if (feature.optionCount > kSelectableOptions) {
                notes_.Tell(PackNote::OptionBeyondSelection, feature.nameOffset,
                            NameOf(state_, feature));
            }
        }
        writer.Write(offset, record);
        Linker<fills> options(writer, offset + offsetof(FeatureRecord, Options));
        for (const ParsedOption* option = feature.firstOption; option != nullptr;
             option = option->next) {
            options.Link(PutOption(writer, feature.kind, *option));
        }
        return offset;
    }

    template <bool fills>
    uint64_t PutOption(BlockWriter<fills>& writer, FeatureKind kind,
                       const ParsedOption& option) const {
        const uint64_t offset = writer.Reserve(OptionRecordSize(kind));
        const Text name = FileText(option.nameOffset, option.nameLength);
        OptionRecord common = {};
        if constexpr (fills) {
            common.NameHash = NameHash(name);
        }
        common.Name = writer.PutText(name);
        common.Translation = writer.PutText(state_, option.translation);
        common.Invocation = writer.PutText(state_, option.invocation);
        switch (kind) {
        case FeatureKind::PageSize:
            PutPaper(writer, offset, common, static_cast<const ParsedPaper&>(option));
            break;
        case FeatureKind::InputSlot: {
            const auto& slot = static_cast<const ParsedSlot&>(option);
            writer.Write(offset, SlotOptionRecord{.Common = common,
                                                  .RequiresPageRegion = slot.requiresPageRegion,
                                                  .reserved44 = 0});
            break;
        }
        case FeatureKind::Resolution: {
            const auto& resolution = static_cast<const ParsedResolution&>(option);
            ResolutionOptionRecord record = {.Common = common,
                                             .JCLResolutionInvocation = {},
                                             .SetResolutionInvocation = {},
                                             .ResScreenAngle = resolution.screenAngle,
                                             .ResScreenFreq = resolution.screenFreq};
            record.JCLResolutionInvocation = writer.PutText(state_, resolution.jclResolution);
            record.SetResolutionInvocation = writer.PutText(state_, resolution.setResolution);
            writer.Write(offset, record);
            break;
        }
        case FeatureKind::VMOption:
            writer.Write(
                offset,
                MemoryOptionRecord{.Common = common,
                                   .MemoryAmount = static_cast<const ParsedMemory&>(option).amount,
                                   .reserved44 = 0});
            break;
        default:
            writer.Write(offset, common);
        }
        return offset;
    }

    template <bool fills>
    void PutPaper(BlockWriter<fills>& writer, uint64_t offset, const OptionRecord& common,
                  const ParsedPaper& paper) const {
        PaperOptionRecord record = {};
        record.Common = common;
        record.PageSizeLInvocation = writer.PutText(state_, paper.pageSizeL);
        record.PageRegionInvocation = writer.PutText(state_, paper.pageRegion);
        record.PaperWidth = paper.width;
        record.PaperHeight = paper.height;
        std::ranges::copy(paper.area, record.ImageableArea);
        std::ranges::copy(paper.areaExtra, record.ImageableAreaExtra);
        std::ranges::copy(paper.areaL, record.ImageableAreaL);
        std::ranges::copy(paper.areaLExtra, record.ImageableAreaLExtra);
        writer.Write(offset, record);
    }

    template <bool fills>
    uint64_t PutFont(BlockWriter<fills>& writer, const ParsedFont& font) const {
        DeviceFontRecord record = {};
        const uint64_t offset = writer.Reserve(sizeof(record));
        const Text name = FileText(font.nameOffset, font.nameLength);
        record.Name = writer.PutText(name);
        record.Description = writer.PutText(state_, font.description);
        if constexpr (fills) {
            record.NameHash = NameHash(name);
            record.FontId = font.id;
        }
        writer.Write(offset, record);
        return offset;
    }

    ParseState& state_;
    const Notes& notes_;
};

PrinterDescription* Pack(ParseState& state, const ParseObserver* observer) {
    const Notes notes(state, observer);
    SpreadRequiresPageRegion(state);
    OrderFeatures(state, notes);
    CorrectHeader(state.header, notes);
    CorrectPapers(state, notes);

    const Packer packer(state, notes);
    BlockWriter<false> measure;
    packer.Lay(measure);
    const uint64_t size = measure.used();
    if (size > UINT32_MAX) {
        return nullptr;
    }
    platform::GlobalBlock block(GlobalAlloc(GMEM_FIXED, static_cast<SIZE_T>(size)));
    if (!block) {
        return nullptr;
    }
    BlockWriter<true> writer(block.get(), size);
    packer.Lay(writer);
    if (writer.used() != size) {
        return nullptr;  // the file has changed meanwhile
    }
    auto* description = static_cast<PrinterDescription*>(block.release());
    description->TotalSize = static_cast<uint32_t>(size);
    return description;
}

}  // namespace

PrinterDescription* PackDescription(ParseState* state, const ParseObserver* observer) {
    PrinterDescription* block = Pack(*state, observer);
    ReleaseParse(state);
    return block;
}

}  // namespace ksfax
