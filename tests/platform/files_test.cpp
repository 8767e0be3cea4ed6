#include <fcntl.h>
#include <fstream>
#include <functional>
#include <sys/file.h>
#include <thread>
#include <unistd.h>

#include <gtest/gtest.h>

#include "platform/embedded/api_kernel.h"
#include "platform/embedded/api_user.h"
#include "platform/embedded/files.h"
#include "platform/embedded/modules.h"
#include "platform/embedded/profiles.h"
#include "platform/owned.h"

namespace embedded {
namespace {

namespace fs = std::filesystem;
using platform::FileHandle;

void Fill(const fs::path& path, std::string_view bytes) {
    std::ofstream(path, std::ios::binary) << bytes;
}

std::string Content(const fs::path& path) {
    std::ifstream file(path, std::ios::binary);
    return {std::istreambuf_iterator<char>(file), {}};
}

FileHandle Open(LPCWSTR path, DWORD access, DWORD sharing = FILE_SHARE_READ | FILE_SHARE_WRITE,
                DWORD disposition = OPEN_EXISTING, DWORD attributes = FILE_ATTRIBUTE_NORMAL) {
    return FileHandle(
        CreateFileW(path, access, sharing, nullptr, disposition, attributes, nullptr));
}

// A folder of the host that goes with it, for machines that come one after the other.
struct TemporaryFolder {
    TemporaryFolder() {
        std::string name = (fs::temp_directory_path() / "files-test-XXXXXX").string();
        path = mkdtemp(name.data());
    }
    ~TemporaryFolder() { fs::remove_all(path); }
    fs::path path;
};

TEST(Paths, AreFoundWithoutLetterCaseTheExactNameFirst) {
    Machine machine;
    const fs::path c = machine.driveC();
    fs::create_directories(c / "Fax Data" / "Jobs");
    fs::create_directories(c / "fax data");
    Fill(c / "Fax Data" / "One.ini", "1");
    Fill(c / "Fax Data" / "ONE.INI", "2");
    Fill(c / "Fax Data" / "\xC3\x84rger.txt", "3");
    const struct {
        const char16_t* machinePath;
        const char* below;
    } rows[] = {
        {u"C:\\Fax Data\\One.ini", "/Fax Data/One.ini"},
        {u"C:\\Fax Data\\ONE.INI", "/Fax Data/ONE.INI"},
        {u"c:/FAX DATA/one.INI", "/Fax Data/ONE.INI"},  // the first in byte order of two
        {u"C:\\Fax Data\\\u00E4RGER.TXT", "/Fax Data/\xC3\x84rger.txt"},
        {u"C:\\FAX data\\JOBS\\..\\one.ini", "/Fax Data/ONE.INI"},
        {u"C:\\..\\..\\windows", "/Windows"},
        {u"\\windows\\.\\New.ini", "/Windows/New.ini"},
        {u"windows\\no\\Way", "/Windows/no/Way"},
        {u"\\\\?\\C:\\windows\\x", "/Windows/x"},
        {u"C:\\", ""},
    };
    for (const auto& row : rows) {
        EXPECT_EQ(machine.files().HostPath(row.machinePath), c.string() + row.below);
    }
    EXPECT_EQ(machine.files().HostPath(u"D:\\x"), "");
    EXPECT_EQ(machine.files().HostPath(u"\\\\server\\share\\x"), "");
    EXPECT_EQ(machine.files().HostPath(u"C:\\a*b"), "");
    EXPECT_EQ(machine.files().HostPath(u"Z:\\"), "/");
    EXPECT_EQ(machine.files().HostPath(u"z:\\USR\\bin"), "/usr/bin");
}

TEST(Paths, HostPathsAreNamedFromTheMachine) {
    Machine machine;
    EXPECT_EQ(machine.files().MachinePath(machine.driveC() / "Windows" / "X.INI"),
              u"C:\\Windows\\X.INI");
    EXPECT_EQ(machine.files().MachinePath(machine.driveC()), u"C:\\");
    EXPECT_EQ(machine.files().MachinePath(machine.driveC().string() + "2/x").substr(0, 3), u"Z:\\");
    EXPECT_EQ(machine.files().MachinePath("/usr/../usr/\xC3\xA4"), u"Z:\\usr\\\u00E4");
    // 260 characters are one too many, as they leave no room for a terminator.
    const std::u16string longest = u"C:\\" + std::u16string(127, u'a') + u'\\';
    fs::create_directory(machine.driveC() / std::string(127, 'a'));
    EXPECT_TRUE(
        Open((longest + std::u16string(259 - 131, u'b')).c_str(), GENERIC_WRITE, 0, CREATE_ALWAYS));
    EXPECT_FALSE(
        Open((longest + std::u16string(260 - 131, u'b')).c_str(), GENERIC_WRITE, 0, CREATE_ALWAYS));
    EXPECT_EQ(GetLastError(), ERROR_PATH_NOT_FOUND);
    WCHAR name[MAX_PATH];
    EXPECT_EQ(GetTempFileNameW(std::u16string(247, u'a').c_str(), u"Kes", 0, name), 0u);
    EXPECT_EQ(GetLastError(), ERROR_BUFFER_OVERFLOW);
}

TEST(Attributes, OutliveTheMachineAndGoWithCopiesAndMoves) {
    const TemporaryFolder folder;
    {
        Machine machine({.driveC = folder.path});
        Fill(folder.path / "file", "content");
        EXPECT_EQ(machine.files().Attributes(u"C:\\file"), FILE_ATTRIBUTE_NORMAL);
        EXPECT_TRUE(SetFileAttributesW(
            u"C:\\file", FILE_ATTRIBUTE_READONLY | FILE_ATTRIBUTE_HIDDEN | FILE_ATTRIBUTE_NORMAL));
        EXPECT_TRUE(SetFileAttributesW(u"C:\\Windows", FILE_ATTRIBUTE_READONLY));
        EXPECT_FALSE(SetFileAttributesW(u"C:\\file", 0x1000));
        EXPECT_EQ(GetLastError(), ERROR_INVALID_PARAMETER);
    }
    Machine machine({.driveC = folder.path});
    constexpr DWORD kBoth = FILE_ATTRIBUTE_READONLY | FILE_ATTRIBUTE_HIDDEN;
    EXPECT_EQ(machine.files().Attributes(u"C:\\file"), kBoth);
    // Of a folder it is a mark alone.
    EXPECT_EQ(machine.files().Attributes(u"C:\\Windows"),
              FILE_ATTRIBUTE_READONLY | FILE_ATTRIBUTE_DIRECTORY);
    EXPECT_TRUE(Open(u"C:\\Windows\\new", GENERIC_WRITE, 0, CREATE_ALWAYS));

    EXPECT_TRUE(CopyFileW(u"C:\\file", u"C:\\copy", FALSE));
    EXPECT_EQ(machine.files().Attributes(u"C:\\copy"), kBoth);
    EXPECT_TRUE(MoveFileW(u"C:\\copy", u"C:\\moved"));
    EXPECT_EQ(machine.files().Attributes(u"C:\\moved"), kBoth);
    EXPECT_TRUE(SetFileAttributesW(u"C:\\moved", FILE_ATTRIBUTE_NORMAL));
    EXPECT_EQ(machine.files().Attributes(u"C:\\moved"), FILE_ATTRIBUTE_NORMAL);
    EXPECT_TRUE(Open(u"C:\\moved", GENERIC_WRITE));
    EXPECT_EQ(machine.files().Attributes(u"C:\\none"), INVALID_FILE_ATTRIBUTES);
}

TEST(Attributes, KeepFilesFromBeingChanged) {
    Machine machine;
    Fill(machine.driveC() / "source", "source");
    const auto denied = [](bool failed) { return failed && GetLastError() == ERROR_ACCESS_DENIED; };
    for (const DWORD attribute : {FILE_ATTRIBUTE_READONLY, FILE_ATTRIBUTE_HIDDEN}) {
        Fill(machine.driveC() / "target", "[A]\r\nk=v\r\n");
        SetFileAttributesW(u"C:\\target", attribute);
        EXPECT_TRUE(denied(!CopyFileW(u"C:\\source", u"C:\\target", FALSE)));
        EXPECT_TRUE(denied(!Open(u"C:\\target", GENERIC_WRITE, 0, CREATE_ALWAYS)));
        EXPECT_EQ(Content(machine.driveC() / "target"), "[A]\r\nk=v\r\n");
        const bool readOnly = attribute == FILE_ATTRIBUTE_READONLY;
        EXPECT_EQ(denied(!Open(u"C:\\target", GENERIC_WRITE)), readOnly);
        EXPECT_EQ(denied(!WritePrivateProfileStringW(u"A", u"k", u"w", u"C:\\target")), readOnly);
        SetFileAttributesW(u"C:\\target", FILE_ATTRIBUTE_NORMAL);
    }
    // Who says that it is hidden may overwrite a hidden file, and the attributes are the new ones.
    SetFileAttributesW(u"C:\\target", FILE_ATTRIBUTE_HIDDEN | FILE_ATTRIBUTE_ARCHIVE);
    EXPECT_TRUE(Open(u"C:\\target", GENERIC_WRITE, 0, CREATE_ALWAYS, FILE_ATTRIBUTE_HIDDEN));
    EXPECT_EQ(machine.files().Attributes(u"C:\\target"), FILE_ATTRIBUTE_HIDDEN);
}

TEST(ReadOnlyFolder, RefusesEveryChangeBelowAndNoneBeside) {
    Machine machine;
    const fs::path c = machine.driveC();
    fs::create_directories(c / "Locked" / "Deep");
    fs::create_directories(c / "Locked2");
    Fill(c / "Locked" / "file", "x");
    Fill(c / "other", "y");
    machine.files().MakeReadOnly(u"C:\\locked");
    WCHAR name[MAX_PATH];
    const std::pair<const char*, std::function<bool()>> changes[] = {
        {"create", [] { return !!Open(u"C:\\Locked\\n", GENERIC_WRITE, 0, CREATE_ALWAYS); }},
        {"open", [] { return !!Open(u"C:\\Locked\\file", GENERIC_WRITE); }},
        {"create deep",
         [] { return !!Open(u"C:\\Locked\\Deep\\n", GENERIC_WRITE, 0, CREATE_ALWAYS); }},
        {"copy into", [] { return CopyFileW(u"C:\\other", u"C:\\Locked\\n", FALSE) != 0; }},
        {"move into", [] { return MoveFileW(u"C:\\other", u"C:\\Locked\\n") != 0; }},
        {"move out", [] { return MoveFileW(u"C:\\Locked\\file", u"C:\\n") != 0; }},
        {"temporary", [&] { return GetTempFileNameW(u"C:\\Locked", u"K", 0, name) != 0; }},
        {"attributes",
         [] { return SetFileAttributesW(u"C:\\Locked\\file", FILE_ATTRIBUTE_HIDDEN) != 0; }},
        {"profile",
         [] { return WritePrivateProfileStringW(u"A", u"k", u"v", u"C:\\Locked\\n.ini") != 0; }},
    };
    for (const auto& [what, change] : changes) {
        SetLastError(777);
        EXPECT_FALSE(change()) << what;
        EXPECT_EQ(GetLastError(), ERROR_ACCESS_DENIED) << what;
    }
    EXPECT_EQ(std::distance(fs::directory_iterator(c / "Locked"), {}), 2);
    EXPECT_TRUE(Open(u"C:\\Locked\\file", GENERIC_READ));
    EXPECT_TRUE(Open(u"C:\\Locked2\\n", GENERIC_WRITE, 0, CREATE_ALWAYS));
    machine.files().MakeReadOnly(u"C:\\Locked", false);
    EXPECT_TRUE(Open(u"C:\\Locked\\n", GENERIC_WRITE, 0, CREATE_ALWAYS));
}

TEST(Sharing, HoldsAgainstOtherProcesses) {
    Machine machine;
    const fs::path path = machine.driveC() / "file";
    Fill(path, "x");
    // A lock belongs to an opening of the file, so another opening in this process does as well.
    const auto otherGets = [&](int kind) {
        const int fd = open(path.c_str(), O_RDONLY | O_CLOEXEC);
        const bool got = flock(fd, kind | LOCK_NB) == 0;
        close(fd);
        return got;
    };
    {
        const FileHandle alone = Open(u"C:\\file", GENERIC_WRITE, 0);
        EXPECT_FALSE(otherGets(LOCK_SH));
    }
    {
        const FileHandle reader = Open(u"C:\\file", GENERIC_READ, FILE_SHARE_READ);
        EXPECT_TRUE(otherGets(LOCK_SH));
        EXPECT_FALSE(otherGets(LOCK_EX));
    }
    EXPECT_TRUE(otherGets(LOCK_EX));
    const int other = open(path.c_str(), O_RDONLY | O_CLOEXEC);
    ASSERT_EQ(flock(other, LOCK_SH), 0);
    EXPECT_TRUE(Open(u"C:\\file", GENERIC_READ, FILE_SHARE_READ));
    EXPECT_FALSE(Open(u"C:\\file", GENERIC_WRITE, 0, CREATE_ALWAYS));
    EXPECT_EQ(GetLastError(), ERROR_SHARING_VIOLATION);
    close(other);
    EXPECT_EQ(Content(path), "x");
    EXPECT_TRUE(Open(u"C:\\file", GENERIC_WRITE, 0, CREATE_ALWAYS))
        << "a refused opening must not stay in the table";
}

TEST(FileOperations, AreCountedOncePerCall) {
    Machine machine;
    Fill(machine.driveC() / "a", "abc");
    const FileOperations before = machine.files().operations();
    {
        const FileHandle file = Open(u"C:\\a", GENERIC_READ);
        char byte;
        DWORD got;
        ReadFile(file.get(), &byte, 1, &got, nullptr);
        ReadFile(file.get(), &byte, 1, &got, nullptr);
        const FileHandle made = Open(u"C:\\b", GENERIC_WRITE, 0, CREATE_ALWAYS);
        WriteFile(made.get(), "x", 1, &got, nullptr);
    }
    CopyFileW(u"C:\\a", u"C:\\c", FALSE);
    MoveFileW(u"C:\\c", u"C:\\d");
    MoveFileW(u"C:\\c", u"C:\\d");
    WCHAR name[MAX_PATH];
    GetTempFileNameW(u"C:\\", u"Kes", 0, name);
    SetFileAttributesW(u"C:\\d", FILE_ATTRIBUTE_NORMAL);
    WritePrivateProfileStringW(u"A", u"k", u"v", u"P.INI");
    GetPrivateProfileIntW(u"A", u"k", 0, u"P.INI");
    GetPrivateProfileStringW(u"A", u"k", u"", name, MAX_PATH, u"P.INI");
    const FileOperations done = machine.files().operations() - before;
    EXPECT_EQ(done, (FileOperations{.opens = 1,
                                    .creates = 2,
                                    .copies = 1,
                                    .moves = 2,
                                    .reads = 2,
                                    .writes = 1,
                                    .attributes = 1,
                                    .profileReads = 2,
                                    .profileWrites = 1}));
    EXPECT_EQ(done.All(), 13u);
}

TEST(Faults, EachCallFailsAloneAndChangesNothing) {
    Machine machine;
    const fs::path c = machine.driveC();
    fs::create_directory(c / "job");
    Fill(c / "job" / "file", "[A]\r\nk=v\r\n");
    machine.modules().Install(
        {.path = u"C:\\M.DLL", .exports = {{"F", [] { return INT_PTR{5}; }}}, .resources = {}});
    const HANDLE file = CreateFileW(u"C:\\job\\file", GENERIC_READ | GENERIC_WRITE,
                                    FILE_SHARE_READ | FILE_SHARE_WRITE, nullptr, OPEN_EXISTING,
                                    FILE_ATTRIBUTE_NORMAL, nullptr);
    const HANDLE block =
        CreateFileMappingW(INVALID_HANDLE_VALUE, nullptr, PAGE_READWRITE, 0, 10, u"b");
    void* view = MapViewOfFile(block, FILE_MAP_READ, 0, 0, 0);
    const HMODULE module = LoadLibraryW(u"M.DLL");
    WCHAR text[MAX_PATH] = u"untouched";
    char bytes[4] = "abc";
    DWORD moved = 9;
    MEMORY_BASIC_INFORMATION region;
    const std::pair<const char*, std::function<bool()>> calls[] = {
        {"CreateFileW", [] { return !!Open(u"C:\\job\\n", GENERIC_WRITE, 0, CREATE_ALWAYS); }},
        {"ReadFile", [&] { return ReadFile(file, bytes, 3, &moved, nullptr) || moved != 0; }},
        {"WriteFile", [&] { return WriteFile(file, bytes, 3, &moved, nullptr) || moved != 0; }},
        {"GetFileSize", [&] { return GetFileSize(file, nullptr) != INVALID_FILE_SIZE; }},
        {"CopyFileW", [] { return CopyFileW(u"C:\\job\\file", u"C:\\job\\n", FALSE) != 0; }},
        {"MoveFileW", [] { return MoveFileW(u"C:\\job\\file", u"C:\\job\\n") != 0; }},
        {"SetFileAttributesW",
         [] { return SetFileAttributesW(u"C:\\job\\file", FILE_ATTRIBUTE_READONLY) != 0; }},
        {"GetTempFileNameW", [&] { return GetTempFileNameW(u"C:\\job", u"K", 0, text) != 0; }},
        {"GetWindowsDirectoryW", [&] { return GetWindowsDirectoryW(text, MAX_PATH) != 0; }},
        {"CreateFileMappingW",
         [] {
             return CreateFileMappingW(INVALID_HANDLE_VALUE, nullptr, PAGE_READWRITE, 0, 10,
                                       u"c") != nullptr;
         }},
        {"OpenFileMappingW",
         [] { return OpenFileMappingW(FILE_MAP_READ, FALSE, u"b") != nullptr; }},
        {"MapViewOfFile", [&] { return MapViewOfFile(block, FILE_MAP_READ, 0, 0, 0) != nullptr; }},
        {"VirtualQuery", [&] { return VirtualQuery(view, &region, sizeof(region)) != 0; }},
        {"GetPrivateProfileIntW",
         [] { return GetPrivateProfileIntW(u"A", u"k", 33, u"C:\\job\\file") != 33; }},
        {"WritePrivateProfileStringW",
         [] { return WritePrivateProfileStringW(u"A", u"k", u"w", u"C:\\job\\file") != 0; }},
        {"LoadLibraryW", [] { return LoadLibraryW(u"M.DLL") != nullptr; }},
        {"GetProcAddress", [&] { return GetProcAddress(module, "F") != nullptr; }},
        {"GetModuleFileNameW", [&] { return GetModuleFileNameW(module, text, MAX_PATH) != 0; }},
        {"MessageBoxW", [] { return MessageBoxW(nullptr, u"t", u"c", MB_OK) != 0; }},
    };
    const Leaks before = machine.OpenNow();
    EXPECT_EQ(before, (Leaks{.handles = 2, .views = 1, .modules = 1}));
    for (const auto& [name, call] : calls) {
        machine.faults.FailCall(name);
        SetLastError(ERROR_SUCCESS);
        EXPECT_FALSE(call()) << name;
        EXPECT_NE(GetLastError(), ERROR_SUCCESS) << name;
        EXPECT_TRUE(machine.faults.struck()) << name;
        EXPECT_EQ(machine.OpenNow(), before) << name;
    }
    EXPECT_EQ(std::u16string(text), u"untouched");
    EXPECT_EQ(std::distance(fs::directory_iterator(c / "job"), {}), 1);
    EXPECT_EQ(Content(c / "job" / "file"), "[A]\r\nk=v\r\n");
    EXPECT_EQ(machine.files().Attributes(u"C:\\job\\file"), FILE_ATTRIBUTE_NORMAL);
    EXPECT_TRUE(machine.messageBoxes.empty());
    machine.faults.FailCall("GetPrivateProfileStringW");
    EXPECT_EQ(GetPrivateProfileStringW(u"A", u"k", u"d ", text, 5, u"C:\\job\\file"), 1u);
    EXPECT_EQ(std::u16string(text), u"d");

    // What gives back does so even when it is told to fail, for nobody could try it again.
    machine.faults.FailCall("UnmapViewOfFile");
    EXPECT_FALSE(UnmapViewOfFile(view));
    machine.faults.FailCall("CloseHandle", 1, true);
    EXPECT_FALSE(CloseHandle(file));
    EXPECT_FALSE(CloseHandle(block));
    machine.faults.FailCall("FreeLibrary");
    EXPECT_FALSE(FreeLibrary(module));
    EXPECT_EQ(machine.OpenNow(), Leaks{});
}

TEST(MessageBox, IsRecordedFromEveryThread) {
    Machine machine;
    std::vector<std::thread> threads;
    for (int i = 0; i < 4; ++i) {
        threads.emplace_back([] {
            for (int n = 0; n < 50; ++n) {
                EXPECT_EQ(MessageBoxW(nullptr, u"127", u"ERROR1", MB_OK), IDOK);
            }
        });
    }
    for (std::thread& thread : threads) {
        thread.join();
    }
    ASSERT_EQ(machine.messageBoxes.size(), 200u);
    EXPECT_EQ(machine.messageBoxes[199].caption, u"ERROR1");
    EXPECT_EQ(machine.messageBoxes[199].text, u"127");
    EXPECT_EQ(MessageBoxW(nullptr, u"t", u"c", 0x00100000), 0);
}

}  // namespace
}  // namespace embedded
