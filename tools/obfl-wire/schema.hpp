// The records' members as run-time tables (number, names, kind), for the
// code that walks wire bytes field by field rather than record by record.
#pragma once

#include <span>
#include <string>
#include <vector>

#include "names.hpp"

namespace obfl_wire {

struct record_schema;

struct field_schema {
    unsigned number;
    std::string name;  // "client_id"
    std::string camel; // "clientId"
    nuvex::element elem;
    bool repeated;
    unsigned wire_type;
    const record_schema *nested; // the record of an eid or nested member
    const char *scalar;          // "uint32", "int32", "uint64", "enum"; null for other kinds
    bool int32;                  // a signed 32-bit member
    const char *enumeration;     // an enumeration member's enumeration, else null
    std::span<const constant> constants;
};

struct record_schema {
    std::string name;
    std::vector<field_schema> fields; // fields[i].number == i + 1, at most 31 of them
    const field_schema *field(uint32_t number) const
    {
        return number >= 1 && number <= fields.size() ? &fields[number - 1] : nullptr;
    }
};

template <class R>
const record_schema &schema_of()
{
    static const record_schema schema = [] {
        record_schema s{short_name(record_name<R>::value), {}};
        nuvex::for_each_field<R>([&]<class F>() {
            using E = element_t<R, F>;
            const record_schema *nested = nullptr;
            const char *scalar = nullptr;
            const char *enumeration = nullptr;
            std::span<const constant> constants;
            if constexpr (F::kind::elem == nuvex::element::external || F::kind::elem == nuvex::element::message) {
                nested = &schema_of<E>();
            } else if constexpr (F::kind::elem == nuvex::element::varint32 || F::kind::elem == nuvex::element::varint64) {
                scalar = scalar_name<E>();
            }
            if constexpr (std::is_enum_v<E>) {
                enumeration = enum_info<E>::name;
                constants = enum_info<E>::constants;
            }
            s.fields.push_back({F::number, F::label, camel_case(F::label), F::kind::elem, F::kind::repeated,
                                F::kind::wire_type, nested, scalar, std::is_same_v<E, int32_t>, enumeration, constants});
        });
        return s;
    }();
    return schema;
}

} // namespace obfl_wire
