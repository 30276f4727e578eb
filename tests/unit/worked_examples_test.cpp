// Every row of data/worked_examples.txt: the record, given in JSON, encodes
// to exactly the row's bytes, also bounded at every buffer size and gathered
// at every fragment capacity (the property tests' own check), and the bytes
// decode back to the record, plain and shared, copy, and release all they
// took. An identifier alone in a request is also the identifier library's
// own input.
#include <gtest/gtest.h>

#include "decode_invariants.hpp"
#include "mivo_obfl_mgr_init.h"
#include "unit_support.hpp"

namespace {

using namespace unit;

TEST(WorkedExamples, EncodeDecodeCopyRelease)
{
    int identifiers = 0;
    for_each_row("worked_examples.txt", 97, [&](const row &row, const message &m) {
        const bytes expected = hex(row.col(2));
        record built;
        obfl_wire::arena mem;
        fill(m, row.col(1), built, mem);
        EXPECT_EQ(to_hex(encode(m.ops, built.get())), to_hex(expected));
        EXPECT_EQ(mivo_fuzz::writing_violation(m.ops, built.get()), "");

        const json after = canonical(m, row.col(3).empty() ? row.col(1) : row.col(3));
        for (mivo_flags flags : {MIVO_FLAGS_NONE, MIVO_FLAG_SHARED}) {
            SCOPED_TRACE(flags == MIVO_FLAG_SHARED ? "shared" : "plain");
            counting_allocator heap;
            record decoded, copy;
            ASSERT_EQ(m.ops.decode(decoded.get(), expected.data(), expected.size(), alloc_cb, &heap, flags),
                      MIVO_NO_ERROR);
            EXPECT_EQ(as_json(m, decoded.get()), after);
            EXPECT_EQ(to_hex(encode(m.ops, decoded.get())), to_hex(expected));
            ASSERT_EQ(m.ops.duplicate(copy.get(), decoded.get(), alloc_cb, &heap), MIVO_NO_ERROR);
            m.ops.release(decoded.get(), free_cb, &heap, flags);
            m.ops.release(decoded.get(), free_cb, &heap, flags); // a second release hands back nothing
            EXPECT_EQ(as_json(m, copy.get()), after);
            m.ops.release(copy.get(), free_cb, &heap, MIVO_FLAGS_NONE);
            expect_no_leak(heap);
        }

        const bool identifier_alone = row.col(0) == "mgbl_request" && expected.size() >= 2 &&
                                      (expected[0] == 0x1A || expected[0] == 0x22) &&
                                      expected[1] + 2u == expected.size();
        if (identifier_alone) {
            ++identifiers;
            const mivo_catalogue::entry &eid = mivo_catalogue::entries().back();
            const bytes inner(expected.begin() + 2, expected.end());
            counting_allocator heap;
            record r;
            ASSERT_EQ(eid.decode(r.get(), inner.data(), inner.size(), alloc_cb, &heap, MIVO_FLAGS_NONE), MIVO_NO_ERROR);
            EXPECT_EQ(to_hex(encode(eid, r.get())), to_hex(inner));
            EXPECT_EQ(mivo_fuzz::writing_violation(eid, r.get()), "");
            EXPECT_EQ(mivo_fuzz::violation({mivo_catalogue::entry_count - 1, MIVO_FLAGS_NONE, 0, 0}, inner), "");
            eid.release(r.get(), free_cb, &heap, MIVO_FLAGS_NONE);
            expect_no_leak(heap);
        }
    });
    EXPECT_GE(identifiers, 4);

    // An identifier with content is sent even with its flag clear.
    mivo_mgbl_request request;
    mivo_mgbl_request_init(&request);
    request._src_eid._version = 1;
    request._src_eid._have_version = 1;
    EXPECT_EQ(to_hex(encode(find("mgbl_request").ops, &request)), "22 02 08 01");
}

} // namespace
