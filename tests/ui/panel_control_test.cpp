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
    static unsigned Ink(const std::string& picture) {
        return static_cast<unsigned>(std::ranges::count(picture, 'F'));
    }
};

TEST_F(PanelControl, DrawsRingsAsWideAsItsTextSays) {
    EXPECT_EQ(Draw(0, 10, 8, TEXT("2,0,0")), R"(
aaaaaaaaaH
aaaaaaaaHH
aa~~~~~~HH
aa~~~~~~HH
aa~~~~~~HH
aa~~~~~~HH
aaHHHHHHHH
aHHHHHHHHH
)") << "sunken; the inside is the parent's";
    EXPECT_EQ(Draw(PANELS_RAISED, 10, 8, TEXT("2,0,0")), R"(
HHHHHHHHHa
HHHHHHHHaa
HH~~~~~~aa
HH~~~~~~aa
HH~~~~~~aa
HH~~~~~~aa
HHaaaaaaaa
Haaaaaaaaa
)") << "raised";
    const std::string bare = Draw(0, 8, 6, TEXT("2"));
    EXPECT_EQ(bare, R"(
~~~~~~~~
~~~~~~~~
~~~~~~~~
~~~~~~~~
~~~~~~~~
~~~~~~~~
)") << "a text of one number gives no bevel";
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
    EXPECT_EQ(Draw(PANELS_CAPTIONED, 14, 10, TEXT("1,0,0")), R"(
.............~
.sssssssssss.~
.ssssssssss.H~
.ss........HH~
.ss........HH~
.ss........HH~
.ss........HH~
.ss.HHHHHHHHH~
.s.HHHHHHHHHH~
~~~~~~~~~~~~~~
)");
}

TEST_F(PanelControl, EndsWithTheWidestBevel) {
    // 65535 rings in a window of 80 pixels: those that can be seen cross it from all sides.
    const std::string picture = Draw(0, 4, 4, TEXT("65535,0,0"));
    EXPECT_EQ(picture.find('~'), std::string::npos);
}

TEST_F(PanelControl, WrapsItsCaptionInTheFrameColour) {
    const HWND panel = Make(kPanelClassName, PANELS_CAPTIONED, 70, 60, TEXT("2,0,0"));
    const std::string empty = Picture(panel);
    EXPECT_EQ(Ink(empty), 0u) << "the creation text is no caption";
    const auto set = [&](LPCWSTR text) {
        EXPECT_EQ(SendMessageW(panel, WM_SETTEXT, 0, reinterpret_cast<LPARAM>(text)), 0);
        return Picture(panel);
    };
    const std::string one = set(TEXT("Receivers"));
    EXPECT_GT(Ink(one), 10u);
    const std::string two = set(TEXT("Receivers Receivers"));
    EXPECT_EQ(Ink(two), 2 * Ink(one)) << "the second word on a line of its own";
    EXPECT_EQ(two.substr(0, 71 * 17), one.substr(0, 71 * 17)) << "the first line is the same";
    EXPECT_EQ(set(nullptr), empty);
    EXPECT_NE(set(TEXT("x")), empty);
    EXPECT_EQ(set(TEXT("")), empty);
}

TEST_F(PanelControl, CutsALongCaptionBeforeAHalfCharacter) {
    const HWND panel = Make(kPanelClassName, PANELS_CAPTIONED, 70, 60, TEXT("2,0,0"));
    const auto caption = [&](const std::u16string& text) {
        SendMessageW(panel, WM_SETTEXT, 0, reinterpret_cast<LPARAM>(text.c_str()));
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
    machine->windows().Settle();
    for (const char* name : {"CreatePen", "CreateSolidBrush", "BeginPaint"}) {
        machine->faults.FailCall(name, 1, true);
        InvalidateRect(panel, nullptr, TRUE);
        UpdateWindow(panel);
        machine->faults.Clear();
        EXPECT_EQ(machine->OpenNow().graphicsObjects, 0u) << name;
        EXPECT_EQ(machine->OpenNow().contexts, 0u) << name;
    }
}

}  // namespace
}  // namespace ksfax
