#include "core/discovery/launcher_child_scanner.h"

#include <algorithm>
#include <cctype>

#include "core/discovery/startup_discovery.h"

namespace holdenmere {
namespace {

constexpr std::string_view kLoginItems = "/Contents/Library/LoginItems/";

std::string_view trimmed(std::string_view text) {
    const auto first = text.find_first_not_of(" \t\r");
    if (first == std::string_view::npos) return {};
    return text.substr(first, text.find_last_not_of(" \t\r") - first + 1);
}

// `"Name" ASN:0x0-0x69069:` and what follows it; the name may hold quotes.
bool nameAndAsn(std::string_view text, std::string& name, std::string& asn) {
    if (!text.starts_with('"')) return false;
    const auto marker = text.rfind("\" ASN:");
    if (marker == std::string_view::npos || marker == 0) return false;
    name = std::string(text.substr(1, marker - 1));
    std::string_view rest = text.substr(marker + 6);
    const auto colon = rest.find(':');
    if (colon == std::string_view::npos || colon == 0) return false;
    asn = std::string(rest.substr(0, colon));
    return asn.find_first_of(" \t\"") == std::string::npos;
}

// `N) "Name" ASN:…:` as "lsappinfo list" heads a record, or without the
// number as "lsappinfo info" does.
std::optional<RunningApp> header(std::string_view line) {
    std::string_view text = trimmed(line);
    std::size_t digits = 0;
    while (digits < text.size() && std::isdigit(static_cast<unsigned char>(text[digits])) != 0) ++digits;
    if (digits > 0) {
        if (text.substr(digits, 2) != ") ") return std::nullopt;
        text = trimmed(text.substr(digits + 2));
    }
    RunningApp app;
    if (!nameAndAsn(text, app.name, app.asn)) return std::nullopt;
    return app;
}

// The quoted value after `key=`, or nothing ("[ NULL ]" and the like).
std::optional<std::string> quoted(std::string_view text, std::string_view key) {
    if (!text.starts_with(key)) return std::nullopt;
    text.remove_prefix(key.size());
    if (!text.starts_with('"')) return std::nullopt;
    const auto close = text.rfind('"');
    if (close == 0) return std::nullopt;
    return std::string(text.substr(1, close - 1));
}

void detail(std::string_view line, RunningApp& app) {
    const std::string_view text = trimmed(line);
    if (auto value = quoted(text, "bundleID=")) app.bundleIdentifier = value;
    if (auto value = quoted(text, "bundle path=")) app.bundlePath = value;
    if (auto value = quoted(text, "executable path=")) app.executablePath = value;
    if (text.starts_with("pid = ")) {
        int pid = 0;
        std::size_t at = 6;
        for (; at < text.size() && std::isdigit(static_cast<unsigned char>(text[at])) != 0; ++at) {
            pid = pid * 10 + (text[at] - '0');
            if (pid > 99'999'999) return;
        }
        if (at > 6) app.pid = pid;
    }
    if (text.starts_with("parentASN=")) {
        std::string name, asn;
        if (nameAndAsn(text.substr(10), name, asn)) {
            app.parentName = name;
            app.parentAsn = asn;
        }
    }
}

}  // namespace

std::optional<std::vector<RunningApp>> LauncherChildScanner::parse(std::string_view output) {
    std::vector<RunningApp> apps;
    while (!output.empty()) {
        const auto end = output.find('\n');
        const std::string_view line = output.substr(0, end);
        output = end == std::string_view::npos ? std::string_view() : output.substr(end + 1);
        if (trimmed(line).empty()) continue;
        if (auto app = header(line)) {
            apps.push_back(std::move(*app));
        } else if ((line.front() == ' ' || line.front() == '\t') && !apps.empty()) {
            detail(line, apps.back());
        } else {
            return std::nullopt;
        }
    }
    return apps;
}

std::vector<LauncherChild> LauncherChildScanner::children(const std::vector<RunningApp>& apps) {
    std::vector<LauncherChild> result;
    for (const auto& app : apps) {
        if (!app.parentAsn || !app.bundleIdentifier || *app.parentAsn == app.asn) continue;
        auto parent = std::find_if(apps.begin(), apps.end(),
                                   [&](const RunningApp& candidate) { return candidate.asn == *app.parentAsn; });
        if (parent == apps.end() || !parent->bundlePath || !parent->bundleIdentifier) continue;
        // A launcher is an app inside another app's bundle.
        const auto outer = StartupDiscovery::outermostAppPath(*parent->bundlePath);
        if (!outer || *outer == StartupDiscovery::standardizedPath(*parent->bundlePath)) continue;
        if (parent->bundleIdentifier == app.bundleIdentifier) continue;
        const bool loginItem = parent->bundlePath->find(kLoginItems) != std::string::npos;
        result.push_back({app, *parent, loginItem});
    }
    return result;
}

StartupEntry LauncherChildScanner::entry(const LauncherChild& child, const TierOf& tierOf) {
    StartupEntry entry;
    entry.source = StartupSource::launcherChild;
    entry.handle = *child.launcher.bundleIdentifier;
    entry.ownerBundleIdentifier = child.child.bundleIdentifier;
    entry.name = child.child.name;
    entry.state = StartupEntry::State::startsAtLogin();
    if (tierOf) entry.tier = tierOf(child);
    return entry;
}

StartupSourceScan LauncherChildScanner::scan(ToolRunning& tools, const TierOf& tierOf,
                                             const std::vector<HeldStartupItem>& held) {
    StartupSourceScan scan;
    scan.source = StartupSource::launcherChild;
    std::string failure;
    const auto output = tools.output(kLsappinfo, listArguments(), kTimeLimit, failure);
    if (!output) {
        scan.unreadable = failure;
        return scan;
    }
    const auto apps = parse(*output);
    if (!apps || apps->empty()) {
        scan.unreadable = apps ? "lsappinfo listed no running apps at all"
                               : "lsappinfo printed a list this version of Holdenmere does not recognise";
        return scan;
    }
    for (const auto& child : children(*apps)) {
        const bool seen = std::any_of(scan.entries.begin(), scan.entries.end(), [&](const StartupEntry& row) {
            return row.handle == *child.launcher.bundleIdentifier;
        });
        if (!seen) scan.entries.push_back(entry(child, tierOf));
    }
    // A launcher kept from starting starts no child, so lsappinfo no longer
    // shows the pair: the ledger does.
    for (const auto& item : held) {
        if (item.source != StartupSource::launcherChild) continue;
        auto row = std::find_if(scan.entries.begin(), scan.entries.end(),
                                [&](const StartupEntry& entry) { return entry.handle == item.handle; });
        if (row != scan.entries.end()) continue;
        StartupEntry entry;
        entry.source = StartupSource::launcherChild;
        entry.handle = item.handle;
        entry.ownerBundleIdentifier = item.ownerBundleIdentifier;
        entry.name = item.name;
        entry.state = StartupEntry::State::off();
        scan.entries.push_back(std::move(entry));
    }
    return scan;
}

}  // namespace holdenmere
