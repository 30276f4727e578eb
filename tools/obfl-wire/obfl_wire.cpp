// obfl-wire: inspect and build OBFL manager wire messages from the command line.
//
//   obfl-wire list                          every message and its member count
//   obfl-wire describe MESSAGE              members with field numbers, kinds and keys
//   obfl-wire decode MESSAGE [HEX...]       decode hex (arguments or stdin) and print the record
//   obfl-wire encode MESSAGE [NAME=VALUE...] build a record and print its encoding in hex
//
// The tool walks the same record descriptions the library is built from, and
// goes through the library's exported functions for the coding itself.
#include <cinttypes>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <deque>
#include <iostream>
#include <iterator>
#include <string>
#include <string_view>
#include <type_traits>
#include <vector>

#include "mivo_obfl_mgr_description.hpp"
#include "mivo_tesk_eid_description.hpp"

namespace {

void *heap_alloc(size_t size, void *) { return std::malloc(size == 0 ? 1 : size); }
void heap_free(void *p, void *) { std::free(p); }

const char *result_name(int rc)
{
    switch (rc) {
    case MIVO_NO_ERROR: return "MIVO_NO_ERROR";
    case MIVO_ERROR_GARBLED: return "MIVO_ERROR_GARBLED";
    case MIVO_ERROR_UNSUPPORTED: return "MIVO_ERROR_UNSUPPORTED";
    case MIVO_ERROR_WRONG_TYPE: return "MIVO_ERROR_WRONG_TYPE";
    case MIVO_ERROR_ALLOC_FAILED: return "MIVO_ERROR_ALLOC_FAILED";
    default: return "error from the identifier codec";
    }
}

std::string hex(const uint8_t *data, size_t size)
{
    static const char digits[] = "0123456789ABCDEF";
    std::string out;
    for (size_t i = 0; i < size; ++i) {
        if (i != 0) {
            out += ' ';
        }
        out += digits[data[i] >> 4];
        out += digits[data[i] & 15];
    }
    return out;
}

bool parse_hex(std::string_view text, std::vector<uint8_t> &out)
{
    int high = -1;
    for (char c : text) {
        int v;
        if (c >= '0' && c <= '9') {
            v = c - '0';
        } else if (c >= 'a' && c <= 'f') {
            v = c - 'a' + 10;
        } else if (c >= 'A' && c <= 'F') {
            v = c - 'A' + 10;
        } else if (c == ' ' || c == '\n' || c == '\t' || c == ':' || c == ',') {
            continue;
        } else {
            return false;
        }
        if (high < 0) {
            high = v;
        } else {
            out.push_back(static_cast<uint8_t>(high << 4 | v));
            high = -1;
        }
    }
    return high < 0;
}

std::string quoted(const char *s)
{
    std::string out = "\"";
    for (; *s != '\0'; ++s) {
        const auto c = static_cast<unsigned char>(*s);
        if (c == '"' || c == '\\') {
            out += '\\';
            out += static_cast<char>(c);
        } else if (c < 0x20 || c == 0x7F) {
            char buf[8];
            std::snprintf(buf, sizeof buf, "\\x%02X", c);
            out += buf;
        } else {
            out += static_cast<char>(c);
        }
    }
    return out + "\"";
}

// ---- printing a record ----

// Absent members are shown only on request: most records are sparse.
bool show_absent = false;

template <class R>
void print_record(const R &r, int depth);

template <class F, class V>
std::string element_text(const V &v, int depth)
{
    constexpr auto e = F::kind::elem;
    if constexpr (e == nuvex::element::string) {
        return v == nullptr ? "(null)" : quoted(v);
    } else if constexpr (e == nuvex::element::bytes) {
        // Appended piece by piece: GCC 12 at -O3 sees a false overlap in
        // "literal" + std::string&& (-Wrestrict).
        std::string out = "[";
        out += std::to_string(v.size);
        out += " bytes] ";
        out += v.data != nullptr ? hex(v.data, v.size) : "(null)";
        return out;
    } else if constexpr (e == nuvex::element::eid || e == nuvex::element::message) {
        std::cout << "{\n";
        print_record(v, depth + 1);
        return std::string(static_cast<size_t>(depth) * 2, ' ') + "}";
    } else if constexpr (e == nuvex::element::boolean) {
        return v == 0 ? "false" : v == 1 ? "true" : "true (" + std::to_string(v) + ")";
    } else if constexpr (std::is_enum_v<V>) {
        return std::to_string(static_cast<uint32_t>(v));
    } else {
        return std::to_string(v);
    }
}

template <class R>
void print_record(const R &r, int depth)
{
    nuvex::for_each_field<R>([&]<class F>() {
        const auto &value = F::value(r);
        if (!F::present(r) && !show_absent) {
            return;
        }
        std::cout << std::string(static_cast<size_t>(depth) * 2, ' ') << F::number << ' ' << F::label << ' '
                  << (F::present(r) ? "" : "(absent) ");
        if constexpr (F::kind::repeated) {
            const unsigned count = F::count(r);
            std::cout << '[' << count << "]";
            if (value == nullptr) {
                std::cout << " (null)\n";
                return;
            }
            std::cout << '\n';
            for (unsigned i = 0; i < count; ++i) {
                std::cout << std::string(static_cast<size_t>(depth + 1) * 2, ' ') << '[' << i << "] ";
                std::cout << element_text<F>(value[i], depth + 1) << '\n';
            }
        } else {
            std::cout << element_text<F>(value, depth) << '\n';
        }
    });
}

// ---- building a record from NAME=VALUE assignments ----

// Keeps the arrays that assignments build alive until the record is encoded.
struct arena {
    std::deque<std::vector<uint8_t>> blobs;
    std::deque<std::vector<std::string_view>> lists;
};

template <class V>
bool parse_number(std::string_view text, V &out)
{
    const std::string s(text);
    char *end = nullptr;
    errno = 0;
    if constexpr (std::is_same_v<V, mivo_bool_t>) {
        if (s == "true" || s == "false") {
            out = s == "true";
            return true;
        }
    }
    if constexpr (std::is_signed_v<V>) {
        const long long v = std::strtoll(s.c_str(), &end, 0);
        out = static_cast<V>(v);
    } else {
        const unsigned long long v = std::strtoull(s.c_str(), &end, 0);
        out = static_cast<V>(v);
    }
    return errno == 0 && end != s.c_str() && *end == '\0';
}

std::vector<std::string_view> split(std::string_view text)
{
    std::vector<std::string_view> parts;
    size_t start = 0;
    for (;;) {
        const size_t comma = text.find(',', start);
        parts.push_back(text.substr(start, comma == std::string_view::npos ? comma : comma - start));
        if (comma == std::string_view::npos) {
            return parts;
        }
        start = comma + 1;
    }
}

template <class F, class V>
bool parse_element(std::string_view text, V &out, arena &mem)
{
    constexpr auto e = F::kind::elem;
    if constexpr (e == nuvex::element::string) {
        // Assignment values come from argv and stay alive; still copy so
        // that list elements are NUL-terminated on their own.
        auto &blob = mem.blobs.emplace_back(text.begin(), text.end());
        blob.push_back(0);
        out = reinterpret_cast<const char *>(blob.data());
        return true;
    } else if constexpr (e == nuvex::element::bytes) {
        auto &blob = mem.blobs.emplace_back();
        if (!parse_hex(text, blob)) {
            return false;
        }
        out.data = blob.data();
        out.size = blob.size();
        return true;
    } else if constexpr (std::is_enum_v<V>) {
        uint32_t v;
        if (!parse_number(text, v)) {
            return false;
        }
        out = static_cast<V>(v);
        return true;
    } else {
        return parse_number(text, out);
    }
}

// Assigns NAME=VALUE (NAME may be a path into an identifier: tgt_eid.rack_num).
template <class R>
bool assign(R &r, std::string_view name, std::string_view text, arena &mem)
{
    const size_t dot = name.find('.');
    const std::string_view head = name.substr(0, dot);
    bool found = false;
    bool ok = false;
    nuvex::for_each_field<R>([&]<class F>() {
        if (found || head != F::label) {
            return;
        }
        found = true;
        auto &value = F::value(r);
        constexpr auto e = F::kind::elem;
        if constexpr (e == nuvex::element::eid || e == nuvex::element::message) {
            if constexpr (!F::kind::repeated) {
                if (dot != std::string_view::npos) {
                    ok = assign(value, name.substr(dot + 1), text, mem);
                    F::mark(r, ok || F::present(r));
                } else {
                    F::mark(r, text == "present" || text == "1" || text == "true");
                    ok = true;
                }
            }
        } else if constexpr (F::kind::repeated) {
            using E = std::remove_const_t<std::remove_pointer_t<std::remove_reference_t<decltype(value)>>>;
            const auto parts = text.empty() ? std::vector<std::string_view>{} : split(text);
            auto &blob = mem.blobs.emplace_back(sizeof(E) * parts.size() + 1);
            auto *array = reinterpret_cast<E *>(blob.data());
            ok = true;
            for (size_t i = 0; i < parts.size(); ++i) {
                new (&array[i]) E{};
                ok = ok && parse_element<F>(parts[i], array[i], mem);
            }
            value = array;
            F::count(r) = static_cast<unsigned>(parts.size());
            F::mark(r, true);
        } else {
            ok = parse_element<F>(text, value, mem);
            F::mark(r, true);
        }
    });
    return found && ok;
}

// ---- one entry per message ----

struct message_tool {
    const char *name;
    void (*describe)();
    int (*decode)(const std::vector<uint8_t> &bytes, mivo_flags flags);
    int (*encode)(const std::vector<std::string_view> &assignments, mivo_flags flags);
    unsigned members;
};

template <class R>
void describe_record()
{
    nuvex::for_each_field<R>([]<class F>() {
        char key[16];
        if (F::number < 16) {
            std::snprintf(key, sizeof key, "%02X", F::key);
        } else {
            std::snprintf(key, sizeof key, "%02X 01", F::key);
        }
        std::printf("%3u  %-30s %-12s key %s\n", F::number, F::label, F::kind_name, key);
    });
}

template <class R, auto Decode, auto Free>
int decode_record(const std::vector<uint8_t> &bytes, mivo_flags flags)
{
    R record;
    const int rc = Decode(&record, bytes.data(), bytes.size(), heap_alloc, nullptr, flags);
    print_record(record, 1);
    std::cout << "result " << rc << " (" << result_name(rc) << ")\n";
    Free(&record, heap_free, nullptr, flags);
    return rc == MIVO_NO_ERROR ? 0 : 1;
}

template <class R, auto Encode>
int encode_record(const std::vector<std::string_view> &assignments, mivo_flags flags)
{
    R record;
    nuvex::description<R>::init(&record);
    arena mem;
    for (std::string_view a : assignments) {
        const size_t eq = a.find('=');
        if (eq == std::string_view::npos || !assign(record, a.substr(0, eq), a.substr(eq + 1), mem)) {
            std::cerr << "obfl-wire: cannot assign '" << a << "' (see 'describe')\n";
            return 2;
        }
    }
    const size_t size = Encode(&record, nullptr, 0, nullptr, nullptr, flags);
    std::vector<uint8_t> out(size);
    Encode(&record, out.data(), out.size(), nullptr, nullptr, flags);
    std::cout << hex(out.data(), out.size()) << '\n';
    return 0;
}

// Each message listed under its name without the "mivo_" prefix.
#define MIVO_TOOL_ENTRY(rec, FIELDS)                                                                          \
    message_tool{&#rec[5], &describe_record<struct rec>, &decode_record<struct rec, rec##_decode_ext, rec##_free_ext>, \
                 &encode_record<struct rec, rec##_encode_ext>, nuvex::description<struct rec>::fields::size},

const message_tool tools[] = {MIVO_OBFL_MGR_CATALOGUE(MIVO_TOOL_ENTRY)};

const message_tool *find(std::string_view name)
{
    if (name.starts_with("mivo_")) {
        name.remove_prefix(5);
    }
    for (const auto &t : tools) {
        if (name == t.name) {
            return &t;
        }
    }
    return nullptr;
}

int usage()
{
    std::cerr << "usage: obfl-wire list\n"
                 "       obfl-wire describe MESSAGE\n"
                 "       obfl-wire decode [--shared] [--all] MESSAGE [HEX...]   (hex from stdin when none given)\n"
                 "       obfl-wire encode MESSAGE [NAME=VALUE...]\n"
                 "values: numbers (0x.. allowed), true/false, text for strings, hex for byte strings,\n"
                 "        comma-separated lists for repeated members, tgt_eid.rack_num=3 for identifiers\n";
    return 2;
}

} // namespace

int main(int argc, char **argv)
{
    std::vector<std::string_view> args(argv + 1, argv + argc);
    mivo_flags flags = MIVO_FLAGS_NONE;
    std::erase_if(args, [&](std::string_view a) {
        if (a == "--shared") {
            flags = MIVO_FLAG_SHARED;
            return true;
        }
        if (a == "--all") {
            show_absent = true;
            return true;
        }
        return false;
    });
    if (args.empty()) {
        return usage();
    }
    if (args[0] == "list") {
        for (const auto &t : tools) {
            std::printf("%-36s %2u members\n", t.name, t.members);
        }
        return 0;
    }
    if (args.size() < 2) {
        return usage();
    }
    const message_tool *tool = find(args[1]);
    if (tool == nullptr) {
        std::cerr << "obfl-wire: no message '" << args[1] << "' (see 'list')\n";
        return 2;
    }
    const std::vector<std::string_view> rest(args.begin() + 2, args.end());
    if (args[0] == "describe") {
        tool->describe();
        return 0;
    }
    if (args[0] == "encode") {
        return tool->encode(rest, flags);
    }
    if (args[0] == "decode") {
        std::vector<uint8_t> bytes;
        std::string text;
        if (rest.empty()) {
            text.assign(std::istreambuf_iterator<char>(std::cin), std::istreambuf_iterator<char>());
        } else {
            for (std::string_view a : rest) {
                text.append(a).push_back(' ');
            }
        }
        if (!parse_hex(text, bytes)) {
            std::cerr << "obfl-wire: input is not hex\n";
            return 2;
        }
        return tool->decode(bytes, flags);
    }
    return usage();
}
