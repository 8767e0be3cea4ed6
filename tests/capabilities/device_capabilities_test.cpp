// What DrvDeviceCapabilities answers, recorded in tests/golden/capabilities/answers.txt: printer
// and index, "formless" without the forms database, then a record's two sizes and two versions and
// fields of it as offset, bytes and value.

#include <sstream>

#include <gtest/gtest.h>

#include "capabilities/paper_names.h"
#include "tests/capabilities/ppd_printer.h"
#include "tests/golden.h"
#include "tests/jobsettings/record_bytes.h"

namespace ksfax {
namespace {

// Bytes of each item that a query writes.
size_t ItemSize(WORD index) {
    switch (index) {
    case DC_PAPERS:
        return sizeof(WORD);
    case DC_PAPERNAMES:
    case DC_MEDIAREADY:
        return 64 * sizeof(WCHAR);
    case DC_PAPERSIZE:
    case DC_ENUMRESOLUTIONS:
        return sizeof(POINTL);
    default:
        return 0;
    }
}

std::string ShownItem(const uint8_t* item, size_t size) {
    if (size == 64 * sizeof(WCHAR)) {
        const std::u16string name(reinterpret_cast<const char16_t*>(item));
        return "\"" + std::string(name.begin(), name.end()) + "\"";
    }
    LONG numbers[2] = {};
    std::memcpy(numbers, item, size);
    const std::string first = std::to_string(numbers[0]);
    return size == sizeof(WORD) ? first : first + "x" + std::to_string(numbers[1]);
}

std::string Ask(FaxMachine& fax, const std::string& question) {
    std::istringstream words(question);
    std::string printerName;
    std::string indexText;
    words >> printerName >> indexText;
    const auto index = static_cast<WORD>(std::stoul(indexText));
    std::vector<uint32_t> numbers;
    for (std::string word; words >> word;) {
        if (word == "formless") {
            fax.machine.spooler().RemoveAllForms();
        } else {
            numbers.push_back(static_cast<uint32_t>(std::stoul(word, nullptr, 0)));
        }
    }
    RecordBytes record;
    for (size_t i = 4; i <= numbers.size(); i += 3) {
        if (i == 4) {
            record = CallersRecord(static_cast<WORD>(numbers[0]), static_cast<WORD>(numbers[1]),
                                   static_cast<WORD>(numbers[2]), static_cast<WORD>(numbers[3]));
        } else {
            Put(&record, Field{numbers[i - 3], numbers[i - 2], numbers[i - 1]});
        }
    }
    const platform::PrinterHandle printer = AddPpdPrinter(fax, printerName);
    WCHAR name[] = TEXT("Fax");
    const auto ask = [&](void* output) {
        return DrvDeviceCapabilities(printer.get(), name, index, output,
                                     record.empty() ? nullptr : AsDevMode(record));
    };
    const DWORD count = ask(nullptr);
    EXPECT_EQ(descriptionCache.useCount, 0);
    // Nothing may be written behind the items, of an empty list of files behind its end.
    const size_t items = count == GDI_ERROR || ItemSize(index) == 0 ? 0 : count;
    const size_t written = index == DC_FILEDEPENDENCIES ? sizeof(WCHAR) : items * ItemSize(index);
    RecordBytes output(written + 200, 0xEE);
    fax.machine.faults.Count();
    EXPECT_EQ(ask(output.data()), count);
    EXPECT_EQ(std::ranges::count(fax.machine.faults.names(), "CreateFileW"), 0) << "it is cached";
    fax.machine.faults.Clear();
    EXPECT_EQ(std::count(output.begin() + static_cast<ptrdiff_t>(written), output.end(), 0xEE),
              200);
    EXPECT_TRUE(index != DC_FILEDEPENDENCIES || (output[0] | output[1]) == 0);
    std::string answer = count == GDI_ERROR ? "not answered" : std::to_string(count);
    for (size_t i = 0; i < items; ++i) {
        answer += " " + ShownItem(&output[i * ItemSize(index)], ItemSize(index));
    }
    return answer;
}

TEST(Capabilities, AreAsRecorded) {
    FaxMachine fax;
    EXPECT_TRUE(AnswersAreRecorded("capabilities/answers.txt", [&](const std::string& question) {
        return Ask(fax, question);
    }));
    EXPECT_TRUE(AnswersAreRecorded("capabilities/names.txt", [](const std::string& keyword) {
        return std::to_string(PaperNameString(keyword.c_str()));
    }));
    EXPECT_EQ(PaperNameString(nullptr), 0u);
}

// Whatever fails, nothing stays taken and the description is given back; calls whose failure has
// a fallback leave the answer as it is.
TEST(Capabilities, SurviveEachFailure) {
    FaxMachine fax;
    const platform::PrinterHandle printer = AddPpdPrinter(fax, "both");
    RecordBytes settings = CallersRecord(220, 0);
    for (const auto& [index, good] :
         {std::pair<WORD, DWORD>(DC_MINEXTENT, 0x05CD041A), {DC_PAPERS, 4}}) {
        DWORD answer = 0;
        fax.FailEachCall([] {},
                         [&] {
                             answer = DrvDeviceCapabilities(printer.get(), nullptr, index, nullptr,
                                                            AsDevMode(settings));
                             EXPECT_EQ(descriptionCache.useCount, 0);
                         },
                         [&](const std::string& failed) {
                             const bool fatal =
                                 failed == "GetPrinterDriverW" || failed == "EnumFormsW";
                             EXPECT_TRUE(answer == GDI_ERROR || (answer == good && !fatal));
                             EXPECT_TRUE(answer == good || !failed.empty());
                         });
    }
}

}  // namespace
}  // namespace ksfax
