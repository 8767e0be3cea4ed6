#pragma once

// A dialog-like window that holds one control and notes what the control tells it.

#include <algorithm>
#include <functional>
#include <memory>
#include <utility>
#include <vector>

#include <gtest/gtest.h>

#include "platform/embedded/windows.h"
#include "platform/windows_api.h"

#include "tests/picture.h"

namespace tests {

struct Notification {
    UINT message;
    WPARAM wParam;
    LPARAM lParam;
    bool operator==(const Notification&) const = default;
};
inline void PrintTo(const Notification& note, std::ostream* out) {
    *out << std::hex << "{message 0x" << note.message << ", w 0x" << note.wParam << ", l 0x"
         << note.lParam << "}" << std::dec;
}

// System colours that show apart in a picture, with one character each.
constexpr COLORREF kFace = RGB(212, 208, 200);    // .
constexpr COLORREF kText = RGB(0, 0, 1);          // a
constexpr COLORREF kShadow = RGB(128, 128, 128);  // s
constexpr COLORREF kLight = RGB(255, 255, 255);   // H
constexpr COLORREF kFrame = RGB(0, 1, 0);         // F
constexpr COLORREF kParent = RGB(0, 128, 128);    // ~
inline const std::map<uint32_t, char> kControlLegend{
    {kFace, '.'}, {kText, 'a'}, {kShadow, 's'}, {kLight, 'H'}, {kFrame, 'F'}, {kParent, '~'}};

class ControlTest : public testing::Test {
  protected:
    ControlTest() {
        auto& colors = machine->graphics().systemColors;
        colors[COLOR_BTNFACE] = kFace;
        colors[COLOR_BTNTEXT] = kText;
        colors[COLOR_BTNSHADOW] = kShadow;
        colors[COLOR_WINDOWFRAME] = kFrame;
        colors[COLOR_WINDOW] = kParent;
        notes_.clear();
        onNote_ = nullptr;
        WNDCLASSW record{};
        record.lpfnWndProc = ParentProcedure;
        record.lpszClassName = TEXT("Parent");
        record.hbrBackground = reinterpret_cast<HBRUSH>(uintptr_t{COLOR_WINDOW + 1});
        EXPECT_NE(RegisterClassW(&record), 0);
        parent = CreateWindowExW(0, TEXT("Parent"), nullptr, WS_POPUP | WS_VISIBLE, 200, 100, 100,
                                 80, nullptr, nullptr, nullptr, nullptr);
    }
    ~ControlTest() override {
        DestroyWindow(parent);
        onNote_ = nullptr;
        EXPECT_EQ(machine->OpenNow(), embedded::Leaks{});
    }

    // A control at the parent's upper left corner.
    HWND Make(LPCWSTR className, DWORD style, int width, int height, LPCWSTR text = nullptr) {
        return CreateWindowExW(0, className, text, WS_CHILD | WS_VISIBLE | style, 0, 0, width,
                               height, parent, reinterpret_cast<HMENU>(uintptr_t{kControlId}),
                               nullptr, nullptr);
    }
    std::string Picture(HWND window) {
        return AsText(machine->windows().Picture(window), kControlLegend);
    }
    // Covers what a control has drawn with the parent's colour.
    static void Flood(HWND control) {
        const HDC context = GetDC(control);
        const RECT all{0, 0, 100, 80};
        FillRect(context, &all, reinterpret_cast<HBRUSH>(uintptr_t{COLOR_WINDOW + 1}));
        ReleaseDC(control, context);
    }
    static std::vector<LONG> Sides(const RECT& rect) {
        return {rect.left, rect.top, rect.right, rect.bottom};
    }
    // The sides around the pixels that `counts` names.
    template <typename Counts>
    static std::vector<LONG> Around(LONG width, LONG height, Counts counts) {
        RECT around{width, height, 0, 0};
        for (LONG y = 0; y < height; ++y) {
            for (LONG x = 0; x < width; ++x) {
                if (counts(x, y)) {
                    around = {std::min(around.left, x), std::min(around.top, y),
                              std::max(around.right, x + 1), std::max(around.bottom, y + 1)};
                }
            }
        }
        return Sides(around);
    }
    // What a flooded control shows of itself, before anything else is painted.
    static std::vector<LONG> Drawn(HWND control, LONG width, LONG height) {
        const HDC context = GetDC(control);
        const auto sides =
            Around(width, height, [&](int x, int y) { return GetPixel(context, x, y) != kParent; });
        ReleaseDC(control, context);
        return sides;
    }
    // A control that cannot make its pens or brushes draws nothing with those that a context has
    // of itself, and leaves nothing behind. `byBrush`: the character drawn with a brush alone.
    void ExpectNoDrawingWithoutTools(HWND control, char byBrush) {
        for (const std::string name : {"CreatePen", "CreateSolidBrush", "BeginPaint"}) {
            machine->windows().Settle();
            Flood(control);
            machine->faults.FailCall(name, 1, true);
            InvalidateRect(control, nullptr, TRUE);
            UpdateWindow(control);
            machine->faults.Clear();
            EXPECT_EQ(machine->OpenNow().graphicsObjects, 0u) << name;
            EXPECT_EQ(machine->OpenNow().contexts, 0u) << name;
            const std::string picture = Picture(control);
            EXPECT_EQ(picture.find('?'), std::string::npos) << name << picture;
            if (name != "CreatePen") {
                const size_t at33 = 1 + 3 * picture.find('\n', 1) + 3;
                EXPECT_EQ(picture[at33], '~') << name << picture;
                EXPECT_EQ(picture.find(byBrush), std::string::npos) << name << picture;
            }
        }
    }
    unsigned Timers() const { return machine->OpenNow().timers; }
    // The notifications since the last call.
    static std::vector<Notification> Notes() { return std::exchange(notes_, {}); }
    // Called inside the next notification.
    static void OnNote(std::function<void()> action) { onNote_ = std::move(action); }

    static constexpr WORD kControlId = 0x1234;
    std::unique_ptr<embedded::Machine> machine = std::make_unique<embedded::Machine>();
    HWND parent = nullptr;

  private:
    static LRESULT ParentProcedure(HWND window, UINT message, WPARAM wParam, LPARAM lParam) {
        if (message == WM_COMMAND || message == WM_HSCROLL || message == WM_VSCROLL) {
            notes_.push_back({message, wParam, lParam});
            if (const auto action = std::exchange(onNote_, nullptr)) {
                action();
            }
            return 0;
        }
        return DefWindowProcW(window, message, wParam, lParam);
    }
    static inline std::vector<Notification> notes_;
    static inline std::function<void()> onNote_;
};

}  // namespace tests
