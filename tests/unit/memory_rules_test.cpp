// Copies, from the rows of data/copies.txt, and what no JSON row can show:
// which pointers a release hands back in which order and what it resets,
// pointers into the caller's input, and records a caller built by hand.
#include <gtest/gtest.h>

#include <cstring>

#include "mivo_obfl_mgr_init.h"
#include "unit_support.hpp"

namespace {

using namespace unit;
using pointers = std::vector<const void *>;

TEST(Copies, ResultCopyAllocationsAndNoLeak)
{
    for_each_row("copies.txt", 18, [](const row &row, const message &m) {
        record source, copy;
        obfl_wire::arena mem;
        fill(m, row.col(1), source, mem);
        counting_allocator heap;
        mivo_alloc_t *alloc = allocator_for(row.col(2), heap);
        std::memset(copy.get(), 0xA5, m.ops.record_size);
        const int rc = m.ops.duplicate(copy.get(), source.get(), alloc, &heap);
        expect_outcome(m, row, rc, copy, heap, MIVO_FLAGS_NONE);
    });
}

// Release callback that logs each pointer before handing it back.
pointers freed;
void logging_free(void *pointer, void *token)
{
    freed.push_back(pointer);
    counting_allocator::release(pointer, token);
}

TEST(MemoryRules, DefaultsCopyAndReleaseWithoutAnyCall)
{
    counting_allocator heap;
    freed.clear();
    for (const auto &ops : mivo_catalogue::messages()) {
        SCOPED_TRACE(std::string(ops.name));
        record r, copy;
        ASSERT_EQ(ops.decode(r.get(), nullptr, 0, alloc_cb, &heap, MIVO_FLAGS_NONE), MIVO_NO_ERROR);
        EXPECT_EQ(ops.duplicate(copy.get(), r.get(), nullptr, nullptr), MIVO_NO_ERROR);
        ops.release(r.get(), nullptr, &heap, MIVO_FLAGS_NONE); // nothing to hand back: no callback needed
        ops.release(copy.get(), logging_free, &heap, MIVO_FLAG_SHARED);
        EXPECT_EQ(std::memcmp(copy.get(), r.get(), ops.record_size), 0) << "no longer at defaults";
    }
    EXPECT_TRUE(freed.empty());
    EXPECT_EQ(heap.attempts(), 0u);
}

TEST(MemoryRules, ReleaseHandsBackNamesThenArraysAndResetsThem)
{
    counting_allocator heap;
    freed.clear();
    const bytes in = hex("60 01 60 02 60 03 6A 01 61 6A 02 62 63");
    mivo_write_env_volt_thresholds r;
    ASSERT_EQ(mivo_write_env_volt_thresholds_decode_ext(&r, in.data(), in.size(), alloc_cb, &heap, MIVO_FLAGS_NONE),
              MIVO_NO_ERROR);
    const pointers expected{r._sensor_id, r._sensor_name[0], r._sensor_name[1], r._sensor_name};
    mivo_write_env_volt_thresholds_free_ext(&r, logging_free, &heap, MIVO_FLAGS_NONE);
    mivo_write_env_volt_thresholds_free_ext(&r, logging_free, &heap, MIVO_FLAGS_NONE); // nothing more
    EXPECT_EQ(freed, expected);
    EXPECT_EQ(r._sensor_id, nullptr);
    EXPECT_EQ(r._sensor_id_count, 3u); // a number list keeps its count
    EXPECT_EQ(r._sensor_name, nullptr);
    EXPECT_EQ(r._sensor_name_count, 0u);
    EXPECT_TRUE(r._have_sensor_id && r._have_sensor_name);
    expect_no_leak(heap);
}

TEST(MemoryRules, SharedBlocksPointIntoTheInputAndAreNotHandedBack)
{
    const bytes in = hex("4A 01 61 6A 02 AA BB 6A 01 CC");
    for (mivo_flags flags : {MIVO_FLAGS_NONE, MIVO_FLAG_SHARED}) {
        SCOPED_TRACE(flags);
        counting_allocator heap;
        freed.clear();
        mivo_write_env_raw_record r;
        ASSERT_EQ(mivo_write_env_raw_record_decode_ext(&r, in.data(), in.size(), alloc_cb, &heap, flags),
                  MIVO_NO_ERROR);
        pointers expected{r._sw_ver};
        if (flags == MIVO_FLAG_SHARED) {
            EXPECT_EQ(r._env_raw[0].data, in.data() + 5);
            EXPECT_EQ(r._env_raw[1].data, in.data() + 9);
        } else {
            expected.insert(expected.end(), {r._env_raw[0].data, r._env_raw[1].data});
        }
        expected.push_back(r._env_raw);
        mivo_write_env_raw_record_free_ext(&r, logging_free, &heap, flags);
        EXPECT_EQ(freed, expected);
        EXPECT_EQ(r._env_raw, nullptr);
        EXPECT_EQ(r._env_raw_count, 0u);
        EXPECT_EQ(r._sw_ver, nullptr);
        expect_no_leak(heap);
    }
}

TEST(MemoryRules, CopiesOfHandBuiltRecords)
{
    counting_allocator heap;
    // A string present with its flag clear is copied all the same.
    mivo_log_syslog syslog, syslog_copy;
    mivo_log_syslog_init(&syslog);
    syslog._data = "text";
    EXPECT_EQ(mivo_log_syslog_duplicate(&syslog_copy, &syslog, alloc_cb, &heap), MIVO_NO_ERROR);
    EXPECT_STREQ(syslog_copy._data, "text");
    EXPECT_FALSE(syslog_copy._have_data);
    mivo_log_syslog_free_ext(&syslog_copy, free_cb, &heap, MIVO_FLAGS_NONE);

    // A null name is copied as null, without a call.
    static const mivo_string_t names[] = {"a", nullptr};
    mivo_write_env_temp_thresholds temp, temp_copy;
    mivo_write_env_temp_thresholds_init(&temp);
    temp._sensor_name = names;
    temp._sensor_name_count = 2;
    temp._have_sensor_name = 1;
    EXPECT_EQ(mivo_write_env_temp_thresholds_duplicate(&temp_copy, &temp, alloc_cb, &heap), MIVO_NO_ERROR);
    EXPECT_EQ(heap.sizes(), sizes("5 2p 2"));
    ASSERT_EQ(temp_copy._sensor_name_count, 2u);
    EXPECT_EQ(temp_copy._sensor_name[1], nullptr);
    mivo_write_env_temp_thresholds_free_ext(&temp_copy, free_cb, &heap, MIVO_FLAGS_NONE);

    expect_no_leak(heap);
}

} // namespace
