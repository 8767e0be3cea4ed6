#include "faxjob/upgrade.h"

#include <algorithm>
#include <limits>
#include <span>
#include <string_view>

#include "platform/owned.h"

#include "core/module_state.h"
#include "core/printer_data.h"
#include "core/spooler_queries.h"
#include "description/printer_description.h"
#include "description/text.h"
#include "jobsettings/job_settings.h"

namespace ksfax {

namespace {

// "Forms?" once the description's forms are in the database.
constexpr const WCHAR* kFormsValue = TEXT("Forms?");
constexpr DWORD kFormsInstalled = 2;

DWORD FormsInstalled(HANDLE printer) {
    DWORD installed = 0;
    (void)ReadPrinterNumber(printer, kFormsValue, &installed);  // missing counts as 0
    return installed;
}

const FeatureRecord* PageSizes(const PrinterDescription& description) {
    return FeatureOf(description, FeatureKind::PageSize);
}

struct FormName {
    WCHAR text[CCHFORMNAME];
};

// The name under which a paper is a form: what the user reads, else its keyword.
FormName FormNameOf(const OptionRecord& paper) {
    const char* translation = paper.Translation.Target();
    const bool isTranslated = translation != nullptr && translation[0] != 0;
    FormName name = {};
    AnsiToWide(name.text, isTranslated ? translation : paper.Name.Target(), CCHFORMNAME);
    return name;
}

void AddPaperForm(HANDLE printer, const PaperOptionRecord& paper) {
    FormName name = FormNameOf(paper.Common);
    FORM_INFO_1W form = {};
    form.Flags = FORM_PRINTER;
    form.pName = name.text;
    form.Size.cx = MicronsFromPoints(paper.PaperWidth);
    form.Size.cy = MicronsFromPoints(paper.PaperHeight);
    form.ImageableArea.right = form.Size.cx;
    form.ImageableArea.bottom = form.Size.cy;
    (void)AddFormW(printer, 1, reinterpret_cast<LPBYTE>(&form));
}

// How many entries the older table has; -1 when it is malformed.
int CountOlderEntries(const WCHAR* older, DWORD bytes) {
    if (bytes < sizeof(WCHAR) || bytes % sizeof(WCHAR) != 0) {
        return -1;
    }
    const WCHAR* end = older + bytes / sizeof(WCHAR);
    const WCHAR* last = end - 1;
    int count = 0;
    const WCHAR* entry = older;
    while (entry < last && *entry != 0) {
        entry = SkipTrayFormStrings(entry, end);
        if (entry == nullptr) {
            return -1;
        }
        ++count;
    }
    return entry == last && *entry == 0 ? count : -1;
}

}  // namespace

void InstallForms(HANDLE printer, const PrinterDescription& description) {
    if (FormsInstalled(printer) > 0) {
        return;
    }
    const FeatureRecord* feature = PageSizes(description);
    if (feature == nullptr) {
        return;
    }
    for (const OptionRecord& option : ListOf(feature->Options)) {
        const PaperOptionRecord& paper = AsPaper(option);
        if (paper.PaperWidth != 0 && paper.PaperHeight != 0) {
            AddPaperForm(printer, paper);
        }
    }
    (void)WritePrinterNumber(printer, kFormsValue, kFormsInstalled);
}

void UpgradeForms(HANDLE printer, const PrinterDescription& description) {
    const DWORD installed = FormsInstalled(printer);
    const FeatureRecord* feature = PageSizes(description);
    if (feature == nullptr) {
        return;
    }
    DWORD count = 0;
    const platform::GlobalBlock block = EnumerateForms(printer, &count);
    if (installed == 0) {
        return;
    }
    const std::span forms(static_cast<const FORM_INFO_1W*>(block.get()), count);
    bool isDeleted = false;
    for (const OptionRecord& option : ListOf(feature->Options)) {
        const FormName name = FormNameOf(option);
        for (const FORM_INFO_1W& form : forms) {
            if (form.Flags == FORM_USER && form.pName != nullptr &&
                std::basic_string_view<WCHAR>(form.pName) == name.text) {
                (void)DeleteFormW(printer, form.pName);
                isDeleted = true;
            }
        }
    }
    if (isDeleted) {
        (void)WritePrinterNumber(printer, kFormsValue, 0);
        InstallForms(printer, description);
    }
}

platform::GlobalBlock ConvertOlderTrayForms(const WCHAR* older, DWORD bytes, DWORD* newBytes) {
    const int count = CountOlderEntries(older, bytes);
    const uint64_t length = uint64_t{bytes} + sizeof(WORD) + sizeof(WORD) * uint64_t(count);
    if (count < 0 || length > std::numeric_limits<WORD>::max()) {
        return {};
    }
    platform::GlobalBlock block(GlobalAlloc(GMEM_ZEROINIT, static_cast<SIZE_T>(length)));
    auto* target = static_cast<WCHAR*>(block.get());
    if (target == nullptr) {
        return {};
    }
    *target++ = static_cast<WCHAR>(length);
    const WCHAR* end = older + bytes / sizeof(WCHAR);
    const WCHAR* entry = older;
    for (int i = 0; i < count; ++i) {
        const WCHAR* next = SkipTrayFormStrings(entry, end);
        target = std::copy(entry, next, target) + 1;  // the value stays 0
        entry = next;
    }
    *newBytes = static_cast<DWORD>(length);
    return block;
}

bool UpgradeTrayFormTable(HANDLE printer) {
    DWORD bytes = 0;
    DWORD delivered = 0;
    const platform::GlobalBlock stored =
        ReadPrinterBlock(printer, &bytes, BlockKind::TrayForms, &delivered);
    if (!stored) {
        return bytes == 0;  // else memory ran out for a table that is there
    }
    const auto* table = static_cast<const WCHAR*>(stored.get());
    if (bytes >= sizeof(WORD) && static_cast<WORD>(table[0]) == bytes) {
        return true;
    }
    if (delivered != bytes) {
        return false;  // torn: the zeros behind the data are not its end
    }
    DWORD newBytes = 0;
    const platform::GlobalBlock converted = ConvertOlderTrayForms(table, bytes, &newBytes);
    if (!converted) {
        return false;
    }
    (void)WritePrinterBlock(printer, converted.get(), newBytes, BlockKind::TrayForms);
    return true;
}

}  // namespace ksfax

// Called by the spooler in its own process when a new version of the driver replaces an old one.
// The last error is set for wrong arguments and for a printer that cannot be opened, as callers
// are promised; never otherwise.
extern "C" BOOL WINAPI DrvUpgradePrinter(DWORD level, LPBYTE information) {
    const auto* upgrade = reinterpret_cast<const DRIVER_UPGRADE_INFO_1W*>(information);
    PRINTER_DEFAULTSW fullAccess = {
        .pDatatype = nullptr, .pDevMode = nullptr, .DesiredAccess = PRINTER_ALL_ACCESS};
    HANDLE handle = nullptr;
    if (level != 1 || upgrade == nullptr || upgrade->pPrinterName == nullptr ||
        !OpenPrinterW(upgrade->pPrinterName, &handle, &fullAccess)) {
        SetLastError(ERROR_INVALID_PARAMETER);
        return FALSE;
    }
    const platform::PrinterHandle printer(handle);
    const ksfax::DescriptionUse description(ksfax::AcquireDescription(printer.get(), false));
    if (!description) {
        return FALSE;
    }
    ksfax::LockHold hold;
    ksfax::UpgradeForms(printer.get(), *description.get());
    return ksfax::SavePrinterDataRecord(printer.get(), *description.get()) &&
           ksfax::UpgradeTrayFormTable(printer.get());
}
