#include "tests/support/plist_files.h"

#include <plist/plist.h>

#include <stdexcept>

#include "tests/support/temporary_directory.h"

namespace holdenmere::testing {

std::string xmlPlist(const std::string& body) {
    return "<?xml version=\"1.0\" encoding=\"UTF-8\"?>\n"
           "<!DOCTYPE plist PUBLIC \"-//Apple//DTD PLIST 1.0//EN\" "
           "\"http://www.apple.com/DTDs/PropertyList-1.0.dtd\">\n"
           "<plist version=\"1.0\">\n<dict>\n" +
           body + "\n</dict>\n</plist>\n";
}

std::string binaryPlist(const std::string& xml) {
    plist_t root = nullptr;
    plist_from_xml(xml.data(), static_cast<uint32_t>(xml.size()), &root);
    if (root == nullptr) throw std::runtime_error("test plist is not valid XML");
    char* bytes = nullptr;
    uint32_t length = 0;
    plist_to_bin(root, &bytes, &length);
    std::string result(bytes, length);
    plist_to_bin_free(bytes);
    plist_free(root);
    return result;
}

std::filesystem::path writeAppBundle(const std::filesystem::path& folder, const std::string& name,
                                     const std::string& executable, const std::string& bundleIdentifier) {
    auto app = folder / (name + ".app");
    std::string body;
    if (!executable.empty()) body += "<key>CFBundleExecutable</key><string>" + executable + "</string>";
    if (!bundleIdentifier.empty()) body += "<key>CFBundleIdentifier</key><string>" + bundleIdentifier + "</string>";
    writeFile(app / "Contents" / "Info.plist", xmlPlist(body));
    if (!executable.empty()) writeFile(app / "Contents" / "MacOS" / executable, "");
    return app;
}

}  // namespace holdenmere::testing
