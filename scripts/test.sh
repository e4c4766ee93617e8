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
# A shallow clone or a source export has no commit count to number the build
# with (CMakeLists.txt): build it unnumbered there, numbered everywhere else.
build_number=-DHOLDENMERE_BUILD_NUMBER=
if [ "$(git rev-parse --is-shallow-repository 2>/dev/null)" != false ] ||
  [ "$(git rev-parse --show-toplevel 2>/dev/null)" != "$(pwd -P)" ]; then
  build_number=-DHOLDENMERE_BUILD_NUMBER=dev
fi
cmake -S . -B "$build" -G Ninja "${options[@]}" "$build_number" >/dev/null
cmake --build "$build"
cd "$build"
ctest --output-on-failure --parallel 2 --timeout 300
