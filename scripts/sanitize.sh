#!/usr/bin/env bash
# The test suite under the sanitizers:
#  - ThreadSanitizer (build-tsan): the concurrency test, many threads coding
#    at once from one shared input and one shared source record;
#  - AddressSanitizer + UndefinedBehaviorSanitizer (build-asan): every test.
# Sanitizer reports abort the test that triggers them, so any finding fails
# the script.
#   scripts/sanitize.sh [thread|address]   (default: both; JOBS, TSAN_BUILD_DIR,
#                                           ASAN_BUILD_DIR to override)
set -euo pipefail
cd "$(dirname "$0")/.."
jobs=${JOBS:-2}
which=${1:-all}

stage() { printf '\n==== %s\n' "$*"; }

if [ "$which" = all ] || [ "$which" = thread ]; then
  stage "ThreadSanitizer: concurrency test"
  tsan=${TSAN_BUILD_DIR:-build-tsan}
  cmake -S . -B "$tsan" -G Ninja -DCMAKE_BUILD_TYPE=RelWithDebInfo -DMIVO_SANITIZE=thread \
    -DMIVO_BUILD_TESTS=ON -DMIVO_BUILD_EXAMPLES=OFF >/dev/null
  cmake --build "$tsan" --parallel "$jobs" --target concurrency_test
  TSAN_OPTIONS="halt_on_error=1:second_deadlock_stack=1${TSAN_OPTIONS:+:$TSAN_OPTIONS}" \
    ctest --test-dir "$tsan" --output-on-failure --no-tests=error -R '^Concurrency\.'
fi

if [ "$which" = all ] || [ "$which" = address ]; then
  stage "AddressSanitizer + UndefinedBehaviorSanitizer: whole suite"
  asan=${ASAN_BUILD_DIR:-build-asan}
  cmake -S . -B "$asan" -G Ninja -DCMAKE_BUILD_TYPE=RelWithDebInfo -DMIVO_SANITIZE=address,undefined \
    -DMIVO_BUILD_TESTS=ON -DMIVO_BUILD_EXAMPLES=ON >/dev/null
  cmake --build "$asan" --parallel "$jobs"
  ASAN_OPTIONS="detect_leaks=1:abort_on_error=1:strict_string_checks=1${ASAN_OPTIONS:+:$ASAN_OPTIONS}" \
  UBSAN_OPTIONS="print_stacktrace=1:halt_on_error=1${UBSAN_OPTIONS:+:$UBSAN_OPTIONS}" \
    ctest --test-dir "$asan" --output-on-failure --no-tests=error --parallel "$jobs"
fi
stage "sanitizer runs passed"
