// ksfax capabilities and ksfax query: what the driver answers applications and the spooler.

#include <cstring>
#include <iostream>

#include "platform/embedded/spooler.h"
#include "platform/embedded/text.h"

#include "core/printer_data.h"
#include "tool/fax_input.h"
#include "tool/fax_printer.h"
#include "tool/ppd_file.h"
#include "tool/program.h"
#include "tool/settings_record.h"

namespace tool {

namespace {

using embedded::Utf8;
using nlohmann::ordered_json;

constexpr DWORD kNoAnswer = 0xFFFFFFFF;

// ---- capabilities

enum class Shape { None, Word, Pair, Text };

struct Capability {
    const char* name;
    Shape shape;        // of an entry of its list
    size_t entryBytes;  // in the caller's buffer
};
// By index. DC_FILEDEPENDENCIES writes an empty list, for which there is nothing to show.
constexpr Capability kCapabilities[] = {
    {"", Shape::None, 0},
    {"DC_FIELDS", Shape::None, 0},
    {"DC_PAPERS", Shape::Word, 2},
    {"DC_PAPERSIZE", Shape::Pair, 8},
    {"DC_MINEXTENT", Shape::None, 0},
    {"DC_MAXEXTENT", Shape::None, 0},
    {"DC_BINS", Shape::None, 0},
    {"DC_DUPLEX", Shape::None, 0},
    {"DC_SIZE", Shape::None, 0},
    {"DC_EXTRA", Shape::None, 0},
    {"DC_VERSION", Shape::None, 0},
    {"DC_DRIVER", Shape::None, 0},
    {"DC_BINNAMES", Shape::None, 0},
    {"DC_ENUMRESOLUTIONS", Shape::Pair, 8},
    {"DC_FILEDEPENDENCIES", Shape::None, 0},
    {"DC_TRUETYPE", Shape::None, 0},
    {"DC_PAPERNAMES", Shape::Text, 128},
    {"DC_ORIENTATION", Shape::None, 0},
    {"DC_COPIES", Shape::None, 0},
    {"DC_BINADJUST", Shape::None, 0},
    {"DC_EMF_COMPLIANT", Shape::None, 0},
    {"DC_DATATYPE_PRODUCED", Shape::None, 0},
    {"DC_COLLATE", Shape::None, 0},
    {"DC_MANUFACTURER", Shape::None, 0},
    {"DC_MODEL", Shape::None, 0},
    {"DC_PERSONALITY", Shape::None, 0},
    {"DC_PRINTRATE", Shape::None, 0},
    {"DC_PRINTRATEUNIT", Shape::None, 0},
    {"DC_PRINTERMEM", Shape::None, 0},
    {"DC_MEDIAREADY", Shape::Text, 128},
    {"DC_STAPLE", Shape::None, 0},
    {"DC_PRINTRATEPPM", Shape::None, 0},
    {"DC_COLORDEVICE", Shape::None, 0},
    {"", Shape::None, 0},
};
static_assert(std::size(kCapabilities) == 34);

ordered_json ReadEntry(Shape shape, const std::byte* entry) {
    if (shape == Shape::Word) {
        WORD code;
        std::memcpy(&code, entry, sizeof code);
        return code;
    }
    if (shape == Shape::Pair) {
        int32_t pair[2];
        std::memcpy(pair, entry, sizeof pair);
        return {pair[0], pair[1]};
    }
    WCHAR text[64];
    std::memcpy(text, entry, sizeof text);
    const std::u16string_view whole(text, std::size(text));
    return Utf8(whole.substr(0, whole.find(u'\0')));
}

ordered_json AskCapability(HANDLE printer, WORD index, DEVMODEW* record) {
    const Capability& capability = kCapabilities[index];
    std::u16string device = kPrinterName;
    const DWORD result = DrvDeviceCapabilities(printer, device.data(), index, nullptr, record);
    ordered_json answer = {{"index", index}, {"name", capability.name}, {"result", result}};
    if (capability.shape == Shape::None || result == 0 || result == kNoAnswer) {
        return answer;
    }
    std::vector<std::byte> output(size_t{result} * capability.entryBytes);
    if (DrvDeviceCapabilities(printer, device.data(), index, output.data(), record) != result) {
        throw UserError(std::string(capability.name) + ": the driver counts its list once so and "
                                                       "once otherwise");
    }
    answer["values"] = ordered_json::array();
    for (DWORD i = 0; i < result; ++i) {
        answer["values"].push_back(ReadEntry(capability.shape, &output[i * capability.entryBytes]));
    }
    return answer;
}

void TellCapability(const ordered_json& answer) {
    const DWORD result = answer["result"].get<DWORD>();
    const std::string name = answer["name"].get<std::string>();
    char line[80];
    std::snprintf(line, sizeof line, "%2u  %-22s", answer["index"].get<unsigned>(),
                  name.empty() ? "(not a capability)" : name.c_str());
    std::cout << line;
    if (result == kNoAnswer) {
        std::cout << "not answered\n";
        return;
    }
    std::cout << result;
    if (name == "DC_MINEXTENT" || name == "DC_MAXEXTENT") {
        std::snprintf(line, sizeof line, "  %.1f x %.1f mm", LOWORD(result) / 10.0,
                      HIWORD(result) / 10.0);
        std::cout << line;
    } else if (name == "DC_FIELDS" || name == "DC_VERSION" || name == "DC_DRIVER") {
        std::snprintf(line, sizeof line, "  0x%X", result);
        std::cout << line;
    }
    if (answer.contains("values")) {
        for (const ordered_json& value : answer["values"]) {
            std::cout << "\n      "
                      << (value.is_string() ? value.get<std::string>() : value.dump());
        }
        std::cout << (name == "DC_PAPERSIZE" ? "\n      (tenths of a millimetre)" : "");
    }
    std::cout << '\n';
}

// ---- query

struct QueryOptions {
    MachineOptions machine;
    std::string ppd, settings, trayForms;
    bool json = false;
};

void StoreTrayForms(MachineRun& run, HANDLE printer, const std::string& file,
                    const std::vector<std::byte>& table) {
    embedded::Spooler& spooler = run.machine().spooler();
    spooler.SetPrinterData(kPrinterName, u"TrayFormSize",
                           embedded::StoredNumber(DWORD(table.size())));
    spooler.SetPrinterData(kPrinterName, u"TrayFormTable", {.type = REG_BINARY, .data = table});
    if (!ksfax::TrayFormTable(ksfax::ReadTrayFormTable(printer))) {
        std::cerr << "ksfax: the driver takes the tray-form table " << file
                  << " for absent: it must begin with its length, " << table.size()
                  << " bytes, in 16 bits, and then have three texts and a number for each tray and "
                     "a 0 at the end\n";
    }
}

int RunQuery(const QueryOptions& options) {
    std::vector<std::byte> record = ReadSettingsRecord(options.settings);
    std::vector<std::byte> table;
    if (!options.trayForms.empty()) {
        table = ReadFileBytes(options.trayForms);
    }
    RequireDescription(options.machine, options.ppd);
    MachineRun run(options.machine);
    AddFaxPrinter(run.machine(), options.ppd);
    const OpenFaxPrinter printer;
    if (!options.trayForms.empty()) {
        StoreTrayForms(run, printer.handle(), options.trayForms, table);
    }
    const PrintAnswer answer = AskWhetherCanPrint(run.instance(), printer.handle(),
                                                  reinterpret_cast<DEVMODEW*>(record.data()));
    run.Save();
    if (options.json) {
        PrintJson(answer.Json());
    } else {
        std::cout << answer.Line() << '\n';
    }
    return answer.canPrint ? kDone : kRefused;
}

}  // namespace

void AddCapabilitiesCommand(CLI::App& program, int& exitCode) {
    struct Options {
        MachineOptions machine;
        std::string ppd, settings;
        bool noForms = false;
        bool json = false;
    };
    auto options = std::make_shared<Options>();
    CLI::App* command = program.add_subcommand(
        "capabilities", "Print the driver's answers to every capability query");
    command->add_option("PPD", options->ppd, "The PPD file")->required()->type_name("");
    command->add_option("--settings", options->settings, "The caller's job settings record")
        ->type_name("RECORD");
    command->add_flag("--no-forms", options->noForms, "Ask as if the forms database were empty");
    command->add_flag("--json", options->json, "Print an array of objects");
    options->machine.AddTo(*command);
    command->callback([options, &exitCode] {
        std::vector<std::byte> record;
        if (!options->settings.empty()) {
            record = ReadSettingsRecord(options->settings);
        }
        RequireDescription(options->machine, options->ppd);
        MachineRun run(options->machine);
        AddFaxPrinter(run.machine(), options->ppd);
        const OpenFaxPrinter printer;
        // A kept machine keeps its forms: to be without them is this run's question alone.
        run.Save();
        if (options->noForms) {
            run.machine().spooler().RemoveAllForms();
        }
        ordered_json all = ordered_json::array();
        for (WORD index = 0; index < std::size(kCapabilities); ++index) {
            all.push_back(AskCapability(
                printer.handle(), index,
                record.empty() ? nullptr : reinterpret_cast<DEVMODEW*>(record.data())));
        }
        if (options->json) {
            PrintJson(all);
        } else {
            std::ranges::for_each(all, TellCapability);
        }
        // Every query there is begins with the caller's record; this one has no other way to fail.
        if (!record.empty() && all[DC_FIELDS]["result"] == kNoAnswer) {
            std::cerr << "ksfax: nothing is answered: " << NotRecognised(options->settings, record)
                      << '\n';
        }
        exitCode = kDone;
    });
}

void AddQueryCommand(CLI::App& program, int& exitCode) {
    auto options = std::make_shared<QueryOptions>();
    CLI::App* command = program.add_subcommand(
        "query", "Ask whether a job with given settings can print on the printer");
    command->add_option("PPD", options->ppd, "The PPD file")->required()->type_name("");
    command->add_option("--settings", options->settings, "The job's settings record")
        ->required()
        ->type_name("RECORD");
    command->add_option("--tray-forms", options->trayForms, "The printer's tray-form table")
        ->type_name("FILE");
    command->add_flag("--json", options->json, "Print one JSON object");
    options->machine.AddTo(*command);
    command->callback([options, &exitCode] { exitCode = RunQuery(*options); });
}

}  // namespace tool
