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
    HDC target = CreateCompatibleDC(nullptr);
    HBITMAP bitmap_;
    HGDIOBJ before_;
};

TEST_F(PageDrawing, ShowsWhatBelongsOnEachItem) {
    constexpr UINT kMenuItem = 1;
    const UINT rows[][3] = {
        // id, orientation, type
        {166, DMORIENT_PORTRAIT, ODT_BUTTON},
        {166, DMORIENT_LANDSCAPE, ODT_BUTTON},
        {166, 0, ODT_BUTTON},
        {166, 3, ODT_BUTTON},
        {533, 0, ODT_BUTTON},
        {9999, DMORIENT_PORTRAIT, ODT_BUTTON},
        {10000, DMORIENT_PORTRAIT, ODT_BUTTON},
        {166, DMORIENT_PORTRAIT, kMenuItem},
    };
    std::string text;
    for (const auto& [id, orientation, type] : rows) {
        Clear();
        DrawItem(id, static_cast<short>(orientation), type);
        uint32_t checksum = 0;
        for (const uint32_t pixel : Pixels(bitmap_).pixels) {
            checksum = checksum * 31 + pixel;
        }
        text +=
            Line(id, ", type ", type, ", orientation ", orientation, ": checksum ", checksum, "\n");
    }
    EXPECT_TRUE(IsRecorded("ui/pictures.txt", text));
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
    Clear();
    DrawItem(9999, DMORIENT_PORTRAIT);
    const embedded::Bitmap filled = Pixels(bitmap_);
    DrawItem(166, DMORIENT_PORTRAIT);
    const embedded::Bitmap picture = Pixels(bitmap_);
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
