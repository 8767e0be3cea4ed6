#pragma once

// The folder that each user has for the drivers of this family, recorded in the user's registry
// for the other programs of the family; nothing in this module reads it.
//
//   HKEY_CURRENT_USER\Software\Kestova\PrtDrv, value "Path", REG_BINARY:
//   the folder in the ANSI code page with one zero byte behind it

namespace ksfax {

// Makes the folder and the record, or mends them, as far as the system allows; reports nothing.
// Runs whenever a property sheet opens.
void PrepareUserFolder();

}  // namespace ksfax
