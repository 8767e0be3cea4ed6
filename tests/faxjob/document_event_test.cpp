// Documents from start to end on the embedded machine. What each leaves is told as text and
// compared whole; rules with corners are rows of their own.

#include <algorithm>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <map>
#include <optional>
#include <regex>
#include <set>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "platform/embedded/mapping.h"
#include "platform/embedded/modules.h"
#include "platform/embedded/text.h"
#include "platform/owned.h"

#include "faxjob/companion.h"
#include "tests/faults.h"
#include "tests/golden.h"

namespace ksfax {
namespace {

namespace fs = std::filesystem;

const HANDLE kPrinter = reinterpret_cast<HANDLE>(0x12C1F40);
constexpr WCHAR kBlock[] = TEXT("12c1f40CVP");
constexpr WCHAR kCompanion[] = TEXT("C:\\Windows\\System32\\KSFAXDLG.DLL");

std::string ReadFile(const fs::path& path) {
    std::ifstream stream(path, std::ios::binary);
    return {std::istreambuf_iterator<char>(stream), {}};
}

// The lines of `text` that `other` lacks.
std::string Missing(const std::string& text, const std::string& other, const char* mark) {
    std::string all;
    for (const std::string& line : LinesOf(text)) {
        all += ("\n" + other).find("\n" + line + "\n") == other.npos ? mark + line + "\n" : "";
    }
    return all;
}

fs::path DriveC() {
    return embedded::Machine::Current().driveC();
}
fs::path IniFile() {
    return DriveC() / "Windows" / KSFAX_JOB_FILE;
}
void WriteFile(const fs::path& path, const std::string& text) {
    fs::create_directories((DriveC() / path).parent_path());
    std::ofstream(DriveC() / path, std::ios::binary) << text;
}
// With "\n" for the ends of lines.
void WriteIni(const std::string& text) {
    WriteFile(IniFile(), std::regex_replace(text, std::regex("\n"), "\r\n"));
}
// In whatever section; "" for none.
std::string ReadKey(const std::string& key) {
    std::smatch found;
    const std::string ini = ReadFile(IniFile());
    std::regex_search(ini, found, std::regex("\n" + key + "=(.*)\r\n"));
    return found.str(1);
}

// What the companion module answers to the dialog, was asked, and was given last.
struct Companion {
    INT_PTR answer = 1;
    std::string asked;
    DialModuleRecord record = {};
} companion;

INT_PTR IsAsked(const char* operation, const DialModuleRecord& record) {
    companion.record = record;
    companion.asked += std::string(operation) + ": " + std::to_string(record.recordSize) +
                       " bytes, version " + std::to_string(record.version) + ", at most " +
                       std::to_string(record.maximumReceivers) + ", \"" + record.snapshotPath +
                       "\"; INIFILE=" + ReadKey("INIFILE") +
                       " CANCEL_PEV=" + ReadKey("CANCEL_PEV") + "\n";
    return companion.answer;
}
const auto kDial = platform::FunctionCast<FARPROC>(
    +[](DialModuleRecord* record) { return IsAsked("DialDlg", *record); });
const auto kCover = platform::FunctionCast<FARPROC>(
    +[](DialModuleRecord* record) { return IsAsked("MakeBMP", *record); });

// The job's files by the keys that name them.
std::string WithRoles(std::string text) {
    for (const std::string key : {"CVBMP", "CVMEMO", "TEMP", "INIFILE"}) {
        std::smatch name;
        const std::string path = ReadKey(key);
        if (std::regex_search(path, name, std::regex("Kes[0-9A-F]+"))) {
            text =
                std::regex_replace(text, std::regex(name.str() + "(?![0-9A-F])"), "<" + key + ">");
        }
    }
    return std::regex_replace(text, std::regex("Kes[0-9A-F]+"), "<unnamed>");
}

int Event(HANDLE printer, int code, void* input = nullptr, void* output = nullptr) {
    return DrvDocumentEvent(printer, nullptr, code, 0, input, 0, output);
}
int Start(HANDLE printer = kPrinter) {
    return Event(printer, 5);
}
int End(HANDLE printer = kPrinter) {
    return Event(printer, 8);
}

class DocumentEvent : public testing::Test {
  protected:
    DocumentEvent() { Begin(); }

    // A new machine with the companion module and a fax data folder.
    void Begin(unsigned codePage = 1252) {
        machine.reset();
        machine.emplace(embedded::MachineSetup{.driveC = {}, .codePage = codePage});
        Install("");
        fs::create_directories(DriveC() / "Fax");
        companion = Companion();
    }
    void Install(const std::string& lacking) {
        std::map<std::string, FARPROC> exports = {{"DialDlg", kDial}, {"MakeBMP", kCover}};
        exports.erase(lacking);
        machine->modules().Install({.path = kCompanion, .exports = exports, .resources = {}});
    }
    bool BlockExists() { return machine->mappings().SizeOf(kBlock) != 0; }

    // What a document left.
    std::string Tell() {
        const std::string ini = ReadFile(IniFile());
        std::set<std::string> files;
        for (const auto& file : fs::recursive_directory_iterator(DriveC())) {
            if (file.is_regular_file() && file.path() != IniFile()) {
                const std::string content = ReadFile(file);
                const auto rights = file.status().permissions() & fs::perms::owner_write;
                files.insert(WithRoles(fs::relative(file, DriveC())) +
                             (rights == fs::perms::none ? " (read-only)" : "") + " holds " +
                             (content == ini ? "the fax job file\n" : "\"" + content + "\"\n"));
            }
        }
        std::string text = companion.asked + std::regex_replace(ini, std::regex("\r\n"), "\n");
        for (const std::string& file : files) {
            text += file;
        }
        for (const auto& box : machine->messageBoxes) {
            text += "box: " + embedded::Utf8(box.caption) + " " + embedded::Utf8(box.text) +
                    (box.type == MB_OK ? "\n" : " of another type\n");
        }
        return WithRoles(text);
    }
    std::optional<embedded::Machine> machine;
};

const std::string kIni = "[FAXDATA]\nDIR=C:\\Fax\n";

TEST_F(DocumentEvent, LeavesWhatIsRecorded) {
    const auto run = [&](const std::string& command, const std::string& rest) -> std::string {
        if (command == "ini") {  // of a new machine
            Begin();
            WriteIni(std::regex_replace(rest, std::regex("\\|"), "\n"));
        } else if (command == "file") {
            const size_t space = rest.find(' ');
            WriteFile(rest.substr(0, space), rest.substr(space + 1));
        } else if (command == "lock") {
            fs::permissions(DriveC() / rest, fs::perms::owner_read);
        } else if (command == "lacks") {
            Install(rest);
        } else if (command == "removed") {
            machine->modules().Remove(kCompanion);
        } else if (command == "loads") {
            machine->modules().AnswerLoadWith(TEXT("KSFAXDLG.DLL"), std::stoul(rest));
        } else if (command == "answers") {
            companion.answer = std::stoll(rest);
        } else if (command == "maximum") {
            WriteIni("[FAXDRIVER]\nMAXRCVER=" + rest + "\n");
            EXPECT_EQ(Start(), 1);
            return std::to_string(companion.record.maximumReceivers) + "\n";
        } else {
            EXPECT_EQ(Start(), 1);
            companion.asked +=
                "block: 2 * n + " +
                std::to_string(machine->mappings().SizeOf(kBlock) - 2 * ReadKey("INIFILE").size()) +
                " bytes\n";
            EXPECT_EQ(End(), 1);
            EXPECT_TRUE(machine->OpenNow() == embedded::Leaks() && !BlockExists());
            return Tell();
        }
        return "";
    };
    EXPECT_TRUE(IsReplayed("faxjob/documents.txt", run));
}

// Recorded is what each call that fails alone changes.
TEST_F(DocumentEvent, GoesOnWhateverFails) {
    std::string whole;
    std::string all;
    const auto prepare = [&] {
        fs::remove_all(DriveC() / "Fax");
        for (const char* file : {"Logo.bmp", "KSMEMO.TXT", "Dial01.ini"}) {
            WriteFile(std::string("Fax/") + file, file);
        }
        WriteIni(kIni + "[CVP_STYLE]\nIncBmpSW=1\nIncBmpFile=C:\\Fax\\Logo.bmp\nCOVERCOMMENT=1\n["
                        "DIALLIST]\nNum=101\n");
        companion.asked.clear();
        machine->messageBoxes.clear();
    };
    const auto holds = [&](const FailedCall& failed) {
        const std::string now = Tell();
        if (failed.number == 0) {
            whole = now;
        } else if (!failed.andAllLater) {
            all +=
                "==== " + failed.name + "\n" + Missing(whole, now, "-") + Missing(now, whole, "+");
        }
        EXPECT_EQ(End(), 1);  // a block that its end could not look into stays until the next
        EXPECT_FALSE(BlockExists());
    };
    UnderFaults(*machine, {.prepare = prepare,
                           .act = [] { EXPECT_TRUE(Start() == 1 && End() == 1); },
                           .holds = holds});
    EXPECT_TRUE(IsRecorded("faxjob/documents_under_faults.txt", all));
}

TEST_F(DocumentEvent, LeavesOtherEventsAlone) {
    machine->faults.Count();
    for (int code : {-1, 0, 2, 3, 4, 6, 7, 9, 10, 11, 12, 13, 0x10005}) {
        EXPECT_EQ(Event(kPrinter, code), 1) << code;
    }
    EXPECT_EQ(End(), 1);  // of a document that was never started
    EXPECT_EQ(machine->faults.names(), std::vector<std::string>{"OpenFileMappingW"});
}

TEST_F(DocumentEvent, ConfirmsARecordWithThePrivatePart) {
    for (const WORD extra : {0, 7, 8}) {
        std::vector<char> bytes(220 + extra);
        std::copy_n("....PRIV", extra, bytes.begin() + 220);
        auto* record = reinterpret_cast<DEVMODEW*>(bytes.data());
        record->dmSize = 220;
        record->dmDriverExtra = extra;
        DOCEVENT_CREATEDCPRE created = {nullptr, nullptr, record, FALSE};
        DEVMODEW* confirmed = nullptr;
        EXPECT_EQ(Event(kPrinter, 1, &created, nullptr), 1);
        EXPECT_EQ(Event(kPrinter, 1, &created, &confirmed), 1);
        EXPECT_EQ(confirmed, extra == 8 ? record : nullptr);
        created.pdm = confirmed = nullptr;
        EXPECT_EQ(Event(kPrinter, 1, &created, &confirmed), 1);
        EXPECT_EQ(Event(kPrinter, 1, nullptr, &confirmed), 1);
        EXPECT_EQ(confirmed, nullptr);
    }
}

TEST_F(DocumentEvent, KeepsDocumentsApart) {
    // Only the low 32 bits of a handle name its block.
    const HANDLE other = reinterpret_cast<HANDLE>(0x7700000000ABCDEF);
    WriteIni(kIni);
    Start();
    Start();  // the document before never ended, and its handle stays
    const std::string first = ReadKey("INIFILE");
    Start(other);
    const std::string second = ReadKey("INIFILE");
    EXPECT_NE(machine->mappings().SizeOf(TEXT("abcdefCVP")), 0u);
    End();
    EXPECT_EQ(companion.record.snapshotPath, first);
    End(other);
    EXPECT_EQ(companion.record.snapshotPath, second);
    EXPECT_NE(first, second);
    EXPECT_EQ(machine->OpenNow(), embedded::Leaks{.handles = 1});
}

// A block that somebody else made under the job's name, with a stale handle and a path.
TEST_F(DocumentEvent, TakesOfAForeignBlockWhatIsThere) {
    const std::string doubleByte =
        std::regex_replace(std::string(130, 'x'), std::regex("x"), "\x93\xFA").substr(0, 259);
    const struct {
        const char* what;
        DWORD bytes;
        std::u16string path;
        std::string expected;
        bool isStarted = false;
        DWORD kind = 0;
        unsigned codePage = 1252;
    } rows[] = {
        {"no end", 4096, std::u16string(2044, u'x'), std::string(259, 'x')},
        {"two bytes a character", 4096, std::u16string(200, u'\u65E5'), doubleByte, false, 0, 932},
        {"smaller than its head", 4, u"", ""},
        {"too small, in a page that has room", 20, u"", "(its own)", true},
        {"reserved pages", 4096, u"", "", false, SEC_RESERVE},
        {"reserved pages to publish in", 4096, u"", "", true, SEC_RESERVE},
    };
    for (const auto& row : rows) {
        Begin(row.codePage);
        const platform::NullableHandle block(CreateFileMappingW(
            INVALID_HANDLE_VALUE, nullptr, PAGE_READWRITE | row.kind, 0, row.bytes, kBlock));
        if (!row.path.empty()) {
            platform::MappedView view(MapViewOfFile(block.get(), FILE_MAP_ALL_ACCESS, 0, 0, 0));
            std::memset(view.get(), 'h', 8);
            std::memcpy(static_cast<BYTE*>(view.get()) + 8, row.path.data(), row.path.size() * 2);
        }
        WriteIni(kIni);
        companion.record.snapshotPath[0] = '?';
        if (row.isStarted) {
            Start();
        }
        End();
        EXPECT_EQ(companion.record.snapshotPath,
                  row.expected == "(its own)" ? ReadKey("INIFILE") : row.expected)
            << row.what;
        EXPECT_EQ(machine->OpenNow(), embedded::Leaks{.handles = 1}) << row.what;
    }
}

TEST_F(DocumentEvent, ClosesNoHandleOfAnotherObjectWhereWindowsTellsThemApart) {
    const platform::NullableHandle block(
        CreateFileMappingW(INVALID_HANDLE_VALUE, nullptr, PAGE_READWRITE, 0, 8, kBlock));
    const platform::MappedView view(MapViewOfFile(block.get(), FILE_MAP_ALL_ACCESS, 0, 0, 0));
    for (const bool tells : {true, false}) {
        HANDLE other =
            CreateFileMappingW(INVALID_HANDLE_VALUE, nullptr, PAGE_READWRITE, 0, 1, nullptr);
        std::memcpy(view.get(), &other, sizeof other);
        if (!tells) {
            machine->modules().Remove(TEXT("C:\\Windows\\System32\\kernelbase.dll"));
        }
        End();
        EXPECT_EQ(CloseHandle(other), tells);
    }
    // The value that the driver's own handle of the block is about to have: values go up evenly.
    ULONG_PTR next[2];
    for (ULONG_PTR& value : next) {
        value = reinterpret_cast<ULONG_PTR>(OpenFileMappingW(FILE_MAP_ALL_ACCESS, FALSE, kBlock));
        ASSERT_NE(value, 0u);
    }
    *static_cast<ULONG_PTR*>(view.get()) = 2 * next[1] - next[0];
    machine->faults.Count();
    End();
    EXPECT_EQ(std::ranges::count(machine->faults.names(), "CloseHandle"), 1);
}

}  // namespace
}  // namespace ksfax
