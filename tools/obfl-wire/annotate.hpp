// annotate: each byte range of a message beside the member it encodes, the
// way an engineer reads a capture by hand: offset, bytes, key (field number
// and wire type), member path and the value the decoder keeps.
#pragma once

#include <cstdint>
#include <span>
#include <string>

namespace obfl_wire {

struct record_schema; // schema.hpp

// Appends one row per field (nested records' fields after their own row);
// returns false at the first thing the decoder would refuse, the rows before
// it written.
bool annotate(std::span<const uint8_t> bytes, const record_schema &schema, std::string &out);

} // namespace obfl_wire
