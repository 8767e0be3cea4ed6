// ksfax state: what a kept machine holds.

#include <cstring>
#include <filesystem>
#include <fstream>
#include <iostream>

#include "core/printer_data.h"
#include "platform/embedded/files.h"
#include "platform/embedded/profiles.h"
#include "platform/embedded/registry.h"
#include "platform/embedded/spooler.h"
#include "platform/embedded/text.h"
#include "tool/program.h"

namespace tool {

namespace {

using embedded::Utf8;
using nlohmann::ordered_json;

constexpr char16_t kFaxJobFile[] = u"KSFAXJOB.INI";

// The device record field by field. Older drivers stored fewer bytes; the rest counts as zero.
ordered_json DeviceRecordJson(const std::vector<std::byte>& data) {
    ksfax::PrinterDataRecord record = {};
    std::memcpy(&record, data.data(), std::min(data.size(), sizeof record));
    ordered_json selections = ordered_json::array();
    const size_t count = std::min<size_t>(record.installableCount, ksfax::kInstallableRoom);
    for (size_t i = 0; i < count; ++i) {
        selections.push_back(record.installableSelections[i]);
    }
    return {{"bytes", data.size()},
            {"version", record.version},
            {"size", record.size},
            {"metricLocale", (record.deviceFlags & ksfax::kMetricLocale) != 0},
            {"printerHalftone", (record.deviceFlags & ksfax::kPrinterHalftone) != 0},
            {"otherCodePage", (record.deviceFlags & ksfax::kOtherCodePage) != 0},
            {"memoryBytes", record.memoryBytes},
            {"jobTimeoutSeconds", record.jobTimeout},
            {"waitTimeoutSeconds", record.waitTimeout},
            {"languageIndex", record.languageIndex},
            {"descriptionChecksum", record.descriptionChecksum},
            {"installableCount", record.installableCount},
            {"installableSelections", selections}};
}

std::string Hexadecimal(const std::vector<std::byte>& data) {
    constexpr char kDigits[] = "0123456789abcdef";
    std::string text;
    for (const std::byte byte : data) {
        text += kDigits[unsigned(byte) >> 4];
        text += kDigits[unsigned(byte) & 15];
    }
    return text;
}

ordered_json ValueJson(const embedded::StoredValue& value) {
    if (value.type == REG_DWORD && value.data.size() == sizeof(DWORD)) {
        DWORD number = 0;
        std::memcpy(&number, value.data.data(), sizeof number);
        return number;
    }
    if ((value.type == REG_SZ || value.type == REG_EXPAND_SZ) && value.data.size() % 2 == 0) {
        std::u16string text(value.data.size() / 2, u'\0');
        std::memcpy(text.data(), value.data.data(), value.data.size());
        return Utf8(text.substr(0, text.find(u'\0')));
    }
    return Hexadecimal(value.data);
}

ordered_json ValuesJson(const embedded::StoredValues& values) {
    ordered_json all = ordered_json::object();
    for (const auto& [name, value] : values) {
        all[Utf8(name)] = embedded::EqualIgnoringCase(name, u"PrinterData")
                              ? DeviceRecordJson(value.data)
                              : ValueJson(value);
    }
    return all;
}

ordered_json KeyJson(const embedded::Registry& registry, HKEY root, const std::u16string& path) {
    ordered_json key = ordered_json::object();
    if (const std::u16string keyClass = registry.ClassOf(root, path); !keyClass.empty()) {
        key["class"] = Utf8(keyClass);
    }
    if (const ordered_json values = ValuesJson(registry.Values(root, path)); !values.empty()) {
        key["values"] = values;
    }
    for (const std::u16string& name : registry.Subkeys(root, path)) {
        key["keys"][Utf8(name)] =
            KeyJson(registry, root, path.empty() ? name : path + u"\\" + name);
    }
    return key;
}

ordered_json MachineJson(embedded::Machine& machine) {
    ordered_json printers = ordered_json::array();
    for (const embedded::Printer& printer : machine.spooler().printers()) {
        printers.push_back({{"name", Utf8(printer.name)},
                            {"driver", Utf8(printer.driverName)},
                            {"port", Utf8(printer.portName)},
                            {"defaultSettingsBytes", printer.defaultSettings.size()},
                            {"data", ValuesJson(printer.data)}});
    }
    ordered_json drivers = ordered_json::array();
    for (const embedded::Driver& driver : machine.spooler().drivers()) {
        drivers.push_back(
            {{"name", Utf8(driver.name)}, {"dataFile", Utf8(driver.dataFile)}});
    }
    ordered_json forms = ordered_json::array();
    for (const embedded::Form& form : machine.spooler().forms()) {
        constexpr const char* kKinds[] = {"user", "builtin", "printer"};
        forms.push_back({{"name", Utf8(form.name)},
                         {"kind", form.flags <= FORM_PRINTER ? kKinds[form.flags] : "?"},
                         {"widthMicrons", form.size.cx},
                         {"heightMicrons", form.size.cy}});
    }
    ordered_json ini = ordered_json::object();
    for (const std::u16string& section : machine.profiles().Sections(kFaxJobFile)) {
        for (const std::u16string& key : machine.profiles().Keys(section, kFaxJobFile)) {
            ini[Utf8(section)][Utf8(key)] =
                Utf8(machine.profiles().Read(section, key, kFaxJobFile).value_or(u""));
        }
    }
    return {{"country", machine.setup().country},
            {"codePage", machine.setup().codePage},
            {"printers", printers},
            {"drivers", drivers},
            {"forms", forms},
            {"registry",
             {{"HKEY_LOCAL_MACHINE", KeyJson(machine.registry(), HKEY_LOCAL_MACHINE, u"")},
              {"HKEY_CURRENT_USER", KeyJson(machine.registry(), HKEY_CURRENT_USER, u"")}}},
            {"faxJobFile", ini}};
}

// Indented names and values; a record of forms in one line.
void Tell(const ordered_json& value, int depth) {
    const std::string indent(size_t(depth) * 2, ' ');
    for (const auto& [name, entry] : value.items()) {
        if (entry.is_structured() && entry.empty()) {
            std::cout << indent << name << "  (none)\n";
        } else if (entry.is_object() || (entry.is_array() && entry[0].is_object())) {
            std::cout << indent << (value.is_array() ? "-" : name) << '\n';
            Tell(entry, depth + 1);
        } else {
            std::cout << indent << name << "  "
                      << (entry.is_string() ? entry.get<std::string>() : entry.dump()) << '\n';
        }
    }
}

void TellMachine(const ordered_json& machine) {
    for (const auto& [name, entry] : machine.items()) {
        if (name != "forms") {
            Tell({{name, entry}}, 0);
            continue;
        }
        std::cout << "forms\n";
        for (const ordered_json& form : entry) {
            char line[160];
            std::snprintf(line, sizeof line, "  %-8s %7.1f x %-7.1f mm  ",
                          form["kind"].get<std::string>().c_str(),
                          form["widthMicrons"].get<int>() / 1000.0,
                          form["heightMicrons"].get<int>() / 1000.0);
            std::cout << line << form["name"].get<std::string>() << '\n';
        }
    }
}

}  // namespace

void AddStateCommand(CLI::App& program, int& exitCode) {
    struct Options {
        MachineOptions machine;
        bool json = false;
    };
    auto options = std::make_shared<Options>();
    CLI::App* state = program.add_subcommand("state", "Show what a kept machine holds");
    options->machine.AddTo(*state);
    state->get_option("--machine")->required();
    state->add_flag("--json", options->json, "Print one JSON object");
    state->callback([options, &exitCode] {
        if (!std::filesystem::exists(std::filesystem::path(options->machine.folder) / "machine.json")) {
            throw UserError(options->machine.folder +
                            " holds no machine; make one with ksfax send --machine");
        }
        MachineRun run(options->machine);
        const ordered_json machine = MachineJson(run.machine());
        if (options->json) {
            PrintJson(machine);
        } else {
            TellMachine(machine);
        }
        exitCode = kDone;
    });
}

}  // namespace tool
