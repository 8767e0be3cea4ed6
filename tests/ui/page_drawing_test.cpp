#include "tests/picture.h"
#include "tests/ui/ui_machine.h"
#include "ui/page_drawing.h"

namespace ksfax {
namespace {

constexpr COLORREF kTarget = RGB(0, 128, 0);
constexpr COLORREF kMagenta = RGB(255, 0, 255);
constexpr int kWidth = 284;
constexpr int kHeight = 84;
constexpr RECT kItem{2, 3, kWidth - 2, kHeight - 1};

// A target of green pixels with an item in it.
class PageDrawing : public tests::UiMachine {
  protected:
    PageDrawing() : bitmap_(CreateBitmap(kWidth, kHeight, 1, 32, nullptr)) {
        before_ = SelectObject(target, bitmap_);
    }
    ~PageDrawing() override {
        SelectObject(target, before_);
        DeleteObject(bitmap_);
        DeleteDC(target);
    }

    void Clear() {
        const HBRUSH brush = CreateSolidBrush(kTarget);
        const RECT all{0, 0, kWidth, kHeight};
        FillRect(target, &all, brush);
        DeleteObject(brush);
    }
    void DrawItem(UINT id, short orientation, UINT type = ODT_BUTTON) {
        DRAWITEMSTRUCT item{};
        item.CtlType = type;
        item.CtlID = id;
        item.hDC = target;
        item.rcItem = kItem;
        JobSettings settings{};
        settings.devMode.dmOrientation = orientation;
        DrawPageItem(nullptr, &item, settings);
    }
    const embedded::Bitmap& Pixels(HBITMAP bitmap) {
        return *fax.machine.graphics().BitmapOf(bitmap);
    }
    // The target with the item filled, or not, and that bitmap of the module in its corner, the
    // dialog's colour where the bitmap's background was.
    embedded::Bitmap Expected(bool isFilled, WORD number) {
        const COLORREF face = fax.machine.graphics().systemColors[COLOR_BTNFACE];
        embedded::Bitmap all(kWidth, kHeight, 32, kTarget);
        for (LONG y = kItem.top; isFilled && y < kItem.bottom; ++y) {
            std::fill(&all.At(kItem.left, y), &all.At(kItem.right, y), face);
        }
        if (number != 0) {
            const HBITMAP handle = LoadBitmapW(ownModule, MAKEINTRESOURCEW(number));
            const embedded::Bitmap picture = Pixels(handle);
            DeleteObject(handle);
            EXPECT_EQ(picture.At(0, 0), number == 13152 ? RGB(192, 192, 192) : kMagenta);
            for (int at = 0; at < picture.width * picture.height; ++at) {
                const uint32_t pixel = picture.At(at % picture.width, at / picture.width);
                all.At(kItem.left + at % picture.width, kItem.top + at / picture.width) =
                    pixel == picture.At(0, 0) ? face : pixel;
            }
        }
        return all;
    }

    HDC target = CreateCompatibleDC(nullptr);

    HBITMAP bitmap_;
    HGDIOBJ before_;
};

TEST_F(PageDrawing, ShowsWhatBelongsOnEachItem) {
    constexpr UINT kMenuItem = 1;
    const struct {
        UINT id;
        short orientation;
        bool isFilled;
        WORD bitmap;
        UINT type = ODT_BUTTON;
    } rows[] = {
        {166, DMORIENT_PORTRAIT, true, 13052},
        {166, DMORIENT_LANDSCAPE, true, 13053},
        {166, 0, true, 0},
        {166, 3, true, 0},
        {533, 0, true, 13152},
        {9999, DMORIENT_PORTRAIT, true, 0},
        {10000, DMORIENT_PORTRAIT, false, 0},
        {166, DMORIENT_PORTRAIT, false, 0, kMenuItem},
    };
    for (const auto& row : rows) {
        Clear();
        DrawItem(row.id, row.orientation, row.type);
        EXPECT_TRUE(Pixels(bitmap_) == Expected(row.isFilled, row.bitmap))
            << row.id << row.orientation;
    }
}

TEST_F(PageDrawing, LeavesTheKeyColourOutAndTheBitmapAsItWas) {
    Clear();
    const HBITMAP bitmap = CreateBitmap(4, 3, 1, 32, nullptr);
    const HDC context = CreateCompatibleDC(nullptr);
    const HGDIOBJ before = SelectObject(context, bitmap);
    for (const POINT at : {POINT{0, 0}, {1, 1}, {2, 2}, {3, 0}}) {
        SetPixel(context, at.x, at.y, kMagenta);
    }
    SetPixel(context, 2, 0, RGB(255, 0, 0));
    SetPixel(context, 3, 2, RGB(255, 255, 255));
    SelectObject(context, before);
    DeleteDC(context);
    const embedded::Bitmap whole = Pixels(bitmap);

    DrawTransparentBitmap(target, bitmap, 1, 1, kMagenta);
    EXPECT_EQ(
        tests::AsText(PixelsOf(target, 6, 5),
                      {{kTarget, 'g'}, {0, '.'}, {RGB(255, 0, 0), 'R'}, {RGB(255, 255, 255), 'W'}}),
        R"(
gggggg
gg.Rgg
g.g..g
g..gWg
gggggg
)");
    EXPECT_EQ(Pixels(bitmap), whole);
    EXPECT_TRUE(DeleteObject(bitmap)) << "no longer selected anywhere";
}

// Without what it takes to draw the picture the item is filled, no more.
TEST_F(PageDrawing, ShowsAPictureWholeOrNotAtAllWhateverFails) {
    const embedded::Bitmap picture = Expected(true, 13052);
    const embedded::Bitmap filled = Expected(true, 0);
    UnderFaults(fax.machine,
                {.prepare = [&] { Clear(); },
                 .act = [&] { DrawItem(166, DMORIENT_PORTRAIT); },
                 .holds =
                     [&](const FailedCall& failed) {
                         if (failed.name != "CreateSolidBrush" && failed.name != "BitBlt") {
                             EXPECT_TRUE(Pixels(bitmap_) ==
                                         (failed.number == 0 ? picture : filled));
                         }
                     },
                 .only = {"CreateCompatibleDC", "CreateCompatibleBitmap", "CreateBitmap",
                          "GetObjectW", "BitBlt", "LoadBitmapW", "CreateSolidBrush"},
                 .withAllLater = false});
}

}  // namespace
}  // namespace ksfax
