// The records of W1 to W8, filled completely in libprotobuf.
#include "workloads.hpp"

#include "obfl_catalogue.pb.h"

namespace bench {
namespace {

void fill_eid(obfl::tesk_eid_st *eid, uint32_t rack)
{
    eid->set_version(1);
    eid->set_rack_num(rack);
    eid->set_slot_num(7);
    eid->set_inst_num(2);
    eid->set_num_tsi(1);
    auto *tsi = eid->add_tsi();
    tsi->set_type(3);
    tsi->mutable_sub_type()->set_subtype_chassis(40 + rack);
    tsi->set_instance(rack);
}

template <class M>
void fill_head(M &m)
{
    m.set_version(1);
    m.set_timestamp(1700000000);
    fill_eid(m.mutable_tgt_eid(), 1);
    fill_eid(m.mutable_src_eid(), 2);
    m.set_client_id(42);
    m.set_is_resend_msg(true);
    m.set_seq_num(123456);
}

std::string text(size_t n, const char *stem)
{
    std::string s;
    while (s.size() < n) {
        s += stem;
    }
    s.resize(n);
    return s;
}

std::string w1()
{
    obfl::log_syslog m;
    fill_head(m);
    m.set_svc_type(4);
    m.set_obfl_msg_id(77);
    m.set_obfl_msg_flags(0x11);
    m.set_severity(1);
    m.set_msg_tag(9);
    m.set_data(text(120, "%PLATFORM-ENVMON-2-TEMP_HIGH: inlet 0/RP0 reads 71 C, above 70 C. "));
    return m.SerializeAsString();
}

std::string w2()
{
    obfl::log_bulk_env_sensor_info m;
    fill_head(m);
    m.set_sensor_type(1);
    m.set_num_sensors(64);
    for (int i = 0; i < 64; ++i) {
        m.add_sensor_id(static_cast<uint32_t>(2000 + i * 13));
        m.add_adjust_type(static_cast<uint32_t>(i % 3));
        m.add_value(i % 2 ? -(i * 1337) : i * 1337);
        m.add_scale(i % 2 ? -3 : 2);
    }
    return m.SerializeAsString();
}

std::string w3(size_t data_size)
{
    obfl::mgbl_request_done m;
    m.set_version(1);
    m.set_timestamp(1700000000);
    m.set_err_code(0);
    m.set_r_msn(5);
    fill_eid(m.mutable_tgt_eid(), 1);
    m.set_set_type(3);
    m.set_last_response(true);
    m.set_incomplete_data(false);
    m.set_req_type(2);
    m.set_rec_type(7);
    m.set_num_records(64);
    m.set_length(data_size);
    std::string block(data_size, '\0');
    for (size_t i = 0; i < block.size(); ++i) {
        block[i] = static_cast<char>(i * 31);
    }
    m.set_data(block);
    return m.SerializeAsString();
}

std::string w4()
{
    obfl::write_env_raw_record m;
    fill_head(m);
    m.set_ramsize_k(8388608);
    m.set_sw_ver("7.11.1.34I");
    m.set_fw_ver("1.22.0");
    m.set_devname("0/RP0/CPU0");
    m.set_state(2);
    for (int b = 0; b < 16; ++b) {
        std::string block(1024, '\0');
        for (size_t i = 0; i < block.size(); ++i) {
            block[i] = static_cast<char>(i * 7 + b);
        }
        m.add_env_raw(block);
    }
    return m.SerializeAsString();
}

std::string w5()
{
    obfl::write_env_temp_thresholds m;
    fill_head(m);
    m.set_sampling_freq(60);
    m.set_max_time_for_logging(3600);
    m.set_max_temp_diff(5);
    m.set_num_sensors(32);
    for (uint32_t i = 0; i < 32; ++i) {
        m.add_sensor_id(1000 + i * 37);
        m.add_sensor_name("0/RP0/TEMP_SENSOR_" + std::to_string(i));
    }
    return m.SerializeAsString();
}

std::string w6()
{
    obfl::mgbl_hello_done m;
    m.set_version(1);
    m.set_timestamp(1700000000);
    m.set_err_code(0x123456789ULL);
    m.set_r_msn(77);
    return m.SerializeAsString();
}

std::string w7()
{
    obfl::log_diag_record m;
    fill_head(m);
    m.set_svc_type(3);
    m.set_rec_type(4);
    m.set_test_name("OnlineDiagFabricLoopback");
    m.set_test_id(17);
    m.set_pass_fail(1);
    m.set_err_code(0);
    m.set_total_run_count(123456);
    m.set_consecutive_fail_count(2);
    m.set_last_test_exec_ts(1700000100);
    m.set_first_test_fail_ts(1699990000);
    m.set_last_test_fail_ts(1700000050);
    m.set_last_test_pass_ts(1700000100);
    return m.SerializeAsString();
}

std::string w8()
{
    obfl::mgbl_notify_locations m;
    m.set_version(1);
    m.set_timestamp(1700000000);
    m.set_primary_scope(2);
    m.set_num_locations(16);
    for (int i = 0; i < 16; ++i) {
        m.add_location_name("0/" + std::to_string(i) + "/CPU0");
    }
    m.set_ha_role(1);
    return m.SerializeAsString();
}

} // namespace

std::vector<workload> workloads()
{
    return {
        {"W1_log_syslog", "log_syslog", w1(), everyday},
        {"W2_bulk_sensor_info", "log_bulk_env_sensor_info", w2(), everyday},
        {"W3_request_done_64KiB", "mgbl_request_done", w3(65536), everyday | gathered},
        {"W3_request_done_1KiB", "mgbl_request_done", w3(1024), gathered},
        {"W3_request_done_64B", "mgbl_request_done", w3(64), gathered},
        {"W4_raw_record", "write_env_raw_record", w4(), everyday | gathered},
        {"W5_temp_thresholds", "write_env_temp_thresholds", w5(), everyday},
        {"W6_hello_done", "mgbl_hello_done", w6(), everyday},
        {"W7_diag_record", "log_diag_record", w7(), everyday},
        {"W8_notify_locations", "mgbl_notify_locations", w8(), everyday},
    };
}

std::string identifier()
{
    obfl::tesk_eid_st eid;
    fill_eid(&eid, 1);
    return eid.SerializeAsString();
}

} // namespace bench
