#!/usr/bin/env bash
# Measures what the test suite reaches: builds everything with gcc --coverage
# at -O0 in its own build directory, runs the whole CTest suite, and prints
# line and branch coverage per directory (cl/, platform/, programs/) with
# gcovr, then every function exported by include/cl.h that no test reaches
# and every catalogued reason the code raises that no test reaches.
# Not part of CI (slow); installs gcovr (Debian package) when it is missing.
#
#   bash tools/coverage.sh                 # build, test, report
#   CL_COVERAGE_BUILD=/tmp/cov bash tools/coverage.sh
#   CL_COVERAGE_LABELS='parse_test|convert_test' bash tools/coverage.sh
#                                          # only the suites of these files
#
# Branch figures leave out the branches gcc adds for exception unwinding and
# those it marks unreachable (gcovr --exclude-throw-branches
# --exclude-unreachable-branches): they count the decisions the code makes.
# The per-file table is left in $dir/coverage.txt, the HTML report in
# $dir/html/index.html.
set -euo pipefail
cd "$(dirname "$0")/.."
dir=${CL_COVERAGE_BUILD:-build/coverage}
jobs=$(nproc)

if ! command -v gcovr >/dev/null 2>&1; then
  sudo=""
  [ "$(id -u)" -eq 0 ] || sudo=sudo
  export DEBIAN_FRONTEND=noninteractive
  $sudo apt-get update
  $sudo apt-get install -y --no-install-recommends gcovr
fi

CC=gcc CXX=g++ cmake -S . -B "$dir" -G Ninja -DCMAKE_BUILD_TYPE=Debug \
  -DCMAKE_C_FLAGS="--coverage -O0" -DCMAKE_CXX_FLAGS="--coverage -O0" \
  -DCMAKE_EXE_LINKER_FLAGS=--coverage -DCMAKE_SHARED_LINKER_FLAGS=--coverage >/dev/null
cmake --build "$dir" -j "$jobs"

# Counts from an earlier run would add to this one's.
find "$dir" -name '*.gcda' -delete
# Every escape raised in any process of the run (the tests and the programs
# they start) is recorded in one trace file, to tell which catalogued reasons
# the tests reach. A test that names its own trace file keeps its own.
escapes=$(cd "$dir" && pwd)/escapes.trace
rm -f "$escapes"
export QX_TRACE_FILE=$escapes
status=0
filter=()
[ -z "${CL_COVERAGE_LABELS:-}" ] || filter=(-L "$CL_COVERAGE_LABELS")
(cd "$dir" && ctest -j "$jobs" --output-on-failure "${filter[@]}") || status=$?
[ "$status" -eq 0 ] || echo "coverage: some tests failed (ctest status $status); figures follow all the same" >&2

gcov_args=(-r . --object-directory "$dir" -j "$jobs"
  -e 'tests/' -e 'bench/' -e 'fuzz/' -e 'build/'
  --exclude-directories '.*/CMakeFiles/[0-9.]+'  # CMake's compiler checks
  --exclude-throw-branches --exclude-unreachable-branches)
mkdir -p "$dir/html"
gcovr "${gcov_args[@]}" --json "$dir/coverage.json" --txt "$dir/coverage.txt" \
  --html-details "$dir/html/index.html" >/dev/null

python3 - "$dir/coverage.json" include/cl.h <<'EOF'
import json, re, sys
data = json.load(open(sys.argv[1]))
dirs = {}
reached = {}
for f in data["files"]:
    top = f["file"].split("/", 1)[0] + "/"
    d = dirs.setdefault(top, [0, 0, 0, 0])
    for line in f["lines"]:
        if line.get("gcovr/noncode"):
            continue
        d[0] += 1
        d[1] += line["count"] > 0
        for b in line.get("branches", []):
            d[2] += 1
            d[3] += b["count"] > 0
    for fn in f.get("functions", []):
        name = fn["name"].split("(", 1)[0]
        reached[name] = reached.get(name, 0) + fn["execution_count"]

def pct(a, b):
    return f"{100.0 * a / b:5.1f}%" if b else "    -"

print(f"\n{'directory':<12} {'lines':>16} {'line%':>7} {'branches':>16} {'branch%':>8}")
tot = [0, 0, 0, 0]
for top in ("include/", "cl/", "platform/", "programs/"):
    d = dirs.get(top, [0, 0, 0, 0])
    tot = [a + b for a, b in zip(tot, d)]
    print(f"{top:<12} {d[1]:>7} / {d[0]:<6} {pct(d[1], d[0]):>7} {d[3]:>7} / {d[2]:<6} {pct(d[3], d[2]):>8}")
others = sorted(set(dirs) - {"include/", "cl/", "platform/", "programs/"})
if others:
    print("other directories in the data (not counted):", " ".join(others))
print(f"{'total':<12} {tot[1]:>7} / {tot[0]:<6} {pct(tot[1], tot[0]):>7} {tot[3]:>7} / {tot[2]:<6} {pct(tot[3], tot[2]):>8}")

exported = re.findall(r"^CL_API\b[^;(]*?\b(cl_\w+)\s*\(", open(sys.argv[2]).read(), re.M)
missing = [n for n in exported if n not in reached]
if missing:
    sys.exit("coverage: no gcov record for " + ", ".join(missing))
never = [n for n in exported if reached[n] == 0]
print()
if never:
    print(f"exported functions never reached ({len(never)} of {len(exported)}):")
    for n in never:
        print("  " + n)
else:
    print(f"every exported function is reached ({len(exported)} of {len(exported)})")
EOF
python3 - "$escapes" platform/mes/catalogue.def <<'EOF'
import os, re, sys
seen = set()
if os.path.exists(sys.argv[1]):
    for line in open(sys.argv[1], errors="replace"):
        m = re.match(r"ESCAPE (\d+)/(\d+) ", line)
        if m:
            seen.add((int(m[1]), int(m[2])))
catalogue = [(int(g), int(r)) for g, r, kind in
             re.findall(r"MES\((\d+),\s*(\d+),\s*'(\w)'", open(sys.argv[2]).read()) if kind == "E"]

def numbers(*dirs):
    found = set()
    for d in dirs:
        for root, _, files in os.walk(d):
            for f in files:
                if f.endswith((".cpp", ".hpp", ".h")) and f != "cl_ErrDisplay.cpp":
                    found |= set(re.findall(r"\b\d{4}\b", open(os.path.join(root, f), errors="replace").read()))
    return found

# A catalogued error counts as raised by the code when its reason number
# occurs in the code (cl_ErrDisplay.cpp only sorts the codes of the server's
# other parts for display). The field rules' reasons, which the directory
# stand-in computes as 4800 + the field number, count as raised, all of them.
def raised(*dirs):
    found = numbers(*dirs)
    return [c for c in catalogue if str(c[1]) in found or 4800 <= c[1] < 4928]

library = raised("cl", "platform")
programs = [c for c in raised("programs") if c not in library]
# The programs show some of their own errors without an escape (a usage
# error, a failed write of standard output): those count as reached when a
# test expects their display ("E100-4768"); the suite passed, or says so.
for root, _, files in os.walk("tests"):
    for f in files:
        if f.endswith(".cpp"):
            text = open(os.path.join(root, f), errors="replace").read()
            seen |= {(int(g), int(r)) for g, r in re.findall(r"E(\d+)-(\d+)", text)
                     if (int(g), int(r)) in programs}
print()
for name, codes in (("cl/ and platform/", library), ("programs/", programs)):
    never = [f"{g}/{r}" for g, r in codes if (g, r) not in seen]
    if never:
        print(f"catalogued reasons raised by {name} that no test reaches ({len(never)} of {len(codes)}):")
        print("  " + " ".join(never))
    else:
        print(f"every catalogued reason raised by {name} is reached ({len(codes)} of {len(codes)})")
EOF
exit "$status"
