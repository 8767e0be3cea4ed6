#pragma once

// Printers whose PPDs lie in tests/golden/capabilities.

#include <fstream>
#include <iterator>
#include <string>

#include "tests/core/fax_machine.h"

namespace ksfax {

// Opens the printer of that PPD, which comes up when it is first asked for.
inline platform::PrinterHandle AddPpdPrinter(FaxMachine& fax, const std::string& name) {
    const std::u16string wide(name.begin(), name.end());
    const std::u16string path = u"C:\\Ppd\\" + wide + u".PPD";
    if (!std::filesystem::exists(fax.machine.files().HostPath(path))) {
        std::ifstream file(SOURCE_FOLDER "/tests/golden/capabilities/" + name + ".ppd");
        fax.AddPrinter(wide, path, std::string{std::istreambuf_iterator<char>(file), {}});
    }
    return fax.Open(wide);
}

}  // namespace ksfax
