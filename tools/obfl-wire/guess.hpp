// Which messages accept some bytes, best first.
#pragma once

#include <span>
#include <string>
#include <vector>

#include "record_json.hpp"

namespace obfl_wire {

// Ranked by fewest fields cut off (skipped fields that run past the end of
// their record, which protoc refuses), then fewest values that do not fit
// their member (a number wider than it, a boolean neither 0 nor 1, ...),
// then most members filled, then fewest decode warnings, then fewest bytes
// skipped as fields the records do not define (nested records included),
// then most enumeration members holding a named constant, then fewest
// members in the record; ties keep catalogue order.
struct candidate {
    const message *msg;
    unsigned members_filled;
    size_t bytes_skipped;
    unsigned cut_off;
    unsigned named_values;
    unsigned warnings;
    unsigned misfits;
    bool tie; // as good as the best on everything the bytes tell (all but the record's size)
    std::string record; // the record's JSON as that message
};
std::vector<candidate> guess(std::span<const uint8_t> bytes, bool shared, const json_options &options);

} // namespace obfl_wire
