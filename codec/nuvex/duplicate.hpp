// The duplicator, written once for every record: a deep copy into fresh
// memory from the caller's allocator. It never stops early; a failed member
// is left empty (so the copy can always be released) and the failure is
// remembered in the result.
#pragma once

#include <cstring>
#include <type_traits>

#include "nuvex/description.hpp"
#include "nuvex/external.hpp"
#include "nuvex/memory.hpp"
#include "nuvex/shape.hpp"

namespace nuvex {

class duplicator {
public:
    duplicator(mivo_alloc_t *alloc, void *token) : alloc_(alloc), token_(token) {}

    int result() const { return result_; }

    // A record of numbers, nested records of numbers included, is its own
    // copy: one block copy does every value and every flag.
    template <class R>
    void fields(R &dest, const R &source)
    {
        if constexpr (shape<R>::plain) {
            std::memcpy(static_cast<void *>(&dest), &source, sizeof(R));
        } else {
            for_each_field<R>([&]<class F>() { member<F>(dest, source); });
        }
    }

private:
    // A null allocator behaves as one that always fails.
    void *allocate(size_t size) { return alloc_ != nullptr ? alloc_(size, token_) : nullptr; }

    void failed() { result_ = MIVO_ERROR_ALLOC_FAILED; }

    // Copies one string; false when its memory could not be had.
    bool string(mivo_string_t &dest, mivo_string_t source)
    {
        const size_t len = std::strlen(source) + 1;
        auto *copy = static_cast<char *>(allocate(len));
        dest = copy;
        if (copy == nullptr) {
            failed();
            return false;
        }
        memory::copy_bytes(reinterpret_cast<uint8_t *>(copy), source, len);
        return true;
    }

    // Copies one byte string; empty ones take no memory.
    bool bytes(mivo_bytes &dest, const mivo_bytes &source)
    {
        dest.data = nullptr;
        dest.size = 0;
        if (source.size == 0) {
            return true;
        }
        auto *copy = static_cast<uint8_t *>(allocate(source.size));
        if (copy == nullptr) {
            failed();
            return false;
        }
        std::memcpy(copy, source.data, source.size);
        dest.data = copy;
        dest.size = source.size;
        return true;
    }

    template <class F, class R>
    void repeated(R &dest, const R &source)
    {
        using K = typename F::kind;
        using E = std::remove_const_t<std::remove_pointer_t<std::remove_reference_t<decltype(F::value(dest))>>>;
        const unsigned count = F::count(source);
        F::value(dest) = nullptr;
        F::count(dest) = 0;
        if (count == 0) {
            F::mark(dest, F::present(source));
            return;
        }
        auto *array = static_cast<E *>(allocate(sizeof(E) * count));
        if (array == nullptr) {
            F::mark(dest, false);
            failed();
            return;
        }
        const E *from = F::value(source);
        if constexpr (K::elem == element::string) {
            // A failed or null element stays null; the list itself survives.
            for (unsigned i = 0; i < count; ++i) {
                if (from[i] == nullptr) {
                    array[i] = nullptr;
                } else {
                    string(array[i], from[i]);
                }
            }
        } else if constexpr (K::elem == element::bytes) {
            for (unsigned i = 0; i < count; ++i) {
                bytes(array[i], from[i]);
            }
        } else {
            if constexpr (K::elem == element::message) {
                static_assert(shape<E>::plain, "nested records hold numbers alone: an array of them is one block");
            }
            std::memcpy(static_cast<void *>(array), from, sizeof(E) * count);
        }
        F::value(dest) = array;
        F::count(dest) = count;
        F::mark(dest, F::present(source));
    }

    template <class F, class R>
    void member(R &dest, const R &source)
    {
        using K = typename F::kind;
        auto &to = F::value(dest);
        const auto &from = F::value(source);
        if constexpr (K::repeated) {
            repeated<F>(dest, source);
        } else if constexpr (K::elem == element::external) {
            F::mark(dest, F::present(source));
            const int rc = external_codec<std::remove_cvref_t<decltype(to)>>::duplicate(to, from, alloc_, token_);
            if (rc != MIVO_NO_ERROR && result_ == MIVO_NO_ERROR) {
                result_ = rc;
            }
        } else if constexpr (K::elem == element::string) {
            if (from == nullptr) {
                to = nullptr;
                F::mark(dest, F::present(source));
            } else {
                F::mark(dest, string(to, from) && F::present(source));
            }
        } else if constexpr (K::elem == element::bytes) {
            F::mark(dest, bytes(to, from) && F::present(source));
        } else {
            static_assert(K::elem != element::message,
                          "records nest by value only inside records of numbers, which are copied as one block");
            to = from;
            F::mark(dest, F::present(source));
        }
    }

    mivo_alloc_t *alloc_;
    void *token_;
    int result_ = MIVO_NO_ERROR;
};

template <class R>
int duplicate(R &dest, const R &source, mivo_alloc_t *alloc, void *token)
{
    duplicator d(alloc, token);
    d.fields(dest, source);
    return d.result();
}

} // namespace nuvex
