// Wire bytes read without a message name: every field by number and wire type.
#pragma once

#include <span>
#include <string>

#include "record_json.hpp"

namespace obfl_wire {

// Appends the fields as a JSON array; false with error ("at byte 3: ...")
// when the bytes are not a sequence of whole fields.
bool raw_json(std::span<const uint8_t> bytes, const json_options &options, std::string &out, std::string &error);

} // namespace obfl_wire
