#!/usr/bin/env bash
# Builds the project twice, plainly and under AddressSanitizer with
# UndefinedBehaviorSanitizer (LeakSanitizer included), and runs every test.
set -euo pipefail
cd "$(dirname "$0")/.."
jobs=$(nproc)
run() {  # dir, extra cmake args...
  local dir=$1; shift
  cmake -S . -B "$dir" -G Ninja -DCMAKE_BUILD_TYPE=RelWithDebInfo "$@" >/dev/null
  cmake --build "$dir" -j "$jobs"
  (cd "$dir" && ctest --output-on-failure -j "$jobs")
}
run build/check
ASAN_OPTIONS=detect_leaks=1:abort_on_error=1 UBSAN_OPTIONS=print_stacktrace=1 \
  run build/check-sanitize -DCL_SANITIZE=ON
bash tools/fuzz.sh 10  # every fuzz harness for 10 s (clang, ASan, UBSan, LSan)
