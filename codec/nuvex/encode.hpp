// The encoder, written once for every record: each present member as key
// and value, in member order. One pass measures and writes; where its bytes
// go is a sink chosen once per call:
//   measuring - no buffer: each value adds its encoded size;
//   unchecked - the buffer is known to hold the whole encoding;
//   bounded   - anything else, and every call with a fragment list: a member
//               whose largest form fits the room left is stored whole, and
//               only one that meets the end of a short buffer goes byte by
//               byte, so nothing lands at or past dest_size while the offset
//               keeps counting the full length.
// Records of small numbers try the path of small_records.hpp first.
#pragma once

#include <cstdint>
#include <cstring>
#include <type_traits>

#include "nuvex/external.hpp"
#include "nuvex/memory.hpp"
#include "nuvex/shape.hpp"
#include "nuvex/small_records.hpp"
#include "nuvex/varint.hpp"

namespace nuvex {

template <class F>
[[gnu::always_inline]] inline uint8_t *put_key(uint8_t *p)
{
    return varint::put(p, F::key);
}

template <class V>
using wire_number = std::conditional_t<sizeof(V) == 8, uint64_t, uint32_t>;

// An offset moved on by n bytes. Where size_t has 32 bits a record can need
// more (names that all point at one long string): the offset then stops at
// SIZE_MAX, a length that no buffer holds, instead of wrapping round to one
// that a buffer does.
[[gnu::always_inline]] inline size_t advance(size_t offset, uint64_t n)
{
    if constexpr (sizeof(size_t) >= sizeof(uint64_t)) {
        return offset + static_cast<size_t>(n);
    } else {
        const uint64_t end = uint64_t{offset} + n;
        return end > SIZE_MAX ? SIZE_MAX : static_cast<size_t>(end);
    }
}

// The exact size of a run of numbers, keys included; in 64 bits, so that no
// count wraps it where size_t has 32.
template <class F, class V>
uint64_t run_size(const V *values, unsigned count)
{
    uint64_t total = uint64_t{count} * F::key_size;
    for (unsigned i = 0; i < count; ++i) {
        total += varint::size(static_cast<wire_number<V>>(values[i]));
    }
    return total;
}

// Counts the bytes of an encoding and stores none.
struct measuring_sink {
    static constexpr bool writes = false;
    size_t offset = 0;

    template <class F, class V>
    void number(V v)
    {
        offset = advance(offset, F::key_size + varint::size(v));
    }
    template <class F>
    void delimited(const void *, size_t len)
    {
        offset = advance(offset, F::key_size + varint::size(static_cast<uint32_t>(len)) + uint64_t{len});
    }
    template <class F, class V>
    void numbers(const V *values, unsigned count)
    {
        offset = advance(offset, run_size<F>(values, count));
    }
};

// Stores into a buffer known to hold the whole encoding.
struct unchecked_sink {
    static constexpr bool writes = true;
    uint8_t *dest;
    size_t size;
    size_t offset = 0;

    template <class F, class V>
    void number(V v)
    {
        uint8_t *p = varint::put(put_key<F>(dest + offset), v);
        offset = static_cast<size_t>(p - dest);
    }
    template <class F>
    void delimited(const void *data, size_t len)
    {
        uint8_t *p = varint::put(put_key<F>(dest + offset), static_cast<uint32_t>(len));
        memory::copy_bytes(p, data, len);
        offset = static_cast<size_t>(p - dest) + len;
    }
    template <class F, class V>
    void numbers(const V *values, unsigned count)
    {
        uint8_t *p = dest + offset;
        for (unsigned i = 0; i < count; ++i) {
            p = varint::put(put_key<F>(p), static_cast<wire_number<V>>(values[i]));
        }
        offset = static_cast<size_t>(p - dest);
    }

    // Bytes left below the buffer's end (0 once past it), and where they start.
    size_t room() const { return offset < size ? size - offset : 0; }
    uint8_t *rest() const { return offset < size ? dest + offset : nullptr; }
};

// Stores only below dest_size, and describes its output as pieces when the
// caller passed a fragment counter.
struct bounded_sink : unchecked_sink {
    mivo_bytes *frags = nullptr;
    unsigned capacity = 0;
    bool gathering = false;
    unsigned pieces = 0;
    size_t covered = 0; // bytes of the buffer already in pieces

    bounded_sink(uint8_t *d, size_t s, size_t at, mivo_bytes *f = nullptr, unsigned *count_p = nullptr)
        : unchecked_sink{d, s, at}, frags(f), capacity(count_p ? *count_p : 0), gathering(count_p != nullptr)
    {
    }

    // One room check against the value's widest form, or near the end of
    // a buffer of exactly the measured length against its exact size.
    template <class F, class V>
    void number(V v)
    {
        if (room() >= F::key_size + varint::widest<V> || room() >= F::key_size + varint::size(v)) {
            unchecked_sink::number<F>(v);
        } else {
            offset = short_number(F::key, v, offset, dest, size);
        }
    }
    template <class F>
    void delimited(const void *data, size_t len)
    {
        const size_t r = room();
        constexpr size_t head = F::key_size + varint::widest<uint32_t>;
        if ((r >= head && len <= r - head) || F::key_size + varint::size(static_cast<uint32_t>(len)) + len <= r) {
            unchecked_sink::delimited<F>(data, len);
        } else {
            offset = short_block(F::key, data, len, offset, dest, size);
        }
    }
    // A run takes one room check when it fits at its largest.
    template <class F, class V>
    void numbers(const V *values, unsigned count)
    {
        constexpr size_t widest = F::key_size + varint::widest<wire_number<V>>;
        if (room() / widest >= count || run_size<F>(values, count) <= room()) {
            unchecked_sink::numbers<F>(values, count);
        } else {
            for (unsigned i = 0; i < count; ++i) {
                number<F>(static_cast<wire_number<V>>(values[i]));
            }
        }
    }

    // The cold tails take the state they need, not the sink, whose address
    // is then never taken (docs/benchmarks.md, "Why the engine is shaped
    // as it is").
    template <class V>
    [[gnu::noinline, gnu::cold]] static size_t short_number(uint32_t key, V v, size_t offset, uint8_t *dest,
                                                            size_t size)
    {
        if (offset < size) {
            varint::put_bounded(v, varint::put_bounded(key, offset, dest, size), dest, size);
        }
        return advance(offset, varint::size(key) + varint::size(v));
    }
    // A block is copied whole or not at all, so a short buffer never holds
    // half a string.
    [[gnu::noinline, gnu::cold]] static size_t short_block(uint32_t key, const void *data, size_t len, size_t offset,
                                                           uint8_t *dest, size_t size)
    {
        offset = short_number(key, static_cast<uint32_t>(len), offset, dest, size);
        const size_t end = advance(offset, len);
        if (len != 0 && end <= size && end - len == offset) {
            std::memcpy(dest + offset, data, len);
        }
        return end;
    }

    // Shared byte strings become pieces of their own only in a fragment
    // list; without one there is nowhere to hand them to.
    bool hands_out(mivo_flags flags) const { return gathering && (flags & MIVO_FLAG_SHARED); }

    // Closes the inline piece before a shared block, then adds the block.
    void hand_out(const void *data, size_t len)
    {
        piece(covered, offset - covered);
        covered = offset;
        add(static_cast<const uint8_t *>(data), len);
    }

    // Closes the pending inline piece and reports how many pieces there were.
    size_t finish(unsigned *count_p)
    {
        if (gathering) {
            if (covered < offset) {
                piece(covered, offset - covered);
            }
            *count_p = pieces;
        }
        return offset;
    }

private:
    // Pieces may point past a short buffer (or be offsets from a null one
    // while measuring); they are reported, never dereferenced here.
    void piece(size_t at, size_t len)
    {
        add(reinterpret_cast<const uint8_t *>(reinterpret_cast<uintptr_t>(dest) + at), len);
    }
    void add(const uint8_t *data, size_t len)
    {
        if (pieces < capacity) {
            frags[pieces] = mivo_bytes{data, len};
        }
        ++pieces;
    }
};

template <class Sink>
class encoder {
public:
    encoder(Sink out, mivo_flags flags) : out_(out), flags_(flags) {}

    Sink &out() { return out_; }

    // The flags are read once as a word: every byte stored could alias the
    // record, so flags read member by member would be read again after
    // each store.
    template <class R>
    void fields(const R &r)
    {
        const uint64_t have = memory::presence(r);
        for_each_field<R>([&]<class F>() { member<F>(r, have); });
    }

private:
    template <class F, class R>
    void member(const R &r, uint64_t have)
    {
        using K = typename F::kind;
        const auto &value = F::value(r);
        const bool present = (have >> (F::number - 1) & 1) != 0;
        if constexpr (K::elem == element::external) {
            static_assert(!K::repeated, "no record repeats an external record; one that did would need a loop here");
            external<F>(value, present);
        } else if (!present) {
            return;
        } else if constexpr (K::repeated && is_scalar(K::elem)) {
            // Arrays of numbers are trusted to match their count.
            out_.template numbers<F>(value, F::count(r));
        } else if constexpr (K::repeated) {
            // Arrays of contents may be absent.
            if (value == nullptr) {
                return;
            }
            const unsigned count = F::count(r);
            for (unsigned i = 0; i < count; ++i) {
                put_element<F>(value[i]);
            }
        } else if constexpr (K::elem == element::string) {
            if (value != nullptr) {
                put_element<F>(value);
            }
        } else {
            put_element<F>(value);
        }
    }

    template <class F, class V>
    void put_element(const V &v)
    {
        constexpr element e = F::kind::elem;
        if constexpr (e == element::message) {
            message<F>(v);
        } else if constexpr (e == element::string) {
            out_.template delimited<F>(v, std::strlen(v));
        } else if constexpr (e == element::bytes) {
            bytes<F>(v);
        } else {
            out_.template number<F>(static_cast<wire_number<V>>(v));
        }
    }

    template <class F>
    void bytes(const mivo_bytes &b)
    {
        if constexpr (std::is_same_v<Sink, bounded_sink>) {
            if (out_.hands_out(flags_)) {
                // The contents stay in the caller's memory as a piece of
                // their own; the inline piece before them ends with this
                // key and length.
                out_.template number<F>(static_cast<uint32_t>(b.size));
                if (b.size != 0) {
                    out_.hand_out(b.data, b.size);
                }
                return;
            }
        }
        out_.template delimited<F>(b.data, b.size);
    }

    // The other library measures first so that the length can precede the
    // bytes, then writes straight into the rest of the buffer.
    template <class F, class T>
    void external(const T &value, bool present)
    {
        using codec = external_codec<T>;
        static_assert(!codec::reports_pieces, "a nested record's bytes are covered by the enclosing inline piece, "
                                              "so pieces of its own would hand them out twice");
        const size_t len = codec::encode(value, nullptr, 0, nullptr, nullptr, flags_);
        if (len != 0 || present) {
            out_.template number<F>(static_cast<uint32_t>(len));
        }
        if constexpr (Sink::writes) {
            unsigned pieces = 0;
            (void)codec::encode(value, out_.rest(), out_.room(), nullptr, &pieces, flags_);
        }
        out_.offset = advance(out_.offset, len);
    }

    // A nested record whose largest encoding is below 128 bytes has a
    // one-byte length whatever it holds: when that much room is left it is
    // written straight after the byte reserved for its length. Any other is
    // measured first.
    template <class F, class N>
    void message(const N &nested)
    {
        if constexpr (Sink::writes && shape<N>::largest < 128) {
            if (out_.room() >= F::key_size + 1 + shape<N>::largest) {
                uint8_t *length = put_key<F>(out_.dest + out_.offset);
                encoder<unchecked_sink> inner({out_.dest, out_.size, static_cast<size_t>(length - out_.dest) + 1},
                                              flags_);
                inner.fields(nested);
                *length = static_cast<uint8_t>(inner.out().offset - static_cast<size_t>(length - out_.dest) - 1);
                out_.offset = inner.out().offset;
                return;
            }
        }
        encoder<measuring_sink> measure({}, flags_);
        measure.fields(nested);
        out_.template number<F>(static_cast<uint32_t>(measure.out().offset));
        if constexpr (Sink::writes) {
            encoder<bounded_sink> inner({out_.dest, out_.size, out_.offset}, flags_);
            inner.fields(nested);
            out_.offset = inner.out().offset;
        } else {
            out_.offset = advance(out_.offset, measure.out().offset);
        }
    }

    Sink out_;
    mivo_flags flags_;
};

template <class R>
size_t measure(const R &r, mivo_flags flags)
{
    encoder<measuring_sink> e({}, flags);
    e.fields(r);
    return e.out().offset;
}

// Every member checked; out of line, apart from the measuring and unchecked
// passes.
template <class R>
[[gnu::noinline]] size_t encode_bounded(const R &r, uint8_t *dest, size_t size, mivo_bytes *frags,
                                        unsigned *frags_count_p, mivo_flags flags)
{
    encoder<bounded_sink> e({dest, size, 0, frags, frags_count_p}, flags);
    e.fields(r);
    return e.out().finish(frags_count_p);
}

// Whether a buffer of size bytes holds r's whole encoding, found without
// writing: against the largest encoding of any such record, or of one with
// r's counts, or (a record of numbers costs a few additions to measure) by
// measuring it.
template <class R>
[[gnu::always_inline]] inline bool holds(const R &r, size_t size, mivo_flags flags)
{
    if constexpr (shape<R>::largest != unbounded) {
        return size >= shape<R>::largest || measure(r, flags) <= size;
    } else if constexpr (shape<R>::bounded_by_counts) {
        return size >= largest_for_counts<&member_shape::largest>(r);
    } else {
        return false;
    }
}

template <class R>
size_t encode_general(const R &r, uint8_t *dest, size_t size, mivo_bytes *frags, unsigned *frags_count_p,
                      mivo_flags flags)
{
    if (size == 0 && frags_count_p == nullptr) {
        return measure(r, flags);
    }
    if (frags_count_p == nullptr && holds(r, size, flags)) {
        encoder<unchecked_sink> e({dest, size}, flags);
        e.fields(r);
        return e.out().offset;
    }
    return encode_bounded(r, dest, size, frags, frags_count_p, flags);
}

// Where the small-record path gives up.
template <class R>
[[gnu::noinline]] size_t encode_general_out_of_line(const R &r, uint8_t *dest, size_t size, mivo_flags flags)
{
    return encode_general(r, dest, size, nullptr, nullptr, flags);
}

template <class R>
size_t encode(const R &r, uint8_t *dest, size_t size, mivo_bytes *frags, unsigned *frags_count_p, mivo_flags flags)
{
    if constexpr (shape<R>::small) {
        if (frags_count_p == nullptr) {
            return size == 0 ? small_records::measure<encode_general_out_of_line<R>>(r, flags)
                             : small_records::write<encode_general_out_of_line<R>>(r, dest, size, flags);
        }
    }
    return encode_general(r, dest, size, frags, frags_count_p, flags);
}

} // namespace nuvex
