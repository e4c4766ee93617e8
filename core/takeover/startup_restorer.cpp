#include "core/takeover/startup_restorer.h"

#include <algorithm>
#include <set>

#include "core/support/files.h"

namespace holdenmere {
namespace {

constexpr const char* kDash = " \xE2\x80\x94 ";
constexpr const char* kKept = "; kept in the ledger";

bool listed(const std::vector<std::string>& identifiers, std::string_view identifier) {
    return std::find(identifiers.begin(), identifiers.end(), identifier) != identifiers.end();
}

// The previous states that mean the item was off before it was held.
bool wasOff(const HeldStartupItem& item) { return item.previous == "off" || item.previous == "disabled"; }

std::string_view verb(StartupRestorer::Outcome outcome) {
    switch (outcome) {
        case StartupRestorer::Outcome::givenBack:
            return "given back";
        case StartupRestorer::Outcome::wouldGiveBack:
            return "would give back";
        case StartupRestorer::Outcome::leftOff:
            return "left off";
        case StartupRestorer::Outcome::optedOut:
            return "kept off";
        case StartupRestorer::Outcome::notInThisBuild:
            return "kept in the ledger";
        case StartupRestorer::Outcome::failed:
            return "FAILED";
        case StartupRestorer::Outcome::wouldFail:
            return "would fail";
    }
    return "";
}

constexpr const char* kOptedOut = "you excluded it from giving back; kept in the ledger";

}  // namespace

std::string StartupRestorer::Entry::line() const {
    return std::string(sourceName(source)) + ": " + std::string(verb(outcome)) + ": " + name + kDash + detail;
}

bool StartupRestorer::Report::anyFailed() const {
    return std::any_of(entries.begin(), entries.end(),
                       [](const Entry& entry) { return entry.outcome == Outcome::failed; });
}

std::string_view StartupRestorer::sourceName(Source source) {
    switch (source) {
        case Source::loginItems:
            return "Login Items";
        case Source::launchAgents:
            return "LaunchAgents";
        case Source::heldHelpers:
            return "held helpers";
        case Source::heldStartup:
            return "held startup items";
        case Source::reopenWindows:
            return "reopen-windows setting";
    }
    return "";
}

StartupRestorer::StartupRestorer(LoginItemsAuditor& auditor, AgentTakeover& agents, FileExists fileExists)
    : auditor_(auditor), agents_(agents), fileExists_(std::move(fileExists)) {
    if (!fileExists_) fileExists_ = [](const std::string& path) { return files::exists(path); };
}

StartupRestorer::Report StartupRestorer::giveBack(const HoldenmereConfig& config, bool dryRun,
                                                  HelperDelay& helperDelay) {
    Report report;
    report.config = config;
    giveBackLoginItems(report, dryRun);
    giveBackAgents(report, dryRun);
    giveBackHelpers(report, dryRun, helperDelay);
    giveBackHeldStartup(report, dryRun);
    if (config.reopenWindowsOriginal) {
        report.entries.push_back({Source::reopenWindows, "reopen windows when logging back in",
                                  "this build cannot restore it; kept in the ledger", Outcome::notInThisBuild});
    }

    auto& takeovers = report.config.takeovers;
    std::erase_if(takeovers, [](const TakeoverRecord& record) { return !record.loginItem && record.agents.empty(); });
    report.ledgerChanged = report.config != config;
    return report;
}

void StartupRestorer::giveBackLoginItems(Report& report, bool dryRun) {
    HoldenmereConfig& config = report.config;
    // System Events is asked once for what is there already, and only when
    // there is something to give back.
    std::optional<std::set<std::string>> present;
    for (auto& record : config.takeovers) {
        if (!record.loginItem) continue;
        const RemovedLoginItem item = *record.loginItem;
        const std::string detail = item.path + (item.hidden ? " (hidden)" : "");
        if (listed(config.restoreOptOuts, record.bundleIdentifier)) {
            report.entries.push_back({Source::loginItems, record.name, detail + ": " + kOptedOut, Outcome::optedOut});
            continue;
        }
        if (!fileExists_(item.path)) {
            report.entries.push_back({Source::loginItems, record.name, item.path + " no longer exists" + kKept,
                                      dryRun ? Outcome::wouldFail : Outcome::failed});
            continue;
        }
        if (dryRun) {
            report.entries.push_back({Source::loginItems, record.name, "add " + detail, Outcome::wouldGiveBack});
            continue;
        }
        if (!present) {
            present.emplace();
            for (const auto& existing : auditor_.loginItems(/*readingHidden=*/false)) present->insert(existing.path);
        }
        if (present->count(item.path) != 0) {
            report.entries.push_back(
                {Source::loginItems, record.name, item.path + " is in Login Items already", Outcome::givenBack});
        } else if (auditor_.add(item.path, item.hidden)) {
            present->insert(item.path);
            report.entries.push_back({Source::loginItems, record.name, "added " + detail, Outcome::givenBack});
        } else {
            report.entries.push_back({Source::loginItems, record.name,
                                      "System Events did not add " + item.path +
                                          " (is Holdenmere allowed to control System Events?)" + kKept,
                                      Outcome::failed});
            continue;
        }
        record.loginItem.reset();
        // macOS starts the app again; a later pass must not record this
        // Login Item as one it removed.
        for (auto& app : config.apps) {
            if (app.bundleIdentifier == record.bundleIdentifier) app.importedFromLoginItem = false;
        }
    }
}

void StartupRestorer::giveBackAgents(Report& report, bool dryRun) {
    HoldenmereConfig& config = report.config;
    for (auto& record : config.takeovers) {
        const bool recordOptedOut = listed(config.restoreOptOuts, record.bundleIdentifier);
        std::vector<DisabledAgent> kept;
        for (const auto& agent : record.agents) {
            const std::string label = agent.label + (agent.inferred ? " (found disabled, probably by Holdenmere)" : "");
            if (recordOptedOut || listed(config.restoreOptOuts, agent.label) ||
                listed(config.restoreOptOuts, "launchdJob:" + agent.label)) {
                report.entries.push_back(
                    {Source::launchAgents, record.name, label + ": " + kOptedOut, Outcome::optedOut});
                kept.push_back(agent);
                continue;
            }
            if (dryRun) {
                report.entries.push_back(
                    {Source::launchAgents, record.name, "switch " + label + " back on", Outcome::wouldGiveBack});
                kept.push_back(agent);
                continue;
            }
            const auto result = agents_.undo(agent.label, agent.plistPath);
            if (result.succeeded()) {
                std::string detail = label + " switched back on";
                if (!result.reason.empty()) detail += "; " + result.reason;
                report.entries.push_back({Source::launchAgents, record.name, detail, Outcome::givenBack});
            } else {
                report.entries.push_back(
                    {Source::launchAgents, record.name, label + ": " + result.reason + kKept, Outcome::failed});
                kept.push_back(agent);
            }
        }
        record.agents = std::move(kept);
    }
}

void StartupRestorer::giveBackHelpers(Report& report, bool dryRun, HelperDelay& helperDelay) {
    HoldenmereConfig& config = report.config;
    std::vector<DelayedHelper> kept;
    for (const auto& helper : config.delayedHelpers) {
        if (listed(config.restoreOptOuts, helper.label) || listed(config.restoreOptOuts, helper.appBundleIdentifier)) {
            report.entries.push_back(
                {Source::heldHelpers, helper.name, helper.label + ": " + kOptedOut, Outcome::optedOut});
            kept.push_back(helper);
        } else if (dryRun) {
            report.entries.push_back(
                {Source::heldHelpers, helper.name, "switch " + helper.label + " back on", Outcome::wouldGiveBack});
            kept.push_back(helper);
        } else if (auto failure = helperDelay.release(helper)) {
            report.entries.push_back(
                {Source::heldHelpers, helper.name, helper.label + ": " + *failure + kKept, Outcome::failed});
            kept.push_back(helper);
        } else {
            report.entries.push_back(
                {Source::heldHelpers, helper.name, helper.label + " switched back on", Outcome::givenBack});
        }
    }
    config.delayedHelpers = std::move(kept);
}

void StartupRestorer::giveBackHeldStartup(Report& report, bool dryRun) {
    HoldenmereConfig& config = report.config;
    std::vector<HeldStartupItem> kept;
    for (const auto& item : config.heldStartup) {
        const std::string row = std::string(rawValue(item.source)) + ":" + item.handle;
        if (listed(config.restoreOptOuts, item.handle) || listed(config.restoreOptOuts, row) ||
            (item.ownerBundleIdentifier && listed(config.restoreOptOuts, *item.ownerBundleIdentifier))) {
            report.entries.push_back(
                {Source::heldStartup, item.name, item.handle + ": " + kOptedOut, Outcome::optedOut});
            kept.push_back(item);
            continue;
        }
        if (item.source != StartupSource::launchdJob) {
            report.entries.push_back({Source::heldStartup, item.name,
                                      "this build cannot switch " + std::string(rawValue(item.source)) +
                                          " items back on; kept in the ledger",
                                      Outcome::notInThisBuild});
            kept.push_back(item);
            continue;
        }
        if (wasOff(item)) {
            // Only what Holdenmere switched off is given back.
            if (!dryRun) {
                report.entries.push_back({Source::heldStartup, item.name,
                                          item.handle + " was already off when Holdenmere found it", Outcome::leftOff});
            } else {
                report.entries.push_back({Source::heldStartup, item.name,
                                          item.handle + " was already off when Holdenmere found it; would leave it off",
                                          Outcome::leftOff});
                kept.push_back(item);
            }
            continue;
        }
        if (dryRun) {
            report.entries.push_back(
                {Source::heldStartup, item.name, "switch " + item.handle + " back on", Outcome::wouldGiveBack});
            kept.push_back(item);
            continue;
        }
        const auto result = agents_.undo(item.handle, item.plistPath.value_or(""));
        if (result.succeeded()) {
            std::string detail = item.handle + " switched back on";
            if (!result.reason.empty()) detail += "; " + result.reason;
            report.entries.push_back({Source::heldStartup, item.name, detail, Outcome::givenBack});
        } else {
            report.entries.push_back(
                {Source::heldStartup, item.name, item.handle + ": " + result.reason + kKept, Outcome::failed});
            kept.push_back(item);
        }
    }
    config.heldStartup = std::move(kept);
}

}  // namespace holdenmere
