#!/usr/bin/env bash
# Fault injection: plants each fault of tools/mutations.txt, one at a time,
# in a scratch copy of the tree, builds it and runs the whole CTest suite,
# and reports whether the suite caught the fault. Not part of CI (slow).
#
#   bash tools/mutate.sh                  # every fault
#   bash tools/mutate.sh unit-32 leak-sqlite   # some faults, by id
#   bash tools/mutate.sh --sanitize       # every fault in the sanitized build
#   bash tools/mutate.sh --list           # the faults, without running them
#
# The tree is copied once per run (rsync, build directories and .git left
# out) to $CL_MUTATE_DIR/src (default build/mutate/src) and built there in
# one plain build directory (plain/) reused across faults; each fault's file
# is put back after its run. A leak is visible only to LeakSanitizer, so the
# faults marked "asan: yes" always run in a second, sanitized build
# (AddressSanitizer, UndefinedBehaviorSanitizer, LeakSanitizer: asan/);
# --sanitize runs every fault there.
#
# A fault is "caught" when a test fails (or times out), "survived" when the
# whole suite passes, "did not build" when the mutated tree does not compile,
# which means the fault is badly chosen. Every fault's text must occur
# exactly once in its file, or the run stops before building anything.
# Exit status 0 only when every fault was caught. Logs: $dir/logs/<id>.*.log.
set -euo pipefail
cd "$(dirname "$0")/.."
root=$PWD
list=$root/tools/mutations.txt
dir=${CL_MUTATE_DIR:-build/mutate}
mkdir -p "$dir"
dir=$(cd "$dir" && pwd)
src=$dir/src
jobs=$(nproc)
suite_limit=${CL_MUTATE_TIMEOUT:-600}  # seconds for one run of the suite

sanitize_all=false
list_only=false
ids=()
for arg in "$@"; do
  case $arg in
    --sanitize) sanitize_all=true ;;
    --list) list_only=true ;;
    -h|--help) sed -n '2,/^set -euo/p' "$0" | sed '$d; s/^# \{0,1\}//'; exit 0 ;;
    -*) echo "mutate: unknown option $arg" >&2; exit 2 ;;
    *) ids+=("$arg") ;;
  esac
done

# mutation SUBCOMMAND ...: reads tools/mutations.txt.
#   check SRC [ID...]   checks the selected faults against the tree SRC and
#                       prints one line each: id, file, asan (yes/no), what
#   apply SRC ID        plants the fault in SRC
mutation() {
  python3 - "$list" "$@" <<'EOF'
import sys

def load(path):
    faults, cur = [], {}
    for n, line in enumerate(open(path, encoding="utf-8"), 1):
        line = line.rstrip("\n")
        if line.startswith("#"):
            continue
        if not line.strip():
            if cur:
                faults.append(cur)
            cur = {}
            continue
        key, sep, value = line.partition(":")
        if not sep or key not in ("id", "file", "what", "old", "new", "asan") or key in cur:
            sys.exit(f"mutate: {path}:{n}: bad line: {line}")
        cur[key] = value[1:] if value.startswith(" ") else value
        cur.setdefault("line", n)
    if cur:
        faults.append(cur)
    for f in faults:
        for key in ("id", "file", "what", "old", "new"):
            if key not in f:
                sys.exit(f"mutate: {path}:{f['line']}: fault without '{key}'")
        if f.get("asan", "no") not in ("yes", "no"):
            sys.exit(f"mutate: {path}:{f['line']}: asan is yes or no")
        f["old"] = f["old"].replace("<NL>", "\n")
        f["new"] = f["new"].replace("<NL>", "\n")
        if not f["old"] or f["old"] == f["new"]:
            sys.exit(f"mutate: {f['id']}: old is empty or equals new")
    seen = set()
    for f in faults:
        if f["id"] in seen:
            sys.exit(f"mutate: fault id {f['id']} given twice")
        seen.add(f["id"])
    return faults

path, cmd, tree, *rest = sys.argv[1:]
faults = load(path)
by_id = {f["id"]: f for f in faults}
if cmd == "check":
    chosen = rest or [f["id"] for f in faults]
    bad = []
    for i in chosen:
        f = by_id.get(i)
        if f is None:
            bad.append(f"{i}: no such fault")
            continue
        try:
            text = open(f"{tree}/{f['file']}", encoding="utf-8").read()
        except OSError as e:
            bad.append(f"{i}: {e}")
            continue
        count = text.count(f["old"])
        if count != 1:
            bad.append(f"{i}: its text occurs {count} times in {f['file']}, not once")
    if bad:
        sys.exit("mutate: faults that cannot be planted:\n  " + "\n  ".join(bad))
    for i in chosen:
        f = by_id[i]
        print(f"{i}\t{f['file']}\t{f.get('asan', 'no')}\t{f['what']}")
elif cmd == "apply":
    f = by_id[rest[0]]
    p = f"{tree}/{f['file']}"
    text = open(p, encoding="utf-8").read()
    if text.count(f["old"]) != 1:
        sys.exit(f"mutate: {f['id']}: text not found once in {f['file']}")
    open(p, "w", encoding="utf-8").write(text.replace(f["old"], f["new"]))
else:
    sys.exit(f"mutate: unknown subcommand {cmd}")
EOF
}

if $list_only; then
  mutation check "$root" "${ids[@]}" | awk -F'\t' '{printf "%-22s %-26s %s%s\n", $1, $2, $4, ($3 == "yes" ? " [asan]" : "")}'
  exit 0
fi

if ! command -v rsync >/dev/null 2>&1; then  # Debian package, as tools/deps.sh installs
  sudo=""
  [ "$(id -u)" -eq 0 ] || sudo=sudo
  export DEBIAN_FRONTEND=noninteractive
  $sudo apt-get update
  $sudo apt-get install -y --no-install-recommends rsync
fi
echo "Copying the tree to $src"
# By content, not time stamps: a file that differs is written anew and gets a
# new time stamp, so the reused build recompiles it even when the tree's copy
# is older than an object built from a fault of an earlier run.
rsync -rlpD --checksum --delete --exclude=/build/ --exclude=/.git/ "$root/" "$src/"
plan=$(mutation check "$src" "${ids[@]}")
mkdir -p "$dir/logs"

need_plain=false need_asan=false
while IFS=$'\t' read -r _ _ asan _; do
  if $sanitize_all || [ "$asan" = yes ]; then need_asan=true; else need_plain=true; fi
done <<<"$plan"

# configure KIND: plain or asan, in $dir/KIND. Executables are not relinked
# when only a shared library changed: they load it at run time.
configure() {
  local kind=$1 extra=()
  [ "$kind" = asan ] && extra=(-DCL_SANITIZE=ON)
  cmake -S "$src" -B "$dir/$kind" -G Ninja -DCMAKE_BUILD_TYPE=Debug \
    -DCMAKE_C_FLAGS_DEBUG=-O0 -DCMAKE_CXX_FLAGS_DEBUG=-O0 \
    -DCMAKE_LINK_DEPENDS_NO_SHARED=ON "${extra[@]}" >/dev/null
}

build() {  # KIND LOG
  cmake --build "$dir/$1" -j "$jobs" >"$2" 2>&1
}

run_suite() {  # KIND LOG
  (cd "$dir/$1" &&
    ASAN_OPTIONS=detect_leaks=1:abort_on_error=1 UBSAN_OPTIONS=print_stacktrace=1 \
    timeout "$suite_limit" ctest -j "$jobs" --stop-on-failure --output-on-failure) >"$2" 2>&1
}

# The unmutated tree must build and pass, or every fault would look caught.
for kind in plain asan; do
  want=need_$kind
  ${!want} || continue
  echo "Baseline: building and testing the unmutated tree ($kind)"
  configure "$kind"
  build "$kind" "$dir/logs/baseline-$kind.build.log" ||
    { echo "mutate: the unmutated tree does not build ($kind); see $dir/logs/baseline-$kind.build.log" >&2; exit 1; }
  run_suite "$kind" "$dir/logs/baseline-$kind.test.log" ||
    { echo "mutate: the unmutated tree fails its tests ($kind); see $dir/logs/baseline-$kind.test.log" >&2; exit 1; }
done

rows=()
caught=0 survived=0 unbuilt=0
# The loop reads the plan on descriptor 3: the builds and tests keep stdin.
restore=""
trap '[ -z "$restore" ] || cp "$dir/saved-source" "$src/$restore"' EXIT
while IFS=$'\t' read -r -u 3 id file asan what; do
  kind=plain
  if $sanitize_all || [ "$asan" = yes ]; then kind=asan; fi
  saved=$dir/saved-source
  cp -p "$src/$file" "$saved"
  restore=$file
  mutation apply "$src" "$id"
  start=$SECONDS
  if ! build "$kind" "$dir/logs/$id.build.log"; then
    result="did not build"
    unbuilt=$((unbuilt + 1))
  elif run_suite "$kind" "$dir/logs/$id.test.log"; then
    result="survived"
    survived=$((survived + 1))
  else
    # The first failing test, from ctest's closing list.
    by=$(sed -n '/The following tests FAILED/{n;p;q}' "$dir/logs/$id.test.log" |
      sed -E 's/^[[:space:]]*[0-9]+ - //; s/ \(.*//')
    result="caught${by:+ by $by}"
    caught=$((caught + 1))
  fi
  # The source goes back with a new time stamp, so the next build recompiles it.
  cp "$saved" "$src/$file"
  touch "$src/$file"
  restore=""
  printf '%-22s %-5s %3ss  %s\n' "$id" "$kind" $((SECONDS - start)) "$result"
  rows+=("$id"$'\t'"$file"$'\t'"$kind"$'\t'"$result"$'\t'"$what")
done 3<<<"$plan"

echo
if $sanitize_all; then
  echo "--sanitize: every fault ran in the sanitized build (ASan, UBSan, LeakSanitizer)."
elif $need_asan; then
  echo "Leak faults (asan: yes) ran in the sanitized build, where LeakSanitizer sees them; the others in the plain build."
fi
echo
printf '| %s | %s | %s | %s | %s |\n' id file build result fault
printf '|---|---|---|---|---|\n'
for row in "${rows[@]}"; do
  IFS=$'\t' read -r id file kind result what <<<"$row"
  printf '| %s | %s | %s | %s | %s |\n' "$id" "$file" "$kind" "$result" "$what"
done
echo
line="$caught caught, $survived survived"
[ "$unbuilt" -eq 0 ] || line="$line, $unbuilt did not build (badly chosen faults)"
echo "$line"
[ "$survived" -eq 0 ] && [ "$unbuilt" -eq 0 ]
