#pragma once

// The graphics of the embedded machine, looked at from outside: plain bitmaps that every context
// draws into, the objects outstanding, and the system colours. The second half is for the
// machine's own parts, which make contexts for windows.
//
// Text is drawn in Liberation Sans, whichever typeface is asked for, one character to one glyph;
// a character that the face lacks shows as its empty box. One thread at a time draws text.

#include <array>
#include <cstdint>
#include <memory>
#include <string_view>
#include <vector>

#include "platform/embedded/api_gdi.h"
#include "platform/embedded/machine.h"

namespace embedded {

// Rows from the top, without padding. A pixel of a colour bitmap is a COLORREF (0x00BBGGRR),
// one of a monochrome bitmap 0 or 1.
struct Bitmap {
    Bitmap(int width, int height, unsigned bitsPerPixel = 32, uint32_t fill = 0)
        : width(width), height(height), bitsPerPixel(bitsPerPixel),
          pixels(static_cast<size_t>(width) * static_cast<size_t>(height), fill) {}

    RECT Bounds() const { return {0, 0, width, height}; }
    uint32_t& At(int x, int y) { return pixels[static_cast<size_t>(y) * width + x]; }
    uint32_t At(int x, int y) const { return pixels[static_cast<size_t>(y) * width + x]; }
    bool operator==(const Bitmap&) const = default;

    int width;
    int height;
    unsigned bitsPerPixel;  // 32 or 1
    std::vector<uint32_t> pixels;
};

// ---- Rectangles, right and bottom outside ----
bool IsEmpty(const RECT& rect);
bool Contains(const RECT& rect, int x, int y);
RECT Intersect(const RECT& left, const RECT& right);
// The smallest around both.
RECT Around(const RECT& left, const RECT& right);
RECT Offset(const RECT& rect, int x, int y);

struct GraphicsObject;

class Graphics {
  public:
    Graphics();

    // Pens, brushes, fonts and bitmaps that were made and not deleted.
    unsigned CountObjects() const;
    // Contexts from CreateCompatibleDC, GetDC and BeginPaint that were not given back.
    unsigned CountContexts() const { return contexts.CountOpen(); }
    // What a bitmap's handle names; null for another handle.
    std::shared_ptr<const Bitmap> BitmapOf(HBITMAP bitmap) const;

    // By COLOR_ number: the classic colours of the platform. Tests may set others.
    std::array<COLORREF, 31> systemColors;

    // ---- For the machine's own parts ----

    // A context that draws on `surface` inside the clip rectangle, which is counted from the
    // surface's corner; its own coordinates are counted from `origin`.
    HDC OpenContext(HWND window, std::shared_ptr<Bitmap> surface, POINT origin, const RECT& clip);
    // False unless it is that window's, or with null a memory context.
    bool CloseContext(HDC context, HWND window);
    // A font of so many pixels to the em.
    HFONT MakeFont(int pixels);
    HGDIOBJ Insert(std::shared_ptr<GraphicsObject> object);

    // Numbers far apart keep one kind of handle from being taken for another.
    HandleTable objects{0x0A000000};
    HandleTable contexts{0x0B000000};
    std::array<HGDIOBJ, 20> stock = {};
};

// Text helpers that the published calls lack. Widths and heights in pixels.
int FontHeight(HFONT font);
// The average width of a letter, by which dialog units are measured.
int FontAverageWidth(HFONT font);
// DrawTextW in that font and colour, on what is there already instead of on a box of the
// background colour.
void DrawTextOver(HDC context, HFONT font, COLORREF color, std::u16string_view text,
                  const RECT& rect, UINT format);

}  // namespace embedded
