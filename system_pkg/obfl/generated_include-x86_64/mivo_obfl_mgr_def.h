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

enum mivo_obfl_ver_e NUVEX_ENUM_BASE {
    mivo_OBFL_CUR_VERSION = 1
};

enum mivo_obfl_req_type_e NUVEX_ENUM_BASE {
    mivo_OBFL_MGBL_SET = 1,
    mivo_OBFL_MGBL_GET = 2,
    mivo_OBFL_MGBL_ERASE = 3
};

enum mivo_obfl_set_type_e NUVEX_ENUM_BASE {
    mivo_OBFL_MGBL_SEV_EMERGENCY = 0,
    mivo_OBFL_MGBL_SEV_CRITICAL = 1,
    mivo_OBFL_MGBL_SEV_ALERT = 2,
    mivo_OBFL_MGBL_SEV_ALL = 3,
    mivo_OBFL_MGBL_LOGGING_DISABLE = 4,
    mivo_OBFL_MGBL_LOGGING_ENABLE = 5,
    mivo_OBFL_CCC_LOGGING_DISABLE = 6,
    mivo_OBFL_CCC_LOGGING_ENABLE = 7
};

enum mivo_obfl_rec_type_e NUVEX_ENUM_BASE {
    mivo_OBFL_REC_ALL = 1,
    mivo_OBFL_REC_UPTIME = 2,
    mivo_OBFL_REC_INV = 3,
    mivo_OBFL_REC_TEMP = 4,
    mivo_OBFL_REC_VOLT = 5,
    mivo_OBFL_REC_CURRENT = 6,
    mivo_OBFL_REC_SYSLOG = 7,
    mivo_OBFL_REC_CIH = 8,
    mivo_OBFL_REC_ASIC_ERR = 9,
    mivo_OBFL_REC_FM = 10,
    mivo_OBFL_REC_FPD = 11,
    mivo_OBFL_REC_DIAG_RESULT = 12,
    mivo_OBFL_REC_DIAG_LOG = 13,
    mivo_OBFL_REC_FMEA = 14,
    mivo_OBFL_REC_FABRIC = 15,
    mivo_OBFL_REC_NVRAM = 16,
    mivo_OBFL_REC_PRM = 17,
    mivo_OBFL_REC_NP = 18,
    mivo_OBFL_REC_FIA_ASIC_INIT_FAIL = 19,
    mivo_OBFL_REC_MAX = 20
};

enum mivo_obfl_svc_type_e NUVEX_ENUM_BASE {
    mivo_OBFL_SVC_ALL = 0,
    mivo_OBFL_SVC_UPTIME = 1,
    mivo_OBFL_SVC_INV = 2,
    mivo_OBFL_SVC_SENSOR = 3,
    mivo_OBFL_SVC_SYSLOG = 4,
    mivo_OBFL_SVC_CIH = 5,
    mivo_OBFL_SVC_ASIC_ERR = 6,
    mivo_OBFL_SVC_FM = 7,
    mivo_OBFL_SVC_FPD = 8,
    mivo_OBFL_SVC_DIAG_RESULT = 9,
    mivo_OBFL_SVC_DIAG_LOG = 10,
    mivo_OBFL_SVC_FMEA = 11,
    mivo_OBFL_SVC_FABRIC = 12,
    mivo_OBFL_SVC_PRM = 13,
    mivo_OBFL_SVC_NP = 14,
    mivo_OBFL_SVC_FIA_ASIC_INIT_FAIL = 15,
    mivo_OBFL_SVC_MAX = 16
};

enum mivo_obfl_sensor_type_e NUVEX_ENUM_BASE {
    mivo_OBFL_SENSOR_TEMP = 1,
    mivo_OBFL_SENSOR_VOLT = 2,
    mivo_OBFL_SENSOR_CURRENT = 3
};

/* Wire values; note CRITICAL 1 and ALERT 2. */
enum mivo_syslog_sev_e NUVEX_ENUM_BASE {
    mivo_OBFL_SYSLOG_SEV_EMERGENCY = 0,
    mivo_OBFL_SYSLOG_SEV_CRITICAL = 1,
    mivo_OBFL_SYSLOG_SEV_ALERT = 2
};

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
