// Encode and decode throughput of this library against libprotobuf and
// protobuf-c on the same messages. All contenders run in one process, so
// compare them as ratios (scripts/bench.sh prints them); absolute times on a
// shared machine mean little.
//
// Fairness: every decoder gets its cheapest memory regime - ours and
// protobuf-c a bump arena reset per iteration, libprotobuf a reused message
// object - and ours is also measured with malloc and a full release.
#include <benchmark/benchmark.h>

#include <cstdlib>
#include <string>
#include <vector>

#include "mivo_obfl_mgr_def.h"
#include "obfl_catalogue.pb-c.h"
#include "obfl_catalogue.pb.h"

namespace {

// A bump allocator: allocation is a pointer increment, release is a reset.
class bump_arena {
public:
    explicit bump_arena(size_t size) : memory_(size) {}
    void reset() { used_ = 0; }
    void *take(size_t size)
    {
        const size_t at = (used_ + 15) & ~size_t{15};
        if (at + size > memory_.size()) {
            return nullptr;
        }
        used_ = at + size;
        return memory_.data() + at;
    }
    static void *alloc(size_t size, void *token) { return static_cast<bump_arena *>(token)->take(size); }
    static void *pbc_alloc(void *token, size_t size) { return alloc(size, token); }
    static void pbc_free(void *, void *) {}

private:
    std::vector<unsigned char> memory_;
    size_t used_ = 0;
};

void *heap_alloc(size_t size, void *) { return std::malloc(size); }
void heap_free(void *p, void *) { std::free(p); }

void fill_eid(mivo_wire::tesk_eid_st *eid, uint32_t rack)
{
    eid->set_version(1);
    eid->set_rack_num(rack);
    eid->set_slot_num(7);
    eid->set_inst_num(2);
    eid->set_num_tsi(2);
    for (uint32_t i = 0; i < 2; ++i) {
        auto *tsi = eid->add_tsi();
        tsi->set_type(3 + i);
        tsi->mutable_sub_type()->set_subtype_chassis(40 + i);
        tsi->set_instance(i);
    }
}

template <class M>
void fill_request_head(M &m)
{
    m.set_version(1);
    m.set_timestamp(1700000000);
    fill_eid(m.mutable_tgt_eid(), 1);
    fill_eid(m.mutable_src_eid(), 2);
    m.set_client_id(42);
    m.set_is_resend_msg(false);
    m.set_seq_num(123456);
}

std::string syslog_wire()
{
    mivo_wire::log_syslog m;
    fill_request_head(m);
    m.set_svc_type(4);
    m.set_obfl_msg_id(77);
    m.set_obfl_msg_flags(0x11);
    m.set_severity(1);
    m.set_msg_tag(9);
    m.set_data("%PLATFORM-ENVMON-2-TEMP_HIGH : Temperature sensor inlet 0/RP0 reading 71 C exceeds the major "
               "threshold of 70 C");
    return m.SerializeAsString();
}

std::string thresholds_wire()
{
    mivo_wire::write_env_volt_thresholds m;
    fill_request_head(m);
    m.set_sampling_freq(60);
    m.set_max_time_for_logging(3600);
    m.set_max_volt_diff(50);
    m.set_num_sensors(16);
    for (uint32_t i = 0; i < 16; ++i) {
        m.add_sensor_id(1000 + i * 37);
        m.add_sensor_name("0/RP0/VP" + std::to_string(i) + "_VOLTAGE_RAIL");
    }
    return m.SerializeAsString();
}

std::string bulk_wire()
{
    mivo_wire::log_bulk_env_sensor_info m;
    fill_request_head(m);
    m.set_sensor_type(1);
    m.set_num_sensors(32);
    for (int i = 0; i < 32; ++i) {
        m.add_sensor_id(static_cast<uint32_t>(2000 + i));
        m.add_adjust_type(static_cast<uint32_t>(i % 3));
        m.add_value(i * 1337 - 20000);
        m.add_scale(-3);
    }
    return m.SerializeAsString();
}

std::string request_done_wire()
{
    mivo_wire::mgbl_request_done m;
    m.set_version(1);
    m.set_timestamp(1700000000);
    m.set_err_code(0);
    m.set_r_msn(5);
    fill_eid(m.mutable_tgt_eid(), 1);
    m.set_req_type(2);
    m.set_rec_type(7);
    m.set_num_records(64);
    m.set_length(4096);
    m.set_last_response(true);
    std::string block(4096, '\0');
    for (size_t i = 0; i < block.size(); ++i) {
        block[i] = static_cast<char>(i * 31);
    }
    m.set_data(block);
    return m.SerializeAsString();
}

const uint8_t *bytes_of(const std::string &s) { return reinterpret_cast<const uint8_t *>(s.data()); }

// One message as every contender sees it.
template <class Rec, class Pb, class Pbc>
struct contender_set {
    int (*decode)(Rec *, const uint8_t *, size_t, mivo_alloc_t *, void *, mivo_flags);
    size_t (*encode)(const Rec *, uint8_t *, size_t, mivo_bytes *, unsigned *, mivo_flags);
    void (*release)(Rec *, mivo_free_t *, void *, mivo_flags);
    Pbc *(*pbc_unpack)(ProtobufCAllocator *, size_t, const uint8_t *);
    size_t (*pbc_pack)(const Pbc *, uint8_t *);
    void (*pbc_free)(Pbc *, ProtobufCAllocator *);
    std::string (*make_wire)();
};

template <class Rec, class Pb, class Pbc>
void register_message(const char *name, contender_set<Rec, Pb, Pbc> c)
{
    static std::vector<std::string> wires; // benchmarks outlive this call
    wires.reserve(16);
    const std::string &wire = wires.emplace_back(c.make_wire());
    const std::string n(name);

    benchmark::RegisterBenchmark((n + "/decode/ours").c_str(), [c, &wire](benchmark::State &st) {
        bump_arena arena(1 << 20);
        Rec r;
        for (auto _ : st) {
            arena.reset();
            benchmark::DoNotOptimize(c.decode(&r, bytes_of(wire), wire.size(), bump_arena::alloc, &arena, MIVO_FLAGS_NONE));
        }
        st.SetBytesProcessed(static_cast<int64_t>(st.iterations() * wire.size()));
    });
    benchmark::RegisterBenchmark((n + "/decode/ours-malloc").c_str(), [c, &wire](benchmark::State &st) {
        Rec r;
        for (auto _ : st) {
            benchmark::DoNotOptimize(c.decode(&r, bytes_of(wire), wire.size(), heap_alloc, nullptr, MIVO_FLAGS_NONE));
            c.release(&r, heap_free, nullptr, MIVO_FLAGS_NONE);
        }
        st.SetBytesProcessed(static_cast<int64_t>(st.iterations() * wire.size()));
    });
    benchmark::RegisterBenchmark((n + "/decode/libprotobuf").c_str(), [&wire](benchmark::State &st) {
        Pb m;
        for (auto _ : st) {
            benchmark::DoNotOptimize(m.ParseFromArray(wire.data(), static_cast<int>(wire.size())));
        }
        st.SetBytesProcessed(static_cast<int64_t>(st.iterations() * wire.size()));
    });
    benchmark::RegisterBenchmark((n + "/decode/protobuf-c").c_str(), [c, &wire](benchmark::State &st) {
        bump_arena arena(1 << 20);
        ProtobufCAllocator allocator{bump_arena::pbc_alloc, bump_arena::pbc_free, &arena};
        for (auto _ : st) {
            arena.reset();
            benchmark::DoNotOptimize(c.pbc_unpack(&allocator, wire.size(), bytes_of(wire)));
        }
        st.SetBytesProcessed(static_cast<int64_t>(st.iterations() * wire.size()));
    });

    benchmark::RegisterBenchmark((n + "/encode/ours").c_str(), [c, &wire](benchmark::State &st) {
        Rec r;
        if (c.decode(&r, bytes_of(wire), wire.size(), heap_alloc, nullptr, MIVO_FLAGS_NONE) != MIVO_NO_ERROR) {
            st.SkipWithError("decode failed");
            return;
        }
        std::vector<uint8_t> out(c.encode(&r, nullptr, 0, nullptr, nullptr, MIVO_FLAGS_NONE));
        for (auto _ : st) {
            benchmark::DoNotOptimize(c.encode(&r, out.data(), out.size(), nullptr, nullptr, MIVO_FLAGS_NONE));
            benchmark::ClobberMemory();
        }
        st.SetBytesProcessed(static_cast<int64_t>(st.iterations() * out.size()));
        c.release(&r, heap_free, nullptr, MIVO_FLAGS_NONE);
    });
    benchmark::RegisterBenchmark((n + "/encode/libprotobuf").c_str(), [&wire](benchmark::State &st) {
        Pb m;
        m.ParseFromArray(wire.data(), static_cast<int>(wire.size()));
        std::vector<uint8_t> out(m.ByteSizeLong());
        for (auto _ : st) {
            benchmark::DoNotOptimize(m.SerializeToArray(out.data(), static_cast<int>(out.size())));
            benchmark::ClobberMemory();
        }
        st.SetBytesProcessed(static_cast<int64_t>(st.iterations() * out.size()));
    });
    benchmark::RegisterBenchmark((n + "/encode/protobuf-c").c_str(), [c, &wire](benchmark::State &st) {
        Pbc *m = c.pbc_unpack(nullptr, wire.size(), bytes_of(wire));
        std::vector<uint8_t> out(wire.size() + 64);
        for (auto _ : st) {
            benchmark::DoNotOptimize(c.pbc_pack(m, out.data()));
            benchmark::ClobberMemory();
        }
        st.SetBytesProcessed(static_cast<int64_t>(st.iterations() * wire.size()));
        c.pbc_free(m, nullptr);
    });
}

} // namespace

int main(int argc, char **argv)
{
    register_message<mivo_log_syslog, mivo_wire::log_syslog, MivoWire__LogSyslog>(
        "log_syslog", {mivo_log_syslog_decode_ext, mivo_log_syslog_encode_ext, mivo_log_syslog_free_ext,
                       mivo_wire__log_syslog__unpack, mivo_wire__log_syslog__pack,
                       mivo_wire__log_syslog__free_unpacked, syslog_wire});
    register_message<mivo_write_env_volt_thresholds, mivo_wire::write_env_volt_thresholds,
                     MivoWire__WriteEnvVoltThresholds>(
        "volt_thresholds",
        {mivo_write_env_volt_thresholds_decode_ext, mivo_write_env_volt_thresholds_encode_ext,
         mivo_write_env_volt_thresholds_free_ext, mivo_wire__write_env_volt_thresholds__unpack,
         mivo_wire__write_env_volt_thresholds__pack, mivo_wire__write_env_volt_thresholds__free_unpacked,
         thresholds_wire});
    register_message<mivo_log_bulk_env_sensor_info, mivo_wire::log_bulk_env_sensor_info,
                     MivoWire__LogBulkEnvSensorInfo>(
        "bulk_sensor_info",
        {mivo_log_bulk_env_sensor_info_decode_ext, mivo_log_bulk_env_sensor_info_encode_ext,
         mivo_log_bulk_env_sensor_info_free_ext, mivo_wire__log_bulk_env_sensor_info__unpack,
         mivo_wire__log_bulk_env_sensor_info__pack, mivo_wire__log_bulk_env_sensor_info__free_unpacked, bulk_wire});
    register_message<mivo_mgbl_request_done, mivo_wire::mgbl_request_done, MivoWire__MgblRequestDone>(
        "request_done_4k",
        {mivo_mgbl_request_done_decode_ext, mivo_mgbl_request_done_encode_ext, mivo_mgbl_request_done_free_ext,
         mivo_wire__mgbl_request_done__unpack, mivo_wire__mgbl_request_done__pack,
         mivo_wire__mgbl_request_done__free_unpacked, request_done_wire});

    benchmark::Initialize(&argc, argv);
    benchmark::RunSpecifiedBenchmarks();
    benchmark::Shutdown();
    google::protobuf::ShutdownProtobufLibrary();
    return 0;
}
