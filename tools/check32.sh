#!/usr/bin/env bash
# Builds the library, the stand-ins and their tests for 32-bit x86 (-m32,
# without SSE2: the plain paths) and runs them under CTest; then builds the
# library and the stand-ins again with -msse2 (the vector paths). Warnings
# are errors in both. The sample programs are left out: they need a 32-bit
# SQLite, which this job does not install.
#
#   bash tools/check32.sh [DIR]      # default build/check32
#
# Needs g++-multilib (tools/deps.sh installs it). GoogleTest is built from
# the sources Debian's libgtest-dev ships (/usr/src/googletest) with the
# same flags, so no i386 package is needed.
set -euo pipefail
cd "$(dirname "$0")/.."
dir=${1:-build/check32}
flags="-m32 -Werror"
jobs=$(nproc)
gtest=$dir/gtest

if [ ! -f "$gtest/install/lib/libgtest.a" ]; then
  cmake -S /usr/src/googletest -B "$gtest/build" -G Ninja -DCMAKE_BUILD_TYPE=Release \
    -DCMAKE_C_FLAGS=-m32 -DCMAKE_CXX_FLAGS=-m32 -DBUILD_GMOCK=OFF \
    -DCMAKE_INSTALL_PREFIX="$PWD/$gtest/install" -DCMAKE_INSTALL_LIBDIR=lib >/dev/null
  cmake --build "$gtest/build" -j "$jobs" >/dev/null
  cmake --install "$gtest/build" >/dev/null
fi

cmake -S . -B "$dir/build" -G Ninja -DCMAKE_BUILD_TYPE=RelWithDebInfo \
  -DCMAKE_C_FLAGS="$flags" -DCMAKE_CXX_FLAGS="$flags" \
  -DCMAKE_EXE_LINKER_FLAGS="$flags" -DCMAKE_SHARED_LINKER_FLAGS="$flags" \
  -DCMAKE_PREFIX_PATH="$PWD/$gtest/install" -DCL_BUILD_PROGRAMS=OFF >/dev/null
cmake --build "$dir/build" -j "$jobs"
(cd "$dir/build" && ctest --output-on-failure -j "$jobs")

cmake -S . -B "$dir/sse2" -G Ninja -DCMAKE_BUILD_TYPE=RelWithDebInfo \
  -DCMAKE_C_FLAGS="$flags -msse2" -DCMAKE_CXX_FLAGS="$flags -msse2" \
  -DCMAKE_SHARED_LINKER_FLAGS=-m32 -DCL_BUILD_TESTS=OFF -DCL_BUILD_PROGRAMS=OFF >/dev/null
cmake --build "$dir/sse2" -j "$jobs" --target cl
