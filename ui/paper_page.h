#pragma once

// The paper settings page, the driver's page of the document property sheet: paper, orientation
// and fax resolution. Each choice goes into the session's job settings at once (paper_settings.h);
// they reach the caller when the sheet is closed with OK.

#include "platform/windows_api.h"

namespace ksfax {

// The dialog procedure; the session is the page record's lParam.
INT_PTR CALLBACK PaperPageProc(HWND dialog, UINT message, WPARAM wParam, LPARAM lParam);

}  // namespace ksfax
