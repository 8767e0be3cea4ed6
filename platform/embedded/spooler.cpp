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

constexpr char16_t kEnvironment[] = u"Windows x64";
constexpr char16_t kDriverDirectory[] = u"C:\\Windows\\system32\\spool\\DRIVERS\\x64";

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
    void PutBytes(size_t offset, const void* bytes, size_t size) {
        if (buffer_ != nullptr) {
            memcpy(buffer_ + offset, bytes, size);
        }
    }
    template <typename Record>
    void Put(size_t offset, const Record& record) {
        PutBytes(offset, &record, sizeof(record));
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
    record.pShareName = packer.Add(printer.shareName);
    record.pPortName = packer.Add(printer.portName);
    record.pDriverName = packer.Add(printer.driverName);
    record.pComment = packer.Add(printer.comment);
    record.pLocation = packer.Add(printer.location);
    record.pPrintProcessor = packer.Add(printer.printProcessor);
    record.pDatatype = packer.Add(printer.dataType);
    record.Attributes = printer.attributes;
    packer.Put(0, record);
}

void PackPrinter8(const Printer& printer, Packer& packer) {
    packer.Put(0, PRINTER_INFO_8W{packer.Add(printer.defaultSettings)});
}

void PackDriver2(const Driver& driver, Packer& packer) {
    DRIVER_INFO_2W record = {};
    record.cVersion = driver.version;
    record.pName = packer.Add(driver.name);
    record.pEnvironment = packer.Add(driver.environment);
    record.pDriverPath = packer.Add(driver.driverPath);
    record.pDataFile = packer.Add(driver.dataFile);
    record.pConfigFile = packer.Add(driver.configFile);
    packer.Put(0, record);
}

void PackDriver3(const Driver& driver, Packer& packer) {
    DRIVER_INFO_3W record = {};
    record.cVersion = driver.version;
    record.pName = packer.Add(driver.name);
    record.pEnvironment = packer.Add(driver.environment);
    record.pDriverPath = packer.Add(driver.driverPath);
    record.pDataFile = packer.Add(driver.dataFile);
    record.pConfigFile = packer.Add(driver.configFile);
    record.pHelpFile = packer.Add(driver.helpFile);
    record.pMonitorName = packer.Add(driver.monitorName);
    record.pDefaultDataType = packer.Add(driver.defaultDataType);
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

// What the system's print processor takes.
constexpr const char16_t* kDataTypes[] = {
    u"RAW",          u"RAW [FF appended]", u"RAW [FF auto]", u"NT EMF 1.003",
    u"NT EMF 1.006", u"NT EMF 1.007",      u"NT EMF 1.008",  u"TEXT",
};

bool IsDataType(std::u16string_view name) {
    return std::ranges::any_of(kDataTypes,
                               [&](auto known) { return EqualIgnoringCase(known, name); });
}

bool IsOwnEnvironment(const WCHAR* environment) {
    return environment == nullptr || EqualIgnoringCase(environment, kEnvironment);
}

// The exports of spoolss.dll.
HANDLE RevertToPrinterSelf();
BOOL ImpersonatePrinterClient(HANDLE token);

bool Fail(DWORD error) {
    SetLastError(error);
    return false;
}

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
        forms_.push_back(WholePageForm(form.name, FORM_BUILTIN, form.width, form.height));
    }
}

Spooler::~Spooler() = default;

std::shared_ptr<Printer> Spooler::Find(std::u16string_view name) const {
    for (const auto& printer : printers_) {
        if (EqualIgnoringCase(printer->name, name)) {
            return printer;
        }
    }
    return nullptr;
}

void Spooler::AddPrinter(Printer printer) {
    std::lock_guard lock(mutex_);
    if (const auto existing = Find(printer.name)) {
        *existing = std::move(printer);
    } else {
        printers_.push_back(std::make_shared<Printer>(std::move(printer)));
    }
}

void Spooler::RemovePrinter(std::u16string_view name) {
    std::lock_guard lock(mutex_);
    std::erase_if(printers_, [&](const auto& p) { return EqualIgnoringCase(p->name, name); });
}

std::vector<Printer> Spooler::printers() const {
    std::lock_guard lock(mutex_);
    std::vector<Printer> copies;
    for (const auto& printer : printers_) {
        copies.push_back(*printer);
    }
    return copies;
}

std::optional<Printer> Spooler::FindPrinter(std::u16string_view name) const {
    std::lock_guard lock(mutex_);
    const auto printer = Find(name);
    return printer != nullptr ? std::optional(*printer) : std::nullopt;
}

void Spooler::AddDriver(Driver driver) {
    std::lock_guard lock(mutex_);
    for (Driver& existing : drivers_) {
        if (EqualIgnoringCase(existing.name, driver.name)) {
            existing = std::move(driver);
            return;
        }
    }
    drivers_.push_back(std::move(driver));
}

void Spooler::RemoveDriver(std::u16string_view name) {
    std::lock_guard lock(mutex_);
    std::erase_if(drivers_, [&](const Driver& d) { return EqualIgnoringCase(d.name, name); });
}

std::vector<Driver> Spooler::drivers() const {
    std::lock_guard lock(mutex_);
    return drivers_;
}

std::vector<Form> Spooler::forms() const {
    std::lock_guard lock(mutex_);
    return forms_;
}

void Spooler::AddForm(Form form) {
    std::lock_guard lock(mutex_);
    for (Form& existing : forms_) {
        if (existing.name == form.name) {
            existing = std::move(form);
            return;
        }
    }
    forms_.push_back(std::move(form));
}

void Spooler::RemoveAllForms() {
    std::lock_guard lock(mutex_);
    forms_.clear();
}

std::optional<StoredValue> Spooler::PrinterData(std::u16string_view printer,
                                                std::u16string_view value) const {
    std::lock_guard lock(mutex_);
    const auto found = Find(printer);
    if (found == nullptr) {
        return std::nullopt;
    }
    const auto data = found->data.find(value);
    return data != found->data.end() ? std::optional(data->second) : std::nullopt;
}

void Spooler::SetPrinterData(std::u16string_view printer, std::u16string_view value,
                             StoredValue data) {
    std::lock_guard lock(mutex_);
    Find(printer)->data.insert_or_assign(std::u16string(value), std::move(data));
}

void Spooler::RemovePrinterData(std::u16string_view printer, std::u16string_view value) {
    std::lock_guard lock(mutex_);
    auto& values = Find(printer)->data;
    const auto found = values.find(value);
    if (found != values.end()) {
        values.erase(found);
    }
}

void Spooler::RefuseOpen(std::u16string_view printer, DWORD error) {
    std::lock_guard lock(mutex_);
    refusals_[std::u16string(printer)] = error;
}

void Spooler::SetAdministrator(bool administrator) {
    std::lock_guard lock(mutex_);
    administrator_ = administrator;
}

void Spooler::ReportSize(std::string call, DWORD bytes) {
    std::lock_guard lock(mutex_);
    lies_[std::move(call)] = bytes;
}

void Spooler::TellTheTruth() {
    std::lock_guard lock(mutex_);
    lies_.clear();
}

PrinterOpening Spooler::lastOpening() const {
    std::lock_guard lock(mutex_);
    return lastOpening_;
}

bool Spooler::ThreadActsForClient() const {
    std::lock_guard lock(mutex_);
    return !reverted_.contains(std::this_thread::get_id());
}

// ---- Keeping ----

namespace {

nlohmann::json SavePrinter(const Printer& printer) {
    return {{"name", Utf8(printer.name)},
            {"driver", Utf8(printer.driverName)},
            {"port", Utf8(printer.portName)},
            {"share", Utf8(printer.shareName)},
            {"comment", Utf8(printer.comment)},
            {"location", Utf8(printer.location)},
            {"processor", Utf8(printer.printProcessor)},
            {"dataType", Utf8(printer.dataType)},
            {"attributes", printer.attributes},
            {"defaultSettings", SavedBytes(printer.defaultSettings)},
            {"data", SavedValues(printer.data)}};
}

Printer LoadPrinter(const nlohmann::json& saved) {
    return {.name = LoadText(saved, "name"),
            .driverName = LoadText(saved, "driver"),
            .portName = LoadText(saved, "port"),
            .shareName = LoadText(saved, "share"),
            .comment = LoadText(saved, "comment"),
            .location = LoadText(saved, "location"),
            .printProcessor = LoadText(saved, "processor"),
            .dataType = LoadText(saved, "dataType"),
            .attributes = saved.at("attributes").get<DWORD>(),
            .defaultSettings = LoadBytes(saved.at("defaultSettings")),
            .data = LoadValues(saved.at("data"))};
}

nlohmann::json SaveDriver(const Driver& driver) {
    return {{"name", Utf8(driver.name)},
            {"dataFile", Utf8(driver.dataFile)},
            {"driverPath", Utf8(driver.driverPath)},
            {"configFile", Utf8(driver.configFile)},
            {"helpFile", Utf8(driver.helpFile)},
            {"monitor", Utf8(driver.monitorName)},
            {"dataType", Utf8(driver.defaultDataType)},
            {"environment", Utf8(driver.environment)},
            {"version", driver.version}};
}

Driver LoadDriver(const nlohmann::json& saved) {
    return {.name = LoadText(saved, "name"),
            .dataFile = LoadText(saved, "dataFile"),
            .driverPath = LoadText(saved, "driverPath"),
            .configFile = LoadText(saved, "configFile"),
            .helpFile = LoadText(saved, "helpFile"),
            .monitorName = LoadText(saved, "monitor"),
            .defaultDataType = LoadText(saved, "dataType"),
            .environment = LoadText(saved, "environment"),
            .version = saved.at("version").get<DWORD>()};
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
    for (const auto& printer : printers_) {
        saved["printers"].push_back(SavePrinter(*printer));
    }
    for (const Driver& driver : drivers_) {
        saved["drivers"].push_back(SaveDriver(driver));
    }
    for (const Form& form : forms_) {
        saved["forms"].push_back(SaveForm(form));
    }
    return saved;
}

void Spooler::Load(const nlohmann::json& saved) {
    std::vector<std::shared_ptr<Printer>> printers;
    for (const auto& printer : saved.at("printers")) {
        printers.push_back(std::make_shared<Printer>(LoadPrinter(printer)));
    }
    std::vector<Driver> drivers;
    for (const auto& driver : saved.at("drivers")) {
        drivers.push_back(LoadDriver(driver));
    }
    std::vector<Form> forms;
    for (const auto& form : saved.at("forms")) {
        forms.push_back(LoadForm(form));
    }
    std::lock_guard lock(mutex_);
    printers_ = std::move(printers);
    drivers_ = std::move(drivers);
    forms_ = std::move(forms);
}

// ---- The published calls ----

struct SpoolerCalls {
    // A printer handle in use, with the spooler's state held still. `printer` is null, and the
    // last error set, for a handle that is none.
    struct Use {
        explicit Use(HANDLE handle)
            : spooler(Machine::Current().spooler()),
              object(Machine::Current().handles.Get<Spooler::Handle>(handle)), lock(spooler.mutex_),
              printer(object != nullptr ? object->printer.lock() : nullptr) {
            if (printer == nullptr) {
                SetLastError(ERROR_INVALID_HANDLE);
            }
        }
        bool MayAdminister() const { return (object->access & PRINTER_ACCESS_ADMINISTER) != 0; }

        Spooler& spooler;
        std::shared_ptr<Spooler::Handle> object;
        std::unique_lock<std::mutex> lock;
        std::shared_ptr<Printer> printer;
    };

    static const Driver* FindDriver(const Spooler& spooler, std::u16string_view name) {
        for (const Driver& driver : spooler.drivers_) {
            if (EqualIgnoringCase(driver.name, name)) {
                return &driver;
            }
        }
        return nullptr;
    }

    // The end of every two-call function: `pack` fills a Packer whose records take `records`
    // bytes. `call` is the published name that a planned lie goes by.
    template <typename Pack>
    static BOOL Answer(const Spooler& spooler, const char* call, size_t records, BYTE* buffer,
                       DWORD bytes, DWORD* needed, const Pack& pack) {
        Packer measured(nullptr, records);
        pack(measured);
        const auto truth = static_cast<DWORD>(measured.used());
        const auto lie = spooler.lies_.find(call);
        const DWORD reported = lie != spooler.lies_.end() ? lie->second : truth;
        *needed = reported;
        if (bytes < reported) {
            return Fail(ERROR_INSUFFICIENT_BUFFER);
        }
        if (bytes != 0 && buffer == nullptr) {
            return Fail(ERROR_INVALID_PARAMETER);
        }
        if (bytes < truth) {
            if (reported != 0) {
                memset(buffer, 0, reported);
            }
            return TRUE;
        }
        if (truth != 0) {
            Packer written(buffer, records);
            pack(written);
        }
        return TRUE;
    }

    static BOOL Close(HANDLE printer) {
        return Machine::Current().handles.Close<Spooler::Handle>(printer);
    }

    static BOOL Open(const WCHAR* name, HANDLE* printer, const PRINTER_DEFAULTSW* defaults) {
        Machine& machine = Machine::Current();
        Spooler& spooler = machine.spooler();
        auto handle = std::make_shared<Spooler::Handle>();
        handle->access = defaults != nullptr && defaults->DesiredAccess != 0
                             ? defaults->DesiredAccess
                             : PRINTER_ACCESS_USE;
        std::lock_guard lock(spooler.mutex_);
        spooler.lastOpening_ = {};
        if (defaults != nullptr) {
            const WCHAR* dataType = defaults->pDatatype;
            spooler.lastOpening_ = {.dataType = dataType != nullptr ? dataType : u"",
                                    .hasRecord = defaults->pDevMode != nullptr,
                                    .access = defaults->DesiredAccess};
        }
        const auto found = spooler.Find(name);
        if (found == nullptr) {
            return Fail(ERROR_INVALID_PRINTER_NAME);
        }
        if (defaults != nullptr && defaults->pDatatype != nullptr &&
            !IsDataType(defaults->pDatatype)) {
            return Fail(ERROR_INVALID_DATATYPE);
        }
        const auto refusal = spooler.refusals_.find(std::u16string_view(name));
        if (refusal != spooler.refusals_.end() && refusal->second != ERROR_SUCCESS) {
            return Fail(refusal->second);
        }
        if ((handle->access & PRINTER_ACCESS_ADMINISTER) != 0 && !spooler.administrator_) {
            return Fail(ERROR_ACCESS_DENIED);
        }
        handle->printer = found;
        *printer = machine.handles.Insert(std::move(handle));
        return TRUE;
    }

    static BOOL SetDefaultSettings(HANDLE printer, const DEVMODEW* settings) {
        Use use(printer);
        if (use.printer == nullptr) {
            return FALSE;
        }
        if (!use.MayAdminister()) {
            return Fail(ERROR_ACCESS_DENIED);
        }
        const auto* bytes = reinterpret_cast<const std::byte*>(settings);
        const size_t size = size_t{settings->dmSize} + settings->dmDriverExtra;
        use.printer->defaultSettings.assign(bytes, bytes + size);
        return TRUE;
    }

    static DWORD GetData(HANDLE printer, std::u16string_view name, bool ansi, DWORD* type,
                         BYTE* data, DWORD bytes, DWORD* needed) {
        Use use(printer);
        if (use.printer == nullptr) {
            return ERROR_INVALID_HANDLE;
        }
        const auto found = use.printer->data.find(name);
        if (found == use.printer->data.end()) {
            return ERROR_FILE_NOT_FOUND;
        }
        const StoredValue value = ansi ? ToAnsi(found->second) : found->second;
        if (type != nullptr) {
            *type = value.type;
        }
        *needed = static_cast<DWORD>(value.data.size());
        if (bytes < value.data.size()) {
            return ERROR_MORE_DATA;
        }
        std::ranges::copy(value.data, reinterpret_cast<std::byte*>(data));
        return ERROR_SUCCESS;
    }

    static DWORD SetData(HANDLE printer, const WCHAR* name, DWORD type, const BYTE* data,
                         DWORD bytes) {
        Use use(printer);
        if (use.printer == nullptr) {
            return ERROR_INVALID_HANDLE;
        }
        if (!use.MayAdminister()) {
            return ERROR_ACCESS_DENIED;
        }
        const auto* first = reinterpret_cast<const std::byte*>(data);
        use.printer->data.insert_or_assign(name, StoredValue{type, {first, first + bytes}});
        return ERROR_SUCCESS;
    }

    static BOOL EnumForms(HANDLE printer, BYTE* buffer, DWORD bytes, DWORD* needed, DWORD* count) {
        Use use(printer);
        if (use.printer == nullptr) {
            return FALSE;
        }
        const std::vector<Form>& forms = use.spooler.forms_;
        if (!Answer(use.spooler, "EnumFormsW", forms.size() * sizeof(FORM_INFO_1W), buffer, bytes,
                    needed, [&](Packer& packer) { PackForms(forms, packer); })) {
            return FALSE;
        }
        *count = static_cast<DWORD>(forms.size());
        return TRUE;
    }

    static BOOL AddForm(HANDLE printer, const FORM_INFO_1W& form) {
        Use use(printer);
        if (use.printer == nullptr) {
            return FALSE;
        }
        if (!use.spooler.administrator_) {
            return Fail(ERROR_ACCESS_DENIED);
        }
        auto& forms = use.spooler.forms_;
        if (std::ranges::find(forms, form.pName, &Form::name) != forms.end()) {
            return Fail(ERROR_FILE_EXISTS);
        }
        forms.push_back({form.pName, form.Flags, form.Size, form.ImageableArea});
        return TRUE;
    }

    static BOOL DeleteForm(HANDLE printer, const WCHAR* name) {
        Use use(printer);
        if (use.printer == nullptr) {
            return FALSE;
        }
        if (!use.spooler.administrator_) {
            return Fail(ERROR_ACCESS_DENIED);
        }
        auto& forms = use.spooler.forms_;
        const auto found = std::ranges::find(forms, name, &Form::name);
        if (found == forms.end()) {
            return Fail(ERROR_INVALID_FORM_NAME);
        }
        if (found->flags == FORM_BUILTIN) {
            return Fail(ERROR_INVALID_PARAMETER);
        }
        forms.erase(found);
        return TRUE;
    }

    struct DirectoryRequest {
        bool ownServer;
        bool ownEnvironment;
        DWORD level;
    };
    // `directory` is the text in the caller's width, `size` bytes with its terminator.
    static BOOL DriverDirectory(const char* call, const DirectoryRequest& request,
                                const void* directory, size_t size, BYTE* buffer, DWORD bytes,
                                DWORD* needed) {
        if (needed == nullptr || !request.ownServer) {
            return Fail(ERROR_INVALID_PARAMETER);
        }
        if (!request.ownEnvironment) {
            return Fail(ERROR_INVALID_ENVIRONMENT);
        }
        if (request.level != 1) {
            return Fail(ERROR_INVALID_LEVEL);
        }
        Spooler& spooler = Machine::Current().spooler();
        std::lock_guard lock(spooler.mutex_);
        return Answer(spooler, call, size, buffer, bytes, needed,
                      [&](Packer& packer) { packer.PutBytes(0, directory, size); });
    }

    static HANDLE Revert() {
        Machine& machine = Machine::Current();
        Spooler& spooler = machine.spooler();
        std::lock_guard lock(spooler.mutex_);
        if (!spooler.reverted_.insert(std::this_thread::get_id()).second) {
            return nullptr;
        }
        return machine.handles.Insert(std::make_shared<ClientToken>());
    }

    static BOOL Impersonate(HANDLE token) {
        Machine& machine = Machine::Current();
        Spooler& spooler = machine.spooler();
        if (!machine.handles.Close<ClientToken>(token)) {
            return Fail(ERROR_INVALID_HANDLE);
        }
        std::lock_guard lock(spooler.mutex_);
        spooler.reverted_.erase(std::this_thread::get_id());
        return TRUE;
    }
};

namespace {

HANDLE RevertToPrinterSelf() {
    static CallSite call("RevertToPrinterSelf");
    return call.Fails() ? nullptr : SpoolerCalls::Revert();
}

BOOL ImpersonatePrinterClient(HANDLE token) {
    // Never planned to fail: nobody could give the thread its identity back then.
    return SpoolerCalls::Impersonate(token);
}

}  // namespace

}  // namespace embedded

using namespace embedded;

BOOL OpenPrinterW(LPWSTR name, HANDLE* printer, PRINTER_DEFAULTSW* defaults) {
    static CallSite call("OpenPrinterW");
    if (call.Fails()) {
        return Fail(ERROR_ACCESS_DENIED);
    }
    if (name == nullptr || printer == nullptr) {
        return Fail(ERROR_INVALID_PARAMETER);
    }
    return SpoolerCalls::Open(name, printer, defaults);
}

BOOL ClosePrinter(HANDLE printer) {
    return SpoolerCalls::Close(printer) || Fail(ERROR_INVALID_HANDLE);
}

BOOL GetPrinterW(HANDLE printer, DWORD level, LPBYTE buffer, DWORD bytes, DWORD* needed) {
    static CallSite call("GetPrinterW");
    if (call.Fails()) {
        return Fail(ERROR_NOT_ENOUGH_MEMORY);
    }
    if (needed == nullptr) {
        return Fail(ERROR_INVALID_PARAMETER);
    }
    if (level != 2 && level != 8) {
        return Fail(ERROR_INVALID_LEVEL);
    }
    SpoolerCalls::Use use(printer);
    if (use.printer == nullptr) {
        return FALSE;
    }
    return SpoolerCalls::Answer(
        use.spooler, "GetPrinterW", level == 2 ? sizeof(PRINTER_INFO_2W) : sizeof(PRINTER_INFO_8W),
        buffer, bytes, needed,
        [&](Packer& packer) { (level == 2 ? PackPrinter2 : PackPrinter8)(*use.printer, packer); });
}

BOOL SetPrinterW(HANDLE printer, DWORD level, LPBYTE record, DWORD command) {
    static CallSite call("SetPrinterW");
    if (call.Fails()) {
        return Fail(ERROR_ACCESS_DENIED);
    }
    if (level != 8) {
        return Fail(ERROR_INVALID_LEVEL);
    }
    const DEVMODEW* settings =
        record != nullptr ? reinterpret_cast<const PRINTER_INFO_8W*>(record)->pDevMode : nullptr;
    if (settings == nullptr || command != 0) {
        return Fail(ERROR_INVALID_PARAMETER);
    }
    return SpoolerCalls::SetDefaultSettings(printer, settings);
}

BOOL GetPrinterDriverW(HANDLE printer, LPWSTR environment, DWORD level, LPBYTE buffer, DWORD bytes,
                       DWORD* needed) {
    static CallSite call("GetPrinterDriverW");
    if (call.Fails()) {
        return Fail(ERROR_NOT_ENOUGH_MEMORY);
    }
    if (needed == nullptr) {
        return Fail(ERROR_INVALID_PARAMETER);
    }
    if (!IsOwnEnvironment(environment)) {
        return Fail(ERROR_INVALID_ENVIRONMENT);
    }
    if (level != 2 && level != 3) {
        return Fail(ERROR_INVALID_LEVEL);
    }
    SpoolerCalls::Use use(printer);
    if (use.printer == nullptr) {
        return FALSE;
    }
    const Driver* driver = SpoolerCalls::FindDriver(use.spooler, use.printer->driverName);
    if (driver == nullptr) {
        return Fail(ERROR_UNKNOWN_PRINTER_DRIVER);
    }
    return SpoolerCalls::Answer(
        use.spooler, "GetPrinterDriverW",
        level == 2 ? sizeof(DRIVER_INFO_2W) : sizeof(DRIVER_INFO_3W), buffer, bytes, needed,
        [&](Packer& packer) { (level == 2 ? PackDriver2 : PackDriver3)(*driver, packer); });
}

BOOL GetPrinterDriverDirectoryW(LPWSTR server, LPWSTR environment, DWORD level, LPBYTE buffer,
                                DWORD bytes, DWORD* needed) {
    static CallSite call("GetPrinterDriverDirectoryW");
    if (call.Fails()) {
        return Fail(ERROR_NOT_ENOUGH_MEMORY);
    }
    return SpoolerCalls::DriverDirectory(
        "GetPrinterDriverDirectoryW",
        {server == nullptr || *server == 0, IsOwnEnvironment(environment), level}, kDriverDirectory,
        sizeof(kDriverDirectory), buffer, bytes, needed);
}

BOOL GetPrinterDriverDirectoryA(LPSTR server, LPSTR environment, DWORD level, LPBYTE buffer,
                                DWORD bytes, DWORD* needed) {
    static CallSite call("GetPrinterDriverDirectoryA");
    if (call.Fails()) {
        return Fail(ERROR_NOT_ENOUGH_MEMORY);
    }
    const bool ownEnvironment =
        environment == nullptr || IsOwnEnvironment(FromAnsi(environment).c_str());
    const std::string directory = ToAnsi(kDriverDirectory);
    return SpoolerCalls::DriverDirectory(
        "GetPrinterDriverDirectoryA", {server == nullptr || *server == 0, ownEnvironment, level},
        directory.c_str(), directory.size() + 1, buffer, bytes, needed);
}

DWORD GetPrinterDataW(HANDLE printer, LPWSTR value, DWORD* type, LPBYTE data, DWORD bytes,
                      DWORD* needed) {
    static CallSite call("GetPrinterDataW");
    if (call.Fails()) {
        return ERROR_NOT_ENOUGH_MEMORY;
    }
    if (value == nullptr || needed == nullptr || (data == nullptr && bytes != 0)) {
        return ERROR_INVALID_PARAMETER;
    }
    return SpoolerCalls::GetData(printer, value, false, type, data, bytes, needed);
}

DWORD GetPrinterDataA(HANDLE printer, LPSTR value, DWORD* type, LPBYTE data, DWORD bytes,
                      DWORD* needed) {
    static CallSite call("GetPrinterDataA");
    if (call.Fails()) {
        return ERROR_NOT_ENOUGH_MEMORY;
    }
    if (value == nullptr || needed == nullptr || (data == nullptr && bytes != 0)) {
        return ERROR_INVALID_PARAMETER;
    }
    return SpoolerCalls::GetData(printer, FromAnsi(value), true, type, data, bytes, needed);
}

DWORD SetPrinterDataW(HANDLE printer, LPWSTR value, DWORD type, LPBYTE data, DWORD bytes) {
    static CallSite call("SetPrinterDataW");
    if (call.Fails()) {
        return ERROR_ACCESS_DENIED;
    }
    if (value == nullptr || (data == nullptr && bytes != 0)) {
        return ERROR_INVALID_PARAMETER;
    }
    return SpoolerCalls::SetData(printer, value, type, data, bytes);
}

BOOL EnumFormsW(HANDLE printer, DWORD level, LPBYTE buffer, DWORD bytes, DWORD* needed,
                DWORD* count) {
    static CallSite call("EnumFormsW");
    if (call.Fails()) {
        return Fail(ERROR_NOT_ENOUGH_MEMORY);
    }
    if (needed == nullptr || count == nullptr) {
        return Fail(ERROR_INVALID_PARAMETER);
    }
    *count = 0;
    if (level != 1) {
        return Fail(ERROR_INVALID_LEVEL);
    }
    return SpoolerCalls::EnumForms(printer, buffer, bytes, needed, count);
}

BOOL AddFormW(HANDLE printer, DWORD level, LPBYTE record) {
    static CallSite call("AddFormW");
    if (call.Fails()) {
        return Fail(ERROR_ACCESS_DENIED);
    }
    if (level != 1) {
        return Fail(ERROR_INVALID_LEVEL);
    }
    const auto* form = reinterpret_cast<const FORM_INFO_1W*>(record);
    if (form == nullptr || form->Flags > FORM_PRINTER) {
        return Fail(ERROR_INVALID_PARAMETER);
    }
    if (form->pName == nullptr || *form->pName == 0) {
        return Fail(ERROR_INVALID_FORM_NAME);
    }
    if (!IsFormSize(*form)) {
        return Fail(ERROR_INVALID_FORM_SIZE);
    }
    return SpoolerCalls::AddForm(printer, *form);
}

BOOL DeleteFormW(HANDLE printer, LPWSTR name) {
    static CallSite call("DeleteFormW");
    if (call.Fails()) {
        return Fail(ERROR_ACCESS_DENIED);
    }
    if (name == nullptr) {
        return Fail(ERROR_INVALID_FORM_NAME);
    }
    return SpoolerCalls::DeleteForm(printer, name);
}
