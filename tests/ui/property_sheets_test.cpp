#include <map>
#include <nlohmann/json.hpp>

#include "platform/embedded/registry.h"

#include "core/session.h"
#include "tests/ui/ui_machine.h"
#include "ui/user_folder.h"

namespace ksfax {
namespace {

using tests::UiMachine;

// ---- The old entry points

using PropertySheets = UiMachine;

TEST_F(PropertySheets, TellTheRecordsSizeAndTouchNothing) {
    EXPECT_EQ(DrvDocumentProperties(nullptr, nullptr, nullptr, nullptr, nullptr, DM_OUT_BUFFER),
              2608);
    EXPECT_EQ(DrvAdvancedDocumentProperties(nullptr, nullptr, nullptr, nullptr, nullptr), 2608);
    DOCUMENTPROPERTYHEADER header{};
    header.fMode = DM_OUT_BUFFER;
    EXPECT_EQ(DrvDocumentPropertySheets(nullptr, reinterpret_cast<LPARAM>(&header)), 2608);
    EXPECT_EQ(header.cbOut, 2608u);
    header.fMode = 0;
    header.pdmOut = &output.devMode;
    EXPECT_EQ(DrvDocumentPropertySheets(nullptr, reinterpret_cast<LPARAM>(&header)), 2608);
    EXPECT_TRUE(OutputIsUntouched());
    EXPECT_EQ(DrvDocumentPropertySheets(nullptr, 0), -1);
    EXPECT_EQ(DrvDocumentProperties(nullptr, nullptr, name.data(), &output.devMode, nullptr,
                                    DM_OUT_BUFFER),
              -1)
        << "no session on such a printer";
}

// Whatever fails, nothing stays behind, and the answer is the whole record or the output is
// untouched. What a session calls, and what drawing does, fails in tests of their own.
TEST_F(PropertySheets, HandOutAllOrNothingWhateverFails) {
    const nlohmann::json fresh = fax.machine.registry().Save();
    LONG result = 0;
    std::map<std::string, int> confirmed;  // all the same
    const auto user = [&](Sheet& sheet) {
        Click(sheet.page(), IDC_ABOUT);
        Click(sheet.page(), IDC_LANDSCAPE);
        sheet.PressOk();
    };
    const auto holds = [&](const FailedCall& failed) {
        EXPECT_EQ(result == IDOK, !OutputIsUntouched());
        confirmed[failed.name] += result == IDOK;
    };
    UnderFaults(fax.machine, {.prepare = [&] { fax.machine.registry().Load(fresh); },
                              .act = [&] { result = ShowDocument(user); },
                              .holds = holds,
                              .open = [&] { return fax.OpenWithoutCache(); },
                              .only = {"SHGetFolderPathA", "SHGetFolderPathW", "RegOpenKeyExW",
                                       "RegCreateKeyExW", "RegSetValueExA", "CreateDirectoryExW",
                                       "CreateSolidBrush", "GetWindowRect", "DialogBoxParamW",
                                       "LoadLibraryA", "GetProcAddress", "HeapCreate", "HeapAlloc",
                                       "PFNCOMPROPSHEET", "CommonPropertySheetUIW"},
                              .withAllLater = false});
    // Of the strings in the session's heap only the help file's path may be missing.
    std::string text;
    for (const auto& [call, count] : confirmed) {
        text += Line(count, " ", call, "\n");
    }
    EXPECT_TRUE(IsRecorded("ui/confirmed_all_the_same.txt", text));
}

// ---- The user's folder

class UserFolder : public UiMachine {
  protected:
    explicit UserFolder(embedded::MachineSetup setup = {})
        : UiMachine(tests::kPagePapers, std::move(setup)) {}

    static constexpr char16_t kKey[] = u"Software\\Kestova\\PrtDrv";
    static constexpr char16_t kFolder[] = u"C:\\Users\\User\\AppData\\Roaming\\Kestova\\PrtDrv";
    static constexpr std::string_view kRecord{"C:\\Users\\User\\AppData\\Roaming\\Kestova\\PrtDrv",
                                              45};

    void Store(std::string_view bytes) {
        fax.machine.registry().SetValue(HKEY_CURRENT_USER, kKey, u"Path",
                                        {.type = REG_BINARY, .data = BytesOf(bytes)});
    }
    std::string Stored() {
        const auto values = fax.machine.registry().Values(HKEY_CURRENT_USER, kKey);
        EXPECT_EQ(values.size(), 1u);
        const embedded::StoredValue value = values.at(u"Path");
        EXPECT_EQ(value.type, REG_BINARY);
        return {reinterpret_cast<const char*>(value.data.data()), value.data.size()};
    }
};

TEST_F(UserFolder, IsMadeWithItsRecordBeforeTheSessionOfAnySheet) {
    WCHAR documents[MAX_PATH];
    SHGetFolderPathW(nullptr, CSIDL_PERSONAL, nullptr, 0, documents);
    fax.machine.files().SetAttributes(documents, FILE_ATTRIBUTE_HIDDEN);
    DEVICEPROPERTYHEADER noPrinter{};
    PROPSHEETUI_INFO information{};
    information.lParamInit = reinterpret_cast<LPARAM>(&noPrinter);
    information.Reason = PROPSHEETUI_REASON_INIT;
    EXPECT_EQ(DrvDevicePropertySheets(&information, 0), -1);
    for (const char16_t* folder : {u"C:\\Users\\User\\AppData\\Roaming\\Kestova", kFolder}) {
        EXPECT_EQ(fax.machine.files().Attributes(folder),
                  FILE_ATTRIBUTE_HIDDEN | FILE_ATTRIBUTE_DIRECTORY)
            << "those of the documents";
    }
    EXPECT_EQ(Stored(), kRecord);
}

TEST_F(UserFolder, IsRecordedAnewWhenTheRecordSaysOtherwise) {
    const struct {
        const char* what;
        std::string stored;
        std::string_view then;  // empty: as it was
        bool makesFolder;
        const char* failing = nullptr;
        unsigned nth = 1;
    } rows[] = {
        {"another folder", {"C:\\Old", 7}, kRecord, true},
        {"a shorter one without terminator", std::string(kRecord.substr(0, 43)), kRecord, true},
        {"the same without terminator", std::string(kRecord.substr(0, 44)), "", false},
        {"the same and more behind it", std::string(kRecord) + "more", "", false},
        {"longer than is read", std::string(260, 'x'), kRecord, false},
        {"as long as is read", std::string(259, 'x'), kRecord, true},
        {"the value cannot be read", "x", kRecord, false, "RegQueryValueExA"},
        {"no documents folder", "x", kRecord, false, "SHGetFolderPathW", 1},
        {"no application data for it", "x", kRecord, false, "SHGetFolderPathW", 2},
        {"no application data", "x", {"C:\\Windows", 11}, false, "SHGetFolderPathA"},
    };
    for (const auto& row : rows) {
        Store(row.stored);
        if (row.failing != nullptr) {
            fax.machine.faults.FailCall(row.failing, row.nth);
        }
        PrepareUserFolder();
        fax.machine.faults.Clear();
        EXPECT_EQ(Stored(), row.then.empty() ? row.stored : row.then) << row.what;
        EXPECT_EQ(std::filesystem::remove_all(fax.machine.files().HostPath(kFolder)) != 0,
                  row.makesFolder)
            << row.what;
    }
}

struct LongUserFolder : UserFolder {
    // The application data's path has 259 characters, the most that a path can have.
    LongUserFolder() : UserFolder({.userName = std::u16string(234, u'u')}) {}
};
TEST_F(LongUserFolder, IsRecordedWhole) {
    Store("x");
    PrepareUserFolder();
    EXPECT_EQ(Stored().size(), 275u);
    EXPECT_TRUE(Stored().ends_with(std::string_view("PrtDrv", 7)));
}

}  // namespace
}  // namespace ksfax
