#!/usr/bin/env bash
# Instructions per call of our library's operations, counted by callgrind.
# bench/callgrind_driver runs each workload's encode, measure then write,
# decode + release and duplicate + release (and the identifier alone through
# its own library) N and 2N times; each figure is (Ir(2N) - Ir(N)) / N, the
# calling loop included, so that setup and first calls cancel out. Callgrind
# counts exactly: the same binaries give the same figures on every run.
#
#   scripts/instructions.sh [--n N] [--libs BUILD_DIR] [--json FILE]
#                           [--compare FILE [--limit PERCENT]] [--record]
#
#   --n N           calls per loop of the shorter run (default 1000; at least
#                   1000, as W9 runs its 12,000-record mix N/1000 times)
#   --libs DIR      count the libraries of another build tree (DIR's
#                   system_pkg/obfl and shared_pkg/common, through
#                   LD_LIBRARY_PATH) with this tree's driver, so that two
#                   builds are compared by one driver binary
#   --json FILE     also write the figures as JSON
#   --compare FILE  show each figure beside those of FILE (a --json output)
#                   and exit 1 if any grew by more than --limit percent
#                   (default 3)
#   --record        write the table into docs/benchmarks.md, section
#                   "Instructions per operation", and the figures into
#                   docs/instructions.json
#
# The driver is built in Release in BENCH_BUILD_DIR (default build-bench, the
# tree scripts/bench.sh builds), JOBS wide (default 2).
set -euo pipefail
cd "$(dirname "$0")/.."
start=$SECONDS

usage() { sed -n '2,/^set -euo/{/^#/s/^# \{0,1\}//p}' "$0"; exit "$1"; }
n=1000 libs= json= compare= limit=3 record=
while (($#)); do
  case $1 in
    --n) n=${2:?}; shift 2 ;;
    --libs) libs=${2:?}; shift 2 ;;
    --json) json=${2:?}; shift 2 ;;
    --compare) compare=${2:?}; shift 2 ;;
    --limit) limit=${2:?}; shift 2 ;;
    --record) record=1; shift ;;
    -h|--help) usage 0 ;;
    *) usage 2 >&2 ;;
  esac
done
[[ $n =~ ^[0-9]+$ ]] && ((n >= 1000)) || { echo "instructions.sh: --n must be a whole number of at least 1000" >&2; exit 2; }
[[ -z $compare || -r $compare ]] || { echo "instructions.sh: cannot read $compare" >&2; exit 2; }

. scripts/bench_tree.sh
bench_tree valgrind
# The driver brings both libraries with it.
cmake --build "$build" --parallel "${JOBS:-2}" --target callgrind_driver >/dev/null
driver=$build/bench/callgrind_driver

# The libraries come from LD_LIBRARY_PATH, which the loader searches before a
# RUNPATH but after an RPATH: the driver must carry the first kind only.
libs=$(realpath "${libs:-$build}")
obfl_dir=$libs/system_pkg/obfl common_dir=$libs/shared_pkg/common
if readelf -d "$driver" | grep -q '(RPATH)'; then
  echo "instructions.sh: $driver carries an RPATH, which would override LD_LIBRARY_PATH" >&2
  exit 1
fi
export LD_LIBRARY_PATH=$obfl_dir:$common_dir
for want in "$obfl_dir"/libmivo_obfl_mgr.so.1 "$common_dir"/libmivo_tesk_eid.so.1; do
  [[ -e $want ]] || { echo "instructions.sh: $want not found: is $libs a build tree with the libraries built?" >&2; exit 2; }
  got=$(ldd "$driver" | awk -v l="${want##*/}" '$1 == l { print $3 }')
  if [[ $(realpath "$got") != $(realpath "$want") ]]; then
    echo "instructions.sh: the driver loads ${want##*/} from '$got', not from $want" >&2
    exit 1
  fi
done

# Both runs at once: each is one process, and callgrind's counts do not
# depend on what else the machine does.
tmp=$(mktemp -d /tmp/instructions.XXXXXX)
trap 'rm -rf "$tmp"' EXIT
pids=()
for calls in "$n" $((2 * n)); do
  mkdir "$tmp/$calls"
  valgrind --tool=callgrind --instr-atstart=no --callgrind-out-file="$tmp/$calls/out" \
    "$driver" "$calls" >"$tmp/$calls/calls" 2>"$tmp/$calls/valgrind" &
  pids+=($!)
done
status=0
for pid in "${pids[@]}"; do
  wait "$pid" || status=$?
done
if ((status)); then
  cat "$tmp"/*/valgrind >&2
  echo "instructions.sh: the driver failed under callgrind" >&2
  exit 1
fi

# What built a tree: compiler, build type, and the last commit of the
# library sources (marked when they have uncommitted changes).
describe() {
  local tree=$1 src id ver type commit
  src=$(sed -n 's/^CMAKE_HOME_DIRECTORY:INTERNAL=//p' "$tree/CMakeCache.txt")
  type=$(sed -n 's/^CMAKE_BUILD_TYPE:STRING=//p' "$tree/CMakeCache.txt")
  id=$(sed -n 's/^set(CMAKE_CXX_COMPILER_ID "\(.*\)")$/\1/p' "$tree"/CMakeFiles/*/CMakeCXXCompiler.cmake | tail -1)
  ver=$(sed -n 's/^set(CMAKE_CXX_COMPILER_VERSION "\(.*\)")$/\1/p' "$tree"/CMakeFiles/*/CMakeCXXCompiler.cmake | tail -1)
  commit=$(git -C "$src" log -1 --format=%h -- codec runtime shared_pkg system_pkg 2>/dev/null || echo unknown)
  if [[ -n $(git -C "$src" status --porcelain --untracked-files=no -- codec runtime shared_pkg system_pkg 2>/dev/null) ]]; then
    commit="$commit + uncommitted changes"
  fi
  printf '%s\t%s %s\t%s\t%s\n' "$tree" "$id" "$ver" "${type:-none}" "$commit"
}
describe "$libs" >"$tmp/libs.txt"
describe "$(realpath "$build")" >"$tmp/driver.txt"

status=0
python3 - "$tmp" "$n" "$json" "$compare" "$limit" "$record" <<'PY' || status=$?
import glob, json, os, re, sys, textwrap

tmp, n, json_out, compare, limit, record = sys.argv[1:7]
n, limit = int(n), float(limit)

def run(calls):
    """label -> (calls made, Ir counted) for one run of the driver."""
    made = dict((l.rsplit(" ", 1)[0], int(l.rsplit(" ", 1)[1])) for l in open(f"{tmp}/{calls}/calls") if l.strip())
    counted = {}
    for path in glob.glob(f"{tmp}/{calls}/out.*"):
        text = open(path).read()
        label = re.search(r"^desc: Trigger: Client Request: (.*)$", text, re.M)
        if label:
            counted[label.group(1)] = int(re.search(r"^summary: (\d+)$", text, re.M).group(1))
    missing = set(made) ^ set(counted)
    if missing:
        sys.exit(f"instructions.sh: loops without both a call count and a callgrind dump: {sorted(missing)}")
    return {l: (made[l], counted[l]) for l in made}

short, long_ = run(n), run(2 * n)
figures = {}
for label, (calls, ir) in short.items():
    calls2, ir2 = long_[label]
    figures[label] = round((ir2 - ir) / (calls2 - calls), 2)

def build(path):
    tree, compiler, build_type, commit = open(path).read().rstrip("\n").split("\t")
    if not os.path.relpath(tree).startswith(".."):
        tree = os.path.relpath(tree)
    return {"tree": tree, "compiler": compiler, "build_type": build_type, "commit": commit}
result = {"n": n, "libraries": build(f"{tmp}/libs.txt"), "driver": build(f"{tmp}/driver.txt"),
          "instructions": figures}

ops = [("encode", "encode"), ("measure_write", "measure, then write"), ("decode", "decode + release"),
       ("duplicate", "duplicate + release")]
id_ops = [("measure", "measure it"), ("write_exact", "write it into a buffer of exactly its length"),
          ("write_larger", "write it into a larger buffer")]
workloads = list(dict.fromkeys(l.split("/")[0] for l in figures if not l.startswith("identifier/")))

def shown(v):
    return f"{v:,.0f}" if v == int(v) else f"{v:,.1f}"

def tables():
    lines = ["| workload | " + " | ".join(t for _, t in ops) + " |", "|---|" + "---:|" * len(ops)]
    for w in workloads:
        lines.append(f"| {w} | " + " | ".join(shown(figures[w + '/' + o]) for o, _ in ops) + " |")
    lines += ["", "| the identifier, through its own library | instructions |", "|---|---:|"]
    lines += [f"| {t} | {shown(figures['identifier/' + o])} |" for o, t in id_ops]
    return "\n".join(lines)

lib, drv = result["libraries"], result["driver"]
print(f"Instructions per call, (Ir(2N) - Ir(N)) / N with N = {n}, the calling loop included")
print(f"libraries: {lib['tree']} ({lib['compiler']}, {lib['build_type']}, library sources at {lib['commit']})")
print(f"driver:    {drv['tree']}/bench/callgrind_driver ({drv['compiler']}, {drv['build_type']})\n")
print(tables())

if json_out:
    with open(json_out, "w") as f:
        json.dump(result, f, indent=1)
        f.write("\n")

if record:
    about = (f"Counted by callgrind with `scripts/instructions.sh --record` (N = {n}): "
             "`bench/callgrind_driver` runs each operation N and 2N times, and each figure is "
             "(Ir(2N) - Ir(N)) / N, the instructions of one call with its share of the calling loop; setup and "
             "first calls cancel out. W9 counts one record of its mix as a call and runs the whole 12,000-record "
             "mix N/1000 times, so its figures are per record of the mix. Encode writes into a buffer larger than "
             "needed; measure, then write asks for the length (size 0) and writes into a buffer of exactly that "
             "length; decode reads libprotobuf's encoding with malloc as the allocator. "
             f"Libraries: {lib['compiler']}, {lib['build_type']}, library sources at commit {lib['commit']}; "
             f"driver: {drv['compiler']}, {drv['build_type']}. Callgrind counts exactly, so a rerun gives the same "
             "figures; they are also in `docs/instructions.json`. A change to the engine is held to them: no figure "
             "may grow by more than 3 % (`scripts/instructions.sh --compare docs/instructions.json`; "
             "`--libs BUILD_DIR` counts another build's libraries with the same driver).")
    section = "## Instructions per operation\n\n" + textwrap.fill(about, 78, break_on_hyphens=False) + \
              "\n\n" + tables() + "\n"
    doc = open("docs/benchmarks.md").read() if os.path.exists("docs/benchmarks.md") else "# Benchmarks\n"
    head, _, rest = doc.partition("## Instructions per operation\n")
    after = rest[rest.find("\n## ") + 1:] if "\n## " in rest else ""  # sections after this one stay
    with open("docs/benchmarks.md", "w") as f:
        f.write(head.rstrip("\n") + "\n\n" + section + ("\n" + after if after else ""))
    with open("docs/instructions.json", "w") as f:
        json.dump(result, f, indent=1)
        f.write("\n")
    print("\nwrote docs/benchmarks.md (Instructions per operation) and docs/instructions.json")

if compare:
    before = json.load(open(compare))
    old = before["instructions"]
    print(f"\nAgainst {compare} (libraries: {before['libraries']['compiler']}, {before['libraries']['build_type']}, "
          f"library sources at {before['libraries']['commit']}; N = {before['n']}); limit +{limit:g} %\n")
    for what in ("libraries", "driver"):
        then, now = before[what], result[what]
        if (then["compiler"], then["build_type"]) != (now["compiler"], now["build_type"]):
            print(f"note: the {what} were built differently ({then['compiler']}, {then['build_type']} before; "
                  f"{now['compiler']}, {now['build_type']} now)\n")
    print("| loop | before | now | change |")
    print("|---|---:|---:|---:|")
    over = []
    for label in list(dict.fromkeys(list(old) + list(figures))):
        if label not in old or label not in figures:
            print(f"| {label} | {old.get(label, '-')} | {figures.get(label, '-')} | - |")
            continue
        change = (figures[label] / old[label] - 1) * 100 if old[label] else 0.0
        mark = " **over**" if change > limit else ""
        if mark:
            over.append(label)
        print(f"| {label} | {shown(old[label])} | {shown(figures[label])} | {change:+.1f} %{mark} |")
    if over:
        print(f"\n{len(over)} figure(s) grew by more than {limit:g} %: {', '.join(over)}")
        sys.exit(1)
    print(f"\nno figure grew by more than {limit:g} %")
PY
echo "($((SECONDS - start)) s)"
exit $status
