#include <gtest/gtest.h>

#include "platform/embedded/text.h"

#include "description/text.h"
#include "jobsettings/job_settings.h"
#include "tests/core/fax_machine.h"
#include "tests/golden.h"
#include "tests/jobsettings/described.h"
#include "tests/jobsettings/record_bytes.h"

namespace ksfax {
namespace {

using Matching = Described;

const std::string kPageSizes = "PageSize A4 B5/Blatt Tabloid Letter User; "
                               "*PaperDimension A4: \"595 842\"; *PaperDimension B5: \"1 2\"; "
                               "*PaperDimension Tabloid: \"3 4\"; ";

TEST_F(Matching, FindsTheDescriptionsPaper) {
    EXPECT_TRUE(AnswersAreRecorded("jobsettings/papers.txt", [&](const std::string& question) {
        Describe(kPageSizes + (question.starts_with("codes ")
                                   ? "Paper A4 Huge=65545 Below=-7 Blatt=9x Other=11 "
                                     "An_own_size_with_a_name_over_31_chars=256"
                                   : ""));
        // The bytes behind the record that it declares are there, and nobody's.
        const size_t extra = std::stoul(question.substr(question.find('+')));
        RecordBytes record = CallersRecord(static_cast<WORD>(std::stoi(question.substr(6))), 2388);
        Set(&record, question.substr(question.find(':') + 1));
        Put(&record, U16(70, static_cast<uint32_t>(extra)));
        const RecordBytes before = record;
        PaperForm form;
        form.formName = nullptr;
        const PaperMatch match = MatchJobFormToPaper(AsDevMode(record), &form, *description);
        const bool isOwn = match == PaperMatch::UserDefined;
        EXPECT_EQ(
            (std::vector{form.formLeft, form.formTop, form.formRight, form.formBottom}),
            (std::vector<DWORD>{0, isOwn ? form.formHeight : 0, isOwn ? form.formWidth : 0, 0}));
        std::ostringstream text;
        text << static_cast<int>(match) << ' ' << form.formFlags << ' ' << form.formWidth / 256.0
             << 'x' << form.formHeight / 256.0;
        const std::string name = embedded::Utf8(form.formName);
        return text.str() + (name.empty() ? "" : " ") + name + ", " + Changes(before, record);
    }));
}

TEST_F(Matching, KnowsTheDescriptionsForms) {
    const struct {
        const std::string ppd;
        DWORD flags;
        const WCHAR* name;
        bool expected;
    } rows[] = {{"", 2, TEXT("A4"), false},
                {kPageSizes, 2, TEXT("A4"), true},
                {kPageSizes, 2, TEXT("Blatt"), true},
                {kPageSizes, 2, TEXT("a4"), false},
                {kPageSizes, 0, TEXT("A4"), false}};
    for (const auto& row : rows) {
        Describe(row.ppd);
        PaperForm form;
        form.formFlags = row.flags;
        CopyWideFixed(form.formNameBuffer, row.name);
        EXPECT_EQ(IsDescriptionPaperForm(*description, form), row.expected) << row.ppd;
    }
}

TEST(EnumerateForms, GivesTheFormsDatabaseOrNothing) {
    FaxMachine fax;
    const platform::PrinterHandle printer = fax.Open();
    platform::GlobalBlock forms;
    DWORD count = 0;
    UnderFaults(fax.machine, {.prepare = [&] { count = 77; },
                              .act = [&] { forms = EnumerateForms(printer.get(), &count); },
                              .holds =
                                  [&](const FailedCall& failed) {
                                      EXPECT_EQ(bool(forms), failed.number == 0);
                                      const auto all = fax.machine.spooler().forms();
                                      ASSERT_EQ(count, forms ? all.size() : 0u);
                                      const auto* form =
                                          static_cast<const FORM_INFO_1W*>(forms.get());
                                      for (size_t i = 0; i < count; ++i) {
                                          EXPECT_EQ(form[i].pName, all[i].name);
                                      }
                                      forms.reset();
                                  }});
    // A spooler whose count its block cannot hold, and one without forms.
    fax.machine.spooler().ReportSize(
        "EnumFormsW",
        static_cast<DWORD>((fax.machine.spooler().forms().size() - 1) * sizeof(FORM_INFO_1W)));
    EXPECT_FALSE(EnumerateForms(printer.get(), &count));
    EXPECT_EQ(count, 0u);
    fax.machine.spooler().TellTheTruth();
    fax.machine.spooler().RemoveAllForms();
    EXPECT_FALSE(EnumerateForms(printer.get(), &count));
    EXPECT_EQ(count, 0u);
}

}  // namespace
}  // namespace ksfax
