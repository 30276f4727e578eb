#include "diagnose.hpp"

#include <cstring>

#include "text.hpp"
#include "wire_walk.hpp"

namespace obfl_wire {
namespace {

std::string held(const varint_bytes &v)
{
    return v.over_64 ? std::string("more than 64 bits") : std::to_string(v.value);
}

// Where the bytes of a record end: the input's, or within a nested record its field's.
std::string_view end_of(const std::string &path)
{
    return path.empty() ? std::string_view("the input") : std::string_view(path);
}

// The varints that fill bytes exactly, at most ten bytes each, or none.
std::vector<uint64_t> packed_values(std::span<const uint8_t> bytes)
{
    std::vector<uint64_t> values;
    for (size_t at = 0; at < bytes.size();) {
        const varint_bytes v = varint_at(bytes, at);
        if (v.size > 10 || at + v.size > bytes.size() || (bytes[at + v.size - 1] & 0x80) != 0) {
            return {};
        }
        values.push_back(v.value);
        at += v.size;
    }
    return values;
}

struct examiner {
    std::span<const uint8_t> input;
    examination found;
    wire_fault fault;
    bool failed = false;

    void record(std::span<const uint8_t> bytes, size_t base, const record_schema &schema, const std::string &path)
    {
        wire_fault f;
        const bool ok = walk(
            bytes, base, &schema, [&](const wire_field &field) { this->field(field, base + bytes.size(), path); }, f,
            end_of(path));
        if (!ok && !failed) {
            failed = true;
            fault = f;
            fault.member = path.empty() ? f.member : f.member.empty() ? path : path + "." + f.member;
        }
    }

    void add(std::string text, bool misfit = false) { found.notes.push_back({std::move(text), misfit}); }

    // A run's element whose key says another wire type: what it was read as.
    template <class Where>
    void read_as(const wire_field &f, size_t limit, const Where &where)
    {
        const field_schema &m = *f.member;
        std::string as;
        if (f.read_as == 0) {
            as = "a varint element of the run: " + kept_value(m, f.varint.value);
        } else if (m.nested != nullptr) {
            as = "a nested element of the run: " + std::to_string(f.payload.size()) + " bytes";
        } else if (m.elem == nuvex::element::bytes) {
            as = "a byte-string element of the run: " + std::to_string(f.payload.size()) + " bytes";
        } else {
            std::string text;
            append_json_string(text, std::string_view(reinterpret_cast<const char *>(f.payload.data()),
                                                      std::min<size_t>(f.payload.size(), 40)));
            as = "a string element of the run: " + shortened(std::move(text), 30);
        }
        add(where() + ": its key says wire type " + std::to_string(f.type) + ", read as " + as, true);
        if (f.read_as != 0 || f.type != 2) {
            return;
        }
        // A packed run (length, then the elements' varints), which libprotobuf
        // reads as elements; this library takes its length as one element and
        // its elements' bytes as fields.
        const size_t at = f.offset + f.key.size + f.varint.size;
        if (f.varint.over_64 || f.varint.value == 0 || f.varint.value > limit - std::min(at, limit)) {
            return;
        }
        const auto values = packed_values(input.subspan(at, static_cast<size_t>(f.varint.value)));
        if (values.empty()) {
            return;
        }
        std::string list;
        for (size_t i = 0; i < values.size() && i < 4; ++i) {
            list += (i == 0 ? "" : ", ") + kept_value(m, values[i]);
        }
        add(where() + ": a packed run of " + std::to_string(values.size()) + (values.size() == 1 ? " element (" : " elements (") +
            list + (values.size() > 4 ? ", \xE2\x80\xA6)" : ")") + ", as libprotobuf reads it; read here as its length and fields");
    }

    // The varints of any field: the key, and a number or length. where()
    // names the field; it is built only for a note.
    template <class Where>
    void varints(const wire_field &f, const Where &where)
    {
        if (f.key.size > 10) {
            add(where() + ": its key is a varint of " + std::to_string(f.key.size) + " bytes (more than ten)");
        }
        if (f.key.over_64 || f.key.value > UINT32_MAX) {
            add(where() + ": its key holds " + held(f.key) + ", more than 32 bits; read as its low 32 bits: field " +
                std::to_string(f.number) + ", wire type " + std::to_string(f.type));
        }
        if (f.read_as != 0 && f.read_as != 2) {
            return;
        }
        if (f.varint.size > 10) {
            add(where() + ": a varint of " + std::to_string(f.varint.size) + " bytes (more than ten)");
        }
        if (f.read_as == 2 && (f.varint.over_64 || f.varint.value > UINT32_MAX)) {
            add(where() + ": its length holds " + held(f.varint) + ", more than 32 bits; read as its low 32 bits: " +
                    std::to_string(static_cast<uint32_t>(f.varint.value)),
                f.member != nullptr);
        }
    }

    // A number member's value against what the member keeps of it.
    template <class Where>
    void number(const wire_field &f, const Where &where)
    {
        const field_schema &m = *f.member;
        const uint64_t v = f.varint.value;
        const bool over_32 = f.varint.over_64 || v > UINT32_MAX;
        const char *read = nullptr; // how the value was read, where that drops or changes it
        if (m.elem == nuvex::element::varint64) {
            read = f.varint.over_64 ? "; the low 64 bits kept: " : nullptr;
        } else if (m.elem == nuvex::element::boolean) {
            read = over_32 ? "; its low 32 bits read: " : v > 1 ? ", read as " : nullptr;
        } else if (m.int32) {
            // Five bytes (our own form) or ten sign-extended (libprotobuf's) carry the same int32.
            const bool fits = !f.varint.over_64 && (v <= UINT32_MAX || v >= 0xFFFFFFFF80000000u);
            read = fits ? nullptr : ", more than an int32; the low 32 bits kept: ";
        } else {
            read = over_32 ? ", more than 32 bits; the low 32 bits kept: " : nullptr;
        }
        if (read != nullptr) {
            add(where() + ": the varint holds " + held(f.varint) + read + kept_value(m, v), true);
        }
    }

    void field(const wire_field &f, size_t limit, const std::string &path)
    {
        if (failed) {
            return;
        }
        if (f.member == nullptr) {
            const std::string what = (f.number == 0 ? "field number 0" : "unknown field " + std::to_string(f.number)) +
                                     " (wire type " + std::to_string(f.type) + ") at byte " +
                                     std::to_string(f.offset) + (path.empty() ? "" : " in " + path);
            const bool pasted_offset = f.number == 0 && f.offset == 0;
            add(what + " skipped" + (pasted_offset ? " (an offset column pasted with the bytes?)" : ""));
            varints(f, [&] { return what; });
            found.bytes_skipped += std::min(f.end, limit) - f.offset;
            if (f.end > limit) {
                ++found.cut_off;
                add("field " + std::to_string(f.number) + " at byte " + std::to_string(f.offset) +
                    (path.empty() ? "" : " in " + path) + " runs " + std::to_string(f.end - limit) +
                    (f.end - limit == 1 ? " byte" : " bytes") + " past the end of " + std::string(end_of(path)) + " (cut off?)");
            }
            return;
        }
        const auto name = [&] {
            std::string n = (path.empty() ? "" : path + ".") + f.member->name;
            if (f.member->repeated) {
                // Appended piece by piece: GCC 12 at -O3 sees a false overlap in "[" + to_string().
                n += '[';
                n += std::to_string(f.index);
                n += ']';
            }
            return n;
        };
        const auto where = [&] { return name() + " at byte " + std::to_string(f.offset); };
        varints(f, where);
        if (f.type != f.read_as) {
            read_as(f, limit, where);
        }
        if (f.earlier != wire_field::npos) {
            add(where() + ": given again (before at byte " + std::to_string(f.earlier) + "), " +
                (f.member->nested != nullptr ? "decoded into the same member" : "the later value kept"));
        }
        if (f.member->nested != nullptr) {
            const size_t payload_at = static_cast<size_t>(f.payload.data() - input.data());
            record(f.payload, payload_at, *f.member->nested, name());
        } else if (f.read_as == 0) {
            number(f, where);
        } else if (f.member->elem == nuvex::element::string) {
            const auto *p = reinterpret_cast<const char *>(f.payload.data());
            std::string_view s(p, f.payload.size());
            if (const void *nul = std::memchr(p, 0, s.size()); nul != nullptr) {
                const size_t kept = static_cast<size_t>(static_cast<const char *>(nul) - p);
                add(where() + ": string cut at an embedded NUL, " + std::to_string(s.size() - kept) + " of " +
                    std::to_string(s.size()) + " bytes dropped");
                s = s.substr(0, kept);
            }
            if (!valid_utf8(s)) {
                add(where() + ": string is not valid UTF-8 (shown with U+FFFD)");
            }
        }
    }
};

} // namespace

examination examine(std::span<const uint8_t> bytes, const record_schema &schema)
{
    examiner in{bytes, {}, {}, false};
    in.record(bytes, 0, schema, "");
    return std::move(in.found);
}

std::vector<note> tolerated(std::span<const uint8_t> bytes, const record_schema &schema)
{
    return examine(bytes, schema).notes;
}

std::string failure_place(std::span<const uint8_t> bytes, const record_schema &schema)
{
    examiner in{bytes, {}, {}, false};
    in.record(bytes, 0, schema, "");
    if (!in.failed) {
        return "";
    }
    return "at byte " + std::to_string(in.fault.offset) + (in.fault.member.empty() ? "" : " in " + in.fault.member) +
           ": " + in.fault.what;
}

} // namespace obfl_wire
