#include "platform/embedded/spooler.h"

#include <algorithm>
#include <array>
#include <cstring>
#include <nlohmann/json.hpp>

#include "platform/embedded/api_kernel.h"
#include "platform/embedded/modules.h"
#include "platform/owned.h"

namespace embedded {
namespace {

constexpr std::u16string_view kDriverDirectory = u"C:\\Windows\\system32\\spool\\DRIVERS\\x64";

// Width and height in micrometres, in the order of the published paper codes.
constexpr struct {
    const char16_t* name;
    LONG width;
    LONG height;
} kBuiltInForms[] = {
    // clang-format off
    {u"Letter",                     215900,  279400},
    {u"Letter Small",               215900,  279400},
    {u"Tabloid",                    279400,  431800},
    {u"Ledger",                     431800,  279400},
    {u"Legal",                      215900,  355600},
    {u"Statement",                  139700,  215900},
    {u"Executive",                  184150,  266700},
    {u"A3",                         297000,  420000},
    {u"A4",                         210000,  297000},
    {u"A4 Small",                   210000,  297000},
    {u"A5",                         148000,  210000},
    {u"B4 (JIS)",                   257000,  364000},
    {u"B5 (JIS)",                   182000,  257000},
    {u"Folio",                      215900,  330200},
    {u"Quarto",                     215000,  275000},
    {u"10x14",                      254000,  355600},
    {u"11x17",                      279400,  431800},
    {u"Note",                       215900,  279400},
    {u"Envelope #9",                 98425,  225425},
    {u"Envelope #10",               104775,  241300},
    {u"Envelope #11",               114300,  263525},
    {u"Envelope #12",               120650,  279400},
    {u"Envelope #14",               127000,  292100},
    {u"C size sheet",               431800,  558800},
    {u"D size sheet",               558800,  863600},
    {u"E size sheet",               863600, 1117600},
    {u"Envelope DL",                110000,  220000},
    {u"Envelope C5",                162000,  229000},
    {u"Envelope C3",                324000,  458000},
    {u"Envelope C4",                229000,  324000},
    {u"Envelope C6",                114000,  162000},
    {u"Envelope C65",               114000,  229000},
    {u"Envelope B4",                250000,  353000},
    {u"Envelope B5",                176000,  250000},
    {u"Envelope B6",                176000,  125000},
    {u"Envelope",                   110000,  230000},
    {u"Envelope Monarch",            98425,  190500},
    {u"6 3/4 Envelope",              92075,  165100},
    {u"US Std Fanfold",             377825,  279400},
    {u"German Std Fanfold",         215900,  304800},
    {u"German Legal Fanfold",       215900,  330200},
    {u"B4 (ISO)",                   250000,  353000},
    {u"Japanese Postcard",          100000,  148000},
    {u"9x11",                       228600,  279400},
    {u"10x11",                      254000,  279400},
    {u"15x11",                      381000,  279400},
    {u"Envelope Invite",            220000,  220000},
    {u"A2",                         420000,  594000},
    {u"A6",                         105000,  148000},
    {u"B6 (JIS)",                   128000,  182000},
    // clang-format on
};

// One record's or one array's bytes with the texts behind it, measured first and then written:
// each text and block is added in the same order both times.
class Packer {
  public:
    // Null `buffer` measures. `records` bytes at the front belong to the records themselves.
    Packer(BYTE* buffer, size_t records) : buffer_(buffer), used_(records) {}

    size_t used() const { return used_; }

    // Null for an empty text.
    WCHAR* Add(std::u16string_view text) {
        if (text.empty()) {
            return nullptr;
        }
        const size_t bytes = text.size() * sizeof(WCHAR);
        BYTE* place = Take(bytes + sizeof(WCHAR));
        if (buffer_ != nullptr) {
            memcpy(place, text.data(), bytes);
            memset(place + bytes, 0, sizeof(WCHAR));
        }
        return reinterpret_cast<WCHAR*>(place);
    }
    // Null for an empty record. It goes first: only there it is sure to lie at a multiple of 8.
    DEVMODEW* Add(const std::vector<std::byte>& settings) {
        if (settings.empty()) {
            return nullptr;
        }
        // An odd length must not leave the texts behind it at odd addresses.
        BYTE* place = Take(settings.size() + settings.size() % sizeof(WCHAR));
        if (buffer_ != nullptr) {
            memcpy(place, settings.data(), settings.size());
        }
        return reinterpret_cast<DEVMODEW*>(place);
    }
    template <typename Record>
    void Put(size_t offset, const Record& record) {
        if (buffer_ != nullptr) {
            memcpy(buffer_ + offset, &record, sizeof(record));
        }
    }

  private:
    BYTE* Take(size_t bytes) {
        BYTE* place = buffer_ + (buffer_ != nullptr ? used_ : 0);
        used_ += bytes;
        return place;
    }

    BYTE* buffer_;
    size_t used_;
};

void PackPrinter2(const Printer& printer, Packer& packer) {
    PRINTER_INFO_2W record = {};
    record.pDevMode = packer.Add(printer.defaultSettings);
    record.pPrinterName = packer.Add(printer.name);
    record.pPortName = packer.Add(printer.portName);
    record.pDriverName = packer.Add(printer.driverName);
    packer.Put(0, record);
}

void PackPrinter8(const Printer& printer, Packer& packer) {
    packer.Put(0, PRINTER_INFO_8W{packer.Add(printer.defaultSettings)});
}

void PackDriver2(const Driver& driver, Packer& packer) {
    DRIVER_INFO_2W record = {};
    record.pName = packer.Add(driver.name);
    record.pDataFile = packer.Add(driver.dataFile);
    packer.Put(0, record);
}

void PackDriver3(const Driver& driver, Packer& packer) {
    DRIVER_INFO_3W record = {};
    record.pName = packer.Add(driver.name);
    record.pDataFile = packer.Add(driver.dataFile);
    record.pHelpFile = packer.Add(driver.helpFile);
    packer.Put(0, record);
}

void PackForms(const std::vector<Form>& forms, Packer& packer) {
    for (size_t i = 0; i < forms.size(); ++i) {
        FORM_INFO_1W record = {};
        record.Flags = forms[i].flags;
        record.pName = packer.Add(forms[i].name);
        record.Size = forms[i].size;
        record.ImageableArea = forms[i].imageableArea;
        packer.Put(i * sizeof(record), record);
    }
}

bool IsFormSize(const FORM_INFO_1W& form) {
    const RECTL& area = form.ImageableArea;
    return form.Size.cx > 0 && form.Size.cy > 0 && area.left >= 0 && area.top >= 0 &&
           area.left < area.right && area.top < area.bottom && area.right <= form.Size.cx &&
           area.bottom <= form.Size.cy;
}

// The exports of spoolss.dll.
HANDLE RevertToPrinterSelf();
BOOL ImpersonatePrinterClient(HANDLE token);

// What a thread was when RevertToPrinterSelf was called; closed by ImpersonatePrinterClient.
struct ClientToken : Object {};

}  // namespace

struct Spooler::Handle : Object {
    std::weak_ptr<Printer> printer;
    DWORD access = 0;
};

Form WholePageForm(std::u16string name, DWORD flags, LONG width, LONG height) {
    return {std::move(name), flags, {width, height}, {0, 0, width, height}};
}

Spooler::Spooler(Machine& machine) {
    machine.modules().Install(
        {.path = u"C:\\Windows\\System32\\spoolss.dll",
         .exports = {{"RevertToPrinterSelf", platform::FunctionCast<FARPROC>(RevertToPrinterSelf)},
                     {"ImpersonatePrinterClient",
                      platform::FunctionCast<FARPROC>(ImpersonatePrinterClient)}},
         .resources = {}});
    for (const auto& form : kBuiltInForms) {
        state_.forms.push_back(WholePageForm(form.name, FORM_BUILTIN, form.width, form.height));
    }
}

Spooler::~Spooler() = default;

std::shared_ptr<Printer> Spooler::State::FindPrinter(std::u16string_view name) const {
    const auto found = std::ranges::find_if(
        printers, [&](const auto& printer) { return EqualIgnoringCase(printer->name, name); });
    return found != printers.end() ? *found : nullptr;
}

const Driver* Spooler::State::FindDriver(std::u16string_view name) const {
    const auto found = std::ranges::find_if(
        drivers, [&](const Driver& driver) { return EqualIgnoringCase(driver.name, name); });
    return found != drivers.end() ? &*found : nullptr;
}

void Spooler::AddPrinter(Printer printer) {
    std::lock_guard lock(mutex_);
    if (const auto existing = state_.FindPrinter(printer.name)) {
        *existing = std::move(printer);
    } else {
        state_.printers.push_back(std::make_shared<Printer>(std::move(printer)));
    }
}

void Spooler::RemovePrinter(std::u16string_view name) {
    std::lock_guard lock(mutex_);
    std::erase_if(state_.printers, [&](const auto& p) { return EqualIgnoringCase(p->name, name); });
}

std::vector<Printer> Spooler::printers() const {
    std::lock_guard lock(mutex_);
    std::vector<Printer> copies;
    for (const auto& printer : state_.printers) {
        copies.push_back(*printer);
    }
    return copies;
}

std::optional<Printer> Spooler::FindPrinter(std::u16string_view name) const {
    std::lock_guard lock(mutex_);
    const auto printer = state_.FindPrinter(name);
    return printer != nullptr ? std::optional(*printer) : std::nullopt;
}

void Spooler::AddDriver(Driver driver) {
    std::lock_guard lock(mutex_);
    if (const Driver* existing = state_.FindDriver(driver.name)) {
        *const_cast<Driver*>(existing) = std::move(driver);
    } else {
        state_.drivers.push_back(std::move(driver));
    }
}

std::vector<Driver> Spooler::drivers() const {
    std::lock_guard lock(mutex_);
    return state_.drivers;
}

std::vector<Form> Spooler::forms() const {
    std::lock_guard lock(mutex_);
    return state_.forms;
}

void Spooler::AddForm(Form form) {
    std::lock_guard lock(mutex_);
    const auto existing = std::ranges::find(state_.forms, form.name, &Form::name);
    if (existing != state_.forms.end()) {
        *existing = std::move(form);
    } else {
        state_.forms.push_back(std::move(form));
    }
}

void Spooler::RemoveAllForms() {
    std::lock_guard lock(mutex_);
    state_.forms.clear();
}

std::optional<StoredValue> Spooler::PrinterData(std::u16string_view printer,
                                                std::u16string_view value) const {
    std::lock_guard lock(mutex_);
    const auto found = state_.FindPrinter(printer);
    if (found == nullptr) {
        return std::nullopt;
    }
    const auto data = found->data.find(value);
    return data != found->data.end() ? std::optional(data->second) : std::nullopt;
}

void Spooler::SetPrinterData(std::u16string_view printer, std::u16string_view value,
                             StoredValue data) {
    std::lock_guard lock(mutex_);
    state_.FindPrinter(printer)->data.insert_or_assign(std::u16string(value), std::move(data));
}

void Spooler::RemovePrinterData(std::u16string_view printer, std::u16string_view value) {
    std::lock_guard lock(mutex_);
    auto& values = state_.FindPrinter(printer)->data;
    const auto found = values.find(value);
    if (found != values.end()) {
        values.erase(found);
    }
}

void Spooler::RefuseOpen(std::u16string_view printer, DWORD error) {
    std::lock_guard lock(mutex_);
    state_.refusals[std::u16string(printer)] = error;
}

void Spooler::SetAdministrator(bool administrator) {
    std::lock_guard lock(mutex_);
    state_.administrator = administrator;
}

void Spooler::ReportSize(std::string call, DWORD bytes) {
    std::lock_guard lock(mutex_);
    state_.lies[std::move(call)] = bytes;
}

void Spooler::TellTheTruth() {
    std::lock_guard lock(mutex_);
    state_.lies.clear();
}

PrinterOpening Spooler::lastOpening() const {
    std::lock_guard lock(mutex_);
    return state_.lastOpening;
}

bool Spooler::ThreadActsForClient() const {
    std::lock_guard lock(mutex_);
    return !state_.reverted.contains(std::this_thread::get_id());
}

// ---- Keeping ----

namespace {

nlohmann::json SavePrinter(const Printer& printer) {
    return {{"name", Utf8(printer.name)},
            {"driver", Utf8(printer.driverName)},
            {"port", Utf8(printer.portName)},
            {"defaultSettings", SavedBytes(printer.defaultSettings)},
            {"data", SavedValues(printer.data)}};
}

Printer LoadPrinter(const nlohmann::json& saved) {
    return {.name = LoadText(saved, "name"),
            .driverName = LoadText(saved, "driver"),
            .portName = LoadText(saved, "port"),
            .defaultSettings = LoadBytes(saved.at("defaultSettings")),
            .data = LoadValues(saved.at("data"))};
}

nlohmann::json SaveDriver(const Driver& driver) {
    return {{"name", Utf8(driver.name)},
            {"dataFile", Utf8(driver.dataFile)},
            {"helpFile", Utf8(driver.helpFile)}};
}

Driver LoadDriver(const nlohmann::json& saved) {
    return {.name = LoadText(saved, "name"),
            .dataFile = LoadText(saved, "dataFile"),
            .helpFile = LoadText(saved, "helpFile")};
}

nlohmann::json SaveForm(const Form& form) {
    const RECTL& area = form.imageableArea;
    return {{"name", Utf8(form.name)},
            {"flags", form.flags},
            {"size", {form.size.cx, form.size.cy}},
            {"imageableArea", {area.left, area.top, area.right, area.bottom}}};
}

Form LoadForm(const nlohmann::json& saved) {
    const auto size = saved.at("size").get<std::array<LONG, 2>>();
    const auto area = saved.at("imageableArea").get<std::array<LONG, 4>>();
    return {.name = LoadText(saved, "name"),
            .flags = saved.at("flags").get<DWORD>(),
            .size = {size[0], size[1]},
            .imageableArea = {area[0], area[1], area[2], area[3]}};
}

}  // namespace

nlohmann::json Spooler::Save() const {
    std::lock_guard lock(mutex_);
    nlohmann::json saved = {{"printers", nlohmann::json::array()},
                            {"drivers", nlohmann::json::array()},
                            {"forms", nlohmann::json::array()}};
    for (const auto& printer : state_.printers) {
        saved["printers"].push_back(SavePrinter(*printer));
    }
    for (const Driver& driver : state_.drivers) {
        saved["drivers"].push_back(SaveDriver(driver));
    }
    for (const Form& form : state_.forms) {
        saved["forms"].push_back(SaveForm(form));
    }
    return saved;
}

void Spooler::Load(const nlohmann::json& saved) {
    State loaded;
    for (const auto& printer : saved.at("printers")) {
        loaded.printers.push_back(std::make_shared<Printer>(LoadPrinter(printer)));
    }
    for (const auto& driver : saved.at("drivers")) {
        loaded.drivers.push_back(LoadDriver(driver));
    }
    for (const auto& form : saved.at("forms")) {
        loaded.forms.push_back(LoadForm(form));
    }
    std::lock_guard lock(mutex_);
    state_ = std::move(loaded);
}

// ---- The published calls ----

// A spooler in use by a published call, with its state held still.
struct SpoolerUse {
    // `printer` is null, and the last error set, for a handle that names none.
    explicit SpoolerUse(HANDLE handle) : SpoolerUse() {
        const auto object = Machine::Current().handles.Get<Spooler::Handle>(handle);
        printer = object != nullptr ? object->printer.lock() : nullptr;
        mayAdminister = printer != nullptr && (object->access & PRINTER_ACCESS_ADMINISTER) != 0;
        (void)Answer(printer == nullptr ? ERROR_INVALID_HANDLE : ERROR_SUCCESS);
    }
    SpoolerUse() : spooler(Machine::Current().spooler()), lock(spooler.mutex_) {}

    // The end of every two-call function: `pack` fills a Packer whose records take `records`
    // bytes. `call` is the published name that a planned lie goes by.
    template <typename Pack>
    BOOL Store(const char* call, size_t records, BYTE* buffer, DWORD bytes, DWORD* needed,
               const Pack& pack) const {
        Packer measured(nullptr, records);
        pack(measured);
        const auto truth = static_cast<DWORD>(measured.used());
        const auto lie = state.lies.find(call);
        *needed = lie != state.lies.end() ? lie->second : truth;
        if (bytes < *needed) {
            return Answer(ERROR_INSUFFICIENT_BUFFER);
        }
        if (bytes < truth) {
            std::fill_n(buffer, *needed, BYTE{0});
        } else if (truth != 0) {
            Packer written(buffer, records);
            pack(written);
        }
        return TRUE;
    }

    // What fails for a user who is no administrator.
    BOOL CheckAdministrator() const {
        return Answer(state.administrator ? ERROR_SUCCESS : ERROR_ACCESS_DENIED);
    }

    HANDLE Open(std::shared_ptr<Printer> opened, DWORD access) const {
        auto handle = std::make_shared<Spooler::Handle>();
        handle->printer = std::move(opened);
        handle->access = access;
        return Machine::Current().handles.Insert(std::move(handle));
    }
    static BOOL Close(HANDLE printer) {
        return Answer(Machine::Current().handles.Close<Spooler::Handle>(printer)
                          ? ERROR_SUCCESS
                          : ERROR_INVALID_HANDLE);
    }

    Spooler& spooler;
    std::lock_guard<std::mutex> lock;
    Spooler::State& state = spooler.state_;
    std::shared_ptr<Printer> printer;
    bool mayAdminister = false;
};

namespace {

HANDLE RevertToPrinterSelf() {
    const SpoolerUse use;
    return !Fails("RevertToPrinterSelf") &&
                   use.state.reverted.insert(std::this_thread::get_id()).second
               ? Machine::Current().handles.Insert(std::make_shared<ClientToken>())
               : nullptr;
}

// Never planned to fail: nobody could give the thread its identity back then.
BOOL ImpersonatePrinterClient(HANDLE token) {
    const SpoolerUse use;
    if (!Machine::Current().handles.Close<ClientToken>(token)) {
        return Answer(ERROR_INVALID_HANDLE);
    }
    use.state.reverted.erase(std::this_thread::get_id());
    return TRUE;
}

DWORD GetData(HANDLE printer, std::u16string_view name, bool ansi, DWORD* type, BYTE* data,
              DWORD bytes, DWORD* needed) {
    const SpoolerUse use(printer);
    if (use.printer == nullptr) {
        return ERROR_INVALID_HANDLE;
    }
    const auto found = use.printer->data.find(name);
    if (found == use.printer->data.end()) {
        return ERROR_FILE_NOT_FOUND;
    }
    if (type != nullptr) {
        *type = found->second.type;
    }
    return CopyOut(ansi ? ToAnsi(found->second) : found->second, data, bytes, needed);
}

}  // namespace

}  // namespace embedded

using namespace embedded;

BOOL OpenPrinterW(LPWSTR name, HANDLE* printer, PRINTER_DEFAULTSW* defaults) {
    if (Fails("OpenPrinterW", ERROR_ACCESS_DENIED) ||
        !Answer(name == nullptr ? ERROR_INVALID_PARAMETER : ERROR_SUCCESS)) {
        return FALSE;
    }
    const SpoolerUse use;
    PrinterOpening opening;
    if (defaults != nullptr) {
        opening = {.dataType = defaults->pDatatype != nullptr ? defaults->pDatatype : u"",
                   .hasRecord = defaults->pDevMode != nullptr,
                   .access = defaults->DesiredAccess};
    }
    use.state.lastOpening = opening;
    const auto found = use.state.FindPrinter(name);
    const auto refusal = use.state.refusals.find(std::u16string_view(name));
    const bool asAdministrator = (opening.access & PRINTER_ACCESS_ADMINISTER) != 0;
    if (!Answer(found == nullptr ? ERROR_INVALID_PRINTER_NAME
                : !opening.dataType.empty() && opening.dataType != u"RAW" ? ERROR_INVALID_DATATYPE
                : refusal != use.state.refusals.end()                     ? refusal->second
                                                                          : ERROR_SUCCESS) ||
        (asAdministrator && !use.CheckAdministrator())) {
        return FALSE;
    }
    *printer = use.Open(found, opening.access);
    return TRUE;
}

BOOL ClosePrinter(HANDLE printer) {
    return SpoolerUse::Close(printer);
}

BOOL GetPrinterW(HANDLE printer, DWORD level, LPBYTE buffer, DWORD bytes, DWORD* needed) {
    if (Fails("GetPrinterW", ERROR_NOT_ENOUGH_MEMORY) ||
        !Answer(level != 2 && level != 8 ? ERROR_INVALID_LEVEL : ERROR_SUCCESS)) {
        return FALSE;
    }
    const SpoolerUse use(printer);
    return use.printer != nullptr &&
           use.Store("GetPrinterW", level == 2 ? sizeof(PRINTER_INFO_2W) : sizeof(PRINTER_INFO_8W),
                     buffer, bytes, needed, [&](Packer& packer) {
                         (level == 2 ? PackPrinter2 : PackPrinter8)(*use.printer, packer);
                     });
}

BOOL SetPrinterW(HANDLE printer, DWORD level, LPBYTE record, DWORD command) {
    if (Fails("SetPrinterW", ERROR_ACCESS_DENIED) ||
        !Answer(level != 8     ? ERROR_INVALID_LEVEL
                : command != 0 ? ERROR_INVALID_PARAMETER
                               : ERROR_SUCCESS)) {
        return FALSE;
    }
    const SpoolerUse use(printer);
    if (use.printer == nullptr || !use.mayAdminister) {
        return use.printer != nullptr && Answer(ERROR_ACCESS_DENIED);
    }
    const DEVMODEW& settings = *reinterpret_cast<const PRINTER_INFO_8W*>(record)->pDevMode;
    const auto* first = reinterpret_cast<const std::byte*>(&settings);
    use.printer->defaultSettings.assign(first, first + settings.dmSize + settings.dmDriverExtra);
    return TRUE;
}

BOOL GetPrinterDriverW(HANDLE printer, LPWSTR environment, DWORD level, LPBYTE buffer, DWORD bytes,
                       DWORD* needed) {
    if (Fails("GetPrinterDriverW", ERROR_NOT_ENOUGH_MEMORY) ||
        !Answer(environment != nullptr     ? ERROR_INVALID_ENVIRONMENT
                : level != 2 && level != 3 ? ERROR_INVALID_LEVEL
                                           : ERROR_SUCCESS)) {
        return FALSE;
    }
    const SpoolerUse use(printer);
    if (use.printer == nullptr) {
        return FALSE;
    }
    const Driver* driver = use.state.FindDriver(use.printer->driverName);
    if (driver == nullptr) {
        return Answer(ERROR_UNKNOWN_PRINTER_DRIVER);
    }
    return use.Store(
        "GetPrinterDriverW", level == 2 ? sizeof(DRIVER_INFO_2W) : sizeof(DRIVER_INFO_3W), buffer,
        bytes, needed,
        [&](Packer& packer) { (level == 2 ? PackDriver2 : PackDriver3)(*driver, packer); });
}

BOOL GetPrinterDriverDirectoryW(LPWSTR server, LPWSTR environment, DWORD level, LPBYTE buffer,
                                DWORD bytes, DWORD* needed) {
    if (Fails("GetPrinterDriverDirectoryW", ERROR_NOT_ENOUGH_MEMORY) ||
        !Answer(server != nullptr        ? ERROR_INVALID_PARAMETER
                : environment != nullptr ? ERROR_INVALID_ENVIRONMENT
                : level != 1             ? ERROR_INVALID_LEVEL
                                         : ERROR_SUCCESS)) {
        return FALSE;
    }
    return SpoolerUse().Store("GetPrinterDriverDirectoryW", 0, buffer, bytes, needed,
                              [&](Packer& packer) { packer.Add(kDriverDirectory); });
}

DWORD GetPrinterDataW(HANDLE printer, LPWSTR value, DWORD* type, LPBYTE data, DWORD bytes,
                      DWORD* needed) {
    return Fails("GetPrinterDataW") ? ERROR_NOT_ENOUGH_MEMORY
                                    : GetData(printer, value, false, type, data, bytes, needed);
}

DWORD GetPrinterDataA(HANDLE printer, LPSTR value, DWORD* type, LPBYTE data, DWORD bytes,
                      DWORD* needed) {
    return Fails("GetPrinterDataA")
               ? ERROR_NOT_ENOUGH_MEMORY
               : GetData(printer, FromAnsi(value), true, type, data, bytes, needed);
}

DWORD SetPrinterDataW(HANDLE printer, LPWSTR value, DWORD type, LPBYTE data, DWORD bytes) {
    if (Fails("SetPrinterDataW")) {
        return ERROR_ACCESS_DENIED;
    }
    const SpoolerUse use(printer);
    if (use.printer == nullptr || !use.mayAdminister) {
        return use.printer == nullptr ? ERROR_INVALID_HANDLE : ERROR_ACCESS_DENIED;
    }
    const auto* first = reinterpret_cast<const std::byte*>(data);
    use.printer->data.insert_or_assign(value, StoredValue{type, {first, first + bytes}});
    return ERROR_SUCCESS;
}

BOOL EnumFormsW(HANDLE printer, DWORD level, LPBYTE buffer, DWORD bytes, DWORD* needed,
                DWORD* count) {
    *count = 0;
    if (Fails("EnumFormsW", ERROR_NOT_ENOUGH_MEMORY) ||
        !Answer(level != 1 ? ERROR_INVALID_LEVEL : ERROR_SUCCESS)) {
        return FALSE;
    }
    const SpoolerUse use(printer);
    const std::vector<Form>& forms = use.state.forms;
    if (use.printer == nullptr ||
        !use.Store("EnumFormsW", forms.size() * sizeof(FORM_INFO_1W), buffer, bytes, needed,
                   [&](Packer& packer) { PackForms(forms, packer); })) {
        return FALSE;
    }
    *count = static_cast<DWORD>(forms.size());
    return TRUE;
}

BOOL AddFormW(HANDLE printer, DWORD level, LPBYTE record) {
    if (Fails("AddFormW", ERROR_ACCESS_DENIED)) {
        return FALSE;
    }
    const auto& form = *reinterpret_cast<const FORM_INFO_1W*>(record);
    const SpoolerUse use(printer);
    if (use.printer == nullptr || !use.CheckAdministrator()) {
        return FALSE;
    }
    auto& forms = use.state.forms;
    if (!Answer(level != 1                  ? ERROR_INVALID_LEVEL
                : form.Flags > FORM_PRINTER ? ERROR_INVALID_PARAMETER
                : *form.pName == 0          ? ERROR_INVALID_FORM_NAME
                : !IsFormSize(form)         ? ERROR_INVALID_FORM_SIZE
                : std::ranges::find(forms, form.pName, &Form::name) != forms.end()
                    ? ERROR_FILE_EXISTS
                    : ERROR_SUCCESS)) {
        return FALSE;
    }
    forms.push_back({form.pName, form.Flags, form.Size, form.ImageableArea});
    return TRUE;
}

BOOL DeleteFormW(HANDLE printer, LPWSTR name) {
    if (Fails("DeleteFormW", ERROR_ACCESS_DENIED)) {
        return FALSE;
    }
    const SpoolerUse use(printer);
    if (use.printer == nullptr || !use.CheckAdministrator()) {
        return FALSE;
    }
    auto& forms = use.state.forms;
    const auto found = std::ranges::find(forms, name, &Form::name);
    if (!Answer(found == forms.end()           ? ERROR_INVALID_FORM_NAME
                : found->flags == FORM_BUILTIN ? ERROR_INVALID_PARAMETER
                                               : ERROR_SUCCESS)) {
        return FALSE;
    }
    forms.erase(found);
    return TRUE;
}
