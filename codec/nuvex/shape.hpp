// What the engine knows about a record before it sees one: facts that follow
// from its members' kinds, field numbers, widths and places alone. Each is
// worked out here once, a member at a time and then by one fold over the
// members; the encoder, the small-record path and the duplicator read them
// and recompute none.
#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <type_traits>

#include "nuvex/description.hpp"
#include "nuvex/varint.hpp"

namespace nuvex {

// The size of an encoding that has no bound (contents of any length).
inline constexpr size_t unbounded = SIZE_MAX;

template <class R, class F>
constexpr auto element_of()
{
    if constexpr (F::kind::repeated) {
        return std::type_identity<std::remove_cvref_t<decltype(*F::value(std::declval<const R &>()))>>{};
    } else {
        return std::type_identity<std::remove_cvref_t<decltype(F::value(std::declval<const R &>()))>>{};
    }
}

// The type a member holds, or one element of it when it repeats.
template <class R, class F>
using element_t = typename decltype(element_of<R, F>())::type;

// Numbers and booleans: the member holds its value.
constexpr bool is_scalar(element e)
{
    return e == element::varint32 || e == element::boolean || e == element::varint64;
}

constexpr size_t add_bounds(size_t a, size_t b) { return a == unbounded || b == unbounded ? unbounded : a + b; }

// A field of key and a length-delimited value of at most n bytes, at most.
constexpr size_t delimited_bound(unsigned key_size, size_t n)
{
    return n == unbounded ? unbounded : key_size + varint::size(n) + n;
}

// One member, or one element of it when it repeats.
struct member_shape {
    unsigned number;
    uint32_t key;
    unsigned key_size;
    bool repeated;
    bool scalar;
    size_t offset; // of the member in the record
    size_t width;  // bytes of one value in the record
    // The largest encoding, key included.
    size_t largest;
    // The largest encoding when every number in it is below 128: two bytes
    // a number, key and value, or key and one-byte length. Unbounded where
    // the small-record path does not serve: a key of two bytes, a 64-bit
    // number, a string or external record, a repeated number, a nested
    // record of 128 bytes or more.
    size_t largest_small;
    // Copied with the record's own bytes: no pointer, no external record.
    bool plain;
    // Presence flags of a record nested here by value, its own nested
    // records' included.
    unsigned nested_flags;
};

template <class R>
struct shape;

template <class R, class F>
constexpr member_shape shape_of()
{
    using K = typename F::kind;
    using E = element_t<R, F>;
    member_shape m{F::number, F::key, F::key_size, K::repeated, is_scalar(K::elem), F::template offset<R>(), sizeof(E),
                   unbounded, unbounded, false, 0};
    if constexpr (is_scalar(K::elem)) {
        m.largest = F::key_size + varint::widest<std::conditional_t<K::elem == element::varint64, uint64_t, uint32_t>>;
        m.largest_small = F::key_size == 1 && !K::repeated && K::elem != element::varint64 ? 2 : unbounded;
        m.plain = !K::repeated;
    } else if constexpr (K::elem == element::message) {
        m.largest = delimited_bound(F::key_size, shape<E>::largest);
        m.largest_small = F::key_size == 1 && shape<E>::largest_small < 128 ? 2 + shape<E>::largest_small : unbounded;
        m.plain = !K::repeated && shape<E>::plain;
        m.nested_flags = K::repeated ? 0 : shape<E>::flags_with_nested;
    }
    return m;
}

template <class R>
struct shape {
    static constexpr auto members = []<class... F>(field_list<F...>) {
        return std::array<member_shape, sizeof...(F)>{shape_of<R, F>()...};
    }(typename description<R>::fields{});

    // Folds one fact over the members.
    template <class T, class Fn>
    static constexpr T fold(T start, Fn fn)
    {
        for (const member_shape &m : members) {
            start = fn(start, m);
        }
        return start;
    }

    // The largest encoding of any record of this type, unbounded when a
    // member repeats or has contents of any length.
    static constexpr size_t largest =
        fold(size_t{0}, [](size_t t, const member_shape &m) { return add_bounds(t, m.repeated ? unbounded : m.largest); });

    // The largest encoding apart from repeated members, and whether one
    // exists for every count: no member, element or not, without a bound.
    static constexpr size_t largest_fixed =
        fold(size_t{0}, [](size_t t, const member_shape &m) { return m.repeated ? t : add_bounds(t, m.largest); });
    static constexpr bool bounded_by_counts =
        fold(true, [](bool b, const member_shape &m) { return b && m.largest != unbounded; });

    // Made of small-number members alone (see largest_small), so that it
    // codes as two bytes a member when its numbers are below 128; then its
    // largest encoding, repeated members apart.
    static constexpr bool small =
        fold(true, [](bool b, const member_shape &m) { return b && m.largest_small != unbounded; });
    static constexpr size_t largest_small_fixed =
        fold(size_t{0}, [](size_t t, const member_shape &m) { return m.repeated ? t : add_bounds(t, m.largest_small); });
    static constexpr bool repeats = fold(false, [](bool b, const member_shape &m) { return b || m.repeated; });
    static constexpr size_t largest_small = small && !repeats ? largest_small_fixed : unbounded;

    // Copied as one block of the record's own bytes.
    static constexpr bool plain = fold(true, [](bool b, const member_shape &m) { return b && m.plain; });

    // The members that repeat, as presence bits.
    static constexpr uint64_t repeated = fold(uint64_t{0}, [](uint64_t mask, const member_shape &m) {
        return m.repeated ? mask | uint64_t{1} << (m.number - 1) : mask;
    });

    // How many presence flags the record and the records nested in it by
    // value carry together.
    static constexpr unsigned flags_with_nested =
        fold(unsigned{members.size()}, [](unsigned n, const member_shape &m) { return n + m.nested_flags; });
};

// The largest encoding of r given the counts of its repeated members: the
// fixed part plus each count times its element's largest (Bound picks the
// regime: any numbers, or numbers below 128). Summed in 64 bits, so that no
// count wraps it below a buffer's size where size_t has 32.
template <size_t member_shape::*Bound, class R>
[[gnu::always_inline]] inline uint64_t largest_for_counts(const R &r)
{
    constexpr size_t fixed = Bound == &member_shape::largest ? shape<R>::largest_fixed : shape<R>::largest_small_fixed;
    return [&]<class... F>(field_list<F...>) {
        return (uint64_t{fixed} + ... + [&] {
            if constexpr (F::kind::repeated) {
                return uint64_t{F::count(r)} * (shape<R>::members[F::number - 1].*Bound);
            } else {
                return uint64_t{0};
            }
        }());
    }(typename description<R>::fields{});
}

} // namespace nuvex
