// The messages of a stream, taken from an input one at a time as they
// arrive: lines, delimited messages (each after its length as a varint, as
// libprotobuf writes them) and JSON texts one after another.
#pragma once

#include <cstdint>
#include <span>
#include <string>
#include <string_view>

#include "io.hpp"

namespace obfl_wire {

// One message of a stream; its bytes or text stay valid until the next one is taken.
struct stream_item {
    unsigned number = 0;        // 1, 2, ...
    uint64_t at = 0;            // byte offset of its start in the input
    size_t line = 0;            // line of its start, from 1 (lines and JSON)
    size_t column = 1;          // column of its start (JSON)
    std::span<const uint8_t> bytes; // delimited
    std::string_view text;          // a line, or a JSON text
    // "message 2 (from byte 3): " or "message 2 (line 2, from byte 6): ", to
    // open a message about it.
    std::string where() const;
};

class stream {
public:
    enum form { lines, delimited, json_texts };
    stream(input &in, form f) : in_(in), form_(f) {}
    // The next message; false at the end of the input, or with error set
    // when the stream cannot go on (a length past the end, ...).
    bool next(stream_item &item, std::string &error);

private:
    bool next_delimited(stream_item &item, std::string &error);
    bool next_line(stream_item &item);
    bool next_json(stream_item &item);

    input &in_;
    form form_;
    unsigned number_ = 0;
    size_t line_ = 1, column_ = 1; // of the position in the input
};

// Messages larger than libprotobuf reads; a length above it is taken for garbage.
inline constexpr uint64_t largest_message = 0x7FFFFFFF;

} // namespace obfl_wire
