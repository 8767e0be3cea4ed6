#include <map>
#include <memory>
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
        control = CreateWindowExW(
            0, shape.className, shape.text, WS_CHILD | WS_VISIBLE | shape.style, 0, 0, shape.width,
            shape.height, parent, reinterpret_cast<HMENU>(uintptr_t{0x1234}), nullptr, nullptr);
    }
    std::string Picture() { return tests::AsText(windows.Picture(control), kLegend); }
    // Covers what the control has drawn with the parent's colour.
    void Flood() {
        const HDC context = GetDC(control);
        const RECT all{0, 0, 100, 80};
        FillRect(context, &all, reinterpret_cast<HBRUSH>(uintptr_t{COLOR_WINDOW + 1}));
        ReleaseDC(control, context);
    }
    // The rectangle around the pixels that `counts` names; empty without any.
    template <typename Counts>
    static std::string Around(LONG width, LONG height, Counts counts) {
        RECT around{width, height, 0, 0};
        for (LONG y = 0; y < height; ++y) {
            for (LONG x = 0; x < width; ++x) {
                if (counts(x, y)) {
                    around = {std::min(around.left, x), std::min(around.top, y),
                              std::max(around.right, x + 1), std::max(around.bottom, y + 1)};
                }
            }
        }
        std::ostringstream text;
        text << around.left << " " << around.top << " " << around.right << " " << around.bottom;
        return around.right != 0 ? text.str() : "";
    }
    // What the control has drawn since, before anything else is painted, and what it holds.
    std::string State() {
        std::string text;
        if (const HDC context = GetDC(control); context != nullptr) {
            const embedded::Bitmap pixels = PixelsOf(context, shape.width, shape.height);
            ReleaseDC(control, context);
            const std::string drawn = Around(shape.width, shape.height, [&](LONG x, LONG y) {
                return pixels.At(x, y) != kParent;
            });
            text = drawn.empty() ? "" : ", drawn " + drawn;
        }
        text += GetCapture() == nullptr ? "" : ", held";
        const unsigned timers = windows.CountTimers();
        return text + (timers == 0 ? "" : ", timers: " + std::to_string(timers));
    }
    std::string Named(LPARAM value) const {
        std::ostringstream text;
        text << (value < 0x10000 ? std::dec : std::hex) << std::showbase << value;
        return value == reinterpret_cast<LPARAM>(control)  ? "control"
               : value == reinterpret_cast<LPARAM>(parent) ? "parent"
                                                           : text.str();
    }

    // Does what one command says, such as "press 7 3", and notes what came of it.
    void Do(const std::string& command) {
        std::istringstream words(command);
        std::string verb;
        words >> verb;
        if (verb == "when-told") {
            std::getline(words >> std::ws, whenTold);
            notes += "  " + command;
            return;
        }
        std::vector<LONG_PTR> numbers;
        for (std::string word; words >> word;) {
            numbers.push_back(std::strtoll(word.c_str(), nullptr, 0));
        }
        numbers.resize(3);
        const POINT at{static_cast<LONG>(200 + numbers[0]), static_cast<LONG>(100 + numbers[1])};
        std::string result;
        const auto send = [&](UINT message, LONG_PTR w, LONG_PTR l) {
            result = " = " + Named(SendMessageW(control, message, static_cast<WPARAM>(w), l));
        };
        const std::map<std::string, std::function<void()>> acts{
            {"press", [&] { windows.PressMouse(at); }},
            {"move", [&] { windows.MoveMouse(at); }},
            {"release", [&] { windows.ReleaseMouse(at); }},
            {"wait", [&] { windows.Advance(static_cast<unsigned>(numbers[0])); }},
            {"enable", [&] { EnableWindow(control, static_cast<BOOL>(numbers[0])); }},
            {"destroy", [&] { DestroyWindow(control); }},
            {"replace", [&] { DestroyWindow(control), Make(); }},
            {"picture", [&] { InvalidateRect(control, nullptr, TRUE); }},
            {"send", [&] { send(static_cast<UINT>(numbers[0]), numbers[1], numbers[2]); }},
            {"erase",
             [&] {
                 const HDC context = GetDC(control);
                 send(WM_ERASEBKGND, reinterpret_cast<LONG_PTR>(context), 0);
                 ReleaseDC(control, context);
             }},
        };
        // The control's own messages, from WM_USER + 1.
        constexpr const char* kMessages[] = {"settarget",   "gettarget",   "setrange",  "getrange",
                                             "setpos",      "getpos",      "setsilent", "getsilent",
                                             "setreversed", "getreversed", "setcolor",  "getcolor"};
        if (const auto act = acts.find(verb); act != acts.end()) {
            act->second();
        } else {
            const auto* message = std::ranges::find(kMessages, verb);
            ASSERT_NE(message, std::end(kMessages)) << command;
            const bool isTarget = verb == "settarget" && numbers[0] == 0;
            send(static_cast<UINT>(SPIN_SETTARGET + (message - kMessages)),
                 isTarget ? reinterpret_cast<LONG_PTR>(control) : numbers[0], numbers[1]);
        }
        notes += "  " + command + result;
    }
    std::string Run(const std::string& script) {
        std::string text;
        std::istringstream commands(script);
        for (std::string command; std::getline(commands >> std::ws, command, ';');) {
            windows.Settle();
            Flood();
            Do(command);
            text += std::exchange(notes, {}) + State() + "\n";
            if (command == "picture") {
                text += Picture().substr(1);
            }
        }
        return text;
    }

    struct Shape {
        const char* what;
        LPCWSTR className;
        DWORD style;
        int width, height;
        LPCWSTR text;
        const char* script;
    };
    Shape shape{};
    HWND parent = nullptr;
    HWND control = nullptr;
    std::string notes;
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
        const bool isCommand = message == WM_COMMAND;
        const bool isOurs = LOWORD(lParam) == LOWORD(reinterpret_cast<ULONG_PTR>(control));
        notes += "    told " +
                 std::string(isCommand               ? "COMMAND "
                             : message == WM_VSCROLL ? "VSCROLL "
                                                     : "HSCROLL ") +
                 std::to_string(LOWORD(wParam)) + "|" + std::to_string(HIWORD(wParam)) + " " +
                 (isCommand ? (isOurs ? "control|" : "other|") + std::to_string(HIWORD(lParam))
                            : Named(lParam)) +
                 State() + "\n";
        if (const std::string command = std::exchange(whenTold, {}); !command.empty()) {
            Do(command);
            notes += " (then)\n";
        }
    }
    static inline Controls* running;
};

TEST_F(Controls, DoAsTheyAreTold) {
    constexpr DWORD kV = SPINS_VERTICAL;
    constexpr DWORD kText = SPINS_VERTICAL | SPINS_RANGEINTEXT;
    const LPCWSTR spin = kSpinClassName;
    const LPCWSTR panel = kPanelClassName;
    const Shape shapes[] = {
        {"steps at once, after 400 ms, then every 50, while the pointer is on its half", spin, kV,
         15, 20, nullptr,
         "press 7 3; wait 399; wait 1; wait 149; move 7 15; wait 100; move 7 10; wait 50; wait 50;"
         "setsilent 1; wait 200; release -50 -50; send 0x113 501; send 0x113 500; send 0x113 77"},
        {"tells the half pressed: top and bottom", spin, kV, 15, 20, nullptr,
         "press 7 10; release 7 10; press 7 11; release 7 11; send 0x201 0 0xFFFB0007;"
         "release 7 0; send 0x203 0 0x000F0007; send 0x113 77; send 0x113 501; release 7 15"},
        {"left and right, reversed", spin, SPINS_REVERSED, 24, 13, nullptr,
         "press 12 1; release 12 1; press 13 1; release 13 1; getreversed; setreversed 0;"
         "setreversed 0; getreversed; send 0x201 0 0x0001FFFB; move 13 12; send 0x113 501;"
         "move 12 12; send 0x113 501; release 12 1; setreversed 1"},
        {"takes two presses without a release for one of the second half", spin, 0, 24, 13, nullptr,
         "send 0x203 0 0x0001000D; send 0x201 0 0x0001FFFB; send 0x113 501; picture; send 0x1F;"
         "press 13 1; send 0x201 0 0x00010001; release 13 1; picture"},
        {"announces a range before it holds", spin, kV, 15, 20, nullptr,
         "setrange 0 0x50005; setrange 0 0x5FFFF; setrange 0 0x140000; setpos 10;"
         "when-told getrange; setrange 0 0xA0000; setrange 0 0xC0005; setrange 0 0xFFFF0001;"
         "getrange; setrange 0 0x90000; getpos"},
        {"keeps its position in the range", spin, kV, 15, 20, nullptr,
         "setpos 0; setpos 9; setpos 10; setpos 0x10001; setpos -1; getpos; press 7 15;"
         "setsilent 1; wait 400; release 7 15; press 7 3; wait 900; setsilent 0; wait 50"},
        {"has positions below zero", spin, kText, 15, 20, TEXT("65530,3,65535"),
         "getpos; setpos -2; getpos"},
        {"answers what it is asked", spin, kV | SPINS_SILENTATLIMIT, 15, 20, nullptr,
         "getsilent; setsilent 0; getsilent; settarget 0; settarget 0x77777; gettarget; setpos 6;"
         "getcolor 4; setcolor 4 0x80000001; getcolor 4; setcolor 4 -1; setcolor 5 1; getcolor 5;"
         "send 0x400; send 0x40D; send 0x18 0; erase"},
        {"draws top and bottom", spin, kV, 15, 20, nullptr,
         "picture; press 7 3; picture; move 7 -1; picture; release 7 -1; picture; move 7 11;"
         "press 7 11; picture; release 7 11; enable 0; picture; enable 1; picture"},
        {"draws left and right", spin, 0, 24, 13, nullptr,
         "picture; press 20 3; picture; release 20 3; press 3 3; release 3 3; enable 0; picture"},
        {"draws in its own colours", spin, kV, 15, 20, nullptr,
         "setcolor 0 0x808000; setcolor 1 0xFFFFFF; setcolor 2 0x10000; setcolor 3 0x100;"
         "setcolor 4 0x808080; picture; enable 0; picture"},
        {"keeps the traces of presses that are cancelled", spin, kV, 15, 20, nullptr,
         "press 7 3; move 7 15; send 0x1F; press 7 3; wait 400; picture; move 7 3; wait 50;"
         "send 0x1F; send 0x113 501; picture; move 7 15"},
        {"repeats nothing when its target ends the press", spin, kV, 15, 20, nullptr,
         "when-told send 0x202 0 0; press 7 3; when-told enable 0; press 7 3; enable 1;"
         "when-told destroy; press 7 3"},
        {"is gone after its target put another in its place", spin, kV, 15, 20, nullptr,
         "when-told replace; setrange 0 0x30000; getrange; getpos; when-told replace; press 7 3;"
         "send 0x113 501"},
        {"is a window like any other without its state", spin, kV, 15, 20, nullptr,
         "setpos 7; send 0x81; getpos; send 0x82; getpos; send 0x201; send 0xF; erase"},
        {"panel: sunken", panel, 0, 10, 8, TEXT("2,0,0"), "picture; erase"},
        {"panel: raised", panel, PANELS_RAISED, 10, 8, TEXT("2,0,0"), "picture"},
        {"panel: one number is no width", panel, 0, 4, 3, TEXT("2"), "picture"},
        {"panel: no text", panel, PANELS_RAISED, 4, 3, nullptr, "picture"},
        {"panel: filled and framed", panel, PANELS_FILLED | PANELS_FRAMED | PANELS_RAISED, 12, 9,
         TEXT("1,0,0"), "picture"},
        {"panel: framed", panel, PANELS_FRAMED, 10, 8, TEXT("1,0,0"), "picture"},
        {"panel: etched", panel, PANELS_CAPTIONED, 14, 10, TEXT("1,0,0"), "picture"},
        {"panel: etched and framed, filled once", panel,
         PANELS_CAPTIONED | PANELS_FRAMED | PANELS_FILLED, 14, 10, TEXT("1,0,0"), "picture"},
        {"panel: rings beyond its middle cross it", panel, 0, 4, 4, TEXT("65535,0,0"), "picture"},
        {"panel: its inside turned inside out", panel, PANELS_FRAMED, 10, 7, TEXT("20,0,0"),
         "picture"},
        {"panel: turned just outside", panel, PANELS_FRAMED, 6, 5, TEXT("5,0,0"), "picture"},
    };
    std::string text;
    const auto run = [&](const Shape& row) {
        shape = row;
        Make();
        text += row.what + std::string("\n") + Run(row.script);
        DestroyWindow(control);
    };
    std::ranges::for_each(shapes, run);
    for (const LPCWSTR range : {u"1,20,50", u"3,30,7", u",8,2", u"1,9,4,x", u"1,9,,",
                                u"65537,65545,65540", u"65535,3,65534", u"1,20", u"1,2,", u"1,2x,3",
                                u"1,2,3/", u"1,\u0662,3", u"-1,2,1", u"", LPCWSTR{nullptr}}) {
        const std::string what = range != nullptr ? embedded::Utf8(range) : "(none)";
        run({what.c_str(), spin, kText, 15, 20, range, "getrange; getpos"});
    }
    run({"without the style", spin, kV, 15, 20, TEXT("1,20,50"), "getrange; getpos"});
    EXPECT_TRUE(IsRecorded("ui/controls.txt", text));
}

TEST_F(Controls, WrapACaptionInTheFrameColour) {
    shape = {"", kPanelClassName, PANELS_CAPTIONED, 70, 60, TEXT("2,0,0"), ""};
    Make();
    const auto set = [&](const std::u16string& text) {
        EXPECT_EQ(SendMessageW(control, WM_SETTEXT, 0, reinterpret_cast<LPARAM>(text.c_str())), 0);
        return Picture();
    };
    const std::string empty = Picture();
    EXPECT_EQ(std::ranges::count(empty, 'F'), 0) << "the creation text is no caption";
    const std::string one = set(u"Receivers");
    EXPECT_GT(std::ranges::count(one, 'F'), 10);
    EXPECT_EQ(std::ranges::count(one, 'H'), std::ranges::count(empty, 'H')) << "on the face";
    // A line of the dialogs' font is 13 pixels high, and the second word has one of its own.
    const std::string two = set(u"Receivers Receivers");
    EXPECT_EQ(two.substr(0, 71 * 17), one.substr(0, 71 * 17));
    EXPECT_EQ(two.substr(71 * (5 + 13), 71 * 13), one.substr(71 * 5, 71 * 13));
    // Full blocks, a line too long and too many lines, fill the caption's rectangle.
    const std::u16string line(20, u'\u2588');
    const auto full = set(line + u" " + line + u" " + line + u" " + line);
    EXPECT_EQ(Around(70, 60,
                     [&](LONG x, LONG y) {
                         const auto at = static_cast<size_t>(1 + 71 * y + x);
                         return full[at] != empty[at];
                     }),
              "7 5 62 55");
    EXPECT_EQ(windows.TextOf(control), u"") << "the window has no text";
    SendMessageW(control, WM_SETTEXT, 0, 0);
    EXPECT_EQ(Picture(), empty);

    // A long one is cut, but not inside a character.
    const auto caption = [&](const std::u16string& text) {
        set(text);
        return std::u16string(
            reinterpret_cast<const PanelState*>(GetWindowLongPtrW(control, 0))->caption);
    };
    EXPECT_EQ(caption(std::u16string(255, u'a')), std::u16string(255, u'a'));
    EXPECT_EQ(caption(std::u16string(300, u'b')), std::u16string(255, u'b'));
    EXPECT_EQ(caption(std::u16string(254, u'c') + u"\U0001F4E0"), std::u16string(254, u'c'));
    EXPECT_EQ(caption(std::u16string(253, u'd') + u"\U0001F4E0!"),
              std::u16string(253, u'd') + u"\U0001F4E0");
}

// What would be drawn with a tool that cannot be made is left out, instead of being drawn with
// what a context has of itself: a black pen and a white brush.
TEST_F(Controls, DrawWhatTheyCanWhateverFails) {
    for (const Shape& row :
         {Shape{"", kSpinClassName, SPINS_VERTICAL, 15, 20, nullptr, ""},
          Shape{"", kSpinClassName, 0, 24, 13, nullptr, ""},
          Shape{"", kPanelClassName, PANELS_FILLED | PANELS_FRAMED, 15, 20, TEXT("2,0,0"), ""},
          Shape{"", kPanelClassName, PANELS_CAPTIONED, 15, 20, TEXT("1,0,0"), ""}}) {
        shape = row;
        std::ptrdiff_t white = 15 * 20;
        UnderFaults(fax.machine,
                    {.act =
                         [&] {
                             Make();
                             UpdateWindow(control);
                         },
                     .holds =
                         [&](const FailedCall& failed) {
                             const std::string picture = Picture();
                             white = failed.number == 0 ? std::ranges::count(picture, 'H') : white;
                             EXPECT_EQ(picture.find('?'), std::string::npos) << picture;
                             EXPECT_LE(std::ranges::count(picture, 'H'), white) << picture;
                             if (failed.is("LocalAlloc") || failed.is("SetWindowLongPtrW")) {
                                 EXPECT_EQ(control, nullptr);
                             }
                             DestroyWindow(control);
                         },
                     .only = {"LocalAlloc", "SetWindowLongPtrW", "CreatePen", "CreateSolidBrush",
                              "BeginPaint", "GetClientRect"},
                     .withAllLater = false});
    }
}

TEST_F(Controls, AreRegisteredOnceUntilUnregistered) {
    const HMODULE own = ownModule;
    const struct {
        void (*registerClass)(HINSTANCE);
        void (*unregisterClass)(HINSTANCE);
        std::u16string_view name;
    } rows[] = {{RegisterSpinClass, UnregisterSpinClass, u"zl2ud_1"},
                {RegisterPanelClass, UnregisterPanelClass, u"ZL2UD_3"}};
    for (const auto& row : rows) {
        row.registerClass(own);
        EXPECT_TRUE(windows.HasClass(row.name));
        row.unregisterClass(own);
        EXPECT_FALSE(windows.HasClass(row.name));
        row.registerClass(own);
        EXPECT_TRUE(windows.HasClass(row.name));
    }
}

}  // namespace
}  // namespace ksfax
