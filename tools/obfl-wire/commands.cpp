// What each command does with its input: obfl_wire.cpp parses the command
// line and calls one of these.
#include "commands.hpp"

#include <cstdio>

#include "annotate.hpp"
#include "diagnose.hpp"
#include "diff.hpp"
#include "guess.hpp"
#include "json_out.hpp"
#include "nuvex_decode.h"
#include "nuvex_encode.h"
#include "pasted.hpp"
#include "raw.hpp"
#include "schema.hpp"
#include "stream.hpp"
#include "suggest.hpp"
#include "summary.hpp"
#include "unknown.hpp"

namespace obfl_wire {
namespace {

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
// A line of a stream (item) is named as its message, its column alone after.
wire_bytes bytes_of(const settings &s, std::string_view text, const stream_item *item = nullptr)
{
    wire_bytes bytes;
    if (s.binary) {
        bytes.view = {reinterpret_cast<const uint8_t *>(text.data()), text.size()};
        return bytes;
    }
    std::string error;
    if (!(s.base64 ? bytes_from_base64(text, bytes.owned, error, item != nullptr ? item->line : 1)
                   : bytes_from_text(text, bytes.owned, error, item != nullptr ? item->line : 1))) {
        std::string where;
        if (item != nullptr) {
            where = item->where();
            const std::string line = "line " + std::to_string(item->line);
            if (error.starts_with(line + ", ") || error.starts_with(line + ": ")) {
                error.erase(0, line.size() + 2);
            }
        }
        throw failure{refused, where + "input is not " + std::string(s.base64 ? "base64" : "hex") + ": " + error};
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

// The line for a message the decoder refuses: opening, its name, the
// decoder's result and where in the bytes it stopped.
std::string refusal(const std::string &opening, const message &m, int rc, std::span<const uint8_t> bytes)
{
    const std::string place = failure_place(bytes, m.schema());
    return opening + std::string(m.name()) + ": " + result_name(rc) + (place.empty() ? "" : " " + place);
}

// A message that decoded with warnings, refused with --strict; opening names it.
failure strict_refusal(const std::string &opening, size_t warnings)
{
    return failure{not_decoded, opening + "refused with --strict: " + plural(warnings, "warning", "warnings")};
}

// One message's bytes -> its JSON line in out; warnings on standard error.
// where() opens a line about the message; it is built only for one (most
// messages of a stream have none).
template <class Where>
void decode_one(const settings &s, const message &m, std::span<const uint8_t> bytes, const Where &where,
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
        suggest_delimited();
        throw failure{not_decoded, refusal(where(), m, rc, bytes)};
    }
    const auto notes = tolerated(bytes, m.schema());
    const std::string opening = notes.empty() ? std::string() : where() + std::string(m.name()) + ": ";
    for (const auto &n : notes) {
        say("warning: " + opening + n.text);
    }
    if (!notes.empty()) {
        suggest_delimited();
    }
    if (s.strict && !notes.empty()) {
        text.resize(mark);
        throw strict_refusal(opening, notes.size());
    }
    if (s.keep_unknown) {
        json doc = json::parse(text.begin() + static_cast<std::ptrdiff_t>(mark), text.end());
        if (add_unknown(bytes, m.schema(), s.options(), doc)) {
            text.resize(mark);
            text += doc.dump(s.pretty ? 2 : -1);
        }
    }
    text += '\n';
}

// The messages of a stream counted; with --keep-going a message that fails
// is said and counted, and the stream goes on to the next.
struct tally {
    const settings &s;
    size_t messages = 0, failed = 0;

    template <class Fn>
    void one(Fn fn)
    {
        ++messages;
        try {
            fn();
        } catch (const failure &f) {
            if (!s.keep_going) {
                throw;
            }
            say(f.line);
            ++failed;
        }
    }
    // Where the stream itself cannot go on (a length past its end): said,
    // and with --keep-going counted as one more message failed.
    void broken(const std::string &error)
    {
        if (!s.keep_going) {
            throw failure{not_decoded, error};
        }
        say(error);
        ++messages;
        ++failed;
    }
    // At the end: no messages said; with --keep-going, the count of those that failed.
    void close() const
    {
        if (messages == 0) {
            say("warning: the input holds no messages");
        }
        if (failed != 0) {
            throw failure{not_decoded, std::to_string(failed) + " of " + plural(messages, "message", "messages") +
                                           " failed"};
        }
    }
};

// The messages of the input one at a time: fn(bytes, item) for a wire
// stream, each message decoded from its line or its length.
template <class Fn>
void each_message(const settings &s, input &in, Fn fn, tally *counted = nullptr)
{
    stream messages(in, s.delimited ? stream::delimited : stream::lines);
    stream_item item;
    std::string error;
    tally own{s};
    tally &t = counted != nullptr ? *counted : own;
    while (messages.next(item, error)) {
        t.one([&] {
            if (s.delimited) {
                fn(item.bytes, item);
            } else {
                const auto bytes = bytes_of(s, item.text, &item);
                fn(std::span<const uint8_t>(bytes), item);
            }
        });
    }
    if (!error.empty()) {
        t.broken(error);
    }
    if (counted == nullptr) {
        t.close();
    }
}

void check_stream_flags(const settings &s, const char *command)
{
    if (s.follow && s.file.empty()) {
        throw failure{refused, std::string(command) + ": --follow needs a FILE to follow"};
    }
    if ((s.follow || s.keep_going) && !s.lines && !s.delimited) {
        throw failure{refused, std::string(command) + (s.follow ? ": --follow" : ": --keep-going") +
                                   " reads a stream: give --lines or --delimited"};
    }
}

// A single message's text: the whole input, said when it is empty.
std::string_view whole_input(const settings &s, input &in, bool &empty)
{
    const std::string_view text = in.rest();
    empty = s.binary ? text.empty() : text.find_first_not_of(" \t\r\n") == std::string_view::npos;
    return text;
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
    return item.where() + "not JSON: " + (line == 1 ? "" : "line " + std::to_string(absolute) + ", ") + "column " +
           std::to_string(col) + ": " + error.substr(static_cast<size_t>(used));
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

// Decodes one message to its JSON document; failures say which input, as
// where() opens the line.
template <class Where>
json decoded(const settings &s, const message &m, std::span<const uint8_t> bytes, const Where &where, status bad)
{
    std::string text;
    json_options o = s.options();
    o.pretty = false;
    const int rc = m.decode(bytes, s.shared, o, text, nullptr, nullptr);
    if (rc != MIVO_NO_ERROR) {
        throw failure{bad, refusal(where(), m, rc, bytes)};
    }
    json doc = json::parse(text);
    if (s.keep_unknown) {
        add_unknown(bytes, m.schema(), o, doc);
    }
    return doc;
}

} // namespace

void say(const std::string &line)
{
    const std::string text = one_line("obfl-wire: " + line, 200) + "\n";
    std::fwrite(text.data(), 1, text.size(), stderr);
}

void run_decode(const settings &s, output &out)
{
    check_stream_flags(s, "decode");
    const message &m = lookup(s.message);
    input in(s.file, &out, s.follow, say);
    if (s.delimited || s.lines) {
        each_message(s, in, [&](std::span<const uint8_t> bytes, const stream_item &item) {
            decode_one(s, m, bytes, [&] { return item.where(); }, out);
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
    decode_one(s, m, bytes, [] { return std::string(); }, out, true);
}

void run_encode(const settings &s, output &out)
{
    check_stream_flags(s, "encode");
    const message &m = lookup(s.message);
    input in(s.file, &out, s.follow, say);
    if (s.lines || s.delimited) {
        // JSON texts one after another, each on a line of its own or over several.
        stream texts(in, stream::json_texts);
        stream_item item;
        std::string error;
        tally t{s};
        while (texts.next(item, error)) {
            t.one([&] {
                put_bytes(s, out, encode_one(s, m, item.text, &item), s.delimited);
                out.flush_if_large();
            });
        }
        t.close();
        return;
    }
    bool empty;
    const std::string_view text = whole_input(s, in, empty);
    if (empty) {
        throw failure{refused, "the input is empty (a message is a JSON object; {} for one without members)"};
    }
    put_bytes(s, out, encode_one(s, m, text, nullptr), false);
}

void run_raw(const settings &s, output &out)
{
    check_stream_flags(s, "raw");
    input in(s.file, &out, s.follow, say);
    // where() opens a line about the message, built only for one.
    const auto one = [&](std::span<const uint8_t> bytes, const auto &where) {
        std::string error;
        raw_output view{out.buffer(), s.base64_bytes, [](void *o) { static_cast<output *>(o)->flush(); }, &out};
        if (!raw_json(bytes, s.options(), view, error)) {
            throw failure{not_decoded, where() + "not a message: " + error};
        }
        out.put("\n");
        if (view.flattened != 0) {
            say("warning: " + where() + "nesting stops at depth " + std::to_string(raw_depth_limit) + ": the field at byte " +
                std::to_string(view.first_flattened) + " parses as a message and is shown as bytes" +
                (view.flattened > 1 ? " (and " + std::to_string(view.flattened - 1) + " more)" : ""));
        }
    };
    if (s.delimited || s.lines) {
        each_message(s, in, [&](std::span<const uint8_t> bytes, const stream_item &item) {
            one(bytes, [&] { return item.where(); });
            out.flush_if_large();
        });
        return;
    }
    bool empty;
    const auto bytes = bytes_of(s, whole_input(s, in, empty));
    if (empty) {
        say("warning: the input is empty: no fields");
    }
    one(bytes, [] { return std::string(); });
}

void run_guess(const settings &s, output &out)
{
    const auto bytes = single_message(s, s.file, "guess from");
    settings compact = s;
    compact.pretty = false;
    const auto found = guess(bytes, s.shared, compact.options());
    if (found.empty()) {
        if (s.json) {
            out.put("[]\n"); // still a document for a script
        }
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
            std::string row = std::string(c.msg->name());
            row.append(row.size() < 36 ? 36 - row.size() : 0, ' ');
            char filled[64];
            std::snprintf(filled, sizeof filled, " %2u member%s filled, ", c.members_filled, c.members_filled == 1 ? "" : "s");
            row += filled + plural(c.bytes_skipped, "byte", "bytes") + " skipped";
            row += c.cut_off == 0 ? "" : ", " + plural(c.cut_off, "field", "fields") + " cut off";
            row += c.warnings == 0 ? "" : ", " + plural(c.warnings, "warning", "warnings");
            row += c.misfits == 0 ? "" : ", " + plural(c.misfits, "value", "values") + " not fitting";
            out.put(row + (c.tie ? ", tie\n" : "\n"));
        }
        return;
    }
    // Written as it goes when compact; indented throughout, records included, when pretty.
    std::string text;
    json_out j(text, false);
    j.begin_array();
    for (const auto &c : found) {
        j.begin_object();
        j.key("message");
        j.string(c.msg->name());
        j.number("members_filled", c.members_filled);
        j.number("bytes_skipped", c.bytes_skipped);
        j.number("fields_cut_off", c.cut_off);
        j.number("warnings", c.warnings);
        j.number("values_not_fitting", c.misfits);
        j.key("tie");
        j.boolean(c.tie);
        j.key("record");
        j.literal(c.record);
        j.end_object();
    }
    j.end_array();
    out.put(s.pretty ? json::parse(text).dump(2) : text);
    out.put("\n");
}

void run_summary(const settings &s, output &out)
{
    if (!s.lines && !s.delimited) {
        throw failure{refused, "summary: it reads a stream: give --delimited or --lines"};
    }
    const message &m = lookup(s.message);
    input in(s.file, &out);
    summary sum(m.schema());
    constexpr size_t warnings_shown = 10;
    size_t warned = 0;
    tally t{s};
    each_message(
        s, in,
        [&](std::span<const uint8_t> bytes, const stream_item &item) {
            const json doc = decoded(s, m, bytes, [&] { return item.where(); }, not_decoded);
            const auto notes = tolerated(bytes, m.schema());
            for (const auto &n : notes) {
                if (warned++ < warnings_shown) {
                    say("warning: " + item.where() + std::string(m.name()) + ": " + n.text);
                }
            }
            if (s.strict && !notes.empty()) {
                throw strict_refusal(item.where() + std::string(m.name()) + ": ", notes.size());
            }
            sum.warned(static_cast<unsigned>(notes.size()));
            sum.add(bytes.size(), doc);
        },
        &t);
    if (warned > warnings_shown) {
        say("warning: " + std::to_string(warned - warnings_shown) + " more warnings not shown");
    }
    sum.failed(t.failed);
    out.put(s.json ? sum.json_text(s.pretty) : sum.text());
    t.close();
}

int run_diff(const settings &s, output &out)
{
    const message &m = lookup(s.message);
    if ((s.file.empty() || s.file == "-") && (s.other_file.empty() || s.other_file == "-")) {
        throw failure{refused, "diff: only one of A and B can be standard input"};
    }
    const auto name = [](const std::string &f) { return f == "-" ? std::string("standard input") : f; };
    const auto a_bytes = single_message(s, s.file, "compare");
    const auto b_bytes = single_message(s, s.other_file, "compare");
    const json a = decoded(s, m, a_bytes, [&] { return name(s.file) + ": "; }, refused);
    const json b = decoded(s, m, b_bytes, [&] { return name(s.other_file) + ": "; }, refused);
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

void run_annotate(const settings &s, output &out)
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
        throw failure{not_decoded, refusal("", m, rc, bytes)};
    }
    for (const auto &n : tolerated(bytes, m.schema())) {
        say("warning: " + std::string(m.name()) + ": " + n.text);
    }
}

void run_list(const settings &s, output &out)
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

} // namespace obfl_wire
