#include "core/config/holdenmere_config.h"

#include <algorithm>
#include <cmath>

namespace holdenmere {

double ManagedApp::delay(LaunchMode mode) const {
    if (mode == LaunchMode::noDelay) return 0;
    return delaySeconds > 0 ? delaySeconds : kDefaultDelay;
}

std::string_view rawValue(DelayedHelper::Mode mode) {
    return mode == DelayedHelper::Mode::delay ? "delay" : "off";
}

std::optional<DelayedHelper::Mode> delayedHelperModeFromRaw(std::string_view raw) {
    if (raw == "delay") return DelayedHelper::Mode::delay;
    if (raw == "off") return DelayedHelper::Mode::off;
    return std::nullopt;
}

std::string_view rawValue(StartupConsent consent) {
    switch (consent) {
        case StartupConsent::undecided: return "undecided";
        case StartupConsent::granted: return "granted";
        case StartupConsent::declined: return "declined";
    }
    return "";
}

std::optional<StartupConsent> startupConsentFromRaw(std::string_view raw) {
    for (auto consent : {StartupConsent::undecided, StartupConsent::granted, StartupConsent::declined}) {
        if (rawValue(consent) == raw) return consent;
    }
    return std::nullopt;
}

double HoldenmereConfig::runTimeout() const {
    double largestDelay = 0;
    double enabled = 0;
    for (const auto& app : apps) {
        if (!app.isEnabled) continue;
        enabled += 1;
        double delay = std::isnan(app.delaySeconds) ? 0 : std::max(app.delaySeconds, 0.0);
        double rounded = std::min(std::ceil(delay / kDelayStep) * kDelayStep, kMaxDelay);
        largestDelay = std::max(largestDelay, rounded);
    }
    const double interval = GateSettings::clampedPollInterval(settings.pollInterval);
    const double attempts = static_cast<double>(GateSettings::clampedAttempts(settings.maxAttempts));
    const double attemptTimeout = std::min(interval + 1.0, GateSettings::kMaxProbeAttemptTimeout);
    return enabled * kRunTimeoutPerApp + kRunTimeoutBase + largestDelay + (interval + attemptTimeout) * attempts;
}

StartupConsent HoldenmereConfig::derivedConsent() const {
    return apps.empty() && takeovers.empty() && blockedApps.empty() ? StartupConsent::undecided
                                                                     : StartupConsent::granted;
}

void HoldenmereConfig::grantStartupConsent(std::vector<std::string> leftToMacOSIdentifiers) {
    startupConsent = StartupConsent::granted;
    std::sort(leftToMacOSIdentifiers.begin(), leftToMacOSIdentifiers.end());
    leftToMacOSIdentifiers.erase(std::unique(leftToMacOSIdentifiers.begin(), leftToMacOSIdentifiers.end()),
                                 leftToMacOSIdentifiers.end());
    leftToMacOS = std::move(leftToMacOSIdentifiers);
}

void HoldenmereConfig::declineStartupConsent() { startupConsent = StartupConsent::declined; }

void HoldenmereConfig::keepOff(const std::vector<std::string>& identifiers) {
    for (const auto& identifier : identifiers) {
        if (std::find(keptOff.begin(), keptOff.end(), identifier) == keptOff.end()) keptOff.push_back(identifier);
    }
}

void HoldenmereConfig::hold(const HeldStartupItem& item) {
    auto held = std::find_if(heldStartup.begin(), heldStartup.end(), [&](const HeldStartupItem& existing) {
        return existing.source == item.source && existing.handle == item.handle;
    });
    if (held == heldStartup.end()) heldStartup.push_back(item);
}

void HoldenmereConfig::recordAgent(std::string_view bundleIdentifier, std::string_view name, std::string_view label,
                                   std::string_view plistPath, bool inferred) {
    auto record = std::find_if(takeovers.begin(), takeovers.end(), [&](const TakeoverRecord& existing) {
        return existing.bundleIdentifier == bundleIdentifier;
    });
    if (record == takeovers.end()) {
        takeovers.push_back(TakeoverRecord{std::string(bundleIdentifier), std::string(name), {}, {}});
        record = std::prev(takeovers.end());
    }
    DisabledAgent agent{std::string(label), std::string(plistPath), inferred};
    auto existing = std::find_if(record->agents.begin(), record->agents.end(),
                                 [&](const DisabledAgent& candidate) { return candidate.label == label; });
    if (existing == record->agents.end()) {
        record->agents.push_back(std::move(agent));
    } else {
        *existing = std::move(agent);
    }
}

namespace {

TakeoverRecord& takeoverRecord(std::vector<TakeoverRecord>& takeovers, std::string_view bundleIdentifier,
                               std::string_view name) {
    auto record = std::find_if(takeovers.begin(), takeovers.end(), [&](const TakeoverRecord& existing) {
        return existing.bundleIdentifier == bundleIdentifier;
    });
    if (record != takeovers.end()) return *record;
    return takeovers.emplace_back(TakeoverRecord{std::string(bundleIdentifier), std::string(name), {}, {}});
}

}  // namespace

void HoldenmereConfig::record(const AgentTakeoverResult& result) {
    recordAgent(result.bundleIdentifier, result.name, result.label, result.plistPath, false);
}

const RemovedLoginItem* TakeoverRecord::loginItem(std::string_view path) const {
    auto found = std::find_if(loginItems.begin(), loginItems.end(),
                              [&](const RemovedLoginItem& item) { return item.path == path; });
    return found == loginItems.end() ? nullptr : &*found;
}

const DisabledAgent* TakeoverRecord::agent(std::string_view label) const {
    auto found = std::find_if(agents.begin(), agents.end(), [&](const DisabledAgent& held) { return held.label == label; });
    return found == agents.end() ? nullptr : &*found;
}

void HoldenmereConfig::recordLoginItem(std::string_view bundleIdentifier, std::string_view name,
                                       const RemovedLoginItem& loginItem) {
    TakeoverRecord& record = takeoverRecord(takeovers, bundleIdentifier, name);
    if (record.loginItem(loginItem.path) == nullptr) record.loginItems.push_back(loginItem);
}

void HoldenmereConfig::forgetLoginItem(std::string_view bundleIdentifier, std::string_view path) {
    if (TakeoverRecord* record = takeover(bundleIdentifier)) {
        std::erase_if(record->loginItems, [&](const RemovedLoginItem& item) { return item.path == path; });
    }
    std::erase_if(takeovers, [](const TakeoverRecord& record) { return record.isEmpty(); });
    // With no Login Item left to give back, the order is nobody's business.
    const bool anyRemoved = std::any_of(takeovers.begin(), takeovers.end(),
                                        [](const TakeoverRecord& record) { return !record.loginItems.empty(); });
    if (!anyRemoved) loginItemsOrder.clear();
}

void HoldenmereConfig::noteLoginItemsOrder(const std::vector<std::string>& listedPaths) {
    auto contains = [](const std::vector<std::string>& paths, const std::string& path) {
        return std::find(paths.begin(), paths.end(), path) != paths.end();
    };
    auto recorded = [&](const std::string& path) {
        return std::any_of(takeovers.begin(), takeovers.end(),
                           [&](const TakeoverRecord& record) { return record.loginItem(path) != nullptr; });
    };
    std::erase_if(loginItemsOrder,
                  [&](const std::string& path) { return !contains(listedPaths, path) && !recorded(path); });
    // macOS adds a new Login Item at the end of the list.
    for (const auto& path : listedPaths) {
        if (!contains(loginItemsOrder, path)) loginItemsOrder.push_back(path);
    }
}

std::size_t HoldenmereConfig::loginItemRank(std::string_view path) const {
    auto found = std::find(loginItemsOrder.begin(), loginItemsOrder.end(), path);
    return static_cast<std::size_t>(found - loginItemsOrder.begin());
}

void HoldenmereConfig::forgetAgent(std::string_view bundleIdentifier, std::string_view label) {
    if (TakeoverRecord* record = takeover(bundleIdentifier)) {
        std::erase_if(record->agents, [&](const DisabledAgent& agent) { return agent.label == label; });
    }
    std::erase_if(takeovers, [](const TakeoverRecord& record) { return record.isEmpty(); });
}

void HoldenmereConfig::release(const HeldStartupItem& item) {
    std::erase_if(heldStartup, [&](const HeldStartupItem& held) {
        return held.source == item.source && held.handle == item.handle;
    });
}

void HoldenmereConfig::mergeLedger(const HoldenmereConfig& from) {
    for (const auto& incoming : from.takeovers) {
        TakeoverRecord& record = takeoverRecord(takeovers, incoming.bundleIdentifier, incoming.name);
        for (const auto& item : incoming.loginItems) {
            if (record.loginItem(item.path) == nullptr) record.loginItems.push_back(item);
        }
        for (const auto& agent : incoming.agents) {
            auto existing = std::find_if(record.agents.begin(), record.agents.end(),
                                         [&](const DisabledAgent& candidate) { return candidate.label == agent.label; });
            if (existing == record.agents.end()) {
                record.agents.push_back(agent);
            } else if ((existing->inferred && !agent.inferred) || (existing->unconfirmed && !agent.unconfirmed)) {
                *existing = agent;
            }
        }
    }
    for (const auto& item : from.heldStartup) hold(item);
    for (const auto& path : from.loginItemsOrder) {
        if (std::find(loginItemsOrder.begin(), loginItemsOrder.end(), path) == loginItemsOrder.end()) {
            loginItemsOrder.push_back(path);
        }
    }
}

bool HoldenmereConfig::manage(const ManagedApp& app) {
    bool known = std::any_of(apps.begin(), apps.end(),
                             [&](const ManagedApp& existing) { return existing.bundleIdentifier == app.bundleIdentifier; });
    if (known) return false;
    apps.push_back(app);
    return true;
}

TakeoverRecord* HoldenmereConfig::takeover(std::string_view bundleIdentifier) {
    auto record = std::find_if(takeovers.begin(), takeovers.end(), [&](const TakeoverRecord& existing) {
        return existing.bundleIdentifier == bundleIdentifier;
    });
    return record == takeovers.end() ? nullptr : &*record;
}

const TakeoverRecord* HoldenmereConfig::takeover(std::string_view bundleIdentifier) const {
    auto record = std::find_if(takeovers.begin(), takeovers.end(), [&](const TakeoverRecord& existing) {
        return existing.bundleIdentifier == bundleIdentifier;
    });
    return record == takeovers.end() ? nullptr : &*record;
}

}  // namespace holdenmere
