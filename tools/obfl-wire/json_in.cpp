// JSON text in: the parser's document, with what it would let pass refused
// (a key given twice, nesting deeper than any record), and values shown
// briefly in one-line messages.
#include <algorithm>
#include <set>
#include <stdexcept>

#include "record_json.hpp"

namespace obfl_wire {
namespace {

// Thrown from the parser: the key given twice.
struct duplicate_key : std::runtime_error {
    using std::runtime_error::runtime_error;
};

// The parser's own document builder, refusing a key given twice in one
// object, which it would let replace the first value.
class json_checker : public nlohmann::detail::json_sax_dom_parser<json> {
    using base = nlohmann::detail::json_sax_dom_parser<json>;

public:
    explicit json_checker(json &out) : base(out) {}
    bool start_object(std::size_t n)
    {
        if (open_.size() == depth_) {
            open_.emplace_back();
        }
        open_[depth_].few.clear();
        open_[depth_].many.clear();
        ++depth_;
        return base::start_object(n);
    }
    bool end_object()
    {
        --depth_;
        return base::end_object();
    }
    bool number_float(number_float_t, const string_t &written)
    {
        // As written: a double would show 2^64 as 1.8446744073709552e+19.
        binary_t text(std::vector<std::uint8_t>(written.begin(), written.end()));
        return base::binary(text);
    }
    bool key(std::string &k)
    {
        keys &seen = open_[depth_ - 1];
        // A record has a few members: a list, then a set once there are many.
        const bool again = seen.many.empty() ? std::find(seen.few.begin(), seen.few.end(), k) != seen.few.end()
                                             : !seen.many.insert(k).second;
        if (again) {
            throw duplicate_key(k);
        }
        if (seen.many.empty()) {
            seen.few.push_back(k);
            if (seen.few.size() > 32) {
                seen.many.insert(seen.few.begin(), seen.few.end());
            }
        }
        return base::key(k);
    }

private:
    struct keys {
        std::vector<std::string> few;
        std::set<std::string> many;
    };
    std::vector<keys> open_; // per open object, reused
    size_t depth_ = 0;
};

// "line 2, column 7" of text[at].
std::string place(std::string_view text, size_t at)
{
    size_t line = 1, column = 1;
    for (size_t i = 0; i < at; ++i) {
        line += text[i] == '\n' ? 1 : 0;
        column = text[i] == '\n' ? 1 : column + 1;
    }
    return "line " + std::to_string(line) + ", column " + std::to_string(column);
}

void append_brief(std::string &out, const json &v, size_t limit, unsigned depth)
{
    if (out.size() > limit) {
        return;
    }
    if (v.is_string()) {
        const std::string &s = v.get_ref<const std::string &>();
        append_json_string(out, std::string_view(s).substr(0, limit - out.size() + 1));
    } else if (v.is_binary()) {
        out.append(v.get_binary().begin(), v.get_binary().end()); // a number as written
    } else if (v.is_object() || v.is_array()) {
        out += v.is_object() ? '{' : '[';
        bool first = true;
        for (auto it = v.begin(); it != v.end() && out.size() <= limit; ++it) {
            out += first ? "" : ",";
            first = false;
            if (v.is_object()) {
                append_json_string(out, std::string_view(it.key()).substr(0, limit - out.size() + 1));
                out += ':';
            }
            if (depth < json_depth_limit) {
                append_brief(out, it.value(), limit, depth + 1);
            }
        }
        out += v.is_object() ? '}' : ']';
    } else {
        out += v.dump();
    }
}

} // namespace

std::string brief(const json &value, size_t limit)
{
    std::string out;
    append_brief(out, value, limit, 0);
    return shortened(std::move(out), limit);
}

bool parse_json(std::string_view text, json &out, std::string &error)
{
    // The parser itself nests without bound, but the values it returns are
    // walked recursively; no record nests deeper than a few levels.
    json_scan scan;
    for (size_t i = 0; i < text.size(); ++i) {
        scan.step(text[i]);
        if (scan.depth > json_depth_limit) {
            error = place(text, i) + ": nested deeper than " + std::to_string(json_depth_limit) + " levels";
            return false;
        }
    }
    json_checker sax(out);
    try {
        json::sax_parse(text.begin(), text.end(), &sax);
        return true;
    } catch (const duplicate_key &e) {
        error = "key '" + shortened(std::string(e.what()), 60) + "' given twice in one object";
    } catch (const json::parse_error &e) {
        // "[json.exception.parse_error.101] parse error at line 1, column 9: ..." -> "line 1, column 9: ..."
        const std::string what = e.what();
        const size_t at = what.find(" at line ");
        error = at == std::string::npos ? what : what.substr(at + 4);
        // "...; last read: '<the token so far>'" may quote a whole line of input.
        if (const size_t read = error.find("; last read: '"); read != std::string::npos) {
            const size_t from = read + 14;
            size_t end = error.find("'; expected", from);
            end = end != std::string::npos ? end : error.rfind('\'') > from ? error.rfind('\'') : error.size();
            error = error.substr(0, from) + shortened(error.substr(from, end - from), 40) + error.substr(end);
        }
    } catch (const json::exception &e) {
        // A number too large for a double ("1e400"): "[json.exception.out_of_range.406] number overflow ..."
        const std::string what = e.what();
        const size_t at = what.find("] ");
        error = at == std::string::npos ? what : what.substr(at + 2);
        // "number overflow parsing '<the number>'": a number may be as long as the input.
        const size_t open = error.find('\'');
        const size_t close = error.rfind('\'');
        if (open != std::string::npos && close > open) {
            error = error.substr(0, open + 1) + shortened(error.substr(open + 1, close - open - 1), 40) +
                    error.substr(close);
        }
    }
    return false;
}

} // namespace obfl_wire
