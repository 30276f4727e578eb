// The entry table: the catalogue table's codec entry points for each message,
// paired with the JSON conversions instantiated for its record.
#include <algorithm>
#include <array>
#include <cstdio>
#include <cstdlib>

#include "record_json.hpp"
#include "record_reader.hpp"
#include "record_writer.hpp"
#include "schema.hpp"
#include "unknown.hpp"

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
void write_entry(json_out &out, const void *record, const json_options &o)
{
    write_record(out, *static_cast<const R *>(record), o);
}

template <class R>
void count_members(const void *record, unsigned *filled, unsigned *named)
{
    const R &r = *static_cast<const R *>(record);
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

template <class R>
std::string describe_entry()
{
    std::string out;
    nuvex::for_each_field<R>([&]<class F>() {
        uint8_t key[5];
        const unsigned n = nuvex::key_bytes(nuvex::field_key(F::number, F::kind::elem), key);
        char line[128];
        int at = std::snprintf(line, sizeof line, "%3u  %-30s %-12s key", F::number, F::label, F::kind_name);
        for (unsigned i = 0; i < n; ++i) {
            at += std::snprintf(line + at, sizeof line - static_cast<size_t>(at), " %02X", key[i]);
        }
        out += line;
        if constexpr (std::is_enum_v<element_t<R, F>>) {
            out += at < 60 ? std::string(static_cast<size_t>(60 - at), ' ') : " ";
            out += enum_info<element_t<R, F>>::name;
        }
        out += '\n';
    });
    // Then each enumeration the members take, with its constants.
    std::vector<std::string_view> listed;
    for (const field_schema &f : schema_of<R>().fields) {
        if (f.enumeration == nullptr || std::find(listed.begin(), listed.end(), f.enumeration) != listed.end()) {
            continue;
        }
        listed.push_back(f.enumeration);
        out += std::string("\n") + f.enumeration + '\n';
        for (const constant &c : f.constants) {
            char line[128];
            std::snprintf(line, sizeof line, "%5u  %s\n", c.value, c.name);
            out += line;
        }
    }
    return out;
}

} // namespace

// What the entry table knows of a record type beyond its codec entry points.
struct record_functions {
    bool (*from_json)(const json &in, void *record, arena &mem, const json_options &o, std::string &error);
    void (*write)(json_out &out, const void *record, const json_options &o);
    void (*count)(const void *record, unsigned *filled, unsigned *named);
    std::string (*describe)();
    const record_schema &(*schema)();
};

namespace {

#define OBFL_WIRE_ENTRY(rec, FIELDS)                                                                    \
    record_functions{&from_json_entry<struct rec>, &write_entry<struct rec>, &count_members<struct rec>, \
                     &describe_entry<struct rec>, &schema_of<struct rec>},

// In catalogue order, like the catalogue table's messages, which it is paired with.
const record_functions per_record[] = {MIVO_OBFL_MGR_CATALOGUE(OBFL_WIRE_ENTRY)};
static_assert(std::size(per_record) == mivo_catalogue::message_count);

} // namespace

std::span<const message> messages()
{
    static const auto table = [] {
        std::array<message, mivo_catalogue::message_count> t{};
        for (size_t i = 0; i < t.size(); ++i) {
            t[i] = message{&mivo_catalogue::messages()[i], &per_record[i]};
        }
        return t;
    }();
    return table;
}

const message *find_message(std::string_view name)
{
    if (name.starts_with("mivo_")) {
        name.remove_prefix(5);
    }
    for (const message &m : messages()) {
        if (name == m.name()) {
            return &m;
        }
    }
    return nullptr;
}

bool message::encode(const json &in, const json_options &o, std::vector<uint8_t> &out, std::string &error) const
{
    mivo_catalogue::record_storage r;
    arena mem;
    if (!fns->from_json(in, &r, mem, o, error)) {
        return false;
    }
    std::vector<uint8_t> bytes(codec->encode(&r, nullptr, 0, nullptr, nullptr, MIVO_FLAGS_NONE));
    codec->encode(&r, bytes.data(), bytes.size(), nullptr, nullptr, MIVO_FLAGS_NONE);
    if (has_unknown(in) && !write_unknown(bytes, fns->schema(), in, o, error)) {
        return false;
    }
    out = std::move(bytes);
    return true;
}

int message::decode(std::span<const uint8_t> bytes, bool shared, const json_options &o, std::string &text,
                    unsigned *filled, unsigned *named) const
{
    static constexpr uint8_t none[1] = {0};
    const mivo_flags flags = shared ? MIVO_FLAG_SHARED : MIVO_FLAGS_NONE;
    mivo_catalogue::record_storage r;
    const int rc = codec->decode(&r, bytes.empty() ? none : bytes.data(), bytes.size(), heap_alloc, nullptr, flags);
    if (rc == MIVO_NO_ERROR) {
        json_out out(text, o.pretty);
        fns->write(out, &r, o);
        unsigned f = 0, n = 0;
        fns->count(&r, &f, &n);
        if (filled != nullptr) {
            *filled = f;
        }
        if (named != nullptr) {
            *named = n;
        }
    }
    codec->release(&r, heap_free, nullptr, flags);
    return rc;
}

bool message::from_json(const json &in, void *record, arena &mem, const json_options &o, std::string &error) const
{
    return fns->from_json(in, record, mem, o, error);
}

json message::to_json(const void *record, const json_options &o) const
{
    std::string text;
    json_out out(text, false);
    fns->write(out, record, o);
    return json::parse(text);
}

std::string message::describe() const { return fns->describe(); }
const record_schema &message::schema() const { return fns->schema(); }

} // namespace obfl_wire
