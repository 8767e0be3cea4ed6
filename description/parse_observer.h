#pragma once

// A window into the reading and packing of one PPD file, for tools that tell a PPD author what
// the driver makes of it. The driver itself passes none, and pays nothing for it.

#include <cstdint>
#include <string_view>

#include "description/printer_description.h"

namespace ksfax {

// What became of a statement.
enum class StatementOutcome : uint8_t {
    Stored,   // it took effect
    Ignored,  // nothing was expected of it, or an earlier one holds
    Dropped,  // it was bad; the driver loses what it said
    Fatal,    // it ended the parse: no description at all
};

enum class StatementReason : uint8_t {
    None,
    // Ignored
    QueryKeyword,        // begins with a question mark
    UnknownKeyword,      // not one of the module's keywords, and no feature of that name is open
    NoEffect,            // accepted without effect: *Include, *End, *JCLRes
    RepeatedKeyword,     // a keyword that counts once, seen before
    FeatureNotOpened,    // *OpenUI of a keyword that needs none, such as Duplex
    GroupNotRecorded,    // a group other than InstallableOptions
    UnknownWord,         // a word outside the keyword's list; some other word may have counted
    FontNotBuiltIn,      // *Font of a font that is none of the device's
    FontRepeated,        // *Font of a font already named
    UnknownParameter,    // *ParamCustomPageSize of an unknown parameter or type
    ValueAlreadyStored,  // the option or field has a value from an earlier statement, though
                         // something else of this one may have counted
    CustomSizeNotTrue,   // *CustomPageSize with an option other than True
    // Dropped by the tokenizer; `position` is that of the character that made it bad
    BadKeyword,    // no keyword after the asterisk
    BadOption,     // after the keyword neither colon, line end nor option keyword
    MissingColon,  // after the option or its translation no colon
    // Dropped for its form
    OptionMissing,     // the keyword needs an option keyword
    OptionNotAllowed,  // the keyword takes none
    ValueForm,         // not quoted or not unquoted as the keyword needs it, or empty
    // Dropped by the keyword's own rules
    NotANumber,           // a number is missing or is none
    TooFewNumbers,        // fewer numbers than the keyword needs
    OutOfRange,           // a number outside its range
    NotABoolean,          // neither True nor False
    BadHexInValue,        // hexadecimal substring of the value
    BadHexInTranslation,  // hexadecimal substring of the translation
    NameMissing,          // a feature, group or keyword name is missing
    NothingToClose,       // *CloseUI of what is neither open nor a keyword of the module
    GroupAlreadyOpen,     // *OpenGroup InstallableOptions inside itself
    GroupNotOpen,         // *CloseGroup InstallableOptions outside it
    // Fatal
    KeywordTooLong,      // main keyword of more than 40 characters
    OptionTooLong,       // option keyword of more than 40 characters
    TranslationTooLong,  // translation of more than 40 characters
    OutOfMemory,
    // Dropped, at the end
    CutShort,  // the file ends inside the statement
};

enum class ValueType : uint8_t { None = 0, Quoted = 2, Symbol = 3, String = 4 };

// The texts are the file's own bytes, valid during the call.
struct StatementReport {
    uint32_t line;      // of its asterisk, from 1; a carriage return-line feed pair is one line end
    uint32_t position;  // byte offset of its asterisk, or of the bad character
    uint32_t badLine;   // of `position`
    std::string_view keyword;
    std::string_view option;
    std::string_view translation;
    std::string_view value;
    ValueType type;
    StatementOutcome outcome;
    StatementReason reason;
};

// What packing corrected or could not resolve.
enum class PackNote : uint8_t {
    PaperSizeMissing,       // neither width nor height
    PaperSizeIncomplete,    // a width or height of 0 made both 0
    ImageableAreaClamped,   // its upper-right corner lay outside the paper
    ImageableAreaReset,     // empty or inverted: replaced by the paper's whole height
    ImageableAreaLClamped,  // the same of *ImageableAreaL
    ImageableAreaLReset,
    DefaultNotAnOption,       // a default names no option of its feature: the first one holds
    DefaultWithoutOptions,    // a default of a feature that has no options
    ResolutionDefaultUnread,  // neither default nor first option begins with a number: 300
    FreeVMRaised,             // below 102400
    CustomPageSizeDropped,    // neither *MaxMediaWidth nor *MaxMediaHeight
    ConstraintUnresolved,     // names a feature or option that the description does not have
    ConstraintOnAnyOption,    // names the 256th option, whose number stands for any option
    OrderUnresolved,
    ConstraintsTruncated,  // more than 65535; the later ones are left out
    OrdersTruncated,
    OptionBeyondSelection,   // a feature has more than 255 options: the later ones cannot be chosen
    FeatureBeyondSelection,  // more than 64 features of one group: a record holds 64
};

struct PackReport {
    PackNote note;
    uint32_t line;              // of the statement concerned, 0 when there is no single one
    std::string_view feature;   // or empty
    std::string_view option;    // or empty: the option, or the default that was named
    std::string_view feature2;  // of a constraint
    std::string_view option2;
};

// Null functions are not called.
struct ParseObserver {
    void* context = nullptr;
    // Every statement, in file order, and every bad or overlong beginning of one.
    void (*statement)(void* context, const StatementReport& report) = nullptr;
    // Every correction, after the last statement.
    void (*packed)(void* context, const PackReport& report) = nullptr;
    // Whether a load took the description from the cache file.
    void (*cacheUsed)(void* context, bool used) = nullptr;
    // Whether a load that did not could write the cache file.
    void (*cacheWritten)(void* context, bool written) = nullptr;
};

}  // namespace ksfax
