#include "core/discovery/other_jobs.h"

#include <algorithm>
#include <map>
#include <set>

#include "core/discovery/startup_discovery.h"
#include "core/support/text.h"

namespace holdenmere {
namespace {

using Agent = LaunchAgentScanner::Agent;
using OtherJobs = LaunchAgentScanner::OtherJobs;
using Marks = std::optional<std::map<std::string, bool>>;

bool listed(const std::vector<std::string>& labels, const std::string& label) {
    return std::find(labels.begin(), labels.end(), label) != labels.end();
}

// launchd's state of one job: off where launchd marks it disabled, or where
// its plist says "Disabled" and launchd has not marked it enabled.
StartupEntry::State stateOf(const std::string& label, bool disabledInPlist, const Marks& marks) {
    if (!marks) return StartupEntry::State::unknown(std::string(OtherJobs::kNoStateKnown));
    auto mark = marks->find(label);
    if (mark != marks->end()) return mark->second ? StartupEntry::State::off() : StartupEntry::State::startsAtLogin();
    return disabledInPlist ? StartupEntry::State::off() : StartupEntry::State::startsAtLogin();
}

// The user's own job says so, unless the tier refuses it or already warns.
SafetyTier withYourOwnWarning(SafetyTier tier, const std::string& name) {
    if (tier.kind == SafetyTier::Kind::refused) return tier;
    const bool warned = std::any_of(tier.warnings.begin(), tier.warnings.end(), [](const std::string& warning) {
        return warning.find("is your own job") != std::string::npos;
    });
    if (warned) return tier;
    tier.warnings.push_back(OtherJobs::yourOwnJob(name));
    return SafetyTier::needsConfirmation(std::move(tier.warnings));
}

std::string note(const std::vector<std::string>& labels, const std::string& what) {
    return std::to_string(labels.size()) + " " + what + ": " + text::joined(labels, ", ");
}

// What could not be read, so that the jobs may be incomplete.
void noteWhatWasNotRead(OtherJobs& jobs, const BrackenspurLabels& brackenspur, const Marks& marks,
                        const LaunchAgentScanner::JobSafety& safety) {
    jobs.brackenspurFailure = brackenspur.failure;
    if (brackenspur.failure) jobs.incomplete.push_back(*brackenspur.failure);
    if (!marks) jobs.incomplete.emplace_back(OtherJobs::kDisabledListUnreadable);
    if (!safety.systemExtensionsRead) jobs.incomplete.emplace_back(OtherJobs::kSystemExtensionsUnreadable);
}

StartupCandidate candidateOf(const Agent& agent, const std::optional<std::string>& app) {
    StartupCandidate candidate;
    candidate.handle = agent.label;
    candidate.name = agent.label;
    if (!agent.program.empty()) candidate.programPath = agent.program;
    candidate.bundlePath = app;
    candidate.launchdOnlyReason = agent.launchdOnly;
    return candidate;
}

// Sorts the jobs read into rows and the lists of jobs left out, each label
// once.
class JobSorting {
public:
    JobSorting(OtherJobs& jobs, const LaunchAgentScanner::JobSafety& safety, const BrackenspurLabels& brackenspur,
               const std::vector<std::string>& serviceManagementLabels, const Marks& marks)
        : jobs_(jobs),
          safety_(safety),
          brackenspur_(brackenspur),
          serviceManagementLabels_(serviceManagementLabels),
          marks_(marks) {}

    // A row under the app whose bundle holds its program, or under the
    // user's own jobs.
    void add(const Agent& agent) {
        if (!seen_.insert(agent.label).second || leftOut(agent)) return;
        StartupEntry row;
        row.source = StartupSource::launchdJob;
        row.handle = agent.label;
        row.state = stateOf(agent.label, agent.disabledInPlist, marks_);
        const auto app = agent.program.starts_with('/') ? StartupDiscovery::outermostAppPath(agent.program) : std::nullopt;
        if (app) row.ownerBundleIdentifier = StartupDiscovery::bundleIdentifier(*app);
        row.name = app ? std::filesystem::path(*app).stem().string() : agent.label;
        StartupCandidate candidate = candidateOf(agent, app);
        candidate.name = row.name;
        candidate.ownerBundleIdentifier = row.ownerBundleIdentifier;
        row.tier = safety_.tier ? safety_.tier(candidate) : SafetyTier::allowed();
        if (app) {
            jobs_.installedByApps.push_back(std::move(row));
        } else {
            row.tier = withYourOwnWarning(std::move(row.tier), row.name);
            jobs_.yourOwn.push_back(std::move(row));
        }
    }

    // A plist that cannot be read is still a job launchd may run: listed
    // under its file name, with nothing known of what it runs.
    void addUnreadable(const std::filesystem::path& file) {
        Agent unknown;
        unknown.label = file.stem().string();
        unknown.plistPath = file.string();
        if (!seen_.insert(unknown.label).second || leftOut(unknown)) return;
        StartupEntry row;
        row.source = StartupSource::launchdJob;
        row.handle = unknown.label;
        row.name = unknown.label;
        const auto state = stateOf(unknown.label, false, marks_);
        row.state = state.kind == StartupEntry::State::Kind::off
                        ? state
                        : StartupEntry::State::unknown(file.string() + " could not be read as a property list");
        row.tier = SafetyTier::needsConfirmation({std::string(OtherJobs::kDetailsUnreadable)});
        jobs_.yourOwn.push_back(std::move(row));
    }

private:
    // The lists of jobs left out, first match wins; true when the job is one.
    bool leftOut(const Agent& agent) {
        const std::string& label = agent.label;
        if (StartupDiscovery::ownLaunchdLabels.count(label) != 0) return true;
        std::vector<std::string>* list = nullptr;
        if (agent.otherSessionsOnly) {
            list = &jobs_.otherSessions;
        } else if (safety_.isApple && safety_.isApple(candidateOf(agent, std::nullopt))) {
            list = &jobs_.appleOmitted;
        } else if (listed(brackenspur_.labels, label)) {
            list = &jobs_.brackenspurOwned;
        } else if (listed(serviceManagementLabels_, label)) {
            list = &jobs_.alsoServiceManagement;
        } else if (agent.program.starts_with('/') && StartupDiscovery::launchesOwnApp(agent.program)) {
            list = &jobs_.appAgents;
        }
        if (list != nullptr) list->push_back(label);
        return list != nullptr;
    }

    OtherJobs& jobs_;
    const LaunchAgentScanner::JobSafety& safety_;
    const BrackenspurLabels& brackenspur_;
    const std::vector<std::string>& serviceManagementLabels_;
    const Marks& marks_;
    std::set<std::string> seen_;
};

}  // namespace

std::string OtherJobs::yourOwnJob(const std::string& name) {
    return name + " is your own job, so nothing else will start it.";
}

std::vector<StartupEntry> OtherJobs::entries() const {
    std::vector<StartupEntry> all = installedByApps;
    all.insert(all.end(), yourOwn.begin(), yourOwn.end());
    return all;
}

StartupSourceScan OtherJobs::scan() const {
    StartupSourceScan result;
    result.source = StartupSource::launchdJob;
    result.entries = entries();
    result.incomplete = incomplete;
    const bool launchdUnreadable = listed(incomplete, std::string(kDisabledListUnreadable));
    if (launchdUnreadable && result.entries.empty()) result.unreadable = std::string(kDisabledListUnreadable);
    if (!appleOmitted.empty()) result.notes.push_back(std::to_string(appleOmitted.size()) + " of Apple's own jobs are not listed");
    if (!appAgents.empty()) result.notes.push_back(note(appAgents, "LaunchAgents that open an app are under Startup Items"));
    if (!alsoServiceManagement.empty()) {
        result.notes.push_back(note(alsoServiceManagement, "jobs also registered through ServiceManagement are listed there"));
    }
    if (!brackenspurOwned.empty()) {
        result.notes.push_back(note(brackenspurOwned, "jobs belong to Brackenspur, which starts and stops them itself"));
    }
    if (!otherSessions.empty()) {
        result.notes.push_back(note(otherSessions, "jobs never start in your session (LimitLoadToSessionType)"));
    }
    return result;
}

LaunchAgentScanner::OtherJobs LaunchAgentScanner::otherJobs(const JobSafety& safety,
                                                            const BrackenspurLabels& brackenspur,
                                                            const std::vector<std::string>& serviceManagementLabels) const {
    OtherJobs jobs;
    std::vector<std::filesystem::path> unreadableFiles;
    const std::vector<Agent> agents = readTopLevelAgents(jobs.incomplete, &unreadableFiles);
    const Marks marks = launchctl.disabledMarks();
    noteWhatWasNotRead(jobs, brackenspur, marks, safety);

    JobSorting sorting(jobs, safety, brackenspur, serviceManagementLabels, marks);
    for (const auto& agent : agents) sorting.add(agent);
    for (const auto& file : unreadableFiles) sorting.addUnreadable(file);
    return jobs;
}

}  // namespace holdenmere
