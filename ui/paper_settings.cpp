#include "ui/paper_settings.h"

#include <algorithm>
#include <iterator>

#include "capabilities/paper_names.h"
#include "core/spooler_queries.h"
#include "description/printer_description.h"
#include "description/text.h"
#include "resources/resource.h"

namespace ksfax {

namespace {

constexpr PaperListEntry kFallbackPaperList[] = {
    {IDS_LABEL_A4, DMPAPER_A4},
    {IDS_LABEL_LETTER, DMPAPER_LETTER},
    {IDS_LABEL_LEGAL, DMPAPER_LEGAL},
    {IDS_LABEL_EXECUTIVE, DMPAPER_EXECUTIVE},
    {IDS_LABEL_A5, DMPAPER_A5},
    {IDS_LABEL_B5, DMPAPER_B5},
    {IDS_LABEL_C5, DMPAPER_ENV_C5},
    {IDS_LABEL_COM10, DMPAPER_ENV_10},
    {IDS_LABEL_DL, DMPAPER_ENV_DL},
    {IDS_LABEL_MONARCH, DMPAPER_ENV_MONARCH},
    {kPaperListEnd, 0},
};

// By paper code; the codes above 255 are the driver's own.
struct PaperLabel {
    uint32_t paperCode;
    UINT string;
};
constexpr PaperLabel kPaperLabels[] = {
    {DMPAPER_LETTER, IDS_LABEL_LETTER},
    {DMPAPER_A4, IDS_LABEL_A4},
    {DMPAPER_EXECUTIVE, IDS_LABEL_EXECUTIVE},
    {DMPAPER_ENV_B5, IDS_LABEL_B5},
    {1025, IDS_LABEL_LETTER_SHORT_EDGE},
    {1033, IDS_LABEL_A4_SHORT_EDGE},
    {1031, IDS_LABEL_EXECUTIVE_SHORT_EDGE},
    {1058, IDS_LABEL_B5_SHORT_EDGE},
    {DMPAPER_A5, IDS_LABEL_A5},
    {DMPAPER_ENV_10, IDS_LABEL_COM10},
    {DMPAPER_ENV_DL, IDS_LABEL_DL},
    {DMPAPER_ENV_C5, IDS_LABEL_C5},
    {DMPAPER_ENV_MONARCH, IDS_LABEL_MONARCH},
    {257, IDS_LABEL_ORGANIZER_J},
    {258, IDS_LABEL_ORGANIZER_K},
    {259, IDS_LABEL_ORGANIZER_L},
    {260, IDS_LABEL_ORGANIZER_M},
    {261, IDS_LABEL_3X5},
    {262, IDS_LABEL_A4_LONG},
    {DMPAPER_FOLIO, IDS_LABEL_FOLIO},
    {DMPAPER_A6, IDS_LABEL_A6},
    {DMPAPER_ENV_B6, IDS_LABEL_B6},
    {DMPAPER_LEGAL, IDS_LABEL_LEGAL},
    {DMPAPER_B5, IDS_LABEL_JIS_B5},
    {DMPAPER_JAPANESE_POSTCARD, IDS_LABEL_POSTCARD},
    {DMPAPER_JENV_YOU4, IDS_LABEL_JE4},
    {DMPAPER_JENV_CHOU3, IDS_LABEL_JL3},
    {263, IDS_LABEL_DL_LANDSCAPE},
};
static_assert(std::size(kPaperLabels) == 28);

// ---- The list of papers ----

// Takes and fills the block of the list; false without memory.
bool ListDescriptionPapers(PrinterSession* session) {
    const FeatureRecord* papers = FeatureOf(*session->description, FeatureKind::Paper);
    const OptionRecord* first = papers != nullptr ? papers->Options.Target() : nullptr;
    const SIZE_T entries = SIZE_T{CountListEntries(first)} + 1;
    session->paperListBlock =
        GlobalAlloc(GMEM_MOVEABLE | GMEM_ZEROINIT, entries * sizeof(PaperListEntry));
    if (session->paperListBlock == nullptr) {
        return false;
    }
    auto* entry = static_cast<PaperListEntry*>(GlobalLock(session->paperListBlock));
    if (entry == nullptr) {
        GlobalFree(session->paperListBlock);
        session->paperListBlock = nullptr;
        return false;
    }
    session->paperList = entry;
    for (const OptionRecord& option : List<OptionRecord>(first)) {
        *entry++ = {static_cast<uint16_t>(PaperNameString(option.Name.Target())),
                    LeadingNumber(option.Invocation.Target())};
    }
    *entry = {kPaperListEnd, 0};
    return true;
}

void SetPaperCode(JobSettings* settings, uint32_t paperCode) {
    settings->devMode.dmPaperSize = static_cast<short>(paperCode);
}

// The code that a record's 16 bits stand for in the list: those of papers are not negative, and
// a negative one matches none but itself.
uint32_t PaperCodeOf(const JobSettings& settings) {
    return static_cast<uint32_t>(int32_t{settings.devMode.dmPaperSize});
}

// What coming up and restoring the defaults have in common.
void MarkAsDefaults(JobSettings* settings) {
    PrivateJobSettings& part = PrivatePart(*settings);
    part.collateRequested = 0;
    part.counterGate = 0;
    part.defaultsMarker = 1;
    part.paperChanged = 1;
    settings->devMode.dmScale = 100;
}

}  // namespace

void BuildPaperList(PrinterSession* session) {
    FreePaperList(session);
    if (!ListDescriptionPapers(session)) {
        session->paperList = kFallbackPaperList;
    }
}

void FreePaperList(PrinterSession* session) {
    if (session->paperListBlock != nullptr) {
        GlobalUnlock(session->paperListBlock);
        GlobalFree(session->paperListBlock);
        session->paperListBlock = nullptr;
        session->paperList = nullptr;
    }
}

const PaperListEntry& PaperOfCode(const PrinterSession& session, uint32_t paperCode) {
    for (const PaperListEntry* entry = session.paperList; entry->displayString != kPaperListEnd;
         ++entry) {
        if (entry->paperCode == paperCode) {
            return *entry;
        }
    }
    return session.paperList[0];
}

UINT PaperLabelString(uint32_t paperCode) {
    const auto* row =
        std::find_if(std::begin(kPaperLabels), std::end(kPaperLabels),
                     [=](const PaperLabel& label) { return label.paperCode == paperCode; });
    return row != std::end(kPaperLabels) ? row->string : IDS_LABEL_UNDEFINED;
}

// ---- What the user does ----

const PaperListEntry& BeginPaperPage(PrinterSession* session) {
    JobSettings* settings = &session->jobSettings;
    const PaperListEntry& paper = PaperOfCode(*session, PaperCodeOf(*settings));
    SelectPaper(settings, paper.paperCode);
    MarkAsDefaults(settings);
    return paper;
}

void SelectPaper(JobSettings* settings, uint32_t paperCode) {
    SetPaperCode(settings, paperCode);
    PrivateJobSettings& part = PrivatePart(*settings);
    part.pagePaperSize = static_cast<uint16_t>(paperCode);
    part.paperChanged = 1;
}

bool SetOrientation(JobSettings* settings, bool portrait) {
    const short before = settings->devMode.dmOrientation;
    settings->devMode.dmOrientation = portrait ? DMORIENT_PORTRAIT : DMORIENT_LANDSCAPE;
    return settings->devMode.dmOrientation != before;
}

bool SetFaxResolution(JobSettings* settings, bool is200x100) {
    PrivateJobSettings& part = PrivatePart(*settings);
    const uint32_t before = part.faxResolution;
    part.faxResolution = is200x100 ? 1 : 0;
    return part.faxResolution != before;
}

const PaperListEntry& RestoreDefaults(PrinterSession* session) {
    const PrinterDescription& description = *session->description;
    JobSettings* settings = &session->jobSettings;
    DEVMODEW& publicPart = settings->devMode;
    PrivateJobSettings& part = PrivatePart(*settings);

    // `pagePaperSize` stays at what was last chosen.
    const PaperListEntry& paper =
        PaperOfCode(*session, IsMetricLocale() ? DMPAPER_A4 : DMPAPER_LETTER);
    SetPaperCode(settings, paper.paperCode);
    (void)SetOrientation(settings, true);
    (void)SetFaxResolution(settings, false);
    MarkAsDefaults(settings);
    publicPart.dmCollate = 0;
    publicPart.dmCopies = 1;
    part.mediaType = GetDefaultOptionValue(description, FeatureKind::MediaType);
    part.pagesPerSheetOut = 1;
    part.pagesPerSheet = 1;
    part.defaultsMarkerOut = 1;
    const uint16_t source = GetDefaultBin(description);
    publicPart.dmDefaultSource = static_cast<short>(source);
    part.source1 = source;
    part.source2 = source;
    part.reserved429 = 0;
    return paper;
}

}  // namespace ksfax
