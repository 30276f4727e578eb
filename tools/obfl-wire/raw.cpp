#include "raw.hpp"

#include "json_out.hpp"
#include "wire_walk.hpp"

namespace obfl_wire {
namespace {

// Nested fields beyond this depth are shown as bytes: input of a few bytes
// per level could otherwise nest deep enough to exhaust the stack.
constexpr unsigned max_depth = 32;

// Whether bytes are whole fields with numbers from 1, as a nested message's are.
bool is_message(std::span<const uint8_t> bytes, size_t base)
{
    wire_fault fault;
    bool whole = !bytes.empty();
    whole = whole && walk(bytes, base, nullptr, [&](const wire_field &f) {
        whole = whole && f.number != 0 && f.end <= base + bytes.size() && f.type != 3 && f.type != 4;
    }, fault) && whole;
    return whole;
}

bool is_text(std::string_view s)
{
    for (char c : s) {
        if (static_cast<unsigned char>(c) < 0x20 && c != '\n' && c != '\r' && c != '\t') {
            return false;
        }
    }
    return valid_utf8(s);
}

struct raw_writer {
    json_out out;
    const json_options &options;
    std::span<const uint8_t> input;

    void fields(std::span<const uint8_t> bytes, size_t base, unsigned depth)
    {
        wire_fault fault;
        out.begin_array();
        walk(bytes, base, nullptr, [&](const wire_field &f) { field(f, depth); }, fault);
        out.end_array();
    }

    void field(const wire_field &f, unsigned depth)
    {
        out.begin_object();
        out.key("field");
        out.number(f.number);
        out.key("wire_type");
        out.number(f.type);
        out.key("offset");
        out.number(f.offset);
        if (f.type == 0) {
            out.key("varint");
            out.number(f.value);
            // The pattern of a negative 32-bit number: five bytes, or ten sign-extended.
            if ((f.value >= 0x80000000u && f.value <= 0xFFFFFFFFu) || f.value >= 0xFFFFFFFF80000000u) {
                out.key("int32");
                out.number(static_cast<int32_t>(static_cast<uint32_t>(f.value)));
            }
        } else if (f.type == 1 || f.type == 5) {
            out.key(f.type == 1 ? "fixed64" : "fixed32");
            out.number(f.value);
        } else if (f.type == 2) {
            const size_t at = static_cast<size_t>(f.payload.data() - input.data());
            const std::string_view s(reinterpret_cast<const char *>(f.payload.data()), f.payload.size());
            if (depth < max_depth && is_message(f.payload, at)) {
                out.key("message");
                fields(f.payload, at, depth + 1);
            } else if (is_text(s)) {
                out.key("string");
                out.string(s);
            } else {
                out.key("bytes");
                out.literal("\"");
                options.hex_bytes ? append_plain_hex(out.text(), f.payload) : append_base64(out.text(), f.payload);
                out.text() += '"';
            }
        }
        out.end_object();
    }
};

} // namespace

bool raw_json(std::span<const uint8_t> bytes, const json_options &options, std::string &out, std::string &error)
{
    wire_fault fault;
    bool whole = walk(bytes, 0, nullptr, [&](const wire_field &f) {
        if (error.empty() && f.end > bytes.size()) {
            error = "at byte " + std::to_string(f.offset) + ": field " + std::to_string(f.number) + " runs " +
                    std::to_string(f.end - bytes.size()) + " bytes past the end of the input";
        }
    }, fault);
    if (!whole) {
        error = "at byte " + std::to_string(fault.offset) + ": " + fault.what;
    }
    if (!error.empty()) {
        return false;
    }
    raw_writer w{json_out(out, options.pretty), options, bytes};
    w.fields(bytes, 0, 0);
    return true;
}

} // namespace obfl_wire
