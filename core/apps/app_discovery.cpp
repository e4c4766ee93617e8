#include "core/apps/app_discovery.h"

#include <algorithm>
#include <set>
#include <string>
#include <system_error>


namespace holdenmere {
namespace {

void collect(const std::filesystem::path& folder, int depth, std::vector<std::filesystem::path>& bundles) {
    std::error_code error;
    std::filesystem::directory_iterator it(folder, error);
    if (error) return;
    std::vector<std::filesystem::path> entries;
    for (; it != std::filesystem::directory_iterator(); it.increment(error)) {
        if (error) break;
        const std::string name = it->path().filename().string();
        if (name.empty() || name.front() == '.') continue;
        entries.push_back(it->path());
    }
    std::sort(entries.begin(), entries.end());
    for (const std::filesystem::path& entry : entries) {
        if (entry.extension() == ".app") {
            // A link to a bundle elsewhere is an installed app too.
            if (std::filesystem::is_directory(entry, error)) bundles.push_back(entry);
            continue;
        }
        if (depth >= AppDiscovery::kMaxFolderDepth) continue;
        if (std::filesystem::is_symlink(entry, error)) continue;
        if (std::filesystem::is_directory(entry, error)) collect(entry, depth + 1, bundles);
    }
}

}  // namespace

std::vector<std::filesystem::path> AppDiscovery::defaultFolders(const std::filesystem::path& home) {
    return {"/Applications", home / "Applications", "/System/Applications"};
}

std::vector<InstalledApp> AppDiscovery::scan(const std::vector<std::filesystem::path>& folders) {
    std::vector<std::filesystem::path> bundles;
    for (const std::filesystem::path& folder : folders) collect(folder, 0, bundles);

    std::vector<InstalledApp> apps;
    std::set<std::string> identifiers;
    std::set<std::filesystem::path> paths;
    for (const std::filesystem::path& bundle : bundles) {
        if (!paths.insert(bundle).second) continue;
        InstalledApp app = InstalledApp::read(bundle);
        if (!app.bundleIdentifier.empty() && !identifiers.insert(app.bundleIdentifier).second) continue;
        apps.push_back(std::move(app));
    }
    std::stable_sort(apps.begin(), apps.end(), [](const InstalledApp& a, const InstalledApp& b) {
        const std::string left = foldedCase(a.name);
        const std::string right = foldedCase(b.name);
        if (left != right) return left < right;
        return a.path < b.path;
    });
    return apps;
}

}  // namespace holdenmere
