#pragma once

// Finding the first byte of a kind in text, sixteen bytes a step. Unlike a loop over bytes this
// has no branch that depends on where the byte is, which is what short words cost most.

#include <bit>
#include <cstddef>
#include <cstring>

#if defined(__x86_64__)
#include <emmintrin.h>
#endif

namespace platform {

// Compares byte by byte, with a character too: `bytes == '\n'`. Bytes from 128 on are negative.
// A comparison gives -1 where it holds and 0 elsewhere.
using SixteenBytes [[gnu::vector_size(16)]] = signed char;

// Bit i: byte i of a comparison holds.
inline unsigned BitsOf(SixteenBytes comparison) {
#if defined(__x86_64__)
    return static_cast<unsigned>(_mm_movemask_epi8(reinterpret_cast<__m128i>(comparison)));
#else
    unsigned bits = 0;
    for (unsigned i = 0; i < 16; ++i) {
        bits |= comparison[i] != 0 ? 1U << i : 0;
    }
    return bits;
#endif
}

// The first byte from `place` on for which `test`, of sixteen bytes at once, holds; `end` when
// there is none.
template <typename Test>
const char* FindByte(const char* place, const char* end, Test test) {
    SixteenBytes bytes;
    for (; end - place >= 16; place += 16) {
        std::memcpy(&bytes, place, sizeof(bytes));
        if (const unsigned bits = BitsOf(test(bytes)); bits != 0) {
            return place + std::countr_zero(bits);
        }
    }
    const auto rest = static_cast<size_t>(end - place);
    bytes = SixteenBytes{};
    std::memcpy(&bytes, place, rest);
    const unsigned bits = BitsOf(test(bytes)) | 1U << rest;  // what lies beyond ends it
    return place + std::countr_zero(bits);
}

}  // namespace platform
