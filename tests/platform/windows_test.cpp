#include "platform/embedded/windows.h"

#include <gtest/gtest.h>

#include "platform/windows_api.h"
#include "tests/picture.h"

namespace {

constexpr COLORREF kRed = RGB(255, 0, 0);
constexpr COLORREF kBlue = RGB(0, 0, 255);
constexpr COLORREF kWhite = RGB(255, 255, 255);

std::vector<UINT> received;
WPARAM refusedBy = 0;  // a message that the test window answers "no" to
bool fillsRed = true;

// Notes every message and paints what it may red.
LRESULT TestProcedure(HWND window, UINT message, WPARAM wParam, LPARAM lParam) {
    received.push_back(message);
    if (message == refusedBy) {
        return message == WM_CREATE ? -1 : 0;
    }
    if (message == WM_PAINT && fillsRed) {
        PAINTSTRUCT paint;
        const HDC context = BeginPaint(window, &paint);
        const HBRUSH brush = CreateSolidBrush(kRed);
        RECT client;
        GetClientRect(window, &client);
        FillRect(context, &client, brush);
        DeleteObject(brush);
        EndPaint(window, &paint);
        return 0;
    }
    return DefWindowProcW(window, message, wParam, lParam);
}

class WindowTest : public testing::Test {
  protected:
    WindowTest() {
        received.clear();
        refusedBy = 0;
        fillsRed = true;
        machine.graphics().systemColors[COLOR_BTNFACE] = kBlue;
        machine.graphics().systemColors[COLOR_WINDOW] = kWhite;
        WNDCLASSW testClass{};
        testClass.style = CS_HREDRAW | CS_VREDRAW;
        testClass.lpfnWndProc = TestProcedure;
        testClass.cbWndExtra = 8;
        testClass.hbrBackground = reinterpret_cast<HBRUSH>(COLOR_BTNFACE + uintptr_t{1});
        testClass.lpszClassName = TEXT("Test");
        EXPECT_NE(RegisterClassW(&testClass), 0);
    }
    ~WindowTest() override { EXPECT_EQ(machine.OpenNow(), embedded::Leaks{}); }

    HWND Make(DWORD style, int x, int y, int width, int height, HWND parent = nullptr) {
        return CreateWindowExW(0, TEXT("test"), TEXT("text"), style, x, y, width, height, parent,
                               reinterpret_cast<HMENU>(uintptr_t{7}), nullptr, nullptr);
    }
    std::string Picture(HWND window) {
        return tests::AsText(machine.windows().Picture(window),
                             {{kRed, 'R'}, {kBlue, 'b'}, {kWhite, 'W'}, {0, '.'}});
    }
    embedded::Machine machine;
};

TEST_F(WindowTest, LivesFromItsCreationMessagesToItsLast) {
    const HWND parent = Make(WS_POPUP, 100, 50, 20, 10);
    received.clear();
    const HWND child = Make(WS_CHILD | WS_VISIBLE, 1, 2, 3, 4, parent);
    EXPECT_EQ(received, (std::vector<UINT>{WM_NCCREATE, WM_CREATE, WM_SIZE, WM_MOVE,
                                           WM_SHOWWINDOW}));
    EXPECT_EQ(machine.windows().TextOf(child), u"text");
    EXPECT_EQ(GetWindowLongW(child, GWL_ID), 7);
    EXPECT_EQ(GetWindowLongPtrW(child, GWLP_HWNDPARENT), reinterpret_cast<LONG_PTR>(parent));
    SetWindowLongPtrW(child, 0, 0x123456789A);
    EXPECT_EQ(GetWindowLongPtrW(child, 0), 0x123456789A);
    EXPECT_EQ(SetWindowLongPtrW(child, 1, 1), 0);
    EXPECT_EQ(GetLastError(), ERROR_INVALID_INDEX);
    RECT rect;
    GetWindowRect(child, &rect);
    EXPECT_EQ(rect.left, 101);
    EXPECT_EQ(rect.bottom, 56);
    received.clear();
    DestroyWindow(parent);
    EXPECT_EQ(received,
              (std::vector<UINT>{WM_DESTROY, WM_DESTROY, WM_NCDESTROY, WM_NCDESTROY}));
    EXPECT_FALSE(IsWindow(child));
    EXPECT_EQ(SendMessageW(child, WM_SETTEXT, 0, 0), 0);

    for (const UINT message : {WM_NCCREATE, WM_CREATE}) {
        refusedBy = message;
        EXPECT_EQ(Make(WS_POPUP, 0, 0, 1, 1), nullptr) << message;
        EXPECT_EQ(received.back(), WM_NCDESTROY);
    }
}

TEST_F(WindowTest, PaintsOnlyWhatIsInvalidAndShown) {
    const HWND parent = Make(WS_POPUP | WS_VISIBLE, 0, 0, 8, 4);
    fillsRed = false;
    machine.windows().Settle();
    const HWND child = Make(WS_CHILD | WS_VISIBLE, 5, 1, 6, 2, parent);
    fillsRed = true;
    EXPECT_EQ(Picture(parent), "\nbbbbbbbb\nbbbbbRRR\nbbbbbRRR\nbbbbbbbb\n")
        << "the child is cut by its parent";
    const RECT corner{0, 0, 2, 2};
    const RECT other{3, 3, 9, 9};
    received.clear();
    InvalidateRect(parent, &corner, TRUE);
    InvalidateRect(parent, &other, FALSE);
    EXPECT_TRUE(received.empty());
    EXPECT_EQ(Picture(parent), "\nRRbbbbbb\nRRbbbRRR\nbbbbbRRR\nbbbRRRRR\n");
    EXPECT_EQ(received, (std::vector<UINT>{WM_PAINT, WM_ERASEBKGND}));
    received.clear();
    machine.windows().Settle();
    EXPECT_TRUE(received.empty());

    fillsRed = false;
    ShowWindow(child, SW_HIDE);
    EXPECT_EQ(Picture(parent), "\nRRbbbbbb\nRRbbbbbb\nbbbbbbbb\nbbbRRRRR\n");
    received.clear();
    InvalidateRect(child, nullptr, TRUE);
    UpdateWindow(child);
    EXPECT_TRUE(received.empty()) << "hidden";
    DestroyWindow(parent);
}

TEST_F(WindowTest, FiresTimersWhenTheClockReachesThem) {
    const HWND window = Make(WS_POPUP, 0, 0, 1, 1);
    received.clear();
    SetTimer(window, 5, 400, nullptr);
    machine.windows().Advance(399);
    EXPECT_TRUE(received.empty());
    machine.windows().Advance(1);
    EXPECT_EQ(received, (std::vector<UINT>{WM_TIMER}));
    SetTimer(window, 5, 50, nullptr);
    EXPECT_EQ(machine.OpenNow().timers, 1u) << "the same timer set anew";
    machine.windows().Advance(125);
    EXPECT_EQ(received, (std::vector<UINT>{WM_TIMER, WM_TIMER, WM_TIMER}));
    EXPECT_TRUE(KillTimer(window, 5));
    EXPECT_FALSE(KillTimer(window, 5));
    SetTimer(window, 6, 50, nullptr);
    DestroyWindow(window);
    EXPECT_EQ(machine.OpenNow().timers, 0u);
}

TEST_F(WindowTest, GetsTheMouseByPlaceUnlessOneCapturedIt) {
    const HWND parent = Make(WS_POPUP | WS_VISIBLE, 10, 10, 20, 20);
    const HWND child = Make(WS_CHILD | WS_VISIBLE, 5, 5, 5, 5, parent);
    machine.windows().Settle();
    received.clear();
    EXPECT_TRUE(machine.windows().Click(child));
    EXPECT_EQ(received, (std::vector<UINT>{WM_LBUTTONDOWN, WM_LBUTTONUP}));
    SetCapture(child);
    received.clear();
    machine.windows().MoveMouse({500, 500});
    EXPECT_EQ(received, (std::vector<UINT>{WM_MOUSEMOVE}));
    ReleaseCapture();
    EXPECT_EQ(received.back(), WM_CAPTURECHANGED);
    received.clear();
    machine.windows().PressMouse({500, 500});
    EXPECT_TRUE(received.empty());
    EnableWindow(child, FALSE);
    EXPECT_EQ(received, (std::vector<UINT>{WM_CANCELMODE, WM_ENABLE}));
    EXPECT_FALSE(machine.windows().Click(child));
    DestroyWindow(parent);
}

TEST_F(WindowTest, FindsClassesByNameAndOwner) {
    WNDCLASSW local{};
    local.lpfnWndProc = TestProcedure;
    local.lpszClassName = TEXT("Local");
    local.hInstance = reinterpret_cast<HINSTANCE>(uintptr_t{0x1000});
    EXPECT_NE(RegisterClassW(&local), 0);
    EXPECT_EQ(RegisterClassW(&local), 0);
    EXPECT_EQ(GetLastError(), ERROR_CLASS_ALREADY_EXISTS);
    const auto make = [&](HINSTANCE instance) {
        return CreateWindowExW(0, TEXT("Local"), nullptr, WS_POPUP, 0, 0, 1, 1, nullptr, nullptr,
                               instance, nullptr);
    };
    EXPECT_EQ(make(nullptr), nullptr) << "not global";
    EXPECT_EQ(GetLastError(), ERROR_CANNOT_FIND_WND_CLASS);
    const HWND window = make(local.hInstance);
    EXPECT_NE(window, nullptr);
    EXPECT_FALSE(UnregisterClassW(TEXT("Local"), local.hInstance)) << "has a window";
    DestroyWindow(window);
    EXPECT_TRUE(UnregisterClassW(TEXT("Local"), local.hInstance));
    EXPECT_FALSE(UnregisterClassW(TEXT("Local"), local.hInstance));
    EXPECT_FALSE(machine.windows().HasClass(u"Local"));
}

}  // namespace
