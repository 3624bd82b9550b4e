#!/usr/bin/env bash
# Prints the size of the tests against the size of the code they test:
# non-blank, non-comment lines of C and C++ (.c .h .cpp .hpp) in tests/
# against cl/, platform/, programs/ and include/. The project keeps tests at
# roughly a quarter to a third of the code.
#
#   bash tools/test-ratio.sh         # the two counts and the ratio
#   bash tools/test-ratio.sh -v      # and every test file's count
set -euo pipefail
cd "$(dirname "$0")/.."
python3 - "$@" <<'PY'
import os, sys

def count(path):
    """Non-blank lines outside // and /* */ comments (string contents are not
    parsed: a comment opener inside a string literal is rare in this tree)."""
    n, in_block = 0, False
    for line in open(path, encoding="utf-8", errors="replace"):
        s = line.strip()
        code = ""
        while s:
            if in_block:
                end = s.find("*/")
                if end < 0:
                    s = ""
                else:
                    in_block, s = False, s[end + 2:]
            else:
                a, b = s.find("/*"), s.find("//")
                if b >= 0 and (a < 0 or b < a):
                    code += s[:b]; s = ""
                elif a >= 0:
                    code += s[:a]; in_block, s = True, s[a + 2:]
                else:
                    code += s; s = ""
        n += bool(code.strip())
    return n

def tree(*dirs):
    out = {}
    for d in dirs:
        for root, _, files in os.walk(d):
            for f in files:
                if f.endswith((".c", ".h", ".cpp", ".hpp")):
                    p = os.path.join(root, f)
                    out[p] = count(p)
    return out

code = tree("cl", "platform", "programs", "include")
tests = tree("tests")
c, t = sum(code.values()), sum(tests.values())
print(f"tests/: {t} lines; code: {c} lines; tests are {100.0 * t / c:.1f}% of the code")
if "-v" in sys.argv[1:]:
    for p, n in sorted(tests.items(), key=lambda kv: -kv[1]):
        print(f"{n:6} {p}")
PY
