#include "wire_walk.hpp"

#include <array>
#include <cstring>

#include "nuvex_decode.h"

namespace obfl_wire {

varint_bytes varint_slow(std::span<const uint8_t> bytes, size_t at)
{
    varint_bytes v;
    for (size_t i = at; i < bytes.size(); ++i) {
        const uint64_t group = bytes[i] & 0x7Fu;
        if (i - at < 9) {
            v.value |= group << (7 * (i - at));
        } else if (i - at == 9) {
            v.value |= group << 63;
            v.over_64 = v.over_64 || group > 1;
        } else {
            v.over_64 = v.over_64 || group != 0;
        }
        if ((bytes[i] & 0x80u) == 0) {
            v.size = i - at + 1;
            return v;
        }
    }
    v.size = bytes.size() - at;
    return v;
}

std::string kept_value(const field_schema &m, uint64_t v)
{
    const auto low = static_cast<uint32_t>(v);
    if (m.elem == nuvex::element::varint64) {
        return std::to_string(v);
    }
    if (m.elem == nuvex::element::boolean) {
        return low != 0 ? "true" : "false";
    }
    return m.int32 ? std::to_string(static_cast<int32_t>(low)) : std::to_string(low);
}

bool walk(std::span<const uint8_t> bytes, size_t base, const record_schema *schema, field_fn fn, wire_fault &fault,
          std::string_view end)
{
    static const uint8_t nothing[1] = {0};
    const uint8_t *src = bytes.empty() ? nothing : bytes.data();
    const size_t size = bytes.size();
    // Where each member was last given; no record has more than 31 members.
    std::array<size_t, 32> seen;
    seen.fill(wire_field::npos);
    const field_schema *run = nullptr; // the repeated member whose run is going on
    unsigned index = 0;
    size_t pos = 0;
    const auto refuse = [&](size_t at, const field_schema *m, std::string what) {
        fault = {base + at, m != nullptr ? m->name : std::string(), std::move(what)};
        return false;
    };
    while (pos < size) {
        wire_field f{base + pos, 0, 0, 0, 0, {}, {}, 0, {}, nullptr, 0, wire_field::npos};
        const size_t start = pos;
        uint32_t key;
        if (nuvex_decode_var32(&key, &pos, src, size) != MIVO_NO_ERROR) {
            return refuse(start, nullptr, "the key runs past the end of " + std::string(end));
        }
        f.key = varint_at(bytes, start);
        f.number = key >> 3;
        f.type = f.read_as = key & 7;
        f.member = schema != nullptr ? schema->field(f.number) : nullptr;
        const field_schema *m = f.member;
        if (m != nullptr && m == run) {
            f.read_as = m->wire_type; // the rest of a run is read as the member's kind, whatever its key says
            f.index = ++index;
        } else if (m != nullptr) {
            run = nullptr;
            if (f.type != m->wire_type) {
                const bool packed = m->repeated && m->wire_type == NUVEX_TYPE_VARINT && f.type == NUVEX_TYPE_LENGTH;
                return refuse(start, m, "field " + std::to_string(f.number) + " has wire type " +
                                            std::to_string(f.type) + ", the member takes " +
                                            std::to_string(m->wire_type) +
                                            (packed ? " (packed? elements are read one field each)" : ""));
            }
            const bool once = m->repeated || m->elem == nuvex::element::string || m->elem == nuvex::element::bytes;
            const size_t earlier = f.number < seen.size() ? seen[f.number] : wire_field::npos;
            if (once && earlier != wire_field::npos) {
                return refuse(start, m, m->repeated ? "a second run of the repeated member"
                                                    : "the member occurs a second time");
            }
            f.earlier = earlier;
            if (f.number < seen.size()) {
                seen[f.number] = f.offset;
            }
            if (m->repeated) {
                run = m;
                index = 0;
            }
        } else {
            run = nullptr;
        }
        // A value that cannot be read: within a run, the element by its index,
        // and what its key said.
        const auto refuse_value = [&](std::string what) {
            std::string name = m != nullptr ? m->name : std::string();
            if (m != nullptr && m->repeated && f.index != 0) {
                name += '[';
                name += std::to_string(f.index);
                name += ']';
            }
            if (f.type != f.read_as) {
                const char *kind = m->nested != nullptr                   ? "a nested"
                                   : m->elem == nuvex::element::bytes     ? "a byte-string"
                                   : m->elem == nuvex::element::string    ? "a string"
                                                                          : "a varint";
                what = "its key says wire type " + std::to_string(f.type) + ", read as " + kind + " element: " + what;
            }
            fault = {base + start, std::move(name), std::move(what)};
            return false;
        };
        const size_t value_at = pos;
        if (f.read_as == NUVEX_TYPE_VARINT) {
            if (nuvex_decode_var64(nullptr, &pos, src, size) != MIVO_NO_ERROR) {
                return refuse_value("the varint runs past the end of " + std::string(end));
            }
            f.varint = varint_at(bytes, value_at);
        } else if (f.read_as == NUVEX_TYPE_LENGTH) {
            uint32_t length;
            size_t after = pos;
            if (nuvex_decode_var32(&length, &after, src, size) != MIVO_NO_ERROR) {
                return refuse_value("the length runs past the end of " + std::string(end));
            }
            f.varint = varint_at(bytes, value_at);
            if (m != nullptr && length > size - after) {
                return refuse_value("length " + std::to_string(length) + " runs past the end of " + std::string(end) +
                                    " (" + std::to_string(size - after) + " bytes left)");
            }
            f.payload = bytes.subspan(after, std::min<size_t>(length, size - after));
        } else if (f.read_as == NUVEX_TYPE_FIXED64 || f.read_as == NUVEX_TYPE_FIXED32) {
            const size_t width = f.read_as == NUVEX_TYPE_FIXED64 ? 8 : 4;
            for (size_t i = std::min(width, size - pos); i-- > 0;) {
                f.fixed = f.fixed << 8 | src[pos + i];
            }
        }
        pos = value_at;
        // Unknown fields move on exactly as the decoder skips them, past the end included.
        if (nuvex_decode_advance(f.read_as, &pos, src, size) != MIVO_NO_ERROR) {
            return refuse(start, m, "wire type " + std::to_string(f.type) + " is not supported");
        }
        f.end = base + pos;
        fn(f);
    }
    return true;
}

} // namespace obfl_wire
