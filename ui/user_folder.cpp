#include "ui/user_folder.h"

#include <algorithm>
#include <iterator>
#include <string_view>

#include "platform/owned.h"
#include "platform/windows_api.h"

namespace ksfax {

namespace {

constexpr WCHAR kKeyPath[] = TEXT("Software\\Kestova\\PrtDrv");
constexpr char kValueName[] = "Path";
constexpr char kFolder[] = "\\Kestova\\PrtDrv";
constexpr WCHAR kOuterFolder[] = TEXT("\\Kestova");
constexpr WCHAR kInnerFolder[] = TEXT("\\PrtDrv");

// The longest stored path that is looked at; a longer one is written anew.
constexpr DWORD kStoredRoom = 259;

// `added` behind the text in `target`, which has the room.
template <typename Character, size_t count>
void Append(Character* target, const Character (&added)[count]) {
    while (*target != 0) {
        ++target;
    }
    std::copy(std::begin(added), std::end(added), target);
}

// Both folders below the user's application data, with the attributes of the documents folder.
// One that is there already stays as it is.
void CreateUserFolders() {
    WCHAR documents[MAX_PATH];
    WCHAR folder[MAX_PATH + std::size(kFolder)];
    if (SHGetFolderPathW(nullptr, CSIDL_PERSONAL, nullptr, 0, documents) != S_OK ||
        SHGetFolderPathW(nullptr, CSIDL_APPDATA, nullptr, 0, folder) != S_OK) {
        return;
    }
    Append(folder, kOuterFolder);
    CreateDirectoryExW(documents, folder, nullptr);
    Append(folder, kInnerFolder);
    CreateDirectoryExW(documents, folder, nullptr);
}

platform::RegistryKey CreateRecordKey() {
    HKEY key = nullptr;
    return platform::RegistryKey(RegCreateKeyExW(HKEY_CURRENT_USER, kKeyPath, 0, nullptr, 0,
                                                 KEY_ALL_ACCESS, nullptr, &key,
                                                 nullptr) == ERROR_SUCCESS
                                     ? key
                                     : nullptr);
}

void WriteRecord(const platform::RegistryKey& key, std::string_view path) {
    if (key) {
        // With its terminator, which lies behind the view.
        (void)RegSetValueExA(key.get(), kValueName, 0, REG_BINARY,
                             reinterpret_cast<const BYTE*>(path.data()),
                             static_cast<DWORD>(path.size() + 1));
    }
}

// A record that is there and says something else means that the user's folder has moved; one
// that is missing or unreadable, that somebody removed it and the folder is still there.
void MendRecord(const platform::RegistryKey& key, std::string_view path) {
    char stored[kStoredRoom];
    DWORD bytes = kStoredRoom;
    if (RegQueryValueExA(key.get(), kValueName, nullptr, nullptr, reinterpret_cast<LPBYTE>(stored),
                         &bytes) == ERROR_SUCCESS) {
        const std::string_view whole(stored, std::min(bytes, kStoredRoom));
        if (whole.substr(0, whole.find('\0')) == path) {
            return;
        }
        CreateUserFolders();
    }
    WriteRecord(key, path);
}

// Without application data the Windows folder stands in, and no folder is made.
void RecordWindowsFolder() {
    char folder[MAX_PATH];
    const UINT length = GetWindowsDirectoryA(folder, MAX_PATH);
    if (length > 0 && length < MAX_PATH) {
        WriteRecord(CreateRecordKey(), std::string_view(folder, length));
    }
}

}  // namespace

void PrepareUserFolder() {
    char folder[MAX_PATH + std::size(kFolder)];
    if (SHGetFolderPathA(nullptr, CSIDL_APPDATA, nullptr, 0, folder) != S_OK) {
        RecordWindowsFolder();
        return;
    }
    Append(folder, kFolder);
    HKEY opened = nullptr;
    if (RegOpenKeyExW(HKEY_CURRENT_USER, kKeyPath, 0, KEY_ALL_ACCESS, &opened) == ERROR_SUCCESS) {
        MendRecord(platform::RegistryKey(opened), folder);
    } else {
        CreateUserFolders();
        WriteRecord(CreateRecordKey(), folder);
    }
}

}  // namespace ksfax
