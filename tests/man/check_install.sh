#!/usr/bin/env bash
# Installs the manual pages of a build into a scratch prefix and checks that
# `man -M <prefix>/share/man` finds every page under every name its NAME
# section gives, and shows that page.
#   check_install.sh PAGES_DIR BUILD_DIR MANDIR
# MANDIR is the install tree's man directory relative to the prefix
# (CMAKE_INSTALL_MANDIR, usually share/man).
set -uo pipefail
pages=$1 build=$2 mandir=$3
man=${MAN:-man}

scratch=$(mktemp -d)
trap 'rm -rf "$scratch"' EXIT
prefix=$scratch/prefix
problems=0
problem() {
  echo "FAIL: $*" >&2
  problems=$((problems + 1))
}

if ! cmake --install "$build" --component man --prefix "$prefix" >"$scratch/install.log" 2>&1; then
  cat "$scratch/install.log" >&2
  echo "FAIL: cmake --install $build --component man" >&2
  exit 1
fi

page_names() {
  awk '/^\.Sh[ \t]/ { in_name = ($0 ~ /^\.Sh[ \t]+NAME[ \t]*$/); next }
       in_name && /^\.Nm[ \t]/ { for (i = 2; i <= NF; i++) if ($i ~ /^[A-Za-z_][A-Za-z0-9_]*$/) print $i }' "$1"
}

shopt -s nullglob
files=("$pages"/*.3)
[ ${#files[@]} -gt 0 ] || { echo "FAIL: no pages in $pages" >&2; exit 1; }
names=0
for f in "${files[@]}"; do
  page=$(basename "$f")
  stem=${page%.3}
  cmp -s "$f" "$prefix/$mandir/man3/$page" || problem "$page is not installed as $mandir/man3/$page"
  for name in $( { echo "$stem"; page_names "$f"; } | sort -u); do
    names=$((names + 1))
    # Where man finds the name: the installed page itself.
    found=$(MANPATH= "$man" -M "$prefix/$mandir" -w 3 "$name" 2>/dev/null)
    if [ -z "$found" ]; then
      problem "man -M $prefix/$mandir 3 $name finds nothing"
      continue
    fi
    [ "$(readlink -f "$found")" = "$(readlink -f "$prefix/$mandir/man3/$page")" ] \
      || problem "man 3 $name finds $found, not $page"
    # And shows it: the page's own NAME line.
    shown=$(MANPATH= MANWIDTH=80 "$man" -M "$prefix/$mandir" -P cat 3 "$name" 2>/dev/null | sed 's/.\x08//g')
    grep -q "^NAME" <<<"$shown" && grep -qw -- "$name" <<<"$shown" || problem "man 3 $name does not show the page $page"
  done
done

if [ "$problems" -gt 0 ]; then
  echo "$problems problem(s) installing ${#files[@]} page(s)" >&2
  exit 1
fi
echo "man install: ok (${#files[@]} pages under $names names)"
