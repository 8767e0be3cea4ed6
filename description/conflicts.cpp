#include "description/conflicts.h"

#include <algorithm>
#include <utility>

namespace ksfax {

namespace {

constexpr unsigned kSelectableOptions = 255;  // numbers 0 to 254; 255 means none

std::span<const ConstraintEntry> ConstraintsOf(const PrinterDescription& description) {
    const ConstraintTable* table = description.UIConstraints.Target();
    if (table == nullptr) {
        return {};
    }
    return {table->Entries(), table->Count};
}

// An array in global memory; null when memory runs out.
template <typename Element>
class GlobalArray {
  public:
    explicit GlobalArray(size_t count)
        : memory_(GlobalAlloc(GMEM_FIXED, count * sizeof(Element))) {}
    Element* get() const { return static_cast<Element*>(memory_.get()); }

  private:
    platform::GlobalBlock memory_;
};

// The options that constraints forbid of one feature.
class ForbiddenOptions {
  public:
    void Add(uint16_t option) {
        if (option == kNoOption) {
            any_ = true;
        } else if (option < kSelectableOptions) {
            options_[option] = true;
        }
    }

    // The first option left that can be selected; kNoOption when none is.
    uint8_t FirstAllowed(const FeatureRecord* feature) const {
        unsigned position = 0;
        const OptionRecord* option = feature != nullptr ? feature->Options.Target() : nullptr;
        for (; option != nullptr && position < kSelectableOptions; ++position) {
            if (!options_[position] && (!any_ || IsNamedNoneOrFalse(*option))) {
                return static_cast<uint8_t>(position);
            }
            option = option->Next.Target();
        }
        return kNoOption;
    }

  private:
    bool options_[kSelectableOptions] = {};
    bool any_ = false;
};

// The constraints among the installable features, arranged so that settling their selections
// costs time in proportion to features, options and constraints, whatever the file holds.
class InstallableSettlement {
  public:
    // `selections` has one for each installable feature.
    InstallableSettlement(const PrinterDescription& description, std::span<uint8_t> selections)
        : constraints_(ConstraintsOf(description)), selections_(selections),
          selected_(description, selections, {}), firstPosition_(description.DocumentFeatureCount),
          starts_(selections.size() + 1), entries_(constraints_.size()) {}

    // Out of memory changes nothing.
    void Settle() {
        if (starts_.get() == nullptr || entries_.get() == nullptr) {
            return;
        }
        GroupConstraints();
        for (uint32_t j = 0; j < selections_.size(); ++j) {
            SettleFeature(firstPosition_ + j);
        }
    }

  private:
    template <typename Visit>
    void ForEachAmongInstallables(Visit visit) const {
        for (const ConstraintEntry& constraint : constraints_) {
            if (selected_.At(constraint.Feature1) != nullptr &&
                selected_.At(constraint.Feature2) != nullptr) {
                visit(&constraint, constraint.Feature2 - firstPosition_);
            }
        }
    }

    // Groups the entries by their second feature in table order: those of installable feature j
    // are entries_[starts_[j]] to entries_[starts_[j + 1] - 1].
    void GroupConstraints() {
        uint32_t* const starts = starts_.get();
        const size_t count = selections_.size();
        std::fill_n(starts, count + 1, 0);
        ForEachAmongInstallables([&](const ConstraintEntry*, uint32_t j) { ++starts[j]; });
        uint32_t total = 0;
        for (size_t j = 0; j <= count; ++j) {
            total += std::exchange(starts[j], total);
        }
        ForEachAmongInstallables([&](const ConstraintEntry* constraint, uint32_t j) {
            entries_.get()[starts[j]++] = constraint;
        });
        // Each start has moved on to the next one's.
        std::copy_backward(starts, starts + count, starts + count + 1);
        starts[0] = 0;
    }

    std::span<const ConstraintEntry* const> ConstraintsOn(uint32_t position) const {
        const uint32_t* const start = starts_.get() + (position - firstPosition_);
        return {entries_.get() + start[0], entries_.get() + start[1]};
    }

    // One pass over the constraints on a feature finds both the first feature in conflict with its
    // selection and every option that the others forbid.
    void SettleFeature(uint32_t position) {
        ForbiddenOptions forbidden;
        uint32_t conflicting = kNoPosition;
        for (const ConstraintEntry* constraint : ConstraintsOn(position)) {
            if (constraint->Feature1 == position ||
                !selected_.At(constraint->Feature1)->CoveredBy(constraint->Option1)) {
                continue;
            }
            if (selected_.At(position)->CoveredBy(constraint->Option2)) {
                conflicting = std::min<uint32_t>(conflicting, constraint->Feature1);
            }
            forbidden.Add(constraint->Option2);
        }
        if (conflicting != kNoPosition && !SelectFirstAllowed(position, forbidden)) {
            // The conflict is known by its code, which holds 8 bits of the position.
            GiveWay(conflicting & 0xFF, position);
        }
    }

    // Gives the feature at `position` its first option that does not forbid the other's selection.
    void GiveWay(uint32_t position, uint32_t other) {
        if (selected_.At(position) == nullptr) {
            return;
        }
        ForbiddenOptions forbidden;
        for (const ConstraintEntry* constraint : ConstraintsOn(other)) {
            if (constraint->Feature1 == position &&
                selected_.At(other)->CoveredBy(constraint->Option2)) {
                forbidden.Add(constraint->Option1);
            }
        }
        SelectFirstAllowed(position, forbidden);
    }

    // False, and no change, when every option is forbidden.
    bool SelectFirstAllowed(uint32_t position, const ForbiddenOptions& forbidden) {
        const uint8_t allowed = forbidden.FirstAllowed(selected_.At(position)->feature());
        if (allowed == kNoOption) {
            return false;
        }
        selected_.Select(position, allowed);
        selections_[position - firstPosition_] = allowed;
        return true;
    }

    std::span<const ConstraintEntry> constraints_;
    std::span<uint8_t> selections_;
    SelectedOptions selected_;  // the same, as constraints ask for them
    uint32_t firstPosition_;    // of the installable features
    GlobalArray<uint32_t> starts_;
    GlobalArray<const ConstraintEntry*> entries_;
};

}  // namespace

bool Choice::IsNoneOrFalse() const {
    if (isNone_ == Answer::Unknown) {
        const OptionRecord* option = feature_ != nullptr && option_ != kNoOption
                                         ? NthListEntry(feature_->Options.Target(), option_)
                                         : nullptr;
        isNone_ = option != nullptr && IsNamedNoneOrFalse(*option) ? Answer::Yes : Answer::No;
    }
    return isNone_ == Answer::Yes;
}

SelectedOptions::SelectedOptions(const PrinterDescription& description,
                                 std::span<const uint8_t> installable,
                                 std::span<const uint8_t> document)
    : description_(description), firstInstallable_(description.DocumentFeatureCount),
      forDocument_(document.data() != nullptr) {
    if (ConstraintsOf(description).empty()) {
        return;  // and nothing will be asked
    }
    document = document.first(std::min<size_t>(firstInstallable_, document.size()));
    installable = installable.first(
        std::min<size_t>(description.InstallableFeatureCount, installable.size()));
    const size_t count = document.size() + installable.size();
    choices_ = room_.data();
    if (count > kOwnRoom) {
        memory_.reset(GlobalAlloc(GMEM_FIXED, count * sizeof(Choice)));
        choices_ = static_cast<Choice*>(memory_.get());
        if (choices_ == nullptr) {
            return;
        }
    }
    documentCount_ = static_cast<uint32_t>(document.size());
    installableCount_ = static_cast<uint32_t>(installable.size());

    Choice* next = choices_;
    const auto list = [&next](const FeatureRecord* feature, std::span<const uint8_t> options) {
        for (const uint8_t option : options) {
            *next++ = Choice(feature, option);
            feature = feature != nullptr ? feature->Next.Target() : nullptr;
        }
    };
    list(description.Features.Target(), document);
    list(NthListEntry(description.Features.Target(), firstInstallable_), installable);
}

Choice* SelectedOptions::Place(uint32_t position) const {
    if (position < firstInstallable_) {
        return position < documentCount_ ? &choices_[position] : nullptr;
    }
    const uint32_t index = position - firstInstallable_;
    return index < installableCount_ && position != kNoPosition ? &choices_[documentCount_ + index]
                                                                : nullptr;
}

void SelectedOptions::Select(uint32_t position, uint8_t option) {
    Choice* const choice = Place(position);
    *choice = Choice(choice->feature(), option);
}

uint32_t FindConflict(const SelectedOptions& selected, uint16_t feature, uint8_t option) {
    const PrinterDescription& description = selected.description();
    const uint32_t documentCount = description.DocumentFeatureCount;
    if (selected.forDocument() && option == kNoOption) {
        return 0;
    }
    const uint32_t target = selected.forDocument() ? feature : documentCount + feature;
    if (target >= kNoPosition) {
        return 0;
    }
    const Choice* const listed = selected.At(target);
    const Choice asked(listed != nullptr ? listed->feature()
                                         : NthListEntry(description.Features.Target(), target),
                       option);

    // One pass over the table finds the lowest position in conflict, which is the first that
    // asking feature by feature would meet.
    uint32_t lowest = kNoPosition;
    uint32_t code = 0;
    for (const ConstraintEntry& constraint : ConstraintsOf(description)) {
        const uint32_t position = constraint.Feature1;
        if (constraint.Feature2 != target || position >= lowest) {
            continue;
        }
        const Choice* const other = selected.At(position);
        const bool isDocument = position < documentCount;
        // A feature is not in conflict with itself, nor a document feature without a selection.
        if (other == nullptr || (isDocument && other->option() == kNoOption) ||
            (position == target && isDocument == selected.forDocument())) {
            continue;
        }
        if (other->CoveredBy(constraint.Option1) && asked.CoveredBy(constraint.Option2)) {
            lowest = position;
            code = (isDocument ? kConflictWithDocument : kConflictWithInstallable) |
                   (position & 0xFF) << 8 | other->option();
        }
    }
    return code;
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
    if (all.size() == count && !all.empty() && !ConstraintsOf(description).empty()) {
        InstallableSettlement(description, all).Settle();
    }
    if (all.data() != selections.data()) {
        std::copy_n(all.begin(), selections.size(), selections.begin());
    }
    return count;
}

}  // namespace ksfax
