#!/usr/bin/env bash
# Installs what building and testing Holdenmere needs: Debian packages with
# apt-get (as root, or through sudo), Homebrew formulae on macOS. Packages that
# are already installed are left alone, so this is cheap to run every time.
#   scripts/install-deps.sh [--fuzz] [--bench]
#   (--fuzz adds clang for libFuzzer builds; --bench hyperfine, GNU time and
#   procps for bench/whole_process.sh)
# Where npm is installed, it also puts GitHub's workflow parser, for the check
# of .github/workflows, into a cache outside the tree (scripts/check-workflows.sh).
set -euo pipefail

want_fuzz=0
want_bench=0
for arg in "$@"; do
  case "$arg" in
    --fuzz) want_fuzz=1 ;;
    --bench) want_bench=1 ;;
    *) echo "usage: $0 [--fuzz] [--bench]" >&2; exit 64 ;;
  esac
done

"$(dirname "$0")/check-workflows.sh" --install

if [ "$(uname -s)" = Darwin ]; then
  formulae=(cmake ninja pkg-config libplist nlohmann-json curl googletest google-benchmark qt)
  [ "$want_bench" -eq 0 ] || formulae+=(hyperfine gnu-time)
  missing=()
  for formula in "${formulae[@]}"; do
    brew list --formula "$formula" >/dev/null 2>&1 || missing+=("$formula")
  done
  [ ${#missing[@]} -eq 0 ] || brew install "${missing[@]}"
  exit 0
fi

packages=(
  cmake ninja-build g++ pkg-config git curl python3
  libplist-dev nlohmann-json3-dev libcurl4-openssl-dev
  libgtest-dev libgmock-dev libbenchmark-dev
  # The desktop app: Qt 6 Widgets and Test, the GL headers its CMake package
  # asks for, the platform plugins (xcb, offscreen), .icns reading, a font,
  # and a virtual X server for the screenshot run.
  qt6-base-dev qt6-qpa-plugins qt6-image-formats-plugins libgl-dev
  fonts-dejavu-core xvfb xauth
)
[ "$want_fuzz" -eq 0 ] || packages+=(clang libclang-rt-dev)
[ "$want_bench" -eq 0 ] || packages+=(hyperfine time procps)

missing=()
for package in "${packages[@]}"; do
  dpkg-query -W -f='${Status}' "$package" 2>/dev/null | grep -q 'install ok installed' || missing+=("$package")
done
[ ${#missing[@]} -eq 0 ] && exit 0

sudo=()
[ "$(id -u)" -eq 0 ] || sudo=(sudo)
echo "Installing: ${missing[*]}" >&2
"${sudo[@]}" apt-get update -qq
DEBIAN_FRONTEND=noninteractive "${sudo[@]}" apt-get install -y -qq --no-install-recommends "${missing[@]}" >&2
