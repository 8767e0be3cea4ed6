#include "platform/embedded/modules.h"

#include <algorithm>

#include "platform/embedded/api_kernel.h"
#include "platform/embedded/files.h"

namespace embedded {
namespace {

constexpr uintptr_t kModuleSpacing = 0x10000;

std::u16string_view FileNameOf(std::u16string_view path) {
    const size_t separator = path.find_last_of(u"\\/:");
    return separator == std::u16string_view::npos ? path : path.substr(separator + 1);
}

// A name without extension means a .DLL; a full stop at the end means none.
std::u16string WithExtension(std::u16string_view name) {
    std::u16string whole(name);
    if (whole.ends_with(u'.')) {
        whole.pop_back();
    } else if (FileNameOf(whole).find(u'.') == std::u16string_view::npos) {
        whole += u".DLL";
    }
    return whole;
}

}  // namespace

// One spelling for all the ways to write a path.
std::u16string Modules::FullPath(std::u16string_view path) const {
    std::u16string full(path);
    std::replace(full.begin(), full.end(), u'/', u'\\');
    return full;
}

void Modules::Install(ModuleDefinition definition) {
    definition.path = FullPath(definition.path);
    Remove(definition.path);
    std::lock_guard lock(mutex_);
    std::u16string path = definition.path;
    modules_.emplace(std::move(path),
                     Module{.definition = std::move(definition), .address = nextAddress_});
    nextAddress_ += kModuleSpacing;
}

void Modules::Remove(std::u16string_view path) {
    std::lock_guard lock(mutex_);
    const auto refusal = refusals_.find(FileNameOf(path));
    if (refusal != refusals_.end()) {
        refusals_.erase(refusal);
    }
    const auto module = modules_.find(FullPath(path));
    if (module != modules_.end()) {
        modules_.erase(module);
    }
}

void Modules::AnswerLoadWith(std::u16string_view fileName, unsigned value) {
    std::lock_guard lock(mutex_);
    refusals_[std::u16string(fileName)] = value;
}

unsigned Modules::CountLoaded() const {
    std::lock_guard lock(mutex_);
    unsigned count = 0;
    for (const auto& [path, module] : modules_) {
        count += module.references;
    }
    return count;
}

unsigned Modules::CountLoaded(std::u16string_view path) const {
    std::lock_guard lock(mutex_);
    const auto module = modules_.find(FullPath(path));
    return module != modules_.end() ? module->second.references : 0;
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
    const std::u16string wanted = FullPath(WithExtension(name));
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

bool Modules::IsLoaded(HMODULE module) const {
    std::lock_guard lock(mutex_);
    return Find(module) != nullptr;
}

FARPROC Modules::FindExport(HMODULE module, const char* name) const {
    std::lock_guard lock(mutex_);
    const Module* found = Find(module);
    if (found == nullptr) {
        return nullptr;
    }
    const auto entry = found->definition.exports.find(name);
    return entry != found->definition.exports.end() ? entry->second : nullptr;
}

FARPROC Modules::FindExport(HMODULE module, WORD ordinal) const {
    std::lock_guard lock(mutex_);
    const Module* found = Find(module);
    if (found == nullptr) {
        return nullptr;
    }
    const auto entry = found->definition.ordinals.find(ordinal);
    return entry != found->definition.ordinals.end() ? entry->second : nullptr;
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

HMODULE LoadModule(CallSite& call, std::u16string_view name) {
    if (call.Fails()) {
        SetLastError(ERROR_NOT_ENOUGH_MEMORY);
        return nullptr;
    }
    const HMODULE module = name.empty() ? nullptr : Loader().Load(name);
    const auto value = reinterpret_cast<uintptr_t>(module);
    if (value == 0) {
        SetLastError(ERROR_MOD_NOT_FOUND);
    } else if (value < 32) {
        SetLastError(static_cast<DWORD>(value));  // such answers are error codes
    }
    return module;
}

}  // namespace
}  // namespace embedded

using namespace embedded;

HMODULE LoadLibraryW(LPCWSTR name) {
    static CallSite call("LoadLibraryW");
    return LoadModule(call, name != nullptr ? name : TEXT(""));
}

HMODULE LoadLibraryA(LPCSTR name) {
    static CallSite call("LoadLibraryA");
    return LoadModule(call, FromAnsi(name != nullptr ? name : ""));
}

BOOL FreeLibrary(HMODULE module) {
    static CallSite call("FreeLibrary");
    // A release that is told to fail is done all the same: nobody can try it again.
    const bool fails = call.Fails();
    if (!Loader().Free(module) || fails) {
        SetLastError(module == nullptr ? ERROR_INVALID_HANDLE : ERROR_MOD_NOT_FOUND);
        return FALSE;
    }
    return TRUE;
}

FARPROC GetProcAddress(HMODULE module, LPCSTR name) {
    static CallSite call("GetProcAddress");
    const auto number = reinterpret_cast<uintptr_t>(name);
    if (!Loader().IsLoaded(module)) {
        SetLastError(ERROR_MOD_NOT_FOUND);
        return nullptr;
    }
    const FARPROC found = call.Fails()     ? nullptr
                          : number < 0x10000 ? Loader().FindExport(module, static_cast<WORD>(number))
                                             : Loader().FindExport(module, name);
    if (found == nullptr) {
        SetLastError(ERROR_PROC_NOT_FOUND);
    }
    return found;
}

DWORD GetModuleFileNameW(HMODULE module, LPWSTR path, DWORD characters) {
    static CallSite call("GetModuleFileNameW");
    const std::u16string whole = Loader().PathOf(module);
    if (call.Fails() || whole.empty()) {
        SetLastError(ERROR_MOD_NOT_FOUND);
        return 0;
    }
    if (characters <= whole.size()) {
        if (characters != 0) {
            path[whole.copy(path, characters - 1)] = 0;
        }
        SetLastError(ERROR_INSUFFICIENT_BUFFER);
        return characters;
    }
    path[whole.copy(path, whole.size())] = 0;
    SetLastError(ERROR_SUCCESS);
    return static_cast<DWORD>(whole.size());
}
