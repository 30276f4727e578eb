/*
 * Records, enumerations and the 148 entry points of the OBFL manager's
 * message codec.
 *
 * The members of each record are listed in mivo_obfl_mgr_catalogue.h; the
 * records are laid out from those lists as nuvex_record.h describes (members
 * in order, repeated members as pointer + _<name>_count, then one 1-bit
 * _have_<name> flag per member). For message m:
 *
 *   size_t mivo_m_encode_ext(const struct mivo_m *source_p, uint8_t *dest_p, size_t dest_size,
 *                            struct mivo_bytes *frags, unsigned int *frags_count_p, enum mivo_flags flags);
 *   int    mivo_m_decode_ext(struct mivo_m *dest_p, const uint8_t *source_p, size_t source_size,
 *                            mivo_alloc_t *alloc_p, void *token, enum mivo_flags flags);
 *   int    mivo_m_duplicate(struct mivo_m *dest_p, const struct mivo_m *source_p,
 *                           mivo_alloc_t *alloc_p, void *token);
 *   void   mivo_m_free_ext(struct mivo_m *msg_p, mivo_free_t *free_p, void *token, enum mivo_flags flags);
 *
 * The encoder never fails: it returns the full length whether or not it fit
 * (dest_size 0 measures). Decoders and duplicators return MIVO_NO_ERROR or a
 * negative result code and leave everything they allocated reachable from the
 * record; the release operation hands it back, failed or not.
 */
#ifndef MIVO_OBFL_MGR_DEF_H
#define MIVO_OBFL_MGR_DEF_H

#include "mivo_obfl_mgr_catalogue.h"
#include "mivo_tesk_eid_def.h"
#include "nuvex.h"
#include "nuvex_record.h"

#ifdef __cplusplus
extern "C" {
#endif

#if defined(MIVO_OBFL_MGR_BUILDING)
#define MIVO_OBFL_MGR_API __attribute__((visibility("default")))
#else
#define MIVO_OBFL_MGR_API
#endif

MIVO_OBFL_MGR_ENUMS(NUVEX_DECLARE_ENUM)

MIVO_OBFL_MGR_CATALOGUE(NUVEX_DECLARE_RECORD)

#define MIVO_OBFL_MGR_DECLARE_OPERATIONS(rec, FIELDS)                                                       \
    MIVO_OBFL_MGR_API size_t rec##_encode_ext(const struct rec *source_p, uint8_t *dest_p, size_t dest_size, \
                                              struct mivo_bytes *frags, unsigned int *frags_count_p,        \
                                              enum mivo_flags flags);                                       \
    MIVO_OBFL_MGR_API int rec##_decode_ext(struct rec *dest_p, const uint8_t *source_p, size_t source_size,  \
                                           mivo_alloc_t *alloc_p, void *token, enum mivo_flags flags);      \
    MIVO_OBFL_MGR_API int rec##_duplicate(struct rec *dest_p, const struct rec *source_p,                   \
                                          mivo_alloc_t *alloc_p, void *token);                              \
    MIVO_OBFL_MGR_API void rec##_free_ext(struct rec *msg_p, mivo_free_t *free_p, void *token,              \
                                          enum mivo_flags flags);

MIVO_OBFL_MGR_CATALOGUE(MIVO_OBFL_MGR_DECLARE_OPERATIONS)

#ifdef __cplusplus
}
#endif

#endif /* MIVO_OBFL_MGR_DEF_H */
