// The shipped DLL on Windows: documents from start to end through its exported entry point, with
// a companion module of our own and real profile, files and shared memory.

#include <cstring>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "platform/owned.h"
#include "platform/windows_api.h"

#include "tests/windows/box_watcher.h"
#include "tests/windows/companion.h"
#include "tests/windows/replace_import.h"

namespace {

namespace fs = std::filesystem;
using companion::kFaxJobFile;

constexpr WCHAR kCoverName[] = TEXT("our cover.bmp");

std::string ReadBytes(const fs::path& path) {
    std::ifstream file(path, std::ios::binary);
    return {std::istreambuf_iterator<char>(file), {}};
}

fs::path ProgramFolder() {
    WCHAR path[MAX_PATH] = {};
    GetModuleFileNameW(nullptr, path, MAX_PATH);
    return fs::path(path).parent_path();
}

// The size that the DLL asked its shared-memory block to have: Windows tells a block's size in
// whole pages only, so the call is listened to.
DWORD askedBlockSize = 0;

HANDLE WINAPI ListenToCreateFileMapping(HANDLE file, LPSECURITY_ATTRIBUTES security, DWORD protect,
                                        DWORD sizeHigh, DWORD sizeLow, LPCWSTR name) {
    askedBlockSize = sizeLow;
    return CreateFileMappingW(file, security, protect, sizeHigh, sizeLow, name);
}

class WindowsDocument : public testing::Test {
  protected:
    void SetUp() override {
        WCHAR windows[MAX_PATH] = {};
        GetWindowsDirectoryW(windows, MAX_PATH);
        jobFile_ = fs::path(windows) / kFaxJobFile;
        // The percent sign must survive in every name made from the folder's.
        folder_ = fs::temp_directory_path() /
                  (TEXT("fax 100%s ") + std::to_wstring(GetCurrentProcessId()));
        Clear();
        fs::create_directories(folder_);
        module_ =
            platform::LoadedModule(LoadLibraryW((ProgramFolder() / TEXT("KSFAXUI.DLL")).c_str()));
        ASSERT_TRUE(module_);
        documentEvent_ = reinterpret_cast<decltype(&DrvDocumentEvent)>(
            reinterpret_cast<void*>(GetProcAddress(module_.get(), "DrvDocumentEvent")));
        ASSERT_NE(documentEvent_, nullptr);
        UseCompanion(TEXT("companion"));
    }

    void TearDown() override {
        SetDllDirectoryW(nullptr);
        Clear();
    }

    void Clear() {
        ForgetProfile();
        std::error_code ignored;
        fs::remove(jobFile_, ignored);
        SetFileAttributesW((folder_ / kCoverName).c_str(), FILE_ATTRIBUTE_NORMAL);
        fs::remove_all(folder_, ignored);
    }

    // Has the profile service write out and forget what it remembers of the file.
    static void ForgetProfile() {
        WritePrivateProfileStringW(nullptr, nullptr, nullptr, kFaxJobFile);
    }

    // Puts the companion module of that build folder on the library search path.
    static void UseCompanion(const WCHAR* name) {
        ASSERT_TRUE(SetDllDirectoryW((ProgramFolder() / name).c_str()));
    }

    static void Write(const WCHAR* section, const WCHAR* key, const std::wstring& value) {
        ASSERT_TRUE(WritePrivateProfileStringW(section, key, value.c_str(), kFaxJobFile));
    }

    static std::wstring Read(const WCHAR* section, const WCHAR* key) {
        WCHAR value[512] = {};
        GetPrivateProfileStringW(section, key, TEXT("(absent)"), value, 512, kFaxJobFile);
        return value;
    }

    static std::wstring ReadData(const WCHAR* key) { return Read(TEXT("FAXDATA"), key); }

    // The companion's dialog will "ask" for that many receivers.
    void PrepareJob(unsigned receivers, const std::wstring& cover = {}) {
        Write(TEXT("FAXDATA"), TEXT("DIR"), folder_.wstring());
        Write(companion::kSection, companion::kReceivers, std::to_wstring(receivers));
        Write(companion::kSection, companion::kCover, cover);
    }

    int Start(HANDLE printer) {
        return documentEvent_(printer, nullptr, DOCUMENTEVENT_STARTDOC, 0, nullptr, 0, nullptr);
    }
    int End(HANDLE printer) {
        return documentEvent_(printer, nullptr, DOCUMENTEVENT_ENDDOC, 0, nullptr, 0, nullptr);
    }

    fs::path folder_;
    fs::path jobFile_;
    platform::LoadedModule module_;
    decltype(&DrvDocumentEvent) documentEvent_ = nullptr;
    BoxWatcher boxes_;
};

HANDLE PrinterHandle(ULONG_PTR value) {
    return reinterpret_cast<HANDLE>(value);
}

bool BlockExists(const WCHAR* name) {
    return static_cast<bool>(
        platform::NullableHandle(OpenFileMappingW(FILE_MAP_READ, FALSE, name)));
}

// What the block of that name holds: a handle's value, and a path.
struct Block {
    uint64_t creator = 0;
    std::wstring path;
};

Block ReadBlock(const WCHAR* name) {
    platform::NullableHandle handle(OpenFileMappingW(FILE_MAP_READ, FALSE, name));
    platform::MappedView view(handle ? MapViewOfFile(handle.get(), FILE_MAP_READ, 0, 0, 0)
                                     : nullptr);
    Block block;
    if (view) {
        std::memcpy(&block.creator, view.get(), 8);
        block.path = reinterpret_cast<const WCHAR*>(static_cast<const BYTE*>(view.get()) + 8);
    }
    return block;
}

TEST_F(WindowsDocument, CreationConfirmsRecordThatCarriesTheSignature) {
    struct Row {
        const char* what;
        WORD publicSize;
        WORD privateSize;
        const char* signature;
        bool confirmed;
    };
    constexpr Row kRows[] = {
        {"today's public part", 220, 2388, "PRIV", true},
        {"an older, shorter public part", 188, 2388, "PRIV", true},
        {"another driver's private part", 220, 2388, "VIRP", false},
        {"a private part that ends within its signature", 220, 7, "PRIV", false},
    };
    for (const Row& row : kRows) {
        SCOPED_TRACE(row.what);
        std::vector<BYTE> bytes(2608);
        auto* settings = reinterpret_cast<DEVMODEW*>(bytes.data());
        settings->dmSize = row.publicSize;
        settings->dmDriverExtra = row.privateSize;
        std::memcpy(bytes.data() + row.publicSize + 4, row.signature, 4);
        DOCEVENT_CREATEDCPRE created = {nullptr, nullptr, settings, FALSE};
        DEVMODEW* confirmed = nullptr;
        EXPECT_EQ(documentEvent_(PrinterHandle(1), nullptr, DOCUMENTEVENT_CREATEDCPRE,
                                 sizeof created, &created, sizeof confirmed, &confirmed),
                  1);
        EXPECT_EQ(confirmed, row.confirmed ? settings : nullptr);
    }
}

TEST_F(WindowsDocument, CancelledJobStillHasItsSnapshot) {
    PrepareJob(0);
    // Left by an earlier job.
    for (const WCHAR* key : {TEXT("CVBMP"), TEXT("CVMEMO"), TEXT("DialFile"), TEXT("TEMP")}) {
        Write(TEXT("FAXDATA"), key, TEXT("old"));
    }
    EXPECT_EQ(Start(PrinterHandle(0x2C1F40)), 1);

    EXPECT_EQ(Read(TEXT("FAXDRIVER"), TEXT("CANCEL_PEV")), TEXT("1"));
    for (const WCHAR* key : {TEXT("CVBMP"), TEXT("CVMEMO"), TEXT("DialFile"), TEXT("TEMP")}) {
        EXPECT_EQ(ReadData(key), TEXT("(absent)"));
    }
    const fs::path snapshot = ReadData(TEXT("INIFILE"));
    EXPECT_EQ(ReadBlock(TEXT("2c1f40CVP")).path, snapshot.wstring());
    EXPECT_EQ(End(PrinterHandle(0x2C1F40)), 1);
    EXPECT_FALSE(BlockExists(TEXT("2c1f40CVP")));
    EXPECT_TRUE(boxes_.seen().empty());
}

TEST_F(WindowsDocument, ThreeReceiversWithCoverAndMemoGoFromStartToEnd) {
    const fs::path cover = folder_ / kCoverName;
    std::ofstream(cover, std::ios::binary) << "BM, and so on";
    SetFileAttributesW(cover.c_str(), FILE_ATTRIBUTE_READONLY);
    PrepareJob(3, cover);
    Write(TEXT("FAXDRIVER"), TEXT("MAXRCVER"), TEXT("120"));
    ASSERT_TRUE(ReplaceImport(module_.get(), "CreateFileMappingW",
                              reinterpret_cast<void*>(ListenToCreateFileMapping)));
    // The low 32 bits of the handle name the block.
    const HANDLE printer = PrinterHandle(0x7000A2C1F);
    EXPECT_EQ(Start(printer), 1);

    const std::string dialRecord = ReadBytes(folder_ / companion::kDialRecord);
    ASSERT_EQ(dialRecord.size(), 266u);
    EXPECT_EQ(dialRecord.substr(0, 3), std::string("\x0A\x01\x02", 3));
    EXPECT_EQ(dialRecord.substr(264), std::string("\x78\x00", 2));
    const std::string atDialog = ReadBytes(folder_ / companion::kDialProfile);
    EXPECT_NE(atDialog.find("CANCEL_PEV=1\r\n"), std::string::npos) << atDialog;
    EXPECT_NE(atDialog.find("INIFILE=\r\n"), std::string::npos) << atDialog;

    EXPECT_EQ(Read(TEXT("FAXDRIVER"), TEXT("CANCEL_PEV")), TEXT("0"));
    const fs::path coverCopy = ReadData(TEXT("CVBMP"));
    const fs::path memoCopy = ReadData(TEXT("CVMEMO"));
    const fs::path snapshot = ReadData(TEXT("INIFILE"));
    for (const fs::path& file : {coverCopy, memoCopy, snapshot}) {
        EXPECT_EQ(file.parent_path(), folder_);
        EXPECT_EQ(file.filename().wstring().substr(0, 3), TEXT("Kes"));
        EXPECT_EQ(GetFileAttributesW(file.c_str()) & FILE_ATTRIBUTE_READONLY, 0u);
    }
    EXPECT_EQ(ReadBytes(coverCopy), "BM, and so on");
    EXPECT_EQ(ReadBytes(memoCopy), companion::kMemo);
    EXPECT_EQ(ReadData(TEXT("DialFile")), TEXT("(absent)"));
    EXPECT_EQ(ReadData(TEXT("TEMP")), TEXT("(absent)"));
    ForgetProfile();
    EXPECT_EQ(ReadBytes(snapshot), ReadBytes(jobFile_));

    EXPECT_EQ(askedBlockSize, 2 * snapshot.wstring().size() + 10);
    const Block block = ReadBlock(TEXT("a2c1fCVP"));
    EXPECT_EQ(block.path, snapshot.wstring());
    DWORD flags = 0;
    EXPECT_TRUE(GetHandleInformation(PrinterHandle(block.creator), &flags));
    EXPECT_EQ(GetModuleHandleW(TEXT("KSFAXDLG.DLL")), nullptr);

    EXPECT_EQ(End(printer), 1);
    const std::string coverRecord = ReadBytes(folder_ / companion::kCoverRecord);
    ASSERT_EQ(coverRecord.size(), 266u);
    EXPECT_EQ(coverRecord.substr(0, 3), std::string("\x0A\x01\x02", 3));
    EXPECT_EQ(std::string(coverRecord.data() + 3), snapshot.string());
    EXPECT_EQ(coverRecord[262], 0);
    EXPECT_FALSE(BlockExists(TEXT("a2c1fCVP")));
    EXPECT_FALSE(GetHandleInformation(PrinterHandle(block.creator), &flags));
    EXPECT_TRUE(fs::exists(snapshot));

    // Nothing is left to end: the companion is not called again.
    fs::remove(folder_ / companion::kCoverRecord);
    EXPECT_EQ(End(printer), 1);
    EXPECT_FALSE(fs::exists(folder_ / companion::kCoverRecord));
    EXPECT_TRUE(boxes_.seen().empty());
}

TEST_F(WindowsDocument, LongListsDialFilesGetNamesOfTheJob) {
    PrepareJob(101);
    EXPECT_EQ(Start(PrinterHandle(0x2C1F40)), 1);
    const std::wstring reserved = ReadData(TEXT("TEMP"));
    ASSERT_GT(reserved.size(), 4u);
    const std::wstring stem = reserved.substr(0, reserved.size() - 4);
    EXPECT_EQ(ReadData(TEXT("DialFile")), stem + TEXT("_%02d.ini"));
    EXPECT_EQ(fs::file_size(reserved), 0u);

    const std::string first = ReadBytes(stem + TEXT("_01.ini"));
    EXPECT_EQ(first.find("Receiver101="), std::string::npos);
    EXPECT_NE(first.find("Receiver100=05550100\r\n"), std::string::npos);
    EXPECT_EQ(ReadBytes(stem + TEXT("_02.ini")), "[DIALLIST]\r\nReceiver101=05550101\r\n");
    EXPECT_FALSE(fs::exists(folder_ / TEXT("Dial01.ini")));
    EXPECT_FALSE(fs::exists(folder_ / TEXT("Dial02.ini")));
    EXPECT_EQ(End(PrinterHandle(0x2C1F40)), 1);
}

TEST_F(WindowsDocument, TwoDocumentsAtOnceKeepTheirOwnSnapshots) {
    PrepareJob(1);
    EXPECT_EQ(Start(PrinterHandle(0xA1)), 1);
    const fs::path first = ReadData(TEXT("INIFILE"));
    EXPECT_EQ(Start(PrinterHandle(0xB2)), 1);
    const fs::path second = ReadData(TEXT("INIFILE"));
    EXPECT_NE(first, second);
    for (const auto& [printer, snapshot] : {std::pair{0xA1, first}, std::pair{0xB2, second}}) {
        EXPECT_EQ(End(PrinterHandle(printer)), 1);
        EXPECT_EQ(std::string(ReadBytes(folder_ / companion::kCoverRecord).data() + 3),
                  snapshot.string());
    }
    EXPECT_FALSE(BlockExists(TEXT("a1CVP")));
    EXPECT_FALSE(BlockExists(TEXT("b2CVP")));
}

TEST_F(WindowsDocument, MissingCompanionIsSilentAndCancels) {
    UseCompanion(TEXT("no such folder"));
    PrepareJob(3);
    EXPECT_EQ(Start(PrinterHandle(0x2C1F40)), 1);
    EXPECT_EQ(Read(TEXT("FAXDRIVER"), TEXT("CANCEL_PEV")), TEXT("1"));
    EXPECT_TRUE(fs::exists(ReadData(TEXT("INIFILE"))));
    EXPECT_TRUE(BlockExists(TEXT("2c1f40CVP")));
    EXPECT_EQ(End(PrinterHandle(0x2C1F40)), 1);
    EXPECT_FALSE(BlockExists(TEXT("2c1f40CVP")));
    EXPECT_TRUE(boxes_.seen().empty());
}

TEST_F(WindowsDocument, MissingOperationShowsTheErrorNumber) {
    // ERROR_PROC_NOT_FOUND
    const std::vector<SeenBox> expected = {{TEXT("ERROR1"), TEXT("127"), 1, false}};

    UseCompanion(TEXT("companion_without_dialdlg"));
    PrepareJob(3);
    EXPECT_EQ(Start(PrinterHandle(0x2C1F40)), 1);
    EXPECT_EQ(boxes_.seen(), expected);
    EXPECT_EQ(Read(TEXT("FAXDRIVER"), TEXT("CANCEL_PEV")), TEXT("1"));
    EXPECT_EQ(GetModuleHandleW(TEXT("KSFAXDLG.DLL")), nullptr);
    EXPECT_EQ(End(PrinterHandle(0x2C1F40)), 1);
    EXPECT_TRUE(fs::exists(folder_ / companion::kCoverRecord));
    EXPECT_EQ(boxes_.seen(), expected);
}

TEST_F(WindowsDocument, MissingCoverOperationStillRemovesTheBlock) {
    UseCompanion(TEXT("companion_without_makebmp"));
    PrepareJob(3);
    EXPECT_EQ(Start(PrinterHandle(0x2C1F40)), 1);
    EXPECT_EQ(Read(TEXT("FAXDRIVER"), TEXT("CANCEL_PEV")), TEXT("0"));
    EXPECT_TRUE(boxes_.seen().empty());
    EXPECT_EQ(End(PrinterHandle(0x2C1F40)), 1);
    EXPECT_EQ(boxes_.seen(), (std::vector<SeenBox>{{TEXT("ERROR1"), TEXT("127"), 1, false}}));
    EXPECT_FALSE(BlockExists(TEXT("2c1f40CVP")));
}

}  // namespace
