// record_json: the OBFL catalogue's messages in JSON, one entry per message.
//
// Everything is expanded from the catalogue's own field and constant lists,
// so a member or an enumeration constant is never named twice. The
// command-line tool is a thin shell over this library; tests link it too.
//
// JSON follows the Protocol Buffers JSON mapping over the schema that
// proto_schema() prints:
//   - member names are the record members without their leading underscore
//     (lowerCamelCase with json_options::proto_json); input takes both;
//   - only present members appear; `null` on input means absent;
//   - 64-bit values are decimal strings (input takes strings or numbers, as
//     it does for every integer);
//   - byte strings are base64 (or plain hex with json_options::hex_bytes);
//   - enumeration members are their constant's name where the value has one,
//     else the number (always the number with proto_json, as the schema
//     declares them uint32); input takes either, and a unique tail of a name
//     after an underscore ("CRITICAL") as well;
//   - entity identifiers and nested records are objects, repeated members
//     arrays.
#pragma once

#include <cstddef>
#include <cstdint>
#include <deque>
#include <span>
#include <string>
#include <string_view>
#include <vector>

#include <nlohmann/json.hpp>

#include "catalogue_table.hpp"
#include "text.hpp"

namespace obfl_wire {

// Objects keep their members in the order given: records print in member order.
using json = nlohmann::ordered_json;

struct json_options {
    bool hex_bytes = false;  // byte strings as hex digits instead of base64, both ways
    bool proto_json = false; // lowerCamelCase names, enumerations as numbers
    bool pretty = false;     // indented output
};

// Owns what a record filled by from_json points at (strings, byte strings,
// arrays); keep it alive as long as the record is in use.
struct arena {
    std::deque<std::vector<unsigned char>> blocks;
};

struct record_schema;

// The JSON side of one record type, filled in per record by the entry table.
struct record_functions;

// The key under which decode --keep-unknown lists a record's unknown fields
// (unknown.hpp); no member's name starts with an underscore.
inline constexpr std::string_view unknown_key = "_unknown";

// One message of the catalogue: its codec entry points (the catalogue
// table's) and the JSON conversions of its record. The record-level calls
// take a pointer to the message's own record, struct mivo_<name>.
struct message {
    const mivo_catalogue::entry *codec;
    const record_functions *fns;

    std::string_view name() const { return codec->name; } // without the mivo_ prefix: "log_syslog"
    unsigned member_count() const { return codec->member_count; }

    // JSON -> wire bytes, measured first and then written, with the fields
    // of any "_unknown" list after their record's (unknown.hpp). On a refused
    // value returns false with "member: problem" in error (a nested member
    // as "tgt_eid.tsi[0].type") and leaves out untouched.
    bool encode(const json &in, const json_options &options, std::vector<uint8_t> &out, std::string &error) const;
    // Wire bytes -> JSON appended to out, written as the record is walked.
    // Returns the decoder's result code (MIVO_NO_ERROR = 0); only on success
    // are out and, when not null, *members_filled and *named_values (the
    // enumeration members holding one of their constants) set. shared
    // decodes with MIVO_FLAG_SHARED.
    int decode(std::span<const uint8_t> bytes, bool shared, const json_options &options, std::string &out,
               unsigned *members_filled, unsigned *named_values) const;

    // Record <-> JSON. record points at a struct mivo_<name>: from_json
    // initialises it first, then fills it with memory from mem.
    bool from_json(const json &in, void *record, arena &mem, const json_options &options, std::string &error) const;
    json to_json(const void *record, const json_options &options) const;

    // One line per member: field number, member, kind, key bytes.
    std::string describe() const;
    // Its members as a table, for walking its bytes field by field.
    const record_schema &schema() const;
};

// All 37 messages in catalogue order.
std::span<const message> messages();
// By name, with or without the mivo_ prefix; null when there is none.
const message *find_message(std::string_view name);

// The catalogue and the entity identifier as a proto2 schema, package obfl.
std::string proto_schema();

// MIVO_ERROR_GARBLED and its kin; the identifier codec's own codes by number.
std::string result_name(int result);

// JSON text -> document. Refuses a key given twice in one object and
// nesting deeper than json_depth_limit; on failure error says where ("line 1,
// column 9: ..."). A number that is no 64-bit integer (a fraction, an
// exponent, an integer too large) is kept as written, as a binary value,
// which JSON text never yields, so that a refusal quotes it as given.
bool parse_json(std::string_view text, json &out, std::string &error);
inline constexpr unsigned json_depth_limit = 64;

// Brackets outside strings, fed one character at a time: where a JSON text
// ends, and how deep it nests.
struct json_scan {
    unsigned depth = 0;
    bool in_string = false;
    bool escaped = false;
    void step(char c)
    {
        if (in_string) {
            in_string = escaped || c != '"';
            escaped = !escaped && c == '\\';
        } else if (c == '"') {
            in_string = true;
        } else if (c == '{' || c == '[') {
            ++depth;
        } else if ((c == '}' || c == ']') && depth > 0) {
            --depth;
        }
    }
};

// A value for a one-line message: compact JSON of at most limit bytes, cut
// with an ellipsis.
std::string brief(const json &value, size_t limit = 40);
// The JSON type of a value, such a number included: "number", "string", ...
inline const char *type_of(const json &value) { return value.is_binary() ? "number" : value.type_name(); }

} // namespace obfl_wire
