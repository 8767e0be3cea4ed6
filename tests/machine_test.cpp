#include "platform/embedded/machine.h"

#include <gtest/gtest.h>

namespace embedded {
namespace {

struct Thing : Object {};
struct OtherThing : Object {};

TEST(HandleTable, TellsKindsApartAndRefusesStaleHandles) {
    HandleTable handles;
    HANDLE thing = handles.Insert(std::make_shared<Thing>());
    EXPECT_NE(handles.Get<Thing>(thing), nullptr);
    EXPECT_EQ(handles.Get<OtherThing>(thing), nullptr);
    EXPECT_TRUE(handles.Close(thing));
    HANDLE next = handles.Insert(std::make_shared<Thing>());
    EXPECT_NE(next, thing);
    EXPECT_EQ(handles.Get<Thing>(thing), nullptr);
    EXPECT_FALSE(handles.Close(thing));
    EXPECT_EQ(handles.CountOpen(), 1u);
}

TEST(Faults, FailTheNamedCallTheNthTime) {
    Machine machine;
    CallSite first("First");
    CallSite second("Second");
    EXPECT_FALSE(first.Fails());
    machine.faults.FailCall("Second", 2);
    EXPECT_FALSE(second.Fails());
    EXPECT_FALSE(first.Fails());
    EXPECT_TRUE(second.Fails());
    EXPECT_FALSE(second.Fails());
    EXPECT_TRUE(machine.faults.struck());
    EXPECT_EQ(machine.faults.calls(), 4u);
}

}  // namespace
}  // namespace embedded
