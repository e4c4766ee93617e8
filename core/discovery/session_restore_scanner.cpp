#include "core/discovery/session_restore_scanner.h"

#include <algorithm>
#include <future>
#include <memory>
#include <thread>

namespace holdenmere {
namespace {

namespace fs = std::filesystem;

// A boolean as loginwindow and `defaults` write it: true/false, or 0/1.
bool readFlag(const plist::Value& preferences, std::string_view key, std::optional<bool>& flag) {
    const plist::Value* value = preferences.find(key);
    if (value == nullptr) return true;
    if (auto boolean = value->boolean()) {
        flag = *boolean;
        return true;
    }
    if (auto integer = value->integer()) {
        flag = *integer != 0;
        return true;
    }
    return false;
}

// Reads and parses on a thread of its own, so that a file that does not
// answer (a hung network home) costs the caller the time limit only.
SessionRestoreScanner::Read readWithin(const fs::path& file, std::chrono::milliseconds timeLimit) {
    auto promise = std::make_shared<std::promise<SessionRestoreScanner::Read>>();
    auto answer = promise->get_future();
    std::thread([promise, file] {
        try {
            const auto preferences = plist::readFile(file);
            if (auto restore = SessionRestoreScanner::interpret(preferences)) {
                promise->set_value(*restore);
            } else {
                promise->set_value(file.string() + " holds values loginwindow does not write");
            }
        } catch (const std::exception& error) {
            promise->set_value(file.string() + " could not be read: " + error.what());
        }
    }).detach();
    if (answer.wait_for(timeLimit) != std::future_status::ready) {
        return file.string() + " could not be read within " +
               std::to_string(std::chrono::duration_cast<std::chrono::seconds>(timeLimit).count()) + "s";
    }
    return answer.get();
}

bool isHeld(const std::vector<HeldStartupItem>& held, std::string_view handle) {
    return std::any_of(held.begin(), held.end(), [&](const HeldStartupItem& item) {
        return item.source == StartupSource::sessionRestore && item.handle == handle;
    });
}

}  // namespace

bool SessionRestore::lists(std::string_view bundleIdentifier) const {
    return std::any_of(apps.begin(), apps.end(), [&](const App& app) { return app.bundleIdentifier == bundleIdentifier; });
}

std::optional<fs::path> SessionRestoreScanner::preferencesFile(const fs::path& home) {
    std::error_code error;
    std::optional<fs::path> newest;
    fs::file_time_type newestTime;
    for (fs::directory_iterator entry(home / "Library/Preferences/ByHost", error), end; !error && entry != end;
         entry.increment(error)) {
        const std::string name = entry->path().filename().string();
        if (!name.starts_with(std::string(kDomain) + ".") || !name.ends_with(".plist")) continue;
        std::error_code timeError;
        const auto time = fs::last_write_time(entry->path(), timeError);
        if (timeError) continue;
        if (!newest || time > newestTime) {
            newest = entry->path();
            newestTime = time;
        }
    }
    return newest;
}

std::optional<SessionRestore> SessionRestoreScanner::interpret(const plist::Value& preferences) {
    if (preferences.dictionary() == nullptr) return std::nullopt;
    SessionRestore restore;
    if (!readFlag(preferences, "TALLogoutSavesState", restore.logoutSavesState) ||
        !readFlag(preferences, "LoginwindowLaunchesRelaunchApps", restore.launchesRelaunchApps)) {
        return std::nullopt;
    }
    const plist::Value* apps = preferences.find("TALAppsToRelaunchAtLogin");
    if (apps == nullptr) return restore;
    if (apps->array() == nullptr) return std::nullopt;
    for (const auto& app : *apps->array()) {
        if (app.dictionary() == nullptr) return std::nullopt;
        auto identifier = app.stringAt("BundleID");
        auto path = app.stringAt("Path");
        // An entry without a bundle identifier (a bare executable) cannot be
        // told apart from another; it is left out.
        if (!identifier || identifier->empty()) continue;
        SessionRestore::App entry{*identifier, path.value_or(""), false};
        if (const plist::Value* hide = app.find("Hide")) entry.hide = hide->boolean().value_or(false);
        restore.apps.push_back(std::move(entry));
    }
    return restore;
}

SessionRestoreScanner::Read SessionRestoreScanner::read(const fs::path& home, std::chrono::milliseconds timeLimit) {
    const auto file = preferencesFile(home);
    if (!file) return SessionRestore{};
    return readWithin(*file, timeLimit);
}

StartupSourceScan SessionRestoreScanner::scan(const fs::path& home, const TierOf& tierOf,
                                              const std::vector<HeldStartupItem>& held) {
    StartupSourceScan scan;
    scan.source = StartupSource::sessionRestore;
    const Read answer = read(home);
    if (const auto* failure = std::get_if<std::string>(&answer)) {
        scan.unreadable = *failure;
        return scan;
    }
    const auto& restore = std::get<SessionRestore>(answer);
    StartupEntry setting;
    setting.source = StartupSource::sessionRestore;
    setting.ownerBundleIdentifier = kDomain;
    setting.name = kReopenWindowsName;
    setting.handle = kReopenWindowsHandle;
    setting.state = restore.reopensWindows() ? StartupEntry::State::startsAtLogin() : StartupEntry::State::off();
    scan.entries.push_back(std::move(setting));
    for (const auto& app : restore.apps) {
        StartupEntry entry;
        entry.source = StartupSource::sessionRestore;
        entry.ownerBundleIdentifier = app.bundleIdentifier;
        entry.name = app.path.empty() ? app.bundleIdentifier : fs::path(app.path).stem().string();
        entry.handle = app.bundleIdentifier;
        entry.state = isHeld(held, app.bundleIdentifier) ? StartupEntry::State::off()
                                                         : StartupEntry::State::startsAtLogin();
        if (tierOf) entry.tier = tierOf(app);
        scan.entries.push_back(std::move(entry));
    }
    return scan;
}

}  // namespace holdenmere
