#include "platform/embedded/profiles.h"

#include <algorithm>
#include <strings.h>
#include <sys/stat.h>
#include <unistd.h>

#include "platform/embedded/api_kernel.h"
#include "platform/embedded/files.h"
#include "platform/embedded/text.h"

namespace embedded {
namespace {

// Far above any profile; a larger file is not one.
constexpr off_t kLargestProfile = off_t{1} << 28;
constexpr DWORD kShareAll = FILE_SHARE_READ | FILE_SHARE_WRITE;

template <typename Unit>
std::basic_string_view<Unit> Trimmed(std::basic_string_view<Unit> text) {
    const auto isBlank = [](Unit unit) { return unit == ' ' || (unit >= '\t' && unit <= '\r'); };
    while (!text.empty() && isBlank(text.front())) {
        text.remove_prefix(1);
    }
    while (!text.empty() && isBlank(text.back())) {
        text.remove_suffix(1);
    }
    return text;
}

// One line of a profile, as places in its text.
struct Line {
    size_t begin = 0;
    size_t end = 0;
    size_t next = 0;  // where the following line begins

    std::string_view In(std::string_view text) const {
        return Trimmed(text.substr(begin, end - begin));
    }
};

Line LineAt(std::string_view text, size_t begin) {
    const size_t end = std::min(text.find('\n', begin), text.size());
    return {.begin = begin, .end = end, .next = std::min(end + 1, text.size())};
}

// The name in the brackets of a section line; nothing for any other line. The second byte of a
// character can look like a bracket.
std::optional<std::u16string> SectionName(std::string_view line) {
    if (!line.starts_with('[')) {
        return std::nullopt;
    }
    const std::u16string wide = FromAnsi(line);
    const size_t end = wide.find(u']');
    return end != wide.npos ? std::optional<std::u16string>(
                                  Trimmed(std::u16string_view(wide).substr(1, end - 1)))
                            : std::nullopt;
}

// The name before the equals sign; nothing for a comment or a line without one.
std::optional<std::string_view> KeyName(std::string_view line) {
    const size_t equals = line.find('=');
    if (equals == line.npos || line.starts_with(';')) {
        return std::nullopt;
    }
    return Trimmed(line.substr(0, equals));
}

std::u16string Value(std::string_view line) {
    std::string_view value = Trimmed(line.substr(line.find('=') + 1));
    if (value.size() >= 2 && value.front() == value.back() &&
        (value.front() == '"' || value.front() == '\'')) {
        value = value.substr(1, value.size() - 2);
    }
    return FromAnsi(value);
}

// Where a section and a key of it are in a text.
struct Place {
    bool hasSection = false;
    Line header;
    size_t sectionEnd = 0;  // where the next section, or the end of the text, is
    size_t lastEnd = 0;     // behind the section's last line that is not blank
    std::optional<Line> key;
};

// Of several of a name the first counts.
Place Find(std::string_view text, std::u16string_view section, std::u16string_view key) {
    section = Trimmed(section);
    key = Trimmed(key);
    // Most keys are ASCII, and told without being converted.
    const std::string narrow = ToAnsi(key);
    const bool isAscii = std::ranges::all_of(narrow, [](char c) { return (c & 0x80) == 0; });
    const auto isWanted = [&](std::string_view name) {
        return isAscii ? name.size() == narrow.size() &&
                             strncasecmp(name.data(), narrow.data(), name.size()) == 0
                       : EqualIgnoringCase(FromAnsi(name), key);
    };
    Place place;
    Line line;
    for (size_t at = 0; at < text.size(); at = line.next) {
        line = LineAt(text, at);
        const std::string_view content = line.In(text);
        if (const auto name = SectionName(content)) {
            if (place.hasSection) {
                return place;
            }
            if (EqualIgnoringCase(*name, section)) {
                place.hasSection = true;
                place.header = line;
            }
        } else if (place.hasSection && !place.key) {
            const auto name = KeyName(content);
            if (name && isWanted(*name)) {
                place.key = line;
            }
        }
        if (place.hasSection) {
            place.sectionEnd = line.next;
            place.lastEnd = content.empty() ? place.lastEnd : line.next;
        }
    }
    return place;
}

// A text with what lies between two places replaced. A last line that is not finished is, before
// something is put behind it.
std::string Replaced(const std::string& text, size_t begin, size_t end, std::string_view with) {
    std::string changed = text.substr(0, begin);
    if (begin == end && begin != 0 && text[begin - 1] != '\n') {
        changed += "\r\n";
    }
    return changed.append(with).append(text, end);
}

std::string Assigned(const std::string& text, std::u16string_view section, std::u16string_view key,
                     const std::string& value) {
    const Place place = Find(text, section, key);
    if (place.key) {
        const size_t equals = text.find('=', place.key->begin);
        return Replaced(text, equals + 1, place.key->next, value + "\r\n");
    }
    const std::string line = ToAnsi(Trimmed(key)) + '=' + value + "\r\n";
    return place.hasSection ? Replaced(text, place.lastEnd, place.lastEnd, line)
                            : Replaced(text, text.size(), text.size(),
                                       '[' + ToAnsi(Trimmed(section)) + "]\r\n" + line);
}

std::string Deleted(const std::string& text, std::u16string_view section,
                    std::optional<std::u16string_view> key) {
    const Place place = Find(text, section, key.value_or(u""));
    if (key) {
        return place.key ? Replaced(text, place.key->begin, place.key->next, {}) : text;
    }
    return place.hasSection ? Replaced(text, place.header.begin, place.sectionEnd, {}) : text;
}

DWORD ReadAll(const OpenFile& file, std::string& text) {
    struct stat status;
    if (fstat(file.fd, &status) != 0 || status.st_size > kLargestProfile) {
        return ERROR_READ_FAULT;
    }
    text.resize(static_cast<size_t>(status.st_size));
    const ssize_t got = pread(file.fd, text.data(), text.size(), 0);
    text.resize(got > 0 ? static_cast<size_t>(got) : 0);
    return got >= 0 ? ERROR_SUCCESS : ERROR_READ_FAULT;
}

// A bare file name lies in the Windows folder.
std::u16string PathOf(std::u16string_view file) {
    const bool isBare = file.find_first_of(u"\\/:") == file.npos;
    return (isBare ? u"C:\\Windows\\" : u"") + std::u16string(file);
}

}  // namespace

DWORD Profiles::ReadWhole(std::u16string_view file, std::string& text) const {
    std::shared_ptr<OpenFile> open;
    std::lock_guard lock(mutex_);
    const DWORD error =
        machine_.files().Open(PathOf(file), GENERIC_READ, kShareAll, OPEN_EXISTING, open);
    return error == ERROR_SUCCESS ? ReadAll(*open, text) : error;
}

std::vector<ProfileEntry> Profiles::Entries(std::u16string_view file) const {
    std::string text;
    (void)ReadWhole(file, text);
    std::vector<ProfileEntry> entries;
    std::optional<std::u16string> section;
    for (size_t at = 0; at < text.size();) {
        const Line line = LineAt(text, at);
        const std::string_view content = line.In(text);
        if (const auto name = SectionName(content)) {
            section = name;
        } else if (const auto key = KeyName(content); key && section) {
            entries.push_back({*section, FromAnsi(*key), Value(content)});
        }
        at = line.next;
    }
    return entries;
}

DWORD Profiles::Read(std::u16string_view section, std::u16string_view key, std::u16string_view file,
                     std::u16string& value) const {
    std::string text;
    DWORD error = ReadWhole(file, text);
    const Place place = Find(text, section, key);
    if (place.key) {
        value = Value(place.key->In(text));
    } else if (error == ERROR_SUCCESS) {
        error = ERROR_FILE_NOT_FOUND;
    }
    return error;
}

DWORD Profiles::Write(std::u16string_view section, std::optional<std::u16string_view> key,
                      std::optional<std::u16string_view> value, std::u16string_view file) {
    FileSystem& files = machine_.files();
    const std::u16string path = PathOf(file);
    const bool deletes = !key || !value;
    if (deletes && files.Attributes(path) == INVALID_FILE_ATTRIBUTES) {
        return ERROR_SUCCESS;  // there is nothing to delete, and no reason to make a file
    }
    std::shared_ptr<OpenFile> open;
    std::string text;
    std::lock_guard lock(mutex_);
    DWORD error =
        files.Open(path, GENERIC_READ | GENERIC_WRITE, kShareAll, FileSystem::kOpenOrMake, open);
    if (error == ERROR_SUCCESS) {
        error = ReadAll(*open, text);
    }
    if (error != ERROR_SUCCESS) {
        return error;
    }
    const std::string changed =
        deletes ? Deleted(text, section, key) : Assigned(text, section, *key, ToAnsi(*value));
    const ssize_t put = pwrite(open->fd, changed.data(), changed.size(), 0);
    return put == static_cast<ssize_t>(changed.size()) &&
                   ftruncate(open->fd, static_cast<off_t>(changed.size())) == 0
               ? ERROR_SUCCESS
               : ERROR_DISK_FULL;
}

namespace {

Profiles& Service() {
    return Machine::Current().profiles();
}

// A whole number at the start of a value: a sign, decimal digits. What follows is ignored; the
// number wraps in 32 bits.
UINT NumberOf(std::u16string_view text) {
    const bool negative = text.starts_with(u'-');
    if (negative || text.starts_with(u'+')) {
        text.remove_prefix(1);
    }
    UINT number = 0;
    for (size_t i = 0; i < text.size() && text[i] >= u'0' && text[i] <= u'9'; ++i) {
        number = number * 10 + (text[i] - u'0');
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
    std::u16string text = fallback != nullptr ? fallback : u"";
    text.resize(text.find_last_not_of(u' ') + 1);
    if (!Fails("GetPrivateProfileStringW", ERROR_ACCESS_DENIED)) {
        (void)Answer(section != nullptr && key != nullptr ? Service().Read(section, key, file, text)
                                                          : ERROR_INVALID_PARAMETER);
    }
    if (characters == 0) {
        return 0;
    }
    const size_t stored = text.copy(value, characters - 1);
    value[stored] = 0;
    return static_cast<DWORD>(stored);
}

UINT GetPrivateProfileIntW(LPCWSTR section, LPCWSTR key, INT fallback, LPCWSTR file) {
    std::u16string text;
    const bool isRead = !Fails("GetPrivateProfileIntW", ERROR_ACCESS_DENIED) &&
                        Answer(Service().Read(section, key, file, text));
    return isRead && !text.empty() ? NumberOf(text) : static_cast<UINT>(fallback);
}

BOOL WritePrivateProfileStringW(LPCWSTR section, LPCWSTR key, LPCWSTR value, LPCWSTR file) {
    if (Fails("WritePrivateProfileStringW", ERROR_ACCESS_DENIED)) {
        return FALSE;
    }
    // Without section it asks for the file to be written out, which it always is; that answer is
    // FALSE too.
    return section != nullptr &&
           Answer(Service().Write(section, Optional(key), Optional(value), file));
}
