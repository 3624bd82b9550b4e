#!/usr/bin/env bash
# Times bulk provisioning: qx-import and qx-export of N generated names
# (tools/gen-names.py) into a fresh home, for N = 10^4, 10^5 and 10^6, with
# users/s and the peak resident memory of each run; and, for comparison, one
# qx-useradd process per user on 10^3 names.
#   bash tools/bench-import.sh            # the three sizes, Release build in build/bench-import
#   bash tools/bench-import.sh 10000 ...  # other sizes
set -euo pipefail
cd "$(dirname "$0")/.."
dir=${CL_BENCH_BUILD:-build/bench-import}
cmake -S . -B "$dir" -G Ninja -DCMAKE_BUILD_TYPE=Release -DCL_BUILD_TESTS=OFF >/dev/null
cmake --build "$dir" --target qxadm -j "$(nproc)" >/dev/null
programs=$PWD/$dir/programs
[ $# -gt 0 ] || set -- 10000 100000 1000000
work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT

# measure OUT COMMAND...: runs the command with its output in OUT; prints
# "seconds peak-KiB status" (the peak of the command alone: a fresh child).
measure() {
  python3 - "$@" <<'PY'
import resource, subprocess, sys, time
out = open(sys.argv[1], "wb")
began = time.monotonic()
status = subprocess.run(sys.argv[2:], stdout=out, stderr=subprocess.DEVNULL).returncode
took = time.monotonic() - began
print(f"{took:.3f} {resource.getrusage(resource.RUSAGE_CHILDREN).ru_maxrss} {status}")
PY
}

fresh_home() {
  export QX_HOME=$work/home
  rm -rf "$QX_HOME"
  "$programs/qx-inithome" >/dev/null
}

printf '%-9s %-22s %10s %12s %10s\n' names step seconds users/s "peak RSS"
line() { printf '%-9s %-22s %10.2f %12.0f %7.1f MiB\n' "$1" "$2" "$3" "$(echo "$1 $3" | awk '{print $1 / $2}')" \
  "$(echo "$4" | awk '{print $1 / 1024}')"; }

for n in "$@"; do
  names=$dir/names-$n.txt
  [ -s "$names" ] || python3 tools/gen-names.py "$n" >"$names"
  fresh_home
  read -r s kib status < <(measure "$work/import.out" "$programs/qx-import" "$names")
  [ "$status" -eq 0 ] || { echo "qx-import failed ($status): $(cat "$work/import.out")" >&2; exit 1; }
  line "$n" "import" "$s" "$kib"
  read -r s kib status < <(measure "$work/lines.txt" "$programs/qx-export")
  line "$n" "export (lines)" "$s" "$kib"
  read -r s kib status < <(measure "$work/attributes.txt" "$programs/qx-export" --format=attributes)
  line "$n" "export (attributes)" "$s" "$kib"
  [ "$(wc -l <"$work/attributes.txt")" -eq "$n" ] || { echo "export lost users" >&2; exit 1; }
done

# One process per user, as a shell loop of qx-useradd does it.
names=$dir/names-1000.txt
[ -s "$names" ] || python3 tools/gen-names.py 1000 >"$names"
fresh_home
began=$EPOCHREALTIME
while IFS= read -r name; do "$programs/qx-useradd" "$name" >/dev/null; done <"$names"
s=$(awk -v a="$began" -v b="$EPOCHREALTIME" 'BEGIN { print b - a }')
printf '%-9s %-22s %10.2f %12.0f\n' 1000 "qx-useradd per user" "$s" "$(echo "1000 $s" | awk '{print $1 / $2}')"
