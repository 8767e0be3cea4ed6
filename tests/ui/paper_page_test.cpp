#include "tests/ui/sheet_fixture.h"
#include "ui/help.h"
#include "ui/paper_page.h"

namespace ksfax {
namespace {

using tests::SheetTest;

class PaperPage : public SheetTest {
  protected:
    using SheetTest::SheetTest;

    std::vector<std::u16string> Papers(HWND page) {
        const HWND box = GetDlgItem(page, IDC_PAPER_SIZE);
        std::vector<std::u16string> names;
        for (WPARAM item = 0; item < static_cast<WPARAM>(SendMessageW(box, CB_GETCOUNT, 0, 0));
             ++item) {
            WCHAR name[300];
            SendMessageW(box, CB_GETLBTEXT, item, reinterpret_cast<LPARAM>(name));
            names.push_back(name);
        }
        return names;
    }
    LRESULT Selected(HWND page) {
        return SendMessageW(GetDlgItem(page, IDC_PAPER_SIZE), CB_GETCURSEL, 0, 0);
    }
    bool Choose(HWND page, int item) {
        return fax.machine.windows().Choose(GetDlgItem(page, IDC_PAPER_SIZE), item);
    }
    // The settings that the page works on.
    JobSettings& SettingsOf(HWND page) {
        return reinterpret_cast<PrinterSession*>(GetWindowLongPtrW(page, DWLP_USER))->jobSettings;
    }
    // What coming up and restoring the defaults both set.
    static void ExpectMarkedAsDefaults(const JobSettings& settings) {
        const PrivateJobSettings& part = PrivatePart(settings);
        EXPECT_EQ(settings.devMode.dmScale, 100);
        EXPECT_EQ(part.collateRequested, 0);
        EXPECT_EQ(part.counterGate, 0);
        EXPECT_EQ(part.paperChanged, 1u);
        EXPECT_EQ(part.defaultsMarker, 1);
    }
    // Whether the page told its sheet of a change in the middle of `act`.
    bool Notifies(Sheet& sheet, const std::function<void()>& act) {
        changes = 0;
        sheetProcedure = reinterpret_cast<DLGPROC>(SetWindowLongPtrW(
            sheet.window(), DWLP_DLGPROC, reinterpret_cast<LONG_PTR>(CountChanges)));
        act();
        SetWindowLongPtrW(sheet.window(), DWLP_DLGPROC, reinterpret_cast<LONG_PTR>(sheetProcedure));
        EXPECT_LE(changes, 1u);
        return changes != 0;
    }

  private:
    static INT_PTR CALLBACK CountChanges(HWND window, UINT message, WPARAM wParam, LPARAM lParam) {
        if (message == PSM_CHANGED) {
            EXPECT_EQ(GetParent(reinterpret_cast<HWND>(wParam)), window);
            EXPECT_EQ(lParam, 0);
            ++changes;
        }
        return sheetProcedure(window, message, wParam, lParam);
    }
    static inline unsigned changes;
    static inline DLGPROC sheetProcedure;
};

TEST_F(PaperPage, ComesUpWithWhatTheSettingsSay) {
    JobSettings input = DefaultRecord();
    input.devMode.dmPaperSize = DMPAPER_A4;
    input.devMode.dmOrientation = DMORIENT_LANDSCAPE;
    PrivatePart(input).faxResolution = 1;
    ShowDocument(
        [&](Sheet& sheet) {
            const HWND page = sheet.page();
            EXPECT_EQ(Papers(page), (std::vector<std::u16string>{u"Letter", u"A4", u"Legal", u"A5",
                                                                 u"B5", u"A6"}));
            EXPECT_EQ(Selected(page), 1);
            EXPECT_EQ(TextOf(page, IDC_PAPER_LABEL), u"A4\n210 x 297 mm");
            EXPECT_EQ(IsDlgButtonChecked(page, IDC_LANDSCAPE), BST_CHECKED);
            EXPECT_EQ(IsDlgButtonChecked(page, IDC_PORTRAIT), BST_UNCHECKED);
            EXPECT_EQ(IsDlgButtonChecked(page, IDC_RESOLUTION_200X100), BST_CHECKED);
            EXPECT_FALSE(sheet.changed());
            const PrivateJobSettings& part = PrivatePart(SettingsOf(page));
            EXPECT_EQ(part.pagePaperSize, 9);
            ExpectMarkedAsDefaults(SettingsOf(page));

            // The sheet has an OK, Cancel and Help of its own; Default stands where Help was.
            RECT restore{};
            RECT help{};
            GetWindowRect(GetDlgItem(page, IDC_DEFAULT), &restore);
            GetWindowRect(GetDlgItem(page, IDC_PAGE_HELP), &help);
            EXPECT_EQ(std::memcmp(&restore, &help, sizeof help), 0);
            for (const int control : {IDOK, IDCANCEL, IDC_PAGE_HELP}) {
                EXPECT_FALSE(IsWindowVisible(GetDlgItem(page, control)));
                EXPECT_FALSE(IsWindowEnabled(GetDlgItem(page, control)));
            }
            EXPECT_NE(GetWindowLongW(GetDlgItem(page, IDC_DEFAULT), GWL_STYLE) & WS_GROUP, 0u);
        },
        &input);
}

TEST_F(PaperPage, TakesTheFirstPaperForOneThatIsNotListed) {
    // A code above 32767 is negative in the record and matches no paper of the list.
    for (const short code : {short{8}, short{-1}, short{11}}) {
        JobSettings input = DefaultRecord();
        ShowDocument(
            [&](Sheet& sheet) {
                // The session itself refuses such papers, so the page gets the record directly.
                PrinterSession& session =
                    *reinterpret_cast<PrinterSession*>(GetWindowLongPtrW(sheet.page(), DWLP_USER));
                DEVMODEW& settings = session.jobSettings.devMode;
                PrivateJobSettings& part = PrivatePart(session.jobSettings);
                settings.dmPaperSize = code;
                settings.dmScale = 77;
                part.pagePaperSize = part.collateRequested = part.counterGate = 77;
                part.paperChanged = part.defaultsMarker = 77;
                EXPECT_EQ(BeginPaperPage(&session).paperCode, 1u);
                EXPECT_EQ(settings.dmPaperSize, 1);
                EXPECT_EQ(part.pagePaperSize, 1);
                ExpectMarkedAsDefaults(session.jobSettings);
            },
            &input);
    }
}

TEST_F(PaperPage, WritesEachChoiceIntoTheSettings) {
    EXPECT_EQ(ShowDocument([&](Sheet& sheet) {
                  const HWND page = sheet.page();
                  DEVMODEW& settings = SettingsOf(page).devMode;
                  PrivateJobSettings& part = PrivatePart(SettingsOf(page));
                  const HWND picture = GetDlgItem(page, IDC_PAPER_PICTURE);
                  const embedded::Bitmap upright = fax.machine.windows().Picture(picture);

                  // Legal is third by name, and fourth in the list that has a paper without one.
                  part.paperChanged = 0;
                  EXPECT_TRUE(Notifies(sheet, [&] { Choose(page, 2); }));
                  EXPECT_EQ(settings.dmPaperSize, DMPAPER_LEGAL);
                  EXPECT_EQ(part.pagePaperSize, DMPAPER_LEGAL);
                  EXPECT_EQ(part.paperChanged, 1u);
                  EXPECT_EQ(TextOf(page, IDC_PAPER_LABEL), u"Legal\n8 \u00BD x 14 in");
                  EXPECT_TRUE(Notifies(sheet, [&] { Choose(page, 2); })) << "the same once more";
                  EXPECT_TRUE(Notifies(sheet, [&] { Choose(page, 3); }));
                  EXPECT_EQ(settings.dmPaperSize, 11) << "the low 16 bits of 65547";
                  EXPECT_EQ(TextOf(page, IDC_PAPER_LABEL), u"undefined") << "by the whole code";
                  EXPECT_FALSE(Notifies(sheet, [&] {
                      SendMessageW(page, WM_COMMAND, MAKEWPARAM(IDC_PAPER_SIZE, 2), 0);
                  })) << "another notification of the list";

                  EXPECT_TRUE(Notifies(sheet, [&] { Click(page, IDC_LANDSCAPE); }));
                  EXPECT_EQ(settings.dmOrientation, DMORIENT_LANDSCAPE);
                  EXPECT_NE(fax.machine.windows().Picture(picture), upright);
                  EXPECT_FALSE(Notifies(sheet, [&] { Click(page, IDC_LANDSCAPE); }));
                  EXPECT_TRUE(Notifies(sheet, [&] { Click(page, IDC_PORTRAIT); }));
                  EXPECT_EQ(settings.dmOrientation, DMORIENT_PORTRAIT);
                  EXPECT_EQ(fax.machine.windows().Picture(picture), upright);

                  // A new paper has the picture painted anew, a new resolution has not.
                  settings.dmOrientation = DMORIENT_LANDSCAPE;
                  EXPECT_TRUE(Notifies(sheet, [&] { Click(page, IDC_RESOLUTION_200X100); }));
                  EXPECT_EQ(fax.machine.windows().Picture(picture), upright);
                  Choose(page, 3);
                  EXPECT_NE(fax.machine.windows().Picture(picture), upright);
                  settings.dmOrientation = DMORIENT_PORTRAIT;
                  CheckRadioButton(page, IDC_PORTRAIT, IDC_LANDSCAPE, IDC_LANDSCAPE);
                  EXPECT_TRUE(Notifies(sheet, [&] {
                      SendMessageW(page, WM_COMMAND, MAKEWPARAM(IDC_LANDSCAPE, 5), 0);
                  })) << "whatever the notification";
                  Click(page, IDC_PORTRAIT);
                  EXPECT_EQ(part.faxResolution, 1u);
                  EXPECT_EQ(IsDlgButtonChecked(page, IDC_PORTRAIT), BST_CHECKED);
                  EXPECT_FALSE(Notifies(sheet, [&] { Click(page, IDC_RESOLUTION_200X100); }));
                  EXPECT_TRUE(Notifies(sheet, [&] { Click(page, IDC_RESOLUTION_200X200); }));
                  EXPECT_EQ(part.faxResolution, 0u);
                  Click(page, IDC_RESOLUTION_200X100);
                  Choose(page, 1);
                  EXPECT_TRUE(sheet.PressOk());
              }),
              IDOK);
    EXPECT_EQ(output.devMode.dmPaperSize, DMPAPER_A4);
    EXPECT_EQ(output.devMode.dmOrientation, DMORIENT_PORTRAIT);
    EXPECT_EQ(PrivatePart(output).faxResolution, 1u);
}

TEST_F(PaperPage, RestoresTheDefaults) {
    ShowDocument([&](Sheet& sheet) {
        const HWND page = sheet.page();
        DEVMODEW& settings = SettingsOf(page).devMode;
        PrivateJobSettings& part = PrivatePart(SettingsOf(page));
        const HWND picture = GetDlgItem(page, IDC_PAPER_PICTURE);
        const embedded::Bitmap upright = fax.machine.windows().Picture(picture);
        Choose(page, 2);
        Click(page, IDC_LANDSCAPE);
        EXPECT_NE(fax.machine.windows().Picture(picture), upright);
        Click(page, IDC_RESOLUTION_200X100);
        const auto spoil = [](auto&... fields) { ((fields = 77), ...); };
        spoil(settings.dmCollate, settings.dmCopies, settings.dmScale, settings.dmDefaultSource,
              part.collateRequested, part.counterGate, part.mediaType, part.paperChanged,
              part.defaultsMarker, part.pagesPerSheetOut, part.pagesPerSheet,
              part.defaultsMarkerOut, part.source1, part.source2, part.reserved429);
        EXPECT_TRUE(Notifies(sheet, [&] { Click(page, IDC_DEFAULT); }));
        EXPECT_EQ(GetFocus(), GetDlgItem(page, IDC_DEFAULT));
        EXPECT_EQ(fax.machine.windows().Picture(picture), upright);
        EXPECT_EQ(settings.dmPaperSize, DMPAPER_LETTER);
        EXPECT_EQ(part.pagePaperSize, DMPAPER_LEGAL) << "stays at the last choice";
        EXPECT_EQ(Selected(page), 0);
        EXPECT_EQ(TextOf(page, IDC_PAPER_LABEL), u"Letter\n8 \u00BD x 11 in");
        EXPECT_EQ(IsDlgButtonChecked(page, IDC_PORTRAIT), BST_CHECKED);
        EXPECT_EQ(IsDlgButtonChecked(page, IDC_RESOLUTION_200X200), BST_CHECKED);
        EXPECT_EQ(settings.dmOrientation, 1);
        EXPECT_EQ(part.faxResolution, 0u);
        EXPECT_EQ(settings.dmCollate, 0);
        EXPECT_EQ(settings.dmCopies, 1);
        ExpectMarkedAsDefaults(SettingsOf(page));
        EXPECT_EQ(settings.dmDefaultSource, 7) << "automatic, in a description without sources";
        EXPECT_EQ(part.source1, 7);
        EXPECT_EQ(part.source2, 7);
        EXPECT_EQ(part.mediaType, 3);
        EXPECT_EQ(part.pagesPerSheetOut, 1);
        EXPECT_EQ(part.pagesPerSheet, 1);
        EXPECT_EQ(part.defaultsMarkerOut, 1);
        EXPECT_EQ(part.reserved429, 0);
    });
}

class MetricPaperPage : public PaperPage {
  protected:
    MetricPaperPage() : PaperPage(tests::kPagePapers, {.country = 47}) {}
};
TEST_F(MetricPaperPage, RestoresA4) {
    ShowDocument([&](Sheet& sheet) {
        Choose(sheet.page(), 0);
        Click(sheet.page(), IDC_DEFAULT);
        EXPECT_EQ(SettingsOf(sheet.page()).devMode.dmPaperSize, DMPAPER_A4);
    });
}

TEST_F(PaperPage, LocksAllButTheResolution) {
    ShowDocument(
        [&](Sheet& sheet) {
            const HWND page = sheet.page();
            for (const int control : {IDC_PAPER_SIZE_TEXT, IDC_PAPER_SIZE, IDC_ORIENTATION_TEXT,
                                      IDC_PORTRAIT, IDC_LANDSCAPE, IDC_DEFAULT}) {
                EXPECT_FALSE(IsWindowEnabled(GetDlgItem(page, control))) << control;
            }
            EXPECT_FALSE(Click(page, IDC_LANDSCAPE));
            EXPECT_TRUE(Notifies(sheet, [&] { Click(page, IDC_RESOLUTION_200X100); }));
            for (const int control : {IDC_RESOLUTION_TEXT, IDC_ABOUT}) {
                EXPECT_TRUE(IsWindowEnabled(GetDlgItem(page, control))) << control;
            }
        },
        nullptr, DM_IN_PROMPT | DM_NOPERMISSION);
}

TEST_F(PaperPage, FitsACustomPapersNameToItsLabel) {
    ShowDocument([&](Sheet& sheet) {
        const HWND page = sheet.page();
        PrivateJobSettings& part = PrivatePart(SettingsOf(page));
        const HWND label = GetDlgItem(page, IDC_PAPER_LABEL);
        const auto show = [&](std::u16string_view name) {
            std::fill(std::begin(part.customPaperName), std::end(part.customPaperName), u'\0');
            name.copy(part.customPaperName, std::size(part.customPaperName));
            Choose(page, 4);
            return fax.machine.windows().TextOf(label);
        };
        EXPECT_EQ(show(u""), u"undefined");
        EXPECT_EQ(show(u"My paper"), u"My paper");
        EXPECT_EQ(show(u"iiiiiiiiiiiiiiiii").size(), 17u) << "without its terminator";
        const std::u16string wide = show(u"WWWWWWWWWWWWWWWW");
        EXPECT_LT(wide.size(), 16u);
        EXPECT_GT(wide.size(), 8u);
        EXPECT_EQ(wide, std::u16string(wide.size() - 3, u'W') + u"...");
        // Narrower labels keep eight letters or fewer without dots, and none at the end.
        const HDC context = GetDC(label);
        SIZE size{};
        GetTextExtentPoint32W(context, u"WWWWWWWWW", 9, &size);
        MoveWindow(label, 0, 0, size.cx, 20, FALSE);
        EXPECT_EQ(show(u"WWWWWWWWWWWWWWWW"), u"WWWWWWWW") << "narrower than nine letters";
        MoveWindow(label, 0, 0, size.cx + 1, 20, FALSE);
        EXPECT_EQ(show(u"WWWWWWWWWWWWWWWW"), u"WWWWWW...");
        MoveWindow(label, 0, 0, 1, 20, FALSE);
        EXPECT_EQ(show(u"WWWW"), u"");
        // No half of a character remains, whatever the width.
        const std::u16string_view pairs = u"\U0001D400\U0001D401W\U0001D402\U0001D403W\U0001D404";
        for (int width = 1; width < size.cx * 2; ++width) {
            MoveWindow(label, 0, 0, width, 20, FALSE);
            const std::u16string shown = show(pairs);
            for (size_t i = 0; i < shown.size(); ++i) {
                if ((shown[i] & 0xF800) == 0xD800) {
                    ASSERT_LT(i + 1, shown.size()) << width;
                    EXPECT_EQ(shown[i] & 0xFC00, 0xD800) << width;
                    EXPECT_EQ(shown[++i] & 0xFC00, 0xDC00) << width;
                }
            }
        }
        ReleaseDC(label, context);
    });
}

TEST_F(PaperPage, ColoursItsLabelAndItsBackground) {
    constexpr COLORREF kBlue = 0xFF0000;
    ShowDocument([&](Sheet& sheet) {
        const HWND page = sheet.page();
        auto& colors = fax.machine.graphics().systemColors;
        const HDC context = GetDC(page);
        const auto ask = [&](int control) {
            return SendMessageW(page, WM_CTLCOLORSTATIC, reinterpret_cast<WPARAM>(context),
                                reinterpret_cast<LPARAM>(GetDlgItem(page, control)));
        };
        SetTextColor(context, 5);
        const LRESULT other = ask(IDC_RESOLUTION_TEXT);
        EXPECT_NE(SetTextColor(context, 5), kBlue);
        EXPECT_NE(ask(IDC_PAPER_LABEL), other);
        EXPECT_EQ(SetTextColor(context, 5), kBlue);
        EXPECT_EQ(SetBkColor(context, 5), colors[COLOR_BTNFACE]);
        colors[COLOR_BTNFACE] = kBlue;
        ask(IDC_PAPER_LABEL);
        EXPECT_EQ(SetTextColor(context, 5), 0xFFFFFFu);
        ReleaseDC(page, context);
        const HDC erased = GetDC(page);
        EXPECT_EQ(PaperPageProc(page, WM_ERASEBKGND, reinterpret_cast<WPARAM>(erased), 0), TRUE);
        ReleaseDC(page, erased);
        EXPECT_EQ(fax.machine.windows().Picture(page).At(0, 0), kBlue);
    });
}

TEST_F(PaperPage, RefreshesItsLabelWhenTheSettingsAskForIt) {
    ShowDocument([&](Sheet& sheet) {
        const HWND page = sheet.page();
        PrivateJobSettings& part = PrivatePart(SettingsOf(page));
        NMHDR activation{.hwndFrom = sheet.window(), .idFrom = 0, .code = PSN_SETACTIVE};
        const auto activate = [&] {
            SetDlgItemTextW(page, IDC_PAPER_LABEL, u"old");
            SendMessageW(page, WM_NOTIFY, 0, reinterpret_cast<LPARAM>(&activation));
            return TextOf(page, IDC_PAPER_LABEL);
        };
        EXPECT_EQ(activate(), u"old");
        part.pageFlags = 0xFF;
        EXPECT_EQ(activate(), u"Letter\n8 \u00BD x 11 in");
        EXPECT_EQ(part.pageFlags, 0xEF);
        part.pageFlags = 0x10;
        SendMessageW(GetDlgItem(page, IDC_PAPER_SIZE), CB_SETCURSEL, static_cast<WPARAM>(-1), 0);
        EXPECT_EQ(activate(), u"old") << "nothing is selected";
        EXPECT_EQ(part.pageFlags, 0);
    });
}

TEST_F(PaperPage, AppliesByItsOwnHandle) {
    static std::vector<LONG_PTR> told;
    ShowDocument([&](Sheet& sheet) {
        auto* session =
            reinterpret_cast<PrinterSession*>(GetWindowLongPtrW(sheet.page(), DWLP_USER));
        const auto callback = session->propSheetCallback;
        session->propSheetCallback = [](HANDLE handle, UINT function, LPARAM first,
                                        LPARAM second) -> LONG_PTR {
            told = {reinterpret_cast<LONG_PTR>(handle), LONG_PTR{function}, first, second};
            return 1;
        };
        NMHDR apply{.hwndFrom = sheet.window(), .idFrom = 0, .code = PSN_APPLY};
        EXPECT_EQ(PaperPageProc(sheet.page(), WM_NOTIFY, 0, reinterpret_cast<LPARAM>(&apply)),
                  TRUE);
        session->propSheetCallback = callback;
        const auto handle = reinterpret_cast<LONG_PTR>(session->propSheetPages[0]);
        EXPECT_EQ(told, (std::vector<LONG_PTR>{handle, 9, handle, 1}));
    });
}

// What the page shows must be what the settings say, so such a paper shows none.
TEST_F(PaperPage, SelectsNothingForAPaperWithoutAName) {
    ShowDocument([&](Sheet& sheet) {
        const HWND page = sheet.page();
        auto* session = reinterpret_cast<PrinterSession*>(GetWindowLongPtrW(page, DWLP_USER));
        PROPSHEETPAGEW record{};
        record.lParam = reinterpret_cast<LPARAM>(session);
        session->jobSettings.devMode.dmPaperSize = 300;
        session->jobSettings.devMode.dmOrientation = 3;
        DeleteObject(session->pageBrush);
        PaperPageProc(page, WM_INITDIALOG, 0, reinterpret_cast<LPARAM>(&record));
        EXPECT_EQ(Selected(page), CB_ERR);
        EXPECT_EQ(session->jobSettings.devMode.dmPaperSize, 300);
        EXPECT_EQ(TextOf(page, IDC_PAPER_LABEL), u"undefined");
        EXPECT_EQ(IsDlgButtonChecked(page, IDC_LANDSCAPE), BST_CHECKED);
    });
}

TEST_F(PaperPage, AsksForContextHelp) {
    ShowDocument([&](Sheet& sheet) {
        const HWND page = sheet.page();
        const HWND box = GetDlgItem(page, IDC_PAPER_SIZE);
        HELPINFO info{};
        info.hItemHandle = box;
        SendMessageW(page, WM_HELP, 0, reinterpret_cast<LPARAM>(&info));
        SendMessageW(page, WM_CONTEXTMENU, reinterpret_cast<WPARAM>(box), 0);
        const auto& requests = fax.machine.windows().helpRequests;
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

class PaperPageWithoutPapers : public PaperPage {
  protected:
    PaperPageWithoutPapers() : PaperPage("") {}
};
TEST_F(PaperPageWithoutPapers, ShowsNone) {
    EXPECT_EQ(ShowDocument([&](Sheet& sheet) {
                  const HWND page = sheet.page();
                  EXPECT_EQ(Papers(page), std::vector<std::u16string>{});
                  EXPECT_EQ(Selected(page), CB_ERR);
                  EXPECT_EQ(TextOf(page, IDC_PAPER_LABEL), u"undefined");
                  EXPECT_EQ(SettingsOf(page).devMode.dmPaperSize, 0);
                  EXPECT_FALSE(Notifies(sheet, [&] {
                      SendMessageW(page, WM_COMMAND, MAKEWPARAM(IDC_PAPER_SIZE, CBN_SELCHANGE), 0);
                  })) << "without a selection";
                  Click(page, IDC_DEFAULT);
                  EXPECT_EQ(SettingsOf(page).devMode.dmPaperSize, 0);
                  sheet.PressOk();
              }),
              IDOK);
}

TEST_F(PaperPage, FallsBackToCommonPapersWithoutMemory) {
    for (const char* call : {"GlobalAlloc", "GlobalLock"}) {
        ShowDocument([&](Sheet& sheet) {
            const HWND page = sheet.page();
            auto* session = reinterpret_cast<PrinterSession*>(GetWindowLongPtrW(page, DWLP_USER));
            PROPSHEETPAGEW record{};
            record.lParam = reinterpret_cast<LPARAM>(session);
            session->jobSettings.devMode.dmPaperSize = DMPAPER_ENV_MONARCH;
            DeleteObject(session->pageBrush);
            fax.machine.faults.FailCall(call);
            PaperPageProc(page, WM_INITDIALOG, 0, reinterpret_cast<LPARAM>(&record));
            EXPECT_TRUE(fax.machine.faults.struck());
            fax.machine.faults.Clear();
            EXPECT_EQ(session->paperListBlock, nullptr);
            const auto papers = Papers(page);
            ASSERT_EQ(papers.size(), 10u) << call;
            EXPECT_EQ(papers[0], u"A4\n210 x 297 mm");
            EXPECT_EQ(papers[5], u"B5\n176 x 250 mm");
            EXPECT_EQ(Selected(page), 9);
            Choose(page, 5);
            EXPECT_EQ(session->jobSettings.devMode.dmPaperSize, 13);
            EXPECT_EQ(TextOf(page, IDC_PAPER_LABEL), u"JIS B5\n182 x 257 mm");
        });
    }
}

TEST_F(PaperPage, KnowsTheLabelOfEveryCode) {
    const struct {
        uint32_t code;
        UINT string;
        const char16_t* text;  // null: any
    } rows[] = {
        {1, 1094, u"Letter\n8 \u00BD x 11 in"},
        {9, 1097, u"A4\n210 x 297 mm"},
        {7, 1096, u"Executive\n7 \u00BC x 10 \u00BD in"},
        {34, 1098, u"B5\n176 x 250 mm"},
        {1025, 1136, u"Letter Short Edge\n8 \u00BD x 11 in"},
        {1033, 1138, u"A4 Short Edge\n210 x 297 mm"},
        {1031, 1140, u"Executive Short Edge\n7 \u00BC x 10 \u00BD in"},
        {1058, 1145, u"B5 Short Edge\n176 x 250 mm"},
        {11, 1099, u"A5\n148 x 210 mm"},
        {20, 1101, u"Com-10\n4 1/8 x 9 \u00BD in"},
        {27, 1102, u"DL\n110 x 220 mm"},
        {28, 1103, u"C5\n162 x 229 mm"},
        {37, 1100, u"Monarch\n3 7/8 x 7 \u00BD in"},
        {257, 1104, u"Organizer J\n2 \u00BE x 5 in"},
        {258, 1105, u"Organizer K\n3 \u00BE x 6 \u00BE in"},
        {259, 1106, u"Organizer L\n5 \u00BD x 8 \u00BD in"},
        {260, 1107, u"Organizer M\n8 \u00BD x 11 in"},
        {261, 1134, u"3 x 5 in"},
        {262, 1135, u"A4 Long\n210 x 405 mm"},
        {14, 4220, u"Folio\n8 \u00BD x 13 in"},
        {70, 2011, u"A6\n105 x 148 mm"},
        {35, 1142, u"B6\n125 x176 mm"},
        {5, 1095, u"Legal\n8 \u00BD x 14 in"},
        {13, 1148, u"JIS B5\n182 x 257 mm"},
        {43, 4201, nullptr},
        {91, 4202, nullptr},
        {73, 4203, nullptr},
        {263, 4234, nullptr},
        {256, 3064, u"undefined"},
        {0, 3064, u"undefined"},
    };
    for (const auto& row : rows) {
        EXPECT_EQ(PaperLabelString(row.code), row.string) << row.code;
        WCHAR text[80];
        ASSERT_GT(LoadStringW(fax.driver.instance(), row.string, text, 80), 0) << row.string;
        EXPECT_EQ(std::u16string(text), row.text != nullptr ? row.text : text);
    }
}

TEST_F(PaperPage, LeavesMessagesWithoutASessionAlone) {
    const HWND window = fax.machine.windows().Add(u"Dialog");
    for (const UINT message : {WM_COMMAND, WM_NOTIFY, WM_HELP, WM_CONTEXTMENU, WM_CTLCOLORSTATIC,
                               WM_ERASEBKGND, WM_DRAWITEM, WM_DESTROY}) {
        EXPECT_EQ(PaperPageProc(window, message, IDC_DEFAULT, 0), FALSE) << message;
    }
    DestroyWindow(window);
}

}  // namespace
}  // namespace ksfax
