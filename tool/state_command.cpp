// ksfax state: what a kept machine holds; and what a run changed in it.

#include <cstring>
#include <filesystem>
#include <fstream>
#include <iostream>

#include "platform/embedded/files.h"
#include "platform/embedded/profiles.h"
#include "platform/embedded/registry.h"
#include "platform/embedded/spooler.h"
#include "platform/embedded/text.h"

#include "core/printer_data.h"
#include "tool/machine_state.h"
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

// Names that the driver keeps as bytes, in the ANSI code page with a terminator.
std::string StoredName(const std::vector<std::byte>& data) {
    const std::string_view bytes(reinterpret_cast<const char*>(data.data()), data.size());
    return Utf8(embedded::FromAnsi(bytes.substr(0, bytes.find('\0'))));
}

ordered_json ValuesJson(const embedded::StoredValues& values) {
    ordered_json all = ordered_json::object();
    for (const auto& [name, value] : values) {
        all[Utf8(name)] = embedded::EqualIgnoringCase(name, u"PrinterData")
                              ? DeviceRecordJson(value.data)
                          : embedded::EqualIgnoringCase(name, u"UserName") ||
                                  embedded::EqualIgnoringCase(name, u"ComputerName")
                              ? ordered_json(StoredName(value.data))
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

std::string FormLine(const ordered_json& form) {
    char line[80];
    std::snprintf(line, sizeof line, "%-8s %7.1f x %-7.1f mm  ",
                  form["kind"].get<std::string>().c_str(), form["widthMicrons"].get<int>() / 1000.0,
                  form["heightMicrons"].get<int>() / 1000.0);
    return line + form["name"].get<std::string>();
}

// ---- Changes

struct Item {
    std::string what;
    std::string name;
    ordered_json value;
};
using Items = std::vector<Item>;

// Of a key that is only on the way to others there is nothing to tell.
void AddSubkeys(const ordered_json& key, const std::string& path, Items& items) {
    if (!key.contains("keys")) {
        return;
    }
    for (const auto& [name, subkey] : key["keys"].items()) {
        const std::string subkeyPath = path + '\\' + name;
        ordered_json value = subkey;
        value.erase("keys");
        if (!value.empty() || !subkey.contains("keys")) {
            items.push_back({"registry key", subkeyPath, value});
        }
        AddSubkeys(subkey, subkeyPath, items);
    }
}

// A machine's state as one list.
Items ItemsOf(const ordered_json& machine) {
    Items items;
    for (ordered_json printer : machine["printers"]) {
        const ordered_json data = printer["data"];
        printer.erase("data");
        items.push_back({"printer", printer["name"], printer});
        for (const auto& [name, value] : data.items()) {
            items.push_back({"data of printer " + printer["name"].get<std::string>(), name, value});
        }
    }
    for (const ordered_json& driver : machine["drivers"]) {
        items.push_back({"driver", driver["name"], driver});
    }
    for (const ordered_json& form : machine["forms"]) {
        items.push_back({"form", form["name"], form});
    }
    for (const auto& [root, key] : machine["registry"].items()) {
        AddSubkeys(key, root, items);
    }
    return items;
}

const ordered_json* Find(const Items& items, const Item& like) {
    const auto found = std::ranges::find_if(
        items, [&](const Item& item) { return item.what == like.what && item.name == like.name; });
    return found == items.end() ? nullptr : &found->value;
}

void TellDifference(const ordered_json& from, const ordered_json& to) {
    for (const auto& [name, value] : to.items()) {
        if (!from.contains(name) || from[name] != value) {
            std::cout << "    " << name << "  "
                      << (from.contains(name) ? from[name].dump() : "(none)") << " -> "
                      << value.dump() << '\n';
        }
    }
}

void TellChange(const ordered_json& change) {
    const ordered_json& from = change["from"];
    const ordered_json& to = change["to"];
    const bool isChanged = !from.is_null() && !to.is_null();
    std::cout << "  "
              << (isChanged        ? "changed  "
                  : from.is_null() ? "added    "
                                   : "removed  ")
              << change["what"].get<std::string>() << ' ';
    const ordered_json& value = to.is_null() ? from : to;
    if (change["what"] == "form") {
        std::cout << (isChanged ? from["kind"].get<std::string>() + " -> " : "") << FormLine(value)
                  << '\n';
        return;
    }
    std::cout << change["name"].get<std::string>();
    if (!value.is_object()) {
        std::cout << "  " << (isChanged ? from.dump() + " -> " : "") << value.dump() << '\n';
        return;
    }
    std::cout << '\n';
    if (isChanged) {
        TellDifference(from, to);
    } else if (from.is_null()) {
        Tell(to, 2);
    }
}

}  // namespace

void RequireKeptMachine(const MachineOptions& options) {
    if (!std::filesystem::exists(std::filesystem::path(options.folder) / "machine.json")) {
        throw UserError(options.folder +
                        " holds no machine; make one with ksfax install PPD --machine " +
                        options.folder);
    }
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
        drivers.push_back({{"name", Utf8(driver.name)}, {"dataFile", Utf8(driver.dataFile)}});
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
    for (const embedded::ProfileEntry& entry : machine.profiles().Entries(kFaxJobFile)) {
        ini[Utf8(entry.section)].emplace(Utf8(entry.key), Utf8(entry.value));
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

void TellMachine(const ordered_json& machine) {
    for (const auto& [name, entry] : machine.items()) {
        if (name != "forms") {
            Tell({{name, entry}}, 0);
            continue;
        }
        std::cout << "forms\n";
        for (const ordered_json& form : entry) {
            std::cout << "  " << FormLine(form) << '\n';
        }
    }
}

ordered_json StateChanges(const ordered_json& before, const ordered_json& after) {
    const Items old = ItemsOf(before);
    const Items now = ItemsOf(after);
    ordered_json changes = ordered_json::array();
    const auto add = [&](const Item& item, const ordered_json* from, const ordered_json* to) {
        changes.push_back({{"what", item.what},
                           {"name", item.name},
                           {"from", from == nullptr ? ordered_json() : *from},
                           {"to", to == nullptr ? ordered_json() : *to}});
    };
    for (const Item& item : old) {
        if (Find(now, item) == nullptr) {
            add(item, &item.value, nullptr);
        }
    }
    for (const Item& item : now) {
        const ordered_json* from = Find(old, item);
        if (from == nullptr || *from != item.value) {
            add(item, from, &item.value);
        }
    }
    return changes;
}

void TellChanges(const ordered_json& changes) {
    std::ranges::for_each(changes, TellChange);
}

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
        RequireKeptMachine(options->machine);
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
