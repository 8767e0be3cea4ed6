// The controls of the embedded machine: buttons, static texts and drop-down lists, as the
// platform's classic look draws them.

#include <algorithm>
#include <cstring>

#include "platform/embedded/api_kernel.h"
#include "platform/embedded/text.h"
#include "platform/embedded/window.h"

namespace embedded {

namespace {

constexpr int kGrayText = 17;
constexpr int kButtonHighlight = 20;

// Button styles, in the low four bits.
enum ButtonKind : DWORD {
    kPushButton = 0,
    kDefaultPushButton = 1,
    kCheckBox = 2,
    kAutoCheckBox = 3,
    kRadioButton = 4,
    kGroupBox = 7,
    kAutoRadioButton = 9,
    kOwnerDrawn = 11,
};
constexpr DWORD kButtonKindMask = 0x0F;

struct ButtonState : ControlState {
    bool isChecked = false;
    bool isPressed = false;  // the mouse went down on it and is still on it
    bool isTracking = false;  // the mouse went down on it
};

struct ComboState : ControlState {
    struct Item {
        std::u16string text;
        LONG_PTR data = 0;
    };
    std::vector<Item> items;
    int selected = CB_ERR;
};

template <typename State>
State* StateOf(const std::shared_ptr<Window>& window) {
    return window ? dynamic_cast<State*>(window->control.get()) : nullptr;
}

ButtonKind KindOf(const Window& window) {
    return static_cast<ButtonKind>(window.style & kButtonKindMask);
}

bool IsDisabled(const Window& window) {
    return (window.style & WS_DISABLED) != 0;
}

void Notify(const Window& window, UINT code) {
    SendMessageW(window.parent, WM_COMMAND, MAKEWPARAM(window.id, code),
                 reinterpret_cast<LPARAM>(window.self));
}

void Repaint(HWND window) {
    InvalidateRect(window, nullptr, TRUE);
    UpdateWindow(window);
}

// What every control does with its text and font; whether the message was one of these.
bool HandleText(const std::shared_ptr<Window>& window, UINT message, WPARAM wParam, LPARAM lParam,
                LRESULT& result) {
    switch (message) {
        case WM_SETTEXT:
            result = DefWindowProcW(window->self, message, wParam, lParam);
            InvalidateRect(window->self, nullptr, TRUE);
            return true;
        case WM_SETFONT:
            window->font = reinterpret_cast<HFONT>(wParam);
            InvalidateRect(window->self, nullptr, TRUE);
            result = 0;
            return true;
        case WM_GETFONT:
            result = reinterpret_cast<LRESULT>(window->font);
            return true;
        case WM_ENABLE:
            InvalidateRect(window->self, nullptr, TRUE);
            result = 0;
            return true;
        default:
            return false;
    }
}

// Fills the control's area as its parent wants it, and sets the colours of its text.
void FillAsParentWants(const Window& window, HDC context, UINT message, const RECT& rect) {
    LRESULT brush = SendMessageW(window.parent, message, reinterpret_cast<WPARAM>(context),
                                 reinterpret_cast<LPARAM>(window.self));
    if (brush == 0) {
        brush = DefWindowProcW(window.parent, message, reinterpret_cast<WPARAM>(context),
                               reinterpret_cast<LPARAM>(window.self));
    }
    FillRect(context, &rect, reinterpret_cast<HBRUSH>(brush));
}

// In the context's own text colour, or embossed when the control is disabled.
void DrawLabel(const Window& window, HDC context, RECT rect, UINT format) {
    if (!IsDisabled(window)) {
        const COLORREF color = SetTextColor(context, 0);
        DrawControlText(window, context, window.text, rect, format, color);
        return;
    }
    DrawControlText(window, context, window.text, Offset(rect, 1, 1), format,
                    GetSysColor(kButtonHighlight));
    DrawControlText(window, context, window.text, rect, format, GetSysColor(kGrayText));
}

void DrawFocus(HDC context, const RECT& rect) {
    for (int x = rect.left; x < rect.right; ++x) {
        for (const int y : {rect.top, rect.bottom - 1}) {
            if ((x + y) % 2 == 0) {
                SetPixel(context, x, y, GetSysColor(COLOR_BTNTEXT));
            }
        }
    }
    for (int y = rect.top; y < rect.bottom; ++y) {
        for (const int x : {rect.left, rect.right - 1}) {
            if ((x + y) % 2 == 0) {
                SetPixel(context, x, y, GetSysColor(COLOR_BTNTEXT));
            }
        }
    }
}

void DrawPushButton(const Window& window, const ButtonState& state, HDC context, RECT rect) {
    FillRect(context, &rect, reinterpret_cast<HBRUSH>(COLOR_BTNFACE + uintptr_t{1}));
    const bool hasFocus = GetFocus() == window.self;
    if (KindOf(window) == kDefaultPushButton || hasFocus) {
        const COLORREF frame = GetSysColor(COLOR_WINDOWFRAME);
        DrawLine(context, frame, {rect.left, rect.top}, {rect.right, rect.top});
        DrawLine(context, frame, {rect.left, rect.bottom - 1}, {rect.right, rect.bottom - 1});
        DrawLine(context, frame, {rect.left, rect.top}, {rect.left, rect.bottom});
        DrawLine(context, frame, {rect.right - 1, rect.top}, {rect.right - 1, rect.bottom});
        rect = {rect.left + 1, rect.top + 1, rect.right - 1, rect.bottom - 1};
    }
    DrawEdge(context, rect, !state.isPressed);
    const int shift = state.isPressed ? 1 : 0;
    SetTextColor(context, GetSysColor(COLOR_BTNTEXT));
    DrawLabel(window, context, Offset(rect, shift, shift),
              DT_CENTER | DT_VCENTER | DT_SINGLELINE);
    if (hasFocus) {
        DrawFocus(context, {rect.left + 3, rect.top + 3, rect.right - 3, rect.bottom - 3});
    }
}

// Twelve pixels across, one character a pixel: shadow s, dark shadow d, window W, light l,
// highlight H, text t (the dot of a checked button, window colour otherwise).
constexpr const char* kRadioPicture[] = {
    "    ssss    ", "  ssddddss  ", " sddWWWWddH ", " sdWWWWWWlH ", "sdWWWttWWWlH", "sdWWttttWWlH",
    "sdWWttttWWlH", "sdWWWttWWWlH", " sdWWWWWWlH ", " sllWWWWllH ", "  HHllllHH  ", "    HHHH    ",
};

void DrawRadioMark(HDC context, int left, int top, bool isChecked, bool isDisabled) {
    constexpr int kLight = 22;
    constexpr int kDarkShadow = 21;
    const int field = isDisabled ? COLOR_BTNFACE : COLOR_WINDOW;
    const int dot = isDisabled ? COLOR_BTNSHADOW : COLOR_BTNTEXT;
    for (int y = 0; y < 12; ++y) {
        for (int x = 0; x < 12; ++x) {
            switch (kRadioPicture[y][x]) {
                case 's':
                    SetPixel(context, left + x, top + y, GetSysColor(COLOR_BTNSHADOW));
                    break;
                case 'd':
                    SetPixel(context, left + x, top + y, GetSysColor(kDarkShadow));
                    break;
                case 'W':
                    SetPixel(context, left + x, top + y, GetSysColor(field));
                    break;
                case 'l':
                    SetPixel(context, left + x, top + y, GetSysColor(kLight));
                    break;
                case 'H':
                    SetPixel(context, left + x, top + y, GetSysColor(kButtonHighlight));
                    break;
                case 't':
                    SetPixel(context, left + x, top + y, GetSysColor(isChecked ? dot : field));
                    break;
                default:
                    break;
            }
        }
    }
}

void DrawCheckMark(HDC context, int left, int top, bool isChecked, bool isDisabled) {
    const RECT box{left, top, left + 13, top + 13};
    FillRect(context, &box,
             reinterpret_cast<HBRUSH>(uintptr_t{1} + (isDisabled ? COLOR_BTNFACE : COLOR_WINDOW)));
    DrawEdge(context, box, false);
    const COLORREF color = GetSysColor(isDisabled ? COLOR_BTNSHADOW : COLOR_BTNTEXT);
    for (int stroke = 0; isChecked && stroke < 3; ++stroke) {
        DrawLine(context, color, {left + 3, top + 5 + stroke}, {left + 5, top + 7 + stroke});
        DrawLine(context, color, {left + 5, top + 7 + stroke}, {left + 10, top + 2 + stroke});
    }
}

void DrawMarkedButton(const Window& window, const ButtonState& state, HDC context, RECT rect) {
    FillAsParentWants(window, context, WM_CTLCOLORSTATIC, rect);
    constexpr int kMarkSize = 13;
    constexpr int kTextGap = 4;
    const int top = rect.top + (rect.bottom - rect.top - kMarkSize) / 2;
    const DWORD kind = KindOf(window);
    if (kind == kRadioButton || kind == kAutoRadioButton) {
        DrawRadioMark(context, rect.left, top, state.isChecked, IsDisabled(window));
    } else {
        DrawCheckMark(context, rect.left, top, state.isChecked, IsDisabled(window));
    }
    rect.left += kMarkSize + kTextGap;
    DrawLabel(window, context, rect, DT_VCENTER | DT_SINGLELINE);
}

void DrawGroupBox(const Window& window, HDC context, const RECT& rect) {
    const int middle = FontHeight(FontOf(window)) / 2;
    const auto ring = [&](int color, int shift) {
        const COLORREF shade = GetSysColor(color);
        const RECT at{rect.left + shift, rect.top + middle + shift, rect.right - 2 + shift,
                      rect.bottom - 2 + shift};
        DrawLine(context, shade, {at.left, at.top}, {at.right, at.top});
        DrawLine(context, shade, {at.left, at.bottom}, {at.right, at.bottom});
        DrawLine(context, shade, {at.left, at.top}, {at.left, at.bottom});
        DrawLine(context, shade, {at.right, at.top}, {at.right, at.bottom + 1});
    };
    ring(kButtonHighlight, 1);
    ring(COLOR_BTNSHADOW, 0);
    if (window.text.empty()) {
        return;
    }
    SIZE size{};
    SelectObject(context, FontOf(window));
    GetTextExtentPoint32W(context, window.text.c_str(), static_cast<int>(window.text.size()),
                          &size);
    const RECT label{rect.left + 7, rect.top, rect.left + 11 + size.cx, rect.top + size.cy};
    FillAsParentWants(window, context, WM_CTLCOLORSTATIC, label);
    DrawLabel(window, context, {label.left + 2, label.top, label.right, label.bottom},
              DT_SINGLELINE);
}

void AskOwnerToDraw(const Window& window, const ButtonState& state, HDC context,
                    const RECT& rect) {
    DRAWITEMSTRUCT item{};
    item.CtlType = ODT_BUTTON;
    item.CtlID = static_cast<UINT>(window.id);
    item.itemAction = ODA_DRAWENTIRE;
    item.itemState = (state.isPressed ? ODS_SELECTED : 0) |
                     (IsDisabled(window) ? ODS_DISABLED : 0) |
                     (GetFocus() == window.self ? ODS_FOCUS : 0);
    item.hwndItem = window.self;
    item.hDC = context;
    item.rcItem = rect;
    SendMessageW(window.parent, WM_DRAWITEM, static_cast<WPARAM>(window.id),
                 reinterpret_cast<LPARAM>(&item));
}

void PaintButton(const Window& window, const ButtonState& state) {
    PAINTSTRUCT paint;
    const HDC context = BeginPaint(window.self, &paint);
    RECT client;
    GetClientRect(window.self, &client);
    const HGDIOBJ fontBefore =
        window.font != nullptr ? SelectObject(context, window.font) : nullptr;
    switch (KindOf(window)) {
        case kPushButton:
        case kDefaultPushButton:
            DrawPushButton(window, state, context, client);
            break;
        case kGroupBox:
            DrawGroupBox(window, context, client);
            break;
        case kOwnerDrawn:
            AskOwnerToDraw(window, state, context, client);
            break;
        default:
            DrawMarkedButton(window, state, context, client);
            break;
    }
    if (fontBefore != nullptr) {
        SelectObject(context, fontBefore);
    }
    EndPaint(window.self, &paint);
}

bool IsRadio(const std::shared_ptr<Window>& window) {
    return window && StateOf<ButtonState>(window) != nullptr &&
           (KindOf(*window) == kRadioButton || KindOf(*window) == kAutoRadioButton);
}

// The radio buttons of one group: from a control with WS_GROUP to the next one.
std::vector<HWND> RadioGroupOf(const Window& button) {
    std::vector<HWND> group;
    const auto parent = FindWindowOf(button.parent);
    if (!parent) {
        return group;
    }
    bool isOurs = false;
    for (const HWND handle : parent->children) {
        const auto sibling = FindWindowOf(handle);
        if ((sibling->style & WS_GROUP) != 0) {
            if (isOurs) {
                return group;
            }
            group.clear();
        }
        isOurs = isOurs || handle == button.self;
        if (IsRadio(sibling)) {
            group.push_back(handle);
        }
    }
    return group;
}

void ClickButton(const std::shared_ptr<Window>& window, ButtonState& state) {
    if (KindOf(*window) == kAutoCheckBox) {
        SendMessageW(window->self, BM_SETCHECK, !state.isChecked, 0);
    } else if (KindOf(*window) == kAutoRadioButton) {
        for (const HWND sibling : RadioGroupOf(*window)) {
            SendMessageW(sibling, BM_SETCHECK, sibling == window->self, 0);
        }
    }
    Notify(*window, BN_CLICKED);
}

LRESULT ButtonProcedure(HWND handle, UINT message, WPARAM wParam, LPARAM lParam) {
    const auto window = FindWindowOf(handle);
    auto* state = StateOf<ButtonState>(window);
    if (message == WM_NCCREATE) {
        window->control = std::make_unique<ButtonState>();
        window->isTransparentToMouse =
            (reinterpret_cast<const CREATESTRUCTW*>(lParam)->style & kButtonKindMask) == kGroupBox;
    }
    LRESULT result = 0;
    if (state == nullptr || HandleText(window, message, wParam, lParam, result)) {
        return state == nullptr ? DefWindowProcW(handle, message, wParam, lParam) : result;
    }
    const auto press = [&](bool isPressed) {
        if (state->isPressed != isPressed) {
            state->isPressed = isPressed;
            Repaint(handle);
        }
    };
    switch (message) {
        case WM_ERASEBKGND:
            return 1;
        case WM_PAINT:
            PaintButton(*window, *state);
            return 0;
        case WM_SETFOCUS:
        case WM_KILLFOCUS:
            InvalidateRect(handle, nullptr, TRUE);
            return 0;
        case WM_LBUTTONDOWN:
        case WM_LBUTTONDBLCLK:
            SetFocus(handle);
            SetCapture(handle);
            state->isTracking = true;
            press(true);
            return 0;
        case WM_MOUSEMOVE:
            if (state->isTracking) {
                RECT client;
                GetClientRect(handle, &client);
                press(Contains(client, static_cast<SHORT>(LOWORD(lParam)),
                               static_cast<SHORT>(HIWORD(lParam))));
            }
            return 0;
        case WM_LBUTTONUP: {
            const bool clicks = state->isTracking && state->isPressed;
            state->isTracking = false;
            press(false);
            if (GetCapture() == handle) {
                ReleaseCapture();
            }
            if (clicks) {
                ClickButton(window, *state);
            }
            return 0;
        }
        case WM_CANCELMODE:
        case WM_CAPTURECHANGED:
            if (message == WM_CANCELMODE && GetCapture() == handle) {
                ReleaseCapture();
            }
            state->isTracking = false;
            press(false);
            return 0;
        case BM_GETCHECK:
            return state->isChecked ? BST_CHECKED : BST_UNCHECKED;
        case BM_SETCHECK:
            if (state->isChecked != (wParam != 0)) {
                state->isChecked = wParam != 0;
                InvalidateRect(handle, nullptr, FALSE);
            }
            return 0;
        case BM_CLICK:
            ClickButton(window, *state);
            return 0;
        default:
            return DefWindowProcW(handle, message, wParam, lParam);
    }
}

// ---- Static texts ----

void PaintStatic(const Window& window) {
    constexpr DWORD kAlignmentMask = 0x1F;
    constexpr DWORD kCentered = 1;
    constexpr DWORD kNoPrefix = 0x80;
    PAINTSTRUCT paint;
    const HDC context = BeginPaint(window.self, &paint);
    RECT client;
    GetClientRect(window.self, &client);
    FillAsParentWants(window, context, WM_CTLCOLORSTATIC, client);
    DrawLabel(window, context, client,
              DT_WORDBREAK | ((window.style & kAlignmentMask) == kCentered ? DT_CENTER : DT_LEFT) |
                  ((window.style & kNoPrefix) != 0 ? DT_NOPREFIX : 0));
    EndPaint(window.self, &paint);
}

LRESULT StaticProcedure(HWND handle, UINT message, WPARAM wParam, LPARAM lParam) {
    const auto window = FindWindowOf(handle);
    LRESULT result = 0;
    if (message == WM_NCCREATE) {
        window->isTransparentToMouse = true;
    }
    if (HandleText(window, message, wParam, lParam, result)) {
        return result;
    }
    switch (message) {
        case WM_ERASEBKGND:
            return 1;
        case WM_PAINT:
            PaintStatic(*window);
            return 0;
        default:
            return DefWindowProcW(handle, message, wParam, lParam);
    }
}

// ---- Drop-down lists ----

void PaintCombo(const Window& window, const ComboState& state) {
    PAINTSTRUCT paint;
    const HDC context = BeginPaint(window.self, &paint);
    RECT client;
    GetClientRect(window.self, &client);
    const bool isDisabled = IsDisabled(window);
    const HBRUSH field = reinterpret_cast<HBRUSH>(
        uintptr_t{1} + (isDisabled ? COLOR_BTNFACE : COLOR_WINDOW));
    FillRect(context, &client, field);
    DrawEdge(context, client, false);
    constexpr int kArrowWidth = 16;
    const RECT arrow{client.right - 2 - kArrowWidth, client.top + 2, client.right - 2,
                     client.bottom - 2};
    FillRect(context, &arrow, reinterpret_cast<HBRUSH>(COLOR_BTNFACE + uintptr_t{1}));
    DrawEdge(context, arrow, true);
    const int middle = (arrow.left + arrow.right) / 2;
    const int top = (arrow.top + arrow.bottom) / 2 - 2;
    for (int row = 0; row < 4; ++row) {
        DrawLine(context, GetSysColor(isDisabled ? COLOR_BTNSHADOW : COLOR_BTNTEXT),
                 {middle - 4 + row, top + row}, {middle + 3 - row, top + row});
    }
    constexpr int kWindowText = 8;
    constexpr int kHighlight = 13;
    constexpr int kHighlightText = 14;
    RECT text{client.left + 3, client.top + 3, arrow.left - 1, client.bottom - 3};
    const bool hasFocus = GetFocus() == window.self && !isDisabled;
    if (hasFocus) {
        FillRect(context, &text, reinterpret_cast<HBRUSH>(uintptr_t{kHighlight + 1}));
    }
    if (state.selected != CB_ERR) {
        text.left += 2;
        DrawControlText(window, context, state.items[state.selected].text, text,
                        DT_SINGLELINE | DT_VCENTER | DT_NOPREFIX,
                        GetSysColor(isDisabled ? kGrayText
                                    : hasFocus ? kHighlightText
                                               : kWindowText));
    }
    EndPaint(window.self, &paint);
}

// The first item from `after` + 1 on, going round, whose text begins with this one.
int FindItem(const ComboState& state, int after, const std::u16string& beginning) {
    const int count = static_cast<int>(state.items.size());
    for (int step = 1; step <= count; ++step) {
        const int at = (std::max(after, -1) + step) % count;
        if (EqualIgnoringCase(state.items[at].text.substr(0, beginning.size()), beginning)) {
            return at;
        }
    }
    return CB_ERR;
}

LRESULT ComboProcedure(HWND handle, UINT message, WPARAM wParam, LPARAM lParam) {
    constexpr DWORD kComboKindMask = 0x03;
    constexpr DWORD kDropDownList = 0x03;
    constexpr DWORD kSorted = 0x0100;
    const auto window = FindWindowOf(handle);
    auto* state = StateOf<ComboState>(window);
    if (message == WM_NCCREATE) {
        const auto style = static_cast<DWORD>(reinterpret_cast<CREATESTRUCTW*>(lParam)->style);
        if ((style & kComboKindMask) != kDropDownList || (style & kSorted) != 0) {
            return FALSE;
        }
        window->control = std::make_unique<ComboState>();
        return DefWindowProcW(handle, message, wParam, lParam);
    }
    LRESULT result = 0;
    if (state == nullptr) {
        return DefWindowProcW(handle, message, wParam, lParam);
    }
    if (message == WM_SETFONT) {
        // Its height while closed follows the font, whatever the template says: that is the
        // height of the opened list.
        window->font = reinterpret_cast<HFONT>(wParam);
        MoveWindow(handle, window->rect.left, window->rect.top,
                   window->rect.right - window->rect.left, FontHeight(FontOf(*window)) + 8, FALSE);
        return 0;
    }
    if (HandleText(window, message, wParam, lParam, result)) {
        return result;
    }
    const int count = static_cast<int>(state->items.size());
    const int index = static_cast<int>(wParam);
    const bool isItem = index >= 0 && index < count;
    const auto select = [&](int item) {
        state->selected = item;
        InvalidateRect(handle, nullptr, TRUE);
        return item;
    };
    switch (message) {
        case WM_ERASEBKGND:
            return 1;
        case WM_PAINT:
            PaintCombo(*window, *state);
            return 0;
        case WM_SETFOCUS:
        case WM_KILLFOCUS:
            InvalidateRect(handle, nullptr, TRUE);
            return 0;
        case CB_ADDSTRING:
            state->items.push_back({.text = reinterpret_cast<LPCWSTR>(lParam)});
            return count;
        case CB_GETCOUNT:
            return count;
        case CB_RESETCONTENT:
            state->items.clear();
            return select(CB_ERR), 0;
        case CB_GETCURSEL:
            return state->selected;
        case CB_SETCURSEL:
            return select(isItem ? index : CB_ERR);
        case CB_GETLBTEXTLEN:
            return isItem ? static_cast<LRESULT>(state->items[index].text.size()) : CB_ERR;
        case CB_GETLBTEXT: {
            if (!isItem) {
                return CB_ERR;
            }
            const std::u16string& text = state->items[index].text;
            std::memcpy(reinterpret_cast<LPWSTR>(lParam), text.c_str(),
                        (text.size() + 1) * sizeof(WCHAR));
            return static_cast<LRESULT>(text.size());
        }
        case CB_SELECTSTRING: {
            const int found = FindItem(*state, index, reinterpret_cast<LPCWSTR>(lParam));
            return found == CB_ERR ? CB_ERR : select(found);
        }
        case CB_SETITEMDATA:
            if (isItem) {
                state->items[index].data = lParam;
            }
            return isItem ? 0 : CB_ERR;
        case CB_GETITEMDATA:
            return isItem ? state->items[index].data : CB_ERR;
        default:
            return DefWindowProcW(handle, message, wParam, lParam);
    }
}

}  // namespace

std::vector<SystemClass> ControlClasses() {
    return {{TEXT("Button"), ButtonProcedure}, {TEXT("Static"), StaticProcedure},
            {TEXT("ComboBox"), ComboProcedure}};
}

}  // namespace embedded
