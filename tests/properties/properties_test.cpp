// Properties of every message over seeded random inputs serialised by
// libprotobuf. Each failure message names the message and the seed.
#include <gtest/gtest.h>

#include <algorithm>
#include <memory>
#include <string>
#include <vector>

#include "counting_allocator.hpp"
#include "message_table.hpp"
#include "pb_corpus.hpp"

// GCC announces AddressSanitizer with a macro, clang with a feature test.
#if defined(__SANITIZE_ADDRESS__)
#define MIVO_HAVE_ASAN 1
#elif defined(__has_feature)
#if __has_feature(address_sanitizer)
#define MIVO_HAVE_ASAN 1
#endif
#endif
#if defined(MIVO_HAVE_ASAN)
#include <sanitizer/asan_interface.h>
#define MIVO_POISON(p, n) ASAN_POISON_MEMORY_REGION(p, n)
#define MIVO_UNPOISON(p, n) ASAN_UNPOISON_MEMORY_REGION(p, n)
#else
#define MIVO_POISON(p, n) ((void)(p), (void)(n))
#define MIVO_UNPOISON(p, n) ((void)(p), (void)(n))
#endif

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

// A heap buffer of exactly `size` usable bytes between two canary zones.
// Under AddressSanitizer the zones are poisoned as well, so a stray store is
// reported where it happens; elsewhere the canaries catch it afterwards.
class guarded_buffer {
public:
    static constexpr size_t guard = 16;

    explicit guarded_buffer(size_t size) : size_(size), block_(new uint8_t[size + 2 * guard])
    {
        std::fill_n(block_.get(), size + 2 * guard, canary);
        MIVO_POISON(block_.get(), guard);
        MIVO_POISON(data() + size, guard);
    }
    ~guarded_buffer() { MIVO_UNPOISON(block_.get(), size_ + 2 * guard); }
    guarded_buffer(const guarded_buffer &) = delete;
    guarded_buffer &operator=(const guarded_buffer &) = delete;

    uint8_t *data() { return block_.get() + guard; }

    bool guards_intact()
    {
        MIVO_UNPOISON(block_.get(), size_ + 2 * guard);
        const auto intact = [](const uint8_t *p) {
            return std::all_of(p, p + guard, [](uint8_t b) { return b == canary; });
        };
        return intact(block_.get()) && intact(data() + size_);
    }

private:
    size_t size_;
    std::unique_ptr<uint8_t[]> block_;
};

// Every buffer size from 0 to the full length, in both modes, reports the
// full length and stores nothing outside the buffer; what it does store is
// the encoding's own byte at that place. Likewise every fragment capacity:
// the count is always the full count and no slot past the capacity changes.
TEST_P(Properties, EveryBufferSizeAndFragmentCapacityIsBounded)
{
    for_each_input([&](const uint8_t *wire, size_t size) {
        counting_allocator a;
        mivo_test::record_storage record;
        decode_clean(record, a, wire, size);
        for (mivo_flags flags : {MIVO_FLAGS_NONE, MIVO_FLAG_SHARED}) {
            SCOPED_TRACE(flags == MIVO_FLAG_SHARED ? "shared" : "plain");
            // The caller that shares passes a counter; give it every slot.
            unsigned needed = 0;
            const size_t full = ops().encode(&record, nullptr, 0, nullptr, &needed, flags);
            std::vector<mivo_bytes> slots(needed);
            std::vector<uint8_t> reference(full);
            unsigned count = needed;
            ASSERT_EQ(ops().encode(&record, reference.data(), full, slots.data(), &count, flags), full);

            std::vector<mivo_bytes> scratch(needed);
            for (size_t n = 0; n <= full; ++n) {
                guarded_buffer buffer(n);
                count = needed;
                ASSERT_EQ(ops().encode(&record, buffer.data(), n, scratch.data(), &count, flags), full) << n;
                ASSERT_EQ(count, needed) << n;
                ASSERT_TRUE(buffer.guards_intact()) << "stored outside a buffer of " << n;
                for (size_t i = 0; i < n; ++i) {
                    ASSERT_TRUE(buffer.data()[i] == canary || buffer.data()[i] == reference[i])
                        << "byte " << i << " of a buffer of " << n << " is neither untouched nor the encoding's";
                }
            }

            for (unsigned capacity = 0; capacity <= needed; ++capacity) {
                const mivo_bytes sentinel{reinterpret_cast<const uint8_t *>(&sentinel), 0xDEAD};
                std::vector<mivo_bytes> pieces(needed + 1, sentinel);
                std::vector<uint8_t> out(full);
                count = capacity;
                ASSERT_EQ(ops().encode(&record, out.data(), full, pieces.data(), &count, flags), full);
                ASSERT_EQ(count, needed) << "capacity " << capacity;
                ASSERT_EQ(out, reference) << "capacity " << capacity;
                for (unsigned i = 0; i <= needed; ++i) {
                    const mivo_bytes &p = pieces[i];
                    // Stored pieces point into `out` where the reference
                    // pointed into its own buffer; compare their contents.
                    if (i < capacity) {
                        ASSERT_EQ(std::vector<uint8_t>(p.data, p.data + p.size),
                                  std::vector<uint8_t>(slots[i].data, slots[i].data + slots[i].size))
                            << "piece " << i << ", capacity " << capacity;
                    } else {
                        ASSERT_TRUE(p.data == sentinel.data && p.size == sentinel.size)
                            << "slot " << i << " written past a capacity of " << capacity;
                    }
                }
            }
        }
        ops().release(&record, &counting_allocator::release, &a, MIVO_FLAGS_NONE);
        EXPECT_EQ(a.live() + a.misuses(), 0u);
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
            ASSERT_EQ(clean.live() + clean.misuses(), 0u);
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
// releases completely, whether the source owns its byte strings or points
// into the input; without an allocator a copy fails only if it needs memory.
TEST_P(Properties, DuplicateReleasesAfterAnyFailedAllocation)
{
    for_each_input([&](const uint8_t *wire, size_t size) {
        for (mivo_flags source_flags : {MIVO_FLAGS_NONE, MIVO_FLAG_SHARED}) {
            SCOPED_TRACE(source_flags == MIVO_FLAG_SHARED ? "shared source" : "plain source");
            counting_allocator source_memory;
            mivo_test::record_storage source, copy;
            ASSERT_EQ(ops().decode(&source, wire, size, &counting_allocator::allocate, &source_memory, source_flags),
                      MIVO_NO_ERROR);
            counting_allocator clean;
            ASSERT_EQ(ops().duplicate(&copy, &source, &counting_allocator::allocate, &clean), MIVO_NO_ERROR);
            ops().release(&copy, &counting_allocator::release, &clean, MIVO_FLAGS_NONE);
            ASSERT_EQ(clean.live() + clean.misuses(), 0u);
            for (size_t k = 1; k <= clean.attempts(); ++k) {
                counting_allocator a;
                a.fail_at(k);
                EXPECT_EQ(ops().duplicate(&copy, &source, &counting_allocator::allocate, &a),
                          MIVO_ERROR_ALLOC_FAILED)
                    << "allocation " << k;
                ops().release(&copy, &counting_allocator::release, &a, MIVO_FLAGS_NONE);
                EXPECT_EQ(a.live() + a.misuses(), 0u) << "allocation " << k;
            }
            const int rc = ops().duplicate(&copy, &source, nullptr, nullptr);
            EXPECT_EQ(rc, clean.attempts() == 0 ? MIVO_NO_ERROR : MIVO_ERROR_ALLOC_FAILED);
            ops().release(&copy, &counting_allocator::release, &source_memory, MIVO_FLAGS_NONE);
            ops().release(&source, &counting_allocator::release, &source_memory, source_flags);
            EXPECT_EQ(source_memory.live() + source_memory.misuses(), 0u);
        }
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
