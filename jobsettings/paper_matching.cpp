#include <cstring>
#include <iterator>

#include "platform/owned.h"
#include "platform/windows_api.h"

#include "description/paper_keywords.h"
#include "description/printer_description.h"
#include "description/text.h"
#include "jobsettings/job_settings.h"

namespace ksfax {
namespace {

// An unsigned 16-bit field of the private part of a caller's record, where it may lie at an odd
// address; 0 when the record ends before it.
uint16_t PrivateWord(const DEVMODEW* record, size_t offset) {
    uint16_t value = 0;
    if (record->dmDriverExtra >= offset + sizeof(value)) {
        const auto* bytes = reinterpret_cast<const BYTE*>(record);
        std::memcpy(&value, bytes + record->dmSize + offset, sizeof(value));
    }
    return value;
}

// By way of hundredths of an inch. Each step truncates, as the readers of the form's size expect; a
// straight conversion comes out a point higher for some sizes.
DWORD PointsFromTenths(uint16_t tenthsOfMillimetre) {
    const DWORD hundredthsOfInch = tenthsOfMillimetre * 100u / 254u;
    return (hundredthsOfInch * 72u / 100u) << 8;
}

void StorePaperName(const OptionRecord& option, DEVMODEW* record, PaperForm* form) {
    AnsiToWide(form->formNameBuffer, option.Name ? option.Name.Target() : "",
               std::size(form->formNameBuffer));
    constexpr size_t end = offsetof(DEVMODEW, dmFormName) + sizeof(record->dmFormName);
    if (record->dmSize >= end) {
        CopyWideFixed(record->dmFormName, form->formNameBuffer);
    }
}

// Whether the option of the Paper feature carries that paper code.
bool CarriesCode(const OptionRecord& option, int32_t code) {
    return option.Invocation &&
           static_cast<int32_t>(LeadingNumber(option.Invocation.Target())) == code;
}

const OptionRecord* FirstOption(const FeatureRecord* feature) {
    return feature != nullptr ? feature->Options.Target() : nullptr;
}

const OptionRecord* FindPaper(const PrinterDescription& description, int32_t code) {
    if (const FeatureRecord* paper = FeatureOf(description, FeatureKind::Paper)) {
        return FindRecord(FirstOption(paper),
                          [&](const OptionRecord& option) { return CarriesCode(option, code); });
    }
    return FindRecord(FirstOption(FeatureOf(description, FeatureKind::PageSize)),
                      [&](const OptionRecord& option) {
                          return PaperKeywordToCode(option.Name.Target()) == code;
                      });
}

const OptionRecord* FindPageSize(const PrinterDescription& description, const char* name) {
    const FeatureRecord* feature = FeatureOf(description, FeatureKind::PageSize);
    return FindOptionByNameOrTranslation(FirstOption(feature), name);
}

void FillUserDefinedForm(DEVMODEW* record, PaperForm* form, const PrinterDescription& description) {
    form->formFlags = 0;
    form->formWidth =
        PointsFromTenths(PrivateWord(record, offsetof(PrivateJobSettings, customWidth)));
    form->formHeight =
        PointsFromTenths(PrivateWord(record, offsetof(PrivateJobSettings, customLength)));
    form->formLeft = 0;
    form->formTop = form->formHeight;
    form->formRight = form->formWidth;
    form->formBottom = 0;
    if (FeatureOf(description, FeatureKind::Paper) == nullptr) {
        return;
    }
    if (const OptionRecord* option = FindPaper(description, kUserPaperSize)) {
        StorePaperName(*option, record, form);
    }
}

}  // namespace

PaperMatch MatchJobFormToPaper(DEVMODEW* record, PaperForm* form,
                               const PrinterDescription& description) {
    form->formName = form->formNameBuffer;
    if ((FieldsOf(record) & DM_PAPERSIZE) == 0) {
        return PaperMatch::None;
    }
    const short code = PaperSizeOf(record);
    if (code == kUserPaperSize) {
        FillUserDefinedForm(record, form, description);
        return PaperMatch::UserDefined;
    }
    const OptionRecord* option = FindPaper(description, code);
    if (option == nullptr) {
        return PaperMatch::None;
    }
    StorePaperName(*option, record, form);
    if (const OptionRecord* pageSize = FindPageSize(description, option->Name.Target())) {
        form->formWidth = AsPaper(*pageSize).PaperWidth;
        form->formHeight = AsPaper(*pageSize).PaperHeight;
    }
    form->formFlags = 2;
    return PaperMatch::Paper;
}

bool IsDescriptionPaperForm(const PrinterDescription& description, const PaperForm& form) {
    if (form.formFlags == 0) {
        return false;
    }
    char name[32];
    WideToAnsi(name, form.formName, sizeof(name));
    return FindPageSize(description, name) != nullptr;
}

platform::GlobalBlock EnumerateForms(HANDLE printer, DWORD* count) {
    *count = 0;
    DWORD needed = 0;
    DWORD found = 0;
    if (EnumFormsW(printer, 1, nullptr, 0, &needed, &found) ||
        GetLastError() != ERROR_INSUFFICIENT_BUFFER) {
        return {};
    }
    const DWORD size = needed;
    platform::GlobalBlock forms(GlobalAlloc(GMEM_FIXED, size));
    if (!forms ||
        !EnumFormsW(printer, 1, static_cast<LPBYTE>(forms.get()), size, &needed, &found)) {
        return {};
    }
    // A count that the block cannot hold would be read past its end.
    if (found == 0 || found > size / sizeof(FORM_INFO_1W)) {
        return {};
    }
    *count = found;
    return forms;
}

}  // namespace ksfax
