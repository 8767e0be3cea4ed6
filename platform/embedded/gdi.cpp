#include "platform/embedded/gdi.h"

#include <ft2build.h>
#include FT_FREETYPE_H

#include <algorithm>
#include <cmath>
#include <cstring>
#include <mutex>
#include <span>
#include <string>
#include <string_view>
#include <tuple>
#include <utility>

#include "platform/embedded/api_kernel.h"
#include "platform/embedded/api_user.h"
#include "platform/embedded/resources.h"
#include "platform/embedded/window.h"

extern "C" const FT_Byte embedded_font[];
extern "C" const FT_Byte embedded_font_end[];

namespace embedded {

namespace {

constexpr COLORREF kBlack = 0x000000;
constexpr COLORREF kWhite = 0xFFFFFF;

// Handles of graphics objects, contexts and windows come from tables of their own. Numbers far
// apart keep one kind from being taken for another.
constexpr uintptr_t kObjectBase = 0x0A000000;
constexpr uintptr_t kContextBase = 0x0B000000;

template <typename Handle>
Handle AddBase(HANDLE handle, uintptr_t base) {
    return reinterpret_cast<Handle>(reinterpret_cast<uintptr_t>(handle) + base);
}

template <typename Handle>
HANDLE WithoutBase(Handle handle, uintptr_t base) {
    const auto value = reinterpret_cast<uintptr_t>(handle);
    return value > base ? reinterpret_cast<HANDLE>(value - base) : nullptr;
}

struct GraphicsObject : Object {
    unsigned selections = 0;  // contexts that it is selected into
    bool isStock = false;
};
struct Pen : GraphicsObject {
    bool draws = true;
    COLORREF color = kBlack;
};
struct Brush : GraphicsObject {
    bool draws = true;
    COLORREF color = kWhite;
};
struct Font : GraphicsObject {
    int pixels = 11;
};
struct BitmapObject : GraphicsObject {
    std::shared_ptr<Bitmap> bitmap;
};

}  // namespace

struct Context : Object {
    // One selected object with its handle.
    template <typename Kind>
    struct Selected {
        HGDIOBJ handle = nullptr;
        std::shared_ptr<Kind> object;
    };

    ~Context() override {
        for (GraphicsObject* object : {static_cast<GraphicsObject*>(pen.object.get()),
                                       static_cast<GraphicsObject*>(brush.object.get()),
                                       static_cast<GraphicsObject*>(font.object.get()),
                                       static_cast<GraphicsObject*>(bitmap.object.get())}) {
            if (object != nullptr) {
                --object->selections;
            }
        }
    }

    bool IsMono() const { return surface->bitsPerPixel == 1; }
    bool MayDraw(int x, int y) const {
        const auto holds = [&](const RECT& rect) { return Contains(rect, x, y); };
        return surface->Contains(x, y) && (isMemory || std::ranges::any_of(clip, holds)) &&
               std::ranges::none_of(holes, holds);
    }
    // A colour as this surface stores it: the nearer of black and white on a monochrome one.
    uint32_t Stored(COLORREF color) const {
        if (!IsMono()) {
            return color & kWhite;
        }
        const unsigned brightness = 3 * (color & 0xFF) + 6 * (color >> 8 & 0xFF) +
                                    (color >> 16 & 0xFF);
        return brightness >= 10 * 0x80;
    }
    void Put(int x, int y, COLORREF color) {
        x += origin.x;
        y += origin.y;
        if (MayDraw(x, y)) {
            surface->At(x, y) = Stored(color);
        }
    }
    void Fill(const RECT& rect, COLORREF color) {
        const RECT inside = Intersect(Offset(rect, origin.x, origin.y),
                                      {0, 0, surface->width, surface->height});
        const uint32_t stored = Stored(color);
        for (int y = inside.top; y < inside.bottom; ++y) {
            for (int x = inside.left; x < inside.right; ++x) {
                if (MayDraw(x, y)) {
                    surface->At(x, y) = stored;
                }
            }
        }
    }

    HWND window = nullptr;
    bool isMemory = false;
    std::shared_ptr<Bitmap> surface;
    POINT origin = {};
    std::vector<RECT> clip;   // not for memory contexts, whose whole bitmap may be drawn on
    std::vector<RECT> holes;

    Selected<Pen> pen;
    Selected<Brush> brush;
    Selected<Font> font;
    Selected<BitmapObject> bitmap;
    COLORREF textColor = kBlack;
    COLORREF backColor = kWhite;
    bool hasTransparentText = false;
    POINT at = {};
};

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

RECT Offset(const RECT& rect, int x, int y) {
    return {rect.left + x, rect.top + y, rect.right + x, rect.bottom + y};
}

// How the published calls reach what Graphics keeps to itself.
struct GraphicsAccess {
    static Graphics& All() { return Machine::Current().graphics(); }

    template <typename Kind>
    static std::shared_ptr<Kind> Get(HGDIOBJ handle) {
        return All().objects_.Get<Kind>(WithoutBase(handle, kObjectBase));
    }
    static HGDIOBJ Insert(Graphics& graphics, std::shared_ptr<GraphicsObject> object) {
        return AddBase<HGDIOBJ>(graphics.objects_.Insert(std::move(object)), kObjectBase);
    }
    static HGDIOBJ Insert(std::shared_ptr<GraphicsObject> object) {
        return Insert(All(), std::move(object));
    }
    static bool Close(HGDIOBJ handle) {
        return All().objects_.Close(WithoutBase(handle, kObjectBase));
    }
    static HDC InsertContext(Graphics& graphics, std::shared_ptr<Context> context);
    static HGDIOBJ Stock(Graphics& graphics, int object) {
        return object >= 0 && object < static_cast<int>(graphics.stock_.size())
                   ? graphics.stock_[object]
                   : nullptr;
    }
    static void AddStock(Graphics& graphics, int number, std::shared_ptr<GraphicsObject> object) {
        object->isStock = true;
        graphics.stock_[number] = Insert(graphics, std::move(object));
        ++graphics.stockCount_;
    }
    template <typename Kind>
    static void Select(Graphics& graphics, Context::Selected<Kind>& selected, HGDIOBJ handle) {
        std::shared_ptr<Kind> object =
            graphics.objects_.Get<Kind>(WithoutBase(handle, kObjectBase));
        ++object->selections;
        if (selected.object) {
            --selected.object->selections;
        }
        selected = {handle, std::move(object)};
    }
};

namespace {

// What a fresh memory context has selected: one pixel, monochrome. Its number is past those of
// the published stock objects that the machine has.
constexpr int kDefaultBitmap = 19;

template <typename Kind>
std::shared_ptr<Kind> MakeTool(bool draws, COLORREF color) {
    auto tool = std::make_shared<Kind>();
    tool->draws = draws;
    tool->color = color;
    return tool;
}

}  // namespace

Graphics::Graphics(Machine&) {
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
    GraphicsAccess::AddStock(*this, WHITE_BRUSH, MakeTool<Brush>(true, kWhite));
    GraphicsAccess::AddStock(*this, NULL_BRUSH, MakeTool<Brush>(false, kWhite));
    GraphicsAccess::AddStock(*this, BLACK_PEN, MakeTool<Pen>(true, kBlack));
    GraphicsAccess::AddStock(*this, NULL_PEN, MakeTool<Pen>(false, kBlack));
    // Lines of 16 pixels, so that who forgets to choose a font gets larger text.
    auto systemFont = std::make_shared<Font>();
    systemFont->pixels = 14;
    GraphicsAccess::AddStock(*this, SYSTEM_FONT, std::move(systemFont));
    GraphicsAccess::AddStock(*this, DEFAULT_GUI_FONT, std::make_shared<Font>());
    auto bitmap = std::make_shared<BitmapObject>();
    bitmap->bitmap = std::make_shared<Bitmap>(1, 1, 1);
    GraphicsAccess::AddStock(*this, kDefaultBitmap, std::move(bitmap));
}

Graphics::~Graphics() = default;

HDC GraphicsAccess::InsertContext(Graphics& graphics, std::shared_ptr<Context> context) {
    Select(graphics, context->pen, graphics.stock_[BLACK_PEN]);
    Select(graphics, context->brush, graphics.stock_[WHITE_BRUSH]);
    Select(graphics, context->font, graphics.stock_[SYSTEM_FONT]);
    return AddBase<HDC>(graphics.contexts_.Insert(std::move(context)), kContextBase);
}

unsigned Graphics::CountObjects() const {
    return objects_.CountOpen() - stockCount_;
}

unsigned Graphics::CountContexts() const {
    return contexts_.CountOpen();
}

std::shared_ptr<const Bitmap> Graphics::BitmapOf(HBITMAP bitmap) const {
    const auto object = objects_.Get<BitmapObject>(WithoutBase(bitmap, kObjectBase));
    return object ? object->bitmap : nullptr;
}

HDC Graphics::OpenContext(HWND window, std::shared_ptr<Bitmap> surface, POINT origin,
                          std::vector<RECT> clip, std::vector<RECT> holes) {
    auto context = std::make_shared<Context>();
    context->window = window;
    context->surface = std::move(surface);
    context->origin = origin;
    context->clip = std::move(clip);
    context->holes = std::move(holes);
    return GraphicsAccess::InsertContext(*this, std::move(context));
}

HWND Graphics::WindowOf(HDC context) const {
    const auto found = Find(context);
    return found ? found->window : nullptr;
}

bool Graphics::CloseContext(HDC context) {
    return contexts_.Close(WithoutBase(context, kContextBase));
}

HFONT Graphics::MakeFont(int pixels) {
    auto font = std::make_shared<Font>();
    font->pixels = pixels;
    return static_cast<HFONT>(GraphicsAccess::Insert(*this, std::move(font)));
}

std::shared_ptr<Context> Graphics::Find(HDC context) const {
    return contexts_.Get<Context>(WithoutBase(context, kContextBase));
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

// The face in one size. One thread at a time draws with it.
class Face {
  public:
    Face() {
        FT_Init_FreeType(&library_);
        FT_New_Memory_Face(library_, embedded_font, embedded_font_end - embedded_font, 0, &face_);
    }
    ~Face() {
        FT_Done_Face(face_);
        FT_Done_FreeType(library_);
    }
    Face(const Face&) = delete;
    Face& operator=(const Face&) = delete;

    static Face& Shared() {
        static Face face;
        return face;
    }

    int Ascent(int pixels) {
        std::lock_guard lock(mutex_);
        Resize(pixels);
        return Scaled(face_->ascender);
    }
    int Descent(int pixels) {
        std::lock_guard lock(mutex_);
        Resize(pixels);
        return Scaled(-face_->descender);
    }
    Glyph Draw(int pixels, char16_t character) {
        std::lock_guard lock(mutex_);
        Resize(pixels);
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
    void Resize(int pixels) { FT_Set_Pixel_Sizes(face_, 0, static_cast<FT_UInt>(pixels)); }
    // Rounded up, so that a line holds every letter: 13 pixels in all for the dialogs' 8 points.
    int Scaled(int units) const {
        return static_cast<int>((FT_MulFix(units, face_->size->metrics.y_scale) + 63) >> 6);
    }

    std::mutex mutex_;
    FT_Library library_ = nullptr;
    FT_Face face_ = nullptr;
};

int TextWidth(int pixels, std::u16string_view text) {
    int width = 0;
    for (const char16_t character : text) {
        width += Face::Shared().Draw(pixels, character).advance;
    }
    return width;
}

int TextHeight(int pixels) {
    return Face::Shared().Ascent(pixels) + Face::Shared().Descent(pixels);
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

void DrawGlyph(Context& context, const Glyph& glyph, int x, int baseline, const RECT& clip) {
    for (int row = 0; row < glyph.rows; ++row) {
        for (int column = 0; column < glyph.width; ++column) {
            const unsigned coverage =
                glyph.coverage[static_cast<size_t>(row) * glyph.width + column];
            const int px = x + glyph.left + column;
            const int py = baseline - glyph.top + row;
            const int sx = px + context.origin.x;
            const int sy = py + context.origin.y;
            if (coverage == 0 || !Contains(clip, px, py) || !context.surface->Contains(sx, sy)) {
                continue;
            }
            if (context.IsMono()) {
                if (coverage >= 0x80) {
                    context.Put(px, py, context.textColor);
                }
            } else {
                context.Put(px, py,
                            Blend(context.surface->At(sx, sy), context.textColor, coverage));
            }
        }
    }
}

// One line of text and which of its characters is underlined.
struct TextLine {
    std::u16string text;
    size_t underlined = std::u16string::npos;
};

void DrawTextLine(Context& context, const TextLine& line, int x, int y, const RECT& clip) {
    const int pixels = context.font.object->pixels;
    if (!context.hasTransparentText) {
        context.Fill(Intersect({x, y, x + TextWidth(pixels, line.text), y + TextHeight(pixels)},
                               clip),
                     context.backColor);
    }
    const int baseline = y + Face::Shared().Ascent(pixels);
    for (size_t at = 0; at < line.text.size(); ++at) {
        const Glyph glyph = Face::Shared().Draw(pixels, line.text[at]);
        DrawGlyph(context, glyph, x, baseline, clip);
        if (at == line.underlined) {
            context.Fill(Intersect({x, baseline + 1, x + glyph.advance, baseline + 2}, clip),
                         context.textColor);
        }
        x += glyph.advance;
    }
}

// Takes the '&' of a control's text away: the character after one is underlined, two stand
// for one.
TextLine WithoutPrefix(std::u16string_view text) {
    TextLine line;
    for (size_t at = 0; at < text.size(); ++at) {
        if (text[at] == u'&' && at + 1 < text.size()) {
            ++at;
            if (text[at] != u'&') {
                line.underlined = line.text.size();
            }
        }
        line.text += text[at];
    }
    return line;
}

// The first `count` characters become a line; what follows stays in `rest`.
TextLine CutLine(TextLine& rest, size_t count, size_t skip) {
    TextLine line{.text = rest.text.substr(0, count)};
    if (rest.underlined < count) {
        line.underlined = rest.underlined;
    }
    rest.underlined = rest.underlined != std::u16string::npos && rest.underlined >= count + skip
                          ? rest.underlined - count - skip
                          : std::u16string::npos;
    rest.text.erase(0, count + skip);
    return line;
}

// How many characters of a text without line ends fit in the width, whole words at least one.
size_t FittingCharacters(const std::u16string& text, int pixels, int width) {
    size_t fitting = text.find(u' ');
    if (fitting == std::u16string::npos || TextWidth(pixels, text) <= width) {
        return text.size();
    }
    while (fitting < text.size()) {
        const size_t next = std::min(text.find(u' ', fitting + 1), text.size());
        if (TextWidth(pixels, std::u16string_view(text).substr(0, next)) > width) {
            break;
        }
        fitting = next;
    }
    return fitting;
}

std::vector<TextLine> BreakLines(TextLine rest, int pixels, int width, UINT format) {
    std::vector<TextLine> lines;
    if ((format & DT_SINGLELINE) != 0) {
        lines.push_back(std::move(rest));
        return lines;
    }
    while (true) {
        const size_t end = rest.text.find_first_of(u"\r\n");
        const bool isLast = end == std::u16string::npos;
        const bool isPair = !isLast && rest.text.compare(end, 2, u"\r\n") == 0;
        TextLine paragraph = CutLine(rest, isLast ? rest.text.size() : end,
                                     isLast ? 0 : isPair ? 2 : 1);
        while ((format & DT_WORDBREAK) != 0) {
            const size_t count = FittingCharacters(paragraph.text, pixels, width);
            if (count == paragraph.text.size()) {
                break;
            }
            lines.push_back(CutLine(paragraph, count, 1));
        }
        lines.push_back(std::move(paragraph));
        if (isLast) {
            return lines;
        }
    }
}

std::u16string_view TextOf(LPCWSTR text, int length) {
    if (text == nullptr) {
        return {};
    }
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
    if (!context.pen.object->draws) {
        return;
    }
    WalkLine(from, to, [&](int x, int y) { context.Put(x, y, context.pen.object->color); });
}

// The pixels whose centres lie inside by the alternate rule; left and top sides belong to it.
void FillPolygon(Context& context, const POINT* points, int count) {
    if (!context.brush.object->draws) {
        return;
    }
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
                         context.brush.object->color);
        }
    }
}

std::shared_ptr<Context> FindContext(HDC handle) {
    auto context = GraphicsAccess::All().Find(handle);
    if (!context) {
        SetLastError(ERROR_INVALID_HANDLE);
    }
    return context;
}

// ---- Bitmaps in resources ----

template <typename Number>
Number ReadNumber(std::span<const std::byte> bytes, size_t at) {
    Number number;
    std::memcpy(&number, bytes.data() + at, sizeof number);
    return number;
}

// A device-independent bitmap without its file header; null when it is none that we read.
std::shared_ptr<Bitmap> ReadBitmap(std::span<const std::byte> bytes) {
    constexpr size_t kHeaderBytes = 40;
    if (bytes.size() < kHeaderBytes || ReadNumber<uint32_t>(bytes, 0) != kHeaderBytes) {
        return nullptr;
    }
    const auto width = ReadNumber<int32_t>(bytes, 4);
    const auto height = ReadNumber<int32_t>(bytes, 8);
    const unsigned depth = ReadNumber<uint16_t>(bytes, 14);
    const auto compression = ReadNumber<uint32_t>(bytes, 16);
    const auto colorsUsed = ReadNumber<uint32_t>(bytes, 32);
    if (width <= 0 || width > 0x4000 || height <= 0 || height > 0x4000 || compression != 0 ||
        (depth != 1 && depth != 4 && depth != 8 && depth != 24)) {
        return nullptr;
    }
    const size_t paletteSize =
        depth == 24 ? 0 : colorsUsed == 0 ? size_t{1} << depth : size_t{colorsUsed};
    const size_t rowBytes = (static_cast<size_t>(width) * depth + 31) / 32 * 4;
    if (paletteSize > 256 ||
        bytes.size() < kHeaderBytes + paletteSize * 4 + rowBytes * static_cast<size_t>(height)) {
        return nullptr;
    }
    const auto palette = bytes.subspan(kHeaderBytes, paletteSize * 4);
    const auto rows = bytes.subspan(kHeaderBytes + paletteSize * 4);
    auto bitmap = std::make_shared<Bitmap>(width, height);
    const auto color = [](std::span<const std::byte> blueFirst, size_t at) {
        return RGB(static_cast<BYTE>(blueFirst[at + 2]), static_cast<BYTE>(blueFirst[at + 1]),
                   static_cast<BYTE>(blueFirst[at]));
    };
    for (int y = 0; y < height; ++y) {
        const auto row = rows.subspan(rowBytes * static_cast<size_t>(height - 1 - y), rowBytes);
        for (int x = 0; x < width; ++x) {
            if (depth == 24) {
                bitmap->At(x, y) = color(row, static_cast<size_t>(x) * 3);
                continue;
            }
            const size_t bit = static_cast<size_t>(x) * depth;
            const unsigned index = static_cast<unsigned>(row[bit / 8]) >> (8 - depth - bit % 8) &
                                   ((1u << depth) - 1);
            bitmap->At(x, y) = index < paletteSize ? color(palette, index * 4) : kBlack;
        }
    }
    return bitmap;
}

HBITMAP InsertBitmap(std::shared_ptr<Bitmap> bitmap) {
    auto object = std::make_shared<BitmapObject>();
    object->bitmap = std::move(bitmap);
    return static_cast<HBITMAP>(GraphicsAccess::Insert(std::move(object)));
}

bool IsBitmapSize(int width, int height) {
    return width > 0 && height > 0 && width <= 0x4000 && height <= 0x4000;
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

}  // namespace

int FontHeight(HFONT font) {
    const auto object = GraphicsAccess::Get<Font>(font);
    return object ? TextHeight(object->pixels) : 0;
}

int FontAverageWidth(HFONT font) {
    static constexpr std::u16string_view kLetters =
        u"ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz";
    const auto object = GraphicsAccess::Get<Font>(font);
    return object ? (TextWidth(object->pixels, kLetters) / 26 + 1) / 2 : 0;
}

void SetTransparentText(HDC context, bool transparent) {
    if (const auto found = FindContext(context)) {
        found->hasTransparentText = transparent;
    }
}

}  // namespace embedded

using embedded::CallSite;
using embedded::Context;
using embedded::FindContext;
using embedded::GraphicsAccess;

// ---- Objects and contexts ----

HGDIOBJ GetStockObject(int object) {
    return GraphicsAccess::Stock(GraphicsAccess::All(), object);
}

HPEN CreatePen(int style, int width, COLORREF color) {
    static CallSite call("CreatePen");
    if (call.Fails() || style != PS_SOLID || width < 0 || width > 1) {
        return nullptr;
    }
    return static_cast<HPEN>(
        GraphicsAccess::Insert(embedded::MakeTool<embedded::Pen>(true, color)));
}

HBRUSH CreateSolidBrush(COLORREF color) {
    static CallSite call("CreateSolidBrush");
    if (call.Fails()) {
        return nullptr;
    }
    return static_cast<HBRUSH>(
        GraphicsAccess::Insert(embedded::MakeTool<embedded::Brush>(true, color)));
}

HBITMAP CreateBitmap(int width, int height, UINT planes, UINT bitsPerPixel, const void* bits) {
    static CallSite call("CreateBitmap");
    if (call.Fails() || !embedded::IsBitmapSize(width, height) || planes != 1 ||
        (bitsPerPixel != 1 && bitsPerPixel != 32) || bits != nullptr) {
        SetLastError(ERROR_INVALID_PARAMETER);
        return nullptr;
    }
    return embedded::InsertBitmap(
        std::make_shared<embedded::Bitmap>(width, height, bitsPerPixel));
}

HBITMAP CreateCompatibleBitmap(HDC handle, int width, int height) {
    static CallSite call("CreateCompatibleBitmap");
    const auto context = FindContext(handle);
    if (call.Fails() || !context || !embedded::IsBitmapSize(width, height)) {
        return nullptr;
    }
    return embedded::InsertBitmap(
        std::make_shared<embedded::Bitmap>(width, height, context->surface->bitsPerPixel));
}

HBITMAP LoadBitmapW(HINSTANCE instance, LPCWSTR name) {
    static CallSite call("LoadBitmapW");
    const auto bitmap =
        call.Fails() ? nullptr
                     : embedded::ReadBitmap(embedded::Machine::Current().resources().Find(
                           instance, embedded::kBitmapResource, embedded::ResourceNumber(name)));
    if (!bitmap) {
        SetLastError(ERROR_RESOURCE_NAME_NOT_FOUND);
        return nullptr;
    }
    return embedded::InsertBitmap(bitmap);
}

int GetObjectW(HANDLE handle, int bytes, LPVOID object) {
    static CallSite call("GetObjectW");
    const auto bitmap = GraphicsAccess::Get<embedded::BitmapObject>(handle);
    if (call.Fails() || !bitmap) {
        return 0;
    }
    if (object == nullptr) {
        return sizeof(BITMAP);
    }
    if (bytes < static_cast<int>(sizeof(BITMAP))) {
        return 0;
    }
    const embedded::Bitmap& pixels = *bitmap->bitmap;
    const LONG bits = pixels.width * static_cast<LONG>(pixels.bitsPerPixel);
    *static_cast<BITMAP*>(object) = {.bmType = 0,
                                     .bmWidth = pixels.width,
                                     .bmHeight = pixels.height,
                                     .bmWidthBytes = (bits + 15) / 16 * 2,
                                     .bmPlanes = 1,
                                     .bmBitsPixel = static_cast<WORD>(pixels.bitsPerPixel),
                                     .bmBits = nullptr};
    return sizeof(BITMAP);
}

BOOL DeleteObject(HGDIOBJ handle) {
    static CallSite call("DeleteObject");
    const auto object = GraphicsAccess::Get<embedded::GraphicsObject>(handle);
    if (call.Fails() || !object) {
        return FALSE;
    }
    if (object->isStock) {
        return TRUE;
    }
    return object->selections == 0 && GraphicsAccess::Close(handle);
}

HDC CreateCompatibleDC(HDC like) {
    static CallSite call("CreateCompatibleDC");
    if (call.Fails() || (like != nullptr && !FindContext(like))) {
        return nullptr;
    }
    embedded::Graphics& graphics = GraphicsAccess::All();
    auto context = std::make_shared<Context>();
    context->isMemory = true;
    GraphicsAccess::Select(graphics, context->bitmap,
                           GraphicsAccess::Stock(graphics, embedded::kDefaultBitmap));
    context->surface = std::make_shared<embedded::Bitmap>(1, 1, 1);
    return GraphicsAccess::InsertContext(graphics, std::move(context));
}

BOOL DeleteDC(HDC handle) {
    static CallSite call("DeleteDC");
    const auto context = FindContext(handle);
    if (call.Fails() || !context || !context->isMemory) {
        return FALSE;
    }
    return GraphicsAccess::All().CloseContext(handle);
}

HGDIOBJ SelectObject(HDC handle, HGDIOBJ object) {
    static CallSite call("SelectObject");
    const auto context = FindContext(handle);
    if (call.Fails() || !context) {
        return nullptr;
    }
    embedded::Graphics& graphics = GraphicsAccess::All();
    const auto select = [&](auto& selected) {
        const HGDIOBJ before = selected.handle;
        GraphicsAccess::Select(graphics, selected, object);
        return before;
    };
    if (GraphicsAccess::Get<embedded::Pen>(object)) {
        return select(context->pen);
    }
    if (GraphicsAccess::Get<embedded::Brush>(object)) {
        return select(context->brush);
    }
    if (GraphicsAccess::Get<embedded::Font>(object)) {
        return select(context->font);
    }
    const auto bitmap = GraphicsAccess::Get<embedded::BitmapObject>(object);
    if (!bitmap || !context->isMemory ||
        (bitmap->selections > 0 && !bitmap->isStock && context->bitmap.object != bitmap)) {
        return nullptr;
    }
    context->surface = bitmap->bitmap;
    return select(context->bitmap);
}

// ---- Attributes ----

COLORREF SetTextColor(HDC handle, COLORREF color) {
    static CallSite call("SetTextColor");
    const auto context = FindContext(handle);
    return call.Fails() || !context ? CLR_INVALID : std::exchange(context->textColor, color);
}

COLORREF SetBkColor(HDC handle, COLORREF color) {
    static CallSite call("SetBkColor");
    const auto context = FindContext(handle);
    return call.Fails() || !context ? CLR_INVALID : std::exchange(context->backColor, color);
}

int GetMapMode(HDC handle) {
    static CallSite call("GetMapMode");
    return call.Fails() || !FindContext(handle) ? 0 : MM_TEXT;
}

int SetMapMode(HDC handle, int mode) {
    static CallSite call("SetMapMode");
    return call.Fails() || !FindContext(handle) || mode != MM_TEXT ? 0 : MM_TEXT;
}

BOOL DPtoLP(HDC handle, POINT*, int) {
    static CallSite call("DPtoLP");
    // Mapped pixel to pixel, the points stay as they are.
    return !call.Fails() && FindContext(handle) != nullptr;
}

int GetClipBox(HDC handle, RECT* box) {
    static CallSite call("GetClipBox");
    const auto context = FindContext(handle);
    if (call.Fails() || !context) {
        return 0;
    }
    const RECT all{0, 0, context->surface->width, context->surface->height};
    RECT around = context->isMemory ? all : RECT{};
    for (const RECT& part : context->clip) {
        const RECT inside = embedded::Intersect(part, all);
        if (embedded::IsEmpty(around)) {
            around = inside;
        } else if (!embedded::IsEmpty(inside)) {
            around = {std::min(around.left, inside.left), std::min(around.top, inside.top),
                      std::max(around.right, inside.right), std::max(around.bottom, inside.bottom)};
        }
    }
    *box = embedded::IsEmpty(around)
               ? RECT{}
               : embedded::Offset(around, -context->origin.x, -context->origin.y);
    if (embedded::IsEmpty(around)) {
        return NULLREGION;
    }
    return context->clip.size() > 1 || !context->holes.empty() ? COMPLEXREGION : SIMPLEREGION;
}

// ---- Drawing ----

BOOL MoveToEx(HDC handle, int x, int y, POINT* before) {
    static CallSite call("MoveToEx");
    const auto context = FindContext(handle);
    if (call.Fails() || !context) {
        return FALSE;
    }
    if (before != nullptr) {
        *before = context->at;
    }
    context->at = {x, y};
    return TRUE;
}

BOOL LineTo(HDC handle, int x, int y) {
    static CallSite call("LineTo");
    const auto context = FindContext(handle);
    if (call.Fails() || !context) {
        return FALSE;
    }
    embedded::DrawWithPen(*context, context->at, {x, y});
    context->at = {x, y};
    return TRUE;
}

BOOL Rectangle(HDC handle, int left, int top, int right, int bottom) {
    static CallSite call("Rectangle");
    const auto context = FindContext(handle);
    if (call.Fails() || !context) {
        return FALSE;
    }
    std::tie(left, right) = std::minmax({left, right});
    std::tie(top, bottom) = std::minmax({top, bottom});
    if (left == right || top == bottom) {
        return TRUE;
    }
    const bool hasPen = context->pen.object->draws;
    if (context->brush.object->draws) {
        // Without a pen the right and bottom sides, where it would be, are left out.
        const int side = hasPen ? 1 : 0;
        context->Fill({left + side, top + side, right - 1, bottom - 1},
                      context->brush.object->color);
    }
    if (hasPen) {
        const COLORREF color = context->pen.object->color;
        context->Fill({left, top, right, top + 1}, color);
        context->Fill({left, bottom - 1, right, bottom}, color);
        context->Fill({left, top, left + 1, bottom}, color);
        context->Fill({right - 1, top, right, bottom}, color);
    }
    return TRUE;
}

BOOL Polygon(HDC handle, const POINT* points, int count) {
    static CallSite call("Polygon");
    const auto context = FindContext(handle);
    if (call.Fails() || !context || count < 2) {
        return FALSE;
    }
    embedded::FillPolygon(*context, points, count);
    for (int at = 0; at < count; ++at) {
        embedded::DrawWithPen(*context, points[at], points[(at + 1) % count]);
    }
    return TRUE;
}

COLORREF SetPixel(HDC handle, int x, int y, COLORREF color) {
    static CallSite call("SetPixel");
    const auto context = FindContext(handle);
    if (call.Fails() || !context ||
        !context->MayDraw(x + context->origin.x, y + context->origin.y)) {
        return CLR_INVALID;
    }
    context->Put(x, y, color);
    return GetPixel(handle, x, y);
}

COLORREF GetPixel(HDC handle, int x, int y) {
    static CallSite call("GetPixel");
    const auto context = FindContext(handle);
    if (call.Fails() || !context ||
        !context->MayDraw(x + context->origin.x, y + context->origin.y)) {
        return CLR_INVALID;
    }
    const uint32_t pixel = context->surface->At(x + context->origin.x, y + context->origin.y);
    return context->IsMono() ? (pixel != 0 ? embedded::kWhite : embedded::kBlack) : pixel;
}

int FillRect(HDC handle, const RECT* rect, HBRUSH brush) {
    static CallSite call("FillRect");
    const auto context = FindContext(handle);
    if (call.Fails() || !context) {
        return 0;
    }
    const auto number = reinterpret_cast<uintptr_t>(brush);
    if (number > 0 && number <= GraphicsAccess::All().systemColors.size()) {
        context->Fill(*rect, GetSysColor(static_cast<int>(number) - 1));
        return 1;
    }
    const auto object = GraphicsAccess::Get<embedded::Brush>(brush);
    if (!object) {
        return 0;
    }
    if (object->draws) {
        context->Fill(*rect, object->color);
    }
    return 1;
}

BOOL BitBlt(HDC targetHandle, int x, int y, int width, int height, HDC sourceHandle, int sourceX,
            int sourceY, DWORD operation) {
    static CallSite call("BitBlt");
    const auto target = FindContext(targetHandle);
    const auto source = FindContext(sourceHandle);
    if (call.Fails() || !target || !source ||
        (operation != SRCCOPY && operation != SRCAND && operation != SRCPAINT &&
         operation != NOTSRCCOPY)) {
        SetLastError(ERROR_INVALID_PARAMETER);
        return FALSE;
    }
    x += target->origin.x;
    y += target->origin.y;
    // Source and target may be one bitmap, so what is read is kept before anything is written.
    const embedded::Bitmap from = *source->surface;
    const uint32_t mask = target->IsMono() ? 1 : embedded::kWhite;
    for (int row = 0; row < height; ++row) {
        for (int column = 0; column < width; ++column) {
            const int fromX = sourceX + source->origin.x + column;
            const int fromY = sourceY + source->origin.y + row;
            if (!from.Contains(fromX, fromY) || !target->MayDraw(x + column, y + row)) {
                continue;
            }
            uint32_t pixel = from.At(fromX, fromY);
            if (target->IsMono() && !source->IsMono()) {
                pixel = pixel == (source->backColor & embedded::kWhite);
            } else if (!target->IsMono() && source->IsMono()) {
                pixel = (pixel != 0 ? target->backColor : target->textColor) & embedded::kWhite;
            }
            uint32_t& at = target->surface->At(x + column, y + row);
            at = embedded::Combine(operation, at, pixel, mask);
        }
    }
    return TRUE;
}

int DrawTextW(HDC handle, LPCWSTR text, int length, RECT* rect, UINT format) {
    static CallSite call("DrawTextW");
    constexpr UINT kKnown =
        DT_CENTER | DT_VCENTER | DT_WORDBREAK | DT_SINGLELINE | DT_NOPREFIX;
    const auto context = FindContext(handle);
    if (call.Fails() || !context || (format & ~kKnown) != 0) {
        return 0;
    }
    const std::u16string_view all = embedded::TextOf(text, length);
    const int pixels = context->font.object->pixels;
    const int lineHeight = embedded::TextHeight(pixels);
    const auto lines = embedded::BreakLines(
        (format & DT_NOPREFIX) != 0 ? embedded::TextLine{.text = std::u16string(all)}
                                    : embedded::WithoutPrefix(all),
        pixels, rect->right - rect->left, format);
    int y = rect->top;
    if ((format & DT_VCENTER) != 0 && (format & DT_SINGLELINE) != 0) {
        y += (rect->bottom - rect->top - lineHeight) / 2;
    }
    for (const embedded::TextLine& line : lines) {
        int x = rect->left;
        if ((format & DT_CENTER) != 0) {
            x += (rect->right - rect->left - embedded::TextWidth(pixels, line.text)) / 2;
        }
        embedded::DrawTextLine(*context, line, x, y, *rect);
        y += lineHeight;
    }
    return y - rect->top;
}

BOOL GetTextExtentPoint32W(HDC handle, LPCWSTR text, int length, SIZE* size) {
    static CallSite call("GetTextExtentPoint32W");
    const auto context = FindContext(handle);
    if (call.Fails() || !context || length < 0) {
        return FALSE;
    }
    const int pixels = context->font.object->pixels;
    *size = {embedded::TextWidth(pixels, embedded::TextOf(text, length)),
             embedded::TextHeight(pixels)};
    return TRUE;
}
