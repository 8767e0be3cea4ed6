#pragma once

// Descriptions made from PPD text in memory, for tests.

#include <algorithm>
#include <cstdio>
#include <cstring>
#include <iomanip>
#include <memory>
#include <span>
#include <sstream>
#include <string>
#include <string_view>
#include <utility>

#include <gtest/gtest.h>

#include "platform/embedded/machine.h"

#include "description/load_description.h"
#include "description/printer_description.h"

namespace ksfax {

struct FreeDescription {
    void operator()(PrinterDescription* block) const { GlobalFree(block); }
};
using DescriptionPtr = std::unique_ptr<PrinterDescription, FreeDescription>;

// The packed block, offsets in it; null when the text does not load. Needs a running machine.
inline DescriptionPtr PackText(std::string_view text, const ParseObserver* observer = nullptr) {
    ParseState* state = ParsePpdText(text, TEXT("C:\\P.PPD"), observer);
    return DescriptionPtr(state != nullptr ? PackDescription(state, observer) : nullptr);
}

// The same, found sound and relocated for the lookups.
inline DescriptionPtr LoadText(std::string_view text, const ParseObserver* observer = nullptr) {
    DescriptionPtr block = PackText(text, observer);
    if (block) {
        EXPECT_TRUE(IsSoundBlock(block.get(), block->TotalSize)) << text;
        RelocateDescription(block.get());
    }
    return block;
}

inline std::string_view BytesOf(const PrinterDescription& block) {
    return {reinterpret_cast<const char*>(&block), block.TotalSize};
}

// What cannot be printed is shown as \xNN.
inline std::string Visible(std::string_view text) {
    std::string shown;
    for (const char c : text) {
        char escaped[8];
        const auto byte = static_cast<unsigned char>(c);
        std::snprintf(escaped, sizeof(escaped), byte < 0x20 || byte > 0x7E ? "\\x%02X" : "%c",
                      byte);
        shown += escaped;
    }
    return shown;
}
// ---- What a description says, a line for each thing ----

// Each field of a record that differs from that of `usual`, a record of zeros unless given. The
// layout has its offset, its form (24.8 p, a number of 64 q, 32 u or 16 bits w, a text t) and what
// stands before its value, with ~ for a blank.
inline std::string Fields(const void* record, const char* layout, const char* after = "",
                          const void* usual = nullptr) {
    std::istringstream fields(layout);
    std::ostringstream all;
    all << std::setprecision(12);
    size_t offset = 0;
    char form = 0;
    for (std::string name; fields >> offset >> form >> name;) {
        const auto read = [&](const void* from) {
            uint64_t value = 0;
            const size_t size = form == 't' || form == 'q' ? 8 : form == 'w' ? 2 : 4;
            std::memcpy(&value, static_cast<const char*>(from) + offset,
                        from != nullptr ? size : 0);
            return value;
        };
        const uint64_t value = read(record);
        if (value != read(usual)) {
            std::ranges::replace(name, '~', ' ');
            all << name;
            form == 't'   ? all << Visible(Ref<char>{value}.Target())
            : form == 'p' ? all << static_cast<double>(value) / 256
                          : all << value;
            all << after;
        }
    }
    return all.str();
}

inline constexpr char kHeaderLayout[] =
    "16t=~NickName= 28w=~Protocols= 30w=~LandscapeOrientation= 32w=~TTRasterizer= "
    "34w=~LanguageEncoding= 36u=~FreeVM= 40u=~LanguageLevel= 48t=~Password= 56t=~ExitServer= "
    "64u=~SuggestedJobTimeout= 68u=~SuggestedWaitTimeout= 72u=~ColorDevice= 76u=~PrintPSError= "
    "80u=~CustomPageSize= 84u=~HasHWMargins= 88p=~HWMargins= 92p=~HWMargins= 96p=~HWMargins= "
    "100p=~HWMargins= 104t=~CustomPageSizeCode= "
    "112u=~Width~order~ 116w=~Width~type~ 120p=~Width~min~ 124p=~Width~max~ "
    "128u=~Height~order~ 132w=~Height~type~ 136p=~Height~min~ 140p=~Height~max~ "
    "144u=~WidthOffset~order~ 148w=~WidthOffset~type~ 152p=~WidthOffset~min~ "
    "156p=~WidthOffset~max~ 160u=~HeightOffset~order~ 164w=~HeightOffset~type~ "
    "168p=~HeightOffset~min~ 172p=~HeightOffset~max~ 176u=~Orientation~order~ "
    "180w=~Orientation~type~ 184p=~Orientation~min~ 188p=~Orientation~max~ "
    "192p=~MaxMediaWidth= 196p=~MaxMediaHeight= 200w=~Extensions= 202w=~ResolutionKeyword= "
    "204p=~ScreenAngle= 208p=~ScreenFreq= 216t=~JCLBegin= 224t=~JCLEnd= "
    "232t=~JCLToPSInterpreter= 240p=~FileVersion= 244u=~PrinterCaps= 256t=~SleepMode= "
    "264u=~MacroSetting= 268u=~DefaultFontSetting= 272u=~CompMode1028= 276u=~ShowBiasVolt= "
    "280u=~AddUMPD= 284u=~MakerFlags= 288t=~DefaultLanguage= 296w=~PrintRateA4= "
    "298w=~PrintRateLetter=";
inline constexpr char kPaperLayout[] =
    "24t/ 32t= 40t~L= 48t~region= 56p~size~ 60px 64p~left~ 68p~bottom~ 72p~right~ 76p~top~ "
    "80p~and~ 84p, 88p~L-left~ 92p~L-bottom~ 96p~L-right~ 100p~L-top~ 104p~and~ 108p,";

// A record's name, marked when its hash is not the name's.
template <typename Record>
std::string ShownName(const Record& record) {
    const char* const name = record.Name.Target();
    return Visible(name) + (record.NameHash == NameHash(name) ? "" : "#");
}

// Every header field that differs from an empty PPD's; the features, an installable one with a
// plus before it, and their options; fonts, constraints and order dependencies by position.
inline std::string Shown(const PrinterDescription& description) {
    static constexpr const char* kTypes[] = {" Boolean", "", " PickMany"};
    const DescriptionPtr empty = LoadText("\n");
    std::string all = Fields(&description, kHeaderLayout, "\n", empty.get());
    for (const FeatureRecord& feature : ListOf(description.Features)) {
        all += (feature.Installable != 0 ? "= +" : "= ") + ShownName(feature);
        all += Fields(&feature, "24t/ 46w~flags~ 32q~default~");
        all += kTypes[static_cast<unsigned>(feature.UIType)];
        const bool isKnown = feature.Kind < FeatureKind::Generic;
        all += !isKnown || FeatureOf(description, feature.Kind) == &feature ? ":" : " lost:";
        const char* const layout = feature.Kind == FeatureKind::PageSize ? kPaperLayout
                                   : feature.Kind == FeatureKind::InputSlot
                                       ? "24t/ 32t= 40u~region~"
                                   : feature.Kind == FeatureKind::VMOption ? "24t/ 32t= 40u~bytes~"
                                   : feature.Kind == FeatureKind::Resolution
                                       ? "24t/ 32t= 40t~jcl= 48t~set= 56p~angle~ 60p~freq~"
                                       : "24t/ 32t=";
        const char* before = " ";
        for (const OptionRecord& option : ListOf(feature.Options)) {
            all += std::exchange(before, ", ") + ShownName(option) + Fields(&option, layout);
        }
        all += "\n";
    }
    for (const DeviceFontRecord& font : ListOf(description.DeviceFonts)) {
        all += "= font " + ShownName(font) + Fields(&font, "36w~ 24t=") + "\n";
    }
    const auto place = [](unsigned feature, unsigned option) {
        return std::to_string(feature) + "." + std::to_string(option);
    };
    const ConstraintTable& constraints = *description.UIConstraints.Target();
    for (const auto& entry : std::span(constraints.Entries(), constraints.Count)) {
        all += "= " + place(entry.Feature1, entry.Option1) + " forbids " +
               place(entry.Feature2, entry.Option2) + "\n";
    }
    const OrderDependencyTable& orders = *description.OrderDependencies.Target();
    for (const auto& entry : std::span(orders.Entries(), orders.Count)) {
        all += "= " + place(entry.FeatureIndex, entry.OptionIndex) + " in " +
               std::to_string(entry.Section) + Fields(&entry, "4p~at~") + "\n";
    }
    return all;
}

}  // namespace ksfax
