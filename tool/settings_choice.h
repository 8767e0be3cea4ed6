#pragma once

// The job settings that a user of ksfax send chooses, and what a page is with them.

#include <optional>
#include <string>

#include "platform/embedded/machine.h"

#include "description/printer_description.h"
#include "jobsettings/job_settings.h"

namespace tool {

// As given on the command line; empty: not given.
struct SettingsOptions {
    std::string paper;
    bool landscape = false;
    std::string resolution;  // "200x200" or "200x100"
};

// The same in the terms of a description.
struct SettingsChoice {
    std::optional<short> paperCode;
    bool landscape = false;
    std::optional<uint32_t> faxResolution;  // as the job settings record has it
};

// A paper is named as the description's paper list names it, or by its translation; letter case
// does not matter. Throws UserError, which names what there is, for a paper or a resolution that
// `ppd` does not offer.
SettingsChoice FindSettings(const ksfax::PrinterDescription& description, const std::string& ppd,
                            const SettingsOptions& options);

// Opens the document's property sheet, makes the choices on the paper settings page as a person
// would, and presses OK. Gives the record that the application gets. Throws UserError when the
// driver shows no sheet or the sheet does not offer a choice.
ksfax::JobSettings ChooseOnSheet(embedded::Machine& machine, HANDLE printer,
                                 const SettingsChoice& choice);

// A page of a job with these settings.
struct PageShape {
    std::string paper;  // as the description calls it; "paper N" when it has no such code
    short paperCode = 0;
    bool isLandscape = false;
    unsigned dpiAcross = 0;
    unsigned dpiDown = 0;
    unsigned dotsAcross = 0;  // both 0 for a paper of no known size
    unsigned dotsDown = 0;
};
PageShape ShapeOfPages(const ksfax::JobSettings& settings,
                       const ksfax::PrinterDescription& description);

}  // namespace tool
