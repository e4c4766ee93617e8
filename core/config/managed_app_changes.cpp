#include "core/config/managed_app_changes.h"

#include <algorithm>
#include <cmath>
#include <vector>

namespace holdenmere {
namespace {

using Apps = std::vector<ManagedApp>;

Apps::iterator findApp(Apps& apps, const std::string& identifier) {
    return std::find_if(apps.begin(), apps.end(),
                        [&](const ManagedApp& app) { return app.bundleIdentifier == identifier; });
}

std::vector<BlockedApp>::iterator findBlocked(std::vector<BlockedApp>& apps, const std::string& identifier) {
    return std::find_if(apps.begin(), apps.end(),
                        [&](const BlockedApp& app) { return app.bundleIdentifier == identifier; });
}

}  // namespace

int ManagedAppChanges::steppedDelay(int seconds) {
    const int stepped = (seconds + kDelayStep - 1) / kDelayStep * kDelayStep;
    return std::clamp(stepped, kMinDelay, kMaxDelay);
}

bool ManagedAppChanges::move(HoldenmereConfig& config, const std::string& bundleIdentifier, int toIndex) {
    auto it = findApp(config.apps, bundleIdentifier);
    if (it == config.apps.end() || !it->isEnabled) return false;
    std::vector<std::size_t> shown;
    for (std::size_t index = 0; index < config.apps.size(); ++index) {
        if (config.apps[index].isEnabled) shown.push_back(index);
    }
    const std::size_t target =
        shown[static_cast<std::size_t>(std::clamp(toIndex, 0, static_cast<int>(shown.size()) - 1))];
    const std::size_t from = static_cast<std::size_t>(it - config.apps.begin());
    if (from == target) return false;
    ManagedApp moving = std::move(*it);
    config.apps.erase(it);
    config.apps.insert(config.apps.begin() + static_cast<std::ptrdiff_t>(target), std::move(moving));
    return true;
}

bool ManagedAppChanges::setLaunchHidden(HoldenmereConfig& config, const std::string& bundleIdentifier,
                                        bool hidden) {
    auto it = findApp(config.apps, bundleIdentifier);
    if (it == config.apps.end() || it->launchHidden == hidden) return false;
    it->launchHidden = hidden;
    return true;
}

bool ManagedAppChanges::setDelayed(HoldenmereConfig& config, const std::string& bundleIdentifier, bool delayed) {
    auto it = findApp(config.apps, bundleIdentifier);
    if (it == config.apps.end()) return false;
    const double wanted =
        delayed ? steppedDelay(static_cast<int>(std::lround(it->delay(ManagedApp::LaunchMode::delayed)))) : 0.0;
    if (it->delaySeconds == wanted) return false;
    it->delaySeconds = wanted;
    return true;
}

bool ManagedAppChanges::setDelay(HoldenmereConfig& config, const std::string& bundleIdentifier, int seconds) {
    auto it = findApp(config.apps, bundleIdentifier);
    if (it == config.apps.end()) return false;
    const double wanted = steppedDelay(seconds);
    if (it->delaySeconds == wanted) return false;
    it->delaySeconds = wanted;
    return true;
}

std::optional<std::string> ManagedAppChanges::switchOff(HoldenmereConfig& config,
                                                        const std::string& bundleIdentifier) {
    auto it = findApp(config.apps, bundleIdentifier);
    if (it == config.apps.end() || !it->isEnabled) return std::nullopt;
    it->isEnabled = false;
    return it->name;
}

std::optional<std::string> ManagedAppChanges::switchOn(HoldenmereConfig& config,
                                                       const std::string& bundleIdentifier) {
    std::optional<std::string> name;
    auto kept = findApp(config.apps, bundleIdentifier);
    if (kept != config.apps.end()) {
        if (kept->isEnabled) return std::nullopt;
        kept->isEnabled = true;
        name = kept->name;
    }
    auto blocked = findBlocked(config.blockedApps, bundleIdentifier);
    if (blocked != config.blockedApps.end()) {
        if (kept == config.apps.end()) {
            ManagedApp app;
            app.bundleIdentifier = blocked->bundleIdentifier;
            app.name = blocked->name;
            app.path = blocked->path;
            config.apps.push_back(std::move(app));
        }
        name = blocked->name;
        config.blockedApps.erase(blocked);
    }
    return name;
}

std::optional<std::string> ManagedAppChanges::remove(HoldenmereConfig& config, const std::string& bundleIdentifier) {
    std::optional<std::string> name;
    if (auto it = findApp(config.apps, bundleIdentifier); it != config.apps.end()) {
        name = it->name;
        config.apps.erase(it);
    }
    if (auto blocked = findBlocked(config.blockedApps, bundleIdentifier); blocked != config.blockedApps.end()) {
        if (!name) name = blocked->name;
        config.blockedApps.erase(blocked);
    }
    return name;
}

bool ManagedAppChanges::takenOver(const HoldenmereConfig& config, const ManagedApp& app) {
    return config.takeover(app.bundleIdentifier) != nullptr || app.importedFromLoginItem || app.importedFromStartup;
}

}  // namespace holdenmere
