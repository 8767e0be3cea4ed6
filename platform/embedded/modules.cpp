#include "platform/embedded/modules.h"

#include "platform/embedded/api_kernel.h"

namespace embedded {
namespace {

constexpr uintptr_t kModuleSpacing = 0x10000;

std::u16string_view FileNameOf(std::u16string_view path) {
    const size_t separator = path.find_last_of(u"\\/:");
    return separator == std::u16string_view::npos ? path : path.substr(separator + 1);
}

}  // namespace

void Modules::Install(ModuleDefinition definition) {
    Remove(definition.path);
    std::lock_guard lock(mutex_);
    std::u16string path = definition.path;
    modules_.emplace(std::move(path),
                     Module{.definition = std::move(definition), .address = nextAddress_});
    nextAddress_ += kModuleSpacing;
}

void Modules::Remove(std::u16string_view path) {
    std::lock_guard lock(mutex_);
    const auto isMeant = [](std::u16string_view name) {
        return [=](const auto& entry) { return EqualIgnoringCase(entry.first, name); };
    };
    std::erase_if(refusals_, isMeant(FileNameOf(path)));
    std::erase_if(modules_, isMeant(path));
}

void Modules::AnswerLoadWith(std::u16string_view fileName, unsigned value) {
    std::lock_guard lock(mutex_);
    refusals_[std::u16string(fileName)] = value;
}

unsigned Modules::CountLoaded(std::u16string_view path) const {
    std::lock_guard lock(mutex_);
    unsigned count = 0;
    for (const auto& [known, module] : modules_) {
        count += path.empty() || EqualIgnoringCase(known, path) ? module.references : 0;
    }
    return count;
}

// Called under the lock. Null unless it is loaded.
const Modules::Module* Modules::Find(HMODULE module) const {
    for (const auto& [path, entry] : modules_) {
        if (entry.address == reinterpret_cast<uintptr_t>(module) && entry.references != 0) {
            return &entry;
        }
    }
    return nullptr;
}

std::span<const std::byte> Modules::Resources(HINSTANCE module) const {
    std::lock_guard lock(mutex_);
    const Module* found = Find(module);
    return found != nullptr ? found->definition.resources : std::span<const std::byte>();
}

HMODULE Modules::Load(std::u16string_view name) {
    std::u16string wanted(name);
    if (FileNameOf(name).find(u'.') == name.npos) {
        wanted += u".DLL";
    }
    const bool isBare = FileNameOf(wanted).size() == wanted.size();
    std::lock_guard lock(mutex_);
    const auto refusal = refusals_.find(FileNameOf(wanted));
    if (refusal != refusals_.end()) {
        return reinterpret_cast<HMODULE>(static_cast<uintptr_t>(refusal->second));
    }
    for (auto& [path, module] : modules_) {
        const std::u16string_view known = isBare ? FileNameOf(path) : std::u16string_view(path);
        if (EqualIgnoringCase(known, wanted)) {
            ++module.references;
            return reinterpret_cast<HMODULE>(module.address);
        }
    }
    return nullptr;
}

bool Modules::Free(HMODULE module) {
    std::lock_guard lock(mutex_);
    const Module* found = Find(module);
    if (found != nullptr) {
        --const_cast<Module*>(found)->references;
    }
    return found != nullptr;
}

FARPROC Modules::FindExport(HMODULE module, const std::string& name) const {
    std::lock_guard lock(mutex_);
    const auto& exports = Find(module)->definition.exports;
    const auto entry = exports.find(name);
    return entry != exports.end() ? entry->second : nullptr;
}

std::u16string Modules::PathOf(HMODULE module) const {
    std::lock_guard lock(mutex_);
    const Module* found = Find(module);
    return found != nullptr ? found->definition.path : std::u16string();
}

namespace {

Modules& Loader() {
    return Machine::Current().modules();
}

HMODULE LoadModule(std::u16string_view name) {
    const HMODULE module = name.empty() ? nullptr : Loader().Load(name);
    const auto value = reinterpret_cast<uintptr_t>(module);
    if (value < 32) {
        // Small answers are error codes.
        SetLastError(value != 0 ? static_cast<DWORD>(value) : ERROR_MOD_NOT_FOUND);
    }
    return module;
}

}  // namespace
}  // namespace embedded

using namespace embedded;

HMODULE LoadLibraryW(LPCWSTR name) {
    return Fails("LoadLibraryW", ERROR_NOT_ENOUGH_MEMORY) ? nullptr : LoadModule(name);
}

HMODULE LoadLibraryA(LPCSTR name) {
    return Fails("LoadLibraryA", ERROR_NOT_ENOUGH_MEMORY) ? nullptr : LoadModule(FromAnsi(name));
}

BOOL FreeLibrary(HMODULE module) {
    // A release that is told to fail is done all the same: nobody can try it again.
    const bool fails = Fails("FreeLibrary");
    return Answer(module == nullptr                 ? ERROR_INVALID_HANDLE
                  : !Loader().Free(module) || fails ? ERROR_MOD_NOT_FOUND
                                                    : ERROR_SUCCESS);
}

FARPROC GetProcAddress(HMODULE module, LPCSTR name) {
    if (!Answer(Loader().PathOf(module).empty() ? ERROR_MOD_NOT_FOUND : ERROR_SUCCESS) ||
        Fails("GetProcAddress", ERROR_PROC_NOT_FOUND)) {
        return nullptr;
    }
    const auto number = reinterpret_cast<uintptr_t>(name);
    const FARPROC found =
        Loader().FindExport(module, number < 0x10000 ? '#' + std::to_string(number) : name);
    (void)Answer(found == nullptr ? ERROR_PROC_NOT_FOUND : ERROR_SUCCESS);
    return found;
}

DWORD GetModuleFileNameW(HMODULE module, LPWSTR path, DWORD characters) {
    const std::u16string whole = Loader().PathOf(module);
    if (Fails("GetModuleFileNameW", ERROR_MOD_NOT_FOUND) ||
        !Answer(whole.empty() ? ERROR_MOD_NOT_FOUND : ERROR_SUCCESS)) {
        return 0;
    }
    const auto stored = static_cast<DWORD>(whole.copy(path, characters - 1));
    path[stored] = 0;
    SetLastError(stored < whole.size() ? ERROR_INSUFFICIENT_BUFFER : ERROR_SUCCESS);
    return stored < whole.size() ? characters : stored;
}
