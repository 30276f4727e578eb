// obfl-wire: read, write and describe OBFL manager wire messages.
//
//   obfl-wire decode MESSAGE [FILE]    wire bytes (hex text, base64 or raw) to JSON
//   obfl-wire encode MESSAGE [FILE]    JSON to wire bytes
//   obfl-wire raw [FILE]               wire bytes to JSON without a message name
//   obfl-wire annotate MESSAGE [FILE]  each byte range beside the member it encodes
//   obfl-wire summary MESSAGE [FILE]   what a stream of messages holds, member by member
//   obfl-wire diff MESSAGE A B         the members that differ between two messages
//   obfl-wire guess [FILE]             which messages accept these bytes, best first
//   obfl-wire proto                    the catalogue as a proto2 schema
//   obfl-wire list [MESSAGE]           every message, or one message's members
//   obfl-wire describe MESSAGE         one message's members
//   obfl-wire help [COMMAND]
//
// Exit status: 0 done; 1 the bytes do not decode (or no message accepts
// them, or --strict met a warning; for diff: the messages differ); 2 a usage
// error or refused input; 3 a read or write error; 4 an internal error. A
// closed pipe ends the tool as it ends cat, by SIGPIPE. A single result is
// written only once the whole of it is known; a stream writes each message's
// line once that message is done, before it waits for the next, and stops at
// the first bad one.
#include <csignal>
#include <cstdio>
#include <string>
#include <vector>

#include <unistd.h>

#include <CLI/CLI.hpp>

#include "annotate.hpp"
#include "diagnose.hpp"
#include "diff.hpp"
#include "guess.hpp"
#include "io.hpp"
#include "json_out.hpp"
#include "nuvex_decode.h"
#include "nuvex_encode.h"
#include "pasted.hpp"
#include "raw.hpp"
#include "record_json.hpp"
#include "schema.hpp"
#include "stream.hpp"
#include "suggest.hpp"
#include "summary.hpp"
#include "unknown.hpp"

namespace {

using namespace obfl_wire;

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
    json_options options() const { return {hex_bytes, proto_json, pretty}; }
};

// One line on standard error, whatever a value in it held: at most 200
// bytes, control characters shown as '?'.
void say(const std::string &line)
{
    std::string text = "obfl-wire: " + line;
    for (char &c : text) {
        c = static_cast<unsigned char>(c) < 0x20 ? '?' : c;
    }
    text = shortened(std::move(text), 200) + "\n";
    std::fwrite(text.data(), 1, text.size(), stderr);
}

const message &lookup(const std::string &name)
{
    const message *m = find_message(name);
    if (m == nullptr) {
        std::vector<std::string_view> names;
        for (const message &each : messages()) {
            names.push_back(each.name());
        }
        const std::string hint = did_you_mean(name, names);
        throw failure{refused, "no message '" + shortened(name, 60) + "'" + (hint.empty() ? "" : "; " + hint) +
                                   " (see 'obfl-wire list')"};
    }
    return *m;
}

// One message's bytes: read from text, or with --binary the input itself
// (not copied: a message may be most of the memory the tool uses).
struct wire_bytes {
    std::vector<uint8_t> owned;
    std::span<const uint8_t> view;
    wire_bytes() = default;
    wire_bytes(const wire_bytes &) = delete;
    wire_bytes(wire_bytes &&) = default; // the view goes with the owned block
    operator std::span<const uint8_t>() const { return view; }
};

// One message's bytes from its text: hex as people paste it, base64, or raw.
wire_bytes bytes_of(const settings &s, std::string_view text, size_t first_line = 1)
{
    wire_bytes bytes;
    if (s.binary) {
        bytes.view = {reinterpret_cast<const uint8_t *>(text.data()), text.size()};
        return bytes;
    }
    std::string error;
    if (!(s.base64 ? bytes_from_base64(text, bytes.owned, error, first_line)
                   : bytes_from_text(text, bytes.owned, error, first_line))) {
        throw failure{refused, "input is not " + std::string(s.base64 ? "base64" : "hex") + ": " + error};
    }
    bytes.view = bytes.owned;
    return bytes;
}

std::string plural(size_t n, const char *one, const char *many)
{
    return std::to_string(n) + " " + (n == 1 ? one : many);
}

// Whether bytes read as two or more messages each after its length, each
// decoding as m without a warning: a delimited stream given as one message.
size_t delimited_count(std::span<const uint8_t> bytes, const message &m)
{
    size_t pos = 0, count = 0;
    std::string text;
    while (pos < bytes.size()) {
        uint64_t length;
        if (nuvex_decode_var64(&length, &pos, bytes.data(), bytes.size()) != MIVO_NO_ERROR || length > bytes.size() - pos) {
            return 0;
        }
        const auto one = bytes.subspan(pos, static_cast<size_t>(length));
        if (m.decode(one, false, {}, text, nullptr, nullptr) != MIVO_NO_ERROR || !tolerated(one, m.schema()).empty()) {
            return 0;
        }
        pos += static_cast<size_t>(length);
        ++count;
    }
    return count >= 2 ? count : 0;
}

// One message's bytes -> its JSON line in out; warnings on standard error.
// Returns the number of warnings.
size_t decode_one(const settings &s, const message &m, std::span<const uint8_t> bytes, const std::string &where,
                  output &out, bool hint = false)
{
    std::string &text = out.buffer();
    const size_t mark = text.size();
    const int rc = m.decode(bytes, s.shared, s.options(), text, nullptr, nullptr);
    const auto suggest_delimited = [&] {
        if (const size_t n = hint ? delimited_count(bytes, m) : 0; n != 0) {
            say("hint: the bytes read as " + std::to_string(n) + " messages, each after its length (try --delimited)");
        }
    };
    if (rc != MIVO_NO_ERROR) {
        text.resize(mark);
        const std::string place = failure_place(bytes, m.schema());
        suggest_delimited();
        throw failure{not_decoded, where + std::string(m.name()) + ": " + result_name(rc) + (place.empty() ? "" : " " + place)};
    }
    const auto notes = tolerated(bytes, m.schema());
    for (const auto &n : notes) {
        say("warning: " + where + std::string(m.name()) + ": " + n.text);
    }
    if (!notes.empty()) {
        suggest_delimited();
    }
    if (s.strict && !notes.empty()) {
        text.resize(mark);
        throw failure{not_decoded, where + std::string(m.name()) + ": refused with --strict: " +
                                       plural(notes.size(), "warning", "warnings")};
    }
    if (s.keep_unknown) {
        json doc = json::parse(text.begin() + static_cast<std::ptrdiff_t>(mark), text.end());
        if (add_unknown(bytes, m.schema(), s.options(), doc)) {
            text.resize(mark);
            text += doc.dump(s.pretty ? 2 : -1);
        }
    }
    text += '\n';
    return notes.size();
}

void warn_line(const std::string &line) { say(line); }

// The messages of the input one at a time: fn(bytes, item) for a wire
// stream, each message decoded from its line or its length.
template <class Fn>
void each_message(const settings &s, input &in, Fn fn)
{
    stream messages(in, s.delimited ? stream::delimited : stream::lines);
    stream_item item;
    std::string error;
    size_t count = 0;
    while (messages.next(item, error)) {
        if (s.delimited) {
            fn(item.bytes, item);
        } else {
            const auto bytes = bytes_of(s, item.text, item.line);
            fn(std::span<const uint8_t>(bytes), item);
        }
        ++count;
    }
    if (!error.empty()) {
        throw failure{not_decoded, error};
    }
    if (count == 0) {
        say("warning: the input holds no messages");
    }
}

void check_stream_flags(const settings &s, const char *command)
{
    if (s.follow && s.file.empty()) {
        throw failure{refused, std::string(command) + ": --follow needs a FILE to follow"};
    }
    if (s.follow && !s.lines && !s.delimited) {
        throw failure{refused, std::string(command) + ": --follow reads a stream: give --lines or --delimited"};
    }
}

// A single message's text: the whole input, said when it is empty.
std::string_view whole_input(const settings &s, input &in, bool &empty)
{
    const std::string_view text = in.rest();
    empty = s.binary ? text.empty() : text.find_first_not_of(" \t\r\n") == std::string_view::npos;
    return text;
}

void decode(const settings &s, output &out)
{
    check_stream_flags(s, "decode");
    const message &m = lookup(s.message);
    input in(s.file, &out, s.follow, warn_line);
    if (s.delimited || s.lines) {
        each_message(s, in, [&](std::span<const uint8_t> bytes, const stream_item &item) {
            decode_one(s, m, bytes, item.where(), out);
            out.flush_if_large();
        });
        return;
    }
    bool empty;
    const std::string_view text = whole_input(s, in, empty);
    if (empty) {
        say("warning: the input is empty: the record at its defaults");
        if (s.strict) {
            throw failure{not_decoded, "refused with --strict: no bytes"};
        }
    }
    // Hex over several lines is one message, as a wrapped dump is; say so,
    // since lines that were meant as messages of their own would merge.
    const auto bytes = bytes_of(s, text);
    size_t lines = 0;
    for (size_t at = 0; !s.binary && !s.base64 && at < text.size();) {
        const size_t end = std::min(text.find('\n', at), text.size());
        lines += text.substr(at, end - at).find_first_not_of(" \t\r") != std::string_view::npos ? 1 : 0;
        at = end + 1;
    }
    if (lines > 1 && !is_dump(text)) {
        say("warning: " + std::to_string(lines) + " lines of hex read as one message (one per line: --lines)");
        if (s.strict) {
            throw failure{not_decoded, "refused with --strict: several lines of hex"};
        }
    }
    decode_one(s, m, bytes, "", out, true);
}

// "line 1, column 9: ..." of a JSON text that starts at item -> where in the input.
std::string json_error_at(const std::string &error, const stream_item &item)
{
    unsigned long line = 0, column = 0;
    int used = 0;
    if (std::sscanf(error.c_str(), "line %lu, column %lu: %n", &line, &column, &used) != 2 || used == 0) {
        return item.where() + "not JSON: " + error;
    }
    const size_t absolute = item.line + line - 1;
    const size_t col = line == 1 ? item.column + column - 1 : column;
    return "line " + std::to_string(absolute) + ": not JSON: column " + std::to_string(col) + ": " +
           error.substr(static_cast<size_t>(used));
}

std::vector<uint8_t> encode_one(const settings &s, const message &m, std::string_view text, const stream_item *item)
{
    json in;
    std::string error;
    if (!parse_json(text, in, error)) {
        throw failure{refused, item != nullptr ? json_error_at(error, *item) : "not JSON: " + error};
    }
    std::vector<uint8_t> bytes;
    if (!m.encode(in, s.options(), bytes, error)) {
        throw failure{refused, (item != nullptr ? item->where() : "") + std::string(m.name()) + ": " + error};
    }
    return bytes;
}

void put_bytes(const settings &s, output &out, const std::vector<uint8_t> &bytes, bool delimited)
{
    if (delimited) {
        uint8_t length[10];
        out.put({reinterpret_cast<const char *>(length), nuvex_encode_var64(bytes.size(), 0, length, 10)});
    }
    if (s.binary || delimited) {
        out.put({reinterpret_cast<const char *>(bytes.data()), bytes.size()});
    } else {
        out.put(to_hex(bytes) + "\n");
    }
}

void encode(const settings &s, output &out)
{
    check_stream_flags(s, "encode");
    const message &m = lookup(s.message);
    input in(s.file, &out, s.follow, warn_line);
    if (s.lines || s.delimited) {
        // JSON texts one after another, each on a line of its own or over several.
        stream texts(in, stream::json_texts);
        stream_item item;
        std::string error;
        size_t count = 0;
        while (texts.next(item, error)) {
            put_bytes(s, out, encode_one(s, m, item.text, &item), s.delimited);
            out.flush_if_large();
            ++count;
        }
        if (count == 0) {
            say("warning: the input holds no messages");
        }
        return;
    }
    bool empty;
    const std::string_view text = whole_input(s, in, empty);
    if (empty) {
        throw failure{refused, "the input is empty (a message is a JSON object; {} for one without members)"};
    }
    put_bytes(s, out, encode_one(s, m, text, nullptr), false);
}

void raw(const settings &s, output &out)
{
    check_stream_flags(s, "raw");
    input in(s.file, &out, s.follow, warn_line);
    const auto one = [&](std::span<const uint8_t> bytes, const std::string &where) {
        std::string error;
        if (!raw_json(bytes, s.options(), out.buffer(), error)) {
            throw failure{not_decoded, where + "not a message: " + error};
        }
        out.put("\n");
    };
    if (s.delimited || s.lines) {
        each_message(s, in, [&](std::span<const uint8_t> bytes, const stream_item &item) {
            one(bytes, item.where());
            out.flush_if_large();
        });
        return;
    }
    bool empty;
    const auto bytes = bytes_of(s, whole_input(s, in, empty));
    if (empty) {
        say("warning: the input is empty: no fields");
    }
    one(bytes, "");
}

std::vector<uint8_t> single_message(const settings &s, const std::string &file, const char *what)
{
    input in(file, nullptr);
    bool empty;
    const auto bytes = bytes_of(s, whole_input(s, in, empty));
    if (empty) {
        throw failure{not_decoded, std::string("no bytes to ") + what + ": the input is empty"};
    }
    return {bytes.view.begin(), bytes.view.end()};
}

void guess(const settings &s, output &out)
{
    const auto bytes = single_message(s, s.file, "guess from");
    settings compact = s;
    compact.pretty = false;
    const auto found = obfl_wire::guess(bytes, s.shared, compact.options());
    if (found.empty()) {
        throw failure{not_decoded, "no message accepts these bytes"};
    }
    // The ties by name, up to five as far as one line holds them, and a count.
    size_t ties = 0, named = 0;
    for (const auto &c : found) {
        ties += c.tie ? 1 : 0;
    }
    std::string line = "warning: " + std::to_string(ties) + " messages fit the bytes equally well: ";
    for (const auto &c : found) {
        const std::string more = " and " + std::to_string(ties - named - 1) + " more";
        if (!c.tie || named == 5 || line.size() + c.msg->name().size() + (named + 1 < ties ? more.size() : 0) > 185) {
            break; // the ties lead the ranking
        }
        line += (named++ == 0 ? "" : ", ") + std::string(c.msg->name());
    }
    if (ties != 0) {
        say(line + (named < ties ? " and " + std::to_string(ties - named) + " more" : ""));
    }
    if (!s.json) {
        for (const auto &c : found) {
            char line[240];
            const std::string name(c.msg->name());
            std::snprintf(line, sizeof line, "%-36s %2u member%s filled, %zu bytes skipped%s%s%s\n", name.c_str(),
                          c.members_filled, c.members_filled == 1 ? "" : "s", c.bytes_skipped,
                          c.warnings == 0 ? "" : (", " + plural(c.warnings, "warning", "warnings")).c_str(),
                          c.misfits == 0 ? "" : (", " + plural(c.misfits, "value", "values") + " not fitting").c_str(),
                          c.tie ? ", tie" : "");
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
        j.key("warnings");
        j.number(c.warnings);
        j.key("values_not_fitting");
        j.number(c.misfits);
        j.key("tie");
        j.boolean(c.tie);
        j.key("record");
        j.literal(c.record);
        j.end_object();
    }
    j.end_array();
    out.put("\n");
}

// Decodes one message to its JSON document; failures say which input.
json decoded(const settings &s, const message &m, std::span<const uint8_t> bytes, const std::string &where, status bad)
{
    std::string text;
    json_options o = s.options();
    o.pretty = false;
    const int rc = m.decode(bytes, s.shared, o, text, nullptr, nullptr);
    if (rc != MIVO_NO_ERROR) {
        const std::string place = failure_place(bytes, m.schema());
        throw failure{bad, where + std::string(m.name()) + ": " + result_name(rc) + (place.empty() ? "" : " " + place)};
    }
    json doc = json::parse(text);
    if (s.keep_unknown) {
        add_unknown(bytes, m.schema(), o, doc);
    }
    return doc;
}

void summarise(const settings &s, output &out)
{
    if (!s.lines && !s.delimited) {
        throw failure{refused, "summary: it reads a stream: give --delimited or --lines"};
    }
    const message &m = lookup(s.message);
    input in(s.file, &out);
    summary sum(m.schema());
    constexpr size_t warnings_shown = 10;
    size_t warned = 0;
    each_message(s, in, [&](std::span<const uint8_t> bytes, const stream_item &item) {
        const json doc = decoded(s, m, bytes, item.where(), not_decoded);
        const auto notes = tolerated(bytes, m.schema());
        for (const auto &n : notes) {
            if (warned++ < warnings_shown) {
                say("warning: " + item.where() + std::string(m.name()) + ": " + n.text);
            }
        }
        if (s.strict && !notes.empty()) {
            throw failure{not_decoded, item.where() + std::string(m.name()) + ": refused with --strict: " +
                                           plural(notes.size(), "warning", "warnings")};
        }
        sum.warned(static_cast<unsigned>(notes.size()));
        sum.add(bytes.size(), doc);
    });
    if (warned > warnings_shown) {
        say("warning: " + std::to_string(warned - warnings_shown) + " more warnings not shown");
    }
    out.put(s.json ? sum.json_text(s.pretty) : sum.text());
}

int compare(const settings &s, output &out)
{
    const message &m = lookup(s.message);
    if ((s.file.empty() || s.file == "-") && (s.other_file.empty() || s.other_file == "-")) {
        throw failure{refused, "diff: only one of A and B can be standard input"};
    }
    const auto name = [](const std::string &f) { return f == "-" ? std::string("standard input") : f; };
    const auto a_bytes = single_message(s, s.file, "compare");
    const auto b_bytes = single_message(s, s.other_file, "compare");
    const json a = decoded(s, m, a_bytes, name(s.file) + ": ", refused);
    const json b = decoded(s, m, b_bytes, name(s.other_file) + ": ", refused);
    for (const auto &[file, bytes] : {std::pair{name(s.file), &a_bytes}, std::pair{name(s.other_file), &b_bytes}}) {
        for (const auto &n : tolerated(*bytes, m.schema())) {
            say("warning: " + file + ": " + std::string(m.name()) + ": " + n.text);
        }
    }
    const auto lines = differences(a, b);
    for (const auto &line : lines) {
        out.put(line + "\n");
    }
    if (lines.empty() && a_bytes != b_bytes) {
        say("the records are equal; their bytes differ (field order, encoding or unknown fields)");
    }
    return lines.empty() ? done : not_decoded;
}

void annotate_message(const settings &s, output &out)
{
    const message &m = lookup(s.message);
    input in(s.file, nullptr);
    bool empty;
    const auto bytes = bytes_of(s, whole_input(s, in, empty));
    if (empty) {
        say("warning: the input is empty: the record at its defaults");
    }
    std::string table;
    const bool whole = annotate(bytes, m.schema(), table);
    out.put(table);
    std::string text;
    const int rc = m.decode(bytes, s.shared, {}, text, nullptr, nullptr);
    if (rc != MIVO_NO_ERROR || !whole) {
        const std::string place = failure_place(bytes, m.schema());
        throw failure{not_decoded, std::string(m.name()) + ": " + result_name(rc) + (place.empty() ? "" : " " + place)};
    }
    for (const auto &n : tolerated(bytes, m.schema())) {
        say("warning: " + std::string(m.name()) + ": " + n.text);
    }
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

// CLI11's message, in the tool's one-line style.
std::string usage_line(const CLI::App &app, const CLI::ParseError &e, int argc, char **argv)
{
    std::string what = e.what();
    if (what.size() > 1 && what[0] >= 'A' && what[0] <= 'Z' && what[1] >= 'a' && what[1] <= 'z') {
        what[0] = static_cast<char>(what[0] - 'A' + 'a');
    }
    const auto chosen = app.get_subcommands();
    if (chosen.empty() && argc > 1 && argv[1][0] != '-') {
        std::vector<std::string_view> names;
        for (const CLI::App *sub : app.get_subcommands({})) {
            names.push_back(sub->get_name());
        }
        const std::string hint = did_you_mean(argv[1], names);
        return "no command '" + shortened(argv[1], 40) + "'" + (hint.empty() ? "" : "; " + hint) +
               " (see 'obfl-wire help')";
    }
    const std::string command = chosen.empty() ? "" : chosen[0]->get_name();
    return (command.empty() ? "" : command + ": ") + what + " (see 'obfl-wire help" +
           (command.empty() ? "" : " " + command) + "')";
}

int run(int argc, char **argv)
{
    CLI::App app{"Read, write and describe OBFL manager wire messages. MESSAGE is a name from 'list',\n"
                 "with or without its mivo_ prefix; FILE is standard input when absent or -.\n"
                 "Exit status: 0 done, 1 the bytes do not decode (diff: the messages differ),\n"
                 "2 a usage error or refused input, 3 a read or write error.",
                 "obfl-wire"};
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
        cmd->add_flag("--base64", s.base64, "read base64 instead of hex text");
        cmd->add_flag("--pretty,!--compact", s.pretty, "indent the JSON (default on a terminal)");
    };
    const auto add_streams = [&](CLI::App *cmd, const char *lines, const char *delimited, bool follow = true) {
        cmd->add_flag("--lines", s.lines, lines);
        cmd->add_flag("--delimited", s.delimited, delimited);
        if (follow) {
            cmd->add_flag("--follow", s.follow, "at the end of FILE wait for more, as tail -f does, until interrupted");
        }
    };
    const auto add_shared = [&](CLI::App *cmd) {
        cmd->add_flag("--shared", s.shared, "decode in shared mode (MIVO_FLAG_SHARED): byte strings point into the "
                                            "input instead of being copied; the JSON is the same, the path differs");
    };
    const char *wire_text = "hex text (also xxd, hexdump -C, od -A x -t x1, C arrays), base64 or raw bytes";

    auto *decode_cmd = app.add_subcommand("decode", "wire bytes to JSON");
    add_message(decode_cmd, true);
    add_reading(decode_cmd, wire_text);
    add_wire_input(decode_cmd);
    add_shared(decode_cmd);
    add_streams(decode_cmd, "one message per line (hex or base64), one JSON object per line out",
                "a stream of messages each after its length as a varint, one JSON object per line out");
    decode_cmd->add_flag("--strict", s.strict, "fail (exit 1) on anything the decoder tolerated");
    decode_cmd->add_flag("--proto-json", s.proto_json, "lowerCamelCase names and enumerations as numbers, "
                                                       "as libprotobuf reads them against 'obfl-wire proto'");
    decode_cmd->add_flag("--keep-unknown", s.keep_unknown, "list unknown fields under \"_unknown\" (encode writes "
                                                           "them again)");

    auto *encode_cmd = app.add_subcommand("encode", "JSON to wire bytes, printed as hex");
    add_message(encode_cmd, true);
    add_reading(encode_cmd, "the message as a JSON object");
    encode_cmd->add_flag("--binary", s.binary, "write raw bytes instead of hex text");
    add_streams(encode_cmd, "JSON objects one after another (a line each, or indented), one line of hex out",
                "JSON objects one after another, each message written after its length as a varint");

    auto *raw_cmd = app.add_subcommand("raw", "wire bytes to JSON without a message name: every field by "
                                              "number and wire type, as exact as protoc --decode_raw");
    add_reading(raw_cmd, wire_text);
    add_wire_input(raw_cmd);
    add_streams(raw_cmd, "one message per line, one JSON array per line out",
                "a stream of messages each after its length as a varint, one JSON array per line out");

    auto *annotate_cmd = app.add_subcommand("annotate", "each byte range of a message beside the member it "
                                                        "encodes: offset, bytes, key, member, value");
    add_message(annotate_cmd, true);
    add_reading(annotate_cmd, wire_text);
    add_wire_input(annotate_cmd);

    auto *summary_cmd = app.add_subcommand("summary", "what a stream of messages holds: counts, values of every "
                                                      "enumeration and boolean, ranges, seq_num gaps, timestamps");
    add_message(summary_cmd, true);
    add_reading(summary_cmd, wire_text);
    add_wire_input(summary_cmd);
    add_shared(summary_cmd);
    add_streams(summary_cmd, "one message per line (hex or base64)", "messages each after its length as a varint",
                false);
    summary_cmd->add_flag("--json", s.json, "the summary as one JSON document");
    summary_cmd->add_flag("--strict", s.strict, "fail (exit 1) on anything the decoder tolerated");

    auto *diff_cmd = app.add_subcommand("diff", "the members that differ between two messages, by path; exit "
                                                "0 when equal, 1 when not");
    add_message(diff_cmd, true);
    diff_cmd->add_option("A", s.file, "the first message (- for standard input)")->required();
    diff_cmd->add_option("B", s.other_file, "the second message")->required();
    diff_cmd->add_flag("--hex-bytes", s.hex_bytes, "byte strings as hex digits instead of base64");
    add_wire_input(diff_cmd);
    add_shared(diff_cmd);
    diff_cmd->add_flag("--keep-unknown", s.keep_unknown, "compare unknown fields too");

    auto *guess_cmd = app.add_subcommand("guess", "list the messages that accept the bytes, best first");
    add_reading(guess_cmd, wire_text);
    add_wire_input(guess_cmd);
    add_shared(guess_cmd);
    guess_cmd->add_flag("--json", s.json, "the ranked candidates and their records as one JSON document");

    auto *proto_cmd = app.add_subcommand("proto", "print the catalogue as a proto2 schema (package obfl)");
    auto *list_cmd = app.add_subcommand("list", "every message, or with MESSAGE its members");
    add_message(list_cmd, false);
    auto *describe_cmd = app.add_subcommand("describe", "a message's members: field number, member, kind, key "
                                                        "bytes, enumeration");
    add_message(describe_cmd, true);
    auto *help_cmd = app.add_subcommand("help", "this text, or a command's");
    help_cmd->add_option("COMMAND", s.topic, "a command");

    output out;
    try {
        app.parse(argc, argv);
    } catch (const CLI::CallForHelp &) {
        out.put(app.help());
        out.close();
        return done;
    } catch (const CLI::ParseError &e) {
        say(usage_line(app, e, argc, argv));
        return refused;
    }
    for (const CLI::App *cmd : app.get_subcommands()) {
        const auto both = [&](bool a, bool b, const char *x, const char *y) {
            if (a && b) {
                say(cmd->get_name() + ": " + x + " and " + y + " exclude each other (see 'obfl-wire help " +
                    cmd->get_name() + "')");
            }
            return a && b;
        };
        if (both(s.binary, s.base64, "--binary", "--base64") || both(s.lines, s.delimited, "--lines", "--delimited")) {
            return refused;
        }
    }
    try {
        int code = done;
        if (version) {
            out.put("obfl-wire " OBFL_WIRE_VERSION "\n");
        } else if (*decode_cmd) {
            decode(s, out);
        } else if (*encode_cmd) {
            encode(s, out);
        } else if (*raw_cmd) {
            raw(s, out);
        } else if (*annotate_cmd) {
            annotate_message(s, out);
        } else if (*summary_cmd) {
            summarise(s, out);
        } else if (*diff_cmd) {
            code = compare(s, out);
        } else if (*guess_cmd) {
            guess(s, out);
        } else if (*proto_cmd) {
            out.put(proto_schema());
        } else if (*list_cmd || *describe_cmd) {
            list(s, out);
        } else if (*help_cmd) {
            CLI::App *topic = s.topic.empty() ? &app : nullptr;
            for (CLI::App *sub : app.get_subcommands({})) {
                topic = sub->get_name() == s.topic ? sub : topic;
            }
            if (topic == nullptr) {
                std::vector<std::string_view> names;
                for (const CLI::App *sub : app.get_subcommands({})) {
                    names.push_back(sub->get_name());
                }
                const std::string hint = did_you_mean(s.topic, names);
                throw failure{refused, "help: no command '" + shortened(s.topic, 40) + "'" +
                                           (hint.empty() ? "" : "; " + hint)};
            }
            // The formatter itself: help() would show the help command's own text.
            const std::string name = topic == &app ? "obfl-wire" : "obfl-wire " + topic->get_name();
            out.put(topic->get_formatter()->make_help(topic, name, CLI::AppFormatMode::Normal));
        } else {
            say("a command is required (see 'obfl-wire help')");
            return refused;
        }
        out.close();
        return code;
    } catch (const failure &f) {
        out.flush(); // the messages of a stream that were done before it
        say(f.line);
        return f.code;
    }
}

} // namespace

int main(int argc, char **argv)
{
    // A closed pipe ends the tool as it ends cat: SIGPIPE, quietly, whatever
    // disposition the tool was started with.
    std::signal(SIGPIPE, SIG_DFL);
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
