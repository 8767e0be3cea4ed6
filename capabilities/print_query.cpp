#include <algorithm>
#include <span>

#include "platform/owned.h"
#include "platform/windows_api.h"

#include "capabilities/query_message.h"
#include "core/module_state.h"
#include "core/printer_data.h"
#include "core/spooler_queries.h"
#include "description/conflicts.h"
#include "description/printer_description.h"
#include "description/text.h"
#include "jobsettings/job_settings.h"
#include "resources/resource.h"

namespace ksfax {
namespace {

constexpr int kFormatRoom = 64;  // characters of the one message that is itself a format
constexpr UINT kCanPrint = 0;    // no message number

// The numbers of the refusal messages, or kCanPrint, travel through the checks below.

// ---- Paper ----

bool IsDefaultPaperOfPrinter(HANDLE printer, const DEVMODEW* job) {
    const platform::GlobalBlock block = GetPrinterInfo(printer, 2);
    const auto* information = static_cast<const PRINTER_INFO_2W*>(block.get());
    // A printer that does not say what it holds is taken to hold what is asked for.
    const DEVMODEW* own =
        information != nullptr ? WholeRecordIn(block, information->pDevMode) : nullptr;
    return own == nullptr || PaperSizeOf(job) == PaperSizeOf(own);
}

bool SameText(const WCHAR* left, const WCHAR* right) {
    while (*left == *right && *left != 0) {
        ++left;
        ++right;
    }
    return *left == *right;
}

// Any slot that holds the form will do: a fax job names no tray.
bool IsInSomeTray(HANDLE printer, const WCHAR* formName) {
    const TrayFormTable table(ReadTrayFormTable(printer));
    if (!table) {
        return true;
    }
    TrayFormEntry read;
    const WCHAR* entry = table.get();
    for (;;) {
        const WCHAR* next = NextTrayFormEntry(entry, &read);
        if (next == entry) {
            return false;
        }
        if (SameText(read.formName, formName)) {
            return true;
        }
        entry = next;
    }
}

// The job's own record says which paper; where it comes from is what remained of the job's
// wishes after the merge.
UINT CheckPaper(HANDLE printer, DEVMODEW* job, const JobSettings& working,
                const PrinterDescription& description, PaperForm* form) {
    switch (MatchJobFormToPaper(job, form, description)) {
    case PaperMatch::None:
        return IDS_REFUSED_NO_SUCH_PAPER;
    case PaperMatch::UserDefined:
        return IDS_REFUSED_CUSTOM_PAPER;
    case PaperMatch::Paper:
        break;
    }
    const DEVMODEW& devMode = working.devMode;
    if ((devMode.dmFields & DM_DEFAULTSOURCE) == 0 || devMode.dmDefaultSource == DMBIN_FORMSOURCE) {
        return IsInSomeTray(printer, form->formName) ? kCanPrint : IDS_REFUSED_PAPER_NOT_LOADED;
    }
    if (devMode.dmDefaultSource == DMBIN_MANUAL || devMode.dmDefaultSource == DMBIN_ENVMANUAL) {
        return IsDescriptionPaperForm(description, *form) ? kCanPrint : IDS_REFUSED_MANUAL_FEED;
    }
    return IsDefaultPaperOfPrinter(printer, job) ? kCanPrint : IDS_REFUSED_PAPER_NOT_LOADED;
}

// ---- Options ----

// The resolution is chosen by number: the selection of its feature follows, so that constraints
// on resolutions apply. Options that name no number have no position in this count.
void SelectResolution(JobSettings* working, const PrinterDescription& description) {
    const FeatureRecord* feature = FeatureOf(description, FeatureKind::Resolution);
    if (feature == nullptr || feature->Index >= kDocumentFeatureRoom) {
        return;
    }
    uint8_t& selection = PrivatePart(*working).featureSelections[feature->Index];
    selection = kNoSelection;
    uint8_t position = 0;
    for (const OptionRecord& option : ListOf(feature->Options)) {
        const auto dpi = static_cast<int32_t>(LeadingNumber(option.Name.Target()));
        if (dpi <= 0) {
            continue;
        }
        if (dpi == working->devMode.dmPrintQuality) {
            selection = position;
            return;
        }
        if (++position == kNoSelection) {
            return;
        }
    }
}

bool OptionsConflict(HANDLE printer, JobSettings* working, const PrinterDescription& description) {
    const platform::GlobalBlock block = GetPrinterDataRecord(printer, description);
    if (!block) {
        return false;
    }
    if ((working->devMode.dmFields & DM_PRINTQUALITY) != 0) {
        SelectResolution(working, description);
    }
    // Each record has room for the first 64 features of its group; those beyond cannot be chosen.
    const auto& record = *static_cast<const PrinterDataRecord*>(block.get());
    const std::span<const uint8_t> installable(
        record.installableSelections,
        std::min<size_t>(description.InstallableFeatureCount, kInstallableRoom));
    const std::span<const uint8_t> document(
        PrivatePart(*working).featureSelections,
        std::min<size_t>(description.DocumentFeatureCount, kDocumentFeatureRoom));
    const SelectedOptions selected(description, installable, document);
    for (size_t i = 0; i < document.size(); ++i) {
        if (FindConflict(selected, static_cast<uint16_t>(i), document[i]) != 0) {
            return true;
        }
    }
    return false;
}

// ---- The whole question ----

bool ResolutionFits(const JobSettings& working, const PrinterDescription& description) {
    const int32_t quality = working.devMode.dmPrintQuality;
    return FindResolutionOption(description, static_cast<uint32_t>(quality)) != nullptr ||
           static_cast<uint32_t>(quality) == GetDefaultResolution(description);
}

UINT CheckJob(HANDLE printer, DEVMODEW* job, PaperForm* form) {
    const DescriptionUse use(AcquireDescription(printer, true));
    if (!use) {
        return IDS_REFUSED_NO_DESCRIPTION;
    }
    const PrinterDescription& description = *use.get();
    const platform::GlobalBlock block(GlobalAlloc(GMEM_FIXED, sizeof(JobSettings)));
    auto* working = static_cast<JobSettings*>(block.get());
    if (working == nullptr) {
        return IDS_REFUSED_NO_MEMORY;
    }
    BuildDefaultJobSettings(working, nullptr, description, IsMetricLocale());
    if (!MergeJobSettings(working, job, description)) {
        return IDS_REFUSED_BAD_SETTINGS;
    }
    if (const UINT refusal = CheckPaper(printer, job, *working, description, form)) {
        return refusal;
    }
    if (OptionsConflict(printer, working, description)) {
        return IDS_REFUSED_CONFLICT;
    }
    return ResolutionFits(*working, description) ? kCanPrint : IDS_REFUSED_RESOLUTION;
}

void WriteRefusal(DEVQUERYPRINT_INFO* query, UINT message, const PaperForm& form) {
    const auto write = [query](const WCHAR* format, std::span<const QueryArgument> arguments) {
        FormatQueryMessage(ownModule, query->pszErrorStr, query->cchErrorStr, &query->cchNeeded,
                           format, arguments);
    };
    if (message != IDS_REFUSED_PAPER_NOT_LOADED) {
        const QueryArgument number[] = {{.number = message}};
        write(TEXT("%!"), number);
        return;
    }
    WCHAR format[kFormatRoom] = {};
    (void)LoadStringW(ownModule, message, format, kFormatRoom);
    const QueryArgument names[] = {{.text = form.formName}, {.text = TEXT("")}};
    write(format, names);
}

}  // namespace
}  // namespace ksfax

extern "C" BOOL WINAPI DevQueryPrintEx(PDEVQUERYPRINT_INFO query) {
    using namespace ksfax;
    if (query->pDevMode == nullptr) {
        return TRUE;
    }
    PaperForm form;
    const UINT message = CheckJob(query->hPrinter, query->pDevMode, &form);
    if (message == kCanPrint) {
        return TRUE;
    }
    WriteRefusal(query, message, form);
    return FALSE;
}
