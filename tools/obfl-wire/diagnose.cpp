#include "diagnose.hpp"

#include <cstring>

#include "text.hpp"
#include "wire_walk.hpp"

namespace obfl_wire {
namespace {

struct examiner {
    std::span<const uint8_t> input;
    std::vector<std::string> notes;
    wire_fault fault;
    bool failed = false;

    static std::string place(size_t offset, const std::string &path)
    {
        return "at byte " + std::to_string(offset) + (path.empty() ? "" : " in " + path);
    }

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

    void field(const wire_field &f, size_t limit, const std::string &path)
    {
        if (failed) {
            return;
        }
        const std::string at = " at byte " + std::to_string(f.offset) + (path.empty() ? "" : " in " + path);
        if (f.member == nullptr) {
            notes.push_back("unknown field " + std::to_string(f.number) + " (wire type " + std::to_string(f.type) +
                            ")" + at + " skipped");
            if (f.end > limit) {
                notes.push_back("field " + std::to_string(f.number) + at + " runs " + std::to_string(f.end - limit) +
                                " bytes past the end of the input (cut off?)");
            }
            return;
        }
        std::string name = (path.empty() ? "" : path + ".") + f.member->name;
        if (f.member->repeated) {
            // Appended piece by piece: GCC 12 at -O3 sees a false overlap in "[" + to_string().
            name += '[';
            name += std::to_string(f.index);
            name += ']';
        }
        const std::string where = name + " at byte " + std::to_string(f.offset);
        if (f.member->nested != nullptr) {
            const size_t payload_at = static_cast<size_t>(f.payload.data() - input.data());
            record(f.payload, payload_at, *f.member->nested, name);
        } else if (f.member->elem == nuvex::element::string) {
            const auto *p = reinterpret_cast<const char *>(f.payload.data());
            std::string_view s(p, f.payload.size());
            if (const void *nul = std::memchr(p, 0, s.size()); nul != nullptr) {
                const size_t kept = static_cast<size_t>(static_cast<const char *>(nul) - p);
                notes.push_back(where + ": string cut at an embedded NUL, " + std::to_string(s.size() - kept) +
                                " of " + std::to_string(s.size()) + " bytes dropped");
                s = s.substr(0, kept);
            }
            if (!valid_utf8(s)) {
                notes.push_back(where + ": string is not valid UTF-8 (shown with U+FFFD)");
            }
        }
    }
};

} // namespace

std::vector<std::string> tolerated(std::span<const uint8_t> bytes, const record_schema &schema)
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
    return examiner::place(in.fault.offset, in.fault.member) + ": " + in.fault.what;
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
