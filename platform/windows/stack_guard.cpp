// What the compiler's checks of the stack and of copies call in the shipped DLL. Its own library
// for them would load a cryptographic provider while the loader's lock is held, in every process
// that prints, and tell of an overrun on a console. Here an overrun ends the process at once.

#include <cstddef>
#include <cstdint>
#include <cstring>

#include "platform/windows_api.h"

namespace {

// FAST_FAIL_STACK_COOKIE_CHECK_FAILURE or FAST_FAIL_RANGE_CHECK_FAILURE. No handler of the
// process, whose stack may be an attacker's, runs on the way.
[[noreturn]] void EndProcess(unsigned code) {
    asm volatile("int $0x29" : : "c"(code));
    __builtin_unreachable();
}

}  // namespace

extern "C" {

// Stands between a function's arrays and its return address.
uintptr_t __stack_chk_guard = 0x2B992DDFA23200;

[[noreturn]] void __stack_chk_fail() {
    EndProcess(2);
}

void* __memcpy_chk(void* target, const void* source, size_t bytes, size_t room) {
    if (bytes > room) {
        EndProcess(8);
    }
    return memcpy(target, source, bytes);
}

// Runs before anything else of the module, and without a guard itself, which changes here. The
// lowest byte stays 0, so that no overlong text can put the right value back.
__attribute__((constructor(101), no_stack_protector)) static void ChooseGuard() {
    FILETIME time = {};
    GetSystemTimeAsFileTime(&time);
    LARGE_INTEGER counter = {};
    QueryPerformanceCounter(&counter);
    uint64_t value = uint64_t{time.dwHighDateTime} << 32 | time.dwLowDateTime;
    value ^= static_cast<uint64_t>(counter.QuadPart) << 20;
    value ^= reinterpret_cast<uintptr_t>(&time) ^ reinterpret_cast<uintptr_t>(&__stack_chk_guard);
    value ^= uint64_t{GetCurrentProcessId()} << 40 ^ uint64_t { GetCurrentThreadId() } << 12;
    __stack_chk_guard = (value * 0x9E3779B97F4A7C15) << 8;
}

}  // extern "C"
