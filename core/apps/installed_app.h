#pragma once

#include <filesystem>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "core/apps/network_signals.h"
#include "core/support/plist.h"

namespace holdenmere {

// One application bundle found on disk, as its Info.plist describes it.
struct InstalledApp {
    std::string name;              // what Finder shows: the bundle's file name without ".app"
    std::string bundleIdentifier;  // CFBundleIdentifier; empty when the bundle has none
    std::filesystem::path path;    // the .app folder
    std::optional<std::string> iconFile;            // CFBundleIconFile as written
    std::optional<std::filesystem::path> iconPath;  // that file in Contents/Resources, when it exists
    std::optional<std::string> category;            // "social-networking" for public.app-category.social-networking
    bool hasInfoPlist = false;
    // Why the app probably needs the network at launch, strongest first.
    std::vector<NetworkReason> networkReasons;

    int networkScore() const;

    // Interprets an information dictionary (nothing: the bundle has no
    // readable Info.plist). `extensionPoints` are the extension point
    // identifiers of the bundle's app extensions (Contents/PlugIns/*.appex).
    // The icon is resolved against the bundle on disk when it exists.
    static InstalledApp fromInfoDictionary(const std::filesystem::path& bundlePath,
                                           const std::optional<plist::Value>& info,
                                           const std::vector<std::string>& extensionPoints = {});

    // Reads the bundle's Info.plist and its extensions' and interprets them;
    // a bundle without a readable Info.plist still gives an app, named after
    // its folder, with no identifier.
    static InstalledApp read(const std::filesystem::path& bundlePath);

    friend bool operator==(const InstalledApp&, const InstalledApp&) = default;
};

// "public.app-category.social-networking" -> "social-networking"; other
// strings pass unchanged.
std::string shortCategory(const std::string& categoryType);

// ASCII letters lower-cased, for matching names without regard to case.
std::string foldedCase(std::string_view text);

// "social-networking" -> "Social Networking".
std::string categoryTitle(const std::string& category);

}  // namespace holdenmere
