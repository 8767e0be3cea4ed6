// The package's INF file, followed with the setup functions as Windows' installer follows it.

#include <filesystem>
#include <set>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "platform/windows_api.h"

#include "setupapi.h"  // after the types that it needs

namespace {

using Fields = std::vector<std::wstring>;  // 0 is what stands before the equals sign

class InfFile : public testing::Test {
  protected:
    InfFile() {
        WCHAR program[MAX_PATH] = {};
        GetModuleFileNameW(nullptr, program, MAX_PATH);
        const auto file = std::filesystem::path(program).replace_filename(TEXT("KSFAX.INF"));
        UINT badLine = 0;
        inf_ = SetupOpenInfFileW(file.c_str(), TEXT("Printer"), INF_STYLE_WIN4, &badLine);
        EXPECT_NE(inf_, INVALID_HANDLE_VALUE) << "line " << badLine << ", " << GetLastError();
    }
    ~InfFile() override { SetupCloseInfFile(inf_); }

    // The lines of a section, which counts as reached then.
    std::vector<Fields> Lines(const std::wstring& section) {
        reached.insert(section);
        std::vector<Fields> lines;
        INFCONTEXT at;
        for (BOOL found = SetupFindFirstLineW(inf_, section.c_str(), nullptr, &at); found;
             found = SetupFindNextLine(&at, &at)) {
            lines.emplace_back();
            for (DWORD i = 0; i <= SetupGetFieldCount(&at); ++i) {
                WCHAR text[256] = {};
                SetupGetStringFieldW(&at, i, text, 256, nullptr);
                lines.back().emplace_back(text);
            }
        }
        EXPECT_FALSE(lines.empty()) << section.c_str();
        return lines;
    }
    // The values of the one line with that key.
    Fields Line(const std::wstring& section, const std::wstring& key) {
        std::vector<Fields> lines = Lines(section);
        std::erase_if(lines, [&](const Fields& line) { return line[0] != key; });
        EXPECT_EQ(lines.size(), 1u) << section.c_str() << " and " << key.c_str();
        return lines.empty() ? Fields(1) : Fields(lines[0].begin() + 1, lines[0].end());
    }

    std::set<std::wstring> reached = {TEXT("Strings")};  // by the texts that stand for them

    HINF inf_;
};

TEST_F(InfFile, LeadsToEveryFileAndSectionItNames) {
    EXPECT_EQ(Line(TEXT("Version"), TEXT("Class")), Fields{TEXT("Printer")});
    EXPECT_EQ(Line(TEXT("Version"), TEXT("ClassGuid")),
              Fields{TEXT("{4D36E979-E325-11CE-BFC1-08002BE10318}")});
    EXPECT_EQ(Line(TEXT("Version"), TEXT("DriverVer")).size(), 2u);
    EXPECT_EQ(Line(TEXT("Version"), TEXT("CatalogFile")), Fields{TEXT("KSFAX.CAT")});

    std::set<std::wstring> copied;
    for (const Fields& maker : Lines(TEXT("Manufacturer"))) {
        ASSERT_EQ(maker.size(), 3u);
        EXPECT_EQ(maker[2], TEXT("NTamd64"));
        for (const Fields& model : Lines(maker[1] + TEXT(".") + maker[2])) {
            EXPECT_EQ(model[0], TEXT("KSFAX Fax Printer"));
            const std::wstring install = model.at(1);
            for (const std::wstring& section : Line(install, TEXT("CopyFiles"))) {
                for (const Fields& line : Lines(section)) {
                    copied.insert(line[1]);
                }
            }
            EXPECT_EQ(Line(install, TEXT("ConfigFile")), Fields{TEXT("KSFAXUI.DLL")});
            EXPECT_EQ(Line(install, TEXT("DataFile")), Fields{TEXT("KSFAX.PPD")});
            const std::wstring renderer = Line(install, TEXT("DriverFile")).at(0);
            EXPECT_EQ(copied,
                      (std::set<std::wstring>{TEXT("KSFAXUI.DLL"), TEXT("KSFAX.PPD"), renderer}));
        }
    }
    // Version 3 drivers lie in the printer driver folder, 66000.
    EXPECT_EQ(Line(TEXT("DestinationDirs"), TEXT("DefaultDestDir")), Fields{TEXT("66000")});
    for (const std::wstring& file : copied) {
        const std::wstring disk = Line(TEXT("SourceDisksFiles"), file).at(0);
        EXPECT_NE(Line(TEXT("SourceDisksNames.amd64"), disk).at(0), TEXT("")) << file.c_str();
    }
    std::set<std::wstring> sections;
    WCHAR name[256];
    for (UINT i = 0; SetupEnumInfSectionsW(inf_, i, name, 256, nullptr); ++i) {
        sections.insert(name);
    }
    EXPECT_EQ(sections, reached) << "a section that nothing leads to";
}

}  // namespace
