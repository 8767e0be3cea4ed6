// The controls of the embedded machine: buttons, static texts and drop-down lists, as the
// platform's classic look draws them. Nobody sees which of them has the focus, or is pressed.

#include <algorithm>
#include <string_view>

#include "platform/embedded/text.h"
#include "platform/embedded/window.h"

namespace embedded {

namespace {

constexpr int kWindowText = 8;
constexpr int kGrayText = 17;
constexpr int kHighlight = 20;
constexpr int kDarkShadow = 21;
constexpr int kLight = 22;

// Button styles, in the low four bits.
enum ButtonKind : DWORD {
    kPushButton = 0,
    kDefaultPushButton = 1,
    kAutoRadioButton = 9,
    kOwnerDrawn = 11,
};

ButtonKind KindOf(DWORD style) {
    constexpr DWORD kMask = 0x0F;
    return static_cast<ButtonKind>(style & kMask);
}

// What every control does with a message that it does not know better.
LRESULT HandleMessage(Window& window, UINT message, WPARAM wParam, LPARAM lParam) {
    switch (message) {
    case WM_SETFONT:
        window.font = reinterpret_cast<HFONT>(wParam);
        break;
    case WM_ENABLE:
    case WM_SETTEXT:
        break;
    case WM_ERASEBKGND:
        return 1;
    default:
        return DefWindowProcW(window.self, message, wParam, lParam);
    }
    const LRESULT result = DefWindowProcW(window.self, message, wParam, lParam);
    InvalidateRect(window.self, nullptr, TRUE);
    return result;
}

LRESULT Paint(const Window& window, void (*draw)(const Window&, HDC, const RECT& client)) {
    PAINTSTRUCT paint;
    const HDC context = BeginPaint(window.self, &paint);
    draw(window, context, window.ClientRect());
    EndPaint(window.self, &paint);
    return 0;
}

// A line without its last pixel.
void DrawLine(HDC context, int color, POINT from, POINT to) {
    const HPEN pen = CreatePen(PS_SOLID, 1, GetSysColor(color));
    const HGDIOBJ before = SelectObject(context, pen);
    MoveToEx(context, from.x, from.y, nullptr);
    LineTo(context, to.x, to.y);
    SelectObject(context, before);
    DeleteObject(pen);
}

// Two pixels of raised or sunken edge inside `rect`, as buttons and fields have.
void DrawEdge(HDC context, RECT rect, bool isRaised) {
    // Outer and inner ring, each the colour at top and left, then at bottom and right.
    const int raised[] = {kLight, kDarkShadow, kHighlight, COLOR_BTNSHADOW};
    const int sunken[] = {COLOR_BTNSHADOW, kHighlight, kDarkShadow, kLight};
    const int* colors = isRaised ? raised : sunken;
    for (const int ring : {0, 2}) {
        const auto [left, top, right, bottom] = rect;
        DrawLine(context, colors[ring], {left, top}, {right - 1, top});
        DrawLine(context, colors[ring], {left, top}, {left, bottom - 1});
        DrawLine(context, colors[ring + 1], {left, bottom - 1}, {right, bottom - 1});
        DrawLine(context, colors[ring + 1], {right - 1, top}, {right - 1, bottom});
        rect = {left + 1, top + 1, right - 1, bottom - 1};
    }
}

// Embossed when the control is disabled.
void DrawLabel(const Window& window, HDC context, COLORREF color, const RECT& rect, UINT format) {
    const HFONT font = FontOf(window);
    if (window.IsDisabled()) {
        DrawTextOver(context, font, GetSysColor(kHighlight), window.text, Offset(rect, 1, 1),
                     format);
        color = GetSysColor(kGrayText);
    }
    DrawTextOver(context, font, color, window.text, rect, format);
}

// Fills the control's area as its parent wants it; the colour of its text.
COLORREF FillAsParentWants(const Window& window, HDC context, const RECT& rect) {
    const auto wParam = reinterpret_cast<WPARAM>(context);
    const auto lParam = reinterpret_cast<LPARAM>(window.self);
    const LRESULT brush = SendMessageW(window.parent, WM_CTLCOLORSTATIC, wParam, lParam);
    FillRect(
        context, &rect,
        reinterpret_cast<HBRUSH>(
            brush != 0 ? brush : DefWindowProcW(window.parent, WM_CTLCOLORSTATIC, wParam, lParam)));
    return SetTextColor(context, 0);
}

// ---- Buttons ----

void DrawPushButton(const Window& window, HDC context, const RECT& rect) {
    FillRect(context, &rect, SystemBrush(COLOR_BTNFACE));
    DrawEdge(context, rect, true);
    DrawLabel(window, context, GetSysColor(COLOR_BTNTEXT), rect,
              DT_CENTER | DT_VCENTER | DT_SINGLELINE);
}

// Twelve pixels across, one character a pixel: shadow s, dark shadow d, window W, light l,
// highlight H, text t (the dot of a checked button, window colour otherwise).
constexpr std::string_view kRadioPicture[] = {
    "    ssss    ", "  ssddddss  ", " sddWWWWddH ", " sdWWWWWWlH ", "sdWWWttWWWlH", "sdWWttttWWlH",
    "sdWWttttWWlH", "sdWWWttWWWlH", " sdWWWWWWlH ", " sllWWWWllH ", "  HHllllHH  ", "    HHHH    ",
};

void DrawRadioButton(const Window& window, HDC context, const RECT& rect) {
    const COLORREF text = FillAsParentWants(window, context, rect);
    constexpr int kMarkSize = 13;
    constexpr int kTextGap = 4;
    const int top = rect.top + (rect.bottom - rect.top - kMarkSize) / 2;
    const int field = window.IsDisabled() ? COLOR_BTNFACE : COLOR_WINDOW;
    const int dot = window.IsDisabled() ? COLOR_BTNSHADOW : COLOR_BTNTEXT;
    constexpr std::string_view kShades = "sdWlHt";
    const int colors[] = {COLOR_BTNSHADOW, kDarkShadow, field,
                          kLight,          kHighlight,  window.isChecked ? dot : field};
    for (int y = 0; y < 12; ++y) {
        for (int x = 0; x < 12; ++x) {
            const size_t shade = kShades.find(kRadioPicture[y][static_cast<size_t>(x)]);
            if (shade != std::string_view::npos) {
                SetPixel(context, rect.left + x, top + y, GetSysColor(colors[shade]));
            }
        }
    }
    DrawLabel(window, context, text,
              {rect.left + kMarkSize + kTextGap, rect.top, rect.right, rect.bottom},
              DT_VCENTER | DT_SINGLELINE);
}

void AskOwnerToDraw(const Window& window, HDC context, const RECT& rect) {
    DRAWITEMSTRUCT item{};
    item.CtlType = ODT_BUTTON;
    item.CtlID = static_cast<UINT>(window.id);
    item.hwndItem = window.self;
    item.hDC = context;
    item.rcItem = rect;
    SendMessageW(window.parent, WM_DRAWITEM, static_cast<WPARAM>(window.id),
                 reinterpret_cast<LPARAM>(&item));
}

// The radio buttons of one group: from a control with WS_GROUP to the next one.
std::vector<HWND> RadioGroupOf(const Window& button) {
    std::vector<HWND> group;
    bool isOurs = false;
    for (const HWND handle : FindWindowOf(button.parent)->children) {
        const auto sibling = FindWindowOf(handle);
        if ((sibling->style & WS_GROUP) != 0) {
            if (isOurs) {
                return group;
            }
            group.clear();
        }
        isOurs = isOurs || handle == button.self;
        if (sibling->className == button.className && KindOf(sibling->style) == kAutoRadioButton) {
            group.push_back(handle);
        }
    }
    return group;
}

void ClickButton(const Window& window) {
    SetFocus(window.self);
    if (KindOf(window.style) == kAutoRadioButton) {
        for (const HWND sibling : RadioGroupOf(window)) {
            SendMessageW(sibling, BM_SETCHECK, sibling == window.self, 0);
        }
    }
    SendMessageW(window.parent, WM_COMMAND, MAKEWPARAM(window.id, BN_CLICKED),
                 reinterpret_cast<LPARAM>(window.self));
}

}  // namespace

HFONT FontOf(const Window& window) {
    return window.font != nullptr ? window.font
                                  : static_cast<HFONT>(GetStockObject(DEFAULT_GUI_FONT));
}

HBRUSH SystemBrush(int color) {
    return reinterpret_cast<HBRUSH>(uintptr_t{1} + static_cast<uintptr_t>(color));
}

LRESULT ButtonProcedure(HWND handle, UINT message, WPARAM wParam, LPARAM lParam) {
    const auto window = FindWindowOf(handle);
    const ButtonKind kind = KindOf(window->style);
    switch (message) {
    case WM_NCCREATE:
        return (kind == kPushButton || kind == kDefaultPushButton || kind == kAutoRadioButton ||
                kind == kOwnerDrawn) &&
               DefWindowProcW(handle, message, wParam, lParam) != 0;
    case WM_PAINT:
        return Paint(*window, kind == kAutoRadioButton ? DrawRadioButton
                              : kind == kOwnerDrawn    ? AskOwnerToDraw
                                                       : DrawPushButton);
    case BM_GETCHECK:
        return window->isChecked ? BST_CHECKED : BST_UNCHECKED;
    case BM_SETCHECK:
        window->isChecked = wParam != 0;
        InvalidateRect(handle, nullptr, FALSE);
        return 0;
    case BM_CLICK:
        ClickButton(*window);
        return 0;
    default:
        return HandleMessage(*window, message, wParam, lParam);
    }
}

// ---- Static texts ----

namespace {

void DrawStatic(const Window& window, HDC context, const RECT& rect) {
    constexpr DWORD kAlignmentMask = 0x1F;
    constexpr DWORD kCentered = 1;
    const bool isCentered = (window.style & kAlignmentMask) == kCentered;
    const COLORREF color = FillAsParentWants(window, context, rect);
    DrawLabel(window, context, color, rect, DT_WORDBREAK | (isCentered ? DT_CENTER : DT_LEFT));
}

}  // namespace

LRESULT StaticProcedure(HWND handle, UINT message, WPARAM wParam, LPARAM lParam) {
    const auto window = FindWindowOf(handle);
    return message == WM_PAINT ? Paint(*window, DrawStatic)
                               : HandleMessage(*window, message, wParam, lParam);
}

// ---- Drop-down lists ----

namespace {

void DrawCombo(const Window& window, HDC context, const RECT& client) {
    const bool isDisabled = window.IsDisabled();
    FillRect(context, &client, SystemBrush(isDisabled ? COLOR_BTNFACE : COLOR_WINDOW));
    DrawEdge(context, client, false);
    constexpr int kArrowWidth = 16;
    const RECT arrow{client.right - 2 - kArrowWidth, client.top + 2, client.right - 2,
                     client.bottom - 2};
    FillRect(context, &arrow, SystemBrush(COLOR_BTNFACE));
    DrawEdge(context, arrow, true);
    const int middle = (arrow.left + arrow.right) / 2;
    const int top = (arrow.top + arrow.bottom) / 2 - 2;
    for (int row = 0; row < 4; ++row) {
        DrawLine(context, isDisabled ? COLOR_BTNSHADOW : COLOR_BTNTEXT,
                 {middle - 4 + row, top + row}, {middle + 3 - row, top + row});
    }
    if (window.selected != CB_ERR) {
        DrawTextOver(context, FontOf(window), GetSysColor(isDisabled ? kGrayText : kWindowText),
                     window.items[static_cast<size_t>(window.selected)].text,
                     {client.left + 5, client.top + 3, arrow.left - 1, client.bottom - 3},
                     DT_SINGLELINE | DT_VCENTER | DT_NOPREFIX);
    }
}

}  // namespace

LRESULT ComboProcedure(HWND handle, UINT message, WPARAM wParam, LPARAM lParam) {
    constexpr DWORD kComboKindMask = 0x03;
    constexpr DWORD kDropDownList = 0x03;
    constexpr DWORD kSorted = 0x0100;
    const auto window = FindWindowOf(handle);
    auto& items = window->items;
    Window::Item* item = wParam < items.size() ? &items[wParam] : nullptr;
    const auto select = [&](int number) {
        window->selected = number;
        InvalidateRect(handle, nullptr, TRUE);
        return number;
    };
    switch (message) {
    case WM_NCCREATE:
        return (window->style & kComboKindMask) == kDropDownList &&
               (window->style & kSorted) == 0 &&
               DefWindowProcW(handle, message, wParam, lParam) != 0;
    case WM_SETFONT:
        // Its height while closed follows the font, whatever the template says: that is the
        // height of the opened list.
        window->font = reinterpret_cast<HFONT>(wParam);
        MoveWindow(handle, window->rect.left, window->rect.top,
                   window->rect.right - window->rect.left, FontHeight(FontOf(*window)) + 8, FALSE);
        return 0;
    case WM_PAINT:
        return Paint(*window, DrawCombo);
    case CB_ADDSTRING:
        items.push_back({.text = reinterpret_cast<LPCWSTR>(lParam)});
        return static_cast<LRESULT>(items.size()) - 1;
    case CB_GETCOUNT:
        return static_cast<LRESULT>(items.size());
    case CB_RESETCONTENT:
        items.clear();
        select(CB_ERR);
        return 0;
    case CB_GETCURSEL:
        return window->selected;
    case CB_SETCURSEL:
        return select(item != nullptr ? static_cast<int>(wParam) : CB_ERR);
    case CB_GETLBTEXTLEN:
        return item != nullptr ? static_cast<LRESULT>(item->text.size()) : CB_ERR;
    case CB_GETLBTEXT:
        if (item == nullptr) {
            return CB_ERR;
        }
        item->text.copy(reinterpret_cast<LPWSTR>(lParam), item->text.size());
        reinterpret_cast<LPWSTR>(lParam)[item->text.size()] = 0;
        return static_cast<LRESULT>(item->text.size());
    case CB_SETITEMDATA:
        if (item != nullptr) {
            item->data = lParam;
        }
        return item != nullptr ? 0 : CB_ERR;
    case CB_GETITEMDATA:
        return item != nullptr ? item->data : CB_ERR;
    default:
        return HandleMessage(*window, message, wParam, lParam);
    }
}

}  // namespace embedded
