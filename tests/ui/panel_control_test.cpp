#include "ui/panel_control.h"

#include <algorithm>

#include "tests/ui/control_fixture.h"

namespace ksfax {
namespace {

class PanelControl : public tests::ControlTest {
  protected:
    PanelControl() { RegisterPanelClass(nullptr); }
    ~PanelControl() override {
        DestroyWindow(parent);
        UnregisterPanelClass(nullptr);
    }
    std::string Draw(DWORD style, int width, int height, LPCWSTR text) {
        const HWND panel = Make(kPanelClassName, style, width, height, text);
        const std::string picture = Picture(panel);
        DestroyWindow(panel);
        machine->windows().Settle();
        return picture;
    }
    std::string Set(HWND panel, LPCWSTR text) {
        EXPECT_EQ(SendMessageW(panel, WM_SETTEXT, 0, reinterpret_cast<LPARAM>(text)), 0);
        return Picture(panel);
    }
    static auto Count(const std::string& picture, char pixel) {
        return std::ranges::count(picture, pixel);
    }
};

TEST_F(PanelControl, DrawsRingsAsWideAsItsTextSays) {
    // The inside is the parent's.
    const auto expected = tests::Pictures(R"(
aaaaaaaaaH HHHHHHHHHa
aaaaaaaaHH HHHHHHHHaa
aa~~~~~~HH HH~~~~~~aa
aa~~~~~~HH HH~~~~~~aa
aa~~~~~~HH HH~~~~~~aa
aa~~~~~~HH HH~~~~~~aa
aaHHHHHHHH HHaaaaaaaa
aHHHHHHHHH Haaaaaaaaa
)");
    EXPECT_EQ(Draw(0, 10, 8, TEXT("2,0,0")), expected[0]);
    EXPECT_EQ(Draw(PANELS_RAISED, 10, 8, TEXT("2,0,0")), expected[1]);
    const std::string bare = Draw(0, 8, 6, TEXT("2"));
    EXPECT_EQ(Count(bare, '~'), 8 * 6) << "a text of one number gives no bevel";
    EXPECT_EQ(Draw(0, 8, 6, nullptr), bare);
    EXPECT_EQ(Draw(PANELS_RAISED, 8, 6, TEXT("0,0,0")), bare);
}

TEST_F(PanelControl, FillsAndFramesItsInside) {
    EXPECT_EQ(Draw(PANELS_FILLED | PANELS_FRAMED | PANELS_RAISED, 12, 9, TEXT("1,0,0")), R"(
...........~
.HHHHHHHHHa~
.HFFFFFFF.a~
.HF.....F.a~
.HF.....F.a~
.HFFFFFFF.a~
.H........a~
.Haaaaaaaaa~
~~~~~~~~~~~~
)");
    EXPECT_EQ(Draw(PANELS_FRAMED, 10, 8, TEXT("1,0,0")), R"(
aaaaaaaaaH
aFFFFFFF~H
aF.....F~H
aF.....F~H
aF.....F~H
aFFFFFFF~H
a~~~~~~~~H
aHHHHHHHHH
)");
}

TEST_F(PanelControl, EtchesItsFrameInsideTheBevelWidth) {
    const auto expected = tests::Pictures(R"(
.............~ .............~
.sssssssssss.~ .FFFFFFFFFFF.~
.ssssssssss.H~ .F.........FH~
.ss........HH~ .F.........FH~
.ss........HH~ .F.........FH~
.ss........HH~ .F.........FH~
.ss........HH~ .F.........FH~
.ss.HHHHHHHHH~ .FFFFFFFFFFFH~
.s.HHHHHHHHHH~ .s.HHHHHHHHHH~
~~~~~~~~~~~~~~ ~~~~~~~~~~~~~~
)");
    for (const DWORD filled : {DWORD{0}, PANELS_FILLED}) {  // a captioned panel is filled once
        const DWORD style = PANELS_CAPTIONED | filled;
        EXPECT_EQ(Draw(style, 14, 10, TEXT("1,0,0")), expected[0]);
        EXPECT_EQ(Draw(style | PANELS_FRAMED, 14, 10, TEXT("1,0,0")), expected[1]);
    }
}

TEST_F(PanelControl, EndsWithTheWidestBevel) {
    // 65535 rings in a panel of 4 x 4 pixels: those that can be seen cross it from all sides.
    EXPECT_EQ(Count(Draw(0, 4, 4, TEXT("65535,0,0")), '~'), 0);
    // What is left inside is turned inside out, and its frame lies beyond the panel.
    EXPECT_EQ(Count(Draw(PANELS_FRAMED, 10, 7, TEXT("20,0,0")), '.'), 10 * 7);
}

TEST_F(PanelControl, WrapsItsCaptionInTheFrameColour) {
    const HWND panel = Make(kPanelClassName, PANELS_CAPTIONED, 70, 60, TEXT("2,0,0"));
    const std::string empty = Picture(panel);
    EXPECT_EQ(Count(empty, 'F'), 0) << "the creation text is no caption";
    const std::string one = Set(panel, TEXT("Receivers"));
    EXPECT_GT(Count(one, 'F'), 10);
    EXPECT_EQ(Count(one, 'H'), Count(empty, 'H')) << "on the face colour";
    const std::string two = Set(panel, TEXT("Receivers Receivers"));
    EXPECT_EQ(Count(two, 'F'), 2 * Count(one, 'F')) << "the second word on a line of its own";
    EXPECT_EQ(two.substr(0, 71 * 17), one.substr(0, 71 * 17)) << "the first line is the same";
    // A line of the dialogs' font is 13 pixels high.
    EXPECT_EQ(two.substr(71 * (5 + 13), 71 * 13), one.substr(71 * 5, 71 * 13));
    EXPECT_EQ(Set(panel, nullptr), empty);
    EXPECT_NE(Set(panel, TEXT("x")), empty);
    EXPECT_EQ(machine->windows().TextOf(panel), u"") << "the window has no text";
    EXPECT_EQ(Set(panel, TEXT("")), empty);
    // Full blocks, a line too long and too many lines, fill the caption's rectangle.
    const std::u16string line(20, u'\u2588');
    const auto full = Set(panel, (line + u" " + line + u" " + line + u" " + line).c_str());
    const auto changes = [&](int x, int y) {
        return full[1 + 71 * y + x] != empty[1 + 71 * y + x];
    };
    EXPECT_EQ(Around(70, 60, changes), Sides({7, 5, 62, 55}));
}

TEST_F(PanelControl, CutsALongCaptionBeforeAHalfCharacter) {
    const HWND panel = Make(kPanelClassName, PANELS_CAPTIONED, 70, 60, TEXT("2,0,0"));
    const auto caption = [&](const std::u16string& text) {
        Set(panel, text.c_str());
        const auto* state = reinterpret_cast<const PanelState*>(GetWindowLongPtrW(panel, 0));
        return std::u16string(state->caption);
    };
    EXPECT_EQ(caption(std::u16string(255, u'a')), std::u16string(255, u'a'));
    EXPECT_EQ(caption(std::u16string(300, u'b')), std::u16string(255, u'b'));
    EXPECT_EQ(caption(std::u16string(254, u'c') + u"\U0001F4E0"), std::u16string(254, u'c'));
    EXPECT_EQ(caption(std::u16string(253, u'd') + u"\U0001F4E0!"),
              std::u16string(253, u'd') + u"\U0001F4E0");
}

TEST_F(PanelControl, LeavesNothingBehindWhenSomethingFails) {
    for (const char* name : {"LocalAlloc", "SetWindowLongPtrW"}) {
        machine->faults.FailCall(name);
        EXPECT_EQ(Make(kPanelClassName, 0, 9, 9, nullptr), nullptr) << name;
        machine->faults.Clear();
    }
    const HWND panel = Make(kPanelClassName, PANELS_FILLED | PANELS_FRAMED, 9, 9, TEXT("2,0,0"));
    ExpectNoDrawingWithoutTools(panel, 'F');
    // Without its state it is a window like any other.
    SendMessageW(panel, WM_NCDESTROY, 0, 0);
    SetWindowTextW(panel, TEXT("text"));
    SendMessageW(panel, WM_PAINT, 0, 0);
    EXPECT_EQ(machine->windows().TextOf(panel), u"text");
}

}  // namespace
}  // namespace ksfax
