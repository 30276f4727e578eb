// Bytes from text as engineers paste it: hex with any spacing, case, colons
// and commas; one byte per 0x (0x8, as in a C array, whose braces and
// declaration are left out) or per \x (a C string's escapes); the dumps of xxd, hexdump -C and od -A x -t x1
// with their offset column, ASCII gutter and '*' for repeated lines; base64.
#pragma once

#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

namespace obfl_wire {

// Appends the bytes; false with error "line 2, column 7: ..." (lines counted
// from first_line) when the text is none of these forms.
bool bytes_from_text(std::string_view text, std::vector<uint8_t> &out, std::string &error, size_t first_line = 1);
// Whether text is a dump (xxd, hexdump -C, od) or a C array, whose lines are
// one message by their nature.
bool is_dump(std::string_view text);
// Base64 (standard or URL-safe, padding optional) over any number of lines.
bool bytes_from_base64(std::string_view text, std::vector<uint8_t> &out, std::string &error, size_t first_line = 1);

} // namespace obfl_wire
