// Bytes as text: hex as people paste it, base64, and JSON string literals.
#pragma once

#include <cstddef>
#include <cstdint>
#include <span>
#include <string>
#include <string_view>
#include <vector>

namespace obfl_wire {

// One token of hex text (no separator in it) -> its bytes: digits two to a
// byte ("0801"), 0xH or 0xHH as one byte, or \xH escapes run together as in
// a C string, one byte each. Digits are never paired across tokens, so a
// token that is none of these is refused: at says where in it.
enum class hex_fault { none, not_digit, odd, empty, wide };
hex_fault hex_token(std::string_view token, std::vector<uint8_t> &out, size_t &at);
// The next token after pos between separators (space, tab, line ends, ':',
// ',', ';' and '"'); pos is left at its end. Empty when none is left.
std::string_view next_hex_token(std::string_view text, size_t &pos);
int hex_digit(char c); // its value, or -1

// Hex text as people paste it: tokens as hex_token reads them between
// separators. False when it is not that.
bool parse_hex(std::string_view text, std::vector<uint8_t> &out);
// "08 01 10 AC 02"
std::string to_hex(std::span<const uint8_t> bytes);
// "0801", the form of byte strings in JSON with --hex-bytes
void append_plain_hex(std::string &out, std::span<const uint8_t> bytes);

void append_base64(std::string &out, std::span<const uint8_t> bytes);
// Standard or URL-safe alphabet, padding optional, as the JSON mapping allows.
bool from_base64(std::string_view text, std::vector<unsigned char> &out);

bool valid_utf8(std::string_view text);
// text cut to at most limit bytes, an ellipsis in place of the rest.
std::string shortened(std::string text, size_t limit);
// A message for a person as one line: control characters (a newline inside
// a quoted member name, say) become '?', and it is shortened to limit.
std::string one_line(std::string text, size_t limit);
// A quoted JSON string; bytes that are not UTF-8 become U+FFFD.
void append_json_string(std::string &out, std::string_view text);

} // namespace obfl_wire
