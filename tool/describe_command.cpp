// ksfax describe: the description that the driver makes of a PPD.

#include <algorithm>
#include <cstdio>
#include <cstring>
#include <iomanip>
#include <iostream>
#include <sstream>

#include "platform/embedded/text.h"

#include "description/text.h"
#include "tool/ppd_file.h"
#include "tool/program.h"

namespace tool {

namespace {

using nlohmann::ordered_json;

double Points(uint32_t points24_8) {
    return points24_8 / 256.0;
}

// Shown to a tenth of a millimetre, which is what job settings count in.
double Millimetres(uint32_t points24_8) {
    return Points(points24_8) / 72 * 25.4;
}

std::string Fixed(double value, int digits) {
    char text[64];
    std::snprintf(text, sizeof text, "%.*f", digits, value);
    return text;
}

// At most two digits after the point, and no more than are needed.
std::string Number(uint32_t value24_8) {
    std::string text = Fixed(Points(value24_8), 2);
    text.erase(text.find_last_not_of('0') + 1);
    if (text.ends_with('.')) {
        text.pop_back();
    }
    return text;
}

const char* Word(std::span<const char* const> words, unsigned value) {
    return value < words.size() ? words[value] : "?";
}
constexpr const char* kOrientations[] = {"Any", "Plus90", "Minus90"};
constexpr const char* kRasterizers[] = {"None", "Accept68k", "Type42", "TrueImage"};
constexpr const char* kEncodings[] = {"None", "ISOLatin1", "JIS83-RKSJ", "MaxStandard",
                                      "WindowsANSI"};
constexpr const char* kUITypes[] = {"Boolean", "PickOne", "PickMany"};
constexpr const char* kParameterTypes[] = {"int", "real", "points"};
constexpr const char* kParameters[] = {"Width", "Height", "WidthOffset", "HeightOffset",
                                       "Orientation"};
constexpr const char* kResolutionKeywords[] = {"Resolution", "JCLResolution", "SetResolution"};

struct BitName {
    uint32_t bit;
    const char* name;
};
constexpr BitName kProtocols[] = {{1, "PJL"}, {2, "BCP"}, {4, "TBCP"}, {8, "SIC"}};
constexpr BitName kExtensions[] = {{1, "DPS"}, {2, "CMYK"}, {4, "Composite"}, {8, "FileSystem"}};
constexpr BitName kMakerFlags[] = {{ksfax::kMakerQuickPrintSetup, "QuickPrintSetup"},
                                   {ksfax::kMakerMXMonitor, "MXMonitor"},
                                   {ksfax::kMakerStatusMonitor, "StatusMonitor"},
                                   {ksfax::kMakerGrayText, "GrayText"},
                                   {ksfax::kMakerUseReprint, "UseReprint"},
                                   {ksfax::kMakerUsePrinterFonts, "UsePrinterFonts"},
                                   {ksfax::kMakerNoBanding, "NoBanding"}};
constexpr BitName kSections[] = {
    {ksfax::kSectionExitServer, "ExitServer"},       {ksfax::kSectionProlog, "Prolog"},
    {ksfax::kSectionDocumentSetup, "DocumentSetup"}, {ksfax::kSectionPageSetup, "PageSetup"},
    {ksfax::kSectionJCLSetup, "JCLSetup"},           {ksfax::kSectionAnySetup, "AnySetup"}};

ordered_json Bits(std::span<const BitName> names, uint32_t value) {
    ordered_json found = ordered_json::array();
    for (const BitName& name : names) {
        if ((value & name.bit) != 0) {
            found.push_back(name.name);
        }
    }
    return found;
}

ordered_json Text(ksfax::Ref<char> text) {
    return text ? ordered_json(FromPpd(text.Target())) : ordered_json();
}

ordered_json Lengths(std::span<const uint32_t> lengths) {
    ordered_json all = ordered_json::array();
    for (const uint32_t length : lengths) {
        all.push_back(Points(length));
    }
    return all;
}

// Copies first: fields of the block may lie where only 4 bytes are aligned.
template <size_t Count>
ordered_json Lengths(const uint32_t (&lengths)[Count]) {
    uint32_t copy[Count];
    std::memcpy(copy, lengths, sizeof copy);
    return Lengths(std::span<const uint32_t>(copy));
}

ordered_json OptionJson(const ksfax::FeatureRecord& feature, const ksfax::OptionRecord& option) {
    ordered_json json = {{"name", Text(option.Name)},
                         {"translation", Text(option.Translation)},
                         {"invocation", Text(option.Invocation)}};
    switch (feature.Kind) {
    case ksfax::FeatureKind::PageSize: {
        const ksfax::PaperOptionRecord& paper = ksfax::AsPaper(option);
        json["pageSizeLInvocation"] = Text(paper.PageSizeLInvocation);
        json["pageRegionInvocation"] = Text(paper.PageRegionInvocation);
        json["width"] = Points(paper.PaperWidth);
        json["height"] = Points(paper.PaperHeight);
        json["imageableArea"] = Lengths(paper.ImageableArea);
        json["imageableAreaExtra"] = Lengths(paper.ImageableAreaExtra);
        json["imageableAreaL"] = Lengths(paper.ImageableAreaL);
        json["imageableAreaLExtra"] = Lengths(paper.ImageableAreaLExtra);
        break;
    }
    case ksfax::FeatureKind::InputSlot:
        json["requiresPageRegion"] = ksfax::AsSlot(option).RequiresPageRegion != 0;
        break;
    case ksfax::FeatureKind::Resolution: {
        const ksfax::ResolutionOptionRecord& resolution = ksfax::AsResolution(option);
        json["dpi"] = ksfax::LeadingNumber(option.Name.Target());
        json["jclResolutionInvocation"] = Text(resolution.JCLResolutionInvocation);
        json["setResolutionInvocation"] = Text(resolution.SetResolutionInvocation);
        json["resScreenAngle"] = Points(resolution.ResScreenAngle);
        json["resScreenFreq"] = Points(resolution.ResScreenFreq);
        break;
    }
    case ksfax::FeatureKind::VMOption:
        json["memoryAmount"] = uint32_t{ksfax::AsMemory(option).MemoryAmount};
        break;
    default:
        break;
    }
    return json;
}

std::string DefaultName(const ksfax::FeatureRecord& feature) {
    const uint64_t position = feature.Default;
    if (feature.Kind == ksfax::FeatureKind::Resolution) {
        return std::to_string(position) + " dpi";
    }
    const ksfax::OptionRecord* option =
        ksfax::NthListEntry(feature.Options.Target(), uint32_t(position));
    return option == nullptr ? "" : FromPpd(option->Name.Target());
}

ordered_json FeatureJson(const ksfax::FeatureRecord& feature) {
    ordered_json options = ordered_json::array();
    for (const ksfax::OptionRecord& option : ksfax::ListOf(feature.Options)) {
        options.push_back(OptionJson(feature, option));
    }
    ordered_json json = {{"name", Text(feature.Name)},
                         {"translation", Text(feature.Translation)},
                         {"kind", unsigned(feature.Kind)},
                         {"uiType", Word(kUITypes, unsigned(feature.UIType))},
                         {"installable", feature.Installable != 0},
                         {"index", unsigned(feature.Index)},
                         {"flags", unsigned(feature.Flags)},
                         {"optionSize", uint32_t{feature.OptionSize}}};
    const uint64_t position = feature.Default;
    if (feature.Kind == ksfax::FeatureKind::Resolution) {
        json["defaultDpi"] = position;
    } else {
        json["defaultIndex"] = position;
        json["default"] = DefaultName(feature);
    }
    json["options"] = options;
    return json;
}

// The names of features and options by their positions, which tables may hold in thousands.
class PairNames {
  public:
    explicit PairNames(const ksfax::PrinterDescription& description) {
        for (const ksfax::FeatureRecord& feature : ksfax::ListOf(description.Features)) {
            Names& names = features_.emplace_back();
            names.feature = FromPpd(feature.Name.Target());
            for (const ksfax::OptionRecord& option : ksfax::ListOf(feature.Options)) {
                names.options.push_back(FromPpd(option.Name.Target()));
            }
        }
    }
    // "PageSize A4", "PageSize" for any option, or null for what the description does not have.
    ordered_json Of(uint16_t feature, uint16_t option) const {
        if (feature >= features_.size()) {
            return nullptr;
        }
        const auto& [name, options] = features_[feature];
        if (option == ksfax::kNoOption) {
            return name;
        }
        return name + ' ' + (option < options.size() ? options[option] : "?");
    }

  private:
    struct Names {
        std::string feature;
        std::vector<std::string> options;
    };
    std::vector<Names> features_;
};

ordered_json ConstraintsJson(const ksfax::PrinterDescription& description, const PairNames& names) {
    ordered_json all = ordered_json::array();
    const ksfax::ConstraintTable* table = description.UIConstraints.Target();
    for (unsigned i = 0; table != nullptr && i < table->Count; ++i) {
        const ksfax::ConstraintEntry& entry = table->Entries()[i];
        all.push_back({{"feature1", unsigned(entry.Feature1)},
                       {"option1", unsigned(entry.Option1)},
                       {"feature2", unsigned(entry.Feature2)},
                       {"option2", unsigned(entry.Option2)},
                       {"when", names.Of(entry.Feature1, entry.Option1)},
                       {"forbids", entry.Feature1 == ksfax::kNoPosition
                                       ? ordered_json()
                                       : names.Of(entry.Feature2, entry.Option2)}});
    }
    return all;
}

ordered_json OrdersJson(const ksfax::PrinterDescription& description, const PairNames& names) {
    ordered_json all = ordered_json::array();
    const ksfax::OrderDependencyTable* table = description.OrderDependencies.Target();
    for (unsigned i = 0; table != nullptr && i < table->Count; ++i) {
        const ksfax::OrderDependencyEntry& entry = table->Entries()[i];
        const ordered_json section = Bits(kSections, entry.Section);
        all.push_back({{"order", Points(entry.Order)},
                       {"section", section.empty() ? ordered_json() : section[0]},
                       {"feature", unsigned(entry.FeatureIndex)},
                       {"option", unsigned(entry.OptionIndex)},
                       {"of", names.Of(entry.FeatureIndex, entry.OptionIndex)}});
    }
    return all;
}

ordered_json HeaderJson(const ksfax::PrinterDescription& d) {
    ordered_json parameters = ordered_json::object();
    for (size_t i = 0; i < std::size(kParameters); ++i) {
        const ksfax::CustomPageSizeParameter& parameter = d.ParamCustomPageSize[i];
        if (parameter.Order != 0) {
            parameters[kParameters[i]] = {{"order", uint32_t{parameter.Order}},
                                          {"type", Word(kParameterTypes, parameter.Type)},
                                          {"min", Points(parameter.Min)},
                                          {"max", Points(parameter.Max)}};
        }
    }
    return {{"PpdFileName",
             d.PpdFileName ? ordered_json(embedded::Utf8(d.PpdFileName.Target())) : ordered_json()},
            {"NickName", Text(d.NickName)},
            {"Version", unsigned(d.Version)},
            {"TotalSize", uint32_t{d.TotalSize}},
            {"Checksum", unsigned(d.Checksum)},
            {"FileVersion", Points(d.FileVersion)},
            {"Protocols", Bits(kProtocols, d.Protocols)},
            {"LandscapeOrientation", Word(kOrientations, d.LandscapeOrientation)},
            {"TTRasterizer", Word(kRasterizers, d.TTRasterizer)},
            {"LanguageEncoding", Word(kEncodings, d.LanguageEncoding)},
            {"LanguageLevel", uint32_t{d.LanguageLevel}},
            {"FreeVM", uint32_t{d.FreeVM}},
            {"Password", Text(d.Password)},
            {"ExitServer", Text(d.ExitServer)},
            {"SuggestedJobTimeout", uint32_t{d.SuggestedJobTimeout}},
            {"SuggestedWaitTimeout", uint32_t{d.SuggestedWaitTimeout}},
            {"ColorDevice", d.ColorDevice != 0},
            {"PrintPSError", d.PrintPSError != 0},
            {"CustomPageSize", d.CustomPageSize != 0},
            {"CustomPageSizeCode", Text(d.CustomPageSizeCode)},
            {"ParamCustomPageSize", parameters},
            {"MaxMediaWidth", Points(d.MaxMediaWidth)},
            {"MaxMediaHeight", Points(d.MaxMediaHeight)},
            {"HWMargins", d.HasHWMargins != 0 ? Lengths(d.HWMargins) : ordered_json()},
            {"Extensions", Bits(kExtensions, d.Extensions)},
            {"ResolutionKeyword", Word(kResolutionKeywords, d.ResolutionKeyword)},
            {"ScreenAngle", Points(d.ScreenAngle)},
            {"ScreenFreq", Points(d.ScreenFreq)},
            {"JCLBegin", Text(d.JCLBegin)},
            {"JCLEnd", Text(d.JCLEnd)},
            {"JCLToPSInterpreter", Text(d.JCLToPSInterpreter)},
            {"PrinterCaps", uint32_t{d.PrinterCaps}},
            {"SleepMode", Text(d.SleepMode)},
            {"MacroSetting", d.MacroSetting != 0},
            {"DefaultFontSetting", d.DefaultFontSetting != 0},
            {"CompMode1028", d.CompMode1028 != 0},
            {"ShowBiasVolt", d.ShowBiasVolt != 0},
            {"AddUMPD", d.AddUMPD != 0},
            {"MakerFlags", Bits(kMakerFlags, d.MakerFlags)},
            {"DefaultLanguage", Text(d.DefaultLanguage)},
            {"PrintRateA4", unsigned(d.PrintRateA4)},
            {"PrintRateLetter", unsigned(d.PrintRateLetter)},
            {"DocumentFeatureCount", unsigned(d.DocumentFeatureCount)},
            {"InstallableFeatureCount", unsigned(d.InstallableFeatureCount)}};
}

ordered_json DescriptionJson(const std::filesystem::path& ppd, const LoadedDescription& loaded) {
    ordered_json features = ordered_json::array();
    for (const ksfax::FeatureRecord& feature : ksfax::ListOf(loaded->Features)) {
        features.push_back(FeatureJson(feature));
    }
    ordered_json fonts = ordered_json::array();
    for (const ksfax::DeviceFontRecord& font : ksfax::ListOf(loaded->DeviceFonts)) {
        fonts.push_back({{"name", Text(font.Name)},
                         {"id", unsigned(font.FontId)},
                         {"description", Text(font.Description)}});
    }
    const PairNames names(*loaded);
    return {{"file", JsonPath(ppd)},
            {"cacheUsed", loaded.cacheUsed()},
            {"cacheFile", JsonPath(loaded.cacheFile())},
            {"header", HeaderJson(*loaded)},
            {"features", features},
            {"deviceFonts", fonts},
            {"constraints", ConstraintsJson(*loaded, names)},
            {"orderDependencies", OrdersJson(*loaded, names)}};
}

// A value of the header in one line; empty for what the PPD does not say.
std::string HeaderText(const ordered_json& value) {
    if (value.is_null() || (value.is_structured() && value.empty())) {
        return {};
    }
    if (value.is_boolean()) {
        return value.get<bool>() ? "True" : "False";
    }
    if (value.is_string()) {
        std::string text = Shown(value.get<std::string>());
        constexpr size_t kLongest = 60;
        if (text.size() > kLongest) {
            size_t end = kLongest;
            while (end > 0 && (static_cast<unsigned char>(text[end]) & 0xC0) == 0x80) {
                --end;  // never half a character
            }
            text = text.substr(0, end) + "...";
        }
        return text;
    }
    if (value.is_number_float()) {
        return Number(uint32_t(value.get<double>() * 256));
    }
    if (value.is_array()) {
        std::string all;
        for (const ordered_json& entry : value) {
            all += (all.empty() ? "" : " ") + HeaderText(entry);
        }
        return all;
    }
    return value.dump();
}

std::string PaperText(const ksfax::PaperOptionRecord& paper) {
    if (paper.PaperWidth == 0) {
        return "no size";
    }
    std::ostringstream text;
    text << std::setw(7) << Number(paper.PaperWidth) << " x " << std::left << std::setw(7)
         << Number(paper.PaperHeight) << std::right << " pt  " << std::setw(6)
         << Fixed(Millimetres(paper.PaperWidth), 1) << " x " << std::left << std::setw(6)
         << Fixed(Millimetres(paper.PaperHeight), 1) << " mm  printable";
    for (const uint32_t edge : {paper.ImageableArea[0], paper.ImageableArea[1],
                                paper.ImageableArea[2], paper.ImageableArea[3]}) {
        text << ' ' << Number(edge);
    }
    return text.str();
}

// Filled with blanks to a width in characters, of which UTF-8 has more bytes.
std::string Padded(std::string text, size_t width) {
    const auto more = size_t(std::ranges::count_if(
        text, [](char c) { return (static_cast<unsigned char>(c) & 0xC0) == 0x80; }));
    text.resize(std::max(text.size(), width + more), ' ');
    return text;
}

std::string ShownText(ksfax::Ref<char> text) {
    return Shown(FromPpd(text.Target()));
}

void TellFeature(const ksfax::FeatureRecord& feature) {
    std::cout << "  " << ShownText(feature.Name);
    if (feature.Translation) {
        std::cout << "  \"" << ShownText(feature.Translation) << '"';
    }
    std::cout << "  " << Word(kUITypes, unsigned(feature.UIType))
              << (feature.Installable != 0 ? ", installable" : "");
    const std::string name = DefaultName(feature);
    if (!name.empty()) {
        std::cout << ", default " << Shown(name);
    }
    std::cout << '\n';
    size_t longestName = 8;
    size_t longestTranslation = 0;
    for (const ksfax::OptionRecord& option : ksfax::ListOf(feature.Options)) {
        longestName = std::max(longestName, ShownText(option.Name).size());
        longestTranslation = std::max(longestTranslation, ShownText(option.Translation).size());
    }
    const bool isResolution = feature.Kind == ksfax::FeatureKind::Resolution;
    const uint64_t chosen = feature.Default;
    uint64_t position = 0;
    bool marked = false;
    for (const ksfax::OptionRecord& option : ksfax::ListOf(feature.Options)) {
        // Of several resolutions with one number the first one counts.
        const uint64_t value = isResolution ? ksfax::LeadingNumber(option.Name.Target()) : position;
        const bool isDefault = value == chosen && !marked;
        marked = marked || isDefault;
        std::string line = std::string("    ") + (isDefault ? "* " : "  ") +
                           Padded(ShownText(option.Name), longestName + 2) +
                           Padded(ShownText(option.Translation), longestTranslation + 2);
        if (feature.Kind == ksfax::FeatureKind::PageSize) {
            line += PaperText(ksfax::AsPaper(option));
        } else if (feature.Kind == ksfax::FeatureKind::VMOption) {
            line += Grouped(ksfax::AsMemory(option).MemoryAmount) + " bytes";
        } else if (feature.Kind == ksfax::FeatureKind::Paper && option.Invocation) {
            line += "paper code " + ShownText(option.Invocation);
        }
        line.erase(line.find_last_not_of(' ') + 1);
        std::cout << line << '\n';
        ++position;
    }
}

void TellDescription(const std::filesystem::path& ppd, const LoadedDescription& loaded) {
    const ordered_json json = DescriptionJson(ppd, loaded);
    std::cout << ShownPath(ppd) << '\n';
    std::cout << (loaded.cacheUsed()           ? "  taken from the cache file "
                  : loaded.cacheFile().empty() ? "  read anew; no cache file could be written"
                                               : "  read anew; the cache file is written: ")
              << ShownPath(loaded.cacheFile()) << "\n\nHeader\n";
    for (const auto& [name, value] : json["header"].items()) {
        const std::string text = HeaderText(value);
        if (!text.empty()) {
            std::cout << "  " << std::left << std::setw(24) << name << std::right << text << '\n';
        }
    }
    std::cout << "\nFeatures (* default)\n";
    for (const ksfax::FeatureRecord& feature : ksfax::ListOf(loaded->Features)) {
        TellFeature(feature);
    }
    if (!json["deviceFonts"].empty()) {
        std::cout << "\nDevice fonts\n";
        for (const ordered_json& font : json["deviceFonts"]) {
            std::cout << "  " << std::setw(2) << font["id"] << "  "
                      << Shown(font["name"].get<std::string>()) << '\n';
        }
    }
    if (!json["constraints"].empty()) {
        std::cout << "\nConstraints\n";
        for (const ordered_json& entry : json["constraints"]) {
            std::cout << "  "
                      << (entry["when"].is_null()
                              ? "(names what the description does not have; never holds)"
                              : Shown(entry["when"].get<std::string>()) + " forbids " +
                                    HeaderText(entry["forbids"]))
                      << '\n';
        }
    }
    if (!json["orderDependencies"].empty()) {
        std::cout << "\nOrder dependencies\n";
        for (const ordered_json& entry : json["orderDependencies"]) {
            std::cout << "  " << std::setw(8) << HeaderText(entry["order"]) << "  " << std::left
                      << std::setw(14) << HeaderText(entry["section"]) << std::right
                      << (entry["of"].is_null() ? "(names what the description does not have)"
                                                : HeaderText(entry["of"]))
                      << '\n';
        }
    }
}

}  // namespace

void AddDescribeCommand(CLI::App& program, int& exitCode) {
    struct Options {
        MachineOptions machine;
        std::string ppd;
        bool json = false;
    };
    auto options = std::make_shared<Options>();
    CLI::App* describe =
        program.add_subcommand("describe", "Show the description that the driver makes of a PPD");
    describe->add_option("PPD", options->ppd, "The PPD file")->required()->type_name("");
    describe->add_flag("--json", options->json, "Print the whole description as one JSON object");
    options->machine.AddTo(*describe);
    describe->callback([options, &exitCode] {
        MachineRun run(options->machine);
        const LoadedDescription loaded(options->ppd);
        if (options->json) {
            PrintJson(DescriptionJson(options->ppd, loaded));
        } else {
            TellDescription(options->ppd, loaded);
        }
        run.Save();
        exitCode = kDone;
    });
}

}  // namespace tool
