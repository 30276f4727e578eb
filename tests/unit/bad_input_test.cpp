// Input the decoders must refuse, or tolerate, with the exact result code,
// what the record holds afterwards and no leak. What the record holds is
// read back by encoding it: members decoded before a failure keep their
// values and flags, so they reappear, and nothing else does. Every case is
// decoded with the counting allocator and released with the decode's flags.
#include <gtest/gtest.h>

#include <cstring>

#include "unit_support.hpp"

namespace {

using namespace unit;

constexpr int ok = MIVO_NO_ERROR;
constexpr int garbled = MIVO_ERROR_GARBLED;
constexpr int unsupported = MIVO_ERROR_UNSUPPORTED;
constexpr int wrong_type = MIVO_ERROR_WRONG_TYPE;
constexpr int alloc_failed = MIVO_ERROR_ALLOC_FAILED;
constexpr mivo_flags none = MIVO_FLAGS_NONE;
constexpr mivo_flags shared = MIVO_FLAG_SHARED;
constexpr bool no_allocator = false;

struct bad_case {
    const char *label;
    const char *message;
    const char *input;
    int rc;
    const char *after; // the record afterwards, encoded
    mivo_flags flags = none;
    bool with_allocator = true;
};

const bad_case cases[] = {
    // ---- truncated keys, values and lengths ----
    {"first_key_truncated", "mgbl_hello", "80", garbled, ""},
    {"key_truncated_after_member", "log_diag_record", "08 01 80", garbled, "08 01"},
    {"two_byte_key_cut", "log_diag_record", "08 01 98", garbled, "08 01"},
    {"value_missing", "mgbl_hello", "08", garbled, ""},
    {"value_truncated", "mgbl_hello", "08 01 10 80", garbled, "08 01"},
    {"uint64_value_truncated", "mgbl_hello_done", "08 01 18 FF FF", garbled, "08 01"},
    {"length_missing", "svc_regn", "3A", garbled, ""},
    {"length_truncated", "svc_regn", "3A 80", garbled, ""},
    {"string_past_end", "svc_regn", "30 01 3A 05 61 62", garbled, "30 01"},
    {"bytes_past_end", "mgbl_request_done", "6A 04 01 02 03", garbled, ""},
    {"shared_bytes_past_end", "mgbl_request_done", "6A 04 01 02 03", garbled, "", shared},
    {"identifier_past_end", "mgbl_request", "1A 05 08 01", garbled, ""},
    // A run is counted before anything is allocated.
    {"repeated_number_truncated", "write_env_volt_thresholds", "58 02 60 01 60", garbled, "58 02"},
    {"repeated_string_past_end", "mgbl_notify_locations", "2A 01 61 2A 05 62", garbled, ""},
    {"repeated_bytes_past_end", "write_env_raw_record", "6A 01 61 6A 02 62", garbled, ""},
    {"unknown_varint_truncated", "mgbl_hello", "08 01 30 80", garbled, "08 01"},
    {"unknown_length_truncated", "mgbl_hello", "08 01 32 80", garbled, "08 01"},
    // A skip past the end is the end of the input, not an error.
    {"unknown_length_past_end", "mgbl_hello", "08 01 32 05 61", ok, "08 01"},
    {"unknown_fixed64_cut", "mgbl_hello", "08 01 31 00 00", ok, "08 01"},
    {"unknown_fixed32_cut", "mgbl_hello", "08 01 35 00", ok, "08 01"},

    // ---- wrong wire types on known fields ----
    {"scalar_as_length", "mgbl_hello", "08 01 12 00", wrong_type, "08 01"},
    {"scalar_as_fixed32", "mgbl_hello", "0D 01 00 00 00", wrong_type, ""},
    {"uint64_as_fixed64", "mgbl_hello_done", "19 01 00 00 00 00 00 00 00", wrong_type, ""},
    {"scalar_as_group", "mgbl_hello", "0B", wrong_type, ""},
    {"identifier_as_varint", "mgbl_request", "18 00", wrong_type, ""},
    {"enum_as_length", "mgbl_request", "08 01 3A 00", wrong_type, "08 01"},
    {"string_as_varint", "svc_regn", "38 00", wrong_type, ""},
    {"bytes_as_varint", "mgbl_request_done", "68 00", wrong_type, ""},
    {"packed_repeated_uint32", "write_env_volt_thresholds", "62 02 01 02", wrong_type, ""},
    {"packed_repeated_int32", "log_bulk_env_sensor_info", "62 01 01", wrong_type, ""},
    {"packed_repeated_uint64", "log_bulk_env_sensor_info_done", "3A 01 00", wrong_type, ""},
    {"repeated_string_as_varint", "mgbl_notify_locations", "28 01", wrong_type, ""},
    // The text field of a logged string is the tag field of a syslog record.
    {"log_str_read_as_syslog", "log_syslog", "62 03 61 62 63", wrong_type, ""},

    // ---- group wire types on unknown fields ----
    {"group_start_unknown", "mgbl_hello", "08 01 33", unsupported, "08 01"},
    {"group_end_unknown", "mgbl_hello", "34", unsupported, ""},
    {"wire_type_6_unknown", "mgbl_hello", "36", unsupported, ""},
    {"wire_type_7_unknown", "mgbl_hello", "37", unsupported, ""},
    {"group_on_field_0", "svc_regn_done", "03", unsupported, ""},
    {"group_above_last_field", "log_diag_record", "A3 01", unsupported, ""},

    // ---- unknown fields of wire types 0, 1, 2, 5 and field 0 are skipped ----
    {"unknown_fields_skipped", "mgbl_hello",
     "30 05 31 01 02 03 04 05 06 07 08 32 02 61 62 35 01 02 03 04 "
     "00 07 01 01 02 03 04 05 06 07 08 02 01 61 05 01 02 03 04 80 80 80 80 08 00",
     ok, ""},
    {"unknown_between_members", "mgbl_hello", "08 01 60 05 20 07", ok, "08 01 20 07"},

    // ---- a repeated member in a second run ----
    {"second_run_of_numbers", "write_env_volt_thresholds", "60 01 58 02 60 03", garbled, "58 02 60 01"},
    {"alternating_lists", "log_bulk_env_sensor_info", "50 01 60 01 50 02", garbled, "50 01 60 01"},
    {"second_run_of_names", "mgbl_notify_locations", "2A 01 61 08 01 2A 01 62", garbled, "08 01 2A 01 61"},
    {"second_run_of_blocks", "write_env_raw_record", "6A 01 61 40 01 6A 01 62", garbled, "40 01 6A 01 61"},
    {"second_run_of_shared_blocks", "write_env_raw_record", "6A 01 61 40 01 6A 01 62", garbled, "40 01 6A 01 61",
     shared},
    {"second_run_of_uint64", "log_bulk_env_sensor_info_done", "38 01 30 02 38 03", garbled, "30 02 38 01"},
    // Within a run only the field number counts: a mistyped key is one more element.
    {"run_continues_on_field_number", "write_env_volt_thresholds", "60 01 62 05", ok, "60 01 60 05"},

    // ---- a string or byte string given twice ----
    {"string_twice", "svc_regn", "3A 01 61 3A 01 62", garbled, "3A 01 61"},
    {"text_twice", "log_syslog", "6A 01 61 6A 01 62", garbled, "6A 01 61"},
    {"bytes_twice", "mgbl_request_done", "6A 01 61 6A 01 62", garbled, "6A 01 61"},
    {"shared_bytes_twice", "mgbl_request_done", "6A 01 61 6A 01 62", garbled, "6A 01 61", shared},
    {"number_twice_last_wins", "mgbl_hello", "08 01 08 02", ok, "08 02"},
    {"identifier_twice_merges", "mgbl_request", "1A 02 08 01 1A 02 10 02", ok, "1A 04 08 01 10 02"},

    // ---- no allocator ----
    {"null_allocator_string", "svc_regn", "30 01 3A 01 61", alloc_failed, "30 01", none, no_allocator},
    {"null_allocator_empty_string", "svc_regn", "3A 00", alloc_failed, "", none, no_allocator},
    {"null_allocator_names", "mgbl_notify_locations", "2A 01 61", alloc_failed, "", none, no_allocator},
    {"null_allocator_numbers", "write_env_volt_thresholds", "60 01", alloc_failed, "", none, no_allocator},
    {"null_allocator_shared_numbers", "write_env_volt_thresholds", "60 01", alloc_failed, "", shared, no_allocator},
    {"null_allocator_uint64_list", "log_bulk_env_sensor_info_done", "38 01", alloc_failed, "", none, no_allocator},
    {"null_allocator_shared_blocks", "write_env_raw_record", "6A 01 61", alloc_failed, "", shared, no_allocator},
    {"null_allocator_bytes", "mgbl_request_done", "08 01 6A 01 61", alloc_failed, "08 01", none, no_allocator},
    {"null_allocator_shared_bytes", "mgbl_request_done", "6A 01 61", ok, "6A 01 61", shared, no_allocator},
    {"null_allocator_reply", "svc_regn_done", "18 05 20 04 28 00 30 09", ok, "18 05 20 04 28 00 30 09", none,
     no_allocator},
    {"null_allocator_scalar_identifier", "mgbl_request", "1A 02 08 01 38 02", ok, "1A 02 08 01 38 02", none,
     no_allocator},

    // ---- unusual but valid values ----
    {"bool_of_2_pow_32_is_false", "mgbl_hello", "18 80 80 80 80 10", ok, "18 00"},
    {"bool_of_5_is_true", "mgbl_hello", "18 05", ok, "18 01"},
    {"uint32_keeps_low_bits", "mgbl_hello", "10 80 80 80 80 10", ok, "10 00"},
    {"diag_err_code_wider_than_32", "log_diag_record", "68 81 80 80 80 10", ok, "68 01"},
    {"int32_ten_byte_minus_one", "log_env_sensor_info", "58 FF FF FF FF FF FF FF FF FF 01", ok, "58 FF FF FF FF 0F"},
    {"sensor_type_without_name", "log_env_sensor_info", "40 07", ok, "40 07"},
    {"28_07_is_client_id_in_unregn", "svc_unregn", "28 07", ok, "28 07"},
    {"28_07_is_resend_in_regn", "svc_regn", "28 07", ok, "28 01"},
    {"names_before_ids", "write_env_temp_thresholds", "6A 01 61 60 05 60 06", ok, "60 05 60 06 6A 01 61"},
    {"volt_read_as_current", "write_env_current_thresholds", "50 07 60 05", ok, "50 07 60 05"},
};

void PrintTo(const bad_case &c, std::ostream *os) { *os << c.label; }

class BadInput : public ::testing::TestWithParam<bad_case> {};

TEST_P(BadInput, ResultRecordAndNoLeak)
{
    const auto &c = GetParam();
    const auto &ops = ops_of(c.message);
    const bytes in = hex(c.input);
    counting_allocator heap;
    record r;
    // Stale contents: the decoder must reset the record before anything else.
    std::memset(r.get(), 0xA5, ops.record_size);

    EXPECT_EQ(ops.decode(r.get(), in.data(), in.size(), c.with_allocator ? alloc_cb : nullptr, &heap, c.flags), c.rc);
    EXPECT_EQ(to_hex(encode(ops, r.get())), to_hex(hex(c.after)));
    ops.release(r.get(), free_cb, &heap, c.flags);
    expect_no_leak(heap);
    if (!c.with_allocator) {
        EXPECT_EQ(heap.attempts(), 0u);
    }
}

INSTANTIATE_TEST_SUITE_P(Decoder, BadInput, ::testing::ValuesIn(cases),
                         [](const auto &info) { return std::string(info.param.label); });

} // namespace
