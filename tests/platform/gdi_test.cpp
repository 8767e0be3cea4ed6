#include "platform/embedded/gdi.h"

#include <gtest/gtest.h>

#include <numeric>

#include "platform/windows_api.h"
#include "tests/picture.h"

namespace {

constexpr COLORREF kWhite = RGB(255, 255, 255);
constexpr COLORREF kRed = RGB(255, 0, 0);
constexpr COLORREF kBlue = RGB(0, 0, 255);
const std::map<uint32_t, char> kLegend{
    {0, '.'}, {kWhite, 'W'}, {kRed, 'R'}, {kBlue, 'B'}, {RGB(255, 0, 255), 'M'}, {1, '1'}};

// A memory context with a bitmap of its own, everything given back at the end.
class Canvas {
  public:
    Canvas(int width, int height, unsigned bits = 32)
        : context_(CreateCompatibleDC(nullptr)),
          bitmap_(CreateBitmap(width, height, 1, bits, nullptr)),
          before_(SelectObject(context_, bitmap_)) {}
    ~Canvas() {
        for (const HGDIOBJ tool : tools_) {
            SelectObject(context_, GetStockObject(BLACK_PEN));
            SelectObject(context_, GetStockObject(WHITE_BRUSH));
            EXPECT_TRUE(DeleteObject(tool));
        }
        SelectObject(context_, before_);
        EXPECT_TRUE(DeleteObject(bitmap_));
        EXPECT_TRUE(DeleteDC(context_));
    }
    Canvas(const Canvas&) = delete;
    Canvas& operator=(const Canvas&) = delete;

    void Use(COLORREF pen, COLORREF brush) {
        for (const HGDIOBJ tool : {static_cast<HGDIOBJ>(CreatePen(PS_SOLID, 1, pen)),
                                   static_cast<HGDIOBJ>(CreateSolidBrush(brush))}) {
            SelectObject(context_, tool);
            tools_.push_back(tool);
        }
    }
    void Line(int x1, int y1, int x2, int y2) {
        MoveToEx(context_, x1, y1, nullptr);
        LineTo(context_, x2, y2);
    }
    std::string Text() const {
        return tests::AsText(*embedded::Machine::Current().graphics().BitmapOf(bitmap_), kLegend);
    }
    HDC context() const { return context_; }

  private:
    HDC context_;
    HBITMAP bitmap_;
    HGDIOBJ before_;
    std::vector<HGDIOBJ> tools_;
};

class Gdi : public testing::Test {
  protected:
    ~Gdi() override { EXPECT_EQ(machine.OpenNow(), embedded::Leaks{}); }
    embedded::Machine machine;
};

TEST_F(Gdi, DrawsLinesWithoutTheirLastPixel) {
    Canvas canvas(9, 6);
    canvas.Use(kRed, 0);
    canvas.Line(0, 0, 4, 0);
    canvas.Line(8, 1, 8, 4);
    canvas.Line(4, 1, 1, 4);
    canvas.Line(6, 2, 6, 2);
    // Half-way between two rows the upper pixel is taken, whichever end the line starts from.
    canvas.Use(kBlue, 0);
    canvas.Line(0, 4, 4, 6);
    EXPECT_EQ(canvas.Text(), R"(
RRRR.....
....R...R
...R....R
..R.....R
BB.......
..BB.....
)");
}

TEST_F(Gdi, FillsRectanglesInsideTheirOutline) {
    Canvas canvas(12, 5);
    canvas.Use(kRed, kBlue);
    Rectangle(canvas.context(), 0, 0, 5, 4);
    SelectObject(canvas.context(), GetStockObject(NULL_PEN));
    Rectangle(canvas.context(), 6, 0, 10, 4);
    const RECT column{11, 1, 12, 5};
    FillRect(canvas.context(), &column, reinterpret_cast<HBRUSH>(COLOR_WINDOW + uintptr_t{1}));
    EXPECT_EQ(canvas.Text(), R"(
RRRRR.BBB...
RBBBR.BBB..W
RBBBR.BBB..W
RRRRR......W
...........W
)");
}

TEST_F(Gdi, OutlinesAndFillsPolygons) {
    Canvas canvas(9, 5);
    canvas.Use(kRed, kBlue);
    const POINT triangle[] = {{4, 0}, {0, 4}, {8, 4}};
    EXPECT_TRUE(Polygon(canvas.context(), triangle, 3));
    EXPECT_EQ(canvas.Text(), R"(
....R....
...RBR...
..RBBBR..
.RBBBBBR.
RRRRRRRRR
)");
}

TEST_F(Gdi, ConvertsColoursByTheContextsColoursInBlits) {
    Canvas colour(4, 1);
    SetPixel(colour.context(), 1, 0, kRed);
    SetPixel(colour.context(), 3, 0, kRed);
    Canvas mono(4, 1, 1);
    SetBkColor(colour.context(), kRed);
    BitBlt(mono.context(), 0, 0, 4, 1, colour.context(), 0, 0, SRCCOPY);
    EXPECT_EQ(mono.Text(), "\n.1.1\n");
    Canvas inverse(4, 1, 1);
    BitBlt(inverse.context(), 0, 0, 4, 1, mono.context(), 0, 0, NOTSRCCOPY);
    EXPECT_EQ(inverse.Text(), "\n1.1.\n");

    Canvas back(4, 1);
    SetTextColor(back.context(), kBlue);
    SetBkColor(back.context(), kWhite);
    BitBlt(back.context(), 0, 0, 4, 1, mono.context(), 0, 0, SRCCOPY);
    EXPECT_EQ(back.Text(), "\nBWBW\n");
    BitBlt(back.context(), 0, 0, 4, 1, colour.context(), 0, 0, SRCAND);
    EXPECT_EQ(back.Text(), "\n.R.R\n");
    SetPixel(colour.context(), 0, 0, kBlue);
    SetPixel(colour.context(), 1, 0, kBlue);
    BitBlt(back.context(), 0, 0, 4, 1, colour.context(), 0, 0, SRCPAINT);
    EXPECT_EQ(back.Text(), "\nBM.R\n");
    // Overlapping source and target, and a source that ends early.
    BitBlt(back.context(), 1, 0, 3, 1, back.context(), 0, 0, SRCCOPY);
    EXPECT_EQ(back.Text(), "\nBBM.\n");
    BitBlt(back.context(), 0, 0, 4, 1, back.context(), 2, 0, SRCCOPY);
    EXPECT_EQ(back.Text(), "\nM.M.\n");
    constexpr DWORD kInvert = 0x00660046;
    EXPECT_FALSE(BitBlt(back.context(), 0, 0, 4, 1, colour.context(), 0, 0, kInvert));
}

TEST_F(Gdi, KeepsSelectedObjectsAndCountsTheRest) {
    const HDC context = CreateCompatibleDC(nullptr);
    const HDC other = CreateCompatibleDC(nullptr);
    const HPEN pen = CreatePen(PS_SOLID, 1, kRed);
    const HBITMAP bitmap = CreateBitmap(2, 2, 1, 32, nullptr);
    const HGDIOBJ before = SelectObject(context, pen);
    EXPECT_EQ(before, GetStockObject(BLACK_PEN));
    EXPECT_NE(SelectObject(context, bitmap), nullptr);
    EXPECT_EQ(SelectObject(other, bitmap), nullptr) << "one context at a time";
    EXPECT_FALSE(DeleteObject(pen));
    EXPECT_FALSE(DeleteObject(bitmap));
    EXPECT_EQ(machine.OpenNow(), (embedded::Leaks{.graphicsObjects = 2, .contexts = 2}));
    EXPECT_EQ(SelectObject(context, before), pen);
    EXPECT_TRUE(DeleteObject(pen));
    EXPECT_FALSE(DeleteObject(pen)) << "stale";
    EXPECT_EQ(SelectObject(context, pen), nullptr);
    EXPECT_TRUE(DeleteDC(context));
    EXPECT_TRUE(DeleteObject(bitmap)) << "the context let go of it";
    EXPECT_TRUE(DeleteDC(other));
    EXPECT_TRUE(DeleteObject(GetStockObject(NULL_PEN)));
    EXPECT_NE(GetStockObject(NULL_PEN), nullptr);
}

TEST_F(Gdi, MakesBitmapsAsDeepAsTheContext) {
    BITMAP facts{};
    Canvas colour(1, 1);
    const HDC fresh = CreateCompatibleDC(colour.context());
    const HBITMAP mono = CreateCompatibleBitmap(fresh, 17, 3);
    EXPECT_EQ(GetObjectW(mono, sizeof facts, &facts), static_cast<int>(sizeof facts));
    EXPECT_EQ(facts.bmBitsPixel, 1);
    EXPECT_EQ(facts.bmWidthBytes, 4);
    const HBITMAP deep = CreateCompatibleBitmap(colour.context(), 17, 3);
    EXPECT_EQ(GetObjectW(deep, sizeof facts, &facts), static_cast<int>(sizeof facts));
    EXPECT_EQ(facts.bmBitsPixel, 32);
    EXPECT_EQ(facts.bmWidth, 17);
    EXPECT_EQ(facts.bmHeight, 3);
    DeleteObject(mono);
    DeleteObject(deep);
    DeleteDC(fresh);
}

// Where ink stands, row by row, of a text drawn in a rectangle.
std::vector<int> InkRows(const RECT& rect, LPCWSTR text, UINT format, int* height = nullptr) {
    Canvas canvas(120, 60);
    EXPECT_EQ(SelectObject(canvas.context(), GetStockObject(DEFAULT_GUI_FONT)),
              GetStockObject(SYSTEM_FONT));
    SetTextColor(canvas.context(), kWhite);
    SetBkColor(canvas.context(), 0);
    RECT room = rect;
    const int used = DrawTextW(canvas.context(), text, -1, &room, format);
    if (height != nullptr) {
        *height = used;
    }
    std::vector<int> rows(60);
    for (int y = 0; y < 60; ++y) {
        for (int x = 0; x < 120; ++x) {
            rows[y] += GetPixel(canvas.context(), x, y) != 0;
        }
    }
    return rows;
}

TEST_F(Gdi, WrapsTextAtWordsInsideItsRectangle) {
    int oneLine = 0;
    const auto plain = InkRows({0, 0, 120, 60}, TEXT("Paper size"), DT_WORDBREAK, &oneLine);
    EXPECT_GE(oneLine, 12);
    EXPECT_LE(oneLine, 14);
    int twoLines = 0;
    const auto wrapped = InkRows({0, 0, 40, 60}, TEXT("Paper size"), DT_WORDBREAK, &twoLines);
    EXPECT_EQ(twoLines, 2 * oneLine);
    EXPECT_EQ(std::accumulate(plain.begin(), plain.begin() + oneLine, 0),
              std::accumulate(wrapped.begin(), wrapped.end(), 0))
        << "the same ink on two lines";
    int broken = 0;
    InkRows({0, 0, 120, 60}, TEXT("A4\r\n\n210 x 297"), DT_LEFT, &broken);
    EXPECT_EQ(broken, 3 * oneLine);
    int single = 0;
    InkRows({0, 0, 10, 60}, TEXT("Paper size"), DT_SINGLELINE, &single);
    EXPECT_EQ(single, oneLine);
    const auto cut = InkRows({0, 0, 120, 5}, TEXT("Paper size"), DT_WORDBREAK);
    EXPECT_EQ(std::accumulate(cut.begin() + 5, cut.end(), 0), 0);
}

TEST_F(Gdi, UnderlinesThePrefixedLetter) {
    Canvas canvas(60, 20);
    SIZE with{};
    GetTextExtentPoint32W(canvas.context(), TEXT("Tray"), 4, &with);
    const auto plain = InkRows({0, 0, 60, 20}, TEXT("Tray"), DT_SINGLELINE);
    const auto marked = InkRows({0, 0, 60, 20}, TEXT("T&ray"), DT_SINGLELINE);
    const auto literal = InkRows({0, 0, 60, 20}, TEXT("T&ray"), DT_SINGLELINE | DT_NOPREFIX);
    const int ink = std::accumulate(plain.begin(), plain.end(), 0);
    EXPECT_GT(std::accumulate(marked.begin(), marked.end(), 0), ink);
    EXPECT_LT(std::accumulate(marked.begin(), marked.end(), 0), ink + 8);
    EXPECT_GT(std::accumulate(literal.begin(), literal.end(), 0), ink + 8);
    EXPECT_GT(with.cx, 15);
    EXPECT_LT(with.cx, 30);
}

}  // namespace
