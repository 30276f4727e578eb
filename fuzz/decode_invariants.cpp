// What must hold for any input, trusted or not:
//  - decoding returns a defined result code, and -4 only when an allocation
//    really failed;
//  - whatever a decode allocated, failed or not, is handed back by the
//    release with the decode's flags: nothing stays live, nothing is released
//    twice or released that the allocator did not hand out;
//  - a successful decode re-encodes: measuring and writing agree, the
//    fragment list concatenates to the same bytes, and decoding those bytes
//    again gives a record that encodes identically (a fixed point);
//  - a copy encodes like its source and is released completely, also when
//    one of its allocations fails.
// Reads and writes outside the buffers are left to AddressSanitizer.
#include "decode_invariants.hpp"

#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <vector>

#include "counting_allocator.hpp"
#include "message_table.hpp"
#include "mivo_tesk_eid_init.h"

namespace mivo_fuzz {
namespace {

using mivo_test::counting_allocator;
using mivo_test::message_ops;

[[noreturn]] void violated(const message_ops &m, const char *what)
{
    std::fprintf(stderr, "invariant violated for %.*s: %s\n", static_cast<int>(m.name.size()), m.name.data(), what);
    std::abort();
}

void require(bool ok, const message_ops &m, const char *what)
{
    if (!ok) {
        violated(m, what);
    }
}

// The identifier library behind the same interface; its decoder merges into
// what it is given, so this wrapper starts it from defaults like a message
// decoder does.
const message_ops eid_ops{
    "tesk_eid_st",
    sizeof(mivo_tesk_eid_st),
    [](const void *r, uint8_t *d, size_t n, mivo_bytes *f, unsigned *c, mivo_flags fl) {
        return mivo_tesk_eid_st_encode_ext(static_cast<const mivo_tesk_eid_st *>(r), d, n, f, c, fl);
    },
    [](void *r, const uint8_t *s, size_t n, mivo_alloc_t *a, void *t, mivo_flags fl) {
        mivo_tesk_eid_st_init(static_cast<mivo_tesk_eid_st *>(r));
        return mivo_tesk_eid_st_decode_ext(static_cast<mivo_tesk_eid_st *>(r), s, n, a, t, fl);
    },
    [](void *d, const void *s, mivo_alloc_t *a, void *t) {
        return mivo_tesk_eid_st_duplicate(static_cast<mivo_tesk_eid_st *>(d), static_cast<const mivo_tesk_eid_st *>(s),
                                          a, t);
    },
    [](void *r, mivo_free_t *f, void *t, mivo_flags fl) {
        mivo_tesk_eid_st_free_ext(static_cast<mivo_tesk_eid_st *>(r), f, t, fl);
    },
};

const message_ops &target(uint8_t selector)
{
    const size_t index = selector % target_count;
    return index < mivo_test::all_messages().size() ? mivo_test::all_messages()[index] : eid_ops;
}

std::vector<uint8_t> encode(const message_ops &m, const void *record)
{
    const size_t size = m.encode(record, nullptr, 0, nullptr, nullptr, MIVO_FLAGS_NONE);
    std::vector<uint8_t> out(size);
    require(m.encode(record, out.data(), out.size(), nullptr, nullptr, MIVO_FLAGS_NONE) == size, m,
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
    require(m.encode(record, buffer.data(), buffer.size(), pieces.data(), &count, flags) == head, m,
            "gathering changed the buffer length");
    require(count == needed, m, "piece count differs between counting and gathering");
    std::vector<uint8_t> joined;
    for (const mivo_bytes &p : pieces) {
        joined.insert(joined.end(), p.data, p.data + p.size);
    }
    require(joined == plain, m, "pieces do not concatenate to the encoding");
}

void check_released(const counting_allocator &a, const message_ops &m, const char *what)
{
    require(a.live() == 0, m, what);
    require(a.misuses() == 0, m, "release misused the allocator");
}

// The allocator a call gets: none at all, or the counting one.
mivo_alloc_t *allocator_for(size_t fail_at)
{
    return fail_at == no_allocator ? nullptr : &counting_allocator::allocate;
}

void check_duplicate(const message_ops &m, const void *source, const std::vector<uint8_t> &plain, size_t fail_at)
{
    counting_allocator a;
    a.fail_at(fail_at);
    mivo_test::record_storage copy;
    const int rc = m.duplicate(&copy, source, allocator_for(fail_at), &a);
    require(rc == MIVO_NO_ERROR || rc == MIVO_ERROR_ALLOC_FAILED, m, "duplicate returned an undefined code");
    if (rc == MIVO_NO_ERROR) {
        require(encode(m, &copy) == plain, m, "a copy encodes differently from its source");
    } else {
        require(fail_at == no_allocator || (fail_at != 0 && a.attempts() >= fail_at), m,
                "duplicate failed without a failed allocation");
    }
    m.release(&copy, &counting_allocator::release, &a, MIVO_FLAGS_NONE);
    check_released(a, m, "a released copy still holds memory");
}

} // namespace

void check_one_input(const uint8_t *data, size_t size)
{
    if (size < 2) {
        return;
    }
    const message_ops &m = target(data[0]);
    const auto flags = static_cast<mivo_flags>(data[1] & MIVO_FLAG_SHARED);
    const size_t fail_at = data[1] >> 1;
    // A copy of the wire bytes of exactly their size, so ASan sees any
    // read past the end.
    const std::vector<uint8_t> wire(data + 2, data + size);

    counting_allocator a;
    a.fail_at(fail_at);
    mivo_test::record_storage record;
    const int rc = m.decode(&record, wire.data(), wire.size(), allocator_for(fail_at), &a, flags);
    require(rc <= MIVO_NO_ERROR && rc >= MIVO_ERROR_ALLOC_FAILED, m, "decode returned an undefined code");
    require(rc != MIVO_ERROR_ALLOC_FAILED || fail_at == no_allocator || (fail_at != 0 && a.attempts() >= fail_at), m,
            "decode reported a failed allocation that did not happen");

    // A partly decoded record is still a consistent one (a failed member
    // holds nothing, a half-filled list keeps its flag clear), so it must
    // encode and copy like any other.
    const std::vector<uint8_t> plain = encode(m, &record);
    if (rc == MIVO_NO_ERROR) {
        // The identifier codec reports no pieces by design: its bytes ride
        // in the enclosing message's inline piece.
        if (&m != &eid_ops) {
            check_fragments(m, &record, plain, MIVO_FLAGS_NONE);
            check_fragments(m, &record, plain, MIVO_FLAG_SHARED);
        }

        counting_allocator again;
        mivo_test::record_storage second;
        require(m.decode(&second, plain.data(), plain.size(), &counting_allocator::allocate, &again,
                         MIVO_FLAGS_NONE) == MIVO_NO_ERROR,
                m, "our own encoding does not decode");
        require(encode(m, &second) == plain, m, "decode and encode are not a fixed point");
        m.release(&second, &counting_allocator::release, &again, MIVO_FLAGS_NONE);
        check_released(again, m, "a re-decoded record leaks");
    }
    check_duplicate(m, &record, plain, 0);
    if (fail_at != 0) {
        check_duplicate(m, &record, plain, fail_at);
    }

    m.release(&record, &counting_allocator::release, &a, flags);
    check_released(a, m, rc == MIVO_NO_ERROR ? "a decoded record leaks" : "a failed decode leaks");
    const size_t released = a.releases();
    m.release(&record, &counting_allocator::release, &a, flags);
    require(a.releases() == released && a.misuses() == 0, m, "a second release handed memory back again");
}

} // namespace mivo_fuzz
