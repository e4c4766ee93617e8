#!/usr/bin/env bash
# Builds Holdenmere.app (release build, in build/release) and runs its
# executable with the given arguments, e.g. `scripts/run.sh --gate`.
set -euo pipefail
cd "$(dirname "$0")/.."

scripts/install-deps.sh
cmake -S . -B build/release -G Ninja -DCMAKE_BUILD_TYPE=RelWithDebInfo \
  -DHOLDENMERE_TESTS=OFF -DHOLDENMERE_BENCH=OFF >/dev/null
cmake --build build/release --target holdenmere >/dev/null
exec build/release/Holdenmere.app/Contents/MacOS/holdenmere "$@"
