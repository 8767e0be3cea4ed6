#include <gtest/gtest.h>

#include "description/text.h"
#include "jobsettings/job_settings.h"
#include "tests/core/fax_machine.h"
#include "tests/jobsettings/described.h"
#include "tests/jobsettings/record_bytes.h"

namespace ksfax {
namespace {

using Matching = Described;

const std::string kPageSizes = Ui("PageSize A4 B5/Blatt Tabloid Letter") +
                               "*PaperDimension A4: \"595 842\"\n*PaperDimension B5: \"1 2\"\n"
                               "*PaperDimension Tabloid: \"3 4\"\n";

TEST_F(Matching, FindsTheDescriptionsPaper) {
    const std::string papers =
        kPageSizes + Ui("Paper A4 Huge=65545 Below=-7 Blatt=9x Other=11 " +
                        std::string("An_own_size_with_a_name_over_31_chars=256"));
    const std::string own = "dmFields=2 dmPaperSize=256 customWidth=1050 customLength=1485";
    // clang-format off
    const struct {
        const std::string& ppd;
        std::string fields;
        std::string form;  // result, flags, size in points, name
        std::string written;  // to the record
        WORD size = 220;
        WORD extra = 2388;
    } rows[] = {
        {kPageSizes, "dmFields=2 dmPaperSize=34", "0 2 1x2 B5", "dmFormName=B5"},
        {kPageSizes, "dmFields=2 dmPaperSize=9", "0 2 595x842 A4", "dmFormName=A4"},
        {kPageSizes, "dmFields=2 dmPaperSize=1", "0 2 3x4 Tabloid", "dmFormName=Tabloid"},
        {kPageSizes, "dmFields=2 dmPaperSize=5", "2 0 0x0 ", ""},
        {kPageSizes, "dmFields=0xFFFD dmPaperSize=9", "2 0 0x0 ", ""},
        {papers, "dmFields=2 dmPaperSize=9", "0 2 1x2 Blatt", "dmFormName=Blatt"},
        {papers, "dmFields=2 dmPaperSize=-7", "0 2 0x0 Below", "dmFormName=Below"},
        {papers, "dmFields=2 dmPaperSize=11", "0 2 0x0 Other", "dmFormName=Other"},
        {papers, "dmFields=2 dmPaperSize=34", "2 0 0x0 ", ""},
        // By way of hundredths of an inch, each step cut: 413 of them are 297 points, 584 are 420.
        {kPageSizes, own, "1 0 297x420 ", ""},
        {papers, own, "1 0 297x420 An_own_size_with_a_name_over_31",
         "dmFormName=An_own_size_with_a_name_over_31"},
        // Nothing is read or written past what a record declares.
        {kPageSizes, "dmFields=2 dmPaperSize=9", "0 2 595x842 A4", "", 165, 0},
        {kPageSizes, "dmFields=2 dmPaperSize=9", "0 2 595x842 A4", "dmFormName=A4", 166, 0},
        {kPageSizes, "dmFields=2 dmPaperSize=9", "0 2 595x842 A4", "", 80, 0},
        {kPageSizes, "dmFields=2 dmPaperSize=9", "2 0 0x0 ", "", 79, 2388},
        {kPageSizes, "dmFields=2 dmPaperSize=9", "2 0 0x0 ", "", 75, 2388},
        {kPageSizes, own, "1 0 297x0 ", "", 199, 237},
        {kPageSizes, own, "1 0 297x420 ", "", 199, 238},
        {kPageSizes, own, "1 0 0x0 ", "", 220, 235},
    };
    // clang-format on
    for (const auto& row : rows) {
        Describe(row.ppd);
        RecordBytes record = CallersRecord(row.size, 2388);
        Set(&record, row.fields);
        Put(&record, U16(70, row.extra));
        RecordBytes expected = record;
        Set(&expected, row.written);
        PaperForm form;
        form.formName = nullptr;
        const PaperMatch match = MatchJobFormToPaper(AsDevMode(record), &form, *description);
        std::string name;
        for (const WCHAR* at = form.formName; *at != 0; ++at) {
            name += static_cast<char>(*at);
        }
        std::ostringstream text;
        text << static_cast<int>(match) << ' ' << form.formFlags << ' ' << form.formWidth / 256.0
             << 'x' << form.formHeight / 256.0 << ' ' << name;
        EXPECT_EQ(text.str(), row.form) << row.fields << ' ' << row.size;
        EXPECT_EQ(record, expected) << row.fields << ' ' << row.size;
        const bool isOwn = match == PaperMatch::UserDefined;
        EXPECT_EQ(
            (std::vector{form.formLeft, form.formTop, form.formRight, form.formBottom}),
            (std::vector<DWORD>{0, isOwn ? form.formHeight : 0, isOwn ? form.formWidth : 0, 0}));
    }
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
    fax.machine.spooler().ReportSize("EnumFormsW", sizeof(FORM_INFO_1W));
    EXPECT_FALSE(EnumerateForms(printer.get(), &count));
    EXPECT_EQ(count, 0u);
    fax.machine.spooler().TellTheTruth();
    fax.machine.spooler().RemoveAllForms();
    EXPECT_FALSE(EnumerateForms(printer.get(), &count));
    EXPECT_EQ(count, 0u);
}

}  // namespace
}  // namespace ksfax
