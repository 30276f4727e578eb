// Small helpers shared by the unit tests: hex text <-> bytes, measuring
// encodes, type-erased records, and a release callback that logs its calls.
#pragma once

#include <gtest/gtest.h>

#include <cstdint>
#include <cstdio>
#include <cstring>
#include <functional>
#include <sstream>
#include <string>
#include <string_view>
#include <vector>

#include "counting_allocator.hpp"
#include "message_table.hpp"
#include "mivo_obfl_mgr_def.h"
#include "mivo_obfl_mgr_init.h"

namespace unit {

using bytes = std::vector<uint8_t>;
using mivo_test::counting_allocator;

inline constexpr mivo_alloc_t *alloc_cb = &counting_allocator::allocate;
inline constexpr mivo_free_t *free_cb = &counting_allocator::release;

// "08 01 6A" -> {0x08, 0x01, 0x6A}, and back.
inline bytes hex(std::string_view text)
{
    bytes out;
    std::istringstream in{std::string(text)};
    for (std::string byte; in >> byte;) {
        out.push_back(static_cast<uint8_t>(std::stoul(byte, nullptr, 16)));
    }
    return out;
}

inline std::string to_hex(const uint8_t *p, size_t n)
{
    std::string s;
    char byte[12];
    for (size_t i = 0; i < n; ++i) {
        std::snprintf(byte, sizeof byte, i ? " %02X" : "%02X", p[i]);
        s += byte;
    }
    return s;
}
inline std::string to_hex(const bytes &b) { return to_hex(b.data(), b.size()); }

template <class R>
using encode_fn = size_t (*)(const R *, uint8_t *, size_t, mivo_bytes *, unsigned int *, mivo_flags);

// Measure, then write into a buffer of exactly that size.
template <class R>
bytes encode(encode_fn<R> fn, const R &record)
{
    const size_t n = fn(&record, nullptr, 0, nullptr, nullptr, MIVO_FLAGS_NONE);
    bytes out(n);
    EXPECT_EQ(fn(&record, out.data(), out.size(), nullptr, nullptr, MIVO_FLAGS_NONE), n);
    return out;
}

inline bytes encode(const mivo_test::message_ops &ops, const void *record)
{
    const size_t n = ops.encode(record, nullptr, 0, nullptr, nullptr, MIVO_FLAGS_NONE);
    bytes out(n);
    EXPECT_EQ(ops.encode(record, out.data(), out.size(), nullptr, nullptr, MIVO_FLAGS_NONE), n);
    return out;
}

inline const mivo_test::message_ops &ops_of(std::string_view name)
{
    const auto *ops = mivo_test::find_message(name);
    if (ops == nullptr) {
        ADD_FAILURE() << "no message " << name;
        return mivo_test::all_messages().front();
    }
    return *ops;
}

// Zeroed storage, so that two records built the same way compare equal
// byte for byte (padding and unused flag bits included).
struct record {
    mivo_test::record_storage storage{};
    void *get() { return storage.bytes; }
    const void *get() const { return storage.bytes; }
};

// Release callback that logs each pointer before handing it to the
// counting allocator, for tests about the order and number of releases.
inline std::vector<const void *> &freed()
{
    static thread_local std::vector<const void *> log;
    return log;
}
inline void logging_free(void *pointer, void *token)
{
    freed().push_back(pointer);
    counting_allocator::release(pointer, token);
}

// Everything handed out was handed back, each block once, with our token.
inline void expect_no_leak(const counting_allocator &heap)
{
    EXPECT_EQ(heap.live(), 0u) << "leaked";
    EXPECT_EQ(heap.misuses(), 0u);
}

inline std::string_view text(mivo_string_t s) { return s == nullptr ? std::string_view("<null>") : s; }

} // namespace unit
