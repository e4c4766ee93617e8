#include "core/gate/cli_mode.h"

#include <algorithm>
#include <array>

#include "core/support/bundle.h"

namespace holdenmere {

const std::string_view CLIMode::usageText =
    "Holdenmere \u2014 launches login apps only after the network is reachable.\n"
    "\n"
    "  Holdenmere            open the app\n"
    "  Holdenmere --gate     run one headless login pass (what the LaunchAgent runs)\n"
    "  Holdenmere --audit    list macOS Login Items, any overlap with Holdenmere,\n"
    "                        and apps macOS started before the gate at the last login\n"
    "  Holdenmere --restore-startup\n"
    "                        give back everything Holdenmere switched off or took\n"
    "                        over (Login Items, LaunchAgents, background items,\n"
    "                        Finder extensions, quit-after-login choices, the\n"
    "                        reopen-windows setting), listing each by source,\n"
    "                        then turn Holdenmere's login agent off (run before\n"
    "                        deleting). Anything that was already off when\n"
    "                        Holdenmere found it stays off.\n"
    "  Holdenmere --restore-startup --dry-run\n"
    "                        print what that would restore; change nothing\n"
    "  Holdenmere --repair-helpers\n"
    "                        switch back on helpers of your apps that an earlier\n"
    "                        Holdenmere left switched off (and cannot start itself)\n"
    "  Holdenmere --repair-helpers --dry-run\n"
    "                        list them; change nothing\n"
    "  Holdenmere --version  print the version and exit\n"
    "  Holdenmere --help     show this message\n"
    "\n"
    "Diagnosing? A manual --gate run records to your real history, which then\n"
    "shows logins that never happened. Send it somewhere disposable instead:\n"
    "\n"
    "  HOLDENMERE_HISTORY_PATH=/tmp/probe.json Holdenmere --gate";

namespace {

// What the system and the frameworks pass to a launched application.
constexpr std::array<std::string_view, 4> kSystemPrefixes = {"-NS", "-Apple", "-psn_", "-com.apple"};

}  // namespace

CLIMode CLIMode::from(const std::vector<std::string>& arguments) {
    auto has = [&](std::string_view option) {
        return std::find(arguments.begin(), arguments.end(), option) != arguments.end();
    };
    if (has("--restore-startup")) return restoreStartup(has("--dry-run"));
    if (has("--repair-helpers")) return repairHelpers(has("--dry-run"));
    if (has("--gate")) return gate();
    if (has("--audit")) return audit();
    if (has("--help") || has("-h")) return help();
    if (has("--version") || has("-v")) return version();
    for (std::size_t index = 1; index < arguments.size(); ++index) {
        std::string_view argument = arguments[index];
        if (!argument.starts_with('-')) continue;
        bool fromSystem = std::any_of(kSystemPrefixes.begin(), kSystemPrefixes.end(),
                                      [&](std::string_view prefix) { return argument.starts_with(prefix); });
        if (!fromSystem) return unknown(std::string(argument));
    }
    return app();
}

bool CLIMode::asksForDeemsterUI(const std::vector<std::string>& arguments) {
    return arguments.size() >= 2 && arguments[1] == kDeemsterUIOption;
}

std::string CLIMode::versionText(const std::optional<plist::Value>& infoDictionary) {
    std::optional<std::string> shortVersion;
    std::optional<std::string> build;
    if (infoDictionary) {
        shortVersion = infoDictionary->stringAt("CFBundleShortVersionString");
        build = infoDictionary->stringAt("CFBundleVersion");
    }
    if (!shortVersion) return "Holdenmere dev (unpackaged build)";
    if (build && *build != *shortVersion) return "Holdenmere " + *shortVersion + " (" + *build + ")";
    return "Holdenmere " + *shortVersion;
}

std::string CLIMode::versionText() {
    auto bundle = Bundle::main();
    return versionText(bundle ? bundle->infoDictionary() : std::nullopt);
}

}  // namespace holdenmere
