#!/usr/bin/env bash
# Builds the project and runs every test: plainly, under AddressSanitizer
# with UndefinedBehaviorSanitizer (LeakSanitizer included), and for 32-bit
# x86 (tools/check32.sh); then a short run of every fuzz harness.
#
# The x86-64 and the 32-bit runs write the server's binary files into
# build/fixtures and each reads the other's (binary_files_test): the
# x86-64 build's test runs once more at the end, to read what the 32-bit
# one wrote.
set -euo pipefail
cd "$(dirname "$0")/.."
jobs=$(nproc)
export CL_FIXTURE_DIR=$PWD/build/fixtures
rm -rf "$CL_FIXTURE_DIR"
mkdir -p "$CL_FIXTURE_DIR"
run() {  # dir, extra cmake args...
  local dir=$1; shift
  cmake -S . -B "$dir" -G Ninja -DCMAKE_BUILD_TYPE=RelWithDebInfo "$@" >/dev/null
  cmake --build "$dir" -j "$jobs"
  (cd "$dir" && ctest --output-on-failure -j "$jobs")
}
run build/check
ASAN_OPTIONS=detect_leaks=1:abort_on_error=1 UBSAN_OPTIONS=print_stacktrace=1 \
  run build/check-sanitize -DCL_SANITIZE=ON
CL_FIXTURE_REQUIRE=x86_64 bash tools/check32.sh
(cd build/check && CL_FIXTURE_REQUIRE=i386 ctest --output-on-failure -L binary_files_test)
bash tools/fuzz.sh 10  # every fuzz harness for 10 s (clang, ASan, UBSan, LSan)
