/*
 * obfl_arena: decode into an arena and drop whole decodes at once.
 *
 * The decoder passes its token, untouched, to every allocator call. Here the
 * token is the arena to carve from, so a batch of records can be decoded
 * into one block of memory and given up in a single step once the batch is
 * handled, without a release call per record. An arena that runs out makes
 * the decode fail with MIVO_ERROR_ALLOC_FAILED; what it had taken so far
 * still lies in the arena, so the same reset covers failed decodes too.
 *
 * Exits non-zero if any step misbehaves.
 */
#include <stddef.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>

#include "mivo_obfl_mgr_def.h"
#include "mivo_obfl_mgr_init.h"

struct arena {
    unsigned char *base;
    size_t used;
    size_t size;
};

/* Bump allocation, aligned for any type the codec stores. */
static void *arena_alloc(size_t size, void *token)
{
    struct arena *a = token;
    const size_t align = _Alignof(max_align_t);
    size_t at = (a->used + align - 1) / align * align;
    if (at > a->size || size > a->size - at)
        return NULL;
    a->used = at + size;
    return a->base + at;
}

/* Everything decoded into the arena is gone at once. */
static void arena_reset(struct arena *a) { a->used = 0; }

static int failures;
#define CHECK(cond)                                                                         \
    do {                                                                                    \
        if (!(cond)) {                                                                      \
            fprintf(stderr, "%s:%d: check failed: %s\n", __FILE__, __LINE__, #cond);       \
            failures++;                                                                     \
        }                                                                                   \
    } while (0)

enum { SENSORS = 32, BATCH = 4 };

/* A bulk sensor reading as a client would send it. */
static size_t encode_reading(uint32_t seq, uint8_t *wire, size_t wire_size)
{
    uint32_t ids[SENSORS];
    int32_t values[SENSORS];
    for (uint32_t i = 0; i < SENSORS; i++) {
        ids[i] = 100 + i;
        values[i] = (int32_t)(seq * 10 + i) - 20; /* negative values too */
    }
    struct mivo_log_bulk_env_sensor_info msg;
    mivo_log_bulk_env_sensor_info_init(&msg);
    msg._seq_num = seq;
    msg._have_seq_num = 1;
    msg._sensor_type = mivo_OBFL_SENSOR_TEMP;
    msg._have_sensor_type = 1;
    msg._sensor_id = ids;
    msg._sensor_id_count = SENSORS;
    msg._have_sensor_id = 1;
    msg._value = values;
    msg._value_count = SENSORS;
    msg._have_value = 1;
    return mivo_log_bulk_env_sensor_info_encode_ext(&msg, wire, wire_size, NULL, NULL, MIVO_FLAGS_NONE);
}

int main(void)
{
    _Alignas(max_align_t) static unsigned char storage[4096];
    struct arena arena = {storage, 0, sizeof storage};

    uint8_t wire[BATCH][512];
    size_t sizes[BATCH];
    for (uint32_t i = 0; i < BATCH; i++) {
        sizes[i] = encode_reading(i, wire[i], sizeof wire[i]);
        CHECK(sizes[i] <= sizeof wire[i]);
    }

    /* A batch of decodes, all into the one arena; no release calls. */
    struct mivo_log_bulk_env_sensor_info batch[BATCH];
    long sum = 0;
    for (int i = 0; i < BATCH; i++) {
        int rc = mivo_log_bulk_env_sensor_info_decode_ext(&batch[i], wire[i], sizes[i], arena_alloc, &arena,
                                                          MIVO_FLAGS_NONE);
        CHECK(rc == MIVO_NO_ERROR && batch[i]._value_count == SENSORS);
        for (unsigned int s = 0; s < batch[i]._value_count; s++)
            sum += batch[i]._value[s];
    }
    printf("decoded   %d readings into %zu arena bytes, value sum %ld\n", BATCH, arena.used, sum);
    CHECK(arena.used >= BATCH * SENSORS * 2 * sizeof(uint32_t));
    CHECK(sum == 4 * (32 * 31 / 2) + 32 * (0 + 10 + 20 + 30) - 4 * 32 * 20);
    arena_reset(&arena); /* the whole batch is handed back here */

    /* Too small an arena: the decode fails part-way, the reset still covers it. */
    struct arena tiny = {storage, 0, 3 * sizeof(uint32_t) * SENSORS / 2};
    struct mivo_log_bulk_env_sensor_info partial;
    int rc = mivo_log_bulk_env_sensor_info_decode_ext(&partial, wire[0], sizes[0], arena_alloc, &tiny,
                                                      MIVO_FLAGS_NONE);
    printf("decoded   into a %zu-byte arena: result %d, %zu bytes taken\n", tiny.size, rc, tiny.used);
    CHECK(rc == MIVO_ERROR_ALLOC_FAILED && tiny.used > 0);
    arena_reset(&tiny);

    return failures == 0 ? EXIT_SUCCESS : EXIT_FAILURE;
}
