// The records' members as run-time tables (number, names, kind), for the
// code that walks wire bytes field by field rather than record by record.
#pragma once

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
};

struct record_schema {
    std::string name;
    std::vector<field_schema> fields; // fields[i].number == i + 1
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
            const record_schema *nested = nullptr;
            if constexpr (F::kind::elem == nuvex::element::external || F::kind::elem == nuvex::element::message) {
                nested = &schema_of<element_t<R, F>>();
            }
            s.fields.push_back({F::number, F::label, camel_case(F::label), F::kind::elem, F::kind::repeated,
                                F::kind::wire_type, nested});
        });
        return s;
    }();
    return schema;
}

} // namespace obfl_wire
