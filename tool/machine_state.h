#pragma once

// What a machine holds, in JSON and for people, and what became other between two looks at it.

#include <nlohmann/json.hpp>

#include "platform/embedded/machine.h"

namespace tool {

struct MachineOptions;

// Throws UserError unless the options name a folder that holds a machine.
void RequireKeptMachine(const MachineOptions& options);

// Printers with their data, drivers, forms, the registry, the fax job file.
nlohmann::ordered_json MachineJson(embedded::Machine& machine);
void TellMachine(const nlohmann::ordered_json& machine);

// An array of {"what", "name", "from", "to"} for each thing that differs between two results of
// MachineJson: a printer, a value of a printer's data, a driver, a form, a registry key. What was
// not there is null.
nlohmann::ordered_json StateChanges(const nlohmann::ordered_json& before,
                                    const nlohmann::ordered_json& after);
void TellChanges(const nlohmann::ordered_json& changes);

}  // namespace tool
