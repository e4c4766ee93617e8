#pragma once

#include <filesystem>
#include <string>

#include "tests/support/temporary_directory.h"

namespace holdenmere::testing {

// An XML Info.plist naming a bundle identifier.
inline std::string infoPlistXml(const std::string& bundleIdentifier) {
    return "<?xml version=\"1.0\" encoding=\"UTF-8\"?>\n<plist version=\"1.0\"><dict>"
           "<key>CFBundleIdentifier</key><string>" +
           bundleIdentifier + "</string></dict></plist>\n";
}

// folder/{name}.app with an Info.plist holding `infoPlist`; its path.
inline std::string writeAppBundle(const std::filesystem::path& folder, const std::string& name,
                                  const std::string& infoPlist) {
    auto bundle = folder / (name + ".app");
    writeFile(bundle / "Contents/Info.plist", infoPlist);
    return bundle.string();
}

}  // namespace holdenmere::testing
