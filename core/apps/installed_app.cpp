#include "core/apps/installed_app.h"

#include <cctype>
#include <numeric>
#include <system_error>

#include "core/support/bundle.h"

namespace holdenmere {
namespace {

constexpr std::string_view kCategoryPrefix = "public.app-category.";

std::optional<std::filesystem::path> resolveIcon(const std::filesystem::path& bundlePath, const std::string& iconFile) {
    if (iconFile.empty()) return std::nullopt;
    const std::filesystem::path resources = bundlePath / "Contents" / "Resources";
    std::error_code error;
    // CFBundleIconFile may name the file with or without its extension.
    for (const std::filesystem::path& candidate : {resources / iconFile, resources / (iconFile + ".icns")}) {
        if (std::filesystem::is_regular_file(candidate, error)) return candidate;
    }
    return std::nullopt;
}

// The extension point identifiers of the app's own extensions.
std::vector<std::string> extensionPointsOf(const std::filesystem::path& bundlePath) {
    std::vector<std::string> points;
    std::error_code error;
    std::filesystem::directory_iterator it(bundlePath / "Contents" / "PlugIns", error);
    if (error) return points;
    for (; it != std::filesystem::directory_iterator(); it.increment(error)) {
        if (error) break;
        if (it->path().extension() != ".appex") continue;
        auto info = Bundle{it->path()}.infoDictionary();
        if (!info) continue;
        const plist::Value* extension = info->find("NSExtension");
        if (extension == nullptr) continue;
        if (auto point = extension->stringAt("NSExtensionPointIdentifier")) points.push_back(*point);
    }
    return points;
}

}  // namespace

int InstalledApp::networkScore() const {
    return std::accumulate(networkReasons.begin(), networkReasons.end(), 0,
                           [](int sum, const NetworkReason& reason) { return sum + reason.weight; });
}

InstalledApp InstalledApp::fromInfoDictionary(const std::filesystem::path& bundlePath,
                                              const std::optional<plist::Value>& info,
                                              const std::vector<std::string>& extensionPoints) {
    InstalledApp app;
    // "/Applications/Mail.app/" names the same bundle as "/Applications/Mail.app".
    app.path = bundlePath.has_filename() ? bundlePath : bundlePath.parent_path();
    app.name = app.path.stem().string();
    if (!info || info->dictionary() == nullptr) return app;

    app.hasInfoPlist = true;
    if (auto identifier = info->stringAt("CFBundleIdentifier")) app.bundleIdentifier = *identifier;
    if (app.name.empty()) {
        app.name = info->stringAt("CFBundleDisplayName").value_or(info->stringAt("CFBundleName").value_or(""));
    }
    if (auto iconFile = info->stringAt("CFBundleIconFile"); iconFile && !iconFile->empty()) {
        app.iconFile = *iconFile;
        app.iconPath = resolveIcon(app.path, *iconFile);
    }
    if (auto categoryType = info->stringAt("LSApplicationCategoryType"); categoryType && !categoryType->empty()) {
        app.category = shortCategory(*categoryType);
    }
    app.networkReasons = NetworkSignals::reasons(*info, extensionPoints);
    return app;
}

InstalledApp InstalledApp::read(const std::filesystem::path& bundlePath) {
    const Bundle bundle{bundlePath};
    return fromInfoDictionary(bundlePath, bundle.infoDictionary(), extensionPointsOf(bundlePath));
}

std::string shortCategory(const std::string& categoryType) {
    if (categoryType.rfind(kCategoryPrefix, 0) == 0) return categoryType.substr(kCategoryPrefix.size());
    return categoryType;
}

std::string foldedCase(std::string_view text) {
    std::string result(text);
    for (char& c : result) c = static_cast<char>(std::tolower(static_cast<unsigned char>(c)));
    return result;
}

std::string categoryTitle(const std::string& category) {
    std::string title;
    bool startOfWord = true;
    for (char c : category) {
        if (c == '-' || c == '_') {
            title += ' ';
            startOfWord = true;
            continue;
        }
        title += startOfWord ? static_cast<char>(std::toupper(static_cast<unsigned char>(c))) : c;
        startOfWord = false;
    }
    return title;
}

}  // namespace holdenmere
