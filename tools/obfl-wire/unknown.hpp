// Fields a record does not define, kept: decode --keep-unknown lists them in
// the JSON of the record that holds them, under "_unknown", each as
// {"field", "wire_type", "bytes"} (the bytes after the key, as on the wire);
// encode writes such lists again after their record's members, so that
// decode and encode lose nothing between them (save the fields' order).
#pragma once

#include <cstdint>
#include <span>
#include <string>
#include <vector>

#include "record_json.hpp"

namespace obfl_wire {

struct record_schema; // schema.hpp

// Adds the unknown fields of bytes, which decoded as this record, to doc, the
// record's JSON. False when there are none.
bool add_unknown(std::span<const uint8_t> bytes, const record_schema &schema, const json_options &options, json &doc);

// Whether doc, a record's JSON, holds an "_unknown" list anywhere.
bool has_unknown(const json &doc);

// bytes, this record's encoding without them, with the "_unknown" lists of
// doc written in: each after the fields of the record that holds it. False
// with error "tgt_eid._unknown[0]: ..." for an entry that cannot be written.
bool write_unknown(std::vector<uint8_t> &bytes, const record_schema &schema, const json &doc,
                   const json_options &options, std::string &error);

} // namespace obfl_wire
