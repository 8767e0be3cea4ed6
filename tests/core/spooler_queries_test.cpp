#include <gtest/gtest.h>

#include "platform/embedded/machine.h"
#include "platform/embedded/text.h"

#include "core/spooler_queries.h"

namespace ksfax {
namespace {

TEST(IsMetricLocale, GoesByTheCountryCode) {
    const struct {
        const char* country;
        bool metric;
    } rows[] = {{"1", false},   {"2", false},   {"3", true},    {"49", true},   {"50", false},
                {"54", false},  {"55", true},   {"56", false},  {"59", false},  {"60", true},
                {"499", true},  {"500", false}, {"555", false}, {"599", false}, {"600", true},
                {"none", true}, {"-3", true},   {"0", true}};
    for (const auto& row : rows) {
        const embedded::Machine machine({.countryText = embedded::Utf16(row.country)});
        EXPECT_EQ(IsMetricLocale(), row.metric) << row.country;
    }
}

TEST(IsMetricLocale, IsFalseWhenTheLocaleCannotBeAsked) {
    embedded::Machine machine({.country = 49});
    EXPECT_TRUE(IsMetricLocale());
    for (const auto& [name, nth] : {std::pair("GetLocaleInfoW", 1), std::pair("GetLocaleInfoW", 2),
                                    std::pair("GlobalAlloc", 1)}) {
        machine.faults.FailCall(name, static_cast<unsigned>(nth));
        EXPECT_FALSE(IsMetricLocale()) << name << ' ' << nth;
        EXPECT_TRUE(machine.faults.struck());
        machine.faults.Clear();
    }
}

}  // namespace
}  // namespace ksfax
