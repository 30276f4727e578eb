// What must hold for any input, trusted or not:
//  - decoding returns a defined result code, and -4 exactly when an
//    allocation failed (or no allocator was given);
//  - whatever a decode allocated, failed or not, is handed back by the
//    release with the decode's flags: nothing stays live, nothing is released
//    twice or released that the allocator did not hand out; a second release
//    hands back nothing;
//  - a successful decode re-encodes: measuring and writing agree, the
//    fragment list concatenates to the same bytes, and decoding those bytes
//    again gives a record that encodes identically (a fixed point);
//  - a copy encodes like its source, shares nothing with it (it survives the
//    source's release and the overwriting of the input) and is released
//    completely, also when one of its allocations fails.
// Reads and writes outside the buffers are left to AddressSanitizer.
#include "decode_invariants.hpp"

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <vector>

#include "counting_allocator.hpp"
#include "catalogue_table.hpp"

namespace mivo_fuzz {
namespace {

using mivo_test::counting_allocator;
using message_ops = mivo_catalogue::entry;

struct violated {
    const char *what;
};

void require(bool ok, const char *what)
{
    if (!ok) {
        throw violated{what};
    }
}

std::vector<uint8_t> encode(const message_ops &m, const void *record)
{
    const size_t size = m.encode(record, nullptr, 0, nullptr, nullptr, MIVO_FLAGS_NONE);
    std::vector<uint8_t> out(size);
    require(m.encode(record, out.data(), out.size(), nullptr, nullptr, MIVO_FLAGS_NONE) == size,
            "measuring and writing disagree");
    return out;
}

// The gathered form must hold the same bytes, with and without sharing.
void check_fragments(const message_ops &m, const void *record, const std::vector<uint8_t> &plain, mivo_flags flags)
{
    unsigned needed = 0;
    const size_t head = m.encode(record, nullptr, 0, nullptr, &needed, flags);
    std::vector<uint8_t> buffer(head);
    std::vector<mivo_bytes> pieces(needed);
    unsigned count = needed;
    require(m.encode(record, buffer.data(), buffer.size(), pieces.data(), &count, flags) == head,
            "gathering changed the buffer length");
    require(count == needed, "piece count differs between counting and gathering");
    std::vector<uint8_t> joined;
    for (const mivo_bytes &p : pieces) {
        joined.insert(joined.end(), p.data, p.data + p.size);
    }
    require(joined == plain, "pieces do not concatenate to the encoding");
}

void check_released(const counting_allocator &a, const char *what)
{
    require(a.live() == 0, what);
    require(a.misuses() == 0, "release misused the allocator");
}

// The allocator a call gets: none at all, or the counting one.
mivo_alloc_t *allocator_for(size_t fail_at)
{
    return fail_at == no_allocator ? nullptr : &counting_allocator::allocate;
}

// -4 exactly when the failing allocation was asked for; without an
// allocator, exactly when the same call with one allocated anything.
bool alloc_failure_reported_honestly(int rc, size_t fail_at, size_t attempts, size_t clean_attempts)
{
    if (fail_at == no_allocator) {
        return (rc == MIVO_ERROR_ALLOC_FAILED) == (clean_attempts > 0);
    }
    return (rc == MIVO_ERROR_ALLOC_FAILED) == (fail_at != 0 && attempts >= fail_at);
}

void check_failing_copy(const message_ops &m, const void *source, const std::vector<uint8_t> &plain, size_t fail_at,
                        size_t clean_attempts)
{
    counting_allocator a;
    a.fail_at(fail_at);
    mivo_catalogue::record_storage copy;
    const int rc = m.duplicate(&copy, source, allocator_for(fail_at), &a);
    require(rc == MIVO_NO_ERROR || rc == MIVO_ERROR_ALLOC_FAILED, "duplicate returned an undefined code");
    require(alloc_failure_reported_honestly(rc, fail_at, a.attempts(), clean_attempts),
            "duplicate misreported an allocation failure");
    if (rc == MIVO_NO_ERROR) {
        require(encode(m, &copy) == plain, "a copy encodes differently from its source");
    }
    m.release(&copy, &counting_allocator::release, &a, MIVO_FLAGS_NONE);
    check_released(a, "a released copy still holds memory");
}

void check(const input_case &c, std::span<const uint8_t> input)
{
    const message_ops &m = mivo_catalogue::entries()[c.target % mivo_catalogue::entry_count];
    // A copy of the wire bytes of exactly their size, so ASan sees any read
    // past the end; the copy test overwrites it later.
    std::vector<uint8_t> wire(input.begin(), input.end());

    counting_allocator a;
    a.fail_at(c.decode_fail_at);
    mivo_catalogue::record_storage record;
    const int rc = m.decode(&record, wire.data(), wire.size(), allocator_for(c.decode_fail_at), &a, c.flags);
    require(rc <= MIVO_NO_ERROR && rc >= MIVO_ERROR_ALLOC_FAILED, "decode returned an undefined code");
    if (c.decode_fail_at != no_allocator) {
        require(alloc_failure_reported_honestly(rc, c.decode_fail_at, a.attempts(), 0),
                "decode misreported an allocation failure");
    }

    // A partly decoded record is still a consistent one (a failed member
    // holds nothing, a half-filled list keeps its flag clear), so it must
    // encode and copy like any other.
    const std::vector<uint8_t> plain = encode(m, &record);
    if (rc == MIVO_NO_ERROR) {
        // The identifier codec reports no pieces by design: its bytes ride
        // in the enclosing message's inline piece.
        if (&m != &mivo_catalogue::entries().back()) {
            check_fragments(m, &record, plain, MIVO_FLAGS_NONE);
            check_fragments(m, &record, plain, MIVO_FLAG_SHARED);
        }
        counting_allocator again;
        mivo_catalogue::record_storage second;
        require(m.decode(&second, plain.data(), plain.size(), &counting_allocator::allocate, &again,
                         MIVO_FLAGS_NONE) == MIVO_NO_ERROR,
                "our own encoding does not decode");
        require(encode(m, &second) == plain, "decode and encode are not a fixed point");
        m.release(&second, &counting_allocator::release, &again, MIVO_FLAGS_NONE);
        check_released(again, "a re-decoded record leaks");
    }

    counting_allocator copy_memory;
    mivo_catalogue::record_storage copy;
    require(m.duplicate(&copy, &record, &counting_allocator::allocate, &copy_memory) == MIVO_NO_ERROR,
            "a copy failed without a failing allocation");
    if (c.copy_fail_at != 0) {
        check_failing_copy(m, &record, plain, c.copy_fail_at, copy_memory.attempts());
    }

    m.release(&record, &counting_allocator::release, &a, c.flags);
    check_released(a, rc == MIVO_NO_ERROR ? "a decoded record leaks" : "a failed decode leaks");
    const size_t released = a.releases();
    m.release(&record, &counting_allocator::release, &a, c.flags);
    require(a.releases() == released && a.misuses() == 0, "a second release handed memory back again");

    std::fill(wire.begin(), wire.end(), uint8_t{0xA5});
    require(encode(m, &copy) == plain, "a copy changed with its source's release or input");
    m.release(&copy, &counting_allocator::release, &copy_memory, MIVO_FLAGS_NONE);
    check_released(copy_memory, "a released copy still holds memory");
}

} // namespace

std::string violation(const input_case &c, std::span<const uint8_t> wire)
{
    try {
        check(c, wire);
    } catch (const violated &v) {
        return std::string(mivo_catalogue::entries()[c.target % mivo_catalogue::entry_count].name) + ": " + v.what;
    }
    return {};
}

void check_one_input(const uint8_t *data, size_t size)
{
    if (size < 2) {
        return;
    }
    const size_t fail_at = data[1] >> 1;
    const input_case c{data[0], static_cast<mivo_flags>(data[1] & MIVO_FLAG_SHARED), fail_at, fail_at};
    const std::string what = violation(c, {data + 2, size - 2});
    if (!what.empty()) {
        std::fprintf(stderr, "invariant violated for %s\n", what.c_str());
        std::abort();
    }
}

} // namespace mivo_fuzz
