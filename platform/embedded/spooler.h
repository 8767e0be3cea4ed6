#pragma once

// The print spooler of the embedded machine: printers with their printer data, drivers and the
// forms database. Tests and ksfax fill it and look into it through this class; driver code
// calls api_spooler.h. Safe to use from any thread.
//
// An empty text of a printer or a driver reaches the driver as a null pointer.

#include <map>
#include <memory>
#include <mutex>
#include <nlohmann/json_fwd.hpp>
#include <optional>
#include <set>
#include <string>
#include <thread>
#include <vector>

#include "platform/embedded/api_spooler.h"
#include "platform/embedded/machine.h"
#include "platform/embedded/stored_values.h"

namespace embedded {

struct Printer {
    std::u16string name;
    std::u16string driverName;
    std::u16string portName = u"FAX:";
    // The global default job settings record, of any size and content; empty for none.
    std::vector<std::byte> defaultSettings = {};
    StoredValues data = {};
};

struct Driver {
    std::u16string name;
    std::u16string dataFile = {};
    std::u16string helpFile = {};
};

// Lengths in micrometres.
struct Form {
    std::u16string name;
    DWORD flags = FORM_USER;
    SIZEL size = {};
    RECTL imageableArea = {};
};
// A form whose imageable area is the whole page.
Form WholePageForm(std::u16string name, DWORD flags, LONG width, LONG height);

// What OpenPrinterW was asked for beside the name.
struct PrinterOpening {
    std::u16string dataType = {};  // empty for none
    bool hasRecord = false;        // a job settings record
    DWORD access = 0;              // as given; 0 without defaults

    bool operator==(const PrinterOpening&) const = default;
};

class Spooler {
  public:
    // Holds the usual built-in forms, no printer and no driver. Installs spoolss.dll with
    // RevertToPrinterSelf and ImpersonatePrinterClient.
    explicit Spooler(Machine& machine);
    ~Spooler();

    // Each replaces one of the same name (letter case aside, forms exactly) in its place. A
    // handle that is open on a removed printer fails with ERROR_INVALID_HANDLE.
    void AddPrinter(Printer printer);
    void RemovePrinter(std::u16string_view name);
    std::vector<Printer> printers() const;
    std::optional<Printer> FindPrinter(std::u16string_view name) const;

    void AddDriver(Driver driver);
    std::vector<Driver> drivers() const;

    // In the order in which EnumFormsW gives them.
    std::vector<Form> forms() const;
    void AddForm(Form form);
    void RemoveAllForms();

    // Printer data of an existing printer, past any access check.
    std::optional<StoredValue> PrinterData(std::u16string_view printer,
                                           std::u16string_view value) const;
    void SetPrinterData(std::u16string_view printer, std::u16string_view value, StoredValue data);
    void RemovePrinterData(std::u16string_view printer, std::u16string_view value);

    // OpenPrinterW of that name fails with `error`; ERROR_SUCCESS lets it through again.
    void RefuseOpen(std::u16string_view printer, DWORD error);
    // When the user is no administrator, opening with PRINTER_ACCESS_ADMINISTER and changing
    // forms fail with ERROR_ACCESS_DENIED.
    void SetAdministrator(bool administrator);
    // Of the last OpenPrinterW that reached a lookup of its name, whether or not it succeeded.
    PrinterOpening lastOpening() const;

    // A spooler that lies: that call ("GetPrinterW", "GetPrinterDriverW", "EnumFormsW" ...)
    // reports `bytes` as the size it needs. Handed that many when the truth is more, it fills
    // them with zeros and reports success, so that a record is cut short and its pointers are
    // null.
    void ReportSize(std::string call, DWORD bytes);
    void TellTheTruth();

    // Whom the calling thread acts for. Every thread begins as a client, as when the spooler
    // serves a remote call; RevertToPrinterSelf makes it the spooler itself.
    bool ThreadActsForClient() const;

    // Printers, printer data, drivers and forms. Load replaces all of them, or throws
    // std::runtime_error or a nlohmann::json exception and changes nothing.
    nlohmann::json Save() const;
    void Load(const nlohmann::json& saved);

  private:
    friend struct SpoolerUse;
    struct Handle;

    // Guarded by the lock; so is what the printers point at.
    struct State {
        std::vector<std::shared_ptr<Printer>> printers;
        std::vector<Driver> drivers;
        std::vector<Form> forms;
        std::map<std::u16string, DWORD, LessIgnoringCase> refusals;
        bool administrator = true;
        PrinterOpening lastOpening;
        std::map<std::string, DWORD> lies;
        std::set<std::thread::id> reverted;

        std::shared_ptr<Printer> FindPrinter(std::u16string_view name) const;
        const Driver* FindDriver(std::u16string_view name) const;
    };
    mutable std::mutex mutex_;
    State state_;
};

}  // namespace embedded
