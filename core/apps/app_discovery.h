#pragma once

#include <filesystem>
#include <vector>

#include "core/apps/installed_app.h"

namespace holdenmere {

// Lists the apps installed in the Applications folders.
struct AppDiscovery {
    // How deep below an Applications folder bundles are looked for
    // ("/Applications/Utilities/Console.app" is one level down).
    static constexpr int kMaxFolderDepth = 3;

    // "/Applications", "~/Applications" and "/System/Applications", in the
    // order in which a bundle identifier found twice is kept.
    static std::vector<std::filesystem::path> defaultFolders(const std::filesystem::path& home);

    // Every .app bundle in the folders and their subfolders (not inside other
    // bundles, not through symbolically linked folders), read from its
    // Info.plist. A bundle identifier found again in a later place is left
    // out; folders that are missing or unreadable are skipped. Sorted by name
    // (case-insensitive), then path.
    static std::vector<InstalledApp> scan(const std::vector<std::filesystem::path>& folders);
};

}  // namespace holdenmere
