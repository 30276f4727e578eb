// The encoder's fast path for records of small numbers.
//
// When it applies: a record whose members are all 32-bit numbers or
// booleans with one-byte keys, and records of the same sort nested in it
// once or repeated (shape<R>::small), coded without a fragment list, when
// every number in it is below 128, flagged or not.
//
// What it buys: every member then takes exactly two bytes, key and value or
// key and a one-byte length. Measuring is a count of presence bits (the
// flags of a record and of the records nested in it once, read as words and
// counted together), after one OR over all its numbers, two neighbouring
// numbers a load, to tell that they are small. Writing is one two-byte
// store a member, or one four-byte store for two neighbouring 32-bit
// members, with no varint loop and no room check. scripts/instructions.sh,
// a record of five numbers and one nested record of three (itself holding a
// record of twelve): measuring it costs 81 instructions against 177 on the
// general path, writing it into a buffer of its length 170 against 514, into
// a larger one 157 against 253.
//
// What falls back to the general encoder: a number of 128 or more (found by
// the OR before measuring, or after writing, which the general encoder then
// writes over) and a fragment list. A record with a 64-bit member never
// comes here: such members are error codes beside time stamps, which are
// never small, and trying first cost a reply 42 % more instructions to
// write (176 against 124) and 53 % more to measure (81 against 53).
#pragma once

#include <array>
#include <cstddef>
#include <cstdint>

#include "nuvex.h"
#include "nuvex/memory.hpp"
#include "nuvex/shape.hpp"

namespace nuvex::small_records {

// The loads that cover every number of a record and of the records nested
// in it once, in place order; two neighbouring 32-bit numbers are one load.
struct load {
    size_t at;
    unsigned width; // 1 (a boolean), 4, or 0 for a pair of 32-bit numbers
};

template <class R>
constexpr void number_places(size_t base, load *out, size_t &n)
{
    for (const member_shape &m : shape<R>::members) {
        if (m.scalar) {
            const unsigned w = static_cast<unsigned>(m.width);
            if (out != nullptr) {
                out[n] = load{base + m.offset, w};
            }
            ++n;
        }
    }
    [&]<class... F>(field_list<F...>) {
        (
            [&] {
                if constexpr (!F::kind::repeated && F::kind::elem == element::message) {
                    number_places<element_t<R, F>>(base + F::template offset<R>(), out, n);
                }
            }(),
            ...);
    }(typename description<R>::fields{});
}

template <class R>
constexpr size_t number_count()
{
    size_t n = 0;
    number_places<R>(0, nullptr, n);
    return n;
}

template <class R>
constexpr auto plan_loads()
{
    std::array<load, number_count<R>()> places{};
    size_t n = 0;
    number_places<R>(0, places.data(), n);
    std::array<load, number_count<R>()> loads{};
    size_t count = 0;
    for (size_t i = 0; i < places.size(); ++count) {
        const bool pair = places[i].width == 4 && i + 1 < places.size() && places[i + 1].width == 4 &&
                          places[i + 1].at == places[i].at + 4;
        loads[count] = load{places[i].at, pair ? 0u : places[i].width};
        i += pair ? 2 : 1;
    }
    return std::pair{loads, count};
}

template <class R>
inline constexpr auto loads_of = plan_loads<R>();

// Every number of r ORed together, in a word whose two halves are below 128
// exactly when all of them are.
template <class R>
[[gnu::always_inline]] inline uint64_t gather(const R &r)
{
    constexpr auto plan = loads_of<R>;
    const auto *base = reinterpret_cast<const unsigned char *>(&r);
    return [&]<size_t... I>(std::index_sequence<I...>) {
        return (uint64_t{0} | ... | [&] {
            constexpr load l = plan.first[I];
            if constexpr (l.width == 0) {
                return memory::load<uint64_t>(base + l.at); // both halves are tested alike
            } else if constexpr (l.width == 4) {
                return uint64_t{memory::load<uint32_t>(base + l.at)};
            } else {
                return uint64_t{base[l.at]};
            }
        }());
    }(std::make_index_sequence<plan.second>{});
}

[[gnu::always_inline]] inline bool below_128(uint64_t gathered)
{
    return (gathered & ~uint64_t{0x0000007F0000007F}) == 0;
}

// Bits set among the low Bits of a word. Baseline x86-64 has no population
// count instruction, and there GCC turns std::popcount into a call to
// libgcc's __popcountdi2: with a table of the bytes' counts the record
// above measures in 76 instructions, against 126 with std::popcount.
inline constexpr auto bits_in_byte = [] {
    std::array<uint8_t, 256> n{};
    for (unsigned i = 1; i < 256; ++i) {
        n[i] = static_cast<uint8_t>((i & 1) + n[i / 2]);
    }
    return n;
}();

template <unsigned Bits>
[[gnu::always_inline]] inline size_t count_bits(uint64_t word)
{
    size_t n = 0;
    for (unsigned i = 0; i < Bits; i += 8) {
        n += bits_in_byte[(word >> i) & 0xFF];
    }
    return n;
}

// The presence bits of r and, above them, those of each nested record that
// r holds (present), repeated members left out: each bit set is a member of
// two bytes.
template <class R>
[[gnu::always_inline]] inline uint64_t flags_with_nested(const R &r, uint64_t have)
{
    static_assert(shape<R>::flags_with_nested <= 64, "the flags of a record and of its nested records fit one word");
    uint64_t word = have & ~shape<R>::repeated;
    unsigned shift = description<R>::fields::size;
    [&]<class... F>(field_list<F...>) {
        (
            [&] {
                if constexpr (!F::kind::repeated && F::kind::elem == element::message) {
                    using N = element_t<R, F>;
                    const uint64_t inner = flags_with_nested(F::value(r), memory::presence(F::value(r)));
                    word |= ((have >> (F::number - 1) & 1) ? inner : 0) << shift;
                    shift += shape<N>::flags_with_nested;
                }
            }(),
            ...);
    }(typename description<R>::fields{});
    return word;
}

template <class R>
[[gnu::always_inline]] inline size_t measure(const R &r, uint64_t &gathered);

// The elements of r's repeated members: each two bytes and its own size.
template <class R>
[[gnu::always_inline]] inline size_t repeated_size(const R &r, uint64_t have, uint64_t &gathered)
{
    return [&]<class... F>(field_list<F...>) {
        return (size_t{0} + ... + [&] {
            if constexpr (F::kind::repeated) {
                const auto *array = F::value(r);
                if ((have >> (F::number - 1) & 1) == 0 || array == nullptr) {
                    return size_t{0};
                }
                const unsigned count = F::count(r);
                size_t total = 2 * size_t{count};
                for (unsigned i = 0; i < count; ++i) {
                    total += measure(array[i], gathered);
                }
                return total;
            } else {
                return size_t{0};
            }
        }());
    }(typename description<R>::fields{});
}

// The size of r as if every number in it were below 128; its numbers are
// ORed into gathered, so that the caller can tell whether they were.
template <class R>
[[gnu::always_inline]] inline size_t measure(const R &r, uint64_t &gathered)
{
    gathered |= gather(r);
    const uint64_t have = memory::presence(r);
    return 2 * count_bits<shape<R>::flags_with_nested>(flags_with_nested(r, have)) + repeated_size(r, have, gathered);
}

// The room that writing r takes at most: its size were every member present.
template <class R>
[[gnu::always_inline]] inline uint64_t bound(const R &r)
{
    return largest_for_counts<&member_shape::largest_small>(r);
}

// Writes r at p as if every number in it were below 128, ORing the numbers
// written into all; returns the end. Needs room for bound(r) bytes.
template <class R>
[[gnu::always_inline]] inline uint8_t *write(const R &r, uint8_t *p, uint32_t &all);

template <class F, class N>
[[gnu::always_inline]] inline uint8_t *write_nested(const N &nested, uint8_t *p, uint32_t &all)
{
    uint8_t *end = write(nested, p + 2, all);
    memory::store_wire(p, static_cast<uint16_t>(F::key | (end - p - 2) << 8));
    return end;
}

template <class F, class R>
[[gnu::always_inline]] inline uint8_t *write_member(const R &r, uint64_t have, uint8_t *p, uint32_t &all)
{
    using K = typename F::kind;
    if ((have >> (F::number - 1) & 1) == 0) {
        return p;
    }
    if constexpr (K::elem == element::message && !K::repeated) {
        return write_nested<F>(F::value(r), p, all);
    } else if constexpr (K::elem == element::message) {
        const auto *array = F::value(r);
        const unsigned count = F::count(r);
        if (array != nullptr) {
            for (unsigned i = 0; i < count; ++i) {
                p = write_nested<F>(array[i], p, all);
            }
        }
        return p;
    } else {
        const uint32_t v = static_cast<uint32_t>(F::value(r));
        all |= v;
        memory::store_wire(p, static_cast<uint16_t>(F::key | (v & 0xFFu) << 8));
        return p + 2;
    }
}

// Runs of 32-bit numbers stored one after another: where each starts, and
// how long it is (1 for a member outside any run, 0 inside one after its
// start). A run whose members are all present is written two at a time.
template <class R>
inline constexpr auto runs = [] {
    constexpr auto &m = shape<R>::members;
    std::array<unsigned, m.size()> length{};
    for (size_t i = 0; i < m.size();) {
        size_t j = i + 1;
        const auto word = [&](size_t k) { return m[k].scalar && !m[k].repeated && m[k].width == 4; };
        while (word(i) && j < m.size() && word(j) && m[j].offset == m[j - 1].offset + 4) {
            ++j;
        }
        length[i] = static_cast<unsigned>(j - i);
        i = j;
    }
    return length;
}();

// Two members a step: one 64-bit load gives both numbers, and a number
// below 128 is its own low byte, so key, value, key, value are one 32-bit
// store. A larger number leaves stray bytes, but also a bit above the
// seventh in all, and the record is then written again.
template <class R, size_t First, unsigned Length>
[[gnu::always_inline]] inline uint8_t *write_run(const R &r, uint8_t *p, uint32_t &all)
{
    constexpr auto &m = shape<R>::members;
    const auto *base = reinterpret_cast<const unsigned char *>(&r);
    for (size_t i = First; i + 1 < First + Length; i += 2) {
        const uint64_t two = memory::load_pair(base + m[i].offset);
        all |= static_cast<uint32_t>(two | two >> 32);
        const uint32_t keys = m[i].key | m[i + 1].key << 16;
        memory::store_wire(p, static_cast<uint32_t>(keys | (two & 0xFFu) << 8 | (two >> 32 & 0xFFu) << 24));
        p += 4;
    }
    if constexpr (Length % 2 != 0) {
        constexpr size_t last = First + Length - 1;
        const uint32_t v = memory::load<uint32_t>(base + m[last].offset);
        all |= v;
        memory::store_wire(p, static_cast<uint16_t>(m[last].key | (v & 0xFFu) << 8));
        p += 2;
    }
    return p;
}

// Member I, with the rest of its run when it starts one.
template <size_t I, class R, class... F>
[[gnu::always_inline]] inline uint8_t *write_from(const R &r, uint64_t have, uint8_t *p, uint32_t &all,
                                                  field_list<F...>)
{
    constexpr unsigned length = runs<R>[I];
    if constexpr (length >= 2) {
        constexpr uint64_t mask = ((uint64_t{1} << length) - 1) << I;
        if ((have & mask) == mask) {
            return write_run<R, I, length>(r, p, all);
        }
    }
    // The member alone, or each of its run's when not all are present.
    ((p = F::number - 1 >= I && F::number - 1 < I + length ? write_member<F>(r, have, p, all) : p), ...);
    return p;
}

template <class R, size_t... I>
[[gnu::always_inline]] inline uint8_t *write_members(const R &r, uint64_t have, uint8_t *p, uint32_t &all,
                                                     std::index_sequence<I...>)
{
    ((p = write_from<I>(r, have, p, all, typename description<R>::fields{})), ...);
    return p;
}
// A wide record of 32-bit numbers alone is walked by its set presence bits,
// with each member's place and key from a table: member by member, every
// absent one would still cost a test and a branch.
template <class R>
inline constexpr bool walk_by_flags = description<R>::fields::size > 8 && [] {
    for (const member_shape &m : shape<R>::members) {
        if (!m.scalar || m.repeated || m.width != 4) {
            return false;
        }
    }
    return true;
}();

template <class R>
inline constexpr auto walk_table = [] {
    constexpr auto &m = shape<R>::members;
    struct table {
        uint16_t at[m.size()];
        uint8_t key[m.size()];
    } t{};
    for (size_t i = 0; i < m.size(); ++i) {
        t.at[i] = static_cast<uint16_t>(m[i].offset);
        t.key[i] = static_cast<uint8_t>(m[i].key);
    }
    return t;
}();

template <class R>
[[gnu::always_inline]] inline uint8_t *write(const R &r, uint8_t *p, uint32_t &all)
{
    const uint64_t have = memory::presence(r);
    if constexpr (walk_by_flags<R>) {
        const auto *base = reinterpret_cast<const unsigned char *>(&r);
        for (uint64_t bits = have; bits != 0; bits &= bits - 1) {
            const unsigned i = static_cast<unsigned>(std::countr_zero(bits));
            const uint32_t v = memory::load<uint32_t>(base + walk_table<R>.at[i]);
            all |= v;
            memory::store_wire(p, static_cast<uint16_t>(walk_table<R>.key[i] | (v & 0xFFu) << 8));
            p += 2;
        }
        return p;
    } else {
        return write_members(r, have, p, all, std::make_index_sequence<description<R>::fields::size>{});
    }
}

// The path's two calls, the writing one out of line. Each hands a record it
// cannot take to Fallback, the general encoder, called as Fallback(r, dest,
// size, flags).
template <auto Fallback, class R>
[[gnu::always_inline]] inline size_t measure(const R &r, mivo_flags flags)
{
    uint64_t gathered = 0;
    const size_t n = measure(r, gathered);
    // Only measuring: the buffer's address is not needed.
    return below_128(gathered) ? n : Fallback(r, nullptr, 0, flags);
}

template <auto Fallback, class R>
[[gnu::noinline]] size_t write(const R &r, uint8_t *dest, size_t size, mivo_flags flags)
{
    uint32_t all = 0;
    const uint64_t most = bound(r);
    if (size >= most) {
        // Room for every member at two bytes: the write goes first, and if
        // a number turns out to need more the general pass writes over it.
        const uint8_t *end = write(r, dest, all);
        if (all < 128) {
            return static_cast<size_t>(end - dest);
        }
    } else if (most <= 256) {
        // Less room than that, typically the exact measured length: the
        // pairs go to the stack and are copied out once they are known to
        // fit, so the record is still walked only once.
        uint8_t scratch[256];
        const size_t n = static_cast<size_t>(write(r, scratch, all) - scratch);
        if (all < 128 && n <= size) {
            memory::copy_bytes(dest, scratch, n);
            return n;
        }
    } else {
        uint64_t gathered = 0;
        const size_t n = measure(r, gathered);
        if (below_128(gathered) && n <= size) {
            write(r, dest, all);
            return n;
        }
    }
    return Fallback(r, dest, size, flags);
}

} // namespace nuvex::small_records
