#pragma once

// What the tests of job settings stand on: a machine, and a printer description read from the
// statements of a PPD.

#include <algorithm>
#include <sstream>
#include <string>

#include <gtest/gtest.h>

#include "platform/embedded/machine.h"
#include "platform/owned.h"

#include "description/load_description.h"

namespace ksfax {

// A PPD's text from parts between ";": a statement, or a feature, as its name and default and then
// each option with a translation or an invocation: "*LanguageLevel: \"2\"; PageSize=A4 A4
// B5/Blatt".
inline std::string Ppd(const std::string& notation) {
    std::string ppd = "*PPD-Adobe: \"4.3\"\n";
    std::istringstream parts(notation);
    for (std::string part; std::getline(parts >> std::ws, part, ';');) {
        if (part.starts_with('*')) {
            ppd += part + "\n";
            continue;
        }
        std::istringstream words(part);
        std::string name;
        for (std::string word; words >> word;) {
            const size_t equals = word.find('=');
            const std::string value = equals != word.npos ? word.substr(equals + 1) : "";
            word.resize(std::min(equals, word.size()));
            if (name.empty()) {
                name = word;
                ppd += "*OpenUI *" + name + ": PickOne\n";
                ppd += value.empty() ? "" : "*Default" + name + ": " + value + "\n";
            } else {
                ppd += "*" + name + " " + word + ": \"" + value + "\"\n";
            }
        }
        ppd += "*CloseUI: *" + name + "\n";
    }
    return ppd;
}

class Described : public testing::Test {
  protected:
    // From here on `description` is that PPD's, with checksum 0x1234.
    void Describe(const std::string& notation) {
        const std::string text = Ppd(notation);
        ParseState* state = ParsePpdText(text, TEXT("C:\\FAX.PPD"));
        block_ = platform::GlobalBlock(state != nullptr ? PackDescription(state) : nullptr);
        ASSERT_TRUE(block_) << text;
        description = static_cast<PrinterDescription*>(block_.get());
        RelocateDescription(description);
        description->Checksum = 0x1234;
    }

    embedded::Machine machine;
    PrinterDescription* description = nullptr;

  private:
    platform::GlobalBlock block_;
};

}  // namespace ksfax
