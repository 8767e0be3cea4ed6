#include "tool/fax_printer.h"

#include <nlohmann/json.hpp>

#include "platform/embedded/files.h"
#include "platform/embedded/spooler.h"
#include "platform/embedded/text.h"

#include "jobsettings/job_settings.h"
#include "tool/failure.h"
#include "tool/ppd_file.h"

namespace tool {

namespace {

// The record that the spooler asks a driver for when a printer is added.
std::vector<std::byte> DriverDefaultRecord() {
    std::vector<std::byte> record(sizeof(ksfax::JobSettings));
    LONG bytes = LONG(record.size());
    std::u16string name = kPrinterName;
    if (!DrvConvertDevMode(name.data(), nullptr, reinterpret_cast<DEVMODEW*>(record.data()), &bytes,
                           CDM_DRIVER_DEFAULT)) {
        throw UserError("the driver gives no default record for the machine's printer");
    }
    return record;
}

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

}  // namespace

std::filesystem::path InstalledPpd(embedded::Machine& machine) {
    if (machine.spooler().FindPrinter(kPrinterName)) {
        for (const embedded::Driver& driver : machine.spooler().drivers()) {
            if (driver.name == kDriverName && !driver.dataFile.empty()) {
                return machine.files().HostPath(driver.dataFile);
            }
        }
    }
    return {};
}

void AddFaxPrinter(embedded::Machine& machine, const std::filesystem::path& ppd) {
    const LoadedDescription description(ppd);  // fails clearly when there is none
    embedded::Spooler& spooler = machine.spooler();
    spooler.AddDriver({.name = kDriverName, .dataFile = PpdPath(ppd)});
    embedded::Printer printer =
        spooler.FindPrinter(kPrinterName)
            .value_or(embedded::Printer{.name = kPrinterName, .driverName = kDriverName});
    printer.driverName = kDriverName;
    spooler.AddPrinter(printer);
    if (printer.defaultSettings.empty()) {
        printer.defaultSettings = DriverDefaultRecord();
        spooler.AddPrinter(std::move(printer));
    }
}

void InstallFaxPrinter(embedded::Machine& machine, const std::filesystem::path& ppd) {
    const std::filesystem::path installed = InstalledPpd(machine);
    if (!installed.empty() && installed != machine.files().HostPath(PpdPath(ppd))) {
        machine.spooler().RemovePrinter(kPrinterName);
    }
    AddFaxPrinter(machine, ppd);
    std::u16string name = kPrinterName;
    DrvPrinterEvent(name.data(), PRINTER_EVENT_INITIALIZE, 0, 0);
}

OpenFaxPrinter::OpenFaxPrinter(bool asAdministrator) {
    std::u16string name = kPrinterName;
    PRINTER_DEFAULTSW everyRight = {
        .pDatatype = nullptr, .pDevMode = nullptr, .DesiredAccess = PRINTER_ALL_ACCESS};
    if (!OpenPrinterW(name.data(), &handle_, asAdministrator ? &everyRight : nullptr)) {
        throw UserError("the machine's printer cannot be opened, error " +
                        std::to_string(GetLastError()));
    }
}

nlohmann::ordered_json PrintAnswer::Json() const {
    nlohmann::ordered_json json = {{"canPrint", canPrint}, {"message", nullptr}, {"text", nullptr}};
    if (!canPrint) {
        json["message"] = message;
        json["text"] = text;
    }
    return json;
}

std::string PrintAnswer::Line() const {
    return canPrint ? "can print" : std::to_string(message) + ' ' + text;
}

PrintAnswer AskWhetherCanPrint(HINSTANCE driver, HANDLE printer, DEVMODEW* record) {
    WCHAR text[512] = {};
    DEVQUERYPRINT_INFO query = {.cbSize = sizeof query,
                                .Level = 1,
                                .hPrinter = printer,
                                .pDevMode = record,
                                .pszErrorStr = text,
                                .cchErrorStr = DWORD(std::size(text)),
                                .cchNeeded = 0};
    if (DevQueryPrintEx(&query)) {
        return {};
    }
    return {
        .canPrint = false, .message = MessageNumber(driver, text), .text = embedded::Utf8(text)};
}

}  // namespace tool
