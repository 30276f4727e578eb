#include "annotate.hpp"

#include <cstdio>
#include <cstring>

#include "text.hpp"
#include "wire_walk.hpp"

namespace obfl_wire {
namespace {

constexpr size_t bytes_shown = 8; // per row; the rest of a long value as an ellipsis

const char *type_word(unsigned type)
{
    static const char *const words[] = {"varint", "i64", "len", "sgroup", "egroup", "i32", "6", "7"};
    return words[type & 7];
}

struct annotator {
    std::span<const uint8_t> input;
    std::string &out;
    bool ok = true;

    // The decoder's view of a number member; an enumeration's by its constant's name.
    static std::string number(const field_schema &m, const wire_field &f)
    {
        const auto low = static_cast<uint32_t>(f.varint.value);
        for (const constant &c : m.constants) {
            if (c.value == low) {
                return std::string(c.name) + " (" + std::to_string(low) + ")";
            }
        }
        return kept_value(m, f.varint.value);
    }

    std::string value(const wire_field &f)
    {
        const field_schema *m = f.member;
        const std::string_view s(reinterpret_cast<const char *>(f.payload.data()), f.payload.size());
        if (f.read_as == 0) {
            return m != nullptr ? number(*m, f) : f.varint.over_64 ? std::string("(more than 64 bits)") : std::to_string(f.varint.value);
        }
        if (f.read_as == 1 || f.read_as == 5) {
            char b[24];
            std::snprintf(b, sizeof b, f.read_as == 1 ? "0x%016llx" : "0x%08llx", static_cast<unsigned long long>(f.fixed));
            return b;
        }
        const std::string size = std::to_string(f.payload.size()) + (f.payload.size() == 1 ? " byte" : " bytes");
        if (m == nullptr || m->nested != nullptr || m->elem == nuvex::element::bytes) {
            return size;
        }
        std::string text;
        append_json_string(text, s.substr(0, std::min(s.find('\0'), size_t{48})));
        return s.size() > 48 && s.find('\0') > 48 ? shortened(text, 48) : text;
    }

    void row(const wire_field &f, const std::string &path)
    {
        if (!ok) {
            return; // the decoder stopped inside a nested record
        }
        // The key and, for a length-delimited field, its length; the payload
        // itself where it is a string or byte string.
        size_t head = f.key.size + (f.read_as == 2 ? f.varint.size : 0);
        const bool nested = f.member != nullptr && f.member->nested != nullptr;
        const size_t start = f.offset;
        const size_t stop = std::min(nested ? start + head : f.end, input.size());
        std::string hex = to_hex(input.subspan(start, std::min(stop - start, bytes_shown)));
        size_t shown = hex.size();
        if (stop - start > bytes_shown) {
            hex += " \xE2\x80\xA6"; // one column wide, three bytes long
            shown += 2;
        }
        hex.append(shown < 26 ? 26 - shown : 0, ' ');
        char key[32];
        std::snprintf(key, sizeof key, "%u %s", f.number, type_word(f.type));
        std::string name;
        if (f.member == nullptr) {
            name = path + (f.number == 0 ? "(field number 0)" : "(unknown)");
        } else {
            name = path + f.member->name;
            if (f.member->repeated) {
                name += '[';
                name += std::to_string(f.index);
                name += ']';
            }
        }
        char line[512];
        // A run's element whose key says another wire type: what it was read as.
        const std::string read_as = f.type == f.read_as ? "" : std::string(" (read as ") + type_word(f.read_as) + ")";
        std::snprintf(line, sizeof line, "%6zu  %s %-11s %-28s %s%s\n", f.offset, hex.c_str(), key, name.c_str(),
                      value(f).c_str(), read_as.c_str());
        out += line;
        if (nested) {
            ok = record(f.payload, static_cast<size_t>(f.payload.data() - input.data()), *f.member->nested, name + ".");
        }
    }

    bool record(std::span<const uint8_t> bytes, size_t base, const record_schema &schema, const std::string &path)
    {
        wire_fault fault;
        return walk(bytes, base, &schema, [&](const wire_field &f) { row(f, path); }, fault) && ok;
    }
};

} // namespace

bool annotate(std::span<const uint8_t> bytes, const record_schema &schema, std::string &out)
{
    char line[160];
    std::snprintf(line, sizeof line, "%6s  %-26s %-11s %-28s %s\n", "offset", "bytes", "key", "member", "value");
    out += line;
    annotator a{bytes, out};
    return a.record(bytes, 0, schema, "");
}

} // namespace obfl_wire
