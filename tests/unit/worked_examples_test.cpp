// Every row of data/worked_examples.txt: the record, given in JSON, encodes
// to exactly the row's bytes (also bounded, measured and gathered), and the
// bytes decode back to the record, plain and shared, copy, and release all
// they took.
#include <gtest/gtest.h>

#include "mivo_obfl_mgr_init.h"
#include "mivo_tesk_eid_init.h"
#include "unit_support.hpp"

namespace {

using namespace unit;

const uint8_t canary = 0x5A;

// A buffer that is too short is written only below its end, and only with
// the right bytes (a string that does not fit whole is not copied at all);
// the result is always the full length.
void expect_bounded(const message &m, const void *r, const bytes &expected)
{
    for (size_t dest_size = 0; dest_size < expected.size(); ++dest_size) {
        bytes buf(expected.size() + 4, canary);
        ASSERT_EQ(m.ops.encode(r, buf.data(), dest_size, nullptr, nullptr, MIVO_FLAGS_NONE), expected.size());
        for (size_t i = 0; i < buf.size(); ++i) {
            if (i >= dest_size || buf[i] != canary) {
                EXPECT_EQ(buf[i], i < dest_size ? expected[i] : canary) << "byte " << i << ", dest_size " << dest_size;
            }
        }
    }
}

// With fragment slots the buffer's contents are handed out as pieces; with
// MIVO_FLAG_SHARED every non-empty byte string is a piece of its own, left
// out of the buffer and the result. The pieces in order make up the message.
void expect_gathered(const message &m, const void *r, const bytes &expected, mivo_flags flags)
{
    bytes buf(expected.size() + 1, canary);
    mivo_bytes frags[16];
    unsigned count = 16;
    const size_t in_buffer = m.ops.encode(r, buf.data(), buf.size(), frags, &count, flags);
    bytes joined;
    size_t buffer_bytes = 0;
    for (unsigned i = 0; i < count; ++i) {
        EXPECT_NE(frags[i].size, 0u) << "empty piece " << i;
        const bool inside = frags[i].data >= buf.data() && frags[i].data < buf.data() + buf.size();
        if (inside) {
            EXPECT_EQ(frags[i].data, buf.data() + buffer_bytes) << "piece " << i << " out of order";
            buffer_bytes += frags[i].size;
        }
        EXPECT_TRUE(inside || flags == MIVO_FLAG_SHARED) << "piece " << i << " outside the buffer";
        joined.insert(joined.end(), frags[i].data, frags[i].data + frags[i].size);
    }
    EXPECT_EQ(to_hex(joined), to_hex(expected));
    EXPECT_EQ(in_buffer, buffer_bytes);
    EXPECT_EQ(buf[in_buffer], canary);
    if (flags == MIVO_FLAGS_NONE) {
        EXPECT_EQ(count, expected.empty() ? 0u : 1u);
    }
    // With one slot: the same count and buffer, only the first piece stored.
    bytes again(buf.size(), canary);
    mivo_bytes first[2] = {{nullptr, 77}, {nullptr, 77}};
    unsigned one = 1;
    EXPECT_EQ(m.ops.encode(r, again.data(), again.size(), first, &one, flags), in_buffer);
    EXPECT_EQ(one, count);
    EXPECT_EQ(to_hex(again), to_hex(buf));
    EXPECT_EQ(first[1].size, 77u);
}

TEST(WorkedExamples, EncodeDecodeCopyRelease)
{
    const auto rows = read_table("worked_examples.txt");
    EXPECT_GE(rows.size(), 80u);
    for (const auto &row : rows) {
        SCOPED_TRACE(row.where());
        ASSERT_GE(row.cols.size(), 3u);
        const message m = find(row.col(0));
        const json after = canonical(m, row.col(3).empty() ? row.col(1) : row.col(3));
        const bytes expected = hex(row.col(2));
        record built;
        obfl_wire::arena mem;
        fill(m, row.col(1), built, mem);

        EXPECT_EQ(m.ops.encode(built.get(), nullptr, 0, nullptr, nullptr, MIVO_FLAGS_NONE), expected.size());
        EXPECT_EQ(to_hex(encode(m, built.get())), to_hex(expected));
        expect_bounded(m, built.get(), expected);
        expect_gathered(m, built.get(), expected, MIVO_FLAGS_NONE);
        expect_gathered(m, built.get(), expected, MIVO_FLAG_SHARED);

        for (mivo_flags flags : {MIVO_FLAGS_NONE, MIVO_FLAG_SHARED}) {
            SCOPED_TRACE(flags == MIVO_FLAG_SHARED ? "shared" : "plain");
            counting_allocator heap;
            record decoded, copy;
            ASSERT_EQ(m.ops.decode(decoded.get(), expected.data(), expected.size(), alloc_cb, &heap, flags),
                      MIVO_NO_ERROR);
            EXPECT_EQ(as_json(m, decoded.get()), after);
            EXPECT_EQ(to_hex(encode(m, decoded.get())), to_hex(expected));
            ASSERT_EQ(m.ops.duplicate(copy.get(), decoded.get(), alloc_cb, &heap), MIVO_NO_ERROR);
            m.ops.release(decoded.get(), free_cb, &heap, flags);
            m.ops.release(decoded.get(), free_cb, &heap, flags); // a second release hands back nothing
            EXPECT_EQ(as_json(m, copy.get()), after);
            m.ops.release(copy.get(), free_cb, &heap, MIVO_FLAGS_NONE);
            expect_no_leak(heap);
        }
    }
}

// The identifier library on its own, over the request rows whose only
// field is an identifier: its bytes are the field's contents.
TEST(WorkedExamples, IdentifierLibraryAlone)
{
    const message m = find("mgbl_request");
    int checked = 0;
    for (const auto &row : read_table("worked_examples.txt")) {
        const bytes wire = hex(row.col(2));
        const bool alone = wire.size() >= 2 && (wire[0] == 0x1A || wire[0] == 0x22) && wire[1] + 2u == wire.size();
        if (row.col(0) != "mgbl_request" || !alone) {
            continue;
        }
        SCOPED_TRACE(row.line);
        ++checked;
        const bytes inner(wire.begin() + 2, wire.end());
        counting_allocator heap;
        mivo_tesk_eid_st eid;
        mivo_tesk_eid_st_init(&eid); // a decode merges into what is there
        ASSERT_EQ(mivo_tesk_eid_st_decode_ext(&eid, inner.data(), inner.size(), alloc_cb, &heap, MIVO_FLAGS_NONE),
                  MIVO_NO_ERROR);
        const size_t n = mivo_tesk_eid_st_encode_ext(&eid, nullptr, 0, nullptr, nullptr, MIVO_FLAGS_NONE);
        bytes out(n);
        mivo_bytes frags[2];
        unsigned count = 2; // the identifier hands out no pieces of its own
        EXPECT_EQ(mivo_tesk_eid_st_encode_ext(&eid, out.data(), n, frags, &count, MIVO_FLAG_SHARED), n);
        EXPECT_EQ(count, 0u);
        EXPECT_EQ(to_hex(out), to_hex(inner));
        mivo_tesk_eid_st copy;
        ASSERT_EQ(mivo_tesk_eid_st_duplicate(&copy, &eid, alloc_cb, &heap), MIVO_NO_ERROR);
        mivo_tesk_eid_st_free_ext(&eid, free_cb, &heap, MIVO_FLAGS_NONE);
        EXPECT_EQ(eid._tsi, nullptr);
        EXPECT_EQ(eid._tsi_count, 0u);
        mivo_tesk_eid_st_free_ext(&copy, free_cb, &heap, MIVO_FLAGS_NONE);
        expect_no_leak(heap);
    }
    EXPECT_GE(checked, 4);
    // An identifier with content is sent even with its flag clear.
    record r;
    mivo_mgbl_request &request = *static_cast<mivo_mgbl_request *>(r.get());
    mivo_mgbl_request_init(&request);
    request._src_eid._version = 1;
    request._src_eid._have_version = 1;
    EXPECT_EQ(to_hex(encode(m, r.get())), "22 02 08 01");
}

} // namespace
