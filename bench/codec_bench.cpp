// This library against libprotobuf (heap and Arena), protobuf-c and nanopb on
// nine workloads, all contenders in one process. Compare them as ratios
// within one run (scripts/bench.sh does); absolute times on a shared machine
// mean little.
//
// Benchmarks are named <workload>/<operation>/<contender>. Every decoder is
// fed libprotobuf's encoding; every encoder encodes the record its own
// decoder made from it. Before anything is timed, each contender's encoding
// is decoded by every other contender and re-encoded, and must give that
// contender's own encoding back (nanopb packs repeated numbers, which this
// library refuses by design, so that one pairing is left out for W2 and W5).
//
// workloads.hpp holds the records of W1 to W8, line_card_mix.hpp those of
// W9; workload_bench.hpp and line_card_bench.hpp time them in every
// contender through the adapters of peers.hpp. This file registers them.
#include <benchmark/benchmark.h>

#include <cstdio>

#include "line_card_bench.hpp"
#include "workload_bench.hpp"
#include "workloads.hpp"

namespace {

// The messages W1 to W8 hold: name, protobuf-c's name for it, whether nanopb
// packs its repeated numbers.
#define BENCH_WORKLOAD_MESSAGES(X)                                                                       \
    X(log_syslog, LogSyslog, false) X(log_bulk_env_sensor_info, LogBulkEnvSensorInfo, true)               \
    X(mgbl_request_done, MgblRequestDone, false) X(write_env_raw_record, WriteEnvRawRecord, false)        \
    X(write_env_temp_thresholds, WriteEnvTempThresholds, true) X(mgbl_hello_done, MgblHelloDone, false)   \
    X(log_diag_record, LogDiagRecord, false) X(mgbl_notify_locations, MgblNotifyLocations, false)

bool add(const bench::workload &w)
{
#define BENCH_ADD(m, Pbc, npb_packs)                                                                     \
    if (w.message == #m) {                                                                               \
        return bench::add(w, BENCH_PEERS(m, Pbc), npb_packs);                                            \
    }
    BENCH_WORKLOAD_MESSAGES(BENCH_ADD)
#undef BENCH_ADD
    return bench::fail(w.name + ": no contenders listed for " + w.message);
}

} // namespace

int main(int argc, char **argv)
{
    benchmark::Initialize(&argc, argv);
    for (const bench::workload &w : bench::workloads()) {
        if (!add(w)) {
            return 1;
        }
    }
    if (!bench::add_line_card()) {
        return 1;
    }
    std::fprintf(stderr, "cross-check passed: every contender's bytes decode alike in every other\n");
    benchmark::RunSpecifiedBenchmarks();
    benchmark::Shutdown();
    google::protobuf::ShutdownProtobufLibrary();
    return 0;
}
