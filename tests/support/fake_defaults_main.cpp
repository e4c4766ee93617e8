// A stand-in for /usr/bin/defaults in tests, for the per-host preferences
// of the current user:
//   defaults -currentHost read DOMAIN KEY          "1" or "0" for a boolean
//   defaults -currentHost write DOMAIN KEY -bool true|false
//   defaults -currentHost delete DOMAIN KEY
// It keeps the values where macOS does, in
// $HOME/Library/Preferences/ByHost/DOMAIN.<UUID>.plist (an existing one, or
// one it creates), written as XML. A key that is not set is reported on
// standard error with status 1, as the real tool does. Calls are logged as
// tests/support/fake_tool_state.h describes.
#include <algorithm>
#include <cstdlib>
#include <filesystem>
#include <string>

#include "core/support/plist.h"
#include "tests/support/fake_tool_state.h"

namespace {

namespace fake = holdenmere::testing::fake_tool;
namespace fs = std::filesystem;
namespace plist = holdenmere::plist;

fs::path preferencesFile(const std::string& domain) {
    const char* home = std::getenv("HOME");
    const fs::path folder = fs::path(home == nullptr ? "." : home) / "Library/Preferences/ByHost";
    std::error_code error;
    for (fs::directory_iterator entry(folder, error), end; !error && entry != end; entry.increment(error)) {
        const std::string name = entry->path().filename().string();
        if (name.starts_with(domain + ".") && name.ends_with(".plist")) return entry->path();
    }
    return folder / (domain + ".00000000-0000-0000-0000-000000000000.plist");
}

int notSet(const std::string& domain, const std::string& key) {
    fake::err("2024-01-01 00:00:00.000 defaults[501:1001] \nThe domain/default pair of (" + domain + ", " + key +
              ") does not exist\n");
    return 1;
}

}  // namespace

int main(int argc, char** argv) {
    if (auto canned = fake::begin("defaults", argc, argv)) return *canned;
    if (argc < 5 || std::string(argv[1]) != "-currentHost") {
        fake::err("defaults: this stand-in answers -currentHost read|write|delete DOMAIN KEY\n");
        return 1;
    }
    const std::string verb = argv[2], domain = argv[3], key = argv[4];
    const fs::path file = preferencesFile(domain);
    plist::Value preferences{plist::Dictionary{}};
    if (holdenmere::files::exists(file)) preferences = plist::readFile(file);
    auto& entries = std::get<plist::Dictionary>(preferences.storage);
    auto found = std::find_if(entries.begin(), entries.end(), [&](const auto& entry) { return entry.first == key; });
    if (verb == "read") {
        if (found == entries.end()) return notSet(domain, key);
        if (auto flag = found->second.boolean()) {
            fake::out(*flag ? "1\n" : "0\n");
        } else if (auto number = found->second.integer()) {
            fake::out(std::to_string(*number) + "\n");
        } else {
            fake::out("(something else)\n");
        }
        return 0;
    }
    if (verb == "delete") {
        if (found == entries.end()) return notSet(domain, key);
        entries.erase(found);
    } else if (verb == "write" && argc == 7 && std::string(argv[5]) == "-bool") {
        const bool value = std::string(argv[6]) == "true" || std::string(argv[6]) == "YES";
        if (found == entries.end()) {
            entries.push_back({key, plist::Value{value}});
        } else {
            found->second = plist::Value{value};
        }
    } else {
        fake::err("defaults: unsupported arguments\n");
        return 1;
    }
    holdenmere::files::createDirectories(file.parent_path());
    holdenmere::files::writeAtomically(file, plist::toXml(preferences));
    return 0;
}
