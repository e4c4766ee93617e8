#include "core/takeover/background_takeover.h"

#include <algorithm>

#include "core/support/log_text.h"
#include "core/takeover/login_ownership.h"

namespace holdenmere {
namespace {

using Status = StartupChangeOutcome::Status;

bool recorded(const HoldenmereConfig& config, const std::string& bundleIdentifier, const std::string& label) {
    const TakeoverRecord* record = config.takeover(bundleIdentifier);
    return record != nullptr && record->agent(label) != nullptr;
}

void switchOff(StartupChangeEngine& engine, const BackgroundItemScanner::Conflict& conflict,
               const BackgroundItemScanner::LaunchAgent& agent, const StartupSafety::Environment& environment,
               std::vector<std::string>& lines) {
    const ManagedApp& app = conflict.managed;
    const std::string subject = BackgroundTakeover::subject(app.name, conflict.identifier) + ": LaunchAgent " + agent.label;
    if (engine.stopped()) {
        lines.push_back(subject + " is NOT disabled: " + std::string(StartupChangeEngine::kOutOfTime));
        return;
    }
    const SafetyTier tier =
        StartupSafety::tier(LoginOwnership::agentCandidate(app, agent.label, agent.plistPath), environment);
    const auto outcome =
        engine.takeOverAgent({app.bundleIdentifier, app.name}, agent.label, agent.plistPath, tier, /*confirmed=*/false);
    switch (outcome.status) {
        case Status::changed: lines.push_back("taken over: " + subject + " disabled"); break;
        case Status::unchanged: return;  // off already, and not Holdenmere's change
        case Status::unconfirmed: lines.push_back(subject + " is NOT confirmed disabled: " + outcome.reason); break;
        case Status::failed:
        case Status::notChanged: lines.push_back(subject + " is NOT disabled: " + outcome.reason); break;
    }
    if (outcome.recorded) lines.push_back(app.name + kDash + "recorded for --restore-startup");
}

}  // namespace

std::string BackgroundTakeover::subject(const std::string& name, const std::string& identifier) {
    return name + kDash + "background item " + identifier;
}

std::string BackgroundTakeover::settingsLine(const std::string& name, const std::string& identifier) {
    return "CONFLICT: " + subject(name, identifier) +
           " starts it before the network; only System Settings can switch it off (Login Items)";
}

std::vector<std::string> BackgroundTakeover::pass(StartupChangeEngine& engine, const BackgroundItemStore& store,
                                                  const StartupSafety::Environment& environment,
                                                  const std::vector<LaunchRecord>& records) {
    std::vector<std::string> lines;
    if (engine.config().startupConsent != StartupConsent::granted) return lines;
    const auto saved = store.load();
    if (!saved) return lines;
    const std::vector<ManagedApp> managed = engine.config().apps;
    for (const auto& conflict : BackgroundItemScanner::conflicts(saved->result, managed)) {
        const ManagedApp& app = conflict.managed;
        if (launchFailed(records, app.bundleIdentifier)) {
            lines.push_back(subject(app.name, conflict.identifier) + kDash +
                            "its launch failed this pass, so the item stays");
            continue;
        }
        const auto* agent = std::get_if<BackgroundItemScanner::LaunchAgent>(&conflict.remedy);
        if (agent == nullptr) {
            lines.push_back(settingsLine(app.name, conflict.identifier));
            continue;
        }
        if (StartupChangeEngine::isOwnLabel(agent->label) || recorded(engine.config(), app.bundleIdentifier, agent->label)) {
            continue;
        }
        switchOff(engine, conflict, *agent, environment, lines);
    }
    return lines;
}

}  // namespace holdenmere
