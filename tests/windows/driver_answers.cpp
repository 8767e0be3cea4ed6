#include "tests/windows/driver_answers.h"

#include <algorithm>
#include <cctype>
#include <fstream>
#include <iterator>
#include <sstream>
#include <vector>

#include "tests/golden.h"
#include "tool/record_fields.h"
#include "ui/panel_control.h"
#include "ui/spin_control.h"

namespace answers {

namespace {

using Bytes = std::vector<BYTE>;

constexpr DWORD kRecordBytes = 2608;
constexpr BYTE kUntouched = 0xA5;

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
std::string Hex(const Bytes& bytes, size_t size) {
    constexpr size_t kBytesPerLine = 32;
    std::string text = std::to_string(size) + " bytes";
    for (size_t at = 0; at < size; at += kBytesPerLine) {
        const size_t width = std::min(size - at, kBytesPerLine);
        if (std::any_of(&bytes[at], &bytes[at] + width, [](BYTE byte) { return byte != 0; })) {
            text += "\n" + std::to_string(at) + ": " + Digits(&bytes[at], width);
        }
    }
    return text;
}

// How far a place for output was written.
size_t Written(const Bytes& bytes) {
    return bytes.rend() -
           std::find_if(bytes.rbegin(), bytes.rend(), [](BYTE byte) { return byte != kUntouched; });
}

DEVMODEW* RecordIn(Bytes& bytes) {
    return bytes.empty() ? nullptr : reinterpret_cast<DEVMODEW*>(bytes.data());
}

// Where a record with public and private parts of those sizes has a field; null without room.
BYTE* PlaceOf(const tool::RecordField& field, Bytes& bytes, size_t publicSize, size_t privateSize) {
    const bool isPublic = field.part == tool::RecordPart::Public;
    const bool isThere = field.part != tool::RecordPart::Device &&
                         field.offset + field.width <= (isPublic ? publicSize : privateSize);
    return isThere ? &bytes[field.offset + (isPublic ? 0 : publicSize)] : nullptr;
}

// The fields in which a record differs from another of this driver, by the offsets of its own
// version of the public part; a field that it has no room for is none.
std::string Differences(Bytes bytes, Bytes from) {
    const DEVMODEW& record = *RecordIn(bytes);
    std::string text;
    for (const tool::RecordField& field : tool::kRecordFields) {
        const BYTE* here = PlaceOf(field, bytes, record.dmSize, record.dmDriverExtra);
        const BYTE* there = PlaceOf(field, from, sizeof(DEVMODEW), kRecordBytes);
        if (here != nullptr && !std::equal(here, here + field.width, there)) {
            size_t width = field.width;
            while (width > 1 && here[width - 1] == 0) {
                --width;
            }
            text += "\n" + std::string(field.name) + " " + Digits(here, width);
        }
    }
    return text.empty() ? "\nas by default" : text;
}

// What a control of one of the driver's window classes draws, one character a pixel, after the
// messages "NUMBER WPARAM LPARAM": "spin STYLE WIDTH HEIGHT TEXT [MESSAGE]...", "-" for no text.
std::string Picture(LPCWSTR className, std::istream& words) {
    DWORD style;
    int width, height;
    std::string text, number;
    words >> std::hex >> style >> std::dec >> width >> height >> text;
    const Text caption(text.begin(), text.end());
    WNDCLASSW record{};
    record.lpfnWndProc = DefWindowProcW;
    record.lpszClassName = TEXT("KSFAX answers");
    record.hbrBackground = reinterpret_cast<HBRUSH>(uintptr_t{COLOR_WINDOW + 1});
    RegisterClassW(&record);
    const HWND parent = CreateWindowExW(0, record.lpszClassName, nullptr, WS_POPUP | WS_VISIBLE,
                                        200, 100, 100, 80, nullptr, nullptr, nullptr, nullptr);
    UpdateWindow(parent);
    const HWND control = CreateWindowExW(0, className, text == "-" ? nullptr : caption.c_str(),
                                         WS_CHILD | WS_VISIBLE | style, 0, 0, width, height, parent,
                                         nullptr, nullptr, nullptr);
    for (UINT message, wParam, lParam; words >> std::hex >> message >> wParam >> lParam;) {
        SendMessageW(control, message, wParam, lParam);
    }
    UpdateWindow(control);
    const HDC context = GetDC(control);
    std::string picture;
    for (int y = 0; y < height; ++y) {
        for (int x = 0; x < width; ++x) {
            const COLORREF color = GetPixel(context, x, y);
            const auto* found = std::ranges::find(kSystemColors, color, &SystemColor::color);
            picture += found != std::end(kSystemColors) ? found->letter
                       : color == RGB(255, 255, 255)    ? 'H'
                                                        : '?';
        }
        picture += '\n';
    }
    ReleaseDC(control, context);
    SendMessageW(control, WM_CANCELMODE, 0, 0);
    DestroyWindow(parent);
    UnregisterClassW(record.lpszClassName, nullptr);
    return picture;
}

class Answers {
  public:
    explicit Answers(Home& home) : home_(home) {
        LONG size = kRecordBytes;
        home.driver.convertDevMode(name_, nullptr, RecordIn(default_), &size, CDM_DRIVER_DEFAULT);
    }

    std::string To(const std::string& question, const std::string& rest) {
        std::istringstream words(rest);
        return question == "job"            ? SetJob(words)
               : question == "capabilities" ? Capabilities(words)
               : question == "convert"      ? Convert(words)
               : question == "context"      ? Context()
               : question == "query"        ? Query(words)
               : question == "event"        ? PrinterEvent(words)
               : question == "upgrade"      ? Upgrade(words)
               : question == "trays"        ? StoreTrays(rest)
               : question == "cache-file"   ? CacheFile()
               : question == "spin"         ? Picture(ksfax::kSpinClassName, words)
               : question == "panel"        ? Picture(ksfax::kPanelClassName, words)
               : question == "fax"          ? FaxJob(home_, rest)
                                            : "no such question";
    }

  private:
    // "job none", "job default" or "job PUBLIC PRIVATE" of zeros; then "FIELD=VALUE"s.
    std::string SetJob(std::istream& words) {
        std::string word;
        words >> word;
        job_ = word == "default" ? default_ : Bytes();
        if (isdigit(BYTE(word[0]))) {
            job_ = Blank(std::stoul(word), words);
        }
        while (words >> word) {
            const size_t equals = word.find('=');
            const auto* field = std::ranges::find(tool::kRecordFields, word.substr(0, equals),
                                                  &tool::RecordField::name);
            const uint32_t value = std::stoll(word.substr(equals + 1), nullptr, 0);
            const DEVMODEW& record = *RecordIn(job_);
            std::copy_n(reinterpret_cast<const BYTE*>(&value), field->width,
                        PlaceOf(*field, job_, record.dmSize, record.dmDriverExtra));
        }
        return "";
    }
    static Bytes Blank(size_t publicSize, std::istream& words) {
        WORD privateSize = 0;
        words >> privateSize;
        Bytes bytes(std::max(sizeof(DEVMODEW), publicSize) + privateSize);
        RecordIn(bytes)->dmSize = static_cast<WORD>(publicSize);
        RecordIn(bytes)->dmDriverExtra = privateSize;
        return bytes;
    }

    std::string Capabilities(std::istream& words) {
        std::string text;
        for (WORD index; words >> index;) {
            Bytes output(16384, kUntouched);
            const auto ask = [&](BYTE* place) {
                return std::to_string(home_.driver.deviceCapabilities(home_.printer, name_, index,
                                                                      place, RecordIn(job_)));
            };
            text += std::to_string(index) + ": " + ask(output.data());
            text += ", without output " + ask(nullptr) + ", " + Hex(output, Written(output)) + "\n";
        }
        return text;
    }

    // "MODE SIZE|none", then "unknown" for another printer's name, "nowhere" for no record, and the
    // two sizes of the blank record that is there.
    std::string Convert(std::istream& words) {
        DWORD mode;
        std::string word;
        words >> mode >> word;
        LONG size = word == "none" ? 0 : std::stol(word);
        LONG* const sizePointer = word == "none" ? nullptr : &size;
        WCHAR unknown[] = TEXT("No Such Fax");
        Bytes record(4096, kUntouched);
        words >> (word = "");
        if (isdigit(BYTE(word[0]))) {
            const Bytes blank = Blank(std::stoul(word), words);
            std::copy_n(blank.begin(), size, record.begin());
        }
        const Bytes before = record;
        SetLastError(NO_ERROR);
        const BOOL done = home_.driver.convertDevMode(
            word == "unknown" ? unknown : name_, RecordIn(job_),
            word == "nowhere" ? nullptr : RecordIn(record), sizePointer, mode);
        const DWORD error = done ? NO_ERROR : GetLastError();
        return std::to_string(done) + ", error " + std::to_string(error) + ", size " +
               std::to_string(size) + ", " +
               (record == before ? "untouched"
                : mode == CDM_DRIVER_DEFAULT
                    ? Hex(record, Written(record))
                    : std::to_string(Written(record)) + " bytes" + Differences(record, default_));
    }

    // Whether a device context takes the record for one of this driver.
    std::string Context() {
        DOCEVENT_CREATEDCPRE created = {nullptr, nullptr, RecordIn(job_), FALSE};
        DEVMODEW* confirmed = nullptr;
        const int result =
            home_.driver.documentEvent(home_.printer, nullptr, DOCUMENTEVENT_CREATEDCPRE,
                                       sizeof created, &created, sizeof confirmed, &confirmed);
        return std::to_string(result) + (confirmed != nullptr && confirmed == RecordIn(job_)
                                             ? ", confirmed"
                                             : ", not confirmed");
    }

    std::string Query(std::istream& words) {
        Bytes refusal(1024, kUntouched);
        Bytes job = job_;  // the query may name its form in it
        DEVQUERYPRINT_INFO query = {};
        words >> query.cchErrorStr;
        query.cbSize = sizeof query;
        query.Level = 1;
        query.hPrinter = home_.printer;
        query.pDevMode = RecordIn(job);
        query.pszErrorStr = reinterpret_cast<LPWSTR>(refusal.data());
        const BOOL prints = home_.driver.queryPrint(&query);
        const Text sentence = Written(refusal) != 0 ? query.pszErrorStr : TEXT("");
        return std::to_string(prints) + ", needed " + std::to_string(query.cchNeeded) + ", " +
               std::to_string(Written(refusal)) +
               " bytes: " + std::string(sentence.begin(), sentence.end()) +
               (job != job_ ? Differences(job, default_) : "");
    }

    std::string PrinterEvent(std::istream& words) {
        HKEY key = nullptr;  // of an older print processor
        RegCreateKeyExW(HKEY_LOCAL_MACHINE, TEXT("SOFTWARE\\kestova\\ksplproc"), 0, nullptr, 0,
                        KEY_ALL_ACCESS, nullptr, &key, nullptr);
        RegCloseKey(key);
        INT event = 0;
        words >> event;
        const BOOL done = home_.driver.printerEvent(name_, event, 0, 0);
        return std::to_string(done) + "\n" + Stored();
    }
    // "LEVEL", and "unknown" for another printer's name.
    std::string Upgrade(std::istream& words) {
        DWORD level = 0;
        std::string printer;
        words >> level >> printer;
        WCHAR unknown[] = TEXT("No Such Fax");
        DRIVER_UPGRADE_INFO_1W information = {};
        information.pPrinterName = printer.empty() ? name_ : unknown;
        SetLastError(NO_ERROR);
        const BOOL done = home_.driver.upgradePrinter(level, reinterpret_cast<BYTE*>(&information));
        // Only wrong arguments and a printer that does not open promise a last error.
        const DWORD error = level != 1 || !printer.empty() ? GetLastError() : NO_ERROR;
        return std::to_string(done) + ", error " + std::to_string(error) + "\n" + Stored();
    }
    // A table of the forms on the printer, "Upper|A4|": with "|" for the ends of texts.
    std::string StoreTrays(const std::string& table) {
        Text stored(table.begin(), table.end());
        std::ranges::replace(stored, TEXT('|'), WCHAR{0});
        DWORD bytes = static_cast<DWORD>(stored.size() * sizeof(WCHAR));
        DWORD version = 2;
        const auto store = [&](Text name, DWORD type, void* data, DWORD size) {
            SetPrinterDataW(home_.printer, name.data(), type, static_cast<BYTE*>(data), size);
        };
        store(TEXT("Forms?"), REG_DWORD, &version, sizeof version);
        store(TEXT("TrayFormSize"), REG_DWORD, &bytes, sizeof bytes);
        store(TEXT("TrayFormTable"), REG_BINARY, stored.data(), bytes);
        return "";
    }
    // What is stored with the printer and in the registry. The forms themselves are not asked for:
    // Wine 8 says that it adds and deletes forms and does neither, so only the embedded machine
    // shows what becomes of them.
    std::string Stored() {
        std::string text;
        for (Text value : {TEXT("PrinterData"), TEXT("PrinterDataSize"), TEXT("TrayFormTable"),
                           TEXT("TrayFormSize"), TEXT("Forms?"), TEXT("UserName")}) {
            Bytes bytes(2048);
            DWORD type = 0, size = 0;
            if (GetPrinterDataW(home_.printer, value.data(), &type, bytes.data(), 2048, &size) ==
                ERROR_SUCCESS) {
                text += std::string(value.begin(), value.end()) + ": type " + std::to_string(type) +
                        ", " + Hex(bytes, size) + "\n";
            }
        }
        for (const Text name : {TEXT("SOFTWARE\\kestova"), TEXT("SOFTWARE\\kestova\\ksplproc"),
                                TEXT("Software\\Microsoft\\Windows\\Help")}) {
            HKEY key = nullptr;
            if (RegOpenKeyExW(HKEY_LOCAL_MACHINE, name.c_str(), 0, KEY_QUERY_VALUE, &key) ==
                ERROR_SUCCESS) {
                RegCloseKey(key);
                text += "key " + std::string(name.begin(), name.end()) + "\n";
            }
        }
        return text;
    }

    // The letter case of the paths in the description's cache file is left aside.
    std::string CacheFile() {
        std::string content = ContentOf(home_.cacheFile);
        std::ranges::transform(content, content.begin(),
                               [](BYTE byte) { return std::tolower(byte); });
        return Summary(content);
    }

    Home& home_;
    WCHAR name_[std::size(kPrinterName)] = TEXT("Answering Fax");
    Bytes default_ = Bytes(kRecordBytes);
    Bytes job_;  // that of the caller
};

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

std::string ContentOf(const std::filesystem::path& file) {
    std::ifstream stream(file, std::ios::binary);
    return {std::istreambuf_iterator<char>(stream), {}};
}

std::string Summary(const std::string& content) {
    uint64_t checksum = 0xCBF29CE484222325;
    for (const char byte : content) {
        checksum = (checksum ^ BYTE(byte)) * 0x100000001B3;
    }
    return std::to_string(content.size()) + " bytes, checksum " + std::to_string(checksum);
}

void AreRecorded(Home& home) {
    Answers answers(home);
    for (const char* file : {"capabilities.txt", "conversions.txt", "print_queries.txt",
                             "stored_state.txt", "controls.txt", "fax_jobs.txt"}) {
        EXPECT_TRUE(IsReplayed(std::string("answers/") + file,
                               [&](const std::string& question, const std::string& rest) {
                                   return answers.To(question, rest);
                               }));
    }
}

}  // namespace answers
