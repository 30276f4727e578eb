// The one walk over wire bytes, field by field, as the decoders read them:
// keys, numbers and lengths through the runtime's own primitives, unknown
// fields skipped as the decoders skip them. Beside what the decoder keeps,
// each field says what its varints held, so that whatever a read dropped can
// be named. annotate, guess, --keep-unknown and the decode diagnostics are
// all built on it.
#pragma once

#include <cstddef>
#include <cstdint>
#include <span>
#include <string>
#include <string_view>

#include "schema.hpp"

namespace obfl_wire {

// A varint as it stands in the bytes, whatever a read of it keeps.
struct varint_bytes {
    size_t size = 0;     // bytes it takes (an overlong one has no limit)
    uint64_t value = 0;  // its low 64 bits
    bool over_64 = false; // it holds bits above the 64th
};

struct wire_field {
    size_t offset;    // of the key, counted from the start of the whole input
    size_t end;       // just past the value; beyond the input when a skip ran past its end
    uint32_t number;  // from the key's low 32 bits, as the decoder reads it
    unsigned type;    // the wire type the key says
    unsigned read_as; // the wire type the value is read as: the key's, or within a run the member's
    varint_bytes key;
    varint_bytes varint; // a number (wire type 0), or the length of a length-delimited value
    uint64_t fixed;      // a fixed-width value (as far as the input holds it)
    std::span<const uint8_t> payload; // a length-delimited value, cut at the end of the input
    const field_schema *member;       // null when the record does not define the field
    unsigned index;                   // element index within a repeated member's run
    size_t earlier;                   // a member given before: the offset of its last key, else npos
    static constexpr size_t npos = SIZE_MAX;
};

// What the decoder refuses, where.
struct wire_fault {
    size_t offset = 0;
    std::string member; // empty outside a member
    std::string what;
};

// What walk calls for each field: a reference to any callable, which unlike
// std::function never allocates (a walk runs for every message of a stream).
class field_fn {
public:
    template <class F>
    field_fn(const F &f) // NOLINT: taken implicitly, as a lambda is passed
        : callable_(&f), call_([](const void *c, const wire_field &w) { (*static_cast<const F *>(c))(w); })
    {
    }
    void operator()(const wire_field &w) const { call_(callable_, w); }

private:
    const void *callable_;
    void (*call_)(const void *, const wire_field &);
};

// Walks the fields of one record (schema null: a record that defines none)
// whose bytes start at input offset base. Calls fn for every field read;
// returns false with fault at the first thing the decoder would refuse.
// end names where the bytes end, for a fault that runs past it: a nested
// record's bytes end with its field.
bool walk(std::span<const uint8_t> bytes, size_t base, const record_schema *schema, field_fn fn, wire_fault &fault,
          std::string_view end = "the input");

// What a number member keeps of a varint's low 64 bits, as the decoder reads
// it: a uint64 all of them, a bool whether its low 32 bits are set, the rest
// the low 32 bits, signed for an int32.
std::string kept_value(const field_schema &m, uint64_t v);

// The varint at bytes[at], read to its end (or the end of the input).
varint_bytes varint_slow(std::span<const uint8_t> bytes, size_t at);
inline varint_bytes varint_at(std::span<const uint8_t> bytes, size_t at)
{
    if (at < bytes.size() && bytes[at] < 0x80) {
        return {1, bytes[at], false}; // most keys and numbers
    }
    return varint_slow(bytes, at);
}

} // namespace obfl_wire
