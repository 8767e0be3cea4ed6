#pragma once

// Small move-only owners for what the Windows calls hand out. Each knows its invalid value and
// its release; `release()` hands the thing on.

#include <utility>

#include "platform/windows_api.h"

namespace platform {

// The address of an export as the function that it is known to be, and back. Compilers warn of a
// direct cast between function types; every function pointer can go through this one.
template <typename Target, typename Source>
Target FunctionCast(Source address) {
    return reinterpret_cast<Target>(reinterpret_cast<void (*)()>(address));
}

template <typename Traits>
class Owned {
  public:
    using Value = typename Traits::Value;

    Owned() = default;
    explicit Owned(Value value) : value_(value) {}
    Owned(Owned&& other) noexcept : value_(other.release()) {}
    Owned& operator=(Owned&& other) noexcept {
        if (this != &other) {
            reset(other.release());
        }
        return *this;
    }
    Owned(const Owned&) = delete;
    Owned& operator=(const Owned&) = delete;
    ~Owned() { reset(); }

    explicit operator bool() const { return value_ != Traits::Invalid(); }
    Value get() const { return value_; }
    [[nodiscard]] Value release() { return std::exchange(value_, Traits::Invalid()); }
    void reset(Value value = Traits::Invalid()) {
        if (value_ != Traits::Invalid()) {
            Traits::Free(value_);
        }
        value_ = value;
    }

  private:
    Value value_ = Traits::Invalid();
};

struct NullableHandleTraits {
    using Value = HANDLE;
    static Value Invalid() { return nullptr; }
    static void Free(Value value) { CloseHandle(value); }
};
// For calls that fail with null, such as CreateFileMappingW.
using NullableHandle = Owned<NullableHandleTraits>;

struct FileHandleTraits {
    using Value = HANDLE;
    static Value Invalid() { return INVALID_HANDLE_VALUE; }
    static void Free(Value value) { CloseHandle(value); }
};
// For CreateFileW, which fails with INVALID_HANDLE_VALUE.
using FileHandle = Owned<FileHandleTraits>;

struct MappedViewTraits {
    using Value = void*;
    static Value Invalid() { return nullptr; }
    static void Free(Value value) { UnmapViewOfFile(value); }
};
using MappedView = Owned<MappedViewTraits>;

struct GlobalBlockTraits {
    using Value = void*;
    static Value Invalid() { return nullptr; }
    static void Free(Value value) { GlobalFree(value); }
};
using GlobalBlock = Owned<GlobalBlockTraits>;

struct ModuleTraits {
    using Value = HMODULE;
    static Value Invalid() { return nullptr; }
    static void Free(Value value) { FreeLibrary(value); }
};
using LoadedModule = Owned<ModuleTraits>;

// The function that a module exports by that name, null when it has none.
template <typename Function>
Function ExportOf(HMODULE module, LPCSTR name) {
    return FunctionCast<Function>(GetProcAddress(module, name));
}

struct PrinterHandleTraits {
    using Value = HANDLE;
    static Value Invalid() { return nullptr; }
    static void Free(Value value) { ClosePrinter(value); }
};
using PrinterHandle = Owned<PrinterHandleTraits>;

struct HeapTraits {
    using Value = HANDLE;
    static Value Invalid() { return nullptr; }
    static void Free(Value value) { HeapDestroy(value); }
};
using PrivateHeap = Owned<HeapTraits>;

struct RegistryKeyTraits {
    using Value = HKEY;
    static Value Invalid() { return nullptr; }
    static void Free(Value value) { RegCloseKey(value); }
};
using RegistryKey = Owned<RegistryKeyTraits>;

}  // namespace platform
