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
    EXPECT_TRUE(IsRecorded("jobsettings/default.txt", lines));
    EXPECT_EQ(Changes(plain, Default(false)), "dmPaperSize=1 dmFormName=Letter inchUnits=1 "
                                              "layoutFlags=1 pagePaperSize=1 initialPaperSize=1");
    EXPECT_EQ(Changes(plain, Default(true, TEXT("0123456789012345678901234567890123456789"))),
              "dmDeviceName=0123456789012345678901234567890");
}

TEST_F(BuildingDefaults, TakesWhatTheDescriptionSays) {
    EXPECT_TRUE(AnswersAreRecorded("jobsettings/described.txt", [&](const std::string& ppd) {
        Describe(ppd);
        return Changes(plain, Default());
    }));
    std::string manyFeatures;
    std::string selections = "featureCount=64";
    for (int i = 0; i < 70; ++i) {
        manyFeatures += "F" + std::to_string(i) + "=B A B;";
        selections += i < 64 ? " featureSelections+" + std::to_string(i) + "=1" : "";
    }
    Describe(manyFeatures);
    EXPECT_EQ(Changes(plain, Default()), selections);
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
    EXPECT_EQ(Changes(expected, record), "nothing");
}

}  // namespace
}  // namespace ksfax
