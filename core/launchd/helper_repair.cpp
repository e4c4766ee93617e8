#include "core/launchd/helper_repair.h"

#include <algorithm>
#include <set>
#include <system_error>

#include "core/support/files.h"
#include "core/support/log_text.h"

namespace holdenmere {
namespace {

std::string helperName(const HelperRepair::Candidate& candidate) { return candidate.appName + kDash + candidate.label; }

// What became of the step, as the run log words it.
std::string_view logResult(HelperRepair::Outcome outcome) {
    switch (outcome) {
        case HelperRepair::Outcome::planned:
            return "would switch back on (dry run)";
        case HelperRepair::Outcome::repaired:
            return "switched back on";
        case HelperRepair::Outcome::failed:
            return "still disabled after `launchctl enable`";
    }
    return "";
}

}  // namespace

std::string HelperRepair::Candidate::line() const { return helperName(*this) + ": " + reason; }

std::string HelperRepair::Step::line() const {
    switch (outcome) {
        case Outcome::planned:
            return "would switch back on: " + candidate.line();
        case Outcome::repaired:
            return "switched back on: " + helperName(candidate);
        case Outcome::failed:
            return "FAILED: " + helperName(candidate) + " could not be switched back on";
    }
    return {};
}

std::vector<HelperRepair::Candidate> HelperRepair::plan(
    const HoldenmereConfig& config, const std::vector<IneligibleStartupItem>& disabledIneligibleAgents) {
    std::set<std::string> managed;
    for (const auto& app : config.apps) managed.insert(app.bundleIdentifier);
    std::set<std::string> settled(config.keptOff.begin(), config.keptOff.end());
    for (const auto& helper : config.delayedHelpers) settled.insert(helper.label);
    for (const auto& takeover : config.takeovers) {
        for (const auto& agent : takeover.agents) settled.insert(agent.label);
    }

    std::vector<Candidate> candidates;
    for (const auto& item : disabledIneligibleAgents) {
        if (managed.count(item.bundleIdentifier) == 0 || settled.count(item.label) != 0) continue;
        candidates.push_back(Candidate{item.label, item.name, item.bundleIdentifier, item.reason});
    }
    return candidates;
}

std::vector<HelperRepair::Step> HelperRepair::repair(const std::vector<Candidate>& candidates, const Enable& enable,
                                                     bool dryRun) {
    std::vector<Step> steps;
    std::set<std::string> handled;
    for (const auto& candidate : candidates) {
        if (!handled.insert(candidate.label).second) continue;
        if (dryRun) {
            steps.push_back(Step{candidate, Outcome::planned});
            continue;
        }
        steps.push_back(Step{candidate, enable(candidate) ? Outcome::repaired : Outcome::failed});
    }
    return steps;
}

std::string HelperRepair::logLine(const Step& step, std::string_view source, Date at) {
    std::string line = "[" + at.iso8601() + "] repair (";
    line.append(source).append("): ").append(helperName(step.candidate)).append(": ").append(logResult(step.outcome));
    return line;
}

std::optional<std::string> HelperRepair::log(const std::vector<Step>& steps, std::string_view source,
                                             const std::filesystem::path& path, Date at) {
    if (steps.empty()) return std::nullopt;
    std::string block;
    for (const auto& step : steps) block.append(logLine(step, source, at)).append(1, '\n');
    try {
        files::append(path, block);
    } catch (const std::system_error& error) {
        return error.what();
    }
    return std::nullopt;
}

std::string HelperRepair::question(std::size_t count) {
    if (count == 1)
        return "Holdenmere earlier switched off 1 helper it cannot start itself \xE2\x80\x94 switch it back on?";
    return "Holdenmere earlier switched off " + std::to_string(count) +
           " helpers it cannot start itself \xE2\x80\x94 switch them back on?";
}

}  // namespace holdenmere
