// record_json: the OBFL catalogue in JSON and as a .proto schema.
//
// Everything here is expanded from the catalogue's own field and constant
// lists, so a member or an enumeration constant is never named twice. The
// command-line tool is a thin shell over this module; tests link it too.
//
// JSON follows the Protocol Buffers JSON mapping over the schema that
// proto_schema() prints:
//   - member names are the record members without their leading underscore;
//   - only present members appear; `null` on input means absent;
//   - 64-bit values are decimal strings (input takes strings or numbers, as
//     it does for every integer);
//   - byte strings are base64 (or plain hex with json_options::hex_bytes);
//   - enumeration members are their constant's name where the value has one,
//     else the number; input takes either, and a unique tail of a name after
//     an underscore ("CRITICAL") as well;
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

namespace obfl_wire {

// Objects keep their members in the order given: records print in member order.
using json = nlohmann::ordered_json;

struct json_options {
    bool hex_bytes = false; // byte strings as hex digits instead of base64, both ways
};

// Owns what a record filled by from_json points at (strings, byte strings,
// arrays); keep it alive as long as the record is in use.
struct arena {
    std::deque<std::vector<unsigned char>> blocks;
};

// One message of the catalogue. The record-level entries take a pointer to
// the message's own record, struct mivo_<name>.
struct message {
    const char *name;     // without the mivo_ prefix: "log_syslog"
    unsigned member_count;

    // JSON -> wire bytes, measured first and then written. On a refused
    // value returns false with "member: problem" in error (a nested member
    // as "tgt_eid.tsi[0].type") and leaves out untouched.
    bool (*encode)(const json &in, const json_options &options, std::vector<uint8_t> &out,
                   std::string &error);
    // Wire bytes -> JSON. Returns the decoder's result code (MIVO_NO_ERROR
    // = 0); only on success are out and, when not null, *members_filled set.
    // shared decodes with MIVO_FLAG_SHARED.
    int (*decode)(std::span<const uint8_t> bytes, bool shared, const json_options &options, json &out,
                  unsigned *members_filled);

    // Record <-> JSON. record points at a struct mivo_<name>: from_json
    // initialises it first, then fills it with memory from mem.
    bool (*from_json)(const json &in, void *record, arena &mem, const json_options &options,
                      std::string &error);
    json (*to_json)(const void *record, const json_options &options);

    // One line per member: field number, member, kind, key bytes.
    std::string (*describe)();
};

// All 37 messages in catalogue order.
std::span<const message> messages();
// By name, with or without the mivo_ prefix; null when there is none.
const message *find_message(std::string_view name);

// The catalogue and the entity identifier as a proto2 schema, package obfl.
std::string proto_schema();

// MIVO_ERROR_GARBLED and its kin; the identifier codec's own codes by number.
std::string result_name(int result);

// Which messages accept these bytes, best first: most members filled, then
// fewest bytes skipped as fields the record does not define, then most
// enumeration members holding a named constant, then fewest members in the
// record; ties keep catalogue order.
struct candidate {
    const message *msg;
    unsigned members_filled;
    size_t bytes_skipped;
    json record; // the JSON of the record as that message
};
std::vector<candidate> guess(std::span<const uint8_t> bytes, bool shared, const json_options &options);

// Hex text as people paste it: any spacing, either case, colons or commas
// between bytes, 0x before any group. False when it is not that.
bool parse_hex(std::string_view text, std::vector<uint8_t> &out);
// "08 01 10 AC 02"
std::string to_hex(std::span<const uint8_t> bytes);

} // namespace obfl_wire
