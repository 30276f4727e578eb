// How a record is described to the codec: its members in order, each with a
// kind and generic accessors, numbered by position at compile time. The four
// operations are written once over these descriptions and instantiated per
// record, so every entry point is straight-line code with constant keys.
#pragma once

#include <bit>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <utility>

#include "nuvex.h"
#include "nuvex/kinds.hpp"

namespace nuvex {

template <element E, bool Repeated>
struct kind_of {
    static constexpr element elem = E;
    static constexpr bool repeated = Repeated;
    static constexpr unsigned wire_type = nuvex::wire_type(E);
};

// The kind names used by the field lists.
namespace kind {
#define NUVEX_KIND_ALIAS(NAME, word, elem, repeated, ...) using NAME = kind_of<element::elem, repeated>;
NUVEX_KINDS(NUVEX_KIND_ALIAS)
#undef NUVEX_KIND_ALIAS
} // namespace kind

// A member with its field number; Member supplies kind, label and accessors.
template <unsigned Number, class Member>
struct field : Member {
    static_assert(Number >= 1 && Number <= 31, "keys are written with at most two bytes");
    static constexpr unsigned number = Number;
    static constexpr uint8_t key = static_cast<uint8_t>(Number << 3 | Member::kind::wire_type);
};

template <class... Fields>
struct field_list {
    static constexpr unsigned size = sizeof...(Fields);
};

template <class Sequence, class... Members>
struct numbered;
template <std::size_t... I, class... Members>
struct numbered<std::index_sequence<I...>, Members...> {
    using type = field_list<field<static_cast<unsigned>(I + 1), Members>...>;
};

template <class Record, class... Members>
struct record_description {
    using record = Record;
    using fields = typename numbered<std::index_sequence_for<Members...>, Members...>::type;
};

// Copies n bytes; short strings (names, versions) are copied inline with
// overlapping fixed-size moves instead of a call into the C library. Every
// operation copies strings, so they all share it.
inline void copy_bytes(uint8_t *d, const void *source, size_t n)
{
    const auto *s = static_cast<const uint8_t *>(source);
    if (n > 32) {
        std::memcpy(d, s, n);
    } else if (n >= 16) {
        std::memcpy(d, s, 16);
        std::memcpy(d + n - 16, s + n - 16, 16);
    } else if (n >= 8) {
        std::memcpy(d, s, 8);
        std::memcpy(d + n - 8, s + n - 8, 8);
    } else if (n >= 4) {
        std::memcpy(d, s, 4);
        std::memcpy(d + n - 4, s + n - 4, 4);
    } else if (n != 0) {
        d[0] = s[0];
        d[n / 2] = s[n / 2];
        d[n - 1] = s[n - 1];
    }
}

// Specialised for every record by NUVEX_DESCRIBE_RECORD.
template <class Record>
struct description;

// Calls fn.template operator()<Field>() for every field, in order.
template <class Record, class Fn>
constexpr void for_each_field(Fn &&fn)
{
    [&]<class... F>(field_list<F...>) { (fn.template operator()<F>(), ...); }(typename description<Record>::fields{});
}

// The presence flags are 1-bit fields after the last member, one per member
// in member order, packed from the lowest bit of the first byte after it.
// Code that reads them as one word relies on that; the checks below make a
// record laid out otherwise fail to build instead of coding wrong bytes.
template <class R>
constexpr size_t flags_offset()
{
    return []<class... F>(field_list<F...>) {
        size_t end = 0;
        ((end = F::template end<R>()), ...);
        return end;
    }(typename description<R>::fields{});
}

template <class R>
constexpr bool flags_follow_members()
{
    constexpr size_t n = description<R>::fields::size;
    constexpr size_t flag_bytes = (n + 7) / 8;
    constexpr size_t used = flags_offset<R>() + flag_bytes;
    const bool in_order = []<class... F>(field_list<F...>) {
        size_t last = 0;
        bool ok = true;
        ((ok = ok && F::template offset<R>() >= last, last = F::template end<R>()), ...);
        return ok;
    }(typename description<R>::fields{});
    return in_order && n <= 64 && (used + alignof(R) - 1) / alignof(R) * alignof(R) == sizeof(R);
}

// Every presence flag of a record as one word, bit i for member i + 1.
template <class R>
inline uint64_t presence(const R &r)
{
    static_assert(flags_follow_members<R>(), "presence flags must be the bits right after the last member");
    constexpr size_t n = description<R>::fields::size;
    constexpr size_t off = flags_offset<R>();
    constexpr size_t avail = sizeof(R) - off < 8 ? sizeof(R) - off : 8;
    uint64_t word = 0;
    std::memcpy(&word, reinterpret_cast<const unsigned char *>(&r) + off, avail);
    static_assert(std::endian::native == std::endian::little, "flag bits are read as a little-endian word");
    return n == 64 ? word : word & ((uint64_t{1} << n) - 1);
}

} // namespace nuvex

// Generic accessors for one member, usable on any record that has it.
#define NUVEX_ACCESSOR(rec, KIND, name, ctype)                                              \
    struct f_##name {                                                                       \
        using kind = ::nuvex::kind::KIND;                                                   \
        static constexpr const char *label = #name;                                         \
        static constexpr const char *kind_name = #KIND;                                     \
        template <class R> static constexpr auto &value(R &r) { return r._##name; }         \
        template <class R> static constexpr auto &count(R &r) { return r._##name##_count; } \
        template <class R> static constexpr bool present(const R &r) { return r._have_##name; } \
        template <class R> static constexpr void mark(R &r, bool on) { r._have_##name = on; } \
        template <class R> static constexpr size_t offset() { return offsetof(R, _##name); } \
        template <class R> static constexpr size_t end()                                    \
        {                                                                                   \
            if constexpr (kind::repeated) {                                                 \
                return offsetof(R, _##name##_count) + sizeof(unsigned int);                 \
            } else {                                                                        \
                return offsetof(R, _##name) + sizeof(R::_##name);                           \
            }                                                                               \
        }                                                                                   \
    };
#define NUVEX_LIST_ENTRY(rec, KIND, name, ctype) , nuvex_members::rec::f_##name

#define NUVEX_DESCRIBE_RECORD(rec, FIELDS)                                                          \
    namespace nuvex_members::rec {                                                                  \
    FIELDS(NUVEX_ACCESSOR, rec)                                                                     \
    }                                                                                               \
    template <>                                                                                     \
    struct nuvex::description<struct rec>                                                           \
        : nuvex::record_description<struct rec FIELDS(NUVEX_LIST_ENTRY, rec)> {                    \
        static void init(struct rec *r) { rec##_init(r); }                                          \
    };                                                                                              \
    static_assert(nuvex::flags_follow_members<struct rec>(), "flags of " #rec " out of place");
