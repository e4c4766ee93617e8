#pragma once

#include <filesystem>
#include <string>

namespace holdenmere::testing {

// An XML property list whose top-level dictionary holds `body`
// ("<key>Label</key><string>a</string>…").
std::string xmlPlist(const std::string& body);
// The same property list in the binary format, converted by libplist.
std::string binaryPlist(const std::string& xml);

// A minimal app bundle: Name.app/Contents/Info.plist naming the executable
// and the bundle identifier (either left out when empty), and an empty
// Contents/MacOS/{executable}. Returns the bundle's path.
std::filesystem::path writeAppBundle(const std::filesystem::path& folder, const std::string& name,
                                     const std::string& executable, const std::string& bundleIdentifier);

}  // namespace holdenmere::testing
