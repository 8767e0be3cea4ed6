#pragma once

// Keeping a printer's stored state in step with the driver and its description: the description's
// papers as forms of the spooler's forms database, and what an upgrade of the driver rewrites.

#include "platform/owned.h"
#include "platform/windows_api.h"

namespace ksfax {

struct PrinterDescription;

// Adds every PageSize option with a size to the forms database as a printer form, once for each
// printer: the printer data value "Forms?" holds 2 from then on. A form of the same name that is
// there already stays as it is. Nothing is reported. Takes no lock; the caller's description must
// stay acquired.
void InstallForms(HANDLE printer, const PrinterDescription& description);

// Deletes the user forms that carry the name of one of the description's papers, and when there
// was one, installs the description's forms anew. Does nothing while "Forms?" is 0 or missing.
void UpgradeForms(HANDLE printer, const PrinterDescription& description);

// Rewrites a tray-form table of the older layout in the current one. True when there is none, when
// it is current, and when it was converted, whether or not the spooler took the result; false,
// with the stored table untouched, when it is malformed, shorter than its size value says or too
// long for the current layout, or when memory runs out.
[[nodiscard]] bool UpgradeTrayFormTable(HANDLE printer);

// The `bytes` bytes of a table in the older layout, which has neither the leading length nor the
// value behind each entry, in the current one; each value is 0, and *newBytes its length. Empty
// for the reasons named above.
[[nodiscard]] platform::GlobalBlock ConvertOlderTrayForms(const WCHAR* older, DWORD bytes,
                                                          DWORD* newBytes);

}  // namespace ksfax
