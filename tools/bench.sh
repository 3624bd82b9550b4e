#!/usr/bin/env bash
# Builds the benchmarks (Release) and runs them: every step of the typical
# request per typical name, the peer (LDAP's ldap_str2dn + ldap_dn2str on the
# same names) and the copy floor, then a summary with ratios and targets.
# Arguments go to the benchmark, e.g. --benchmark_filter=given; without any,
# each benchmark runs three times and the summary takes the medians.
set -euo pipefail
cd "$(dirname "$0")/.."
dir=${CL_BENCH_BUILD:-build/bench}
cmake -S . -B "$dir" -G Ninja -DCMAKE_BUILD_TYPE=Release -DCL_BUILD_BENCH=ON -DCL_BUILD_TESTS=OFF >/dev/null
cmake --build "$dir" --target cl_bench -j "$(nproc)"
home=$(mktemp -d)
trap 'rm -rf "$home"' EXIT
mkdir -p "$home/sys"
[ $# -gt 0 ] || set -- --benchmark_repetitions=3 --benchmark_report_aggregates_only=true
QX_HOME=$home "$dir/bench/cl_bench" "$@"
