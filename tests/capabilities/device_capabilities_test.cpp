#include <atomic>
#include <thread>

#include <gtest/gtest.h>

#include "capabilities/paper_names.h"
#include "tests/core/fax_machine.h"
#include "tests/jobsettings/record_bytes.h"

namespace ksfax {
namespace {

constexpr DWORD kNotAnswered = 0xFFFFFFFF;

constexpr std::string_view kBothFeatures = R"(*PPD-Adobe: "4.3"
*OpenUI *PageSize: PickOne
*DefaultPageSize: A4
*PageSize A4: ""
*PageSize Letter: ""
*PageSize Oficio: ""
*CloseUI: *PageSize
*PaperDimension A4: "595 842"
*PaperDimension Letter: "612 792"
*PaperDimension Oficio: "612 936"
*OpenUI *Paper: PickOne
*DefaultPaper: A4
*Paper A4: "9"
*Paper Custom: "
	256"
*Paper Huge: "65541 and more"
*Paper JE4: ""
*CloseUI: *Paper
*OpenUI *Resolution: PickOne
*DefaultResolution: 200dpi
*Resolution 200dpi: ""
*Resolution fine: ""
*Resolution 200x100dpi: ""
*CloseUI: *Resolution
)";

constexpr std::string_view kPageSizeAlone = R"(*PPD-Adobe: "4.3"
*LandscapeOrientation: Minus90
*OpenUI *PageSize: PickOne
*PageSize Oficio: "256"
*PageSize Tabloid: ""
*PageSize JISB5: ""
*CloseUI: *PageSize
*PaperDimension Oficio: "612 936"
*PaperDimension Tabloid: "0 0"
*OpenUI *Resolution: PickOne
*DefaultResolution: 400dpi
*Resolution fine: ""
*CloseUI: *Resolution
)";

constexpr std::string_view kNoPaper = R"(*PPD-Adobe: "4.3"
*NickName: "Nothing"
)";

constexpr std::string_view kEmptyPaper = R"(*PPD-Adobe: "4.3"
*OpenUI *PageSize: PickOne
*PageSize A4: ""
*CloseUI: *PageSize
*OpenUI *Paper: PickOne
*CloseUI: *Paper
)";

class Capabilities : public testing::Test {
  protected:
    using Pair = std::pair<LONG, LONG>;
    struct NameSlot {
        WCHAR text[64];
    };

    Capabilities() {
        fax.AddPrinter(u"Both", u"C:\\Ppd\\BOTH.PPD", kBothFeatures);
        fax.AddPrinter(u"PageSize", u"C:\\Ppd\\ONE.PPD", kPageSizeAlone);
        fax.AddPrinter(u"None", u"C:\\Ppd\\NONE.PPD", kNoPaper);
        fax.AddPrinter(u"Empty", u"C:\\Ppd\\EMPTY.PPD", kEmptyPaper);
    }

    DWORD Ask(const char16_t* printer, WORD index, void* output = nullptr,
              DEVMODEW* settings = nullptr) {
        const platform::PrinterHandle handle = fax.Open(printer);
        WCHAR name[] = TEXT("Fax");
        return DrvDeviceCapabilities(handle.get(), name, index, output, settings);
    }
    // The list that a query writes, as many items as its result says; nothing may be written
    // behind them.
    template <typename Item>
    std::vector<Item> Items(const char16_t* printer, WORD index, DEVMODEW* settings = nullptr) {
        const DWORD count = Ask(printer, index, nullptr, settings);
        std::vector<Item> items(count + 1);
        std::memset(static_cast<void*>(items.data()), 0xEE, items.size() * sizeof(Item));
        EXPECT_EQ(Ask(printer, index, items.data(), settings), count);
        Item untouched;
        std::memset(static_cast<void*>(&untouched), 0xEE, sizeof(untouched));
        EXPECT_EQ(std::memcmp(&items.back(), &untouched, sizeof(untouched)), 0);
        items.pop_back();
        return items;
    }
    std::vector<std::u16string> Names(const char16_t* printer, WORD index) {
        std::vector<std::u16string> names;
        for (const NameSlot& slot : Items<NameSlot>(printer, index)) {
            names.emplace_back(slot.text);
        }
        return names;
    }
    std::vector<Pair> Pairs(const char16_t* printer, WORD index, DEVMODEW* settings = nullptr) {
        std::vector<Pair> pairs;
        for (const POINTL& pair : Items<POINTL>(printer, index, settings)) {
            pairs.emplace_back(pair.x, pair.y);
        }
        return pairs;
    }

    FaxMachine fax;
};

TEST_F(Capabilities, AnswerEveryIndex) {
    const DWORD expected[] = {kNotAnswered,
                              0x403,
                              4,
                              4,
                              0x05CD041A,
                              0x0DE4086F,
                              0,
                              0,
                              220,
                              2388,
                              1025,
                              260,
                              0,
                              2,
                              0,
                              0,
                              4,
                              270,
                              999,
                              257,
                              kNotAnswered,
                              kNotAnswered,
                              0,
                              kNotAnswered,
                              kNotAnswered,
                              kNotAnswered,
                              16,
                              1,
                              kNotAnswered,
                              4,
                              0,
                              16,
                              0};
    ASSERT_EQ(std::size(expected), 33u);
    for (WORD index = 0; index < std::size(expected); ++index) {
        EXPECT_EQ(Ask(u"Both", index), expected[index]) << index;
    }
    for (const WORD index : {33, 34, 255, 0x8001, 0xFFFF}) {
        EXPECT_EQ(Ask(u"Both", index), kNotAnswered) << index;
    }
}

TEST_F(Capabilities, ListPapersOfThePaperFeatureFirst) {
    EXPECT_EQ(Items<WORD>(u"Both", DC_PAPERS), (std::vector<WORD>{9, 256, 5, 0}));
    // Sizes go by position in the other list, which ends first.
    const std::vector<Pair> sizes = Pairs(u"Both", DC_PAPERSIZE);
    ASSERT_EQ(sizes.size(), 4u);
    EXPECT_EQ(sizes[0], Pair(2099, 2970));
    EXPECT_EQ(sizes[1], Pair(1050, 1485));
    EXPECT_EQ(sizes[2], Pair(2159, 3302));
    EXPECT_EQ(static_cast<DWORD>(sizes[3].first), 0xEEEEEEEEu);
    const std::vector<std::u16string> names = {u"A4", u"", u"", u"Envelope You 4"};
    EXPECT_EQ(Names(u"Both", DC_PAPERNAMES), names);
    EXPECT_EQ(Names(u"Both", DC_MEDIAREADY), names);
}

TEST_F(Capabilities, ListPapersOfThePageSizeFeatureOtherwise) {
    EXPECT_EQ(Items<WORD>(u"PageSize", DC_PAPERS), (std::vector<WORD>{1, 1, 13}));
    EXPECT_EQ(Names(u"PageSize", DC_PAPERNAMES),
              (std::vector<std::u16string>{u"Folio", u"", u"JIS B5"}));
    RecordBytes settings = CallersRecord(220, 238);
    Put(&settings, {P32(4, 0x56495250), P16(234, 700), P16(236, 65535)});
    EXPECT_EQ(Pairs(u"PageSize", DC_PAPERSIZE, AsDevMode(settings)),
              (std::vector<Pair>{{700, 65535}, {0, 0}, {0, 0}}));
    for (const WORD index : {DC_PAPERS, DC_PAPERSIZE, DC_PAPERNAMES, DC_MEDIAREADY}) {
        EXPECT_EQ(Ask(u"None", index), 0u) << index;
        EXPECT_EQ(Ask(u"Empty", index), 0u) << index;
    }
}

TEST_F(Capabilities, ListResolutionsByTheirFirstNumber) {
    EXPECT_EQ(Pairs(u"Both", DC_ENUMRESOLUTIONS), (std::vector<Pair>{{200, 200}, {200, 200}}));
    EXPECT_EQ(Pairs(u"PageSize", DC_ENUMRESOLUTIONS), (std::vector<Pair>{{400, 400}}));
    EXPECT_EQ(Pairs(u"None", DC_ENUMRESOLUTIONS), (std::vector<Pair>{{300, 300}}));
}

TEST_F(Capabilities, LookAtTheCallersRecord) {
    RecordBytes settings = CallersRecord(188, 1137, 0x320, 848);
    Put(&settings, U32(72, 0x200));
    Put(&settings, {{188 + 4, 4, 0x56495250}, {188 + 8, 4, 0x200}, {188 + 1136, 1, 0xFE}});
    DEVMODEW* record = AsDevMode(settings);
    EXPECT_EQ(Ask(u"Both", DC_FIELDS, nullptr, record), 0x603u);
    EXPECT_EQ(Ask(u"Both", DC_STAPLE, nullptr, record), 1u);
    EXPECT_EQ(Ask(u"Both", DC_ORIENTATION, nullptr, record), 90u);
    EXPECT_EQ(Ask(u"Both", DC_SIZE, nullptr, record), 220u);
    EXPECT_EQ(Ask(u"Both", DC_EXTRA, nullptr, record), 2388u);
    EXPECT_EQ(Ask(u"Both", DC_VERSION, nullptr, record), 1025u);
    EXPECT_EQ(Ask(u"Both", DC_DRIVER, nullptr, record), 260u);
    EXPECT_EQ(Ask(u"PageSize", DC_ORIENTATION), 90u);
    Put(&settings, {188 + 1136, 1, 0xFD});
    EXPECT_EQ(Ask(u"Both", DC_STAPLE, nullptr, record), 0u);

    RecordBytes unknown = CallersRecord(200, 0, 0);
    for (const WORD index : {DC_FIELDS, DC_MINEXTENT, DC_COPIES, DC_PAPERS}) {
        EXPECT_EQ(Ask(u"Both", index, nullptr, AsDevMode(unknown)), kNotAnswered) << index;
    }
}

TEST_F(Capabilities, GiveAnEmptyListOfFilesWhereThereIsRoom) {
    WCHAR output[2] = {7, 7};
    EXPECT_EQ(Ask(u"Both", DC_FILEDEPENDENCIES, output), 0u);
    EXPECT_EQ(output[0], 0);
    EXPECT_EQ(output[1], 7);
}

TEST_F(Capabilities, AreGatedByTheFormsDatabaseWherePapersAreListed) {
    fax.machine.spooler().RemoveAllForms();
    WORD output = 7;
    for (const WORD index : {DC_PAPERS, DC_PAPERSIZE, DC_PAPERNAMES, DC_MEDIAREADY}) {
        EXPECT_EQ(Ask(u"Both", index, &output), kNotAnswered) << index;
        EXPECT_EQ(Ask(u"None", index, &output), kNotAnswered) << index;
    }
    EXPECT_EQ(output, 7);
    EXPECT_EQ(Ask(u"Both", DC_ENUMRESOLUTIONS), 2u);
}

// Whatever fails, nothing stays taken and the description is given back; calls whose failure has
// a fallback leave the answer as it is.
TEST_F(Capabilities, SurviveEachFailure) {
    for (const WORD index : {DC_MINEXTENT, DC_PAPERS}) {
        const platform::PrinterHandle printer = fax.Open(u"Both");
        RecordBytes settings = CallersRecord(220, 0);
        DWORD answer = 0;
        fax.FailEachCall([] {},
                         [&] {
                             answer = DrvDeviceCapabilities(printer.get(), nullptr, index, nullptr,
                                                            AsDevMode(settings));
                             EXPECT_EQ(descriptionCache.useCount, 0);
                         },
                         [&](const std::string& failed) {
                             const DWORD good = index == DC_PAPERS ? 4u : 0x05CD041Au;
                             if (failed.empty()) {
                                 EXPECT_EQ(answer, good);
                             } else {
                                 EXPECT_TRUE(answer == good || answer == kNotAnswered) << answer;
                             }
                             if (failed == "GetPrinterDriverW" || failed == "EnumFormsW") {
                                 EXPECT_EQ(answer, kNotAnswered);
                             }
                         });
    }
}

TEST_F(Capabilities, AnswerManyThreadsAtOnce) {
    std::atomic<unsigned> wrong = 0;
    std::vector<std::thread> threads;
    for (unsigned i = 0; i < 16; ++i) {
        threads.emplace_back([&, i] {
            const char16_t* printer = i % 4 == 0 ? u"PageSize" : u"Both";
            const platform::PrinterHandle handle = fax.Open(printer);
            const WORD expected = i % 4 == 0 ? 1 : 9;
            for (unsigned round = 0; round < 20; ++round) {
                WORD papers[4] = {};
                (void)DrvDeviceCapabilities(handle.get(), nullptr, DC_PAPERS, papers, nullptr);
                wrong += papers[0] != expected;
            }
        });
    }
    for (std::thread& thread : threads) {
        thread.join();
    }
    EXPECT_EQ(wrong, 0u);
    EXPECT_EQ(descriptionCache.useCount, 0);
}

TEST(PaperNameString, KnowsKeywordsByEveryByte) {
    const struct {
        const char* keyword;
        UINT string;
    } rows[] = {{"A4", 553},         {"Letter", 550}, {"JISB4", 578}, {"Oficio", 4221},
                {"DLYOKO", 4233},    {"A6", 2012},    {"a4", 0},      {"A4Lon", 0},
                {"B5LongEdge", 577}, {"", 0},         {nullptr, 0}};
    for (const auto& row : rows) {
        EXPECT_EQ(PaperNameString(row.keyword), row.string);
    }
}

}  // namespace
}  // namespace ksfax
