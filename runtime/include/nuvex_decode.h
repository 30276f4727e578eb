/*
 * Decoding primitives. They never read at or beyond source_size and move the
 * read position only when they succeed, so a failed step leaves the caller's
 * state exactly as it was.
 */
#ifndef NUVEX_DECODE_H
#define NUVEX_DECODE_H

#include "nuvex.h"

#ifdef __cplusplus
extern "C" {
#endif

/* Consume the rest of an overlong varint whose last byte read still had its
 * continuation bit set. Any number of extra bytes is accepted. */
static inline int nuvex_decode_overlong_tail(size_t *pos_p, const uint8_t *source_p, size_t source_size)
{
    size_t pos = *pos_p;
    uint8_t byte;
    do {
        if (pos >= source_size) {
            return MIVO_ERROR_GARBLED;
        }
        byte = source_p[pos++];
    } while (byte & 0x80u);
    *pos_p = pos;
    return MIVO_NO_ERROR;
}

/* Reads a varint of any length and keeps its low 32 bits, so that the
 * ten-byte sign-extended form of a negative 32-bit number comes back intact. */
static inline int nuvex_decode_var32(uint32_t *word_p, size_t *offset_p, const uint8_t *source_p, size_t source_size)
{
    size_t pos = *offset_p;
    uint32_t value;
    uint8_t byte;
    unsigned int shift;

    if (pos >= source_size) {
        return MIVO_ERROR_GARBLED;
    }
    byte = source_p[pos++];
    value = byte & 0x7Fu;
    if (byte & 0x80u) {
        for (shift = 7; shift <= 21; shift += 7) {
            if (pos >= source_size) {
                return MIVO_ERROR_GARBLED;
            }
            byte = source_p[pos++];
            value |= (uint32_t)(byte & 0x7Fu) << shift;
            if (!(byte & 0x80u)) {
                goto done;
            }
        }
        if (pos >= source_size) {
            return MIVO_ERROR_GARBLED;
        }
        byte = source_p[pos++];
        value |= (uint32_t)byte << 28; /* only the low four bits survive */
        if ((byte & 0x80u) && nuvex_decode_overlong_tail(&pos, source_p, source_size) != MIVO_NO_ERROR) {
            return MIVO_ERROR_GARBLED;
        }
    }
done:
    if (word_p != NULL) {
        *word_p = value;
    }
    *offset_p = pos;
    return MIVO_NO_ERROR;
}

static inline int nuvex_decode_var64(uint64_t *dword_p, size_t *offset_p, const uint8_t *source_p, size_t source_size)
{
    size_t pos = *offset_p;
    uint64_t value = 0;
    uint8_t byte;
    unsigned int shift;

    for (shift = 0; shift <= 56; shift += 7) {
        if (pos >= source_size) {
            return MIVO_ERROR_GARBLED;
        }
        byte = source_p[pos++];
        value |= (uint64_t)(byte & 0x7Fu) << shift;
        if (!(byte & 0x80u)) {
            goto done;
        }
    }
    if (pos >= source_size) {
        return MIVO_ERROR_GARBLED;
    }
    byte = source_p[pos++];
    value |= (uint64_t)byte << 63; /* only bit 0 of the tenth byte survives */
    if ((byte & 0x80u) && nuvex_decode_overlong_tail(&pos, source_p, source_size) != MIVO_NO_ERROR) {
        return MIVO_ERROR_GARBLED;
    }
done:
    if (dword_p != NULL) {
        *dword_p = value;
    }
    *offset_p = pos;
    return MIVO_NO_ERROR;
}

/* Skips the value of a field whose key has been read. Length and fixed-width
 * skips may leave the position beyond source_size; decoders take any position
 * at or past the end as the end of the input. */
static inline int nuvex_decode_advance(unsigned int type, size_t *offset_p, const uint8_t *source_p, size_t source_size)
{
    uint32_t length;

    switch (type) {
    case NUVEX_TYPE_VARINT:
        return nuvex_decode_var32(NULL, offset_p, source_p, source_size);
    case NUVEX_TYPE_FIXED64:
        *offset_p += 8;
        return MIVO_NO_ERROR;
    case NUVEX_TYPE_LENGTH:
        if (nuvex_decode_var32(&length, offset_p, source_p, source_size) != MIVO_NO_ERROR) {
            return MIVO_ERROR_GARBLED;
        }
        *offset_p += length;
        return MIVO_NO_ERROR;
    case NUVEX_TYPE_FIXED32:
        *offset_p += 4;
        return MIVO_NO_ERROR;
    default:
        return MIVO_ERROR_UNSUPPORTED;
    }
}

#ifdef __cplusplus
}
#endif

#endif /* NUVEX_DECODE_H */
