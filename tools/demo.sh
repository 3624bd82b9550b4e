#!/usr/bin/env bash
# The main job: installs what a fresh machine lacks, builds the library and
# its sample programs, sets up a fresh server home and runs an
# administrator's session against it.
set -euo pipefail
cd "$(dirname "$0")/.."
bash tools/deps.sh

build=build/demo
log=$(mktemp)
trap 'rm -f "$log"' EXIT
echo "Building into $build ..."
if ! { cmake -S . -B "$build" -G Ninja -DCMAKE_BUILD_TYPE=RelWithDebInfo -DCL_BUILD_TESTS=OFF &&
       cmake --build "$build" --target qxadm -j "$(nproc)"; } >"$log" 2>&1; then
  cat "$log"
  exit 1
fi

export PATH="$PWD/$build/programs:$PATH"
QX_HOME=$(mktemp -d /tmp/qx-demo-XXXXXX)
export QX_HOME
echo "Fresh server home: QX_HOME=$QX_HOME"

# Shows the command as one would type it, runs it, and shows its exit
# status when it fails.
run() {
  local shown="" a
  for a in "$@"; do
    if [[ $a =~ ^[A-Za-z0-9_./,=-]+$ ]]; then shown+=" $a"; else shown+=" '$a'"; fi
  done
  printf '\n$%s\n' "$shown"
  local status=0
  "$@" 2>&1 || status=$?
  [ "$status" -eq 0 ] || echo "[exit status $status]"
}

run qx-inithome Sales,London
run qx-useradd 'John Smith/Sales,London'
run qx-useradd 'Zoe Muller/Sales,London/organization=Acme/country=DE/utf8Surname=Müller'
run qx-useradd 'Ann Lee/Customer_Relations_and_Support_Europe,London'
run qx-userlist
run qx-pmn
run qx-defmnode
run qx-startcount --count

# Bulk provisioning: a file of names in one process, then a hundred
# thousand generated ones, then the directory written out again.
tools=$PWD/tools
cd "$QX_HOME"
cat >new-staff.txt <<'NAMES'
# New staff of the London office
Mary Jones/Sales,London/organization=Acme/country=GB
Jo Ng/Support,London
John Smith/Sales,London
Li Wei/Research,Oxford,Europe,Customer_Relations_and_Support_Europe
NAMES
run cat new-staff.txt
run qx-import new-staff.txt
python3 "$tools/gen-names.py" 100000 >names.txt
printf '\n$ python3 tools/gen-names.py 100000 > names.txt   # realistic names, some in UTF-8\n'
began=$EPOCHREALTIME
run qx-import names.txt
awk -v a="$began" -v b="$EPOCHREALTIME" 'BEGIN { printf "(%.1f s)\n", b - a }'
printf '\n$ qx-export --format=attributes | tail -n 2\n'
qx-export --format=attributes | tail -n 2

printf '\nThe home stays in %s for a look around (sqlite3 %s/sys/users.db).\n' "$QX_HOME" "$QX_HOME"
printf 'To go on by hand in it, type:\n\n'
printf '    export PATH="%s:$PATH"\n' "$(dirname "$tools")/$build/programs"
printf '    export QX_HOME=%s\n' "$QX_HOME"
