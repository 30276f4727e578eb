/*
 * nuvex: the types shared by the wire runtime, the message catalogue and the
 * entity-identifier codec. Plain C so that C and C++ callers see one ABI.
 */
#ifndef NUVEX_H
#define NUVEX_H

#include <stddef.h>
#include <stdint.h>

#ifdef __cplusplus
extern "C" {
#endif

/* One byte, so that records lay out the same in C and C++. */
typedef uint8_t mivo_bool_t;
typedef char mivo_char_t;
/* NUL-terminated; a null pointer means the string is absent. */
typedef const mivo_char_t *mivo_string_t;

/* A byte string, and also one piece of an encoder's fragment list. */
struct mivo_bytes {
    const uint8_t *data;
    size_t size;
};

/* The caller's allocator, called as alloc_p(size, token) on the calling thread.
 * - The block must be aligned for any object (alignof(max_align_t), 16 bytes
 *   on x86-64, as malloc gives): decoders and duplicators store uint64_t
 *   arrays, pointer arrays and identifier records in their blocks.
 * - size can be 0 (an empty byte string); a null answer is a failure then
 *   too, so hand out a distinct block (malloc(size ? size : 1)).
 * - token is the caller's, passed through untouched; the library never reads it.
 * - Null means failure: the operation reports MIVO_ERROR_ALLOC_FAILED, and
 *   whatever it did allocate stays reachable from the record for the release. */
typedef void *mivo_alloc_t(size_t size, void *token);
/* The caller's release callback: called once for each block the library
 * allocated, with the token given to the release; never with a null pointer. */
typedef void mivo_free_t(void *pointer, void *token);

/* Enumerations carry any 32-bit value, named or not. A fixed underlying type
 * keeps that well defined in C++; in C the compiler already picks a 32-bit
 * unsigned type for enumerations without negative constants, so both
 * languages lay records out alike. */
#ifdef __cplusplus
enum mivo_flags : uint32_t {
#else
enum mivo_flags {
#endif
    MIVO_FLAGS_NONE = 0,
    /* Byte strings stay in the caller's memory: handed out as fragments when
     * encoding, pointed into the input when decoding, not released. */
    MIVO_FLAG_SHARED = 1
};

/* The low three bits of every field key. */
enum {
    NUVEX_TYPE_VARINT = 0,
    NUVEX_TYPE_FIXED64 = 1,
    NUVEX_TYPE_LENGTH = 2,
    NUVEX_TYPE_START_GROUP = 3,
    NUVEX_TYPE_END_GROUP = 4,
    NUVEX_TYPE_FIXED32 = 5
};

/* Result codes of decoders, duplicators and the decoding primitives. */
enum {
    MIVO_NO_ERROR = 0,
    MIVO_ERROR_GARBLED = -1,
    MIVO_ERROR_UNSUPPORTED = -2,
    MIVO_ERROR_WRONG_TYPE = -3,
    MIVO_ERROR_ALLOC_FAILED = -4
};

#ifdef __cplusplus
}
#endif

#endif /* NUVEX_H */
