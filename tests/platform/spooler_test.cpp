#include <cstring>
#include <nlohmann/json.hpp>
#include <thread>

#include <gtest/gtest.h>

#include "platform/embedded/spooler.h"
#include "platform/owned.h"
#include "platform/windows_api.h"

namespace embedded {
namespace {

// The published calls take names as writable text and never write to them.
WCHAR* Name(const char16_t* text) {
    return const_cast<WCHAR*>(text);
}

class SpoolerTest : public testing::Test {
  protected:
    SpoolerTest() {
        machine.spooler().AddDriver({.name = u"Fax",
                                     .dataFile = u"C:\\drivers\\FAX.PPD",
                                     .driverPath = u"C:\\drivers\\REND.DLL",
                                     .helpFile = u"C:\\drivers\\FAX.HLP"});
        machine.spooler().AddPrinter(
            {.name = u"Office", .driverName = u"Fax", .portName = u"LPT1:", .attributes = 0x40});
    }
    HANDLE Open(DWORD access, const char16_t* name = u"office") {
        PRINTER_DEFAULTSW defaults = {nullptr, nullptr, access};
        HANDLE printer = nullptr;
        EXPECT_TRUE(OpenPrinterW(Name(name), &printer, &defaults));
        return printer;
    }
    void StoreDefaultSettings(size_t size) {
        Printer printer = *machine.spooler().FindPrinter(u"Office");
        printer.defaultSettings.assign(size, std::byte{0x5A});
        machine.spooler().AddPrinter(printer);
    }

    Machine machine;
};

// Asks for the size, then fetches into a block of exactly that size.
template <typename Call>
std::unique_ptr<BYTE[]> Fetch(const Call& call, DWORD expectedSize) {
    DWORD needed = 0;
    SetLastError(0);
    EXPECT_FALSE(call(nullptr, 0, &needed));
    EXPECT_EQ(GetLastError(), ERROR_INSUFFICIENT_BUFFER);
    EXPECT_EQ(needed, expectedSize);
    auto block = std::make_unique<BYTE[]>(needed);
    EXPECT_FALSE(call(block.get(), needed - 1, &needed));
    EXPECT_EQ(block[0], 0);
    EXPECT_TRUE(call(block.get(), needed, &needed));
    return block;
}

TEST_F(SpoolerTest, OpensByNameWithRightsAndRefuses) {
    HANDLE printer = nullptr;
    EXPECT_TRUE(OpenPrinterW(Name(u"OFFICE"), &printer, nullptr));
    EXPECT_EQ(machine.OpenNow().handles, 1u);
    DWORD number = 7;
    EXPECT_EQ(SetPrinterDataW(printer, Name(u"N"), REG_DWORD, reinterpret_cast<BYTE*>(&number), 4),
              ERROR_ACCESS_DENIED);
    EXPECT_TRUE(ClosePrinter(printer));
    EXPECT_FALSE(ClosePrinter(printer));
    EXPECT_EQ(GetLastError(), ERROR_INVALID_HANDLE);
    EXPECT_EQ(machine.OpenNow().handles, 0u);

    EXPECT_FALSE(OpenPrinterW(Name(u"Nobody"), &printer, nullptr));
    EXPECT_EQ(GetLastError(), ERROR_INVALID_PRINTER_NAME);
    machine.spooler().RefuseOpen(u"office", ERROR_GEN_FAILURE);
    EXPECT_FALSE(OpenPrinterW(Name(u"Office"), &printer, nullptr));
    EXPECT_EQ(GetLastError(), ERROR_GEN_FAILURE);
    machine.spooler().RefuseOpen(u"Office", ERROR_SUCCESS);
    machine.spooler().SetAdministrator(false);
    PRINTER_DEFAULTSW all = {nullptr, nullptr, PRINTER_ALL_ACCESS};
    EXPECT_FALSE(OpenPrinterW(Name(u"Office"), &printer, &all));
    EXPECT_EQ(GetLastError(), ERROR_ACCESS_DENIED);
    EXPECT_TRUE(OpenPrinterW(Name(u"Office"), &printer, nullptr));
    EXPECT_TRUE(ClosePrinter(printer));

    DEVMODEW record = {};
    PRINTER_DEFAULTSW defaults = {Name(u"raw"), &record, PRINTER_ACCESS_USE};
    EXPECT_TRUE(OpenPrinterW(Name(u"Office"), &printer, &defaults));
    EXPECT_TRUE(ClosePrinter(printer));
    EXPECT_EQ(machine.spooler().lastOpening(), (PrinterOpening{u"raw", true, PRINTER_ACCESS_USE}));
    defaults.pDatatype = Name(u"RAV");
    EXPECT_FALSE(OpenPrinterW(Name(u"Office"), &printer, &defaults));
    EXPECT_EQ(GetLastError(), ERROR_INVALID_DATATYPE);
}

TEST_F(SpoolerTest, PacksPrinterInformationBehindTheRecord) {
    HANDLE printer = Open(PRINTER_ACCESS_USE);
    StoreDefaultSettings(221);  // an odd record must leave the texts behind it aligned
    // Texts: Office, LPT1:, Fax, WinPrint, RAW with terminators: 7 + 6 + 4 + 9 + 4 characters.
    auto block = Fetch(
        [&](BYTE* b, DWORD n, DWORD* needed) { return GetPrinterW(printer, 2, b, n, needed); },
        136 + 222 + 60);
    const auto* info = reinterpret_cast<PRINTER_INFO_2W*>(block.get());
    EXPECT_EQ(info->pServerName, nullptr);
    EXPECT_EQ(std::u16string(info->pPrinterName), u"Office");
    EXPECT_EQ(std::u16string(info->pPortName), u"LPT1:");
    EXPECT_EQ(std::u16string(info->pDriverName), u"Fax");
    EXPECT_EQ(info->Attributes, 0x40u);
    EXPECT_EQ(reinterpret_cast<BYTE*>(info->pDevMode)[220], 0x5A);

    block = Fetch(
        [&](BYTE* b, DWORD n, DWORD* needed) { return GetPrinterW(printer, 8, b, n, needed); },
        8 + 222);
    EXPECT_EQ(reinterpret_cast<PRINTER_INFO_8W*>(block.get())->pDevMode,
              reinterpret_cast<DEVMODEW*>(block.get() + 8));
    DWORD needed = 0;
    EXPECT_FALSE(GetPrinterW(printer, 4, nullptr, 0, &needed));
    EXPECT_EQ(GetLastError(), ERROR_INVALID_LEVEL);
}

TEST_F(SpoolerTest, StoresTheGlobalDefaultWithItsPrivatePart) {
    std::array<BYTE, 230> bytes = {};
    auto* settings = reinterpret_cast<DEVMODEW*>(bytes.data());
    settings->dmSize = 220;
    settings->dmDriverExtra = 10;
    bytes[229] = 9;
    PRINTER_INFO_8W record = {settings};
    auto* argument = reinterpret_cast<BYTE*>(&record);
    EXPECT_FALSE(SetPrinterW(Open(PRINTER_ACCESS_USE), 8, argument, 0));
    EXPECT_EQ(GetLastError(), ERROR_ACCESS_DENIED);
    EXPECT_TRUE(SetPrinterW(Open(PRINTER_ALL_ACCESS), 8, argument, 0));
    const auto stored = machine.spooler().FindPrinter(u"Office")->defaultSettings;
    ASSERT_EQ(stored.size(), 230u);
    EXPECT_EQ(stored[229], std::byte{9});
}

TEST_F(SpoolerTest, GivesDriverInformationAndDirectory) {
    HANDLE printer = Open(PRINTER_ACCESS_USE);
    // Fax, Windows x64, C:\drivers\REND.DLL, C:\drivers\FAX.PPD: 4 + 12 + 20 + 19 characters.
    auto block =
        Fetch([&](BYTE* b, DWORD n,
                  DWORD* needed) { return GetPrinterDriverW(printer, nullptr, 2, b, n, needed); },
              48 + 110);
    EXPECT_EQ(std::u16string(reinterpret_cast<DRIVER_INFO_2W*>(block.get())->pDataFile),
              u"C:\\drivers\\FAX.PPD");
    block = Fetch(
        [&](BYTE* b, DWORD n, DWORD* needed) {
            return GetPrinterDriverW(printer, Name(u"Windows x64"), 3, b, n, needed);
        },
        80 + 110 + 38);
    EXPECT_EQ(reinterpret_cast<DRIVER_INFO_3W*>(block.get())->cVersion, 3u);
    EXPECT_EQ(std::u16string(reinterpret_cast<DRIVER_INFO_3W*>(block.get())->pHelpFile),
              u"C:\\drivers\\FAX.HLP");

    block = Fetch(
        [&](BYTE* b, DWORD n, DWORD* needed) {
            return GetPrinterDriverDirectoryW(nullptr, nullptr, 1, b, n, needed);
        },
        76);
    EXPECT_EQ(std::u16string(reinterpret_cast<WCHAR*>(block.get())),
              u"C:\\Windows\\system32\\spool\\DRIVERS\\x64");
    block = Fetch(
        [&](BYTE* b, DWORD n, DWORD* needed) {
            return GetPrinterDriverDirectoryA(nullptr, nullptr, 1, b, n, needed);
        },
        38);
    EXPECT_STREQ(reinterpret_cast<char*>(block.get()),
                 "C:\\Windows\\system32\\spool\\DRIVERS\\x64");

    DWORD needed = 0;
    EXPECT_FALSE(GetPrinterDriverW(printer, Name(u"Windows NT x86"), 2, nullptr, 0, &needed));
    EXPECT_EQ(GetLastError(), ERROR_INVALID_ENVIRONMENT);
    machine.spooler().RemoveDriver(u"FAX");
    EXPECT_FALSE(GetPrinterDriverW(printer, nullptr, 2, nullptr, 0, &needed));
    EXPECT_EQ(GetLastError(), ERROR_UNKNOWN_PRINTER_DRIVER);
}

TEST_F(SpoolerTest, LiesAboutASizeWhenToldTo) {
    HANDLE printer = Open(PRINTER_ACCESS_USE);
    DWORD needed = 0;
    machine.spooler().ReportSize("GetPrinterW", 20);
    EXPECT_FALSE(GetPrinterW(printer, 2, nullptr, 0, &needed));
    EXPECT_EQ(needed, 20u);
    std::array<BYTE, 20> cut;
    cut.fill(1);
    EXPECT_TRUE(GetPrinterW(printer, 2, cut.data(), 20, &needed));
    EXPECT_EQ(std::ranges::count(cut, 0), 20);
    machine.spooler().ReportSize("GetPrinterW", 5000);
    std::vector<BYTE> large(5000);
    EXPECT_FALSE(GetPrinterW(printer, 2, large.data(), 4999, &needed));
    EXPECT_TRUE(GetPrinterW(printer, 2, large.data(), 5000, &needed));
    EXPECT_EQ(std::u16string(reinterpret_cast<PRINTER_INFO_2W*>(large.data())->pDriverName),
              u"Fax");
}

TEST_F(SpoolerTest, KeepsPrinterDataAndReturnsErrorCodes) {
    HANDLE printer = Open(PRINTER_ALL_ACCESS);
    BYTE bytes[8] = {1, 2, 3};
    DWORD type = 0;
    DWORD needed = 0;
    SetLastError(0x5555);
    EXPECT_EQ(GetPrinterDataW(printer, Name(u"Absent"), &type, bytes, 8, &needed),
              ERROR_FILE_NOT_FOUND);
    EXPECT_EQ(SetPrinterDataW(printer, Name(u"Block"), REG_BINARY, bytes, 3), ERROR_SUCCESS);
    EXPECT_EQ(GetPrinterDataW(printer, Name(u"BLOCK"), &type, nullptr, 0, &needed),
              ERROR_MORE_DATA);
    EXPECT_EQ(needed, 3u);
    EXPECT_EQ(type, REG_BINARY);
    BYTE read[3] = {};
    EXPECT_EQ(GetPrinterDataW(printer, Name(u"Block"), nullptr, read, 2, &needed), ERROR_MORE_DATA);
    EXPECT_EQ(read[0], 0);
    EXPECT_EQ(GetPrinterDataW(printer, Name(u"Block"), nullptr, read, 3, &needed), ERROR_SUCCESS);
    EXPECT_EQ(memcmp(read, bytes, 3), 0);
    EXPECT_EQ(GetLastError(), 0x5555u);

    // Text changes its width with the A function; anything else does not.
    machine.spooler().SetPrinterData(u"Office", u"User", StoredText(u"M\u00FCller"));
    char text[7] = {};
    char value[] = "User";
    EXPECT_EQ(GetPrinterDataA(printer, value, &type, reinterpret_cast<BYTE*>(text), 7, &needed),
              ERROR_SUCCESS);
    EXPECT_STREQ(text, "M\xFCller");
    char block[] = "Block";
    EXPECT_EQ(GetPrinterDataA(printer, block, &type, bytes, 8, &needed), ERROR_SUCCESS);
    EXPECT_EQ(needed, 3u);

    EXPECT_EQ(SetPrinterDataW(printer, Name(u"block"), REG_BINARY, nullptr, 0), ERROR_SUCCESS);
    EXPECT_EQ(machine.spooler().PrinterData(u"office", u"Block"), (StoredValue{REG_BINARY, {}}));
    machine.spooler().RemovePrinter(u"Office");
    EXPECT_EQ(GetPrinterDataW(printer, Name(u"Block"), nullptr, read, 3, &needed),
              ERROR_INVALID_HANDLE);
}

BOOL Add(HANDLE printer, DWORD flags, const char16_t* name, LONG width, LONG height) {
    FORM_INFO_1W form = {flags, Name(name), {width, height}, {0, 0, width, height}};
    return AddFormW(printer, 1, reinterpret_cast<BYTE*>(&form));
}

TEST_F(SpoolerTest, AddsDeletesAndEnumeratesFormsInOrder) {
    HANDLE printer = Open(PRINTER_ACCESS_USE);
    std::vector<Form> builtIn = machine.spooler().forms();
    std::erase_if(builtIn, [](const Form& form) { return form.name != u"A4"; });
    ASSERT_EQ(builtIn.size(), 1u);
    EXPECT_EQ(builtIn[0].size.cx, 210000);
    EXPECT_EQ(builtIn[0].imageableArea.bottom, 297000);
    EXPECT_FALSE(DeleteFormW(printer, Name(u"A4")));
    EXPECT_EQ(GetLastError(), ERROR_INVALID_PARAMETER);

    machine.spooler().RemoveAllForms();
    DWORD needed = 9;
    DWORD count = 9;
    EXPECT_TRUE(EnumFormsW(printer, 1, nullptr, 0, &needed, &count));
    EXPECT_EQ(needed, 0u);
    EXPECT_EQ(count, 0u);

    EXPECT_TRUE(Add(printer, FORM_PRINTER, u"Wide", 300000, 200000));
    EXPECT_TRUE(Add(printer, FORM_USER, u"Own", 100000, 100000));
    EXPECT_FALSE(Add(printer, FORM_PRINTER, u"Own", 1, 1));
    EXPECT_EQ(GetLastError(), ERROR_FILE_EXISTS);
    EXPECT_FALSE(Add(printer, FORM_PRINTER, u"Flat", 100, 0));
    EXPECT_EQ(GetLastError(), ERROR_INVALID_FORM_SIZE);
    EXPECT_FALSE(Add(printer, FORM_PRINTER, u"", 100, 100));
    EXPECT_EQ(GetLastError(), ERROR_INVALID_FORM_NAME);

    auto block = Fetch(
        [&](BYTE* b, DWORD n, DWORD* size) { return EnumFormsW(printer, 1, b, n, size, &count); },
        2 * 40 + 5 * 2 + 4 * 2);
    ASSERT_EQ(count, 2u);
    const auto* forms = reinterpret_cast<FORM_INFO_1W*>(block.get());
    EXPECT_EQ(std::u16string(forms[0].pName), u"Wide");
    EXPECT_EQ(forms[0].Flags, FORM_PRINTER);
    EXPECT_EQ(forms[0].Size.cx, 300000);
    EXPECT_EQ(std::u16string(forms[1].pName), u"Own");
    EXPECT_EQ(forms[1].Flags, FORM_USER);

    EXPECT_TRUE(DeleteFormW(printer, Name(u"Wide")));
    EXPECT_FALSE(DeleteFormW(printer, Name(u"Wide")));
    EXPECT_EQ(GetLastError(), ERROR_INVALID_FORM_NAME);
}

TEST_F(SpoolerTest, LosesNothingWhenManyThreadsAsk) {
    constexpr int kRounds = 30;
    machine.spooler().RemoveAllForms();
    std::vector<std::thread> threads;
    for (char16_t name : {u'a', u'b', u'c'}) {
        threads.emplace_back([this, name] {
            platform::PrinterHandle printer(Open(PRINTER_ALL_ACCESS));
            for (char16_t round = 1; round <= kRounds; ++round) {
                const char16_t own[] = {name, round, 0};
                EXPECT_TRUE(Add(printer.get(), FORM_PRINTER, own, 1000, 1000));
                EXPECT_EQ(SetPrinterDataW(printer.get(), Name(own), REG_BINARY, nullptr, 0),
                          ERROR_SUCCESS);
                DWORD needed = 0;
                EXPECT_FALSE(GetPrinterW(printer.get(), 2, nullptr, 0, &needed));
                std::vector<BYTE> block(needed);
                EXPECT_TRUE(GetPrinterW(printer.get(), 2, block.data(), needed, &needed));
            }
        });
    }
    for (std::thread& thread : threads) {
        thread.join();
    }
    EXPECT_EQ(machine.spooler().forms().size(), 3u * kRounds);
    EXPECT_EQ(machine.spooler().FindPrinter(u"Office")->data.size(), 3u * kRounds);
    EXPECT_EQ(machine.OpenNow().handles, 0u);
}

TEST_F(SpoolerTest, ServesAThreadAsItsClientOrAsItself) {
    const HMODULE module = LoadLibraryW(u"spoolss.dll");
    ASSERT_NE(module, nullptr);
    const auto revert = platform::ExportOf<HANDLE (*)()>(module, "RevertToPrinterSelf");
    const auto impersonate =
        platform::ExportOf<BOOL (*)(HANDLE)>(module, "ImpersonatePrinterClient");
    EXPECT_TRUE(machine.spooler().ThreadActsForClient());
    const HANDLE token = revert();
    EXPECT_NE(token, nullptr);
    EXPECT_FALSE(machine.spooler().ThreadActsForClient());
    std::thread([&] { EXPECT_TRUE(machine.spooler().ThreadActsForClient()); }).join();
    EXPECT_EQ(revert(), nullptr);
    EXPECT_EQ(machine.OpenNow().handles, 1u);
    EXPECT_TRUE(impersonate(token));
    EXPECT_TRUE(machine.spooler().ThreadActsForClient());
    EXPECT_FALSE(impersonate(token));
    EXPECT_EQ(machine.OpenNow().handles, 0u);
    FreeLibrary(module);
}

TEST_F(SpoolerTest, KeepsItsStateInJson) {
    StoreDefaultSettings(5);
    machine.spooler().SetPrinterData(u"Office", u"Forms?", StoredNumber(2));
    machine.spooler().AddForm({u"\u00DCber", FORM_USER, {5, 6}, {1, 2, 3, 4}});
    const nlohmann::json saved = machine.spooler().Save();
    EXPECT_EQ(saved.at("printers").at(0).at("data").at("Forms?").at("data"), "02000000");
    EXPECT_EQ(saved.at("printers").at(0).at("defaultSettings"), "5a5a5a5a5a");

    machine.spooler().RemovePrinter(u"Office");
    machine.spooler().RemoveAllForms();
    machine.spooler().RemoveDriver(u"Fax");
    machine.spooler().Load(nlohmann::json::parse(saved.dump()));
    EXPECT_EQ(machine.spooler().PrinterData(u"Office", u"Forms?"), StoredNumber(2));
    EXPECT_EQ(machine.spooler().FindPrinter(u"Office")->portName, u"LPT1:");
    EXPECT_EQ(machine.spooler().FindPrinter(u"Office")->attributes, 0x40u);
    EXPECT_EQ(machine.spooler().drivers().at(0).dataFile, u"C:\\drivers\\FAX.PPD");
    EXPECT_EQ(machine.spooler().forms().back().name, u"\u00DCber");
    EXPECT_EQ(machine.spooler().forms().back().imageableArea.right, 3);

    nlohmann::json damaged = saved;
    damaged["printers"][0]["defaultSettings"] = "5g";
    EXPECT_THROW(machine.spooler().Load(damaged), std::runtime_error);
    EXPECT_NE(machine.spooler().FindPrinter(u"Office"), std::nullopt);
}

}  // namespace
}  // namespace embedded
