// ksfax settings: the job settings record that the driver makes and merges.

#include <algorithm>
#include <cstring>
#include <fstream>
#include <iostream>

#include "core/spooler_queries.h"
#include "jobsettings/job_settings.h"
#include "platform/embedded/text.h"
#include "tool/fax_input.h"
#include "tool/ppd_file.h"
#include "tool/program.h"
#include "tool/settings_record.h"

namespace tool {

namespace {

using nlohmann::ordered_json;
using Record = std::vector<std::byte>;

enum class Shape { Unsigned, Signed, Text, Bytes };

struct Field {
    const char* name;
    size_t offset;  // in its half
    size_t width;
    Shape shape;
    const char* unit;
};

#define KSFAX_PUBLIC(field, shape, unit) \
    Field{#field, offsetof(DEVMODEW, field), sizeof(DEVMODEW::field), Shape::shape, unit}
#define KSFAX_PRIVATE(field, shape, unit)                     \
    Field{#field, offsetof(ksfax::PrivateJobSettings, field), \
          sizeof(ksfax::PrivateJobSettings::field), Shape::shape, unit}

// clang-format off
constexpr Field kPublicFields[] = {
    KSFAX_PUBLIC(dmDeviceName, Text, ""),
    KSFAX_PUBLIC(dmSpecVersion, Unsigned, ""),
    KSFAX_PUBLIC(dmDriverVersion, Unsigned, ""),
    KSFAX_PUBLIC(dmSize, Unsigned, "bytes"),
    KSFAX_PUBLIC(dmDriverExtra, Unsigned, "bytes"),
    KSFAX_PUBLIC(dmFields, Unsigned, ""),
    KSFAX_PUBLIC(dmOrientation, Signed, ""),
    KSFAX_PUBLIC(dmPaperSize, Signed, ""),
    KSFAX_PUBLIC(dmPaperLength, Signed, "tenths of a millimetre"),
    KSFAX_PUBLIC(dmPaperWidth, Signed, "tenths of a millimetre"),
    KSFAX_PUBLIC(dmScale, Signed, "percent"),
    KSFAX_PUBLIC(dmCopies, Signed, ""),
    KSFAX_PUBLIC(dmDefaultSource, Signed, ""),
    KSFAX_PUBLIC(dmPrintQuality, Signed, "dots per inch"),
    KSFAX_PUBLIC(dmColor, Signed, ""),
    KSFAX_PUBLIC(dmDuplex, Signed, ""),
    KSFAX_PUBLIC(dmYResolution, Signed, "dots per inch"),
    KSFAX_PUBLIC(dmTTOption, Signed, ""),
    KSFAX_PUBLIC(dmCollate, Signed, ""),
    KSFAX_PUBLIC(dmFormName, Text, ""),
    KSFAX_PUBLIC(dmLogPixels, Unsigned, ""),
    KSFAX_PUBLIC(dmBitsPerPel, Unsigned, ""),
    KSFAX_PUBLIC(dmPelsWidth, Unsigned, ""),
    KSFAX_PUBLIC(dmPelsHeight, Unsigned, ""),
    KSFAX_PUBLIC(dmDisplayFlags, Unsigned, ""),
    KSFAX_PUBLIC(dmDisplayFrequency, Unsigned, ""),
    KSFAX_PUBLIC(dmICMMethod, Unsigned, ""),
    KSFAX_PUBLIC(dmICMIntent, Unsigned, ""),
    KSFAX_PUBLIC(dmMediaType, Unsigned, ""),
    KSFAX_PUBLIC(dmDitherType, Unsigned, ""),
};

// All but the reserved ones.
constexpr Field kPrivateFields[] = {
    KSFAX_PRIVATE(extensionOffset, Unsigned, ""),
    KSFAX_PRIVATE(privateFlags, Unsigned, ""),
    KSFAX_PRIVATE(descriptionChecksum, Unsigned, ""),
    KSFAX_PRIVATE(featureCount, Unsigned, ""),
    KSFAX_PRIVATE(featureSelections, Bytes, ""),
    KSFAX_PRIVATE(sleepModeTime, Unsigned, ""),
    KSFAX_PRIVATE(fixed186, Unsigned, ""),
    KSFAX_PRIVATE(pagesPerSheet, Signed, ""),
    KSFAX_PRIVATE(tonerSaveMode, Unsigned, ""),
    KSFAX_PRIVATE(mediaType, Unsigned, ""),
    KSFAX_PRIVATE(hrcMode, Unsigned, ""),
    KSFAX_PRIVATE(pageProtectMode, Unsigned, ""),
    KSFAX_PRIVATE(printerCaps, Unsigned, ""),
    KSFAX_PRIVATE(halfResolution, Unsigned, "dots per inch"),
    KSFAX_PRIVATE(collateControl, Unsigned, ""),
    KSFAX_PRIVATE(showBiasVolt, Unsigned, ""),
    KSFAX_PRIVATE(biasVolt, Unsigned, ""),
    KSFAX_PRIVATE(scalePercent, Unsigned, ""),
    KSFAX_PRIVATE(inchUnits, Unsigned, ""),
    KSFAX_PRIVATE(customWidth, Unsigned, "tenths of a millimetre"),
    KSFAX_PRIVATE(customLength, Unsigned, "tenths of a millimetre"),
    KSFAX_PRIVATE(customPaperName, Text, ""),
    KSFAX_PRIVATE(textOptions, Unsigned, ""),
    KSFAX_PRIVATE(textFont, Bytes, "RGB"),
    KSFAX_PRIVATE(textBackColor, Unsigned, "RGB"),
    KSFAX_PRIVATE(duplexFlags, Unsigned, ""),
    KSFAX_PRIVATE(layoutFlags, Unsigned, ""),
    KSFAX_PRIVATE(quickPrintSetup, Unsigned, ""),
    KSFAX_PRIVATE(counterEnabled, Unsigned, ""),
    KSFAX_PRIVATE(compressionMode, Unsigned, ""),
    KSFAX_PRIVATE(counterValue, Unsigned, ""),
    KSFAX_PRIVATE(counterMode, Unsigned, ""),
    KSFAX_PRIVATE(bandingAllowed, Unsigned, ""),
    KSFAX_PRIVATE(rotationFlags, Unsigned, "degrees"),
    KSFAX_PRIVATE(pageFlags, Unsigned, ""),
    KSFAX_PRIVATE(source1, Unsigned, ""),
    KSFAX_PRIVATE(source2, Unsigned, ""),
    KSFAX_PRIVATE(outputBase, Unsigned, ""),
    KSFAX_PRIVATE(reprintOptions, Unsigned, ""),
    KSFAX_PRIVATE(defaultsMarker, Unsigned, ""),
    KSFAX_PRIVATE(reprintFlags, Unsigned, ""),
    KSFAX_PRIVATE(fixed454, Unsigned, ""),
    KSFAX_PRIVATE(userText1, Bytes, ""),
    KSFAX_PRIVATE(userText2, Bytes, ""),
    KSFAX_PRIVATE(stapleMode, Unsigned, ""),
    KSFAX_PRIVATE(initialPaperSize, Unsigned, ""),
    KSFAX_PRIVATE(layoutValue, Unsigned, ""),
    KSFAX_PRIVATE(deviceByte, Unsigned, ""),
    KSFAX_PRIVATE(fixed1168, Unsigned, ""),
    KSFAX_PRIVATE(halftoneInfo, Bytes, ""),
    KSFAX_PRIVATE(jobText, Text, ""),
    KSFAX_PRIVATE(blockSize, Unsigned, ""),
    KSFAX_PRIVATE(duplexOut, Unsigned, ""),
    KSFAX_PRIVATE(pagesPerSheetOut, Signed, ""),
    KSFAX_PRIVATE(collateRequested, Unsigned, ""),
    KSFAX_PRIVATE(collateOut, Unsigned, ""),
    KSFAX_PRIVATE(fixed1470, Unsigned, ""),
    KSFAX_PRIVATE(landscapeAngle, Unsigned, "degrees"),
    KSFAX_PRIVATE(copyControl, Unsigned, ""),
    KSFAX_PRIVATE(defaultsMarkerOut, Unsigned, ""),
    KSFAX_PRIVATE(capsFlags, Unsigned, ""),
    KSFAX_PRIVATE(textFontOut, Bytes, ""),
    KSFAX_PRIVATE(textBackColorOut, Unsigned, "RGB"),
    KSFAX_PRIVATE(counterReserved, Unsigned, ""),
    KSFAX_PRIVATE(counterOn, Unsigned, ""),
    KSFAX_PRIVATE(counterOut, Unsigned, ""),
    KSFAX_PRIVATE(counterFlag, Unsigned, ""),
    KSFAX_PRIVATE(rotationAngle, Unsigned, "degrees"),
    KSFAX_PRIVATE(pagePaperSizeOut, Unsigned, ""),
    KSFAX_PRIVATE(initialPaperSizeOut, Unsigned, ""),
    KSFAX_PRIVATE(scaleOut, Unsigned, "percent"),
    KSFAX_PRIVATE(faxResolution, Unsigned, "dots per inch"),
};

struct CodeName {
    std::string_view field;
    long code;
    const char* name;
};
// The published names of coded values.
constexpr CodeName kCodeNames[] = {
    {"dmOrientation", 1, "DMORIENT_PORTRAIT"},
    {"dmOrientation", 2, "DMORIENT_LANDSCAPE"},
    {"dmPaperSize", 1, "DMPAPER_LETTER"},
    {"dmPaperSize", 3, "DMPAPER_TABLOID"},
    {"dmPaperSize", 4, "DMPAPER_LEDGER"},
    {"dmPaperSize", 5, "DMPAPER_LEGAL"},
    {"dmPaperSize", 7, "DMPAPER_EXECUTIVE"},
    {"dmPaperSize", 8, "DMPAPER_A3"},
    {"dmPaperSize", 9, "DMPAPER_A4"},
    {"dmPaperSize", 11, "DMPAPER_A5"},
    {"dmPaperSize", 12, "DMPAPER_B4"},
    {"dmPaperSize", 13, "DMPAPER_B5"},
    {"dmPaperSize", 14, "DMPAPER_FOLIO"},
    {"dmPaperSize", 20, "DMPAPER_ENV_10"},
    {"dmPaperSize", 27, "DMPAPER_ENV_DL"},
    {"dmPaperSize", 28, "DMPAPER_ENV_C5"},
    {"dmPaperSize", 34, "DMPAPER_ENV_B5"},
    {"dmPaperSize", 37, "DMPAPER_ENV_MONARCH"},
    {"dmPaperSize", 43, "DMPAPER_JAPANESE_POSTCARD"},
    {"dmPaperSize", 70, "DMPAPER_A6"},
    {"dmPaperSize", 256, "DMPAPER_USER"},
    {"dmDefaultSource", 1, "DMBIN_UPPER"},
    {"dmDefaultSource", 2, "DMBIN_LOWER"},
    {"dmDefaultSource", 4, "DMBIN_MANUAL"},
    {"dmDefaultSource", 6, "DMBIN_ENVMANUAL"},
    {"dmDefaultSource", 7, "DMBIN_AUTO"},
    {"dmDefaultSource", 15, "DMBIN_FORMSOURCE"},
    {"dmColor", 1, "DMCOLOR_MONOCHROME"},
    {"dmColor", 2, "DMCOLOR_COLOR"},
    {"dmDuplex", 1, "DMDUP_SIMPLEX"},
    {"dmCollate", 0, "DMCOLLATE_FALSE"},
    {"dmCollate", 1, "DMCOLLATE_TRUE"},
    {"dmTTOption", 1, "DMTT_BITMAP"},
    {"dmTTOption", 2, "DMTT_DOWNLOAD"},
    {"dmTTOption", 3, "DMTT_SUBDEV"},
    {"faxResolution", 0, "200 x 200 dots per inch"},
    {"faxResolution", 1, "200 x 100 dots per inch"},
};
// clang-format on

std::string BytesText(const std::byte* bytes, size_t count) {
    const size_t whole = count;
    while (count > 0 && bytes[count - 1] == std::byte{0}) {
        --count;
    }
    if (count == 0) {
        return "all zero";
    }
    std::string text;
    for (size_t i = 0; i < count; ++i) {
        char digits[4];
        std::snprintf(digits, sizeof digits, "%02x ", unsigned(bytes[i]));
        text += digits;
    }
    return text + (count < whole ? "and zeros" : "");
}

std::string ValueText(const Field& field, const std::byte* bytes) {
    if (field.shape == Shape::Text) {
        std::u16string text(field.width / 2, u'\0');
        std::memcpy(text.data(), bytes, field.width);
        return '"' + embedded::Utf8(text.substr(0, text.find(u'\0'))) + '"';
    }
    if (field.shape == Shape::Bytes) {
        return BytesText(bytes, field.width);
    }
    uint32_t number = 0;
    std::memcpy(&number, bytes, field.width);
    const long value = field.shape == Shape::Unsigned ? long(number)
                       : field.width == 2             ? long(int16_t(number))
                                                      : long(int32_t(number));
    std::string text = std::to_string(value);
    for (const CodeName& code : kCodeNames) {
        if (code.code == value && code.field == field.name) {
            text += std::string("  ") + code.name;
        }
    }
    if (field.width == 4 && value > 9) {
        char hexadecimal[16];
        std::snprintf(hexadecimal, sizeof hexadecimal, "  0x%X", number);
        text += hexadecimal;
    }
    return *field.unit == '\0' ? text : text + "  " + field.unit;
}

struct ShownField {
    std::string name;
    std::string value;
};

// The fields that the record is long enough for: its public part is dmSize bytes, the private
// part comes right behind.
std::vector<ShownField> Fields(const Record& record) {
    WORD sizes[2];
    std::memcpy(sizes, &record[offsetof(DEVMODEW, dmSize)], sizeof sizes);
    std::vector<ShownField> shown;
    for (const Field& field : kPublicFields) {
        if (field.offset + field.width <= sizes[0]) {
            shown.push_back({field.name, ValueText(field, &record[field.offset])});
        }
    }
    for (const Field& field : kPrivateFields) {
        if (field.offset + field.width <= sizes[1]) {
            shown.push_back({field.name, ValueText(field, &record[sizes[0] + field.offset])});
        }
    }
    return shown;
}

// By name: what differs, or stands in `record` alone.
ordered_json Differences(const Record& record, const Record& other) {
    ordered_json differences = ordered_json::object();
    const std::vector<ShownField> theirs = Fields(other);
    for (const ShownField& field : Fields(record)) {
        const auto same = std::ranges::find(theirs, field.name, &ShownField::name);
        if (same == theirs.end() || same->value != field.value) {
            differences[field.name] = {
                {"here", field.value},
                {"there", same == theirs.end() ? ordered_json() : ordered_json(same->value)}};
        }
    }
    return differences;
}

struct SettingsOptions {
    MachineOptions machine;
    std::string ppd, out, device, diff;
    std::vector<std::string> merge;
    bool show = false;
    bool json = false;
};

void WriteRecord(const std::string& out, const Record& record) {
    std::ofstream stream(out, std::ios::binary);
    stream.write(reinterpret_cast<const char*>(record.data()), std::streamsize(record.size()));
    stream.close();
    if (!stream) {
        throw UserError(out + " cannot be written; choose another file with --out");
    }
}

void TellSettings(const SettingsOptions& options, const Record& record,
                  const ordered_json& differences) {
    if (options.show) {
        for (const ShownField& field : Fields(record)) {
            std::cout << field.name
                      << std::string(24 - std::min<size_t>(field.name.size(), 23), ' ')
                      << field.value << '\n';
        }
    }
    for (const auto& [name, values] : differences.items()) {
        std::cout << name << "  " << values["here"].get<std::string>() << "  (there: "
                  << (values["there"].is_null() ? "none" : values["there"].get<std::string>())
                  << ")\n";
    }
}

int RunSettings(const SettingsOptions& options) {
    std::vector<Record> merged;
    for (const std::string& file : options.merge) {
        merged.push_back(ReadSettingsRecord(file));
    }
    const Record other = options.diff.empty() ? Record() : ReadSettingsRecord(options.diff);
    MachineRun run(options.machine);
    const LoadedDescription description(options.ppd);
    ksfax::JobSettings settings;
    ksfax::BuildDefaultJobSettings(&settings, embedded::Utf16(options.device).c_str(),
                                   *description, ksfax::IsMetricLocale());
    std::string failed;
    for (size_t i = 0; i < merged.size() && failed.empty(); ++i) {
        if (!ksfax::MergeJobSettings(
                &settings, reinterpret_cast<const DEVMODEW*>(merged[i].data()), *description)) {
            failed = options.merge[i];
        }
    }
    const auto* bytes = reinterpret_cast<const std::byte*>(&settings);
    const Record record(bytes, bytes + sizeof settings);
    if (!options.out.empty()) {
        WriteRecord(options.out, record);
    }
    const ordered_json differences =
        options.diff.empty() ? ordered_json::object() : Differences(record, other);
    if (options.json) {
        ordered_json fields = ordered_json::object();
        for (const ShownField& field : Fields(record)) {
            fields[field.name] = field.value;
        }
        PrintJson({{"file", JsonPath(options.out)},
                   {"bytes", record.size()},
                   {"mergeFailed", JsonPath(failed)},
                   {"fields", fields},
                   {"differences", differences}});
    } else {
        TellSettings(options, record, differences);
    }
    if (!failed.empty()) {
        std::cerr << "ksfax: " << failed
                  << " was not merged: it is no record that the driver recognises\n";
        return kFailed;
    }
    return kDone;
}

}  // namespace

std::vector<std::byte> ReadSettingsRecord(const std::filesystem::path& file) {
    std::vector<std::byte> bytes = ReadFileBytes(file);
    size_t declared = ksfax::kDevModeHeaderSize;
    if (bytes.size() >= declared) {
        WORD sizes[2];  // of the public and the private part
        std::memcpy(sizes, &bytes[offsetof(DEVMODEW, dmSize)], sizeof sizes);
        declared = std::max(declared, size_t{sizes[0]} + sizes[1]);
    }
    if (bytes.size() < declared) {
        throw UserError(file.string() + " is no job settings record: it has " +
                        std::to_string(bytes.size()) + " bytes and needs " +
                        std::to_string(declared) + "; make one with ksfax settings");
    }
    return bytes;
}

void AddSettingsCommand(CLI::App& program, int& exitCode) {
    auto options = std::make_shared<SettingsOptions>();
    CLI::App* command =
        program.add_subcommand("settings", "Write the job settings record that the driver makes");
    command->add_option("PPD", options->ppd, "The PPD file")->required()->type_name("");
    command->add_option("--out", options->out, "The file to write, 2608 bytes")->type_name("FILE");
    command->add_option("--device", options->device, "The printer's name (default: empty)")
        ->type_name("NAME");
    command
        ->add_option("--merge", options->merge,
                     "A record to merge, as from an application; any number of times, in order")
        ->type_name("RECORD")
        ->allow_extra_args(false);
    command->add_flag("--show", options->show, "Print the record field by field");
    command->add_option("--diff", options->diff, "Print what differs from another record")
        ->type_name("RECORD");
    command->add_flag("--json", options->json, "Print one JSON object");
    options->machine.AddTo(*command);
    command->callback([options, &exitCode] {
        if (options->out.empty() && !options->show && options->diff.empty() && !options->json) {
            throw UsageError("nothing to do; add --out FILE, --show, --diff RECORD or --json");
        }
        exitCode = RunSettings(*options);
    });
}

}  // namespace tool
