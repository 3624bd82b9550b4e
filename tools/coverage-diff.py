#!/usr/bin/env python3
"""Lines that one coverage run reached and another did not.

    python3 tools/coverage-diff.py BEFORE.json AFTER.json

Both files are the coverage.json that tools/coverage.sh leaves in its build
directory. Prints every source line executed in BEFORE and not in AFTER,
as file:line, and exits 1 when there is any: a rewrite of tests that
claims to keep coverage can show it lost nothing.
"""
import json
import sys


def reached(path):
    out = set()
    for f in json.load(open(path))["files"]:
        for line in f["lines"]:
            if not line.get("gcovr/noncode") and line["count"] > 0:
                out.add((f["file"], line["line_number"]))
    return out


if len(sys.argv) != 3:
    sys.exit(__doc__.strip())
lost = sorted(reached(sys.argv[1]) - reached(sys.argv[2]))
for name, number in lost:
    print(f"{name}:{number}")
print(f"{len(lost)} lines reached before and not after", file=sys.stderr)
sys.exit(1 if lost else 0)
