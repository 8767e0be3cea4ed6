// ksfax install and ksfax upgrade: what the driver stores for a printer of a kept machine when the
// printer is initialised, and what it rewrites when a new version of the driver takes over.

#include <iostream>

#include "platform/embedded/spooler.h"

#include "tool/fax_printer.h"
#include "tool/machine_state.h"
#include "tool/ppd_file.h"
#include "tool/program.h"

namespace tool {

namespace {

using nlohmann::ordered_json;

struct Options {
    MachineOptions machine;
    std::string ppd;
    bool json = false;
};

void AddCommonOptions(CLI::App& command, Options& options) {
    options.machine.AddTo(command);
    command.get_option("--machine")->required();
    command.add_flag("--json", options.json, "Print one JSON object");
}

int RunInstall(const Options& options) {
    RequireDescription(options.machine, options.ppd);
    MachineRun run(options.machine);
    const std::filesystem::path before = InstalledPpd(run.machine());
    const ordered_json old = MachineJson(run.machine());
    InstallFaxPrinter(run.machine(), options.ppd);
    const std::filesystem::path now = InstalledPpd(run.machine());
    const ordered_json changes = StateChanges(old, MachineJson(run.machine()));
    run.Save();

    const bool isReplaced = !before.empty() && before != now;
    if (options.json) {
        PrintJson({{"ppd", JsonPath(now)},
                   {"replaced", isReplaced ? JsonPath(before) : ordered_json()},
                   {"changes", changes}});
        return kDone;
    }
    std::cout << "The printer \"Fax\" is installed with " << ShownPath(now) << '\n';
    if (isReplaced) {
        std::cout << "It takes the place of the one with " << ShownPath(before)
                  << ", whose stored data is gone\n";
    }
    TellChanges(changes);
    std::cout << (changes.empty() ? "Nothing had to be stored: all was in order\n" : "");
    if (!run.machine().spooler().PrinterData(kPrinterName, u"Forms?")) {
        std::cout << "Its papers become printer forms when the first session opens on it, as in "
                     "ksfax send --ppd\n";
    }
    return kDone;
}

int RunUpgrade(const Options& options) {
    RequireKeptMachine(options.machine);
    MachineRun run(options.machine);
    const std::filesystem::path ppd = InstalledPpd(run.machine());
    if (ppd.empty()) {
        throw UserError(options.machine.folder +
                        " holds no installed printer; install one with ksfax install PPD "
                        "--machine " +
                        options.machine.folder);
    }
    { const LoadedDescription description(ppd); }  // fails clearly when there is none
    const ordered_json old = MachineJson(run.machine());
    std::u16string name = kPrinterName;
    DRIVER_UPGRADE_INFO_1W information = {.pPrinterName = name.data(),
                                          .pOldDriverDirectory = nullptr};
    const bool isDone = DrvUpgradePrinter(1, reinterpret_cast<LPBYTE>(&information)) != FALSE;
    const ordered_json changes = StateChanges(old, MachineJson(run.machine()));
    run.Save();

    if (options.json) {
        PrintJson({{"ppd", JsonPath(ppd)}, {"upgraded", isDone}, {"changes", changes}});
    } else {
        std::cout << "The printer \"Fax\" with " << ShownPath(ppd)
                  << (isDone ? " is upgraded\n" : " is not wholly upgraded\n");
        TellChanges(changes);
        std::cout << (changes.empty() ? "Nothing had to change: all was in order\n" : "");
    }
    if (!isDone) {
        // Of what the driver reports so, this alone is left on a machine whose calls do not fail.
        std::cerr << "ksfax: the driver refused the upgrade: the printer's tray-form table is in "
                     "no layout that it knows, and stays as it is; remove \"TrayFormTable\" and "
                     "\"TrayFormSize\" from "
                  << options.machine.folder << "/machine.json or mend them\n";
    }
    return isDone ? kDone : kRefused;
}

}  // namespace

void AddInstallCommand(CLI::App& program, int& exitCode) {
    auto options = std::make_shared<Options>();
    CLI::App* command = program.add_subcommand(
        "install", "Install the fax printer on a kept machine and show what the driver stores");
    command->add_option("PPD", options->ppd, "The PPD file, the driver's data file")
        ->required()
        ->type_name("");
    AddCommonOptions(*command, *options);
    command->callback([options, &exitCode] { exitCode = RunInstall(*options); });
}

void AddUpgradeCommand(CLI::App& program, int& exitCode) {
    auto options = std::make_shared<Options>();
    CLI::App* command = program.add_subcommand(
        "upgrade", "Upgrade the driver of a kept machine's printer and show what it changes");
    AddCommonOptions(*command, *options);
    command->callback([options, &exitCode] { exitCode = RunUpgrade(*options); });
}

}  // namespace tool
