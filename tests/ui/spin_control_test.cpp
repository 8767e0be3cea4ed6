#include "ui/spin_control.h"

#include "tests/ui/control_fixture.h"

namespace ksfax {
namespace {

using tests::Notification;

class SpinControl : public tests::ControlTest {
  protected:
    SpinControl() { RegisterSpinClass(nullptr); }
    ~SpinControl() override {
        DestroyWindow(parent);
        UnregisterSpinClass(nullptr);
    }
    HWND MakeVertical(DWORD style = 0, LPCWSTR text = nullptr) {
        return Make(kSpinClassName, SPINS_VERTICAL | style, 15, 20, text);
    }
    static LRESULT Ask(HWND spin, UINT message, WPARAM wParam = 0, LPARAM lParam = 0) {
        return SendMessageW(spin, message, wParam, lParam);
    }
    static LRESULT PointAt(HWND spin, UINT message, int x, int y) {
        return SendMessageW(spin, message, 0, MAKELPARAM(x, y));
    }
    static LPARAM Window(HWND spin) { return reinterpret_cast<LPARAM>(spin); }
    static Notification Step(HWND spin, WORD half, WORD position, UINT message = WM_VSCROLL) {
        return {message, MAKEWPARAM(half, position), Window(spin)};
    }
};

TEST_F(SpinControl, TakesItsRangeFromTheTextWhenTheStyleSaysSo) {
    struct Row {
        const char* what;
        LPCWSTR text;
        LONG range;
        int position;
    };
    const LONG fallback = MAKELONG(0, 9);
    const Row rows[] = {
        {"position above the range", TEXT("1,20,50"), MAKELONG(1, 20), 10},
        {"three fields", TEXT("3,30,7"), MAKELONG(3, 30), 7},
        {"empty fields read 0", TEXT(",8,2"), MAKELONG(0, 8), 2},
        {"what follows the third comma", TEXT("1,9,4,x"), MAKELONG(1, 9), 4},
        {"an empty third field before a comma", TEXT("1,9,,"), MAKELONG(1, 9), 5},
        {"wrapping at 65536", TEXT("65537,65545,65540"), MAKELONG(1, 9), 4},
        {"signed clamp", TEXT("65535,3,65534"), MAKELONG(0xFFFF, 3), 1},
        {"two fields", TEXT("1,20"), fallback, 5},
        {"an empty third field at the end", TEXT("1,2,"), fallback, 5},
        {"a letter", TEXT("1,2x,3"), fallback, 5},
        {"a digit of another script", TEXT("1,\u0662,3"), fallback, 5},
        {"a sign", TEXT("-1,2,1"), fallback, 5},
        {"empty", TEXT(""), fallback, 5},
        {"no text", nullptr, fallback, 5},
    };
    for (const Row& row : rows) {
        const HWND spin = MakeVertical(SPINS_RANGEINTEXT, row.text);
        EXPECT_EQ(Ask(spin, SPIN_GETRANGE), static_cast<DWORD>(row.range)) << row.what;
        EXPECT_EQ(Ask(spin, SPIN_GETPOS), row.position) << row.what;
        DestroyWindow(spin);
    }
    const HWND spin = MakeVertical(0, TEXT("1,20,50"));
    EXPECT_EQ(Ask(spin, SPIN_GETRANGE), static_cast<DWORD>(fallback));
    EXPECT_EQ(Ask(spin, SPIN_GETPOS), 5);
}

TEST_F(SpinControl, StepsAtOnceThenAfter400ThenEvery50Milliseconds) {
    const HWND spin = MakeVertical();
    PointAt(spin, WM_LBUTTONDOWN, 7, 3);
    EXPECT_EQ(Notes(), (std::vector{Step(spin, SB_LINEUP, 4)}));
    EXPECT_EQ(GetCapture(), spin);
    machine->windows().Advance(399);
    EXPECT_TRUE(Notes().empty());
    machine->windows().Advance(1);
    EXPECT_EQ(Notes(), (std::vector{Step(spin, SB_LINEUP, 3)}));
    machine->windows().Advance(149);
    EXPECT_EQ(Notes(), (std::vector{Step(spin, SB_LINEUP, 2), Step(spin, SB_LINEUP, 1)}));
    machine->windows().MoveMouse({200 + 7, 100 + 15});
    machine->windows().Advance(100);
    EXPECT_TRUE(Notes().empty()) << "the pointer is on the other half";
    machine->windows().MoveMouse({200 + 7, 100 + 10});
    machine->windows().Advance(50);
    EXPECT_EQ(Notes(), (std::vector{Step(spin, SB_LINEUP, 0)})) << "the middle row is its own";
    machine->windows().Advance(50);
    EXPECT_EQ(Notes(), (std::vector{Step(spin, SB_LINEUP, 0)})) << "told at the limit too";
    Ask(spin, SPIN_SETSILENT, 1);
    machine->windows().Advance(200);
    EXPECT_TRUE(Notes().empty());
    machine->windows().ReleaseMouse({0, 0});
    EXPECT_EQ(GetCapture(), nullptr);
    EXPECT_EQ(machine->OpenNow().timers, 0u);
    Ask(spin, WM_TIMER, 501);
    Ask(spin, WM_TIMER, 77);
    EXPECT_TRUE(Notes().empty()) << "no half is pressed";
}

TEST_F(SpinControl, TellsTheHalfPressedWhicheverWayItGoes) {
    const HWND spin = Make(kSpinClassName, SPINS_REVERSED, 24, 13);
    EXPECT_EQ(Ask(spin, SPIN_GETREVERSED), 16);
    PointAt(spin, WM_LBUTTONDOWN, 12, 1);
    EXPECT_EQ(Notes(), (std::vector{Step(spin, SB_LINEUP, 6, WM_HSCROLL)}));
    PointAt(spin, WM_LBUTTONUP, 12, 1);
    PointAt(spin, WM_LBUTTONDBLCLK, 13, 1);
    EXPECT_EQ(Notes(), (std::vector{Step(spin, SB_LINEDOWN, 5, WM_HSCROLL)}));
    // Without a release between, both halves are pressed and the second one counts.
    PointAt(spin, WM_LBUTTONDOWN, -5, 1);
    EXPECT_EQ(Notes(), (std::vector{Step(spin, SB_LINEDOWN, 4, WM_HSCROLL)}));
    EXPECT_EQ(Ask(spin, SPIN_SETREVERSED, 0), 1);
    EXPECT_EQ(Ask(spin, SPIN_SETREVERSED, 0), 0);
    EXPECT_EQ(Ask(spin, SPIN_GETREVERSED), 0);
    Ask(spin, WM_TIMER, 501);
    EXPECT_EQ(Notes(), (std::vector{Step(spin, SB_LINEDOWN, 5, WM_HSCROLL)}));
    Ask(spin, WM_CANCELMODE);
    EXPECT_EQ(machine->OpenNow().timers, 0u);
    EXPECT_EQ(GetCapture(), nullptr);
}

TEST_F(SpinControl, AnnouncesARangeBeforeItHolds) {
    const HWND spin = MakeVertical();
    EXPECT_EQ(Ask(spin, SPIN_SETRANGE, 0, MAKELPARAM(5, 5)), -1);
    EXPECT_EQ(Ask(spin, SPIN_SETRANGE, 0, MAKELPARAM(0xFFFF, 5)), -1) << "unsigned";
    EXPECT_TRUE(Notes().empty());
    Ask(spin, SPIN_SETRANGE, 0, MAKELPARAM(0, 20));
    Ask(spin, SPIN_SETPOS, 10);
    Notes();
    LRESULT rangeThen = 0;
    OnNote([&] { rangeThen = Ask(spin, SPIN_GETRANGE); });
    EXPECT_EQ(Ask(spin, SPIN_SETRANGE, 0, MAKELPARAM(0, 10)), MAKELONG(0, 20));
    EXPECT_EQ(rangeThen, MAKELONG(0, 20));
    const auto low = LOWORD(reinterpret_cast<ULONG_PTR>(spin));
    EXPECT_EQ(Notes(), (std::vector<Notification>{
                           {WM_COMMAND, kControlId, MAKELPARAM(low, 3)},
                           {WM_VSCROLL, SB_THUMBTRACK, 5}}))
        << "at the end is not between";
    // Minimum 1, maximum -1: below as unsigned numbers; nothing lies between as signed ones.
    EXPECT_EQ(Ask(spin, SPIN_SETRANGE, 0, MAKELPARAM(1, 0xFFFF)), MAKELONG(0, 10));
    EXPECT_EQ(Notes().back(), (Notification{WM_VSCROLL, SB_THUMBTRACK, 0}));
    EXPECT_EQ(Ask(spin, SPIN_GETRANGE), 0xFFFF0001);
    EXPECT_EQ(Ask(spin, SPIN_SETRANGE, 0, MAKELPARAM(0, 9)), static_cast<LONG>(0xFFFF0001));
}

TEST_F(SpinControl, SetsPositionsInsideTheRangeAlone) {
    const HWND spin = MakeVertical();
    EXPECT_EQ(Ask(spin, SPIN_SETPOS, 9), 5);
    EXPECT_EQ(Notes(), (std::vector<Notification>{{WM_VSCROLL, SB_THUMBTRACK, 9}}));
    EXPECT_EQ(Ask(spin, SPIN_SETPOS, 10), -1);
    EXPECT_EQ(Ask(spin, SPIN_SETPOS, 0x10001), -1) << "32 bits count";
    EXPECT_EQ(Ask(spin, SPIN_SETPOS, static_cast<WPARAM>(-1)), -1);
    EXPECT_EQ(Ask(spin, SPIN_GETPOS), 9);
    EXPECT_TRUE(Notes().empty());
    const HWND negative = MakeVertical(SPINS_RANGEINTEXT, TEXT("65530,3,65535"));
    EXPECT_EQ(Ask(negative, SPIN_GETPOS), 0xFFFF);
    EXPECT_EQ(Ask(negative, SPIN_SETPOS, static_cast<WPARAM>(-2)), 0xFFFF);
    EXPECT_EQ(Notes(), (std::vector<Notification>{{WM_VSCROLL, SB_THUMBTRACK, 0xFFFE}}));
}

TEST_F(SpinControl, AnswersWhatItIsAskedFor) {
    const HWND spin = MakeVertical(SPINS_SILENTATLIMIT);
    EXPECT_EQ(Ask(spin, SPIN_GETSILENT), 4);
    EXPECT_EQ(Ask(spin, SPIN_SETSILENT, 0), 1);
    EXPECT_EQ(Ask(spin, SPIN_GETSILENT), 0);
    EXPECT_EQ(Ask(spin, SPIN_GETTARGET), Window(parent));
    EXPECT_EQ(Ask(spin, SPIN_SETTARGET, Window(spin)), Window(parent));
    EXPECT_EQ(Ask(spin, SPIN_SETTARGET, 0x7777), -1);
    EXPECT_EQ(Ask(spin, SPIN_GETCOLOR, 4), -1);
    EXPECT_EQ(Ask(spin, SPIN_SETCOLOR, 4, 0x80000001), 0xFFFFFFFF);
    EXPECT_EQ(Ask(spin, SPIN_GETCOLOR, 4), static_cast<int32_t>(0x80000001));
    EXPECT_EQ(Ask(spin, SPIN_SETCOLOR, 4, -1), 0x80000001);
    EXPECT_EQ(Ask(spin, SPIN_SETCOLOR, 5, 1), 0);
    EXPECT_EQ(Ask(spin, SPIN_GETCOLOR, 5), 0);
    EXPECT_EQ(Ask(spin, WM_USER), 0);
    EXPECT_EQ(Ask(spin, WM_USER + 13), 0);
}

TEST_F(SpinControl, DrawsItsHalvesRaisedPressedAndDisabled) {
    const HWND spin = MakeVertical();
    EXPECT_EQ(Picture(spin), R"(
FFFFFFFFFFFFFFF
FHHHHHHHHHHHHsF
FH..........ssF
FH.....a....ssF
FH....aaa...ssF
FH...aaaaa..ssF
FH..aaaaaaa.ssF
FH..........ssF
FHssssssssssssF
FsssssssssssssF
FFFFFFFFFFFFFFF
FHHHHHHHHHHHHsF
FH..........ssF
FH..aaaaaaa.ssF
FH...aaaaa..ssF
FH....aaa...ssF
FH.....a....ssF
FHssssssssssssF
FsssssssssssssF
FFFFFFFFFFFFFFF
)");
    PointAt(spin, WM_LBUTTONDOWN, 7, 3);
    EXPECT_EQ(Picture(spin), R"(
FFFFFFFFFFFFFFF
FsssssssssssssF
Fs............F
Fs............F
Fs......a.....F
Fs.....aaa....F
Fs....aaaaa...F
Fs...aaaaaaa..F
Fs............F
Fs............F
FFFFFFFFFFFFFFF
FHHHHHHHHHHHHsF
FH..........ssF
FH..aaaaaaa.ssF
FH...aaaaa..ssF
FH....aaa...ssF
FH.....a....ssF
FHssssssssssssF
FsssssssssssssF
FFFFFFFFFFFFFFF
)") << "upper half pressed";
    PointAt(spin, WM_MOUSEMOVE, 7, -1);
    const std::string raised = Picture(spin);
    PointAt(spin, WM_LBUTTONUP, 7, -1);
    EXPECT_EQ(raised, Picture(spin)) << "raised while the pointer is outside";
    PointAt(spin, WM_LBUTTONDOWN, 7, 11);
    EXPECT_EQ(Picture(spin), R"(
FFFFFFFFFFFFFFF
FHHHHHHHHHHHHsF
FH..........ssF
FH.....a....ssF
FH....aaa...ssF
FH...aaaaa..ssF
FH..aaaaaaa.ssF
FH..........ssF
FHssssssssssssF
FsssssssssssssF
FFFFFFFFFFFFFFF
FsssssssssssssF
Fs............F
Fs............F
Fs...aaaaaaa..F
Fs....aaaaa...F
Fs.....aaa....F
Fs......a.....F
Fs............F
FFFFFFFFFFFFFFF
)") << "lower half pressed";
    PointAt(spin, WM_LBUTTONUP, 7, 11);
    EnableWindow(spin, FALSE);
    EXPECT_EQ(Picture(spin), R"(
FFFFFFFFFFFFFFF
FHHHHHHHHHHHHsF
FH..........ssF
FH.....a....ssF
FH....a.....ssF
FH...a......ssF
FH..HHHHHH..ssF
FH..........ssF
FHssssssssssssF
FsssssssssssssF
FFFFFFFFFFFFFFF
FHHHHHHHHHHHHsF
FH..........ssF
FH..aaaaaaH.ssF
FH.......H..ssF
FH......H...ssF
FH.....H....ssF
FHssssssssssssF
FsssssssssssssF
FFFFFFFFFFFFFFF
)") << "disabled";
    EnableWindow(spin, TRUE);
    EXPECT_EQ(Picture(spin), raised);
}

TEST_F(SpinControl, DrawsHorizontalHalvesAlike) {
    const HWND spin = Make(kSpinClassName, 0, 24, 13);
    EXPECT_EQ(Picture(spin), R"(
FFFFFFFFFFFFFFFFFFFFFFFF
FHHHHHHHHHHsFHHHHHHHHHsF
FH........ssFH.......ssF
FH.....a..ssFH..a....ssF
FH....aa..ssFH..aa...ssF
FH...aaa..ssFH..aaa..ssF
FH..aaaa..ssFH..aaaa.ssF
FH...aaa..ssFH..aaa..ssF
FH....aa..ssFH..aa...ssF
FH.....a..ssFH..a....ssF
FHssssssssssFHsssssssssF
FsssssssssssFssssssssssF
FFFFFFFFFFFFFFFFFFFFFFFF
)");
    PointAt(spin, WM_LBUTTONDOWN, 20, 3);
    EXPECT_EQ(Picture(spin), R"(
FFFFFFFFFFFFFFFFFFFFFFFF
FHHHHHHHHHHsFssssssssssF
FH........ssFs.........F
FH.....a..ssFs.........F
FH....aa..ssFs...a.....F
FH...aaa..ssFs...aa....F
FH..aaaa..ssFs...aaa...F
FH...aaa..ssFs...aaaa..F
FH....aa..ssFs...aaa...F
FH.....a..ssFs...aa....F
FHssssssssssFs...a.....F
FsssssssssssFs.........F
FFFFFFFFFFFFFFFFFFFFFFFF
)") << "right half pressed";
    PointAt(spin, WM_LBUTTONUP, 20, 3);
    EnableWindow(spin, FALSE);
    EXPECT_EQ(Picture(spin), R"(
FFFFFFFFFFFFFFFFFFFFFFFF
FHHHHHHHHHHsFHHHHHHHHHsF
FH........ssFH.......ssF
FH.....H..ssFH..a....ssF
FH....aH..ssFH..a....ssF
FH...a.H..ssFH..a....ssF
FH..a..H..ssFH..a..H.ssF
FH.....H..ssFH..a.H..ssF
FH.....H..ssFH..aH...ssF
FH........ssFH.......ssF
FHssssssssssFHsssssssssF
FsssssssssssFssssssssssF
FFFFFFFFFFFFFFFFFFFFFFFF
)") << "disabled";
}

TEST_F(SpinControl, DrawsWithTheColoursOfItsSlots) {
    const HWND spin = MakeVertical();
    std::string expected = Picture(spin);
    for (const auto& [slot, color] : {std::pair{0, tests::kParent}, {1, tests::kLight},
                                      {2, tests::kText}, {3, tests::kFrame}, {4, tests::kShadow}}) {
        Ask(spin, SPIN_SETCOLOR, static_cast<WPARAM>(slot), static_cast<LPARAM>(color));
    }
    const std::map<char, char> change{{'.', '~'}, {'a', 'H'}, {'s', 'a'}, {'H', 'F'}, {'F', 's'}};
    for (char& pixel : expected) {
        pixel = change.contains(pixel) ? change.at(pixel) : pixel;
    }
    EXPECT_EQ(Picture(spin), expected);
}

TEST_F(SpinControl, RepeatsNothingWhenTheTargetEndsThePress) {
    for (const auto end : {+[](HWND spin) { DestroyWindow(spin); },
                           +[](HWND spin) { EnableWindow(spin, FALSE); },
                           +[](HWND spin) { PointAt(spin, WM_LBUTTONUP, 7, 3); }}) {
        const HWND spin = MakeVertical();
        OnNote([&] { end(spin); });
        PointAt(spin, WM_LBUTTONDOWN, 7, 3);
        EXPECT_EQ(GetCapture(), nullptr);
        EXPECT_EQ(machine->OpenNow().timers, 0u);
        DestroyWindow(spin);
    }
    const HWND spin = MakeVertical();
    OnNote([&] { DestroyWindow(spin); });
    EXPECT_EQ(Ask(spin, SPIN_SETRANGE, 0, MAKELPARAM(0, 3)), MAKELONG(0, 9));
    EXPECT_FALSE(IsWindow(spin));
}

TEST_F(SpinControl, IsNotCreatedWithoutItsState) {
    for (const char* name : {"LocalAlloc", "SetWindowLongPtrW"}) {
        machine->faults.FailCall(name);
        EXPECT_EQ(MakeVertical(), nullptr) << name;
        machine->faults.Clear();
    }
    const HWND spin = MakeVertical();
    Ask(spin, SPIN_SETPOS, 7);
    EXPECT_EQ(Ask(spin, WM_NCCREATE), TRUE);
    EXPECT_EQ(Ask(spin, SPIN_GETPOS), 7) << "it has a state already";
}

TEST_F(SpinControl, PaintsWhatItCanWithoutPensAndBrushes) {
    const HWND spin = MakeVertical();
    machine->windows().Settle();
    for (const char* name : {"CreatePen", "CreateSolidBrush", "BeginPaint"}) {
        machine->faults.FailCall(name, 1, true);
        InvalidateRect(spin, nullptr, TRUE);
        UpdateWindow(spin);
        machine->faults.Clear();
        EXPECT_EQ(machine->OpenNow().graphicsObjects, 0u) << name;
        EXPECT_EQ(machine->OpenNow().contexts, 0u) << name;
    }
}

TEST_F(SpinControl, RegistersOnceUntilItIsUnregistered) {
    RegisterSpinClass(nullptr);
    EXPECT_TRUE(machine->windows().HasClass(u"zl2ud_1"));
    UnregisterSpinClass(nullptr);
    EXPECT_FALSE(machine->windows().HasClass(u"ZL2UD_1"));
    EXPECT_EQ(MakeVertical(), nullptr);
    RegisterSpinClass(nullptr);
    EXPECT_NE(MakeVertical(), nullptr);
}

}  // namespace
}  // namespace ksfax
