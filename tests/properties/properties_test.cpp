// Properties of every message over seeded random inputs serialised by
// libprotobuf. Each failure message names the message and the seed.
#include <gtest/gtest.h>

#include <algorithm>
#include <random>
#include <string>
#include <vector>

#include "counting_allocator.hpp"
#include "message_table.hpp"
#include "pb_corpus.hpp"

namespace {

using mivo_test::counting_allocator;
using mivo_test::message_ops;

constexpr uint64_t inputs_per_message = 8;
constexpr uint8_t canary = 0xA5;

class Properties : public ::testing::TestWithParam<std::string> {
protected:
    const message_ops &ops() const { return *mivo_test::find_message(GetParam()); }

    template <class Fn>
    void for_each_input(Fn fn)
    {
        for (uint64_t seed = 0; seed < inputs_per_message; ++seed) {
            const std::string wire = mivo_test::random_message_bytes(GetParam(), 9100 + seed);
            SCOPED_TRACE("seed " + std::to_string(9100 + seed));
            fn(reinterpret_cast<const uint8_t *>(wire.data()), wire.size());
        }
    }

    // Decodes cleanly into record; the caller releases with a.
    void decode_clean(mivo_test::record_storage &record, counting_allocator &a, const uint8_t *wire, size_t size)
    {
        ASSERT_EQ(ops().decode(&record, wire, size, &counting_allocator::allocate, &a, MIVO_FLAGS_NONE),
                  MIVO_NO_ERROR);
    }
};

// Every buffer size, short or not, reports the full length and stores
// nothing at or past its end.
TEST_P(Properties, EveryBufferSizeIsBounded)
{
    for_each_input([&](const uint8_t *wire, size_t size) {
        counting_allocator a;
        mivo_test::record_storage record;
        decode_clean(record, a, wire, size);
        const size_t full = ops().encode(&record, nullptr, 0, nullptr, nullptr, MIVO_FLAGS_NONE);
        std::vector<size_t> sizes;
        for (size_t n = 0; n <= std::min<size_t>(full, 200); ++n) {
            sizes.push_back(n);
        }
        std::mt19937_64 rng(full);
        for (int i = 0; i < 16 && full > 200; ++i) {
            sizes.push_back(200 + rng() % (full - 199));
        }
        for (size_t n : sizes) {
            std::vector<uint8_t> buffer(n + 16, canary);
            ASSERT_EQ(ops().encode(&record, buffer.data(), n, nullptr, nullptr, MIVO_FLAGS_NONE), full) << n;
            ASSERT_TRUE(std::all_of(buffer.begin() + static_cast<long>(n), buffer.end(),
                                    [](uint8_t b) { return b == canary; }))
                << "wrote past a buffer of " << n;
        }
        ops().release(&record, &counting_allocator::release, &a, MIVO_FLAGS_NONE);
    });
}

// Failing any one allocation of a decode gives -4 and a record that still
// releases completely, in both modes.
TEST_P(Properties, DecodeReleasesAfterAnyFailedAllocation)
{
    for_each_input([&](const uint8_t *wire, size_t size) {
        for (mivo_flags flags : {MIVO_FLAGS_NONE, MIVO_FLAG_SHARED}) {
            counting_allocator clean;
            mivo_test::record_storage record;
            ASSERT_EQ(ops().decode(&record, wire, size, &counting_allocator::allocate, &clean, flags), MIVO_NO_ERROR);
            ops().release(&record, &counting_allocator::release, &clean, flags);
            for (size_t k = 1; k <= clean.attempts(); ++k) {
                counting_allocator a;
                a.fail_at(k);
                EXPECT_EQ(ops().decode(&record, wire, size, &counting_allocator::allocate, &a, flags),
                          MIVO_ERROR_ALLOC_FAILED)
                    << "allocation " << k;
                ops().release(&record, &counting_allocator::release, &a, flags);
                EXPECT_EQ(a.live(), 0u) << "allocation " << k;
                EXPECT_EQ(a.misuses(), 0u) << "allocation " << k;
            }
        }
    });
}

// Failing any one allocation of a copy gives -4 and a copy that still
// releases completely; without an allocator a copy fails only if it needs
// memory.
TEST_P(Properties, DuplicateReleasesAfterAnyFailedAllocation)
{
    for_each_input([&](const uint8_t *wire, size_t size) {
        counting_allocator source_memory;
        mivo_test::record_storage source, copy;
        decode_clean(source, source_memory, wire, size);
        counting_allocator clean;
        ASSERT_EQ(ops().duplicate(&copy, &source, &counting_allocator::allocate, &clean), MIVO_NO_ERROR);
        ops().release(&copy, &counting_allocator::release, &clean, MIVO_FLAGS_NONE);
        ASSERT_EQ(clean.live(), 0u);
        for (size_t k = 1; k <= clean.attempts(); ++k) {
            counting_allocator a;
            a.fail_at(k);
            EXPECT_EQ(ops().duplicate(&copy, &source, &counting_allocator::allocate, &a), MIVO_ERROR_ALLOC_FAILED)
                << "allocation " << k;
            ops().release(&copy, &counting_allocator::release, &a, MIVO_FLAGS_NONE);
            EXPECT_EQ(a.live() + a.misuses(), 0u) << "allocation " << k;
        }
        const int rc = ops().duplicate(&copy, &source, nullptr, nullptr);
        EXPECT_EQ(rc, clean.attempts() == 0 ? MIVO_NO_ERROR : MIVO_ERROR_ALLOC_FAILED);
        ops().release(&copy, &counting_allocator::release, &source_memory, MIVO_FLAGS_NONE);
        ops().release(&source, &counting_allocator::release, &source_memory, MIVO_FLAGS_NONE);
        EXPECT_EQ(source_memory.live() + source_memory.misuses(), 0u);
    });
}

// Whatever a cut-off input decodes to, the release hands everything back.
TEST_P(Properties, EveryTruncationReleasesCompletely)
{
    for_each_input([&](const uint8_t *wire, size_t size) {
        for (size_t n = 0; n < std::min<size_t>(size, 400); ++n) {
            const std::vector<uint8_t> prefix(wire, wire + n); // exactly n bytes, for ASan
            counting_allocator a;
            mivo_test::record_storage record;
            const int rc = ops().decode(&record, prefix.data(), n, &counting_allocator::allocate, &a, MIVO_FLAGS_NONE);
            EXPECT_TRUE(rc == MIVO_NO_ERROR || rc == MIVO_ERROR_GARBLED) << "prefix " << n << " gave " << rc;
            ops().release(&record, &counting_allocator::release, &a, MIVO_FLAGS_NONE);
            ASSERT_EQ(a.live() + a.misuses(), 0u) << "prefix " << n;
        }
    });
}

INSTANTIATE_TEST_SUITE_P(Catalogue, Properties, ::testing::ValuesIn(mivo_test::catalogue_message_names()),
                         [](const auto &info) { return info.param; });

} // namespace
