#pragma once

// Asks a relocated description everything that the driver asks one, and demands that whatever it
// leads to lies inside its block; in a build with sanitizers these judge the lookups too.

#include <array>
#include <cstdlib>
#include <cstring>
#include <span>

#include "description/conflicts.h"
#include "description/printer_description.h"

namespace fuzz {

// What the answers add up to, so that asking is not optimised away.
inline volatile size_t touched = 0;

inline void Demand(bool holds) {
    if (!holds) {
        std::abort();
    }
}

// Follows every reference of a loaded description.
class InsideWalk {
  public:
    explicit InsideWalk(const ksfax::PrinterDescription& description)
        : begin_(reinterpret_cast<uintptr_t>(&description)), end_(begin_ + description.TotalSize) {}

    void Follow(const ksfax::PrinterDescription& d) {
        using namespace ksfax;
        for (const Ref<char> text :
             {d.NickName, d.Password, d.ExitServer, d.CustomPageSizeCode, d.JCLBegin, d.JCLEnd,
              d.JCLToPSInterpreter, d.SleepMode, d.DefaultLanguage}) {
            String(text);
        }
        if (d.PpdFileName) {
            const WCHAR* text = d.PpdFileName.Target();
            do {
                Demand(Holds(text, sizeof(*text)));
            } while (*text++ != 0);
        }
        FollowTable(d.OrderDependencies);
        FollowTable(d.UIConstraints);
        uint32_t groups[2] = {};
        for (const FeatureRecord& feature : ListOf(d.Features)) {
            Demand(Holds(&feature, sizeof(feature)) && feature.Installable <= 1);
            Demand(feature.Index == groups[feature.Installable]++);
            Name(feature.Name);
            String(feature.Translation);
            FollowOptions(feature);
        }
        Demand(groups[0] == d.DocumentFeatureCount && groups[1] == d.InstallableFeatureCount);
        for (const DeviceFontRecord& font : ListOf(d.DeviceFonts)) {
            Demand(Holds(&font, sizeof(font)));
            Name(font.Name);
            String(font.Description);
        }
    }

  private:
    void FollowOptions(const ksfax::FeatureRecord& feature) {
        using namespace ksfax;
        for (const OptionRecord& option : ListOf(feature.Options)) {
            Demand(Holds(&option, feature.OptionSize));
            Name(option.Name);
            String(option.Translation);
            String(option.Invocation);
            if (feature.Kind == FeatureKind::PageSize) {
                Demand(feature.OptionSize == sizeof(PaperOptionRecord));
                String(AsPaper(option).PageSizeLInvocation);
                String(AsPaper(option).PageRegionInvocation);
            } else if (feature.Kind == FeatureKind::Resolution) {
                Demand(feature.OptionSize == sizeof(ResolutionOptionRecord));
                String(AsResolution(option).JCLResolutionInvocation);
                String(AsResolution(option).SetResolutionInvocation);
            }
        }
    }
    template <typename Table>
    void FollowTable(ksfax::Ref<Table> reference) {
        if (const Table* table = reference.Target()) {
            Demand(Holds(table, sizeof(*table)));
            Demand(table->Count == 0 ||
                   Holds(table->Entries(), table->Count * sizeof(*table->Entries())));
        }
    }
    void Name(ksfax::Ref<char> text) {
        Demand(static_cast<bool>(text));
        String(text);
    }
    void String(ksfax::Ref<char> text) {
        if (text) {
            Demand(Holds(text.Target(), 1) &&
                   std::memchr(text.Target(), 0, end_ - text.value) != nullptr);
        }
    }
    // Each piece is led to once, so lists end while there are bytes to pay for them.
    bool Holds(const void* piece, size_t bytes) {
        const auto place = reinterpret_cast<uintptr_t>(piece);
        paid_ += bytes;
        return place >= begin_ + sizeof(ksfax::PrinterDescription) && place <= end_ &&
               bytes <= end_ - place && paid_ <= end_ - begin_;
    }

    uintptr_t begin_;
    uintptr_t end_;
    size_t paid_ = 0;
};

inline void AskEverything(const ksfax::PrinterDescription& description) {
    using namespace ksfax;
    InsideWalk(description).Follow(description);
    for (const FeatureRecord& feature : ListOf(description.Features)) {
        touched = touched + GetDefaultOptionValue(feature);
    }

    // As many selections as the records of the driver hold.
    std::array<uint8_t, 64> document = {};
    std::array<uint8_t, 64> installable = {};
    GetDefaultSelections(description, document);
    ResolveInstallableConflicts(description, installable);
    for (uint16_t feature = 0; feature < 4; ++feature) {
        for (uint8_t option : {0, 1, 254, 255}) {
            touched = touched +
                      FindConflict({description, installable, document}, feature, option) +
                      FindConflict({description, installable, {}}, feature, option);
        }
    }
    touched = touched + GetDefaultResolution(description) + GetDefaultBin(description) +
              GetSleepModeField(description, 2);
    FindResolutionOption(description, 200);
    if (const FeatureRecord* papers = FeatureOf(description, FeatureKind::PageSize)) {
        FindOptionByNameOrTranslation(papers->Options.Target(), "A4");
        touched = touched + static_cast<size_t>(MicronsFromPoints(papers->NameHash));
    }
    for (unsigned kind = 0; kind < kFeatureKinds; ++kind) {
        touched = touched + GetDefaultOptionValue(description, static_cast<FeatureKind>(kind));
    }
}

}  // namespace fuzz
