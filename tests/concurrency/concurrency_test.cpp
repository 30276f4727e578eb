// The codec keeps no state, so threads sharing one input buffer and one
// source record must each get exactly what a single thread gets. Every
// thread decodes (plain and shared), encodes, duplicates and releases all 37
// messages into its own records, buffers and allocator.
#include <gtest/gtest.h>

#include <string>
#include <thread>
#include <vector>

#include "counting_allocator.hpp"
#include "catalogue_table.hpp"
#include "random_wire.hpp"

namespace {

using mivo_test::counting_allocator;
using message_ops = mivo_catalogue::entry;

constexpr int thread_count = 4;
constexpr int rounds = 200;

// What one pass over a message yields: result codes and the bytes of every
// record it produced, re-encoded.
struct outcome {
    int decode_rc = 0, shared_rc = 0, duplicate_rc = 0;
    std::vector<uint8_t> decoded, shared, copied, from_source, gathered;
    size_t live_after_release = 0;
    bool operator==(const outcome &) const = default;
};

std::vector<uint8_t> encode(const message_ops &m, const void *record)
{
    std::vector<uint8_t> out(m.encode(record, nullptr, 0, nullptr, nullptr, MIVO_FLAGS_NONE));
    m.encode(record, out.data(), out.size(), nullptr, nullptr, MIVO_FLAGS_NONE);
    return out;
}

// The shared-mode fragment list, joined: its byte-string pieces point
// straight into the record that every thread reads.
std::vector<uint8_t> gather(const message_ops &m, const void *record)
{
    unsigned count = 0;
    std::vector<uint8_t> head(m.encode(record, nullptr, 0, nullptr, &count, MIVO_FLAG_SHARED));
    std::vector<mivo_bytes> pieces(count);
    m.encode(record, head.data(), head.size(), pieces.data(), &count, MIVO_FLAG_SHARED);
    std::vector<uint8_t> joined;
    for (const mivo_bytes &p : pieces) {
        joined.insert(joined.end(), p.data, p.data + p.size);
    }
    return joined;
}

outcome one_pass(const message_ops &m, const std::string &input, const void *source)
{
    const auto *bytes = reinterpret_cast<const uint8_t *>(input.data());
    counting_allocator a;
    outcome o;
    mivo_catalogue::record_storage plain, shared, copy;
    o.decode_rc = m.decode(&plain, bytes, input.size(), &counting_allocator::allocate, &a, MIVO_FLAGS_NONE);
    o.shared_rc = m.decode(&shared, bytes, input.size(), &counting_allocator::allocate, &a, MIVO_FLAG_SHARED);
    o.duplicate_rc = m.duplicate(&copy, source, &counting_allocator::allocate, &a);
    o.decoded = encode(m, &plain);
    o.shared = encode(m, &shared);
    o.copied = encode(m, &copy);
    o.from_source = encode(m, source);
    o.gathered = gather(m, source);
    m.release(&plain, &counting_allocator::release, &a, MIVO_FLAGS_NONE);
    m.release(&shared, &counting_allocator::release, &a, MIVO_FLAG_SHARED);
    m.release(&copy, &counting_allocator::release, &a, MIVO_FLAGS_NONE);
    o.live_after_release = a.live() + a.misuses();
    return o;
}

mivo_flags source_flags(size_t i) { return i % 2 ? MIVO_FLAG_SHARED : MIVO_FLAGS_NONE; }

TEST(Concurrency, ThreadsSharingInputAndSourceGetSingleThreadedResults)
{
    const auto messages = mivo_catalogue::messages();
    std::vector<std::string> inputs;
    std::vector<mivo_catalogue::record_storage> sources(messages.size());
    counting_allocator source_memory;
    std::vector<outcome> expected;
    for (size_t i = 0; i < messages.size(); ++i) {
        inputs.push_back(mivo_test::random_wire(messages[i].name, 7000 + i));
        const auto *bytes = reinterpret_cast<const uint8_t *>(inputs[i].data());
        // Half of the sources point into their input, which stays alive.
        ASSERT_EQ(messages[i].decode(&sources[i], bytes, inputs[i].size(), &counting_allocator::allocate,
                                     &source_memory, source_flags(i)),
                  MIVO_NO_ERROR)
            << messages[i].name;
        expected.push_back(one_pass(messages[i], inputs[i], &sources[i]));
        ASSERT_EQ(expected.back().live_after_release, 0u) << messages[i].name;
        ASSERT_EQ(expected.back().gathered, expected.back().from_source) << messages[i].name;
    }

    std::vector<size_t> mismatches(thread_count, 0);
    std::vector<std::thread> threads;
    for (int t = 0; t < thread_count; ++t) {
        threads.emplace_back([&, t] {
            for (int round = 0; round < rounds; ++round) {
                for (size_t i = 0; i < messages.size(); ++i) {
                    // Threads walk the catalogue from different places so
                    // that different messages overlap too.
                    const size_t k = (i + static_cast<size_t>(t) * 9) % messages.size();
                    if (!(one_pass(messages[k], inputs[k], &sources[k]) == expected[k])) {
                        ++mismatches[static_cast<size_t>(t)];
                    }
                }
            }
        });
    }
    for (auto &thread : threads) {
        thread.join();
    }
    for (int t = 0; t < thread_count; ++t) {
        EXPECT_EQ(mismatches[static_cast<size_t>(t)], 0u) << "thread " << t;
    }
    for (size_t i = 0; i < messages.size(); ++i) {
        messages[i].release(&sources[i], &counting_allocator::release, &source_memory, source_flags(i));
    }
    EXPECT_EQ(source_memory.live(), 0u);
}

} // namespace
