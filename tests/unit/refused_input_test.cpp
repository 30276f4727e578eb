// Every row of data/refused_input.txt: the result code, what the record
// keeps, the sizes asked of the allocator, and nothing left live after
// release.
#include <gtest/gtest.h>

#include <cstring>

#include "unit_support.hpp"

namespace {

using namespace unit;

TEST(RefusedInput, ResultKeptMembersAllocationsAndNoLeak)
{
    for_each_row("refused_input.txt", 96, [](const row &row, const message &m) {
        const bytes in = hex(row.col(1));
        const std::string &flags = row.cols[2];
        const mivo_flags shared = flags.find("shared") != std::string::npos ? MIVO_FLAG_SHARED : MIVO_FLAGS_NONE;
        counting_allocator heap;
        mivo_alloc_t *alloc = allocator_for(flags, heap);
        record r;
        // Stale contents: the decoder must reset the record before anything else.
        std::memset(r.get(), 0xA5, m.ops.record_size);

        const int rc = m.ops.decode(r.get(), in.empty() ? nullptr : in.data(), in.size(), alloc, &heap, shared);
        expect_outcome(m, row, rc, r, heap, shared);
    });
}

} // namespace
