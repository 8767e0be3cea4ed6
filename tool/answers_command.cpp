// ksfax capabilities and ksfax query: what the driver answers applications and the spooler.

#include <cstring>
#include <iostream>

#include "core/spooler_queries.h"
#include "jobsettings/job_settings.h"
#include "platform/embedded/spooler.h"
#include "platform/embedded/text.h"
#include "tool/fax_input.h"
#include "tool/ppd_file.h"
#include "tool/program.h"
#include "tool/settings_record.h"

namespace tool {

namespace {

using embedded::Utf8;
using nlohmann::ordered_json;

constexpr char16_t kPrinterName[] = u"Fax";
constexpr char16_t kDriverName[] = u"KS Fax";
constexpr DWORD kNoAnswer = 0xFFFFFFFF;

// The machine's fax printer with this PPD as its driver's data file, open for use. A printer that
// a kept machine has already stays as it is otherwise; a new one has the driver's defaults.
class FaxPrinter {
  public:
    FaxPrinter(embedded::Machine& machine, const std::filesystem::path& ppd) {
        const LoadedDescription description(ppd);  // fails clearly when there is none
        machine.spooler().AddDriver({.name = kDriverName, .dataFile = PpdPath(ppd)});
        embedded::Printer printer = machine.spooler()
                                        .FindPrinter(kPrinterName)
                                        .value_or(embedded::Printer{.name = kPrinterName,
                                                                    .driverName = kDriverName});
        printer.driverName = kDriverName;
        if (printer.defaultSettings.empty()) {
            ksfax::JobSettings defaults;
            ksfax::BuildDefaultJobSettings(&defaults, kPrinterName, *description,
                                           ksfax::IsMetricLocale());
            const auto* bytes = reinterpret_cast<const std::byte*>(&defaults);
            printer.defaultSettings.assign(bytes, bytes + sizeof defaults);
        }
        machine.spooler().AddPrinter(std::move(printer));
        std::u16string name = kPrinterName;
        if (!OpenPrinterW(name.data(), &handle_, nullptr)) {
            throw UserError("the machine's printer cannot be opened, error " +
                            std::to_string(GetLastError()));
        }
    }
    ~FaxPrinter() { ClosePrinter(handle_); }
    FaxPrinter(const FaxPrinter&) = delete;
    FaxPrinter& operator=(const FaxPrinter&) = delete;

    HANDLE handle() const { return handle_; }

  private:
    HANDLE handle_ = nullptr;
};

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
        answer["values"].push_back(
            ReadEntry(capability.shape, &output[i * capability.entryBytes]));
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

// The number of the refusal whose text this is: those of the module are told apart by their
// texts. The one for a paper that is not available has the paper's name in it.
unsigned MessageNumber(HINSTANCE module, const std::u16string& text) {
    constexpr unsigned kFirst = 40043;
    constexpr unsigned kLast = 40058;
    constexpr unsigned kWithPaper = 40057;
    for (unsigned number = kFirst; number <= kLast; ++number) {
        WCHAR message[256];
        const int length = LoadStringW(module, number, message, std::size(message));
        if (length > 0 && number != kWithPaper && text == std::u16string(message, size_t(length))) {
            return number;
        }
    }
    return kWithPaper;
}

int RunQuery(MachineRun& run, const std::string& ppd, const std::string& settings,
             const std::string& trayForms, bool json) {
    std::vector<std::byte> record = ReadSettingsRecord(settings);
    const FaxPrinter printer(run.machine(), ppd);
    if (!trayForms.empty()) {
        const std::vector<std::byte> table = ReadFileBytes(trayForms);
        run.machine().spooler().SetPrinterData(kPrinterName, u"TrayFormSize",
                                               embedded::StoredNumber(DWORD(table.size())));
        run.machine().spooler().SetPrinterData(kPrinterName, u"TrayFormTable",
                                               {.type = REG_BINARY, .data = table});
    }
    WCHAR text[512] = {};
    DEVQUERYPRINT_INFO query = {.cbSize = sizeof query,
                                .Level = 1,
                                .hPrinter = printer.handle(),
                                .pDevMode = reinterpret_cast<DEVMODEW*>(record.data()),
                                .pszErrorStr = text,
                                .cchErrorStr = DWORD(std::size(text)),
                                .cchNeeded = 0};
    const bool canPrint = DevQueryPrintEx(&query) != FALSE;
    const unsigned number = canPrint ? 0 : MessageNumber(run.instance(), text);
    if (json) {
        PrintJson({{"canPrint", canPrint},
                   {"message", canPrint ? ordered_json() : ordered_json(number)},
                   {"text", canPrint ? ordered_json() : ordered_json(Utf8(text))}});
    } else if (canPrint) {
        std::cout << "can print\n";
    } else {
        std::cout << number << ' ' << Utf8(text) << '\n';
    }
    return canPrint ? kDone : kRefused;
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
    command->add_flag("--no-forms", options->noForms, "Empty the forms database");
    command->add_flag("--json", options->json, "Print an array of objects");
    options->machine.AddTo(*command);
    command->callback([options, &exitCode] {
        std::vector<std::byte> record;
        if (!options->settings.empty()) {
            record = ReadSettingsRecord(options->settings);
        }
        MachineRun run(options->machine);
        if (options->noForms) {
            run.machine().spooler().RemoveAllForms();
        }
        const FaxPrinter printer(run.machine(), options->ppd);
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
        exitCode = kDone;
    });
}

void AddQueryCommand(CLI::App& program, int& exitCode) {
    struct Options {
        MachineOptions machine;
        std::string ppd, settings, trayForms;
        bool json = false;
    };
    auto options = std::make_shared<Options>();
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
    command->callback([options, &exitCode] {
        MachineRun run(options->machine);
        exitCode = RunQuery(run, options->ppd, options->settings, options->trayForms,
                            options->json);
    });
}

}  // namespace tool
