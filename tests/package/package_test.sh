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
    step "lintian: no error, no warning"
    lint=0
    lintian --fail-on error,warning "${debs[@]}" >"$scratch/lintian.log" 2>&1 || lint=$?
    grep -v 'root privileges' "$scratch/lintian.log" || true
    ((lint == 0)) || fail "lintian reports errors or warnings"
fi

step "runtime package: symbols file of exactly its exports, ldconfig by trigger"
runtime=$(ls "$scratch"/debs/libmivo-obfl-mgr[0-9]*_*.deb)
dpkg-deb --ctrl-tarfile "$runtime" | tar -t | sed 's|^\./||' | sort >"$scratch/control.list"
for member in symbols:yes triggers:yes shlibs:yes postinst:no postrm:no; do
    grep -qx "${member%:*}" "$scratch/control.list" && has=yes || has=no
    [[ $has == "${member#*:}" ]] || fail "control member ${member%:*}: present=$has"
done
dpkg-deb -I "$runtime" symbols >"$scratch/symbols"
listed=$(sed -n 's/^ \([^ @]*\)@Base .*/\1/p' "$scratch/symbols" | sort)
exported=$(for so in $(dpkg-deb -c "$runtime" | awk '$6 ~ /\.so\.[0-9]+$/ {print $6}'); do
    nm -D --defined-only "$scratch/root/$so" | awk '{print $NF}'; done | sort)
[[ -n $listed && $listed == "$exported" ]] || { diff <(echo "$listed") <(echo "$exported"); fail "symbols file"; }
echo "$(wc -l <<<"$listed") symbols listed, as exported"
# The packaging check itself: a template that lists one symbol too few or
# one too many must stop cpack.
template=$(sed -n 's/^set(CPACK_MIVO_SYMBOLS_TEMPLATE "\(.*\)")$/\1/p' "$build/CPackConfig.cmake")
for edit in '/ mivo_log_str_done_duplicate@Base/d' '$a\ mivo_tesk_eid_st_ghost@Base 1.0.0'; do
    sed "$edit" "$template" >"$scratch/bad-symbols"
    if "$cpack" -G DEB --config "$build/CPackConfig.cmake" -B "$scratch/bad-debs" \
        -D CPACK_MIVO_SYMBOLS_TEMPLATE="$scratch/bad-symbols" >"$scratch/bad.log" 2>&1; then
        fail "cpack accepted a symbols template edited with: $edit"
    fi
    grep -q 'do not export exactly the symbols' "$scratch/bad.log" || { cat "$scratch/bad.log"; fail "$edit"; }
    echo "refused: template edited with $edit"
done

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

step "find_package(mivo_obfl_mgr <request>) against the packages and an installed tree"
# Same major version, no older than asked: what the version file promises.
version=$(dpkg-deb -f "$runtime" Version)
IFS=. read -r major minor _ <<<"$version"
rows="found   $major
found   $major.$minor
found   $version EXACT
found   $major.0...<$((major + 1))
refused $major.$((minor + 1))
refused $((major + 1))
refused $((major - 1)).9"
"$cmake" --install "$build" --prefix "$scratch/installed" >/dev/null
mkdir -p "$scratch/consumer"
cat >"$scratch/consumer/CMakeLists.txt" <<'CMAKE'
cmake_minimum_required(VERSION 3.25)
project(consumer LANGUAGES C)
foreach(request IN LISTS REQUESTS)
  separate_arguments(arguments UNIX_COMMAND "${request}")
  find_package(mivo_obfl_mgr ${arguments} QUIET)
  if(mivo_obfl_mgr_FOUND)
    message(STATUS "${request}: found ${mivo_obfl_mgr_VERSION} in ${mivo_obfl_mgr_DIR}")
  else()
    message(STATUS "${request}: refused")
  endif()
endforeach()
CMAKE
requests=$(cut -c9- <<<"$rows" | paste -sd';')
for root in "$prefix" "$scratch/installed"; do
    rm -rf "$scratch/consumer/b"
    "$cmake" -S "$scratch/consumer" -B "$scratch/consumer/b" -DREQUESTS="$requests" -DCMAKE_C_COMPILER="$cc" \
        -DCMAKE_PREFIX_PATH="$root" -DCMAKE_FIND_USE_PACKAGE_REGISTRY=OFF >"$scratch/consumer.log" 2>&1 \
        || { cat "$scratch/consumer.log"; exit 1; }
    while read -r expect request; do
        want="-- $request: refused"
        [[ $expect == found ]] && want="-- $request: found $version in $root/$libdir/cmake/mivo_obfl_mgr"
        grep -qxF -- "$want" "$scratch/consumer.log" || { cat "$scratch/consumer.log"; fail "want: $want"; }
    done <<<"$rows"
done
sed -n 's/^-- \(.*\): \(found\|refused\).*/find_package(mivo_obfl_mgr \1): \2/p' "$scratch/consumer.log"

step "obfl-wire finds the libraries of its own root"
! ldd "$prefix/bin/obfl-wire" | grep -E 'not found|=> /usr/' | grep mivo || fail "obfl-wire run path"
ldd "$prefix/bin/obfl-wire" | grep mivo
