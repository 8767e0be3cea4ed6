#include "description/device_fonts.h"

#include "description/word_index.h"

namespace ksfax {

namespace {

// Regular, italic, bold and bold italic of each family. A font's number is its place from 1, which
// is also the number of its record among the module's font resources.
// clang-format off
constexpr std::string_view kDeviceFontNames[kDeviceFonts] = {
    "AvantGarde-Book", "AvantGarde-BookOblique", "AvantGarde-Demi", "AvantGarde-DemiOblique",
    "Bookman-Light", "Bookman-LightItalic", "Bookman-Demi", "Bookman-DemiItalic",
    "Courier", "Courier-Oblique", "Courier-Bold", "Courier-BoldOblique",
    "Helvetica", "Helvetica-Oblique", "Helvetica-Bold", "Helvetica-BoldOblique",
    "Helvetica-Narrow", "Helvetica-Narrow-Oblique", "Helvetica-Narrow-Bold", "Helvetica-Narrow-BoldOblique",
    "NewCenturySchlbk-Roman", "NewCenturySchlbk-Italic", "NewCenturySchlbk-Bold", "NewCenturySchlbk-BoldItalic",
    "Palatino-Roman", "Palatino-Italic", "Palatino-Bold", "Palatino-BoldItalic",
    "Times-Roman", "Times-Italic", "Times-Bold", "Times-BoldItalic",
    "ArialMT", "Arial-ItalicMT", "Arial-BoldMT", "Arial-BoldItalicMT",
    "TimesNewRomanPSMT", "TimesNewRomanPS-ItalicMT", "TimesNewRomanPS-BoldMT", "TimesNewRomanPS-BoldItalicMT",
    "CourierNewPSMT", "CourierNewPS-ItalicMT", "CourierNewPS-BoldMT", "CourierNewPS-BoldItalicMT",
    "Univers", "Univers-Oblique", "Univers-Bold", "Univers-BoldOblique",
    "Univers-Condensed", "Univers-CondensedOblique", "Univers-Condensed-Bold", "Univers-Condensed-BoldOblique",
    "Bodoni", "Bodoni-Italic", "Bodoni-Bold", "Bodoni-BoldItalic",
    "GillSans", "GillSans-Italic", "GillSans-Bold", "GillSans-BoldItalic",
    "Goudy", "Goudy-Italic", "Goudy-Bold", "Goudy-BoldItalic",
    "Optima", "Optima-Italic", "Optima-Bold", "Optima-BoldItalic",
    "StempelGaramond-Roman", "StempelGaramond-Italic", "StempelGaramond-Bold", "StempelGaramond-BoldItalic",
    "LubalinGraph-Book", "LubalinGraph-BookOblique", "LubalinGraph-Demi", "LubalinGraph-DemiOblique",
    "LetterGothic", "LetterGothic-Slanted", "LetterGothic-Bold", "LetterGothic-BoldSlanted",
};
// clang-format on

std::string_view FontName(unsigned row) {
    return kDeviceFontNames[row];
}

const WordIndex<512> fontIndex(kDeviceFonts, FontName);

}  // namespace

uint16_t DeviceFontId(std::string_view name) {
    return static_cast<uint16_t>(fontIndex.Find(name, FontName));
}

}  // namespace ksfax
