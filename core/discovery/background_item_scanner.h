#pragma once

#include <chrono>
#include <optional>
#include <string>
#include <string_view>
#include <variant>
#include <vector>

#include "core/config/holdenmere_config.h"
#include "core/discovery/background_item_records.h"
#include "core/discovery/tool_running.h"
#include "core/startup/startup_item.h"
#include "core/support/result.h"

namespace holdenmere {

// Tells, of the current user's enabled background items, which start an app
// at login (and could be taken over), which start something that must be
// left alone (with the reason), and how a managed app's item is switched
// off: through launchd when a LaunchAgent is behind it, otherwise only in
// System Settings. Holdenmere's own items are never reported. An enabled
// "app" record is the app's own registration to open at login (what System
// Settings lists under Open at Login); its disposition is its own, whatever
// its agents' say, and only System Settings switches it off.
class BackgroundItemScanner {
public:
    static constexpr std::string_view kLoginItemsSettingsURL =
        "x-apple.systempreferences:com.apple.LoginItems-Settings.extension";
    static constexpr std::string_view kSystemWideReason =
        "can't take over: a system-wide job (LaunchDaemons); Holdenmere only switches your own login items";

    // How macOS can be stopped from starting an item.
    struct LaunchAgent {  // switch its LaunchAgent off through launchd
        std::string label;
        std::string plistPath;
        friend bool operator==(const LaunchAgent&, const LaunchAgent&) = default;
    };
    struct OpenLoginItemsSettings {  // only System Settings can switch it off
        friend bool operator==(const OpenLoginItemsSettings&, const OpenLoginItemsSettings&) = default;
    };
    using Remedy = std::variant<LaunchAgent, OpenLoginItemsSettings>;

    // An item that opens an app's own executable.
    struct Item {
        StartupItem item;  // source: backgroundItem(identifier)
        Remedy remedy;
        // An "app" record: the app opens itself at login.
        bool appRecord = false;
        friend bool operator==(const Item&, const Item&) = default;
    };
    // A managed app that a background item also starts at login.
    struct Conflict {
        ManagedApp managed;
        std::string identifier;  // the background item's
        std::string name;
        Remedy remedy;
        friend bool operator==(const Conflict&, const Conflict&) = default;
    };
    struct Result {
        // Login items and agents in the tool's order, then the apps' own
        // registrations, so that in a merge an app's agent comes first.
        std::vector<Item> items;
        std::vector<IneligibleStartupItem> ineligible;

        std::vector<StartupItem> startupItems() const;
        friend bool operator==(const Result&, const Result&) = default;
    };
    // A scan: a result, or why there is none ("incomplete").
    struct Scan {
        std::optional<Result> result;
        std::string incomplete;
    };

    // "sfltool dumpbtm" prints the record. On a Mac the tool asks for an
    // administrator's authorization first; a request nobody answers is a
    // hang like any other, ended by the time limit.
    static constexpr const char* kSfltool = "/usr/bin/sfltool";
    static constexpr std::chrono::milliseconds kTimeLimit{60'000};
    static std::vector<std::string> dumpArguments() { return {"dumpbtm"}; }

    // `uid` is the user whose section counts: this process's by default.
    explicit BackgroundItemScanner(ToolRunning& tools, std::string uid = currentUid());

    // The record as sfltool printed it, or the failure that says why not
    // (the tool could not start, failed or did not finish in time).
    static holdenmere::Result<std::string> dump(ToolRunning& tools);

    // Runs the tool once. Output that is not the tool's, or that holds no
    // section of this user, is incomplete, never "nothing there".
    Scan scan() const;

    // The records of `uid` (and those printed outside any section), read
    // against the app bundles on disk.
    static Result interpret(const BackgroundItemDump& dump, std::string_view uid);
    // For each managed app in order, the items that open it.
    static std::vector<Conflict> conflicts(const Result& result, const std::vector<ManagedApp>& managed);
    static std::string currentUid();

private:
    ToolRunning& tools_;
    std::string uid_;
};

}  // namespace holdenmere
