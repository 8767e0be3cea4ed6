#include "tool/cover_page.h"

#include <ft2build.h>
#include FT_FREETYPE_H

#include <algorithm>
#include <filesystem>
#include <memory>

#include "tool/failure.h"

namespace tool {

namespace {

constexpr int kMargin = 110;
constexpr int kRight = kPageWidth - kMargin;
constexpr int kBottom = kPageHeight - kMargin;
constexpr int kTextWidth = kRight - kMargin;

constexpr char kFontFolder[] = "/usr/share/fonts/truetype/liberation/";
// Looked at for characters that the chief fonts lack, when installed.
constexpr const char* kFallbackFonts[] = {
    "/usr/share/fonts/truetype/dejavu/DejaVuSans.ttf",
    "/usr/share/fonts/opentype/ipafont-gothic/ipag.ttf",
    "/usr/share/fonts/opentype/noto/NotoSansCJK-Regular.ttc",
};

enum class Weight { Regular, Bold };

char32_t NextCharacter(std::u16string_view text, size_t& at) {
    const char16_t first = text[at++];
    const bool pair = first >= 0xD800 && first < 0xDC00 && at < text.size() && text[at] >= 0xDC00 &&
                      text[at] < 0xE000;
    return pair ? 0x10000 + (char32_t(first - 0xD800) << 10) + (text[at++] - 0xDC00) : first;
}

// Text on a picture, by FreeType, each dot black or white as the fax will have it. Sizes are the
// height of the type in dots; `y` is the base line.
class Lettering {
  public:
    explicit Lettering(Picture& page) : page_(page) {
        if (FT_Init_FreeType(&library_) != 0) {
            throw UserError("the cover page cannot be drawn: FreeType does not start");
        }
        const std::string folder = kFontFolder;
        AddFace(folder + "LiberationSans-Regular.ttf");
        AddFace(folder + "LiberationSans-Bold.ttf");
        if (faces_.size() != 2) {
            FT_Done_FreeType(library_);
            throw UserError(folder + ": the Liberation Sans fonts are missing, so the cover page "
                                     "cannot be drawn; install the package fonts-liberation");
        }
        for (const char* path : kFallbackFonts) {
            AddFace(path);
        }
    }
    ~Lettering() { FT_Done_FreeType(library_); }
    Lettering(const Lettering&) = delete;
    Lettering& operator=(const Lettering&) = delete;

    int Width(std::u16string_view text, int size, Weight weight = Weight::Regular) {
        int width = 0;
        for (size_t at = 0; at < text.size();) {
            width += Load(NextCharacter(text, at), size, weight)->advance.x >> 6;
        }
        return width;
    }

    void Draw(int x, int y, std::u16string_view text, int size, Weight weight = Weight::Regular) {
        for (size_t at = 0; at < text.size();) {
            const FT_GlyphSlot glyph = Load(NextCharacter(text, at), size, weight);
            const FT_Bitmap& bits = glyph->bitmap;
            for (int v = 0; v < int(bits.rows); ++v) {
                for (int u = 0; u < int(bits.width); ++u) {
                    if (bits.buffer[v * bits.pitch + u / 8] >> (7 - u % 8) & 1) {
                        Blacken(x + glyph->bitmap_left + u, y - glyph->bitmap_top + v);
                    }
                }
            }
            x += int(glyph->advance.x >> 6);
        }
    }

    void DrawRight(int right, int y, std::u16string_view text, int size,
                   Weight weight = Weight::Regular) {
        Draw(right - Width(text, size, weight), y, text, size, weight);
    }

    // As much of the text as `width` holds, with an ellipsis for the rest.
    std::u16string Fitted(std::u16string_view text, int size, int width) {
        if (Width(text, size) <= width) {
            return std::u16string(text);
        }
        std::u16string fitted(text);
        while (!fitted.empty() && Width(fitted + u"\u2026", size) > width) {
            fitted.pop_back();
        }
        return fitted + u"\u2026";
    }

    // The text in lines of at most `width`, broken at spaces, inside a word only when the word
    // alone is wider (as all text without spaces is).
    std::vector<std::u16string> Wrapped(std::u16string_view text, int size, int width) {
        std::vector<std::u16string> lines;
        std::u16string line;
        int lineWidth = 0;
        size_t lastSpace = std::u16string::npos;
        for (size_t at = 0; at < text.size();) {
            const size_t start = at;
            const char32_t character = NextCharacter(text, at);
            if (character == U' ') {
                lastSpace = line.size();
            }
            line += text.substr(start, at - start);
            lineWidth += int(Load(character, size, Weight::Regular)->advance.x >> 6);
            if (lineWidth <= width || line.size() == at - start || character == U' ') {
                continue;
            }
            const bool atSpace = lastSpace != std::u16string::npos;
            const size_t cut = atSpace ? lastSpace : line.size() - (at - start);
            lines.push_back(line.substr(0, cut));
            line.erase(0, atSpace ? cut + 1 : cut);
            lineWidth = Width(line, size);
            lastSpace = std::u16string::npos;
        }
        lines.push_back(line);
        return lines;
    }

    void Rule(int left, int right, int y, int thickness) {
        for (int v = y; v < y + thickness; ++v) {
            for (int u = left; u < right; ++u) {
                Blacken(u, v);
            }
        }
    }

  private:
    void AddFace(const std::string& path) {
        FT_Face face = nullptr;
        if (FT_New_Face(library_, path.c_str(), 0, &face) == 0) {
            faces_.push_back(face);
        }
    }

    FT_GlyphSlot Load(char32_t character, int size, Weight weight) {
        FT_Face chosen = faces_[weight == Weight::Bold ? 1 : 0];
        for (size_t i = 2; i < faces_.size() && FT_Get_Char_Index(chosen, character) == 0; ++i) {
            if (FT_Get_Char_Index(faces_[i], character) != 0) {
                chosen = faces_[i];
            }
        }
        FT_Set_Pixel_Sizes(chosen, 0, FT_UInt(size));
        if (FT_Load_Char(chosen, character, FT_LOAD_RENDER | FT_LOAD_TARGET_MONO) != 0) {
            throw UserError("the cover page cannot be drawn: a font file is damaged");
        }
        return chosen->glyph;
    }

    void Blacken(int x, int y) {
        if (x >= 0 && x < page_.width && y >= 0 && y < page_.height) {
            page_.At(x, y) = 0;
        }
    }

    Picture& page_;
    FT_Library library_ = nullptr;
    std::vector<FT_Face> faces_;  // regular, bold, then the fallbacks; they go with the library
};

std::u16string Decimal(size_t number) {
    const std::string digits = std::to_string(number);
    return {digits.begin(), digits.end()};
}

// "FAX", the sender and the date, down to a heavy rule. Gives where the page goes on.
int DrawHead(Lettering& lettering, const CoverPage& page) {
    lettering.Draw(kMargin - 6, 220, u"FAX", 150, Weight::Bold);
    const int half = kTextWidth * 2 / 3;
    int y = 130;
    if (!page.sender.name.empty()) {
        lettering.DrawRight(kRight, y, lettering.Fitted(page.sender.name, 42, half), 42,
                            Weight::Bold);
        y += 48;
    }
    if (!page.sender.number.empty()) {
        lettering.DrawRight(kRight, y, lettering.Fitted(page.sender.number, 34, half), 34);
        y += 44;
    }
    lettering.DrawRight(kRight, std::max(y, 218), page.date, 34);
    lettering.Rule(kMargin, kRight, 258, 10);
    return 300;
}

void DrawLabel(Lettering& lettering, int y, std::u16string_view text, std::u16string_view note) {
    lettering.Draw(kMargin, y, text, 30, Weight::Bold);
    lettering.DrawRight(kRight, y, note, 30);
    lettering.Rule(kMargin, kRight, y + 14, 2);
}

struct ListShape {
    size_t most;  // receivers that this shape is for
    int columns;
    int size;
    int pitch;
};
// Fewer receivers are written larger. The last row is for every longer list.
constexpr ListShape kListShapes[] = {
    {6, 1, 44, 62}, {14, 1, 36, 48}, {40, 2, 30, 40}, {SIZE_MAX, 3, 22, 28}};

// The list by columns, each read downwards, in at most `room` dots. Gives where the page goes on.
int DrawReceivers(Lettering& lettering, const std::vector<Receiver>& receivers, int top, int room) {
    DrawLabel(lettering, top + 30, u"TO",
              receivers.size() == 1 ? u"1 receiver" : Decimal(receivers.size()) + u" receivers");
    const ListShape& shape = *std::ranges::find_if(
        kListShapes, [&](const ListShape& row) { return receivers.size() <= row.most; });
    const int listTop = top + 50;
    const size_t columns = size_t(shape.columns);
    const size_t roomRows = size_t(std::max(1, (room - 50) / shape.pitch - 1));
    const size_t rows = std::min((receivers.size() + columns - 1) / columns, roomRows);
    const size_t shown = std::min(receivers.size(), rows * columns);
    const int gap = 48;
    const int columnWidth = (kTextWidth - gap * (shape.columns - 1)) / shape.columns;
    for (size_t i = 0; i < shown; ++i) {
        const int left = kMargin + int(i / rows) * (columnWidth + gap);
        const int y = listTop + int(i % rows + 1) * shape.pitch;
        const Receiver& receiver = receivers[i];
        const std::u16string number =
            lettering.Fitted(receiver.number, shape.size, columnWidth * 3 / 5);
        const int nameWidth = columnWidth - lettering.Width(number, shape.size) - shape.size;
        lettering.Draw(left, y, lettering.Fitted(receiver.name, shape.size, nameWidth), shape.size);
        lettering.DrawRight(left + columnWidth, y, number, shape.size);
    }
    int bottom = listTop + int(rows) * shape.pitch;
    if (shown < receivers.size()) {
        bottom += shape.pitch;
        lettering.Draw(kMargin, bottom,
                       u"and " + Decimal(receivers.size() - shown) + u" more receivers", shape.size,
                       Weight::Bold);
    }
    return bottom + 70;
}

std::vector<std::u16string> MemoLines(Lettering& lettering, std::u16string_view memo, int size) {
    std::vector<std::u16string> lines;
    for (size_t at = 0; at <= memo.size();) {
        const size_t end = std::min(memo.find(u'\n', at), memo.size());
        std::u16string line;
        for (const char16_t character : memo.substr(at, end - at)) {
            if (character == u'\t') {
                line.append(4 - line.size() % 4, u' ');
            } else if (character >= u' ') {
                line += character;
            }
        }
        std::ranges::move(lettering.Wrapped(line, size, kTextWidth), std::back_inserter(lines));
        at = end + 1;
    }
    while (!lines.empty() && lines.back().empty()) {
        lines.pop_back();
    }
    return lines;
}

int DrawMemo(Lettering& lettering, std::u16string_view memo, int top, int room) {
    constexpr int kSize = 36;
    constexpr int kPitch = 50;
    DrawLabel(lettering, top + 30, u"MESSAGE", u"");
    const std::vector<std::u16string> lines = MemoLines(lettering, memo, kSize);
    const size_t roomLines = size_t(std::max(1, (room - 60) / kPitch - 1));
    const size_t shown = std::min(lines.size(), roomLines);
    int y = top + 60;
    for (size_t i = 0; i < shown; ++i) {
        y += kPitch;
        lettering.Draw(kMargin, y, lines[i], kSize);
    }
    if (shown < lines.size()) {
        y += kPitch;
        lettering.Draw(kMargin, y,
                       u"and " + Decimal(lines.size() - shown) + u" more lines, left out here",
                       kSize, Weight::Bold);
    }
    return y + 60;
}

// In the middle of the room that is left, at most four times as large as it is.
void DrawBitmap(Picture& page, const Picture& bitmap, int top) {
    const double scale =
        std::min({double(kTextWidth) / bitmap.width, double(kBottom - top) / bitmap.height, 4.0});
    const int width = std::max(1, int(bitmap.width * scale));
    const int height = std::max(1, int(bitmap.height * scale));
    Picture scaled = Scale(bitmap, width, height);
    Dither(scaled);
    const int left = kMargin + (kTextWidth - width) / 2;
    const int start = top + (kBottom - top - height) / 2;
    for (int y = 0; y < height; ++y) {
        for (int x = 0; x < width; ++x) {
            page.At(left + x, start + y) = scaled.At(x, y);
        }
    }
}

}  // namespace

Picture DrawCoverPage(const CoverPage& page) {
    constexpr int kLeastForBitmap = 620;
    constexpr int kLeastForMemo = 420;
    Picture picture(kPageWidth, kPageHeight);
    Lettering lettering(picture);
    const int reservedForBitmap = page.bitmap ? kLeastForBitmap : 0;
    const int reservedForMemo = page.memo ? kLeastForMemo : 0;
    int y = DrawHead(lettering, page);
    y = DrawReceivers(lettering, page.receivers, y,
                      kBottom - y - reservedForBitmap - reservedForMemo);
    if (page.memo) {
        y = DrawMemo(lettering, *page.memo, y, kBottom - y - reservedForBitmap);
    }
    if (page.bitmap) {
        DrawBitmap(picture, *page.bitmap, y);
    }
    return picture;
}

}  // namespace tool
