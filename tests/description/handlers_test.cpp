#include <gtest/gtest.h>

#include "tests/description/ppd_text.h"

namespace ksfax {
namespace {

TEST(HeaderKeywords, StoreTheirFields) {
    embedded::Machine machine;
    const struct {
        const char* text;
        uint64_t (*field)(const PrinterDescription&);
        uint64_t value;
    } rows[] = {
#define FIELD(name) [](const PrinterDescription& d) -> uint64_t { return d.name; }
        {"*ColorDevice: True\n", FIELD(ColorDevice), 1},
        // What is no word of a keyword's is handled all the same, so that the next one is late.
        {"*ColorDevice: Truely\n*ColorDevice: True\n", FIELD(ColorDevice), 0},
        {"*LanguageEncoding: Foo\n*LanguageEncoding: ISOLatin1\n", FIELD(LanguageEncoding), 0},
        {"*GrayText: x\n*GrayText: True\n", FIELD(MakerFlags), 0},
        {"*Protocols: BCP TBCP\n*Protocols: PJL X\n", FIELD(Protocols), 7},
        {"*Extensions: DPS CMYK\n", FIELD(ColorDevice), 1},
        {"*Extensions: DPS FileSystem\n", FIELD(Extensions), 9},
        {"*LanguageEncoding: JIS83-RKSJ\n", FIELD(LanguageEncoding), 2},
        {"*LanguageEncoding: ISOLatin1\n*LanguageVersion: Japanese\n", FIELD(LanguageEncoding), 1},
        {"*LanguageVersion: Japanese\n*LanguageEncoding: None\n", FIELD(LanguageEncoding), 0},
        {"*LanguageVersion: Klingon\n", FIELD(LanguageEncoding), 0},
        {"*TTRasterizer: TrueImage\n", FIELD(TTRasterizer), 3},
        {"*LandscapeOrientation: Minus90 x\n", FIELD(LandscapeOrientation), 2},
        {"*LanguageLevel: \"3\"\n", FIELD(LanguageLevel), 3},
        {"*End\n", FIELD(LanguageLevel), 1},
        {"*SuggestedJobTimeout: -5\n", FIELD(SuggestedJobTimeout), 0},
        {"*End\n", FIELD(SuggestedWaitTimeout), 240},
        {"*SuggestedWaitTimeout: 7\n*SuggestedWaitTimeout: 8\n", FIELD(SuggestedWaitTimeout), 7},
        {"*PrintPSError: True\n", FIELD(PrintPSError), 1},
        {"*MacroSetting: True\n", FIELD(MacroSetting), 1},
        {"*CompMode1028: True\n", FIELD(CompMode1028), 1},
        {"*ShowBiasVolt: True\n", FIELD(ShowBiasVolt), 1},
        {"*AddUMPD: True\n", FIELD(AddUMPD), 1},
        {"*MaxMediaHeight: 2.5\n", FIELD(MaxMediaHeight), 640},
        {"*DefaultQuickPrintSetup: True\n*DefaultStatusMonitor: True\n", FIELD(MakerFlags), 5},
        {"*DefaultUseReprint: True\n", FIELD(MakerFlags), 0x10},
        {"*DefaultUsePrinterFonts: True\n", FIELD(MakerFlags), 0x20},
        {"*FreeVM: \"65536\"\n", FIELD(FreeVM), 102400},
        {"*FreeVM: \"102401\"\n", FIELD(FreeVM), 102401},
        {"*PrinterCaps: 12x\n", FIELD(PrinterCaps), 12},
        {"*PrintRateA4: 65543\n", FIELD(PrintRateA4), 7},
        {"*PrintRateLetter: fast\n*PrintRateLetter: 6\n", FIELD(PrintRateLetter), 0},
        {"*HWMargins: 1 2.5 3 4\n", FIELD(HWMargins[1]), 640},
        {"*HWMargins: 1 2 3\n", FIELD(HasHWMargins), 0},
        {"*HWMargins: 1 2 x 4\n", FIELD(HWMargins[0]), 0},
        {"*CustomPageSize True: \"c\"\n*MaxMediaWidth: 1\n", FIELD(CustomPageSize), 1},
        {"*CustomPageSize True: \"c\"\n", FIELD(CustomPageSize), 0},
        {"*CustomPageSize False: \"c\"\n*MaxMediaWidth: 1\n", FIELD(CustomPageSize), 0},
        {"*ParamCustomPageSize HeightOffset: 5 real 1 2\n", FIELD(ParamCustomPageSize[3].Max), 512},
        {"*ParamCustomPageSize Height: 5 real 1 2\n", FIELD(ParamCustomPageSize[1].Type), 1},
        {"*ParamCustomPageSize Width: 4 int 1 2\n", FIELD(ParamCustomPageSize[0].Order), 4},
        {"*ParamCustomPageSize Orientation: 1 points 3 4\n", FIELD(ParamCustomPageSize[4].Min),
         768},
        {"*ParamCustomPageSize Width: 6 real 1 2\n", FIELD(ParamCustomPageSize[0].Order), 0},
        {"*ParamCustomPageSize Width: 1 feet 1 2\n", FIELD(ParamCustomPageSize[0].Order), 0},
        {"*ParamCustomPageSize Width: 1 int 1\n", FIELD(ParamCustomPageSize[0].Order), 0},
        {"*GrayText: True\n*NoBanding: True\n*DefaultMXMonitor: True\n", FIELD(MakerFlags), 0x4A},
        {"*DefaultFontSetting: False\n", FIELD(DefaultFontSetting), 0},
        {"*Resolution 300dpi: \"\"\n*SetResolution 9: \"\"\n*JCLResolution 9: \"<x>\"\n",
         FIELD(ResolutionKeyword), 1},
#undef FIELD
    };
    for (const auto& row : rows) {
        const DescriptionPtr description = LoadText(row.text);
        EXPECT_EQ(row.field(*description), row.value) << row.text;
    }
}

TEST(HeaderKeywords, StoreTheirTexts) {
    embedded::Machine machine;
    using Header = PrinterDescription;
    const struct {
        const char* text;
        Ref<char> Header::*field;
        const char* stored;
    } rows[] = {
        {"*ExitServer: \"<41>\"\n", &Header::ExitServer, "<41>"},
        {"*JCLBegin: \"<41>\"\n", &Header::JCLBegin, "A"},
        {"*JCLToPSInterpreter: \"<42>\"\n", &Header::JCLToPSInterpreter, "B"},
        {"*JCLEnd: \"<43>\"\n", &Header::JCLEnd, "C"},
        {"*CustomPageSize True: \"c\"\n", &Header::CustomPageSizeCode, "c"},
        {"*DefaultLanguage: X\n", &Header::DefaultLanguage, "X"},
        {"*OpenUI *Language: PickOne\n*DefaultLanguage: X\n", &Header::DefaultLanguage, "-"},
        {"*NickName\n*NickName: \"n\"\n", &Header::NickName, "n"},
    };
    for (const auto& row : rows) {
        const DescriptionPtr description = LoadText(row.text);
        EXPECT_EQ(TextOf((*description).*row.field), row.stored) << row.text;
    }
}

TEST(OptionModel, KnowsTheWellKnownFeatures) {
    embedded::Machine machine;
    using enum FeatureKind;
    const struct {
        const char* name;
        FeatureKind kind;
        bool isBoolean;
        uint64_t chosen;  // of the second option as the default
    } rows[] = {{"ManualFeed", ManualFeed, true, 1},
                {"Duplex", Duplex, false, 1},
                {"Collate", Collate, true, 1},
                {"MediaType", MediaType, false, 1},
                {"MultiplePage", MultiplePage, false, 1},
                {"TonerSaveMode", TonerSaveMode, false, 1},
                {"PageProtect", PageProtect, false, 1},
                {"HRC", HRC, false, 1},
                {"GraphicsMode", GraphicsMode, false, 1},
                {"TTMODE", TTMODE, false, 1},
                {"BiasVolt", BiasVolt, false, 1},
                {"SaveMacro", SaveMacro, false, 0}};
    for (const auto& row : rows) {
        const std::string name(row.name);
        const DescriptionPtr description =
            LoadText("*" + name + " a: \"v\"\n*" + name + " b: \"w\"\n*Default" + name + ": b\n");
        const FeatureRecord* feature = FeatureOf(*description, row.kind);
        ASSERT_NE(feature, nullptr) << name;
        EXPECT_EQ(TextOf(feature->Name), name);
        EXPECT_EQ(OptionsOf(feature), "a/-=v; b/-=w");
        EXPECT_EQ(feature->OptionSize, 40u) << name;
        EXPECT_EQ(feature->UIType, row.isBoolean ? FeatureUIType::Boolean : FeatureUIType::PickOne);
        EXPECT_EQ(uint64_t{feature->Default}, row.chosen) << name;
    }
}

TEST(OptionModel, MergesStatementsByOptionName) {
    embedded::Machine machine;
    const DescriptionPtr description = LoadText(
        "*DefaultPageSize: B\n"
        "*PageSize A/First: \"a\"\n*PageSize B: \"b\"\n"
        "*PageRegion A: \"ra\"\n*PageRegion B/Later: \"rb\"\n*PageSizeL B: \"lb\"\n"
        "*PageSize A/Second: \"ignored\"\n"
        "*ImageableArea A: \"1 2 3 4 5\"\n*ImageableAreaL A: \"1 2 3 4 5 6 7\"\n"
        "*ImageableArea C: \"1 2 3\"\n*PaperDimension A: \"10 20\"\n*PaperDimension B: \"10 x\"\n"
        "*PageSize D/<4x>: \"d\"\n"
        "*PaperDimension E: \"10 20\"\n*PaperDimension E: \"30 x\"\n"
        "*ImageableArea E: \"1 2 3 4 5 6\"\n*ImageableArea E: \"2 3 4 5 x 6\"\n");
    const FeatureRecord* papers = FeatureOf(*description, FeatureKind::PageSize);
    ASSERT_NE(papers, nullptr);
    EXPECT_EQ(OptionsOf(papers), "A/First=a; B/Later=b; C/-=-; D/-=-; E/-=-");
    EXPECT_EQ(uint64_t{papers->Default}, 1u);
    EXPECT_EQ(papers->OptionSize, 112u);
    const PaperOptionRecord& a = AsPaper(*NthListEntry(papers->Options.Target(), 0));
    const PaperOptionRecord& b = AsPaper(*NthListEntry(papers->Options.Target(), 1));
    EXPECT_EQ(TextOf(a.PageRegionInvocation), "ra");
    EXPECT_EQ(TextOf(b.PageSizeLInvocation), "lb");
    EXPECT_EQ(a.PaperHeight, 20u * 256);
    EXPECT_EQ(b.PaperWidth, 0u) << "a width without a height does not stay";
    EXPECT_EQ(a.ImageableArea[3], 4u * 256);
    EXPECT_EQ(a.ImageableAreaExtra[0], 0u);
    EXPECT_EQ(a.ImageableAreaLExtra[1], 6u * 256);
    const PaperOptionRecord& e = AsPaper(*NthListEntry(papers->Options.Target(), 4));
    EXPECT_EQ(e.PaperWidth, 30u * 256) << "the good half of a bad statement";
    EXPECT_EQ(e.PaperHeight, 20u * 256);
    EXPECT_EQ(e.ImageableArea[0], 2u * 256);
    EXPECT_EQ(e.ImageableAreaExtra[0], 0u) << "of the first statement nothing stays";
}

TEST(OptionModel, FillsTheSpecialFeatures) {
    embedded::Machine machine;
    const DescriptionPtr description = LoadText(
        "*RequiresPageRegion Upper: False\n*InputSlot Upper: \"u\"\n*InputSlot Lower: \"l\"\n"
        "*RequiresPageRegion Lower: Nonsense\n"
        "*JCLResolution 600dpi: \"<1B>j\"\n*Resolution 600dpi: \"<1B>r\"\n"
        "*SetResolution 600dpi: \"s\"\n*ResScreenFreq 600dpi: \"85.5\"\n"
        "*ResScreenAngle 600dpi: \"45\"\n"
        "*DefaultJCLResolution: 1200dpi\n*DefaultResolution: 300dpi\n"
        "*InstalledMemory 4Meg: \"0,x 4096\"\n*InstalledMemory 8Meg: \"8192\"\n"
        "*InstalledMemory 9Meg: \"1,2,3,4,5,6,7,8,9,10,11,12,13,\"\n"
        "*VMOption 8Meg/Eight: \"77\"\n*VMOption 4Meg: \"x\"\n"
        "*Font Courier: Standard x\n*Font Courier: again\n*Font Unknown: y\n"
        "*Font Times-Roman: \"z\"\n*SleepMode a: \"0,5\"\n*SleepMode b: \"9\"\n");
    const FeatureRecord* slots = FeatureOf(*description, FeatureKind::InputSlot);
    EXPECT_EQ(AsSlot(*slots->Options.Target()).RequiresPageRegion, 1u);
    EXPECT_EQ(AsSlot(*NthListEntry(slots->Options.Target(), 1)).RequiresPageRegion, 0u);

    const FeatureRecord* resolutions = FeatureOf(*description, FeatureKind::Resolution);
    EXPECT_EQ(GetDefaultResolution(*description), 1200u);
    const ResolutionOptionRecord& dpi = AsResolution(*resolutions->Options.Target());
    EXPECT_EQ(TextOf(dpi.Common.Invocation), "<1B>r");
    EXPECT_EQ(TextOf(dpi.JCLResolutionInvocation), "\x1Bj");
    EXPECT_EQ(TextOf(dpi.SetResolutionInvocation), "s");
    EXPECT_EQ(dpi.ResScreenFreq, 85u * 256 + 128);
    EXPECT_EQ(dpi.ResScreenAngle, 45u * 256);

    const FeatureRecord* memory = FeatureOf(*description, FeatureKind::VMOption);
    EXPECT_EQ(memory->Installable, 1u);
    EXPECT_EQ(OptionsOf(memory), "4Meg/-=0,x 4096; 8Meg/Eight=8192; "
                                 "9Meg/-=1,2,3,4,5,6,7,8,9,10,11,12,13,");
    const OptionRecord* option = memory->Options.Target();
    EXPECT_EQ(AsMemory(*option).MemoryAmount, 4096u * 1024);
    EXPECT_EQ(AsMemory(*NthListEntry(option, 1)).MemoryAmount, 77u);
    EXPECT_EQ(AsMemory(*NthListEntry(option, 2)).MemoryAmount, 1024u);

    const DeviceFontRecord* font = description->DeviceFonts.Target();
    EXPECT_EQ(CountListEntries(font), 2u);
    EXPECT_EQ(TextOf(font->Description), "Standard x");
    EXPECT_EQ(font->FontId, 9);
    EXPECT_EQ(FindByName(font, "Courier"), font);  // by the hash that every list record carries
    EXPECT_EQ(TextOf(description->SleepMode), "0,5");
}

// The first value says whether it is a list, the latest one is the number.
TEST(OptionModel, TakesMemoryFromTwoStatements) {
    embedded::Machine machine;
    const struct {
        const char* first;
        const char* second;
        uint32_t amount;
    } rows[] = {{"8192", "1,2,3", 1}, {"0,0,5", "7", 5120}, {"8192", "x", 8192}};
    for (const auto& row : rows) {
        const DescriptionPtr description =
            LoadText(std::string("*InstalledMemory A: \"") + row.first +
                     "\"\n*InstalledMemory A: \"" + row.second + "\"\n");
        const FeatureRecord* memory = FeatureOf(*description, FeatureKind::VMOption);
        EXPECT_EQ(AsMemory(*memory->Options.Target()).MemoryAmount, row.amount) << row.first;
    }
}

TEST(RequiresPageRegion, OfAllSlotsOutweighsThatOfEach) {
    embedded::Machine machine;
    const std::string slots = "*InputSlot U: \"\"\n*InputSlot L: \"\"\n";
    const struct {
        std::string text;
        const char* required;  // of each slot
    } rows[] = {{slots + "*RequiresPageRegion U: False\n", "01"},
                {slots + "*RequiresPageRegion U: False\n*RequiresPageRegion All: True\n", "11"},
                {"*RequiresPageRegion All: False\n" + slots, "00"},
                {"*RequiresPageRegion All: False\n*RequiresPageRegion All: True\n" + slots +
                     "*RequiresPageRegion L: False\n",
                 "11"},
                {"*RequiresPageRegion All: Maybe\n", ""}};
    for (const auto& row : rows) {
        const DescriptionPtr description = LoadText(row.text);
        const FeatureRecord* feature = FeatureOf(*description, FeatureKind::InputSlot);
        ASSERT_NE(feature, nullptr) << row.text;
        std::string required;
        for (const OptionRecord& option : ListOf(feature->Options)) {
            required += static_cast<char>('0' + AsSlot(option).RequiresPageRegion);
        }
        EXPECT_EQ(required, row.required) << row.text;
    }
}

TEST(OpenUI, IsClosedByAnotherAndByItsName) {
    embedded::Machine machine;
    const struct {
        const char* between;
        const char* options;
    } rows[] = {{"", "A/-=x"},
                {"*Foo\n", "/-=; A/-=x"},
                {"*OpenUI *Duplex: PickOne\n", ""},
                {"*OpenUI *: PickOne\n", ""},
                {"*OpenUI *Foo/<4>: PickOne\n", ""},
                {"*CloseUI: *Duplex\n", "A/-=x"},
                {"*CloseUI: *Fo\n", "A/-=x"},
                {"*CloseUI: *Foo junk\n", ""},
                {"*JCLCloseUI: *Foo\n", ""}};
    for (const auto& row : rows) {
        const DescriptionPtr description =
            LoadText(std::string("*OpenUI *Foo: PickOne\n") + row.between + "*Foo A: \"x\"\n");
        EXPECT_EQ(OptionsOf(Feature(description, "Foo")), row.options) << row.between;
    }
}

TEST(OpenUI, CapturesGenericFeaturesAndTypesKnownOnes) {
    embedded::Machine machine;
    const DescriptionPtr description = LoadText(
        "*OpenUI *Smoothing/Smooth<21>: Boolean\n*Smoothing True/On: \"<1B>\"\n"
        "*DefaultSmoothing: False\n*Smoothing False: \"f\"\n*Smoothing: None\n"
        "*CloseUI: *Smoothing \n*Smoothing Late: \"x\"\n"
        "*OpenUI *Duplex/Two-Sided: PickMany\n*Duplex None: \"\"\n*CloseUI: *Duplex\n"
        "*JCLOpenUI *JCLDensity: Odd\n*JCLDensity Dark: \"<1B>\"\n*Duplex Long: \"<1C>\"\n"
        "*OpenUI *PageRegion/Region: PickMany\n*JCLDensity Lost: \"x\"\n*PageSize A4: \"\"\n"
        "*DefaultInstalledMemory: 4Meg\n");
    const FeatureRecord* smoothing = Feature(description, "Smoothing");
    ASSERT_NE(smoothing, nullptr);
    EXPECT_EQ(TextOf(smoothing->Translation), "Smooth!");
    EXPECT_EQ(OptionsOf(smoothing), "True/On=<1B>; False/-=f; /-=None");
    EXPECT_EQ(smoothing->UIType, FeatureUIType::Boolean);
    EXPECT_EQ(uint64_t{smoothing->Default}, 1u);
    const FeatureRecord* duplex = FeatureOf(*description, FeatureKind::Duplex);
    EXPECT_EQ(duplex->UIType, FeatureUIType::PickOne);
    EXPECT_EQ(TextOf(duplex->Translation), "-");
    EXPECT_EQ(OptionsOf(duplex), "None/-=; Long/-=\x1C") << "while a JCL feature is open";
    const FeatureRecord* density = Feature(description, "JCLDensity");
    EXPECT_EQ(OptionsOf(density), "Dark/-=\x1B");
    EXPECT_EQ(density->Flags, kOpenedByJcl);
    EXPECT_EQ(density->UIType, FeatureUIType::PickOne);
    const FeatureRecord* papers = FeatureOf(*description, FeatureKind::PageSize);
    EXPECT_EQ(papers->UIType, FeatureUIType::PickMany);
    EXPECT_EQ(TextOf(papers->Translation), "Region");
    EXPECT_NE(Feature(description, "InstalledMemory"), nullptr);
}

TEST(OpenGroup, MakesGenericFeaturesInstallable) {
    embedded::Machine machine;
    StatementLog log;
    const DescriptionPtr block =
        PackText("*OpenUI *Tray9: PickOne\n*OpenGroup: InstallableOptions/Installed\n"
                 "*OpenGroup: InstallableOptions\n*OpenUI *Fax: PickOne\n*OpenUI *Tray9: PickOne\n"
                 "*OpenUI *MediaType: PickOne\n*OpenGroup: Other\n*CloseGroup: InstallableOptions\n"
                 "*CloseGroup: InstallableOptions\n*OpenUI *After: PickOne\n*VMOption 1: \"1\"\n",
                 &log.observer);
    RelocateDescription(block.get());
    std::string groups;
    for (const FeatureRecord& feature : ListOf(block->Features)) {
        groups += TextOf(feature.Name) + (feature.Installable != 0 ? "+" : "-") +
                  std::to_string(feature.Index) + " ";
    }
    EXPECT_EQ(groups, "Tray9-0 MediaType-1 After-2 Fax+0 VMOption+1 ");
    EXPECT_EQ(block->DocumentFeatureCount, 3);
    EXPECT_EQ(block->InstallableFeatureCount, 2);
    EXPECT_EQ(log.lines[2].back(), 'D') << "the group inside itself";
    EXPECT_EQ(log.lines[8].back(), 'D') << "closed twice";
}

TEST(Tables, ResolveNamesAgainstTheFinalFeatures) {
    embedded::Machine machine;
    const DescriptionPtr description = LoadText(
        "*UIConstraints: *Duplex *PageSize A5\n"
        "*UIConstraints: Duplex Long PageSize\n"
        "*UIConstraints: *Duplex Nix *PageSize\n*UIConstraints: *Nix *PageSize A4\n"
        "*UIConstraints: *Duplex\n*UIConstraints: * *Duplex\n*UIConstraints: *Duplex Long\n"
        "*UIConstraints: *VMOption 1 *Duplex None\n"
        "*OrderDependency: 10 AnySetup *PageSize A5\n*OrderDependency: 2.5 Banana *Duplex\n"
        "*OrderDependency: x AnySetup *Duplex\n*OrderDependency: 1 Prolog *InstalledMemory\n"
        "*OrderDependency: 1 JCLSetup *Duplex Nix\n"
        "*VMOption 1: \"1\"\n*Duplex None: \"\"\n*Duplex Long: \"\"\n*PageSize A4: \"\"\n"
        "*PageSize A5: \"\"\n");
    const ConstraintTable* constraints = description->UIConstraints.Target();
    ASSERT_EQ(constraints->Count, 5);
    const uint16_t expected[5][4] = {
        {0, 255, 1, 1}, {0, 1, 1, 255}, {65535, 65535, 1, 255}, {65535, 0, 1, 0}, {2, 0, 0, 0}};
    for (unsigned i = 0; i < 5; ++i) {
        const ConstraintEntry& entry = constraints->Entries()[i];
        EXPECT_EQ(entry.Feature1, expected[i][0]) << i;
        EXPECT_EQ(entry.Option1, expected[i][1]) << i;
        EXPECT_EQ(entry.Feature2, expected[i][2]) << i;
        EXPECT_EQ(entry.Option2, expected[i][3]) << i;
    }
    const OrderDependencyTable* orders = description->OrderDependencies.Target();
    ASSERT_EQ(orders->Count, 4);
    const uint32_t expectedOrders[4][4] = {
        {1, 1, 2560, 32}, {0, 255, 640, 32}, {65535, 0, 256, 2}, {65535, 65535, 256, 16}};
    for (unsigned i = 0; i < 4; ++i) {
        const OrderDependencyEntry& entry = orders->Entries()[i];
        EXPECT_EQ(entry.FeatureIndex, expectedOrders[i][0]) << i;
        EXPECT_EQ(entry.OptionIndex, expectedOrders[i][1]) << i;
        EXPECT_EQ(entry.Order, expectedOrders[i][2]) << i;
        EXPECT_EQ(entry.Section, expectedOrders[i][3]) << i;
    }
}

// A token ends after 39 characters, its asterisk among them.
TEST(Tables, ResolveNamesOfUpTo38Characters) {
    embedded::Machine machine;
    for (const size_t length : {38u, 39u}) {
        const std::string name(length, 'n');
        const DescriptionPtr description = LoadText(
            "*OpenUI *" + name + ": PickOne\n*UIConstraints: *" + name + " *" + name + "\n");
        const uint16_t first = description->UIConstraints.Target()->Entries()[0].Feature1;
        EXPECT_EQ(first, length == 38 ? 0 : 65535);
    }
}

}  // namespace
}  // namespace ksfax
