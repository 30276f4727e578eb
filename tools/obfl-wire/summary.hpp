// summary: what a stream of messages holds, member by member. The count of
// messages and bytes; for every enumeration and boolean member the count of
// each value; for every number member its range; gaps, repeats and steps
// back in seq_num; the first and last timestamp. Memory stays that of the
// members, whatever the stream's length.
#pragma once

#include <cstdint>
#include <map>
#include <string>
#include <vector>

#include "record_json.hpp"

namespace obfl_wire {

struct record_schema; // schema.hpp

class summary {
public:
    explicit summary(const record_schema &schema) : schema_(schema) {}
    // One message: its size on the wire and its record as decode writes it.
    void add(size_t bytes, const json &record);
    void warned(unsigned notes) { warnings_ += notes; }
    void failed(uint64_t messages) { failed_ += messages; } // not decoded (--keep-going), not counted otherwise
    // A table for people, or one JSON document for scripts.
    std::string text() const;
    std::string json_text(bool pretty) const;

private:
    struct member {
        uint64_t count = 0;
        bool numbers = false, is_signed = false, wide = false; // wide: uint64, shown as strings
        int64_t smin = 0, smax = 0;       // int32 members
        uint64_t umin = 0, umax = 0;      // unsigned members
        std::string first, last;          // in stream order
        std::map<std::string, uint64_t> values; // enumerations and booleans
        uint64_t other_values = 0;        // beyond the values kept
    };
    struct sequence {
        bool started = false;
        uint64_t previous = 0;
        uint64_t gaps = 0, missing = 0, repeats = 0, back = 0;
        std::vector<std::pair<uint64_t, uint64_t>> gap_list; // (after, missing), the first few
        std::vector<uint64_t> repeat_list, back_list;        // the value, the first few
    };
    void walk(const json &obj, const record_schema &schema, const std::string &prefix, bool top);
    json document() const;

    const record_schema &schema_;
    uint64_t messages_ = 0, bytes_ = 0, smallest_ = 0, largest_ = 0, warnings_ = 0, failed_ = 0;
    std::vector<std::pair<std::string, member>> members_; // in the order first met
    std::map<std::string, size_t> index_;
    sequence seq_;
};

} // namespace obfl_wire
