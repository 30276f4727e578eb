// Base-128 varints for the engine, one template per job for 32 and 64 bits.
// The runtime's named primitives (nuvex_encode.h, nuvex_decode.h) keep the
// byte-at-a-time forms; these are the forms the encoder and decoder use when
// they know how much room or input there is.
#pragma once

#include <bit>
#include <cstddef>
#include <cstdint>
#include <type_traits>

#include "nuvex/memory.hpp"

namespace nuvex::varint {

// Encoded size, from the index of the highest set bit (one bit-scan and a
// multiply-shift: index 0-6 gives 1, 7-13 gives 2, ... 63 gives 10).
constexpr size_t size(uint64_t v)
{
    const unsigned top = 63u ^ static_cast<unsigned>(__builtin_clzll(v | 1));
    return (top * 9 + 73) >> 6;
}

// The longest form a value of type T takes.
template <class T>
constexpr size_t widest = sizeof(T) == 8 ? 10 : 5;

// Unchecked store: the caller knows that size(v) bytes fit at p.
template <class T>
inline uint8_t *put(uint8_t *p, T v)
{
    static_assert(std::is_unsigned_v<T>);
    while (v > 0x7Fu) {
        *p++ = static_cast<uint8_t>(v | 0x80u);
        v >>= 7;
    }
    *p++ = static_cast<uint8_t>(v);
    return p;
}

// Bounded store: every byte lands only below dest_size, and the offset
// advances by the full size whatever fitted. Kept out of line: it only runs
// where a value meets the end of a short buffer.
template <class T>
[[gnu::noinline, gnu::cold]] size_t put_bounded(T v, size_t offset, uint8_t *dest, size_t dest_size)
{
    static_assert(std::is_unsigned_v<T>);
    while (v > 0x7Fu) {
        if (offset < dest_size) {
            dest[offset] = static_cast<uint8_t>(v | 0x80u);
        }
        v >>= 7;
        ++offset;
    }
    if (offset < dest_size) {
        dest[offset] = static_cast<uint8_t>(v);
    }
    return offset + 1;
}

// The bytes of a varint that carry bits of T (five for 32 bits, ten for 64),
// read without checks: returns the varint's end, or null, with those bits in
// value, when it goes on past them.
template <class T>
[[gnu::always_inline]] inline const uint8_t *get_kept(const uint8_t *p, T &value)
{
    value = 0;
    for (unsigned i = 0; i < widest<T>; ++i) {
        const uint8_t byte = p[i];
        value |= static_cast<T>(static_cast<T>(byte & 0x7Fu) << (7 * i));
        if ((byte & 0x80u) == 0) {
            return p + i + 1;
        }
    }
    return nullptr;
}

// Unchecked read of a varint whose end is already known to lie inside the
// input; the rest of a longer form than T needs is skipped.
template <class T>
inline const uint8_t *get(const uint8_t *p, T &out)
{
    static_assert(std::is_unsigned_v<T>);
    T value;
    if (const uint8_t *next = get_kept(p, value)) {
        out = value;
        return next;
    }
    p += widest<T>;
    while (*p++ & 0x80u) {
    }
    out = value;
    return p;
}

// Checked read: a varint of any length that ends before end, or null. With
// room for the longest usual form the bytes are read without a check each;
// past the kept bytes only the end is looked for, eight bytes at a time (the
// five further bytes of a sign-extended negative 32-bit value end in one
// word).
template <class T>
inline const uint8_t *get_checked(const uint8_t *p, const uint8_t *end, T &out)
{
    static_assert(std::is_unsigned_v<T>);
    T value = 0;
    if (end - p >= 10) {
        if (const uint8_t *next = get_kept(p, value)) {
            out = value;
            return next;
        }
        p += widest<T>;
        if (end - p >= 8) {
            const uint64_t last = ~memory::load_first_low(p) & 0x8080808080808080u;
            if (last != 0) {
                out = value;
                return p + __builtin_ctzll(last) / 8 + 1;
            }
        }
    } else {
        for (unsigned i = 0; i < widest<T>; ++i) {
            if (p == end) {
                return nullptr;
            }
            const uint8_t byte = *p++;
            value |= static_cast<T>(static_cast<T>(byte & 0x7Fu) << (7 * i));
            if ((byte & 0x80u) == 0) {
                out = value;
                return p;
            }
        }
    }
    do {
        if (p == end) {
            return nullptr;
        }
    } while (*p++ & 0x80u);
    out = value;
    return p;
}

} // namespace nuvex::varint
