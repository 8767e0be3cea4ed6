#include "tests/windows/driver_answers.h"

#include <algorithm>
#include <cctype>
#include <cstring>
#include <fstream>
#include <iterator>
#include <utility>
#include <vector>

#include "tool/record_fields.h"
#include "ui/panel_control.h"
#include "ui/spin_control.h"

namespace answers {

namespace {

constexpr DWORD kRecordBytes = 2608;
constexpr BYTE kUntouched = 0xA5;
constexpr size_t kSignature = 224;  // in a record with a public part of today's size

std::string Digits(const BYTE* bytes, size_t size) {
    constexpr char kDigits[] = "0123456789ABCDEF";
    std::string text;
    for (size_t at = 0; at < size; ++at) {
        text += kDigits[bytes[at] >> 4];
        text += kDigits[bytes[at] & 15];
    }
    return text;
}

// Lines of 32 bytes at their offsets; lines of zeros are left out.
std::string Hex(const BYTE* bytes, size_t size) {
    constexpr size_t kBytesPerLine = 32;
    std::string text;
    for (size_t at = 0; at < size; at += kBytesPerLine) {
        const size_t width = std::min(size - at, kBytesPerLine);
        if (std::any_of(bytes + at, bytes + at + width, [](BYTE byte) { return byte != 0; })) {
            text += "\n    " + std::to_string(at) + ": " + Digits(bytes + at, width);
        }
    }
    return text;
}

// A place for output that shows how far it was written.
class Output {
  public:
    explicit Output(size_t size) : bytes_(size, kUntouched) {}
    BYTE* data() { return bytes_.data(); }
    DEVMODEW* record() { return reinterpret_cast<DEVMODEW*>(bytes_.data()); }

    // What was written as a text.
    std::string Sentence() const {
        std::string text;
        const auto* letter = reinterpret_cast<const WCHAR*>(bytes_.data());
        while (Length() != 0 && *letter != 0) {
            text += static_cast<char>(*letter++);
        }
        return std::to_string(Length()) + " bytes written: \"" + text + "\"";
    }
    std::string Written() const {
        return std::to_string(Length()) + " bytes written" + Hex(bytes_.data(), Length());
    }

  private:
    size_t Length() const {
        size_t size = bytes_.size();
        while (size != 0 && bytes_[size - 1] == kUntouched) {
            --size;
        }
        return size;
    }

    std::vector<BYTE> bytes_;
};

// A caller's job settings record. What is not set is zero.
struct Job {
    std::vector<BYTE> bytes;
    DEVMODEW* record() { return reinterpret_cast<DEVMODEW*>(bytes.data()); }
};

Job BlankJob(WORD publicSize, WORD privateSize, WORD specVersion, WORD driverVersion) {
    Job job = {std::vector<BYTE>(std::max<size_t>(sizeof(DEVMODEW), publicSize) + privateSize)};
    job.record()->dmSize = publicSize;
    job.record()->dmDriverExtra = privateSize;
    job.record()->dmSpecVersion = specVersion;
    job.record()->dmDriverVersion = driverVersion;
    return job;
}

Job DefaultJob(const EntryPoints& driver) {
    Job job = {std::vector<BYTE>(kRecordBytes)};
    LONG size = kRecordBytes;
    WCHAR name[] = TEXT("Answering Fax");
    driver.convertDevMode(name, nullptr, job.record(), &size, CDM_DRIVER_DEFAULT);
    return job;
}

// The fields in which a record differs from another of this driver, by the offsets of its own
// version of the public part; a field that it has no room for is none.
std::string Differences(const std::vector<BYTE>& bytes, const std::vector<BYTE>& from) {
    const auto& record = *reinterpret_cast<const DEVMODEW*>(bytes.data());
    std::string text;
    for (const tool::RecordField& field : tool::record_fields::kAll) {
        const bool isPublic = field.part == tool::RecordPart::Public;
        const size_t begin = isPublic ? 0 : record.dmSize;
        const size_t size = isPublic ? record.dmSize : record.dmDriverExtra;
        const size_t there = (isPublic ? 0 : sizeof(DEVMODEW)) + field.offset;
        if (field.part == tool::RecordPart::Device || field.offset + field.width > size ||
            std::equal(&from[there], &from[there] + field.width, &bytes[begin + field.offset])) {
            continue;
        }
        size_t width = field.width;
        while (width > 1 && bytes[begin + field.offset + width - 1] == 0) {
            --width;
        }
        text +=
            "\n    " + std::string(field.name) + " " + Digits(&bytes[begin + field.offset], width);
    }
    return text.empty() ? " as by default" : text;
}

struct NamedJob {
    std::string what;
    Job job;
};

std::vector<NamedJob> Jobs(const EntryPoints& driver) {
    std::vector<NamedJob> jobs;
    // The default record with those members set.
    const auto add = [&](const std::string& what, DWORD fields, auto change) {
        jobs.push_back({what, DefaultJob(driver)});
        jobs.back().job.record()->dmFields |= fields;
        change(*jobs.back().job.record());
    };
    add("the default job", 0, [](DEVMODEW&) {});
    add("a job without a paper", 0, [](DEVMODEW& record) { record.dmFields &= ~DM_PAPERSIZE; });
    add("a job of its own paper size", DM_PAPERSIZE | DM_PAPERLENGTH | DM_PAPERWIDTH,
        [](DEVMODEW& record) {
            record.dmPaperSize = DMPAPER_USER;
            record.dmPaperLength = 2000;
            record.dmPaperWidth = 1500;
        });
    add("a landscape job of two copies", DM_ORIENTATION | DM_COPIES | DM_COLLATE,
        [](DEVMODEW& record) {
            record.dmOrientation = DMORIENT_LANDSCAPE;
            record.dmCopies = 2;
            record.dmCollate = DMCOLLATE_TRUE;
        });
    for (const short paper : {short{DMPAPER_LETTER}, short{DMPAPER_A4}, short{77}}) {
        add("a job of paper " + std::to_string(paper), DM_PAPERSIZE,
            [&](DEVMODEW& record) { record.dmPaperSize = paper; });
    }
    for (const short quality : {100, 200, 600, -4}) {
        add("a job of quality " + std::to_string(quality), DM_PRINTQUALITY,
            [&](DEVMODEW& record) { record.dmPrintQuality = quality; });
    }
    for (const short source : {DMBIN_MANUAL, DMBIN_ENVMANUAL, DMBIN_AUTO, DMBIN_FORMSOURCE}) {
        add("an A4 job from source " + std::to_string(source), DM_PAPERSIZE | DM_DEFAULTSOURCE,
            [&](DEVMODEW& record) {
                record.dmPaperSize = DMPAPER_A4;
                record.dmDefaultSource = source;
            });
    }
    jobs.push_back({"a public part alone", BlankJob(220, 0, 0x0401, 0x0104)});
    jobs.back().job.record()->dmFields = DM_PAPERSIZE;
    jobs.back().job.record()->dmPaperSize = DMPAPER_A4;
    jobs.push_back({"a record of the earlier driver", BlankJob(188, 112, 0x0320, 0x0350)});
    jobs.push_back({"another driver's record", BlankJob(220, 2388, 0x0401, 0x0777)});
    jobs.push_back({"a record of no known version", BlankJob(200, 0, 0, 0)});
    return jobs;
}

std::string Capabilities(const EntryPoints& driver, HANDLE printer) {
    WCHAR name[] = TEXT("Answering Fax");
    constexpr size_t kRoom = 16384;
    std::string text;
    const auto ask = [&](WORD index, const std::string& what, DEVMODEW* settings) {
        Output output(kRoom);
        const DWORD result =
            driver.deviceCapabilities(printer, name, index, output.data(), settings);
        const DWORD counted = driver.deviceCapabilities(printer, name, index, nullptr, settings);
        text += "capability " + std::to_string(index) + what + ": " + std::to_string(result) +
                ", without output " + std::to_string(counted) + ", " + output.Written() + "\n";
    };
    for (WORD index = 0; index <= 34; ++index) {
        ask(index, "", nullptr);
    }
    for (NamedJob& row : Jobs(driver)) {
        for (const WORD index : {DC_FIELDS, DC_PAPERSIZE, DC_SIZE, DC_VERSION, DC_ORIENTATION,
                                 DC_STAPLE, DC_COLORDEVICE}) {
            ask(index, " with " + row.what, row.job.record());
        }
    }
    return text;
}

std::string Conversions(const EntryPoints& driver) {
    WCHAR known[] = TEXT("Answering Fax");
    WCHAR unknown[] = TEXT("No Such Fax");
    std::string text;
    const auto ask = [&](const std::string& what, WCHAR* printer, DEVMODEW* input, DEVMODEW* record,
                         LONG* size, DWORD mode) {
        SetLastError(NO_ERROR);
        const BOOL done = driver.convertDevMode(printer, input, record, size, mode);
        const DWORD error = done ? NO_ERROR : GetLastError();
        text += what + ": " + std::to_string(done) + ", error " + std::to_string(error) +
                ", size " + (size != nullptr ? std::to_string(*size) : "none") + "\n";
    };
    Job job = DefaultJob(driver);
    Output output(4096);
    ask("no size", known, job.record(), output.record(), nullptr, CDM_CONVERT);
    for (const DWORD mode : {CDM_CONVERT, CDM_CONVERT351, DWORD{3}, CDM_DRIVER_DEFAULT, DWORD{5}}) {
        const std::string what = "mode " + std::to_string(mode);
        LONG size = 100;
        ask(what + " into too little", known, job.record(), output.record(), &size, mode);
        size = kRecordBytes;
        ask(what + " without a record", known, job.record(), nullptr, &size, mode);
    }
    LONG size = kRecordBytes;
    ask("default of an unknown printer", unknown, nullptr, output.record(), &size,
        CDM_DRIVER_DEFAULT);
    text += output.Written() + "\n";
    size = kRecordBytes;
    ask("default", known, nullptr, output.record(), &size, CDM_DRIVER_DEFAULT);
    text += output.Written() + "\n";

    for (NamedJob& row : Jobs(driver)) {
        Output earlier(512);
        size = 512;
        ask(row.what + " to the earlier driver's", known, row.job.record(), earlier.record(), &size,
            CDM_CONVERT351);
        text += earlier.Written() + "\n";
        for (const auto& [publicSize, privateSize] :
             {std::pair<WORD, WORD>{220, 2388}, {220, 0}, {212, 50}, {188, 112}, {200, 0}}) {
            Job target = BlankJob(publicSize, privateSize, 0, 0x0104);
            const std::vector<BYTE> before = target.bytes;
            size = publicSize + privateSize;
            ask(row.what + " to " + std::to_string(size) + " bytes", known, row.job.record(),
                target.record(), &size, CDM_CONVERT);
            text += target.bytes == before
                        ? "    untouched\n"
                        : "    the record is" + Differences(target.bytes, job.bytes) + "\n";
        }
    }
    return text;
}

// Whether a device context takes the record for one of this driver.
std::string Confirmations(const EntryPoints& driver, HANDLE printer) {
    std::string text;
    std::vector<NamedJob> jobs = Jobs(driver);
    jobs.push_back({"a record of another signature", DefaultJob(driver)});
    jobs.back().job.bytes[kSignature] ^= 1;
    jobs.push_back({"a record with an older, shorter public part", BlankJob(188, 2388, 0x0401, 0)});
    std::memcpy(&jobs.back().job.bytes[188 + 4], "PRIV", 4);
    for (NamedJob& row : jobs) {
        DOCEVENT_CREATEDCPRE created = {nullptr, nullptr, row.job.record(), FALSE};
        DEVMODEW* confirmed = nullptr;
        const int result =
            driver.documentEvent(printer, nullptr, DOCUMENTEVENT_CREATEDCPRE, sizeof created,
                                 &created, sizeof confirmed, &confirmed);
        text += "device context with " + row.what + ": " + std::to_string(result) +
                (confirmed == row.job.record() ? ", confirmed\n" : ", not confirmed\n");
    }
    return text;
}

std::string PrintQueries(const EntryPoints& driver, HANDLE printer) {
    std::string text;
    const Job byDefault = DefaultJob(driver);
    // The job by value: the query may name its form in it.
    const auto ask = [&](const std::string& what, Job job, DWORD room) {
        Output refusal(1024);
        const Job before = job;
        DEVQUERYPRINT_INFO query = {};
        query.cbSize = sizeof query;
        query.Level = 1;
        query.hPrinter = printer;
        query.pDevMode = job.bytes.empty() ? nullptr : job.record();
        query.pszErrorStr = reinterpret_cast<LPWSTR>(refusal.data());
        query.cchErrorStr = room;
        const BOOL prints = driver.queryPrint(&query);
        text += what + ": " + std::to_string(prints) + ", needed " +
                std::to_string(query.cchNeeded) + ", " + refusal.Sentence() + "\n";
        if (job.bytes != before.bytes) {
            text += "    the record is" + Differences(job.bytes, byDefault.bytes) + "\n";
        }
        return prints != FALSE;
    };
    ask("no job settings", {}, 500);
    for (const NamedJob& row : Jobs(driver)) {
        if (!ask(row.what, row.job, 500)) {
            ask(row.what + " with little room", row.job, 10);
        }
    }
    return text;
}

// What is stored with the printer and in the registry.
std::string Stored(HANDLE printer) {
    std::string text;
    for (std::basic_string<WCHAR> value :
         {TEXT("PrinterData"), TEXT("PrinterDataSize"), TEXT("TrayFormTable"), TEXT("TrayFormSize"),
          TEXT("Forms?"), TEXT("UserName"), TEXT("ComputerName")}) {
        BYTE bytes[2048] = {};
        DWORD type = 0;
        DWORD size = 0;
        const DWORD error =
            GetPrinterDataW(printer, value.data(), &type, bytes, sizeof bytes, &size);
        text += "  " + std::string(value.begin(), value.end()) + ": error " + std::to_string(error);
        if (error == ERROR_SUCCESS) {
            text += ", type " + std::to_string(type) + ", " + std::to_string(size) + " bytes" +
                    Hex(bytes, size);
        }
        text += "\n";
    }
    for (const std::basic_string<WCHAR> name :
         {TEXT("SOFTWARE\\kestova"), TEXT("SOFTWARE\\kestova\\ksplproc"),
          TEXT("Software\\Microsoft\\Windows\\Help")}) {
        HKEY key = nullptr;
        const LSTATUS error =
            RegOpenKeyExW(HKEY_LOCAL_MACHINE, name.c_str(), 0, KEY_QUERY_VALUE, &key);
        if (error == ERROR_SUCCESS) {
            RegCloseKey(key);
        }
        text += "  key " + std::string(name.begin(), name.end()) + ": error " +
                std::to_string(error) + "\n";
    }
    return text;
}

void StoreOldPrintProcessorKey() {
    HKEY key = nullptr;
    RegCreateKeyExW(HKEY_LOCAL_MACHINE, TEXT("SOFTWARE\\kestova\\ksplproc"), 0, nullptr, 0,
                    KEY_ALL_ACCESS, nullptr, &key, nullptr);
    RegCloseKey(key);
}

void StoreNumber(HANDLE printer, std::basic_string<WCHAR> name, DWORD number) {
    SetPrinterDataW(printer, name.data(), REG_DWORD, reinterpret_cast<BYTE*>(&number),
                    sizeof number);
}

void StoreTrayForms(HANDLE printer, std::basic_string<WCHAR> table) {
    std::basic_string<WCHAR> name = TEXT("TrayFormTable");
    const DWORD bytes = static_cast<DWORD>(table.size() * sizeof(WCHAR));
    StoreNumber(printer, TEXT("TrayFormSize"), bytes);
    SetPrinterDataW(printer, name.data(), REG_BINARY, reinterpret_cast<BYTE*>(table.data()), bytes);
}

// The forms themselves are not asked for: Wine 8 says that it adds and deletes forms and does
// neither, so only the embedded machine shows what becomes of them.
std::string StoredState(const EntryPoints& driver, HANDLE printer) {
    WCHAR name[] = TEXT("Answering Fax");
    WCHAR unknown[] = TEXT("No Such Fax");
    std::string text;
    for (const INT event : {PRINTER_EVENT_CACHE_REFRESH, PRINTER_EVENT_INITIALIZE, 99}) {
        StoreOldPrintProcessorKey();
        const BOOL done = driver.printerEvent(name, event, 0, 0);
        text += "printer event " + std::to_string(event) + ": " + std::to_string(done) + "\n" +
                Stored(printer);
    }
    const auto upgrade = [&](const std::string& what, WCHAR* printerName, DWORD level) {
        DRIVER_UPGRADE_INFO_1W information = {};
        information.pPrinterName = printerName;
        SetLastError(NO_ERROR);
        const BOOL done = driver.upgradePrinter(level, reinterpret_cast<BYTE*>(&information));
        // Only wrong arguments and a printer that does not open promise a last error.
        const DWORD error = level != 1 || printerName != name ? GetLastError() : NO_ERROR;
        text += "upgrade " + what + ": " + std::to_string(done) + ", error " +
                std::to_string(error) + "\n" + Stored(printer);
    };
    upgrade("at level 2", name, 2);
    upgrade("of an unknown printer", unknown, 1);
    upgrade("without a tray-form table", name, 1);
    StoreNumber(printer, TEXT("Forms?"), 2);
    const WCHAR older[] = TEXT("Upper\0A4\0A4\0Lower\0Letter\0\0");
    StoreTrayForms(printer, {older, std::size(older)});
    upgrade("with an older tray-form table", name, 1);
    upgrade("with a current tray-form table", name, 1);
    StoreTrayForms(printer, {older, std::size(older) - 2});
    upgrade("with a tray-form table cut short", name, 1);
    return text;
}

// The description's cache file: its size and a checksum (FNV-1a) of its bytes, the letter case of
// the paths in it left aside.
std::string CacheFile(const std::filesystem::path& path) {
    std::ifstream file(path, std::ios::binary);
    uint64_t checksum = 0xCBF29CE484222325;
    size_t size = 0;
    for (char byte = 0; file.get(byte); ++size) {
        checksum = (checksum ^ BYTE(std::tolower(BYTE(byte)))) * 0x100000001B3;
    }
    return "cache file: " + std::to_string(size) + " bytes, checksum " + std::to_string(checksum) +
           "\n";
}

// What a control of one of the driver's window classes draws, one character a pixel.
std::string Picture(const char* what, LPCWSTR className, DWORD style, LPCWSTR creationText,
                    int width, int height, void (*act)(HWND control) = nullptr) {
    WNDCLASSW record{};
    record.lpfnWndProc = DefWindowProcW;
    record.lpszClassName = TEXT("KSFAX answers");
    record.hbrBackground = reinterpret_cast<HBRUSH>(uintptr_t{COLOR_WINDOW + 1});
    RegisterClassW(&record);
    const HWND parent = CreateWindowExW(0, record.lpszClassName, nullptr, WS_POPUP | WS_VISIBLE,
                                        200, 100, 100, 80, nullptr, nullptr, nullptr, nullptr);
    UpdateWindow(parent);
    const HWND control = CreateWindowExW(0, className, creationText, WS_CHILD | WS_VISIBLE | style,
                                         0, 0, width, height, parent, nullptr, nullptr, nullptr);
    if (act != nullptr) {
        act(control);
    }
    UpdateWindow(control);
    const HDC context = GetDC(control);
    std::string text = std::string(what) + "\n";
    for (int y = 0; y < height; ++y) {
        text += "    ";
        for (int x = 0; x < width; ++x) {
            const COLORREF color = GetPixel(context, x, y);
            const auto* found =
                std::find_if(std::begin(kSystemColors), std::end(kSystemColors),
                             [&](const SystemColor& one) { return one.color == color; });
            text += found != std::end(kSystemColors) ? found->letter
                    : color == RGB(255, 255, 255)    ? 'H'
                                                     : '?';
        }
        text += '\n';
    }
    ReleaseDC(control, context);
    SendMessageW(control, WM_CANCELMODE, 0, 0);
    DestroyWindow(parent);
    UnregisterClassW(record.lpszClassName, nullptr);
    return text;
}

void Point(HWND control, UINT message, int x, int y) {
    SendMessageW(control, message, 0, MAKELPARAM(x, y));
}

std::string Controls() {
    using namespace ksfax;
    std::string text;
    for (const DWORD vertical : {DWORD{0}, SPINS_VERTICAL}) {
        const auto add = [&](const char* what, int width, int height, void (*act)(HWND)) {
            text += Picture(what, kSpinClassName, vertical, nullptr, width, height, act);
        };
        add("spin of odd size", 24, 13, nullptr);
        add("smallest spin", 3, 2, nullptr);
        add("disabled", 19, 26, [](HWND control) { EnableWindow(control, FALSE); });
        add("first half pressed", 19, 26,
            [](HWND control) { Point(control, WM_LBUTTONDOWN, 2, 2); });
        add("pointer gone", 19, 26, [](HWND control) {
            Point(control, WM_LBUTTONDOWN, 17, 24);
            Point(control, WM_MOUSEMOVE, -5, 50);
        });
        add("own colours", 19, 26, [](HWND control) {
            SendMessageW(control, SPIN_SETCOLOR, 0, kSystemColors[2].color);
            SendMessageW(control, SPIN_SETCOLOR, 4, kSystemColors[0].color);
        });
    }
    for (const DWORD raised : {DWORD{0}, PANELS_RAISED}) {
        const auto add = [&](const char* what, DWORD style, LPCWSTR bevel, int width, int height) {
            text += Picture(what, kPanelClassName, raised | style, bevel, width, height);
        };
        add("bare panel", 0, nullptr, 12, 9);
        add("framed", PANELS_FRAMED, TEXT("1,0,0"), 12, 9);
        add("framed and filled", PANELS_FILLED | PANELS_FRAMED, TEXT("2,0,0"), 16, 11);
        add("without room", PANELS_FILLED | PANELS_FRAMED, TEXT("9,0,0"), 10, 7);
        add("captioned", PANELS_CAPTIONED, TEXT("2,0,0"), 20, 15);
        add("captioned and filled", PANELS_CAPTIONED | PANELS_FILLED, TEXT("2,0,0"), 20, 15);
    }
    return text;
}

}  // namespace

DEVMODEW PrinterDefaults() {
    DEVMODEW record = {};
    record.dmSpecVersion = 0x0401;
    record.dmDriverVersion = 0x0104;
    record.dmSize = sizeof record;
    record.dmFields = DM_PAPERSIZE;
    record.dmPaperSize = DMPAPER_LETTER;
    return record;
}

std::vector<Part> All(Home& home) {
    const EntryPoints& driver = home.driver;
    return {
        {"capabilities.txt", Capabilities(driver, home.printer)},
        {"conversions.txt", Conversions(driver)},
        {"print_queries.txt",
         PrintQueries(driver, home.printer) + Confirmations(driver, home.printer)},
        {"stored_state.txt", StoredState(driver, home.printer)},
        {"controls.txt", Controls()},
        {"fax_jobs.txt", FaxJobs(home)},
        {"cache_file.txt", CacheFile(home.cacheFile)},
    };
}

}  // namespace answers
