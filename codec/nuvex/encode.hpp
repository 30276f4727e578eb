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

#include <cstdint>
#include <cstring>
#include <type_traits>

#include "mivo_tesk_eid_def.h"
#include "nuvex/description.hpp"
#include "nuvex_encode.h"

namespace nuvex {

// Encoded size of a varint, from the index of its highest set bit (one
// bit-scan and a multiply-shift: index 0-6 gives 1, 7-13 gives 2, ... 63
// gives 10).
constexpr size_t varint_size(uint64_t v)
{
    const unsigned top = 63u ^ static_cast<unsigned>(__builtin_clzll(v | 1));
    return (top * 9 + 73) >> 6;
}

// Unchecked stores for when the room left is known to suffice.
inline uint8_t *put_var32(uint8_t *p, uint32_t v)
{
    while (v > 0x7Fu) {
        *p++ = static_cast<uint8_t>(v | 0x80u);
        v >>= 7;
    }
    *p++ = static_cast<uint8_t>(v);
    return p;
}

inline uint8_t *put_var64(uint8_t *p, uint64_t v)
{
    while (v > 0x7Fu) {
        *p++ = static_cast<uint8_t>(v | 0x80u);
        v >>= 7;
    }
    *p++ = static_cast<uint8_t>(v);
    return p;
}

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
            offset_ += varint_size(value);
        } else {
            offset_ = nuvex_encode_var32(value, offset_, dest_, dest_size_);
        }
    }
    void var64(uint64_t value)
    {
        if constexpr (Counting) {
            offset_ += varint_size(value);
        } else {
            offset_ = nuvex_encode_var64(value, offset_, dest_, dest_size_);
        }
    }

    // Bytes left below dest_size from the current offset (0 once past it).
    size_t room() const { return offset_ < dest_size_ ? dest_size_ - offset_ : 0; }

    // Key and number of a scalar member: one room check, then whole stores.
    template <class F, bool Wide>
    void number(std::conditional_t<Wide, uint64_t, uint32_t> value)
    {
        if constexpr (Counting) {
            offset_ += key_size<F> + varint_size(value);
        } else if (Roomy || room() >= key_size<F> + (Wide ? 10 : 5)) {
            uint8_t *p = put_key<F>(dest_ + offset_);
            if constexpr (Wide) {
                p = put_var64(p, value);
            } else {
                p = put_var32(p, value);
            }
            offset_ = static_cast<size_t>(p - dest_);
        } else {
            key<F>();
            if constexpr (Wide) {
                var64(value);
            } else {
                var32(value);
            }
        }
    }

    // Key, length and contents of a string or copied byte string, stored
    // unchecked when all of it fits.
    template <class F>
    void length_delimited(const void *data, size_t len)
    {
        if constexpr (Counting) {
            offset_ += key_size<F> + varint_size(static_cast<uint32_t>(len)) + len;
        } else {
            const size_t r = room();
            if (r >= key_size<F> + 5 && len <= r - (key_size<F> + 5)) {
                uint8_t *p = put_key<F>(dest_ + offset_);
                p = put_var32(p, static_cast<uint32_t>(len));
                copy_bytes(p, data, len);
                offset_ = static_cast<size_t>(p - dest_) + len;
                return;
            }
            key<F>();
            var32(static_cast<uint32_t>(len));
            block(data, len);
        }
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
            key<F>();
            var32(static_cast<uint32_t>(len));
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

    // A run of numbers: one room check for the whole run when it fits at its
    // largest, one sum of sizes when only measuring.
    template <class F, class V>
    void numbers(const V *values, unsigned count)
    {
        constexpr bool wide = F::kind::elem == element::varint64;
        if constexpr (Counting) {
            size_t total = size_t{count} * key_size<F>;
            for (unsigned i = 0; i < count; ++i) {
                if constexpr (wide) {
                    total += varint_size(values[i]);
                } else {
                    total += varint_size(static_cast<uint32_t>(values[i]));
                }
            }
            offset_ += total;
        } else {
            constexpr size_t widest = key_size<F> + (wide ? 10 : 5);
            if (room() / widest >= count) {
                uint8_t *p = dest_ + offset_;
                for (unsigned i = 0; i < count; ++i) {
                    p = put_key<F>(p);
                    if constexpr (wide) {
                        p = put_var64(p, values[i]);
                    } else {
                        p = put_var32(p, static_cast<uint32_t>(values[i]));
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
    void member(const R &r)
    {
        using K = typename F::kind;
        const auto &value = F::value(r);
        if constexpr (K::elem == element::eid) {
            eid<F>(value, F::present(r));
        } else if constexpr (K::repeated) {
            if (!F::present(r)) {
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
            if (!F::present(r)) {
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

    template <class R>
    void fields(const R &r)
    {
        for_each_field<R>([&]<class F>() { member<F>(r); });
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

template <class R>
size_t encode(const R &source, uint8_t *dest, size_t dest_size, mivo_bytes *frags, unsigned *frags_count_p,
              mivo_flags flags)
{
    if (dest_size == 0 && frags_count_p == nullptr) {
        encoder<true> e(nullptr, 0, nullptr, nullptr, flags);
        e.fields(source);
        return e.offset();
    }
    if constexpr (largest_encoding<R>() != SIZE_MAX) {
        if (dest_size >= largest_encoding<R>() && frags_count_p == nullptr) {
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
    encoder<false> e(dest, dest_size, frags, frags_count_p, flags);
    e.fields(source);
    e.finish(frags_count_p);
    return e.offset();
}

} // namespace nuvex
