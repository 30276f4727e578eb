/*
 * obfl_duplicate: keep a record after its input buffer is gone.
 *
 * A shared decode is the cheapest way in: byte strings point into the input
 * instead of being copied, so the input must outlive the record. A receiver
 * that wants to keep the record longer (queue it, hand it to another
 * thread) duplicates it: the copy owns fresh memory for everything it
 * refers to, byte strings and identifier arrays included, so the decoded
 * record and the input buffer can both be dropped at once.
 *
 * Exits non-zero if any step misbehaves or an allocation is left over.
 */
#include <stdio.h>
#include <stdlib.h>
#include <string.h>

#include "mivo_obfl_mgr_def.h"
#include "mivo_obfl_mgr_init.h"

/* Counts live allocations through the token. */
static void *counting_alloc(size_t size, void *token)
{
    void *p = malloc(size ? size : 1); /* the codec may ask for 0 bytes */
    if (p != NULL)
        ++*(long *)token;
    return p;
}

static void counting_free(void *pointer, void *token)
{
    --*(long *)token;
    free(pointer);
}

static int failures;
#define CHECK(cond)                                                                         \
    do {                                                                                    \
        if (!(cond)) {                                                                      \
            fprintf(stderr, "%s:%d: check failed: %s\n", __FILE__, __LINE__, #cond);       \
            failures++;                                                                     \
        }                                                                                   \
    } while (0)

enum { BLOCK = 2048 };

/* The manager's reply: a block of records for one linecard. */
static uint8_t *encode_reply(const uint8_t *block, size_t *size_p)
{
    struct mivo_tesk_entity_tsi_st path[2];
    mivo_tesk_entity_tsi_st_init(&path[0]);
    mivo_tesk_entity_tsi_st_init(&path[1]);
    path[0]._type = mivo_TESK_ENTITY_TYPE_MODULE;
    path[0]._have_type = 1;
    path[1]._type = mivo_TESK_ENTITY_TYPE_SENSOR;
    path[1]._have_type = 1;
    path[1]._instance = 4;
    path[1]._have_instance = 1;

    struct mivo_mgbl_request_done reply;
    mivo_mgbl_request_done_init(&reply);
    reply._tgt_eid._slot_num = 3;
    reply._tgt_eid._have_slot_num = 1;
    reply._tgt_eid._tsi = path;
    reply._tgt_eid._tsi_count = 2;
    reply._tgt_eid._have_tsi = 1;
    reply._rec_type = mivo_OBFL_REC_TEMP;
    reply._have_rec_type = 1;
    reply._data.data = block;
    reply._data.size = BLOCK;
    reply._have_data = 1;

    size_t size = mivo_mgbl_request_done_encode_ext(&reply, NULL, 0, NULL, NULL, MIVO_FLAGS_NONE);
    uint8_t *wire = malloc(size);
    if (wire == NULL)
        abort();
    mivo_mgbl_request_done_encode_ext(&reply, wire, size, NULL, NULL, MIVO_FLAGS_NONE);
    *size_p = size;
    return wire;
}

int main(void)
{
    uint8_t block[BLOCK];
    for (size_t i = 0; i < BLOCK; i++)
        block[i] = (uint8_t)(i * 13u);
    long live = 0;

    size_t size;
    uint8_t *input = encode_reply(block, &size);

    /* Shared decode: _data points into `input`; the tsi array is allocated. */
    struct mivo_mgbl_request_done received;
    int rc = mivo_mgbl_request_done_decode_ext(&received, input, size, counting_alloc, &live, MIVO_FLAG_SHARED);
    CHECK(rc == MIVO_NO_ERROR);
    CHECK(received._data.data >= input && received._data.data < input + size);

    /* The copy owns everything; a failed copy is released the same way. */
    struct mivo_mgbl_request_done kept;
    rc = mivo_mgbl_request_done_duplicate(&kept, &received, counting_alloc, &live);
    CHECK(rc == MIVO_NO_ERROR);
    printf("copied    %zu data bytes and %u tsi entries, %ld allocations live\n", kept._data.size,
           kept._tgt_eid._tsi_count, live);

    /* Drop the decode (with its flags) and the input; scribble first to show
     * that the copy no longer depends on it. */
    mivo_mgbl_request_done_free_ext(&received, counting_free, &live, MIVO_FLAG_SHARED);
    memset(input, 0xDD, size);
    free(input);

    CHECK(kept._have_data && kept._data.size == BLOCK && memcmp(kept._data.data, block, BLOCK) == 0);
    CHECK(kept._tgt_eid._tsi_count == 2 && kept._tgt_eid._tsi[1]._instance == 4);
    CHECK(kept._rec_type == mivo_OBFL_REC_TEMP);
    printf("kept      slot %u, record type %u, data intact after the input was freed\n",
           kept._tgt_eid._slot_num, (unsigned)kept._rec_type);

    /* A copy is always released with MIVO_FLAGS_NONE: it owns its bytes. */
    mivo_mgbl_request_done_free_ext(&kept, counting_free, &live, MIVO_FLAGS_NONE);
    printf("released  %ld allocations live\n", live);
    CHECK(live == 0);
    return failures == 0 ? EXIT_SUCCESS : EXIT_FAILURE;
}
