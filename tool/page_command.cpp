// ksfax page: the driver's property pages as their users see them.

#include <iostream>
#include <optional>

#include "platform/embedded/property_sheets.h"
#include "platform/embedded/text.h"
#include "platform/embedded/windows.h"
#include "platform/windows_api.h"

#include "jobsettings/job_settings.h"
#include "tool/fax_printer.h"
#include "tool/picture.h"
#include "tool/ppd_file.h"
#include "tool/program.h"
#include "tool/settings_record.h"

namespace tool {

namespace {

using embedded::Utf8;
using nlohmann::ordered_json;

struct PageOptions {
    MachineOptions machine;
    std::string ppd, out, settings;
    bool locked = false;
    bool about = false;
    bool json = false;
};

// A page while its sheet was open.
struct PageSeen {
    std::string tab;
    embedded::Bitmap picture{0, 0};
    ordered_json controls = ordered_json::array();  // those that show, in their order
};

ordered_json DescribeControl(embedded::Machine& machine, HWND control) {
    WCHAR className[32];
    GetClassNameW(control, className, std::size(className));
    ordered_json facts = {{"id", GetWindowLongW(control, GWL_ID)},
                          {"text", Utf8(machine.windows().TextOf(control))},
                          {"enabled", IsWindowEnabled(control) != FALSE}};
    if (std::u16string_view(className) == u"ComboBox") {
        ordered_json items = ordered_json::array();
        const LRESULT count = SendMessageW(control, CB_GETCOUNT, 0, 0);
        for (WPARAM item = 0; item < WPARAM(count); ++item) {
            std::u16string text(size_t(SendMessageW(control, CB_GETLBTEXTLEN, item, 0)), 0);
            SendMessageW(control, CB_GETLBTEXT, item, LPARAM(text.data()));
            items.push_back(Utf8(text));
        }
        const LRESULT selected = SendMessageW(control, CB_GETCURSEL, 0, 0);
        facts["text"] = selected >= 0 ? items[size_t(selected)] : ordered_json("");
        facts["items"] = std::move(items);
    } else if (SendMessageW(control, BM_GETCHECK, 0, 0) == BST_CHECKED) {
        facts["checked"] = true;
    }
    return facts;
}

PageSeen LookAt(embedded::Machine& machine, embedded::PropertySheet& sheet) {
    PageSeen seen{.tab = Utf8(sheet.tab()), .picture = machine.windows().Picture(sheet.page())};
    for (const HWND control : machine.windows().Descendants(sheet.page())) {
        if (IsWindowVisible(control)) {
            seen.controls.push_back(DescribeControl(machine, control));
        }
    }
    return seen;
}

void OpenDocumentSheet(HANDLE printer, std::vector<std::byte>& settings, bool locked) {
    ksfax::JobSettings output;
    std::u16string name = kPrinterName;
    auto* input = settings.empty() ? nullptr : reinterpret_cast<DEVMODEW*>(settings.data());
    // The sheet is cancelled, so that the answer is not used and nothing is written to `output`.
    DrvDocumentProperties(nullptr, printer, name.data(), &output.devMode, input,
                          DM_IN_PROMPT | DM_OUT_BUFFER | (locked ? DM_NOPERMISSION : 0));
}

int RunPage(const PageOptions& options) {
    std::vector<std::byte> settings;
    if (!options.settings.empty()) {
        settings = ReadSettingsRecord(options.settings);
        if (ksfax::SpecVersionForSize(reinterpret_cast<const DEVMODEW*>(settings.data())) == 0) {
            std::cerr << "ksfax: the page shows nothing of the record: "
                      << NotRecognised(options.settings, settings) << '\n';
        }
    }
    RequireDescription(options.machine, options.ppd);
    MachineRun run(options.machine);
    AddFaxPrinter(run.machine(), options.ppd);
    const OpenFaxPrinter printer;
    std::optional<PageSeen> seen;
    embedded::InstallPropertySheetHost(run.machine()).user = [&](embedded::PropertySheet& sheet) {
        seen = LookAt(run.machine(), sheet);
    };
    if (options.about) {
        PrinterProperties(nullptr, printer.handle());
    } else {
        OpenDocumentSheet(printer.handle(), settings, options.locked);
    }
    if (!seen) {
        throw UserError("the driver opens no property sheet for " + options.ppd);
    }
    WriteColorPng(seen->picture.pixels, seen->picture.width, options.out);
    run.Save();
    if (options.json) {
        PrintJson({{"picture", JsonPath(options.out)},
                   {"width", seen->picture.width},
                   {"height", seen->picture.height},
                   {"tab", seen->tab},
                   {"controls", seen->controls}});
    } else {
        std::cout << options.out << ": the page \"" << seen->tab << "\", " << seen->picture.width
                  << " x " << seen->picture.height << " dots\n";
    }
    return kDone;
}

}  // namespace

void AddPageCommand(CLI::App& program, int& exitCode) {
    auto options = std::make_shared<PageOptions>();
    CLI::App* command = program.add_subcommand(
        "page", "Draw the paper settings page, or the About page, as its users see it");
    command->add_option("PPD", options->ppd, "The PPD file")->required()->type_name("");
    command->add_option("--out", options->out, "Write the picture to this PNG file")
        ->required()
        ->type_name("PNG");
    CLI::Option* settings = command
                                ->add_option("--settings", options->settings,
                                             "The job settings record that the page is opened with")
                                ->type_name("RECORD");
    CLI::Option* locked = command->add_flag("--locked", options->locked,
                                            "As a user sees it who may not change the settings");
    command->add_flag("--about", options->about, "The About page of the printer's properties")
        ->excludes(settings, locked);
    command->add_flag("--json", options->json,
                      "Print one object with the page's controls, their texts and states");
    options->machine.AddTo(*command);
    command->callback([options, &exitCode] { exitCode = RunPage(*options); });
}

}  // namespace tool
