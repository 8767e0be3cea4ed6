#include "core/spooler_queries.h"

#include "description/printer_description.h"
#include "description/text.h"

namespace ksfax {

platform::GlobalBlock GetPrinterInfo(HANDLE printer, DWORD level) {
    const DWORD leastBytes = level == 8 ? sizeof(PRINTER_INFO_8W) : sizeof(PRINTER_INFO_2W);
    return AskTwice(leastBytes, [=](LPBYTE buffer, DWORD bytes, DWORD* needed) {
        return GetPrinterW(printer, level, buffer, bytes, needed);
    });
}

platform::GlobalBlock GetDriverInfo(HANDLE printer, DWORD level) {
    const DWORD leastBytes = level == 3 ? sizeof(DRIVER_INFO_3W) : sizeof(DRIVER_INFO_2W);
    return AskTwice(leastBytes, [=](LPBYTE buffer, DWORD bytes, DWORD* needed) {
        return GetPrinterDriverW(printer, nullptr, level, buffer, bytes, needed);
    });
}

bool IsMetricLocale() {
    const int characters = GetLocaleInfoW(LOCALE_USER_DEFAULT, LOCALE_ICOUNTRY, nullptr, 0);
    if (characters <= 0) {
        return false;
    }
    const platform::GlobalBlock text(GlobalAlloc(GMEM_ZEROINIT, characters * sizeof(WCHAR)));
    auto* code = static_cast<WCHAR*>(text.get());
    if (code == nullptr ||
        GetLocaleInfoW(LOCALE_USER_DEFAULT, LOCALE_ICOUNTRY, code, characters) == 0) {
        return false;
    }
    code[characters - 1] = 0;
    char digits[16] = {};
    WideToAnsi(digits, code, sizeof(digits));
    const auto country = static_cast<int32_t>(LeadingNumber(digits));
    const bool isLetterCountry = country == 1 || country == 2 ||
                                 (country >= 50 && country <= 59 && country != 55) ||
                                 (country >= 500 && country <= 599);
    return !isLetterCountry;
}

}  // namespace ksfax
