# The Homebrew cask of Holdenmere, kept here and copied into a tap
# (docs/packaging.md). Each release writes `version` ("{short version},{build
# number}", as CFBundleShortVersionString and CFBundleVersion) and the
# SHA-256 of both disk images made by scripts/package-macos.sh.
#
# RELEASE HOST PLACEHOLDER: where releases and the update feed are published
# is not decided yet. "releases.holdenmere.invalid" (a name that never
# resolves) stands for it in `url`, `livecheck` and `homepage`: replace all
# three when it is.
cask "holdenmere" do
  arch arm: "arm64", intel: "x86_64"

  version "0.1.0,1"
  sha256 arm:   "0000000000000000000000000000000000000000000000000000000000000000",
         intel: "0000000000000000000000000000000000000000000000000000000000000000"

  url "https://releases.holdenmere.invalid/Holdenmere-#{version.csv.first}-#{version.csv.second}-#{arch}.dmg"
  name "Holdenmere"
  desc "Opens login apps only once the network really answers"
  homepage "https://releases.holdenmere.invalid/"

  # The app's own update feed (an appcast); its items carry the same
  # "{short version},{build number}" pair as `version`.
  livecheck do
    url "https://releases.holdenmere.invalid/appcast.xml"
    strategy :sparkle
  end

  # The app updates itself from that feed.
  auto_updates true
  # LSMinimumSystemVersion in app/Info.plist.in.
  depends_on macos: ">= :ventura"

  app "Holdenmere.app"
  # The command line (`holdenmere --restore-startup`, `--audit`, ...) on the
  # PATH: the executable finds its bundle through the link.
  binary "#{appdir}/Holdenmere.app/Contents/MacOS/holdenmere"

  # Removing the app must never leave the user's Login Items or LaunchAgents
  # switched off: the first thing uninstalling does (early_script runs before
  # every other directive) is give everything back, while the executable is
  # still there. It does not have to succeed: whatever it could not give back
  # it lists and keeps in its ledger (config.json, which only `zap` removes,
  # into the Trash), so that it can be given back later; and a failure here
  # (another Holdenmere holding the startup lock, an unreadable
  # configuration) must not make the cask impossible to uninstall.
  # Homebrew also runs this when `brew upgrade` or `brew reinstall` replaces
  # the app: afterwards Holdenmere neither runs at login nor takes startup
  # over until that is turned on again in the desktop app.
  uninstall early_script: {
              executable:   "#{appdir}/Holdenmere.app/Contents/MacOS/holdenmere",
              args:         ["--restore-startup"],
              must_succeed: false,
            },
            launchctl:    "com.tavik.holdenmere.agent",
            quit:         "com.tavik.holdenmere"

  zap trash: [
    # config.json (with the ledger), history.json, the startup lock and the
    # last background-items scan.
    "~/Library/Application Support/Holdenmere",
    "~/Library/Caches/com.tavik.holdenmere",
    "~/Library/LaunchAgents/com.tavik.holdenmere.agent.plist",
    "~/Library/Logs/Holdenmere.log",
    "~/Library/Preferences/com.tavik.holdenmere.plist",
    "~/Library/Saved Application State/com.tavik.holdenmere.savedState",
  ]
end
