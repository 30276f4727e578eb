#!/usr/bin/env bash
# Builds the benchmarks in Release and prints, per message and direction, how
# many times faster this library is than each peer codec (ratios taken in one
# run, so a noisy machine affects every contender alike).
set -euo pipefail
cd "$(dirname "$0")/.."
. scripts/packages.sh
ensure_packages cmake ninja-build g++ libbenchmark-dev libprotobuf-dev protobuf-compiler \
  libprotobuf-c-dev protobuf-c-compiler pkg-config nlohmann-json3-dev libcli11-dev
cmake -S . -B build-bench -G Ninja -DCMAKE_BUILD_TYPE=Release -DMIVO_BUILD_BENCHMARKS=ON \
  -DMIVO_BUILD_TESTS=OFF -DMIVO_BUILD_EXAMPLES=OFF >/dev/null
cmake --build build-bench --target codec_bench
build-bench/bench/codec_bench --benchmark_repetitions="${REPETITIONS:-3}" --benchmark_report_aggregates_only=true \
  --benchmark_format=json --benchmark_out=build-bench/bench.json --benchmark_out_format=json "$@" >/dev/null
python3 - build-bench/bench.json <<'PY'
import json, sys
rows = {}
for b in json.load(open(sys.argv[1]))["benchmarks"]:
    if b.get("aggregate_name") != "median":
        continue
    message, direction, who = b["run_name"].split("/")
    rows.setdefault((message, direction), {})[who] = b["cpu_time"]
print(f"{'message':<18} {'op':<7} {'ours ns':>8} {'vs libprotobuf':>15} {'vs protobuf-c':>14} {'ours-malloc ns':>15}")
for (message, direction), t in rows.items():
    ours = t["ours"]
    print(f"{message:<18} {direction:<7} {ours:8.0f} {t['libprotobuf'] / ours:14.2f}x {t['protobuf-c'] / ours:13.2f}x "
          f"{t.get('ours-malloc', float('nan')):15.0f}")
PY
