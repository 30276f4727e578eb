#!/usr/bin/env bash
# Fuzzes all 37 decoders and the identifier decoder for SECONDS (default 120)
# under AddressSanitizer and UndefinedBehaviorSanitizer, starting from seeds
# that libprotobuf serialises, and prints libFuzzer's executions and coverage;
# then obfl-wire's own hex and JSON parsing for a quarter of that time.
# Any invariant violation or sanitizer report fails the run and leaves the
# input in $build/fuzz/artifacts/: copy it into fuzz/regressions/.
#   scripts/fuzz.sh [SECONDS]          (FUZZ_BUILD_DIR, FUZZ_JOBS to override)
set -euo pipefail
cd "$(dirname "$0")/.."
seconds=${1:-120}
build=${FUZZ_BUILD_DIR:-build-fuzz}

cmake -S . -B "$build" -G Ninja -DCMAKE_BUILD_TYPE=RelWithDebInfo \
  -DCMAKE_C_COMPILER=clang-14 -DCMAKE_CXX_COMPILER=clang++-14 \
  -DMIVO_BUILD_TESTS=ON -DMIVO_BUILD_EXAMPLES=OFF -DMIVO_BUILD_FUZZERS=ON \
  -DMIVO_SANITIZE=address,undefined,fuzzer-no-link >/dev/null
cmake --build "$build" --target obfl_decode_fuzzer fuzz_seed_corpus obfl_wire_fuzzer

out=$build/fuzz
[ -d "$out/seeds" ] || "$out/fuzz_seed_corpus" "$out/seeds" 16
mkdir -p "$out/corpus" "$out/artifacts"
echo "fuzzing for ${seconds}s; log in $out/last-run.log"
status=0
"$out/obfl_decode_fuzzer" "$out/corpus" "$out/seeds" fuzz/regressions \
  -max_total_time="$seconds" -max_len=8192 -print_final_stats=1 -timeout=10 \
  -artifact_prefix="$out/artifacts/" >"$out/last-run.log" 2>&1 || status=$?
grep -E "^#[0-9]+[[:space:]]+DONE|^stat::number_of_executed_units|^stat::average_exec_per_sec|^stat::peak_rss|INFO: seed corpus|^==[0-9]+==ERROR|invariant violated" \
  "$out/last-run.log" || true
# cov: counts edges reached; put it beside the number instrumented.
total=$(sed -n 's/^INFO: Loaded [0-9]* modules *(\([0-9]*\) inline 8-bit counters).*/\1/p' "$out/last-run.log" | head -n 1)
reached=$(sed -n 's/^#[0-9]*[[:space:]]*DONE *cov: \([0-9]*\).*/\1/p' "$out/last-run.log" | tail -n 1)
[ -z "$total" ] || [ -z "$reached" ] || echo "edges reached: $reached of $total instrumented"
if [ "$status" -ne 0 ]; then
  tail -n 40 "$out/last-run.log"
  echo "fuzzing found a failure (exit $status); inputs in $out/artifacts/" >&2
fi
[ "$status" -ne 0 ] && exit "$status"

# The tool's fuzzer starts from the worked examples, as hex text and as JSON,
# and from the inputs that once broke it (fuzz/tool_regressions/, named after
# the defect).
tool=$out/tool
mkdir -p "$tool/corpus" "$tool/seeds" "$tool/artifacts"
n=0
grep -v '^#' tests/unit/data/worked_examples.txt | while IFS='|' read -r _ record hexed _; do
  n=$((n + 1))
  printf "\\x$(printf %02x $((n % 37)))%s" "$hexed" >"$tool/seeds/hex-$n"
  printf "\\x$(printf %02x $((n % 37 + 128)))%s" "$record" >"$tool/seeds/json-$n"
done
echo "fuzzing obfl-wire's parsing for $((seconds / 4 + 1))s; log in $tool/last-run.log"
"$out/obfl_wire_fuzzer" "$tool/corpus" "$tool/seeds" fuzz/tool_regressions -max_total_time=$((seconds / 4 + 1)) -max_len=4096 \
  -print_final_stats=1 -timeout=10 -artifact_prefix="$tool/artifacts/" >"$tool/last-run.log" 2>&1 || status=$?
grep -E "^stat::number_of_executed_units|^stat::average_exec_per_sec|^==[0-9]+==ERROR|deadly signal" "$tool/last-run.log" || true
if [ "$status" -ne 0 ]; then
  tail -n 40 "$tool/last-run.log"
  echo "fuzzing obfl-wire found a failure (exit $status); inputs in $tool/artifacts/" >&2
fi
exit "$status"
