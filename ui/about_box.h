#pragma once

// The About box: the driver's name, version and date. It is shown as a modal dialog over the
// paper page and, as the same template, as the only page of the printer's own property sheet.

#include "platform/windows_api.h"

namespace ksfax {

// The dialog procedure of the modal box; its initial parameter is the PrinterSession. The box
// ends with 1 for OK and 0 for Cancel.
INT_PTR CALLBACK AboutDialogProc(HWND dialog, UINT message, WPARAM wParam, LPARAM lParam);

// The dialog procedure of the page; the session is the page record's lParam.
INT_PTR CALLBACK AboutPageProc(HWND dialog, UINT message, WPARAM wParam, LPARAM lParam);

// Moves a control into the middle of a rectangle of the screen. A width and height of 0 keep the
// control's size. Nothing happens without such a control.
void CenterControlInRect(HWND dialog, const RECT& area, int control, int width, int height);

}  // namespace ksfax
