#include <gtest/gtest.h>

#include "jobsettings/job_settings.h"
#include "tests/core/fax_machine.h"
#include "tests/jobsettings/record_bytes.h"

namespace ksfax {
namespace {

// A record of that shape whose bytes outside the sizes and versions all are `fill`.
RecordBytes Filled(WORD size, WORD extra, uint8_t fill, WORD spec = 0x0400, WORD driver = 260) {
    RecordBytes record = CallersRecord(size, extra, spec, driver);
    std::fill_n(record.begin(), 64, fill);
    std::fill(record.begin() + 72, record.end(), fill);
    return record;
}

// What becomes of `destination`: bytes stay where the source does not reach; its sizes and driver
// version stay, and its dmSpecVersion becomes that of its size.
RecordBytes Over(RecordBytes destination, const RecordBytes& source, WORD spec) {
    const auto word = [](const RecordBytes& record, size_t at) {
        return size_t{record[at]} + record[at + 1] * 256u;
    };
    const RecordBytes before = destination;
    std::copy_n(source.begin(), std::min(word(source, 68), word(before, 68)), destination.begin());
    std::copy_n(source.begin() + static_cast<ptrdiff_t>(word(source, 68)),
                std::min(word(source, 70), word(before, 70)),
                destination.begin() + static_cast<ptrdiff_t>(word(before, 68)));
    std::copy_n(before.begin() + 66, 6, destination.begin() + 66);
    Put(&destination, U16(64, spec));
    return destination;
}

TEST(ConvertJobSettings, CopiesAsFarAsBothRecordsReach) {
    const struct {
        WORD sourceSize, sourceExtra, size, extra, specAfter;
        int copied;
    } rows[] = {
        {220, 2388, 188, 112, 0x320, 300},   {188, 112, 220, 2388, 0x401, 300},
        {212, 2388, 220, 2388, 0x401, 2600}, {220, 2388, 212, 2388, 0x400, 2600},
        {220, 2388, 220, 0, 0x401, 220},     {188, 0, 212, 50, 0x400, 188},
        {300, 5000, 220, 2388, 0x401, 2608}, {201, 9, 199, 77, 0x123, 208},
        {0, 9, 220, 2388, 0x401, 9},         {40, 0, 220, 2388, 0x401, 40},
        {0, 0, 220, 2388, 0x401, 0},         {65535, 65535, 65535, 65535, 0x123, 131070},
        {220, 2388, 40, 100, 0x123, 140},  // private bytes lie over the header's fields
    };
    for (const auto& row : rows) {
        RecordBytes source = Filled(row.sourceSize, row.sourceExtra, 0xAA);
        if (row.sourceSize >= 72) {
            std::fill_n(source.rbegin(), row.sourceExtra / 2, uint8_t{0xCC});
        }
        RecordBytes destination = Filled(row.size, row.extra, 0xBB, 0x123, 848);
        const RecordBytes expected = Over(destination, source, row.specAfter);
        EXPECT_EQ(ConvertJobSettings(AsDevMode(source), AsDevMode(destination)), row.copied);
        EXPECT_EQ(destination, expected)
            << row.sourceSize << "+" << row.sourceExtra << " into " << row.size << "+" << row.extra;
    }
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
    const RecordBytes ours = Filled(220, 2388, 0xAA, 0x401);
    const JobSettings settings = SettingsOf(ours);
    const struct {
        const char* what;
        RecordBytes input;
        WORD spec, driver, size, extra;  // of the output
    } rows[] = {
        {"the same", CallersRecord(220, 2388, 7, 8), 0x401, 260, 220, 2388},
        {"larger", CallersRecord(300, 5000, 7, 8), 0x401, 260, 220, 2388},
        {"no private part", CallersRecord(220, 0, 7, 8), 0x401, 8, 220, 0},
        {"the earlier generation", CallersRecord(188, 112, 0x320, 848), 0x320, 848, 188, 112},
        {"shorter public part alone", CallersRecord(212, 3000, 0x400, 8), 0x400, 260, 212, 2388},
    };
    for (auto row : rows) {
        RecordBytes shape = CallersRecord(row.size, row.extra, row.spec, row.driver);
        shape.resize(2608 + 16, 0);
        const RecordBytes expected = Over(shape, ours, row.spec);
        RecordBytes output(shape.size());
        EXPECT_TRUE(CopyJobSettingsOut(settings, AsDevMode(row.input), AsDevMode(output)));
        EXPECT_EQ(output, expected) << row.what;
        // The caller's input may be its output.
        row.input.resize(shape.size());
        EXPECT_TRUE(CopyJobSettingsOut(settings, AsDevMode(row.input), AsDevMode(row.input)));
        EXPECT_EQ(BytesOf(row.input.data(), size_t{row.size} + row.extra),
                  BytesOf(expected.data(), size_t{row.size} + row.extra))
            << row.what;
    }
    RecordBytes output(2608 + 16, 0xEE);
    RecordBytes whole = ours;
    whole.resize(2608 + 16, 0xEE);
    EXPECT_TRUE(CopyJobSettingsOut(settings, nullptr, AsDevMode(output)));
    EXPECT_EQ(output, whole);
    RecordBytes unknown = CallersRecord(200, 0, 0);
    EXPECT_FALSE(CopyJobSettingsOut(settings, AsDevMode(unknown), AsDevMode(output)));
}

// ---- The spooler's entry point ----

constexpr DWORD kUntouched = 4711;

TEST(DrvConvertDevMode, AnswersEachMode) {
    FaxMachine fax;
    WCHAR name[] = TEXT("Fax");
    RecordBytes current = Filled(220, 2388, 0xAA);
    RecordBytes unknown = Filled(200, 0, 0xAA, 0);
    const RecordBytes earlier = Filled(188, 112, 0xBB, 0x320, 848);
    const RecordBytes blank(310, 0xEE);
    const RecordBytes converted = Over(earlier, current, 0x320);
    RecordBytes madeEarlier = converted;
    madeEarlier.resize(310, 0xEE);
    const struct {
        const char* what;
        DWORD mode;
        RecordBytes* input;
        const RecordBytes* output;
        LONG bytes;
        DWORD error;  // 0 for success
        LONG bytesAfter;
        const RecordBytes* after = nullptr;  // the output of a success
    } rows[] = {
        {"into a shape", CDM_CONVERT, &current, &earlier, 5000, 0, 300, &converted},
        {"exactly", CDM_CONVERT, &current, &earlier, 300, 0, 300, &converted},
        {"no output", CDM_CONVERT, &current, nullptr, 5000, ERROR_INVALID_PARAMETER, 5000},
        {"a byte short", CDM_CONVERT, &current, &earlier, 299, ERROR_INVALID_PARAMETER, 299},
        {"no header", CDM_CONVERT, &current, &earlier, 71, ERROR_INVALID_PARAMETER, 71},
        {"below 0", CDM_CONVERT, &current, &earlier, -1, ERROR_INVALID_PARAMETER, -1},
        {"no input", CDM_CONVERT, nullptr, &earlier, 300, ERROR_INVALID_PARAMETER, 300},
        {"unknown input", CDM_CONVERT, &unknown, &earlier, 300, ERROR_INVALID_PARAMETER, 300},
        {"unknown output", CDM_CONVERT, &current, &unknown, 300, ERROR_INVALID_PARAMETER, 300},
        {"the earlier shape", CDM_CONVERT351, &current, &blank, 301, 0, 300, &madeEarlier},
        {"no room", CDM_CONVERT351, &current, &blank, 299, ERROR_INSUFFICIENT_BUFFER, 300},
        {"less than none", CDM_CONVERT351, &current, &blank, -1, ERROR_INSUFFICIENT_BUFFER, 300},
        {"nowhere", CDM_CONVERT351, &current, nullptr, 999, ERROR_INSUFFICIENT_BUFFER, 300},
        {"unknown", CDM_CONVERT351, &unknown, &blank, 301, ERROR_INVALID_PARAMETER, 301},
        {"default", CDM_DRIVER_DEFAULT, nullptr, &blank, 100, ERROR_INSUFFICIENT_BUFFER, 2608},
        {"default", CDM_DRIVER_DEFAULT, nullptr, nullptr, 3000, ERROR_INSUFFICIENT_BUFFER, 2608},
        {"no mode", 0, &current, &earlier, 5000, kUntouched, 5000},
        {"no mode", 3, &current, &earlier, 5000, kUntouched, 5000},
        {"no mode", 5, &current, &earlier, 5000, kUntouched, 5000},
    };
    for (const auto& row : rows) {
        SCOPED_TRACE(testing::Message() << "mode " << row.mode << ", " << row.what);
        RecordBytes output = row.output != nullptr ? *row.output : RecordBytes();
        LONG bytes = row.bytes;
        SetLastError(kUntouched);
        EXPECT_EQ(DrvConvertDevMode(name, row.input != nullptr ? AsDevMode(*row.input) : nullptr,
                                    row.output != nullptr ? AsDevMode(output) : nullptr, &bytes,
                                    row.mode),
                  row.error == 0);
        EXPECT_EQ(GetLastError(), row.error == 0 ? kUntouched : row.error);
        EXPECT_EQ(bytes, row.bytesAfter);
        if (row.after != nullptr) {
            EXPECT_EQ(output, *row.after);
        } else if (row.output != nullptr && row.input != &unknown) {
            EXPECT_EQ(output, *row.output);
        }
    }
    EXPECT_FALSE(DrvConvertDevMode(name, AsDevMode(current), AsDevMode(current), nullptr, 1));
    EXPECT_EQ(GetLastError(), ERROR_INVALID_PARAMETER);
    // A buffer shorter than the header is not looked into, by the sanitizer's witness.
    const std::unique_ptr<BYTE[]> one(new BYTE[1]);
    LONG bytes = 1;
    EXPECT_FALSE(DrvConvertDevMode(name, AsDevMode(current), reinterpret_cast<DEVMODEW*>(one.get()),
                                   &bytes, CDM_CONVERT));
    // In place: the private part is found where the record had it, not at its new place.
    std::fill_n(current.begin() + 220, 112, BYTE{0x55});
    bytes = 2608;
    EXPECT_TRUE(
        DrvConvertDevMode(name, AsDevMode(current), AsDevMode(current), &bytes, CDM_CONVERT351));
    EXPECT_EQ(BytesOf(&current[188], 112), RecordBytes(112, 0x55));
}

// Whole or not at all, from the printer's own description, whatever stands in the cache.
TEST(DrvConvertDevMode, BuildsTheDriversDefaultOrNothing) {
    FaxMachine fax;
    RecordBytes output;
    LONG bytes = 0;
    BOOL built = FALSE;
    const auto build = [&](std::u16string name) {
        bytes = 2608;
        output.assign(2608 + 8, 0xEE);
        built =
            DrvConvertDevMode(name.data(), nullptr, AsDevMode(output), &bytes, CDM_DRIVER_DEFAULT);
    };
    fax.FailEachCall([] {}, [&] { build(u"Fax"); },
                     [&](const std::string& failed) {
                         EXPECT_EQ(bytes, 2608);
                         EXPECT_TRUE(built || !failed.empty());
                         EXPECT_EQ(output, built ? output : RecordBytes(2616, 0xEE));
                         EXPECT_TRUE(failed != "OpenPrinterW" || !built);
                     });
    fax.machine.faults.Count([](const std::string& call) {
        EXPECT_TRUE(call != "CreateFileW" || embedded::IsHeldByThisThread(moduleLock));
    });
    build(u"Fax");
    fax.machine.faults.Clear();
    EXPECT_TRUE(built);
    EXPECT_EQ(descriptionCache.cachedDescription, nullptr);
    RecordBytes expected(2608 + 8, 0xEE);
    {
        const platform::PrinterHandle printer = fax.Open();
        const DescriptionUse description(AcquireDescription(printer.get(), true));
        JobSettings settings;
        BuildDefaultJobSettings(&settings, TEXT("Fax"), *description.get(), false);
        std::memcpy(expected.data(), &settings, sizeof(settings));
    }
    EXPECT_EQ(output, expected);
    build(u"None");
    EXPECT_FALSE(built);
    EXPECT_EQ(output, RecordBytes(2616, 0xEE));
}

}  // namespace
}  // namespace ksfax
