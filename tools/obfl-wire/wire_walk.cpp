#include "wire_walk.hpp"

#include <cstring>
#include <vector>

#include "nuvex_decode.h"

namespace obfl_wire {

bool walk(std::span<const uint8_t> bytes, size_t base, const record_schema *schema,
          const std::function<void(const wire_field &)> &fn, wire_fault &fault)
{
    static const uint8_t nothing[1] = {0};
    const uint8_t *src = bytes.empty() ? nothing : bytes.data();
    const size_t size = bytes.size();
    std::vector<bool> seen(schema != nullptr ? schema->fields.size() + 1 : 0);
    const field_schema *run = nullptr; // the repeated member whose run is going on
    unsigned index = 0;
    size_t pos = 0;
    const auto refuse = [&](size_t at, const field_schema *m, std::string what) {
        fault = {base + at, m != nullptr ? m->name : std::string(), std::move(what)};
        return false;
    };
    while (pos < size) {
        wire_field f{base + pos, 0, 0, 0, 0, {}, nullptr, 0};
        const size_t start = pos;
        uint32_t key;
        if (nuvex_decode_var32(&key, &pos, src, size) != MIVO_NO_ERROR) {
            return refuse(start, nullptr, "the key runs past the end of the input");
        }
        f.number = key >> 3;
        f.type = key & 7;
        f.member = schema != nullptr ? schema->field(f.number) : nullptr;
        const field_schema *m = f.member;
        if (m != nullptr && m == run) {
            f.type = m->wire_type; // the rest of a run is read as the member's kind, whatever its key says
            f.index = ++index;
        } else if (m != nullptr) {
            run = nullptr;
            if (f.type != m->wire_type) {
                return refuse(start, m, "field " + std::to_string(f.number) + " has wire type " +
                                            std::to_string(f.type) + ", the member takes " +
                                            std::to_string(m->wire_type));
            }
            const bool once = m->repeated || m->elem == nuvex::element::string || m->elem == nuvex::element::bytes;
            if (once && seen[f.number]) {
                return refuse(start, m, m->repeated ? "a second run of the repeated member"
                                                    : "the member occurs a second time");
            }
            seen[f.number] = true;
            if (m->repeated) {
                run = m;
                index = 0;
            }
        } else {
            run = nullptr;
        }
        const size_t value_at = pos;
        if (f.type == NUVEX_TYPE_VARINT) {
            if (nuvex_decode_var64(&f.value, &pos, src, size) != MIVO_NO_ERROR) {
                return refuse(start, m, "the varint runs past the end of the input");
            }
        } else if (f.type == NUVEX_TYPE_LENGTH) {
            uint32_t length;
            size_t after = pos;
            if (nuvex_decode_var32(&length, &after, src, size) != MIVO_NO_ERROR) {
                return refuse(start, m, "the length runs past the end of the input");
            }
            if (m != nullptr && length > size - after) {
                return refuse(start, m, "length " + std::to_string(length) + " runs past the end of the input (" +
                                            std::to_string(size - after) + " bytes left)");
            }
            f.payload = bytes.subspan(after, std::min<size_t>(length, size - after));
        } else if ((f.type == NUVEX_TYPE_FIXED64 || f.type == NUVEX_TYPE_FIXED32) && size - pos >= 4) {
            const size_t width = f.type == NUVEX_TYPE_FIXED64 ? 8 : 4;
            for (size_t i = std::min(width, size - pos); i-- > 0;) {
                f.value = f.value << 8 | src[pos + i];
            }
        }
        pos = value_at;
        // Unknown fields move on exactly as the decoder skips them, past the end included.
        if (nuvex_decode_advance(f.type, &pos, src, size) != MIVO_NO_ERROR) {
            return refuse(start, m, "wire type " + std::to_string(f.type) + " is not supported");
        }
        f.end = base + pos;
        fn(f);
    }
    return true;
}

} // namespace obfl_wire
