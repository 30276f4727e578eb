#!/usr/bin/env bash
# Runs the test executables (unit, property, differential, concurrency) and
# the fuzz checks over the stored regressions and seeds, all from
# the normal build ($BUILD_DIR, default build/), under valgrind memcheck: a
# second opinion on memory errors and leaks, without sanitizer instrumentation.
set -euo pipefail
cd "$(dirname "$0")/.."
build=${BUILD_DIR:-build}
[ -d "$build" ] || { cmake --preset default -B "$build" -DMIVO_BUILD_TESTS=ON && cmake --build "$build"; }
vg=(valgrind --quiet --error-exitcode=1 --leak-check=full --errors-for-leak-kinds=definite,indirect)
failed=0
# Every GoogleTest executable the build has, whichever suites it holds.
for exe in $(find "$build/tests" -type f -name '*_test' -perm -u+x | sort); do
  t=$(basename "$exe")
  printf '%-24s ' "$t"
  if "${vg[@]}" "$exe" --gtest_brief=1 >"$build/valgrind-$t.log" 2>&1; then
    echo "clean"
  else
    echo "FAILED (see $build/valgrind-$t.log)"; failed=1
  fi
done
seeds=$build/fuzz/seeds
[ -d "$seeds" ] || "$build/fuzz/fuzz_seed_corpus" "$seeds" 16 >/dev/null
printf '%-24s ' fuzz_replay
if "${vg[@]}" "$build/fuzz/fuzz_replay" fuzz/regressions "$seeds" >"$build/valgrind-fuzz_replay.log" 2>&1; then
  echo "clean"
else
  echo "FAILED (see $build/valgrind-fuzz_replay.log)"; failed=1
fi
exit "$failed"
