// What a decode let pass, and where a failed one stopped: the tolerances of
// the decoders made visible. Unknown fields skipped (field number 0 among
// them), a skip that runs past the end, a varint over ten bytes, a number,
// length or key with more bits than its read keeps, a run element whose key
// says another wire type (a packed run read as one), a member given again, a string cut at a NUL, bytes
// that are not UTF-8.
#pragma once

#include <cstdint>
#include <span>
#include <string>
#include <vector>

namespace obfl_wire {

struct record_schema; // schema.hpp

struct note {
    std::string text;    // "client_id at byte 0: ..."
    bool misfit = false; // a value its member could not hold as sent
};

// What a decode of bytes as this record let pass, at every depth.
struct examination {
    std::vector<note> notes;  // one per thing tolerated
    size_t bytes_skipped = 0; // of fields the records do not define, nested ones included
    unsigned cut_off = 0;     // skipped fields that run past the end of their record
};
examination examine(std::span<const uint8_t> bytes, const record_schema &schema);
// examine(...).notes
std::vector<note> tolerated(std::span<const uint8_t> bytes, const record_schema &schema);
// "at byte 4 in data: length 5 runs past the end of the input (1 bytes left)";
// empty when the walk finds nothing the decoder would refuse.
std::string failure_place(std::span<const uint8_t> bytes, const record_schema &schema);

} // namespace obfl_wire
