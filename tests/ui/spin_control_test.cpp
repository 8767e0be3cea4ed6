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
    EXPECT_EQ(Timers(), 1u);
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
    EXPECT_EQ(Ask(spin, SPIN_SETSILENT, 1), 0);
    machine->windows().Advance(200);
    EXPECT_TRUE(Notes().empty());
    machine->windows().ReleaseMouse({0, 0});
    EXPECT_EQ(GetCapture(), nullptr);
    EXPECT_EQ(Timers(), 0u);
    Ask(spin, WM_TIMER, 501);
    Ask(spin, WM_TIMER, 77);
    EXPECT_TRUE(Notes().empty()) << "no half is pressed";
}

TEST_F(SpinControl, TellsTheHalfPressedWhicheverWayItGoes) {
    const struct {
        DWORD style;
        int x, y;
        WORD half, position;
    } rows[] = {
        {0, 12, 1, SB_LINEUP, 4},
        {0, 13, 1, SB_LINEDOWN, 6},
        {0, -5, 1, SB_LINEUP, 4},
        {SPINS_REVERSED, 12, 1, SB_LINEUP, 6},
        {SPINS_VERTICAL, 7, 10, SB_LINEUP, 4},
        {SPINS_VERTICAL, 7, 11, SB_LINEDOWN, 6},
        {SPINS_VERTICAL, 7, -5, SB_LINEUP, 4},
    };
    for (const auto& [style, x, y, half, position] : rows) {
        const bool isVertical = (style & SPINS_VERTICAL) != 0;
        const HWND spin = Make(kSpinClassName, style, isVertical ? 15 : 24, isVertical ? 20 : 13);
        PointAt(spin, WM_LBUTTONDOWN, x, y);
        EXPECT_EQ(Notes(),
                  (std::vector{Step(spin, half, position, isVertical ? WM_VSCROLL : WM_HSCROLL)}));
        PointAt(spin, WM_LBUTTONUP, x, y);
        DestroyWindow(spin);
    }
    const HWND spin = Make(kSpinClassName, 0, 24, 13);
    EXPECT_EQ(Ask(spin, SPIN_SETREVERSED, 1), 0);
    EXPECT_EQ(Ask(spin, SPIN_GETREVERSED), 16);
    PointAt(spin, WM_LBUTTONDOWN, 12, 1);
    PointAt(spin, WM_MOUSEMOVE, 13, 12);
    Ask(spin, WM_TIMER, 501);
    EXPECT_EQ(Notes(), (std::vector{Step(spin, SB_LINEUP, 6, WM_HSCROLL)})) << "outside";
    PointAt(spin, WM_MOUSEMOVE, 12, 12);
    Ask(spin, WM_TIMER, 501);
    EXPECT_EQ(Notes(), (std::vector{Step(spin, SB_LINEUP, 7, WM_HSCROLL)})) << "inside";
    PointAt(spin, WM_LBUTTONUP, 12, 1);
    PointAt(spin, WM_LBUTTONDBLCLK, 13, 1);
    EXPECT_EQ(Notes(), (std::vector{Step(spin, SB_LINEDOWN, 6, WM_HSCROLL)}));
    // Without a release between, both halves are pressed and the second one counts.
    PointAt(spin, WM_LBUTTONDOWN, -5, 1);
    EXPECT_EQ(Notes(), (std::vector{Step(spin, SB_LINEDOWN, 5, WM_HSCROLL)}));
    EXPECT_EQ(Ask(spin, SPIN_SETREVERSED, 0), 1);
    EXPECT_EQ(Ask(spin, SPIN_SETREVERSED, 0), 0);
    EXPECT_EQ(Ask(spin, SPIN_GETREVERSED), 0);
    Ask(spin, WM_TIMER, 501);
    EXPECT_EQ(Notes(), (std::vector{Step(spin, SB_LINEDOWN, 6, WM_HSCROLL)}));
    Ask(spin, WM_CANCELMODE);
    EXPECT_EQ(Timers(), 0u);
    EXPECT_EQ(GetCapture(), nullptr);
}

TEST_F(SpinControl, AnnouncesARangeBeforeItHolds) {
    const HWND spin = MakeVertical();
    const auto low = LOWORD(reinterpret_cast<ULONG_PTR>(spin));
    const Notification announcement{WM_COMMAND, kControlId, MAKELPARAM(low, 3)};
    const auto moves = [&](WORD position) {
        return std::vector{announcement, {WM_VSCROLL, SB_THUMBTRACK, position}};
    };
    EXPECT_EQ(Ask(spin, SPIN_SETRANGE, 0, MAKELPARAM(5, 5)), -1);
    EXPECT_EQ(Ask(spin, SPIN_SETRANGE, 0, MAKELPARAM(0xFFFF, 5)), -1) << "unsigned";
    EXPECT_TRUE(Notes().empty());
    EXPECT_EQ(Ask(spin, SPIN_SETRANGE, 0, MAKELPARAM(0, 20)), MAKELONG(0, 9));
    EXPECT_EQ(Notes(), (std::vector{announcement}));
    EXPECT_EQ(Ask(spin, SPIN_SETPOS, 10), 5);
    Notes();
    LRESULT rangeThen = 0;
    OnNote([&] { rangeThen = Ask(spin, SPIN_GETRANGE); });
    EXPECT_EQ(Ask(spin, SPIN_SETRANGE, 0, MAKELPARAM(0, 10)), MAKELONG(0, 20));
    EXPECT_EQ(rangeThen, MAKELONG(0, 20));
    EXPECT_EQ(Notes(), moves(5)) << "at the end is not between";
    EXPECT_EQ(Ask(spin, SPIN_SETRANGE, 0, MAKELPARAM(5, 12)), MAKELONG(0, 10));
    EXPECT_EQ(Notes(), moves(8)) << "nor at the start";
    // Minimum 1, maximum -1: below as unsigned numbers; nothing lies between as signed ones.
    EXPECT_EQ(Ask(spin, SPIN_SETRANGE, 0, MAKELPARAM(1, 0xFFFF)), MAKELONG(5, 12));
    EXPECT_EQ(Notes(), moves(0));
    EXPECT_EQ(Ask(spin, SPIN_GETRANGE), 0xFFFF0001);
    EXPECT_EQ(Ask(spin, SPIN_SETRANGE, 0, MAKELPARAM(0, 9)), static_cast<LONG>(0xFFFF0001));
}

TEST_F(SpinControl, SetsPositionsInsideTheRangeAlone) {
    const HWND spin = MakeVertical();
    EXPECT_EQ(Ask(spin, SPIN_SETPOS, 0), 5);
    EXPECT_EQ(Ask(spin, SPIN_SETPOS, 9), 0);
    EXPECT_EQ(Notes(), (std::vector<Notification>{{WM_VSCROLL, SB_THUMBTRACK, 0},
                                                  {WM_VSCROLL, SB_THUMBTRACK, 9}}));
    EXPECT_EQ(Ask(spin, SPIN_SETPOS, 10), -1);
    EXPECT_EQ(Ask(spin, SPIN_SETPOS, 0x10001), -1) << "32 bits count";
    EXPECT_EQ(Ask(spin, SPIN_SETPOS, static_cast<WPARAM>(-1)), -1);
    EXPECT_EQ(Ask(spin, SPIN_GETPOS), 9);
    EXPECT_TRUE(Notes().empty());
    // Nor does a step leave it.
    PointAt(spin, WM_LBUTTONDOWN, 7, 15);
    EXPECT_EQ(Notes(), (std::vector{Step(spin, SB_LINEDOWN, 9)}));
    Ask(spin, SPIN_SETSILENT, 1);
    Ask(spin, WM_TIMER, 501);
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
    EXPECT_EQ(Ask(spin, SPIN_SETTARGET, Window(spin)), Window(parent));
    EXPECT_EQ(Ask(spin, SPIN_SETTARGET, 0x7777), -1);
    EXPECT_EQ(Ask(spin, SPIN_GETTARGET), Window(parent));
    EXPECT_EQ(Ask(spin, SPIN_SETPOS, 6), 5);
    EXPECT_EQ(Notes().size(), 1u) << "the parent is still the target";
    EXPECT_EQ(Ask(spin, SPIN_GETCOLOR, 4), -1);
    EXPECT_EQ(Ask(spin, SPIN_SETCOLOR, 4, 0x80000001), 0xFFFFFFFF);
    EXPECT_EQ(Ask(spin, SPIN_GETCOLOR, 4), static_cast<int32_t>(0x80000001));
    EXPECT_EQ(Ask(spin, SPIN_SETCOLOR, 4, -1), 0x80000001);
    EXPECT_EQ(Ask(spin, SPIN_SETCOLOR, 5, 1), 0);
    EXPECT_EQ(Ask(spin, SPIN_GETCOLOR, 5), 0);
    EXPECT_EQ(Ask(spin, WM_USER), 0);
    EXPECT_EQ(Ask(spin, WM_USER + 13), 0);
}

// A vertical control of 15 x 20 pixels.
enum VerticalPicture { kRaised, kUpperPressed, kLowerPressed, kBothPressed, kDisabled };
const std::vector<std::string> kVertical = tests::Pictures(R"(
FFFFFFFFFFFFFFF FFFFFFFFFFFFFFF FFFFFFFFFFFFFFF FFFFFFFFFFFFFFF FFFFFFFFFFFFFFF
FHHHHHHHHHHHHsF FsssssssssssssF FHHHHHHHHHHHHsF FsssssssssssssF FHHHHHHHHHHHHsF
FH..........ssF Fs............F FH..........ssF Fs............F FH..........ssF
FH.....a....ssF Fs............F FH.....a....ssF Fs............F FH.....a....ssF
FH....aaa...ssF Fs......a.....F FH....aaa...ssF Fs......a.....F FH....a.....ssF
FH...aaaaa..ssF Fs.....aaa....F FH...aaaaa..ssF Fs.....aaa....F FH...a......ssF
FH..aaaaaaa.ssF Fs....aaaaa...F FH..aaaaaaa.ssF Fs....aaaaa...F FH..HHHHHH..ssF
FH..........ssF Fs...aaaaaaa..F FH..........ssF Fs...aaaaaaa..F FH..........ssF
FHssssssssssssF Fs............F FHssssssssssssF Fs............F FHssssssssssssF
FsssssssssssssF Fs............F FsssssssssssssF Fs............F FsssssssssssssF
FFFFFFFFFFFFFFF FFFFFFFFFFFFFFF FFFFFFFFFFFFFFF FFFFFFFFFFFFFFF FFFFFFFFFFFFFFF
FHHHHHHHHHHHHsF FHHHHHHHHHHHHsF FsssssssssssssF FsssssssssssssF FHHHHHHHHHHHHsF
FH..........ssF FH..........ssF Fs............F Fs............F FH..........ssF
FH..aaaaaaa.ssF FH..aaaaaaa.ssF Fs............F Fs............F FH..aaaaaaH.ssF
FH...aaaaa..ssF FH...aaaaa..ssF Fs...aaaaaaa..F Fs...aaaaaaa..F FH.......H..ssF
FH....aaa...ssF FH....aaa...ssF Fs....aaaaa...F Fs....aaaaa...F FH......H...ssF
FH.....a....ssF FH.....a....ssF Fs.....aaa....F Fs.....aaa....F FH.....H....ssF
FHssssssssssssF FHssssssssssssF Fs......a.....F Fs......a.....F FHssssssssssssF
FsssssssssssssF FsssssssssssssF Fs............F Fs............F FsssssssssssssF
FFFFFFFFFFFFFFF FFFFFFFFFFFFFFF FFFFFFFFFFFFFFF FFFFFFFFFFFFFFF FFFFFFFFFFFFFFF
)");

TEST_F(SpinControl, DrawsItsHalvesRaisedPressedAndDisabled) {
    const HWND spin = MakeVertical();
    EXPECT_EQ(Picture(spin), kVertical[kRaised]);
    PointAt(spin, WM_LBUTTONDOWN, 7, 3);
    EXPECT_EQ(Picture(spin), kVertical[kUpperPressed]);
    PointAt(spin, WM_MOUSEMOVE, 7, -1);
    EXPECT_EQ(Picture(spin), kVertical[kRaised]) << "the pointer is outside";
    PointAt(spin, WM_LBUTTONUP, 7, -1);
    EXPECT_EQ(Picture(spin), kVertical[kRaised]);
    // A pointer that passes before the press does not count as having left it.
    PointAt(spin, WM_MOUSEMOVE, 7, 11);
    PointAt(spin, WM_LBUTTONDOWN, 7, 11);
    EXPECT_EQ(Picture(spin), kVertical[kLowerPressed]);
    PointAt(spin, WM_LBUTTONUP, 7, 11);
    EnableWindow(spin, FALSE);
    EXPECT_EQ(Picture(spin), kVertical[kDisabled]);
    EnableWindow(spin, TRUE);
    EXPECT_EQ(Picture(spin), kVertical[kRaised]);
}

TEST_F(SpinControl, KeepsTheTracesOfPressesThatWereNotReleased) {
    const HWND spin = MakeVertical();
    machine->windows().Settle();
    PointAt(spin, WM_LBUTTONDOWN, 7, 3);
    PointAt(spin, WM_MOUSEMOVE, 7, 15);
    Ask(spin, WM_CANCELMODE);
    Notes();
    PointAt(spin, WM_LBUTTONDOWN, 7, 3);
    EXPECT_EQ(Notes().size(), 1u);
    machine->windows().Advance(400);
    EXPECT_TRUE(Notes().empty());
    EXPECT_EQ(Picture(spin), kVertical[kRaised]);
    PointAt(spin, WM_MOUSEMOVE, 7, 3);
    machine->windows().Advance(50);
    EXPECT_EQ(Notes().size(), 1u);
    Ask(spin, WM_CANCELMODE);
    Ask(spin, WM_TIMER, 501);
    EXPECT_TRUE(Notes().empty());
    EXPECT_EQ(Picture(spin), kVertical[kUpperPressed]) << "cancelling repaints nothing";
    // Two presses without a release between: both halves are released, the second one repainted.
    PointAt(spin, WM_LBUTTONDOWN, 7, 3);
    PointAt(spin, WM_LBUTTONDOWN, 7, 15);
    InvalidateRect(spin, nullptr, TRUE);
    EXPECT_EQ(Picture(spin), kVertical[kBothPressed]);
    PointAt(spin, WM_LBUTTONUP, 7, 15);
    EXPECT_EQ(Picture(spin), kVertical[kUpperPressed]);
}

TEST_F(SpinControl, RepaintsWhatChangesAtOnce) {
    struct Row {
        UINT message;
        WPARAM wParam;
        int x, y;
        RECT changed;
    };
    const auto check = [](HWND spin, int width, int height, const std::vector<Row>& rows) {
        for (const Row& row : rows) {
            Flood(spin);
            SendMessageW(spin, row.message, row.wParam, MAKELPARAM(row.x, row.y));
            EXPECT_EQ(Drawn(spin, width, height), Sides(row.changed)) << row.message;
        }
    };
    const HWND vertical = MakeVertical();
    machine->windows().Settle();
    OnNote([&] {
        EXPECT_EQ(Drawn(vertical, 15, 20), Sides({0, 0, 15, 11})) << "before the first step";
        EXPECT_EQ(GetCapture(), nullptr);
        EXPECT_EQ(Timers(), 0u);
    });
    check(vertical, 15, 20,
          {{WM_LBUTTONDOWN, 0, 7, 3, {0, 0, 15, 11}},
           {WM_MOUSEMOVE, 0, 7, 15, {0, 0, 15, 11}},
           {WM_LBUTTONUP, 0, 7, 15, {0, 0, 15, 11}},
           {WM_LBUTTONDOWN, 0, 7, 15, {0, 10, 15, 20}},
           {WM_LBUTTONUP, 0, 7, 15, {0, 10, 15, 20}},
           {WM_ENABLE, FALSE, 0, 0, {0, 0, 15, 20}},
           {SPIN_SETCOLOR, 0, 0, 0, {0, 0, 15, 20}}});
    EXPECT_EQ(Notes().size(), 2u);
    DestroyWindow(vertical);
    const HWND horizontal = Make(kSpinClassName, 0, 24, 13);
    machine->windows().Settle();
    check(horizontal, 24, 13,
          {{WM_LBUTTONDOWN, 0, 3, 3, {0, 0, 13, 13}},
           {WM_LBUTTONUP, 0, 3, 3, {0, 0, 13, 13}},
           {WM_LBUTTONDOWN, 0, 20, 3, {12, 0, 24, 13}},
           {WM_LBUTTONUP, 0, 20, 3, {12, 0, 24, 13}}});
}

TEST_F(SpinControl, DrawsHorizontalHalvesAlike) {
    // Raised, right half pressed, disabled.
    const auto expected = tests::Pictures(R"(
FFFFFFFFFFFFFFFFFFFFFFFF FFFFFFFFFFFFFFFFFFFFFFFF FFFFFFFFFFFFFFFFFFFFFFFF
FHHHHHHHHHHsFHHHHHHHHHsF FHHHHHHHHHHsFssssssssssF FHHHHHHHHHHsFHHHHHHHHHsF
FH........ssFH.......ssF FH........ssFs.........F FH........ssFH.......ssF
FH.....a..ssFH..a....ssF FH.....a..ssFs.........F FH.....H..ssFH..a....ssF
FH....aa..ssFH..aa...ssF FH....aa..ssFs...a.....F FH....aH..ssFH..a....ssF
FH...aaa..ssFH..aaa..ssF FH...aaa..ssFs...aa....F FH...a.H..ssFH..a....ssF
FH..aaaa..ssFH..aaaa.ssF FH..aaaa..ssFs...aaa...F FH..a..H..ssFH..a..H.ssF
FH...aaa..ssFH..aaa..ssF FH...aaa..ssFs...aaaa..F FH.....H..ssFH..a.H..ssF
FH....aa..ssFH..aa...ssF FH....aa..ssFs...aaa...F FH.....H..ssFH..aH...ssF
FH.....a..ssFH..a....ssF FH.....a..ssFs...aa....F FH........ssFH.......ssF
FHssssssssssFHsssssssssF FHssssssssssFs...a.....F FHssssssssssFHsssssssssF
FsssssssssssFssssssssssF FsssssssssssFs.........F FsssssssssssFssssssssssF
FFFFFFFFFFFFFFFFFFFFFFFF FFFFFFFFFFFFFFFFFFFFFFFF FFFFFFFFFFFFFFFFFFFFFFFF
)");
    const HWND spin = Make(kSpinClassName, 0, 24, 13);
    EXPECT_EQ(Picture(spin), expected[0]);
    PointAt(spin, WM_LBUTTONDOWN, 20, 3);
    EXPECT_EQ(Picture(spin), expected[1]);
    PointAt(spin, WM_LBUTTONUP, 20, 3);
    EnableWindow(spin, FALSE);
    EXPECT_EQ(Picture(spin), expected[2]);
}

TEST_F(SpinControl, DrawsWithTheColoursOfItsSlots) {
    const HWND spin = MakeVertical();
    const std::string plain = Picture(spin);
    for (const auto& [slot, color] : {std::pair{0, tests::kParent}, {1, tests::kLight},
                                      {2, tests::kText}, {3, tests::kFrame}, {4, tests::kShadow}}) {
        Ask(spin, SPIN_SETCOLOR, static_cast<WPARAM>(slot), static_cast<LPARAM>(color));
    }
    const std::map<char, char> change{{'.', '~'}, {'a', 'H'}, {'s', 'a'}, {'H', 'F'}, {'F', 's'}};
    std::string expected = plain;
    for (char& pixel : expected) {
        pixel = change.contains(pixel) ? change.at(pixel) : pixel;
    }
    EXPECT_EQ(Picture(spin), expected);
    for (WPARAM slot = 0; slot < kSpinColors; ++slot) {
        Ask(spin, SPIN_SETCOLOR, slot, kDefaultColor);
    }
    EXPECT_EQ(Picture(spin), plain);
}

TEST_F(SpinControl, RepeatsNothingWhenTheTargetEndsThePress) {
    for (const auto end :
         {+[](HWND spin) { DestroyWindow(spin); }, +[](HWND spin) { EnableWindow(spin, FALSE); },
          +[](HWND spin) { PointAt(spin, WM_LBUTTONUP, 7, 3); }}) {
        const HWND spin = MakeVertical();
        OnNote([&] { end(spin); });
        PointAt(spin, WM_LBUTTONDOWN, 7, 3);
        EXPECT_EQ(GetCapture(), nullptr);
        EXPECT_EQ(Timers(), 0u);
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
    for (const UINT message : {WM_NCDESTROY, SPIN_GETPOS, WM_LBUTTONDOWN, WM_PAINT}) {
        EXPECT_EQ(Ask(spin, message), 0) << "it has none any more";
    }
}

TEST_F(SpinControl, PaintsWhatItCanWithoutPensAndBrushes) {
    ExpectNoDrawingWithoutTools(MakeVertical(), 'a');
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
