#pragma once

// The machine's fax printer, set up as the spooler would: a driver whose data file is a PPD of the
// host, a printer of that driver with the driver's own default record, and the questions that
// applications and the spooler then put to it.

#include <filesystem>
#include <nlohmann/json_fwd.hpp>
#include <optional>
#include <string>

#include "platform/embedded/machine.h"
#include "platform/windows_api.h"

namespace tool {

inline constexpr char16_t kPrinterName[] = u"Fax";
inline constexpr char16_t kDriverName[] = u"KS Fax";

// The PPD that the printer was installed with; empty when it was not installed yet. A machine on
// which faxes were sent without a PPD has the printer, but no driver for it.
std::filesystem::path InstalledPpd(embedded::Machine& machine);

// Adds the driver with this PPD and the printer. A printer that is there keeps all that it has,
// but gets the driver's default record if it has none. Throws UserError when the driver can make
// no description of the PPD.
void AddFaxPrinter(embedded::Machine& machine, const std::filesystem::path& ppd);

// Adds them and has the driver initialise the printer. One that was installed with another PPD is
// removed first, with all that was stored for it.
void InstallFaxPrinter(embedded::Machine& machine, const std::filesystem::path& ppd);

// A handle of the fax printer.
class OpenFaxPrinter {
  public:
    // For use alone, as applications open it, or with every right. Throws UserError.
    explicit OpenFaxPrinter(bool asAdministrator = false);
    ~OpenFaxPrinter() { ClosePrinter(handle_); }
    OpenFaxPrinter(const OpenFaxPrinter&) = delete;
    OpenFaxPrinter& operator=(const OpenFaxPrinter&) = delete;

    HANDLE handle() const { return handle_; }

  private:
    HANDLE handle_ = nullptr;
};

// The driver's answer to the spooler's question whether a job can be printed.
struct PrintAnswer {
    bool canPrint = true;
    unsigned message = 0;  // number of the refusal
    std::string text;

    // canPrint, message and text, of which the last two are null when it can.
    nlohmann::ordered_json Json() const;
    std::string Line() const;
};
// `driver` is the module that the refusal texts come from.
PrintAnswer AskWhetherCanPrint(HINSTANCE driver, HANDLE printer, DEVMODEW* record);

}  // namespace tool
