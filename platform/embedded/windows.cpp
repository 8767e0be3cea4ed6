#include "platform/embedded/windows.h"

#include <algorithm>
#include <cstdint>
#include <cstring>
#include <ranges>
#include <span>
#include <utility>

#include "platform/embedded/api_kernel.h"
#include "platform/embedded/text.h"
#include "platform/embedded/window.h"

namespace embedded {

namespace {

constexpr unsigned kShortestTimer = 10;  // milliseconds
constexpr WPARAM kLeftButton = 1;

struct WindowClass {
    std::u16string name;
    WNDPROC procedure = nullptr;
    UINT style = CS_GLOBALCLASS;
    int extraBytes = 0;
    HINSTANCE instance = nullptr;
    HBRUSH background = nullptr;
};

struct Timer {
    HWND window;
    UINT_PTR id;
    unsigned period;
    uint64_t due;
};

}  // namespace

struct Windows::State {
    HandleTable table{0x00010000};
    std::vector<WindowClass> classes;
    std::vector<HWND> topLevel;  // the one shown last is last
    std::vector<Timer> timers;
    uint64_t now = 0;
    HWND focus = nullptr;
    HWND capture = nullptr;
    std::atomic<HWND> active = nullptr;
};

namespace {

Windows::State& State() {
    return Machine::Current().windows().state();
}

std::shared_ptr<Window> ParentOf(const Window& window) {
    return window.IsChild() ? FindWindowOf(window.parent) : nullptr;
}

std::vector<HWND>& SiblingsOf(const Window& window) {
    const auto parent = ParentOf(window);
    return parent ? parent->children : State().topLevel;
}

RECT OnScreen(const Window& window) {
    const auto parent = ParentOf(window);
    const RECT origin = parent ? OnScreen(*parent) : RECT{};
    return Offset(window.rect, origin.left, origin.top);
}

bool IsShown(const Window& window) {
    const auto parent = ParentOf(window);
    return (window.style & WS_VISIBLE) != 0 && (!parent || IsShown(*parent));
}

bool TakesInput(const Window& window) {
    const auto parent = ParentOf(window);
    return !window.IsDisabled() && (!parent || TakesInput(*parent));
}

// ---- What must be painted ----

// Children are painted anew with what is under them.
void Invalidate(Window& window, const RECT& rect, bool erase) {
    const RECT inside = Intersect(rect, window.ClientRect());
    if (!IsShown(window) || IsEmpty(inside)) {
        return;
    }
    window.invalid = Around(window.invalid, inside);
    window.needsErase = window.needsErase || erase;
    for (const HWND handle : window.children) {
        const auto child = FindWindowOf(handle);
        Invalidate(*child, Offset(window.invalid, -child->rect.left, -child->rect.top), true);
    }
}

void InvalidateInParent(const Window& window) {
    if (const auto parent = ParentOf(window)) {
        Invalidate(*parent, window.rect, true);
    }
}

// A context on the surface that the window is on, for a part of it in client coordinates, as far
// as its ancestors show it.
HDC OpenContextOn(const Window& window, const RECT& part) {
    const RECT whole = OnScreen(window);
    RECT seen = Offset(part, whole.left, whole.top);
    const Window* topLevel = &window;
    std::shared_ptr<Window> parent;
    while ((parent = ParentOf(*topLevel))) {
        seen = Intersect(seen, OnScreen(*parent));
        topLevel = parent.get();
    }
    const RECT& corner = topLevel->rect;
    return Machine::Current().graphics().OpenContext(
        window.self, topLevel->surface, {whole.left - corner.left, whole.top - corner.top},
        IsShown(window) ? Offset(seen, -corner.left, -corner.top) : RECT{});
}

// Paints a window that needs it, then its children. Whether any did.
bool PaintTree(HWND handle) {
    const auto window = FindWindowOf(handle);
    if (!window || !IsShown(*window)) {
        return false;
    }
    bool isPainted = !IsEmpty(window->invalid);
    if (isPainted) {
        SendMessageW(handle, WM_PAINT, 0, 0);
        // A procedure that does not paint would be asked for ever.
        window->invalid = {};
    }
    for (const HWND child : std::vector(window->children)) {
        isPainted = PaintTree(child) || isPainted;
    }
    return isPainted;
}

// ---- Making and ending windows ----

std::vector<WindowClass>::iterator FindClass(std::u16string_view name, HINSTANCE instance,
                                             UINT style) {
    return std::ranges::find_if(State().classes, [&](const WindowClass& candidate) {
        return EqualIgnoringCase(candidate.name, name) &&
               (candidate.instance == instance || (candidate.style & style & CS_GLOBALCLASS) != 0);
    });
}

void MakeSurface(Window& window) {
    if (!window.IsChild()) {
        const RECT size = window.ClientRect();
        constexpr int kDesktop = 1;
        window.surface =
            std::make_shared<Bitmap>(size.right, size.bottom, 32, GetSysColor(kDesktop));
    }
}

HWND InsertWindow(const std::shared_ptr<Window>& window) {
    window->self = static_cast<HWND>(State().table.Insert(window));
    MakeSurface(*window);
    SiblingsOf(*window).push_back(window->self);
    return window->self;
}

// The last message of a window, after which everything that names it is gone and its handle stale.
void EndWindow(HWND handle) {
    const auto window = FindWindowOf(handle);
    if (!window) {
        return;
    }
    SendMessageW(handle, WM_NCDESTROY, 0, 0);
    auto& state = State();
    std::erase(SiblingsOf(*window), handle);
    std::erase_if(state.timers, [&](const Timer& timer) { return timer.window == handle; });
    for (HWND* held : {&state.focus, &state.capture}) {
        *held = *held == handle ? nullptr : *held;
    }
    if (state.active == handle) {
        state.active = window->IsChild() ? nullptr : window->parent;
    }
    state.table.Close(handle);
}

// ---- The mouse ----

// The innermost window there that takes input.
std::shared_ptr<Window> HitIn(HWND handle, POINT at) {
    const auto window = FindWindowOf(handle);
    if ((window->style & WS_VISIBLE) == 0 || window->IsDisabled() ||
        !Contains(OnScreen(*window), at.x, at.y)) {
        return nullptr;
    }
    for (const HWND child : window->children) {
        if (auto hit = HitIn(child, at)) {
            return hit;
        }
    }
    return window;
}

void SendMouse(UINT message, WPARAM buttons, POINT at) {
    auto target = FindWindowOf(State().capture);
    for (const HWND topLevel : State().topLevel) {
        auto hit = HitIn(topLevel, at);
        if (hit && State().capture == nullptr) {
            target = std::move(hit);
        }
    }
    if (target) {
        const RECT place = OnScreen(*target);
        SendMessageW(target->self, message, buttons,
                     MAKELPARAM(at.x - place.left, at.y - place.top));
    }
}

}  // namespace

Windows::Windows() : state_(std::make_unique<State>()) {
    constexpr int kDialogBytes = 3 * sizeof(LONG_PTR);
    state_->classes = {
        {.name = u"Button", .procedure = ButtonProcedure},
        {.name = u"Static", .procedure = StaticProcedure},
        {.name = u"ComboBox", .procedure = ComboProcedure},
        {.name = kDialogClass, .procedure = DialogProcedure, .extraBytes = kDialogBytes}};
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

void Windows::Activate(HWND window) {
    state_->active = window;
}

HWND Windows::active() const {
    const HWND window = state_->active;
    return Find(window) ? window : nullptr;
}

std::shared_ptr<Window> Windows::Find(HWND window) const {
    return state_->table.Get<Window>(window);
}

HWND Windows::focus() const {
    return state_->focus;
}

HWND Windows::capture() const {
    return state_->capture;
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
    SendMessageW(handle, BM_CLICK, 0, 0);
    return true;
}

bool Windows::Choose(HWND comboBox, int item) {
    const auto window = Find(comboBox);
    if (!window || !IsShown(*window) || !TakesInput(*window) || item < 0 ||
        item >= static_cast<int>(window->items.size())) {
        return false;
    }
    SetFocus(comboBox);
    constexpr UINT kDropDown = 7;
    constexpr UINT kCloseUp = 8;
    constexpr UINT kSelectionEnds = 9;
    for (const UINT code : {kDropDown, kSelectionEnds, CBN_SELCHANGE, kCloseUp}) {
        if (code == CBN_SELCHANGE) {
            SendMessageW(comboBox, CB_SETCURSEL, static_cast<WPARAM>(item), 0);
        }
        SendMessageW(window->parent, WM_COMMAND, MAKEWPARAM(window->id, code),
                     reinterpret_cast<LPARAM>(comboBox));
    }
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
        SendMessageW(next->window, WM_TIMER, next->id, 0);
    }
    state_->now = until;
}

void Windows::Settle() {
    // A window that invalidates itself while it paints would never settle.
    constexpr int kPasses = 100;
    bool isPainted = true;
    for (int pass = 0; pass < kPasses && isPainted; ++pass) {
        isPainted = false;
        for (const HWND window : std::vector(state_->topLevel)) {
            isPainted = PaintTree(window) || isPainted;
        }
    }
}

Bitmap Windows::Picture(HWND handle) {
    Settle();
    const auto window = Find(handle);
    if (!window) {
        return Bitmap(0, 0);
    }
    auto topLevel = window;
    while (const auto parent = ParentOf(*topLevel)) {
        topLevel = parent;
    }
    const Bitmap& surface = *topLevel->surface;
    const RECT rect = Offset(OnScreen(*window), -topLevel->rect.left, -topLevel->rect.top);
    Bitmap picture(rect.right - rect.left, rect.bottom - rect.top);
    for (int y = 0; y < picture.height; ++y) {
        for (int x = 0; x < picture.width; ++x) {
            if (Contains(surface.Bounds(), rect.left + x, rect.top + y)) {
                picture.At(x, y) = surface.At(rect.left + x, rect.top + y);
            }
        }
    }
    return picture;
}

std::u16string Windows::TextOf(HWND handle) const {
    const auto window = Find(handle);
    return window ? window->text : u"";
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

std::shared_ptr<Window> RequireWindow(HWND handle) {
    auto window = FindWindowOf(handle);
    if (!window) {
        SetLastError(ERROR_INVALID_WINDOW_HANDLE);
    }
    return window;
}

WORD ResourceNumber(LPCWSTR name) {
    const auto number = reinterpret_cast<uintptr_t>(name);
    return number <= 0xFFFF ? static_cast<WORD>(number) : 0;
}

}  // namespace embedded

using namespace embedded;

// ---- Classes ----

HCURSOR LoadCursorW(HINSTANCE instance, LPCWSTR name) {
    // Standard cursors are all that there is, and they are shown nowhere: the name serves.
    return Fails("LoadCursorW") || instance != nullptr
               ? nullptr
               : reinterpret_cast<HCURSOR>(const_cast<LPWSTR>(name));
}

ATOM RegisterClassW(const WNDCLASSW* asked) {
    auto& classes = State().classes;
    const bool isThere =
        embedded::FindClass(asked->lpszClassName, asked->hInstance, asked->style) != classes.end();
    if (Fails("RegisterClassW") || isThere) {
        SetLastError(isThere ? ERROR_CLASS_ALREADY_EXISTS : ERROR_NOT_ENOUGH_MEMORY);
        return 0;
    }
    classes.push_back({.name = asked->lpszClassName,
                       .procedure = asked->lpfnWndProc,
                       .style = asked->style,
                       .extraBytes = asked->cbWndExtra,
                       .instance = asked->hInstance,
                       .background = asked->hbrBackground});
    return static_cast<ATOM>(0xC000 + classes.size());
}

BOOL UnregisterClassW(LPCWSTR name, HINSTANCE instance) {
    const auto found = embedded::FindClass(name, instance, 0);
    if (Fails("UnregisterClassW") || found == State().classes.end()) {
        SetLastError(ERROR_CLASS_DOES_NOT_EXIST);
        return FALSE;
    }
    State().classes.erase(found);
    return TRUE;
}

// ---- Windows ----

HWND CreateWindowExW(DWORD exStyle, LPCWSTR className, LPCWSTR text, DWORD style, int x, int y,
                     int width, int height, HWND parent, HMENU menu, HINSTANCE instance,
                     LPVOID parameter) {
    const auto found = embedded::FindClass(className, instance, CS_GLOBALCLASS);
    const bool isThere = found != State().classes.end();
    if (Fails("CreateWindowExW") || !isThere || exStyle != 0) {
        SetLastError(isThere ? ERROR_NOT_ENOUGH_MEMORY : ERROR_CANNOT_FIND_WND_CLASS);
        return nullptr;
    }
    if ((parent != nullptr || (style & WS_CHILD) != 0) && !RequireWindow(parent)) {
        return nullptr;
    }
    auto window = std::make_shared<Window>();
    window->parent = parent;
    window->className = found->name;
    window->procedure = found->procedure;
    window->background = found->background;
    window->style = style & ~WS_VISIBLE;
    window->id = reinterpret_cast<LONG_PTR>(menu);
    window->rect = {x, y, x + std::max(width, 0), y + std::max(height, 0)};
    window->extra.resize(static_cast<size_t>(found->extraBytes) / sizeof(LONG_PTR));
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
        EndWindow(handle);
        return nullptr;
    }
    if (SendMessageW(handle, WM_CREATE, 0, record) == -1) {
        DestroyWindow(handle);
        return nullptr;
    }
    if ((style & WS_VISIBLE) != 0) {
        ShowWindow(handle, SW_SHOW);
    }
    return handle;
}

BOOL DestroyWindow(HWND handle) {
    if (!RequireWindow(handle)) {
        return FALSE;
    }
    ShowWindow(handle, SW_HIDE);
    std::vector<HWND> all = Machine::Current().windows().Descendants(handle);
    all.insert(all.begin(), handle);
    for (const HWND window : all) {
        SendMessageW(window, WM_DESTROY, 0, 0);
    }
    std::for_each(all.rbegin(), all.rend(), EndWindow);
    return TRUE;
}

BOOL IsWindow(HWND window) {
    return FindWindowOf(window) != nullptr;
}

LRESULT SendMessageW(HWND handle, UINT message, WPARAM wParam, LPARAM lParam) {
    const auto window = RequireWindow(handle);
    return window ? window->procedure(handle, message, wParam, lParam) : 0;
}

LRESULT DefWindowProcW(HWND handle, UINT message, WPARAM wParam, LPARAM lParam) {
    const auto window = FindWindowOf(handle);
    if (!window) {
        return 0;
    }
    const auto context = reinterpret_cast<HDC>(wParam);
    switch (message) {
    case WM_NCCREATE:
        lParam = reinterpret_cast<LPARAM>(reinterpret_cast<const CREATESTRUCTW*>(lParam)->lpszName);
        [[fallthrough]];
    case WM_SETTEXT:
        window->text = lParam != 0 ? reinterpret_cast<LPCWSTR>(lParam) : u"";
        return TRUE;
    case WM_PAINT: {
        PAINTSTRUCT paint;
        BeginPaint(handle, &paint);
        EndPaint(handle, &paint);
        return 0;
    }
    case WM_ERASEBKGND: {
        const RECT client = window->ClientRect();
        return window->background != nullptr && FillRect(context, &client, window->background) != 0;
    }
    case WM_CTLCOLORDLG:
    case WM_CTLCOLORSTATIC:
        SetTextColor(context, GetSysColor(COLOR_BTNTEXT));
        SetBkColor(context, GetSysColor(COLOR_BTNFACE));
        return reinterpret_cast<LRESULT>(SystemBrush(COLOR_BTNFACE));
    case WM_HELP:
    case WM_CONTEXTMENU:
        // Both climb until somebody answers.
        return window->IsChild() ? SendMessageW(window->parent, message, wParam, lParam) : 0;
    default:
        return 0;
    }
}

namespace {

// A number in the extra bytes; null with ERROR_INVALID_INDEX for another index.
LONG_PTR* ExtraOf(Window& window, int index) {
    constexpr int kSize = sizeof(LONG_PTR);
    if (index < 0 || index % kSize != 0 ||
        static_cast<size_t>(index / kSize) >= window.extra.size()) {
        SetLastError(ERROR_INVALID_INDEX);
        return nullptr;
    }
    return &window.extra[static_cast<size_t>(index / kSize)];
}

}  // namespace

LONG_PTR GetWindowLongPtrW(HWND handle, int index) {
    return WithWindow("GetWindowLongPtrW", handle, [&](Window& window) -> LONG_PTR {
        switch (index) {
        case GWLP_HWNDPARENT:
            return reinterpret_cast<LONG_PTR>(window.parent);
        case GWL_ID:
            return window.id;
        case GWL_STYLE:
            return static_cast<LONG>(window.style);
        default:
            const LONG_PTR* value = ExtraOf(window, index);
            return value != nullptr ? *value : 0;
        }
    });
}

LONG_PTR SetWindowLongPtrW(HWND handle, int index, LONG_PTR value) {
    return WithWindow("SetWindowLongPtrW", handle, [&](Window& window) -> LONG_PTR {
        if (index == GWL_STYLE) {
            return static_cast<LONG>(std::exchange(window.style, static_cast<DWORD>(value)));
        }
        LONG_PTR* place = ExtraOf(window, index);
        return place != nullptr ? std::exchange(*place, value) : 0;
    });
}

LONG GetWindowLongW(HWND window, int index) {
    return static_cast<LONG>(GetWindowLongPtrW(window, index));
}

LONG SetWindowLongW(HWND window, int index, LONG value) {
    return static_cast<LONG>(SetWindowLongPtrW(window, index, value));
}

int GetClassNameW(HWND handle, LPWSTR name, int characters) {
    return WithWindow("GetClassNameW", handle, [&](Window& window) {
        const size_t length =
            std::min(window.className.size(), static_cast<size_t>(characters) - 1);
        window.className.copy(name, length);
        name[length] = 0;
        return static_cast<int>(length);
    });
}

BOOL SetWindowTextW(HWND handle, LPCWSTR text) {
    return WithWindow("SetWindowTextW", handle, [&](Window&) -> BOOL {
        return SendMessageW(handle, WM_SETTEXT, 0, reinterpret_cast<LPARAM>(text)) != 0;
    });
}

HWND GetParent(HWND handle) {
    return WithWindow("GetParent", handle, [](Window& window) {
        return (window.style & (WS_CHILD | WS_POPUP)) != 0 ? window.parent : nullptr;
    });
}

BOOL EnumChildWindows(HWND handle, WNDENUMPROC callback, LPARAM parameter) {
    return WithWindow("EnumChildWindows", handle, [&](Window&) -> BOOL {
        return std::ranges::all_of(
            Machine::Current().windows().Descendants(handle),
            [&](HWND child) { return !IsWindow(child) || callback(child, parameter); });
    });
}

// ---- Places ----

BOOL GetClientRect(HWND handle, RECT* rect) {
    return WithWindow("GetClientRect", handle, [&](Window& window) {
        *rect = window.ClientRect();
        return TRUE;
    });
}

BOOL GetWindowRect(HWND handle, RECT* rect) {
    return WithWindow("GetWindowRect", handle, [&](Window& window) {
        *rect = OnScreen(window);
        return TRUE;
    });
}

int MapWindowPoints(HWND from, HWND to, POINT* points, UINT count) {
    const auto source = from != nullptr ? RequireWindow(from) : nullptr;
    const auto target = to != nullptr ? RequireWindow(to) : nullptr;
    if (Fails("MapWindowPoints") || (from != nullptr && !source) || (to != nullptr && !target)) {
        return 0;
    }
    const RECT start = source ? OnScreen(*source) : RECT{};
    const RECT end = target ? OnScreen(*target) : RECT{};
    const POINT shift{start.left - end.left, start.top - end.top};
    for (POINT& point : std::span(points, count)) {
        point = {point.x + shift.x, point.y + shift.y};
    }
    return MAKELONG(shift.x, shift.y);
}

BOOL MoveWindow(HWND handle, int x, int y, int width, int height, BOOL repaint) {
    return WithWindow("MoveWindow", handle, [&](Window& window) {
        if (repaint) {
            InvalidateInParent(window);
        }
        const RECT before = window.ClientRect();
        window.rect = {x, y, x + std::max(width, 0), y + std::max(height, 0)};
        if (before.right != width || before.bottom != height) {
            MakeSurface(window);
        }
        if (repaint) {
            Invalidate(window, window.ClientRect(), true);
        }
        return TRUE;
    });
}

BOOL PtInRect(const RECT* rect, POINT point) {
    return Contains(*rect, point.x, point.y);
}

// ---- States ----

BOOL ShowWindow(HWND handle, int command) {
    return WithWindow("ShowWindow", handle, [&](Window& window) -> BOOL {
        const bool wasVisible = (window.style & WS_VISIBLE) != 0;
        const bool show = command != SW_HIDE;
        if (show == wasVisible) {
            return wasVisible;
        }
        SendMessageW(handle, WM_SHOWWINDOW, show, 0);
        if (!show) {
            InvalidateInParent(window);
            window.style &= ~WS_VISIBLE;
            window.invalid = {};
            return wasVisible;
        }
        window.style |= WS_VISIBLE;
        if (!window.IsChild()) {
            std::erase(State().topLevel, handle);
            State().topLevel.push_back(handle);
            State().active = handle;
        }
        Invalidate(window, window.ClientRect(), true);
        return wasVisible;
    });
}

BOOL IsWindowVisible(HWND handle) {
    const auto window = RequireWindow(handle);
    return window && IsShown(*window);
}

BOOL EnableWindow(HWND handle, BOOL enable) {
    return WithWindow("EnableWindow", handle, [&](Window& window) -> BOOL {
        const bool wasDisabled = window.IsDisabled();
        if (wasDisabled != (enable == FALSE)) {
            if (!enable) {
                SendMessageW(handle, WM_CANCELMODE, 0, 0);
            }
            window.style ^= WS_DISABLED;
            if (State().focus == handle) {
                SetFocus(nullptr);
            }
            SendMessageW(handle, WM_ENABLE, enable != FALSE, 0);
        }
        return wasDisabled;
    });
}

BOOL IsWindowEnabled(HWND handle) {
    const auto window = RequireWindow(handle);
    return window && !window->IsDisabled();
}

HWND GetActiveWindow() {
    return Fails("GetActiveWindow") ? nullptr : Machine::Current().windows().active();
}

HWND SetFocus(HWND handle) {
    const auto window = handle != nullptr ? RequireWindow(handle) : nullptr;
    if (Fails("SetFocus") || (handle != nullptr && (!window || !TakesInput(*window)))) {
        return nullptr;
    }
    return std::exchange(State().focus, handle);
}

HWND SetCapture(HWND handle) {
    return WithWindow("SetCapture", handle,
                      [&](Window&) { return std::exchange(State().capture, handle); });
}

BOOL ReleaseCapture() {
    if (Fails("ReleaseCapture")) {
        return FALSE;
    }
    State().capture = nullptr;
    return TRUE;
}

UINT_PTR SetTimer(HWND handle, UINT_PTR id, UINT milliseconds, TIMERPROC callback) {
    return WithWindow("SetTimer", handle, [&](Window&) -> UINT_PTR {
        if (callback != nullptr) {
            return 0;
        }
        const unsigned period = std::max(milliseconds, kShortestTimer);
        auto& timers = State().timers;
        std::erase_if(timers,
                      [&](const Timer& timer) { return timer.window == handle && timer.id == id; });
        timers.push_back({handle, id, period, State().now + period});
        return id;
    });
}

BOOL KillTimer(HWND handle, UINT_PTR id) {
    return !Fails("KillTimer") && std::erase_if(State().timers, [&](const Timer& timer) {
                                      return timer.window == handle && timer.id == id;
                                  }) != 0;
}

// ---- Painting ----

HDC BeginPaint(HWND handle, PAINTSTRUCT* paint) {
    return WithWindow("BeginPaint", handle, [&](Window& window) {
        *paint = {};
        paint->hdc = OpenContextOn(window, std::exchange(window.invalid, {}));
        GetClipBox(paint->hdc, &paint->rcPaint);
        if (std::exchange(window.needsErase, false)) {
            paint->fErase =
                SendMessageW(handle, WM_ERASEBKGND, reinterpret_cast<WPARAM>(paint->hdc), 0) == 0;
        }
        return paint->hdc;
    });
}

BOOL EndPaint(HWND window, const PAINTSTRUCT* paint) {
    return Machine::Current().graphics().CloseContext(paint->hdc, window);
}

HDC GetDC(HWND handle) {
    return WithWindow("GetDC", handle,
                      [](Window& window) { return OpenContextOn(window, window.ClientRect()); });
}

int ReleaseDC(HWND window, HDC context) {
    return !Fails("ReleaseDC") && window != nullptr &&
           Machine::Current().graphics().CloseContext(context, window);
}

BOOL InvalidateRect(HWND handle, const RECT* rect, BOOL erase) {
    return WithWindow("InvalidateRect", handle, [&](Window& window) {
        Invalidate(window, rect != nullptr ? *rect : window.ClientRect(), erase != FALSE);
        return TRUE;
    });
}

BOOL UpdateWindow(HWND handle) {
    return WithWindow("UpdateWindow", handle, [&](Window&) {
        PaintTree(handle);
        return TRUE;
    });
}

COLORREF GetSysColor(int index) {
    const auto& colors = Machine::Current().graphics().systemColors;
    return index >= 0 && index < static_cast<int>(colors.size()) ? colors[index] : 0;
}

// ---- Help ----

BOOL WinHelpW(HWND window, LPCWSTR file, UINT command, ULONG_PTR data) {
    if (Fails("WinHelpW")) {
        return FALSE;
    }
    Machine::Current().windows().helpRequests.push_back(
        {window, file != nullptr ? file : u"", command, data});
    return TRUE;
}

HRESULT CoInitialize(LPVOID) {
    constexpr HRESULT kOutOfMemory = static_cast<HRESULT>(0x8007000E);
    if (Fails("CoInitialize")) {
        return kOutOfMemory;
    }
    return ++Machine::Current().windows().componentUses == 1 ? S_OK : S_FALSE;
}

void CoUninitialize() {
    --Machine::Current().windows().componentUses;
}
