/*
 * The entity identifier: which rack, slot and instance a message is about,
 * with the chain of typed entities (tsi) that leads to it. Most catalogue
 * requests carry two of them; libmivo_tesk_eid codes them.
 *
 * Wire form (readable by any Protocol Buffers tool; field number = member
 * position; a member is written when its flag is set, so an identifier with
 * every flag clear encodes to no bytes at all):
 *   mivo_tesk_eid_st             1..5 varints, 6 _tsi: one nested message per element
 *   mivo_tesk_entity_tsi_st      1 _type, 2 _sub_type (nested message), 3 _instance
 *   mivo_tesk_entity_subtype_un  1..12 varints, other .. cpu
 */
#ifndef MIVO_TESK_EID_DEF_H
#define MIVO_TESK_EID_DEF_H

#include "nuvex.h"
#include "nuvex_record.h"

#ifdef __cplusplus
extern "C" {
#endif

#if defined(MIVO_TESK_EID_BUILDING)
#define MIVO_TESK_EID_API __attribute__((visibility("default")))
#else
#define MIVO_TESK_EID_API
#endif

#define MIVO_TESK_CONSTANTS_entity_type_en(C)                                \
    C(mivo_TESK_ENTITY_TYPE_OTHER, 1)                                        \
    C(mivo_TESK_ENTITY_TYPE_UNKNOWN, 2)                                      \
    C(mivo_TESK_ENTITY_TYPE_CHASSIS, 3)                                      \
    C(mivo_TESK_ENTITY_TYPE_BACKPLANE, 4)                                    \
    C(mivo_TESK_ENTITY_TYPE_CONTAINER, 5)                                    \
    C(mivo_TESK_ENTITY_TYPE_POWERSUPPLY, 6)                                  \
    C(mivo_TESK_ENTITY_TYPE_FAN, 7)                                          \
    C(mivo_TESK_ENTITY_TYPE_SENSOR, 8)                                       \
    C(mivo_TESK_ENTITY_TYPE_MODULE, 9)                                       \
    C(mivo_TESK_ENTITY_TYPE_PORT, 10)                                        \
    C(mivo_TESK_ENTITY_TYPE_STACK, 11)                                       \
    C(mivo_TESK_ENTITY_TYPE_CPU, 12)

/* Sub-type codes are opaque 32-bit numbers to this codec: the platform's
 * inventory owns their meaning, and any value travels unchanged. */
#define MIVO_TESK_CONSTANTS_entity_subtype_en(C)                             \
    C(mivo_TESK_ENTITY_SUBTYPE_UNSPECIFIED, 0)

#define MIVO_TESK_EID_ENUMS(E)                                               \
    E(mivo_tesk_entity_type_en, MIVO_TESK_CONSTANTS_entity_type_en)          \
    E(mivo_tesk_entity_subtype_en, MIVO_TESK_CONSTANTS_entity_subtype_en)

MIVO_TESK_EID_ENUMS(NUVEX_DECLARE_ENUM)

#define MIVO_TESK_FIELDS_entity_subtype_un(X, rec)                           \
    X(rec, ENUM, subtype_other, enum mivo_tesk_entity_subtype_en)            \
    X(rec, ENUM, subtype_unknown, enum mivo_tesk_entity_subtype_en)          \
    X(rec, ENUM, subtype_chassis, enum mivo_tesk_entity_subtype_en)          \
    X(rec, ENUM, subtype_backplane, enum mivo_tesk_entity_subtype_en)        \
    X(rec, ENUM, subtype_container, enum mivo_tesk_entity_subtype_en)        \
    X(rec, ENUM, subtype_power, enum mivo_tesk_entity_subtype_en)            \
    X(rec, ENUM, subtype_fan, enum mivo_tesk_entity_subtype_en)              \
    X(rec, ENUM, subtype_sensor, enum mivo_tesk_entity_subtype_en)           \
    X(rec, ENUM, subtype_module, enum mivo_tesk_entity_subtype_en)           \
    X(rec, ENUM, subtype_port, enum mivo_tesk_entity_subtype_en)             \
    X(rec, ENUM, subtype_stack, enum mivo_tesk_entity_subtype_en)            \
    X(rec, ENUM, subtype_cpu, enum mivo_tesk_entity_subtype_en)

#define MIVO_TESK_FIELDS_entity_tsi_st(X, rec)                               \
    X(rec, ENUM, type, enum mivo_tesk_entity_type_en)                        \
    X(rec, MESSAGE, sub_type, struct mivo_tesk_entity_subtype_un)            \
    X(rec, UINT32, instance, uint32_t)

#define MIVO_TESK_FIELDS_eid_st(X, rec)                                      \
    X(rec, UINT32, version, uint32_t)                                        \
    X(rec, UINT32, rack_num, uint32_t)                                       \
    X(rec, UINT32, slot_num, uint32_t)                                       \
    X(rec, UINT32, inst_num, uint32_t)                                       \
    X(rec, UINT32, num_tsi, uint32_t)                                        \
    X(rec, REP_MESSAGE, tsi, struct mivo_tesk_entity_tsi_st)

NUVEX_DECLARE_RECORD(mivo_tesk_entity_subtype_un, MIVO_TESK_FIELDS_entity_subtype_un)
NUVEX_DECLARE_RECORD(mivo_tesk_entity_tsi_st, MIVO_TESK_FIELDS_entity_tsi_st)
NUVEX_DECLARE_RECORD(mivo_tesk_eid_st, MIVO_TESK_FIELDS_eid_st)

/* Encodes into dest_p[0..dest_size) and returns the full length, fitted or
 * not (dest_size 0 measures). Reports no fragments: *frags_count_p becomes 0. */
MIVO_TESK_EID_API size_t mivo_tesk_eid_st_encode_ext(const struct mivo_tesk_eid_st *source_p, uint8_t *dest_p,
                                                      size_t dest_size, struct mivo_bytes *frags,
                                                      unsigned int *frags_count_p, enum mivo_flags flags);

/* Decodes into the identifier as it stands, so that a second occurrence of an
 * identifier field merges into the first instead of losing what the first
 * allocated. Start from mivo_tesk_eid_st_init (the message decoders do). A
 * second run of _tsi is refused with MIVO_ERROR_GARBLED. */
MIVO_TESK_EID_API int mivo_tesk_eid_st_decode_ext(struct mivo_tesk_eid_st *dest_p, const uint8_t *source_p,
                                                  size_t source_size, mivo_alloc_t *alloc_p, void *token,
                                                  enum mivo_flags flags);

MIVO_TESK_EID_API int mivo_tesk_eid_st_duplicate(struct mivo_tesk_eid_st *dest_p,
                                                 const struct mivo_tesk_eid_st *source_p, mivo_alloc_t *alloc_p,
                                                 void *token);

/* Hands back _tsi and resets it to null with a count of 0; accepts an
 * identifier at defaults, half decoded or already released. */
MIVO_TESK_EID_API void mivo_tesk_eid_st_free_ext(struct mivo_tesk_eid_st *msg_p, mivo_free_t *free_p, void *token,
                                                 enum mivo_flags flags);

#ifdef __cplusplus
}
#endif

#endif /* MIVO_TESK_EID_DEF_H */
