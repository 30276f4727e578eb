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

struct examiner {
    std::span<const uint8_t> input;
    std::vector<note> notes;
    wire_fault fault;
    bool failed = false;

    void record(std::span<const uint8_t> bytes, size_t base, const record_schema &schema, const std::string &path)
    {
        wire_fault f;
        const bool ok = walk(bytes, base, &schema, [&](const wire_field &field) { this->field(field, base + bytes.size(), path); }, f);
        if (!ok && !failed) {
            failed = true;
            fault = f;
            fault.member = path.empty() ? f.member : f.member.empty() ? path : path + "." + f.member;
        }
    }

    void add(std::string text, bool misfit = false) { notes.push_back({std::move(text), misfit}); }

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
        const auto low = static_cast<uint32_t>(v);
        const auto holds = [&] { return where() + ": the varint holds " + held(f.varint); };
        if (m.elem == nuvex::element::varint64) {
            if (f.varint.over_64) {
                add(holds() + "; the low 64 bits kept: " + std::to_string(v), true);
            }
        } else if (m.elem == nuvex::element::boolean) {
            if (f.varint.over_64 || v > UINT32_MAX) {
                add(holds() + "; its low 32 bits read: " + (low != 0 ? "true" : "false"), true);
            } else if (v > 1) {
                add(holds() + ", read as true", true);
            }
        } else if (m.int32) {
            // Five bytes (our own form) or ten sign-extended (libprotobuf's) carry the same int32.
            if (f.varint.over_64 || (v > UINT32_MAX && v < 0xFFFFFFFF80000000u)) {
                add(holds() + ", more than an int32; the low 32 bits kept: " + std::to_string(static_cast<int32_t>(low)),
                    true);
            }
        } else if (f.varint.over_64 || v > UINT32_MAX) {
            add(holds() + ", more than 32 bits; the low 32 bits kept: " + std::to_string(low), true);
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
            if (f.end > limit) {
                add("field " + std::to_string(f.number) + " at byte " + std::to_string(f.offset) +
                    (path.empty() ? "" : " in " + path) + " runs " + std::to_string(f.end - limit) +
                    " bytes past the end of the input (cut off?)");
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
            add(where() + ": its key says wire type " + std::to_string(f.type) + ", read as the member's " +
                    std::to_string(f.read_as) + " within its run",
                true);
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

std::vector<note> tolerated(std::span<const uint8_t> bytes, const record_schema &schema)
{
    examiner in{bytes, {}, {}, false};
    in.record(bytes, 0, schema, "");
    return std::move(in.notes);
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

size_t bytes_skipped(std::span<const uint8_t> bytes, const record_schema &schema)
{
    size_t skipped = 0;
    wire_fault fault;
    walk(bytes, 0, &schema, [&](const wire_field &f) {
        if (f.member == nullptr) {
            skipped += std::min(f.end, bytes.size()) - f.offset;
        }
    }, fault);
    return skipped;
}

} // namespace obfl_wire
