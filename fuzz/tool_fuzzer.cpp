// obfl-wire's own parsing under libFuzzer. The input's first byte picks a
// message (and hex byte strings, lowerCamelCase); the rest is taken as text
// pasted by hand (hex, dumps, C arrays), as base64, as raw bytes and as JSON.
// Bytes are also viewed raw (spilling as the tool writes) and examined for
// what the decoder tolerated at every depth.
// Between two 0x01 bytes it may name a piece to repeat (count in the three
// bytes after the second), so that a few bytes reach values nested 100,000
// deep or arrays of 100,000 elements. Whatever decodes must print JSON that
// encodes and decodes to the same JSON, unknown fields kept included;
// whatever JSON encodes must decode; a refusal is one short line. An escaped
// exception, a sanitizer report or an abort here is a finding.
#include <cstdio>
#include <cstdlib>

#include "annotate.hpp"
#include "diagnose.hpp"
#include "diff.hpp"
#include "nuvex.h"
#include "pasted.hpp"
#include "raw.hpp"
#include "record_json.hpp"
#include "summary.hpp"
#include "unknown.hpp"

namespace {

using namespace obfl_wire;

void require(bool ok)
{
    if (!ok) {
        std::abort();
    }
}

// A refusal is a line for a person, however large the value refused.
void short_error(const std::string &error) { require(error.size() <= 300 && error.find('\n') == std::string::npos); }

void check_bytes(const message &m, std::span<const uint8_t> bytes, const json_options &o, bool must_decode)
{
    std::string out, error, again_out, table;
    const int rc = m.decode(bytes, false, o, out, nullptr, nullptr);
    require(rc == MIVO_NO_ERROR || !must_decode);
    // Hex text never pairs digits across tokens: bytes written as a C array
    // ("0x8, 0x1, 0x28,") read back as themselves.
    const auto head = bytes.first(std::min<size_t>(bytes.size(), 64));
    std::string tokens;
    for (uint8_t b : head) {
        char token[8];
        std::snprintf(token, sizeof token, "0x%x, ", b);
        tokens += token;
    }
    std::vector<uint8_t> back;
    require(bytes_from_text(tokens, back, error) && std::equal(back.begin(), back.end(), head.begin(), head.end()));
    if (bytes.size() > 1 << 16) {
        return; // a repeated piece: the decoders are fuzzed on their own, and the rest is linear in the fields
    }
    // What the decoder skipped, at every depth, lies within the input.
    const examination e = examine(bytes, m.schema());
    require(e.bytes_skipped <= bytes.size());
    failure_place(bytes, m.schema());
    annotate(bytes, m.schema(), table);
    // raw writes while it walks: what it spills and what it keeps make one JSON text.
    std::string raw_text, spilled;
    std::pair<std::string *, std::string *> sink{&raw_text, &spilled};
    raw_output view{raw_text, o.hex_bytes, [](void *c) {
        auto *s = static_cast<std::pair<std::string *, std::string *> *>(c);
        s->second->append(*s->first);
        s->first->clear();
    }, &sink};
    if (raw_json(bytes, o, view, error)) {
        require(json::accept(spilled + raw_text));
    } else {
        short_error(error);
        require(raw_text.empty());
    }
    if (rc != MIVO_NO_ERROR) {
        return;
    }
    json j;
    std::vector<uint8_t> again;
    require(parse_json(out, j, error) && m.encode(j, o, again, error));
    require(m.decode(again, false, o, again_out, nullptr, nullptr) == MIVO_NO_ERROR && again_out == out);
    require(differences(j, j).empty());
    summary sum(m.schema());
    sum.add(bytes.size(), j);
    sum.text();
    // Unknown fields kept: written again, and read back the same.
    if (add_unknown(bytes, m.schema(), o, j)) {
        error.clear();
        require(m.encode(j, o, again, error) || error.find("not one whole value") != std::string::npos);
        if (error.empty()) {
            json back;
            again_out.clear();
            require(m.decode(again, false, o, again_out, nullptr, nullptr) == MIVO_NO_ERROR &&
                    parse_json(again_out, back, error));
            add_unknown(again, m.schema(), o, back);
            require(back == j);
        }
    }
}

// prefix \x01 piece \x01 n0 n1 n2 suffix -> prefix, piece n times (at most 200,000, 4 MB), suffix.
std::string expanded(std::string_view text)
{
    const size_t open = text.find('\x01');
    const size_t close = open == std::string_view::npos ? open : text.find('\x01', open + 1);
    if (close == std::string_view::npos || text.size() < close + 4 || close == open + 1) {
        return std::string(text);
    }
    const auto byte = [&](size_t i) { return static_cast<size_t>(static_cast<unsigned char>(text[close + 1 + i])); };
    const std::string_view piece = text.substr(open + 1, close - open - 1);
    const size_t count = std::min<size_t>({byte(0) | byte(1) << 8 | byte(2) << 16, 200000, (4u << 20) / piece.size()});
    std::string out(text.substr(0, open));
    out.reserve(out.size() + piece.size() * count + text.size());
    for (size_t i = 0; i < count; ++i) {
        out += piece;
    }
    out += text.substr(close + 4);
    return out;
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size)
{
    if (size == 0) {
        return 0;
    }
    const message &m = messages()[data[0] % messages().size()];
    const json_options o{(data[0] & 0x80) != 0, (data[0] & 0x40) != 0, false};
    const std::string whole = expanded({reinterpret_cast<const char *>(data + 1), size - 1});
    const std::string_view text = whole;
    const std::span<const uint8_t> rest(reinterpret_cast<const uint8_t *>(whole.data()), whole.size());
    std::vector<uint8_t> bytes;
    std::string error;
    if (bytes_from_text(text, bytes, error)) {
        check_bytes(m, bytes, o, false);
    } else {
        short_error(error);
    }
    bytes.clear();
    if (bytes_from_base64(text, bytes, error)) {
        check_bytes(m, bytes, o, false);
    }
    check_bytes(m, rest, o, false);
    json in;
    error.clear();
    if (parse_json(text, in, error) && m.encode(in, o, bytes, error)) {
        check_bytes(m, bytes, o, true);
    } else {
        short_error(error);
    }
    return 0;
}
