#include <gtest/gtest.h>

#include "platform/embedded/machine.h"
#include "platform/embedded/modules.h"

#include "description/load_description.h"
#include "jobsettings/job_settings.h"
#include "tests/core/fax_machine.h"
#include "tests/jobsettings/made_description.h"
#include "tests/jobsettings/record_bytes.h"

namespace ksfax {
namespace {

JobSettings Default(const MadeDescription& made, bool metric, const WCHAR* name = nullptr) {
    JobSettings settings;
    std::memset(static_cast<void*>(&settings), 0xCC, sizeof(settings));
    BuildDefaultJobSettings(&settings, name, made.record, metric);
    return settings;
}

// The default record of a description that says nothing, metric, written down by its offsets.
RecordBytes PlainDefault() {
    RecordBytes record(2608);
    Put(&record, {U16(64, 0x0401), U16(66, 0x0104), U16(68, 220), U16(70, 2388), U32(72, 0x403),
                  U16(76, 1), U16(78, 9), U16(84, 100), U16(86, 1), U16(88, 7), U16(90, 300),
                  U16(92, 1), U16(94, 1), U16(96, 300), U16(98, 1)});
    PutText(&record, 102, u"A4");
    Put(&record,
        {P16(0, 1612),   P32(4, 0x56495250), P32(8, 0x2000),  P16(92, 24),
         P16(98, 10000), P16(100, 10000),    P16(102, 10000), P16(106, 10000),
         P16(184, 1),    P16(186, 1),        P8(225, 1),      P16(230, 100),
         P16(234, 1050), P16(236, 1485),     P32(272, 6),     P32(276, static_cast<uint32_t>(-11)),
         P8(299, 1),     P32(372, 0xFFFFFF), P16(388, 1),     P16(392, 1),
         P16(432, 7),    P16(434, 7),        P16(440, 16),    P16(444, 1),
         P32(448, 1),    P16(454, 0xFFFF),   P16(1138, 9),    P16(1140, 9),
         P16(1152, 1),   P32(1164, 7),       P32(1168, 1)});
    PutText(&record, 220 + 304, u"Arial");
    for (size_t pair = 0; pair < 12; ++pair) {
        Put(&record, {P32(1040 + pair * 8, pair == 0 || pair == 11 ? -1 : -2),
                      P32(1044 + pair * 8, pair == 0 ? -1 : -2)});
    }
    const uint32_t halftone[33] = {2,    7,    0, 6380, 3350, 0,    2345,  6075,  0,
                                   1410, 932,  0, 2000, 2450, 0,    5210,  2100,  0,
                                   4750, 5100, 0, 3127, 3290, 0,    12500, 12500, 12500,
                                   585,  120,  0, 0,    0,    10000};
    for (size_t i = 0; i < 33; ++i) {
        Put(&record, P32(1176 + i * 4, halftone[i]));
    }
    Put(&record, {P16(1452, 4), P16(1454, 996), P32(1460, 1), P16(1468, 1), P16(1470, 0xFFFF),
                  P16(1476, 90), P32(1632, 0x008800C6), P16(1638, 100), P8(1644, 1), P8(1645, 0x40),
                  P32(1812, 0xFFFFFF), P32(1816, 1), P16(1972, 0xFFFF), P16(1974, 0xFFFF),
                  P32(1976, 100), P32(2380, 0x43534F45)});
    return record;
}

TEST(BuildDefaultJobSettings, FillsEveryByteForAnEmptyDescription) {
    embedded::Machine machine;
    MadeDescription made;
    EXPECT_EQ(Differences(BytesOf(Default(made, true)), PlainDefault()), "");

    RecordBytes letter = PlainDefault();
    Put(&letter, {U16(78, 1), P16(232, 1), P8(378, 1), P16(1138, 1), P16(1140, 1)});
    PutText(&letter, 102, u"Letter");
    EXPECT_EQ(Differences(BytesOf(Default(made, false)), letter), "");
}

TEST(BuildDefaultJobSettings, CutsTheDeviceName) {
    embedded::Machine machine;
    MadeDescription made;
    RecordBytes expected = PlainDefault();
    PutText(&expected, 0, u"Fax");
    EXPECT_EQ(Differences(BytesOf(Default(made, true, TEXT("Fax"))), expected), "");
    PutText(&expected, 0, u"0123456789012345678901234567890");
    const WCHAR longName[] = TEXT("0123456789012345678901234567890123456789");
    EXPECT_EQ(Differences(BytesOf(Default(made, true, longName)), expected), "");
}

TEST(BuildDefaultJobSettings, TakesWhatTheDescriptionSays) {
    embedded::Machine machine;
    struct Row {
        const char* what;
        void (*change)(MadeDescription& made);
        std::vector<Field> fields;
    };
    const Row rows[] = {
        {"checksum",
         [](MadeDescription& made) { made.record.Checksum = 0xABCD; },
         {P16(116, 0xABCD)}},
        {"landscape minus 90",
         [](MadeDescription& made) { made.record.LandscapeOrientation = 2; },
         {P32(8, 0x2200)}},
        {"landscape plus 90",
         [](MadeDescription& made) { made.record.LandscapeOrientation = 1; },
         {}},
        {"language level",
         [](MadeDescription& made) { made.record.LanguageLevel = 2; },
         {P32(8, 0x2040)}},
        {"capability 0x8000",
         [](MadeDescription& made) { made.record.PrinterCaps = 0x7FFF8000; },
         {P16(202, 0x8000), P32(8, 0xA000), P16(1476, 270)}},
        {"capabilities 0x8002",
         [](MadeDescription& made) { made.record.PrinterCaps = 0x8002; },
         {P16(202, 0x8002), P32(8, 0x12000), P16(1476, 270)}},
        {"capability 0x0002 alone",
         [](MadeDescription& made) { made.record.PrinterCaps = 2; },
         {P16(202, 2)}},
        {"capability 0x0020",
         [](MadeDescription& made) { made.record.PrinterCaps = 0x20; },
         {P16(202, 0x20), P16(200, 1)}},
        {"capability 0x1000",
         [](MadeDescription& made) { made.record.PrinterCaps = 0x1000; },
         {P16(202, 0x1000), P8(1645, 0x41)}},
        {"sleep mode",
         [](MadeDescription& made) { made.record.SleepMode = made.Text("0,5,15,30"); },
         {P16(184, 15), P16(1152, 15)}},
        {"compression", [](MadeDescription& made) { made.record.CompMode1028 = 1; }, {P16(384, 1)}},
        {"quick setup", [](MadeDescription& made) { made.record.MakerFlags = 0x01; }, {P8(379, 1)}},
        {"reprint",
         [](MadeDescription& made) { made.record.MakerFlags = 0x10; },
         {P16(452, 0x100)}},
        {"printer fonts",
         [](MadeDescription& made) { made.record.MakerFlags = 0x20; },
         {P32(8, 0x2080)}},
        {"no banding", [](MadeDescription& made) { made.record.MakerFlags = 0x40; }, {P16(392, 0)}},
        {"source",
         [](MadeDescription& made) {
             FeatureRecord& feature = made.AddFeature(FeatureKind::InputSlot, "InputSlot", 1);
             made.AddOption(feature, "Upper");
             made.AddOption(feature, "Tray3");
         },
         {U16(88, 256), P16(432, 256), P16(434, 256), P16(118, 1), P8(120, 1)}},
        {"resolution",
         [](MadeDescription& made) {
             made.AddOption(made.AddFeature(FeatureKind::Resolution, "Resolution", 200), "200dpi");
         },
         {U16(90, 200), U16(96, 200), P16(118, 1), P8(120, 255)}},
        {"1200 dots per inch",
         [](MadeDescription& made) {
             made.AddOption(made.AddFeature(FeatureKind::Resolution, "Resolution", 1200),
                            "1200dpi");
         },
         {U32(72, 0x3), U16(90, 1200), U16(96, 1200), P16(118, 1), P8(120, 255), P16(204, 600)}},
        {"1200 on offer but not the default",
         [](MadeDescription& made) {
             made.AddOption(made.AddFeature(FeatureKind::Resolution, "Resolution", 200), "1200dpi");
         },
         {U32(72, 0x3), U16(90, 200), U16(96, 200), P16(118, 1), P8(120, 255)}},
        {"feature values",
         [](MadeDescription& made) {
             const struct {
                 FeatureKind kind;
                 const char* value;
             } values[] = {{FeatureKind::MultiplePage, "-2"}, {FeatureKind::TonerSaveMode, "3"},
                           {FeatureKind::MediaType, "4"},     {FeatureKind::HRC, "5"},
                           {FeatureKind::PageProtect, "6"},   {FeatureKind::GraphicsMode, "65543"}};
             for (const auto& value : values) {
                 made.AddOption(made.AddFeature(value.kind, "Feature"), "Option", value.value);
             }
         },
         {P16(118, 6), P16(188, 0xFFFE), P16(190, 3), P16(192, 4), P16(194, 5), P16(196, 6),
          P16(208, 7)}},
        {"TTMODE 0",
         [](MadeDescription& made) {
             made.AddOption(made.AddFeature(FeatureKind::TTMODE, "TTMODE"), "A", "0");
         },
         {P16(118, 1), P32(8, 0xA000)}},
        {"TTMODE 2, whatever the capabilities",
         [](MadeDescription& made) {
             made.record.PrinterCaps = 0x8000;
             made.AddOption(made.AddFeature(FeatureKind::TTMODE, "TTMODE"), "A", "2");
         },
         {P16(118, 1), P32(8, 0x12000), P16(202, 0x8000), P16(1476, 270)}},
        {"TTMODE 1",
         [](MadeDescription& made) {
             made.record.PrinterCaps = 0x8000;
             made.AddOption(made.AddFeature(FeatureKind::TTMODE, "TTMODE"), "A", "1");
         },
         {P16(118, 1), P16(202, 0x8000), P16(1476, 270)}},
        {"bias voltage not shown",
         [](MadeDescription& made) {
             made.AddOption(made.AddFeature(FeatureKind::BiasVolt, "BiasVolt"), "A", "9");
         },
         {P16(118, 1)}},
        {"bias voltage shown",
         [](MadeDescription& made) {
             made.record.ShowBiasVolt = 1;
             made.AddOption(made.AddFeature(FeatureKind::BiasVolt, "BiasVolt"), "A", "9");
         },
         {P16(118, 1), P8(226, 1), P8(227, 9), P8(229, 9)}},
    };
    for (const Row& row : rows) {
        MadeDescription made;
        row.change(made);
        RecordBytes expected = PlainDefault();
        Put(&expected, row.fields);
        EXPECT_EQ(Differences(BytesOf(Default(made, true)), expected), "") << row.what;
    }
}

TEST(BuildDefaultJobSettings, HasRoomForNoMoreThan64Features) {
    embedded::Machine machine;
    MadeDescription made;
    RecordBytes expected = PlainDefault();
    Put(&expected, P16(118, 64));
    for (unsigned i = 0; i < 70; ++i) {
        made.AddFeature(FeatureKind::Generic, "Feature", 3 + i);
        if (i < 64) {
            Put(&expected, P8(120 + i, 3 + i));
        }
    }
    EXPECT_EQ(Differences(BytesOf(Default(made, true)), expected), "");
}

// The device that the project describes, as the spooler gets its default record.
TEST(BuildDefaultJobSettings, FillsEveryByteForTheFaxDevice) {
    std::ifstream file(SOURCE_FOLDER "/examples/KSFAX.PPD", std::ios::binary);
    const std::string ppd(std::istreambuf_iterator<char>(file), {});
    RecordBytes expected = PlainDefault();
    PutText(&expected, 0, u"KSFAX");
    Put(&expected, {U16(90, 200), U16(96, 200), P32(8, 0x20C0), P16(118, 7), P8(120, 3),
                    P8(123, 255), P8(126, 1), P16(184, 15), P16(202, 2), P16(1152, 15)});
    RecordBytes letter = expected;
    Put(&letter, {U16(78, 1), P16(232, 1), P8(378, 1), P16(1138, 1), P16(1140, 1)});
    PutText(&letter, 102, u"Letter");

    for (const UINT country : {49u, 1u}) {
        FaxMachine fax({.country = country});
        fax.AddPrinter(u"KSFAX", u"C:\\Ppd\\KSFAX.PPD", ppd);
        WCHAR name[] = TEXT("KSFAX");
        RecordBytes record(2608);
        LONG bytes = 2608;
        ASSERT_TRUE(
            DrvConvertDevMode(name, nullptr, AsDevMode(record), &bytes, CDM_DRIVER_DEFAULT));
        // The checksum is the description's business; its place and width are this record's.
        RecordBytes wanted = country == 49 ? expected : letter;
        const platform::GlobalBlock block(LoadPrinterDescription(TEXT("C:\\Ppd\\KSFAX.PPD")));
        Put(&wanted, P16(116, static_cast<const PrinterDescription*>(block.get())->Checksum));
        EXPECT_EQ(Differences(record, wanted), "") << country;
    }
}

// One string table of a compiled resource file: texts at their places among the 16.
std::vector<std::byte> StringTable(WORD block, const std::vector<std::u16string>& texts) {
    std::u16string body;
    for (const std::u16string& text : texts) {
        body += static_cast<char16_t>(text.size()) + text;
    }
    body.resize(body.size() + 16 - texts.size());
    if (body.size() % 2 != 0) {
        body += u'\0';
    }
    const auto resource = [](DWORD dataSize, WORD type, WORD name) {
        RecordBytes header(32);
        Put(&header, {U32(0, dataSize), U32(4, 32), U16(8, 0xFFFF), U16(10, type), U16(12, 0xFFFF),
                      U16(14, name), U16(22, 0x0409)});
        return header;
    };
    RecordBytes file = resource(0, 0, 0);
    const RecordBytes entry = resource(static_cast<DWORD>(body.size() * 2), 6, block);
    file.insert(file.end(), entry.begin(), entry.end());
    const RecordBytes data = BytesOf(body.data(), body.size() * 2);
    file.insert(file.end(), data.begin(), data.end());
    const auto* first = reinterpret_cast<const std::byte*>(file.data());
    return {first, first + file.size()};
}

TEST(BuildDefaultJobSettings, TakesStringsOfTheResourceModule) {
    embedded::Machine machine;
    MadeDescription made;
    RecordBytes expected = PlainDefault();
    const auto withResources = [&](const std::vector<std::byte>& resources) {
        const std::u16string path = u"C:\\KSFAXRES.DLL";
        machine.modules().Install({.path = path, .exports = {}, .resources = resources});
        resourceModule = LoadLibraryW(path.c_str());
        const RecordBytes record = BytesOf(Default(made, true));
        FreeLibrary(resourceModule);
        resourceModule = nullptr;
        return record;
    };
    // String 65280 begins its block of 16, 391 is the eighth of its own.
    const std::u16string longFace = u"A face whose name is longer than fits";
    RecordBytes face = expected;
    PutText(&face, 220 + 304, std::u16string_view(longFace).substr(0, 31));
    EXPECT_EQ(Differences(withResources(StringTable(65280 / 16 + 1, {longFace})), face), "");
    Put(&expected, P16(382, 7));
    EXPECT_EQ(Differences(withResources(StringTable(
                              391 / 16 + 1, {u"", u"", u"", u"", u"", u"", u"", u"65543 x"})),
                          expected),
              "");
}

}  // namespace
}  // namespace ksfax
