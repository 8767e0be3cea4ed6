#include "description/load_description.h"

#include <algorithm>
#include <cstring>

#include "description/parse_state.h"

namespace ksfax {

namespace {

using platform::FileHandle;
using platform::GlobalBlock;

// A cache file of no more than this is never used: the header and little else.
constexpr uint32_t kLeastCacheSize = 504;

size_t LengthOf(const WCHAR* text) {
    size_t length = 0;
    while (text[length] != 0) {
        ++length;
    }
    return length;
}

// What follows the last backslash.
const WCHAR* FileNamePart(const WCHAR* path) {
    const WCHAR* name = path;
    for (; *path != 0; ++path) {
        if (*path == TEXT('\\')) {
            name = path + 1;
        }
    }
    return name;
}

FileHandle OpenForReading(const WCHAR* path) {
    return FileHandle(CreateFileW(path, GENERIC_READ, FILE_SHARE_READ, nullptr, OPEN_EXISTING,
                                  FILE_ATTRIBUTE_NORMAL, nullptr));
}

// False when the size is unknown or 0xFFFFFFFF, which the call cannot tell apart.
bool SizeOf(const FileHandle& file, uint32_t* size) {
    DWORD high = 0;
    const DWORD low = GetFileSize(file.get(), &high);
    *size = low;
    return low != INVALID_FILE_SIZE && high == 0;
}

// Reads up to `count` bytes; those that came.
uint32_t ReadUpTo(const FileHandle& file, void* buffer, uint32_t count) {
    DWORD bytes = 0;
    return ReadFile(file.get(), buffer, count, &bytes, nullptr) ? std::min<uint32_t>(bytes, count)
                                                                : 0;
}

// ---- The PPD's FileVersion ----

// False when the text ends before the version does, so that more of the file may tell.
bool ScanFileVersion(Text text, uint32_t* version) {
    *version = 0;
    const size_t word = text.find("FileVersion");
    const size_t open = word == Text::npos ? word : text.find('"', word);
    const size_t close = open == Text::npos ? open : text.find('"', open + 1);
    if (close == Text::npos) {
        return false;
    }
    (void)ParseReal(version, text.substr(open + 1, close - open - 1));
    return true;
}

// The version of an open PPD. It stands near the top of the file as a rule, so the file is not
// read on until the beginning has failed to tell.
uint32_t FileVersionOf(const FileHandle& ppd) {
    char beginning[4096];
    uint32_t size = 0;
    if (!SizeOf(ppd, &size)) {
        return 0;
    }
    uint32_t length = ReadUpTo(ppd, beginning, std::min<uint32_t>(size, sizeof(beginning)));
    const Text start(beginning, length);
    uint32_t version = 0;
    if (ScanFileVersion(start.substr(0, start.find('\0')), &version) || length == size ||
        start.find('\0') != Text::npos) {
        return version;
    }
    const GlobalBlock whole(GlobalAlloc(GMEM_FIXED, size));
    if (!whole) {
        return 0;
    }
    auto* text = static_cast<char*>(whole.get());
    std::memcpy(text, beginning, length);
    length += ReadUpTo(ppd, text + length, size - length);
    const Text all(text, length);
    ScanFileVersion(all.substr(0, all.find('\0')), &version);
    return version;
}

// ---- Walking a packed block ----

// The strings of an option besides its name, in the order in which they lie in the block.
template <typename Visit>
void ForEachOptionText(FeatureKind kind, OptionRecord& option, Visit visit) {
    visit(option.Translation);
    visit(option.Invocation);
    if (kind == FeatureKind::PageSize) {
        auto& paper = reinterpret_cast<PaperOptionRecord&>(option);
        visit(paper.PageSizeLInvocation);
        visit(paper.PageRegionInvocation);
    } else if (kind == FeatureKind::Resolution) {
        auto& resolution = reinterpret_cast<ResolutionOptionRecord&>(option);
        visit(resolution.JCLResolutionInvocation);
        visit(resolution.SetResolutionInvocation);
    }
}

template <typename Visit>
void ForEachHeaderText(PrinterDescription& header, Visit visit) {
    visit(header.NickName);
    visit(header.Password);
    visit(header.ExitServer);
    visit(header.CustomPageSizeCode);
    visit(header.JCLBegin);
    visit(header.JCLToPSInterpreter);
    visit(header.JCLEnd);
    visit(header.SleepMode);
    visit(header.DefaultLanguage);
}

class Relocation {
  public:
    explicit Relocation(PrinterDescription* block)
        : base_(reinterpret_cast<uintptr_t>(block)), size_(block->TotalSize) {}

    // The reference becomes its target's address, which is also returned.
    template <typename T>
    T* operator()(Ref<T>& reference) const {
        const uint64_t offset = reference.value;
        reference.value = offset == 0 || offset > size_ ? 0 : base_ + offset;
        return const_cast<T*>(reference.Target());
    }

  private:
    uint64_t base_;
    uint64_t size_;
};

// Follows the pieces of a packed block in the order in which packing lays them. Each must begin
// where the one before it has ended, or later: so every list ends, no two pieces share a byte,
// and the whole is one pass. A string ends in its own piece when the byte before the next piece
// is zero, and packing pads strings with zero bytes.
class SoundnessCheck {
  public:
    SoundnessCheck(const PrinterDescription* block, uint64_t size)
        : block_(reinterpret_cast<const uint8_t*>(block)), size_(size), end_(sizeof(*block)) {}

    bool sound() const { return sound_; }

    // Whether a reference will be null once relocated.
    template <typename T>
    bool IsNull(Ref<T> reference) const {
        return reference.Offset() == 0 || reference.Offset() > size_;
    }

    // A piece of `bytes`, at least, if it is there at all; null when it is not, or not sound.
    template <typename T>
    const T* Piece(Ref<T> reference, uint64_t bytes) {
        const uint64_t offset = reference.Offset();
        if (!sound_ || IsNull(reference)) {
            return nullptr;
        }
        CloseString(offset);
        Expect(offset % 4 == 0 && offset >= end_ && bytes <= size_ - offset);
        end_ = offset + bytes;
        return sound_ ? reinterpret_cast<const T*>(block_ + offset) : nullptr;
    }
    template <typename T>
    const T* Record(Ref<T> reference) {
        return Piece(reference, sizeof(T));
    }
    void String(Ref<char> reference) {
        if (Piece(reference, 1) != nullptr) {
            inString_ = true;
        }
    }
    // UTF-16, looked at to its end because a path is short.
    void WideString(Ref<WCHAR> reference) {
        const WCHAR* text = Piece(reference, sizeof(WCHAR));
        while (text != nullptr && *text != 0) {
            end_ += sizeof(WCHAR);
            ++text;
            Expect(end_ <= size_);
            text = sound_ ? text : nullptr;
        }
    }
    void Finish() {
        if (sound_) {
            CloseString(size_);
        }
    }
    void Expect(bool holds) { sound_ = sound_ && holds; }

  private:
    // What follows a string begins at `next`.
    void CloseString(uint64_t next) {
        Expect(!inString_ || (next >= end_ && block_[next - 1] == 0));
        inString_ = false;
    }

    const uint8_t* block_;
    uint64_t size_;
    uint64_t end_;  // of the pieces so far; of a string its first byte
    bool inString_ = false;
    bool sound_ = true;
};

void CheckOptions(SoundnessCheck& check, const FeatureRecord& feature) {
    Ref<OptionRecord> next = feature.Options;
    while (const OptionRecord* option = check.Piece(next, feature.OptionSize)) {
        check.Expect(!check.IsNull(option->Name));
        check.String(option->Name);
        // The visitor wants to change what it visits; this one only looks.
        ForEachOptionText(feature.Kind, const_cast<OptionRecord&>(*option),
                          [&](Ref<char>& text) { check.String(text); });
        next = option->Next;
    }
}

void CheckFeatures(SoundnessCheck& check, const PrinterDescription& header) {
    uint32_t counts[2] = {0, 0};
    Ref<FeatureRecord> next = header.Features;
    while (const FeatureRecord* feature = check.Record(next)) {
        check.Expect(feature->Kind <= FeatureKind::Generic && feature->Installable <= 1 &&
                     !check.IsNull(feature->Name));
        if (!check.sound()) {
            return;
        }
        // Selections are counted and numbered by group, document features before the others.
        check.Expect(feature->OptionSize == OptionRecordSize(feature->Kind) &&
                     feature->Index == Saturated(counts[feature->Installable]) &&
                     (feature->Installable == 1 || counts[1] == 0));
        ++counts[feature->Installable];
        check.String(feature->Name);
        check.String(feature->Translation);
        CheckOptions(check, *feature);
        next = feature->Next;
    }
    check.Expect(header.DocumentFeatureCount == Saturated(counts[0]) &&
                 header.InstallableFeatureCount == Saturated(counts[1]));
}

void CheckFonts(SoundnessCheck& check, const PrinterDescription& header) {
    Ref<DeviceFontRecord> next = header.DeviceFonts;
    while (const DeviceFontRecord* font = check.Record(next)) {
        check.Expect(!check.IsNull(font->Name));
        check.String(font->Name);
        check.String(font->Description);
        next = font->Next;
    }
}

// Tables take 12 bytes an entry whatever the entry's own size.
template <typename Table>
void CheckTable(SoundnessCheck& check, Ref<Table> reference, size_t entrySize) {
    SoundnessCheck ahead = check;
    const Table* table = ahead.Record(reference);
    check.Piece(reference, table != nullptr ? sizeof(Table) + uint64_t{table->Count} *
                                                                  sizeof(OrderDependencyEntry)
                                            : sizeof(Table));
    check.Expect(table == nullptr || table->EntrySize == entrySize);
}

// The name of the cache file, unless the PPD itself has it and would be overwritten.
bool HasCacheFile(const WCHAR* path, WCHAR (&name)[MAX_PATH]) {
    return CacheFileName(path, name) && lstrcmpiW(name, path) != 0;
}

bool IsMadeFrom(const PrinterDescription& description, const WCHAR* path) {
    const WCHAR* stored = description.PpdFileName.Target();
    return stored != nullptr && lstrcmpiW(FileNamePart(stored), FileNamePart(path)) == 0;
}

}  // namespace

bool MapFileReadOnly(const WCHAR* path, platform::MappedView* view, uint32_t* size) {
    const FileHandle file = OpenForReading(path);
    uint32_t bytes = 0;
    if (!file || !SizeOf(file, &bytes) || bytes == 0) {
        return false;
    }
    const platform::NullableHandle mapping(
        CreateFileMappingW(file.get(), nullptr, PAGE_READONLY, 0, 0, nullptr));
    if (!mapping) {
        return false;
    }
    platform::MappedView mapped(MapViewOfFile(mapping.get(), FILE_MAP_READ, 0, 0, bytes));
    if (!mapped) {
        return false;
    }
    *view = std::move(mapped);
    *size = bytes;
    return true;
}

bool CacheFileName(const WCHAR* path, WCHAR (&name)[MAX_PATH]) {
    static constexpr WCHAR kExtension[] = {'.', 'P', 'D', 'C', 0};
    const size_t length = LengthOf(path);
    size_t stem = length;
    while (stem != 0 && path[stem - 1] != TEXT('.')) {
        --stem;
    }
    stem = stem != 0 ? stem - 1 : length;
    if (stem > MAX_PATH - std::size(kExtension)) {
        return false;
    }
    std::copy_n(path, stem, name);
    std::ranges::copy(kExtension, name + stem);
    return true;
}

uint32_t ReadFileVersion(const char* text) {
    uint32_t version = 0;
    ScanFileVersion(text, &version);
    return version;
}

bool IsSoundBlock(const PrinterDescription* block, size_t size) {
    if (size < sizeof(PrinterDescription) || block->TotalSize != size) {
        return false;
    }
    SoundnessCheck check(block, size);
    check.WideString(block->PpdFileName);
    ForEachHeaderText(const_cast<PrinterDescription&>(*block),
                      [&](Ref<char>& text) { check.String(text); });
    CheckTable(check, block->OrderDependencies, sizeof(OrderDependencyEntry));
    CheckTable(check, block->UIConstraints, sizeof(ConstraintEntry));
    CheckFeatures(check, *block);
    CheckFonts(check, *block);
    check.Finish();
    return check.sound();
}

void RelocateDescription(PrinterDescription* block) {
    const Relocation relocate(block);
    relocate(block->PpdFileName);
    ForEachHeaderText(*block, [&](Ref<char>& text) { relocate(text); });
    relocate(block->OrderDependencies);
    relocate(block->UIConstraints);
    for (DeviceFontRecord* font = relocate(block->DeviceFonts); font != nullptr;
         font = relocate(font->Next)) {
        relocate(font->Name);
        relocate(font->Description);
    }
    std::memset(block->FeatureByKind, 0, sizeof(block->FeatureByKind));
    for (FeatureRecord* feature = relocate(block->Features); feature != nullptr;
         feature = relocate(feature->Next)) {
        relocate(feature->Name);
        relocate(feature->Translation);
        if (feature->Kind < FeatureKind::Generic) {
            block->FeatureByKind[static_cast<unsigned>(feature->Kind)].value =
                reinterpret_cast<uintptr_t>(feature);
        }
        for (OptionRecord* option = relocate(feature->Options); option != nullptr;
             option = relocate(option->Next)) {
            relocate(option->Name);
            ForEachOptionText(feature->Kind, *option, [&](Ref<char>& text) { relocate(text); });
        }
    }
}

PrinterDescription* ReadCachedDescription(const WCHAR* path) {
    WCHAR name[MAX_PATH];
    const FileHandle ppd = OpenForReading(path);
    if (!ppd || !HasCacheFile(path, name)) {
        return nullptr;
    }
    const FileHandle cache = OpenForReading(name);
    uint32_t size = 0;
    // The header tells whether the rest, of which there may be gigabytes, is worth its memory.
    // What was copied is what gets tested: the file may change under another process's hands.
    PrinterDescription header;
    static_assert(kLeastCacheSize >= sizeof(header));
    if (!cache || !SizeOf(cache, &size) || size <= kLeastCacheSize ||
        ReadUpTo(cache, &header, sizeof(header)) != sizeof(header) || header.TotalSize != size ||
        header.Version != kDescriptionVersion || header.FileVersion == 0 ||
        header.FileVersion != FileVersionOf(ppd)) {
        return nullptr;
    }
    GlobalBlock copy(GlobalAlloc(GMEM_FIXED, size));
    if (!copy) {
        return nullptr;
    }
    auto* block = static_cast<PrinterDescription*>(copy.get());
    std::memcpy(block, &header, sizeof(header));
    const uint32_t rest = size - uint32_t{sizeof(header)};
    if (ReadUpTo(cache, block + 1, rest) != rest || !IsSoundBlock(block, size)) {
        return nullptr;
    }
    return static_cast<PrinterDescription*>(copy.release());
}

void WriteCachedDescription(const WCHAR* path, const PrinterDescription* block,
                            const ParseObserver* observer) {
    WCHAR name[MAX_PATH];
    bool done = false;
    if (HasCacheFile(path, name)) {
        const FileHandle cache(CreateFileW(name, GENERIC_WRITE, 0, nullptr, CREATE_ALWAYS,
                                           FILE_ATTRIBUTE_NORMAL, nullptr));
        // A file cut short has the wrong size and is not used.
        DWORD written = 0;
        done = cache && WriteFile(cache.get(), block, block->TotalSize, &written, nullptr) &&
               written == block->TotalSize;
    }
    if (observer != nullptr && observer->cacheWritten != nullptr) {
        observer->cacheWritten(observer->context, done);
    }
}

PrinterDescription* LoadPrinterDescription(const WCHAR* path, const ParseObserver* observer) {
    if (path == nullptr) {
        return nullptr;
    }
    const auto tellWhetherCached = [&](bool used) {
        if (observer != nullptr && observer->cacheUsed != nullptr) {
            observer->cacheUsed(observer->context, used);
        }
    };
    GlobalBlock block(ReadCachedDescription(path));
    if (block) {
        auto* cached = static_cast<PrinterDescription*>(block.get());
        RelocateDescription(cached);
        if (IsMadeFrom(*cached, path)) {
            tellWhetherCached(true);
            return static_cast<PrinterDescription*>(block.release());
        }
        block.reset();
    }
    tellWhetherCached(false);

    ParseState* state = ParsePpdFile(path, observer);
    if (state == nullptr) {
        return nullptr;
    }
    PrinterDescription* description = PackDescription(state, observer);
    if (description == nullptr) {
        return nullptr;
    }
    WriteCachedDescription(path, description, observer);
    RelocateDescription(description);
    return description;
}

}  // namespace ksfax
