// diff: the members that differ between two records, by path, one line
// each: "tgt_eid.tsi[0].instance: 1 -> 2", "data: \"abc\" -> (absent)".
#pragma once

#include <string>
#include <vector>

#include "record_json.hpp"

namespace obfl_wire {

// Both documents as decode writes them (members in record order).
std::vector<std::string> differences(const json &a, const json &b);

} // namespace obfl_wire
