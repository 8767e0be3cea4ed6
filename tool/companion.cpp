#include "tool/companion.h"

#include <algorithm>
#include <cstring>
#include <fstream>
#include <utility>

#include "platform/embedded/files.h"
#include "platform/embedded/modules.h"
#include "platform/embedded/text.h"
#include "platform/windows_api.h"

#include "faxjob/companion.h"
#include "tool/failure.h"
#include "tool/fax_input.h"

namespace tool {

namespace {

constexpr WCHAR kSenderNameKey[] = TEXT("SenderName");
constexpr WCHAR kSenderNumberKey[] = TEXT("SenderNumber");
constexpr WCHAR kDateKey[] = TEXT("Date");

Companion* installed = nullptr;

std::u16string Decimal(size_t number) {
    return embedded::Utf16(std::to_string(number));
}

std::u16string ReadText(const std::u16string& section, const std::u16string& key,
                        const std::u16string& file) {
    WCHAR text[1024];
    const DWORD length = GetPrivateProfileStringW(section.c_str(), key.c_str(), TEXT(""), text,
                                                  std::size(text), file.c_str());
    return {text, length};
}

[[noreturn]] void ThrowUnwritable(const std::u16string& file) {
    throw UserError(embedded::Utf8(file) +
                    " cannot be written on the machine; make the file writable or remove it");
}

void WriteText(const std::u16string& section, const std::u16string& key, const std::u16string& text,
               const std::u16string& file) {
    // The profile service takes one pair of quotes off a value it reads; one pair more keeps them.
    const bool quoted = text.starts_with(u'"') || text.starts_with(u'\'');
    const std::u16string value = quoted ? u'"' + text + u'"' : text;
    if (!WritePrivateProfileStringW(section.c_str(), key.c_str(), value.c_str(), file.c_str())) {
        ThrowUnwritable(file);
    }
}

void RemoveSection(const std::u16string& section, const std::u16string& file) {
    if (!WritePrivateProfileStringW(section.c_str(), nullptr, nullptr, file.c_str()) &&
        GetLastError() != ERROR_FILE_NOT_FOUND) {
        ThrowUnwritable(file);
    }
}

void WriteReceivers(std::span<const Receiver> receivers, const std::u16string& file) {
    for (size_t i = 0; i < receivers.size(); ++i) {
        WriteText(TEXT(KSFAX_LIST_SECTION), u"Name" + Decimal(i + 1), receivers[i].name, file);
        WriteText(TEXT(KSFAX_LIST_SECTION), u"Number" + Decimal(i + 1), receivers[i].number, file);
    }
}

void AppendReceivers(std::vector<Receiver>& receivers, size_t count, const std::u16string& file) {
    for (size_t i = 1; i <= count; ++i) {
        receivers.push_back({ReadText(TEXT(KSFAX_LIST_SECTION), u"Name" + Decimal(i), file),
                             ReadText(TEXT(KSFAX_LIST_SECTION), u"Number" + Decimal(i), file)});
    }
}

std::u16string TwoDigits(size_t number) {
    return (number < 10 ? u"0" : u"") + Decimal(number);
}

std::vector<Receiver> ReadReceivers(const std::u16string& snapshot) {
    std::vector<Receiver> receivers;
    const UINT count = GetPrivateProfileIntW(TEXT(KSFAX_LIST_SECTION), TEXT(KSFAX_RECEIVERS_KEY), 0,
                                             snapshot.c_str());
    if (count <= KSFAX_SHORT_LIST) {
        AppendReceivers(receivers, count, snapshot);
        return receivers;
    }
    constexpr std::u16string_view patternEnd = TEXT(KSFAX_RENAMED_DIAL_END);
    std::u16string base =
        ReadText(TEXT(KSFAX_DATA_SECTION), TEXT(KSFAX_DIAL_PATTERN_KEY), snapshot);
    if (base.ends_with(patternEnd)) {
        base.resize(base.size() - patternEnd.size());
    }
    for (size_t part = 1; receivers.size() < count; ++part) {
        const std::u16string file = base + u"_" + TwoDigits(part) + u".ini";
        const size_t partCount = GetPrivateProfileIntW(TEXT(KSFAX_LIST_SECTION),
                                                       TEXT(KSFAX_RECEIVERS_KEY), 0, file.c_str());
        if (partCount == 0) {
            throw UserError("of the job's " + std::to_string(count) + " receivers " +
                            std::to_string(count - receivers.size()) +
                            " are lost: " + embedded::Utf8(file) +
                            " cannot be read; see that the folder's files can be renamed");
        }
        AppendReceivers(receivers, std::min<size_t>(partCount, KSFAX_SHORT_LIST), file);
    }
    return receivers;
}

FARPROC Export(INT_PTR (*operation)(void*)) {
    return reinterpret_cast<FARPROC>(reinterpret_cast<void (*)()>(operation));
}

// A record as the driver hands it over; empty for one of another layout.
bool ReadRecord(const void* bytes, DialModuleRecord& record) {
    std::memcpy(&record, bytes, sizeof(record));
    return record.recordSize == sizeof(record) && record.version == KSFAX_RECORD_VERSION;
}

}  // namespace

Companion::Companion(embedded::Machine& machine, DialogChoices choices)
    : machine_(machine), choices_(std::move(choices)) {
    installed = this;
    machine_.modules().Install({.path = u"C:\\Windows\\System32\\" KSFAX_COMPANION_MODULE,
                                .exports = {{KSFAX_DIAL_OPERATION, Export(DialDlg)},
                                            {KSFAX_COVER_OPERATION, Export(MakeBmp)}},
                                .resources = {}});
}

Companion::~Companion() {
    machine_.modules().Remove(u"C:\\Windows\\System32\\" KSFAX_COMPANION_MODULE);
    installed = nullptr;
}

INT_PTR Companion::DialDlg(void* bytes) {
    DialModuleRecord record;
    if (!ReadRecord(bytes, record)) {
        return 0;
    }
    installed->dialogShown = true;
    installed->maximumReceivers = record.maximumReceivers;
    try {
        installed->isConfirmed = installed->FillDialog();
        return installed->isConfirmed;
    } catch (const std::exception& error) {
        // Nothing may unwind through the driver; the command that made the companion tells it.
        installed->failure = error.what();
        return 0;
    }
}

bool Companion::FillDialog() {
    // The choices of an earlier job go first, so that a cancelled one names no receiver.
    RemoveSection(TEXT(KSFAX_LIST_SECTION), TEXT(KSFAX_JOB_FILE));
    RemoveSection(TEXT(KSFAX_COVER_SECTION), TEXT(KSFAX_JOB_FILE));
    if (choices_.cancel) {
        return false;
    }
    const std::vector<Receiver>& receivers = choices_.receivers;
    if (receivers.size() > maximumReceivers) {
        dialogRefusal = "the dialog takes at most " + std::to_string(maximumReceivers) +
                        " receivers, the list has " + std::to_string(receivers.size());
        return false;
    }
    const std::u16string folder =
        ReadText(TEXT(KSFAX_DATA_SECTION), TEXT(KSFAX_FOLDER_KEY), TEXT(KSFAX_JOB_FILE));
    WriteText(TEXT(KSFAX_LIST_SECTION), TEXT(KSFAX_RECEIVERS_KEY), Decimal(receivers.size()),
              TEXT(KSFAX_JOB_FILE));
    size_t part = 1;
    if (receivers.size() <= KSFAX_SHORT_LIST) {
        WriteReceivers(receivers, TEXT(KSFAX_JOB_FILE));
    } else {
        for (size_t first = 0; first < receivers.size(); first += KSFAX_SHORT_LIST, ++part) {
            const std::span<const Receiver> some = std::span(receivers).subspan(
                first, std::min<size_t>(KSFAX_SHORT_LIST, receivers.size() - first));
            const std::u16string file = folder + u"\\Dial" + TwoDigits(part) + u".ini";
            RemoveSection(TEXT(KSFAX_LIST_SECTION), file);
            WriteText(TEXT(KSFAX_LIST_SECTION), TEXT(KSFAX_RECEIVERS_KEY), Decimal(some.size()),
                      file);
            WriteReceivers(some, file);
        }
        // A part that an interrupted job left would be taken for one of this list.
        while (std::filesystem::remove(
            machine_.files().HostPath(folder + u"\\Dial" + TwoDigits(part) + u".ini"))) {
            ++part;
        }
    }
    WriteText(TEXT(KSFAX_COVER_SECTION), kSenderNameKey, choices_.sender.name,
              TEXT(KSFAX_JOB_FILE));
    WriteText(TEXT(KSFAX_COVER_SECTION), kSenderNumberKey, choices_.sender.number,
              TEXT(KSFAX_JOB_FILE));
    WriteText(TEXT(KSFAX_COVER_SECTION), kDateKey, choices_.date, TEXT(KSFAX_JOB_FILE));
    if (!choices_.coverBitmap.empty()) {
        WriteText(TEXT(KSFAX_COVER_SECTION), TEXT(KSFAX_COVER_SWITCH_KEY), u"1",
                  TEXT(KSFAX_JOB_FILE));
        WriteText(TEXT(KSFAX_COVER_SECTION), TEXT(KSFAX_COVER_FILE_KEY), choices_.coverBitmap,
                  TEXT(KSFAX_JOB_FILE));
    }
    if (choices_.withMemo) {
        WriteText(TEXT(KSFAX_COVER_SECTION), TEXT(KSFAX_MEMO_SWITCH_KEY), u"1",
                  TEXT(KSFAX_JOB_FILE));
        const std::filesystem::path memo =
            machine_.files().HostPath(folder + u"\\" + TEXT(KSFAX_MEMO_FILE));
        std::ofstream stream(memo, std::ios::binary);
        stream << choices_.memo;
        stream.close();
        if (!stream) {
            throw UserError(memo.string() +
                            " cannot be written; make the file writable or remove it");
        }
    }
    return true;
}

INT_PTR Companion::MakeBmp(void* bytes) {
    DialModuleRecord record;
    // Without a dialog that was confirmed the driver holds what an earlier job left.
    if (!ReadRecord(bytes, record) || !installed->isConfirmed) {
        return 0;
    }
    const char* path = record.snapshotPath;
    const std::string_view ansi(path, strnlen(path, sizeof(record.snapshotPath)));
    try {
        installed->MakeCoverPage(embedded::FromAnsi(ansi));
    } catch (const std::exception& error) {
        installed->failure = error.what();
    }
    return installed->failure.empty();
}

void Companion::MakeCoverPage(const std::u16string& snapshot) {
    const std::u16string cancelled =
        ReadText(TEXT(KSFAX_DRIVER_SECTION), TEXT(KSFAX_CANCELLED_KEY), snapshot);
    if (cancelled.empty()) {
        throw UserError("the job's index " + embedded::Utf8(snapshot) +
                        " could not be written; see that its disk has room");
    }
    if (cancelled != u"0") {
        return;  // a cancelled job is sent to nobody
    }
    CoverPage page;
    page.sender = {ReadText(TEXT(KSFAX_COVER_SECTION), kSenderNameKey, snapshot),
                   ReadText(TEXT(KSFAX_COVER_SECTION), kSenderNumberKey, snapshot)};
    page.date = ReadText(TEXT(KSFAX_COVER_SECTION), kDateKey, snapshot);
    page.receivers = ReadReceivers(snapshot);
    const std::u16string memo =
        ReadText(TEXT(KSFAX_DATA_SECTION), TEXT(KSFAX_MEMO_COPY_KEY), snapshot);
    if (!memo.empty()) {
        const std::vector<std::byte> bytes = ReadFileBytes(machine_.files().HostPath(memo));
        page.memo = embedded::FromAnsi({reinterpret_cast<const char*>(bytes.data()), bytes.size()});
    }
    const std::u16string bitmap =
        ReadText(TEXT(KSFAX_DATA_SECTION), TEXT(KSFAX_COVER_COPY_KEY), snapshot);
    if (!bitmap.empty()) {
        page.bitmap = ReadBitmap(ReadFileBytes(machine_.files().HostPath(bitmap)));
    }
    std::filesystem::path file = machine_.files().HostPath(snapshot);
    file.replace_filename(file.stem().string() + "_cover.png");
    WriteBilevelPng(DrawCoverPage(page), file);
    coverPage = file;
}

}  // namespace tool
