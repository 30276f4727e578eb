#include "unknown.hpp"

#include "nuvex_encode.h"
#include "wire_walk.hpp"

namespace obfl_wire {
namespace {

void collect(std::span<const uint8_t> input, std::span<const uint8_t> bytes, size_t base, const record_schema &schema,
             const json_options &o, json &obj, bool &any)
{
    wire_fault fault;
    walk(bytes, base, &schema, [&](const wire_field &f) {
        if (f.member == nullptr) {
            const size_t from = f.offset + f.key.size;
            const size_t to = std::min(f.end, input.size());
            std::string value;
            const auto b = input.subspan(from, to - from);
            o.hex_bytes ? append_plain_hex(value, b) : append_base64(value, b);
            obj[unknown_key].push_back(json{{"field", f.number}, {"wire_type", f.type}, {"bytes", value}});
            any = true;
        } else if (f.member->nested != nullptr) {
            auto it = obj.find(o.proto_json ? f.member->camel : f.member->name);
            if (it == obj.end()) {
                return;
            }
            json *sub = &*it;
            if (f.member->repeated) {
                if (!sub->is_array() || f.index >= sub->size()) {
                    return;
                }
                sub = &(*sub)[f.index];
            }
            const size_t at = static_cast<size_t>(f.payload.data() - input.data());
            collect(input, f.payload, at, *f.member->nested, o, *sub, any);
        }
    }, fault);
}

void put_varint(std::vector<uint8_t> &out, uint64_t v)
{
    uint8_t b[10];
    out.insert(out.end(), b, b + nuvex_encode_var64(v, 0, b, sizeof b));
}

// Whether bytes are exactly one value of the wire type.
bool whole_value(std::span<const uint8_t> b, uint64_t type)
{
    if (type == 1 || type == 5) {
        return b.size() == (type == 1 ? 8u : 4u);
    }
    const varint_bytes v = varint_at(b, 0);
    const bool one = !b.empty() && v.size <= 10 && (b[v.size - 1] & 0x80) == 0;
    return type == 0 ? one && v.size == b.size() : one && !v.over_64 && v.value == b.size() - v.size;
}

struct writer {
    const json_options &o;
    std::string &error;

    bool fail(const std::string &path, const std::string &what)
    {
        error = path + ": " + what;
        return false;
    }

    bool entry(const json &e, const record_schema &schema, const std::string &path, std::vector<uint8_t> &out)
    {
        const auto number = e.is_object() ? e.find("field") : e.end();
        const auto type = e.is_object() ? e.find("wire_type") : e.end();
        const auto bytes = e.is_object() ? e.find("bytes") : e.end();
        if (number == e.end() || type == e.end() || bytes == e.end() || e.size() != 3) {
            return fail(path, "expected an object of field, wire_type and bytes, got " + brief(e));
        }
        if (!number->is_number_unsigned() || number->get<uint64_t>() > 0x1FFFFFFF) {
            return fail(path + ".field", brief(*number) + " is no field number (0 to 536870911)");
        }
        const uint64_t n = number->get<uint64_t>();
        if (const field_schema *m = schema.field(static_cast<uint32_t>(n)); m != nullptr) {
            return fail(path + ".field", std::to_string(n) + " is the member " + m->name);
        }
        if (!type->is_number_unsigned() || type->get<uint64_t>() > 5 || type->get<uint64_t>() == 3 ||
            type->get<uint64_t>() == 4) {
            return fail(path + ".wire_type", brief(*type) + " is not 0, 1, 2 or 5");
        }
        const uint64_t t = type->get<uint64_t>();
        std::vector<uint8_t> hex;
        std::vector<unsigned char> b64;
        const bool read = bytes->is_string() && (o.hex_bytes ? parse_hex(bytes->get_ref<const std::string &>(), hex)
                                                             : from_base64(bytes->get_ref<const std::string &>(), b64));
        if (!read) {
            return fail(path + ".bytes", brief(*bytes) + " is not " + (o.hex_bytes ? "hex" : "base64"));
        }
        const std::span<const uint8_t> value = o.hex_bytes ? std::span<const uint8_t>(hex) : std::span<const uint8_t>(b64);
        if (!whole_value(value, t)) {
            return fail(path + ".bytes", "not one whole value of wire type " + std::to_string(t));
        }
        put_varint(out, n << 3 | t);
        out.insert(out.end(), value.begin(), value.end());
        return true;
    }

    // The record's fields from bytes, nested records rewritten where their
    // JSON holds unknown fields, then its own list.
    bool record(std::span<const uint8_t> bytes, const record_schema &schema, const json &obj, const std::string &path,
                std::vector<uint8_t> &out)
    {
        bool ok = true;
        wire_fault fault;
        walk(bytes, 0, &schema, [&](const wire_field &f) {
            const json *sub = nullptr;
            if (ok && f.member != nullptr && f.member->nested != nullptr && obj.is_object()) {
                auto it = obj.find(f.member->name);
                it = it == obj.end() ? obj.find(f.member->camel) : it;
                sub = it == obj.end() ? nullptr : &*it;
                if (sub != nullptr && f.member->repeated) {
                    sub = sub->is_array() && f.index < sub->size() ? &(*sub)[f.index] : nullptr;
                }
            }
            if (!ok || sub == nullptr || !has_unknown(*sub)) {
                out.insert(out.end(), bytes.begin() + static_cast<std::ptrdiff_t>(f.offset),
                           bytes.begin() + static_cast<std::ptrdiff_t>(f.end));
                return;
            }
            std::string name = path + f.member->name;
            if (f.member->repeated) {
                name += '[';
                name += std::to_string(f.index);
                name += ']';
            }
            std::vector<uint8_t> payload;
            ok = record(f.payload, *f.member->nested, *sub, name + ".", payload);
            out.insert(out.end(), bytes.begin() + static_cast<std::ptrdiff_t>(f.offset),
                       bytes.begin() + static_cast<std::ptrdiff_t>(f.offset + f.key.size));
            put_varint(out, payload.size());
            out.insert(out.end(), payload.begin(), payload.end());
        }, fault);
        const auto list = obj.is_object() ? obj.find(unknown_key) : obj.end();
        if (!ok || list == obj.end() || list->is_null()) {
            return ok;
        }
        const std::string where = path + std::string(unknown_key);
        if (!list->is_array()) {
            return fail(where, "expected an array, got " + brief(*list));
        }
        for (size_t i = 0; i < list->size(); ++i) {
            if (!entry((*list)[i], schema, where + "[" + std::to_string(i) + "]", out)) {
                return false;
            }
        }
        return true;
    }
};

} // namespace

bool add_unknown(std::span<const uint8_t> bytes, const record_schema &schema, const json_options &options, json &doc)
{
    bool any = false;
    collect(bytes, bytes, 0, schema, options, doc, any);
    return any;
}

bool has_unknown(const json &doc)
{
    if (doc.is_array()) {
        for (const json &e : doc) {
            if (has_unknown(e)) {
                return true;
            }
        }
    } else if (doc.is_object()) {
        for (auto it = doc.begin(); it != doc.end(); ++it) {
            if (it.key() == unknown_key || has_unknown(it.value())) {
                return true;
            }
        }
    }
    return false;
}

bool write_unknown(std::vector<uint8_t> &bytes, const record_schema &schema, const json &doc,
                   const json_options &options, std::string &error)
{
    std::vector<uint8_t> out;
    out.reserve(bytes.size());
    if (!writer{options, error}.record(bytes, schema, doc, "", out)) {
        return false;
    }
    bytes = std::move(out);
    return true;
}

} // namespace obfl_wire
