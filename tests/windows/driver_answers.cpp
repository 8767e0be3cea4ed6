#include "tests/windows/driver_answers.h"

#include <algorithm>
#include <cstring>
#include <iterator>
#include <tuple>
#include <utility>
#include <vector>

#include "ui/page_drawing.h"
#include "ui/panel_control.h"
#include "ui/spin_control.h"

namespace answers {

namespace {

constexpr DWORD kRecordBytes = 2608;
constexpr BYTE kUntouched = 0xA5;

std::string Hex(const BYTE* bytes, size_t size) {
    constexpr char kDigits[] = "0123456789ABCDEF";
    constexpr size_t kBytesPerLine = 32;
    std::string text;
    for (size_t at = 0; at < size; ++at) {
        text += at % kBytesPerLine == 0 ? "\n    " : "";
        text += kDigits[bytes[at] >> 4];
        text += kDigits[bytes[at] & 15];
    }
    return text;
}

// A place for output that shows how far it was written.
class Output {
  public:
    explicit Output(size_t size) : bytes_(size, kUntouched) {}
    BYTE* data() { return bytes_.data(); }
    DEVMODEW* record() { return reinterpret_cast<DEVMODEW*>(bytes_.data()); }

    std::string Written() const {
        size_t size = bytes_.size();
        while (size != 0 && bytes_[size - 1] == kUntouched) {
            --size;
        }
        return std::to_string(size) + " bytes written" + Hex(bytes_.data(), size);
    }

  private:
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

// The default record with a paper of that code, and of that length and width in tenths of a
// millimetre when the code is DMPAPER_USER.
Job PaperJob(const EntryPoints& driver, short paper, short length = 0, short width = 0) {
    Job job = DefaultJob(driver);
    job.record()->dmFields |= DM_PAPERSIZE;
    job.record()->dmPaperSize = paper;
    if (length != 0) {
        job.record()->dmFields |= DM_PAPERLENGTH | DM_PAPERWIDTH;
        job.record()->dmPaperLength = length;
        job.record()->dmPaperWidth = width;
    }
    return job;
}

struct NamedJob {
    std::string what;
    Job job;
};

std::vector<NamedJob> Jobs(const EntryPoints& driver) {
    std::vector<NamedJob> jobs;
    jobs.push_back({"the default job", DefaultJob(driver)});
    jobs.push_back({"an A4 job", PaperJob(driver, DMPAPER_A4)});
    jobs.push_back({"a Letter job", PaperJob(driver, DMPAPER_LETTER)});
    jobs.push_back({"a job of a paper that is not there", PaperJob(driver, 77)});
    jobs.push_back({"a job of its own paper size", PaperJob(driver, DMPAPER_USER, 2000, 1500)});

    jobs.push_back({"a job without a paper", DefaultJob(driver)});
    jobs.back().job.record()->dmFields &= ~DM_PAPERSIZE;

    jobs.push_back({"a landscape job of two copies", DefaultJob(driver)});
    DEVMODEW* landscape = jobs.back().job.record();
    landscape->dmFields |= DM_ORIENTATION | DM_COPIES | DM_COLLATE;
    landscape->dmOrientation = DMORIENT_LANDSCAPE;
    landscape->dmCopies = 2;
    landscape->dmCollate = DMCOLLATE_TRUE;

    for (const short quality : {short{100}, short{200}, short{600}, short{-4}}) {
        jobs.push_back({"a job of quality " + std::to_string(quality), DefaultJob(driver)});
        jobs.back().job.record()->dmFields |= DM_PRINTQUALITY;
        jobs.back().job.record()->dmPrintQuality = quality;
    }
    for (const short source : {DMBIN_MANUAL, DMBIN_ENVMANUAL, DMBIN_AUTO, DMBIN_FORMSOURCE}) {
        for (const short paper : {DMPAPER_LETTER, DMPAPER_A4}) {
            jobs.push_back({"a job of paper " + std::to_string(paper) + " from source " +
                                std::to_string(source),
                            PaperJob(driver, paper)});
            jobs.back().job.record()->dmFields |= DM_DEFAULTSOURCE;
            jobs.back().job.record()->dmDefaultSource = source;
        }
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
            size = publicSize + privateSize;
            ask(row.what + " to " + std::to_string(size) + " bytes", known, row.job.record(),
                target.record(), &size, CDM_CONVERT);
            text += Hex(target.bytes.data(), target.bytes.size()) + "\n";
        }
    }
    return text;
}

std::string PrintQueries(const EntryPoints& driver, HANDLE printer) {
    std::string text;
    // The job by value: the query may name its form in it.
    const auto ask = [&](const std::string& what, Job job, DWORD room) {
        Output refusal(1024);
        DEVQUERYPRINT_INFO query = {};
        query.cbSize = sizeof query;
        query.Level = 1;
        query.hPrinter = printer;
        query.pDevMode = job.bytes.empty() ? nullptr : job.record();
        query.pszErrorStr = reinterpret_cast<LPWSTR>(refusal.data());
        query.cchErrorStr = room;
        const BOOL prints = driver.queryPrint(&query);
        text += what + ": " + std::to_string(prints) + ", needed " +
                std::to_string(query.cchNeeded) + ", " + refusal.Written() + "\n  job " +
                Hex(job.bytes.data(), job.bytes.size()) + "\n";
    };
    ask("no job settings", {}, 500);
    for (const NamedJob& row : Jobs(driver)) {
        ask(row.what, row.job, 500);
        ask(row.what + " with little room", row.job, 10);
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

// What the two window classes draw, one character a pixel.
class ControlPictures {
  public:
    ControlPictures() {
        WNDCLASSW record{};
        record.lpfnWndProc = DefWindowProcW;
        record.lpszClassName = kParentClass;
        record.hbrBackground = reinterpret_cast<HBRUSH>(uintptr_t{COLOR_WINDOW + 1});
        RegisterClassW(&record);
        parent_ = CreateWindowExW(0, kParentClass, nullptr, WS_POPUP | WS_VISIBLE, 200, 100, 100,
                                  80, nullptr, nullptr, nullptr, nullptr);
        UpdateWindow(parent_);
    }
    ~ControlPictures() {
        DestroyWindow(parent_);
        UnregisterClassW(kParentClass, nullptr);
    }
    ControlPictures(const ControlPictures&) = delete;
    ControlPictures& operator=(const ControlPictures&) = delete;

    using Act = void (*)(HWND control);
    void Show(const char* what, LPCWSTR className, DWORD style, LPCWSTR creationText, int width,
              int height, Act act = nullptr) {
        const HWND control =
            CreateWindowExW(0, className, creationText, WS_CHILD | WS_VISIBLE | style, 0, 0, width,
                            height, parent_, nullptr, nullptr, nullptr);
        text += what;
        text += IsWindow(control) ? "\n" : " cannot be made\n";
        if (act != nullptr) {
            act(control);
        }
        UpdateWindow(control);
        const HDC context = GetDC(control);
        for (int y = 0; y < height; ++y) {
            text += "    ";
            for (int x = 0; x < width; ++x) {
                text += LetterOf(GetPixel(context, x, y));
            }
            text += '\n';
        }
        ReleaseDC(control, context);
        SendMessageW(control, WM_CANCELMODE, 0, 0);
        DestroyWindow(control);
        // The next one shall find the bare parent.
        InvalidateRect(parent_, nullptr, TRUE);
        UpdateWindow(parent_);
    }

    std::string text;

  private:
    static char LetterOf(COLORREF color) {
        const auto found = std::find_if(std::begin(kSystemColors), std::end(kSystemColors),
                                        [&](const SystemColor& one) { return one.color == color; });
        return found != std::end(kSystemColors) ? found->letter : color == kLight ? 'H' : '?';
    }

    static constexpr WCHAR kParentClass[] = TEXT("KSFAX answers");
    static constexpr COLORREF kLight = RGB(255, 255, 255);
    HWND parent_;
};

void Point(HWND control, UINT message, int x, int y) {
    SendMessageW(control, message, 0, MAKELPARAM(x, y));
}

std::string Controls() {
    using namespace ksfax;
    ControlPictures pictures;
    for (const DWORD vertical : {DWORD{0}, SPINS_VERTICAL}) {
        pictures.Show("spin", kSpinClassName, vertical, nullptr, 19, 26);
        pictures.Show("spin of odd size", kSpinClassName, vertical, nullptr, 24, 13);
        pictures.Show("smallest spin", kSpinClassName, vertical, nullptr, 3, 2);
        pictures.Show("disabled", kSpinClassName, vertical, nullptr, 19, 26,
                      [](HWND control) { EnableWindow(control, FALSE); });
        pictures.Show("first half pressed", kSpinClassName, vertical, nullptr, 19, 26,
                      [](HWND control) { Point(control, WM_LBUTTONDOWN, 2, 2); });
        pictures.Show("second half pressed", kSpinClassName, vertical, nullptr, 19, 26,
                      [](HWND control) { Point(control, WM_LBUTTONDOWN, 17, 24); });
        pictures.Show("pointer gone", kSpinClassName, vertical, nullptr, 19, 26, [](HWND control) {
            Point(control, WM_LBUTTONDOWN, 2, 2);
            Point(control, WM_MOUSEMOVE, -5, 50);
        });
        pictures.Show("own colours", kSpinClassName, vertical, nullptr, 19, 26, [](HWND control) {
            SendMessageW(control, SPIN_SETCOLOR, 0, kSystemColors[2].color);
            SendMessageW(control, SPIN_SETCOLOR, 4, kSystemColors[0].color);
        });
    }
    for (const DWORD raised : {DWORD{0}, PANELS_RAISED}) {
        pictures.Show("bare panel", kPanelClassName, raised, nullptr, 12, 9);
        pictures.Show("bevel of 2", kPanelClassName, raised, TEXT("2,0,0"), 12, 9);
        pictures.Show("framed", kPanelClassName, raised | PANELS_FRAMED, TEXT("1,0,0"), 12, 9);
        pictures.Show("filled", kPanelClassName, raised | PANELS_FILLED, TEXT("3,0,0"), 16, 11);
        pictures.Show("all", kPanelClassName, raised | PANELS_FILLED | PANELS_FRAMED, TEXT("2,0,0"),
                      16, 11);
        pictures.Show("no room", kPanelClassName, raised | PANELS_FILLED, TEXT("9,0,0"), 10, 7);
        pictures.Show("framed without room", kPanelClassName, raised | PANELS_FRAMED, TEXT("9,0,0"),
                      10, 7);
        for (const DWORD more : {DWORD{0}, PANELS_FRAMED, PANELS_FILLED}) {
            pictures.Show("captioned", kPanelClassName, raised | PANELS_CAPTIONED | more,
                          TEXT("2,0,0"), 20, 15);
        }
    }
    return pictures.text;
}

// What becomes of a pattern under a bitmap without its key colour, and of the bitmap.
std::string TransparentDrawing() {
    constexpr COLORREF kKey = RGB(255, 0, 255);
    constexpr COLORREF kBitmap[] = {
        kKey, RGB(254, 0, 255), 0,    RGB(255, 255, 255), kKey, kKey, RGB(1, 2, 3), kKey,
        0,    RGB(200, 9, 90),  kKey, RGB(0, 255, 0),
    };
    const HDC context = CreateCompatibleDC(nullptr);
    const HBITMAP bitmap = CreateBitmap(4, 3, 1, 32, nullptr);
    const HBITMAP canvas = CreateBitmap(6, 5, 1, 32, nullptr);
    const HGDIOBJ before = SelectObject(context, bitmap);
    for (int at = 0; at < 4 * 3; ++at) {
        SetPixel(context, at % 4, at / 4, kBitmap[at]);
    }
    SelectObject(context, canvas);
    for (int at = 0; at < 6 * 5; ++at) {
        SetPixel(context, at % 6, at / 6, RGB(40 * (at % 6), 60 * (at / 6), 85 * (at % 4)));
    }
    ksfax::DrawTransparentBitmap(context, bitmap, 1, 1, kKey);
    std::string text = "transparent drawing";
    for (const auto& [drawn, width, height] : {std::tuple(canvas, 6, 5), {bitmap, 4, 3}}) {
        SelectObject(context, drawn);
        for (int y = 0; y < height; ++y) {
            std::vector<COLORREF> row;
            for (int x = 0; x < width; ++x) {
                row.push_back(GetPixel(context, x, y));
            }
            text += Hex(reinterpret_cast<const BYTE*>(row.data()), row.size() * sizeof row[0]);
        }
    }
    SelectObject(context, before);
    DeleteDC(context);
    DeleteObject(canvas);
    DeleteObject(bitmap);
    return text + "\n";
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

std::vector<Part> All(const EntryPoints& driver, HANDLE printer) {
    return {
        {"capabilities.txt", Capabilities(driver, printer)},
        {"conversions.txt", Conversions(driver)},
        {"print_queries.txt", PrintQueries(driver, printer)},
        {"stored_state.txt", StoredState(driver, printer)},
        {"controls.txt", Controls() + TransparentDrawing()},
    };
}

}  // namespace answers
