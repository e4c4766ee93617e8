#include "core/discovery/startup_discovery.h"

#include <exception>
#include <set>

#include "core/support/bundle.h"

namespace holdenmere {
namespace {

constexpr std::string_view kCannotTell = "can't take over: Holdenmere cannot tell what it runs";
constexpr std::string_view kSystemService = "can't take over: provides a system service only launchd can start";
constexpr std::string_view kOnEvent = "can't take over: launchd starts it on an event, not an app Holdenmere opens";
constexpr std::string_view kOnSchedule = "can't take over: runs on a schedule, not at login";
constexpr std::string_view kPrefix = "can't take over: ";

// The non-empty components of a slash-separated path, in order.
std::vector<std::string_view> components(std::string_view path) {
    std::vector<std::string_view> parts;
    std::size_t start = 0;
    while (start < path.size()) {
        std::size_t end = path.find('/', start);
        if (end == std::string_view::npos) end = path.size();
        if (end > start) parts.push_back(path.substr(start, end - start));
        start = end + 1;
    }
    return parts;
}

bool hasAppExtension(std::string_view component) {
    // "Foo.app" has the extension; a bare ".app" is a hidden file without one.
    auto dot = component.rfind('.');
    return dot != std::string_view::npos && dot > 0 && component.substr(dot + 1) == "app";
}

std::string_view fileName(std::string_view path) {
    auto slash = path.rfind('/');
    return slash == std::string_view::npos ? path : path.substr(slash + 1);
}

// "Foo" for "/Applications/Foo.app".
std::string appDisplayName(std::string_view appPath) {
    std::string_view name = fileName(appPath);
    return std::string(name.substr(0, name.size() - std::string_view(".app").size()));
}

std::string mainExecutablePath(std::string_view appPath, std::string_view executable) {
    return StartupDiscovery::standardizedPath(std::string(appPath) + "/Contents/MacOS/" + std::string(executable));
}

}  // namespace

std::optional<std::string> StartupDiscovery::outermostAppPath(std::string_view path) {
    if (!path.starts_with('/')) return std::nullopt;
    // Walk from the root down and stop at the first bundle: that is the
    // shallowest of the path and all its parents.
    std::string prefix;
    for (std::string_view part : components(path)) {
        prefix += '/';
        prefix += part;
        if (hasAppExtension(part)) return prefix;
    }
    return std::nullopt;
}

std::optional<std::string> StartupDiscovery::executableName(const std::filesystem::path& appPath) {
    auto info = Bundle{appPath}.infoDictionary();
    if (!info) return std::nullopt;
    return info->stringAt("CFBundleExecutable");
}

std::optional<std::string> StartupDiscovery::bundleIdentifier(const std::filesystem::path& appPath) {
    auto info = Bundle{appPath}.infoDictionary();
    if (!info) return std::nullopt;
    auto identifier = info->stringAt("CFBundleIdentifier");
    if (!identifier || identifier->empty()) return std::nullopt;
    return identifier;
}

std::string StartupDiscovery::standardizedPath(std::string_view path) {
    if (path.empty()) return std::string();
    std::string normal = std::filesystem::path(path).lexically_normal().string();
    while (normal.size() > 1 && normal.back() == '/') normal.pop_back();
    return normal;
}

bool StartupDiscovery::countsAsSet(const plist::Value* value) {
    if (value == nullptr) return false;
    if (auto entries = value->dictionary()) return !entries->empty();
    if (auto items = value->array()) return !items->empty();
    if (auto text = value->string()) return !text->empty();
    return value->boolean().value_or(false);
}

std::optional<std::string> StartupDiscovery::cadence(const plist::Value& plist) {
    const plist::Dictionary* entries = plist.dictionary();
    if (entries == nullptr || entries->empty()) return std::nullopt;
    if (const plist::Value* interval = plist.find("StartInterval")) {
        if (auto seconds = interval->integer()) {
            if (*seconds == 3600) return "hourly";
            if (*seconds == 86400) return "daily";
            std::int64_t minutes = *seconds < 120 ? 1 : *seconds / 60;
            return "every-" + std::to_string(minutes) + "-minute";
        }
    }
    if (plist.find("StartCalendarInterval") != nullptr) return "scheduled";
    return std::nullopt;
}

std::optional<std::string> StartupDiscovery::launchdOnlyReason(const plist::Value& plist) {
    if (countsAsSet(plist.find("MachServices")) || countsAsSet(plist.find("Sockets"))) {
        return std::string(kSystemService);
    }
    for (std::string_view key : {"WatchPaths", "QueueDirectories", "StartOnMount", "LaunchEvents"}) {
        if (countsAsSet(plist.find(key))) return std::string(kOnEvent);
    }
    return std::nullopt;
}

std::string StartupDiscovery::helperName(std::string_view program, std::string_view outerAppFileName) {
    auto parts = components(program);
    for (auto it = parts.rbegin(); it != parts.rend(); ++it) {
        if (it->ends_with(".app") && *it != outerAppFileName) return std::string(it->substr(0, it->size() - 4));
    }
    return parts.empty() ? std::string(program) : std::string(parts.back());
}

std::optional<std::string> StartupDiscovery::launchdOnlyReason(const std::filesystem::path& plistPath) {
    const auto job = plist::tryReadFile(plistPath);
    if (!job || job->dictionary() == nullptr) return std::string(kCannotTell);
    return launchdOnlyReason(*job);
}

bool StartupDiscovery::launchesOwnApp(std::optional<std::string_view> programPath, const plist::Value* launchdJob) {
    if (launchdJob != nullptr && launchdOnlyReason(*launchdJob)) return false;
    if (!programPath || !programPath->starts_with('/')) return false;
    auto app = outermostAppPath(*programPath);
    if (!app) return false;
    auto executable = executableName(*app);
    if (!executable) return false;
    return standardizedPath(*programPath) == mainExecutablePath(*app, *executable);
}

std::optional<bool> StartupDiscovery::isHelperBinary(std::string_view programPath) {
    std::string program = standardizedPath(programPath);
    auto app = outermostAppPath(program);
    if (!app) return std::nullopt;
    auto executable = executableName(*app);
    if (!executable) return false;
    return program != mainExecutablePath(*app, *executable);
}

std::optional<bool> StartupDiscovery::helperInsideApp(std::string_view programPath) {
    std::string program = standardizedPath(programPath);
    auto app = outermostAppPath(program);
    if (!app) return false;
    auto executable = executableName(*app);
    if (!executable) return std::nullopt;
    return program != mainExecutablePath(*app, *executable);
}

std::optional<std::string> StartupDiscovery::ineligibleReason(std::optional<std::string_view> program,
                                                              std::optional<std::string_view> cadence,
                                                              std::optional<std::string_view> launchdOnly) {
    if (launchdOnly) return std::string(*launchdOnly);
    if (!program || !program->starts_with('/')) return std::string(kCannotTell);
    if (launchesOwnApp(program)) {
        if (cadence) return std::string(kOnSchedule);
        return std::nullopt;
    }
    auto app = outermostAppPath(*program);
    if (!app) return std::string(kPrefix) + "runs " + std::string(*program) + ", not an app";
    if (!executableName(*app)) return std::string(kCannotTell);
    std::string appName = appDisplayName(*app);
    if (cadence) {
        return std::string(kPrefix) + std::string(*cadence) + " updater inside " + appName +
               ", not an app Holdenmere starts";
    }
    return std::string(kPrefix) + "runs " + StartupDiscovery::helperName(*program, fileName(*app)) + ", a helper inside " + appName +
           ", not the app itself";
}

std::vector<StartupItem> StartupDiscovery::unmanaged(const std::vector<StartupItem>& items,
                                                     const std::vector<ManagedApp>& managed) {
    std::set<std::string_view> excluded{ownBundleIdentifier};
    for (const auto& app : managed) excluded.insert(app.bundleIdentifier);
    std::set<std::string_view> kept;
    std::vector<StartupItem> result;
    for (const auto& item : items) {
        if (!item.path) continue;
        if (excluded.count(item.bundleIdentifier) != 0) continue;
        if (!kept.insert(item.bundleIdentifier).second) continue;
        result.push_back(item);
    }
    return result;
}

std::vector<StartupItem> StartupDiscovery::merged(std::vector<StartupItem> fileBacked,
                                                  const std::optional<std::vector<StartupItem>>& background) {
    if (background) fileBacked.insert(fileBacked.end(), background->begin(), background->end());
    return fileBacked;
}

}  // namespace holdenmere
