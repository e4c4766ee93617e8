#!/usr/bin/env bash
# Whole processes against their peers, in one run, on this machine:
#   1. `holdenmere --version` against /bin/true (start-up cost);
#   2. a login pass with the network up and ten apps against the shell loop a
#      user would write instead: curl until the probe answers, then start the
#      same ten executables;
#   3. the peak resident set of that pass (GNU time);
#   4. how long after the network comes up the pass sends its next attempt,
#      with a 2 s poll interval (in network namespaces of its own; skipped
#      where they are not allowed).
# Times are medians of many runs (hyperfine). Build in Release first:
#   cmake -S . -B build/bench -G Ninja -DCMAKE_BUILD_TYPE=Release
#   cmake --build build/bench
#   bench/whole_process.sh [build/bench]
set -euo pipefail
cd "$(dirname "$0")/.."

build=${1:-build/bench}
holdenmere=$build/Holdenmere.app/Contents/MacOS/holdenmere
demo_app=$build/tools/demo/holdenmere_demo_app
probe_server=$build/tools/demo/holdenmere_demo_probe_server
network_wait=$build/tests/holdenmere_network_namespace
for tool in hyperfine curl pkill; do
  command -v "$tool" >/dev/null || { echo "needs $tool: scripts/install-deps.sh --bench" >&2; exit 1; }
done
[ -x /usr/bin/time ] || { echo "needs GNU time: scripts/install-deps.sh --bench" >&2; exit 1; }
for file in "$holdenmere" "$demo_app" "$probe_server"; do
  [ -x "$file" ] || { echo "missing $file: build $build first" >&2; exit 1; }
done

work=$(mktemp -d "${TMPDIR:-/tmp}/holdenmere-bench.XXXXXX")
server_pid=""
cleanup() {
  pkill -9 -f "$work/Applications/[A]pp" 2>/dev/null || true
  [ -z "$server_pid" ] || kill "$server_pid" 2>/dev/null || true
  rm -rf "$work"
}
[ -n "${KEEP_WORK:-}" ] || trap cleanup EXIT

median_of() {  # the median of the numbers on standard input
  sort -n | awk '{ v[NR] = $1 } END { if (NR % 2) print v[(NR + 1) / 2]; else print (v[NR / 2] + v[NR / 2 + 1]) / 2 }'
}

# The probe page on loopback, answering 204 from the start.
"$probe_server" --after 0 --for 3600 >"$work/port" &
server_pid=$!
for _ in $(seq 100); do [ -s "$work/port" ] && break; sleep 0.05; done
url="http://127.0.0.1:$(cat "$work/port")/hotspot-detect.html"

# Ten app bundles whose executable stays running, and a config that opens them.
apps_json=""
: >"$work/loop-apps"
for index in $(seq 0 9); do
  name="App$index"
  bundle="$work/Applications/$name.app"
  mkdir -p "$bundle/Contents/MacOS"
  cp "$demo_app" "$bundle/Contents/MacOS/$name"
  printf '<?xml version="1.0"?><plist version="1.0"><dict><key>CFBundleIdentifier</key><string>com.example.bench.%s</string><key>CFBundleExecutable</key><string>%s</string></dict></plist>\n' \
    "$name" "$name" >"$bundle/Contents/Info.plist"
  apps_json+="${apps_json:+,}{\"bundleIdentifier\":\"com.example.bench.$name\",\"name\":\"$name\",\"path\":\"$bundle\"}"
  echo "\"$bundle/Contents/MacOS/$name\" &" >>"$work/loop-apps"
done
mkdir -p "$work/home/Library/Application Support/Holdenmere"
printf '{"settings":{"probeURL":"%s","pollInterval":2,"maxAttempts":60,"launchAnywayOnTimeout":true,"isEnabled":true},"apps":[%s]}\n' \
  "$url" "$apps_json" >"$work/home/Library/Application Support/Holdenmere/config.json"
cat >"$work/curl-loop.sh" <<LOOP
until curl -sf -o /dev/null "$url"; do sleep 0.5; done
$(cat "$work/loop-apps")
LOOP

export HOME="$work/home" HOLDENMERE_HISTORY_PATH="$work/history.json" HOLDENMERE_LOG_PATH="$work/log"
# Ends the apps a run opened, before the next run. (The pattern does not
# match its own text, so hyperfine, which carries it, is spared.)
printf 'pkill -9 -f "%s/Applications/[A]pp"\nexit 0\n' "$work" >"$work/kill-apps.sh"
kill_apps="sh $work/kill-apps.sh"

echo "== start-up: --version against /bin/true"
hyperfine -N --warmup 50 --runs 500 --export-csv "$work/version.csv" \
  /bin/true "$holdenmere --version" | grep -E 'Benchmark|Time|±'
echo
echo "== a pass with the network up and 10 apps against the curl loop"
hyperfine -N --warmup 3 --runs ${PASS_RUNS:-40} --prepare "$kill_apps" --export-csv "$work/pass.csv" \
  "sh $work/curl-loop.sh" "$holdenmere --gate" | grep -E 'Benchmark|Time|±'
$kill_apps

echo
echo "== peak resident set of that pass (7 runs)"
for _ in $(seq 7); do
  $kill_apps
  /usr/bin/time -f '%M' -o "$work/rss" "$holdenmere" --gate >/dev/null
  cat "$work/rss"
done | median_of | awk '{ printf "median peak resident set: %.1f MiB (%d KiB)\n", $1 / 1024, $1 }'
$kill_apps

echo
echo "== the network noticed: from loopback coming up to the next attempt (pollInterval 2 s, 7 runs)"
if [ -x "$network_wait" ]; then
  status=0
  "$network_wait" measure 7 "$holdenmere" || status=$?
  [ "$status" -ne 77 ] || echo "(skipped: network namespaces are not allowed here)"
  [ "$status" -eq 0 ] || [ "$status" -eq 77 ] || echo "(failed: exit $status)"
else
  echo "(skipped: $network_wait is not built; configure with tests on)"
fi

echo
echo "== ratios (medians)"
median() {  # the median of row N (1 = the first command) of a hyperfine CSV export
  awk -F, -v row="$2" 'NR == row + 1 { print $4 }' "$1"
}
awk -v t="$(median "$work/version.csv" 1)" -v h="$(median "$work/version.csv" 2)" \
  'BEGIN { printf "--version: %.2f ms against /bin/true %.2f ms: %.2fx (target <= 3x)\n", h * 1000, t * 1000, h / t }'
awk -v c="$(median "$work/pass.csv" 1)" -v h="$(median "$work/pass.csv" 2)" \
  'BEGIN { printf "pass: %.1f ms against the curl loop %.1f ms: %.2fx (target <= 1x)\n", h * 1000, c * 1000, h / c }'
