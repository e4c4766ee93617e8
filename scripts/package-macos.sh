#!/usr/bin/env bash
# Makes the disk image of a built Holdenmere.app (macOS only):
#
#   scripts/package-macos.sh [APP] [OUTPUT]
#
# APP defaults to build/release/Holdenmere.app, OUTPUT (a folder) to
# build/dist. The bundle is copied to OUTPUT/stage and never changed where it
# was built. On the copy: Qt goes into Contents/Frameworks and Contents/PlugIns
# (macdeployqt, also for the desktop module, the one part that links Qt),
# library search paths into the build machine are removed, and every piece of
# code is signed from the inside out. Then OUTPUT/Holdenmere-{version}-{build}-
# {arch}.dmg is made, mounted, and the app on it must print its version and
# refer to nothing in Homebrew.
#
# Without anything in the environment, the code is signed ad hoc. With
#   HOLDENMERE_SIGN_IDENTITY    a Developer ID Application identity in the
#                               keychain ("Developer ID Application: Name (TEAM)")
#   HOLDENMERE_SIGN_KEYCHAIN    (optional) the keychain that holds it
# it is signed with that identity, the hardened runtime and a secure
# timestamp; and with either
#   HOLDENMERE_NOTARY_KEYCHAIN_PROFILE   a profile saved by `xcrun notarytool store-credentials`
# or all three of
#   HOLDENMERE_NOTARY_APPLE_ID, HOLDENMERE_NOTARY_TEAM_ID,
#   HOLDENMERE_NOTARY_PASSWORD (an app-specific password)
# the app and then the disk image are notarized and their tickets stapled.
set -euo pipefail

die() { echo "package-macos: error: $*" >&2; exit 1; }
step() { echo "==> $*"; }

[ $# -le 2 ] || { echo "usage: $0 [APP] [OUTPUT]" >&2; exit 64; }
[ "$(uname -s)" = Darwin ] || die "this runs only on macOS (macdeployqt, codesign, hdiutil)"
cd "$(dirname "$0")/.."
entitlements=$PWD/packaging/macos/holdenmere.entitlements
app=${1:-build/release/Holdenmere.app}
out=${2:-build/dist}

plist_value() {  # key file: the value as text; fails when the key is missing
  plutil -extract "$1" raw -o - "$2" 2>/dev/null
}
macho_files() {  # folder: every Mach-O file in it, links not followed
  find "$1" -type f -print0 | while IFS= read -r -d '' file; do
    case "$(file -b "$file")" in Mach-O*) printf '%s\n' "$file" ;; esac
  done
}
run_paths() {  # Mach-O file: its run-path entries
  otool -l "$1" | awk '/cmd LC_RPATH/ { getline; getline; print $2 }' | sort -u
}
search_paths() {  # Mach-O file: the libraries it names and its run-path entries
  otool -L "$1" | awk '/^\t/ { print $1 }'
  run_paths "$1"
}
retry() {  # what command...: hdiutil fails now and then with "Resource busy" on CI runners
  local what=$1 attempt
  shift
  for attempt in 1 2 3 4 5; do
    "$@" && return 0
    [ "$attempt" -eq 5 ] || { echo "package-macos: $what failed (attempt $attempt of 5), trying again in 10 s" >&2; sleep 10; }
  done
  return 1
}

step "Checking $app"
[ -d "$app" ] || die "no app bundle at $app: build the holdenmere target first (docs/packaging.md)"
short=$(plist_value CFBundleShortVersionString "$app/Contents/Info.plist") ||
  die "$app/Contents/Info.plist has no CFBundleShortVersionString"
build=$(plist_value CFBundleVersion "$app/Contents/Info.plist") ||
  die "$app is an unnumbered development build (HOLDENMERE_BUILD_NUMBER=dev), which is never packaged:" \
    "configure it from a clone with its whole history, or with -DHOLDENMERE_BUILD_NUMBER=N"
[[ $build =~ ^[1-9][0-9]*$ ]] || die "the build number (CFBundleVersion) is '$build', not a positive whole number"
for module in HoldenmereDesktop.dylib HoldenmereAppOpener.dylib; do
  [ -f "$app/Contents/PlugIns/$module" ] ||
    die "$app/Contents/PlugIns/$module is missing: a release needs the desktop app (Qt 6) and the app opener"
done
echo "Holdenmere $short ($build), $(uname -m)"

identity=${HOLDENMERE_SIGN_IDENTITY:-}
notary=()
if [ -n "${HOLDENMERE_NOTARY_KEYCHAIN_PROFILE:-}" ]; then
  notary=(--keychain-profile "$HOLDENMERE_NOTARY_KEYCHAIN_PROFILE")
elif [ -n "${HOLDENMERE_NOTARY_APPLE_ID:-}${HOLDENMERE_NOTARY_TEAM_ID:-}${HOLDENMERE_NOTARY_PASSWORD:-}" ]; then
  if [ -z "${HOLDENMERE_NOTARY_APPLE_ID:-}" ] || [ -z "${HOLDENMERE_NOTARY_TEAM_ID:-}" ] ||
    [ -z "${HOLDENMERE_NOTARY_PASSWORD:-}" ]; then
    die "notarization needs all three of HOLDENMERE_NOTARY_APPLE_ID, HOLDENMERE_NOTARY_TEAM_ID and HOLDENMERE_NOTARY_PASSWORD"
  fi
  notary=(--apple-id "$HOLDENMERE_NOTARY_APPLE_ID" --team-id "$HOLDENMERE_NOTARY_TEAM_ID"
    --password "$HOLDENMERE_NOTARY_PASSWORD")
fi
[ ${#notary[@]} -eq 0 ] || [ -n "$identity" ] ||
  die "notarization needs a Developer ID signature: set HOLDENMERE_SIGN_IDENTITY too"

mkdir -p "$out"
out=$(cd "$out" && pwd -P)
bundle=$out/stage/Holdenmere.app
rm -rf "$out/stage" "$out/image"
mkdir -p "$out/stage"
ditto "$app" "$bundle" || die "could not copy $app to $bundle"

step "Deploying Qt into the bundle (macdeployqt)"
macdeployqt=${MACDEPLOYQT:-$(command -v macdeployqt || true)}
if [ -z "$macdeployqt" ] && command -v brew >/dev/null; then
  macdeployqt="$(brew --prefix qt)/bin/macdeployqt"
fi
[ -x "$macdeployqt" ] || die "macdeployqt not found: install Qt 6 (brew install qt) or set MACDEPLOYQT to its path"
# The executable links no Qt: macdeployqt must also follow the modules it
# opens from Contents/PlugIns, or it would deploy nothing.
deploy=()
for module in "$bundle"/Contents/PlugIns/*.dylib; do deploy+=("-executable=$module"); done
if ! "$macdeployqt" "$bundle" "${deploy[@]}" -verbose=1 >"$out/macdeployqt.log" 2>&1 ||
  grep -q ERROR "$out/macdeployqt.log"; then
  cat "$out/macdeployqt.log" >&2
  die "macdeployqt failed (its output is above)"
fi
[ -d "$bundle/Contents/Frameworks/QtWidgets.framework" ] ||
  die "macdeployqt put no QtWidgets.framework into Contents/Frameworks (see $out/macdeployqt.log)"
[ -n "$(find "$bundle/Contents/PlugIns/platforms" -name 'libqcocoa*.dylib' 2>/dev/null)" ] ||
  die "macdeployqt put no Cocoa platform plugin into Contents/PlugIns/platforms (see $out/macdeployqt.log)"

step "Removing run-path entries that point outside the bundle"
while IFS= read -r file; do
  while IFS= read -r rpath; do
    case "$rpath" in
      @*) ;;
      *) install_name_tool -delete_rpath "$rpath" "$file" 2>/dev/null ||
        die "could not remove the run-path entry $rpath from $file" ;;
    esac
  done < <(run_paths "$file")
done < <(macho_files "$bundle")

if [ -n "$identity" ]; then
  step "Signing with $identity, the hardened runtime and a timestamp"
  signing=(--force --sign "$identity" --options runtime --timestamp)
  [ -z "${HOLDENMERE_SIGN_KEYCHAIN:-}" ] || signing+=(--keychain "$HOLDENMERE_SIGN_KEYCHAIN")
else
  step "Signing ad hoc (no HOLDENMERE_SIGN_IDENTITY)"
  signing=(--force --sign -)
fi
sign() {  # codesign options... path
  codesign "${signing[@]}" "$@" || die "codesign failed on ${!#}"
}
# A bundle's main executable is signed with its bundle, not on its own.
is_bundle_executable() {
  local dir
  dir=$(dirname "$1")
  case "$dir" in
    */Contents/MacOS) [ "$(plist_value CFBundleExecutable "${dir%/MacOS}/Info.plist")" = "$(basename "$1")" ] ;;
    *.framework/Versions/*) [ "$(basename "${dir%/Versions/*}" .framework)" = "$(basename "$1")" ] ;;
    *) return 1 ;;
  esac
}
# Inside out, without --deep: every loose piece of code (dylibs, Qt's plugins,
# our modules, an update framework's Autoupdate) and every nested bundle
# (frameworks, XPC services, helper apps such as an update framework's
# Updater.app), the deepest first, so that each is sealed after everything
# it contains. What a nested piece was built with (Downloader.xpc's
# entitlements) is kept. The app itself comes last, with our entitlements.
while IFS= read -r item; do
  sign --preserve-metadata=entitlements "$item"
done < <(
  {
    while IFS= read -r file; do
      is_bundle_executable "$file" || printf '%s\n' "$file"
    done < <(macho_files "$bundle/Contents")
    find "$bundle/Contents" -type d \( -name '*.framework' -o -name '*.app' -o -name '*.xpc' \
      -o -name '*.appex' -o -name '*.bundle' \)
  } | awk -F/ '{ print NF "\t" $0 }' | sort -t $'\t' -k1,1nr -k2 | cut -f2-
)
sign --entitlements "$entitlements" "$bundle"
codesign --verify --strict --deep --verbose=2 "$bundle" || die "the signed bundle does not verify (above)"

notarize() {  # file to submit, file to staple
  local result status id
  result="$out/notarization-$(basename "$1").json"
  step "Notarizing $(basename "$1") (xcrun notarytool submit --wait)"
  # Its status says little: a submission that was refused also ends it.
  xcrun notarytool submit "$1" "${notary[@]}" --wait --timeout 45m --output-format json >"$result" || true
  status=$(plist_value status "$result") || { cat "$result" >&2; die "notarytool could not submit $1"; }
  if [ "$status" != Accepted ]; then
    id=$(plist_value id "$result") && xcrun notarytool log "$id" "${notary[@]}" >&2
    die "the notarization of $1 ended '$status' (the log above says why)"
  fi
  xcrun stapler staple "$2" || die "stapler could not staple the ticket to $2"
}
if [ ${#notary[@]} -gt 0 ]; then
  ditto -c -k --keepParent "$bundle" "$out/Holdenmere.zip" || die "could not zip $bundle for notarization"
  notarize "$out/Holdenmere.zip" "$bundle"
  rm -f "$out/Holdenmere.zip"
elif [ -n "$identity" ]; then
  echo "package-macos: warning: signed but not notarized (no HOLDENMERE_NOTARY_* credentials):" \
    "Gatekeeper will refuse to open it on another Mac" >&2
fi

dmg=$out/Holdenmere-$short-$build-$(uname -m).dmg
step "Making $dmg"
mkdir -p "$out/image"
ditto "$bundle" "$out/image/Holdenmere.app" || die "could not copy the bundle into the disk image folder"
ln -s /Applications "$out/image/Applications"
retry "hdiutil create" hdiutil create -volname Holdenmere -srcfolder "$out/image" -fs HFS+ -format UDZO -ov "$dmg" ||
  die "hdiutil could not make $dmg, five times"
rm -rf "$out/image"
if [ -n "$identity" ]; then
  codesign --force --sign "$identity" --timestamp ${HOLDENMERE_SIGN_KEYCHAIN:+--keychain "$HOLDENMERE_SIGN_KEYCHAIN"} "$dmg" ||
    die "codesign failed on $dmg"
  [ ${#notary[@]} -eq 0 ] || notarize "$dmg" "$dmg"
fi

step "Checking the app on the mounted disk image"
mount=$(mktemp -d "${TMPDIR:-/tmp}/holdenmere-dmg.XXXXXX")
detach() {
  retry "hdiutil detach" hdiutil detach "$mount" >/dev/null || hdiutil detach -force "$mount" >/dev/null ||
    echo "package-macos: warning: could not detach $mount" >&2
  rmdir "$mount" 2>/dev/null || true
}
retry "hdiutil attach" hdiutil attach -nobrowse -readonly -noautoopen -mountpoint "$mount" "$dmg" >/dev/null ||
  { rmdir "$mount"; die "hdiutil could not mount $dmg, five times"; }
trap detach EXIT
version=$("$mount/Holdenmere.app/Contents/MacOS/holdenmere" --version) ||
  die "Holdenmere.app/Contents/MacOS/holdenmere --version failed on the mounted image"
[ "$version" = "Holdenmere $short ($build)" ] ||
  die "holdenmere --version on the mounted image printed '$version', not 'Holdenmere $short ($build)'"
echo "$version"
homebrew=(/opt/homebrew/ /usr/local/Cellar/ /usr/local/opt/)
if command -v brew >/dev/null; then homebrew+=("$(brew --prefix)/"); fi
leaks=0
while IFS= read -r file; do
  while IFS= read -r path; do
    for prefix in "${homebrew[@]}"; do
      case "$path" in "$prefix"*) echo "  ${file#"$mount"/}: $path" >&2; leaks=1; break ;; esac
    done
  done < <(search_paths "$file")
done < <(macho_files "$mount/Holdenmere.app")
[ "$leaks" -eq 0 ] ||
  die "code on the disk image refers to the build machine's Homebrew (above): macdeployqt missed a library"
trap - EXIT
detach

echo "Made $dmg"
