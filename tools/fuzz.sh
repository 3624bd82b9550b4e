#!/usr/bin/env bash
# Builds the libFuzzer harnesses of fuzz/ (clang, AddressSanitizer,
# UndefinedBehaviorSanitizer, LeakSanitizer) and runs each one for SECONDS
# seconds, starting from its seed corpus in fuzz/corpus/<target>.
#
#   bash tools/fuzz.sh            # short run, as CI does (10 s each)
#   bash tools/fuzz.sh 3600       # a long campaign: an hour each
#   bash tools/fuzz.sh 600 parse  # one harness
#
# New inputs go to build/fuzz/corpus/<target> (the seeds are not touched);
# a failing input is written to build/fuzz/artifacts/<target>-crash-... and
# replays with: build/fuzz/fuzz/<target>_fuzz <that file>.
set -euo pipefail
cd "$(dirname "$0")/.."
seconds=${1:-10}
only=${2:-}
dir=${CL_FUZZ_BUILD:-build/fuzz}

CC=clang CXX=clang++ cmake -S . -B "$dir" -G Ninja -DCMAKE_BUILD_TYPE=RelWithDebInfo \
  -DCL_BUILD_FUZZ=ON -DCL_BUILD_TESTS=OFF >/dev/null
cmake --build "$dir" --target fuzz -j "$(nproc)"

home=$(mktemp -d)
trap 'rm -rf "$home"' EXIT
export QX_HOME=$home
mkdir -p "$home/sys" "$dir/artifacts"

failed=()
for harness in "$dir"/fuzz/*_fuzz; do
  target=$(basename "$harness" _fuzz)
  [ -n "$only" ] && [ "$only" != "$target" ] && continue
  mkdir -p "$dir/corpus/$target"
  echo "== $target: ${seconds}s"
  if ! "$harness" -max_total_time="$seconds" -max_len=4200 -timeout=10 -rss_limit_mb=2048 \
      -print_final_stats=1 -artifact_prefix="$dir/artifacts/$target-" \
      "$dir/corpus/$target" "fuzz/corpus/$target"; then
    failed+=("$target")
  fi
done
if [ ${#failed[@]} -gt 0 ]; then
  echo "fuzzing found faults in: ${failed[*]} (inputs in $dir/artifacts)" >&2
  exit 1
fi
