#include "core/apps/app_suggestions.h"

#include <algorithm>
#include <sstream>

namespace holdenmere {
namespace {

bool isManaged(const HoldenmereConfig& config, const std::string& identifier) {
    return std::any_of(config.apps.begin(), config.apps.end(),
                       [&](const ManagedApp& app) { return app.bundleIdentifier == identifier; });
}

bool isBlocked(const HoldenmereConfig& config, const std::string& identifier) {
    return std::any_of(config.blockedApps.begin(), config.blockedApps.end(),
                       [&](const BlockedApp& app) { return app.bundleIdentifier == identifier; });
}

}  // namespace

AppChoice::Mark AppSuggestions::markOf(const InstalledApp& app, const HoldenmereConfig& config) {
    if (app.bundleIdentifier.empty()) return AppChoice::Mark::noIdentifier;
    if (isManaged(config, app.bundleIdentifier)) return AppChoice::Mark::managed;
    if (isBlocked(config, app.bundleIdentifier)) return AppChoice::Mark::blocked;
    return AppChoice::Mark::none;
}

bool AppSuggestions::matches(const InstalledApp& app, std::string_view query) {
    const std::string haystack = foldedCase(app.name + '\n' + app.bundleIdentifier + '\n' +
                                            app.category.value_or("") + '\n' +
                                            categoryTitle(app.category.value_or("")));
    std::istringstream words{std::string(query)};
    std::string word;
    while (words >> word) {
        if (haystack.find(foldedCase(word)) == std::string::npos) return false;
    }
    return true;
}

std::vector<AppChoice> AppSuggestions::arrange(const std::vector<InstalledApp>& apps, const HoldenmereConfig& config,
                                               std::string_view query) {
    std::vector<AppChoice> suggested;
    std::vector<AppChoice> others;
    for (const InstalledApp& app : apps) {
        if (app.bundleIdentifier == kOwnBundleIdentifier) continue;
        if (!matches(app, query)) continue;
        AppChoice choice{app, markOf(app, config), false, {}};
        choice.suggested = choice.mark == AppChoice::Mark::none &&
                           app.networkScore() >= NetworkSignals::kSuggestionThreshold;
        if (!app.networkReasons.empty()) choice.reason = app.networkReasons.front().text;
        (choice.suggested ? suggested : others).push_back(std::move(choice));
    }
    std::stable_sort(suggested.begin(), suggested.end(), [](const AppChoice& a, const AppChoice& b) {
        return a.app.networkScore() > b.app.networkScore();
    });
    suggested.insert(suggested.end(), std::make_move_iterator(others.begin()), std::make_move_iterator(others.end()));
    return suggested;
}

std::vector<AppChoice> AppSuggestions::suggestions(const std::vector<InstalledApp>& apps,
                                                   const HoldenmereConfig& config) {
    std::vector<AppChoice> all = arrange(apps, config);
    all.erase(std::remove_if(all.begin(), all.end(), [](const AppChoice& choice) { return !choice.suggested; }),
              all.end());
    return all;
}

ManagedApp AppSuggestions::managedApp(const InstalledApp& app) {
    ManagedApp managed;
    managed.bundleIdentifier = app.bundleIdentifier;
    managed.name = app.name;
    managed.path = app.path.string();
    return managed;
}

int AppSuggestions::add(HoldenmereConfig& config, const std::vector<InstalledApp>& apps) {
    int added = 0;
    for (const InstalledApp& app : apps) {
        if (app.bundleIdentifier.empty() || app.bundleIdentifier == kOwnBundleIdentifier) continue;
        if (isManaged(config, app.bundleIdentifier)) continue;
        std::erase_if(config.blockedApps,
                      [&](const BlockedApp& blocked) { return blocked.bundleIdentifier == app.bundleIdentifier; });
        config.apps.push_back(managedApp(app));
        ++added;
    }
    return added;
}

}  // namespace holdenmere
