#pragma once

// What the tests of job settings stand on: a machine, and a printer description read from the
// statements of a PPD.

#include <sstream>
#include <string>

#include <gtest/gtest.h>

#include "platform/embedded/machine.h"
#include "platform/owned.h"

#include "description/load_description.h"

namespace ksfax {

// The statements of one feature: its name and default, then each option, with a translation or an
// invocation: "PageSize=A4 A4 B5/Blatt", "Paper A4=9".
inline std::string Ui(const std::string& text) {
    std::istringstream words(text);
    const auto split = [&](std::string* tail) {
        std::string head;
        words >> head;
        const size_t equals = head.find('=');
        *tail = equals == head.npos ? "" : head.substr(equals + 1);
        return head.substr(0, equals);
    };
    std::string initial;
    const std::string name = split(&initial);
    std::string ppd = "*OpenUI *" + name + ": PickOne\n";
    ppd += initial.empty() ? "" : "*Default" + name + ": " + initial + "\n";
    std::string invocation;
    for (std::string option = split(&invocation); !option.empty(); option = split(&invocation)) {
        ppd += "*" + name + " " + option + ": \"" + invocation + "\"\n";
    }
    return ppd + "*CloseUI: *" + name + "\n";
}

class Described : public testing::Test {
  protected:
    // From here on `description` is that PPD's, of checksum 0x1234.
    void Describe(const std::string& ppd) {
        const std::string text = "*PPD-Adobe: \"4.3\"\n" + ppd + "\n";
        ParseState* state = ParsePpdText(text, TEXT("C:\\FAX.PPD"));
        block_ = platform::GlobalBlock(state != nullptr ? PackDescription(state) : nullptr);
        ASSERT_TRUE(block_) << ppd;
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
