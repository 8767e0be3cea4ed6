#include <cstring>
#include <iterator>

#include "platform/owned.h"
#include "platform/windows_api.h"

#include "description/printer_description.h"
#include "description/text.h"
#include "jobsettings/job_settings.h"

namespace ksfax {
namespace {

constexpr DWORD kPaperFields = DM_PAPERSIZE | DM_PAPERLENGTH | DM_PAPERWIDTH | DM_FORMNAME;

// Window classes of the main windows of two applications that get a treatment of their own.
constexpr WCHAR kOpusClass[] = TEXT("OpusApp");
constexpr WCHAR kFlwClass[] = TEXT("FLWApp");

void NamePaperBy(DEVMODEW* target, DWORD field) {
    target->dmFields = (target->dmFields & ~kPaperFields) | field;
}

// A paper is named by one of size code, length and width, or form name; what names it now ends
// what named it before. A length and width count only beside the user-defined size code, and each
// leaves the other's bit alone.
void TakePaper(DEVMODEW* target, const DEVMODEW& copy) {
    const bool hasLength = (copy.dmFields & DM_PAPERLENGTH) != 0;
    const bool hasWidth = (copy.dmFields & DM_PAPERWIDTH) != 0;
    if (copy.dmPaperSize == kUserPaperSize &&
        ((hasLength && copy.dmPaperLength > 0) || (hasWidth && copy.dmPaperWidth > 0))) {
        target->dmFields &= ~(DM_PAPERSIZE | DM_FORMNAME);
        if (hasLength) {
            target->dmPaperLength = copy.dmPaperLength;
            target->dmFields |= DM_PAPERLENGTH;
        }
        if (hasWidth) {
            target->dmPaperWidth = copy.dmPaperWidth;
            target->dmFields |= DM_PAPERWIDTH;
        }
    } else if ((copy.dmFields & DM_PAPERSIZE) != 0) {
        target->dmPaperSize = copy.dmPaperSize;
        NamePaperBy(target, DM_PAPERSIZE);
    } else if ((copy.dmFields & DM_FORMNAME) != 0) {
        CopyWideFixed(target->dmFormName, copy.dmFormName);
        NamePaperBy(target, DM_FORMNAME);
    }
}

// The quality is looked at whether or not its bit says so: an application may set the value alone.
void TakeResolution(DEVMODEW* target, const DEVMODEW& copy, const PrinterDescription& description) {
    target->dmFields |= copy.dmFields & (DM_PRINTQUALITY | DM_YRESOLUTION);
    const bool offered = copy.dmPrintQuality > 0 &&
                         FindResolutionOption(description, copy.dmPrintQuality) != nullptr;
    target->dmPrintQuality =
        offered ? copy.dmPrintQuality : static_cast<short>(GetDefaultResolution(description));
}

void TakePublicPart(DEVMODEW* target, const DEVMODEW& copy, const PrinterDescription& description) {
    if ((copy.dmFields & DM_DEFAULTSOURCE) != 0) {
        target->dmDefaultSource = copy.dmDefaultSource;
        target->dmFields |= DM_DEFAULTSOURCE;
    }
    if ((copy.dmFields & DM_ORIENTATION) != 0) {
        const bool landscape = copy.dmOrientation == DMORIENT_LANDSCAPE;
        target->dmOrientation = landscape ? DMORIENT_LANDSCAPE : DMORIENT_PORTRAIT;
        target->dmFields |= DM_ORIENTATION;
    }
    TakePaper(target, copy);
    target->dmScale = 100;
    target->dmCopies = 1;
    TakeResolution(target, copy, description);
    target->dmDuplex = DMDUP_SIMPLEX;
    target->dmCollate = DMCOLLATE_FALSE;
    target->dmFields &= ~DM_COLLATE;
}

// A length or width of the public part becomes the user-defined size of the private part.
void MoveCustomSize(JobSettings* target) {
    DEVMODEW& devMode = target->devMode;
    PrivateJobSettings& part = PrivatePart(*target);
    if ((devMode.dmFields & DM_PAPERLENGTH) != 0) {
        part.customLength = static_cast<uint16_t>(devMode.dmPaperLength);
    }
    if ((devMode.dmFields & DM_PAPERWIDTH) != 0) {
        part.customWidth = static_cast<uint16_t>(devMode.dmPaperWidth);
    }
    if ((devMode.dmFields & (DM_PAPERLENGTH | DM_PAPERWIDTH)) != 0) {
        devMode.dmPaperSize = kUserPaperSize;
        devMode.dmFields &= ~(DM_PAPERLENGTH | DM_PAPERWIDTH);
        devMode.dmFields |= DM_PAPERSIZE;
    }
}

uint8_t OrientationCode(const DEVMODEW& devMode, const PrivateJobSettings& part) {
    if (part.orientationControl == 0) {
        return 0;
    }
    switch (devMode.dmPaperSize) {
    case DMPAPER_LETTER:
    case DMPAPER_A4:
    case DMPAPER_EXECUTIVE:
    case DMPAPER_ENV_B5:
        return 1;
    default:
        break;
    }
    // Two pages on a sheet lie across it.
    const bool acrossSheet = part.pagesPerSheet == 2;
    const bool landscape = devMode.dmOrientation == DMORIENT_LANDSCAPE;
    return landscape != acrossSheet ? 3 : 2;
}

bool IsActiveApplication(const WCHAR* className) {
    HWND window = GetActiveWindow();
    if (window == nullptr) {
        return false;
    }
    for (HWND parent = window; parent != nullptr; parent = GetParent(window)) {
        window = parent;
    }
    // Threads derive at once: the buffer is this call's own.
    WCHAR name[32];
    return GetClassNameW(window, name, static_cast<int>(std::size(name))) != 0 &&
           lstrcmpiW(name, className) == 0;
}

bool ReprintSuppressesCopies(const PrivateJobSettings& part) {
    const uint16_t kind = part.reprintFlags & kReprintKind;
    return (part.reprintFlags & kReprintOn) != 0 && (kind == 1 || kind == 2);
}

void DeriveCounter(PrivateJobSettings* part) {
    if ((part->copyFlags & kDeviceCopiesAllowed) != 0) {
        return;
    }
    const bool on = part->counterEnabled != 0 && part->counterMode == kCounterModeOn &&
                    part->counterValue != 1 && part->counterGate != 0;
    if (on) {
        part->counterMarker = kCounterMarked;
        part->counterOn |= kCounterIsOn;
        part->counterFlag = 1;
        part->counterOut = part->counterValue != 0 ? static_cast<uint8_t>(part->counterValue - 1)
                                                   : part->counterEnabled;
    } else {
        part->counterOn &= static_cast<uint8_t>(~kCounterIsOn);
        part->counterMarker = 0;
        part->counterReserved = 0;
        part->counterOut = 0;
        part->counterFlag = 0;
    }
}

void DeriveDuplex(DEVMODEW* devMode, PrivateJobSettings* part) {
    const uint16_t flags = part->duplexFlags;
    part->duplexOut = ReprintSuppressesCopies(*part) ? 0 : flags;
    if ((flags & kDuplexRequested) == 0) {
        devMode->dmDuplex = DMDUP_SIMPLEX;
    } else if ((flags & kDuplexHeldBack) != 0) {
        part->duplexOut &= static_cast<uint16_t>(~(kDuplexRequested | kDuplexHeldBack));
        if (devMode->dmPaperSize == kUserPaperSize) {
            part->duplexOut |= kDuplexRequested;
        }
    }
}

void DeriveCollation(const DEVMODEW& devMode, PrivateJobSettings* part) {
    if (part->collateControl != 0) {
        part->collateRequested = devMode.dmCollate == DMCOLLATE_TRUE;
    }
    part->collateOut = part->collateRequested != 0;
    // Asking for the active window is left out where it cannot matter.
    if ((part->printerCaps & kCapBit15) == 0 &&
        (devMode.dmCopies > 1 || IsActiveApplication(kOpusClass))) {
        part->collateOut = 1;
    }
}

// Whether duplex, collation, another option or reprinting asks for the pages-per-sheet rule.
bool ForcesLayout(const DEVMODEW& devMode, const PrivateJobSettings& part) {
    const bool turns =
        (part.duplexFlags & kDuplexRequested) != 0 &&
        ((part.duplexFlags & kDuplexHeldBack) == 0 || devMode.dmPaperSize == kUserPaperSize);
    const bool reprints = (part.reprintFlags & kReprintOn) != 0 &&
                          (part.reprintOptions & kNoReprintRule) == 0 &&
                          (part.reprintFlags & kReprintKindAndMore) != 0;
    return turns || part.collateOut != 0 || part.layoutOverride != 0 ||
           (part.layoutOverrideFlags & kOverrideForcesLayout) != 0 ||
           (part.textOptionsOut & kTextForcesLayout) != 0 || reprints;
}

int32_t EffectivePagesPerSheet(int16_t pages, short scale, bool forced) {
    if (forced || (pages >= 2 && scale != 100) || pages < 1) {
        return pages;
    }
    return 1;
}

void DeriveCopies(const DEVMODEW& devMode, PrivateJobSettings* part) {
    constexpr auto notApplying = static_cast<uint8_t>(~kDeviceCopiesApply);
    if ((part->copyFlags & kDeviceCopiesAllowed) == 0) {
        part->copyFlags &= notApplying;
    } else if (part->collateRequested != 0 && (part->copyControl & kNoDeviceCopies) == 0) {
        part->copyFlags |= kDeviceCopiesApply;
        part->deviceCopies = static_cast<uint16_t>(devMode.dmCopies);
        part->collateOut = 0;
    }
    if (ReprintSuppressesCopies(*part)) {
        part->copyFlags &= notApplying;
        part->collateOut = 0;
    }
}

}  // namespace

bool MergeJobSettings(JobSettings* target, const DEVMODEW* input,
                      const PrinterDescription& description) {
    if (input == nullptr) {
        return true;
    }
    const platform::GlobalBlock block(GlobalAlloc(GMEM_FIXED, sizeof(JobSettings)));
    if (!block) {
        return false;
    }
    // The copy starts as the target, so that whatever the input does not reach keeps its value:
    // an input without private bytes leaves our own private part, signature included.
    JobSettings& copy = *static_cast<JobSettings*>(block.get());
    std::memcpy(static_cast<void*>(&copy), target, sizeof(copy));
    if (ConvertJobSettings(input, &copy.devMode) <= 0) {
        return false;
    }
    TakePublicPart(&target->devMode, copy.devMode, description);
    if (PrivatePart(copy).signature != kPrivateSignature) {
        return true;
    }
    PrivateJobSettings& part = PrivatePart(*target);
    std::memcpy(&part, &PrivatePart(copy), sizeof(part));
    if (part.descriptionChecksum != description.Checksum) {
        ResetFeatureSelections(&part, description);
    }
    MoveCustomSize(target);
    DeriveJobBlock(target);
    return true;
}

void DeriveJobBlock(JobSettings* settings) {
    DEVMODEW& devMode = settings->devMode;
    PrivateJobSettings& part = PrivatePart(*settings);

    part.sourceOut = static_cast<uint16_t>(devMode.dmDefaultSource);
    part.outputFlags = part.outputBase;
    if ((part.stapleMode & kStapleModeBits) < kStapling) {
        part.outputFlags |= kOutputNotStapled;
    }
    if (part.counterMode == 0) {
        part.outputFlags |= kOutputNoCounterMode;
    }
    const bool overridden = part.paperOverride == 1;
    part.pagePaperSizeOut = overridden ? part.pagePaperSize : kNotOverridden;
    part.initialPaperSizeOut = overridden ? part.initialPaperSize : kNotOverridden;
    part.scaleOut = part.scalePercent;
    const bool turned = (part.rotationFlags & kRotate180) != 0;
    part.rotate180 = turned ? 1 : 0;
    part.rotationAngle = turned ? 180 : 0;
    part.orientationCode = OrientationCode(devMode, part);
    part.deviceByteOut = part.deviceByte;
    DeriveCounter(&part);
    part.textOptionsOut = part.textOptions;
    part.textColorOut = part.textColor;
    part.textBackColorOut = part.textBackColor;
    part.textFontOut = part.textFont;
    part.layoutValueOut = (part.layoutFlags & kLayoutValueCounts) != 0 ? part.layoutValue : 0;

    DeriveDuplex(&devMode, &part);
    DeriveCollation(devMode, &part);
    part.applicationFlags &= static_cast<uint8_t>(~kIsFlwApplication);
    if (IsActiveApplication(kFlwClass)) {
        part.applicationFlags |= kIsFlwApplication;
    }
    part.pagesPerSheetOut =
        EffectivePagesPerSheet(part.pagesPerSheet, devMode.dmScale, ForcesLayout(devMode, part));
    part.jobText[0] = 0;
    DeriveCopies(devMode, &part);
}

}  // namespace ksfax
