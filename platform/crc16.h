#pragma once

// CRC-16 with polynomial 0x1021, start 0, most significant bit first, no final inversion: the
// checksum that job settings and stored device records carry of the printer description's PPD.
// Over a whole file at once, by carry-less multiplication where the processor has it.

#include <array>
#include <cstddef>
#include <cstdint>

#if defined(__x86_64__)
#include <immintrin.h>
#endif

namespace platform {

namespace crc16 {

constexpr uint16_t kPolynomial = 0x1021;

constexpr uint16_t ShiftByte(uint16_t remainder) {
    for (int bit = 0; bit < 8; ++bit) {
        remainder =
            static_cast<uint16_t>((remainder << 1) ^ ((remainder & 0x8000) != 0 ? kPolynomial : 0));
    }
    return remainder;
}

// kTables[k][b]: the checksum of byte b followed by k zero bytes.
constexpr auto kTables = [] {
    std::array<std::array<uint16_t, 256>, 8> tables{};
    for (unsigned byte = 0; byte < 256; ++byte) {
        uint16_t remainder = ShiftByte(static_cast<uint16_t>(byte << 8));
        for (auto& table : tables) {
            table[byte] = remainder;
            remainder = ShiftByte(remainder);
        }
    }
    return tables;
}();

// Eight bytes a step.
inline uint16_t BySlicing(uint16_t crc, const uint8_t* bytes, size_t count) {
    for (; count >= 8; count -= 8, bytes += 8) {
        crc = kTables[7][bytes[0] ^ (crc >> 8)] ^ kTables[6][bytes[1] ^ (crc & 0xFF)] ^
              kTables[5][bytes[2]] ^ kTables[4][bytes[3]] ^ kTables[3][bytes[4]] ^
              kTables[2][bytes[5]] ^ kTables[1][bytes[6]] ^ kTables[0][bytes[7]];
    }
    for (; count != 0; --count, ++bytes) {
        crc = static_cast<uint16_t>((crc << 8) ^ kTables[0][(crc >> 8) ^ *bytes]);
    }
    return crc;
}

#if defined(__x86_64__)

// x to the power of `bits` modulo the polynomial, bits a multiple of 8 and at least 16.
constexpr uint64_t PowerOfX(unsigned bits) {
    uint16_t remainder = kPolynomial;  // x^16
    for (unsigned done = 16; done < bits; done += 8) {
        remainder = ShiftByte(remainder);
    }
    return remainder;
}

// One 16-byte piece of the file as a polynomial, its first byte highest.
[[gnu::target("pclmul,ssse3")]] inline __m128i LoadPiece(const uint8_t* bytes) {
    const __m128i reverse = _mm_set_epi8(0, 1, 2, 3, 4, 5, 6, 7, 8, 9, 10, 11, 12, 13, 14, 15);
    return _mm_shuffle_epi8(_mm_loadu_si128(reinterpret_cast<const __m128i*>(bytes)), reverse);
}

// A piece moved up by the distance that `powers` is for, plus another one.
[[gnu::target("pclmul,ssse3")]] inline __m128i Fold(__m128i piece, __m128i powers, __m128i next) {
    return _mm_xor_si128(_mm_xor_si128(_mm_clmulepi64_si128(piece, powers, 0x11),
                                       _mm_clmulepi64_si128(piece, powers, 0x00)),
                         next);
}

// At least 64 bytes, from a checksum of 0. Folds the file into 16 bytes with the same remainder,
// four pieces abreast so that the multiplications overlap.
[[gnu::target("pclmul,ssse3")]] inline uint16_t ByMultiplication(const uint8_t* bytes,
                                                                 size_t count) {
    const __m128i by64 = _mm_set_epi64x(static_cast<int64_t>(PowerOfX(512 + 64)),
                                        static_cast<int64_t>(PowerOfX(512)));
    const __m128i by16 = _mm_set_epi64x(static_cast<int64_t>(PowerOfX(128 + 64)),
                                        static_cast<int64_t>(PowerOfX(128)));
    __m128i lanes[4];
    for (size_t lane = 0; lane < 4; ++lane) {
        lanes[lane] = LoadPiece(bytes + lane * 16);
    }
    bytes += 64;
    for (count -= 64; count >= 64; count -= 64, bytes += 64) {
        for (size_t lane = 0; lane < 4; ++lane) {
            lanes[lane] = Fold(lanes[lane], by64, LoadPiece(bytes + lane * 16));
        }
    }
    __m128i folded = lanes[0];
    for (int lane = 1; lane < 4; ++lane) {
        folded = Fold(folded, by16, lanes[lane]);
    }
    for (; count >= 16; count -= 16, bytes += 16) {
        folded = Fold(folded, by16, LoadPiece(bytes));
    }
    uint8_t rest[16];
    _mm_storeu_si128(reinterpret_cast<__m128i*>(rest), folded);
    folded = LoadPiece(rest);
    _mm_storeu_si128(reinterpret_cast<__m128i*>(rest), folded);
    return BySlicing(BySlicing(0, rest, sizeof(rest)), bytes, count);
}

// Read from what the compiler's runtime keeps, so there is nothing to remember here.
inline bool HasMultiplication() {
    return __builtin_cpu_supports("pclmul") && __builtin_cpu_supports("ssse3");
}

#else

inline bool HasMultiplication() {
    return false;
}
inline uint16_t ByMultiplication(const uint8_t* bytes, size_t count) {
    return BySlicing(0, bytes, count);
}

#endif

}  // namespace crc16

inline uint16_t Crc16(const void* data, size_t count) {
    const auto* bytes = static_cast<const uint8_t*>(data);
    return count >= 64 && crc16::HasMultiplication() ? crc16::ByMultiplication(bytes, count)
                                                     : crc16::BySlicing(0, bytes, count);
}

}  // namespace platform
