#pragma once

#include <filesystem>
#include <map>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "core/config/holdenmere_config.h"
#include "core/startup/startup_item.h"
#include "core/launchd/launchctl_running.h"
#include "core/support/plist.h"

namespace holdenmere {

struct BrackenspurLabels;

// A LaunchAgent that runs a helper binary inside an app bundle (not the app's
// main executable) and that launchd would run by itself: at login, kept
// alive, on a schedule, or on demand. These are the jobs a user can hold off
// until the network answers.
struct HelperAgent {
    std::string label;
    std::string plistPath;
    std::string program;
    std::string appBundleIdentifier;
    std::string appName;  // the app's file name without ".app"
    bool isDisabled = false;

    friend bool operator==(const HelperAgent&, const HelperAgent&) = default;
};

// Reads the LaunchAgent property lists of the user and of the machine and
// tells which agents start an app at login (and could be taken over), which
// start something that must be left alone, and which start a managed app
// behind Holdenmere's back. Nothing is cached: every call reads the folders
// again, and asks launchd for its disabled list at most once. Whether an
// agent is switched off is read from that list only: when it cannot be read,
// no agent's state is known, and the answers say so.
class LaunchAgentScanner {
public:
    static constexpr std::string_view kDisabledListUnreadable = "launchd's disabled list could not be read";

    // One parsed agent plist.
    struct Agent {
        std::string label;  // "Label", or the file name without its extension
        std::string program;
        std::string plistPath;
        std::optional<std::string> cadence;
        std::optional<std::string> launchdOnly;
        bool startsAtLogin = false;
        bool keepsAliveConditionally = false;
        // "Disabled" is true: launchd runs it only where its disabled list
        // marks the label enabled.
        bool disabledInPlist = false;
        // "LimitLoadToSessionType" leaves out "Aqua": never loaded in the
        // user's session (a login-window or background-session job).
        bool otherSessionsOnly = false;

        friend bool operator==(const Agent&, const Agent&) = default;
    };

    // A managed app that a LaunchAgent also starts at login.
    struct AgentConflict {
        ManagedApp managed;
        std::string agentLabel;
        std::string plistPath;

        friend bool operator==(const AgentConflict&, const AgentConflict&) = default;
    };

    // The login agents that open an app's own executable, by their state in
    // launchd's disabled list.
    struct StartupItemListing {
        std::vector<StartupItem> items;  // switched on
        // Agents whose state could not be read (launchd's disabled list could
        // not be read): switched on or off, nobody can tell.
        std::vector<StartupItem> stateUnknown;
        // What the listing could not read: kDisabledListUnreadable, folders
        // that could not be listed, plists that could not be read.
        std::vector<std::string> incomplete;

        // Every agent's state was read.
        bool stateKnown() const { return stateUnknown.empty(); }
        friend bool operator==(const StartupItemListing&, const StartupItemListing&) = default;
    };

    struct JobSafety;
    struct OtherJobs;

    // ~/Library/LaunchAgents, then /Library/LaunchAgents.
    static std::vector<std::filesystem::path> defaultDirectories();

    explicit LaunchAgentScanner(LaunchdReading& launchctl,
                                std::vector<std::filesystem::path> directories = defaultDirectories());

    std::vector<std::filesystem::path> directories;  // searched in order
    LaunchdReading& launchctl;

    // Interprets one plist: nothing when it is no dictionary or names no
    // program. Reads no files.
    static std::optional<Agent> agentFrom(const plist::Value& plist, const std::filesystem::path& plistPath);

    // The agents of every directory, in order, each directory's plists sorted
    // by path. Folders that cannot be listed and files that cannot be read
    // are named in `incomplete` and passed over.
    // `unreadableFiles`, when given, receives the plists that could not be read.
    std::vector<Agent> readTopLevelAgents(std::vector<std::string>& incomplete,
                                          std::vector<std::filesystem::path>* unreadableFiles = nullptr) const;
    std::vector<Agent> allAgents() const;
    // Whether launchd loads the agent in the user's session at all, given
    // its enabled/disabled marks (absent: unreadable, so a plist-disabled
    // agent is not known to run).
    static bool runsInSession(const Agent& agent, const std::optional<std::map<std::string, bool>>& marks);
    // Agents launchd runs at login that are neither scheduled nor launchd-only.
    std::vector<Agent> loginStartingAgents() const;
    // The same, naming what could not be read in `incomplete`.
    std::vector<Agent> loginStartingAgents(std::vector<std::string>& incomplete) const;

    // Login agents that open an app's own executable and are switched on,
    // and those whose state could not be read.
    StartupItemListing startupItems() const;
    // The same agents where launchd's disabled list has them switched off;
    // none when the list could not be read.
    std::vector<StartupItem> disabledEligibleAgents() const;
    // Agents of apps that cannot be taken over, with the reason; the switched
    // on ones (`whereDisabled` false) or the switched off ones. An agent whose
    // state cannot be read is shown with the switched on ones, since it may
    // run, and is never among the switched off ones.
    std::vector<IneligibleStartupItem> ineligibleItems() const { return ineligible(false); }
    std::vector<IneligibleStartupItem> ineligible(bool whereDisabled) const;
    // For each managed app in turn, the startup items that open it: the
    // switched on ones and those whose state could not be read (any change
    // to those is refused where it is made).
    std::vector<AgentConflict> conflicts(const std::vector<ManagedApp>& managed) const;
    // The same from LaunchAgent items already read, in the managed apps' order.
    static std::vector<AgentConflict> conflicts(const std::vector<ManagedApp>& managed,
                                                const std::vector<StartupItem>& agentItems);
    // Agents of app helpers, the first of each label; `isDisabled` is false
    // when launchd's disabled list could not be read.
    std::vector<HelperAgent> helpers() const;

    // The other launchd jobs of the inventory (other_jobs.h).
    OtherJobs otherJobs(const JobSafety& safety, const BrackenspurLabels& brackenspur,
                        const std::vector<std::string>& serviceManagementLabels) const;
};

}  // namespace holdenmere
