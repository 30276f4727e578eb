// Wire bytes read without a message name, by the Protocol Buffers wire
// format itself rather than by what our decoders tolerate: every field by
// number and wire type, as exact as protoc --decode_raw.
#pragma once

#include <span>
#include <string>

#include "record_json.hpp"

namespace obfl_wire {

// Appends the fields as a JSON array; false with error ("at byte 3: ...")
// when the bytes are not a message: a field number 0, a varint over ten bytes
// or 64 bits, a key over 32 bits, wire type 6 or 7, a length or fixed-width
// value past the end, a group without its end (or an end without its start).
bool raw_json(std::span<const uint8_t> bytes, const json_options &options, std::string &out, std::string &error);

} // namespace obfl_wire
