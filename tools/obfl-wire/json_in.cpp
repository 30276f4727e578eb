// JSON text in: the parser's document, with what it would let pass refused.
#include <set>
#include <stdexcept>

#include "record_json.hpp"

namespace obfl_wire {
namespace {

// Thrown from the parser's callback: the key given twice.
struct duplicate_key : std::runtime_error {
    using std::runtime_error::runtime_error;
};

} // namespace

bool parse_json(std::string_view text, json &out, std::string &error)
{
    // One set of keys per open object; a repeated key would silently replace
    // the first value, so it is refused instead.
    std::vector<std::set<std::string>> keys;
    const auto check = [&](int, json::parse_event_t event, json &parsed) {
        if (event == json::parse_event_t::object_start) {
            keys.emplace_back();
        } else if (event == json::parse_event_t::object_end) {
            keys.pop_back();
        } else if (event == json::parse_event_t::key &&
                   !keys.back().insert(parsed.get_ref<const std::string &>()).second) {
            throw duplicate_key(parsed.get_ref<const std::string &>());
        }
        return true;
    };
    try {
        out = json::parse(text.begin(), text.end(), check);
        return true;
    } catch (const duplicate_key &e) {
        error = std::string("key '") + e.what() + "' given twice in one object";
    } catch (const json::parse_error &e) {
        // "[json.exception.parse_error.101] parse error at line 1, column 9: ..." -> "line 1, column 9: ..."
        const std::string what = e.what();
        const size_t at = what.find(" at line ");
        error = at == std::string::npos ? what : what.substr(at + 4);
    } catch (const json::exception &e) {
        // A number too large for a double ("1e400"): "[json.exception.out_of_range.406] number overflow ..."
        const std::string what = e.what();
        const size_t at = what.find("] ");
        error = at == std::string::npos ? what : what.substr(at + 2);
    }
    return false;
}

} // namespace obfl_wire
