// The encoder, written once for every record. One pass measures and writes:
// every byte goes through the bounded primitives, so nothing lands at or past
// dest_size while the offset keeps counting the full length.
//
// The same pass is instantiated twice. A call that only measures (no buffer,
// no fragment list) runs it with Counting set: every store and bounds check
// compiles away and each value adds its encoded size. A call that writes
// checks the room left once per member, and when the member's largest
// encoding fits it stores key and value without per-byte checks; only a
// member that meets the end of a short buffer goes byte by byte.
#pragma once

#include <array>
#include <bit>
#include <cstdint>
#include <cstring>
#include <type_traits>

#include "mivo_tesk_eid_def.h"
#include "nuvex/description.hpp"
#include "nuvex/varint.hpp"
#include "nuvex_encode.h"

namespace nuvex {

template <class F>
constexpr size_t key_size = F::number < 16 ? 1 : 2;

template <class F>
inline uint8_t *put_key(uint8_t *p)
{
    *p++ = F::key;
    if constexpr (F::number >= 16) {
        *p++ = 1; // the key's high group: numbers 16 to 31 give keys 128 to 255
    }
    return p;
}

// The largest encoding of a record whose members all have a bounded size
// (numbers and nested records of numbers), or SIZE_MAX for any other.
template <class R>
constexpr size_t largest_encoding();

template <class R, class F>
constexpr size_t largest_member()
{
    using K = typename F::kind;
    if constexpr (K::repeated) {
        return SIZE_MAX;
    } else if constexpr (K::elem == element::varint32 || K::elem == element::boolean) {
        return key_size<F> + 5;
    } else if constexpr (K::elem == element::varint64) {
        return key_size<F> + 10;
    } else if constexpr (K::elem == element::message) {
        using N = std::remove_cvref_t<decltype(F::value(std::declval<R &>()))>;
        constexpr size_t n = largest_encoding<N>();
        return n == SIZE_MAX ? SIZE_MAX : key_size<F> + 5 + n;
    } else {
        return SIZE_MAX;
    }
}

template <class R>
constexpr size_t largest_encoding()
{
    return []<class... F>(field_list<F...>) {
        size_t total = 0;
        for (size_t m : {size_t{0}, largest_member<R, F>()...}) {
            total = (m == SIZE_MAX || total == SIZE_MAX) ? SIZE_MAX : total + m;
        }
        return total;
    }(typename description<R>::fields{});
}

// The largest encoding of a record given its counts: repeated members of
// bounded elements add their count times the element's largest. SIZE_MAX
// when a member (string, byte string, identifier) has no bound.
template <class R>
constexpr bool bounded_but_repeats()
{
    return []<class... F>(field_list<F...>) {
        return ((F::kind::repeated ? F::kind::elem != element::string && F::kind::elem != element::bytes
                                   : largest_member<R, F>() != SIZE_MAX) &&
                ...);
    }(typename description<R>::fields{});
}

template <class R>
size_t largest_encoding_of(const R &r)
{
    return [&]<class... F>(field_list<F...>) {
        size_t total = 0;
        (
            [&] {
                using K = typename F::kind;
                if constexpr (!K::repeated) {
                    total += largest_member<R, F>();
                } else if constexpr (K::elem == element::message) {
                    using N = std::remove_cvref_t<decltype(*F::value(r))>;
                    total += size_t{F::count(r)} * (key_size<F> + 5 + largest_encoding<N>());
                } else {
                    total += size_t{F::count(r)} * (key_size<F> + (K::elem == element::varint64 ? 10 : 5));
                }
            }(),
            ...);
        return total;
    }(typename description<R>::fields{});
}

// Records of small numbers. A record whose members are all 32-bit numbers
// or booleans with one-byte keys, or nested records of the same sort (alone
// or repeated) below 128 bytes, codes every member as exactly two bytes when
// each number is below 128: key and value, or key and one-byte length. Its
// size is then arithmetic on the presence word, and writing it is one 16-bit
// store per number. The identifier is such a record.
template <class R>
constexpr bool small_record();

template <class R, class F>
constexpr auto nested_of()
{
    if constexpr (F::kind::repeated) {
        return std::type_identity<std::remove_cvref_t<decltype(*F::value(std::declval<const R &>()))>>{};
    } else {
        return std::type_identity<std::remove_cvref_t<decltype(F::value(std::declval<const R &>()))>>{};
    }
}

template <class R, class F>
using nested_t = typename decltype(nested_of<R, F>())::type;

template <class R, class F>
constexpr bool small_member()
{
    using K = typename F::kind;
    if constexpr (F::number >= 16) {
        return false;
    } else if constexpr (K::elem == element::varint32 || K::elem == element::boolean) {
        return !K::repeated;
    } else if constexpr (K::elem == element::message) {
        using N = nested_t<R, F>;
        return small_record<N>() && largest_encoding<N>() < 128;
    } else {
        return false;
    }
}

template <class R>
constexpr bool small_record()
{
    return []<class... F>(field_list<F...>) { return (small_member<R, F>() && ...); }(
        typename description<R>::fields{});
}

template <class F>
constexpr bool is_number = F::kind::elem != element::message;

template <class R>
constexpr uint64_t number_mask()
{
    return []<class... F>(field_list<F...>) {
        return ((is_number<F> ? uint64_t{1} << (F::number - 1) : 0) | ... | 0);
    }(typename description<R>::fields{});
}

template <class F, class R>
inline uint32_t number_of(const R &r)
{
    return static_cast<uint32_t>(F::value(r));
}

// Bits set in a byte, for the presence word: the machines the library is
// built for need not have a population-count instruction.
inline constexpr auto bits_in_byte = [] {
    struct table {
        uint8_t n[256];
    } t{};
    for (unsigned i = 0; i < 256; ++i) {
        t.n[i] = static_cast<uint8_t>((i & 1) + t.n[i / 2]);
    }
    return t;
}();

template <unsigned Bits>
[[gnu::always_inline]] inline size_t bit_count(uint64_t word)
{
    size_t n = 0;
    for (unsigned i = 0; i < Bits; i += 8) {
        n += bits_in_byte.n[(word >> i) & 0xFF];
    }
    return n;
}

template <class R>
constexpr unsigned last_number()
{
    return 64 - static_cast<unsigned>(std::countl_zero(number_mask<R>()));
}

// A wide record of numbers alone (the sub-type's twelve) is walked by its set
// presence bits, with the offset, width and key of each member from a table.
template <class R>
constexpr bool walked()
{
    return description<R>::fields::size > 8 && number_mask<R>() == (uint64_t{1} << last_number<R>()) - 1;
}

template <class R>
constexpr auto member_table = []<class... F>(field_list<F...>) {
    struct table {
        uint16_t at[sizeof...(F)];
        uint8_t width[sizeof...(F)];
        uint8_t key[sizeof...(F)];
    } t{{static_cast<uint16_t>(F::template offset<R>())...},
        {static_cast<uint8_t>(sizeof(F::value(std::declval<R &>())))...},
        {F::key...}};
    return t;
}(typename description<R>::fields{});

template <class R>
[[gnu::always_inline]] inline uint32_t number_at(const R &r, unsigned i)
{
    constexpr bool all_words = []<class... F>(field_list<F...>) {
        return ((sizeof(F::value(std::declval<R &>())) == 4) && ...);
    }(typename description<R>::fields{});
    const auto *base = reinterpret_cast<const unsigned char *>(&r);
    uint32_t v = 0;
    if (all_words || member_table<R>.width[i] == 4) {
        std::memcpy(&v, base + member_table<R>.at[i], 4);
    } else {
        v = base[member_table<R>.at[i]];
    }
    return v;
}

// How many members from the first are 32-bit numbers stored one after
// another from the record's start (the identifier's five). When all of them
// are present they are read and written two at a time.
template <class R>
constexpr unsigned leading_words()
{
    return []<class... F>(field_list<F...>) {
        unsigned n = 0;
        bool run = true;
        ((run = run && is_number<F> && !F::kind::repeated && sizeof(F::value(std::declval<R &>())) == 4 &&
                F::template offset<R>() == 4 * n,
          n += run ? 1 : 0),
         ...);
        return n;
    }(typename description<R>::fields{});
}

[[gnu::always_inline]] inline uint8_t *put_pair(uint8_t *p, uint8_t first, uint32_t second)
{
    const uint16_t pair = static_cast<uint16_t>(first | second << 8);
    std::memcpy(p, &pair, 2);
    return p + 2;
}

// The two passes over a small record, written as folds over its fields so
// that the whole identifier inlines into its entry point.
struct small {
    // The byte offsets of a record's 32-bit numbers, those of its nested
    // records (not repeated) included, in member order.
    template <class R>
    static constexpr size_t word_count()
    {
        return []<class... F>(field_list<F...>) { return (size_t{0} + ... + words_of<R, F>()); }(
            typename description<R>::fields{});
    }

    template <class R, class F>
    static constexpr size_t words_of()
    {
        if constexpr (F::kind::repeated) {
            return 0;
        } else if constexpr (is_number<F>) {
            return sizeof(F::value(std::declval<R &>())) == 4 ? 1 : 0;
        } else {
            return word_count<nested_t<R, F>>();
        }
    }

    template <class R>
    static constexpr auto word_offsets()
    {
        std::array<size_t, word_count<R>()> out{};
        size_t n = 0;
        [&]<class... F>(field_list<F...>) {
            (
                [&] {
                    if constexpr (F::kind::repeated) {
                    } else if constexpr (is_number<F>) {
                        if constexpr (sizeof(F::value(std::declval<R &>())) == 4) {
                            out[n++] = F::template offset<R>();
                        }
                    } else {
                        for (size_t o : word_offsets<nested_t<R, F>>()) {
                            out[n++] = F::template offset<R>() + o;
                        }
                    }
                }(),
                ...);
        }(typename description<R>::fields{});
        return out;
    }

    // The loads that cover them: a neighbour pair as one 8-byte load.
    struct load {
        size_t at;
        bool wide;
    };

    template <class R>
    static constexpr size_t load_count()
    {
        constexpr auto w = word_offsets<R>();
        size_t n = 0;
        for (size_t i = 0; i < w.size(); ++n) {
            i += (i + 1 < w.size() && w[i + 1] == w[i] + 4) ? 2 : 1;
        }
        return n;
    }

    template <class R>
    static constexpr auto loads()
    {
        constexpr auto w = word_offsets<R>();
        std::array<load, load_count<R>()> out{};
        size_t n = 0;
        for (size_t i = 0; i < w.size(); ++n) {
            const bool wide = i + 1 < w.size() && w[i + 1] == w[i] + 4;
            out[n] = load{w[i], wide};
            i += wide ? 2 : 1;
        }
        return out;
    }

    // All of a record's 32-bit numbers ORed together, two neighbours at a
    // time as one 64-bit word; below_128 looks at both halves.
    template <class R>
    [[gnu::always_inline]] static uint64_t gather(const R &r)
    {
        static constexpr auto plan = loads<R>();
        const auto *base = reinterpret_cast<const unsigned char *>(&r);
        return [&]<size_t... I>(std::index_sequence<I...>) {
            return (uint64_t{0} | ... | word_at<plan[I].wide>(base + plan[I].at));
        }(std::make_index_sequence<plan.size()>{});
    }

    [[gnu::always_inline]] static bool below_128(uint64_t words)
    {
        return (words & ~uint64_t{0x0000007F0000007F}) == 0;
    }

    template <bool Wide>
    [[gnu::always_inline]] static uint64_t word_at(const unsigned char *p)
    {
        if constexpr (Wide) {
            uint64_t v;
            std::memcpy(&v, p, 8);
            return v;
        } else {
            uint32_t v;
            std::memcpy(&v, p, 4);
            return v;
        }
    }

    // The size of a small record; all gathers its numbers, so that the
    // caller can tell whether each was below 128. Every 32-bit number is
    // gathered, present or not (a flagless member holding a large value only
    // sends the record down the general path), by the outermost record that
    // is not an array element.
    template <class R, bool Gather = true>
    [[gnu::always_inline]] static size_t size(const R &r, uint64_t &all)
    {
        if constexpr (Gather) {
            all |= gather(r);
        }
        const uint64_t have = presence(r);
        return sizes(r, have, all, typename description<R>::fields{});
    }

    // A nested record of numbers alone (the sub-type) is counted with its
    // parent: its flags, when it is present, join the parent's above the
    // parent's own, so one count of bits covers both.
    template <class R, class F>
    static constexpr bool joined()
    {
        if constexpr (is_number<F> || F::kind::repeated) {
            return false;
        } else {
            using N = nested_t<R, F>;
            return number_mask<N>() == (uint64_t{1} << description<N>::fields::size) - 1;
        }
    }

    template <class R, class... F>
    static constexpr unsigned joined_bits(field_list<F...>)
    {
        return (description<R>::fields::size + ... +
                [] {
                    if constexpr (joined<R, F>()) {
                        return description<nested_t<R, F>>::fields::size;
                    } else {
                        return 0u;
                    }
                }());
    }

    template <class R, class... F>
    [[gnu::always_inline]] static size_t sizes(const R &r, uint64_t have, uint64_t &all, field_list<F...> list)
    {
        static_assert(joined_bits<R>(list) <= 64);
        uint64_t word = have & ((number_mask<R>() | ... | (joined<R, F>() ? uint64_t{1} << (F::number - 1) : 0)));
        unsigned shift = description<R>::fields::size;
        size_t rest = 0;
        (
            [&] {
                if constexpr (joined<R, F>()) {
                    const uint64_t inner = presence(F::value(r));
                    word |= ((have >> (F::number - 1) & 1) ? inner : 0) << shift;
                    shift += description<nested_t<R, F>>::fields::size;
                } else {
                    rest += size_of<F>(r, have, all);
                }
            }(),
            ...);
        return 2 * bit_count<joined_bits<R>(list)>(word) + rest;
    }

    template <class F, class R>
    [[gnu::always_inline]] static size_t size_of(const R &r, uint64_t have, uint64_t &all)
    {
        if constexpr (is_number<F>) {
            if constexpr (sizeof(F::value(r)) != 4) {
                all |= number_of<F>(r);
            }
            return 0;
        } else if constexpr (!F::kind::repeated) {
            return (have >> (F::number - 1) & 1) ? 2 + size<nested_t<R, F>, false>(F::value(r), all) : 0;
        } else {
            const auto *array = F::value(r);
            if ((have >> (F::number - 1) & 1) == 0 || array == nullptr) {
                return 0;
            }
            const unsigned count = F::count(r);
            size_t total = 2 * size_t{count};
            for (unsigned i = 0; i < count; ++i) {
                total += size(array[i], all);
            }
            return total;
        }
    }

    // The largest size of a small record whose numbers are all below 128:
    // two bytes a member, nested records at their largest.
    template <class R>
    static constexpr size_t fixed_bound()
    {
        return []<class... F>(field_list<F...>) {
            return (size_t{0} + ... + member_bound<R, F>());
        }(typename description<R>::fields{});
    }

    template <class R, class F>
    static constexpr size_t member_bound()
    {
        if constexpr (is_number<F>) {
            return 2;
        } else if constexpr (F::kind::repeated) {
            return 0;
        } else {
            return 2 + fixed_bound<nested_t<R, F>>();
        }
    }

    template <class R>
    static size_t bound(const R &r)
    {
        return fixed_bound<R>() + [&]<class... F>(field_list<F...>) {
            return (size_t{0} + ... + repeated_bound<F>(r));
        }(typename description<R>::fields{});
    }

    template <class F, class R>
    static size_t repeated_bound(const R &r)
    {
        if constexpr (F::kind::repeated) {
            return size_t{F::count(r)} * (2 + fixed_bound<nested_t<R, F>>());
        } else {
            return 0;
        }
    }

    // Writes a small record as if every number in it were below 128,
    // gathering the numbers written into all. Returns the end.
    template <class R>
    [[gnu::always_inline]] static uint8_t *put(const R &r, uint8_t *p, uint32_t &all)
    {
        const uint64_t have = presence(r);
        if constexpr (walked<R>()) {
            for (uint64_t bits = have; bits != 0; bits &= bits - 1) {
                const unsigned i = static_cast<unsigned>(std::countr_zero(bits));
                const uint32_t v = number_at(r, i);
                all |= v;
                p = put_pair(p, member_table<R>.key[i], v);
            }
        } else {
            constexpr unsigned run = leading_words<R>();
            constexpr uint64_t run_mask = (uint64_t{1} << run) - 1;
            if (run >= 2 && (have & run_mask) == run_mask) {
                p = put_run<R, run>(r, p, all);
            } else {
                p = put_fields<0, run>(r, have, p, all, typename description<R>::fields{});
            }
            p = put_fields<run, 64>(r, have, p, all, typename description<R>::fields{});
        }
        return p;
    }

    // Two members a step: one 64-bit load gives both numbers, and a number
    // below 128 is its own low byte, so key, value, key, value are one
    // 32-bit store. A larger number leaves stray bytes, but also a bit
    // above the seventh in all, and the record is then written again.
    template <class R, unsigned N>
    [[gnu::always_inline]] static uint8_t *put_run(const R &r, uint8_t *p, uint32_t &all)
    {
        const auto *base = reinterpret_cast<const unsigned char *>(&r);
        for (unsigned i = 0; i + 1 < N; i += 2) {
            uint64_t two;
            std::memcpy(&two, base + 4 * i, 8);
            all |= static_cast<uint32_t>(two | two >> 32);
            const uint32_t four = static_cast<uint32_t>(member_table<R>.key[i] | (two << 8 & 0xFF00u) |
                                                        uint32_t{member_table<R>.key[i + 1]} << 16 |
                                                        (two >> 8 & 0xFF000000u));
            std::memcpy(p, &four, 4);
            p += 4;
        }
        if constexpr (N % 2 != 0) {
            uint32_t v;
            std::memcpy(&v, base + 4 * (N - 1), 4);
            all |= v;
            p = put_pair(p, member_table<R>.key[N - 1], v);
        }
        return p;
    }

    template <unsigned From, unsigned To, class R, class... F>
    [[gnu::always_inline]] static uint8_t *put_fields(const R &r, uint64_t have, uint8_t *p, uint32_t &all,
                                                       field_list<F...>)
    {
        ((p = F::number > From && F::number <= To ? put_one<F>(r, have, p, all) : p), ...);
        return p;
    }

    template <class F, class R>
    [[gnu::always_inline]] static uint8_t *put_one(const R &r, uint64_t have, uint8_t *p, uint32_t &all)
    {
        if ((have >> (F::number - 1) & 1) == 0) {
            return p;
        }
        if constexpr (is_number<F>) {
            const uint32_t v = number_of<F>(r);
            all |= v;
            return put_pair(p, F::key, v);
        } else if constexpr (!F::kind::repeated) {
            uint8_t *end = put(F::value(r), p + 2, all);
            put_pair(p, F::key, static_cast<uint32_t>(end - p - 2));
            return end;
        } else {
            const auto *array = F::value(r);
            if (array == nullptr) {
                return p;
            }
            const unsigned count = F::count(r);
            for (unsigned i = 0; i < count; ++i) {
                uint8_t *end = put(array[i], p + 2, all);
                put_pair(p, F::key, static_cast<uint32_t>(end - p - 2));
                p = end;
            }
            return p;
        }
    }
};

// Counting: only measure. Roomy: the buffer is known to hold the largest
// encoding of the whole record, so not even the per-member check is needed.
template <bool Counting, bool Roomy = false>
class encoder {
public:
    encoder(uint8_t *dest, size_t dest_size, mivo_bytes *frags, unsigned *frags_count_p, mivo_flags flags)
        : dest_(dest), dest_size_(dest_size), frags_(frags), frag_capacity_(frags_count_p ? *frags_count_p : 0),
          gather_(frags_count_p != nullptr), flags_(flags)
    {
    }

    size_t offset() const { return offset_; }

    // Closes the pending inline piece and reports how many pieces there were.
    void finish(unsigned *frags_count_p)
    {
        if (frags_count_p == nullptr) {
            return;
        }
        if (frag_bytes_handled_ < offset_) {
            piece(dest_at(frag_bytes_handled_), offset_ - frag_bytes_handled_);
        }
        *frags_count_p = frag_idx_;
    }

    template <class F>
    void key()
    {
        if constexpr (Counting) {
            offset_ += key_size<F>;
        } else if constexpr (F::number < 16) {
            offset_ = nuvex_encode_var7(F::key, offset_, dest_, dest_size_);
        } else {
            offset_ = nuvex_encode_var8(F::key, offset_, dest_, dest_size_);
        }
    }

    void var32(uint32_t value)
    {
        if constexpr (Counting) {
            offset_ += varint::size(value);
        } else {
            offset_ = varint::put_bounded(value, offset_, dest_, dest_size_);
        }
    }

    // Bytes left below dest_size from the current offset (0 once past it).
    size_t room() const { return offset_ < dest_size_ ? dest_size_ - offset_ : 0; }

    // Key and number of a scalar member: one room check against its widest
    // form, then whole stores. Near the end of a buffer of exactly the
    // measured length the exact size decides, so only a buffer that is really
    // too short goes byte by byte.
    template <class F, bool Wide>
    void number(std::conditional_t<Wide, uint64_t, uint32_t> value)
    {
        if constexpr (Counting) {
            offset_ += key_size<F> + varint::size(value);
        } else if (Roomy || room() >= key_size<F> + (Wide ? 10 : 5) ||
                   room() >= key_size<F> + varint::size(value)) {
            uint8_t *p = put_key<F>(dest_ + offset_);
            p = varint::put(p, value);
            offset_ = static_cast<size_t>(p - dest_);
        } else {
            short_number<F>(value);
        }
    }

    template <class F, class V>
    void short_number(V value)
    {
        offset_ = short_value(unsigned{F::key}, value, offset_, dest_, dest_size_);
    }

    // The cold tail: a key (its varint is two bytes above 127, as put_key
    // writes it) and a value byte by byte into a buffer that is too short.
    // The cold tails take the state they need, not the encoder: an encoder
    // whose address is never taken keeps its offset in a register.
    template <class V>
    [[gnu::noinline, gnu::cold]] static size_t short_value(unsigned key, V value, size_t offset, uint8_t *dest,
                                                           size_t dest_size)
    {
        offset = varint::put_bounded(key, offset, dest, dest_size);
        return varint::put_bounded(value, offset, dest, dest_size);
    }

    // Key, length and contents of a string or copied byte string, stored
    // unchecked when all of it fits.
    template <class F>
    void length_delimited(const void *data, size_t len)
    {
        if constexpr (Counting) {
            offset_ += key_size<F> + varint::size(static_cast<uint32_t>(len)) + len;
        } else {
            const size_t r = room();
            if ((r >= key_size<F> + 5 && len <= r - (key_size<F> + 5)) ||
                key_size<F> + varint::size(static_cast<uint32_t>(len)) + len <= r) {
                uint8_t *p = put_key<F>(dest_ + offset_);
                p = varint::put(p, static_cast<uint32_t>(len));
                copy_bytes(p, data, len);
                offset_ = static_cast<size_t>(p - dest_) + len;
                return;
            }
            short_delimited<F>(data, len);
        }
    }

    template <class F>
    void short_delimited(const void *data, size_t len)
    {
        offset_ = short_block(unsigned{F::key}, data, len, offset_, dest_, dest_size_);
    }

    [[gnu::noinline, gnu::cold]] static size_t short_block(unsigned key, const void *data, size_t len, size_t offset,
                                                           uint8_t *dest, size_t dest_size)
    {
        encoder e(dest, dest_size, nullptr, nullptr, MIVO_FLAGS_NONE);
        e.offset_ = short_value(key, static_cast<uint32_t>(len), offset, dest, dest_size);
        e.block(data, len);
        return e.offset_;
    }

    // A block is copied whole or not at all, so a short buffer never holds
    // half a string.
    void block(const void *data, size_t len)
    {
        static_assert(!Counting);
        const size_t end = offset_ + len;
        if (len != 0 && end <= dest_size_ && end >= offset_) {
            std::memcpy(dest_ + offset_, data, len);
        }
        offset_ = end;
    }

    template <class F>
    void bytes(const mivo_bytes &b)
    {
        if constexpr (!Counting) {
            if ((flags_ & MIVO_FLAG_SHARED) && gather_) {
                key<F>();
                var32(static_cast<uint32_t>(b.size));
                // The contents stay in the caller's memory as a piece of their
                // own; the inline piece before them ends with this key and length.
                if (b.size != 0) {
                    piece(dest_at(frag_bytes_handled_), offset_ - frag_bytes_handled_);
                    frag_bytes_handled_ = offset_;
                    piece(b.data, b.size);
                }
                return;
            }
        }
        // Without a fragment list there is nowhere to hand shared contents
        // to, so they are copied inline and the result stays a whole message.
        length_delimited<F>(b.data, b.size);
    }

    // The sibling measures first so that the length can precede the bytes;
    // the identifier then writes straight into the rest of the buffer. While
    // only measuring, the measured length is all there is to know.
    template <class F>
    void eid(const mivo_tesk_eid_st &id, bool present)
    {
        const size_t len = mivo_tesk_eid_st_encode_ext(&id, nullptr, 0, nullptr, nullptr, flags_);
        if (len != 0 || present) {
            // Key and length as a number: the room for their widest form is
            // checked first, which spares sizing the length.
            number<F, false>(static_cast<uint32_t>(len));
        }
        if constexpr (!Counting) {
            uint8_t *sub_dest = offset_ < dest_size_ ? dest_ + offset_ : nullptr;
            const size_t sub_size = offset_ < dest_size_ ? dest_size_ - offset_ : 0;
            mivo_bytes *sub_frags = nullptr;
            unsigned sub_count = 0;
            if (gather_ && frag_capacity_ > frag_idx_) {
                sub_frags = frags_ + frag_idx_;
                sub_count = frag_capacity_ - frag_idx_;
            }
            (void)mivo_tesk_eid_st_encode_ext(&id, sub_dest, sub_size, sub_frags, &sub_count, flags_);
            frag_idx_ += sub_count;
        }
        offset_ += len;
    }

    // A nested record of this engine is measured by the counting pass, then
    // written in place: bounded writes use absolute offsets. One whose
    // largest encoding is below 128 bytes has a one-byte length whatever it
    // holds; when that largest encoding fits, the record is written straight
    // after the byte reserved for its length, which is filled in last.
    template <class F, class Nested>
    void message(const Nested &nested)
    {
        constexpr size_t largest = largest_encoding<Nested>();
        if constexpr (!Counting && largest < 128) {
            if (Roomy || room() >= key_size<F> + 1 + largest) {
                uint8_t *length = put_key<F>(dest_ + offset_);
                const size_t start = static_cast<size_t>(length - dest_) + 1;
                encoder<false, true> inner(dest_, dest_size_, nullptr, nullptr, flags_);
                offset_ = inner.fields_at(start, nested);
                *length = static_cast<uint8_t>(offset_ - start);
                return;
            }
        }
        encoder<true> measure(nullptr, 0, nullptr, nullptr, flags_);
        measure.fields(nested);
        key<F>();
        var32(static_cast<uint32_t>(measure.offset()));
        if constexpr (Counting) {
            offset_ += measure.offset();
        } else if (dest_size_ == 0) {
            offset_ += measure.offset();
        } else if (largest != SIZE_MAX && (Roomy || room() >= largest)) {
            encoder<false, true> inner(dest_, dest_size_, nullptr, nullptr, flags_);
            offset_ = inner.fields_at(offset_, nested);
        } else {
            encoder inner(dest_, dest_size_, nullptr, nullptr, flags_);
            offset_ = inner.fields_at(offset_, nested);
        }
    }

    template <class F, class V>
    void write_element(const V &v)
    {
        constexpr auto e = F::kind::elem;
        if constexpr (e == element::eid) {
            static_assert(!F::kind::repeated);
        } else if constexpr (e == element::message) {
            message<F>(v);
        } else if constexpr (e == element::varint32 || e == element::boolean) {
            number<F, false>(static_cast<uint32_t>(v));
        } else if constexpr (e == element::varint64) {
            number<F, true>(v);
        } else if constexpr (e == element::string) {
            length_delimited<F>(v, std::strlen(v));
        } else {
            bytes<F>(v);
        }
    }

    // The exact encoded size of a run of numbers.
    template <class F, class V>
    static size_t run_size(const V *values, unsigned count)
    {
        size_t total = size_t{count} * key_size<F>;
        for (unsigned i = 0; i < count; ++i) {
            if constexpr (F::kind::elem == element::varint64) {
                total += varint::size(values[i]);
            } else {
                total += varint::size(static_cast<uint32_t>(values[i]));
            }
        }
        return total;
    }

    // A run of numbers: one room check for the whole run when it fits at its
    // largest, one sum of sizes when only measuring.
    template <class F, class V>
    void numbers(const V *values, unsigned count)
    {
        constexpr bool wide = F::kind::elem == element::varint64;
        if constexpr (Counting) {
            offset_ += run_size<F>(values, count);
        } else {
            constexpr size_t widest = key_size<F> + (wide ? 10 : 5);
            if (room() / widest >= count || run_size<F>(values, count) <= room()) {
                uint8_t *p = dest_ + offset_;
                for (unsigned i = 0; i < count; ++i) {
                    p = put_key<F>(p);
                    if constexpr (wide) {
                        p = varint::put(p, uint64_t{values[i]});
                    } else {
                        p = varint::put(p, static_cast<uint32_t>(values[i]));
                    }
                }
                offset_ = static_cast<size_t>(p - dest_);
                return;
            }
            for (unsigned i = 0; i < count; ++i) {
                write_element<F>(values[i]);
            }
        }
    }

    template <class F, class R>
    void member(const R &r, uint64_t have)
    {
        using K = typename F::kind;
        const auto &value = F::value(r);
        const bool present = (have >> (F::number - 1) & 1) != 0;
        if constexpr (K::elem == element::eid) {
            eid<F>(value, present);
        } else if constexpr (K::repeated) {
            if (!present) {
                return;
            }
            // Arrays of numbers are trusted to match their count; arrays of
            // pointers-to-contents may be absent.
            if constexpr (K::elem == element::string || K::elem == element::bytes || K::elem == element::message) {
                if (value == nullptr) {
                    return;
                }
                const unsigned count = F::count(r);
                for (unsigned i = 0; i < count; ++i) {
                    write_element<F>(value[i]);
                }
            } else {
                numbers<F>(value, F::count(r));
            }
        } else {
            if (!present) {
                return;
            }
            if constexpr (K::elem == element::string) {
                if (value == nullptr) {
                    return;
                }
            }
            write_element<F>(value);
        }
    }

    // Writes a nested record from an absolute offset; returns the end.
    template <class R>
    size_t fields_at(size_t offset, const R &r)
    {
        offset_ = offset;
        fields(r);
        return offset_;
    }

    // The flags are read once as a word: every byte stored could alias the
    // record, so flags read member by member would be read again after
    // each store.
    template <class R>
    void fields(const R &r)
    {
        const uint64_t have = presence(r);
        for_each_field<R>([&]<class F>() { member<F>(r, have); });
    }

private:
    // Piece addresses may point past a short buffer (or be offsets from a
    // null one while measuring); they are reported, never dereferenced here.
    uint8_t *dest_at(size_t off) const
    {
        return reinterpret_cast<uint8_t *>(reinterpret_cast<uintptr_t>(dest_) + off);
    }

    void piece(const uint8_t *data, size_t size)
    {
        if (frag_idx_ < frag_capacity_) {
            frags_[frag_idx_] = mivo_bytes{data, size};
        }
        ++frag_idx_;
    }

    uint8_t *dest_;
    size_t dest_size_;
    size_t offset_ = 0;
    size_t frag_bytes_handled_ = 0;
    mivo_bytes *frags_;
    unsigned frag_capacity_;
    unsigned frag_idx_ = 0;
    bool gather_;
    mivo_flags flags_;
};

// The pass that checks the room member by member, out of line so that the
// measuring and roomy passes keep a short prologue.
template <class R>
[[gnu::noinline]] size_t encode_checked(const R &source, uint8_t *dest, size_t dest_size, mivo_bytes *frags,
                                        unsigned *frags_count_p, mivo_flags flags)
{
    encoder<false> e(dest, dest_size, frags, frags_count_p, flags);
    e.fields(source);
    e.finish(frags_count_p);
    return e.offset();
}

// The general pass, for every record and every call.
template <class R>
size_t encode_fields(const R &source, uint8_t *dest, size_t dest_size, mivo_bytes *frags, unsigned *frags_count_p,
                     mivo_flags flags)
{
    if (dest_size == 0 && frags_count_p == nullptr) {
        encoder<true> e(nullptr, 0, nullptr, nullptr, flags);
        e.fields(source);
        return e.offset();
    }
    if constexpr (largest_encoding<R>() != SIZE_MAX) {
        bool roomy = false;
        if (dest_size >= largest_encoding<R>() && frags_count_p == nullptr) {
            roomy = true;
        } else if (frags_count_p == nullptr) {
            // Less room than the largest encoding, typically the measured
            // length: a record of numbers costs a few additions to measure
            // again, and when it fits nothing needs checking while writing.
            encoder<true> m(nullptr, 0, nullptr, nullptr, flags);
            m.fields(source);
            roomy = m.offset() <= dest_size;
        }
        if (roomy) {
            encoder<false, true> e(dest, dest_size, nullptr, nullptr, flags);
            e.fields(source);
            return e.offset();
        }
    }
    if constexpr (largest_encoding<R>() == SIZE_MAX && bounded_but_repeats<R>()) {
        // Repeated records of numbers (the identifier's chain): one check
        // against the largest encoding for these counts, then no more.
        if (frags_count_p == nullptr && dest_size >= largest_encoding_of(source)) {
            encoder<false, true> e(dest, dest_size, nullptr, nullptr, flags);
            e.fields(source);
            return e.offset();
        }
    }
    return encode_checked(source, dest, dest_size, frags, frags_count_p, flags);
}

template <class R>
[[gnu::noinline]] size_t encode_general(const R &source, uint8_t *dest, size_t dest_size, mivo_bytes *frags,
                                        unsigned *frags_count_p, mivo_flags flags)
{
    return encode_fields(source, dest, dest_size, frags, frags_count_p, flags);
}

// The writing call of a small record, apart from the measuring one so that
// each keeps its own few registers.
template <class R>
[[gnu::noinline]] size_t small_write(const R &source, uint8_t *dest, size_t dest_size, mivo_flags flags)
{
    uint32_t all = 0;
    // With room for the record at two bytes a member the write goes first;
    // if a number turns out to need more, the general pass writes over it.
    const size_t bound = small::bound(source);
    if (dest_size >= bound) {
        const uint8_t *end = small::put(source, dest, all);
        if (all < 128) {
            return static_cast<size_t>(end - dest);
        }
    } else if (bound <= 256) {
        // Less room than that, typically the exact measured length: the
        // pairs go to the stack and are copied out once they are known to
        // fit, so the record is still walked only once.
        uint8_t scratch[256];
        const size_t size = static_cast<size_t>(small::put(source, scratch, all) - scratch);
        if (all < 128 && size <= dest_size) {
            copy_bytes(dest, scratch, size);
            return size;
        }
    } else {
        uint64_t words = 0;
        const size_t size = small::size(source, words);
        if (small::below_128(words) && size <= dest_size) {
            small::put(source, dest, all);
            return size;
        }
    }
    return encode_general(source, dest, dest_size, nullptr, nullptr, flags);
}

template <class R>
size_t encode(const R &source, uint8_t *dest, size_t dest_size, mivo_bytes *frags, unsigned *frags_count_p,
              mivo_flags flags)
{
    if constexpr (small_record<R>()) {
        // Small records whose numbers are all below 128: measured by
        // counting presence bits, written pair by pair. When the buffer
        // holds the largest encoding the write goes first and the numbers
        // are checked as they pass; else the size is known before writing.
        if (frags_count_p == nullptr) {
            if (dest_size == 0) {
                uint64_t words = 0;
                const size_t size = small::size(source, words);
                if (small::below_128(words)) {
                    return size;
                }
                // Only measuring: the buffer's address is not needed, and
                // not keeping it spares a register across the count.
                return encode_general(source, nullptr, 0, nullptr, nullptr, flags);
            } else {
                return small_write(source, dest, dest_size, flags);
            }
        }
        return encode_general(source, dest, dest_size, frags, frags_count_p, flags);
    } else {
        return encode_fields(source, dest, dest_size, frags, frags_count_p, flags);
    }
}

} // namespace nuvex
