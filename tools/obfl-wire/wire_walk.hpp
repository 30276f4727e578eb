// The one walk over wire bytes, field by field, as the decoders read them:
// keys, numbers and lengths through the runtime's own primitives, unknown
// fields skipped as the decoders skip them. raw, guess and the decode
// diagnostics are all built on it.
#pragma once

#include <cstddef>
#include <cstdint>
#include <functional>
#include <span>
#include <string>

#include "schema.hpp"

namespace obfl_wire {

struct wire_field {
    size_t offset;   // of the key, counted from the start of the whole input
    size_t end;      // just past the value; beyond the input when a skip ran past its end
    uint32_t number;
    unsigned type;
    uint64_t value;  // a varint (all 64 bits) or a fixed-width value
    std::span<const uint8_t> payload; // a length-delimited value, cut at the end of the input
    const field_schema *member;       // null when the record does not define the field
    unsigned index;                   // element index within a repeated member's run
};

// What the decoder refuses, where.
struct wire_fault {
    size_t offset = 0;
    std::string member; // empty outside a member
    std::string what;
};

// Walks the fields of one record (schema null: a record that defines none)
// whose bytes start at input offset base. Calls fn for every field read;
// returns false with fault at the first thing the decoder would refuse.
bool walk(std::span<const uint8_t> bytes, size_t base, const record_schema *schema,
          const std::function<void(const wire_field &)> &fn, wire_fault &fault);

} // namespace obfl_wire
