// obfl-wire: read, write and describe OBFL manager wire messages.
//
//   obfl-wire decode MESSAGE [FILE]   wire bytes (hex text, or raw with --binary) to JSON
//   obfl-wire encode MESSAGE [FILE]   JSON to wire bytes
//   obfl-wire raw [FILE]              wire bytes to JSON without a message name
//   obfl-wire guess [FILE]            which messages accept these bytes, best first
//   obfl-wire proto                   the catalogue as a proto2 schema
//   obfl-wire list [MESSAGE]          every message, or one message's members
//   obfl-wire describe MESSAGE        one message's members
//
// Exit status: 0 done; 1 the bytes do not decode (or no message accepts
// them, or --strict met a warning); 2 a usage error or refused input; 3 a
// read or write error; 4 an internal error. A single result is written
// only once the whole of it is known; a stream writes each message's line
// once that message is done and stops at the first bad one.
#include <csignal>
#include <cstdio>
#include <iostream>
#include <string>
#include <vector>

#include <unistd.h>

#include <CLI/CLI.hpp>

#include "diagnose.hpp"
#include "guess.hpp"
#include "io.hpp"
#include "json_out.hpp"
#include "nuvex_decode.h"
#include "nuvex_encode.h"
#include "raw.hpp"
#include "record_json.hpp"
#include "schema.hpp"

namespace {

using namespace obfl_wire;

enum status { done = 0, not_decoded = 1, refused = 2, io_failed = 3, internal = 4 };

// A failure already worth its one line on standard error.
struct failure {
    status code;
    std::string line;
};

struct settings {
    std::string message;
    std::string file;
    bool binary = false;
    bool shared = false;
    bool pretty = false;
    bool hex_bytes = false;
    bool proto_json = false;
    bool lines = false;
    bool delimited = false;
    bool strict = false;
    bool json = false;
    json_options options() const { return {hex_bytes, proto_json, pretty}; }
};

void say(const std::string &line) { std::fputs(("obfl-wire: " + line + "\n").c_str(), stderr); }

const message &lookup(const std::string &name)
{
    const message *m = find_message(name);
    if (m == nullptr) {
        throw failure{refused, "no message '" + name + "' (see 'obfl-wire list')"};
    }
    return *m;
}

std::vector<uint8_t> hex_bytes_of(std::string_view text, const std::string &where)
{
    std::vector<uint8_t> bytes;
    if (!parse_hex(text, bytes)) {
        throw failure{refused, where + "input is not hex (give raw bytes with --binary)"};
    }
    return bytes;
}

// One message's bytes -> its JSON line in out; warnings on standard error.
void decode_one(const settings &s, const message &m, std::span<const uint8_t> bytes, const std::string &where,
                output &out)
{
    std::string &text = out.buffer();
    const size_t mark = text.size();
    const int rc = m.decode(bytes, s.shared, s.options(), text, nullptr, nullptr);
    if (rc != MIVO_NO_ERROR) {
        text.resize(mark);
        const std::string place = failure_place(bytes, m.schema());
        throw failure{not_decoded, where + std::string(m.name()) + ": " + result_name(rc) + (place.empty() ? "" : " " + place)};
    }
    const auto notes = tolerated(bytes, m.schema());
    for (const auto &note : notes) {
        say("warning: " + where + std::string(m.name()) + ": " + note);
    }
    if (s.strict && !notes.empty()) {
        text.resize(mark);
        throw failure{not_decoded, where + std::string(m.name()) + ": refused with --strict: " + std::to_string(notes.size()) +
                                       " warning" + (notes.size() == 1 ? "" : "s")};
    }
    text += '\n';
}

// Calls fn(line, "line N: ") for every non-blank line.
template <class Fn>
void each_line(const std::string &text, Fn fn)
{
    size_t number = 0;
    for (size_t at = 0; at < text.size();) {
        size_t end = text.find('\n', at);
        end = end == std::string::npos ? text.size() : end;
        ++number;
        const std::string_view line(text.data() + at, end - at);
        if (line.find_first_not_of(" \t\r") != std::string_view::npos) {
            fn(line, "line " + std::to_string(number) + ": ");
        }
        at = end + 1;
    }
}

void decode(const settings &s, output &out)
{
    const message &m = lookup(s.message);
    const std::string input = read_all(s.file);
    const auto *data = reinterpret_cast<const uint8_t *>(input.data());
    if (s.delimited) {
        // Each message after its length as a varint, as libprotobuf writes a delimited stream.
        size_t pos = 0;
        for (unsigned n = 1; pos < input.size(); ++n) {
            const std::string where = "message " + std::to_string(n) + " (from byte " + std::to_string(pos) + "): ";
            uint64_t length;
            if (nuvex_decode_var64(&length, &pos, data, input.size()) != MIVO_NO_ERROR) {
                throw failure{not_decoded, where + "its length runs past the end of the input"};
            }
            if (length > input.size() - pos) {
                throw failure{not_decoded, where + "length " + std::to_string(length) +
                                               " runs past the end of the input (" +
                                               std::to_string(input.size() - pos) + " bytes left)"};
            }
            decode_one(s, m, {data + pos, static_cast<size_t>(length)}, where, out);
            pos += static_cast<size_t>(length);
            out.flush_if_large();
        }
    } else if (s.lines) {
        each_line(input, [&](std::string_view line, const std::string &where) {
            decode_one(s, m, hex_bytes_of(line, where), where, out);
            out.flush_if_large();
        });
    } else if (s.binary) {
        decode_one(s, m, {data, input.size()}, "", out);
    } else {
        // Hex over several lines is one message, as a wrapped dump is; say so,
        // since lines that were meant as messages of their own would merge.
        size_t lines = 0;
        each_line(input, [&](std::string_view, const std::string &) { ++lines; });
        if (lines > 1) {
            say("warning: " + std::to_string(lines) + " lines of hex read as one message (one per line: --lines)");
            if (s.strict) {
                throw failure{not_decoded, "refused with --strict: several lines of hex"};
            }
        }
        decode_one(s, m, hex_bytes_of(input, ""), "", out);
    }
}

std::vector<uint8_t> encode_one(const settings &s, const message &m, std::string_view text, const std::string &where)
{
    json in;
    std::string error;
    if (!parse_json(text, in, error)) {
        if (!where.empty() && error.starts_with("line 1, ")) {
            error = error.substr(8); // a line of a stream is its own line 1
        }
        throw failure{refused, where + "not JSON: " + error};
    }
    std::vector<uint8_t> bytes;
    if (!m.encode(in, s.options(), bytes, error)) {
        throw failure{refused, where + std::string(m.name()) + ": " + error};
    }
    return bytes;
}

void encode(const settings &s, output &out)
{
    const message &m = lookup(s.message);
    const std::string input = read_all(s.file);
    if (s.lines || s.delimited) {
        each_line(input, [&](std::string_view line, const std::string &where) {
            const auto bytes = encode_one(s, m, line, where);
            if (s.delimited) {
                uint8_t length[10];
                out.put({reinterpret_cast<const char *>(length), nuvex_encode_var64(bytes.size(), 0, length, 10)});
                out.put({reinterpret_cast<const char *>(bytes.data()), bytes.size()});
            } else {
                out.put(to_hex(bytes) + "\n");
            }
            out.flush_if_large();
        });
        return;
    }
    const auto bytes = encode_one(s, m, input, "");
    if (s.binary) {
        out.put({reinterpret_cast<const char *>(bytes.data()), bytes.size()});
    } else {
        out.put(to_hex(bytes) + "\n");
    }
}

std::vector<uint8_t> wire_input(const settings &s)
{
    const std::string input = read_all(s.file);
    if (s.binary) {
        return {input.begin(), input.end()};
    }
    return hex_bytes_of(input, "");
}

void raw(const settings &s, output &out)
{
    const auto bytes = wire_input(s);
    std::string error;
    if (!raw_json(bytes, s.options(), out.buffer(), error)) {
        throw failure{not_decoded, "not a message: " + error};
    }
    out.put("\n");
}

void guess(const settings &s, output &out)
{
    const auto bytes = wire_input(s);
    settings compact = s;
    compact.pretty = false;
    const auto found = obfl_wire::guess(bytes, s.shared, compact.options());
    if (found.empty()) {
        throw failure{not_decoded, "no message accepts these bytes"};
    }
    std::string tied;
    for (const auto &c : found) {
        tied += c.tie ? std::string(tied.empty() ? "" : ", ") + std::string(c.msg->name()) : "";
    }
    if (!tied.empty()) {
        say("warning: the bytes fit these messages equally well: " + tied);
    }
    if (!s.json) {
        for (const auto &c : found) {
            char line[200];
            const std::string name(c.msg->name());
            std::snprintf(line, sizeof line, "%-36s %2u member%s filled, %zu bytes skipped%s\n", name.c_str(),
                          c.members_filled, c.members_filled == 1 ? "" : "s", c.bytes_skipped, c.tie ? ", tie" : "");
            out.put(line);
        }
        return;
    }
    json_out j(out.buffer(), s.pretty);
    j.begin_array();
    for (const auto &c : found) {
        j.begin_object();
        j.key("message");
        j.string(c.msg->name());
        j.key("members_filled");
        j.number(c.members_filled);
        j.key("bytes_skipped");
        j.number(c.bytes_skipped);
        j.key("tie");
        j.boolean(c.tie);
        j.key("record");
        j.literal(c.record);
        j.end_object();
    }
    j.end_array();
    out.put("\n");
}

void list(const settings &s, output &out)
{
    if (!s.message.empty()) {
        out.put(lookup(s.message).describe());
        return;
    }
    for (const auto &m : messages()) {
        char line[80];
        std::snprintf(line, sizeof line, "%-36s %2u members\n", std::string(m.name()).c_str(), m.member_count());
        out.put(line);
    }
}

int run(int argc, char **argv)
{
    CLI::App app{"Read, write and describe OBFL manager wire messages. MESSAGE is a name from 'list',\n"
                 "with or without its mivo_ prefix. Exit status: 0 done, 1 the bytes do not decode,\n"
                 "2 a usage error or refused input, 3 a read or write error."};
    settings s;
    s.pretty = isatty(STDOUT_FILENO) != 0;
    bool version = false;
    app.add_flag("--version", version, "print the library version");
    app.require_subcommand(0, 1);

    const auto add_message = [&](CLI::App *cmd, bool required) {
        auto *o = cmd->add_option("MESSAGE", s.message, "message name, e.g. log_syslog");
        if (required) {
            o->required();
        }
    };
    const auto add_reading = [&](CLI::App *cmd, const char *what) {
        cmd->add_option("FILE", s.file, std::string(what) + " (standard input when absent or -)");
        cmd->add_flag("--hex-bytes", s.hex_bytes, "byte strings in JSON as hex digits instead of base64");
    };
    const auto add_wire_input = [&](CLI::App *cmd) {
        cmd->add_flag("--binary", s.binary, "read raw bytes instead of hex text");
        cmd->add_flag("--pretty,!--compact", s.pretty, "indent the JSON (default on a terminal)");
    };
    const auto add_streams = [&](CLI::App *cmd, const char *lines, const char *delimited) {
        auto *l = cmd->add_flag("--lines", s.lines, lines);
        cmd->add_flag("--delimited", s.delimited, delimited)->excludes(l);
    };

    auto *decode_cmd = app.add_subcommand("decode", "wire bytes (hex text: any spacing or case, 0x, colons) to JSON");
    add_message(decode_cmd, true);
    add_reading(decode_cmd, "hex text or, with --binary, raw bytes");
    add_wire_input(decode_cmd);
    decode_cmd->add_flag("--shared", s.shared, "decode with MIVO_FLAG_SHARED");
    add_streams(decode_cmd, "one message per line of hex, one JSON object per line out",
                "a stream of messages each after its length as a varint, one JSON object per line out");
    decode_cmd->add_flag("--strict", s.strict, "fail (exit 1) on anything the decoder tolerated");
    decode_cmd->add_flag("--proto-json", s.proto_json, "lowerCamelCase names and enumerations as numbers, "
                                                       "as libprotobuf reads them against 'obfl-wire proto'");

    auto *encode_cmd = app.add_subcommand("encode", "JSON to wire bytes, printed as hex");
    add_message(encode_cmd, true);
    add_reading(encode_cmd, "the message as a JSON object");
    encode_cmd->add_flag("--binary", s.binary, "write raw bytes instead of hex text");
    add_streams(encode_cmd, "one JSON object per line in, one line of hex out",
                "one JSON object per line in, each message written after its length as a varint");

    auto *raw_cmd = app.add_subcommand("raw", "wire bytes to JSON without a message name: every field by "
                                              "number and wire type");
    add_reading(raw_cmd, "hex text or, with --binary, raw bytes");
    add_wire_input(raw_cmd);

    auto *guess_cmd = app.add_subcommand("guess", "list the messages that accept the bytes, best first");
    add_reading(guess_cmd, "hex text or, with --binary, raw bytes");
    add_wire_input(guess_cmd);
    guess_cmd->add_flag("--shared", s.shared, "decode with MIVO_FLAG_SHARED");
    guess_cmd->add_flag("--json", s.json, "the ranked candidates and their records as one JSON document");

    auto *proto_cmd = app.add_subcommand("proto", "print the catalogue as a proto2 schema (package obfl)");
    auto *list_cmd = app.add_subcommand("list", "every message, or with MESSAGE its members");
    add_message(list_cmd, false);
    auto *describe_cmd = app.add_subcommand("describe", "a message's members: field number, member, kind, key bytes");
    add_message(describe_cmd, true);

    try {
        app.parse(argc, argv);
    } catch (const CLI::ParseError &e) {
        return app.exit(e) == 0 ? done : refused;
    }
    output out;
    try {
        if (version) {
            out.put("obfl-wire " OBFL_WIRE_VERSION "\n");
        } else if (*decode_cmd) {
            decode(s, out);
        } else if (*encode_cmd) {
            encode(s, out);
        } else if (*raw_cmd) {
            raw(s, out);
        } else if (*guess_cmd) {
            guess(s, out);
        } else if (*proto_cmd) {
            out.put(proto_schema());
        } else if (*list_cmd || *describe_cmd) {
            list(s, out);
        } else {
            say("a command is required (see 'obfl-wire --help')");
            return refused;
        }
    } catch (const failure &f) {
        out.flush(); // the messages of a stream that were done before it
        say(f.line);
        return f.code;
    }
    out.close();
    return done;
}

} // namespace

int main(int argc, char **argv)
{
    // A closed pipe is reported like any other write error, not a silent death.
    std::signal(SIGPIPE, SIG_IGN);
    try {
        return run(argc, argv);
    } catch (const io_error &e) {
        say(e.what());
        return io_failed;
    } catch (const std::bad_alloc &) {
        say("out of memory");
        return internal;
    } catch (const std::exception &e) {
        say(std::string("internal error: ") + e.what());
        return internal;
    } catch (...) {
        say("internal error");
        return internal;
    }
}
