#pragma once

// Fault injection over the embedded machine: an operation under every failure that its platform
// calls can have, with what must hold whatever fails.

#include <algorithm>
#include <functional>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "platform/embedded/machine.h"

// The call that failed: its published name, "" for a run without a fault.
struct FailedCall {
    std::string name;
    unsigned number = 0;       // among the calls of the operation, from 1
    bool andAllLater = false;  // every call from there on failed too

    bool is(std::string_view call) const { return !andAllLater && name == call; }
};

struct FaultRun {
    std::function<void()> prepare = [] {};  // before each run, without faults
    std::function<void()> act;
    std::function<void(const FailedCall&)> holds = [](const FailedCall&) {};
    // Given back in `holds` at the latest; compared before and after.
    std::function<embedded::Leaks()> open = [] { return embedded::Machine::Current().OpenNow(); };
    // The calls that fail; empty for each that the operation makes.
    std::vector<std::string> only = {};
    // False where giving back can fail too, as with graphics objects.
    bool withAllLater = true;
};

inline std::ostream& operator<<(std::ostream& out, const embedded::Leaks& leaks) {
    return out << leaks.handles << " handles, " << leaks.views << " views, " << leaks.globalBlocks
               << " blocks, " << leaks.heaps << " heaps, " << leaks.modules << " modules";
}

// Runs it as it is, then once for each call that it made failing alone, then once for each call
// failing with all after it. Nothing may stay open, whatever fails.
inline void UnderFaults(embedded::Machine& machine, const FaultRun& run) {
    const auto once = [&](const FailedCall& failed) {
        SCOPED_TRACE("call " + std::to_string(failed.number) + ", " + failed.name +
                     (failed.andAllLater ? " and all later" : ""));
        run.prepare();
        const embedded::Leaks before = run.open();
        failed.number ? machine.faults.FailNthCall(failed.number, failed.andAllLater)
                      : machine.faults.Count();
        run.act();
        EXPECT_EQ(machine.faults.struck(), failed.number != 0);
        const std::vector<std::string> names = machine.faults.names();
        machine.faults.Clear();
        run.holds(failed);
        EXPECT_EQ(run.open(), before);
        return names;
    };
    once({});  // what a first run makes, such as a cache file, is there from here on
    const std::vector<std::string> names = once({});
    for (const std::string& call : run.only) {
        EXPECT_EQ(std::ranges::count(names, call) > 0, true) << call << " is never called";
    }
    for (const bool andAllLater : {false, true}) {
        if (andAllLater && !run.withAllLater) {
            break;
        }
        for (unsigned n = 1; n <= names.size(); ++n) {
            if (run.only.empty() || std::ranges::count(run.only, names[n - 1]) != 0) {
                once({names[n - 1], n, andAllLater});
            }
        }
    }
}
