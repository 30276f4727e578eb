#!/usr/bin/env bash
# Builds everything and runs every test (in build/, or $BUILD_DIR; $JOBS
# sets the parallelism). Installs the Debian packages it
# needs when they are missing.
set -euo pipefail
cd "$(dirname "$0")/.."

packages=(cmake ninja-build gcc g++ pkg-config python3
          libgtest-dev libprotobuf-dev protobuf-compiler
          clang-14 libclang-rt-14-dev valgrind)

ensure_packages() {
    command -v dpkg >/dev/null || { echo "not a Debian system: install ${*} yourself" >&2; return 0; }
    local missing=() p
    for p in "$@"; do
        dpkg -s "$p" >/dev/null 2>&1 || missing+=("$p")
    done
    ((${#missing[@]})) || return 0
    local sudo=()
    ((EUID == 0)) || sudo=(sudo)
    echo "installing: ${missing[*]}"
    "${sudo[@]}" apt-get update -q
    "${sudo[@]}" env DEBIAN_FRONTEND=noninteractive apt-get install -y -q --no-install-recommends "${missing[@]}"
}

ensure_packages "${packages[@]}"
jobs=${JOBS:-$(nproc)}
build_dir=${BUILD_DIR:-build}

stage() { printf '\n==== %s\n' "$*"; }

stage "default build: unit, differential, properties, concurrency, install, example"
# The demo may have configured build/ with tests off; switch them back on.
cmake --preset default -B "$build_dir" -DMIVO_BUILD_TESTS=ON -DMIVO_BUILD_EXAMPLES=ON
cmake --build "$build_dir" --parallel "$jobs"
ctest --test-dir "$build_dir" --output-on-failure --no-tests=error --parallel "$jobs"

# ---- further stages (sanitizers, valgrind, fuzzing) go here ---------------

stage "all stages passed"
