// ksfax install and upgrade on a kept machine, and state's view of what they leave.

#include <gtest/gtest.h>

#include "tests/tool/run_ksfax.h"

namespace tool {
namespace {

using nlohmann::json;

constexpr char kHelpKey[] = R"(HKEY_LOCAL_MACHINE\Software\Microsoft\Windows\Help)";

class Install : public testing::Test {
  protected:
    Install() { std::filesystem::copy_file(SOURCE_FOLDER "/examples/KSFAX.PPD", folder / "a.ppd"); }

    Outcome Run(std::vector<std::string> arguments) {
        arguments.insert(arguments.end(), {"--machine", "m"});
        return RunKsfax(folder, arguments);
    }
    json Changes(const std::string& command) {
        std::vector<std::string> arguments = {command, "--json"};
        if (command == "install") {
            arguments.push_back("a.ppd");
        }
        const Outcome run = Run(arguments);
        EXPECT_EQ(run.code, 0) << run.err;
        return run.Json()["changes"];
    }
    // The change of that name; null when it did not change.
    static json Of(const json& changes, const std::string& name) {
        for (const json& change : changes) {
            if (change["name"] == name) {
                return change;
            }
        }
        return nullptr;
    }
    json State() { return Run({"state", "--json"}).Json(); }

    // The kept machine's file, changed as an older driver or a user could have left it.
    json Machine() { return json::parse(FileText(folder / "m/machine.json")); }
    void Keep(const json& machine) { WriteText(folder / "m/machine.json", machine.dump()); }
    static json& Data(json& machine) { return machine["spooler"]["printers"][0]["data"]; }
    static void SetTrayForms(json& machine, const std::string& hexadecimal) {
        const uint8_t bytes = uint8_t(hexadecimal.size() / 2);
        constexpr char kDigits[] = "0123456789abcdef";
        const std::string size = {kDigits[bytes >> 4], kDigits[bytes & 15]};
        Data(machine)["TrayFormTable"] = {{"type", 3}, {"data", hexadecimal}};
        Data(machine)["TrayFormSize"] = {{"type", 4}, {"data", size + "000000"}};
    }

    TestFolder folder;
};

TEST_F(Install, StoresWhatStateShowsThen) {
    const json changes = Changes("install");
    EXPECT_EQ(Of(changes, "PrinterData")["what"], "data of printer Fax");
    EXPECT_EQ(Of(changes, "PrinterData")["from"], nullptr);
    EXPECT_EQ(Of(changes, "PrinterData")["to"]["memoryBytes"], 4194304);
    EXPECT_EQ(Of(changes, "PrinterDataSize")["to"], 108);
    EXPECT_EQ(Of(changes, kHelpKey)["to"]["class"], "Folder");
    const json state = State();
    EXPECT_EQ(state["printers"][0]["defaultSettingsBytes"], 2608);
    EXPECT_EQ(state["printers"][0]["data"]["PrinterData"], Of(changes, "PrinterData")["to"]);
    const json& local = state["registry"]["HKEY_LOCAL_MACHINE"]["keys"];
    EXPECT_EQ(local["Software"]["keys"]["Microsoft"]["keys"]["Windows"]["keys"]["Help"]["class"],
              "Folder");

    EXPECT_EQ(Changes("install"), json::array()) << "again";
    EXPECT_EQ(Changes("upgrade"), json::array());

    std::filesystem::copy_file(folder / "a.ppd", folder / "b.ppd");
    const Outcome other = Run({"install", "b.ppd", "--json"});
    EXPECT_EQ(other.Json()["replaced"], (folder / "a.ppd").string());
    EXPECT_TRUE(
        Of(other.Json()["changes"], "KS Fax")["to"]["dataFile"].get<std::string>().ends_with(
            "\\b.ppd"));
}

TEST_F(Install, UpgradeRewritesWhatIsOld) {
    Changes("install");
    json machine = Machine();
    std::string record = Data(machine)["PrinterData"]["data"];
    Data(machine)["PrinterData"]["data"] = record.replace(0, 4, "0301");
    Data(machine)["Forms?"] = {{"type", 4}, {"data", "02000000"}};
    // Two of the older table's entries: "A" "B" "C", and "D" "" "E".
    SetTrayForms(machine, "410000004200000043000000440000000000450000000000");
    for (json& form : machine["spooler"]["forms"]) {
        if (form["name"] == "A5") {
            form["name"] = "A5 148 x 210 mm";
            form["flags"] = 0;
        }
    }
    Keep(machine);
    const json changes = Changes("upgrade");
    EXPECT_EQ(Of(changes, "A5 148 x 210 mm")["from"]["kind"], "user");
    EXPECT_EQ(Of(changes, "A5 148 x 210 mm")["to"]["kind"], "printer");
    EXPECT_EQ(Of(changes, "PrinterData")["from"]["version"], 259);
    EXPECT_EQ(Of(changes, "PrinterData")["to"]["version"], 260);
    EXPECT_EQ(Of(changes, "TrayFormSize")["to"], 30);
    EXPECT_EQ(Of(changes, "TrayFormTable")["to"],
              "1e0041000000420000004300000000004400000000004500000000000000");
    EXPECT_EQ(State()["printers"][0]["data"]["Forms?"], 2);
    EXPECT_EQ(Changes("upgrade"), json::array()) << "again";
}

TEST_F(Install, UpgradeLeavesATableThatItCannotRead) {
    Changes("install");
    json machine = Machine();
    SetTrayForms(machine, "41000000");
    Keep(machine);
    const Outcome run = Run({"upgrade"});
    EXPECT_EQ(run.code, 3);
    EXPECT_NE(run.err.find("tray-form table"), std::string::npos) << run.err;
    EXPECT_EQ(Data(machine = Machine())["TrayFormTable"]["data"], "41000000");
}

TEST_F(Install, KeepsTheOldStateWhenTheNewOneCannotBeWritten) {
    Changes("install");
    const std::string before = FileText(folder / "m/machine.json");
    std::filesystem::create_directory(folder / "m/machine.json.new");
    const Outcome run = Run({"install", "a.ppd"});
    EXPECT_EQ(run.code, 1);
    EXPECT_NE(run.err.find("machine.json"), std::string::npos) << run.err;
    EXPECT_EQ(FileText(folder / "m/machine.json"), before);
}

TEST_F(Install, FailsClearly) {
    WriteText(folder / "no.ppd", "");
    const struct {
        const char* what;
        std::vector<std::string> arguments;
        int code;
        const char* says;
    } rows[] = {
        {"no machine", {"install", "a.ppd"}, 2, "--machine"},
        {"no PPD", {"install", "--machine", "m"}, 2, "PPD"},
        {"a missing PPD", {"install", "none.ppd", "--machine", "m"}, 1, "none.ppd"},
        {"no printer description", {"install", "no.ppd", "--machine", "m"}, 1, "no.ppd"},
        {"nothing to upgrade", {"upgrade", "--machine", "m"}, 1, "ksfax install"},
        {"nothing to show", {"state", "--machine", "m"}, 1, "ksfax install"},
    };
    for (const auto& row : rows) {
        const Outcome run = RunKsfax(folder, row.arguments);
        EXPECT_EQ(run.code, row.code) << row.what;
        EXPECT_NE(run.err.find(row.says), std::string::npos) << row.what << ": " << run.err;
        EXPECT_FALSE(std::filesystem::exists(folder / "m")) << row.what;
    }
    // A fax without a PPD makes the printer, but no driver for it.
    ASSERT_EQ(Run({"send", "--to", "A=1"}).code, 0);
    EXPECT_EQ(Run({"upgrade"}).code, 1);
    // A PPD that went away takes the upgrade with it.
    Changes("install");
    std::filesystem::remove(folder / "a.ppd");
    const Outcome gone = Run({"upgrade"});
    EXPECT_EQ(gone.code, 1);
    EXPECT_NE(gone.err.find("a.ppd"), std::string::npos) << gone.err;
}

}  // namespace
}  // namespace tool
