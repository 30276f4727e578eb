#include "raw.hpp"

#include "json_out.hpp"

namespace obfl_wire {
namespace {

bool is_text(std::string_view s)
{
    for (char c : s) {
        if (static_cast<unsigned char>(c) < 0x20 && c != '\n' && c != '\r' && c != '\t') {
            return false;
        }
    }
    return valid_utf8(s);
}

// One field as the wire format has it; a length-delimited value as its span.
struct field {
    size_t at;
    uint32_t number;
    unsigned type;
    uint64_t value;                   // a varint or fixed-width value
    std::span<const uint8_t> payload; // a length-delimited value
};

// Each level is read twice: once to see that it is a message (scan), then
// to write it (write), so that the JSON goes out while the bytes are walked
// and a field is shown as a message only where the whole of it is one.
struct raw_reader {
    std::span<const uint8_t> input;
    raw_output &out;
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

    // The field at pos, below end; pos moves past its value (past its key
    // for a group's start or end).
    bool next(size_t &pos, size_t end, field &f)
    {
        f = {pos, 0, 0, 0, {}};
        uint64_t key;
        if (!varint(pos, end, key, "the key", f.at)) {
            return false;
        }
        if (key > UINT32_MAX) {
            return fail(f.at, "the key holds more than 32 bits");
        }
        f.number = static_cast<uint32_t>(key >> 3);
        f.type = static_cast<unsigned>(key & 7);
        if (f.number == 0) {
            return fail(f.at, "field number 0 is not valid");
        }
        if (f.type == 6 || f.type == 7) {
            return fail(f.at, "wire type " + std::to_string(f.type) + " is not valid");
        }
        if (f.type == 0) {
            return varint(pos, end, f.value, "the varint", f.at);
        }
        if (f.type == 1 || f.type == 5) {
            const size_t width = f.type == 1 ? 8 : 4;
            if (end - pos < width) {
                return fail(f.at, std::string(f.type == 1 ? "the fixed64" : "the fixed32") +
                                      " value runs past the end of the input");
            }
            for (size_t i = width; i-- > 0;) {
                f.value = f.value << 8 | input[pos + i];
            }
            pos += width;
        } else if (f.type == 2) {
            uint64_t length;
            if (!varint(pos, end, length, "the length", f.at)) {
                return false;
            }
            if (length > end - pos) {
                return fail(f.at, "length " + std::to_string(length) + " runs past the end of the input (" +
                                      std::to_string(end - pos) + " bytes left)");
            }
            f.payload = input.subspan(pos, static_cast<size_t>(length));
            pos += static_cast<size_t>(length);
        }
        return true;
    }

    // Whether pos to end holds fields (or the rest of group `group`, 0 for
    // none), groups within checked to their end; pos ends past them.
    bool scan(size_t &pos, size_t end, uint32_t group, size_t group_at, unsigned depth)
    {
        field f;
        while (pos < end) {
            if (!next(pos, end, f)) {
                return false;
            }
            if (f.type == 4) {
                return f.number == group || fail(f.at, "the end of group " + std::to_string(f.number) + " without its start");
            }
            if (f.type == 3 && depth >= raw_depth_limit) {
                return fail(f.at, "groups nested deeper than " + std::to_string(raw_depth_limit) + " levels");
            }
            if (f.type == 3 && !scan(pos, end, f.number, f.at, depth + 1)) {
                return false;
            }
        }
        return group == 0 || fail(group_at, "group " + std::to_string(group) + " has no end");
    }

    // Writes what scan accepted.
    void write(json_out &j, size_t &pos, size_t end, unsigned depth)
    {
        j.begin_array();
        field f;
        while (pos < end && next(pos, end, f) && f.type != 4) {
            j.begin_object();
            j.number("field", f.number);
            j.number("wire_type", f.type);
            j.number("offset", f.at);
            if (f.type == 0) {
                decimal(j, "varint", f.value);
                // The pattern of a negative 32-bit number: five bytes, or ten sign-extended.
                if ((f.value >= 0x80000000u && f.value <= 0xFFFFFFFFu) || f.value >= 0xFFFFFFFF80000000u) {
                    j.number("int32", static_cast<int32_t>(static_cast<uint32_t>(f.value)));
                }
            } else if (f.type == 1) {
                decimal(j, "fixed64", f.value);
            } else if (f.type == 5) {
                j.number("fixed32", f.value);
            } else if (f.type == 3) {
                j.key("group");
                write(j, pos, end, depth + 1);
            } else {
                length_delimited(j, f, depth);
            }
            j.end_object();
            if (out.spill != nullptr && out.text.size() >= 1 << 16) {
                out.spill(out.context);
            }
        }
        j.end_array();
    }

    // A nested message where the bytes are one, as protoc --decode_raw shows
    // them; else text, else bytes.
    void length_delimited(json_out &j, const field &f, unsigned depth)
    {
        const std::span<const uint8_t> payload = f.payload;
        const size_t begin = static_cast<size_t>(payload.data() - input.data());
        size_t pos = begin;
        if (!payload.empty() && scan(pos, begin + payload.size(), 0, 0, depth + 1)) {
            if (depth + 1 <= raw_depth_limit) {
                j.key("message");
                pos = begin;
                write(j, pos, begin + payload.size(), depth + 1);
                return;
            }
            out.first_flattened = out.flattened++ == 0 ? f.at : out.first_flattened;
        }
        const std::string_view s(reinterpret_cast<const char *>(payload.data()), payload.size());
        if (is_text(s)) {
            j.key("string");
            j.string(s);
            return;
        }
        j.key("bytes");
        j.literal("\"");
        out.base64 ? append_base64(j.text(), payload) : append_plain_hex(j.text(), payload);
        j.text() += '"';
    }

    static void decimal(json_out &j, const char *key, uint64_t v)
    {
        char b[24];
        const auto e = std::to_chars(b, b + sizeof b, v).ptr;
        j.key(key);
        j.string(std::string_view(b, static_cast<size_t>(e - b)));
    }
};

} // namespace

bool raw_json(std::span<const uint8_t> bytes, const json_options &options, raw_output &out, std::string &error)
{
    raw_reader r{bytes, out, {}};
    size_t pos = 0;
    if (!r.scan(pos, bytes.size(), 0, 0, 0)) {
        error = r.error;
        return false;
    }
    json_out j(out.text, options.pretty);
    pos = 0;
    r.write(j, pos, bytes.size(), 0);
    return true;
}

} // namespace obfl_wire
