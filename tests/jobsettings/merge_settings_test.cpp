#include <gtest/gtest.h>

#include "platform/embedded/windows.h"

#include "jobsettings/job_settings.h"
#include "tests/jobsettings/described.h"
#include "tests/jobsettings/record_bytes.h"

namespace ksfax {
namespace {

// A4, portrait, 200 dots per inch on offer beside 400, and derived, so that whatever a merge or
// another derivation changes is its own doing.
class Merging : public Described {
  protected:
    Merging() {
        Describe(Ui("Resolution=200dpi 200dpi 400dpi") + Ui("Choice=C A B C"));
        JobSettings settings;
        BuildDefaultJobSettings(&settings, TEXT("Fax"), *description, true);
        plain = BytesOf(settings);
        base = Derived(plain);
    }
    static RecordBytes Derived(const RecordBytes& record) {
        JobSettings settings = SettingsOf(record);
        DeriveJobBlock(&settings);
        return BytesOf(settings);
    }
    // What the derivation changes in the base with those settings.
    std::string Derive(const std::string& settings) {
        RecordBytes record = base;
        Set(&record, settings);
        return Changes(record, Derived(record));
    }
    // A caller's record of a shape, with as many of the base's private bytes as it holds.
    RecordBytes Input(WORD size, WORD extra, const std::string& fields) {
        RecordBytes input = CallersRecord(size, extra);
        std::copy_n(base.begin() + 220, std::min<size_t>(extra, 2388), input.begin() + size);
        Set(&input, fields);
        return input;
    }
    // What merging it changes in the base, which has those other fields before.
    std::string Merge(RecordBytes input, const std::string& before = {}) {
        RecordBytes target = base;
        Set(&target, before);
        JobSettings settings = SettingsOf(target);
        const bool merged = MergeJobSettings(&settings, AsDevMode(input), *description);
        return (merged ? "" : "refused ") + Changes(target, BytesOf(settings));
    }

    RecordBytes plain, base;
};

TEST_F(Merging, TakesFromThePublicPartWhatTheDriverAccepts) {
    const char* table = R"(
        dmOrientation=2 dmPaperSize=5 dmPaperLength=9 dmDefaultSource=4 dmYResolution=400 |
        dmFields=0x200 dmDefaultSource=4 | dmFields=0x603 dmDefaultSource=4 sourceOut=4
        dmFields=1 dmOrientation=2 | dmFields=0x403 dmOrientation=2 | dmFields=0x402
        dmFields=1 dmOrientation=3 | dmOrientation=1 | dmOrientation=2
        dmFields=0x10002 dmPaperSize=5 dmFormName=X    | dmPaperSize=5
        dmFields=2 dmPaperSize=5 | dmFields=0x403 dmPaperSize=5 | dmFields=0x10401
        dmFields=0x10000 dmFormName=X dmFormName+62=90 | dmFields=0x10401 dmFormName=X
        dmFields=0x10000 dmFormName=01234567890123456789012345678901 |
            > dmFields=0x10401 dmFormName=0123456789012345678901234567890
        dmFields=4 dmPaperSize=256 dmPaperLength=9 dmPaperWidth=8 |
            > dmPaperSize=256 dmPaperLength=9 customLength=9
        dmFields=8 dmPaperSize=256 dmPaperWidth=8 | dmPaperSize=256 dmPaperWidth=8 customWidth=8
        dmFields=8 dmPaperSize=256 dmPaperWidth=8 | dmFields=3 dmPaperWidth=8 customWidth=8 |
            > dmFields=0x10001 dmPaperSize=256
        dmFields=0xC dmPaperSize=256 dmPaperLength=-1 dmPaperWidth=1 |
            > dmPaperSize=256 dmPaperLength=-1 dmPaperWidth=1 customWidth=1 customLength=65535
        dmFields=0xE dmPaperSize=256 dmPaperLength=1 dmPaperWidth=-1 |
            > dmPaperSize=256 dmPaperLength=1 dmPaperWidth=-1 customWidth=65535 customLength=1
        dmFields=0xE dmPaperSize=256 dmPaperLength=-1  | dmPaperSize=256
        dmFields=4 dmPaperSize=256                     |
        dmFields=8 dmPaperSize=256                     |
        dmFields=0xE dmPaperSize=5 dmPaperLength=9 dmPaperWidth=8 | dmPaperSize=5
        dmFields=0x9910 dmScale=50 dmCopies=5 dmDuplex=2 dmCollate=1 dmColor=2 |
         | dmScale=100 dmCopies=1 | dmScale=50 dmCopies=5
         | dmFields=0x403 dmDuplex=1 dmCollate=0 | dmFields=0x8403 dmDuplex=2 dmCollate=1
        dmPrintQuality=400 | dmPrintQuality=400 | dmFields=3
        dmFields=0x400 dmPrintQuality=400 | dmFields=0x403 dmPrintQuality=400 | dmFields=3
        dmFields=0x400 dmPrintQuality=600 | dmPrintQuality=200 | dmPrintQuality=400
        dmFields=0x400 dmPrintQuality=-4               |
        dmFields=0x2000 dmYResolution=400              | dmFields=0x2403
    )";
    for (const auto& [input, changes, before] : Rows(table)) {
        EXPECT_EQ(Merge(Input(220, 0, input), before), changes) << input;
    }
}

TEST_F(Merging, TakesThePrivatePartBySignature) {
    const char* table = R"(
        220+2388 | reserved12+79=7 faxResolution=1                | reserved12+79=7 faxResolution=1
        220+2388 | sourceOut=4 outputBase=1 | outputBase=1 outputFlags=0x80000009
        188+2388 | faxResolution=1                                | faxResolution=1
        213+2388 | faxResolution=1                                | faxResolution=1
        400+3000 | faxResolution=1                                | faxResolution=1
        220+191 | pagesPerSheet=5 tonerSaveMode+0=7 |
            > pagesPerSheet=5 tonerSaveMode=7 pagesPerSheetOut=1
        220+2388 | signature=0 tonerSaveMode=7 dmPrintQuality=400 | dmPrintQuality=400
        220+2388 | signature+3=0 dmFields=4 dmPaperSize=256 dmPaperLength=9 |
            > dmFields=0x405 dmPaperLength=9
        220+8    | dmPrintQuality=400                             | dmPrintQuality=400
        220+7    | signature+0=0 dmPrintQuality=400               | dmPrintQuality=400
        220+2388 | descriptionChecksum=0x4321 featureCount=40 featureSelections+1=8 |
        220+2388 | featureCount=40 featureSelections+1=8 | featureCount=40 featureSelections+1=8
        40+0     |
    )";
    for (const auto& [shape, fields, changes] : Rows(table)) {
        const auto size = static_cast<WORD>(std::stoi(shape));
        const auto extra = static_cast<WORD>(std::stoi(shape.substr(shape.find('+'))));
        RecordBytes input = Input(size, extra, fields);
        EXPECT_EQ(Merge(input), changes) << shape << ' ' << fields;
        EXPECT_EQ(HasPrivatePart(AsDevMode(input)), extra >= 8 && !fields.starts_with("signature"));
    }
}

TEST_F(Merging, RefusesWhatItCannotRecogniseAndWhenMemoryRunsOut) {
    EXPECT_EQ(Merge(CallersRecord(200, 0, 0)), "refused ");
    EXPECT_EQ(Merge(CallersRecord(0, 0, 5)), "refused ");
    machine.faults.FailCall("GlobalAlloc");
    EXPECT_EQ(Merge(Input(220, 0, "dmFields=1 dmOrientation=2")), "refused ");
    machine.faults.Clear();
    JobSettings settings = SettingsOf(base);
    EXPECT_TRUE(MergeJobSettings(&settings, nullptr, *description));
    EXPECT_EQ(Changes(base, BytesOf(settings)), "");
}

// ---- Deriving ----

TEST_F(Merging, DerivesEachFieldFromItsSettings) {
    const char* table = R"(
        dmDefaultSource=4 deviceByte=7 scalePercent=50 | deviceByteOut=7 scaleOut=50 sourceOut=4
        outputBase=0x1234                                   | outputFlags=0x8000123C
        stapleMode=1                                        |
        stapleMode=0xFE                                     | outputFlags=0x80000000
        stapleMode=3 counterMode=1                          | outputFlags=0
        paperOverride=1 pagePaperSize=5 initialPaperSize=6 |
            > pagePaperSizeOut=5 initialPaperSizeOut=6
        paperOverride=2 pagePaperSizeOut=5                  | pagePaperSizeOut=65535
        paperOverride=2 initialPaperSizeOut=5               | initialPaperSizeOut=65535
        rotationFlags=2                                     | rotate180=1 rotationAngle=180
        rotationFlags=0xFD rotate180=1 rotationAngle=180    | rotate180=0 rotationAngle=0
        orientationControl=1                                | orientationCode=1
        orientationControl=1 dmPaperSize=1 dmOrientation=2  | orientationCode=1
        orientationControl=1 dmPaperSize=7                  | orientationCode=1
        orientationControl=1 dmPaperSize=34                 | orientationCode=1
        orientationControl=1 dmPaperSize=11                 | orientationCode=2
        orientationControl=1 dmPaperSize=11 dmOrientation=2 | orientationCode=3
        orientationControl=1 dmPaperSize=11 pagesPerSheet=2 | pagesPerSheetOut=1 orientationCode=3
        orientationControl=1 dmPaperSize=11 dmOrientation=2 pagesPerSheet=2 |
            > pagesPerSheetOut=1 orientationCode=2
        dmPaperSize=11 orientationCode=7                    | orientationCode=0
        counterEnabled=5 counterMode=0xFFFE counterValue=0x102 counterGate=1 counterOn=0x80 |
            > counterMarker=0xFFFF counterOn=0x81 counterOut=1 counterFlag=1 outputFlags=8
        counterEnabled=5 counterMode=0xFFFE counterGate=1 |
            > counterMarker=0xFFFF counterOn=1 counterOut=5 counterFlag=1 outputFlags=8
        counterEnabled=5 counterMode=0xFFFE counterValue=1 counterGate=1 | outputFlags=8
        counterMode=0xFFFE counterGate=1                    | outputFlags=8
        counterEnabled=5 counterMode=0xFFFE                 | outputFlags=8
        counterEnabled=5 counterMode=0xFFFF counterGate=1   | outputFlags=8
        counterMarker=7 counterReserved=7                   | counterMarker=0 counterReserved=0
        counterOn=0xFF counterOut=7 counterFlag=7 | counterOn=0xFE counterOut=0 counterFlag=0
        copyFlags=1 counterMarker=7 counterReserved=7 counterOn=0xFF counterOut=7 |
        textOptions=0x101 textColor=7                       | textOptionsOut=0x101 textColorOut=7
        textFont+0=55 textFont+91=1 textBackColor=8 |
            > textFontOut+0=55 textFontOut+91=1 textBackColorOut=8
        duplexFlags=0x100 dmDuplex=2                        | duplexOut=0x100
        duplexFlags=0x101 pagesPerSheet=4                   | duplexOut=0x101 pagesPerSheetOut=4
        duplexFlags=0x207 dmDuplex=2 pagesPerSheet=4 | dmDuplex=1 duplexOut=0x207 pagesPerSheetOut=1
        duplexFlags=0x305 pagesPerSheet=4                   | duplexOut=5 pagesPerSheetOut=1
        duplexFlags=0x305 pagesPerSheet=4 dmPaperSize=256   | duplexOut=0x105 pagesPerSheetOut=4
        pagesPerSheet=4 dmPaperSize=256                     | pagesPerSheetOut=1
        duplexFlags=0x105 duplexOut=3 reprintFlags=0x102 reprintOptions=4 | duplexOut=0
        duplexFlags=0x105 duplexOut=3 reprintFlags=0x109 reprintOptions=4 | duplexOut=0
        duplexFlags=0x105 reprintFlags=0x103 reprintOptions=4 | duplexOut=0x105
        duplexFlags=0x105 reprintFlags=2                    | duplexOut=0x105
        layoutFlags=2 layoutValue=9                         | layoutValueOut=9
        layoutFlags=0xFD layoutValue=9 layoutValueOut=9     | layoutValueOut=0
        collateControl=1 dmCollate=1                        | collateRequested=1 collateOut=1
        collateControl=1 collateRequested=1 collateOut=1    | collateRequested=0 collateOut=0
        collateRequested=5 pagesPerSheet=4                  | pagesPerSheetOut=4 collateOut=1
        dmCollate=1 collateOut=1                            | collateOut=0
        dmCopies=2 pagesPerSheet=4                          | pagesPerSheetOut=4 collateOut=1
        dmCopies=2 printerCaps=0x8000 pagesPerSheet=4       | pagesPerSheetOut=1
        layoutOverride=1 pagesPerSheet=4                    | pagesPerSheetOut=4
        layoutOverrideFlags=1 pagesPerSheet=4               | pagesPerSheetOut=4
        layoutOverrideFlags=0xFE pagesPerSheet=4            | pagesPerSheetOut=1
        textOptions=0x80 pagesPerSheet=4                    | pagesPerSheetOut=4 textOptionsOut=0x80
        textOptions=0x7F pagesPerSheet=4                    | pagesPerSheetOut=1 textOptionsOut=0x7F
        reprintFlags=0x108 reprintOptions=3 pagesPerSheet=4 | pagesPerSheetOut=4
        reprintFlags=0x180 pagesPerSheet=4                  | pagesPerSheetOut=4
        reprintFlags=0x300 pagesPerSheet=4                  | pagesPerSheetOut=1
        reprintFlags=0x108 reprintOptions=4 pagesPerSheet=4 | pagesPerSheetOut=1
        reprintFlags=8 pagesPerSheet=4                      | pagesPerSheetOut=1
        dmScale=50 pagesPerSheet=2                          | pagesPerSheetOut=2
        dmScale=50 pagesPerSheet=1                          | pagesPerSheetOut=1
        pagesPerSheet=2                                     | pagesPerSheetOut=1
        pagesPerSheet=-5                                    | pagesPerSheetOut=-5
        jobText=xy                                          | jobText=~y
        copyFlags=0xFE                                      | copyFlags=0x7E
        copyFlags=1 collateRequested=1 deviceCopies=9 copyControl=0xFD |
            > copyFlags=0x81 deviceCopies=1
        copyFlags=0x81 deviceCopies=9                       |
        copyFlags=1 collateRequested=1 copyControl=2        | collateOut=1
        copyFlags=0x81 collateRequested=1 reprintFlags=0x101 copyControl=2 | copyFlags=1
    )";
    for (const auto& [settings, changes, none] : Rows(table)) {
        EXPECT_EQ(Derive(settings), changes) << settings;
    }
    EXPECT_EQ(Changes(plain, base),
              "pagesPerSheetOut=0 textOptionsOut=6 textFontOut+0=245 textFontOut+1=255 "
              "textFontOut+2=255 textFontOut+3=255 textFontOut+23=1 textFontOut+28=65 "
              "textFontOut+30=114 textFontOut+32=105 textFontOut+34=97 textFontOut+36=108 "
              "outputFlags=0x80000008 sourceOut=7");
}

TEST_F(Merging, KnowsTwoApplicationsByTheirMainWindow) {
    embedded::Windows& desktop = machine.windows();
    HWND opus = desktop.Add(u"OPUSAPP");
    HWND inner = desktop.Add(u"Dialog", desktop.Add(u"FLWApp", opus));
    HWND longName = desktop.Add(u"OpusApp of a name longer than the buffer's 31");
    const struct {
        const char* what;
        HWND active;
        const char* settings;
        const char* changes;
    } rows[] = {
        {"one by its topmost window", inner, "", "pagesPerSheetOut=4 collateOut=1"},
        {"on a device that collates", inner, " printerCaps=0x8000", "pagesPerSheetOut=1"},
        {"the other", desktop.Add(u"FLWApp"), " applicationFlags=0x80",
         "pagesPerSheetOut=1 applicationFlags=0x81"},
        {"a long name", longName, " applicationFlags=0x81",
         "pagesPerSheetOut=1 applicationFlags=0x80"},
        {"no window", nullptr, " applicationFlags=1", "pagesPerSheetOut=1 applicationFlags=0"},
    };
    for (const auto& row : rows) {
        desktop.Activate(row.active);
        EXPECT_EQ(Derive("pagesPerSheet=4" + std::string(row.settings)), row.changes) << row.what;
    }
    desktop.Activate(opus);
    machine.faults.FailCall("GetClassNameW", 1, true);
    EXPECT_EQ(Derive(""), "") << "a window that tells no class";
    machine.faults.Clear();
}

}  // namespace
}  // namespace ksfax
