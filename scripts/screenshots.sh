#!/usr/bin/env bash
# Regenerates docs/screenshots/*.png: builds the app (build/test unless
# BUILD_DIR says otherwise), then starts it under a virtual X server with the
# built-in sample fixture, in a throwaway home folder, and has it save a
# picture of every page of the main window (Startup Items included), of the
# startup take-over consent sheet and of every step of the welcome window.
#   scripts/screenshots.sh
set -euo pipefail
cd "$(dirname "$0")/.."

build=${BUILD_DIR:-build/test}
out=docs/screenshots

command -v xvfb-run >/dev/null || { echo "xvfb-run is missing: run scripts/install-deps.sh" >&2; exit 69; }
[ -f "$build/build.ninja" ] || cmake -S . -B "$build" -G Ninja -DCMAKE_BUILD_TYPE=Debug >/dev/null
cmake --build "$build" --target holdenmere

home=$(mktemp -d)
trap 'rm -rf "$home"' EXIT
mkdir -p "$out"
rm -f "$out"/*.png
env -i HOME="$home" PATH=/usr/bin:/bin TZ=UTC LANG=C.UTF-8 XDG_RUNTIME_DIR="$home" \
  HOLDENMERE_UI_FIXTURE=sample HOLDENMERE_UI_SCREENSHOTS="$PWD/$out" \
  xvfb-run -a -s "-screen 0 1280x1024x24" "$build/Holdenmere.app/Contents/MacOS/holdenmere"
ls "$out"/*.png
