#!/usr/bin/env bash
# Builds everything and runs every test (in build/, or $BUILD_DIR; $JOBS
# sets the parallelism). Installs the Debian packages it
# needs when they are missing.
set -euo pipefail
cd "$(dirname "$0")/.."

packages=(cmake ninja-build gcc g++ binutils pkg-config python3
          libgtest-dev libprotobuf-dev protobuf-compiler python3-protobuf
          nlohmann-json3-dev libcli11-dev
          clang-14 libclang-rt-14-dev valgrind
          dpkg-dev file lintian                        # the package test
          abigail-tools                                # the ABI check
          libbenchmark-dev libprotobuf-c-dev protobuf-c-compiler libnanopb-dev nanopb)  # the benchmark

. scripts/packages.sh

ensure_packages "${packages[@]}"
jobs=${JOBS:-$(nproc)}
build_dir=${BUILD_DIR:-build}

stage() { printf '\n==== %s\n' "$*"; }

stage "default build: unit, differential, properties, concurrency, examples, packages"
# The demo may have configured build/ with tests off; switch them back on.
cmake --preset default -B "$build_dir" -DMIVO_BUILD_TESTS=ON -DMIVO_BUILD_EXAMPLES=ON
cmake --build "$build_dir" --parallel "$jobs"
ctest --test-dir "$build_dir" --output-on-failure --no-tests=error --parallel "$jobs"

stage "ABI: both libraries against the baseline in abi/ (scripts/abi.sh)"
JOBS=$jobs scripts/abi.sh check

stage "clang 14: everything (benchmarks included) with warnings as errors, and the suite again"
clang_dir=${CLANG_BUILD_DIR:-build-clang}
cmake -S . -B "$clang_dir" -G Ninja -DCMAKE_BUILD_TYPE=Release \
  -DCMAKE_C_COMPILER=clang-14 -DCMAKE_CXX_COMPILER=clang++-14 -DMIVO_WARNINGS_AS_ERRORS=ON \
  -DMIVO_BUILD_TESTS=ON -DMIVO_BUILD_EXAMPLES=ON -DMIVO_BUILD_BENCHMARKS=ON
cmake --build "$clang_dir" --parallel "$jobs"
ctest --test-dir "$clang_dir" --output-on-failure --no-tests=error --parallel "$jobs"

stage "benchmark: cross-checks every contender's bytes, one smoke iteration (timings not judged)"
"$clang_dir"/bench/codec_bench --benchmark_min_time=0.000001 >/dev/null

stage "AddressSanitizer + UndefinedBehaviorSanitizer: the whole suite again"
cmake --preset asan -B "${ASAN_BUILD_DIR:-build-asan}" -DMIVO_BUILD_TESTS=ON -DMIVO_BUILD_EXAMPLES=ON
cmake --build "${ASAN_BUILD_DIR:-build-asan}" --parallel "$jobs"
ctest --test-dir "${ASAN_BUILD_DIR:-build-asan}" --output-on-failure --no-tests=error --parallel "$jobs"

stage "ThreadSanitizer: many threads coding at once"
tsan_dir=${TSAN_BUILD_DIR:-build-tsan}
cmake -S . -B "$tsan_dir" -G Ninja -DCMAKE_BUILD_TYPE=RelWithDebInfo -DMIVO_SANITIZE=thread \
  -DMIVO_BUILD_TESTS=ON -DMIVO_BUILD_EXAMPLES=OFF
cmake --build "$tsan_dir" --parallel "$jobs" --target concurrency_test
ctest --test-dir "$tsan_dir" --output-on-failure --no-tests=error -R '^Concurrency'

stage "valgrind memcheck over the unit, property and differential tests"
BUILD_DIR=$build_dir scripts/valgrind.sh

stage "libFuzzer over every decoder, ${FUZZ_SECONDS:-120} s"
scripts/fuzz.sh "${FUZZ_SECONDS:-120}"

# The same tables on other processors, under emulation; each target is
# installed into its build directory and the examples built against that.
for target in aarch64 armhf s390x; do
  stage "cross build: $target under qemu-user (scripts/cross.sh)"
  BUILD_DIR=$build_dir JOBS=$jobs scripts/cross.sh "$target" "build-$target/installed"
done

stage "all stages passed"
