#!/usr/bin/env bash
# Compiles the C of every page's EXAMPLES section as strict C99
# (-std=c99 -Wall -Wextra -pedantic, warnings as errors), against the
# library's headers, as a reader would paste it.
#
# A display (.Bd -literal ... .Ed) of EXAMPLES is one of:
#   - a shell session (its first line starts with "$ "): not C, skipped;
#   - a whole program (it defines main): compiled alone;
#   - file-scope code (it starts with "static", "#" or "typedef"): put
#     before the function below, for instance the clean-up function a
#     fragment hands to cl_GuardedCall;
#   - a fragment: pasted, with the page's other fragments, into the body of
#     int example(int argc, char **argv), so it may use argc and argv as a
#     program's main would.
# Fragments get the headers a program calling the library includes: the C
# library's signal.h, stdio.h, stdlib.h, string.h, time.h, unistd.h, then
# cl.h, cl_escape.h and the headers of the page's own SYNOPSIS (.In), with
# _POSIX_C_SOURCE for sigjmp_buf.
#   check_examples.sh PAGES_DIR CC INCLUDE_DIR PLATFORM_DIR
set -uo pipefail
pages=$1 cc=$2 include=$3 platform=$4

scratch=$(mktemp -d)
trap 'rm -rf "$scratch"' EXIT
problems=0
checked=0

# The displays of the EXAMPLES section, unescaped, separated by a line
# holding only \f (form feed).
displays() {
  awk '/^\.Sh[ \t]/ { in_ex = ($0 ~ /^\.Sh[ \t]+"?EXAMPLES(\\&)?"?[ \t]*$/); next }
       in_ex && /^\.Bd[ \t].*-literal/ { in_bd = 1; next }
       in_bd && /^\.Ed/ { in_bd = 0; print "\f"; next }
       in_bd && /^\.\\"/ { next }
       in_bd { print }' "$1" |
    sed -e 's/\\&//g' -e 's/\\e/\\/g' -e 's/\\(aq/'"'"'/g' -e 's/\\(dq/"/g' -e 's/\\-/-/g' -e 's/\\(ti/~/g' -e 's/\\(ha/^/g'
}

compile() {  # SOURCE LABEL
  local out
  if ! out=$("$cc" -std=c99 -Wall -Wextra -pedantic -Werror -I"$include" -I"$platform" \
               -c "$1" -o "$scratch/example.o" 2>&1); then
    echo "FAIL: $2: the example does not compile as C99:" >&2
    printf '%s\n' "$out" | sed 's/^/    /' >&2
    echo "    source:" >&2
    nl -ba "$1" | sed 's/^/    /' >&2
    problems=$((problems + 1))
  fi
}

shopt -s nullglob
for f in "$pages"/*.3; do
  page=$(basename "$f")
  displays "$f" >"$scratch/displays"
  [ -s "$scratch/displays" ] || continue
  : >"$scratch/file_scope"
  : >"$scratch/body"
  programs=0
  awk -v dir="$scratch" 'BEGIN { RS = "\f\n"; n = 0 }
       { n++; file = dir "/display." n; printf "%s", $0 > file; close(file) }' "$scratch/displays"
  for d in "$scratch"/display.*; do
    first=$(grep -m1 -v '^[[:space:]]*$' "$d")
    if [[ $first == '$ '* ]]; then
      :
    elif grep -Eq '(^|[^A-Za-z0-9_])main[[:space:]]*\(' "$d"; then
      programs=$((programs + 1))
      cp "$d" "$scratch/program.$programs.c"
      compile "$scratch/program.$programs.c" "$page (program $programs)"
    elif [[ $first =~ ^(static|#|typedef) ]]; then
      cat "$d" >>"$scratch/file_scope"
    else
      cat "$d" >>"$scratch/body"
    fi
    rm -f "$d"
  done
  if [ -s "$scratch/body" ] || [ -s "$scratch/file_scope" ]; then
    {
      printf '%s\n' '#define _POSIX_C_SOURCE 200809L' '#include <signal.h>' '#include <stdio.h>' \
        '#include <stdlib.h>' '#include <string.h>' '#include <time.h>' '#include <unistd.h>' '#include "cl.h"' '#include "cl_escape.h"'
      sed -n 's/^\.In[ \t]\{1,\}\([^ \t]*\).*/#include "\1"/p' "$f"
      cat "$scratch/file_scope"
      echo 'int example(int argc, char **argv);'
      echo 'int example(int argc, char **argv) {'
      echo '(void)argc; (void)argv;'
      cat "$scratch/body"
      echo 'return 0;'
      echo '}'
    } >"$scratch/fragment.c"
    compile "$scratch/fragment.c" "$page"
  fi
  checked=$((checked + 1))
done

if [ "$problems" -gt 0 ]; then
  echo "$problems of $checked page(s) with examples do not compile" >&2
  exit 1
fi
[ "$checked" -gt 0 ] || { echo "FAIL: no page has an example" >&2; exit 1; }
echo "man examples: ok ($checked pages)"
