#include <algorithm>
#include <map>
#include <set>

#include "platform/embedded/registry.h"

#include "tests/resource_file.h"
#include "tests/ui/ui_machine.h"
#include "tool/record_fields.h"
#include "ui/about_box.h"
#include "ui/help.h"
#include "ui/paper_page.h"
#include "ui/paper_settings.h"

namespace ksfax {
namespace {

using Facts = std::map<std::string, std::string>;

// The driver's sheets under a user who does what a script says, noting whatever each act changes
// of what there is to see, and of the job settings.
class Sheets : public tests::UiMachine {
  protected:
    explicit Sheets(std::string_view papers = tests::kPagePapers, embedded::MachineSetup setup = {})
        : UiMachine(papers, std::move(setup)) {
        running = this;
    }
    ~Sheets() override {
        // Once loaded the help's library stays until the process ends.
        for (const std::u16string& path : libraries) {
            fax.machine.modules().Remove(path);
        }
    }

    PrinterSession* session() { return SessionOf(page); }
    LPARAM Parameter() { return reinterpret_cast<LPARAM>(session()); }
    HWND Control(int id) { return GetDlgItem(page, id); }
    std::string Name(HWND window) {
        return window == nullptr ? "none"
               : window == page  ? "page"
                                 : "control " + std::to_string(GetWindowLongW(window, GWL_ID));
    }

    static uint8_t* PlaceOf(const tool::RecordField& field, JobSettings& settings) {
        const bool isPublic = field.part == tool::RecordPart::Public;
        return reinterpret_cast<uint8_t*>(&settings) + field.offset + (isPublic ? 0 : kPublicSize);
    }
    static void AddFields(JobSettings settings, Facts& facts) {
        for (const tool::RecordField& field : tool::kRecordFields) {
            if (field.part != tool::RecordPart::Device) {
                const uint8_t* bytes = PlaceOf(field, settings);
                uint32_t value = 0;
                std::memcpy(&value, bytes, std::min(field.width, sizeof value));
                std::string& fact = facts[std::string(field.name)];
                fact = std::to_string(value);
                for (size_t at = sizeof value; at < field.width; ++at) {
                    fact += bytes[at] != 0 ? " " + std::to_string(bytes[at]) : ".";
                }
                fact.erase(fact.find_last_not_of('.') + 1);
            }
        }
    }
    // "dmCopies=3"
    static void Set(JobSettings& settings, const std::string& change) {
        const std::string name = change.substr(0, change.find('='));
        const auto* field = std::ranges::find(tool::kRecordFields, name, &tool::RecordField::name);
        ASSERT_NE(field, std::end(tool::kRecordFields)) << change;
        const int32_t value = std::stoi(change.substr(name.size() + 1));
        std::memcpy(PlaceOf(*field, settings), &value, std::min(field->width, sizeof value));
    }
    // All that there is to see of the dialog, and what the settings say.
    Facts State() {
        Facts facts;
        facts["caption"] = embedded::Utf8(windows.TextOf(page));
        for (const HWND control : windows.Descendants(page)) {
            std::string& fact = facts[Name(control)];
            fact = embedded::Utf8(windows.TextOf(control));
            fact += IsWindowVisible(control) ? "" : " hidden";
            fact += IsWindowEnabled(control) ? "" : " disabled";
            fact += SendMessageW(control, BM_GETCHECK, 0, 0) == BST_CHECKED ? " checked" : "";
            fact += windows.focus() == control ? " focus" : "";
            fact += (GetWindowLongW(control, GWL_STYLE) & WS_GROUP) != 0 ? " group" : "";
            RECT at{};
            GetWindowRect(control, &at);
            ToClientArea(page, &at);
            fact +=
                Line(" ", at.left, " ", at.top, " ", at.right - at.left, " ", at.bottom - at.top);
        }
        for (const int id : {IDC_PAPER_PICTURE, IDC_LOGO}) {
            if (const HWND picture = Control(id); picture != nullptr) {
                // Told apart by the order in which they come.
                const auto pixels = windows.Picture(picture).pixels;
                const size_t number = pictures.try_emplace(pixels, pictures.size()).first->second;
                const size_t colors = std::set(pixels.begin(), pixels.end()).size();
                facts["picture"] = std::to_string(number) + (colors > 1 ? "" : ", one colour");
            }
        }
        if (const HWND box = Control(IDC_PAPER_SIZE); box != nullptr) {
            const LRESULT count = SendMessageW(box, CB_GETCOUNT, 0, 0);
            for (WPARAM item = 0; item < static_cast<WPARAM>(count); ++item) {
                WCHAR paper[300];
                SendMessageW(box, CB_GETLBTEXT, item, reinterpret_cast<LPARAM>(paper));
                facts["papers"] += Line(embedded::Utf8(paper), "=",
                                        SendMessageW(box, CB_GETITEMDATA, item, 0), "; ");
            }
            facts["selected"] = std::to_string(SendMessageW(box, CB_GETCURSEL, 0, 0));
        }
        facts["may modify"] = std::to_string(session()->canModify);
        facts["fallback list"] = session()->paperListBlock == nullptr ? "yes" : "no";
        AddFields(session()->jobSettings, facts);
        return facts;
    }
    // Tells what is another than last time.
    void TellChanges(const Facts& now) {
        for (const auto& [fact, value] : now) {
            if (before.contains(fact) ? before[fact] != value : !value.empty()) {
                std::string line = fact + ": " + value;
                std::ranges::replace(line, '\n', '|');
                Tell(line);
            }
        }
        before = now;
    }

    // Has the user act on a dialog until it is gone or the script ends. At first it tells what is
    // not as the caller's record had it, or as the first dialog of that kind was.
    void Use(HWND dialog, const std::string& kind) {
        const HWND outer = std::exchange(page, dialog);
        const Facts outerFacts = before;
        if (first.contains(kind)) {
            before = first[kind];
        }
        first[kind] = State();
        TellChanges(first[kind]);
        for (Command command{"-", "", {}}; IsWindowVisible(page) && !command.verb.empty();) {
            command = Next();
            Do(command);
        }
        page = outer;
        before = outerFacts;
    }
    void Use(Sheet& shown) {
        sheet = &shown;
        sheetProcedure = reinterpret_cast<DLGPROC>(SetWindowLongPtrW(
            sheet->window(), DWLP_DLGPROC, reinterpret_cast<LONG_PTR>(CountChanges)));
        const std::string tab = embedded::Utf8(sheet->tab());
        Tell(embedded::Utf8(sheet->title()), ": ", tab,
             IsWindowEnabled(owner) ? ", owner enabled" : "");
        callback = std::exchange(SessionOf(sheet->page())->propSheetCallback, TellHost);
        Use(sheet->page(), tab);
    }
    // "open document dmPaperSize=9", "open advanced", "open printer", "open restricted": shows
    // that sheet over a record with those changes, and tells what came of it.
    void Open(const std::vector<std::string>& arguments) {
        const std::string& kind = arguments.at(0);
        DWORD mode = DM_IN_PROMPT | DM_OUT_BUFFER;
        JobSettings input = DefaultRecord();
        for (size_t at = 1; at < arguments.size(); ++at) {
            if (arguments[at].starts_with("mode=")) {
                mode = static_cast<DWORD>(std::stoul(arguments[at].substr(5), nullptr, 0));
            } else {
                Set(input, arguments[at]);
            }
        }
        before.clear();
        AddFields(input, before);
        owner = windows.Add(u"Dialog");
        ResetOutput();
        host.events.clear();
        host.user = [this](Sheet& shown) { Use(shown); };
        LONG result = 0;
        if (kind == "document") {
            result = DrvDocumentProperties(owner, printer.get(), name.data(), &output.devMode,
                                           &input.devMode, mode);
        } else if (kind == "advanced") {
            result = DrvAdvancedDocumentProperties(owner, printer.get(), name.data(),
                                                   &output.devMode, &input.devMode);
        } else {
            fax.machine.spooler().RemovePrinterData(FaxMachine::kPrinter, u"Permission");
            const platform::PrinterHandle opened =
                fax.Open(FaxMachine::kPrinter, kind == "printer");
            result = PrinterProperties(owner, opened.get());
            Tell("Permission: ", fax.StoredNumber(u"Permission").value_or(0));
        }
        std::string events;
        for (const auto& event : host.events) {
            events += Line(" ", event.reason, "=", event.result);
        }
        Tell("= ", result, ", events", events,
             OutputIsUntouched() ? ", output untouched" : ", written:");
        if (!OutputIsUntouched()) {
            Facts written;
            before.clear();
            AddFields(input, before);
            AddFields(output, written);
            TellChanges(written);
        }
        DestroyWindow(owner);
    }

    // Asks a sheet's function itself, about the open sheet or one that is none of the driver's.
    void Ask(bool isDocument, PrinterSession* about, WORD reason, bool hasRecord, LRESULT result) {
        const auto function = isDocument ? DrvDocumentPropertySheets : DrvDevicePropertySheets;
        DOCUMENTPROPERTYHEADER document{};
        document.pszPrinterName = name.data();
        document.pdmOut = &output.devMode;
        document.fMode = DM_OUT_BUFFER;
        DEVICEPROPERTYHEADER device{};
        device.pszPrinterName = name.data();
        PROPSHEETUI_INFO information{};
        information.lParamInit =
            isDocument ? reinterpret_cast<LPARAM>(&document) : reinterpret_cast<LPARAM>(&device);
        information.UserData = reinterpret_cast<ULONG_PTR>(about);
        information.Reason = reason;
        information.Result = 99;
        PROPSHEETUI_INFO_HEADER header{};
        SETRESULT_INFO decided{};
        decided.Result = result;
        const auto record = reason == PROPSHEETUI_REASON_SET_RESULT
                                ? reinterpret_cast<LPARAM>(&decided)
                                : reinterpret_cast<LPARAM>(&header);
        ResetOutput();
        const LONG answer = function(&information, hasRecord ? record : 0);
        Tell("= ", answer, ", result ", information.Result, ", flags ", header.Flags, ", icon ",
             header.IconID, header.pTitle == name.data() ? ", the printer" : "",
             header.hInst == ownModule ? ", own icon" : "", OutputIsUntouched() ? "" : ", written");
    }

    void Do(const Command& command) override {
        const std::string& verb = command.verb;
        const auto text16 = [&](size_t at) { return embedded::Utf16(command.word.at(at)); };
        const auto number = [&](size_t at) { return static_cast<int>(command.number(at)); };
        const auto send = [&](UINT message, WPARAM wParam, const void* lParam = nullptr) {
            SendMessageW(page, message, wParam, reinterpret_cast<LPARAM>(lParam));
        };
        const HWND papers = Control(IDC_PAPER_SIZE);
        windows.modalUsers = {[this](HWND box) { Use(box, "box"); }};
        if (!std::exchange(isFaultPlanned, verb == "fail")) {
            fax.machine.faults.Count();
        }
        const std::map<std::string, std::function<void()>> acts{
            {"", [] {}},  // the script's end
            {"open", [&] { Open(command.word); }},
            {"ok", [&] { sheet->PressOk(); }},
            {"cancel", [&] { sheet->PressCancel(); }},
            {"help", [&] { sheet->PressHelp(); }},
            {"click", [&] { Click(page, number(0)) ? void() : Tell("refused"); }},
            {"choose", [&] { windows.Choose(papers, number(0)); }},
            {"unselect", [&] { SendMessageW(papers, CB_SETCURSEL, static_cast<WPARAM>(-1), 0); }},
            {"check", [&] { CheckRadioButton(page, IDC_PORTRAIT, IDC_LANDSCAPE, number(0)); }},
            {"label", [&] { SetDlgItemTextW(page, IDC_PAPER_LABEL, text16(0).c_str()); }},
            {"command", [&] { send(WM_COMMAND, MAKEWPARAM(number(0), number(1))); }},
            {"fail", [&] { fax.machine.faults.FailCall(command.rest); }},
            {"refuse-pages", [&] { host.refusesPages = true; }},
            {"remove", [&] { fax.machine.modules().Remove(text16(0)); }},
            {"reset-help", [&] { ResetHelp(); }},
            {"face", [&] { fax.machine.graphics().systemColors[COLOR_BTNFACE] = number(0); }},
            {"fill-about", [&] { AboutDialogProc(page, WM_INITDIALOG, 0, Parameter()); }},
        };
        if (const auto act = acts.find(verb); act != acts.end()) {
            act->second();
        } else if (verb == "set") {
            for (const std::string& change : command.word) {
                Set(session()->jobSettings, change);
            }
            before = State();
        } else if (verb == "notify") {
            const NMHDR header{sheet->window(), 0, static_cast<UINT>(number(0))};
            send(WM_NOTIFY, 0, &header);
        } else if (verb == "come-up") {
            // The page comes up once more in its window, on the settings as they are now.
            PROPSHEETPAGEW record{};
            record.lParam = Parameter();
            DeleteObject(session()->pageBrush);
            PaperPageProc(page, WM_INITDIALOG, 0, reinterpret_cast<LPARAM>(&record));
        } else if (verb == "context-help") {
            HELPINFO info{};
            info.hItemHandle = Control(number(0));
            send(WM_HELP, 0, &info);
            send(WM_CONTEXTMENU, reinterpret_cast<WPARAM>(info.hItemHandle));
        } else if (verb == "ask") {
            // "ask document ours 3 record 1": the sheet, whose it is, the reason, what comes along.
            PrinterSession stranger{};
            stranger.selfCheckHead = &stranger;
            Ask(command.word.at(0) == "document",
                command.word.at(1) == "ours"     ? session()
                : command.word.at(1) == "theirs" ? &stranger
                                                 : nullptr,
                static_cast<WORD>(number(2)), command.word.size() > 3, number(4));
        } else if (verb == "colors") {
            const HDC context = GetDC(page);
            SetTextColor(context, 5);
            SetBkColor(context, 5);
            const INT_PTR brush =
                PaperPageProc(page, WM_CTLCOLORSTATIC, reinterpret_cast<WPARAM>(context),
                              reinterpret_cast<LPARAM>(Control(number(0))));
            Tell(brush == reinterpret_cast<INT_PTR>(session()->pageBrush) ? "page brush" : "none",
                 ", text ", SetTextColor(context, 5), ", background ", SetBkColor(context, 5));
            const INT_PTR erased =
                PaperPageProc(page, WM_ERASEBKGND, reinterpret_cast<WPARAM>(context), 0);
            Tell("erased ", erased, ": ", PixelsOf(context, 1, 1).At(0, 0));
            ReleaseDC(page, context);
        } else if (verb == "name") {
            // A custom paper's name, for a label of that many pixels.
            auto& stored = PrivatePart(session()->jobSettings).customPaperName;
            const std::u16string paper = text16(1);
            std::fill(std::begin(stored), std::end(stored), u'\0');
            paper.copy(stored, std::size(stored));
            MoveWindow(Control(IDC_PAPER_LABEL), 0, 0, number(0), 20, FALSE);
            windows.Choose(papers, 4);
        } else if (verb == "box") {
            // The About box shown by itself; what it answered.
            Tell("= ", DialogBoxParamW(resourceModule, MAKEINTRESOURCEW(IDD_ABOUT), page,
                                       AboutDialogProc, Parameter()));
        } else if (verb == "logo") {
            CreateWindowExW(0, u"Button", u"", WS_CHILD | WS_VISIBLE | 0xB, 3, 4, 280, 60, page,
                            reinterpret_cast<HMENU>(uintptr_t{IDC_LOGO}), nullptr, nullptr);
        } else if (verb == "centre") {
            RECT area{10, 20, 111, 70};
            MapWindowPoints(page, nullptr, reinterpret_cast<POINT*>(&area), 2);
            CenterControlInRect(page, area, number(0), number(1), number(2));
        } else if (verb == "words") {
            // A resource module with words of its own before the driver's, until "end".
            embedded::ResourceFile file;
            file.AddString(4224, u"Fassung");
            file.AddString(14018, u"Dezember");
            file.AddString(591, u"Basis");
            const auto own = fax.machine.modules().Resources(fax.driver.instance());
            file.bytes.insert(file.bytes.end(), own.begin() + 32, own.end());
            fax.machine.modules().Install(
                {.path = u"C:\\WORDS.DLL", .exports = {}, .resources = file.bytes});
            resourceModule = LoadLibraryW(u"C:\\WORDS.DLL");
            for (Command each = Next(); each.verb != "end"; each = Next()) {
                Do(each);
            }
            FreeLibrary(resourceModule);
            resourceModule = ownModule;
        } else if (verb == "library") {
            const auto entry = reinterpret_cast<FARPROC>(reinterpret_cast<void*>(&TellHelp));
            libraries.insert(text16(0));
            fax.machine.modules().Install({.path = text16(0),
                                           .exports = {{"#" + std::to_string(number(1)), entry}},
                                           .resources = {}});
        } else if (verb == "register") {
            // As the help control's library: so many characters of the path, or all of them.
            embedded::StoredValue value = embedded::StoredText(text16(0));
            value.data.resize(number(1) != 0 ? static_cast<size_t>(number(1)) * 2
                                             : value.data.size());
            fax.machine.registry().SetValue(
                HKEY_LOCAL_MACHINE,
                u"Software\\Classes\\CLSID\\{ADB880A6-D8FF-11CF-9377-00AA003B7A11}\\InprocServer32",
                u"", std::move(value));
        } else {
            ASSERT_EQ(verb, "ask-help");
            const HWND shown = ShowHtmlHelp(nullptr, u"C:\\A.HLP", HH_DISPLAY_TOPIC, 3);
            std::string calls;
            for (const std::string& call : fax.machine.faults.names()) {
                calls += call + " ";
            }
            Tell(calls, shown != nullptr ? "shown" : "not shown");
        }
        if (verb != "fail") {
            fax.machine.faults.Clear();
        }
        if (changes != 0) {
            Tell("told the sheet", std::exchange(changes, 0) > 1 ? ", twice" : "");
        }
        for (const auto& request : std::exchange(windows.helpRequests, {})) {
            const auto* rows = reinterpret_cast<const std::pair<DWORD, DWORD>*>(request.data);
            std::string contexts;
            for (; rows->first != 0; ++rows) {
                contexts += Line(" ", rows->first, "=", rows->second);
            }
            Tell("context help ", request.command, " for ", Name(request.window), ", ",
                 FileOf(request.file.c_str()), ":", contexts);
        }
        if (page != nullptr && IsWindowVisible(page)) {
            TellChanges(State());
        }
    }

    HWND page = nullptr;
    HWND owner = nullptr;
    Sheet* sheet = nullptr;
    Facts before;
    std::map<std::string, Facts> first;
    std::map<std::vector<uint32_t>, size_t> pictures;
    std::set<std::u16string> libraries;

  private:
    static std::string FileOf(LPCWSTR path) {
        const std::string file = path != nullptr ? embedded::Utf8(path) : "no file";
        return file.substr(file.rfind('\\') + 1);
    }
    static HWND TellHelp(HWND window, LPCWSTR file, UINT command, DWORD_PTR data) {
        running->Tell("help for ", running->Name(window), ": ", FileOf(file), ", command ", command,
                      ", data ", data);
        return reinterpret_cast<HWND>(uintptr_t{0x77});
    }
    static LONG_PTR CALLBACK TellHost(HANDLE handle, UINT function, LPARAM first, LPARAM second) {
        const auto pageHandle = running->session()->propSheetPages[0];
        running->Tell(
            "told the host: function ", function, handle == pageHandle ? ", page" : ", other",
            reinterpret_cast<HANDLE>(first) == pageHandle ? ", page, " : ", other, ", second);
        return running->callback(handle, function, first, second);
    }
    static INT_PTR CALLBACK CountChanges(HWND window, UINT message, WPARAM wParam, LPARAM lParam) {
        if (message == PSM_CHANGED) {
            EXPECT_EQ(reinterpret_cast<HWND>(wParam), running->page);
            EXPECT_EQ(lParam, 0);
            ++running->changes;
        }
        return running->sheetProcedure(window, message, wParam, lParam);
    }
    unsigned changes = 0;
    bool isFaultPlanned = false;
    DLGPROC sheetProcedure = nullptr;
    PFNCOMPROPSHEET callback = nullptr;
    static inline Sheets* running;
};

TEST_F(Sheets, DoAsTheUserAsks) {
    for (const char* file : {"paper_page.txt", "about.txt", "help.txt", "sheets.txt"}) {
        first.clear();
        pictures.clear();
        Replay(file);
    }
}

class MetricSheets : public Sheets {
  protected:
    MetricSheets() : Sheets(tests::kPagePapers, {.country = 47}) {}
};
TEST_F(MetricSheets, RestoreA4) {
    Replay("metric.txt");
}

class SheetsWithoutPapers : public Sheets {
  protected:
    SheetsWithoutPapers() : Sheets("") {}
};
TEST_F(SheetsWithoutPapers, ShowNone) {
    Replay("no_papers.txt");
}

TEST_F(Sheets, KnowTheLabelOfEveryPaper) {
    std::string text;
    for (uint32_t code = 0; code < 1100; ++code) {
        const UINT string = PaperLabelString(code);
        WCHAR label[80] = {};
        LoadStringW(fax.driver.instance(), string, label, 80);
        if (string != IDS_LABEL_UNDEFINED || code == 256) {
            text += Line(code, ": ", string, " ", embedded::Utf8(label), "\n");
        }
    }
    EXPECT_TRUE(IsRecorded("ui/paper_labels.txt", text));
}

TEST_F(Sheets, LeaveMessagesWithoutASessionAlone) {
    const HWND window = windows.Add(u"Dialog");
    for (const UINT message : {WM_COMMAND, WM_NOTIFY, WM_HELP, WM_CONTEXTMENU, WM_CTLCOLORSTATIC,
                               WM_ERASEBKGND, WM_DRAWITEM, WM_DESTROY}) {
        for (const DLGPROC procedure : {PaperPageProc, AboutDialogProc, AboutPageProc}) {
            EXPECT_EQ(procedure(window, message, IDC_DEFAULT, 0), FALSE) << message;
        }
    }
    DestroyWindow(window);
}

}  // namespace
}  // namespace ksfax
