#include <cstring>
#include <nlohmann/json.hpp>

#include <gtest/gtest.h>

#include "platform/embedded/registry.h"
#include "platform/owned.h"
#include "platform/windows_api.h"

namespace embedded {
namespace {

platform::RegistryKey Open(HKEY parent, const char16_t* path, REGSAM access = KEY_ALL_ACCESS) {
    HKEY key = nullptr;
    EXPECT_EQ(RegOpenKeyExW(parent, path, 0, access, &key), LSTATUS(ERROR_SUCCESS));
    return platform::RegistryKey(key);
}

TEST(Registry, CreatesOpensAndDeletesKeys) {
    Machine machine;
    HKEY key = nullptr;
    EXPECT_EQ(RegOpenKeyExW(HKEY_LOCAL_MACHINE, u"Software\\Help", 0, KEY_ALL_ACCESS, &key),
              LSTATUS(ERROR_FILE_NOT_FOUND));
    EXPECT_EQ(key, nullptr);
    char16_t folder[] = u"Folder";
    DWORD disposition = 0;
    EXPECT_EQ(RegCreateKeyExW(HKEY_LOCAL_MACHINE, u"Software\\Help", 0, folder, 0, KEY_ALL_ACCESS,
                              nullptr, &key, &disposition),
              LSTATUS(ERROR_SUCCESS));
    EXPECT_EQ(disposition, REG_CREATED_NEW_KEY);
    platform::RegistryKey created(key);
    EXPECT_EQ(machine.registry().ClassOf(HKEY_LOCAL_MACHINE, u"SOFTWARE\\HELP"), u"Folder");
    EXPECT_EQ(machine.registry().ClassOf(HKEY_LOCAL_MACHINE, u"SOFTWARE"), u"");
    EXPECT_FALSE(machine.registry().HasKey(HKEY_CURRENT_USER, u"Software"));
    EXPECT_EQ(RegCreateKeyExW(HKEY_LOCAL_MACHINE, u"software\\help", 0, nullptr, 0, KEY_ALL_ACCESS,
                              nullptr, &key, &disposition),
              LSTATUS(ERROR_SUCCESS));
    EXPECT_EQ(disposition, REG_OPENED_EXISTING_KEY);
    EXPECT_EQ(RegCloseKey(key), LSTATUS(ERROR_SUCCESS));
    EXPECT_EQ(RegCloseKey(key), LSTATUS(ERROR_INVALID_HANDLE));
    EXPECT_EQ(machine.OpenNow().handles, 1u);

    // A key that has subkeys stays; a handle to a deleted key is told so.
    EXPECT_EQ(RegDeleteKeyW(HKEY_LOCAL_MACHINE, u"Software"), LSTATUS(ERROR_ACCESS_DENIED));
    EXPECT_EQ(RegDeleteKeyW(HKEY_LOCAL_MACHINE, u"Software\\Nothing"),
              LSTATUS(ERROR_FILE_NOT_FOUND));
    EXPECT_EQ(RegDeleteKeyW(Open(HKEY_LOCAL_MACHINE, u"Software").get(), u"HELP"),
              LSTATUS(ERROR_SUCCESS));
    EXPECT_EQ(RegOpenKeyExW(created.get(), nullptr, 0, KEY_ALL_ACCESS, &key),
              LSTATUS(ERROR_KEY_DELETED));
    EXPECT_TRUE(machine.registry().Subkeys(HKEY_LOCAL_MACHINE, u"Software").empty());
    EXPECT_EQ(RegCreateKeyExW(HKEY_LOCAL_MACHINE, u"a\\\\b", 0, nullptr, 0, KEY_ALL_ACCESS, nullptr,
                              &key, nullptr),
              LSTATUS(ERROR_BAD_PATHNAME));
}

TEST(Registry, StoresTypedValues) {
    Machine machine;
    machine.registry().CreateKey(HKEY_CURRENT_USER, u"Software\\Fax");
    const auto key = Open(HKEY_CURRENT_USER, u"Software\\Fax");
    BYTE path[] = "C:\\M\xFC";
    EXPECT_EQ(RegSetValueExA(key.get(), "Path", 0, REG_SZ, path, sizeof(path)),
              LSTATUS(ERROR_SUCCESS));
    EXPECT_EQ(machine.registry().Values(HKEY_CURRENT_USER, u"Software\\Fax").at(u"PATH"),
              StoredText(u"C:\\M\u00FC"));
    DWORD type = 0;
    DWORD bytes = 0;
    EXPECT_EQ(RegQueryValueExW(key.get(), u"path", nullptr, &type, nullptr, &bytes),
              LSTATUS(ERROR_SUCCESS));
    EXPECT_EQ(bytes, 12u);
    EXPECT_EQ(type, REG_SZ);
    char read[6] = {};
    bytes = 5;
    EXPECT_EQ(
        RegQueryValueExA(key.get(), "path", nullptr, &type, reinterpret_cast<BYTE*>(read), &bytes),
        LSTATUS(ERROR_MORE_DATA));
    EXPECT_EQ(bytes, 6u);
    EXPECT_EQ(read[0], 0);
    EXPECT_EQ(
        RegQueryValueExA(key.get(), "path", nullptr, &type, reinterpret_cast<BYTE*>(read), &bytes),
        LSTATUS(ERROR_SUCCESS));
    EXPECT_STREQ(read, "C:\\M\xFC");

    EXPECT_EQ(RegSetValueExW(key.get(), nullptr, 0, REG_BINARY, path, 3), LSTATUS(ERROR_SUCCESS));
    EXPECT_EQ(machine.registry().Values(HKEY_CURRENT_USER, u"Software\\Fax").at(u"").data.size(),
              3u);
    EXPECT_EQ(RegQueryValueExW(key.get(), u"none", nullptr, &type, nullptr, &bytes),
              LSTATUS(ERROR_FILE_NOT_FOUND));
    const auto readOnly = Open(key.get(), u"", KEY_QUERY_VALUE);
    EXPECT_EQ(RegSetValueExW(readOnly.get(), u"x", 0, REG_BINARY, path, 3),
              LSTATUS(ERROR_ACCESS_DENIED));
}

TEST(Registry, KeepsItsStateInJson) {
    Machine machine;
    Registry& registry = machine.registry();
    registry.CreateKey(HKEY_LOCAL_MACHINE, u"Software\\Help", u"Folder");
    registry.SetValue(HKEY_CURRENT_USER, u"Software\\\u00DC", u"N", StoredNumber(258));
    const nlohmann::json saved = nlohmann::json::parse(registry.Save().dump());
    EXPECT_EQ(RegDeleteKeyW(HKEY_LOCAL_MACHINE, u"Software\\Help"), LSTATUS(ERROR_SUCCESS));
    registry.SetValue(HKEY_CURRENT_USER, u"Software\\\u00DC", u"N", StoredNumber(1));
    registry.Load(saved);
    EXPECT_EQ(registry.ClassOf(HKEY_LOCAL_MACHINE, u"Software\\Help"), u"Folder");
    EXPECT_EQ(registry.Values(HKEY_CURRENT_USER, u"software\\\u00FC").at(u"n"), StoredNumber(258));
    EXPECT_THROW(registry.Load(nlohmann::json::object()), nlohmann::json::exception);
    EXPECT_TRUE(registry.HasKey(HKEY_LOCAL_MACHINE, u"Software\\Help"));
}

TEST(Names, FollowTheirTwoConventions) {
    MachineSetup setup;
    setup.userName = u"M\u00FCller";
    setup.computerName = u"FAXPC";
    Machine machine(setup);
    DWORD characters = 6;
    char name[16];
    EXPECT_FALSE(GetUserNameA(name, &characters));
    EXPECT_EQ(GetLastError(), ERROR_INSUFFICIENT_BUFFER);
    EXPECT_EQ(characters, 7u);
    EXPECT_TRUE(GetUserNameA(name, &characters));
    EXPECT_STREQ(name, "M\xFCller");
    EXPECT_EQ(characters, 7u);
    characters = 5;
    EXPECT_FALSE(GetComputerNameA(name, &characters));
    EXPECT_EQ(GetLastError(), ERROR_BUFFER_OVERFLOW);
    EXPECT_EQ(characters, 6u);
    EXPECT_TRUE(GetComputerNameA(name, &characters));
    EXPECT_STREQ(name, "FAXPC");
    EXPECT_EQ(characters, 5u);
}

TEST(GetLocaleInfoW, GivesTheCountryCode) {
    char16_t text[8];
    {
        Machine machine({.country = 81});
        EXPECT_EQ(GetLocaleInfoW(LOCALE_USER_DEFAULT, LOCALE_ICOUNTRY, nullptr, 0), 3);
        EXPECT_EQ(GetLocaleInfoW(LOCALE_USER_DEFAULT, LOCALE_ICOUNTRY, text, 2), 0);
        EXPECT_EQ(GetLastError(), ERROR_INSUFFICIENT_BUFFER);
        EXPECT_EQ(GetLocaleInfoW(LOCALE_USER_DEFAULT, LOCALE_ICOUNTRY, text, 3), 3);
        EXPECT_EQ(std::u16string(text), u"81");
    }
    Machine machine({.countryText = u"none"});
    EXPECT_EQ(GetLocaleInfoW(LOCALE_USER_DEFAULT, LOCALE_ICOUNTRY, text, 8), 5);
    EXPECT_EQ(std::u16string(text), u"none");
}

}  // namespace
}  // namespace embedded
