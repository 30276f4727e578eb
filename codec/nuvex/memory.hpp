// How the engine touches memory other than through a member's name: byte
// copies, stores of wire bytes, two neighbouring 32-bit numbers loaded as one
// word, and a record's presence flags read as one word. Byte order and the
// allocation of bit-fields differ between targets, and this is the one place
// that knows: everything else sees wire bytes in wire order, pairs as (first,
// second) and flags as bit i for member i + 1.
#pragma once

#include <bit>
#include <cstddef>
#include <cstdint>
#include <cstring>

#include "nuvex/description.hpp"

namespace nuvex::memory {

inline constexpr bool little_endian = std::endian::native == std::endian::little;
static_assert(little_endian || std::endian::native == std::endian::big, "mixed-endian targets are not supported");

template <class T>
[[gnu::always_inline]] inline T load(const void *p)
{
    T v;
    std::memcpy(&v, p, sizeof v);
    return v;
}

// Eight bytes as a number whose lowest byte is the first in memory.
[[gnu::always_inline]] inline uint64_t load_first_low(const void *p)
{
    const uint64_t v = load<uint64_t>(p);
    return little_endian ? v : __builtin_bswap64(v);
}

// The 32-bit number at p and the one after it, the first in the low half.
[[gnu::always_inline]] inline uint64_t load_pair(const void *p)
{
    const uint64_t v = load<uint64_t>(p);
    return little_endian ? v : std::rotr(v, 32);
}

// Stores v's bytes lowest first, the order in which the wire reads them.
template <class T>
[[gnu::always_inline]] inline void store_wire(uint8_t *p, T v)
{
    if constexpr (!little_endian && sizeof(T) == 2) {
        v = __builtin_bswap16(v);
    } else if constexpr (!little_endian && sizeof(T) == 4) {
        v = __builtin_bswap32(v);
    }
    std::memcpy(p, &v, sizeof v);
}

// Copies n bytes; short strings (names, versions) are copied inline with
// overlapping fixed-size moves instead of a call into the C library.
inline void copy_bytes(uint8_t *d, const void *source, size_t n)
{
    const auto *s = static_cast<const uint8_t *>(source);
    if (n > 32) {
        std::memcpy(d, s, n);
    } else if (n >= 16) {
        std::memcpy(d, s, 16);
        std::memcpy(d + n - 16, s + n - 16, 16);
    } else if (n >= 8) {
        std::memcpy(d, s, 8);
        std::memcpy(d + n - 8, s + n - 8, 8);
    } else if (n >= 4) {
        std::memcpy(d, s, 4);
        std::memcpy(d + n - 4, s + n - 4, 4);
    } else if (n != 0) {
        d[0] = s[0];
        d[n / 2] = s[n / 2];
        d[n - 1] = s[n - 1];
    }
}

// Where the presence flags sit: 1-bit fields right after the last member,
// one per member in member order. Little-endian targets allocate bit-fields
// from the lowest bit of the first byte, so the flags read as one
// little-endian word are the presence word itself; big-endian targets
// allocate them from the highest bit, and a record laid out otherwise is
// read flag by flag.
template <class R>
constexpr size_t flags_offset()
{
    return []<class... F>(field_list<F...>) {
        size_t end = 0;
        ((end = F::template end<R>()), ...);
        return end;
    }(typename description<R>::fields{});
}

template <class R>
constexpr bool flags_follow_members()
{
    constexpr size_t n = description<R>::fields::size;
    constexpr size_t used = flags_offset<R>() + (n + 7) / 8;
    const bool in_order = []<class... F>(field_list<F...>) {
        size_t last = 0;
        bool ok = true;
        ((ok = ok && F::template offset<R>() >= last, last = F::template end<R>()), ...);
        return ok;
    }(typename description<R>::fields{});
    return in_order && (used + alignof(R) - 1) / alignof(R) * alignof(R) == sizeof(R);
}

// Every presence flag of a record as one word, bit i for member i + 1.
template <class R>
[[gnu::always_inline]] inline uint64_t presence(const R &r)
{
    constexpr size_t n = description<R>::fields::size;
    static_assert(n <= 64, "a record's flags are handled as one 64-bit word");
    if constexpr (little_endian && flags_follow_members<R>()) {
        constexpr size_t off = flags_offset<R>();
        constexpr size_t avail = sizeof(R) - off < 8 ? sizeof(R) - off : 8;
        uint64_t word = 0;
        std::memcpy(&word, reinterpret_cast<const unsigned char *>(&r) + off, avail);
        return n == 64 ? word : word & ((uint64_t{1} << n) - 1);
    } else {
        return []<class... F>(const R &rec, field_list<F...>) {
            return (uint64_t{0} | ... | (uint64_t{F::present(rec)} << (F::number - 1)));
        }(r, typename description<R>::fields{});
    }
}

} // namespace nuvex::memory
