// The entry table: one row per message of the catalogue, each instantiating
// the generic conversions for its record and calling its own codec entries.
#include <cstdio>
#include <cstdlib>
#include <set>
#include <stdexcept>

#include "record_json.hpp"
#include "record_reader.hpp"
#include "record_writer.hpp"
#include "schema.hpp"

namespace obfl_wire {
namespace {

void *heap_alloc(size_t size, void *) { return std::malloc(size == 0 ? 1 : size); }
void heap_free(void *p, void *) { std::free(p); }

template <class R>
bool from_json_entry(const json &in, void *record, arena &mem, const json_options &o, std::string &error)
{
    auto &r = *static_cast<R *>(record);
    nuvex::description<R>::init(&r);
    return reader{mem, o, error}.record(in, "", r);
}

template <class R>
json to_json_entry(const void *record, const json_options &o)
{
    std::string text;
    json_out out(text, false);
    write_record(out, *static_cast<const R *>(record), o);
    return json::parse(text);
}

template <class R, auto Encode>
bool encode_entry(const json &in, const json_options &o, std::vector<uint8_t> &out, std::string &error)
{
    R r;
    arena mem;
    if (!from_json_entry<R>(in, &r, mem, o, error)) {
        return false;
    }
    std::vector<uint8_t> bytes(Encode(&r, nullptr, 0, nullptr, nullptr, MIVO_FLAGS_NONE));
    Encode(&r, bytes.data(), bytes.size(), nullptr, nullptr, MIVO_FLAGS_NONE);
    out = std::move(bytes);
    return true;
}

template <class R>
void count_members(const R &r, unsigned *filled, unsigned *named)
{
    nuvex::for_each_field<R>([&]<class F>() {
        if (!F::present(r)) {
            return;
        }
        *filled += 1;
        using V = member_t<R, F>;
        if constexpr (std::is_enum_v<V>) {
            for (const constant &c : enum_info<V>::constants) {
                *named += c.value == static_cast<uint32_t>(F::value(r)) ? 1 : 0;
            }
        }
    });
}

template <class R, auto Decode, auto Free>
int decode_entry(std::span<const uint8_t> bytes, bool shared, const json_options &o, std::string &text,
                 unsigned *filled, unsigned *named)
{
    static constexpr uint8_t none[1] = {0};
    const mivo_flags flags = shared ? MIVO_FLAG_SHARED : MIVO_FLAGS_NONE;
    R r;
    const int rc = Decode(&r, bytes.empty() ? none : bytes.data(), bytes.size(), heap_alloc, nullptr, flags);
    if (rc == MIVO_NO_ERROR) {
        json_out out(text, o.pretty);
        write_record(out, r, o);
        unsigned f = 0, n = 0;
        count_members(r, &f, &n);
        if (filled != nullptr) {
            *filled = f;
        }
        if (named != nullptr) {
            *named = n;
        }
    }
    Free(&r, heap_free, nullptr, flags);
    return rc;
}

template <class R>
std::string describe_entry()
{
    std::string out;
    nuvex::for_each_field<R>([&]<class F>() {
        char line[128];
        char key[8];
        std::snprintf(key, sizeof key, F::number < 16 ? "%02X" : "%02X 01", F::key);
        std::snprintf(line, sizeof line, "%3u  %-30s %-12s key %s\n", F::number, F::label, F::kind_name, key);
        out += line;
    });
    return out;
}

#define OBFL_WIRE_ENTRY(rec, FIELDS)                                                                     \
    message{short_name(#rec),                                                                            \
            nuvex::description<struct rec>::fields::size,                                                \
            &encode_entry<struct rec, rec##_encode_ext>,                                                 \
            &decode_entry<struct rec, rec##_decode_ext, rec##_free_ext>,                                 \
            &from_json_entry<struct rec>,                                                                \
            &to_json_entry<struct rec>,                                                                  \
            &describe_entry<struct rec>,                                                                 \
            &schema_of<struct rec>},

const message catalogue[] = {MIVO_OBFL_MGR_CATALOGUE(OBFL_WIRE_ENTRY)};

// Thrown from the parser's callback: the key given twice.
struct duplicate_key : std::runtime_error {
    using std::runtime_error::runtime_error;
};

} // namespace

std::span<const message> messages() { return catalogue; }

const message *find_message(std::string_view name)
{
    if (name.starts_with("mivo_")) {
        name.remove_prefix(5);
    }
    for (const message &m : catalogue) {
        if (name == m.name) {
            return &m;
        }
    }
    return nullptr;
}

std::string result_name(int result)
{
    switch (result) {
    case MIVO_NO_ERROR: return "MIVO_NO_ERROR";
    case MIVO_ERROR_GARBLED: return "MIVO_ERROR_GARBLED";
    case MIVO_ERROR_UNSUPPORTED: return "MIVO_ERROR_UNSUPPORTED";
    case MIVO_ERROR_WRONG_TYPE: return "MIVO_ERROR_WRONG_TYPE";
    case MIVO_ERROR_ALLOC_FAILED: return "MIVO_ERROR_ALLOC_FAILED";
    default: return "result " + std::to_string(result) + " from the entity identifier codec";
    }
}

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
    }
    return false;
}

} // namespace obfl_wire
