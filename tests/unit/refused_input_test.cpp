// Every row of data/refused_input.txt: the result code, what the record
// keeps, the sizes asked of the allocator, and nothing left live after
// release. Then, over the fields that data/worked_examples.txt shows, every
// known field refuses the other wire type and the field above a message's
// last is skipped.
#include <gtest/gtest.h>

#include <cstring>
#include <map>

#include "unit_support.hpp"
#include "wire_fields.hpp"

namespace {

using namespace unit;

TEST(RefusedInput, ResultKeptMembersAllocationsAndNoLeak)
{
    const auto rows = read_table("refused_input.txt");
    EXPECT_GE(rows.size(), 90u);
    for (const auto &row : rows) {
        SCOPED_TRACE(row.where());
        ASSERT_GE(row.cols.size(), 5u);
        const message m = find(row.col(0));
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
    }
}

// The fields of each message with their wire types, read off the worked
// wire images (whose every byte the worked-example driver checks).
std::map<std::string, std::map<unsigned, unsigned>> known_fields()
{
    std::map<std::string, std::map<unsigned, unsigned>> fields;
    for (const auto &row : read_table("worked_examples.txt")) {
        const bytes wire = hex(row.col(2));
        for (const auto &f : mivo_test::split_fields(std::string(wire.begin(), wire.end()))) {
            fields[row.col(0)][unsigned(f.key >> 3)] = unsigned(f.key & 7);
        }
    }
    return fields;
}

// A field with a one-byte value: a varint 1, or a length 1 and the letter a.
bytes field(unsigned number, unsigned wire_type)
{
    const unsigned key = number * 8 + wire_type; // below 2^14: one or two bytes
    bytes out = key > 127 ? bytes{uint8_t(key | 128), uint8_t(key >> 7)} : bytes{uint8_t(key)};
    out.push_back(1);
    if (wire_type == 2) {
        out.push_back(0x61);
    }
    return out;
}

TEST(RefusedInput, EveryKnownFieldRefusesTheOtherWireTypeAndTheNextFieldIsSkipped)
{
    const auto fields = known_fields();
    EXPECT_EQ(fields.size(), 37u);
    for (const auto &[name, types] : fields) {
        const message m = find(name);
        counting_allocator heap;
        const auto decode = [&](const bytes &in) {
            record r;
            const int rc = m.ops.decode(r.get(), in.data(), in.size(), alloc_cb, &heap, MIVO_FLAGS_NONE);
            const json kept = as_json(m, r.get());
            m.ops.release(r.get(), free_cb, &heap, MIVO_FLAGS_NONE);
            return std::pair{rc, kept};
        };
        for (const auto &[number, type] : types) {
            SCOPED_TRACE(name + " field " + std::to_string(number));
            EXPECT_EQ(decode(field(number, 2 - type)).first, MIVO_ERROR_WRONG_TYPE);
        }
        // The member tables' last field number, one above it and a group there.
        const unsigned last = types.rbegin()->first;
        SCOPED_TRACE(name + " above field " + std::to_string(last));
        EXPECT_EQ(decode(field(last + 1, 0)), std::pair(0, json::object()));
        EXPECT_EQ(decode(field(last + 1, 2)), std::pair(0, json::object()));
        EXPECT_EQ(decode(field(last + 1, 3)).first, MIVO_ERROR_UNSUPPORTED);
        expect_no_leak(heap);
    }
}

} // namespace
