#!/usr/bin/env bash
# Builds everything (build/test) and runs every test: unit, end-to-end and
# the fuzz corpora. `--sanitize` does the same under AddressSanitizer and
# UndefinedBehaviorSanitizer in build/sanitize.
set -euo pipefail
cd "$(dirname "$0")/.."

build=build/test
options=(-DCMAKE_BUILD_TYPE=Debug)
for arg in "$@"; do
  case "$arg" in
    --sanitize) build=build/sanitize; options+=(-DHOLDENMERE_SANITIZE=ON) ;;
    *) echo "usage: $0 [--sanitize]" >&2; exit 64 ;;
  esac
done

scripts/install-deps.sh
cmake -S . -B "$build" -G Ninja "${options[@]}" >/dev/null
cmake --build "$build"
cd "$build"
ctest --output-on-failure --parallel 2 --timeout 300
