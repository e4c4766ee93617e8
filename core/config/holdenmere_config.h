#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "core/config/gate_settings.h"
#include "core/startup/startup_source.h"
#include "core/support/date.h"

namespace holdenmere {

// One app the login pass opens once the network answers.
struct ManagedApp {
    enum class LaunchMode { noDelay, delayed };
    // The delay a user gets on first switching an app to delayed mode.
    static constexpr double kDefaultDelay = 5.0;

    std::string bundleIdentifier;
    std::string name;
    std::string path;  // absolute path of the .app bundle
    bool isEnabled = true;
    bool launchHidden = false;
    bool importedFromLoginItem = false;
    bool importedFromStartup = false;
    double delaySeconds = 0;

    LaunchMode launchMode() const { return delaySeconds > 0 ? LaunchMode::delayed : LaunchMode::noDelay; }
    // 0 with no delay; with a delay the stored one, or 5 s when none is stored.
    double delay(LaunchMode mode) const;

    friend bool operator==(const ManagedApp&, const ManagedApp&) = default;
};

// A managed app's own launchd helper, held off at login and started after the
// network ("delay") or kept switched off ("off").
struct DelayedHelper {
    enum class Mode { delay, off };

    std::string label;
    std::string plistPath;
    std::string appBundleIdentifier;
    std::string name;
    Mode mode = Mode::delay;

    friend bool operator==(const DelayedHelper&, const DelayedHelper&) = default;
};
std::string_view rawValue(DelayedHelper::Mode mode);
std::optional<DelayedHelper::Mode> delayedHelperModeFromRaw(std::string_view raw);

// An app the user asked never to be offered or started.
struct BlockedApp {
    std::string bundleIdentifier;
    std::string name;
    std::string path;

    friend bool operator==(const BlockedApp&, const BlockedApp&) = default;
};

// A Login Item that was removed; `hidden` lets give-back re-create it alike.
struct RemovedLoginItem {
    std::string path;
    bool hidden = false;

    friend bool operator==(const RemovedLoginItem&, const RemovedLoginItem&) = default;
};

// A LaunchAgent switched off in launchd on an app's behalf.
struct DisabledAgent {
    std::string label;
    std::string plistPath;
    bool inferred = false;  // attributed to the app by inference, not by association
    // launchctl disable ran but launchd's disabled list could not be read to
    // confirm it: whether Holdenmere switched it off is not known yet.
    bool unconfirmed = false;

    friend bool operator==(const DisabledAgent&, const DisabledAgent&) = default;
};

// One app whose own startup was taken over: every Login Item removed (an
// app can have several, one per copy), in the order they were removed, and
// every LaunchAgent switched off.
struct TakeoverRecord {
    std::string bundleIdentifier;
    std::string name;
    std::vector<RemovedLoginItem> loginItems;
    std::vector<DisabledAgent> agents;

    bool isEmpty() const { return loginItems.empty() && agents.empty(); }
    const RemovedLoginItem* loginItem(std::string_view path) const;
    const DisabledAgent* agent(std::string_view label) const;

    friend bool operator==(const TakeoverRecord&, const TakeoverRecord&) = default;
};

// A startup item of any source that was switched off and is held.
struct HeldStartupItem {
    StartupSource source = StartupSource::launchdJob;
    std::string handle;  // what switches the item back on in its source
    std::optional<std::string> ownerBundleIdentifier;
    std::string name;
    std::string previous;  // the item's state before it was held, as its source words it
    std::optional<std::string> plistPath;
    Date recordedAt;

    friend bool operator==(const HeldStartupItem&, const HeldStartupItem&) = default;
};

// The session-restore setting ("reopen windows when logging back in") as it
// was before it was changed. Each value is absent when the preference was not
// set at all, so that give-back can remove it again rather than guess.
struct ReopenWindowsRecord {
    std::optional<bool> logoutSavesState;      // loginwindow TALLogoutSavesState
    std::optional<bool> launchesRelaunchApps;  // loginwindow LoginwindowLaunchesRelaunchApps
    Date recordedAt;

    friend bool operator==(const ReopenWindowsRecord&, const ReopenWindowsRecord&) = default;
};

// One LaunchAgent switched off on behalf of an app at a login pass.
struct AgentTakeoverResult {
    std::string name;  // the app's
    std::string bundleIdentifier;
    std::string label;
    std::string plistPath;

    friend bool operator==(const AgentTakeoverResult&, const AgentTakeoverResult&) = default;
};

enum class StartupConsent { undecided, granted, declined };
std::string_view rawValue(StartupConsent consent);
std::optional<StartupConsent> startupConsentFromRaw(std::string_view raw);

// Everything the login pass does, and the ledger of every change made to
// macOS startup so that it can be given back.
struct HoldenmereConfig {
    // Each enabled app adds this much to the pass deadline.
    static constexpr double kRunTimeoutPerApp = 20.0;
    static constexpr double kRunTimeoutBase = 40.0;
    static constexpr double kDelayStep = 5.0;
    static constexpr double kMaxDelay = 40.0;

    GateSettings settings;
    std::vector<ManagedApp> apps;
    std::vector<DelayedHelper> delayedHelpers;
    std::vector<BlockedApp> blockedApps;
    std::vector<TakeoverRecord> takeovers;
    std::vector<std::string> keptOff;
    StartupConsent startupConsent = StartupConsent::undecided;
    std::vector<std::string> leftToMacOS;
    std::vector<std::string> restoreOptOuts;
    std::optional<ReopenWindowsRecord> reopenWindowsOriginal;
    std::vector<HeldStartupItem> heldStartup;
    // Raised by every give-back before the first item goes back. A login
    // pass carries the value it read at its start, and the startup-change
    // engine stops the pass's changes once the file holds another: what the
    // user was told was given back is never taken again by a pass that
    // decided before it.
    std::uint64_t giveBackGeneration = 0;
    // The Login Items' order as Holdenmere has seen it, by path: the items
    // listed when it last removed one, and the items it removed earlier in
    // the places they had. System Events can only add at the end, so a
    // give-back adds the items it gives back in this order.
    std::vector<std::string> loginItemsOrder;
    // Not stored: the file was written before the ledger existed (it has no
    // "takeovers" key), so changes of that version may be unrecorded. Saving
    // the configuration once ends it.
    bool predatesLedger = false;

    // The bound a watchdog puts on a whole login pass, in seconds.
    double runTimeout() const;

    // Consent as a file without "startupConsent" implies: a config that already
    // manages, took over or blocked something was set up before consent existed.
    StartupConsent derivedConsent() const;

    void grantStartupConsent(std::vector<std::string> leftToMacOSIdentifiers);
    void declineStartupConsent();
    void keepOff(const std::vector<std::string>& identifiers);
    // Holds an item. An item already held (same source and handle) keeps its
    // first record, which knows the state before anything was switched off.
    void hold(const HeldStartupItem& item);
    // Records a switched-off agent under the take-over record of the app,
    // creating that record when needed; an agent of the same label is replaced.
    void recordAgent(std::string_view bundleIdentifier, std::string_view name, std::string_view label,
                     std::string_view plistPath, bool inferred);
    // recordAgent for an agent switched off by association (not inferred).
    void record(const AgentTakeoverResult& result);
    // Records a removed Login Item under the take-over record of the app,
    // creating that record when needed. A Login Item already recorded (same
    // path) keeps its first record, which knows how the user had it.
    void recordLoginItem(std::string_view bundleIdentifier, std::string_view name, const RemovedLoginItem& loginItem);
    // Merges the Login Items as listed now into loginItemsOrder: a path seen
    // before keeps its place, a new one goes at the end (where macOS adds
    // it), and a path neither listed nor recorded is dropped.
    void noteLoginItemsOrder(const std::vector<std::string>& listedPaths);
    // A removed Login Item's place in loginItemsOrder; one never seen comes
    // after every one that was.
    std::size_t loginItemRank(std::string_view path) const;
    // Drops a Login Item or an agent from an app's take-over record, and the
    // record once it holds nothing.
    void forgetLoginItem(std::string_view bundleIdentifier, std::string_view path);
    void forgetAgent(std::string_view bundleIdentifier, std::string_view label);
    // Drops a held item (same source and handle).
    void release(const HeldStartupItem& item);
    // Brings another configuration's ledger into this one: its take-over
    // records (per bundle identifier; Login Items are added by path,
    // agents are added by label, and an inferred agent gives way to one known
    // by association) and its held startup items (as hold does). Nothing
    // else of `from` is read.
    void mergeLedger(const HoldenmereConfig& from);
    // Adds a managed app unless one with its bundle identifier is already
    // managed; whether it was added.
    bool manage(const ManagedApp& app);
    // The take-over record of an app, or null.
    const TakeoverRecord* takeover(std::string_view bundleIdentifier) const;
    TakeoverRecord* takeover(std::string_view bundleIdentifier);

    friend bool operator==(const HoldenmereConfig&, const HoldenmereConfig&) = default;
};

}  // namespace holdenmere
