// Hand-worked wire images: each record below encodes to exactly these bytes,
// and the bytes decode back to the same values and flags. Fragment lists are
// checked piece by piece (pointer and size).
#include <gtest/gtest.h>

#include <climits>
#include <cstring>

#include "unit_support.hpp"

namespace {

using namespace unit;

// Fills zeroed storage with a record of the row's type.
using builder = void (*)(void *);

const uint8_t abc[] = {0x61, 0x62, 0x63};
const uint8_t one_two_three[] = {1, 2, 3};

struct example {
    const char *label;
    const char *message;
    builder build;
    const char *wire;
    // Compare the decoded record byte for byte with the one built: not for
    // records holding pointers, nor where the encoder drops or adds a flag.
    bool compare_record;
};

// One row: the record comes from its initialiser and the statements given.
#define ROW_WITH(label, rec, wire, compare, ...)                                                              \
    example{label, #rec,                                                                                      \
            [](void *p) {                                                                                     \
                [[maybe_unused]] auto &r = *static_cast<mivo_##rec *>(p);                                     \
                mivo_##rec##_init(&r);                                                                        \
                __VA_ARGS__;                                                                                  \
            },                                                                                                \
            wire, compare}
#define ROW(label, rec, wire, ...) ROW_WITH(label, rec, wire, true, __VA_ARGS__)
#define ROW_PTR(label, rec, wire, ...) ROW_WITH(label, rec, wire, false, __VA_ARGS__)
#define ROW_ENCODE_ONLY(label, rec, wire, ...) ROW_WITH(label, rec, wire, false, __VA_ARGS__)

// ROW records are compared byte for byte after decoding; ROW_PTR records hold
// pointers; ROW_ENCODE_ONLY records decode with other flags than they claim.
// Every row is also re-encoded after decoding, which catches a value or flag
// that the decoder put in the wrong member.
std::vector<example> examples()
{
    return {
        ROW("hello_all_members", mgbl_hello, "08 01 10 AC 02 18 01 20 07 28 00",
            r._version = mivo_OBFL_CUR_VERSION; r._timestamp = 300; r._is_resend_msg = 1; r._seq_num = 7;
            r._respawn = 0;
            r._have_version = r._have_timestamp = r._have_is_resend_msg = r._have_seq_num = r._have_respawn = 1),
        ROW("hello_version_and_seq", mgbl_hello, "08 01 20 05",
            r._version = mivo_OBFL_CUR_VERSION; r._seq_num = 5; r._have_version = r._have_seq_num = 1),
        ROW("hello_nothing", mgbl_hello, "", ),
        ROW("hello_done_err_2_32", mgbl_hello_done, "18 80 80 80 80 10",
            r._err_code = 4294967296ull; r._have_err_code = 1),
        ROW_PTR("notify_two_names", mgbl_notify_locations, "2A 01 61 2A 02 62 63",
            static const mivo_string_t names[] = {"a", "bc"}; r._location_name = names; r._location_name_count = 2;
            r._have_location_name = 1),
        ROW("notify_nothing", mgbl_notify_locations, "", ),
        ROW("request_erase_syslog", mgbl_request, "38 03 48 07",
            r._req_type = mivo_OBFL_MGBL_ERASE; r._rec_type = mivo_OBFL_REC_SYSLOG;
            r._have_req_type = r._have_rec_type = 1),
        ROW("unnamed_enum_values", mgbl_request, "38 00 48 63",
            r._req_type = static_cast<mivo_obfl_req_type_e>(0); r._rec_type = static_cast<mivo_obfl_rec_type_e>(99);
            r._have_req_type = r._have_rec_type = 1),
        ROW("request_empty_identifier_flagged", mgbl_request, "1A 00", r._have_tgt_eid = 1),
        ROW_ENCODE_ONLY("request_unflagged_identifier_with_content", mgbl_request, "22 02 08 01",
            r._src_eid._version = 1; r._src_eid._have_version = 1),
        ROW_PTR("request_done_data", mgbl_request_done, "6A 03 01 02 03",
            r._data = {one_two_three, 3}; r._have_data = 1),
        ROW_PTR("request_done_version_data", mgbl_request_done, "08 01 6A 03 61 62 63",
            r._version = mivo_OBFL_CUR_VERSION; r._data = {abc, 3}; r._have_version = r._have_data = 1),
        ROW_PTR("request_done_empty_data", mgbl_request_done, "6A 00", r._have_data = 1),
        ROW_PTR("svc_regn", svc_regn, "30 01 3A 02 61 62 40 04 50 C8 01",
            r._seq_num = 1; r._svc_name = "ab"; r._svc_type = mivo_OBFL_SVC_SYSLOG; r._client_comp_id = 200;
            r._have_seq_num = r._have_svc_name = r._have_svc_type = r._have_client_comp_id = 1),
        ROW_PTR("svc_regn_empty_name", svc_regn, "3A 00", r._svc_name = ""; r._have_svc_name = 1),
        ROW_ENCODE_ONLY("svc_regn_flagged_null_name", svc_regn, "", r._have_svc_name = 1),
        ROW_PTR("svc_unregn", svc_unregn, "38 01 42 02 61 62 48 04 58 C8 01",
            r._seq_num = 1; r._svc_name = "ab"; r._svc_type = mivo_OBFL_SVC_SYSLOG; r._client_comp_id = 200;
            r._have_seq_num = r._have_svc_name = r._have_svc_type = r._have_client_comp_id = 1),
        ROW("svc_regn_done", svc_regn_done, "18 05 20 04 28 00 30 09",
            r._client_id = 5; r._svc_type = mivo_OBFL_SVC_SYSLOG; r._err_code = 0; r._r_msn = 9;
            r._have_client_id = r._have_svc_type = r._have_err_code = r._have_r_msn = 1),
        ROW("svc_unregn_done_max_err", svc_unregn_done, "28 FF FF FF FF FF FF FF FF FF 01",
            r._err_code = UINT64_MAX; r._have_err_code = 1),
        ROW("pep_record_done", write_env_pep_record_done, "08 01 18 07 20 80 80 80 80 10 28 05",
            r._version = mivo_OBFL_CUR_VERSION; r._client_id = 7; r._err_code = 4294967296ull; r._r_msn = 5;
            r._have_version = r._have_client_id = r._have_err_code = r._have_r_msn = 1),
        ROW("raw_record_done_max_err", write_env_raw_record_done, "20 FF FF FF FF FF FF FF FF FF 01",
            r._err_code = UINT64_MAX; r._have_err_code = 1),
        ROW_PTR("pep_record_devname", write_env_pep_record, "52 03 61 62 63",
            r._devname = "abc"; r._have_devname = 1),
        ROW_PTR("raw_record_devname_blocks", write_env_raw_record, "5A 03 61 62 63 6A 02 01 02 6A 01 03",
            static const mivo_bytes blocks[] = {{one_two_three, 2}, {one_two_three + 2, 1}}; r._devname = "abc";
            r._env_raw = blocks; r._env_raw_count = 2; r._have_devname = r._have_env_raw = 1),
        ROW_ENCODE_ONLY("raw_record_flagged_empty_list", write_env_raw_record, "", r._have_env_raw = 1),
        ROW_PTR("temp_thresholds", write_env_temp_thresholds, "50 0A 60 05 60 AC 02 6A 03 61 62 63",
            static const uint32_t ids[] = {5, 300}; static const mivo_string_t names[] = {"abc"};
            r._max_temp_diff = 10; r._sensor_id = ids; r._sensor_id_count = 2; r._sensor_name = names;
            r._sensor_name_count = 1; r._have_max_temp_diff = r._have_sensor_id = r._have_sensor_name = 1),
        ROW_PTR("volt_thresholds_ids", write_env_volt_thresholds, "60 01 60 AC 02",
            static const uint32_t ids[] = {1, 300}; r._sensor_id = ids; r._sensor_id_count = 2;
            r._have_sensor_id = 1),
        ROW_ENCODE_ONLY("volt_thresholds_flagged_empty_lists", write_env_volt_thresholds, "",
            r._have_sensor_id = r._have_sensor_name = 1),
        ROW("syslog_thresholds_done", write_syslog_thresholds_done, "20 03", r._err_code = 3; r._have_err_code = 1),
        ROW_PTR("bulk_values_scales", log_bulk_env_sensor_info, "60 01 60 FF FF FF FF 0F 68 FD FF FF FF 0F",
            static const int32_t values[] = {1, -1}; static const int32_t scales[] = {-3}; r._value = values;
            r._value_count = 2; r._scale = scales; r._scale_count = 1; r._have_value = r._have_scale = 1),
        ROW("sensor_info_int32_max", log_env_sensor_info, "58 FF FF FF FF 07",
            r._value = INT32_MAX; r._have_value = 1),
        ROW("sensor_info_int32_min", log_env_sensor_info, "58 80 80 80 80 08",
            r._value = INT32_MIN; r._have_value = 1),
        ROW("sensor_info_reading", log_env_sensor_info, "08 01 40 01 48 04 58 FB FF FF FF 0F 60 FF FF FF FF 0F",
            r._version = mivo_OBFL_CUR_VERSION; r._sensor_type = mivo_OBFL_SENSOR_TEMP; r._sensor_id = 4;
            r._value = -5; r._scale = -1;
            r._have_version = r._have_sensor_type = r._have_sensor_id = r._have_value = r._have_scale = 1),
        ROW_PTR("bulk_done_errors", log_bulk_env_sensor_info_done, "30 02 38 00 38 05",
            static const uint64_t errors[] = {0, 5}; r._sensor_type = mivo_OBFL_SENSOR_VOLT; r._ret_errors = errors;
            r._ret_errors_count = 2; r._have_sensor_type = r._have_ret_errors = 1),
        ROW_PTR("bulk_done_max_error", log_bulk_env_sensor_info_done, "38 FF FF FF FF FF FF FF FF FF 01",
            static const uint64_t errors[] = {UINT64_MAX}; r._ret_errors = errors; r._ret_errors_count = 1;
            r._have_ret_errors = 1),
        ROW_PTR("syslog_alert_text", log_syslog, "58 02 6A 03 61 62 63",
            r._severity = mivo_OBFL_SYSLOG_SEV_ALERT; r._data = "abc"; r._have_severity = r._have_data = 1),
        ROW_PTR("syslog_service_critical_text", log_syslog, "40 04 58 01 6A 03 61 62 63",
            r._svc_type = mivo_OBFL_SVC_SYSLOG; r._severity = mivo_OBFL_SYSLOG_SEV_CRITICAL; r._data = "abc";
            r._have_svc_type = r._have_severity = r._have_data = 1),
        ROW_PTR("log_str_text", log_str, "62 03 61 62 63", r._data = "abc"; r._have_data = 1),
        ROW("diag_err_and_pass_ts", log_diag_record, "68 AC 02 98 01 01",
            r._err_code = 300; r._last_test_pass_ts = 1; r._have_err_code = r._have_last_test_pass_ts = 1),
        ROW("diag_err_max32", log_diag_record, "68 FF FF FF FF 0F", r._err_code = 4294967295u; r._have_err_code = 1),
        ROW("diag_two_byte_keys", log_diag_record, "78 09 80 01 01 88 01 02 90 01 03 98 01 04",
            r._consecutive_fail_count = 9; r._last_test_exec_ts = 1; r._first_test_fail_ts = 2;
            r._last_test_fail_ts = 3; r._last_test_pass_ts = 4;
            r._have_consecutive_fail_count = r._have_last_test_exec_ts = r._have_first_test_fail_ts = 1;
            r._have_last_test_fail_ts = r._have_last_test_pass_ts = 1),
        ROW("diag_done_rec_type", log_diag_record_done, "30 0C",
            r._rec_type = mivo_OBFL_REC_DIAG_RESULT; r._have_rec_type = 1),
        ROW("uptime", log_uptime, "08 01 28 02 38 03 50 3C",
            r._version = mivo_OBFL_CUR_VERSION; r._client_id = 2; r._seq_num = 3; r._write_interval = 60;
            r._have_version = r._have_client_id = r._have_seq_num = r._have_write_interval = 1),
    };
}

void PrintTo(const example &e, std::ostream *os) { *os << e.label; }

class WorkedExample : public ::testing::TestWithParam<example> {};

TEST_P(WorkedExample, EncodesExactlyAndBoundedAtEveryBufferSize)
{
    const auto &ex = GetParam();
    const auto &ops = ops_of(ex.message);
    record built;
    ex.build(built.get());
    const bytes expected = hex(ex.wire);
    EXPECT_EQ(to_hex(encode(ops, built.get())), to_hex(expected));
    const uint8_t canary = 0x5A;
    for (size_t dest_size = 0; dest_size < expected.size(); ++dest_size) {
        bytes buf(expected.size() + 4, canary);
        ASSERT_EQ(ops.encode(built.get(), buf.data(), dest_size, nullptr, nullptr, MIVO_FLAGS_NONE), expected.size());
        for (size_t i = 0; i < buf.size(); ++i) {
            // Below dest_size a byte is either right or not yet written (a
            // string that does not fit whole is not copied at all).
            if (i >= dest_size) {
                EXPECT_EQ(buf[i], canary) << "byte " << i << " written with dest_size " << dest_size;
            } else if (buf[i] != canary) {
                EXPECT_EQ(buf[i], expected[i]) << "byte " << i << " with dest_size " << dest_size;
            }
        }
    }
}

TEST_P(WorkedExample, DecodesBackToTheSameRecord)
{
    const auto &ex = GetParam();
    const auto &ops = ops_of(ex.message);
    record built, decoded;
    ex.build(built.get());
    const bytes wire = hex(ex.wire);
    counting_allocator heap;
    ASSERT_EQ(ops.decode(decoded.get(), wire.data(), wire.size(), alloc_cb, &heap, MIVO_FLAGS_NONE), MIVO_NO_ERROR);
    if (ex.compare_record) {
        EXPECT_EQ(std::memcmp(built.get(), decoded.get(), ops.record_size), 0) << "decoded record differs";
    }
    EXPECT_EQ(to_hex(encode(ops, decoded.get())), to_hex(wire));
    ops.release(decoded.get(), free_cb, &heap, MIVO_FLAGS_NONE);
    expect_no_leak(heap);
}

INSTANTIATE_TEST_SUITE_P(Catalogue, WorkedExample, ::testing::ValuesIn(examples()),
                         [](const auto &info) { return std::string(info.param.label); });

// The highest field number of each message, from its member table: that
// field is kept, the next one up is skipped, and the wrong wire type on it
// is refused.
struct last_field {
    const char *message;
    unsigned number;
    unsigned wire_type;
};

const last_field last_fields[] = {
    {"svc_regn", 10, 0}, {"svc_regn_done", 6, 0}, {"svc_unregn", 11, 0}, {"svc_unregn_done", 6, 0},
    {"write_env_pep_record", 15, 2}, {"write_env_pep_record_done", 5, 0},
    {"write_env_raw_record", 13, 2}, {"write_env_raw_record_done", 5, 0},
    {"write_env_volt_thresholds", 13, 2}, {"write_env_volt_thresholds_done", 5, 0},
    {"write_env_current_thresholds", 13, 2}, {"write_env_current_thresholds_done", 5, 0},
    {"write_env_temp_thresholds", 13, 2}, {"write_env_temp_thresholds_done", 5, 0},
    {"log_env_sensor_info", 12, 0}, {"log_env_sensor_info_done", 6, 0},
    {"log_bulk_env_sensor_info", 13, 0}, {"log_bulk_env_sensor_info_done", 7, 0},
    {"write_syslog_thresholds", 9, 0}, {"write_syslog_thresholds_done", 5, 0},
    {"log_syslog", 13, 2}, {"log_syslog_done", 5, 0},
    {"log_str_thresholds", 9, 0}, {"log_str_thresholds_done", 5, 0},
    {"log_str", 12, 2}, {"log_str_done", 5, 0},
    {"log_uptime", 11, 0}, {"log_uptime_done", 5, 0},
    {"log_diag_record", 19, 0}, {"log_diag_record_done", 6, 0},
    {"log_diag_str_record", 9, 2}, {"log_diag_str_record_done", 6, 0},
    {"mgbl_hello", 5, 0}, {"mgbl_hello_done", 4, 0}, {"mgbl_notify_locations", 6, 0},
    {"mgbl_request", 10, 0}, {"mgbl_request_done", 13, 2},
};

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

void PrintTo(const last_field &f, std::ostream *os) { *os << f.message; }

class LastField : public ::testing::TestWithParam<last_field> {};

TEST_P(LastField, KeptSkippedOrRefused)
{
    const auto &f = GetParam();
    const auto &ops = ops_of(f.message);
    counting_allocator heap;
    // The result, and what the decoded record encodes to.
    const auto decode = [&](const bytes &in) {
        record r;
        const int rc = ops.decode(r.get(), in.data(), in.size(), alloc_cb, &heap, MIVO_FLAGS_NONE);
        const std::string again = to_hex(encode(ops, r.get()));
        ops.release(r.get(), free_cb, &heap, MIVO_FLAGS_NONE);
        return std::pair{rc, again};
    };
    const bytes known = field(f.number, f.wire_type);
    EXPECT_EQ(decode(known), std::pair(0, to_hex(known)));
    EXPECT_EQ(decode(field(f.number + 1, f.wire_type)), std::pair(0, std::string()));
    EXPECT_EQ(decode(field(f.number, 2 - f.wire_type)).first, MIVO_ERROR_WRONG_TYPE);
    expect_no_leak(heap);
}

INSTANTIATE_TEST_SUITE_P(AllMessages, LastField, ::testing::ValuesIn(last_fields),
                         [](const auto &info) { return std::string(info.param.message); });

static_assert(std::size(last_fields) == 37);

// ---- fragment lists ----

struct piece {
    const void *source; // null: the caller's buffer
    size_t offset;
    size_t size;
};

// Encodes with a counter of the given capacity into a canary-filled buffer
// and checks the result, the buffer, the count and every slot, stored or not.
template <class R>
void expect_gather(encode_fn<R> fn, const R &r, mivo_flags flags, unsigned capacity, const char *buffer,
                   unsigned count, const std::vector<piece> &pieces)
{
    const mivo_bytes unset{reinterpret_cast<const uint8_t *>(0x1), 999};
    uint8_t buf[32];
    std::memset(buf, 0x5A, sizeof buf);
    mivo_bytes frags[8];
    std::fill(std::begin(frags), std::end(frags), unset);
    unsigned n = capacity;
    const bytes expected = hex(buffer);
    EXPECT_EQ(fn(&r, buf, sizeof buf, capacity ? frags : nullptr, &n, flags), expected.size());
    EXPECT_EQ(to_hex(buf, expected.size() + 1), to_hex(expected) + (expected.empty() ? "5A" : " 5A"));
    EXPECT_EQ(n, count);
    bytes joined;
    for (unsigned i = 0; i < 8; ++i) {
        if (i < capacity && i < count) {
            ASSERT_LT(i, pieces.size());
            const auto *base = static_cast<const uint8_t *>(pieces[i].source ? pieces[i].source : buf);
            EXPECT_EQ(frags[i].data, base + pieces[i].offset) << "piece " << i;
            EXPECT_EQ(frags[i].size, pieces[i].size) << "piece " << i;
            joined.insert(joined.end(), frags[i].data, frags[i].data + frags[i].size);
        } else {
            EXPECT_EQ(frags[i].data, unset.data) << "slot " << i << " written";
        }
    }
    if (capacity >= count && count > 0) {
        bytes whole = encode(fn, r); // the same record without the flag
        EXPECT_EQ(to_hex(joined), to_hex(whole)) << "pieces do not make up the message";
    }
}

TEST(Fragments, SharedDataIsAPieceOfItsOwnAtEveryCapacity)
{
    mivo_mgbl_request_done r;
    mivo_mgbl_request_done_init(&r);
    r._version = mivo_OBFL_CUR_VERSION;
    r._data = {abc, 3};
    r._have_version = r._have_data = 1;
    const auto fn = &mivo_mgbl_request_done_encode_ext;
    // The shared contents are not in the buffer and not in the result.
    expect_gather(fn, r, MIVO_FLAG_SHARED, 2, "08 01 6A 03", 2, {{nullptr, 0, 4}, {abc, 0, 3}});
    expect_gather(fn, r, MIVO_FLAG_SHARED, 1, "08 01 6A 03", 2, {{nullptr, 0, 4}});
    expect_gather(fn, r, MIVO_FLAG_SHARED, 0, "08 01 6A 03", 2, {});
    expect_gather(fn, r, MIVO_FLAGS_NONE, 2, "08 01 6A 03 61 62 63", 1, {{nullptr, 0, 7}});
    r._data.size = 0; // an empty byte string stays inline
    expect_gather(fn, r, MIVO_FLAG_SHARED, 2, "08 01 6A 00", 1, {{nullptr, 0, 4}});
}

TEST(Fragments, RawBlocksSharedEmptyBlockStaysInline)
{
    static const uint8_t block[] = {0xAA, 0xBB};
    const mivo_bytes blocks[] = {{block, 2}, {nullptr, 0}};
    mivo_write_env_raw_record r;
    mivo_write_env_raw_record_init(&r);
    r._version = mivo_OBFL_CUR_VERSION;
    r._env_raw = blocks;
    r._env_raw_count = 2;
    r._have_version = r._have_env_raw = 1;
    expect_gather(&mivo_write_env_raw_record_encode_ext, r, MIVO_FLAG_SHARED, 8, "08 01 6A 02 6A 00", 3,
                  {{nullptr, 0, 4}, {block, 0, 2}, {nullptr, 4, 2}});
}

TEST(Fragments, PlainRecordIsOnePieceAndEmptyRecordNone)
{
    mivo_mgbl_hello r;
    mivo_mgbl_hello_init(&r);
    expect_gather(&mivo_mgbl_hello_encode_ext, r, MIVO_FLAGS_NONE, 2, "", 0, {});
    r._version = mivo_OBFL_CUR_VERSION;
    r._seq_num = 5;
    r._have_version = r._have_seq_num = 1;
    expect_gather(&mivo_mgbl_hello_encode_ext, r, MIVO_FLAGS_NONE, 1, "08 01 20 05", 1, {{nullptr, 0, 4}});
}

} // namespace
