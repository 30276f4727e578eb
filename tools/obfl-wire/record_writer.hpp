// Record -> JSON text, written member by member as the record is walked.
#pragma once

#include <cstring>

#include "json_out.hpp"
#include "names.hpp"
#include "record_json.hpp"

namespace obfl_wire {

template <class R>
void write_record(json_out &out, const R &r, const json_options &o);

template <class F, class V>
void write_element(json_out &out, const V &v, const json_options &o)
{
    using nuvex::element;
    constexpr auto e = F::kind::elem;
    if constexpr (e == element::string) {
        out.string(v == nullptr ? "" : v);
    } else if constexpr (e == element::bytes) {
        std::string &text = out.text();
        out.literal("\"");
        if (v.data != nullptr) {
            const std::span<const uint8_t> b(static_cast<const uint8_t *>(v.data), v.size);
            o.hex_bytes ? append_plain_hex(text, b) : append_base64(text, b);
        }
        text += '"';
    } else if constexpr (e == element::external || e == element::message) {
        write_record(out, v, o);
    } else if constexpr (e == element::boolean) {
        out.boolean(v != 0);
    } else if constexpr (e == element::varint64) {
        char buf[24];
        const auto end = std::to_chars(buf, buf + sizeof buf, v).ptr;
        out.string(std::string_view(buf, static_cast<size_t>(end - buf)));
    } else if constexpr (std::is_enum_v<V>) {
        if (!o.proto_json) {
            for (const constant &c : enum_info<V>::constants) {
                if (c.value == static_cast<uint32_t>(v)) {
                    out.string(c.name);
                    return;
                }
            }
        }
        out.number(static_cast<uint32_t>(v));
    } else {
        out.number(v);
    }
}

template <class R>
void write_record(json_out &out, const R &r, const json_options &o)
{
    out.begin_object();
    nuvex::for_each_field<R>([&]<class F>() {
        if (!F::present(r)) {
            return;
        }
        static const std::string camel = camel_case(F::label);
        const auto &v = F::value(r);
        if constexpr (F::kind::elem == nuvex::element::string && !F::kind::repeated) {
            if (v == nullptr) { // a present null string is not sent either
                return;
            }
        }
        out.key(o.proto_json ? std::string_view(camel) : std::string_view(F::label));
        if constexpr (F::kind::repeated) {
            out.begin_array();
            for (unsigned i = 0; v != nullptr && i < F::count(r); ++i) {
                write_element<F>(out, v[i], o);
            }
            out.end_array();
        } else {
            write_element<F>(out, v, o);
        }
    });
    out.end_object();
}

} // namespace obfl_wire
