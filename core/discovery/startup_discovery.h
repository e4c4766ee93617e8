#pragma once

#include <filesystem>
#include <functional>
#include <optional>
#include <set>
#include <string>
#include <string_view>
#include <vector>

#include "core/config/holdenmere_config.h"
#include "core/startup/startup_item.h"
#include "core/support/plist.h"

namespace holdenmere {

// Stateless rules that tie launchd jobs and program paths to the apps that
// contain them, decide whether a job can be taken over, and merge what the
// scanners found. Nothing here keeps state; the file system is only read.
struct StartupDiscovery {
    // The desktop app itself: never offered as a startup item.
    static constexpr std::string_view ownBundleIdentifier = "com.tavik.holdenmere";
    // Holdenmere's own launchd jobs: scanners skip them.
    static inline const std::set<std::string, std::less<>> ownLaunchdLabels{
        "com.tavik.holdenmere.agent", "com.tavik.holdenmere.axsampler"};

    // The shallowest ".app" bundle on an absolute path, the path itself
    // included and the root not: "/Applications/Foo.app/Contents/Library/
    // LoginItems/Bar.app/Contents/MacOS/Bar" gives "/Applications/Foo.app".
    // A relative path names no particular bundle and gives nothing.
    static std::optional<std::string> outermostAppPath(std::string_view path);
    // CFBundleExecutable of the app's Info.plist (XML or binary); nothing on
    // any read or parse failure, or when the value is not a string.
    static std::optional<std::string> executableName(const std::filesystem::path& appPath);
    // CFBundleIdentifier of the app's Info.plist; nothing when unreadable,
    // missing, empty or not a string.
    static std::optional<std::string> bundleIdentifier(const std::filesystem::path& appPath);

    // The path with "." and ".." components, duplicate and trailing slashes
    // removed; the file system is not consulted.
    static std::string standardizedPath(std::string_view path);
    // A helper's name: the innermost ".app" component of its program that is
    // not the outer app itself ("Foo.app"), less its extension; else the
    // executable's name.
    static std::string helperName(std::string_view program, std::string_view outerAppFileName);

    // A value that switches a launchd key on: a non-empty dictionary, array or
    // string, or true. Numbers, dates, data, false, empty values and a missing
    // key (nullptr) do not count.
    static bool countsAsSet(const plist::Value* value);

    // How often launchd runs a job that is not a login job: "hourly",
    // "daily", "every-{m}-minute" for StartInterval, "scheduled" for
    // StartCalendarInterval; nothing for any other job.
    static std::optional<std::string> cadence(const plist::Value& plist);

    // Why only launchd can start the job (it provides a service, or waits for
    // an event); nothing for an ordinary job.
    static std::optional<std::string> launchdOnlyReason(const plist::Value& plist);
    // The same for a plist file; a file that cannot be read, parsed, or is no
    // dictionary gives the "cannot tell what it runs" reason.
    static std::optional<std::string> launchdOnlyReason(const std::filesystem::path& plistPath);

    // The program is the main executable of its outermost app (and the job,
    // when given, is not one that only launchd can start).
    static bool launchesOwnApp(std::optional<std::string_view> programPath,
                               const plist::Value* launchdJob = nullptr);
    // Nothing when the program is in no app bundle; false when it is the
    // app's main executable or the executable cannot be told; true for any
    // other binary inside the app.
    static std::optional<bool> isHelperBinary(std::string_view programPath);
    // The question the safety rules ask: false when the program is in no app
    // bundle or is the app's main executable, true for any other binary
    // inside the app, and nothing when the app's executable cannot be read,
    // so that it cannot be told.
    static std::optional<bool> helperInsideApp(std::string_view programPath);

    // Why the job cannot be taken over, as shown to the user; nothing when it
    // can be.
    static std::optional<std::string> ineligibleReason(std::optional<std::string_view> program,
                                                       std::optional<std::string_view> cadence,
                                                       std::optional<std::string_view> launchdOnly);

    // The items Holdenmere could still take over, in input order: only those
    // with a path, not Holdenmere itself, not a managed app, and only the
    // first item of each bundle identifier.
    static std::vector<StartupItem> unmanaged(const std::vector<StartupItem>& items,
                                              const std::vector<ManagedApp>& managed);
    // The file-backed items (Login Items, then LaunchAgents) with the
    // background items appended; nothing is appended when the background
    // scan has no result.
    static std::vector<StartupItem> merged(std::vector<StartupItem> fileBacked,
                                           const std::optional<std::vector<StartupItem>>& background);
};

}  // namespace holdenmere
