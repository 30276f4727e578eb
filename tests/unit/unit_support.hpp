// What the table drivers share: hex text, table rows, a message's entry
// points beside its JSON form, records in zeroed storage.
#pragma once

#include <gtest/gtest.h>

#include <fstream>
#include <map>
#include <sstream>

#include "catalogue_table.hpp"
#include "counting_allocator.hpp"
#include "mivo_obfl_mgr_description.hpp"
#include "record_json.hpp"

namespace unit {

using bytes = std::vector<uint8_t>;
using json = obfl_wire::json;
using mivo_test::counting_allocator;

inline constexpr mivo_alloc_t *alloc_cb = &counting_allocator::allocate;
inline constexpr mivo_free_t *free_cb = &counting_allocator::release;
inline const obfl_wire::json_options hex_bytes{true};

inline bytes hex(std::string_view text) // "08 01 6A"
{
    bytes out;
    EXPECT_TRUE(obfl_wire::parse_hex(text, out)) << text;
    return out;
}
inline std::string to_hex(const bytes &b) { return obfl_wire::to_hex(b); }

// One line of a table: its columns split at '|' and trimmed.
struct row {
    std::string file;
    int line;
    std::vector<std::string> cols;
    std::string col(size_t i) const { return i < cols.size() ? cols[i] : std::string(); }
    // file:line and the first two columns, for a failure's trace.
    std::string where() const { return file + ":" + std::to_string(line) + " " + col(0) + " " + col(1); }
};

// The rows of tests/unit/data/<name>; blank lines and # comments skipped.
inline std::vector<row> read_table(const std::string &name)
{
    std::vector<row> rows;
    std::ifstream in(std::string(MIVO_UNIT_DATA) + "/" + name);
    EXPECT_TRUE(in.good()) << "cannot read " << name;
    std::string text;
    for (int line = 1; std::getline(in, text); ++line) {
        if (text.empty() || text[0] == '#') {
            continue;
        }
        row r{name, line, {}};
        std::istringstream cols(text + " "); // a trailing empty column too
        for (std::string c; std::getline(cols, c, '|');) {
            const auto b = c.find_first_not_of(" \t"), e = c.find_last_not_of(" \t");
            r.cols.push_back(b == std::string::npos ? std::string() : c.substr(b, e - b + 1));
        }
        rows.push_back(r);
    }
    return rows;
}

// A message by name: its C entry points and its JSON converters.
struct message {
    const mivo_catalogue::entry &ops;
    const obfl_wire::message &js;
};
inline message find(const std::string &name)
{
    const auto *ops = mivo_catalogue::find(name);
    const auto *js = obfl_wire::find_message(name);
    EXPECT_TRUE(ops != nullptr && js != nullptr) << "no message " << name;
    return ops != nullptr && js != nullptr ? message{*ops, *js} : find("mgbl_hello");
}

// Calls fn(row, message) for every row of a table, traced by its place.
template <class Fn>
void for_each_row(const std::string &table, size_t at_least, Fn &&fn)
{
    const auto rows = read_table(table);
    EXPECT_GE(rows.size(), at_least);
    for (const auto &r : rows) {
        SCOPED_TRACE(r.where());
        ASSERT_GE(r.cols.size(), 3u);
        fn(r, find(r.col(0)));
    }
}

struct record {
    mivo_catalogue::record_storage storage{};
    void *get() { return storage.bytes; }
};

// `null` in a row's JSON: the member is present with a null pointer (a
// string, or a list without its array), which JSON cannot otherwise say.
template <class R>
void present_null(void *record, const std::string &label)
{
    nuvex::for_each_field<R>([&]<class F>() {
        if constexpr (F::kind::repeated || F::kind::elem == nuvex::element::string) {
            if (label == F::label) {
                F::value(*static_cast<R *>(record)) = nullptr;
                F::mark(*static_cast<R *>(record), true);
            }
        }
    });
}
#define UNIT_PRESENT_NULL(rec, FIELDS) {std::string_view(#rec).substr(5), &present_null<struct rec>},
inline const std::map<std::string_view, void (*)(void *, const std::string &)> present_null_in{
    MIVO_OBFL_MGR_CATALOGUE(UNIT_PRESENT_NULL)};

// A record from a table's JSON (mem owns what it points at), and the JSON
// of a record as the converter prints it (enumeration names, 64-bit values
// as strings), so that a table's JSON compares in that form too.
inline void fill(const message &m, const std::string &text, record &r, obfl_wire::arena &mem)
{
    std::string error;
    const json in = json::parse(text);
    EXPECT_TRUE(m.js.from_json(in, r.get(), mem, hex_bytes, error)) << text << ": " << error;
    for (const auto &[name, value] : in.items()) {
        if (value.is_null()) {
            present_null_in.at(m.ops.name)(r.get(), name);
        }
    }
}
inline json as_json(const message &m, const void *r) { return m.js.to_json(r, hex_bytes); }
inline json canonical(const message &m, const std::string &text)
{
    record r;
    obfl_wire::arena mem;
    fill(m, text, r, mem);
    return as_json(m, r.get());
}

// Measures, then writes into a buffer of exactly that size.
inline bytes encode(const mivo_catalogue::entry &m, const void *r)
{
    bytes out(m.encode(r, nullptr, 0, nullptr, nullptr, MIVO_FLAGS_NONE));
    EXPECT_EQ(m.encode(r, out.data(), out.size(), nullptr, nullptr, MIVO_FLAGS_NONE), out.size());
    return out;
}

// "12 2p 1b 1t": sizes asked of an allocator, in bytes or in so many
// pointers, byte strings or identifier chain elements; "none" for no call.
inline std::vector<size_t> sizes(const std::string &text)
{
    std::vector<size_t> out;
    std::istringstream in(text);
    for (std::string word; in >> word && word != "none";) {
        const char unit = word.back();
        out.push_back(std::stoul(word) * (unit == 'p' ? sizeof(void *) : unit == 'b' ? sizeof(mivo_bytes)
                                          : unit == 't' ? sizeof(mivo_tesk_entity_tsi_st) : 1));
    }
    return out;
}

// An allocator set up by a table's flags column: "fail@N" fails the N-th
// allocation; "noalloc" passes no allocator at all.
inline mivo_alloc_t *allocator_for(const std::string &flags, counting_allocator &heap)
{
    if (const auto at = flags.find("fail@"); at != std::string::npos) {
        heap.fail_at(std::stoul(flags.substr(at + 5)));
    }
    return flags.find("noalloc") != std::string::npos ? nullptr : alloc_cb;
}

// Everything handed out was handed back, each block once, with our token.
inline void expect_no_leak(const counting_allocator &heap)
{
    EXPECT_EQ(heap.live(), 0u) << "leaked";
    EXPECT_EQ(heap.misuses(), 0u);
}

// Columns 3 to 5 of a refused-input or copy row: the result code's name
// ("GARBLED"), the record afterwards in JSON and, when given, the sizes
// asked of the allocator. Then the record is released, leaving nothing live.
inline void expect_outcome(const message &m, const row &row, int rc, record &r, counting_allocator &heap,
                           mivo_flags release_flags)
{
    EXPECT_EQ(obfl_wire::result_name(rc), row.col(3) == "NO_ERROR" ? "MIVO_NO_ERROR" : "MIVO_ERROR_" + row.col(3));
    EXPECT_EQ(as_json(m, r.get()), canonical(m, row.col(4)));
    if (!row.col(5).empty()) {
        EXPECT_EQ(heap.sizes(), sizes(row.col(5)));
    }
    m.ops.release(r.get(), free_cb, &heap, release_flags);
    expect_no_leak(heap);
}

} // namespace unit
