#pragma once

// The names under which the user sees the description's papers.

#include "platform/windows_api.h"

namespace ksfax {

// The number of the string that names the paper of that option keyword, compared byte for byte.
// 0, which names no string, for null and for a keyword that is not in the table. The strings lie
// in `resourceModule`.
[[nodiscard]] UINT PaperNameString(const char* keyword);

}  // namespace ksfax
