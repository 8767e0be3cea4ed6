#include <gtest/gtest.h>

#include "platform/embedded/modules.h"

#include "core/module_state.h"
#include "jobsettings/job_settings.h"
#include "tests/golden.h"
#include "tests/jobsettings/described.h"
#include "tests/jobsettings/record_bytes.h"
#include "tests/resource_file.h"

namespace ksfax {
namespace {

class BuildingDefaults : public Described {
  protected:
    BuildingDefaults() {
        Describe("");
        plain = Default();
    }
    RecordBytes Default(bool metric = true, const WCHAR* name = nullptr) {
        JobSettings settings;
        std::memset(static_cast<void*>(&settings), 0xCC, sizeof(settings));
        BuildDefaultJobSettings(&settings, name, *description, metric);
        return BytesOf(settings);
    }

    RecordBytes plain;  // of a description that says nothing, metric
};

// Also where every field lies: applications keep such records for years.
TEST_F(BuildingDefaults, FillsEveryByteForAnEmptyDescription) {
    std::string lines;
    for (const tool::RecordField& field : FieldsOf(plain)) {
        char line[64];
        std::snprintf(line, sizeof(line), "%4zu %3zu ", PlaceOf(field, plain), field.width);
        lines += line + std::string(field.name) + " =";
        if (field.isNumber || (field.unit == "text" && ValueOf(field, plain) != "")) {
            lines += " " + ValueOf(field, plain);
        } else {
            size_t end = field.width;
            while (end > 0 && plain[PlaceOf(field, plain) + end - 1] == 0) {
                --end;
            }
            for (size_t i = 0; i < end; ++i) {
                std::snprintf(line, sizeof(line), " %02X", plain[PlaceOf(field, plain) + i]);
                lines += line;
            }
        }
        lines += '\n';
    }
    EXPECT_TRUE(IsRecorded("default_settings.txt", lines));
    EXPECT_EQ(Changes(plain, Default(false)), "dmPaperSize=1 dmFormName=Letter inchUnits=1 "
                                              "layoutFlags=1 pagePaperSize=1 initialPaperSize=1");
    EXPECT_EQ(Changes(plain, Default(true, TEXT("0123456789012345678901234567890123456789"))),
              "dmDeviceName=0123456789012345678901234567890");
}

TEST_F(BuildingDefaults, TakesWhatTheDescriptionSays) {
    std::string manyFeatures;
    std::string manySelections = "featureCount=64";
    for (int i = 0; i < 70; ++i) {
        manyFeatures += Ui("F" + std::to_string(i) + "=B A B");
        manySelections += i < 64 ? " featureSelections+" + std::to_string(i) + "=1" : "";
    }
    // clang-format off
    const struct {
        std::string ppd;
        std::string changes;
    } rows[] = {
        {"*LandscapeOrientation: Minus90", "privateFlags=0x2200"},
        {"*LandscapeOrientation: Plus90", ""},
        {"*LanguageLevel: \"1\"", ""},
        {"*LanguageLevel: \"2\"", "privateFlags=0x2040"},
        {"*PrinterCaps: \"2147450880\"",
         "privateFlags=0xA000 printerCaps=0x8000 landscapeAngle=270"},
        {"*PrinterCaps: \"32770\"", "privateFlags=0x12000 printerCaps=0x8002 landscapeAngle=270"},
        {"*PrinterCaps: \"2\"", "printerCaps=2"},
        {"*PrinterCaps: \"32\"", "printerCapsBit5=1 printerCaps=0x20"},
        {"*PrinterCaps: \"4096\"", "printerCaps=0x1000 capsFlags=0x41"},
        {"*SleepMode A: \"0,5,15,30\"", "sleepModeTime=15 sleepModeTimeCopy=15"},
        {"*CompMode1028: True", "compressionMode=1"},
        {"*DefaultQuickPrintSetup: True", "quickPrintSetup=1"},
        {"*DefaultUseReprint: True", "reprintFlags=0x100"},
        {"*DefaultUsePrinterFonts: True", "privateFlags=0x2080"},
        {"*NoBanding: True", "bandingAllowed=0"},
        {Ui("InputSlot=Tray3 Upper Tray3"),
         "dmDefaultSource=256 featureCount=1 featureSelections+0=1 source1=256 source2=256"},
        {Ui("Resolution=200dpi 200dpi"),
         "dmPrintQuality=200 dmYResolution=200 featureCount=1 featureSelections+0=255"},
        {Ui("Resolution=1200dpi 1200dpi"), "dmFields=3 dmPrintQuality=1200 dmYResolution=1200 "
                                           "featureCount=1 featureSelections+0=255 "
                                           "halfResolution=600"},
        {Ui("Resolution=200dpi 200dpi 1200dpi"), "dmFields=3 dmPrintQuality=200 dmYResolution=200 "
                                                 "featureCount=1 featureSelections+0=255"},
        {Ui("MultiplePage=A A=-2") + Ui("TonerSaveMode=A A=3") + Ui("MediaType=A A=4") +
             Ui("HRC=A A=5") + Ui("PageProtect=A A=6") + Ui("GraphicsMode=A A=65543"),
         "featureCount=6 pagesPerSheet=-2 tonerSaveMode=3 mediaType=4 hrcMode=5 pageProtectMode=6 "
         "graphicsMode=7"},
        {Ui("TTMODE=A A=0"), "privateFlags=0xA000 featureCount=1"},
        {"*PrinterCaps: \"32768\"\n" + Ui("TTMODE=A A=2"),
         "privateFlags=0x12000 featureCount=1 printerCaps=0x8000 landscapeAngle=270"},
        {"*PrinterCaps: \"32768\"\n" + Ui("TTMODE=A A=1"),
         "featureCount=1 printerCaps=0x8000 landscapeAngle=270"},
        {Ui("BiasVolt=A A=9"), "featureCount=1"},
        {"*ShowBiasVolt: True\n" + Ui("BiasVolt=A A=9"),
         "featureCount=1 showBiasVolt=1 biasVolt=9 biasVoltDefault=9"},
        {manyFeatures, manySelections},
    };
    // clang-format on
    for (const auto& row : rows) {
        Describe(row.ppd);
        EXPECT_EQ(Changes(plain, Default()), row.changes) << row.ppd;
    }
}

TEST_F(BuildingDefaults, TakesStringsOfTheResourceModule) {
    embedded::ResourceFile strings;
    strings.AddString(65280, u"A face whose name is longer than fits");
    strings.AddString(391, u"65543 x");
    machine.modules().Install({.path = u"C:\\R.DLL", .exports = {}, .resources = strings.bytes});
    resourceModule = LoadLibraryW(TEXT("C:\\R.DLL"));
    const RecordBytes record = Default();
    resourceModule = nullptr;
    // LOGFONTW's face name begins at its byte 28 and has 32 characters, the last a terminator.
    RecordBytes expected = plain;
    Set(&expected, "resourceNumber=7");
    for (size_t i = 0; i < 31; ++i) {
        Put(&expected, P16(276 + 28 + 2 * i, "A face whose name is longer than fits"[i]));
    }
    EXPECT_EQ(Changes(expected, record), "");
}

}  // namespace
}  // namespace ksfax
