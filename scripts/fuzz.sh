#!/usr/bin/env bash
# Builds a fuzz target with clang and libFuzzer (build/fuzz) and runs it for a
# while, in one process, from its seeds: scripts/fuzz.sh fuzz_config_decoder [seconds]
# New inputs go to a throwaway folder, removed when the run ends however it
# ends; a crashing input is kept in build/fuzz/artifacts/TARGET/.
set -euo pipefail
cd "$(dirname "$0")/.."
target=${1:?usage: $0 TARGET [seconds]}
seconds=${2:-60}

scripts/install-deps.sh --fuzz
cmake -S . -B build/fuzz -G Ninja -DCMAKE_BUILD_TYPE=RelWithDebInfo \
  -DCMAKE_C_COMPILER=clang -DCMAKE_CXX_COMPILER=clang++ \
  -DHOLDENMERE_FUZZ=ON -DHOLDENMERE_SANITIZE=ON -DHOLDENMERE_BENCH=OFF >/dev/null
# No more compilers at once than the machine has cores.
cmake --build build/fuzz --target "$target" -j "$(getconf _NPROCESSORS_ONLN)"

# The seeds are listed by fuzz/CMakeLists.txt, one file a line.
seeds=build/fuzz/fuzz/$target.seeds
[ -s "$seeds" ] || { echo "$0: no seeds listed for $target in $seeds" >&2; exit 66; }

corpus=$(mktemp -d)
trap 'rm -rf "$corpus"' EXIT
trap 'exit 130' INT
trap 'exit 143' TERM
# Copied, so that libFuzzer never writes next to the seeds.
count=0
while IFS= read -r seed; do
  count=$((count + 1))
  cp -- "$seed" "$corpus/seed-$count"
done <"$seeds"

artifacts=build/fuzz/artifacts/$target
mkdir -p "$artifacts"
status=0
build/fuzz/fuzz/"$target" -max_total_time="$seconds" -print_final_stats=1 \
  -artifact_prefix="$artifacts/" "$corpus" || status=$?
exit "$status"
