// What sessions hold and leave behind, recorded in tests/golden/core/sessions.txt, and what holds
// when a call fails, in faults.txt there.

#include <map>

#include "core/session.h"
#include "tests/core/scene.h"

namespace ksfax {
namespace {

std::string Name(const WCHAR* text) {
    return text != nullptr ? "\"" + embedded::Utf8(text) + "\"" : "none";
}

// What the printer has stored: its default record, its data and the driver's forms.
std::string StateOf(Scene& scene) {
    const Bytes own =
        scene.fax.machine.spooler().FindPrinter(FaxMachine::kPrinter)->defaultSettings;
    std::string text = std::to_string(own.size()) + " bytes";
    if (own.size() == sizeof(JobSettings)) {
        JobSettings settings;
        std::memcpy(&settings, own.data(), sizeof(settings));
        text += scene.Shown(settings, scene.defaults);
    }
    text += ";" + scene.Stored() + ";";
    for (const embedded::Form& form : scene.fax.machine.spooler().forms()) {
        text += form.flags == FORM_PRINTER ? " " + embedded::Utf8(form.name) : "";
    }
    const embedded::PrinterOpening opening = scene.fax.machine.spooler().lastOpening();
    EXPECT_FALSE(opening.hasRecord);
    return text + "; " + embedded::Utf8(opening.dataType) + " " + std::to_string(opening.access);
}

std::string Shown(const Scene& scene, const PrinterSession& session) {
    EXPECT_TRUE(IsPrinterSession(&session));
    PrinterSession copy = session;
    copy.selfCheckHead = copy.selfCheckTail = &copy;
    for (auto end : {&PrinterSession::selfCheckHead, &PrinterSession::selfCheckTail}) {
        copy.*end = nullptr;
        EXPECT_FALSE(IsPrinterSession(&copy)) << "the other end alone is right";
        copy.*end = &copy;
    }
    EXPECT_FALSE(IsPrinterSession(nullptr));
    EXPECT_EQ(session.canModify, 0u);
    EXPECT_EQ(session.printerHandle, scene.printer.get());
    EXPECT_EQ(session.description, scene.description.get());
    EXPECT_EQ(session.pageResourceModule, nullptr);
    EXPECT_EQ(session.pageBrush, nullptr);
    EXPECT_EQ(descriptionCache.useCount, 2);
    JobSettings usual = scene.defaults;
    DeriveJobBlock(&usual);
    const platform::GlobalBlock block =
        BuildDefaultPrinterData(scene.printer.get(), *session.description);
    auto& usualDevice = *static_cast<PrinterDataRecord*>(block.get());
    usualDevice.descriptionChecksum = 0;
    return "driver " + Name(session.driverName) + ", port " + Name(session.portName) + ", help " +
           Name(session.helpFilePath) + ", settings" + scene.Shown(session.jobSettings, usual) +
           ", device" + scene.Shown(session.printerData, usualDevice);
}

TEST(PrinterSession, HoldsAndLeavesWhatIsRecorded) {
    std::optional<Scene> scene;
    EXPECT_TRUE(AnswersAreRecorded("core/sessions.txt", [&](const std::string& question) {
        if (!question.starts_with("then")) {
            scene.reset();  // one machine at a time
            scene.emplace(question);
        }
        const char who = question[5];
        embedded::Machine& machine = scene->fax.machine;
        JobSettings caller = scene->defaults;
        caller.devMode.dmFields = DM_PAPERSIZE;
        caller.devMode.dmPaperSize = DMPAPER_A4;
        const embedded::Leaks before = machine.OpenNow();
        machine.spooler().SetAdministrator(who == 'a' || who == 'A');
        machine.faults.Count([](const std::string& call) {
            if (call == "AddFormW" || call == "SetPrinterDataW") {
                EXPECT_FALSE(embedded::IsHeldByAnyone(moduleLock)) << call;
            }
        });
        OpenSession session(
            OpenPrinterSession(scene->printer.get(), who < 'a' ? &caller.devMode : nullptr));
        machine.faults.Clear();
        const std::string text = Shown(*scene, *session.get()) + " / " + StateOf(*scene);
        session.reset();
        EXPECT_EQ(descriptionCache.useCount, 1);
        EXPECT_EQ(machine.OpenNow(), before);
        return text;
    }));
}

// What each operation came to when the nth of its calls of a name failed alone.
TEST(PrinterSession, IsOneOfTheOperationsThatGiveEverythingBackWhateverFails) {
    Scene scene("default=2608 dmSpecVersion=0x400 help=C:\\Help\\FAX.HLP country=49");
    const HANDLE printer = scene.printer.get();
    const PrinterDescription& description = *scene.description.get();
    const embedded::Printer foreign =
        *scene.fax.machine.spooler().FindPrinter(FaxMachine::kPrinter);
    const platform::PrivateHeap heap(HeapCreate(0, 8192, 0));
    const std::pair<const char*, std::function<std::string()>> operations[] = {
        {"AcquireDescription",
         [&] { return DescriptionUse(AcquireDescription(printer, false)) ? "done" : "none"; }},
        {"IsMetricLocale", [] { return IsMetricLocale() ? "metric" : "inches"; }},
        {"FindHelpFile", [&] { return Name(FindHelpFile(printer, heap.get())); }},
        {"ReadTrayFormTable",
         [&] { return TrayFormTable(ReadTrayFormTable(printer)) ? "table" : "none"; }},
        {"WritePrinterBlock",
         [&] {
             return WritePrinterBlock(printer, "xy", 2, BlockKind::TrayForms) ? "done" : "not";
         }},
        {"SavePrinterDataRecord",
         [&] { return SavePrinterDataRecord(printer, description) ? "done" : "not"; }},
        {"OpenPrinterSession",
         [&] {
             const OpenSession session(OpenPrinterSession(printer, nullptr));
             return session ? "open, help " + Name(session.get()->helpFilePath) : "refused";
         }},
    };
    std::string outcome;
    std::string all;
    for (const bool isStored : {false, true}) {
        for (const auto& [name, act] : operations) {
            std::map<std::string, int> seen;
            all += std::string(name) + (isStored ? "\n" : ", nothing stored\n");
            const auto prepare = [&] {
                scene.fax.machine.spooler().AddPrinter(foreign);
                scene.fax.machine.spooler().RemoveAllForms();
                if (isStored) {
                    scene.fax.StoreTable(BytesOf(std::u16string_view(u"\4\0", 2)));
                    scene.fax.StoreDeviceRecord(FaxMachine::DeviceRecord());
                }
            };
            const auto record = [&](const FailedCall& failed) {
                EXPECT_FALSE(embedded::IsHeldByAnyone(moduleLock));
                if (!failed.andAllLater) {
                    all += "  " + failed.name + " " + std::to_string(++seen[failed.name]) + ": " +
                           outcome + " / " + StateOf(scene) + "\n";
                }
            };
            UnderFaults(scene.fax.machine,
                        {.prepare = prepare, .act = [&] { outcome = act(); }, .holds = record});
        }
    }
    EXPECT_TRUE(IsRecorded("core/faults.txt", all));
    // A spooler that does not tell the printer's name: none is opened, nor the print server.
    scene.fax.machine.spooler().ReportSize("GetPrinterW", sizeof(PRINTER_INFO_2W));
    scene.fax.machine.faults.Count(
        [](const std::string& call) { EXPECT_NE(call, "OpenPrinterW"); });
    EXPECT_FALSE(SetPrinterDataAsAdministrator(printer, u"Some", REG_BINARY, "x", 1));
}

}  // namespace
}  // namespace ksfax
