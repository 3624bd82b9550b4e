#!/usr/bin/env bash
# Runs every test binary under valgrind memcheck (not part of CI: slow).
# Fails on any memory error and on definite or indirect leaks; the
# formatters' buffers, kept for the whole process, are still reachable and
# not reported.
#
#   bash tools/valgrind.sh              # every suite
#   bash tools/valgrind.sh parse_test   # some suites
set -euo pipefail
cd "$(dirname "$0")/.."
dir=${CL_VALGRIND_BUILD:-build/valgrind}
cmake -S . -B "$dir" -G Ninja -DCMAKE_BUILD_TYPE=Debug >/dev/null
cmake --build "$dir" -j "$(nproc)"

# Tests that run their own binary again through /proc/self/exe, which under
# valgrind is valgrind's launcher and refuses to start: run without them.
skip=${CL_VALGRIND_SKIP:-TrailingSpace.SwitchReadOncePerProcess}

suites=("$@")
if [ ${#suites[@]} -eq 0 ]; then
  for t in "$dir"/tests/*_test; do suites+=("$(basename "$t")"); done
fi
failed=()
for suite in "${suites[@]}"; do
  echo "== $suite"
  if ! (cd "$dir/tests" && valgrind --tool=memcheck --quiet --error-exitcode=99 --leak-check=full \
      --show-leak-kinds=definite,indirect --errors-for-leak-kinds=definite,indirect \
      --track-origins=yes --track-fds=no "./$suite" --gtest_brief=1 --gtest_filter="-$skip"); then
    failed+=("$suite")
  fi
done
if [ ${#failed[@]} -gt 0 ]; then
  echo "valgrind reports errors in: ${failed[*]}" >&2
  exit 1
fi
echo "valgrind: no errors in ${#suites[@]} suite(s)"
