/*
 * obfl_capture: keep a capture of what a process sends.
 *
 * The library does no input or output: here the sender appends each message
 * it sends to a capture file, as its length in a varint followed by its
 * encoding. That is the delimited form of Protocol Buffers streams, so the
 * capture can be read later, message by message, with
 *
 *     obfl-wire decode --delimited log_syslog obfl_capture.bin
 *
 * or by libprotobuf's ParseDelimitedFrom. The example then reads its own
 * capture back to check it.
 *
 *   obfl_capture [FILE]     (default obfl_capture.bin, overwritten)
 *
 * Exits non-zero if any step misbehaves.
 */
#include <errno.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>

#include "mivo_obfl_mgr_def.h"
#include "mivo_obfl_mgr_init.h"
#include "nuvex_decode.h"
#include "nuvex_encode.h"

enum { MESSAGES = 5 };

static int failures;
#define CHECK(cond)                                                                         \
    do {                                                                                    \
        if (!(cond)) {                                                                      \
            fprintf(stderr, "%s:%d: check failed: %s\n", __FILE__, __LINE__, #cond);       \
            failures++;                                                                     \
        }                                                                                   \
    } while (0)

/* Appends one message to the capture: its length as a varint, then the bytes. */
static int capture(FILE *file, const uint8_t *wire, size_t size)
{
    uint8_t length[10];
    size_t n = nuvex_encode_var64(size, 0, length, sizeof length);
    return fwrite(length, 1, n, file) == n && fwrite(wire, 1, size, file) == size ? 0 : -1;
}

/* What the process sends: a syslog message, measured and then encoded. */
static size_t send_syslog(uint32_t seq, uint8_t *wire, size_t wire_size)
{
    char text[64];
    snprintf(text, sizeof text, "fan %u: speed below threshold", (unsigned)seq);
    struct mivo_log_syslog msg;
    mivo_log_syslog_init(&msg);
    msg._version = mivo_OBFL_CUR_VERSION;
    msg._have_version = 1;
    msg._seq_num = seq;
    msg._have_seq_num = 1;
    msg._severity = mivo_OBFL_SYSLOG_SEV_ALERT;
    msg._have_severity = 1;
    msg._data = text;
    msg._have_data = 1;
    return mivo_log_syslog_encode_ext(&msg, wire, wire_size, NULL, NULL, MIVO_FLAGS_NONE);
}

static void *heap_alloc(size_t size, void *token)
{
    (void)token;
    return malloc(size == 0 ? 1 : size);
}

static void heap_free(void *p, void *token)
{
    (void)token;
    free(p);
}

int main(int argc, char **argv)
{
    const char *path = argc > 1 ? argv[1] : "obfl_capture.bin";
    FILE *file = fopen(path, "wb");
    if (file == NULL) {
        fprintf(stderr, "obfl_capture: %s: %s\n", path, strerror(errno));
        return EXIT_FAILURE;
    }
    for (uint32_t seq = 1; seq <= MESSAGES; seq++) {
        uint8_t wire[128];
        size_t size = send_syslog(seq, wire, sizeof wire);
        CHECK(size <= sizeof wire);
        /* ... the bytes go to the manager here; the capture keeps a copy ... */
        CHECK(capture(file, wire, size) == 0);
    }
    if (fclose(file) != 0) {
        fprintf(stderr, "obfl_capture: %s: %s\n", path, strerror(errno));
        return EXIT_FAILURE;
    }
    printf("captured  %d messages in %s\n", MESSAGES, path);

    /* Reading the capture back: a length, then that many bytes, to the end. */
    static uint8_t all[4096];
    file = fopen(path, "rb");
    CHECK(file != NULL);
    size_t total = file != NULL ? fread(all, 1, sizeof all, file) : 0;
    if (file != NULL)
        fclose(file);
    size_t pos = 0;
    uint32_t read_back = 0;
    while (pos < total) {
        uint32_t length;
        if (nuvex_decode_var32(&length, &pos, all, total) != MIVO_NO_ERROR || length > total - pos) {
            CHECK(!"a whole message after each length");
            break;
        }
        struct mivo_log_syslog msg;
        int rc = mivo_log_syslog_decode_ext(&msg, all + pos, length, heap_alloc, NULL, MIVO_FLAGS_NONE);
        read_back++;
        CHECK(rc == MIVO_NO_ERROR && msg._seq_num == read_back && msg._have_data);
        mivo_log_syslog_free_ext(&msg, heap_free, NULL, MIVO_FLAGS_NONE);
        pos += length;
    }
    CHECK(read_back == MESSAGES);
    printf("read back %u messages\n", (unsigned)read_back);
    return failures == 0 ? EXIT_SUCCESS : EXIT_FAILURE;
}
