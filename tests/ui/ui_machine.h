#pragma once

// A machine with the fax printer, whose property sheets and controls a test uses as a person does.

#include <cstring>
#include <functional>
#include <iterator>
#include <optional>
#include <sstream>
#include <string>
#include <utility>
#include <vector>

#include <gtest/gtest.h>

#include "platform/embedded/gdi.h"
#include "platform/embedded/modules.h"
#include "platform/embedded/property_sheets.h"
#include "platform/embedded/text.h"
#include "platform/embedded/windows.h"

#include "core/module_state.h"
#include "jobsettings/job_settings.h"
#include "resources/resource.h"
#include "tests/core/fax_machine.h"
#include "tests/golden.h"
#include "ui/page.h"

namespace tests {

// Besides Letter, A4 and the user-defined size: a paper whose name nobody knows, in front of
// another that they do, and a code with more than 16 bits.
inline constexpr std::string_view kPagePapers = R"(*OpenUI *Paper: PickOne
*DefaultPaper: A4
*Paper Letter: "1"
*Paper Unheard: "300"
*Paper A4: "9"
*Paper Legal: "5"
*Paper A5: "65547"
*Paper B5: "256"
*Paper A6: "65535"
*CloseUI: *Paper
*OpenUI *MediaType: PickOne
*DefaultMediaType: Thick
*MediaType Plain: "2"
*MediaType Thick: "3"
*CloseUI: *MediaType
)";

class UiMachine : public testing::Test {
  protected:
    using Sheet = embedded::PropertySheet;

    explicit UiMachine(std::string_view papers = kPagePapers, embedded::MachineSetup setup = {})
        : fax(std::move(setup)) {
        fax.AddPrinter(FaxMachine::kPrinter, u"C:\\Ppd\\PAGE.PPD", kFaxPpd + std::string(papers));
        // Callers' records count only over a default record of the printer's.
        embedded::Printer whole = *fax.machine.spooler().FindPrinter(FaxMachine::kPrinter);
        const ksfax::JobSettings defaults = DefaultRecord();
        whole.defaultSettings = BytesOf(&defaults, sizeof defaults);
        fax.machine.spooler().AddPrinter(std::move(whole));
        printer = fax.Open(FaxMachine::kPrinter, true);
        ResetOutput();
    }
    ~UiMachine() override {
        printer.reset();
        EXPECT_EQ(fax.OpenWithoutCache(), atRest);
    }

    ksfax::JobSettings DefaultRecord() {
        ksfax::JobSettings record;
        LONG bytes = sizeof record;
        EXPECT_TRUE(
            DrvConvertDevMode(name.data(), nullptr, &record.devMode, &bytes, CDM_DRIVER_DEFAULT));
        return record;
    }

    // Shows the document sheet to `user` with `input`; the result, with the record in `output`.
    LONG ShowDocument(std::function<void(Sheet&)> user, ksfax::JobSettings* input = nullptr,
                      DWORD mode = DM_IN_PROMPT | DM_OUT_BUFFER) {
        host.user = std::move(user);
        ResetOutput();
        return DrvDocumentProperties(nullptr, printer.get(), name.data(), &output.devMode,
                                     input != nullptr ? &input->devMode : nullptr, mode);
    }

    // ---- Scripts of tests/golden/ui

    void Replay(const std::string& file) {
        script.emplace("ui/" + file);
        for (Command command = Next(); !command.verb.empty(); command = Next()) {
            Do(command);
        }
        EXPECT_TRUE(script->IsReplayed());
    }
    // "$ verb word word"; without a verb at the end of the script.
    struct Command {
        std::string verb;
        std::string rest;               // behind the verb
        std::vector<std::string> word;  // of it
        LONG_PTR number(size_t at) const {
            return at < word.size() ? std::strtoll(word[at].c_str(), nullptr, 0) : 0;
        }
    };
    virtual void Do(const Command&) {}
    static Command CommandOf(const std::string& line) {
        std::istringstream words(line);
        Command command;
        words >> command.verb;
        std::getline(words >> std::ws, command.rest);
        words = std::istringstream(command.rest);
        command.word.assign(std::istream_iterator<std::string>(words), {});
        return command;
    }
    Command Next() { return CommandOf(script->Next()); }
    template <typename... Parts>
    static std::string Line(const Parts&... parts) {
        std::ostringstream line;
        (line << ... << parts);
        return line.str();
    }
    template <typename... Parts>
    void Tell(const Parts&... parts) {
        script->Tell(Line(parts...));
    }

    bool Click(HWND dialog, int control) { return windows.Click(GetDlgItem(dialog, control)); }
    // What a context shows now, without waiting for anything to be painted.
    embedded::Bitmap PixelsOf(HDC context, int width, int height) {
        const HDC copy = CreateCompatibleDC(context);
        const HBITMAP bitmap = CreateCompatibleBitmap(context, width, height);
        const HGDIOBJ before = SelectObject(copy, bitmap);
        BitBlt(copy, 0, 0, width, height, context, 0, 0, SRCCOPY);
        const embedded::Bitmap pixels = *fax.machine.graphics().BitmapOf(bitmap);
        SelectObject(copy, before);
        DeleteObject(bitmap);
        DeleteDC(copy);
        return pixels;
    }
    void ResetOutput() { std::memset(static_cast<void*>(&output), 0xAA, sizeof output); }
    bool OutputIsUntouched() const {
        const Bytes bytes = BytesOf(&output, sizeof output);
        return bytes == Bytes(sizeof output, std::byte{0xAA});
    }

    std::u16string name = FaxMachine::kPrinter;
    FaxMachine fax;
    embedded::Windows& windows = fax.machine.windows();
    embedded::PropertySheetHost& host = embedded::InstallPropertySheetHost(fax.machine);
    embedded::Leaks atRest = fax.OpenWithoutCache();
    platform::PrinterHandle printer;
    ksfax::JobSettings output;
    std::optional<Script> script;
};

}  // namespace tests
