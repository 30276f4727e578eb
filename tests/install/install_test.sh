#!/usr/bin/env bash
# Installs a build tree into a scratch prefix and builds a consumer against
# it twice: through the CMake package and through pkg-config.
# usage: install_test.sh BUILD_DIR CMAKE GENERATOR C_COMPILER LIBDIR [EXTRA_C_FLAGS]
set -euo pipefail

build_dir=$1 cmake=$2 generator=$3 cc=$4 libdir=$5 extra_flags=${6:-}
here=$(cd "$(dirname "$0")" && pwd)
prefix=$(mktemp -d /tmp/mivo-install-XXXXXX)
trap 'rm -rf "$prefix"' EXIT

step() { printf '\n== %s\n' "$*"; }

step "install into $prefix"
"$cmake" --install "$build_dir" --prefix "$prefix" >"$prefix/install.log"
for f in include/mivo/nuvex.h include/mivo/mivo_tesk_eid_def.h include/mivo/mivo_obfl_mgr_def.h \
         "$libdir/libmivo_obfl_mgr.so" "$libdir/libmivo_tesk_eid.so" \
         "$libdir/pkgconfig/mivo_obfl_mgr.pc" "$libdir/cmake/mivo_obfl_mgr/mivo_obfl_mgrConfig.cmake" \
         "$libdir/cmake/mivo_obfl_mgr/mivo_obfl_mgrConfigVersion.cmake"; do
    [[ -e $prefix/$f ]] || { echo "missing: $f"; exit 1; }
done
# Programs record the SONAME, so the .so.1 links must exist and match it.
for lib in mivo_obfl_mgr mivo_tesk_eid; do
    [[ -L $prefix/$libdir/lib$lib.so.1 ]] || { echo "missing SONAME link lib$lib.so.1"; exit 1; }
done

step "consumer via find_package"
"$cmake" -S "$here/consumer" -B "$prefix/consumer-build" -G "$generator" \
    -DCMAKE_PREFIX_PATH="$prefix" -DCMAKE_C_COMPILER="$cc" \
    -DCMAKE_C_FLAGS="$extra_flags" -DCMAKE_EXE_LINKER_FLAGS="$extra_flags" >"$prefix/consumer-configure.log" \
    || { cat "$prefix/consumer-configure.log"; exit 1; }
found=$(sed -n 's/^mivo_obfl_mgr_DIR:PATH=//p' "$prefix/consumer-build/CMakeCache.txt")
[[ $found == "$prefix/$libdir/cmake/mivo_obfl_mgr" ]] || { echo "package found elsewhere: $found"; exit 1; }
"$cmake" --build "$prefix/consumer-build"
"$prefix/consumer-build/consumer"

step "consumer via pkg-config"
export PKG_CONFIG_PATH=$prefix/$libdir/pkgconfig
pc_flags=$(pkg-config --cflags --libs mivo_obfl_mgr)
echo "pkg-config: $pc_flags"
# shellcheck disable=SC2086  # the flags are meant to split
"$cc" -std=c11 -Wall -Wextra -Werror -pedantic $extra_flags "$here/consumer/consumer.c" $pc_flags \
    -o "$prefix/consumer-pc"
LD_LIBRARY_PATH=$prefix/$libdir "$prefix/consumer-pc"
