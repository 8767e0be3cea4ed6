#pragma once

// The printer description: what the module knows of its fax device, read from the printer's PPD
// file and packed into one block of fixed global memory. The block is the header below, the
// strings and two tables it names, the features with their options, and the device fonts.
// LoadPrinterDescription makes it; whoever receives it owns it and frees it with GlobalFree. Once
// loaded it is never written again, so any number of threads may read it.
//
// The same bytes are the description cache file, with offsets from the block's first byte where
// the loaded block has addresses. Little-endian. Every piece (header, string, table, record)
// starts at a multiple of 4 and is padded with zero bytes to a multiple of 4, so a reference is
// only 4-byte aligned: copy an 8-byte field to a local before taking a reference to it.
//
// Strings are 8-bit text as the PPD has it, zero-terminated, in no particular code page;
// PpdFileName is UTF-16. Lengths are fixed 24.8 PostScript points: 1/72 inch times 256, so
// 612 points are 156672. Lists run through Next in the order in which the PPD first named their
// elements. "Hex decoded" text had pairs of hexadecimal digits between < and > replaced by bytes.

#include <cstddef>
#include <cstdint>
#include <cstring>
#include <span>
#include <string_view>

#include "platform/windows_api.h"

namespace ksfax {

// The seventeen well-known features and, last, any other one. The number is the feature's place
// in FeatureByKind.
enum class FeatureKind : uint16_t {
    PageSize = 0,
    InputSlot = 1,
    ManualFeed = 2,
    Duplex = 3,
    Collate = 4,
    Resolution = 5,
    VMOption = 6,  // installed memory; the one well-known feature that is installable
    MediaType = 7,
    MultiplePage = 8,
    TonerSaveMode = 9,
    PageProtect = 10,
    HRC = 11,
    GraphicsMode = 12,
    Paper = 13,
    TTMODE = 14,
    SaveMacro = 15,
    BiasVolt = 16,
    Generic = 17,
};
constexpr unsigned kFeatureKinds = 17;

enum class FeatureUIType : uint16_t { Boolean = 0, PickOne = 1, PickMany = 2 };

// FeatureRecord::Flags.
constexpr uint16_t kPageRegionForAllSlots = 0x0001;  // *RequiresPageRegion All: True was read
constexpr uint16_t kPageRegionForNoSlot = 0x0002;    // *RequiresPageRegion All: False was read
constexpr uint16_t kOpenedByJcl = 0x0004;            // opened by *JCLOpenUI

// PrinterDescription::MakerFlags.
constexpr uint32_t kMakerQuickPrintSetup = 0x01;
constexpr uint32_t kMakerMXMonitor = 0x02;
constexpr uint32_t kMakerStatusMonitor = 0x04;
constexpr uint32_t kMakerGrayText = 0x08;
constexpr uint32_t kMakerUseReprint = 0x10;
constexpr uint32_t kMakerUsePrinterFonts = 0x20;
constexpr uint32_t kMakerNoBanding = 0x40;

constexpr uint16_t kDescriptionVersion = 3;
constexpr uint16_t kNoPosition = 65535;  // of a feature or option that does not exist
constexpr uint8_t kNoOption = 255;       // a selection of nothing; in a table: any option

#pragma pack(push, 4)

// A reference inside the block: in the packed form an offset from the block's first byte, in a
// loaded description the target's address; 0 is absent in both. Its holder knows which of the
// two it is and asks for that.
template <typename T>
struct Ref {
    uint64_t value;

    explicit operator bool() const { return value != 0; }
    // In a loaded description: the target, or null.
    const T* Target() const { return reinterpret_cast<const T*>(static_cast<uintptr_t>(value)); }
    // In a packed block: the target's offset, 0 when absent.
    uint64_t Offset() const { return value; }
};

// The common beginning of every option record.
struct OptionRecord {
    Ref<OptionRecord> Next;  //  0
    Ref<char> Name;          //  8  option keyword
    uint32_t NameHash;       // 16  NameHash(Name)
    uint32_t reserved20;     // 20
    Ref<char> Translation;   // 24  hex decoded; may be absent
    Ref<char> Invocation;    // 32  the statement's value; may be absent. Of the Paper feature:
                             //     the decimal paper code, 256 for a user-defined size
};

// Options of PageSize; options of Paper have this size too but use the common part alone.
struct PaperOptionRecord {
    OptionRecord Common;              //   0
    Ref<char> PageSizeLInvocation;    //  40  landscape page size code
    Ref<char> PageRegionInvocation;   //  48
    uint32_t PaperWidth;              //  56  24.8 points; 0 exactly when PaperHeight is 0
    uint32_t PaperHeight;             //  60  24.8 points
    uint32_t ImageableArea[4];        //  64  24.8 points: lower-left x, y, upper-right x, y
    uint32_t ImageableAreaExtra[2];   //  80  its fifth and sixth numbers, both 0 unless six came
    uint32_t ImageableAreaL[4];       //  88  landscape, same order
    uint32_t ImageableAreaLExtra[2];  // 104
};

// Options of InputSlot.
struct SlotOptionRecord {
    OptionRecord Common;          //  0
    uint32_t RequiresPageRegion;  // 40  0/1
    uint32_t reserved44;          // 44
};

// Options of Resolution. The leading decimal number of the name is the dots per inch: 200dpi and
// 200x100dpi are both 200. Common.Invocation is the *Resolution code.
struct ResolutionOptionRecord {
    OptionRecord Common;                // 0
    Ref<char> JCLResolutionInvocation;  // 40  hex decoded
    Ref<char> SetResolutionInvocation;  // 48
    uint32_t ResScreenAngle;            // 56  24.8 degrees
    uint32_t ResScreenFreq;             // 60  24.8 lines per inch
};

// Options of VMOption.
struct MemoryOptionRecord {
    OptionRecord Common;    //  0
    uint32_t MemoryAmount;  // 40  bytes
    uint32_t reserved44;    // 44
};

// One per user-interface keyword of the PPD.
struct FeatureRecord {
    Ref<FeatureRecord> Next;    //  0
    Ref<char> Name;             //  8  keyword without asterisk; of a well-known kind its own name
    uint32_t NameHash;          // 16
    uint32_t reserved20;        // 20
    Ref<char> Translation;      // 24  hex decoded; may be absent
    uint64_t Default;           // 32  position in Options, 0 when none was named or the name is no
                                //     option; of Resolution instead the default dots per inch
    uint32_t OptionSize;        // 40  bytes of each option record: 40, 48, 64 or 112
    FeatureKind Kind;           // 44
    uint16_t Flags;             // 46
    FeatureUIType UIType;       // 48
    uint16_t Index;             // 50  position within its own group, document or installable
    uint32_t Installable;       // 52  1 = belongs to the printer, 0 = to the document
    Ref<OptionRecord> Options;  // 56  first, or absent
};

// A built-in font of the device that the PPD names.
struct DeviceFontRecord {
    Ref<DeviceFontRecord> Next;  //  0
    Ref<char> Name;              //  8
    uint32_t NameHash;           // 16
    uint32_t reserved20;         // 20
    Ref<char> Description;       // 24  encoding, version and status words as the PPD has them
    uint16_t reserved32[2];      // 32
    uint16_t FontId;             // 36  1 to 80, row of the device font names
    uint16_t reserved38;         // 38
};

// OrderDependencyEntry::Section.
constexpr uint16_t kSectionExitServer = 1;
constexpr uint16_t kSectionProlog = 2;
constexpr uint16_t kSectionDocumentSetup = 4;
constexpr uint16_t kSectionPageSetup = 8;
constexpr uint16_t kSectionJCLSetup = 16;
constexpr uint16_t kSectionAnySetup = 32;

struct OrderDependencyEntry {
    uint16_t
        FeatureIndex;  //  0  position in Features; kNoPosition when feature or option is unknown
    uint16_t OptionIndex;  //  2  position in that feature's Options; 255 when none was named
    uint32_t Order;        //  4  24.8
    uint16_t Section;      //  8
    uint16_t reserved10;   // 10
};

// A header with Count entries after it.
struct OrderDependencyTable {
    uint16_t Count;
    uint16_t EntrySize;  // 12

    const OrderDependencyEntry* Entries() const {
        return reinterpret_cast<const OrderDependencyEntry*>(this + 1);
    }
};

// Feature1 being at Option1 forbids Feature2 being at Option2; the reverse needs its own entry.
// Positions in Features and in the features' Options; option 255 stands for any. Feature1
// kNoPosition: the entry names what the description does not have, and never matches.
struct ConstraintEntry {
    uint16_t Feature1;
    uint16_t Option1;
    uint16_t Feature2;
    uint16_t Option2;
};

// The block holds Count x 12 + 4 bytes for it: the entries fill the first Count x 8 after these
// two words, the rest is zero.
struct ConstraintTable {
    uint16_t Count;
    uint16_t EntrySize;  // 8

    const ConstraintEntry* Entries() const {
        return reinterpret_cast<const ConstraintEntry*>(this + 1);
    }
};

struct CustomPageSizeParameter {
    uint32_t Order;  // 1 to 5, 0 = not given
    uint16_t Type;   // int 0, real 1, points 2
    uint16_t reserved6;
    uint32_t Min;  // 24.8
    uint32_t Max;  // 24.8
};

struct PrinterDescription {
    uint32_t TotalSize;                               //   0  bytes of the whole block
    uint32_t reserved4;                               //   4
    Ref<WCHAR> PpdFileName;                           //   8  as given to LoadPrinterDescription
    Ref<char> NickName;                               //  16  hex decoded
    uint16_t Version;                                 //  24  kDescriptionVersion
    uint16_t Checksum;                                //  26  CRC-16 of the PPD file
    uint16_t Protocols;                               //  28  PJL 1, BCP 2, TBCP 4, SIC 8
    uint16_t LandscapeOrientation;                    //  30  Any 0, Plus90 1, Minus90 2
    uint16_t TTRasterizer;                            //  32  None 0, Accept68k 1, Type42 2,
                                                      //      TrueImage 3
    uint16_t LanguageEncoding;                        //  34  None 0, ISOLatin1 1, JIS83-RKSJ 2,
                                                      //      MaxStandard 3, WindowsANSI 4
    uint32_t FreeVM;                                  //  36  bytes, at least 102400
    uint32_t LanguageLevel;                           //  40
    uint32_t reserved44;                              //  44
    Ref<char> Password;                               //  48
    Ref<char> ExitServer;                             //  56
    uint32_t SuggestedJobTimeout;                     //  64  seconds
    uint32_t SuggestedWaitTimeout;                    //  68  seconds
    uint32_t ColorDevice;                             //  72  0/1
    uint32_t PrintPSError;                            //  76  0/1
    uint32_t CustomPageSize;                          //  80  0/1
    uint32_t HasHWMargins;                            //  84  0/1
    uint32_t HWMargins[4];                            //  88  24.8: left, bottom, right, top
    Ref<char> CustomPageSizeCode;                     // 104
    CustomPageSizeParameter ParamCustomPageSize[5];   // 112  Width, Height, WidthOffset,
                                                      //      HeightOffset, Orientation
    uint32_t MaxMediaWidth;                           // 192  24.8
    uint32_t MaxMediaHeight;                          // 196  24.8
    uint16_t Extensions;                              // 200  DPS 1, CMYK 2, Composite 4,
                                                      //      FileSystem 8
    uint16_t ResolutionKeyword;                       // 202  read last: Resolution 0,
                                                      //      JCLResolution 1, SetResolution 2
    uint32_t ScreenAngle;                             // 204  24.8 degrees
    uint32_t ScreenFreq;                              // 208  24.8 lines per inch
    uint32_t reserved212;                             // 212
    Ref<char> JCLBegin;                               // 216  hex decoded
    Ref<char> JCLEnd;                                 // 224  hex decoded
    Ref<char> JCLToPSInterpreter;                     // 232  hex decoded
    uint32_t FileVersion;                             // 240  24.8; the cache file's key, 0 = none
    uint32_t PrinterCaps;                             // 244
    uint32_t reserved248[2];                          // 248
    Ref<char> SleepMode;                              // 256  numbers split by commas or blanks
    uint32_t MacroSetting;                            // 264  0/1
    uint32_t DefaultFontSetting;                      // 268  0/1
    uint32_t CompMode1028;                            // 272  0/1
    uint32_t ShowBiasVolt;                            // 276  0/1
    uint32_t AddUMPD;                                 // 280  0/1
    uint32_t MakerFlags;                              // 284  kMaker... bits
    Ref<char> DefaultLanguage;                        // 288
    uint16_t PrintRateA4;                             // 296  pages per minute
    uint16_t PrintRateLetter;                         // 298  pages per minute
    uint16_t DocumentFeatureCount;                    // 300  stops at 65535
    uint16_t InstallableFeatureCount;                 // 302  stops at 65535
    Ref<FeatureRecord> Features;                      // 304  document features, then installable
    Ref<FeatureRecord> FeatureByKind[kFeatureKinds];  // 312  zero in the packed form
    Ref<DeviceFontRecord> DeviceFonts;                // 448
    Ref<OrderDependencyTable> OrderDependencies;      // 456
    Ref<ConstraintTable> UIConstraints;               // 464
};

#pragma pack(pop)

// ---- Lists of a loaded description ----

// Walks a list: for (const FeatureRecord& feature : ListOf(description.Features)).
template <typename Record>
class List {
  public:
    class Iterator {
      public:
        explicit Iterator(const Record* record) : record_(record) {}
        const Record& operator*() const { return *record_; }
        Iterator& operator++() {
            record_ = record_->Next.Target();
            return *this;
        }
        bool operator!=(const Iterator& other) const { return record_ != other.record_; }

      private:
        const Record* record_;
    };

    explicit List(const Record* first) : first_(first) {}
    Iterator begin() const { return Iterator(first_); }
    Iterator end() const { return Iterator(nullptr); }

  private:
    const Record* first_;
};
template <typename Record>
List<Record> ListOf(Ref<Record> first) {
    return List<Record>(first.Target());
}

// The hash that every list record carries of its name: h = (h << 1) ^ byte, from 0.
uint32_t NameHash(std::string_view name);
uint32_t NameHash(const char* name);

// Number of records from `first` on.
template <typename Record>
uint32_t CountListEntries(const Record* first) {
    uint32_t count = 0;
    for ([[maybe_unused]] const Record& record : List<Record>(first)) {
        ++count;
    }
    return count;
}

// The record at `position`, counted from 0, or null.
template <typename Record>
const Record* NthListEntry(const Record* first, uint32_t position) {
    while (first != nullptr && position-- != 0) {
        first = first->Next.Target();
    }
    return first;
}

// The first record that `matches`, or null.
template <typename Record, typename Matches>
const Record* FindRecord(const Record* first, Matches matches) {
    while (first != nullptr && !matches(*first)) {
        first = first->Next.Target();
    }
    return first;
}

// The first option or feature whose Translation or Name equals `text`; null when there is none.
template <typename Record>
const Record* FindOptionByNameOrTranslation(const Record* first, const char* text) {
    const uint32_t hash = text != nullptr ? NameHash(text) : 0;
    return FindRecord(first, [&](const Record& record) {
        return text != nullptr &&
               ((record.Translation && std::strcmp(record.Translation.Target(), text) == 0) ||
                (record.NameHash == hash && record.Name &&
                 std::strcmp(record.Name.Target(), text) == 0));
    });
}

// ---- Lookups on a loaded description. Missing things give the value stated, never a failure. ----

// The feature of a well-known kind, or null.
inline const FeatureRecord* FeatureOf(const PrinterDescription& description, FeatureKind kind) {
    return description.FeatureByKind[static_cast<unsigned>(kind)].Target();
}

// An option as the record of its kind. Only for options of the PageSize (or Paper), InputSlot,
// Resolution and VMOption features.
inline const PaperOptionRecord& AsPaper(const OptionRecord& option) {
    return reinterpret_cast<const PaperOptionRecord&>(option);
}
inline const SlotOptionRecord& AsSlot(const OptionRecord& option) {
    return reinterpret_cast<const SlotOptionRecord&>(option);
}
inline const ResolutionOptionRecord& AsResolution(const OptionRecord& option) {
    return reinterpret_cast<const ResolutionOptionRecord&>(option);
}
inline const MemoryOptionRecord& AsMemory(const OptionRecord& option) {
    return reinterpret_cast<const MemoryOptionRecord&>(option);
}

// Default dots per inch; 300 when the description has no Resolution feature.
uint32_t GetDefaultResolution(const PrinterDescription& description);

// The first Resolution option whose name begins with the number `dpi`, or null.
const OptionRecord* FindResolutionOption(const PrinterDescription& description, uint32_t dpi);

// Writes the default of each document feature, by position, as a selection: the low 8 bits of
// Default, but 255 for Resolution. Writes no more than fit in `selections`; returns
// DocumentFeatureCount.
uint16_t GetDefaultSelections(const PrinterDescription& description, std::span<uint8_t> selections);

// True when the option is named exactly None or False, which says that the device lacks the thing
// or that it is off.
bool IsNamedNoneOrFalse(const OptionRecord& option);

// GetNumberField of SleepMode; 1 when it is absent.
uint16_t GetSleepModeField(const PrinterDescription& description, unsigned field);

// Paper source code of the default InputSlot option; 7 (automatic) when there is none.
uint16_t GetDefaultBin(const PrinterDescription& description);

// The leading decimal number of the default option's Invocation; 0 when there is no such option
// or it has no invocation.
uint32_t GetDefaultOptionValue(const FeatureRecord& feature);
// The same in 16 bits for MediaType, MultiplePage, TonerSaveMode, PageProtect, HRC, GraphicsMode,
// TTMODE and BiasVolt. Without such a feature 0; for TTMODE 65535.
uint16_t GetDefaultOptionValue(const PrinterDescription& description, FeatureKind kind);

// ---- Units ----

// Micrometres from 24.8 points and back, in single precision and towards zero, as the forms
// database got them from earlier drivers. 156672 (612 points) is 215900 micrometres. Lengths
// that 32 signed bits cannot hold become the largest one.
int32_t MicronsFromPoints(uint32_t points24_8);

}  // namespace ksfax
