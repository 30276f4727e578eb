#!/usr/bin/env bash
# Builds the library and runs the round-trip example (in build/, or
# $BUILD_DIR; $JOBS sets the parallelism). Installs the Debian
# packages it needs when they are missing.
set -euo pipefail
cd "$(dirname "$0")/.."

packages=(cmake ninja-build gcc g++)

. scripts/packages.sh

ensure_packages "${packages[@]}"

# Tests off: the demo needs neither GoogleTest nor protobuf, nor obfl-wire's
# JSON and command-line libraries (the configure leaves the tool out
# without them).
build_dir=${BUILD_DIR:-build}
cmake --preset default -B "$build_dir" -DMIVO_BUILD_TESTS=OFF -DMIVO_BUILD_EXAMPLES=ON
cmake --build "$build_dir" --parallel "${JOBS:-$(nproc)}" --target obfl_round_trip
exec "$build_dir/examples/obfl_round_trip"
