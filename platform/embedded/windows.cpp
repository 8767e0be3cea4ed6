#include "platform/embedded/windows.h"

#include <algorithm>
#include <cstring>
#include <span>
#include <utility>

#include "platform/embedded/api_kernel.h"
#include "platform/embedded/text.h"
#include "platform/embedded/window.h"

namespace embedded {

namespace {

constexpr uintptr_t kWindowBase = 0x00010000;
constexpr int kFrameWidth = 3;
constexpr int kCaptionHeight = 19;
constexpr unsigned kShortestTimer = 10;
constexpr LPARAM kNoLParam = 0;

HWND ToWindow(HANDLE handle) {
    return reinterpret_cast<HWND>(reinterpret_cast<uintptr_t>(handle) + kWindowBase);
}

HANDLE ToHandle(HWND window) {
    const auto value = reinterpret_cast<uintptr_t>(window);
    return value > kWindowBase ? reinterpret_cast<HANDLE>(value - kWindowBase) : nullptr;
}

struct WindowClass {
    UINT style = 0;
    WNDPROC procedure = nullptr;
    int extraBytes = 0;
    HINSTANCE instance = nullptr;
    HBRUSH background = nullptr;
    std::u16string name;
    bool isSystem = false;
};

struct Timer {
    HWND window;
    UINT_PTR id;
    unsigned period;
    uint64_t due;
};

}  // namespace

struct Windows::State {
    HandleTable table;
    std::vector<WindowClass> classes;
    std::vector<HWND> topLevel;  // the one shown last is last
    std::vector<Timer> timers;
    uint64_t now = 0;
    HWND focus = nullptr;
    HWND capture = nullptr;
    std::atomic<HWND> active = nullptr;
};

// How the published calls reach what Windows keeps to itself.
struct WindowsAccess {
    static Windows& All() { return Machine::Current().windows(); }
    static Windows::State& State() { return *All().state_; }
};

namespace {

auto& State() {
    return WindowsAccess::State();
}

// ---- Where windows are ----

POINT ClientOrigin(const Window& window);

RECT OnScreen(const Window& window) {
    if (!window.IsChild()) {
        return window.rect;
    }
    const auto parent = FindWindowOf(window.parent);
    const POINT origin = parent ? ClientOrigin(*parent) : POINT{};
    return Offset(window.rect, origin.x, origin.y);
}

POINT ClientOrigin(const Window& window) {
    const RECT rect = OnScreen(window);
    const Margins frame = FrameOf(window.style, window.exStyle);
    return {rect.left + frame.left, rect.top + frame.top};
}

RECT ClientRect(const Window& window) {
    const Margins frame = FrameOf(window.style, window.exStyle);
    return {0, 0,
            std::max<LONG>(0, window.rect.right - window.rect.left - frame.left - frame.right),
            std::max<LONG>(0, window.rect.bottom - window.rect.top - frame.top - frame.bottom)};
}

std::shared_ptr<Window> TopLevelOf(std::shared_ptr<Window> window) {
    while (window && window->IsChild()) {
        window = FindWindowOf(window->parent);
    }
    return window;
}

bool IsShown(const Window& window) {
    if ((window.style & WS_VISIBLE) == 0) {
        return false;
    }
    const auto parent = window.IsChild() ? FindWindowOf(window.parent) : nullptr;
    return !window.IsChild() || (parent && IsShown(*parent));
}

bool TakesInput(const Window& window) {
    if ((window.style & WS_DISABLED) != 0) {
        return false;
    }
    const auto parent = window.IsChild() ? FindWindowOf(window.parent) : nullptr;
    return !parent || TakesInput(*parent);
}

// The part of a screen rectangle that the ancestors' client areas leave of it.
RECT CutByAncestors(const Window& window, RECT onScreen) {
    auto inner = window.IsChild() ? FindWindowOf(window.parent) : nullptr;
    while (inner) {
        const POINT origin = ClientOrigin(*inner);
        onScreen = Intersect(onScreen, Offset(ClientRect(*inner), origin.x, origin.y));
        inner = inner->IsChild() ? FindWindowOf(inner->parent) : nullptr;
    }
    return onScreen;
}

// ---- What must be painted ----

void Invalidate(Window& window, const RECT& rect, bool erase, bool allChildren) {
    if (!IsShown(window)) {
        return;
    }
    const RECT inside = Intersect(rect, ClientRect(window));
    if (IsEmpty(inside)) {
        return;
    }
    window.invalid.push_back(inside);
    window.needsErase = window.needsErase || erase;
    if ((window.style & WS_CLIPCHILDREN) != 0 && !allChildren) {
        return;
    }
    for (const HWND handle : window.children) {
        const auto child = FindWindowOf(handle);
        if (!child || IsEmpty(Intersect(inside, child->rect))) {
            continue;
        }
        const Margins frame = FrameOf(child->style, child->exStyle);
        child->needsFrame = true;
        Invalidate(*child,
                   Offset(inside, -child->rect.left - frame.left, -child->rect.top - frame.top),
                   true, allChildren);
    }
}

void InvalidateAll(Window& window) {
    window.needsFrame = true;
    Invalidate(window, ClientRect(window), true, true);
}

void InvalidateInParent(const Window& window) {
    const auto parent = window.IsChild() ? FindWindowOf(window.parent) : nullptr;
    if (parent) {
        Invalidate(*parent, window.rect, true, false);
    }
}

// A context on the window's surface. `parts` are client coordinates, or with `ofFrame` those of
// the whole window.
HDC OpenContextOn(const std::shared_ptr<Window>& window, const std::vector<RECT>& parts,
                  bool ofFrame) {
    const auto topLevel = TopLevelOf(window);
    if (!topLevel || !topLevel->surface) {
        return nullptr;
    }
    const RECT whole = OnScreen(*window);
    POINT origin = ofFrame ? POINT{whole.left, whole.top} : ClientOrigin(*window);
    std::vector<RECT> clip;
    std::vector<RECT> holes;
    const auto toSurface = [&](const RECT& onScreen) {
        return Offset(onScreen, -topLevel->rect.left, -topLevel->rect.top);
    };
    for (const RECT& part : parts) {
        const RECT seen = CutByAncestors(*window, Offset(part, origin.x, origin.y));
        if (IsShown(*window) && !IsEmpty(seen)) {
            clip.push_back(toSurface(seen));
        }
    }
    if (!ofFrame && (window->style & WS_CLIPCHILDREN) != 0) {
        for (const HWND handle : window->children) {
            const auto child = FindWindowOf(handle);
            if (child && (child->style & WS_VISIBLE) != 0) {
                holes.push_back(toSurface(OnScreen(*child)));
            }
        }
    }
    origin = {origin.x - topLevel->rect.left, origin.y - topLevel->rect.top};
    return Machine::Current().graphics().OpenContext(window->self, topLevel->surface, origin,
                                                     std::move(clip), std::move(holes));
}

void DrawCaption(const Window& window, HDC context, RECT bar) {
    const bool isActive = State().active == window.self;
    // The active and inactive caption's colours.
    FillRect(context, &bar, reinterpret_cast<HBRUSH>(static_cast<uintptr_t>(isActive ? 3 : 4)));
    if ((window.style & WS_SYSMENU) != 0) {
        const RECT box{bar.right - 18, bar.top + 2, bar.right - 2, bar.bottom - 2};
        FillRect(context, &box, reinterpret_cast<HBRUSH>(COLOR_BTNFACE + uintptr_t{1}));
        DrawEdge(context, box, true);
        for (const int side : {0, 1}) {
            DrawLine(context, 0, {box.left + 4 + side, box.top + 3},
                     {box.left + 11 + side, box.top + 10});
            DrawLine(context, 0, {box.left + 10 + side, box.top + 3},
                     {box.left + 3 + side, box.top + 10});
        }
        bar.right = box.left - 2;
    }
    bar.left += 3;
    constexpr int kCaptionText = 9;
    DrawControlText(window, context, window.text, bar, DT_SINGLELINE | DT_VCENTER | DT_NOPREFIX,
                    GetSysColor(kCaptionText));
}

void DrawFrame(const std::shared_ptr<Window>& window) {
    window->needsFrame = false;
    const Margins frame = FrameOf(window->style, window->exStyle);
    const RECT all{0, 0, window->rect.right - window->rect.left,
                   window->rect.bottom - window->rect.top};
    if (frame.left == 0 || !IsShown(*window)) {
        return;
    }
    const RECT inner{frame.left, frame.top, all.right - frame.right, all.bottom - frame.bottom};
    const HDC context = OpenContextOn(window,
                                      {{0, 0, all.right, inner.top},
                                       {0, inner.bottom, all.right, all.bottom},
                                       {0, inner.top, inner.left, inner.bottom},
                                       {inner.right, inner.top, all.right, inner.bottom}},
                                      true);
    if (frame.left == 1) {
        FillRect(context, &all, reinterpret_cast<HBRUSH>(COLOR_WINDOWFRAME + uintptr_t{1}));
    } else {
        FillRect(context, &all, reinterpret_cast<HBRUSH>(COLOR_BTNFACE + uintptr_t{1}));
        DrawEdge(context, all, true);
        if (frame.top > frame.left) {
            DrawCaption(*window, context,
                        {frame.left, frame.left, all.right - frame.right, frame.top - 1});
        }
    }
    Machine::Current().graphics().CloseContext(context);
}

// Paints a window that needs it, then its children.
void PaintTree(HWND handle) {
    const auto window = FindWindowOf(handle);
    if (!window || !IsShown(*window)) {
        return;
    }
    if (window->needsFrame) {
        DrawFrame(window);
    }
    if (!window->invalid.empty()) {
        SendMessageW(handle, WM_PAINT, 0, 0);
        // A procedure that does not paint would be asked for ever.
        window->invalid.clear();
    }
    for (const HWND child : std::vector(window->children)) {
        PaintTree(child);
    }
}

bool NeedsPaint(HWND handle) {
    const auto window = FindWindowOf(handle);
    return window && IsShown(*window) &&
           (!window->invalid.empty() || window->needsFrame ||
            std::ranges::any_of(window->children, NeedsPaint));
}

// ---- Making and ending windows ----

const WindowClass* FindClass(std::u16string_view name, HINSTANCE instance) {
    for (const WindowClass& candidate : State().classes) {
        if (EqualIgnoringCase(candidate.name, name) &&
            (candidate.isSystem || (candidate.style & CS_GLOBALCLASS) != 0 ||
             candidate.instance == instance)) {
            return &candidate;
        }
    }
    return nullptr;
}

void ResizeSurface(Window& window) {
    if (window.IsChild()) {
        return;
    }
    constexpr LONG kLargest = 0x2000;
    const int width = std::clamp<LONG>(window.rect.right - window.rect.left, 0, kLargest);
    const int height = std::clamp<LONG>(window.rect.bottom - window.rect.top, 0, kLargest);
    constexpr int kDesktop = 1;
    auto surface = std::make_shared<Bitmap>(width, height, 32, GetSysColor(kDesktop));
    if (window.surface) {
        for (int y = 0; y < std::min(height, window.surface->height); ++y) {
            for (int x = 0; x < std::min(width, window.surface->width); ++x) {
                surface->At(x, y) = window.surface->At(x, y);
            }
        }
    }
    window.surface = std::move(surface);
}

HWND InsertWindow(const std::shared_ptr<Window>& window) {
    window->self = ToWindow(State().table.Insert(window));
    ResizeSurface(*window);
    const auto parent = window->IsChild() ? FindWindowOf(window->parent) : nullptr;
    (parent ? parent->children : State().topLevel).push_back(window->self);
    return window->self;
}

// Takes the window out of the tree and everything that names it; the handle is stale from here.
void ForgetWindow(const std::shared_ptr<Window>& window) {
    const auto parent = window->IsChild() ? FindWindowOf(window->parent) : nullptr;
    std::erase(parent ? parent->children : State().topLevel, window->self);
    std::erase_if(State().timers, [&](const Timer& timer) { return timer.window == window->self; });
    if (State().focus == window->self) {
        State().focus = nullptr;
    }
    if (State().capture == window->self) {
        State().capture = nullptr;
    }
    if (State().active == window->self) {
        State().active = window->IsChild() ? nullptr : window->parent;
    }
    State().table.Close(ToHandle(window->self));
}

void SendToTree(HWND handle, UINT message) {
    SendMessageW(handle, message, 0, 0);
    if (const auto window = FindWindowOf(handle)) {
        for (const HWND child : std::vector(window->children)) {
            SendToTree(child, message);
        }
    }
}

void EndTree(HWND handle) {
    const auto window = FindWindowOf(handle);
    if (!window) {
        return;
    }
    for (const HWND child : std::vector(window->children)) {
        EndTree(child);
    }
    SendMessageW(handle, WM_NCDESTROY, 0, 0);
    ForgetWindow(window);
}

void SendPosition(const Window& window, bool moved, bool sized) {
    const RECT client = ClientRect(window);
    const HWND handle = window.self;
    if (sized) {
        SendMessageW(handle, WM_SIZE, 0, MAKELPARAM(client.right, client.bottom));
    }
    if (moved && IsWindow(handle)) {
        const RECT rect = window.rect;
        SendMessageW(handle, WM_MOVE, 0, MAKELPARAM(rect.left, rect.top));
    }
}

// ---- The mouse ----

std::shared_ptr<Window> HitIn(const std::shared_ptr<Window>& window, POINT at) {
    if (!window || (window->style & WS_VISIBLE) == 0 || (window->style & WS_DISABLED) != 0 ||
        window->isTransparentToMouse || !Contains(OnScreen(*window), at.x, at.y)) {
        return nullptr;
    }
    for (const HWND child : window->children) {
        if (auto hit = HitIn(FindWindowOf(child), at)) {
            return hit;
        }
    }
    return window;
}

void SendMouse(UINT message, WPARAM buttons, POINT at) {
    HWND target = State().capture;
    for (auto it = State().topLevel.rbegin(); target == nullptr && it != State().topLevel.rend();
         ++it) {
        const auto topLevel = FindWindowOf(*it);
        if (!topLevel || !IsShown(*topLevel) || !Contains(topLevel->rect, at.x, at.y)) {
            continue;
        }
        const auto hit = HitIn(topLevel, at);
        if (!hit) {
            return;  // a disabled window lies there
        }
        target = hit->self;
    }
    if (target == nullptr) {
        return;
    }
    ScreenToClient(target, &at);
    SendMessageW(target, message, buttons, MAKELPARAM(at.x, at.y));
}

constexpr WPARAM kLeftButton = 1;

}  // namespace

Windows::Windows(Machine&) : state_(std::make_unique<State>()) {
    std::vector<SystemClass> builtIn = ControlClasses();
    builtIn.push_back(DialogClass());
    for (const SystemClass& systemClass : builtIn) {
        state_->classes.push_back({.style = CS_DBLCLKS | CS_GLOBALCLASS,
                                   .procedure = systemClass.procedure,
                                   .extraBytes = systemClass.extraBytes,
                                   .name = systemClass.name,
                                   .isSystem = true});
    }
}

Windows::~Windows() = default;

HWND Windows::Add(std::u16string className, HWND parent) {
    auto window = std::make_shared<Window>();
    window->className = std::move(className);
    window->procedure = DefWindowProcW;
    window->parent = parent;
    window->style = parent != nullptr ? WS_CHILD : WS_OVERLAPPED;
    return InsertWindow(window);
}

void Windows::Remove(HWND window) {
    DestroyWindow(window);
}

void Windows::Activate(HWND window) {
    state_->active = window;
}

HWND Windows::active() const {
    const HWND window = state_->active;
    return Find(window) ? window : nullptr;
}

std::shared_ptr<Window> Windows::Find(HWND window) const {
    return state_->table.Get<Window>(ToHandle(window));
}

void Windows::PressMouse(POINT at) {
    SendMouse(WM_LBUTTONDOWN, kLeftButton, at);
}

void Windows::MoveMouse(POINT at) {
    SendMouse(WM_MOUSEMOVE, state_->capture != nullptr ? kLeftButton : 0, at);
}

void Windows::ReleaseMouse(POINT at) {
    SendMouse(WM_LBUTTONUP, 0, at);
}

bool Windows::Click(HWND handle) {
    const auto window = Find(handle);
    if (!window || !IsShown(*window) || !TakesInput(*window)) {
        return false;
    }
    const RECT rect = OnScreen(*window);
    const POINT middle{(rect.left + rect.right) / 2, (rect.top + rect.bottom) / 2};
    PressMouse(middle);
    ReleaseMouse(middle);
    return true;
}

bool Windows::Choose(HWND comboBox, int item) {
    const auto window = Find(comboBox);
    if (!window || !IsShown(*window) || !TakesInput(*window) || item < 0 ||
        item >= SendMessageW(comboBox, CB_GETCOUNT, 0, 0)) {
        return false;
    }
    SetFocus(comboBox);
    constexpr UINT kDropDown = 7;
    constexpr UINT kCloseUp = 8;
    constexpr UINT kSelectionEnds = 9;
    const auto notify = [&](UINT code) {
        SendMessageW(window->parent, WM_COMMAND, MAKEWPARAM(window->id, code),
                     reinterpret_cast<LPARAM>(comboBox));
    };
    notify(kDropDown);
    notify(kSelectionEnds);
    SendMessageW(comboBox, CB_SETCURSEL, static_cast<WPARAM>(item), 0);
    notify(CBN_SELCHANGE);
    notify(kCloseUp);
    return true;
}

void Windows::Advance(unsigned milliseconds) {
    const uint64_t until = state_->now + milliseconds;
    while (true) {
        Settle();
        const auto next = std::ranges::min_element(state_->timers, {}, &Timer::due);
        if (next == state_->timers.end() || next->due > until) {
            break;
        }
        state_->now = next->due;
        next->due += next->period;
        SendMessageW(next->window, WM_TIMER, next->id, kNoLParam);
    }
    state_->now = until;
}

void Windows::Settle() {
    // A window that invalidates itself while it paints would never settle.
    constexpr int kPasses = 100;
    for (int pass = 0; pass < kPasses && std::ranges::any_of(state_->topLevel, NeedsPaint);
         ++pass) {
        for (const HWND window : std::vector(state_->topLevel)) {
            PaintTree(window);
        }
    }
}

Bitmap Windows::Picture(HWND handle) {
    Settle();
    const auto window = Find(handle);
    const auto topLevel = TopLevelOf(window);
    if (!window || !topLevel) {
        return Bitmap(0, 0);
    }
    const RECT rect = Offset(OnScreen(*window), -topLevel->rect.left, -topLevel->rect.top);
    Bitmap picture(rect.right - rect.left, rect.bottom - rect.top);
    for (int y = 0; y < picture.height; ++y) {
        for (int x = 0; x < picture.width; ++x) {
            if (topLevel->surface->Contains(rect.left + x, rect.top + y)) {
                picture.At(x, y) = topLevel->surface->At(rect.left + x, rect.top + y);
            }
        }
    }
    return picture;
}

std::u16string Windows::TextOf(HWND window) const {
    const auto length = static_cast<size_t>(SendMessageW(window, WM_GETTEXTLENGTH, 0, 0));
    std::u16string text(length + 1, u'\0');
    SendMessageW(window, WM_GETTEXT, text.size(), reinterpret_cast<LPARAM>(text.data()));
    text.resize(length);
    return text;
}

bool Windows::HasClass(std::u16string_view name) const {
    return std::ranges::any_of(state_->classes, [&](const WindowClass& candidate) {
        return EqualIgnoringCase(candidate.name, name);
    });
}

std::vector<HWND> Windows::Descendants(HWND handle) const {
    std::vector<HWND> all;
    if (const auto window = Find(handle)) {
        for (const HWND child : window->children) {
            all.push_back(child);
            const auto below = Descendants(child);
            all.insert(all.end(), below.begin(), below.end());
        }
    }
    return all;
}

unsigned Windows::CountWindows() const {
    return state_->table.CountOpen();
}

unsigned Windows::CountTimers() const {
    return static_cast<unsigned>(state_->timers.size());
}

std::shared_ptr<Window> FindWindowOf(HWND window) {
    return Machine::Current().windows().Find(window);
}

Margins FrameOf(DWORD style, DWORD exStyle) {
    constexpr DWORD kModalFrame = 0x00000001;
    if ((style & WS_CAPTION) == WS_CAPTION) {
        return {kFrameWidth, kFrameWidth + kCaptionHeight, kFrameWidth, kFrameWidth};
    }
    if ((style & WS_DLGFRAME) != 0 || (exStyle & kModalFrame) != 0) {
        return {kFrameWidth, kFrameWidth, kFrameWidth, kFrameWidth};
    }
    return (style & WS_BORDER) != 0 ? Margins{1, 1, 1, 1} : Margins{};
}

void DrawEdge(HDC context, RECT rect, bool isRaised) {
    constexpr int kLight = 22;
    constexpr int kHighlight = 20;
    constexpr int kDarkShadow = 21;
    // Outer and inner ring, each the colour at top and left, then at bottom and right.
    const int raised[] = {kLight, kDarkShadow, kHighlight, COLOR_BTNSHADOW};
    const int sunken[] = {COLOR_BTNSHADOW, kHighlight, kDarkShadow, kLight};
    const int* colors = isRaised ? raised : sunken;
    for (const int ring : {0, 2}) {
        const COLORREF topLeft = GetSysColor(colors[ring]);
        const COLORREF bottomRight = GetSysColor(colors[ring + 1]);
        DrawLine(context, topLeft, {rect.left, rect.top}, {rect.right - 1, rect.top});
        DrawLine(context, topLeft, {rect.left, rect.top}, {rect.left, rect.bottom - 1});
        DrawLine(context, bottomRight, {rect.left, rect.bottom - 1}, {rect.right, rect.bottom - 1});
        DrawLine(context, bottomRight, {rect.right - 1, rect.top}, {rect.right - 1, rect.bottom});
        rect = {rect.left + 1, rect.top + 1, rect.right - 1, rect.bottom - 1};
    }
}

void DrawLine(HDC context, COLORREF color, POINT from, POINT to) {
    const HPEN pen = CreatePen(PS_SOLID, 1, color);
    const HGDIOBJ before = SelectObject(context, pen);
    MoveToEx(context, from.x, from.y, nullptr);
    LineTo(context, to.x, to.y);
    SelectObject(context, before);
    DeleteObject(pen);
}

HFONT FontOf(const Window& window) {
    return window.font != nullptr ? window.font
                                  : static_cast<HFONT>(GetStockObject(DEFAULT_GUI_FONT));
}

void DrawControlText(const Window& window, HDC context, const std::u16string& text, RECT rect,
                     UINT format, COLORREF color) {
    const HGDIOBJ before = SelectObject(context, FontOf(window));
    const COLORREF colorBefore = SetTextColor(context, color);
    SetTransparentText(context, true);
    DrawTextW(context, text.c_str(), static_cast<int>(text.size()), &rect, format);
    SetTransparentText(context, false);
    SetTextColor(context, colorBefore);
    SelectObject(context, before);
}

WORD ResourceNumber(LPCWSTR name) {
    const auto number = reinterpret_cast<uintptr_t>(name);
    return number <= 0xFFFF ? static_cast<WORD>(number) : 0;
}

}  // namespace embedded

using namespace embedded;

namespace {

std::shared_ptr<Window> Require(HWND handle) {
    auto window = FindWindowOf(handle);
    if (!window) {
        SetLastError(ERROR_INVALID_WINDOW_HANDLE);
    }
    return window;
}

// Copies what fits with its terminator; the length copied.
int CopyText(const std::u16string& source, LPWSTR target, int characters) {
    if (target == nullptr || characters <= 0) {
        return 0;
    }
    const size_t length = std::min(source.size(), static_cast<size_t>(characters) - 1);
    std::memcpy(target, source.data(), length * sizeof(WCHAR));
    target[length] = 0;
    return static_cast<int>(length);
}

}  // namespace

// ---- Classes ----

HCURSOR LoadCursorW(HINSTANCE instance, LPCWSTR name) {
    static CallSite call("LoadCursorW");
    // Standard cursors are all that there is, and they are shown nowhere: the name serves.
    return call.Fails() || instance != nullptr
               ? nullptr
               : reinterpret_cast<HCURSOR>(const_cast<LPWSTR>(name));
}

ATOM RegisterClassW(const WNDCLASSW* asked) {
    static CallSite call("RegisterClassW");
    if (call.Fails()) {
        SetLastError(ERROR_NOT_ENOUGH_MEMORY);
        return 0;
    }
    auto& classes = State().classes;
    for (const WindowClass& there : classes) {
        if (EqualIgnoringCase(there.name, asked->lpszClassName) &&
            (there.instance == asked->hInstance ||
             (there.style & asked->style & CS_GLOBALCLASS) != 0)) {
            SetLastError(ERROR_CLASS_ALREADY_EXISTS);
            return 0;
        }
    }
    classes.push_back({.style = asked->style,
                       .procedure = asked->lpfnWndProc,
                       .extraBytes = asked->cbWndExtra,
                       .instance = asked->hInstance,
                       .background = asked->hbrBackground,
                       .name = asked->lpszClassName});
    return static_cast<ATOM>(0xC000 + classes.size());
}

BOOL UnregisterClassW(LPCWSTR name, HINSTANCE instance) {
    static CallSite call("UnregisterClassW");
    auto& classes = State().classes;
    const auto found = std::ranges::find_if(classes, [&](const WindowClass& candidate) {
        return EqualIgnoringCase(candidate.name, name) && candidate.instance == instance &&
               !candidate.isSystem;
    });
    if (call.Fails() || found == classes.end()) {
        SetLastError(ERROR_CLASS_DOES_NOT_EXIST);
        return FALSE;
    }
    const auto usesIt = [&](HWND handle) {
        const auto window = FindWindowOf(handle);
        return window && window->procedure == found->procedure &&
               EqualIgnoringCase(window->className, found->name);
    };
    for (const HWND topLevel : State().topLevel) {
        if (usesIt(topLevel) ||
            std::ranges::any_of(WindowsAccess::All().Descendants(topLevel), usesIt)) {
            SetLastError(ERROR_CLASS_HAS_WINDOWS);
            return FALSE;
        }
    }
    classes.erase(found);
    return TRUE;
}

// ---- Windows ----

HWND CreateWindowExW(DWORD exStyle, LPCWSTR className, LPCWSTR text, DWORD style, int x, int y,
                     int width, int height, HWND parent, HMENU menu, HINSTANCE instance,
                     LPVOID parameter) {
    static CallSite call("CreateWindowExW");
    const WindowClass* found = embedded::FindClass(className, instance);
    if (call.Fails() || found == nullptr) {
        SetLastError(found == nullptr ? ERROR_CANNOT_FIND_WND_CLASS : ERROR_NOT_ENOUGH_MEMORY);
        return nullptr;
    }
    if ((parent != nullptr || (style & WS_CHILD) != 0) && !Require(parent)) {
        return nullptr;
    }
    auto window = std::make_shared<Window>();
    window->parent = parent;
    window->className = found->name;
    window->procedure = found->procedure;
    window->instance = instance;
    window->background = found->background;
    window->style = style & ~WS_VISIBLE;
    window->exStyle = exStyle;
    window->id = (style & WS_CHILD) != 0 ? reinterpret_cast<LONG_PTR>(menu) : 0;
    window->rect = {x, y, x + std::max(width, 0), y + std::max(height, 0)};
    window->extra.resize(static_cast<size_t>(found->extraBytes));
    const HWND handle = InsertWindow(window);

    CREATESTRUCTW creation{.lpCreateParams = parameter,
                           .hInstance = instance,
                           .hMenu = menu,
                           .hwndParent = parent,
                           .cy = height,
                           .cx = width,
                           .y = y,
                           .x = x,
                           .style = static_cast<LONG>(style),
                           .lpszName = text,
                           .lpszClass = className,
                           .dwExStyle = exStyle};
    const auto record = reinterpret_cast<LPARAM>(&creation);
    if (SendMessageW(handle, WM_NCCREATE, 0, record) == 0) {
        EndTree(handle);
        return nullptr;
    }
    if (SendMessageW(handle, WM_CREATE, 0, record) == -1) {
        DestroyWindow(handle);
        return nullptr;
    }
    SendPosition(*window, true, true);
    if ((style & WS_VISIBLE) != 0) {
        ShowWindow(handle, SW_SHOW);
    }
    return IsWindow(handle) ? handle : nullptr;
}

BOOL DestroyWindow(HWND handle) {
    static CallSite call("DestroyWindow");
    const auto window = Require(handle);
    if (call.Fails() || !window) {
        return FALSE;
    }
    ShowWindow(handle, SW_HIDE);
    for (const HWND other : std::vector(State().topLevel)) {
        const auto owned = FindWindowOf(other);
        if (owned && owned->parent == handle) {
            DestroyWindow(other);
        }
    }
    SendToTree(handle, WM_DESTROY);
    EndTree(handle);
    return TRUE;
}

BOOL IsWindow(HWND window) {
    return FindWindowOf(window) != nullptr;
}

LRESULT SendMessageW(HWND handle, UINT message, WPARAM wParam, LPARAM lParam) {
    const auto window = Require(handle);
    return window ? window->procedure(handle, message, wParam, lParam) : 0;
}

LRESULT DefWindowProcW(HWND handle, UINT message, WPARAM wParam, LPARAM lParam) {
    const auto window = FindWindowOf(handle);
    if (!window) {
        return 0;
    }
    const auto systemBrush = [](int color) { return static_cast<LRESULT>(color + 1); };
    switch (message) {
    case WM_NCCREATE: {
        const LPCWSTR text = reinterpret_cast<const CREATESTRUCTW*>(lParam)->lpszName;
        window->text = text != nullptr ? text : u"";
        return TRUE;
    }
    case WM_SETTEXT: {
        const auto text = reinterpret_cast<LPCWSTR>(lParam);
        window->text = text != nullptr ? text : u"";
        window->needsFrame = true;
        return TRUE;
    }
    case WM_GETTEXTLENGTH:
        return static_cast<LRESULT>(window->text.size());
    case WM_GETTEXT:
        return CopyText(window->text, reinterpret_cast<LPWSTR>(lParam), static_cast<int>(wParam));
    case WM_PAINT: {
        PAINTSTRUCT paint;
        BeginPaint(handle, &paint);
        EndPaint(handle, &paint);
        return 0;
    }
    case WM_ERASEBKGND: {
        if (window->background == nullptr) {
            return 0;
        }
        const RECT client = ClientRect(*window);
        FillRect(reinterpret_cast<HDC>(wParam), &client, window->background);
        return 1;
    }
    case WM_SETREDRAW:
        window->redraws = wParam != 0;
        return 0;
    case WM_CTLCOLORBTN:
    case WM_CTLCOLORDLG:
    case WM_CTLCOLORSTATIC:
        SetTextColor(reinterpret_cast<HDC>(wParam), GetSysColor(COLOR_BTNTEXT));
        SetBkColor(reinterpret_cast<HDC>(wParam), GetSysColor(COLOR_BTNFACE));
        return systemBrush(COLOR_BTNFACE);
    case WM_CTLCOLOREDIT:
    case WM_CTLCOLORLISTBOX:
        return systemBrush(COLOR_WINDOW);
    case WM_HELP:
    case WM_CONTEXTMENU:
        // Both climb until somebody answers.
        return window->IsChild() ? SendMessageW(window->parent, message, wParam, lParam) : 0;
    default:
        return 0;
    }
}

LONG_PTR GetWindowLongPtrW(HWND handle, int index) {
    static CallSite call("GetWindowLongPtrW");
    const auto window = Require(handle);
    if (call.Fails() || !window) {
        return 0;
    }
    switch (index) {
    case GWLP_WNDPROC:
        return reinterpret_cast<LONG_PTR>(window->procedure);
    case GWLP_HINSTANCE:
        return reinterpret_cast<LONG_PTR>(window->instance);
    case GWLP_HWNDPARENT:
        return reinterpret_cast<LONG_PTR>(window->parent);
    case GWL_ID:
        return window->id;
    case GWL_STYLE:
        return static_cast<LONG>(window->style);
    case GWL_EXSTYLE:
        return static_cast<LONG>(window->exStyle);
    case GWLP_USERDATA:
        return window->userData;
    default:
        break;
    }
    LONG_PTR value = 0;
    if (index < 0 || static_cast<size_t>(index) + sizeof value > window->extra.size()) {
        SetLastError(ERROR_INVALID_INDEX);
        return 0;
    }
    std::memcpy(&value, window->extra.data() + index, sizeof value);
    return value;
}

LONG_PTR SetWindowLongPtrW(HWND handle, int index, LONG_PTR value) {
    static CallSite call("SetWindowLongPtrW");
    const auto window = Require(handle);
    if (call.Fails() || !window) {
        return 0;
    }
    const LONG_PTR before = GetWindowLongPtrW(handle, index);
    switch (index) {
    case GWLP_WNDPROC:
        window->procedure = reinterpret_cast<WNDPROC>(value);
        return before;
    case GWL_ID:
        window->id = value;
        return before;
    case GWL_STYLE:
        window->style = static_cast<DWORD>(value);
        return before;
    case GWL_EXSTYLE:
        window->exStyle = static_cast<DWORD>(value);
        return before;
    case GWLP_USERDATA:
        window->userData = value;
        return before;
    default:
        break;
    }
    if (index < 0 || static_cast<size_t>(index) + sizeof value > window->extra.size()) {
        SetLastError(ERROR_INVALID_INDEX);
        return 0;
    }
    std::memcpy(window->extra.data() + index, &value, sizeof value);
    return before;
}

LONG GetWindowLongW(HWND window, int index) {
    return static_cast<LONG>(GetWindowLongPtrW(window, index));
}

LONG SetWindowLongW(HWND window, int index, LONG value) {
    return static_cast<LONG>(SetWindowLongPtrW(window, index, value));
}

int GetClassNameW(HWND handle, LPWSTR name, int characters) {
    static CallSite call("GetClassNameW");
    const auto window = Require(handle);
    if (call.Fails() || !window) {
        return 0;
    }
    if (name == nullptr || characters <= 0) {
        SetLastError(ERROR_INSUFFICIENT_BUFFER);
        return 0;
    }
    return CopyText(window->className, name, characters);
}

BOOL SetWindowTextW(HWND window, LPCWSTR text) {
    static CallSite call("SetWindowTextW");
    if (call.Fails() || !Require(window)) {
        return FALSE;
    }
    return SendMessageW(window, WM_SETTEXT, 0, reinterpret_cast<LPARAM>(text)) != 0;
}

int GetWindowTextW(HWND window, LPWSTR text, int characters) {
    static CallSite call("GetWindowTextW");
    if (call.Fails() || !Require(window)) {
        return 0;
    }
    return static_cast<int>(SendMessageW(window, WM_GETTEXT, static_cast<WPARAM>(characters),
                                         reinterpret_cast<LPARAM>(text)));
}

HWND GetParent(HWND handle) {
    static CallSite call("GetParent");
    const auto window = Require(handle);
    if (call.Fails() || !window) {
        return nullptr;
    }
    return (window->style & (WS_CHILD | WS_POPUP)) != 0 ? window->parent : nullptr;
}

BOOL EnumChildWindows(HWND parent, WNDENUMPROC callback, LPARAM parameter) {
    static CallSite call("EnumChildWindows");
    if (call.Fails() || !Require(parent)) {
        return FALSE;
    }
    for (const HWND child : WindowsAccess::All().Descendants(parent)) {
        if (IsWindow(child) && !callback(child, parameter)) {
            return FALSE;
        }
    }
    return TRUE;
}

// ---- Places ----

BOOL GetClientRect(HWND handle, RECT* rect) {
    static CallSite call("GetClientRect");
    const auto window = Require(handle);
    if (call.Fails() || !window) {
        return FALSE;
    }
    *rect = ClientRect(*window);
    return TRUE;
}

BOOL GetWindowRect(HWND handle, RECT* rect) {
    static CallSite call("GetWindowRect");
    const auto window = Require(handle);
    if (call.Fails() || !window) {
        return FALSE;
    }
    *rect = OnScreen(*window);
    return TRUE;
}

BOOL ScreenToClient(HWND handle, POINT* point) {
    static CallSite call("ScreenToClient");
    const auto window = Require(handle);
    if (call.Fails() || !window) {
        return FALSE;
    }
    const POINT origin = ClientOrigin(*window);
    *point = {point->x - origin.x, point->y - origin.y};
    return TRUE;
}

BOOL ClientToScreen(HWND handle, POINT* point) {
    static CallSite call("ClientToScreen");
    const auto window = Require(handle);
    if (call.Fails() || !window) {
        return FALSE;
    }
    const POINT origin = ClientOrigin(*window);
    *point = {point->x + origin.x, point->y + origin.y};
    return TRUE;
}

int MapWindowPoints(HWND from, HWND to, POINT* points, UINT count) {
    static CallSite call("MapWindowPoints");
    const auto source = from != nullptr ? Require(from) : nullptr;
    const auto target = to != nullptr ? Require(to) : nullptr;
    if (call.Fails() || (from != nullptr && !source) || (to != nullptr && !target)) {
        return 0;
    }
    const POINT start = source ? ClientOrigin(*source) : POINT{};
    const POINT end = target ? ClientOrigin(*target) : POINT{};
    const POINT shift{start.x - end.x, start.y - end.y};
    for (POINT& point : std::span(points, count)) {
        point = {point.x + shift.x, point.y + shift.y};
    }
    return MAKELONG(shift.x, shift.y);
}

BOOL MoveWindow(HWND handle, int x, int y, int width, int height, BOOL repaint) {
    static CallSite call("MoveWindow");
    const auto window = Require(handle);
    if (call.Fails() || !window) {
        return FALSE;
    }
    const RECT before = window->rect;
    if (repaint) {
        InvalidateInParent(*window);
    }
    window->rect = {x, y, x + std::max(width, 0), y + std::max(height, 0)};
    const RECT after = window->rect;
    const bool sized = after.right - after.left != before.right - before.left ||
                       after.bottom - after.top != before.bottom - before.top;
    if (sized) {
        ResizeSurface(*window);
    }
    if (repaint) {
        InvalidateInParent(*window);
        InvalidateAll(*window);
    }
    SendPosition(*window, after.left != before.left || after.top != before.top, sized);
    return TRUE;
}

BOOL PtInRect(const RECT* rect, POINT point) {
    return Contains(*rect, point.x, point.y);
}

// ---- States ----

BOOL ShowWindow(HWND handle, int command) {
    static CallSite call("ShowWindow");
    const auto window = Require(handle);
    if (call.Fails() || !window) {
        return FALSE;
    }
    const bool wasVisible = (window->style & WS_VISIBLE) != 0;
    const bool show = command != SW_HIDE;
    if (show == wasVisible) {
        return wasVisible;
    }
    SendMessageW(handle, WM_SHOWWINDOW, show, 0);
    if (!show) {
        InvalidateInParent(*window);
        window->style &= ~WS_VISIBLE;
        window->invalid.clear();
        return wasVisible;
    }
    window->style |= WS_VISIBLE;
    if (!window->IsChild()) {
        std::erase(State().topLevel, handle);
        State().topLevel.push_back(handle);
        State().active = handle;
    }
    InvalidateAll(*window);
    return wasVisible;
}

BOOL IsWindowVisible(HWND handle) {
    const auto window = Require(handle);
    return window && IsShown(*window);
}

BOOL EnableWindow(HWND handle, BOOL enable) {
    static CallSite call("EnableWindow");
    const auto window = Require(handle);
    if (call.Fails() || !window) {
        return FALSE;
    }
    const bool wasDisabled = (window->style & WS_DISABLED) != 0;
    if (wasDisabled != (enable == FALSE)) {
        if (!enable) {
            SendMessageW(handle, WM_CANCELMODE, 0, 0);
            window->style |= WS_DISABLED;
            if (State().focus == handle) {
                SetFocus(nullptr);
            }
        } else {
            window->style &= ~WS_DISABLED;
        }
        SendMessageW(handle, WM_ENABLE, enable != FALSE, 0);
    }
    return wasDisabled;
}

BOOL IsWindowEnabled(HWND handle) {
    const auto window = Require(handle);
    return window && (window->style & WS_DISABLED) == 0;
}

HWND GetActiveWindow() {
    static CallSite call("GetActiveWindow");
    return call.Fails() ? nullptr : WindowsAccess::All().active();
}

HWND SetFocus(HWND handle) {
    static CallSite call("SetFocus");
    const auto window = handle != nullptr ? Require(handle) : nullptr;
    if (call.Fails() || (handle != nullptr && (!window || !TakesInput(*window)))) {
        return nullptr;
    }
    const HWND before = State().focus;
    if (before == handle) {
        return before;
    }
    State().focus = handle;
    if (IsWindow(before)) {
        SendMessageW(before, WM_KILLFOCUS, reinterpret_cast<WPARAM>(handle), 0);
    }
    if (window && State().focus == handle) {
        SendMessageW(handle, WM_SETFOCUS, reinterpret_cast<WPARAM>(before), 0);
    }
    return before;
}

HWND GetFocus() {
    return State().focus;
}

HWND SetCapture(HWND handle) {
    static CallSite call("SetCapture");
    if (call.Fails() || !Require(handle)) {
        return nullptr;
    }
    const HWND before = std::exchange(State().capture, handle);
    if (before != nullptr && before != handle) {
        SendMessageW(before, WM_CAPTURECHANGED, 0, reinterpret_cast<LPARAM>(handle));
    }
    return before;
}

BOOL ReleaseCapture() {
    static CallSite call("ReleaseCapture");
    if (call.Fails()) {
        return FALSE;
    }
    const HWND before = std::exchange(State().capture, nullptr);
    if (before != nullptr) {
        SendMessageW(before, WM_CAPTURECHANGED, 0, 0);
    }
    return TRUE;
}

HWND GetCapture() {
    return State().capture;
}

UINT_PTR SetTimer(HWND handle, UINT_PTR id, UINT milliseconds, TIMERPROC callback) {
    static CallSite call("SetTimer");
    if (call.Fails() || callback != nullptr || !Require(handle)) {
        return 0;
    }
    const unsigned period = std::max(milliseconds, kShortestTimer);
    auto& timers = State().timers;
    std::erase_if(timers,
                  [&](const Timer& timer) { return timer.window == handle && timer.id == id; });
    timers.push_back({handle, id, period, State().now + period});
    return id != 0 ? id : 1;
}

BOOL KillTimer(HWND handle, UINT_PTR id) {
    static CallSite call("KillTimer");
    if (call.Fails()) {
        return FALSE;
    }
    return std::erase_if(State().timers, [&](const Timer& timer) {
               return timer.window == handle && timer.id == id;
           }) != 0;
}

// ---- Painting ----

HDC BeginPaint(HWND handle, PAINTSTRUCT* paint) {
    static CallSite call("BeginPaint");
    const auto window = Require(handle);
    if (call.Fails() || !window) {
        return nullptr;
    }
    *paint = {};
    paint->hdc = OpenContextOn(window, window->invalid, false);
    window->invalid.clear();
    GetClipBox(paint->hdc, &paint->rcPaint);
    if (std::exchange(window->needsErase, false)) {
        paint->fErase =
            SendMessageW(handle, WM_ERASEBKGND, reinterpret_cast<WPARAM>(paint->hdc), 0) == 0;
    }
    return paint->hdc;
}

BOOL EndPaint(HWND window, const PAINTSTRUCT* paint) {
    Graphics& graphics = Machine::Current().graphics();
    return graphics.WindowOf(paint->hdc) == window && graphics.CloseContext(paint->hdc);
}

HDC GetDC(HWND handle) {
    static CallSite call("GetDC");
    const auto window = Require(handle);
    if (call.Fails() || !window) {
        return nullptr;
    }
    return OpenContextOn(window, {ClientRect(*window)}, false);
}

int ReleaseDC(HWND window, HDC context) {
    static CallSite call("ReleaseDC");
    Graphics& graphics = Machine::Current().graphics();
    return !call.Fails() && window != nullptr && graphics.WindowOf(context) == window &&
           graphics.CloseContext(context);
}

BOOL InvalidateRect(HWND handle, const RECT* rect, BOOL erase) {
    static CallSite call("InvalidateRect");
    const auto window = Require(handle);
    if (call.Fails() || !window) {
        return FALSE;
    }
    if (window->redraws) {
        Invalidate(*window, rect != nullptr ? *rect : ClientRect(*window), erase != FALSE, false);
    }
    return TRUE;
}

BOOL UpdateWindow(HWND handle) {
    static CallSite call("UpdateWindow");
    if (call.Fails() || !Require(handle)) {
        return FALSE;
    }
    PaintTree(handle);
    return TRUE;
}

COLORREF GetSysColor(int index) {
    const auto& colors = Machine::Current().graphics().systemColors;
    return index >= 0 && index < static_cast<int>(colors.size()) ? colors[index] : 0;
}

// ---- Help ----

BOOL WinHelpW(HWND window, LPCWSTR file, UINT command, ULONG_PTR data) {
    static CallSite call("WinHelpW");
    if (call.Fails()) {
        return FALSE;
    }
    WindowsAccess::All().helpRequests.push_back(
        {window, file != nullptr ? file : u"", command, data});
    return TRUE;
}

HRESULT CoInitialize(LPVOID) {
    static CallSite call("CoInitialize");
    constexpr HRESULT kOutOfMemory = static_cast<HRESULT>(0x8007000E);
    if (call.Fails()) {
        return kOutOfMemory;
    }
    return ++WindowsAccess::All().componentUses == 1 ? S_OK : S_FALSE;
}

void CoUninitialize() {
    --WindowsAccess::All().componentUses;
}
