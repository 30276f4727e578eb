#!/usr/bin/env bash
# The binary interface of libmivo_obfl_mgr and libmivo_tesk_eid against its
# baseline in abi/: libabigail's description of each library (every exported
# function, every type it reaches with its members, sizes and offsets,
# enumeration values, the SONAME and the libraries it needs).
#
#   scripts/abi.sh check    build both libraries and compare them with the
#                           baseline (abidiff): exit 0 when nothing changed,
#                           otherwise the report, what the change asks of the
#                           version, and exit 1
#   scripts/abi.sh update   rewrite the baseline and the Debian symbols
#                           template after a deliberate change, refused when
#                           the project's version does not allow that change
#
# The rule (README.md, "Versioning"): a change that can break a program
# built against the baseline (a removed function, a changed signature,
# record layout, enumeration value or SONAME) needs a new major version,
# which is the SONAME; additions and what abidiff calls harmless (new
# functions, new enumeration constants, a renamed member) a new minor one.
# $ABI_BUILD_DIR (default build-abi/) is the build directory; $JOBS the
# parallelism.
set -euo pipefail
cd "$(dirname "$0")/.."
mode=${1:-}
[[ $mode == check || $mode == update ]] || { echo "usage: $0 check|update" >&2; exit 2; }

. scripts/packages.sh
packages=(cmake ninja-build gcc g++ abigail-tools)
[[ $mode == check ]] || packages+=(dpkg-dev)
ensure_packages "${packages[@]}"

src=$PWD
build=${ABI_BUILD_DIR:-build-abi}
baseline=abi
libs=(system_pkg/obfl/libmivo_obfl_mgr shared_pkg/common/libmivo_tesk_eid)
symbols=cmake/debian/symbols
version=$(sed -n 's/^project(mivo_obfl_mgr VERSION \([0-9.]*\).*/\1/p' CMakeLists.txt)
[[ $version =~ ^[0-9]+\.[0-9]+\.[0-9]+$ ]] || { echo "no project version in CMakeLists.txt" >&2; exit 2; }

# Built optimised with debug information (RelWithDebInfo) by GCC, as the
# baseline was; source paths relative, so that the description does not
# depend on where the checkout is; identical functions kept apart, since
# folded together the entry points of records of one shape would lose
# their own debug information, and with it the types they take.
flags="-fno-ipa-icf -ffile-prefix-map=$src/="
log=$(cmake -S . -B "$build" -G Ninja -DCMAKE_BUILD_TYPE=RelWithDebInfo \
    -DCMAKE_C_COMPILER=gcc -DCMAKE_CXX_COMPILER=g++ -DCMAKE_C_FLAGS="$flags" -DCMAKE_CXX_FLAGS="$flags" \
    -DMIVO_SANITIZE= -DMIVO_BUILD_TOOL=OFF -DMIVO_BUILD_TESTS=OFF -DMIVO_BUILD_EXAMPLES=OFF \
    -DMIVO_BUILD_GENERATOR=OFF -DMIVO_BUILD_BENCHMARKS=OFF 2>&1) || { echo "$log"; exit 1; }
log=$(cmake --build "$build" --parallel "${JOBS:-2}" --target mivo_obfl_mgr mivo_tesk_eid 2>&1) || { echo "$log"; exit 1; }
build=$(cd "$build" && pwd)

# The description of one library as the baseline keeps it.
describe() {
    abidw --exported-interfaces-only --no-corpus-path --no-comp-dir-path --no-show-locs \
        --type-id-style hash --out-file "$2" "$1"
}
# abidiff's exit status is a bit set: 1 and 2 errors, 4 a change, 8 an
# incompatible one (a removed function). The check counts every change,
# harmless ones (a new enumeration constant) too, so that the baseline
# describes the libraries exactly; what is left without additions and
# without harmless changes is a change to what programs already use.
compare() { abidiff --no-show-locs "$@"; }

mkdir -p "$build/abi"
changed=0 existing=0
for lib in "${libs[@]}"; do
    name=$(basename "$lib")
    describe "$build/$lib.so" "$build/abi/$name.xml"
    [[ -f $baseline/$name.xml ]] || { echo "$name: no baseline ($baseline/$name.xml)"; changed=1; existing=1; continue; }
    rc=0
    compare --harmless "$baseline/$name.xml" "$build/abi/$name.xml" >"$build/abi/$name.report" || rc=$?
    ((rc & 3)) && { cat "$build/abi/$name.report"; echo "abidiff failed ($rc)" >&2; exit 2; }
    ((rc)) || continue
    changed=1
    compare --no-added-syms "$baseline/$name.xml" "$build/abi/$name.xml" >/dev/null || existing=1
    echo "== $name: differs from $baseline/$name.xml"
    cat "$build/abi/$name.report"
done

old=$(sed -n 's/.*the ABI of mivo_obfl_mgr \([0-9.]*\).*/\1/p' "$baseline"/*.xml 2>/dev/null | sort -uV | tail -1 || true)
old=${old:-0.0.0}
IFS=. read -r major minor _ <<<"$version"
IFS=. read -r old_major old_minor _ <<<"$old"
if ((existing)); then
    need="a new major version (and SONAME): $((old_major + 1)).0.0"
    allowed=$((major > old_major))
else
    need="a new minor version: $old_major.$((old_minor + 1)).0"
    allowed=$((major > old_major || (major == old_major && minor > old_minor)))
fi

if [[ $mode == check ]]; then
    ((changed)) || { echo "ABI unchanged against $baseline/ (version $old)"; exit 0; }
    echo
    echo "The ABI differs from the baseline of version $old. Undo the change, or make"
    echo "it deliberately: it needs $need in CMakeLists.txt,"
    echo "then scripts/abi.sh update."
    exit 1
fi

if ((changed && !allowed)); then
    echo "refused: the change needs $need, and CMakeLists.txt says $version" >&2
    exit 1
fi
for lib in "${libs[@]}"; do
    name=$(basename "$lib")
    # The note goes inside the root element: abidiff tells the file's kind by its start.
    sed "1a\\  <!-- Generated by scripts/abi.sh update: the ABI of mivo_obfl_mgr $version ($name). -->" \
        "$build/abi/$name.xml" >"$baseline/$name.xml"
done
# The Debian symbols template: a symbol it lists keeps the version that
# brought it, a new one gets this version; a new SONAME starts afresh.
package=libmivo-obfl-mgr$major
tmp=$(mktemp -d "/tmp/abi-symbols-XXXXXX")
trap 'rm -rf "$tmp"' EXIT
args=()
for lib in "${libs[@]}"; do args+=("-e$build/$lib.so.$major"); done
((major == old_major)) && [[ -f $symbols ]] && args+=("-I$src/$symbols")
(cd "$tmp" && dpkg-gensymbols -q -p"$package" -v"$version" -O"$tmp/symbols" "${args[@]}")
{ echo "# Generated by scripts/abi.sh update from the libraries of mivo_obfl_mgr $version."
  echo "# Packaging ships it as DEBIAN/symbols and fails when the libraries differ from it."
  grep -v -e '^#' -e '^\* Build-Depends-Package:' "$tmp/symbols" |
    sed "/ #MINVER#\$/a * Build-Depends-Package: libmivo-obfl-mgr-dev"; } >"$symbols"
echo "baseline written: $baseline/ and $symbols (version $version)"
git status --short "$baseline" "$symbols" 2>/dev/null || true
