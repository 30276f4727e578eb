/*
 * Every public header, compiled as C (gnu11, -pedantic -Werror). The record
 * layouts below are worked out by hand from the layout rules (members in
 * order with natural alignment, a repeated member as pointer + unsigned
 * count, then one 1-bit mivo_bool_t flag per member), so a C caller and the
 * C++ library agree on every offset.
 */
#include "nuvex.h"
#include "nuvex_decode.h"
#include "nuvex_duplicate.h"
#include "nuvex_encode.h"
#include "mivo_tesk_eid_def.h"
#include "mivo_tesk_eid_init.h"
#include "mivo_obfl_mgr_def.h"
#include "mivo_obfl_mgr_init.h"

#include <stddef.h>
#include <stdio.h>
#include <string.h>

_Static_assert(sizeof(mivo_bool_t) == 1, "one-byte boolean");
_Static_assert(sizeof(enum mivo_obfl_rec_type_e) == 4, "enumerations are 32 bits");
_Static_assert(sizeof(enum mivo_flags) == 4, "flags are 32 bits");
_Static_assert(sizeof(struct mivo_bytes) == 16 && offsetof(struct mivo_bytes, size) == 8, "byte string");

/* enum 4, uint32 4, bool 1 (+3), uint32 at 12, bool at 16, flags at 17. */
_Static_assert(offsetof(struct mivo_mgbl_hello, _is_resend_msg) == 8, "hello");
_Static_assert(offsetof(struct mivo_mgbl_hello, _respawn) == 16, "hello");
_Static_assert(sizeof(struct mivo_mgbl_hello) == 20, "hello");

/* Four uint32, then the name array pointer at 16, its count at 24. */
_Static_assert(offsetof(struct mivo_mgbl_notify_locations, _location_name) == 16, "notify");
_Static_assert(offsetof(struct mivo_mgbl_notify_locations, _location_name_count) == 24, "notify");
_Static_assert(offsetof(struct mivo_mgbl_notify_locations, _ha_role) == 28, "notify");
_Static_assert(sizeof(struct mivo_mgbl_notify_locations) == 40, "notify");

/* Reply head with its uint64 aligned to 16, then a uint64 array. */
_Static_assert(offsetof(struct mivo_log_bulk_env_sensor_info_done, _err_code) == 16, "bulk done");
_Static_assert(offsetof(struct mivo_log_bulk_env_sensor_info_done, _ret_errors) == 32, "bulk done");
_Static_assert(offsetof(struct mivo_log_bulk_env_sensor_info_done, _ret_errors_count) == 40, "bulk done");
_Static_assert(sizeof(struct mivo_log_bulk_env_sensor_info_done) == 48, "bulk done");

/* Five uint32 (20 bytes, padded to 24), the tsi pointer, its count, flags. */
_Static_assert(offsetof(struct mivo_tesk_eid_st, _num_tsi) == 16, "eid");
_Static_assert(offsetof(struct mivo_tesk_eid_st, _tsi) == 24, "eid");
_Static_assert(offsetof(struct mivo_tesk_eid_st, _tsi_count) == 32, "eid");
_Static_assert(sizeof(struct mivo_tesk_eid_st) == 40, "eid");
/* Twelve enumerations and twelve flags (two bytes), padded to 52. */
_Static_assert(sizeof(struct mivo_tesk_entity_subtype_un) == 52, "subtype");
_Static_assert(offsetof(struct mivo_tesk_entity_tsi_st, _instance) == 56, "tsi");
_Static_assert(sizeof(struct mivo_tesk_entity_tsi_st) == 64, "tsi");

/* Request head: two identifiers held inside the record from offset 8. */
_Static_assert(offsetof(struct mivo_mgbl_request, _tgt_eid) == 8, "request");
_Static_assert(offsetof(struct mivo_mgbl_request, _src_eid) == 48, "request");
_Static_assert(offsetof(struct mivo_mgbl_request, _is_resend_msg) == 88, "request");
_Static_assert(offsetof(struct mivo_mgbl_request, _force_uci_reset) == 108, "request");
_Static_assert(sizeof(struct mivo_mgbl_request) == 112, "request: ten flags take two bytes");

/* Nineteen members: a string pointer at 112 and three flag bytes at 156. */
_Static_assert(offsetof(struct mivo_log_diag_record, _test_name) == 112, "diag");
_Static_assert(offsetof(struct mivo_log_diag_record, _last_test_pass_ts) == 152, "diag");
_Static_assert(sizeof(struct mivo_log_diag_record) == 160, "diag");

_Static_assert(offsetof(struct mivo_write_env_raw_record, _env_raw) == 136, "raw: after four pointers and a uint32");

/* Bit-fields have no offsetof: setting one flag of a zeroed record must
 * change exactly the byte expected. */
#define EXPECT_FLAG_BYTE(rec, flag, at)                                                  \
    do {                                                                                 \
        struct rec r_;                                                                   \
        const unsigned char *p_ = (const unsigned char *)&r_;                            \
        size_t i_, changed_ = 0;                                                         \
        memset(&r_, 0, sizeof r_);                                                       \
        r_.flag = 1;                                                                     \
        for (i_ = 0; i_ < sizeof r_; ++i_) {                                             \
            changed_ += p_[i_] != 0;                                                     \
        }                                                                                \
        failures += changed_ != 1 || p_[at] == 0 ? (printf("FAILED: %s\n", #rec "." #flag), 1) : 0; \
    } while (0)

int main(void)
{
    static const uint8_t expected[] = {0x08, 0x01, 0x20, 0x05};
    struct mivo_mgbl_hello hello;
    uint8_t buf[8];
    int failures = 0;

    EXPECT_FLAG_BYTE(mivo_mgbl_hello, _have_version, 17);
    EXPECT_FLAG_BYTE(mivo_mgbl_hello, _have_respawn, 17);
    EXPECT_FLAG_BYTE(mivo_mgbl_notify_locations, _have_ha_role, 32);
    EXPECT_FLAG_BYTE(mivo_log_bulk_env_sensor_info_done, _have_ret_errors, 44);
    EXPECT_FLAG_BYTE(mivo_tesk_eid_st, _have_tsi, 36);
    EXPECT_FLAG_BYTE(mivo_log_diag_record, _have_last_test_pass_ts, 158);

    mivo_mgbl_hello_init(&hello);
    hello._version = mivo_OBFL_CUR_VERSION;
    hello._seq_num = 5;
    hello._have_version = 1;
    hello._have_seq_num = 1;
    if (mivo_mgbl_hello_encode_ext(&hello, NULL, 0, NULL, NULL, MIVO_FLAGS_NONE) != 4 ||
        mivo_mgbl_hello_encode_ext(&hello, buf, sizeof buf, NULL, NULL, MIVO_FLAGS_NONE) != 4 ||
        memcmp(buf, expected, 4) != 0) {
        printf("FAILED: hello encodes as 08 01 20 05\n");
        ++failures;
    }
    printf("C header check: %d failed\n", failures);
    return failures == 0 ? 0 : 1;
}
