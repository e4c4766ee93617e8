#pragma once

#include <string>
#include <string_view>
#include <vector>

#include "core/apps/installed_app.h"
#include "core/config/holdenmere_config.h"

namespace holdenmere {

// One installed app as the Add apps list offers it.
struct AppChoice {
    // Why an app cannot simply be added, or what it already is.
    enum class Mark {
        none,          // free to add
        managed,       // already started by Holdenmere
        blocked,       // switched off in Holdenmere; adding switches it back on
        noIdentifier,  // no bundle identifier, so nothing can be keyed to it
    };

    InstalledApp app;
    Mark mark = Mark::none;
    bool suggested = false;  // likely to need the network at launch, and free to add
    std::string reason;      // the strongest reason, shown beside a suggestion

    bool canAdd() const { return mark == Mark::none || mark == Mark::blocked; }

    friend bool operator==(const AppChoice&, const AppChoice&) = default;
};

// Orders, marks and searches the installed apps against the configuration.
struct AppSuggestions {
    // Holdenmere's own bundle identifier: never offered.
    static constexpr std::string_view kOwnBundleIdentifier = "com.tavik.holdenmere";

    // The apps that match `query`, suggestions first (most reasons first,
    // then by name), then every other app in the order given. Holdenmere
    // itself is left out.
    static std::vector<AppChoice> arrange(const std::vector<InstalledApp>& apps, const HoldenmereConfig& config,
                                          std::string_view query = {});
    // Only the suggestions, in the same order.
    static std::vector<AppChoice> suggestions(const std::vector<InstalledApp>& apps, const HoldenmereConfig& config);

    // Every word of the query (split at white space) occurs, regardless of
    // case, in the name, the bundle identifier or the category.
    static bool matches(const InstalledApp& app, std::string_view query);

    static AppChoice::Mark markOf(const InstalledApp& app, const HoldenmereConfig& config);

    // The managed-app record an added app starts with: enabled, not hidden,
    // no delay.
    static ManagedApp managedApp(const InstalledApp& app);

    // Adds the apps at the end of the managed list, in the order given; an
    // app that was switched off leaves the blocked list. Apps already managed
    // or without a bundle identifier are skipped. Returns how many were added.
    static int add(HoldenmereConfig& config, const std::vector<InstalledApp>& apps);
};

}  // namespace holdenmere
