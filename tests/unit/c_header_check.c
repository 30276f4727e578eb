/*
 * Every public header, compiled as C (gnu11, -pedantic -Werror). The record
 * layouts below are worked out by hand from the layout rules (members in
 * order with natural alignment, a repeated member as pointer + unsigned
 * count, then one 1-bit mivo_bool_t flag per member), so a C caller and the
 * C++ library agree on every offset. Pointers and size_t move what follows
 * them: LP(a, b) gives a where they are 8 bytes (x86-64, 64-bit ARM, s390x)
 * and b where they are 4 (32-bit ARM); uint64_t is 8-aligned on all of them.
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

#define LP(lp64, ilp32) (sizeof(void *) == 8 ? (lp64) : (ilp32))

_Static_assert(sizeof(mivo_bool_t) == 1, "one-byte boolean");
_Static_assert(sizeof(enum mivo_obfl_rec_type_e) == 4, "enumerations are 32 bits");
_Static_assert(sizeof(enum mivo_flags) == 4, "flags are 32 bits");
_Static_assert(sizeof(struct mivo_bytes) == LP(16, 8) && offsetof(struct mivo_bytes, size) == LP(8, 4), "byte string");

/* enum 4, uint32 4, bool 1 (+3), uint32 at 12, bool at 16, flags at 17. */
_Static_assert(offsetof(struct mivo_mgbl_hello, _is_resend_msg) == 8, "hello");
_Static_assert(offsetof(struct mivo_mgbl_hello, _respawn) == 16, "hello");
_Static_assert(sizeof(struct mivo_mgbl_hello) == 20, "hello");

/* Four uint32, then the name array pointer at 16, its count after it. */
_Static_assert(offsetof(struct mivo_mgbl_notify_locations, _location_name) == 16, "notify");
_Static_assert(offsetof(struct mivo_mgbl_notify_locations, _location_name_count) == LP(24, 20), "notify");
_Static_assert(offsetof(struct mivo_mgbl_notify_locations, _ha_role) == LP(28, 24), "notify");
_Static_assert(sizeof(struct mivo_mgbl_notify_locations) == LP(40, 32), "notify");

/* Reply head with its uint64 aligned to 16, then a uint64 array. */
_Static_assert(offsetof(struct mivo_log_bulk_env_sensor_info_done, _err_code) == 16, "bulk done");
_Static_assert(offsetof(struct mivo_log_bulk_env_sensor_info_done, _ret_errors) == 32, "bulk done");
_Static_assert(offsetof(struct mivo_log_bulk_env_sensor_info_done, _ret_errors_count) == LP(40, 36), "bulk done");
_Static_assert(sizeof(struct mivo_log_bulk_env_sensor_info_done) == 48, "bulk done: 8-aligned");

/* Five uint32 (20 bytes, padded to 24 for an 8-byte pointer), the tsi
 * pointer, its count, flags. */
_Static_assert(offsetof(struct mivo_tesk_eid_st, _num_tsi) == 16, "eid");
_Static_assert(offsetof(struct mivo_tesk_eid_st, _tsi) == LP(24, 20), "eid");
_Static_assert(offsetof(struct mivo_tesk_eid_st, _tsi_count) == LP(32, 24), "eid");
_Static_assert(sizeof(struct mivo_tesk_eid_st) == LP(40, 32), "eid");
/* Twelve enumerations and twelve flags (two bytes), padded to 52. */
_Static_assert(sizeof(struct mivo_tesk_entity_subtype_un) == 52, "subtype");
_Static_assert(offsetof(struct mivo_tesk_entity_tsi_st, _instance) == 56, "tsi");
_Static_assert(sizeof(struct mivo_tesk_entity_tsi_st) == 64, "tsi");

/* Request head: two identifiers held inside the record from offset 8. */
_Static_assert(offsetof(struct mivo_mgbl_request, _tgt_eid) == 8, "request");
_Static_assert(offsetof(struct mivo_mgbl_request, _src_eid) == LP(48, 40), "request");
_Static_assert(offsetof(struct mivo_mgbl_request, _is_resend_msg) == LP(88, 72), "request");
_Static_assert(offsetof(struct mivo_mgbl_request, _force_uci_reset) == LP(108, 92), "request");
_Static_assert(sizeof(struct mivo_mgbl_request) == LP(112, 96), "request: ten flags take two bytes");

/* Nineteen members: a string pointer after two identifiers and seven 4-byte
 * members, then nine uint32 and three flag bytes. */
_Static_assert(offsetof(struct mivo_log_diag_record, _test_name) == LP(112, 92), "diag");
_Static_assert(offsetof(struct mivo_log_diag_record, _last_test_pass_ts) == LP(152, 128), "diag");
_Static_assert(sizeof(struct mivo_log_diag_record) == LP(160, 136), "diag");

_Static_assert(offsetof(struct mivo_write_env_raw_record, _env_raw) == LP(136, 104), "raw: after three pointers, a uint32");

/* Bit-fields have no offsetof: setting one flag of a zeroed record must
 * change exactly the byte expected, in the bit expected: flags are taken
 * from the low bit of a byte up on little-endian targets, from the high bit
 * down on big-endian ones. */
#define FLAG_BIT(n) (__BYTE_ORDER__ == __ORDER_BIG_ENDIAN__ ? 0x80u >> (n) : 1u << (n))
#define EXPECT_FLAG(rec, flag, at, bit)                                                  \
    do {                                                                                 \
        struct rec r_;                                                                   \
        const unsigned char *p_ = (const unsigned char *)&r_;                            \
        size_t i_, changed_ = 0;                                                         \
        memset(&r_, 0, sizeof r_);                                                       \
        r_.flag = 1;                                                                     \
        for (i_ = 0; i_ < sizeof r_; ++i_) {                                             \
            changed_ += p_[i_] != 0;                                                     \
        }                                                                                \
        failures += changed_ != 1 || p_[at] != FLAG_BIT(bit) ? (printf("FAILED: %s\n", #rec "." #flag), 1) : 0; \
    } while (0)

int main(void)
{
    static const uint8_t expected[] = {0x08, 0x01, 0x20, 0x05};
    struct mivo_mgbl_hello hello;
    uint8_t buf[8];
    int failures = 0;

    EXPECT_FLAG(mivo_mgbl_hello, _have_version, 17, 0);
    EXPECT_FLAG(mivo_mgbl_hello, _have_respawn, 17, 4);
    EXPECT_FLAG(mivo_mgbl_notify_locations, _have_ha_role, LP(32, 28), 5);
    EXPECT_FLAG(mivo_log_bulk_env_sensor_info_done, _have_ret_errors, LP(44, 40), 6);
    EXPECT_FLAG(mivo_tesk_eid_st, _have_tsi, LP(36, 28), 5);
    EXPECT_FLAG(mivo_log_diag_record, _have_last_test_pass_ts, LP(158, 134), 2);

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
