#pragma once

#include <chrono>
#include <functional>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "core/discovery/startup_entry.h"
#include "core/discovery/tool_running.h"

namespace holdenmere {

// One app extension as pluginkit lists it. The user's election is the
// marker before it: "+" chosen on, "-" chosen off (ignored), none when the
// user never chose (the extension runs).
struct AppExtension {
    enum class Election { none, use, ignore };

    std::string identifier;
    std::string version;
    Election election = Election::none;
    std::optional<std::string> path;            // the .appex bundle
    std::optional<std::string> parentBundle;    // the app that carries it
    std::optional<std::string> extensionPoint;  // "SDK", e.g. com.apple.FinderSync
    std::optional<std::string> displayName;

    bool isOff() const { return election == Election::ignore; }
    // Part of macOS: an Apple identifier or a bundle under /System.
    bool isApple() const;
    friend bool operator==(const AppExtension&, const AppExtension&) = default;
};

// The app-extension source of the startup inventory: Finder Sync and the
// other extensions that pluginkit registers, and the user's election of each.
struct AppExtensionScanner {
    static constexpr const char* kPluginkit = "/usr/bin/pluginkit";
    static constexpr std::chrono::milliseconds kTimeLimit{10'000};

    using TierOf = std::function<SafetyTier(const AppExtension&)>;

    // "pluginkit -mAD -vvv": every registered version, each a block of
    // "Key = value" lines that names its extension point and parent app.
    static std::vector<std::string> listArguments() { return {"-mAD", "-vvv"}; }
    // "pluginkit -e use|ignore -i {identifier}".
    static std::vector<std::string> electionArguments(const std::string& identifier, bool use);

    // Reads the one-line form of "pluginkit -mAv" ("{marker}    {id}({version})"
    // then tab-separated UUID, timestamp, path) and the block form of "-vvv"
    // (the same first line, then tab-indented "Key = value" lines). Nothing
    // when a line is in neither form.
    static std::optional<std::vector<AppExtension>> parse(std::string_view output);

    // The extension of this identifier as listed (the first of its versions).
    static const AppExtension* find(const std::vector<AppExtension>& extensions, std::string_view identifier);

    // Lists the extensions afresh; nothing with `failure` set when pluginkit
    // fails, hangs or prints what this reader does not recognise.
    static std::optional<std::vector<AppExtension>> list(ToolRunning& tools, std::string& failure);

    // The inventory's rows: one per identifier that is not macOS's own, in
    // pluginkit's order. Unreadable when pluginkit cannot be read or lists
    // nothing at all (a working Mac always lists macOS's own).
    static StartupSourceScan scan(ToolRunning& tools, const TierOf& tierOf);
    static StartupEntry entry(const AppExtension& extension, const TierOf& tierOf);
};

}  // namespace holdenmere
