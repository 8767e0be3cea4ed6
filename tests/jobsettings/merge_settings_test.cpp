#include <gtest/gtest.h>

#include "platform/embedded/windows.h"

#include "jobsettings/job_settings.h"
#include "tests/golden.h"
#include "tests/jobsettings/described.h"
#include "tests/jobsettings/record_bytes.h"

namespace ksfax {
namespace {

// A4, portrait, 200 dots per inch on offer beside 400, and derived, so that whatever a merge or
// another derivation changes is its own doing.
class Merging : public Described {
  protected:
    Merging() {
        Describe("Resolution=200dpi 200dpi 400dpi; Choice=C A B C");
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
        const std::string changes = Changes(target, BytesOf(settings));
        return merged ? changes : changes == "nothing" ? "refused" : "refused, yet " + changes;
    }

    RecordBytes plain, base;
};

TEST_F(Merging, TakesWhatTheDriverAccepts) {
    EXPECT_TRUE(AnswersAreRecorded("jobsettings/merged.txt", [&](std::string question) {
        std::string before;
        if (const size_t over = question.find(" over "); over != question.npos) {
            before = question.substr(over + 6);
            question.resize(over);
        }
        WORD sizes[] = {220, 0};
        if (const size_t colon = question.find(':'); colon != question.npos) {
            sizes[0] = static_cast<WORD>(std::stoi(question));
            sizes[1] = static_cast<WORD>(std::stoi(question.substr(question.find('+'))));
            question.erase(0, colon + 1);
        }
        RecordBytes input = Input(sizes[0], sizes[1], question);
        EXPECT_EQ(HasPrivatePart(AsDevMode(input)),
                  sizes[1] >= 8 && question.find("signature") == question.npos);
        return Merge(input, before);
    }));
    machine.faults.FailCall("GlobalAlloc");
    EXPECT_EQ(Merge(Input(220, 0, "dmFields=1 dmOrientation=2")), "refused");
    machine.faults.Clear();
    JobSettings settings = SettingsOf(base);
    EXPECT_TRUE(MergeJobSettings(&settings, nullptr, *description));
    EXPECT_EQ(BytesOf(settings), base);
}

TEST_F(Merging, DerivesEachFieldFromItsSettings) {
    EXPECT_TRUE(AnswersAreRecorded("jobsettings/derived.txt",
                                   [&](const std::string& settings) { return Derive(settings); }));
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
    EXPECT_EQ(Derive(""), "nothing") << "a window that tells no class";
    machine.faults.Clear();
}

}  // namespace
}  // namespace ksfax
