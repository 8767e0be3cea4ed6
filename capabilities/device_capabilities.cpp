#include <cstring>

#include "platform/owned.h"
#include "platform/windows_api.h"

#include "capabilities/paper_names.h"
#include "core/module_state.h"
#include "core/spooler_queries.h"
#include "description/paper_keywords.h"
#include "description/printer_description.h"
#include "description/text.h"
#include "jobsettings/job_settings.h"

namespace ksfax {
namespace {

constexpr size_t kPaperNameRoom = 64;  // characters of a slot, terminator included

// The smallest and the largest page, tenths of a millimetre: the user-defined size as it is
// delivered, and Legal. A fax device takes these whatever its description says.
constexpr DWORD kMinExtent = 1485 << 16 | 1050;
constexpr DWORD kMaxExtent = 3556 << 16 | 2159;

constexpr DWORD kMaxCopies = 999;
constexpr DWORD kPagesPerMinute = 16;

// ---- Papers ----

// A list of papers and, walked in step with it, the PageSize options that know the sizes.
struct Papers {
    bool hasCodes;  // the list is the Paper feature, whose invocations are paper codes
    const OptionRecord* first;
    const OptionRecord* firstPageSize;
};

Papers PapersOf(const PrinterDescription& description) {
    const FeatureRecord* paper = FeatureOf(description, FeatureKind::Paper);
    const FeatureRecord* pageSize = FeatureOf(description, FeatureKind::PageSize);
    const OptionRecord* sizes = pageSize != nullptr ? pageSize->Options.Target() : nullptr;
    if (paper != nullptr) {
        return {.hasCodes = true, .first = paper->Options.Target(), .firstPageSize = sizes};
    }
    return {.hasCodes = false, .first = sizes, .firstPageSize = sizes};
}

void WritePaperCodes(const Papers& papers, WORD* output) {
    for (const OptionRecord& option : List(papers.first)) {
        const bool hasCode = papers.hasCodes && option.Invocation;
        *output++ = hasCode ? static_cast<WORD>(LeadingNumber(option.Invocation.Target()))
                            : PaperKeywordToCode(option.Name.Target());
    }
}

void WritePaperNames(const Papers& papers, WCHAR* output) {
    for (const OptionRecord& option : List(papers.first)) {
        // The whole slot is written: callers pass slots on to other processes.
        std::memset(output, 0, kPaperNameRoom * sizeof(*output));
        if (const UINT string = PaperNameString(option.Name.Target())) {
            (void)LoadStringW(resourceModule, string, output, kPaperNameRoom);
        }
        output += kPaperNameRoom;
    }
}

LONG TenthsFromPoints(uint32_t points24_8) {
    return MicronsFromPoints(points24_8) / 100;
}

void WritePaperSizes(const Papers& papers, const PrivateJobSettings& part, POINTL* output) {
    const OptionRecord* pageSize = papers.firstPageSize;
    for (const OptionRecord& option : List(papers.first)) {
        if (pageSize == nullptr) {
            return;
        }
        const bool userDefined =
            option.Invocation && LeadingNumber(option.Invocation.Target()) == kUserPaperSize;
        const PaperOptionRecord& size = AsPaper(*pageSize);
        *output++ = userDefined ? POINTL{part.customWidth, part.customLength}
                                : POINTL{TenthsFromPoints(size.PaperWidth),
                                         TenthsFromPoints(size.PaperHeight)};
        pageSize = pageSize->Next.Target();
    }
}

DWORD AnswerPapers(HANDLE printer, WORD index, void* output, const PrinterDescription& description,
                   const PrivateJobSettings& part) {
    // A job names its paper by a form: without the forms database no paper can be offered.
    DWORD formCount = 0;
    if (!EnumerateForms(printer, &formCount)) {
        return GDI_ERROR;
    }
    const Papers papers = PapersOf(description);
    if (output != nullptr) {
        switch (index) {
        case DC_PAPERS:
            WritePaperCodes(papers, static_cast<WORD*>(output));
            break;
        case DC_PAPERSIZE:
            WritePaperSizes(papers, part, static_cast<POINTL*>(output));
            break;
        default:
            WritePaperNames(papers, static_cast<WCHAR*>(output));
            break;
        }
    }
    return CountListEntries(papers.first);
}

// ---- Resolutions ----

struct Resolution {
    LONG horizontal;
    LONG vertical;
};
static_assert(sizeof(Resolution) == 8);

// An option's name begins with the one number that counts for both directions: the user chooses
// the vertical resolution of a fax on the paper page.
DWORD AnswerResolutions(Resolution* output, const PrinterDescription& description) {
    DWORD count = 0;
    if (const FeatureRecord* feature = FeatureOf(description, FeatureKind::Resolution)) {
        for (const OptionRecord& option : ListOf(feature->Options)) {
            const auto dpi = static_cast<LONG>(LeadingNumber(option.Name.Target()));
            if (dpi <= 0) {
                continue;
            }
            if (output != nullptr) {
                output[count] = {dpi, dpi};
            }
            ++count;
        }
    }
    if (count == 0) {
        if (output != nullptr) {
            const auto dpi = static_cast<LONG>(GetDefaultResolution(description));
            output[0] = {dpi, dpi};
        }
        return 1;
    }
    return count;
}

// ---- Every index ----

DWORD Answer(HANDLE printer, WORD index, void* output, const PrinterDescription& description,
             const JobSettings& settings) {
    const DEVMODEW& devMode = settings.devMode;
    const PrivateJobSettings& part = PrivatePart(settings);
    switch (index) {
    case DC_FIELDS:
        return devMode.dmFields;
    case DC_PAPERS:
    case DC_PAPERSIZE:
    case DC_PAPERNAMES:
    case DC_MEDIAREADY:  // every paper counts as ready
        return AnswerPapers(printer, index, output, description, part);
    case DC_MINEXTENT:
        return kMinExtent;
    case DC_MAXEXTENT:
        return kMaxExtent;
    case DC_SIZE:
        return devMode.dmSize;
    case DC_EXTRA:
        return devMode.dmDriverExtra;
    case DC_VERSION:
        return devMode.dmSpecVersion;
    case DC_DRIVER:
        return devMode.dmDriverVersion;
    case DC_ENUMRESOLUTIONS:
        return AnswerResolutions(static_cast<Resolution*>(output), description);
    case DC_FILEDEPENDENCIES:
        if (output != nullptr) {
            *static_cast<WCHAR*>(output) = 0;
        }
        return 0;
    case DC_BINS:
    case DC_BINNAMES:
    case DC_DUPLEX:
    case DC_TRUETYPE:
    case DC_COLLATE:
        return 0;
    case DC_ORIENTATION:
        return (part.privateFlags & kLandscapeMinus90) != 0 ? 90 : 270;
    case DC_COPIES:
        return kMaxCopies;
    case DC_BINADJUST:
        return DCBA_FACEDOWNCENTER;
    case DC_PRINTRATE:
    case DC_PRINTRATEPPM:
        return kPagesPerMinute;
    case DC_PRINTRATEUNIT:
        return PRINTRATEUNIT_PPM;
    case DC_STAPLE:
        return (part.stapleMode & kStapleModeBits) == kStapling ? 1 : 0;
    case DC_COLORDEVICE:
        return (devMode.dmFields & DM_COLOR) != 0 ? 1 : 0;
    default:
        return GDI_ERROR;
    }
}

}  // namespace
}  // namespace ksfax

extern "C" DWORD WINAPI DrvDeviceCapabilities(HANDLE printer, LPWSTR deviceName, WORD index,
                                              PVOID output, PDEVMODEW settings) {
    using namespace ksfax;
    const DescriptionUse description(AcquireDescription(printer, true));
    if (!description) {
        return GDI_ERROR;
    }
    const platform::GlobalBlock block(GlobalAlloc(GMEM_FIXED, sizeof(JobSettings)));
    auto* working = static_cast<JobSettings*>(block.get());
    if (working == nullptr) {
        return GDI_ERROR;
    }
    BuildDefaultJobSettings(working, deviceName, *description.get(), IsMetricLocale());
    if (!MergeJobSettings(working, settings, *description.get())) {
        return GDI_ERROR;
    }
    return Answer(printer, index, output, *description.get(), *working);
}
