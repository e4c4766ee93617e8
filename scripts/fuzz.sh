#!/usr/bin/env bash
# Builds the fuzz targets with clang and libFuzzer (build/fuzz) and runs one
# for a while: scripts/fuzz.sh fuzz_config_decoder [seconds]
set -euo pipefail
cd "$(dirname "$0")/.."
target=${1:?usage: $0 TARGET [seconds]}
seconds=${2:-60}

scripts/install-deps.sh --fuzz
cmake -S . -B build/fuzz -G Ninja -DCMAKE_BUILD_TYPE=RelWithDebInfo \
  -DCMAKE_C_COMPILER=clang -DCMAKE_CXX_COMPILER=clang++ \
  -DHOLDENMERE_FUZZ=ON -DHOLDENMERE_SANITIZE=ON -DHOLDENMERE_BENCH=OFF >/dev/null
cmake --build build/fuzz --target "$target"
corpus=$(mktemp -d)
trap 'rm -rf "$corpus"' EXIT
seeds=fuzz/corpus/${target#fuzz_}
seeds=${seeds%_decoder}; seeds=${seeds%_parser}
[ -d "$seeds" ] || { echo "$0: no seed corpus at $seeds" >&2; exit 66; }
# New inputs go to the throwaway folder; the seeds are only read.
exec build/fuzz/fuzz/"$target" -max_total_time="$seconds" -print_final_stats=1 "$corpus" "$seeds"
