// Properties of every message and of the identifier, over seeded random
// inputs that libprotobuf serialises. The per-input checks are the fuzzer's
// own (decode_invariants); this loop drives them through every failing
// allocation and every truncation, and checks bounded writing at every
// buffer size and fragment capacity, which is too slow for the fuzzer.
#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "counting_allocator.hpp"
#include "decode_invariants.hpp"
#include "random_wire.hpp"

namespace {

using mivo_fuzz::input_case;
using mivo_fuzz::violation;
using mivo_test::counting_allocator;
using mivo_test::property_inputs, mivo_test::property_seed;

constexpr size_t longest_truncation = 400;

class Properties : public ::testing::TestWithParam<size_t> {};

TEST_P(Properties, HoldForRandomInputs)
{
    const size_t target = GetParam();
    const mivo_catalogue::entry &m = mivo_catalogue::entries()[target];
    for (uint64_t seed = property_seed; seed < property_seed + property_inputs; ++seed) {
        const std::string text = mivo_test::random_wire(m.name, seed);
        const std::vector<uint8_t> wire(text.begin(), text.end());
        for (mivo_flags flags : {MIVO_FLAGS_NONE, MIVO_FLAG_SHARED}) {
            SCOPED_TRACE(std::string(m.name) + ", seed " + std::to_string(seed) + (flags ? ", shared" : ", plain"));
            // A clean decode: how many allocations it and a copy of it ask for.
            counting_allocator decoded, copied;
            mivo_catalogue::record_storage record, copy;
            ASSERT_EQ(m.decode(&record, wire.data(), wire.size(), &counting_allocator::allocate, &decoded, flags),
                      MIVO_NO_ERROR);
            ASSERT_EQ(m.duplicate(&copy, &record, &counting_allocator::allocate, &copied), MIVO_NO_ERROR);
            ASSERT_EQ(mivo_fuzz::writing_violation(m, &record), "");
            m.release(&copy, &counting_allocator::release, &copied, MIVO_FLAGS_NONE);
            m.release(&record, &counting_allocator::release, &decoded, flags);

            // Each allocation of the decode failing in turn, then of the
            // copy, then no allocator at all.
            for (size_t k = 1; k <= decoded.attempts(); ++k) {
                ASSERT_EQ(violation(input_case{target, flags, k, 0}, wire), "") << "decode allocation " << k;
            }
            for (size_t k = 1; k <= copied.attempts(); ++k) {
                ASSERT_EQ(violation(input_case{target, flags, 0, k}, wire), "") << "copy allocation " << k;
            }
            const size_t none = mivo_fuzz::no_allocator;
            EXPECT_EQ(violation(input_case{target, flags, none, none}, wire), "");

            // Every prefix either decodes or is garbled, and holds the invariants.
            for (size_t n = 0; n < std::min(wire.size(), longest_truncation); ++n) {
                const std::vector<uint8_t> prefix(wire.begin(), wire.begin() + std::ptrdiff_t(n));
                counting_allocator a;
                const int rc = m.decode(&record, prefix.data(), n, &counting_allocator::allocate, &a, flags);
                EXPECT_TRUE(rc == MIVO_NO_ERROR || rc == MIVO_ERROR_GARBLED) << "prefix " << n << " gave " << rc;
                m.release(&record, &counting_allocator::release, &a, flags);
                ASSERT_EQ(violation(input_case{target, flags, 0, 0}, prefix), "") << "prefix " << n;
            }
        }
    }
}

INSTANTIATE_TEST_SUITE_P(Catalogue, Properties, ::testing::Range<size_t>(0, mivo_catalogue::entry_count),
                         [](const auto &info) { return std::string(mivo_catalogue::entries()[info.param].name); });

} // namespace
