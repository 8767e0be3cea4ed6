#include "tool/settings_choice.h"

#include <algorithm>
#include <charconv>
#include <cmath>
#include <functional>
#include <iterator>
#include <utility>
#include <vector>

#include "platform/embedded/property_sheets.h"
#include "platform/embedded/text.h"
#include "platform/embedded/windows.h"
#include "platform/windows_api.h"

#include "description/paper_keywords.h"
#include "description/printer_description.h"
#include "description/text.h"
#include "resources/resource.h"
#include "tool/failure.h"
#include "tool/fax_printer.h"
#include "tool/ppd_file.h"

namespace tool {

namespace {

using ksfax::FeatureKind;
using ksfax::OptionRecord;
using ksfax::PrinterDescription;

struct Paper {
    std::string name;
    std::string translation;
    short code;
};

// In the vocabulary in which the driver looks for a record's paper: the Paper feature's codes, or
// without one the codes of the page sizes' keywords.
std::vector<Paper> PapersOf(const PrinterDescription& description) {
    const ksfax::FeatureRecord* codes = FeatureOf(description, FeatureKind::Paper);
    const ksfax::FeatureRecord* feature =
        codes != nullptr ? codes : FeatureOf(description, FeatureKind::PageSize);
    std::vector<Paper> papers;
    if (feature == nullptr) {
        return papers;
    }
    for (const OptionRecord& option : ListOf(feature->Options)) {
        const char* name = option.Name.Target();
        papers.push_back(
            {.name = FromPpd(name),
             .translation = FromPpd(option.Translation.Target()),
             .code = short(codes != nullptr ? ksfax::LeadingNumber(option.Invocation.Target())
                                            : ksfax::PaperKeywordToCode(name))});
    }
    return papers;
}

// "200dpi" and "200x100dpi": dots per inch across and down; zeros for a name of no such form.
std::pair<unsigned, unsigned> DotsOfResolution(std::string_view name) {
    unsigned across = 0;
    unsigned down = 0;
    const char* end = name.data() + name.size();
    const auto [rest, error] = std::from_chars(name.data(), end, across);
    if (error != std::errc()) {
        return {0, 0};
    }
    if (rest == end || *rest != 'x' || std::from_chars(rest + 1, end, down).ec != std::errc()) {
        down = across;
    }
    return {across, down};
}

std::vector<std::string> ResolutionsOf(const PrinterDescription& description) {
    std::vector<std::string> resolutions;
    const auto add = [&](unsigned across, unsigned down) {
        resolutions.push_back(std::to_string(across) + 'x' + std::to_string(down));
    };
    const ksfax::FeatureRecord* feature = FeatureOf(description, FeatureKind::Resolution);
    if (feature == nullptr) {
        add(GetDefaultResolution(description), GetDefaultResolution(description));
        return resolutions;
    }
    for (const OptionRecord& option : ListOf(feature->Options)) {
        const auto [across, down] = DotsOfResolution(option.Name.Target());
        if (across != 0) {
            add(across, down);
        }
    }
    return resolutions;
}

std::string Joined(const std::vector<std::string>& names) {
    std::string all;
    for (const std::string& name : names) {
        all += (all.empty() ? "" : ", ") + name;
    }
    return all.empty() ? "none" : all;
}

short FindPaper(const std::vector<Paper>& papers, const std::string& ppd,
                const std::string& wanted) {
    const std::u16string name = embedded::Utf16(wanted);
    const auto find = [&](auto member) {
        return std::ranges::find_if(papers, [&](const Paper& paper) {
            return embedded::EqualIgnoringCase(embedded::Utf16(std::invoke(member, paper)), name);
        });
    };
    auto found = find(&Paper::name);
    if (found == papers.end()) {
        found = find(&Paper::translation);
    }
    if (found == papers.end()) {
        std::vector<std::string> names;
        std::ranges::transform(papers, std::back_inserter(names), &Paper::name);
        throw UserError(ppd + " offers no paper \"" + wanted + "\"; its papers are " +
                        Joined(names));
    }
    return found->code;
}

// What a person does on the page; what of it the page does not offer, empty for nothing.
std::string MakeChoices(embedded::Windows& windows, HWND page, const SettingsChoice& choice) {
    if (choice.paperCode) {
        const HWND papers = GetDlgItem(page, IDC_PAPER_SIZE);
        const auto count = static_cast<int>(SendMessageW(papers, CB_GETCOUNT, 0, 0));
        int item = 0;
        // An item has the whole code, the record and the choice its low 16 bits.
        while (item < count &&
               static_cast<short>(SendMessageW(papers, CB_GETITEMDATA, static_cast<WPARAM>(item),
                                               0)) != *choice.paperCode) {
            ++item;
        }
        if (!windows.Choose(papers, item)) {
            return "paper " + std::to_string(*choice.paperCode) + " on its page";
        }
    }
    if (choice.landscape && !windows.Click(GetDlgItem(page, IDC_LANDSCAPE))) {
        return "orientation on its page";
    }
    if (choice.faxResolution &&
        !windows.Click(GetDlgItem(page, *choice.faxResolution != 0 ? IDC_RESOLUTION_200X100
                                                                   : IDC_RESOLUTION_200X200))) {
        return "resolution on its page";
    }
    return {};
}

}  // namespace

SettingsChoice FindSettings(const PrinterDescription& description, const std::string& ppd,
                            const SettingsOptions& options) {
    SettingsChoice choice;
    choice.landscape = options.landscape;
    if (!options.paper.empty()) {
        choice.paperCode = FindPaper(PapersOf(description), ppd, options.paper);
    }
    if (!options.resolution.empty()) {
        const std::vector<std::string> resolutions = ResolutionsOf(description);
        if (std::ranges::find(resolutions, options.resolution) == resolutions.end()) {
            throw UserError(ppd + " offers no resolution " + options.resolution +
                            "; its resolutions are " + Joined(resolutions));
        }
        choice.faxResolution = options.resolution == "200x100" ? 1 : 0;
    }
    return choice;
}

ksfax::JobSettings ChooseOnSheet(embedded::Machine& machine, HANDLE printer,
                                 const SettingsChoice& choice) {
    std::string missing = "property sheet";
    const auto user = [&](embedded::PropertySheet& sheet) {
        missing = MakeChoices(machine.windows(), sheet.page(), choice);
        if (missing.empty()) {
            sheet.PressOk();
        }
    };
    embedded::InstallPropertySheetHost(machine).user = user;
    std::u16string name = kPrinterName;
    ksfax::JobSettings confirmed = {};
    const LONG result = DrvDocumentProperties(nullptr, printer, name.data(), &confirmed.devMode,
                                              nullptr, DM_IN_PROMPT | DM_OUT_BUFFER);
    if (result != IDOK) {
        throw UserError("the driver shows no " + missing +
                        "; see with ksfax page and ksfax describe what it makes of the PPD");
    }
    return confirmed;
}

PageShape ShapeOfPages(const ksfax::JobSettings& settings, const PrinterDescription& description) {
    ksfax::JobSettings copy = settings;  // matching writes the form's name
    const DEVMODEW& devMode = copy.devMode;
    PageShape shape;
    shape.paperCode = devMode.dmPaperSize;
    shape.isLandscape = devMode.dmOrientation == DMORIENT_LANDSCAPE;
    shape.dpiAcross = unsigned(devMode.dmPrintQuality);
    shape.dpiDown =
        ksfax::PrivatePart(copy).faxResolution != 0 ? shape.dpiAcross / 2 : shape.dpiAcross;
    shape.paper = "paper " + std::to_string(shape.paperCode);
    for (const Paper& paper : PapersOf(description)) {
        if (paper.code == shape.paperCode) {
            shape.paper = paper.name;
            break;
        }
    }
    ksfax::PaperForm form = {};
    (void)ksfax::MatchJobFormToPaper(&copy.devMode, &form, description);
    DWORD across = form.formWidth;
    DWORD down = form.formHeight;
    if (shape.isLandscape) {
        std::swap(across, down);
    }
    const auto dots = [](DWORD points24_8, unsigned dpi) {
        return unsigned(std::lround(points24_8 / 256.0 / 72.0 * dpi));
    };
    shape.dotsAcross = dots(across, shape.dpiAcross);
    shape.dotsDown = dots(down, shape.dpiDown);
    return shape;
}

}  // namespace tool
