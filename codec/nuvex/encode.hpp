// The encoder, written once for every record. One pass measures and writes:
// every byte goes through the bounded primitives, so nothing lands at or past
// dest_size while the offset keeps counting the full length.
#pragma once

#include <cstring>

#include "mivo_tesk_eid_def.h"
#include "nuvex/description.hpp"
#include "nuvex_encode.h"

namespace nuvex {

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
        if constexpr (F::number < 16) {
            offset_ = nuvex_encode_var7(F::key, offset_, dest_, dest_size_);
        } else {
            offset_ = nuvex_encode_var8(F::key, offset_, dest_, dest_size_);
        }
    }

    void var32(uint32_t value) { offset_ = nuvex_encode_var32(value, offset_, dest_, dest_size_); }
    void var64(uint64_t value) { offset_ = nuvex_encode_var64(value, offset_, dest_, dest_size_); }

    // A block is copied whole or not at all, so a short buffer never holds
    // half a string.
    void block(const void *data, size_t len)
    {
        const size_t end = offset_ + len;
        if (len != 0 && end <= dest_size_ && end >= offset_) {
            std::memcpy(dest_ + offset_, data, len);
        }
        offset_ = end;
    }

    void string(mivo_string_t str)
    {
        const size_t len = std::strlen(str);
        var32(static_cast<uint32_t>(len));
        block(str, len);
    }

    void bytes(const mivo_bytes &b)
    {
        var32(static_cast<uint32_t>(b.size));
        if ((flags_ & MIVO_FLAG_SHARED) && gather_) {
            // The contents stay in the caller's memory as a piece of their
            // own; the inline piece before them ends with this key and length.
            if (b.size != 0) {
                piece(dest_at(frag_bytes_handled_), offset_ - frag_bytes_handled_);
                frag_bytes_handled_ = offset_;
                piece(b.data, b.size);
            }
            return;
        }
        // Without a fragment list there is nowhere to hand shared contents
        // to, so they are copied inline and the result stays a whole message.
        block(b.data, b.size);
    }

    // The sibling measures first so that the length can precede the bytes;
    // the identifier then writes straight into the rest of the buffer.
    template <class F>
    void eid(const mivo_tesk_eid_st &id, bool present)
    {
        const size_t len = mivo_tesk_eid_st_encode_ext(&id, nullptr, 0, nullptr, nullptr, flags_);
        if (len != 0 || present) {
            key<F>();
            var32(static_cast<uint32_t>(len));
        }
        uint8_t *sub_dest = offset_ < dest_size_ ? dest_ + offset_ : nullptr;
        const size_t sub_size = offset_ < dest_size_ ? dest_size_ - offset_ : 0;
        mivo_bytes *sub_frags = nullptr;
        unsigned sub_count = 0;
        if (gather_ && frag_capacity_ > frag_idx_) {
            sub_frags = frags_ + frag_idx_;
            sub_count = frag_capacity_ - frag_idx_;
        }
        (void)mivo_tesk_eid_st_encode_ext(&id, sub_dest, sub_size, sub_frags, &sub_count, flags_);
        offset_ += len;
        frag_idx_ += sub_count;
    }

    // A nested record of this engine is measured with a throw-away encoder,
    // then written in place: bounded writes use absolute offsets. While only
    // measuring, one pass is enough, which keeps deep nesting linear.
    template <class F, class Nested>
    void message(const Nested &nested)
    {
        encoder measure(nullptr, 0, nullptr, nullptr, flags_);
        measure.fields(nested);
        key<F>();
        var32(static_cast<uint32_t>(measure.offset()));
        if (dest_size_ == 0) {
            offset_ += measure.offset();
            return;
        }
        encoder inner(dest_, dest_size_, nullptr, nullptr, flags_);
        inner.offset_ = offset_;
        inner.fields(nested);
        offset_ = inner.offset_;
    }

    template <class F, class V>
    void write_element(const V &v)
    {
        constexpr auto e = F::kind::elem;
        if constexpr (e == element::eid) {
            static_assert(!F::kind::repeated);
        } else if constexpr (e == element::message) {
            message<F>(v);
        } else {
            key<F>();
            if constexpr (e == element::varint32 || e == element::boolean) {
                var32(static_cast<uint32_t>(v));
            } else if constexpr (e == element::varint64) {
                var64(v);
            } else if constexpr (e == element::string) {
                string(v);
            } else {
                bytes(v);
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
            }
            const unsigned count = F::count(r);
            for (unsigned i = 0; i < count; ++i) {
                write_element<F>(value[i]);
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
    encoder e(dest, dest_size, frags, frags_count_p, flags);
    e.fields(source);
    e.finish(frags_count_p);
    return e.offset();
}

} // namespace nuvex
