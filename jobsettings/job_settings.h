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

// Values of the private part, each by the field that holds it.
enum DuplexFlag : uint16_t {  // duplexFlags, duplexOut
    kDuplexRequested = 0x100,
    kDuplexHeldBack = 0x200,  // kept out of duplexOut but for a user-defined paper size
};
enum LayoutFlag : uint8_t {  // layoutFlags
    kLayoutNotMetric = 0x1,
    kLayoutValueCounts = 0x2,  // layoutValue is passed on
};
enum ReprintFlag : uint16_t {  // reprintFlags
    kReprintKind = 0x7,        // of these bits, kinds 1 and 2 make the device's own copies useless
    kReprintKindAndMore = 0xFF,
    kReprintOn = 0x100,
};
enum CopyFlag : uint8_t {  // copyFlags
    kDeviceCopiesAllowed = 0x1,
    kDeviceCopiesApply = 0x80,
};
enum OutputFlag : uint32_t {  // outputFlags
    kOutputNotStapled = 0x8,
    kOutputNoCounterMode = 0x80000000,
};
constexpr uint8_t kRotate180 = 0x2;              // rotationFlags
constexpr uint8_t kStapleModeBits = 0x3;         // stapleMode
constexpr uint8_t kStapling = 2;                 // stapleMode, of these bits
constexpr uint8_t kCounterIsOn = 0x1;            // counterOn
constexpr uint8_t kIsFlwApplication = 0x1;       // applicationFlags
constexpr uint16_t kCounterModeOn = 0xFFFE;      // counterMode
constexpr uint16_t kCounterMarked = 0xFFFF;      // counterMarker
constexpr uint16_t kNotOverridden = 0xFFFF;      // pagePaperSizeOut, initialPaperSizeOut
constexpr uint16_t kNoReprintRule = 0x4;         // reprintOptions
constexpr uint32_t kTextForcesLayout = 0x80;     // textOptions
constexpr uint32_t kOverrideForcesLayout = 0x1;  // layoutOverrideFlags
constexpr uint32_t kNoDeviceCopies = 0x2;        // copyControl

// ---- The private part ----

struct ValuePair {
    int32_t first;
    int32_t second;
};

// 2388 bytes, little-endian, no padding: the fields of job_settings_fields.def. What the user and
// the applications set comes first, what the rendering side reads of it from jobText on.
struct PrivateJobSettings {
#define KSFAX_PUBLIC_FIELD(type, field, offset, unit, meaning)
#define KSFAX_PRIVATE_FIELD(type, field, offset, unit, meaning) std::type_identity_t<type> field;
#include "jobsettings/job_settings_fields.def"
};

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

// Makes the fields that the rendering side reads from those that the user set. Two applications
// are known by the window class of the calling thread's active main window.
void DeriveJobBlock(JobSettings* settings);

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

#define KSFAX_PUBLIC_FIELD(type, field, offset, unit, meaning)                                     \
    static_assert(offsetof(DEVMODEW, field) == (offset) &&                                         \
                  std::is_same_v<decltype(DEVMODEW::field), type>);
#define KSFAX_PRIVATE_FIELD(type, field, offset, unit, meaning)                                    \
    static_assert(offsetof(PrivateJobSettings, field) == (offset));
#include "jobsettings/job_settings_fields.def"

}  // namespace ksfax
