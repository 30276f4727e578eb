// W9, a line card's traffic: a fixed, seeded sequence of records of all 37
// messages in the mix a line card sends and receives. Mostly syslog lines,
// sensor readings, bulk readings and their replies; now and then a
// registration, a threshold, an inventory record, a diagnostic result or a
// request's reply with data. Each record is filled in libprotobuf and handed
// out with libprotobuf's encoding; the benchmarks and the instruction-count
// driver take one record per operation in sequence order, so that their
// figures are per record of the mix.
#pragma once

#include <google/protobuf/message.h>

#include <cstddef>
#include <memory>
#include <span>
#include <string>
#include <vector>

// name, relative weight in the mix
#define BENCH_W9_MESSAGES(X)                                                                                    \
    X(svc_regn, 4) X(svc_regn_done, 4) X(svc_unregn, 2) X(svc_unregn_done, 2) X(write_env_pep_record, 6)        \
    X(write_env_pep_record_done, 6) X(write_env_raw_record, 3) X(write_env_raw_record_done, 3)                 \
    X(write_env_volt_thresholds, 3) X(write_env_volt_thresholds_done, 3) X(write_env_current_thresholds, 3)    \
    X(write_env_current_thresholds_done, 3) X(write_env_temp_thresholds, 3) X(write_env_temp_thresholds_done, 3) \
    X(log_env_sensor_info, 220) X(log_env_sensor_info_done, 200) X(log_bulk_env_sensor_info, 60)               \
    X(log_bulk_env_sensor_info_done, 60) X(write_syslog_thresholds, 3) X(write_syslog_thresholds_done, 3)      \
    X(log_syslog, 250) X(log_syslog_done, 230) X(log_str_thresholds, 3) X(log_str_thresholds_done, 3)          \
    X(log_str, 20) X(log_str_done, 20) X(log_uptime, 10) X(log_uptime_done, 10) X(log_diag_record, 15)         \
    X(log_diag_record_done, 15) X(log_diag_str_record, 8) X(log_diag_str_record_done, 8) X(mgbl_hello, 2)       \
    X(mgbl_hello_done, 2) X(mgbl_notify_locations, 2) X(mgbl_request, 8) X(mgbl_request_done, 8)

namespace bench {

inline constexpr size_t line_card_records = 12000;

// A message of the mix; a record's kind is its position in BENCH_W9_MESSAGES.
struct mix_message {
    const char *name; // without the mivo_ prefix
    unsigned weight;  // relative to the others
    const google::protobuf::Message *prototype;
};
std::span<const mix_message> mix_messages();

struct mix_record {
    unsigned kind;
    std::unique_ptr<google::protobuf::Message> pb;
    std::string wire; // libprotobuf's encoding of pb
};

// The line_card_records records: every message once first, then the mix.
std::vector<mix_record> line_card_mix();

} // namespace bench
