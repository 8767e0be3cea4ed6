#include "ui/page_drawing.h"

#include "core/module_state.h"
#include "resources/resource.h"
#include "ui/drawing.h"

namespace ksfax {

namespace {

constexpr UINT kFirstIdNotFilled = 10000;
constexpr COLORREF kMagenta = RGB(255, 0, 255);
constexpr COLORREF kLightGrey = RGB(192, 192, 192);

// A memory context with one bitmap in it, until it goes.
class MemoryContext {
  public:
    MemoryContext(HDC like, HBITMAP bitmap)
        : context_(CreateCompatibleDC(like)),
          before_(context_ != nullptr && bitmap != nullptr ? SelectObject(context_, bitmap)
                                                           : nullptr) {}
    ~MemoryContext() {
        if (before_ != nullptr) {
            SelectObject(context_, before_);
        }
        if (context_ != nullptr) {
            DeleteDC(context_);
        }
    }
    MemoryContext(const MemoryContext&) = delete;
    MemoryContext& operator=(const MemoryContext&) = delete;

    explicit operator bool() const { return before_ != nullptr; }
    HDC get() const { return context_; }

  private:
    HDC context_;
    HGDIOBJ before_;
};

HBITMAP BitmapOf(const GraphicsObject& object) {
    return static_cast<HBITMAP>(object.get());
}

void FillItem(const DRAWITEMSTRUCT& item) {
    const GraphicsObject face = MakeBrush(GetSysColor(COLOR_BTNFACE));
    const Selection brush(item.hDC, face.get());
    if (brush) {
        FillRect(item.hDC, &item.rcItem, static_cast<HBRUSH>(face.get()));
    }
}

// The bitmap that belongs on a control; 0 for none.
WORD PictureOf(UINT control, short orientation) {
    if (control == IDC_LOGO) {
        return IDB_LOGO;
    }
    if (control != IDC_PAPER_PICTURE) {
        return 0;
    }
    switch (orientation) {
    case DMORIENT_PORTRAIT:
        return IDB_PORTRAIT;
    case DMORIENT_LANDSCAPE:
        return IDB_LANDSCAPE;
    default:
        return 0;
    }
}

}  // namespace

void DrawPageItem(HWND, const DRAWITEMSTRUCT* item, const JobSettings& settings) {
    if (item->CtlType != ODT_BUTTON) {
        return;
    }
    if (item->CtlID < kFirstIdNotFilled) {
        FillItem(*item);
    }
    const WORD picture = PictureOf(item->CtlID, settings.devMode.dmOrientation);
    if (picture == 0) {
        return;
    }
    const GraphicsObject bitmap(LoadBitmapW(ownModule, MAKEINTRESOURCEW(picture)));
    if (bitmap) {
        DrawTransparentBitmap(item->hDC, BitmapOf(bitmap), item->rcItem.left, item->rcItem.top,
                              picture == IDB_LOGO ? kLightGrey : kMagenta);
    }
}

void DrawTransparentBitmap(HDC target, HBITMAP bitmap, int x, int y, COLORREF keyColor) {
    const MemoryContext source(target, bitmap);
    BITMAP facts{};
    if (!source || GetObjectW(bitmap, sizeof facts, &facts) == 0) {
        return;
    }
    POINT size{facts.bmWidth, facts.bmHeight};
    DPtoLP(source.get(), &size, 1);

    // Declared before the contexts that hold them, so that they are free when they are deleted.
    const GraphicsObject backBits(CreateBitmap(size.x, size.y, 1, 1, nullptr));
    const GraphicsObject maskBits(CreateBitmap(size.x, size.y, 1, 1, nullptr));
    const GraphicsObject workBits(CreateCompatibleBitmap(target, size.x, size.y));
    const GraphicsObject saveBits(CreateCompatibleBitmap(target, size.x, size.y));
    const MemoryContext back(target, BitmapOf(backBits));
    const MemoryContext mask(target, BitmapOf(maskBits));
    const MemoryContext work(target, BitmapOf(workBits));
    const MemoryContext save(target, BitmapOf(saveBits));
    if (!back || !mask || !work || !save) {
        return;
    }
    const auto copy = [&size](const MemoryContext& to, const MemoryContext& from, DWORD operation) {
        BitBlt(to.get(), 0, 0, size.x, size.y, from.get(), 0, 0, operation);
    };
    SetMapMode(source.get(), GetMapMode(target));
    copy(save, source, SRCCOPY);

    // 1 where the bitmap has the key colour.
    const COLORREF backgroundBefore = SetBkColor(source.get(), keyColor);
    copy(mask, source, SRCCOPY);
    SetBkColor(source.get(), backgroundBefore);
    copy(back, mask, NOTSRCCOPY);

    // The target where the key colour is, black elsewhere; the bitmap the other way round.
    BitBlt(work.get(), 0, 0, size.x, size.y, target, x, y, SRCCOPY);
    copy(work, mask, SRCAND);
    copy(source, back, SRCAND);
    copy(work, source, SRCPAINT);

    BitBlt(target, x, y, size.x, size.y, work.get(), 0, 0, SRCCOPY);
    copy(source, save, SRCCOPY);
}

}  // namespace ksfax
