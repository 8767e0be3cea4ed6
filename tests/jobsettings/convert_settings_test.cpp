#include <cstring>

#include <gtest/gtest.h>

#include "jobsettings/job_settings.h"
#include "tests/core/fax_machine.h"
#include "tests/jobsettings/made_description.h"
#include "tests/jobsettings/record_bytes.h"

namespace ksfax {
namespace {

// A record of that shape whose bytes behind the header all are `fill`.
RecordBytes Filled(WORD size, WORD extra, uint8_t fill, WORD spec = 0x0400, WORD driver = 260) {
    RecordBytes record = CallersRecord(size, extra, spec, driver);
    for (size_t i = 0; i < record.size(); ++i) {
        if (i < 64 || i >= 72) {
            record[i] = fill;
        }
    }
    return record;
}

TEST(SpecVersionForSize, GoesByTheSizeWhereThatIsKnown) {
    EXPECT_EQ(SpecVersionForSize(nullptr), 0);
    const struct {
        WORD size;
        WORD spec;
        WORD expected;
    } rows[] = {{188, 5, 0x320}, {212, 5, 0x400}, {220, 0, 0x401}, {200, 5, 5}, {200, 0, 0}};
    for (const auto& row : rows) {
        RecordBytes record = CallersRecord(row.size, 0, row.spec);
        EXPECT_EQ(SpecVersionForSize(AsDevMode(record)), row.expected) << row.size;
    }
}

// Destination bytes stay where the source does not reach; the destination keeps its sizes and
// driver version and gets the dmSpecVersion of its size.
TEST(ConvertJobSettings, CopiesAsFarAsBothRecordsReach) {
    struct Row {
        WORD sourceSize, sourceExtra, size, extra, specAfter;
        int copied;
    };
    const Row rows[] = {
        {220, 2388, 188, 112, 0x320, 300},   {188, 112, 220, 2388, 0x401, 300},
        {212, 2388, 220, 2388, 0x401, 2600}, {220, 2388, 212, 2388, 0x400, 2600},
        {220, 2388, 220, 0, 0x401, 220},     {188, 0, 212, 50, 0x400, 188},
        {300, 5000, 220, 2388, 0x401, 2608}, {201, 9, 199, 77, 0x123, 208},
        {0, 9, 220, 2388, 0x401, 9},         {40, 0, 220, 2388, 0x401, 40},
        {0, 0, 220, 2388, 0x401, 0},         {65535, 65535, 65535, 65535, 0x123, 131070},
    };
    for (const Row& row : rows) {
        SCOPED_TRACE(testing::Message() << row.sourceSize << "+" << row.sourceExtra << " into "
                                        << row.size << "+" << row.extra);
        RecordBytes source = Filled(row.sourceSize, row.sourceExtra, 0xAA);
        RecordBytes destination = Filled(row.size, row.extra, 0xBB, 0x123, 848);
        RecordBytes expected = destination;
        for (size_t i = 0; i < std::min(row.sourceSize, row.size); ++i) {
            expected[i] = 0xAA;
        }
        for (size_t i = 0; i < std::min(row.sourceExtra, row.extra); ++i) {
            expected[row.size + i] = 0xAA;
        }
        Put(&expected,
            {U16(64, row.specAfter), U16(66, 848), U16(68, row.size), U16(70, row.extra)});
        if (row.sourceSize == 0) {  // its private part is its header
            std::copy_n(source.begin(), row.sourceExtra, expected.begin() + row.size);
        }
        EXPECT_EQ(ConvertJobSettings(AsDevMode(source), AsDevMode(destination)), row.copied);
        EXPECT_EQ(Differences(destination, expected), "");
    }
}

// A public part that ends before the header does: private bytes lie over the header's fields.
TEST(ConvertJobSettings, KeepsTheHeaderOfARecordThatIsShorterThanIt) {
    RecordBytes source = Filled(220, 2388, 0xAA);
    RecordBytes destination = Filled(40, 100, 0xBB, 0x123, 848);
    EXPECT_EQ(ConvertJobSettings(AsDevMode(source), AsDevMode(destination)), 140);
    EXPECT_EQ(Differences(destination, Filled(40, 100, 0xAA, 0x123, 848)), "");
}

TEST(ConvertJobSettings, RefusesRecordsThatNobodyRecognises) {
    RecordBytes good = Filled(220, 0, 0xAA);
    RecordBytes unknown = Filled(200, 0, 0xBB, 0);
    const RecordBytes before = unknown;
    EXPECT_EQ(ConvertJobSettings(AsDevMode(good), AsDevMode(unknown)), -1);
    EXPECT_EQ(ConvertJobSettings(AsDevMode(unknown), AsDevMode(good)), -1);
    EXPECT_EQ(ConvertJobSettings(nullptr, AsDevMode(good)), -1);
    EXPECT_EQ(ConvertJobSettings(AsDevMode(good), nullptr), -1);
    EXPECT_EQ(unknown, before);
}

TEST(CopyJobSettingsOut, NeverPassesTheCallersShape) {
    embedded::Machine machine;
    MadeDescription made;
    JobSettings settings;
    BuildDefaultJobSettings(&settings, TEXT("Fax"), made.record, true);
    const RecordBytes ours = BytesOf(settings);
    struct Row {
        const char* what;
        RecordBytes input;
        WORD spec, driver, size, extra;  // of the output
    };
    const Row rows[] = {
        {"the same", CallersRecord(220, 2388, 7, 8), 0x401, 260, 220, 2388},
        {"larger", CallersRecord(300, 5000, 7, 8), 0x401, 260, 220, 2388},
        {"no private part", CallersRecord(220, 0, 7, 8), 0x401, 8, 220, 0},
        {"the earlier generation", CallersRecord(188, 112, 0x320, 848), 0x320, 848, 188, 112},
        {"shorter public part alone", CallersRecord(212, 3000, 0x400, 8), 0x400, 260, 212, 2388},
    };
    for (Row row : rows) {
        RecordBytes output(2608 + 16, 0xEE);
        RecordBytes expected = output;
        std::copy_n(ours.begin(), row.size, expected.begin());
        std::copy_n(ours.begin() + 220, row.extra, expected.begin() + row.size);
        Put(&expected,
            {U16(64, row.spec), U16(66, row.driver), U16(68, row.size), U16(70, row.extra)});
        EXPECT_TRUE(CopyJobSettingsOut(settings, AsDevMode(row.input), AsDevMode(output)))
            << row.what;
        EXPECT_EQ(Differences(output, expected), "") << row.what;
    }

    RecordBytes output(2608 + 16, 0xEE);
    RecordBytes expected = output;
    std::copy(ours.begin(), ours.end(), expected.begin());
    EXPECT_TRUE(CopyJobSettingsOut(settings, nullptr, AsDevMode(output)));
    EXPECT_EQ(Differences(output, expected), "");

    RecordBytes unknown = CallersRecord(200, 0, 0);
    EXPECT_FALSE(CopyJobSettingsOut(settings, AsDevMode(unknown), AsDevMode(output)));

    // The caller's input may be its output.
    RecordBytes both = CallersRecord(188, 112, 0x320, 848);
    EXPECT_TRUE(CopyJobSettingsOut(settings, AsDevMode(both), AsDevMode(both)));
    EXPECT_EQ(BytesOf(both.data() + 188, 112), BytesOf(ours.data() + 220, 112));
}

// ---- The spooler's entry point ----

class Converting : public testing::Test {
  protected:
    BOOL Convert(RecordBytes* input, RecordBytes* output, LONG* bytes, DWORD mode) {
        SetLastError(4711);
        WCHAR name[] = TEXT("Fax");
        return DrvConvertDevMode(name, input != nullptr ? AsDevMode(*input) : nullptr,
                                 output != nullptr ? AsDevMode(*output) : nullptr, bytes, mode);
    }

    FaxMachine fax;
    LONG bytes = 0;
};

constexpr DWORD kUntouched = 4711;

TEST_F(Converting, ConvertsIntoTheCallersShape) {
    RecordBytes current = Filled(220, 2388, 0xAA);
    RecordBytes earlier = Filled(188, 112, 0xBB, 0x320, 848);
    bytes = 5000;
    EXPECT_TRUE(Convert(&current, &earlier, &bytes, CDM_CONVERT));
    EXPECT_EQ(bytes, 300);
    EXPECT_EQ(GetLastError(), kUntouched);
    RecordBytes expected = Filled(188, 112, 0xAA, 0x320, 848);
    EXPECT_EQ(Differences(earlier, expected), "");

    RecordBytes unknown = Filled(200, 0, 0xAA, 0);
    const struct {
        const char* what;
        RecordBytes* input;
        RecordBytes* output;
        LONG bytes;
    } refused[] = {
        {"no output", &current, nullptr, 5000},
        {"one byte short", &current, &earlier, 299},
        {"no room for a header", &current, &earlier, 71},
        {"a size below 0", &current, &earlier, -1},
        {"no input", nullptr, &earlier, 300},
        {"an unknown input", &unknown, &earlier, 300},
        {"an unknown output", &current, &unknown, 300},
    };
    for (const auto& row : refused) {
        bytes = row.bytes;
        EXPECT_FALSE(Convert(row.input, row.output, &bytes, CDM_CONVERT)) << row.what;
        EXPECT_EQ(GetLastError(), ERROR_INVALID_PARAMETER) << row.what;
        EXPECT_EQ(bytes, row.bytes) << row.what;
        EXPECT_EQ(Differences(earlier, expected), "") << row.what;
    }
    EXPECT_FALSE(Convert(&current, &earlier, nullptr, CDM_CONVERT));
    EXPECT_EQ(GetLastError(), ERROR_INVALID_PARAMETER);
    for (const DWORD mode : {0u, 3u, 5u}) {
        bytes = 5000;
        EXPECT_FALSE(Convert(&current, &earlier, &bytes, mode)) << mode;
        EXPECT_EQ(GetLastError(), kUntouched) << mode;
    }
}

// A buffer that is shorter than the header is not looked into.
TEST_F(Converting, ReadsNoHeaderThatIsNotThere) {
    RecordBytes current = Filled(220, 2388, 0xAA);
    const std::unique_ptr<BYTE[]> one(new BYTE[1]);
    SetLastError(kUntouched);
    bytes = 1;
    EXPECT_FALSE(DrvConvertDevMode(nullptr, AsDevMode(current),
                                   reinterpret_cast<DEVMODEW*>(one.get()), &bytes, CDM_CONVERT));
    EXPECT_EQ(GetLastError(), ERROR_INVALID_PARAMETER);
}

TEST(MembersOfARecord, CountOnlyWhenItsPublicPartHoldsThem) {
    const RecordBytes bytes = Filled(220, 0, 0x11);
    JobSettings record{};
    std::memcpy(&record, bytes.data(), bytes.size());
    const struct {
        WORD size;
        DWORD fields;
        short paper;
    } rows[] = {{75, 0, 0}, {76, 0x11111111, 0}, {79, 0x11111111, 0}, {80, 0x11111111, 0x1111}};
    for (const auto& row : rows) {
        record.devMode.dmSize = row.size;
        EXPECT_EQ(FieldsOf(&record.devMode), row.fields) << row.size;
        EXPECT_EQ(PaperSizeOf(&record.devMode), row.paper) << row.size;
    }
}

TEST_F(Converting, MakesTheEarlierShape) {
    RecordBytes current = Filled(220, 2388, 0xAA);
    RecordBytes output(310, 0xEE);
    for (const LONG room : {0, 299, -1}) {
        bytes = room;
        EXPECT_FALSE(Convert(&current, &output, &bytes, CDM_CONVERT351));
        EXPECT_EQ(GetLastError(), ERROR_INSUFFICIENT_BUFFER);
        EXPECT_EQ(bytes, 300);
    }
    bytes = 5000;
    EXPECT_FALSE(Convert(&current, nullptr, &bytes, CDM_CONVERT351));
    EXPECT_EQ(bytes, 300);
    EXPECT_EQ(output, RecordBytes(310, 0xEE));

    bytes = 301;
    EXPECT_TRUE(Convert(&current, &output, &bytes, CDM_CONVERT351));
    EXPECT_EQ(bytes, 300);
    RecordBytes expected = Filled(188, 112, 0xAA, 0x320, 848);
    expected.resize(310, 0xEE);
    EXPECT_EQ(Differences(output, expected), "");

    // In place: the private part is found where the record had it, not at its new place.
    RecordBytes inPlace = Filled(220, 2388, 0xAA);
    std::fill_n(inPlace.begin() + 220, 112, BYTE{0x55});
    bytes = 2608;
    EXPECT_TRUE(Convert(&inPlace, &inPlace, &bytes, CDM_CONVERT351));
    EXPECT_TRUE(std::all_of(inPlace.begin() + 188, inPlace.begin() + 300,
                            [](BYTE byte) { return byte == 0x55; }));

    RecordBytes unknown = Filled(200, 0, 0xAA, 0);
    bytes = 301;
    EXPECT_FALSE(Convert(&unknown, &output, &bytes, CDM_CONVERT351));
    EXPECT_EQ(GetLastError(), ERROR_INVALID_PARAMETER);
    EXPECT_EQ(bytes, 301);
}

TEST_F(Converting, BuildsTheDriversDefault) {
    RecordBytes output(2608 + 8, 0xEE);
    bytes = 100;
    EXPECT_FALSE(Convert(nullptr, &output, &bytes, CDM_DRIVER_DEFAULT));
    EXPECT_EQ(GetLastError(), ERROR_INSUFFICIENT_BUFFER);
    EXPECT_EQ(bytes, 2608);
    EXPECT_FALSE(Convert(nullptr, nullptr, &bytes, CDM_DRIVER_DEFAULT));
    EXPECT_EQ(output, RecordBytes(2616, 0xEE));

    const embedded::Leaks before = fax.machine.OpenNow();
    bytes = 3000;
    EXPECT_TRUE(Convert(nullptr, &output, &bytes, CDM_DRIVER_DEFAULT));
    EXPECT_EQ(bytes, 2608);
    EXPECT_EQ(fax.machine.OpenNow(), before);
    EXPECT_EQ(descriptionCache.cachedDescription, nullptr);
    EXPECT_EQ(BytesOf(output.data() + 2608, 8), RecordBytes(8, 0xEE));
    const DEVMODEW* devMode = AsDevMode(output);
    EXPECT_EQ(std::u16string(devMode->dmDeviceName), u"Fax");
    EXPECT_EQ(devMode->dmPrintQuality, 200);  // the description's
    EXPECT_EQ(devMode->dmPaperSize, DMPAPER_LETTER);
    EXPECT_TRUE(HasPrivatePart(devMode));
}

TEST_F(Converting, FailsQuietlyWithoutPrinterOrDescription) {
    RecordBytes output(2608, 0xEE);
    bytes = 2608;
    BOOL built = Convert(nullptr, &output, &bytes, CDM_DRIVER_DEFAULT);  // leaves a cache file
    fax.FailEachCall([] {},
                     [&] {
                         bytes = 2608;
                         std::fill(output.begin(), output.end(), 0xEE);
                         built = Convert(nullptr, &output, &bytes, CDM_DRIVER_DEFAULT);
                     },
                     [&](const std::string& failed) {
                         EXPECT_EQ(bytes, 2608) << failed;
                         if (failed.empty()) {
                             EXPECT_TRUE(built);
                         } else if (!built) {
                             EXPECT_EQ(output, RecordBytes(2608, 0xEE)) << failed;
                         }
                     });
    fax.machine.spooler().RemovePrinter(FaxMachine::kPrinter);
    EXPECT_FALSE(Convert(nullptr, &output, &bytes, CDM_DRIVER_DEFAULT));
}

}  // namespace
}  // namespace ksfax
