#!/usr/bin/env bash
# Checks the library's manual pages against the library itself:
#   - every function libcl.so exports has its page, <function>.3, which
#     names it;
#   - every name a page's NAME section gives is a real symbol: one libcl.so
#     or a documented platform library exports, or a macro or inline
#     function of cl_escape.h (cl.3, the overview, is named after the
#     library itself);
#   - each page's .Dt is its file name in capitals, section 3;
#   - every page is clean under `mandoc -T lint -W warning`;
#   - the pages of libcl's functions give their LIBRARY section word for
#     word as the overview cl.3 does;
#   - every function page has the shared sections, in the shared order;
#   - every .Xr to section 3 that names the library's own (a symbol above,
#     any cl_ or CL_ name, or cl) leads to a page; the C library's pages
#     (free, siglongjmp, ...) are not looked for.
# Every problem is reported, then the script fails if there was any.
#   check_pages.sh PAGES_DIR LIBCL ESCAPE_HEADER [PLATFORM_LIB...]
set -uo pipefail
pages=$1 libcl=$2 escape_h=$3
shift 3
mandoc=${MANDOC:-mandoc}
nm=${NM:-nm}

problems=0
problem() {
  echo "FAIL: $*" >&2
  problems=$((problems + 1))
}

scratch=$(mktemp -d)
trap 'rm -rf "$scratch"' EXIT

# The skeleton every function page follows.
skeleton=(NAME LIBRARY SYNOPSIS DESCRIPTION "RETURN VALUES" ERRORS TRACING EXAMPLES "SEE ALSO")
# The overview's own sections: it documents no single function.
overview=(NAME LIBRARY SYNOPSIS DESCRIPTION "SEE ALSO")

# The names a page's NAME section gives with .Nm, one a line.
page_names() {
  awk '/^\.Sh[ \t]/ { in_name = ($0 ~ /^\.Sh[ \t]+NAME[ \t]*$/); next }
       in_name && /^\.Nm[ \t]/ { for (i = 2; i <= NF; i++) if ($i ~ /^[A-Za-z_][A-Za-z0-9_]*$/) print $i }' "$1"
}

# The body of a page's LIBRARY section.
page_library() {
  awk '/^\.Sh[ \t]/ { in_lib = ($0 ~ /^\.Sh[ \t]+LIBRARY[ \t]*$/); next } in_lib' "$1"
}

# The section titles of a page, one a line, as a reader sees them: quotes
# and the zero-width escape \& taken out.
page_sections() {
  sed -n 's/^\.Sh[ \t]\{1,\}//p' "$1" | sed -e 's/\\&//g' -e 's/"//g' -e 's/[ \t]*$//'
}

defined_symbols() {
  "$nm" -D --defined-only "$1" | awk 'NF >= 3 { sub(/@.*/, "", $3); print $3 }'
}

[ -d "$pages" ] || { echo "FAIL: no page directory $pages" >&2; exit 1; }
[ -f "$libcl" ] || { echo "FAIL: no library $libcl" >&2; exit 1; }
[ -f "$escape_h" ] || { echo "FAIL: no header $escape_h" >&2; exit 1; }

# The symbols a page may name.
defined_symbols "$libcl" | grep '^cl_' | sort -u >"$scratch/exported" \
  || { echo "FAIL: $libcl exports no cl_ symbol" >&2; exit 1; }
cp "$scratch/exported" "$scratch/symbols"
for lib in "$@"; do
  [ -f "$lib" ] || { problem "no platform library $lib"; continue; }
  defined_symbols "$lib" >>"$scratch/symbols"
done
{
  sed -n 's/^#define[ \t]\{1,\}\([A-Za-z_][A-Za-z0-9_]*\).*/\1/p' "$escape_h"
  sed -n 's/^static inline[^(]*[ *]\([A-Za-z_][A-Za-z0-9_]*\)(.*/\1/p' "$escape_h"
} | grep -v '_H$' >>"$scratch/symbols"
sort -u -o "$scratch/symbols" "$scratch/symbols"

shopt -s nullglob
files=("$pages"/*.3)
[ ${#files[@]} -gt 0 ] || { echo "FAIL: no pages in $pages" >&2; exit 1; }

# Every name of every page: the targets an .Xr may point at.
: >"$scratch/all_names"
for f in "${files[@]}"; do
  stem=$(basename "$f" .3)
  { echo "$stem"; page_names "$f"; } >>"$scratch/all_names"
done
sort -u -o "$scratch/all_names" "$scratch/all_names"

# Every exported function has its own page, which names it.
missing=()
while read -r fn; do
  if [ ! -f "$pages/$fn.3" ]; then
    missing+=("$fn")
  elif ! page_names "$pages/$fn.3" | grep -qx "$fn"; then
    problem "$fn.3: its NAME section does not name $fn"
  fi
done <"$scratch/exported"
if [ ${#missing[@]} -gt 0 ]; then
  problem "${#missing[@]} exported function(s) without a page: ${missing[*]}"
fi

for f in "${files[@]}"; do
  page=$(basename "$f")
  stem=${page%.3}

  # Names: real symbols, the file's own among them.
  names=$(page_names "$f")
  if [ -z "$names" ]; then
    problem "$page: its NAME section names nothing (.Nm)"
  elif [ "$stem" = cl ]; then
    [ "$names" = cl ] || problem "$page: the overview is named after the library alone, not: $names"
  else
    while read -r name; do
      grep -qx "$name" "$scratch/symbols" || problem "$page: .Nm $name is no symbol of the library, of the documented platform libraries or of cl_escape.h"
    done <<<"$names"
    grep -qx "$stem" <<<"$names" || problem "$page: its NAME section does not give the file's name $stem"
  fi

  # The title: the name in capitals, section 3.
  upper=$(tr '[:lower:]' '[:upper:]' <<<"$stem")
  dt=$(sed -n 's/^\.Dt[ \t]\{1,\}//p' "$f" | head -1)
  [ "$dt" = "$upper 3" ] || problem "$page: .Dt is '$dt', not '$upper 3'"

  # libcl's pages name the library as the overview does.
  if [ "$stem" != cl ] && [ -f "$pages/cl.3" ] && grep -qx "$stem" "$scratch/exported" \
     && [ "$(page_library "$f")" != "$(page_library "$pages/cl.3")" ]; then
    problem "$page: its LIBRARY section is not the overview's: $(page_library "$f" | paste -sd ' ')"
  fi

  # mandoc's lint, warnings and worse.
  if ! lint=$("$mandoc" -T lint -W warning "$f" 2>&1) || [ -n "$lint" ]; then
    problem "$page: not clean under mandoc -T lint -W warning:"
    printf '%s\n' "$lint" | sed 's/^/    /' >&2
  fi

  # The sections, all of them, in order.
  if [ "$stem" = cl ]; then
    expected=("${overview[@]}")
    have=$(page_sections "$f")
    for s in "${expected[@]}"; do
      grep -qx "$s" <<<"$have" || problem "$page: no section $s"
    done
  else
    expected=("${skeleton[@]}")
    have=$(page_sections "$f")
    want=$(printf '%s\n' "${expected[@]}")
    if [ "$have" != "$want" ]; then
      for s in "${expected[@]}"; do
        grep -qx "$s" <<<"$have" || problem "$page: no section $s"
      done
      problem "$page: sections are [$(paste -sd '|' <<<"$have")], the skeleton's are [$(paste -sd '|' <<<"$want")]"
    fi
  fi

  # Cross-references within section 3 lead to a page.
  while read -r target; do
    [ -n "$target" ] || continue
    if [ "$target" = cl ] || [[ $target == [cC][lL]_* ]] || grep -qx "$target" "$scratch/symbols"; then
      grep -qx "$target" "$scratch/all_names" || problem "$page: .Xr $target 3 has no page"
    fi
  done < <(awk '/^\./ { for (i = 1; i + 2 <= NF; i++) if (($i == "Xr" || $i == ".Xr") && $(i + 2) ~ /^3[,.;:)]?$/) print $(i + 1) }' "$f" | sort -u)
done

if [ ${#missing[@]} -gt 0 ]; then
  echo "Pages missing:" >&2
  printf '  %s.3\n' "${missing[@]}" >&2
fi
if [ "$problems" -gt 0 ]; then
  echo "$problems problem(s) in ${#files[@]} page(s)" >&2
  exit 1
fi
echo "man pages: ok (${#files[@]} pages, $(wc -l <"$scratch/exported") exported functions)"
