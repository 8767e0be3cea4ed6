#pragma once

// The record that carries one print job's settings between applications, the spooler, this
// module and the rendering side: the published DEVMODEW followed by the driver's private part.
// Applications and the spooler keep such records for years and hand them back, so every offset,
// width and constant below is bound.
//
// Two kinds of record appear in the code, and the type tells them apart:
//   JobSettings   ours: 2608 bytes that BuildDefaultJobSettings made, always whole and consistent.
//   DEVMODEW      a caller's: any size, version and content. What it declares, `dmSize` bytes of
//                 public part and `dmDriverExtra` bytes of private part right behind, is all that
//                 may be touched. Only its header, the first 72 bytes, is taken to be there.
// In both, the private part is found through `dmSize`.

#include <cstddef>
#include <cstdint>
#include <type_traits>

#include "platform/owned.h"
#include "platform/windows_api.h"

namespace ksfax {

struct PrinterDescription;

// ---- Sizes, versions, signatures ----

constexpr WORD kPublicSize = 220;                // dmSize, bytes
constexpr WORD kPrivateSize = 2388;              // dmDriverExtra, bytes
constexpr WORD kSpecVersion = 0x0401;            // dmSpecVersion
constexpr WORD kDriverVersion = 0x0104;          // dmDriverVersion
constexpr WORD kExtensionSize = 996;             // the last bytes of a record, see extensionOffset
constexpr DWORD kPrivateSignature = 0x56495250;  // the bytes 'P' 'R' 'I' 'V'
constexpr DWORD kEndSignature = 0x43534F45;      // the bytes 'E' 'O' 'S' 'C'
constexpr size_t kDevModeHeaderSize = 72;        // everything before dmFields

// The record of the earlier driver generation.
constexpr WORD kEarlierPublicSize = 188;
constexpr WORD kEarlierPrivateSize = 112;
constexpr WORD kEarlierSpecVersion = 0x0320;
constexpr WORD kEarlierDriverVersion = 0x0350;

constexpr uint8_t kNoSelection = 255;        // of a feature's option
constexpr size_t kDocumentFeatureRoom = 64;  // features that a record can hold a selection for
constexpr size_t kPairCount = 12;
constexpr size_t kJobTextRoom = 32;

constexpr short kUserPaperSize = 256;  // the size is in customWidth and customLength

enum PrivateFlag : uint32_t {
    kLanguageLevelAbove1 = 0x40,
    kUsePrinterFonts = 0x80,
    kLandscapeMinus90 = 0x200,  // landscape pages are turned by 90 degrees, not by 270
    kPrivateAlways = 0x2000,
    kTrueTypeClassA = 0x8000,
    kTrueTypeClassB = 0x10000,
};

// The bits of the description's PrinterCaps that this module looks at.
enum PrinterCap : uint16_t {
    kCapBit1 = 0x0002,
    kCapBit5 = 0x0020,
    kCapBit12 = 0x1000,
    kCapBit15 = 0x8000,
};

// ---- The private part ----

struct ValuePair {
    int32_t first;
    int32_t second;
};

// 2388 bytes, little-endian, no padding; offsets from the start of the private part. Bytes in
// `reserved` fields are zero in records that we make and travel unchanged through a merge. The
// `fixed` fields hold one value that the rendering side expects. Of the second half DeriveJobBlock
// makes the "Out" fields anew; the others are as the record brought them.
// clang-format off
struct PrivateJobSettings {
    // What the user and the applications set.
    uint16_t extensionOffset;      //    0  from the start of the record: dmSize + dmDriverExtra - 996
    uint16_t reserved2;            //    2
    uint32_t signature;            //    4  kPrivateSignature
    uint32_t privateFlags;         //    8  PrivateFlag bits
    uint8_t reserved12[80];        //   12
    COLORADJUSTMENT colorAdjustment;  //   92
    uint16_t descriptionChecksum;  //  116  of the description that the selections fit
    uint16_t featureCount;         //  118  entries used below, at most 64
    uint8_t featureSelections[kDocumentFeatureRoom];  //  120  option per document feature
    uint16_t sleepModeTime;        //  184  third field of the description's SleepMode
    uint16_t fixed186;             //  186  1
    int16_t pagesPerSheet;         //  188  value of the MultiplePage option
    uint16_t tonerSaveMode;        //  190  value of the TonerSaveMode option
    uint16_t mediaType;            //  192  value of the MediaType option
    uint16_t hrcMode;              //  194  value of the HRC option
    uint16_t pageProtectMode;      //  196  value of the PageProtect option
    uint16_t reserved198;          //  198
    uint16_t printerCapsBit5;      //  200  0 or 1
    uint16_t printerCaps;          //  202  low 16 bits of the description's PrinterCaps
    uint16_t halfResolution;       //  204  dots per inch: 600 when dmPrintQuality is 1200, else 0
    uint16_t reserved206;          //  206
    uint16_t graphicsMode;         //  208  value of the GraphicsMode option
    uint8_t reserved210[6];        //  210
    uint32_t reserved216;          //  216
    uint32_t collateControl;       //  220  not 0: collateRequested follows dmCollate
    uint8_t reserved224;           //  224
    uint8_t fixed225;              //  225  1
    uint8_t showBiasVolt;          //  226  the description's ShowBiasVolt
    uint8_t biasVolt;              //  227  value of the BiasVolt option, 0 when not shown
    uint8_t reserved228;           //  228
    uint8_t biasVoltDefault;       //  229  biasVolt as the record was made
    uint16_t scalePercent;         //  230  100
    uint16_t inchUnits;            //  232  1 = sizes are shown in inches, 0 = in millimetres
    uint16_t customWidth;          //  234  of the user-defined paper, tenths of a millimetre
    uint16_t customLength;         //  236  likewise
    WCHAR customPaperName[17];     //  238  shown for the user-defined paper
    uint32_t textOptions;          //  272  bit 7 forces the pages-per-sheet rule
    LOGFONTW textFont;             //  276
    uint32_t textColor;            //  368  RGB
    uint32_t textBackColor;        //  372  RGB
    uint16_t duplexFlags;          //  376  0x100 duplex requested, 0x200 keep it out of duplexOut
    uint8_t layoutFlags;           //  378  bit 0 not a metric locale, bit 1 pass layoutValue on
    uint8_t quickPrintSetup;       //  379  the description's DefaultQuickPrintSetup
    uint8_t counterEnabled;        //  380  not 0: enables the counter block
    uint8_t reserved381;           //  381
    uint16_t resourceNumber;       //  382  read from the resource module, 0 without
    uint16_t compressionMode;      //  384  the description's CompMode1028
    uint16_t counterValue;         //  386
    uint16_t fixed388;             //  388  1
    uint16_t counterMode;          //  390  0xFFFE enables the counter block
    uint16_t bandingAllowed;       //  392  1 unless the description says NoBanding
    uint16_t reserved394;          //  394
    uint32_t reserved396;          //  396
    uint8_t reserved400[27];       //  400
    uint8_t orientationControl;    //  427  not 0: derive orientationCode
    uint8_t rotationFlags;         //  428  bit 1 = turn pages by 180 degrees
    uint8_t reserved429;           //  429
    uint8_t paperOverride;         //  430  1 = pass pagePaperSize and initialPaperSize on
    uint8_t pageFlags;             //  431  bit 4: the paper page must refresh its paper label
    uint16_t source1;              //  432  DMBIN_ code
    uint16_t source2;              //  434  DMBIN_ code
    uint16_t outputBase;           //  436  where outputFlags starts from
    uint16_t reserved438;          //  438
    uint16_t fixed440;             //  440  16
    uint16_t reprintOptions;       //  442  bit 2 suppresses the reprint rule
    uint16_t defaultsMarker;       //  444  1 = the settings are the defaults
    uint16_t reserved446;          //  446
    uint32_t paperChanged;         //  448  1 = new, or the paper page changed the paper
    uint16_t reprintFlags;         //  452  0x100 reprint on; low 3 bits the kind
    uint16_t fixed454;             //  454  0xFFFF
    uint8_t userText1[256];        //  456  zero-terminated
    uint8_t userText2[256];        //  712  zero-terminated
    uint8_t reserved968[66];       //  968
    uint8_t copyFlags;             // 1034  bit 0 device copies allowed, bit 7 device copies apply
    uint8_t reserved1035;          // 1035
    uint16_t deviceCopies;         // 1036  copies that the device makes
    uint16_t reserved1038;         // 1038
    ValuePair pairTable[kPairCount];  // 1040
    uint8_t stapleMode;            // 1136  low 2 bits: 2 = stapling
    uint8_t reserved1137;          // 1137
    uint16_t pagePaperSize;        // 1138  DMPAPER_ code
    uint16_t initialPaperSize;     // 1140  DMPAPER_ code
    uint16_t reserved1142;         // 1142
    uint32_t reserved1144;         // 1144
    uint32_t reserved1148;         // 1148
    uint16_t sleepModeTimeCopy;    // 1152  sleepModeTime as the record was made
    uint16_t layoutValue;          // 1154
    uint8_t reserved1156[4];       // 1156
    uint8_t deviceByte;            // 1160
    uint8_t counterGate;           // 1161  not 0: enables the counter block
    uint8_t reserved1162[2];       // 1162
    uint32_t fixed1164;            // 1164  7
    uint32_t fixed1168;            // 1168  1
    uint16_t reserved1172;         // 1172
    uint16_t reserved1174;         // 1174
    DEVHTINFO halftoneInfo;        // 1176
    uint8_t reserved1308[80];      // 1308

    // What the rendering side reads. Its version and size describe the last 996 bytes of the
    // record, which begin four bytes into this half, inside jobText.
    WCHAR jobText[kJobTextRoom];   // 1388
    uint16_t blockVersion;         // 1452  4
    uint16_t blockSize;            // 1454  kExtensionSize
    uint16_t duplexOut;            // 1456
    uint16_t layoutValueOut;       // 1458
    int32_t pagesPerSheetOut;      // 1460
    uint16_t reserved1464;         // 1464
    uint8_t collateRequested;      // 1466  1 = collated copies asked for
    uint8_t collateOut;            // 1467
    uint16_t fixed1468;            // 1468  1
    uint16_t fixed1470;            // 1470  0xFFFF
    uint8_t reserved1472[3];       // 1472
    uint8_t layoutOverride;        // 1475  not 0: forces the pages-per-sheet rule
    uint16_t landscapeAngle;       // 1476  degrees, 90 or 270
    uint16_t reserved1478;         // 1478
    uint32_t layoutOverrideFlags;  // 1480  bit 0 forces the pages-per-sheet rule
    uint8_t reserved1484[148];     // 1484
    uint32_t rasterOperation;      // 1632  0x008800C6
    uint16_t reserved1636;         // 1636
    uint16_t fixed1638;            // 1638  100
    uint32_t copyControl;          // 1640  bit 1 forbids bit 7 of copyFlags
    uint8_t defaultsMarkerOut;     // 1644  1 = the settings are the defaults
    uint8_t capsFlags;             // 1645  bit 0 = bit 12 of printerCaps; bit 6 always
    uint8_t reserved1646[66];      // 1646
    uint32_t textOptionsOut;       // 1712
    LOGFONTW textFontOut;          // 1716
    uint32_t textColorOut;         // 1808
    uint32_t textBackColorOut;     // 1812
    uint32_t fixed1816;            // 1816  1
    uint8_t reserved1820[128];     // 1820
    uint8_t orientationCode;       // 1948  0 none, 1 standard paper, 2 portrait, 3 landscape
    uint8_t reserved1949;          // 1949
    uint8_t deviceByteOut;         // 1950
    uint8_t reserved1951[5];       // 1951
    uint16_t counterMarker;        // 1956  0xFFFF = the counter block is on, else 0
    uint16_t counterReserved;      // 1958  zero
    uint8_t counterOn;             // 1960  bit 0
    uint8_t counterOut;            // 1961  counterValue - 1
    uint8_t counterFlag;           // 1962  1 = on
    uint8_t reserved1963;          // 1963
    uint32_t rotate180;            // 1964  0 or 1
    uint32_t rotationAngle;        // 1968  degrees, 0 or 180
    uint16_t pagePaperSizeOut;     // 1972  0xFFFF = not overridden
    uint16_t initialPaperSizeOut;  // 1974  0xFFFF = not overridden
    uint32_t scaleOut;             // 1976  percent
    uint32_t reserved1980;         // 1980
    uint32_t outputFlags;          // 1984
    uint8_t reserved1988[384];     // 1988
    uint16_t sourceOut;            // 2372  dmDefaultSource
    uint16_t reserved2374;         // 2374
    uint8_t applicationFlags;      // 2376  bit 0: the application's main window is an "FLWApp"
    uint8_t reserved2377[3];       // 2377
    uint32_t endSignature;         // 2380  kEndSignature
    uint32_t faxResolution;        // 2384  0 = 200 x 200 dots per inch, 1 = 200 x 100
};
// clang-format on

// A record of ours. `devMode.dmSize` is kPublicSize and `devMode.dmDriverExtra` kPrivateSize from
// BuildDefaultJobSettings on, and no operation changes them.
struct JobSettings {
    DEVMODEW devMode;
    BYTE privateBytes[kPrivateSize];  // a PrivateJobSettings, reached through PrivatePart
};

// The private part of a record of ours.
inline PrivateJobSettings& PrivatePart(JobSettings& settings) {
    return *reinterpret_cast<PrivateJobSettings*>(reinterpret_cast<BYTE*>(&settings) +
                                                  settings.devMode.dmSize);
}
inline const PrivateJobSettings& PrivatePart(const JobSettings& settings) {
    return PrivatePart(const_cast<JobSettings&>(settings));
}

// ---- What a caller's record says ----

// `record` when all of it that it declares, and its header at least, lies in `block`, from which
// the spooler handed it out; null for one that is cut short, and for null. A printer's default
// record is stored bytes of whoever wrote it, and the spooler does not measure it for us.
[[nodiscard]] const DEVMODEW* WholeRecordIn(const platform::GlobalBlock& block,
                                            const DEVMODEW* record);

// Whether the record carries this driver's private part: its signature lies at private offset 4,
// inside the private bytes that the record declares.
[[nodiscard]] bool HasPrivatePart(const DEVMODEW* record);

// Its `dmFields` and `dmPaperSize`; 0 where its public part ends before them.
[[nodiscard]] DWORD FieldsOf(const DEVMODEW* record);
[[nodiscard]] short PaperSizeOf(const DEVMODEW* record);

// ---- Defaults ----

// Fills `settings` with the driver's defaults: the locale's paper (A4 or Letter) and units, what
// `description` declares, and two strings of the resource module when it has them. `deviceName`
// may be null, which leaves the name empty; it is cut at 31 characters.
void BuildDefaultJobSettings(JobSettings* settings, const WCHAR* deviceName,
                             const PrinterDescription& description, bool metric);

// Makes the record's checksum, feature count and selections those of `description`: every feature
// at its default. Features from the 64th on have no place in the record.
void ResetFeatureSelections(PrivateJobSettings* part, const PrinterDescription& description);

// ---- Merging and deriving ----

// Takes over from a caller's record what the driver accepts, forces what a fax device does not
// have (copies, scaling, duplex, collation), and derives the job block when the record carries
// our private part or none at all. A null `input` changes nothing and succeeds. False, and
// `target` as it was, when memory runs out or `input` is not recognisable (ConvertJobSettings).
[[nodiscard]] bool MergeJobSettings(JobSettings* target, const DEVMODEW* input,
                                    const PrinterDescription& description);

// Makes the fields that the rendering side reads from those that the user set. Asks for the
// active window of the calling thread.
void DeriveJobBlock(JobSettings* settings);

// Whether the topmost ancestor of the calling thread's active window is of that window class,
// letter case aside.
[[nodiscard]] bool IsActiveApplication(const WCHAR* className);

// Whether reprinting is on in a kind (1 or 2) that makes the device's own copies useless.
[[nodiscard]] bool ReprintSuppressesCopies(const PrivateJobSettings& privatePart);

// ---- Conversion between record shapes ----

// The dmSpecVersion that belongs to the record's `dmSize`: 188 0x0320, 212 0x0400, 220
// 0x0401, any other the record's own. 0 for null, and for a record that nobody can recognise.
[[nodiscard]] WORD SpecVersionForSize(const DEVMODEW* record);

// Copies the public and the private part of `source` over those of `destination`, each as far as
// both reach. The destination keeps its sizes and driver version, which it must carry already,
// and gets the dmSpecVersion of its size. Returns the bytes copied, which may be 0, or -1
// when either record is not recognisable. The two may be the same record.
[[nodiscard]] int ConvertJobSettings(const DEVMODEW* source, DEVMODEW* destination);

// Hands settings to a caller: into `output`, in the smaller of the shapes of `settings` and
// `input`, the record that the caller passed in; whole when there is no input. False when nothing
// could be copied.
[[nodiscard]] bool CopyJobSettingsOut(const JobSettings& settings, const DEVMODEW* input,
                                      DEVMODEW* output);

// ---- Papers and forms ----

// A paper in the description's units: points with 8 fraction bits.
struct PaperForm {
    DWORD formFlags;  // 0 = user-defined size, 2 = a paper of the description
    WCHAR* formName;  // points at formNameBuffer
    DWORD formWidth;
    DWORD formHeight;
    DWORD formLeft;  // imageable area; set for the user-defined size alone
    DWORD formTop;
    DWORD formRight;
    DWORD formBottom;
    WCHAR formNameBuffer[32];  // the paper's keyword

    // A copy would point into the record that it was copied from.
    PaperForm()
        : formFlags(0), formName(formNameBuffer), formWidth(0), formHeight(0), formLeft(0),
          formTop(0), formRight(0), formBottom(0), formNameBuffer{} {}
    PaperForm(const PaperForm&) = delete;
    PaperForm& operator=(const PaperForm&) = delete;
};

enum class PaperMatch {
    Paper = 0,        // one of the description's papers
    UserDefined = 1,  // the user-defined size
    None = 2,         // the record names no paper size, or one that the description lacks
};

// Finds the description's paper for the `dmPaperSize` of a caller's record, fills `form`, and
// writes the paper's keyword into the record's `dmFormName` when its public part reaches that
// far. Fields that the record is too short for count as 0.
[[nodiscard]] PaperMatch MatchJobFormToPaper(DEVMODEW* record, PaperForm* form,
                                             const PrinterDescription& description);

// Whether the form is a paper of the description whose name is the keyword or the translation of
// one of its PageSize options.
[[nodiscard]] bool IsDescriptionPaperForm(const PrinterDescription& description,
                                          const PaperForm& form);

// The forms database in one block of global memory: *count FORM_INFO_1W records, their strings
// behind them. Empty, with *count 0, when there are none, they cannot be had, or memory runs out.
[[nodiscard]] platform::GlobalBlock EnumerateForms(HANDLE printer, DWORD* count);

// ---- Every field of the layout, pinned ----

static_assert(std::is_trivially_copyable_v<PrivateJobSettings>);
static_assert(std::is_standard_layout_v<PrivateJobSettings>);
static_assert(sizeof(PrivateJobSettings) == kPrivateSize);
static_assert(std::is_trivially_copyable_v<JobSettings>);
static_assert(std::is_standard_layout_v<JobSettings>);
static_assert(sizeof(DEVMODEW) == kPublicSize);
static_assert(sizeof(JobSettings) == 2608);
static_assert(offsetof(JobSettings, privateBytes) == kPublicSize);
static_assert(offsetof(DEVMODEW, dmFields) == kDevModeHeaderSize);

#define KSFAX_PUBLIC_FIELD(field, offset, width, meaning)                                          \
    static_assert(offsetof(DEVMODEW, field) == (offset) && sizeof(DEVMODEW::field) == (width));
#define KSFAX_PRIVATE_FIELD(field, offset, width, meaning)                                         \
    static_assert(offsetof(PrivateJobSettings, field) == (offset) &&                               \
                  sizeof(PrivateJobSettings::field) == (width));
#include "jobsettings/job_settings_fields.def"

}  // namespace ksfax
