// The workloads W1 to W8, each record filled completely in libprotobuf and
// handed out as libprotobuf's encoding: the bytes every contender decodes
// into its own record before anything is timed. W9, the line card's mix, is
// in line_card_mix.hpp.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

namespace bench {

// Which operations a workload is timed for.
enum op_set : unsigned {
    everyday = 1, // encode, measure + write, decode, duplicate
    gathered = 2, // gather encode and shared decode, for byte-string workloads
};

struct workload {
    std::string name;    // W1_log_syslog: the first part of its benchmarks' names
    std::string message; // log_syslog: the message, without the mivo_ prefix
    std::string wire;    // libprotobuf's encoding of the record
    unsigned ops;        // op_set
};

// W1, W2, W3 with 64 KiB of data (and its 1 KiB and 64 B variants, for
// gather and shared decode alone), W4 to W8, in that order.
std::vector<workload> workloads();

// The identifier in W1's target, alone: five numbers and one tsi element
// with a sub-type.
std::string identifier();

inline const uint8_t *u8(const std::string &s) { return reinterpret_cast<const uint8_t *>(s.data()); }

} // namespace bench
