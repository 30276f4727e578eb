#!/usr/bin/env bash
# Builds the two libraries, their tests and the examples for another
# processor with Debian's cross compiler, and runs them under qemu-user:
#   scripts/cross.sh TARGET [PREFIX]    TARGET: aarch64, armhf or s390x
# With PREFIX, the target's libraries and headers are then installed there,
# and the examples are built against that copy and run. Installs the Debian
# packages it needs when they are missing. Builds in build-TARGET/
# ($CROSS_BUILD_DIR); the programs that need libprotobuf (they write the
# random inputs the target's tests read) run natively from build/
# ($BUILD_DIR, configured as scripts/test.sh configures it). $JOBS sets the
# parallelism.
set -euo pipefail
prefix=${2:+$(realpath -m "$2")}
cd "$(dirname "$0")/.."

case ${1:-} in
  aarch64) triplet=aarch64-linux-gnu deb_arch=arm64 ;;
  armhf) triplet=arm-linux-gnueabihf deb_arch=armhf ;;
  s390x) triplet=s390x-linux-gnu deb_arch=s390x ;;
  *) echo "usage: scripts/cross.sh aarch64|armhf|s390x [PREFIX]" >&2; exit 2 ;;
esac
target=$1

. scripts/packages.sh
ensure_packages cmake ninja-build gcc g++ pkg-config libgtest-dev libprotobuf-dev protobuf-compiler \
  nlohmann-json3-dev libcli11-dev \
  googletest qemu-user "g++-$triplet" "libc6-dev-$deb_arch-cross"

jobs=${JOBS:-$(nproc)}
host_dir=$(realpath -m "${BUILD_DIR:-build}")
cross_dir=${CROSS_BUILD_DIR:-build-$target}
toolchain=$PWD/cmake/toolchains/$triplet.cmake

timed() {
  local what=$1 start=$SECONDS
  shift
  "$@"
  printf '==== %s %s: %d s\n' "$target" "$what" $((SECONDS - start))
}

printf '\n==== %s: native programs that write the target tests inputs\n' "$target"
cmake --preset default -B "$host_dir" -DMIVO_BUILD_TESTS=ON -DMIVO_BUILD_EXAMPLES=ON >/dev/null
timed "native writers" cmake --build "$host_dir" --parallel "$jobs" --target store_random_wire fuzz_seed_corpus

printf '\n==== %s: build (%s)\n' "$target" "$triplet"
cmake -S . -B "$cross_dir" -G Ninja -DCMAKE_TOOLCHAIN_FILE="$toolchain" -DCMAKE_BUILD_TYPE=RelWithDebInfo \
  -DMIVO_WARNINGS_AS_ERRORS=ON -DMIVO_BUILD_TESTS=ON -DMIVO_BUILD_EXAMPLES=ON -DMIVO_HOST_BUILD_DIR="$host_dir"
timed build cmake --build "$cross_dir" --parallel "$jobs"

printf '\n==== %s: tests under emulation\n' "$target"
timed tests ctest --test-dir "$cross_dir" --output-on-failure --no-tests=error --parallel "$jobs"

if [ -n "$prefix" ]; then
  printf '\n==== %s: install into %s, examples against that copy\n' "$target" "$prefix"
  for component in runtime development; do
    cmake --install "$cross_dir" --prefix "$prefix" --component "$component"
  done
  examples_dir=$cross_dir/installed-examples
  cmake -S examples -B "$examples_dir" -G Ninja -DCMAKE_TOOLCHAIN_FILE="$toolchain" \
    -DCMAKE_PREFIX_PATH="$prefix" -DMIVO_WARNINGS_AS_ERRORS=ON >/dev/null
  cmake --build "$examples_dir" --parallel "$jobs"
  ctest --test-dir "$examples_dir" --output-on-failure --no-tests=error
fi
printf '==== %s: all passed\n' "$target"
