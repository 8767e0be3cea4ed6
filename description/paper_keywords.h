#pragma once

// Paper and paper source keywords of the PPD as the codes of the Windows device-mode record.

#include <cstdint>

namespace ksfax {

// The dmPaperSize code of a PageSize option, such as A4; this driver's own sizes begin at 256.
// A whole, equal word counts, letter case included; any other (or null) is 1, Letter.
uint16_t PaperKeywordToCode(const char* keyword);

// The dmDefaultSource code of an InputSlot option, such as Tray2; this driver's own bins begin
// at 256. Any other word (or null) is 1, the upper bin.
uint16_t SourceKeywordToCode(const char* keyword);

}  // namespace ksfax
