#include "core/discovery/launch_agent_scanner.h"

#include <algorithm>
#include <exception>
#include <map>
#include <set>
#include <system_error>
#include <utility>

#include "core/discovery/startup_discovery.h"
#include "core/support/environment.h"

namespace holdenmere {
namespace {

std::string unreadable(const std::filesystem::path& file) {
    return file.string() + " could not be read as a property list";
}

// "Foo" for "/Applications/Foo.app".
std::string appName(const std::string& appPath) {
    return std::filesystem::path(appPath).stem().string();
}

// launchd's disabled state for one scan: the whole list, asked once, on the
// first question. When it cannot be read no label's state is known; asking
// label by label would read the same failed output, and its "no" would mean
// "could not tell".
class DisabledState {
public:
    explicit DisabledState(LaunchdReading& launchctl) : launchctl_(launchctl) {}

    // Nothing when launchd's disabled list could not be read.
    std::optional<bool> isDisabled(const std::string& label) {
        if (!asked_) {
            labels_ = launchctl_.disabledLabels();
            asked_ = true;
        }
        if (!labels_) return std::nullopt;
        return labels_->count(label) != 0;
    }

private:
    LaunchdReading& launchctl_;
    bool asked_ = false;
    std::optional<std::set<std::string>> labels_;
};

// launchd's marks for one scan, asked once and only when an agent's plist
// says "Disabled": every other agent runs in the session or not by its plist.
class SessionState {
public:
    explicit SessionState(LaunchdReading& launchctl) : launchctl_(launchctl) {}

    bool runsInSession(const LaunchAgentScanner::Agent& agent) {
        if (agent.disabledInPlist && !agent.otherSessionsOnly && !asked_) {
            marks_ = launchctl_.disabledMarks();
            asked_ = true;
        }
        return LaunchAgentScanner::runsInSession(agent, marks_);
    }

private:
    LaunchdReading& launchctl_;
    bool asked_ = false;
    std::optional<std::map<std::string, bool>> marks_;
};

// "LimitLoadToSessionType" as a string or a list of strings; launchd loads
// an agent without it in the user's ("Aqua") session.
bool limitedToOtherSessions(const plist::Value& plist) {
    const plist::Value* limit = plist.find("LimitLoadToSessionType");
    if (limit == nullptr) return false;
    if (const std::string* type = limit->string()) return *type != "Aqua";
    if (const plist::Array* types = limit->array()) {
        return std::none_of(types->begin(), types->end(),
                            [](const plist::Value& type) { return type.string() != nullptr && *type.string() == "Aqua"; });
    }
    return false;
}

bool isOwnLabel(const std::string& label) {
    return StartupDiscovery::ownLaunchdLabels.count(label) != 0;
}

// The startup item an agent stands for when it opens its app's own
// executable; nothing for anything else.
std::optional<StartupItem> itemOpeningApp(const LaunchAgentScanner::Agent& agent) {
    if (isOwnLabel(agent.label) || !agent.program.starts_with('/')) return std::nullopt;
    if (!StartupDiscovery::launchesOwnApp(agent.program)) return std::nullopt;
    auto app = StartupDiscovery::outermostAppPath(agent.program);
    if (!app) return std::nullopt;
    auto identifier = StartupDiscovery::bundleIdentifier(*app);
    if (!identifier) return std::nullopt;
    return StartupItem{*identifier, appName(*app), *app, StartupItem::LaunchAgent{agent.label, agent.plistPath}};
}

// The eligible login agents by their state in launchd's disabled list.
struct EligibleItems {
    std::vector<StartupItem> on;
    std::vector<StartupItem> off;
    std::vector<StartupItem> unknown;
};

EligibleItems eligibleItems(const std::vector<LaunchAgentScanner::Agent>& agents, LaunchdReading& launchctl) {
    DisabledState state(launchctl);
    EligibleItems items;
    for (const auto& agent : agents) {
        auto item = itemOpeningApp(agent);
        if (!item) continue;
        // The disabled state is asked last, so that launchd is only asked
        // when an agent could be taken over.
        const auto disabled = state.isDisabled(agent.label);
        auto& into = !disabled ? items.unknown : *disabled ? items.off : items.on;
        into.push_back(std::move(*item));
    }
    return items;
}

// The program "Program" names, else the first of "ProgramArguments" when
// that is a non-empty list of strings.
std::optional<std::string> programOf(const plist::Value& plist) {
    if (auto program = plist.stringAt("Program")) return program;
    const plist::Value* arguments = plist.find("ProgramArguments");
    if (arguments == nullptr || arguments->array() == nullptr || arguments->array()->empty()) return std::nullopt;
    for (const auto& argument : *arguments->array()) {
        if (argument.string() == nullptr) return std::nullopt;
    }
    return *arguments->array()->front().string();
}

}  // namespace

std::vector<std::filesystem::path> LaunchAgentScanner::defaultDirectories() {
    return {homeDirectory() / "Library" / "LaunchAgents", "/Library/LaunchAgents"};
}

LaunchAgentScanner::LaunchAgentScanner(LaunchdReading& launchctlRunning,
                                       std::vector<std::filesystem::path> searchedDirectories)
    : directories(std::move(searchedDirectories)), launchctl(launchctlRunning) {}

std::optional<LaunchAgentScanner::Agent> LaunchAgentScanner::agentFrom(const plist::Value& plist,
                                                                      const std::filesystem::path& plistPath) {
    if (plist.dictionary() == nullptr) return std::nullopt;
    auto program = programOf(plist);
    if (!program || program->empty()) return std::nullopt;

    Agent agent;
    agent.label = plist.stringAt("Label").value_or(plistPath.stem().string());
    agent.program = std::move(*program);
    agent.plistPath = plistPath.string();
    agent.cadence = StartupDiscovery::cadence(plist);
    agent.launchdOnly = StartupDiscovery::launchdOnlyReason(plist);
    const plist::Value* keepAlive = plist.find("KeepAlive");
    const plist::Value* runAtLoad = plist.find("RunAtLoad");
    if (runAtLoad != nullptr && runAtLoad->boolean() == true) {
        agent.startsAtLogin = true;
    } else if (keepAlive != nullptr) {
        agent.startsAtLogin = keepAlive->boolean().value_or(false);
    }
    agent.keepsAliveConditionally =
        keepAlive != nullptr && keepAlive->dictionary() != nullptr && !keepAlive->dictionary()->empty();
    const plist::Value* disabled = plist.find("Disabled");
    agent.disabledInPlist = disabled != nullptr && disabled->boolean() == true;
    agent.otherSessionsOnly = limitedToOtherSessions(plist);
    return agent;
}

std::vector<LaunchAgentScanner::Agent> LaunchAgentScanner::readTopLevelAgents(
    std::vector<std::string>& incomplete, std::vector<std::filesystem::path>* unreadableFiles) const {
    namespace fs = std::filesystem;
    std::vector<Agent> agents;
    for (const auto& directory : directories) {
        std::error_code error;
        if (fs::status(directory, error).type() == fs::file_type::not_found) continue;

        std::vector<fs::path> files;
        fs::directory_iterator entry(directory, error);
        for (fs::directory_iterator end; !error && entry != end; entry.increment(error)) {
            if (entry->path().extension() == ".plist") files.push_back(entry->path());
        }
        if (error) {
            // What was listed before the failure is still read.
            incomplete.push_back(directory.string() + " could not be listed: " + error.message());
        }
        std::sort(files.begin(), files.end());

        for (const auto& file : files) {
            // Symbolic links are followed: a link to a readable plist is that
            // plist, a dangling one cannot be read. Folders are passed over;
            // anything else that is not a regular plist of sensible size (a
            // pipe, an enormous file) is refused by the reader as unreadable.
            if (fs::status(file, error).type() == fs::file_type::directory) continue;
            const auto job = plist::tryReadFile(file);
            if (!job) {
                incomplete.push_back(unreadable(file));
                if (unreadableFiles != nullptr) unreadableFiles->push_back(file);
            } else if (auto agent = agentFrom(*job, file)) {
                agents.push_back(std::move(*agent));
            }
        }
    }
    return agents;
}

std::vector<LaunchAgentScanner::Agent> LaunchAgentScanner::allAgents() const {
    std::vector<std::string> ignored;
    return readTopLevelAgents(ignored);
}

bool LaunchAgentScanner::runsInSession(const Agent& agent, const std::optional<std::map<std::string, bool>>& marks) {
    if (agent.otherSessionsOnly) return false;
    if (!agent.disabledInPlist) return true;
    if (!marks) return false;
    auto mark = marks->find(agent.label);
    return mark != marks->end() && !mark->second;
}

std::vector<LaunchAgentScanner::Agent> LaunchAgentScanner::loginStartingAgents() const {
    std::vector<std::string> ignored;
    return loginStartingAgents(ignored);
}

std::vector<LaunchAgentScanner::Agent> LaunchAgentScanner::loginStartingAgents(
    std::vector<std::string>& incomplete) const {
    std::vector<Agent> agents = readTopLevelAgents(incomplete);
    std::erase_if(agents, [](const Agent& agent) { return !agent.startsAtLogin || agent.cadence || agent.launchdOnly; });
    SessionState session(launchctl);
    std::erase_if(agents, [&](const Agent& agent) { return !session.runsInSession(agent); });
    return agents;
}

LaunchAgentScanner::StartupItemListing LaunchAgentScanner::startupItems() const {
    StartupItemListing listing;
    auto items = eligibleItems(loginStartingAgents(listing.incomplete), launchctl);
    listing.items = std::move(items.on);
    listing.stateUnknown = std::move(items.unknown);
    if (!listing.stateKnown()) listing.incomplete.emplace(listing.incomplete.begin(), kDisabledListUnreadable);
    return listing;
}

std::vector<StartupItem> LaunchAgentScanner::disabledEligibleAgents() const {
    return eligibleItems(loginStartingAgents(), launchctl).off;
}

std::vector<IneligibleStartupItem> LaunchAgentScanner::ineligible(bool whereDisabled) const {
    DisabledState state(launchctl);
    SessionState session(launchctl);
    std::set<std::string> labels;
    std::vector<IneligibleStartupItem> items;
    for (const auto& agent : allAgents()) {
        if (isOwnLabel(agent.label)) continue;
        // What launchd never starts in this session is nothing to leave alone.
        if (agent.otherSessionsOnly) continue;
        auto reason = StartupDiscovery::ineligibleReason(agent.program, agent.cadence, agent.launchdOnly);
        if (!reason) continue;
        // A relative program belongs to no app anyone could name.
        auto app = StartupDiscovery::outermostAppPath(agent.program);
        if (!app) continue;
        auto identifier = StartupDiscovery::bundleIdentifier(*app);
        if (!identifier || *identifier == StartupDiscovery::ownBundleIdentifier) continue;
        // An agent of unknown state may run: it is shown with the switched
        // on ones, never with the switched off ones.
        if (state.isDisabled(agent.label).value_or(false) != whereDisabled) continue;
        if (!whereDisabled && !agent.startsAtLogin && !agent.cadence && !agent.launchdOnly) continue;
        if (!whereDisabled && !session.runsInSession(agent)) continue;
        if (!labels.insert(agent.label).second) continue;
        items.push_back(IneligibleStartupItem{appName(*app), *identifier, agent.label, *reason});
    }
    return items;
}

std::vector<LaunchAgentScanner::AgentConflict> LaunchAgentScanner::conflicts(
    const std::vector<ManagedApp>& managed) const {
    StartupItemListing listing = startupItems();
    std::vector<StartupItem> items = std::move(listing.items);
    items.insert(items.end(), listing.stateUnknown.begin(), listing.stateUnknown.end());
    return conflicts(managed, items);
}

std::vector<LaunchAgentScanner::AgentConflict> LaunchAgentScanner::conflicts(
    const std::vector<ManagedApp>& managed, const std::vector<StartupItem>& agentItems) {
    std::vector<AgentConflict> result;
    for (const auto& app : managed) {
        for (const auto& item : agentItems) {
            if (item.bundleIdentifier != app.bundleIdentifier) continue;
            const auto& source = std::get<StartupItem::LaunchAgent>(item.source);
            result.push_back(AgentConflict{app, source.label, source.plistPath});
        }
    }
    return result;
}

std::vector<HelperAgent> LaunchAgentScanner::helpers() const {
    DisabledState state(launchctl);
    SessionState session(launchctl);
    std::set<std::string> labels;
    std::vector<HelperAgent> result;
    for (const auto& agent : allAgents()) {
        if (isOwnLabel(agent.label) || !agent.program.starts_with('/')) continue;
        // Holding a job that launchd never runs in this session holds nothing.
        if (agent.otherSessionsOnly) continue;
        // A job launchd never runs by itself is not held off by holding it.
        bool runsByItself = agent.startsAtLogin || agent.keepsAliveConditionally || agent.cadence || agent.launchdOnly;
        if (!runsByItself) continue;
        if (StartupDiscovery::isHelperBinary(agent.program) != true) continue;
        auto app = StartupDiscovery::outermostAppPath(StartupDiscovery::standardizedPath(agent.program));
        if (!app) continue;
        auto identifier = StartupDiscovery::bundleIdentifier(*app);
        if (!identifier || *identifier == StartupDiscovery::ownBundleIdentifier) continue;
        if (!session.runsInSession(agent)) continue;
        if (!labels.insert(agent.label).second) continue;
        // Shown only: a held helper's state is read again where it is changed.
        result.push_back(HelperAgent{agent.label, agent.plistPath, agent.program, *identifier, appName(*app),
                                     state.isDisabled(agent.label).value_or(false)});
    }
    return result;
}

}  // namespace holdenmere
