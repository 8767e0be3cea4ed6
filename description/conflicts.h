#pragma once

// Which selections the description's constraints forbid. Features are positions in Features,
// options positions in a feature's Options, 255 being none. A constraint on any option of a
// feature holds for all of them but those named None or False.

#include <array>
#include <cstdint>
#include <span>

#include "platform/owned.h"

#include "description/printer_description.h"

namespace ksfax {

// One feature at one option, as constraints see it.
class Choice {
  public:
    Choice() = default;
    // `feature` may be null: a feature that does not exist.
    Choice(const FeatureRecord* feature, uint16_t option)
        : feature_(feature), option_(option), isNone_(Answer::Unknown) {}

    const FeatureRecord* feature() const { return feature_; }
    uint16_t option() const { return option_; }
    // Whether a constraint on option `constrained`, 255 being any, holds for this one.
    bool CoveredBy(uint16_t constrained) const {
        return constrained == option_ || (constrained == kNoOption && !IsNoneOrFalse());
    }

  private:
    // Looked up when first asked for, and once: walking the options is the dear part.
    bool IsNoneOrFalse() const;

    enum class Answer : uint8_t { Unknown, No, Yes };

    const FeatureRecord* feature_;
    uint16_t option_;
    mutable Answer isNone_;
};

// What is selected of the features, listed once for all the questions about it. For one thread.
class SelectedOptions {
  public:
    // `installable` and `document` hold a selection for each feature of the group by its index. A
    // feature beyond their end counts as not looked at; so do all of them when there are more than
    // 128 and memory for them runs out. Without document selections (data() null) the questions
    // are about installable features alone.
    SelectedOptions(const PrinterDescription& description, std::span<const uint8_t> installable,
                    std::span<const uint8_t> document);
    SelectedOptions(const SelectedOptions&) = delete;
    SelectedOptions& operator=(const SelectedOptions&) = delete;

    const PrinterDescription& description() const { return description_; }
    bool forDocument() const { return forDocument_; }
    // The feature at a position with its selection; null when it is not looked at.
    const Choice* At(uint32_t position) const { return Place(position); }
    // Changes the selection of a feature that is looked at.
    void Select(uint32_t position, uint8_t option);

  private:
    // A job's and a printer's selections are 64 each.
    static constexpr size_t kOwnRoom = 128;

    Choice* Place(uint32_t position) const;

    const PrinterDescription& description_;
    uint32_t firstInstallable_;
    uint32_t documentCount_ = 0;
    uint32_t installableCount_ = 0;
    bool forDocument_;
    Choice* choices_ = nullptr;  // document features, then installable ones
    platform::GlobalBlock memory_;
    std::array<Choice, kOwnRoom> room_;
};

// FindConflict's answer: the conflicting feature's position in bits 8 to 15 and its selected
// option in bits 0 to 7 under one of these bits.
constexpr uint32_t kConflictWithInstallable = 0x10000;
constexpr uint32_t kConflictWithDocument = 0x20000;

// Whether option `option` of `feature` clashes with what is selected: 0, or the code of the
// first conflict, document features before installable ones. With document selections `feature`
// is a document feature's position, and option 255 never conflicts; without them it is an
// installable feature's index within its group.
uint32_t FindConflict(const SelectedOptions& selected, uint16_t feature, uint8_t option);

// Gives each installable feature its default and then mends conflicts among them: a feature in
// conflict takes its first option without one; where it has none, the other side yields. Works on
// all installable features whatever fits in `selections`, which receives the first of them;
// returns InstallableFeatureCount. Out of memory leaves the defaults unmended.
uint16_t ResolveInstallableConflicts(const PrinterDescription& description,
                                     std::span<uint8_t> selections);

}  // namespace ksfax
