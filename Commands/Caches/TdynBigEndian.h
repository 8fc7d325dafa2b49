#pragma once
// Big-endian conversion for particle data files. The masks-and-shifts form is
// the one compilers turn into a single byte-swap instruction.

#include <bit>
#include <cstdint>
#include <cstring>

namespace TdynBigEndian {

constexpr std::uint64_t swap64(std::uint64_t u) {
    u = ((u & 0x00ff00ff00ff00ffull) << 8) | ((u >> 8) & 0x00ff00ff00ff00ffull);
    u = ((u & 0x0000ffff0000ffffull) << 16) | ((u >> 16) & 0x0000ffff0000ffffull);
    return (u << 32) | (u >> 32);
}
constexpr std::uint32_t swap32(std::uint32_t u) {
    u = ((u & 0x00ff00ffu) << 8) | ((u >> 8) & 0x00ff00ffu);
    return (u << 16) | (u >> 16);
}
constexpr bool kNativeIsBig = std::endian::native == std::endian::big;

// n 8-byte words between native and big-endian order, in place; a no-op on big-endian machines.
inline void swapWords64(void* data, std::size_t n) {
    if constexpr (kNativeIsBig) return;
    unsigned char* p = static_cast<unsigned char*>(data);
    for (std::size_t i = 0; i < n; ++i, p += 8) {
        std::uint64_t u;
        std::memcpy(&u, p, 8);
        u = swap64(u);
        std::memcpy(p, &u, 8);
    }
}
inline void swapWords32(void* data, std::size_t n) {
    if constexpr (kNativeIsBig) return;
    unsigned char* p = static_cast<unsigned char*>(data);
    for (std::size_t i = 0; i < n; ++i, p += 4) {
        std::uint32_t u;
        std::memcpy(&u, p, 4);
        u = swap32(u);
        std::memcpy(p, &u, 4);
    }
}
// n doubles into big-endian bytes at `out`, in one pass.
inline void storeDoubles(unsigned char* out, const double* values, std::size_t n) {
    if constexpr (kNativeIsBig) {
        std::memcpy(out, values, n * 8);
    } else {
        for (std::size_t i = 0; i < n; ++i, out += 8) {
            const std::uint64_t u = swap64(std::bit_cast<std::uint64_t>(values[i]));
            std::memcpy(out, &u, 8);
        }
    }
}

} // namespace TdynBigEndian
