#include <algorithm>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <functional>
#include <map>
#include <sstream>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "platform/embedded/files.h"
#include "platform/embedded/machine.h"
#include "platform/embedded/modules.h"
#include "platform/owned.h"

#include "faxjob/companion.h"

namespace ksfax {
namespace {

namespace fs = std::filesystem;

const HANDLE kPrinter = reinterpret_cast<HANDLE>(0x12C1F40);
constexpr WCHAR kPrinterBlock[] = TEXT("12c1f40CVP");

// What the companion module was asked and what it answers.
struct Companion {
    int dialCalls = 0;
    int coverCalls = 0;
    DialModuleRecord dialRecord;
    DialModuleRecord coverRecord;
    INT_PTR answer = 1;
    std::function<void()> duringDialog = [] {};
};
Companion companion;

INT_PTR Dial(DialModuleRecord* record) {
    ++companion.dialCalls;
    companion.dialRecord = *record;
    companion.duringDialog();
    return companion.answer;
}

INT_PTR MakeCover(DialModuleRecord* record) {
    ++companion.coverCalls;
    companion.coverRecord = *record;
    return 0;
}

using Ini = std::map<std::string, std::string>;  // "SECTION/KEY" to value

class DocumentEvent : public testing::Test {
  protected:
    DocumentEvent() {
        companion = Companion();
        InstallCompanion({{KSFAX_DIAL_OPERATION, platform::FunctionCast<FARPROC>(Dial)},
                          {KSFAX_COVER_OPERATION, platform::FunctionCast<FARPROC>(MakeCover)}});
        fs::create_directories(folder());
    }

    fs::path folder() const { return machine.driveC() / "Fax"; }
    fs::path iniFile() const { return machine.driveC() / "Windows" / "KSFAXJOB.INI"; }

    void InstallCompanion(std::map<std::string, FARPROC> exports) {
        machine.modules().Install({.path = TEXT("C:\\Windows\\System32\\KSFAXDLG.DLL"),
                                   .exports = std::move(exports),
                                   .resources = {}});
    }

    void WriteIni(const std::string& text) { WriteFile(iniFile(), text); }

    static void WriteFile(const fs::path& path, const std::string& text) {
        std::ofstream(path, std::ios::binary) << text;
    }

    static std::string ReadFile(const fs::path& path) {
        std::ifstream stream(path, std::ios::binary);
        std::stringstream text;
        text << stream.rdbuf();
        return text.str();
    }

    static Ini ReadIni(const fs::path& path) {
        Ini ini;
        std::istringstream lines(ReadFile(path));
        std::string line, section;
        while (std::getline(lines, line)) {
            line.erase(std::remove(line.begin(), line.end(), '\r'), line.end());
            if (line.starts_with("[")) {
                section = line.substr(1, line.find(']') - 1);
            } else if (const size_t equals = line.find('='); equals != std::string::npos) {
                ini[section + "/" + line.substr(0, equals)] = line.substr(equals + 1);
            }
        }
        return ini;
    }
    Ini ReadIni() const { return ReadIni(iniFile()); }

    // The host path of what an INI value names.
    fs::path HostPath(const std::string& path) const {
        return machine.files().HostPath(std::u16string(path.begin(), path.end()));
    }

    std::vector<std::string> FolderNames() const {
        std::vector<std::string> names;
        for (const auto& entry : fs::directory_iterator(folder())) {
            names.push_back(entry.path().filename().string());
        }
        std::sort(names.begin(), names.end());
        return names;
    }

    static int Start(HANDLE printer = kPrinter) { return Event(printer, 5); }
    static int End(HANDLE printer = kPrinter) { return Event(printer, 8); }
    static int Event(HANDLE printer, int code) {
        return DrvDocumentEvent(printer, nullptr, code, 0, nullptr, 0, nullptr);
    }

    static bool BlockExists(LPCWSTR name = kPrinterBlock) {
        HANDLE block = OpenFileMappingW(FILE_MAP_READ, FALSE, name);
        return block != nullptr && CloseHandle(block);
    }

    mutable embedded::Machine machine;
};

TEST_F(DocumentEvent, ReadsTheMaximumNumberOfReceivers) {
    const struct {
        const char* stored;
        unsigned expected;
    } rows[] = {
        {"", 50},
        {"MAXRCVER=49", 50},
        {"MAXRCVER=50", 50},
        {"MAXRCVER=51", 51},
        {"MAXRCVER=999", 999},
        {"MAXRCVER=1000", 50},
        {"MAXRCVER=0", 50},
        {"MAXRCVER=65586", 50},
        {"MAXRCVER=66000", 464},
        {"MAXRCVER=-65000", 50},
        {"MAXRCVER=-1", 50},
        {"MAXRCVER=many", 50},
        {"MAXRCVER=200 faxes", 200},
        {"MAXRCVER=", 50},
        {"maxrcver= 300 ", 300},
    };
    for (const auto& row : rows) {
        WriteIni(std::string("[FAXDRIVER]\r\n") + row.stored + "\r\n");
        EXPECT_EQ(Start(), 1);
        EXPECT_EQ(companion.dialRecord.maximumReceivers, row.expected) << row.stored;
        EXPECT_EQ(companion.dialRecord.recordSize, 266);
        EXPECT_EQ(companion.dialRecord.version, 2);
        End();
    }
}

TEST_F(DocumentEvent, LeavesOtherEventsAlone) {
    for (int code : {-1, 0, 2, 3, 4, 6, 7, 9, 10, 11, 12, 13, 0x10005}) {
        EXPECT_EQ(Event(kPrinter, code), 1) << code;
    }
    EXPECT_EQ(companion.dialCalls + companion.coverCalls, 0);
    EXPECT_FALSE(fs::exists(iniFile()));
    EXPECT_EQ(machine.OpenNow(), embedded::Leaks());
}

TEST_F(DocumentEvent, ConfirmsARecordWithThePrivatePart) {
    for (WORD publicSize : {188, 189, 212, 220}) {
        std::vector<BYTE> bytes(publicSize + 8);
        auto* record = reinterpret_cast<DEVMODEW*>(bytes.data());
        record->dmSize = publicSize;
        record->dmDriverExtra = 8;
        DOCEVENT_CREATEDCPRE created = {};
        created.pdm = record;
        DEVMODEW* confirmed = nullptr;
        for (const char* signature : {"\0\0\0\0", "PRIv", "VIRP"}) {
            std::memcpy(bytes.data() + publicSize + 4, signature, 4);
            EXPECT_EQ(DrvDocumentEvent(kPrinter, nullptr, 1, 0, &created, 0, &confirmed), 1);
            EXPECT_EQ(confirmed, nullptr) << publicSize << signature;
        }

        std::memcpy(bytes.data() + publicSize + 4, "PRIV", 4);
        EXPECT_EQ(DrvDocumentEvent(kPrinter, nullptr, 1, 0, &created, 0, nullptr), 1);
        EXPECT_EQ(DrvDocumentEvent(kPrinter, nullptr, 1, 0, &created, 0, &confirmed), 1);
        EXPECT_EQ(confirmed, record) << publicSize;
    }
    DOCEVENT_CREATEDCPRE created = {};
    DEVMODEW* confirmed = nullptr;
    EXPECT_EQ(DrvDocumentEvent(kPrinter, nullptr, 1, 0, &created, 0, &confirmed), 1);
    EXPECT_EQ(DrvDocumentEvent(kPrinter, nullptr, 1, 0, nullptr, 0, &confirmed), 1);
    EXPECT_EQ(confirmed, nullptr);
}

TEST_F(DocumentEvent, TakesOneFaxFromStartToEnd) {
    WriteIni("; kept\r\n[FAXDATA]\r\nDIR=C:\\Fax\r\nCVBMP=old\r\nCVMEMO=old\r\nTEMP=old\r\n"
             "DialFile=old\r\nINIFILE=old\r\n[DIALLIST]\r\nNum=1\r\n");
    companion.duringDialog = [this] {
        const Ini ini = ReadIni();
        EXPECT_EQ(ini.at("FAXDRIVER/CANCEL_PEV"), "1");
        EXPECT_EQ(ini.at("FAXDATA/INIFILE"), "");
    };
    ASSERT_EQ(Start(), 1);
    ASSERT_EQ(companion.dialCalls, 1);

    const Ini ini = ReadIni();
    EXPECT_EQ(ini.at("FAXDRIVER/CANCEL_PEV"), "0");
    for (const char* gone : {"CVBMP", "CVMEMO", "TEMP", "DialFile"}) {
        EXPECT_EQ(ini.count(std::string("FAXDATA/") + gone), 0u) << gone;
    }
    const std::string snapshot = ini.at("FAXDATA/INIFILE");
    ASSERT_EQ(FolderNames().size(), 1u);
    EXPECT_EQ(HostPath(snapshot), folder() / FolderNames()[0]);
    EXPECT_EQ(ReadFile(HostPath(snapshot)), ReadFile(iniFile()));
    EXPECT_TRUE(ReadFile(iniFile()).starts_with("; kept\r\n"));

    // The block: 8 bytes of creating handle, the path in UTF-16, a terminator, nothing else.
    EXPECT_EQ(machine.OpenNow(), (embedded::Leaks{.handles = 1}));
    HANDLE block = OpenFileMappingW(FILE_MAP_READ, FALSE, kPrinterBlock);
    ASSERT_NE(block, nullptr);
    const void* view = MapViewOfFile(block, FILE_MAP_READ, 0, 0, 0);
    ASSERT_NE(view, nullptr);
    const auto* bytes = static_cast<const BYTE*>(view);
    HANDLE creator;
    std::memcpy(&creator, bytes, sizeof creator);
    EXPECT_NE(creator, block);
    const std::u16string expected(snapshot.begin(), snapshot.end());
    EXPECT_EQ(std::memcmp(bytes + 8, expected.c_str(), 2 * expected.size() + 2), 0);
    UnmapViewOfFile(view);
    CloseHandle(block);

    ASSERT_EQ(End(), 1);
    ASSERT_EQ(companion.coverCalls, 1);
    EXPECT_EQ(companion.coverRecord.snapshotPath, snapshot);
    EXPECT_EQ(companion.coverRecord.recordSize, 266);
    EXPECT_EQ(companion.coverRecord.version, 2);
    EXPECT_FALSE(BlockExists());
    EXPECT_EQ(machine.OpenNow(), embedded::Leaks());
    EXPECT_TRUE(fs::exists(HostPath(snapshot)));

    // A second end, and an end without a start, find nothing to do.
    EXPECT_EQ(End(), 1);
    EXPECT_EQ(companion.coverCalls, 1);
}

TEST_F(DocumentEvent, CopiesCoverAndMemoToFilesOfTheJob) {
    WriteFile(folder() / "Logo.bmp", "bitmap");
    WriteFile(folder() / "KSMEMO.TXT", "memo");
    SetFileAttributesW(TEXT("C:\\Fax\\Logo.bmp"), FILE_ATTRIBUTE_READONLY | FILE_ATTRIBUTE_HIDDEN);
    WriteIni("[FAXDATA]\r\nDIR=C:\\Fax\r\n[CVP_STYLE]\r\nIncBmpSW=1\r\n"
             "IncBmpFile=c:\\fax\\LOGO.BMP\r\nCOVERCOMMENT=2\r\n");
    Start();
    const Ini ini = ReadIni();
    const std::string cover = ini.at("FAXDATA/CVBMP");
    const std::string memo = ini.at("FAXDATA/CVMEMO");
    EXPECT_EQ(ReadFile(HostPath(cover)), "bitmap");
    EXPECT_EQ(ReadFile(HostPath(memo)), "memo");
    EXPECT_NE(cover, memo);
    EXPECT_TRUE(cover.starts_with("C:\\Fax\\Kes")) << cover;
    // No mark of the source stays: the copy can be written again.
    const std::u16string copy(cover.begin(), cover.end());
    EXPECT_TRUE(CopyFileW(TEXT("C:\\Fax\\KSMEMO.TXT"), copy.c_str(), FALSE));

    const Ini snapshot = ReadIni(HostPath(ini.at("FAXDATA/INIFILE")));
    EXPECT_EQ(snapshot.at("FAXDATA/CVBMP"), cover);
    EXPECT_EQ(snapshot.at("FAXDATA/CVMEMO"), memo);
    End();
}

TEST_F(DocumentEvent, NamesTheReservedFileWhenASourceIsMissing) {
    WriteIni("[FAXDATA]\r\nDIR=C:\\Fax\r\n[CVP_STYLE]\r\nIncBmpSW=1\r\nCOVERCOMMENT=1\r\n");
    Start();
    const Ini ini = ReadIni();
    EXPECT_EQ(ReadFile(HostPath(ini.at("FAXDATA/CVBMP"))), "");
    EXPECT_TRUE(fs::exists(HostPath(ini.at("FAXDATA/CVBMP"))));
    EXPECT_TRUE(fs::exists(HostPath(ini.at("FAXDATA/CVMEMO"))));
    End();
}

TEST_F(DocumentEvent, RenamesTheDialFilesOfALongList) {
    const struct {
        const char* count;
        unsigned files;
        unsigned renamed;
    } rows[] = {{"100", 1, 0},      {"101", 0, 0},        {"101", 3, 3}, {"250", 3, 3},
                {"1000", 101, 101}, {"4294967295", 2, 2}, {"-1", 1, 1}};
    for (const auto& row : rows) {
        SCOPED_TRACE(std::string(row.count) + " receivers, " + std::to_string(row.files));
        fs::remove_all(folder());
        fs::create_directories(folder());
        for (unsigned n = 1; n <= row.files; ++n) {
            char name[32];
            std::snprintf(name, sizeof name, "Dial%02u.ini", n);
            WriteFile(folder() / name, "part " + std::to_string(n));
        }
        WriteIni(std::string("[FAXDATA]\r\nDIR=C:\\Fax\r\nTEMP=old\r\nDialFile=old\r\n"
                             "[DIALLIST]\r\nNum=") +
                 row.count + "\r\n");
        Start();
        const Ini ini = ReadIni();
        const bool isLong = std::string(row.count) != "100";
        EXPECT_EQ(ini.count("FAXDATA/TEMP"), isLong);
        EXPECT_EQ(ini.count("FAXDATA/DialFile"), isLong);
        if (isLong) {
            const std::string reserved = ini.at("FAXDATA/TEMP");
            const std::string stem = reserved.substr(0, reserved.size() - 4);
            EXPECT_EQ(ini.at("FAXDATA/DialFile"), stem + "_%02d.ini");
            EXPECT_EQ(fs::file_size(HostPath(reserved)), 0u);
            for (unsigned n = 1; n <= row.renamed; ++n) {
                char ending[32];
                std::snprintf(ending, sizeof ending, "_%02u.ini", n);
                EXPECT_EQ(ReadFile(HostPath(stem + ending)), "part " + std::to_string(n));
            }
        }
        unsigned left = 0;
        for (const std::string& name : FolderNames()) {
            left += name.starts_with("Dial");
        }
        EXPECT_EQ(left, row.files - row.renamed);
        End();
    }
}

TEST_F(DocumentEvent, KeepsPercentSignsOfTheFolderName) {
    const fs::path hostile = machine.driveC() / "50%s%n%d";
    fs::create_directories(hostile);
    WriteFile(hostile / "Dial01.ini", "one");
    WriteIni("[FAXDATA]\r\nDIR=C:\\50%s%n%d\r\n[DIALLIST]\r\nNum=101\r\n");
    Start();
    const Ini ini = ReadIni();
    const std::string reserved = ini.at("FAXDATA/TEMP");
    const std::string stem = reserved.substr(0, reserved.size() - 4);
    EXPECT_TRUE(stem.starts_with("C:\\50%s%n%d\\Kes")) << stem;
    EXPECT_EQ(ini.at("FAXDATA/DialFile"), stem + "_%02d.ini");
    EXPECT_EQ(ReadFile(HostPath(stem + "_01.ini")), "one");
    End();
}

TEST_F(DocumentEvent, LeavesOutWhatHasNoName) {
    // A folder that does not exist, one of 259 characters, one over the limit: no name can be
    // reserved in any of them. Keys of the last job must not stand for this one's.
    const std::string missing = "C:\\Nowhere";
    const std::string longest = "C:\\" + std::string(256, 'x');
    const std::string tooLong = "C:\\" + std::string(4000, 'x');
    for (const std::string& folder : {missing, longest, tooLong}) {
        WriteIni("[FAXDATA]\r\nDIR=" + folder +
                 "\r\nCVBMP=old\r\nCVMEMO=old\r\nTEMP=old\r\nDialFile=old\r\n"
                 "[CVP_STYLE]\r\nIncBmpSW=1\r\nCOVERCOMMENT=1\r\n[DIALLIST]\r\nNum=101\r\n");
        EXPECT_EQ(Start(), 1);
        const Ini ini = ReadIni();
        EXPECT_EQ(ini.at("FAXDATA/INIFILE"), "");
        for (const char* gone : {"CVBMP", "CVMEMO", "TEMP", "DialFile"}) {
            EXPECT_EQ(ini.count(std::string("FAXDATA/") + gone), 0u) << gone;
        }
        EXPECT_FALSE(BlockExists());
        EXPECT_EQ(End(), 1);
    }
    EXPECT_EQ(companion.coverCalls, 0);
    EXPECT_EQ(machine.OpenNow(), embedded::Leaks());
}

TEST_F(DocumentEvent, RecordsTheDialogsOutcome) {
    const struct {
        const char* what;
        INT_PTR answer;
        const char* cancelled;
    } rows[] = {{"cancelled", 0, "1"},
                {"confirmed", 1, "0"},
                {"negative", -1, "0"},
                {"non-zero in the upper half alone", INT_PTR{1} << 32, "0"}};
    for (const auto& row : rows) {
        WriteIni("[FAXDATA]\r\nDIR=C:\\Fax\r\n");
        companion.answer = row.answer;
        EXPECT_EQ(Start(), 1);
        EXPECT_EQ(ReadIni().at("FAXDRIVER/CANCEL_PEV"), row.cancelled) << row.what;
        EXPECT_NE(ReadIni().at("FAXDATA/INIFILE"), "") << row.what;
        companion.coverCalls = 0;
        End();
        // The cover page of a cancelled job is asked for all the same.
        EXPECT_EQ(companion.coverCalls, 1) << row.what;
    }
}

TEST_F(DocumentEvent, GoesOnWithoutTheCompanionModule) {
    WriteIni("[FAXDATA]\r\nDIR=C:\\Fax\r\n");
    machine.modules().Remove(TEXT("C:\\Windows\\System32\\KSFAXDLG.DLL"));
    for (unsigned value : {0u, 2u, 31u}) {
        if (value != 0) {
            machine.modules().AnswerLoadWith(TEXT("KSFAXDLG.DLL"), value);
        }
        EXPECT_EQ(Start(), 1);
        EXPECT_EQ(ReadIni().at("FAXDRIVER/CANCEL_PEV"), "1");
        EXPECT_NE(ReadIni().at("FAXDATA/INIFILE"), "");
        EXPECT_TRUE(BlockExists());
        EXPECT_EQ(End(), 1);
        EXPECT_FALSE(BlockExists());
    }
    EXPECT_TRUE(machine.messageBoxes.empty());
    EXPECT_EQ(machine.OpenNow(), embedded::Leaks());
}

TEST_F(DocumentEvent, ShowsTheErrorNumberOfAMissingOperation) {
    WriteIni("[FAXDATA]\r\nDIR=C:\\Fax\r\n");
    InstallCompanion({});
    EXPECT_EQ(Start(), 1);
    ASSERT_EQ(machine.messageBoxes.size(), 1u);
    EXPECT_EQ(machine.messageBoxes[0].caption, TEXT("ERROR1"));
    EXPECT_EQ(machine.messageBoxes[0].text, TEXT("127"));
    EXPECT_EQ(machine.messageBoxes[0].type, MB_OK);
    EXPECT_EQ(ReadIni().at("FAXDRIVER/CANCEL_PEV"), "1");
    EXPECT_TRUE(BlockExists());
    EXPECT_EQ(End(), 1);
    ASSERT_EQ(machine.messageBoxes.size(), 2u);
    EXPECT_EQ(machine.messageBoxes[1].text, TEXT("127"));
    EXPECT_FALSE(BlockExists());
    EXPECT_EQ(machine.OpenNow(), embedded::Leaks());
}

TEST_F(DocumentEvent, KeepsDocumentsOnTwoPrinterHandlesApart) {
    // Only the low 32 bits of a handle name its block.
    const HANDLE other = reinterpret_cast<HANDLE>(0x7700000000ABCDEF);
    WriteIni("[FAXDATA]\r\nDIR=C:\\Fax\r\n");
    Start();
    const std::string first = ReadIni().at("FAXDATA/INIFILE");
    Start(other);
    const std::string second = ReadIni().at("FAXDATA/INIFILE");
    EXPECT_NE(first, second);
    EXPECT_TRUE(BlockExists(TEXT("abcdefCVP")));
    End();
    EXPECT_EQ(companion.coverRecord.snapshotPath, first);
    EXPECT_FALSE(BlockExists());
    End(other);
    EXPECT_EQ(companion.coverRecord.snapshotPath, second);
    EXPECT_EQ(machine.OpenNow(), embedded::Leaks());
}

TEST_F(DocumentEvent, OverwritesTheBlockOfADocumentThatNeverEnded) {
    WriteIni("[FAXDATA]\r\nDIR=C:\\Fax\r\n");
    Start();
    Start();
    const std::string last = ReadIni().at("FAXDATA/INIFILE");
    End();
    EXPECT_EQ(companion.coverRecord.snapshotPath, last);
    // The first document's handle stays open until the process ends.
    EXPECT_EQ(machine.OpenNow(), (embedded::Leaks{.handles = 1}));
}

TEST_F(DocumentEvent, GoesOnWhereFilesCannotBeMadeOrRenamed) {
    const std::string keys =
        "[CVP_STYLE]\r\nIncBmpSW=0\r\nCOVERCOMMENT=0\r\n[DIALLIST]\r\nNum=0\r\n";
    machine.files().MakeReadOnly(TEXT("C:\\Fax"));
    WriteIni("[FAXDATA]\r\nDIR=C:\\Fax\r\n" + keys);
    EXPECT_EQ(Start(), 1);
    EXPECT_EQ(ReadIni().at("FAXDATA/INIFILE"), "");
    EXPECT_FALSE(BlockExists());
    machine.files().MakeReadOnly(TEXT("C:\\Fax"), false);

    // Without a folder no name can be reserved either.
    WriteIni(keys);
    EXPECT_EQ(Start(), 1);
    EXPECT_EQ(ReadIni().at("FAXDATA/INIFILE"), "");
    EXPECT_FALSE(BlockExists());

    // The first part that cannot be renamed ends the renaming.
    WriteFile(folder() / "Dial01.ini", "one");
    WriteFile(folder() / "Dial03.ini", "three");
    WriteIni("[FAXDATA]\r\nDIR=C:\\Fax\r\n[DIALLIST]\r\nNum=300\r\n");
    Start();
    EXPECT_FALSE(fs::exists(folder() / "Dial01.ini"));
    EXPECT_TRUE(fs::exists(folder() / "Dial03.ini"));
    End();
    EXPECT_EQ(machine.OpenNow(), embedded::Leaks());
}

TEST_F(DocumentEvent, CallsForACoverPageOfNoPathWhenTheBlockCannotBeSeen) {
    WriteIni("[FAXDATA]\r\nDIR=C:\\Fax\r\n");
    Start();
    machine.faults.FailCall("MapViewOfFile");
    EXPECT_EQ(End(), 1);
    EXPECT_EQ(companion.coverCalls, 1);
    EXPECT_EQ(std::string(companion.coverRecord.snapshotPath), "");
    EXPECT_TRUE(BlockExists());
    End();
    EXPECT_EQ(machine.OpenNow(), embedded::Leaks());
}

// A block that somebody else made under the job's name.
class ForeignBlock : public DocumentEvent {
  protected:
    void Make(DWORD size, const std::vector<BYTE>& content) {
        block_ = CreateFileMappingW(INVALID_HANDLE_VALUE, nullptr, PAGE_READWRITE, 0, size,
                                    kPrinterBlock);
        void* view = MapViewOfFile(block_, FILE_MAP_ALL_ACCESS, 0, 0, 0);
        std::memcpy(view, content.data(), content.size());
        UnmapViewOfFile(view);
    }
    ~ForeignBlock() override { CloseHandle(block_); }

    HANDLE block_ = nullptr;
};

TEST_F(ForeignBlock, IsReadNoFurtherThanItGoes) {
    // A stale creating handle, then a path without terminator to the end of the page.
    std::vector<BYTE> content(4096, 'x');
    for (size_t i = 9; i < content.size(); i += 2) {
        content[i] = 0;
    }
    Make(4096, content);
    EXPECT_EQ(End(), 1);
    EXPECT_EQ(std::string(companion.coverRecord.snapshotPath), std::string(259, 'x'));
    EXPECT_EQ(machine.OpenNow(), (embedded::Leaks{.handles = 1}));
}

TEST_F(ForeignBlock, HandsOnTheFirst259BytesOfADoubleBytePath) {
    block_ = nullptr;
    machine.~Machine();
    new (&machine) embedded::Machine({.driveC = {}, .codePage = 932});
    InstallCompanion({{KSFAX_COVER_OPERATION, platform::FunctionCast<FARPROC>(MakeCover)}});
    std::vector<BYTE> content(8 + 2 * 200);
    for (size_t i = 8; i < content.size(); i += 2) {
        content[i] = 0xE5;  // U+65E5, 93 FA in code page 932
        content[i + 1] = 0x65;
    }
    Make(4096, content);
    EXPECT_EQ(End(), 1);
    std::string expected;
    while (expected.size() < 259) {
        expected += expected.size() % 2 == 0 ? '\x93' : '\xFA';
    }
    EXPECT_EQ(std::string(companion.coverRecord.snapshotPath), expected);
    EXPECT_EQ(companion.coverRecord.snapshotPath[259], 0);
}

TEST_F(ForeignBlock, MayBeSmallerThanItsHead) {
    Make(4, {1, 2, 3, 4});
    EXPECT_EQ(End(), 1);
    EXPECT_EQ(companion.coverCalls, 1);
    EXPECT_STREQ(companion.coverRecord.snapshotPath, "");
}

TEST_F(ForeignBlock, MayLackThePagesThatItReserves) {
    WriteIni("[FAXDATA]\r\nDIR=C:\\Fax\r\n");
    block_ = CreateFileMappingW(INVALID_HANDLE_VALUE, nullptr, PAGE_READWRITE | SEC_RESERVE, 0,
                                4096, kPrinterBlock);
    Start();
    End();
    EXPECT_EQ(companion.coverCalls, 1);
    EXPECT_STREQ(companion.coverRecord.snapshotPath, "");
    EXPECT_EQ(machine.OpenNow(), (embedded::Leaks{.handles = 1}));
}

TEST_F(ForeignBlock, ClosesNoHandleOfAnotherObjectWhereWindowsTellsThemApart) {
    for (const bool tells : {true, false}) {
        HANDLE other =
            CreateFileMappingW(INVALID_HANDLE_VALUE, nullptr, PAGE_READWRITE, 0, 1, nullptr);
        std::vector<BYTE> content(sizeof(HANDLE));
        std::memcpy(content.data(), &other, sizeof(HANDLE));
        if (!tells) {
            machine.modules().Remove(TEXT("C:\\Windows\\System32\\kernelbase.dll"));
            CloseHandle(block_);
        }
        Make(4096, content);
        End();
        EXPECT_EQ(CloseHandle(other), tells);
    }
}

TEST_F(ForeignBlock, TakesThePathWhenItsPageHasRoom) {
    // Made for 6 characters; memory comes in pages, so the path fits all the same.
    WriteIni("[FAXDATA]\r\nDIR=C:\\Fax\r\n");
    Make(20, {0});
    Start();
    End();
    EXPECT_EQ(companion.coverRecord.snapshotPath, ReadIni().at("FAXDATA/INIFILE"));
    EXPECT_EQ(machine.OpenNow(), (embedded::Leaks{.handles = 1}));
}

// Each platform call of a start and an end fails in turn, alone and with all after it: the
// events still succeed and leave nothing open but what a published block leaves.
TEST_F(DocumentEvent, SurvivesTheFailureOfEachPlatformCall) {
    WriteFile(folder() / "Logo.bmp", "bitmap");
    WriteFile(folder() / "KSMEMO.TXT", "memo");
    const auto prepare = [this] {
        WriteFile(folder() / "Dial01.ini", "one");
        WriteIni("[FAXDATA]\r\nDIR=C:\\Fax\r\n[CVP_STYLE]\r\nIncBmpSW=1\r\n"
                 "IncBmpFile=C:\\Fax\\Logo.bmp\r\nCOVERCOMMENT=1\r\n[DIALLIST]\r\nNum=101\r\n");
    };
    prepare();
    machine.faults.Count();
    Start();
    const unsigned startCalls = machine.faults.calls();
    End();
    const unsigned calls = machine.faults.calls();
    machine.faults.Clear();
    ASSERT_GT(startCalls, 20u);
    ASSERT_GT(calls, startCalls + 5);

    for (bool andAllLater : {false, true}) {
        for (unsigned n = 1; n <= calls; ++n) {
            SCOPED_TRACE(std::to_string(n) + (andAllLater ? " and all later" : " alone"));
            prepare();
            const embedded::Leaks before = machine.OpenNow();
            machine.faults.FailNthCall(n, andAllLater);
            EXPECT_EQ(Start(), 1);
            EXPECT_EQ(End(), 1);
            const auto names = machine.faults.names();
            EXPECT_TRUE(machine.faults.struck());
            machine.faults.Clear();
            const std::string& failed = names.at(n - 1);
            // The block stays only where its end could not look into it, and until the next end.
            const auto firstFailed = names.begin() + n - 1;
            const auto lastFailed = andAllLater ? names.end() : firstFailed + 1;
            const bool unreachable =
                BlockExists() && std::any_of(firstFailed, lastFailed, [](const std::string& name) {
                    return name == "OpenFileMappingW" || name == "MapViewOfFile" ||
                           name == "VirtualQuery";
                });
            EXPECT_EQ(BlockExists(), unreachable) << failed;
            EXPECT_EQ(machine.OpenNow().handles, before.handles + unreachable) << failed;
            EXPECT_EQ(End(), 1);
            EXPECT_EQ(machine.OpenNow(), before) << failed;
        }
    }
}

}  // namespace
}  // namespace ksfax
