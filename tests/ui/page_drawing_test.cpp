#include <set>
#include <span>

#include <gtest/gtest.h>

#include "platform/embedded/modules.h"
#include "platform/embedded/resources.h"
#include "platform/embedded/windows.h"

#include "core/module_state.h"
#include "tests/picture.h"
#include "ui/about_box.h"
#include "ui/page_drawing.h"

extern "C" const std::byte ksfaxui_resources[];
extern "C" const std::byte ksfaxui_resources_end[];

namespace ksfax {
namespace {

constexpr COLORREF kFace = RGB(212, 208, 200);
constexpr COLORREF kTarget = RGB(0, 128, 0);
constexpr COLORREF kMagenta = RGB(255, 0, 255);
constexpr COLORREF kGrey = RGB(192, 192, 192);
constexpr COLORREF kWhite = RGB(255, 255, 255);
constexpr int kWidth = 284;
constexpr int kHeight = 84;

// A target of 284 x 84 green pixels.
class PageDrawing : public testing::Test {
  protected:
    PageDrawing() {
        machine.modules().Install(
            {.path = u"C:\\KSFAXUI.DLL",
             .exports = {},
             .resources = std::span(ksfaxui_resources, ksfaxui_resources_end)});
        before_ = ownModule;
        ownModule = LoadLibraryW(TEXT("C:\\KSFAXUI.DLL"));
        target = CreateCompatibleDC(nullptr);
        bitmap_ = CreateBitmap(kWidth, kHeight, 1, 32, nullptr);
        bitmapBefore_ = SelectObject(target, bitmap_);
        Clear();
        loaded_ = machine.OpenNow();
    }
    ~PageDrawing() override {
        EXPECT_EQ(machine.OpenNow(), loaded_);
        SelectObject(target, bitmapBefore_);
        DeleteObject(bitmap_);
        DeleteDC(target);
        FreeLibrary(ownModule);
        ownModule = before_;
        EXPECT_EQ(machine.OpenNow(), embedded::Leaks{});
    }

    void Clear() {
        const HBRUSH brush = CreateSolidBrush(kTarget);
        const RECT all{0, 0, kWidth, kHeight};
        FillRect(target, &all, brush);
        DeleteObject(brush);
    }
    DRAWITEMSTRUCT Item(UINT id, UINT type = ODT_BUTTON) {
        Clear();
        DRAWITEMSTRUCT item{};
        item.CtlType = type;
        item.CtlID = id;
        item.hDC = target;
        item.rcItem = {2, 3, kWidth - 2, kHeight - 1};
        return item;
    }
    void DrawItem(UINT id, short orientation, UINT type = ODT_BUTTON) {
        const DRAWITEMSTRUCT item = Item(id, type);
        JobSettings settings{};
        settings.devMode.dmOrientation = orientation;
        DrawPageItem(nullptr, &item, settings);
    }
    // Of the bitmap in the module: its pixels, with its size and colours as they should be.
    embedded::Bitmap Resource(WORD number, int width, int height, COLORREF background) {
        const HBITMAP picture = LoadBitmapW(ownModule, MAKEINTRESOURCEW(number));
        const embedded::Bitmap pixels = *machine.graphics().BitmapOf(picture);
        DeleteObject(picture);
        EXPECT_EQ(pixels.width, width);
        EXPECT_EQ(pixels.height, height);
        EXPECT_EQ(pixels.At(0, 0), background);
        const auto raw = machine.resources().Find(ownModule, embedded::kBitmapResource, number);
        EXPECT_EQ(raw[14], std::byte{4}) << "biBitCount";
        return pixels;
    }
    // Whether the picture stands in its corner, the face colour where its background was.
    bool Shows(const embedded::Bitmap& picture, COLORREF background) const {
        for (int y = 0; y < picture.height; ++y) {
            for (int x = 0; x < picture.width; ++x) {
                const uint32_t pixel = picture.At(x, y);
                if (Pixels().At(2 + x, 3 + y) != (pixel == background ? kFace : pixel)) {
                    return false;
                }
            }
        }
        return true;
    }
    const embedded::Bitmap& Pixels() const { return *machine.graphics().BitmapOf(bitmap_); }
    std::set<uint32_t> Colors() const {
        return {Pixels().pixels.begin(), Pixels().pixels.end()};
    }

    mutable embedded::Machine machine;
    HDC target;

  private:
    HMODULE before_;
    HBITMAP bitmap_;
    HGDIOBJ bitmapBefore_;
    embedded::Leaks loaded_;
};

TEST_F(PageDrawing, ShowsTheSheetInItsOrientationOnTheDialogsColour) {
    const embedded::Bitmap upright = Resource(13052, 80, 80, kMagenta);
    const embedded::Bitmap lying = Resource(13053, 80, 80, kMagenta);
    DrawItem(166, DMORIENT_PORTRAIT);
    EXPECT_TRUE(Shows(upright, kMagenta));
    EXPECT_FALSE(Shows(lying, kMagenta));
    EXPECT_EQ(Pixels().At(1, 3), kTarget);
    EXPECT_EQ(Pixels().At(200, 3), kFace);
    DrawItem(166, DMORIENT_LANDSCAPE);
    EXPECT_TRUE(Shows(lying, kMagenta));
    for (const short neither : {0, 3, -1}) {
        DrawItem(166, neither);
        EXPECT_EQ(Colors(), (std::set<uint32_t>{kFace, kTarget})) << neither;
    }
}

TEST_F(PageDrawing, ShowsTheLogoWithoutItsGreyOnThePageAndInBothAboutDialogs) {
    const embedded::Bitmap logo = Resource(13152, 280, 60, kGrey);
    DrawItem(533, 0);
    EXPECT_TRUE(Shows(logo, kGrey));
    EXPECT_FALSE(Colors().contains(kGrey));
    const HWND dialog = CreateWindowExW(0, TEXT("#32770"), nullptr, WS_POPUP, 0, 0, 9, 9, nullptr,
                                        nullptr, nullptr, nullptr);
    PrinterSession session{};
    for (const DLGPROC procedure : {AboutDialogProc, AboutPageProc}) {
        const DRAWITEMSTRUCT item = Item(533);
        const auto draw = [&] {
            return procedure(dialog, WM_DRAWITEM, 533, reinterpret_cast<LPARAM>(&item));
        };
        BindSession(dialog, nullptr);
        EXPECT_FALSE(draw()) << "before WM_INITDIALOG";
        BindSession(dialog, &session);
        EXPECT_TRUE(draw());
        EXPECT_TRUE(Shows(logo, kGrey));
    }
    DestroyWindow(dialog);
}

TEST_F(PageDrawing, FillsOtherButtonsWithSmallIdsAlone) {
    DrawItem(9999, DMORIENT_PORTRAIT);
    EXPECT_EQ(Colors(), (std::set<uint32_t>{kFace, kTarget}));
    DrawItem(10000, DMORIENT_PORTRAIT);
    EXPECT_EQ(Colors(), (std::set<uint32_t>{kTarget}));
    constexpr UINT kMenuItem = 1;
    DrawItem(166, DMORIENT_PORTRAIT, kMenuItem);
    EXPECT_EQ(Colors(), (std::set<uint32_t>{kTarget}));
    machine.faults.FailCall("LoadBitmapW");
    DrawItem(166, DMORIENT_PORTRAIT);
    machine.faults.Clear();
    EXPECT_EQ(Colors(), (std::set<uint32_t>{kFace, kTarget}));
}

TEST_F(PageDrawing, LeavesTheKeyColourOutAndTheBitmapAsItWas) {
    constexpr COLORREF kRed = RGB(255, 0, 0);
    const HBITMAP bitmap = CreateBitmap(4, 3, 1, 32, nullptr);
    const HDC context = CreateCompatibleDC(nullptr);
    const HGDIOBJ before = SelectObject(context, bitmap);
    for (const POINT at : {POINT{0, 0}, {1, 1}, {2, 2}, {3, 0}}) {
        SetPixel(context, at.x, at.y, kMagenta);
    }
    SetPixel(context, 2, 0, kRed);
    SetPixel(context, 3, 2, kWhite);
    SelectObject(context, before);
    DeleteDC(context);
    const embedded::Bitmap whole = *machine.graphics().BitmapOf(bitmap);

    machine.faults.Count();
    DrawTransparentBitmap(target, bitmap, 1, 1, kMagenta);
    // The bitmap's size is in pixels: converted before the target's units hold in its context.
    std::vector<std::string> mapping = machine.faults.names();
    machine.faults.Clear();
    std::erase_if(mapping, [](const std::string& name) {
        return name != "DPtoLP" && !name.ends_with("MapMode");
    });
    EXPECT_EQ(mapping, (std::vector<std::string>{"DPtoLP", "GetMapMode", "SetMapMode"}));
    embedded::Bitmap corner(6, 5);
    for (int y = 0; y < corner.height; ++y) {
        for (int x = 0; x < corner.width; ++x) {
            corner.At(x, y) = Pixels().At(x, y);
        }
    }
    EXPECT_EQ(tests::AsText(corner, {{kTarget, 'g'}, {0, '.'}, {kRed, 'R'}, {kWhite, 'W'}}), R"(
gggggg
gg.Rgg
g.g..g
g..gWg
gggggg
)");
    EXPECT_EQ(*machine.graphics().BitmapOf(bitmap), whole);
    EXPECT_TRUE(DeleteObject(bitmap)) << "no longer selected anywhere";
}

// Whatever cannot be made, what was made before it is given back.
TEST_F(PageDrawing, GivesEverythingBackWhicheverCallFails) {
    const embedded::Leaks before = machine.OpenNow();
    for (const char* name : {"CreateCompatibleDC", "CreateCompatibleBitmap", "CreateBitmap",
                             "GetObjectW", "BitBlt", "LoadBitmapW", "CreateSolidBrush"}) {
        for (unsigned nth = 1; nth < 12; ++nth) {
            machine.faults.FailCall(name, nth);
            DrawItem(166, DMORIENT_PORTRAIT);
            const bool struck = machine.faults.struck();
            machine.faults.Clear();
            EXPECT_EQ(machine.OpenNow(), before) << name << " " << nth;
            EXPECT_TRUE(struck || nth > 1) << name << " is never called";
        }
    }
}

}  // namespace
}  // namespace ksfax
