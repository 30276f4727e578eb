// obfl-wire: read, write and describe OBFL manager wire messages.
//
//   obfl-wire decode MESSAGE [FILE]   wire bytes (hex text, or raw with --binary) to JSON
//   obfl-wire encode MESSAGE [FILE]   JSON to wire bytes
//   obfl-wire guess [FILE]            which messages accept these bytes, best first
//   obfl-wire proto                   the catalogue as a proto2 schema
//   obfl-wire list [MESSAGE]          every message, or one message's members
//   obfl-wire describe MESSAGE        one message's members
//
// Exit status: 0 done, 1 the bytes do not decode (or no message accepts
// them), 2 a usage error or a refused value. Output is written only once
// the whole of it is known, so a failure never leaves half a result.
#include <unistd.h>

#include <cstdio>
#include <fstream>
#include <iostream>
#include <iterator>
#include <string>
#include <vector>

#include <CLI/CLI.hpp>

#include "record_json.hpp"

namespace {

using obfl_wire::json;

int refuse(const std::string &problem)
{
    std::cerr << "obfl-wire: " << problem << '\n';
    return 2;
}

bool read_input(const std::string &file, std::string &text)
{
    if (file.empty() || file == "-") {
        text.assign(std::istreambuf_iterator<char>(std::cin), std::istreambuf_iterator<char>());
        return true;
    }
    std::ifstream in(file, std::ios::binary);
    if (!in) {
        return false;
    }
    text.assign(std::istreambuf_iterator<char>(in), std::istreambuf_iterator<char>());
    return true;
}

std::string show(const json &j, bool pretty)
{
    // Strings from the wire need not be UTF-8; show such bytes as U+FFFD.
    return j.dump(pretty ? 2 : -1, ' ', false, json::error_handler_t::replace);
}

struct settings {
    std::string message;
    std::string file;
    bool binary = false;
    bool shared = false;
    bool pretty = false;
    bool hex_bytes = false;
};

// Reads the wire bytes that decode and guess work on; false has told why.
bool read_bytes(const settings &s, std::vector<uint8_t> &bytes, int &status)
{
    std::string text;
    if (!read_input(s.file, text)) {
        status = refuse("cannot read '" + s.file + "'");
        return false;
    }
    if (s.binary) {
        bytes.assign(text.begin(), text.end());
    } else if (!obfl_wire::parse_hex(text, bytes)) {
        status = refuse("input is not hex (give raw bytes with --binary)");
        return false;
    }
    return true;
}

const obfl_wire::message *lookup(const std::string &name, int &status)
{
    const obfl_wire::message *m = obfl_wire::find_message(name);
    if (m == nullptr) {
        status = refuse("no message '" + name + "' (see 'obfl-wire list')");
    }
    return m;
}

int decode(const settings &s)
{
    int status = 0;
    const obfl_wire::message *m = lookup(s.message, status);
    std::vector<uint8_t> bytes;
    if (m == nullptr || !read_bytes(s, bytes, status)) {
        return status;
    }
    json out;
    const int rc = m->decode(bytes, s.shared, {s.hex_bytes}, out, nullptr);
    if (rc != 0) {
        std::cerr << "obfl-wire: " << m->name << ": " << obfl_wire::result_name(rc) << '\n';
        return 1;
    }
    std::cout << show(out, s.pretty) << '\n';
    return 0;
}

int encode(const settings &s)
{
    int status = 0;
    const obfl_wire::message *m = lookup(s.message, status);
    std::string text;
    if (m == nullptr) {
        return status;
    }
    if (!read_input(s.file, text)) {
        return refuse("cannot read '" + s.file + "'");
    }
    const json in = json::parse(text, nullptr, false);
    if (in.is_discarded()) {
        return refuse("input is not JSON");
    }
    std::vector<uint8_t> bytes;
    std::string error;
    if (!m->encode(in, {s.hex_bytes}, bytes, error)) {
        return refuse(std::string(m->name) + ": " + error);
    }
    if (s.binary) {
        std::cout.write(reinterpret_cast<const char *>(bytes.data()), static_cast<std::streamsize>(bytes.size()));
    } else {
        std::cout << obfl_wire::to_hex(bytes) << '\n';
    }
    return 0;
}

int guess(const settings &s)
{
    int status = 0;
    std::vector<uint8_t> bytes;
    if (!read_bytes(s, bytes, status)) {
        return status;
    }
    const auto found = obfl_wire::guess(bytes, s.shared, {s.hex_bytes});
    if (found.empty()) {
        std::cerr << "obfl-wire: no message accepts these bytes\n";
        return 1;
    }
    std::string out;
    for (const auto &c : found) {
        char line[160];
        std::snprintf(line, sizeof line, "%-36s %2u member%s filled, %zu bytes skipped\n", c.msg->name,
                      c.members_filled, c.members_filled == 1 ? "" : "s", c.bytes_skipped);
        out += line;
    }
    std::cout << out << show(found.front().record, s.pretty) << '\n';
    return 0;
}

int list(const settings &s)
{
    if (!s.message.empty()) {
        int status = 0;
        const obfl_wire::message *m = lookup(s.message, status);
        if (m != nullptr) {
            std::cout << m->describe();
        }
        return status;
    }
    for (const auto &m : obfl_wire::messages()) {
        std::printf("%-36s %2u members\n", m.name, m.member_count);
    }
    return 0;
}

} // namespace

int main(int argc, char **argv)
{
    CLI::App app{"Read, write and describe OBFL manager wire messages. MESSAGE is a name from 'list',\n"
                 "with or without its mivo_ prefix. Exit status: 0 done, 1 the bytes do not decode,\n"
                 "2 a usage error or a refused value."};
    app.require_subcommand(1);
    settings s;
    s.pretty = isatty(STDOUT_FILENO) != 0;

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
        cmd->add_flag("--shared", s.shared, "decode with MIVO_FLAG_SHARED");
        cmd->add_flag("--pretty,!--compact", s.pretty, "indent the JSON (default on a terminal)");
    };

    auto *decode_cmd = app.add_subcommand("decode", "wire bytes (hex text: any spacing or case, 0x, colons) to JSON");
    add_message(decode_cmd, true);
    add_reading(decode_cmd, "hex text or, with --binary, raw bytes");
    add_wire_input(decode_cmd);

    auto *encode_cmd = app.add_subcommand("encode", "JSON to wire bytes, printed as hex");
    add_message(encode_cmd, true);
    add_reading(encode_cmd, "the message as a JSON object");
    encode_cmd->add_flag("--binary", s.binary, "write raw bytes instead of hex text");

    auto *guess_cmd = app.add_subcommand("guess", "list the messages that accept the bytes, best first, "
                                                  "then the best one as JSON");
    add_reading(guess_cmd, "hex text or, with --binary, raw bytes");
    add_wire_input(guess_cmd);

    auto *proto_cmd = app.add_subcommand("proto", "print the catalogue as a proto2 schema (package obfl)");
    auto *list_cmd = app.add_subcommand("list", "every message, or with MESSAGE its members");
    add_message(list_cmd, false);
    auto *describe_cmd = app.add_subcommand("describe", "a message's members: field number, member, kind, key bytes");
    add_message(describe_cmd, true);

    try {
        app.parse(argc, argv);
    } catch (const CLI::ParseError &e) {
        return app.exit(e) == 0 ? 0 : 2;
    }
    if (*decode_cmd) {
        return decode(s);
    }
    if (*encode_cmd) {
        return encode(s);
    }
    if (*guess_cmd) {
        return guess(s);
    }
    if (*proto_cmd) {
        std::cout << obfl_wire::proto_schema();
        return 0;
    }
    return list(s); // list and describe
}
