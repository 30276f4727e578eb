#!/usr/bin/env bash
# Builds the Debian packages of a build tree, checks them with lintian,
# unpacks them with dpkg -x into a scratch root and builds and runs the C
# examples against that root twice: through find_package(mivo_obfl_mgr) and
# through pkg-config. Nothing may come from the loader's environment: the
# programs and the tool must start from their run paths alone.
# usage: package_test.sh BUILD_DIR EXAMPLES_DIR LIBDIR CMAKE CPACK CTEST GENERATOR C_COMPILER
set -euo pipefail

build=$1 examples=$2 libdir=$3 cmake=$4 cpack=$5 ctest=$6 generator=$7 cc=$8
scratch=$(mktemp -d /tmp/mivo-package-XXXXXX)
trap 'rm -rf "$scratch"' EXIT
prefix=$scratch/root/usr
unset LD_LIBRARY_PATH
step() { printf '\n== %s\n' "$*"; }
fail() { echo "FAILED: $*"; exit 1; }

step "cpack -G DEB"
"$cpack" -G DEB --config "$build/CPackConfig.cmake" -B "$scratch/debs" >"$scratch/cpack.log" \
    || { cat "$scratch/cpack.log"; exit 1; }
debs=("$scratch"/debs/*.deb)
((${#debs[@]} == 3)) || fail "expected 3 packages, got ${#debs[@]}"
for deb in "${debs[@]}"; do
    dpkg-deb -f "$deb" Package Depends
    dpkg -x "$deb" "$scratch/root"
done
if command -v lintian >/dev/null; then
    step "lintian"
    lintian --fail-on error "${debs[@]}" 2>&1 | grep -v 'root privileges' || true
    lintian --fail-on error "${debs[@]}" >/dev/null 2>&1 || fail "lintian reports errors"
fi

step "installed headers: plain C, no description macros"
[[ -f $prefix/include/mivo/mivo_obfl_mgr_def.h && ! -e $prefix/include/mivo/mivo_obfl_mgr_catalogue.h ]] \
    || fail "wrong header set"
if grep -nE '^[[:space:]]*#[[:space:]]*define' "$prefix"/include/mivo/*.h | grep -vE '_H$|_API __attribute__'; then
    fail "macros beyond include guards and export attributes"
fi

step "examples via find_package"
"$cmake" -S "$examples" -B "$scratch/cmake" -G "$generator" -DCMAKE_C_COMPILER="$cc" \
    -DCMAKE_PREFIX_PATH="$prefix" -DMIVO_WARNINGS_AS_ERRORS=ON >"$scratch/configure.log" \
    || { cat "$scratch/configure.log"; exit 1; }
found=$(sed -n 's/^mivo_obfl_mgr_DIR:PATH=//p' "$scratch/cmake/CMakeCache.txt")
[[ $found == "$prefix/$libdir/cmake/mivo_obfl_mgr" ]] || fail "package found elsewhere: $found"
"$cmake" --build "$scratch/cmake" >"$scratch/build.log" || { cat "$scratch/build.log"; exit 1; }
"$ctest" --test-dir "$scratch/cmake" --output-on-failure --no-tests=error

step "examples via pkg-config"
export PKG_CONFIG_PATH=$prefix/$libdir/pkgconfig
read -ra pc_flags <<<"$(pkg-config --cflags --libs mivo_obfl_mgr)"
echo "pkg-config: ${pc_flags[*]}"
for src in "$examples"/*.c; do
    exe=$scratch/pc-$(basename "$src" .c)
    # Only the main library on the program's own run path, linked as needed:
    # the sibling must then be found through the main library's $ORIGIN.
    "$cc" -std=c11 -Wall -Wextra -Werror -pedantic "$src" -Wl,--as-needed "${pc_flags[@]}" \
        -Wl,-rpath,"$prefix/$libdir" -o "$exe"
    "$exe" >/dev/null || fail "$exe"
    echo "ran $(basename "$exe")"
done

step "obfl-wire finds the libraries of its own root"
! ldd "$prefix/bin/obfl-wire" | grep -E 'not found|=> /usr/' | grep mivo || fail "obfl-wire run path"
ldd "$prefix/bin/obfl-wire" | grep mivo
