/*
 * obfl_gather_writev: send a record without copying its byte strings.
 *
 * The sender encodes a mivo_write_env_raw_record in shared mode: keys,
 * lengths and the small members go into one buffer, and every byte string
 * becomes a fragment of its own that points at the sender's memory. The
 * fragments go straight into an iovec array behind a 4-byte length prefix
 * (the wire form has no framing of its own) and leave with one writev().
 * The receiver reads the frame and decodes it in shared mode, so its byte
 * strings point into the receive buffer. No byte string is copied on
 * either side; only the device name, a string, is always copied.
 *
 * Exits non-zero if any step misbehaves.
 */
#define _POSIX_C_SOURCE 200809L /* socketpair, writev, read under -std=c11 */

#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <sys/socket.h>
#include <sys/uio.h>
#include <unistd.h>

#include "mivo_obfl_mgr_def.h"
#include "mivo_obfl_mgr_init.h"

enum { MAX_PIECES = 16, DUMPS = 3 };

static void *heap_alloc(size_t size, void *token)
{
    (void)token;
    return malloc(size ? size : 1); /* the codec may ask for 0 bytes */
}

static void heap_free(void *pointer, void *token)
{
    (void)token;
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

/* Sender: one writev() of prefix, inline bytes and the caller's byte strings. */
static int send_record(int fd, const struct mivo_write_env_raw_record *rec)
{
    /* Capacity 0 measures: the inline length and the number of pieces. */
    unsigned int pieces = 0;
    size_t inline_size = mivo_write_env_raw_record_encode_ext(rec, NULL, 0, NULL, &pieces, MIVO_FLAG_SHARED);
    if (pieces > MAX_PIECES)
        return -1;
    uint8_t *head = malloc(inline_size ? inline_size : 1);
    if (head == NULL)
        return -1;
    struct mivo_bytes frags[MAX_PIECES];
    unsigned int count = MAX_PIECES;
    mivo_write_env_raw_record_encode_ext(rec, head, inline_size, frags, &count, MIVO_FLAG_SHARED);

    /* The pieces in order are the message; inline pieces point into head. */
    struct iovec iov[1 + MAX_PIECES];
    size_t total = 0;
    for (unsigned int i = 0; i < count; i++) {
        iov[1 + i].iov_base = (void *)frags[i].data; /* writev only reads it */
        iov[1 + i].iov_len = frags[i].size;
        total += frags[i].size;
    }
    uint8_t prefix[4] = {(uint8_t)(total >> 24), (uint8_t)(total >> 16), (uint8_t)(total >> 8), (uint8_t)total};
    iov[0].iov_base = prefix;
    iov[0].iov_len = sizeof prefix;
    ssize_t sent = writev(fd, iov, (int)count + 1);
    printf("sent      %zu bytes in %u pieces (%zu inline) with one writev\n", total, count, inline_size);
    free(head);
    return sent == (ssize_t)(sizeof prefix + total) ? 0 : -1;
}

static int read_full(int fd, uint8_t *buf, size_t size)
{
    while (size > 0) {
        ssize_t n = read(fd, buf, size);
        if (n <= 0)
            return -1;
        buf += n;
        size -= (size_t)n;
    }
    return 0;
}

/* Receiver: read one frame, decode it in shared mode, check it. */
static void receive_record(int fd, const struct mivo_bytes *expected)
{
    uint8_t prefix[4];
    CHECK(read_full(fd, prefix, sizeof prefix) == 0);
    size_t size = (size_t)prefix[0] << 24 | (size_t)prefix[1] << 16 | (size_t)prefix[2] << 8 | prefix[3];
    uint8_t *in = malloc(size);
    if (in == NULL)
        abort();
    CHECK(read_full(fd, in, size) == 0);

    struct mivo_write_env_raw_record got;
    int rc = mivo_write_env_raw_record_decode_ext(&got, in, size, heap_alloc, NULL, MIVO_FLAG_SHARED);
    CHECK(rc == MIVO_NO_ERROR);
    CHECK(got._have_devname && strcmp(got._devname, "linecard 3") == 0);
    CHECK(got._env_raw_count == DUMPS);
    for (unsigned int i = 0; i < got._env_raw_count && i < DUMPS; i++) {
        const struct mivo_bytes *b = &got._env_raw[i];
        /* Shared: the contents lie inside the receive buffer, not a copy. */
        CHECK(b->data >= in && b->data + b->size <= in + size);
        CHECK(b->size == expected[i].size && memcmp(b->data, expected[i].data, b->size) == 0);
        printf("received  dump %u: %zu bytes at in+%zu\n", i, b->size, (size_t)(b->data - in));
    }
    /* Same flags as the decode: the array and the name go back, the
     * contents stay in `in`, which may be dropped only after this. */
    mivo_write_env_raw_record_free_ext(&got, heap_free, NULL, MIVO_FLAG_SHARED);
    free(in);
}

int main(void)
{
    int fds[2];
    if (socketpair(AF_UNIX, SOCK_STREAM, 0, fds) != 0) {
        perror("socketpair");
        return EXIT_FAILURE;
    }

    /* Three raw environment dumps, e.g. straight from the sensors' memory. */
    static uint8_t dumps[DUMPS][1500];
    const size_t sizes[DUMPS] = {1500, 64, 700};
    struct mivo_bytes raw[DUMPS];
    for (int i = 0; i < DUMPS; i++) {
        memset(dumps[i], 'a' + i, sizes[i]);
        raw[i].data = dumps[i];
        raw[i].size = sizes[i];
    }

    struct mivo_write_env_raw_record rec;
    mivo_write_env_raw_record_init(&rec);
    rec._client_id = 7;
    rec._have_client_id = 1;
    rec._devname = "linecard 3";
    rec._have_devname = 1;
    rec._env_raw = raw;
    rec._env_raw_count = DUMPS;
    rec._have_env_raw = 1;

    CHECK(send_record(fds[0], &rec) == 0);
    receive_record(fds[1], raw);
    close(fds[0]);
    close(fds[1]);
    return failures == 0 ? EXIT_SUCCESS : EXIT_FAILURE;
}
