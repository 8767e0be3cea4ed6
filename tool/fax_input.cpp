#include "tool/fax_input.h"

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <fstream>
#include <optional>
#include <utility>

#include "platform/embedded/files.h"
#include "platform/embedded/text.h"

#include "tool/failure.h"

namespace tool {

namespace {

constexpr size_t kLongestName = 100;
constexpr size_t kLongestNumber = 60;
constexpr size_t kLargestMemo = 1 << 20;

bool IsUtf8(std::string_view text) {
    return embedded::Utf8(embedded::Utf16(text)) == text;
}

bool InCodePage(std::u16string_view text) {
    return embedded::FromAnsi(embedded::ToAnsi(text)) == text;
}

std::string CodePageName() {
    return "code page " + std::to_string(embedded::Machine::Current().setup().codePage);
}

bool IsControl(char16_t character) {
    return character < 0x20 || (character >= 0x7F && character < 0xA0) || character == 0x2028 ||
           character == 0x2029;
}

std::string_view Trimmed(std::string_view text) {
    const size_t first = text.find_first_not_of(" \t");
    if (first == std::string_view::npos) {
        return {};
    }
    return text.substr(first, text.find_last_not_of(" \t") - first + 1);
}

// One value of a receiver; gives what is wrong with it instead when something is.
std::optional<std::string> Flaw(std::string_view text, std::string_view what, size_t longest) {
    const std::string quoted = std::string(what) + " \"" + std::string(text) + "\"";
    if (!IsUtf8(text)) {
        return "the " + std::string(what) + " is no UTF-8 text; save the list as UTF-8";
    }
    const std::u16string wide = embedded::Utf16(text);
    if (std::ranges::any_of(wide, IsControl)) {
        return "the " + std::string(what) +
               " holds a line break or another control character; remove it";
    }
    if (wide.size() > longest) {
        return "the " + std::string(what) + " has " + std::to_string(wide.size()) +
               " characters; at most " + std::to_string(longest) + " are possible";
    }
    if (!InCodePage(wide)) {
        return "the " + quoted + " has characters that " + CodePageName() +
               " lacks; write it otherwise or choose another --code-page";
    }
    return std::nullopt;
}

// Digits, and what people and modems write among them.
bool IsDialable(char c) {
    return (c >= '0' && c <= '9') || std::strchr("+-()./ *#,!@pPwWtTxX", c) != nullptr;
}

bool IsNumber(std::string_view text) {
    return std::ranges::all_of(text, IsDialable) &&
           std::ranges::any_of(text, [](char c) { return c >= '0' && c <= '9'; });
}

// Fills `receiver`, or gives what is wrong.
std::optional<std::string> MakeReceiver(std::string_view name, std::string_view number,
                                        Receiver& receiver) {
    name = Trimmed(name);
    number = Trimmed(number);
    if (auto flaw = Flaw(name, "name", kLongestName)) {
        return flaw;
    }
    if (auto flaw = Flaw(number, "number", kLongestNumber)) {
        return flaw;
    }
    if (!IsNumber(number)) {
        return number.empty()
                   ? "the receiver \"" + std::string(name) + "\" has no number; add the fax number"
                   : "\"" + std::string(number) +
                         "\" is no fax number; give digits, with + - ( ) . / * # "
                         "and spaces among them";
    }
    receiver = {embedded::Utf16(name), embedded::Utf16(number)};
    return std::nullopt;
}

struct CsvRow {
    size_t line;  // where it begins, from 1
    std::vector<std::string> values;
};

// The rows of a text of separated values; empty lines are left out.
std::vector<CsvRow> ParseRows(std::string_view text, char separator) {
    std::vector<CsvRow> rows;
    CsvRow row = {1, {}};
    std::string value;
    size_t line = 1;
    bool quoted = false;
    const auto endValue = [&] { row.values.push_back(std::exchange(value, {})); };
    for (size_t i = 0; i <= text.size(); ++i) {
        const bool atEnd = i == text.size();
        const char c = atEnd ? '\n' : text[i];
        if (quoted && !atEnd) {
            line += c == '\n';
            if (c != '"') {
                value += c;
            } else if (text.substr(i + 1).starts_with('"')) {
                value += text[++i];
            } else {
                quoted = false;
            }
        } else if (c == '"' && Trimmed(value).empty()) {
            quoted = true;
            value.clear();
        } else if (c == separator) {
            endValue();
        } else if (c == '\n') {
            endValue();
            // Spreadsheets end rows with the separators of cells that hold nothing.
            while (!row.values.empty() && Trimmed(row.values.back()).empty()) {
                row.values.pop_back();
            }
            if (!row.values.empty()) {
                rows.push_back(std::move(row));
            }
            row = {++line, {}};
        } else if (c != '\r' || !(i + 1 == text.size() || text[i + 1] == '\n')) {
            value += c;
        }
    }
    return rows;
}

struct Columns {
    size_t name = 0;
    size_t number = 1;
    bool named = false;  // by a heading
};

Columns ReadHeading(const CsvRow& row) {
    const auto find = [&](std::u16string_view word) {
        return size_t(std::ranges::find_if(row.values,
                                           [&](const std::string& value) {
                                               return embedded::EqualIgnoringCase(
                                                   embedded::Utf16(Trimmed(value)), word);
                                           }) -
                      row.values.begin());
    };
    const size_t name = find(u"name");
    const size_t number = find(u"number");
    if (name < row.values.size() && number < row.values.size()) {
        return {name, number, true};
    }
    return {};
}

// The separator that parts the first row into a name and a number, whatever stands in the name;
// else the first that parts it at all, the comma last, which numbers and names may hold.
char SeparatorOf(std::string_view text) {
    char parts = ',';
    for (const char separator : {',', '\t', ';'}) {
        const std::vector<CsvRow> rows = ParseRows(text, separator);
        if (rows.empty() || rows[0].values.size() < 2) {
            continue;
        }
        parts = separator;
        if (ReadHeading(rows[0]).named ||
            (rows[0].values.size() == 2 && IsNumber(Trimmed(rows[0].values[1])))) {
            return separator;
        }
    }
    return parts;
}

}  // namespace

std::vector<std::byte> ReadFileBytes(const std::filesystem::path& file) {
    std::error_code error;
    if (std::filesystem::is_directory(file, error)) {
        throw UserError(file.string() + " is a folder; give the name of a file");
    }
    // What is no file may give its bytes only once, or never end.
    if (std::filesystem::exists(file, error) && !std::filesystem::is_regular_file(file, error)) {
        throw UserError(file.string() + " is no ordinary file; save what it gives to one first");
    }
    std::ifstream stream(file, std::ios::binary);
    std::string bytes;
    bool isRead = stream.is_open();
    try {
        bytes.assign(std::istreambuf_iterator<char>(stream), {});
    } catch (const std::ios_base::failure&) {
        isRead = false;
    }
    if (!isRead) {
        throw UserError(file.string() + " cannot be read: " + std::strerror(errno) +
                        "; check the name and its permissions");
    }
    const auto* first = reinterpret_cast<const std::byte*>(bytes.data());
    return {first, first + bytes.size()};
}

Receiver ReceiverFromOption(std::string_view option, std::string_view text) {
    const size_t equals = text.rfind('=');
    Receiver receiver;
    const std::optional<std::string> flaw =
        equals == std::string_view::npos
            ? "\"" + std::string(text) + "\" has no number; write NAME=NUMBER"
            : MakeReceiver(text.substr(0, equals), text.substr(equals + 1), receiver);
    if (flaw) {
        throw UsageError(std::string(option) + ": " + *flaw);
    }
    return receiver;
}

Receiver SenderFromOption(std::string_view option, std::string_view text) {
    if (text.find('=') != std::string_view::npos) {
        return ReceiverFromOption(option, text);
    }
    if (auto flaw = Flaw(text, "name", kLongestName)) {
        throw UsageError(std::string(option) + ": " + *flaw);
    }
    return {embedded::Utf16(Trimmed(text)), u""};
}

std::vector<Receiver> ReadReceiverList(const std::filesystem::path& file) {
    const std::vector<std::byte> bytes = ReadFileBytes(file);
    std::string_view text(reinterpret_cast<const char*>(bytes.data()), bytes.size());
    if (text.starts_with("\xEF\xBB\xBF")) {
        text.remove_prefix(3);
    }
    std::vector<CsvRow> rows = ParseRows(text, SeparatorOf(text));
    const Columns columns = rows.empty() ? Columns{} : ReadHeading(rows[0]);
    if (columns.named) {
        rows.erase(rows.begin());
    }
    std::vector<Receiver> receivers;
    for (CsvRow& row : rows) {
        const std::string where = file.string() + ":" + std::to_string(row.line) + ": ";
        if (!columns.named && row.values.size() > 2) {
            throw UserError(where + std::to_string(row.values.size()) +
                            " values where a name and a number are expected; put one that holds "
                            "a separator in double quotes");
        }
        row.values.resize(std::max({row.values.size(), columns.name + 1, columns.number + 1}));
        Receiver receiver;
        if (auto flaw =
                MakeReceiver(row.values[columns.name], row.values[columns.number], receiver)) {
            throw UserError(where + *flaw);
        }
        receivers.push_back(std::move(receiver));
    }
    if (receivers.empty()) {
        throw UserError(file.string() +
                        " holds no receiver; give one a line, as: Anna Berg,+47 22 33 44 55");
    }
    return receivers;
}

std::string ReadMemo(const std::filesystem::path& file) {
    const std::vector<std::byte> bytes = ReadFileBytes(file);
    std::string text(reinterpret_cast<const char*>(bytes.data()), bytes.size());
    if (text.size() > kLargestMemo) {
        throw UserError(file.string() + " has " + std::to_string(text.size()) +
                        " bytes, a memo at most " + std::to_string(kLargestMemo) +
                        "; send a long text as the document");
    }
    if (text.find('\0') != std::string::npos) {
        throw UserError(file.string() + " is no text: it holds zero bytes; save it as UTF-8");
    }
    if (text.starts_with("\xEF\xBB\xBF")) {
        text.erase(0, 3);
    }
    if (!IsUtf8(text)) {
        return text;
    }
    size_t line = 1;
    for (size_t at = 0; at < text.size(); ++line) {
        const size_t end = std::min(text.find('\n', at), text.size());
        if (!InCodePage(embedded::Utf16(std::string_view(text).substr(at, end - at)))) {
            throw UserError(file.string() + ":" + std::to_string(line) +
                            ": the line has characters that " + CodePageName() +
                            " lacks; write it otherwise or choose another --code-page");
        }
        at = end + 1;
    }
    return embedded::ToAnsi(embedded::Utf16(text));
}

void CheckCoverBitmap(const std::filesystem::path& file) {
    const std::vector<std::byte> bytes = ReadFileBytes(file);
    try {
        (void)ReadBitmap(bytes);  // for its refusals alone
    } catch (const UserError& error) {
        throw UserError(file.string() + " " + error.what());
    }
}

std::filesystem::path WholePath(const std::filesystem::path& file) {
    const std::filesystem::path whole = std::filesystem::absolute(file).lexically_normal();
    return whole.has_filename() ? whole : whole.parent_path();
}

std::u16string PathForIni(const std::filesystem::path& file, size_t most) {
    const embedded::FileSystem& files = embedded::Machine::Current().files();
    const std::filesystem::path whole = WholePath(file);
    const std::u16string path = files.MachinePath(whole);
    // A path travels to the companion module in bytes of the code page, two for some characters.
    const size_t length = std::max(path.size(), embedded::ToAnsi(path).size());
    if (length > most) {
        throw UserError(file.string() + ": the path has " + std::to_string(length) +
                        " characters on the machine, at most " + std::to_string(most) +
                        " are possible; choose a shorter one");
    }
    const std::filesystem::path found = files.HostPath(path);
    if (found != whole && IsUtf8(whole.string()) &&
        embedded::EqualIgnoringCase(embedded::Utf16(found.string()),
                                    embedded::Utf16(whole.string()))) {
        throw UserError(file.string() + ": the machine takes it for " + found.string() +
                        ", which differs in letter case alone; choose that or another name");
    }
    const bool strange =
        std::ranges::any_of(path, IsControl) || found != whole || path.ends_with(u' ');
    if (strange || !InCodePage(path)) {
        throw UserError(file.string() + ": the path has characters that " +
                        (strange ? "a machine path cannot hold" : CodePageName() + " lacks") +
                        "; choose another folder or name");
    }
    return path;
}

}  // namespace tool
