#!/usr/bin/env bash
# Installs a build into a scratch prefix and checks what a user of the
# installed tree relies on: libraries with their SONAMEs, headers, the
# programs and their links, the man page, and a C consumer built both
# through pkg-config and through find_package(cl).
#   run.sh BUILD_DIR C_COMPILER [EXTRA_FLAGS]
set -euo pipefail
build=$1 cc=$2 flags=${3:-}
here=$(cd "$(dirname "$0")" && pwd)
scratch=$(mktemp -d)
trap 'rm -rf "$scratch"' EXIT
prefix=$scratch/prefix

fail() { echo "FAIL: $*" >&2; exit 1; }

cmake --install "$build" --prefix "$prefix" >"$scratch/install.log" || { cat "$scratch/install.log"; fail "cmake --install"; }
libdir=$(cd "$prefix" && ls -d lib*/libcl.so | head -1 | xargs dirname)
[ -n "$libdir" ] || fail "no libcl.so installed"

# Libraries: the real file, the SONAME link and the development link.
for lib in "$prefix/$libdir"/lib*.so; do
  soname=$(readelf -d "$lib" | sed -n 's/.*(SONAME).*\[\(.*\)\]/\1/p')
  [[ $soname == $(basename "$lib").1 ]] || fail "$lib has SONAME '$soname'"
  [ -e "$prefix/$libdir/$soname" ] || fail "$soname not installed"
done
ls "$prefix/$libdir"/libqx_er.so.1 >/dev/null || fail "platform libraries not installed"

# Headers.
for h in cl cl_escape; do [ -f "$prefix/include/$h.h" ] || fail "include/$h.h"; done
for h in er nm ccs; do [ -f "$prefix/include/qx/$h.h" ] || fail "include/qx/$h.h"; done

# Programs, their links, the man page under every name.
[ -x "$prefix/bin/qxadm" ] || fail "bin/qxadm"
for name in qx-inithome qx-useradd qx-usershow qx-userlist qx-userdel qx-defmnode qx-pmn qx-startcount qx-checkinstall; do
  [ "$(readlink "$prefix/bin/$name")" = qxadm ] || fail "bin/$name is not a link to qxadm"
  [ -e "$prefix/share/man/man1/$name.1" ] || fail "man page $name.1"
done
# The installed program finds its libraries by itself (no LD_LIBRARY_PATH).
"$prefix/bin/qx-userlist" --help | grep -q '^usage: qx-userlist' || fail "installed qx-userlist --help"

export LD_LIBRARY_PATH=$prefix/$libdir

# pkg-config.
export PKG_CONFIG_PATH=$prefix/$libdir/pkgconfig
[ "$(pkg-config --modversion cl)" = 1.0.0 ] || fail "pkg-config --modversion cl"
# shellcheck disable=SC2046,SC2086
"$cc" $flags -o "$scratch/consumer-pc" "$here/consumer.c" $(pkg-config --cflags --libs cl) || fail "pkg-config build"
"$scratch/consumer-pc" | grep -qx 'consumer: ok' || fail "pkg-config consumer run"

# CMake package.
cmake -S "$here" -B "$scratch/consumer" -DCMAKE_PREFIX_PATH="$prefix" -DCMAKE_C_COMPILER="$cc" \
      -DCMAKE_C_FLAGS="$flags" -DCMAKE_EXE_LINKER_FLAGS="$flags" >"$scratch/consumer.log" \
  || { cat "$scratch/consumer.log"; fail "find_package(cl)"; }
cmake --build "$scratch/consumer" >>"$scratch/consumer.log" || { cat "$scratch/consumer.log"; fail "CMake build"; }
"$scratch/consumer/consumer" | grep -qx 'consumer: ok' || fail "CMake consumer run"

echo "install: ok ($prefix)"
