/*
 * obfl_round_trip: the life of two messages between a logging client and the
 * OBFL manager, with every byte that crosses the "wire" printed.
 *
 * Round 1: a client logs a syslog message (mivo_log_syslog), the manager
 *          decodes it with its own allocator, releases it and answers with a
 *          mivo_log_syslog_done.
 * Round 2: the manager answers a get request with a 64 KiB block of records
 *          (mivo_mgbl_request_done) and sends it without copying the block:
 *          the encoder hands it out as a fragment of its own, and the client
 *          decodes in shared mode so that the record points into the bytes
 *          it received.
 *
 * Exits non-zero if any step misbehaves or an allocation is left over.
 */
#include <stdio.h>
#include <stdlib.h>
#include <string.h>

#include "mivo_obfl_mgr_def.h"
#include "mivo_obfl_mgr_init.h"

/* The token handed to every decode and release: proves that the library
 * gives back exactly what it took. */
struct alloc_counter {
    long live;
    long total;
};

static void *counting_alloc(size_t size, void *token)
{
    struct alloc_counter *counter = token;
    /* The codec may ask for 0 bytes (an empty byte string); malloc(0) may
     * legally return null, which the codec would take as a failure. */
    void *p = malloc(size ? size : 1);
    if (p != NULL) {
        counter->live++;
        counter->total++;
    }
    return p;
}

static void counting_free(void *pointer, void *token)
{
    struct alloc_counter *counter = token;
    counter->live--;
    free(pointer);
}

static int failures;

#define CHECK(cond)                                                        \
    do {                                                                   \
        if (!(cond)) {                                                     \
            fprintf(stderr, "%s:%d: check failed: %s\n", __FILE__, __LINE__, #cond); \
            failures++;                                                    \
        }                                                                  \
    } while (0)

/* Long blocks are cut to their head and tail so the output stays readable. */
static void print_hex(const char *label, const uint8_t *bytes, size_t size)
{
    enum { HEAD = 24, TAIL = 8 };
    printf("  %-22s %5zu bytes:", label, size);
    for (size_t i = 0; i < size; i++) {
        if (size > HEAD + TAIL && i == HEAD) {
            printf(" ... (%zu more) ...", size - HEAD - TAIL);
            i = size - TAIL;
        }
        printf(" %02X", bytes[i]);
    }
    printf("\n");
}

static const char *severity_name(enum mivo_syslog_sev_e severity)
{
    switch (severity) {
    case mivo_OBFL_SYSLOG_SEV_EMERGENCY: return "emergency";
    case mivo_OBFL_SYSLOG_SEV_CRITICAL: return "critical";
    case mivo_OBFL_SYSLOG_SEV_ALERT: return "alert";
    }
    return "(unnamed)"; /* any 32-bit value travels */
}

/* ---- round 1: mivo_log_syslog and its reply ------------------------------ */

/* Client side: fill, measure, encode. The caller owns the returned buffer. */
static uint8_t *client_encode_syslog(size_t *size_p)
{
    struct mivo_log_syslog request;
    mivo_log_syslog_init(&request);
    request._version = mivo_OBFL_CUR_VERSION;
    request._have_version = 1;
    request._client_id = 42;
    request._have_client_id = 1;
    request._severity = mivo_OBFL_SYSLOG_SEV_CRITICAL;
    request._have_severity = 1;
    request._data = "fan tray 1 removed";
    request._have_data = 1;

    /* A buffer size of 0 only measures; nothing is written. */
    size_t needed = mivo_log_syslog_encode_ext(&request, NULL, 0, NULL, NULL, MIVO_FLAGS_NONE);
    uint8_t *wire = malloc(needed);
    if (wire == NULL)
        abort();
    size_t written = mivo_log_syslog_encode_ext(&request, wire, needed, NULL, NULL, MIVO_FLAGS_NONE);
    CHECK(written == needed);

    printf("client  -> manager  mivo_log_syslog\n");
    print_hex("wire", wire, written);
    *size_p = written;
    return wire;
}

/* Manager side: decode, act, release, answer. Returns the encoded reply. */
static uint8_t *manager_handle_syslog(const uint8_t *wire, size_t size, struct alloc_counter *counter,
                                      size_t *reply_size_p)
{
    struct mivo_log_syslog request;
    int rc = mivo_log_syslog_decode_ext(&request, wire, size, counting_alloc, counter, MIVO_FLAGS_NONE);
    CHECK(rc == MIVO_NO_ERROR);

    printf("manager decoded     version %u, client %u, severity %s, text \"%s\"\n",
           (unsigned)request._version, request._client_id, severity_name(request._severity),
           request._have_data ? request._data : "");
    /* Strings are always copied: the text is the record's own allocation. */
    printf("  allocations held by the record: %ld\n", counter->live);
    CHECK(request._have_client_id && request._client_id == 42);
    CHECK(request._have_data && strcmp(request._data, "fan tray 1 removed") == 0);
    CHECK(!request._have_timestamp);
    CHECK(counter->live == 1);

    uint32_t client_id = request._client_id;
    /* Same flags as the decode; released even if the decode had failed. */
    mivo_log_syslog_free_ext(&request, counting_free, counter, MIVO_FLAGS_NONE);
    CHECK(counter->live == 0);

    struct mivo_log_syslog_done reply;
    mivo_log_syslog_done_init(&reply);
    reply._version = mivo_OBFL_CUR_VERSION;
    reply._have_version = 1;
    reply._client_id = client_id;
    reply._have_client_id = 1;
    reply._err_code = 0;
    reply._have_err_code = 1;

    size_t needed = mivo_log_syslog_done_encode_ext(&reply, NULL, 0, NULL, NULL, MIVO_FLAGS_NONE);
    uint8_t *out = malloc(needed);
    if (out == NULL)
        abort();
    CHECK(mivo_log_syslog_done_encode_ext(&reply, out, needed, NULL, NULL, MIVO_FLAGS_NONE) == needed);

    printf("manager -> client   mivo_log_syslog_done\n");
    print_hex("wire", out, needed);
    *reply_size_p = needed;
    return out;
}

static void client_handle_syslog_done(const uint8_t *wire, size_t size, struct alloc_counter *counter)
{
    struct mivo_log_syslog_done reply;
    int rc = mivo_log_syslog_done_decode_ext(&reply, wire, size, counting_alloc, counter, MIVO_FLAGS_NONE);
    CHECK(rc == MIVO_NO_ERROR);
    printf("client  decoded     client %u, error code %llu\n", reply._client_id,
           (unsigned long long)reply._err_code);
    CHECK(reply._have_err_code && reply._err_code == 0);
    CHECK(reply._client_id == 42);
    mivo_log_syslog_done_free_ext(&reply, counting_free, counter, MIVO_FLAGS_NONE);
}

/* ---- round 2: a large block without copies ------------------------------- */

enum { BLOCK_SIZE = 64 * 1024 };

static void round_two(struct alloc_counter *counter)
{
    /* The manager's block of logged records, e.g. straight from flash. */
    uint8_t *block = malloc(BLOCK_SIZE);
    if (block == NULL)
        abort();
    for (size_t i = 0; i < BLOCK_SIZE; i++)
        block[i] = (uint8_t)(i * 7u);

    struct mivo_mgbl_request_done reply;
    mivo_mgbl_request_done_init(&reply);
    reply._version = mivo_OBFL_CUR_VERSION;
    reply._have_version = 1;
    reply._req_type = mivo_OBFL_MGBL_GET;
    reply._have_req_type = 1;
    reply._rec_type = mivo_OBFL_REC_SYSLOG;
    reply._have_rec_type = 1;
    reply._num_records = 512;
    reply._have_num_records = 1;
    reply._last_response = 1;
    reply._have_last_response = 1;
    reply._data.data = block;
    reply._data.size = BLOCK_SIZE;
    reply._have_data = 1;

    /* Capacity 0: learn the inline length and the number of pieces. */
    unsigned int pieces = 0;
    size_t inline_size = mivo_mgbl_request_done_encode_ext(&reply, NULL, 0, NULL, &pieces, MIVO_FLAG_SHARED);

    uint8_t *head = malloc(inline_size);
    struct mivo_bytes *frags = malloc(pieces * sizeof *frags);
    if (head == NULL || frags == NULL)
        abort();
    unsigned int stored = pieces;
    CHECK(mivo_mgbl_request_done_encode_ext(&reply, head, inline_size, frags, &stored, MIVO_FLAG_SHARED) ==
          inline_size);
    CHECK(stored == pieces);

    printf("\nmanager -> client   mivo_mgbl_request_done, %zu inline bytes in %u pieces\n", inline_size, pieces);
    size_t total = 0;
    for (unsigned int i = 0; i < stored; i++) {
        const char *where = frags[i].data == block ? "caller's block" : "encode buffer";
        char label[48];
        snprintf(label, sizeof label, "piece %u (%s)", i, where);
        print_hex(label, frags[i].data, frags[i].size);
        total += frags[i].size;
    }
    /* The block was never copied: its piece is the caller's own memory. */
    CHECK(pieces == 2);
    CHECK(frags[pieces - 1].data == block && frags[pieces - 1].size == BLOCK_SIZE);
    CHECK(total == inline_size + BLOCK_SIZE);

    /* The transport gathers the pieces; here we simply concatenate them. */
    uint8_t *received = malloc(total);
    if (received == NULL)
        abort();
    size_t at = 0;
    for (unsigned int i = 0; i < stored; i++) {
        memcpy(received + at, frags[i].data, frags[i].size);
        at += frags[i].size;
    }
    print_hex("wire", received, total);

    /* Shared decode: _data points into `received`, which must stay unchanged
     * and alive until the record is released. */
    struct mivo_mgbl_request_done got;
    long before = counter->total;
    int rc = mivo_mgbl_request_done_decode_ext(&got, received, total, counting_alloc, counter, MIVO_FLAG_SHARED);
    CHECK(rc == MIVO_NO_ERROR);
    size_t data_offset = (size_t)(got._data.data - received);
    printf("client  decoded     %llu records, %zu data bytes at received+%zu, %ld allocations\n",
           (unsigned long long)got._num_records, got._data.size, data_offset, counter->total - before);
    CHECK(got._have_data && got._data.size == BLOCK_SIZE);
    CHECK(data_offset == inline_size);
    CHECK(memcmp(got._data.data, block, BLOCK_SIZE) == 0);
    CHECK(counter->total == before); /* shared mode borrowed, never allocated */

    /* Released with the decode's flags, so the borrowed block is left alone. */
    mivo_mgbl_request_done_free_ext(&got, counting_free, counter, MIVO_FLAG_SHARED);
    free(received);
    free(frags);
    free(head);
    free(block);
}

int main(void)
{
    struct alloc_counter counter = {0, 0};

    size_t request_size;
    uint8_t *request = client_encode_syslog(&request_size);
    size_t reply_size;
    uint8_t *reply = manager_handle_syslog(request, request_size, &counter, &reply_size);
    client_handle_syslog_done(reply, reply_size, &counter);
    free(reply);
    free(request);

    round_two(&counter);

    printf("\nallocations: %ld made, %ld still live\n", counter.total, counter.live);
    CHECK(counter.live == 0);
    if (failures != 0) {
        fprintf(stderr, "%d check(s) failed\n", failures);
        return EXIT_FAILURE;
    }
    return EXIT_SUCCESS;
}
