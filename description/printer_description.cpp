#include "description/printer_description.h"

#include <algorithm>
#include <utility>

#include "platform/owned.h"

#include "description/paper_keywords.h"

namespace ksfax {

namespace {

constexpr uint32_t kFallbackResolution = 300;
constexpr uint16_t kAutomaticBin = 7;
constexpr size_t kLongestNumberList = 29;
constexpr unsigned kSelectableOptions = 255;  // numbers 0 to 254; 255 means none

// 25400 micrometres an inch over 72 x 256 units an inch, and the inverse, both rounded to single
// precision: these very bits decide the sizes of the forms already in users' databases.
constexpr float kMicronsPerUnit = 0x1.60c71cp+0F;
constexpr float kUnitsPerMicron = 0x1.738aecp-1F;

bool IsBlank(char c) {
    return c == ' ' || c == '\t';
}

int32_t ClampToInt32(float value) {
    if (value >= 2147483648.0F) {
        return INT32_MAX;
    }
    return value < -2147483648.0F ? INT32_MIN : static_cast<int32_t>(value);
}

bool IsNoneOrFalse(const OptionRecord* option) {
    if (option == nullptr || !option->Name) {
        return false;
    }
    const char* name = option->Name.Target();
    return std::strcmp(name, "None") == 0 || std::strcmp(name, "False") == 0;
}

const OptionRecord* OptionOf(const FeatureRecord* feature, uint32_t position) {
    return feature != nullptr ? NthListEntry(feature->Options.Target(), position) : nullptr;
}

std::span<const ConstraintEntry> ConstraintsOf(const PrinterDescription& description) {
    const ConstraintTable* table = description.UIConstraints.Target();
    if (table == nullptr) {
        return {};
    }
    return {table->Entries(), table->Count};
}

// Whether one option of one feature is None or False, asked as often as one likes and looked up
// once, because walking the lists is the dear part of a constraint's test.
class NoneOrFalseAnswer {
  public:
    NoneOrFalseAnswer(const PrinterDescription& description, uint16_t feature, uint16_t option)
        : description_(description), feature_(feature), option_(option) {}

    // Whether a constraint's option, 255 being any, covers this one.
    bool CoveredBy(uint16_t constrainedOption) {
        return constrainedOption == option_ || (constrainedOption == kNoOption && !Get());
    }

  private:
    bool Get() {
        if (!known_) {
            answer_ = IsNoneOrFalseOption(description_, feature_, option_);
            known_ = true;
        }
        return answer_;
    }

    const PrinterDescription& description_;
    uint16_t feature_;
    uint16_t option_;
    bool known_ = false;
    bool answer_ = false;
};

// The constraints among the installable features, arranged so that settling their selections
// costs time in proportion to features, options and constraints, whatever the file holds.
class InstallableSettlement {
  public:
    InstallableSettlement(const PrinterDescription& description, std::span<uint8_t> selections)
        : description_(description), constraints_(ConstraintsOf(description)),
          selections_(selections), documentCount_(description.DocumentFeatureCount) {}

    // False when memory runs out; nothing has then changed.
    bool Prepare() {
        const size_t features = selections_.size();
        const size_t bytes = features * sizeof(const FeatureRecord*) +
                             (features + 1 + constraints_.size()) * sizeof(uint32_t);
        memory_.reset(GlobalAlloc(GMEM_FIXED, bytes));
        if (!memory_) {
            return false;
        }
        features_ = static_cast<const FeatureRecord**>(memory_.get());
        firstOf_ = reinterpret_cast<uint32_t*>(features_ + features);
        entries_ = firstOf_ + features + 1;
        ListFeatures();
        GroupConstraints();
        return true;
    }

    void Settle() {
        for (uint32_t j = 0; j < selections_.size(); ++j) {
            SettleFeature(j);
        }
    }

  private:
    using OptionSet = bool[kSelectableOptions];

    void ListFeatures() {
        const FeatureRecord* feature = NthListEntry(description_.Features.Target(), documentCount_);
        for (size_t j = 0; j < selections_.size(); ++j) {
            features_[j] = feature;
            feature = feature != nullptr ? feature->Next.Target() : nullptr;
        }
    }

    // The installable index of a position, or the number of features when it is none.
    uint32_t IndexOf(uint16_t position) const {
        const auto count = static_cast<uint32_t>(selections_.size());
        return position >= documentCount_ ? std::min<uint32_t>(position - documentCount_, count)
                                          : count;
    }

    // Groups the entries by their second feature in table order: those of feature j are
    // entries_[firstOf_[j]] to entries_[firstOf_[j + 1] - 1].
    void GroupConstraints() {
        const size_t count = selections_.size();
        std::fill_n(firstOf_, count + 1, 0);
        ForEachAmongInstallables([&](uint32_t, uint32_t second) { ++firstOf_[second]; });
        uint32_t total = 0;
        for (size_t j = 0; j <= count; ++j) {
            total += std::exchange(firstOf_[j], total);
        }
        ForEachAmongInstallables(
            [&](uint32_t entry, uint32_t second) { entries_[firstOf_[second]++] = entry; });
        // Each start has moved on to the next one's.
        std::copy_backward(firstOf_, firstOf_ + count, firstOf_ + count + 1);
        firstOf_[0] = 0;
    }

    template <typename Visit>
    void ForEachAmongInstallables(Visit visit) const {
        const auto count = static_cast<uint32_t>(selections_.size());
        for (uint32_t entry = 0; entry < constraints_.size(); ++entry) {
            const ConstraintEntry& constraint = constraints_[entry];
            const uint32_t second = IndexOf(constraint.Feature2);
            if (constraint.Feature1 != kNoPosition && second < count &&
                IndexOf(constraint.Feature1) < count) {
                visit(entry, second);
            }
        }
    }

    bool SelectedIsNoneOrFalse(uint32_t j) const {
        return selections_[j] != kNoOption && IsNoneOrFalse(OptionOf(features_[j], selections_[j]));
    }

    bool FirstSideHolds(const ConstraintEntry& constraint, uint32_t first) const {
        return constraint.Option1 == selections_[first] ||
               (constraint.Option1 == kNoOption && !SelectedIsNoneOrFalse(first));
    }

    std::span<const uint32_t> EntriesOn(uint32_t j) const {
        return {entries_ + firstOf_[j], entries_ + firstOf_[j + 1]};
    }

    // Walks the options of a feature that can be selected, marks those that `forbidden` or
    // `anyForbidden` covers, and gives the first one left; kNoOption when none is.
    static uint8_t FirstAllowed(const FeatureRecord* feature, const OptionSet& forbidden,
                                bool anyForbidden) {
        unsigned position = 0;
        const OptionRecord* option = OptionOf(feature, 0);
        for (; option != nullptr && position < kSelectableOptions; ++position) {
            if (!forbidden[position] && !(anyForbidden && !IsNoneOrFalse(option))) {
                return static_cast<uint8_t>(position);
            }
            option = option->Next.Target();
        }
        return kNoOption;
    }

    void SettleFeature(uint32_t j) {
        // One pass over the constraints on feature j finds both the first feature in conflict
        // with its selection and every option that the others forbid.
        OptionSet forbidden = {};
        bool anyForbidden = false;
        const bool selectedIsNone = SelectedIsNoneOrFalse(j);
        uint32_t conflicting = kNoConflict;
        for (uint32_t entry : EntriesOn(j)) {
            const ConstraintEntry& constraint = constraints_[entry];
            const uint32_t first = IndexOf(constraint.Feature1);
            if (first == j || !FirstSideHolds(constraint, first)) {
                continue;
            }
            if (constraint.Option2 == selections_[j] ||
                (constraint.Option2 == kNoOption && !selectedIsNone)) {
                conflicting = std::min(conflicting, first);
            }
            if (constraint.Option2 == kNoOption) {
                anyForbidden = true;
            } else if (constraint.Option2 < kSelectableOptions) {
                forbidden[constraint.Option2] = true;
            }
        }
        if (conflicting == kNoConflict) {
            return;
        }
        const uint8_t allowed = FirstAllowed(features_[j], forbidden, anyForbidden);
        if (allowed != kNoOption) {
            selections_[j] = allowed;
            return;
        }
        // The conflict is known by its code, which holds 8 bits of the position.
        const uint32_t position = (documentCount_ + conflicting) & 0xFF;
        if (position >= documentCount_ && position - documentCount_ < selections_.size()) {
            GiveWay(position - documentCount_, j);
        }
    }

    // Gives feature k its first option that does not forbid feature j's selection.
    void GiveWay(uint32_t k, uint32_t j) {
        OptionSet forbidden = {};
        bool anyForbidden = false;
        const bool selectedIsNone = SelectedIsNoneOrFalse(j);
        for (uint32_t entry : EntriesOn(j)) {
            const ConstraintEntry& constraint = constraints_[entry];
            if (IndexOf(constraint.Feature1) != k ||
                !(constraint.Option2 == selections_[j] ||
                  (constraint.Option2 == kNoOption && !selectedIsNone))) {
                continue;
            }
            if (constraint.Option1 == kNoOption) {
                anyForbidden = true;
            } else if (constraint.Option1 < kSelectableOptions) {
                forbidden[constraint.Option1] = true;
            }
        }
        const uint8_t allowed = FirstAllowed(features_[k], forbidden, anyForbidden);
        if (allowed != kNoOption) {
            selections_[k] = allowed;
        }
    }

    static constexpr uint32_t kNoConflict = UINT32_MAX;

    const PrinterDescription& description_;
    std::span<const ConstraintEntry> constraints_;
    std::span<uint8_t> selections_;
    uint32_t documentCount_;
    platform::GlobalBlock memory_;
    const FeatureRecord** features_ = nullptr;
    uint32_t* firstOf_ = nullptr;
    uint32_t* entries_ = nullptr;
};

// Whether a number list has a separator at all, and its field number `field` or last.
struct NumberField {
    bool isList;
    const char* text;
};
NumberField FindNumberField(const char* text, unsigned field) {
    NumberField found = {.isList = false, .text = text};
    for (const char* c = text; *c != 0; ++c) {
        if (*c != ',' && !IsBlank(*c)) {
            continue;
        }
        found.isList = true;
        if (field != 0) {
            --field;
            found.text = c + 1;
        }
    }
    return found;
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
    return FindRecord(feature->Options.Target(), nullptr, [&](const OptionRecord& option) {
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

bool GetFeatureOption(const PrinterDescription& description, uint16_t position, uint16_t option,
                      const FeatureRecord** feature, const OptionRecord** optionRecord) {
    const FeatureRecord* foundFeature =
        position == kNoPosition ? nullptr : NthListEntry(description.Features.Target(), position);
    const OptionRecord* foundOption =
        option == kNoOption ? nullptr : OptionOf(foundFeature, option);
    if (feature != nullptr) {
        *feature = foundFeature;
    }
    if (optionRecord != nullptr) {
        *optionRecord = foundOption;
    }
    return foundOption != nullptr;
}

bool IsNoneOrFalseOption(const PrinterDescription& description, uint16_t position,
                         uint16_t option) {
    const OptionRecord* record = nullptr;
    return GetFeatureOption(description, position, option, nullptr, &record) &&
           IsNoneOrFalse(record);
}

bool IsConstrained(const PrinterDescription& description, uint16_t feature1, uint16_t option1,
                   uint16_t feature2, uint16_t option2) {
    if (feature1 == kNoPosition) {
        return false;
    }
    NoneOrFalseAnswer first(description, feature1, option1);
    NoneOrFalseAnswer second(description, feature2, option2);
    return std::ranges::any_of(ConstraintsOf(description), [&](const ConstraintEntry& entry) {
        return entry.Feature1 == feature1 && entry.Feature2 == feature2 &&
               first.CoveredBy(entry.Option1) && second.CoveredBy(entry.Option2);
    });
}

uint32_t FindConflict(const PrinterDescription& description, std::span<const uint8_t> installable,
                      std::span<const uint8_t> document, uint16_t feature, uint8_t option) {
    const uint32_t documentCount = description.DocumentFeatureCount;
    const bool forDocument = document.data() != nullptr;
    if (forDocument && option == kNoOption) {
        return 0;
    }
    const uint32_t target = forDocument ? feature : documentCount + feature;
    if (target >= kNoPosition) {
        return 0;
    }
    const size_t installableCount =
        std::min<size_t>(description.InstallableFeatureCount, installable.size());

    // One pass over the table finds the lowest position in conflict, which is the first that
    // asking feature by feature would meet.
    NoneOrFalseAnswer self(description, static_cast<uint16_t>(target), option);
    const FeatureRecord* firstInstallable = nullptr;
    const auto selectedIsNone = [&](uint32_t position, uint8_t selected) {
        if (selected == kNoOption) {
            return false;
        }
        if (position < documentCount) {
            return IsNoneOrFalseOption(description, static_cast<uint16_t>(position), selected);
        }
        if (firstInstallable == nullptr) {
            firstInstallable = NthListEntry(description.Features.Target(), documentCount);
        }
        return IsNoneOrFalse(
            OptionOf(NthListEntry(firstInstallable, position - documentCount), selected));
    };
    uint32_t lowest = kNoPosition;
    uint8_t lowestOption = kNoOption;
    for (const ConstraintEntry& entry : ConstraintsOf(description)) {
        const uint32_t position = entry.Feature1;
        if (entry.Feature2 != target || position >= lowest) {
            continue;
        }
        uint8_t selected = kNoOption;
        if (position < documentCount) {
            if (!forDocument || position == target || position >= document.size() ||
                document[position] == kNoOption) {
                continue;
            }
            selected = document[position];
        } else {
            if (position - documentCount >= installableCount ||
                (!forDocument && position == target)) {
                continue;
            }
            selected = installable[position - documentCount];
        }
        if (!self.CoveredBy(entry.Option2) ||
            (entry.Option1 != selected &&
             (entry.Option1 != kNoOption || selectedIsNone(position, selected)))) {
            continue;
        }
        lowest = position;
        lowestOption = selected;
    }
    if (lowest == kNoPosition) {
        return 0;
    }
    return (lowest < documentCount ? kConflictWithDocument : kConflictWithInstallable) |
           (lowest & 0xFF) << 8 | lowestOption;
}

uint16_t ResolveInstallableConflicts(const PrinterDescription& description,
                                     std::span<uint8_t> selections) {
    const uint16_t count = description.InstallableFeatureCount;
    // A feature that no record has room for still takes part.
    platform::GlobalBlock overflow;
    std::span<uint8_t> all = selections.first(std::min<size_t>(count, selections.size()));
    if (count > selections.size()) {
        overflow.reset(GlobalAlloc(GMEM_FIXED, count));
        if (overflow) {
            all = {static_cast<uint8_t*>(overflow.get()), count};
        }
    }
    const FeatureRecord* feature =
        NthListEntry(description.Features.Target(), description.DocumentFeatureCount);
    for (uint8_t& selection : all) {
        selection = feature != nullptr ? static_cast<uint8_t>(feature->Default) : kNoOption;
        feature = feature != nullptr ? feature->Next.Target() : nullptr;
    }
    InstallableSettlement settlement(description, all);
    if (all.size() == count && !all.empty() && settlement.Prepare()) {
        settlement.Settle();
    }
    if (all.data() != selections.data()) {
        std::copy_n(all.begin(), selections.size(), selections.begin());
    }
    return count;
}

uint16_t GetNumberField(const char* text, unsigned field) {
    if (text == nullptr || strnlen(text, kLongestNumberList + 1) > kLongestNumberList) {
        return 1;
    }
    const NumberField found = FindNumberField(text, field);
    if (!found.isList) {
        return 1;
    }
    // Two separators in a row leave an empty field, which must not borrow the next one's number.
    return IsBlank(*found.text) ? 0 : static_cast<uint16_t>(LeadingNumber(found.text));
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

int32_t PointsFromMicrons(int32_t microns) {
    return ClampToInt32(static_cast<float>(microns) * kUnitsPerMicron);
}

uint32_t LeadingNumber(std::string_view text) {
    size_t place = 0;
    while (place < text.size() && IsBlank(text[place])) {
        ++place;
    }
    const bool negative = place < text.size() && text[place] == '-';
    if (negative || (place < text.size() && text[place] == '+')) {
        ++place;
    }
    uint32_t number = 0;
    for (; place < text.size() && text[place] >= '0' && text[place] <= '9'; ++place) {
        number = number * 10 + static_cast<uint32_t>(text[place] - '0');
    }
    return negative ? 0 - number : number;
}

uint32_t LeadingNumber(const char* text) {
    return text != nullptr ? LeadingNumber(std::string_view(text)) : 0;
}

}  // namespace ksfax
