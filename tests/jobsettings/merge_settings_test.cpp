#include <gtest/gtest.h>

#include "platform/embedded/machine.h"
#include "platform/embedded/windows.h"

#include "jobsettings/job_settings.h"
#include "tests/jobsettings/made_description.h"
#include "tests/jobsettings/record_bytes.h"

namespace ksfax {
namespace {

// A4, portrait, 200 dots per inch on offer beside 400, and derived, so that whatever a merge
// changes is that merge's doing.
class Merging : public testing::Test {
  protected:
    Merging() {
        FeatureRecord& resolution = made.AddFeature(FeatureKind::Resolution, "Resolution", 200);
        made.AddOption(resolution, "200dpi");
        made.AddOption(resolution, "400dpi");
        made.AddFeature(FeatureKind::Generic, "Choice", 2);
        made.record.Checksum = 0x1234;
        JobSettings settings;
        BuildDefaultJobSettings(&settings, TEXT("Fax"), made.record, true);
        DeriveJobBlock(&settings);
        target = BytesOf(settings);
    }

    bool Merge(RecordBytes input) {
        JobSettings settings = SettingsOf(target);
        const bool merged = MergeJobSettings(&settings, AsDevMode(input), made.record);
        merged_ = BytesOf(settings);
        return merged;
    }
    RecordBytes TargetWith(const std::vector<Field>& fields) {
        RecordBytes expected = target;
        Put(&expected, fields);
        return expected;
    }

    embedded::Machine machine;
    MadeDescription made;
    RecordBytes target;
    RecordBytes merged_;
};

constexpr uint32_t kNoPaperBits = 0x401;  // of the target's 0x403

TEST_F(Merging, TakesFromThePublicPartWhatTheDriverAccepts) {
    struct Row {
        const char* what;
        std::vector<Field> input;
        std::vector<Field> expected;
        std::vector<Field> target = {};  // what it had other than the fixture's
    };
    const Row rows[] = {
        {"nothing", {}, {}},
        {"values without their bits",
         {U16(76, 2), U16(78, 5), U16(80, 2000), U16(82, 1000), U16(88, 4), U16(96, 400)},
         {}},
        {"source", {U32(72, 0x200), U16(88, 4)}, {U32(72, 0x603), U16(88, 4), P16(2372, 4)}},
        {"landscape", {U32(72, 0x1), U16(76, 2)}, {U16(76, 2)}},
        {"no orientation", {U32(72, 0x1), U16(76, 3)}, {}},
        {"paper", {U32(72, 0x2), U16(78, 5)}, {U16(78, 5)}},
        {"paper before form name", {U32(72, 0x10002), U16(78, 5), U16(102, 'X')}, {U16(78, 5)}},
        {"form name",
         {U32(72, 0x10000), U16(102, 'X'), U16(104, 0), U16(166 - 2, 'Z')},
         {U32(72, kNoPaperBits | 0x10000), U16(102, 'X'), U16(104, 0)}},
        {"user-defined size",
         {U32(72, 0xE), U16(78, 256), U16(80, 2000), U16(82, 1000)},
         {U16(78, 256), U16(80, 2000), U16(82, 1000), P16(236, 2000), P16(234, 1000)}},
        {"user-defined length, without the paper size bit",
         {U32(72, 0x4), U16(78, 256), U16(80, 2000), U16(82, 1000)},
         {U16(78, 256), U16(80, 2000), P16(236, 2000)}},
        {"a width makes any length count",
         {U32(72, 0xC), U16(78, 256), U16(80, 0xFFFF), U16(82, 1000)},
         {U16(78, 256), U16(80, 0xFFFF), U16(82, 1000), P16(236, 0xFFFF), P16(234, 1000)}},
        {"no size above 0: the code alone",
         {U32(72, 0xE), U16(78, 256), U16(80, 0xFFFF), U16(82, 0)},
         {U16(78, 256)}},
        {"a length of 0", {U32(72, 0x4), U16(78, 256), U16(80, 0)}, {}},
        {"a width of 0", {U32(72, 0x8), U16(78, 256), U16(82, 0)}, {}},
        {"a size beside another paper",
         {U32(72, 0xE), U16(78, 5), U16(80, 2000), U16(82, 1000)},
         {U16(78, 5)}},
        {"scale and copies", {U32(72, 0x110), U16(84, 50), U16(86, 5)}, {}},
        {"scale and copies of the target",
         {},
         {U16(84, 100), U16(86, 1)},
         {U16(84, 50), U16(86, 5)}},
        {"a resolution on offer", {U32(72, 0x400), U16(90, 400)}, {U16(90, 400)}},
        {"a resolution on offer, without its bit", {U16(90, 400)}, {U16(90, 400)}},
        {"a resolution not on offer", {U32(72, 0x400), U16(90, 600)}, {}},
        {"a quality instead of a resolution", {U32(72, 0x400), U16(90, 0xFFFC)}, {}},
        {"the bit of the vertical resolution alone",
         {U32(72, 0x2000), U16(96, 400)},
         {U32(72, 0x2403)}},
        {"duplex and collation", {U32(72, 0x9000), U16(94, 2), U16(100, 1)}, {}},
        {"colour", {U32(72, 0x800), U16(92, 2)}, {}},
        {"no orientation, over landscape", {U32(72, 0x1), U16(76, 3)}, {U16(76, 1)}, {U16(76, 2)}},
        {"the default resolution anew",
         {U32(72, 0x400), U16(90, 600)},
         {U16(90, 200)},
         {U16(90, 400)}},
        {"the bit of the resolution",
         {U32(72, 0x400), U16(90, 400)},
         {U32(72, 0x403), U16(90, 400)},
         {U32(72, 0x3)}},
        {"a resolution, over one without its bit", {U16(90, 400)}, {U16(90, 400)}, {U32(72, 0x3)}},
        {"paper, over a form name",
         {U32(72, 0x2), U16(78, 5)},
         {U32(72, 0x403), U16(78, 5)},
         {U32(72, 0x10401)}},
        {"user-defined size, over a form name",
         {U32(72, 0x8), U16(78, 256), U16(82, 1000)},
         {U32(72, 0x403), U16(78, 256), U16(82, 1000), P16(234, 1000)},
         {U32(72, 0x10401)}},
    };
    const RecordBytes plain = target;
    for (const Row& row : rows) {
        RecordBytes input = CallersRecord(220, 0);
        Put(&input, row.input);
        target = plain;
        Put(&target, row.target);
        EXPECT_TRUE(Merge(input)) << row.what;
        EXPECT_EQ(Differences(merged_, TargetWith(row.expected)), "") << row.what;
    }
}

TEST_F(Merging, TakesThePrivatePartBySignature) {
    RecordBytes input = CallersRecord(220, 2388);
    Put(&input, {P32(4, 0x56495250), P16(116, 0x1234), P16(118, 2), P8(121, 9), P8(1034, 0x01),
                 P32(2384, 1)});
    EXPECT_TRUE(Merge(input));
    // Everything private is the input's, but for what the derivation makes of it.
    RecordBytes expected = input;
    std::copy_n(target.begin(), 220, expected.begin());
    Put(&expected, {P16(2372, 7), P32(1984, 0x80000008), P16(1972, 0xFFFF), P16(1974, 0xFFFF)});
    EXPECT_EQ(Differences(merged_, expected), "");

    // Another driver's private part: only the public fields count, and nothing is derived.
    Put(&input, {P32(4, 0x56495251), U32(72, 0xC | 0x200), U16(78, 256), U16(80, 2000), U16(82, 9),
                 U16(88, 4)});
    EXPECT_TRUE(Merge(input));
    EXPECT_EQ(Differences(merged_, TargetWith({U32(72, kNoPaperBits | 0x20C), U16(80, 2000),
                                               U16(82, 9), U16(88, 4)})),
              "");
}

TEST_F(Merging, FindsThePrivatePartBehindThePublicOne) {
    for (const WORD size : {188, 212, 213, 220, 400}) {
        RecordBytes input = CallersRecord(size, 2388);
        std::copy_n(target.begin() + 220, 2388, input.begin() + size);
        input[size + 2384] = 1;
        EXPECT_TRUE(Merge(input)) << size;
        EXPECT_EQ(Differences(merged_, TargetWith({P32(2384, 1)})), "") << size;
        EXPECT_TRUE(HasPrivatePart(AsDevMode(input))) << size;
    }
}

TEST_F(Merging, TakesTheFirstBytesOfAShorterPrivatePart) {
    RecordBytes input = CallersRecord(220, 191);
    std::copy_n(target.begin() + 220, 191, input.begin() + 220);
    Put(&input, {P16(188, 0x0505), P8(190, 0x07)});
    EXPECT_TRUE(Merge(input));
    EXPECT_EQ(Differences(merged_, TargetWith({P16(188, 0x0505), P8(190, 0x07), P32(1460, 1)})),
              "");
    // Too short for a whole signature: the target's own is completed, or spoilt.
    input = CallersRecord(220, 7);
    EXPECT_FALSE(HasPrivatePart(AsDevMode(input)));
    Put(&input, {U32(72, 0x200), U16(88, 4)});
    EXPECT_TRUE(Merge(input));
    EXPECT_EQ(Differences(merged_, TargetWith({U32(72, 0x603), U16(88, 4)})), "");
}

TEST_F(Merging, DropsSelectionsMadeForAnotherDescription) {
    RecordBytes input = target;
    Put(&input, {P16(116, 0x4321), P16(118, 40), P8(120, 7), P8(121, 8), P8(122, 9)});
    EXPECT_TRUE(Merge(input));
    EXPECT_EQ(Differences(merged_, TargetWith({P16(116, 0x1234), P16(118, 2), P8(120, 255),
                                               P8(121, 2), P8(122, 9)})),
              "");
}

TEST_F(Merging, ReadsNamesAndSizesThatHaveNoEnd) {
    RecordBytes input = CallersRecord(220, 0);
    Put(&input, U32(72, 0x10000));
    PutText(&input, 102, u"01234567890123456789012345678901");
    EXPECT_TRUE(Merge(input));
    RecordBytes expected = TargetWith({U32(72, kNoPaperBits | 0x10000)});
    PutText(&expected, 102, u"0123456789012345678901234567890");
    EXPECT_EQ(Differences(merged_, expected), "");
}

TEST_F(Merging, RefusesWhatItCannotRecogniseAndWhenMemoryRunsOut) {
    EXPECT_FALSE(Merge(CallersRecord(200, 0, 0)));
    EXPECT_EQ(merged_, target);
    EXPECT_FALSE(Merge(CallersRecord(0, 0, 5)));
    EXPECT_EQ(merged_, target);

    RecordBytes input = CallersRecord(220, 0);
    Put(&input, {U32(72, 0x1), U16(76, 2)});
    machine.faults.FailCall("GlobalAlloc");
    EXPECT_FALSE(Merge(input));
    machine.faults.Clear();
    EXPECT_EQ(merged_, target);

    JobSettings settings = SettingsOf(target);
    EXPECT_TRUE(MergeJobSettings(&settings, nullptr, made.record));
    EXPECT_EQ(BytesOf(settings), target);
}

// ---- Deriving ----

class Deriving : public testing::Test {
  protected:
    Deriving() {
        MadeDescription made;
        JobSettings settings;
        BuildDefaultJobSettings(&settings, nullptr, made.record, true);
        DeriveJobBlock(&settings);
        base = BytesOf(settings);
    }
    RecordBytes Derived(RecordBytes record) {
        JobSettings settings = SettingsOf(record);
        DeriveJobBlock(&settings);
        return BytesOf(settings);
    }

    embedded::Machine machine;
    RecordBytes base;
};

TEST_F(Deriving, StartsFromTheDefaults) {
    MadeDescription made;
    JobSettings settings;
    BuildDefaultJobSettings(&settings, nullptr, made.record, true);
    RecordBytes expected = BytesOf(settings);
    Put(&expected, {P16(2372, 7), P32(1984, 0x80000008), P32(1712, 6),
                    P32(1716, static_cast<uint32_t>(-11)), P8(1739, 1), P32(1460, 0)});
    PutText(&expected, 220 + 1744, u"Arial");
    EXPECT_EQ(Differences(base, expected), "");
}

// Beside what each row states, nothing may change from the derived defaults.
TEST_F(Deriving, MakesEachFieldFromItsSettings) {
    struct Row {
        const char* what;
        std::vector<Field> settings;
        std::vector<Field> derived;
    };
    const Field noCollation = P8(1467, 0);
    const Row rows[] = {
        {"source", {U16(88, 4)}, {P16(2372, 4)}},
        {"output base and staples 0", {P16(436, 0x1234)}, {P32(1984, 0x8000123C)}},
        {"staples 1", {P8(1136, 0x01)}, {}},
        {"staples 2", {P8(1136, 0xFE)}, {P32(1984, 0x80000000)}},
        {"staples 3", {P8(1136, 0x03)}, {P32(1984, 0x80000000)}},
        {"counter mode", {P16(390, 1)}, {P32(1984, 0x8)}},
        {"paper override", {P8(430, 1), P16(1138, 5), P16(1140, 6)}, {P16(1972, 5), P16(1974, 6)}},
        {"another paper override", {P8(430, 2), P16(1138, 5)}, {}},
        {"scale", {P16(230, 50)}, {P32(1976, 50)}},
        {"turned", {P8(428, 0x02)}, {P32(1964, 1), P32(1968, 180)}},
        {"not turned", {P8(428, 0xFD), P32(1964, 1), P32(1968, 180)}, {P32(1964, 0), P32(1968, 0)}},
        {"orientation of A4", {P8(427, 1)}, {P8(1948, 1)}},
        {"orientation of Letter", {P8(427, 1), U16(78, 1), U16(76, 2)}, {P8(1948, 1)}},
        {"orientation of Executive", {P8(427, 1), U16(78, 7)}, {P8(1948, 1)}},
        {"orientation of B5", {P8(427, 1), U16(78, 34)}, {P8(1948, 1)}},
        {"orientation of A5", {P8(427, 1), U16(78, 11)}, {P8(1948, 2)}},
        {"landscape A5", {P8(427, 1), U16(78, 11), U16(76, 2)}, {P8(1948, 3)}},
        {"two pages on A5", {P8(427, 1), U16(78, 11), P16(188, 2)}, {P8(1948, 3), P32(1460, 1)}},
        {"two pages on landscape A5",
         {P8(427, 1), U16(78, 11), U16(76, 2), P16(188, 2)},
         {P8(1948, 2), P32(1460, 1)}},
        {"orientation not derived", {U16(78, 11), P8(1948, 7)}, {P8(1948, 0)}},
        {"device byte", {P8(1160, 0x77)}, {P8(1950, 0x77)}},
        {"counter on",
         {P8(380, 5), P16(390, 0xFFFE), P16(386, 0x102), P8(1161, 1), P8(1960, 0x80)},
         {P16(1956, 0xFFFF), P8(1960, 0x81), P8(1961, 1), P8(1962, 1), P32(1984, 0x8)}},
        {"counter on at 0",
         {P8(380, 5), P16(390, 0xFFFE), P8(1161, 1)},
         {P16(1956, 0xFFFF), P8(1960, 1), P8(1961, 5), P8(1962, 1), P32(1984, 0x8)}},
        {"counter at 1",
         {P8(380, 5), P16(390, 0xFFFE), P16(386, 1), P8(1161, 1)},
         {P32(1984, 0x8)}},
        {"counter not enabled", {P16(390, 0xFFFE), P8(1161, 1)}, {P32(1984, 0x8)}},
        {"counter without its gate", {P8(380, 5), P16(390, 0xFFFE)}, {P32(1984, 0x8)}},
        {"counter in another mode", {P8(380, 5), P16(390, 0xFFFF), P8(1161, 1)}, {P32(1984, 0x8)}},
        {"counter off",
         {P16(1956, 7), P16(1958, 7), P8(1960, 0xFF), P8(1961, 7), P8(1962, 7)},
         {P16(1956, 0), P16(1958, 0), P8(1960, 0xFE), P8(1961, 0), P8(1962, 0)}},
        {"counter left alone with device copies",
         {P8(1034, 1), P16(1956, 7), P16(1958, 7), P8(1960, 0xFF), P8(1961, 7)},
         {}},
        {"text",
         {P32(272, 0x101), P32(276, 55), P16(304 + 62, 'x'), P32(368, 7), P32(372, 8)},
         {P32(1712, 0x101), P32(1716, 55), P16(1744 + 62, 'x'), P32(1808, 7), P32(1812, 8)}},
        {"duplex", {P16(376, 0x100), U16(94, 2)}, {P16(1456, 0x100)}},
        {"duplex, and more pages asked for by it",
         {P16(376, 0x101), P16(188, 4)},
         {P16(1456, 0x101), P32(1460, 4)}},
        {"duplex flags without duplex",
         {P16(376, 0x207), U16(94, 2), P16(188, 4)},
         {P16(1456, 0x207), U16(94, 1), P32(1460, 1)}},
        {"duplex not on the device",
         {P16(376, 0x305), P16(188, 4)},
         {P16(1456, 0x5), P32(1460, 1)}},
        {"duplex not on the device, user-defined size",
         {P16(376, 0x305), P16(188, 4), U16(78, 256)},
         {P16(1456, 0x105), P32(1460, 4)}},
        {"duplex while reprinting",
         {P16(376, 0x105), P16(452, 0x102), P16(442, 4)},
         {P16(1456, 0)}},
        {"duplex while reprinting in another kind",
         {P16(376, 0x105), P16(452, 0x103), P16(442, 4)},
         {P16(1456, 0x105)}},
        {"layout value", {P8(378, 2), P16(1154, 9)}, {P16(1458, 9)}},
        {"layout value held back", {P8(378, 0xFD), P16(1154, 9), P16(1458, 9)}, {P16(1458, 0)}},
        {"collation by dmCollate",
         {P32(220, 1), U16(100, 1), P16(188, 4)},
         {P8(1466, 1), P8(1467, 1), P32(1460, 4)}},
        {"no collation by dmCollate",
         {P32(220, 1), P8(1466, 1), P8(1467, 1)},
         {P8(1466, 0), P8(1467, 0)}},
        {"collation by request", {P8(1466, 5), P16(188, 4)}, {P8(1467, 1), P32(1460, 4)}},
        {"dmCollate without control", {U16(100, 1), P8(1467, 1)}, {noCollation}},
        {"copies", {U16(86, 2), P16(188, 4)}, {P8(1467, 1), P32(1460, 4)}},
        {"copies on a device with capability 0x8000", {U16(86, 2), P16(202, 0x8000)}, {}},
        {"layout override", {P8(1475, 1), P16(188, 4)}, {P32(1460, 4)}},
        {"layout override flags", {P32(1480, 1), P16(188, 4)}, {P32(1460, 4)}},
        {"other layout override flags", {P32(1480, 0xFE), P16(188, 4)}, {P32(1460, 1)}},
        {"text option 0x80", {P32(272, 0x80), P16(188, 4)}, {P32(1712, 0x80), P32(1460, 4)}},
        {"reprinting", {P16(452, 0x108), P16(188, 4)}, {P32(1460, 4)}},
        {"reprinting of no kind", {P16(452, 0x100), P16(188, 4)}, {P32(1460, 1)}},
        {"reprinting suppressed", {P16(452, 0x108), P16(442, 4), P16(188, 4)}, {P32(1460, 1)}},
        {"reprint kind without reprinting", {P16(452, 0x8), P16(188, 4)}, {P32(1460, 1)}},
        {"scaled pages per sheet", {U16(84, 50), P16(188, 2)}, {P32(1460, 2)}},
        {"one scaled page", {U16(84, 50), P16(188, 1)}, {P32(1460, 1)}},
        {"pages below 0", {P16(188, 0xFFFB)}, {P32(1460, 0xFFFFFFFB)}},
        {"job text", {P16(1388, 'x'), P16(1390, 'y')}, {P16(1388, 0)}},
        {"device copies not allowed", {P8(1034, 0xFE)}, {P8(1034, 0x7E)}},
        {"device copies",
         {P8(1034, 0x01), P8(1466, 1), P16(1036, 9)},
         {P8(1034, 0x81), P16(1036, 1), noCollation, P32(1460, 0)}},
        {"device copies without collation", {P8(1034, 0x81), P16(1036, 9)}, {}},
        {"device copies forbidden", {P8(1034, 0x01), P8(1466, 1), P32(1640, 2)}, {P8(1467, 1)}},
        {"device copies while reprinting",
         {P8(1034, 0x81), P8(1466, 1), P16(452, 0x101), P32(1640, 2)},
         {P8(1034, 0x01), noCollation}},
    };
    for (const Row& row : rows) {
        RecordBytes record = base;
        Put(&record, row.settings);
        RecordBytes expected = record;
        Put(&expected, row.derived);
        EXPECT_EQ(Differences(Derived(record), expected), "") << row.what;
    }
}

TEST_F(Deriving, KnowsTwoApplicationsByTheirMainWindow) {
    RecordBytes fourPages = base;
    Put(&fourPages, P16(188, 4));
    const auto expected = [&](const std::vector<Field>& fields) {
        RecordBytes record = fourPages;
        Put(&record, P32(1460, 1));
        Put(&record, fields);
        return record;
    };
    embedded::Windows& desktop = machine.windows();

    HWND opus = desktop.Add(u"OPUSAPP");
    desktop.Activate(desktop.Add(u"Dialog", desktop.Add(u"FLWApp", opus)));
    EXPECT_EQ(Differences(Derived(fourPages), expected({P8(1467, 1), P32(1460, 4)})), "");
    RecordBytes capable = fourPages;
    Put(&capable, P16(202, 0x8000));
    EXPECT_EQ(Differences(Derived(capable), expected({P16(202, 0x8000)})), "");

    desktop.Activate(desktop.Add(u"FLWApp"));
    Put(&fourPages, P8(2376, 0x80));
    EXPECT_EQ(Differences(Derived(fourPages), expected({P8(2376, 0x81)})), "");

    desktop.Activate(desktop.Add(u"OpusApp of a name longer than the buffer's 31"));
    Put(&fourPages, P8(2376, 0x81));
    EXPECT_EQ(Differences(Derived(fourPages), expected({P8(2376, 0x80)})), "");

    desktop.Activate(opus);
    machine.faults.FailCall("GetClassNameW", 1, true);
    EXPECT_EQ(Differences(Derived(fourPages), expected({P8(2376, 0x80)})), "");
    machine.faults.Clear();
}

}  // namespace
}  // namespace ksfax
