// How a record is described to the codec: its members in order, each with a
// kind and generic accessors, numbered by position at compile time. The four
// operations are written once over these descriptions and instantiated per
// record, so every entry point is straight-line code with constant keys.
#pragma once

#include <cstddef>
#include <cstdint>
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

// A member with its field number and key; Member supplies kind, label and
// accessors.
template <unsigned Number, class Member>
struct field : Member {
    static_assert(Number >= 1 && Number <= 31, "keys are written with at most two bytes");
    static constexpr unsigned number = Number;
    static constexpr uint32_t key = field_key(Number, Member::kind::elem);
    static constexpr unsigned key_size = key < 0x80u ? 1 : 2;
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

// Specialised for every record by NUVEX_DESCRIBE_RECORD.
template <class Record>
struct description;

// Calls fn.template operator()<Field>() for every field, in order.
template <class Record, class Fn>
constexpr void for_each_field(Fn &&fn)
{
    [&]<class... F>(field_list<F...>) { (fn.template operator()<F>(), ...); }(typename description<Record>::fields{});
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
    };
