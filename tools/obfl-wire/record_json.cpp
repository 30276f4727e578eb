// record_json: JSON and .proto views of the catalogue, walked from the
// engine's compile-time record descriptions (see record_json.hpp).
#include "record_json.hpp"

#include <algorithm>
#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <limits>
#include <new>
#include <type_traits>

#include "mivo_obfl_mgr_description.hpp"
#include "mivo_tesk_eid_description.hpp"

namespace obfl_wire {
namespace {

using obfl_wire::json;
using nuvex::element;

void *heap_alloc(size_t size, void *) { return std::malloc(size == 0 ? 1 : size); }
void heap_free(void *p, void *) { std::free(p); }

// ---- names from the catalogue's lists ----

struct constant {
    const char *name;
    uint32_t value;
};

// Every enumeration type with its constants, keyed by the member's C type.
template <class E>
struct enum_info;
#define OBFL_WIRE_CONSTANT(cname, value) constant{#cname, value},
#define OBFL_WIRE_ENUM(ename, CONSTANTS)                                          \
    template <>                                                                   \
    struct enum_info<enum ename> {                                                \
        static constexpr const char *name = #ename;                               \
        static constexpr constant constants[] = {CONSTANTS(OBFL_WIRE_CONSTANT)}; \
    };
MIVO_OBFL_MGR_ENUMS(OBFL_WIRE_ENUM)
MIVO_TESK_EID_ENUMS(OBFL_WIRE_ENUM)

// Record type -> its C name, for the schema's message names.
template <class R>
struct record_name;
#define OBFL_WIRE_RECORD_NAME(rec, FIELDS)                 \
    template <>                                            \
    struct record_name<struct rec> {                       \
        static constexpr const char *value = #rec;         \
    };
MIVO_OBFL_MGR_CATALOGUE(OBFL_WIRE_RECORD_NAME)
OBFL_WIRE_RECORD_NAME(mivo_tesk_eid_st, )
OBFL_WIRE_RECORD_NAME(mivo_tesk_entity_tsi_st, )
OBFL_WIRE_RECORD_NAME(mivo_tesk_entity_subtype_un, )

constexpr const char *short_name(const char *c_name)
{
    return std::string_view(c_name).starts_with("mivo_") ? c_name + 5 : c_name;
}

// The member's type as stored, and the type of one element of it.
template <class R, class F>
using member_t = std::remove_cvref_t<decltype(F::value(std::declval<R &>()))>;
template <class R, class F>
using element_t = std::conditional_t<F::kind::repeated, std::remove_const_t<std::remove_pointer_t<member_t<R, F>>>,
                                     member_t<R, F>>;

template <class V>
constexpr const char *scalar_name()
{
    if constexpr (std::is_enum_v<V>) {
        return "enum";
    } else if constexpr (std::is_same_v<V, int32_t>) {
        return "int32";
    } else if constexpr (std::is_same_v<V, uint64_t>) {
        return "uint64";
    } else {
        return "uint32";
    }
}

// ---- byte strings ----

const char base64_digits[] = "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789+/";

std::string to_base64(const uint8_t *p, size_t n)
{
    std::string out;
    for (size_t i = 0; i < n; i += 3) {
        const uint32_t v = uint32_t{p[i]} << 16 | (i + 1 < n ? uint32_t{p[i + 1]} << 8 : 0) | (i + 2 < n ? p[i + 2] : 0);
        out += base64_digits[v >> 18 & 63];
        out += base64_digits[v >> 12 & 63];
        out += i + 1 < n ? base64_digits[v >> 6 & 63] : '=';
        out += i + 2 < n ? base64_digits[v & 63] : '=';
    }
    return out;
}

// Standard or URL-safe alphabet, padding optional, as the JSON mapping allows.
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

std::string plain_hex(const uint8_t *p, size_t n)
{
    std::string out;
    for (size_t i = 0; i < n; ++i) {
        char two[3];
        std::snprintf(two, sizeof two, "%02x", p[i]);
        out += two;
    }
    return out;
}

// ---- record -> JSON ----

template <class R>
json record_to_json(const R &r, const json_options &o);

template <class F, class V>
json element_to_json(const V &v, const json_options &o)
{
    constexpr auto e = F::kind::elem;
    if constexpr (e == element::string) {
        return v == nullptr ? json("") : json(std::string(v));
    } else if constexpr (e == element::bytes) {
        const auto *p = static_cast<const uint8_t *>(v.data);
        return p == nullptr ? json("") : json(o.hex_bytes ? plain_hex(p, v.size) : to_base64(p, v.size));
    } else if constexpr (e == element::eid || e == element::message) {
        return record_to_json(v, o);
    } else if constexpr (e == element::boolean) {
        return v != 0;
    } else if constexpr (e == element::varint64) {
        return std::to_string(v);
    } else if constexpr (std::is_enum_v<V>) {
        for (const constant &c : enum_info<V>::constants) {
            if (c.value == static_cast<uint32_t>(v)) {
                return c.name;
            }
        }
        return static_cast<uint32_t>(v);
    } else {
        return v;
    }
}

template <class R>
json record_to_json(const R &r, const json_options &o)
{
    json out = json::object();
    nuvex::for_each_field<R>([&]<class F>() {
        if (!F::present(r)) {
            return;
        }
        const auto &v = F::value(r);
        if constexpr (F::kind::repeated) {
            json list = json::array();
            for (unsigned i = 0; v != nullptr && i < F::count(r); ++i) {
                list.push_back(element_to_json<F>(v[i], o));
            }
            out[F::label] = std::move(list);
        } else if constexpr (F::kind::elem == element::string) {
            if (v != nullptr) { // a present null string is not sent either
                out[F::label] = v;
            }
        } else {
            out[F::label] = element_to_json<F>(v, o);
        }
    });
    return out;
}

template <class R>
unsigned members_present(const R &r)
{
    unsigned n = 0;
    nuvex::for_each_field<R>([&]<class F>() { n += F::present(r) ? 1 : 0; });
    return n;
}

// ---- JSON -> record ----

struct reader {
    arena &mem;
    const json_options &options;
    std::string &error;

    bool fail(const std::string &path, const std::string &problem)
    {
        error = path + ": " + problem;
        return false;
    }

    template <class T>
    T *allocate(size_t count)
    {
        auto &block = mem.blocks.emplace_back(sizeof(T) * count + 1);
        return reinterpret_cast<T *>(block.data());
    }

    // Any JSON integer form -> sign and magnitude, then the member's range.
    template <class V>
    bool integer(const json &v, const std::string &path, V &out)
    {
        using limits = std::numeric_limits<std::conditional_t<std::is_enum_v<V>, uint32_t, V>>;
        bool negative = false;
        uint64_t magnitude = 0;
        std::string shown = v.dump();
        if (v.is_number_unsigned()) {
            magnitude = v.get<uint64_t>();
        } else if (v.is_number_integer()) {
            const int64_t i = v.get<int64_t>();
            negative = i < 0;
            magnitude = negative ? uint64_t{0} - static_cast<uint64_t>(i) : static_cast<uint64_t>(i);
        } else if (v.is_number_float()) {
            const double d = v.get<double>();
            if (!std::isfinite(d) || d != std::floor(d)) {
                return fail(path, shown + " is a fraction, not an integer");
            }
            negative = d < 0;
            if (std::fabs(d) >= 18446744073709551616.0) {
                return fail(path, shown + " is out of range for " + scalar_name<V>());
            }
            magnitude = static_cast<uint64_t>(std::fabs(d));
        } else if (v.is_string()) {
            const std::string &s = v.get_ref<const std::string &>();
            shown = s;
            size_t i = 0;
            negative = !s.empty() && s[0] == '-';
            i = negative ? 1 : 0;
            if (i == s.size()) {
                return fail(path, "'" + s + "' is not a number");
            }
            for (; i < s.size(); ++i) {
                if (s[i] < '0' || s[i] > '9') {
                    return fail(path, "'" + s + "' is not a number");
                }
                const unsigned digit = static_cast<unsigned>(s[i] - '0');
                if (magnitude > (UINT64_MAX - digit) / 10) {
                    return fail(path, s + " is out of range for " + scalar_name<V>());
                }
                magnitude = magnitude * 10 + digit;
            }
        } else {
            return fail(path, std::string("expected a number, got ") + v.type_name() + " " + shown);
        }
        const auto range = [&] {
            return shown + " is out of range for " + scalar_name<V>() + " (" + std::to_string(limits::min()) +
                   " to " + std::to_string(limits::max()) + ")";
        };
        if constexpr (limits::is_signed) {
            if (negative ? magnitude > uint64_t{1} << 31 : magnitude > uint64_t{limits::max()}) {
                return fail(path, range());
            }
            out = static_cast<V>(negative ? -static_cast<int64_t>(magnitude) : static_cast<int64_t>(magnitude));
        } else {
            if (negative && magnitude != 0) {
                return fail(path, shown + " is negative, but " + scalar_name<V>() + " is unsigned");
            }
            if (magnitude > uint64_t{limits::max()}) {
                return fail(path, range());
            }
            out = static_cast<V>(magnitude);
        }
        return true;
    }

    template <class V>
    bool enumeration(const json &v, const std::string &path, V &out)
    {
        if (!v.is_string() || (!v.get_ref<const std::string &>().empty() &&
                               v.get_ref<const std::string &>().find_first_not_of("-0123456789") == std::string::npos)) {
            return integer(v, path, out);
        }
        const std::string &name = v.get_ref<const std::string &>();
        const constant *found = nullptr;
        unsigned tails = 0;
        for (const constant &c : enum_info<V>::constants) {
            const std::string_view full = c.name;
            if (full == name) {
                out = static_cast<V>(c.value);
                return true;
            }
            if (full.size() > name.size() && full.ends_with(name) && full[full.size() - name.size() - 1] == '_') {
                found = &c;
                ++tails;
            }
        }
        if (tails == 1) {
            out = static_cast<V>(found->value);
            return true;
        }
        return fail(path, "'" + name + "' is " + (tails > 1 ? "ambiguous among" : "no constant of") + " enum " +
                              enum_info<V>::name);
    }

    template <class F, class V>
    bool element_value(const json &v, const std::string &path, V &out)
    {
        constexpr auto e = F::kind::elem;
        if constexpr (e == element::string) {
            if (!v.is_string()) {
                return fail(path, std::string("expected a string, got ") + v.type_name() + " " + v.dump());
            }
            const std::string &s = v.get_ref<const std::string &>();
            if (s.find('\0') != std::string::npos) {
                return fail(path, "a string member cannot hold a NUL character");
            }
            char *copy = allocate<char>(s.size());
            std::memcpy(copy, s.c_str(), s.size() + 1);
            out = copy;
            return true;
        } else if constexpr (e == element::bytes) {
            if (!v.is_string()) {
                return fail(path, std::string("expected a ") + (options.hex_bytes ? "hex" : "base64") +
                                      " string, got " + v.type_name() + " " + v.dump());
            }
            const std::string &s = v.get_ref<const std::string &>();
            std::vector<uint8_t> hex_bytes;
            auto &block = mem.blocks.emplace_back();
            if (options.hex_bytes ? !parse_hex(s, hex_bytes) : !from_base64(s, block)) {
                return fail(path, "'" + s + "' is not " + (options.hex_bytes ? "hex" : "base64"));
            }
            if (options.hex_bytes) {
                block.assign(hex_bytes.begin(), hex_bytes.end());
            }
            out.data = block.data();
            out.size = block.size();
            return true;
        } else if constexpr (e == element::eid || e == element::message) {
            return record(v, path + ".", out);
        } else if constexpr (e == element::boolean) {
            if (!v.is_boolean()) {
                return fail(path, std::string("expected true or false, got ") + v.type_name() + " " + v.dump());
            }
            out = v.get<bool>() ? 1 : 0;
            return true;
        } else if constexpr (std::is_enum_v<V>) {
            return enumeration(v, path, out);
        } else {
            return integer(v, path, out);
        }
    }

    // Fills r (already initialised) from an object; prefix is the path of
    // r itself, ending in a dot, or empty at the top.
    template <class R>
    bool record(const json &in, const std::string &prefix, R &r)
    {
        if (!in.is_object()) {
            const std::string where = prefix.empty() ? std::string("message") : prefix.substr(0, prefix.size() - 1);
            return fail(where, std::string("expected an object, got ") + in.type_name());
        }
        for (auto it = in.begin(); it != in.end(); ++it) {
            const std::string &key = it.key();
            const json &v = it.value();
            bool found = false;
            bool ok = true;
            nuvex::for_each_field<R>([&]<class F>() {
                if (found || key != F::label) {
                    return;
                }
                found = true;
                if (v.is_null()) {
                    return;
                }
                ok = member<R, F>(v, prefix + key, r);
            });
            if (!found) {
                return fail(prefix + key, "no such member" +
                                              (prefix.empty() ? std::string() : " in " + prefix.substr(0, prefix.size() - 1)));
            }
            if (!ok) {
                return false;
            }
        }
        return true;
    }

    template <class R, class F>
    bool member(const json &v, const std::string &path, R &r)
    {
        using E = element_t<R, F>;
        auto &value = F::value(r);
        if constexpr (F::kind::repeated) {
            if (!v.is_array()) {
                return fail(path, std::string("expected an array, got ") + v.type_name() + " " + v.dump());
            }
            E *list = allocate<E>(v.size());
            for (size_t i = 0; i < v.size(); ++i) {
                new (&list[i]) E{};
                if constexpr (F::kind::elem == element::message) {
                    nuvex::description<E>::init(&list[i]);
                }
                if (!element_value<F>(v[i], path + "[" + std::to_string(i) + "]", list[i])) {
                    return false;
                }
            }
            value = list;
            F::count(r) = static_cast<unsigned>(v.size());
        } else if (!element_value<F>(v, path, value)) {
            return false;
        }
        F::mark(r, true);
        return true;
    }
};

// ---- one entry per message ----

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
    return record_to_json(*static_cast<const R *>(record), o);
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

// Enumeration members whose value is one of their constants: what guess
// weighs when two messages fill as many members.
template <class R>
unsigned named_values(const R &r)
{
    unsigned n = 0;
    nuvex::for_each_field<R>([&]<class F>() {
        using V = member_t<R, F>;
        if constexpr (std::is_enum_v<V>) {
            for (const constant &c : enum_info<V>::constants) {
                n += F::present(r) && c.value == static_cast<uint32_t>(F::value(r)) ? 1 : 0;
            }
        }
    });
    return n;
}

template <class R, auto Decode, auto Free>
int decode_scored(std::span<const uint8_t> bytes, bool shared, const json_options &o, json &out, unsigned *filled,
                  unsigned *named)
{
    static constexpr uint8_t none[1] = {0};
    const mivo_flags flags = shared ? MIVO_FLAG_SHARED : MIVO_FLAGS_NONE;
    R r;
    const int rc = Decode(&r, bytes.empty() ? none : bytes.data(), bytes.size(), heap_alloc, nullptr, flags);
    if (rc == MIVO_NO_ERROR) {
        out = record_to_json(r, o);
        if (filled != nullptr) {
            *filled = members_present(r);
        }
        if (named != nullptr) {
            *named = named_values(r);
        }
    }
    Free(&r, heap_free, nullptr, flags);
    return rc;
}

template <class R, auto Decode, auto Free>
int decode_entry(std::span<const uint8_t> bytes, bool shared, const json_options &o, json &out, unsigned *filled)
{
    return decode_scored<R, Decode, Free>(bytes, shared, o, out, filled, nullptr);
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

#define OBFL_WIRE_ENTRY(rec, FIELDS)                                                                              \
    message{short_name(#rec), nuvex::description<struct rec>::fields::size, &encode_entry<struct rec, rec##_encode_ext>, \
            &decode_entry<struct rec, rec##_decode_ext, rec##_free_ext>, &from_json_entry<struct rec>,            \
            &to_json_entry<struct rec>, &describe_entry<struct rec>},

const message catalogue[] = {MIVO_OBFL_MGR_CATALOGUE(OBFL_WIRE_ENTRY)};

// The same decoders with their enumeration score, in the same order.
using scored_decoder = int (*)(std::span<const uint8_t>, bool, const json_options &, json &, unsigned *, unsigned *);
#define OBFL_WIRE_SCORED(rec, FIELDS) &decode_scored<struct rec, rec##_decode_ext, rec##_free_ext>,
const scored_decoder scored_decoders[] = {MIVO_OBFL_MGR_CATALOGUE(OBFL_WIRE_SCORED)};

// ---- the schema ----

template <class R>
void proto_message(std::string &out)
{
    out += "\nmessage ";
    out += short_name(record_name<R>::value);
    out += " {\n";
    nuvex::for_each_field<R>([&]<class F>() {
        using E = element_t<R, F>;
        constexpr auto e = F::kind::elem;
        std::string type;
        const char *note = nullptr;
        if constexpr (e == element::eid || e == element::message) {
            type = short_name(record_name<E>::value);
        } else if constexpr (e == element::string) {
            type = "string";
        } else if constexpr (e == element::bytes) {
            type = "bytes";
        } else if constexpr (e == element::boolean) {
            type = "bool";
        } else if constexpr (std::is_enum_v<E>) {
            type = "uint32";
            note = enum_info<E>::name;
        } else {
            type = scalar_name<E>();
        }
        out += std::string("  ") + (F::kind::repeated ? "repeated " : "optional ") + type + " " + F::label + " = " +
               std::to_string(F::number) + ";";
        if (note != nullptr) {
            out += std::string("  // ") + short_name(note);
        }
        out += "\n";
    });
    out += "}\n";
}

#define OBFL_WIRE_PROTO_ENUM(ename, CONSTANTS)                          \
    out += std::string("\nenum ") + short_name(#ename) + " {\n";        \
    for (const constant &c : enum_info<enum ename>::constants) {        \
        out += std::string("  ") + c.name + " = " + std::to_string(c.value) + ";\n"; \
    }                                                                   \
    out += "}\n";
#define OBFL_WIRE_PROTO_MESSAGE(rec, FIELDS) proto_message<struct rec>(out);

// Top-level fields of bytes that a record with fields 1..members would skip.
size_t bytes_skipped(std::span<const uint8_t> bytes, unsigned members)
{
    size_t at = 0;
    size_t skipped = 0;
    const auto varint = [&](uint64_t &v) {
        v = 0;
        for (unsigned shift = 0; at < bytes.size() && shift < 64; shift += 7) {
            const uint8_t b = bytes[at++];
            v |= uint64_t{b & 0x7Fu} << shift;
            if ((b & 0x80) == 0) {
                return true;
            }
        }
        return false;
    };
    while (at < bytes.size()) {
        const size_t start = at;
        uint64_t key = 0;
        uint64_t v = 0;
        if (!varint(key)) {
            break;
        }
        switch (key & 7) {
        case NUVEX_TYPE_VARINT: varint(v); break;
        case NUVEX_TYPE_FIXED64: at += 8; break;
        case NUVEX_TYPE_LENGTH: varint(v); at += v <= bytes.size() - at ? v : bytes.size() - at; break;
        case NUVEX_TYPE_FIXED32: at += 4; break;
        default: at = bytes.size(); break;
        }
        at = std::min(at, bytes.size());
        const uint64_t number = key >> 3;
        if (number == 0 || number > members) {
            skipped += at - start;
        }
    }
    return skipped;
}

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

std::string proto_schema()
{
    std::string out =
        "// The OBFL manager's messages and the entity identifier, as written by\n"
        "// `obfl-wire proto`. Field numbers are the members' positions in their\n"
        "// records; repeated members are never packed (proto2's default).\n"
        "//\n"
        "// Members of an enumeration type are declared uint32, with the enumeration\n"
        "// named in a comment, and the enumerations are listed for reference only.\n"
        "// The codec carries any 32-bit value in such a member, named or not, but a\n"
        "// proto2 enum is closed: a parser would move an unnamed value out of the\n"
        "// member into the unknown fields, and `protoc --decode` would show it apart\n"
        "// from its member, by number only. As uint32 every value stays in its member.\n"
        "syntax = \"proto2\";\n"
        "\n"
        "package obfl;\n";
    MIVO_OBFL_MGR_ENUMS(OBFL_WIRE_PROTO_ENUM)
    MIVO_TESK_EID_ENUMS(OBFL_WIRE_PROTO_ENUM)
    proto_message<mivo_tesk_entity_subtype_un>(out);
    proto_message<mivo_tesk_entity_tsi_st>(out);
    proto_message<mivo_tesk_eid_st>(out);
    MIVO_OBFL_MGR_CATALOGUE(OBFL_WIRE_PROTO_MESSAGE)
    return out;
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

std::vector<candidate> guess(std::span<const uint8_t> bytes, bool shared, const json_options &options)
{
    std::vector<candidate> found;
    std::vector<unsigned> named;
    for (size_t i = 0; i < std::size(catalogue); ++i) {
        candidate c{&catalogue[i], 0, 0, {}};
        unsigned n = 0;
        if (scored_decoders[i](bytes, shared, options, c.record, &c.members_filled, &n) == MIVO_NO_ERROR) {
            c.bytes_skipped = bytes_skipped(bytes, c.msg->member_count);
            found.push_back(std::move(c));
            named.push_back(n);
        }
    }
    std::vector<size_t> order(found.size());
    for (size_t i = 0; i < order.size(); ++i) {
        order[i] = i;
    }
    std::stable_sort(order.begin(), order.end(), [&](size_t i, size_t j) {
        const candidate &a = found[i];
        const candidate &b = found[j];
        if (a.members_filled != b.members_filled) {
            return a.members_filled > b.members_filled;
        }
        if (a.bytes_skipped != b.bytes_skipped) {
            return a.bytes_skipped < b.bytes_skipped;
        }
        if (named[i] != named[j]) {
            return named[i] > named[j];
        }
        return a.msg->member_count < b.msg->member_count; // the snugger fit
    });
    std::vector<candidate> ranked;
    for (size_t i : order) {
        ranked.push_back(std::move(found[i]));
    }
    return ranked;
}

bool parse_hex(std::string_view text, std::vector<uint8_t> &out)
{
    std::vector<uint8_t> bytes;
    int high = -1;
    bool group_start = true;
    for (size_t i = 0; i < text.size(); ++i) {
        const char c = text[i];
        if (c == ' ' || c == '\n' || c == '\r' || c == '\t' || c == ':' || c == ',') {
            group_start = true;
            continue;
        }
        if (group_start && c == '0' && i + 1 < text.size() && (text[i + 1] == 'x' || text[i + 1] == 'X')) {
            ++i;
            group_start = false;
            continue;
        }
        group_start = false;
        int v;
        if (c >= '0' && c <= '9') {
            v = c - '0';
        } else if (c >= 'a' && c <= 'f') {
            v = c - 'a' + 10;
        } else if (c >= 'A' && c <= 'F') {
            v = c - 'A' + 10;
        } else {
            return false;
        }
        if (high < 0) {
            high = v;
        } else {
            bytes.push_back(static_cast<uint8_t>(high << 4 | v));
            high = -1;
        }
    }
    if (high >= 0) {
        return false;
    }
    out.insert(out.end(), bytes.begin(), bytes.end());
    return true;
}

std::string to_hex(std::span<const uint8_t> bytes)
{
    static const char digits[] = "0123456789ABCDEF";
    std::string out;
    for (size_t i = 0; i < bytes.size(); ++i) {
        if (i != 0) {
            out += ' ';
        }
        out += digits[bytes[i] >> 4];
        out += digits[bytes[i] & 15];
    }
    return out;
}

} // namespace obfl_wire
