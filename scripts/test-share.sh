#!/usr/bin/env bash
# Prints the share of test code in the C++ of the tree: lines that are
# neither blank nor comments only, in tests/, fuzz/ and bench/ against core/,
# app/, platform/ and tools/ (.h, .cpp, .mm, .cc).
#   scripts/test-share.sh
set -euo pipefail
cd "$(dirname "$0")/.."
exec python3 - <<'PY'
import pathlib, re

def code_lines(path):
    text = path.read_text(errors="replace")
    # Comments out, strings kept as they stand (a "//" inside one is rare
    # enough not to matter for a share).
    text = re.sub(r"/\*.*?\*/", lambda m: "\n" * m.group(0).count("\n"), text, flags=re.S)
    return sum(1 for line in text.splitlines() if line.strip() and not line.strip().startswith("//"))

def count(folders):
    total = 0
    for folder in folders:
        for path in pathlib.Path(folder).rglob("*"):
            if path.suffix in (".h", ".cpp", ".mm", ".cc") and path.is_file():
                total += code_lines(path)
    return total

tests = count(["tests", "fuzz", "bench"])
program = count(["core", "app", "platform", "tools"])
print(f"test share: {tests} of {tests + program} C++ lines are tests, fuzz targets and benchmarks "
      f"({100 * tests / (tests + program):.1f}%)")
PY
