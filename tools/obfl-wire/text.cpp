#include "text.hpp"

#include <cstring>

namespace obfl_wire {
namespace {

const char base64_digits[] = "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789+/";
const char hex_upper[] = "0123456789ABCDEF";
const char hex_lower[] = "0123456789abcdef";

// Length of the well-formed UTF-8 sequence at s[0], or 0 (overlong forms,
// surrogates and values past U+10FFFF are not well formed).
size_t utf8_sequence(std::string_view s)
{
    const auto b = [&](size_t i) { return static_cast<unsigned char>(s[i]); };
    const unsigned char c = b(0);
    if (c < 0x80) {
        return 1;
    }
    size_t n;
    unsigned char lo = 0x80, hi = 0xBF;
    if (c >= 0xC2 && c <= 0xDF) {
        n = 2;
    } else if (c >= 0xE0 && c <= 0xEF) {
        n = 3;
        lo = c == 0xE0 ? 0xA0 : 0x80;
        hi = c == 0xED ? 0x9F : 0xBF;
    } else if (c >= 0xF0 && c <= 0xF4) {
        n = 4;
        lo = c == 0xF0 ? 0x90 : 0x80;
        hi = c == 0xF4 ? 0x8F : 0xBF;
    } else {
        return 0;
    }
    if (s.size() < n || b(1) < lo || b(1) > hi) {
        return 0;
    }
    for (size_t i = 2; i < n; ++i) {
        if (b(i) < 0x80 || b(i) > 0xBF) {
            return 0;
        }
    }
    return n;
}

} // namespace

int hex_digit(char c)
{
    if (c >= '0' && c <= '9') {
        return c - '0';
    }
    if (c >= 'a' && c <= 'f') {
        return c - 'a' + 10;
    }
    if (c >= 'A' && c <= 'F') {
        return c - 'A' + 10;
    }
    return -1;
}

std::string_view next_hex_token(std::string_view text, size_t &pos)
{
    const auto separator = [](char c) {
        return c == ' ' || c == '\t' || c == '\r' || c == '\n' || c == ':' || c == ',' || c == ';' || c == '"';
    };
    while (pos < text.size() && separator(text[pos])) {
        ++pos;
    }
    const size_t start = pos;
    while (pos < text.size() && !separator(text[pos])) {
        ++pos;
    }
    return text.substr(start, pos - start);
}

hex_fault hex_token(std::string_view t, std::vector<uint8_t> &out, size_t &at)
{
    const auto prefix = [&](size_t i, char first) {
        return i + 1 < t.size() && t[i] == first && (t[i + 1] == 'x' || t[i + 1] == 'X');
    };
    // One byte after each prefix: "0x8", "\x08\x01". Digits stop only at a
    // backslash, so a "0x" token has no second prefix: "0x08\x01" is refused there.
    const char lead = prefix(0, '\\') ? '\\' : prefix(0, '0') ? '0' : 0;
    if (lead != 0) {
        for (size_t i = 0; i < t.size();) {
            at = i;
            if (!prefix(i, lead)) {
                return hex_fault::not_digit;
            }
            unsigned value = 0;
            size_t end = i + 2;
            for (; end < t.size() && t[end] != '\\'; ++end) {
                const int digit = hex_digit(t[end]);
                if (digit < 0) {
                    at = end;
                    return hex_fault::not_digit;
                }
                value = value << 4 | static_cast<unsigned>(digit); // kept only for one or two digits
            }
            if (end - i - 2 == 0 || end - i - 2 > 2) {
                return end - i - 2 == 0 ? hex_fault::empty : hex_fault::wide;
            }
            out.push_back(static_cast<uint8_t>(value));
            i = end;
        }
        return hex_fault::none;
    }
    for (size_t i = 0; i < t.size(); ++i) {
        if (hex_digit(t[i]) < 0) {
            at = i;
            return hex_fault::not_digit;
        }
    }
    at = 0;
    if (t.size() % 2 != 0) {
        return hex_fault::odd;
    }
    for (size_t i = 0; i < t.size(); i += 2) {
        out.push_back(static_cast<uint8_t>(hex_digit(t[i]) << 4 | hex_digit(t[i + 1])));
    }
    return hex_fault::none;
}

bool parse_hex(std::string_view text, std::vector<uint8_t> &out)
{
    std::vector<uint8_t> bytes;
    bytes.reserve(text.size() / 3 + 1);
    size_t pos = 0;
    for (std::string_view token; !(token = next_hex_token(text, pos)).empty();) {
        size_t at;
        if (hex_token(token, bytes, at) != hex_fault::none) {
            return false;
        }
    }
    out.insert(out.end(), bytes.begin(), bytes.end());
    return true;
}

std::string to_hex(std::span<const uint8_t> bytes)
{
    std::string out;
    out.reserve(bytes.size() * 3);
    for (size_t i = 0; i < bytes.size(); ++i) {
        if (i != 0) {
            out += ' ';
        }
        out += hex_upper[bytes[i] >> 4];
        out += hex_upper[bytes[i] & 15];
    }
    return out;
}

void append_plain_hex(std::string &out, std::span<const uint8_t> bytes)
{
    for (uint8_t b : bytes) {
        out += hex_lower[b >> 4];
        out += hex_lower[b & 15];
    }
}

void append_base64(std::string &out, std::span<const uint8_t> bytes)
{
    const uint8_t *p = bytes.data();
    const size_t n = bytes.size();
    for (size_t i = 0; i < n; i += 3) {
        const uint32_t v = uint32_t{p[i]} << 16 | (i + 1 < n ? uint32_t{p[i + 1]} << 8 : 0) | (i + 2 < n ? p[i + 2] : 0);
        out += base64_digits[v >> 18 & 63];
        out += base64_digits[v >> 12 & 63];
        out += i + 1 < n ? base64_digits[v >> 6 & 63] : '=';
        out += i + 2 < n ? base64_digits[v & 63] : '=';
    }
}

bool from_base64(std::string_view text, std::vector<unsigned char> &out)
{
    while (!text.empty() && text.back() == '=') {
        text.remove_suffix(1);
    }
    uint32_t acc = 0;
    int bits = 0;
    for (char c : text) {
        int v;
        if (c == '-') {
            v = 62;
        } else if (c == '_') {
            v = 63;
        } else if (const char *at = std::strchr(base64_digits, c); at != nullptr && c != '\0') {
            v = static_cast<int>(at - base64_digits);
        } else {
            return false;
        }
        acc = acc << 6 | static_cast<uint32_t>(v);
        bits += 6;
        if (bits >= 8) {
            bits -= 8;
            out.push_back(static_cast<unsigned char>(acc >> bits));
        }
    }
    return bits < 6 && (acc & ((1u << bits) - 1)) == 0;
}

std::string shortened(std::string text, size_t limit)
{
    if (text.size() <= limit) {
        return text;
    }
    size_t cut = limit > 3 ? limit - 3 : 0;
    while (cut > 0 && (static_cast<unsigned char>(text[cut]) & 0xC0) == 0x80) {
        --cut; // not inside a UTF-8 sequence
    }
    text.resize(cut);
    return text + "\xE2\x80\xA6"; // U+2026, the ellipsis
}

std::string one_line(std::string text, size_t limit)
{
    for (char &c : text) {
        c = static_cast<unsigned char>(c) < 0x20 ? '?' : c;
    }
    return shortened(std::move(text), limit);
}

bool valid_utf8(std::string_view text)
{
    for (size_t i = 0; i < text.size();) {
        const size_t n = utf8_sequence(text.substr(i));
        if (n == 0) {
            return false;
        }
        i += n;
    }
    return true;
}

void append_json_string(std::string &out, std::string_view text)
{
    out += '"';
    for (size_t i = 0; i < text.size();) {
        // The run of bytes that go out as they are, in one append.
        size_t plain = i;
        while (plain < text.size()) {
            const auto u = static_cast<unsigned char>(text[plain]);
            if (u < 0x20 || u >= 0x80 || u == '"' || u == '\\') {
                break;
            }
            ++plain;
        }
        out.append(text.data() + i, plain - i);
        i = plain;
        if (i == text.size()) {
            break;
        }
        const char c = text[i];
        const auto u = static_cast<unsigned char>(c);
        if (u >= 0x80) {
            const size_t n = utf8_sequence(text.substr(i));
            if (n == 0) {
                out += "\xEF\xBF\xBD"; // U+FFFD for each byte that starts no sequence
                ++i;
            } else {
                out.append(text.substr(i, n));
                i += n;
            }
            continue;
        }
        ++i;
        switch (c) {
        case '"': out += "\\\""; break;
        case '\\': out += "\\\\"; break;
        case '\n': out += "\\n"; break;
        case '\r': out += "\\r"; break;
        case '\t': out += "\\t"; break;
        case '\b': out += "\\b"; break;
        case '\f': out += "\\f"; break;
        default:
            out += "\\u00";
            out += hex_lower[u >> 4];
            out += hex_lower[u & 15];
        }
    }
    out += '"';
}

} // namespace obfl_wire
