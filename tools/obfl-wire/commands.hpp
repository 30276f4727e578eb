// The commands of obfl-wire, each run over its settings: what obfl_wire.cpp
// calls once the command line is parsed. Output goes through out; a failure
// is thrown as one line for standard error and an exit status.
#pragma once

#include <string>

#include "io.hpp"
#include "record_json.hpp"

namespace obfl_wire {

enum status { done = 0, not_decoded = 1, refused = 2, io_failed = 3, internal = 4 };

// A failure already worth its one line on standard error.
struct failure {
    status code;
    std::string line;
};

struct settings {
    std::string message, file, other_file, topic;
    bool binary = false, base64 = false, shared = false, pretty = false, hex_bytes = false, proto_json = false;
    bool lines = false, delimited = false, strict = false, json = false, keep_unknown = false, follow = false;
    bool base64_bytes = false, keep_going = false;
    json_options options() const { return {hex_bytes, proto_json, pretty}; }
};

// One line on standard error, "obfl-wire: " first, whatever a value in it
// held: at most 200 bytes, control characters shown as '?'.
void say(const std::string &line);

void run_decode(const settings &s, output &out);
void run_encode(const settings &s, output &out);
void run_raw(const settings &s, output &out);
void run_annotate(const settings &s, output &out);
void run_summary(const settings &s, output &out);
int run_diff(const settings &s, output &out); // done when equal, not_decoded when not
void run_guess(const settings &s, output &out);
void run_list(const settings &s, output &out); // list and describe

} // namespace obfl_wire
