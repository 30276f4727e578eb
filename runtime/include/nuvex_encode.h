/*
 * Encoding primitives. Every byte is stored only below dest_size while the
 * returned position always advances, so one pass both measures and writes:
 * dest_size 0 (and any dest_p, null included) yields the exact length.
 */
#ifndef NUVEX_ENCODE_H
#define NUVEX_ENCODE_H

#include "nuvex.h"

#ifdef __cplusplus
extern "C" {
#endif

/* A one-byte key (fields 1 to 15): byte must be below 128. */
static inline size_t nuvex_encode_var7(uint8_t byte, size_t offset, uint8_t *dest_p, size_t dest_size)
{
    if (offset < dest_size) {
        dest_p[offset] = byte;
    }
    return offset + 1;
}

/* A key of up to two bytes (fields 16 to 31): the second byte, when there is
 * one, is always 1 because the value is below 256. */
static inline size_t nuvex_encode_var8(uint8_t byte, size_t offset, uint8_t *dest_p, size_t dest_size)
{
    if (offset < dest_size) {
        dest_p[offset] = byte;
    }
    offset++;
    if (byte & 0x80u) {
        if (offset < dest_size) {
            dest_p[offset] = 1;
        }
        offset++;
    }
    return offset;
}

static inline size_t nuvex_encode_var32(uint32_t word, size_t offset, uint8_t *dest_p, size_t dest_size)
{
    while (word > 0x7Fu) {
        if (offset < dest_size) {
            dest_p[offset] = (uint8_t)(word | 0x80u);
        }
        word >>= 7;
        offset++;
    }
    if (offset < dest_size) {
        dest_p[offset] = (uint8_t)word;
    }
    return offset + 1;
}

static inline size_t nuvex_encode_var64(uint64_t dword, size_t offset, uint8_t *dest_p, size_t dest_size)
{
    while (dword > 0x7Fu) {
        if (offset < dest_size) {
            dest_p[offset] = (uint8_t)(dword | 0x80u);
        }
        dword >>= 7;
        offset++;
    }
    if (offset < dest_size) {
        dest_p[offset] = (uint8_t)dword;
    }
    return offset + 1;
}

#ifdef __cplusplus
}
#endif

#endif /* NUVEX_ENCODE_H */
