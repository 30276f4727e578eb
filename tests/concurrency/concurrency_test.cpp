// The codec keeps no state, so threads sharing one input buffer and one
// source record must each get exactly what a single thread gets. Every
// thread decodes (plain and shared), encodes, gathers, duplicates and
// releases all 37 messages into its own records, buffers and allocator.
#include <gtest/gtest.h>

#include <string>
#include <thread>
#include <vector>

#include "catalogue_table.hpp"
#include "counting_allocator.hpp"
#include "random_wire.hpp"

namespace {

using mivo_test::counting_allocator;
using bytes = std::vector<uint8_t>;

constexpr int thread_count = 4;
constexpr int rounds = 200;

// The encoding, plain or as the joined shared-mode fragment list, whose
// byte-string pieces point straight into the record that every thread reads.
bytes encode(const mivo_catalogue::entry &m, const void *record, mivo_flags flags = MIVO_FLAGS_NONE)
{
    unsigned count = 0;
    unsigned *count_p = flags ? &count : nullptr;
    bytes head(m.encode(record, nullptr, 0, nullptr, count_p, flags));
    std::vector<mivo_bytes> pieces(count);
    m.encode(record, head.data(), head.size(), pieces.data(), count_p, flags);
    bytes joined = flags ? bytes() : head;
    for (const mivo_bytes &p : pieces) {
        joined.insert(joined.end(), p.data, p.data + p.size);
    }
    return joined;
}

// Result codes and the bytes of every record one pass produced, and what
// stayed live after release.
std::vector<bytes> one_pass(const mivo_catalogue::entry &m, const std::string &input, const void *source)
{
    const auto *in = reinterpret_cast<const uint8_t *>(input.data());
    counting_allocator a;
    mivo_catalogue::record_storage plain, shared, copy;
    const int rc[] = {m.decode(&plain, in, input.size(), &counting_allocator::allocate, &a, MIVO_FLAGS_NONE),
                      m.decode(&shared, in, input.size(), &counting_allocator::allocate, &a, MIVO_FLAG_SHARED),
                      m.duplicate(&copy, source, &counting_allocator::allocate, &a)};
    std::vector<bytes> out{bytes(std::begin(rc), std::end(rc)), encode(m, &plain), encode(m, &shared),
                           encode(m, &copy), encode(m, source), encode(m, source, MIVO_FLAG_SHARED)};
    m.release(&plain, &counting_allocator::release, &a, MIVO_FLAGS_NONE);
    m.release(&shared, &counting_allocator::release, &a, MIVO_FLAG_SHARED);
    m.release(&copy, &counting_allocator::release, &a, MIVO_FLAGS_NONE);
    out.push_back({uint8_t(a.live() + a.misuses())});
    return out;
}

TEST(Concurrency, ThreadsSharingInputAndSourceGetSingleThreadedResults)
{
    const auto messages = mivo_catalogue::messages();
    std::vector<std::string> inputs;
    std::vector<mivo_catalogue::record_storage> sources(messages.size());
    counting_allocator source_memory;
    std::vector<std::vector<bytes>> expected;
    // Half of the sources point into their input, which stays alive.
    const auto source_flags = [](size_t i) { return i % 2 ? MIVO_FLAG_SHARED : MIVO_FLAGS_NONE; };
    for (size_t i = 0; i < messages.size(); ++i) {
        inputs.push_back(mivo_test::random_wire(messages[i].name, mivo_test::concurrency_seed + i));
        ASSERT_EQ(messages[i].decode(&sources[i], reinterpret_cast<const uint8_t *>(inputs[i].data()), inputs[i].size(),
                                     &counting_allocator::allocate, &source_memory, source_flags(i)),
                  MIVO_NO_ERROR)
            << messages[i].name;
        expected.push_back(one_pass(messages[i], inputs[i], &sources[i]));
        ASSERT_EQ(expected.back().back(), bytes{0}) << messages[i].name << " leaks";
        ASSERT_EQ(expected.back()[5], expected.back()[4]) << messages[i].name << ": gathered differs";
    }

    std::vector<size_t> mismatches(thread_count, 0);
    std::vector<std::thread> threads;
    for (size_t t = 0; t < thread_count; ++t) {
        threads.emplace_back([&, t] {
            for (int round = 0; round < rounds; ++round) {
                // Threads walk the catalogue from different places so that
                // different messages overlap too.
                for (size_t i = 0; i < messages.size(); ++i) {
                    const size_t k = (i + t * 9) % messages.size();
                    mismatches[t] += one_pass(messages[k], inputs[k], &sources[k]) != expected[k];
                }
            }
        });
    }
    for (auto &thread : threads) {
        thread.join();
    }
    EXPECT_EQ(mismatches, std::vector<size_t>(thread_count, 0));
    for (size_t i = 0; i < messages.size(); ++i) {
        messages[i].release(&sources[i], &counting_allocator::release, &source_memory, source_flags(i));
    }
    EXPECT_EQ(source_memory.live(), 0u);
}

} // namespace
