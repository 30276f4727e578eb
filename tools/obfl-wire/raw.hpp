// Wire bytes read without a message name, by the Protocol Buffers wire
// format itself rather than by what our decoders tolerate: every field by
// number and wire type, as exact as protoc --decode_raw.
#pragma once

#include <span>
#include <string>

#include "record_json.hpp"

namespace obfl_wire {

// How deep raw nests: a length-delimited field inside this many levels is
// shown as bytes even where it parses as a message, and groups nested deeper
// are refused; input of a few bytes per level could otherwise nest deep
// enough to exhaust the stack.
inline constexpr unsigned raw_depth_limit = 32;

// Where raw_json writes, and what it says beside the JSON.
struct raw_output {
    std::string &text;
    bool base64 = false; // byte strings as base64 instead of hex
    // Called whenever text holds 64 KiB or more, to write it out and clear
    // it: the JSON is written while the bytes are walked.
    void (*spill)(void *context) = nullptr;
    void *context = nullptr;
    // Fields at the depth limit that parse as a message, shown as bytes; the
    // byte offset of the first.
    size_t flattened = 0, first_flattened = 0;
};

// Appends the fields as a JSON array; false with error ("at byte 3: ...")
// and nothing appended when the bytes are not a message: a field number 0, a
// varint over ten bytes or 64 bits, a key over 32 bits, wire type 6 or 7, a
// length or fixed-width value past the end, a group without its end (or an
// end without its start), groups nested deeper than the limit.
bool raw_json(std::span<const uint8_t> bytes, const json_options &options, raw_output &out, std::string &error);

} // namespace obfl_wire
