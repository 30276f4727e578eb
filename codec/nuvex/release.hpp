// The release operation, written once for every record: hands back what a
// decode or a copy allocated and nulls the pointers it handed back, so a
// half-decoded record and a second release are both safe.
#pragma once

#include <type_traits>

#include "nuvex/description.hpp"
#include "nuvex/external.hpp"

namespace nuvex {

class releaser {
public:
    releaser(mivo_free_t *free, void *token, mivo_flags flags) : free_(free), token_(token), flags_(flags) {}

    template <class R>
    void fields(R &r)
    {
        for_each_field<R>([&]<class F>() { member<F>(r); });
    }

private:
    // Byte strings of a shared decode point into the caller's input.
    bool owns_bytes() const { return (flags_ & MIVO_FLAG_SHARED) == 0; }

    void give(const void *p)
    {
        if (p != nullptr) {
            free_(const_cast<void *>(p), token_);
        }
    }

    template <class F, class R>
    void member(R &r)
    {
        using K = typename F::kind;
        auto &value = F::value(r);
        if constexpr (K::repeated) {
            if (value == nullptr) {
                return;
            }
            using E = std::remove_const_t<std::remove_pointer_t<std::remove_reference_t<decltype(value)>>>;
            auto *array = const_cast<E *>(value);
            if constexpr (K::elem == element::string) {
                for (unsigned i = 0; i < F::count(r); ++i) {
                    give(array[i]);
                }
            } else if constexpr (K::elem == element::bytes) {
                if (owns_bytes()) {
                    for (unsigned i = 0; i < F::count(r); ++i) {
                        give(array[i].data);
                    }
                }
            } else if constexpr (K::elem == element::message) {
                for (unsigned i = 0; i < F::count(r); ++i) {
                    fields(array[i]);
                }
            }
            give(array);
            value = nullptr;
            // A number array keeps its count, as its users expect; lists of
            // owned contents forget it so nothing can reach freed memory.
            if constexpr (K::elem == element::string || K::elem == element::bytes || K::elem == element::message) {
                F::count(r) = 0;
            }
        } else if constexpr (K::elem == element::external) {
            external_codec<std::remove_cvref_t<decltype(value)>>::release(value, free_, token_, flags_);
        } else if constexpr (K::elem == element::message) {
            fields(value);
        } else if constexpr (K::elem == element::string) {
            give(value);
            value = nullptr;
        } else if constexpr (K::elem == element::bytes) {
            if (owns_bytes() && value.data != nullptr) {
                give(value.data);
                value.data = nullptr;
            }
        }
    }

    mivo_free_t *free_;
    void *token_;
    mivo_flags flags_;
};

template <class R>
void release(R &r, mivo_free_t *free, void *token, mivo_flags flags)
{
    releaser(free, token, flags).fields(r);
}

} // namespace nuvex
