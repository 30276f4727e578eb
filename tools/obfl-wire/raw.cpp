#include "raw.hpp"

#include "json_out.hpp"

namespace obfl_wire {
namespace {

// Nested fields beyond this depth are shown as bytes (and groups refused):
// input of a few bytes per level could otherwise nest deep enough to exhaust
// the stack.
constexpr unsigned max_depth = 32;

bool is_text(std::string_view s)
{
    for (char c : s) {
        if (static_cast<unsigned char>(c) < 0x20 && c != '\n' && c != '\r' && c != '\t') {
            return false;
        }
    }
    return valid_utf8(s);
}

struct raw_reader {
    std::span<const uint8_t> input;
    const json_options &options;
    std::string error;

    bool fail(size_t at, const std::string &what)
    {
        error = "at byte " + std::to_string(at) + ": " + what;
        return false;
    }

    // A varint of at most ten bytes and 64 bits at pos, below end; a fault
    // is told at the field's offset.
    bool varint(size_t &pos, size_t end, uint64_t &value, const char *what, size_t start)
    {
        value = 0;
        for (unsigned i = 0;; ++i) {
            if (pos >= end) {
                return fail(start, std::string(what) + " runs past the end of the input");
            }
            if (i == 10) {
                return fail(start, std::string(what) + " is longer than ten bytes");
            }
            const uint64_t group = input[pos] & 0x7Fu;
            if (i == 9 && group > 1) {
                return fail(start, std::string(what) + " holds more than 64 bits");
            }
            value |= group << (7 * i);
            if ((input[pos++] & 0x80u) == 0) {
                return true;
            }
        }
    }

    // The fields from pos to end as a JSON array, or up to the end of group
    // `group` (0: none open).
    bool fields(json_out &out, size_t &pos, size_t end, uint32_t group, size_t group_at, unsigned depth)
    {
        out.begin_array();
        while (pos < end) {
            const size_t at = pos;
            uint64_t key;
            if (!varint(pos, end, key, "the key", at)) {
                return false;
            }
            if (key > UINT32_MAX) {
                return fail(at, "the key holds more than 32 bits");
            }
            const auto number = static_cast<uint32_t>(key >> 3);
            const auto type = static_cast<unsigned>(key & 7);
            if (number == 0) {
                return fail(at, "field number 0 is not valid");
            }
            if (type == 6 || type == 7) {
                return fail(at, "wire type " + std::to_string(type) + " is not valid");
            }
            if (type == 4) {
                if (number != group) {
                    return fail(at, "the end of group " + std::to_string(number) + " without its start");
                }
                out.end_array();
                return true;
            }
            out.begin_object();
            out.key("field");
            out.number(number);
            out.key("wire_type");
            out.number(type);
            out.key("offset");
            out.number(at);
            if (!value(out, pos, end, number, type, at, depth)) {
                return false;
            }
            out.end_object();
        }
        if (group != 0) {
            return fail(group_at, "group " + std::to_string(group) + " has no end");
        }
        out.end_array();
        return true;
    }

    bool value(json_out &out, size_t &pos, size_t end, uint32_t number, unsigned type, size_t at, unsigned depth)
    {
        if (type == 0) {
            uint64_t v;
            if (!varint(pos, end, v, "the varint", at)) {
                return false;
            }
            decimal(out, "varint", v);
            // The pattern of a negative 32-bit number: five bytes, or ten sign-extended.
            if ((v >= 0x80000000u && v <= 0xFFFFFFFFu) || v >= 0xFFFFFFFF80000000u) {
                out.key("int32");
                out.number(static_cast<int32_t>(static_cast<uint32_t>(v)));
            }
        } else if (type == 1 || type == 5) {
            const size_t width = type == 1 ? 8 : 4;
            if (end - pos < width) {
                return fail(at, std::string(type == 1 ? "the fixed64" : "the fixed32") +
                                    " value runs past the end of the input");
            }
            uint64_t v = 0;
            for (size_t i = width; i-- > 0;) {
                v = v << 8 | input[pos + i];
            }
            pos += width;
            if (type == 1) {
                decimal(out, "fixed64", v);
            } else {
                out.key("fixed32");
                out.number(v);
            }
        } else if (type == 2) {
            uint64_t length;
            if (!varint(pos, end, length, "the length", at)) {
                return false;
            }
            if (length > end - pos) {
                return fail(at, "length " + std::to_string(length) + " runs past the end of the input (" +
                                    std::to_string(end - pos) + " bytes left)");
            }
            const auto payload = input.subspan(pos, static_cast<size_t>(length));
            pos += static_cast<size_t>(length);
            // A nested message where the bytes are one, as protoc --decode_raw shows them.
            std::string nested;
            json_out inner(nested, false);
            size_t p = static_cast<size_t>(payload.data() - input.data());
            const std::string kept = error;
            if (!payload.empty() && depth < max_depth && fields(inner, p, p + payload.size(), 0, 0, depth + 1)) {
                out.key("message");
                out.literal(nested);
                return true;
            }
            error = kept;
            const std::string_view s(reinterpret_cast<const char *>(payload.data()), payload.size());
            if (is_text(s)) {
                out.key("string");
                out.string(s);
            } else {
                out.key("bytes");
                out.literal("\"");
                options.hex_bytes ? append_plain_hex(out.text(), payload) : append_base64(out.text(), payload);
                out.text() += '"';
            }
        } else {
            if (depth >= max_depth) {
                return fail(at, "groups nested deeper than " + std::to_string(max_depth) + " levels");
            }
            out.key("group");
            return fields(out, pos, end, number, at, depth + 1);
        }
        return true;
    }

    static void decimal(json_out &out, const char *key, uint64_t v)
    {
        char b[24];
        const auto e = std::to_chars(b, b + sizeof b, v).ptr;
        out.key(key);
        out.string(std::string_view(b, static_cast<size_t>(e - b)));
    }
};

} // namespace

bool raw_json(std::span<const uint8_t> bytes, const json_options &options, std::string &out, std::string &error)
{
    raw_reader r{bytes, options, {}};
    std::string text;
    json_out j(text, false);
    size_t pos = 0;
    if (!r.fields(j, pos, bytes.size(), 0, 0, 0)) {
        error = r.error;
        return false;
    }
    out += options.pretty ? json::parse(text).dump(2) : text;
    return true;
}

} // namespace obfl_wire
