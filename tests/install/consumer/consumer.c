/* A program built only from an installed copy of the library: it must find
 * every header under include/mivo and link both shared libraries. */
#include <stdio.h>
#include <string.h>

#include "mivo_obfl_mgr_def.h"
#include "mivo_obfl_mgr_init.h"

static void *no_alloc(size_t size, void *token)
{
    (void)size;
    (void)token;
    return NULL;
}

int main(void)
{
    int failures = 0;

    /* A known encoding: version 1, sequence number 5. */
    struct mivo_mgbl_hello hello;
    mivo_mgbl_hello_init(&hello);
    hello._version = mivo_OBFL_CUR_VERSION;
    hello._have_version = 1;
    hello._seq_num = 5;
    hello._have_seq_num = 1;
    static const uint8_t expected[] = {0x08, 0x01, 0x20, 0x05};
    uint8_t wire[16];
    size_t size = mivo_mgbl_hello_encode_ext(&hello, wire, sizeof wire, NULL, NULL, MIVO_FLAGS_NONE);
    if (size != sizeof expected || memcmp(wire, expected, size) != 0) {
        fprintf(stderr, "mgbl_hello encoded wrongly (%zu bytes)\n", size);
        failures++;
    }

    /* An identifier goes through the sibling library, called directly and
     * through a message; a record without strings decodes with no allocator. */
    struct mivo_log_uptime uptime;
    mivo_log_uptime_init(&uptime);
    uptime._tgt_eid._slot_num = 3;
    uptime._tgt_eid._have_slot_num = 1;
    size_t eid_size = mivo_tesk_eid_st_encode_ext(&uptime._tgt_eid, NULL, 0, NULL, NULL, MIVO_FLAGS_NONE);
    size = mivo_log_uptime_encode_ext(&uptime, wire, sizeof wire, NULL, NULL, MIVO_FLAGS_NONE);
    struct mivo_log_uptime back;
    int rc = mivo_log_uptime_decode_ext(&back, wire, size, no_alloc, NULL, MIVO_FLAGS_NONE);
    if (eid_size == 0 || size != eid_size + 2 || rc != MIVO_NO_ERROR || back._tgt_eid._slot_num != 3) {
        fprintf(stderr, "identifier round trip failed (rc %d)\n", rc);
        failures++;
    }

    if (failures == 0)
        printf("installed library works\n");
    return failures == 0 ? 0 : 1;
}
