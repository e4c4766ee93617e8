#!/usr/bin/env bash
# Builds Holdenmere.app (release build, in build/release) and runs it.
#
#   scripts/run.sh            a demonstration login pass in a throwaway home:
#                             three sample apps (one delayed, one hidden), a
#                             probe server on 127.0.0.1 that starts answering
#                             a few seconds in, then the history and --audit
#   scripts/run.sh ARGS...    the executable with these arguments, e.g. --gate
set -euo pipefail
cd "$(dirname "$0")/.."

scripts/install-deps.sh
# A shallow clone or a source export has no commit count to number the build
# with (CMakeLists.txt): build it unnumbered there, numbered everywhere else.
build_number=-DHOLDENMERE_BUILD_NUMBER=
if [ "$(git rev-parse --is-shallow-repository 2>/dev/null)" != false ] ||
  [ "$(git rev-parse --show-toplevel 2>/dev/null)" != "$(pwd -P)" ]; then
  build_number=-DHOLDENMERE_BUILD_NUMBER=dev
fi
cmake -S . -B build/release -G Ninja -DCMAKE_BUILD_TYPE=RelWithDebInfo \
  -DHOLDENMERE_TESTS=OFF -DHOLDENMERE_BENCH=OFF "$build_number" >/dev/null
cmake --build build/release --target holdenmere holdenmere_demo_probe_server holdenmere_demo_app >/dev/null
holdenmere=build/release/Holdenmere.app/Contents/MacOS/holdenmere

if [ $# -gt 0 ]; then
  exec "$holdenmere" "$@"
fi

home=$(mktemp -d "${TMPDIR:-/tmp}/holdenmere-demo.XXXXXX")
server_pid=""
cleanup() {
  pkill -f "$home/Applications/" 2>/dev/null || true
  [ -z "$server_pid" ] || kill "$server_pid" 2>/dev/null || true
  rm -rf "$home"
}
trap cleanup EXIT

# Three sample app bundles whose executable simply stays running.
make_app() {  # name identifier
  local bundle="$home/Applications/$1.app"
  mkdir -p "$bundle/Contents/MacOS"
  cp build/release/tools/demo/holdenmere_demo_app "$bundle/Contents/MacOS/$1"
  cat >"$bundle/Contents/Info.plist" <<PLIST
<?xml version="1.0" encoding="UTF-8"?>
<!DOCTYPE plist PUBLIC "-//Apple//DTD PLIST 1.0//EN" "http://www.apple.com/DTDs/PropertyList-1.0.dtd">
<plist version="1.0">
<dict>
	<key>CFBundleExecutable</key><string>$1</string>
	<key>CFBundleIdentifier</key><string>$2</string>
	<key>CFBundleName</key><string>$1</string>
</dict>
</plist>
PLIST
}
make_app Mail com.example.demo.mail
make_app Notes com.example.demo.notes
make_app Drive com.example.demo.drive

# The probe server refuses connections for 4 s, then answers 204.
exec 3< <(build/release/tools/demo/holdenmere_demo_probe_server --after 4 --for 90)
server_pid=$!
read -r port <&3

mkdir -p "$home/Library/Application Support/Holdenmere" "$home/Library/Logs"
cat >"$home/Library/Application Support/Holdenmere/config.json" <<JSON
{
  "settings": {
    "probeURL": "http://127.0.0.1:$port/hotspot-detect.html",
    "pollInterval": 1,
    "maxAttempts": 30,
    "launchAnywayOnTimeout": true,
    "isEnabled": true
  },
  "apps": [
    { "bundleIdentifier": "com.example.demo.mail", "name": "Mail", "path": "$home/Applications/Mail.app" },
    { "bundleIdentifier": "com.example.demo.notes", "name": "Notes", "path": "$home/Applications/Notes.app",
      "launchHidden": true, "delaySeconds": 5 },
    { "bundleIdentifier": "com.example.demo.drive", "name": "Drive", "path": "$home/Applications/Drive.app",
      "delaySeconds": 10 }
  ]
}
JSON

log="$home/Library/Logs/Holdenmere.log"
echo "== A login pass (holdenmere --gate) in the throwaway home $home"
echo "   The probe server answers only after 4 s; Notes opens hidden at +5 s, Drive at +10 s."
echo
set +e
HOME="$home" "$holdenmere" --gate 2>&1 | tee -a "$log"
status=${PIPESTATUS[0]}
set -e
echo
echo "== The pass ended with status $status. Apps now running:"
pgrep -af "$home/Applications/" | sed "s|$home|~|" || echo "(none)"
echo
echo "== The run history (~/Library/Application Support/Holdenmere/history.json):"
cat "$home/Library/Application Support/Holdenmere/history.json"
echo
echo "== holdenmere --audit"
HOME="$home" "$holdenmere" --audit
