#pragma once

#include <array>
#include <optional>
#include <string_view>

namespace holdenmere {

// The kinds of startup-inventory rows, as stored in the configuration's ledger.
enum class StartupSource {
    serviceManagement,
    launchdJob,
    appExtension,
    sessionRestore,
    launcherChild,
};

inline constexpr std::array kAllStartupSources = {
    StartupSource::serviceManagement, StartupSource::launchdJob, StartupSource::appExtension,
    StartupSource::sessionRestore, StartupSource::launcherChild,
};

std::string_view rawValue(StartupSource source);
// Nothing for a string that names no source.
std::optional<StartupSource> startupSourceFromRaw(std::string_view raw);

}  // namespace holdenmere
