#include "core/startup/startup_source.h"

namespace holdenmere {

std::string_view rawValue(StartupSource source) {
    switch (source) {
        case StartupSource::serviceManagement: return "serviceManagement";
        case StartupSource::launchdJob: return "launchdJob";
        case StartupSource::appExtension: return "appExtension";
        case StartupSource::sessionRestore: return "sessionRestore";
        case StartupSource::launcherChild: return "launcherChild";
    }
    return "";
}

std::optional<StartupSource> startupSourceFromRaw(std::string_view raw) {
    for (auto source : kAllStartupSources) {
        if (rawValue(source) == raw) return source;
    }
    return std::nullopt;
}

}  // namespace holdenmere
