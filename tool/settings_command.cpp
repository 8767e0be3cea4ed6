// ksfax settings: the job settings record that the driver makes and merges.

#include <algorithm>
#include <cstring>
#include <fstream>
#include <iostream>
#include <optional>
#include <string_view>

#include "platform/embedded/text.h"

#include "core/spooler_queries.h"
#include "jobsettings/job_settings.h"
#include "tool/fax_input.h"
#include "tool/ppd_file.h"
#include "tool/program.h"
#include "tool/record_fields.h"
#include "tool/settings_record.h"

namespace tool {

namespace {

using nlohmann::ordered_json;
using Record = std::vector<std::byte>;

// The units that a number is shown with.
constexpr std::string_view kShownUnits[] = {
    "bytes", "percent", "dots per inch", "degrees", "tenths of a millimetre", "RGB",
};

// The published names of coded values: the papers from code 1 on, and the others.
// clang-format off
constexpr const char* kPaperNames[] = {
    "LETTER", "LETTERSMALL", "TABLOID", "LEDGER", "LEGAL", "STATEMENT", "EXECUTIVE", "A3", "A4",
    "A4SMALL", "A5", "B4", "B5", "FOLIO", "QUARTO", "10X14", "11X17", "NOTE", "ENV_9", "ENV_10",
    "ENV_11", "ENV_12", "ENV_14", "CSHEET", "DSHEET", "ESHEET", "ENV_DL", "ENV_C5", "ENV_C3",
    "ENV_C4", "ENV_C6", "ENV_C65", "ENV_B4", "ENV_B5", "ENV_B6", "ENV_ITALY", "ENV_MONARCH",
    "ENV_PERSONAL", "FANFOLD_US", "FANFOLD_STD_GERMAN", "FANFOLD_LGL_GERMAN", "ISO_B4",
    "JAPANESE_POSTCARD", "9X11", "10X11", "15X11", "ENV_INVITE", "RESERVED_48", "RESERVED_49",
    "LETTER_EXTRA", "LEGAL_EXTRA", "TABLOID_EXTRA", "A4_EXTRA", "LETTER_TRANSVERSE",
    "A4_TRANSVERSE", "LETTER_EXTRA_TRANSVERSE", "A_PLUS", "B_PLUS", "LETTER_PLUS", "A4_PLUS",
    "A5_TRANSVERSE", "B5_TRANSVERSE", "A3_EXTRA", "A5_EXTRA", "B5_EXTRA", "A2", "A3_TRANSVERSE",
    "A3_EXTRA_TRANSVERSE", "DBL_JAPANESE_POSTCARD", "A6", "JENV_KAKU2", "JENV_KAKU3", "JENV_CHOU3",
    "JENV_CHOU4", "LETTER_ROTATED", "A3_ROTATED", "A4_ROTATED", "A5_ROTATED", "B4_JIS_ROTATED",
    "B5_JIS_ROTATED", "JAPANESE_POSTCARD_ROTATED", "DBL_JAPANESE_POSTCARD_ROTATED", "A6_ROTATED",
    "JENV_KAKU2_ROTATED", "JENV_KAKU3_ROTATED", "JENV_CHOU3_ROTATED", "JENV_CHOU4_ROTATED",
    "B6_JIS", "B6_JIS_ROTATED", "12X11", "JENV_YOU4", "JENV_YOU4_ROTATED", "P16K", "P32K",
    "P32KBIG", "PENV_1", "PENV_2", "PENV_3", "PENV_4", "PENV_5", "PENV_6", "PENV_7", "PENV_8",
    "PENV_9", "PENV_10", "P16K_ROTATED", "P32K_ROTATED", "P32KBIG_ROTATED", "PENV_1_ROTATED",
    "PENV_2_ROTATED", "PENV_3_ROTATED", "PENV_4_ROTATED", "PENV_5_ROTATED", "PENV_6_ROTATED",
    "PENV_7_ROTATED", "PENV_8_ROTATED", "PENV_9_ROTATED", "PENV_10_ROTATED",
};
static_assert(std::size(kPaperNames) == 118);

struct CodeName {
    std::string_view unit;
    int code;
    const char* name;
};
constexpr CodeName kCodeNames[] = {
    {"DMPAPER_", 256, "DMPAPER_USER"},
    {"DMBIN_", 1, "DMBIN_UPPER"},
    {"DMBIN_", 2, "DMBIN_LOWER"},
    {"DMBIN_", 3, "DMBIN_MIDDLE"},
    {"DMBIN_", 4, "DMBIN_MANUAL"},
    {"DMBIN_", 5, "DMBIN_ENVELOPE"},
    {"DMBIN_", 6, "DMBIN_ENVMANUAL"},
    {"DMBIN_", 7, "DMBIN_AUTO"},
    {"DMBIN_", 8, "DMBIN_TRACTOR"},
    {"DMBIN_", 9, "DMBIN_SMALLFMT"},
    {"DMBIN_", 10, "DMBIN_LARGEFMT"},
    {"DMBIN_", 11, "DMBIN_LARGECAPACITY"},
    {"DMBIN_", 14, "DMBIN_CASSETTE"},
    {"DMBIN_", 15, "DMBIN_FORMSOURCE"},
    {"DMBIN_", 256, "DMBIN_USER"},
    {"dots per inch", -1, "DMRES_DRAFT"},
    {"dots per inch", -2, "DMRES_LOW"},
    {"dots per inch", -3, "DMRES_MEDIUM"},
    {"dots per inch", -4, "DMRES_HIGH"},
    {"DMORIENT_", 1, "DMORIENT_PORTRAIT"},
    {"DMORIENT_", 2, "DMORIENT_LANDSCAPE"},
    {"DMCOLOR_", 1, "DMCOLOR_MONOCHROME"},
    {"DMCOLOR_", 2, "DMCOLOR_COLOR"},
    {"DMDUP_", 1, "DMDUP_SIMPLEX"},
    {"DMDUP_", 2, "DMDUP_VERTICAL"},
    {"DMDUP_", 3, "DMDUP_HORIZONTAL"},
    {"DMTT_", 1, "DMTT_BITMAP"},
    {"DMTT_", 2, "DMTT_DOWNLOAD"},
    {"DMTT_", 3, "DMTT_SUBDEV"},
    {"DMTT_", 4, "DMTT_DOWNLOAD_OUTLINE"},
    {"DMCOLLATE_", 0, "DMCOLLATE_FALSE"},
    {"DMCOLLATE_", 1, "DMCOLLATE_TRUE"},
    {"fax resolution", 0, "200 x 200 dots per inch"},
    {"fax resolution", 1, "200 x 100 dots per inch"},
};
// clang-format on

// Null for a value without a name.
ordered_json CodeNameOf(std::string_view unit, int64_t value) {
    if (unit == "DMPAPER_" && value >= 1 && value <= int64_t(std::size(kPaperNames))) {
        return std::string("DMPAPER_") + kPaperNames[value - 1];
    }
    const auto* code = std::ranges::find_if(kCodeNames, [=](const CodeName& candidate) {
        return candidate.unit == unit && candidate.code == value;
    });
    return code == std::end(kCodeNames) ? ordered_json() : ordered_json(code->name);
}

std::string TextAt(const std::byte* bytes, const RecordField& field) {
    if (!field.isWide) {
        const std::string text(reinterpret_cast<const char*>(bytes), field.width);
        return embedded::Utf8(embedded::FromAnsi(text.substr(0, text.find('\0'))));
    }
    std::u16string text(field.width / 2, u'\0');
    std::memcpy(text.data(), bytes, field.width);
    return embedded::Utf8(text.substr(0, text.find(u'\0')));
}

int64_t NumberAt(const std::byte* bytes, const RecordField& field) {
    uint32_t number = 0;
    std::memcpy(&number, bytes, field.width);
    if (!field.isSigned) {
        return number;
    }
    return field.width == 2 ? int64_t{int16_t(number)} : int64_t{int32_t(number)};
}

// {value, name, unit}: a number, a text, or bytes as hexadecimal digits; the published name of a
// code; the unit of a value that has no name. Null for what there is not.
ordered_json ValueAt(const std::byte* bytes, const RecordField& field) {
    if (!field.isNumber) {
        return {{"value",
                 field.unit == "text" ? TextAt(bytes, field) : Hexadecimal({bytes, field.width})},
                {"name", nullptr},
                {"unit", nullptr}};
    }
    const int64_t number = NumberAt(bytes, field);
    const ordered_json name = CodeNameOf(field.unit, number);
    const bool hasUnit =
        name.is_null() && std::ranges::find(kShownUnits, field.unit) != std::end(kShownUnits);
    return {{"value", number},
            {"name", name},
            {"unit", hasUnit ? ordered_json(field.unit) : ordered_json()}};
}

struct ShownField {
    const RecordField* field;
    ordered_json value;
};

// "03 00 ff and zeros"
std::string BytesText(const std::string& digits) {
    const size_t last = digits.find_last_not_of('0');
    if (last == std::string::npos) {
        return "all zero";
    }
    std::string text;
    for (size_t at = 0; at <= last; at += 2) {
        text += digits.substr(at, 2) + ' ';
    }
    if (text.size() / 3 < digits.size() / 2) {
        return text + "and zeros";
    }
    text.pop_back();
    return text;
}

std::string ValueText(const ShownField& shown) {
    const ordered_json& value = shown.value["value"];
    const std::string_view unit = shown.field->unit;
    if (unit == "text") {
        return '"' + value.get<std::string>() + '"';
    }
    if (value.is_string()) {
        return BytesText(value.get<std::string>());
    }
    std::string text = value.dump();
    if ((unit == "bits" || unit == "code" || unit == "RGB") && value > 9) {
        char hexadecimal[16];
        std::snprintf(hexadecimal, sizeof hexadecimal, "  0x%X", value.get<uint32_t>());
        text += hexadecimal;
    }
    for (const char* key : {"name", "unit"}) {
        if (!shown.value[key].is_null()) {
            text += "  " + shown.value[key].get<std::string>();
        }
    }
    return text;
}

// The fields that the record is long enough for: its public part is dmSize bytes, the private
// part comes right behind.
std::vector<ShownField> Fields(const Record& record) {
    WORD sizes[2];
    std::memcpy(sizes, &record[offsetof(DEVMODEW, dmSize)], sizeof sizes);
    std::vector<ShownField> shown;
    for (const RecordField& field : kRecordFields) {
        if (field.part == RecordPart::Device) {
            break;
        }
        const bool isPrivate = field.part == RecordPart::Private;
        if (field.offset + field.width <= sizes[isPrivate]) {
            const size_t start = isPrivate ? sizes[0] : 0;
            shown.push_back({&field, ValueAt(&record[start + field.offset], field)});
        }
    }
    return shown;
}

// Reserved bytes are worth a line only when they hold something.
std::vector<ShownField> FieldsToShow(const Record& record) {
    std::vector<ShownField> shown = Fields(record);
    std::erase_if(shown, [](const ShownField& field) {
        return field.field->unit == "reserved" && ValueText(field) == "all zero";
    });
    return shown;
}

struct Difference {
    ShownField here;
    std::optional<ShownField> there;
};

// By field: what differs, or stands in `record` alone. Texts count up to their ends.
std::vector<Difference> Differences(const Record& record, const Record& other) {
    std::vector<Difference> differences;
    const std::vector<ShownField> theirs = Fields(other);
    for (const ShownField& field : Fields(record)) {
        const auto same = std::ranges::find(theirs, field.field, &ShownField::field);
        if (same == theirs.end()) {
            differences.push_back({field, std::nullopt});
        } else if (same->value != field.value) {
            differences.push_back({field, *same});
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
                  const std::vector<Difference>& differences) {
    if (options.show) {
        for (const ShownField& field : FieldsToShow(record)) {
            const std::string name(field.field->name);
            std::cout << name << std::string(24 - std::min<size_t>(name.size(), 23), ' ')
                      << ValueText(field) << '\n';
        }
    }
    for (const Difference& difference : differences) {
        std::cout << difference.here.field->name << "  " << ValueText(difference.here)
                  << "  (there: " << (difference.there ? ValueText(*difference.there) : "none")
                  << ")\n";
    }
}

ordered_json SettingsJson(const SettingsOptions& options, const Record& record,
                          const std::string& failed, const std::vector<Difference>& differences) {
    ordered_json json = {{"file", JsonPath(options.out)},
                         {"bytes", record.size()},
                         {"mergeFailed", JsonPath(failed)},
                         {"fields", ordered_json::object()},
                         {"differences", ordered_json::object()}};
    for (const ShownField& field : FieldsToShow(record)) {
        json["fields"][std::string(field.field->name)] = field.value;
    }
    for (const Difference& difference : differences) {
        json["differences"][std::string(difference.here.field->name)] = {
            {"here", difference.here.value},
            {"there", difference.there ? difference.there->value : ordered_json()}};
    }
    return json;
}

// A slip of the shell's completion must not cost the user the PPD.
void RefuseToOverwriteInput(const SettingsOptions& options) {
    std::vector<std::string> inputs = options.merge;
    inputs.insert(inputs.end(), {options.ppd, options.diff});
    for (const std::string& input : inputs) {
        std::error_code error;
        if (std::filesystem::equivalent(options.out, input, error)) {
            throw UsageError("--out " + options.out + " would overwrite " + input +
                             ", which is read; choose another file");
        }
    }
}

int RunSettings(const SettingsOptions& options) {
    RefuseToOverwriteInput(options);
    std::vector<Record> merged;
    for (const std::string& file : options.merge) {
        merged.push_back(ReadSettingsRecord(file));
    }
    const Record other = options.diff.empty() ? Record() : ReadSettingsRecord(options.diff);
    RequireDescription(options.machine, options.ppd);
    MachineRun run(options.machine);
    const LoadedDescription description(options.ppd);
    ksfax::JobSettings settings;
    ksfax::BuildDefaultJobSettings(&settings, embedded::Utf16(options.device).c_str(), *description,
                                   ksfax::IsMetricLocale());
    std::string failed, why;
    for (size_t i = 0; i < merged.size() && failed.empty(); ++i) {
        if (!ksfax::MergeJobSettings(&settings, reinterpret_cast<const DEVMODEW*>(merged[i].data()),
                                     *description)) {
            failed = options.merge[i];
            why = NotRecognised(failed, merged[i]);
        }
    }
    const auto* bytes = reinterpret_cast<const std::byte*>(&settings);
    const Record record(bytes, bytes + sizeof settings);
    run.Save();
    if (!options.out.empty()) {
        WriteRecord(options.out, record);
    }
    const std::vector<Difference> differences =
        options.diff.empty() ? std::vector<Difference>() : Differences(record, other);
    if (options.json) {
        PrintJson(SettingsJson(options, record, failed, differences));
    } else {
        TellSettings(options, record, differences);
    }
    if (!failed.empty()) {
        std::cerr << "ksfax: not merged: " << why << '\n';
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

std::string NotRecognised(const std::filesystem::path& file, const std::vector<std::byte>& record) {
    WORD versions[3];  // dmSpecVersion, dmDriverVersion, dmSize
    std::memcpy(versions, &record[offsetof(DEVMODEW, dmSpecVersion)], sizeof versions);
    return file.string() + " is no record that the driver recognises: its dmSize is " +
           std::to_string(versions[2]) + " and its dmSpecVersion " + std::to_string(versions[0]) +
           ", but it takes a dmSize of 188, 212 or 220, or another with a dmSpecVersion above 0; "
           "make a good one with ksfax settings PPD --out FILE";
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
