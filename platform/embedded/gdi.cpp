#include "platform/embedded/gdi.h"

#include <ft2build.h>
#include FT_FREETYPE_H

#include <algorithm>
#include <cmath>
#include <cstring>
#include <span>
#include <string>
#include <tuple>
#include <utility>

#include "platform/embedded/api_kernel.h"
#include "platform/embedded/api_user.h"
#include "platform/embedded/resources.h"
#include "platform/embedded/window.h"

extern "C" const FT_Byte embedded_font[];
extern "C" const FT_Byte embedded_font_end[];

namespace embedded {

// Contexts share the objects that are selected into them, so one that its table alone holds is
// selected nowhere.
struct GraphicsObject : Object {
    HGDIOBJ self = nullptr;
    bool isStock = false;
};

namespace {

constexpr COLORREF kBlack = 0x000000;
constexpr COLORREF kWhite = 0xFFFFFF;

struct Tool : GraphicsObject {
    bool draws = true;
    COLORREF color = kBlack;
};
struct Pen : Tool {};
struct Brush : Tool {};
struct Font : GraphicsObject {
    int pixels = 11;
};
struct BitmapObject : GraphicsObject {
    std::shared_ptr<Bitmap> bitmap;
};

// What a fresh memory context has selected: one pixel, monochrome. Its number is past those of
// the published stock objects that the machine has.
constexpr int kDefaultBitmap = 19;

struct Context : Object {
    bool IsMono() const { return surface->bitsPerPixel == 1; }
    // A colour as this surface stores it.
    uint32_t Stored(COLORREF color) const { return IsMono() ? color == kWhite : color & kWhite; }
    void Put(int x, int y, COLORREF color) {
        if (Contains(clip, x + origin.x, y + origin.y)) {
            surface->At(x + origin.x, y + origin.y) = Stored(color);
        }
    }
    void Fill(const RECT& rect, COLORREF color) {
        const RECT inside = Intersect(Offset(rect, origin.x, origin.y), clip);
        for (int y = inside.top; y < inside.bottom; ++y) {
            std::fill_n(&surface->At(inside.left, y), inside.right - inside.left, Stored(color));
        }
    }

    HWND window = nullptr;  // null for a memory context
    std::shared_ptr<Bitmap> surface;
    POINT origin = {};
    RECT clip = {};  // inside the surface

    std::shared_ptr<Pen> pen;
    std::shared_ptr<Brush> brush;
    std::shared_ptr<Font> font;
    std::shared_ptr<BitmapObject> bitmap;
    COLORREF textColor = kBlack;
    COLORREF backColor = kWhite;
    POINT at = {};
};

Graphics& All() {
    return Machine::Current().graphics();
}

template <typename Kind>
std::shared_ptr<Kind> MakeTool(COLORREF color, bool draws = true) {
    auto tool = std::make_shared<Kind>();
    tool->draws = draws;
    tool->color = color;
    return tool;
}

std::shared_ptr<Font> MakeFontObject(int pixels) {
    auto font = std::make_shared<Font>();
    font->pixels = pixels;
    return font;
}

std::shared_ptr<BitmapObject> MakeBitmapObject(int width, int height, unsigned bitsPerPixel) {
    auto object = std::make_shared<BitmapObject>();
    object->bitmap = std::make_shared<Bitmap>(width, height, bitsPerPixel);
    return object;
}

// Selects the object where it is of that kind; the one before, null where it is not.
template <typename Kind>
HGDIOBJ Select(Graphics& graphics, std::shared_ptr<Kind>& selected, HGDIOBJ handle) {
    auto object = graphics.objects.Get<Kind>(handle);
    if (!object) {
        return nullptr;
    }
    const HGDIOBJ before = selected ? selected->self : nullptr;
    selected = std::move(object);
    return before;
}

HDC InsertContext(Graphics& graphics, std::shared_ptr<Context> context) {
    Select(graphics, context->pen, graphics.stock[BLACK_PEN]);
    Select(graphics, context->brush, graphics.stock[WHITE_BRUSH]);
    Select(graphics, context->font, graphics.stock[SYSTEM_FONT]);
    return static_cast<HDC>(graphics.contexts.Insert(std::move(context)));
}

}  // namespace

bool IsEmpty(const RECT& rect) {
    return rect.left >= rect.right || rect.top >= rect.bottom;
}

bool Contains(const RECT& rect, int x, int y) {
    return x >= rect.left && y >= rect.top && x < rect.right && y < rect.bottom;
}

RECT Intersect(const RECT& left, const RECT& right) {
    const RECT both{std::max(left.left, right.left), std::max(left.top, right.top),
                    std::min(left.right, right.right), std::min(left.bottom, right.bottom)};
    return IsEmpty(both) ? RECT{} : both;
}

RECT Around(const RECT& left, const RECT& right) {
    if (IsEmpty(left) || IsEmpty(right)) {
        return IsEmpty(left) ? right : left;
    }
    return {std::min(left.left, right.left), std::min(left.top, right.top),
            std::max(left.right, right.right), std::max(left.bottom, right.bottom)};
}

RECT Offset(const RECT& rect, int x, int y) {
    return {rect.left + x, rect.top + y, rect.right + x, rect.bottom + y};
}

Graphics::Graphics() {
    // The platform's classic colours.
    systemColors = {
        RGB(212, 208, 200), RGB(58, 110, 165),  RGB(10, 36, 106),   RGB(128, 128, 128),
        RGB(212, 208, 200), RGB(255, 255, 255), RGB(0, 0, 0),       RGB(0, 0, 0),
        RGB(0, 0, 0),       RGB(255, 255, 255), RGB(212, 208, 200), RGB(212, 208, 200),
        RGB(128, 128, 128), RGB(10, 36, 106),   RGB(255, 255, 255), RGB(212, 208, 200),
        RGB(128, 128, 128), RGB(128, 128, 128), RGB(0, 0, 0),       RGB(212, 208, 200),
        RGB(255, 255, 255), RGB(64, 64, 64),    RGB(212, 208, 200), RGB(0, 0, 0),
        RGB(255, 255, 225), RGB(181, 181, 181), RGB(0, 0, 200),     RGB(166, 202, 240),
        RGB(192, 192, 192), RGB(49, 106, 197),  RGB(236, 233, 216),
    };
    const auto add = [this](int number, std::shared_ptr<GraphicsObject> object) {
        object->isStock = true;
        stock[number] = Insert(std::move(object));
    };
    add(WHITE_BRUSH, MakeTool<Brush>(kWhite));
    add(BLACK_PEN, MakeTool<Pen>(kBlack));
    add(NULL_PEN, MakeTool<Pen>(kBlack, false));
    // Lines of 16 pixels, so that who forgets to choose a font gets larger text.
    add(SYSTEM_FONT, MakeFontObject(14));
    add(DEFAULT_GUI_FONT, MakeFontObject(11));
    add(kDefaultBitmap, MakeBitmapObject(1, 1, 1));
}

unsigned Graphics::CountObjects() const {
    return objects.CountOpen() -
           static_cast<unsigned>(stock.size() - std::ranges::count(stock, nullptr));
}

std::shared_ptr<const Bitmap> Graphics::BitmapOf(HBITMAP bitmap) const {
    const auto object = objects.Get<BitmapObject>(bitmap);
    return object ? object->bitmap : nullptr;
}

HDC Graphics::OpenContext(HWND window, std::shared_ptr<Bitmap> surface, POINT origin,
                          const RECT& clip) {
    auto context = std::make_shared<Context>();
    context->window = window;
    context->clip = Intersect(clip, surface->Bounds());
    context->surface = std::move(surface);
    context->origin = origin;
    return InsertContext(*this, std::move(context));
}

bool Graphics::CloseContext(HDC context, HWND window) {
    const auto found = contexts.Get<Context>(context);
    return found && found->window == window && contexts.Close(context);
}

HFONT Graphics::MakeFont(int pixels) {
    return static_cast<HFONT>(Insert(MakeFontObject(pixels)));
}

HGDIOBJ Graphics::Insert(std::shared_ptr<GraphicsObject> object) {
    const auto inserted = object;
    return inserted->self = objects.Insert(std::move(object));
}

namespace {

// ---- Text ----

struct Glyph {
    int advance = 0;
    int left = 0;  // from the pen to the bitmap's left side
    int top = 0;   // from the baseline up to the bitmap's first row
    int width = 0;
    int rows = 0;
    std::vector<uint8_t> coverage;  // 0 to 255, row after row
};

// The face, which is one size at a time.
class Face {
  public:
    Face(const Face&) = delete;
    Face& operator=(const Face&) = delete;

    static Face& OfSize(int pixels) {
        static Face face;
        FT_Set_Pixel_Sizes(face.face_, 0, static_cast<FT_UInt>(pixels));
        return face;
    }

    int Ascent() const { return Scaled(face_->ascender); }
    int Height() const { return Ascent() + Scaled(-face_->descender); }
    Glyph Draw(char32_t character) {
        Glyph glyph;
        if (FT_Load_Char(face_, character, FT_LOAD_RENDER) != 0) {
            return glyph;
        }
        const FT_GlyphSlot slot = face_->glyph;
        glyph.advance = static_cast<int>((slot->advance.x + 32) >> 6);
        glyph.left = slot->bitmap_left;
        glyph.top = slot->bitmap_top;
        glyph.width = static_cast<int>(slot->bitmap.width);
        glyph.rows = static_cast<int>(slot->bitmap.rows);
        for (int row = 0; row < glyph.rows; ++row) {
            const uint8_t* source = slot->bitmap.buffer + row * slot->bitmap.pitch;
            glyph.coverage.insert(glyph.coverage.end(), source, source + glyph.width);
        }
        return glyph;
    }

  private:
    Face() {
        FT_Init_FreeType(&library_);
        FT_New_Memory_Face(library_, embedded_font, embedded_font_end - embedded_font, 0, &face_);
    }
    ~Face() {
        FT_Done_Face(face_);
        FT_Done_FreeType(library_);
    }
    // Rounded up, so that a line holds every letter: 13 pixels in all for the dialogs' 8 points.
    int Scaled(int units) const {
        return static_cast<int>((FT_MulFix(units, face_->size->metrics.y_scale) + 63) >> 6);
    }

    FT_Library library_ = nullptr;
    FT_Face face_ = nullptr;
};

// A text to draw: UTF-16 units, with this bit on one that is underlined.
using Line = std::u32string;
constexpr char32_t kUnderlined = 0x10000;

// Takes the '&' of a control's text away: the character after one is underlined, two stand
// for one.
Line LineOf(std::u16string_view text, bool hasPrefixes) {
    Line line;
    for (size_t at = 0; at < text.size(); ++at) {
        const bool isPrefix = hasPrefixes && text[at] == u'&' && at + 1 < text.size();
        at += isPrefix ? 1 : 0;
        line += text[at] | (isPrefix && text[at] != u'&' ? kUnderlined : 0);
    }
    return line;
}

int TextWidth(int pixels, const Line& line) {
    int width = 0;
    for (const char32_t unit : line) {
        width += Face::OfSize(pixels).Draw(unit & ~kUnderlined).advance;
    }
    return width;
}

COLORREF Blend(COLORREF under, COLORREF over, unsigned coverage) {
    COLORREF result = 0;
    for (const unsigned shift : {0u, 8u, 16u}) {
        const unsigned from = under >> shift & 0xFF;
        const unsigned to = over >> shift & 0xFF;
        result |= (from * (255 - coverage) + to * coverage + 127) / 255 << shift;
    }
    return result;
}

void DrawGlyph(Context& context, const Glyph& glyph, int x, int y, COLORREF color,
               const RECT& clip) {
    for (int row = 0; row < glyph.rows; ++row) {
        for (int column = 0; column < glyph.width; ++column) {
            const unsigned coverage =
                glyph.coverage[static_cast<size_t>(row) * glyph.width + column];
            const POINT at{x + glyph.left + column, y - glyph.top + row};
            const POINT on{at.x + context.origin.x, at.y + context.origin.y};
            if (coverage != 0 && Contains(clip, at.x, at.y) && Contains(context.clip, on.x, on.y)) {
                context.Put(at.x, at.y, Blend(context.surface->At(on.x, on.y), color, coverage));
            }
        }
    }
}

// How many characters of a text without line ends fit in the width, whole words at least one.
size_t FittingCharacters(const Line& text, int pixels, int width) {
    size_t fitting = text.find(U' ');
    if (fitting == Line::npos || TextWidth(pixels, text) <= width) {
        return text.size();
    }
    while (fitting < text.size()) {
        const size_t next = std::min(text.find(U' ', fitting + 1), text.size());
        if (TextWidth(pixels, text.substr(0, next)) > width) {
            break;
        }
        fitting = next;
    }
    return fitting;
}

std::vector<Line> BreakLines(Line rest, int pixels, int width, UINT format) {
    std::vector<Line> lines;
    if ((format & DT_SINGLELINE) != 0) {
        lines.push_back(std::move(rest));
        return lines;
    }
    while (true) {
        size_t end = std::min(rest.find(U'\n'), rest.size());
        if ((format & DT_WORDBREAK) != 0) {
            end = FittingCharacters(rest.substr(0, end), pixels, width);
        }
        lines.push_back(rest.substr(0, end));
        if (end == rest.size()) {
            return lines;
        }
        rest.erase(0, end + 1);
    }
}

// The height of the text. Without `back` the text goes over what is there.
int DrawLines(Context& context, int pixels, COLORREF color, const COLORREF* back,
              std::u16string_view text, const RECT& rect, UINT format) {
    const int height = Face::OfSize(pixels).Height();
    const int baseline = Face::OfSize(pixels).Ascent();
    int y = rect.top;
    if ((format & DT_VCENTER) != 0 && (format & DT_SINGLELINE) != 0) {
        y += (rect.bottom - rect.top - height) / 2;
    }
    for (const Line& line : BreakLines(LineOf(text, (format & DT_NOPREFIX) == 0), pixels,
                                       rect.right - rect.left, format)) {
        const int width = TextWidth(pixels, line);
        int x = rect.left;
        if ((format & DT_CENTER) != 0) {
            x += (rect.right - rect.left - width) / 2;
        }
        if (back != nullptr) {
            context.Fill(Intersect({x, y, x + width, y + height}, rect), *back);
        }
        for (const char32_t unit : line) {
            const Glyph glyph = Face::OfSize(pixels).Draw(unit & ~kUnderlined);
            DrawGlyph(context, glyph, x, y + baseline, color, rect);
            if ((unit & kUnderlined) != 0) {
                const int under = y + baseline + 1;
                context.Fill(Intersect({x, under, x + glyph.advance, under + 1}, rect), color);
            }
            x += glyph.advance;
        }
        y += height;
    }
    return y - rect.top;
}

std::u16string_view TextOf(LPCWSTR text, int length) {
    return length < 0 ? std::u16string_view(text)
                      : std::u16string_view(text, static_cast<size_t>(length));
}

// ---- Lines and areas ----

// From one point towards another, without the last pixel; where a line passes half-way between
// two pixels it takes the upper or left one.
template <typename Plot>
void WalkLine(POINT from, POINT to, Plot plot) {
    const int dx = std::abs(to.x - from.x);
    const int dy = std::abs(to.y - from.y);
    const int stepX = to.x < from.x ? -1 : 1;
    const int stepY = to.y < from.y ? -1 : 1;
    const bool isFlat = dx >= dy;
    const int longer = std::max(dx, dy);
    const int shorter = std::min(dx, dy);
    // Doubled distance past the pixel taken; a step aside when it is more than half a pixel, or
    // half and the step goes up or left.
    const bool takesHalf = (isFlat ? stepY : stepX) < 0;
    int64_t error = 0;
    POINT at = from;
    for (int count = 0; count < longer; ++count) {
        plot(at.x, at.y);
        (isFlat ? at.x : at.y) += isFlat ? stepX : stepY;
        error += 2 * static_cast<int64_t>(shorter);
        if (error > longer || (takesHalf && error == longer)) {
            (isFlat ? at.y : at.x) += isFlat ? stepY : stepX;
            error -= 2 * static_cast<int64_t>(longer);
        }
    }
}

void DrawWithPen(Context& context, POINT from, POINT to) {
    if (context.pen->draws) {
        WalkLine(from, to, [&](int x, int y) { context.Put(x, y, context.pen->color); });
    }
}

// The pixels whose centres lie inside by the alternate rule; left and top sides belong to it.
void FillPolygon(Context& context, const POINT* points, int count) {
    const auto [top, bottom] = std::minmax_element(
        points, points + count, [](POINT left, POINT right) { return left.y < right.y; });
    std::vector<double> crossings;
    for (int y = top->y; y < bottom->y; ++y) {
        crossings.clear();
        for (int at = 0; at < count; ++at) {
            POINT from = points[at];
            POINT to = points[(at + 1) % count];
            if (from.y > to.y) {
                std::swap(from, to);
            }
            if (y >= from.y && y < to.y) {
                crossings.push_back(from.x + static_cast<double>(y - from.y) * (to.x - from.x) /
                                                 (to.y - from.y));
            }
        }
        std::ranges::sort(crossings);
        for (size_t at = 0; at + 1 < crossings.size(); at += 2) {
            context.Fill({static_cast<LONG>(std::ceil(crossings[at])), y,
                          static_cast<LONG>(std::ceil(crossings[at + 1])), y + 1},
                         context.brush->color);
        }
    }
}

// ---- Bitmaps ----

template <typename Number>
Number ReadNumber(std::span<const std::byte> bytes, size_t at) {
    Number number;
    std::memcpy(&number, bytes.data() + at, sizeof number);
    return number;
}

bool IsBitmapSize(int width, int height) {
    return width > 0 && height > 0 && width <= 0x4000 && height <= 0x4000;
}

// A device-independent bitmap without its file header; null when it is none that we read.
std::shared_ptr<BitmapObject> ReadBitmap(std::span<const std::byte> bytes) {
    constexpr size_t kHeaderBytes = 40;
    constexpr size_t kPixels = kHeaderBytes + 16 * 4;
    if (bytes.size() < kPixels || ReadNumber<uint32_t>(bytes, 0) != kHeaderBytes) {
        return nullptr;
    }
    const auto width = ReadNumber<int32_t>(bytes, 4);
    const auto height = ReadNumber<int32_t>(bytes, 8);
    const auto depth = ReadNumber<uint16_t>(bytes, 14);
    const auto compression = ReadNumber<uint32_t>(bytes, 16);
    const auto colorsUsed = ReadNumber<uint32_t>(bytes, 32);
    const size_t rowBytes = (static_cast<size_t>(width) * 4 + 31) / 32 * 4;
    if (!IsBitmapSize(width, height) || depth != 4 || compression != 0 ||
        (colorsUsed != 0 && colorsUsed != 16) ||
        bytes.size() < kPixels + rowBytes * static_cast<size_t>(height)) {
        return nullptr;
    }
    auto object = MakeBitmapObject(width, height, 32);
    for (int y = 0; y < height; ++y) {
        const auto row = bytes.subspan(kPixels + rowBytes * static_cast<size_t>(height - 1 - y));
        for (int x = 0; x < width; ++x) {
            const auto pair = static_cast<unsigned>(row[static_cast<size_t>(x) / 2]);
            const unsigned index = x % 2 == 0 ? pair >> 4 : pair & 0xF;
            const auto color = bytes.subspan(kHeaderBytes + index * 4, 3);  // blue first
            object->bitmap->At(x, y) = RGB(static_cast<BYTE>(color[2]), static_cast<BYTE>(color[1]),
                                           static_cast<BYTE>(color[0]));
        }
    }
    return object;
}

uint32_t Combine(DWORD operation, uint32_t target, uint32_t source, uint32_t mask) {
    switch (operation) {
    case SRCAND:
        return target & source;
    case SRCPAINT:
        return target | source;
    case NOTSRCCOPY:
        return ~source & mask;
    default:
        return source;
    }
}

// ---- What published calls begin with ----

// Does what a call does to a context. `failed` when it is told to fail, or there is no such
// context.
template <typename Result, typename Act>
Result WithContext(const char* call, HDC handle, Result failed, Act act) {
    const auto context = All().contexts.Get<Context>(handle);
    if (!context) {
        SetLastError(ERROR_INVALID_HANDLE);
    }
    return !Fails(call) && context ? static_cast<Result>(act(*context)) : failed;
}

// The handle of what `make` makes, null when the call is told to fail or that is null.
template <typename Handle, typename Make>
Handle New(const char* call, Make make) {
    auto object = Fails(call) ? nullptr : make();
    return object ? static_cast<Handle>(All().Insert(std::move(object))) : nullptr;
}

}  // namespace

int FontHeight(HFONT font) {
    const auto object = All().objects.Get<Font>(font);
    return object ? Face::OfSize(object->pixels).Height() : 0;
}

int FontAverageWidth(HFONT font) {
    const auto object = All().objects.Get<Font>(font);
    const Line letters = U"ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz";
    return object ? (TextWidth(object->pixels, letters) / 26 + 1) / 2 : 0;
}

void DrawTextOver(HDC handle, HFONT font, COLORREF color, std::u16string_view text,
                  const RECT& rect, UINT format) {
    const auto context = All().contexts.Get<Context>(handle);
    const auto object = All().objects.Get<Font>(font);
    if (context && object) {
        DrawLines(*context, object->pixels, color, nullptr, text, rect, format);
    }
}

}  // namespace embedded

using namespace embedded;

// ---- Objects and contexts ----

HGDIOBJ GetStockObject(int object) {
    const auto& stock = All().stock;
    return object >= 0 && object < static_cast<int>(stock.size()) ? stock[object] : nullptr;
}

HPEN CreatePen(int style, int width, COLORREF color) {
    return New<HPEN>("CreatePen", [&] {
        return style == PS_SOLID && width >= 0 && width <= 1 ? MakeTool<Pen>(color) : nullptr;
    });
}

HBRUSH CreateSolidBrush(COLORREF color) {
    return New<HBRUSH>("CreateSolidBrush", [&] { return MakeTool<Brush>(color); });
}

HBITMAP CreateBitmap(int width, int height, UINT planes, UINT bitsPerPixel, const void* bits) {
    return New<HBITMAP>("CreateBitmap", [&] {
        return IsBitmapSize(width, height) && planes == 1 &&
                       (bitsPerPixel == 1 || bitsPerPixel == 32) && bits == nullptr
                   ? MakeBitmapObject(width, height, bitsPerPixel)
                   : nullptr;
    });
}

HBITMAP CreateCompatibleBitmap(HDC handle, int width, int height) {
    return New<HBITMAP>("CreateCompatibleBitmap", [&] {
        const auto context = All().contexts.Get<Context>(handle);
        return context && IsBitmapSize(width, height)
                   ? MakeBitmapObject(width, height, context->surface->bitsPerPixel)
                   : nullptr;
    });
}

HBITMAP LoadBitmapW(HINSTANCE instance, LPCWSTR name) {
    const auto bitmap = New<HBITMAP>("LoadBitmapW", [&] {
        return ReadBitmap(
            Machine::Current().resources().Find(instance, kBitmapResource, ResourceNumber(name)));
    });
    if (bitmap == nullptr) {
        SetLastError(ERROR_RESOURCE_NAME_NOT_FOUND);
    }
    return bitmap;
}

int GetObjectW(HANDLE handle, int bytes, LPVOID object) {
    const auto found = All().objects.Get<BitmapObject>(handle);
    if (Fails("GetObjectW") || !found || bytes < static_cast<int>(sizeof(BITMAP))) {
        return 0;
    }
    const Bitmap& bitmap = *found->bitmap;
    const LONG bits = bitmap.width * static_cast<LONG>(bitmap.bitsPerPixel);
    *static_cast<BITMAP*>(object) = {.bmType = 0,
                                     .bmWidth = bitmap.width,
                                     .bmHeight = bitmap.height,
                                     .bmWidthBytes = (bits + 15) / 16 * 2,
                                     .bmPlanes = 1,
                                     .bmBitsPixel = static_cast<WORD>(bitmap.bitsPerPixel),
                                     .bmBits = nullptr};
    return sizeof(BITMAP);
}

BOOL DeleteObject(HGDIOBJ handle) {
    const auto object = All().objects.Get<GraphicsObject>(handle);
    if (Fails("DeleteObject") || !object) {
        return FALSE;
    }
    constexpr long kTableAndThisCall = 2;
    return object->isStock ||
           (object.use_count() == kTableAndThisCall && All().objects.Close(handle));
}

HDC CreateCompatibleDC(HDC like) {
    Graphics& graphics = All();
    if (Fails("CreateCompatibleDC") || (like != nullptr && !graphics.contexts.Get<Context>(like))) {
        return nullptr;
    }
    auto context = std::make_shared<Context>();
    Select(graphics, context->bitmap, graphics.stock[kDefaultBitmap]);
    context->surface = context->bitmap->bitmap;
    context->clip = context->surface->Bounds();
    return InsertContext(graphics, std::move(context));
}

BOOL DeleteDC(HDC context) {
    return !Fails("DeleteDC") && All().CloseContext(context, nullptr);
}

HGDIOBJ SelectObject(HDC handle, HGDIOBJ object) {
    return WithContext("SelectObject", handle, HGDIOBJ{}, [&](Context& context) -> HGDIOBJ {
        Graphics& graphics = All();
        if (const auto bitmap = graphics.objects.Get<BitmapObject>(object)) {
            constexpr long kTableAndThisCall = 2;
            const bool isElsewhere = bitmap.use_count() > kTableAndThisCall &&
                                     bitmap != context.bitmap && !bitmap->isStock;
            if (context.window != nullptr || isElsewhere) {
                return nullptr;
            }
            context.surface = bitmap->bitmap;
            context.clip = bitmap->bitmap->Bounds();
            return Select(graphics, context.bitmap, object);
        }
        const HGDIOBJ pen = Select(graphics, context.pen, object);
        const HGDIOBJ brush = Select(graphics, context.brush, object);
        const HGDIOBJ font = Select(graphics, context.font, object);
        return pen != nullptr ? pen : brush != nullptr ? brush : font;
    });
}

// ---- Attributes ----

COLORREF SetTextColor(HDC handle, COLORREF color) {
    return WithContext("SetTextColor", handle, CLR_INVALID,
                       [&](Context& context) { return std::exchange(context.textColor, color); });
}

COLORREF SetBkColor(HDC handle, COLORREF color) {
    return WithContext("SetBkColor", handle, CLR_INVALID,
                       [&](Context& context) { return std::exchange(context.backColor, color); });
}

int GetMapMode(HDC handle) {
    return WithContext("GetMapMode", handle, 0, [](Context&) { return MM_TEXT; });
}

int SetMapMode(HDC handle, int mode) {
    return WithContext("SetMapMode", handle, 0,
                       [&](Context&) { return mode == MM_TEXT ? MM_TEXT : 0; });
}

BOOL DPtoLP(HDC handle, POINT*, int) {
    // Mapped pixel to pixel, the points stay as they are.
    return WithContext("DPtoLP", handle, FALSE, [](Context&) { return TRUE; });
}

int GetClipBox(HDC handle, RECT* box) {
    return WithContext("GetClipBox", handle, 0, [&](Context& context) {
        *box = Offset(context.clip, -context.origin.x, -context.origin.y);
        return IsEmpty(*box) ? NULLREGION : SIMPLEREGION;
    });
}

// ---- Drawing ----

BOOL MoveToEx(HDC handle, int x, int y, POINT* before) {
    return WithContext("MoveToEx", handle, FALSE, [&](Context& context) {
        if (before != nullptr) {
            *before = context.at;
        }
        context.at = {x, y};
        return TRUE;
    });
}

BOOL LineTo(HDC handle, int x, int y) {
    return WithContext("LineTo", handle, FALSE, [&](Context& context) {
        DrawWithPen(context, context.at, {x, y});
        context.at = {x, y};
        return TRUE;
    });
}

BOOL Rectangle(HDC handle, int left, int top, int right, int bottom) {
    return WithContext("Rectangle", handle, FALSE, [&](Context& context) {
        std::tie(left, right) = std::minmax({left, right});
        std::tie(top, bottom) = std::minmax({top, bottom});
        if (left == right || top == bottom) {
            return TRUE;
        }
        // Without a pen the right and bottom sides, where it would be, are left out.
        const int pen = context.pen->draws ? 1 : 0;
        if (pen != 0) {
            context.Fill({left, top, right, bottom}, context.pen->color);
        }
        context.Fill({left + pen, top + pen, right - 1, bottom - 1}, context.brush->color);
        return TRUE;
    });
}

BOOL Polygon(HDC handle, const POINT* points, int count) {
    return WithContext("Polygon", handle, FALSE, [&](Context& context) {
        FillPolygon(context, points, count);
        for (int at = 0; at < count; ++at) {
            DrawWithPen(context, points[at], points[(at + 1) % count]);
        }
        return TRUE;
    });
}

COLORREF SetPixel(HDC handle, int x, int y, COLORREF color) {
    return WithContext("SetPixel", handle, CLR_INVALID, [&](Context& context) {
        context.Put(x, y, color);
        return GetPixel(handle, x, y);
    });
}

COLORREF GetPixel(HDC handle, int x, int y) {
    return WithContext("GetPixel", handle, CLR_INVALID, [&](Context& context) {
        const POINT on{x + context.origin.x, y + context.origin.y};
        return Contains(context.clip, on.x, on.y) ? context.surface->At(on.x, on.y) : CLR_INVALID;
    });
}

int FillRect(HDC handle, const RECT* rect, HBRUSH brush) {
    return WithContext("FillRect", handle, 0, [&](Context& context) {
        const auto& colors = All().systemColors;
        const auto number = reinterpret_cast<uintptr_t>(brush);
        const auto object = All().objects.Get<Brush>(brush);
        const bool isSystemColor = number > 0 && number <= colors.size();
        if (!isSystemColor && !object) {
            return 0;
        }
        context.Fill(*rect, isSystemColor ? colors[number - 1] : object->color);
        return 1;
    });
}

BOOL BitBlt(HDC targetHandle, int x, int y, int width, int height, HDC sourceHandle, int sourceX,
            int sourceY, DWORD operation) {
    return WithContext("BitBlt", targetHandle, FALSE, [&](Context& target) {
        const auto source = All().contexts.Get<Context>(sourceHandle);
        if (!source || (operation != SRCCOPY && operation != SRCAND && operation != SRCPAINT &&
                        operation != NOTSRCCOPY)) {
            return FALSE;
        }
        // Source and target may be one bitmap, so what is read is kept before anything is written.
        const Bitmap from = *source->surface;
        const uint32_t mask = target.IsMono() ? 1 : kWhite;
        for (int row = 0; row < height; ++row) {
            for (int column = 0; column < width; ++column) {
                const POINT read{sourceX + source->origin.x + column,
                                 sourceY + source->origin.y + row};
                const POINT written{x + target.origin.x + column, y + target.origin.y + row};
                if (!Contains(from.Bounds(), read.x, read.y) ||
                    !Contains(target.clip, written.x, written.y)) {
                    continue;
                }
                uint32_t pixel = from.At(read.x, read.y);
                if (target.IsMono() && !source->IsMono()) {
                    pixel = pixel == (source->backColor & kWhite);
                } else if (!target.IsMono() && source->IsMono()) {
                    pixel = (pixel != 0 ? target.backColor : target.textColor) & kWhite;
                }
                uint32_t& at = target.surface->At(written.x, written.y);
                at = Combine(operation, at, pixel, mask);
            }
        }
        return TRUE;
    });
}

int DrawTextW(HDC handle, LPCWSTR text, int length, RECT* rect, UINT format) {
    constexpr UINT kKnown = DT_CENTER | DT_VCENTER | DT_WORDBREAK | DT_SINGLELINE | DT_NOPREFIX;
    return WithContext("DrawTextW", handle, 0, [&](Context& context) {
        return (format & ~kKnown) != 0
                   ? 0
                   : DrawLines(context, context.font->pixels, context.textColor, &context.backColor,
                               TextOf(text, length), *rect, format);
    });
}

BOOL GetTextExtentPoint32W(HDC handle, LPCWSTR text, int length, SIZE* size) {
    return WithContext("GetTextExtentPoint32W", handle, FALSE, [&](Context& context) {
        const int pixels = context.font->pixels;
        *size = {TextWidth(pixels, LineOf(TextOf(text, length), false)),
                 Face::OfSize(pixels).Height()};
        return TRUE;
    });
}
