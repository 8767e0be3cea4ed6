#include <map>
#include <sstream>

#include "tests/picture.h"
#include "tests/ui/ui_machine.h"
#include "ui/panel_control.h"
#include "ui/spin_control.h"

namespace ksfax {
namespace {

// System colours that show apart in a picture, with one character each.
constexpr COLORREF kParent = RGB(0, 128, 128);
const std::map<uint32_t, char> kLegend{{RGB(212, 208, 200), '.'}, {RGB(0, 0, 1), 'a'},
                                       {RGB(128, 128, 128), 's'}, {RGB(255, 255, 255), 'H'},
                                       {RGB(0, 1, 0), 'F'},       {kParent, '~'}};

// A control at the upper left corner of a window that notes what it is told, and what is done to
// it, all as text.
class Controls : public tests::UiMachine {
  protected:
    Controls() {
        auto& colors = fax.machine.graphics().systemColors;
        colors[COLOR_BTNFACE] = RGB(212, 208, 200);
        colors[COLOR_BTNTEXT] = RGB(0, 0, 1);
        colors[COLOR_BTNSHADOW] = RGB(128, 128, 128);
        colors[COLOR_WINDOWFRAME] = RGB(0, 1, 0);
        colors[COLOR_WINDOW] = kParent;
        running = this;
        WNDCLASSW record{};
        record.lpfnWndProc = ParentProcedure;
        record.lpszClassName = TEXT("Parent");
        record.hbrBackground = reinterpret_cast<HBRUSH>(uintptr_t{COLOR_WINDOW + 1});
        EXPECT_NE(RegisterClassW(&record), 0);
        parent = CreateWindowExW(0, TEXT("Parent"), nullptr, WS_POPUP | WS_VISIBLE, 200, 100, 100,
                                 80, nullptr, nullptr, nullptr, nullptr);
    }
    ~Controls() override { DestroyWindow(parent); }

    void Make() {
        control = CreateWindowExW(0, className, caption, WS_CHILD | WS_VISIBLE | style, 0, 0, width,
                                  height, parent, reinterpret_cast<HMENU>(uintptr_t{0x1234}),
                                  nullptr, nullptr);
        if (control == nullptr) {
            Tell("no control");
        }
    }
    // What it shows now, painted or not.
    std::string Picture() {
        const HDC context = GetDC(control);
        const embedded::Bitmap pixels = PixelsOf(context, width, height);
        ReleaseDC(control, context);
        return tests::AsText(pixels, kLegend);
    }
    // Covers what the control has drawn with the parent's colour.
    void Flood() {
        const HDC context = GetDC(control);
        const RECT all{0, 0, 100, 80};
        FillRect(context, &all, reinterpret_cast<HBRUSH>(uintptr_t{COLOR_WINDOW + 1}));
        ReleaseDC(control, context);
    }
    // The rectangle around what two pictures have different; empty without any.
    std::string Around(const std::string& one, const std::string& other) const {
        RECT around{width, height, 0, 0};
        for (size_t at = 1; at < one.size(); ++at) {
            if (one[at] != other[at]) {
                const LONG x = static_cast<LONG>(at - 1) % (width + 1);
                const LONG y = static_cast<LONG>(at - 1) / (width + 1);
                around = {std::min(around.left, x), std::min(around.top, y),
                          std::max(around.right, x + 1), std::max(around.bottom, y + 1)};
            }
        }
        return around.right == 0
                   ? ""
                   : Line(around.left, " ", around.top, " ", around.right, " ", around.bottom);
    }
    // What the control has drawn since, before anything else is painted, and what it holds.
    std::string State() {
        std::string state;
        if (IsWindow(control)) {
            const embedded::Bitmap blank(width, height, 32, kParent);
            const std::string drawn = Around(Picture(), tests::AsText(blank, kLegend));
            state = drawn.empty() ? "" : "; drawn " + drawn;
        }
        state += windows.capture() == nullptr ? "" : "; held";
        const unsigned timers = windows.CountTimers();
        return state + (timers == 0 ? "" : "; timers " + std::to_string(timers));
    }
    std::string Named(LPARAM value) const {
        std::ostringstream number;
        number << (value < 0x10000 ? std::dec : std::hex) << std::showbase << value;
        return value == reinterpret_cast<LPARAM>(control)  ? "control"
               : value == reinterpret_cast<LPARAM>(parent) ? "parent"
                                                           : number.str();
    }

    void Do(const Command& command) override {
        windows.Settle();
        Flood();
        Act(command);
        if (const std::string state = State(); !state.empty()) {
            Tell(state.substr(2));
        }
    }
    void Act(const Command& command) {
        const auto number = [&](size_t at) { return static_cast<int>(command.number(at)); };
        const POINT at{200 + number(0), 100 + number(1)};
        const auto send = [&](UINT message, LONG_PTR w, LONG_PTR l) {
            Tell("= ", Named(SendMessageW(control, message, static_cast<WPARAM>(w), l)));
        };
        // "spin 1 15 20 "1,2,3": the style, the size and a text or none.
        const auto make = [&](LPCWSTR name) {
            className = name;
            style = static_cast<DWORD>(number(0));
            width = number(1);
            height = number(2);
            const size_t quote = command.rest.find('"');
            range =
                embedded::Utf16(quote == std::string::npos ? "" : command.rest.substr(quote + 1));
            caption = quote == std::string::npos ? nullptr : range.c_str();
            DestroyWindow(control);
            Make();
        };
        const std::map<std::string, std::function<void()>> acts{
            {"spin", [&] { make(kSpinClassName); }},
            {"panel", [&] { make(kPanelClassName); }},
            {"press", [&] { windows.PressMouse(at); }},
            {"move", [&] { windows.MoveMouse(at); }},
            {"release", [&] { windows.ReleaseMouse(at); }},
            {"wait", [&] { windows.Advance(static_cast<unsigned>(number(0))); }},
            {"enable", [&] { EnableWindow(control, number(0)); }},
            {"destroy", [&] { DestroyWindow(control); }},
            {"replace", [&] { DestroyWindow(control), Make(); }},
            {"when-told", [&] { whenTold = command.rest; }},
            {"fail", [&] { fax.machine.faults.FailCall(command.rest, 1, true); }},
            {"send", [&] { send(static_cast<UINT>(number(0)), number(1), number(2)); }},
            {"register", [&] { RegisterSpinClass(ownModule), RegisterPanelClass(ownModule); }},
            {"unregister",
             [&] { UnregisterSpinClass(ownModule), UnregisterPanelClass(ownModule); }},
        };
        // The control's own messages, from WM_USER + 1.
        constexpr const char* kMessages[] = {"settarget",   "gettarget",   "setrange",  "getrange",
                                             "setpos",      "getpos",      "setsilent", "getsilent",
                                             "setreversed", "getreversed", "setcolor",  "getcolor"};
        if (const auto act = acts.find(command.verb); act != acts.end()) {
            act->second();
        } else if (command.verb == "caption") {
            // What a panel keeps of it; its window has no text.
            const std::u16string given = embedded::Utf16(command.rest);
            send(WM_SETTEXT, 0, reinterpret_cast<LONG_PTR>(given.c_str()));
            const auto* panel = reinterpret_cast<const PanelState*>(GetWindowLongPtrW(control, 0));
            Tell(embedded::Utf8(panel->caption),
                 windows.TextOf(control).empty() ? "" : ", as the window's text");
        } else if (command.verb == "erase") {
            const HDC context = GetDC(control);
            send(WM_ERASEBKGND, reinterpret_cast<LONG_PTR>(context), 0);
            ReleaseDC(control, context);
        } else if (command.verb == "picture") {
            InvalidateRect(control, nullptr, TRUE);
            UpdateWindow(control);
            for (const std::string& row : LinesOf(Picture().substr(1))) {
                Tell(row);
            }
            Flood();
        } else {
            const auto* message = std::ranges::find(kMessages, command.verb);
            ASSERT_NE(message, std::end(kMessages)) << command.verb;
            const bool isTarget = command.verb == "settarget" && number(0) == 0;
            send(static_cast<UINT>(SPIN_SETTARGET + (message - kMessages)),
                 isTarget ? reinterpret_cast<LONG_PTR>(control) : command.number(0),
                 command.number(1));
        }
        if (command.verb != "fail") {
            fax.machine.faults.Clear();
        }
    }

    LPCWSTR className = nullptr;
    DWORD style = 0;
    int width = 1;
    int height = 1;
    std::u16string range;
    LPCWSTR caption = nullptr;
    HWND parent = nullptr;
    HWND control = nullptr;
    std::string whenTold;

  private:
    static LRESULT ParentProcedure(HWND window, UINT message, WPARAM wParam, LPARAM lParam) {
        if (message == WM_COMMAND || message == WM_HSCROLL || message == WM_VSCROLL) {
            running->Note(message, wParam, lParam);
            return 0;
        }
        return DefWindowProcW(window, message, wParam, lParam);
    }
    void Note(UINT message, WPARAM wParam, LPARAM lParam) {
        const bool isOurs = LOWORD(lParam) == LOWORD(reinterpret_cast<ULONG_PTR>(control));
        const char* kind = message == WM_VSCROLL ? "VSCROLL " : "HSCROLL ";
        Tell("told ", message == WM_COMMAND ? "COMMAND " : kind, LOWORD(wParam), "|",
             HIWORD(wParam), " ",
             message != WM_COMMAND ? Named(lParam)
             : isOurs              ? "control|"
                                   : "other|",
             message != WM_COMMAND ? "" : std::to_string(HIWORD(lParam)), State());
        if (const std::string command = std::exchange(whenTold, {}); !command.empty()) {
            Act(CommandOf(command));
        }
    }
    static inline Controls* running;
};

TEST_F(Controls, DoAsTheyAreTold) {
    Replay("controls.txt");
}

}  // namespace
}  // namespace ksfax
