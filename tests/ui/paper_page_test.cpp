#include <map>

#include "capabilities/paper_names.h"
#include "tests/ui/ui_machine.h"
#include "tool/record_fields.h"
#include "ui/paper_page.h"
#include "ui/paper_settings.h"

namespace ksfax {
namespace {

// The page under a user whose acts are noted, with whatever each changed.
class PaperPage : public tests::UiMachine {
  protected:
    using UiMachine::UiMachine;

    JobSettings& settings() { return SessionOf(page)->jobSettings; }
    PrivateJobSettings& part() { return PrivatePart(settings()); }
    HWND Control(int id) { return GetDlgItem(page, id); }
    bool Choose(int item) { return windows.Choose(Control(IDC_PAPER_SIZE), item); }
    LRESULT Send(UINT message, WPARAM wParam, LPARAM lParam = 0) {
        return SendMessageW(page, message, wParam, lParam);
    }

    using Facts = std::map<std::string, std::string>;

    static void AddFields(const JobSettings& settings, Facts& facts) {
        const auto* bytes = reinterpret_cast<const uint8_t*>(&settings);
        for (const tool::RecordField& field : tool::kRecordFields) {
            if (field.part != tool::RecordPart::Device) {
                const bool isPublic = field.part == tool::RecordPart::Public;
                const uint8_t* first = bytes + field.offset + (isPublic ? 0 : kPublicSize);
                uint32_t value = 0;
                std::memcpy(&value, first, std::min(field.width, sizeof value));
                std::string& text = facts[std::string(field.name)];
                text = std::to_string(value);
                for (size_t at = sizeof value; at < field.width; ++at) {
                    text += "." + std::to_string(first[at]);
                }
            }
        }
    }
    // All that there is to see of the page, and what the settings say.
    Facts State() {
        Facts facts;
        for (const HWND control : windows.Descendants(page)) {
            const int id = GetWindowLongW(control, GWL_ID);
            std::string text = embedded::Utf8(windows.TextOf(control));
            text += IsWindowVisible(control) ? "" : " hidden";
            text += IsWindowEnabled(control) ? "" : " disabled";
            text += SendMessageW(control, BM_GETCHECK, 0, 0) == BST_CHECKED ? " checked" : "";
            text += GetFocus() == control ? " focus" : "";
            text += (GetWindowLongW(control, GWL_STYLE) & WS_GROUP) != 0 ? " group" : "";
            RECT at{};
            GetWindowRect(control, &at);
            ToClientArea(page, &at);
            for (const LONG side : {at.left, at.top, at.right, at.bottom}) {
                text += " " + std::to_string(side);
            }
            facts["control " + std::to_string(id)] = text;
        }
        // Pictures are told apart by the order in which they come.
        const auto pixels = windows.Picture(Control(IDC_PAPER_PICTURE)).pixels;
        facts["picture"] =
            std::to_string(pictures.try_emplace(pixels, pictures.size()).first->second);
        const HWND box = Control(IDC_PAPER_SIZE);
        const LRESULT count = SendMessageW(box, CB_GETCOUNT, 0, 0);
        for (WPARAM item = 0; item < static_cast<WPARAM>(count); ++item) {
            WCHAR text[300];
            SendMessageW(box, CB_GETLBTEXT, item, reinterpret_cast<LPARAM>(text));
            facts["papers"] += embedded::Utf8(text) + "=" +
                               std::to_string(SendMessageW(box, CB_GETITEMDATA, item, 0)) + "; ";
        }
        facts["selected"] = std::to_string(SendMessageW(box, CB_GETCURSEL, 0, 0));
        AddFields(settings(), facts);
        return facts;
    }
    // Notes what is another than last time, and at first whatever is not as the caller gave it.
    void Note(const std::string& act) {
        text += act + (changes != 0 ? ": told the sheet" : ":") +
                (changes > 1 ? " more than once\n" : "\n");
        changes = 0;
        const auto now = State();
        for (const auto& [fact, value] : now) {
            if (before.contains(fact) ? before[fact] != value : !value.empty()) {
                std::string line = value;
                std::ranges::replace(line, '\n', '|');
                text += "    " + fact + ": " + line + "\n";
            }
        }
        before = now;
    }
    // Shows the page to `user`, and notes how it came up unless `what` is empty.
    LONG Show(const char* what, std::function<void(Sheet&)> user, JobSettings* input = nullptr,
              DWORD mode = DM_IN_PROMPT | DM_OUT_BUFFER) {
        running = this;
        before.clear();
        AddFields(input != nullptr ? *input : DefaultRecord(), before);
        return ShowDocument(
            [&](Sheet& sheet) {
                page = sheet.page();
                sheetProcedure = reinterpret_cast<DLGPROC>(SetWindowLongPtrW(
                    sheet.window(), DWLP_DLGPROC, reinterpret_cast<LONG_PTR>(CountChanges)));
                if (*what != 0) {
                    Note(what);
                }
                user(sheet);
                SetWindowLongPtrW(sheet.window(), DWLP_DLGPROC,
                                  reinterpret_cast<LONG_PTR>(sheetProcedure));
            },
            input, mode);
    }
    // Has the page come up once more in its window, now on these settings.
    void ComeUpAgain(short paper, short orientation) {
        PROPSHEETPAGEW record{};
        record.lParam = reinterpret_cast<LPARAM>(SessionOf(page));
        settings().devMode.dmPaperSize = paper;
        settings().devMode.dmOrientation = orientation;
        DeleteObject(SessionOf(page)->pageBrush);
        PaperPageProc(page, WM_INITDIALOG, 0, reinterpret_cast<LPARAM>(&record));
    }

    HWND page = nullptr;
    std::string text;
    Facts before;
    std::map<std::vector<uint32_t>, size_t> pictures;

  private:
    static INT_PTR CALLBACK CountChanges(HWND window, UINT message, WPARAM wParam, LPARAM lParam) {
        if (message == PSM_CHANGED) {
            EXPECT_EQ(reinterpret_cast<HWND>(wParam), running->page);
            EXPECT_EQ(lParam, 0);
            ++running->changes;
        }
        return running->sheetProcedure(window, message, wParam, lParam);
    }
    unsigned changes = 0;
    DLGPROC sheetProcedure = nullptr;
    static inline PaperPage* running;
};

TEST_F(PaperPage, ShowsAndWritesWhatTheUserChooses) {
    JobSettings input = DefaultRecord();
    input.devMode.dmPaperSize = DMPAPER_A4;
    input.devMode.dmOrientation = DMORIENT_LANDSCAPE;
    PrivatePart(input).faxResolution = 1;
    const auto spoil = [](auto&... fields) { ((fields = 77), ...); };
    const auto spoilAll = [&](Sheet&) {
        DEVMODEW& open = settings().devMode;
        spoil(open.dmCollate, open.dmCopies, open.dmScale, open.dmDefaultSource,
              part().collateRequested, part().counterGate, part().mediaType, part().paperChanged,
              part().defaultsMarker, part().pagesPerSheetOut, part().pagesPerSheet,
              part().defaultsMarkerOut, part().source1, part().source2, part().reserved429,
              part().pagePaperSize);
        Note("other settings of everything");
    };
    const auto user = [&](Sheet& sheet) {
        const auto click = [&](int id) { Click(page, id), Note("click " + std::to_string(id)); };
        const auto choose = [&](int item) { Choose(item), Note("choose " + std::to_string(item)); };
        const auto command = [&](int id, WORD notification) {
            Send(WM_COMMAND, MAKEWPARAM(id, notification));
            Note("notification " + std::to_string(notification) + " of " + std::to_string(id));
        };
        spoilAll(sheet);
        for (const int item : {2, 2, 3, 4, 5}) {
            choose(item);
        }
        command(IDC_PAPER_SIZE, 2);
        for (const int id : {IDC_PORTRAIT, IDC_PORTRAIT, IDC_LANDSCAPE, IDC_RESOLUTION_200X100,
                             IDC_RESOLUTION_200X200, IDC_RESOLUTION_200X100, IDC_PAPER_LABEL}) {
            click(id);
        }
        CheckRadioButton(page, IDC_PORTRAIT, IDC_LANDSCAPE, IDC_PORTRAIT);
        command(IDC_LANDSCAPE, 5);
        // A new paper has the picture painted anew, a new resolution has not.
        settings().devMode.dmOrientation = DMORIENT_LANDSCAPE;
        click(IDC_RESOLUTION_200X200);
        choose(2);
        spoilAll(sheet);
        click(IDC_DEFAULT);
        spoilAll(sheet);
        ComeUpAgain(300, 3);
        Note("come up again on a paper without a name, turned neither way");
        choose(1);
        EXPECT_TRUE(sheet.PressOk());
    };
    EXPECT_EQ(Show("come up on A4, landscape, coarse", user, &input), IDOK);
    EXPECT_EQ(output.devMode.dmPaperSize, DMPAPER_A4);
    // Whoever may not change the settings chooses the resolution alone.
    Show(
        "locked",
        [&](Sheet&) {
            EXPECT_FALSE(Click(page, IDC_LANDSCAPE));
            Click(page, IDC_RESOLUTION_200X100);
            Note("click 194");
        },
        nullptr, DM_IN_PROMPT | DM_NOPERMISSION);
    EXPECT_TRUE(IsRecorded("ui/paper_page.txt", text));
}

TEST_F(PaperPage, TakesTheFirstPaperForOneThatIsNotListed) {
    Show("", [&](Sheet&) {
        // The session itself refuses such papers. A code above 32767 is negative in the record
        // and matches no paper of the list.
        for (const short code : {short{8}, short{-1}, short{11}}) {
            ComeUpAgain(code, DMORIENT_PORTRAIT);
            EXPECT_EQ(settings().devMode.dmPaperSize, 1);
            EXPECT_EQ(part().pagePaperSize, 1);
        }
    });
}

class MetricPaperPage : public PaperPage {
  protected:
    MetricPaperPage() : PaperPage(tests::kPagePapers, {.country = 47}) {}
};
TEST_F(MetricPaperPage, RestoresA4) {
    Show("", [&](Sheet&) {
        Choose(0);
        Click(page, IDC_DEFAULT);
        EXPECT_EQ(settings().devMode.dmPaperSize, DMPAPER_A4);
    });
}

class PaperPageWithoutPapers : public PaperPage {
  protected:
    PaperPageWithoutPapers() : PaperPage("") {}
};
TEST_F(PaperPageWithoutPapers, ShowsNone) {
    const auto user = [&](Sheet& sheet) {
        const auto expectNothing = [&] {
            EXPECT_FALSE(before.contains("papers"));
            EXPECT_EQ(before["selected"], "-1");
            EXPECT_TRUE(before["control 163"].starts_with("undefined"));
            EXPECT_EQ(before["dmPaperSize"], "0");
        };
        expectNothing();
        Send(WM_COMMAND, MAKEWPARAM(IDC_PAPER_SIZE, CBN_SELCHANGE));
        Note("without a selection");
        EXPECT_TRUE(text.ends_with("without a selection:\n")) << "nothing changes";
        Click(page, IDC_DEFAULT);
        Note("default");
        expectNothing();
        sheet.PressOk();
    };
    EXPECT_EQ(Show("", [&](Sheet& sheet) { Note("up"), user(sheet); }), IDOK);
}

TEST_F(PaperPage, FitsACustomPapersNameToItsLabel) {
    Show("", [&](Sheet&) {
        const HWND label = Control(IDC_PAPER_LABEL);
        const auto show = [&](std::u16string_view paper) {
            std::fill(std::begin(part().customPaperName), std::end(part().customPaperName), u'\0');
            paper.copy(part().customPaperName, std::size(part().customPaperName));
            Choose(4);
            return windows.TextOf(label);
        };
        EXPECT_EQ(show(u""), u"undefined");
        EXPECT_EQ(show(u"My paper"), u"My paper");
        EXPECT_EQ(show(u"iiiiiiiiiiiiiiiii").size(), 17u) << "without its terminator";
        // Narrower labels keep eight letters or fewer without dots, and none at the end.
        const HDC context = GetDC(label);
        SIZE size{};
        GetTextExtentPoint32W(context, u"WWWWWWWWW", 9, &size);
        ReleaseDC(label, context);
        for (const auto& [width, shown] :
             {std::pair{size.cx, u"WWWWWWWW"}, {size.cx + 1, u"WWWWWW..."}, {LONG{1}, u""}}) {
            MoveWindow(label, 0, 0, width, 20, FALSE);
            EXPECT_EQ(show(u"WWWWWWWWWWWWWWWW"), shown) << width;
        }
        // No half of a character remains, whatever the width.
        const std::u16string_view pairs = u"\U0001D400\U0001D401W\U0001D402\U0001D403W\U0001D404";
        for (int width = 1; width < size.cx * 2; ++width) {
            MoveWindow(label, 0, 0, width, 20, FALSE);
            const std::u16string shown = show(pairs);
            for (size_t i = 0; i < shown.size(); ++i) {
                const bool isFirst = (shown[i] & 0xFC00) == 0xD800;
                const bool isSecond = i + 1 < shown.size() && (shown[i + 1] & 0xFC00) == 0xDC00;
                ASSERT_EQ(isFirst, isSecond) << width;
            }
        }
    });
}

TEST_F(PaperPage, ColoursItsLabelAndItsBackground) {
    constexpr COLORREF kBlue = 0xFF0000;
    constexpr COLORREF kWhite = 0xFFFFFF;
    Show("", [&](Sheet&) {
        auto& face = fax.machine.graphics().systemColors[COLOR_BTNFACE];
        const HDC context = GetDC(page);
        const auto ask = [&](int control) {
            SetTextColor(context, 5);
            SetBkColor(context, 5);
            return Send(WM_CTLCOLORSTATIC, reinterpret_cast<WPARAM>(context),
                        reinterpret_cast<LPARAM>(Control(control)));
        };
        EXPECT_NE(ask(IDC_RESOLUTION_TEXT), reinterpret_cast<LRESULT>(SessionOf(page)->pageBrush));
        EXPECT_NE(SetTextColor(context, 5), kBlue);
        for (const auto& [color, textColor] : {std::pair{face, kBlue}, {kBlue, kWhite}}) {
            face = color;
            EXPECT_EQ(ask(IDC_PAPER_LABEL), reinterpret_cast<LRESULT>(SessionOf(page)->pageBrush));
            EXPECT_EQ(SetTextColor(context, 5), textColor);
            EXPECT_EQ(SetBkColor(context, 5), face);
        }
        EXPECT_EQ(PaperPageProc(page, WM_ERASEBKGND, reinterpret_cast<WPARAM>(context), 0), TRUE);
        EXPECT_EQ(PixelsOf(context, 1, 1).At(0, 0), kBlue);
        ReleaseDC(page, context);
    });
}

TEST_F(PaperPage, RefreshesItsLabelWhenTheSettingsAskForIt) {
    Show("", [&](Sheet& sheet) {
        const auto activate = [&](uint8_t flags) {
            part().pageFlags = flags;
            SetDlgItemTextW(page, IDC_PAPER_LABEL, u"old");
            NMHDR activation{.hwndFrom = sheet.window(), .idFrom = 0, .code = PSN_SETACTIVE};
            Send(WM_NOTIFY, 0, reinterpret_cast<LPARAM>(&activation));
            return TextOf(page, IDC_PAPER_LABEL) + " " + std::to_string(part().pageFlags);
        };
        EXPECT_EQ(activate(0xEF), "old 239");
        EXPECT_EQ(activate(0xFF), "Letter\n8 \u00BD x 11 in 239");
        SendMessageW(Control(IDC_PAPER_SIZE), CB_SETCURSEL, static_cast<WPARAM>(-1), 0);
        EXPECT_EQ(activate(0x10), "old 0") << "nothing is selected";
    });
}

TEST_F(PaperPage, AppliesByItsOwnHandle) {
    static std::vector<LONG_PTR> told;
    Show("", [&](Sheet& sheet) {
        PrinterSession& session = *SessionOf(page);
        const auto callback = std::exchange(
            session.propSheetCallback,
            [](HANDLE handle, UINT function, LPARAM first, LPARAM second) -> LONG_PTR {
                told = {reinterpret_cast<LONG_PTR>(handle), LONG_PTR{function}, first, second};
                return 1;
            });
        NMHDR apply{.hwndFrom = sheet.window(), .idFrom = 0, .code = PSN_APPLY};
        EXPECT_EQ(PaperPageProc(page, WM_NOTIFY, 0, reinterpret_cast<LPARAM>(&apply)), TRUE);
        session.propSheetCallback = callback;
        const auto handle = reinterpret_cast<LONG_PTR>(session.propSheetPages[0]);
        EXPECT_EQ(told, (std::vector<LONG_PTR>{handle, 9, handle, 1}));
    });
}

TEST_F(PaperPage, AsksForContextHelp) {
    Show("", [&](Sheet&) {
        const HWND box = Control(IDC_PAPER_SIZE);
        HELPINFO info{};
        info.hItemHandle = box;
        Send(WM_HELP, 0, reinterpret_cast<LPARAM>(&info));
        Send(WM_CONTEXTMENU, reinterpret_cast<WPARAM>(box));
        const auto& requests = windows.helpRequests;
        ASSERT_EQ(requests.size(), 2u);
        EXPECT_EQ(requests[0].command, 12u);
        EXPECT_EQ(requests[1].command, 10u);
        for (const auto& request : requests) {
            EXPECT_EQ(request.window, box);
            EXPECT_TRUE(request.file.ends_with(u"\\pscript.hlp"));
            const auto* ids = reinterpret_cast<const DWORD*>(request.data);
            EXPECT_EQ(std::vector<DWORD>(ids, ids + 16),
                      (std::vector<DWORD>{169, 37120, 170, 37120, 175, 4864, 176, 4864, 177, 4864,
                                          193, 4864, 194, 4864, 0, 0}));
        }
    });
}

TEST_F(PaperPage, FallsBackToCommonPapersWithoutMemory) {
    for (const char* call : {"GlobalAlloc", "GlobalLock"}) {
        Show("", [&](Sheet&) {
            before = State();
            fax.machine.faults.FailCall(call);
            ComeUpAgain(DMPAPER_ENV_MONARCH, DMORIENT_PORTRAIT);
            EXPECT_TRUE(fax.machine.faults.struck());
            fax.machine.faults.Clear();
            EXPECT_EQ(SessionOf(page)->paperListBlock, nullptr);
            Note(call);
            Choose(5);
            Note("choose 5");
        });
    }
    EXPECT_TRUE(IsRecorded("ui/common_papers.txt", text));
}

TEST_F(PaperPage, KnowsTheLabelOfEveryCode) {
    for (uint32_t code = 0; code < 1100; ++code) {
        const UINT string = PaperLabelString(code);
        WCHAR label[80] = {};
        LoadStringW(fax.driver.instance(), string, label, 80);
        if (string != IDS_LABEL_UNDEFINED || code == 256) {
            text += std::to_string(code) + ": " + std::to_string(string) + " " +
                    embedded::Utf8(label) + "\n";
        }
    }
    EXPECT_TRUE(IsRecorded("ui/paper_labels.txt", text));
}

TEST_F(PaperPage, LeavesMessagesWithoutASessionAlone) {
    const HWND window = windows.Add(u"Dialog");
    for (const UINT message : {WM_COMMAND, WM_NOTIFY, WM_HELP, WM_CONTEXTMENU, WM_CTLCOLORSTATIC,
                               WM_ERASEBKGND, WM_DRAWITEM, WM_DESTROY}) {
        EXPECT_EQ(PaperPageProc(window, message, IDC_DEFAULT, 0), FALSE) << message;
    }
    DestroyWindow(window);
}

}  // namespace
}  // namespace ksfax
