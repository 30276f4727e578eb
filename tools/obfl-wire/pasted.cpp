#include "pasted.hpp"

#include <cstdio>

#include "text.hpp"

namespace obfl_wire {
namespace {

struct line {
    std::string_view text;
    size_t number; // counted from first_line
    size_t column; // of text[0], from 1
};

struct reader {
    std::vector<uint8_t> &out;
    std::string &error;

    bool fail(const line &l, size_t at, const std::string &what)
    {
        error = "line " + std::to_string(l.number) + (at == std::string_view::npos ? "" : ", column " + std::to_string(l.column + at)) + ": " + what;
        return false;
    }

    // Tokens of hex between separators, each read by hex_token: one byte per
    // 0x or \x, digits two to a byte, never paired across tokens.
    bool hex(const line &l, std::string_view full_text)
    {
        const std::string_view t = l.text;
        size_t pos = 0;
        for (std::string_view token; !(token = next_hex_token(t, pos)).empty();) {
            const size_t i = pos - token.size();
            size_t at = 0;
            const hex_fault fault = hex_token(token, out, at);
            if (fault == hex_fault::not_digit) {
                return fail(l, i + at, not_hex(token[at], full_text));
            }
            if (fault != hex_fault::none) {
                // Appended piece by piece: GCC 12 at -O3 sees a false overlap in "'" + string.
                std::string what(1, '\'');
                what += shortened(std::string(token), 24);
                what += fault == hex_fault::empty ? "' has no hex digits"
                        : fault == hex_fault::odd ? "' has an odd number of hex digits"
                        : token[0] == '0'         ? "' is more than one byte (one 0x per byte)"
                                                  : "' is more than one byte (one \\x per byte)";
                return fail(l, i, what);
            }
        }
        return true;
    }

    static std::string not_hex(char c, std::string_view text)
    {
        const auto u = static_cast<unsigned char>(c);
        if (u < 0x20 || u >= 0x7F) {
            char b[64];
            std::snprintf(b, sizeof b, "byte 0x%02X is not hex text (raw bytes: give --binary)", u);
            return b;
        }
        bool base64 = true;
        for (char x : text) {
            base64 = base64 && (hex_digit(x) >= 0 || (x >= 'g' && x <= 'z') || (x >= 'G' && x <= 'Z') || x == '+' ||
                                x == '/' || x == '=' || x == '\n' || x == '\r');
        }
        return std::string("'") + c + "' is not a hex digit" + (base64 ? " (base64? give --base64)" : "");
    }
};

std::string_view trim(std::string_view s)
{
    while (!s.empty() && (s.front() == ' ' || s.front() == '\t')) {
        s.remove_prefix(1);
    }
    while (!s.empty() && (s.back() == ' ' || s.back() == '\t' || s.back() == '\r')) {
        s.remove_suffix(1);
    }
    return s;
}

// The leading run of hex digits of s.
size_t hex_run(std::string_view s)
{
    size_t n = 0;
    while (n < s.size() && hex_digit(s[n]) >= 0) {
        ++n;
    }
    return n;
}

enum class dump { none, xxd, hexdump, od };

// What made these lines, judged by the first one and the last.
dump dump_of(const std::vector<line> &lines)
{
    const std::string_view first = lines.front().text, last = lines.back().text;
    const size_t offset = hex_run(first);
    if (offset >= 4 && offset < first.size() && first[offset] == ':' &&
        (offset + 1 == first.size() || first[offset + 1] == ' ')) {
        return dump::xxd;
    }
    // od and hexdump -C close with the offset alone, as wide as every other.
    if (lines.size() < 2 || offset < 6 || offset >= first.size() || first[offset] != ' ' || hex_run(last) != offset ||
        last.size() != offset) {
        return dump::none;
    }
    return first.back() == '|' ? dump::hexdump : dump::od;
}

uint64_t hex_value(std::string_view s)
{
    uint64_t v = 0;
    for (char c : s.substr(0, 15)) {
        v = v << 4 | static_cast<unsigned>(hex_digit(c));
    }
    return v;
}

bool read_dump(dump kind, const std::vector<line> &lines, reader &r, std::string_view text)
{
    const size_t begin = r.out.size();
    uint64_t base = 0;
    size_t previous = 0, previous_size = 0; // where the last line's bytes start, and how many
    bool repeat = false;
    for (size_t i = 0; i < lines.size(); ++i) {
        line l = lines[i];
        if (l.text == "*") {
            repeat = true;
            continue;
        }
        const size_t width = hex_run(l.text);
        if (width == 0) {
            return r.fail(l, 0, "expected the offset column of the dump");
        }
        const uint64_t offset = hex_value(l.text.substr(0, width));
        base = i == 0 ? offset : base;
        // After a '*', the line before it again until this line's offset.
        while (repeat && previous_size > 0 && base + (r.out.size() - begin) < offset) {
            for (size_t k = 0; k < previous_size; ++k) {
                r.out.push_back(r.out[previous + k]);
            }
        }
        repeat = false;
        if (offset != base + (r.out.size() - begin)) {
            char b[120];
            std::snprintf(b, sizeof b, "offset 0x%llx does not follow the %zu bytes before it (a line left out?)",
                          static_cast<unsigned long long>(offset), r.out.size() - begin);
            return r.fail(l, 0, b);
        }
        std::string_view data = l.text.substr(width + (kind == dump::xxd ? 1 : 0));
        size_t cut = std::string_view::npos;
        if (kind == dump::xxd) {
            cut = data.find("  ", data.find_first_not_of(' ')); // the gutter follows two spaces
        } else if (kind == dump::hexdump) {
            cut = data.find('|');
        } else {
            cut = data.find('>'); // od -t x1z
        }
        data = data.substr(0, cut);
        if (kind == dump::od) {
            const std::string_view first = trim(data);
            if (hex_run(first) == 4 && (first.size() == 4 || first[4] == ' ')) {
                return r.fail(l, std::string_view::npos,
                              "a dump of 16-bit words (od -x, hexdump) holds their bytes swapped; give xxd, "
                              "hexdump -C or od -A x -t x1");
            }
        }
        previous = r.out.size();
        if (!r.hex({data, l.number, l.column + static_cast<size_t>(data.data() - l.text.data())}, text)) {
            return false;
        }
        previous_size = r.out.size() - previous;
    }
    return true;
}

// The lines of text that hold something, trimmed; a C array's braces and
// what is around them left out.
bool lines_of(std::string_view text, size_t first_line, std::vector<line> &lines, std::string &error)
{
    size_t skipped_lines = 0;
    if (const size_t open = text.find('{'); open != std::string_view::npos) {
        const size_t close = text.rfind('}');
        if (close == std::string_view::npos || close < open) {
            error = "a '{' without its '}'";
            return false;
        }
        for (size_t i = 0; i <= open; ++i) {
            skipped_lines += text[i] == '\n' ? 1 : 0;
        }
        text = text.substr(open + 1, close - open - 1);
    }
    for (size_t at = 0, number = first_line + skipped_lines; at <= text.size(); ++number) {
        size_t end = text.find('\n', at);
        end = end == std::string_view::npos ? text.size() : end;
        const std::string_view raw = text.substr(at, end - at);
        const std::string_view t = trim(raw);
        if (!t.empty()) {
            lines.push_back({t, number, static_cast<size_t>(t.data() - raw.data()) + 1});
        }
        at = end + 1;
    }
    return true;
}

} // namespace

bool is_dump(std::string_view text)
{
    std::vector<line> lines;
    std::string error;
    return text.find('{') != std::string_view::npos ||
           (lines_of(text, 1, lines, error) && !lines.empty() && dump_of(lines) != dump::none);
}

bool bytes_from_text(std::string_view text, std::vector<uint8_t> &out, std::string &error, size_t first_line)
{
    std::vector<line> lines;
    if (!lines_of(text, first_line, lines, error)) {
        return false;
    }
    reader r{out, error};
    const size_t begin = out.size();
    const dump kind = lines.empty() ? dump::none : dump_of(lines);
    if (kind != dump::none) {
        if (!read_dump(kind, lines, r, text)) {
            out.resize(begin);
            return false;
        }
        return true;
    }
    for (const line &l : lines) {
        if (!r.hex(l, text)) {
            out.resize(begin);
            return false;
        }
    }
    return true;
}

bool bytes_from_base64(std::string_view text, std::vector<uint8_t> &out, std::string &error, size_t first_line)
{
    std::string digits;
    size_t number = first_line, column = 1;
    for (char c : text) {
        if (c == '\n') {
            ++number;
            column = 1;
            continue;
        }
        ++column;
        if (c == ' ' || c == '\t' || c == '\r') {
            continue;
        }
        const bool ok = (c >= 'A' && c <= 'Z') || (c >= 'a' && c <= 'z') || (c >= '0' && c <= '9') || c == '+' ||
                        c == '/' || c == '-' || c == '_' || c == '=';
        if (!ok || (c != '=' && !digits.empty() && digits.back() == '=')) {
            error = "line " + std::to_string(number) + ", column " + std::to_string(column - 1) + ": ";
            if (ok) {
                error += "base64 goes on after its padding";
            } else if (static_cast<unsigned char>(c) < 0x20 || static_cast<unsigned char>(c) >= 0x7F) {
                error += "a byte that is not base64 text";
            } else {
                error += '\'';
                error += c;
                error += "' is not a base64 digit";
            }
            return false;
        }
        digits += c;
    }
    std::vector<unsigned char> bytes;
    if (!from_base64(digits, bytes)) {
        error = "line " + std::to_string(number) + ": the base64 ends in the middle of a byte";
        return false;
    }
    out.insert(out.end(), bytes.begin(), bytes.end());
    return true;
}

} // namespace obfl_wire
