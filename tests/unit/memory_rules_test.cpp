// Who allocates what, of which size, in which order, and what release hands
// back: concrete cases for the decoder, the duplicator and release.
#include <gtest/gtest.h>

#include <cstring>

#include "unit_support.hpp"

namespace {

using namespace unit;
using sizes = std::vector<size_t>;
using pointers = std::vector<const void *>;

class MemoryRules : public ::testing::Test {
protected:
    void SetUp() override { freed().clear(); }
    void TearDown() override
    {
        expect_no_leak(heap);
    }
    counting_allocator heap;
};

TEST_F(MemoryRules, DefaultsCopyAndReleaseWithoutAnyCall)
{
    for (const auto &ops : mivo_test::all_messages()) {
        SCOPED_TRACE(std::string(ops.name));
        record r, copy;
        ASSERT_EQ(ops.decode(r.get(), nullptr, 0, alloc_cb, &heap, MIVO_FLAGS_NONE), MIVO_NO_ERROR);
        EXPECT_EQ(ops.duplicate(copy.get(), r.get(), nullptr, nullptr), MIVO_NO_ERROR);
        // A null release callback is fine when there is nothing to hand back.
        ops.release(r.get(), nullptr, &heap, MIVO_FLAGS_NONE);
        ops.release(copy.get(), logging_free, &heap, MIVO_FLAG_SHARED);
        EXPECT_TRUE(freed().empty());
        EXPECT_EQ(std::memcmp(copy.get(), r.get(), ops.record_size), 0) << "no longer at defaults";
    }
    EXPECT_EQ(heap.attempts(), 0u);
}

TEST_F(MemoryRules, ThresholdListsDecodeSizesAndReleaseOrder)
{
    const bytes in = hex("60 01 60 02 60 03 6A 01 61 6A 02 62 63");
    mivo_write_env_volt_thresholds r;
    ASSERT_EQ(mivo_write_env_volt_thresholds_decode_ext(&r, in.data(), in.size(), alloc_cb, &heap, MIVO_FLAGS_NONE),
              MIVO_NO_ERROR);
    // One array per list at its exact size, then each name with its NUL.
    EXPECT_EQ(heap.sizes(), (sizes{3 * sizeof(uint32_t), 2 * sizeof(mivo_string_t), 2, 3}));
    const pointers expected{r._sensor_id, r._sensor_name[0], r._sensor_name[1], r._sensor_name};

    mivo_write_env_volt_thresholds_free_ext(&r, logging_free, &heap, MIVO_FLAGS_NONE);
    EXPECT_EQ(freed(), expected);
    EXPECT_EQ(r._sensor_id, nullptr);
    EXPECT_EQ(r._sensor_id_count, 3u); // a number list keeps its count
    EXPECT_EQ(r._sensor_name, nullptr);
    EXPECT_EQ(r._sensor_name_count, 0u);
    EXPECT_TRUE(r._have_sensor_id && r._have_sensor_name);

    mivo_write_env_volt_thresholds_free_ext(&r, logging_free, &heap, MIVO_FLAGS_NONE);
    EXPECT_EQ(freed().size(), 4u) << "second release handed something back";
}

TEST_F(MemoryRules, RawBlocksOwnedOrShared)
{
    // _sw_ver "a", then two blocks AA BB and CC.
    const bytes in = hex("4A 01 61 6A 02 AA BB 6A 01 CC");
    for (mivo_flags flags : {MIVO_FLAGS_NONE, MIVO_FLAG_SHARED}) {
        SCOPED_TRACE(flags);
        const bool shared = flags == MIVO_FLAG_SHARED;
        freed().clear();
        counting_allocator local;
        mivo_write_env_raw_record r;
        ASSERT_EQ(mivo_write_env_raw_record_decode_ext(&r, in.data(), in.size(), alloc_cb, &local, flags),
                  MIVO_NO_ERROR);
        ASSERT_EQ(r._env_raw_count, 2u);
        EXPECT_EQ(to_hex(r._env_raw[0].data, r._env_raw[0].size), "AA BB");
        EXPECT_EQ(to_hex(r._env_raw[1].data, r._env_raw[1].size), "CC");
        pointers expected{r._sw_ver};
        if (shared) {
            EXPECT_EQ(local.sizes(), (sizes{2, 2 * sizeof(mivo_bytes)}));
            EXPECT_EQ(r._env_raw[0].data, in.data() + 5);
            EXPECT_EQ(r._env_raw[1].data, in.data() + 9);
        } else {
            EXPECT_EQ(local.sizes(), (sizes{2, 2 * sizeof(mivo_bytes), 2, 1}));
            expected.push_back(r._env_raw[0].data);
            expected.push_back(r._env_raw[1].data);
        }
        expected.push_back(r._env_raw);

        mivo_write_env_raw_record_free_ext(&r, logging_free, &local, flags);
        EXPECT_EQ(freed(), expected);
        EXPECT_EQ(r._env_raw, nullptr);
        EXPECT_EQ(r._env_raw_count, 0u);
        EXPECT_EQ(r._sw_ver, nullptr);
        EXPECT_TRUE(r._have_env_raw);
        expect_no_leak(local);
    }
}

TEST_F(MemoryRules, RequestDoneDataSharedOwnedAndCopied)
{
    bytes in = hex("08 01 6A 03 61 62 63");
    mivo_mgbl_request_done r, copy;
    ASSERT_EQ(mivo_mgbl_request_done_decode_ext(&r, in.data(), in.size(), alloc_cb, &heap, MIVO_FLAG_SHARED),
              MIVO_NO_ERROR);
    EXPECT_EQ(heap.attempts(), 0u);
    EXPECT_EQ(r._data.data, in.data() + 4);
    // A copy of a shared decode owns its data.
    ASSERT_EQ(mivo_mgbl_request_done_duplicate(&copy, &r, alloc_cb, &heap), MIVO_NO_ERROR);
    EXPECT_TRUE(heap.owns(copy._data.data));
    mivo_mgbl_request_done_free_ext(&r, logging_free, &heap, MIVO_FLAG_SHARED);
    EXPECT_TRUE(freed().empty());
    EXPECT_EQ(r._data.data, in.data() + 4);
    EXPECT_EQ(r._data.size, 3u);

    ASSERT_EQ(mivo_mgbl_request_done_decode_ext(&r, in.data(), in.size(), alloc_cb, &heap, MIVO_FLAGS_NONE),
              MIVO_NO_ERROR);
    EXPECT_EQ(heap.sizes(), (sizes{3, 3})); // exactly the bytes, no terminator
    const void *owned = r._data.data;
    EXPECT_TRUE(heap.owns(owned));
    mivo_mgbl_request_done_free_ext(&r, logging_free, &heap, MIVO_FLAGS_NONE);
    mivo_mgbl_request_done_free_ext(&r, logging_free, &heap, MIVO_FLAGS_NONE); // nothing more
    EXPECT_EQ(freed(), pointers{owned});
    EXPECT_EQ(r._data.data, nullptr);
    EXPECT_EQ(r._data.size, 3u);

    std::fill(in.begin(), in.end(), 0); // the input may go away now
    EXPECT_EQ(to_hex(copy._data.data, copy._data.size), "61 62 63");
    mivo_mgbl_request_done_free_ext(&copy, free_cb, &heap, MIVO_FLAGS_NONE);
}

TEST_F(MemoryRules, ZeroLengthBytesAskForZeroAndFailOnNull)
{
    const bytes single = hex("6A 00");
    mivo_mgbl_request_done r;
    ASSERT_EQ(mivo_mgbl_request_done_decode_ext(&r, single.data(), single.size(), alloc_cb, &heap, MIVO_FLAGS_NONE),
              MIVO_NO_ERROR);
    EXPECT_EQ(heap.sizes(), sizes{0});
    EXPECT_TRUE(r._have_data);
    mivo_mgbl_request_done_free_ext(&r, free_cb, &heap, MIVO_FLAGS_NONE);

    counting_allocator failing;
    failing.fail_at(1);
    EXPECT_EQ(mivo_mgbl_request_done_decode_ext(&r, single.data(), single.size(), alloc_cb, &failing, MIVO_FLAGS_NONE),
              MIVO_ERROR_ALLOC_FAILED);
    EXPECT_FALSE(r._have_data);
    EXPECT_EQ(r._data.data, nullptr);

    // The same for a block of the list: the array survives with a null element.
    counting_allocator failing_block;
    failing_block.fail_at(2);
    mivo_write_env_raw_record raw;
    EXPECT_EQ(mivo_write_env_raw_record_decode_ext(&raw, single.data(), single.size(), alloc_cb, &failing_block,
                                                   MIVO_FLAGS_NONE),
              MIVO_ERROR_ALLOC_FAILED);
    EXPECT_EQ(failing_block.sizes(), (sizes{sizeof(mivo_bytes), 0}));
    ASSERT_EQ(raw._env_raw_count, 1u);
    EXPECT_EQ(raw._env_raw[0].data, nullptr);
    EXPECT_FALSE(raw._have_env_raw);
    mivo_write_env_raw_record_free_ext(&raw, free_cb, &failing_block, MIVO_FLAGS_NONE);
    expect_no_leak(failing_block);
}

TEST_F(MemoryRules, NameAllocationFailingMidListKeepsFullCount)
{
    const bytes in = hex("08 01 2A 01 61 2A 01 62 2A 01 63 2A 01 64");
    heap.fail_at(4); // the array, two names, then the third name fails
    mivo_mgbl_notify_locations r;
    EXPECT_EQ(mivo_mgbl_notify_locations_decode_ext(&r, in.data(), in.size(), alloc_cb, &heap, MIVO_FLAGS_NONE),
              MIVO_ERROR_ALLOC_FAILED);
    EXPECT_TRUE(r._have_version);
    ASSERT_EQ(r._location_name_count, 4u);
    EXPECT_EQ(text(r._location_name[0]), "a");
    EXPECT_EQ(text(r._location_name[1]), "b");
    EXPECT_EQ(r._location_name[2], nullptr);
    EXPECT_EQ(r._location_name[3], nullptr);
    EXPECT_FALSE(r._have_location_name);
    const pointers expected{r._location_name[0], r._location_name[1], r._location_name};
    mivo_mgbl_notify_locations_free_ext(&r, logging_free, &heap, MIVO_FLAGS_NONE);
    EXPECT_EQ(freed(), expected);
    EXPECT_EQ(heap.allocations(), 3u);
    EXPECT_EQ(heap.releases(), 3u);
}

TEST_F(MemoryRules, CopyWithoutAllocatorDropsStringsKeepsScalars)
{
    mivo_svc_regn source, copy;
    mivo_svc_regn_init(&source);
    source._seq_num = 4;
    source._svc_name = "ab";
    source._client_name = "xyz";
    source._have_seq_num = source._have_svc_name = source._have_client_name = 1;
    EXPECT_EQ(mivo_svc_regn_duplicate(&copy, &source, nullptr, &heap), MIVO_ERROR_ALLOC_FAILED);
    EXPECT_EQ(copy._seq_num, 4u);
    EXPECT_TRUE(copy._have_seq_num);
    EXPECT_EQ(copy._svc_name, nullptr);
    EXPECT_EQ(copy._client_name, nullptr);
    EXPECT_FALSE(copy._have_svc_name || copy._have_client_name);
    mivo_svc_regn_free_ext(&copy, free_cb, &heap, MIVO_FLAGS_NONE);

    // With an allocator: exact sizes, in member order.
    EXPECT_EQ(mivo_svc_regn_duplicate(&copy, &source, alloc_cb, &heap), MIVO_NO_ERROR);
    EXPECT_EQ(heap.sizes(), (sizes{3, 4}));
    EXPECT_EQ(text(copy._svc_name), "ab");
    EXPECT_NE(copy._svc_name, source._svc_name);
    mivo_svc_regn_free_ext(&copy, free_cb, &heap, MIVO_FLAGS_NONE);

    // The first string's allocation fails: the second is still copied.
    counting_allocator failing;
    failing.fail_at(1);
    EXPECT_EQ(mivo_svc_regn_duplicate(&copy, &source, alloc_cb, &failing), MIVO_ERROR_ALLOC_FAILED);
    EXPECT_EQ(copy._svc_name, nullptr);
    EXPECT_FALSE(copy._have_svc_name);
    EXPECT_EQ(text(copy._client_name), "xyz");
    EXPECT_TRUE(copy._have_client_name);
    mivo_svc_regn_free_ext(&copy, free_cb, &failing, MIVO_FLAGS_NONE);
    EXPECT_EQ(failing.live(), 0u);
}

TEST_F(MemoryRules, CopyTakesValuesAndFlagsAsTheyAre)
{
    mivo_mgbl_hello hello, hello_copy;
    std::memset(&hello, 0, sizeof hello); // padding compares equal
    std::memset(&hello_copy, 0, sizeof hello_copy);
    mivo_mgbl_hello_init(&hello);
    hello._timestamp = 77;
    hello._respawn = 1;
    hello._have_respawn = 1;
    EXPECT_EQ(mivo_mgbl_hello_duplicate(&hello_copy, &hello, nullptr, nullptr), MIVO_NO_ERROR);
    EXPECT_EQ(std::memcmp(&hello_copy, &hello, sizeof hello), 0);

    // A string present with its flag clear is copied all the same.
    mivo_log_syslog source, copy;
    mivo_log_syslog_init(&source);
    source._data = "text";
    EXPECT_EQ(mivo_log_syslog_duplicate(&copy, &source, alloc_cb, &heap), MIVO_NO_ERROR);
    EXPECT_EQ(text(copy._data), "text");
    EXPECT_FALSE(copy._have_data);
    mivo_log_syslog_free_ext(&copy, free_cb, &heap, MIVO_FLAGS_NONE);
}

TEST_F(MemoryRules, CopyOfNameListWithFailingSecondName)
{
    static const mivo_string_t names[] = {"a", "bc", "def"};
    for (bool flagged : {true, false}) {
        SCOPED_TRACE(flagged);
        counting_allocator failing;
        failing.fail_at(3); // array, first name, then the second name fails
        mivo_mgbl_notify_locations source, copy;
        mivo_mgbl_notify_locations_init(&source);
        source._location_name = names;
        source._location_name_count = 3;
        source._have_location_name = flagged;
        EXPECT_EQ(mivo_mgbl_notify_locations_duplicate(&copy, &source, alloc_cb, &failing), MIVO_ERROR_ALLOC_FAILED);
        EXPECT_EQ(failing.sizes(), (sizes{3 * sizeof(mivo_string_t), 2, 3, 4}));
        ASSERT_EQ(copy._location_name_count, 3u);
        EXPECT_EQ(text(copy._location_name[0]), "a");
        EXPECT_EQ(copy._location_name[1], nullptr);
        EXPECT_EQ(text(copy._location_name[2]), "def");
        EXPECT_EQ(static_cast<bool>(copy._have_location_name), flagged);
        mivo_mgbl_notify_locations_free_ext(&copy, free_cb, &failing, MIVO_FLAGS_NONE);
        expect_no_leak(failing);
    }
}

TEST_F(MemoryRules, CopyOfListsAsksExactSizes)
{
    static const mivo_string_t names[] = {"a", nullptr};
    static const uint32_t ids[] = {7, 8, 9};
    mivo_write_env_temp_thresholds source, copy;
    mivo_write_env_temp_thresholds_init(&source);
    source._sensor_id = ids;
    source._sensor_id_count = 3;
    source._sensor_name = names;
    source._sensor_name_count = 2;
    source._have_sensor_name = source._have_sensor_id = 1;
    EXPECT_EQ(mivo_write_env_temp_thresholds_duplicate(&copy, &source, alloc_cb, &heap), MIVO_NO_ERROR);
    // A null name is copied as null without an allocation or a failure.
    EXPECT_EQ(heap.sizes(), (sizes{3 * sizeof(uint32_t), 2 * sizeof(mivo_string_t), 2}));
    ASSERT_EQ(copy._sensor_id_count, 3u);
    EXPECT_NE(copy._sensor_id, ids);
    EXPECT_EQ(std::vector<uint32_t>(copy._sensor_id, copy._sensor_id + 3), (std::vector<uint32_t>{7, 8, 9}));
    ASSERT_EQ(copy._sensor_name_count, 2u);
    EXPECT_EQ(copy._sensor_name[1], nullptr);
    mivo_write_env_temp_thresholds_free_ext(&copy, free_cb, &heap, MIVO_FLAGS_NONE);

    // A count of 0 carries no pointer over.
    source._sensor_id_count = 0;
    source._sensor_name_count = 0;
    EXPECT_EQ(mivo_write_env_temp_thresholds_duplicate(&copy, &source, alloc_cb, &heap), MIVO_NO_ERROR);
    EXPECT_EQ(copy._sensor_id, nullptr);
    EXPECT_EQ(copy._sensor_id_count, 0u);
    EXPECT_EQ(copy._sensor_name, nullptr);
    EXPECT_TRUE(copy._have_sensor_id && copy._have_sensor_name);
    EXPECT_EQ(heap.sizes().size(), 3u);
}

TEST_F(MemoryRules, ZeroSizeByteStringsCopyAsNull)
{
    static const uint8_t data[] = {0xAA, 0xBB};
    const mivo_bytes blocks[] = {{data, 0}, {data, 2}};
    mivo_write_env_raw_record source, copy;
    mivo_write_env_raw_record_init(&source);
    source._env_raw = blocks;
    source._env_raw_count = 2;
    source._have_env_raw = 1;
    EXPECT_EQ(mivo_write_env_raw_record_duplicate(&copy, &source, alloc_cb, &heap), MIVO_NO_ERROR);
    EXPECT_EQ(heap.sizes(), (sizes{2 * sizeof(mivo_bytes), 2}));
    ASSERT_EQ(copy._env_raw_count, 2u);
    EXPECT_EQ(copy._env_raw[0].data, nullptr);
    EXPECT_EQ(copy._env_raw[0].size, 0u);
    EXPECT_EQ(to_hex(copy._env_raw[1].data, 2), "AA BB");
    mivo_write_env_raw_record_free_ext(&copy, free_cb, &heap, MIVO_FLAGS_NONE);

    mivo_mgbl_request_done done, done_copy;
    mivo_mgbl_request_done_init(&done);
    done._data = {data, 0};
    done._have_data = 1;
    counting_allocator second;
    EXPECT_EQ(mivo_mgbl_request_done_duplicate(&done_copy, &done, alloc_cb, &second), MIVO_NO_ERROR);
    EXPECT_EQ(second.attempts(), 0u);
    EXPECT_EQ(done_copy._data.data, nullptr);
    EXPECT_EQ(done_copy._data.size, 0u);
    EXPECT_TRUE(done_copy._have_data);
}

} // namespace
