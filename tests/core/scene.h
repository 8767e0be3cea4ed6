#pragma once

// A printer as a line of tests/golden/core describes it, on a machine of its own. The first word
// is what to ask; every other one sets something:
//
//   FreeMem=50 UserName='Bob|'    a printer data value: a number of four bytes, 'bytes' or
//                                 "UTF-16", where | is zero and ~ the length in bytes of the
//                                 whole; *100 behind it cuts or fills up to 100 bytes
//   data=0x5A data.size=100       a stored device record of bytes 5A and its fields, its checksum
//                                 counted from the description's own
//   default=2608 dmPaperSize=1    the first bytes of the printer's default record, and its fields
//   country=49 port=LPT1: ...     as the code below says

#include <map>
#include <nlohmann/json.hpp>
#include <sstream>

#include "platform/embedded/text.h"

#include "core/spooler_queries.h"
#include "jobsettings/job_settings.h"
#include "tests/core/fax_machine.h"
#include "tests/golden.h"
#include "tool/record_fields.h"

namespace ksfax {

// Without the zeros at the end.
inline std::string Hex(Bytes bytes) {
    while (!bytes.empty() && bytes.back() == std::byte{0}) {
        bytes.pop_back();
    }
    std::string text = embedded::SavedBytes(bytes).dump();
    std::erase(text, '"');
    return text;
}

class Scene {
  public:
    explicit Scene(const std::string& question)
        : words_(Split(question)), fax({.driveC = {},
                                        .codePage = Number("codePage", 1252),
                                        .countryText = Text("country", u"1")}) {
        fax.ChangePpd(Has("language") ? "*DefaultLanguage: " + Word("language") + "\n" : "");
        const std::u16string driver = Text("driver", u"Fax Driver");
        fax.machine.spooler().AddDriver(
            {.name = driver, .dataFile = u"C:\\Ppd\\FAX.PPD", .helpFile = Text("help", u"")});
        embedded::Printer whole = {
            .name = FaxMachine::kPrinter, .driverName = driver, .portName = Text("port", u"FAX:")};
        fax.machine.spooler().AddPrinter(whole);
        printer = fax.Open(FaxMachine::kPrinter, !Has("open"));
        description.reset(AcquireDescription(printer.get(), true));
        BuildDefaultJobSettings(&defaults, driver.c_str(), *description.get(), IsMetricLocale());
        PrinterDataRecord record;
        std::memset(&record, static_cast<int>(Number("data")), sizeof(record));
        record.descriptionChecksum = 0;
        JobSettings own = defaults;
        for (const auto& field : tool::kRecordFields) {
            const bool isDevice = field.part == tool::RecordPart::Device;
            const std::string word = (isDevice ? "data." : "") + std::string(field.name);
            const DWORD number = Number(word);
            auto* start = isDevice ? reinterpret_cast<std::byte*>(&record)
                                   : reinterpret_cast<std::byte*>(&own);
            std::memcpy(start + OffsetOf(field), &number,
                        Has(word) ? std::min(field.width, sizeof(number)) : 0);
        }
        record.descriptionChecksum += description.get()->Checksum;
        whole.defaultSettings = BytesOf(&own, Number("default"));
        fax.machine.spooler().AddPrinter(whole);
        if (Has("data")) {
            fax.StoreDeviceRecord(record, Number("data.bytes", sizeof(record)));
        }
        for (const auto& [word, value] : words_) {
            if (!value.empty() && std::isupper(static_cast<unsigned char>(word[0]))) {
                fax.Store(embedded::Utf16(word), Value(value));
            }
        }
    }

    bool Has(const std::string& word) const { return words_.contains(word); }
    std::string Word(const std::string& word) const { return Has(word) ? words_.at(word) : ""; }

    // "name=value" of each field that is not as usual; the device record's checksum as in
    // questions.
    std::string Shown(PrinterDataRecord record, const PrinterDataRecord& usual = {}) const {
        record.descriptionChecksum -= description.get()->Checksum;
        return Differences(BytesOf(&record, sizeof(record)), BytesOf(&usual, sizeof(usual)), true);
    }
    std::string Shown(const JobSettings& settings, const JobSettings& usual) const {
        return Differences(BytesOf(&settings, sizeof(settings)), BytesOf(&usual, sizeof(usual)),
                           false);
    }
    // All printer data, with the values' types.
    std::string Stored() {
        std::string text;
        const auto whole = fax.machine.spooler().FindPrinter(FaxMachine::kPrinter);
        for (const auto& [name, value] : whole->data) {
            text += " " + embedded::Utf8(name) + "=" + std::to_string(value.type) + ":";
            if (name == u"PrinterData" && value.data.size() == sizeof(PrinterDataRecord)) {
                text += "(" + Shown(fax.StoredDeviceRecord()) + ")";
            } else {
                text += Hex(value.data) + "/" + std::to_string(value.data.size());
            }
        }
        return text;
    }

  private:
    std::map<std::string, std::string> words_;

  public:
    FaxMachine fax;
    platform::PrinterHandle printer;
    DescriptionUse description;
    JobSettings defaults;

  private:
    static std::map<std::string, std::string> Split(const std::string& question) {
        std::map<std::string, std::string> words;
        std::istringstream stream(question);
        for (std::string word; stream >> word;) {
            const size_t equals = word.find('=');
            words[word.substr(0, equals)] =
                equals != std::string::npos ? word.substr(equals + 1) : "";
        }
        return words;
    }
    DWORD Number(const std::string& word, DWORD otherwise = 0) const {
        return Has(word) ? static_cast<DWORD>(std::stoul(Word(word), nullptr, 0)) : otherwise;
    }
    std::u16string Text(const std::string& word, const char16_t* otherwise) const {
        return Has(word) ? embedded::Utf16(Word(word)) : otherwise;
    }
    static size_t OffsetOf(const tool::RecordField& field) {
        return field.offset + (field.part == tool::RecordPart::Private ? kPublicSize : 0);
    }
    static std::string Differences(const Bytes& record, const Bytes& usual, bool isDevice) {
        std::string text;
        for (const auto& field : tool::kRecordFields) {
            const Bytes bytes = (field.part == tool::RecordPart::Device) == isDevice
                                    ? BytesOf(record.data() + OffsetOf(field), field.width)
                                    : Bytes();
            if (!bytes.empty() && bytes != BytesOf(usual.data() + OffsetOf(field), field.width)) {
                uint32_t number = 0;
                std::memcpy(&number, bytes.data(), std::min(field.width, sizeof(number)));
                text += " " + std::string(field.name) + "=" +
                        (field.isNumber ? std::to_string(number) : Hex(bytes));
            }
        }
        return text;
    }
    static Bytes Value(const std::string& word) {
        const size_t end = word.rfind('*');
        const std::string value = word.substr(0, end);
        std::u16string wide;
        Bytes bytes;
        if (value[0] == '\'' || value[0] == '"') {
            const size_t length = value.size() - 2;
            for (const char letter : value.substr(1, length)) {
                wide += static_cast<char16_t>(letter == '|'   ? 0
                                              : letter == '~' ? length * 2
                                                              : letter);
            }
            bytes =
                value[0] == '"' ? BytesOf(wide) : BytesOf(std::string(wide.begin(), wide.end()));
        } else {
            const auto number = static_cast<DWORD>(std::stoul(value, nullptr, 0));
            bytes = BytesOf(&number, sizeof(number));
        }
        if (end != std::string::npos) {
            bytes.resize(std::stoul(word.substr(end + 1)));
        }
        return bytes;
    }
};

}  // namespace ksfax
