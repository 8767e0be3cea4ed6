#include <algorithm>
#include <cstring>
#include <iterator>

#include "platform/windows_api.h"

#include "core/module_state.h"
#include "description/printer_description.h"
#include "description/text.h"
#include "jobsettings/job_settings.h"

namespace ksfax {
namespace {

// Strings that a resource module may bring to replace the built-in choices.
constexpr UINT kFontFaceString = 65280;
constexpr UINT kNumberString = 391;
constexpr int kStringRoom = 256;

constexpr ULONG kRasterOperation = 0x008800C6;

// 105.0 x 148.5 mm, a quarter of A4, until the user enters a size.
constexpr WORD kCustomWidth = 1050;
constexpr WORD kCustomLength = 1485;

constexpr COLORADJUSTMENT kColorAdjustment = {
    .caSize = sizeof(COLORADJUSTMENT),
    .caFlags = 0,
    .caIlluminantIndex = 0,
    .caRedGamma = 10000,
    .caGreenGamma = 10000,
    .caBlueGamma = 10000,
    .caReferenceBlack = 0,
    .caReferenceWhite = 10000,
    .caContrast = 0,
    .caBrightness = 0,
    .caColorfulness = 0,
    .caRedGreenTint = 0,
};

constexpr DEVHTINFO kHalftoneInfo = {
    .HTFlags = HT_FLAG_HAS_BLACK_DYE,
    .HTPatternSize = 7,
    .DevPelsDPI = 0,
    .ColorInfo =
        {
            .Red = {6380, 3350, 0},
            .Green = {2345, 6075, 0},
            .Blue = {1410, 932, 0},
            .Cyan = {2000, 2450, 0},
            .Magenta = {5210, 2100, 0},
            .Yellow = {4750, 5100, 0},
            .AlignmentWhite = {3127, 3290, 0},
            .RedGamma = 12500,
            .GreenGamma = 12500,
            .BlueGamma = 12500,
            .MagentaInCyanDye = 585,
            .YellowInCyanDye = 120,
            .CyanInMagentaDye = 0,
            .YellowInMagentaDye = 0,
            .CyanInYellowDye = 0,
            .MagentaInYellowDye = 10000,
        },
};

void FillPublicPart(DEVMODEW* devMode, const WCHAR* deviceName,
                    const PrinterDescription& description, bool metric) {
    if (deviceName != nullptr) {
        CopyWideFixed(devMode->dmDeviceName, deviceName);
    }
    devMode->dmSpecVersion = kSpecVersion;
    devMode->dmDriverVersion = kDriverVersion;
    devMode->dmSize = kPublicSize;
    devMode->dmDriverExtra = kPrivateSize;
    devMode->dmFields = DM_ORIENTATION | DM_PAPERSIZE | DM_PRINTQUALITY;
    devMode->dmOrientation = DMORIENT_PORTRAIT;
    devMode->dmPaperSize = metric ? DMPAPER_A4 : DMPAPER_LETTER;
    CopyWideFixed(devMode->dmFormName, metric ? TEXT("A4") : TEXT("Letter"));
    devMode->dmScale = 100;
    devMode->dmCopies = 1;
    devMode->dmDefaultSource = static_cast<short>(GetDefaultBin(description));
    devMode->dmPrintQuality = static_cast<short>(GetDefaultResolution(description));
    devMode->dmYResolution = devMode->dmPrintQuality;
    devMode->dmColor = DMCOLOR_MONOCHROME;
    devMode->dmDuplex = DMDUP_SIMPLEX;
    devMode->dmTTOption = DMTT_BITMAP;
    devMode->dmCollate = DMCOLLATE_FALSE;
    // At 1200 dots per inch the device prints at its own choice of quality: applications are not
    // told that they may choose.
    if (FindResolutionOption(description, 1200) != nullptr) {
        devMode->dmFields &= ~DM_PRINTQUALITY;
    }
}

// How the device handles TrueType fonts: what the description's TTMODE option says, and what the
// device's capabilities suggest where there is no such option.
uint32_t TrueTypeClass(const PrinterDescription& description, uint16_t printerCaps) {
    switch (GetDefaultOptionValue(description, FeatureKind::TTMODE)) {
    case 0:
        return kTrueTypeClassA;
    case 2:
        return kTrueTypeClassB;
    case 65535:
        if ((printerCaps & kCapBit15) == 0) {
            return 0;
        }
        return (printerCaps & kCapBit1) != 0 ? kTrueTypeClassB : kTrueTypeClassA;
    default:
        return 0;
    }
}

uint32_t PrivateFlags(const PrinterDescription& description, uint16_t printerCaps) {
    constexpr uint16_t minus90 = 2;
    uint32_t flags = kPrivateAlways | TrueTypeClass(description, printerCaps);
    if (description.LandscapeOrientation == minus90) {
        flags |= kLandscapeMinus90;
    }
    if (description.LanguageLevel > 1) {
        flags |= kLanguageLevelAbove1;
    }
    if ((description.MakerFlags & kMakerUsePrinterFonts) != 0) {
        flags |= kUsePrinterFonts;
    }
    return flags;
}

void FillFeatureValues(PrivateJobSettings* part, const PrinterDescription& description) {
    const auto value = [&](FeatureKind kind) { return GetDefaultOptionValue(description, kind); };
    part->pagesPerSheet = static_cast<int16_t>(value(FeatureKind::MultiplePage));
    part->tonerSaveMode = value(FeatureKind::TonerSaveMode);
    part->mediaType = value(FeatureKind::MediaType);
    part->hrcMode = value(FeatureKind::HRC);
    part->pageProtectMode = value(FeatureKind::PageProtect);
    part->graphicsMode = value(FeatureKind::GraphicsMode);
    part->showBiasVolt = static_cast<uint8_t>(description.ShowBiasVolt);
    if (description.ShowBiasVolt != 0) {
        part->biasVolt = static_cast<uint8_t>(value(FeatureKind::BiasVolt));
        part->biasVoltDefault = part->biasVolt;
    }
}

void FillFromMakerFlags(PrivateJobSettings* part, uint32_t makerFlags) {
    part->quickPrintSetup = (makerFlags & kMakerQuickPrintSetup) != 0;
    part->bandingAllowed = (makerFlags & kMakerNoBanding) == 0;
    part->reprintFlags = (makerFlags & kMakerUseReprint) != 0 ? kReprintOn : 0;
}

void FillText(PrivateJobSettings* part) {
    part->textOptions = 6;
    part->textBackColor = 0xFFFFFF;
    part->textFont.lfHeight = -11;
    part->textFont.lfCharSet = DEFAULT_CHARSET;
    WCHAR face[kStringRoom];
    const bool hasFace = LoadStringW(resourceModule, kFontFaceString, face, kStringRoom) > 0;
    CopyWideFixed(part->textFont.lfFaceName, hasFace ? face : TEXT("Arial"));
}

uint16_t ResourceNumber() {
    WCHAR text[kStringRoom];
    char digits[kStringRoom];
    if (LoadStringW(resourceModule, kNumberString, text, kStringRoom) <= 0) {
        return 0;
    }
    WideToAnsi(digits, text, sizeof(digits));
    return static_cast<uint16_t>(LeadingNumber(digits));
}

void FillPairTable(ValuePair (&table)[kPairCount]) {
    std::fill(std::begin(table), std::end(table), ValuePair{-2, -2});
    table[0] = {-1, -1};
    table[kPairCount - 1] = {-1, -2};
}

// Values that never depend on the printer.
void FillFixedValues(PrivateJobSettings* part) {
    part->signature = kPrivateSignature;
    part->colorAdjustment = kColorAdjustment;
    part->halftoneInfo = kHalftoneInfo;
    part->fixed186 = 1;
    part->fixed225 = 1;
    part->customWidth = kCustomWidth;
    part->customLength = kCustomLength;
    part->fixed388 = 1;
    part->fixed440 = 16;
    part->defaultsMarker = 1;
    part->paperChanged = 1;
    part->fixed454 = 0xFFFF;
    FillPairTable(part->pairTable);
    part->fixed1164 = 7;
    part->fixed1168 = 1;
}

// The block as it stands before the first derivation.
void FillJobBlock(PrivateJobSettings* part) {
    part->blockVersion = 4;
    part->blockSize = kExtensionSize;
    part->pagesPerSheetOut = 1;
    part->fixed1468 = 1;
    part->fixed1470 = 0xFFFF;
    part->landscapeAngle = (part->printerCaps & kCapBit15) != 0 ? 270 : 90;
    part->rasterOperation = kRasterOperation;
    part->fixed1638 = 100;
    part->defaultsMarkerOut = 1;
    part->capsFlags = 0x40 | ((part->printerCaps & kCapBit12) != 0 ? 1 : 0);
    part->textBackColorOut = 0xFFFFFF;
    part->fixed1816 = 1;
    part->pagePaperSizeOut = kNotOverridden;
    part->initialPaperSizeOut = kNotOverridden;
    part->scaleOut = 100;
    part->outputFlags = part->outputBase;
    part->endSignature = kEndSignature;
}

}  // namespace

void BuildDefaultJobSettings(JobSettings* settings, const WCHAR* deviceName,
                             const PrinterDescription& description, bool metric) {
    std::memset(static_cast<void*>(settings), 0, sizeof(*settings));
    DEVMODEW& devMode = settings->devMode;
    FillPublicPart(&devMode, deviceName, description, metric);

    PrivateJobSettings& part = PrivatePart(*settings);
    FillFixedValues(&part);
    part.extensionOffset = devMode.dmSize + devMode.dmDriverExtra - kExtensionSize;
    part.printerCaps = static_cast<uint16_t>(description.PrinterCaps);
    part.printerCapsBit5 = (part.printerCaps & kCapBit5) != 0;
    part.privateFlags = PrivateFlags(description, part.printerCaps);
    ResetFeatureSelections(&part, description);
    part.sleepModeTime = GetSleepModeField(description, 2);
    part.sleepModeTimeCopy = part.sleepModeTime;
    FillFeatureValues(&part, description);
    FillFromMakerFlags(&part, description.MakerFlags);
    part.halfResolution = devMode.dmPrintQuality == 1200 ? 600 : 0;
    part.scalePercent = static_cast<uint16_t>(devMode.dmScale);
    part.inchUnits = metric ? 0 : 1;
    part.layoutFlags = metric ? 0 : kLayoutNotMetric;
    part.compressionMode = static_cast<uint16_t>(description.CompMode1028);
    part.source1 = static_cast<uint16_t>(devMode.dmDefaultSource);
    part.source2 = part.source1;
    part.pagePaperSize = static_cast<uint16_t>(devMode.dmPaperSize);
    part.initialPaperSize = part.pagePaperSize;
    FillText(&part);
    part.resourceNumber = ResourceNumber();
    FillJobBlock(&part);
}

void ResetFeatureSelections(PrivateJobSettings* part, const PrinterDescription& description) {
    part->descriptionChecksum = description.Checksum;
    const uint16_t count = GetDefaultSelections(description, part->featureSelections);
    part->featureCount = std::min<uint16_t>(count, kDocumentFeatureRoom);
}

}  // namespace ksfax
