#include <gtest/gtest.h>

#include "platform/embedded/api_kernel.h"
#include "platform/embedded/modules.h"

namespace embedded {
namespace {

INT_PTR First() {
    return 1;
}
INT_PTR Second() {
    return 2;
}

constexpr std::byte kResources[] = {std::byte{1}, std::byte{2}};

class ModulesTest : public testing::Test {
  protected:
    ModulesTest() {
        machine.modules().Install({.path = u"C:\\Windows\\System32\\KSFAXDLG.DLL",
                                   .exports = {{"DialDlg", First}},
                                   .resources = kResources});
    }

    Machine machine;
};

TEST_F(ModulesTest, AreLoadedByNameOrPathAndCounted) {
    const HMODULE module = LoadLibraryW(u"ksfaxdlg.dll");
    ASSERT_GE(reinterpret_cast<uintptr_t>(module), 32u);
    EXPECT_EQ(LoadLibraryW(u"KSFAXDLG"), module);
    EXPECT_EQ(LoadLibraryW(u"c:\\windows/SYSTEM32\\KsFaxDlg.dll"), module);
    EXPECT_EQ(LoadLibraryW(u"C:\\Windows\\KSFAXDLG.DLL"), nullptr);
    EXPECT_EQ(LoadLibraryW(u"KSFAXDLG."), nullptr) << "a full stop at the end means no extension";
    EXPECT_EQ(machine.OpenNow().modules, 3u);
    EXPECT_EQ(machine.modules().CountLoaded(u"C:\\WINDOWS\\System32\\ksfaxdlg.dll"), 3u);
    EXPECT_EQ(machine.modules().Resources(module).data(), kResources);

    const FARPROC found = GetProcAddress(module, "DialDlg");
    ASSERT_NE(found, nullptr);
    EXPECT_EQ(found(), 1);
    EXPECT_EQ(GetProcAddress(module, "dialdlg"), nullptr);
    EXPECT_EQ(GetLastError(), ERROR_PROC_NOT_FOUND);
    EXPECT_EQ(GetProcAddress(module, reinterpret_cast<LPCSTR>(uintptr_t{1})), nullptr);

    for (int i = 0; i < 3; ++i) {
        EXPECT_TRUE(FreeLibrary(module));
    }
    EXPECT_FALSE(FreeLibrary(module));
    EXPECT_EQ(GetProcAddress(module, "DialDlg"), nullptr);
    EXPECT_EQ(GetLastError(), ERROR_MOD_NOT_FOUND);
    EXPECT_TRUE(machine.modules().Resources(module).empty());
    EXPECT_EQ(machine.OpenNow(), Leaks{});
}

TEST_F(ModulesTest, FileNameIsCutAndTerminated) {
    const HMODULE module = LoadLibraryW(u"KSFAXDLG.DLL");
    const std::u16string whole = u"C:\\Windows\\System32\\KSFAXDLG.DLL";  // 32 characters
    WCHAR path[64];
    EXPECT_EQ(GetModuleFileNameW(module, path, 33), 32u);
    EXPECT_EQ(path, whole);
    EXPECT_EQ(GetLastError(), ERROR_SUCCESS);
    EXPECT_EQ(GetModuleFileNameW(module, path, 32), 32u);
    EXPECT_EQ(path, whole.substr(0, 31));
    EXPECT_EQ(GetLastError(), ERROR_INSUFFICIENT_BUFFER);
    EXPECT_EQ(GetModuleFileNameW(module, nullptr, 0), 0u);
    FreeLibrary(module);
}

TEST_F(ModulesTest, CanBeReplacedRemovedAndRefused) {
    const HMODULE old = LoadLibraryW(u"KSFAXDLG.DLL");
    machine.modules().Install({.path = u"c:\\windows\\system32\\ksfaxdlg.dll",
                               .exports = {{"DialDlg", Second}},
                               .resources = {}});
    EXPECT_FALSE(FreeLibrary(old));
    const HMODULE replaced = LoadLibraryW(u"KSFAXDLG.DLL");
    EXPECT_EQ(GetProcAddress(replaced, "DialDlg")(), 2);

    machine.modules().AnswerLoadWith(u"ksfaxdlg.DLL", 2);
    EXPECT_EQ(LoadLibraryW(u"KSFAXDLG.DLL"), reinterpret_cast<HMODULE>(uintptr_t{2}));
    EXPECT_EQ(machine.OpenNow().modules, 1u);
    EXPECT_FALSE(FreeLibrary(reinterpret_cast<HMODULE>(uintptr_t{2})));
    machine.modules().Remove(u"C:\\Windows\\System32\\KSFAXDLG.DLL");
    EXPECT_EQ(LoadLibraryW(u"KSFAXDLG.DLL"), nullptr);
    EXPECT_EQ(GetLastError(), ERROR_MOD_NOT_FOUND);
    EXPECT_EQ(machine.OpenNow(), Leaks{});
}

}  // namespace
}  // namespace embedded
