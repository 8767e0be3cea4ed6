#include "platform/embedded/profiles.h"

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <sys/stat.h>
#include <unistd.h>

#include "platform/embedded/api_kernel.h"
#include "platform/embedded/files.h"
#include "platform/embedded/text.h"

namespace embedded {
namespace {

constexpr std::string_view kUtf16Mark = "\xFF\xFE";
// Far above any profile; a larger file is not one.
constexpr off_t kLargestProfile = off_t{1} << 28;

// ---- The text of a profile, in bytes of the code page or in UTF-16 ----

template <typename Unit>
using Text = std::basic_string_view<Unit>;

template <typename Unit>
bool IsBlank(Unit unit) {
    return unit == ' ' || (unit >= '\t' && unit <= '\r');
}

template <typename Unit>
Text<Unit> Trimmed(Text<Unit> text) {
    while (!text.empty() && IsBlank(text.front())) {
        text.remove_prefix(1);
    }
    while (!text.empty() && IsBlank(text.back())) {
        text.remove_suffix(1);
    }
    return text;
}

template <typename Unit>
Text<Unit> Unquoted(Text<Unit> text) {
    const bool quoted = text.size() >= 2 && text.front() == text.back() &&
                        (text.front() == '"' || text.front() == '\'');
    return quoted ? text.substr(1, text.size() - 2) : text;
}

std::u16string Wide(std::string_view text) {
    return FromAnsi(text);
}
std::u16string Wide(std::u16string_view text) {
    return std::u16string(text);
}

// A section or key that is looked for.
class Name {
  public:
    explicit Name(std::u16string_view name)
        : wide_(Trimmed(name)), isAscii_(std::all_of(wide_.begin(), wide_.end(), IsAscii)) {}

    bool Equals(std::string_view text) const {
        if (isAscii_ && text.size() == wide_.size()) {
            return std::equal(
                text.begin(), text.end(), wide_.begin(), [](char left, char16_t right) {
                    return FoldAscii(static_cast<unsigned char>(left)) == FoldAscii(right);
                });
        }
        // Letters above ASCII are two bytes in some code pages, and their second byte can look
        // like an ASCII letter.
        return !isAscii_ && EqualIgnoringCase(FromAnsi(text), wide_);
    }
    bool Equals(std::u16string_view text) const { return EqualIgnoringCase(text, wide_); }

  private:
    static bool IsAscii(char16_t c) { return c < 0x80; }
    static char16_t FoldAscii(char16_t c) {
        return c >= u'a' && c <= u'z' ? static_cast<char16_t>(c - u'a' + u'A') : c;
    }

    std::u16string_view wide_;
    bool isAscii_;
};

// Positions in the text. `next` is where the following line begins.
struct Line {
    size_t begin = 0;
    size_t end = 0;
    size_t next = 0;
};

template <typename Unit>
bool TakeLine(Text<Unit> text, size_t& position, Line& line) {
    if (position >= text.size()) {
        return false;
    }
    line.begin = position;
    line.end = text.find(static_cast<Unit>('\n'), position);
    line.next = line.end + 1;
    if (line.end == Text<Unit>::npos) {
        line.end = text.size();
        line.next = text.size();
    }
    position = line.next;
    return true;
}

// The name in the brackets of a section line; nothing for any other line.
template <typename Unit>
std::optional<Text<Unit>> SectionName(Text<Unit> trimmedLine) {
    if (trimmedLine.empty() || trimmedLine.front() != '[') {
        return std::nullopt;
    }
    const bool doubleBytes = sizeof(Unit) == 1 && GetACP() == 932;
    for (size_t i = 1; i < trimmedLine.size(); ++i) {
        if (trimmedLine[i] == ']') {
            return Trimmed(trimmedLine.substr(1, i - 1));
        }
        const auto byte = static_cast<unsigned char>(trimmedLine[i]);
        if (doubleBytes && ((byte >= 0x81 && byte <= 0x9F) || (byte >= 0xE0 && byte <= 0xFC))) {
            ++i;  // its second byte can look like a bracket
        }
    }
    return std::nullopt;
}

// The name before the equals sign; nothing for a comment or a line without one.
template <typename Unit>
std::optional<Text<Unit>> KeyName(Text<Unit> line) {
    const size_t equals = line.find(static_cast<Unit>('='));
    if (equals == Text<Unit>::npos) {
        return std::nullopt;
    }
    const Text<Unit> name = Trimmed(line.substr(0, equals));
    if (!name.empty() && name.front() == ';') {
        return std::nullopt;
    }
    return name;
}

struct SectionPlace {
    size_t header = 0;  // where its line begins
    size_t body = 0;    // where the next one does
    size_t end = 0;     // where the next section, or the end of the text, is
};

// Calls `visit` with each section's name and place until it answers false.
template <typename Unit, typename Visit>
void VisitSections(Text<Unit> text, Visit visit) {
    std::optional<Text<Unit>> name;
    SectionPlace place;
    Line line;
    for (size_t position = 0; TakeLine(text, position, line);) {
        const auto next = SectionName(Trimmed(text.substr(line.begin, line.end - line.begin)));
        if (!next) {
            continue;
        }
        if (name) {
            place.end = line.begin;
            if (!visit(*name, place)) {
                return;
            }
        }
        name = next;
        place = {.header = line.begin, .body = line.next, .end = text.size()};
    }
    if (name) {
        visit(*name, place);
    }
}

// The first section of that name.
template <typename Unit>
std::optional<SectionPlace> FindSection(Text<Unit> text, const Name& wanted) {
    std::optional<SectionPlace> found;
    VisitSections(text, [&](Text<Unit> name, const SectionPlace& place) {
        if (wanted.Equals(name)) {
            found = place;
        }
        return !found;
    });
    return found;
}

// Calls `visit` with each key's name and line until it answers false.
template <typename Unit, typename Visit>
void VisitKeys(Text<Unit> text, const SectionPlace& section, Visit visit) {
    const Text<Unit> upToEnd = text.substr(0, section.end);
    Line line;
    for (size_t position = section.body; TakeLine(upToEnd, position, line);) {
        const auto name = KeyName(text.substr(line.begin, line.end - line.begin));
        if (name && !visit(*name, line)) {
            return;
        }
    }
}

template <typename Unit>
std::optional<Line> FindKey(Text<Unit> text, const SectionPlace& section, const Name& wanted) {
    std::optional<Line> found;
    VisitKeys(text, section, [&](Text<Unit> name, const Line& line) {
        if (wanted.Equals(name)) {
            found = line;
        }
        return !found;
    });
    return found;
}

template <typename Unit>
std::optional<std::u16string> ReadValue(Text<Unit> text, const Name& section, const Name& key) {
    const auto place = FindSection(text, section);
    const auto line = place ? FindKey(text, *place, key) : std::nullopt;
    if (!line) {
        return std::nullopt;
    }
    const Text<Unit> whole = text.substr(line->begin, line->end - line->begin);
    const size_t equals = whole.find(static_cast<Unit>('='));
    return Wide(Unquoted(Trimmed(whole.substr(equals + 1))));
}

// One replacement in a text.
template <typename Unit>
struct Edit {
    size_t begin = 0;
    size_t end = 0;
    std::basic_string<Unit> with;
};

template <typename Unit>
std::basic_string<Unit> NewLine() {
    return {static_cast<Unit>('\r'), static_cast<Unit>('\n')};
}

template <typename Unit>
using Units = std::basic_string<Unit>;

// What deletes a section, or a key of it; nothing when it is not there.
template <typename Unit>
std::optional<Edit<Unit>> Deletion(Text<Unit> text, const Name& section, const Name* key) {
    const auto place = FindSection(text, section);
    if (!place) {
        return std::nullopt;
    }
    if (key == nullptr) {
        return Edit<Unit>{.begin = place->header, .end = place->end, .with = {}};
    }
    const auto line = FindKey(text, *place, *key);
    if (!line) {
        return std::nullopt;
    }
    return Edit<Unit>{.begin = line->begin, .end = line->next, .with = {}};
}

// What gives a key its value: in its line, in a new one behind the section's last line that is
// not blank, or in a new section at the end.
template <typename Unit>
Edit<Unit> Assignment(Text<Unit> text, const Name& section, const Units<Unit>& sectionName,
                      const Name& key, const Units<Unit>& keyName, const Units<Unit>& value) {
    const Units<Unit> newLine = NewLine<Unit>();
    const Units<Unit> line = keyName + static_cast<Unit>('=') + value + newLine;
    const auto place = FindSection(text, section);
    if (!place) {
        const bool unfinished = !text.empty() && text.back() != '\n';
        return {.begin = text.size(),
                .end = text.size(),
                .with = (unfinished ? newLine : Units<Unit>()) + static_cast<Unit>('[') +
                        sectionName + static_cast<Unit>(']') + newLine + line};
    }
    if (const auto old = FindKey(text, *place, key)) {
        const size_t equals = text.find(static_cast<Unit>('='), old->begin);
        return {.begin = equals + 1, .end = old->next, .with = value + newLine};
    }
    // The section's own line is the last resort.
    size_t behind = place->body;
    Line each;
    for (size_t position = place->body; TakeLine(text.substr(0, place->end), position, each);) {
        if (!Trimmed(text.substr(each.begin, each.end - each.begin)).empty()) {
            behind = each.next;
        }
    }
    const bool unfinished = text[behind - 1] != '\n';
    return {.begin = behind, .end = behind, .with = (unfinished ? newLine : Units<Unit>()) + line};
}

// ---- The file ----

bool ReadWhole(int fd, std::string& bytes) {
    struct stat status;
    if (fstat(fd, &status) != 0 || status.st_size > kLargestProfile) {
        return false;
    }
    bytes.resize(static_cast<size_t>(status.st_size));
    size_t done = 0;
    while (done < bytes.size()) {
        const ssize_t got =
            pread(fd, bytes.data() + done, bytes.size() - done, static_cast<off_t>(done));
        if (got == 0) {
            break;
        }
        if (got < 0 && errno != EINTR) {
            return false;
        }
        done += got > 0 ? static_cast<size_t>(got) : 0;
    }
    bytes.resize(done);
    return true;
}

bool WriteAt(int fd, std::string_view bytes, size_t position) {
    while (!bytes.empty()) {
        const ssize_t put = pwrite(fd, bytes.data(), bytes.size(), static_cast<off_t>(position));
        if (put < 0 && errno != EINTR) {
            return false;
        }
        const size_t done = put > 0 ? static_cast<size_t>(put) : 0;
        bytes.remove_prefix(done);
        position += done;
    }
    return true;
}

bool IsUtf16(std::string_view bytes) {
    return bytes.starts_with(kUtf16Mark);
}

std::u16string Utf16Units(std::string_view bytes) {
    bytes.remove_prefix(kUtf16Mark.size());
    std::u16string units(bytes.size() / sizeof(char16_t), 0);
    memcpy(units.data(), bytes.data(), units.size() * sizeof(char16_t));
    return units;
}

// An edit of a UTF-16 file's text as one of its bytes.
Edit<char> InBytes(const Edit<char16_t>& edit) {
    constexpr size_t kWidth = sizeof(char16_t);
    return {.begin = kUtf16Mark.size() + edit.begin * kWidth,
            .end = kUtf16Mark.size() + edit.end * kWidth,
            .with = std::string(reinterpret_cast<const char*>(edit.with.data()),
                                edit.with.size() * kWidth)};
}

// Calls `use` with the text of a profile in whichever units it has.
template <typename Use>
DWORD WithText(FileSystem& files, std::u16string_view file, Use use) {
    const auto opened = files.OpenProfile(Profiles::PathOf(file), false);
    if (opened.file == nullptr) {
        return opened.error;
    }
    std::string bytes;
    if (!ReadWhole(opened.file->host->fd, bytes)) {
        return ERROR_READ_FAULT;
    }
    if (IsUtf16(bytes)) {
        use(std::u16string_view(Utf16Units(bytes)));
    } else {
        use(std::string_view(bytes));
    }
    return ERROR_SUCCESS;
}

template <typename Unit>
std::optional<Edit<Unit>> EditFor(Text<Unit> text, std::u16string_view section,
                                  std::optional<std::u16string_view> key,
                                  std::optional<std::u16string_view> value) {
    const auto encoded = [](std::u16string_view wide) {
        if constexpr (sizeof(Unit) == 1) {
            return ToAnsi(wide);
        } else {
            return std::u16string(wide);
        }
    };
    const Name sectionName(section);
    const Name keyName(key.value_or(std::u16string_view()));
    if (!key || !value) {
        return Deletion(text, sectionName, key ? &keyName : nullptr);
    }
    return Assignment(text, sectionName, encoded(Trimmed(section)), keyName, encoded(Trimmed(*key)),
                      encoded(*value));
}

}  // namespace

std::u16string Profiles::PathOf(std::u16string_view file) {
    if (file.find_first_of(u"\\/:") != std::u16string_view::npos) {
        return std::u16string(file);
    }
    return u"C:\\Windows\\" + std::u16string(file);
}

std::optional<std::u16string> Profiles::Read(std::u16string_view section, std::u16string_view key,
                                             std::u16string_view file) const {
    const Name sectionName(section);
    const Name keyName(key);
    std::optional<std::u16string> value;
    const DWORD error = WithText(machine_.files(), file,
                                 [&](auto text) { value = ReadValue(text, sectionName, keyName); });
    SetLastError(error);
    return value;
}

std::vector<std::u16string> Profiles::Sections(std::u16string_view file) const {
    std::vector<std::u16string> names;
    const DWORD error = WithText(machine_.files(), file, [&](auto text) {
        VisitSections(text, [&](auto name, const SectionPlace&) {
            names.push_back(Wide(name));
            return true;
        });
    });
    SetLastError(error);
    return names;
}

std::vector<std::u16string> Profiles::Keys(std::u16string_view section,
                                           std::u16string_view file) const {
    const Name wanted(section);
    std::vector<std::u16string> names;
    const DWORD error = WithText(machine_.files(), file, [&](auto text) {
        const auto place = FindSection(text, wanted);
        if (place) {
            VisitKeys(text, *place, [&](auto name, const Line&) {
                names.push_back(Wide(name));
                return true;
            });
        }
    });
    SetLastError(error);
    return names;
}

DWORD Profiles::Write(std::u16string_view section, std::optional<std::u16string_view> key,
                      std::optional<std::u16string_view> value, std::u16string_view file) {
    FileSystem& files = machine_.files();
    const std::u16string path = PathOf(file);
    const bool deletes = !key || !value;
    if (deletes && files.Attributes(path) == INVALID_FILE_ATTRIBUTES) {
        return ERROR_SUCCESS;  // there is nothing to delete, and no reason to make a file
    }
    const auto opened = files.OpenProfile(path, true);
    if (opened.file == nullptr) {
        return opened.error;
    }
    const HostFile& host = *opened.file->host;
    std::string bytes;
    if (!ReadWhole(host.fd, bytes)) {
        return ERROR_READ_FAULT;
    }
    std::optional<Edit<char>> edit;
    if (IsUtf16(bytes)) {
        const std::u16string text = Utf16Units(bytes);
        const auto wideEdit = EditFor(std::u16string_view(text), section, key, value);
        if (wideEdit) {
            edit = InBytes(*wideEdit);
        }
    } else {
        edit = EditFor(std::string_view(bytes), section, key, value);
    }
    if (!edit) {
        return ERROR_SUCCESS;
    }
    if (files.sharing().IsMapped(host.identity)) {
        return ERROR_USER_MAPPED_FILE;
    }
    const std::string changed = edit->with + bytes.substr(edit->end);
    const size_t size = edit->begin + changed.size();
    if (!WriteAt(host.fd, changed, edit->begin) ||
        (size < bytes.size() && ftruncate(host.fd, static_cast<off_t>(size)) != 0)) {
        const DWORD error =
            errno == ENOSPC || errno == EDQUOT ? ERROR_DISK_FULL : ERROR_WRITE_FAULT;
        // Back to what it was, as far as the host lets us.
        if (WriteAt(host.fd, bytes.substr(edit->begin), edit->begin)) {
            (void)!ftruncate(host.fd, static_cast<off_t>(bytes.size()));
        }
        return error;
    }
    return ERROR_SUCCESS;
}

namespace {

Profiles& Service() {
    return Machine::Current().profiles();
}

// Stores as much of `text` as there is room for, and a terminator. Returns the characters stored
// without it.
DWORD StoreText(std::u16string_view text, LPWSTR target, DWORD room) {
    if (room == 0) {
        return 0;
    }
    const size_t stored = std::min<size_t>(text.size(), room - 1);
    std::copy_n(text.data(), stored, target);
    target[stored] = 0;
    if (stored < text.size()) {
        SetLastError(ERROR_MORE_DATA);
    }
    return static_cast<DWORD>(stored);
}

// Stores names, each with its terminator, and one more. Returns the characters stored without
// the last terminator; when a name is cut both terminators are still there and the result is
// `room` - 2.
DWORD StoreNames(const std::vector<std::u16string>& names, LPWSTR target, DWORD room) {
    std::u16string all;
    for (const std::u16string& name : names) {
        all += name;
        all += u'\0';
    }
    if (room < 2) {
        std::fill_n(target, room, u'\0');
        return 0;
    }
    if (all.size() < room) {
        std::copy(all.begin(), all.end(), target);
        target[all.size()] = 0;
        // One terminator is not enough where there is no name at all.
        target[std::max<size_t>(all.size(), 1)] = 0;
        return static_cast<DWORD>(all.size());
    }
    std::copy_n(all.data(), room - 2, target);
    target[room - 2] = 0;
    target[room - 1] = 0;
    SetLastError(ERROR_MORE_DATA);
    return room - 2;
}

// A whole number at the start of a value: blanks, a sign, 0x, 0o or 0b for another base, digits.
// What follows is ignored; the number wraps in 32 bits.
UINT NumberOf(std::u16string_view text) {
    text = Trimmed(text);
    bool negative = false;
    if (!text.empty() && (text[0] == u'-' || text[0] == u'+')) {
        negative = text[0] == u'-';
        text.remove_prefix(1);
    }
    UINT base = 10;
    if (text.size() >= 2 && text[0] == u'0') {
        base = text[1] == u'x' ? 16 : text[1] == u'o' ? 8 : text[1] == u'b' ? 2 : 10;
        text.remove_prefix(base != 10 ? 2 : 0);
    }
    UINT number = 0;
    for (const char16_t c : text) {
        const UINT digit = c >= u'0' && c <= u'9'   ? c - u'0'
                           : c >= u'a' && c <= u'f' ? c - u'a' + 10
                           : c >= u'A' && c <= u'F' ? c - u'A' + 10
                                                    : 16;
        if (digit >= base) {
            break;
        }
        number = number * base + digit;
    }
    return negative ? 0 - number : number;
}

std::optional<std::u16string_view> Optional(LPCWSTR text) {
    return text != nullptr ? std::optional<std::u16string_view>(text) : std::nullopt;
}

}  // namespace
}  // namespace embedded

using namespace embedded;

DWORD GetPrivateProfileStringW(LPCWSTR section, LPCWSTR key, LPCWSTR fallback, LPWSTR value,
                               DWORD characters, LPCWSTR file) {
    static CallSite call("GetPrivateProfileStringW");
    ++Machine::Current().files().counters.profileReads;
    if (value == nullptr || file == nullptr) {
        SetLastError(ERROR_INVALID_PARAMETER);
        return 0;
    }
    std::u16string_view otherwise = fallback != nullptr ? fallback : u"";
    while (!otherwise.empty() && otherwise.back() == u' ') {
        otherwise.remove_suffix(1);
    }
    if (call.Fails()) {
        SetLastError(ERROR_ACCESS_DENIED);
        return StoreText(otherwise, value, characters);
    }
    if (section == nullptr || key == nullptr) {
        const auto names =
            section == nullptr ? Service().Sections(file) : Service().Keys(section, file);
        if (!names.empty() || otherwise.empty()) {
            return StoreNames(names, value, characters);
        }
        return StoreText(otherwise, value, characters);
    }
    const auto found = Service().Read(section, key, file);
    return StoreText(found ? *found : otherwise, value, characters);
}

UINT GetPrivateProfileIntW(LPCWSTR section, LPCWSTR key, INT fallback, LPCWSTR file) {
    static CallSite call("GetPrivateProfileIntW");
    ++Machine::Current().files().counters.profileReads;
    if (call.Fails()) {
        SetLastError(ERROR_ACCESS_DENIED);
        return static_cast<UINT>(fallback);
    }
    if (section == nullptr || key == nullptr || file == nullptr) {
        SetLastError(ERROR_INVALID_PARAMETER);
        return static_cast<UINT>(fallback);
    }
    const auto found = Service().Read(section, key, file);
    return found && !found->empty() ? NumberOf(*found) : static_cast<UINT>(fallback);
}

BOOL WritePrivateProfileStringW(LPCWSTR section, LPCWSTR key, LPCWSTR value, LPCWSTR file) {
    static CallSite call("WritePrivateProfileStringW");
    ++Machine::Current().files().counters.profileWrites;
    DWORD error = ERROR_SUCCESS;
    if (call.Fails()) {
        error = ERROR_ACCESS_DENIED;
    } else if (file == nullptr) {
        error = ERROR_INVALID_PARAMETER;
    } else if (section == nullptr) {
        // With neither section, key nor value it asks for the file to be written out, which it
        // always is; that answer is FALSE too.
        error = key == nullptr && value == nullptr ? ERROR_SUCCESS : ERROR_FILE_NOT_FOUND;
        SetLastError(error);
        return FALSE;
    } else {
        error = Service().Write(section, Optional(key), Optional(value), file);
    }
    if (error != ERROR_SUCCESS) {
        SetLastError(error);
    }
    return error == ERROR_SUCCESS;
}
