#pragma once

// A loaded printer description made by hand: what a test, a benchmark or a fuzz target needs of
// one, without a PPD file. Document features are added before installable ones.

#include <deque>
#include <memory>
#include <string>
#include <vector>

#include "description/printer_description.h"

namespace ksfax {

class MadeDescription {
  public:
    PrinterDescription record = {};

    MadeDescription() {
        record.Version = kDescriptionVersion;
        record.LanguageLevel = 1;
    }
    MadeDescription(const MadeDescription&) = delete;
    MadeDescription& operator=(const MadeDescription&) = delete;

    FeatureRecord& AddFeature(FeatureKind kind, const char* name, uint64_t defaultValue = 0,
                              bool installable = false) {
        FeatureRecord& feature = features_.emplace_back();
        feature = {};
        feature.Name = Text(name);
        feature.NameHash = NameHash(name);
        feature.Default = defaultValue;
        feature.Kind = kind;
        feature.Installable = installable;
        uint16_t& count =
            installable ? record.InstallableFeatureCount : record.DocumentFeatureCount;
        feature.Index = count++;
        if (features_.size() == 1) {
            record.Features = RefTo(&feature);
        } else {
            features_[features_.size() - 2].Next = RefTo(&feature);
        }
        if (kind != FeatureKind::Generic) {
            record.FeatureByKind[static_cast<unsigned>(kind)] = RefTo(&feature);
        }
        return feature;
    }

    // With no text the invocation is absent.
    PaperOptionRecord& AddOption(FeatureRecord& feature, const char* name,
                                 const char* invocation = nullptr, uint32_t width = 0,
                                 uint32_t height = 0) {
        PaperOptionRecord& option = options_.emplace_back();
        option = {};
        option.Common.Name = Text(name);
        option.Common.NameHash = NameHash(name);
        option.Common.Invocation = Text(invocation);
        option.PaperWidth = width;
        option.PaperHeight = height;
        const Ref<OptionRecord> link = RefTo(&option.Common);
        Ref<OptionRecord>* last = &feature.Options;
        for (OptionRecord* walk = Mutable(*last); walk != nullptr; walk = Mutable(*last)) {
            last = &walk->Next;
        }
        *last = link;
        return option;
    }
    void Translate(PaperOptionRecord& option, const char* text) {
        option.Common.Translation = Text(text);
    }

    void AddConstraint(uint16_t feature1, uint16_t option1, uint16_t feature2, uint16_t option2) {
        constraints_.push_back({feature1, option1, feature2, option2});
        table_.resize(sizeof(ConstraintTable) + constraints_.size() * 12);
        const ConstraintTable head = {static_cast<uint16_t>(constraints_.size()), 8};
        std::memcpy(table_.data(), &head, sizeof(head));
        std::memcpy(table_.data() + sizeof(head), constraints_.data(), constraints_.size() * 8);
        record.UIConstraints.value = reinterpret_cast<uintptr_t>(table_.data());
    }

    Ref<char> Text(const char* text) {
        return text == nullptr ? Ref<char>{0} : RefTo(strings_.emplace_back(text).c_str());
    }

  private:
    template <typename Target>
    static Ref<std::remove_const_t<Target>> RefTo(Target* target) {
        return {reinterpret_cast<uintptr_t>(target)};
    }
    static OptionRecord* Mutable(Ref<OptionRecord> ref) {
        return const_cast<OptionRecord*>(ref.Target());
    }

    std::deque<std::string> strings_;
    std::deque<FeatureRecord> features_;
    std::deque<PaperOptionRecord> options_;
    std::vector<ConstraintEntry> constraints_;
    std::vector<uint8_t> table_;
};

}  // namespace ksfax
