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
_Static_assert(offsetof(struct mivo_mgbl_hello, _timestamp) == 4, "hello");
_Static_assert(offsetof(struct mivo_mgbl_hello, _is_resend_msg) == 8, "hello");
_Static_assert(offsetof(struct mivo_mgbl_hello, _seq_num) == 12, "hello");
_Static_assert(offsetof(struct mivo_mgbl_hello, _respawn) == 16, "hello");
_Static_assert(sizeof(struct mivo_mgbl_hello) == 20, "hello");

/* Four uint32, then the name array pointer at 16, its count at 24. */
_Static_assert(offsetof(struct mivo_mgbl_notify_locations, _location_name) == 16, "notify");
_Static_assert(offsetof(struct mivo_mgbl_notify_locations, _location_name_count) == 24, "notify");
_Static_assert(offsetof(struct mivo_mgbl_notify_locations, _ha_role) == 28, "notify");
_Static_assert(sizeof(struct mivo_mgbl_notify_locations) == 40, "notify");

/* Reply head with its uint64 aligned to 16, then a uint64 array. */
_Static_assert(offsetof(struct mivo_log_bulk_env_sensor_info_done, _client_id) == 8, "bulk done");
_Static_assert(offsetof(struct mivo_log_bulk_env_sensor_info_done, _err_code) == 16, "bulk done");
_Static_assert(offsetof(struct mivo_log_bulk_env_sensor_info_done, _r_msn) == 24, "bulk done");
_Static_assert(offsetof(struct mivo_log_bulk_env_sensor_info_done, _sensor_type) == 28, "bulk done");
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

static int failures;

static void check(int ok, const char *what)
{
    if (!ok) {
        printf("FAILED: %s\n", what);
        ++failures;
    }
}

/* Bit-fields have no offsetof: find the byte that one set flag changes. */
static size_t flag_byte(const void *record, size_t size)
{
    const unsigned char *p = record;
    size_t i, found = (size_t)-1;
    for (i = 0; i < size; ++i) {
        if (p[i] != 0) {
            found = (found == (size_t)-1) ? i : (size_t)-2;
        }
    }
    return found;
}

/* The one byte that setting a single flag of a zeroed record changes. */
#define CHECK_FLAG_BYTE(rec, flag, expected)                                   \
    do {                                                                       \
        struct rec r_;                                                         \
        memset(&r_, 0, sizeof r_);                                             \
        r_.flag = 1;                                                           \
        check(flag_byte(&r_, sizeof r_) == (expected), #rec "." #flag);        \
    } while (0)

int main(void)
{
    struct mivo_mgbl_hello hello;
    uint8_t buf[8];
    size_t n;

    CHECK_FLAG_BYTE(mivo_mgbl_hello, _have_version, 17);
    CHECK_FLAG_BYTE(mivo_mgbl_hello, _have_respawn, 17);
    CHECK_FLAG_BYTE(mivo_mgbl_notify_locations, _have_ha_role, 32);
    CHECK_FLAG_BYTE(mivo_log_bulk_env_sensor_info_done, _have_ret_errors, 44);
    CHECK_FLAG_BYTE(mivo_tesk_eid_st, _have_tsi, 36);
    CHECK_FLAG_BYTE(mivo_log_diag_record, _have_last_test_pass_ts, 158);

    mivo_mgbl_hello_init(&hello);
    hello._version = mivo_OBFL_CUR_VERSION;
    hello._seq_num = 5;
    hello._have_version = 1;
    hello._have_seq_num = 1;
    n = mivo_mgbl_hello_encode_ext(&hello, NULL, 0, NULL, NULL, MIVO_FLAGS_NONE);
    check(n == 4, "hello measures 4 bytes");
    n = mivo_mgbl_hello_encode_ext(&hello, buf, sizeof buf, NULL, NULL, MIVO_FLAGS_NONE);
    check(n == 4 && buf[0] == 0x08 && buf[1] == 0x01 && buf[2] == 0x20 && buf[3] == 0x05, "hello bytes 08 01 20 05");

    if (failures == 0) {
        printf("C header check passed\n");
    }
    return failures == 0 ? 0 : 1;
}
