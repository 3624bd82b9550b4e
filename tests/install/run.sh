#!/usr/bin/env bash
# Installs a build into a scratch prefix and checks what a user of the
# installed tree relies on: libraries with their SONAMEs, headers, the
# programs and their links, the man page; then builds the C programs of
# examples/ against it, once through pkg-config and once through
# find_package(cl), as strict C99 with every warning an error, and runs them.
# The examples run without LD_LIBRARY_PATH: each route gives them an rpath.
#   run.sh BUILD_DIR C_COMPILER [EXTRA_FLAGS]
set -euo pipefail
build=$1 cc=$2 flags=${3:-}
here=$(cd "$(dirname "$0")" && pwd)
examples=$(cd "$here/../../examples" && pwd)
scratch=$(mktemp -d)
trap 'rm -rf "$scratch"' EXIT
prefix=$scratch/prefix
cflags="-std=c99 -Wall -Wextra -pedantic -Werror"

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
for name in qx-inithome qx-useradd qx-usershow qx-userlist qx-userdel qx-defmnode qx-pmn qx-startcount qx-checkinstall qx-import qx-export; do
  [ "$(readlink "$prefix/bin/$name")" = qxadm ] || fail "bin/$name is not a link to qxadm"
  [ -e "$prefix/share/man/man1/$name.1" ] || fail "man page $name.1"
done
# The installed program finds its libraries by itself (no LD_LIBRARY_PATH).
"$prefix/bin/qx-userlist" --help | grep -q '^usage: qx-userlist' || fail "installed qx-userlist --help"

# A server home set up by the installed qx-inithome, for read_pmn.
home=$scratch/home
QX_HOME=$home "$prefix/bin/qx-inithome" Sales,London >/dev/null || fail "installed qx-inithome"

# expect NAME STATUS STDOUT STDERR_FIRST_LINE -- COMMAND...: runs the command
# and compares its exit status, its whole standard output, and the first line
# of its standard error (empty: nothing on standard error).
expect() {
  local what=$1 status=$2 out=$3 err=$4
  shift 5
  local got=0
  "$@" >"$scratch/out" 2>"$scratch/err" || got=$?
  [ "$got" = "$status" ] || fail "$what: exit status $got, not $status"
  [ "$(cat "$scratch/out")" = "$out" ] || fail "$what: printed '$(cat "$scratch/out")', not '$out'"
  [ "$(head -n 1 "$scratch/err")" = "$err" ] || fail "$what: '$(head -n 1 "$scratch/err")' on stderr, not '$err'"
}

# Runs the four examples built into dir, under the label route.
check_examples() {
  local dir=$1 route=$2
  expect "$route parse_name" 0 'John Smith /Sales,London/Acme' '' -- \
    "$dir/parse_name" 'John Smith/Sales,London/organization=Acme'
  expect "$route parse_name, a unit too long" 103 '' \
    'parse_name : E100-8004 An organizational unit is longer than 32 characters.' -- \
    "$dir/parse_name" 'Ann Lee/Customer_Relations_and_Support_Europe,London'
  expect "$route list_fields" 0 "$(printf '%3d %s\n' 0 Muller 1 Zoe 4 Sales 5 London 8 Acme 64 Müller)" '' -- \
    "$dir/list_fields" 'Zoe Muller/Sales,London/organization=Acme/utf8Surname=Müller'
  expect "$route list_fields, an unknown attribute" 103 '' \
    'list_fields : E100-4634 Unknown attribute name.' -- \
    "$dir/list_fields" 'Zoe Muller/Sales,London/nosuch=x'
  expect "$route read_pmn" 0 'Primary mail node: Sales,London' '' -- \
    env QX_HOME="$home" "$dir/read_pmn"
  # A configuration file cut short: the escape comes while the lock is held.
  cp -a "$home" "$scratch/short"
  truncate -s 200 "$scratch/short/sys/config"
  expect "$route read_pmn, sys/config too short" 103 '' \
    'read_pmn : E100-4624 The configuration file is too short.' -- \
    env QX_HOME="$scratch/short" "$dir/read_pmn"
  rm -rf "$scratch/short"
  ln -sf two_names "$dir/show-name"
  ln -sf two_names "$dir/show-node"
  expect "$route show-name" 0 'Name: John Smith /Sales,London' '' -- \
    "$dir/show-name" 'John Smith/Sales,London'
  expect "$route show-node" 0 'Mail node: Sales,London' '' -- "$dir/show-node" 'Sales,London'
  expect "$route show-node, an unknown attribute" 103 '' 'show-node : E100-4634 Unknown attribute name.' -- \
    "$dir/show-node" 'Sales,London/nosuch=x'
  expect "$route two_names under its own name" 2 '' 'show-name, show-node?' -- "$dir/two_names" x
}

# pkg-config.
export PKG_CONFIG_PATH=$prefix/$libdir/pkgconfig
[ "$(pkg-config --modversion cl)" = 1.0.0 ] || fail "pkg-config --modversion cl"
mkdir "$scratch/pc"
for example in parse_name list_fields read_pmn two_names; do
  # shellcheck disable=SC2046,SC2086
  "$cc" $cflags $flags -o "$scratch/pc/$example" "$examples/$example.c" $(pkg-config --cflags --libs cl) \
    || fail "pkg-config build of $example"
done
check_examples "$scratch/pc" pkg-config

# The same flags keep the headers usable from gnu99 (the C library's default
# set stays whole: strsep is not POSIX) and from C++.
printf '#include <string.h>\n#include <cl.h>\n#include <cl_escape.h>\nchar *f(char **s) { return strsep(s, ","); }\n' \
  >"$scratch/gnu99.c"
# shellcheck disable=SC2046,SC2086
"$cc" -std=gnu99 -Wall -Wextra -Werror $flags -fsyntax-only "$scratch/gnu99.c" $(pkg-config --cflags cl) \
  || fail "cl.h and cl_escape.h under -std=gnu99"
case $(basename "$cc") in
  *clang*) cxx=${cc%clang*}clang++${cc##*clang} ;;
  *gcc*) cxx=${cc%gcc*}g++${cc##*gcc} ;;
  *) cxx=c++ ;;
esac
printf '#include <cl.h>\n#include <cl_escape.h>\nint main() { return cl::fails([] { cl_ConvertSpecialChar(nullptr); }); }\n' \
  >"$scratch/cxx.cpp"
# shellcheck disable=SC2046,SC2086
"$cxx" -std=c++17 -Wall -Wextra -pedantic -Werror $flags -fsyntax-only "$scratch/cxx.cpp" $(pkg-config --cflags cl) \
  || fail "cl.h and cl_escape.h in C++ ($cxx)"

# CMake package.
unset PKG_CONFIG_PATH
cmake -S "$examples" -B "$scratch/cmake" -DCMAKE_PREFIX_PATH="$prefix" -DCMAKE_C_COMPILER="$cc" \
      -DCMAKE_C_FLAGS="-Werror $flags" -DCMAKE_EXE_LINKER_FLAGS="$flags" >"$scratch/cmake.log" \
  || { cat "$scratch/cmake.log"; fail "find_package(cl)"; }
grep -q -- '-std=c99' "$scratch/cmake/CMakeFiles/parse_name.dir/flags.make" || fail "the CMake examples are not built as C99"
cmake --build "$scratch/cmake" >>"$scratch/cmake.log" || { cat "$scratch/cmake.log"; fail "CMake build"; }
check_examples "$scratch/cmake" CMake

echo "install: ok ($prefix)"
