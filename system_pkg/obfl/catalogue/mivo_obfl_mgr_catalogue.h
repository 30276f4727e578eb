/*
 * The OBFL manager's message catalogue: every record and enumeration, once.
 * Internal to the build, never installed: the public headers
 * mivo_obfl_mgr_def.h and mivo_obfl_mgr_init.h are written out from these
 * lists by tools/headergen, and the codec engine expands the same lists
 * (generated_src-x86_64/mivo_obfl_mgr_description.hpp), so the records that
 * callers see and the wire form that the codec writes cannot drift apart.
 *
 * Each MIVO_FIELDS_<message>(X, rec) lists the record's members in
 * declaration order as X(rec, KIND, name, ctype); a member's field number is
 * its position in the list. KIND is one of UINT32, ENUM, BOOL, INT32, UINT64,
 * STRING, BYTES, EID (the sibling library's identifier), MESSAGE (a record
 * nested by value) or REP_<element kind> for a repeated member, which the
 * record holds as a pointer to constant elements followed by an unsigned int
 * _<name>_count. After the members a record holds one 1-bit _have_<name>
 * presence flag per member, in the same order.
 *
 * Records that share a shape share their list: the request head, the reply
 * head, the three environment threshold requests and the two syslog/string
 * threshold requests.
 */
#ifndef MIVO_OBFL_MGR_CATALOGUE_H
#define MIVO_OBFL_MGR_CATALOGUE_H

/* Fields 1-4 of every request that names its entities. */
#define MIVO_ADDRESS_HEAD(X, rec)                               \
    X(rec, ENUM, version, enum mivo_obfl_ver_e)                 \
    X(rec, UINT32, timestamp, uint32_t)                         \
    X(rec, EID, tgt_eid, struct mivo_tesk_eid_st)               \
    X(rec, EID, src_eid, struct mivo_tesk_eid_st)

/* Fields 1-7 of every request from the unregistration on. */
#define MIVO_REQUEST_HEAD(X, rec)                               \
    MIVO_ADDRESS_HEAD(X, rec)                                   \
    X(rec, UINT32, client_id, uint32_t)                         \
    X(rec, BOOL, is_resend_msg, mivo_bool_t)                    \
    X(rec, UINT32, seq_num, uint32_t)

/* The registration and the management request: the request head without a
 * client id, which the client does not have yet or the manager does not need. */
#define MIVO_ANONYMOUS_HEAD(X, rec)                             \
    MIVO_ADDRESS_HEAD(X, rec)                                   \
    X(rec, BOOL, is_resend_msg, mivo_bool_t)                    \
    X(rec, UINT32, seq_num, uint32_t)

/* Fields 1-5 of the inventory, threshold, sensor and log replies. */
#define MIVO_REPLY_HEAD(X, rec)                                 \
    X(rec, ENUM, version, enum mivo_obfl_ver_e)                 \
    X(rec, UINT32, timestamp, uint32_t)                         \
    X(rec, UINT32, client_id, uint32_t)                         \
    X(rec, UINT64, err_code, uint64_t)                          \
    X(rec, UINT32, r_msn, uint32_t)

/* ---- enumerations ----
 * Each MIVO_CONSTANTS_<enum>(C) lists its constants as C(NAME, value). */
#define MIVO_CONSTANTS_obfl_ver_e(C)                            \
    C(mivo_OBFL_CUR_VERSION, 1)

#define MIVO_CONSTANTS_obfl_req_type_e(C)                       \
    C(mivo_OBFL_MGBL_SET, 1)                                    \
    C(mivo_OBFL_MGBL_GET, 2)                                    \
    C(mivo_OBFL_MGBL_ERASE, 3)

#define MIVO_CONSTANTS_obfl_set_type_e(C)                       \
    C(mivo_OBFL_MGBL_SEV_EMERGENCY, 0)                          \
    C(mivo_OBFL_MGBL_SEV_CRITICAL, 1)                           \
    C(mivo_OBFL_MGBL_SEV_ALERT, 2)                              \
    C(mivo_OBFL_MGBL_SEV_ALL, 3)                                \
    C(mivo_OBFL_MGBL_LOGGING_DISABLE, 4)                        \
    C(mivo_OBFL_MGBL_LOGGING_ENABLE, 5)                         \
    C(mivo_OBFL_CCC_LOGGING_DISABLE, 6)                         \
    C(mivo_OBFL_CCC_LOGGING_ENABLE, 7)

#define MIVO_CONSTANTS_obfl_rec_type_e(C)                       \
    C(mivo_OBFL_REC_ALL, 1)                                     \
    C(mivo_OBFL_REC_UPTIME, 2)                                  \
    C(mivo_OBFL_REC_INV, 3)                                     \
    C(mivo_OBFL_REC_TEMP, 4)                                    \
    C(mivo_OBFL_REC_VOLT, 5)                                    \
    C(mivo_OBFL_REC_CURRENT, 6)                                 \
    C(mivo_OBFL_REC_SYSLOG, 7)                                  \
    C(mivo_OBFL_REC_CIH, 8)                                     \
    C(mivo_OBFL_REC_ASIC_ERR, 9)                                \
    C(mivo_OBFL_REC_FM, 10)                                     \
    C(mivo_OBFL_REC_FPD, 11)                                    \
    C(mivo_OBFL_REC_DIAG_RESULT, 12)                            \
    C(mivo_OBFL_REC_DIAG_LOG, 13)                               \
    C(mivo_OBFL_REC_FMEA, 14)                                   \
    C(mivo_OBFL_REC_FABRIC, 15)                                 \
    C(mivo_OBFL_REC_NVRAM, 16)                                  \
    C(mivo_OBFL_REC_PRM, 17)                                    \
    C(mivo_OBFL_REC_NP, 18)                                     \
    C(mivo_OBFL_REC_FIA_ASIC_INIT_FAIL, 19)                     \
    C(mivo_OBFL_REC_MAX, 20)

#define MIVO_CONSTANTS_obfl_svc_type_e(C)                       \
    C(mivo_OBFL_SVC_ALL, 0)                                     \
    C(mivo_OBFL_SVC_UPTIME, 1)                                  \
    C(mivo_OBFL_SVC_INV, 2)                                     \
    C(mivo_OBFL_SVC_SENSOR, 3)                                  \
    C(mivo_OBFL_SVC_SYSLOG, 4)                                  \
    C(mivo_OBFL_SVC_CIH, 5)                                     \
    C(mivo_OBFL_SVC_ASIC_ERR, 6)                                \
    C(mivo_OBFL_SVC_FM, 7)                                      \
    C(mivo_OBFL_SVC_FPD, 8)                                     \
    C(mivo_OBFL_SVC_DIAG_RESULT, 9)                             \
    C(mivo_OBFL_SVC_DIAG_LOG, 10)                               \
    C(mivo_OBFL_SVC_FMEA, 11)                                   \
    C(mivo_OBFL_SVC_FABRIC, 12)                                 \
    C(mivo_OBFL_SVC_PRM, 13)                                    \
    C(mivo_OBFL_SVC_NP, 14)                                     \
    C(mivo_OBFL_SVC_FIA_ASIC_INIT_FAIL, 15)                     \
    C(mivo_OBFL_SVC_MAX, 16)

#define MIVO_CONSTANTS_obfl_sensor_type_e(C)                    \
    C(mivo_OBFL_SENSOR_TEMP, 1)                                 \
    C(mivo_OBFL_SENSOR_VOLT, 2)                                 \
    C(mivo_OBFL_SENSOR_CURRENT, 3)

#define MIVO_CONSTANTS_syslog_sev_e(C)                          \
    C(mivo_OBFL_SYSLOG_SEV_EMERGENCY, 0)                        \
    C(mivo_OBFL_SYSLOG_SEV_CRITICAL, 1)                         \
    C(mivo_OBFL_SYSLOG_SEV_ALERT, 2)

/* Every enumeration: E(enum name, constant list). */
#define MIVO_OBFL_MGR_ENUMS(E)                                     \
    E(mivo_obfl_ver_e, MIVO_CONSTANTS_obfl_ver_e)                  \
    E(mivo_obfl_req_type_e, MIVO_CONSTANTS_obfl_req_type_e)        \
    E(mivo_obfl_set_type_e, MIVO_CONSTANTS_obfl_set_type_e)        \
    E(mivo_obfl_rec_type_e, MIVO_CONSTANTS_obfl_rec_type_e)        \
    E(mivo_obfl_svc_type_e, MIVO_CONSTANTS_obfl_svc_type_e)        \
    E(mivo_obfl_sensor_type_e, MIVO_CONSTANTS_obfl_sensor_type_e)  \
    E(mivo_syslog_sev_e, MIVO_CONSTANTS_syslog_sev_e)

/* ---- management ---- */

#define MIVO_FIELDS_mgbl_hello(X, rec)                          \
    X(rec, ENUM, version, enum mivo_obfl_ver_e)                 \
    X(rec, UINT32, timestamp, uint32_t)                         \
    X(rec, BOOL, is_resend_msg, mivo_bool_t)                    \
    X(rec, UINT32, seq_num, uint32_t)                           \
    X(rec, BOOL, respawn, mivo_bool_t)

#define MIVO_FIELDS_mgbl_hello_done(X, rec)                     \
    X(rec, ENUM, version, enum mivo_obfl_ver_e)                 \
    X(rec, UINT32, timestamp, uint32_t)                         \
    X(rec, UINT64, err_code, uint64_t)                          \
    X(rec, UINT32, r_msn, uint32_t)

#define MIVO_FIELDS_mgbl_notify_locations(X, rec)               \
    X(rec, ENUM, version, enum mivo_obfl_ver_e)                 \
    X(rec, UINT32, timestamp, uint32_t)                         \
    X(rec, UINT32, primary_scope, uint32_t)                     \
    X(rec, UINT32, num_locations, uint32_t)                     \
    X(rec, REP_STRING, location_name, mivo_string_t)            \
    X(rec, UINT32, ha_role, uint32_t)

#define MIVO_FIELDS_mgbl_request(X, rec)                        \
    MIVO_ANONYMOUS_HEAD(X, rec)                                 \
    X(rec, ENUM, req_type, enum mivo_obfl_req_type_e)           \
    X(rec, ENUM, set_type, enum mivo_obfl_set_type_e)           \
    X(rec, ENUM, rec_type, enum mivo_obfl_rec_type_e)           \
    X(rec, BOOL, force_uci_reset, mivo_bool_t)

#define MIVO_FIELDS_mgbl_request_done(X, rec)                   \
    X(rec, ENUM, version, enum mivo_obfl_ver_e)                 \
    X(rec, UINT32, timestamp, uint32_t)                         \
    X(rec, UINT64, err_code, uint64_t)                          \
    X(rec, UINT32, r_msn, uint32_t)                             \
    X(rec, EID, tgt_eid, struct mivo_tesk_eid_st)               \
    X(rec, ENUM, set_type, enum mivo_obfl_set_type_e)           \
    X(rec, BOOL, last_response, mivo_bool_t)                    \
    X(rec, BOOL, incomplete_data, mivo_bool_t)                  \
    X(rec, ENUM, req_type, enum mivo_obfl_req_type_e)           \
    X(rec, ENUM, rec_type, enum mivo_obfl_rec_type_e)           \
    X(rec, UINT64, num_records, uint64_t)                       \
    X(rec, UINT64, length, uint64_t)                            \
    X(rec, BYTES, data, struct mivo_bytes)

/* ---- service registration ---- */

#define MIVO_FIELDS_svc_regn(X, rec)                            \
    MIVO_ANONYMOUS_HEAD(X, rec)                                 \
    X(rec, STRING, svc_name, mivo_string_t)                     \
    X(rec, ENUM, svc_type, enum mivo_obfl_svc_type_e)           \
    X(rec, STRING, client_name, mivo_string_t)                  \
    X(rec, UINT32, client_comp_id, uint32_t)

#define MIVO_FIELDS_svc_unregn(X, rec)                          \
    MIVO_REQUEST_HEAD(X, rec)                                   \
    X(rec, STRING, svc_name, mivo_string_t)                     \
    X(rec, ENUM, svc_type, enum mivo_obfl_svc_type_e)           \
    X(rec, STRING, client_name, mivo_string_t)                  \
    X(rec, UINT32, client_comp_id, uint32_t)

/* Both registration replies; unlike the reply head they hold _svc_type. */
#define MIVO_FIELDS_svc_reply(X, rec)                           \
    X(rec, ENUM, version, enum mivo_obfl_ver_e)                 \
    X(rec, UINT32, timestamp, uint32_t)                         \
    X(rec, UINT32, client_id, uint32_t)                         \
    X(rec, ENUM, svc_type, enum mivo_obfl_svc_type_e)           \
    X(rec, UINT64, err_code, uint64_t)                          \
    X(rec, UINT32, r_msn, uint32_t)
#define MIVO_FIELDS_svc_regn_done MIVO_FIELDS_svc_reply
#define MIVO_FIELDS_svc_unregn_done MIVO_FIELDS_svc_reply

/* ---- inventory records ---- */

#define MIVO_FIELDS_write_env_pep_record(X, rec)                \
    MIVO_REQUEST_HEAD(X, rec)                                   \
    X(rec, STRING, host_ver, mivo_string_t)                     \
    X(rec, STRING, tesk_ver, mivo_string_t)                     \
    X(rec, STRING, devname, mivo_string_t)                      \
    X(rec, UINT32, state, uint32_t)                             \
    X(rec, STRING, vid, mivo_string_t)                          \
    X(rec, STRING, pid, mivo_string_t)                          \
    X(rec, STRING, tan, mivo_string_t)                          \
    X(rec, STRING, sn, mivo_string_t)

#define MIVO_FIELDS_write_env_raw_record(X, rec)                \
    MIVO_REQUEST_HEAD(X, rec)                                   \
    X(rec, UINT32, ramsize_K, uint32_t)                         \
    X(rec, STRING, sw_ver, mivo_string_t)                       \
    X(rec, STRING, fw_ver, mivo_string_t)                       \
    X(rec, STRING, devname, mivo_string_t)                      \
    X(rec, UINT32, state, uint32_t)                             \
    X(rec, REP_BYTES, env_raw, struct mivo_bytes)

#define MIVO_FIELDS_write_env_pep_record_done MIVO_REPLY_HEAD
#define MIVO_FIELDS_write_env_raw_record_done MIVO_REPLY_HEAD

/* ---- thresholds ---- */

/* The voltage, current and temperature requests differ only in the name of
 * member 10. */
#define MIVO_ENV_THRESHOLDS(X, rec, max_diff)                   \
    MIVO_REQUEST_HEAD(X, rec)                                   \
    X(rec, UINT32, sampling_freq, uint32_t)                     \
    X(rec, UINT32, max_time_for_logging, uint32_t)              \
    X(rec, UINT32, max_diff, uint32_t)                          \
    X(rec, UINT32, num_sensors, uint32_t)                       \
    X(rec, REP_UINT32, sensor_id, uint32_t)                     \
    X(rec, REP_STRING, sensor_name, mivo_string_t)
#define MIVO_FIELDS_write_env_volt_thresholds(X, rec) MIVO_ENV_THRESHOLDS(X, rec, max_volt_diff)
#define MIVO_FIELDS_write_env_current_thresholds(X, rec) MIVO_ENV_THRESHOLDS(X, rec, max_current_diff)
#define MIVO_FIELDS_write_env_temp_thresholds(X, rec) MIVO_ENV_THRESHOLDS(X, rec, max_temp_diff)

/* Syslog and logged-string thresholds. */
#define MIVO_SEVERITY_THRESHOLDS(X, rec)                        \
    MIVO_REQUEST_HEAD(X, rec)                                   \
    X(rec, ENUM, svc_type, enum mivo_obfl_svc_type_e)           \
    X(rec, UINT32, severity, uint32_t)
#define MIVO_FIELDS_write_syslog_thresholds MIVO_SEVERITY_THRESHOLDS
#define MIVO_FIELDS_log_str_thresholds MIVO_SEVERITY_THRESHOLDS

#define MIVO_FIELDS_write_env_volt_thresholds_done MIVO_REPLY_HEAD
#define MIVO_FIELDS_write_env_current_thresholds_done MIVO_REPLY_HEAD
#define MIVO_FIELDS_write_env_temp_thresholds_done MIVO_REPLY_HEAD
#define MIVO_FIELDS_write_syslog_thresholds_done MIVO_REPLY_HEAD
#define MIVO_FIELDS_log_str_thresholds_done MIVO_REPLY_HEAD

/* ---- sensor readings ---- */

#define MIVO_FIELDS_log_env_sensor_info(X, rec)                 \
    MIVO_REQUEST_HEAD(X, rec)                                   \
    X(rec, ENUM, sensor_type, enum mivo_obfl_sensor_type_e)     \
    X(rec, UINT32, sensor_id, uint32_t)                         \
    X(rec, UINT32, adjust_type, uint32_t)                       \
    X(rec, INT32, value, int32_t)                               \
    X(rec, INT32, scale, int32_t)

#define MIVO_FIELDS_log_env_sensor_info_done(X, rec)            \
    MIVO_REPLY_HEAD(X, rec)                                     \
    X(rec, ENUM, sensor_type, enum mivo_obfl_sensor_type_e)

#define MIVO_FIELDS_log_bulk_env_sensor_info(X, rec)            \
    MIVO_REQUEST_HEAD(X, rec)                                   \
    X(rec, ENUM, sensor_type, enum mivo_obfl_sensor_type_e)     \
    X(rec, UINT32, num_sensors, uint32_t)                       \
    X(rec, REP_UINT32, sensor_id, uint32_t)                     \
    X(rec, REP_UINT32, adjust_type, uint32_t)                   \
    X(rec, REP_INT32, value, int32_t)                           \
    X(rec, REP_INT32, scale, int32_t)

#define MIVO_FIELDS_log_bulk_env_sensor_info_done(X, rec)       \
    MIVO_REPLY_HEAD(X, rec)                                     \
    X(rec, ENUM, sensor_type, enum mivo_obfl_sensor_type_e)     \
    X(rec, REP_UINT64, ret_errors, uint64_t)

/* ---- log records ---- */

#define MIVO_FIELDS_log_syslog(X, rec)                          \
    MIVO_REQUEST_HEAD(X, rec)                                   \
    X(rec, ENUM, svc_type, enum mivo_obfl_svc_type_e)           \
    X(rec, UINT32, obfl_msg_id, uint32_t)                       \
    X(rec, UINT32, obfl_msg_flags, uint32_t)                    \
    X(rec, ENUM, severity, enum mivo_syslog_sev_e)              \
    X(rec, UINT32, msg_tag, uint32_t)                           \
    X(rec, STRING, data, mivo_string_t)

#define MIVO_FIELDS_log_str(X, rec)                             \
    MIVO_REQUEST_HEAD(X, rec)                                   \
    X(rec, ENUM, svc_type, enum mivo_obfl_svc_type_e)           \
    X(rec, UINT32, obfl_msg_id, uint32_t)                       \
    X(rec, UINT32, obfl_msg_flags, uint32_t)                    \
    X(rec, UINT32, severity, uint32_t)                          \
    X(rec, STRING, data, mivo_string_t)

#define MIVO_FIELDS_log_uptime(X, rec)                          \
    MIVO_REQUEST_HEAD(X, rec)                                   \
    X(rec, UINT32, time_of_flash_format, uint32_t)              \
    X(rec, UINT32, time_of_first_cust_power_on, uint32_t)       \
    X(rec, UINT32, write_interval, uint32_t)                    \
    X(rec, UINT32, last_reset_reason, uint32_t)

#define MIVO_FIELDS_log_diag_record(X, rec)                     \
    MIVO_REQUEST_HEAD(X, rec)                                   \
    X(rec, ENUM, svc_type, enum mivo_obfl_svc_type_e)           \
    X(rec, ENUM, rec_type, enum mivo_obfl_rec_type_e)           \
    X(rec, STRING, test_name, mivo_string_t)                    \
    X(rec, UINT32, test_id, uint32_t)                           \
    X(rec, UINT32, pass_fail, uint32_t)                         \
    X(rec, UINT32, err_code, uint32_t)                          \
    X(rec, UINT32, total_run_count, uint32_t)                   \
    X(rec, UINT32, consecutive_fail_count, uint32_t)            \
    X(rec, UINT32, last_test_exec_ts, uint32_t)                 \
    X(rec, UINT32, first_test_fail_ts, uint32_t)                \
    X(rec, UINT32, last_test_fail_ts, uint32_t)                 \
    X(rec, UINT32, last_test_pass_ts, uint32_t)

#define MIVO_FIELDS_log_diag_str_record(X, rec)                 \
    MIVO_REQUEST_HEAD(X, rec)                                   \
    X(rec, UINT32, dest_slot, uint32_t)                         \
    X(rec, STRING, log_str, mivo_string_t)

/* Replies to the diagnostic records echo the record type. */
#define MIVO_DIAG_REPLY(X, rec)                                 \
    MIVO_REPLY_HEAD(X, rec)                                     \
    X(rec, ENUM, rec_type, enum mivo_obfl_rec_type_e)

#define MIVO_FIELDS_log_syslog_done MIVO_REPLY_HEAD
#define MIVO_FIELDS_log_str_done MIVO_REPLY_HEAD
#define MIVO_FIELDS_log_uptime_done MIVO_REPLY_HEAD
#define MIVO_FIELDS_log_diag_record_done MIVO_DIAG_REPLY
#define MIVO_FIELDS_log_diag_str_record_done MIVO_DIAG_REPLY

/* Every message: M(record name, field list). */
#define MIVO_OBFL_MGR_CATALOGUE(M)                                                          \
    M(mivo_svc_regn, MIVO_FIELDS_svc_regn)                                                  \
    M(mivo_svc_regn_done, MIVO_FIELDS_svc_regn_done)                                        \
    M(mivo_svc_unregn, MIVO_FIELDS_svc_unregn)                                              \
    M(mivo_svc_unregn_done, MIVO_FIELDS_svc_unregn_done)                                    \
    M(mivo_write_env_pep_record, MIVO_FIELDS_write_env_pep_record)                          \
    M(mivo_write_env_pep_record_done, MIVO_FIELDS_write_env_pep_record_done)                \
    M(mivo_write_env_raw_record, MIVO_FIELDS_write_env_raw_record)                          \
    M(mivo_write_env_raw_record_done, MIVO_FIELDS_write_env_raw_record_done)                \
    M(mivo_write_env_volt_thresholds, MIVO_FIELDS_write_env_volt_thresholds)                \
    M(mivo_write_env_volt_thresholds_done, MIVO_FIELDS_write_env_volt_thresholds_done)      \
    M(mivo_write_env_current_thresholds, MIVO_FIELDS_write_env_current_thresholds)          \
    M(mivo_write_env_current_thresholds_done, MIVO_FIELDS_write_env_current_thresholds_done)\
    M(mivo_write_env_temp_thresholds, MIVO_FIELDS_write_env_temp_thresholds)                \
    M(mivo_write_env_temp_thresholds_done, MIVO_FIELDS_write_env_temp_thresholds_done)      \
    M(mivo_log_env_sensor_info, MIVO_FIELDS_log_env_sensor_info)                            \
    M(mivo_log_env_sensor_info_done, MIVO_FIELDS_log_env_sensor_info_done)                  \
    M(mivo_log_bulk_env_sensor_info, MIVO_FIELDS_log_bulk_env_sensor_info)                  \
    M(mivo_log_bulk_env_sensor_info_done, MIVO_FIELDS_log_bulk_env_sensor_info_done)        \
    M(mivo_write_syslog_thresholds, MIVO_FIELDS_write_syslog_thresholds)                    \
    M(mivo_write_syslog_thresholds_done, MIVO_FIELDS_write_syslog_thresholds_done)          \
    M(mivo_log_syslog, MIVO_FIELDS_log_syslog)                                              \
    M(mivo_log_syslog_done, MIVO_FIELDS_log_syslog_done)                                    \
    M(mivo_log_str_thresholds, MIVO_FIELDS_log_str_thresholds)                              \
    M(mivo_log_str_thresholds_done, MIVO_FIELDS_log_str_thresholds_done)                    \
    M(mivo_log_str, MIVO_FIELDS_log_str)                                                    \
    M(mivo_log_str_done, MIVO_FIELDS_log_str_done)                                          \
    M(mivo_log_uptime, MIVO_FIELDS_log_uptime)                                              \
    M(mivo_log_uptime_done, MIVO_FIELDS_log_uptime_done)                                    \
    M(mivo_log_diag_record, MIVO_FIELDS_log_diag_record)                                    \
    M(mivo_log_diag_record_done, MIVO_FIELDS_log_diag_record_done)                          \
    M(mivo_log_diag_str_record, MIVO_FIELDS_log_diag_str_record)                            \
    M(mivo_log_diag_str_record_done, MIVO_FIELDS_log_diag_str_record_done)                  \
    M(mivo_mgbl_hello, MIVO_FIELDS_mgbl_hello)                                              \
    M(mivo_mgbl_hello_done, MIVO_FIELDS_mgbl_hello_done)                                    \
    M(mivo_mgbl_notify_locations, MIVO_FIELDS_mgbl_notify_locations)                        \
    M(mivo_mgbl_request, MIVO_FIELDS_mgbl_request)                                          \
    M(mivo_mgbl_request_done, MIVO_FIELDS_mgbl_request_done)

#endif /* MIVO_OBFL_MGR_CATALOGUE_H */
