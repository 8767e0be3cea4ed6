#pragma once

// The pictures on the driver's pages: the sheet of paper in its orientation, and a logo strip,
// each drawn on an owner-drawn button with its background colour left out, so that it sits on
// the dialog's own. The bitmaps are the module's own resources.

#include "platform/windows_api.h"

#include "jobsettings/job_settings.h"

namespace ksfax {

// Answers WM_DRAWITEM. Buttons alone are drawn: filled with the button-face colour when their id
// is below 10000, then the picture of the ids that have one. `settings` says which way up the
// paper is; an orientation that is neither portrait nor landscape has no picture. Nothing is
// drawn, nothing else happens, when a bitmap cannot be loaded.
void DrawPageItem(HWND dialog, const DRAWITEMSTRUCT* item, const JobSettings& settings);

// Draws the bitmap with its upper left corner at (x, y), except for its pixels of the key colour,
// where the target stays as it is. The bitmap must not be selected anywhere; it is changed while
// the call runs, and as before after it. Without memory for the work nothing is drawn.
void DrawTransparentBitmap(HDC target, HBITMAP bitmap, int x, int y, COLORREF keyColor);

}  // namespace ksfax
