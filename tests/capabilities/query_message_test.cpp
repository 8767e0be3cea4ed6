#include <vector>

#include <gtest/gtest.h>

#include "capabilities/query_message.h"
#include "tests/core/fax_machine.h"

namespace ksfax {
namespace {

std::u16string Format(const WCHAR* format, std::span<const QueryArgument> arguments) {
    WCHAR text[300];
    DWORD needed = 0;
    FormatQueryMessage(ownModule, text, std::size(text), &needed, format, arguments);
    const std::u16string formatted(text);
    EXPECT_EQ(needed, formatted.size() + 1);
    return formatted;
}

TEST(FormatQueryMessage, InsertsItsArguments) {
    FaxMachine fax;
    const QueryArgument arguments[] = {
        {.number = 0xFFFFFFFE}, {.number = 0xFFFFFFFE}, {.number = 0xABCDEF}, {.number = 0xABCDEF},
        {.number = 'Z'},        {.text = TEXT("text")}, {.number = 553}};
    EXPECT_EQ(Format(TEXT("%d %u %x %X %c %s %!"), arguments),
              u"-2 4294967294 abcdef ABCDEF Z text A4");
    EXPECT_EQ(Format(TEXT("100%% %q%"), {}), u"100% q");
    const QueryArgument zero[] = {{.number = 0}};
    EXPECT_EQ(Format(TEXT("<%d>"), zero), u"<0>");
    // What was not given, or is of the other kind, is not read.
    EXPECT_EQ(Format(TEXT("<%s%d%!%c>"), {}), u"<>");
    EXPECT_EQ(Format(TEXT("<%s%s>"), zero), u"<>");
    EXPECT_EQ(Format(TEXT("<%!>"), zero), u"<>");
}

TEST(FormatQueryMessage, CutsToTheRoomAndCountsTheWhole) {
    FaxMachine fax;
    const QueryArgument text[] = {{.text = TEXT("0123456789")}};
    const std::u16string whole = u"<0123456789..>";
    for (DWORD capacity = 0; capacity <= 17; ++capacity) {
        std::vector<WCHAR> buffer(capacity + 1, 0xEEEE);
        DWORD needed = 0;
        FormatQueryMessage(nullptr, buffer.data(), capacity, &needed, TEXT("<%s..>"), text);
        EXPECT_EQ(needed, 15u);
        EXPECT_EQ(buffer[capacity], 0xEEEE);
        if (capacity > 0) {
            EXPECT_EQ(std::u16string(buffer.data()), whole.substr(0, capacity - 1));
        }
    }
    DWORD needed = 0;
    FormatQueryMessage(nullptr, nullptr, 100, &needed, TEXT("<%s..>"), text);
    EXPECT_EQ(needed, 15u);
    WCHAR buffer[4];
    FormatQueryMessage(nullptr, buffer, 4, nullptr, TEXT("<%s..>"), text);
    EXPECT_EQ(std::u16string(buffer), u"<01");
}

}  // namespace
}  // namespace ksfax
