#pragma once

// Questions to the platform that several folders ask.

#include "platform/owned.h"
#include "platform/windows_api.h"

namespace ksfax {

// The spooler's calls take names as mutable text, though they only read them.
inline LPWSTR SpoolerText(const WCHAR* text) {
    return const_cast<LPWSTR>(text);
}

// The spooler's two-call pattern. `query(buffer, bytes, &needed)` is called without a buffer,
// must fail with ERROR_INSUFFICIENT_BUFFER and name at least `leastBytes`, and is called again
// with a block of the size it named. Empty in every other case, and when memory runs out.
template <typename Query>
[[nodiscard]] platform::GlobalBlock AskTwice(DWORD leastBytes, Query query) {
    DWORD needed = 0;
    if (query(nullptr, 0, &needed) || GetLastError() != ERROR_INSUFFICIENT_BUFFER ||
        needed < leastBytes) {
        return {};
    }
    platform::GlobalBlock block(GlobalAlloc(GMEM_FIXED, needed));
    if (!block || !query(static_cast<LPBYTE>(block.get()), needed, &needed)) {
        return {};
    }
    return block;
}

// The printer's information at `level`, 2 (PRINTER_INFO_2W) or 8 (PRINTER_INFO_8W), in one block
// of global memory: the record first, its strings behind it. Empty when the spooler will not
// tell the size needed, names one too small for the record, or memory runs out.
[[nodiscard]] platform::GlobalBlock GetPrinterInfo(HANDLE printer, DWORD level);

// The same for the printer's driver in the host's own environment, `level` 2 (DRIVER_INFO_2W) or
// 3 (DRIVER_INFO_3W).
[[nodiscard]] platform::GlobalBlock GetDriverInfo(HANDLE printer, DWORD level);

// Whether the user's country uses A4 and millimetres. Read from the country's dialling code:
// 1, 2, 50 to 59 except 55, and 500 to 599 mean Letter and inches, every other one A4. False when
// the locale cannot be asked.
[[nodiscard]] bool IsMetricLocale();

}  // namespace ksfax
