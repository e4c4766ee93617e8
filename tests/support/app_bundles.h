#pragma once

#include <filesystem>
#include <fstream>
#include <string>
#include <utility>
#include <vector>

// Application bundles laid out on disk for tests: Name.app/Contents/Info.plist
// written as an XML property list from raw <key>/<value> pairs. Header-only,
// so that the Qt tests can use it without the GoogleTest support library.
namespace holdenmere::testing {

inline std::string plistDocument(const std::string& dictionaryBody) {
    return "<?xml version=\"1.0\" encoding=\"UTF-8\"?>\n"
           "<!DOCTYPE plist PUBLIC \"-//Apple//DTD PLIST 1.0//EN\" "
           "\"http://www.apple.com/DTDs/PropertyList-1.0.dtd\">\n"
           "<plist version=\"1.0\"><dict>\n" +
           dictionaryBody + "</dict></plist>\n";
}

inline std::string stringEntry(const std::string& key, const std::string& value) {
    return "<key>" + key + "</key><string>" + value + "</string>\n";
}

inline std::string urlSchemesEntry(const std::vector<std::string>& schemes) {
    std::string body = "<key>CFBundleURLTypes</key><array><dict><key>CFBundleURLSchemes</key><array>";
    for (const std::string& scheme : schemes) body += "<string>" + scheme + "</string>";
    return body + "</array></dict></array>\n";
}

inline void writeBytes(const std::filesystem::path& path, const std::string& bytes) {
    std::filesystem::create_directories(path.parent_path());
    std::ofstream stream(path, std::ios::binary | std::ios::trunc);
    stream << bytes;
}

// Writes `folder/name.app` with an Info.plist holding the identifier and the
// extra dictionary entries; returns the bundle's path.
inline std::filesystem::path makeAppBundle(const std::filesystem::path& folder, const std::string& name,
                                            const std::string& identifier, const std::string& extraEntries = {}) {
    const std::filesystem::path bundle = folder / (name + ".app");
    std::string body = extraEntries;
    if (!identifier.empty()) body = stringEntry("CFBundleIdentifier", identifier) + body;
    writeBytes(bundle / "Contents" / "Info.plist", plistDocument(body));
    return bundle;
}

}  // namespace holdenmere::testing
