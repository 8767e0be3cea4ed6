#include <gtest/gtest.h>

#include "description/text.h"
#include "jobsettings/job_settings.h"
#include "tests/core/fax_machine.h"
#include "tests/jobsettings/made_description.h"
#include "tests/jobsettings/record_bytes.h"

namespace ksfax {
namespace {

std::u16string FormName(const RecordBytes& record) {
    std::u16string name(32, 0);
    std::memcpy(name.data(), record.data() + 102, 64);
    return name.substr(0, name.find(u'\0'));
}

RecordBytes JobOfPaper(WORD paper, WORD size = 220, WORD extra = 2388) {
    RecordBytes record = CallersRecord(size, extra);
    Put(&record, {U32(72, 0x2), U16(78, paper)});
    return record;
}

class Matching : public testing::Test {
  protected:
    PaperMatch Match(RecordBytes& record) {
        return MatchJobFormToPaper(AsDevMode(record), &form, made.record);
    }
    void AddPageSizes() {
        FeatureRecord& feature = made.AddFeature(FeatureKind::PageSize, "PageSize");
        made.AddOption(feature, "A4", nullptr, 152320, 215552);
        made.Translate(made.AddOption(feature, "B5", nullptr, 1, 2), "Blatt");
        made.AddOption(feature, "Tabloid", nullptr, 3, 4);
        made.AddOption(feature, "Letter", nullptr, 5, 6);
    }

    embedded::Machine machine;
    MadeDescription made;
    PaperForm form;
};

TEST_F(Matching, GoesByKeywordWithoutAPaperFeature) {
    AddPageSizes();
    const struct {
        WORD code;
        PaperMatch match;
        std::u16string name;
        DWORD width;
    } rows[] = {
        {34, PaperMatch::Paper, u"B5", 1},
        {9, PaperMatch::Paper, u"A4", 152320},
        {1, PaperMatch::Paper, u"Tabloid", 3},  // an unknown keyword counts as Letter
        {5, PaperMatch::None, u"", 0},
    };
    for (const auto& row : rows) {
        RecordBytes record = JobOfPaper(row.code);
        PaperForm fresh;
        EXPECT_EQ(MatchJobFormToPaper(AsDevMode(record), &fresh, made.record), row.match)
            << row.code;
        EXPECT_EQ(FormName(record), row.name) << row.code;
        EXPECT_EQ(std::u16string(fresh.formName), row.name) << row.code;
        EXPECT_EQ(fresh.formWidth, row.width) << row.code;
        EXPECT_EQ(fresh.formFlags, row.match == PaperMatch::Paper ? 2u : 0u) << row.code;
    }
}

TEST_F(Matching, GoesByInvocationWithAPaperFeature) {
    AddPageSizes();
    FeatureRecord& paper = made.AddFeature(FeatureKind::Paper, "Paper");
    made.AddOption(paper, "A4");             // without a code: never matches
    made.AddOption(paper, "Huge", "65545");  // 9 in its low 16 bits alone
    made.AddOption(paper, "Below", "-7");
    made.AddOption(paper, "Blatt", "9 and more");
    made.AddOption(paper, "Other", "11");
    const struct {
        WORD code;
        PaperMatch match;
        std::u16string name;
        DWORD width;
    } rows[] = {
        {9, PaperMatch::Paper, u"Blatt", 1},  // its size by the translation of B5
        {0xFFF9, PaperMatch::Paper, u"Below", 0},
        {11, PaperMatch::Paper, u"Other", 0},
        {34, PaperMatch::None, u"", 0},
    };
    for (const auto& row : rows) {
        RecordBytes record = JobOfPaper(row.code);
        PaperForm fresh;
        EXPECT_EQ(MatchJobFormToPaper(AsDevMode(record), &fresh, made.record), row.match)
            << row.code;
        EXPECT_EQ(FormName(record), row.name) << row.code;
        EXPECT_EQ(fresh.formWidth, row.width) << row.code;
    }
    RecordBytes record = JobOfPaper(9);
    Put(&record, U32(72, 0xFFFFFFFD));
    EXPECT_EQ(Match(record), PaperMatch::None);
    EXPECT_EQ(FormName(record), u"");
}

TEST_F(Matching, ReckonsTheUserDefinedSize) {
    RecordBytes record = JobOfPaper(256);
    Put(&record, {P16(234, 1050), P16(236, 1485)});
    EXPECT_EQ(Match(record), PaperMatch::UserDefined);
    EXPECT_EQ(FormName(record), u"");
    EXPECT_EQ(form.formFlags, 0u);
    const std::vector<DWORD> sizes = {form.formWidth, form.formHeight, form.formLeft,
                                      form.formTop,   form.formRight,  form.formBottom};
    EXPECT_EQ(sizes, (std::vector<DWORD>{76032, 107520, 0, 107520, 76032, 0}));
    EXPECT_FALSE(IsDescriptionPaperForm(made.record, form));

    FeatureRecord& paper = made.AddFeature(FeatureKind::Paper, "Paper");
    made.AddOption(paper, "A4", "9");
    made.AddOption(paper, "AnOwnSizeWithANameOf_More_Than_31_Characters", "256");
    EXPECT_EQ(Match(record), PaperMatch::UserDefined);
    EXPECT_EQ(FormName(record), u"AnOwnSizeWithANameOf_More_Than_");
    EXPECT_EQ(std::u16string(form.formName), u"AnOwnSizeWithANameOf_More_Than_");
}

// Nothing is read or written past what the record declares; the sanitizer watches.
TEST_F(Matching, KeepsInsideShortRecords) {
    AddPageSizes();
    RecordBytes record = JobOfPaper(9, 165, 0);
    const RecordBytes before = record;
    EXPECT_EQ(Match(record), PaperMatch::Paper);
    EXPECT_EQ(record, before);
    EXPECT_EQ(std::u16string(form.formName), u"A4");

    record = CallersRecord(79, 0);
    Put(&record, {U32(72, 0x2), U16(77, 9)});
    EXPECT_EQ(Match(record), PaperMatch::None);
    record = CallersRecord(75, 500);
    Put(&record, {U32(72, 0x2), U16(78, 9)});
    EXPECT_EQ(Match(record), PaperMatch::None);

    record = JobOfPaper(256, 199, 237);  // an odd place, and half of the length missing
    Put(&record, {U16(199 + 234, 1050), U8(199 + 236, 0xCD)});
    EXPECT_EQ(Match(record), PaperMatch::UserDefined);
    EXPECT_EQ(form.formWidth, 76032u);
    EXPECT_EQ(form.formHeight, 0u);
    record = JobOfPaper(256, 220, 0);
    EXPECT_EQ(Match(record), PaperMatch::UserDefined);
    EXPECT_EQ(form.formWidth, 0u);
}

TEST_F(Matching, KnowsTheDescriptionsForms) {
    form.formFlags = 2;
    CopyWideFixed(form.formNameBuffer, TEXT("A4"));
    EXPECT_FALSE(IsDescriptionPaperForm(made.record, form));  // no PageSize feature
    AddPageSizes();
    EXPECT_TRUE(IsDescriptionPaperForm(made.record, form));
    CopyWideFixed(form.formNameBuffer, TEXT("Blatt"));
    EXPECT_TRUE(IsDescriptionPaperForm(made.record, form));
    CopyWideFixed(form.formNameBuffer, TEXT("a4"));
    EXPECT_FALSE(IsDescriptionPaperForm(made.record, form));
    CopyWideFixed(form.formNameBuffer, TEXT("A4"));
    form.formFlags = 0;
    EXPECT_FALSE(IsDescriptionPaperForm(made.record, form));
}

TEST(EnumerateForms, GivesTheFormsDatabaseOrNothing) {
    FaxMachine fax;
    const platform::PrinterHandle printer = fax.Open();
    DWORD count = 77;
    {
        const platform::GlobalBlock forms = EnumerateForms(printer.get(), &count);
        ASSERT_TRUE(forms);
        const std::vector<embedded::Form> expected = fax.machine.spooler().forms();
        ASSERT_EQ(count, expected.size());
        const auto* records = static_cast<const FORM_INFO_1W*>(forms.get());
        for (size_t i = 0; i < count; ++i) {
            EXPECT_EQ(records[i].pName, expected[i].name);
        }
    }
    for (const unsigned n : {1u, 2u, 3u}) {
        fax.machine.faults.FailNthCall(n);
        EXPECT_FALSE(EnumerateForms(printer.get(), &count)) << n;
        EXPECT_TRUE(fax.machine.faults.struck());
        EXPECT_EQ(count, 0u) << n;
        fax.machine.faults.Clear();
    }
    fax.machine.spooler().RemoveAllForms();
    EXPECT_FALSE(EnumerateForms(printer.get(), &count));
    EXPECT_EQ(count, 0u);
}

}  // namespace
}  // namespace ksfax
