#pragma once

// Asks a relocated description everything that the driver asks one, and touches every string. The
// sanitizers do the judging.

#include <array>
#include <cstring>
#include <span>

#include "description/conflicts.h"
#include "description/printer_description.h"

namespace fuzz {

// What strings add up to, so that reading them is not optimised away.
inline volatile size_t touched = 0;

inline void Touch(ksfax::Ref<char> text) {
    if (text) {
        touched = touched + std::strlen(text.Target());
    }
}

inline void TouchOption(const ksfax::FeatureRecord& feature, const ksfax::OptionRecord& option) {
    Touch(option.Name);
    Touch(option.Translation);
    Touch(option.Invocation);
    switch (feature.Kind) {
    case ksfax::FeatureKind::PageSize:
        Touch(AsPaper(option).PageSizeLInvocation);
        Touch(AsPaper(option).PageRegionInvocation);
        touched = touched + AsPaper(option).ImageableAreaLExtra[1];
        break;
    case ksfax::FeatureKind::InputSlot:
        touched = touched + AsSlot(option).RequiresPageRegion;
        break;
    case ksfax::FeatureKind::Resolution:
        Touch(AsResolution(option).JCLResolutionInvocation);
        Touch(AsResolution(option).SetResolutionInvocation);
        break;
    case ksfax::FeatureKind::VMOption:
        touched = touched + AsMemory(option).MemoryAmount;
        break;
    default:
        break;
    }
}

inline void AskEverything(const ksfax::PrinterDescription& description) {
    using namespace ksfax;
    if (const WCHAR* path = description.PpdFileName.Target()) {
        while (*path != 0) {
            ++path;
        }
    }
    for (const Ref<char> text :
         {description.NickName, description.Password, description.ExitServer,
          description.CustomPageSizeCode, description.JCLBegin, description.JCLEnd,
          description.JCLToPSInterpreter, description.SleepMode, description.DefaultLanguage}) {
        Touch(text);
    }
    for (const FeatureRecord& feature : ListOf(description.Features)) {
        Touch(feature.Name);
        Touch(feature.Translation);
        for (const OptionRecord& option : ListOf(feature.Options)) {
            TouchOption(feature, option);
        }
        touched = touched + GetDefaultOptionValue(feature);
    }
    for (const DeviceFontRecord& font : ListOf(description.DeviceFonts)) {
        Touch(font.Name);
        Touch(font.Description);
    }
    if (const OrderDependencyTable* orders = description.OrderDependencies.Target()) {
        for (uint16_t i = 0; i < orders->Count; ++i) {
            touched = touched + orders->Entries()[i].Section;
        }
    }

    // As many selections as the records of the driver hold.
    std::array<uint8_t, 64> document = {};
    std::array<uint8_t, 64> installable = {};
    GetDefaultSelections(description, document);
    ResolveInstallableConflicts(description, installable);
    uint16_t index = 0;
    for (uint16_t feature = 0; feature < 4; ++feature) {
        for (uint8_t option : {0, 1, 254, 255}) {
            touched = touched +
                      FindConflict({description, installable, document}, feature, option) +
                      FindConflict({description, installable, {}}, feature, option) +
                      IsConstrained(description, feature, option, 1, option);
            GetFeatureOption(description, feature, option, nullptr, nullptr);
        }
    }
    touched = touched + GetDefaultResolution(description) + GetDefaultBin(description) +
              GetSleepModeField(description, 2);
    FindResolutionOption(description, 200);
    FindByNameWithIndex(description.Features.Target(), "PageSize", &index);
    if (const FeatureRecord* papers = FeatureOf(description, FeatureKind::PageSize)) {
        FindOptionByNameOrTranslation(papers->Options.Target(), "A4", &index);
        touched = touched + static_cast<size_t>(MicronsFromPoints(papers->NameHash));
    }
    for (unsigned kind = 0; kind < kFeatureKinds; ++kind) {
        touched = touched + GetDefaultOptionValue(description, static_cast<FeatureKind>(kind));
    }
}

}  // namespace fuzz
