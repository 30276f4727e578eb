# Sourced by bench.sh and instructions.sh: the packages and the Release tree
# that the benchmarks and the instruction counts share. Sets build.
. scripts/packages.sh
bench_tree() {
    ensure_packages cmake ninja-build g++ binutils python3 pkg-config libbenchmark-dev libprotobuf-dev \
        protobuf-compiler libprotobuf-c-dev protobuf-c-compiler libnanopb-dev nanopb nlohmann-json3-dev libcli11-dev "$@"
    build=${BENCH_BUILD_DIR:-build-bench}
    cmake -S . -B "$build" -G Ninja -DCMAKE_BUILD_TYPE=Release -DMIVO_BUILD_BENCHMARKS=ON \
        -DMIVO_BUILD_TESTS=OFF -DMIVO_BUILD_EXAMPLES=OFF >/dev/null
}
