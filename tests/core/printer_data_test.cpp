// What is read of a printer's data and what is stored there, recorded in
// tests/golden/core/printer_data.txt.

#include <utility>

#include "platform/embedded/modules.h"

#include "tests/core/scene.h"
#include "tests/resource_file.h"

namespace ksfax {
namespace {

std::string Block(HANDLE printer) {
    DWORD length = 99;
    DWORD delivered = 99;
    const platform::GlobalBlock block =
        ReadPrinterBlock(printer, &length, BlockKind::TrayForms, &delivered);
    EXPECT_EQ(bool(ReadPrinterBlock(printer, nullptr, BlockKind::TrayForms)), bool(block));
    if (!block) {
        return "none, " + std::to_string(length) + " bytes";
    }
    EXPECT_EQ(GlobalSize(block.get()), length);
    return std::to_string(length) + " bytes, " + std::to_string(delivered) +
           " delivered: " + Hex(BytesOf(block.get(), length));
}

std::string Table(HANDLE printer) {
    const TrayFormTable table(ReadTrayFormTable(printer));
    if (!table) {
        return "none";
    }
    std::string text = "table";
    TrayFormEntry entry = {.slotName = u"", .formName = u"", .printerFormName = u"", .value = 77};
    const WCHAR* at = table.get();
    for (const WCHAR* next; (next = NextTrayFormEntry(at, &entry)) != at; at = next) {
        for (const WCHAR* name : {entry.slotName, entry.formName, entry.printerFormName}) {
            text += " " + embedded::Utf8(name) + ",";
        }
        text += " " + std::to_string(std::exchange(entry.value, 77)) + ";";
    }
    EXPECT_EQ(entry.value, 77) << "untouched at the end";
    return text;
}

// In the place of the library, which has no string of the languages.
HMODULE Languages(embedded::Machine& machine) {
    static const embedded::ResourceFile strings = [] {
        embedded::ResourceFile file;
        file.AddString(40060, u"English");
        file.AddString(42060, u"german");
        file.AddString(56060, u"Welsh");
        file.AddString(57060, u"Frisian");
        return file;
    }();
    machine.modules().Install(
        {.path = u"C:\\LANGUAGE.DLL", .exports = {}, .resources = strings.bytes});
    return LoadLibraryW(u"C:\\LANGUAGE.DLL");
}

TEST(PrinterData, IsAsRecorded) {
    EXPECT_TRUE(AnswersAreRecorded("core/printer_data.txt", [](const std::string& question) {
        Scene scene(question);
        EXPECT_NE(scene.description.get()->Checksum, 0);
        const HANDLE printer = scene.printer.get();
        const std::string before = scene.Stored();
        if (scene.Has("block") || scene.Has("table")) {
            return scene.Has("block") ? Block(printer) : Table(printer);
        }
        if (scene.Has("write")) {
            EXPECT_TRUE(WritePrinterBlock(printer, "abcde", 5, BlockKind::FontSubstitution));
            return "written:" + scene.Stored();
        }
        if (scene.Has("save")) {
            const HMODULE languages = Languages(scene.fax.machine);
            const HMODULE own = std::exchange(ownModule, languages);
            EXPECT_TRUE(SavePrinterDataRecord(printer, *scene.description.get()));
            ownModule = own;
            return "saved:" + scene.Stored();
        }
        const platform::GlobalBlock block = GetPrinterDataRecord(printer, *scene.description.get());
        EXPECT_EQ(GlobalSize(block.get()), sizeof(PrinterDataRecord));
        EXPECT_EQ(scene.Stored(), before) << "reading does not store";
        return "read:" + scene.Shown(*static_cast<PrinterDataRecord*>(block.get()));
    }));
}

}  // namespace
}  // namespace ksfax
