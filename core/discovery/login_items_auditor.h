#pragma once

#include <map>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "core/config/holdenmere_config.h"
#include "core/config/launch_record.h"
#include "core/discovery/script_running.h"
#include "core/startup/startup_item.h"

namespace holdenmere {

// How removing a Login Item ended, in this order: it is gone; it was gone
// and has put itself back; it is still there.
enum class LoginItemRemoval { removed, reregistered, failed };

// The line shown to the user about one app's outcome.
std::string message(LoginItemRemoval outcome, std::string_view appName);

// Reads, removes and adds the user's Login Items through AppleScript sent to
// System Events, and ties each item to the app it opens. Every operation
// blocks while osascript runs. A script that fails reads as an empty list, so
// a Login Items list that cannot be read never stops anything.
class LoginItemsAuditor {
public:
    struct LoginItem {
        std::string name;                             // the path's last component without ".app"
        std::string path;                             // as System Events reports it
        std::optional<std::string> bundleIdentifier;  // from {path}/Contents/Info.plist
        bool hidden = false;

        const std::string& id() const { return path; }
        friend bool operator==(const LoginItem&, const LoginItem&) = default;
    };

    // A managed app that macOS also opens from a Login Item, before the network.
    struct Conflict {
        ManagedApp managed;
        LoginItem loginItem;

        const std::string& id() const { return managed.bundleIdentifier; }
        friend bool operator==(const Conflict&, const Conflict&) = default;
    };

    static constexpr std::string_view kListPathsScript =
        "tell application \"System Events\" to get path of every login item";
    static constexpr std::string_view kListHiddenScript =
        "tell application \"System Events\" to get hidden of every login item";

    // The runner must outlive the auditor and every copy of it.
    explicit LoginItemsAuditor(ScriptRunning& runner) : runner_(&runner) {}

    // An AppleScript string literal: backslashes doubled, then double quotes
    // escaped, then wrapped in double quotes. Nothing else is escaped.
    static std::string quoted(std::string_view value);
    static std::string removeByPathScript(std::string_view path);
    static std::string removeByNameScript(std::string_view name);
    static std::string addScript(std::string_view path, bool hidden);

    // Splits System Events' ", "-joined path list. A path may itself hold a
    // comma, so only a comma followed by spaces and a "/" starts a new path;
    // any other comma stays in the path, followed by exactly one space.
    static std::vector<std::string> splitPathList(std::string_view output);
    // Splits System Events' ", "-joined hidden flags: the parts between
    // commas, trimmed of white space; empty parts are not counted, blank ones
    // are. A flag is set only where its part reads "true".
    static std::vector<bool> splitHiddenFlags(std::string_view output);
    // The path's last component with a final ".app" removed.
    static std::string itemName(std::string_view path);

    // The Login Items in System Events' order. With `readingHidden` the
    // hidden flags are read too (one more script); they stay false when that
    // answer does not line up with the paths.
    std::vector<LoginItem> loginItems(bool readingHidden) const;
    // The same, but nothing when the list cannot be read, or when the hidden
    // flags are asked for and cannot be read or do not line up: what is not
    // known exactly is not recorded, so it is not changed either.
    std::optional<std::vector<LoginItem>> readLoginItems(bool readingHidden) const;
    // The Login Items (without their hidden flags), or why they could not
    // be read.
    struct Reading {
        std::optional<std::vector<LoginItem>> items;
        std::string failure;  // the runner's reason when there are no items
    };
    [[nodiscard]] Reading readExplaining() const;
    // The Login Items whose app has a bundle identifier, as startup items.
    std::vector<StartupItem> startupItems() const;
    // For each managed app in order, the first Login Item that opens it: by
    // bundle identifier when the item has one, otherwise by path.
    std::vector<Conflict> conflicts(const std::vector<ManagedApp>& managed) const;
    // The same against Login Items already read.
    static std::vector<Conflict> conflicts(const std::vector<ManagedApp>& managed, const std::vector<LoginItem>& items);
    // The conflicts of apps that this pass did not open itself: those with no
    // record of outcome "launched" for their bundle identifier among this
    // pass's records. An app the pass opened was not running before it, so
    // macOS did not get to open it first; every other outcome (already
    // running, missing, disabled, failed, no record) leaves the warning.
    static std::vector<Conflict> conflictsNotLaunchedThisRun(const std::vector<Conflict>& conflicts,
                                                             const std::vector<LaunchRecord>& records);

    // Deletes the item by path, then reads the list again: `failed` when the
    // path is still there, otherwise `removed` (also when the list cannot be
    // read back, since nothing shows the item).
    LoginItemRemoval remove(const LoginItem& loginItem) const;
    // The same by the item's name.
    LoginItemRemoval remove(std::string_view name) const;
    // Adds an item and reports whether its path is then in the list.
    bool add(std::string_view path, bool hidden) const;

    // Whether removed items are back: `reregistered` for a name that is in
    // the list again, `removed` for one that is not. One read for all names.
    std::map<std::string, LoginItemRemoval> recheck(const std::vector<std::string>& names) const;
    LoginItemRemoval recheck(std::string_view name) const;

private:
    // The paths, or nothing when the script failed.
    std::optional<std::vector<std::string>> paths() const;
    // Items for the paths, each tied to its app's bundle identifier.
    static std::vector<LoginItem> itemsAt(std::vector<std::string> paths);
    // The items; `strict` makes unreadable hidden flags unreadable items.
    std::optional<std::vector<LoginItem>> read(bool readingHidden, bool strict) const;

    ScriptRunning* runner_;
};

}  // namespace holdenmere
