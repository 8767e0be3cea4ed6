#pragma once

// The graphics of the embedded machine, looked at from outside: plain bitmaps that every context
// draws into, the objects outstanding, and the system colours. The second half is for the
// machine's own parts, which make contexts for windows.
//
// Text is drawn in Liberation Sans, whichever typeface is asked for, one character to one glyph;
// a character that the face lacks shows as its empty box.

#include <array>
#include <atomic>
#include <cstdint>
#include <memory>
#include <vector>

#include "platform/embedded/api_gdi.h"
#include "platform/embedded/machine.h"

namespace embedded {

// Rows from the top, without padding. A pixel of a colour bitmap is a COLORREF (0x00BBGGRR),
// one of a monochrome bitmap 0 or 1.
struct Bitmap {
    Bitmap(int width, int height, unsigned bitsPerPixel = 32, uint32_t fill = 0)
        : width(width),
          height(height),
          bitsPerPixel(bitsPerPixel),
          pixels(static_cast<size_t>(width) * static_cast<size_t>(height), fill) {}

    bool Contains(int x, int y) const { return x >= 0 && y >= 0 && x < width && y < height; }
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
RECT Offset(const RECT& rect, int x, int y);

struct Context;

class Graphics {
  public:
    explicit Graphics(Machine& machine);
    ~Graphics();

    // Pens, brushes, fonts and bitmaps that were made and not deleted.
    unsigned CountObjects() const;
    // Contexts from CreateCompatibleDC, GetDC and BeginPaint that were not given back.
    unsigned CountContexts() const;
    // What a bitmap's handle names; null for another handle.
    std::shared_ptr<const Bitmap> BitmapOf(HBITMAP bitmap) const;

    // By COLOR_ number: the classic colours of the platform. Tests may set others.
    std::array<COLORREF, 31> systemColors;

    // ---- For the machine's windows and dialogs ----

    // A context that draws on `surface`, coordinates counted from `origin`, inside the clip
    // rectangles and outside the holes (both in surface coordinates).
    HDC OpenContext(HWND window, std::shared_ptr<Bitmap> surface, POINT origin,
                    std::vector<RECT> clip, std::vector<RECT> holes);
    // The window whose context it is; null for memory contexts and stale handles.
    HWND WindowOf(HDC context) const;
    bool CloseContext(HDC context);
    // A font of so many pixels to the em.
    HFONT MakeFont(int pixels);

    std::shared_ptr<Context> Find(HDC context) const;

  private:
    friend struct GraphicsAccess;

    HandleTable objects_;
    HandleTable contexts_;
    std::array<HGDIOBJ, 20> stock_ = {};
    std::atomic<unsigned> stockCount_ = 0;
};

// Text helpers that the published calls lack. Widths and heights in pixels.
int FontHeight(HFONT font);
// The average width of a letter, by which dialog units are measured.
int FontAverageWidth(HFONT font);
// Text on what is there already, instead of on a box of the background colour.
void SetTransparentText(HDC context, bool transparent);

}  // namespace embedded
