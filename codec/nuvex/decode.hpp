// The decoder, written once for every record: reset the record, then read
// field after field until the input is used up. It stops at the first error
// and leaves everything it allocated reachable from the record, so the
// release operation can hand it back whatever happened.
#pragma once

#include <climits>
#include <cstring>
#include <type_traits>

#include "nuvex/description.hpp"
#include "nuvex/external.hpp"
#include "nuvex/memory.hpp"
#include "nuvex/varint.hpp"

namespace nuvex {

class decoder {
public:
    decoder(const uint8_t *source, size_t size, mivo_alloc_t *alloc, void *token, mivo_flags flags)
        : src_(source), size_(size), alloc_(alloc), token_(token), flags_(flags)
    {
    }

    template <class R>
    int fields(R &r)
    {
        while (offset_ < size_) {
            uint32_t key;
            if (!read_varint(key)) {
                return MIVO_ERROR_GARBLED;
            }
            const int rc = dispatch(r, key, typename description<R>::fields{});
            if (rc != MIVO_NO_ERROR) {
                return rc;
            }
        }
        return MIVO_NO_ERROR;
    }

private:
    static constexpr int unknown_field = 1;

    bool shared() const { return (flags_ & MIVO_FLAG_SHARED) != 0; }

    template <class R, class... F>
    int dispatch(R &r, uint32_t key, field_list<F...>)
    {
        const uint32_t number = key >> 3;
        const unsigned wire_type = key & 7u;
        int rc = unknown_field;
        // Folds into a compare chain the compiler turns into a jump table.
        (void)((number == F::number &&
                (rc = wire_type == F::kind::wire_type ? value<F>(r) : MIVO_ERROR_WRONG_TYPE, true)) ||
               ...);
        if (rc == unknown_field) {
            // Field 0 and numbers past the record's last are skipped.
            rc = skip(wire_type);
        }
        return rc;
    }

    // Skips the value of a field the record does not define. A length or a
    // fixed width that runs past the end takes the offset to the end, which
    // ends the input. Out of line: such fields are rare.
    [[gnu::noinline]] int skip(unsigned wire_type)
    {
        uint32_t n;
        switch (wire_type) {
        case NUVEX_TYPE_VARINT:
            return read_varint(n) ? MIVO_NO_ERROR : MIVO_ERROR_GARBLED;
        case NUVEX_TYPE_FIXED64:
            n = 8;
            break;
        case NUVEX_TYPE_LENGTH:
            if (!read_varint(n)) {
                return MIVO_ERROR_GARBLED;
            }
            break;
        case NUVEX_TYPE_FIXED32:
            n = 4;
            break;
        default:
            return MIVO_ERROR_UNSUPPORTED;
        }
        offset_ = n > size_ - offset_ ? size_ : offset_ + n;
        return MIVO_NO_ERROR;
    }

    // A varint at the offset that ends inside the input; false if none does.
    template <class V>
    bool read_varint(V &out)
    {
        // Most keys and values are one byte.
        if (offset_ < size_ && src_[offset_] < 0x80u) {
            out = src_[offset_++];
            return true;
        }
        return read_long_varint(out);
    }

    template <class V>
    [[gnu::noinline]] bool read_long_varint(V &out)
    {
        return run_varint(out);
    }

    // Reads a length and checks that its bytes lie inside the input.
    int length(uint32_t &len)
    {
        if (!read_varint(len) || len > size_ - offset_) {
            return MIVO_ERROR_GARBLED;
        }
        return MIVO_NO_ERROR;
    }

    void *allocate(size_t size) { return alloc_(size, token_); }

    // An array for count elements. Where size_t has 32 bits a long enough
    // run could ask for more than it holds: no allocator could give that.
    template <class E>
    void *allocate_array(unsigned count)
    {
        if (count > SIZE_MAX / sizeof(E)) {
            return nullptr;
        }
        return allocate(sizeof(E) * count);
    }

    // One string: a fresh NUL-terminated copy, never shared with the input.
    int string(mivo_string_t &out)
    {
        uint32_t len;
        if (length(len) != MIVO_NO_ERROR) {
            return MIVO_ERROR_GARBLED;
        }
        auto *copy = static_cast<char *>(allocate(size_t{len} + 1));
        if (copy == nullptr) {
            return MIVO_ERROR_ALLOC_FAILED;
        }
        out = copy;
        memory::copy_bytes(reinterpret_cast<uint8_t *>(copy), src_ + offset_, len);
        copy[len] = '\0';
        offset_ += len;
        return MIVO_NO_ERROR;
    }

    // One byte string: a pointer into the input when shared, else an exact copy.
    int bytes(mivo_bytes &out)
    {
        uint32_t len;
        if (length(len) != MIVO_NO_ERROR) {
            return MIVO_ERROR_GARBLED;
        }
        if (shared()) {
            out.data = src_ + offset_;
        } else {
            auto *copy = static_cast<uint8_t *>(allocate(len));
            if (copy == nullptr) {
                return MIVO_ERROR_ALLOC_FAILED;
            }
            if (len != 0) {
                std::memcpy(copy, src_ + offset_, len);
            }
            out.data = copy;
        }
        out.size = len;
        offset_ += len;
        return MIVO_NO_ERROR;
    }

    // A record nested in the field's bytes: another library's gets exactly
    // those bytes; one of this engine merges into what the member holds, as
    // a repeated occurrence of an embedded message does in the Protocol
    // Buffers format.
    template <element E, class Nested>
    int nested(Nested &out)
    {
        uint32_t len;
        if (length(len) != MIVO_NO_ERROR) {
            return MIVO_ERROR_GARBLED;
        }
        int rc;
        if constexpr (E == element::external) {
            rc = external_codec<Nested>::decode(out, src_ + offset_, len, alloc_, token_, flags_);
        } else {
            decoder inner(src_ + offset_, len, alloc_, token_, flags_);
            rc = inner.fields(out);
        }
        if (rc != MIVO_NO_ERROR) {
            return rc;
        }
        offset_ += len;
        return MIVO_NO_ERROR;
    }

    // Reads one element of the member's kind into out.
    template <class K, class V>
    int read(V &out)
    {
        if constexpr (K::elem == element::varint32 || K::elem == element::boolean) {
            uint32_t v;
            if (!read_varint(v)) {
                return MIVO_ERROR_GARBLED;
            }
            if constexpr (K::elem == element::boolean) {
                out = v != 0;
            } else {
                out = static_cast<V>(v);
            }
            return MIVO_NO_ERROR;
        } else if constexpr (K::elem == element::varint64) {
            return read_varint(out) ? MIVO_NO_ERROR : MIVO_ERROR_GARBLED;
        } else if constexpr (K::elem == element::string) {
            return string(out);
        } else if constexpr (K::elem == element::bytes) {
            return bytes(out);
        } else {
            return nested<K::elem>(out);
        }
    }

    // One element of a run of numbers, bounds-checked: a varint of any length
    // that ends inside the input, read a word at a time where it can be.
    template <class V>
    bool run_varint(V &out)
    {
        const uint8_t *p = varint::get_checked(src_ + offset_, src_ + size_, out);
        if (p == nullptr) {
            return false;
        }
        offset_ = static_cast<size_t>(p - src_);
        return true;
    }

    // A varint whose end the pre-scan of a run has already found.
    template <class V>
    V trusted_varint()
    {
        V value;
        offset_ = static_cast<size_t>(varint::get(src_ + offset_, value) - src_);
        return value;
    }

    // The key of the next element of a run, already checked by the pre-scan.
    template <class F>
    void skip_key()
    {
        if (F::number < 16 && src_[offset_] == F::key) {
            ++offset_;
        } else {
            (void)trusted_varint<uint32_t>();
        }
    }

    // After an element of a run: 1 when the next field continues the run
    // (its key read past), 0 at the run's end, or an error for a key that is
    // no varint.
    template <class F>
    int run_continues()
    {
        if (offset_ >= size_) {
            return 0;
        }
        // The common case, the member's own one-byte key, needs no varint.
        if constexpr (F::number < 16) {
            if (src_[offset_] == F::key) {
                ++offset_;
                return 1;
            }
        }
        uint32_t next;
        if (!read_varint(next)) {
            return MIVO_ERROR_GARBLED;
        }
        return (next >> 3) == F::number ? 1 : 0;
    }

    // A run of numbers is counted and read in one pass: the first values go
    // to the stack until the count is known and the array can be allocated
    // at its exact size; a run longer than that stack block is read again
    // from where the block ended, without bounds checks.
    template <class F, class R>
    int number_run(R &r)
    {
        using E = std::remove_const_t<std::remove_pointer_t<std::remove_reference_t<decltype(F::value(r))>>>;
        using V = std::conditional_t<F::kind::elem == element::varint64, uint64_t, uint32_t>;
        constexpr unsigned buffered = 1024 / sizeof(V);
        V first[buffered];
        unsigned count = 0;
        size_t end;
        int more;
        do {
            if (!run_varint(first[count])) {
                return MIVO_ERROR_GARBLED;
            }
            ++count;
            end = offset_;
            more = run_continues<F>();
            if (more < 0) {
                return more;
            }
        } while (more != 0 && count < buffered);
        const size_t resume = offset_; // where the value of element `buffered` starts
        while (more != 0) {
            V ignored;
            if (!run_varint(ignored)) {
                return MIVO_ERROR_GARBLED;
            }
            if (++count == UINT_MAX) {
                return MIVO_ERROR_GARBLED; // the count would not fit its member
            }
            end = offset_;
            more = run_continues<F>();
            if (more < 0) {
                return more;
            }
        }
        auto *array = static_cast<E *>(allocate_array<E>(count));
        if (array == nullptr) {
            return MIVO_ERROR_ALLOC_FAILED;
        }
        F::value(r) = array;
        F::count(r) = count;
        // 32-bit members keep the low 32 bits; a boolean is 0 or 1.
        const auto element_of = [](V v) -> E {
            if constexpr (F::kind::elem == element::boolean) {
                return v != 0;
            } else {
                return static_cast<E>(v);
            }
        };
        const unsigned stored = count < buffered ? count : buffered;
        for (unsigned i = 0; i < stored; ++i) {
            array[i] = element_of(first[i]);
        }
        if (count > buffered) {
            offset_ = resume;
            for (unsigned i = buffered; i < count; ++i) {
                if (i != buffered) {
                    skip_key<F>();
                }
                array[i] = element_of(trusted_varint<V>());
            }
        }
        offset_ = end;
        F::mark(r, true);
        return MIVO_NO_ERROR;
    }

    // A repeated member is one unbroken run of fields with its number. The run
    // is counted first so that the array is allocated once at its exact size.
    template <class F, class R>
    int repeated(R &r)
    {
        using K = typename F::kind;
        if (F::value(r) != nullptr) {
            return MIVO_ERROR_GARBLED; // a second run
        }
        if (alloc_ == nullptr) {
            return MIVO_ERROR_ALLOC_FAILED;
        }
        if constexpr (K::wire_type == NUVEX_TYPE_VARINT) {
            return number_run<F>(r);
        } else {
            return delimited_run<F>(r);
        }
    }

    // A run of strings, byte strings or nested records: counted first by
    // their lengths alone, then read.
    template <class F, class R>
    int delimited_run(R &r)
    {
        using K = typename F::kind;
        using E = std::remove_const_t<std::remove_pointer_t<std::remove_reference_t<decltype(F::value(r))>>>;
        const size_t start = offset_;
        unsigned count = 0;
        for (;;) {
            uint32_t len;
            if (length(len) != MIVO_NO_ERROR) {
                return MIVO_ERROR_GARBLED;
            }
            offset_ += len;
            if (++count == UINT_MAX) {
                return MIVO_ERROR_GARBLED; // the count would not fit its member
            }
            const int more = run_continues<F>();
            if (more < 0) {
                return more;
            }
            if (more == 0) {
                break;
            }
        }
        offset_ = start;
        auto *array = static_cast<E *>(allocate_array<E>(count));
        if (array == nullptr) {
            return MIVO_ERROR_ALLOC_FAILED;
        }
        // Null until filled, so a failure half-way is released cleanly.
        std::memset(static_cast<void *>(array), 0, sizeof(E) * count);
        F::value(r) = array;
        F::count(r) = count;
        for (unsigned i = 0; i < count; ++i) {
            if (i != 0) {
                // Only an allocation can fail from here on.
                skip_key<F>();
            }
            const int rc = read<K>(array[i]);
            if (rc != MIVO_NO_ERROR) {
                return rc;
            }
        }
        F::mark(r, true);
        return MIVO_NO_ERROR;
    }

    // A field whose key has been matched to the member, wire type included.
    template <class F, class R>
    int value(R &r)
    {
        using K = typename F::kind;
        if constexpr (K::repeated) {
            return repeated<F>(r);
        } else {
            auto &value = F::value(r);
            if constexpr (K::elem == element::string) {
                if (value != nullptr) {
                    return MIVO_ERROR_GARBLED;
                }
                if (alloc_ == nullptr) {
                    return MIVO_ERROR_ALLOC_FAILED;
                }
            } else if constexpr (K::elem == element::bytes) {
                if (value.data != nullptr) {
                    return MIVO_ERROR_GARBLED;
                }
                if (!shared() && alloc_ == nullptr) {
                    return MIVO_ERROR_ALLOC_FAILED;
                }
            }
            const int rc = read<K>(value);
            if (rc != MIVO_NO_ERROR) {
                return rc;
            }
            F::mark(r, true);
            return MIVO_NO_ERROR;
        }
    }

    const uint8_t *src_;
    size_t size_;
    size_t offset_ = 0;
    mivo_alloc_t *alloc_;
    void *token_;
    mivo_flags flags_;
};

// The catalogue's entry point: every member back to its default first.
template <class R>
int decode(R &dest, const uint8_t *source, size_t size, mivo_alloc_t *alloc, void *token, mivo_flags flags)
{
    description<R>::init(&dest);
    decoder d(source, size, alloc, token, flags);
    return d.fields(dest);
}

} // namespace nuvex
