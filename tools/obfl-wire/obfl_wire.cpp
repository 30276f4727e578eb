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
// the first bad one, or with --keep-going says it and goes on (exit 1 at the
// end, with the count of messages that failed).
#include <csignal>
#include <cstdio>
#include <string>
#include <vector>

#include <unistd.h>

#include <CLI/CLI.hpp>

#include "commands.hpp"
#include "suggest.hpp"

namespace {

using namespace obfl_wire;

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
    const auto add_reading = [&](CLI::App *cmd, const char *what, bool hex_default = false) {
        cmd->add_option("FILE", s.file, std::string(what) + " (standard input when absent or -)");
        if (hex_default) {
            cmd->add_flag("--hex-bytes", s.hex_bytes, "byte strings in JSON as hex digits (the default)");
            cmd->add_flag("--base64-bytes", s.base64_bytes, "byte strings in JSON as base64 instead of hex digits");
        } else {
            cmd->add_flag("--hex-bytes", s.hex_bytes, "byte strings in JSON as hex digits instead of base64");
        }
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
        cmd->add_flag("--keep-going", s.keep_going, "a message that fails is said (its number and byte offset) and "
                                                    "the stream goes on; exit 1 at the end if any failed");
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
    add_reading(raw_cmd, wire_text, true);
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
        if (both(s.binary, s.base64, "--binary", "--base64") || both(s.lines, s.delimited, "--lines", "--delimited") ||
            both(s.base64_bytes, s.hex_bytes, "--base64-bytes", "--hex-bytes")) {
            return refused;
        }
        // Lines are a text form: raw bytes hold any byte, a line end among them.
        if (s.binary && s.lines) {
            say(cmd->get_name() + ": --binary and --lines exclude each other: lines are text (" +
                (cmd->get_name() == "encode" ? "one line of hex per message" : "hex or base64, a message each") +
                "); for raw bytes in a stream give --delimited");
            return refused;
        }
    }
    try {
        int code = done;
        if (version) {
            out.put("obfl-wire " OBFL_WIRE_VERSION "\n");
        } else if (*decode_cmd) {
            run_decode(s, out);
        } else if (*encode_cmd) {
            run_encode(s, out);
        } else if (*raw_cmd) {
            run_raw(s, out);
        } else if (*annotate_cmd) {
            run_annotate(s, out);
        } else if (*summary_cmd) {
            run_summary(s, out);
        } else if (*diff_cmd) {
            code = run_diff(s, out);
        } else if (*guess_cmd) {
            run_guess(s, out);
        } else if (*proto_cmd) {
            out.put(proto_schema());
        } else if (*list_cmd || *describe_cmd) {
            run_list(s, out);
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
