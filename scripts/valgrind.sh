#!/usr/bin/env bash
# Runs the unit, property, differential, concurrency and fuzz-replay tests of
# the normal build ($BUILD_DIR, default build/) under valgrind memcheck: a
# second opinion on memory errors and leaks, without sanitizer instrumentation.
set -euo pipefail
cd "$(dirname "$0")/.."
build=${BUILD_DIR:-build}
[ -d "$build" ] || { cmake --preset default -B "$build" -DMIVO_BUILD_TESTS=ON && cmake --build "$build"; }
vg=(valgrind --quiet --error-exitcode=1 --leak-check=full --errors-for-leak-kinds=definite,indirect)
failed=0
for t in wire_primitives_test worked_examples_test bad_input_test memory_rules_test entity_identifier_test \
         differential_test properties_test concurrency_test; do
  exe=$(find "$build/tests" -type f -name "$t" -perm -u+x | head -n 1)
  [ -n "$exe" ] || continue
  printf '%-24s ' "$t"
  if "${vg[@]}" "$exe" --gtest_brief=1 >"$build/valgrind-$t.log" 2>&1; then
    echo "clean"
  else
    echo "FAILED (see $build/valgrind-$t.log)"; failed=1
  fi
done
printf '%-24s ' fuzz_replay
if "${vg[@]}" "$build/fuzz/fuzz_replay" fuzz/regressions "$build/fuzz/seeds" >"$build/valgrind-fuzz_replay.log" 2>&1; then
  echo "clean"
else
  echo "FAILED (see $build/valgrind-fuzz_replay.log)"; failed=1
fi
exit "$failed"
