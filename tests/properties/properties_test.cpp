// Properties of every message and of the identifier, over seeded random
// inputs that libprotobuf serialises. The per-input checks are the fuzzer's
// own (decode_invariants); this loop drives them through every failing
// allocation and every truncation, and adds bounded writing at every buffer
// size and fragment capacity, which is too slow for the fuzzer.
#include <gtest/gtest.h>

#include <algorithm>
#include <string>
#include <vector>

#include "counting_allocator.hpp"
#include "decode_invariants.hpp"
#include "catalogue_table.hpp"
#include "random_wire.hpp"

namespace {

using mivo_fuzz::input_case;
using mivo_test::counting_allocator;
using message_ops = mivo_catalogue::entry;

constexpr uint64_t inputs_per_target = 6;
constexpr size_t longest_truncation = 400;
constexpr uint8_t canary = 0xA5;

// One generated input of one target, decoded with the flags under test.
struct subject {
    size_t target;
    const message_ops &ops;
    mivo_flags flags;
    std::vector<uint8_t> wire;

    input_case with(size_t decode_fail_at, size_t copy_fail_at) const
    {
        return {target, flags, decode_fail_at, copy_fail_at};
    }
    // How many allocations a clean decode, and a clean copy of it, ask for.
    std::pair<size_t, size_t> allocations() const
    {
        counting_allocator decode_memory, copy_memory;
        mivo_catalogue::record_storage record, copy;
        EXPECT_EQ(ops.decode(&record, wire.data(), wire.size(), &counting_allocator::allocate, &decode_memory, flags),
                  MIVO_NO_ERROR);
        EXPECT_EQ(ops.duplicate(&copy, &record, &counting_allocator::allocate, &copy_memory), MIVO_NO_ERROR);
        ops.release(&copy, &counting_allocator::release, &copy_memory, MIVO_FLAGS_NONE);
        ops.release(&record, &counting_allocator::release, &decode_memory, flags);
        return {decode_memory.attempts(), copy_memory.attempts()};
    }
};

// `size` usable bytes between two canary zones that must stay untouched.
struct guarded_buffer {
    static constexpr size_t guard = 16;
    std::vector<uint8_t> block;

    explicit guarded_buffer(size_t size) : block(size + 2 * guard, canary) {}
    uint8_t *data() { return block.data() + guard; }
    bool guards_intact() const
    {
        const auto untouched = [](uint8_t b) { return b == canary; };
        return std::all_of(block.begin(), block.begin() + guard, untouched) &&
               std::all_of(block.end() - guard, block.end(), untouched);
    }
};

// Every buffer size from 0 to past the full length, in both encoding modes,
// reports the full length and stores nothing outside the buffer; what it
// does store is the encoding's own byte at that place. Likewise every
// fragment capacity: the count is always the full count, the stored pieces
// are the full list's, and no slot past the capacity changes.
void bounded_writing(const subject &s)
{
    counting_allocator a;
    mivo_catalogue::record_storage record;
    ASSERT_EQ(s.ops.decode(&record, s.wire.data(), s.wire.size(), &counting_allocator::allocate, &a, s.flags),
              MIVO_NO_ERROR);
    for (mivo_flags flags : {MIVO_FLAGS_NONE, MIVO_FLAG_SHARED}) {
        SCOPED_TRACE(flags == MIVO_FLAG_SHARED ? "shared encoding" : "plain encoding");
        unsigned needed = 0;
        const size_t full = s.ops.encode(&record, nullptr, 0, nullptr, &needed, flags);
        std::vector<mivo_bytes> slots(needed), scratch(needed);
        std::vector<uint8_t> reference(full);
        unsigned count = needed;
        ASSERT_EQ(s.ops.encode(&record, reference.data(), full, slots.data(), &count, flags), full);

        // Past the full length too, where records of bounded size are
        // written without checks; nothing beyond the encoding is stored.
        const auto bounded = [&](size_t n, mivo_bytes *frags, unsigned *count_p) {
            guarded_buffer buffer(n);
            ASSERT_EQ(s.ops.encode(&record, buffer.data(), n, frags, count_p, flags), full) << n;
            ASSERT_TRUE(buffer.guards_intact()) << "stored outside a buffer of " << n;
            for (size_t i = 0; i < n; ++i) {
                ASSERT_TRUE(buffer.data()[i] == canary || (i < full && buffer.data()[i] == reference[i]))
                    << "byte " << i << " of a buffer of " << n << " is neither untouched nor the encoding's";
            }
        };
        for (size_t n = 0; n <= full + 64; ++n) {
            count = needed;
            bounded(n, scratch.data(), &count);
            ASSERT_EQ(count, needed) << n;
            if (flags == MIVO_FLAGS_NONE) {
                bounded(n, nullptr, nullptr); // no fragment list: the unchecked stores where a member fits
            }
        }
        for (unsigned capacity = 0; capacity <= needed; ++capacity) {
            const mivo_bytes sentinel{reinterpret_cast<const uint8_t *>(&sentinel), 0xDEAD};
            std::vector<mivo_bytes> pieces(needed + 1, sentinel);
            std::vector<uint8_t> out(full);
            count = capacity;
            ASSERT_EQ(s.ops.encode(&record, out.data(), full, pieces.data(), &count, flags), full);
            ASSERT_EQ(count, needed) << "capacity " << capacity;
            ASSERT_EQ(out, reference) << "capacity " << capacity;
            for (unsigned i = 0; i <= needed; ++i) {
                const mivo_bytes &p = pieces[i];
                if (i >= capacity) {
                    ASSERT_TRUE(p.data == sentinel.data && p.size == sentinel.size)
                        << "slot " << i << " written past a capacity of " << capacity;
                } else { // pieces of the inline part point into their own buffer
                    ASSERT_EQ(std::vector<uint8_t>(p.data, p.data + p.size),
                              std::vector<uint8_t>(slots[i].data, slots[i].data + slots[i].size))
                        << "piece " << i << ", capacity " << capacity;
                }
            }
        }
    }
    s.ops.release(&record, &counting_allocator::release, &a, s.flags);
    EXPECT_EQ(a.live() + a.misuses(), 0u);
}

// Failing each allocation of the decode in turn, and of a copy of the
// decoded record, and offering no allocator at all.
void every_failing_allocation(const subject &s)
{
    const auto [decode_attempts, copy_attempts] = s.allocations();
    for (size_t k = 1; k <= decode_attempts; ++k) {
        ASSERT_EQ(mivo_fuzz::violation(s.with(k, 0), s.wire), "") << "decode allocation " << k;
    }
    for (size_t k = 1; k <= copy_attempts; ++k) {
        ASSERT_EQ(mivo_fuzz::violation(s.with(0, k), s.wire), "") << "copy allocation " << k;
    }
    EXPECT_EQ(mivo_fuzz::violation(s.with(mivo_fuzz::no_allocator, mivo_fuzz::no_allocator), s.wire), "");
}

// Every prefix of a valid input either decodes or is garbled, and holds the
// invariants whichever it is.
void every_truncation(const subject &s)
{
    for (size_t n = 0; n < std::min(s.wire.size(), longest_truncation); ++n) {
        const std::vector<uint8_t> prefix(s.wire.begin(), s.wire.begin() + std::ptrdiff_t(n));
        counting_allocator a;
        mivo_catalogue::record_storage record;
        const int rc = s.ops.decode(&record, prefix.data(), n, &counting_allocator::allocate, &a, s.flags);
        EXPECT_TRUE(rc == MIVO_NO_ERROR || rc == MIVO_ERROR_GARBLED) << "prefix " << n << " gave " << rc;
        s.ops.release(&record, &counting_allocator::release, &a, s.flags);
        ASSERT_EQ(mivo_fuzz::violation(s.with(0, 0), prefix), "") << "prefix " << n;
    }
}

const struct {
    const char *name;
    void (*check)(const subject &);
} properties[] = {
    {"bounded writing", bounded_writing},
    {"every failing allocation", every_failing_allocation},
    {"every truncation", every_truncation},
};

class Properties : public ::testing::TestWithParam<size_t> {};

TEST_P(Properties, HoldForRandomInputs)
{
    const message_ops &ops = mivo_catalogue::entries()[GetParam()];
    for (uint64_t seed = 0; seed < inputs_per_target; ++seed) {
        const std::string wire = mivo_test::random_wire(ops.name, 9100 + seed);
        for (mivo_flags flags : {MIVO_FLAGS_NONE, MIVO_FLAG_SHARED}) {
            const subject s{GetParam(), ops, flags, std::vector<uint8_t>(wire.begin(), wire.end())};
            for (const auto &property : properties) {
                SCOPED_TRACE(std::string(property.name) + ", seed " + std::to_string(9100 + seed) +
                             (flags ? ", shared" : ", plain"));
                property.check(s);
            }
        }
    }
}

INSTANTIATE_TEST_SUITE_P(Catalogue, Properties, ::testing::Range<size_t>(0, mivo_catalogue::entry_count),
                         [](const auto &info) { return std::string(mivo_catalogue::entries()[info.param].name); });

} // namespace
