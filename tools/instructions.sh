#!/usr/bin/env bash
# Instructions per call of every step of the typical request, per typical
# name, and of the peer, counted by callgrind on the Release benchmark
# (tools/bench.sh builds it). Only the benchmark loops are counted, so the
# tables the platform libraries build on first use are left out; each
# count is the inclusive cost of the step's function divided by its calls.
#
#   bash tools/instructions.sh            # every name and step (about a minute)
#   bash tools/instructions.sh given      # one name
set -euo pipefail
cd "$(dirname "$0")/.."
dir=${CL_BENCH_BUILD:-build/bench}
cmake -S . -B "$dir" -G Ninja -DCMAKE_BUILD_TYPE=Release -DCL_BUILD_BENCH=ON -DCL_BUILD_TESTS=OFF >/dev/null
cmake --build "$dir" --target cl_bench -j "$(nproc)" >/dev/null
home=$(mktemp -d)
out=$(mktemp)
trap 'rm -rf "$home" "$out"' EXIT
mkdir -p "$home/sys"

# Inclusive instructions per call of the functions named (exactly, or as a
# suffix after '::'), summed: callgrind's cost lines after each calls= line.
per_call() {
  python3 - "$out" "$@" <<'PY'
import re, sys
path, wanted = sys.argv[1], sys.argv[2:]
names, calls, cost = {}, {}, {}
target = pending = None
for line in open(path, errors="replace"):
    m = re.match(r"(c?fn)=\((\d+)\)(?: (.*))?", line)
    if m:
        kind, ident, name = m.groups()
        if name:
            name = name.replace("(anonymous namespace)::", "")
            names[ident] = name.split("(")[0].split("::")[-1].strip()
        if kind == "cfn":
            target = ident
        continue
    m = re.match(r"calls=(\d+)", line)
    if m:
        pending = int(m.group(1))
        continue
    if pending is not None:
        calls[target] = calls.get(target, 0) + pending
        cost[target] = cost.get(target, 0) + int(line.split()[-1])
        pending = None
first = [i for i, n in names.items() if n == wanted[0] and calls.get(i)]
total = sum(cost[i] for i, n in names.items() if n in wanted and calls.get(i))
print(round(total / calls[first[0]]) if first else "?")
PY
}

steps=("personal-name parse:cl_ParseName" "full O/R name parse:cl_ParseFullOrn"
       "command-line conversion:cl_ConvCltoORN" "validation:cl_ValidateORNFields"
       "full-name text:cl_FormatFullName" "typical request:typical_request"
       "peer:ldap_str2dn ldap_dn2str ldap_memfree ldap_dnfree")
printf '%-11s %-24s %s\n' name step instructions
for name in ${1:-surname given initials attributes}; do
  for entry in "${steps[@]}"; do
    step=${entry%%:*}
    QX_HOME=$home valgrind --tool=callgrind --callgrind-out-file="$out" \
      --toggle-collect='benchmark::internal::LambdaBenchmark*' "$dir/bench/cl_bench" \
      --benchmark_filter="^$name/$step" --benchmark_min_time=0.2 >/dev/null 2>&1
    # shellcheck disable=SC2086
    printf '%-11s %-24s %s\n' "$name" "$step" "$(per_call ${entry#*:})"
  done
done
